#include "common/Currency.h"
#include "ErrorPrueba.h"

#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <tuple>

using presupuestos::Currency;
using presupuestos::VbError;
using presupuestos::prueba::errorDe;
using presupuestos::prueba::numeroError;

namespace {
Currency c(const char* t)
{
    Currency v;
    EXPECT_TRUE(Currency::parsePlain(QString::fromLatin1(t), v)) << t;
    return v;
}
} // namespace

TEST(Currency, ConversionFromDoubleRoundsHalvesToEven)
{
    struct Caso { double entrada; std::int64_t raw; };
    const Caso casos[] = {
        {8.3333, 83333},     {0.00005, 0},      {0.00025, 2},   {-0.00025, -2},
        {1.0 / 3.0, 3333}, {2.0 / 3.0, 6667}, {-100.0, -1000000},
        {123456789.0123, 1234567890123LL},
    };
    for (const auto& caso : casos)
        EXPECT_EQ(Currency::fromDouble(caso.entrada).raw(), caso.raw) << caso.entrada;
}

TEST(Currency, OutOfRangeRaisesOverflow)
{
    for (double d : {1e15, -1e15, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
        const VbError e = errorDe([&] { Currency::fromDouble(d); });
        EXPECT_EQ(std::pair(e.number(), e.description()), std::pair(6, QStringLiteral("Overflow"))) << d;
    }
    const Currency max = Currency::fromRaw(std::numeric_limits<std::int64_t>::max());
    EXPECT_THROW(max + Currency::fromRaw(1), VbError);
    EXPECT_THROW(max * std::int64_t(2), VbError);
    EXPECT_THROW(c("1000000000") * c("1000000000"), VbError);
    EXPECT_THROW(c("3000000000").toInt32(), VbError);
    // An unsigned database integer past the signed range is no negative number.
    EXPECT_THROW(Currency::fromVariant(QVariant::fromValue(std::numeric_limits<qulonglong>::max())), VbError);
}

TEST(Currency, ArithmeticIsExactAndProductsAndRoundingGoHalvesToEven)
{
    EXPECT_EQ((c("0.1") + c("0.2")).raw(), 3000);
    EXPECT_EQ((c("100") - c("99.96")).raw(), 400);
    EXPECT_EQ((c("8.33") * std::int64_t(12)).raw(), 999600);
    // 1.00020001 -> 1.0002; 0.00025 -> 0.0002; 0.00075 -> 0.0008
    for (const auto& [a, b, raw] : {std::tuple{"1.0001", "1.0001", 10002}, {"0.0005", "0.5", 2}, {"0.0015", "0.5", 8}, {"-0.0005", "0.5", -2}})
        EXPECT_EQ((c(a) * c(b)).raw(), raw) << a << " * " << b;
    for (const auto& [valor, decimales, esperado] : {std::tuple{"8.3333", 2, "8.33"}, {"2.5", 0, "2"}, {"3.5", 0, "4"},
                                                     {"-2.5", 0, "-2"}, {"0.125", 2, "0.12"}, {"0.135", 2, "0.14"}})
        EXPECT_EQ(c(valor).rounded(decimales), c(esperado)) << valor << " to " << decimales;
    EXPECT_EQ(c("1.23456").raw(), 12346);
    for (const auto& [valor, entero] : {std::pair{"10.5", 10}, {"11.5", 12}, {"10.75", 11}})
        EXPECT_EQ(c(valor).toInt32(), entero) << valor;
    EXPECT_DOUBLE_EQ(c("-1234.5678").toDouble(), -1234.5678);
}

TEST(Currency, TextForms)
{
    for (const auto& [valor, texto] : {std::pair{"8.3333", "8,3333"}, {"100", "100"}, {"-10.50", "-10,5"}})
        EXPECT_EQ(c(valor).toPlainText(), QLatin1String(texto)) << valor;
    EXPECT_EQ(c("-0.05").toSqlText(), QStringLiteral("-0.05"));
    EXPECT_EQ(Currency::fromRaw(std::numeric_limits<std::int64_t>::min()).toSqlText(), QStringLiteral("-922337203685477.5808"));
    for (const auto& [variante, raw] : {std::pair{QVariant(12), 120000}, {QVariant(10.75), 107500}, {QVariant(), 0},
                                        {QVariant(QStringLiteral("3.25")), 32500}})
        EXPECT_EQ(Currency::fromVariant(variante).raw(), raw) << variante.toString().toStdString();
    Currency v;
    EXPECT_FALSE(Currency::parsePlain(QStringLiteral("1.2.3"), v));
    EXPECT_FALSE(Currency::parsePlain(QStringLiteral("-"), v));
}

// Database texts of any length: exact digits, rounded halves to even, and
// Overflow only for values out of range.
TEST(Currency, PlainTextsOfAnyLengthRoundExactly)
{
    constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
    const QString digitos40 = QStringLiteral("1234567890").repeated(4);
    const QString ceros40(40, QLatin1Char('0'));
    const std::optional<std::int64_t> overflow;
    const std::pair<QString, std::optional<std::int64_t>> casos[] = {
        {QStringLiteral("59999,4") + digitos40, 599994123}, {QStringLiteral("-59999.4") + digitos40, -599994123},
        {QStringLiteral("92233720368547,7") + digitos40, 922337203685477123},
        {QStringLiteral("0.") + QString(40, QLatin1Char('3')), 3333},
        {QStringLiteral("0.00005") + ceros40, 0}, {QStringLiteral("0.00005") + ceros40 + QStringLiteral("1"), 1},
        {QStringLiteral("0.00015") + ceros40, 2}, {ceros40 + ceros40 + QStringLiteral("12.5"), 125000},
        {QStringLiteral("922337203685477.5807"), kMax}, {QStringLiteral("+922337203685477.58074") + digitos40, kMax},
        {QStringLiteral("922337203685477.58075"), overflow}, {QStringLiteral("922337203685477.5808"), overflow},
        {QStringLiteral("-922337203685477.5808"), kMin}, {QStringLiteral("-922337203685477.58085"), kMin},
        {QStringLiteral("-922337203685477.5809"), overflow}, {QStringLiteral("12345678901234567890"), overflow},
        {QStringLiteral("1") + digitos40 + QStringLiteral(".5"), overflow},
    };
    for (const auto& caso : casos) {
        const QString& texto = caso.first;
        const auto& raw = caso.second;
        SCOPED_TRACE(texto.toStdString());
        Currency v;
        EXPECT_EQ(numeroError([&] { ASSERT_TRUE(Currency::parsePlain(texto, v)); }), raw ? 0 : VbError::Overflow);
        if (raw) {
            EXPECT_EQ(v.raw(), *raw);
            EXPECT_EQ(Currency::fromVariant(texto).raw(), *raw);
        }
    }
}
