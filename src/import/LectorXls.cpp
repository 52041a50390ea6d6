#include "import/LectorLibro.h"

#include "common/VbError.h"

#include <QFile>
#include <QFileInfo>
#include <freexl.h>

namespace presupuestos {

namespace {

constexpr int kFilasXls = 65536;
constexpr int kColumnasXls = 256;

// FreeXL wants its handle closed even when opening failed.
class ManejadorXls {
public:
    ~ManejadorXls()
    {
        if (h_)
            freexl_close(h_);
    }
    const void** direccion() { return &h_; }
    const void* get() const { return h_; }

private:
    const void* h_ = nullptr;
};

QString motivo(int codigo)
{
    switch (codigo) {
    case FREEXL_FILE_NOT_FOUND: return QStringLiteral("no se encuentra el archivo");
    case FREEXL_INSUFFICIENT_MEMORY: return QStringLiteral("no hay memoria suficiente");
    case FREEXL_INVALID_CFBF_HEADER:
    case FREEXL_CFBF_INVALID_SIGNATURE:
    case FREEXL_BIFF_WORKBOOK_NOT_FOUND: return QStringLiteral("el archivo no es un libro de Excel 97-2003");
    case FREEXL_UNSUPPORTED_CHARSET: return QStringLiteral("el juego de caracteres del libro no se admite");
    default: return QStringLiteral("el archivo está dañado o incompleto");
    }
}

} // namespace

std::unique_ptr<HojaExcel> LectorXls::leerFichero(const QString& ruta, const LimitesLibro& limites)
{
    const QFileInfo info(ruta);
    const QString libro = info.fileName();
    if (!info.isFile())
        throw errorLibro(libro, motivo(FREEXL_FILE_NOT_FOUND));
    if (info.size() > limites.bytesFicheroXls)
        throw errorLibro(libro, QStringLiteral("el archivo ocupa más de %1 MB").arg(limites.bytesFicheroXls / (1024 * 1024)));

    ManejadorXls h;
    int r = freexl_open(QFile::encodeName(ruta).constData(), h.direccion());
    if (r != FREEXL_OK)
        throw errorLibro(libro, motivo(r));

    unsigned int valor = 0;
    if (freexl_get_info(h.get(), FREEXL_BIFF_PASSWORD, &valor) == FREEXL_OK && valor == FREEXL_BIFF_OBFUSCATED)
        throw errorLibro(libro, QStringLiteral("el libro está protegido con contraseña"));
    unsigned int hojas = 0;
    if (freexl_get_info(h.get(), FREEXL_BIFF_SHEET_COUNT, &hojas) != FREEXL_OK || hojas == 0)
        throw errorLibro(libro, QStringLiteral("el libro no tiene hojas"));

    r = freexl_select_active_worksheet(h.get(), 0);
    if (r != FREEXL_OK)
        throw errorLibro(libro, motivo(r));
    const char* nombre = nullptr;
    freexl_get_worksheet_name(h.get(), 0, &nombre);
    unsigned int filas = 0;
    unsigned short columnas = 0;
    r = freexl_worksheet_dimensions(h.get(), &filas, &columnas);
    if (r != FREEXL_OK)
        throw errorLibro(libro, motivo(r));
    if (filas > static_cast<unsigned int>(kFilasXls) || columnas > kColumnasXls)
        throw errorLibro(libro, motivo(FREEXL_CRAFTED_FILE));

    auto hoja = std::make_unique<HojaExcel>(kFilasXls, kColumnasXls, nombre ? QString::fromUtf8(nombre) : QString());
    qint64 celdas = 0;
    qint64 caracteres = 0;
    for (unsigned int f = 0; f < filas; ++f) {
        for (unsigned short c = 0; c < columnas; ++c) {
            FreeXL_CellValue v;
            r = freexl_get_cell_value(h.get(), f, c, &v);
            if (r != FREEXL_OK)
                throw errorLibro(libro, motivo(r));
            if (v.type == FREEXL_CELL_NULL)
                continue;
            if (++celdas > limites.celdas)
                throw errorLibro(libro, QStringLiteral("la hoja tiene más de %1 celdas con datos").arg(limites.celdas));
            const int fila = static_cast<int>(f) + 1;
            const int columna = c + 1;
            switch (v.type) {
            case FREEXL_CELL_INT: hoja->ponerNumero(fila, columna, v.value.int_value); break;
            case FREEXL_CELL_DOUBLE: hoja->ponerNumero(fila, columna, v.value.double_value); break;
            case FREEXL_CELL_TEXT:
            case FREEXL_CELL_SST_TEXT:
            case FREEXL_CELL_DATE:
            case FREEXL_CELL_DATETIME:
            case FREEXL_CELL_TIME: {
                // FreeXL gives dates and times as ISO texts.
                const QString t = QString::fromUtf8(v.value.text_value ? v.value.text_value : "");
                caracteres += t.size();
                if (caracteres > limites.caracteresTextos)
                    throw errorLibro(libro, QStringLiteral("los textos del libro suman más de %1 caracteres")
                                                .arg(limites.caracteresTextos));
                hoja->ponerTexto(fila, columna, t);
                break;
            }
            default: break;
            }
        }
    }
    hoja->cerrar();
    return hoja;
}

} // namespace presupuestos
