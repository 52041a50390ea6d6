#pragma once
// Names shared by the parts of the worksheet form.

#include "worksheet/core/Columnas.h"

#include <QColor>
#include <QString>

namespace presupuestos::hoja {

// Prefix of the qualified procedure names in error titles.
inline const QString kForm = QStringLiteral("frmActPresupusto:");
inline const QColor kBlanco(255, 255, 255);
inline const QColor kRojo(255, 0, 0);
// Another user's change, for a moment.
inline const QColor kColorCambioAjeno(255, 230, 140);
// The view of the accounts that are not budgeted.
inline const QColor kColorFondoNoPresupuestables(255, 145, 100);

} // namespace presupuestos::hoja
