#include "worksheet/core/ArbolCategorias.h"

#include "common/VbError.h"

#include <algorithm>

namespace presupuestos {

namespace {
bool enTabla(int codigo) { return codigo >= 0 && codigo <= ArbolCategorias::kMaxCategoria; }
} // namespace

void ArbolCategorias::reiniciar()
{
    nodos_.clear();
    tabla_.assign(kMaxCategoria + 1, CategoriaFiltro{});
    sangria_ = 0;
    padreAnterior_ = 0;
}

void ArbolCategorias::agregar(const FilaCategoria& f, const std::function<void(const LineaCategoria&)>& mostrar)
{
    if (f.padre == 0)
        sangria_ = 0;
    else if (f.padre > padreAnterior_)
        sangria_ += 4;
    else if (f.padre < padreAnterior_)
        sangria_ -= 4;
    LineaCategoria linea;
    linea.codigo = f.codigo;
    linea.leyenda = QString(std::max<int>(0, sangria_), QLatin1Char(' ')) + f.texto;
    linea.padre = f.padre;
    linea.fila = static_cast<int>(nodos_.size()) + 1;
    linea.negrita = f.padre == 0;
    nodos_.push_back({static_cast<qint16>(f.codigo), f.padre});
    padreAnterior_ = f.padre;
    mostrar(linea);
    if (!enTabla(f.codigo))
        throw VbError::subscriptOutOfRange();
    CategoriaFiltro& cat = tabla_[static_cast<std::size_t>(f.codigo)];
    cat.Codigo = static_cast<qint16>(f.codigo);
    cat.NoHijos = 0;
    cat.Fila = static_cast<qint16>(linea.fila);
    cat.Padre = f.padre;
}

void ArbolCategorias::contarCuenta(qint16 categoria)
{
    qint16 c = categoria;
    // Bounded, so that a loop in the configuration cannot hang the load.
    for (int pasos = 0; c != 0 && pasos <= kMaxCategoria; ++pasos) {
        if (!enTabla(c) || tabla_.empty())
            throw VbError::subscriptOutOfRange();
        CategoriaFiltro& cat = tabla_[static_cast<std::size_t>(c)];
        ++cat.NoHijos;
        c = cat.Padre;
    }
}

std::vector<int> ArbolCategorias::filasSinCuentas() const
{
    std::vector<int> filas;
    for (int i = 1; i < static_cast<int>(tabla_.size()); ++i) {
        const CategoriaFiltro& cat = tabla_[static_cast<std::size_t>(i)];
        if (cat.NoHijos == 0 && cat.Codigo == i) {
            Q_ASSERT_X(cat.Fila >= 1, "ArbolCategorias::filasSinCuentas", "categoría cargada sin fila");
            if (cat.Fila < 1)
                throw VbError::internalError();
            filas.push_back(cat.Fila);
        }
    }
    return filas;
}

bool ArbolCategorias::esDeCategoria(qint16 categoria, qint16 codigo) const
{
    // Bounded, so that a loop in the configuration ends.
    for (int pasos = 0; pasos <= kMaxCategoria + 1; ++pasos) {
        if (codigo == categoria)
            return true;
        const auto nodo = std::find_if(nodos_.begin(), nodos_.end(), [codigo](const Nodo& n) { return n.codigo == codigo; });
        if (nodo == nodos_.end())
            return false;
        codigo = nodo->padre;
    }
    return false;
}

qint16 ArbolCategorias::codigoEnFila(int fila) const
{
    if (fila < 1 || fila > static_cast<int>(nodos_.size()))
        return 0;
    return nodos_[static_cast<std::size_t>(fila - 1)].codigo;
}

} // namespace presupuestos
