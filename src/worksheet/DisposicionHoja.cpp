#include "worksheet/DisposicionHoja.h"

#include <QSettings>
#include <QWidget>

namespace presupuestos {

namespace {
bool activa_ = true;
const QString kGeometria = QStringLiteral("hoja/geometria");
const QString kReparto = QStringLiteral("hoja/reparto");
} // namespace

void DisposicionHoja::setActiva(bool activa) { activa_ = activa; }
bool DisposicionHoja::activa() { return activa_; }

QByteArray DisposicionHoja::geometria()
{
    if (!activa_)
        return {};
    return QSettings().value(kGeometria).toByteArray();
}

std::optional<double> DisposicionHoja::reparto()
{
    if (!activa_)
        return std::nullopt;
    bool ok = false;
    const double r = QSettings().value(kReparto).toDouble(&ok);
    // A share that leaves either grid without room is not one a user made.
    if (!ok || r < 0.05 || r > 0.95)
        return std::nullopt;
    return r;
}

void DisposicionHoja::guardar(const QWidget& ventana, std::optional<double> reparto)
{
    if (!activa_)
        return;
    QSettings ajustes;
    ajustes.setValue(kGeometria, ventana.saveGeometry());
    if (reparto)
        ajustes.setValue(kReparto, *reparto);
}

} // namespace presupuestos
