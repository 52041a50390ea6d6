#include "export/ExportadorLibro.h"

#include "common/NumerosEs.h"
#include "common/VbError.h"

#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <algorithm>
#include <clocale>
#include <locale.h>
#include <charconv>
#include <cstdio>
#include <string>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xlsxwriter.h>
#include <zip.h>

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

// What the system said, as the user needs to hear it.
QString causa(int numero)
{
    switch (numero) {
    case ENOSPC:
    case EDQUOT: return QStringLiteral("no queda espacio en el disco");
    case EACCES:
    case EPERM: return QStringLiteral("no hay permiso para escribir en la carpeta");
    case EROFS: return QStringLiteral("la carpeta es de solo lectura");
    case ENOENT: return QStringLiteral("la carpeta no existe");
    default: return QString::fromLocal8Bit(std::strerror(numero));
    }
}

// A file in the destination's folder that has no name until it is kept, so
// that an export stopped half-way, even killed, leaves neither a broken
// workbook nor a stray file. Where the file system cannot make a file
// without a name, a hidden named one stands in and is removed on failure.
class Temporal {
public:
    Temporal(const QString& ruta, mode_t modo) : ruta_(ruta)
    {
        const QFileInfo destino(ruta);
        carpeta_ = QFile::encodeName(destino.absolutePath());
        fd_ = ::open(carpeta_.constData(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        if (fd_ < 0) {
            QByteArray plantilla = carpeta_ + "/." + QFile::encodeName(destino.fileName()) + ".XXXXXX";
            fd_ = ::mkostemp(plantilla.data(), O_CLOEXEC);
            if (fd_ < 0)
                throw errorEscritura(ruta_, causa(errno));
            nombre_ = plantilla;
        }
        ::fchmod(fd_, modo);
    }
    ~Temporal()
    {
        if (fd_ >= 0)
            ::close(fd_);
        if (!nombre_.isEmpty())
            ::unlink(nombre_.constData());
    }
    Temporal(const Temporal&) = delete;
    Temporal& operator=(const Temporal&) = delete;

    // The path another library opens the file by.
    QByteArray ruta() const { return nombre_.isEmpty() ? "/proc/self/fd/" + QByteArray::number(fd_) : nombre_; }

    QByteArray leer() const
    {
        QByteArray datos;
        char bloque[65536];
        for (off_t desde = 0;;) {
            const ssize_t n = ::pread(fd_, bloque, sizeof bloque, desde);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0)
                throw errorEscritura(ruta_, causa(errno));
            if (n == 0)
                return datos;
            datos.append(bloque, n);
            desde += n;
        }
    }

    void escribir(const char* datos, std::size_t tamano)
    {
        while (tamano > 0) {
            const ssize_t n = ::write(fd_, datos, tamano);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0)
                throw errorEscritura(ruta_, causa(errno));
            datos += n;
            tamano -= static_cast<std::size_t>(n);
        }
    }

    // Puts the file, written through to the disk, in the destination's
    // place in one step: the old workbook is there until then.
    void quedar()
    {
        if (::fsync(fd_) != 0)
            throw errorEscritura(ruta_, causa(errno));
        while (nombre_.isEmpty()) {
            const QByteArray nombre = carpeta_ + "/." + QFile::encodeName(QFileInfo(ruta_).fileName()) + '.'
                                      + QByteArray::number(QRandomGenerator::global()->generate(), 36);
            const QByteArray enlace = "/proc/self/fd/" + QByteArray::number(fd_);
            if (::linkat(AT_FDCWD, enlace.constData(), AT_FDCWD, nombre.constData(), AT_SYMLINK_FOLLOW) == 0)
                nombre_ = nombre;
            else if (errno != EEXIST)
                throw errorEscritura(ruta_, causa(errno));
        }
        if (::rename(nombre_.constData(), QFile::encodeName(ruta_).constData()) != 0)
            throw errorEscritura(ruta_, causa(errno));
        nombre_.clear();
        // The folder's entry reaches the disk too.
        const int carpeta = ::open(carpeta_.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (carpeta >= 0) {
            ::fsync(carpeta);
            ::close(carpeta);
        }
    }

private:
    QString ruta_;
    QByteArray carpeta_;
    QByteArray nombre_;
    int fd_ = -1;
};

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
        if (!h.titulos.isEmpty()) {
            tabla(ws, h, hechas, total, progreso);
            return;
        }
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

