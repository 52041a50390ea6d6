#include "common/NumerosEs.h"

#include "common/VbError.h"

#include <QLocale>
#include <algorithm>
#include <cmath>
#include <cstdint>

namespace presupuestos::es {

namespace {

using Patron = FormatoNumerico;

Patron leerPatron(const QString& formato)
{
    Patron p;
    const int punto = formato.indexOf(QLatin1Char('.'));
    const QString entero = punto >= 0 ? formato.left(punto) : formato;
    p.agrupar = entero.contains(QLatin1Char(','));
    if (punto >= 0) {
        int decimales = 0;
        for (int i = punto + 1; i < formato.size(); ++i) {
            const QChar c = formato[i];
            if (c == QLatin1Char('0') || c == QLatin1Char('#'))
                ++decimales;
            else
                break;
        }
        p.decimales = static_cast<std::uint8_t>(std::min(decimales, 255));
    }
    p.porcentaje = formato.contains(QLatin1Char('%'));
    return p;
}

// Rounds ten-thousandths to the given decimals, halves away from zero, and
// writes the text from the right into a buffer sized for the worst case:
// grids format tens of thousands of cells per load, so no string is built
// digit by digit.
QString componer(__int128 raw, const Patron& p)
{
    // raw counts ten-thousandths of the value to show (already scaled for %).
    const int decimales = p.decimales;
    const int usados = std::min(decimales, 4);
    __int128 escala = 1;
    for (int k = usados; k < 4; ++k)
        escala *= 10;
    const bool negativo = raw < 0;
    // The magnitude of the most negative value still fits unsigned.
    unsigned __int128 mag = negativo ? static_cast<unsigned __int128>(-(raw + 1)) + 1 : static_cast<unsigned __int128>(raw);
    unsigned __int128 q = mag / static_cast<unsigned __int128>(escala);
    const unsigned __int128 r = mag % static_cast<unsigned __int128>(escala);
    if (escala > 1 && r * 2 >= static_cast<unsigned __int128>(escala))
        ++q;
    unsigned __int128 divisor = 1;
    for (int k = 0; k < usados; ++k)
        divisor *= 10;
    unsigned __int128 entero = q / divisor;
    unsigned __int128 frac = q % divisor;

    // 40 digits, 13 separators, sign, comma, percent and the decimals.
    const qsizetype capacidad = 56 + decimales;
    QString texto(capacidad, Qt::Uninitialized);
    char16_t* const inicio = reinterpret_cast<char16_t*>(texto.data());
    char16_t* pos = inicio + capacidad;
    if (p.porcentaje)
        *--pos = u'%';
    if (decimales > 0) {
        for (int k = usados; k < decimales; ++k)
            *--pos = u'0';
        for (int k = 0; k < usados; ++k) {
            *--pos = static_cast<char16_t>(u'0' + static_cast<int>(frac % 10));
            frac /= 10;
        }
        *--pos = u',';
    }
    int cifras = 0;
    do {
        if (p.agrupar && cifras > 0 && cifras % 3 == 0)
            *--pos = u'.';
        *--pos = static_cast<char16_t>(u'0' + static_cast<int>(entero % 10));
        entero /= 10;
        ++cifras;
    } while (entero > 0);
    if (negativo && q != 0)
        *--pos = u'-';
    const qsizetype usadas = inicio + capacidad - pos;
    texto.remove(0, capacidad - usadas);
    return texto;
}

} // namespace

QString formatoNumero(int decimales)
{
    if (decimales <= 0)
        return QStringLiteral("#,0");
    return QStringLiteral("#,0.") + QString(decimales, QLatin1Char('0'));
}

FormatoNumerico leerFormato(const QString& formato) { return leerPatron(formato); }

QString formatear(__int128 raw, const FormatoNumerico& formato)
{
    return componer(formato.porcentaje ? raw * 100 : raw, formato);
}

QString formatear(Currency valor, const QString& formato)
{
    const Patron p = leerPatron(formato);
    __int128 raw = valor.raw();
    if (p.porcentaje)
        raw *= 100;
    return componer(raw, p);
}

QString formatear(double valor, const QString& formato)
{
    const Patron p = leerPatron(formato);
    if (!std::isfinite(valor))
        return QString();
    double escalado = valor * (p.porcentaje ? 100.0 : 1.0) * 10000.0;
    return componer(static_cast<__int128>(std::llround(escalado)), p);
}

namespace {

// Splits a Spanish number into sign, digits and decimal exponent.
// Returns false if the text is not a number.
bool analizar(const QString& original, bool& negativo, QString& digitos, std::int64_t& exponente)
{
    QString t = original.trimmed();
    negativo = false;
    digitos.clear();
    exponente = 0;
    if (t.isEmpty())
        return false;
    auto quitarEuro = [&t]() {
        if (t.startsWith(QChar(0x20AC))) t = t.mid(1).trimmed();
        else if (t.endsWith(QChar(0x20AC))) t = t.left(t.size() - 1).trimmed();
    };
    quitarEuro();
    if (!t.isEmpty() && (t[0] == QLatin1Char('-') || t[0] == QLatin1Char('+'))) {
        negativo = t[0] == QLatin1Char('-');
        t = t.mid(1).trimmed();
    } else if (!t.isEmpty() && (t.endsWith(QLatin1Char('-')) || t.endsWith(QLatin1Char('+')))) {
        negativo = t.endsWith(QLatin1Char('-'));
        t = t.left(t.size() - 1).trimmed();
    }
    quitarEuro();
    if (t.isEmpty())
        return false;

    int i = 0;
    int enteros = 0;
    bool vistoDigito = false;
    for (; i < t.size(); ++i) {
        const QChar c = t[i];
        if (c.isDigit() && c.unicode() < 128) {
            digitos += c;
            ++enteros;
            vistoDigito = true;
        } else if (c == QLatin1Char('.')) {
            // Thousands separator: accepted between digits only.
            if (!vistoDigito || i + 1 >= t.size() || !t[i + 1].isDigit())
                return false;
        } else {
            break;
        }
    }
    int decimales = 0;
    if (i < t.size() && t[i] == QLatin1Char(',')) {
        ++i;
        for (; i < t.size() && t[i].isDigit() && t[i].unicode() < 128; ++i) {
            digitos += t[i];
            ++decimales;
            vistoDigito = true;
        }
    }
    if (!vistoDigito)
        return false;
    if (i < t.size() && (t[i] == QLatin1Char('e') || t[i] == QLatin1Char('E'))) {
        ++i;
        bool expNeg = false;
        if (i < t.size() && (t[i] == QLatin1Char('-') || t[i] == QLatin1Char('+'))) {
            expNeg = t[i] == QLatin1Char('-');
            ++i;
        }
        // Far beyond any digit count a text can have, so a capped exponent
        // still gives the value its true magnitude.
        constexpr std::int64_t kTope = std::int64_t(1) << 40;
        std::int64_t e = 0;
        int n = 0;
        for (; i < t.size() && t[i].isDigit() && t[i].unicode() < 128; ++i, ++n)
            e = std::min(e * 10 + t[i].digitValue(), kTope);
        if (n == 0)
            return false;
        exponente = expNeg ? -e : e;
    }
    if (i != t.size())
        return false;
    exponente -= decimales;
    Q_UNUSED(enteros);
    return true;
}

} // namespace

bool esNumerico(const QString& texto)
{
    bool negativo;
    QString digitos;
    std::int64_t exponente;
    return analizar(texto, negativo, digitos, exponente);
}

bool leerImporteSencillo(const QString& texto, Currency& valor, bool conMillares)
{
    const QChar* p = texto.constData();
    const qsizetype n = texto.size();
    qsizetype i = 0;
    const bool negativo = n > 0 && p[0] == QLatin1Char('-');
    if (negativo)
        ++i;
    std::int64_t entero = 0;
    int cifras = 0;
    for (; i < n; ++i) {
        const char16_t c = p[i].unicode();
        if (c >= u'0' && c <= u'9') {
            entero = entero * 10 + (c - u'0');
            if (entero != 0 && ++cifras > 14)
                return false;
        } else if (c == u'.' && conMillares) {
            const bool entreCifras = i > 0 && p[i - 1].isDigit() && i + 1 < n && p[i + 1].unicode() >= u'0'
                                     && p[i + 1].unicode() <= u'9';
            if (!entreCifras)
                return false;
        } else {
            break;
        }
    }
    const qsizetype finEntero = i;
    std::int64_t fraccion = 0;
    int decimales = 0;
    if (i < n && p[i] == QLatin1Char(',')) {
        for (++i; i < n; ++i) {
            const char16_t c = p[i].unicode();
            if (c < u'0' || c > u'9' || ++decimales > 4)
                return false;
            fraccion = fraccion * 10 + (c - u'0');
        }
    }
    if (i != n || (finEntero == (negativo ? 1 : 0) && decimales == 0))
        return false;
    for (int k = decimales; k < 4; ++k)
        fraccion *= 10;
    const std::int64_t raw = entero * Currency::Scale + fraccion;
    valor = Currency::fromRaw(negativo ? -raw : raw);
    return true;
}

bool intentarMoneda(const QString& texto, Currency& valor)
{
    // The plain form a pasted block is made of ("-1234,56") needs no more.
    if (leerImporteSencillo(texto, valor, false))
        return true;
    bool negativo;
    QString digitos;
    std::int64_t exponente;
    if (!analizar(texto, negativo, digitos, exponente))
        return false;
    valor = Currency::fromDecimalDigits(negativo, digitos, exponente);
    return true;
}

Currency aMoneda(const QString& texto)
{
    Currency v;
    if (!intentarMoneda(texto, v))
        throw VbError::typeMismatch();
    return v;
}

int valEntero(const QString& texto)
{
    const QString t = texto.trimmed();
    int i = 0;
    bool negativo = false;
    if (i < t.size() && (t[i] == QLatin1Char('-') || t[i] == QLatin1Char('+'))) {
        negativo = t[i] == QLatin1Char('-');
        ++i;
    }
    long long v = 0;
    for (; i < t.size() && t[i].isDigit() && t[i].unicode() < 128; ++i) {
        v = v * 10 + t[i].digitValue();
        if (v > 2147483647LL)
            v = 2147483647LL;
    }
    return static_cast<int>(negativo ? -v : v);
}

QString nombreMes(int mes)
{
    static const QLocale espanol(QLocale::Spanish, QLocale::Spain);
    QString nombre = espanol.standaloneMonthName(mes, QLocale::LongFormat);
    if (nombre.isEmpty())
        nombre = espanol.monthName(mes, QLocale::LongFormat);
    if (!nombre.isEmpty())
        nombre[0] = nombre[0].toUpper();
    return nombre;
}

} // namespace presupuestos::es
