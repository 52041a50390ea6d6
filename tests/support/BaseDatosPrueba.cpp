#include "BaseDatosPrueba.h"

#include "db/schema/DatosDemo.h"
#include "db/schema/Esquema.h"
#include "common/VbError.h"
#include "host/modPublic.h"

#include <QCoreApplication>
#include <QSqlError>
#include <QSqlField>
#include <QSqlQuery>
#include <QSqlRecord>
#include <atomic>
#include <stdexcept>

namespace presupuestos::prueba {

namespace {

const QString kPrefijoPg = QStringLiteral("postgresql:");

QString servidorPrueba() { return qEnvironmentVariable("PRESUPUESTOS_PRUEBA_PG"); }

// Creates and drops the tests' databases, on a connection to the server's
// own database (the one the connection string names).
void administrar(const QString& sentencia)
{
    const QString nombre = QStringLiteral("presupuestos_prueba_admin");
    QSqlDatabase db = QSqlDatabase::contains(nombre) ? QSqlDatabase::database(nombre)
                                                     : QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), nombre);
    if (!db.isOpen()) {
        db.setConnectOptions(servidorPrueba());
        if (!db.open())
            throw std::runtime_error(("PRESUPUESTOS_PRUEBA_PG: " + db.lastError().text()).toStdString());
        QSqlQuery(db).exec(QStringLiteral("SET client_min_messages = warning"));
    }
    QSqlQuery q(db);
    if (!q.exec(sentencia))
        throw std::runtime_error((q.lastError().text() + QStringLiteral(" in: ") + sentencia).toStdString());
}

} // namespace

bool BaseDatosPrueba::enPostgres() { return !servidorPrueba().isEmpty(); }

std::shared_ptr<Conexion> abrirDestino(const QString& destino)
{
    if (destino.startsWith(kPrefijoPg))
        return Conexion::abrirPostgres(destino.mid(kPrefijoPg.size()));
    return Conexion::abrirSqlite(destino);
}

std::shared_ptr<Conexion> BaseDatosPrueba::otraConexion() const { return abrirDestino(destino); }

BaseDatosPrueba::BaseDatosPrueba(bool conDatosDemo, const QString& fichero)
{
    if (enPostgres()) {
        static std::atomic<int> contador{0};
        nombrePg_ = QStringLiteral("prueba_%1_%2").arg(QCoreApplication::applicationPid()).arg(++contador);
        administrar(QStringLiteral("DROP DATABASE IF EXISTS %1 WITH (FORCE)").arg(nombrePg_));
        administrar(QStringLiteral("CREATE DATABASE %1").arg(nombrePg_));
        // The last of a keyword in a connection string is the one taken.
        destino = kPrefijoPg + servidorPrueba() + QStringLiteral(" dbname=") + nombrePg_;
        conexion = abrirDestino(destino);
    } else {
        destino = fichero;
        conexion = Conexion::abrirSqlite(fichero);
        conexion->asociarBaseDatos(QStringLiteral("Pelvor"), QStringLiteral(":memory:"));
    }
    if (conDatosDemo) {
        DatosDemo::generar(*conexion);
    } else {
        Esquema::crearGestion(*conexion);
        Esquema::crearRetail(*conexion, QStringLiteral("Pelvor"));
    }
    empresa = std::make_shared<EmpresaFija>(1, 2026);
    sesion = {empresa, conexion, 2027};
}

BaseDatosPrueba::~BaseDatosPrueba()
{
    sesion = {};
    // A worksheet opened through the host class left the connection in the host's slots.
    if (modPublic::ConexionActiva == conexion)
        modPublic::ConexionActiva.reset();
    if (modPublic::EmpresaActiva == empresa)
        modPublic::EmpresaActiva.reset();
    conexion.reset();
    if (!nombrePg_.isEmpty()) {
        try {
            // Connections a test left open (another user's) go with it.
            administrar(QStringLiteral("DROP DATABASE IF EXISTS %1 WITH (FORCE)").arg(nombrePg_));
        } catch (const std::exception&) {
        }
    }
}

void BaseDatosPrueba::sql(const QString& sentencia)
{
    // What the connection still holds back reaches the engine first.
    conexion->enviarLote();
    QSqlQuery q(conexion->baseDatos());
    if (!q.exec(sentencia))
        throw std::runtime_error((q.lastError().text() + QStringLiteral(" in: ") + sentencia).toStdString());
}

QVariant BaseDatosPrueba::valor(const QString& consulta)
{
    conexion->enviarLote();
    QSqlQuery q(conexion->baseDatos());
    if (!q.exec(consulta))
        throw std::runtime_error((q.lastError().text() + QStringLiteral(" in: ") + consulta).toStdString());
    if (!q.next())
        return QVariant();
    const QVariant v = q.value(0);
    // PostgreSQL gives a NUMERIC as its exact text ("4.0000"); a test reads
    // it as SQLite gives it: a whole number, or else a real.
    if (conexion->motor() == Motor::PostgreSQL && !v.isNull() && v.typeId() == QMetaType::QString
        && q.record().field(0).metaType().id() == QMetaType::Double) {
        const Currency c = Currency::fromVariant(v);
        if (c.raw() % Currency::Scale == 0)
            return QVariant(static_cast<qlonglong>(c.raw() / Currency::Scale));
        return QVariant(v.toDouble());
    }
    return v;
}

