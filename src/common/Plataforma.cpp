#include "common/Plataforma.h"

#include <QtGlobal>

namespace presupuestos {

namespace {

struct Estado {
    Plataforma::Servicios servicios;
    std::function<Plataforma::Servicios()> fabrica;
};

Estado& estado()
{
    static Estado e;
    return e;
}

template <class Servicio>
Servicio& enUso(const std::shared_ptr<Servicio>& s)
{
    // A process that shows windows gives its services before it uses them.
    if (!s)
        qFatal("Plataforma: no platform services were put in");
    return *s;
}

} // namespace

ICuadroMensaje& Plataforma::mensajes() { return enUso(estado().servicios.mensajes); }
IPunteroRaton& Plataforma::puntero() { return enUso(estado().servicios.puntero); }
IPortapapeles& Plataforma::portapapeles() { return enUso(estado().servicios.portapapeles); }
IFoco& Plataforma::foco() { return enUso(estado().servicios.foco); }
IDialogoArchivo& Plataforma::dialogoArchivo() { return enUso(estado().servicios.dialogoArchivo); }

void Plataforma::predeterminar(std::function<Servicios()> fabrica)
{
    estado().fabrica = std::move(fabrica);
    restaurar();
}

void Plataforma::instalar(std::shared_ptr<ICuadroMensaje> m, std::shared_ptr<IPunteroRaton> p,
                          std::shared_ptr<IPortapapeles> c, std::shared_ptr<IFoco> f,
                          std::shared_ptr<IDialogoArchivo> d)
{
    auto& s = estado().servicios;
    if (m) s.mensajes = std::move(m);
    if (p) s.puntero = std::move(p);
    if (c) s.portapapeles = std::move(c);
    if (f) s.foco = std::move(f);
    if (d) s.dialogoArchivo = std::move(d);
}

void Plataforma::restaurar()
{
    auto& e = estado();
    e.servicios = e.fabrica ? e.fabrica() : Servicios();
}

} // namespace presupuestos
