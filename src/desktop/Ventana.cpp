#include "desktop/Ventana.h"

#include <QWidget>

namespace presupuestos {

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

} // namespace presupuestos
