#include "grid/widgets/UpDown.h"

#include "common/NumerosEs.h"

#include <QKeyEvent>
#include <QLineEdit>
#include <QToolButton>
#include <QVBoxLayout>

namespace presupuestos {

UpDown::UpDown(QWidget* parent) : QWidget(parent)
{
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

void UpDown::setCompanero(QLineEdit* companero, int minimo, int maximo)
{
    if (companero_)
        companero_->removeEventFilter(this);
    companero_ = companero;
    if (companero_)
        companero_->installEventFilter(this);
    minimo_ = minimo;
    maximo_ = maximo;
}

int UpDown::valor() const { return companero_ ? es::valEntero(companero_->text()) : 0; }

void UpDown::paso(int delta)
{
    if (!companero_)
        return;
    const int v = std::clamp(valor() + delta, minimo_, maximo_);
    companero_->setText(QString::number(v));
}

bool UpDown::eventFilter(QObject* objeto, QEvent* evento)
{
    if (objeto != companero_ || evento->type() != QEvent::KeyPress)
        return QWidget::eventFilter(objeto, evento);
    const auto* tecla = static_cast<QKeyEvent*>(evento);
    if (tecla->key() == Qt::Key_Up) {
        clickArriba();
        return true;
    }
    if (tecla->key() == Qt::Key_Down) {
        clickAbajo();
        return true;
    }
    const int digito = tecla->key() - Qt::Key_0;
    if (tecla->modifiers() == Qt::NoModifier && digito >= minimo_ && digito <= maximo_ && digito >= 0 && digito <= 9) {
        const int antes = valor();
        companero_->setText(QString::number(digito));
        if (digito > antes)
            emit UpClick();
        else if (digito < antes)
            emit DownClick();
        return true;
    }
    return QWidget::eventFilter(objeto, evento);
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
