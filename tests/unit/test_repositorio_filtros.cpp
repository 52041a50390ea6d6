#include "BaseDatosPrueba.h"
#include "common/VbError.h"
#include "common/Reloj.h"
#include "worksheet/core/RepositorioHoja.h"

#include <QSqlQuery>
#include <QStringList>
#include <gtest/gtest.h>

using namespace presupuestos;
using presupuestos::prueba::BaseDatosPrueba;
using presupuestos::prueba::numeroError;

namespace {
const QString kTabla = QStringLiteral("##PresupFiltroCuentas_42_5");

// Company 1 with two departments, a small balance configuration of type 11
// beside lines of another type and of another company, a chart of accounts
// in two years, and a budget concept.
struct Empresa {
    BaseDatosPrueba bd;
    RepositorioHoja repositorio{*bd.conexion, kTabla, 1};

    Empresa()
    {
        bd.sql(QStringLiteral("INSERT INTO Departamentos VALUES (1, 2, 'Sur'), (1, 1, 'Norte'), (2, 5, 'Otra empresa')"));
        bd.sql(QStringLiteral("INSERT INTO Config_Balances (Cod_Empresa, TipoBalance, Codigo, Tipo, Texto, Padre, Ver) VALUES "
                              "(1, 11, 3, 0, 'GASTOS', 0, 1), (1, 11, 1, 0, 'INGRESOS', 0, 1), (1, 11, 2, 0, 'Ventas', 1, 1),"
                              "(1, 11, 245, 0, 'ESTADÍSTICAS', 0, 1), (1, 12, 4, 0, 'Otro balance', 0, 1), (2, 11, 9, 0, 'Otra', 0, 1),"
                              "(1, 11, 21, 1, '6280', 3, 1), (1, 11, 20, 1, '7000', 2, 1), (1, 11, 22, 1, '6230', 3, 0),"
                              "(1, 11, 246, 1, 'CTO002', 245, 1), (1, 12, 30, 1, '6280', 3, 1)"));
        bd.sql(QStringLiteral("INSERT INTO Presupuestos_Conceptos VALUES ('CTO002', 'Días con actividad')"));
        bd.sql(QStringLiteral("INSERT INTO Cuentas VALUES (1, 2026, '70000001', 'Ventas textil'), (1, 2026, '70000002', 'Bar D''Angelo'),"
                              "(1, 2026, '62800001', 'Electricidad'), (1, 2026, '62300001', 'Asesoría'), (1, 2026, '7000', 'Ventas'),"
                              "(1, 2025, '70009999', 'Cuenta cerrada'), (2, 2030, '70000001', 'Otra empresa')"));
        bd.conexion->Execute(QStringLiteral("CREATE TABLE ") + kTabla
                             + QStringLiteral("([Codigo] INT, Cuenta [VARCHAR](12), Nombre VARCHAR(200), Dpto INT, Dpto_Nombre VARCHAR(200))"));
    }

    QStringList tablaFiltro()
    {
        // Read past the connection: what it still holds back goes first.
        bd.conexion->enviarLote();
        QSqlQuery q(bd.conexion->baseDatos());
        q.exec(QStringLiteral("SELECT Codigo, Cuenta, Nombre, Dpto, Dpto_Nombre FROM \"%1\" ORDER BY Codigo, Cuenta, Dpto").arg(kTabla));
        QStringList filas;
        while (q.next())
            filas << QStringList{q.value(0).toString(), q.value(1).toString(), q.value(2).toString(), q.value(3).toString(),
                                 q.value(4).toString()}
                         .join(QLatin1Char('|'));
        return filas;
    }
};

// The lines come in the order of their codes; the accounts of one line in
// no order.
QStringList texto(const std::vector<CuentaFiltro>& cuentas)
{
    QStringList l;
    int anterior = 0;
    for (const CuentaFiltro& c : cuentas) {
        EXPECT_LE(anterior, c.codigo);
        anterior = c.codigo;
        l << QStringLiteral("%1|%2|%3|%4").arg(c.codigo).arg(c.cuenta).arg(c.padre).arg(c.nombre);
    }
    l.sort();
    return l;
}
} // namespace

