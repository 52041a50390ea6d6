#pragma once
// Writes budget rows to an .xlsx workbook that the import reads back as it
// stands, with its default first row (2) and first column (A):
//
//   A department code, B account code, C..N the twelve months,
//   O account name, P department name, Q total, R method, S value,
//   T months typed by hand (bit m-1 for month m).
//
// Row 1 holds the captions. The months carry every stored decimal, not the
// rounding the worksheet shows: a month the import would read back as a
// different amount (beyond what a double holds to the ten-thousandth) is
// written as text in Spanish notation, which the import reads exactly.
// Columns O..T are beyond the thirteen the import takes, so it ignores
// them. Everything is plain data: the worksheet reads the rows, this only
// lays them out.

#include "common/Currency.h"

#include <QString>
#include <QStringList>
#include <array>
#include <functional>
#include <vector>

namespace presupuestos {

struct FilaLibro {
    qint32 dpto = 0;
    QString cuenta;
    QString nombre;
    QString dptoNombre;
    std::array<Currency, 12> meses{};
    // The budget's calculation data; a sheet without it leaves R..T out.
    qint32 metodo = 0;
    Currency valor;
    qint32 manual = 0;
};

// A cell of a sheet laid out as it is given: a text, or an amount in
// ten-thousandths (a sum may go beyond a currency's range).
struct CeldaLibro {
    QString texto;
    bool esImporte = false;
    __int128 importe = 0;
};

struct HojaLibro {
    QString nombre; // the tab's caption
    bool conDatosCalculo = true;
    std::vector<FilaLibro> filas;
    // A sheet of its own layout instead (a comparison, not for the import):
    // its captions and rows, when titulos is not empty.
    QStringList titulos{};
    std::vector<std::vector<CeldaLibro>> celdas{};
};

class ExportadorLibro {
public:
    // Rows written so far and in all, now and then and once at the end.
    using Progreso = std::function<void(qint64 hechas, qint64 total)>;

    // Writes the sheets in order; the workbook opens on the first. Raises a
    // VbError (1004) naming the file when it cannot be written.
    static void escribir(const QString& ruta, const std::vector<HojaLibro>& hojas, const Progreso& progreso = {});

    // Whether the amount goes out as a number: its nearest double, written
    // with the sixteen digits the writer gives numbers, reads back as the
    // same amount. Holds for every amount under 2^38 in size.
    static bool comoNumero(Currency importe);
    // The nearest double to the amount (one rounding, not two).
    static double numero(Currency importe);
};

} // namespace presupuestos
