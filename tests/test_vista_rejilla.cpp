#include "EventosPrueba.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/core/RejillaPresupuesto.h"

#include <QApplication>
#include <QHeaderView>
#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

using namespace presupuestos;
using namespace presupuestos::prueba;

namespace {

// A shown grid of 5 columns: header row 0, data rows 1..filas.
std::unique_ptr<VistaRejilla> rejilla(int filas = 8)
{
    auto v = std::make_unique<VistaRejilla>(QStringLiteral("vsPresupuesto"));
    ModeloRejilla& m = v->modelo();
    m.setCols(5);
    m.setRows(1);
    m.setFixedRows(1);
    for (int c = 0; c < 5; ++c)
        m.setTextMatrix(0, c, QStringLiteral("C%1").arg(c));
    for (int r = 1; r <= filas; ++r)
        m.AddItem(QStringLiteral("%1\tx%1\t%1,5\t\t").arg(r));
    v->resize(500, 220);
    v->show();
    QApplication::processEvents();
    return v;
}

} // namespace

// ---- Presentation ---------------------------------------------------------------------

TEST(VistaRejillaPresentacion, RowZeroIsTheHeaderAndDataRowsFollowTheFixedRows)
{
    auto v = rejilla(3);
    QAbstractItemModel* a = v->model();
    EXPECT_EQ(a->rowCount(), 3);
    EXPECT_EQ(a->columnCount(), 5);
    EXPECT_EQ(a->headerData(2, Qt::Horizontal).toString(), QStringLiteral("C2"));
    EXPECT_EQ(a->index(0, 1).data().toString(), QStringLiteral("x1"));
    EXPECT_TRUE(v->horizontalHeader()->isVisible());

    v->modelo().setTextMatrix(0, 2, QStringLiteral("Enero"));
    v->modelo().setTextMatrix(3, 1, QStringLiteral("y"));
    EXPECT_EQ(a->headerData(2, Qt::Horizontal).toString(), QStringLiteral("Enero"));
    EXPECT_EQ(a->index(2, 1).data().toString(), QStringLiteral("y"));

    v->modelo().setFixedRows(0);   // a filter grid: no header at all
    EXPECT_EQ(a->rowCount(), 4);
    EXPECT_FALSE(v->horizontalHeader()->isVisible());
}

TEST(VistaRejillaPresentacion, HiddenRowsColumnsAndWidthsFollowTheModelAcrossResets)
{
    auto v = rejilla(6);
    ModeloRejilla& m = v->modelo();
    m.setRowHidden(3, true);
    m.setColHidden(0, true);
    m.setColWidth(1, 1500);
    EXPECT_TRUE(v->isRowHidden(2));
    EXPECT_FALSE(v->isRowHidden(3));
    EXPECT_TRUE(v->isColumnHidden(0));
    EXPECT_EQ(v->columnWidth(1), 100);

    m.setRedraw(false);
    m.setRowHidden(5, true);
    m.setRowHidden(3, false);
    m.setRedraw(true);
    EXPECT_TRUE(v->isRowHidden(4));
    EXPECT_FALSE(v->isRowHidden(2));
    EXPECT_EQ(v->columnWidth(1), 100) << "widths survive the reset";
    EXPECT_TRUE(v->isColumnHidden(0));

    v->horizontalHeader()->resizeSection(2, 80);   // as the user drags the border
    EXPECT_EQ(m.ColWidth(2), 1200);
    m.setColHidden(1, true);
    EXPECT_EQ(m.ColWidth(1), 1500) << "hiding is not a resize";
    m.setColWidth(1, -1);
    m.setColHidden(1, false);
    EXPECT_EQ(v->columnWidth(1), v->horizontalHeader()->defaultSectionSize());
}

// ---- Current cell ---------------------------------------------------------------------

TEST(VistaRejillaCursor, TheModelsCursorMovesTheViewAndRaisesRowColChangeOnce)
{
    auto v = rejilla();
    ModeloRejilla& m = v->modelo();
    QSignalSpy cambios(v.get(), &VistaRejilla::RowColChange), seleccion(&m, &ModeloRejilla::seleccionCambiada);

    m.Select(3, 2);
    EXPECT_EQ(v->currentIndex(), v->model()->index(2, 2));
    EXPECT_EQ(cambios.count(), 1);
    EXPECT_EQ(seleccion.count(), 1) << "the view's answer does not come back to the model";

    m.Select(3, 2, 5, 4);
    EXPECT_EQ(cambios.count(), 1) << "extending the selection keeps the cursor";
    EXPECT_TRUE(v->seleccionExtendida());
    EXPECT_EQ(v->selectionModel()->selectedIndexes().size(), 9);
}

