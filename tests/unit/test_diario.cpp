#include "BaseDatosPrueba.h"
#include "calculation/clsPresupItem.h"
#include "common/VbError.h"
#include "host/modPublic.h"
#include "store/Diario.h"
#include "store/clsDBPresupuesto.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;

namespace {

Currency C(const QString& t) { return monedaPlana(t); }

clsPresupItem fila(const QString& cuenta, qint16 dpto, const QString& mes1, qint32 metodo = 3)
{
    clsPresupItem it;
    it.Cuenta = cuenta;
    it.Dpto = dpto;
    it.setMes(0, C(mes1));
    it.MetodoCalc = metodo;
    return it;
}

Diario::Restaurar restaurarCon(clsDBPresupuesto& store)
{
    return [&store](const QString& c, qint16 d, qint16 e, const Diario::Imagen& im) { store.Restaurar(c, d, e, im); };
}

} // namespace

TEST(Diario, AnOperationJournalsEachRowOnceWithBothImagesInTheTransactionOfTheChange)
{
    BaseDatosPrueba bd;
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M2, Ver) VALUES (1, 2027, '70000001', 1, 7.5, 1)"));
    clsDBPresupuesto store;
    Diario diario(bd.conexion, 1);
    store.setDiario(&diario);
    ASSERT_TRUE(diario.disponible());
    bd.tomarRegistro();
    {
        // Two transactions, two writes to one row and a new row: one step.
        auto op = diario.operacion(Diario::Tipo::Tecleo, QStringLiteral("escribir"));
        store.ActualizacionManual(QStringLiteral("70000001"), 1, 3, C(QStringLiteral("10")));
        Transaccion t(*bd.conexion);
        store.ActualizacionManual(QStringLiteral("70000001"), 1, 4, C(QStringLiteral("20")));
        store.Actualizar(fila(QStringLiteral("62800001"), 2, QStringLiteral("5.25")));
        t.confirmar();
    }
    // The journal's own statements stay out of the worksheet's log.
    for (const QString& s : bd.tomarRegistro())
        EXPECT_FALSE(s.contains(QStringLiteral("Presupuestos_Cambios"))) << s.toStdString();
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos_Cambios")).toInt(), 2);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(DISTINCT Operacion) FROM Presupuestos_Cambios")).toInt(), 1);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT Existia || '/' || A_M2 || '/' || A_M3 || '/' || D_M3 || '/' || D_M4 || '/' || D_Manual "
                                      "FROM Presupuestos_Cambios WHERE Cuenta = '70000001'"))
                  .toString(),
              // Each engine's text of its amounts: PostgreSQL's NUMERIC keeps four decimals.
              bd.enPostgres() ? QStringLiteral("1/7.5000/0.0000/10.0000/20.0000/12") : QStringLiteral("1/7.5/0/10/20/12"));
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT Existia || '/' || Existe || '/' || D_M1 || '/' || Tipo || '/' || (Usuario <> '') "
                                      "FROM Presupuestos_Cambios WHERE Cuenta = '62800001'"))
                  .toString(),
              bd.enPostgres() ? QStringLiteral("0/1/5.2500/tecleo/true") : QStringLiteral("0/1/5.25/tecleo/1"));
    EXPECT_EQ(diario.textoDeshacer(), QStringLiteral("Deshacer: escribir"));

    // A transaction that rolls back leaves neither changes nor journal rows,
    // and no step to undo.
    {
        Transaccion t(*bd.conexion);
        store.ActualizacionManual(QStringLiteral("70000001"), 1, 5, C(QStringLiteral("1")));
    }
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos_Cambios")).toInt(), 2);
    EXPECT_EQ(diario.textoDeshacer(), QStringLiteral("Deshacer: escribir"));

    // Writes outside any operation are a step each, named by the store.
    store.SetVisible(QStringLiteral("70000001"), 1, false);
    EXPECT_EQ(diario.textoDeshacer(), QStringLiteral("Deshacer: presupuestar o no"));
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(DISTINCT Operacion) FROM Presupuestos_Cambios")).toInt(), 2);
}

