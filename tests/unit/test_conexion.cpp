#include "DiscoPrueba.h"
#include "BaseDatosPrueba.h"
#include "common/VbError.h"
#include "db/Conexion.h"

#include <QCoreApplication>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QDir>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace presupuestos;
using presupuestos::prueba::BaseDatosPrueba;
using presupuestos::prueba::errorDe;

TEST(Conexion, ForwardOnlyRecordsetByNameAndIndex)
{
    BaseDatosPrueba bd;
    bd.sql(QStringLiteral("INSERT INTO Departamentos VALUES (1, 1, 'Uno'), (1, 2, 'Dos')"));
    Recordset rs = bd.conexion->Abrir(QStringLiteral("SELECT Codigo, Nombre FROM Departamentos ORDER BY Codigo"));
    ASSERT_FALSE(rs.eof());
    EXPECT_EQ(rs.entero(0), 1);
    EXPECT_EQ(rs.texto(QStringLiteral("nombre")), QStringLiteral("Uno"));
    rs.MoveNext();
    EXPECT_EQ(rs.entero(QStringLiteral("Codigo")), 2);
    rs.MoveNext();
    EXPECT_TRUE(rs.eof());
    EXPECT_THROW(rs.campo(0), VbError);
    EXPECT_THROW(rs.MoveNext(), VbError);
    rs.Close();

    Recordset vacio = bd.conexion->Abrir(QStringLiteral("SELECT * FROM Departamentos WHERE Codigo = 99"));
    EXPECT_TRUE(vacio.eof());
}

TEST(Conexion, RecordsetFieldsReadAsTheQtDriverGivesThem)
{
    // The recordsets of an SQLite connection are read straight from the
    // engine; every kind of value must come out as the driver gives it, so
    // nothing that reads a field can tell the difference.
    BaseDatosPrueba bd;
    const QString consulta = QStringLiteral(
        "SELECT 7 AS Entero, -9223372036854775807 AS Grande, 1.25 AS Real, 'Año 2027 ''ñ''' AS Texto, NULL AS Nulo, "
        "%1 AS Bloque, '' AS Vacio, '12,5' AS Cifra, 0.1 + 0.2 AS Suma, 1e300 AS Enorme")
        // Each engine's bytes written so that T-SQL reads them too.
        .arg(bd.enPostgres() ? QStringLiteral("CAST('0000000011111111' AS BIT(16))") : QStringLiteral("zeroblob(2)"));
    Recordset rs = bd.conexion->Abrir(consulta);
    QSqlQuery q(bd.conexion->baseDatos());
    ASSERT_TRUE(q.exec(consulta));
    ASSERT_TRUE(q.next());
    ASSERT_FALSE(rs.eof());
    ASSERT_EQ(rs.numeroCampos(), q.record().count());
    for (int i = 0; i < rs.numeroCampos(); ++i) {
        const QVariant qt = q.value(i), propio = rs.campo(i);
        SCOPED_TRACE(q.record().fieldName(i).toStdString());
        EXPECT_EQ(propio.metaType(), qt.metaType());
        EXPECT_EQ(propio.isNull(), qt.isNull());
        EXPECT_EQ(propio, qt);
        EXPECT_EQ(rs.texto(i), qt.toString());
        EXPECT_EQ(rs.indiceCampo(q.record().fieldName(i).toLower()), i);
        bool errorPropio = false, errorQt = false;
        Currency a, b;
        try { a = rs.moneda(i); } catch (const VbError&) { errorPropio = true; }
        try { b = Currency::fromVariant(qt); } catch (const VbError&) { errorQt = true; }
        EXPECT_EQ(errorPropio, errorQt);
        EXPECT_EQ(a, b);
    }
}

