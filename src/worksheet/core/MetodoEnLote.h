#pragma once
// A method applied to many rows at once: which account rows of the budget
// grid it reaches, and what it would overwrite there - above all the months
// typed by hand, which the user is told of before anything is stored.

#include "calculation/AmbitoMetodo.h"
#include "worksheet/core/RejillaPresupuesto.h"

#include <QString>
#include <functional>
#include <vector>

namespace presupuestos {

class MetodoEnLote {
public:
    // The visible account rows the scope takes, in the grid's order; fila
    // and filaSel are the selection's ends, fila the current row.
    // enCategoria: whether an account lies in the current row's category.
    static std::vector<int> filas(const RejillaPresupuesto& r, AmbitoMetodo ambito, int fila, int filaSel,
                                  const std::function<bool(const QString& cuenta)>& enCategoria);

    struct Prevision {
        int filas = 0;
        // Months shown as typed by hand (their bit in the row's marks).
        int mesesManuales = 0;
    };
    static Prevision prever(const RejillaPresupuesto& r, const std::vector<int>& filas);

    // "12 filas del departamento 1 - Norte; 3 meses introducidos a mano se
    // sobrescribirán": what the dialog shows beside the scope.
    static QString texto(const Prevision& p, const QString& que);
    // The question asked before a batch is stored.
    static QString pregunta(const Prevision& p, const QString& que);
};

} // namespace presupuestos
