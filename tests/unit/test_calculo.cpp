#include "BaseDatosPrueba.h"
#include "calculation/clsCalculo.h"
#include "calculation/clsPresupItem.h"
#include "common/VbError.h"

#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;
using presupuestos::prueba::BaseDatosPrueba;

namespace {

Currency C(const QString& texto) { return monedaPlana(texto); }

const QString kTabla = QStringLiteral("##Drumav_Estadisticas_20270114093015");

// ", P1, P2, ..." and ", v1, v2, ..." for a year given from January on (0 for the rest).
std::pair<QString, QString> anyoSql(const QString& p, const QStringList& m, const QString& mas = {})
{
    QString c, v;
    for (int i = 0; i < 12; ++i) {
        c += QStringLiteral(", %1%2").arg(p).arg(i + 1);
        v += QStringLiteral(", ") + (i < m.size() ? m[i] : QStringLiteral("0")) + mas;
    }
    return {c, v};
}

class Calculo : public ::testing::Test {
protected:
    Calculo()
    {
        calc.setEjercicio(2026);
        calc.setDecimales(2);
        calc.setTablaTempHistorico(kTabla);
    }
    QStringList meses()
    {
        QStringList l;
        for (int i = 0; i < 12; ++i)
            l << calc.Mes(i).toSqlText();
        return l;
    }
    static QStringList anyo(const QStringList& enero, const QString& resto = QStringLiteral("0"))
    {
        QStringList l = enero;
        while (l.size() < 12)
            l << resto;
        return l;
    }
    // Balances are stored as credit and debit, both off by 250, so only
    // credit minus debit gives the figure back.
    void saldo(QString cuenta, int ejercicio, const QStringList& m, int dpto = -1, int empresa = 1)
    {
        const auto [d, dv] = anyoSql(QStringLiteral("D"), {}, QStringLiteral(" + 250"));
        const auto [h, hv] = anyoSql(QStringLiteral("H"), m, QStringLiteral(" + 250"));
        const bool conDpto = dpto >= 0;
        bd.sql(QStringLiteral("INSERT INTO %1 (Cod_Empresa, Cod_Ejercicio, Cuenta%2%3%4) VALUES (%5, %6, '%7'%8%9%10)")
                   .arg(conDpto ? QStringLiteral("Acumulados_Dpto") : QStringLiteral("Acumulados"),
                        conDpto ? QStringLiteral(", Dpto") : QString(), d, h)
                   .arg(empresa)
                   .arg(ejercicio)
                   .arg(cuenta.replace(u'\'', QStringLiteral("''")),
                        conDpto ? QStringLiteral(", %1").arg(dpto) : QString(), dv, hv));
    }
    void venta(const QString& cuenta, int ejercicio, int dpto, const QStringList& m)
    {
        const auto [c, v] = anyoSql(QStringLiteral("M"), m);
        bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto%1) VALUES (1, %2, '%3', %4%5)")
                   .arg(c)
                   .arg(ejercicio)
                   .arg(cuenta)
                   .arg(dpto)
                   .arg(v));
    }

    BaseDatosPrueba bd;
    clsCalculo calc{bd.sesion};
};

} // namespace

TEST(PresupItem, GuardsItsMonthIndex)
{
    clsPresupItem item;
    item.setMes(11, C("-3.5"));
    EXPECT_EQ(item.Mes(11), C("-3.5"));
    EXPECT_EQ(numeroError([&] { item.Mes(12); }), VbError::SubscriptOutOfRange);
    EXPECT_EQ(numeroError([&] { item.setMes(-1, C("1")); }), VbError::SubscriptOutOfRange);
}

TEST_F(Calculo, TextsNameTheHistoryYearAndTheFormulaFollowsTheDecimals)
{
    calc.setEjercicio(2025);
    EXPECT_EQ(calc.DecripcionMetodo(2), QStringLiteral("Ejercicio 2025 con % + - (Base Mes) "));
    EXPECT_EQ(calc.DecripcionMetodo(4), QStringLiteral("Ejercicio 2025 con % + -(Base Año)"));
    EXPECT_TRUE(calc.DecripcionMetodo(8).isEmpty() && calc.PlantillaFormula(-1).isEmpty());

    EXPECT_TRUE(clsCalculo(bd.sesion).FormatoCalculo().isEmpty());
    for (const auto& [decimales, formula] : {std::pair{0, "Enero = (0 * 0%) /12"}, {3, "Enero = (0,000 * 0%) /12"}}) {
        calc.setDecimales(decimales);
        calc.Calcular(7, QString(), C("0")); // no sales stored: a total of 0
        EXPECT_EQ(calc.FormulaCalculada(), QLatin1String(formula)) << decimales;
    }
    EXPECT_EQ(numeroError([&] { calc.Mes(12); }), VbError::SubscriptOutOfRange);
}

