#include "BaseDatosPrueba.h"
#include "common/VbError.h"
#include "db/DialectoSqlite.h"

#include <gtest/gtest.h>

using namespace presupuestos;
using presupuestos::prueba::BaseDatosPrueba;

// Each construct the composed texts use, and the names an accountant may
// give to accounts and departments: whatever sits in a literal, a bracketed
// or a quoted name is data, never syntax.
TEST(DialectoSqlite, RewritesEachConstructAndNothingInsideLiteralsOrNames)
{
    struct Caso {
        const char* tsql;
        const char* sqlite;
        QStringList bases;
    };
    const Caso casos[] = {
        {"SELECT ISNULL(p.M1,0), isnull(x,1)", "SELECT IFNULL(p.M1,0), IFNULL(x,1)", {}},
        {"TRUNCATE TABLE ##PresupFiltroCuentas_1", "DELETE FROM \"##PresupFiltroCuentas_1\"", {}},
        {"CREATE TABLE ##Drumav_Estadisticas_512_5 (a INT)", "CREATE TEMP TABLE \"##Drumav_Estadisticas_512_5\" (a INT)", {}},
        {"FROM [Pelvor].dbo.A x JOIN Otra.dbo.B", "FROM \"Pelvor\".A x JOIN \"Otra\".B", {QStringLiteral("Pelvor"), QStringLiteral("Otra")}},
        {"INSERT INTO ##PresupFiltroCuentas_4523_5 SELECT 24, '90000001','Ventas TOP 2 tiendas', Codigo, Nombre FROM Departamentos",
         "INSERT INTO \"##PresupFiltroCuentas_4523_5\" SELECT 24, '90000001','Ventas TOP 2 tiendas', Codigo, Nombre FROM Departamentos", {}},
        {"SELECT Top 1 Nombre FROM Cuentas WHERE Nombre = 'Ventas TOP 2 tiendas'",
         "SELECT Nombre FROM Cuentas WHERE Nombre = 'Ventas TOP 2 tiendas' LIMIT 1", {}},
        {"SELECT Nombre FROM [Pelvor].dbo.Cuentas WHERE Nombre = 'Caja.dbo.Central'",
         "SELECT Nombre FROM \"Pelvor\".Cuentas WHERE Nombre = 'Caja.dbo.Central'", {QStringLiteral("Pelvor")}},
        {"SELECT 'x ISNULL( y', ISNULL(a,0)", "SELECT 'x ISNULL( y', IFNULL(a,0)", {}},
        {"SELECT '##tabla', '#tabla' FROM t", "SELECT '##tabla', '#tabla' FROM t", {}},
        {"UPDATE t SET Nombre = 'a |= b', Modificacion_Manual |= 2 WHERE n = 'c |= d'",
         "UPDATE t SET Nombre = 'a |= b', Modificacion_Manual = Modificacion_Manual | 2 WHERE n = 'c |= d'", {}},
        // A doubled quote does not end the literal, nor does the one after it start another.
        {"SELECT 'Bar D''Angelo', ISNULL(x,0) FROM t WHERE n = 'D''TOP 3 ''x''' AND m = ''''",
         "SELECT 'Bar D''Angelo', IFNULL(x,0) FROM t WHERE n = 'D''TOP 3 ''x''' AND m = ''''", {}},
        {"SELECT [Caja.dbo.Central], [x ISNULL( y], [a]]b |= c], [TOP 2 x] FROM [##tabla]",
         "SELECT [Caja.dbo.Central], [x ISNULL( y], [a]]b |= c], [TOP 2 x] FROM [##tabla]", {}},
        {"SELECT \"ISNULL(\", \"Caja.dbo.Central\", \"a\"\"|= b\" FROM t", "SELECT \"ISNULL(\", \"Caja.dbo.Central\", \"a\"\"|= b\" FROM t", {}},
        {"SELECT a -- TOP 2 x ISNULL(\n FROM t /* Caja.dbo.Central */", "SELECT a -- TOP 2 x ISNULL(\n FROM t /* Caja.dbo.Central */", {}},
        {"SELECT 'TRUNCATE TABLE t'", "SELECT 'TRUNCATE TABLE t'", {}},
        {"SELECT 'CREATE TABLE ##x (a INT)'", "SELECT 'CREATE TABLE ##x (a INT)'", {}},
        {"SELECT N'Caja.dbo.Central', ISNULL ( a, 1)", "SELECT N'Caja.dbo.Central', IFNULL( a, 1)", {}},
        {"SELECT 'sin cerrar ISNULL( TOP 2 x", "SELECT 'sin cerrar ISNULL( TOP 2 x", {}},
        {"SELECT a FROM (SELECT 'PIVOT (x) AS y' AS a) AS s", "SELECT a FROM (SELECT 'PIVOT (x) AS y' AS a) AS s", {}},
        // Rewritten tokens never fuse with their neighbours into a comment or a longer name.
        {"SELECT 1-TOP 2 -1 FROM t WHERE n = 'x'", "SELECT 1- -1 FROM t WHERE n = 'x' LIMIT 2", {}},
        {"SELECT \"a\"##t.1\"b\" FROM x", "SELECT \"a\" \"##t.1\" \"b\" FROM x", {}},
        {"SELECT \"a\"[Caja].dbo.t", "SELECT \"a\" \"Caja\".t", {QStringLiteral("Caja")}},
    };
    for (const auto& c : casos) {
        const QString tsql = QString::fromUtf8(c.tsql);
        const SqlAdaptado a = DialectoSqlite::adaptar(tsql);
        EXPECT_EQ(a.texto, QString::fromUtf8(c.sqlite)) << c.tsql;
        EXPECT_EQ(a.basesDatos, c.bases) << c.tsql;
        QString unido;
        for (const auto& t : DialectoSqlite::tokenizar(tsql))
            unido += t.texto;
        EXPECT_EQ(unido, tsql);
    }
}

