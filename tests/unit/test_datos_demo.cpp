#include "BaseDatosPrueba.h"
#include "db/schema/DatosDemo.h"
#include "db/schema/Esquema.h"

#include <QRegularExpression>
#include <gtest/gtest.h>

using namespace presupuestos;
using presupuestos::prueba::BaseDatosPrueba;

TEST(DatosDemo, PlausibleCompanyLinkedToItsRetailDatabase)
{
    BaseDatosPrueba bd(true);
    EXPECT_TRUE(DatosDemo::existeEmpresa(*bd.conexion, 1));
    EXPECT_GE(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Departamentos WHERE Cod_Empresa = 1")).toInt(), 4);
    // Detail accounts have the full length of the chart's last level.
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Cuentas WHERE length(Cuenta) NOT IN (4, 8)")).toInt(), 0);
    EXPECT_GT(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Cuentas WHERE Cuenta LIKE '70%' AND length(Cuenta) = 8")).toInt(), 0);
    EXPECT_GT(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Cuentas WHERE Cuenta LIKE '6%' AND length(Cuenta) = 8")).toInt(), 10);
    // Concepts sit under a category of code 245 or above.
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Config_Balances WHERE Tipo = 1 AND Texto LIKE 'CTO%' AND Padre >= 245 AND Codigo >= 245")).toInt(), 3);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Config_Balances WHERE Tipo = 1 AND Texto NOT LIKE 'CTO%' AND (Codigo >= 245 OR length(Texto) <> 4)")).toInt(), 0);
    // Sales are credit balances; expenses debit ones.
    EXPECT_GT(bd.valor(QStringLiteral("SELECT SUM(H1 - D1) FROM Acumulados_Dpto WHERE Cuenta LIKE '7000%' AND Cod_Ejercicio = 2026")).toDouble(), 0);
    EXPECT_LT(bd.valor(QStringLiteral("SELECT SUM(H1 - D1) FROM Acumulados WHERE Cuenta LIKE '62%' AND Cod_Ejercicio = 2025")).toDouble(), 0);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT BDPelvor FROM Configuracion")).toString(), QStringLiteral("Pelvor"));
    EXPECT_GT(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Pelvor.Almacen_Acumulados_2")).toInt(), 1000);
    EXPECT_GT(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Pelvor.Almacen_Acumulados WHERE Ventas_Unidades = 0")).toInt(), 0);
    EXPECT_GT(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos WHERE Cod_Ejercicio = 2027 AND Metodo_Calculo = 6")).toInt(), 0);
}

TEST(DatosDemo, SameSeedSameCompany)
{
    BaseDatosPrueba a(true);
    BaseDatosPrueba b(true);
    const QString suma = QStringLiteral("SELECT SUM(H1 + D7 + H12) FROM Acumulados_Dpto");
    EXPECT_EQ(a.valor(suma).toDouble(), b.valor(suma).toDouble());
}

TEST(Esquema, SqlServerScriptsDeclareTheSameTables)
{
    for (const auto& [lite, server] : {std::pair{"sqlite.sql", "sqlserver.sql"}, std::pair{"sqlite_retail.sql", "sqlserver_retail.sql"}}) {
        const QStringList a = Esquema::sentencias(Esquema::script(QString::fromLatin1(lite)));
        const QStringList b = Esquema::sentencias(Esquema::script(QString::fromLatin1(server)));
        ASSERT_EQ(a.size(), b.size());
        for (int i = 0; i < a.size(); ++i) {
            QString x = a[i];
            x.replace(QStringLiteral("IF NOT EXISTS "), QString());
            QString y = b[i];
            y.replace(QStringLiteral("dbo."), QString());
            EXPECT_EQ(x, y);
        }
    }
    // The journal's scripts differ in their key and guards, not in their columns.
    const auto columnas = [](const QString& nombre) {
        QStringList r;
        static const QRegularExpression columna(
            QStringLiteral("(\\w+)\\s+(?:INTEGER|INT|BIGINT|SMALLINT|VARCHAR\\(\\d+\\)|DATETIME2?|TIMESTAMP|BIT|MONEY|NUMERIC\\(19,4\\))(?:\\b|\\s)"));
        // The numbering's variables are no columns.
        QStringList lineas = Esquema::script(nombre).split(QLatin1Char('\n'));
        lineas.removeIf([](const QString& l) { return l.contains(QLatin1Char('@')); });
        for (const QString& sentencia : Esquema::sentencias(lineas.join(QLatin1Char('\n'))))
            if (sentencia.contains(QStringLiteral("CREATE TABLE")))
                for (auto it = columna.globalMatch(sentencia); it.hasNext();)
                    r << it.next().captured(1);
        return r;
    };
    EXPECT_EQ(columnas(QStringLiteral("sqlite_cambios.sql")), columnas(QStringLiteral("sqlserver_cambios.sql")));
    EXPECT_EQ(columnas(QStringLiteral("sqlite_cambios.sql")), columnas(QStringLiteral("postgres_cambios.sql")));
    EXPECT_GE(columnas(QStringLiteral("sqlite_cambios.sql")).size(), 40);
}

// PostgreSQL's scripts are SQLite's with the types it lacks written as it
// holds them: MONEY as NUMERIC(19,4), BIT as SMALLINT, DATETIME as TIMESTAMP.
TEST(Esquema, PostgresqlScriptsDeclareTheSameTables)
{
    const auto enPostgres = [](QString s) {
        s.replace(QRegularExpression(QStringLiteral("\\bMONEY\\b")), QStringLiteral("NUMERIC(19,4)"));
        s.replace(QRegularExpression(QStringLiteral("\\bBIT\\b")), QStringLiteral("SMALLINT"));
        s.replace(QRegularExpression(QStringLiteral("\\bDATETIME\\b")), QStringLiteral("TIMESTAMP"));
        return s.simplified();
    };
    for (const auto& [lite, pg] : {std::pair{"sqlite.sql", "postgres.sql"}, std::pair{"sqlite_retail.sql", "postgres_retail.sql"},
                                   std::pair{"sqlite_cambios.sql", "postgres_cambios.sql"}}) {
        const QStringList a = Esquema::sentencias(Esquema::script(QString::fromLatin1(lite)));
        // A server numbers the journal's operations from a sequence; SQLite
        // under its write lock.
        QStringList b = Esquema::sentencias(Esquema::script(QString::fromLatin1(pg)));
        b.removeIf([](const QString& s) {
            return s.contains(QStringLiteral("operaciones_id"), Qt::CaseInsensitive) || s.contains(QStringLiteral("Cambios_Operacion"));
        });
        ASSERT_EQ(a.size(), b.size()) << pg;
        for (int i = 0; i < a.size(); ++i) {
            QString y = b[i].simplified();
            // The journal's key numbers itself as SQLite's INTEGER PRIMARY KEY does.
            y.replace(QStringLiteral("INTEGER GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY"), QStringLiteral("INTEGER PRIMARY KEY"));
            // SQLite's journal keeps its amounts as counts of ten-thousandths.
            static const QRegularExpression importes(QStringLiteral("\\b([AD]_(M\\d+|Valor)) NUMERIC\\(19,4\\)"));
            y.replace(importes, QStringLiteral("\\1 BIGINT"));
            EXPECT_EQ(enPostgres(a[i]), y) << pg;
        }
    }
}
