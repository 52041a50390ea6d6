#pragma once
// The worksheet as the host opens it for a measurement: company 1 on the
// connection, shown, the deferred statistics fetch of the opening run
// before any clock starts and the log emptied.

#include "db/Conexion.h"
#include "host/entry/frmclsfrmActPresupusto.h"
#include "sesion/Empresa.h"

#include <memory>

namespace presupuestos::medida {

inline std::unique_ptr<frmclsfrmActPresupusto> abrirHoja(const std::shared_ptr<Conexion>& conexion)
{
    auto clase = std::make_unique<frmclsfrmActPresupusto>();
    clase->setEmpresaLarvex(cargarEmpresa(*conexion, 1));
    clase->setConexionLarvex(conexion);
    clase->Show();
    conexion->completarPendientes();
    conexion->limpiarRegistro();
    return clase;
}

} // namespace presupuestos::medida
