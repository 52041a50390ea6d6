#include "import/readers/LectorLibro.h"

#include "common/VbError.h"

#include <QFile>
#include <QFileInfo>
#include <QXmlStreamReader>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <exception>
#include <expat.h>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>
#include <zip.h>

namespace presupuestos {

namespace {

constexpr int kFilasXlsx = 1048576;
constexpr int kColumnasXlsx = 16384;
constexpr qint64 kTrozo = 64 * 1024;

QString megas(qint64 bytes) { return QString::number(bytes / (1024 * 1024)); }

// ---- The zip container ---------------------------------------------------------

class Zip {
public:
    Zip(zip_t* z, QString libro, const LimitesLibro& limites) : z_(z), libro_(std::move(libro)), limites_(limites) {}
    ~Zip()
    {
        if (z_)
            zip_discard(z_);
    }
    Zip(const Zip&) = delete;
    Zip& operator=(const Zip&) = delete;

    const QString& libro() const { return libro_; }
    const LimitesLibro& limites() const { return limites_; }
    zip_t* z() const { return z_; }

    // Index of a part by name (part names ignore case), -1 when absent.
    zip_int64_t buscar(const QString& nombre) const
    {
        return zip_name_locate(z_, nombre.toUtf8().constData(), ZIP_FL_NOCASE);
    }

    zip_file_t* abrir(zip_int64_t indice, const QString& nombre) const
    {
        zip_file_t* f = zip_fopen_index(z_, static_cast<zip_uint64_t>(indice), 0);
        if (!f)
            throw errorLibro(libro_, QStringLiteral("la parte '%1' no se puede descomprimir (%2)")
                                         .arg(nombre, QString::fromUtf8(zip_strerror(z_))));
        return f;
    }

private:
    zip_t* z_;
    QString libro_;
    const LimitesLibro& limites_;
};

// ---- One XML part, inflated as it is parsed ---------------------------------------

class ParteXml {
public:
    ParteXml(const Zip& zip, const QString& nombre) : zip_(zip), nombre_(nombre)
    {
        const zip_int64_t i = zip.buscar(nombre);
        if (i < 0)
            throw errorLibro(zip.libro(), QStringLiteral("falta la parte '%1'").arg(nombre));
        f_ = zip.abrir(i, nombre);
        // Namespaces are matched by local name only: strict and transitional
        // workbooks, and writers that prefix every element, read alike.
        xml_.setNamespaceProcessing(true);
    }
    ~ParteXml()
    {
        if (f_)
            zip_fclose(f_);
    }
    ParteXml(const ParteXml&) = delete;
    ParteXml& operator=(const ParteXml&) = delete;

    QXmlStreamReader& xml() { return xml_; }
    int profundidad() const { return profundidad_; }

    // The next token; EndDocument at the end. Feeds more inflated bytes
    // whenever the parser runs dry.
    QXmlStreamReader::TokenType siguiente()
    {
        for (;;) {
            const QXmlStreamReader::TokenType t = xml_.readNext();
            switch (t) {
            case QXmlStreamReader::Invalid:
                if (xml_.error() == QXmlStreamReader::PrematureEndOfDocumentError && !fin_) {
                    alimentar();
                    continue;
                }
                throw malformada();
            case QXmlStreamReader::DTD:
                throw errorLibro(zip_.libro(), QStringLiteral("la parte '%1' declara una DTD, que no se admite").arg(nombre_));
            case QXmlStreamReader::EntityReference:
                throw malformada();
            case QXmlStreamReader::StartElement:
                if (++profundidad_ > zip_.limites().profundidadXml)
                    throw errorLibro(zip_.libro(), QStringLiteral("la parte '%1' anida más de %2 niveles de XML")
                                                       .arg(nombre_)
                                                       .arg(zip_.limites().profundidadXml));
                return t;
            case QXmlStreamReader::EndElement:
                --profundidad_;
                return t;
            default:
                return t;
            }
        }
    }

    // Appends the text of the element just started, up to its end, to
    // destino; nested elements are not expected and make the part
    // malformed. The caller's buffer is reused from cell to cell.
    void textoElemento(QString& destino, qint64 maximo)
    {
        const qsizetype inicio = destino.size();
        for (;;) {
            switch (siguiente()) {
            case QXmlStreamReader::Characters:
                if (destino.size() - inicio + xml_.text().size() > maximo)
                    throw errorLibro(zip_.libro(), QStringLiteral("un texto tiene más de %1 caracteres").arg(maximo));
                destino += xml_.text();
                break;
            case QXmlStreamReader::EndElement: return;
            case QXmlStreamReader::StartElement:
            case QXmlStreamReader::EndDocument: throw malformada();
            default: break;
            }
        }
    }

    // Skips the element just started with everything inside it.
    void saltarElemento()
    {
        const int nivel = profundidad_;
        while (profundidad_ >= nivel) {
            if (siguiente() == QXmlStreamReader::EndDocument)
                throw malformada();
        }
    }

    VbError malformada() const
    {
        return errorLibro(zip_.libro(), QStringLiteral("la parte '%1' está dañada o mal formada (línea %2, columna %3)")
                                            .arg(nombre_)
                                            .arg(xml_.lineNumber())
                                            .arg(xml_.columnNumber()));
    }

    VbError error(const QString& detalle) const { return errorLibro(zip_.libro(), detalle); }

private:
    void alimentar()
    {
        char trozo[kTrozo];
        const zip_int64_t n = zip_fread(f_, trozo, sizeof trozo);
        if (n < 0)
            throw errorLibro(zip_.libro(), QStringLiteral("la parte '%1' está dañada (%2)")
                                               .arg(nombre_, QString::fromUtf8(zip_file_strerror(f_))));
        if (n == 0) {
            fin_ = true;
            return;
        }
        leidos_ += n;
        if (leidos_ > zip_.limites().bytesParte)
            throw errorLibro(zip_.libro(), QStringLiteral("la parte '%1' ocupa más de %2 MB descomprimida")
                                               .arg(nombre_, megas(zip_.limites().bytesParte)));
        xml_.addData(QByteArray(trozo, static_cast<int>(n)));
    }

