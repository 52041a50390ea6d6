#include "progress/frmProgress.h"

#include "common/VbError.h"
#include "desktop/Ventana.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QVBoxLayout>
#include <limits>

namespace presupuestos {

frmProgress::frmProgress(QWidget* parent) : QWidget(parent, Qt::Tool | Qt::WindowTitleHint | Qt::CustomizeWindowHint)
{
    setObjectName(QStringLiteral("frmProgress"));
    setWindowTitle(QStringLiteral("Progreso"));
    setFixedSize(380, 130);
    QFont verdana(QStringLiteral("Verdana"));
    verdana.setPointSize(9);
    lblTitle = new QLabel(QStringLiteral("Titulo"), this);
    lblTitle->setObjectName(QStringLiteral("lblTitle"));
    QFont negrita = verdana;
    negrita.setBold(true);
    lblTitle->setFont(negrita);
    ProgressBar1 = new QProgressBar(this);
    ProgressBar1->setObjectName(QStringLiteral("ProgressBar1"));
    ProgressBar1->setTextVisible(false);
    lblProgressText = new QLabel(QStringLiteral("Inciando proceso..."), this);
    lblProgressText->setObjectName(QStringLiteral("lblProgressText"));
    lblProgressText->setFont(verdana);
    cmdCancelar = new QPushButton(QStringLiteral("Cancelar"), this);
    cmdCancelar->setObjectName(QStringLiteral("cmdCancelar"));
    Timer1 = new QTimer(this);
    Timer1->setObjectName(QStringLiteral("Timer1"));

    auto* capa = new QVBoxLayout(this);
    capa->addWidget(lblTitle);
    capa->addWidget(ProgressBar1);
    auto* abajo = new QHBoxLayout;
    abajo->addWidget(lblProgressText, 1);
    abajo->addWidget(cmdCancelar);
    capa->addLayout(abajo);

    connect(cmdCancelar, &QPushButton::clicked, this, &frmProgress::Cancel);
    connect(Timer1, &QTimer::timeout, this, &frmProgress::Timer1_Timer);

    // Centred on the screen and above every other window.
    if (QScreen* pantalla = QGuiApplication::primaryScreen()) {
        const QRect r = pantalla->availableGeometry();
        move(r.x() + (r.width() - width()) / 2, r.y() + (r.height() - height()) / 2);
    }
    MantenerEncima(this);
}

void frmProgress::Init(const QString& strTitle, int intMax)
{
    lblTitle->setText(strTitle);
    ProgressBar1->setRange(0, std::max(0, intMax));
    ProgressBar1->setValue(0);
}

void frmProgress::SetText(const QString& strText)
{
    lblProgressText->setText(strText);
    QCoreApplication::processEvents();
}

void frmProgress::SetValue(int Value)
{
    // A value at or past the maximum is ignored entirely, without a yield.
    if (Value >= ProgressBar1->maximum())
        return;
    ProgressBar1->setValue(Value);
    // An interval of 0 keeps the timer from ever firing.
    if (InicioDiferido && !Timer1->isActive() && intervalo_ > 0)
        Timer1->start();
    QCoreApplication::processEvents();
}

void frmProgress::Start_Delayed(qint16 s)
{
    InicioDiferido = true;
    const int milisegundos = static_cast<int>(s) * 1000;
    if (milisegundos > std::numeric_limits<qint16>::max() || milisegundos < std::numeric_limits<qint16>::min())
        throw VbError::overflow();
    intervalo_ = milisegundos;
    Timer1->setInterval(milisegundos);
}

void frmProgress::Timer1_Timer()
{
    Timer1->stop();
    InicioDiferido = false;
    show();
    QCoreApplication::processEvents();
}

clsProgress::clsProgress(QObject* parent) : QObject(parent) {}

clsProgress::~clsProgress() { delete form_; }

void clsProgress::Init(const QString& strTitle, int intMax)
{
    delete form_;
    form_ = new frmProgress();
    form_->Init(strTitle, intMax);
}

} // namespace presupuestos
