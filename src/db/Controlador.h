#pragma once
// What differs from one database engine to another, behind one interface:
// one class per engine (ControladorSqlite, ControladorPostgres,
// ControladorSqlServer) knows how to open it, what it makes of a composed
// SQL Server text, what its errors mean, how it waits for another user's
// lock and what a failed statement leaves of a transaction, how it binds
// parameters and reads rows, whose name the journal signs with, how it
// keeps exact amounts, and how it writes the tables the schema describes.
// The connection, the journal, the schema and the demo data ask it; none
// of them asks which engine it is.

#include "common/Currency.h"
#include "common/VbError.h"

#include <QSqlError>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <functional>
#include <memory>
#include <vector>

class QSqlDatabase;

namespace presupuestos {

enum class Motor { SQLite, SqlServer, PostgreSQL };

class Conexion;
class Recordset;

// Diezmilesimas: an amount bound as its exact count of ten-thousandths, for
// columns that keep it so (SQLite has no exact decimal type).
enum class TipoParametro { Entero, Moneda, Texto, Booleano, Diezmilesimas };

// A command's parameter, kept in its declared type: a number (the integer,
// the currency's raw count or the Boolean) or a text.
struct ParametroComando {
    QString nombre;
    TipoParametro tipo = TipoParametro::Texto;
    int tamano = 0;
    bool nulo = true;
    qint64 numero = 0;
    QString texto;
    // The text as the engine keeps it, made when it is set: bound as it is,
    // it is not converted again on every execution.
    QByteArray utf8;
    // A null text is a null, as the drivers bind it.
    bool esNulo() const { return nulo || (tipo == TipoParametro::Texto && texto.isNull()); }
};

// A command's text as the engine prepared it; run with the parameters'
// values. Returns the records affected.
class ComandoPreparado {
public:
    virtual ~ComandoPreparado() = default;
    virtual long ejecutar(const std::vector<ParametroComando>& parametros) = 0;
};

// A query with positional parameters as the engine prepared it.
class ConsultaPreparada {
public:
    virtual ~ConsultaPreparada() = default;
    virtual Recordset abrir(const std::vector<QVariant>& valores) = 0;
};

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
    // The text of a column that often repeats the row before's: that very
    // string when it does, with nothing decoded or allocated.
    virtual QString texto(int i, const QString& anterior) const
    {
        QString t = texto(i);
        return t == anterior ? anterior : t;
    }

protected:
    QStringList nombres_;
};

// The kinds of column the schema describes, each written in the engine's
// own type.
enum class TipoColumna {
    Corto,          // a small whole number
    Entero,
    Largo,          // a 64-bit whole number
    Texto,          // of at most the column's size
    Importe,        // an amount, to the ten-thousandth
    ImporteDiario,  // an amount of the journal, exact on every engine
    Marca,          // 0 or 1
    Fecha,
    FechaHora,
    Numerador,      // a key the engine numbers itself
};

// What an engine's error means, read from its code.
struct Diagnostico {
    VbError::Causa causa = VbError::Causa::Ninguna;
    bool discoLleno = false;
    bool tiempoAgotado = false;
};

class Controlador {
public:
    explicit Controlador(Conexion& conexion) : c_(conexion) {}
    virtual ~Controlador() = default;
    Controlador(const Controlador&) = delete;
    Controlador& operator=(const Controlador&) = delete;

    virtual Motor motor() const = 0;

    // ---- Texts --------------------------------------------------------------
    // The text the engine receives for a composed SQL Server text.
    virtual QString adaptar(const QString& sql) = 0;
    // For SQLite: the file that holds a database three-part names refer to.
    virtual void asociarBaseDatos(const QString& nombre, const QString& fichero);
    // Makes the named databases reachable by three-part names (attached,
    // or, on a server, already there).
    virtual void adjuntar(const QStringList& bases);

    // ---- Errors ---------------------------------------------------------------
    virtual Diagnostico diagnosticar(const QSqlError& e) const = 0;
    // Whether the session was lost (a server that dropped it): nothing can
    // be run on it until it is opened again. Remembered once seen.
    virtual bool sesionPerdida() const { return false; }
    // The engine's words for an error, said first in Spanish when it is
    // one a user meets whatever the figures (a full disk, a time-out).
    QString texto(const QSqlError& e) const;

