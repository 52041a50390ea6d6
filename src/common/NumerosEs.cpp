#include "common/NumerosEs.h"

#include "common/VbError.h"

#include <QLocale>
#include <algorithm>
#include <cmath>
#include <cstdint>

namespace presupuestos::es {

namespace {

struct Patron {
    bool agrupar = false;
    int decimales = 0;
    bool porcentaje = false;
};

Patron leerPatron(const QString& formato)
{
    Patron p;
    const int punto = formato.indexOf(QLatin1Char('.'));
    const QString entero = punto >= 0 ? formato.left(punto) : formato;
    p.agrupar = entero.contains(QLatin1Char(','));
    if (punto >= 0) {
        for (int i = punto + 1; i < formato.size(); ++i) {
            const QChar c = formato[i];
            if (c == QLatin1Char('0') || c == QLatin1Char('#'))
                ++p.decimales;
            else
                break;
        }
    }
    p.porcentaje = formato.contains(QLatin1Char('%'));
    return p;
}

// Rounds ten-thousandths to the given decimals, halves away from zero,
// and returns the magnitude as integer and fraction digits.
QString componer(__int128 raw, const Patron& p)
{
    // raw counts ten-thousandths of the value to show (already scaled for %).
    int decimales = p.decimales;
    __int128 escala = 1;
    int precision = 4;
    if (decimales > precision) {
        // More decimals than the value holds: pad with zeros later.
    }
    int usados = std::min(decimales, precision);
    for (int k = usados; k < precision; ++k)
        escala *= 10;
    const bool negativo = raw < 0;
    __int128 mag = negativo ? -raw : raw;
    __int128 q = mag / escala;
    __int128 r = mag % escala;
    if (r * 2 >= escala && escala > 1)
        ++q;
    __int128 divisor = 1;
    for (int k = 0; k < usados; ++k)
        divisor *= 10;
    __int128 entero = q / divisor;
    __int128 frac = q % divisor;

    QString digitos;
    if (entero == 0) {
        digitos = QStringLiteral("0");
    } else {
        while (entero > 0) {
            digitos.prepend(QChar(u'0' + static_cast<int>(entero % 10)));
            entero /= 10;
        }
    }
    if (p.agrupar) {
        for (int pos = digitos.size() - 3; pos > 0; pos -= 3)
            digitos.insert(pos, QLatin1Char('.'));
    }
    QString texto = digitos;
    if (decimales > 0) {
        QString f;
        for (int k = 0; k < usados; ++k) {
            f.prepend(QChar(u'0' + static_cast<int>(frac % 10)));
            frac /= 10;
        }
        f += QString(decimales - usados, QLatin1Char('0'));
        texto += QLatin1Char(',') + f;
    }
    if (negativo && q != 0)
        texto.prepend(QLatin1Char('-'));
    if (p.porcentaje)
        texto += QLatin1Char('%');
    return texto;
}

} // namespace

QString formatoNumero(int decimales)
{
    if (decimales <= 0)
        return QStringLiteral("#,0");
    return QStringLiteral("#,0.") + QString(decimales, QLatin1Char('0'));
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
    bool signo = false;
    if (!t.isEmpty() && (t[0] == QLatin1Char('-') || t[0] == QLatin1Char('+'))) {
        negativo = t[0] == QLatin1Char('-');
        signo = true;
        t = t.mid(1).trimmed();
    } else if (!t.isEmpty() && (t.endsWith(QLatin1Char('-')) || t.endsWith(QLatin1Char('+')))) {
        negativo = t.endsWith(QLatin1Char('-'));
        signo = true;
        t = t.left(t.size() - 1).trimmed();
    }
    Q_UNUSED(signo);
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

bool intentarMoneda(const QString& texto, Currency& valor)
{
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
