#pragma once
// The figures of the row summary: for the budget grid's current row, its
// year and its months against the history's, with the difference; for a
// department's subtotal (or the grand total) the same over its rows and,
// where it has the retail statistics, the average ticket (sales over
// tickets) and the sales per day open, budgeted and historic. Read from the
// two grids' typed rows as they show them, so the summary always agrees
// with them; a row's history is found by its account and department.

#include "worksheet/core/ModeloPresupuesto.h"

#include <QString>
#include <array>
#include <optional>

namespace presupuestos {

struct RealesEjercicio;

struct ResumenFila {
    enum class Tipo { Ninguna, Cuenta, Departamento, TotalGeneral };
    Tipo tipo = Tipo::Ninguna;
    // "70000001 - Ventas textil", or the department's name.
    QString titulo;

    struct Cifras {
        std::array<Suma, 12> meses{};
        Suma total = 0;
        // Departments and grand total: sales accounts ("70"), tickets
        // ("CTO003") and days open ("CTO002") of their rows.
        Suma ventas = 0;
        Suma tickets = 0;
        Suma dias = 0;
        // Sales over tickets and over days, when there are any.
        std::optional<double> ticketMedio() const;
        std::optional<double> ventasPorDia() const;
    };
    Cifras presupuesto;
    Cifras historico;
    // Whether the history grid holds the row (or the department's rows).
    bool conHistorico = false;
    // The budget year's own actuals of its closed months (the rest 0):
    // with them the months read budget, actual and forecast.
    Cifras real;
    int mesesCerrados = 0;
    // Actuals of the closed months and the budget of the rest.
    std::array<Suma, 12> prevision() const;
    Suma previsionAnual() const;
    // Whether the rows include tickets or days open: only then are the
    // ratios worth showing.
    bool conEstadisticas = false;

    // Budget less history, and that as a percentage of the history's size;
    // none against a history of 0 or of the other sign. Expenses carry the
    // sign of their balances (credit less debit), so less is worse for
    // both kinds.
    Suma diferencia() const { return presupuesto.total - historico.total; }
    std::optional<double> porcentaje() const;
};

class CalculoResumen {
public:
    // The budget grid's row fila (grid rows: 0 is the header), the history
    // grid when it is shown (null otherwise) and the year's actuals when
    // they were read (null otherwise). A header or a row that is not there
    // gives Ninguna.
    static ResumenFila calcular(const ModeloPresupuesto& presupuesto, const ModeloPresupuesto* historico, int fila,
                                const RealesEjercicio* reales = nullptr);
};

} // namespace presupuestos