// The methods on the company's balances, each from the same history: its
// months and the formula it shows. An unknown method gives zeros and leaves
// the formula of the one before.
TEST_F(Calculo, EachMethodGivesItsMonthsAndItsFormulaAndAnUnknownOneZerosKeepingThePreviousFormula)
{
    saldo(QStringLiteral("70000001"), 2026, {"1000", "-250.5", "333.3333", "0", "0.05"});
    saldo(QStringLiteral("70000002"), 2026, {"5000", "-1000", "3000", "0", "2500", "2500"});
    saldo(QStringLiteral("70000003"), 2026, {"100"});
    saldo(QStringLiteral("70000004"), 2026, {"1200", "2400", "-600", "9000"});
    saldo(QStringLiteral("62900001"), 2026, {"500", "-500"});
    struct Caso {
        const char* que;
        int metodo;
        const char* cuenta;
        const char* valor;
        QStringList meses;
        const char* formula; // nullptr: not checked
    };
    const Caso casos[] = {
        {"spread: December takes the rounding remainder", 1, "", "100", anyo(QStringList(11, QStringLiteral("8.33")) << QStringLiteral("8.37")),
         "Enero = 100 / 12"},
        {"spread of a negative value", 1, "", "-1234.5678", anyo(QStringList(11, QStringLiteral("-102.88")) << QStringLiteral("-102.8878")),
         "Enero = -1234,5678 / 12"},
        // Only the increment is rounded: March keeps the history's four decimals.
        {"base month, less", 2, "70000001", "-10", anyo({"900", "-225.45", "300.0033", "0", "0.05"}), "Enero = 1.000,00 - (1.000,00 * 10%)"},
        {"base month, more", 2, "70000001", "12.5", anyo({"1125", "-281.81", "375.0033", "0", "0.06"}),
         "Enero = 1.000,00 + (1.000,00 * 12,5%)"},
        {"base year: no remainder month", 4, "70000002", "5", anyo({}, QStringLiteral("1050")), "Enero = (12.000,00 + (12.000,00 * 5%))/12"},
        {"base year, less", 4, "70000002", "-2.5", anyo({}, QStringLiteral("975")), "Enero = (12.000,00 - (12.000,00 * 2,5%))/12"},
        {"base year: the year falls 0.0004 short", 4, "70000003", "0", anyo({}, QStringLiteral("8.3333")), nullptr},
        {"weight in percent times the value", 5, "70000004", "1", anyo({"10", "20", "-5", "75"}),
         "Enero = 1 *  (1.200,00 * 100 / 12.000,00)"},
        {"weight of a year that adds up to zero", 5, "62900001", "1000", anyo({}), "Enero = 1000 *  (500,00 * 100 / 0,00)"},
        {"the value in every month", 3, "62900001", "-12.5", anyo({}, QStringLiteral("-12.5")), "Enero = -12,5"},
        {"unknown method 0", 0, "62900001", "45", anyo({}), "Enero = -12,5"},
        {"unknown method 8", 8, "62900001", "45", anyo({}), "Enero = -12,5"},
    };
    for (const Caso& c : casos) {
        SCOPED_TRACE(c.que);
        calc.Calcular(c.metodo, QString::fromLatin1(c.cuenta), C(QString::fromLatin1(c.valor)));
        EXPECT_EQ(meses(), c.meses);
        if (c.formula) {
            EXPECT_EQ(calc.FormulaCalculada(), QString::fromUtf8(c.formula));
        }
    }
}

TEST_F(Calculo, History_ReadsTheCompanyTotalForAllDepartmentsOrTheDepartmentAsked)
{
    saldo(QStringLiteral("629'01"), 2026, {"-1000"});
    saldo(QStringLiteral("629'01"), 2026, {"-300"}, 2);
    saldo(QStringLiteral("629'01"), 2025, {"-7777"});
    saldo(QStringLiteral("629'01"), 2026, {"-8888"}, -1, 2);
    calc.Calcular(2, QStringLiteral("629'01"), C("0"));
    EXPECT_EQ(calc.Mes(0), C("-1000"));
    EXPECT_EQ(calc.FormulaCalculada(), QStringLiteral("Enero = -1.000,00 + (-1.000,00 * 0%)"));
    calc.setDpto(2);
    calc.Calcular(2, QStringLiteral("629'01"), C("0"));
    EXPECT_EQ(calc.Mes(0), C("-300"));
    calc.setDpto(9); // no history: zeros, no error
    calc.Calcular(2, QStringLiteral("629'01"), C("5"));
    EXPECT_EQ(meses(), anyo({}));
    EXPECT_EQ(calc.FormulaCalculada(), QStringLiteral("Enero = 0,00 + (0,00 * 5%)"));
}