    const Zip& zip_;
    QString nombre_;
    zip_file_t* f_ = nullptr;
    QXmlStreamReader xml_;
    qint64 leidos_ = 0;
    int profundidad_ = 0;
    bool fin_ = false;
};

bool es(QStringView a, const char16_t* b) { return a == QStringView(b); }

// The sheet's names are short and compared millions of times: inline,
// without a call into the C library.
template <std::size_t N> bool nombreEs(std::string_view a, const char (&b)[N])
{
    if (a.size() != N - 1)
        return false;
    for (std::size_t i = 0; i + 1 < N; ++i)
        if (a[i] != b[i])
            return false;
    return true;
}

template <std::size_t N> bool empiezaPor(std::string_view a, const char (&b)[N])
{
    return a.size() >= N - 1 && nombreEs(a.substr(0, N - 1), b);
}

// "_x000D_" and the like stand for characters XML cannot carry; "_x005F_"
// escapes a literal underscore.
QString decodificarEscapes(const QString& s)
{
    if (!s.contains(QLatin1String("_x")))
        return s;
    QString r;
    r.reserve(s.size());
    for (qsizetype i = 0; i < s.size(); ++i) {
        if (s[i] == QLatin1Char('_') && i + 6 < s.size() && s[i + 1] == QLatin1Char('x') && s[i + 6] == QLatin1Char('_')) {
            bool ok = false;
            const uint codigo = QStringView(s).mid(i + 2, 4).toUInt(&ok, 16);
            if (ok) {
                r += QChar(static_cast<char16_t>(codigo));
                i += 6;
                continue;
            }
        }
        r += s[i];
    }
    return r;
}

// ---- Relationships and part names --------------------------------------------

struct Relacion {
    QString id;
    QString tipo;
    QString destino; // full part name inside the zip
};

// Directory of a part, with its trailing slash ("xl/" for "xl/workbook.xml").
QString carpetaDe(const QString& parte)
{
    const qsizetype i = parte.lastIndexOf(QLatin1Char('/'));
    return i < 0 ? QString() : parte.left(i + 1);
}

// Resolves a relationship target against the source part's folder.
QString resolver(const QString& carpeta, const QString& destino)
{
    QString ruta = destino.startsWith(QLatin1Char('/')) ? destino.mid(1) : carpeta + destino;
    QStringList limpia;
    for (const QString& paso : ruta.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        if (paso == QLatin1String("."))
            continue;
        if (paso == QLatin1String("..")) {
            if (!limpia.isEmpty())
                limpia.removeLast();
            continue;
        }
        limpia << paso;
    }
    return limpia.join(QLatin1Char('/'));
}

QString relacionesDe(const QString& parte)
{
    const QString carpeta = carpetaDe(parte);
    return carpeta + QStringLiteral("_rels/") + parte.mid(carpeta.size()) + QStringLiteral(".rels");
}

std::vector<Relacion> leerRelaciones(const Zip& zip, const QString& parte)
{
    std::vector<Relacion> lista;
    const QString nombre = parte.isEmpty() ? QStringLiteral("_rels/.rels") : relacionesDe(parte);
    if (zip.buscar(nombre) < 0)
        return lista;
    ParteXml p(zip, nombre);
    const QString carpeta = carpetaDe(parte);
    for (;;) {
        const auto t = p.siguiente();
        if (t == QXmlStreamReader::EndDocument)
            break;
        if (t != QXmlStreamReader::StartElement || !es(p.xml().name(), u"Relationship"))
            continue;
        if (lista.size() >= static_cast<std::size_t>(zip.limites().entradasZip))
            throw p.error(QStringLiteral("la parte '%1' tiene demasiadas relaciones").arg(nombre));
        const QXmlStreamAttributes a = p.xml().attributes();
        if (a.value(QStringLiteral("TargetMode")) == QLatin1String("External"))
            continue;
        lista.push_back({a.value(QStringLiteral("Id")).toString(), a.value(QStringLiteral("Type")).toString(),
                         resolver(carpeta, a.value(QStringLiteral("Target")).toString())});
    }
    return lista;
}

bool tipoTermina(const Relacion& r, const char* sufijo) { return r.tipo.endsWith(QLatin1String(sufijo)); }

// ---- workbook.xml ------------------------------------------------------------------

struct HojaDeclarada {
    QString nombre;
    QString idRelacion;
};

struct Libro {
    std::vector<HojaDeclarada> hojas;
    int pestanaActiva = 0;
};

Libro leerLibro(const Zip& zip, const QString& parte)
{
    Libro libro;
    ParteXml p(zip, parte);
    bool vistaLeida = false;
    for (;;) {
        const auto t = p.siguiente();
        if (t == QXmlStreamReader::EndDocument)
            break;
        if (t != QXmlStreamReader::StartElement)
            continue;
        const QStringView nombre = p.xml().name();
        if (es(nombre, u"sheet")) {
            if (libro.hojas.size() >= static_cast<std::size_t>(zip.limites().entradasZip))
                throw p.error(QStringLiteral("el libro declara demasiadas hojas"));
            HojaDeclarada h;
            for (const QXmlStreamAttribute& a : p.xml().attributes()) {
                if (es(a.name(), u"name") && a.namespaceUri().isEmpty())
                    h.nombre = a.value().toString();
                // r:id, in whichever relationships namespace the workbook uses.
                else if (es(a.name(), u"id") && !a.namespaceUri().isEmpty())
                    h.idRelacion = a.value().toString();
            }
            libro.hojas.push_back(h);
        } else if (es(nombre, u"workbookView") && !vistaLeida) {
            vistaLeida = true;
            bool ok = false;
            const int activa = p.xml().attributes().value(QStringLiteral("activeTab")).toInt(&ok);
            libro.pestanaActiva = ok ? activa : 0;
        }
    }
    return libro;
}

// ---- sharedStrings.xml ----------------------------------------------------------

std::vector<QString> leerTextos(const Zip& zip, const QString& parte)
{
    const LimitesLibro& lim = zip.limites();
    std::vector<QString> textos;
    ParteXml p(zip, parte);
    qint64 caracteres = 0;
    QString actual;
    bool enTexto = false;
    for (;;) {
        const auto t = p.siguiente();
        if (t == QXmlStreamReader::EndDocument)
            break;
        if (t == QXmlStreamReader::StartElement) {
            const QStringView nombre = p.xml().name();
            if (es(nombre, u"si")) {
                if (enTexto)
                    throw p.malformada();
                enTexto = true;
                actual.clear();
            } else if (es(nombre, u"t") && enTexto) {
                // Plain text and rich-text runs alike; the text goes on
                // from run to run.
                p.textoElemento(actual, lim.caracteresCelda - actual.size());
            } else if (es(nombre, u"rPh") || es(nombre, u"phoneticPr")) {
                // Phonetic guides are not part of the cell's text.
                p.saltarElemento();
            }
        } else if (t == QXmlStreamReader::EndElement && es(p.xml().name(), u"si") && enTexto) {
            enTexto = false;
            if (static_cast<qint64>(textos.size()) >= lim.textos)
                throw p.error(QStringLiteral("el libro tiene más de %1 textos").arg(lim.textos));
            caracteres += actual.size();
            if (caracteres > lim.caracteresTextos)
                throw p.error(QStringLiteral("los textos del libro suman más de %1 caracteres").arg(lim.caracteresTextos));
            textos.push_back(decodificarEscapes(actual));
        }
    }
    return textos;
}

// ---- The worksheet ------------------------------------------------------------------

// "AB12" -> row 12, column 28. False for anything that is not a reference
// inside the sheet.
bool leerReferencia(std::string_view ref, int& fila, int& columna)
{
    std::size_t i = 0;
    int c = 0;
    while (i < ref.size() && ref[i] >= 'A' && ref[i] <= 'Z') {
        c = c * 26 + (ref[i] - 'A' + 1);
        if (c > kColumnasXlsx)
            return false;
        ++i;
    }
    if (i == 0 || i == ref.size())
        return false;
    int f = 0;
    for (; i < ref.size(); ++i) {
        if (ref[i] < '0' || ref[i] > '9')
            return false;
        f = f * 10 + (ref[i] - '0');
        if (f > kFilasXlsx)
            return false;
    }
    if (f < 1)
        return false;
    fila = f;
    columna = c;
    return true;
}

// A number cell's text, trimmed, as ASCII bytes, read as the C locale
// reads it: optional sign, digits with at most one point, optional
// exponent, nothing else; values that overflow, underflow to zero or are
// not finite are refused. std::from_chars gives the same doubles at a
// fraction of the cost of QStringView::toDouble, but does not take a
// leading '+': that is seen to here.
bool leerNumeroAscii(const char* p, const char* fin, double& d)
{
    if (p != fin && *p == '+') {
        ++p;
        // from_chars would take the second sign of "+-1" as the number's own.
        if (p == fin || *p == '-' || *p == '+')
            return false;
    }
    const auto [resto, ec] = std::from_chars(p, fin, d, std::chars_format::general);
    return ec == std::errc() && resto == fin && std::isfinite(d);
}

// The same for a trimmed text with characters outside ASCII, of which the
// locale reads the Unicode minus sign (U+2212) as '-' and no other.
bool leerNumero(QStringView v, double& d)
{
    std::string bytes(static_cast<std::size_t>(v.size()), '\0');
    std::size_t n = 0;
    for (const QChar c : v) {
        char16_t u = c.unicode();
        if (u == u'\x2212')
            u = u'-';
        else if (u > 0x7f)
            return false;
        bytes[n++] = static_cast<char>(u);
    }
    return leerNumeroAscii(bytes.data(), bytes.data() + n, d);
}

// UTF-16 code units of UTF-8 text: the limits count characters as Qt does.
qint64 unidadesUtf16(const char* p, std::size_t n)
{
    qint64 u = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const auto b = static_cast<unsigned char>(p[i]);
        u += (b & 0xC0) != 0x80;
        u += b >= 0xF0;
    }
    return u;
}

QString nombreCelda(int fila, int columna)
{
    QString letras;
    for (int c = columna; c > 0; c = (c - 1) / 26)
        letras.prepend(QChar(u'A' + (c - 1) % 26));
    return letras + QString::number(fila);
}

// The sheet is by far the largest part and holds nearly every value: it is
// scanned as it is inflated, by EscanerHoja when it can and by expat
// otherwise, and its texts stay UTF-8 until a cell needs them as text. The rules are those of ParteXml:
// elements matched by local name, no DTD, nesting and inflated bytes
// bounded. Expat is C: handlers keep the first error and stop it, and the
// error is raised once expat has returned.
class EscanerHoja;

class LectorHoja {
public:
    LectorHoja(const Zip& zip, const QString& parte, HojaExcel& hoja) : zip_(zip), nombre_(parte), hoja_(hoja), lim_(zip.limites())
    {
        const zip_int64_t i = zip.buscar(parte);
        if (i < 0)
            throw errorLibro(zip.libro(), QStringLiteral("falta la parte '%1'").arg(parte));
        f_ = zip.abrir(i, parte);
        x_ = XML_ParserCreateNS(nullptr, kSeparador);
        if (!x_) {
            zip_fclose(f_);
            throw errorLibro(zip.libro(), mensajeMemoria());
        }
        XML_SetUserData(x_, this);
        XML_SetElementHandler(x_, &alEmpezar, &alTerminar);
        XML_SetCharacterDataHandler(x_, &alTexto);
        XML_SetStartDoctypeDeclHandler(x_, &alDtd);
        XML_SetParamEntityParsing(x_, XML_PARAM_ENTITY_PARSING_NEVER);
    }
    ~LectorHoja()
    {
        XML_ParserFree(x_);
        zip_fclose(f_);
    }
    LectorHoja(const LectorHoja&) = delete;
    LectorHoja& operator=(const LectorHoja&) = delete;

