#include "PlataformaDePrueba.h"

namespace presupuestos {

QString DialogoArchivoGrabado::abrir(const QString& filtro)
{
    filtros.push_back(filtro);
    if (respuestas.empty())
        return QString();
    const QString r = respuestas.front();
    respuestas.erase(respuestas.begin());
    return r;
}

QString DialogoArchivoGrabado::guardar(const QString& filtro, const QString& nombrePropuesto)
{
    propuestos.push_back(nombrePropuesto);
    return abrir(filtro);
}

int CuadroMensajeGrabado::MsgBox(const QString& prompt, int estilo, const QString& titulo)
{
    mostrados.push_back({prompt, estilo, titulo});
    if (!respuestas.empty()) {
        const int r = respuestas.front();
        respuestas.erase(respuestas.begin());
        return r;
    }
    return (estilo & 0x0F) == vb::YesNo ? vb::RespuestaYes : vb::RespuestaOK;
}

PlataformaDePrueba::PlataformaDePrueba()
    : mensajes(std::make_shared<CuadroMensajeGrabado>()),
      puntero(std::make_shared<PunteroRatonGrabado>()),
      portapapeles(std::make_shared<PortapapelesGrabado>()),
      foco(std::make_shared<FocoGrabado>()),
      dialogoArchivo(std::make_shared<DialogoArchivoGrabado>())
{
    Plataforma::instalar(mensajes, puntero, portapapeles, foco, dialogoArchivo);
}

PlataformaDePrueba::~PlataformaDePrueba() { Plataforma::restaurar(); }

} // namespace presupuestos
