#include "export/ExportadorLibro.h"

#include "common/NumerosEs.h"
#include "common/VbError.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <clocale>
#include <locale.h>
#include <xlsxwriter.h>

namespace presupuestos {

namespace {

constexpr int kColumnas = 20;         // A..T
constexpr int kColumnasHistorico = 17; // A..Q
constexpr lxw_col_t kColNombre = 14;   // O
constexpr lxw_col_t kColTotal = 16;    // Q
constexpr lxw_col_t kColValor = 18;    // S
// Every so many rows the caller hears how far the writing is.
constexpr qint64 kAvisoCada = 1000;

// The writer prints numbers with the C library's printf: under a locale
// whose decimal mark is a comma (a Spanish desktop's) it would write
// "12,5" into the XML, which no reader takes for a number. The C locale is
// put in force for this thread alone while the workbook is written.
class NumerosEnC {
public:
    NumerosEnC()
    {
        c_ = newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(nullptr));
        if (c_)
            anterior_ = uselocale(c_);
    }
    ~NumerosEnC()
    {
        if (c_) {
            uselocale(anterior_);
            freelocale(c_);
        }
    }
    NumerosEnC(const NumerosEnC&) = delete;
    NumerosEnC& operator=(const NumerosEnC&) = delete;

private:
    locale_t c_ = static_cast<locale_t>(nullptr);
    locale_t anterior_ = static_cast<locale_t>(nullptr);
};

VbError errorEscritura(const QString& ruta, const QString& detalle)
{
    return VbError(1004, QStringLiteral("No se puede escribir el libro '%1': %2.").arg(QFileInfo(ruta).fileName(), detalle));
}

// Characters "#,##0.00" needs for the amount, sign included.
int anchoImporte(__int128 raw)
{
    const bool negativo = raw < 0;
    __int128 entero = (negativo ? -raw : raw) / Currency::Scale;
    int digitos = 1;
    while (entero >= 10) {
        entero /= 10;
        ++digitos;
    }
    return digitos + (digitos - 1) / 3 + 3 + (negativo ? 1 : 0);
}

QStringList cabeceras(bool conDatosCalculo)
{
    QStringList c{QStringLiteral("Dpto"), QStringLiteral("Cuenta")};
    for (int m = 1; m <= 12; ++m)
        c << es::nombreMes(m);
    c << QStringLiteral("Nombre de la cuenta") << QStringLiteral("Departamento") << QStringLiteral("Total");
    if (conDatosCalculo)
        c << QStringLiteral("Método") << QStringLiteral("Valor") << QStringLiteral("Meses a mano");
    return c;
}

class Escritor {
public:
    Escritor(const QString& ruta, lxw_workbook* libro) : ruta_(ruta), libro_(libro)
    {
        cabecera_ = workbook_add_format(libro_);
        format_set_bold(cabecera_);
        format_set_bottom(cabecera_, LXW_BORDER_THIN);
        importe_ = workbook_add_format(libro_);
        format_set_num_format(importe_, "#,##0.00");
    }

