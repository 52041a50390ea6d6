// Everyday actions that must never lose a figure, leave the worksheet
// unable to open or show figures the database does not hold.

#include "EventosPrueba.h"
#include "HojaPrueba.h"
#include "worksheet/core/Columnas.h"
#include "calculation/dialog/frmOperaciones.h"
#include "store/Diario.h"
#include "store/clsDBPresupuesto.h"
#include "grid/widgets/VistaRejilla.h"
#include "desktop/PlataformaQt.h"

#include <QApplication>
#include <QCheckBox>
#include <QTest>
#include <QLabel>
#include <QFileDialog>
#include <QProcess>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;
using namespace presupuestos::hoja;
using namespace presupuestos::prueba::filas;

namespace {

struct Hoja : HojaAbierta {
    using HojaAbierta::HojaAbierta;
    QStringList guardado(const QString& cuenta, int dpto) { return bd.presupuestoGuardado(cuenta, dpto); }
    // Stores a row as another program would, bypassing every check.
    void guardar(const QString& cuenta, int dpto, const QString& asignacion)
    {
        const QString clave = QStringLiteral(" WHERE Cod_Empresa = 1 AND Cod_Ejercicio = 2027 AND Cuenta = '%1' AND Dpto = %2").arg(cuenta).arg(dpto);
        bd.sql(QStringLiteral("DELETE FROM Presupuestos") + clave);
        bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto) VALUES (1, 2027, '%1', %2)").arg(cuenta).arg(dpto));
        bd.sql(QStringLiteral("UPDATE Presupuestos SET ") + asignacion + clave);
    }
};

struct HojaSeguridad : ::testing::Test {
    Hoja h;
};

QString muchoDinero() { return QStringLiteral("500.000.000.000.000"); }

} // namespace

TEST_F(HojaSeguridad, AClipboardWithoutTextPastesNothing)
{
    h.hoja->mnuPopupSelTodo_Click();
    h.bd.tomarRegistro();
    h.plataforma.portapapeles->contenido.clear();
    h.hoja->Copiar_Desde_Clipboard();
    EXPECT_EQ(h.escrituras(), 0);
    EXPECT_EQ(h.m().TextMatrix(kVentasNorte, colMes(1)), QStringLiteral("100"));
    EXPECT_EQ(h.guardado(QStringLiteral("70000001"), 1).at(12), QStringLiteral("3")) << "the method stays";
}

TEST_F(HojaSeguridad, AnAmountThatWouldOverflowATotalIsRefusedBeforeAnythingIsStored)
{
    // Beyond what SQLite keeps exactly: stored by another program.
    h.guardar(QStringLiteral("70000002"), 1, QStringLiteral("M1 = 500000000000000"));
    h.hoja->CargarPresupuesto();
    EXPECT_TRUE(h.mostrados().empty());
    h.bd.tomarRegistro();
    // The row's total; a second row of the department, its subtotal;
    // another department, whose own subtotal fits, the grand total.
    for (int fila : {kCalzadoNorte, kAlquilerNorte, kCalzadoSur}) {
        SCOPED_TRACE(fila);
        h.teclear(fila, colMes(2), muchoDinero());
        ASSERT_EQ(h.plataforma.mensajes->mostrados.size(), 1u);
        EXPECT_EQ(h.plataforma.mensajes->mostrados[0].titulo, QStringLiteral("frmActPresupusto:EditCellValue"));
        EXPECT_EQ(h.mostrados(), std::vector<QString>{QStringLiteral("Overflow")});
        EXPECT_EQ(h.escrituras(), 0);
        EXPECT_EQ(h.m().TextMatrix(fila, colMes(2)), QStringLiteral("0")) << "the cell shows what it held";
    }
    // A paste whose block would overflow stores none of its cells.
    h.pegar(kAlquilerNorte, colMes(1), QStringLiteral("1\t") + muchoDinero());
    EXPECT_EQ(h.mostrados(), std::vector<QString>{QStringLiteral("Overflow")});
    EXPECT_EQ(h.escrituras(), 0);
    EXPECT_EQ(h.m().TextMatrix(kAlquilerNorte, colMes(1)), QStringLiteral("0"));
    // So is one given to the form's own entry point.
    h.hoja->EditCellValue(kCalzadoNorte, colMes(2), Currency::fromInt(500000000000000));
    EXPECT_EQ(h.mostrados(), std::vector<QString>{QStringLiteral("Overflow")});
    EXPECT_EQ(h.escrituras(), 0);
    // The row goes on working.
    h.teclear(kCalzadoNorte, colMes(3), QStringLiteral("7"));
    EXPECT_TRUE(h.mostrados().empty());
    EXPECT_EQ(h.guardado(QStringLiteral("70000002"), 1).at(2), QStringLiteral("7"));
    EXPECT_EQ(h.m().TextMatrix(kCalzadoNorte, kTotal), QStringLiteral("500.000.000.000.007"));
}