    // The part through EscanerHoja; false when it has to be read with
    // leer() on a new reader and sheet, what was put on this one being
    // of no use.
    bool leerRapido(bool enParalelo);

    void leer()
    {
        for (bool fin = false; !fin;) {
            void* trozo = XML_GetBuffer(x_, static_cast<int>(kTrozo));
            if (!trozo)
                throw errorLibro(zip_.libro(), mensajeMemoria());
            const zip_int64_t n = zip_fread(f_, trozo, static_cast<zip_uint64_t>(kTrozo));
            if (n < 0)
                throw errorLibro(zip_.libro(), QStringLiteral("la parte '%1' está dañada (%2)")
                                                   .arg(nombre_, QString::fromUtf8(zip_file_strerror(f_))));
            fin = n == 0;
            leidos_ += n;
            if (leidos_ > lim_.bytesParte)
                throw errorLibro(zip_.libro(), QStringLiteral("la parte '%1' ocupa más de %2 MB descomprimida")
                                                   .arg(nombre_, megas(lim_.bytesParte)));
            if (XML_ParseBuffer(x_, static_cast<int>(n), fin) != XML_STATUS_OK) {
                if (error_)
                    std::rethrow_exception(error_);
                throw malformada();
            }
        }
    }

private:
    friend class EscanerHoja;
    static constexpr XML_Char kSeparador = '\x01';

    static QString mensajeMemoria() { return QStringLiteral("no hay memoria suficiente"); }

    // "uri\x01local" -> "local".
    static std::string_view local(const XML_Char* nombre)
    {
        const std::string_view n(nombre);
        const std::size_t i = n.rfind(kSeparador);
        return i == std::string_view::npos ? n : n.substr(i + 1);
    }

    // The value of an attribute without namespace, null when absent.
    static const XML_Char* atributo(const XML_Char** atributos, std::string_view nombre)
    {
        for (const XML_Char** a = atributos; *a; a += 2)
            if (nombre == a[0])
                return a[1];
        return nullptr;
    }

    template <typename F> void proteger(F&& f)
    {
        if (error_)
            return;
        try {
            f();
        } catch (...) {
            error_ = std::current_exception();
            XML_StopParser(x_, XML_FALSE);
        }
    }

    static void XMLCALL alEmpezar(void* yo, const XML_Char* nombre, const XML_Char** atributos)
    {
        auto* l = static_cast<LectorHoja*>(yo);
        l->proteger([&] { l->empezar(local(nombre), atributos); });
    }
    static void XMLCALL alTerminar(void* yo, const XML_Char* nombre)
    {
        auto* l = static_cast<LectorHoja*>(yo);
        l->proteger([&] { l->terminar(local(nombre)); });
    }
    static void XMLCALL alTexto(void* yo, const XML_Char* texto, int n)
    {
        auto* l = static_cast<LectorHoja*>(yo);
        l->proteger([&] { l->anadirTexto(texto, static_cast<std::size_t>(n)); });
    }
    static void XMLCALL alDtd(void* yo, const XML_Char*, const XML_Char*, const XML_Char*, int)
    {
        auto* l = static_cast<LectorHoja*>(yo);
        l->proteger([&] {
            throw errorLibro(l->zip_.libro(), QStringLiteral("la parte '%1' declara una DTD, que no se admite").arg(l->nombre_));
        });
    }

    // Where the scan is: between cells, inside a cell, in its <v>, in its
    // <is>, or in a <t> of the <is>.
    enum class Modo { Hoja, Celda, Valor, EnLinea, TextoEnLinea };

    void empezar(std::string_view nombre, const XML_Char** atributos)
    {
        if (++profundidad_ > lim_.profundidadXml)
            throw errorLibro(zip_.libro(), QStringLiteral("la parte '%1' anida más de %2 niveles de XML")
                                               .arg(nombre_)
                                               .arg(lim_.profundidadXml));
        if (saltar_ > 0)
            return;
        switch (modo_) {
        case Modo::Valor:
        case Modo::TextoEnLinea:
            throw malformada(); // a value's text holds no elements
        case Modo::Hoja:
            if (nombreEs(nombre, "sheetData"))
                enDatos_ = true;
            else if (enDatos_ && nombreEs(nombre, "row"))
                empezarFila(atributos);
            else if (enDatos_ && nombreEs(nombre, "c"))
                empezarCelda(atributos);
            else if (!enDatos_ && profundidad_ > 1)
                saltar_ = profundidad_; // views, columns, formats and the like say nothing about values
            return;
        case Modo::Celda:
            if (nombreEs(nombre, "v")) {
                valor_.clear();
                unidadesValor_ = 0;
                contandoValor_ = false;
                conValor_ = true;
                modo_ = Modo::Valor;
            } else if (nombreEs(nombre, "is")) {
                conTextoEnLinea_ = true;
                nivelEnLinea_ = profundidad_;
                modo_ = Modo::EnLinea;
            } else {
                saltar_ = profundidad_; // the formula and extensions
            }
            return;
        case Modo::EnLinea:
            // A <t>, or rich-text runs each with its <t>.
            if (nombreEs(nombre, "t")) {
                maximoTexto_ = lim_.caracteresCelda - unidadesEnLinea_;
                inicioTexto_ = unidadesEnLinea_;
                modo_ = Modo::TextoEnLinea;
            } else if (nombreEs(nombre, "rPh") || nombreEs(nombre, "rPr")) {
                saltar_ = profundidad_;
            }
            return;
        }
    }

    void terminar(std::string_view nombre)
    {
        const int nivel = profundidad_--;
        if (saltar_ > 0) {
            if (nivel == saltar_)
                saltar_ = 0;
            return;
        }
        switch (modo_) {
        case Modo::Hoja:
            if (nombreEs(nombre, "sheetData"))
                enDatos_ = false;
            return;
        case Modo::Valor: modo_ = Modo::Celda; return;
        case Modo::TextoEnLinea: modo_ = Modo::EnLinea; return;
        case Modo::EnLinea:
            if (nivel == nivelEnLinea_)
                modo_ = Modo::Celda;
            return;
        case Modo::Celda:
            if (nivel == nivelCelda_) {
                modo_ = Modo::Hoja;
                terminarCelda();
            }
            return;
        }
    }

