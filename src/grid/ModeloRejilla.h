#pragma once
// The grid operations the forms ask of a grid control - cells and their
// look, hidden rows and columns, the current cell and selection, redraw
// batching, range text for the clipboard, subtotal rows - as one facade.
//
// The data lives in a table model (QAbstractItemModel) the view shows: for
// the small generic grids (filter lists, the operations preview) a plain
// store of texts kept here; the budget grids give their typed model to a
// subclass, which answers these operations from it. The current cell and
// the selection are the selection model's, shared with the view: the facade
// keeps none of its own and reads them from there.
//
// Rows and columns are numbered from 0; the first FixedRows() rows are
// headers (row 0 of the budget grids holds the column captions); table row
// r is grid row r + FixedRows().

#include "common/Currency.h"
#include "common/NumerosEs.h"

#include <QColor>
#include <QObject>
#include <QString>
#include <QStringList>
#include <memory>
#include <vector>

class QAbstractItemModel;
class QItemSelectionModel;

namespace presupuestos {

// An exact sum of currency amounts in ten-thousandths: totals of rows,
// departments and the whole year are added in it, so that a total out of
// the currency's range shows as such instead of stopping a load.
using Suma = __int128;
// Any value outside the currency's range.
inline constexpr Suma kSumaFueraDeRango = static_cast<Suma>(1) << 100;

// Of the amounts of a column, the rows of the largest and of the smallest:
// digits are equally wide, so only those two texts need measuring.
class ExtremosColumna {
public:
    void anotar(int fila, Suma v)
    {
        if (filaMayor_ < 0 || v > mayor_) {
            filaMayor_ = fila;
            mayor_ = v;
        }
        if (filaMenor_ < 0 || v < menor_) {
            filaMenor_ = fila;
            menor_ = v;
        }
    }
    void agregarA(std::vector<int>& filas) const
    {
        for (int r : {filaMayor_, filaMenor_})
            if (r >= 0)
                filas.push_back(r);
    }

private:
    int filaMayor_ = -1, filaMenor_ = -1;
    Suma mayor_ = 0, menor_ = 0;
};

class ModeloRejilla : public QObject {
    Q_OBJECT
public:
    enum class PosicionSubtotal { Encima, Debajo };
    enum class Alineacion { General, Izquierda, Centro, Derecha };

    // A grid of texts, for the small generic grids.
    explicit ModeloRejilla(QObject* parent = nullptr);
    ~ModeloRejilla() override;

    // What the view shows, and the one selection it and the facade share.
    QAbstractItemModel& tabla() const { return *tabla_; }
    QItemSelectionModel& seleccion() const { return *seleccion_; }

    // ---- Shape --------------------------------------------------------------
    virtual int Rows() const;
    // Growing adds empty rows at the end; shrinking removes rows from the end.
    virtual void setRows(int n);
    int Cols() const { return cols_; }
    virtual void setCols(int n);
    virtual int FixedRows() const;
    virtual void setFixedRows(int n);
    // Appends a row; the text's tab-separated fields fill columns 0, 1, ...
    void AddItem(const QString& textoConTabuladores);
    // The same with the fields already apart.
    virtual void AddItem(QStringList campos);
    virtual void RemoveItem(int fila);

    // ---- Cells --------------------------------------------------------------
    virtual QString TextMatrix(int fila, int col) const;
    // The cell as a term of a sum, as ValorSuma(TextMatrix(fila, col)) reads it.
    virtual Suma ValorMatrix(int fila, int col, bool* desbordada = nullptr) const;
    virtual void setTextMatrix(int fila, int col, const QString& texto);

