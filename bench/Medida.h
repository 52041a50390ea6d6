#pragma once
// What every benchmark here needs: milliseconds from a timer and whole-number
// options from the command line.

#include <QElapsedTimer>
#include <QStringList>

namespace presupuestos::medida {

inline double ms(const QElapsedTimer& t) { return t.nsecsElapsed() / 1e6; }

inline int argumento(const QStringList& args, const QString& nombre, int defecto)
{
    const int i = args.indexOf(nombre);
    return (i >= 0 && i + 1 < args.size()) ? args[i + 1].toInt() : defecto;
}

} // namespace presupuestos::medida
