// The workbook the worksheet exports, read back by the import with its
// defaults (first row 2, first column A): every stored amount comes back
// exactly, and what the import passes by (names, totals, method, value,
// manual months) stays as it was.

#include "BaseDatosPrueba.h"
#include "common/NumerosEs.h"
#include "common/VbError.h"
#include "LibroPrueba.h"
#include "db/schema/DatosDemo.h"
#include "export/ExportadorLibro.h"
#include "host/modPublic.h"
#include "import/clsImportar.h"
#include "import/readers/LectorLibro.h"
#include "worksheet/core/ConsultasHoja.h"
#include "worksheet/core/FilasLibro.h"
#include "worksheet/core/RepositorioHoja.h"

#include <QFile>
#include <gtest/gtest.h>
#include <zip.h>

using namespace presupuestos;
using presupuestos::prueba::BaseDatosPrueba;
using presupuestos::prueba::LibrosPrueba;
using presupuestos::prueba::monedaPlana;

namespace {

qint32 importar(const QString& libro, InformeImportacion* informe = nullptr)
{
    clsImportar imp;
    imp.setPrimeraFilaDatos(2);
    imp.setPrimeraColumnaDatos(1);
    // The worksheet's own codes are never unknown.
    if (informe)
        imp.setConfirmarDesconocidos([](const CodigosDesconocidos& d) {
            ADD_FAILURE() << d.filas << " unknown codes, the first in row " << d.primeras.front().fila;
            return true;
        });
    qint32 importadas = -1;
    QObject::connect(&imp, &clsImportar::ImportCompleted, [&](qint32 n) { importadas = n; });
    imp.ImportarDesdeExcel(libro);
    if (informe)
        *informe = imp.informe();
    return importadas;
}

// The worksheet's budget read for every account and department of the
// company, through the filter table the worksheet fills.
std::vector<FilaLibro> filasHoja(BaseDatosPrueba& bd, const QString& tabla)
{
    Recordset rs = bd.conexion->Abrir(consultas::presupuesto(tabla, 1, 2027, true, QString(), QString(), false));
    auto filas = filasLibro(rs, true);
    rs.Close();
    return filas;
}

QString llenarTablaFiltro(BaseDatosPrueba& bd)
{
    RepositorioHoja temporal(*bd.conexion);
    const QString tabla = temporal.crearTablasTemporales().filtroCuentas;
    RepositorioHoja r(*bd.conexion, tabla, 1);
    for (const CuentaFiltro& c : r.cuentas(r.ultimoEjercicioCuentas(2026), 8, true))
        r.insertarCuenta(c);
    return tabla;
}

// Every stored budget row, each amount as the currency it is read as (the
// demo's generator stores doubles such as -7.2299999999999995, which the
// import writes back as the -7.23 they stand for).
QStringList guardado(BaseDatosPrueba& bd)
{
    QStringList filas;
    Recordset rs = bd.conexion->Abrir(QStringLiteral("SELECT Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1, M2, M3, M4, M5, M6, M7, M8, "
                                                     "M9, M10, M11, M12, Metodo_Calculo, Modificacion_Manual, Valor, Ver FROM Presupuestos"));
    for (; !rs.eof(); rs.MoveNext()) {
        QStringList campos;
        for (int i = 0; i < 4; ++i)
            campos << rs.texto(i);
        for (int i = 4; i < 20; ++i)
            campos << rs.moneda(i).toSqlText();
        filas << campos.join(QLatin1Char('|'));
    }
    rs.Close();
    return filas;
}

bool mismas(const FilaLibro& a, const FilaLibro& b)
{
    return a.dpto == b.dpto && a.cuenta == b.cuenta && a.nombre == b.nombre && a.dptoNombre == b.dptoNombre
           && a.meses == b.meses && a.metodo == b.metodo && a.valor == b.valor && a.manual == b.manual;
}

// Export, import untouched: the rows stored before are stored alike, field
// for field; a row the worksheet showed without a stored budget comes in
// as twelve zeros with the table's defaults, which it shows alike.
void idaYVuelta(BaseDatosPrueba& bd, const QString& tabla, LibrosPrueba& libros)
{
    const std::vector<FilaLibro> antes = filasHoja(bd, tabla);
    ASSERT_FALSE(antes.empty());
    const QStringList guardadas = guardado(bd);
    const QString ruta = libros.carpeta() + QStringLiteral("/ida.xlsx");
    ExportadorLibro::escribir(ruta, {{QStringLiteral("Presupuesto 2027"), true, antes}});

    InformeImportacion informe;
    EXPECT_EQ(importar(ruta, &informe), static_cast<qint32>(antes.size()));
    EXPECT_EQ(informe.omitidas, 0);
    EXPECT_EQ(informe.desconocidas, 0);
    EXPECT_EQ(informe.actualizadas + informe.nuevas, static_cast<qint32>(antes.size()));

    const QStringList despues = guardado(bd);
    for (const QString& fila : guardadas)
        EXPECT_TRUE(despues.contains(fila)) << fila.toStdString();
    EXPECT_EQ(despues.size(), guardadas.size() + informe.nuevas);
    const std::vector<FilaLibro> leidas = filasHoja(bd, tabla);
    ASSERT_EQ(leidas.size(), antes.size());
    for (std::size_t i = 0; i < antes.size(); ++i)
        ASSERT_TRUE(mismas(leidas[i], antes[i])) << "row " << i << " " << antes[i].cuenta.toStdString();
}

} // namespace

