#include "BaseDatosPrueba.h"
#include "common/VbError.h"
#include "worksheet/core/LectorPortapapeles.h"

#include <gtest/gtest.h>

using namespace presupuestos;
using presupuestos::prueba::numeroError;

namespace {
std::optional<LectorPortapapeles::Bloque> leer(const QString& texto, int decimales = 4, int maxLineas = 1000, int maxCampos = 12)
{
    return LectorPortapapeles::leer(texto, decimales, maxLineas, maxCampos);
}
} // namespace

TEST(LectorPortapapeles, NumbersFollowSpanishRulesAndLineEndings)
{
    const auto v = leer(QStringLiteral("1.500\t1,25\t  -3 \r\n\t1.234,56\t\r\n"), 1);
    ASSERT_TRUE(v.has_value());
    ASSERT_EQ(v->lineas, 2);
    ASSERT_EQ(v->ancho, 3);
    EXPECT_EQ(v->valores[0][0], Currency::fromInt(1500));
    EXPECT_EQ(v->valores[0][1].raw(), 12000);   // 1,25 to one decimal, halves to even
    EXPECT_EQ(v->valores[0][2], Currency::fromInt(-3));
    EXPECT_EQ(v->valores[1][0], Currency());
    EXPECT_EQ(v->valores[1][1].raw(), 12346000);

    // Lines ended by a bare line feed, as LibreOffice Calc copies them here.
    const auto lf = leer(QStringLiteral("1\t2\n3\t4\n"));
    ASSERT_TRUE(lf.has_value());
    ASSERT_EQ(lf->lineas, 2);
    EXPECT_EQ(lf->valores[1][1], Currency::fromInt(4));

    // A blank is a field holding zero; no text at all is nothing to paste.
    const auto blanco = leer(QStringLiteral(" "));
    ASSERT_TRUE(blanco.has_value());
    EXPECT_TRUE(blanco->unValor());
    EXPECT_EQ(blanco->valores[0][0], Currency());
    EXPECT_FALSE(leer(QString()).has_value());
}

TEST(LectorPortapapeles, OneBadFieldCancelsAndAShortLineIsASubscriptError)
{
    for (const char* texto : {"1\tn/a\r\n", "5\r\nabc", "1,5.3x", "1\t2\t3\r\n4\t5\t6\t\r\n7\tx"})
        EXPECT_FALSE(leer(QString::fromLatin1(texto)).has_value()) << texto;
    // A field past what can be written is still read, and still cancels.
    EXPECT_FALSE(leer(QStringLiteral("1\t2\tx"), 4, 1, 1).has_value());
    EXPECT_FALSE(leer(QStringLiteral("1\r\n2\r\nx"), 4, 1, 1).has_value());
    EXPECT_EQ(numeroError([] { leer(QStringLiteral("1\t2\r\n3")); }), VbError::SubscriptOutOfRange);
}

TEST(LectorPortapapeles, MemoryFollowsTheCellsThatCanBeWrittenNotTheTextsShape)
{
    // Thousands of tabs and then thousands of line feeds: a matrix of the
    // text's shape would take gigabytes before the short second line is seen.
    const QString tabulados = QString(16000, QLatin1Char('\t')) + QString(16000, QLatin1Char('\n'));
    EXPECT_EQ(numeroError([&] { leer(tabulados, 0, 3, 2); }), VbError::SubscriptOutOfRange);

    // Wide lines and many lines are read whole but only what can be written is kept.
    QString ancha = QStringLiteral("1");
    for (int i = 0; i < 5000; ++i)
        ancha += QStringLiteral("\t2");
    QString texto;
    for (int i = 0; i < 3000; ++i)
        texto += ancha + QStringLiteral("\n");
    const auto v = leer(texto, 0, 10, 2);
    ASSERT_TRUE(v.has_value());
    EXPECT_EQ(v->lineas, 3000);
    EXPECT_EQ(v->ancho, 5001);
    ASSERT_EQ(v->valores.size(), 10u);
    ASSERT_EQ(v->valores[9].size(), 2u);
    EXPECT_EQ(v->valores[9][1], Currency::fromInt(2));
}
