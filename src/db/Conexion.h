#pragma once
// The one connection every statement runs on, shaped after what the
// worksheet needs of an ADO connection: plain execution with records
// affected, forward-only recordsets, prepared commands with positional
// parameters, and transactions. SQL Server receives the composed text as it
// is; SQLite receives it adapted by DialectoSqlite, PostgreSQL by
// DialectoPostgres.

#include "common/Currency.h"
#include "common/VbError.h"

#include <QHash>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <deque>
#include <functional>
#include <unordered_map>
#include <memory>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;
struct pg_conn;
struct pg_result;

namespace presupuestos {

enum class Motor { SQLite, SqlServer, PostgreSQL };

class Recordset;
class Comando;

class Conexion : public std::enable_shared_from_this<Conexion> {
public:
    // ADO's execute option for a statement that runs without waiting.
    static constexpr int adAsyncExecute = 16;
    // How long a statement waits for another user's write to finish.
    static constexpr int kEsperaBloqueoDefecto = 5000;

    // Opens (creating it if needed) an SQLite database file, or ":memory:".
    static std::shared_ptr<Conexion> abrirSqlite(const QString& fichero);
    // Opens an ODBC connection string (SQL Server through FreeTDS or the
    // SQL Server ODBC driver).
    static std::shared_ptr<Conexion> abrirOdbc(const QString& cadenaConexion);
    // Opens a PostgreSQL server from a libpq connection string
    // ("host=... dbname=... user=..."). The retail database of three-part
    // names is a schema of the same database.
    static std::shared_ptr<Conexion> abrirPostgres(const QString& conninfo);
    // SQL Server with no server behind it: every composed text is logged as
    // it would be sent (the journal's too), and nothing runs. Queries come back empty and a
    // write says it touched filasGrabadas() rows (0: an update-else-insert
    // composes both). Where no server can run, the server's own statements
    // are composed on it to be checked.
    static std::shared_ptr<Conexion> grabadoraSqlServer();
    bool grabadora() const { return grabadora_; }
    long filasGrabadas() const { return filasGrabadas_; }
    void setFilasGrabadas(long n) { filasGrabadas_ = n; }

    ~Conexion();
    Conexion(const Conexion&) = delete;
    Conexion& operator=(const Conexion&) = delete;

    Motor motor() const { return motor_; }
    QString nombre() const { return nombre_; }

    // Runs a statement that returns no records. Returns the records
    // affected (-1 when the engine does not say). With adAsyncExecute the
    // statement is queued and runs once control returns to the event loop,
    // or before the next statement on this connection, whichever is first.
    long Execute(const QString& sql, int opciones = -1);

    // Opens a forward-only, read-only recordset.
    Recordset Abrir(const QString& sql);

    void BeginTrans();
    void CommitTrans();
    void RollbackTrans();
    bool enTransaccion() const { return transacciones_ > 0; }
    // Heard around the outermost transaction: antesDeConfirmar runs inside
    // it just before it commits (what it writes commits with it, and if it
    // fails nothing does), despuesDeConfirmar once it has, alDeshacer after
    // it rolls back. The change journal keeps its rows in the transaction
    // of the changes they tell; each worksheet on the connection has its own.
    struct AvisosTransaccion {
        std::function<void()> antesDeConfirmar;
        std::function<void()> despuesDeConfirmar;
        std::function<void()> alDeshacer;
    };
    void agregarAvisos(const void* dueno, AvisosTransaccion avisos);
    void quitarAvisos(const void* dueno);
    // How long a statement waits on another user's lock (SQLite, PostgreSQL).
    void setEsperaBloqueo(int milisegundos);