TEST(VistaRejillaCursor, TheViewsCurrentCellAndSelectionReachTheModel)
{
    auto v = rejilla();
    ModeloRejilla& m = v->modelo();
    QSignalSpy cambios(v.get(), &VistaRejilla::RowColChange);

    v->setCurrentIndex(v->model()->index(4, 3));
    EXPECT_EQ(m.Row(), 5);
    EXPECT_EQ(m.Col(), 3);
    EXPECT_EQ(cambios.count(), 1);

    clic(*v, 2, 1);
    EXPECT_EQ(m.Row(), 2);
    EXPECT_EQ(m.Col(), 1);
    EXPECT_FALSE(v->seleccionExtendida());
    EXPECT_EQ(cambios.count(), 2) << "a click moves the cursor once";

    // Shift+Down twice extends from the cursor, which stays where it was.
    tecla(v.get(), Qt::Key_Down, Qt::ShiftModifier);
    tecla(v.get(), Qt::Key_Down, Qt::ShiftModifier);
    EXPECT_EQ(m.Row(), 2);
    EXPECT_EQ(m.RowSel(), 4);
    EXPECT_EQ(m.ColSel(), 1);
    EXPECT_EQ(cambios.count(), 2);
}

TEST(VistaRejillaCursor, MouseEventsCarryButtonsAndCellsAndARightClickKeepsTheSelection)
{
    auto v = rejilla();
    ModeloRejilla& m = v->modelo();
    m.Select(1, 1, 3, 2);
    QStringList registro;
    const auto anotar = [&](const char* que) {
        return [&, que](int boton, int, int x, int y) {
            registro << QStringLiteral("%1 %2 %3,%4").arg(QLatin1String(que)).arg(boton)
                            .arg(v->filaEn(QPoint(x, y))).arg(v->colEn(QPoint(x, y)));
        };
    };
    QObject::connect(v.get(), &VistaRejilla::MouseDown, anotar("Down"));
    QObject::connect(v.get(), &VistaRejilla::MouseMove, anotar("Move"));
    QObject::connect(v.get(), &VistaRejilla::DblClick, [&] { registro << QStringLiteral("Dbl"); });

    raton(*v, QEvent::MouseMove, Qt::NoButton, v->rectCelda(4, 3).center());
    clic(*v, 5, 4, Qt::RightButton);
    EXPECT_EQ(m.Row(), 1);
    EXPECT_EQ(m.RowSel(), 3);
    EXPECT_TRUE(v->seleccionExtendida());

    const QPoint p = v->rectCelda(2, 1).center();
    raton(*v, QEvent::MouseButtonPress, Qt::LeftButton, p);
    raton(*v, QEvent::MouseButtonRelease, Qt::LeftButton, p);
    raton(*v, QEvent::MouseButtonDblClick, Qt::LeftButton, p);
    raton(*v, QEvent::MouseButtonRelease, Qt::LeftButton, p);
    EXPECT_EQ(registro, (QStringList{QStringLiteral("Move 0 4,3"), QStringLiteral("Down 2 5,4"),
                                     QStringLiteral("Down 1 2,1"), QStringLiteral("Dbl")}));
    EXPECT_EQ(editorAbierto(*v), nullptr) << "not editable: a double click opens no editor";
}

// ---- Editing ---------------------------------------------------------------------------

TEST(VistaRejillaEdicion, BeforeEditMayCancelAndANonEditableGridNeverAsks)
{
    auto v = rejilla();
    ModeloRejilla& m = v->modelo();
    m.Select(2, 2);
    int preguntas = 0;
    QObject::connect(v.get(), &VistaRejilla::BeforeEdit, [&](int fila, int col, bool& cancelar) {
        ++preguntas;
        EXPECT_EQ(fila, 2);
        EXPECT_EQ(col, 2);
        cancelar = true;
    });

    tecla(v.get(), Qt::Key_5, Qt::NoModifier, QStringLiteral("5"));
    EXPECT_EQ(preguntas, 0);
    EXPECT_EQ(editorAbierto(*v), nullptr);

    v->setEditable(true);
    tecla(v.get(), Qt::Key_5, Qt::NoModifier, QStringLiteral("5"));
    tecla(v.get(), Qt::Key_F2);
    EXPECT_EQ(preguntas, 2);
    EXPECT_EQ(editorAbierto(*v), nullptr);
    EXPECT_EQ(m.TextMatrix(2, 2), QStringLiteral("2,5"));
    EXPECT_EQ(m.Row(), 2) << "a refused key does not search for a row";
}

