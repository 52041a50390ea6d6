#include "BaseDatosPrueba.h"
#include "calculation/clsPresupItem.h"
#include "common/VbError.h"
#include "store/Diario.h"
#include "store/clsDBPresupuesto.h"

#include <QDateTime>
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

// A store whose every write goes to company 1's journal.
class DiarioEnUso : public ::testing::Test {
protected:
    DiarioEnUso() { store.setDiario(&diario); }
    BaseDatosPrueba bd;
    clsDBPresupuesto store{bd.sesion};
    Diario diario{bd.conexion, 1};
};

} // namespace

TEST_F(DiarioEnUso, AnOperationJournalsEachRowOnceWithBothImagesInTheTransactionOfTheChange)
{
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M2, Ver) VALUES (1, 2027, '70000001', 1, 7.5, 1)"));
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
              // Each engine's text of its amounts: PostgreSQL's NUMERIC keeps four
              // decimals, SQLite's journal the count of ten-thousandths.
              bd.enPostgres() ? QStringLiteral("1/7.5000/0.0000/10.0000/20.0000/12") : QStringLiteral("1/75000/0/100000/200000/12"));
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT Existia || '/' || Existe || '/' || D_M1 || '/' || Tipo || '/' || (Usuario <> '') || '/' || "
                                      "Descripcion FROM Presupuestos_Cambios C JOIN Presupuestos_Operaciones O ON O.Id = C.Operacion "
                                      "WHERE Cuenta = '62800001'"))
                  .toString(),
              bd.enPostgres() ? QStringLiteral("0/1/5.2500/tecleo/true/escribir") : QStringLiteral("0/1/52500/tecleo/1/escribir"));
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

// A transaction the database refuses to commit (here, its journal rows) is
// rolled back whole: the operation then knows the rows it had stored before
// as the rollback left them, and its step undoes to what was there.
TEST_F(DiarioEnUso, ATransactionRolledBackLeavesTheOperationAsItWas)
{
    bd.rechazar(QStringLiteral("INSERT"), QStringLiteral("62800003"), QStringLiteral("rechazada"), QStringLiteral("Presupuestos_Cambios"));
    {
        auto op = diario.operacion(Diario::Tipo::Pegado, QStringLiteral("pegar"));
        store.ActualizacionManual(QStringLiteral("62800001"), 1, 2, C(QStringLiteral("5")));
        {
            Transaccion t(*bd.conexion);
            store.ActualizacionManual(QStringLiteral("62800001"), 1, 2, C(QStringLiteral("7")));
            store.ActualizacionManual(QStringLiteral("62800003"), 1, 2, C(QStringLiteral("5")));
            EXPECT_NE(numeroError([&] { t.confirmar(); }), 0);
        }
        store.ActualizacionManual(QStringLiteral("62800002"), 1, 2, C(QStringLiteral("5")));
    }
    ASSERT_NE(diario.ultima(), nullptr);
    ASSERT_EQ(diario.ultima()->filas.size(), 2u);
    for (const Diario::Fila& f : diario.ultima()->filas)
        EXPECT_EQ(f.despues.meses[1], C(QStringLiteral("5"))) << f.cuenta.toStdString();
    diario.deshacer(restaurarCon(store));
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos WHERE M2 <> 0")).toInt(), 0);
}

// On a server another user may take the operation's number between this
// one reading the last number and writing its own: the next one is tried.
TEST_F(DiarioEnUso, ANumberAnotherUserTookMeanwhileIsTriedAgain)
{
    if (!BaseDatosPrueba::enPostgres())
        GTEST_SKIP() << "SQLite has one writer at a time: no two users number at once";
    // The first number asked for is refused as taken, as the other user's would be.
    bd.sql(QStringLiteral("CREATE SEQUENCE intentos"));
    bd.sql(QStringLiteral("CREATE FUNCTION ocupado() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN IF nextval('intentos') = 1 THEN "
                          "RAISE unique_violation USING MESSAGE = 'duplicate key value violates unique constraint'; END IF; RETURN NEW; END $$"));
    bd.sql(QStringLiteral("CREATE TRIGGER ocupado BEFORE INSERT ON Presupuestos_Operaciones FOR EACH ROW EXECUTE FUNCTION ocupado()"));
    store.ActualizacionManual(QStringLiteral("62800001"), 1, 2, C(QStringLiteral("5")));
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT nextval('intentos')")).toInt(), 3) << "two attempts";
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos_Cambios")).toInt(), 1);
    EXPECT_TRUE(diario.puedeDeshacer());
}

