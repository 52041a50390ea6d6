#pragma once
// What the forms need from the desktop, behind small interfaces so that
// tests can answer message boxes and observe the pointer and the clipboard.

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>

namespace presupuestos {

// Message box styles and answers, with the values the forms use.
namespace vb {
constexpr int OKOnly = 0;
constexpr int YesNo = 4;
constexpr int Critical = 16;
constexpr int Question = 32;
constexpr int Exclamation = 48;
constexpr int Information = 64;
constexpr int DefaultButton2 = 256;

constexpr int RespuestaOK = 1;
constexpr int RespuestaCancel = 2;
constexpr int RespuestaYes = 6;
constexpr int RespuestaNo = 7;
} // namespace vb

class ICuadroMensaje {
public:
    virtual ~ICuadroMensaje() = default;
    // Shows a message box; returns the button pressed (vb::Respuesta*).
    virtual int MsgBox(const QString& prompt, int estilo, const QString& titulo) = 0;
};

enum class Puntero { Defecto = 0, RelojArena = 11 };

class IPunteroRaton {
public:
    virtual ~IPunteroRaton() = default;
    virtual void establecer(Puntero p) = 0;
    virtual Puntero actual() const = 0;
};

class IPortapapeles {
public:
    virtual ~IPortapapeles() = default;
    virtual QString texto() const = 0;
    virtual void limpiar() = 0;
    virtual void ponerTexto(const QString& texto) = 0;
};

class IFoco {
public:
    virtual ~IFoco() = default;
    // objectName of the control that has the keyboard focus, empty if none.
    virtual QString nombreControlActivo() const = 0;
};

// The common dialog's ShowOpen. The filter is written as the common dialog
// takes it: description|pattern pairs joined by "|".
class IDialogoArchivo {
public:
    // Error the common dialog raises on cancel when asked to.
    static constexpr int ErrorCancelar = 32755;

    virtual ~IDialogoArchivo() = default;
    // Returns the chosen path; empty when the user cancelled.
    virtual QString abrir(const QString& filtro) = 0;
    // The same for a file to write, proposing a name; the dialog asks
    // before a file is replaced.
    virtual QString guardar(const QString& filtro, const QString& nombrePropuesto) = 0;
};

// The services in force. The layer that owns the windows gives the ones a
// process starts with; tests put recording ones in for a while.
class Plataforma {
public:
    struct Servicios {
        std::shared_ptr<ICuadroMensaje> mensajes;
        std::shared_ptr<IPunteroRaton> puntero;
        std::shared_ptr<IPortapapeles> portapapeles;
        std::shared_ptr<IFoco> foco;
        std::shared_ptr<IDialogoArchivo> dialogoArchivo;
    };

    static ICuadroMensaje& mensajes();
    static IPunteroRaton& puntero();
    static IPortapapeles& portapapeles();
    static IFoco& foco();
    static IDialogoArchivo& dialogoArchivo();

    // Puts in a set that fabrica makes, and makes a new one with it on
    // every restaurar().
    static void predeterminar(std::function<Servicios()> fabrica);
    static void instalar(std::shared_ptr<ICuadroMensaje> m, std::shared_ptr<IPunteroRaton> p,
                         std::shared_ptr<IPortapapeles> c, std::shared_ptr<IFoco> f,
                         std::shared_ptr<IDialogoArchivo> d = nullptr);
    static void restaurar();
};

} // namespace presupuestos
