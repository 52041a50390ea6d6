#pragma once
// What the forms ask of the window manager.

class QWidget;

namespace presupuestos {

// Keeps a window above all others.
void MantenerEncima(QWidget* form);

} // namespace presupuestos
