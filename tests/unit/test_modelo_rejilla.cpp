#include "grid/ModeloRejilla.h"

#include "common/NumerosEs.h"
#include "common/VbError.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <utility>

using namespace presupuestos;
using Pos = ModeloRejilla::PosicionSubtotal;

namespace {

const QString kFormato = QStringLiteral("#,0.00");
const QColor kAzul(190, 228, 245);

// A worksheet-shaped grid: header row, department name in column 1, months
// in 4..15, row total in 16.
void prepararHoja(ModeloRejilla& m)
{
    m.setCols(20);
    m.setRows(1);
    m.setFixedRows(1);
    m.setTextMatrix(0, 2, QStringLiteral("Cuenta"));
}

// Adds an account row with the given January (column 4) text.
int cuenta(ModeloRejilla& m, const QString& dpto, const QString& codigo, const QString& enero)
{
    m.AddItem(QStringLiteral("1\t%1\t%2\tNombre").arg(dpto, codigo));
    const int r = m.Rows() - 1;
    m.setTextMatrix(r, 4, enero);
    return r;
}

// What the worksheet does after a load, and for a column after an edit:
// department subtotals below each department, and a grand total above
// everything for several departments.
void refrescarColumna(ModeloRejilla& m, int c, bool granTotal)
{
    m.setSubtotalPosition(Pos::Debajo);
    m.Subtotal(1, c, kFormato, kAzul);
    if (granTotal) {
        m.setSubtotalPosition(Pos::Encima);
        m.Subtotal(-1, c, kFormato);
    }
}

void crearTotales(ModeloRejilla& m, bool granTotal)
{
    for (int c = 4; c <= 16; ++c)
        refrescarColumna(m, c, granTotal);
}

std::vector<int> filasSubtotal(const ModeloRejilla& m)
{
    std::vector<int> filas;
    for (int r = 0; r < m.Rows(); ++r)
        if (m.IsSubtotal(r))
            filas.push_back(r);
    return filas;
}

// Three departments: Ventas (2 rows), Almacén (1 row), Oficina (2 rows).
void tresDepartamentos(ModeloRejilla& m)
{
    prepararHoja(m);
    cuenta(m, QStringLiteral("Ventas"), QStringLiteral("700000"), QStringLiteral("1.234,50"));
    cuenta(m, QStringLiteral("Ventas"), QStringLiteral("700001"), QStringLiteral("100"));
    cuenta(m, QStringLiteral("Almacén"), QStringLiteral("600000"), QStringLiteral("-200,25"));
    cuenta(m, QStringLiteral("Oficina"), QStringLiteral("620000"), QStringLiteral("abc"));
    cuenta(m, QStringLiteral("Oficina"), QStringLiteral("621000"), QStringLiteral("10"));
}

struct Espia {
    int celdas = 0, insertadas = 0, eliminadas = 0, reinicios = 0, forma = 0, seleccion = 0, textos = 0;
    std::set<std::pair<int, int>> celdasTocadas;

    explicit Espia(ModeloRejilla& m)
    {
        QObject::connect(&m, &ModeloRejilla::celdasCambiadas, [this](int f1, int c1, int f2, int c2) {
            ++celdas;
            for (int f = f1; f <= f2; ++f)
                for (int c = c1; c <= c2; ++c)
                    celdasTocadas.insert({f, c});
        });
        QObject::connect(&m, &ModeloRejilla::filasInsertadas, [this] { ++insertadas; });
        QObject::connect(&m, &ModeloRejilla::filasEliminadas, [this] { ++eliminadas; });
        QObject::connect(&m, &ModeloRejilla::reiniciado, [this] { ++reinicios; });
        QObject::connect(&m, &ModeloRejilla::formaCambiada, [this] { ++forma; });
        QObject::connect(&m, &ModeloRejilla::seleccionCambiada, [this] { ++seleccion; });
        QObject::connect(&m, &ModeloRejilla::textoCambiado, [this] { ++textos; });
    }
};

} // namespace

