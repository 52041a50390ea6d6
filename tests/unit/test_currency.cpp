#include "common/Currency.h"
#include "common/VbError.h"

#include <gtest/gtest.h>
#include <limits>
#include <optional>

using presupuestos::Currency;
using presupuestos::VbError;

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
        try {
            Currency::fromDouble(d);
            FAIL() << d;
        } catch (const VbError& e) {
            EXPECT_EQ(e.number(), 6);
            EXPECT_EQ(e.description(), QStringLiteral("Overflow"));
        }
    }
    const Currency max = Currency::fromRaw(std::numeric_limits<std::int64_t>::max());
    EXPECT_THROW(max + Currency::fromRaw(1), VbError);
    EXPECT_THROW(max * std::int64_t(2), VbError);
    EXPECT_THROW(c("1000000000") * c("1000000000"), VbError);
    EXPECT_THROW(c("3000000000").toInt32(), VbError);
    // An unsigned database integer past the signed range is no negative number.
    EXPECT_THROW(Currency::fromVariant(QVariant::fromValue(std::numeric_limits<qulonglong>::max())), VbError);
}

TEST(Currency, ArithmeticIsExactAndProductsRoundHalvesToEven)
{
    EXPECT_EQ((c("0.1") + c("0.2")).raw(), 3000);
    EXPECT_EQ((c("100") - c("99.96")).raw(), 400);
    EXPECT_EQ((c("8.33") * std::int64_t(12)).raw(), 999600);
    // 1.0001 * 1.0001 = 1.00020001 -> 1.0002
    EXPECT_EQ((c("1.0001") * c("1.0001")).raw(), 10002);
    // 0.0005 * 0.5 = 0.00025 -> halves to even: 0.0002
    EXPECT_EQ((c("0.0005") * c("0.5")).raw(), 2);
    EXPECT_EQ((c("0.0015") * c("0.5")).raw(), 8);
    EXPECT_EQ((c("-0.0005") * c("0.5")).raw(), -2);
    EXPECT_LT(c("-1"), c("0"));
    EXPECT_EQ(c("5"), Currency::fromInt(5));
}

TEST(Currency, RoundingToDecimalsAndIntegers)
{
    EXPECT_EQ(c("8.3333").rounded(2), c("8.33"));
    EXPECT_EQ(c("2.5").rounded(0), c("2"));
    EXPECT_EQ(c("3.5").rounded(0), c("4"));
    EXPECT_EQ(c("-2.5").rounded(0), c("-2"));
    EXPECT_EQ(c("0.125").rounded(2), c("0.12"));
    EXPECT_EQ(c("0.135").rounded(2), c("0.14"));
    EXPECT_EQ(c("1.23456").raw(), 12346);
    EXPECT_EQ(c("10.5").toInt32(), 10);
    EXPECT_EQ(c("11.5").toInt32(), 12);
    EXPECT_EQ(c("10.75").toInt32(), 11);
    EXPECT_DOUBLE_EQ(c("-1234.5678").toDouble(), -1234.5678);
}

TEST(Currency, TextForms)
{
    EXPECT_EQ(c("8.3333").toPlainText(), QStringLiteral("8,3333"));
    EXPECT_EQ(c("100").toPlainText(), QStringLiteral("100"));
    EXPECT_EQ(c("-10.50").toPlainText(), QStringLiteral("-10,5"));
    EXPECT_EQ(c("-0.05").toSqlText(), QStringLiteral("-0.05"));
    EXPECT_EQ(Currency::fromRaw(std::numeric_limits<std::int64_t>::min()).toSqlText(), QStringLiteral("-922337203685477.5808"));
    EXPECT_EQ(Currency::fromVariant(QVariant(12)).raw(), 120000);
    EXPECT_EQ(Currency::fromVariant(QVariant(10.75)).raw(), 107500);
    EXPECT_EQ(Currency::fromVariant(QVariant()).raw(), 0);
    EXPECT_EQ(Currency::fromVariant(QVariant(QStringLiteral("3.25"))).raw(), 32500);
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
    struct Caso {
        QString texto;
        std::optional<std::int64_t> raw;   // none: Overflow
    };
    const Caso casos[] = {
        {QStringLiteral("59999,4") + digitos40, 599994123},
        {QStringLiteral("-59999.4") + digitos40, -599994123},
        {QStringLiteral("92233720368547,7") + digitos40, 922337203685477123},
        {QStringLiteral("0.") + QString(40, QLatin1Char('3')), 3333},
        {QStringLiteral("0.00005") + ceros40, 0},
        {QStringLiteral("0.00005") + ceros40 + QStringLiteral("1"), 1},
        {QStringLiteral("0.00015") + ceros40, 2},
        {ceros40 + ceros40 + QStringLiteral("12.5"), 125000},
        {QStringLiteral("922337203685477.5807"), kMax},
        {QStringLiteral("+922337203685477.58074") + digitos40, kMax},
        {QStringLiteral("922337203685477.58075"), std::nullopt},
        {QStringLiteral("922337203685477.5808"), std::nullopt},
        {QStringLiteral("-922337203685477.5808"), kMin},
        {QStringLiteral("-922337203685477.58085"), kMin},
        {QStringLiteral("-922337203685477.5809"), std::nullopt},
        {QStringLiteral("12345678901234567890"), std::nullopt},
        {QStringLiteral("1") + digitos40 + QStringLiteral(".5"), std::nullopt},
    };
    for (const auto& caso : casos) {
        Currency v;
        if (caso.raw) {
            ASSERT_TRUE(Currency::parsePlain(caso.texto, v)) << caso.texto.toStdString();
            EXPECT_EQ(v.raw(), *caso.raw) << caso.texto.toStdString();
            EXPECT_EQ(Currency::fromVariant(caso.texto).raw(), *caso.raw) << caso.texto.toStdString();
        } else {
            try {
                Currency::parsePlain(caso.texto, v);
                ADD_FAILURE() << "no Overflow: " << caso.texto.toStdString();
            } catch (const VbError& e) {
                EXPECT_EQ(e.number(), VbError::Overflow) << caso.texto.toStdString();
            }
        }
    }
}
