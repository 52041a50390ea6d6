#include "HojaPrueba.h"
#include "LibroPrueba.h"
#include "import/dialog/frmImportar.h"
#include "calculation/dialog/frmOperaciones.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/core/Columnas.h"
#include "worksheet/dlgHistorial.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QFileInfo>
#include <QTimer>
#include <QProgressBar>
#include <QPushButton>
#include <QHeaderView>
#include <QTableWidget>
#include <functional>
#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;
using namespace presupuestos::hoja;
using namespace presupuestos::prueba::filas;

namespace {

struct Hoja : HojaAbierta {
    using HojaAbierta::HojaAbierta;
    // The same, to every row of a scope, the question answered yes.
    void aplicarEn(int fila, AmbitoMetodo ambito, int metodo, const QString& valor)
    {
        frmOperaciones* d = hoja->operaciones();
        d->cboAmbito->setCurrentIndex(d->cboAmbito->findData(static_cast<int>(ambito)));
        aplicar(fila, metodo, valor);
        d->cboAmbito->setCurrentIndex(0);
        EXPECT_EQ(plataforma.mensajes->mostrados.size(), 1u) << mensajesMostrados(plataforma);
        plataforma.mensajes->mostrados.clear();
    }
    QStringList tabla() { return bd.presupuestos(); }
    // What the grid shows: every cell's text and colours, the bars.
    QStringList pantalla()
    {
        QStringList r;
        for (int f = 0; f < m().Rows(); ++f)
            for (int c = 0; c < m().Cols(); ++c)
                r << QStringLiteral("%1,%2 %3 %4 %5")
                         .arg(f)
                         .arg(c)
                         .arg(m().TextMatrix(f, c), m().CellBackColor(f, c).name(), m().CellForeColor(f, c).name());
        r << hoja->pbrSeleccion->text() << hoja->pbrTotal->text();
        return r;
    }
    // The screen after an undo or redo is the one a fresh load shows, and
    // with every row shown the whole budget's bar is the selection's.
    void comoRecienCargada(const char* paso)
    {
        const QStringList ahora = pantalla();
        hoja->CargarPresupuesto();
        EXPECT_EQ(ahora, pantalla()) << paso;
        EXPECT_EQ(hoja->pbrTotal->value(), hoja->pbrSeleccion->value()) << paso;
        EXPECT_EQ(hoja->pbrTotal->maximum(), hoja->pbrSeleccion->maximum()) << paso;
    }
};

} // namespace

TEST(HojaDeshacer, EveryKindOfOperationIsOneStepBackAndForth)
{
    Hoja h;
    // A row planned on the sales follows every change of them.
    h.bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, Metodo_Calculo, Valor) "
                            "VALUES (1, 2027, '62100001', 1, 6, 10)"));
    h.hoja->CargarPresupuesto();
    h.comoRecienCargada("inicio");
    struct Paso {
        const char* nombre;
        std::function<void()> hacer;
        QString texto;
    };
    const std::vector<Paso> pasos = {
        {"teclear ventas", [&] { h.teclear(kVentasNorte, colMes(5), QStringLiteral("250")); },
         QStringLiteral("Deshacer: escribir en Mayo de la cuenta 70000001, dpto. 1")},
        {"pegar", [&] { h.pegar(kAlquilerNorte, colMes(1), QStringLiteral("1\t2\t3\r\n4\t5\t6\r\n")); },
         QStringLiteral("Deshacer: pegar 6 celdas")},
        {"borrar", [&] {
             h.m().Select(kVentasNorte, colMes(1), kAlquilerSur, colMes(3));
             h.hoja->BorrarValorCeldas();
         },
         QStringLiteral("Deshacer: borrar 30 celdas")},
        {"método sobre ventas", [&] { h.aplicar(kVentasNorte, 3, QStringLiteral("2000")); },
         QStringLiteral("Deshacer: aplicar el método 3 a la cuenta 70000001, dpto. 1")},
        {"método en un departamento", [&] { h.aplicarEn(kVentasSur, AmbitoMetodo::Departamento, 1, QStringLiteral("1200")); },
         QStringLiteral("Deshacer: aplicar el método 1 a 11 filas")},
        {"no presupuestar", [&] {
             h.m().Select(kLuzSur, colMes(1));
             h.hoja->mnuPopupOcultar_Click();   // the confirmation is answered yes
             h.plataforma.mensajes->mostrados.clear();
         },
         QStringLiteral("Deshacer: quitar del presupuesto la cuenta 62800001, dpto. 2")},
    };
    std::vector<QStringList> tablas{h.tabla()};
    for (const Paso& p : pasos) {
        p.hacer();
        ASSERT_NE(h.tabla(), tablas.back()) << p.nombre;
        EXPECT_EQ(h.hoja->mnuPopupDeshacer->text(), p.texto) << p.nombre;
        tablas.push_back(h.tabla());
        // Each step undone and redone on its own...
        h.hoja->Deshacer();
        EXPECT_EQ(h.tabla(), tablas[tablas.size() - 2]) << p.nombre;
        h.comoRecienCargada(p.nombre);
        h.hoja->Rehacer();
        EXPECT_EQ(h.tabla(), tablas.back()) << p.nombre;
        h.comoRecienCargada(p.nombre);
    }
    // ... and all of them, back to the start and forth to the end.
    for (std::size_t i = pasos.size(); i-- > 0;) {
        h.hoja->Deshacer();
        EXPECT_EQ(h.tabla(), tablas[i]) << pasos[i].nombre;
    }
    h.comoRecienCargada("todo deshecho");
    EXPECT_FALSE(h.hoja->mnuPopupDeshacer->isEnabled());
    for (std::size_t i = 0; i < pasos.size(); ++i)
        h.hoja->mnuPopupRehacer->trigger();
    EXPECT_EQ(h.tabla(), tablas.back());
    h.comoRecienCargada("todo rehecho");
    EXPECT_TRUE(h.plataforma.mensajes->mostrados.empty()) << mensajesMostrados(h.plataforma);
}

