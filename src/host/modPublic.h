#pragma once
// What the host hands over: the company, the one connection every statement
// runs on, and the fiscal year being budgeted. The three slots are the
// fields of one session, the host's: whichever setter of the host class
// wrote a slot last is what the worksheet uses, and the year the worksheet
// moves to is what the host reads back. The forms hand that session to the
// classes below them, which never read these slots.

#include "sesion/Sesion.h"

namespace presupuestos::modPublic {

extern Sesion SesionActiva;
extern std::shared_ptr<IEmpresa>& EmpresaActiva;
extern std::shared_ptr<Conexion>& ConexionActiva;
extern qint16& EjercicioActivo;

// Releases the shared state; the host does this before it ends, since the
// connection must close while the database layer still exists.
void Liberar();

} // namespace presupuestos::modPublic
