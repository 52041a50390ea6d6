#include "import/readers/LectorLibro.h"

#include "common/VbError.h"

#include <QFile>
#include <QFileInfo>
#include <QXmlStreamReader>
#include <charconv>
#include <cmath>
#include <exception>
#include <expat.h>
#include <string>
#include <string_view>
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
// scanned with expat, fed straight from the inflater, and its texts stay
// UTF-8 until a cell needs them as text. The rules are those of ParteXml:
// elements matched by local name, no DTD, nesting and inflated bytes
// bounded. Expat is C: handlers keep the first error and stop it, and the
// error is raised once expat has returned.
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
            if (nombre == "sheetData")
                enDatos_ = true;
            else if (enDatos_ && nombre == "row")
                empezarFila(atributos);
            else if (enDatos_ && nombre == "c")
                empezarCelda(atributos);
            else if (!enDatos_ && profundidad_ > 1)
                saltar_ = profundidad_; // views, columns, formats and the like say nothing about values
            return;
        case Modo::Celda:
            if (nombre == "v") {
                valor_.clear();
                unidadesValor_ = 0;
                conValor_ = true;
                modo_ = Modo::Valor;
            } else if (nombre == "is") {
                conTextoEnLinea_ = true;
                nivelEnLinea_ = profundidad_;
                modo_ = Modo::EnLinea;
            } else {
                saltar_ = profundidad_; // the formula and extensions
            }
            return;
        case Modo::EnLinea:
            // A <t>, or rich-text runs each with its <t>.
            if (nombre == "t") {
                maximoTexto_ = lim_.caracteresCelda - unidadesEnLinea_;
                inicioTexto_ = unidadesEnLinea_;
                modo_ = Modo::TextoEnLinea;
            } else if (nombre == "rPh" || nombre == "rPr") {
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
            if (nombre == "sheetData")
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
            unidadesValor_ += unidadesUtf16(texto, n);
            if (unidadesValor_ > lim_.caracteresCelda)
                throw errorLibro(zip_.libro(), QStringLiteral("un texto tiene más de %1 caracteres").arg(lim_.caracteresCelda));
            valor_.append(texto, n);
        } else if (modo_ == Modo::TextoEnLinea) {
            unidadesEnLinea_ += unidadesUtf16(texto, n);
            if (unidadesEnLinea_ - inicioTexto_ > maximoTexto_)
                throw errorLibro(zip_.libro(), QStringLiteral("un texto tiene más de %1 caracteres").arg(maximoTexto_));
            enLinea_.append(texto, n);
        }
    }

    void empezarFila(const XML_Char** atributos)
    {
        const XML_Char* r = atributo(atributos, "r");
        if (!r || !*r) {
            ++fila_;
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
        if (t.empty() || t == "n")
            return Tipo::Numero;
        if (t == "s")
            return Tipo::Compartido;
        if (t == "inlineStr")
            return Tipo::EnLinea;
        if (t == "b")
            return Tipo::Booleano;
        if (t == "e")
            return Tipo::Error;
        // A formula's text result, or a date kept as ISO text.
        if (t == "str" || t == "d")
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
            if (nombre == "r") {
                conReferencia = true;
                if (!leerReferencia(a[1], fila, columna))
                    throw error(QStringLiteral("la referencia de celda '%1' no es válida").arg(QString::fromUtf8(a[1]).left(20)));
            } else if (nombre == "t") {
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
    qint64 unidadesValor_ = 0;
    std::string enLinea_; // UTF-8 text of the cell's <is>
    qint64 unidadesEnLinea_ = 0;
    qint64 inicioTexto_ = 0;
    qint64 maximoTexto_ = 0;
    qint64 celdas_ = 0;
    qint64 caracteresTextos_ = 0;
};

// ---- The whole workbook ------------------------------------------------------------

std::unique_ptr<HojaExcel> leerZip(zip_t* z, const QString& libro, const LimitesLibro& limites)
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

    auto hoja = std::make_unique<HojaExcel>(kFilasXlsx, kColumnasXlsx, h.nombre);
    for (const Relacion& r : relaciones)
        if (tipoTermina(r, "/sharedStrings")) {
            if (zip.buscar(r.destino) >= 0)
                hoja->ponerTextos(leerTextos(zip, r.destino));
            break;
        }
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
    return leerZip(z, libro, limites);
}

std::unique_ptr<HojaExcel> LectorXlsx::leerMemoria(const QByteArray& datos, const QString& nombreLibro,
                                                   const LimitesLibro& limites)
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
    return leerZip(z, nombreLibro, limites);
}

} // namespace presupuestos