TEST(Exportar, EveryAmountComesBackExactlyWhetherWrittenAsNumberOrText)
{
    struct Caso {
        const char* importe;
        bool numero; // fits a double to the ten-thousandth
    };
    // Each in a department of its own and a month of its own, so that no
    // total the import checks goes out of range.
    const Caso casos[] = {
        {"0.0001", true},
        {"-0.0001", true},
        {"1234567.8901", true},
        {"-1234567.8901", true},
        {"0.1", true},
        {"99999999999.9999", true},
        {"274877906943.9999", true},
        {"-274877906943.9999", true},
        {"274877906944", false},
        {"922337203685477.5807", false},
        {"-922337203685477.5807", false},
        {"-123456789012345.6789", false},
    };
    BaseDatosPrueba bd;
    LibrosPrueba libros;
    std::vector<FilaLibro> filas;
    for (std::size_t i = 0; i < std::size(casos); ++i) {
        FilaLibro f;
        f.dpto = static_cast<qint32>(i + 1);
        f.cuenta = QStringLiteral("7000000%1").arg(i);
        f.meses[i % 12] = monedaPlana(QString::fromLatin1(casos[i].importe));
        EXPECT_EQ(ExportadorLibro::comoNumero(f.meses[i % 12]), casos[i].numero) << casos[i].importe;
        filas.push_back(f);
    }
    const QString ruta = libros.carpeta() + QStringLiteral("/importes.xlsx");
    ExportadorLibro::escribir(ruta, {{QStringLiteral("Presupuesto"), true, filas}});

    // Read back as the import converts a month cell: a number through its
    // double, a text with Spanish settings. Exact over the whole range.
    const auto hoja = LectorXlsx::leerFichero(ruta);
    for (std::size_t i = 0; i < std::size(casos); ++i) {
        const auto v = hoja->valor(static_cast<int>(i) + 2, static_cast<int>(i % 12) + 3);
        using Tipo = decltype(v.tipo);
        ASSERT_EQ(v.tipo, casos[i].numero ? Tipo::Numero : Tipo::Texto) << casos[i].importe;
        const Currency leido = v.tipo == Tipo::Numero ? Currency::fromDouble(v.numero) : es::aMoneda(v.texto);
        EXPECT_EQ(leido, filas[i].meses[i % 12]) << casos[i].importe;
    }

    // And stored by the import. The embedded database keeps amounts as
    // doubles, exact to the ten-thousandth up to the same bound: the rows
    // beyond it stay out of this part.
    std::vector<FilaLibro> guardables;
    for (std::size_t i = 0; i < std::size(casos); ++i)
        if (filas[i].meses[i % 12].abs() <= monedaPlana(QStringLiteral("274877906944")))
            guardables.push_back(filas[i]);
    ExportadorLibro::escribir(ruta, {{QStringLiteral("Presupuesto"), true, guardables}});
    ASSERT_EQ(importar(ruta), static_cast<qint32>(guardables.size()));
    for (std::size_t i = 0; i < guardables.size(); ++i) {
        Recordset rs = bd.conexion->Abrir(QStringLiteral("SELECT M1, M2, M3, M4, M5, M6, M7, M8, M9, M10, M11, M12 FROM Presupuestos "
                                                         "WHERE Cuenta = '%1' AND Dpto = %2")
                                              .arg(guardables[i].cuenta)
                                              .arg(guardables[i].dpto));
        ASSERT_FALSE(rs.eof());
        for (int m = 0; m < 12; ++m)
            EXPECT_EQ(rs.moneda(m), guardables[i].meses[static_cast<std::size_t>(m)]) << guardables[i].cuenta.toStdString();
        rs.Close();
    }
}

