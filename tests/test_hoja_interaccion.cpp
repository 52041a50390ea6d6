// The worksheet driven through its widgets, as a user drives it: keys,
// mouse and the cell editor of the real grid view.

#include "HojaPrueba.h"
#include "worksheet/core/Columnas.h"
#include "EventosPrueba.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/dlgSeguimiento.h"
#include "worksheet/frmActPresupusto.h"

#include <QApplication>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QLabel>
#include <QTest>
#include <QHeaderView>
#include <QHelpEvent>
#include <QTableView>
#include <QToolTip>
#include <QDoubleSpinBox>
#include <QSpinBox>
#include <gtest/gtest.h>

#include <functional>

using namespace presupuestos;
using namespace presupuestos::prueba;
using namespace presupuestos::hoja;

using namespace presupuestos::prueba::filas;

TEST(HojaInteraccion, TypingIntoAMonthAndEnterSavesAndWalksRight)
{
    HojaAbierta h;
    VistaRejilla* v = h.hoja->vsPresupuesto;
    v->modelo().Select(kCalzadoNorte, colMes(3));
    v->setFocus();
    tecla(v, Qt::Key_5, Qt::NoModifier, QStringLiteral("5"));
    QLineEdit* editor = editorAbierto(*v);
    ASSERT_NE(editor, nullptr);
    editor->setText(QStringLiteral("500"));
    tecla(editor, Qt::Key_Return, Qt::NoModifier, QStringLiteral("\r"));
    QApplication::processEvents();
    EXPECT_EQ(textosDe(v->modelo(), kCalzadoNorte, {colMes(3), kManual}), (QStringList{"500", "4"}));
    EXPECT_EQ(h.bd.valor(QStringLiteral("SELECT M3 FROM Presupuestos WHERE Cuenta = '70000002' AND Dpto = 1")).toDouble(), 500.0);
    EXPECT_EQ(v->modelo().Row(), kCalzadoNorte);
    EXPECT_EQ(v->modelo().Col(), 7);

    // The name column does not open an editor.
    v->modelo().Select(kCalzadoNorte, kNombre);
    tecla(v, Qt::Key_7, Qt::NoModifier, QStringLiteral("7"));
    EXPECT_EQ(editorAbierto(*v), nullptr);
}

