#include "BaseDatosPrueba.h"
#include "common/VbError.h"
#include "db/DialectoPostgres.h"

#include <gtest/gtest.h>

using namespace presupuestos;
using presupuestos::prueba::BaseDatosPrueba;

// Every construct the composed texts use, and the names an accountant may
// give to accounts and departments: whatever sits in a literal, a bracketed
// or a quoted name is data, never syntax.
TEST(DialectoPostgres, RewritesEachConstructAndNothingInsideLiteralsOrNames)
{
    struct Caso {
        const char* tsql;
        const char* postgres;
    };
    const Caso casos[] = {
        // ISNULL, TOP, temporary tables with the point of their stamp, MONEY.
        {"SELECT ISNULL(p.M1,0), isnull (x,1) FROM t", "SELECT COALESCE(p.M1,0), COALESCE(x,1) FROM t"},
        {"SELECT Top 1 Cod_Ejercicio FROM t WHERE a = 1", "SELECT Cod_Ejercicio FROM t WHERE a = 1 LIMIT 1"},
        {"CREATE TABLE ##Drumav_Estadisticas_512_5 (Cuenta VARCHAR(12), Dpto INT, M1 MONEY, M12 MONEY)",
         "CREATE TEMP TABLE \"##Drumav_Estadisticas_512_5\" (Cuenta VARCHAR(12), Dpto INT, M1 NUMERIC(19,4), M12 NUMERIC(19,4))"},
        {"CREATE TABLE ##PresupFiltroCuentas_4523_5([Codigo] INT, Cuenta [VARCHAR](12))",
         "CREATE TEMP TABLE \"##PresupFiltroCuentas_4523_5\"(Codigo INT, Cuenta VARCHAR(12))"},
        {"TRUNCATE TABLE ##PresupFiltroCuentas_1", "TRUNCATE TABLE \"##PresupFiltroCuentas_1\""},
        // Three-part names: a schema of the same database.
        {"FROM [Pelvor].dbo.A x JOIN Otra.dbo.B", "FROM Pelvor.A x JOIN Otra.B"},
        {"FROM [Pelvor 2].[dbo].A", "FROM \"Pelvor 2\".A"},
        {"UPDATE t SET M2 = 5, Modificacion_Manual |= 2 WHERE", "UPDATE t SET M2 = 5, Modificacion_Manual = Modificacion_Manual | 2 WHERE"},
        // SQL Server's functions.
        {"SELECT Len(c.Cuenta), MONTH(fecha), Year ( Fecha ) FROM t",
         "SELECT LENGTH(RTRIM(CAST(c.Cuenta AS TEXT))), CAST(EXTRACT(MONTH FROM CAST(fecha AS DATE)) AS INT), "
         "CAST(EXTRACT(YEAR FROM CAST( Fecha  AS DATE)) AS INT) FROM t"},
        {"SELECT LEN(ISNULL(a, 'x')), s.month(1)", "SELECT LENGTH(RTRIM(CAST(COALESCE(a, 'x') AS TEXT))), s.month(1)"},
        {"SELECT SUSER_SNAME()", "SELECT SESSION_USER"},
        // Bracketed names: plain ones fold as unquoted names do, the others keep every character.
        {"SELECT [Caja.dbo.Central], [x ISNULL( y], [a]]b |= c], [TOP 2 x], [1], [Order] FROM [##tabla]",
         "SELECT \"Caja.dbo.Central\", \"x ISNULL( y\", \"a]b |= c\", \"TOP 2 x\", \"1\", \"order\" FROM \"##tabla\""},
        {"SELECT ISNULL([1], 0) AS [1]", "SELECT COALESCE(\"1\", 0) AS \"1\""},
        // Literals and comments as composed.
        {"INSERT INTO ##PresupFiltroCuentas_4523_5 SELECT 24, '90000001','Ventas TOP 2 tiendas', Codigo, Nombre FROM Departamentos",
         "INSERT INTO \"##PresupFiltroCuentas_4523_5\" SELECT 24, '90000001','Ventas TOP 2 tiendas', Codigo, Nombre FROM Departamentos"},
        {"SELECT Nombre FROM [Pelvor].dbo.Cuentas WHERE Nombre = 'Caja.dbo.Central'",
         "SELECT Nombre FROM Pelvor.Cuentas WHERE Nombre = 'Caja.dbo.Central'"},
        {"SELECT 'x ISNULL( y', 'Len(a)', 'MONEY', '[Pelvor].dbo.x', 'a |= b', '##t' FROM t",
         "SELECT 'x ISNULL( y', 'Len(a)', 'MONEY', '[Pelvor].dbo.x', 'a |= b', '##t' FROM t"},
        {"SELECT 'Bar D''Angelo', ISNULL(x,0) FROM t WHERE n = 'D''TOP 3 ''x''' AND m = ''''",
         "SELECT 'Bar D''Angelo', COALESCE(x,0) FROM t WHERE n = 'D''TOP 3 ''x''' AND m = ''''"},
        {"SELECT \"ISNULL(\", \"Caja.dbo.Central\" FROM t", "SELECT \"ISNULL(\", \"Caja.dbo.Central\" FROM t"},
        {"SELECT a -- TOP 2 x ISNULL( [b]\n FROM t /* Caja.dbo.Central MONTH(x) */",
         "SELECT a -- TOP 2 x ISNULL( [b]\n FROM t /* Caja.dbo.Central MONTH(x) */"},
        {"SELECT 'sin cerrar ISNULL( TOP 2 x", "SELECT 'sin cerrar ISNULL( TOP 2 x"},
        // A union sorts by its own columns.
        {"SELECT c.Cuenta, c.Dpto FROM a c UNION SELECT c.Cuenta, c.Dpto FROM b c ORDER BY c.Dpto, c.Cuenta ",
         "SELECT c.Cuenta, c.Dpto FROM a c UNION SELECT c.Cuenta, c.Dpto FROM b c ORDER BY Dpto, Cuenta "},
        {"SELECT c.Dpto FROM a c ORDER BY c.Dpto", "SELECT c.Dpto FROM a c ORDER BY c.Dpto"},
        // Rewritten tokens never fuse with their neighbours.
        {"SELECT x[Caja], 1[b]", "SELECT x Caja, 1 b"},
        {"SELECT \"a\"[Caja].dbo.t", "SELECT \"a\"Caja.t"},
        {"SELECT \"a\"[b c]", "SELECT \"a\" \"b c\""},
        {"SELECT \"a\"##t.1\"b\" FROM x", "SELECT \"a\" \"##t.1\" \"b\" FROM x"},
        // A pivot: one conditional sum per listed value, named as listed.
        {"SELECT Cod_Almacen, ISNULL([1], 0) AS [1] FROM (SELECT Cod_Almacen, MONTH(fecha) as Mes, SUM(Tickets) AS T FROM x "
         "GROUP BY Cod_Almacen, MONTH(fecha)) AS SourceTable PIVOT (SUM(T) FOR Mes IN ([1],[2])) AS PivotTable",
         "SELECT Cod_Almacen, COALESCE(\"1\", 0) AS \"1\" FROM (SELECT Cod_Almacen, SUM(CASE WHEN Mes = 1 THEN T END) AS \"1\", "
         "SUM(CASE WHEN Mes = 2 THEN T END) AS \"2\" FROM (SELECT Cod_Almacen, CAST(EXTRACT(MONTH FROM CAST(fecha AS DATE)) AS INT) as Mes, "
         "SUM(Tickets) AS T FROM x GROUP BY Cod_Almacen, CAST(EXTRACT(MONTH FROM CAST(fecha AS DATE)) AS INT)) AS SourceTable "
         "GROUP BY Cod_Almacen) AS PivotTable"},
    };
    for (const auto& c : casos)
        EXPECT_EQ(DialectoPostgres::adaptar(QString::fromUtf8(c.tsql)), QString::fromUtf8(c.postgres)) << c.tsql;
}

TEST(DialectoPostgres, NamesAsPostgresqlFindsThem)
{
    for (const auto& [nombre, escrito] : {std::pair{"Pelvor", "Pelvor"}, {"Tiendas_2", "Tiendas_2"}, {"User", "\"user\""},
                                          {"2Tiendas", "\"2Tiendas\""}, {"Caja \"Central\"", "\"Caja \"\"Central\"\"\""},
                                          {"Almacén", "\"Almacén\""}})
        EXPECT_EQ(DialectoPostgres::identificador(QString::fromUtf8(nombre)), QString::fromUtf8(escrito)) << nombre;
}