    void anadirTexto(const char* texto, std::size_t n)
    {
        if (saltar_ > 0)
            return;
        if (modo_ == Modo::Valor) {
            // A value is almost always a short number: its characters are
            // counted only once its bytes, never fewer, could pass the limit.
            if (contandoValor_) {
                unidadesValor_ += unidadesUtf16(texto, n);
            } else if (static_cast<qint64>(valor_.size() + n) > lim_.caracteresCelda) {
                contandoValor_ = true;
                unidadesValor_ = unidadesUtf16(valor_.data(), valor_.size()) + unidadesUtf16(texto, n);
            }
            if (contandoValor_ && unidadesValor_ > lim_.caracteresCelda)
                throw errorLibro(zip_.libro(), QStringLiteral("un texto tiene más de %1 caracteres").arg(lim_.caracteresCelda));
            valor_.append(texto, n);
        } else if (modo_ == Modo::TextoEnLinea) {
            unidadesEnLinea_ += unidadesUtf16(texto, n);
            if (unidadesEnLinea_ - inicioTexto_ > maximoTexto_)
                throw errorLibro(zip_.libro(), QStringLiteral("un texto tiene más de %1 caracteres").arg(maximoTexto_));
            enLinea_.append(texto, n);
        }
    }

    // A row number of plain digits, as nearly every writer puts it; 0 for
    // anything else, which is read as text.
    static int filaSimple(const char* r)
    {
        int f = 0;
        int i = 0;
        for (; r[i] >= '0' && r[i] <= '9'; ++i) {
            if (i == 7)
                return 0;
            f = f * 10 + (r[i] - '0');
        }
        return r[i] == '\0' && f >= 1 && f <= kFilasXlsx ? f : 0;
    }

    void empezarFila(const XML_Char** atributos)
    {
        const XML_Char* r = atributo(atributos, "r");
        if (!r || !*r) {
            ++fila_;
        } else if (const int simple = filaSimple(r); simple > 0) {
            fila_ = simple;
        } else {
            const QString texto = QString::fromUtf8(r);
            bool ok = false;
            const int f = texto.toInt(&ok);
            if (!ok || f < 1 || f > kFilasXlsx)
                throw error(QStringLiteral("el número de fila '%1' no es válido").arg(texto));
            fila_ = f;
        }
        if (fila_ > kFilasXlsx)
            throw error(QStringLiteral("la hoja tiene más de %1 filas").arg(kFilasXlsx));
        columna_ = 0;
    }

    // The value types of a cell's t attribute.
    enum class Tipo { Numero, Compartido, EnLinea, Booleano, Error, Texto, Desconocido };

    static Tipo tipoDe(std::string_view t)
    {
        if (t.empty() || nombreEs(t, "n"))
            return Tipo::Numero;
        if (nombreEs(t, "s"))
            return Tipo::Compartido;
        if (nombreEs(t, "inlineStr"))
            return Tipo::EnLinea;
        if (nombreEs(t, "b"))
            return Tipo::Booleano;
        if (nombreEs(t, "e"))
            return Tipo::Error;
        // A formula's text result, or a date kept as ISO text.
        if (nombreEs(t, "str") || nombreEs(t, "d"))
            return Tipo::Texto;
        return Tipo::Desconocido;
    }

    void empezarCelda(const XML_Char** atributos)
    {
        int fila = fila_;
        int columna = columna_ + 1;
        Tipo tipo = Tipo::Numero;
        tipoTexto_.clear();
        bool conReferencia = false;
        for (const XML_Char** a = atributos; *a; a += 2) {
            const std::string_view nombre(a[0]);
            if (nombreEs(nombre, "r")) {
                conReferencia = true;
                if (!leerReferencia(a[1], fila, columna))
                    throw error(QStringLiteral("la referencia de celda '%1' no es válida").arg(QString::fromUtf8(a[1]).left(20)));
            } else if (nombreEs(nombre, "t")) {
                tipo = tipoDe(a[1]);
                if (tipo == Tipo::Desconocido)
                    tipoTexto_ = QString::fromUtf8(a[1]).left(20);
            }
            // Attributes in a namespace come as "uri\x01name" and match neither.
        }
        if (!conReferencia && (fila < 1 || columna > kColumnasXlsx))
            throw error(QStringLiteral("una celda de la hoja no tiene posición válida"));
        fila_ = fila;
        columna_ = columna;
        tipo_ = tipo;
        conValor_ = false;
        conTextoEnLinea_ = false;
        valor_.clear();
        unidadesValor_ = 0;
        contandoValor_ = false;
        enLinea_.clear();
        unidadesEnLinea_ = 0;
        nivelCelda_ = profundidad_;
        modo_ = Modo::Celda;
    }

    void terminarCelda()
    {
        if (tipo_ == Tipo::Desconocido && conValor_)
            throw error(QStringLiteral("la celda %1 tiene un tipo desconocido ('%2')").arg(nombreCelda(fila_, columna_), tipoTexto_));
        if (tipo_ == Tipo::EnLinea) {
            if (conTextoEnLinea_) {
                contar();
                contarTexto(unidadesEnLinea_);
                hoja_.ponerTexto(fila_, columna_, decodificarEscapes(QString::fromUtf8(enLinea_)));
            }
            return;
        }
        if (conValor_)
            guardar(fila_, columna_, tipo_);
        // Without a value the cell is only formatted: empty.
    }

    void contar()
    {
        if (++celdas_ > lim_.celdas)
            throw error(QStringLiteral("la hoja tiene más de %1 celdas con datos").arg(lim_.celdas));
    }

    void contarTexto(qint64 caracteres)
    {
        caracteresTextos_ += caracteres;
        if (caracteresTextos_ > lim_.caracteresTextos)
            throw error(QStringLiteral("los textos del libro suman más de %1 caracteres").arg(lim_.caracteresTextos));
    }

    // Numbers, nearly every value of a sheet, are read from the bytes when
    // they are ASCII; anything else goes through QString as before.
    bool numero(double& d) const
    {
        const char* p = valor_.data();
        const char* fin = p + valor_.size();
        for (const char* q = p; q != fin; ++q)
            if (static_cast<unsigned char>(*q) > 0x7f)
                return leerNumero(QStringView(QString::fromUtf8(valor_)).trimmed(), d);
        // QChar::isSpace within ASCII.
        const auto blanco = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
        while (p != fin && blanco(*p))
            ++p;
        while (fin != p && blanco(fin[-1]))
            --fin;
        return leerNumeroAscii(p, fin, d);
    }

    void guardar(int fila, int columna, Tipo tipo)
    {
        contar();
        if (tipo == Tipo::Numero) {
            double d = 0;
            if (!numero(d))
                throw error(QStringLiteral("el valor '%1' de la celda %2 no es un número")
                                .arg(QString::fromUtf8(valor_).left(40), nombreCelda(fila, columna)));
            hoja_.ponerNumero(fila, columna, d);
            return;
        }
        const QString valor = QString::fromUtf8(valor_);
        const QStringView v = QStringView(valor).trimmed();
        switch (tipo) {
        case Tipo::Compartido: {
            bool ok = false;
            const uint indice = v.toUInt(&ok);
            if (!ok || !hoja_.ponerTextoCompartido(fila, columna, indice))
                throw error(QStringLiteral("la celda %1 remite a un texto que el libro no tiene").arg(nombreCelda(fila, columna)));
            break;
        }
        case Tipo::Booleano:
            if (v == u"1" || v == u"true")
                hoja_.ponerBooleano(fila, columna, true);
            else if (v == u"0" || v == u"false")
                hoja_.ponerBooleano(fila, columna, false);
            else
                throw error(QStringLiteral("el valor '%1' de la celda %2 no es un valor lógico").arg(valor.left(40), nombreCelda(fila, columna)));
            break;
        case Tipo::Error:
            contarTexto(valor.size());
            hoja_.ponerError(fila, columna, valor);
            break;
        case Tipo::Texto:
            contarTexto(valor.size());
            hoja_.ponerTexto(fila, columna, decodificarEscapes(valor));
            break;
        case Tipo::Numero:
        case Tipo::EnLinea:
        case Tipo::Desconocido: break;
        }
    }

    VbError malformada() const
    {
        return errorLibro(zip_.libro(), QStringLiteral("la parte '%1' está dañada o mal formada (línea %2, columna %3)")
                                            .arg(nombre_)
                                            .arg(XML_GetCurrentLineNumber(x_))
                                            .arg(XML_GetCurrentColumnNumber(x_)));
    }

    VbError error(const QString& detalle) const { return errorLibro(zip_.libro(), detalle); }