TEST_F(DiarioEnUso, UndoAndRedoWalkTheStepsBackAndForthExactly)
{
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1, M12, Metodo_Calculo, "
                          "Modificacion_Manual, Valor, Ver) VALUES (1, 2027, '70000001', 1, 100.1234, -3.5, 4, 9, 12.5, 1)"));
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
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos_Cambios C JOIN Presupuestos_Operaciones O ON O.Id = C.Operacion "
                                      "WHERE Tipo IN ('deshacer', 'rehacer')"))
                  .toInt(),
              6);
    diario.deshacer(restaurar);
    store.ActualizacionManual(QStringLiteral("62800001"), 2, 1, C(QStringLiteral("1")));
    EXPECT_FALSE(diario.puedeRehacer());
    const auto historia = diario.historial(QStringLiteral("62800001"), 2, 2027);
    ASSERT_EQ(historia.size(), 4u);
    EXPECT_EQ(historia.front().tipo, Diario::Tipo::Tecleo);
    // Written in local time, to the millisecond, and read back as such.
    EXPECT_LT(std::abs(historia.front().fecha.msecsTo(QDateTime::currentDateTime())), 60'000)
        << historia.front().fecha.toString(Qt::ISODateWithMs).toStdString();
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
    clsDBPresupuesto store(bd.sesion);
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
    clsDBPresupuesto store(bd.sesion);
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

TEST(Diario, AFileWithTheFirstLayoutKeepsEveryRowOfItsHistory)
{
    if (BaseDatosPrueba::enPostgres())
        GTEST_SKIP() << "the journal's first layout was only ever written to SQLite files: a PostgreSQL database starts with the current one";
    // The first layout kept each operation's kind, description, user and
    // time on every row; opening such a file moves them to one row each.
    BaseDatosPrueba bd;
    bd.sql(QStringLiteral("DROP TABLE Presupuestos_Cambios"));
    bd.sql(QStringLiteral("DROP TABLE Presupuestos_Operaciones"));
    QString columnas, valores;
    for (const char* p : {"A_", "D_"}) {
        for (int m = 1; m <= 12; ++m)
            columnas += QStringLiteral(", %1M%2 MONEY NOT NULL DEFAULT 0").arg(QLatin1String(p)).arg(m);
        columnas += QStringLiteral(", %1Metodo INT NOT NULL DEFAULT 0, %1Manual INT NOT NULL DEFAULT 0, %1Valor MONEY NOT NULL DEFAULT 0, "
                                   "%1Ver BIT NOT NULL DEFAULT 1")
                        .arg(QLatin1String(p));
    }
    bd.sql(QStringLiteral("CREATE TABLE Presupuestos_Cambios (Id INTEGER PRIMARY KEY, Operacion BIGINT NOT NULL, Tipo VARCHAR(20) NOT NULL, "
                          "Descripcion VARCHAR(200) NOT NULL, Usuario VARCHAR(128) NOT NULL, Fecha DATETIME NOT NULL, "
                          "Cod_Empresa SMALLINT NOT NULL, Cod_Ejercicio SMALLINT NOT NULL, Cuenta VARCHAR(12) NOT NULL, Dpto INT NOT NULL, "
                          "Existia BIT NOT NULL, Existe BIT NOT NULL")
           + columnas + QStringLiteral(")"));
    bd.sql(QStringLiteral("CREATE INDEX IX_Presupuestos_Cambios_Fila ON Presupuestos_Cambios (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, Id)"));
    bd.sql(QStringLiteral("INSERT INTO Presupuestos_Cambios (Id, Operacion, Tipo, Descripcion, Usuario, Fecha, Cod_Empresa, Cod_Ejercicio, "
                          "Cuenta, Dpto, Existia, A_M3, Existe, D_M3) VALUES "
                          "(1, 1, 'pegado', 'pegar 2 celdas', 'ana', '2026-11-01 10:00:00.000', 1, 2027, '70000001', 1, 1, 7.5, 1, 10), "
                          "(2, 1, 'pegado', 'pegar 2 celdas', 'ana', '2026-11-01 10:00:00.000', 1, 2027, '70000001', 2, 0, 0, 1, 3), "
                          "(3, 3, 'tecleo', 'teclear', 'luis', '2026-11-02 09:00:00.000', 1, 2027, '70000001', 1, 1, 10, 1, 12.25)"));

    clsDBPresupuesto store(bd.sesion);
    Diario diario(bd.conexion, 1);
    store.setDiario(&diario);
    ASSERT_TRUE(diario.disponible());
    const auto antes = diario.historial(QStringLiteral("70000001"), 1, 2027);
    ASSERT_EQ(antes.size(), 2u);
    EXPECT_EQ(antes[0].usuario, QStringLiteral("luis"));
    EXPECT_EQ(antes[0].despues.meses[2], C(QStringLiteral("12.25")));
    EXPECT_EQ(antes[1].tipo, Diario::Tipo::Pegado);
    EXPECT_EQ(antes[1].descripcion, QStringLiteral("pegar 2 celdas"));
    EXPECT_EQ(antes[1].antes.meses[2], C(QStringLiteral("7.5")));
    EXPECT_EQ(diario.historial(QStringLiteral("70000001"), 2, 2027).size(), 1u);

    // New operations are numbered after the old ones and go on the same history.
    store.ActualizacionManual(QStringLiteral("70000001"), 1, 3, C(QStringLiteral("1")));
    const auto despues = diario.historial(QStringLiteral("70000001"), 1, 2027);
    ASSERT_EQ(despues.size(), 3u);
    EXPECT_EQ(despues[0].operacion, 4);
    EXPECT_EQ(despues[1].operacion, 3);
}

TEST_F(DiarioEnUso, ABatchThatReadsTheWholeYearStillKnowsEachRowAsItWas)
{
    // Past a few thousand rows the year is read in one pass and a row not in
    // it is taken as absent: rows of the year the batch did not name, rows of
    // another year and a row written twice must all come back exactly.
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1, M7, Metodo_Calculo, Valor, Ver) VALUES "
                          "(1, 2027, '70000001', 1, 5.5, -2, 3, 1.25, 1), (1, 2027, '70000009', 4, 9, 0, 0, 0, 0), "
                          "(1, 2026, '70000001', 1, 1, 1, 0, 0, 1)"));
    const QStringList inicial = bd.presupuestos();
    std::vector<std::pair<QString, qint16>> claves;
    for (int i = 0; i < static_cast<int>(Diario::kLeerAnoEntero) + 1; ++i)
        claves.emplace_back(QString::number(71000000 + i), static_cast<qint16>(1));
    claves.emplace_back(QStringLiteral("70000001"), 1);
    {
        auto op = diario.operacion(Diario::Tipo::Pegado, QStringLiteral("pegar"));
        Transaccion t(*bd.conexion);
        diario.prever(claves, 2027);
        store.ActualizacionManual(QStringLiteral("70000001"), 1, 2, C(QStringLiteral("8")));
        store.ActualizacionManual(QStringLiteral("71000000"), 1, 2, C(QStringLiteral("3")));
        store.ActualizacionManual(QStringLiteral("70000009"), 4, 1, C(QStringLiteral("1")));
        store.ActualizacionManual(QStringLiteral("70000001"), 1, 3, C(QStringLiteral("4")));
        t.confirmar();
    }
    const auto historia = diario.historial(QStringLiteral("70000009"), 4, 2027);
    ASSERT_EQ(historia.size(), 1u);
    EXPECT_TRUE(historia[0].antes.existe);
    EXPECT_FALSE(historia[0].antes.ver);
    EXPECT_EQ(diario.historial(QStringLiteral("71000000"), 1, 2027).at(0).antes.existe, false);
    diario.deshacer(restaurarCon(store));
    EXPECT_EQ(bd.presupuestos(), inicial);
}