    void hoja(const HojaLibro& h, qint64& hechas, qint64 total, const ExportadorLibro::Progreso& progreso)
    {
        const QByteArray nombre = h.nombre.toUtf8();
        lxw_worksheet* ws = workbook_add_worksheet(libro_, nombre.isEmpty() ? nullptr : nombre.constData());
        if (!ws)
            throw errorEscritura(ruta_, QStringLiteral("nombre de hoja no válido (%1)").arg(h.nombre));
        const QStringList titulos = cabeceras(h.conDatosCalculo);
        const int columnas = h.conDatosCalculo ? kColumnas : kColumnasHistorico;

        // Widths first: the rows go out one by one and are not kept.
        std::vector<int> ancho(static_cast<std::size_t>(columnas), 0);
        for (int c = 0; c < columnas; ++c)
            ancho[static_cast<std::size_t>(c)] = static_cast<int>(titulos[c].size());
        auto ampliar = [&ancho](lxw_col_t c, int n) { ancho[c] = std::max(ancho[c], n); };
        for (const FilaLibro& f : h.filas) {
            ampliar(0, static_cast<int>(QString::number(f.dpto).size()));
            ampliar(1, static_cast<int>(f.cuenta.size()));
            __int128 suma = 0;
            for (int m = 0; m < 12; ++m) {
                ampliar(static_cast<lxw_col_t>(2 + m), anchoImporte(f.meses[static_cast<std::size_t>(m)].raw()));
                suma += f.meses[static_cast<std::size_t>(m)].raw();
            }
            ampliar(kColNombre, static_cast<int>(f.nombre.size()));
            ampliar(kColNombre + 1, static_cast<int>(f.dptoNombre.size()));
            ampliar(kColTotal, anchoImporte(suma));
            if (h.conDatosCalculo)
                ampliar(kColValor, anchoImporte(f.valor.raw()));
        }
        for (int c = 0; c < columnas; ++c) {
            const bool numerica = (c >= 2 && c <= 13) || c == kColTotal || c == kColValor;
            const double w = std::min(60, ancho[static_cast<std::size_t>(c)] + 2);
            worksheet_set_column(ws, static_cast<lxw_col_t>(c), static_cast<lxw_col_t>(c), w, numerica ? importe_ : nullptr);
        }
        // The captions and the codes stay in view while scrolling.
        worksheet_freeze_panes(ws, 1, 2);

        for (int c = 0; c < columnas; ++c)
            texto(ws, 0, static_cast<lxw_col_t>(c), titulos[c], cabecera_);
        lxw_row_t fila = 1;
        for (const FilaLibro& f : h.filas) {
            comprobar(worksheet_write_number(ws, fila, 0, f.dpto, nullptr));
            texto(ws, fila, 1, f.cuenta, nullptr);
            __int128 suma = 0;
            for (int m = 0; m < 12; ++m) {
                importe(ws, fila, static_cast<lxw_col_t>(2 + m), f.meses[static_cast<std::size_t>(m)]);
                suma += f.meses[static_cast<std::size_t>(m)].raw();
            }
            texto(ws, fila, kColNombre, f.nombre, nullptr);
            texto(ws, fila, kColNombre + 1, f.dptoNombre, nullptr);
            if (Currency::enRango(suma))
                importe(ws, fila, kColTotal, Currency::fromRaw(static_cast<std::int64_t>(suma)));
            else
                comprobar(worksheet_write_number(ws, fila, kColTotal, static_cast<double>(suma) / Currency::Scale, importe_));
            if (h.conDatosCalculo) {
                comprobar(worksheet_write_number(ws, fila, kColTotal + 1, f.metodo, nullptr));
                importe(ws, fila, kColValor, f.valor);
                comprobar(worksheet_write_number(ws, fila, kColValor + 1, f.manual, nullptr));
            }
            ++fila;
            if (++hechas % kAvisoCada == 0 && progreso)
                progreso(hechas, total);
        }
    }

private:
    void comprobar(lxw_error e)
    {
        if (e != LXW_NO_ERROR)
            throw errorEscritura(ruta_, QString::fromUtf8(lxw_strerror(e)));
    }
    void texto(lxw_worksheet* ws, lxw_row_t fila, lxw_col_t col, const QString& t, lxw_format* formato)
    {
        if (t.isEmpty())
            return;
        comprobar(worksheet_write_string(ws, fila, col, t.toUtf8().constData(), formato));
    }
    void importe(lxw_worksheet* ws, lxw_row_t fila, lxw_col_t col, Currency v)
    {
        if (ExportadorLibro::comoNumero(v))
            comprobar(worksheet_write_number(ws, fila, col, ExportadorLibro::numero(v), importe_));
        else
            texto(ws, fila, col, v.toPlainText(QLatin1Char(',')), importe_);
    }

    QString ruta_;
    lxw_workbook* libro_;
    lxw_format* cabecera_ = nullptr;
    lxw_format* importe_ = nullptr;
};

} // namespace

bool ExportadorLibro::comoNumero(Currency importe)
{
    // Under 2^38 a double's step is at most 2^-15, so the nearest double is
    // within a third of a ten-thousandth, and sixteen significant digits
    // keep all four decimals of anything that size.
    constexpr std::int64_t kLimite = (std::int64_t{1} << 38) * Currency::Scale;
    return importe.raw() > -kLimite && importe.raw() < kLimite;
}

double ExportadorLibro::numero(Currency importe)
{
    // The count converts exactly (it is under 2^53 wherever it matters) and
    // the division rounds once, to the nearest double.
    return static_cast<double>(importe.raw()) / static_cast<double>(Currency::Scale);
}

void ExportadorLibro::escribir(const QString& ruta, const std::vector<HojaLibro>& hojas, const Progreso& progreso)
{
    NumerosEnC enC;
    qint64 total = 0;
    for (const HojaLibro& h : hojas)
        total += static_cast<qint64>(h.filas.size());

    // Written row by row to a temporary file, not kept whole in memory; the
    // texts go inline in the sheet.
    lxw_workbook_options opciones{};
    opciones.constant_memory = LXW_TRUE;
    const QByteArray nombre = QFile::encodeName(ruta);
    lxw_workbook* libro = workbook_new_opt(nombre.constData(), &opciones);
    if (!libro)
        throw errorEscritura(ruta, QStringLiteral("no se puede crear"));
    qint64 hechas = 0;
    try {
        Escritor escritor(ruta, libro);
        for (const HojaLibro& h : hojas)
            escritor.hoja(h, hechas, total, progreso);
    } catch (...) {
        workbook_close(libro);
        QFile::remove(ruta);
        throw;
    }
    const lxw_error e = workbook_close(libro);
    if (e != LXW_NO_ERROR) {
        QFile::remove(ruta);
        throw errorEscritura(ruta, QString::fromUtf8(lxw_strerror(e)));
    }
    if (progreso)
        progreso(total, total);
}

} // namespace presupuestos
