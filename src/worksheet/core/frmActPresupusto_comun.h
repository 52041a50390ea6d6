#pragma once
// Names shared by the parts of the worksheet form.

#include "worksheet/core/Columnas.h"

#include <QColor>
#include <QString>

namespace presupuestos::hoja {

// Prefix of the qualified procedure names in error titles.
inline const QString kForm = QStringLiteral("frmActPresupusto:");
inline const QColor kBlanco(255, 255, 255);

} // namespace presupuestos::hoja