    // A write locks what it depends on before it reads it, and holds it to
    // the end of the transaction. SQLite needs nothing more: its
    // transactions take the database's write lock when they begin. On a
    // server each key (a budget row's) is locked within its ambit (a
    // company's year), in one order for everybody, so two batches queue
    // instead of deadlocking; a key whose row does not exist yet is locked
    // all the same, so two users creating one row queue too. A writer that
    // takes a whole ambit (an import) waits for every key's writer of it
    // and the other way round.
    void bloquearClaves(const QString& ambito, const QStringList& claves);
    void bloquearAmbito(const QString& ambito);
    // Whether keys are locked one by one (a server): otherwise there is no
    // need to name them.
    bool bloqueaPorClave() const { return pg_ != nullptr; }
    // Past this many keys the whole ambit is locked instead: the server's
    // table of locks is shared by every session and sized for a few dozen
    // each.
    static constexpr int kMaxClavesBloqueadas = 1000;
    // Whether the outermost transaction is still open: the engine rolls it
    // back on its own after some failures (a full disk, a lost connection).
    bool transaccionViva() const;
    // Other users' commits, as far as the engine tells without reading the
    // data: SQLite's data version of the file moved since the last call; a
    // server's notifications on the channel since the last call (their
    // payloads go to cargas). Watching starts with the first call.
    bool cambiosAjenos(const QString& canal, QStringList* cargas);
    // Tells the others listening on the channel, when the open transaction
    // commits (a server; SQLite's others see the file's version move).
    void notificar(const QString& canal, const QString& carga);
    // Grows each time the connection to the server is made again: what was
    // prepared on the old one has to be prepared anew.
    int generacion() const { return generacion_; }

    // Composed texts, in the order they were sent (before any adaptation).
    const std::deque<QString>& registro() const { return registro_; }
    QString ultimoTexto() const { return registro_.empty() ? QString() : registro_.back(); }
    void limpiarRegistro() { registro_.clear(); }
    void setRegistroActivo(bool activo) { registroActivo_ = activo; }
    bool registroActivo() const { return registroActivo_; }

    // The text the engine receives for a composed text.
    QString adaptar(const QString& sql);

    // For SQLite: the file that holds the database a three-part name
    // refers to. Unmapped names are looked for beside the main file as
    // "<name>.db".
    void asociarBaseDatos(const QString& nombre, const QString& fichero);
    QString ficheroPrincipal() const { return fichero_; }
    // Attaches the named databases now (SQLite); names already attached are skipped.
    void adjuntar(const QStringList& bases);

    // Runs queued asynchronous statements now (and, on PostgreSQL, sends
    // the rows still waiting for the temporary tables).
    void completarPendientes();
    // Sends only the rows still waiting for the temporary tables, for
    // whoever reads them past this connection (PostgreSQL).
    void enviarLote();
    // The error of the last asynchronous statement, empty when it worked.
    QString ultimoErrorAsincrono() const { return errorAsincrono_; }

    QSqlDatabase& baseDatos() { return db_; }
    // The SQLite connection under the driver; null for other engines.
    sqlite3* sqlite() const { return sqlite_; }
    // The PostgreSQL connection under the driver; null for other engines.
    ::pg_conn* postgres() const { return pg_; }

