#pragma once
// Reads clipboard text as pasted from a spreadsheet: lines of tab-separated
// Spanish numbers. A plain function of the text, so that it can be tested
// and fuzzed without a window.

#include "common/Currency.h"

#include <QString>
#include <optional>
#include <vector>

namespace presupuestos {

class LectorPortapapeles {
public:
    struct Bloque {
        // The shape of the text: its lines and the fields of its first line.
        int lineas = 0;
        int ancho = 0;
        // Values of the fields that can be written, [line][field]: at most
        // the limits given to leer(), whatever the text's shape, so memory
        // follows the cells a paste can touch rather than the text.
        std::vector<std::vector<Currency>> valores;
        bool unValor() const { return lineas == 1 && ancho == 1; }
    };

    // Empty when the clipboard holds no text, or when any field (written or
    // not) is neither blank nor a number: one bad field cancels the paste.
    // Values are rounded to the given decimals. A line with fewer fields than
    // the first raises the subscript error. Full stops are thousands
    // separators, the comma is the decimal one; lines end in CR LF, CR or LF.
    static std::optional<Bloque> leer(const QString& texto, int decimales, int maxLineas, int maxCampos);
};

} // namespace presupuestos