TEST_F(DiarioEnUso, ManyNewRowsAreJournaledEachWithItsOwnFigures)
{
    // New rows go to the journal several to a statement, and the rest one by
    // one: every row must keep its own key and figures, wherever it fell.
    const int n = 40;
    {
        auto op = diario.operacion(Diario::Tipo::Pegado, QStringLiteral("pegar"));
        Transaccion t(*bd.conexion);
        for (int i = 0; i < n; ++i)
            store.ActualizacionManual(QString::number(72000000 + i), static_cast<qint16>(i % 3 + 1), i % 12 + 1,
                                      C(QString::number(i) + QStringLiteral(".25")));
        t.confirmar();
    }
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos_Cambios")).toInt(), n);
    for (int i : {0, 15, 16, 31, 32, 39}) {
        const auto h = diario.historial(QString::number(72000000 + i), static_cast<qint16>(i % 3 + 1), 2027);
        ASSERT_EQ(h.size(), 1u) << i;
        EXPECT_FALSE(h[0].antes.existe) << i;
        EXPECT_TRUE(h[0].despues.existe) << i;
        EXPECT_EQ(h[0].despues.meses[static_cast<std::size_t>(i % 12)], C(QString::number(i) + QStringLiteral(".25"))) << i;
    }
    diario.deshacer(restaurarCon(store));
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos")).toInt(), 0);
}

