#pragma once
// Numbers as a Spanish Windows shows and reads them: "." groups thousands
// (also in four-digit numbers: 1.234), "," separates decimals.

#include "common/Currency.h"

#include <QString>
#include <cstdint>

namespace presupuestos::es {

// "#,0" for 0 decimals, otherwise "#,0." followed by that many zeros.
QString formatoNumero(int decimales);

// Formats with a display pattern of the kind the worksheet uses: "#,0",
// "#,0.00", "0.00", "0%". Rounds halves away from zero, as display
// formatting does; a value that rounds to zero is shown without sign.
QString formatear(Currency valor, const QString& formato);
QString formatear(double valor, const QString& formato);

// Such a pattern read once, for formatting many values with it.
struct FormatoNumerico {
    std::uint8_t decimales = 0;
    bool agrupar = false;   // "." between groups of three digits
    bool porcentaje = false;
    bool operator==(const FormatoNumerico&) const = default;
};
FormatoNumerico leerFormato(const QString& formato);
// Ten-thousandths of any magnitude (an exact sum, say) in the format.
QString formatear(__int128 raw, const FormatoNumerico& formato);

// True when the text reads as a number under Spanish settings: blanks
// around it, an optional sign (leading, or trailing as in "5-"), digits with
// "." as thousands separator, an optional "," and decimals, an optional
// exponent, and an optional euro sign.
bool esNumerico(const QString& texto);

// Reads such a text as currency (four decimals, halves to even).
// Returns false when the text is not numeric; throws Overflow when the
// number does not fit.
bool intentarMoneda(const QString& texto, Currency& valor);
// The plain forms only, read straight into ten-thousandths: an optional
// leading minus, digits (with conMillares, points between them, as the
// worksheet writes amounts), an optional comma and at most four decimals.
// False for anything else, which is left to the full reading.
bool leerImporteSencillo(const QString& texto, Currency& valor, bool conMillares);
// As above, raising the type-mismatch error for a text that is not numeric.
Currency aMoneda(const QString& texto);

// Whole number of a text for the spinner and year boxes: the leading
// digits (with sign) of the trimmed text, 0 when there are none.
int valEntero(const QString& texto);

// Full month name with its first letter upper case: 1 -> "Enero".
QString nombreMes(int mes);

} // namespace presupuestos::es
