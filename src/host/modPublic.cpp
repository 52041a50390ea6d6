#include "host/modPublic.h"

#include <QWidget>

namespace presupuestos::modPublic {

std::shared_ptr<IEmpresa> EmpresaActiva;
std::shared_ptr<Conexion> ConexionActiva;
qint16 EjercicioActivo = 0;

void Liberar()
{
    ConexionActiva.reset();
    EmpresaActiva.reset();
}

void MantenerEncima(QWidget* form)
{
    if (!form)
        return;
    const bool visible = form->isVisible();
    form->setWindowFlag(Qt::WindowStaysOnTopHint, true);
    // Changing window flags hides a shown window; show it again as it was.
    if (visible)
        form->show();
}

} // namespace presupuestos::modPublic
