#pragma once
// A real database with the real schema and the retail database beside it,
// and a session on it for the classes a test makes: SQLite in memory (or in a
// file), or, when PRESUPUESTOS_PRUEBA_PG names a PostgreSQL server (a libpq
// connection string of a user that may create databases), a database of its
// own on that server, created for the test and dropped after it: the tests
// of one run go in parallel, each in its own process.

#include "ErrorPrueba.h"
#include "db/Conexion.h"
#include "sesion/Sesion.h"

#include <QStringList>
#include <functional>
#include <initializer_list>
#include <memory>

namespace presupuestos::prueba {

struct BaseDatosPrueba {
    // codEmpresa 1, current fiscal year 2026, chart digits 1,2,3,4,8.
    // fichero: a file, for tests where a second connection or process shares it.
    // On PostgreSQL the file is not used: the database is the test's own.
    explicit BaseDatosPrueba(bool conDatosDemo = false, const QString& fichero = QStringLiteral(":memory:"));
    ~BaseDatosPrueba();
    BaseDatosPrueba(const BaseDatosPrueba&) = delete;
    BaseDatosPrueba& operator=(const BaseDatosPrueba&) = delete;

    // Whether the tests of this run go to PostgreSQL.
    static bool enPostgres();

    std::shared_ptr<Conexion> conexion;
    // Where another connection or process finds this database: the file
    // (SQLite) or "postgresql:" and the connection string.
    QString destino;
    // A second connection to the same database, as another user's.
    std::shared_ptr<Conexion> otraConexion() const;
    std::shared_ptr<EmpresaFija> empresa;
    // The company and the connection above, fiscal year 2027.
    Sesion sesion;

    // Runs raw SQL on the database (set-up of a test, not the system's statements).
    void sql(const QString& sentencia);
    QVariant valor(const QString& consulta);
    // Whether a temporary table of that name is there for this connection.
    bool existeTablaTemporal(const QString& nombre);
    // Makes a connection refuse every write, as a read-only database does.
    static void soloLectura(Conexion& c);
    // What another connection runs to hold the budget table as a writer
    // does, until it rolls back: the whole file (SQLite), the table (PostgreSQL).
    static QString sentenciaBloqueo();
    // Makes the engine refuse an INSERT or UPDATE of the table's row of that
    // account (a budget row unless told) with that message, as a server's rule would.
    void rechazar(const QString& evento, const QString& cuenta, const QString& mensaje,
                  const QString& tabla = QStringLiteral("Presupuestos"));
    // The composed texts sent since the last call, emptying the log.
    QStringList tomarRegistro();
    // A stored budget row of company 1 as SQL number texts: M1..M12,
    // Metodo_Calculo, Modificacion_Manual, Valor, Ver; empty when there is none.
    QStringList presupuestoGuardado(const QString& cuenta, int dpto, int ejercicio = 2027);
    // Every budget row, every column, to compare whole states.
    QStringList presupuestos();
    // Every budget row as "cuenta/dpto" and M1..M12, Metodo_Calculo,
    // Modificacion_Manual, Valor and Ver as the currency reads them (the
    // demo's generator stores doubles such as -7.2299999999999995).
    QStringList importesGuardados();

private:
    QString nombrePg_;
};

// An amount written plainly ("12.5", "-3"), for expected values.
inline Currency monedaPlana(const QString& texto)
{
    Currency c;
    Currency::parsePlain(texto, c);
    return c;
}

// Some fields of a row read as a list, to state them in one assertion
// (empty texts past its end).
inline QStringList campos(const QStringList& fila, std::initializer_list<int> indices)
{
    QStringList r;
    for (int i : indices)
        r << fila.value(i);
    return r;
}

// Opens what BaseDatosPrueba::destino names.
std::shared_ptr<Conexion> abrirDestino(const QString& destino);


} // namespace presupuestos::prueba
