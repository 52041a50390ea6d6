#include "worksheet/core/FiltroCuentas.h"

namespace presupuestos {

void FiltroCuentas::setTipos(bool ingresos, bool gastos)
{
    ingresos_ = ingresos;
    gastos_ = gastos;
}

void FiltroCuentas::pulsar(Tipo caja, bool marcada)
{
    bool& pulsada = caja == Tipo::Ingresos ? ingresos_ : gastos_;
    bool& otra = caja == Tipo::Ingresos ? gastos_ : ingresos_;
    pulsada = marcada;
    if (!marcada)
        otra = true;
}

QString FiltroCuentas::prefijo() const
{
    if (!ingresos_)
        return QStringLiteral("6");
    if (!gastos_)
        return QStringLiteral("7");
    return QString();
}

bool FiltroCuentas::acepta(std::size_t posicion) const
{
    const CuentaFiltro& c = cuentas_.at(posicion);
    const QString p = prefijo();
    if (!p.isEmpty() && c.cuenta.left(1) != p)
        return false;
    return c.padre == categoria_ || arbol_.esDeCategoria(categoria_, c.padre);
}

} // namespace presupuestos
