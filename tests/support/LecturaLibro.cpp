#include "LecturaLibro.h"

#include "import/readers/LectorLibro.h"

namespace presupuestos::prueba {

LecturaLibro::LecturaLibro(const QString& ruta) : ruta_(ruta)
{
    const auto h = LectorXlsx::leerFichero(ruta);
    for (int r = 2; r <= h->filaFinArriba(1); ++r)
        codigos << h->texto(r, 1) + QLatin1Char('/') + h->texto(r, 2);
}

double LecturaLibro::numero(int fila, int columna) const
{
    const auto h = LectorXlsx::leerFichero(ruta_);
    const auto v = h->valor(fila, columna);
    return v.tipo == decltype(v.tipo)::Numero ? v.numero : 0;
}

} // namespace presupuestos::prueba
