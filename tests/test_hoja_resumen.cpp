// The row summary under the grids: what it shows for a demo account and a
// demo department is what the two grids hold, and it costs nothing hidden.

#include "HojaPrueba.h"
#include "EventosPrueba.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/PanelResumen.h"
#include "worksheet/core/Columnas.h"

#include <QApplication>
#include <QBarSet>
#include <QChartView>
#include <QGraphicsTextItem>
#include <QRegularExpression>
#include <QLabel>
#include <QPushButton>
#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;
using namespace presupuestos::hoja;

namespace {

void irA(frmActPresupusto* f, int fila)
{
    f->vsPresupuesto->modelo().Select(fila, kPrimerMes);
    QApplication::processEvents();
}

} // namespace

TEST(HojaResumen, ADepartmentsFiguresAreTheSumsOfItsRowsWithItsRetailRatios)
{
    HojaAbierta h(true);
    frmActPresupusto* f = h.hoja;
    h.mostrarHistorico();
    ASSERT_EQ(f->panelResumen, nullptr) << "made only when first shown";
    f->cmdResumen->click();
    const ModeloRejilla& p = f->vsPresupuesto->modelo();
    const ModeloRejilla& hi = f->vsHistorico->modelo();
    int subtotal = -1;
    for (int r = 1; r < p.Rows() && subtotal < 0; ++r)
        if (p.IsSubtotal(r) && p.SubtotalGroupColumn(r) == kDptoNombre)
            subtotal = r;
    ASSERT_GT(subtotal, 0);
    const QString dpto = p.TextMatrix(subtotal - 1, kDpto);
    irA(f, subtotal);
    const ResumenFila& r = f->panelResumen->resumen();
    ASSERT_EQ(r.tipo, ResumenFila::Tipo::Departamento);

    Suma totalP = 0, totalH = 0, ventasH = 0, ticketsH = 0;
    for (int fila = 1; fila < p.Rows(); ++fila)
        if (!p.IsSubtotal(fila) && p.TextMatrix(fila, kDpto) == dpto)
            totalP += p.ValorMatrix(fila, kTotal);
    for (int fila = 1; fila < hi.Rows(); ++fila) {
        if (hi.IsSubtotal(fila) || hi.TextMatrix(fila, kDpto) != dpto)
            continue;
        totalH += hi.ValorMatrix(fila, kTotal);
        if (hi.TextMatrix(fila, kCuenta).startsWith(QLatin1String("70")))
            ventasH += hi.ValorMatrix(fila, kTotal);
        if (hi.TextMatrix(fila, kCuenta) == QLatin1String("CTO003"))
            ticketsH += hi.ValorMatrix(fila, kTotal);
    }
    EXPECT_EQ(r.presupuesto.total, totalP);
    EXPECT_EQ(r.historico.total, totalH);
    ASSERT_TRUE(r.conEstadisticas) << "the demo's stores have tickets and days open";
    ASSERT_NE(ticketsH, 0);
    EXPECT_DOUBLE_EQ(r.historico.ticketMedio().value_or(0), static_cast<double>(ventasH) / static_cast<double>(ticketsH));
    EXPECT_TRUE(f->panelResumen->lblTicketMedio->isVisible());
    // The chart's scale reads as the grid does, thousands apart with a point,
    // for a department and for a rent of four digits a month.
    f->show();
    const auto comprobarEscala = [&] {
        QApplication::processEvents();
        QStringList textos;
        for (const QGraphicsItem* i : f->panelResumen->grafico->scene()->items())
            if (const auto* texto = dynamic_cast<const QGraphicsTextItem*>(i))
                if (texto->toPlainText().contains(QRegularExpression(QStringLiteral("^-?[0-9.]+$"))))
                    textos << texto->toPlainText();
        const QString todos = textos.join(QLatin1Char(' '));
        EXPECT_EQ(textos.filter(QRegularExpression(QStringLiteral("^-?[0-9]{1,3}(\\.[0-9]{3})*$"))), textos) << todos.toStdString();
        EXPECT_TRUE(todos.contains(QLatin1Char('.'))) << todos.toStdString();
    };
    comprobarEscala();
    irA(f, filaDe(p, QStringLiteral("62100001"), dpto));
    comprobarEscala();

    // An account row shows against its own history row, and an edit of it at once.
    const int fila = filaDe(p, QStringLiteral("70000001"), QStringLiteral("1"));
    irA(f, fila);
    EXPECT_EQ(f->panelResumen->resumen().tipo, ResumenFila::Tipo::Cuenta);
    EXPECT_EQ(f->panelResumen->lblPresupuesto->text(), p.TextMatrix(fila, kTotal));
    EXPECT_EQ(f->panelResumen->lblHistorico->text(), hi.TextMatrix(filaDe(hi, QStringLiteral("70000001"), QStringLiteral("1")), kTotal));
    f->EditCellValue(fila, colMes(2), Currency::fromInt(1234));
    QApplication::processEvents();
    EXPECT_EQ(f->panelResumen->resumen().presupuesto.meses[1], 1234 * Suma(10000));
}

