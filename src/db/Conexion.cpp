#include "db/Conexion.h"
#include "db/Sql.h"

#include "common/VbError.h"
#include "db/DialectoPostgres.h"
#include "db/DialectoSqlite.h"

#include <QDate>
#include <QDateTime>
#include <QTime>
#include <QFile>
#include <QFileInfo>
#include <QDir>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlRecord>
#include <QTimer>
#include <QUrl>
#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QRegularExpression>
#include <QSet>
#include <algorithm>
#include <chrono>
#include <thread>
#include <atomic>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <optional>
#include <libpq-fe.h>
#include <unistd.h>
#include <sqlite3.h>

namespace presupuestos {

namespace {

constexpr std::size_t kMaxRegistro = 20000;

// A composed text with what changes from one run to the next made alike:
// literals, numbers, and the stamps in temporary tables' names.
QString formaSentencia(const QString& sql)
{
    static const QRegularExpression cifras(QStringLiteral("\\d+"));
    QString f;
    for (const TokenSql& t : tokens::tokenizar(sql)) {
        if (t.tipo == TokenSql::Tipo::Literal)
            f += QStringLiteral("''");
        else if (t.tipo == TokenSql::Tipo::Numero || tokens::esTemporal(t))
            f += QString(t.texto).replace(cifras, QStringLiteral("0"));
        else if (t.tipo == TokenSql::Tipo::Espacio)
            f += QLatin1Char(' ');
        else
            f += t.texto;
    }
    return f;
}

void grabarForma(const QString& sql)
{
    static const QString carpeta = qEnvironmentVariable("PRESUPUESTOS_SENTENCIAS");
    if (carpeta.isEmpty())
        return;
    static std::mutex cerrojo;
    static QSet<QString> vistas;
    const std::lock_guard<std::mutex> l(cerrojo);
    const QString forma = formaSentencia(sql);
    if (vistas.contains(forma))
        return;
    vistas.insert(forma);
    // Whoever composed it, to say where a failing text comes from: the
    // test a process runs (as its command line names it), or the program.
    QString origen;
    QFile linea(QStringLiteral("/proc/self/cmdline"));
    if (linea.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> argumentos = linea.readAll().split('\0');
        origen = QFileInfo(QString::fromLocal8Bit(argumentos.value(0))).fileName();
        for (const QByteArray& a : argumentos)
            if (a.startsWith("--gtest_filter="))
                origen = QString::fromLocal8Bit(a.mid(15));
    }
    QDir().mkpath(carpeta);
    QFile f(QDir(carpeta).filePath(QString::number(::getpid()) + QStringLiteral(".jsonl")));
    if (!f.open(QIODevice::WriteOnly | QIODevice::Append))
        return;
    const QJsonObject o{{QStringLiteral("forma"), forma}, {QStringLiteral("texto"), sql}, {QStringLiteral("prueba"), origen}};
    f.write(QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n');
}

QString nuevoNombreConexion()
{
    static std::atomic<int> contador{0};
    return QStringLiteral("presupuestos_%1").arg(++contador);
}

// SQL Server's LEN: characters without the trailing blanks.
void funcionLen(sqlite3_context* ctx, int, sqlite3_value** argv)
{
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    const auto* texto = reinterpret_cast<const char*>(sqlite3_value_text(argv[0]));
    QString s = QString::fromUtf8(texto ? texto : "");
    int n = static_cast<int>(s.size());
    while (n > 0 && s[n - 1] == QLatin1Char(' '))
        --n;
    sqlite3_result_int(ctx, n);
}

QDate leerFecha(sqlite3_value* v)
{
    const auto* texto = reinterpret_cast<const char*>(sqlite3_value_text(v));
    if (!texto)
        return {};
    const QString s = QString::fromUtf8(texto).left(10);
    return QDate::fromString(s, Qt::ISODate);
}

void funcionMonth(sqlite3_context* ctx, int, sqlite3_value** argv)
{
    const QDate d = leerFecha(argv[0]);
    if (!d.isValid()) sqlite3_result_null(ctx);
    else sqlite3_result_int(ctx, d.month());
}

void funcionYear(sqlite3_context* ctx, int, sqlite3_value** argv)
{
    const QDate d = leerFecha(argv[0]);
    if (!d.isValid()) sqlite3_result_null(ctx);
    else sqlite3_result_int(ctx, d.year());
}

QString textoError(const QSqlError& e)
{
    QString t = e.databaseText().trimmed();
    if (t.isEmpty())
        t = e.text().trimmed();
    if (t.isEmpty())
        t = QStringLiteral("Error desconocido de la base de datos.");
    // Failures a user meets whatever the figures: said first in Spanish,
    // from the code (SQLite's result, PostgreSQL's SQLSTATE, SQL Server's
    // number or ODBC's state), with the engine's words after.
    const QString codigo = e.nativeErrorCode();
    bool numero = false;
    const int n = codigo.toInt(&numero);
    // Qt's driver gives no code for a failed commit: the engine's words then.
    if (codigo == QLatin1String("53100") || (numero && codigo.size() < 5 && (n & 0xff) == SQLITE_FULL) || n == 1105
        || n == 9002 || t.contains(QLatin1String("database or disk is full"))
        || t.contains(QLatin1String("No space left on device")))
        t = sql::kDiscoLleno + QStringLiteral("\r\n") + t;
    else if (codigo == QLatin1String("57014") || codigo == QLatin1String("HYT00"))
        t = QStringLiteral("La base de datos ha tardado más de lo permitido y ha cancelado la operación.\r\n") + t;
    return t;
}

// What an engine error means for the person at the worksheet. SQLite gives
// its result code (sometimes extended: the low byte is the primary code);
// SQL Server its error number.
VbError::Causa causaError(const QSqlError& e, Motor motor)
{
    bool ok = false;
    const int codigo = e.nativeErrorCode().toInt(&ok);
    const QString texto = e.databaseText();
    if (motor == Motor::SQLite) {
        switch (ok ? (codigo & 0xff) : -1) {
        case SQLITE_READONLY: return VbError::Causa::SoloLectura;
        case SQLITE_BUSY:
        case SQLITE_LOCKED: return VbError::Causa::Bloqueada;
        case SQLITE_CONSTRAINT:
            if (texto.contains(QLatin1String("UNIQUE"), Qt::CaseInsensitive)
                || texto.contains(QLatin1String("PRIMARY KEY"), Qt::CaseInsensitive))
                return VbError::Causa::ClaveDuplicada;
            break;
        default: break;
        }
        if (texto.contains(QLatin1String("readonly database"), Qt::CaseInsensitive))
            return VbError::Causa::SoloLectura;
        if (texto.contains(QLatin1String("database is locked"), Qt::CaseInsensitive))
            return VbError::Causa::Bloqueada;
        return VbError::Causa::Ninguna;
    }
    if (motor == Motor::PostgreSQL) {
        // The SQLSTATE: a key already there, another user's lock (waited
        // for until lock_timeout, or a deadlock), a server or a user that
        // may not write.
        const QString estado = e.nativeErrorCode();
        if (estado == QLatin1String("23505"))
            return VbError::Causa::ClaveDuplicada;
        if (estado == QLatin1String("55P03"))
            return VbError::Causa::Bloqueada;
        if (estado == QLatin1String("40P01") || estado == QLatin1String("40001"))
            return VbError::Causa::Interbloqueo;
        // Class 08 (connection exception) and the server shutting the session.
        if (estado.startsWith(QLatin1String("08")) || estado == QLatin1String("57P01") || estado == QLatin1String("57P02")
            || estado == QLatin1String("57P03"))
            return VbError::Causa::ConexionPerdida;
        if (estado == QLatin1String("25006") || estado == QLatin1String("42501"))
            return VbError::Causa::SoloLectura;
        return VbError::Causa::Ninguna;
    }
    switch (ok ? codigo : -1) {
    case 2627: case 2601: return VbError::Causa::ClaveDuplicada;
    case 3906: return VbError::Causa::SoloLectura;
    case 1222: return VbError::Causa::Bloqueada;
    case 1205: return VbError::Causa::Interbloqueo;
    default: return VbError::Causa::Ninguna;
    }
}

} // namespace

VbError Conexion::errorMotor(const QSqlError& e) const
{
    VbError::Causa causa = causaError(e, motor_);
    // A session the server dropped says little more than that it is gone.
    if (pg_ && PQstatus(pg_) == CONNECTION_BAD)
        causa = VbError::Causa::ConexionPerdida;
    if (causa == VbError::Causa::ConexionPerdida)
        perdida_ = true;
    QString texto = textoError(e);
    // The engine's words alone do not tell a user that nothing is wrong with
    // the figures; say first what happened.
    if (causa == VbError::Causa::SoloLectura)
        texto = QStringLiteral("La base de datos es de solo lectura.\r\n") + texto;
    else if (causa == VbError::Causa::Bloqueada || causa == VbError::Causa::Interbloqueo)
        texto = QStringLiteral("La base de datos está bloqueada por otro usuario.\r\n") + texto;
    else if (causa == VbError::Causa::ConexionPerdida)
        texto = QStringLiteral("Se ha perdido la conexión con la base de datos: no se ha guardado nada de la operación en curso, "
                               "y la hoja muestra lo que la base de datos tiene.\r\n")
                + texto;
    return VbError(VbError::DatabaseError, texto, 0, causa);
}

void Conexion::setEsperaBloqueo(int milisegundos)
{
    QSqlQuery q(db_);
    if (motor_ == Motor::SQLite)
        q.exec(QStringLiteral("PRAGMA busy_timeout = %1").arg(milisegundos));
    else if (motor_ == Motor::PostgreSQL)
        q.exec(QStringLiteral("SET lock_timeout = %1").arg(milisegundos));
}

Conexion::Conexion(Motor motor, QString nombreConexion) : motor_(motor), nombre_(std::move(nombreConexion)) {}

Conexion::~Conexion()
{
    formas_.clear();
    if (db_.isValid()) {
        if (db_.isOpen())
            db_.close();
    }
    db_ = QSqlDatabase();
    QSqlDatabase::removeDatabase(nombre_);
}

std::shared_ptr<Conexion> Conexion::abrirSqlite(const QString& fichero)
{
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QSQLITE")))
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("El controlador de SQLite para Qt no está instalado (paquete libqt6sql6-sqlite)."));
    if (fichero != QLatin1String(":memory:")) {
        const QFileInfo info(fichero);
        if (!info.absoluteDir().exists())
            throw VbError(VbError::DatabaseError,
                          QStringLiteral("No se puede abrir la base de datos \"%1\": la carpeta no existe.").arg(fichero));
        if (info.exists() && info.isDir())
            throw VbError(VbError::DatabaseError,
                          QStringLiteral("No se puede abrir la base de datos \"%1\": es una carpeta.").arg(fichero));
    }
    // A file, or a folder, this user may not write to is opened to read
    // only: as it is, without the write-ahead log, whose shared-memory file
    // beside it could not be made; the first write says it is read-only.
    bool soloLectura = false;
    if (fichero != QLatin1String(":memory:")) {
        const QFileInfo info(fichero);
        soloLectura = info.exists() && (::access(QFile::encodeName(info.absoluteFilePath()).constData(), W_OK) != 0
                                        || ::access(QFile::encodeName(info.absolutePath()).constData(), W_OK) != 0);
    }
    std::shared_ptr<Conexion> c(new Conexion(Motor::SQLite, nuevoNombreConexion()));
    c->fichero_ = fichero;
    c->db_ = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), c->nombre_);
    c->db_.setDatabaseName(fichero);
    if (soloLectura)
        c->db_.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
    if (!c->db_.open())
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("No se puede abrir la base de datos \"%1\": %2").arg(fichero, textoError(c->db_.lastError())));
    c->registrarFunciones();
    QSqlQuery q(c->db_);
    // Reading the header tells a file that is not a database apart at once.
    bool legible = q.exec(QStringLiteral("PRAGMA schema_version"));
    if (!legible && soloLectura) {
        // A file kept with the write-ahead log cannot be read without the
        // shared-memory file beside it, which a read-only folder cannot
        // take: read-only throughout, it is read as a file nobody changes.
        q = QSqlQuery();
        c->db_.close();
        c->db_.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_OPEN_URI"));
        c->db_.setDatabaseName(QUrl::fromLocalFile(QFileInfo(fichero).absoluteFilePath()).toString(QUrl::FullyEncoded)
                               + QStringLiteral("?immutable=1"));
        if (c->db_.open()) {
            c->registrarFunciones();
            q = QSqlQuery(c->db_);
            legible = q.exec(QStringLiteral("PRAGMA schema_version"));
        }
    }
    if (!legible)
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("No se puede abrir la base de datos \"%1\": %2").arg(fichero, textoError(q.lastError())));
    q.exec(QStringLiteral("PRAGMA foreign_keys = ON"));
    // Another user's write makes ours wait a while rather than fail at once.
    q.exec(QStringLiteral("PRAGMA busy_timeout = %1").arg(kEsperaBloqueoDefecto));
    if (fichero != QLatin1String(":memory:") && !soloLectura) {
        q.exec(QStringLiteral("PRAGMA journal_mode = WAL"));
        q.exec(QStringLiteral("PRAGMA synchronous = NORMAL"));
    }
    return c;
}