TEST_F(HojaSeguridad, RowsStoredOutOfRangeStillLoadWithTheirTotalsMarked)
{
    const int filasAntes = h.m().Rows();
    h.bd.sql(QStringLiteral("UPDATE Presupuestos SET M1 = 500000000000000, M2 = 500000000000000 WHERE Cuenta = '70000001'"));
    h.hoja->CargarPresupuesto();
    EXPECT_TRUE(h.mostrados().empty());
    EXPECT_EQ(h.m().Rows(), filasAntes) << "every row loaded";
    const QString marca = ModeloRejilla::MarcaDesbordamiento();
    for (int fila : {kVentasNorte, kTotalNorte, 1})
        EXPECT_EQ(h.m().TextMatrix(fila, kTotal), marca) << fila;
    EXPECT_EQ(h.m().TextMatrix(kTotalNorte, colMes(1)), QStringLiteral("500.000.000.000.000"));
    EXPECT_EQ(h.m().TextMatrix(kTotalSur, kTotal), QStringLiteral("-50")) << "the other department is unaffected";
    // Bringing the row back into range clears the marks.
    h.teclear(kVentasNorte, colMes(2), QStringLiteral("0"));
    EXPECT_TRUE(h.mostrados().empty());
    EXPECT_EQ(h.m().TextMatrix(kVentasNorte, kTotal), QStringLiteral("500.000.000.001.000"));
    EXPECT_EQ(h.m().TextMatrix(1, kTotal), QStringLiteral("500.000.000.000.950"));
}

// Whatever amount a row holds, at or beyond the currency's limits, the
// worksheet opens; what cannot be shown reads as a total out of range.
TEST_F(HojaSeguridad, AmountsAtOrBeyondTheCurrencyLimitsStillLoad)
{
    h.guardar(QStringLiteral("70000002"), 1, QStringLiteral("M3 = -922337203685477.5808"));
    h.guardar(QStringLiteral("70000002"), 2, QStringLiteral("M3 = -922337203685478"));
    const QString marca = ModeloRejilla::MarcaDesbordamiento();
    for (int decimales : {0, 4}) {
        SCOPED_TRACE(decimales);
        h.decimales(decimales);
        h.hoja->CargarPresupuesto();
        EXPECT_TRUE(h.mostrados().empty());
        EXPECT_EQ(h.textos(kCalzadoSur, {colMes(3), kTotal}), (QStringList{marca, marca}));
        EXPECT_EQ(h.m().TextMatrix(kTotalSur, colMes(3)), marca);
        EXPECT_EQ(h.m().TextMatrix(kLuzSur, colMes(3)), decimales ? QStringLiteral("0,0000") : QStringLiteral("0"));
        // Shown to the ten-thousandth the limit fits; rounded to units it does not.
        if (decimales == 0 || h.bd.enPostgres()) {
            EXPECT_EQ(h.m().TextMatrix(kCalzadoNorte, colMes(3)),
                      decimales ? QStringLiteral("-922.337.203.685.477,5808") : marca);
        }
    }
}