TEST(Conexion, ARecordsetThatFailsHalfWayRaisesInsteadOfEndingEarly)
{
    // A load that stopped at the failing row as if the rows had ended would
    // show part of a year as the whole of it.
    BaseDatosPrueba bd;
    bd.sql(QStringLiteral("INSERT INTO Departamentos VALUES (1, 1, 'Uno'), (1, 2, 'Dos'), (1, 3, 'Tres')"));
    const QString sql = QStringLiteral(
        "SELECT CASE WHEN Codigo = 3 THEN abs(-9223372036854775807 - 1) ELSE Codigo END AS C FROM Departamentos");
    if (bd.enPostgres()) {
        // The server computes every row before it answers: the failing row
        // fails the opening, and no row is ever taken for the last.
        const VbError e = errorDe([&] { bd.conexion->Abrir(sql); });
        EXPECT_EQ(e.number(), VbError::DatabaseError);
        EXPECT_TRUE(e.description().contains(QStringLiteral("out of range"))) << e.description().toStdString();
        return;
    }
    Recordset rs = bd.conexion->Abrir(sql);
    EXPECT_EQ(rs.entero(0), 1);
    rs.MoveNext();
    EXPECT_EQ(rs.entero(0), 2);
    const VbError e = errorDe([&] { rs.MoveNext(); });
    EXPECT_EQ(e.number(), VbError::DatabaseError) << "the failing row was taken for the end";
    EXPECT_TRUE(e.description().contains(QStringLiteral("overflow"))) << e.description().toStdString();
}

TEST(Conexion, EngineErrorsAndBadPathsSurfaceWithTheirText)
{
    BaseDatosPrueba bd;
    const VbError e = errorDe([&] { bd.conexion->Execute(QStringLiteral("SELECT * FROM NoExiste")); });
    EXPECT_EQ(e.number(), VbError::DatabaseError);
    EXPECT_TRUE(e.description().contains(QStringLiteral("NoExiste"))) << e.description().toStdString();
    EXPECT_THROW(bd.conexion->Abrir(QStringLiteral("SELEC 1")), VbError);

    EXPECT_TRUE(errorDe([] { Conexion::abrirSqlite(QStringLiteral("/no/existe/presupuestos.db")); })
                    .description()
                    .contains(QStringLiteral("/no/existe/presupuestos.db")));
    QTemporaryDir dir;
    QFile f(dir.filePath(QStringLiteral("basura.db")));
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(QByteArray(4096, 'x'));
    f.close();
    EXPECT_THROW(Conexion::abrirSqlite(f.fileName()), VbError);
}

TEST(Conexion, PreparedCommandConvertsParametersToDeclaredTypes)
{
    BaseDatosPrueba bd;
    Comando cmd(bd.conexion);
    cmd.setCommandText(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1, M2, Ver) VALUES (1, ?, ?, ?, ?, ?, ?)"));
    cmd.agregarParametro(QStringLiteral("Cod_Ejercicio"), TipoParametro::Entero);
    cmd.agregarParametro(QStringLiteral("Cuenta"), TipoParametro::Texto, 12);
    cmd.agregarParametro(QStringLiteral("Dpto"), TipoParametro::Entero);
    cmd.agregarParametro(QStringLiteral("M1"), TipoParametro::Entero);
    cmd.agregarParametro(QStringLiteral("M2"), TipoParametro::Moneda);
    cmd.agregarParametro(QStringLiteral("Ver"), TipoParametro::Booleano);
    cmd.setPrepared(true);

    const Currency v = prueba::monedaPlana(QStringLiteral("10.75"));
    for (int dpto = 1; dpto <= 3; ++dpto) {
        cmd.setValor(0, 2027);
        cmd.setValor(1, QStringLiteral("70000001"));
        cmd.setValor(2, dpto);
        cmd.setValor(3, v);     // a currency into a 32-bit integer: halves to even
        cmd.setValor(4, v);
        cmd.setValor(5, dpto != 2);
        EXPECT_EQ(cmd.Execute(), 1);
    }
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT M1 FROM Presupuestos WHERE Dpto = 1")).toDouble(), 11.0);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT M2 FROM Presupuestos WHERE Dpto = 1")).toDouble(), 10.75);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT Ver FROM Presupuestos WHERE Dpto = 2")).toInt(), 0);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos")).toInt(), 3);
    // The text is logged once, when it is prepared.
    int veces = 0;
    for (const auto& t : bd.conexion->registro())
        veces += t == cmd.commandText();
    EXPECT_EQ(veces, 1);

    cmd.setValor(3, prueba::monedaPlana(QStringLiteral("10.5")));
    EXPECT_EQ(cmd.valor(3).toInt(), 10);
}

