// A workbook as LibreOffice writes it (numbers typed "n", texts in the
// shared table, a blank cell simply missing) imports as its rows say. The
// workbook is made at run time from CSV by LibreOffice itself.

#include "BaseDatosPrueba.h"
#include "export/ExportadorLibro.h"
#include "import/clsImportar.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace presupuestos;
using presupuestos::prueba::BaseDatosPrueba;

namespace {

// Converts a file with LibreOffice into the given format, in its folder.
QString convertir(const QTemporaryDir& dir, const QString& soffice, const QString& fichero, const QString& formato)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    // A profile of its own, so that another LibreOffice running meanwhile does not take the job.
    p.start(soffice, {QStringLiteral("-env:UserInstallation=file://") + dir.filePath(QStringLiteral("perfil")), QStringLiteral("--headless"),
                      QStringLiteral("--convert-to"), formato, QStringLiteral("--outdir"), dir.path(), fichero});
    p.waitForFinished(120000);
    const QString salida = dir.filePath(QFileInfo(fichero).completeBaseName() + QLatin1Char('.') + formato.section(QLatin1Char(':'), 0, 0));
    if (QFile::exists(salida))
        return salida;
    ADD_FAILURE() << "LibreOffice did not convert " << fichero.toStdString() << ": " << p.readAll().toStdString();
    return QString();
}

class ImportarLibreOffice : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (soffice.isEmpty())
            GTEST_SKIP() << "LibreOffice (soffice) is not installed";
        ASSERT_TRUE(dir.isValid());
    }
    const QString soffice = QStandardPaths::findExecutable(QStringLiteral("soffice"));
    QTemporaryDir dir;
};

} // namespace

TEST_F(ImportarLibreOffice, AWorkbookTheExportWroteReadsInLibreOfficeAsWritten)
{
    // The export places its rows into the workbook itself: another program
    // must read them, texts that XML would take for markup included.
    FilaLibro f;
    f.dpto = 3;
    f.cuenta = QStringLiteral("70000001");
    f.nombre = QStringLiteral("Ventas <tienda> & \"centro\" ñ");
    f.dptoNombre = QStringLiteral(" Tienda 3 ");
    f.meses[0] = Currency::fromRaw(15000);
    f.meses[11] = Currency::fromRaw(-12345678901);
    FilaLibro g = f;
    g.cuenta = QStringLiteral("CTO002");
    g.nombre = QStringLiteral("Línea\x01rara");
    const QString libro = dir.filePath(QStringLiteral("exportado.xlsx"));
    ExportadorLibro::escribir(libro, {HojaLibro{QStringLiteral("Presupuesto"), true, {f, g}}});
    const QString csv = convertir(dir, soffice, libro, QStringLiteral("csv:Text - txt - csv (StarCalc):59,34,76,1,,1033"));
    ASSERT_FALSE(csv.isEmpty());
    QFile leido(csv);
    ASSERT_TRUE(leido.open(QIODevice::ReadOnly));
    const QStringList lineas = QString::fromUtf8(leido.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lineas.size(), 3) << lineas.join(QLatin1Char('|')).toStdString();
    const QStringList a = lineas[1].trimmed().split(QLatin1Char(';'));
    ASSERT_GE(a.size(), 17) << lineas[1].toStdString();
    EXPECT_EQ(prueba::campos(a, {0, 1, 14, 15}), (QStringList{"3", "70000001", "\"Ventas <tienda> & \"\"centro\"\" ñ\"", " Tienda 3 "}));
    EXPECT_TRUE(lineas[2].contains(QStringLiteral("CTO002")));
}

TEST_F(ImportarLibreOffice, AWorkbookLibreOfficeWroteImportsAsItsRowsSay)
{
    // Row 3 has no March; row 4 no department; row 5 a statistic concept
    // with a tiny and a negative amount.
    QFile csv(dir.filePath(QStringLiteral("presupuesto.csv")));
    ASSERT_TRUE(csv.open(QIODevice::WriteOnly));
    csv.write("Dpto,Cuenta,Ene,Feb,Mar,Abr,May,Jun,Jul,Ago,Sep,Oct,Nov,Dic\n"
              "1,70000001,1.5,2,3,4,5,6,7,8,9,10,11,12\n"
              "2,62800001,100,200,,400,500,600,700,800,900,1000,1100,1200\n"
              ",70000002,9,9,9,9,9,9,9,9,9,9,9,9\n"
              "3,CTO002,0.0001,-2.25,3,0,0,0,0,0,0,0,0,1234567.8901\n");
    csv.close();
    const QString libro = convertir(dir, soffice, csv.fileName(), QStringLiteral("xlsx"));
    ASSERT_FALSE(libro.isEmpty());

    BaseDatosPrueba bd;
    clsImportar imp(bd.sesion);
    imp.setPrimeraFilaDatos(2);
    imp.setPrimeraColumnaDatos(1);
    int preguntas = 0;
    imp.setConfirmarDesconocidos([&preguntas](const CodigosDesconocidos&) { return ++preguntas > 0; });
    imp.ImportarDesdeExcel(libro);
    EXPECT_EQ(preguntas, 1);
    EXPECT_EQ(imp.informe().escritas(), 3);
    EXPECT_EQ(imp.informe().omitidas, 1);
    EXPECT_EQ(imp.informe().desconocidas, 3); // the company has no chart at all

    const auto meses = [&bd](const QString& cuenta, int dpto) { return bd.presupuestoGuardado(cuenta, dpto).mid(0, 12); };
    EXPECT_EQ(meses(QStringLiteral("70000001"), 1),
              QStringList({"1.5", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12"}));
    EXPECT_EQ(meses(QStringLiteral("62800001"), 2),
              QStringList({"100", "200", "0", "400", "500", "600", "700", "800", "900", "1000", "1100", "1200"}));
    EXPECT_EQ(meses(QStringLiteral("CTO002"), 3),
              QStringList({"0.0001", "-2.25", "3", "0", "0", "0", "0", "0", "0", "0", "0", "1234567.8901"}));
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos")).toInt(), 3);
}
