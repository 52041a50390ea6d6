#include "worksheet/PanelResumen.h"

#include "common/NumerosEs.h"
#include "grid/ModeloRejilla.h"

#include <QBarCategoryAxis>
#include <QBarSeries>
#include <QBarSet>
#include <QCategoryAxis>
#include <QChart>
#include <QChartView>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <algorithm>

namespace presupuestos {

namespace {

const QString kNada = QStringLiteral("—");

QString razon(std::optional<double> v)
{
    return v ? es::formatear(*v, QStringLiteral("#,0.00")) : kNada;
}

QLabel* cifra(QWidget* padre, const char* nombre)
{
    auto* l = new QLabel(kNada, padre);
    l->setObjectName(QString::fromLatin1(nombre));
    l->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    l->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return l;
}

} // namespace

PanelResumen::PanelResumen(QWidget* parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("panelResumen"));
    lblTitulo = new QLabel(this);
    lblTitulo->setObjectName(QStringLiteral("lblTituloResumen"));
    QFont negrita = lblTitulo->font();
    negrita.setBold(true);
    lblTitulo->setFont(negrita);
    lblTituloPresupuesto = new QLabel(QStringLiteral("Presupuesto"), this);
    lblTituloHistorico = new QLabel(QStringLiteral("Histórico"), this);
    lblPresupuesto = cifra(this, "lblResumenPresupuesto");
    lblHistorico = cifra(this, "lblResumenHistorico");
    lblDiferencia = cifra(this, "lblResumenDiferencia");
    lblPorcentaje = cifra(this, "lblResumenPorcentaje");
    lblTituloReal = new QLabel(this);
    lblReal = cifra(this, "lblResumenReal");
    lblTituloPrevision = new QLabel(this);
    lblPrevision = cifra(this, "lblResumenPrevision");
    lblTicketMedio = cifra(this, "lblResumenTicketMedio");
    lblVentasDia = cifra(this, "lblResumenVentasDia");
    lblTituloTicket_ = new QLabel(QStringLiteral("Ticket medio (presupuesto / histórico)"), this);
    lblTituloVentasDia_ = new QLabel(QStringLiteral("Ventas por día abierto (presupuesto / histórico)"), this);

    auto* cifras = new QGridLayout;
    int f = 0;
    cifras->addWidget(lblTitulo, f++, 0, 1, 2);
    cifras->addWidget(lblTituloPresupuesto, f, 0);
    cifras->addWidget(lblPresupuesto, f++, 1);
    cifras->addWidget(lblTituloHistorico, f, 0);
    cifras->addWidget(lblHistorico, f++, 1);
    cifras->addWidget(new QLabel(QStringLiteral("Diferencia"), this), f, 0);
    cifras->addWidget(lblDiferencia, f++, 1);
    cifras->addWidget(new QLabel(QStringLiteral("Diferencia %"), this), f, 0);
    cifras->addWidget(lblPorcentaje, f++, 1);
    cifras->addWidget(lblTituloReal, f, 0);
    cifras->addWidget(lblReal, f++, 1);
    cifras->addWidget(lblTituloPrevision, f, 0);
    cifras->addWidget(lblPrevision, f++, 1);
    cifras->addWidget(lblTituloTicket_, f++, 0, 1, 2);
    cifras->addWidget(lblTicketMedio, f++, 0, 1, 2);
    cifras->addWidget(lblTituloVentasDia_, f++, 0, 1, 2);
    cifras->addWidget(lblVentasDia, f++, 0, 1, 2);
    cifras->setRowStretch(f, 1);

    barrasPresupuesto = new QBarSet(QStringLiteral("Presupuesto"));
    barrasHistorico = new QBarSet(QStringLiteral("Histórico"));
    barrasPresupuesto->setColor(QColor(92, 177, 252));
    barrasHistorico->setColor(QColor(160, 160, 160));
    barrasReal = new QBarSet(QStringLiteral("Real"));
    barrasReal->setColor(QColor(38, 140, 70));
    QStringList meses;
    for (int m = 1; m <= 12; ++m) {
        meses << es::nombreMes(m).left(3);
        barrasPresupuesto->append(0);
        barrasHistorico->append(0);
        barrasReal->append(0);
    }
    auto* serie = new QBarSeries;
    serie->append(barrasPresupuesto);
    serie->append(barrasHistorico);
    serie->append(barrasReal);
    chart_ = new QChart;
    chart_->addSeries(serie);
    chart_->setAnimationOptions(QChart::NoAnimation);
    chart_->legend()->setAlignment(Qt::AlignRight);
    chart_->setMargins(QMargins(2, 2, 2, 2));
    auto* ejeMeses = new QBarCategoryAxis;
    ejeMeses->append(meses);
    // Twelve month names have to fit under a panel a few hundred pixels wide.
    QFont pequena = font();
    pequena.setPointSizeF(pequena.pointSizeF() * 0.85);
    ejeMeses->setLabelsFont(pequena);
    chart_->addAxis(ejeMeses, Qt::AlignBottom);
    serie->attachAxis(ejeMeses);
    // Labels on the values, each written by the program (see mostrar).
    eje_ = new QCategoryAxis;
    eje_->setLabelsPosition(QCategoryAxis::AxisLabelsPositionOnValue);
    eje_->setLabelsFont(pequena);
    chart_->addAxis(eje_, Qt::AlignLeft);
    serie->attachAxis(eje_);
    grafico = new QChartView(chart_, this);
    grafico->setObjectName(QStringLiteral("graficoResumen"));
    grafico->setRenderHint(QPainter::Antialiasing);