std::shared_ptr<Conexion> Conexion::abrirOdbc(const QString& cadenaConexion)
{
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QODBC")))
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("El controlador ODBC para Qt no está instalado (paquete libqt6sql6-odbc)."));
    std::shared_ptr<Conexion> c(new Conexion(Motor::SqlServer, nuevoNombreConexion()));
    c->db_ = QSqlDatabase::addDatabase(QStringLiteral("QODBC"), c->nombre_);
    c->db_.setDatabaseName(cadenaConexion);
    if (!c->db_.open())
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("No se puede conectar con el servidor SQL Server: %1").arg(textoError(c->db_.lastError())));
    return c;
}

std::shared_ptr<Conexion> Conexion::grabadoraSqlServer()
{
    std::shared_ptr<Conexion> c(new Conexion(Motor::SqlServer, nuevoNombreConexion()));
    c->grabadora_ = true;
    return c;
}

std::shared_ptr<Conexion> Conexion::abrirPostgres(const QString& conninfo)
{
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QPSQL")))
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("El controlador de PostgreSQL para Qt no está instalado (paquete libqt6sql6-psql)."));
    std::shared_ptr<Conexion> c(new Conexion(Motor::PostgreSQL, nuevoNombreConexion()));
    c->db_ = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), c->nombre_);
    // Qt passes the options to libpq as they are: the whole connection string.
    c->db_.setConnectOptions(conninfo);
    c->conninfo_ = conninfo;
    if (!c->db_.open())
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("No se puede conectar con el servidor PostgreSQL: %1").arg(textoError(c->db_.lastError())));
    c->configurarSesion();
    return c;
}

