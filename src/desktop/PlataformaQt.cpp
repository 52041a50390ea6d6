#include "desktop/PlataformaQt.h"

#include <QApplication>
#include <QClipboard>
#include <QFileDialog>
#include <QGuiApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>
#include <memory>
#include <QMessageBox>
#include <QPushButton>
#include <QWidget>

namespace presupuestos {

void predeterminarPlataformaQt()
{
    Plataforma::predeterminar([] {
        return Plataforma::Servicios{std::make_shared<CuadroMensajeQt>(), std::make_shared<PunteroRatonQt>(),
                                     std::make_shared<PortapapelesQt>(), std::make_shared<FocoQt>(),
                                     std::make_shared<DialogoArchivoQt>()};
    });
}

QTranslator* instalarTraduccionesQt()
{
    auto traductor = std::make_unique<QTranslator>(QCoreApplication::instance());
    if (!traductor->load(QLocale(QLocale::Spanish, QLocale::Spain), QStringLiteral("qtbase"), QStringLiteral("_"),
                         QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
        return nullptr;
    QCoreApplication::installTranslator(traductor.get());
    return traductor.release();
}

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

QString DialogoArchivoQt::guardar(const QString& filtro, const QString& nombrePropuesto)
{
    return QFileDialog::getSaveFileName(QApplication::activeWindow(), QString(), nombrePropuesto, filtroQt(filtro));
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

} // namespace presupuestos
