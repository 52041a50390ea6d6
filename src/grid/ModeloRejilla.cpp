#include "grid/ModeloRejilla.h"

#include "common/NumerosEs.h"
#include "common/VbError.h"

#include <QAbstractTableModel>
#include <QFont>
#include <QHash>
#include <QItemSelectionModel>
#include <algorithm>
#include <functional>
#include <utility>

namespace presupuestos {

namespace {

Qt::Alignment alineacionQt(ModeloRejilla::Alineacion a, const QString& texto)
{
    switch (a) {
    case ModeloRejilla::Alineacion::Izquierda: return Qt::AlignLeft | Qt::AlignVCenter;
    case ModeloRejilla::Alineacion::Centro: return Qt::AlignHCenter | Qt::AlignVCenter;
    case ModeloRejilla::Alineacion::Derecha: return Qt::AlignRight | Qt::AlignVCenter;
    case ModeloRejilla::Alineacion::General: break;
    }
    // Numbers to the right, text to the left.
    return (es::esNumerico(texto) ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter;
}

constexpr std::uint8_t kAlineacionDeColumna = 0xFF;

} // namespace

// ---- The plain store: texts kept once, colours as palette indices ---------------

struct ModeloRejilla::Datos {
    enum Marca : std::uint8_t { Negrita = 4, BordeInferior = 8 };

    struct Celda {
        std::int32_t texto = -1;   // index into the pool; -1 empty
        std::uint8_t fondo = 0;
        std::uint8_t frente = 0;
        std::uint8_t marcas = 0;
        std::uint8_t alineacion = kAlineacionDeColumna;
        std::uint8_t relleno = 0;
    };
    struct Fila {
        std::vector<Celda> celdas;
        bool oculta = false;
    };

    std::vector<Fila> filas;
    int fijas = 0;
    std::vector<QString> textos;
    QHash<QString, std::int32_t> indiceTextos;
    std::vector<QRgb> paleta;   // palette index i + 1 is paleta[i]
    // Changes gathered while redraw is off.
    bool pendiente = false;

    int numFilas() const { return static_cast<int>(filas.size()); }

    std::int32_t guardarTexto(const QString& t)
    {
        if (t.isEmpty())
            return -1;
        const auto it = indiceTextos.constFind(t);
        if (it != indiceTextos.cend())
            return it.value();
        const auto i = static_cast<std::int32_t>(textos.size());
        textos.push_back(t);
        indiceTextos.insert(t, i);
        return i;
    }

    QString texto(const Celda& c) const { return c.texto < 0 ? QString() : textos[static_cast<std::size_t>(c.texto)]; }

    std::uint8_t indiceColor(const QColor& color)
    {
        if (!color.isValid())
            return 0;
        const QRgb rgb = color.rgba();
        for (std::size_t i = 0; i < paleta.size(); ++i)
            if (paleta[i] == rgb)
                return static_cast<std::uint8_t>(i + 1);
        if (paleta.size() < 255) {
            paleta.push_back(rgb);
            return static_cast<std::uint8_t>(paleta.size());
        }
        // A grid painted in more than 255 colours: the nearest one stands in.
        std::size_t mejor = 0;
        long long distancia = -1;
        for (std::size_t i = 0; i < paleta.size(); ++i) {
            const long long dr = qRed(paleta[i]) - qRed(rgb), dg = qGreen(paleta[i]) - qGreen(rgb),
                            db = qBlue(paleta[i]) - qBlue(rgb), da = qAlpha(paleta[i]) - qAlpha(rgb);
            const long long dd = dr * dr + dg * dg + db * db + da * da;
            if (distancia < 0 || dd < distancia) {
                distancia = dd;
                mejor = i;
            }
        }
        return static_cast<std::uint8_t>(mejor + 1);
    }

    QColor color(std::uint8_t indice) const { return indice == 0 ? QColor() : QColor::fromRgba(paleta[indice - 1]); }
};

// What the view shows of the plain store: its rows past the header.
class ModeloRejilla::TablaCeldas : public QAbstractTableModel {
public:
    explicit TablaCeldas(ModeloRejilla& m) : QAbstractTableModel(&m), m_(m) {}

