// The export driven through the window, imported back through the
// worksheet's own dialog: the rows the filters show, nothing else, and
// nothing stored changes; the import stays one step of undo.

#include "HojaPrueba.h"
#include "LibroPrueba.h"
#include "import/clsImportar.h"
#include "import/dialog/frmImportar.h"

#include <QCheckBox>
#include <QListWidget>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTimer>
#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;

namespace {

// Exports through the button to ruta, imports it back through the dialog;
// returns the rows the import wrote.
int exportarEImportar(HojaAbierta& h, const QString& ruta)
{
    h.plataforma.dialogoArchivo->respuestas.push_back(ruta);
    h.hoja->cmdExportar->click();
    int escritas = -1;
    QTimer::singleShot(0, h.hoja, [&] {
        h.plataforma.dialogoArchivo->respuestas.push_back(ruta + QStringLiteral(".xlsx"));
        h.hoja->frmImport->cmdExaminar->click();
        h.hoja->frmImport->cmdImportar->click();
        escritas = h.hoja->frmImport->importacion()->informe().escritas();
        h.hoja->frmImport->reject();
    });
    h.hoja->cmdImportar_Click();
    return escritas;
}

int filasDeCuentas(ModeloRejilla& m)
{
    int n = 0;
    for (int r = 1; r < m.Rows(); ++r)
        n += m.IsSubtotal(r) ? 0 : 1;
    return n;
}

} // namespace

// A year with balances already booked goes out with its comparison as a
// sheet of its own, after the budget, as the tracking window shows it.
TEST(HojaExportar, AYearUnderWayAddsItsTrackingAsASheet)
{
    HojaAbierta h;
    QTemporaryDir dir;
    h.bd.sql(QStringLiteral("INSERT INTO Acumulados_Dpto (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, D1, D2) VALUES (1, 2027, '62100001', 1, 1200, 900)"));
    const QString ruta = dir.filePath(QStringLiteral("seguimiento.xlsx"));
    h.plataforma.dialogoArchivo->respuestas.push_back(ruta);
    h.hoja->cmdExportar->click();
    EXPECT_TRUE(LibrosPrueba::parte(ruta, "xl/workbook.xml").contains("name=\"Seguimiento 2027\""));
    const QByteArray hoja = LibrosPrueba::parte(ruta, "xl/worksheets/sheet2.xml");
    EXPECT_TRUE(hoja.contains("Real a la fecha (2 meses)") || LibrosPrueba::parte(ruta, "xl/sharedStrings.xml").contains("Real a la fecha (2 meses)"));
    EXPECT_TRUE(hoja.contains("<v>-2100</v>")) << hoja.left(2000).toStdString();   // the rent's two months, credit less debit
    // Without balances in the year there is nothing to follow yet.
    h.bd.sql(QStringLiteral("DELETE FROM Acumulados_Dpto WHERE Cod_Ejercicio = 2027"));
    const QString otra = dir.filePath(QStringLiteral("sin.xlsx"));
    h.plataforma.dialogoArchivo->respuestas.push_back(otra);
    h.hoja->cmdExportar->click();
    EXPECT_FALSE(LibrosPrueba::parte(otra, "xl/workbook.xml").contains("Seguimiento"));
}

TEST(HojaExportar, TheDemoWithItsHistoryComesBackUnchangedInOneStep)
{
    HojaAbierta h(true);
    QTemporaryDir dir;
    h.hoja->chkMostrarHistorico->click();
    const QStringList antes = h.bd.importesGuardados();
    const QString deshacer = h.hoja->mnuPopupDeshacer->text();
    const int filas = filasDeCuentas(h.m());

    EXPECT_EQ(exportarEImportar(h, dir.filePath(QStringLiteral("demo"))), filas);
    EXPECT_EQ(h.plataforma.dialogoArchivo->propuestos, std::vector<QString>{QStringLiteral("Presupuesto 2027.xlsx")});
    EXPECT_EQ(h.plataforma.mensajes->mostrados.front().prompt, QStringLiteral("Se han exportado %1 filas a demo.xlsx.").arg(filas));
    // Rows the worksheet showed without a stored budget come in as zeros.
    const QStringList despues = h.bd.importesGuardados();
    for (const QString& fila : antes)
        EXPECT_TRUE(despues.contains(fila)) << fila.toStdString();
    EXPECT_EQ(h.hoja->mnuPopupDeshacer->text(), QStringLiteral("Deshacer: importar %1 filas de demo.xlsx").arg(filas));
    h.hoja->Deshacer();
    EXPECT_EQ(h.bd.importesGuardados(), antes);
    EXPECT_EQ(h.hoja->mnuPopupDeshacer->text(), deshacer);
}

TEST(HojaExportar, OnlyTheDepartmentTheFilterShowsGoesOutWithItsDecimals)
{
    HojaAbierta h;
    QTemporaryDir dir;
    frmActPresupusto* f = h.hoja;
    f->cmdDepartamentos_Click();
    f->chkSelAllDpto->setChecked(false);
    for (int i = 0; i < f->lstDepartamentos->count(); ++i)
        f->lstDepartamentos->item(i)->setSelected(f->lstDepartamentos->item(i)->text() == QStringLiteral("Sur"));
    f->cmdFiltroDptoAceptar_Click();
    const QStringList antes = h.bd.importesGuardados();

    EXPECT_EQ(exportarEImportar(h, dir.filePath(QStringLiteral("sur"))), filasDeCuentas(h.m()));
    EXPECT_EQ(h.bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos WHERE Dpto = 1")).toInt(), 1);
    for (const QString& fila : antes)
        EXPECT_TRUE(h.bd.importesGuardados().contains(fila)) << fila.toStdString(); // -50.5 in January of 62800001/2 among them

    // Cancelling the file dialog writes nothing and says nothing.
    const std::size_t mensajes = h.plataforma.mensajes->mostrados.size();
    f->mnuPopupExportar->trigger();
    EXPECT_EQ(h.plataforma.mensajes->mostrados.size(), mensajes);
}
