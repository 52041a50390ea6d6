#pragma once
// The platform services on a real desktop, through Qt's widgets.

#include "common/Plataforma.h"

#include <memory>

#include <QString>

class QTranslator;

class QFileDialog;

namespace presupuestos {

// Makes these the services the process starts with and goes back to.
void predeterminarPlataformaQt();

// Qt's own Spanish texts (file dialogs, standard buttons, context menus of
// text boxes), as the rest of the program speaks Spanish whatever the
// system's language. Installed in the application, which owns it; null
// when the system has no Spanish translation of Qt.
QTranslator* instalarTraduccionesQt();

class CuadroMensajeQt : public ICuadroMensaje {
public:
    int MsgBox(const QString& prompt, int estilo, const QString& titulo) override;
};

class PunteroRatonQt : public IPunteroRaton {
public:
    void establecer(Puntero p) override;
    Puntero actual() const override { return actual_; }

private:
    Puntero actual_ = Puntero::Defecto;
};

class PortapapelesQt : public IPortapapeles {
public:
    QString texto() const override;
    void limpiar() override;
    void ponerTexto(const QString& texto) override;
};

class FocoQt : public IFoco {
public:
    QString nombreControlActivo() const override;
};

class DialogoArchivoQt : public IDialogoArchivo {
public:
    QString abrir(const QString& filtro) override;
    QString guardar(const QString& filtro, const QString& nombrePropuesto) override;
    // The common dialog's filter in Qt's form: "description (patterns);;...".
    static QString filtroQt(const QString& filtro);
    // The dialog both use, made ready to show. It never opens a file it
    // lists: on POSIX, closing any descriptor of a file drops every lock the
    // process holds on it, and the database the worksheet has open may be
    // among the files listed (Qt's own dialog, and the platform's in this
    // process, read the start of each file to tell its type).
    static std::unique_ptr<QFileDialog> crear(const QString& filtro, const QString& nombrePropuesto, bool guardar);
};

} // namespace presupuestos