    int rowCount(const QModelIndex& padre = QModelIndex()) const override
    {
        return padre.isValid() ? 0 : std::max(0, m_.d->numFilas() - m_.d->fijas);
    }
    int columnCount(const QModelIndex& padre = QModelIndex()) const override { return padre.isValid() ? 0 : m_.cols_; }

    QVariant data(const QModelIndex& i, int rol) const override
    {
        if (!i.isValid())
            return {};
        const int f = i.row() + m_.d->fijas;
        const int c = i.column();
        const Datos::Celda& celda = m_.d->filas[static_cast<std::size_t>(f)].celdas[static_cast<std::size_t>(c)];
        switch (rol) {
        case Qt::DisplayRole:
        case Qt::EditRole:
            return m_.d->texto(celda);
        case Qt::BackgroundRole: {
            const QColor propio = m_.d->color(celda.fondo);
            if (propio.isValid())
                return propio;
            return m_.fondo_.isValid() ? QVariant(m_.fondo_) : QVariant();
        }
        case Qt::ForegroundRole: {
            const QColor propio = m_.d->color(celda.frente);
            return propio.isValid() ? QVariant(propio) : QVariant();
        }
        case Qt::FontRole: {
            if (!(celda.marcas & Datos::Negrita))
                return {};
            QFont negrita;
            negrita.setBold(true);
            return negrita;
        }
        case Qt::TextAlignmentRole:
            return QVariant::fromValue(alineacionQt(m_.CellAlignment(f, c), m_.d->texto(celda)));
        case kRolBorde:
            return bool(celda.marcas & Datos::BordeInferior);
        case kRolRelleno:
            return int(celda.relleno);
        default:
            return {};
        }
    }

    QVariant headerData(int seccion, Qt::Orientation orientacion, int rol) const override
    {
        if (orientacion == Qt::Vertical)
            return rol == Qt::DisplayRole ? QVariant(seccion + m_.d->fijas) : QVariant();
        if (m_.d->fijas == 0 || seccion >= m_.cols_ || m_.d->filas.empty())
            return {};
        if (rol == Qt::DisplayRole)
            return m_.d->texto(m_.d->filas.front().celdas[static_cast<std::size_t>(seccion)]);
        if (rol == Qt::BackgroundRole)
            return m_.fondoFijas_.isValid() ? QVariant(m_.fondoFijas_) : QVariant();
        return {};
    }

    Qt::ItemFlags flags(const QModelIndex& i) const override
    {
        if (!i.isValid())
            return Qt::NoItemFlags;
        return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable;
    }

    bool setData(const QModelIndex& i, const QVariant& valor, int rol) override
    {
        if (rol != Qt::EditRole || !i.isValid())
            return false;
        m_.setTextMatrix(i.row() + m_.d->fijas, i.column(), valor.toString());
        return true;
    }

    // Cells changed: announced now, or gathered while redraw is off.
    void celdas(int f1, int c1, int f2, int c2)
    {
        if (!m_.redibujar_) {
            m_.d->pendiente = true;
            return;
        }
        const int fijas = m_.d->fijas;
        if (f1 < fijas && fijas > 0)
            emit headerDataChanged(Qt::Horizontal, c1, c2);
        const int v1 = std::max(f1, fijas) - fijas;
        const int v2 = f2 - fijas;
        if (v1 <= v2 && c1 <= c2)
            emit dataChanged(index(v1, c1), index(v2, c2));
    }

    void pendientes()
    {
        if (!m_.d->pendiente)
            return;
        m_.d->pendiente = false;
        if (m_.d->fijas > 0 && m_.cols_ > 0)
            emit headerDataChanged(Qt::Horizontal, 0, m_.cols_ - 1);
        if (rowCount() > 0 && columnCount() > 0)
            emit dataChanged(index(0, 0), index(rowCount() - 1, columnCount() - 1));
    }

    // Rows change shape at once, redraw or not, so that the selection model
    // always has the rows the cursor is on; only their painting waits.
    void insertarFilas(int primera, int ultima, const std::function<void()>& hacer)
    {
        const int fijas = m_.d->fijas;
        if (primera < fijas) {
            reiniciar(hacer);
            return;
        }
        beginInsertRows(QModelIndex(), primera - fijas, ultima - fijas);
        hacer();
        endInsertRows();
    }

