#include "import/readers/HojaExcel.h"

#include "common/VbError.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace presupuestos {

namespace {

VbError errorDeObjeto() { return VbError(1004, QStringLiteral("Application-defined or object-defined error")); }

} // namespace

HojaExcel::HojaExcel(int filasHoja, int columnasHoja, QString nombre)
    : filasHoja_(filasHoja), columnasHoja_(columnasHoja), nombre_(std::move(nombre))
{
}

void HojaExcel::comprobarPosicion(int fila, int columna) const
{
    if (fila < 1 || fila > filasHoja_ || columna < 1 || columna > columnasHoja_)
        throw errorDeObjeto();
}

HojaExcel::Celda& HojaExcel::anadir(int fila, int columna, ValorExcel::Tipo tipo)
{
    comprobarPosicion(fila, columna);
    const std::uint64_t k = clave(fila, columna);
    filaVista_ = 0;
    if (!celdas_.empty() && celdas_.back().clave >= k)
        ordenada_ = false;
    Celda c{};
    c.clave = k;
    c.tipo = tipo;
    celdas_.push_back(c);
    return celdas_.back();
}

std::uint32_t HojaExcel::guardarTexto(const QString& texto)
{
    textos_.push_back(texto);
    return static_cast<std::uint32_t>(textos_.size() - 1);
}

void HojaExcel::ponerNumero(int fila, int columna, double valor)
{
    anadir(fila, columna, ValorExcel::Tipo::Numero).numero = valor;
}

void HojaExcel::ponerTexto(int fila, int columna, const QString& texto)
{
    const std::uint32_t i = guardarTexto(texto);
    anadir(fila, columna, ValorExcel::Tipo::Texto).indice = i;
}

bool HojaExcel::ponerTextoCompartido(int fila, int columna, std::uint32_t indice)
{
    if (indice >= textosCompartidos_)
        return false;
    anadir(fila, columna, ValorExcel::Tipo::Texto).indice = indice;
    return true;
}

void HojaExcel::ponerBooleano(int fila, int columna, bool valor)
{
    anadir(fila, columna, ValorExcel::Tipo::Booleano).booleano = valor;
}

void HojaExcel::ponerError(int fila, int columna, const QString& nombreError)
{
    const std::uint32_t i = guardarTexto(nombreError);
    anadir(fila, columna, ValorExcel::Tipo::Error).indice = i;
}

void HojaExcel::ponerTextos(std::vector<QString> textos)
{
    // Cells already pointing into textos_ would lose their texts.
    if (!textos_.empty())
        throw VbError(VbError::InvalidProcedureCall, QStringLiteral("Invalid procedure call or argument"));
    textos_ = std::move(textos);
    textosCompartidos_ = textos_.size();
}

void HojaExcel::cerrar()
{
    if (ordenada_)
        return;
    // A stable sort keeps repeated cells in file order, so the last one wins.
    std::stable_sort(celdas_.begin(), celdas_.end(), [](const Celda& a, const Celda& b) { return a.clave < b.clave; });
    std::vector<Celda> unicas;
    unicas.reserve(celdas_.size());
    for (const Celda& c : celdas_) {
        if (!unicas.empty() && unicas.back().clave == c.clave)
            unicas.back() = c;
        else
            unicas.push_back(c);
    }
    celdas_.swap(unicas);
    ordenada_ = true;
    filaVista_ = 0;
}

const HojaExcel::Celda* HojaExcel::buscar(int fila, int columna) const
{
    comprobarPosicion(fila, columna);
    const auto menor = [](const Celda& c, std::uint64_t v) { return c.clave < v; };
    if (fila != filaVista_) {
        const auto filaDe = [](const Celda& c) { return static_cast<int>(c.clave >> 16); };
        auto desde = celdas_.begin() + static_cast<std::ptrdiff_t>(hastaVista_);
        // Rows are mostly read in order: the next one starts where the last
        // one ended.
        if (filaVista_ == 0 || fila < filaVista_ || (desde != celdas_.end() && filaDe(*desde) < fila))
            desde = std::lower_bound(celdas_.begin(), celdas_.end(), clave(fila, 0), menor);
        auto hasta = desde;
        for (int n = 0; hasta != celdas_.end() && filaDe(*hasta) == fila && n < 64; ++n)
            ++hasta;
        if (hasta != celdas_.end() && filaDe(*hasta) == fila)
            hasta = std::lower_bound(hasta, celdas_.end(), clave(fila + 1, 0), menor);
        desdeVista_ = static_cast<std::size_t>(desde - celdas_.begin());
        hastaVista_ = static_cast<std::size_t>(hasta - celdas_.begin());
        filaVista_ = fila;
    }
    const std::uint64_t k = clave(fila, columna);
    const auto fin = celdas_.begin() + static_cast<std::ptrdiff_t>(hastaVista_);
    const auto it = std::lower_bound(celdas_.begin() + static_cast<std::ptrdiff_t>(desdeVista_), fin, k, menor);
    return (it != fin && it->clave == k) ? &*it : nullptr;
}

