#include "grid/widgets/VistaRejilla.h"

#include <QHelpEvent>
#include <QToolTip>

#include "common/NumerosEs.h"
#include "grid/widgets/TeclaDecimal.h"

#include <QItemSelectionModel>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QFontMetrics>
#include <QFontMetricsF>
#include <QStyle>
#include <QStyledItemDelegate>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <functional>

namespace presupuestos {

namespace {

// Whether a text is written only with the characters of an amount, all of
// them no wider than the widest of those: its width is bounded by its length.
bool soloCifras(const QString& texto)
{
    for (const QChar c : texto) {
        const char16_t u = c.unicode();
        if (!((u >= u'0' && u <= u'9') || u == u'.' || u == u',' || u == u'-'))
            return false;
    }
    return true;
}

// An amount's width as the sum of its characters' advances, rounded as
// the font's own measure rounds the laid-out text.
int anchoSumado(const std::array<qreal, 14>& avance, const QString& texto)
{
    qreal ancho = 0;
    for (const QChar c : texto)
        ancho += avance[static_cast<std::size_t>(c.unicode() - u',')];
    return qRound(ancho);
}

constexpr int kRolBorde = Qt::UserRole + 1;
constexpr int kRolRelleno = Qt::UserRole + 2;

// Twips to pixels at the 96 dpi the original layout was drawn for.
int aPixeles(int twips) { return twips / 15; }

int mascaraMayusculas(Qt::KeyboardModifiers m)
{
    int shift = 0;
    if (m & Qt::ShiftModifier) shift |= 1;
    if (m & Qt::ControlModifier) shift |= 2;
    if (m & Qt::AltModifier) shift |= 4;
    return shift;
}

int codigoBoton(Qt::MouseButton b)
{
    switch (b) {
    case Qt::LeftButton: return 1;
    case Qt::RightButton: return 2;
    case Qt::MiddleButton: return 4;
    default: return 0;
    }
}

int codigoBotones(Qt::MouseButtons b)
{
    int codigo = 0;
    if (b & Qt::LeftButton) codigo |= 1;
    if (b & Qt::RightButton) codigo |= 2;
    if (b & Qt::MiddleButton) codigo |= 4;
    return codigo;
}

// The Windows virtual-key code the forms' key handlers compare against;
// 0 for keys they never look at.
int codigoTecla(const QKeyEvent* e)
{
    const int k = e->key();
    if ((k >= Qt::Key_A && k <= Qt::Key_Z) || (k >= Qt::Key_0 && k <= Qt::Key_9))
        return k;   // Qt uses the same codes for these
    if (k >= Qt::Key_F1 && k <= Qt::Key_F12)
        return 112 + (k - Qt::Key_F1);
    switch (k) {
    case Qt::Key_Backspace: return 8;
    case Qt::Key_Tab: case Qt::Key_Backtab: return 9;
    case Qt::Key_Return: case Qt::Key_Enter: return 13;
    case Qt::Key_Shift: return 16;
    case Qt::Key_Control: return 17;
    case Qt::Key_Alt: return 18;
    case Qt::Key_Escape: return 27;
    case Qt::Key_Space: return 32;
    case Qt::Key_PageUp: return 33;
    case Qt::Key_PageDown: return 34;
    case Qt::Key_End: return 35;
    case Qt::Key_Home: return 36;
    case Qt::Key_Left: return 37;
    case Qt::Key_Up: return 38;
    case Qt::Key_Right: return 39;
    case Qt::Key_Down: return 40;
    case Qt::Key_Insert: return 45;
    case Qt::Key_Delete: return 46;
    default: return 0;
    }
}

// The character code of a key typed into the cell editor, as the edit-key
// handlers see it; 0 for keys that type nothing (arrows and the like).
int codigoAscii(const QKeyEvent* e)
{
    switch (e->key()) {
    case Qt::Key_Return: case Qt::Key_Enter: return 13;
    case Qt::Key_Escape: return 27;
    case Qt::Key_Backspace: return 8;
    case Qt::Key_Tab: return 9;
    default: break;
    }
    const QString t = e->text();
    return t.isEmpty() ? 0 : t.at(0).unicode();
}

class DelegadoRejilla : public QStyledItemDelegate {
public:
    DelegadoRejilla(QObject* parent, std::function<void(int)> alTeclear)
        : QStyledItemDelegate(parent), alTeclear_(std::move(alTeclear))
    {
    }

    void paint(QPainter* p, const QStyleOptionViewItem& opcion, const QModelIndex& index) const override
    {
        QStyledItemDelegate::paint(p, opcion, index);
        const int relleno = index.data(kRolRelleno).toInt();
        if (relleno > 0) {
            QRect barra = opcion.rect.adjusted(1, 1, -1, -1);
            barra.setWidth(barra.width() * relleno / 100);
            p->fillRect(barra, QColor(0, 0, 255, 60));
        }
        if (index.data(kRolBorde).toBool()) {
            p->save();
            p->setPen(QPen(Qt::black, 1));
            p->drawLine(opcion.rect.bottomLeft(), opcion.rect.bottomRight());
            p->restore();
        }
    }

