#include "HojaPrueba.h"
#include "worksheet/core/Columnas.h"
#include "grid/widgets/VistaRejilla.h"

#include <QAction>
#include <array>
#include <QTimer>
#include "import/dialog/frmImportar.h"
#include <QMenu>
#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;
using namespace presupuestos::hoja;

using namespace presupuestos::prueba::filas;
using HojaEdicion = ConHoja;

TEST_F(HojaEdicion, TypedAmountIsStoredMarkedAndTotalled)
{
    h.teclear(kCalzadoNorte, colMes(3), QStringLiteral("1.500"));
    EXPECT_EQ(h.guardados(QStringLiteral("70000002"), 1, {2, 13}), (QStringList{"1500", "4"}));
    EXPECT_EQ(h.textos(kCalzadoNorte, {colMes(3), kManual, kTotal}), (QStringList{"1.500", "4", "1.500"}));
    EXPECT_EQ(h.m().CellBackColor(kCalzadoNorte, colMes(3)), QColor(172, 250, 185));
    EXPECT_EQ(h.m().TextMatrix(kTotalNorte, colMes(3)), QStringLiteral("1.600"));
    EXPECT_EQ(h.m().TextMatrix(1, kTotal), QStringLiteral("2.650"));
    // A second month keeps the first one's mark.
    h.teclear(kCalzadoNorte, colMes(4), QStringLiteral("-20"));
    EXPECT_EQ(h.guardados(QStringLiteral("70000002"), 1, {13}), QStringList{"12"});
    EXPECT_EQ(h.m().TextMatrix(kCalzadoNorte, kManual), QStringLiteral("12"));
    EXPECT_EQ(h.m().CellForeColor(kCalzadoNorte, colMes(4)), QColor(255, 0, 0));
    // Three rows with values out of twenty-two now.
    EXPECT_EQ(h.hoja->completadoSeleccion().texto(), QStringLiteral("14%"));
}

TEST_F(HojaEdicion, TextThatIsNotANumberShowsZeroAndSavesNothing)
{
    h.bd.tomarRegistro();
    h.teclear(kCalzadoNorte, colMes(3), QStringLiteral("abc"));
    EXPECT_EQ(h.m().TextMatrix(kCalzadoNorte, colMes(3)), QStringLiteral("0"));
    EXPECT_FALSE(h.campo(QStringLiteral("M3"), QStringLiteral("70000002"), 1).isValid());
    EXPECT_EQ(h.escrituras(), 0);
    EXPECT_TRUE(h.plataforma.mensajes->mostrados.empty()) << mensajesMostrados(h.plataforma);
}

TEST_F(HojaEdicion, RowWhoseYearBecomesZeroIsStoredCleanWithoutMethodOrMarks)
{
    h.bd.sql(QStringLiteral("UPDATE Presupuestos SET Metodo_Calculo = 3, Valor = 7 WHERE Cuenta = '62800001'"));
    h.hoja->CargarPresupuesto();
    h.m().setCellBackColor(kLuzSur, colMes(2), QColor(172, 250, 185));
    h.teclear(kLuzSur, colMes(1), QStringLiteral("0"));
    EXPECT_EQ(h.m().TextMatrix(kLuzSur, kManual), QStringLiteral("0"));
    // White as the grid draws it: no colour of the cell's own.
    for (int mes : {1, 2}) {
        EXPECT_FALSE(h.m().CellBackColor(kLuzSur, colMes(mes)).isValid()) << mes;
        EXPECT_EQ(h.m().tabla().index(kLuzSur - 1, colMes(mes)).data(Qt::BackgroundRole).value<QColor>(), QColor(255, 255, 255));
    }
    EXPECT_EQ(h.guardados(QStringLiteral("62800001"), 2, {0, 12, 13, 14}), (QStringList{"0", "0", "0", "0"}));
    EXPECT_EQ(h.hoja->completadoSeleccion().texto(), QStringLiteral("5%"));
}

TEST_F(HojaEdicion, OnlyMonthCellsOfAccountRowsAreEditableWhileBudgetingIsShown)
{
    struct Caso { int fila, col; bool cancelada; };
    for (const Caso& c : {Caso{kVentasNorte, 3, true}, Caso{kVentasNorte, 16, true}, Caso{kVentasNorte, 17, true},
                          Caso{kTotalNorte, 5, true}, Caso{1, 5, true}, Caso{kVentasNorte, 4, false}, Caso{kVentasNorte, 15, false}}) {
        bool cancelar = false;
        h.hoja->vsPresupuesto_BeforeEdit(c.fila, c.col, cancelar);
        EXPECT_EQ(cancelar, c.cancelada) << c.fila << "," << c.col;
    }
    h.hoja->vsPresupuesto_BeforeEdit(kVentasNorte, 6, *std::make_unique<bool>(false));
    EXPECT_EQ(h.hoja->ValorAnterior, Currency::fromInt(100));
    h.hoja->cmdVer_Click();
    bool cancelar = false;
    h.hoja->vsPresupuesto_BeforeEdit(1, 5, cancelar);
    EXPECT_TRUE(cancelar);
}

