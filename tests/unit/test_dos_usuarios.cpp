// Two users on one database, each with a connection of its own: what one
// stores while the other holds the row in an open transaction waits for it
// and is stored on top of it, never instead of it. The other user works on
// a thread of its own, as its connection must be used where it was opened.

#include "BaseDatosPrueba.h"
#include "calculation/clsPresupItem.h"
#include "common/VbError.h"
#include "store/Diario.h"
#include "store/clsDBPresupuesto.h"

#include <QSqlQuery>
#include <QTemporaryDir>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

using namespace presupuestos;
using namespace presupuestos::prueba;

namespace {

Currency C(const QString& texto) { return monedaPlana(texto); }

// The other user: opens its own connection on a thread, runs what it is
// given there and keeps the error it met, if any.
class OtroUsuario {
public:
    OtroUsuario(const QString& destino, std::function<void(Conexion&)> trabajo)
        : hilo_([this, destino, trabajo = std::move(trabajo)] {
              try {
                  auto c = abrirDestino(destino);
                  empezado_ = true;
                  trabajo(*c);
              } catch (const VbError& e) {
                  error_ = e.description();
              } catch (const std::exception& e) {
                  error_ = QString::fromUtf8(e.what());
              }
              empezado_ = true;
              terminado_ = true;
          })
    {
    }
    ~OtroUsuario()
    {
        if (hilo_.joinable())
            hilo_.join();
    }
    // Waits until it has its connection and is about to work (or has
    // already failed).
    void esperarInicio()
    {
        while (!empezado_)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    // For work that says when it reached a point: it did, or it ended.
    void esperar(const std::atomic<bool>& punto)
    {
        while (!punto && !terminado_)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    QString terminar()
    {
        hilo_.join();
        return error_;
    }

private:
    std::atomic<bool> empezado_{false};
    std::atomic<bool> terminado_{false};
    QString error_;
    std::thread hilo_;
};

// The store's own text for a typed month (ActualizacionManual's update).
QString tecleo(const QString& cuenta, int dpto, int mes, const QString& importe)
{
    return QStringLiteral("UPDATE Presupuestos  SET M%1 = %2, Modificacion_Manual |= %3 WHERE Cod_Empresa = 1 AND Cod_Ejercicio = 2027"
                          " AND Cuenta = '%4' AND Dpto = %5")
        .arg(mes)
        .arg(importe)
        .arg(1 << (mes - 1))
        .arg(cuenta)
        .arg(dpto);
}

void pausa() { std::this_thread::sleep_for(std::chrono::milliseconds(300)); }

// A company in a file another connection can open, and this user's store.
class DosUsuarios : public ::testing::Test {
protected:
    QTemporaryDir dir;
    BaseDatosPrueba bd{false, dir.filePath(QStringLiteral("empresa.db"))};
    clsDBPresupuesto store{bd.sesion};

    // Stores with this user's store in a transaction that still holds the
    // row when the other user types a month into it, then commits.
    void mientrasOtroTeclea(const std::function<void()>& guardar, const QString& cuenta, int dpto, int mes, const QString& importe)
    {
        std::unique_ptr<OtroUsuario> otro;
        {
            Transaccion t(*bd.conexion);
            guardar();
            otro = std::make_unique<OtroUsuario>(bd.destino, [=](Conexion& c) {
                EXPECT_EQ(c.Execute(tecleo(cuenta, dpto, mes, importe)), 1);
            });
            otro->esperarInicio();
            pausa();
            t.confirmar();
        }
        EXPECT_EQ(otro->terminar(), QString());
    }
};

} // namespace

TEST_F(DosUsuarios, DifferentMonthsOfOneRowBothStay)
{
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1) VALUES (1, 2027, '62800001', 2, 5)"));
    // The other user types March of the same row.
    mientrasOtroTeclea([&] { store.ActualizacionManual(QStringLiteral("62800001"), 2, 1, C(QStringLiteral("10"))); },
                       QStringLiteral("62800001"), 2, 3, QStringLiteral("30"));
    const QStringList fila = bd.presupuestoGuardado(QStringLiteral("62800001"), 2);
    ASSERT_FALSE(fila.isEmpty());
    EXPECT_EQ(campos(fila, {0, 2, 13}), (QStringList{"10", "30", "5"})) << "both months marked as typed";
}

// The other user creates the row first and commits while this one's insert
// waits on its key: the insert meets the key and the month is stored by
// updating the row the other user made, in the same transaction.
TEST_F(DosUsuarios, TheSameNewRowAtOnceLosesNoMonth)
{
    std::atomic<bool> insertado{false};
    OtroUsuario otro(bd.destino, [&insertado](Conexion& c) {
        c.BeginTrans();
        c.Execute(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M2, Modificacion_Manual) "
                                 "VALUES (1, 2027, '70000009', 4, 20, 2)"));
        insertado = true;
        pausa();
        c.CommitTrans();
    });
    otro.esperar(insertado);
    ASSERT_TRUE(insertado) << otro.terminar().toStdString();
    {
        Transaccion t(*bd.conexion);
        store.ActualizacionManual(QStringLiteral("70000009"), 4, 1, C(QStringLiteral("10")));
        // What the transaction stored before and after the key stays to commit.
        store.ActualizacionManual(QStringLiteral("70000009"), 4, 6, C(QStringLiteral("60")));
        t.confirmar();
    }
    EXPECT_EQ(otro.terminar(), QString());
    const QStringList fila = bd.presupuestoGuardado(QStringLiteral("70000009"), 4);
    ASSERT_FALSE(fila.isEmpty());
    EXPECT_EQ(campos(fila, {0, 1, 5, 13}), (QStringList{"10", "20", "60", "35"}));
}