// The typed cell shows what the database keeps, as a reload shows it:
// rounded to the decimals shown, halves to even.
TEST_F(HojaSeguridad, ATypedAmountShowsWhatIsStoredAndWhatAReloadShows)
{
    struct Caso {
        int decimales;
        const char* tecleado;
        const char* mostrado; // nullptr: refused on SQLite
        const char* guardado;
    };
    const Caso casos[] = {
        {0, "2,5", "2", "2.5"},
        {0, "3,5", "4", "3.5"},
        {2, "-0,125", "-0,12", "-0.125"},
        {4, "0,0001", "0,0001", "0.0001"},
        {4, "274.877.906.943,9999", "274.877.906.943,9999", "274877906943.9999"},
        {4, "1.000.000.000.000,0001", nullptr, "1000000000000.0001"},
        {2, "-922.337.203.685.477,58", nullptr, "-922337203685477.58"},
    };
    for (const Caso& c : casos) {
        SCOPED_TRACE(c.tecleado);
        h.decimales(c.decimales);
        h.hoja->CargarPresupuesto();
        const QString antes = h.m().TextMatrix(kCalzadoNorte, colMes(5));
        h.teclear(kCalzadoNorte, colMes(5), QString::fromUtf8(c.tecleado));
        if (!c.mostrado && !h.bd.enPostgres()) {
            const auto m = h.mostrados();
            ASSERT_EQ(m.size(), 1u);
            EXPECT_TRUE(m[0].contains(QStringLiteral("SQLite"))) << m[0].toStdString();
            EXPECT_EQ(h.m().TextMatrix(kCalzadoNorte, colMes(5)), antes);
            continue;
        }
        EXPECT_TRUE(h.mostrados().empty());
        const QString mostrado = h.m().TextMatrix(kCalzadoNorte, colMes(5));
        if (c.mostrado) {
            EXPECT_EQ(mostrado, QString::fromUtf8(c.mostrado));
        }
        EXPECT_EQ(h.guardado(QStringLiteral("70000002"), 1).at(4), QLatin1String(c.guardado));
        h.hoja->CargarPresupuesto();
        EXPECT_EQ(h.m().TextMatrix(kCalzadoNorte, colMes(5)), mostrado);
    }
    if (!h.bd.enPostgres())
        return;
    // At 0 decimals the currency's limit fits while its totals do; shown
    // rounded beyond the range, it would take the row's total out of it.
    h.decimales(0);
    h.hoja->CargarPresupuesto();
    h.teclear(kCalzadoNorte, colMes(5), QStringLiteral("-922.337.203.685.477"));
    EXPECT_TRUE(h.mostrados().empty());
    EXPECT_EQ(h.guardado(QStringLiteral("70000002"), 1).at(4), QStringLiteral("-922337203685477"));
    h.teclear(kCalzadoNorte, colMes(5), QStringLiteral("-922.337.203.685.477,5808"));
    EXPECT_EQ(h.mostrados(), std::vector<QString>{QStringLiteral("Overflow")});
    EXPECT_EQ(h.guardado(QStringLiteral("70000002"), 1).at(4), QStringLiteral("-922337203685477"));
}

TEST_F(HojaSeguridad, LeavingACellUnchangedStoresAndMarksNothing)
{
    h.bd.sql(QStringLiteral("UPDATE Presupuestos SET M2 = 4062.5, Modificacion_Manual = 0 WHERE Cuenta = '70000001'"));
    h.hoja->CargarPresupuesto();
    ASSERT_EQ(h.m().TextMatrix(kVentasNorte, colMes(2)), QStringLiteral("4.062"));
    h.bd.tomarRegistro();
    h.teclear(kVentasNorte, colMes(2), QStringLiteral("4.062"));
    EXPECT_EQ(h.escrituras(), 0);
    EXPECT_EQ(h.guardado(QStringLiteral("70000001"), 1).at(1), QStringLiteral("4062.5"));
    EXPECT_EQ(h.m().TextMatrix(kVentasNorte, kManual), QStringLiteral("0"));
    EXPECT_NE(h.m().CellBackColor(kVentasNorte, colMes(2)), QColor(172, 250, 185));

    // A double click opens the operations dialog and the cell's editor; the
    // editor closing later rewrites nothing either.
    VistaRejilla* v = h.hoja->vsPresupuesto;
    h.hoja->show();
    const QPoint p = v->rectCelda(kVentasNorte, colMes(2)).center();
    raton(*v, QEvent::MouseButtonPress, Qt::LeftButton, p);
    raton(*v, QEvent::MouseButtonRelease, Qt::LeftButton, p);
    raton(*v, QEvent::MouseButtonDblClick, Qt::LeftButton, p);
    raton(*v, QEvent::MouseButtonRelease, Qt::LeftButton, p);
    EXPECT_TRUE(h.hoja->operaciones()->isVisible());
    EXPECT_NE(editorAbierto(*v), nullptr);
    clic(*v, kAlquilerNorte, 9);
    QApplication::processEvents();
    EXPECT_EQ(h.escrituras(), 0);
    EXPECT_EQ(h.m().TextMatrix(kVentasNorte, kManual), QStringLiteral("0"));
}

