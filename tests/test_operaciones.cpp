#include "HojaPrueba.h"
#include "worksheet/core/Columnas.h"
#include "calculation/dialog/frmOperaciones.h"
#include "grid/widgets/VistaRejilla.h"

#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QHeaderView>
#include <QStyle>
#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;
using namespace presupuestos::hoja;

using namespace presupuestos::prueba::filas;

// Each case on the small company's worksheet and its operations dialog.
struct Operaciones : ConHoja {
    frmOperaciones* d = h.hoja->operaciones();
};

TEST_F(Operaciones, WithoutAnAccountRowNothingCanBeApplied)
{
    h.irA(kTotalNorte, colMes(2));
    EXPECT_EQ(d->lblCuenta->text(), QStringLiteral("Seleccione una fila de cuenta"));
    EXPECT_EQ(d->lblCuenta->palette().color(QPalette::WindowText), QColor(255, 0, 0));
    EXPECT_FALSE(d->cmdAplicar->isEnabled());
    EXPECT_FALSE(d->cmdActualizar->isEnabled());
    EXPECT_FALSE(d->cboMetodo->isEnabled());
    EXPECT_FALSE(d->txtValor->isEnabled());

    h.irA(kLuzSur, colMes(2));
    EXPECT_EQ(d->lblCuenta->text(), QStringLiteral("62800001 - Electricidad"));
    EXPECT_EQ(d->lblDpto->text(), QStringLiteral("2 - Sur"));
    EXPECT_EQ(d->lblCuenta->palette().color(QPalette::WindowText), QColor(0, 0, 0));
    EXPECT_TRUE(d->cmdAplicar->isEnabled());
    EXPECT_TRUE(d->txtValor->isEnabled());
    EXPECT_EQ(d->txtValor->text(), QStringLiteral("0,00"));
}

TEST_F(Operaciones, MethodListOrderAndTheHistoryYearInItsTexts)
{
    const int orden[] = {3, 1, 2, 4, 5, 6, 7};
    ASSERT_EQ(d->cboMetodo->count(), 7);
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(d->cboMetodo->itemData(i).toInt(), orden[i]);
    EXPECT_EQ(d->cboMetodo->itemText(2), QStringLiteral("Ejercicio 2026 con % + - (Base Mes) "));
    d->setEjercicio(2024);
    EXPECT_EQ(d->cboMetodo->itemText(2), QStringLiteral("Ejercicio 2024 con % + - (Base Mes) "));
    EXPECT_EQ(d->cboMetodo->itemText(3), QStringLiteral("Ejercicio 2024 con % + -(Base Año)"));

    d->setMetodoCalculo(5);
    d->setMetodoCalculo(0);   // typed amounts are not on the list: the entry stays
    EXPECT_EQ(d->cboMetodo->currentData().toInt(), 5);
    d->setMetodoCalculo(3);
    EXPECT_EQ(d->cboMetodo->currentText(), QStringLiteral("Importe lineal para todos los meses"));
}

TEST_F(Operaciones, PreviewShowsTheTwelveMonthsAndTheFormula)
{
    h.hoja->vsPresupuesto->modelo().Select(kVentasNorte, colMes(2));
    h.hoja->MostrarOperaciones();
    d->setMetodoCalculo(1);
    d->txtValor->setText(QStringLiteral("100"));
    d->txtValor_KeyPress(13);
    const ModeloRejilla& r = d->vsResultado->modelo();
    EXPECT_EQ(r.TextMatrix(1, 0), QStringLiteral("8"));
    EXPECT_EQ(r.TextMatrix(2, 5), QStringLiteral("8"));
    EXPECT_EQ(d->txtValor->text(), QStringLiteral("100,00"));
    d->setDecimales(2);
    EXPECT_EQ(r.TextMatrix(2, 5), QStringLiteral("8,37"));
    EXPECT_EQ(d->txtConsole->toPlainText(),
              QStringLiteral("Importe a distribuir en los 12 meses\nEnero = Valor / 12\nEnero = 100 / 12\nX = 8,33"));
    d->lblVerCalculo_Click();
    EXPECT_EQ(d->height(), frmOperaciones::AltoAmpliado / 15);
    d->lblVerCalculo_Click();
    EXPECT_EQ(d->height(), frmOperaciones::AltoReducido / 15);
}

