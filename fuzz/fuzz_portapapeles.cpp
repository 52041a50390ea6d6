// libFuzzer target for the clipboard reader, which takes whatever text a
// spreadsheet (or anything else) left on the clipboard. The first three bytes
// choose the decimals and the cells a paste could reach; the rest is the text
// as UTF-8. Besides the sanitizers' own checks it asserts that
//  - the only errors raised are the subscript error of a short line and
//    Overflow;
//  - what is kept never exceeds the cells a paste can reach, whatever the
//    text's shape (memory follows the grid, not the text);
//  - every kept value is rounded to the decimals asked for.
//
//   fuzz_portapapeles -dict=fuzz/portapapeles.dict CORPUS_DIR SEED_DIR

#include "common/VbError.h"
#include "worksheet/core/LectorPortapapeles.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

using namespace presupuestos;

namespace {
[[noreturn]] void falla(const char* que)
{
    std::fprintf(stderr, "%s\n", que);
    std::abort();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* datos, std::size_t n)
{
    if (n < 3)
        return 0;
    const int decimales = datos[0] % 5;
    const int maxLineas = datos[1];
    const int maxCampos = datos[2] % 13;
    const QString texto = QString::fromUtf8(reinterpret_cast<const char*>(datos + 3), static_cast<qsizetype>(n - 3));
    try {
        const auto b = LectorPortapapeles::leer(texto, decimales, maxLineas, maxCampos);
        if (!b)
            return 0;
        if (b->lineas < 1 || b->ancho < 1)
            falla("a block without lines or fields");
        if (b->valores.size() != static_cast<std::size_t>(std::min(b->lineas, maxLineas)))
            falla("lines kept beyond the reachable ones");
        for (const auto& linea : b->valores) {
            if (linea.size() != static_cast<std::size_t>(std::min(b->ancho, maxCampos)))
                falla("fields kept beyond the reachable ones");
            for (const Currency& v : linea)
                if (v.rounded(decimales) != v)
                    falla("a value not rounded to the decimals");
        }
    } catch (const VbError& e) {
        if (e.number() != VbError::SubscriptOutOfRange && e.number() != VbError::Overflow)
            falla("an unexpected error");
    }
    return 0;
}