    // Invalid colour = the grid's default.
    virtual QColor CellBackColor(int fila, int col) const;
    void setCellBackColor(int fila, int col, const QColor& color);
    virtual void setCellBackColor(int fila1, int col1, int fila2, int col2, const QColor& color);
    virtual QColor CellForeColor(int fila, int col) const;
    virtual void setCellForeColor(int fila, int col, const QColor& color);
    virtual bool CellFontBold(int fila, int col) const;
    virtual void setCellFontBold(int fila, int col, bool negrita);
    // A thin black border below the cell (and between rows of a range).
    virtual bool CellBorderBottom(int fila, int col) const;
    virtual void setCellBorderBottom(int fila1, int col1, int fila2, int col2, bool borde);
    virtual Alineacion CellAlignment(int fila, int col) const;
    virtual void setCellAlignment(int fila1, int col1, int fila2, int col2, Alineacion a);
    void setColAlignment(int col, Alineacion a);
    Alineacion ColAlignment(int col) const;
    // Percentage of a cell's flood bar (0 = none).
    virtual int CellFloodPercent(int fila, int col) const;
    virtual void setCellFloodPercent(int fila, int col, int porcentaje);

    // The rows of a column, from fila1 to fila2, whose texts may be the
    // widest: digits are equally wide, so of the amounts only the largest
    // and the smallest (the longest negative); subtotals and what is no
    // amount one by one.
    virtual void filasMasAnchas(int col, int fila1, int fila2, std::vector<int>& filas) const;

    // ---- Rows and columns -----------------------------------------------------
    virtual bool RowHidden(int fila) const;
    virtual void setRowHidden(int fila, bool oculta);
    bool ColHidden(int col) const;
    void setColHidden(int col, bool oculta);
    // Widths in twips (1/1440 inch); -1 = default.
    int ColWidth(int col) const;
    void setColWidth(int col, int twips);
    int RowHeightMin() const { return altoMinimo_; }
    void setRowHeightMin(int twips);

    // ---- Grid look ----------------------------------------------------------
    QColor BackColor() const { return fondo_; }              // background of normal cells
    void setBackColor(const QColor& c);
    QColor BackColorBkg() const { return fondoVacio_; }      // background of the area without cells
    void setBackColorBkg(const QColor& c);
    QColor BackColorSel() const { return fondoSeleccion_; }  // background of selected cells
    void setBackColorSel(const QColor& c);
    QColor BackColorFixed() const { return fondoFijas_; }    // background of the header rows
    void setBackColorFixed(const QColor& c);
    int FontSize() const { return puntos_; }
    void setFontSize(int puntos);

    // ---- Current cell and selection ------------------------------------------
    // Read from the selection model. Row/Col is the fixed end of the
    // selection, RowSel/ColSel the end that moves (the view's current cell):
    // the corner of the selected rectangle opposite the current cell. When
    // the current cell lies inside the rectangle (the view's own select-all)
    // both ends are the current cell, and Seleccion() still tells the
    // rectangle; -1 while there is no current cell.
    int Row() const;
    int Col() const;
    int RowSel() const;
    int ColSel() const;
    // The selected rectangle, ordered, in grid rows; all -1 without one.
    struct Rectangulo {
        int fila1 = -1, col1 = -1, fila2 = -1, col2 = -1;
        bool valido() const { return fila1 >= 0; }
    };
    Rectangulo Seleccion() const;
    // Setting Row or Col moves the cursor and collapses the selection onto it.
    void setRow(int fila);
    void setCol(int col);
    void setRowSel(int fila);
    void setColSel(int col);
    void Select(int fila, int col, int filaSel = -1, int colSel = -1);
    int TopRow() const { return filaSuperior_; }
    void setTopRow(int fila);
    int LeftCol() const { return colIzquierda_; }
    void setLeftCol(int col);
    // Puts the current cell on the first data row (in the column it was
    // last in) when there is none and the grid has rows, as a grid does
    // after a load; the table's own changes call it.
    void colocarCursor();

    // ---- Redraw ---------------------------------------------------------------
    // While off, cell changes are gathered and announced when it is switched
    // back on, so a load or a batch is drawn once; the view stops painting.
    bool Redraw() const { return redibujar_; }
    void setRedraw(bool activo);