    // A text the cell cuts shows whole on hover, in either view of the grid.
    bool helpEvent(QHelpEvent* e, QAbstractItemView* vista, const QStyleOptionViewItem& opcion, const QModelIndex& index) override
    {
        if (e->type() != QEvent::ToolTip || !index.isValid() || index.data(Qt::ToolTipRole).isValid())
            return QStyledItemDelegate::helpEvent(e, vista, opcion, index);
        QStyleOptionViewItem o = opcion;
        initStyleOption(&o, index);
        const QString texto = index.data(Qt::DisplayRole).toString();
        if (VistaRejilla::textoCortado(texto, o.font, o.rect.width(), vista))
            QToolTip::showText(e->globalPos(), texto, vista->viewport(), o.rect);
        else
            QToolTip::hideText();
        return true;
    }

    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem&, const QModelIndex&) const override
    {
        auto* editor = new QLineEdit(parent);
        editor->setFrame(false);
        return editor;
    }

protected:
    bool eventFilter(QObject* objeto, QEvent* evento) override
    {
        // The view installs the delegate as the editor's filter; every key
        // typed there, the one that opened the editor included, passes here
        // before the editor or the commit on Enter sees it.
        if (evento->type() == QEvent::KeyPress) {
            auto* k = static_cast<QKeyEvent*>(evento);
            if (esTeclaDecimal(k) && qobject_cast<QLineEdit*>(objeto)) {
                alTeclear_(',');
                escribirComaDecimal(objeto, evento);
                return true;
            }
            const int ascii = codigoAscii(k);
            if (ascii != 0)
                alTeclear_(ascii);
        }
        return QStyledItemDelegate::eventFilter(objeto, evento);
    }

private:
    std::function<void(int)> alTeclear_;
};

} // namespace


// The fixed columns, drawn over the left of the grid's viewport: a second
// view of the same adapter sharing the grid's selection, whose rows scroll
// with the grid's and whose mouse events the grid handles as its own.
class VistaFija : public QTableView {
public:
    explicit VistaFija(VistaRejilla& principal) : QTableView(&principal)
    {
        setObjectName(principal.objectName() + QStringLiteral("_fijas"));
        setFocusPolicy(Qt::NoFocus);
        setFrameShape(QFrame::NoFrame);
        setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        verticalHeader()->hide();
        verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
        horizontalHeader()->setSectionsClickable(false);
        horizontalHeader()->setHighlightSections(false);
        // The fixed columns' edges are the ones the user sees: they widen here.
        horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
        setSelectionMode(principal.selectionMode());
        setSelectionBehavior(principal.selectionBehavior());
        setVerticalScrollMode(QAbstractItemView::ScrollPerItem);
        setEditTriggers(QAbstractItemView::NoEditTriggers);
        setWordWrap(false);
        setMouseTracking(true);
    }
    void pulsar(QMouseEvent* e) { mousePressEvent(e); }
    void mover(QMouseEvent* e) { mouseMoveEvent(e); }
    void soltar(QMouseEvent* e) { mouseReleaseEvent(e); }
    void dobleClic(QMouseEvent* e) { mouseDoubleClickEvent(e); }
};


VistaRejilla::VistaRejilla(const QString& nombre, QWidget* parent)
    : QTableView(parent)
{
    setObjectName(nombre);
    setItemDelegate(new DelegadoRejilla(this, [this](int ascii) { teclaEnEditor(ascii); }));

    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    horizontalHeader()->setSectionsClickable(false);
    horizontalHeader()->setHighlightSections(false);
    setSelectionMode(QAbstractItemView::ContiguousSelection);
    setSelectionBehavior(QAbstractItemView::SelectItems);
    // A grid scrolls by whole rows and columns: the top row is a row number.
    setVerticalScrollMode(QAbstractItemView::ScrollPerItem);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerItem);
    setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed
                    | QAbstractItemView::AnyKeyPressed);
    setMouseTracking(true);
    setWordWrap(false);

    // A column the user widens keeps its width through later refreshes.
    connect(horizontalHeader(), &QHeaderView::sectionResized, this, [this](int col, int, int ancho) {
        if (aplicandoForma_ || ancho <= 0 || col >= modelo_->Cols() || horizontalHeader()->isSectionHidden(col))
            return;
        aplicandoForma_ = true;
        modelo_->setColWidth(col, ancho * 15);
        aplicandoForma_ = false;
        if (col < columnasFijas_)
            copiarFormaAFijas();
        emit ColumnaEnsanchada(col, ancho * 15);
    });
    setModelo(new ModeloRejilla(this));
}