TEST(RepositorioFiltros, AccountLinesTakeTheDetailAccountsOfTheirPrefixAndTheirConcept)
{
    Empresa e;
    struct Caso {
        int ejercicio;
        int digitos;
        bool soloPresupuestables;
        QStringList cuentas;
    };
    const std::vector<Caso> casos = {
        {2026, 8, true,
         {"20|70000001|2|Ventas textil", "20|70000002|2|Bar D'Angelo", "21|62800001|3|Electricidad", "246|CTO002|245|Días con actividad"}},
        // The lines taken out of the budget too.
        {2026, 8, false,
         {"20|70000001|2|Ventas textil", "20|70000002|2|Bar D'Angelo", "21|62800001|3|Electricidad", "22|62300001|3|Asesoría",
          "246|CTO002|245|Días con actividad"}},
        // Another year's chart; concepts stay whatever the chart.
        {2025, 8, true, {"20|70009999|2|Cuenta cerrada", "246|CTO002|245|Días con actividad"}},
        // Accounts of another length are not detail accounts.
        {2026, 4, true, {"20|7000|2|Ventas", "246|CTO002|245|Días con actividad"}},
    };
    for (const Caso& c : casos)
        EXPECT_EQ(texto(e.repositorio.cuentas(c.ejercicio, c.digitos, c.soloPresupuestables)), c.cuentas)
            << c.ejercicio << " " << c.digitos << " " << c.soloPresupuestables;
}

TEST(RepositorioFiltros, TheLatestYearWithAccountsAndNoneForACompanyWithout)
{
    Empresa e;
    EXPECT_EQ(e.repositorio.ultimoEjercicioCuentas(2020), 2026);
    EXPECT_EQ(RepositorioHoja(*e.bd.conexion, kTabla, 2).ultimoEjercicioCuentas(2020), 2030);
    // The maximum of no rows is a row holding NULL.
    EXPECT_EQ(numeroError([&] { RepositorioHoja(*e.bd.conexion, kTabla, 3).ultimoEjercicioCuentas(2020); }), 94);
}

TEST(RepositorioFiltros, TheFilterTableHoldsEachAccountOnceForEveryDepartment)
{
    Empresa e;
    e.repositorio.insertarCuenta({20, QStringLiteral("70000002"), 2, QStringLiteral("Bar D'Angelo")});
    e.repositorio.insertarCuenta({246, QStringLiteral("CTO002"), 245, QStringLiteral("Días con actividad")});
    EXPECT_EQ(e.tablaFiltro(), (QStringList{"20|70000002|Bar D'Angelo|1|Norte", "20|70000002|Bar D'Angelo|2|Sur",
                                            "246|CTO002|Días con actividad|1|Norte", "246|CTO002|Días con actividad|2|Sur"}));
    e.repositorio.vaciarTablaFiltro();
    EXPECT_TRUE(e.tablaFiltro().isEmpty());

    // A company without departments puts nothing in it.
    RepositorioHoja(*e.bd.conexion, kTabla, 3).insertarCuenta({20, QStringLiteral("70000001"), 2, QStringLiteral("Ventas")});
    EXPECT_TRUE(e.tablaFiltro().isEmpty());
}

TEST(RepositorioFiltros, TwoWorksheetsOpenedInTheSameHundredthGetTablesOfTheirOwn)
{
    BaseDatosPrueba bd;
    reloj::fijar([] { return 36000.0; });
    RepositorioHoja r(*bd.conexion);
    const auto a = r.crearTablasTemporales();
    const auto b = r.crearTablasTemporales();
    reloj::fijar({});
    EXPECT_NE(a.filtroCuentas, b.filtroCuentas);
    EXPECT_NE(a.estadisticas, b.estadisticas);
    EXPECT_TRUE(a.filtroCuentas.startsWith(QStringLiteral("##PresupFiltroCuentas_")));
    r.borrarTablasTemporales(a);
    r.borrarTablasTemporales(b);
}
