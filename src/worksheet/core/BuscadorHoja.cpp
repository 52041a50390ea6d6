#include "worksheet/core/BuscadorHoja.h"

#include "worksheet/core/RejillaPresupuesto.h"

#include <QHash>

namespace presupuestos {

QString BuscadorHoja::plegar(const QString& texto)
{
    const QString descompuesto = texto.trimmed().normalized(QString::NormalizationForm_D);
    QString r;
    r.reserve(descompuesto.size());
    for (const QChar c : descompuesto)
        if (c.category() != QChar::Mark_NonSpacing)
            r.append(c);
    return r.toCaseFolded();
}

int BuscadorHoja::siguiente(const RejillaPresupuesto& rejilla, const QString& texto, int desde)
{
    const QString buscado = plegar(texto);
    const QString codigo = texto.trimmed();
    const ModeloPresupuesto& d = rejilla.datos();
    const int n = d.filas();
    if (buscado.isEmpty() || n == 0)
        return -1;
    // Names repeat once per department: each is folded once per search.
    QHash<QString, bool> cuentas, dptos;
    const auto coincide = [&](QHash<QString, bool>& vistos, const QString& nombre) {
        auto it = vistos.constFind(nombre);
        if (it == vistos.constEnd())
            it = vistos.insert(nombre, plegar(nombre).contains(buscado));
        return it.value();
    };
    const int inicio = std::clamp(desde, 0, n);   // a grid row: model row desde - 1
    for (int paso = 1; paso <= n; ++paso) {
        const int f = (inicio - 1 + paso) % n;   // model rows after the grid row desde
        if (!d.esCuenta(f))
            continue;
        if (d.cuenta(f).startsWith(codigo, Qt::CaseInsensitive) || coincide(cuentas, d.nombre(f)))
            return f + 1;
        const bool primeraDelDpto = f == 0 || !d.esCuenta(f - 1) || d.grupo(f - 1) != d.grupo(f);
        if (primeraDelDpto && coincide(dptos, d.dptoNombre(f)))
            return f + 1;
    }
    return -1;
}

} // namespace presupuestos