void Conexion::configurarSesion()
{
    // NUMERIC arrives as its decimal text, never through a double: a
    // currency reads back to the ten-thousandth.
    db_.driver()->setNumericalPrecisionPolicy(QSql::HighPrecision);
    const QVariant h = db_.driver()->handle();
    // Qt names the handle's type after libpq's struct or its typedef.
    pg_ = nullptr;
    if (h.isValid() && (qstrcmp(h.typeName(), "pg_conn*") == 0 || qstrcmp(h.typeName(), "PGconn*") == 0))
        pg_ = *static_cast<PGconn* const*>(h.data());
    QSqlQuery q(db_);
    // Another user's open transaction on a row makes a write wait a while
    // rather than fail at once, as SQLite's busy timeout does; the notices
    // of IF NOT EXISTS are nobody's business.
    q.exec(QStringLiteral("SET lock_timeout = %1").arg(kEsperaBloqueoDefecto));
    q.exec(QStringLiteral("SET client_min_messages = warning"));
    // The worksheet sorts tens of thousands of rows at a time: in memory,
    // not in the server's temporary files.
    q.exec(QStringLiteral("SET work_mem = '64MB'"));
    // Backslashes in a literal are data (rule of doubled quotes only).
    q.exec(QStringLiteral("SET standard_conforming_strings = on"));
}

void Conexion::recuperarSesion()
{
    if (!perdida_ || transacciones_ > 0 || motor_ != Motor::PostgreSQL)
        return;
    // Whatever waited for the old session went with it; the temporary
    // tables are made again below from what made them.
    lote_.clear();
    pendientes_.clear();
    for (Comando* c : comandos_)
        c->soltarPreparada();
    db_.close();
    if (!db_.open())
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("Se ha perdido la conexión con la base de datos y no se puede volver a conectar: %1")
                          .arg(textoError(db_.lastError())),
                      0, VbError::Causa::ConexionPerdida);
    configurarSesion();
    perdida_ = false;
    ++generacion_;
    // The new session listens again from the next look (what was said
    // meanwhile is lost: the worksheet reads its rows again anyway).
    escuchados_.clear();
    formasPg_.clear();
    QSqlQuery q(db_);
    for (const QString& sql : temporales_)
        if (!q.exec(adaptar(sql)))
            throw errorMotor(q.lastError());
}

void Conexion::registrarFunciones()
{
    const QVariant h = db_.driver()->handle();
    if (!h.isValid() || qstrcmp(h.typeName(), "sqlite3*") != 0)
        return;
    sqlite3* handle = *static_cast<sqlite3* const*>(h.data());
    if (!handle)
        return;
    sqlite_ = handle;
    const int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC;
    sqlite3_create_function_v2(handle, "LEN", 1, flags, nullptr, funcionLen, nullptr, nullptr, nullptr);
    sqlite3_create_function_v2(handle, "MONTH", 1, flags, nullptr, funcionMonth, nullptr, nullptr, nullptr);
    sqlite3_create_function_v2(handle, "YEAR", 1, flags, nullptr, funcionYear, nullptr, nullptr, nullptr);
}

void Conexion::asociarBaseDatos(const QString& nombre, const QString& fichero)
{
    ficherosBases_.insert(nombre.toLower(), fichero);
}

void Conexion::adjuntar(const QStringList& bases)
{
    for (const QString& bd : bases) {
        if (adjuntadas_.contains(bd, Qt::CaseInsensitive))
            continue;
        QString fichero = ficherosBases_.value(bd.toLower());
        if (fichero.isEmpty()) {
            if (fichero_ == QLatin1String(":memory:") || fichero_.isEmpty())
                throw VbError(VbError::DatabaseError, QStringLiteral("No se encuentra la base de datos \"%1\".").arg(bd));
            fichero = QFileInfo(fichero_).absoluteDir().filePath(bd + QStringLiteral(".db"));
            if (!QFileInfo::exists(fichero))
                throw VbError(VbError::DatabaseError,
                              QStringLiteral("No se encuentra la base de datos \"%1\" (%2).").arg(bd, fichero));
        }
        QSqlQuery q(db_);
        QString nombreSql = bd;
        nombreSql.replace(QLatin1Char('"'), QStringLiteral("\"\""));
        QString ficheroSql = fichero;
        ficheroSql.replace(QLatin1Char('\''), QStringLiteral("''"));
        if (!q.exec(QStringLiteral("ATTACH DATABASE '%1' AS \"%2\"").arg(ficheroSql, nombreSql)))
            throw VbError(VbError::DatabaseError,
                          QStringLiteral("No se puede abrir la base de datos \"%1\": %2").arg(bd, textoError(q.lastError())));
        adjuntadas_ << bd;
    }
}

