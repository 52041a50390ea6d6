#include "calculation/frmOperaciones.h"

namespace presupuestos {

frmOperaciones::frmOperaciones(QWidget* parent) : QWidget(parent, Qt::Tool)
{
    setObjectName(QStringLiteral("frmOperaciones"));
    setWindowTitle(QStringLiteral("Operaciones"));
}

void frmOperaciones::setEjercicio(qint16 ejercicio) { ejercicio_ = ejercicio; }

void frmOperaciones::setDecimales(qint16 decimales) { decimales_ = decimales; }

} // namespace presupuestos