    // Internal use by Recordset and Comando. Every composed text comes here
    // before any dialect; when PRESUPUESTOS_SENTENCIAS names a folder, each
    // new shape of text (literals, numbers and the stamps of temporary
    // names made alike) is also written there, with the first text of that
    // shape, for the T-SQL grammar check of the tests.
    void anotar(const QString& sql);
    void registrarComando(Comando* c) { comandos_.push_back(c); }
    // PostgreSQL: one statement through libpq, by name when prepared (and
    // prepared first with texto when preparar), or the text alone; values
    // as text, a null where nulos says. Inside a transaction the savepoint
    // that lets a failure leave the rest to commit goes in the same round
    // trip (a pipeline), as does the preparation. The caller clears the
    // result; a failure raises the system's error.
    ::pg_result* ejecutarLibpq(const QByteArray& nombre, const QByteArray& texto, bool preparar,
                               const std::vector<QByteArray>& valores = {}, const std::vector<char>& nulos = {});
    // Every statement sent to PostgreSQL through libpq, as it went, for a
    // benchmark's floor to send again: its text and values, whether it was
    // prepared in its round trip, whether it ran by name as one prepared on
    // the session, and the savepoint statements sent before it in the same
    // round trip (releasing the last one, setting a new one).
    struct EnvioLibpq {
        const QByteArray& texto;
        const std::vector<QByteArray>& valores;
        const std::vector<char>& nulos;
        bool prepara;
        bool porNombre;
        bool liberaPunto;
        bool ponePunto;
    };
    using Traza = std::function<void(const EnvioLibpq&)>;
    void setTraza(Traza traza) { traza_ = std::move(traza); }
    void olvidarComando(Comando* c) { std::erase(comandos_, c); }
    // PostgreSQL aborts the whole transaction on a failed statement; each
    // statement inside one runs after a savepoint, and a failure goes back
    // to it, so that what the transaction stored before stays and can be
    // committed (an insert that meets another user's row, a batch stopped
    // at its first failure). Nothing to do on the other engines.
    void antesDeSentencia();
    void trasFallo();
    [[noreturn]] void lanzarErrorMotor(const QSqlQuery& q, const QString& sql) const;
    // The system's error for an engine error, saying first when the database
    // is read-only or locked by another user.
    VbError errorMotor(const QSqlError& e) const;

private:
    Conexion(Motor motor, QString nombreConexion);
    void registrarFunciones();
    long ejecutarAhora(const QString& sql);
    // PostgreSQL: the session's settings, on every new session.
    void configurarSesion();
    // PostgreSQL: runs statements of the connection's own (not composed
    // texts: not logged, not adapted) straight through libpq.
    void ejecutarPostgres(const QString& sql);
    // PostgreSQL: a composed data statement as a shape prepared once (its
    // literals as parameters), or nothing when it does not take one.
    bool ejecutarForma(const QString& sql, long* afectadas);
    QSqlError errorPostgres(const ::pg_result* r) const;
    // A session the server dropped is opened again before the next
    // statement outside a transaction, with this connection's temporary
    // tables made again as they were.
    void recuperarSesion();
    // The statements that made this connection's temporary tables what
    // they are, to be run again on a new session.
    void recordarTemporal(const QString& sql);
    std::vector<QString> temporales_;
    // The commands prepared on this connection: a new session drops what
    // they prepared on the old one before any transaction begins (the
    // driver's clean-up of a statement the server no longer has fails, and a
    // failure inside a transaction would abort it).
    std::vector<Comando*> comandos_;
    // What cambiosAjenos saw last: SQLite's data version; the channels a
    // server session listens on.
    qint64 versionDatos_ = -1;
    QStringList escuchados_;
    mutable bool perdida_ = false;
    int generacion_ = 0;
    QString conninfo_;
    Traza traza_;
    // PostgreSQL: the shapes of composed statements prepared on this
    // session (the text each stands for), and those that do not prepare.
    struct FormaPg {
        QByteArray nombre;
        QByteArray texto;
        bool preparada = false;
    };
    std::unordered_map<QString, FormaPg> formasPg_;
    QSet<QString> formasNoPreparables_;
    int siguienteNombre_ = 0;
    // Keys, and ambits (true: whole), already locked by the open transaction.
    QSet<qint64> bloqueadas_;
    QHash<qint64, bool> ambitos_;