TEST_F(Operaciones, ApplyingStoresTheRowAndShowsItWithoutMarks)
{
    // Last year's 100 spread over twelve months: 8,3333 a month.
    h.bd.sql(QStringLiteral("INSERT INTO Acumulados_Dpto (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, H5) VALUES (1, 2026, '70000002', 1, 100)"));
    ModeloRejilla& m = h.m();
    m.setCellBackColor(kCalzadoNorte, colMes(3), QColor(172, 250, 185));
    m.setTextMatrix(kCalzadoNorte, kManual, QStringLiteral("4"));
    h.aplicar(kCalzadoNorte, 4, QStringLiteral("0"));
    EXPECT_EQ(h.textos(kCalzadoNorte, {colMes(1), kTotal, kMetodo, kManual, kValor}), (QStringList{"8", "96", "4", "0", "0"}));
    EXPECT_FALSE(m.CellBackColor(kCalzadoNorte, colMes(3)).isValid()) << "the grid's own white";
    EXPECT_EQ(m.tabla().index(kCalzadoNorte - 1, colMes(3)).data(Qt::BackgroundRole).value<QColor>(), QColor(255, 255, 255));
    // A new row is inserted with the four decimals of every month.
    EXPECT_EQ(h.guardados(QStringLiteral("70000002"), 1, {0, 11, 12}), (QStringList{"8.3333", "8.3333", "4"}));

    // Method 3 with 100 on an existing row: twelve hundreds, method 3, no marks.
    h.aplicar(kVentasNorte, 3, QStringLiteral("100"));
    EXPECT_EQ(h.textos(kVentasNorte, {kMetodo, kValor, kManual}), (QStringList{"3", "100", "0"}));
    EXPECT_EQ(h.guardados(QStringLiteral("70000001"), 1, {6, 13}), (QStringList{"100", "0"}));

    // An empty value box applies 0.
    h.irA(kAlquilerNorte, colMes(2));
    d->txtValor->clear();
    d->cmdAplicar_Click();
    EXPECT_EQ(d->Valor(), Currency());
    EXPECT_EQ(h.guardados(QStringLiteral("62100001"), 1, {4, 12}), (QStringList{"0", "3"}));
}

TEST_F(Operaciones, ApplyingToSalesRecalculatesMonthlyPercentagesOnly)
{
    h.bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, Metodo_Calculo, Valor, M3) VALUES "
                            "(1, 2027, '62100001', 1, 6, 10, 0), (1, 2027, '62800001', 1, 7, 10, 5)"));
    h.aplicar(kVentasNorte, 3, QStringLiteral("2000"));
    EXPECT_EQ(h.campo(QStringLiteral("M3"), QStringLiteral("62100001"), 1).toDouble(), 200.0);
    EXPECT_EQ(h.campo(QStringLiteral("M3"), QStringLiteral("62800001"), 1).toDouble(), 5.0);
}

TEST_F(Operaciones, TheCloseBoxOnlyHidesTheDialog)
{
    h.hoja->vsPresupuesto->modelo().Select(kVentasNorte, colMes(2));
    h.hoja->MostrarOperaciones();
    EXPECT_TRUE(d->isVisible());
    EXPECT_TRUE(d->windowFlags() & Qt::WindowStaysOnTopHint);
    d->close();
    QApplication::processEvents();
    EXPECT_FALSE(d->isVisible());
    EXPECT_EQ(h.hoja->operaciones(), d);
    d->setCuenta(QStringLiteral("70000002"));
    h.hoja->cmdShowCal_Click();
    EXPECT_TRUE(d->isVisible());
    EXPECT_EQ(d->Cuenta(), QStringLiteral("70000001"));
    // The dialog does not cover the current row.
    const QRect celda = h.hoja->vsPresupuesto->rectCelda(kVentasNorte, colMes(1));
    const QRect fila(h.hoja->vsPresupuesto->viewport()->mapToGlobal(celda.topLeft()), celda.size());
    EXPECT_FALSE(d->frameGeometry().intersects(QRect(fila.left(), fila.top(), 2000, fila.height())));
}