QString Conexion::adaptar(const QString& sql)
{
    if (motor_ == Motor::PostgreSQL)
        return DialectoPostgres::adaptar(sql);
    if (motor_ != Motor::SQLite)
        return sql;
    SqlAdaptado a = DialectoSqlite::adaptar(sql);
    adjuntar(a.basesDatos);
    return a.texto;
}

void Conexion::anotar(const QString& sql)
{
    grabarForma(sql);
    if (!registroActivo_ && !grabadora_)
        return;
    registro_.push_back(sql);
    if (registro_.size() > kMaxRegistro)
        registro_.pop_front();
}

void Conexion::lanzarErrorMotor(const QSqlQuery& q, const QString&) const
{
    throw errorMotor(q.lastError());
}

namespace {
const QString kPunto = QStringLiteral("presupuestos_sentencia");
} // namespace

void Conexion::antesDeSentencia()
{
    if (motor_ != Motor::PostgreSQL || transacciones_ == 0)
        return;
    // One round trip: the previous statement's savepoint goes, this one's comes.
    QSqlQuery q(db_);
    const QString sql = puntoGuardado_ ? QStringLiteral("RELEASE SAVEPOINT %1; SAVEPOINT %1").arg(kPunto)
                                       : QStringLiteral("SAVEPOINT %1").arg(kPunto);
    if (!q.exec(sql))
        throw errorMotor(q.lastError());
    puntoGuardado_ = true;
}

void Conexion::trasFallo()
{
    if (motor_ != Motor::PostgreSQL || transacciones_ == 0 || !puntoGuardado_)
        return;
    QSqlQuery q(db_);
    q.exec(QStringLiteral("ROLLBACK TO SAVEPOINT %1").arg(kPunto));
}

namespace {

// A data statement with its literals taken out: the same shape with other
// values (a typed month, a pasted cell) is translated and prepared once and
// run with the values bound, as a server parameterises simple statements.
// Only UPDATE, INSERT and DELETE, and never around the constructs whose
// translation reads the literals themselves (TOP n, PIVOT).
struct Forma {
    QString clave;
    QVariantList valores;
};

std::optional<Forma> formaDe(const QString& sql)
{
    const auto tokens = DialectoSqlite::tokenizar(sql);
    Forma f;
    f.clave.reserve(sql.size());
    bool primera = true;
    for (const TokenSql& t : tokens) {
        if (t.tipo == TokenSql::Tipo::Palabra) {
            if (primera) {
                if (t.texto.compare(QLatin1String("UPDATE"), Qt::CaseInsensitive) != 0
                    && t.texto.compare(QLatin1String("INSERT"), Qt::CaseInsensitive) != 0
                    && t.texto.compare(QLatin1String("DELETE"), Qt::CaseInsensitive) != 0)
                    return std::nullopt;
                primera = false;
            }
            if (t.texto.compare(QLatin1String("TOP"), Qt::CaseInsensitive) == 0
                || t.texto.compare(QLatin1String("PIVOT"), Qt::CaseInsensitive) == 0)
                return std::nullopt;
        }
        if (t.tipo == TokenSql::Tipo::Literal) {
            f.valores << t.texto.mid(1, t.texto.size() - 2).replace(QStringLiteral("''"), QStringLiteral("'"));
            f.clave += QLatin1Char('?');
        } else if (t.tipo == TokenSql::Tipo::Numero) {
            bool ok = false;
            const bool entero = !t.texto.contains(QLatin1Char('.')) && !t.texto.contains(QLatin1Char('e'), Qt::CaseInsensitive);
            if (entero) {
                const qlonglong n = t.texto.toLongLong(&ok);
                if (ok)
                    f.valores << n;
            } else {
                const double d = t.texto.toDouble(&ok);
                if (ok)
                    f.valores << d;
            }
            if (!ok)
                return std::nullopt;
            f.clave += QLatin1Char('?');
        } else {
            f.clave += t.texto;
        }
    }
    if (primera)
        return std::nullopt;
    return f;
}

constexpr std::size_t kMaxFormas = 64;

} // namespace

long Conexion::ejecutarAhora(const QString& sql)
{
    if (motor_ == Motor::SQLite) {
        if (const auto forma = formaDe(sql)) {
            auto it = formas_.find(forma->clave);
            if (it == formas_.end()) {
                if (formas_.size() >= kMaxFormas)
                    formas_.clear();
                auto q = std::make_unique<QSqlQuery>(db_);
                q->setForwardOnly(true);
                if (!q->prepare(adaptar(forma->clave)))
                    lanzarErrorMotor(*q, sql);
                it = formas_.emplace(forma->clave, std::move(q)).first;
            }
            QSqlQuery& q = *it->second;
            for (int i = 0; i < forma->valores.size(); ++i)
                q.bindValue(i, forma->valores[i]);
            if (!q.exec())
                lanzarErrorMotor(q, sql);
            const long afectadas = q.numRowsAffected();
            // Done with, so that nothing of it is held open until it runs again.
            q.finish();
            return afectadas;
        }
    }
    if (pg_) {
        // One round trip a statement, savepoint included; the shape parsed
        // and planned once.
        long afectadas = -1;
        if (ejecutarForma(sql, &afectadas))
            return afectadas;
        PGresult* r = ejecutarLibpq(QByteArray(), adaptar(sql).toUtf8(), false);
        const char* cuenta = PQcmdTuples(r);
        afectadas = cuenta && *cuenta ? std::atol(cuenta) : -1;
        PQclear(r);
        return afectadas;
    }
    const QString texto = adaptar(sql);
    antesDeSentencia();
    QSqlQuery q(db_);
    q.setForwardOnly(true);
    if (!q.exec(texto)) {
        const VbError e = errorMotor(q.lastError());
        trasFallo();
        throw e;
    }
    return q.numRowsAffected();
}