// A method applied here re-stores a row planned on sales while the other
// user types a month into it: the typed month goes on top of the method's
// row once it commits, and both are there.
TEST_F(DosUsuarios, AMethodAppliedWhileAnotherUserTypesInADependentRowLosesNeither)
{
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, Metodo_Calculo, Valor) "
                          "VALUES (1, 2027, '60000001', 1, 6, 52)"));
    clsPresupItem dependiente;
    dependiente.Cuenta = QStringLiteral("60000001");
    dependiente.Dpto = 1;
    for (int m = 0; m < 12; ++m)
        dependiente.setMes(m, C(QString::number(100 + m)));
    dependiente.MetodoCalc = 6;
    dependiente.Valor = C(QStringLiteral("52"));
    mientrasOtroTeclea([&] { store.Actualizar(dependiente); }, QStringLiteral("60000001"), 1, 4, QStringLiteral("7.25"));
    const QStringList fila = bd.presupuestoGuardado(QStringLiteral("60000001"), 1);
    ASSERT_FALSE(fila.isEmpty());
    EXPECT_EQ(campos(fila, {0, 3, 11, 12, 13}), (QStringList{"100", "7.25", "111", "6", "8"}));
}

// A row another user holds in an open transaction: the edit waits a while,
// then says the database is locked by another user, and stores nothing.
TEST_F(DosUsuarios, ARowLockedByAnotherUserWaitsThenReports)
{
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1) VALUES (1, 2027, '62800001', 2, 5)"));
    bd.conexion->setEsperaBloqueo(100);
    auto otro = bd.otraConexion();
    otro->BeginTrans();
    otro->Execute(QStringLiteral("UPDATE Presupuestos SET M2 = 1 WHERE Cuenta = '62800001'"));
    const VbError e = errorDe([&] { store.ActualizacionManual(QStringLiteral("62800001"), 2, 1, C(QStringLiteral("10"))); });
    EXPECT_EQ(e.causa(), VbError::Causa::Bloqueada) << "stored over another user's open transaction";
    EXPECT_TRUE(e.description().startsWith(QStringLiteral("La base de datos está bloqueada por otro usuario."))) << e.description().toStdString();
    otro->RollbackTrans();
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("62800001"), 2).at(0), QStringLiteral("5"));
    // Once the other user is done, the same edit goes through.
    store.ActualizacionManual(QStringLiteral("62800001"), 2, 1, C(QStringLiteral("10")));
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("62800001"), 2).at(0), QStringLiteral("10"));
}

// The other user changes a row in a transaction still open when this user
// writes it (a month of its own) or undoes a change to it. What this user
// reads to decide and to journal is read only once the row is its own: the
// undo sees the other user's figure and refuses, and a month typed here is
// undone without taking the other user's month with it.
TEST_F(DosUsuarios, WhatAWriteDependsOnIsReadOnlyOnceTheRowIsLocked)
{
    struct Caso {
        const char* nombre;
        bool deshacerAlFinal;  // false: undo while the other user is changing the row
    };
    for (const Caso& caso : {Caso{"undo meets another user's open change", false},
                             Caso{"a typed month meets another user's open change", true}}) {
        SCOPED_TRACE(caso.nombre);
        QTemporaryDir dir;
        BaseDatosPrueba bd(false, dir.filePath(QStringLiteral("empresa.db")));
        clsDBPresupuesto store(bd.sesion);
        Diario diario(bd.conexion, 1);
        store.setDiario(&diario);
        const auto restaurar = [&store](const QString& c, qint16 d, qint16 e, const Diario::Imagen& im) { store.Restaurar(c, d, e, im); };
        store.ActualizacionManual(QStringLiteral("62800001"), 2, 1, C(QStringLiteral("10")));
        std::atomic<bool> cambiado{false};
        OtroUsuario otro(bd.destino, [&cambiado](Conexion& c) {
            c.BeginTrans();
            c.Execute(tecleo(QStringLiteral("62800001"), 2, 2, QStringLiteral("20")));
            cambiado = true;
            pausa();
            c.CommitTrans();
        });
        otro.esperar(cambiado);
        ASSERT_TRUE(cambiado) << otro.terminar().toStdString();
        if (!caso.deshacerAlFinal) {
            // Checked against the row as the other user leaves it: February is not as the step left it.
            EXPECT_THROW(diario.deshacer(restaurar), ConflictoDiario);
            EXPECT_EQ(otro.terminar(), QString());
            EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("62800001"), 2).mid(0, 2), (QStringList{"10", "20"}));
            continue;
        }
        store.ActualizacionManual(QStringLiteral("62800001"), 2, 3, C(QStringLiteral("30")));
        EXPECT_EQ(otro.terminar(), QString());
        diario.deshacer(restaurar);
        EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("62800001"), 2).mid(0, 3), (QStringList{"10", "20", "0"}))
            << "the undo of March keeps the other user's February";
    }
}