    void eliminarFilas(int primera, int ultima, const std::function<void()>& hacer)
    {
        const int fijas = m_.d->fijas;
        if (primera < fijas) {
            reiniciar(hacer);
            return;
        }
        beginRemoveRows(QModelIndex(), primera - fijas, ultima - fijas);
        hacer();
        endRemoveRows();
    }

    void reiniciar(const std::function<void()>& hacer)
    {
        beginResetModel();
        hacer();
        endResetModel();
    }

private:
    static constexpr int kRolBorde = Qt::UserRole + 1;
    static constexpr int kRolRelleno = Qt::UserRole + 2;
    ModeloRejilla& m_;
};

// ---- Construction -----------------------------------------------------------------

ModeloRejilla::ModeloRejilla(QObject* parent) : QObject(parent), d(std::make_unique<Datos>())
{
    tabla_ = new TablaCeldas(*this);
    conectar();
}

ModeloRejilla::ModeloRejilla(QAbstractItemModel* tabla, QObject* parent)
    : QObject(parent), d(std::make_unique<Datos>()), tabla_(tabla)
{
    tabla_->setParent(this);
    conectar();
}

ModeloRejilla::~ModeloRejilla()
{
    // The selection model answers the table's last signals; it goes first.
    delete std::exchange(seleccion_, nullptr);
}

void ModeloRejilla::conectar()
{
    seleccion_ = new QItemSelectionModel(tabla_, this);
    connect(seleccion_, &QItemSelectionModel::currentChanged, this, [this] { alCambiarSeleccion(); });
    connect(seleccion_, &QItemSelectionModel::selectionChanged, this, [this] { alCambiarSeleccion(); });
    // After the selection model's own handling of the same signals.
    connect(tabla_, &QAbstractItemModel::rowsInserted, this, [this] { colocarCursor(); });
    connect(tabla_, &QAbstractItemModel::rowsRemoved, this, [this] { colocarCursor(); });
    connect(tabla_, &QAbstractItemModel::modelReset, this, [this] { colocarCursor(); });
}


void ModeloRejilla::comprobarFila(int f) const
{
    if (f < 0 || f >= Rows())
        throw VbError::subscriptOutOfRange();
}

void ModeloRejilla::comprobarCol(int c) const
{
    if (c < 0 || c >= cols_)
        throw VbError::subscriptOutOfRange();
}

void ModeloRejilla::comprobarCelda(int f, int c) const
{
    comprobarFila(f);
    comprobarCol(c);
}

void ModeloRejilla::dimensionarColumnas(int n)
{
    cols_ = n;
    alineacionColumna_.resize(static_cast<std::size_t>(n), static_cast<std::uint8_t>(Alineacion::General));
    anchoColumna_.resize(static_cast<std::size_t>(n), -1);
    columnaOculta_.resize(static_cast<std::size_t>(n), 0);
}

// ---- Shape ----------------------------------------------------------------------

int ModeloRejilla::Rows() const { return d->numFilas(); }

void ModeloRejilla::setRows(int n)
{
    if (n < 0)
        throw VbError::invalidPropertyValue();
    const int antes = Rows();
    if (n == antes)
        return;
    auto* t = static_cast<TablaCeldas*>(tabla_);
    if (n > antes) {
        t->insertarFilas(antes, n - 1, [&] {
            Datos::Fila f;
            f.celdas.resize(static_cast<std::size_t>(cols_));
            d->filas.resize(static_cast<std::size_t>(n), f);
        });
    } else {
        t->eliminarFilas(n, antes - 1, [&] {
            d->filas.resize(static_cast<std::size_t>(n));
            if (n < d->fijas)
                d->fijas = n;
        });
        // Texts no cell holds any more go once the grid is back to its header.
        if (n <= d->fijas && d->textos.size() > 1024) {
            std::vector<QString> viejos = std::move(d->textos);
            d->textos.clear();
            d->indiceTextos.clear();
            for (Datos::Fila& f : d->filas)
                for (Datos::Celda& c : f.celdas)
                    if (c.texto >= 0)
                        c.texto = d->guardarTexto(viejos[static_cast<std::size_t>(c.texto)]);
        }
    }
}

void ModeloRejilla::setCols(int n)
{
    if (n < 0)
        throw VbError::invalidPropertyValue();
    if (n == cols_)
        return;
    static_cast<TablaCeldas*>(tabla_)->reiniciar([&] {
        dimensionarColumnas(n);
        for (auto& f : d->filas)
            f.celdas.resize(static_cast<std::size_t>(n));
    });
    emit formaCambiada();
}

int ModeloRejilla::FixedRows() const { return d->fijas; }

void ModeloRejilla::setFixedRows(int n)
{
    if (n < 0)
        throw VbError::invalidPropertyValue();
    if (n == d->fijas)
        return;
    static_cast<TablaCeldas*>(tabla_)->reiniciar([&] {
        // A header needs its rows: they are made as empty rows.
        Datos::Fila f;
        f.celdas.resize(static_cast<std::size_t>(cols_));
        if (Rows() < n)
            d->filas.resize(static_cast<std::size_t>(n), f);
        d->fijas = n;
    });
    emit formaCambiada();
}

void ModeloRejilla::AddItem(const QString& textoConTabuladores) { AddItem(textoConTabuladores.split(QLatin1Char('\t'))); }

void ModeloRejilla::AddItem(QStringList campos)
{
    Datos::Fila f;
    f.celdas.resize(static_cast<std::size_t>(cols_));
    const int usados = std::min<int>(static_cast<int>(campos.size()), cols_);
    for (int c = 0; c < usados; ++c)
        f.celdas[static_cast<std::size_t>(c)].texto = d->guardarTexto(campos[c]);
    const int r = Rows();
    static_cast<TablaCeldas*>(tabla_)->insertarFilas(r, r, [&] { d->filas.push_back(std::move(f)); });
}

void ModeloRejilla::RemoveItem(int fila)
{
    comprobarFila(fila);
    static_cast<TablaCeldas*>(tabla_)->eliminarFilas(fila, fila, [&] {
        d->filas.erase(d->filas.begin() + fila);
        if (fila < d->fijas)
            --d->fijas;
    });
    if (filaSuperior_ > fila)
        --filaSuperior_;
}

// ---- Cells --------------------------------------------------------------------

QString ModeloRejilla::TextMatrix(int fila, int col) const
{
    comprobarCelda(fila, col);
    return d->texto(d->filas[static_cast<std::size_t>(fila)].celdas[static_cast<std::size_t>(col)]);
}

Suma ModeloRejilla::ValorMatrix(int fila, int col, bool* desbordada) const
{
    return ValorSuma(TextMatrix(fila, col), desbordada);
}

void ModeloRejilla::setTextMatrix(int fila, int col, const QString& texto)
{
    comprobarCelda(fila, col);
    Datos::Celda& c = d->filas[static_cast<std::size_t>(fila)].celdas[static_cast<std::size_t>(col)];
    const std::int32_t nuevo = d->guardarTexto(texto);
    if (nuevo == c.texto)
        return;
    c.texto = nuevo;
    static_cast<TablaCeldas*>(tabla_)->celdas(fila, col, fila, col);
}

namespace {
template <typename Datos, typename F>
void recorrer(Datos& d, int f1, int c1, int f2, int c2, F&& hacer)
{
    for (int r = f1; r <= f2; ++r)
        for (int c = c1; c <= c2; ++c)
            hacer(d.filas[static_cast<std::size_t>(r)].celdas[static_cast<std::size_t>(c)]);
}

void ordenar(int& f1, int& c1, int& f2, int& c2)
{
    if (f1 > f2)
        std::swap(f1, f2);
    if (c1 > c2)
        std::swap(c1, c2);
}
} // namespace

QColor ModeloRejilla::CellBackColor(int fila, int col) const
{
    comprobarCelda(fila, col);
    return d->color(d->filas[static_cast<std::size_t>(fila)].celdas[static_cast<std::size_t>(col)].fondo);
}

void ModeloRejilla::setCellBackColor(int fila, int col, const QColor& color) { setCellBackColor(fila, col, fila, col, color); }

void ModeloRejilla::setCellBackColor(int fila1, int col1, int fila2, int col2, const QColor& color)
{
    ordenar(fila1, col1, fila2, col2);
    comprobarCelda(fila1, col1);
    comprobarCelda(fila2, col2);
    const std::uint8_t i = d->indiceColor(color);
    recorrer(*d, fila1, col1, fila2, col2, [&](Datos::Celda& c) { c.fondo = i; });
    static_cast<TablaCeldas*>(tabla_)->celdas(fila1, col1, fila2, col2);
}

QColor ModeloRejilla::CellForeColor(int fila, int col) const
{
    comprobarCelda(fila, col);
    return d->color(d->filas[static_cast<std::size_t>(fila)].celdas[static_cast<std::size_t>(col)].frente);
}

void ModeloRejilla::setCellForeColor(int fila, int col, const QColor& color)
{
    comprobarCelda(fila, col);
    d->filas[static_cast<std::size_t>(fila)].celdas[static_cast<std::size_t>(col)].frente = d->indiceColor(color);
    static_cast<TablaCeldas*>(tabla_)->celdas(fila, col, fila, col);
}

bool ModeloRejilla::CellFontBold(int fila, int col) const
{
    comprobarCelda(fila, col);
    return d->filas[static_cast<std::size_t>(fila)].celdas[static_cast<std::size_t>(col)].marcas & Datos::Negrita;
}

void ModeloRejilla::setCellFontBold(int fila, int col, bool negrita)
{
    comprobarCelda(fila, col);
    auto& m = d->filas[static_cast<std::size_t>(fila)].celdas[static_cast<std::size_t>(col)].marcas;
    m = negrita ? (m | Datos::Negrita) : (m & ~Datos::Negrita);
    static_cast<TablaCeldas*>(tabla_)->celdas(fila, col, fila, col);
}

bool ModeloRejilla::CellBorderBottom(int fila, int col) const
{
    comprobarCelda(fila, col);
    return d->filas[static_cast<std::size_t>(fila)].celdas[static_cast<std::size_t>(col)].marcas & Datos::BordeInferior;
}

void ModeloRejilla::setCellBorderBottom(int fila1, int col1, int fila2, int col2, bool borde)
{
    ordenar(fila1, col1, fila2, col2);
    comprobarCelda(fila1, col1);
    comprobarCelda(fila2, col2);
    recorrer(*d, fila1, col1, fila2, col2, [&](Datos::Celda& c) {
        c.marcas = borde ? (c.marcas | Datos::BordeInferior) : (c.marcas & ~Datos::BordeInferior);
    });
    static_cast<TablaCeldas*>(tabla_)->celdas(fila1, col1, fila2, col2);
}

ModeloRejilla::Alineacion ModeloRejilla::CellAlignment(int fila, int col) const
{
    comprobarCelda(fila, col);
    const std::uint8_t a = d->filas[static_cast<std::size_t>(fila)].celdas[static_cast<std::size_t>(col)].alineacion;
    return a == kAlineacionDeColumna ? ColAlignment(col) : static_cast<Alineacion>(a);
}

void ModeloRejilla::setCellAlignment(int fila1, int col1, int fila2, int col2, Alineacion a)
{
    ordenar(fila1, col1, fila2, col2);
    comprobarCelda(fila1, col1);
    comprobarCelda(fila2, col2);
    recorrer(*d, fila1, col1, fila2, col2, [&](Datos::Celda& c) { c.alineacion = static_cast<std::uint8_t>(a); });
    static_cast<TablaCeldas*>(tabla_)->celdas(fila1, col1, fila2, col2);
}

ModeloRejilla::Alineacion ModeloRejilla::ColAlignment(int col) const
{
    comprobarCol(col);
    return static_cast<Alineacion>(alineacionColumna_[static_cast<std::size_t>(col)]);
}

void ModeloRejilla::setColAlignment(int col, Alineacion a)
{
    comprobarCol(col);
    alineacionColumna_[static_cast<std::size_t>(col)] = static_cast<std::uint8_t>(a);
    emit formaCambiada();
}

int ModeloRejilla::CellFloodPercent(int fila, int col) const
{
    comprobarCelda(fila, col);
    return d->filas[static_cast<std::size_t>(fila)].celdas[static_cast<std::size_t>(col)].relleno;
}

void ModeloRejilla::setCellFloodPercent(int fila, int col, int porcentaje)
{
    comprobarCelda(fila, col);
    d->filas[static_cast<std::size_t>(fila)].celdas[static_cast<std::size_t>(col)].relleno
        = static_cast<std::uint8_t>(std::clamp(porcentaje, 0, 100));
    static_cast<TablaCeldas*>(tabla_)->celdas(fila, col, fila, col);
}

void ModeloRejilla::filasMasAnchas(int col, int fila1, int fila2, std::vector<int>& filas) const
{
    ExtremosColumna extremos;
    for (int r = fila1; r <= fila2; ++r) {
        bool desbordada = false;
        const Suma v = ValorMatrix(r, col, &desbordada);
        if (desbordada || IsSubtotal(r))
            filas.push_back(r);
        else
            extremos.anotar(r, v);
    }
    extremos.agregarA(filas);
}

// ---- Rows and columns -----------------------------------------------------------

bool ModeloRejilla::RowHidden(int fila) const
{
    comprobarFila(fila);
    return d->filas[static_cast<std::size_t>(fila)].oculta;
}

void ModeloRejilla::setRowHidden(int fila, bool oculta)
{
    comprobarFila(fila);
    if (d->filas[static_cast<std::size_t>(fila)].oculta == oculta)
        return;
    d->filas[static_cast<std::size_t>(fila)].oculta = oculta;
    emit filaOcultaCambiada(fila);
    emit formaCambiada();
}

bool ModeloRejilla::ColHidden(int col) const
{
    comprobarCol(col);
    return columnaOculta_[static_cast<std::size_t>(col)];
}

void ModeloRejilla::setColHidden(int col, bool oculta)
{
    comprobarCol(col);
    if (bool(columnaOculta_[static_cast<std::size_t>(col)]) == oculta)
        return;
    columnaOculta_[static_cast<std::size_t>(col)] = oculta;
    emit formaCambiada();
}

int ModeloRejilla::ColWidth(int col) const
{
    comprobarCol(col);
    return anchoColumna_[static_cast<std::size_t>(col)];
}

void ModeloRejilla::setColWidth(int col, int twips)
{
    comprobarCol(col);
    anchoColumna_[static_cast<std::size_t>(col)] = twips < 0 ? -1 : twips;
    emit formaCambiada();
}

void ModeloRejilla::setRowHeightMin(int twips)
{
    altoMinimo_ = std::max(0, twips);
    emit formaCambiada();
}

// ---- Grid look ----------------------------------------------------------------

void ModeloRejilla::setBackColor(const QColor& c)
{
    fondo_ = c;
    emit formaCambiada();
}

void ModeloRejilla::setBackColorBkg(const QColor& c)
{
    fondoVacio_ = c;
    emit formaCambiada();
}

void ModeloRejilla::setBackColorSel(const QColor& c)
{
    fondoSeleccion_ = c;
    emit formaCambiada();
}

void ModeloRejilla::setBackColorFixed(const QColor& c)
{
    fondoFijas_ = c;
    emit formaCambiada();
}

void ModeloRejilla::setFontSize(int puntos)
{
    puntos_ = std::max(1, puntos);
    emit formaCambiada();
}

// ---- Current cell and selection --------------------------------------------------

int ModeloRejilla::tablaFilas() const { return tabla_->rowCount(); }

QModelIndex ModeloRejilla::indiceTabla(int fila, int col) const
{
    const int v = fila - FixedRows();
    if (v < 0 || v >= tablaFilas() || col < 0 || col >= tabla_->columnCount())
        return {};
    return tabla_->index(v, col);
}

namespace {
struct Extremos {
    int fila = -1, col = -1, filaSel = -1, colSel = -1;
};

// The fixed end of the selection is the corner of the rectangle holding the
// current cell that lies opposite it.
Extremos extremos(const QItemSelectionModel& s, int fijas)
{
    const QModelIndex actual = s.currentIndex();
    if (!actual.isValid())
        return {};
    int f = actual.row(), c = actual.column();
    for (const QItemSelectionRange& r : s.selection()) {
        if (!r.contains(actual))
            continue;
        const bool esquina = (f == r.top() || f == r.bottom()) && (c == r.left() || c == r.right());
        if (esquina) {
            f = f == r.top() ? r.bottom() : r.top();
            c = c == r.left() ? r.right() : r.left();
        }
        break;
    }
    return {f + fijas, c, actual.row() + fijas, actual.column()};
}
} // namespace

int ModeloRejilla::Row() const { return extremos(*seleccion_, FixedRows()).fila; }
int ModeloRejilla::Col() const { return extremos(*seleccion_, FixedRows()).col; }
int ModeloRejilla::RowSel() const { return extremos(*seleccion_, FixedRows()).filaSel; }
int ModeloRejilla::ColSel() const { return extremos(*seleccion_, FixedRows()).colSel; }

ModeloRejilla::Rectangulo ModeloRejilla::Seleccion() const
{
    const QModelIndex actual = seleccion_->currentIndex();
    if (!actual.isValid())
        return {};
    const int fijas = FixedRows();
    for (const QItemSelectionRange& r : seleccion_->selection())
        if (r.contains(actual))
            return {r.top() + fijas, r.left(), r.bottom() + fijas, r.right()};
    return {actual.row() + fijas, actual.column(), actual.row() + fijas, actual.column()};
}

void ModeloRejilla::setRow(int fila) { Select(fila, Col()); }
void ModeloRejilla::setCol(int col) { Select(Row(), col); }
void ModeloRejilla::setRowSel(int fila) { Select(Row(), Col(), fila, ColSel()); }
void ModeloRejilla::setColSel(int col) { Select(Row(), Col(), RowSel(), col); }

void ModeloRejilla::Select(int fila, int col, int filaSel, int colSel)
{
    auto limitar = [](int v, int n) { return std::clamp(v, -1, n - 1); };
    fila = limitar(fila, Rows());
    col = limitar(col, cols_);
    filaSel = filaSel < 0 ? fila : limitar(filaSel, Rows());
    colSel = colSel < 0 ? col : limitar(colSel, cols_);
    const Extremos antes = extremos(*seleccion_, FixedRows());
    const Rectangulo rectAntes = Seleccion();
    const QModelIndex ancla = indiceTabla(fila, col);
    const QModelIndex movil = indiceTabla(filaSel, colSel);
    seleccionando_ = true;
    if (ancla.isValid() && movil.isValid()) {
        const QModelIndex arriba = tabla_->index(std::min(ancla.row(), movil.row()), std::min(ancla.column(), movil.column()));
        const QModelIndex abajo = tabla_->index(std::max(ancla.row(), movil.row()), std::max(ancla.column(), movil.column()));
        seleccion_->setCurrentIndex(movil, QItemSelectionModel::NoUpdate);
        seleccion_->select(QItemSelection(arriba, abajo), QItemSelectionModel::ClearAndSelect);
    } else {
        // A cell the table cannot show (none, or a header row): no cursor.
        seleccion_->clear();
    }
    seleccionando_ = false;
    const Extremos despues = extremos(*seleccion_, FixedRows());
    const Rectangulo rectDespues = Seleccion();
    if (despues.fila != antes.fila || despues.col != antes.col || despues.filaSel != antes.filaSel
        || despues.colSel != antes.colSel || rectDespues.fila1 != rectAntes.fila1 || rectDespues.col1 != rectAntes.col1
        || rectDespues.fila2 != rectAntes.fila2 || rectDespues.col2 != rectAntes.col2)
        emit seleccionCambiada();
}

void ModeloRejilla::alCambiarSeleccion()
{
    const QModelIndex actual = seleccion_->currentIndex();
    if (actual.isValid())
        colRecordada_ = actual.column();
    if (!seleccionando_)
        emit seleccionCambiada();
}

void ModeloRejilla::colocarCursor()
{
    // The top row stays a data row while there are any.
    const int n = Rows(), fijas = FixedRows();
    const int arriba = n > fijas ? std::clamp(filaSuperior_, fijas, n - 1) : fijas;
    if (arriba != filaSuperior_) {
        filaSuperior_ = arriba;
        emit filaSuperiorCambiada();
    }
    if (seleccion_->currentIndex().isValid() || tablaFilas() == 0 || tabla_->columnCount() == 0)
        return;
    const QModelIndex i = tabla_->index(0, std::clamp(colRecordada_, 0, tabla_->columnCount() - 1));
    seleccionando_ = true;
    seleccion_->setCurrentIndex(i, QItemSelectionModel::ClearAndSelect);
    seleccionando_ = false;
    emit seleccionCambiada();
}

void ModeloRejilla::setTopRow(int fila)
{
    const int n = Rows();
    const int fijas = FixedRows();
    const int nueva = n > fijas ? std::clamp(fila, fijas, n - 1) : fijas;
    if (nueva == filaSuperior_)
        return;
    filaSuperior_ = nueva;
    emit filaSuperiorCambiada();
}

void ModeloRejilla::setLeftCol(int col)
{
    const int nueva = cols_ > 0 ? std::clamp(col, 0, cols_ - 1) : 0;
    if (nueva == colIzquierda_)
        return;
    colIzquierda_ = nueva;
    emit filaSuperiorCambiada();
}

// ---- Redraw -----------------------------------------------------------------------

void ModeloRejilla::setRedraw(bool activo)
{
    if (activo == redibujar_)
        return;
    redibujar_ = activo;
    alCambiarRedibujo(activo);
    emit redrawCambiado(activo);
}

void ModeloRejilla::alCambiarRedibujo(bool activo)
{
    if (activo)
        static_cast<TablaCeldas*>(tabla_)->pendientes();
}

// ---- Range text -----------------------------------------------------------------

QString ModeloRejilla::Clip(int fila1, int col1, int fila2, int col2) const
{
    ordenar(fila1, col1, fila2, col2);
    // An empty grid has its cursor at -1: copying it copies nothing.
    if (fila1 == -1 || col1 == -1)
        return QString();
    comprobarCelda(fila1, col1);
    comprobarCelda(fila2, col2);
    QString texto;
    for (int r = fila1; r <= fila2; ++r) {
        if (r > fila1)
            texto += QLatin1String("\r\n");
        for (int c = col1; c <= col2; ++c) {
            if (c > col1)
                texto += QLatin1Char('\t');
            texto += TextMatrix(r, c);
        }
    }
    return texto;
}

// ---- Subtotals ------------------------------------------------------------------

void ModeloRejilla::Subtotal(int, int, const QString&, const QColor&, const QString&)
{
    throw VbError::invalidPropertyValue();
}

bool ModeloRejilla::IsSubtotal(int fila) const
{
    comprobarFila(fila);
    return false;
}

int ModeloRejilla::SubtotalGroupColumn(int fila) const
{
    comprobarFila(fila);
    return -2;
}

QString ModeloRejilla::TituloTotalGeneral() { return QStringLiteral("Total general"); }

QString ModeloRejilla::MarcaDesbordamiento() { return QStringLiteral("#¡NUM!"); }

QString ModeloRejilla::FormatearSuma(Suma suma, const QString& formato)
{
    if (!Currency::enRango(suma))
        return MarcaDesbordamiento();
    try {
        return es::formatear(Currency::fromRaw(static_cast<std::int64_t>(suma)), formato);
    } catch (const VbError&) {
        // Rounded to the format's decimals it no longer fits.
        return MarcaDesbordamiento();
    }
}

QString ModeloRejilla::FormatearSuma(Suma suma, const es::FormatoNumerico& formato)
{
    if (!Currency::enRango(suma))
        return MarcaDesbordamiento();
    return es::formatear(suma, formato);
}

Suma ModeloRejilla::ValorSuma(const QString& texto, bool* desbordada)
{
    if (desbordada)
        *desbordada = false;
    Currency v;
    // The texts the worksheet writes ("-1.234,50") need no general reading.
    if (es::leerImporteSencillo(texto, v, true))
        return v.raw();
    if (texto == MarcaDesbordamiento()) {
        if (desbordada)
            *desbordada = true;
        return 0;
    }
    try {
        if (es::intentarMoneda(texto, v))
            return v.raw();
    } catch (const VbError&) {
        // A number too large for the currency type cannot have been typed
        // into a month; it counts as nothing, like any other non-number.
    }
    return 0;
}

} // namespace presupuestos
