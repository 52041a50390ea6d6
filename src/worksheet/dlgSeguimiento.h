#pragma once
// "Seguimiento": the budget year followed against its own actuals, row by
// row, per department and for the company, with the months closed and the
// threshold beyond which a deviation is coloured set by the user.

#include "worksheet/core/Seguimiento.h"

#include <QDialog>

class QDoubleSpinBox;
class QLabel;
class QSpinBox;
class QTableView;

namespace presupuestos {

class dlgSeguimiento : public QDialog {
    Q_OBJECT
public:
    // Reads the session's year at once; formato: the worksheet's number format.
    dlgSeguimiento(const Sesion& sesion, const QString& formato, QWidget* parent = nullptr);

    ModeloSeguimiento& modelo() { return modelo_; }
    QSpinBox* mesesCerrados() const { return meses_; }
    QDoubleSpinBox* umbral() const { return umbral_; }
    QTableView* tabla() const { return tabla_; }
    QLabel* leyenda() const { return leyenda_; }

private:
    ModeloSeguimiento modelo_;
    QSpinBox* meses_;
    QDoubleSpinBox* umbral_;
    QTableView* tabla_;
    QLabel* leyenda_;
};

} // namespace presupuestos