TEST_F(Operaciones, TheTwelveResultsAreReadableAtTheFirstHeight)
{
    h.decimales(4);
    h.hoja->vsPresupuesto->modelo().Select(kVentasNorte, colMes(2));
    h.hoja->MostrarOperaciones();
    d->txtValor->setText(QStringLiteral("-123456789,1234"));
    d->CalcularVistaPrevia();
    QApplication::processEvents();
    ASSERT_EQ(d->lblVerCalculo->property("Tag").toString(), QStringLiteral("0"));

    VistaRejilla* v = d->vsResultado;
    const ModeloRejilla& m = v->modelo();
    const int margen = v->style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, v) + 1;
    int derecha = 0;
    for (int c = 0; c < 6; ++c) {
        EXPECT_LE(v->horizontalHeader()->sectionSizeHint(c), v->columnWidth(c)) << m.TextMatrix(0, c).toStdString();
        for (int r = 1; r <= 2; ++r) {
            const QString texto = m.TextMatrix(r, c);
            ASSERT_FALSE(texto.isEmpty());
            const int necesario = v->fontMetrics().horizontalAdvance(texto) + 2 * margen + 1;
            EXPECT_LE(necesario, v->columnWidth(c)) << texto.toStdString();
            const QRect celda = v->rectCelda(r, c);
            EXPECT_LE(celda.bottom(), v->viewport()->height()) << "fila " << r;
            derecha = std::max(derecha, celda.right());
        }
    }
    EXPECT_LE(derecha, v->viewport()->width());
}

