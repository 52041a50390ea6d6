#pragma once
// The one connection every statement runs on, shaped after what the
// worksheet needs of an ADO connection: plain execution with records
// affected, forward-only recordsets, prepared commands with positional
// parameters, and transactions. It logs every composed text and keeps what
// is the same on every engine (the order of statements, transactions and
// who hears about them); what differs is its engine's Controlador.

#include "common/Currency.h"
#include "common/VbError.h"
#include "db/Controlador.h"

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

namespace presupuestos {

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

    Motor motor() const { return ctl_->motor(); }
    Controlador& controlador() const { return *ctl_; }
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
    // How long a statement waits on another user's lock.
    void setEsperaBloqueo(int milisegundos) { ctl_->setEsperaBloqueo(milisegundos); }

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
    bool bloqueaPorClave() const { return ctl_->bloqueaPorClave(); }
    // Past this many keys the whole ambit is locked instead: the server's
    // table of locks is shared by every session and sized for a few dozen
    // each.
    static constexpr int kMaxClavesBloqueadas = 1000;
    // Whether the outermost transaction is still open: the engine rolls it
    // back on its own after some failures (a full disk, a lost connection).
    bool transaccionViva() const { return transacciones_ > 0 && ctl_->transaccionViva(); }
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
    int generacion() const { return ctl_->generacion(); }

    // Composed texts, in the order they were sent (before any adaptation).
    const std::deque<QString>& registro() const { return registro_; }
    QString ultimoTexto() const { return registro_.empty() ? QString() : registro_.back(); }
    void limpiarRegistro() { registro_.clear(); }
    void setRegistroActivo(bool activo) { registroActivo_ = activo; }
    bool registroActivo() const { return registroActivo_; }

    // The text the engine receives for a composed text.
    QString adaptar(const QString& sql) { return ctl_->adaptar(sql); }

    // For SQLite: the file that holds the database a three-part name
    // refers to. Unmapped names are looked for beside the main file as
    // "<name>.db".
    void asociarBaseDatos(const QString& nombre, const QString& fichero) { ctl_->asociarBaseDatos(nombre, fichero); }
    // Attaches the named databases now (SQLite); names already attached are skipped.
    void adjuntar(const QStringList& bases) { ctl_->adjuntar(bases); }

    // Runs queued asynchronous statements now (and, on PostgreSQL, sends
    // the rows still waiting for the temporary tables).
    void completarPendientes();
    // Sends only the rows still waiting for the temporary tables, for
    // whoever reads them past this connection (PostgreSQL).
    void enviarLote() { ctl_->enviarTomadas(); }
    // The error of the last asynchronous statement, empty when it worked.
    QString ultimoErrorAsincrono() const { return errorAsincrono_; }

    QSqlDatabase& baseDatos() { return db_; }

    // Every composed text comes here before any dialect; when
    // PRESUPUESTOS_SENTENCIAS names a folder, each new shape of text
    // (literals, numbers and the stamps of temporary names made alike) is
    // also written there, with the first text of that shape, for the T-SQL
    // grammar check of the tests.
    void anotar(const QString& sql);
    // The commands prepared on this connection: a new session drops what
    // they prepared on the old one before any transaction begins.
    void registrarComando(Comando* c) { comandos_.push_back(c); }
    void olvidarComando(Comando* c) { std::erase(comandos_, c); }
    void soltarPreparados();
    // Every statement sent to PostgreSQL through libpq, for a benchmark's
    // floor to replay.
    using EnvioLibpq = Controlador::EnvioLibpq;
    using Traza = Controlador::Traza;
    void setTraza(Traza traza) { ctl_->setTraza(std::move(traza)); }
    // The system's error for an engine error, saying first when the database
    // is read-only or locked by another user.
    VbError errorMotor(const QSqlError& e) const;
    [[noreturn]] void lanzarErrorMotor(const QSqlError& e) const { throw errorMotor(e); }

private:
    explicit Conexion(QString nombreConexion);

    std::unique_ptr<Controlador> ctl_;
    std::vector<Comando*> comandos_;
    bool grabadora_ = false;
    long filasGrabadas_ = 0;
    QString nombre_;
    QSqlDatabase db_;
    std::deque<QString> registro_;
    bool registroActivo_ = true;
    int transacciones_ = 0;
    std::vector<QString> pendientes_;
    QString errorAsincrono_;
    bool completando_ = false;
    std::vector<std::pair<const void*, AvisosTransaccion>> avisos_;

    friend class Controlador;
    friend class ControladorSqlite;
    friend class ControladorPostgres;
    friend class ControladorSqlServer;
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
    std::unique_ptr<ConsultaPreparada> preparada_;
    int generacion_ = 0;
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
    // The same, giving back anterior itself when the field holds that text.
    QString texto(int indice, const QString& anterior) const;
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
    void setTexto(int indice, const QString& valor);
    // The same with the text already encoded as the engine takes it: a
    // batch binds one account to a dozen commands, one per month.
    void setTexto(int indice, const QString& valor, const QByteArray& utf8);
    void setBooleano(int indice, bool valor);
    QVariant valor(int indice) const;
    // Drops what was prepared on a session that is gone.
    void soltarPreparada() { preparada_.reset(); }

    // Executes; returns the records affected.
    long Execute();
    // The same, logging the composed text it stands for instead of its own:
    // a statement the log shows with its values written in is run
    // prepared, with them bound, and never taken apart again.
    long Execute(const QString& textoCompuesto);

    std::shared_ptr<Conexion> conexion() const { return conexion_; }

private:
    long ejecutar();

    void ponerTexto(ParametroComando& p, const QString& t);

    std::shared_ptr<Conexion> conexion_;
    QString texto_;
    bool preparado_ = false;
    bool anotado_ = false;
    std::vector<ParametroComando> parametros_;
    std::unique_ptr<ComandoPreparado> preparada_;
    // The connection's session preparada_ was prepared on.
    int generacion_ = 0;
};

} // namespace presupuestos