TEST(HojaResumen, HiddenItWorksOutNothing)
{
    HojaAbierta h(true);
    frmActPresupusto* f = h.hoja;
    f->cmdResumen->click();
    QApplication::processEvents();
    const int veces = f->panelResumen->veces();
    f->cmdResumen->click();
    EXPECT_FALSE(f->panelResumen->isVisible());
    irA(f, 3);
    irA(f, 5);
    f->CargarPresupuesto();
    QApplication::processEvents();
    EXPECT_EQ(f->panelResumen->veces(), veces);
    // Without the history beside it there is nothing to compare with.
    f->cmdResumen->click();
    QApplication::processEvents();
    EXPECT_FALSE(f->panelResumen->resumen().conHistorico);
    EXPECT_EQ(f->panelResumen->lblHistorico->text(), QStringLiteral("—"));
}

// With months of the budget year closed, the summary reads each month as
// budget, actual and forecast: the actuals to date and the year-end figure
// they lead to, for an account, its department and the whole company.
// Ventas Norte is budgeted at 100 a month; January and February booked
// 120 and 80 (credit); nothing else of 2027 is booked.
TEST(HojaResumen, ClosedMonthsReadAsBudgetActualAndForecast)
{
    HojaAbierta h;
    frmActPresupusto* f = h.hoja;
    f->cmdResumen->click();
    irA(f, filas::kVentasNorte);
    EXPECT_FALSE(f->panelResumen->lblReal->isVisibleTo(f->panelResumen)) << "no month of 2027 is closed yet";

    h.bd.sql(QStringLiteral("INSERT INTO Acumulados_Dpto (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, H1, H2) VALUES (1, 2027, '70000001', 1, 120, 80)"));
    tecla(f->vsPresupuesto, Qt::Key_F5);   // a reload reads the year's actuals again
    // Luz Sur's January budget (-50,5) gives way to its actual (none).
    struct Caso {
        int fila;
        const char* real;
        const char* prevision;
    } casos[] = {
        {filas::kVentasNorte, "200", "1.200"},
        {filas::kTotalNorte, "200", "1.200"},
        {filas::kLuzSur, "0", "0"},
        {1, "200", "1.200"},
    };
    for (const Caso& c : casos) {
        irA(f, c.fila);
        const PanelResumen* p = f->panelResumen;
        EXPECT_TRUE(p->lblReal->isVisibleTo(f->panelResumen)) << c.fila;
        EXPECT_EQ(p->lblTituloReal->text(), QStringLiteral("Real 2027 (ene–feb)")) << c.fila;
        EXPECT_EQ(p->lblReal->text(), QLatin1String(c.real)) << c.fila;
        EXPECT_EQ(p->lblPrevision->text(), QLatin1String(c.prevision)) << c.fila;
    }
    irA(f, filas::kVentasNorte);
    const QBarSet* real = f->panelResumen->barrasReal;
    EXPECT_EQ(std::vector<double>({real->at(0), real->at(1), real->at(2)}), std::vector<double>({120, 80, 0}));
    const auto prevision = f->panelResumen->resumen().prevision();
    EXPECT_EQ(prevision[0], 120 * Suma(10000));
    EXPECT_EQ(prevision[2], 100 * Suma(10000));
}
