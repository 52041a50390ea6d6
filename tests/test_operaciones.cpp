#include "HojaPrueba.h"
#include "worksheet/core/Columnas.h"
#include "calculation/dialog/frmOperaciones.h"
#include "grid/widgets/VistaRejilla.h"

#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QHeaderView>
#include <QStyle>
#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;
using namespace presupuestos::hoja;

using namespace presupuestos::prueba::filas;

TEST(Operaciones, WithoutAnAccountRowNothingCanBeApplied)
{
    HojaAbierta h;
    frmOperaciones* d = h.hoja->operaciones();
    h.hoja->vsPresupuesto->modelo().Select(kTotalNorte, colMes(2));
    h.hoja->vsPresupuesto_RowColChange();
    EXPECT_EQ(d->lblCuenta->text(), QStringLiteral("Seleccione una fila de cuenta"));
    EXPECT_EQ(d->lblCuenta->palette().color(QPalette::WindowText), QColor(255, 0, 0));
    EXPECT_FALSE(d->cmdAplicar->isEnabled());
    EXPECT_FALSE(d->cmdActualizar->isEnabled());
    EXPECT_FALSE(d->cboMetodo->isEnabled());
    EXPECT_FALSE(d->txtValor->isEnabled());

    h.hoja->vsPresupuesto->modelo().Select(kLuzSur, colMes(2));
    h.hoja->vsPresupuesto_RowColChange();
    EXPECT_EQ(d->lblCuenta->text(), QStringLiteral("62800001 - Electricidad"));
    EXPECT_EQ(d->lblDpto->text(), QStringLiteral("2 - Sur"));
    EXPECT_EQ(d->lblCuenta->palette().color(QPalette::WindowText), QColor(0, 0, 0));
    EXPECT_TRUE(d->cmdAplicar->isEnabled());
    EXPECT_TRUE(d->txtValor->isEnabled());
    EXPECT_EQ(d->txtValor->text(), QStringLiteral("0,00"));
}

TEST(Operaciones, MethodListOrderAndTheHistoryYearInItsTexts)
{
    HojaAbierta h;
    frmOperaciones* d = h.hoja->operaciones();
    const int orden[] = {3, 1, 2, 4, 5, 6, 7};
    ASSERT_EQ(d->cboMetodo->count(), 7);
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(d->cboMetodo->itemData(i).toInt(), orden[i]);
    EXPECT_EQ(d->cboMetodo->itemText(2), QStringLiteral("Ejercicio 2026 con % + - (Base Mes) "));
    d->setEjercicio(2024);
    EXPECT_EQ(d->cboMetodo->itemText(2), QStringLiteral("Ejercicio 2024 con % + - (Base Mes) "));
    EXPECT_EQ(d->cboMetodo->itemText(3), QStringLiteral("Ejercicio 2024 con % + -(Base Año)"));
    EXPECT_EQ(d->vsResultado->modelo().TextMatrix(0, 0), QStringLiteral("Enero / Julio"));
    EXPECT_EQ(d->vsResultado->modelo().TextMatrix(0, 5), QStringLiteral("Junio / Diciembre"));

    d->setMetodoCalculo(5);
    d->setMetodoCalculo(0);   // typed amounts are not on the list: the entry stays
    EXPECT_EQ(d->cboMetodo->currentData().toInt(), 5);
    d->setMetodoCalculo(3);
    EXPECT_EQ(d->cboMetodo->currentText(), QStringLiteral("Importe lineal para todos los meses"));
}

TEST(Operaciones, PreviewShowsTheTwelveMonthsAndTheFormula)
{
    HojaAbierta h;
    frmOperaciones* d = h.hoja->operaciones();
    h.hoja->vsPresupuesto->modelo().Select(kVentasNorte, colMes(2));
    h.hoja->MostrarOperaciones();
    d->setMetodoCalculo(1);
    d->txtValor->setText(QStringLiteral("100"));
    d->txtValor_KeyPress(13);
    const ModeloRejilla& r = d->vsResultado->modelo();
    EXPECT_EQ(r.TextMatrix(1, 0), QStringLiteral("8"));
    EXPECT_EQ(r.TextMatrix(2, 5), QStringLiteral("8"));
    EXPECT_EQ(d->txtValor->text(), QStringLiteral("100,00"));
    d->setDecimales(2);
    EXPECT_EQ(r.TextMatrix(2, 5), QStringLiteral("8,37"));
    EXPECT_EQ(d->txtConsole->toPlainText(),
              QStringLiteral("Importe a distribuir en los 12 meses\nEnero = Valor / 12\nEnero = 100 / 12\nX = 8,33"));
    d->lblVerCalculo_Click();
    EXPECT_EQ(d->height(), frmOperaciones::AltoAmpliado / 15);
    d->lblVerCalculo_Click();
    EXPECT_EQ(d->height(), frmOperaciones::AltoReducido / 15);
}