    const Zip& zip_;
    QString nombre_;
    HojaExcel& hoja_;
    const LimitesLibro& lim_;
    zip_file_t* f_ = nullptr;
    XML_Parser x_ = nullptr;
    std::exception_ptr error_;
    qint64 leidos_ = 0;
    int profundidad_ = 0;
    int saltar_ = 0; // depth of the element being skipped, 0 when none
    bool enDatos_ = false;
    Modo modo_ = Modo::Hoja;
    int nivelCelda_ = 0;
    int nivelEnLinea_ = 0;
    int fila_ = 0;
    int columna_ = 0;
    Tipo tipo_ = Tipo::Numero;
    QString tipoTexto_;
    bool conValor_ = false;
    bool conTextoEnLinea_ = false;
    std::string valor_;   // UTF-8 text of the cell's <v>, reused from cell to cell
    // Characters of the value, -1 minus their number once counted; 0
    // until then.
    qint64 unidadesValor_ = 0; // counted only when contandoValor_
    bool contandoValor_ = false;
    std::string enLinea_; // UTF-8 text of the cell's <is>
    qint64 unidadesEnLinea_ = 0;
    qint64 inicioTexto_ = 0;
    qint64 maximoTexto_ = 0;
    qint64 celdas_ = 0;
    qint64 caracteresTextos_ = 0;
};

// Inflates a part on a thread of its own, a few chunks ahead of whoever
// scans it: inflating is a good part of reading a large sheet, and a second
// core does it meanwhile. Stops on its own at the end of the part, at an
// error, past the limit on inflated bytes, or when it is destroyed.
class Inflador {
public:
    Inflador(zip_file_t* f, qint64 limite) : f_(f), limite_(limite), hilo_([this] { trabajar(); }) {}
    ~Inflador()
    {
        {
            std::lock_guard<std::mutex> l(m_);
            parar_ = true;
        }
        cv_.notify_all();
        hilo_.join();
    }
    Inflador(const Inflador&) = delete;
    Inflador& operator=(const Inflador&) = delete;

    // Appends the next inflated chunk to destino; its size, 0 at the end.
    // Throws when the part could not be inflated.
    std::size_t siguiente(std::string& destino)
    {
        std::vector<char> trozo;
        {
            std::unique_lock<std::mutex> l(m_);
            cv_.wait(l, [this] { return !listos_.empty() || fin_ || error_; });
            if (listos_.empty()) {
                if (error_)
                    throw std::runtime_error("zip");
                return 0;
            }
            trozo = std::move(listos_.front());
            listos_.pop_front();
        }
        cv_.notify_all();
        destino.append(trozo.data(), trozo.size());
        return trozo.size();
    }

private:
    static constexpr std::size_t kPorDelante = 8;

    void trabajar()
    {
        qint64 leidos = 0;
        for (;;) {
            {
                std::unique_lock<std::mutex> l(m_);
                cv_.wait(l, [this] { return listos_.size() < kPorDelante || parar_; });
                if (parar_)
                    return;
            }
            std::vector<char> trozo;
            zip_int64_t n = -1;
            try {
                trozo.resize(static_cast<std::size_t>(kTrozo));
                n = zip_fread(f_, trozo.data(), static_cast<zip_uint64_t>(kTrozo));
            } catch (...) {
            }
            bool terminado = true;
            {
                std::lock_guard<std::mutex> l(m_);
                if (n < 0) {
                    error_ = true;
                } else if (n == 0) {
                    fin_ = true;
                } else {
                    trozo.resize(static_cast<std::size_t>(n));
                    listos_.push_back(std::move(trozo));
                    leidos += n;
                    // Past the limit the reader stops anyway: nothing more
                    // is inflated, and whoever asks past it is told so.
                    error_ = leidos > limite_;
                    terminado = error_;
                }
            }
            cv_.notify_all();
            if (terminado)
                return;
        }
    }

    zip_file_t* f_;
    qint64 limite_;
    std::mutex m_;
    std::condition_variable cv_;
    std::deque<std::vector<char>> listos_;
    bool fin_ = false;
    bool error_ = false;
    bool parar_ = false;
    std::thread hilo_; // last: it starts once the rest is ready
};

// Workbook writers put out plain XML: a declaration, elements with
// attributes, texts with the five named entities and character references.
// Expat, for all it checks, spends on such a sheet several times what
// inflating it costs, so the sheet is first scanned here, and handed to the
// same handlers LectorHoja gives expat. The scan accepts only what it can
// tell well-formed (and namespace-correct) exactly as expat would; at
// anything else — a comment, a DTD, a foreign encoding, an unbound prefix,
// malformed markup, or any error at all, a workbook's or a limit's — it gives
// up, and the caller reads the part again with expat, which finds the
// first problem and words it. So it never decides what a workbook means: it
// only saves expat the work where expat would agree.
class EscanerHoja {
public:
    // enParalelo: inflate on a second thread, worth it for a large part.
    EscanerHoja(LectorHoja& lector, bool enParalelo) : l_(lector)
    {
        // Values are handed over by pointer: the strings must not move.
        valores_.resize(kMaxAtributos);
        if (enParalelo)
            inflador_ = std::make_unique<Inflador>(l_.f_, l_.lim_.bytesParte);
    }

    // False when expat has to read the part.
    bool recorrer()
    {
        if (!prologo())
            return false;
        bool raizVista = false;
        for (;;) {
            if (abiertos_ == 0) {
                // Around the root element only blanks may stand.
                std::size_t i = 0;
                for (;;) {
                    if (pos_ + i == buf_.size()) {
                        pos_ += i;
                        i = 0;
                        if (!rellenar())
                            return raizVista; // the end of the part
                    }
                    if (!blanco(buf_[pos_ + i]))
                        break;
                    ++i;
                }
                pos_ += i;
                if (raizVista || buf_[pos_] != '<')
                    return false;
                if (!haySiguiente(1) || !inicioNombre(buf_[pos_ + 1]))
                    return false;
                raizVista = true;
                if (!etiquetaInicio())
                    return false;
                continue;
            }
            if (pos_ == buf_.size() && !rellenar())
                return false; // the part ends inside the root
            if (buf_[pos_] != '<') {
                if (!texto())
                    return false;
                continue;
            }
            if (!haySiguiente(1))
                return false;
            const char c = buf_[pos_ + 1];
            if (c == '/') {
                if (!etiquetaFin())
                    return false;
            } else if (inicioNombre(c)) {
                if (!etiquetaInicio())
                    return false;
            } else {
                return false; // comments, CDATA, processing instructions
            }
        }
    }

private:
    // A token longer than this is left to expat, which streams it.
    static constexpr std::size_t kMaxToken = 1 << 20;
    static constexpr std::size_t kMaxAtributos = 64;