VistaRejilla::~VistaRejilla()
{
    // The model dies with the view's children; keep it from talking to a
    // half-destroyed view meanwhile.
    disconnect(modelo_, nullptr, this, nullptr);
    disconnect(&modelo_->tabla(), nullptr, this, nullptr);
}

void VistaRejilla::setModelo(ModeloRejilla* modelo)
{
    ModeloRejilla* anterior = modelo_;
    if (anterior) {
        disconnect(anterior, nullptr, this, nullptr);
        disconnect(&anterior->tabla(), nullptr, this, nullptr);
    }
    modelo_ = modelo;
    modelo_->setParent(this);
    setModel(&modelo_->tabla());
    // The grid's one selection: the view shows the model's, never one of its own.
    QItemSelectionModel* propia = selectionModel();
    setSelectionModel(&modelo_->seleccion());
    if (propia != &modelo_->seleccion())
        delete propia;
    if (fijas_) {
        fijas_->setModel(&modelo_->tabla());
        fijas_->setSelectionModel(&modelo_->seleccion());
    }
    delete anterior;

    connect(modelo_, &ModeloRejilla::seleccionCambiada, this, &VistaRejilla::notarCambioDeSeleccion);
    connect(modelo_, &ModeloRejilla::filaSuperiorCambiada, this, [this] {
        if (!desplazando_)
            traerDesplazamientoDelModelo();
    });
    connect(modelo_, &ModeloRejilla::formaCambiada, this, &VistaRejilla::aplicarForma);
    connect(modelo_, &ModeloRejilla::filaOcultaCambiada, this, [this](int fila) {
        const int v = fila - modelo_->FixedRows();
        if (v >= 0 && v < model()->rowCount()) {
            setRowHidden(v, modelo_->RowHidden(fila));
            if (fijas_)
                fijas_->setRowHidden(v, modelo_->RowHidden(fila));
        }
    });
    connect(modelo_, &ModeloRejilla::redrawCambiado, this, [this](bool activo) {
        setUpdatesEnabled(activo);
        if (activo && medirAlRedibujar_) {
            medirAlRedibujar_ = false;
            ajustarColumnas(0, modelo_->Rows() - 1, 0, modelo_->Cols() - 1, true);
        }
    });
    QAbstractItemModel* tabla = &modelo_->tabla();
    connect(tabla, &QAbstractItemModel::dataChanged, this,
            [this](const QModelIndex& a, const QModelIndex& b, const QList<int>& roles) {
        // A change of colour alone leaves the texts' widths as they were.
        if (!roles.isEmpty() && !roles.contains(Qt::DisplayRole))
            return;
        const int fijas = modelo_->FixedRows();
        ajustarColumnas(a.row() + fijas, b.row() + fijas, a.column(), b.column(), false);
    });
    connect(tabla, &QAbstractItemModel::headerDataChanged, this, [this](Qt::Orientation o, int c1, int c2) {
        if (o == Qt::Horizontal && modelo_->FixedRows() > 0)
            ajustarColumnas(0, 0, c1, c2, false);
    });
    connect(tabla, &QAbstractItemModel::rowsInserted, this, [this](const QModelIndex&, int primera, int ultima) {
        // A load with redraw off is measured once, when it is drawn.
        if (!modelo_->Redraw()) {
            medirAlRedibujar_ = true;
            return;
        }
        const int fijas = modelo_->FixedRows();
        // Every row new: a reload, measured anew.
        const bool todas = primera == 0 && ultima == model()->rowCount() - 1;
        ajustarColumnas(todas ? 0 : primera + fijas, ultima + fijas, 0, modelo_->Cols() - 1, todas);
    });
    aplicarForma();
    filaCursor_ = modelo_->Row();
    colCursor_ = modelo_->Col();
    topAnterior_ = modelo_->TopRow();
    leftAnterior_ = modelo_->LeftCol();
}

void VistaRejilla::reset()
{
    const bool antesDesplazando = std::exchange(desplazando_, true);
    QTableView::reset();
    aplicarForma();
    aplicarFilasOcultas();
    ajustarColumnas(0, modelo_->Rows() - 1, 0, modelo_->Cols() - 1, true);
    desplazando_ = antesDesplazando;
    // The view's reset empties the selection behind the model's back.
    modelo_->colocarCursor();
    traerDesplazamientoDelModelo();
}

void VistaRejilla::setEditable(bool editable) { editable_ = editable; }

bool VistaRejilla::seleccionExtendida() const
{
    const ModeloRejilla::Rectangulo r = modelo_->Seleccion();
    return r.valido() && (r.fila1 != r.fila2 || r.col1 != r.col2);
}

QModelIndex VistaRejilla::indice(int fila, int col) const
{
    const int v = fila - modelo_->FixedRows();
    if (v < 0 || v >= model()->rowCount() || col < 0 || col >= model()->columnCount())
        return {};
    return model()->index(v, col);
}

