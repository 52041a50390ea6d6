#pragma once
// The worksheet's rows as a workbook takes them: read from the same query
// the grid loads from (so the workbook holds what the worksheet shows,
// filters and all), but with every stored decimal, where the grid keeps
// the amounts rounded to the decimals it shows.

#include "export/ExportadorLibro.h"

#include <vector>

namespace presupuestos {

class Recordset;

// Reads the recordset to its end. conDatosCalculo: the budget's read, with
// method, manual months and value.
std::vector<FilaLibro> filasLibro(Recordset& rs, bool conDatosCalculo);

} // namespace presupuestos
