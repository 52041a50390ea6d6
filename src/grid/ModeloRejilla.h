#pragma once
// The worksheet grids' data model: a plain class (no widgets) offering what
// the forms ask of a grid control - cells and their look, hidden rows and
// columns, the current cell and selection, redraw batching, range text for
// the clipboard, and subtotal rows whose sums follow single-cell changes at
// a cost proportional to the cells changed, not to the rows of the grid.
//
// Rows and columns are numbered from 0; the first FixedRows() rows are
// headers (row 0 of the budget grids holds the column captions).

#include "common/Currency.h"
#include "common/NumerosEs.h"

#include <QColor>
#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace presupuestos {

// An exact sum of currency amounts in ten-thousandths: totals of rows,
// departments and the whole year are added in it, so that a total out of
// the currency's range shows as such instead of stopping a load.
using Suma = __int128;
// Any value outside the currency's range.
inline constexpr Suma kSumaFueraDeRango = static_cast<Suma>(1) << 100;

// A cell's content as a typed load gives it: a text, or an amount with the
// format it shows in. An amount stays a number in the grid (rounded to the
// decimals it shows, as its text is read back) until its text is asked for.
class ValorCelda {
public:
    ValorCelda() = default;
    static ValorCelda texto(QString t);
    static ValorCelda importe(Suma valor, const es::FormatoNumerico& formato);

private:
    friend class ModeloRejilla;
    enum class Tipo : std::uint8_t { Vacio, Texto, Importe };
    Tipo tipo_ = Tipo::Vacio;
    es::FormatoNumerico formato_;
    Suma valor_ = 0;
    QString texto_;
};

class ModeloRejilla : public QObject {
    Q_OBJECT
public:
    enum class PosicionSubtotal { Encima, Debajo };
    enum class Alineacion { General, Izquierda, Centro, Derecha };

    explicit ModeloRejilla(QObject* parent = nullptr);
    ~ModeloRejilla() override;

    // ---- Shape --------------------------------------------------------------
    int Rows() const;
    // Growing adds empty rows at the end; shrinking removes rows from the end
    // (subtotal rows among them included).
    void setRows(int n);
    int Cols() const;
    void setCols(int n);
    int FixedRows() const;
    void setFixedRows(int n);
    // Appends a row; the text's tab-separated fields fill columns 0, 1, ...
    void AddItem(const QString& textoConTabuladores);
    // The same with the fields already apart, for loads of many rows.
    void AddItem(QStringList campos);
    // The same typed, for the worksheet's loads of tens of thousands of rows:
    // no amount is formatted, and no textoCambiado is raised (the loader
    // gives the cells what the change handlers would).
    void AddItem(const std::vector<ValorCelda>& valores);
    void RemoveItem(int fila);

    // ---- Cells --------------------------------------------------------------
    QString TextMatrix(int fila, int col) const;
    // The cell as a term of a sum, as ValorSuma(TextMatrix(fila, col)) reads
    // it, without building its text.
    Suma ValorMatrix(int fila, int col, bool* desbordada = nullptr) const;
    // Keeps the subtotal sums of the row's groups current when the cell
    // belongs to an account row and a column that has subtotals.
    void setTextMatrix(int fila, int col, const QString& texto);

    // Invalid colour = the grid's default.
    QColor CellBackColor(int fila, int col) const;
    void setCellBackColor(int fila, int col, const QColor& color);
    void setCellBackColor(int fila1, int col1, int fila2, int col2, const QColor& color);
    QColor CellForeColor(int fila, int col) const;
    void setCellForeColor(int fila, int col, const QColor& color);
    bool CellFontBold(int fila, int col) const;
    void setCellFontBold(int fila, int col, bool negrita);
    // A thin black border below the cell (and between rows of a range).
    bool CellBorderBottom(int fila, int col) const;
    void setCellBorderBottom(int fila1, int col1, int fila2, int col2, bool borde);
    Alineacion CellAlignment(int fila, int col) const;
    void setCellAlignment(int fila1, int col1, int fila2, int col2, Alineacion a);
    void setColAlignment(int col, Alineacion a);
    // Percentage of a cell's flood bar (0 = none).
    int CellFloodPercent(int fila, int col) const;
    void setCellFloodPercent(int fila, int col, int porcentaje);

    // ---- Rows and columns -----------------------------------------------------
    bool RowHidden(int fila) const;
    void setRowHidden(int fila, bool oculta);
    bool ColHidden(int col) const;
    void setColHidden(int col, bool oculta);
    // Widths in twips (1/1440 inch); -1 = default.
    int ColWidth(int col) const;
    void setColWidth(int col, int twips);
    int RowHeightMin() const;
    void setRowHeightMin(int twips);

