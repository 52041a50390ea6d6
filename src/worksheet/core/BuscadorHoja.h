#pragma once
// Finding a row of the budget grid as a user asks for one among thousands:
// by the start of its account code, by a part of its account's name, or
// by a part of its department's name, which finds that department's first
// row. Case and accents do not matter ("energia" finds "Energía").

#include <QString>

namespace presupuestos {

class RejillaPresupuesto;

class BuscadorHoja {
public:
    // The first account row after desde (a grid row; 0 searches from the
    // top) that matches, going round past the end; -1 when none does.
    static int siguiente(const RejillaPresupuesto& rejilla, const QString& texto, int desde);
    // The text as it is compared: case folded, accents gone, trimmed.
    static QString plegar(const QString& texto);
};

} // namespace presupuestos