TEST(Operaciones, ApplyingStoresTheRowAndShowsItWithoutMarks)
{
    HojaAbierta h;
    // Last year's 100 spread over twelve months: 8,3333 a month.
    h.bd.sql(QStringLiteral("INSERT INTO Acumulados_Dpto (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, H5) VALUES (1, 2026, '70000002', 1, 100)"));
    frmActPresupusto* f = h.hoja;
    frmOperaciones* d = f->operaciones();
    ModeloRejilla& m = f->vsPresupuesto->modelo();
    const int calzado = kVentasNorte + 1;
    m.setCellBackColor(calzado, colMes(3), QColor(172, 250, 185));
    m.setTextMatrix(calzado, kManual, QStringLiteral("4"));
    m.Select(calzado, colMes(2));
    f->vsPresupuesto_RowColChange();
    d->setMetodoCalculo(4);
    d->txtValor->setText(QStringLiteral("0"));
    d->cmdAplicar_Click();
    EXPECT_EQ(m.TextMatrix(calzado, colMes(1)), QStringLiteral("8"));
    EXPECT_EQ(m.TextMatrix(calzado, kTotal), QStringLiteral("96"));
    EXPECT_EQ(m.TextMatrix(calzado, kMetodo), QStringLiteral("4"));
    EXPECT_EQ(m.TextMatrix(calzado, kManual), QStringLiteral("0"));
    EXPECT_EQ(m.TextMatrix(calzado, kValor), QStringLiteral("0"));
    EXPECT_FALSE(m.CellBackColor(calzado, colMes(3)).isValid()) << "the grid's own white";
    EXPECT_EQ(m.tabla().index(calzado - 1, colMes(3)).data(Qt::BackgroundRole).value<QColor>(), QColor(255, 255, 255));
    // A new row is inserted with the four decimals of every month.
    EXPECT_EQ(h.campo(QStringLiteral("M1"), QStringLiteral("70000002"), 1).toDouble(), 8.3333);
    EXPECT_EQ(h.campo(QStringLiteral("M12"), QStringLiteral("70000002"), 1).toDouble(), 8.3333);
    EXPECT_EQ(h.campo(QStringLiteral("Metodo_Calculo"), QStringLiteral("70000002"), 1).toInt(), 4);

    // Method 3 with 100 on an existing row: twelve hundreds, method 3, no marks.
    m.Select(kVentasNorte, colMes(2));
    f->vsPresupuesto_RowColChange();
    d->setMetodoCalculo(3);
    d->txtValor->setText(QStringLiteral("100"));
    d->cmdAplicar_Click();
    EXPECT_EQ(m.TextMatrix(kVentasNorte, kMetodo), QStringLiteral("3"));
    EXPECT_EQ(m.TextMatrix(kVentasNorte, kValor), QStringLiteral("100"));
    EXPECT_EQ(m.TextMatrix(kVentasNorte, kManual), QStringLiteral("0"));
    EXPECT_EQ(h.campo(QStringLiteral("Modificacion_Manual"), QStringLiteral("70000001"), 1).toInt(), 0);
    EXPECT_EQ(h.campo(QStringLiteral("M7"), QStringLiteral("70000001"), 1).toDouble(), 100.0);

    // An empty value box applies 0.
    m.Select(kAlquilerNorte, colMes(2));
    f->vsPresupuesto_RowColChange();
    d->txtValor->clear();
    d->cmdAplicar_Click();
    EXPECT_EQ(d->Valor(), Currency());
    EXPECT_EQ(h.campo(QStringLiteral("Metodo_Calculo"), QStringLiteral("62100001"), 1).toInt(), 3);
    EXPECT_EQ(h.campo(QStringLiteral("M5"), QStringLiteral("62100001"), 1).toDouble(), 0.0);
}