    auto* capa = new QHBoxLayout(this);
    capa->setContentsMargins(0, 4, 0, 0);
    auto* izquierda = new QWidget(this);
    izquierda->setLayout(cifras);
    izquierda->setFixedWidth(330);
    capa->addWidget(izquierda);
    capa->addWidget(grafico, 1);
    setFixedHeight(260);
}

void PanelResumen::mostrar(const ResumenFila& r, const QString& formato, int ejercicio, int ejercicioHistorico)
{
    ++veces_;
    resumen_ = r;
    const bool hay = r.tipo != ResumenFila::Tipo::Ninguna;
    lblTitulo->setText(hay ? r.titulo : QStringLiteral("Seleccione una fila"));
    lblTituloPresupuesto->setText(QStringLiteral("Presupuesto %1").arg(ejercicio));
    lblTituloHistorico->setText(QStringLiteral("Histórico %1").arg(ejercicioHistorico));
    auto importe = [&](Suma s) { return ModeloRejilla::FormatearSuma(s, formato); };
    lblPresupuesto->setText(hay ? importe(r.presupuesto.total) : kNada);
    lblHistorico->setText(hay && r.conHistorico ? importe(r.historico.total) : kNada);
    lblDiferencia->setText(hay && r.conHistorico ? importe(r.diferencia()) : kNada);
    const auto pct = r.conHistorico ? r.porcentaje() : std::nullopt;
    lblPorcentaje->setText(hay && pct ? es::formatear(*pct, QStringLiteral("#,0.0")) + QStringLiteral(" %") : kNada);
    const bool conReal = hay && r.mesesCerrados > 0;
    for (QWidget* w : {lblTituloReal, lblReal, lblTituloPrevision, lblPrevision})
        w->setVisible(conReal);
    if (conReal) {
        const auto mes = [](int m) { return es::nombreMes(m).left(3).toLower(); };
        const QString hasta = r.mesesCerrados == 1 ? mes(1) : mes(1) + QStringLiteral("–") + mes(r.mesesCerrados);
        lblTituloReal->setText(QStringLiteral("Real %1 (%2)").arg(ejercicio).arg(hasta));
        lblReal->setText(importe(r.real.total));
        lblTituloPrevision->setText(QStringLiteral("Previsión de cierre %1").arg(ejercicio));
        lblPrevision->setText(importe(r.previsionAnual()));
    }
    const bool ratios = hay && r.tipo != ResumenFila::Tipo::Cuenta && r.conEstadisticas;
    for (QWidget* w : {static_cast<QWidget*>(lblTituloTicket_), static_cast<QWidget*>(lblTicketMedio),
                       static_cast<QWidget*>(lblTituloVentasDia_), static_cast<QWidget*>(lblVentasDia)})
        w->setVisible(ratios);
    if (ratios) {
        lblTicketMedio->setText(razon(r.presupuesto.ticketMedio()) + QStringLiteral(" / ")
                                + razon(r.conHistorico ? r.historico.ticketMedio() : std::nullopt));
        lblVentasDia->setText(razon(r.presupuesto.ventasPorDia()) + QStringLiteral(" / ")
                              + razon(r.conHistorico ? r.historico.ventasPorDia() : std::nullopt));
    }

    barrasPresupuesto->setLabel(QStringLiteral("Presupuesto %1").arg(ejercicio));
    barrasHistorico->setLabel(QStringLiteral("Histórico %1").arg(ejercicioHistorico));
    barrasReal->setLabel(QStringLiteral("Real %1").arg(ejercicio));
    double menor = 0, mayor = 0;
    for (int i = 0; i < 12; ++i) {
        const double p = hay ? static_cast<double>(r.presupuesto.meses[static_cast<std::size_t>(i)]) / 10000.0 : 0.0;
        const double h = hay && r.conHistorico ? static_cast<double>(r.historico.meses[static_cast<std::size_t>(i)]) / 10000.0 : 0.0;
        barrasPresupuesto->replace(i, p);
        const double real = conReal && i < r.mesesCerrados ? static_cast<double>(r.real.meses[static_cast<std::size_t>(i)]) / 10000.0 : 0.0;
        barrasHistorico->replace(i, h);
        barrasReal->replace(i, real);
        menor = std::min({menor, p, h, real});
        mayor = std::max({mayor, p, h, real});
    }
    if (mayor == menor)
        mayor = menor + 1;
    eje_->setRange(menor, mayor);
    eje_->applyNiceNumbers();
    // The scale reads as the grid does ("-5.000"): Qt would write it with
    // the locale's rules, and Spanish ones leave four digits ungrouped.
    for (const QString& etiqueta : eje_->categoriesLabels())
        eje_->remove(etiqueta);
    eje_->setStartValue(eje_->min());
    const int marcas = std::max(2, eje_->tickCount());
    const double paso = (eje_->max() - eje_->min()) / (marcas - 1);
    for (int i = 0; i < marcas; ++i) {
        const double valor = eje_->min() + i * paso;
        eje_->append(es::formatear(valor, QStringLiteral("#,0")), valor);
    }
}

} // namespace presupuestos
