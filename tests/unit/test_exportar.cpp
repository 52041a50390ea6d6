// The workbook the worksheet exports, read back by the import with its
// defaults (first row 2, first column A): every stored amount comes back
// exactly, and what the import passes by (names, totals, method, value,
// manual months) stays as it was.

#include "DiscoPrueba.h"
#include "BaseDatosPrueba.h"
#include "common/NumerosEs.h"
#include "LibroPrueba.h"
#include "db/schema/DatosDemo.h"
#include "export/ExportadorLibro.h"
#include "import/clsImportar.h"
#include "import/readers/LectorLibro.h"
#include "worksheet/core/ConsultasHoja.h"
#include "worksheet/core/FilasLibro.h"
#include "worksheet/core/RepositorioHoja.h"

#include <QDir>
#include <QFile>
#include <QSet>
#include <QTemporaryDir>
#include <csignal>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace presupuestos;
using presupuestos::prueba::BaseDatosPrueba;
using presupuestos::prueba::LibrosPrueba;
using presupuestos::prueba::monedaPlana;

namespace {

qint32 importar(Sesion& sesion, const QString& libro, InformeImportacion* informe = nullptr)
{
    clsImportar imp(sesion);
    imp.setPrimeraFilaDatos(2);
    imp.setPrimeraColumnaDatos(1);
    // A worksheet's own codes are never unknown.
    if (informe)
        imp.setConfirmarDesconocidos([](const CodigosDesconocidos& d) {
            ADD_FAILURE() << d.filas << " unknown codes, the first in row " << d.primeras.front().fila;
            return true;
        });
    imp.ImportarDesdeExcel(libro);
    if (informe)
        *informe = imp.informe();
    return imp.informe().escritas();
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
    // Names with what XML and blanks make of text: they come back as written.
    const char* const nombres[] = {"Bar & Café", "<Norte> \"sur\"", "  con blancos  ", "Año ñ € ü", "a]]>b"};
    BaseDatosPrueba bd;
    LibrosPrueba libros;
    std::vector<FilaLibro> filas;
    for (std::size_t i = 0; i < std::size(casos); ++i) {
        FilaLibro f;
        f.dpto = static_cast<qint32>(i + 1);
        f.cuenta = QStringLiteral("7000000%1").arg(i);
        f.nombre = QString::fromUtf8(nombres[i % std::size(nombres)]);
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
        EXPECT_EQ(hoja->valor(static_cast<int>(i) + 2, 15).texto, filas[i].nombre) << casos[i].importe;
    }

    // And stored by the import. The embedded database keeps amounts as
    // doubles, exact to the ten-thousandth up to the same bound: the rows
    // beyond it stay out of this part.
    std::vector<FilaLibro> guardables;
    for (std::size_t i = 0; i < std::size(casos); ++i)
        if (filas[i].meses[i % 12].abs() <= monedaPlana(QStringLiteral("274877906944")))
            guardables.push_back(filas[i]);
    ExportadorLibro::escribir(ruta, {{QStringLiteral("Presupuesto"), true, guardables}});
    ASSERT_EQ(importar(bd.sesion, ruta), static_cast<qint32>(guardables.size()));
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
    FilaLibro f{3, QStringLiteral("CTO002"), QStringLiteral("Días con actividad"), QStringLiteral("Tienda Centro "), {}, 2,
                monedaPlana(QStringLiteral("5")), 0x801};
    f.meses[0] = monedaPlana(QStringLiteral("12.5"));
    f.meses[11] = monedaPlana(QStringLiteral("-1"));
    FilaLibro h = f;
    h.meses[0] = monedaPlana(QStringLiteral("7"));
    const QString ruta = libros.carpeta() + QStringLiteral("/disposicion.xlsx");
    ExportadorLibro::escribir(ruta, {{QStringLiteral("Presupuesto 2027"), true, {f}}, {QStringLiteral("Histórico 2026"), false, {h}}});

    const auto hoja = LectorXlsx::leerFichero(ruta);
    EXPECT_EQ(hoja->nombre(), QStringLiteral("Presupuesto 2027"));
    QStringList fila1, fila2;
    for (int c = 1; c <= 20; ++c) {
        fila1 << hoja->texto(1, c);
        fila2 << hoja->texto(2, c);
    }
    EXPECT_EQ(fila1.join(QLatin1Char(';')), QStringLiteral("Dpto;Cuenta;Enero;Febrero;Marzo;Abril;Mayo;Junio;Julio;Agosto;Septiembre;"
                                                           "Octubre;Noviembre;Diciembre;Nombre de la cuenta;Departamento;Total;"
                                                           "Método;Valor;Meses a mano"));
    // A zero month is a filled cell: column E marks where the data ends.
    EXPECT_EQ(fila2.join(QLatin1Char(';')),
              QStringLiteral("3;CTO002;12,5;0;0;0;0;0;0;0;0;0;0;-1;Días con actividad;Tienda Centro ;11,5;2;5;2049"));
    EXPECT_EQ(hoja->filaFinArriba(5), 2);

    // What a spreadsheet program shows: the history sheet without the
    // calculation columns, frozen captions and codes, the amounts' format.
    const auto parte = [&ruta](const char* nombre) { return LibrosPrueba::parte(ruta, nombre); };
    EXPECT_TRUE(parte("xl/workbook.xml").contains("name=\"Histórico 2026\""));
    EXPECT_TRUE(parte("xl/worksheets/sheet2.xml").contains("<v>7</v>"));
    EXPECT_FALSE(parte("xl/worksheets/sheet2.xml").contains("r=\"R1\""));
    EXPECT_TRUE(parte("xl/worksheets/sheet1.xml").contains("topLeftCell=\"C2\" activePane=\"bottomRight\" state=\"frozen\""));
    EXPECT_TRUE(parte("xl/styles.xml").contains("formatCode=\"#,##0.00\""));
    // Excel trims a text's edge blanks unless told to keep them.
    EXPECT_TRUE(parte("xl/worksheets/sheet1.xml").contains("<t xml:space=\"preserve\">Tienda Centro </t>"));
}

TEST(Exportar, ALargeCompanyComesBackUnchanged)
{
    if (BaseDatosPrueba::enPostgres())
        GTEST_SKIP() << "40,000 rows imported one statement at a time take minutes of round trips to a server; "
                        "the export and import come back unchanged on PostgreSQL in the demo company's tests";
    BaseDatosPrueba bd;
    OpcionesDemo o;
    o.cuentas = 2000;
    o.departamentos = 20;
    DatosDemo::generar(*bd.conexion, o);
    // The worksheet's read of every account and department, through the
    // filter table as the worksheet fills it.
    RepositorioHoja temporal(*bd.conexion);
    const QString tabla = temporal.crearTablasTemporales().filtroCuentas;
    RepositorioHoja r(*bd.conexion, tabla, 1);
    for (const CuentaFiltro& c : r.cuentas(r.ultimoEjercicioCuentas(2026), 8, true))
        r.insertarCuenta(c);
    Recordset rs = bd.conexion->Abrir(consultas::presupuesto(tabla, 1, 2027, true, QString(), QString(), false));
    const std::vector<FilaLibro> filas = filasLibro(rs, true);
    rs.Close();
    ASSERT_GT(filas.size(), 35000u);

    const QStringList antes = bd.importesGuardados();
    LibrosPrueba libros;
    const QString ruta = libros.carpeta() + QStringLiteral("/grande.xlsx");
    ExportadorLibro::escribir(ruta, {{QStringLiteral("Presupuesto 2027"), true, filas}});
    InformeImportacion informe;
    EXPECT_EQ(importar(bd.sesion, ruta, &informe), static_cast<qint32>(filas.size()));
    EXPECT_EQ(informe.omitidas, 0);
    // Rows shown without a stored budget come in as zeros with the table's defaults.
    const QStringList despues = bd.importesGuardados();
    EXPECT_EQ(despues.size(), antes.size() + informe.nuevas);
    const QSet<QString> guardadas(despues.begin(), despues.end());
    for (const QString& fila : antes)
        ASSERT_TRUE(guardadas.contains(fila)) << fila.toStdString();
}

namespace {

// A workbook large enough not to fit a small file system.
std::vector<HojaLibro> libroGrande()
{
    HojaLibro h{QStringLiteral("Presupuesto 2027"), true, {}};
    for (int i = 0; i < 20000; ++i) {
        FilaLibro f;
        f.dpto = i % 50;
        f.cuenta = QString::number(70000000 + i);
        f.nombre = QStringLiteral("Cuenta %1").arg(i * 7919);
        for (int m = 0; m < 12; ++m)
            f.meses[static_cast<std::size_t>(m)] = Currency::fromRaw(static_cast<std::int64_t>(i) * 12345 + m);
        h.filas.push_back(f);
    }
    return {h};
}

const QByteArray kLibroAnterior = QByteArrayLiteral("el libro que ya estaba");

// A folder (outside the system's temporary one) holding only the workbook of before.
QString carpetaConLibro(const QString& carpeta)
{
    QDir().mkpath(carpeta);
    QFile f(carpeta + QStringLiteral("/libro.xlsx"));
    f.open(QIODevice::WriteOnly);
    f.write(kLibroAnterior);
    return f.fileName();
}

// The folder's files and the workbook's bytes.
QStringList estado(const QString& ruta)
{
    QFile f(ruta);
    f.open(QIODevice::ReadOnly);
    return QDir(QFileInfo(ruta).path()).entryList(QDir::Files | QDir::Hidden) << QString::fromLatin1(f.readAll().left(40));
}

QString errorDe(const std::function<void()>& f) { return prueba::errorDe(f).description(); }

} // namespace

// The export replaces the workbook only once the new one is whole on the
// disk: until then, and after any failure, the old one is there byte for
// byte, and no file of the export's is left beside it.
TEST(Exportar, AWorkbookIsReplacedWholeOrNotAtAll)
{
    QTemporaryDir dir(QDir::current().filePath(QStringLiteral("exportar-XXXXXX")));
    const QString ruta = carpetaConLibro(dir.filePath(QStringLiteral("bien")));
    QFile::setPermissions(ruta, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup);
    EXPECT_EQ(errorDe([&] { ExportadorLibro::escribir(ruta, libroGrande()); }), QString());
    const QStringList hecho = estado(ruta);
    EXPECT_EQ(hecho.mid(0, 1), QStringList{QStringLiteral("libro.xlsx")});
    EXPECT_TRUE(hecho.last().startsWith(QLatin1String("PK")));
    // It keeps the permissions the old one had.
    const auto todos = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup | QFile::WriteGroup
                       | QFile::ExeGroup | QFile::ReadOther | QFile::WriteOther | QFile::ExeOther;
    EXPECT_EQ(QFile::permissions(ruta) & todos, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup);

    // A workbook made read-only is refused, whoever runs the export.
    const QString soloLectura = carpetaConLibro(dir.filePath(QStringLiteral("solo-lectura")));
    QFile::setPermissions(soloLectura, QFileDevice::ReadOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther);
    const QStringList antes = estado(soloLectura);
    EXPECT_EQ(errorDe([&] { ExportadorLibro::escribir(soloLectura, libroGrande()); }),
              QStringLiteral("No se puede escribir el libro 'libro.xlsx': es de solo lectura."));
    EXPECT_EQ(estado(soloLectura), antes);

    // Killed half-way through its rows, it leaves the old one and nothing else.
    const QString matado = carpetaConLibro(dir.filePath(QStringLiteral("matado")));
    const pid_t hijo = ::fork();
    if (hijo == 0) {
        ExportadorLibro::escribir(matado, libroGrande(), [](qint64 hechas, qint64) {
            if (hechas >= 10000)
                ::raise(SIGKILL);
        });
        ::_exit(0);
    }
    int estadoHijo = 0;
    ASSERT_EQ(::waitpid(hijo, &estadoHijo, 0), hijo);
    EXPECT_TRUE(WIFSIGNALED(estadoHijo));
    EXPECT_EQ(estado(matado), (QStringList{QStringLiteral("libro.xlsx"), QString::fromLatin1(kLibroAnterior)}));
}

TEST(Exportar, AFullDiskOrNoTemporaryFolderLeaveTheOldWorkbookAndNothingElse)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "a full disk and a missing temporary folder are made by mounting small file systems, which needs root";
    QTemporaryDir dir(QDir::current().filePath(QStringLiteral("exportar-XXXXXX")));

