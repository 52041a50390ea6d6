#pragma once
// What the account and department filters read from the database, as plain
// rows, and the filter table they write: one row per account the list shows
// and department of the company, which the budget is read through.

#include "worksheet/core/ArbolCategorias.h"
#include "worksheet/core/FiltroCuentas.h"
#include "worksheet/core/FiltroDepartamentos.h"

#include <QString>
#include <utility>
#include <vector>

namespace presupuestos {

class Conexion;

class RepositorioFiltros {
public:
    // conexion must outlive the repository.
    RepositorioFiltros(Conexion& conexion, QString tablaFiltro, int codEmpresa)
        : conexion_(conexion), tablaFiltro_(std::move(tablaFiltro)), codEmpresa_(codEmpresa)
    {
    }

    // The categories of the balance configuration, in the order of their codes.
    std::vector<FilaCategoria> categorias() const;
    // The latest fiscal year that has accounts; ejercicioActual when the
    // read gives no row. A company without accounts has no such year, which
    // raises "Invalid use of Null".
    qint16 ultimoEjercicioCuentas(qint16 ejercicioActual) const;
    // The account lines and the accounts each takes in from the chart of
    // accounts of that year (detail accounts: those of digitosCuenta
    // characters), in the order of the lines' codes. Only the lines to
    // budget, or every line.
    std::vector<CuentaFiltro> cuentas(int ultimoEjercicio, int digitosCuenta, bool soloPresupuestables) const;
    std::vector<Departamento> departamentos() const;

    void vaciarTablaFiltro();
    // The account into the filter table, once for every department of the
    // company, in one statement.
    void insertarCuenta(const CuentaFiltro& cuenta);

private:
    Conexion& conexion_;
    QString tablaFiltro_;
    int codEmpresa_;
};

} // namespace presupuestos