    static bool blanco(char c) { return c == ' ' || c == '\n' || c == '\t' || c == '\r'; }
    static bool inicioNombre(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':'; }
    static bool restoNombre(char c)
    {
        return inicioNombre(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
    }

    // Appends the next inflated bytes, dropping those already scanned;
    // offsets from pos_ stay valid. False at the end of the part.
    bool rellenar()
    {
        if (fin_)
            return false;
        if (pos_ > 0) {
            buf_.erase(0, pos_);
            pos_ = 0;
        }
        if (buf_.size() > kMaxToken)
            throw std::length_error("token");
        zip_int64_t n = 0;
        if (inflador_) {
            n = static_cast<zip_int64_t>(inflador_->siguiente(buf_));
        } else {
            const std::size_t antes = buf_.size();
            buf_.resize(antes + static_cast<std::size_t>(kTrozo));
            n = zip_fread(l_.f_, buf_.data() + antes, static_cast<zip_uint64_t>(kTrozo));
            if (n < 0)
                throw std::runtime_error("zip");
            buf_.resize(antes + static_cast<std::size_t>(n));
        }
        l_.leidos_ += n;
        if (l_.leidos_ > l_.lim_.bytesParte)
            throw std::length_error("part");
        if (n == 0)
            fin_ = true;
        return n > 0;
    }

    // Whether the byte at pos_ + i is there, reading more when needed.
    bool haySiguiente(std::size_t i)
    {
        while (pos_ + i >= buf_.size())
            if (!rellenar())
                return false;
        return true;
    }

    // Offset from pos_ of the first c at or after offset i, npos when the
    // part ends first.
    std::size_t hasta(char c, std::size_t i)
    {
        for (;;) {
            if (pos_ + i < buf_.size()) {
                const void* p = std::memchr(buf_.data() + pos_ + i, c, buf_.size() - pos_ - i);
                if (p)
                    return static_cast<std::size_t>(static_cast<const char*>(p) - buf_.data()) - pos_;
                i = buf_.size() - pos_;
            }
            if (!rellenar())
                return std::string::npos;
        }
    }

    // A byte order mark and the declaration, when they are there.
    bool prologo()
    {
        if (!haySiguiente(0))
            return false;
        if (static_cast<unsigned char>(buf_[pos_]) == 0xEF) {
            if (!haySiguiente(2) || buf_.compare(pos_, 3, "\xEF\xBB\xBF") != 0)
                return false;
            pos_ += 3;
            if (!haySiguiente(0))
                return false;
        }
        if (!haySiguiente(5) || buf_.compare(pos_, 5, "<?xml") != 0)
            return true;
        const std::size_t fin = hasta('>', 5);
        if (fin == std::string::npos || buf_[pos_ + fin - 1] != '?')
            return false;
        std::string_view d(buf_.data() + pos_ + 5, fin - 6);
        pos_ += fin + 1;
        // version, then optionally encoding and standalone, in that order.
        std::string_view valor;
        const auto pseudo = [&](std::string_view nombre) {
            std::size_t i = 0;
            while (i < d.size() && blanco(d[i]))
                ++i;
            if (i == 0 || d.substr(i, nombre.size()) != nombre)
                return false;
            i += nombre.size();
            while (i < d.size() && blanco(d[i]))
                ++i;
            if (i == d.size() || d[i] != '=')
                return false;
            ++i;
            while (i < d.size() && blanco(d[i]))
                ++i;
            if (i == d.size() || (d[i] != '"' && d[i] != '\''))
                return false;
            const std::size_t cierre = d.find(d[i], i + 1);
            if (cierre == std::string_view::npos)
                return false;
            valor = d.substr(i + 1, cierre - i - 1);
            d.remove_prefix(cierre + 1);
            return true;
        };
        if (!pseudo("version") || valor != "1.0")
            return false;
        if (pseudo("encoding")) {
            if (valor.size() != 5 || (valor[0] | 0x20) != 'u' || (valor[1] | 0x20) != 't' || (valor[2] | 0x20) != 'f'
                || valor[3] != '-' || valor[4] != '8')
                return false;
        }
        if (pseudo("standalone") && valor != "yes" && valor != "no")
            return false;
        for (const char c : d)
            if (!blanco(c))
                return false;
        return true;
    }

    // Length of the valid UTF-8 character at p (lead byte 0x80 or above)
    // that XML allows, 0 when it is not one.
    static std::size_t caracterUtf8(const unsigned char* p, const unsigned char* fin)
    {
        const auto cont = [&](std::size_t i, unsigned char bajo, unsigned char alto) {
            return p + i < fin && p[i] >= bajo && p[i] <= alto;
        };
        const unsigned char b = p[0];
        if (b >= 0xC2 && b <= 0xDF)
            return cont(1, 0x80, 0xBF) ? 2 : 0;
        if (b >= 0xE0 && b <= 0xEF) {
            const unsigned char bajo = b == 0xE0 ? 0xA0 : 0x80;
            const unsigned char alto = b == 0xED ? 0x9F : 0xBF;
            if (!cont(1, bajo, alto) || !cont(2, 0x80, 0xBF))
                return 0;
            // U+FFFE and U+FFFF are no characters.
            if (b == 0xEF && p[1] == 0xBF && p[2] >= 0xBE)
                return 0;
            return 3;
        }
        if (b >= 0xF0 && b <= 0xF4) {
            const unsigned char bajo = b == 0xF0 ? 0x90 : 0x80;
            const unsigned char alto = b == 0xF4 ? 0x8F : 0xBF;
            return cont(1, bajo, alto) && cont(2, 0x80, 0xBF) && cont(3, 0x80, 0xBF) ? 4 : 0;
        }
        return 0;
    }

    static void anadirUtf8(std::string& s, std::uint32_t c)
    {
        if (c < 0x80) {
            s += static_cast<char>(c);
        } else if (c < 0x800) {
            s += static_cast<char>(0xC0 | (c >> 6));
            s += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            s += static_cast<char>(0xE0 | (c >> 12));
            s += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            s += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            s += static_cast<char>(0xF0 | (c >> 18));
            s += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            s += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            s += static_cast<char>(0x80 | (c & 0x3F));
        }
    }

    // The reference at the start of r ("&amp;", "&#10;"...), appended to
    // destino; its length, 0 when it is not one expat would take without
    // a DTD.
    static std::size_t referencia(std::string_view r, std::string& destino)
    {
        const std::size_t fin = r.find(';');
        if (fin == std::string_view::npos || fin > 12)
            return 0;
        const std::string_view n = r.substr(1, fin - 1);
        if (n == "lt")
            destino += '<';
        else if (n == "gt")
            destino += '>';
        else if (n == "amp")
            destino += '&';
        else if (n == "quot")
            destino += '"';
        else if (n == "apos")
            destino += '\'';
        else if (n.size() >= 2 && n[0] == '#') {
            std::uint32_t c = 0;
            const bool hex = n[1] == 'x';
            const std::string_view cifras = n.substr(hex ? 2 : 1);
            if (cifras.empty())
                return 0;
            for (const char d : cifras) {
                int v;
                if (d >= '0' && d <= '9')
                    v = d - '0';
                else if (hex && (d | 0x20) >= 'a' && (d | 0x20) <= 'f')
                    v = (d | 0x20) - 'a' + 10;
                else
                    return 0;
                c = c * (hex ? 16 : 10) + static_cast<std::uint32_t>(v);
                if (c > 0x10FFFF)
                    return 0;
            }
            const bool valido = c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF)
                                || (c >= 0xE000 && c <= 0xFFFD) || c >= 0x10000;
            if (!valido)
                return 0;
            anadirUtf8(destino, c);
        } else {
            return 0;
        }
        return fin + 1;
    }

    // Checks a run of character data or an attribute's value: characters
    // XML allows, and no '<'. Sets decodificar when it holds references or
    // line ends that expat would turn into something else.
    static bool comprobar(std::string_view s, bool enAtributo, bool& decodificar)
    {
        const auto* p = reinterpret_cast<const unsigned char*>(s.data());
        const auto* fin = p + s.size();
        while (p < fin) {
            const unsigned char b = *p;
            if (b >= 0x80) {
                const std::size_t n = caracterUtf8(p, fin);
                if (n == 0)
                    return false;
                p += n;
                continue;
            }
            if (b < 0x20) {
                if (b != '\t' && b != '\n' && b != '\r')
                    return false;
                if (b == '\r' || enAtributo)
                    decodificar = true;
            } else if (b == '&') {
                decodificar = true;
            } else if (b == '<') {
                return false;
            } else if (b == ']' && !enAtributo && fin - p >= 3 && p[1] == ']' && p[2] == '>') {
                return false;
            }
            ++p;
        }
        return true;
    }

    // What expat hands over for the text: references replaced, line ends
    // normalised, and in an attribute's value each blank a space. False
    // when a reference is not one expat would take.
    static bool decodificar(std::string_view s, bool enAtributo, std::string& destino)
    {
        destino.clear();
        for (std::size_t i = 0; i < s.size(); ++i) {
            const char c = s[i];
            if (c == '&') {
                const std::size_t n = referencia(s.substr(i), destino);
                if (n == 0)
                    return false;
                i += n - 1;
            } else if (c == '\r') {
                if (i + 1 < s.size() && s[i + 1] == '\n')
                    ++i;
                destino += enAtributo ? ' ' : '\n';
            } else if (enAtributo && (c == '\n' || c == '\t')) {
                destino += ' ';
            } else {
                destino += c;
            }
        }
        return true;
    }

    // Character data up to the next '<'.
    bool texto()
    {
        const std::size_t fin = hasta('<', 0);
        if (fin == std::string::npos)
            return false;
        const std::string_view t(buf_.data() + pos_, fin);
        bool decodificarlo = false;
        // A "]]>" split over two runs is still seen: the run ends at '<'.
        if (!comprobar(t, false, decodificarlo))
            return false;
        if (decodificarlo) {
            if (!decodificar(t, false, textoDecodificado_))
                return false;
            if (!textoDecodificado_.empty())
                l_.anadirTexto(textoDecodificado_.data(), textoDecodificado_.size());
        } else {
            l_.anadirTexto(t.data(), t.size());
        }
        pos_ += fin;
        return true;
    }