// The journal tells what happened, and undo takes back only that: a row
// written with the figures it had, or whose write the engine refused, is
// no change; an operation of no changes is not written; a transaction the
// engine rolled back on its own (a full disk) leaves no journal row.
TEST_F(DiarioEnUso, TheJournalHoldsOnlyWhatChanged)
{
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1, Metodo_Calculo) VALUES (1, 2027, '60000001', 1, 5, 3)"));
    bd.rechazar(QStringLiteral("INSERT"), QStringLiteral("62900001"), QStringLiteral("no"));
    const auto operaciones = [this] { return bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos_Operaciones")).toInt(); };

    store.Actualizar(fila(QStringLiteral("60000001"), 1, QStringLiteral("5")));
    EXPECT_EQ(operaciones(), 0) << "the row was stored as it was";
    EXPECT_FALSE(diario.puedeDeshacer());

    {
        auto op = diario.operacion(Diario::Tipo::Pegado, QStringLiteral("pegar"));
        Transaccion t(*bd.conexion);
        store.ActualizacionManual(QStringLiteral("60000001"), 1, 2, C(QStringLiteral("7")));
        EXPECT_NE(numeroError([&] { store.ActualizacionManual(QStringLiteral("62900001"), 1, 2, C(QStringLiteral("7"))); }), 0);
        t.confirmar();
    }
    EXPECT_EQ(operaciones(), 1);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) || MIN(Cuenta) FROM Presupuestos_Cambios")).toString(), QStringLiteral("160000001"));
    ASSERT_NE(diario.ultima(), nullptr);
    EXPECT_EQ(diario.ultima()->filas.size(), 1u);

    if (bd.conexion->motor() == Motor::SQLite) {
        // A database that cannot grow: SQLite gives up the whole transaction.
        const int paginas = bd.valor(QStringLiteral("PRAGMA page_count")).toInt();
        bd.sql(QStringLiteral("PRAGMA max_page_count = %1").arg(paginas));
        const QStringList antes = bd.presupuestos();
        EXPECT_NE(numeroError([&] {
                      auto op = diario.operacion(Diario::Tipo::Pegado, QStringLiteral("pegar"));
                      Transaccion t(*bd.conexion);
                      store.ActualizacionManual(QStringLiteral("60000001"), 1, 3, C(QStringLiteral("8")));
                      for (int i = 0; i < 400; ++i)
                          store.ActualizacionManual(QStringLiteral("6100%1").arg(i, 4, 10, QLatin1Char('0')), 1, 3, C(QStringLiteral("8")));
                      t.confirmar();
                  }),
                  0);
        bd.sql(QStringLiteral("PRAGMA max_page_count = 1000000"));
        EXPECT_EQ(operaciones(), 1);
        EXPECT_EQ(bd.presupuestos(), antes);
        EXPECT_EQ(diario.ultima()->descripcion, QStringLiteral("pegar"));
    }
}

