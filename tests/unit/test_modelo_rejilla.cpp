#include "grid/ModeloRejilla.h"

#include "common/NumerosEs.h"
#include "ErrorPrueba.h"

#include <QAbstractItemModel>
#include <QItemSelectionModel>
#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include <limits>
#include <set>
#include <utility>

using namespace presupuestos;

namespace {

// A grid with a header row, as the worksheet's grids have.
void prepararHoja(ModeloRejilla& m)
{
    m.setCols(20);
    m.setRows(1);
    m.setFixedRows(1);
    m.setTextMatrix(0, 2, QStringLiteral("Cuenta"));
}

// What the table a view shows announces.
struct Espia {
    int celdas = 0, insertadas = 0, eliminadas = 0, reinicios = 0, seleccion = 0;

    explicit Espia(ModeloRejilla& m)
    {
        QAbstractItemModel* t = &m.tabla();
        QObject::connect(t, &QAbstractItemModel::dataChanged, [this] { ++celdas; });
        QObject::connect(t, &QAbstractItemModel::rowsInserted, [this] { ++insertadas; });
        QObject::connect(t, &QAbstractItemModel::rowsRemoved, [this] { ++eliminadas; });
        QObject::connect(t, &QAbstractItemModel::modelReset, [this] { ++reinicios; });
        QObject::connect(&m, &ModeloRejilla::seleccionCambiada, [this] { ++seleccion; });
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
    EXPECT_EQ(prueba::numeroError([&] { m.setTextMatrix(2, 0, QStringLiteral("x")); }), VbError::SubscriptOutOfRange);
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

TEST(ModeloRejillaRedibujo, WithRedrawOffCellChangesWaitAndAreAnnouncedOnceWhileRowsComeAtOnce)
{
    ModeloRejilla m;
    prepararHoja(m);
    Espia espia(m);
    m.setRedraw(false);
    for (int i = 0; i < 50; ++i) {
        m.AddItem(QStringLiteral("1\tD\t%1").arg(i));
        m.setCellBackColor(m.Rows() - 1, 5, Qt::green);
    }
    EXPECT_EQ(espia.insertadas, 50);
    EXPECT_EQ(espia.celdas, 0);
    m.setRedraw(true);
    EXPECT_EQ(espia.celdas, 1);
    EXPECT_EQ(espia.reinicios, 0);
    EXPECT_EQ(m.tabla().index(49, 5).data(Qt::BackgroundRole).value<QColor>(), QColor(Qt::green));
}

// ---- One selection, shared with the view ----------------------------------------------

TEST(ModeloRejillaSeleccion, RowAndColAreTheFixedEndOfTheSelectionModelsRectangle)
{
    // The selection model is the only selection: the grid's Row/Col and
    // RowSel/ColSel, and the rectangle, are read from it, however it was set.
    ModeloRejilla m;
    prepararHoja(m);
    for (int i = 0; i < 6; ++i)
        m.AddItem(QStringLiteral("a\tb\tc"));
    struct Caso {
        const char* que;
        std::function<void()> hacer;
        int fila, col, filaSel, colSel;
        ModeloRejilla::Rectangulo rect;
    } casos[] = {
        {"one cell", [&] { m.Select(2, 1); }, 2, 1, 2, 1, {2, 1, 2, 1}},
        {"extended downwards", [&] { m.Select(2, 1, 4, 3); }, 2, 1, 4, 3, {2, 1, 4, 3}},
        {"extended upwards", [&] { m.Select(5, 3, 3, 0); }, 5, 3, 3, 0, {3, 0, 5, 3}},
        {"the selection model's own select-all keeps the current cell inside",
         [&] {
             m.Select(3, 2);
             m.seleccion().select(QItemSelection(m.tabla().index(0, 0), m.tabla().index(5, 19)), QItemSelectionModel::ClearAndSelect);
         },
         3, 2, 3, 2, {1, 0, 6, 19}},
        {"a header row has no cursor", [&] { m.Select(0, 2); }, -1, -1, -1, -1, {}},
    };
    for (const Caso& c : casos) {
        c.hacer();
        EXPECT_EQ(m.Row(), c.fila) << c.que;
        EXPECT_EQ(m.Col(), c.col) << c.que;
        EXPECT_EQ(m.RowSel(), c.filaSel) << c.que;
        EXPECT_EQ(m.ColSel(), c.colSel) << c.que;
        const ModeloRejilla::Rectangulo r = m.Seleccion();
        EXPECT_EQ(std::tie(r.fila1, r.col1, r.fila2, r.col2), std::tie(c.rect.fila1, c.rect.col1, c.rect.fila2, c.rect.col2))
            << c.que;
    }
}

// ---- Cells kept as numbers ------------------------------------------------------------

TEST(ModeloRejillaAlmacen, EveryTextReadsBackAsWrittenAndSumsAsTheWorksheetReadsIt)
{
    // A text that only looks like an amount (a leading zero, a missing or
    // misplaced point, a minus zero) must come back unchanged, and read as a
    // term of a sum as the worksheet's own text-to-amount conversion reads it.
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

    }
}

TEST(ModeloRejillaAlmacen, ColoursSurviveManyDistinctOnes)
{
    ModeloRejilla m;
    m.setCols(2);
    m.setRows(1);
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
