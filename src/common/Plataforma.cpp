#include "common/Plataforma.h"

#include <QApplication>
#include <QClipboard>
#include <QGuiApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QWidget>

namespace presupuestos {

namespace {

struct Servicios {
    std::shared_ptr<ICuadroMensaje> mensajes = std::make_shared<CuadroMensajeQt>();
    std::shared_ptr<IPunteroRaton> puntero = std::make_shared<PunteroRatonQt>();
    std::shared_ptr<IPortapapeles> portapapeles = std::make_shared<PortapapelesQt>();
    std::shared_ptr<IFoco> foco = std::make_shared<FocoQt>();
};

Servicios& servicios()
{
    static Servicios s;
    return s;
}

} // namespace

ICuadroMensaje& Plataforma::mensajes() { return *servicios().mensajes; }
IPunteroRaton& Plataforma::puntero() { return *servicios().puntero; }
IPortapapeles& Plataforma::portapapeles() { return *servicios().portapapeles; }
IFoco& Plataforma::foco() { return *servicios().foco; }

void Plataforma::instalar(std::shared_ptr<ICuadroMensaje> m, std::shared_ptr<IPunteroRaton> p,
                          std::shared_ptr<IPortapapeles> c, std::shared_ptr<IFoco> f)
{
    auto& s = servicios();
    if (m) s.mensajes = std::move(m);
    if (p) s.puntero = std::move(p);
    if (c) s.portapapeles = std::move(c);
    if (f) s.foco = std::move(f);
}

void Plataforma::restaurarQt() { servicios() = Servicios(); }

int CuadroMensajeQt::MsgBox(const QString& prompt, int estilo, const QString& titulo)
{
    QMessageBox box(QApplication::activeWindow());
    box.setText(prompt);
    box.setWindowTitle(titulo);
    switch (estilo & 0x70) {
    case vb::Critical: box.setIcon(QMessageBox::Critical); break;
    case vb::Question: box.setIcon(QMessageBox::Question); break;
    case vb::Exclamation: box.setIcon(QMessageBox::Warning); break;
    case vb::Information: box.setIcon(QMessageBox::Information); break;
    default: break;
    }
    const bool siNo = (estilo & 0x0F) == vb::YesNo;
    if (siNo) {
        QPushButton* si = box.addButton(QStringLiteral("&Sí"), QMessageBox::YesRole);
        QPushButton* no = box.addButton(QStringLiteral("&No"), QMessageBox::NoRole);
        box.setDefaultButton((estilo & vb::DefaultButton2) ? no : si);
        box.setEscapeButton(no);
        box.exec();
        return box.clickedButton() == si ? vb::RespuestaYes : vb::RespuestaNo;
    }
    box.addButton(QStringLiteral("Aceptar"), QMessageBox::AcceptRole);
    box.exec();
    return vb::RespuestaOK;
}

void PunteroRatonQt::establecer(Puntero p)
{
    if (p == actual_)
        return;
    if (qobject_cast<QApplication*>(QCoreApplication::instance())) {
        if (actual_ == Puntero::RelojArena)
            QApplication::restoreOverrideCursor();
        if (p == Puntero::RelojArena)
            QApplication::setOverrideCursor(Qt::WaitCursor);
    }
    actual_ = p;
}

QString PortapapelesQt::texto() const
{
    return QGuiApplication::clipboard() ? QGuiApplication::clipboard()->text() : QString();
}

void PortapapelesQt::limpiar()
{
    if (QGuiApplication::clipboard())
        QGuiApplication::clipboard()->clear();
}

void PortapapelesQt::ponerTexto(const QString& texto)
{
    if (QGuiApplication::clipboard())
        QGuiApplication::clipboard()->setText(texto);
}

QString FocoQt::nombreControlActivo() const
{
    QWidget* w = QApplication::focusWidget();
    // A grid's editor or viewport has the focus while its grid is the active control.
    while (w && w->objectName().isEmpty())
        w = w->parentWidget();
    return w ? w->objectName() : QString();
}

int CuadroMensajeGrabado::MsgBox(const QString& prompt, int estilo, const QString& titulo)
{
    mostrados.push_back({prompt, estilo, titulo});
    if (!respuestas.empty()) {
        const int r = respuestas.front();
        respuestas.erase(respuestas.begin());
        return r;
    }
    return (estilo & 0x0F) == vb::YesNo ? vb::RespuestaYes : vb::RespuestaOK;
}

PlataformaDePrueba::PlataformaDePrueba()
    : mensajes(std::make_shared<CuadroMensajeGrabado>()),
      puntero(std::make_shared<PunteroRatonGrabado>()),
      portapapeles(std::make_shared<PortapapelesGrabado>()),
      foco(std::make_shared<FocoGrabado>())
{
    Plataforma::instalar(mensajes, puntero, portapapeles, foco);
}

PlataformaDePrueba::~PlataformaDePrueba() { Plataforma::restaurarQt(); }

} // namespace presupuestos
