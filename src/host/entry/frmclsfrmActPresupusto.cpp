#include "host/entry/frmclsfrmActPresupusto.h"

#include "host/modPublic.h"
#include "worksheet/frmActPresupusto.h"

namespace presupuestos {

frmclsfrmActPresupusto::frmclsfrmActPresupusto() = default;

frmclsfrmActPresupusto::~frmclsfrmActPresupusto()
{
    if (form_) {
        frmActPresupusto* f = form_;
        f->Unload();
        delete f;
    }
    form_ = nullptr;
}

void frmclsfrmActPresupusto::setEmpresaLarvex(std::shared_ptr<IEmpresa> empresa) { modPublic::EmpresaActiva = std::move(empresa); }

void frmclsfrmActPresupusto::setConexionLarvex(std::shared_ptr<Conexion> conexion) { modPublic::ConexionActiva = std::move(conexion); }

void frmclsfrmActPresupusto::setConexionDrumav(std::shared_ptr<Conexion> conexion) { modPublic::ConexionActiva = std::move(conexion); }

qint16 frmclsfrmActPresupusto::Ejercicio() const { return modPublic::EjercicioActivo; }

void frmclsfrmActPresupusto::setEjercicio(qint16 ejercicio) { modPublic::EjercicioActivo = ejercicio; }

void frmclsfrmActPresupusto::Show(qint16 /*Modal*/, QWidget* OwnerForm)
{
    if (!form_)
        form_ = new frmActPresupusto(OwnerForm);
    form_->Mostrar();
}

} // namespace presupuestos
