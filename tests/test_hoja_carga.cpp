#include "HojaPrueba.h"
#include "grid/widgets/VistaRejilla.h"

#include <QCheckBox>
#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;
using namespace presupuestos::prueba::filas;

namespace {

using HojaCarga = ConHoja;

int filasTablaFiltro(HojaAbierta& h)
{
    return h.bd.valor(QStringLiteral("SELECT COUNT(*) FROM \"%1\"").arg(h.hoja->TablaFiltroCuentas)).toInt();
}

} // namespace

TEST_F(HojaCarga, EveryAccountAndDepartmentWithMonthsTotalsSubtotalsAndGrandTotal)
{
    EXPECT_TRUE(h.plataforma.mensajes->mostrados.empty()) << mensajesMostrados(h.plataforma);
    const ModeloRejilla& m = h.m();
    ASSERT_EQ(m.Rows(), 26);
    EXPECT_EQ(h.textos(0, {4, 15, 16}), (QStringList{"Enero", "Diciembre", "Total"}));
    EXPECT_TRUE(m.ColHidden(0) && m.ColHidden(1) && m.ColHidden(17) && m.ColHidden(18) && m.ColHidden(19));
    EXPECT_FALSE(m.ColHidden(2) || m.ColHidden(16));

    // Grand total on top, a subtotal below each department.
    for (int fila : {1, kTotalNorte, kTotalSur})
        EXPECT_TRUE(m.IsSubtotal(fila)) << fila;
    EXPECT_EQ(m.TextMatrix(kTotalNorte, 3), QStringLiteral("Norte"));
    EXPECT_EQ(m.TextMatrix(kTotalSur, 3), QStringLiteral("Sur"));
    const QStringList orden = {"62100001", "62800001", "70000001", "70000002", "90000001", "90000002",
                               "90000003", "90000004", "90000005", "90000006", "CTO002"};
    for (int i = 0; i < orden.size(); ++i) {
        EXPECT_EQ(h.textos(kAlquilerNorte + i, {0, 2}), (QStringList{"1", orden[i]}));
        EXPECT_EQ(h.textos(kAlquilerSur + i, {1, 2}), (QStringList{"Sur", orden[i]}));
    }

    EXPECT_EQ(h.textos(kVentasNorte, {3, 4, 16, 17, 18, 19}), (QStringList{"Ventas textil", "100", "1.200", "3", "4", "100"}));
    EXPECT_EQ(m.CellBackColor(kVentasNorte, 6), QColor(172, 250, 185));
    EXPECT_NE(m.CellBackColor(kVentasNorte, 5), QColor(172, 250, 185));
    // An account without a budget row shows zeros, method 0, mask 0.
    EXPECT_EQ(h.textos(kCalzadoSur, {4, 17, 18}), (QStringList{"0", "0", "0"}));
    // -50.5 rounds to even for display; the total is the sum of what is shown.
    EXPECT_EQ(h.textos(kLuzSur, {4, 16}), (QStringList{"-50", "-50"}));
    EXPECT_EQ(m.CellForeColor(kLuzSur, 4), QColor(255, 0, 0));

    EXPECT_EQ(h.textos(kTotalNorte, {4, 16}), (QStringList{"100", "1.200"}));
    EXPECT_EQ(m.TextMatrix(kTotalSur, 4), QStringLiteral("-50"));
    EXPECT_EQ(h.textos(1, {4, 16}), (QStringList{"50", "1.150"}));
    EXPECT_EQ(m.CellBackColor(kTotalNorte, 4), QColor(190, 228, 245));
    EXPECT_EQ(m.CellBackColor(3, 16), QColor(190, 228, 245));

    // Twenty-two rows, two of them with values.
    EXPECT_EQ(f->completadoSeleccion().texto(), QStringLiteral("9%"));
    EXPECT_EQ(f->completadoTotal().texto(), QStringLiteral("9%"));
    EXPECT_EQ(f->completadoSeleccion().filas, 22);
    EXPECT_EQ(f->lblSeleccion->text(), QStringLiteral("Todas - Todas"));
}

