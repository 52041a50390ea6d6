#include "BaseDatosPrueba.h"
#include "worksheet/core/ConsultasHoja.h"

#include <QSqlQuery>
#include <gtest/gtest.h>

using namespace presupuestos;
using presupuestos::prueba::BaseDatosPrueba;

TEST(ConsultasHoja, BudgetReadComposedWithItsFiltersExactly)
{
    const QString base = QStringLiteral(
        "SELECT c.Cuenta, c.Nombre, c.Dpto,c.Dpto_Nombre, ISNULL(p.M1,0) AS M1, ISNULL(p.M2,0) AS M2, ISNULL(p.M3,0) AS M3, ISNULL(p.M4,0) AS M4, ISNULL(p.M5,0) AS M5"
        ", ISNULL(p.M6,0) AS M6, ISNULL(p.M7,0) AS M7, ISNULL(p.M8,0) AS M8, ISNULL(p.M9,0) AS M9"
        ", ISNULL(p.M10,0) AS M10, ISNULL(p.M11,0) AS M11, ISNULL(p.M12,0) AS M12, isnull(p.Metodo_Calculo,0) AS Metodo_Calculo, ISNULL(p.Modificacion_Manual,0) AS Modificacion_Manual, ISNULL(p.Valor,0) AS Valor"
        " FROM ##PresupFiltroCuentas_1 c LEFT JOIN Presupuestos p  ON p.Cod_Empresa = 1 AND p.Dpto = c.Dpto AND p.Cod_Ejercicio = 2027"
        " AND p.Cuenta = c.Cuenta WHERE ISNULL(ver,1) = ");
    const QString t = QStringLiteral("##PresupFiltroCuentas_1");
    EXPECT_EQ(consultas::presupuesto(t, 1, 2027, true, QString(), QString(), false),
              base + QStringLiteral("1 ORDER BY c.Dpto, c.Cuenta "));
    EXPECT_EQ(consultas::presupuesto(t, 1, 2027, false, QStringLiteral("-1, 3, 7"), QStringLiteral("70000001"), true),
              base + QStringLiteral("0 AND c.Dpto IN (-1, 3, 7) AND c.Cuenta = '70000001' ORDER BY c.Dpto, c.Cuenta "));
    // A quote inside an inlined text is doubled.
    EXPECT_TRUE(consultas::presupuesto(t, 1, 2027, true, QString(), QStringLiteral("7'0"), true).contains(QStringLiteral("c.Cuenta = '7''0'")));
}

TEST(ConsultasHoja, HistoryReadSplitsAccountsAndConceptsAt245)
{
    const QString sql = consultas::historico(QStringLiteral("##F"), QStringLiteral("##E"), 1, 2026, QStringLiteral("-1, 2"), QString(), false);
    EXPECT_EQ(sql,
              QStringLiteral("SELECT c.Cuenta, c.Nombre, c.Dpto,c.Dpto_Nombre, ISNULL(p.H1-p.D1,0) AS M1, ISNULL(p.H2-P.D2,0) AS M2, ISNULL(p.H3 - p.D3,0) AS M3, ISNULL(p.H4 - p.D4,0) AS M4, ISNULL(p.H5 - p.D5,0) AS M5"
                             ", ISNULL(p.H6 - p.D6,0) AS M6, ISNULL(p.H7 - p.D7,0) AS M7, ISNULL(p.H8 - p.D8,0) AS M8, ISNULL(p.H9 - p.D9,0) AS M9"
                             ", ISNULL(p.H10 - p.D10,0) AS M10, ISNULL(p.H11 - p.D11,0) AS M11, ISNULL(p.H12 - p.D12,0) AS M12"
                             " FROM ##F c LEFT JOIN Acumulados_Dpto p  ON p.Cod_Empresa = 1 AND p.Dpto = c.Dpto AND p.Cod_Ejercicio = 2026 AND p.Cuenta = c.Cuenta"
                             " WHERE c.Codigo < 245   AND c.Dpto IN (-1, 2)"
                             " UNION SELECT c.Cuenta, c.Nombre, c.Dpto,c.Dpto_Nombre,ISNULL(ts.M1,0) AS M1, ISNULL(ts.M2,0) AS M2, ISNULL(ts.M3,0) AS M3"
                             ",ISNULL(ts.M4,0) AS M4, ISNULL(ts.M5,0) AS M5, ISNULL(ts.M6,0) AS M6,ISNULL(ts.M7,0) AS M7, ISNULL(ts.M8,0) AS M8, ISNULL(ts.M9,0) AS M9"
                             ",ISNULL(ts.M10,0) AS M10, ISNULL(ts.M11,0) AS M11, ISNULL(ts.M12,0) AS M12"
                             " FROM ##F c LEFT JOIN  ##E AS ts ON  ts.Dpto = c.Dpto AND ts.Cod_Ejercicio = 2026 AND ts.Cuenta = c.Cuenta"
                             " WHERE c.Codigo >= 245   AND c.Dpto IN (-1, 2) ORDER BY c.Dpto, c.Cuenta "));
}

