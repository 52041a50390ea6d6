#include "BaseDatosPrueba.h"
#include "worksheet/core/ConsultasHoja.h"

#include <QSqlQuery>
#include <gtest/gtest.h>

using namespace presupuestos;
using presupuestos::prueba::BaseDatosPrueba;

// What the arguments change in the composed reads; the reads themselves run
// in every test that loads a worksheet.
TEST(ConsultasHoja, FiltersAndNamesGoIntoTheComposedReads)
{
    const QString t = QStringLiteral("##PresupFiltroCuentas_1");
    EXPECT_TRUE(consultas::presupuesto(t, 1, 2027, true, QString(), QString(), false)
                    .endsWith(QStringLiteral(" WHERE ISNULL(ver,1) = 1 ORDER BY c.Dpto, c.Cuenta ")));
    EXPECT_TRUE(consultas::presupuesto(t, 1, 2027, false, QStringLiteral("-1, 3, 7"), QStringLiteral("70000001"), true)
                    .endsWith(QStringLiteral(" WHERE ISNULL(ver,1) = 0 AND c.Dpto IN (-1, 3, 7) AND c.Cuenta = '70000001' ORDER BY c.Dpto, c.Cuenta ")));
    // A quote inside an inlined text is doubled.
    EXPECT_TRUE(consultas::presupuesto(t, 1, 2027, true, QString(), QStringLiteral("7'0"), true).contains(QStringLiteral("c.Cuenta = '7''0'")));
    EXPECT_TRUE(consultas::insertarFiltro(QStringLiteral("##F"), QStringLiteral("20"), QStringLiteral("70000001"), QStringLiteral("Ventas D'Or"), 1)
                    .contains(QStringLiteral("'Ventas D''Or'")));
    // Accounts below category 245 read balances, concepts above it statistics.
    const QString historico = consultas::historico(QStringLiteral("##F"), QStringLiteral("##E"), 1, 2026, QStringLiteral("-1, 2"), QString(), false);
    EXPECT_TRUE(historico.contains(QStringLiteral(" FROM ##F c LEFT JOIN Acumulados_Dpto p  ON p.Cod_Empresa = 1 AND p.Dpto = c.Dpto AND p.Cod_Ejercicio = 2026")));
    EXPECT_TRUE(historico.contains(QStringLiteral(" WHERE c.Codigo < 245   AND c.Dpto IN (-1, 2)")));
    EXPECT_TRUE(historico.endsWith(QStringLiteral(" WHERE c.Codigo >= 245   AND c.Dpto IN (-1, 2) ORDER BY c.Dpto, c.Cuenta ")));
    EXPECT_TRUE(consultas::cuentasFiltro(1, 2026, 8, true).contains(QStringLiteral("tp.Ver = 1")));
    EXPECT_FALSE(consultas::cuentasFiltro(1, 2026, 8, false).contains(QStringLiteral("tp.Ver")));
}

TEST(ConsultasHoja, StatisticsInsertPivotsDaysTicketsAndUnitsPerStoreAndMonth)
{
    BaseDatosPrueba bd;
    auto& c = *bd.conexion;
    const QString tabla = QStringLiteral("##Drumav_Estadisticas_77_5");
    c.Execute(QStringLiteral("CREATE TABLE ") + tabla
              + QStringLiteral(" (Cuenta VARCHAR(12), Cod_Ejercicio INT, Dpto INT, M1 MONEY, M2 MONEY, M3 MONEY, M4 MONEY, M5 MONEY, M6 MONEY, "
                               "M7 MONEY, M8 MONEY, M9 MONEY, M10 MONEY, M11 MONEY, M12 MONEY)"));
    // Two tills on one day count as one day; other companies and years are ignored.
    bd.sql(QStringLiteral("INSERT INTO Pelvor.Almacen_Acumulados_2 (Cod_Empresa, Cod_Almacen, Fecha, Caja, Tickets) VALUES "
                          "(3, 1, '2026-01-02', 1, 100), (3, 1, '2026-01-02', 2, 50), (3, 1, '2026-01-03', 1, 70),"
                          "(3, 1, '2026-12-31', 1, 5), (3, 2, '2026-03-10', 1, 8), (4, 1, '2026-01-05', 1, 9), (3, 1, '2025-01-05', 1, 9)"));
    bd.sql(QStringLiteral("INSERT INTO Pelvor.Almacen_Acumulados (Cod_Empresa, Cod_Almacen, Cod_Ejercicio, Mes, Familia, Ventas_Unidades) VALUES "
                          "(3, 1, 2026, 1, 'TEX', 40), (3, 1, 2026, 1, 'CAL', 2), (3, 1, 2026, 2, 'TEX', 0), (3, 2, 2026, 3, 'TEX', 0)"));
    c.Execute(consultas::insertarEstadisticas(tabla, 2026, 3, QStringLiteral("[Pelvor]")));
    auto fila = [&](const char* cuenta, int dpto) {
        return QStringLiteral("SELECT M1, M2, M3, M12 FROM \"%1\" WHERE Cuenta = '%2' AND Dpto = %3").arg(tabla, QLatin1String(cuenta)).arg(dpto);
    };
    auto mes = [&](const char* cuenta, int dpto, int columna) {
        bd.conexion->enviarLote();
        QSqlQuery q(bd.conexion->baseDatos());
        q.exec(fila(cuenta, dpto));
        return q.next() ? q.value(columna).toDouble() : -1.0;
    };
    EXPECT_EQ(mes("CTO002", 1, 0), 2.0);
    EXPECT_EQ(mes("CTO002", 1, 1), 0.0);     // no activity in February: zero, not null
    EXPECT_EQ(mes("CTO002", 1, 3), 1.0);
    EXPECT_EQ(mes("CTO003", 1, 0), 220.0);
    EXPECT_EQ(mes("CTO003", 2, 2), 8.0);
    EXPECT_EQ(mes("CTO004", 1, 0), 42.0);
    // Units rows of zero are ignored, so store 2 has no units row at all.
    EXPECT_EQ(mes("CTO004", 2, 2), -1.0);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM \"%1\"").arg(tabla)).toInt(), 5);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM \"%1\" WHERE Cod_Ejercicio <> 2026").arg(tabla)).toInt(), 0);
}