TEST_F(HojaSeguridad, ARefusedAmountLeavesTheCellAsItWasAndTheRowWorking)
{
    for (const char* texto : {"99999999999999999", "1e400"}) {
        h.teclear(kVentasNorte, colMes(2), QString::fromLatin1(texto));
        EXPECT_EQ(h.mostrados(), std::vector<QString>{QStringLiteral("Overflow")}) << texto;
        EXPECT_EQ(h.m().TextMatrix(kVentasNorte, colMes(2)), QStringLiteral("100")) << texto;
    }
    h.teclear(kVentasNorte, colMes(3), QStringLiteral("50"));
    EXPECT_TRUE(h.mostrados().empty());
    EXPECT_EQ(h.m().TextMatrix(kVentasNorte, kTotal), QStringLiteral("1.150"));
    EXPECT_EQ(h.m().TextMatrix(1, kTotal), QStringLiteral("1.100"));
}

TEST_F(HojaSeguridad, EveryWayOfLeavingAnEditThatKeepsTheTextStoresItOnce)
{
    VistaRejilla* v = h.hoja->vsPresupuesto;
    h.hoja->show();
    int despues = 0;
    QObject::connect(v, &VistaRejilla::AfterEdit, [&] { ++despues; });
    struct Caso {
        const char* como;
        int mes;
        const char* texto;
        std::function<void(QLineEdit*)> salir;
        const char* guardado;
        int columna; // where the cursor is after it; 0: not checked
    };
    const std::vector<Caso> casos = {
        {"Tab", 1, "90", [](QLineEdit* e) { tecla(e, Qt::Key_Tab); }, "90", 5},
        {"Shift+Tab", 3, "30", [](QLineEdit* e) { tecla(e, Qt::Key_Backtab, Qt::ShiftModifier); }, "30", 5},
        {"a click on another cell", 4, "40", [&](QLineEdit*) { clic(*v, kAlquilerNorte, 9); }, "40", 0},
        {"an arrow key", 7, "80", [](QLineEdit* e) { tecla(e, Qt::Key_Down); }, "80", 0},
        {"Escape abandons", 5, "60", [](QLineEdit* e) { tecla(e, Qt::Key_Escape); }, "0", 0},
        // Last: the window goes with it.
        {"closing the window", 6, "70", [&](QLineEdit*) {
             EXPECT_EQ(h.m().TextMatrix(kTotalNorte, colMes(1)), QStringLiteral("190"));
             EXPECT_EQ(h.m().TextMatrix(kCalzadoNorte, colMes(5)), QStringLiteral("0")) << "Escape leaves the cell as it was";
             h.hoja->close();
         },
         "70", 0},
    };
    for (const Caso& c : casos) {
        SCOPED_TRACE(c.como);
        v->modelo().Select(kCalzadoNorte, colMes(c.mes));
        v->setFocus();
        tecla(v, Qt::Key_F2);
        QLineEdit* e = editorAbierto(*v);
        ASSERT_NE(e, nullptr);
        e->setText(QString::fromLatin1(c.texto));
        c.salir(e);
        QApplication::processEvents();
        EXPECT_EQ(h.guardado(QStringLiteral("70000002"), 1).value(c.mes - 1), QLatin1String(c.guardado));
        if (c.columna) {
            EXPECT_EQ(v->modelo().Col(), c.columna);
        }
    }
    EXPECT_EQ(despues, 5) << "once for each way of leaving that keeps the text, never for Escape";
    EXPECT_TRUE(h.mostrados().empty());
}

TEST_F(HojaSeguridad, TheHistoryGridFollowsTheSwitchHoweverItChanges)
{
    h.hoja->show();
    h.hoja->chkMostrarHistorico->click();
    EXPECT_TRUE(h.hoja->vsHistorico->isVisible());
    // Showing the accounts out of the budget unchecks the switch by code.
    h.hoja->cmdVer_Click();
    EXPECT_FALSE(h.hoja->chkMostrarHistorico->isChecked());
    EXPECT_FALSE(h.hoja->vsHistorico->isVisible());
    h.hoja->cmdVer_Click();
    h.hoja->chkMostrarHistorico->click();
    EXPECT_TRUE(h.hoja->vsHistorico->isVisible());
    EXPECT_GT(h.hoja->vsHistorico->modelo().Rows(), 1);
}

// ---- Two users, one database ------------------------------------------------

