#pragma once
// The worksheet's one write path. Every way of putting amounts into the
// budget - a typed month, a paste, a clear, an applied method, the rows that
// follow the sales - goes through here: totals are checked before anything
// is stored, the store writes, and the grid shows what the database holds.
// A batch is one transaction: its first failure stops it, what was stored
// before stays stored, and the rows show the database again if even that
// cannot be kept.

#include "calculation/clsPresupItem.h"
#include "common/Currency.h"
#include "store/clsDBPresupuesto.h"
#include "worksheet/core/LectorPortapapeles.h"
#include "worksheet/core/RejillaPresupuesto.h"

#include <functional>
#include <set>
#include <utility>
#include <vector>

namespace presupuestos {

struct Sesion;
class clsCalculo;

class EscrituraHoja {
public:
    // What the form hears of the writes.
    struct Avisos {
        // Rows holding figures changed by this many (completion bars).
        std::function<void(int)> completado;
        // A sales account changed outside a batch: the rows planned on the
        // sales follow (the form runs them under its own error title).
        std::function<void()> ventasCambiadas;
        // The amount a cell of a batch held just before it is written.
        std::function<void(Currency)> antesDeCelda;
    };
    // Progress of a batch, cell by cell.
    class IProgreso {
    public:
        virtual ~IProgreso() = default;
        virtual void hecho(int celdas) = 0;
    };
    struct Celda {
        int fila;
        int col;
        Currency valor;
    };

    // The session's connection holds the batches' transactions; its company
    // and year say which rows follow the sales.
    EscrituraHoja(const Sesion& sesion, RejillaPresupuesto& rejilla, clsDBPresupuesto& store, Avisos avisos);

    // A month typed or pasted (comprobar: check the totals first). Resets a
    // row whose year becomes zero when the database agrees; on any failure
    // shows the row as stored and raises the error.
    void escribirCelda(int fila, int col, Currency valor, bool comprobar);
    // The cells a paste writes from the selection (rows and columns in
    // order): one value fills every month of it but the total rows; a block
    // is placed at its first cell, a total row taking its line and the
    // columns stopping at December. pasaDelFinal: the block runs past the
    // last row (what fits is written, then the subscript error is raised).
    std::vector<Celda> celdasPegado(const LectorPortapapeles::Bloque& b, int fila, int filaFin, int col, int colFin,
                                    bool* pasaDelFinal) const;
    // The cells a clear writes: every month of the selection but the total rows.
    std::vector<Celda> celdasBorrado(int fila, int filaFin, int col, int colFin) const;
    // The cells a fill writes, as a spreadsheet fills: down, every month of
    // the selection takes its first account row's amount (a single row
    // takes the account row above it); right, every month takes the
    // selection's first month (a single month takes the one before it).
    // Total rows are neither copied nor written.
    enum class Relleno { Abajo, Derecha };
    std::vector<Celda> celdasRelleno(int fila, int filaFin, int col, int colFin, Relleno sentido) const;
    // Writes the cells as one batch, after checking every total they reach.
    void escribirLote(const std::vector<Celda>& celdas, IProgreso* progreso);
    // Stores a method's row, shows it on the grid's row fila (when it is an
    // account row) and, for a sales account, the rows that follow the sales.
    void aplicarMetodo(int fila, const clsPresupItem& item);
    // One method and value applied to every account row of filas, as one
    // batch: each row computed by calculo with its own account and
    // department, every amount and total checked before the first is stored.
    // The progress counts each row twice: computed, then stored.
    void aplicarMetodoEnFilas(const std::vector<int>& filas, qint32 metodo, Currency valor, clsCalculo& calculo,
                              IProgreso* progreso = nullptr);
    // Recalculates and stores every row planned on each month's sales, in
    // one batch; those the grid shows follow at once.
    void recalcularDependencias();
    // Runs a batch; inside another one it is part of it.
    void enLote(const std::function<void()>& cuerpo);
    // Shows a row as the database holds it; false when it cannot be read.
    bool mostrarGuardada(int fila);

private:
    // Stores a method's row inside the batch and shows it on the grid's row
    // fila when that is an account row.
    void guardarMetodo(int fila, const clsPresupItem& item, bool enRejilla);
    void loteUnaVez(const std::function<void()>& cuerpo);
    void recalcularDependenciasEnLote();
    // Inside a batch the count is told once, when the batch ends: the bars
    // redraw their text on every change.
    void avisarCompletado(int n)
    {
        if (enLote_)
            completadoLote_ += n;
        else if (n != 0 && avisos_.completado)
            avisos_.completado(n);
    }
    void avisarCompletadoLote()
    {
        const int n = std::exchange(completadoLote_, 0);
        avisarCompletado(n);
    }

    const Sesion& sesion_;
    RejillaPresupuesto& r_;
    clsDBPresupuesto& store_;
    Avisos avisos_;
    bool enLote_ = false;
    int completadoLote_ = 0;
    bool ventasPendientes_ = false;
    // Departments whose sales changed since the rows that follow them were
    // last recalculated: only theirs are.
    std::set<qint16> dptosVentas_;
    std::set<int> filasLote_;
};

} // namespace presupuestos
