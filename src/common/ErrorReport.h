#pragma once
// The forms' error handlers: restore the pointer where the procedure set the
// hourglass, then show the description with the critical icon, titled with
// the qualified procedure name ("frmActPresupusto:CargarPresupuesto"),
// preceded by "[line] " when the failing statement has a line number.

#include "common/VbError.h"

#include <QString>
#include <exception>
#include <functional>

namespace presupuestos {

// Title of the error box for a qualified name and a line number.
QString tituloError(const QString& nombreCalificado, int linea);

void mostrarError(const VbError& error, const QString& nombreCalificado, bool restaurarPuntero = false);

// Runs a form procedure under the convention: any error ends it and is
// shown. Returns false when the procedure ended through an error.
bool conManejador(const QString& nombreCalificado, const std::function<void()>& cuerpo,
                  bool restaurarPuntero = false);

// Turns any exception into the system's error type.
VbError comoVbError(const std::exception& e);

} // namespace presupuestos