namespace {

// An insert into a temporary table: "INSERT INTO ##...".
bool insercionTemporal(const QString& sql)
{
    const auto t = tokens::tokenizar(sql);
    int i = tokens::siguiente(t, -1);
    if (!tokens::en(t, i) || !tokens::esPalabra(t[i], "INSERT"))
        return false;
    i = tokens::siguiente(t, i);
    if (!tokens::en(t, i) || !tokens::esPalabra(t[i], "INTO"))
        return false;
    i = tokens::siguiente(t, i);
    return tokens::en(t, i) && tokens::esTemporal(t[i]);
}

constexpr int kMaxLote = 500;

// The temporary table a statement makes, fills, empties or drops, and how.
enum class UsoTemporal { Ninguno, Crear, Llenar, Vaciar, Borrar };

UsoTemporal usoTemporal(const QString& sql, QString* tabla)
{
    const auto t = tokens::tokenizar(sql);
    const int i = tokens::siguiente(t, -1);
    const int j = tokens::siguiente(t, i);
    const int k = tokens::siguiente(t, j);
    if (!tokens::en(t, k) || !tokens::esTemporal(t[k]))
        return UsoTemporal::Ninguno;
    *tabla = t[k].texto.toLower();
    const auto es = [&t](int n, const char* p) { return tokens::esPalabra(t[n], p); };
    if (es(i, "CREATE") && es(j, "TABLE"))
        return UsoTemporal::Crear;
    if (es(i, "DROP") && es(j, "TABLE"))
        return UsoTemporal::Borrar;
    if (es(i, "TRUNCATE") && es(j, "TABLE"))
        return UsoTemporal::Vaciar;
    if (es(i, "DELETE") && es(j, "FROM"))
        return tokens::en(t, tokens::siguiente(t, k)) ? UsoTemporal::Llenar : UsoTemporal::Vaciar;
    if (es(i, "INSERT") && es(j, "INTO"))
        return UsoTemporal::Llenar;
    return UsoTemporal::Ninguno;
}

// A lock's number: the same for every user and every run, for the same
// words (Qt's own hash is seeded per process).
qint64 numeroBloqueo(const QString& ambito, const QString& clave)
{
    quint64 h = 14695981039346656037ULL;
    const auto mezclar = [&h](const QByteArray& b) {
        for (const char c : b) {
            h ^= static_cast<unsigned char>(c);
            h *= 1099511628211ULL;
        }
    };
    mezclar(ambito.toUtf8());
    mezclar(QByteArrayLiteral("\x1f"));
    mezclar(clave.toUtf8());
    return static_cast<qint64>(h);
}

} // namespace

void Conexion::recordarTemporal(const QString& sql)
{
    QString tabla;
    const UsoTemporal uso = usoTemporal(sql, &tabla);
    if (uso == UsoTemporal::Ninguno)
        return;
    const auto deTabla = [&tabla](const QString& s, bool tambienCrear) {
        QString t;
        const UsoTemporal u = usoTemporal(s, &t);
        return t == tabla && (tambienCrear || u != UsoTemporal::Crear);
    };
    // Only what the table holds now matters: what an emptying or a drop
    // undid is not kept.
    if (uso == UsoTemporal::Borrar || uso == UsoTemporal::Vaciar)
        std::erase_if(temporales_, [&](const QString& s) { return deTabla(s, uso == UsoTemporal::Borrar); });
    if (uso != UsoTemporal::Borrar && uso != UsoTemporal::Vaciar)
        temporales_.push_back(sql);
}

void Conexion::bloquearClaves(const QString& ambito, const QStringList& claves)
{
    if (motor_ != Motor::PostgreSQL || transacciones_ == 0)
        return;
    const qint64 a = numeroBloqueo(QStringLiteral("presupuestos"), ambito);
    if (ambitos_.value(a, false))
        return;
    if (claves.size() + bloqueadas_.size() > kMaxClavesBloqueadas) {
        bloquearAmbito(ambito);
        return;
    }
    std::vector<qint64> numeros;
    numeros.reserve(static_cast<std::size_t>(claves.size()));
    for (const QString& c : claves) {
        const qint64 n = numeroBloqueo(ambito, c);
        if (!bloqueadas_.contains(n))
            numeros.push_back(n);
    }
    std::sort(numeros.begin(), numeros.end());
    numeros.erase(std::unique(numeros.begin(), numeros.end()), numeros.end());
    QStringList llamadas;
    if (!ambitos_.contains(a))
        llamadas << QStringLiteral("pg_advisory_xact_lock_shared(%1)").arg(a);
    // One after another, in the order of their numbers: the same order for
    // every user, whatever order the rows come in.
    for (const qint64 n : numeros)
        llamadas << QStringLiteral("pg_advisory_xact_lock(%1)").arg(n);
    if (llamadas.isEmpty())
        return;
    const QString sql = QStringLiteral("SELECT ") + llamadas.join(QStringLiteral(", "));
    ejecutarPostgres(sql);
    ambitos_.insert(a, false);
    for (const qint64 n : numeros)
        bloqueadas_.insert(n);
}

void Conexion::bloquearAmbito(const QString& ambito)
{
    if (motor_ != Motor::PostgreSQL || transacciones_ == 0)
        return;
    const qint64 a = numeroBloqueo(QStringLiteral("presupuestos"), ambito);
    if (ambitos_.value(a, false))
        return;
    ejecutarPostgres(QStringLiteral("SELECT pg_advisory_xact_lock(%1)").arg(a));
    ambitos_.insert(a, true);
}

bool Conexion::cambiosAjenos(const QString& canal, QStringList* cargas)
{
    if (transacciones_ > 0)
        return false;
    if (sqlite_) {
        sqlite3_stmt* st = nullptr;
        qint64 version = -1;
        if (sqlite3_prepare_v2(sqlite_, "PRAGMA data_version", -1, &st, nullptr) == SQLITE_OK && sqlite3_step(st) == SQLITE_ROW)
            version = sqlite3_column_int64(st, 0);
        sqlite3_finalize(st);
        const bool movida = versionDatos_ >= 0 && version != versionDatos_;
        versionDatos_ = version;
        return movida;
    }
    if (!pg_)
        return true;
    recuperarSesion();
    if (!escuchados_.contains(canal)) {
        ejecutarPostgres(QStringLiteral("LISTEN ") + DialectoPostgres::identificador(canal));
        escuchados_ << canal;
    }
    // What arrived is read off the socket here: libpq keeps notifications
    // that came with other statements' results until asked.
    PQconsumeInput(pg_);
    bool alguna = false;
    const int propio = PQbackendPID(pg_);
    while (PGnotify* n = PQnotifies(pg_)) {
        if (n->be_pid != propio && QString::fromUtf8(n->relname) == DialectoPostgres::identificador(canal).toLower()) {
            alguna = true;
            if (cargas)
                *cargas << QString::fromUtf8(n->extra);
        }
        PQfreemem(n);
    }
    return alguna;
}