    // Whether the name's prefix, if any, is declared; the local name in
    // local. Names of more than one colon, or a colon at an end, are
    // refused.
    bool nombreLocal(std::string_view nombre, bool esElemento, std::string_view& local) const
    {
        std::size_t dos = 0;
        while (dos < nombre.size() && nombre[dos] != ':')
            ++dos;
        if (dos == nombre.size()) {
            local = nombre;
            return true;
        }
        if (dos == 0 || dos + 1 == nombre.size() || nombre.find(':', dos + 1) != std::string_view::npos)
            return false;
        const std::string_view prefijo = nombre.substr(0, dos);
        local = nombre.substr(dos + 1);
        if (prefijo == "xml")
            return !esElemento;
        for (const auto& [p, nivel] : prefijos_)
            if (p == prefijo)
                return true;
        return false;
    }

    static bool uriReservada(std::string_view uri)
    {
        return uri == "http://www.w3.org/XML/1998/namespace" || uri == "http://www.w3.org/2000/xmlns/";
    }

    enum class Paso { Hecho, Falla, Faltan };

    bool etiquetaInicio()
    {
        for (;;) {
            const Paso p = leerEtiqueta();
            if (p != Paso::Faltan)
                return p == Paso::Hecho;
            if (buf_.size() - pos_ > kMaxToken || !rellenar())
                return false;
        }
    }

    // The start tag at pos_, in one pass over the bytes at hand: Faltan
    // when they end first, and it is read again once there are more.
    Paso leerEtiqueta()
    {
        char* const t = buf_.data() + pos_;
        const std::size_t total = buf_.size() - pos_;
        std::size_t k = 1;
        while (k < total && restoNombre(t[k]))
            ++k;
        const std::string_view nombre(t + 1, k - 1);

        // name="value" pairs; names and values are cut with a NUL in place
        // for the handlers, which take C strings, once the tag is read.
        Atributo* const atributos = atributos_;
        std::size_t n = 0;
        std::size_t decodificados = 0;
        bool vacio = false;
        for (;;) {
            bool blancos = false;
            while (k < total && blanco(t[k])) {
                ++k;
                blancos = true;
            }
            if (k == total)
                return Paso::Faltan;
            if (t[k] == '>')
                break;
            if (t[k] == '/') {
                if (k + 1 == total)
                    return Paso::Faltan;
                if (t[k + 1] != '>')
                    return Paso::Falla;
                vacio = true;
                ++k;
                break;
            }
            if (!blancos || !inicioNombre(t[k]) || n == kMaxAtributos)
                return Paso::Falla;
            const std::size_t inicio = k;
            while (k < total && restoNombre(t[k]))
                ++k;
            const std::size_t finNombre = k;
            while (k < total && blanco(t[k]))
                ++k;
            if (k == total)
                return Paso::Faltan;
            if (t[k] != '=')
                return Paso::Falla;
            ++k;
            while (k < total && blanco(t[k]))
                ++k;
            if (k == total)
                return Paso::Faltan;
            if (t[k] != '"' && t[k] != '\'')
                return Paso::Falla;
            const std::size_t inicioValor = k + 1;
            const void* cierre = std::memchr(t + inicioValor, t[k], total - inicioValor);
            if (!cierre)
                return Paso::Faltan;
            const std::size_t finValor = static_cast<std::size_t>(static_cast<const char*>(cierre) - t);
            const std::string_view valorCrudo(t + inicioValor, finValor - inicioValor);
            bool decodificarlo = false;
            if (!comprobar(valorCrudo, true, decodificarlo))
                return Paso::Falla;
            const char* valor = t + inicioValor;
            if (decodificarlo) {
                std::string& d = valores_[decodificados++];
                if (!decodificar(valorCrudo, true, d))
                    return Paso::Falla;
                valor = d.c_str();
            }
            const std::string_view nombreAtributo(t + inicio, finNombre - inicio);
            for (std::size_t j = 0; j < n; ++j)
                if (atributos[j].nombre == nombreAtributo)
                    return Paso::Falla;
            atributos[n++] = {nombreAtributo, valor, finValor,
                              decodificarlo ? std::string_view(valor) : valorCrudo};
            k = finValor + 1;
        }
        const std::size_t finEtiqueta = k; // the '>'

        // Namespace declarations, which expat keeps to itself.
        for (std::size_t j = 0; j < n; ++j) {
            const std::string_view nombreAtributo = atributos[j].nombre;
            const std::string_view valorDecl = atributos[j].valorVisto;
            if (nombreEs(nombreAtributo, "xmlns")) {
                if (uriReservada(valorDecl))
                    return Paso::Falla;
            } else if (empiezaPor(nombreAtributo, "xmlns:")) {
                const std::string_view prefijo = nombreAtributo.substr(6);
                if (prefijo.empty() || prefijo.find(':') != std::string_view::npos || valorDecl.empty()
                    || uriReservada(valorDecl)
                    || (prefijo.size() >= 3 && (prefijo[0] | 0x20) == 'x' && (prefijo[1] | 0x20) == 'm'
                        && (prefijo[2] | 0x20) == 'l'))
                    return Paso::Falla;
                prefijos_.emplace_back(std::string(prefijo), abiertos_ + 1);
            }
        }

        // The names, now that every declaration of the tag is known.
        std::string_view local;
        if (!nombreLocal(nombre, true, local) || empiezaPor(nombre, "xmlns:"))
            return Paso::Falla;
        atributosC_.clear();
        for (std::size_t j = 0; j < n; ++j) {
            const Atributo& a = atributos[j];
            if (nombreEs(a.nombre, "xmlns") || empiezaPor(a.nombre, "xmlns:"))
                continue;
            std::string_view localAtributo;
            if (!nombreLocal(a.nombre, false, localAtributo))
                return Paso::Falla;
            // Two attributes of one local name in namespaces might be one
            // attribute to expat: left to it.
            if (localAtributo.size() != a.nombre.size())
                for (std::size_t m = 0; m < n; ++m) {
                    const std::string_view otro = atributos[m].nombre;
                    const std::size_t dos = otro.find(':');
                    if (m != j && dos != std::string_view::npos && !empiezaPor(otro, "xmlns:")
                        && otro.substr(dos + 1) == localAtributo)
                        return Paso::Falla;
                }
            atributosC_.push_back(a.nombre.data());
            atributosC_.push_back(a.valor);
        }
        atributosC_.push_back(nullptr);
        // Cut the names and the values in place: the tag has been read.
        for (std::size_t j = 0; j < n; ++j) {
            char* finN = const_cast<char*>(atributos[j].nombre.data()) + atributos[j].nombre.size();
            *finN = '\0';
        }
        for (std::size_t j = 0; j < n; ++j)
            t[atributos[j].finValor] = '\0';

        if (abiertos_ == pila_.size()) {
            pila_.emplace_back();
            locales_.push_back(0);
        }
        pila_[abiertos_].assign(nombre.data(), nombre.size());
        locales_[abiertos_] = nombre.size() - local.size();
        ++abiertos_;
        // The local name is copied: the buffer may move before the end tag.
        l_.empezar(std::string_view(pila_[abiertos_ - 1]).substr(locales_[abiertos_ - 1]), atributosC_.data());
        pos_ += finEtiqueta + 1;
        if (vacio)
            cerrar();
        return Paso::Hecho;
    }

    // The element on top ends.
    void cerrar()
    {
        l_.terminar(std::string_view(pila_[abiertos_ - 1]).substr(locales_[abiertos_ - 1]));
        while (!prefijos_.empty() && prefijos_.back().second == abiertos_)
            prefijos_.pop_back();
        --abiertos_;
    }

    bool etiquetaFin()
    {
        const std::size_t fin = hasta('>', 2);
        if (fin == std::string::npos || fin > kMaxToken)
            return false;
        std::string_view e(buf_.data() + pos_ + 2, fin - 2);
        while (!e.empty() && blanco(e.back()))
            e.remove_suffix(1);
        const std::string& abierto = pila_[abiertos_ - 1];
        if (e.size() != abierto.size())
            return false;
        for (std::size_t i = 0; i < e.size(); ++i)
            if (e[i] != abierto[i])
                return false;
        cerrar();
        pos_ += fin + 1;
        return true;
    }

