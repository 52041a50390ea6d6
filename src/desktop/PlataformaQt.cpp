#include "desktop/PlataformaQt.h"

#include <QApplication>
#include <QClipboard>
#include <QFileDialog>
#include <QFileIconProvider>
#include <QMimeDatabase>
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

namespace {

// Icons and type names from what a file is called, never from what it
// holds: a file listed is never opened.
class IconosPorNombre : public QAbstractFileIconProvider {
public:
    QIcon icon(IconType tipo) const override { return iconos_.icon(tipo); }
    QIcon icon(const QFileInfo& info) const override
    {
        return iconos_.icon(info.isDir() ? QAbstractFileIconProvider::Folder : QAbstractFileIconProvider::File);
    }
    QString type(const QFileInfo& info) const override
    {
        if (info.isDir())
            return QStringLiteral("Carpeta");
        return QMimeDatabase().mimeTypeForFile(info, QMimeDatabase::MatchExtension).comment();
    }

private:
    QFileIconProvider iconos_;
};

} // namespace

std::unique_ptr<QFileDialog> DialogoArchivoQt::crear(const QString& filtro, const QString& nombrePropuesto, bool guardar)
{
    static IconosPorNombre iconos;
    auto d = std::make_unique<QFileDialog>(QApplication::activeWindow(), QString(), nombrePropuesto, filtroQt(filtro));
    d->setOption(QFileDialog::DontUseNativeDialog);
    d->setIconProvider(&iconos);
    d->setAcceptMode(guardar ? QFileDialog::AcceptSave : QFileDialog::AcceptOpen);
    d->setFileMode(guardar ? QFileDialog::AnyFile : QFileDialog::ExistingFile);
    return d;
}

QString DialogoArchivoQt::abrir(const QString& filtro)
{
    const auto d = crear(filtro, QString(), false);
    return d->exec() == QDialog::Accepted && !d->selectedFiles().isEmpty() ? d->selectedFiles().constFirst() : QString();
}

QString DialogoArchivoQt::guardar(const QString& filtro, const QString& nombrePropuesto)
{
    const auto d = crear(filtro, nombrePropuesto, true);
    return d->exec() == QDialog::Accepted && !d->selectedFiles().isEmpty() ? d->selectedFiles().constFirst() : QString();
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
