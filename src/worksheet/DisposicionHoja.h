#pragma once
// What the user arranged of the worksheet window, kept between sessions in
// the application's settings: the window's size and place, and how the
// budget and the history share the width. Nothing the worksheet sets when it
// loads (year, decimals, filters) is kept: each session starts from the data.

#include <QByteArray>
#include <optional>

class QWidget;

namespace presupuestos {

class DisposicionHoja {
public:
    // Off, nothing is read or written: a screenshot is taken at the size the
    // program lays out, and tests leave no settings behind.
    static void setActiva(bool activa);
    static bool activa();

    // The window's geometry as last kept; empty when none was.
    static QByteArray geometria();
    // The budget grid's share (0 to 1) of the width both grids take.
    static std::optional<double> reparto();
    static void guardar(const QWidget& ventana, std::optional<double> reparto);
};

} // namespace presupuestos