namespace {

// Another user's process on the database, with its arguments as one text:
// "account department month amount", or a mode and its own.
std::unique_ptr<QProcess> otroUsuarioEnMarcha(const QString& destino, const QString& argumentos)
{
    auto p = std::make_unique<QProcess>();
    p->start(QStringLiteral(PRESUPUESTOS_OTRO_USUARIO), QStringList{destino} + argumentos.split(QLatin1Char(' ')));
    return p;
}

int otroUsuario(const QString& destino, const QString& argumentos)
{
    const auto p = otroUsuarioEnMarcha(destino, argumentos);
    p->waitForFinished(60000);
    return p->exitStatus() == QProcess::NormalExit ? p->exitCode() : -1;
}

} // namespace

TEST(HojaDosUsuarios, TypingZeroResetsOnlyWhatTheStoredRowHoldsAsZero)
{
    Hoja h(false, Hoja::kEnFichero);
    ASSERT_EQ(h.m().TextMatrix(kLuzSur, kTotal), QStringLiteral("-50"));
    // Another user stores May for the row this worksheet shows with January only.
    ASSERT_EQ(otroUsuario(h.bd.destino, QStringLiteral("62800001 2 5 500")), 0);
    h.teclear(kLuzSur, colMes(1), QStringLiteral("0"));
    EXPECT_TRUE(h.mostrados().empty());
    const QStringList fila = h.guardado(QStringLiteral("62800001"), 2);
    EXPECT_EQ(campos(fila, {0, 4, 13}), (QStringList{"0", "500", "17"})) << "the other user's May stays; and so do both marks";
    // The worksheet shows the row as stored.
    EXPECT_EQ(h.textos(kLuzSur, {colMes(5), kTotal, kManual}), (QStringList{"500", "500", "17"}));

    // With nothing else stored, the row is reset as before.
    h.teclear(kLuzSur, colMes(5), QStringLiteral("0"));
    EXPECT_EQ(h.guardado(QStringLiteral("62800001"), 2).at(13), QStringLiteral("0"));
    EXPECT_EQ(h.m().TextMatrix(kLuzSur, kManual), QStringLiteral("0"));
}

TEST(HojaDosUsuarios, TwoUsersCreatingTheSameRowsAtOnceLoseNoMonth)
{
    QTemporaryDir dir;
    BaseDatosPrueba bd(false, dir.filePath(QStringLiteral("empresa.db")));
    const std::unique_ptr<QProcess> usuarios[] = {otroUsuarioEnMarcha(bd.destino, QStringLiteral("C 1 1 10 300")),
                                                  otroUsuarioEnMarcha(bd.destino, QStringLiteral("C 1 2 20 300"))};
    for (const auto& u : usuarios) {
        ASSERT_TRUE(u->waitForFinished(120000));
        EXPECT_EQ(u->exitCode(), 0) << u->readAllStandardError().toStdString();
    }
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos WHERE M1 = 10 AND M2 = 20 AND Modificacion_Manual = 3")).toInt(), 300);
}

// A file dialog listing the database's folder while the worksheet has the
// file open (choosing where to export) must leave the process's locks on
// it alone: otherwise the next user to open and close the file deletes the
// write-ahead log this one still writes into, and this one's later months
// go where nobody sees them, until closing it writes over the others'.
TEST(HojaDosUsuarios, AFileDialogOverTheDatabasesFolderLeavesItsLocksAlone)
{
    if (BaseDatosPrueba::enPostgres())
        GTEST_SKIP() << "only a database file has locks a dialog could drop";
    QTemporaryDir dir;
    {
        BaseDatosPrueba bd(false, dir.filePath(QStringLiteral("empresa.db")));
        clsDBPresupuesto store(bd.sesion);
        store.ActualizacionManual(QStringLiteral("62800001"), 2, 1, monedaPlana(QStringLiteral("10")));
        {
            const auto d = DialogoArchivoQt::crear(QStringLiteral("Archivos de Excel(*.xlsx)|*.xlsx"),
                                                   dir.filePath(QStringLiteral("Presupuesto.xlsx")), true);
            d->setDirectory(dir.path());
            d->show();
            QTest::qWait(1500);
        }
        ASSERT_EQ(otroUsuario(bd.destino, QStringLiteral("62800001 2 2 20")), 0);
        store.ActualizacionManual(QStringLiteral("62800001"), 2, 3, monedaPlana(QStringLiteral("30")));
        ASSERT_EQ(otroUsuario(bd.destino, QStringLiteral("62800001 2 4 40")), 0);
    }
    BaseDatosPrueba despues(false, dir.filePath(QStringLiteral("empresa.db")));
    EXPECT_EQ(despues.presupuestoGuardado(QStringLiteral("62800001"), 2).mid(0, 4), (QStringList{"10", "20", "30", "40"}));
}

