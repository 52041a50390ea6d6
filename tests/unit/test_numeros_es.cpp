#include "common/NumerosEs.h"
#include "common/VbError.h"

#include <gtest/gtest.h>
#include <limits>
#include <optional>

using namespace presupuestos;

namespace {
Currency c(const char* t)
{
    Currency v;
    EXPECT_TRUE(Currency::parsePlain(QString::fromLatin1(t), v));
    return v;
}
} // namespace

TEST(NumerosEs, FormatsWithSpanishSeparators)
{
    struct Caso { const char* valor; const char* formato; const char* esperado; };
    const Caso casos[] = {
        {"0", "#,0", "0"}, {"1234", "#,0", "1.234"}, {"999", "#,0", "999"},
        {"1234567.891", "#,0", "1.234.568"},
        // Display rounds halves away from zero, and a rounded zero has no sign.
        {"-1234.5", "#,0", "-1.235"}, {"2.5", "#,0", "3"}, {"-0.4", "#,0", "0"},
        {"1234.5", "#,0.00", "1.234,50"}, {"1234.5678", "#,0.000", "1.234,568"}, {"0.05", "#,0.0", "0,1"},
        {"8.3333", "#,0.000000", "8,333300"}, {"1234.5", "0.00", "1234,50"}, {"-7", "0.00", "-7,00"},
        {"0.25", "0%", "25%"}, {"1", "0%", "100%"},
    };
    for (const auto& caso : casos)
        EXPECT_EQ(es::formatear(c(caso.valor), QString::fromLatin1(caso.formato)), QString::fromUtf8(caso.esperado))
            << caso.valor << " " << caso.formato;
    EXPECT_EQ(es::formatear(1.0 / 3.0, QStringLiteral("0%")), QStringLiteral("33%"));
    EXPECT_EQ(es::formatear(2.0 / 3.0, QStringLiteral("0%")), QStringLiteral("67%"));
    EXPECT_EQ(es::formatoNumero(0), QStringLiteral("#,0"));
    EXPECT_EQ(es::formatoNumero(3), QStringLiteral("#,0.000"));
}

TEST(NumerosEs, ReadsWhatASpanishWindowsAccepts)
{
    struct Caso { const char* texto; const char* valor; };   // valor none: not numeric
    const Caso casos[] = {
        {"1234", "1234"}, {"1.234", "1234"}, {"1.234,50", "1234.5"}, {"  -12,5  ", "-12.5"},
        {"+7", "7"}, {"7-", "-7"}, {",5", "0.5"}, {"1,23456", "1.2346"}, {"1,23445", "1.2344"},
        {"1E3", "1000"}, {"2,5e-1", "0.25"}, {"12 \u20ac", "12"},
        {"", nullptr}, {"   ", nullptr}, {"abc", nullptr}, {"1,2,3", nullptr}, {"12a", nullptr},
        {".5", nullptr}, {"1.", nullptr}, {"-", nullptr}, {",", nullptr}, {"1E", nullptr},
    };
    for (const auto& caso : casos) {
        const QString t = QString::fromUtf8(caso.texto);
        const bool numerico = caso.valor != nullptr;
        EXPECT_EQ(es::esNumerico(t), numerico) << caso.texto;
        Currency v;
        EXPECT_EQ(es::intentarMoneda(t, v), numerico) << caso.texto;
        if (numerico) {
            EXPECT_EQ(v, c(caso.valor)) << caso.texto;
        }
    }
    EXPECT_THROW(es::aMoneda(QStringLiteral("abc")), VbError);
    EXPECT_THROW(es::aMoneda(QStringLiteral("99999999999999999999")), VbError);
}

TEST(NumerosEs, WholeNumbersAndMonthNames)
{
    for (const auto& [texto, valor] : {std::pair{" 2026 ", 2026}, {"3x", 3}, {"", 0}, {"-2", -2}})
        EXPECT_EQ(es::valEntero(QString::fromLatin1(texto)), valor) << texto;
    for (const auto& [mes, nombre] : {std::pair{1, "Enero"}, {7, "Julio"}, {12, "Diciembre"}})
        EXPECT_EQ(es::nombreMes(mes), QLatin1String(nombre));
}

// Digits beyond what currency holds are rounded, halves to even, however
// many there are; only a value out of currency's range overflows. The ties
// of long plain fractions are Currency's own and tested with it; here are
// mostly what the Spanish reading adds: exponents, signs, groups.
TEST(NumerosEs, LongNumbersRoundAndOnlyValuesOutOfRangeOverflow)
{
    constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
    const QString ceros40(40, QLatin1Char('0'));
    const std::optional<std::int64_t> overflow;
    const std::pair<QString, std::optional<std::int64_t>> casos[] = {
        {QStringLiteral("0,") + QString(40, QLatin1Char('3')), 3333},
        {QStringLiteral("-0,") + QString(40, QLatin1Char('6')), -6667},
        {QStringLiteral("0,00005") + ceros40 + QStringLiteral("1"), 1},
        {ceros40 + QStringLiteral("1.234,5"), 12345000},
        {QStringLiteral("1") + ceros40 + QStringLiteral("E-40"), 10000},
        {QStringLiteral("3,") + QString(40, QLatin1Char('3')) + QStringLiteral("E2"), 3333333},
        {QStringLiteral("0,") + QString(60, QLatin1Char('0')) + QStringLiteral("1E60"), 1000},
        {QStringLiteral("922.337.203.685.477,5807"), kMax},
        {QStringLiteral("922.337.203.685.477,580749999999999999999999"), kMax},
        {QStringLiteral("922.337.203.685.477,58075"), overflow}, {QStringLiteral("922.337.203.685.477,5808"), overflow},
        {QStringLiteral("-922.337.203.685.477,5808"), kMin}, {QStringLiteral("922.337.203.685.477,5808-"), kMin},
        {QStringLiteral("-922.337.203.685.477,58085"), kMin},   // the tie goes to the even 5808
        {QStringLiteral("-922.337.203.685.477,5809"), overflow},
        {QStringLiteral("9,223372036854775807E14"), kMax}, {QStringLiteral("9,223372036854775808E14"), overflow},
        {QStringLiteral("1E14"), 100000000000000 * 10000LL}, {QStringLiteral("1E15"), overflow},
        {QStringLiteral("1E400"), overflow}, {QStringLiteral("1") + ceros40, overflow},
        {QStringLiteral("5E-5"), 0}, {QStringLiteral("1,5E-4"), 2}, {QStringLiteral("2,5E-4"), 2},
        {QStringLiteral("1E-400"), 0}, {QStringLiteral("0E400"), 0},
    };
    for (const auto& [texto, raw] : casos) {
        SCOPED_TRACE(texto.toStdString());
        Currency v;
        if (raw) {
            ASSERT_TRUE(es::intentarMoneda(texto, v));
            EXPECT_EQ(v.raw(), *raw);
        } else {
            try {
                es::intentarMoneda(texto, v);
                ADD_FAILURE() << "no Overflow";
            } catch (const VbError& e) {
                EXPECT_EQ(e.number(), VbError::Overflow);
            }
        }
        EXPECT_TRUE(es::esNumerico(texto));
    }
}