void Conexion::notificar(const QString& canal, const QString& carga)
{
    if (!pg_ || transacciones_ == 0)
        return;
    QString literal = carga;
    literal.replace(QLatin1Char('\''), QStringLiteral("''"));
    QString nombre = DialectoPostgres::identificador(canal).toLower();
    nombre.replace(QLatin1Char('\''), QStringLiteral("''"));
    ejecutarPostgres(QStringLiteral("SELECT pg_notify('%1', '%2')").arg(nombre, literal));
}

void Conexion::ejecutarPostgres(const QString& sql)
{
    completarPendientes();
    PQclear(ejecutarLibpq(QByteArray(), sql.toUtf8(), false));
}

::pg_result* Conexion::ejecutarLibpq(const QByteArray& nombre, const QByteArray& texto, bool preparar,
                                     const std::vector<QByteArray>& valores, const std::vector<char>& nulos)
{
    const bool punto = transacciones_ > 0;
    const bool liberar = punto && puntoGuardado_;
    if (traza_)
        traza_({texto, valores, nulos, preparar, !nombre.isEmpty(), liberar, punto});
    const auto fallo = [this](PGresult* r) {
        const VbError e = errorMotor(errorPostgres(r));
        PQclear(r);
        return e;
    };
    if (PQenterPipelineMode(pg_) != 1)
        throw fallo(nullptr);
    // What goes in the round trip, in order; the statement's place in it.
    int enviados = 0;
    bool enviado = true;
    const auto enviar = [&](int ok) {
        enviado = enviado && ok == 1;
        ++enviados;
    };
    static const char* const kLiberar = "RELEASE SAVEPOINT presupuestos_sentencia";
    static const char* const kPunto = "SAVEPOINT presupuestos_sentencia";
    if (liberar)
        enviar(PQsendQueryParams(pg_, kLiberar, 0, nullptr, nullptr, nullptr, nullptr, 0));
    const int indicePunto = enviados;
    if (punto)
        enviar(PQsendQueryParams(pg_, kPunto, 0, nullptr, nullptr, nullptr, nullptr, 0));
    if (preparar)
        enviar(PQsendPrepare(pg_, nombre.constData(), texto.constData(), 0, nullptr));
    const int principal = enviados;
    std::vector<const char*> punteros(valores.size());
    for (std::size_t i = 0; i < valores.size(); ++i)
        punteros[i] = i < nulos.size() && nulos[i] ? nullptr : valores[i].constData();
    const int n = static_cast<int>(valores.size());
    enviar(nombre.isEmpty() ? PQsendQueryParams(pg_, texto.constData(), n, nullptr, punteros.data(), nullptr, nullptr, 0)
                            : PQsendQueryPrepared(pg_, nombre.constData(), n, punteros.data(), nullptr, nullptr, 0));
    if (enviado)
        enviado = PQpipelineSync(pg_) == 1;
    // The results, a run per statement ended by a null, then the sync.
    PGresult* resultado = nullptr;
    PGresult* error = nullptr;
    bool puntoHecho = false;
    for (int k = 0; enviado && k < enviados; ++k) {
        while (PGresult* r = PQgetResult(pg_)) {
            const ExecStatusType e = PQresultStatus(r);
            if (e == PGRES_FATAL_ERROR && !error) {
                error = r;
            } else if (k == principal && !resultado && (e == PGRES_TUPLES_OK || e == PGRES_COMMAND_OK)) {
                resultado = r;
            } else {
                if (punto && k == indicePunto && e == PGRES_COMMAND_OK)
                    puntoHecho = true;
                PQclear(r);
            }
        }
        if (PQstatus(pg_) == CONNECTION_BAD)
            break;
    }
    // A null between results is no end; a few in a row would be a result
    // counted wrong, and waiting on would never end.
    for (int nulos = 0; enviado && PQstatus(pg_) != CONNECTION_BAD && nulos < 4;) {
        PGresult* r = PQgetResult(pg_);
        if (!r) {
            ++nulos;
            continue;
        }
        const bool sincronizado = PQresultStatus(r) == PGRES_PIPELINE_SYNC;
        PQclear(r);
        if (sincronizado)
            break;
    }
    PQexitPipelineMode(pg_);
    if (liberar || puntoHecho)
        puntoGuardado_ = puntoHecho;
    if (!enviado || (!resultado && !error)) {
        PQclear(resultado);
        throw fallo(error);
    }
    if (error) {
        PQclear(resultado);
        const VbError e = fallo(error);
        // What the transaction stored before stays, to be committed.
        if (puntoHecho && PQstatus(pg_) != CONNECTION_BAD)
            PQclear(PQexec(pg_, "ROLLBACK TO SAVEPOINT presupuestos_sentencia"));
        throw e;
    }
    return resultado;
}

namespace {

// A composed data statement's shape for PostgreSQL: the text with its
// literals (quoted texts and numbers, a sign before a number included) as
// markers, and their values as the text the server reads. Only UPDATE,
// INSERT and DELETE of the database's own tables (a temporary table may go
// and come back under the same name), never around the constructs whose
// translation reads the literals themselves (TOP n, PIVOT).
struct FormaTexto {
    QString clave;
    std::vector<QByteArray> valores;
};

std::optional<FormaTexto> formaPostgres(const QString& sql)
{
    const auto t = tokens::tokenizar(sql);
    FormaTexto f;
    f.clave.reserve(sql.size());
    bool primera = true;
    int anteriorSignificativo = -1;
    for (int i = 0; i < static_cast<int>(t.size()); ++i) {
        const TokenSql& k = t[static_cast<std::size_t>(i)];
        if (k.tipo == TokenSql::Tipo::Palabra) {
            if (primera) {
                if (!tokens::esPalabra(k, "UPDATE") && !tokens::esPalabra(k, "INSERT") && !tokens::esPalabra(k, "DELETE"))
                    return std::nullopt;
                primera = false;
            }
            if (tokens::esPalabra(k, "TOP") || tokens::esPalabra(k, "PIVOT") || tokens::esTemporal(k))
                return std::nullopt;
        }
        if (k.tipo == TokenSql::Tipo::Signo && k.texto == QLatin1String("?"))
            return std::nullopt;
        if (k.tipo == TokenSql::Tipo::Literal) {
            f.valores.push_back(k.texto.mid(1, k.texto.size() - 2).replace(QStringLiteral("''"), QStringLiteral("'")).toUtf8());
            f.clave += QLatin1Char('?');
        } else if (k.tipo == TokenSql::Tipo::Numero) {
            QByteArray numero = k.texto.toUtf8();
            // A minus after "=", "," or "(" belongs to the number.
            if (!f.clave.isEmpty() && f.clave.endsWith(QLatin1Char('-')) && anteriorSignificativo >= 0
                && tokens::esSigno(t[static_cast<std::size_t>(anteriorSignificativo)], "-")) {
                const int previo = tokens::anterior(t, anteriorSignificativo);
                if (previo >= 0
                    && (tokens::esSigno(t[static_cast<std::size_t>(previo)], "=") || tokens::esSigno(t[static_cast<std::size_t>(previo)], ",")
                        || tokens::esSigno(t[static_cast<std::size_t>(previo)], "("))) {
                    f.clave.chop(1);
                    numero.prepend('-');
                }
            }
            f.valores.push_back(numero);
            f.clave += QLatin1Char('?');
        } else {
            f.clave += k.texto;
        }
        if (k.tipo != TokenSql::Tipo::Espacio)
            anteriorSignificativo = i;
    }
    if (primera)
        return std::nullopt;
    return f;
}

constexpr std::size_t kMaxFormasPg = 64;

} // namespace