int VistaRejilla::filaEn(const QPoint& p) const
{
    const int v = rowAt(p.y());
    return v < 0 ? -1 : v + modelo_->FixedRows();
}


int VistaRejilla::colEn(const QPoint& p) const
{
    // The fixed columns lie over the viewport's left, in its coordinates.
    if (fijas_ && fijas_->isVisible() && p.x() >= 0 && p.x() < anchoFijas_)
        return fijas_->columnAt(p.x());
    return columnAt(p.x());
}

QRect VistaRejilla::rectCelda(int fila, int col) const
{
    if (fijas_ && fijas_->isVisible() && col < columnasFijas_)
        return fijas_->visualRect(indice(fila, col));
    return visualRect(indice(fila, col));
}

void VistaRejilla::keyboardSearch(const QString&) {}

// ---- Current cell and selection ----------------------------------------------------

template <typename F>
void VistaRejilla::enEventoDeUsuario(F&& hacer)
{
    ++eventosAbiertos_;
    hacer();
    if (--eventosAbiertos_ == 0 && seleccionPendiente_) {
        seleccionPendiente_ = false;
        avisarCambioDeCelda();
    }
}

// A click or key changes the current cell and the selection in steps;
// RowColChange is raised once the event is over.
void VistaRejilla::notarCambioDeSeleccion()
{
    if (eventosAbiertos_ > 0)
        seleccionPendiente_ = true;
    else
        avisarCambioDeCelda();
}

void VistaRejilla::avisarCambioDeCelda()
{
    const int fila = modelo_->Row(), col = modelo_->Col();
    if (fila == filaCursor_ && col == colCursor_)
        return;
    filaCursor_ = fila;
    colCursor_ = col;
    emit RowColChange();
}


void VistaRejilla::scrollContentsBy(int dx, int dy)
{
    QTableView::scrollContentsBy(dx, dy);
    if (!desplazando_)
        avisarDesplazamiento();
}

void VistaRejilla::avisarDesplazamiento()
{
    const int fijas = modelo_->FixedRows();
    const int arriba = rowAt(0);
    // Beside fixed columns the first column is the first one past them.
    const int izquierda = columnAt(fijas_ ? anchoFijas_ : 0);
    const int nuevaArriba = arriba < 0 ? modelo_->TopRow() : arriba + fijas;
    const int nuevaIzquierda = izquierda < 0 ? modelo_->LeftCol() : izquierda;
    if (nuevaArriba == topAnterior_ && nuevaIzquierda == leftAnterior_)
        return;
    const int viejaArriba = std::exchange(topAnterior_, nuevaArriba);
    const int viejaIzquierda = std::exchange(leftAnterior_, nuevaIzquierda);
    desplazando_ = true;
    modelo_->setTopRow(nuevaArriba);
    modelo_->setLeftCol(nuevaIzquierda);
    desplazando_ = false;
    emit AfterScroll(viejaArriba, viejaIzquierda, nuevaArriba, nuevaIzquierda);
}

void VistaRejilla::traerDesplazamientoDelModelo()
{
    const int fijas = modelo_->FixedRows();
    const int fila = modelo_->TopRow() - fijas;
    const int col = modelo_->LeftCol();
    // In per-item scrolling the scroll bars count the rows and columns that
    // are not hidden.
    auto visiblesAntes = [](const QHeaderView* cabecera, int hasta) {
        if (cabecera->hiddenSectionCount() == 0)
            return hasta;
        int n = 0;
        for (int i = 0; i < hasta; ++i)
            if (!cabecera->isSectionHidden(i))
                ++n;
        return n;
    };
    desplazando_ = true;
    // The scroll bars' ranges as the rows stand now, not at the next layout.
    updateGeometries();
    if (fila >= 0 && fila < model()->rowCount())
        verticalScrollBar()->setValue(visiblesAntes(verticalHeader(), fila));
    if (col >= 0 && col < model()->columnCount()) {
        if (fijas_)   // scrolled by pixels, the column just past the fixed ones
            horizontalScrollBar()->setValue(col < columnasFijas_ ? 0 : std::max(0, horizontalHeader()->sectionPosition(col) - anchoFijas_));
        else
            horizontalScrollBar()->setValue(visiblesAntes(horizontalHeader(), col));
    }
    desplazando_ = false;
    // The view may stop short of the asked row near the end; the model and
    // the AfterScroll handlers learn where it really is.
    avisarDesplazamiento();
}

// ---- Look ---------------------------------------------------------------------------

