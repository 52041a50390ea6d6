// libFuzzer target for LectorXlsx. An input that starts with "PK" is taken
// as a whole .xlsx; anything else is cut at each 0x1E byte into the sheet,
// the shared texts, workbook.xml and its relationships (missing ones get a
// plain default, or none for the shared texts), stored uncompressed in a
// zip made here, so that the mutations reach the XML rather than dying in
// the deflate stream.
//
//   fuzz_lector_xlsx -dict=fuzz/xlsx.dict CORPUS_DIR SEED_DIR

#include "common/VbError.h"
#include "import/readers/LectorLibro.h"

#include <QByteArray>
#include <QList>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <zip.h>

using namespace presupuestos;

namespace {

const QByteArray kLibro = QByteArrayLiteral(
    "<?xml version=\"1.0\"?><workbook xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" "
    "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">"
    "<sheets><sheet name=\"Hoja1\" sheetId=\"1\" r:id=\"rId1\"/></sheets></workbook>");
const QByteArray kRelacionesLibro = QByteArrayLiteral(
    "<?xml version=\"1.0\"?><Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
    "<Relationship Id=\"rId1\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/worksheet\" "
    "Target=\"worksheets/sheet1.xml\"/>"
    "<Relationship Id=\"rId2\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/sharedStrings\" "
    "Target=\"sharedStrings.xml\"/></Relationships>");

// A zip with the parts stored as they are.
QByteArray zipAlmacenado(const QList<QByteArray>& trozos)
{
    const char* nombres[] = {"xl/worksheets/sheet1.xml", "xl/sharedStrings.xml", "xl/workbook.xml", "xl/_rels/workbook.xml.rels"};
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* destino = zip_source_buffer_create(nullptr, 0, 0, &error);
    if (!destino)
        return {};
    zip_source_keep(destino);
    zip_t* z = zip_open_from_source(destino, ZIP_TRUNCATE, &error);
    if (!z) {
        zip_source_free(destino);
        zip_source_free(destino);
        return {};
    }
    for (int i = 0; i < 4; ++i) {
        if (i == 1 && trozos.size() < 2)
            continue;
        const QByteArray& parte = i < trozos.size() ? trozos[i] : (i == 2 ? kLibro : kRelacionesLibro);
        zip_source_t* s = zip_source_buffer(z, parte.constData(), static_cast<zip_uint64_t>(parte.size()), 0);
        const zip_int64_t indice = s ? zip_file_add(z, nombres[i], s, 0) : -1;
        if (indice < 0) {
            zip_source_free(s);
            continue;
        }
        zip_set_file_compression(z, static_cast<zip_uint64_t>(indice), ZIP_CM_STORE, 0);
    }
    QByteArray bytes;
    if (zip_close(z) == 0 && zip_source_open(destino) == 0) {
        char trozo[8192];
        zip_int64_t n;
        while ((n = zip_source_read(destino, trozo, sizeof trozo)) > 0)
            bytes.append(trozo, static_cast<qsizetype>(n));
        zip_source_close(destino);
    } else {
        zip_discard(z);
    }
    zip_source_free(destino);
    zip_error_fini(&error);
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Limits small enough that one input stays quick; the checks are the
    // same code whatever the numbers.
    static const LimitesLibro limites = [] {
        LimitesLibro l;
        l.bytesParte = 4 * 1024 * 1024;
        l.textos = 20000;
        l.caracteresTextos = 1024 * 1024;
        l.celdas = 50000;
        return l;
    }();

    const QByteArray entrada = QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QByteArray libro = entrada.startsWith("PK") ? entrada : zipAlmacenado(entrada.split('\x1e'));
    if (libro.isEmpty())
        return 0;
    // The quick scan of the sheet and expat must agree on every input: the
    // same sheet, or the same error.
    std::unique_ptr<HojaExcel> hoja, conExpat;
    QString error, errorExpat;
    try {
        hoja = LectorXlsx::leerMemoria(libro, QStringLiteral("fuzz.xlsx"), limites);
    } catch (const VbError& e) {
        error = e.description();
    }
    try {
        conExpat = LectorXlsx::leerMemoriaConExpat(libro, QStringLiteral("fuzz.xlsx"), limites);
    } catch (const VbError& e) {
        errorExpat = e.description();
    }
    if (error != errorExpat || !hoja != !conExpat || (hoja && !(*hoja == *conExpat))) {
        std::fprintf(stderr, "quick scan and expat differ:\n  %s\n  %s\n", qPrintable(error), qPrintable(errorExpat));
        std::abort();
    }
    if (!hoja)
        return 0;
    try {
        // Walk what the import would ask.
        const int ultima = hoja->filaFinArriba(5);
        for (int f = 1; f <= ultima + 1 && f <= 50; ++f)
            for (int c = 1; c <= 16; ++c) {
                const ValorExcel v = hoja->valor(f, c);
                (void)hoja->texto(f, c);
                (void)v;
            }
    } catch (const VbError&) {
    }
    return 0;
}