ValorExcel HojaExcel::valor(int fila, int columna) const
{
    ValorExcel v;
    const Celda* c = buscar(fila, columna);
    if (!c)
        return v;
    v.tipo = c->tipo;
    switch (c->tipo) {
    case ValorExcel::Tipo::Numero: v.numero = c->numero; break;
    case ValorExcel::Tipo::Booleano: v.booleano = c->booleano; break;
    case ValorExcel::Tipo::Texto:
    case ValorExcel::Tipo::Error: v.texto = textos_[c->indice]; break;
    case ValorExcel::Tipo::Vacia: break;
    }
    return v;
}

bool HojaExcel::vacia(int fila, int columna) const { return buscar(fila, columna) == nullptr; }

QString HojaExcel::texto(int fila, int columna) const
{
    const ValorExcel v = valor(fila, columna);
    switch (v.tipo) {
    case ValorExcel::Tipo::Vacia: return QString();
    case ValorExcel::Tipo::Numero: return textoNumero(v.numero);
    case ValorExcel::Tipo::Booleano: return v.booleano ? QStringLiteral("VERDADERO") : QStringLiteral("FALSO");
    case ValorExcel::Tipo::Texto:
    case ValorExcel::Tipo::Error: return v.texto;
    }
    return QString();
}

bool HojaExcel::operator==(const HojaExcel& otra) const
{
    if (nombre_ != otra.nombre_ || filasHoja_ != otra.filasHoja_ || columnasHoja_ != otra.columnasHoja_
        || celdas_.size() != otra.celdas_.size())
        return false;
    for (std::size_t i = 0; i < celdas_.size(); ++i) {
        const Celda& a = celdas_[i];
        const Celda& b = otra.celdas_[i];
        if (a.clave != b.clave || a.tipo != b.tipo)
            return false;
        switch (a.tipo) {
        case ValorExcel::Tipo::Numero:
            if (std::memcmp(&a.numero, &b.numero, sizeof a.numero) != 0)
                return false;
            break;
        case ValorExcel::Tipo::Booleano:
            if (a.booleano != b.booleano)
                return false;
            break;
        case ValorExcel::Tipo::Texto:
        case ValorExcel::Tipo::Error:
            if (textos_[a.indice] != otra.textos_[b.indice])
                return false;
            break;
        case ValorExcel::Tipo::Vacia: break;
        }
    }
    return true;
}

int HojaExcel::filaFinArriba(int columna) const
{
    comprobarPosicion(filasHoja_, columna);
    std::vector<int> filas; // filled rows of the column, ascending
    for (const Celda& c : celdas_)
        if (static_cast<int>(c.clave & 0xFFFF) == columna)
            filas.push_back(static_cast<int>(c.clave >> 16));
    if (filas.empty())
        return 1;
    if (filas.back() != filasHoja_)
        return filas.back();
    // Starting on a filled cell: up to the top of its block when the cell
    // above is filled too, otherwise on to the next filled cell above.
    std::size_t i = filas.size() - 1;
    if (i == 0)
        return 1;
    if (filas[i - 1] != filas[i] - 1)
        return filas[i - 1];
    while (i > 0 && filas[i - 1] == filas[i] - 1)
        --i;
    return filas[i];
}

QString HojaExcel::textoNumero(double valor)
{
    if (valor == 0)
        return QStringLiteral("0");
    // Whole numbers of up to fifteen digits show every digit, as integers do.
    if (std::fabs(valor) < 1e15 && std::trunc(valor) == valor)
        return QString::number(static_cast<qint64>(valor));
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.15G", valor);
    QString t = QString::fromLatin1(buf);
    t.replace(QLatin1Char('.'), QLatin1Char(','));
    return t;
}

} // namespace presupuestos
