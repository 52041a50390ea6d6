#pragma once
// The numeric keypad's decimal key. Amounts are typed the Spanish way, where
// "." separates thousands: the key types the decimal comma whatever the
// keyboard layout makes it send, or "1.5" would be read as 15.

class QEvent;
class QKeyEvent;
class QObject;

namespace presupuestos {

bool esTeclaDecimal(const QKeyEvent* e);
// For an event filter on a line edit: types "," for the keypad's decimal key
// and answers true; answers false for any other event or widget.
bool escribirComaDecimal(QObject* editor, QEvent* e);

} // namespace presupuestos
