#pragma once
// The rules of the budget and history grids, on the grid model and without
// a window: filling rows from a recordset, department subtotals and the
// grand total, row totals, the typed values of a row, which cells can be
// edited, where the cursor goes after Enter and where a department's section
// begins and ends. The worksheet form orchestrates; the rules live here.

#include "common/Currency.h"
#include "grid/ModeloRejilla.h"
#include "worksheet/core/Columnas.h"

#include <QColor>
#include <QHash>
#include <QString>
#include <array>

namespace presupuestos {

class Recordset;

// How many rows a grid shows and how many of them hold figures: the
// worksheet's completion, as a value.
struct Completado {
    int filas = 0;
    int conValores = 0;
    // "25%"; empty while there are no rows.
    QString texto() const;
};

class RejillaPresupuesto {
public:
    explicit RejillaPresupuesto(ModeloRejilla& m) : m_(m) {}

    // What the worksheet's settings decide of the grid.
    struct Aspecto {
        int decimales = 0;
        QString formato = QStringLiteral("#,0");
        QColor manual;     // months typed by hand
        QColor subtotal;   // subtotal rows and the total column
        int dptos = 0;     // departments in the filter: two or more add a grand total
    };
    void setAspecto(const Aspecto& a) { a_ = a; }
    const Aspecto& aspecto() const { return a_; }
    ModeloRejilla& modelo() { return m_; }
    const ModeloRejilla& modelo() const { return m_; }

    // Empties the grid to its header and adds a row per record: the
    // department, the account, twelve months rounded to the decimals, their
    // total and, with calculation data, method, manual marks and value.
    Completado llenar(Recordset& rs, bool conDatosCalculo);
    // Subtotal rows below each department, and a grand total on top with two
    // departments or more.
    void crearTotales();
    // Recomputes the totals of the rows and the subtotals of the columns
    // given; returns how many more rows hold figures than before.
    int recalcularFilas(int desde, int hasta, int colDesde, int colHasta);
    // Refreshes the subtotals of the month columns given and of the total.
    void refrescarSubtotales(int colDesde, int colHasta);

    // ---- A row's values ---------------------------------------------------------
    bool esCuenta(int fila) const { return fila >= 1 && fila < m_.Rows() && !m_.IsSubtotal(fila); }
    QString cuenta(int fila) const { return m_.TextMatrix(fila, hoja::kCuenta); }
    qint16 dpto(int fila) const;
    // The month (1 to 12) as shown: rounded to the decimals.
    Currency mes(int fila, int mes) const;
    // The total as shown, exactly; desbordado when it cannot be an amount.
    Suma total(int fila, bool* desbordado = nullptr) const;
    int mascara(int fila) const;
    // Shows a row's stored months, method, marks and value (colouring the
    // marked months) and recomputes its totals; returns as recalcularFilas.
    struct Valores {
        std::array<Currency, 12> meses{};
        qint32 metodo = 0;
        qint32 manual = 0;
        Currency valor;
    };
    int mostrar(int fila, const Valores& v);

    // ---- Editing ------------------------------------------------------------------
    // Only the months of account rows, and only while the budgeted accounts are shown.
    bool editable(int fila, int col, bool verPresupuestables) const;
    // The row Enter moves to from fila: the next one that is no total, or
    // the last row.
    int filaSiguiente(int fila) const;
    // The department's section around an account row, between total rows.
    int primeraFilaSeccion(int fila) const;
    int ultimaFilaSeccion(int fila) const;

    // Account rows by account and department, for rows changed elsewhere.
    void indexar();
    int fila(const QString& cuenta, int dpto) const { return filas_.value(clave(cuenta, dpto), -1); }

private:
    static QString clave(const QString& cuenta, int dpto) { return cuenta + QLatin1Char('|') + QString::number(dpto); }
    ModeloRejilla& m_;
    Aspecto a_;
    QHash<QString, int> filas_;
};

} // namespace presupuestos