TEST(Conexion, PreparedCommandKeepsTheEngineErrorAndNulls)
{
    BaseDatosPrueba bd;
    Comando cmd(bd.conexion);
    cmd.setCommandText(QStringLiteral("INSERT INTO Presupuestos_Conceptos (Codigo, Nombre) VALUES (?, ?)"));
    cmd.agregarParametro(QStringLiteral("Codigo"), TipoParametro::Texto, 12);
    cmd.agregarParametro(QStringLiteral("Nombre"), TipoParametro::Texto, 200);
    cmd.setPrepared(true);
    cmd.setValor(0, QStringLiteral("C1"));
    cmd.setValor(1, QStringLiteral(""));
    EXPECT_EQ(cmd.Execute(), 1);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos_Conceptos WHERE Nombre = ''")).toInt(), 1);
    // The same key again: the engine's words, and the cause the import retries on.
    VbError e = errorDe([&] { cmd.Execute(); });
    EXPECT_EQ(e.number(), VbError::DatabaseError);
    EXPECT_EQ(e.causa(), VbError::Causa::ClaveDuplicada);
    EXPECT_TRUE(e.description().startsWith(bd.enPostgres() ? QStringLiteral("ERROR:  duplicate key value violates unique constraint")
                                                           : QStringLiteral("UNIQUE constraint failed")))
        << e.description().toStdString();
    // A null text is sent as a null, which the column refuses; the command
    // still runs afterwards.
    cmd.setValor(0, QStringLiteral("C2"));
    cmd.setValor(1, QVariant(QString()));
    e = errorDe([&] { cmd.Execute(); });
    EXPECT_EQ(e.causa(), VbError::Causa::Ninguna);
    EXPECT_TRUE(e.description().startsWith(bd.enPostgres() ? QStringLiteral("ERROR:  null value in column")
                                                           : QStringLiteral("NOT NULL constraint failed")))
        << e.description().toStdString();
    EXPECT_FALSE(cmd.valor(1).isNull());
    cmd.setValor(1, QVariant());
    EXPECT_TRUE(cmd.valor(1).isNull());
    EXPECT_THROW(cmd.Execute(), VbError);
    cmd.setValor(1, QStringLiteral("Dos"));
    EXPECT_EQ(cmd.Execute(), 1);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT Nombre FROM Presupuestos_Conceptos WHERE Codigo = 'C2'")).toString(),
              QStringLiteral("Dos"));

    // A text longer than its declared size is refused when bound, naming the
    // parameter and its size; so is a parameter the command does not have.
    e = errorDe([&] { cmd.setValor(0, QStringLiteral("C123456789012")); });
    EXPECT_TRUE(e.description().contains(QStringLiteral("Codigo")) && e.description().contains(QStringLiteral("12")))
        << e.description().toStdString();
    cmd.setValor(0, QStringLiteral("C12345678901"));
    EXPECT_THROW(cmd.setValor(2, 1), VbError);
}

TEST(Conexion, OnlyMarkersOutsideQuotesAreParameters)
{
    BaseDatosPrueba bd;
    Comando cmd(bd.conexion);
    const QString texto = QStringLiteral("INSERT INTO Departamentos VALUES (?, ?, '¿a?'' b: [c?] \"d?\"')");
    cmd.setCommandText(texto);
    cmd.agregarParametro(QStringLiteral("Cod_Empresa"), TipoParametro::Entero);
    cmd.agregarParametro(QStringLiteral("Codigo"), TipoParametro::Entero);
    cmd.setPrepared(true);
    for (int codigo = 1; codigo <= 2; ++codigo) {
        cmd.setValor(0, 7);
        cmd.setValor(1, codigo);
        EXPECT_EQ(cmd.Execute(), 1);
    }
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT Nombre FROM Departamentos WHERE Codigo = 2")).toString(),
              QStringLiteral("¿a?' b: [c?] \"d?\""));
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Departamentos WHERE Cod_Empresa = 7")).toInt(), 2);
}