    // ---- Locks and transactions -------------------------------------------------
    virtual void setEsperaBloqueo(int milisegundos) = 0;
    // A write locks the keys it depends on (see Conexion::bloquearClaves);
    // nothing to do where a transaction takes the whole database's lock.
    virtual void bloquearClaves(const QString& ambito, const QStringList& claves);
    virtual void bloquearAmbito(const QString& ambito);
    virtual bool bloqueaPorClave() const { return false; }
    virtual bool empezar() = 0;
    virtual bool confirmar() = 0;
    virtual bool deshacer() = 0;
    // Whether the open transaction is still open in the engine.
    virtual bool transaccionViva() const { return true; }

    // ---- Statements -------------------------------------------------------------
    // Before a composed statement is run or queued: a server session that
    // was lost is opened again. Returns true when the engine took the
    // statement to send later (rows for a temporary table).
    virtual bool tomar(const QString& sql, bool asincrona);
    // Sends what tomar kept.
    virtual void enviarTomadas() {}
    // Runs a composed statement that returns no records.
    virtual long ejecutar(const QString& sql) = 0;
    virtual Recordset abrir(const QString& sql) = 0;
    // reutilizar: the command runs many times on what is prepared.
    virtual std::unique_ptr<ComandoPreparado> prepararComando(const QString& texto, int parametros, bool reutilizar) = 0;
    virtual std::unique_ptr<ConsultaPreparada> prepararConsulta(const QString& texto) = 0;
    // The connection's own statements (schema, settings): not composed,
    // so neither adapted nor logged.
    virtual void ejecutarPropia(const QString& sql) = 0;
    // Grows each time a lost session is opened again.
    virtual int generacion() const { return 0; }

    // ---- Other users ---------------------------------------------------------------
    virtual bool cambiosAjenos(const QString& canal, QStringList* cargas) = 0;
    virtual void notificar(const QString& canal, const QString& carga);

    // ---- Amounts, the user, numbering ----------------------------------------------
    // Refuses an amount the engine cannot keep to the ten-thousandth.
    virtual void comprobarImporte(Currency importe) const;
    // How the journal's amounts are bound.
    virtual TipoParametro tipoImporteDiario() const { return TipoParametro::Moneda; }
    // The name the journal signs an operation with: on a server, the login's.
    virtual QString usuario();
    // The query that gives the journal's next operation number, and what
    // is added to what it gives.
    struct Numeracion {
        QString consulta;
        int suma = 0;
    };
    virtual Numeracion numeracionOperaciones() const;

    // ---- Schema ------------------------------------------------------------------------
    // The standard types every engine here shares; each says its own for
    // the rest.
    virtual QString tipoColumna(TipoColumna tipo, int tamano) const;
    // The statement that makes a table if it is not there (columns and
    // key already written in the engine's types); prefijo: empty for the
    // main database, or what crearBaseRetail gave.
    virtual QString crearTabla(const QString& prefijo, const QString& nombre, const QString& cuerpo) const;
    virtual QString crearIndice(const QString& nombre, const QString& tabla, const QString& columnas) const;
    // The statements that make the sequence of a table's numbers, going on
    // after the highest number the table already has.
    virtual QStringList crearSecuencia(const QString& nombre, const QString& tabla) const = 0;
    // Whether the system makes its tables on opening (an administrator does
    // on SQL Server).
    virtual bool creaEsquema() const { return true; }
    // A journal of an earlier layout: what sets it apart before the
    // present tables are made, and what brings its rows (of the columns
    // named) over after.
    virtual QStringList apartarDiarioAnterior() { return {}; }
    virtual QStringList traerDiarioAnterior(const QStringList& columnas)
    {
        Q_UNUSED(columnas);
        return {};
    }
    // Makes the retail database reachable under its name; gives how its
    // tables are prefixed in the engine's own statements.
    virtual QString crearBaseRetail(const QString& nombre) = 0;
    // An insert that leaves a row already there as it is.
    virtual QString insertarSiFalta(const QString& tablaYValores) const = 0;

    // ---- For benchmarks -------------------------------------------------------------------
    // Every statement sent where the engine is reached through its own
    // library, as it went, for a benchmark's floor to send again: its text
    // and values, whether it was prepared in its round trip, whether it ran
    // by name as one prepared on the session, and the savepoint statements
    // sent before it in the same round trip (releasing the last one,
    // setting a new one).
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
    virtual void setTraza(Traza) {}

protected:
    // Qt's driver of that name for the connection, with the package that
    // brings it named when it is missing.
    QSqlDatabase& agregarBaseDatos(const QString& driver, const QString& paquete, const QString& motor);

    Conexion& c_;
};

} // namespace presupuestos