bool Conexion::ejecutarForma(const QString& sql, long* afectadas)
{
    auto forma = formaPostgres(sql);
    if (!forma || formasNoPreparables_.contains(forma->clave))
        return false;
    auto it = formasPg_.find(forma->clave);
    if (it == formasPg_.end()) {
        if (formasPg_.size() >= kMaxFormasPg) {
            for (const auto& [clave, f] : formasPg_)
                if (f.preparada)
                    PQclear(PQexec(pg_, ("DEALLOCATE " + f.nombre).constData()));
            formasPg_.clear();
        }
        FormaPg f;
        f.nombre = "presupuestos_forma_" + QByteArray::number(++siguienteNombre_);
        f.texto = tokens::numerarMarcas(adaptar(forma->clave)).toUtf8();
        it = formasPg_.emplace(forma->clave, std::move(f)).first;
    }
    FormaPg& f = it->second;
    PGresult* r = nullptr;
    try {
        r = ejecutarLibpq(f.nombre, f.texto, !f.preparada, forma->valores);
    } catch (const VbError& e) {
        // Only a shape the server cannot analyse (class 42: a marker whose
        // type it cannot tell) is sent as composed instead.
        if (f.preparada || perdida_ || !e.description().contains(QStringLiteral("\n(42")))
            throw;
        // The server could not prepare the shape (a marker whose type it
        // cannot tell): the statement goes as composed, now and from now on.
        formasNoPreparables_.insert(forma->clave);
        formasPg_.erase(it);
        return false;
    }
    f.preparada = true;
    const char* cuenta = PQcmdTuples(r);
    *afectadas = cuenta && *cuenta ? std::atol(cuenta) : -1;
    PQclear(r);
    return true;
}

QSqlError Conexion::errorPostgres(const ::pg_result* r) const
{
    const QString mensaje = QString::fromUtf8(r ? PQresultErrorMessage(r) : PQerrorMessage(pg_)).trimmed();
    const QString sqlstate = QString::fromLatin1(r ? PQresultErrorField(r, PG_DIAG_SQLSTATE) : nullptr);
    return QSqlError(QStringLiteral("Unable to create query"),
                     sqlstate.isEmpty() ? mensaje : mensaje + QStringLiteral("\n(") + sqlstate + QLatin1Char(')'),
                     QSqlError::StatementError, sqlstate);
}

void Conexion::enviarLote()
{
    recuperarSesion();
    if (lote_.isEmpty())
        return;
    const QString texto = lote_.join(QStringLiteral(";\n"));
    lote_.clear();
    QSqlQuery q(db_);
    if (!q.exec(texto))
        throw errorMotor(q.lastError());
}

long Conexion::Execute(const QString& sql, int opciones)
{
    anotar(sql);
    if (grabadora_)
        return filasGrabadas_;
    recuperarSesion();
    if (motor_ == Motor::PostgreSQL)
        recordarTemporal(sql);
    // A worksheet opens by filling its filter table a row per account, a
    // statement each: on a server, a round trip each. The table is this
    // connection's own, so no other user can see when its rows arrive; they
    // go together just before the next statement of any other kind, which
    // reports a failure among them. Outside transactions only, where
    // nothing else depends on their order. The engine does not say the
    // records affected then (-1).
    if (motor_ == Motor::PostgreSQL && transacciones_ == 0 && (opciones == -1 || !(opciones & adAsyncExecute))
        && insercionTemporal(sql)) {
        lote_ << adaptar(sql);
        if (lote_.size() >= kMaxLote)
            enviarLote();
        return -1;
    }
    if (opciones != -1 && (opciones & adAsyncExecute)) {
        pendientes_.push_back(sql);
        std::weak_ptr<Conexion> self = weak_from_this();
        if (QCoreApplication::instance()) {
            QTimer::singleShot(0, QCoreApplication::instance(), [self]() {
                if (auto c = self.lock())
                    c->completarPendientes();
            });
        }
        return -1;
    }
    completarPendientes();
    return ejecutarAhora(sql);
}

void Conexion::completarPendientes()
{
    enviarLote();
    if (completando_ || pendientes_.empty())
        return;
    completando_ = true;
    std::vector<QString> lista;
    lista.swap(pendientes_);
    for (const QString& sql : lista) {
        try {
            ejecutarAhora(sql);
            errorAsincrono_.clear();
        } catch (const VbError& e) {
            // Nobody waits for an asynchronous statement: its failure is
            // kept for whoever asks, as the engine would report it later.
            errorAsincrono_ = e.description();
        }
    }
    completando_ = false;
}

