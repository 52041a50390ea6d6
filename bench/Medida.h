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

// A spreadsheet's clipboard text of 1,000 rows x 12 months, the block the
// paste benchmarks paste: row i holds "100+i,m" in month m.
inline QString bloquePegado()
{
    QStringList lineas;
    for (int i = 0; i < 1000; ++i) {
        QStringList campos;
        for (int mes = 1; mes <= 12; ++mes)
            campos << QStringLiteral("%1,%2").arg(100 + i).arg(mes);
        lineas << campos.join(QLatin1Char('\t'));
    }
    return lineas.join(QStringLiteral("\r\n")) + QStringLiteral("\r\n");
}

} // namespace presupuestos::medida