// ---- Cells, shape and range text -------------------------------------------------

TEST(ModeloRejillaCeldas, CellsOutsideTheGridRaiseSubscriptErrors)
{
    // A paste that runs past the last row must fail there, not write elsewhere.
    ModeloRejilla m;
    m.setCols(2);
    m.setRows(2);
    try {
        m.setTextMatrix(2, 0, QStringLiteral("x"));
        FAIL() << "no error";
    } catch (const VbError& e) {
        EXPECT_EQ(e.number(), VbError::SubscriptOutOfRange);
    }
    EXPECT_THROW(m.TextMatrix(0, 2), VbError);
    EXPECT_THROW(m.TextMatrix(-1, 0), VbError);
    EXPECT_THROW(m.setCellBackColor(0, 0, 5, 0, Qt::red), VbError);
}

TEST(ModeloRejillaCeldas, ClipJoinsCellsWithTabsAndRowsWithCrLfWhateverTheBoundsOrder)
{
    ModeloRejilla m;
    m.setCols(3);
    m.AddItem(QStringLiteral("a\tb\tc"));
    m.AddItem(QStringLiteral("d\t\tf"));
    m.setRowHidden(1, true);
    EXPECT_EQ(m.Clip(0, 0, 1, 2), QStringLiteral("a\tb\tc\r\nd\t\tf"));
    EXPECT_EQ(m.Clip(1, 2, 0, 1), QStringLiteral("b\tc\r\n\tf"));
    EXPECT_EQ(m.Clip(0, 1, 0, 1), QStringLiteral("b"));

    ModeloRejilla vacia;
    EXPECT_EQ(vacia.Clip(vacia.Row(), vacia.Col(), vacia.RowSel(), vacia.ColSel()), QString());
    EXPECT_THROW(m.Clip(0, 0, 2, 0), VbError);
}

// ---- Cursor and selection -----------------------------------------------------------

TEST(ModeloRejillaSeleccion, ALoadFromTheHeaderPutsTheCursorOnTheFirstDataRowAndShrinkingKeepsItInside)
{
    ModeloRejilla m;
    prepararHoja(m);
    EXPECT_EQ(m.Row(), -1) << "no data row yet";
    Espia espia(m);
    m.AddItem(QStringLiteral("a"));
    m.AddItem(QStringLiteral("b"));
    EXPECT_EQ(m.Row(), 1);
    EXPECT_EQ(espia.seleccion, 1) << "announced once, when it moved";
    m.setRow(2);
    m.setRows(2);
    EXPECT_EQ(m.Row(), 1);
    m.setRows(1);
    EXPECT_EQ(m.Row(), -1);
}

// ---- Redraw ------------------------------------------------------------------------

TEST(ModeloRejillaRedibujo, ALoadWithRedrawOffAnnouncesOneResetOnly)
{
    ModeloRejilla m;
    prepararHoja(m);
    Espia espia(m);
    m.setRedraw(false);
    m.setRows(1);
    for (int i = 0; i < 50; ++i) {
        const int r = cuenta(m, QStringLiteral("D"), QString::number(i), QStringLiteral("5"));
        m.setCellBackColor(r, 5, Qt::green);
        m.setRowHidden(r, i % 2 == 0);
    }
    crearTotales(m, true);
    EXPECT_EQ(espia.reinicios, 0);
    m.setRedraw(true);
    EXPECT_EQ(espia.reinicios, 1);
    EXPECT_EQ(espia.celdas + espia.insertadas + espia.eliminadas + espia.forma, 0);
    EXPECT_GT(espia.textos, 50) << "text changes are still reported for colouring";
}

// ---- Subtotal placement ----------------------------------------------------------

