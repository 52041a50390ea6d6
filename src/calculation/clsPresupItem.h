#pragma once
// One budget row on its way to the store: the row's key within the year
// (department and account), its twelve months and what produced them.

#include "common/Currency.h"

#include <QString>
#include <array>

namespace presupuestos {

class clsPresupItem {
public:
    qint16 Dpto = 0;
    QString Cuenta;
    // Months typed by hand: bit m-1 set for month m (Modificacion_Manual).
    qint16 Manual = 0;
    // The value the calculation method was given.
    Currency Valor;
    qint32 MetodoCalc = 0;

    // Month amount, Index 0 (January) to 11 (December); any other index
    // raises the subscript error.
    Currency Mes(int Index) const;
    void setMes(int Index, Currency valor);

private:
    std::array<Currency, 12> meses_{};
};

} // namespace presupuestos