TEST(DialectoSqlite, TemporaryTablesWithAStampCarryingAPointRunForReal)
{
    BaseDatosPrueba bd;
    auto& c = *bd.conexion;
    const QString t = QStringLiteral("##PresupFiltroCuentas_4523_5");
    c.Execute(QStringLiteral("CREATE TABLE ") + t
              + QStringLiteral("([Codigo] INT, Cuenta [VARCHAR](12), Nombre VARCHAR(200), Dpto INT, Dpto_Nombre VARCHAR(200))"));
    c.Execute(QStringLiteral("INSERT INTO ") + t + QStringLiteral(" SELECT 20, '70000001','Ventas', 1, 'Valencia'"));
    Recordset rs = c.Abrir(QStringLiteral("SELECT Top 1 c.Cuenta FROM ") + t + QStringLiteral(" c WHERE ISNULL(c.Dpto,0) = 1"));
    ASSERT_FALSE(rs.eof());
    EXPECT_EQ(rs.texto(0), QStringLiteral("70000001"));
    rs.Close();
    c.Execute(QStringLiteral("TRUNCATE TABLE ") + t);
    EXPECT_TRUE(c.Abrir(QStringLiteral("SELECT * FROM ") + t).eof());
    c.Execute(QStringLiteral("DROP TABLE ") + t);
    EXPECT_THROW(c.Abrir(QStringLiteral("SELECT * FROM ") + t), VbError);
}

TEST(DialectoSqlite, OrAssignmentAndRegisteredFunctionsRunForReal)
{
    BaseDatosPrueba bd;
    auto& c = *bd.conexion;
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, Modificacion_Manual) VALUES (1, 2027, '70000001', 1, 2)"));
    EXPECT_EQ(c.Execute(QStringLiteral("UPDATE Presupuestos  SET M5 = 12.5, Modificacion_Manual |= 16 WHERE Cod_Empresa = 1")), 1);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT Modificacion_Manual FROM Presupuestos")).toInt(), 18);

    Recordset rs = c.Abrir(QStringLiteral("SELECT Len('7000  '), MONTH('2026-03-15'), YEAR('2026-03-15'), Len(NULL)"));
    EXPECT_EQ(rs.entero(0), 4);
    EXPECT_EQ(rs.entero(1), 3);
    EXPECT_EQ(rs.entero(2), 2026);
    EXPECT_TRUE(rs.campo(3).isNull());
}

