#pragma once
// Following the budget year as it goes: for every row of the company's
// budget and every account with balances that year, the actuals of the
// months closed (credit less debit, as the history reads a year) against
// the budget of the same months, the deviation and its percentage, and the
// year-end forecast (the actuals of the closed months and the budget of the
// rest); the same per department and for the whole company. Amounts are
// exact sums of ten-thousandths.

#include "export/ExportadorLibro.h"
#include "grid/ModeloRejilla.h"
#include "sesion/Sesion.h"

#include <QAbstractTableModel>
#include <QString>
#include <array>
#include <map>
#include <optional>
#include <vector>

namespace presupuestos {

class Conexion;

// The budget year's own actuals by account and department (credit less
// debit, as the history reads a year) and the last month with posted
// balances, which is what a month closed means until the user says
// otherwise: what tracking and the row summary set the budget against.
struct RealesEjercicio {
    std::map<std::pair<qint16, QString>, std::array<Suma, 12>> filas;
    int ultimoMes = 0;
    // The months of an account and department; null when nothing was posted.
    const std::array<Suma, 12>* de(const QString& cuenta, qint16 dpto) const;
    static RealesEjercicio leer(Conexion& c, int empresa, int ejercicio);
};

struct FilaSeguimiento {
    enum class Tipo { Cuenta, Departamento, Total };
    Tipo tipo = Tipo::Cuenta;
    qint16 dpto = 0;
    QString dptoNombre;
    QString cuenta;
    QString nombre;
    std::array<Suma, 12> presupuesto{};
    std::array<Suma, 12> real{};

    // With the first mesesCerrados months closed.
    Suma realHastaHoy(int mesesCerrados) const;
    Suma presupuestoHastaHoy(int mesesCerrados) const;
    Suma desviacion(int mesesCerrados) const { return realHastaHoy(mesesCerrados) - presupuestoHastaHoy(mesesCerrados); }
    // Of the budget's size; none against a budget of 0 or of the other sign.
    std::optional<double> porcentaje(int mesesCerrados) const;
    Suma prevision(int mesesCerrados) const;
    Suma presupuestoAnual() const { return presupuestoHastaHoy(12); }
};

class Seguimiento {
public:
    explicit Seguimiento(const Sesion& sesion) : sesion_(sesion) {}

    // Reads the session's year: budget rows, balances, names. Rows come by
    // department and account, each department followed by its subtotal,
    // the grand total last.
    void cargar();
    const std::vector<FilaSeguimiento>& filas() const { return filas_; }
    // The last month with posted balances in the year (0: none yet), which
    // is what a month closed means until the user says otherwise.
    int ultimoMesConSaldos() const { return ultimoMes_; }

    // The figures as a sheet of the exported workbook, with that many
    // months closed.
    static HojaLibro hojaLibro(const std::vector<FilaSeguimiento>& filas, int mesesCerrados, int ejercicio);

private:
    const Sesion& sesion_;
    std::vector<FilaSeguimiento> filas_;
    int ultimoMes_ = 0;
};

// The figures as a table, formatted only when shown. Deviations whose
// percentage goes beyond the threshold are coloured: red when they take
// from the result (less income, more expense), green when they add to it.
class ModeloSeguimiento : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Columna { Dpto, Cuenta, Nombre, Real, PresupuestoFecha, Desviacion, Porcentaje, Prevision, PresupuestoAnual, Columnas };

    explicit ModeloSeguimiento(QObject* parent = nullptr) : QAbstractTableModel(parent) {}
    void setFilas(std::vector<FilaSeguimiento> filas);
    void setMesesCerrados(int meses);
    int mesesCerrados() const { return meses_; }
    // Percent; 0 colours every deviation.
    void setUmbral(double porcentaje);
    void setFormato(const QString& formato);
    const std::vector<FilaSeguimiento>& filas() const { return filas_; }

    int rowCount(const QModelIndex& padre = {}) const override { return padre.isValid() ? 0 : static_cast<int>(filas_.size()); }
    int columnCount(const QModelIndex& padre = {}) const override { return padre.isValid() ? 0 : Columnas; }
    QVariant data(const QModelIndex& indice, int rol) const override;
    QVariant headerData(int seccion, Qt::Orientation orientacion, int rol) const override;
    // The cell's text as shown, for the export and the tests.
    QString texto(int fila, int col) const { return data(index(fila, col), Qt::DisplayRole).toString(); }
    // Whether the row's deviation is beyond the threshold: -1 against the
    // result, 1 for it, 0 within.
    int senal(int fila) const;

private:
    void cambiadoTodo();

    std::vector<FilaSeguimiento> filas_;
    int meses_ = 0;
    double umbral_ = 10.0;
    QString formato_ = QStringLiteral("#,0");
};

} // namespace presupuestos
