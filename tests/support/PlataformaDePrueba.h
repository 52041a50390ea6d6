#pragma once
// Platform services that record what the forms ask of them and answer as a
// test says, in place of the desktop's.

#include "common/Plataforma.h"

#include <QString>
#include <memory>
#include <vector>

namespace presupuestos {

struct MensajeMostrado {
    QString prompt;
    int estilo = 0;
    QString titulo;
    bool operator==(const MensajeMostrado&) const = default;
};
inline void PrintTo(const MensajeMostrado& m, std::ostream* os)
{
    *os << '[' << m.titulo.toStdString() << "] " << m.estilo << ' ' << m.prompt.toStdString();
}

class CuadroMensajeGrabado : public ICuadroMensaje {
public:
    int MsgBox(const QString& prompt, int estilo, const QString& titulo) override;
    // Answers given in order; when they run out, OK (or Yes for Yes/No boxes).
    std::vector<int> respuestas;
    std::vector<MensajeMostrado> mostrados;
};

class PunteroRatonGrabado : public IPunteroRaton {
public:
    void establecer(Puntero p) override { actual_ = p; historial.push_back(p); }
    Puntero actual() const override { return actual_; }
    std::vector<Puntero> historial;

private:
    Puntero actual_ = Puntero::Defecto;
};

class PortapapelesGrabado : public IPortapapeles {
public:
    QString texto() const override { return contenido; }
    void limpiar() override { contenido.clear(); }
    void ponerTexto(const QString& t) override { contenido = t; }
    QString contenido;
};

class FocoGrabado : public IFoco {
public:
    QString nombreControlActivo() const override { return nombre; }
    QString nombre;
};

class DialogoArchivoGrabado : public IDialogoArchivo {
public:
    QString abrir(const QString& filtro) override;
    QString guardar(const QString& filtro, const QString& nombrePropuesto) override;
    // Paths chosen in order, in both kinds of dialog (an empty one cancels);
    // when they run out, cancel.
    std::vector<QString> respuestas;
    // The names the save dialogs proposed.
    std::vector<QString> propuestos;
    // The filter of every dialog shown.
    std::vector<QString> filtros;
};

// Installs recording services for the lifetime of the object.
class PlataformaDePrueba {
public:
    PlataformaDePrueba();
    ~PlataformaDePrueba();
    std::shared_ptr<CuadroMensajeGrabado> mensajes;
    std::shared_ptr<PunteroRatonGrabado> puntero;
    std::shared_ptr<PortapapelesGrabado> portapapeles;
    std::shared_ptr<FocoGrabado> foco;
    std::shared_ptr<DialogoArchivoGrabado> dialogoArchivo;
};

} // namespace presupuestos
