#include "worksheet/core/RejillaPresupuesto.h"

#include "common/NumerosEs.h"
#include "common/VbError.h"
#include "db/Conexion.h"

#include <QStringList>
#include <algorithm>

namespace presupuestos {

using namespace hoja;

namespace {
const QColor kRojo(255, 0, 0);
const QColor kBlanco(255, 255, 255);

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

Completado RejillaPresupuesto::llenar(Recordset& rs, bool conDatosCalculo)
{
    m_.setRows(1);
    auto indice = [&rs](const QString& nombre) {
        const int i = rs.indiceCampo(nombre);
        if (i < 0 && !rs.eof())
            throw VbError::itemNotFound();
        return i;
    };
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
    Completado c;
    // Amounts go into the grid as numbers: nothing is formatted until a cell
    // is shown or read, and the red of a negative amount (which the change
    // handler gives a typed cell) is given here, as no change is announced.
    const es::FormatoNumerico formato = es::leerFormato(a_.formato);
    std::vector<ValorCelda> campos(static_cast<std::size_t>(kColumnas));
    bool negativo[kColumnas] = {};
    // Small whole numbers repeat from row to row; their texts are made once.
    std::vector<QString> numeros;
    const auto numero = [&numeros](int n) {
        if (n < 0 || n > 4096)
            return QString::number(n);
        if (static_cast<std::size_t>(n) >= numeros.size())
            numeros.resize(static_cast<std::size_t>(n) + 1);
        QString& t = numeros[static_cast<std::size_t>(n)];
        if (t.isNull())
            t = QString::number(n);
        return t;
    };
    while (!rs.eof()) {
        campos.assign(static_cast<std::size_t>(kColumnas), ValorCelda());
        campos[kDpto] = ValorCelda::texto(numero(rs.moneda(iDpto).toInt32()));
        campos[kDptoNombre] = ValorCelda::texto(rs.texto(iDptoNombre));
        campos[kCuenta] = ValorCelda::texto(rs.texto(iCuenta));
        campos[kNombre] = ValorCelda::texto(rs.texto(iNombre));
        int mascara = 0;
        if (conDatosCalculo)
            mascara = rs.moneda(iManual).toInt16();
        // A year that no amount can represent shows as such: one row stored
        // out of range must not keep the worksheet from opening.
        Suma total = 0;
        for (int mes = 1; mes <= 12; ++mes) {
            const Suma importe = mostrado(rs, iMes[mes - 1], a_.decimales);
            total += importe;
            campos[static_cast<std::size_t>(colMes(mes))] = ValorCelda::importe(importe, formato);
            negativo[colMes(mes)] = importe < 0 && Currency::enRango(importe);
        }
        campos[kTotal] = ValorCelda::importe(total, formato);
        negativo[kTotal] = total < 0 && Currency::enRango(total);
        if (conDatosCalculo) {
            campos[kMetodo] = ValorCelda::texto(numero(rs.moneda(iMetodo).toInt32()));
            campos[kManual] = ValorCelda::texto(numero(mascara));
            campos[kValor] = ValorCelda::texto(rs.moneda(iValor).toPlainText());
        }
        m_.AddItem(campos);
        const int r = m_.Rows() - 1;
        for (int col = kPrimerMes; col <= kTotal; ++col)
            if (negativo[col])
                m_.setCellForeColor(r, col, kRojo);
        for (int mes = 1; mes <= 12; ++mes) {
            if (mascara & (1 << (mes - 1)))
                m_.setCellBackColor(r, colMes(mes), a_.manual);
        }
        ++c.filas;
        if (total != 0)
            ++c.conValores;
        rs.MoveNext();
    }
    return c;
}

void RejillaPresupuesto::crearTotales()
{
    for (int c = kPrimerMes; c <= kTotal; ++c) {
        m_.setSubtotalPosition(ModeloRejilla::PosicionSubtotal::Debajo);
        m_.Subtotal(kDptoNombre, c, a_.formato, a_.subtotal, QStringLiteral("%s"));
        if (a_.dptos > 1) {
            m_.setSubtotalPosition(ModeloRejilla::PosicionSubtotal::Encima);
            m_.Subtotal(-1, c, a_.formato);
        }
    }
    // The department's name is hidden with its column; the subtotal shows it
    // where the account's name goes.
    for (int r = 1; r < m_.Rows(); ++r) {
        if (m_.IsSubtotal(r))
            m_.setTextMatrix(r, kNombre, m_.TextMatrix(r, kDptoNombre));
    }
    if (m_.Rows() > 1)
        m_.setCellBackColor(1, kTotal, m_.Rows() - 1, kTotal, a_.subtotal);
}

void RejillaPresupuesto::refrescarSubtotales(int colDesde, int colHasta)
{
    m_.setSubtotalPosition(ModeloRejilla::PosicionSubtotal::Debajo);
    for (int c = colDesde; c <= colHasta; ++c)
        m_.Subtotal(kDptoNombre, c, a_.formato, a_.subtotal, QStringLiteral("%s"));
    m_.Subtotal(kDptoNombre, kTotal, a_.formato, a_.subtotal, QStringLiteral("%s"));
    if (a_.dptos < 2)
        return;
    m_.setSubtotalPosition(ModeloRejilla::PosicionSubtotal::Encima);
    for (int c = colDesde; c <= colHasta; ++c)
        m_.Subtotal(-1, c, a_.formato);
    m_.Subtotal(-1, kTotal, a_.formato);
}

int RejillaPresupuesto::recalcularFilas(int desde, int hasta, int colDesde, int colHasta)
{
    int conValores = 0;
    for (int r = desde; r <= hasta; ++r) {
        Suma total = 0;
        for (int c = kPrimerMes; c <= kUltimoMes; ++c)
            total += m_.ValorMatrix(r, c);
        bool desbordadoAntes = false;
        const bool antes = m_.ValorMatrix(r, kTotal, &desbordadoAntes) != 0 || desbordadoAntes;
        conValores += (total != 0 ? 1 : 0) - (antes ? 1 : 0);
        m_.setTextMatrix(r, kTotal, ModeloRejilla::FormatearSuma(total, a_.formato));
        m_.setCellForeColor(r, kTotal, total < 0 ? kRojo : QColor());
    }
    refrescarSubtotales(colDesde, colHasta);
    return conValores;
}

qint16 RejillaPresupuesto::dpto(int fila) const { return static_cast<qint16>(es::valEntero(m_.TextMatrix(fila, kDpto))); }

Currency RejillaPresupuesto::mes(int fila, int mes) const
{
    return Currency::fromRaw(static_cast<std::int64_t>(m_.ValorMatrix(fila, colMes(mes))));
}

Suma RejillaPresupuesto::total(int fila, bool* desbordado) const
{
    return m_.ValorMatrix(fila, kTotal, desbordado);
}

int RejillaPresupuesto::mascara(int fila) const { return es::valEntero(m_.TextMatrix(fila, kManual)); }

int RejillaPresupuesto::mostrar(int fila, const Valores& v)
{
    for (int i = 0; i < 12; ++i) {
        const int c = kPrimerMes + i;
        m_.setTextMatrix(fila, c, es::formatear(v.meses[static_cast<std::size_t>(i)].rounded(a_.decimales), a_.formato));
        m_.setCellBackColor(fila, c, (v.manual & (1 << i)) ? a_.manual : kBlanco);
    }
    m_.setTextMatrix(fila, kMetodo, QString::number(v.metodo));
    m_.setTextMatrix(fila, kManual, QString::number(v.manual));
    m_.setTextMatrix(fila, kValor, v.valor.toPlainText());
    return recalcularFilas(fila, fila, kPrimerMes, kUltimoMes);
}

bool RejillaPresupuesto::editable(int fila, int col, bool verPresupuestables) const
{
    return verPresupuestables && esMes(col) && !m_.IsSubtotal(fila);
}

int RejillaPresupuesto::filaSiguiente(int fila) const
{
    if (fila >= m_.Rows() - 1)
        return fila;
    int r = fila + 1;
    while (r < m_.Rows() - 1 && m_.IsSubtotal(r))
        ++r;
    return r;
}

int RejillaPresupuesto::primeraFilaSeccion(int fila) const
{
    int r = fila;
    while (r >= 2 && !m_.IsSubtotal(r))
        --r;
    return r + 1;
}

int RejillaPresupuesto::ultimaFilaSeccion(int fila) const
{
    int r = fila;
    while (r <= m_.Rows() - 1 && !m_.IsSubtotal(r))
        ++r;
    return r - 1;
}

void RejillaPresupuesto::indexar()
{
    filas_.clear();
    filas_.reserve(m_.Rows());
    for (int r = 1; r < m_.Rows(); ++r)
        if (!m_.IsSubtotal(r))
            filas_.insert(clave(cuenta(r), dpto(r)), r);
}

} // namespace presupuestos
