#pragma once
// Which departments the worksheet shows: a list of the company's departments
// after an empty item, a box that takes them all, and the choice in force
// when the list was opened, which a cancel brings back. Plain data, so that
// the rules can be checked without a window.

#include <QString>
#include <utility>
#include <vector>

namespace presupuestos {

// A department as the company holds it.
struct Departamento {
    int codigo = 0;
    QString nombre;
};

// An item of the list as it stands.
struct ItemDepartamento {
    int codigo = 0;
    bool seleccionado = false;
};

class FiltroDepartamentos {
public:
    // The code of the list's first item, the empty one: no department. The
    // box never selects it and the department list never names it.
    static constexpr int kSinDepartamento = -1;

    // The list and the box as they stand, item 0 the empty one.
    void setItems(std::vector<ItemDepartamento> items) { items_ = std::move(items); }
    const std::vector<ItemDepartamento>& items() const { return items_; }
    void setTodos(bool todos) { todos_ = todos; }
    bool todos() const { return todos_; }

    // The codes for the budget's "Dpto IN (...)", empty for every
    // department. It begins with -1, which no department has, so that
    // nothing selected gives a valid list that shows nothing. Each selected
    // department adds one to the count, which is never reset here.
    QString lista();
    // How many departments the filter takes, as the box and the lists last
    // left it: subtotals over departments need more than one.
    qint16 numDptos() const { return numDptos_; }

    // The box was checked or unchecked: every department follows it, the
    // empty item stays as it is, and the count restarts.
    void marcarTodos(bool todos);
    // An item was clicked: when it is no longer selected the box is
    // unchecked. Selecting items never checks it.
    void pulsarItem(std::size_t item);
    // Whether an accept closes the list: some item is selected, the empty
    // one too.
    bool aceptable() const;

    // Opening the list keeps the box and the selection as they are.
    void guardar();
    // What a cancel brings back; an item that was not there when they were
    // kept comes back unselected.
    bool todosGuardado() const { return todosGuardado_; }
    bool seleccionGuardada(std::size_t item) const;
    // A new list of that many items: nothing is kept selected.
    void nuevaLista(std::size_t numItems);

private:
    std::vector<ItemDepartamento> items_;
    bool todos_ = false;
    qint16 numDptos_ = 0;
    bool todosGuardado_ = false;
    std::vector<bool> seleccionGuardada_;
};

} // namespace presupuestos