    // ---- Range text -----------------------------------------------------------
    // Cells of a row joined by tabs, rows joined by "\r\n", bounds in any order.
    QString Clip(int fila1, int col1, int fila2, int col2) const;

    // ---- Subtotals --------------------------------------------------------------
    // Where subtotal rows go; the budget grids place theirs as the worksheet
    // does (departments below, the grand total on top) whatever it says.
    PosicionSubtotal SubtotalPosition() const { return posicion_; }
    void setSubtotalPosition(PosicionSubtotal p) { posicion_ = p; }
    // Sums column colTotal per group of consecutive account rows with equal
    // text in colAgrupar (-1: one group of every account row), in one
    // subtotal row per group (below or above it, per SubtotalPosition),
    // whose caption comes from the pattern ("%s" stands for the group's
    // value). Only the budget grids hold subtotals; the plain grid refuses.
    virtual void Subtotal(int colAgrupar, int colTotal, const QString& formato, const QColor& backColor = QColor(),
                          const QString& patronTitulo = QStringLiteral("%s"));
    virtual bool IsSubtotal(int fila) const;
    // Grouping column of a subtotal row (-1 for the grand total); -2 for an account row.
    virtual int SubtotalGroupColumn(int fila) const;
    static QString TituloTotalGeneral();

    // What a total shows when no currency amount can represent it.
    static QString MarcaDesbordamiento();
    // A sum in the format, or the overflow mark when it is out of range.
    static QString FormatearSuma(Suma suma, const QString& formato);
    static QString FormatearSuma(Suma suma, const es::FormatoNumerico& formato);
    // A cell's text as a term of a sum (0 for a non-number); *desbordada
    // tells the overflow mark apart.
    static Suma ValorSuma(const QString& texto, bool* desbordada = nullptr);

signals:
    void formaCambiada();      // hidden columns, widths, look
    // The current cell or the selection changed (once per Select).
    void seleccionCambiada();
    void filaSuperiorCambiada();
    // Also raised, besides formaCambiada, for hiding or showing one row.
    void filaOcultaCambiada(int fila);
    // Redraw switched off or on; the view stops painting meanwhile.
    void redrawCambiado(bool activo);

protected:
    // For a grid whose data lives in a table model of its own.
    ModeloRejilla(QAbstractItemModel* tabla, QObject* parent);
    void comprobarFila(int f) const;
    void comprobarCol(int c) const;
    void comprobarCelda(int f, int c) const;
    // Redraw switched: a table of its own gathers its announcements.
    virtual void alCambiarRedibujo(bool activo);
    void dimensionarColumnas(int n);

private:
    struct Datos;
    class TablaCeldas;
    friend class TablaCeldas;
    void conectar();
    void alCambiarSeleccion();
    int tablaFilas() const;
    QModelIndex indiceTabla(int fila, int col) const;

    std::unique_ptr<Datos> d;
    QAbstractItemModel* tabla_ = nullptr;
    QItemSelectionModel* seleccion_ = nullptr;
    int cols_ = 0;
    std::vector<std::uint8_t> alineacionColumna_;
    std::vector<int> anchoColumna_;
    std::vector<char> columnaOculta_;
    int altoMinimo_ = 0;
    QColor fondo_ = QColor(255, 255, 255);
    QColor fondoVacio_ = QColor(128, 128, 128);
    QColor fondoSeleccion_ = QColor(0, 120, 215);
    QColor fondoFijas_ = QColor(240, 240, 240);
    int puntos_ = 8;
    int filaSuperior_ = 0;
    int colIzquierda_ = 0;
    bool redibujar_ = true;
    PosicionSubtotal posicion_ = PosicionSubtotal::Debajo;
    // The column the cursor was last in, for when it comes back after a load.
    int colRecordada_ = 0;
    bool seleccionando_ = false;
};

} // namespace presupuestos
