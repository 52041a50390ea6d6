#include "common/Currency.h"

#include "common/VbError.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace presupuestos {

namespace {

constexpr __int128 kMin = std::numeric_limits<std::int64_t>::min();
constexpr __int128 kMax = std::numeric_limits<std::int64_t>::max();

std::int64_t checked(__int128 v)
{
    if (v < kMin || v > kMax)
        throw VbError::overflow();
    return static_cast<std::int64_t>(v);
}

} // namespace

std::int64_t roundHalfEvenDiv(__int128 numerator, __int128 denominator)
{
    // Loads round every amount they show: 64-bit division where it is
    // enough, as a 128-bit one costs several times more.
    constexpr __int128 kLimite = static_cast<__int128>(1) << 62;
    if (numerator > -kLimite && numerator < kLimite && denominator < kLimite) {
        const auto n = static_cast<std::int64_t>(numerator), d = static_cast<std::int64_t>(denominator);
        std::int64_t q = n / d;
        const std::int64_t r = n % d;
        if (r != 0) {
            const std::int64_t twice = (r < 0 ? -r : r) * 2;
            if (twice > d || (twice == d && (q % 2 != 0)))
                q += n < 0 ? -1 : 1;
        }
        return q;
    }
    __int128 q = numerator / denominator;
    __int128 r = numerator % denominator;
    if (r != 0) {
        __int128 twice = (r < 0 ? -r : r) * 2;
        bool negative = numerator < 0;
        if (twice > denominator || (twice == denominator && (q % 2 != 0)))
            q += negative ? -1 : 1;
    }
    return checked(q);
}

Currency Currency::fromInt(std::int64_t units)
{
    return fromRaw(checked(static_cast<__int128>(units) * Scale));
}

Currency Currency::fromDouble(double value)
{
    if (!std::isfinite(value))
        throw VbError::overflow();
    const double scaled = value * static_cast<double>(Scale);
    // 2^63 is exactly representable; anything at or beyond it cannot fit.
    if (scaled >= 9223372036854775808.0 || scaled < -9223372036854775808.0)
        throw VbError::overflow();
    return fromRaw(static_cast<std::int64_t>(std::nearbyint(scaled)));
}

Currency Currency::fromVariant(const QVariant& value)
{
    if (!value.isValid() || value.isNull())
        return {};
    switch (value.typeId()) {
    case QMetaType::Bool:
        return fromInt(value.toBool() ? -1 : 0);
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Long:
    case QMetaType::LongLong:
        return fromInt(value.toLongLong());
    case QMetaType::ULong:
    case QMetaType::ULongLong:
        if (value.toULongLong() > static_cast<qulonglong>(std::numeric_limits<std::int64_t>::max()))
            throw VbError::overflow();
        return fromInt(static_cast<std::int64_t>(value.toULongLong()));
    case QMetaType::Double:
    case QMetaType::Float:
        return fromDouble(value.toDouble());
    default:
        break;
    }
    if (value.canConvert<Currency>() && value.userType() == qMetaTypeId<Currency>())
        return value.value<Currency>();
    Currency c;
    if (parsePlain(value.toString().trimmed(), c))
        return c;
    throw VbError::typeMismatch();
}

bool Currency::parsePlain(const QString& text, Currency& out)
{
    if (text.isEmpty())
        return false;
    int i = 0;
    bool negative = false;
    if (text[0] == QLatin1Char('-') || text[0] == QLatin1Char('+')) {
        negative = text[0] == QLatin1Char('-');
        ++i;
    }
    QString digits;
    for (; i < text.size() && text[i].isDigit(); ++i)
        digits += text[i];
    std::int64_t fracDigits = 0;
    if (i < text.size() && (text[i] == QLatin1Char('.') || text[i] == QLatin1Char(','))) {
        for (++i; i < text.size() && text[i].isDigit(); ++i, ++fracDigits)
            digits += text[i];
    }
    if (i != text.size() || digits.isEmpty())
        return false;
    out = fromDecimalDigits(negative, digits, -fracDigits);
    return true;
}

