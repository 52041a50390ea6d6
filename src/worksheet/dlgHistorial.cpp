#include "worksheet/dlgHistorial.h"

#include "common/NumerosEs.h"
#include "worksheet/core/LineasHistorial.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace presupuestos {

dlgHistorial::dlgHistorial(const Diario& diario, QString cuenta, qint16 dpto, qint16 ejercicio, int mes, QString formato,
                           QWidget* parent)
    : QDialog(parent), formato_(std::move(formato)), cuenta_(std::move(cuenta)), dpto_(dpto)
{
    setObjectName(QStringLiteral("dlgHistorial"));
    setWindowTitle(QStringLiteral("Historial de la celda"));
    auto* capa = new QVBoxLayout(this);
    titulo_ = new QLabel(this);
    aviso_ = new QLabel(this);
    aviso_->setWordWrap(true);
    tabla_ = new QTableWidget(0, 6, this);
    tabla_->setHorizontalHeaderLabels({QStringLiteral("Fecha"), QStringLiteral("Usuario"), QStringLiteral("Cómo"),
                                       QStringLiteral("Qué"), QStringLiteral("Antes"), QStringLiteral("Después")});
    tabla_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    tabla_->setSelectionBehavior(QAbstractItemView::SelectRows);
    tabla_->verticalHeader()->hide();
    // The description takes what the other columns leave, cut short if it
    // must (its tooltip has it whole), so that the amounts stay in sight.
    tabla_->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    tabla_->horizontalHeader()->setSectionResizeMode(2, QHeaderView::Stretch);
    tabla_->setWordWrap(false);
    tabla_->setTextElideMode(Qt::ElideRight);
    fila_ = new QPushButton(QStringLiteral("Historial de la fila"), this);
    auto* botones = new QDialogButtonBox(QDialogButtonBox::Close, this);
    botones->addButton(fila_, QDialogButtonBox::ActionRole);
    capa->addWidget(titulo_);
    capa->addWidget(aviso_);
    capa->addWidget(tabla_);
    capa->addWidget(botones);
    connect(botones, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(fila_, &QPushButton::clicked, this, &dlgHistorial::mostrarFila);
    resize(760, 360);

    if (!diario.disponible()) {
        aviso_->setText(QStringLiteral("El historial no está disponible: la base de datos no tiene la tabla "
                                       "Presupuestos_Cambios. Deshacer sigue funcionando durante la sesión."));
        fila_->setEnabled(false);
    } else {
        entradas_ = diario.historial(cuenta_, dpto_, ejercicio);
        aviso_->hide();
    }
    llenar(mes);
    titulo_->setText(QStringLiteral("Cuenta %1, departamento %2: %3").arg(cuenta_, QString::number(dpto_), es::nombreMes(mes)));
}

void dlgHistorial::mostrarFila()
{
    titulo_->setText(QStringLiteral("Cuenta %1, departamento %2: toda la fila").arg(cuenta_, QString::number(dpto_)));
    fila_->setEnabled(false);
    llenar(0);
}

void dlgHistorial::llenar(int mes)
{
    const auto lineas = lineasHistorial(entradas_, mes, formato_);
    tabla_->setRowCount(static_cast<int>(lineas.size()));
    for (int i = 0; i < static_cast<int>(lineas.size()); ++i) {
        const LineaHistorial& l = lineas[static_cast<std::size_t>(i)];
        const QString celdas[] = {l.fecha, l.usuario, l.como, l.que, l.antes, l.despues};
        for (int c = 0; c < 6; ++c) {
            auto* item = new QTableWidgetItem(celdas[c]);
            if (c >= 4)
                item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            if (c == 2)
                item->setToolTip(celdas[c]);
            tabla_->setItem(i, c, item);
        }
    }
}

} // namespace presupuestos
