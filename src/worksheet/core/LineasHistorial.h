#pragma once
// What the history of a cell or a row shows, line by line, from the
// journal's entries: when, who, how, and the value before and after. A
// cell's history lists only the operations that changed its month.

#include "store/Diario.h"

#include <QString>
#include <vector>

namespace presupuestos {

struct LineaHistorial {
    QString fecha;
    QString usuario;
    QString como;
    QString que;      // the month, or what else of the row changed
    QString antes;
    QString despues;
};

// mes: 1 to 12 for a cell; 0 for every change of the row. formato: the
// worksheet's number format.
std::vector<LineaHistorial> lineasHistorial(const std::vector<Diario::Entrada>& entradas, int mes, const QString& formato);

} // namespace presupuestos
