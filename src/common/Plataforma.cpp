#include "common/Plataforma.h"

#include <QApplication>
#include <QClipboard>
#include <QFileDialog>
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
    std::shared_ptr<IDialogoArchivo> dialogoArchivo = std::make_shared<DialogoArchivoQt>();
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
IDialogoArchivo& Plataforma::dialogoArchivo() { return *servicios().dialogoArchivo; }

void Plataforma::instalar(std::shared_ptr<ICuadroMensaje> m, std::shared_ptr<IPunteroRaton> p,
                          std::shared_ptr<IPortapapeles> c, std::shared_ptr<IFoco> f,
                          std::shared_ptr<IDialogoArchivo> d)
{
    auto& s = servicios();
    if (m) s.mensajes = std::move(m);
    if (p) s.puntero = std::move(p);
    if (c) s.portapapeles = std::move(c);
    if (f) s.foco = std::move(f);
    if (d) s.dialogoArchivo = std::move(d);
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

QString DialogoArchivoQt::abrir(const QString& filtro)
{
    return QFileDialog::getOpenFileName(QApplication::activeWindow(), QString(), QString(), filtroQt(filtro));
}

QString DialogoArchivoQt::filtroQt(const QString& filtro)
{
    const QStringList partes = filtro.split(QLatin1Char('|'));
    QStringList filtros;
    for (int i = 0; i < partes.size(); i += 2) {
        const QString descripcion = partes[i];
        const QString patrones = i + 1 < partes.size() ? partes[i + 1] : QString();
        // A description without a pattern of its own is offered as it is;
        // Qt then takes the pattern from the description's parentheses.
        if (patrones.isEmpty())
            filtros << descripcion;
        else
            filtros << descripcion + QStringLiteral(" (") + QString(patrones).replace(QLatin1Char(';'), QLatin1Char(' '))
                           + QLatin1Char(')');
    }
    return filtros.join(QStringLiteral(";;"));
}

QString DialogoArchivoGrabado::abrir(const QString& filtro)
{
    filtros.push_back(filtro);
    if (respuestas.empty())
        return QString();
    const QString r = respuestas.front();
    respuestas.erase(respuestas.begin());
    return r;
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
      foco(std::make_shared<FocoGrabado>()),
      dialogoArchivo(std::make_shared<DialogoArchivoGrabado>())
{
    Plataforma::instalar(mensajes, puntero, portapapeles, foco, dialogoArchivo);
}

PlataformaDePrueba::~PlataformaDePrueba() { Plataforma::restaurarQt(); }

} // namespace presupuestos
