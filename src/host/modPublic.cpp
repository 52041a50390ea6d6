#include "host/modPublic.h"

namespace presupuestos::modPublic {

std::shared_ptr<IEmpresa> EmpresaActiva;
std::shared_ptr<Conexion> ConexionActiva;
qint16 EjercicioActivo = 0;

void Liberar()
{
    ConexionActiva.reset();
    EmpresaActiva.reset();
}

} // namespace presupuestos::modPublic
