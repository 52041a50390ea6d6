#pragma once
// Time of day as the forms read it (seconds since midnight, with fraction).
// Tests fix it to drive the debounce and the table-name stamps.

#include <functional>

namespace presupuestos::reloj {

double segundosDesdeMedianoche();
// Replaces the clock; an empty function restores the system clock.
void fijar(std::function<double()> reloj);

} // namespace presupuestos::reloj
