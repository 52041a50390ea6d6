#include "grid/widgets/UpDown.h"

#include "common/NumerosEs.h"

#include <QLineEdit>
#include <QToolButton>
#include <QVBoxLayout>

namespace presupuestos {

UpDown::UpDown(const QString& nombre, QLineEdit* companero, int minimo, int maximo, QWidget* parent)
    : QWidget(parent), companero_(companero), minimo_(minimo), maximo_(maximo)
{
    setObjectName(nombre);
    auto* capa = new QVBoxLayout(this);
    capa->setContentsMargins(0, 0, 0, 0);
    capa->setSpacing(0);
    auto* arriba = new QToolButton(this);
    auto* abajo = new QToolButton(this);
    arriba->setArrowType(Qt::UpArrow);
    abajo->setArrowType(Qt::DownArrow);
    for (QToolButton* b : {arriba, abajo}) {
        b->setFixedSize(18, 12);
        b->setFocusPolicy(Qt::NoFocus);
        b->setAutoRaise(true);
        capa->addWidget(b);
    }
    arriba->setToolTip(QStringLiteral("Más decimales"));
    abajo->setToolTip(QStringLiteral("Menos decimales"));
    connect(arriba, &QToolButton::clicked, this, &UpDown::clickArriba);
    connect(abajo, &QToolButton::clicked, this, &UpDown::clickAbajo);
}

int UpDown::valor() const { return es::valEntero(companero_->text()); }

void UpDown::paso(int delta)
{
    const int v = std::clamp(valor() + delta, minimo_, maximo_);
    companero_->setText(QString::number(v));
}

void UpDown::clickArriba()
{
    paso(+1);
    emit UpClick();
}

void UpDown::clickAbajo()
{
    paso(-1);
    emit DownClick();
}

} // namespace presupuestos