TEST(VistaRejillaEdicion, EscapeAbandonsTheEditWithoutAfterEdit)
{
    auto v = rejilla();
    v->setEditable(true);
    v->modelo().Select(1, 1);
    QSignalSpy despues(v.get(), &VistaRejilla::AfterEdit);
    tecla(v.get(), Qt::Key_9, Qt::NoModifier, QStringLiteral("9"));
    ASSERT_NE(editorAbierto(*v), nullptr);
    tecla(editorAbierto(*v), Qt::Key_Escape);
    QApplication::processEvents();
    EXPECT_EQ(despues.count(), 0);
    EXPECT_EQ(v->modelo().TextMatrix(1, 1), QStringLiteral("x1"));
}

// ---- Scrolling ------------------------------------------------------------------------------

TEST(VistaRejillaDesplazamiento, TopRowCountsHiddenRowsAndStopsWhereTheViewCan)
{
    auto v = rejilla(100);
    ModeloRejilla& m = v->modelo();
    for (int r = 2; r <= 11; ++r)
        m.setRowHidden(r, true);
    m.setTopRow(20);
    EXPECT_EQ(v->rowAt(0) + 1, 20);

    m.setTopRow(100);   // the last row cannot be at the top of a full view
    EXPECT_LT(m.TopRow(), 100);
    EXPECT_EQ(m.TopRow(), v->rowAt(0) + 1);
}

// ---- The tables' contract with the views ----------------------------------------------

TEST(VistaRejillaTablas, BothKindsOfGridKeepTheItemModelContractThroughLoadsAndChanges)
{
    // Qt's own checker follows every signal of the table and says what a
    // view would find wrong (a count announced before its rows, say).
    QStringList quejas;
    static QStringList* destino = nullptr;
    destino = &quejas;
    const QtMessageHandler anterior = qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& m) {
        if (m.contains(QLatin1String("FAIL")))
            destino->append(m);
    });
    struct Caso {
        const char* que;
        bool presupuesto;
        std::function<void(VistaRejilla&)> hacer;
    } casos[] = {
        {"a plain grid loaded, shrunk and reloaded", false,
         [](VistaRejilla& v) {
             ModeloRejilla& m = v.modelo();
             m.setCols(3);
             m.setFixedRows(1);
             for (int vuelta = 0; vuelta < 2; ++vuelta) {
                 m.setRedraw(vuelta == 0);
                 m.setRows(1);
                 for (int r = 0; r < 30; ++r)
                     m.AddItem(QStringLiteral("%1\tx\ty").arg(r));
                 m.setTextMatrix(5, 1, QStringLiteral("z"));
                 m.RemoveItem(3);
                 m.setRedraw(true);
             }
         }},
        {"a budget grid loaded, totalled, edited, in a batch and loaded again", true,
         [](VistaRejilla& v) {
             auto* r = static_cast<RejillaPresupuesto*>(&v.modelo());
             RejillaPresupuesto::Aspecto a;
             a.dptos = 2;
             r->setAspecto(a);
             for (int vuelta = 0; vuelta < 2; ++vuelta) {
                 r->setRedraw(vuelta == 0);
                 r->datos().empezarCarga();
                 for (int i = 0; i < 20; ++i) {
                     ModeloPresupuesto::Entrada e;
                     e.dpto = static_cast<qint16>(i / 7);
                     e.dptoNombre = QStringLiteral("D%1").arg(i / 7);
                     e.cuenta = QString::number(600000 + i);
                     e.meses[0] = 10000 * i;
                     r->datos().agregar(e);
                 }
                 r->datos().terminarCarga();
                 r->crearTotales();
                 r->Select(3, 5);
                 r->setTextMatrix(3, 5, QStringLiteral("7"));
                 r->setRedraw(false);
                 r->ponerMes(4, 2, Currency::fromInt(3));
                 r->ponerMes(10, 2, Currency::fromInt(3));
                 r->setRedraw(true);
             }
         }},
    };
    for (const Caso& c : casos) {
        VistaRejilla v(QStringLiteral("vsPresupuesto"));
        if (c.presupuesto)
            v.setModelo(new RejillaPresupuesto);
        v.resize(400, 200);
        v.show();
        QAbstractItemModelTester comprobador(v.model(), QAbstractItemModelTester::FailureReportingMode::Warning);
        c.hacer(v);
        QAbstractItemModelTester despues(v.model(), QAbstractItemModelTester::FailureReportingMode::Warning);
        EXPECT_TRUE(quejas.isEmpty()) << c.que << ": " << quejas.join(QLatin1Char('\n')).toStdString();
        quejas.clear();
    }
    qInstallMessageHandler(anterior);
}