Currency Currency::fromDecimalDigits(bool negative, QStringView digits, std::int64_t exponent)
{
    while (!digits.isEmpty() && digits.front().digitValue() == 0)
        digits = digits.mid(1);
    if (digits.isEmpty())
        return {};
    // In ten-thousandths the value is digits x 10^shift, whose whole part has
    // `whole` digits (none or fewer when it is below one).
    const std::int64_t shift = exponent + 4;
    const std::int64_t whole = digits.size() + shift;
    // A leading digit at 10^19 or above is past 2^63 already; below that the
    // whole part fits a 128-bit integer with room to spare.
    if (whole > 19)
        throw VbError::overflow();
    __int128 q = 0;
    for (std::int64_t k = 0; k < std::min<std::int64_t>(whole, digits.size()); ++k)
        q = q * 10 + digits[k].digitValue();
    for (std::int64_t k = digits.size(); k < whole; ++k)
        q *= 10;
    // What is left after the whole part decides the rounding: above half,
    // below half, or exactly half, where the even neighbour wins.
    if (whole >= 0 && whole < digits.size()) {
        const int first = digits[whole].digitValue();
        bool rest = false;
        for (std::int64_t k = whole + 1; k < digits.size() && !rest; ++k)
            rest = digits[k].digitValue() != 0;
        if (first > 5 || (first == 5 && (rest || q % 2 != 0)))
            ++q;
    }
    return fromRaw(checked(negative ? -q : q));
}

double Currency::toDouble() const
{
    // Split to keep the conversion exact for every value a double can hold.
    const std::int64_t whole = raw_ / Scale;
    const std::int64_t frac = raw_ % Scale;
    return static_cast<double>(whole) + static_cast<double>(frac) / static_cast<double>(Scale);
}

Currency Currency::rounded(int decimals) const
{
    if (decimals >= 4)
        return *this;
    if (decimals < 0)
        decimals = 0;
    std::int64_t step = 1;
    for (int k = decimals; k < 4; ++k)
        step *= 10;
    return fromRaw(checked(static_cast<__int128>(roundHalfEvenDiv(raw_, step)) * step));
}

std::int32_t Currency::toInt32() const
{
    const std::int64_t v = roundHalfEvenDiv(raw_, Scale);
    if (v < std::numeric_limits<std::int32_t>::min() || v > std::numeric_limits<std::int32_t>::max())
        throw VbError::overflow();
    return static_cast<std::int32_t>(v);
}

std::int16_t Currency::toInt16() const
{
    const std::int32_t v = toInt32();
    if (v < std::numeric_limits<std::int16_t>::min() || v > std::numeric_limits<std::int16_t>::max())
        throw VbError::overflow();
    return static_cast<std::int16_t>(v);
}

Currency Currency::abs() const { return raw_ < 0 ? -*this : *this; }

Currency Currency::operator+(Currency o) const { return fromRaw(checked(static_cast<__int128>(raw_) + o.raw_)); }
Currency Currency::operator-(Currency o) const { return fromRaw(checked(static_cast<__int128>(raw_) - o.raw_)); }
Currency Currency::operator-() const { return fromRaw(checked(-static_cast<__int128>(raw_))); }

Currency Currency::operator*(Currency o) const
{
    return fromRaw(roundHalfEvenDiv(static_cast<__int128>(raw_) * o.raw_, Scale));
}

Currency Currency::operator*(std::int64_t n) const
{
    return fromRaw(checked(static_cast<__int128>(raw_) * n));
}

char16_t* escribirCifras(unsigned long long m, char16_t* fin)
{
    do {
        *--fin = static_cast<char16_t>(u'0' + m % 10);
        m /= 10;
    } while (m != 0);
    return fin;
}

QString Currency::toPlainText(QChar decimalSeparator) const
{
    // Written backwards into a buffer: every month a paste writes is
    // composed into the log's text, and temporary strings per digit group
    // cost more than the rest of the text.
    const bool negative = raw_ < 0;
    const unsigned long long magnitude = negative ? 0ULL - static_cast<unsigned long long>(raw_)
                                                  : static_cast<unsigned long long>(raw_);
    char16_t buffer[32];
    int inicio = 32;
    unsigned long long frac = magnitude % Scale;
    if (frac != 0) {
        int digits = 4;
        while (frac % 10 == 0) {
            frac /= 10;
            --digits;
        }
        for (int i = 0; i < digits; ++i) {
            buffer[--inicio] = static_cast<char16_t>(u'0' + frac % 10);
            frac /= 10;
        }
        buffer[--inicio] = decimalSeparator.unicode();
    }
    inicio = static_cast<int>(escribirCifras(magnitude / Scale, buffer + inicio) - buffer);
    if (negative)
        buffer[--inicio] = u'-';
    return QString(reinterpret_cast<const QChar*>(buffer + inicio), 32 - inicio);
}

} // namespace presupuestos
