#include "ErrorPrueba.h"
#include "LibroPrueba.h"
#include "common/VbError.h"
#include "import/readers/AplicacionExcel.h"
#include "import/readers/HojaExcel.h"
#include "import/readers/LectorLibro.h"

#include <QFile>
#include <QLocale>
#include <QStringList>
#include <QTemporaryDir>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>

using namespace presupuestos;
using presupuestos::prueba::LibrosPrueba;

namespace {

using presupuestos::prueba::numeroError;

// The description of the error the call raised; empty when it raised none.
QString errorDe(const std::function<void()>& f) { return prueba::errorDe(f).description(); }

const QByteArray kCabeceraHoja = QByteArrayLiteral(
    "<?xml version=\"1.0\"?><worksheet xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\">");

QByteArray hojaXml(const QByteArray& datos) { return kCabeceraHoja + "<sheetData>" + datos + "</sheetData></worksheet>"; }
QByteArray fila1(const QByteArray& celdas) { return hojaXml("<row r=\"1\">" + celdas + "</row>"); }
QByteArray enLinea(const QByteArray& texto) { return fila1("<c r=\"A1\" t=\"inlineStr\"><is><t>" + texto + "</t></is></c>"); }

QByteArray textosXml(const QByteArray& si)
{
    return QByteArrayLiteral("<?xml version=\"1.0\"?><sst xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\">") + si
           + "</sst>";
}

// The first cells of a row as "type:value" (n, t, b or e; empty for an
// empty cell), so that a test states a whole row, types and all, at once.
QStringList filaDe(const HojaExcel& h, int fila, int columnas)
{
    QStringList l;
    for (int c = 1; c <= columnas; ++c) {
        const ValorExcel v = h.valor(fila, c);
        switch (v.tipo) {
        case ValorExcel::Tipo::Vacia: l << QString(); break;
        case ValorExcel::Tipo::Numero: l << QStringLiteral("n:") + QString::number(v.numero, 'g', QLocale::FloatingPointShortest); break;
        case ValorExcel::Tipo::Texto: l << QStringLiteral("t:") + v.texto; break;
        case ValorExcel::Tipo::Booleano: l << QStringLiteral("b:%1").arg(int(v.booleano)); break;
        case ValorExcel::Tipo::Error: l << QStringLiteral("e:") + v.texto; break;
        }
    }
    return l;
}

// ---- The sheet's cells and the End(xlUp) rule ------------------------------------

TEST(HojaExcel, EndUpFindsTheLastFilledCellOrRowOne)
{
    HojaExcel h(100, 20);
    h.ponerNumero(2, 5, 1);
    h.ponerNumero(10, 5, 1);
    h.ponerTexto(50, 4, QStringLiteral("otra columna"));
    h.cerrar();
    EXPECT_EQ(h.filaFinArriba(5), 10);
    EXPECT_EQ(h.filaFinArriba(4), 50);
    EXPECT_EQ(h.filaFinArriba(6), 1); // empty column: End stops on row 1

    // Starting on a filled last row: the top of its block, or the next
    // filled cell above when the one above is empty.
    HojaExcel bloque(100, 20);
    for (int f : {3, 97, 98, 99, 100})
        bloque.ponerNumero(f, 1, f);
    bloque.ponerNumero(40, 2, 1);
    bloque.ponerNumero(100, 2, 1);
    bloque.ponerNumero(100, 3, 1);
    bloque.cerrar();
    EXPECT_EQ(bloque.filaFinArriba(1), 97);
    EXPECT_EQ(bloque.filaFinArriba(2), 40);
    EXPECT_EQ(bloque.filaFinArriba(3), 1);
}

TEST(HojaExcel, CellsKeepTheirTypeTheLastValueWinsAndPositionsOutsideRaise)
{
    HojaExcel h(10, 5);
    h.ponerTextos({QStringLiteral("compartido")});
    h.ponerNumero(3, 2, 1.5);
    h.ponerTexto(1, 1, QStringLiteral("a"));
    h.ponerNumero(1, 1, 7); // same cell again, later in the file
    EXPECT_TRUE(h.ponerTextoCompartido(2, 2, 0));
    EXPECT_FALSE(h.ponerTextoCompartido(2, 3, 1));
    h.ponerBooleano(4, 4, true);
    h.ponerError(5, 5, QStringLiteral("#DIV/0!"));
    h.cerrar();

    EXPECT_EQ(h.numeroCeldas(), 5u);
    EXPECT_EQ(filaDe(h, 1, 1), QStringList{"n:7"});
    EXPECT_EQ(filaDe(h, 2, 3), (QStringList{"", "t:compartido", ""}));
    EXPECT_EQ(filaDe(h, 5, 5), (QStringList{"", "", "", "", "e:#DIV/0!"}));
    EXPECT_EQ(filaDe(h, 10, 5), QStringList(5));
    // As the cells show: the number in Spanish, the boolean and the error by name.
    EXPECT_EQ(h.texto(3, 2), QStringLiteral("1,5"));
    EXPECT_EQ(h.texto(4, 4), QStringLiteral("VERDADERO"));
    EXPECT_EQ(h.texto(5, 5), QStringLiteral("#DIV/0!"));

    for (const auto& celda : {std::pair{0, 1}, {1, 0}, {11, 1}, {1, 6}, {-3, 2}}) {
        // Plain variables: clang 14 does not let a lambda capture structured bindings.
        const int f = celda.first;
        const int c = celda.second;
        const VbError e = prueba::errorDe([&] { h.valor(f, c); });
        EXPECT_FALSE(e.description().isEmpty()) << f << "," << c;
        EXPECT_EQ(e.number(), 1004);
    }
}


TEST(HojaExcel, NumbersShowAsTheGeneralFormatWritesThem)
{
    for (const auto& [numero, texto] : {std::pair{60000000.0, "60000000"}, {-123456789012345.0, "-123456789012345"}, {1e15, "1E+15"},
                                        {-0.0, "0"}, {-189.5271, "-189,5271"}, {1.0 / 3, "0,333333333333333"}, {1e-7, "1E-07"}})
        EXPECT_EQ(HojaExcel::textoNumero(numero), QLatin1String(texto)) << texto;
}

TEST(HojaExcel, CellsOfAnyRowAreFoundWhateverTheOrderOfLookups)
{
    HojaExcel h(200, 100);
    for (int f = 1; f <= 200; f += 3)
        for (int c = 1; c <= 100; c += (f % 7) + 1)
            h.ponerNumero(f, c, f * 1000 + c);
    h.cerrar();
    const auto comprobar = [&](int f, int c) {
        const bool hay = (f - 1) % 3 == 0 && (c - 1) % ((f % 7) + 1) == 0;
        EXPECT_EQ(h.vacia(f, c), !hay) << f << "," << c;
        if (hay) {
            EXPECT_EQ(h.valor(f, c).numero, f * 1000 + c);
        }
    };
    for (int f = 1; f <= 200; ++f)
        for (int c = 1; c <= 100; ++c)
            comprobar(f, c);
    for (int f = 200; f >= 1; f -= 2)
        for (int c = 100; c >= 1; c -= 7)
            comprobar(f, c);
}

// ---- Reading .xlsx -------------------------------------------------------------------

class Xlsx : public ::testing::Test {
protected:
    std::unique_ptr<HojaExcel> leer(const QString& ruta, const LimitesLibro& limites = {})
    {
        return LectorXlsx::leerFichero(ruta, limites);
    }
    QString errorAlLeer(const QString& ruta, const LimitesLibro& limites = {})
    {
        const VbError e = prueba::errorDe([&] { leer(ruta, limites); });
        if (!e.description().isEmpty()) {
            EXPECT_EQ(e.number(), 1004) << e.description().toStdString();
        }
        return e.description();
    }
    // A minimal workbook whose only sheet is this XML.
    QString libro(const QByteArray& hoja, const QByteArray& textos = QByteArray())
    {
        return libros.zip(LibrosPrueba::partesMinimas(hoja, textos));
    }
    LibrosPrueba libros;
};

TEST_F(Xlsx, ReadsSharedAndRichTextsNumbersBooleansAndFormulaResults)
{
    for (bool constante : {false, true}) {
        SCOPED_TRACE(constante ? "inline texts" : "shared texts");
        const auto h = leer(libros.generar(QStringLiteral("1: Cat;\"x;y\";1;7000001;12.5;#b:1;#r:uno|dos|tres\n"
                                                          "C3: 5;;#fn:=1+2|3;#fs:=A1|Cat;-0.0001;#b:0\n"
                                                          "AB12: \"año ñ €\"\n"),
                                           constante));
        EXPECT_EQ(filaDe(*h, 1, 8), (QStringList{"t:Cat", "t:x;y", "n:1", "n:7000001", "n:12.5", "b:1", "t:unodostres", ""}));
        EXPECT_EQ(filaDe(*h, 2, 8), QStringList(8));
        EXPECT_EQ(filaDe(*h, 3, 9), (QStringList{"", "", "n:5", "", "n:3", "t:Cat", "n:-1e-04", "b:0", ""}));
        EXPECT_EQ(h->valor(12, 28).texto, QStringLiteral("año ñ €"));
        EXPECT_EQ(h->filasHoja(), 1048576);
        EXPECT_EQ(h->columnasHoja(), 16384);
        EXPECT_EQ(h->filaFinArriba(28), 12);
    }
}

// The sheet is scanned by a reader of its own before expat is asked; for
// whatever it is given, the result and every error must be expat's.
TEST_F(Xlsx, TheQuickScanReadsEverySheetAsExpatDoes)
{
    const QByteArray ns = "xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\"";
    const QByteArray celdas = "<sheetData><row r=\"1\"><c r=\"A1\"><v>1</v></c><c r=\"B1\" t=\"inlineStr\"><is><t>a</t></is></c></row></sheetData>";
    const auto hoja = [&](const QByteArray& cuerpo) { return "<?xml version=\"1.0\"?><worksheet " + ns + ">" + cuerpo + "</worksheet>"; };
    std::vector<QByteArray> casos = {
        hoja(celdas),
        "\xEF\xBB\xBF<?xml version='1.0' encoding='utf-8' standalone='yes' ?>\r\n<worksheet " + ns + ">" + celdas + "</worksheet>\r\n",
        "<worksheet " + ns + ">" + celdas + "</worksheet>",
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><worksheet " + ns + "><sheetData><row><c t=\"inlineStr\"><is><t>a\xF1o</t></is></c></row></sheetData></worksheet>",
        "<?xml version=\"1.1\"?><worksheet " + ns + ">" + celdas + "</worksheet>",
        "<?xml version=\"1.0\"?>\n<!-- a comment --><worksheet " + ns + ">" + celdas + "</worksheet>",
        "<?xml version=\"1.0\"?><?pi x?><worksheet " + ns + ">" + celdas + "</worksheet>",
        hoja(celdas) + "<!-- after -->", hoja(celdas) + "x", hoja(celdas) + "<otra/>", hoja(celdas).chopped(3),
        enLinea("&lt;&gt;&amp;&quot;&apos;&#65;&#x42;&#x1F600;"), enLinea("a\r\nb\rc\n&#13;d"), enLinea("<![CDATA[<x>]]>"),
        enLinea("a]]>b"), enLinea("&#0;"), enLinea("&#xFFFE;"), enLinea("&nbsp;"), enLinea("\xC3\x28"), enLinea("\xED\xA0\x80"),
        enLinea("\xEF\xBF\xBF"), enLinea("\x01"),
        fila1("<c r=\"A1\" t=\"inlineStr\"><is><t xml:space=\"preserve\"> \xE2\x82\xAC \xF0\x9F\x98\x80 </t></is></c>"),
        hoja("<sheetData><row r = '1' ><c r=\"&#65;1\" ><v> 2 </v ></c ><c r=\"B&#x31;\" t=\"s\" /></row></sheetData>"),
        fila1("<c r=\"A\t1\"><v>1</v></c>"), fila1("<c r=\"A1\" t=\"inline&#x53;tr\"><is><t>x</t></is></c>"),
        fila1("<c r=\"A1\"r=\"B1\"><v>1</v></c>"), fila1("<c r=\"A1\" r=\"B1\"><v>1</v></c>"), fila1("<c r=\"A1\"t=\"n\"><v>1</v></c>"),
        fila1("<c r=\"A1\" t=n><v>1</v></c>"), fila1("<c r=\"A1\" t=\"a<b\"><v>1</v></c>"), fila1("<c r=\"A1\"><v>1</x></c>"),
        hoja("<sheetData><row r=\"1\"><c r=\"A1\"><v>1</v></c></row></sheetData><extra/>"),
        fila1("<c r=\"A1\"><v>1</v><f>SUM(A1)</f></c>"), fila1("<c r=\"A1\"><v>1<b/></v></c>"), fila1("<c r=\"A0\"><v>1</v></c>"),
        fila1("<c r=\"A1\" t=\"zz\"><v>1</v></c>"), fila1("<c r=\"A1\"><v>doce</v></c>"),
        hoja("<sheetData><row r=\"1\"><c r=\"A1\"><v>1</v></c></row><row r=\"1\"><c r=\"A1\"><v>2</v></c></row></sheetData>"),
        "<?xml version=\"1.0\"?><x:worksheet xmlns:x=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\"><x:sheetData><x:row r=\"1\"><x:c r=\"A1\"><x:v>1</x:v></x:c></x:row></x:sheetData></x:worksheet>",
        "<?xml version=\"1.0\"?><x:worksheet><x:sheetData/></x:worksheet>",
        "<?xml version=\"1.0\"?><worksheet " + ns + " xmlns:y=\"urn:y\"><sheetData><row r=\"1\"><c r=\"A1\" y:r=\"B2\" z:t=\"s\"><v>1</v></c></row></sheetData></worksheet>",
        "<?xml version=\"1.0\"?><worksheet " + ns + " xmlns:y=\"urn:y\" xmlns:z=\"urn:y\"><sheetData><row r=\"1\"><c r=\"A1\" y:t=\"s\" z:t=\"b\"><v>1</v></c></row></sheetData></worksheet>",
        "<?xml version=\"1.0\"?><worksheet " + ns + " xmlns:y=\"\"><sheetData/></worksheet>",
        "<?xml version=\"1.0\"?><worksheet " + ns + " xmlns:xml=\"http://www.w3.org/XML/1998/namespace\"><sheetData/></worksheet>",
        "<?xml version=\"1.0\"?><worksheet " + ns + " xmlns:q=\"http://www.w3.org/2000/xmlns/\"><sheetData/></worksheet>",
        hoja("<sheetData><row r=\"1\" xmlns:q=\"urn:q\"><q:c r=\"A1\"><q:v>3</q:v></q:c></row><q:c r=\"A2\"><v>4</v></q:c></sheetData>"),
        "<?xml version=\"1.0\"?><worksheet " + ns + " xmlns:mc=\"urn:mc\" mc:Ignorable=\"x14ac\" xmlns:x14ac=\"urn:x14ac\"><sheetData><row r=\"1\" spans=\"1:2\" x14ac:dyDescent=\"0.25\"><c r=\"A1\" s=\"1\"><v>1</v></c></row></sheetData></worksheet>",
        fila1("<c:x r=\"A1\"><v>1</v></c:x>"),
        fila1("<c r=\"A1\"><v>1</v></c>").chopped(1) + "  >", fila1("<c r=\"A1\"><v>1</v></c>").replace("</worksheet>", "</ worksheet>"),
        "<?xml version=\"1.0\"?><!DOCTYPE worksheet><worksheet " + ns + "><sheetData/></worksheet>",
        enLinea(QByteArray(40000, 'x')), enLinea(QByteArray(2 << 20, 'y')),
        hoja(QByteArray("<a>").repeated(70) + QByteArray("</a>").repeated(70)),
        "", "   ", "\xFF\xFE<\0w\0/\0>\0",
    };
    // Parts of a megabyte and more are inflated on a second thread.
    QByteArray filas;
    for (int f = 1; f <= 4000; ++f) {
        filas += "<row r=\"" + QByteArray::number(f) + "\">";
        for (int c = 0; c < 10; ++c)
            filas += "<c r=\"" + QByteArray(1, static_cast<char>('A' + c)) + QByteArray::number(f) + "\"><v>"
                     + QByteArray::number(f * 0.25 - c) + "</v></c>";
        filas += "</row>";
    }
    filas = "<sheetData>" + filas + "</sheetData>";
    ASSERT_GT(filas.size(), 1024 * 1024);
    casos.push_back(hoja(filas));
    casos.push_back(hoja(filas.replace("<row r=\"3999\">", "<row r=\"3999\"><bad")));
    const LimitesLibro pocas{.celdas = 2};
    int i = 0;
    for (const QByteArray& xml : casos) {
        SCOPED_TRACE(std::to_string(i++) + ": " + xml.left(200).toStdString());
        const QByteArray bytes = LibrosPrueba::bytes(libro(xml, textosXml("<si><t>s0</t></si>")));
        for (const LimitesLibro& limites : {LimitesLibro{}, pocas}) {
            std::unique_ptr<HojaExcel> rapida, conExpat;
            const QString errorRapida = errorDe([&] { rapida = LectorXlsx::leerMemoria(bytes, QStringLiteral("l.xlsx"), limites); });
            const QString errorExpat = errorDe([&] { conExpat = LectorXlsx::leerMemoriaConExpat(bytes, QStringLiteral("l.xlsx"), limites); });
            EXPECT_EQ(errorRapida, errorExpat);
            ASSERT_EQ(!rapida, !conExpat);
            if (rapida) {
                EXPECT_TRUE(*rapida == *conExpat);
            }
        }
    }
}

TEST_F(Xlsx, ReadsTheSheetTheWorkbookOpensOn)
{
    const QString dos = QStringLiteral("hoja Uno\n1: primera\nhoja Dos\n1: segunda\nhoja Tres\n1: tercera\n");
    EXPECT_EQ(leer(libros.generar(dos))->valor(1, 1).texto, QStringLiteral("primera"));
    auto h = leer(libros.generar(QStringLiteral("hoja Uno\n1: primera\nhoja Dos\nactiva\n1: segunda\nhoja Tres\n1: tercera\n")));
    EXPECT_EQ(h->nombre(), QStringLiteral("Dos"));
    EXPECT_EQ(h->valor(1, 1).texto, QStringLiteral("segunda"));

    // An active tab past the last sheet falls back to the first.
    auto partes = LibrosPrueba::partesMinimas(fila1("<c r=\"A1\"><v>1</v></c>"));
    partes[2].second.replace("<sheets>", "<bookViews><workbookView activeTab=\"7\"/></bookViews><sheets>");
    EXPECT_EQ(leer(libros.zip(partes))->valor(1, 1).numero, 1);
}

TEST_F(Xlsx, ReadsWhatOtherWritersProduceWhateverCountOfTextsTheyDeclare)
{
    // No positions (cells follow each other), a prefixed namespace, escaped
    // control characters, phonetic runs, an error value, cells out of order
    // and a cell repeated; a count of texts far beyond those there must not
    // decide what is allocated.
    const QByteArray hoja = QByteArrayLiteral(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><x:worksheet xmlns:x=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\">"
        "<x:sheetData><x:row><x:c><x:v>1</x:v></x:c><x:c t=\"s\"><x:v>0</x:v></x:c><x:c t=\"s\"><x:v>1</x:v></x:c></x:row>"
        "<x:row r=\"5\"><x:c r=\"C5\" t=\"e\"><x:v>#N/A</x:v></x:c><x:c t=\"inlineStr\"><x:is><x:t>en_x005F_línea</x:t></x:is></x:c>"
        "<x:c r=\"A5\"><x:v> 2.5E+3 </x:v></x:c><x:c r=\"C5\"><x:v>9</x:v></x:c></x:row>"
        "<x:row r=\"3\"><x:c r=\"B3\" s=\"4\"/><x:c r=\"A3\" t=\"str\"><x:f>A1</x:f><x:v>f</x:v></x:c></x:row>"
        "</x:sheetData></x:worksheet>");
    const QByteArray textos = textosXml(
        "<si><t xml:space=\"preserve\"> a_x000D__x000A_b </t></si>"
        "<si><r><t>漢</t></r><r><rPr><b/></rPr><t>字</t></r><rPh sb=\"0\" eb=\"1\"><t>かんじ</t></rPh><phoneticPr fontId=\"1\"/></si>")
        .replace("<sst ", "<sst count=\"2000000000\" uniqueCount=\"2000000000\" ");
    const auto h = leer(libro(hoja, textos));
    EXPECT_EQ(filaDe(*h, 1, 3), (QStringList{"n:1", "t: a\r\nb ", "t:漢字"}));
    EXPECT_EQ(filaDe(*h, 3, 2), (QStringList{"t:f", ""}));
    EXPECT_EQ(filaDe(*h, 5, 4), (QStringList{"n:2500", "", "n:9", "t:en_línea"}));
    EXPECT_EQ(h->numeroCeldas(), 7u);
}

TEST_F(Xlsx, NumbersAreReadAsTheCLocaleReadsThem)
{
    struct Bueno {
        const char* texto;
        double valor;
    };
    const Bueno buenos[] = {
        {"12.5", 12.5}, {" -0.0001 ", -0.0001}, {"\t7\n", 7}, {"+7", 7}, {"+.5", 0.5}, {"-.5", -0.5}, {"5.", 5}, {"007", 7},
        {"2.5E+3", 2500}, {"1e-5", 1e-5}, {"1E05", 1e5}, {"00.5e0010", 5e9},
        {"\xe2\x88\x92" "3", -3}, {"1e\xe2\x88\x92" "2", 0.01}, // U+2212, the minus sign
        {"0e99999999999", 0}, {"4e-320", 4e-320}, // subnormal, not zero
        {"1.7976931348623157e308", 1.7976931348623157e308}, {"0.30000000000000004", 0.30000000000000004},
        {"9007199254740993", 9007199254740992.0}, // halfway: rounds to even
        {"0.1000000000000000000000000000000000000000000000000000000000000000000000000001", 0.1},
    };
    QByteArray fila = "<row r=\"1\">";
    for (const Bueno& b : buenos)
        fila += QByteArray("<c><v>") + b.texto + "</v></c>";
    fila += "<c><v>-0</v></c></row>";
    const auto h = leer(libro(hojaXml(fila)));
    int columna = 0;
    for (const Bueno& b : buenos) {
        ++columna;
        SCOPED_TRACE(b.texto);
        ASSERT_EQ(h->valor(1, columna).tipo, ValorExcel::Tipo::Numero);
        EXPECT_EQ(h->valor(1, columna).numero, b.valor);
    }
    EXPECT_EQ(h->valor(1, columna + 1).numero, 0.0);
    EXPECT_TRUE(std::signbit(h->valor(1, columna + 1).numero));

    for (const char* malo : {"+-1", "-+1", "--1", "++1", "+", "-", ".", "", "1,5", "1 000", "1e", "1e+", "e5", "0x10", "1.2.3", "doce",
                             "5%", "1d", "1e400", "-1e400", "1e-400", "nan", "inf", "-inf", "Infinity", "\xef\xbc\x95", "1\xc2\xa0" "5"}) {
        SCOPED_TRACE(malo);
        const QString e = errorAlLeer(libro(fila1(QByteArray("<c r=\"B1\"><v>") + malo + "</v></c>")));
        EXPECT_TRUE(e.contains(QStringLiteral("el valor '%1' de la celda B1 no es un número").arg(QString::fromUtf8(malo)))) << e.toStdString();
    }
}

// ---- Damaged and hostile workbooks ----------------------------------------------------

TEST_F(Xlsx, DamagedFilesAndFilesThatAreNoWorkbookGiveTheirReason)
{
    const QByteArray bytes = LibrosPrueba::bytes(libros.generar(QStringLiteral("1: a;b;1;2;3\n2: c;d;4;5;6\n")));

    EXPECT_TRUE(errorAlLeer(libros.fichero(bytes.left(bytes.size() / 2), QStringLiteral("cortado.xlsx")))
                    .startsWith(QStringLiteral("No se puede leer el libro 'cortado.xlsx': ")));
    EXPECT_FALSE(errorAlLeer(libros.fichero(bytes.left(bytes.size() - 30), QStringLiteral("sinfinal.xlsx"))).isEmpty());
    // Flipping bytes inside the compressed data: inflating or the CRC fails.
    for (int desde : {200, 600, 1200}) {
        QByteArray danado = bytes;
        for (int i = desde; i < desde + 40 && i < danado.size(); ++i)
            danado[i] = static_cast<char>(danado[i] ^ 0x5A);
        errorAlLeer(libros.fichero(danado, QStringLiteral("danado%1.xlsx").arg(desde))); // must not crash
    }
    EXPECT_EQ(errorAlLeer(libros.fichero(QByteArrayLiteral("Cuenta;Dpto\n1;2\n"), QStringLiteral("texto.xlsx"))),
              QStringLiteral("No se puede leer el libro 'texto.xlsx': el archivo no es un libro de Excel."));
    EXPECT_EQ(errorAlLeer(libros.zip({{QStringLiteral("hola.txt"), QByteArrayLiteral("hola")}}, QStringLiteral("otro.zip"))),
              QStringLiteral("No se puede leer el libro 'otro.zip': el archivo no es un libro de Excel."));
    EXPECT_EQ(errorAlLeer(libros.carpeta() + QStringLiteral("/no_existe.xlsx")),
              QStringLiteral("No se puede leer el libro 'no_existe.xlsx': no se encuentra el archivo."));
}

TEST_F(Xlsx, MalformedPartsAreRefused)
{
    struct Caso { QByteArray hoja; QByteArray textos; const char* motivo; };
    const Caso casos[] = {
        {hojaXml("<row r=\"1\"><c r=\"A1\"><v>1</v></c>"), {}, "mal formada"},
        {fila1("<c r=\"A1\"><v>1<b/></v></c>"), {}, "mal formada"},
        {fila1("<c r=\"A1\"><v>&undeclared;</v></c>"), {}, "mal formada"},
        {fila1("<c r=\"A0\"><v>1</v></c>"), {}, "'A0' no es válida"},
        {fila1("<c r=\"XFE1\"><v>1</v></c>"), {}, "'XFE1'"},
        {hojaXml("<row r=\"1048577\"><c><v>1</v></c></row>"), {}, "fila"},
        {fila1("<c r=\"C1\" t=\"s\"><v>3</v></c>"), textosXml("<si><t>a</t></si>"), "la celda C1 remite a un texto que el libro no tiene"},
        {fila1("<c r=\"A1\" t=\"b\"><v>2</v></c>"), {}, "valor lógico"},
        {fila1("<c r=\"A1\" t=\"zz\"><v>2</v></c>"), {}, "tipo desconocido"},
    };
    for (const Caso& c : casos) {
        const QString e = errorAlLeer(libro(c.hoja, c.textos));
        EXPECT_TRUE(e.contains(QString::fromUtf8(c.motivo))) << e.toStdString();
    }

    // A workbook whose active sheet is a chart, or that names no sheet.
    auto partes = LibrosPrueba::partesMinimas(hojaXml(""));
    partes[3].second.replace("/worksheet\"", "/chartsheet\"");
    EXPECT_TRUE(errorAlLeer(libros.zip(partes)).contains(QStringLiteral("no es una hoja de cálculo")));
    partes = LibrosPrueba::partesMinimas(hojaXml(""));
    partes[2].second.replace("<sheet name=\"Hoja1\" sheetId=\"1\" r:id=\"rId1\"/>", "");
    EXPECT_TRUE(errorAlLeer(libros.zip(partes)).contains(QStringLiteral("el libro no tiene hojas")));
    partes = LibrosPrueba::partesMinimas(hojaXml(""));
    partes.pop_back();
    EXPECT_TRUE(errorAlLeer(libros.zip(partes)).contains(QStringLiteral("falta la parte 'xl/worksheets/sheet1.xml'")));
}

TEST_F(Xlsx, EntityBombsAndDeepNestingAreRefusedBeforeTheyCostMemory)
{
    QByteArray bomba = QByteArrayLiteral("<?xml version=\"1.0\"?><!DOCTYPE lolz [<!ENTITY lol \"lol\">");
    for (int i = 1; i <= 9; ++i)
        bomba += QStringLiteral("<!ENTITY lol%1 \"%2\">")
                     .arg(i)
                     .arg(QStringLiteral("&lol%1;").arg(i == 1 ? QString() : QString::number(i - 1)).repeated(10))
                     .toUtf8();
    bomba += "]><sst xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\"><si><t>&lol9;</t></si></sst>";
    EXPECT_TRUE(errorAlLeer(libro(hojaXml(""), bomba)).contains(QStringLiteral("la parte 'xl/sharedStrings.xml' declara una DTD, que no se admite")));

    const QByteArray externa = QByteArrayLiteral("<?xml version=\"1.0\"?><!DOCTYPE w [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>")
                               + hojaXml("<row r=\"1\"><c r=\"A1\" t=\"str\"><v>&x;</v></c></row>").mid(21);
    EXPECT_TRUE(errorAlLeer(libro(externa)).contains(QStringLiteral("DTD")));

    const QByteArray profunda = kCabeceraHoja + QByteArray("<a>").repeated(100000) + QByteArray("</a>").repeated(100000)
                                + "</worksheet>";
    EXPECT_TRUE(errorAlLeer(libro(profunda)).contains(QStringLiteral("anida más de 64 niveles")));
}

TEST_F(Xlsx, EverySizeIsBounded)
{
    // Texts: how many, how long together, how long each.
    QByteArray muchos;
    for (int i = 0; i < 101; ++i)
        muchos += "<si><t>t" + QByteArray::number(i) + "</t></si>";
    const QString libroTextos = libro(hojaXml(""), textosXml(muchos));
    EXPECT_TRUE(errorAlLeer(libroTextos, {.textos = 100}).contains(QStringLiteral("más de 100 textos")));
    EXPECT_TRUE(errorAlLeer(libroTextos, {.textos = 101}).isEmpty());
    EXPECT_TRUE(errorAlLeer(libroTextos, {.caracteresTextos = 250}).contains(QStringLiteral("suman más de 250 caracteres")));
    const QByteArray largo(40000, 'x');
    EXPECT_TRUE(errorAlLeer(libro(hojaXml(""), textosXml("<si><t>" + largo + "</t></si>"))).contains(QStringLiteral("un texto tiene más de 32767 caracteres")));
    EXPECT_TRUE(errorAlLeer(libro(enLinea(largo))).contains(QStringLiteral("32767")));

    // A value's length is counted in characters, not in bytes.
    const QByteArray enes = QByteArray("\xC3\xB1").repeated(32767);
    const auto valorDe = [&](const QByteArray& v) { return libro(fila1("<c r=\"A1\" t=\"str\"><v>" + v + "</v></c>")); };
    EXPECT_EQ(leer(valorDe(enes))->valor(1, 1).texto.size(), 32767);
    EXPECT_TRUE(errorAlLeer(valorDe(enes + "&#241;")).contains(QStringLiteral("un texto tiene más de 32767 caracteres")));

    // Cells.
    QByteArray celdas;
    for (int f = 1; f <= 30; ++f)
        celdas += "<row r=\"" + QByteArray::number(f) + "\"><c><v>1</v></c><c><v>2</v></c></row>";
    const QString libroCeldas = libro(hojaXml(celdas));
    EXPECT_TRUE(errorAlLeer(libroCeldas, {.celdas = 59}).contains(QStringLiteral("más de 59 celdas")));
    EXPECT_EQ(leer(libroCeldas, {.celdas = 60})->numeroCeldas(), 60u);

    // Inflated bytes of a part: a few kilobytes of zip that inflate to
    // megabytes of blanks stop at the limit, whatever the zip declares.
    const QByteArray relleno = kCabeceraHoja + QByteArray(3 * 1024 * 1024, ' ') + "<sheetData/></worksheet>";
    const QString inflado = libro(relleno);
    EXPECT_LT(QFile(inflado).size(), 64 * 1024);
    EXPECT_TRUE(errorAlLeer(inflado, {.bytesParte = 1024 * 1024}).contains(QStringLiteral("ocupa más de 1 MB descomprimida")));
    EXPECT_TRUE(errorAlLeer(inflado).isEmpty());

    // Entries of the container.
    std::vector<std::pair<QString, QByteArray>> partes = LibrosPrueba::partesMinimas(hojaXml(""));
    for (int i = 0; i < 20; ++i)
        partes.emplace_back(QStringLiteral("relleno/%1.bin").arg(i), QByteArrayLiteral("x"));
    EXPECT_TRUE(errorAlLeer(libros.zip(partes), {.entradasZip = 10}).contains(QStringLiteral("más de 10 partes")));
}

// ---- Reading .xls ------------------------------------------------------------------

TEST(Xls, DamagedOrForeignFilesGiveTheirReason)
{
    LibrosPrueba libros;
    const QString xls = LibrosPrueba::datos(QStringLiteral("presupuesto.xls"));
    const QByteArray bytes = LibrosPrueba::bytes(xls);
    for (const QByteArray& malo : {bytes.left(bytes.size() / 3), bytes.left(700), bytes.left(8) + QByteArray(600, '\xff')}) {
        const QString ruta = libros.fichero(malo, QStringLiteral("malo.xls"));
        const VbError e = prueba::errorDe([&] { LectorXls::leerFichero(ruta); });
        EXPECT_TRUE(e.description().startsWith(QStringLiteral("No se puede leer el libro 'malo.xls': "))) << e.description().toStdString();
        EXPECT_EQ(e.number(), 1004);
    }
    // A workbook saved with a password is a compound file with its package encrypted.
    QByteArray cifrado = bytes.left(512) + QByteArray(1024, '\0');
    for (char c : QByteArrayLiteral("EncryptedPackage"))
        cifrado.append(c).append('\0');
    EXPECT_EQ(errorDe([&] { LectorXls::leerFichero(libros.fichero(cifrado + QByteArray(2048, '\0'), QStringLiteral("cifrado.xlsx"))); }),
              QStringLiteral("No se puede leer el libro 'cifrado.xlsx': el libro está protegido con contraseña."));
    EXPECT_TRUE(errorDe([&] { LectorXls::leerFichero(xls, {.bytesFicheroXls = 1024}); }).contains(QStringLiteral("ocupa más de 0 MB")));
    EXPECT_TRUE(errorDe([&] { LectorXls::leerFichero(xls, {.celdas = 20}); }).contains(QStringLiteral("más de 20 celdas")));

    // A string whose length runs past its record: FreeXL reads out of
    // bounds on it, inside its own process.
    EXPECT_EQ(errorDe([&] { LectorXls::leerFichero(LibrosPrueba::datos(QStringLiteral("xls_cadena_desbordada.xls"))); }),
              QStringLiteral("No se puede leer el libro 'xls_cadena_desbordada.xls': el archivo está dañado o incompleto."));
}

// Points the import at another helper program for the length of a test.
struct OtroLector {
    explicit OtroLector(const QString& ruta) { qputenv("PRESUPUESTOS_LECTOR_XLS", QFile::encodeName(ruta)); }
    ~OtroLector() { qunsetenv("PRESUPUESTOS_LECTOR_XLS"); }
};

TEST(Xls, AHelperThatDiesOrIsMissingEndsInAnErrorOnly)
{
    LibrosPrueba libros;
    const QString xls = LibrosPrueba::datos(QStringLiteral("presupuesto.xls"));
    const QString muere = libros.fichero(QByteArrayLiteral("#!/bin/sh\nkill -SEGV $$\n"), QStringLiteral("muere.sh"));
    QFile(muere).setPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    const QString basura = libros.fichero(QByteArrayLiteral("#!/bin/sh\nprintf 'PXLS\\001'\n"), QStringLiteral("basura.sh"));
    QFile(basura).setPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    {
        OtroLector otro(muere);
        EXPECT_EQ(errorDe([&] { LectorXls::leerFichero(xls); }),
                  QStringLiteral("No se puede leer el libro 'presupuesto.xls': el archivo está dañado o incompleto."));
    }
    {
        OtroLector otro(basura);
        EXPECT_TRUE(errorDe([&] { LectorXls::leerFichero(xls); }).contains(QStringLiteral("dañado")));
    }
    {
        OtroLector otro(libros.carpeta() + QStringLiteral("/no_hay_lector"));
        const VbError e = prueba::errorDe([&] { LectorXls::leerFichero(xls); });
        EXPECT_TRUE(e.description().contains(QStringLiteral("falta el lector")));
        EXPECT_EQ(e.number(), kFaltaLectorXls);
    }
    EXPECT_EQ(LectorXls::leerFichero(xls)->valor(2, 3).numero, 1);
}

// ---- The "applications" the import creates ------------------------------------------

TEST(AplicacionExcel, EachNameReadsItsFormatsTellingThemByContent)
{
    LibrosPrueba libros;
    const QString xlsx = libros.generar(QStringLiteral("1: libro nuevo\n"));
    // The extension does not count: a .xls copy of an .xlsx is read as .xlsx.
    const QString disfrazado = libros.carpeta() + QStringLiteral("/disfrazado.xls");
    ASSERT_TRUE(QFile::copy(xlsx, disfrazado));
    const QString xls = LibrosPrueba::datos(QStringLiteral("presupuesto.xls"));

    auto todo = RegistroExcel::crear(QStringLiteral("Excel.Application"));
    EXPECT_FALSE(errorDe([&] { todo->hojaActiva(); }).isEmpty());
    todo->abrirLibro(disfrazado);
    EXPECT_EQ(todo->hojaActiva().texto(1, 1), QStringLiteral("libro nuevo"));
    todo->abrirLibro(xls);
    EXPECT_EQ(todo->hojaActiva().texto(1, 1), QStringLiteral("Categoría"));
    todo->Quit();
    EXPECT_EQ(numeroError([&] { todo->hojaActiva(); }), 91);

    auto soloXlsx = RegistroExcel::crear(QStringLiteral("Excel.Application.16"));
    EXPECT_TRUE(errorDe([&] { soloXlsx->abrirLibro(xls); }).contains(QStringLiteral("(.xls)")));
    soloXlsx->abrirLibro(xlsx);
    auto soloXls = RegistroExcel::crear(QStringLiteral("Excel.Sheet"));
    EXPECT_TRUE(errorDe([&] { soloXls->abrirLibro(xlsx); }).contains(QStringLiteral("(.xlsx)")));
    soloXls->abrirLibro(xls);

    EXPECT_EQ(numeroError([&] { RegistroExcel::crear(QStringLiteral("Excel.Application.8")); }), 429);
}

} // namespace