    {
        prueba::DiscoPequeno lleno("64k");
        ASSERT_TRUE(lleno.montado()) << lleno.error();
        const QString ruta = carpetaConLibro(lleno.path());
        const QStringList antes = estado(ruta);
        EXPECT_EQ(errorDe([&] { ExportadorLibro::escribir(ruta, libroGrande()); }),
                  QStringLiteral("No se puede escribir el libro 'libro.xlsx': no queda espacio en el disco."));
        EXPECT_EQ(estado(ruta), antes);
    }

    // A process of its own sees the system's temporary folder read-only and
    // the destination's folder, a file system of its own, writable.
    const QString sinTemporal = dir.filePath(QStringLiteral("sin-temporal"));
    QDir().mkpath(sinTemporal);
    const pid_t hijo = ::fork();
    if (hijo == 0) {
        const QByteArray destino = QFile::encodeName(sinTemporal);
        if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
            || ::mount("tmpfs", destino.constData(), "tmpfs", 0, "size=16m") != 0
            || ::mount("/tmp", "/tmp", nullptr, MS_BIND | MS_REC, nullptr) != 0
            || ::mount(nullptr, "/tmp", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
            ::_exit(3);
        const QString libro = carpetaConLibro(sinTemporal);
        const bool escrito = errorDe([&] { ExportadorLibro::escribir(libro, libroGrande()); }).isEmpty();
        const QStringList hecho = estado(libro);
        ::_exit(escrito && hecho.size() == 2 && hecho.last().startsWith(QLatin1String("PK")) ? 0 : 1);
    }
    int estadoHijo = 0;
    ASSERT_EQ(::waitpid(hijo, &estadoHijo, 0), hijo);
    EXPECT_TRUE(WIFEXITED(estadoHijo) && WEXITSTATUS(estadoHijo) == 0) << "status " << estadoHijo;
}