TEST(ConsultasHoja, FilterReadsAndInsertsExactly)
{
    EXPECT_EQ(consultas::categorias(1),
              QStringLiteral("SELECT Codigo, Texto, Padre FROM Config_Balances WHERE Cod_Empresa = 1 AND TipoBalance = 11 And Tipo =0 ORDER BY Codigo"));
    EXPECT_EQ(consultas::cuentasFiltro(1, 2026, 8, true),
              QStringLiteral("SELECT tp.Codigo ,c.Cuenta, tp.Padre, c.Nombre FROM Config_Balances tp  INNER JOIN  (SELECT Substring(c.Cuenta,1,4) as ID, c.Cuenta, c.Nombre "
                             " FROM Cuentas c  WHERE c.Cod_Empresa = 1 AND c.Cod_Ejercicio = 2026 AND Len(c.Cuenta) = 8"
                             " UNION SELECT pc.Codigo, pc.Codigo, pc.Nombre FROM Presupuestos_Conceptos pc) c  ON c.ID = tp.Texto "
                             " WHERE tp.Cod_Empresa = 1 AND tp.TipoBalance = 11 And tp.Tipo =1  AND tp.Ver = 1  ORDER BY tp.Codigo"));
    EXPECT_FALSE(consultas::cuentasFiltro(1, 2026, 8, false).contains(QStringLiteral("tp.Ver")));
    EXPECT_EQ(consultas::insertarFiltro(QStringLiteral("##F"), QStringLiteral("20"), QStringLiteral("70000001"), QStringLiteral("Ventas D'Or"), 1),
              QStringLiteral("INSERT INTO ##F SELECT 20, '70000001','Ventas D''Or', Codigo, Nombre FROM Departamentos WHERE Cod_Empresa = 1"));
    EXPECT_EQ(consultas::ultimoEjercicioCuentas(1), QStringLiteral("SELECT MAX(Cod_Ejercicio) FROM Cuentas c WHERE c.Cod_Empresa = 1"));
    EXPECT_EQ(consultas::departamentos(1), QStringLiteral("SELECT *  FROM Departamentos  WHERE Cod_Empresa = 1 ORDER BY Codigo"));
    EXPECT_EQ(consultas::empresaRetail(QStringLiteral("[Pelvor]"), 1),
              QStringLiteral("SELECT Cod_Empresa FROM [Pelvor].dbo.Empresas_Contabilidad  WHERE Cod_EmpresaC = 1"));
    EXPECT_EQ(consultas::sondeoEstadisticas(QStringLiteral("##E"), 2026), QStringLiteral("SELECT Top 1 Cod_Ejercicio FROM ##E WHERE Cod_Ejercicio = 2026"));
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
