#pragma once
// Which rows of the worksheet one application of a method reaches: the
// dialog offers the choice, the worksheet finds the rows.

namespace presupuestos {

enum class AmbitoMetodo {
    Fila,          // the current row, as the dialog shows it
    Seleccion,     // every account row of the grid's selection
    Categoria,     // every account row whose account lies in the current row's category
    Departamento,  // every account row of the current row's department
};

} // namespace presupuestos
