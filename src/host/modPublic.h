#pragma once
// What the host hands over, shared by every form and class of the worksheet:
// the company, the one connection every statement runs on, and the fiscal
// year being budgeted.

#include "db/Conexion.h"
#include "host/Empresa.h"

#include <memory>

namespace presupuestos::modPublic {

extern std::shared_ptr<IEmpresa> EmpresaActiva;
extern std::shared_ptr<Conexion> ConexionActiva;
extern qint16 EjercicioActivo;

// Releases the shared state; the host does this before it ends, since the
// connection must close while the database layer still exists.
void Liberar();

} // namespace presupuestos::modPublic