void VistaRejilla::aplicarForma()
{
    aplicandoForma_ = true;
    const int cols = std::min(modelo_->Cols(), model()->columnCount());
    for (int c = 0; c < cols; ++c) {
        setColumnHidden(c, modelo_->ColHidden(c));
        const int pixeles = anchoColumna(c);
        if (!modelo_->ColHidden(c) && columnWidth(c) != pixeles)
            setColumnWidth(c, pixeles);
    }
    aplicandoForma_ = false;
    horizontalHeader()->setVisible(modelo_->FixedRows() > 0);

    bool medirDeNuevo = false;
    if (modelo_->FontSize() != puntosAplicados_) {
        puntosAplicados_ = modelo_->FontSize();
        QFont letra = font();
        letra.setPointSize(puntosAplicados_);
        setFont(letra);
        medirDeNuevo = true;
    }
    const int alto = std::max(aPixeles(modelo_->RowHeightMin()), fontMetrics().height() + 4);
    if (alto != altoFilaAplicado_) {
        altoFilaAplicado_ = alto;
        verticalHeader()->setMinimumSectionSize(alto);
        verticalHeader()->setDefaultSectionSize(alto);
    }

    QPalette paleta = palette();
    if (modelo_->BackColorBkg().isValid())
        paleta.setColor(QPalette::Base, modelo_->BackColorBkg());
    if (modelo_->BackColorSel().isValid()) {
        paleta.setColor(QPalette::Highlight, modelo_->BackColorSel());
        paleta.setColor(QPalette::HighlightedText, Qt::white);
    }
    if (modelo_->BackColorFixed().isValid())
        paleta.setColor(QPalette::Button, modelo_->BackColorFixed());
    if (paleta != palette())
        setPalette(paleta);
    copiarFormaAFijas();
    if (medirDeNuevo)
        ajustarColumnas(0, modelo_->Rows() - 1, 0, modelo_->Cols() - 1, true);
}

int VistaRejilla::anchoColumna(int col) const
{
    const int ancho = modelo_->ColWidth(col);
    const int pixeles = ancho >= 0 ? aPixeles(ancho) : horizontalHeader()->defaultSectionSize();
    const int ajustado = col < static_cast<int>(anchoAjustado_.size()) ? anchoAjustado_[static_cast<std::size_t>(col)] : 0;
    return std::max(pixeles, ajustado);
}

void VistaRejilla::setColumnasAjustadas(int primera, int ultima)
{
    primeraAjustada_ = primera;
    ultimaAjustada_ = ultima;
    anchoAjustado_.clear();
    ajustarColumnas(0, modelo_->Rows() - 1, 0, modelo_->Cols() - 1, true);
    aplicarForma();
}

bool VistaRejilla::textoCortado(const QString& texto, const QFont& letra, int anchoCelda, const QWidget* vista)
{
    if (texto.isEmpty())
        return false;
    const int margen = vista->style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, vista) + 1;
    return QFontMetrics(letra).horizontalAdvance(texto) + 2 * margen + 1 > anchoCelda;
}

// The advances of a font's amount characters, and whether every amount's
// laid-out width is their sum: no pair of them is kerned or joined, and
// the sum rounds as the font's measure does on amounts of every length.
VistaRejilla::Medida::Cifras VistaRejilla::medirCifras(const QFont& letra)
{
    VistaRejilla::Medida::Cifras r;
    const QFontMetricsF f(letra);
    const QString caracteres = QStringLiteral(",-.0123456789");
    for (const QChar c : caracteres)
        r.avance[static_cast<std::size_t>(c.unicode() - u',')] = f.horizontalAdvance(c);
    for (const QChar a : caracteres)
        for (const QChar b : caracteres) {
            const QString par = QString(a) + b;
            if (std::abs(f.horizontalAdvance(par) - (r.avance[static_cast<std::size_t>(a.unicode() - u',')]
                                                     + r.avance[static_cast<std::size_t>(b.unicode() - u',')]))
                > 1e-6)
                return r;
        }
    const QFontMetrics m(letra);
    for (const QString& muestra : {QStringLiteral("0"), QStringLiteral("-1,5"), QStringLiteral("11.111,11"),
                                   QStringLiteral("-888.888.888,8888"), QStringLiteral("922.337.203.685.477,5807"),
                                   QStringLiteral("1.000.000"), QStringLiteral("-7,07")})
        if (m.horizontalAdvance(muestra) != anchoSumado(r.avance, muestra))
            return r;
    r.sumables = true;
    return r;
}