TEST(ModeloRejillaSubtotales, OneDepartmentGetsOneSubtotalBelowAndAGrandTotalAboveWhenAsked)
{
    ModeloRejilla m;
    prepararHoja(m);
    cuenta(m, QStringLiteral("Ventas"), QStringLiteral("700000"), QStringLiteral("10"));
    cuenta(m, QStringLiteral("Ventas"), QStringLiteral("700001"), QStringLiteral("5"));

    crearTotales(m, false);
    ASSERT_EQ(m.Rows(), 4);
    EXPECT_EQ(filasSubtotal(m), std::vector<int>{3});
    EXPECT_EQ(m.SubtotalGroupColumn(3), 1);
    EXPECT_EQ(m.SubtotalGroupColumn(2), -2);
    EXPECT_EQ(m.TextMatrix(3, 1), QStringLiteral("Ventas"));
    EXPECT_EQ(m.TextMatrix(3, 4), QStringLiteral("15,00"));
    EXPECT_EQ(m.TextMatrix(3, 5), QStringLiteral("0,00"));
    EXPECT_EQ(m.CellBackColor(3, 0), kAzul) << "the whole row takes the colour";
    EXPECT_EQ(m.CellBackColor(3, 19), kAzul);

    m.setSubtotalPosition(Pos::Encima);
    m.Subtotal(-1, 4, kFormato);
    ASSERT_EQ(m.Rows(), 5);
    EXPECT_EQ(m.SubtotalGroupColumn(1), -1);
    EXPECT_EQ(m.TextMatrix(1, 1), QStringLiteral("Total general"));
    EXPECT_EQ(m.TextMatrix(1, 4), QStringLiteral("15,00")) << "the department subtotal is not counted again";
    EXPECT_FALSE(m.CellBackColor(1, 4).isValid()) << "no colour given, default colours";
    EXPECT_EQ(m.TextMatrix(4, 4), QStringLiteral("15,00"));
    EXPECT_EQ(m.TextMatrix(0, 2), QStringLiteral("Cuenta")) << "the header stays on top";
}

TEST(ModeloRejillaSubtotales, RepeatedCallsReuseTheRowsRecountNothingTwiceAndKeepTheCursorOnItsAccount)
{
    ModeloRejilla m;
    tresDepartamentos(m);
    m.Select(4, 4);   // Oficina 620000
    crearTotales(m, true);
    EXPECT_EQ(m.TextMatrix(m.Row(), 2), QStringLiteral("620000"));
    const QString antes = m.Clip(0, 0, m.Rows() - 1, 19);
    crearTotales(m, true);
    crearTotales(m, true);
    EXPECT_EQ(m.Rows(), 10);
    EXPECT_EQ(m.Clip(0, 0, m.Rows() - 1, 19), antes);

    ModeloRejilla sinCuentas;
    prepararHoja(sinCuentas);
    crearTotales(sinCuentas, true);
    EXPECT_EQ(sinCuentas.Rows(), 1) << "no account rows, no subtotal rows";
}

TEST(ModeloRejillaSubtotales, CaptionPatternAndGroupsAboveTheirRows)
{
    ModeloRejilla m;
    tresDepartamentos(m);
    m.setSubtotalPosition(Pos::Encima);
    m.Subtotal(1, 4, kFormato, QColor(), QStringLiteral("Total %s"));
    EXPECT_EQ(filasSubtotal(m), (std::vector<int>{1, 4, 6}));
    EXPECT_EQ(m.TextMatrix(1, 1), QStringLiteral("Total Ventas"));
    EXPECT_EQ(m.TextMatrix(6, 4), QStringLiteral("10,00"));
    EXPECT_EQ(m.TextMatrix(7, 2), QStringLiteral("620000"));
}

// ---- Sums that follow single-cell changes -------------------------------------------

