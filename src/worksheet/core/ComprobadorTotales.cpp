#include "worksheet/core/ComprobadorTotales.h"

#include "common/VbError.h"
#include "worksheet/core/Columnas.h"

#include <tuple>

namespace presupuestos {

void ComprobadorTotales::cambiar(int fila, int col, Currency valor)
{
    const ModeloPresupuesto& d = r_.datos();
    if (!d.esCuenta(fila - 1))
        throw VbError::subscriptOutOfRange();
    auto it = filas_.find(fila);
    if (it == filas_.end()) {
        std::array<Suma, 12> meses{};
        for (int m = 1; m <= 12; ++m)
            meses[static_cast<std::size_t>(m - 1)] = d.mes(fila - 1, m);
        it = filas_.emplace(fila, meses).first;
    }
    it->second[static_cast<std::size_t>(col - hoja::kPrimerMes)] = valor.raw();
}

void ComprobadorTotales::comprobar() const
{
    const ModeloPresupuesto& d = r_.datos();
    struct Cambio {
        int filaMuestra = 0;
        Suma diferencia = 0;
        int fuera = 0;
    };
    // (grand total?, group's sample row, column) -> what the changes add to its sum.
    std::map<std::tuple<bool, int, int>, Cambio> cambios;
    auto anotar = [&](int fila, int mes, Suma diferencia, int fuera) {
        for (bool general : {false, true}) {
            if (!d.sumaGrupo(fila, mes, general))
                continue;
            // Rows of one group share its subtotal row; the grand total is one.
            const int grupo = general ? -1 : d.grupo(fila);
            Cambio& c = cambios[{general, grupo, mes}];
            c.filaMuestra = fila;
            c.diferencia += diferencia;
            c.fuera += fuera;
        }
    };
    for (const auto& [filaRejilla, meses] : filas_) {
        const int fila = filaRejilla - 1;
        Suma total = 0;
        for (int m = 1; m <= 12; ++m) {
            const Suma nuevo = meses[static_cast<std::size_t>(m - 1)];
            total += nuevo;
            bool fueraAntes = false;
            const Suma antes = d.mes(fila, m, &fueraAntes);
            if (nuevo != antes || fueraAntes)
                anotar(fila, m, nuevo - antes, fueraAntes ? -1 : 0);
        }
        if (!Currency::enRango(total))
            throw VbError::overflow();
        bool fueraAntes = false;
        const Suma totalAntes = d.valor(fila, 13, &fueraAntes);
        anotar(fila, 13, total - totalAntes, fueraAntes ? -1 : 0);
    }
    for (const auto& [clave, c] : cambios) {
        const auto g = d.sumaGrupo(c.filaMuestra, std::get<2>(clave), std::get<0>(clave));
        if (!g || g->fuera + c.fuera > 0)
            continue;
        if (!Currency::enRango(g->suma + c.diferencia))
            throw VbError::overflow();
    }
}

} // namespace presupuestos
