#include "host/modPublic.h"

namespace presupuestos::modPublic {

Sesion SesionActiva;
std::shared_ptr<IEmpresa>& EmpresaActiva = SesionActiva.empresa;
std::shared_ptr<Conexion>& ConexionActiva = SesionActiva.conexion;
qint16& EjercicioActivo = SesionActiva.ejercicio;

void Liberar()
{
    ConexionActiva.reset();
    EmpresaActiva.reset();
}

} // namespace presupuestos::modPublic