TEST(ModeloRejillaSumas, AChangedCellMovesItsSubtotalsByTheDifferenceWithoutRereadingTheGrid)
{
    ModeloRejilla m;
    tresDepartamentos(m);
    crearTotales(m, true);
    const long long trasCrear = m.celdasSumadas();
    EXPECT_GE(trasCrear, 2 * 13 * 5) << "creation reads every account cell per grouping";

    // Ventas 700001, January: 100 -> 1.000,75
    m.setTextMatrix(3, 4, QStringLiteral("1.000,75"));
    EXPECT_EQ(m.celdasSumadas() - trasCrear, 2) << "old and new text, once for both groupings";
    EXPECT_EQ(m.TextMatrix(4, 4), QStringLiteral("1.334,50")) << "written only on refresh";

    Espia espia(m);
    refrescarColumna(m, 4, true);
    EXPECT_EQ(m.celdasSumadas() - trasCrear, 2) << "the refresh reads no cell";
    EXPECT_EQ(m.TextMatrix(4, 4), QStringLiteral("2.235,25"));
    EXPECT_EQ(m.TextMatrix(1, 4), QStringLiteral("2.045,00"));
    EXPECT_EQ(espia.celdasTocadas, (std::set<std::pair<int, int>>{{4, 4}, {1, 4}}))
        << "only the department subtotal and the grand total are rewritten";
    EXPECT_EQ(m.TextMatrix(6, 4), QStringLiteral("-200,25"));
}

TEST(ModeloRejillaSumas, ChangesToNegativesAndNonNumbersFollowTheSameRules)
{
    ModeloRejilla m;
    tresDepartamentos(m);
    crearTotales(m, true);
    m.setTextMatrix(7, 4, QStringLiteral("-1.000"));   // Oficina "abc" -> -1.000
    m.setTextMatrix(5, 4, QStringLiteral("n/a"));      // Almacén -200,25 -> n/a
    m.setTextMatrix(2, 16, QStringLiteral("7,5"));     // a total cell, another column
    refrescarColumna(m, 4, true);
    refrescarColumna(m, 16, true);
    EXPECT_EQ(m.TextMatrix(9, 4), QStringLiteral("-990,00"));
    EXPECT_EQ(m.TextMatrix(6, 4), QStringLiteral("0,00"));
    EXPECT_EQ(m.TextMatrix(1, 4), QStringLiteral("344,50"));
    EXPECT_EQ(m.TextMatrix(4, 16), QStringLiteral("7,50"));
    EXPECT_EQ(m.TextMatrix(1, 16), QStringLiteral("7,50"));

    // The kept sums agree with summing from scratch on a fresh grid.
    ModeloRejilla fresca;
    prepararHoja(fresca);
    for (int r = 1; r < m.Rows(); ++r) {
        if (m.IsSubtotal(r))
            continue;
        fresca.AddItem(m.Clip(r, 0, r, 19));
    }
    crearTotales(fresca, true);
    EXPECT_EQ(fresca.Clip(0, 0, fresca.Rows() - 1, 19), m.Clip(0, 0, m.Rows() - 1, 19));
}

TEST(ModeloRejillaSumas, WritingIntoSubtotalRowsOrUnsummedColumnsLeavesTheSumsAlone)
{
    ModeloRejilla m;
    tresDepartamentos(m);
    crearTotales(m, true);
    const long long antes = m.celdasSumadas();
    m.setTextMatrix(4, 3, m.TextMatrix(4, 1));   // caption copied into the name column
    m.setTextMatrix(2, 17, QStringLiteral("6"));
    EXPECT_EQ(m.celdasSumadas(), antes);
    m.setTextMatrix(4, 4, QStringLiteral("0"));   // a subtotal cell: not counted anywhere
    refrescarColumna(m, 4, true);
    EXPECT_EQ(m.TextMatrix(1, 4), QStringLiteral("1.144,25"));
    EXPECT_EQ(m.celdasSumadas(), antes);
}

// ---- Cells kept as numbers ------------------------------------------------------------

