#include "worksheet/dlgSeguimiento.h"

#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QSpinBox>
#include <QTableView>
#include <QVBoxLayout>

#include <algorithm>

namespace presupuestos {

dlgSeguimiento::dlgSeguimiento(const Sesion& sesion, const QString& formato, QWidget* parent) : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Seguimiento del presupuesto %1").arg(sesion.ejercicio));
    Seguimiento seguimiento(sesion);
    seguimiento.cargar();
    modelo_.setFormato(formato);
    modelo_.setFilas(seguimiento.filas());
    modelo_.setMesesCerrados(seguimiento.ultimoMesConSaldos());

    auto* capa = new QVBoxLayout(this);
    auto* barra = new QHBoxLayout;
    barra->addWidget(new QLabel(QStringLiteral("Meses cerrados:"), this));
    meses_ = new QSpinBox(this);
    meses_->setRange(0, 12);
    meses_->setValue(modelo_.mesesCerrados());
    meses_->setToolTip(QStringLiteral("Meses del año con los saldos ya cerrados; por defecto, hasta el último con saldos"));
    barra->addWidget(meses_);
    barra->addSpacing(12);
    barra->addWidget(new QLabel(QStringLiteral("Marcar desviaciones de más del"), this));
    umbral_ = new QDoubleSpinBox(this);
    umbral_->setRange(0, 1000);
    umbral_->setDecimals(1);
    umbral_->setSuffix(QStringLiteral(" %"));
    umbral_->setLocale(QLocale(QLocale::Spanish, QLocale::Spain));
    umbral_->setValue(10);
    barra->addWidget(umbral_);
    barra->addStretch();
    capa->addLayout(barra);

    tabla_ = new QTableView(this);
    tabla_->setModel(&modelo_);
    tabla_->verticalHeader()->hide();
    // Rows as tight as the worksheet's (its 315 twips, or the text's height),
    // not the style's roomier default: twice as many accounts in sight.
    const int alto = std::max(21, tabla_->fontMetrics().height() + 4);
    tabla_->verticalHeader()->setMinimumSectionSize(alto);
    tabla_->verticalHeader()->setDefaultSectionSize(alto);
    tabla_->setWordWrap(false);
    tabla_->setSelectionBehavior(QAbstractItemView::SelectRows);
    tabla_->horizontalHeader()->setSectionResizeMode(ModeloSeguimiento::Nombre, QHeaderView::Stretch);
    tabla_->resizeColumnsToContents();
    capa->addWidget(tabla_, 1);

    leyenda_ = new QLabel(this);
    leyenda_->setWordWrap(true);
    leyenda_->setText(QStringLiteral(
        "Real a la fecha: saldo (haber menos debe) de los meses cerrados. Presupuesto a la fecha: lo presupuestado para esos meses. "
        "Desviación: real menos presupuesto; en porcentaje, sobre lo presupuestado (\"—\" sin presupuesto o con signo contrario). "
        "Previsión de cierre: el real de los meses cerrados más el presupuesto de los demás. Los gastos llevan signo negativo, así que "
        "una desviación negativa resta del resultado (rojo) y una positiva suma (verde) cuando pasa del umbral."));
    capa->addWidget(leyenda_);
    auto* botones = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(botones, &QDialogButtonBox::rejected, this, &QDialog::reject);
    capa->addWidget(botones);

    connect(meses_, &QSpinBox::valueChanged, this, [this](int n) { modelo_.setMesesCerrados(n); });
    connect(umbral_, &QDoubleSpinBox::valueChanged, this, [this](double u) { modelo_.setUmbral(u); });
    resize(1000, 600);
}

} // namespace presupuestos