TEST(DialectoSqlite, ThreePartNamesReachTheAttachedRetailDatabase)
{
    BaseDatosPrueba bd;
    bd.sql(QStringLiteral("INSERT INTO Pelvor.Empresas_Contabilidad VALUES (3, 1, 'Tiendas')"));
    Recordset rs = bd.conexion->Abrir(
        QStringLiteral("SELECT Cod_Empresa FROM [Pelvor].dbo.Empresas_Contabilidad  WHERE Cod_EmpresaC = 1"));
    ASSERT_FALSE(rs.eof());
    EXPECT_EQ(rs.entero(0), 3);
    EXPECT_THROW(bd.conexion->Abrir(QStringLiteral("SELECT * FROM [NoHay].dbo.Tabla")), VbError);
}

TEST(DialectoSqlite, PivotBecomesGroupedConditionalSums)
{
    BaseDatosPrueba bd;
    // Two tills on the same day count as one day; store 2 has no sales in February.
    bd.sql(QStringLiteral("INSERT INTO Pelvor.Almacen_Acumulados_2 (Cod_Empresa, Cod_Almacen, Fecha, Caja, Tickets) VALUES "
                          "(3, 1, '2026-01-02', 1, 10), (3, 1, '2026-01-02', 2, 5), (3, 1, '2026-01-03', 1, 7),"
                          "(3, 1, '2026-02-02', 1, 4), (3, 2, '2026-01-02', 1, 8), (3, 1, '2025-01-02', 1, 99)"));
    const QString sql = QStringLiteral(
        "SELECT 'CTO002' AS Cpto,2026 AS Cod_Ejercicio,  Cod_Almacen, ISNULL([1], 0) AS [1], ISNULL([2], 0) AS [2], ISNULL([3], 0) AS [3]"
        " FROM (SELECT Cod_Almacen, MONTH(fecha) as Mes, ISNULL(Count(DISTINCT Fecha),0) AS Dias"
        " FROM [Pelvor].dbo.Almacen_Acumulados_2 WHERE Cod_Empresa = 3 AND YEAR(Fecha) = 2026"
        " GROUP BY Cod_Almacen, MONTH(fecha)) AS SourceTable PIVOT (SUM(Dias) FOR Mes IN ([1],[2],[3])) AS PivotTable"
        " UNION SELECT 'CTO003' AS Cpto,2026 AS Cod_Ejercicio,  Cod_Almacen, ISNULL([1], 0) AS [1], ISNULL([2], 0) AS [2], ISNULL([3], 0) AS [3]"
        " FROM (SELECT Cod_Almacen, MONTH(fecha) as Mes,  ISNULL(SUM(Tickets),0) AS Total_Tickets"
        " FROM [Pelvor].dbo.Almacen_Acumulados_2 WHERE Cod_Empresa = 3 AND YEAR(Fecha) = 2026"
        " GROUP BY Cod_Almacen, MONTH(Fecha)) AS SourceTable PIVOT( SUM(Total_Tickets) FOR Mes IN ([1],[2],[3])) AS PivotTable"
        " ORDER BY 1, 3");
    // Concept, store: the three months.
    QStringList filas;
    for (Recordset rs = bd.conexion->Abrir(sql); !rs.eof(); rs.MoveNext())
        filas << QStringLiteral("%1 %2: %3 %4 %5").arg(rs.texto(0)).arg(rs.entero(2)).arg(rs.entero(3)).arg(rs.entero(4)).arg(rs.entero(5));
    EXPECT_EQ(filas, (QStringList{"CTO002 1: 2 1 0", "CTO002 2: 1 0 0", "CTO003 1: 22 4 0", "CTO003 2: 8 0 0"}));
}