TEST_F(HojaEdicion, EnterWalksRightAlongARowAndDownAColumnSkippingTotals)
{
    h.teclear(kAlquilerNorte, colMes(1), QStringLiteral("1"), true);
    EXPECT_EQ(h.m().Col(), 5);
    h.teclear(kAlquilerNorte, colMes(2), QStringLiteral("2"), true);
    EXPECT_EQ(h.m().Col(), 6);
    EXPECT_EQ(h.m().Row(), kAlquilerNorte);
    h.teclear(kCalzadoNorte, colMes(3), QStringLiteral("3"), true);
    EXPECT_EQ(h.m().Col(), 7);
    h.teclear(kConceptoNorte, colMes(3), QStringLiteral("3"), true);
    // Same column as the edit before: down, past the department's total row.
    EXPECT_EQ(h.m().Row(), kAlquilerSur);
    EXPECT_EQ(h.m().Col(), 6);
    // Without Enter the cursor stays.
    h.teclear(kAlquilerSur, colMes(3), QStringLiteral("4"));
    EXPECT_EQ(h.m().Row(), kAlquilerSur);
    EXPECT_FALSE(h.hoja->EditadoConIntro);
}

TEST_F(HojaEdicion, EditingASalesAccountRecalculatesTheDepartmentsMonthlySalesPercentageRowsButTheirTypedMonths)
{
    // 62100001 planned at 50 % of each month's sales in both departments,
    // March typed by hand in Norte; 62800001/1 at 10 % of the year's sales.
    h.bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1, M3, Metodo_Calculo, Modificacion_Manual, Valor) VALUES "
                            "(1, 2027, '62100001', 1, 1, 77, 6, 4, 50), (1, 2027, '62100001', 2, 1, 0, 6, 0, 10), "
                            "(1, 2027, '62800001', 1, 99, 0, 7, 0, 10)"));
    h.hoja->CargarPresupuesto();
    h.teclear(kVentasNorte, colMes(2), QStringLiteral("300"));
    // The month typed by hand stays, and so does its mark.
    EXPECT_EQ(h.guardados(QStringLiteral("62100001"), 1, {0, 1, 2, 12, 13}), (QStringList{"50", "150", "77", "6", "4"}));
    EXPECT_EQ(h.m().CellBackColor(kAlquilerNorte, colMes(3)), QColor(172, 250, 185));
    // Sur's sales did not change: its row is left as it was; the year-based row is untouched.
    EXPECT_EQ(h.guardados(QStringLiteral("62100001"), 2, {0}), QStringList{"1"});
    EXPECT_EQ(h.guardados(QStringLiteral("62800001"), 1, {0}), QStringList{"99"});
    // The recalculated row shows its new months at once; the year-based one keeps its own.
    EXPECT_EQ(h.textos(kAlquilerNorte, {colMes(2), colMes(3)}), (QStringList{"150", "77"}));
    EXPECT_EQ(h.m().TextMatrix(kLuzNorte, colMes(1)), QStringLiteral("99"));
}

TEST_F(HojaEdicion, OneClipboardValueFillsTheSelectionSkippingTotalRows)
{
    h.plataforma.portapapeles->contenido = QStringLiteral("1.234,5\r\n");
    h.m().Select(kCalzadoNorte, colMes(1), kAlquilerSur, 5);
    h.hoja->Copiar_Desde_Clipboard();
    // Rounded to 0 decimals, halves to even.
    for (int fila : {kCalzadoNorte, kConceptoNorte, kAlquilerSur})
        EXPECT_EQ(h.textos(fila, {4, 5}), (QStringList{"1.234", "1.234"})) << fila;
    EXPECT_TRUE(h.m().IsSubtotal(kTotalNorte));
    EXPECT_EQ(h.guardados(QStringLiteral("70000002"), 1, {1}), QStringList{"1234"});
    EXPECT_EQ(h.guardados(QStringLiteral("62100001"), 2, {0}), QStringList{"1234"});
    EXPECT_EQ(h.m().Row(), kCalzadoNorte);
    EXPECT_EQ(h.m().RowSel(), kAlquilerSur);
    EXPECT_EQ(h.plataforma.puntero->actual(), Puntero::Defecto);
}