        // The rows themselves are put together here and placed into the
        // sheet once the writer has laid the workbook out (see
        // ExportadorLibro::escribir): its printf for every number and its
        // fixed deflate level made an export take twice an import.
        FilasHoja datos;
        datos.columnas = columnas;
        datos.filas = static_cast<qint64>(h.filas.size());
        std::string& x = datos.xml;
        x.reserve(h.filas.size() * static_cast<std::size_t>(columnas) * 40);
        const std::string sImporte = std::to_string(lxw_format_get_xf_index(importe_));
        qint64 fila = 2;
        for (const FilaLibro& f : h.filas) {
            const std::string r = std::to_string(fila);
            x += "<row r=\"";
            x += r;
            x += "\">";
            numero(x, 0, r, f.dpto);
            celdaTexto(x, 1, r, f.cuenta, {});
            __int128 suma = 0;
            for (int m = 0; m < 12; ++m) {
                importeXml(x, 2 + m, r, f.meses[static_cast<std::size_t>(m)], sImporte);
                suma += f.meses[static_cast<std::size_t>(m)].raw();
            }
            celdaTexto(x, kColNombre, r, f.nombre, {});
            celdaTexto(x, kColNombre + 1, r, f.dptoNombre, {});
            if (Currency::enRango(suma))
                importeXml(x, kColTotal, r, Currency::fromRaw(static_cast<std::int64_t>(suma)), sImporte);
            else
                doble(x, kColTotal, r, static_cast<double>(suma) / Currency::Scale, sImporte);
            if (h.conDatosCalculo) {
                numero(x, kColTotal + 1, r, f.metodo);
                importeXml(x, kColValor, r, f.valor, sImporte);
                numero(x, kColValor + 1, r, f.manual);
            }
            x += "</row>";
            ++fila;
            if (++hechas % kAvisoCada == 0 && progreso)
                progreso(hechas, total);
        }
        filas_.push_back(std::move(datos));
    }

    // A sheet laid out as given: the captions, then its rows.
    void tabla(lxw_worksheet* ws, const HojaLibro& h, qint64& hechas, qint64 total, const ExportadorLibro::Progreso& progreso)
    {
        const int columnas = static_cast<int>(h.titulos.size());
        std::vector<int> ancho(static_cast<std::size_t>(columnas), 0);
        std::vector<bool> importe(static_cast<std::size_t>(columnas), false);
        for (int c = 0; c < columnas; ++c)
            ancho[static_cast<std::size_t>(c)] = static_cast<int>(h.titulos[c].size());
        for (const auto& fila : h.celdas)
            for (int c = 0; c < std::min(columnas, static_cast<int>(fila.size())); ++c) {
                const CeldaLibro& celda = fila[static_cast<std::size_t>(c)];
                const auto i = static_cast<std::size_t>(c);
                ancho[i] = std::max(ancho[i], celda.esImporte ? anchoImporte(celda.importe) : static_cast<int>(celda.texto.size()));
                importe[i] = importe[i] || celda.esImporte;
            }
        for (int c = 0; c < columnas; ++c)
            worksheet_set_column(ws, static_cast<lxw_col_t>(c), static_cast<lxw_col_t>(c), std::min(60, ancho[static_cast<std::size_t>(c)] + 2),
                                 importe[static_cast<std::size_t>(c)] ? importe_ : nullptr);
        worksheet_freeze_panes(ws, 1, 0);
        for (int c = 0; c < columnas; ++c)
            texto(ws, 0, static_cast<lxw_col_t>(c), h.titulos[c], cabecera_);
        FilasHoja datos;
        datos.columnas = columnas;
        datos.filas = static_cast<qint64>(h.celdas.size());
        const std::string sImporte = std::to_string(lxw_format_get_xf_index(importe_));
        qint64 numero = 2;
        for (const auto& fila : h.celdas) {
            const std::string r = std::to_string(numero++);
            datos.xml += "<row r=\"" + r + "\">";
            for (int c = 0; c < std::min(columnas, static_cast<int>(fila.size())); ++c) {
                const CeldaLibro& celda = fila[static_cast<std::size_t>(c)];
                if (!celda.esImporte)
                    celdaTexto(datos.xml, c, r, celda.texto, {});
                else if (Currency::enRango(celda.importe))
                    importeXml(datos.xml, c, r, Currency::fromRaw(static_cast<std::int64_t>(celda.importe)), sImporte);
                else
                    doble(datos.xml, c, r, static_cast<double>(celda.importe) / Currency::Scale, sImporte);
            }
            datos.xml += "</row>";
            if (++hechas % kAvisoCada == 0 && progreso)
                progreso(hechas, total);
        }
        filas_.push_back(std::move(datos));
    }

    // The rows of each sheet, in the order the sheets were added.
    struct FilasHoja {
        int columnas = 0;
        qint64 filas = 0;
        std::string xml;
    };
    std::vector<FilasHoja>& filas() { return filas_; }

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

    // ---- Cells as the sheet's XML holds them ----
    static void inicio(std::string& x, int col, const std::string& r)
    {
        x += "<c r=\"";
        x += letras(col);
        x += r;
        x += '"';
    }
    static void numero(std::string& x, int col, const std::string& r, qint64 n)
    {
        inicio(x, col, r);
        x += "><v>";
        x += std::to_string(n);
        x += "</v></c>";
    }
    static void doble(std::string& x, int col, const std::string& r, double v, const std::string& estilo)
    {
        inicio(x, col, r);
        x += " s=\"";
        x += estilo;
        x += "\"><v>";
        // The shortest text that reads back as the same double.
        char buf[32];
        const auto fin = std::to_chars(buf, buf + sizeof buf, v).ptr;
        x.append(buf, fin);
        x += "</v></c>";
    }
    static void importeXml(std::string& x, int col, const std::string& r, Currency v, const std::string& estilo)
    {
        if (ExportadorLibro::comoNumero(v))
            doble(x, col, r, ExportadorLibro::numero(v), estilo);
        else
            celdaTexto(x, col, r, v.toPlainText(QLatin1Char(',')), estilo);
    }
    static void celdaTexto(std::string& x, int col, const std::string& r, const QString& t, const std::string& estilo)
    {
        if (t.isEmpty())
            return;
        inicio(x, col, r);
        if (!estilo.empty()) {
            x += " s=\"";
            x += estilo;
            x += '"';
        }
        const QByteArray u = t.toUtf8();
        const bool preservar = u.startsWith(' ') || u.endsWith(' ');
        x += preservar ? " t=\"inlineStr\"><is><t xml:space=\"preserve\">" : " t=\"inlineStr\"><is><t>";
        for (const char ch : u) {
            const auto c = static_cast<unsigned char>(ch);
            switch (c) {
            case '&': x += "&amp;"; break;
            case '<': x += "&lt;"; break;
            case '>': x += "&gt;"; break;
            default:
                if (c < 0x20 && c != '\t' && c != '\n' && c != '\r') {
                    // Not allowed in XML at all: spreadsheets write it as _xHHHH_.
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "_x%04X_", c);
                    x += buf;
                } else {
                    x += ch;
                }
            }
        }
        x += "</t></is></c>";
    }
    static const std::string& letras(int col)
    {
        static const std::vector<std::string> l = [] {
            std::vector<std::string> v;
            for (int c = 0; c < kColumnas; ++c)
                v.push_back(std::string(1, static_cast<char>('A' + c)));
            return v;
        }();
        return l[static_cast<std::size_t>(col)];
    }

    std::vector<FilasHoja> filas_;
    QString ruta_;
    lxw_workbook* libro_;
    lxw_format* cabecera_ = nullptr;
    lxw_format* importe_ = nullptr;
};

