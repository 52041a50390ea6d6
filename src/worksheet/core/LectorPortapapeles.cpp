#include "worksheet/core/LectorPortapapeles.h"

#include "common/NumerosEs.h"
#include "common/VbError.h"

#include <algorithm>

namespace presupuestos {

std::optional<LectorPortapapeles::Bloque> LectorPortapapeles::leer(const QString& texto, int decimales, int maxLineas,
                                                                    int maxCampos)
{
    // An image, or nothing at all, is not a zero to spread over a selection.
    if (texto.isEmpty())
        return std::nullopt;
    QString s = texto;
    if (s.endsWith(QStringLiteral("\r\n")))
        s.chop(2);
    else if (s.endsWith(QLatin1Char('\n')))
        s.chop(1);
    // Spreadsheets on this system end their lines with a bare line feed;
    // either ending separates lines alike.
    s.replace(QStringLiteral("\r\n"), QStringLiteral("\r"));
    s.replace(QLatin1Char('\n'), QLatin1Char('\r'));
    // The full stop is a thousands separator; the comma is the decimal one.
    s.remove(QLatin1Char('.'));
    // Only blanks are trimmed: a trailing tab still marks an empty last field.
    qsizetype inicio = 0, fin = s.size();
    while (inicio < fin && s[inicio] == QLatin1Char(' '))
        ++inicio;
    while (fin > inicio && s[fin - 1] == QLatin1Char(' '))
        --fin;
    const QStringView vista = QStringView(s).mid(inicio, fin - inicio);

    const auto lineas = vista.split(QLatin1Char('\r'));
    Bloque b;
    b.lineas = static_cast<int>(lineas.size());
    b.ancho = static_cast<int>(lineas.first().count(QLatin1Char('\t')) + 1);
    const int filasGuardadas = std::clamp(std::min(b.lineas, maxLineas), 0, b.lineas);
    const int camposGuardados = std::clamp(std::min(b.ancho, maxCampos), 0, b.ancho);
    b.valores.assign(static_cast<std::size_t>(filasGuardadas), std::vector<Currency>(static_cast<std::size_t>(camposGuardados)));

    bool valido = true;
    for (int i = 0; i < b.lineas; ++i) {
        QStringView resto = lineas[i];
        for (int j = 0; j < b.ancho; ++j) {
            if (resto.isNull() && j > 0)
                throw VbError::subscriptOutOfRange();
            const qsizetype tab = resto.indexOf(QLatin1Char('\t'));
            const QStringView campo = (tab < 0 ? resto : resto.left(tab)).trimmed();
            resto = tab < 0 ? QStringView() : resto.mid(tab + 1);
            Currency v;
            if (!campo.isEmpty() && !es::intentarMoneda(campo.toString(), v)) {
                valido = false;
                break;
            }
            if (i < filasGuardadas && j < camposGuardados)
                b.valores[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)] = v.rounded(decimales);
            else
                v.rounded(decimales);
        }
    }
    if (!valido)
        return std::nullopt;
    return b;
}

} // namespace presupuestos