TEST(ModeloRejillaAlmacen, EveryTextReadsBackAsWrittenAndSumsAsTheWorksheetReadsIt)
{
    // Amounts are kept as numbers; a text that only looks like one (a
    // leading zero, a missing or misplaced point, a minus zero) must still
    // come back unchanged, and sums must agree with the worksheet's own
    // text-to-amount conversion, whatever shape the text has.
    const QStringList textos = {
        QStringLiteral("1.234,50"), QStringLiteral("1234,50"), QStringLiteral("-1.234,5"), QStringLiteral("-1.234"),
        QStringLiteral("0,00"), QStringLiteral("-0,00"), QStringLiteral("-0"), QStringLiteral("007"),
        QStringLiteral("1.23"), QStringLiteral("12.34.567"), QStringLiteral("12.345.678"), QStringLiteral("123"),
        QStringLiteral("0,5"), QStringLiteral("0,0001"), QStringLiteral(",5"), QStringLiteral("5,"), QStringLiteral("-,25"),
        QStringLiteral("1,2345"), QStringLiteral("1,23456"), QStringLiteral(" 12 "), QStringLiteral(" 12"),
        QStringLiteral("+3"), QStringLiteral("4-"), QStringLiteral("1e3"), QStringLiteral("2,5E-1"),
        QStringLiteral("1..2"), QStringLiteral(".5"), QStringLiteral("5."), QStringLiteral("-"), QStringLiteral(","),
        QStringLiteral(""), QStringLiteral("abc"), QStringLiteral("Ventas"), QStringLiteral("12a"), QStringLiteral("1,2,3"),
        QStringLiteral("--1"), QStringLiteral("1.000,"), QStringLiteral("5%"), QStringLiteral("10 €"),
        QStringLiteral("#¡NUM!"), QString::fromUtf8("\xd9\xa3"), QStringLiteral("99999999999999"),
        QStringLiteral("99.999.999.999.999"), QStringLiteral("123456789012345,5"), QStringLiteral("922.337.203.685.477,5807"),
    };
    ModeloRejilla celda;   // one cell written over with each text in turn
    celda.setCols(1);
    celda.setRows(1);
    for (const QString& t : textos) {
        SCOPED_TRACE(t.toStdString());
        celda.setTextMatrix(0, 0, t);
        EXPECT_EQ(celda.TextMatrix(0, 0), t);
        bool desbordadaTexto = false, desbordadaCelda = false;
        EXPECT_EQ(celda.ValorMatrix(0, 0, &desbordadaCelda), ModeloRejilla::ValorSuma(t, &desbordadaTexto));
        EXPECT_EQ(desbordadaCelda, desbordadaTexto);

        ModeloRejilla m;
        prepararHoja(m);
        cuenta(m, QStringLiteral("D"), QStringLiteral("1"), t);
        m.AddItem(QStringList{QString(), QStringLiteral("D"), QStringLiteral("2"), QString(), QString(), t});
        EXPECT_EQ(m.TextMatrix(1, 4), t);
        EXPECT_EQ(m.Clip(2, 5, 2, 5), t);
        m.Subtotal(1, 4, QStringLiteral("0.0000"));
        Currency esperado;
        if (!es::intentarMoneda(t, esperado))
            esperado = Currency();
        EXPECT_EQ(m.TextMatrix(3, 4),
                  desbordadaTexto ? ModeloRejilla::MarcaDesbordamiento() : es::formatear(esperado, QStringLiteral("0.0000")));
    }
}