TEST_F(HojaEdicion, ABlockIsPlacedAtTheCursorTotalRowsConsumeTheirLineAndColumnsStopAtDecember)
{
    h.pegar(kConceptoNorte, colMes(11), QStringLiteral("1\t2\t30\r\n4\t5\t6\r\n7\t\t9\r\n"));
    // The row total, not the third field.
    EXPECT_EQ(h.textos(kConceptoNorte, {colMes(11), colMes(12), kTotal}), (QStringList{"1", "2", "3"}));
    EXPECT_EQ(h.textos(kAlquilerSur, {colMes(11), colMes(12)}), (QStringList{"7", "0"}));
    EXPECT_EQ(h.guardados(QStringLiteral("62100001"), 2, {10}), QStringList{"7"});
    EXPECT_EQ(h.m().TextMatrix(kTotalNorte, colMes(11)), QStringLiteral("101"));
}

TEST_F(HojaEdicion, ClipboardTextThatIsNotNumbersChangesNothing)
{
    h.bd.tomarRegistro();
    for (const char* texto : {"1\tn/a\r\n", "5\r\nabc", "1,5.3x"}) {
        h.pegar(kCalzadoNorte, colMes(1), QString::fromLatin1(texto));
        EXPECT_EQ(h.m().TextMatrix(kCalzadoNorte, colMes(1)), QStringLiteral("0")) << texto;
    }
    EXPECT_EQ(h.escrituras(), 0);
    EXPECT_TRUE(h.plataforma.mensajes->mostrados.empty()) << mensajesMostrados(h.plataforma);
    // Nowhere to paste: a total row, a column before the months, or the other view.
    h.pegar(kTotalNorte, colMes(2), QStringLiteral("9"));
    h.m().Select(kCalzadoNorte, kNombre);
    h.hoja->Copiar_Desde_Clipboard();
    EXPECT_EQ(h.m().TextMatrix(kCalzadoNorte, kNombre), QStringLiteral("Ventas calzado"));
    EXPECT_EQ(h.m().TextMatrix(kTotalNorte, colMes(2)), QStringLiteral("100"));
}

TEST_F(HojaEdicion, ClearingStartsAtJanuaryWhateverTheSelection)
{
    h.m().Select(kAlquilerNorte, kDptoNombre, kVentasNorte, 16);
    h.hoja->BorrarValorCeldas();
    for (int c = 4; c <= 15; ++c)
        EXPECT_EQ(h.textos(kVentasNorte, {c, kNombre}), (QStringList{"0", "Ventas textil"}));
    EXPECT_EQ(h.guardados(QStringLiteral("70000001"), 1, {11, 12}), (QStringList{"0", "0"}));
    EXPECT_EQ(h.m().TextMatrix(kTotalNorte, kTotal), QStringLiteral("0"));
}

TEST_F(HojaEdicion, SectionsRunBetweenTotalRows)
{
    h.m().Select(kVentasSur, colMes(4));
    h.hoja->mnuPopupSelDpto_Click();
    EXPECT_EQ((std::array{h.m().Row(), h.m().Col(), h.m().RowSel(), h.m().ColSel()}), (std::array{kAlquilerSur, 4, kConceptoSur, 15}));
    h.hoja->mnuPopupSelTodo_Click();
    EXPECT_EQ(h.m().Row(), 2);
    EXPECT_EQ(h.m().RowSel(), kConceptoSur);   // the last row is a total row
}

TEST_F(HojaEdicion, CopyTakesTheSelectionOfTheFocusedGrid)
{
    h.m().Select(kVentasNorte, kCuenta, kCalzadoNorte, 5);
    h.hoja->Copiar_A_Clipboard(h.hoja->vsPresupuesto);
    EXPECT_EQ(h.plataforma.portapapeles->contenido,
              QStringLiteral("70000001\tVentas textil\t100\t100\r\n70000002\tVentas calzado\t0\t0"));
    h.plataforma.portapapeles->contenido.clear();
    h.plataforma.foco->nombre = QStringLiteral("vsFiltroCuentas");
    h.hoja->mnuPopupCopiar_Click();
    EXPECT_TRUE(h.plataforma.portapapeles->contenido.isEmpty());
    h.plataforma.foco->nombre = QStringLiteral("vsPresupuesto");
    h.hoja->mnuPopupCopiar_Click();
    EXPECT_FALSE(h.plataforma.portapapeles->contenido.isEmpty());
    // Paste only into the budget grid.
    h.plataforma.portapapeles->contenido = QStringLiteral("5");
    h.m().Select(kCalzadoNorte, colMes(1));
    h.plataforma.foco->nombre = QStringLiteral("vsHistorico");
    h.hoja->mnuPopupPegar_Click();
    EXPECT_EQ(h.m().TextMatrix(kCalzadoNorte, colMes(1)), QStringLiteral("0"));
    h.hoja->vsPresupuesto_KeyDown(86, 2);
    EXPECT_EQ(h.m().TextMatrix(kCalzadoNorte, colMes(1)), QStringLiteral("5"));
    h.hoja->vsPresupuesto_KeyDown(46, 0);
    EXPECT_EQ(h.m().TextMatrix(kCalzadoNorte, colMes(1)), QStringLiteral("0"));
}

