#pragma once
// Names shared by the parts of the worksheet form.

#include <QColor>
#include <QString>

namespace presupuestos::hoja {

// Prefix of the qualified procedure names in error titles.
inline const QString kForm = QStringLiteral("frmActPresupusto:");
inline const QColor kBlanco(255, 255, 255);
inline const QColor kRojo(255, 0, 0);
// Month m is column m + 3; the row total follows December.
constexpr int kPrimerMes = 4;
constexpr int kUltimoMes = 15;
constexpr int kTotal = 16;

} // namespace presupuestos::hoja
