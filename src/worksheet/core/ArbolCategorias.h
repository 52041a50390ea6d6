#pragma once
// The category tree of the account filter: the categories of the balance
// configuration, how the list shows them, how many accounts lie under each,
// and which category lies below which. Plain data, so that the rules can be
// checked without a window.

#include <QString>
#include <functional>
#include <vector>

namespace presupuestos {

// A category as the configuration holds it.
struct FilaCategoria {
    int codigo = 0;
    QString texto;
    qint16 padre = 0;
};

// How the list shows a category; row 0 of the list is "Todas".
struct LineaCategoria {
    int codigo = 0;
    // The text after as many blanks as the depth suggests.
    QString leyenda;
    qint16 padre = 0;
    int fila = 0;
    // Top-level categories stand out.
    bool negrita = false;
};

// What the table keeps of a loaded category, at the index of its code.
struct CategoriaFiltro {
    qint16 Codigo = 0;
    // Accounts of the list in this category or in any below it.
    qint16 NoHijos = 0;
    qint16 Fila = 0;
    qint16 Padre = 0;
};

class ArbolCategorias {
public:
    // The highest code the table can hold.
    static constexpr int kMaxCategoria = 300;

    // A new load: no categories, and a table of every code with nothing in it.
    void reiniciar();

    // The next category in the order of their codes. Its depth is inferred
    // from the previous category's parent, which holds when codes are given
    // depth first with children after their parent: a climb of several
    // levels at once takes back only one. mostrar receives it before its
    // entry is stored, so the list shows a category whose code the table
    // cannot hold; that one raises "Subscript out of range".
    void agregar(const FilaCategoria& fila, const std::function<void(const LineaCategoria&)>& mostrar);

    // An account of the list lies in this category: it counts for the
    // category and for every one above it. A code the table cannot hold, or
    // no load yet, raises "Subscript out of range".
    void contarCuenta(qint16 categoria);

    // The rows of the loaded categories that hold no account, in the order
    // of their codes.
    std::vector<int> filasSinCuentas() const;

    // Whether codigo is the category or lies below it. Every category loaded
    // takes part, shown or not; the first one with a code decides; a code no
    // category has ends the walk. With categoria 0 ("Todas") every chain that
    // reaches the top is accepted.
    bool esDeCategoria(qint16 categoria, qint16 codigo) const;

    // The code of the category on a row of the list: 0 for "Todas" or no row.
    qint16 codigoEnFila(int fila) const;

    const std::vector<CategoriaFiltro>& tabla() const { return tabla_; }

private:
    struct Nodo {
        qint16 codigo;
        qint16 padre;
    };
    // The categories in the order of the list's rows, from row 1.
    std::vector<Nodo> nodos_;
    std::vector<CategoriaFiltro> tabla_;
    qint16 sangria_ = 0;
    qint16 padreAnterior_ = 0;
};

} // namespace presupuestos
