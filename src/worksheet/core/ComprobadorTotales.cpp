#include "worksheet/core/ComprobadorTotales.h"

#include "common/VbError.h"
#include "worksheet/core/frmActPresupusto_comun.h"

#include <tuple>

namespace presupuestos {

void ComprobadorTotales::cambiar(int fila, int col, Currency valor)
{
    auto it = filas_.find(fila);
    if (it == filas_.end()) {
        std::array<Suma, 12> meses{};
        for (int c = hoja::kPrimerMes; c <= hoja::kUltimoMes; ++c)
            meses[static_cast<std::size_t>(c - hoja::kPrimerMes)] = ModeloRejilla::ValorSuma(m_.TextMatrix(fila, c));
        it = filas_.emplace(fila, meses).first;
    }
    it->second[static_cast<std::size_t>(col - hoja::kPrimerMes)] = valor.raw();
}

void ComprobadorTotales::comprobar() const
{
    struct Cambio {
        int filaMuestra = 0;
        Suma diferencia = 0;
        int desbordadas = 0;
    };
    // (grouping, group, column) -> what the changes add to its sum.
    std::map<std::tuple<int, int, int>, Cambio> cambios;
    auto anotar = [&](int fila, int col, Suma diferencia, int desbordadas) {
        for (int agrupacion : {1, -1}) {
            const auto g = m_.sumaGrupo(agrupacion, fila, col);
            if (!g)
                continue;
            Cambio& c = cambios[{agrupacion, g->grupo, col}];
            c.filaMuestra = fila;
            c.diferencia += diferencia;
            c.desbordadas += desbordadas;
        }
    };
    for (const auto& [fila, meses] : filas_) {
        Suma total = 0;
        for (std::size_t i = 0; i < meses.size(); ++i) {
            total += meses[i];
            const int col = hoja::kPrimerMes + static_cast<int>(i);
            const Suma antes = ModeloRejilla::ValorSuma(m_.TextMatrix(fila, col));
            if (meses[i] != antes)
                anotar(fila, col, meses[i] - antes, 0);
        }
        if (!Currency::enRango(total))
            throw VbError::overflow();
        bool desbordadoAntes = false;
        const Suma totalAntes = ModeloRejilla::ValorSuma(m_.TextMatrix(fila, hoja::kTotal), &desbordadoAntes);
        anotar(fila, hoja::kTotal, total - totalAntes, desbordadoAntes ? -1 : 0);
    }
    for (const auto& [clave, c] : cambios) {
        const auto g = m_.sumaGrupo(std::get<0>(clave), c.filaMuestra, std::get<2>(clave));
        if (!g || g->desbordadas + c.desbordadas > 0)
            continue;
        if (!Currency::enRango(g->suma + c.diferencia))
            throw VbError::overflow();
    }
}

} // namespace presupuestos
