#include "worksheet/core/ModeloPresupuesto.h"

#include "common/VbError.h"
#include "worksheet/core/Columnas.h"

#include <algorithm>

namespace presupuestos {

using namespace hoja;

namespace {
const QColor kRojo(255, 0, 0);

quint64 claveCelda(int fila, int col) { return (static_cast<quint64>(fila) << 8) | static_cast<quint64>(col); }
} // namespace

ModeloPresupuesto::ModeloPresupuesto(QObject* parent) : QAbstractTableModel(parent)
{
    for (int c = 0; c < kColumnas; ++c)
        titulos_ << QString();
    formato_ = es::leerFormato(a_.formato);
}

void ModeloPresupuesto::setAspecto(const Aspecto& a)
{
    const bool cambio = a.decimales != a_.decimales || a.formato != a_.formato || a.manual != a_.manual || a.subtotal != a_.subtotal;
    a_ = a;
    formato_ = es::leerFormato(a_.formato);
    if (cambio && !filas_.empty())
        emit dataChanged(index(0, 0), index(filas() - 1, kColumnas - 1));
}

void ModeloPresupuesto::setFondos(const QColor& celdas, const QColor& cabecera)
{
    if (celdas == fondoCeldas_ && cabecera == fondoCabecera_)
        return;
    fondoCeldas_ = celdas;
    fondoCabecera_ = cabecera;
    if (!filas_.empty())
        emit dataChanged(index(0, 0), index(filas() - 1, kColumnas - 1), {Qt::BackgroundRole});
    emit headerDataChanged(Qt::Horizontal, 0, kColumnas - 1);
}

void ModeloPresupuesto::setTitulo(int col, const QString& texto)
{
    if (col < 0 || col >= kColumnas || titulos_[col] == texto)
        return;
    titulos_[col] = texto;
    emit headerDataChanged(Qt::Horizontal, col, col);
}

// ---- Rows -----------------------------------------------------------------------

void ModeloPresupuesto::empezarCarga(std::size_t previstas)
{
    if (!filas_.empty()) {
        beginRemoveRows(QModelIndex(), 0, filas() - 1);
        filas_.clear();
        endRemoveRows();
    }
    filas_.shrink_to_fit();
    // Room never written is never made resident: an estimate above the
    // rows read costs no memory.
    filas_.reserve(previstas);
    nombres_.resize(1);
    indiceNombres_.clear();
    grupos_.clear();
    filaSubtotal_.clear();
    general_ = Grupo{};
    granTotal_ = -1;
    totalesCreados_ = false;
    indice_.clear();
    indexado_ = false;
    tecleado_.clear();
    marcas_.clear();
    sucias_.clear();
    cargando_ = true;
}

void ModeloPresupuesto::agregar(const Entrada& e)
{
    Fila f;
    f.nombres = nombresDe(e.cuenta, e.nombre);
    f.dpto = e.dpto;
    for (int m = 0; m < 12; ++m) {
        const Suma v = e.meses[static_cast<std::size_t>(m)];
        if (Currency::enRango(v))
            f.meses[static_cast<std::size_t>(m)] = static_cast<std::int64_t>(v);
        else
            f.fuera |= static_cast<std::uint16_t>(1u << m);
    }
    f.conCalculo = e.conCalculo;
    f.metodo = e.metodo;
    f.manual = static_cast<std::uint16_t>(e.manual);
    f.valor = e.valor.raw();
    f.contada = f.fuera != 0 || terminoTotal(f).valor != 0;
    if (grupos_.empty() || grupos_.back().nombre != e.dptoNombre) {
        Grupo g;
        g.nombre = e.dptoNombre;
        g.primera = filas();
        grupos_.push_back(std::move(g));
    }
    grupos_.back().ultima = filas();
    f.grupo = static_cast<std::int32_t>(grupos_.size() - 1);
    filas_.push_back(std::move(f));
}

void ModeloPresupuesto::terminarCarga()
{
    sumarTodo();
    anunciarFilas();
}

void ModeloPresupuesto::anunciarFilas()
{
    // The rows are there already; the view counts them from the insertion on.
    cargando_ = true;
    if (!filas_.empty())
        beginInsertRows(QModelIndex(), 0, filas() - 1);
    cargando_ = false;
    if (!filas_.empty())
        endInsertRows();
}

void ModeloPresupuesto::sumarTodo()
{
    general_.suma.fill(0);
    general_.fuera.fill(0);
    for (Grupo& g : grupos_) {
        g.suma.fill(0);
        g.fuera.fill(0);
    }
    for (const Fila& f : filas_) {
        if (f.tipo != Tipo::Cuenta)
            continue;
        for (int m = 0; m < 12; ++m)
            sumar(f, m, terminoMes(f, m), 1);
        sumar(f, 12, terminoTotal(f), 1);
    }
}

void ModeloPresupuesto::crearTotales(bool granTotal)
{
    if (totalesCreados_)
        return;
    std::vector<Fila> nuevas;
    nuevas.reserve(filas_.size() + grupos_.size() + 1);
    if (granTotal && !grupos_.empty()) {
        Fila t;
        t.tipo = Tipo::TotalGeneral;
        nuevas.push_back(std::move(t));
    }
    filaSubtotal_.assign(grupos_.size(), -1);
    for (std::size_t g = 0; g < grupos_.size(); ++g) {
        for (int r = grupos_[g].primera; r <= grupos_[g].ultima; ++r)
            nuevas.push_back(std::move(filas_[static_cast<std::size_t>(r)]));
        Fila s;
        s.tipo = Tipo::Subtotal;
        s.grupo = static_cast<std::int32_t>(g);
        filaSubtotal_[g] = static_cast<int>(nuevas.size());
        nuevas.push_back(std::move(s));
    }
    // The rows move: the view and the selection hear them go and come back.
    if (!filas_.empty()) {
        beginRemoveRows(QModelIndex(), 0, filas() - 1);
        filas_.clear();
        endRemoveRows();
    }
    filas_ = std::move(nuevas);
    granTotal_ = granTotal && !grupos_.empty() ? 0 : -1;
    totalesCreados_ = true;
    indexado_ = false;
    tecleado_.clear();
    marcas_.clear();
    anunciarFilas();
}

std::uint32_t ModeloPresupuesto::nombresDe(const QString& cuenta, const QString& nombre)
{
    // An account comes once per department, always with its name.
    const auto it = indiceNombres_.constFind(cuenta);
    if (it != indiceNombres_.cend() && nombres_[it.value()].second == nombre)
        return it.value();
    const auto i = static_cast<std::uint32_t>(nombres_.size());
    nombres_.emplace_back(cuenta, nombre);
    indiceNombres_.insert(cuenta, i);
    return i;
}

int ModeloPresupuesto::fila(const QString& cuenta, qint16 dpto) const
{
    if (!indexado_) {
        indice_.clear();
        indice_.reserve(filas());
        for (int r = 0; r < filas(); ++r)
            if (filas_[static_cast<std::size_t>(r)].tipo == Tipo::Cuenta)
                indice_.insert({this->cuenta(r), filas_[static_cast<std::size_t>(r)].dpto}, r);
        indexado_ = true;
    }
    return indice_.value({cuenta, dpto}, -1);
}

ModeloPresupuesto::Entrada ModeloPresupuesto::entrada(int fila) const
{
    const Fila& f = filas_[static_cast<std::size_t>(fila)];
    Entrada e;
    e.dpto = f.dpto;
    e.dptoNombre = dptoNombre(fila);
    e.cuenta = cuenta(fila);
    e.nombre = nombre(fila);
    for (std::size_t m = 0; m < 12; ++m)
        e.meses[m] = (f.fuera & (1u << m)) != 0 ? kSumaFueraDeRango : f.meses[m];
    e.conCalculo = f.conCalculo;
    e.metodo = f.metodo;
    e.manual = static_cast<qint16>(f.manual);
    e.valor = Currency::fromRaw(f.valor);
    return e;
}

const QString& ModeloPresupuesto::dptoNombre(int fila) const
{
    static const QString kGeneral = ModeloRejilla::TituloTotalGeneral();
    const Fila& f = filas_[static_cast<std::size_t>(fila)];
    return f.grupo < 0 ? kGeneral : grupos_[static_cast<std::size_t>(f.grupo)].nombre;
}

// ---- Values -------------------------------------------------------------------------

ModeloPresupuesto::Termino ModeloPresupuesto::terminoMes(const Fila& f, int m) const
{
    if (f.fuera & (1u << m))
        return {0, 1};
    return {f.meses[static_cast<std::size_t>(m)], 0};
}

ModeloPresupuesto::Termino ModeloPresupuesto::terminoTotal(const Fila& f) const
{
    if (f.fuera)
        return {0, 1};
    Suma total = 0;
    for (std::int64_t v : f.meses)
        total += v;
    if (!Currency::enRango(total))
        return {0, 1};
    return {total, 0};
}

void ModeloPresupuesto::sumar(const Fila& f, int m, const Termino& t, int signo)
{
    ++sumados_;
    if (f.grupo >= 0) {
        Grupo& g = grupos_[static_cast<std::size_t>(f.grupo)];
        g.suma[static_cast<std::size_t>(m)] += signo * t.valor;
        g.fuera[static_cast<std::size_t>(m)] += signo * t.fuera;
    }
    general_.suma[static_cast<std::size_t>(m)] += signo * t.valor;
    general_.fuera[static_cast<std::size_t>(m)] += signo * t.fuera;
}

Suma ModeloPresupuesto::mes(int fila, int mes, bool* fuera) const
{
    return valor(fila, mes, fuera);
}

Suma ModeloPresupuesto::sumaMeses(int fila) const
{
    const Fila& f = filas_[static_cast<std::size_t>(fila)];
    Suma suma = 0;
    if (f.tipo != Tipo::Cuenta) {
        for (int m = 1; m <= 12; ++m)
            suma += static_cast<std::int64_t>(valor(fila, m));
        return suma;
    }
    for (int m = 0; m < 12; ++m)
        if (!(f.fuera & (1u << m)))
            suma += f.meses[static_cast<std::size_t>(m)];
    return suma;
}

void ModeloPresupuesto::anotarExtremos(int mes, int desde, int hasta, ExtremosColumna& extremos, std::vector<int>& filas) const
{
    const int m = mes - 1;
    for (int fila = desde; fila <= hasta; ++fila) {
        const Fila& f = filas_[static_cast<std::size_t>(fila)];
        if (f.tipo != Tipo::Cuenta) {
            filas.push_back(fila + 1);
            continue;
        }
        const Termino t = m < 12 ? terminoMes(f, m) : terminoTotal(f);
        if (t.fuera > 0 || !Currency::enRango(t.valor))
            filas.push_back(fila + 1);
        else
            extremos.anotar(fila + 1, t.valor);
    }
}

Suma ModeloPresupuesto::valor(int fila, int mes, bool* fuera) const
{
    const Fila& f = filas_[static_cast<std::size_t>(fila)];
    const int m = mes - 1;
    Termino t;
    switch (f.tipo) {
    case Tipo::Cuenta:
        t = m < 12 ? terminoMes(f, m) : terminoTotal(f);
        break;
    case Tipo::Subtotal: {
        const Grupo& g = grupos_[static_cast<std::size_t>(f.grupo)];
        t = {g.suma[static_cast<std::size_t>(m)], g.fuera[static_cast<std::size_t>(m)]};
        break;
    }
    case Tipo::TotalGeneral:
        t = {general_.suma[static_cast<std::size_t>(m)], general_.fuera[static_cast<std::size_t>(m)]};
        break;
    }
    const bool mal = t.fuera > 0 || !Currency::enRango(t.valor);
    if (fuera)
        *fuera = mal;
    return mal ? 0 : t.valor;
}

std::optional<ModeloPresupuesto::SumaGrupo> ModeloPresupuesto::sumaGrupo(int fila, int mes, bool general) const
{
    if (!esCuenta(fila))
        return std::nullopt;
    const std::size_t m = static_cast<std::size_t>(mes - 1);
    if (general) {
        if (granTotal_ < 0)
            return std::nullopt;
        return SumaGrupo{general_.suma[m], general_.fuera[m]};
    }
    const Grupo& g = grupos_[static_cast<std::size_t>(filas_[static_cast<std::size_t>(fila)].grupo)];
    return SumaGrupo{g.suma[m], g.fuera[m]};
}

// ---- Changes ---------------------------------------------------------------------------

void ModeloPresupuesto::ponerMes(int fila, int mes, Currency v)
{
    if (!esCuenta(fila) || mes < 1 || mes > 12)
        throw VbError::subscriptOutOfRange();
    Fila& f = filas_[static_cast<std::size_t>(fila)];
    const int m = mes - 1;
    tecleado_.remove(claveCelda(fila, colMes(mes)));
    const std::uint16_t bit = static_cast<std::uint16_t>(1u << m);
    if (!(f.fuera & bit) && f.meses[static_cast<std::size_t>(m)] == v.raw())
        return;
    sumar(f, m, terminoMes(f, m), -1);
    sumar(f, 12, terminoTotal(f), -1);
    f.meses[static_cast<std::size_t>(m)] = v.raw();
    f.fuera &= static_cast<std::uint16_t>(~bit);
    sumar(f, m, terminoMes(f, m), 1);
    sumar(f, 12, terminoTotal(f), 1);
    // The month and the row's total, and the same two of its total rows.
    for (int col : {colMes(mes), static_cast<int>(kTotal)}) {
        cambiado(fila, col, col);
        cambiadosDelGrupo(f, col, col);
    }
}

void ModeloPresupuesto::ponerMascara(int fila, int mascara)
{
    if (!esCuenta(fila))
        throw VbError::subscriptOutOfRange();
    Fila& f = filas_[static_cast<std::size_t>(fila)];
    f.manual = static_cast<std::uint16_t>(mascara);
    f.conCalculo = true;
    // The months' colours and the mask's hidden column, or the whole row
    // when colours given to its cells went with the change.
    if (quitarMarcas(fila)) {
        cambiado(fila);
    } else {
        cambiado(fila, kPrimerMes, kUltimoMes, {Qt::BackgroundRole});
        cambiado(fila, kManual, kManual);
    }
}

bool ModeloPresupuesto::quitarMarcas(int fila)
{
    // The row shows what is stored: the colours given to its cells go.
    bool alguna = false;
    if (marcas_.isEmpty())
        return alguna;
    for (int c = 0; c < kColumnas; ++c)
        alguna = marcas_.remove(claveCelda(fila, c)) || alguna;
    return alguna;
}

void ModeloPresupuesto::ponerFila(int fila, const std::array<Currency, 12>& meses, qint32 metodo, int mascara, Currency valor)
{
    // One announcement for the row and its groups, not one per month.
    const bool antes = std::exchange(retenidos_, true);
    const std::size_t sucias = sucias_.size();
    for (int m = 1; m <= 12; ++m)
        ponerMes(fila, m, meses[static_cast<std::size_t>(m - 1)]);
    retenidos_ = antes;
    if (!antes)
        sucias_.resize(sucias);
    Fila& f = filas_[static_cast<std::size_t>(fila)];
    f.metodo = metodo;
    f.manual = static_cast<std::uint16_t>(mascara);
    f.valor = valor.raw();
    f.conCalculo = true;
    quitarMarcas(fila);
    cambiado(fila);
    cambiadosDelGrupo(f);
}

void ModeloPresupuesto::ponerTexto(int fila, int col, const QString& texto)
{
    if (fila < 0 || fila >= filas() || col < 0 || col >= kColumnas)
        throw VbError::subscriptOutOfRange();
    Fila& f = filas_[static_cast<std::size_t>(fila)];
    if (f.tipo != Tipo::Cuenta) {
        // Subtotal rows show their sums and captions; what is written there is
        // what they show already.
        return;
    }
    if (esMes(col)) {
        Currency v;
        bool numero = false;
        try {
            numero = es::intentarMoneda(texto, v);
        } catch (const VbError&) {
            // Too large for an amount: it counts as nothing, as any other non-number.
        }
        ponerMes(fila, col - kPrimerMes + 1, numero ? v : Currency());
        if (texto != es::formatear(static_cast<Suma>(f.meses[static_cast<std::size_t>(col - kPrimerMes)]), formato_)) {
            tecleado_.insert(claveCelda(fila, col), texto);
            cambiado(fila);
        }
        return;
    }
    switch (col) {
    case kDpto:
        f.dpto = static_cast<qint16>(es::valEntero(texto));
        indexado_ = false;
        break;
    case kCuenta:
        f.nombres = nombresDe(texto, nombre(fila));
        indexado_ = false;
        break;
    case kNombre:
        f.nombres = nombresDe(cuenta(fila), texto);
        break;
    case kMetodo:
        f.metodo = es::valEntero(texto);
        f.conCalculo = true;
        break;
    case kManual:
        f.manual = static_cast<std::uint16_t>(es::valEntero(texto));
        f.conCalculo = true;
        break;
    case kValor: {
        Currency v;
        f.valor = es::intentarMoneda(texto, v) ? v.raw() : 0;
        f.conCalculo = true;
        break;
    }
    default:
        // The department's name and the total follow from the rows.
        return;
    }
    cambiado(fila);
}

void ModeloPresupuesto::marcar(int fila, int col, const QColor& color)
{
    if (fila < 0 || fila >= filas() || col < 0 || col >= kColumnas)
        throw VbError::subscriptOutOfRange();
    if (color.isValid())
        marcas_.insert(claveCelda(fila, col), color.rgba());
    else
        marcas_.remove(claveCelda(fila, col));
    cambiado(fila);
}

QColor ModeloPresupuesto::marca(int fila, int col) const
{
    const auto it = marcas_.constFind(claveCelda(fila, col));
    return it == marcas_.cend() ? QColor() : QColor::fromRgba(it.value());
}

void ModeloPresupuesto::quitarMarcas()
{
    const QList<quint64> claves = marcas_.keys();
    marcas_.clear();
    for (quint64 k : claves)
        if (static_cast<int>(k >> 8) < filas())
            cambiado(static_cast<int>(k >> 8));
}

void ModeloPresupuesto::cambiado(int fila, int c1, int c2, const QList<int>& roles)
{
    if (retenidos_) {
        // A cell changes its row, its subtotal and the grand total in turn:
        // a row among the last few noted is not noted again.
        const std::size_t n = sucias_.size();
        for (std::size_t i = n; i > 0 && i + 4 > n; --i)
            if (sucias_[i - 1] == fila)
                return;
        sucias_.push_back(fila);
        return;
    }
    emit dataChanged(index(fila, c1), index(fila, c2 < 0 ? kColumnas - 1 : c2), roles);
}

void ModeloPresupuesto::cambiadosDelGrupo(const Fila& f, int c1, int c2)
{
    if (!totalesCreados_)
        return;
    if (f.grupo >= 0 && static_cast<std::size_t>(f.grupo) < filaSubtotal_.size())
        cambiado(filaSubtotal_[static_cast<std::size_t>(f.grupo)], c1, c2);
    if (granTotal_ >= 0)
        cambiado(granTotal_, c1, c2);
}

void ModeloPresupuesto::retenerAvisos(bool retener)
{
    if (retener == retenidos_)
        return;
    retenidos_ = retener;
    if (retener)
        return;
    std::sort(sucias_.begin(), sucias_.end());
    sucias_.erase(std::unique(sucias_.begin(), sucias_.end()), sucias_.end());
    std::vector<int> sucias = std::move(sucias_);
    sucias_.clear();
    for (std::size_t i = 0; i < sucias.size();) {
        std::size_t j = i;
        while (j + 1 < sucias.size() && sucias[j + 1] == sucias[j] + 1)
            ++j;
        if (sucias[j] < filas())
            emit dataChanged(index(sucias[i], 0), index(sucias[j], kColumnas - 1));
        i = j + 1;
    }
}

// ---- For the view ------------------------------------------------------------------------

QString ModeloPresupuesto::textoSuma(Suma suma, int fuera) const
{
    if (fuera > 0 || !Currency::enRango(suma))
        return ModeloRejilla::MarcaDesbordamiento();
    return es::formatear(suma, formato_);
}

QString ModeloPresupuesto::texto(int fila, int col) const
{
    const Fila& f = filas_[static_cast<std::size_t>(fila)];
    if (!tecleado_.isEmpty()) {
        const auto it = tecleado_.constFind(claveCelda(fila, col));
        if (it != tecleado_.cend())
            return it.value();
    }
    if (col >= kPrimerMes && col <= kTotal) {
        const int m = col - kPrimerMes;
        Termino t;
        switch (f.tipo) {
        case Tipo::Cuenta:
            t = m < 12 ? terminoMes(f, m) : terminoTotal(f);
            break;
        case Tipo::Subtotal:
            t = {grupos_[static_cast<std::size_t>(f.grupo)].suma[static_cast<std::size_t>(m)],
                 grupos_[static_cast<std::size_t>(f.grupo)].fuera[static_cast<std::size_t>(m)]};
            break;
        case Tipo::TotalGeneral:
            t = {general_.suma[static_cast<std::size_t>(m)], general_.fuera[static_cast<std::size_t>(m)]};
            break;
        }
        return textoSuma(t.valor, t.fuera);
    }
    if (f.tipo != Tipo::Cuenta)
        return col == kDptoNombre || col == kNombre ? dptoNombre(fila) : QString();
    switch (col) {
    case kDpto: return QString::number(f.dpto);
    case kDptoNombre: return dptoNombre(fila);
    case kCuenta: return cuenta(fila);
    case kNombre: return nombre(fila);
    case kMetodo: return f.conCalculo ? QString::number(f.metodo) : QString();
    case kManual: return f.conCalculo ? QString::number(f.manual) : QString();
    case kValor: return f.conCalculo ? Currency::fromRaw(f.valor).toPlainText() : QString();
    default: return QString();
    }
}

QColor ModeloPresupuesto::fondo(int fila, int col) const
{
    if (!marcas_.isEmpty()) {
        const QColor propio = marca(fila, col);
        if (propio.isValid())
            return propio;
    }
    return fondoPropio(fila, col);
}

QColor ModeloPresupuesto::fondoPropio(int fila, int col) const
{
    const Fila& f = filas_[static_cast<std::size_t>(fila)];
    switch (f.tipo) {
    case Tipo::Subtotal:
        return a_.subtotal;
    case Tipo::TotalGeneral:
        return col == kTotal ? a_.subtotal : QColor();
    case Tipo::Cuenta:
        break;
    }
    // A month not typed by hand has the grid's colour, after a load as
    // after any change, so that every way to a row shows it alike.
    if (esMes(col))
        return f.manual & (1u << (col - kPrimerMes)) ? a_.manual : QColor();
    return col == kTotal && totalesCreados_ ? a_.subtotal : QColor();
}

QColor ModeloPresupuesto::frente(int fila, int col) const
{
    if (col < kPrimerMes)
        return {};
    if (!tecleado_.isEmpty()) {
        const auto it = tecleado_.constFind(claveCelda(fila, col));
        if (it != tecleado_.cend())
            return ModeloRejilla::ValorSuma(it.value()) < 0 ? kRojo : QColor();
    }
    if (col <= kTotal) {
        bool fuera = false;
        const Suma v = valor(fila, col - kPrimerMes + 1, &fuera);
        return !fuera && v < 0 ? kRojo : QColor();
    }
    const Fila& f = filas_[static_cast<std::size_t>(fila)];
    return col == kValor && f.tipo == Tipo::Cuenta && f.conCalculo && f.valor < 0 ? kRojo : QColor();
}

int ModeloPresupuesto::rowCount(const QModelIndex& padre) const { return padre.isValid() || cargando_ ? 0 : filas(); }

int ModeloPresupuesto::columnCount(const QModelIndex& padre) const { return padre.isValid() ? 0 : kColumnas; }

QVariant ModeloPresupuesto::data(const QModelIndex& i, int rol) const
{
    if (!i.isValid() || i.row() >= filas())
        return {};
    const int fila = i.row(), col = i.column();
    switch (rol) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return texto(fila, col);
    case Qt::BackgroundRole: {
        const QColor c = fondo(fila, col);
        if (c.isValid())
            return c;
        return fondoCeldas_.isValid() ? QVariant(fondoCeldas_) : QVariant();
    }
    case Qt::ForegroundRole: {
        const QColor c = frente(fila, col);
        return c.isValid() ? QVariant(c) : QVariant();
    }
    case Qt::TextAlignmentRole:
        if (col >= kPrimerMes && col <= kTotal)
            return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
        return QVariant::fromValue((es::esNumerico(texto(fila, col)) ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter);
    default:
        return {};
    }
}

QVariant ModeloPresupuesto::headerData(int seccion, Qt::Orientation orientacion, int rol) const
{
    if (orientacion == Qt::Vertical)
        return rol == Qt::DisplayRole ? QVariant(seccion + 1) : QVariant();
    if (seccion < 0 || seccion >= kColumnas)
        return {};
    if (rol == Qt::DisplayRole)
        return titulos_[seccion];
    if (rol == Qt::BackgroundRole)
        return fondoCabecera_.isValid() ? QVariant(fondoCabecera_) : QVariant();
    return {};
}

Qt::ItemFlags ModeloPresupuesto::flags(const QModelIndex& i) const
{
    if (!i.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable;
}

bool ModeloPresupuesto::setData(const QModelIndex& i, const QVariant& valor, int rol)
{
    if (rol != Qt::EditRole || !i.isValid() || i.row() >= filas())
        return false;
    ponerTexto(i.row(), i.column(), valor.toString());
    return true;
}

} // namespace presupuestos