TEST(HojaInteraccion, KeyboardCopyAndDeleteOnTheBudgetGrid)
{
    HojaAbierta h;
    VistaRejilla* v = h.hoja->vsPresupuesto;
    v->modelo().Select(kVentasNorte, colMes(1), kVentasNorte, 5);
    tecla(v, Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(h.plataforma.portapapeles->contenido, QStringLiteral("100\t100"));
    v->modelo().Select(kCalzadoNorte, colMes(1));
    tecla(v, Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(textosDe(v->modelo(), kCalzadoNorte, {colMes(1), colMes(2)}), (QStringList{"100", "100"}));
    v->modelo().Select(kVentasNorte, colMes(1), kVentasNorte, 5);
    tecla(v, Qt::Key_Delete);
    EXPECT_EQ(textosDe(v->modelo(), kVentasNorte, {colMes(1), colMes(2), colMes(3)}), (QStringList{"0", "0", "100"}));
}

TEST(HojaInteraccion, RightClickOpensTheMenuOnAccountRowsOnly)
{
    HojaAbierta h;
    VistaRejilla* v = h.hoja->vsPresupuesto;
    v->modelo().Select(2, colMes(1));
    clic(*v, kTotalNorte, 5, Qt::RightButton);
    EXPECT_FALSE(h.hoja->mnuPopup->isVisible());
    EXPECT_EQ(v->modelo().Row(), 2);
    clic(*v, kCalzadoNorte, 6, Qt::RightButton);
    EXPECT_TRUE(h.hoja->mnuPopup->isVisible());
    EXPECT_EQ(v->modelo().Row(), kCalzadoNorte);
    EXPECT_EQ(v->modelo().Col(), 6);
    h.hoja->mnuPopup->hide();
}

// The controller's month, through the real window: the tracking window opens
// from its button on the year's own actuals, takes the months closed and the
// threshold, and says what each deviation means.
TEST(HojaInteraccion, TrackingFollowsTheYearAgainstItsActuals)
{
    HojaAbierta h;
    // Rent budgeted at -1.000 a month in Norte; January and February booked
    // at -1.200 and -900 (debit), nothing after.
    h.bd.sql(QStringLiteral("UPDATE Presupuestos SET M1 = -1000, M2 = -1000, M3 = -1000 WHERE Cuenta = '62100001' AND Dpto = 1 "
                            "AND Cod_Ejercicio = 2027"));
    h.bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1, M2, M3) "
                            "SELECT 1, 2027, '62100001', 1, -1000, -1000, -1000 WHERE NOT EXISTS "
                            "(SELECT 1 FROM Presupuestos WHERE Cuenta = '62100001' AND Dpto = 1 AND Cod_Ejercicio = 2027)"));
    h.bd.sql(QStringLiteral("INSERT INTO Acumulados_Dpto (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, D1, D2) VALUES (1, 2027, '62100001', 1, 1200, 900)"));
    h.hoja->cmdSeguimiento->click();
    auto* dlg = h.hoja->findChild<dlgSeguimiento*>();
    ASSERT_TRUE(dlg);
    EXPECT_TRUE(dlg->isVisible());
    ModeloSeguimiento& m = dlg->modelo();
    int fila = -1;
    for (int i = 0; i < m.rowCount(); ++i)
        if (m.filas()[static_cast<std::size_t>(i)].cuenta == QLatin1String("62100001") && m.filas()[static_cast<std::size_t>(i)].dpto == 1)
            fila = i;
    ASSERT_GE(fila, 0);
    EXPECT_EQ(dlg->mesesCerrados()->value(), 2);   // the last month with balances
    struct Caso {
        int meses;
        double umbral;
        const char* real;
        const char* desviacion;
        const char* porcentaje;
        const char* prevision;
        int senal;
    } casos[] = {
        {1, 10, "-1.200", "-200", "-20,0 %", "-3.200", -1},
        {2, 10, "-2.100", "-100", "-5,0 %", "-3.100", 0},
        {2, 4, "-2.100", "-100", "-5,0 %", "-3.100", -1},
        {0, 10, "0", "0", "—", "-3.000", 0},
    };
    for (const Caso& c : casos) {
        dlg->mesesCerrados()->setValue(c.meses);
        dlg->umbral()->setValue(c.umbral);
        EXPECT_EQ(m.texto(fila, ModeloSeguimiento::Real), QLatin1String(c.real)) << c.meses;
        EXPECT_EQ(m.texto(fila, ModeloSeguimiento::Desviacion), QLatin1String(c.desviacion)) << c.meses;
        EXPECT_EQ(m.texto(fila, ModeloSeguimiento::Porcentaje), QString::fromUtf8(c.porcentaje)) << c.meses;
        EXPECT_EQ(m.texto(fila, ModeloSeguimiento::Prevision), QLatin1String(c.prevision)) << c.meses;
        EXPECT_EQ(m.senal(fila), c.senal) << c.meses << " " << c.umbral;
    }
    EXPECT_TRUE(dlg->leyenda()->text().contains(QStringLiteral("Previsión de cierre")));
    // As many rows in sight as the worksheet would show.
    EXPECT_EQ(dlg->tabla()->rowHeight(0), h.hoja->vsPresupuesto->rowHeight(1));
    dlg->close();
}

