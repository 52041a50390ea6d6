#include "worksheet/core/FiltroDepartamentos.h"

#include <algorithm>

namespace presupuestos {

QString FiltroDepartamentos::lista()
{
    if (todos_)
        return QString();
    QString s = QStringLiteral("-1");
    for (std::size_t i = 1; i < items_.size(); ++i) {
        if (items_[i].seleccionado) {
            s += QStringLiteral(", ") + QString::number(items_[i].codigo);
            ++numDptos_;
        }
    }
    return s;
}

void FiltroDepartamentos::marcarTodos(bool todos)
{
    todos_ = todos;
    numDptos_ = static_cast<qint16>(todos ? static_cast<int>(items_.size()) - 1 : 0);
    for (std::size_t i = 1; i < items_.size(); ++i)
        items_[i].seleccionado = todos;
}

void FiltroDepartamentos::pulsarItem(std::size_t item)
{
    if (item < items_.size() && !items_[item].seleccionado)
        todos_ = false;
}

bool FiltroDepartamentos::aceptable() const
{
    return std::any_of(items_.begin(), items_.end(), [](const ItemDepartamento& i) { return i.seleccionado; });
}

void FiltroDepartamentos::guardar()
{
    todosGuardado_ = todos_;
    seleccionGuardada_.assign(items_.size(), false);
    for (std::size_t i = 0; i < items_.size(); ++i)
        seleccionGuardada_[i] = items_[i].seleccionado;
}

bool FiltroDepartamentos::seleccionGuardada(std::size_t item) const
{
    return item < seleccionGuardada_.size() && seleccionGuardada_[item];
}

void FiltroDepartamentos::nuevaLista(std::size_t numItems) { seleccionGuardada_.assign(numItems, false); }

} // namespace presupuestos
