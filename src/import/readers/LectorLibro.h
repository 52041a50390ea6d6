#pragma once
// Reading the active sheet of a workbook file: Office Open XML (.xlsx)
// through libzip, expat and QXmlStreamReader, Excel 97-2003 (.xls) through FreeXL
// in a helper process (presupuestos_lector_xls).
//
// A workbook comes from the user and may be damaged or hostile, so every
// size is bounded before memory is spent on it: the bytes of each XML part
// as they are inflated (the sizes a zip declares are not trusted), the
// number of shared texts and their characters, the number of cells and the
// nesting of the XML. Document type declarations are refused outright,
// which also rules out entity expansion. Whatever goes wrong ends in one
// VbError (1004, as Excel's Workbooks.Open raises it) whose description
// names the file and the reason in Spanish.

#include "import/readers/HojaExcel.h"

#include <QByteArray>
#include <QString>
#include <memory>

namespace presupuestos {

struct LimitesLibro {
    // Inflated bytes of one XML part of an .xlsx.
    qint64 bytesParte = 256LL * 1024 * 1024;
    // Size of an .xls file (FreeXL keeps it whole in memory).
    qint64 bytesFicheroXls = 256LL * 1024 * 1024;
    // Entries of the zip container.
    qint64 entradasZip = 10000;
    // Shared texts of the workbook and all their characters together.
    qint64 textos = 2000000;
    qint64 caracteresTextos = 64LL * 1024 * 1024;
    // Characters of one cell's text (Excel's own limit).
    qint64 caracteresCelda = 32767;
    // Cells with a value on the sheet.
    qint64 celdas = 8000000;
    // Nesting of XML elements.
    int profundidadXml = 64;
};

enum class FormatoLibro { Desconocido, Xlsx, Xls };

// Tells the format by the file's first bytes (a zip or a compound file);
// the extension does not count.
FormatoLibro formatoDe(const QByteArray& cabecera);

// The error for a workbook that cannot be read: "No se puede leer el libro
// 'nombre': detalle."
class VbError;
VbError errorLibro(const QString& nombreLibro, const QString& detalle);
// The error of an installation that lacks the .xls reader's program (as
// ActiveX names a component it cannot create): no fault of the workbook.
inline constexpr int kFaltaLectorXls = 429;

class LectorXlsx {
public:
    // The sheet the workbook opens on (workbookView activeTab, else the first).
    static std::unique_ptr<HojaExcel> leerFichero(const QString& ruta, const LimitesLibro& limites = {});
    // The same from bytes in memory; nombreLibro only names it in errors.
    static std::unique_ptr<HojaExcel> leerMemoria(const QByteArray& datos, const QString& nombreLibro,
                                                  const LimitesLibro& limites = {});
    // The same with the sheet read by expat alone. The quicker scan tried
    // first must give the same sheet, or the same error, for every input:
    // the tests and the fuzz target hold the two side by side.
    static std::unique_ptr<HojaExcel> leerMemoriaConExpat(const QByteArray& datos, const QString& nombreLibro,
                                                          const LimitesLibro& limites = {});
};

class LectorXls {
public:
    // FreeXL does not say which sheet was active when the workbook was
    // saved, so the first sheet is read.
    static std::unique_ptr<HojaExcel> leerFichero(const QString& ruta, const LimitesLibro& limites = {});
    // The helper that runs FreeXL: $PRESUPUESTOS_LECTOR_XLS when set, else
    // beside the application, else where the build put it.
    static QString programa();
};

} // namespace presupuestos
