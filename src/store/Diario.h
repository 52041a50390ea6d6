#pragma once
// The change journal, and undo and redo on it. Every write of a budget row
// by this user goes through the store, which tells the journal first: the
// row is read as it stands before the operation's first write to it, and
// again, as the operation left it, just before the transaction commits; the
// two images go into Presupuestos_Cambios in that same transaction.
//
// An operation is what the user did in one go: a typed month with the rows
// that follow the sales, a paste, an applied method, an import. Undo puts
// every row of the last operation back as it was before, through the store,
// after checking (in the same transaction) that no one has changed any of
// them since; redo does the reverse. Both are operations of the journal too.
//
// Without the table (a server whose schema was not updated) the journal
// keeps the session's operations in memory only: undo works, history does not.

#include "common/Currency.h"

#include <QDateTime>
#include <QHash>
#include <QSet>
#include <QString>
#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <unordered_map>
#include <vector>

namespace presupuestos {

class Conexion;
class Comando;
class Consulta;
class Recordset;

// An undo or redo refused because another user changed one of its rows.
class ConflictoDiario : public std::runtime_error {
public:
    explicit ConflictoDiario(const QString& mensaje);
    const QString& mensaje() const { return mensaje_; }

private:
    QString mensaje_;
};

// A budget row's key within a company.
struct ClaveFila {
    QString cuenta;
    qint16 dpto = 0;
    qint16 ejercicio = 0;
    bool operator==(const ClaveFila&) const = default;
};

struct HashClaveFila {
    std::size_t operator()(const ClaveFila& k) const noexcept
    {
        return qHash(k.cuenta) ^ (static_cast<std::size_t>(static_cast<quint16>(k.dpto)) << 16)
               ^ (static_cast<std::size_t>(static_cast<quint16>(k.ejercicio)) << 32);
    }
};

class Diario {
public:
    enum class Tipo { Tecleo, Pegado, Borrado, Metodo, Dependientes, Visibilidad, Importacion, Deshacer, Rehacer };
    // The word stored in the table, and how the history names it.
    static QString clave(Tipo t);
    static QString nombre(Tipo t);
    static std::optional<Tipo> deClave(const QString& clave);

    // A budget row as stored; existe false when there is none.
    struct Imagen {
        bool existe = false;
        std::array<Currency, 12> meses{};
        qint32 metodo = 0;
        qint32 manual = 0;
        Currency valor;
        bool ver = true;
        bool operator==(const Imagen&) const = default;
    };

    struct Fila {
        QString cuenta;
        qint16 dpto = 0;
        qint16 ejercicio = 0;
        Imagen antes;
        Imagen despues;
    };

    struct Operacion {
        qint64 id = 0;
        Tipo tipo = Tipo::Tecleo;
        QString descripcion;
        std::vector<Fila> filas;
    };

    // crearTabla: whether to create the table when the database is SQLite and
    // lacks it (a server's schema is never touched from here).
    Diario(std::shared_ptr<Conexion> conexion, qint16 empresa, bool crearTabla = true);
    ~Diario();
    Diario(const Diario&) = delete;
    Diario& operator=(const Diario&) = delete;

    // Whether the database keeps the journal (and so the history).
    bool disponible() const { return disponible_; }
    // Who the journal names: the database login, or the system's user for SQLite.
    const QString& usuario() const { return usuario_; }

    // One user operation: the writes made while the outermost of these
    // lives are one step of undo. Writes outside any are grouped by
    // transaction, under the kind the store gives them.
    class Ambito {
    public:
        ~Ambito();
        Ambito(Ambito&& o) noexcept : d_(o.d_) { o.d_ = nullptr; }
        Ambito(const Ambito&) = delete;
        Ambito& operator=(const Ambito&) = delete;
        // The description, once the operation knows it (how many cells...).
        void describir(const QString& descripcion);

    private:
        friend class Diario;
        explicit Ambito(Diario* d) : d_(d) {}
        Diario* d_;
    };
    Ambito operacion(Tipo tipo, const QString& descripcion);

    // The store, before it writes a row. tipo names an operation of its own
    // when none is open.
    void antes(const QString& cuenta, qint16 dpto, qint16 ejercicio, Tipo tipo);
    // The rows a batch is about to write, read in a few statements instead
    // of one each; call it inside the batch's transaction.
    void prever(const std::vector<std::pair<QString, qint16>>& filas, qint16 ejercicio);
    // Past this many rows a batch reads the whole year rather than its rows.
    static constexpr std::size_t kLeerAnoEntero = 2000;
    // The same for a batch that knows it writes that many rows of the year,
    // without naming them: the year is read whole.
    void preverAno(qint16 ejercicio, std::size_t filas);

    bool puedeDeshacer() const { return !deshacer_.empty(); }
    // The operation undo would take back, if any.
    const Operacion* ultima() const { return deshacer_.empty() ? nullptr : &deshacer_.back(); }
    bool puedeRehacer() const { return !rehacer_.empty(); }
    // "Deshacer: pegar 36 celdas"; just "Deshacer" when there is nothing.
    QString textoDeshacer() const;
    QString textoRehacer() const;

