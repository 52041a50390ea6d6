#pragma once
// Decides, before anything is stored, whether a set of month amounts would
// take a row total, a department subtotal or the grand total of the
// worksheet out of the currency's range: a total that cannot be stored or
// shown must never come from an edit, a paste, a clear or a method.

#include "common/Currency.h"
#include "worksheet/core/RejillaPresupuesto.h"

#include <array>
#include <map>

namespace presupuestos {

class ComprobadorTotales {
public:
    explicit ComprobadorTotales(const RejillaPresupuesto& r) : r_(r) {}

    // The amount a month cell (columns 4 to 15 of an account row) will show.
    void cambiar(int fila, int col, Currency valor);
    // Raises "Overflow" when any total the changes reach would leave the
    // range. A total that is already out of range does not stop them.
    void comprobar() const;

private:
    const RejillaPresupuesto& r_;
    // New months of each changed row (grid rows).
    std::map<int, std::array<Suma, 12>> filas_;
};

} // namespace presupuestos