// Places each sheet's rows after its caption row, inside the workbook the
// writer laid out, and deflates the sheets at the fastest level: a sheet of
// tens of thousands of rows is most of the file, and of the time.
QByteArray ponerFilas(const QString& ruta, const QByteArray& libro, std::vector<Escritor::FilasHoja>& hojas)
{
    // In memory: the workbook goes to its folder whole, once.
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* datos = zip_source_buffer_create(libro.constData(), static_cast<zip_uint64_t>(libro.size()), 0, &error);
    zip_t* zip = datos ? zip_open_from_source(datos, 0, &error) : nullptr;
    if (!zip) {
        const QString detalle = QString::fromUtf8(zip_error_strerror(&error));
        zip_error_fini(&error);
        if (datos)
            zip_source_free(datos);
        throw errorEscritura(ruta, QStringLiteral("no se puede abrir lo escrito (%1)").arg(detalle));
    }
    zip_error_fini(&error);
    // Kept past the close, which writes the new archive into it.
    zip_source_keep(datos);
    struct Soltar {
        zip_source_t* s;
        ~Soltar() { zip_source_free(s); }
    } soltar{datos};
    const auto fallo = [&](const QString& que) {
        const QString detalle = que + QStringLiteral(": ") + QString::fromUtf8(zip_strerror(zip));
        zip_discard(zip);
        return errorEscritura(ruta, detalle);
    };
    std::vector<std::string> contenidos(hojas.size());
    for (std::size_t i = 0; i < hojas.size(); ++i) {
        const std::string nombre = "xl/worksheets/sheet" + std::to_string(i + 1) + ".xml";
        const zip_int64_t indice = zip_name_locate(zip, nombre.c_str(), 0);
        zip_stat_t st;
        if (indice < 0 || zip_stat_index(zip, static_cast<zip_uint64_t>(indice), 0, &st) != 0)
            throw fallo(QString::fromStdString(nombre));
        std::string& xml = contenidos[i];
        xml.resize(static_cast<std::size_t>(st.size));
        zip_file_t* f = zip_fopen_index(zip, static_cast<zip_uint64_t>(indice), 0);
        if (!f || zip_fread(f, xml.data(), st.size) != static_cast<zip_int64_t>(st.size)) {
            if (f)
                zip_fclose(f);
            throw fallo(QString::fromStdString(nombre));
        }
        zip_fclose(f);
        const std::size_t fin = xml.find("</sheetData>");
        if (fin == std::string::npos)
            throw fallo(QString::fromStdString(nombre));
        xml.insert(fin, hojas[i].xml);
        std::string().swap(hojas[i].xml);
        // The used range now reaches the last row.
        const std::size_t dim = xml.find("<dimension ref=\"");
        if (dim != std::string::npos) {
            const std::size_t desde = dim + 16;
            const std::size_t hasta = xml.find('"', desde);
            const std::string ref = "A1:" + std::string(1, static_cast<char>('A' + hojas[i].columnas - 1))
                                    + std::to_string(hojas[i].filas + 1);
            xml.replace(desde, hasta - desde, ref);
        }
        zip_source_t* fuente = zip_source_buffer(zip, xml.data(), xml.size(), 0);
        if (!fuente)
            throw fallo(QString::fromStdString(nombre));
        // Added anew rather than replaced: a replaced entry that stays
        // deflated keeps libzip's default level, its slowest, whatever level
        // is asked for.
        if (zip_delete(zip, static_cast<zip_uint64_t>(indice)) != 0)
            throw fallo(QString::fromStdString(nombre));
        const zip_int64_t nueva = zip_file_add(zip, nombre.c_str(), fuente, 0);
        if (nueva < 0) {
            zip_source_free(fuente);
            throw fallo(QString::fromStdString(nombre));
        }
        if (zip_set_file_compression(zip, static_cast<zip_uint64_t>(nueva), ZIP_CM_DEFLATE, 1) != 0)
            throw fallo(QString::fromStdString(nombre));
    }
    // The buffers must outlive the close, which writes them.
    if (zip_close(zip) != 0)
        throw fallo(QStringLiteral("cierre"));
    zip_stat_t st;
    QByteArray salida;
    if (zip_source_stat(datos, &st) != 0 || zip_source_open(datos) != 0)
        throw errorEscritura(ruta, QStringLiteral("no se puede leer lo escrito"));
    salida.resize(static_cast<qsizetype>(st.size));
    const zip_int64_t leidos = zip_source_read(datos, salida.data(), st.size);
    zip_source_close(datos);
    if (leidos != static_cast<zip_int64_t>(st.size))
        throw errorEscritura(ruta, QStringLiteral("no se puede leer lo escrito"));
    return salida;
}

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

    // A workbook the user made read-only stays as it is: the rename that
    // puts the new one in place asks only the folder.
    const QByteArray destino = QFile::encodeName(ruta);
    struct stat previo;
    mode_t modo = 0;
    if (::stat(destino.constData(), &previo) == 0) {
        if ((previo.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0)
            throw errorEscritura(ruta, QStringLiteral("es de solo lectura"));
        modo = previo.st_mode & 07777;
    } else {
        modo = ::umask(0);
        ::umask(modo);
        modo = 0666 & ~modo;
    }

    // Written row by row to temporary files, not kept whole in memory; the
    // texts go inline in the sheet. The temporary files go beside the
    // destination, where the workbook is being written anyway: the
    // system's temporary folder may be missing or full.
    Temporal esqueleto(ruta, modo);
    const QByteArray carpeta = QFile::encodeName(QFileInfo(ruta).absolutePath());
    lxw_workbook_options opciones{};
    opciones.constant_memory = LXW_TRUE;
    opciones.tmpdir = const_cast<char*>(carpeta.constData());
    const QByteArray nombre = esqueleto.ruta();
    lxw_workbook* libro = workbook_new_opt(nombre.constData(), &opciones);
    if (!libro)
        throw errorEscritura(ruta, QStringLiteral("no se puede crear"));
    qint64 hechas = 0;
    std::vector<Escritor::FilasHoja> filas;
    try {
        Escritor escritor(ruta, libro);
        for (const HojaLibro& h : hojas)
            escritor.hoja(h, hechas, total, progreso);
        filas = std::move(escritor.filas());
    } catch (...) {
        workbook_close(libro);
        throw;
    }
    const lxw_error e = workbook_close(libro);
    if (e != LXW_NO_ERROR)
        throw errorEscritura(ruta, QString::fromUtf8(lxw_strerror(e)));
    const QByteArray completo = ponerFilas(ruta, esqueleto.leer(), filas);
    Temporal final(ruta, modo);
    final.escribir(completo.constData(), static_cast<std::size_t>(completo.size()));
    final.quedar();
    if (progreso)
        progreso(total, total);
}

} // namespace presupuestos