TEST_F(Calculo, Conceptos_ReadTheStatisticsTableNeverTheBalances)
{
    bd.conexion->Execute(QStringLiteral("CREATE TABLE ") + kTabla
                         + QStringLiteral(" (Cuenta VARCHAR(12), Cod_Ejercicio INT, Dpto INT, M1 MONEY, M2 MONEY, M3 MONEY, M4 MONEY, "
                                          "M5 MONEY, M6 MONEY, M7 MONEY, M8 MONEY, M9 MONEY, M10 MONEY, M11 MONEY, M12 MONEY)"));
    for (const char* fila : {"'CTO003', 2026, 3, 100, 50", "'CTO003', 2026, 4, 300, 150", "'CTO003', 2025, 3, 9999, 0",
                             "'cto003', 2026, 3, 5, 5"})
        bd.conexion->Execute(QStringLiteral("INSERT INTO ") + kTabla + QStringLiteral(" VALUES (") + QLatin1String(fila)
                             + QString(", 0").repeated(10) + QStringLiteral(")"));
    saldo(QStringLiteral("CTO003"), 2026, {"7"});
    saldo(QStringLiteral("CTO003"), 2026, {"7"}, 3);
    saldo(QStringLiteral("cto003"), 2026, {"7"});

    calc.Calcular(2, QStringLiteral("CTO003"), C("10")); // every store added up
    EXPECT_EQ(meses(), anyo({"440", "220"}));
    EXPECT_EQ(calc.FormulaCalculada(), QStringLiteral("Enero = 400,00 + (400,00 * 10%)"));
    calc.setDpto(3);
    calc.Calcular(5, QStringLiteral("CTO003"), C("2"));
    EXPECT_EQ(meses(), anyo({"133.3333", "66.6667"}));
    // Only an upper-case prefix makes a concept.
    calc.setDpto(0);
    calc.Calcular(4, QStringLiteral("cto003"), C("0"));
    EXPECT_EQ(calc.Mes(0), C("0.5833"));
}

TEST_F(Calculo, Ventas_PercentageOfTheSalesStoredForTheBudgetYearAndThisDepartment)
{
    venta(QStringLiteral("70000001"), 2027, 2, {"1000", "1234.5678", "-80"});
    venta(QStringLiteral("70500001"), 2027, 2, {"500", "0", "0", "10"});
    venta(QStringLiteral("70000001"), 2027, 0, {"40000"});
    venta(QStringLiteral("70000001"), 2026, 2, {"77777"});
    venta(QStringLiteral("7100001"), 2027, 2, {"88888"});
    calc.setDpto(2);
    calc.Calcular(6, QStringLiteral("62100001"), C("7.5"));
    EXPECT_EQ(meses(), anyo({"112.5", "92.5926", "-6", "0.75"}));
    EXPECT_EQ(calc.FormulaCalculada(), QStringLiteral("Enero = 1.500,00 * 7,5%"));
    calc.Calcular(7, QStringLiteral("62100001"), C("10"));
    EXPECT_EQ(meses(), anyo({}, QStringLiteral("22.2047"))); // 2664.5678 x 10% / 12 = 22.204731...
    EXPECT_EQ(calc.FormulaCalculada(), QStringLiteral("Enero = (2.664,57 * 10%) /12"));
    // Department 0 is a department of its own here, not all of them.
    calc.setDpto(0);
    calc.Calcular(6, QStringLiteral("62100001"), C("10"));
    EXPECT_EQ(meses(), anyo({"4000"}));
}

TEST_F(Calculo, AProductBeyondTheCurrencyRangeIsOverflow)
{
    saldo(QStringLiteral("70000001"), 2026, {"900000000000000"});
    EXPECT_EQ(numeroError([&] { calc.Calcular(2, QStringLiteral("70000001"), C("100000")); }), VbError::Overflow);
    venta(QStringLiteral("70000001"), 2027, 0, {"900000000000", "900000000000"});
    EXPECT_EQ(numeroError([&] { calc.Calcular(7, QString(), C("1000")); }), VbError::Overflow);
}