TEST_F(HojaEdicion, TakingAnAccountOutOfTheBudgetAsksFirstAndPuttingItBackDoesNot)
{
    const auto ver = [&] { return h.guardados(QStringLiteral("70000001"), 1, {15}).at(0); };
    h.m().Select(kVentasNorte, colMes(2));
    h.plataforma.mensajes->respuestas = {vb::RespuestaNo};
    h.hoja->mnuPopupOcultar_Click();
    ASSERT_EQ(h.plataforma.mensajes->mostrados.size(), 1u);
    const auto& m = h.plataforma.mensajes->mostrados[0];
    EXPECT_EQ(m.prompt, QStringLiteral("Esta seguro que desea quitar la cuenta seleccionada del presupuesto."));
    EXPECT_EQ(m.estilo, 4 + 48 + 256);
    EXPECT_EQ(ver(), QStringLiteral("1"));

    h.plataforma.mensajes->respuestas = {vb::RespuestaYes};
    h.hoja->mnuPopupOcultar_Click();
    EXPECT_EQ(ver(), QStringLiteral("0"));
    EXPECT_EQ(h.m().Rows(), 25);

    h.hoja->cmdVer_Click();
    ASSERT_EQ(h.m().TextMatrix(2, kCuenta), QStringLiteral("70000001"));
    h.m().Select(2, colMes(2));
    const auto preguntas = h.plataforma.mensajes->mostrados.size();
    h.hoja->mnuPopupOcultar_Click();
    EXPECT_EQ(h.plataforma.mensajes->mostrados.size(), preguntas);
    EXPECT_EQ(ver(), QStringLiteral("1"));

    // On the header row: a question, then nothing.
    h.hoja->cmdVer_Click();
    h.m().Select(0, colMes(2));
    h.bd.tomarRegistro();
    h.hoja->mnuPopupOcultar_Click();
    EXPECT_EQ(h.escrituras(), 0);
}

TEST_F(HojaEdicion, GridsMoveTogetherAndScrollTogetherOnlyWhileLinked)
{
    h.mostrarHistorico();
    ModeloRejilla& hist = f->vsHistorico->modelo();
    h.irA(kLuzSur, colMes(4));
    EXPECT_EQ((std::array{hist.Row(), hist.Col()}), (std::array{kLuzSur, 7}));
    hist.Select(3, colMes(6));
    f->vsHistorico_RowColChange();
    EXPECT_EQ((std::array{h.m().Row(), h.m().Col()}), (std::array{3, 9}));

    f->vsPresupuesto_AfterScroll(0, 0, 5, 0);
    EXPECT_EQ(hist.TopRow(), 5);
    f->cmdNoEnlanzarTablas_Click();
    f->vsPresupuesto_AfterScroll(5, 0, 2, 0);
    EXPECT_EQ(hist.TopRow(), 5);
    h.m().setTopRow(3);
    f->cmdNoEnlanzarTablas_Click();
    EXPECT_EQ(hist.TopRow(), h.m().TopRow());
}

TEST_F(HojaEdicion, MenuEntriesFollowTheView)
{
    const auto acciones = f->mnuPopup->actions();
    // Nothing done yet: nothing to undo or redo.
    for (QAction* a : acciones)
        EXPECT_EQ(a->isEnabled(), a != f->mnuPopupDeshacer && a != f->mnuPopupRehacer) << a->objectName().toStdString();
    f->cmdVer_Click();
    for (QAction* a : acciones)
        EXPECT_EQ(a->isEnabled(), a != f->mnuPopupCopiar && a != f->mnuPopupPegar && a != f->mnuPopupDeshacer && a != f->mnuPopupRehacer)
            << a->objectName().toStdString();
}

TEST_F(HojaEdicion, ImportOpensItsDialogModallyAndACompletedImportReloads)
{
    const int cargas = h.hoja->cargasPresupuesto;
    bool visto = false;
    QTimer::singleShot(0, h.hoja, [&] {
        frmImportar* d = h.hoja->frmImport;
        ASSERT_NE(d, nullptr);
        visto = d->isModal() && d->isVisible();
        emit d->ImportacionCompletada();
        d->reject();
    });
    h.hoja->cmdImportar_Click();
    EXPECT_TRUE(visto);
    EXPECT_EQ(h.hoja->frmImport, nullptr);
    EXPECT_EQ(h.hoja->cargasPresupuesto, cargas + 1);
}