    struct Atributo {
        std::string_view nombre;
        const char* valor;
        std::size_t finValor;   // offset of its closing quote
        std::string_view valorVisto; // the value as expat gives it
    };

    LectorHoja& l_;
    Atributo atributos_[kMaxAtributos];
    std::string buf_;
    std::size_t pos_ = 0;
    bool fin_ = false;
    // Raw names of the open elements; the first abiertos_ are in use.
    std::vector<std::string> pila_;
    std::vector<std::size_t> locales_; // where the local name starts in each
    std::size_t abiertos_ = 0;
    // Declared prefixes and the level of the element that declares them.
    std::vector<std::pair<std::string, std::size_t>> prefijos_;
    std::vector<const char*> atributosC_;
    std::vector<std::string> valores_;
    std::string textoDecodificado_;
    std::unique_ptr<Inflador> inflador_; // last: stopped before the rest goes
};

bool LectorHoja::leerRapido(bool enParalelo)
{
    try {
        return EscanerHoja(*this, enParalelo).recorrer();
    } catch (...) {
        return false;
    }
}

// ---- The whole workbook ------------------------------------------------------------

// The inflated size the zip declares for a part, within the limit on
// inflated bytes; 0 when it says none. Only a guess: nothing relies on it.
qint64 tamanoDeclarado(const Zip& zip, const QString& parte)
{
    zip_stat_t st;
    zip_stat_init(&st);
    const zip_int64_t i = zip.buscar(parte);
    if (i < 0 || zip_stat_index(zip.z(), static_cast<zip_uint64_t>(i), 0, &st) != 0 || !(st.valid & ZIP_STAT_SIZE))
        return 0;
    return static_cast<qint64>(std::min<zip_uint64_t>(st.size, static_cast<zip_uint64_t>(zip.limites().bytesParte)));
}

std::unique_ptr<HojaExcel> leerZip(zip_t* z, const QString& libro, const LimitesLibro& limites, bool soloExpat)
{
    Zip zip(z, libro, limites);
    if (zip_get_num_entries(z, 0) > limites.entradasZip)
        throw errorLibro(libro, QStringLiteral("el archivo contiene más de %1 partes").arg(limites.entradasZip));

    // The package's relationships say where the workbook is; without them
    // the usual place is tried.
    QString parteLibro;
    for (const Relacion& r : leerRelaciones(zip, QString()))
        if (tipoTermina(r, "/officeDocument")) {
            parteLibro = r.destino;
            break;
        }
    if (parteLibro.isEmpty())
        parteLibro = QStringLiteral("xl/workbook.xml");
    if (zip.buscar(parteLibro) < 0)
        throw errorLibro(libro, QStringLiteral("el archivo no es un libro de Excel"));

    const Libro declarado = leerLibro(zip, parteLibro);
    if (declarado.hojas.empty())
        throw errorLibro(libro, QStringLiteral("el libro no tiene hojas"));
    const std::vector<Relacion> relaciones = leerRelaciones(zip, parteLibro);

    const int activa = declarado.pestanaActiva >= 0 && declarado.pestanaActiva < static_cast<int>(declarado.hojas.size())
                           ? declarado.pestanaActiva
                           : 0;
    const HojaDeclarada& h = declarado.hojas[static_cast<std::size_t>(activa)];
    const Relacion* destino = nullptr;
    for (const Relacion& r : relaciones)
        if (r.id == h.idRelacion)
            destino = &r;
    if (!destino)
        throw errorLibro(libro, QStringLiteral("no se encuentra la hoja '%1'").arg(h.nombre));
    if (!tipoTermina(*destino, "/worksheet"))
        throw errorLibro(libro, QStringLiteral("la hoja activa '%1' no es una hoja de cálculo").arg(h.nombre));

    std::optional<std::vector<QString>> textos;
    for (const Relacion& r : relaciones)
        if (tipoTermina(r, "/sharedStrings")) {
            if (zip.buscar(r.destino) >= 0)
                textos = leerTextos(zip, r.destino);
            break;
        }
    const auto nueva = [&] {
        auto hoja = std::make_unique<HojaExcel>(kFilasXlsx, kColumnasXlsx, h.nombre);
        if (textos)
            hoja->ponerTextos(*textos);
        return hoja;
    };
    // Room for the cells a sheet of this size usually holds, so that they
    // are not copied as the store grows.
    const qint64 bytesHoja = tamanoDeclarado(zip, destino->destino);
    auto hoja = nueva();
    hoja->reservar(static_cast<std::size_t>(std::min(bytesHoja / 40, limites.celdas)));
    const bool enParalelo = bytesHoja >= 1024 * 1024;
    if (!soloExpat && LectorHoja(zip, destino->destino, *hoja).leerRapido(enParalelo)) {
        hoja->cerrar();
        return hoja;
    }
    hoja = nueva();
    LectorHoja(zip, destino->destino, *hoja).leer();
    hoja->cerrar();
    return hoja;
}

QString mensajeZip(int codigo)
{
    switch (codigo) {
    case ZIP_ER_NOZIP: return QStringLiteral("el archivo no es un libro de Excel");
    case ZIP_ER_NOENT: return QStringLiteral("no se encuentra el archivo");
    case ZIP_ER_OPEN:
    case ZIP_ER_READ: return QStringLiteral("no se puede leer el archivo");
    case ZIP_ER_MEMORY: return QStringLiteral("no hay memoria suficiente");
    default: return QStringLiteral("el archivo está dañado o incompleto");
    }
}

} // namespace

VbError errorLibro(const QString& nombreLibro, const QString& detalle)
{
    return VbError(1004, QStringLiteral("No se puede leer el libro '%1': %2.").arg(nombreLibro, detalle));
}

FormatoLibro formatoDe(const QByteArray& cabecera)
{
    if (cabecera.startsWith(QByteArrayLiteral("PK\x03\x04")))
        return FormatoLibro::Xlsx;
    if (cabecera.startsWith(QByteArrayLiteral("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1")))
        return FormatoLibro::Xls;
    return FormatoLibro::Desconocido;
}

std::unique_ptr<HojaExcel> LectorXlsx::leerFichero(const QString& ruta, const LimitesLibro& limites)
{
    const QString libro = QFileInfo(ruta).fileName();
    int codigo = 0;
    zip_t* z = zip_open(QFile::encodeName(ruta).constData(), ZIP_RDONLY | ZIP_CHECKCONS, &codigo);
    if (!z)
        throw errorLibro(libro, mensajeZip(codigo));
    return leerZip(z, libro, limites, false);
}

namespace {

std::unique_ptr<HojaExcel> leerBytes(const QByteArray& datos, const QString& nombreLibro, const LimitesLibro& limites,
                                     bool soloExpat)
{
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* fuente = zip_source_buffer_create(datos.constData(), static_cast<zip_uint64_t>(datos.size()), 0, &error);
    if (!fuente) {
        zip_error_fini(&error);
        throw errorLibro(nombreLibro, mensajeZip(ZIP_ER_MEMORY));
    }
    zip_t* z = zip_open_from_source(fuente, ZIP_RDONLY | ZIP_CHECKCONS, &error);
    if (!z) {
        const int codigo = zip_error_code_zip(&error);
        zip_source_free(fuente);
        zip_error_fini(&error);
        throw errorLibro(nombreLibro, mensajeZip(codigo));
    }
    zip_error_fini(&error);
    return leerZip(z, nombreLibro, limites, soloExpat);
}

} // namespace

std::unique_ptr<HojaExcel> LectorXlsx::leerMemoria(const QByteArray& datos, const QString& nombreLibro,
                                                   const LimitesLibro& limites)
{
    return leerBytes(datos, nombreLibro, limites, false);
}

std::unique_ptr<HojaExcel> LectorXlsx::leerMemoriaConExpat(const QByteArray& datos, const QString& nombreLibro,
                                                           const LimitesLibro& limites)
{
    return leerBytes(datos, nombreLibro, limites, true);
}

} // namespace presupuestos