bool BaseDatosPrueba::existeTablaTemporal(const QString& nombre)
{
    conexion->enviarLote();
    QSqlQuery q(conexion->baseDatos());
    q.prepare(conexion->motor() == Motor::PostgreSQL
                  ? QStringLiteral("SELECT COUNT(*) FROM pg_class WHERE relname = ? AND relpersistence = 't' AND pg_table_is_visible(oid)")
                  : QStringLiteral("SELECT COUNT(*) FROM sqlite_temp_master WHERE name = ?"));
    q.addBindValue(nombre);
    if (!q.exec() || !q.next())
        throw std::runtime_error(q.lastError().text().toStdString());
    return q.value(0).toInt() > 0;
}

QString BaseDatosPrueba::sentenciaBloqueo()
{
    return enPostgres() ? QStringLiteral("BEGIN; LOCK TABLE Presupuestos IN EXCLUSIVE MODE") : QStringLiteral("BEGIN IMMEDIATE");
}

void BaseDatosPrueba::rechazar(const QString& evento, const QString& cuenta, const QString& mensaje, const QString& tabla)
{
    if (conexion->motor() != Motor::PostgreSQL) {
        sql(QStringLiteral("CREATE TRIGGER rechazo_%1 BEFORE %1 ON %4 WHEN NEW.Cuenta = '%2' "
                           "BEGIN SELECT RAISE(ABORT, '%3'); END")
                .arg(evento, cuenta, mensaje, tabla));
        return;
    }
    sql(QStringLiteral("CREATE FUNCTION rechazo_%1() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN "
                       "IF NEW.Cuenta = '%2' THEN RAISE EXCEPTION '%3'; END IF; RETURN NEW; END $$")
            .arg(evento, cuenta, mensaje));
    sql(QStringLiteral("CREATE TRIGGER rechazo_%1 BEFORE %1 ON %2 FOR EACH ROW EXECUTE FUNCTION rechazo_%1()").arg(evento, tabla));
}

void BaseDatosPrueba::soloLectura(Conexion& c)
{
    QSqlQuery q(c.baseDatos());
    const bool hecho = c.motor() == Motor::PostgreSQL ? q.exec(QStringLiteral("SET default_transaction_read_only = on"))
                                                       : q.exec(QStringLiteral("PRAGMA query_only = 1"));
    if (!hecho)
        throw std::runtime_error(q.lastError().text().toStdString());
}

QStringList BaseDatosPrueba::tomarRegistro()
{
    QStringList l(conexion->registro().begin(), conexion->registro().end());
    conexion->limpiarRegistro();
    return l;
}

QStringList BaseDatosPrueba::presupuestos()
{
    QStringList r;
    Recordset rs = conexion->Abrir(QStringLiteral("SELECT * FROM Presupuestos ORDER BY Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto"));
    while (!rs.eof()) {
        QStringList campos;
        for (int i = 0; i < rs.numeroCampos(); ++i)
            campos << rs.texto(i);
        r << campos.join(QLatin1Char('|'));
        rs.MoveNext();
    }
    return r;
}

QStringList BaseDatosPrueba::importesGuardados()
{
    QStringList filas;
    Recordset rs = conexion->Abrir(QStringLiteral("SELECT Cuenta, Dpto, M1, M2, M3, M4, M5, M6, M7, M8, M9, M10, M11, M12, "
                                                  "Metodo_Calculo, Modificacion_Manual, Valor, Ver FROM Presupuestos ORDER BY Cuenta, Dpto"));
    for (; !rs.eof(); rs.MoveNext()) {
        QString fila = rs.texto(0) + QLatin1Char('/') + rs.texto(1);
        for (int i = 2; i < 18; ++i)
            fila += QLatin1Char(' ') + rs.moneda(i).toSqlText();
        filas << fila;
    }
    return filas;
}

QStringList BaseDatosPrueba::presupuestoGuardado(const QString& cuenta, int dpto, int ejercicio)
{
    conexion->enviarLote();
    QSqlQuery q(conexion->baseDatos());
    q.prepare(QStringLiteral("SELECT M1, M2, M3, M4, M5, M6, M7, M8, M9, M10, M11, M12, Metodo_Calculo, Modificacion_Manual, "
                             "Valor, Ver FROM Presupuestos WHERE Cod_Empresa = 1 AND Cod_Ejercicio = ? AND Cuenta = ? AND Dpto = ?"));
    q.addBindValue(ejercicio);
    q.addBindValue(cuenta);
    q.addBindValue(dpto);
    QStringList l;
    if (q.exec() && q.next()) {
        for (int i = 0; i < 16; ++i)
            l << Currency::fromVariant(q.value(i)).toSqlText();
    }
    return l;
}

} // namespace presupuestos::prueba
