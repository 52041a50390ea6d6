#pragma once
// Shows a ModeloRejilla's table in a QTableView, with the model's selection
// as the view's one selection, and turns the view's events into the grid
// events the forms handle (row/column change, scroll, edit start and end,
// keys with their codes, mouse): a thin adapter, holding no cell state.
// The model's fixed rows are shown as the header.

#include "grid/ModeloRejilla.h"

#include <QFontMetrics>
#include <QTableView>
#include <array>
#include <optional>
#include <vector>

namespace presupuestos {

class VistaFija;

class VistaRejilla : public QTableView {
    Q_OBJECT
public:
    // The object name is the control's name ("vsPresupuesto").
    VistaRejilla(const QString& nombre, QWidget* parent = nullptr);
    // For forms laid out in a designer, which name the grid afterwards.
    explicit VistaRejilla(QWidget* parent = nullptr) : VistaRejilla(QString(), parent) {}
    ~VistaRejilla() override;

    ModeloRejilla& modelo() { return *modelo_; }
    const ModeloRejilla& modelo() const { return *modelo_; }
    // Shows another model (the budget grids' typed one); the view owns it.
    void setModelo(ModeloRejilla* modelo);

    // Allow typing into cells (BeforeEdit may still cancel an edit).
    void setEditable(bool editable);
    // Ends an open cell edit keeping its text, as leaving the cell would
    // (AfterEdit is raised); for a window about to close.
    void terminarEdicion();
    // Whether the user is extending a selection (more than one cell selected).
    bool seleccionExtendida() const;
    // Grid row and column under a point of the viewport; -1 outside.
    int filaEn(const QPoint& p) const;
    int colEn(const QPoint& p) const;
    // Rectangle of a cell in the viewport's coordinates.
    QRect rectCelda(int fila, int col) const;

    // Columns from primera to ultima take at least the width their widest
    // text needs (header included), measured again on every reload and
    // widened as cells change; the model's width is the least they take.
    void setColumnasAjustadas(int primera, int ultima);
    // Pixels the texts of an adjusted column need (0 for any other).
    int anchoTextos(int col) const;
    // The first n columns stay in view while the grid scrolls sideways (the
    // hidden ones among them stay hidden); 0 scrolls them all.
    void setColumnasFijas(int n);
    int columnasFijas() const { return columnasFijas_; }
    // Width, in pixels, the fixed columns take at the left of the viewport.
    int anchoFijas() const { return anchoFijas_; }
    // Whether a cell of that width cuts the text, drawn in that font by the
    // view: such a text shows whole on hover.
    static bool textoCortado(const QString& texto, const QFont& letra, int anchoCelda, const QWidget* vista);

signals:
    void RowColChange();
    void AfterScroll(int oldTopRow, int oldLeftCol, int newTopRow, int newLeftCol);
    void BeforeEdit(int fila, int col, bool& cancelar);
    // The cell's text holds the typed text when this is raised.
    void AfterEdit(int fila, int col);
    // Every key typed in the cell editor (13 for Enter), before AfterEdit.
    void KeyPressEdit(int fila, int col, int keyAscii);
    // Keys on the grid itself: Qt key code mapped to Windows virtual keys
    // for letters, digits and Delete (46); shift: 1 Shift, 2 Ctrl, 4 Alt.
    void KeyDown(int keyCode, int shift);
    // button: 1 left, 2 right, 4 middle; coordinates in the viewport.
    void MouseDown(int button, int shift, int x, int y);
    void MouseMove(int button, int shift, int x, int y);
    void DblClick();
    // The width the texts of an adjusted column need has changed.
    void AnchosAjustados();
    // The user dragged a column's edge: its width now, in twips.
    void ColumnaEnsanchada(int col, int twips);

public:
    // Typing never jumps to a row by its first letters, as a grid does not.
    void keyboardSearch(const QString& search) override;

protected:
    // (implementation overrides)
    void keyPressEvent(QKeyEvent* e) override;
    void mousePressEvent(QMouseEvent* e) override;
    void mouseMoveEvent(QMouseEvent* e) override;
    void mouseDoubleClickEvent(QMouseEvent* e) override;
    bool edit(const QModelIndex& index, EditTrigger trigger, QEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    void mouseReleaseEvent(QMouseEvent* e) override;
    void reset() override;
    void commitData(QWidget* editor) override;
    void scrollTo(const QModelIndex& index, ScrollHint hint = EnsureVisible) override;
    void updateGeometries() override;
    void resizeEvent(QResizeEvent* e) override;
    bool eventFilter(QObject* objeto, QEvent* e) override;
    void closeEditor(QWidget* editor, QAbstractItemDelegate::EndEditHint hint) override;

private:
    void notarCambioDeSeleccion();
    void avisarCambioDeCelda();
    QModelIndex indice(int fila, int col) const;
    void traerDesplazamientoDelModelo();
    void avisarDesplazamiento();
    void aplicarForma();
    void aplicarFilasOcultas();
    void teclaEnEditor(int keyAscii);
    template <typename F> void enEventoDeUsuario(F&& hacer);
    // Widths that fit the texts: all the rows after a reload, only the
    // changed cells (which may only widen a column) otherwise.
    void ajustarColumnas(int fila1, int fila2, int col1, int col2, bool deNuevo);
    int anchoNecesario(int fila, int col, int anchoConocido = 0) const;
    int anchoColumna(int col) const;
    void colocarFijas();
    void copiarFormaAFijas();
    bool eventoDeFijas(QEvent* e);

    ModeloRejilla* modelo_ = nullptr;
    bool editable_ = false;
    int topAnterior_ = 0;
    int leftAnterior_ = 0;
    // Scrolling has its own guard: a scroll may happen while the selection
    // is being synchronised, and each must still reach the model.
    bool desplazando_ = false;
    // A click or key changes the current cell and selection in steps;
    // RowColChange is raised once the event is over.
    int eventosAbiertos_ = 0;
    bool seleccionPendiente_ = false;
    int filaCursor_ = -1;
    int colCursor_ = -1;
    int filaEdicion_ = -1;
    int colEdicion_ = -1;
    bool afterEditPendiente_ = false;
    bool aplicandoForma_ = false;
    int altoFilaAplicado_ = -1;
    int puntosAplicados_ = -1;
    bool medirAlRedibujar_ = false;
    int primeraAjustada_ = -1;
    int ultimaAjustada_ = -2;
    // Pixels the texts of each adjusted column need; 0 where none is known.
    std::vector<int> anchoAjustado_;
    // The measures of the grid's font, kept while the font stays.
    struct Medida {
        QFont letra;
        QFontMetrics normal;
        QFontMetrics negrita;
        int margen;
        int caracter;
        // The advance of each character of an amount (',' to '9'), per
        // weight, and whether the font lays them out side by side without
        // adjusting any pair: an amount's width is then their sum.
        struct Cifras {
            std::array<qreal, 14> avance{};
            bool sumables = false;
        };
        Cifras cifrasNormal;
        Cifras cifrasNegrita;
    };
    mutable std::optional<Medida> medida_;
    static Medida::Cifras medirCifras(const QFont& letra);
    int columnasFijas_ = 0;
    int anchoFijas_ = 0;
    // Drawn over the left of the viewport: the same model, selection and
    // rows, showing only the fixed columns.
    VistaFija* fijas_ = nullptr;
};

} // namespace presupuestos
