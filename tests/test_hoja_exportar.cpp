// The worksheet's export, driven through the window: the workbook holds
// the rows the filters show, with their stored decimals, the history on a
// second sheet when it is shown; imported back through the worksheet's own
// dialog it changes nothing and is one step of undo.

#include "HojaPrueba.h"
#include "LibroPrueba.h"
#include "grid/widgets/VistaRejilla.h"
#include "import/dialog/frmImportar.h"
#include "LecturaLibro.h"
#include "worksheet/core/Columnas.h"

#include <QCheckBox>
#include <QFileInfo>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>
#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;
using namespace presupuestos::hoja;

namespace {

// Department and account of every account row of the grid, in order.
QStringList filasRejilla(ModeloRejilla& m)
{
    QStringList l;
    for (int r = 1; r < m.Rows(); ++r)
        if (!m.IsSubtotal(r))
            l << m.TextMatrix(r, kDpto) + QLatin1Char('/') + m.TextMatrix(r, kCuenta);
    return l;
}

// Every stored amount as the currency it is read as.
QStringList importes(BaseDatosPrueba& bd)
{
    QStringList l;
    Recordset rs = bd.conexion->Abrir(QStringLiteral("SELECT Cuenta, Dpto, M1, M2, M3, M4, M5, M6, M7, M8, M9, M10, M11, M12, "
                                                     "Metodo_Calculo, Modificacion_Manual, Valor FROM Presupuestos ORDER BY Dpto, Cuenta"));
    for (; !rs.eof(); rs.MoveNext()) {
        QString s = rs.texto(0) + QLatin1Char('/') + rs.texto(1);
        for (int i = 2; i < 17; ++i)
            s += QLatin1Char(' ') + rs.moneda(i).toSqlText();
        l << s;
    }
    rs.Close();
    return l;
}

} // namespace

TEST(HojaExportar, TheDemoGoesOutAsShownAndComesBackUnchangedInOneStep)
{
    HojaAbierta h(true);
    LibrosPrueba libros;
    h.hoja->chkMostrarHistorico->click();
    ASSERT_TRUE(h.hoja->vsHistorico->isVisibleTo(h.hoja));
    const QString ruta = libros.carpeta() + QStringLiteral("/demo");
    h.plataforma.dialogoArchivo->respuestas.push_back(ruta);
    h.hoja->cmdExportar->click();
    ASSERT_FALSE(h.plataforma.mensajes->mostrados.empty());
    const QStringList enRejilla = filasRejilla(h.m());
    EXPECT_EQ(h.plataforma.mensajes->mostrados.back().prompt,
              QStringLiteral("Se han exportado %1 filas a demo.xlsx.").arg(enRejilla.size()));
    EXPECT_EQ(h.plataforma.dialogoArchivo->propuestos, std::vector<QString>{QStringLiteral("Presupuesto 2027.xlsx")});

    EXPECT_EQ(LecturaLibro(ruta + QStringLiteral(".xlsx")).codigos, enRejilla);

    // The workbook through the worksheet's import, untouched.
    const QStringList antes = importes(h.bd);
    const QString deshacer = h.hoja->mnuPopupDeshacer->text();
    QTimer::singleShot(0, h.hoja, [&] {
        frmImportar* d = h.hoja->frmImport;
        ASSERT_NE(d, nullptr);
        h.plataforma.dialogoArchivo->respuestas.push_back(ruta + QStringLiteral(".xlsx"));
        d->cmdExaminar->click();
        d->cmdImportar->click();
        d->reject();
    });
    h.hoja->cmdImportar_Click();
    EXPECT_EQ(importes(h.bd).size() >= antes.size(), true);
    for (const QString& fila : antes)
        EXPECT_TRUE(importes(h.bd).contains(fila)) << fila.toStdString();
    EXPECT_EQ(filasRejilla(h.m()), enRejilla);
    EXPECT_EQ(h.hoja->mnuPopupDeshacer->text(),
              QStringLiteral("Deshacer: importar %1 filas de demo.xlsx").arg(enRejilla.size()));
    h.hoja->Deshacer();
    EXPECT_EQ(importes(h.bd), antes);
    EXPECT_EQ(h.hoja->mnuPopupDeshacer->text(), deshacer);
}

TEST(HojaExportar, OnlyTheDepartmentsTheFilterShowsGoOut)
{
    HojaAbierta h;
    LibrosPrueba libros;
    frmActPresupusto* f = h.hoja;
    f->cmdDepartamentos_Click();
    f->chkSelAllDpto->setChecked(false);
    for (int i = 0; i < f->lstDepartamentos->count(); ++i)
        f->lstDepartamentos->item(i)->setSelected(f->lstDepartamentos->item(i)->text() == QStringLiteral("Sur"));
    f->cmdFiltroDptoAceptar_Click();
    const QStringList enRejilla = filasRejilla(h.m());
    ASSERT_FALSE(enRejilla.isEmpty());
    for (const QString& fila : enRejilla)
        ASSERT_TRUE(fila.startsWith(QStringLiteral("2/"))) << fila.toStdString();

    const QString ruta = libros.carpeta() + QStringLiteral("/sur.xlsx");
    h.plataforma.dialogoArchivo->respuestas.push_back(ruta);
    f->mnuPopupExportar->trigger();
    const LecturaLibro libro(ruta);
    EXPECT_EQ(libro.codigos, enRejilla);
    // The stored January of 62800001/2 with its decimals, not the grid's rounding.
    const int fila = static_cast<int>(enRejilla.indexOf(QStringLiteral("2/62800001"))) + 2;
    EXPECT_EQ(libro.numero(fila, 3), -50.5);

    // Cancelling the file dialog writes nothing and says nothing.
    const std::size_t mensajes = h.plataforma.mensajes->mostrados.size();
    f->cmdExportar->click();
    EXPECT_EQ(h.plataforma.mensajes->mostrados.size(), mensajes);
}