TEST_F(HojaCarga, AccountsNamedLikeSqlLoadForEveryDepartmentWithTheirNames)
{
    h.mostrarHistorico();
    EXPECT_TRUE(h.plataforma.mensajes->mostrados.empty()) << mensajesMostrados(h.plataforma);
    const struct {
        const char* cuenta;
        const char* nombre;
    } cuentas[] = {{"90000001", "Ventas TOP 2 tiendas"}, {"90000002", "Caja.dbo.Central"}, {"90000003", "x ISNULL( y"},
                   {"90000004", "##tabla"},            {"90000005", "a |= b"},           {"90000006", "Bar D'Angelo"}};
    for (const auto& c : cuentas) {
        const QString cuenta = QString::fromLatin1(c.cuenta);
        const QString nombre = QString::fromLatin1(c.nombre);
        for (const ModeloRejilla* m : {&f->vsPresupuesto->modelo(), &f->vsHistorico->modelo()}) {
            for (const char* dpto : {"1", "2"}) {
                const int fila = filaDe(*m, cuenta, QString::fromLatin1(dpto));
                ASSERT_GT(fila, 0) << c.cuenta << "/" << dpto;
                EXPECT_EQ(m->TextMatrix(fila, 3), nombre) << c.cuenta << "/" << dpto;
            }
        }
        EXPECT_EQ(h.bd.valor(QStringLiteral("SELECT COUNT(*) FROM \"%1\" WHERE Cuenta = '%2' AND Nombre = '%3'")
                                 .arg(f->TablaFiltroCuentas, cuenta, QString(nombre).replace(QLatin1Char('\''), QStringLiteral("''"))))
                      .toInt(),
                  2)
            << c.cuenta;
    }
}

TEST_F(HojaCarga, DecimalsReformatAndTotalsAddTheRoundedMonths)
{
    h.decimales(2);
    EXPECT_EQ(h.m().TextMatrix(kLuzSur, 4), QStringLiteral("-50,50"));
    EXPECT_EQ(h.m().TextMatrix(1, 16), QStringLiteral("1.149,50"));
    // Later loads leave the overall bar alone.
    h.bd.sql(QStringLiteral("UPDATE Presupuestos SET M1 = 0 WHERE Cuenta = '62800001'"));
    h.hoja->CargarPresupuesto();
    EXPECT_EQ(h.hoja->completadoSeleccion().texto(), QStringLiteral("5%"));
    EXPECT_EQ(h.hoja->completadoTotal().texto(), QStringLiteral("9%"));
}

TEST_F(HojaCarga, TheFormsRecalculationAndCompletionCallsFollowARow)
{
    // Nothing in the worksheet calls these two: they are the form's
    // interface for a caller that changes cells itself.
    h.m().setTextMatrix(kVentasNorte, 5, QStringLiteral("1.100"));
    f->RecalcularFilas(kVentasNorte, kVentasNorte, 5, 5);
    EXPECT_EQ(h.textos(kTotalNorte, {5, 16}), (QStringList{"1.100", "2.200"}));
    EXPECT_EQ(h.textos(1, {5, 16}), (QStringList{"1.100", "2.150"}));
    f->SetProgreesFila(Currency(), Currency::fromInt(5));
    EXPECT_EQ(f->completadoSeleccion().texto(), QStringLiteral("14%"));
    EXPECT_EQ(f->completadoTotal().texto(), QStringLiteral("14%"));
    f->SetProgreesFila(Currency::fromInt(5), Currency::fromInt(7));
    EXPECT_EQ(f->completadoSeleccion().conValores, 3);
    f->SetProgreesFila(Currency::fromInt(7), Currency());
    EXPECT_EQ(f->completadoSeleccion().conValores, 2);
}

