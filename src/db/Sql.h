#pragma once
// Helpers for composing SQL texts.

#include <QString>

namespace presupuestos::sql {

// A text value to be placed between single quotes: embedded quotes doubled,
// so that a name such as "Bar D'Angelo" cannot break the statement.
inline QString texto(const QString& valor)
{
    QString s = valor;
    return s.replace(QLatin1Char('\''), QStringLiteral("''"));
}

} // namespace presupuestos::sql
