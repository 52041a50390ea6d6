// libFuzzer target for the number readers: the Spanish one that reads what
// a user types or pastes (es::esNumerico, es::intentarMoneda) and the plain
// one that reads database texts (Currency::parsePlain). The input is taken as
// UTF-8 text. Besides the sanitizers' own checks it asserts that
//  - the two Spanish readers agree on what is a number, and the only error
//    either parser raises is Overflow;
//  - whatever is read comes back unchanged from its own written forms: the
//    worksheet's display with four decimals, the plain text and the SQL text;
//  - the display with no decimals reads back within half a unit;
//  - a plain text both readers accept gives both the same value.
//
//   fuzz_numeros -dict=fuzz/numeros.dict CORPUS_DIR SEED_DIR

#include "common/Currency.h"
#include "common/NumerosEs.h"
#include "common/VbError.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>

using namespace presupuestos;

namespace {

[[noreturn]] void falla(const char* que, const QString& texto)
{
    std::fprintf(stderr, "%s: \"%s\"\n", que, texto.toUtf8().constData());
    std::abort();
}

// The value read, none when the text is no number; Overflow is reported
// apart, any other error is a failure.
struct Lectura {
    std::optional<Currency> valor;
    bool desborda = false;
};

template <typename Leer>
Lectura leer(const QString& texto, Leer leerTexto)
{
    Lectura l;
    try {
        Currency v;
        if (leerTexto(texto, v))
            l.valor = v;
    } catch (const VbError& e) {
        if (e.number() != VbError::Overflow)
            falla("error que no es Overflow", texto);
        l.desborda = true;
    }
    return l;
}

Currency releer(const QString& escrito, const QString& original, bool plano)
{
    const Lectura l = plano ? leer(escrito, Currency::parsePlain) : leer(escrito, es::intentarMoneda);
    if (!l.valor)
        falla(plano ? "el texto SQL no se relee" : "el texto mostrado no se relee", original);
    return *l.valor;
}

// 922.337.203.685.477,5: from here on the whole units shown are out of range.
constexpr std::int64_t kMitadMaxima = 9223372036854775000;

bool soloAscii(const QString& t)
{
    for (QChar c : t)
        if (c.unicode() >= 128)
            return false;
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QString texto = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));

    const Lectura espanol = leer(texto, es::intentarMoneda);
    if (es::esNumerico(texto) != (espanol.valor.has_value() || espanol.desborda))
        falla("esNumerico no coincide con intentarMoneda", texto);
    if (espanol.valor) {
        const Currency v = *espanol.valor;
        if (releer(es::formatear(v, QStringLiteral("#,0.0000")), texto, false) != v)
            falla("#,0.0000 no devuelve el valor", texto);
        if (releer(v.toPlainText(), texto, false) != v)
            falla("el texto plano no devuelve el valor", texto);
        if (releer(v.toSqlText(), texto, true) != v)
            falla("el texto SQL no devuelve el valor", texto);
        // Whole units round away from zero on display, so the largest
        // values may show one unit past the range.
        const Lectura entero = leer(es::formatear(v, QStringLiteral("#,0")), es::intentarMoneda);
        if (entero.valor) {
            const __int128 diferencia = static_cast<__int128>(entero.valor->raw()) - v.raw();
            if (diferencia > Currency::Scale / 2 || diferencia < -Currency::Scale / 2)
                falla("#,0 se aleja más de media unidad", texto);
        } else if (!entero.desborda || (v.raw() < kMitadMaxima && v.raw() > -kMitadMaxima)) {
            falla("#,0 no se relee", texto);
        }
    }

    const Lectura plano = leer(texto, Currency::parsePlain);
    if (plano.valor) {
        if (releer(plano.valor->toSqlText(), texto, true) != *plano.valor)
            falla("parsePlain no relee su texto SQL", texto);
        // Without a point the Spanish reader reads the same number.
        if (soloAscii(texto) && !texto.contains(QLatin1Char('.')) && espanol.valor != plano.valor)
            falla("los dos lectores discrepan", texto);
    } else if (plano.desborda && soloAscii(texto) && !texto.contains(QLatin1Char('.')) && !espanol.desborda) {
        falla("solo parsePlain desborda", texto);
    }

    (void)es::valEntero(texto);
    return 0;
}