TEST_F(HojaCarga, AccountListReadsDetailAccountsOfTheLatestChartAndConcepts)
{
    const ModeloRejilla& cuentas = h.hoja->vsFiltroCuentas->modelo();
    ASSERT_EQ(cuentas.Rows(), 12);
    EXPECT_EQ(cuentas.TextMatrix(0, 1), QStringLiteral("Todas"));
    QStringList codigos;
    for (int r = 1; r < cuentas.Rows(); ++r)
        codigos << cuentas.TextMatrix(r, 1);
    codigos.sort();
    EXPECT_EQ(codigos, (QStringList{"62100001", "62800001", "70000001", "70000002", "90000001", "90000002", "90000003", "90000004",
                                    "90000005", "90000006", "CTO002"}));
    EXPECT_EQ(filasTablaFiltro(h), 22);
    // One INSERT ... SELECT per visible account, for all departments at once.
    int inserciones = 0;
    for (const auto& t : h.bd.conexion->registro())
        inserciones += t.startsWith(QStringLiteral("INSERT INTO ") + h.hoja->TablaFiltroCuentas);
    EXPECT_EQ(inserciones, 11);
}

TEST_F(HojaCarga, CategoryTreeIndentsBoldsAndHidesEmptyCategories)
{
    const ModeloRejilla& cats = h.hoja->vsFiltrosCategoria->modelo();
    ASSERT_EQ(cats.Rows(), 8);
    EXPECT_EQ(cats.TextMatrix(0, 1), QStringLiteral("Todas"));
    EXPECT_EQ(cats.TextMatrix(2, 1), QStringLiteral("    Ventas"));
    EXPECT_EQ(cats.TextMatrix(5, 1), QStringLiteral("        Suministros"));
    EXPECT_EQ(cats.TextMatrix(6, 1), QStringLiteral("    Vacía"));
    EXPECT_TRUE(cats.CellFontBold(1, 1));
    EXPECT_FALSE(cats.CellFontBold(2, 1));
    EXPECT_TRUE(cats.RowHidden(6));
    EXPECT_FALSE(cats.RowHidden(5));
    EXPECT_FALSE(cats.RowHidden(7));
    // A hidden category still takes part in the tree walk.
    EXPECT_TRUE(h.hoja->EsDeCategoria(3, 6));
    EXPECT_EQ(cats.Row(), 0);
}

TEST_F(HojaCarga, ChoosingACategoryKeepsItsDescendantsOnly)
{
    f->vsFiltrosCategoria->modelo().Select(4, 1);   // Servicios
    f->vsFiltrosCategoria_RowColChange();
    const ModeloRejilla& cuentas = f->vsFiltroCuentas->modelo();
    QStringList visibles;
    for (int r = 1; r < cuentas.Rows(); ++r)
        if (!cuentas.RowHidden(r))
            visibles << cuentas.TextMatrix(r, 1);
    visibles.sort();
    EXPECT_EQ(visibles, (QStringList{"62100001", "62800001"}));
    EXPECT_EQ(filasTablaFiltro(h), 4);
    EXPECT_EQ(f->vsPresupuesto->modelo().Rows(), 1 + 1 + 2 + 1 + 2 + 1);
    EXPECT_EQ(f->lblSeleccion->text(), QStringLiteral("Servicios - Todas"));

    // One account narrows the worksheet to it.
    int fila = -1;
    for (int r = 1; r < cuentas.Rows(); ++r)
        if (cuentas.TextMatrix(r, 1) == QLatin1String("62800001"))
            fila = r;
    f->vsFiltroCuentas->modelo().Select(fila, 1);
    f->vsFiltroCuentas_RowColChange();
    const ModeloRejilla& m = f->vsPresupuesto->modelo();
    for (int r = 1; r < m.Rows(); ++r) {
        if (!m.IsSubtotal(r)) {
            EXPECT_EQ(m.TextMatrix(r, 2), QStringLiteral("62800001"));
        }
    }
    EXPECT_TRUE(h.bd.conexion->ultimoTexto().contains(QStringLiteral(" AND c.Cuenta = '62800001' ORDER BY")));
}

