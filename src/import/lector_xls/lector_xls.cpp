// Reads the first sheet of an Excel 97-2003 workbook with FreeXL and writes
// its cells to standard output for the import, which runs this program
// rather than calling FreeXL itself: crafted files make FreeXL read past
// its buffers, and whatever that does here ends this process only.
//
//   presupuestos_lector_xls FICHERO MAX_CELDAS MAX_BYTES_TEXTO
//
// Output, little-endian: "PXLS", u32 length + UTF-8 sheet name, then one
// record per non-empty cell: u8 kind (1 number, 2 text), u32 row and u16
// column (both from 0), then an f64, or u32 length + UTF-8 bytes; a 0 byte
// ends the list. Exit status: 0 done; 2 bad arguments; 3 password; 4 no
// sheet; 5 too many cells; 6 too much text; 100 + n for FreeXL's error -n.

#include <freexl.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void escribir(const void* p, std::size_t n) { std::fwrite(p, 1, n, stdout); }

void u32(std::uint32_t v)
{
    const unsigned char b[4] = {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8),
                                static_cast<unsigned char>(v >> 16), static_cast<unsigned char>(v >> 24)};
    escribir(b, 4);
}

void texto(const char* t)
{
    const std::size_t n = t ? std::strlen(t) : 0;
    u32(static_cast<std::uint32_t>(n));
    escribir(t, n);
}

int salir(const void* h, int estado)
{
    if (h)
        freexl_close(h);
    std::fflush(stdout);
    return estado;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    const unsigned long long maxCeldas = std::strtoull(argv[2], nullptr, 10);
    const unsigned long long maxTexto = std::strtoull(argv[3], nullptr, 10);

    const void* h = nullptr;
    int r = freexl_open(argv[1], &h);
    if (r != FREEXL_OK)
        return salir(h, 100 - r);
    unsigned int valor = 0;
    if (freexl_get_info(h, FREEXL_BIFF_PASSWORD, &valor) == FREEXL_OK && valor == FREEXL_BIFF_OBFUSCATED)
        return salir(h, 3);
    unsigned int hojas = 0;
    if (freexl_get_info(h, FREEXL_BIFF_SHEET_COUNT, &hojas) != FREEXL_OK || hojas == 0)
        return salir(h, 4);
    r = freexl_select_active_worksheet(h, 0);
    if (r != FREEXL_OK)
        return salir(h, 100 - r);
    const char* nombre = nullptr;
    freexl_get_worksheet_name(h, 0, &nombre);
    unsigned int filas = 0;
    unsigned short columnas = 0;
    r = freexl_worksheet_dimensions(h, &filas, &columnas);
    if (r != FREEXL_OK)
        return salir(h, 100 - r);

    escribir("PXLS", 4);
    texto(nombre);
    unsigned long long celdas = 0;
    unsigned long long bytesTexto = 0;
    for (unsigned int f = 0; f < filas; ++f) {
        for (unsigned short c = 0; c < columnas; ++c) {
            FreeXL_CellValue v;
            r = freexl_get_cell_value(h, f, c, &v);
            if (r != FREEXL_OK)
                return salir(h, 100 - r);
            if (v.type == FREEXL_CELL_NULL)
                continue;
            if (++celdas > maxCeldas)
                return salir(h, 5);
            double numero = 0;
            const char* t = nullptr;
            switch (v.type) {
            case FREEXL_CELL_INT: numero = v.value.int_value; break;
            case FREEXL_CELL_DOUBLE: numero = v.value.double_value; break;
            case FREEXL_CELL_TEXT:
            case FREEXL_CELL_SST_TEXT:
            case FREEXL_CELL_DATE:
            case FREEXL_CELL_DATETIME:
            case FREEXL_CELL_TIME: t = v.value.text_value ? v.value.text_value : ""; break;
            default: continue;
            }
            const unsigned char tipo = t ? 2 : 1;
            escribir(&tipo, 1);
            u32(f);
            const unsigned char col[2] = {static_cast<unsigned char>(c), static_cast<unsigned char>(c >> 8)};
            escribir(col, 2);
            if (t) {
                bytesTexto += std::strlen(t);
                if (bytesTexto > maxTexto)
                    return salir(h, 6);
                texto(t);
            } else {
                unsigned char b[8];
                std::memcpy(b, &numero, 8); // x86 and the other usual targets are little-endian
                escribir(b, 8);
            }
        }
    }
    const unsigned char fin = 0;
    escribir(&fin, 1);
    return salir(h, 0);
}
