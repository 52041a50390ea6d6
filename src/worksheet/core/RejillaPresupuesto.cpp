#include "worksheet/core/RejillaPresupuesto.h"

#include "common/NumerosEs.h"
#include "common/VbError.h"
#include "db/Conexion.h"

#include <algorithm>

namespace presupuestos {

using namespace hoja;

namespace {
// A stored month as the grid shows it: rounded to the decimals shown, halves
// to even, as an exact sum, since the currency's limits round beyond its
// range at 0 decimals. A month no currency can hold (written by another
// program) reads as out of range: no stored amount may stop a load.
Suma mostrado(const Recordset& rs, int i, int decimales)
{
    std::int64_t raw;
    try {
        raw = rs.moneda(i).raw();
    } catch (const VbError& e) {
        if (e.number() != VbError::Overflow)
            throw;
        return kSumaFueraDeRango;
    }
    if (decimales >= 4)
        return raw;
    std::int64_t paso = 1;
    for (int k = std::max(decimales, 0); k < 4; ++k)
        paso *= 10;
    // In 64 bits: loads round every month they show.
    std::int64_t q = raw / paso;
    const std::int64_t resto = raw % paso;
    const std::int64_t doble = (resto < 0 ? -resto : resto) * 2;
    if (doble > paso || (doble == paso && q % 2 != 0))
        q += raw < 0 ? -1 : 1;
    return static_cast<Suma>(q) * paso;
}
} // namespace

QString Completado::texto() const
{
    if (filas < 1)
        return QString();
    return es::formatear(static_cast<double>(conValores) / filas, QStringLiteral("0%"));
}

RejillaPresupuesto::RejillaPresupuesto(QObject* parent)
    : ModeloRejilla(new ModeloPresupuesto, parent), datos_(static_cast<ModeloPresupuesto&>(tabla()))
{
    dimensionarColumnas(kColumnas);
    datos_.setFondos(BackColor(), BackColorFixed());
    connect(this, &ModeloRejilla::formaCambiada, this, [this] { datos_.setFondos(BackColor(), BackColorFixed()); });
}

void RejillaPresupuesto::setAspecto(const Aspecto& a)
{
    a_ = a;
    ModeloPresupuesto::Aspecto d;
    d.decimales = a.decimales;
    d.formato = a.formato;
    d.manual = a.manual;
    d.subtotal = a.subtotal;
    datos_.setAspecto(d);
}

Completado RejillaPresupuesto::llenar(Recordset& rs, bool conDatosCalculo, std::size_t previstas)
{
    auto indice = [&rs](const QString& nombre) {
        const int i = rs.indiceCampo(nombre);
        if (i < 0 && !rs.eof())
            throw VbError::itemNotFound();
        return i;
    };
    datos_.empezarCarga(previstas);
    Completado c;
    try {
        const int iDpto = indice(QStringLiteral("Dpto")), iDptoNombre = indice(QStringLiteral("Dpto_Nombre"));
        const int iCuenta = indice(QStringLiteral("Cuenta")), iNombre = indice(QStringLiteral("Nombre"));
        int iMes[12];
        for (int mes = 1; mes <= 12; ++mes)
            iMes[mes - 1] = indice(QStringLiteral("M%1").arg(mes));
        int iMetodo = -1, iManual = -1, iValor = -1;
        if (conDatosCalculo) {
            iMetodo = indice(QStringLiteral("Metodo_Calculo"));
            iManual = indice(QStringLiteral("Modificacion_Manual"));
            iValor = indice(QStringLiteral("Valor"));
        }
        ModeloPresupuesto::Entrada e;
        // Departments list mostly the same accounts in the same order: the
        // department before's account and name are tried first, and their
        // strings taken when the row holds the same texts.
        std::vector<std::pair<QString, QString>> anterior, actual;
        std::size_t k = 0;
        bool primera = true;
        while (!rs.eof()) {
            const qint16 dpto = static_cast<qint16>(rs.moneda(iDpto).toInt32());
            if (primera || dpto != e.dpto) {
                anterior.swap(actual);
                actual.clear();
                k = 0;
                primera = false;
            }
            e.dpto = dpto;
            // A department's rows come together: its name is read once.
            e.dptoNombre = rs.texto(iDptoNombre, e.dptoNombre);
            e.cuenta = rs.texto(iCuenta, k < anterior.size() ? anterior[k].first : QString());
            if (k >= anterior.size() || e.cuenta.constData() != anterior[k].first.constData()) {
                // An account the department before had and this one lacks is stepped over.
                while (k < anterior.size() && anterior[k].first < e.cuenta)
                    ++k;
                if (k < anterior.size() && anterior[k].first == e.cuenta)
                    e.cuenta = anterior[k].first;
            }
            const bool comun = k < anterior.size() && e.cuenta.constData() == anterior[k].first.constData();
            e.nombre = comun ? rs.texto(iNombre, anterior[k].second) : rs.texto(iNombre);
            if (comun)
                ++k;
            actual.emplace_back(e.cuenta, e.nombre);
            // A year that no amount can represent shows as such: one row
            // stored out of range must not keep the worksheet from opening.
            Suma total = 0;
            for (int mes = 1; mes <= 12; ++mes) {
                const Suma importe = mostrado(rs, iMes[mes - 1], a_.decimales);
                total += importe;
                e.meses[static_cast<std::size_t>(mes - 1)] = importe;
            }
            e.conCalculo = conDatosCalculo;
            if (conDatosCalculo) {
                e.manual = rs.moneda(iManual).toInt16();
                e.metodo = rs.moneda(iMetodo).toInt32();
                e.valor = rs.moneda(iValor);
            }
            datos_.agregar(e);
            ++c.filas;
            if (total != 0)
                ++c.conValores;
            rs.MoveNext();
        }
    } catch (...) {
        // A failed query leaves the grid with the rows added so far.
        datos_.terminarCarga();
        throw;
    }
    datos_.terminarCarga();
    return c;
}

bool RejillaPresupuesto::alinearCon(const RejillaPresupuesto& guia)
{
    const ModeloPresupuesto& g = guia.datos();
    std::vector<ModeloPresupuesto::Entrada> entradas;
    entradas.reserve(static_cast<std::size_t>(g.filas()));
    bool completa = true;
    bool igual = true;
    int propia = 0;   // the account rows of this grid, in order
    for (int f = 0; f < g.filas(); ++f) {
        if (!g.esCuenta(f))
            continue;
        const int r = datos_.fila(g.cuenta(f), g.dpto(f));
        while (propia < datos_.filas() && !datos_.esCuenta(propia))
            ++propia;
        igual = igual && r == propia;
        ++propia;
        if (r >= 0) {
            entradas.push_back(datos_.entrada(r));
            continue;
        }
        completa = false;
        ModeloPresupuesto::Entrada e = g.entrada(f);
        e.meses.fill(0);
        e.conCalculo = false;
        e.metodo = 0;
        e.manual = 0;
        e.valor = Currency();
        entradas.push_back(std::move(e));
    }
    while (propia < datos_.filas() && !datos_.esCuenta(propia))
        ++propia;
    // Already line for line: nothing to move.
    if (igual && propia == datos_.filas())
        return completa;
    datos_.empezarCarga();
    for (const ModeloPresupuesto::Entrada& e : entradas)
        datos_.agregar(e);
    datos_.terminarCarga();
    return completa;
}

void RejillaPresupuesto::crearTotales()
{
    if (datos_.totalesCreados())
        return;
    const int fila = Row(), col = Col();
    const bool enCuenta = fila >= 1 && esCuenta(fila);
    // An account row moves down by the subtotal rows placed above it.
    const int delante = enCuenta ? datos_.grupo(fila - 1) : 0;
    datos_.crearTotales(a_.dptos > 1);
    if (enCuenta)
        Select(fila + delante + (datos_.conGranTotal() ? 1 : 0), col);
}

int RejillaPresupuesto::recalcularFilas(int desde, int hasta, int, int)
{
    int conValores = 0;
    for (int r = std::max(desde, 1); r <= hasta && r < Rows(); ++r) {
        if (!esCuenta(r))
            continue;
        bool fuera = false;
        const bool ahora = datos_.valor(r - 1, 13, &fuera) != 0 || fuera;
        const bool antes = datos_.contada(r - 1);
        conValores += (ahora ? 1 : 0) - (antes ? 1 : 0);
        datos_.contar(r - 1, ahora);
    }
    return conValores;
}

Currency RejillaPresupuesto::mes(int fila, int mes) const
{
    return Currency::fromRaw(static_cast<std::int64_t>(datos_.mes(fila - 1, mes)));
}

Suma RejillaPresupuesto::sumaMeses(int fila) const { return datos_.sumaMeses(fila - 1); }

Suma RejillaPresupuesto::total(int fila, bool* desbordado) const { return datos_.valor(fila - 1, 13, desbordado); }

int RejillaPresupuesto::mostrar(int fila, const Valores& v)
{
    std::array<Currency, 12> meses;
    for (std::size_t i = 0; i < 12; ++i)
        meses[i] = v.meses[i].rounded(a_.decimales);
    datos_.ponerFila(fila - 1, meses, v.metodo, v.manual, v.valor);
    return recalcularFilas(fila, fila, kPrimerMes, kUltimoMes);
}

int RejillaPresupuesto::ponerMes(int fila, int mes, Currency valor)
{
    datos_.ponerMes(fila - 1, mes, valor);
    return recalcularFilas(fila, fila, colMes(mes), colMes(mes));
}

bool RejillaPresupuesto::editable(int fila, int col, bool verPresupuestables) const
{
    return verPresupuestables && esMes(col) && !IsSubtotal(fila);
}

int RejillaPresupuesto::filaSiguiente(int fila) const
{
    if (fila >= Rows() - 1)
        return fila;
    int r = fila + 1;
    while (r < Rows() - 1 && IsSubtotal(r))
        ++r;
    return r;
}

int RejillaPresupuesto::primeraFilaSeccion(int fila) const
{
    int r = fila;
    while (r >= 2 && !IsSubtotal(r))
        --r;
    return r + 1;
}

int RejillaPresupuesto::ultimaFilaSeccion(int fila) const
{
    int r = fila;
    while (r <= Rows() - 1 && !IsSubtotal(r))
        ++r;
    return r - 1;
}

int RejillaPresupuesto::fila(const QString& cuenta, int dpto) const
{
    const int r = datos_.fila(cuenta, static_cast<qint16>(dpto));
    return r < 0 ? -1 : r + 1;
}

// ---- The grid operations ----------------------------------------------------------

void RejillaPresupuesto::setRows(int n)
{
    if (n == Rows())
        return;
    if (n != 1)
        throw VbError::invalidPropertyValue();
    datos_.empezarCarga();
    datos_.terminarCarga();
}

void RejillaPresupuesto::setCols(int n)
{
    if (n != kColumnas)
        throw VbError::invalidPropertyValue();
}

void RejillaPresupuesto::setFixedRows(int n)
{
    if (n != 1)
        throw VbError::invalidPropertyValue();
}

void RejillaPresupuesto::AddItem(QStringList) { throw VbError::invalidPropertyValue(); }

void RejillaPresupuesto::RemoveItem(int) { throw VbError::invalidPropertyValue(); }

QString RejillaPresupuesto::TextMatrix(int fila, int col) const
{
    comprobarCelda(fila, col);
    return fila == 0 ? datos_.titulo(col) : datos_.texto(fila - 1, col);
}

Suma RejillaPresupuesto::ValorMatrix(int fila, int col, bool* desbordada) const
{
    comprobarCelda(fila, col);
    if (fila > 0 && col >= kPrimerMes && col <= kTotal)
        return datos_.valor(fila - 1, col - kPrimerMes + 1, desbordada);
    return ValorSuma(TextMatrix(fila, col), desbordada);
}

void RejillaPresupuesto::setTextMatrix(int fila, int col, const QString& texto)
{
    comprobarCelda(fila, col);
    if (fila == 0)
        datos_.setTitulo(col, texto);
    else
        datos_.ponerTexto(fila - 1, col, texto);
}

QColor RejillaPresupuesto::CellBackColor(int fila, int col) const
{
    comprobarCelda(fila, col);
    return fila == 0 ? QColor() : datos_.fondo(fila - 1, col);
}

void RejillaPresupuesto::setCellBackColor(int fila1, int col1, int fila2, int col2, const QColor& color)
{
    if (fila1 > fila2)
        std::swap(fila1, fila2);
    if (col1 > col2)
        std::swap(col1, col2);
    comprobarCelda(fila1, col1);
    comprobarCelda(fila2, col2);
    // The colours of the rows follow from their values; another colour is a mark.
    for (int r = std::max(fila1, 1); r <= fila2; ++r)
        for (int c = col1; c <= col2; ++c)
            datos_.marcar(r - 1, c, color == datos_.fondoPropio(r - 1, c) ? QColor() : color);
}

QColor RejillaPresupuesto::CellForeColor(int fila, int col) const
{
    comprobarCelda(fila, col);
    return fila == 0 ? QColor() : datos_.frente(fila - 1, col);
}

// Red follows the sign of the value.
void RejillaPresupuesto::setCellForeColor(int fila, int col, const QColor&) { comprobarCelda(fila, col); }

bool RejillaPresupuesto::CellFontBold(int fila, int col) const
{
    comprobarCelda(fila, col);
    return false;
}

void RejillaPresupuesto::setCellFontBold(int fila, int col, bool) { comprobarCelda(fila, col); }

bool RejillaPresupuesto::CellBorderBottom(int fila, int col) const
{
    comprobarCelda(fila, col);
    return false;
}

void RejillaPresupuesto::setCellBorderBottom(int, int, int, int, bool) {}

ModeloRejilla::Alineacion RejillaPresupuesto::CellAlignment(int fila, int col) const
{
    comprobarCelda(fila, col);
    return col >= kPrimerMes && col <= kTotal ? Alineacion::Derecha : Alineacion::General;
}

void RejillaPresupuesto::setCellAlignment(int, int, int, int, Alineacion) {}

int RejillaPresupuesto::CellFloodPercent(int fila, int col) const
{
    comprobarCelda(fila, col);
    return 0;
}

void RejillaPresupuesto::setCellFloodPercent(int fila, int col, int) { comprobarCelda(fila, col); }

void RejillaPresupuesto::filasMasAnchas(int col, int fila1, int fila2, std::vector<int>& filas) const
{
    if (col < kPrimerMes || col > kTotal) {
        ModeloRejilla::filasMasAnchas(col, fila1, fila2, filas);
        return;
    }
    // Read from the typed rows: a reload measures tens of thousands of them.
    const int mes = col - kPrimerMes + 1;
    ExtremosColumna extremos;
    const int desde = std::max(fila1, 1), hasta = std::min(fila2, Rows() - 1);
    if (desde <= hasta)
        datos_.anotarExtremos(mes, desde - 1, hasta - 1, extremos, filas);
    extremos.agregarA(filas);
}

bool RejillaPresupuesto::RowHidden(int fila) const
{
    comprobarFila(fila);
    return false;
}

// The budget grids show every row their filters give.
void RejillaPresupuesto::setRowHidden(int fila, bool) { comprobarFila(fila); }

void RejillaPresupuesto::Subtotal(int colAgrupar, int colTotal, const QString&, const QColor&, const QString&)
{
    if (colAgrupar < -1 || colAgrupar >= kColumnas)
        throw VbError::subscriptOutOfRange();
    comprobarCol(colTotal);
    // The sums are kept as numbers from the load on; the rows are made once.
    crearTotales();
}

bool RejillaPresupuesto::IsSubtotal(int fila) const
{
    comprobarFila(fila);
    return fila > 0 && !datos_.esCuenta(fila - 1);
}

int RejillaPresupuesto::SubtotalGroupColumn(int fila) const
{
    comprobarFila(fila);
    if (fila == 0)
        return -2;
    switch (datos_.tipo(fila - 1)) {
    case ModeloPresupuesto::Tipo::Subtotal: return kDptoNombre;
    case ModeloPresupuesto::Tipo::TotalGeneral: return -1;
    case ModeloPresupuesto::Tipo::Cuenta: break;
    }
    return -2;
}

void RejillaPresupuesto::alCambiarRedibujo(bool activo) { datos_.retenerAvisos(!activo); }

} // namespace presupuestos
