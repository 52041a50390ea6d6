#include "BaseDatosPrueba.h"
#include "db/schema/DatosDemo.h"
#include "db/schema/Esquema.h"
#include "store/Diario.h"

#include <QMap>
#include <QSqlQuery>
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
    // Every budget row carries the sign of its account's history (credit
    // less debit): income positive, expenses negative, method values too.
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos p JOIN Acumulados_Dpto a ON a.Cod_Empresa = p.Cod_Empresa "
                                      "AND a.Cuenta = p.Cuenta AND a.Dpto = p.Dpto AND a.Cod_Ejercicio = 2026 "
                                      "WHERE p.Cod_Ejercicio = 2027 AND ((p.M1 + p.M6 + p.M12 > 0) <> (a.H1 + a.H6 + a.H12 - a.D1 - a.D6 - a.D12 > 0) "
                                      "OR (p.Metodo_Calculo IN (3, 6) AND (p.Valor > 0) <> (p.M1 > 0)))")).toInt(), 0);
    EXPECT_GT(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos WHERE Cod_Ejercicio = 2027 AND M1 < 0")).toInt(), 0);
}

TEST(DatosDemo, SameSeedSameCompany)
{
    BaseDatosPrueba a(true);
    BaseDatosPrueba b(true);
    const QString suma = QStringLiteral("SELECT SUM(H1 + D7 + H12) FROM Acumulados_Dpto");
    EXPECT_EQ(a.valor(suma).toDouble(), b.valor(suma).toDouble());
}

// The engine holds each table as the schema describes it: its columns in
// order, none of them nullable but the journal's own numbering, their
// defaults, amounts kept to the ten-thousandth, and the key.
TEST(Esquema, TheEngineHoldsTheDescribedTables)
{
    BaseDatosPrueba bd(false);
    Diario diario(bd.conexion, 1);
    const bool postgres = bd.conexion->motor() == Motor::PostgreSQL;
    struct Leida {
        QString nombre;
        QString tipo;
        bool nula;
        QString defecto;
    };
    const auto leer = [&](const QString& base, const QString& tabla, QStringList* clave) {
        std::vector<Leida> r;
        clave->clear();
        QSqlQuery q(bd.conexion->baseDatos());
        if (postgres) {
            const QString esquema = base.isEmpty() ? QStringLiteral("current_schema()") : QLatin1Char('\'') + base.toLower() + QLatin1Char('\'');
            EXPECT_TRUE(q.exec(QStringLiteral("SELECT column_name, data_type, numeric_scale, is_nullable, column_default, is_identity "
                                              "FROM information_schema.columns WHERE table_schema = %1 AND table_name = '%2' "
                                              "ORDER BY ordinal_position").arg(esquema, tabla.toLower())));
            while (q.next())
                r.push_back({q.value(0).toString(), q.value(1).toString() + QLatin1Char('/') + q.value(2).toString(),
                             q.value(3).toString() == QLatin1String("YES"),
                             q.value(5).toString() == QLatin1String("YES") ? QStringLiteral("auto") : q.value(4).toString().section(QLatin1Char(':'), 0, 0)});
            EXPECT_TRUE(q.exec(QStringLiteral("SELECT k.column_name FROM information_schema.table_constraints t "
                                              "JOIN information_schema.key_column_usage k ON k.constraint_name = t.constraint_name "
                                              "AND k.table_schema = t.table_schema WHERE t.constraint_type = 'PRIMARY KEY' "
                                              "AND t.table_schema = %1 AND t.table_name = '%2' ORDER BY k.ordinal_position").arg(esquema, tabla.toLower())));
            while (q.next())
                *clave << q.value(0).toString();
        } else {
            const QString prefijo = base.isEmpty() ? QString() : QLatin1Char('"') + base + QStringLiteral("\".");
            EXPECT_TRUE(q.exec(QStringLiteral("PRAGMA %1table_info(%2)").arg(prefijo, tabla)));
            QMap<int, QString> enClave;
            while (q.next()) {
                const QString nombre = q.value(1).toString();
                // SQLite's INTEGER PRIMARY KEY is the row's own number.
                const bool numero = q.value(2).toString() == QLatin1String("INTEGER") && q.value(5).toInt() > 0;
                r.push_back({nombre, q.value(2).toString(), !numero && q.value(3).toInt() == 0,
                             numero ? QStringLiteral("auto") : q.value(4).toString()});
                if (q.value(5).toInt() > 0)
                    enClave.insert(q.value(5).toInt(), nombre);
            }
            *clave = enClave.values();
        }
        return r;
    };
    for (const auto parte : {Esquema::Parte::Gestion, Esquema::Parte::Diario, Esquema::Parte::Retail}) {
        const QString base = parte == Esquema::Parte::Retail ? QStringLiteral("Pelvor") : QString();
        for (const Esquema::Tabla& t : Esquema::tablas(parte)) {
            QStringList clave;
            const std::vector<Leida> leidas = leer(base, t.nombre, &clave);
            ASSERT_EQ(leidas.size(), t.columnas.size()) << t.nombre.toStdString();
            for (std::size_t i = 0; i < leidas.size(); ++i) {
                const Esquema::Columna& c = t.columnas[i];
                const Leida& l = leidas[i];
                const std::string donde = (t.nombre + QLatin1Char('.') + c.nombre).toStdString();
                EXPECT_EQ(l.nombre.toLower(), c.nombre.toLower()) << donde;
                EXPECT_EQ(l.nula, false) << donde;
                EXPECT_EQ(l.defecto, c.tipo == TipoColumna::Numerador ? QStringLiteral("auto") : c.defecto) << donde;
                // Amounts exact to the ten-thousandth: NUMERIC(19,4), or
                // SQLite's MONEY (read back to four decimals) and the
                // journal's counts of ten-thousandths.
                if (c.tipo == TipoColumna::Importe || c.tipo == TipoColumna::ImporteDiario) {
                    EXPECT_EQ(l.tipo, postgres ? QStringLiteral("numeric/4")
                                               : c.tipo == TipoColumna::Importe ? QStringLiteral("MONEY") : QStringLiteral("BIGINT"))
                        << donde;
                }
            }
            QStringList esperada = t.clave;
            for (QString& k : esperada)
                k = k.toLower();
            for (QString& k : clave)
                k = k.toLower();
            EXPECT_EQ(clave, esperada) << t.nombre.toStdString();
        }
    }
}
