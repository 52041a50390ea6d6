#pragma once
// The row summary under the grids: the current row's year budgeted and
// historic, their difference and its percentage, the retail ratios of a
// department, the year's own actuals to date and the year-end forecast, and
// a bar chart of the twelve months: budget, history and actual.
// It only shows what the worksheet computes (CalculoResumen); the worksheet
// creates it the first time it is asked for and feeds it only while shown.

#include "worksheet/core/ResumenFila.h"

#include <QWidget>

class QBarSet;
class QChart;
class QChartView;
class QLabel;
class QCategoryAxis;

namespace presupuestos {

class PanelResumen : public QWidget {
    Q_OBJECT
public:
    explicit PanelResumen(QWidget* parent = nullptr);

    // formato: the worksheet's display format of amounts.
    void mostrar(const ResumenFila& r, const QString& formato, int ejercicio, int ejercicioHistorico);
    const ResumenFila& resumen() const { return resumen_; }
    // How many times it has been given figures, for tests of what it costs.
    int veces() const { return veces_; }

    QLabel* lblTitulo = nullptr;
    QLabel* lblTituloPresupuesto = nullptr;
    QLabel* lblTituloHistorico = nullptr;
    QLabel* lblPresupuesto = nullptr;
    QLabel* lblHistorico = nullptr;
    QLabel* lblDiferencia = nullptr;
    QLabel* lblPorcentaje = nullptr;
    // The budget year's own actuals of its closed months and the year-end
    // forecast they lead to; shown once a month of the year is closed.
    QLabel* lblTituloReal = nullptr;
    QLabel* lblReal = nullptr;
    QLabel* lblTituloPrevision = nullptr;
    QLabel* lblPrevision = nullptr;
    QLabel* lblTicketMedio = nullptr;
    QLabel* lblVentasDia = nullptr;
    QChartView* grafico = nullptr;
    QBarSet* barrasPresupuesto = nullptr;
    QBarSet* barrasHistorico = nullptr;
    QBarSet* barrasReal = nullptr;

private:
    QChart* chart_ = nullptr;
    QCategoryAxis* eje_ = nullptr;
    QLabel* lblTituloTicket_ = nullptr;
    QLabel* lblTituloVentasDia_ = nullptr;
    ResumenFila resumen_;
    int veces_ = 0;
};

} // namespace presupuestos
