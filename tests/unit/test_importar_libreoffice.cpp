// A workbook as LibreOffice writes it (numbers typed "n", texts in the
// shared table, a blank cell simply missing) imports as its rows say. The
// workbook is made at run time from CSV by LibreOffice itself.

#include "BaseDatosPrueba.h"
#include "import/clsImportar.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace presupuestos;
using presupuestos::prueba::BaseDatosPrueba;

TEST(ImportarLibreOffice, AWorkbookLibreOfficeWroteImportsAsItsRowsSay)
{
    const QString soffice = QStandardPaths::findExecutable(QStringLiteral("soffice"));
    if (soffice.isEmpty())
        GTEST_SKIP() << "LibreOffice (soffice) is not installed";
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
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
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    // A profile of its own, so that another LibreOffice running meanwhile does not take the job.
    p.start(soffice, {QStringLiteral("-env:UserInstallation=file://") + dir.filePath(QStringLiteral("perfil")), QStringLiteral("--headless"),
                      QStringLiteral("--convert-to"), QStringLiteral("xlsx"), QStringLiteral("--outdir"), dir.path(), csv.fileName()});
    ASSERT_TRUE(p.waitForFinished(120000)) << p.readAll().toStdString();
    const QString libro = dir.filePath(QStringLiteral("presupuesto.xlsx"));
    ASSERT_TRUE(QFile::exists(libro)) << p.readAll().toStdString();

    BaseDatosPrueba bd;
    clsImportar imp;
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