    Motor motor_;
    bool grabadora_ = false;
    long filasGrabadas_ = 0;
    QString nombre_;
    QString fichero_;
    QSqlDatabase db_;
    std::deque<QString> registro_;
    bool registroActivo_ = true;
    int transacciones_ = 0;
    bool puntoGuardado_ = false;
    // PostgreSQL: rows for this connection's temporary tables, adapted and
    // waiting to go to the server in one round trip (see Execute).
    QStringList lote_;
    QHash<QString, QString> ficherosBases_;
    QStringList adjuntadas_;
    std::vector<QString> pendientes_;
    // Data statements prepared once per shape (SQLite).
    std::unordered_map<QString, std::unique_ptr<QSqlQuery>> formas_;
    QString errorAsincrono_;
    bool completando_ = false;
    sqlite3* sqlite_ = nullptr;
    ::pg_conn* pg_ = nullptr;
    std::vector<std::pair<const void*, AvisosTransaccion>> avisos_;
};

// Statements run while one of these lives stay out of the log, which holds
// the worksheet's own statements (the change journal's are not among them).
class SinRegistro {
public:
    explicit SinRegistro(Conexion& c) : c_(c), antes_(c.registroActivo()) { c_.setRegistroActivo(false); }
    ~SinRegistro() { c_.setRegistroActivo(antes_); }
    SinRegistro(const SinRegistro&) = delete;
    SinRegistro& operator=(const SinRegistro&) = delete;

private:
    Conexion& c_;
    bool antes_;
};

// A transaction for one user operation. Inside an operation that already
// holds one it does nothing, so a step can be an operation of its own or
// part of a larger one. Not committed when it goes out of scope: rolled back.
class Transaccion {
public:
    explicit Transaccion(Conexion& c);
    ~Transaccion();
    Transaccion(const Transaccion&) = delete;
    Transaccion& operator=(const Transaccion&) = delete;
    void confirmar();
    bool propia() const { return propia_; }

private:
    Conexion& c_;
    bool propia_ = false;
    bool cerrada_ = false;
};

// Runs the work of a transaction of its own; when the engine chose it to
// break a deadlock (which the key order makes rare but a writer from
// elsewhere can still cause), the work is run again, whole, a few times
// before the error is let through. Inside a transaction already, the work
// runs once: only whoever owns the transaction can run it again.
void repetirTrasInterbloqueo(Conexion& c, const std::function<void()>& trabajo);

// Rows read straight from an engine's own library, without Qt's driver
// between: a QVariant and a QString per field cost more than the query
// itself on a worksheet of tens of thousands of rows.
class Cursor {
public:
    virtual ~Cursor() = default;
    // Next row; false at the end. Raises the engine's error.
    virtual bool avanzar() = 0;
    int columnas() const { return static_cast<int>(nombres_.size()); }
    // A column by name, whatever the case the engine gives it; -1 if none.
    int indice(const QString& nombre) const;
    virtual QVariant valor(int i) const = 0;
    virtual Currency moneda(int i) const = 0;
    virtual QString texto(int i) const = 0;

protected:
    QStringList nombres_;
};

// An SQLite statement read straight from the engine: the recordsets of an
// SQLite connection are read this way, with no row cache and no text
// converted to UTF-16 by the engine, which on a worksheet of tens of
// thousands of rows costs more than the query itself.
class CursorSqlite : public Cursor {
public:
    // propia: the cursor finalizes the statement; otherwise it only resets
    // it, for its owner to run again.
    CursorSqlite(std::shared_ptr<Conexion> conexion, sqlite3_stmt* sentencia, bool propia = true);
    ~CursorSqlite() override;
    CursorSqlite(const CursorSqlite&) = delete;
    CursorSqlite& operator=(const CursorSqlite&) = delete;

    bool avanzar() override;
    QVariant valor(int i) const override;
    Currency moneda(int i) const override;
    QString texto(int i) const override;

private:
    std::shared_ptr<Conexion> conexion_;   // keeps the connection open while the statement lives
    sqlite3_stmt* st_;
    bool propia_;
};

// The rows of a PostgreSQL query, read from libpq's result.
class CursorPostgres : public Cursor {
public:
    CursorPostgres(std::shared_ptr<Conexion> conexion, ::pg_result* resultado);
    ~CursorPostgres() override;
    CursorPostgres(const CursorPostgres&) = delete;
    CursorPostgres& operator=(const CursorPostgres&) = delete;

    bool avanzar() override;
    QVariant valor(int i) const override;
    Currency moneda(int i) const override;
    QString texto(int i) const override;

private:
    std::shared_ptr<Conexion> conexion_;   // keeps the connection open while the rows are read
    ::pg_result* r_;
    int filas_;
    int fila_ = -1;
};

// A query with positional parameters ("?"), prepared once and opened many
// times: the change journal reads a row before and after every write, and
// parsing the same query each time would cost more than running it. A
// recordset it opens must be closed before the query goes.
class Consulta {
public:
    Consulta(std::shared_ptr<Conexion> conexion, QString texto);
    ~Consulta();
    Consulta(const Consulta&) = delete;
    Consulta& operator=(const Consulta&) = delete;

    Recordset Abrir(const std::vector<QVariant>& valores);

private:
    std::shared_ptr<Conexion> conexion_;
    QString texto_;
    sqlite3_stmt* st_ = nullptr;
};

// Forward-only recordset: positioned on the first record after opening.
class Recordset {
public:
    Recordset() = default;
    Recordset(std::unique_ptr<QSqlQuery> q);
    explicit Recordset(std::unique_ptr<Cursor> c);
    Recordset(Recordset&&) noexcept = default;
    Recordset& operator=(Recordset&&) noexcept = default;

    bool eof() const { return eof_; }
    void MoveNext();
    void Close();
    int numeroCampos() const;
    // Position of a field by name (case-insensitive), -1 when there is none;
    // loops over many rows look their fields up once.
    int indiceCampo(const QString& nombre) const;

