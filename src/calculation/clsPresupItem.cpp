#include "calculation/clsPresupItem.h"

#include "common/VbError.h"

namespace presupuestos {

Currency clsPresupItem::Mes(int Index) const
{
    if (Index < 0 || Index > 11)
        throw VbError::subscriptOutOfRange();
    return meses_[static_cast<std::size_t>(Index)];
}

void clsPresupItem::setMes(int Index, Currency valor)
{
    if (Index < 0 || Index > 11)
        throw VbError::subscriptOutOfRange();
    meses_[static_cast<std::size_t>(Index)] = valor;
}

} // namespace presupuestos