TEST(HojaInteraccion, WhatIsHighlightedIsWhatCopyAndDeleteTake)
{
    // The grid's selection is the view's: however the highlight came, the
    // keys act on all of it, not on the corner-to-current-cell rectangle.
    struct Caso {
        const char* que;
        std::function<void(HojaAbierta&)> seleccionar;
    } casos[] = {
        {"the menu's select-all", [](HojaAbierta& h) {
             h.hoja->mnuPopupSelTodo->trigger();
             h.hoja->mnuPopup->hide();
         }},
        {"the keyboard's select-all", [](HojaAbierta& h) {
             h.hoja->mnuPopup->hide();
             tecla(h.hoja->vsPresupuesto, Qt::Key_A, Qt::ControlModifier);
         }},
    };
    for (const Caso& c : casos) {
        HojaAbierta h;
        VistaRejilla* v = h.hoja->vsPresupuesto;
        v->setFocus();
        clic(*v, kCalzadoNorte, colMes(2), Qt::RightButton);
        c.seleccionar(h);
        QApplication::processEvents();
        tecla(v, Qt::Key_C, Qt::ControlModifier);
        EXPECT_GE(h.plataforma.portapapeles->contenido.count(QStringLiteral("\r\n")), kConceptoSur - 2) << c.que;
        tecla(v, Qt::Key_Delete);
        for (int fila : {kAlquilerNorte, kVentasNorte, kConceptoNorte, kAlquilerSur, kLuzSur, kConceptoSur})
            for (int mes = 1; mes <= 12; ++mes)
                EXPECT_EQ(v->modelo().TextMatrix(fila, colMes(mes)), QStringLiteral("0")) << c.que << " " << fila << " " << mes;
        EXPECT_EQ(h.bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos WHERE Cod_Ejercicio = 2027 AND (M1 <> 0 OR M12 <> 0)")).toInt(), 0)
            << c.que;
    }
}

// Spreadsheet habits on the real grid: the status line sums what is
// selected, Ctrl+X copies and clears as one step of undo, F5 reads the
// worksheet again and Home brings January back in sight.
TEST(HojaInteraccion, SpreadsheetHabits)
{
    HojaAbierta h;
    VistaRejilla* v = h.hoja->vsPresupuesto;
    ModeloRejilla& m = v->modelo();
    v->setFocus();
    // Ventas Norte holds 100 a month; the total column counts as an amount.
    struct Caso {
        int col1, col2;
        const char* linea;
    } casos[] = {
        {colMes(1), colMes(3), "Suma: 300   Media: 100   Recuento: 3"},
        {colMes(12), kTotal, "Suma: 1.300   Media: 650   Recuento: 2"},
        {colMes(1), colMes(1), ""},   // one cell: nothing to add up
    };
    for (const Caso& c : casos) {
        m.Select(kVentasNorte, c.col1, kVentasNorte, c.col2);
        EXPECT_EQ(h.hoja->lblSumaSeleccion->text(), QLatin1String(c.linea)) << c.col1;
    }

    const QString deshacerAntes = h.hoja->mnuPopupDeshacer->text();
    m.Select(kVentasNorte, colMes(1), kVentasNorte, colMes(2));
    tecla(v, Qt::Key_X, Qt::ControlModifier);
    EXPECT_EQ(h.plataforma.portapapeles->contenido, QStringLiteral("100\t100"));
    EXPECT_EQ(m.TextMatrix(kVentasNorte, colMes(1)), QStringLiteral("0"));
    EXPECT_EQ(h.campo(QStringLiteral("M2"), QStringLiteral("70000001"), 1).toDouble(), 0.0);
    EXPECT_NE(h.hoja->mnuPopupDeshacer->text(), deshacerAntes);
    h.hoja->Deshacer();
    EXPECT_EQ(h.campo(QStringLiteral("M1"), QStringLiteral("70000001"), 1).toDouble(), 100.0);
    EXPECT_EQ(h.hoja->mnuPopupDeshacer->text(), deshacerAntes);

    const int cargas = h.hoja->cargasPresupuesto;
    tecla(v, Qt::Key_F5);
    EXPECT_EQ(h.hoja->cargasPresupuesto, cargas + 1);

    m.Select(kVentasNorte, colMes(12));
    m.setLeftCol(colMes(10));
    tecla(v, Qt::Key_Home);
    EXPECT_EQ(m.LeftCol(), colMes(1));
}

// Ctrl+D and Ctrl+R fill as a spreadsheet fills, store what they show and
// are undone as one step. Ventas Norte holds 100 a month; Calzado Norte
// gets 250 in January first.
TEST(HojaInteraccion, FillDownAndRightStoreWhatTheyShowAndUndoAsOne)
{
    struct Celda {
        int fila, mes;
        const char* texto;
    };
    struct Caso {
        const char* que;
        int fila1, col1, fila2, col2;
        Qt::Key tecla;
        std::vector<Celda> despues;
    } casos[] = {
        {"down from the selection's first row", kVentasNorte, colMes(1), kCalzadoNorte, colMes(2), Qt::Key_D,
         {{kCalzadoNorte, 1, "100"}, {kCalzadoNorte, 2, "100"}, {kCalzadoNorte, 3, "0"}}},
        {"one row takes the row above", kCalzadoNorte, colMes(2), kCalzadoNorte, colMes(3), Qt::Key_D,
         {{kCalzadoNorte, 1, "250"}, {kCalzadoNorte, 2, "100"}, {kCalzadoNorte, 3, "100"}}},
        {"down over a subtotal, which is left alone", kVentasNorte, colMes(1), kVentasSur, colMes(1), Qt::Key_D,
         {{kConceptoNorte, 1, "100"}, {kTotalNorte, 1, "900"}, {kAlquilerSur, 1, "100"}, {kVentasSur, 1, "100"}}},
        {"right from the first month", kCalzadoNorte, colMes(1), kCalzadoNorte, colMes(12), Qt::Key_R,
         {{kCalzadoNorte, 2, "250"}, {kCalzadoNorte, 12, "250"}, {kCalzadoNorte, kTotal - kPrimerMes + 1, "3.000"}}},
        {"one month takes the month before", kVentasNorte, colMes(4), kCalzadoNorte, colMes(4), Qt::Key_R,
         {{kVentasNorte, 4, "100"}, {kCalzadoNorte, 4, "0"}}},
        {"January alone has nothing to its left", kCalzadoNorte, colMes(1), kCalzadoNorte, colMes(1), Qt::Key_R,
         {{kCalzadoNorte, 1, "250"}, {kCalzadoNorte, 2, "0"}}},
    };
    for (const Caso& c : casos) {
        HojaAbierta h;
        VistaRejilla* v = h.hoja->vsPresupuesto;
        ModeloRejilla& m = v->modelo();
        h.teclear(kCalzadoNorte, colMes(1), QStringLiteral("250"));
        std::vector<QString> antes;
        for (const Celda& d : c.despues)
            antes.push_back(m.TextMatrix(d.fila, kPrimerMes + d.mes - 1));
        const QString deshacerAntes = h.hoja->mnuPopupDeshacer->text();
        m.Select(c.fila1, c.col1, c.fila2, c.col2);
        tecla(v, c.tecla, Qt::ControlModifier);
        for (const Celda& d : c.despues)
            EXPECT_EQ(m.TextMatrix(d.fila, kPrimerMes + d.mes - 1), QLatin1String(d.texto)) << c.que << " " << d.fila << "/" << d.mes;
        // What the grid shows is what is stored: a reload shows the same.
        tecla(v, Qt::Key_F5);
        for (const Celda& d : c.despues)
            EXPECT_EQ(m.TextMatrix(d.fila, kPrimerMes + d.mes - 1), QLatin1String(d.texto)) << c.que << " reloaded " << d.fila;
        if (h.hoja->mnuPopupDeshacer->text() != deshacerAntes) {
            h.hoja->Deshacer();
            EXPECT_EQ(h.hoja->mnuPopupDeshacer->text(), deshacerAntes) << c.que;
        }
        for (std::size_t i = 0; i < c.despues.size(); ++i)
            EXPECT_EQ(m.TextMatrix(c.despues[i].fila, kPrimerMes + c.despues[i].mes - 1), antes[i]) << c.que << " undone";
    }
}

// Ctrl+F finds an account among thousands by the start of its code, a part
// of its name or its department's name, case and accents aside; Enter goes
// on to the next, round past the end; Escape goes back to the grid.
TEST(HojaInteraccion, FindGoesToAnAccountByCodeNameOrDepartment)
{
    HojaAbierta h;
    VistaRejilla* v = h.hoja->vsPresupuesto;
    ModeloRejilla& m = v->modelo();
    QLineEdit* buscar = h.hoja->txtBuscar;
    struct Caso {
        const char* texto;
        int intros;
        int fila;
        const char* aviso;
    } casos[] = {
        {"caja", 0, 7, ""},
        {"caja", 1, 19, ""},
        {"caja", 2, 7, ""},
        {"70000002", 0, kCalzadoNorte, ""},
        {"DIAS CON", 0, kConceptoNorte, ""},
        {"sur", 0, kAlquilerSur, ""},
        {"sur", 1, kAlquilerSur, ""},
        {"qqq", 0, kAlquilerNorte, "No se encuentra «qqq»"},
    };
    for (const Caso& c : casos) {
        m.Select(kAlquilerNorte, colMes(3));
        v->setFocus();
        tecla(v, Qt::Key_F, Qt::ControlModifier);
        EXPECT_TRUE(buscar->hasFocus()) << c.texto;
        EXPECT_EQ(buscar->selectedText(), buscar->text()) << c.texto;
        QTest::keyClicks(buscar, QString::fromUtf8(c.texto));
        for (int i = 0; i < c.intros; ++i)
            QTest::keyClick(buscar, Qt::Key_Return);
        EXPECT_EQ(m.Row(), c.fila) << c.texto << " " << c.intros;
        EXPECT_EQ(m.Col(), colMes(3)) << c.texto;
        EXPECT_EQ(h.hoja->lblBuscar->text(), QString::fromUtf8(c.aviso)) << c.texto;
        QTest::keyClick(buscar, Qt::Key_Escape);
        EXPECT_TRUE(v->hasFocus()) << c.texto;
    }
}

// The name column stays in sight however far right the months go; its edge
// is dragged wider there, both grids follow, and a name the column cuts
// shows whole on hover.
TEST(HojaInteraccion, TheNameColumnWidensByItsEdgeAndCutNamesShowWholeOnHover)
{
    HojaAbierta h;
    h.mostrarHistorico();
    VistaRejilla* v = h.hoja->vsPresupuesto;
    auto* fijas = v->findChild<QTableView*>(QStringLiteral("vsPresupuesto_fijas"));
    ASSERT_TRUE(fijas);
    QHeaderView* cabecera = fijas->horizontalHeader();
    const int antes = v->columnWidth(kNombre);
    const int borde = cabecera->sectionViewportPosition(kNombre) + cabecera->sectionSize(kNombre) - 1;
    const int y = cabecera->height() / 2;
    QTest::mousePress(cabecera->viewport(), Qt::LeftButton, {}, QPoint(borde, y));
    QTest::mouseMove(cabecera->viewport(), QPoint(borde + 40, y));
    QTest::mouseMove(cabecera->viewport(), QPoint(borde + 80, y));
    QTest::mouseRelease(cabecera->viewport(), Qt::LeftButton, {}, QPoint(borde + 80, y));
    EXPECT_EQ(v->columnWidth(kNombre), antes + 80);
    EXPECT_EQ(fijas->columnWidth(kNombre), antes + 80);
    EXPECT_EQ(h.hoja->vsHistorico->columnWidth(kNombre), antes + 80);
    EXPECT_EQ(v->anchoFijas(), fijas->width());

    const QString nombre = QStringLiteral("Ventas TOP 2 tiendas");
    ASSERT_EQ(v->modelo().TextMatrix(6, kNombre), nombre);
    for (int ancho : {400, 30}) {
        cabecera->resizeSection(kNombre, ancho);
        const QPoint punto = v->rectCelda(6, kNombre).center();
        QHelpEvent pista(QEvent::ToolTip, punto, fijas->viewport()->mapToGlobal(punto));
        QApplication::sendEvent(fijas->viewport(), &pista);
        EXPECT_EQ(QToolTip::isVisible() ? QToolTip::text() : QString(), ancho == 30 ? nombre : QString()) << ancho;
        QToolTip::hideText();
    }
}
