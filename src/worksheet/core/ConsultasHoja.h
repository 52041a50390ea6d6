#pragma once
// The SQL texts the worksheet composes to fill its grids and filters, as
// plain functions so that they can be checked without a window.

#include <QString>

namespace presupuestos::consultas {

// Department and account conditions shared by the budget and history reads.
QString condicionesFiltro(const QString& listaDptos, const QString& cuentaSeleccionada, bool hayCuenta);

QString presupuesto(const QString& tablaFiltro, int codEmpresa, int ejercicio, bool verPresupuestables,
                    const QString& listaDptos, const QString& cuentaSeleccionada, bool hayCuenta);

QString historico(const QString& tablaFiltro, const QString& tablaEstadisticas, int codEmpresa, int ejercicioHist,
                  const QString& listaDptos, const QString& cuentaSeleccionada, bool hayCuenta);

QString sondeoEstadisticas(const QString& tablaEstadisticas, int ejercicioHist);

// Inserts the three statistic concepts of a year from the retail database.
QString insertarEstadisticas(const QString& tablaEstadisticas, int ejercicioHist, int empresaRetail, const QString& baseRetail);

QString empresaRetail(const QString& baseRetail, int codEmpresa);

QString categorias(int codEmpresa);
QString ultimoEjercicioCuentas(int codEmpresa);
QString cuentasFiltro(int codEmpresa, int ultimoEjercicio, int digitosCuenta, bool verPresupuestables);
// One account line of the filter into the filter table, for every department.
QString insertarFiltro(const QString& tablaFiltro, const QString& codigo, const QString& cuenta, const QString& nombre,
                       int codEmpresa);

QString departamentos(int codEmpresa);

} // namespace presupuestos::consultas