TEST(Conexion, AsynchronousStatementRunsBeforeTheNextOneOrOnTheEventLoop)
{
    BaseDatosPrueba bd;
    auto& c = *bd.conexion;
    c.Execute(QStringLiteral("INSERT INTO Departamentos VALUES (1, 1, 'Uno')"), Conexion::adAsyncExecute);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Departamentos")).toInt(), 0);
    Recordset rs = c.Abrir(QStringLiteral("SELECT COUNT(*) FROM Departamentos"));
    EXPECT_EQ(rs.entero(0), 1);
    rs.Close();

    c.Execute(QStringLiteral("INSERT INTO Departamentos VALUES (1, 2, 'Dos')"), Conexion::adAsyncExecute);
    QCoreApplication::processEvents();
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Departamentos")).toInt(), 2);

    c.Execute(QStringLiteral("INSERT INTO NoExiste VALUES (1)"), Conexion::adAsyncExecute);
    c.completarPendientes();
    EXPECT_FALSE(c.ultimoErrorAsincrono().isEmpty());
}

TEST(Conexion, APreparedQueryOpensAgainWithOtherValuesAndWhileStillBeingRead)
{
    BaseDatosPrueba bd;
    bd.sql(QStringLiteral("INSERT INTO Departamentos VALUES (1, 1, 'Uno'), (1, 2, 'D''Angelo'), (2, 1, 'Otro')"));
    Consulta q(bd.conexion, QStringLiteral("SELECT Codigo, Nombre FROM Departamentos WHERE Cod_Empresa = ? AND Nombre <> ? ORDER BY Codigo"));
    bd.tomarRegistro();
    Recordset a = q.Abrir({QVariant(1), QVariant(QStringLiteral("Uno"))});
    ASSERT_FALSE(a.eof());
    EXPECT_EQ(a.texto(1), QStringLiteral("D'Angelo"));
    // The first recordset is still open: the second reads on its own.
    Recordset b = q.Abrir({QVariant(1), QVariant(QStringLiteral("nadie"))});
    EXPECT_EQ(b.entero(0), 1);
    b.MoveNext();
    EXPECT_EQ(b.entero(0), 2);
    b.MoveNext();
    EXPECT_TRUE(b.eof());
    a.MoveNext();
    EXPECT_TRUE(a.eof());
    a.Close();
    b.Close();
    Recordset c = q.Abrir({QVariant(2), QVariant()});
    EXPECT_TRUE(c.eof());   // nothing is unequal to null
    c.Close();
    // Logged as composed, once per opening.
    EXPECT_EQ(bd.tomarRegistro().size(), 3);
}

// A statement that fails inside a transaction stops nothing else: what came
// before and what comes after commit together (PostgreSQL aborts the whole
// transaction unless the connection goes back to the statement's savepoint).
TEST(Conexion, AFailedStatementInATransactionLeavesTheRestToCommit)
{
    BaseDatosPrueba bd;
    bd.sql(QStringLiteral("INSERT INTO Departamentos VALUES (1, 1, 'Uno'), (1, 2, 'Dos')"));
    auto& c = *bd.conexion;
    c.BeginTrans();
    EXPECT_EQ(c.Execute(QStringLiteral("UPDATE Departamentos SET Nombre = 'Uno bis' WHERE Codigo = 1")), 1);
    EXPECT_EQ(errorDe([&] { c.Execute(QStringLiteral("INSERT INTO Departamentos VALUES (1, 2, 'Otra vez')")); }).causa(),
              VbError::Causa::ClaveDuplicada);
    EXPECT_EQ(c.Execute(QStringLiteral("UPDATE Departamentos SET Nombre = 'Dos bis' WHERE Codigo IN (2, 3)")), 1);
    EXPECT_EQ(c.Execute(QStringLiteral("UPDATE Departamentos SET Nombre = Nombre WHERE Codigo > 0")), 2);
    c.CommitTrans();
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT Nombre FROM Departamentos WHERE Codigo = 1")).toString(), QStringLiteral("Uno bis"));
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT Nombre FROM Departamentos WHERE Codigo = 2")).toString(), QStringLiteral("Dos bis"));
}

