#pragma once
// Money as SQL MONEY stores it: a signed 64-bit count of ten-thousandths.
// Doubles appear only at the conversions the calculation methods prescribe;
// every conversion rounds halves to even and raises "Overflow" out of range.

#include <QString>
#include <QVariant>
#include <compare>
#include <cstdint>

namespace presupuestos {

class Currency {
public:
    static constexpr std::int64_t Scale = 10000;
    // Below 2^38 in size a double's step is at most 2^-15, so the nearest
    // double reads back as the same ten-thousandth; beyond it does not.
    static constexpr std::int64_t MaximoExactoEnDoble = (std::int64_t{1} << 38) * Scale;

    constexpr Currency() = default;
    static constexpr Currency fromRaw(std::int64_t tenThousandths) { Currency c; c.raw_ = tenThousandths; return c; }
    static Currency fromInt(std::int64_t units);
    // Multiplies by 10,000 and rounds to the nearest integer, halves to even.
    static Currency fromDouble(double value);
    // Reads a database value: integers are whole units, reals are converted
    // from double, texts use a point as decimal separator. Null is zero.
    static Currency fromVariant(const QVariant& value);
    // Exact parse of a plain decimal text with '.' or ',' as decimal point
    // and no grouping ("-12.5", "8,3333"); more than four decimals round
    // halves to even. Returns false for anything else; raises Overflow for a
    // value out of range.
    static bool parsePlain(const QString& text, Currency& out);
    // The value of +/- digits x 10^exponent (digits: decimal digits only, as
    // many as there are), rounded to four decimals, halves to even. Raises
    // Overflow only when the rounded value does not fit.
    static Currency fromDecimalDigits(bool negative, QStringView digits, std::int64_t exponent);

    constexpr std::int64_t raw() const { return raw_; }
    // Whether an exact sum of amounts (in ten-thousandths) is an amount too.
    static constexpr bool enRango(__int128 diezmilesimas)
    {
        return diezmilesimas >= INT64_MIN && diezmilesimas <= INT64_MAX;
    }
    double toDouble() const;
    bool isZero() const { return raw_ == 0; }

    // Rounds to n decimals (0..4), halves to even.
    Currency rounded(int decimals) const;
    // Converts to a whole number, halves to even; out of the 32-bit range is an overflow.
    std::int32_t toInt32() const;
    std::int16_t toInt16() const;
    Currency abs() const;

    Currency operator+(Currency o) const;
    Currency operator-(Currency o) const;
    Currency operator-() const;
    // Currency product: four decimals, halves to even.
    Currency operator*(Currency o) const;
    // Exact product with an integer.
    Currency operator*(std::int64_t n) const;
    Currency& operator+=(Currency o) { *this = *this + o; return *this; }
    Currency& operator-=(Currency o) { *this = *this - o; return *this; }

    constexpr auto operator<=>(const Currency&) const = default;

    // Plain decimal text without grouping or trailing zeros, with the given
    // decimal separator ("8,3333", "100", "-10").
    QString toPlainText(QChar decimalSeparator = QLatin1Char(',')) const;
    // Text an SQL statement accepts as a numeric literal ("1234.5").
    QString toSqlText() const { return toPlainText(QLatin1Char('.')); }

private:
    std::int64_t raw_ = 0;
};

// Rounds a 128-bit numerator divided by a positive denominator, halves to even.
std::int64_t roundHalfEvenDiv(__int128 numerator, __int128 denominator);

// Writes m's decimal digits backwards, ending just before fin; returns
// where they begin. Texts composed by the thousand take no string per number.
char16_t* escribirCifras(unsigned long long m, char16_t* fin);

} // namespace presupuestos

Q_DECLARE_METATYPE(presupuestos::Currency)
