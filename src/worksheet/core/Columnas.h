#pragma once
// The columns of the budget and history grids. The numbering is the grids'
// own; the names say what each holds.

namespace presupuestos::hoja {

constexpr int kDpto = 0;
constexpr int kDptoNombre = 1;   // hidden; the subtotals group on it
constexpr int kCuenta = 2;
constexpr int kNombre = 3;
// Month m (1 to 12) is column m + 3; the row total follows December.
constexpr int kPrimerMes = 4;
constexpr int kUltimoMes = 15;
constexpr int kTotal = 16;
// Hidden: what produced the row.
constexpr int kMetodo = 17;
constexpr int kManual = 18;
constexpr int kValor = 19;
constexpr int kColumnas = 20;

constexpr int colMes(int mes) { return mes + 3; }
constexpr bool esMes(int col) { return col >= kPrimerMes && col <= kUltimoMes; }

} // namespace presupuestos::hoja