TEST(Operaciones, ApplyingToSalesRecalculatesMonthlyPercentagesOnly)
{
    HojaAbierta h;
    h.bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, Metodo_Calculo, Valor, M3) VALUES "
                            "(1, 2027, '62100001', 1, 6, 10, 0), (1, 2027, '62800001', 1, 7, 10, 5)"));
    frmActPresupusto* f = h.hoja;
    frmOperaciones* d = f->operaciones();
    f->vsPresupuesto->modelo().Select(kVentasNorte, colMes(2));
    f->vsPresupuesto_RowColChange();
    d->setMetodoCalculo(3);
    d->txtValor->setText(QStringLiteral("2000"));
    d->cmdAplicar_Click();
    EXPECT_EQ(h.campo(QStringLiteral("M3"), QStringLiteral("62100001"), 1).toDouble(), 200.0);
    EXPECT_EQ(h.campo(QStringLiteral("M3"), QStringLiteral("62800001"), 1).toDouble(), 5.0);
}

TEST(Operaciones, TheCloseBoxOnlyHidesTheDialog)
{
    HojaAbierta h;
    frmOperaciones* d = h.hoja->operaciones();
    h.hoja->vsPresupuesto->modelo().Select(kVentasNorte, colMes(2));
    h.hoja->MostrarOperaciones();
    EXPECT_TRUE(d->isVisible());
    EXPECT_TRUE(d->windowFlags() & Qt::WindowStaysOnTopHint);
    d->close();
    QApplication::processEvents();
    EXPECT_FALSE(d->isVisible());
    EXPECT_EQ(h.hoja->operaciones(), d);
    d->setCuenta(QStringLiteral("70000002"));
    h.hoja->cmdShowCal_Click();
    EXPECT_TRUE(d->isVisible());
    EXPECT_EQ(d->Cuenta(), QStringLiteral("70000001"));
    // The dialog does not cover the current row.
    const QRect celda = h.hoja->vsPresupuesto->rectCelda(kVentasNorte, colMes(1));
    const QRect fila(h.hoja->vsPresupuesto->viewport()->mapToGlobal(celda.topLeft()), celda.size());
    EXPECT_FALSE(d->frameGeometry().intersects(QRect(fila.left(), fila.top(), 2000, fila.height())));
}

TEST(Operaciones, TheTwelveResultsAreReadableAtTheFirstHeight)
{
    HojaAbierta h;
    frmOperaciones* d = h.hoja->operaciones();
    h.hoja->FlatEdit1->setText(QStringLiteral("4"));
    h.hoja->AplicarDecimales();
    h.hoja->vsPresupuesto->modelo().Select(kVentasNorte, colMes(2));
    h.hoja->MostrarOperaciones();
    d->txtValor->setText(QStringLiteral("-123456789,1234"));
    d->CalcularVistaPrevia();
    QApplication::processEvents();
    ASSERT_EQ(d->lblVerCalculo->property("Tag").toString(), QStringLiteral("0"));

    VistaRejilla* v = d->vsResultado;
    const ModeloRejilla& m = v->modelo();
    const int margen = v->style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, v) + 1;
    int derecha = 0;
    for (int c = 0; c < 6; ++c) {
        EXPECT_LE(v->horizontalHeader()->sectionSizeHint(c), v->columnWidth(c)) << m.TextMatrix(0, c).toStdString();
        for (int r = 1; r <= 2; ++r) {
            const QString texto = m.TextMatrix(r, c);
            ASSERT_FALSE(texto.isEmpty());
            const int necesario = v->fontMetrics().horizontalAdvance(texto) + 2 * margen + 1;
            EXPECT_LE(necesario, v->columnWidth(c)) << texto.toStdString();
            const QRect celda = v->rectCelda(r, c);
            EXPECT_LE(celda.bottom(), v->viewport()->height()) << "fila " << r;
            derecha = std::max(derecha, celda.right());
        }
    }
    EXPECT_LE(derecha, v->viewport()->width());
}