// Another user's committed change shows in an open worksheet without any
// action: its row is read again with its totals, its month marked for a
// moment; the line above the grid says who made it; the current cell stays.
TEST(HojaDosUsuarios, AnotherUsersCommittedChangeShowsWithoutAnyAction)
{
    Hoja h(false, Hoja::kEnFichero);
    h.m().Select(kAlquilerNorte, colMes(2));
    ASSERT_EQ(otroUsuario(h.bd.destino, QStringLiteral("62800001 2 5 500")), 0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return h.m().TextMatrix(kLuzSur, colMes(5)) == QStringLiteral("500"); }, 10000));
    EXPECT_EQ(h.textos(kLuzSur, {colMes(5), kTotal}), (QStringList{"500", "450"}));
    EXPECT_EQ(h.m().TextMatrix(kTotalSur, colMes(5)), QStringLiteral("500"));
    EXPECT_EQ(h.m().CellBackColor(kLuzSur, colMes(5)), QColor(255, 230, 140)) << "marked for a moment";
    EXPECT_EQ(h.m().Row(), kAlquilerNorte);
    EXPECT_EQ(h.m().Col(), colMes(2));
    EXPECT_TRUE(h.hoja->lblCambios->text().startsWith(QStringLiteral("Cambios de otros usuarios"))) << h.hoja->lblCambios->text().toStdString();
    EXPECT_TRUE(h.hoja->lblCambios->text().contains(QStringLiteral(": 1 de "))) << h.hoja->lblCambios->text().toStdString();
    EXPECT_TRUE(h.mostrados().empty());
    // This worksheet's own edits are not another user's, even read back
    // with another user's next change.
    h.teclear(kAlquilerNorte, colMes(2), QStringLiteral("7"));
    const QString antes = h.hoja->lblCambios->text();
    QTest::qWait(1200);
    EXPECT_EQ(h.hoja->lblCambios->text(), antes);
    ASSERT_EQ(otroUsuario(h.bd.destino, QStringLiteral("62800001 2 6 600")), 0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return h.m().TextMatrix(kLuzSur, colMes(6)) == QStringLiteral("600"); }, 10000));
    EXPECT_TRUE(h.hoja->lblCambios->text().contains(QStringLiteral(": 1 de "))) << h.hoja->lblCambios->text().toStdString();
    EXPECT_NE(h.m().CellBackColor(kAlquilerNorte, colMes(2)), QColor(255, 230, 140));
}