    // ---- Grid look ----------------------------------------------------------
    QColor BackColor() const;                 // background of normal cells
    void setBackColor(const QColor& c);
    QColor BackColorBkg() const;              // background of the area without cells
    void setBackColorBkg(const QColor& c);
    QColor BackColorSel() const;              // background of selected cells
    void setBackColorSel(const QColor& c);
    QColor BackColorFixed() const;            // background of the header rows
    void setBackColorFixed(const QColor& c);
    int FontSize() const;
    void setFontSize(int puntos);

    // ---- Current cell and selection ------------------------------------------
    // Row/Col is the cursor cell; RowSel/ColSel the other end of the selection.
    int Row() const;
    int Col() const;
    int RowSel() const;
    int ColSel() const;
    // Setting Row or Col moves the cursor and collapses the selection onto it.
    void setRow(int fila);
    void setCol(int col);
    void setRowSel(int fila);
    void setColSel(int col);
    void Select(int fila, int col, int filaSel = -1, int colSel = -1);
    int TopRow() const;
    void setTopRow(int fila);
    int LeftCol() const;
    void setLeftCol(int col);

    // ---- Redraw ---------------------------------------------------------------
    // While off, changes are not announced cell by cell; switching it back on
    // announces one reset (if anything changed meanwhile), so a load draws once.
    // The cursor and text changes (seleccionCambiada, textoCambiado) are
    // announced regardless, as the forms' handlers run during loads too.
    bool Redraw() const;
    void setRedraw(bool activo);

    // ---- Range text -----------------------------------------------------------
    // Cells of a row joined by tabs, rows joined by "\r\n", bounds in any order.
    QString Clip(int fila1, int col1, int fila2, int col2) const;

    // ---- Subtotals --------------------------------------------------------------
    PosicionSubtotal SubtotalPosition() const;
    void setSubtotalPosition(PosicionSubtotal p);
    // Sums column colTotal per group of consecutive account rows with equal
    // text in colAgrupar (colAgrupar -1: one group holding every account
    // row). The first call for a grouping inserts one subtotal row per group
    // (below or above it, per SubtotalPosition); later calls with the same
    // grouping reuse those rows. Subtotal rows are never counted. The group's
    // value, through the caption pattern ("%s" stands for it), goes into
    // column colAgrupar of the subtotal row (column 1 for colAgrupar -1, with
    // the grand-total caption). The sum is written with the format (see
    // es::formatear) and the row gets the back colour when it is valid.
    // Cells are read as Spanish numbers; a cell that is not a number counts 0.
    // Refreshing a column whose sums are kept current only rewrites the
    // subtotal cells that changed since.
    void Subtotal(int colAgrupar, int colTotal, const QString& formato, const QColor& backColor = QColor(),
                  const QString& patronTitulo = QStringLiteral("%s"));
    bool IsSubtotal(int fila) const;
    // Grouping column of a subtotal row (-1 for the grand total); -2 for an account row.
    int SubtotalGroupColumn(int fila) const;
    static QString TituloTotalGeneral();

    // What a total shows when no currency amount can represent it.
    static QString MarcaDesbordamiento();
    // A sum in the format, or the overflow mark when it is out of range.
    static QString FormatearSuma(Suma suma, const QString& formato);
    // A cell's text as a term of a sum (0 for a non-number); *desbordada
    // tells the overflow mark apart.
    static Suma ValorSuma(const QString& texto, bool* desbordada = nullptr);
    // The current sum of column col over the group that holds account row
    // fila in the grouping on colAgrupar, with how many of its cells hold the
    // overflow mark; empty when there is no such grouping or group.
    struct SumaGrupo {
        int grupo = -1;
        Suma suma = 0;
        int desbordadas = 0;
    };
    std::optional<SumaGrupo> sumaGrupo(int colAgrupar, int fila, int col) const;

    // Counters for benchmarks and tests: cells whose text was parsed to sum.
    long long celdasSumadas() const;

signals:
    // For the view adapter.
    void celdasCambiadas(int fila1, int col1, int fila2, int col2);
    void filasInsertadas(int primera, int ultima);
    void filasEliminadas(int primera, int ultima);
    void reiniciado();
    void formaCambiada();      // hidden rows/columns, widths, look
    void seleccionCambiada();
    void filaSuperiorCambiada();
    // Also raised, besides formaCambiada, for hiding or showing one row, so
    // the view need not revisit every row.
    void filaOcultaCambiada(int fila);
    // Redraw switched off or on; the view stops painting meanwhile.
    void redrawCambiado(bool activo);
    // A cell's text changed; raised even while redraw is off, since the
    // forms colour cells from it as they are loaded.
    void textoCambiado(int fila, int col);

private:
    struct Datos;
    std::unique_ptr<Datos> d;
};

} // namespace presupuestos