TEST_F(HojaCarga, IncomeAndExpenseBoxesNarrowByPrefixAndNeverBothEndUnchecked)
{
    auto visibles = [this] {
        QStringList v;
        const ModeloRejilla& c = f->vsFiltroCuentas->modelo();
        for (int r = 1; r < c.Rows(); ++r)
            if (!c.RowHidden(r))
                v << c.TextMatrix(r, 1);
        v.sort();
        return v;
    };
    const auto pulsar = [this](QCheckBox* caja, bool marcada) {
        caja->setChecked(marcada);
        caja == f->chkTipoCuentaIngresos ? f->chkTipoCuentaIngresos_Click() : f->chkTipoCuentaGastos_Click();
    };
    pulsar(f->chkTipoCuentaIngresos, false);
    EXPECT_EQ(visibles(), (QStringList{"62100001", "62800001"}));
    pulsar(f->chkTipoCuentaIngresos, true);
    pulsar(f->chkTipoCuentaGastos, false);
    EXPECT_EQ(visibles(), (QStringList{"70000001", "70000002"}));
    pulsar(f->chkTipoCuentaIngresos, false);
    EXPECT_TRUE(f->chkTipoCuentaGastos->isChecked());
    EXPECT_EQ(visibles(), (QStringList{"62100001", "62800001"}));
}

TEST_F(HojaCarga, NonBudgetableViewShowsTheAccountLinesTakenOutAndRowsMarkedSo)
{
    h.bd.sql(QStringLiteral("UPDATE Presupuestos SET Ver = 0 WHERE Cuenta = '62800001'"));
    h.hoja->cmdVer_Click();
    const ModeloRejilla& m = h.hoja->vsPresupuesto->modelo();
    QStringList filas;
    for (int r = 1; r < m.Rows(); ++r)
        if (!m.IsSubtotal(r))
            filas << m.TextMatrix(r, 2) + QLatin1Char('/') + m.TextMatrix(r, 0);
    EXPECT_EQ(filas, (QStringList{QStringLiteral("62800001/2")}));
    EXPECT_EQ(h.hoja->vsFiltroCuentas->modelo().Rows(), 13);
}

TEST_F(HojaCarga, DepartmentListTextsAndTheirQuirks)
{
    ASSERT_EQ(f->lstDepartamentos->count(), 3);
    EXPECT_EQ(f->lstDepartamentos->item(0)->text(), QString());
    EXPECT_EQ(f->lstDepartamentos->item(0)->data(Qt::UserRole).toInt(), -1);
    EXPECT_EQ(f->GetFiltroDptos(), QString());
    EXPECT_EQ(f->NumDptosFiltro(), 2);

    f->cmdDepartamentos_Click();
    EXPECT_TRUE(f->fraFiltroDpto->isVisible());
    f->lstDepartamentos->setCurrentRow(2);
    f->lstDepartamentos->item(2)->setSelected(false);
    EXPECT_FALSE(f->chkSelAllDpto->isChecked());
    EXPECT_EQ(f->GetFiltroDptos(), QStringLiteral("-1, 1"));
    f->cmdFiltroDptoAceptar_Click();
    EXPECT_FALSE(f->fraFiltroDpto->isVisible());
    EXPECT_TRUE(h.bd.conexion->ultimoTexto().contains(QStringLiteral(" AND c.Dpto IN (-1, 1) ORDER BY")));

    // Only the empty item selected: accepted, and the worksheet is empty.
    f->cmdDepartamentos_Click();
    f->chkSelAllDpto->setChecked(true);
    f->chkSelAllDpto->setChecked(false);
    EXPECT_EQ(f->NumDptosFiltro(), 0);
    f->cmdFiltroDptoAceptar_Click();
    EXPECT_TRUE(f->fraFiltroDpto->isVisible());   // nothing selected: refused silently
    f->lstDepartamentos->item(0)->setSelected(true);
    f->cmdFiltroDptoAceptar_Click();
    EXPECT_FALSE(f->fraFiltroDpto->isVisible());
    EXPECT_EQ(f->GetFiltroDptos(), QStringLiteral("-1"));
    EXPECT_EQ(f->vsPresupuesto->modelo().Rows(), 1);
    EXPECT_EQ(f->completadoSeleccion().texto(), QString()) << "an empty selection shows no completion";
}