TEST(ModeloRejillaAlmacen, ATypedRowReadsAsTheFormattedTextsAndSumsWhatTheyShow)
{
    // The loader gives amounts with the worksheet's format instead of texts;
    // the grid must show, copy and sum exactly what the texts would be.
    for (const QString& formato : {QStringLiteral("#,0"), QStringLiteral("#,0.00"), QStringLiteral("0.0000"),
                                   QStringLiteral("#,0.000000"), QStringLiteral("0%")}) {
        const es::FormatoNumerico f = es::leerFormato(formato);
        ModeloRejilla tipada, texto;
        for (ModeloRejilla* m : {&tipada, &texto}) {
            prepararHoja(*m);
        }
        const std::int64_t valores[] = {0, 1, 5, 49, 50, -50, -5000, 12345678, -12345678, 99999, 4, -4,
                                        std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()};
        for (std::int64_t v : valores) {
            std::vector<ValorCelda> fila(20);
            fila[1] = ValorCelda::texto(QStringLiteral("Tienda"));
            fila[4] = ValorCelda::importe(v, f);
            tipada.AddItem(fila);
            texto.AddItem(QStringLiteral("\tTienda\t\t\t") + es::formatear(Currency::fromRaw(v), formato));
        }
        tipada.Subtotal(1, 4, formato);
        texto.Subtotal(1, 4, formato);
        ASSERT_EQ(tipada.Rows(), texto.Rows());
        for (int r = 1; r < tipada.Rows(); ++r) {
            EXPECT_EQ(tipada.TextMatrix(r, 4), texto.TextMatrix(r, 4)) << formato.toStdString() << " fila " << r;
            EXPECT_EQ(tipada.TextMatrix(r, 1), texto.TextMatrix(r, 1));
        }
        // Out of the currency's range a typed total shows the mark.
        std::vector<ValorCelda> fila(20);
        fila[4] = ValorCelda::importe(Suma(std::numeric_limits<std::int64_t>::max()) * 2, f);
        tipada.AddItem(fila);
        EXPECT_EQ(tipada.TextMatrix(tipada.Rows() - 1, 4), ModeloRejilla::MarcaDesbordamiento());
    }
}

TEST(ModeloRejillaAlmacen, SameTextInAnotherShapeIsNoChangeAndColoursSurviveManyDistinctOnes)
{
    ModeloRejilla m;
    m.setCols(2);
    m.setRows(1);
    int cambios = 0;
    QObject::connect(&m, &ModeloRejilla::textoCambiado, [&] { ++cambios; });
    // "5" kept from a typed load as text and written again as a number is
    // the same content: no change is announced, as before.
    m.AddItem(std::vector<ValorCelda>{ValorCelda::texto(QStringLiteral("5")), ValorCelda::importe(1234500, es::leerFormato(QStringLiteral("0.00")))});
    m.setTextMatrix(1, 0, QStringLiteral("5"));
    m.setTextMatrix(1, 1, QStringLiteral("123,45"));
    EXPECT_EQ(cambios, 0);
    m.setTextMatrix(1, 1, QStringLiteral("123,46"));
    EXPECT_EQ(cambios, 1);

    // The palette holds 255 colours; past that the nearest stands in, and the
    // default stays the default.
    for (int i = 0; i < 300; ++i)
        m.setCellBackColor(0, 0, QColor(i % 256, i / 256, 7));
    m.setCellBackColor(0, 1, QColor(10, 0, 7));
    EXPECT_EQ(m.CellBackColor(0, 1), QColor(10, 0, 7));
    m.setCellBackColor(0, 1, QColor(44, 1, 9));
    EXPECT_EQ(m.CellBackColor(0, 1), QColor(44, 0, 7));
    m.setCellBackColor(0, 1, QColor());
    EXPECT_FALSE(m.CellBackColor(0, 1).isValid());
}

TEST(ModeloRejillaAlmacen, ReloadsDoNotKeepThePreviousLoadsTexts)
{
    // Each load of a worksheet writes new names; shrinking to the header
    // must let the ones no cell holds go, while the header keeps its own.
    ModeloRejilla m;
    m.setCols(2);
    m.setRows(1);
    m.setTextMatrix(0, 0, QStringLiteral("Cuenta"));
    for (int carga = 0; carga < 20; ++carga) {
        m.setRows(1);
        for (int i = 0; i < 500; ++i)
            m.AddItem(QStringLiteral("c%1-%2\tn").arg(carga).arg(i));
    }
    EXPECT_EQ(m.TextMatrix(0, 0), QStringLiteral("Cuenta"));
    EXPECT_EQ(m.TextMatrix(500, 0), QStringLiteral("c19-499"));
    EXPECT_EQ(m.TextMatrix(500, 1), QStringLiteral("n"));
}
