#pragma once
// What the worksheet reads and writes on the connection besides budget rows:
// its two temporary tables, the starting year, the link to the retail
// database and the statistics cached from it, what the account and
// department filters read and the filter table they fill, and the rows that
// follow the sales. The texts come from the query builders beside it
// (ConsultasHoja); this runs them.

#include "db/Conexion.h"
#include "worksheet/core/ArbolCategorias.h"
#include "worksheet/core/FiltroCuentas.h"
#include "worksheet/core/FiltroDepartamentos.h"

#include <QString>
#include <utility>
#include <array>
#include <vector>

namespace presupuestos {

class RepositorioHoja {
public:
    // The filters' reads and writes take the company and filter table given here.
    explicit RepositorioHoja(Conexion& c, QString tablaFiltro = QString(), int codEmpresa = 0)
        : c_(c), tablaFiltro_(std::move(tablaFiltro)), codEmpresa_(codEmpresa)
    {
    }

    // The budget year: the company's next one. (A maximum always returns a
    // row; the stored maximum would only be taken from an empty result.)
    qint16 ejercicioInicial(int codEmpresa, int ejercicioEmpresa);

    // Names and creates the filter table and the statistics table, each
    // stamped with its own reading of the clock.
    struct Tablas {
        QString filtroCuentas;
        QString estadisticas;
    };
    Tablas crearTablasTemporales();
    // Drops them; a failure is silent, as clean-up never stops an unload.
    void borrarTablasTemporales(const Tablas& t) noexcept;

    // The retail database and the company there; no company (0) when the
    // link or the database is missing, so the statistics stay at zero.
    struct EnlaceRetail {
        QString base = QStringLiteral("[Pelvor]");
        qint16 empresa = 0;
    };
    EnlaceRetail enlaceRetail(int codEmpresa);
    // Makes sure the statistics table holds the year's concepts; with
    // asincrono the insert does not wait.
    void asegurarEstadisticas(const QString& tabla, int ejercicio, const EnlaceRetail& enlace, bool asincrono);

    Recordset abrir(const QString& sql) { return c_.Abrir(sql); }

    // The rows of the year planned on each month's sales (method 6), read to
    // the end, so that rewriting them never moves them under an open read.
    struct FilaVentas {
        QString cuenta;
        qint16 dpto = 0;
        Currency valor;
        // The months typed by hand (a bit each, January the lowest) and the months.
        qint32 manual = 0;
        std::array<Currency, 12> meses{};
    };
    // Of the departments given, or of all when none is.
    std::vector<FilaVentas> filasSobreVentas(int codEmpresa, int ejercicio, const std::vector<qint16>& dptos = {});

    // A temporary table's stamp for a time of day: hundredths of a second as
    // a single-precision number, with up to seven significant digits and
    // "_" for the decimal point ("4501_563", "3600025").
    static QString sello(double segundosDesdeMedianoche);

    // ---- The filters ----------------------------------------------------------
    // The categories of the balance configuration, in the order of their codes.
    std::vector<FilaCategoria> categorias() const;
    // The latest fiscal year that has accounts; ejercicioActual when the
    // read gives no row. A company without accounts has no such year, which
    // raises "Invalid use of Null".
    qint16 ultimoEjercicioCuentas(qint16 ejercicioActual) const;
    // The account lines and the accounts each takes in from the chart of
    // accounts of that year (detail accounts: those of digitosCuenta
    // characters), in the order of the lines' codes. Only the lines to
    // budget, or every line.
    std::vector<CuentaFiltro> cuentas(int ultimoEjercicio, int digitosCuenta, bool soloPresupuestables) const;
    std::vector<Departamento> departamentos() const;

    void vaciarTablaFiltro();
    // The account into the filter table, once for every department of the
    // company, in one statement.
    // Returns the rows it added (one per department), -1 when the engine
    // does not say yet.
    long insertarCuenta(const CuentaFiltro& cuenta);

private:
    Conexion& c_;
    QString tablaFiltro_;
    int codEmpresa_;
};

} // namespace presupuestos