// Four users at once, each a few hundred operations (typed months on rows
// they share, sales months followed by the rows planned on them, batches,
// undos): none of them meets an engine's raw text, and every row's journal
// is one unbroken chain - each change starts from the row the previous one
// left, the last leaves the row as stored - so no one's figure was written
// over unseen.
TEST(HojaDosUsuarios, FourUsersAtOnceLoseNothingAndEveryRowsJournalIsWhole)
{
    QTemporaryDir dir;
    BaseDatosPrueba bd(false, dir.filePath(QStringLiteral("empresa.db")));
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, Metodo_Calculo, Valor) "
                          "VALUES (1, 2027, '60000001', 1, 6, 10), (1, 2027, '60000001', 2, 6, 20)"));
    Diario diario(bd.conexion, 1);
    constexpr int kUsuarios = 4;
    constexpr int kOperaciones = 150;
    std::vector<std::unique_ptr<QProcess>> usuarios;
    for (int i = 0; i < kUsuarios; ++i)
        usuarios.push_back(otroUsuarioEnMarcha(bd.destino, QStringLiteral("--carga %1 %2").arg(i + 1).arg(kOperaciones)));
    for (auto& u : usuarios) {
        ASSERT_TRUE(u->waitForFinished(300000));
        const QString errores = QString::fromUtf8(u->readAllStandardError());
        EXPECT_EQ(u->exitCode(), 0) << errores.toStdString();
        EXPECT_FALSE(errores.contains(QStringLiteral("CRUDO"))) << errores.toStdString();
    }
    EXPECT_GT(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos_Operaciones")).toInt(), kUsuarios * kOperaciones / 3);
    QSqlQuery filas(bd.conexion->baseDatos());
    ASSERT_TRUE(filas.exec(QStringLiteral("SELECT DISTINCT Cuenta, Dpto FROM Presupuestos_Cambios")));
    int revisadas = 0;
    while (filas.next()) {
        const QString cuenta = filas.value(0).toString();
        const auto dpto = static_cast<qint16>(filas.value(1).toInt());
        const auto cambios = diario.historial(cuenta, dpto, 2027);
        ASSERT_FALSE(cambios.empty());
        EXPECT_TRUE(cambios.front().despues == diario.leer(cuenta, dpto, 2027)) << cuenta.toStdString() << "/" << dpto;
        const auto texto = [](const Diario::Imagen& im) {
            QStringList t{im.existe ? QStringLiteral("fila") : QStringLiteral("sin fila")};
            for (const Currency& m : im.meses)
                t << m.toPlainText();
            t << QString::number(im.metodo) << QString::number(im.manual);
            return t.join(QLatin1Char(' ')).toStdString();
        };
        for (std::size_t k = 0; k + 1 < cambios.size(); ++k)
            EXPECT_TRUE(cambios[k].antes == cambios[k + 1].despues)
                << cuenta.toStdString() << "/" << dpto << ": operation " << cambios[k].operacion << " (" << cambios[k].descripcion.toStdString()
                << ", " << texto(cambios[k].antes) << ") after " << cambios[k + 1].operacion << " ("
                << cambios[k + 1].descripcion.toStdString() << ", " << texto(cambios[k + 1].despues) << ")";
        ++revisadas;
    }
    EXPECT_GE(revisadas, 8);
}

// ---- A database that refuses the write ------------------------------------------

// A database that refuses a paste's writes, read-only or dropping the
// session half-way (a server's restart, an administrator): it keeps nothing
// of the paste, the worksheet says so once and shows what it holds; after a
// dropped session the next edit, on a new session with the worksheet's own
// tables made again, is stored.
TEST(HojaBaseDatos, APasteTheDatabaseRefusesIsSaidOnceAndShowsTheStoredValues)
{
    for (const bool cortada : {false, true}) {
        SCOPED_TRACE(cortada ? "session dropped" : "read-only");
        if (cortada && !BaseDatosPrueba::enPostgres())
            continue; // only a server drops a session
        Hoja h;
        const auto otro = cortada ? h.bd.otraConexion() : nullptr;
        // The test's own PL/pgSQL goes straight to the server: it is none of
        // the system's composed texts.
        const auto crudo = [&otro](const QString& sql) {
            QSqlQuery q(otro->baseDatos());
            ASSERT_TRUE(q.exec(sql)) << q.lastError().text().toStdString();
        };
        if (cortada) {
            crudo(QStringLiteral("CREATE FUNCTION cortar() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN "
                                 "IF NEW.Cuenta = '62800001' THEN PERFORM pg_terminate_backend(pg_backend_pid()); END IF; "
                                 "RETURN NEW; END $$"));
            crudo(QStringLiteral("CREATE TRIGGER cortar BEFORE INSERT OR UPDATE ON Presupuestos FOR EACH ROW EXECUTE FUNCTION cortar()"));
        } else {
            BaseDatosPrueba::soloLectura(*h.bd.conexion);
        }
        h.pegar(kAlquilerNorte, colMes(1), QStringLiteral("1\t2\t3\r\n4\t5\t6\r\n"));
        const auto mensajes = h.mostrados();
        ASSERT_EQ(mensajes.size(), 1u);
        EXPECT_TRUE(mensajes[0].startsWith(cortada ? QStringLiteral("Se ha perdido la conexión con la base de datos")
                                                   : QStringLiteral("La base de datos es de solo lectura")))
            << mensajes[0].toStdString();
        EXPECT_EQ(h.textos(kAlquilerNorte, {colMes(1), colMes(2)}), (QStringList{"0", "0"})) << "nothing of the paste was kept";
        EXPECT_EQ(h.textos(kLuzNorte, {colMes(1), colMes(2)}), (QStringList{"0", "0"}));
        EXPECT_EQ(h.m().TextMatrix(kTotalNorte, colMes(1)), QStringLiteral("100"));
        EXPECT_TRUE(h.guardado(QStringLiteral("62100001"), 1).isEmpty());
        if (!cortada)
            continue;
        crudo(QStringLiteral("DROP TRIGGER cortar ON Presupuestos"));
        h.teclear(kAlquilerNorte, colMes(1), QStringLiteral("9"));
        EXPECT_EQ(h.mostrados(), std::vector<QString>{});
        EXPECT_EQ(h.guardado(QStringLiteral("62100001"), 1).at(0), QStringLiteral("9"));
        h.hoja->CargarPresupuesto();
        EXPECT_EQ(h.mostrados(), std::vector<QString>{});
        EXPECT_EQ(h.m().TextMatrix(kAlquilerNorte, colMes(1)), QStringLiteral("9"));
    }
}