    // Field by position or by name (case-insensitive). Raises an error at
    // end of file or for an unknown field.
    QVariant campo(int indice) const;
    QVariant campo(const QString& nombre) const;
    Currency moneda(const QString& nombre) const { return Currency::fromVariant(campo(nombre)); }
    Currency moneda(int indice) const;
    QString texto(const QString& nombre) const { return campo(nombre).toString(); }
    QString texto(int indice) const;
    // Whole-number field; a real rounds halves to even; null raises the invalid-use-of-Null error.
    int entero(const QString& nombre) const;
    int entero(int indice) const;

private:
    void comprobar(int indice) const;

    std::unique_ptr<QSqlQuery> q_;
    std::unique_ptr<Cursor> c_;
    // The columns, known once the statement ran: read once, not per field.
    QSqlRecord columnas_;
    int numColumnas_ = 0;
    bool eof_ = true;
};

// Diezmilesimas: an amount bound as its exact count of ten-thousandths, for
// columns that keep it so (SQLite has no exact decimal type).
enum class TipoParametro { Entero, Moneda, Texto, Booleano, Diezmilesimas };

// A command with positional parameters of declared types, prepared once and
// executed many times.
class Comando {
public:
    explicit Comando(std::shared_ptr<Conexion> conexion);
    ~Comando();
    Comando(const Comando&) = delete;
    Comando& operator=(const Comando&) = delete;

    void setCommandText(const QString& texto);
    const QString& commandText() const { return texto_; }
    void setPrepared(bool p) { preparado_ = p; }

    void agregarParametro(const QString& nombre, TipoParametro tipo, int tamano = 0);
    int numeroParametros() const { return static_cast<int>(parametros_.size()); }
    const QString& nombreParametro(int i) const;
    TipoParametro tipoParametro(int i) const;
    int tamanoParametro(int i) const;

    // Converts the value to the parameter's declared type: a 32-bit integer
    // rounds a currency halves to even, a text longer than its size is
    // rejected, and so on. Raises the system's error on a bad value.
    void setValor(int indice, const QVariant& valor);
    void setValor(int indice, Currency valor);
    // Typed values without a QVariant in between, for commands run many
    // thousands of times (the change journal's).
    void setEntero(int indice, qint32 valor);
    void setBooleano(int indice, bool valor);
    QVariant valor(int indice) const;
    // Drops what was prepared on a session that is gone.
    void soltarPreparada() { consulta_.reset(); }

    // Executes; returns the records affected.
    long Execute();

    std::shared_ptr<Conexion> conexion() const { return conexion_; }

private:
    // The value is kept in the parameter's declared type: a number (the
    // integer, the currency's raw count or the Boolean) or a text.
    struct Parametro {
        QString nombre;
        TipoParametro tipo;
        int tamano;
        bool nulo = true;
        qint64 numero = 0;
        QString texto;
        // The text as the engine keeps it, made when it is set: bound as it
        // is, it is not converted again on every execution.
        QByteArray utf8;
    };
    void ponerTexto(Parametro& p, const QString& t);
    QVariant paraQt(const Parametro& p) const;
    bool prepararDirecta();
    long ejecutarDirecta();
    void soltarDirecta();

    std::shared_ptr<Conexion> conexion_;
    QString texto_;
    bool preparado_ = false;
    bool anotado_ = false;
    std::vector<Parametro> parametros_;
    std::unique_ptr<QSqlQuery> consulta_;
    // Names given to the markers of the prepared text, one per parameter;
    // empty when the text's markers are bound by position.
    QStringList marcas_;
    // SQLite: the statement prepared on the engine's handle and bound by
    // position, for texts of plain '?' markers that return no records;
    // anything else goes through consulta_.
    sqlite3_stmt* directa_ = nullptr;
    bool directaProbada_ = false;
    // The connection's session consulta_ was prepared on.
    int generacion_ = 0;
    // PostgreSQL: the statement prepared through libpq, by name, on the
    // session of generacionPg_; its text with numbered markers.
    QByteArray nombrePg_;
    QByteArray textoPg_;
    int generacionPg_ = -1;
    long ejecutarPostgres();
};

} // namespace presupuestos