Recordset Conexion::Abrir(const QString& sql)
{
    anotar(sql);
    if (grabadora_)
        return Recordset();
    completarPendientes();
    if (sqlite_) {
        const QByteArray texto = adaptar(sql).toUtf8();
        sqlite3_stmt* st = nullptr;
        const char* resto = nullptr;
        const int rc = sqlite3_prepare_v2(sqlite_, texto.constData(), static_cast<int>(texto.size()), &st, &resto);
        if (rc != SQLITE_OK) {
            sqlite3_finalize(st);
            throw errorMotor(QSqlError(QStringLiteral("Unable to execute statement"), QString::fromUtf8(sqlite3_errmsg(sqlite_)),
                                       QSqlError::StatementError, QString::number(rc)));
        }
        if (resto && !QByteArrayView(resto, texto.constData() + texto.size() - resto).trimmed().isEmpty()) {
            sqlite3_finalize(st);
            throw errorMotor(QSqlError(QStringLiteral("Unable to execute multiple statements at a time"), QString(),
                                       QSqlError::StatementError, QString::number(SQLITE_MISUSE)));
        }
        return Recordset(std::make_unique<CursorSqlite>(shared_from_this(), st));
    }
    if (pg_) {
        // The rows are taken whole when the query runs (the worksheet reads
        // them all anyway), so the connection is free for the statements
        // run while they are read.
        PGresult* r = ejecutarLibpq(QByteArray(), adaptar(sql).toUtf8(), false);
        return Recordset(std::make_unique<CursorPostgres>(shared_from_this(), r));
    }
    auto q = std::make_unique<QSqlQuery>(db_);
    // Without libpq's handle, PostgreSQL's rows are still taken whole: Qt's
    // driver reads a forward-only query a row at a time off the connection,
    // and a statement run while it is open would cut it short.
    q->setForwardOnly(motor_ != Motor::PostgreSQL);
    const QString texto = adaptar(sql);
    antesDeSentencia();
    if (!q->exec(texto)) {
        const VbError e = errorMotor(q->lastError());
        trasFallo();
        throw e;
    }
    return Recordset(std::move(q));
}

void Conexion::BeginTrans()
{
    completarPendientes();
    anotar(QStringLiteral("BEGIN TRANSACTION"));
    if (grabadora_) {
    } else if (motor_ == Motor::SQLite) {
        // Every transaction here writes: it takes the write lock at once, so
        // what it reads before writing cannot change under it, and another
        // user's lock is waited for (the busy timeout) instead of refused
        // when a read lock would have to grow into a write lock.
        QSqlQuery q(db_);
        if (!q.exec(QStringLiteral("BEGIN IMMEDIATE")))
            throw errorMotor(q.lastError());
    } else if (!db_.transaction()) {
        throw errorMotor(db_.lastError());
    }
    ++transacciones_;
    puntoGuardado_ = false;
    bloqueadas_.clear();
    ambitos_.clear();
}

bool Conexion::transaccionViva() const
{
    if (transacciones_ == 0)
        return false;
    if (sqlite_)
        return sqlite3_get_autocommit(sqlite_) == 0;
    if (pg_) {
        const PGTransactionStatusType e = PQtransactionStatus(pg_);
        return e == PQTRANS_INTRANS || e == PQTRANS_ACTIVE;
    }
    return true;
}

void Conexion::CommitTrans()
{
    if (transacciones_ == 1 && !transaccionViva()) {
        // The engine rolled it back (a full disk, a lost session): nothing of
        // it is stored, and nothing may be written now as if it were part of it.
        const bool perdida = perdida_ || (pg_ && PQstatus(pg_) == CONNECTION_BAD);
        perdida_ = perdida_ || perdida;
        try {
            RollbackTrans();
        } catch (const std::exception&) {
        }
        throw VbError(VbError::DatabaseError,
                      perdida ? QStringLiteral("Se ha perdido la conexión con la base de datos: no se ha guardado nada de la operación "
                                               "en curso, y la hoja muestra lo que la base de datos tiene.")
                              : QStringLiteral("La base de datos ha deshecho la operación: no se ha guardado ninguno de sus cambios."),
                      0, perdida ? VbError::Causa::ConexionPerdida : VbError::Causa::Ninguna);
    }
    if (transacciones_ == 1)
        for (const auto& [dueno, a] : avisos_)
            if (a.antesDeConfirmar)
                a.antesDeConfirmar();
    anotar(QStringLiteral("COMMIT TRANSACTION"));
    if (!grabadora_ && !db_.commit())
        throw errorMotor(db_.lastError());
    if (transacciones_ > 0)
        --transacciones_;
    puntoGuardado_ = false;
    if (transacciones_ == 0)
        for (const auto& [dueno, a] : avisos_)
            if (a.despuesDeConfirmar)
                a.despuesDeConfirmar();
}

void Conexion::RollbackTrans()
{
    anotar(QStringLiteral("ROLLBACK TRANSACTION"));
    if (transacciones_ > 0)
        --transacciones_;
    puntoGuardado_ = false;
    const bool hecho = grabadora_ || db_.rollback();
    if (transacciones_ == 0)
        for (const auto& [dueno, a] : avisos_)
            if (a.alDeshacer)
                a.alDeshacer();
    if (!hecho)
        throw errorMotor(db_.lastError());
}

void Conexion::agregarAvisos(const void* dueno, AvisosTransaccion avisos)
{
    quitarAvisos(dueno);
    avisos_.emplace_back(dueno, std::move(avisos));
}

void Conexion::quitarAvisos(const void* dueno)
{
    std::erase_if(avisos_, [dueno](const auto& a) { return a.first == dueno; });
}

void repetirTrasInterbloqueo(Conexion& c, const std::function<void()>& trabajo)
{
    constexpr int kIntentos = 4;
    if (c.enTransaccion()) {
        trabajo();
        return;
    }
    for (int intento = 1;; ++intento) {
        try {
            trabajo();
            return;
        } catch (const VbError& e) {
            if (e.causa() != VbError::Causa::Interbloqueo || intento >= kIntentos || c.enTransaccion())
                throw;
        }
        // Apart a little, so that the two do not meet again at once.
        std::this_thread::sleep_for(std::chrono::milliseconds(20 * intento + std::rand() % 20));
    }
}

Transaccion::Transaccion(Conexion& c) : c_(c)
{
    if (!c_.enTransaccion()) {
        c_.BeginTrans();
        propia_ = true;
    }
}

Transaccion::~Transaccion()
{
    if (propia_ && !cerrada_) {
        try {
            c_.RollbackTrans();
        } catch (const std::exception&) {
        }
    }
}

void Transaccion::confirmar()
{
    if (!propia_ || cerrada_)
        return;
    cerrada_ = true;
    try {
        c_.CommitTrans();
    } catch (...) {
        // A commit the engine refused leaves nothing half-stored.
        try {
            c_.RollbackTrans();
        } catch (const std::exception&) {
        }
        throw;
    }
}

} // namespace presupuestos