// What the delegate needs to draw the cell's text whole: the text in the
// cell's font, a margin each side, and the grid line, which takes a pixel
// of the cell. Measured directly, since an edit measures a few cells; 0
// when the text surely fits anchoConocido.
int VistaRejilla::anchoNecesario(int fila, int col, int anchoConocido) const
{
    if (!indice(fila, col).isValid())
        return 0;
    if (!medida_ || medida_->letra != font()) {
        QFont negrita = font();
        negrita.setBold(true);
        const QFontMetrics n(negrita);
        // The widest character an amount is written with, in either weight.
        int caracter = 0;
        for (QChar c : QStringLiteral("0123456789-.,"))
            caracter = std::max(caracter, n.horizontalAdvance(c));
        medida_.emplace(Medida{font(), QFontMetrics(font()), n,
                               style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, this) + 1, caracter,
                               medirCifras(font()), medirCifras(negrita)});
    }
    const QString texto = modelo_->TextMatrix(fila, col);
    // One more pixel than the delegate's own measure, which rounds its
    // text layout up.
    const int resto = 2 * medida_->margen + (showGrid() ? 1 : 0) + 1;
    // Most edits leave an amount no longer than others of its column: that
    // is settled without laying the text out.
    if (texto.size() * medida_->caracter + resto <= anchoConocido && soloCifras(texto))
        return 0;
    const bool negrita = modelo_->CellFontBold(fila, col);
    // An amount in a font that sets its characters side by side is summed,
    // not laid out: every edit changes a total, the widest of its column.
    const Medida::Cifras& cifras = negrita ? medida_->cifrasNegrita : medida_->cifrasNormal;
    if (cifras.sumables && soloCifras(texto))
        return anchoSumado(cifras.avance, texto) + resto;
    const QFontMetrics& m = negrita ? medida_->negrita : medida_->normal;
    return m.horizontalAdvance(texto) + resto;
}

void VistaRejilla::ajustarColumnas(int fila1, int fila2, int col1, int col2, bool deNuevo)
{
    col1 = std::max(col1, primeraAjustada_);
    col2 = std::min({col2, ultimaAjustada_, modelo_->Cols() - 1, model()->columnCount() - 1});
    if (col1 > col2)
        return;
    if (anchoAjustado_.size() < static_cast<std::size_t>(modelo_->Cols()))
        anchoAjustado_.resize(static_cast<std::size_t>(modelo_->Cols()), 0);
    const int fijas = modelo_->FixedRows();
    const bool cabecera = fila1 < fijas;
    fila1 = std::max(fila1, fijas);
    fila2 = std::min({fila2, modelo_->Rows() - 1, fijas + model()->rowCount() - 1});
    bool cambio = false;
    std::vector<int> filas;
    for (int c = col1; c <= col2; ++c) {
        if (modelo_->ColHidden(c))
            continue;
        int& ajustado = anchoAjustado_[static_cast<std::size_t>(c)];
        int ancho = deNuevo ? 0 : ajustado;
        if ((deNuevo || cabecera) && fijas > 0)
            ancho = std::max(ancho, horizontalHeader()->sectionSizeHint(c));
        filas.clear();
        modelo_->filasMasAnchas(c, fila1, fila2, filas);
        for (int r : filas)
            ancho = std::max(ancho, anchoNecesario(r, c, ancho));
        if (ancho != ajustado) {
            ajustado = ancho;
            cambio = true;
        }
    }
    if (cambio) {
        aplicarForma();
        emit AnchosAjustados();
    }
}

int VistaRejilla::anchoTextos(int col) const
{
    return col >= 0 && col < static_cast<int>(anchoAjustado_.size()) ? anchoAjustado_[static_cast<std::size_t>(col)] : 0;
}

// ---- Fixed columns ------------------------------------------------------------------

void VistaRejilla::setColumnasFijas(int n)
{
    columnasFijas_ = std::max(0, n);
    if (columnasFijas_ > 0 && !fijas_) {
        fijas_ = new VistaFija(*this);
        fijas_->setModel(&modelo_->tabla());
        fijas_->setSelectionModel(&modelo_->seleccion());
        fijas_->setItemDelegate(itemDelegate());
        fijas_->viewport()->installEventFilter(this);
        connect(fijas_->horizontalHeader(), &QHeaderView::sectionResized, this, [this](int col, int, int ancho) {
            if (ancho > 0 && col < model()->columnCount() && columnWidth(col) != ancho)
                setColumnWidth(col, ancho);
        });
        connect(verticalScrollBar(), &QScrollBar::valueChanged, fijas_->verticalScrollBar(), &QScrollBar::setValue);
        connect(fijas_->verticalScrollBar(), &QScrollBar::valueChanged, verticalScrollBar(), &QScrollBar::setValue);
        connect(fijas_->verticalScrollBar(), &QScrollBar::rangeChanged, this,
                [this] { fijas_->verticalScrollBar()->setValue(verticalScrollBar()->value()); });
        // Whole columns would leave the first ones past the fixed columns
        // half under them; pixels let every column come fully into view.
        setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
        fijas_->show();
    } else if (columnasFijas_ == 0 && fijas_) {
        delete std::exchange(fijas_, nullptr);
        anchoFijas_ = 0;
        setHorizontalScrollMode(QAbstractItemView::ScrollPerItem);
    }
    copiarFormaAFijas();
    aplicarFilasOcultas();
}