// The rows of a worksheet's temporary table are there for the next
// statement, whatever it is, even when the server receives them together.
TEST(Conexion, RowsForATemporaryTableAreThereForTheNextStatement)
{
    BaseDatosPrueba bd;
    auto& c = *bd.conexion;
    const QString tabla = QStringLiteral("##PresupFiltroCuentas_1_5");
    c.Execute(QStringLiteral("CREATE TABLE ") + tabla + QStringLiteral(" ([Codigo] INT, Cuenta [VARCHAR](12))"));
    for (int i = 1; i <= 3; ++i)
        c.Execute(QStringLiteral("INSERT INTO ") + tabla + QStringLiteral(" SELECT %1, '7000000%1'").arg(i));
    Recordset rs = c.Abrir(QStringLiteral("SELECT COUNT(*), MAX(Cuenta) FROM ") + tabla);
    EXPECT_EQ(rs.entero(0), 3);
    EXPECT_EQ(rs.texto(1), QStringLiteral("70000003"));
    rs.Close();
    c.Execute(QStringLiteral("INSERT INTO ") + tabla + QStringLiteral(" SELECT 4, 'x'"));
    EXPECT_EQ(c.Execute(QStringLiteral("DELETE FROM ") + tabla + QStringLiteral(" WHERE Codigo > 0")), 4);
    // A failure among them is reported by the statement that sends them.
    c.Execute(QStringLiteral("INSERT INTO ") + tabla + QStringLiteral(" SELECT 'no es un número', 'x'"));
    c.Execute(QStringLiteral("INSERT INTO ") + tabla + QStringLiteral(" SELECT 5, 'y'"));
    if (bd.enPostgres()) {
        EXPECT_THROW(c.Abrir(QStringLiteral("SELECT COUNT(*) FROM ") + tabla), VbError);
    }
}

// A full disk and a statement cancelled for taking too long are said in
// Spanish first, the engine's words after.
TEST(Conexion, AFullDiskAndATimeoutAreSaidBeforeTheEnginesText)
{
    const auto error = [](Conexion& c, const QString& sql) { return errorDe([&] { c.Execute(sql); }).description(); };
    if (BaseDatosPrueba::enPostgres()) {
        BaseDatosPrueba bd;
        bd.sql(QStringLiteral("SET statement_timeout = 50"));
        const QString e = error(*bd.conexion, QStringLiteral("SELECT pg_sleep(2)"));
        EXPECT_TRUE(e.startsWith(QStringLiteral("La base de datos ha tardado más de lo permitido y ha cancelado la operación.\r\n"))
                    && e.contains(QStringLiteral("statement timeout")))
            << e.toStdString();
        return;
    }
    if (::geteuid() != 0)
        GTEST_SKIP() << "a full disk is a small file system mounted for the test, which needs root";
    prueba::DiscoPequeno disco("256k");
    ASSERT_TRUE(disco.montado()) << disco.error();
    auto c = Conexion::abrirSqlite(disco.filePath(QStringLiteral("lleno.db")));
    c->Execute(QStringLiteral("CREATE TABLE Relleno (Datos BLOB)"));
    QString e;
    for (int i = 0; i < 100 && e.isEmpty(); ++i)
        e = error(*c, QStringLiteral("INSERT INTO Relleno VALUES (randomblob(50000))"));
    EXPECT_TRUE(e.startsWith(QStringLiteral("No queda espacio en el disco de la base de datos.\r\n")) && e.contains(QStringLiteral("full")))
        << e.toStdString();
}