TEST(HojaDeshacer, AnUndoOverAnotherUsersFigureSaysWhichCellAndChangesNothing)
{
    Hoja h(false, Hoja::kEnFichero);
    h.teclear(kCalzadoNorte, colMes(2), QStringLiteral("75"));
    auto otro = h.bd.otraConexion();
    otro->Execute(QStringLiteral("UPDATE Presupuestos SET M2 = 80 WHERE Cuenta = '70000002' AND Dpto = 1"));
    const QStringList antes = h.tabla();
    h.hoja->Deshacer();
    EXPECT_EQ(h.tabla(), antes);
    const std::string mensajes = mensajesMostrados(h.plataforma);
    EXPECT_NE(mensajes.find("Febrero"), std::string::npos) << mensajes;
    EXPECT_NE(mensajes.find("70000002"), std::string::npos) << mensajes;
    EXPECT_TRUE(h.hoja->mnuPopupDeshacer->isEnabled());
}

TEST(HojaDeshacer, TheHistoryOfACellChangedThreeWays)
{
    Hoja h;
    h.teclear(kCalzadoNorte, colMes(3), QStringLiteral("10"));
    h.pegar(kCalzadoNorte, colMes(3), QStringLiteral("20\r\n"));
    h.aplicar(kCalzadoNorte, 3, QStringLiteral("1200"));
    // Another month changes too, but the cell's history leaves it out.
    h.teclear(kCalzadoNorte, colMes(4), QStringLiteral("5"));
    dlgHistorial d(*h.hoja->diario(), QStringLiteral("70000002"), 1, 2027, 3, QStringLiteral("#,0"));
    QTableWidget* t = d.tabla();
    ASSERT_EQ(t->rowCount(), 3);
    const QStringList como = {t->item(0, 2)->text(), t->item(1, 2)->text(), t->item(2, 2)->text()};
    EXPECT_TRUE(como[0].startsWith(QStringLiteral("método de cálculo"))) << como[0].toStdString();
    EXPECT_TRUE(como[1].startsWith(QStringLiteral("pegado"))) << como[1].toStdString();
    EXPECT_TRUE(como[2].startsWith(QStringLiteral("tecleado"))) << como[2].toStdString();
    EXPECT_EQ(t->item(0, 4)->text(), QStringLiteral("20"));
    EXPECT_EQ(t->item(0, 5)->text(), QStringLiteral("1.200"));
    EXPECT_EQ(t->item(2, 4)->text(), QStringLiteral("(sin fila)"));
    EXPECT_EQ(t->item(2, 5)->text(), QStringLiteral("10"));
    EXPECT_FALSE(t->item(0, 1)->text().isEmpty());
    // At the dialog's own size every column is in sight; a description cut
    // short shows whole on hover.
    d.show();
    QApplication::processEvents();
    EXPECT_LE(t->horizontalHeader()->sectionViewportPosition(5) + t->horizontalHeader()->sectionSize(5), t->viewport()->width());
    EXPECT_EQ(t->item(0, 2)->toolTip(), como[0]);
    // The whole row: every month the method wrote, and the method itself.
    d.mostrarFila();
    EXPECT_GT(t->rowCount(), 12);
    EXPECT_FALSE(d.botonFila()->isEnabled());
}

TEST(HojaDeshacer, AnImportIsOneStepAndItsNewRowsGoAwayWithIt)
{
    Hoja h;
    LibrosPrueba libros;
    // One row updated, one filled where there was none, one of another department.
    const QString libro = libros.generar(QStringLiteral("2: 1;70000001;10;20;30\n3: 1;70000002;7;0;0;0;9\n4: 2;62800001;-5\n"));
    const QStringList antes = h.tabla();
    QTimer::singleShot(0, h.hoja, [&] {
        frmImportar* d = h.hoja->frmImport;
        ASSERT_NE(d, nullptr);
        h.plataforma.dialogoArchivo->respuestas.push_back(libro);
        d->cmdExaminar->click();
        d->cmdImportar->click();   // the question is answered yes
        d->reject();
    });
    h.hoja->cmdImportar_Click();
    const QStringList despues = h.tabla();
    ASSERT_NE(despues, antes) << mensajesMostrados(h.plataforma);
    EXPECT_EQ(h.hoja->mnuPopupDeshacer->text(), QStringLiteral("Deshacer: importar 3 filas de ") + QFileInfo(libro).fileName());
    h.comoRecienCargada("importado");
    h.hoja->Deshacer();
    EXPECT_EQ(h.tabla(), antes);
    h.comoRecienCargada("importación deshecha");
    h.hoja->Rehacer();
    EXPECT_EQ(h.tabla(), despues);
    h.comoRecienCargada("importación rehecha");
}
