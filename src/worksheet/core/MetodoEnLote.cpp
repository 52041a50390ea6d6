#include "worksheet/core/MetodoEnLote.h"

#include <algorithm>
#include <bit>

namespace presupuestos {

namespace {
QString cantidad(int n, const char* singular, const char* plural)
{
    return QString::number(n) + QLatin1Char(' ') + QString::fromUtf8(n == 1 ? singular : plural);
}
} // namespace

std::vector<int> MetodoEnLote::filas(const RejillaPresupuesto& r, AmbitoMetodo ambito, int fila, int filaSel,
                                     const std::function<bool(const QString&)>& enCategoria)
{
    const ModeloRejilla& m = r.modelo();
    std::vector<int> resultado;
    // A row filtered out of sight is not one the user chose.
    const auto tomar = [&](int f) {
        if (r.esCuenta(f) && !m.RowHidden(f))
            resultado.push_back(f);
    };
    switch (ambito) {
    case AmbitoMetodo::Fila:
        tomar(fila);
        break;
    case AmbitoMetodo::Seleccion:
        for (int f = std::min(fila, filaSel); f <= std::max(fila, filaSel); ++f)
            tomar(f);
        break;
    case AmbitoMetodo::Categoria:
    case AmbitoMetodo::Departamento:
        // Both are the current row's: without an account row there is none.
        if (!r.esCuenta(fila))
            break;
        for (int f = 1; f < m.Rows(); ++f) {
            if (!r.esCuenta(f))
                continue;
            if (ambito == AmbitoMetodo::Departamento ? r.dpto(f) == r.dpto(fila) : enCategoria && enCategoria(r.cuenta(f)))
                tomar(f);
        }
        break;
    }
    return resultado;
}

MetodoEnLote::Prevision MetodoEnLote::prever(const RejillaPresupuesto& r, const std::vector<int>& filas)
{
    Prevision p;
    p.filas = static_cast<int>(filas.size());
    for (int f : filas)
        p.mesesManuales += std::popcount(static_cast<unsigned>(r.mascara(f)) & 0xFFFu);
    return p;
}

QString MetodoEnLote::texto(const Prevision& p, const QString& que)
{
    QString t = cantidad(p.filas, "fila", "filas") + QLatin1Char(' ') + que;
    if (p.mesesManuales > 0)
        t += QStringLiteral("; ") + cantidad(p.mesesManuales, "mes introducido a mano se sobrescribirá", "meses introducidos a mano se sobrescribirán");
    return t;
}

QString MetodoEnLote::pregunta(const Prevision& p, const QString& que)
{
    QString t = QStringLiteral("Se aplicará el método a ") + cantidad(p.filas, "fila", "filas") + QLatin1Char(' ') + que;
    if (p.mesesManuales > 0)
        t += (p.mesesManuales == 1 ? QStringLiteral(" y se sobrescribirá ") : QStringLiteral(" y se sobrescribirán "))
             + cantidad(p.mesesManuales, "mes introducido a mano", "meses introducidos a mano");
    return t + QStringLiteral(".\n¿Desea continuar?");
}

} // namespace presupuestos