// Two writers lock each other's row (another program's, not in the
// worksheet's key order): the server breaks the cycle by failing one; the
// worksheet's operation chosen for it is run again, whole, once the other
// is through, and both writes stay.
TEST_F(DosUsuarios, AnOperationChosenToBreakADeadlockRunsAgainWhole)
{
    if (!BaseDatosPrueba::enPostgres())
        GTEST_SKIP() << "SQLite has one writer at a time: nothing to deadlock";
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto) VALUES (1, 2027, '62800001', 1), (1, 2027, '62800002', 1)"));
    const auto fijar = [](Conexion& c, const char* cuenta, int mes, int valor) {
        c.Execute(QStringLiteral("UPDATE Presupuestos SET M%1 = %2 WHERE Cuenta = '%3'").arg(mes).arg(valor).arg(QLatin1String(cuenta)));
    };
    int intentos = 0;
    std::unique_ptr<OtroUsuario> otro;
    std::atomic<bool> tieneLaSegunda{false};
    repetirTrasInterbloqueo(*bd.conexion, [&] {
        ++intentos;
        Transaccion t(*bd.conexion);
        fijar(*bd.conexion, "62800001", 1, 10);
        if (!otro) {
            otro = std::make_unique<OtroUsuario>(bd.destino, [&](Conexion& c) {
                c.BeginTrans();
                fijar(c, "62800002", 2, 20);
                tieneLaSegunda = true;
                // Only once this user waits for the row: the one that waits
                // first is the one the server fails.
                for (int i = 0; i < 500; ++i) {
                    Recordset rs = c.Abrir(QStringLiteral("SELECT COUNT(*) FROM pg_stat_activity WHERE wait_event_type = 'Lock' "
                                                          "AND datname = current_database()"));
                    if (rs.entero(0) > 0)
                        break;
                    std::this_thread::sleep_for(std::chrono::milliseconds(10));
                }
                pausa();
                fijar(c, "62800001", 2, 20);
                c.CommitTrans();
            });
            otro->esperar(tieneLaSegunda);
        }
        fijar(*bd.conexion, "62800002", 1, 10);
        t.confirmar();
    });
    EXPECT_EQ(otro->terminar(), QString());
    EXPECT_EQ(intentos, 2);
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("62800001"), 1).mid(0, 2), (QStringList{"10", "20"}));
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("62800002"), 1).mid(0, 2), (QStringList{"10", "20"}));
}

// A row of a batch whose lock is refused (another user holds it too long)
// stops the batch, which rolls back; run again, the same operation reads
// that row as new and journals every row with what it was and became.
TEST_F(DosUsuarios, ARowWhoseLockWasRefusedIsReadAsNewWhenTheBatchRunsAgain)
{
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1) VALUES (1, 2027, '62800001', 1, 1), (1, 2027, '62800002', 1, 1)"));
    Diario diario(bd.conexion, 1);
    store.setDiario(&diario);
    bd.conexion->setEsperaBloqueo(100);
    const auto lote = [&] {
        Transaccion t(*bd.conexion);
        store.ActualizacionManual(QStringLiteral("62800001"), 1, 2, C(QStringLiteral("5")));
        store.ActualizacionManual(QStringLiteral("62800002"), 1, 2, C(QStringLiteral("5")));
        t.confirmar();
    };
    {
        auto op = diario.operacion(Diario::Tipo::Pegado, QStringLiteral("pegar"));
        auto otro = bd.otraConexion();
        QSqlQuery bloqueo(otro->baseDatos());
        // On SQLite the whole file is the lock, taken when the batch begins.
        ASSERT_TRUE(bloqueo.exec(bd.conexion->motor() == Motor::PostgreSQL
                                     ? QStringLiteral("BEGIN; UPDATE Presupuestos SET M3 = 3 WHERE Cuenta = '62800002'")
                                     : BaseDatosPrueba::sentenciaBloqueo()));
        EXPECT_NE(numeroError(lote), 0);
        ASSERT_TRUE(bloqueo.exec(QStringLiteral("ROLLBACK")));
        lote();
    }
    ASSERT_NE(diario.ultima(), nullptr);
    ASSERT_EQ(diario.ultima()->filas.size(), 2u);
    for (const Diario::Fila& f : diario.ultima()->filas) {
        EXPECT_EQ(f.antes.meses[1], Currency()) << f.cuenta.toStdString();
        EXPECT_EQ(f.despues.meses[1], C(QStringLiteral("5"))) << f.cuenta.toStdString();
    }
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos_Cambios")).toInt(), 2);
}