void VistaRejilla::copiarFormaAFijas()
{
    if (!fijas_)
        return;
    const int cols = model()->columnCount();
    for (int c = 0; c < cols; ++c) {
        const bool oculta = c >= columnasFijas_ || isColumnHidden(c);
        if (fijas_->isColumnHidden(c) != oculta)
            fijas_->setColumnHidden(c, oculta);
        if (!oculta && fijas_->columnWidth(c) != columnWidth(c))
            fijas_->setColumnWidth(c, columnWidth(c));
    }
    if (fijas_->font() != font())
        fijas_->setFont(font());
    if (fijas_->palette() != palette())
        fijas_->setPalette(palette());
    fijas_->setShowGrid(showGrid());
    QHeaderView* filas = fijas_->verticalHeader();
    if (filas->defaultSectionSize() != verticalHeader()->defaultSectionSize()) {
        filas->setMinimumSectionSize(verticalHeader()->minimumSectionSize());
        filas->setDefaultSectionSize(verticalHeader()->defaultSectionSize());
    }
    fijas_->horizontalHeader()->setVisible(!horizontalHeader()->isHidden());
    colocarFijas();
}

void VistaRejilla::colocarFijas()
{
    if (!fijas_)
        return;
    int ancho = 0;
    const int cols = std::min(columnasFijas_, model()->columnCount());
    for (int c = 0; c < cols; ++c)
        if (!isColumnHidden(c))
            ancho += columnWidth(c);
    const QRect vp = viewport()->geometry();
    anchoFijas_ = std::min(ancho, vp.width());
    const int alto = horizontalHeader()->isHidden() ? 0 : horizontalHeader()->height();
    fijas_->horizontalHeader()->setFixedHeight(alto);
    fijas_->setGeometry(vp.x(), vp.y() - alto, anchoFijas_, vp.height() + alto);
    fijas_->setVisible(anchoFijas_ > 0);
    fijas_->verticalScrollBar()->setValue(verticalScrollBar()->value());
}

void VistaRejilla::updateGeometries()
{
    QTableView::updateGeometries();
    colocarFijas();
}

void VistaRejilla::resizeEvent(QResizeEvent* e)
{
    QTableView::resizeEvent(e);
    colocarFijas();
}

void VistaRejilla::scrollTo(const QModelIndex& index, ScrollHint hint)
{
    if (!fijas_ || anchoFijas_ <= 0 || !index.isValid()) {
        QTableView::scrollTo(index, hint);
        return;
    }
    // One scroll for the handlers, however many steps it takes here.
    const bool antes = std::exchange(desplazando_, true);
    const int x0 = horizontalScrollBar()->value();
    QTableView::scrollTo(index, hint);
    if (index.column() < columnasFijas_) {
        horizontalScrollBar()->setValue(x0);
    } else {
        const int x = columnViewportPosition(index.column());
        if (x < anchoFijas_)
            horizontalScrollBar()->setValue(horizontalScrollBar()->value() - (anchoFijas_ - x));
    }
    desplazando_ = antes;
    if (!desplazando_)
        avisarDesplazamiento();
}

bool VistaRejilla::eventFilter(QObject* objeto, QEvent* e)
{
    if (fijas_ && objeto == fijas_->viewport() && eventoDeFijas(e))
        return true;
    return QTableView::eventFilter(objeto, e);
}

// A click on a fixed column is a click on the grid: the same events, in the
// grid viewport's coordinates, which the fixed columns share.
bool VistaRejilla::eventoDeFijas(QEvent* e)
{
    switch (e->type()) {
    case QEvent::MouseButtonPress: {
        auto* m = static_cast<QMouseEvent*>(e);
        const QPoint p = m->position().toPoint();
        emit MouseDown(codigoBoton(m->button()), mascaraMayusculas(m->modifiers()), p.x(), p.y());
        if (m->button() != Qt::RightButton) {
            setFocus(Qt::MouseFocusReason);
            enEventoDeUsuario([&] { fijas_->pulsar(m); });
        }
        return true;
    }
    case QEvent::MouseMove: {
        auto* m = static_cast<QMouseEvent*>(e);
        const QPoint p = m->position().toPoint();
        emit MouseMove(codigoBotones(m->buttons()), mascaraMayusculas(m->modifiers()), p.x(), p.y());
        enEventoDeUsuario([&] { fijas_->mover(m); });
        return true;
    }
    case QEvent::MouseButtonRelease: {
        auto* m = static_cast<QMouseEvent*>(e);
        if (m->button() != Qt::RightButton)
            enEventoDeUsuario([&] { fijas_->soltar(m); });
        return true;
    }
    case QEvent::MouseButtonDblClick: {
        auto* m = static_cast<QMouseEvent*>(e);
        if (m->button() != Qt::RightButton) {
            enEventoDeUsuario([&] { fijas_->dobleClic(m); });
            emit DblClick();
        }
        return true;
    }
    default:
        return false;
    }
}

void VistaRejilla::aplicarFilasOcultas()
{
    // The header keeps its hidden sections across a reset, so every row is
    // set; rows already in the right state cost the header nothing.
    const int fijas = modelo_->FixedRows();
    const int filas = std::min(model()->rowCount(), modelo_->Rows() - fijas);
    for (int v = 0; v < filas; ++v) {
        const bool oculta = modelo_->RowHidden(v + fijas);
        setRowHidden(v, oculta);
        if (fijas_)
            fijas_->setRowHidden(v, oculta);
    }
}