TEST(Exportar, TheSheetIsLaidOutForTheImportWithCaptionsAndAHistorySheet)
{
    LibrosPrueba libros;
    FilaLibro f;
    f.dpto = 3;
    f.cuenta = QStringLiteral("CTO002");
    f.nombre = QStringLiteral("Días con actividad");
    f.dptoNombre = QStringLiteral("Tienda Centro");
    f.meses[0] = monedaPlana(QStringLiteral("12.5"));
    f.meses[11] = monedaPlana(QStringLiteral("-1"));
    f.metodo = 2;
    f.valor = monedaPlana(QStringLiteral("5"));
    f.manual = 0x801;
    FilaLibro h = f;
    h.meses[0] = monedaPlana(QStringLiteral("7"));
    const QString ruta = libros.carpeta() + QStringLiteral("/disposicion.xlsx");
    ExportadorLibro::escribir(ruta, {{QStringLiteral("Presupuesto 2027"), true, {f}}, {QStringLiteral("Histórico 2026"), false, {h}}});

    const auto hoja = LectorXlsx::leerFichero(ruta);
    EXPECT_EQ(hoja->nombre(), QStringLiteral("Presupuesto 2027"));
    const QStringList cabecera = {"Dpto", "Cuenta", "Enero", "Febrero", "Marzo", "Abril", "Mayo", "Junio", "Julio", "Agosto",
                                  "Septiembre", "Octubre", "Noviembre", "Diciembre", "Nombre de la cuenta", "Departamento",
                                  "Total", "Método", "Valor", "Meses a mano"};
    for (int c = 0; c < cabecera.size(); ++c)
        EXPECT_EQ(hoja->texto(1, c + 1), cabecera[c]);
    EXPECT_EQ(hoja->valor(2, 1).numero, 3);
    EXPECT_EQ(hoja->valor(2, 2).texto, QStringLiteral("CTO002"));
    EXPECT_EQ(hoja->valor(2, 3).numero, 12.5);
    EXPECT_EQ(hoja->valor(2, 4).numero, 0); // a zero month is a filled cell: column E marks the end of the data
    EXPECT_EQ(hoja->valor(2, 14).numero, -1);
    EXPECT_EQ(hoja->texto(2, 15), f.nombre);
    EXPECT_EQ(hoja->texto(2, 16), f.dptoNombre);
    EXPECT_EQ(hoja->valor(2, 17).numero, 11.5);
    EXPECT_EQ(hoja->valor(2, 18).numero, 2);
    EXPECT_EQ(hoja->valor(2, 19).numero, 5);
    EXPECT_EQ(hoja->valor(2, 20).numero, 0x801);
    EXPECT_EQ(hoja->filaFinArriba(5), 2);

    // The parts a spreadsheet program shows: the second sheet, frozen
    // captions and codes, the amounts' format.
    int error = 0;
    zip_t* z = zip_open(QFile::encodeName(ruta).constData(), ZIP_RDONLY, &error);
    ASSERT_NE(z, nullptr);
    auto parte = [z](const char* nombre) {
        zip_stat_t st;
        if (zip_stat(z, nombre, 0, &st) != 0)
            return QByteArray();
        QByteArray datos(static_cast<qsizetype>(st.size), '\0');
        zip_file_t* fz = zip_fopen(z, nombre, 0);
        zip_fread(fz, datos.data(), st.size);
        zip_fclose(fz);
        return datos;
    };
    EXPECT_TRUE(parte("xl/workbook.xml").contains("name=\"Histórico 2026\""));
    const QByteArray segunda = parte("xl/worksheets/sheet2.xml");
    EXPECT_TRUE(segunda.contains("<v>7</v>"));
    EXPECT_FALSE(segunda.contains("r=\"R1\"")); // no calculation data for the history
    const QByteArray primera = parte("xl/worksheets/sheet1.xml");
    EXPECT_TRUE(primera.contains("state=\"frozen\"") && primera.contains("topLeftCell=\"C2\""));
    EXPECT_TRUE(primera.contains("<col "));
    EXPECT_TRUE(parte("xl/styles.xml").contains("formatCode=\"#,##0.00\""));
    zip_close(z);
}

TEST(Exportar, DemoBudgetComesBackUnchanged)
{
    BaseDatosPrueba bd(true);
    LibrosPrueba libros;
    idaYVuelta(bd, llenarTablaFiltro(bd), libros);
}

TEST(Exportar, LargeCompanyComesBackUnchanged)
{
    BaseDatosPrueba bd;
    OpcionesDemo o;
    o.cuentas = 2000;
    o.departamentos = 20;
    DatosDemo::generar(*bd.conexion, o);
    const QString tabla = llenarTablaFiltro(bd);
    LibrosPrueba libros;
    idaYVuelta(bd, tabla, libros);
    Recordset rs = bd.conexion->Abrir(QStringLiteral("SELECT COUNT(*) FROM ") + tabla);
    EXPECT_GT(rs.entero(0), 35000);
    rs.Close();
}

TEST(Exportar, AFileThatCannotBeWrittenIsAnErrorNamingIt)
{
    const QString ruta = QStringLiteral("/no-existe/carpeta/libro.xlsx");
    try {
        ExportadorLibro::escribir(ruta, {{QStringLiteral("Presupuesto"), true, {FilaLibro{}}}});
        FAIL() << "no error";
    } catch (const VbError& e) {
        EXPECT_TRUE(e.description().startsWith(QStringLiteral("No se puede escribir el libro 'libro.xlsx'"))) << e.description().toStdString();
    }
}