TEST(Diario, UndoAndRedoWalkTheStepsBackAndForthExactly)
{
    BaseDatosPrueba bd;
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1, M12, Metodo_Calculo, "
                          "Modificacion_Manual, Valor, Ver) VALUES (1, 2027, '70000001', 1, 100.1234, -3.5, 4, 9, 12.5, 1)"));
    clsDBPresupuesto store;
    Diario diario(bd.conexion, 1);
    store.setDiario(&diario);
    const auto restaurar = restaurarCon(store);
    std::vector<QStringList> estados{bd.presupuestos()};
    // January of an update is stored whole; undo must bring its decimals back.
    store.Actualizar(fila(QStringLiteral("70000001"), 1, QStringLiteral("8")));
    estados.push_back(bd.presupuestos());
    store.ActualizacionManual(QStringLiteral("62800001"), 2, 6, C(QStringLiteral("-1.5")));
    estados.push_back(bd.presupuestos());
    store.SetVisible(QStringLiteral("70000001"), 1, false);
    estados.push_back(bd.presupuestos());

    for (int i = 2; i >= 0; --i) {
        ASSERT_TRUE(diario.puedeDeshacer());
        diario.deshacer(restaurar);
        EXPECT_EQ(bd.presupuestos(), estados[static_cast<std::size_t>(i)]) << "deshacer hasta " << i;
    }
    EXPECT_FALSE(diario.puedeDeshacer());
    for (int i = 1; i <= 3; ++i) {
        diario.rehacer(restaurar);
        EXPECT_EQ(bd.presupuestos(), estados[static_cast<std::size_t>(i)]) << "rehacer hasta " << i;
    }
    EXPECT_FALSE(diario.puedeRehacer());
    // Undo and redo are in the history too; a new step drops what was undone.
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos_Cambios WHERE Tipo IN ('deshacer', 'rehacer')")).toInt(), 6);
    diario.deshacer(restaurar);
    store.ActualizacionManual(QStringLiteral("62800001"), 2, 1, C(QStringLiteral("1")));
    EXPECT_FALSE(diario.puedeRehacer());
    const auto historia = diario.historial(QStringLiteral("62800001"), 2, 2027);
    ASSERT_EQ(historia.size(), 4u);
    EXPECT_EQ(historia.front().tipo, Diario::Tipo::Tecleo);
    EXPECT_EQ(historia[1].tipo, Diario::Tipo::Rehacer);
    EXPECT_EQ(historia[2].tipo, Diario::Tipo::Deshacer);
    EXPECT_FALSE(historia[2].despues.existe);
    EXPECT_EQ(historia.back().despues.meses[5], C(QStringLiteral("-1.5")));
}

TEST(Diario, AnUndoOverAnotherUsersChangeIsRefusedAndChangesNothing)
{
    QTemporaryDir dir;
    const QString fichero = dir.filePath(QStringLiteral("compartida.db"));
    BaseDatosPrueba bd(false, fichero);
    clsDBPresupuesto store;
    Diario diario(bd.conexion, 1);
    store.setDiario(&diario);
    {
        auto op = diario.operacion(Diario::Tipo::Pegado, QStringLiteral("pegar 2 celdas"));
        Transaccion t(*bd.conexion);
        store.ActualizacionManual(QStringLiteral("70000001"), 1, 1, C(QStringLiteral("10")));
        store.ActualizacionManual(QStringLiteral("70000002"), 1, 3, C(QStringLiteral("30")));
        t.confirmar();
    }
    auto otro = bd.otraConexion();
    otro->Execute(QStringLiteral("UPDATE Presupuestos SET M3 = 31 WHERE Cuenta = '70000002'"));
    const QStringList antes = bd.presupuestos();
    try {
        diario.deshacer(restaurarCon(store));
        FAIL() << "undone over the other user's figure";
    } catch (const ConflictoDiario& e) {
        EXPECT_TRUE(e.mensaje().contains(QStringLiteral("Marzo"))) << e.mensaje().toStdString();
        EXPECT_TRUE(e.mensaje().contains(QStringLiteral("70000002"))) << e.mensaje().toStdString();
    }
    EXPECT_EQ(bd.presupuestos(), antes);
    EXPECT_TRUE(diario.puedeDeshacer());
    // Once the other user's figure is back, the step undoes.
    otro->Execute(QStringLiteral("UPDATE Presupuestos SET M3 = 30 WHERE Cuenta = '70000002'"));
    diario.deshacer(restaurarCon(store));
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos")).toInt(), 0);
}

TEST(Diario, WithoutTheTableUndoStillWorksForTheSession)
{
    // A server whose schema was not updated: nothing is created there.
    BaseDatosPrueba bd;
    bd.sql(QStringLiteral("DROP TABLE Presupuestos_Cambios"));
    clsDBPresupuesto store;
    Diario diario(bd.conexion, 1, false);
    store.setDiario(&diario);
    EXPECT_FALSE(diario.disponible());
    store.ActualizacionManual(QStringLiteral("70000001"), 1, 2, C(QStringLiteral("4")));
    EXPECT_TRUE(diario.historial(QStringLiteral("70000001"), 1, 2027).empty());
    diario.deshacer(restaurarCon(store));
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos")).toInt(), 0);
    diario.rehacer(restaurarCon(store));
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT M2 FROM Presupuestos")).toDouble(), 4.0);
}
