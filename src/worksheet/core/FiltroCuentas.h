#pragma once
// Which accounts of the account list the worksheet shows: those of the
// chosen category or of one below it, narrowed to income or to expense
// accounts by two boxes of which one always stays checked. Plain data, so
// that the rules can be checked without a window.

#include "worksheet/core/ArbolCategorias.h"

#include <QString>
#include <vector>

namespace presupuestos {

// An account line of the balance configuration with one account it takes
// in: a detail account whose first four characters are the line's text, or
// a budget concept whose code is that text.
struct CuentaFiltro {
    // The configuration line's code.
    int codigo = 0;
    QString cuenta;
    // The line's category.
    qint16 padre = 0;
    QString nombre;
};

class FiltroCuentas {
public:
    enum class Tipo { Ingresos, Gastos };

    // The categories are read from arbol, which must outlive the filter.
    explicit FiltroCuentas(const ArbolCategorias& arbol) : arbol_(arbol) {}

    // The accounts in the order of the list's rows, from row 1 (row 0 is
    // "Todas").
    void vaciar() { cuentas_.clear(); }
    void agregar(const CuentaFiltro& cuenta) { cuentas_.push_back(cuenta); }
    const std::vector<CuentaFiltro>& cuentas() const { return cuentas_; }

    // The category chosen in the tree; 0, "Todas", takes every category that
    // reaches the top.
    void setCategoria(qint16 categoria) { categoria_ = categoria; }
    qint16 categoria() const { return categoria_; }

    // The boxes as they are.
    void setTipos(bool ingresos, bool gastos);
    bool ingresos() const { return ingresos_; }
    bool gastos() const { return gastos_; }
    // A click left one box so: unchecking it checks the other, so that the
    // list never loses both kinds at once.
    void pulsar(Tipo caja, bool marcada);

    // What an account must begin with: "6", expenses only, while the income
    // box is unchecked; else "7", incomes only, while the expense box is;
    // empty with both checked. Budget concepts begin with neither.
    QString prefijo() const;

    // Whether the account at that position of the list passes the boxes and
    // the category.
    bool acepta(std::size_t posicion) const;

private:
    const ArbolCategorias& arbol_;
    std::vector<CuentaFiltro> cuentas_;
    qint16 categoria_ = 0;
    bool ingresos_ = true;
    bool gastos_ = true;
};

} // namespace presupuestos