    // Writes a row back to an image (the store's restore path).
    using Restaurar = std::function<void(const QString& cuenta, qint16 dpto, qint16 ejercicio, const Imagen& imagen)>;
    // Undoes the last operation and returns it; refuses, changing nothing,
    // when another user has changed one of its rows since.
    Operacion deshacer(const Restaurar& restaurar);
    Operacion rehacer(const Restaurar& restaurar);

    // Heard after an operation is added, undone or redone.
    void setAlCambiar(std::function<void()> f) { alCambiar_ = std::move(f); }

    // The row's history, newest first.
    struct Entrada {
        qint64 operacion = 0;
        Tipo tipo = Tipo::Tecleo;
        QString descripcion;
        QString usuario;
        QDateTime fecha;
        Imagen antes;
        Imagen despues;
    };
    std::vector<Entrada> historial(const QString& cuenta, qint16 dpto, qint16 ejercicio) const;

    // What other users (other worksheets) committed to the company's budget
    // since the last call, oldest first: each row they changed, with who.
    // hubo without rows: something changed that the journal cannot say
    // (a database without it): whatever is shown has to be read again.
    struct CambioAjeno {
        QString usuario;
        Fila fila;
    };
    struct Ajenos {
        bool hubo = false;
        std::vector<CambioAjeno> cambios;
    };
    Ajenos cambiosAjenos();

    // The row as the database holds it now.
    Imagen leer(const QString& cuenta, qint16 dpto, qint16 ejercicio) const;
    // Many rows of a year at once, by key (those missing: no row).
    using Imagenes = std::unordered_map<ClaveFila, Imagen, HashClaveFila>;
    // bloquear: locks them first, for the transaction about to write them.
    Imagenes leerVarias(const std::vector<std::pair<QString, qint16>>& filas, qint16 ejercicio, bool bloquear = false) const;
    // What a writer that knows the row it leaves tells the journal, which
    // then need not read it back: the months it wrote over the row as it
    // was (a new row takes the table's defaults for the rest).
    void escritos(const QString& cuenta, qint16 dpto, qint16 ejercicio, const std::array<Currency, 12>& meses);

private:
    // Every row of a year that exists, into destino.
    void leerAno(qint16 ejercicio, Imagenes& destino) const;
    // Rows of any years, a year at a time.
    Imagenes leerFilas(const std::vector<const Fila*>& filas, bool bloquear = false) const;
    // What the connection's locks of a year's rows are taken within.
    QString ambito(qint16 ejercicio) const;
    void abrir(Tipo tipo, const QString& descripcion, bool implicita);
    void cerrar();
    void antesDeConfirmar();
    void despuesDeConfirmar();
    void alDeshacer();
    void escribir(const Fila& f, bool nueva);
    static void ponerImagen(Comando& c, int desde, const Imagen& im);
    void ponerClave(Comando& c, int desde, const Fila& f) const;
    static constexpr int kNuevasPorSentencia = 16;
    // Gives the open operation its number and its row in the journal.
    void numerar(const QString& descripcion);
    Operacion aplicar(std::vector<Operacion>& de, std::vector<Operacion>& a, bool haciaAntes, const Restaurar& restaurar);

    std::shared_ptr<Conexion> c_;
    qint16 empresa_;
    bool disponible_ = false;
    // Whether the journal's amounts are counts of ten-thousandths.
    bool importeExacto_ = false;
    QString usuario_;
    std::unique_ptr<Comando> operacion_;
    std::unique_ptr<Comando> describir_;
    // The description the operation's row holds.
    QString descripcionEscrita_;
    std::unique_ptr<Comando> insertar_;
    std::unique_ptr<Comando> actualizar_;
    std::unique_ptr<Comando> insertarNueva_;
    std::unique_ptr<Comando> insertarNuevas_;
    mutable std::unique_ptr<Consulta> numerar_;
    mutable std::unique_ptr<Consulta> leerFila_;

    // The operation being recorded.
    std::optional<Operacion> abierta_;
    int profundidad_ = 0;
    bool implicita_ = false;
    bool enDeshacer_ = false;
    // Its rows by key; which of them the journal has written already; which
    // the current transaction touched, and what to go back to if it rolls
    // back (rows from filasAlEmpezar_ on were first touched in it).
    std::unordered_map<ClaveFila, std::size_t, HashClaveFila> indice_;
    // Rows whose image after the transaction the writer gave.
    std::vector<char> conocida_;
    std::vector<char> escrita_;
    std::vector<char> enTransaccion_;
    std::vector<std::size_t> tocadas_;
    struct Previo {
        std::size_t fila;
        Imagen despues;
        char escrita;
    };
    std::vector<Previo> previos_;
    std::size_t filasAlEmpezar_ = 0;
    // Rows read ahead for the transaction's writes, and the years read whole.
    Imagenes previstas_;
    QSet<qint16> anosLeidos_;
    // The row antes() was last told of, which escritos() names as a rule.
    std::size_t ultima_ = 0;

    // The journal rows seen by cambiosAjenos (the last one), and this
    // worksheet's own operations, which are no one else's change.
    qint64 ultimoCambioVisto_ = 0;
    QSet<qint64> propias_;
    Imagen leerImagen(Recordset& rs, int desde) const;

    std::vector<Operacion> deshacer_;
    std::vector<Operacion> rehacer_;
    std::function<void()> alCambiar_;
};

} // namespace presupuestos