// A method applied to a scope: every account row of it, each computed on its
// own account and department, after one question naming what it overwrites.
TEST(OperacionesAmbito, AScopeGetsTheMethodOnEveryAccountRowAfterOneQuestion)
{
    struct Fila {
        const char* cuenta;
        int dpto;
        double enero;
        int metodo;
    };
    struct Caso {
        const char* nombre;
        AmbitoMetodo ambito;
        int fila, filaSel;
        int metodo;
        QString valor;
        const char* valorSql;
        int respuesta;
        QString prevision;
        // What is shown after the question; empty when nothing but it.
        QString mensaje;
        int filasMetodo;   // stored rows holding the method afterwards
        std::vector<Fila> filas;
    };
    const QString siNo = QStringLiteral(".\n¿Desea continuar?");
    const std::vector<Caso> casos = {
        {"selection across a total row", AmbitoMetodo::Seleccion, kAlquilerNorte, kAlquilerSur, 3, QStringLiteral("10"), "10", vb::RespuestaYes,
         QStringLiteral("12 filas de la selección; 1 mes introducido a mano se sobrescribirá"), {}, 12,
         {{"70000001", 1, 10, 3}, {"62100001", 2, 10, 3}, {"62800001", 2, -50.5, 0}}},
        {"category and the one below it, each on its own history", AmbitoMetodo::Categoria, kAlquilerNorte, kAlquilerNorte, 4,
         QStringLiteral("0"), "0", vb::RespuestaYes, QStringLiteral("4 filas de la categoría Servicios; 1 mes introducido a mano se sobrescribirá"),
         {}, 4, {{"62100001", 1, 100, 4}, {"62800001", 2, 200, 4}, {"62800001", 1, 0, 4}, {"70000001", 1, 100, 3}}},
        {"department answered no", AmbitoMetodo::Departamento, kLuzSur, kLuzSur, 3, QStringLiteral("7"), "7", vb::RespuestaNo,
         QStringLiteral("11 filas del departamento 2 - Sur; 1 mes introducido a mano se sobrescribirá"), {}, 0, {{"62800001", 2, -50.5, 0}}},
        {"department whose subtotal would overflow", AmbitoMetodo::Departamento, kVentasNorte, kVentasNorte, 3,
         QStringLiteral("50.000.000.000.000"), "50000000000000", vb::RespuestaYes,
         QStringLiteral("11 filas del departamento 1 - Norte; 1 mes introducido a mano se sobrescribirá"), QStringLiteral("Overflow"), 0,
         {{"70000001", 1, 100, 3}}},
        {"sales move the rows that follow them", AmbitoMetodo::Seleccion, kVentasNorte, kCalzadoNorte, 3, QStringLiteral("1000"), "1000",
         vb::RespuestaYes, QStringLiteral("2 filas de la selección; 1 mes introducido a mano se sobrescribirá"), {}, 2,
         {{"70000001", 1, 1000, 3}, {"70000002", 1, 1000, 3}, {"62100001", 1, 200, 6}}},
        {"a database failure keeps the rows stored before it", AmbitoMetodo::Seleccion, kVentasNorte, kCalzadoNorte, 3,
         QStringLiteral("1000"), "1000", vb::RespuestaYes, QStringLiteral("2 filas de la selección; 1 mes introducido a mano se sobrescribirá"),
         QStringLiteral("rechazada"), 1, {{"70000001", 1, 1000, 3}, {"70000002", 1, 0, 0}}},
    };
    for (const Caso& c : casos) {
        SCOPED_TRACE(c.nombre);
        HojaAbierta h;
        h.bd.sql(QStringLiteral("INSERT INTO Acumulados_Dpto (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, H1, D2) VALUES "
                                "(1, 2026, '62100001', 1, 1200, 0), (1, 2026, '62800001', 2, 2400, 0)"));
        h.bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, Metodo_Calculo, Valor) VALUES "
                                "(1, 2027, '62100001', 1, 6, 10), (1, 2027, '70000002', 1, 0, 0)"));
        if (QString::fromUtf8(c.nombre).startsWith(QStringLiteral("a database")))
            h.bd.rechazar(QStringLiteral("UPDATE"), QStringLiteral("70000002"), QStringLiteral("rechazada"));
        h.hoja->CargarPresupuesto();
        frmActPresupusto* f = h.hoja;
        frmOperaciones* d = f->operaciones();
        ModeloRejilla& m = f->vsPresupuesto->modelo();
        m.Select(c.fila, colMes(2), c.filaSel, colMes(3));
        f->vsPresupuesto_RowColChange();
        d->cboAmbito->setCurrentIndex(d->cboAmbito->findData(static_cast<int>(c.ambito)));
        EXPECT_EQ(d->lblAmbito->text(), c.prevision);
        const QStringList antes = h.bd.presupuestos();
        d->setMetodoCalculo(c.metodo);
        d->txtValor->setText(c.valor);
        h.plataforma.mensajes->respuestas = {c.respuesta};
        d->cmdAplicar_Click();
        const auto& mostrados = h.plataforma.mensajes->mostrados;
        ASSERT_GE(mostrados.size(), 1u);
        EXPECT_EQ(mostrados[0].prompt, QStringLiteral("Se aplicará el método a ") + c.prevision.section(QLatin1Char(';'), 0, 0)
                                           + (c.prevision.contains(QLatin1Char(';')) ? QStringLiteral(" y se sobrescribirá 1 mes introducido a mano") : QString())
                                           + siNo);
        EXPECT_EQ(mostrados[0].titulo, QStringLiteral("¡ATENCION!"));
        ASSERT_EQ(mostrados.size(), c.mensaje.isEmpty() ? 1u : 2u) << mensajesMostrados(h.plataforma);
        if (!c.mensaje.isEmpty()) {
            EXPECT_TRUE(mostrados[1].prompt.contains(c.mensaje)) << mostrados[1].prompt.toStdString();
            EXPECT_EQ(mostrados[1].titulo, QStringLiteral("frmActPresupusto:frmCal_Aplicar"));
        }
        if (c.filasMetodo == 0) {
            EXPECT_EQ(h.bd.presupuestos(), antes);
        }
        EXPECT_EQ(h.bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos WHERE Cod_Ejercicio = 2027 AND Metodo_Calculo = %1 AND Valor = %2")
                                 .arg(QString::number(c.metodo), QString::fromUtf8(c.valorSql)))
                      .toInt(),
                  c.filasMetodo);
        for (const Fila& e : c.filas) {
            const QString cuenta = QString::fromUtf8(e.cuenta);
            EXPECT_EQ(h.campo(QStringLiteral("M1"), cuenta, e.dpto).toDouble(), e.enero) << e.cuenta << "/" << e.dpto;
            EXPECT_EQ(h.campo(QStringLiteral("Metodo_Calculo"), cuenta, e.dpto).toInt(), e.metodo) << e.cuenta << "/" << e.dpto;
        }
        // The grid shows what a reload shows: amounts, marks and their colour.
        const auto pantalla = [&] {
            QStringList r;
            for (int fila = 1; fila < m.Rows(); ++fila)
                for (int col = colMes(1); col <= kValor; ++col)
                    r << m.TextMatrix(fila, col) + (m.CellBackColor(fila, col) == QColor(172, 250, 185) ? QStringLiteral(" a mano") : QString());
            return r;
        };
        const QStringList antesDeCargar = pantalla();
        f->CargarPresupuesto();
        EXPECT_EQ(antesDeCargar, pantalla());
    }
}

