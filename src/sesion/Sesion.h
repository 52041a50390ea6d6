#pragma once
// What a worksheet works on: the company, the one connection every
// statement runs on, and the fiscal year being budgeted. The classes below
// the forms are handed a session when they are made and keep a reference to
// it, reading it when they need it (the year at every call), so a year the
// worksheet moves to, or a connection set again, reaches them as it is set.
// The session outlives them. The host's session is its three slots
// (host/modPublic.h); a test, a benchmark or a second user makes its own.

#include "db/Conexion.h"
#include "sesion/Empresa.h"

#include <memory>

namespace presupuestos {

struct Sesion {
    std::shared_ptr<IEmpresa> empresa;
    std::shared_ptr<Conexion> conexion;
    qint16 ejercicio = 0;
};

} // namespace presupuestos
