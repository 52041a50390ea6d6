#pragma once
// A budget or history grid: the grid operations the forms and tests use,
// answered from the typed model (ModeloPresupuesto) where the data lives,
// and the rules of the grid without a window: filling rows from a
// recordset, department subtotals and the grand total, the typed values of
// a row, which cells can be edited, where the cursor goes after Enter and
// where a department's section begins and ends. The worksheet form
// orchestrates; the rules live here.

#include "common/Currency.h"
#include "grid/ModeloRejilla.h"
#include "worksheet/core/Columnas.h"
#include "worksheet/core/ModeloPresupuesto.h"

#include <QColor>
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

class RejillaPresupuesto : public ModeloRejilla {
    Q_OBJECT
public:
    explicit RejillaPresupuesto(QObject* parent = nullptr);

    // What the worksheet's settings decide of the grid.
    struct Aspecto {
        int decimales = 0;
        QString formato = QStringLiteral("#,0");
        QColor manual;     // months typed by hand
        QColor subtotal;   // subtotal rows and the total column
        int dptos = 0;     // departments in the filter: two or more add a grand total
    };
    void setAspecto(const Aspecto& a);
    const Aspecto& aspecto() const { return a_; }
    ModeloRejilla& modelo() { return *this; }
    const ModeloRejilla& modelo() const { return *this; }
    ModeloPresupuesto& datos() { return datos_; }
    const ModeloPresupuesto& datos() const { return datos_; }

    // Empties the grid to its header and adds a row per record: the
    // department, the account, twelve months rounded to the decimals and,
    // with calculation data, method, manual marks and value.
    // previstas: how many records it may bring at most, when known.
    Completado llenar(Recordset& rs, bool conDatosCalculo, std::size_t previstas = 0);
    // The rows of guia's accounts, in guia's order, taken from this grid's
    // own (its totals to be created again): the history beside the budget
    // holds the same rows line for line, whatever each query left out.
    // False when guia holds an account this grid has not read (it then
    // shows zeros): the caller reads the grid again.
    bool alinearCon(const RejillaPresupuesto& guia);
    // Subtotal rows below each department, and a grand total on top with two
    // departments or more; the cursor stays on its account.
    void crearTotales();
    // Recomputes the totals of the rows and the subtotals of the columns
    // given; returns how many more rows hold figures than before. The sums
    // are kept as numbers by difference: this only counts.
    int recalcularFilas(int desde, int hasta, int colDesde, int colHasta);

    // ---- A row's values (grid rows: row 0 is the header) -------------------------
    bool esCuenta(int fila) const { return datos_.esCuenta(fila - 1); }
    QString cuenta(int fila) const { return datos_.cuenta(fila - 1); }
    qint16 dpto(int fila) const { return datos_.dpto(fila - 1); }
    // The month (1 to 12) as shown: rounded to the decimals.
    Currency mes(int fila, int mes) const;
    // The twelve months as shown, summed exactly.
    Suma sumaMeses(int fila) const;
    // The total as shown, exactly; desbordado when it cannot be an amount.
    Suma total(int fila, bool* desbordado = nullptr) const;
    int mascara(int fila) const { return datos_.mascara(fila - 1); }
    // Shows a row's stored months, method, marks and value (colouring the
    // marked months) and recomputes its totals; returns as recalcularFilas.
    struct Valores {
        std::array<Currency, 12> meses{};
        qint32 metodo = 0;
        qint32 manual = 0;
        Currency valor;
    };
    int mostrar(int fila, const Valores& v);
    // A month shown as stored (rounded to the decimals); returns as recalcularFilas.
    int ponerMes(int fila, int mes, Currency valor);

    // ---- Editing ------------------------------------------------------------------
    // Only the months of account rows, and only while the budgeted accounts are shown.
    bool editable(int fila, int col, bool verPresupuestables) const;
    // The row Enter moves to from fila: the next one that is no total, or
    // the last row.
    int filaSiguiente(int fila) const;
    // The department's section around an account row, between total rows.
    int primeraFilaSeccion(int fila) const;
    int ultimaFilaSeccion(int fila) const;

    // The account row of an account and department, or -1.
    int fila(const QString& cuenta, int dpto) const;

    // ---- The grid operations, on the typed model ------------------------------------
    int Rows() const override { return datos_.filas() + 1; }
    void setRows(int n) override;
    void setCols(int n) override;
    int FixedRows() const override { return 1; }
    void setFixedRows(int n) override;
    void AddItem(QStringList campos) override;
    void RemoveItem(int fila) override;
    QString TextMatrix(int fila, int col) const override;
    Suma ValorMatrix(int fila, int col, bool* desbordada = nullptr) const override;
    void setTextMatrix(int fila, int col, const QString& texto) override;
    QColor CellBackColor(int fila, int col) const override;
    void setCellBackColor(int fila1, int col1, int fila2, int col2, const QColor& color) override;
    QColor CellForeColor(int fila, int col) const override;
    void setCellForeColor(int fila, int col, const QColor& color) override;
    bool CellFontBold(int fila, int col) const override;
    void setCellFontBold(int fila, int col, bool negrita) override;
    bool CellBorderBottom(int fila, int col) const override;
    void setCellBorderBottom(int fila1, int col1, int fila2, int col2, bool borde) override;
    Alineacion CellAlignment(int fila, int col) const override;
    void setCellAlignment(int fila1, int col1, int fila2, int col2, Alineacion a) override;
    int CellFloodPercent(int fila, int col) const override;
    void setCellFloodPercent(int fila, int col, int porcentaje) override;
    void filasMasAnchas(int col, int fila1, int fila2, std::vector<int>& filas) const override;
    bool RowHidden(int fila) const override;
    void setRowHidden(int fila, bool oculta) override;
    void Subtotal(int colAgrupar, int colTotal, const QString& formato, const QColor& backColor = QColor(),
                  const QString& patronTitulo = QStringLiteral("%s")) override;
    bool IsSubtotal(int fila) const override;
    int SubtotalGroupColumn(int fila) const override;

protected:
    void alCambiarRedibujo(bool activo) override;

private:
    ModeloPresupuesto& datos_;
    Aspecto a_;
};

} // namespace presupuestos