TEST_F(Operaciones, TheScopesPreviewFollowsTheSelectionAndTheRow)
{
    ModeloRejilla& m = h.hoja->vsPresupuesto->modelo();
    h.irA(kAlquilerNorte, colMes(1));
    EXPECT_EQ(d->lblAmbito->text(), QString()) << "the row alone shows nothing";
    d->cboAmbito->setCurrentIndex(d->cboAmbito->findData(static_cast<int>(AmbitoMetodo::Seleccion)));
    EXPECT_EQ(d->lblAmbito->text(), QStringLiteral("1 fila de la selección"));
    m.Select(kAlquilerNorte, colMes(1), kVentasNorte, colMes(4));
    EXPECT_EQ(d->lblAmbito->text(), QStringLiteral("3 filas de la selección; 1 mes introducido a mano se sobrescribirá"));
    d->cboAmbito->setCurrentIndex(d->cboAmbito->findData(static_cast<int>(AmbitoMetodo::Categoria)));
    EXPECT_EQ(d->lblAmbito->text(), QStringLiteral("4 filas de la categoría Servicios; 1 mes introducido a mano se sobrescribirá"));
    h.irA(kVentasSur, colMes(1));
    EXPECT_EQ(d->lblAmbito->text(), QStringLiteral("16 filas de la categoría Ventas; 1 mes introducido a mano se sobrescribirá"));
    // A total row is no account: nothing to apply, and the dialog says so.
    h.irA(kTotalNorte, colMes(1));
    EXPECT_FALSE(d->cmdAplicar->isEnabled());
    EXPECT_FALSE(d->cboAmbito->isEnabled());
    EXPECT_EQ(d->lblAmbito->text(), QString());
    h.irA(kLuzSur, colMes(1));
    EXPECT_EQ(d->lblAmbito->text(), QStringLiteral("2 filas de la categoría Suministros; 1 mes introducido a mano se sobrescribirá"));
    d->cboAmbito->setCurrentIndex(0);
    EXPECT_EQ(d->lblAmbito->text(), QString());
}