TEST_F(HojaCarga, LeavingTheDepartmentFrameRestoresTheSavedSelection)
{
    f->cmdDepartamentos_Click();
    f->chkSelAllDpto->setChecked(false);
    EXPECT_FALSE(f->lstDepartamentos->item(1)->isSelected());
    h.plataforma.foco->nombre = QStringLiteral("lstDepartamentos");
    f->ComprobarFocoFiltroDptos();
    EXPECT_TRUE(f->fraFiltroDpto->isVisible());
    h.plataforma.foco->nombre = QStringLiteral("vsPresupuesto");
    f->ComprobarFocoFiltroDptos();
    EXPECT_FALSE(f->fraFiltroDpto->isVisible());
    EXPECT_TRUE(f->chkSelAllDpto->isChecked());
    EXPECT_TRUE(f->lstDepartamentos->item(1)->isSelected());
    EXPECT_TRUE(f->lstDepartamentos->item(2)->isSelected());
}

TEST_F(HojaCarga, HistoryShowsCreditMinusDebitBesideTheBudget)
{
    h.mostrarHistorico();
    EXPECT_FALSE(f->vsHistorico->isHidden());
    const ModeloRejilla& m = f->vsHistorico->modelo();
    const int ventas = filaDe(m, QStringLiteral("70000001"), QStringLiteral("1"));
    ASSERT_GT(ventas, 0);
    EXPECT_EQ(textosDe(m, ventas, {4, 16}), (QStringList{"900", "900"}));
    EXPECT_EQ(m.Rows(), f->vsPresupuesto->modelo().Rows());
    EXPECT_TRUE(m.IsSubtotal(1));
    f->chkMostrarHistorico->setChecked(false);
    f->chkMostrarHistorico_Click();
    EXPECT_TRUE(f->vsHistorico->isHidden());
}

TEST(HojaCargaTiendas, StatisticsAreFetchedOncePerYearFromTheLinkedRetailDatabase)
{
    BaseDatosPrueba bd;
    crearEmpresaPequena(bd);
    bd.sql(QStringLiteral("INSERT INTO Configuracion VALUES ('Pelvor')"));
    bd.sql(QStringLiteral("INSERT INTO Pelvor.Empresas_Contabilidad VALUES (3, 1, 'Tiendas')"));
    bd.sql(QStringLiteral("INSERT INTO Pelvor.Almacen_Acumulados_2 (Cod_Empresa, Cod_Almacen, Fecha, Caja, Tickets) VALUES "
                          "(3, 1, '2026-01-02', 1, 10), (3, 1, '2026-01-02', 2, 5), (3, 1, '2025-03-02', 1, 4)"));
    PlataformaDePrueba p;
    frmclsfrmActPresupusto clase;
    clase.setEmpresaLarvex(bd.empresa);
    clase.setConexionLarvex(bd.conexion);
    clase.Show();
    frmActPresupusto* f = clase.formulario();
    f->Form_Activate();
    EXPECT_EQ(f->EmpresaPelvor, 3);
    EXPECT_EQ(f->BDPelvor, QStringLiteral("Pelvor"));
    f->CargarHistorico();
    f->CargarHistorico();
    int inserciones = 0;
    for (const auto& t : bd.conexion->registro())
        inserciones += t.startsWith(QStringLiteral("INSERT INTO ") + f->TablaEstadisticas);
    EXPECT_EQ(inserciones, 1);
    const ModeloRejilla& m = f->vsHistorico->modelo();
    const int dias = filaDe(m, QStringLiteral("CTO002"), QStringLiteral("1"));
    ASSERT_GT(dias, 0);
    EXPECT_EQ(m.TextMatrix(dias, 4), QStringLiteral("1"));
    EXPECT_EQ(m.TextMatrix(filaDe(m, QStringLiteral("CTO002"), QStringLiteral("2")), 4), QStringLiteral("0"));

    // Another year is fetched before its grid is read.
    f->txtEjercicioHist->setText(QStringLiteral("2025"));
    f->txtEjercicioHist_KeyPress(13);
    EXPECT_EQ(f->vsHistorico->modelo().TextMatrix(dias, 6), QStringLiteral("1"));
    EXPECT_TRUE(p.mensajes->mostrados.empty()) << mensajesMostrados(p);
}