// ---- Editing -------------------------------------------------------------------------

bool VistaRejilla::edit(const QModelIndex& index, EditTrigger trigger, QEvent* event)
{
    const bool abriria = index.isValid() && state() != EditingState
                         && (trigger == AllEditTriggers || editTriggers().testFlag(trigger));
    if (!abriria)
        return QTableView::edit(index, trigger, event);
    if (!editable_)
        return false;
    const int fila = index.row() + modelo_->FixedRows();
    const int col = index.column();
    bool cancelar = false;
    emit BeforeEdit(fila, col, cancelar);
    if (cancelar)
        return false;
    filaEdicion_ = fila;
    colEdicion_ = col;
    afterEditPendiente_ = false;
    return QTableView::edit(index, trigger, event);
}

void VistaRejilla::teclaEnEditor(int keyAscii)
{
    emit KeyPressEdit(filaEdicion_, colEdicion_, keyAscii);
}

void VistaRejilla::commitData(QWidget* editor)
{
    QTableView::commitData(editor);
    afterEditPendiente_ = true;
}

void VistaRejilla::closeEditor(QWidget* editor, QAbstractItemDelegate::EndEditHint hint)
{
    // Tab and Shift+Tab end the edit and move to the next cell without
    // opening it; the edit is finished before the cursor moves (the view
    // itself would open the next editor first and the typed amount would
    // never reach AfterEdit).
    const bool mover = hint == QAbstractItemDelegate::EditNextItem || hint == QAbstractItemDelegate::EditPreviousItem;
    QTableView::closeEditor(editor, mover ? QAbstractItemDelegate::NoHint : hint);
    // Raised once the editor is gone, so the handler may move the cursor.
    if (afterEditPendiente_) {
        afterEditPendiente_ = false;
        emit AfterEdit(filaEdicion_, colEdicion_);
    }
    if (mover) {
        const QModelIndex siguiente = moveCursor(hint == QAbstractItemDelegate::EditNextItem ? MoveNext : MovePrevious, Qt::NoModifier);
        if (siguiente.isValid())
            selectionModel()->setCurrentIndex(siguiente, QItemSelectionModel::ClearAndSelect);
    }
}

void VistaRejilla::terminarEdicion()
{
    if (state() != EditingState || filaEdicion_ < modelo_->FixedRows())
        return;
    QWidget* editor = indexWidget(indice(filaEdicion_, colEdicion_));
    if (!editor)
        return;
    commitData(editor);
    closeEditor(editor, QAbstractItemDelegate::NoHint);
}

// ---- Keys and mouse -------------------------------------------------------------------

void VistaRejilla::keyPressEvent(QKeyEvent* e)
{
    const int codigo = codigoTecla(e);
    const int shift = mascaraMayusculas(e->modifiers());
    if (codigo != 0)
        emit KeyDown(codigo, shift);
    // Copy, paste and clearing belong to the forms' KeyDown handlers, not to
    // the view's own copy of one cell or to an edit started by Delete.
    const bool control = shift & 2;
    if ((control && (codigo == 'C' || codigo == 'V' || codigo == 'X')) || codigo == 46) {
        e->accept();
        return;
    }
    enEventoDeUsuario([&] { QTableView::keyPressEvent(e); });
}

void VistaRejilla::mousePressEvent(QMouseEvent* e)
{
    const QPoint p = e->position().toPoint();
    emit MouseDown(codigoBoton(e->button()), mascaraMayusculas(e->modifiers()), p.x(), p.y());
    if (e->button() == Qt::RightButton) {
        // The forms decide whether a right click moves the cursor: a
        // selection being copied or pasted must survive it.
        e->accept();
        return;
    }
    enEventoDeUsuario([&] { QTableView::mousePressEvent(e); });
}

void VistaRejilla::mouseMoveEvent(QMouseEvent* e)
{
    const QPoint p = e->position().toPoint();
    emit MouseMove(codigoBotones(e->buttons()), mascaraMayusculas(e->modifiers()), p.x(), p.y());
    enEventoDeUsuario([&] { QTableView::mouseMoveEvent(e); });
}

void VistaRejilla::mouseReleaseEvent(QMouseEvent* e)
{
    if (e->button() == Qt::RightButton) {
        e->accept();
        return;
    }
    enEventoDeUsuario([&] { QTableView::mouseReleaseEvent(e); });
}

void VistaRejilla::mouseDoubleClickEvent(QMouseEvent* e)
{
    if (e->button() == Qt::RightButton) {
        e->accept();
        return;
    }
    enEventoDeUsuario([&] { QTableView::mouseDoubleClickEvent(e); });
    emit DblClick();
}

} // namespace presupuestos