TEST(HojaBaseDatos, ALockedDatabaseStopsABatchCommittingWhatWasStoredBefore)
{
    Hoja h(false, Hoja::kEnFichero);
    h.bd.conexion->setEsperaBloqueo(50);
    auto otro = h.bd.otraConexion();
    QSqlQuery bloqueo(otro->baseDatos());
    ASSERT_TRUE(bloqueo.exec(BaseDatosPrueba::sentenciaBloqueo()));
    h.m().Select(kAlquilerNorte, colMes(1), kVentasNorte, 15);
    h.hoja->BorrarValorCeldas();
    auto mensajes = h.mostrados();
    ASSERT_EQ(mensajes.size(), 1u);
    EXPECT_TRUE(mensajes[0].startsWith(QStringLiteral("La base de datos está bloqueada por otro usuario"))) << mensajes[0].toStdString();
    EXPECT_EQ(h.m().TextMatrix(kVentasNorte, colMes(1)), QStringLiteral("100")) << "nothing was stored";
    EXPECT_EQ(h.m().TextMatrix(kTotalNorte, kTotal), QStringLiteral("1.200"));
    ASSERT_TRUE(bloqueo.exec(QStringLiteral("ROLLBACK")));

    // A failure in the middle: the rows before it stay stored and shown.
    h.bd.rechazar(QStringLiteral("UPDATE"), QStringLiteral("70000002"), QStringLiteral("rechazada"));
    h.bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto) VALUES (1, 2027, '70000002', 1)"));
    h.plataforma.portapapeles->contenido = QStringLiteral("7");
    h.m().Select(kVentasNorte, colMes(1), kCalzadoNorte, 5);
    h.hoja->Copiar_Desde_Clipboard();
    mensajes = h.mostrados();
    ASSERT_EQ(mensajes.size(), 1u);
    EXPECT_TRUE(mensajes[0].contains(QStringLiteral("rechazada"))) << mensajes[0].toStdString();
    EXPECT_EQ(h.guardado(QStringLiteral("70000001"), 1).at(1), QStringLiteral("7"));
    EXPECT_EQ(h.m().TextMatrix(kVentasNorte, colMes(2)), QStringLiteral("7"));
    EXPECT_EQ(h.m().TextMatrix(kCalzadoNorte, colMes(1)), QStringLiteral("0"));
    EXPECT_EQ(h.m().TextMatrix(kTotalNorte, colMes(1)), QStringLiteral("7"));
}

// A paste of sales moves the rows planned on them; every row then shows what
// a reload shows, January of an existing row included (stored whole).
TEST(HojaSeguridadDemo, AfterAPasteEveryRowShowsWhatAReloadShows)
{
    Hoja h(true);
    h.decimales(2);
    QStringList lineas;
    for (int i = 0; i < 1000; ++i)
        lineas << QStringLiteral("%1,5\t%2,25\t7\t8\t9\t10\t11\t12\t13\t14\t15\t16").arg(100 + i).arg(i);
    h.pegar(2, colMes(1), lineas.join(QStringLiteral("\r\n")) + QStringLiteral("\r\n"));
    const auto filas = [&h] {
        QStringList r;
        for (int f = 1; f < h.m().Rows(); ++f)
            r << QString::number(f) + QLatin1Char(' ') + h.textos(f, {kCuenta, kTotal, colMes(1)}).join(QLatin1Char('/'));
        return r;
    };
    const QStringList antes = filas();
    h.hoja->CargarPresupuesto();
    const QStringList despues = filas();
    ASSERT_EQ(antes.size(), despues.size());
    for (int i = 0; i < antes.size(); ++i)
        EXPECT_EQ(antes[i], despues[i]);
}
