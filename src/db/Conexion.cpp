#include "db/Conexion.h"
#include "db/Sql.h"

#include "common/VbError.h"
#include "db/DialectoPostgres.h"
#include "db/DialectoSqlite.h"

#include <QDate>
#include <QDateTime>
#include <QTime>
#include <QFileInfo>
#include <QDir>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlRecord>
#include <QTimer>
#include <QCoreApplication>
#include <QPointer>
#include <atomic>
#include <cstdlib>
#include <limits>
#include <optional>
#include <libpq-fe.h>
#include <sqlite3.h>

namespace presupuestos {

namespace {

constexpr std::size_t kMaxRegistro = 20000;

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
        if (estado == QLatin1String("55P03") || estado == QLatin1String("40P01") || estado == QLatin1String("40001"))
            return VbError::Causa::Bloqueada;
        if (estado == QLatin1String("25006") || estado == QLatin1String("42501"))
            return VbError::Causa::SoloLectura;
        return VbError::Causa::Ninguna;
    }
    switch (ok ? codigo : -1) {
    case 2627: case 2601: return VbError::Causa::ClaveDuplicada;
    case 3906: return VbError::Causa::SoloLectura;
    case 1222: case 1205: return VbError::Causa::Bloqueada;
    default: return VbError::Causa::Ninguna;
    }
}

} // namespace

VbError Conexion::errorMotor(const QSqlError& e) const
{
    const VbError::Causa causa = causaError(e, motor_);
    QString texto = textoError(e);
    // The engine's words alone do not tell a user that nothing is wrong with
    // the figures; say first what happened.
    if (causa == VbError::Causa::SoloLectura)
        texto = QStringLiteral("La base de datos es de solo lectura.\r\n") + texto;
    else if (causa == VbError::Causa::Bloqueada)
        texto = QStringLiteral("La base de datos está bloqueada por otro usuario.\r\n") + texto;
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
    std::shared_ptr<Conexion> c(new Conexion(Motor::SQLite, nuevoNombreConexion()));
    c->fichero_ = fichero;
    c->db_ = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), c->nombre_);
    c->db_.setDatabaseName(fichero);
    if (!c->db_.open())
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("No se puede abrir la base de datos \"%1\": %2").arg(fichero, textoError(c->db_.lastError())));
    c->registrarFunciones();
    QSqlQuery q(c->db_);
    // Reading the header tells a file that is not a database apart at once.
    if (!q.exec(QStringLiteral("PRAGMA schema_version")))
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("No se puede abrir la base de datos \"%1\": %2").arg(fichero, textoError(q.lastError())));
    q.exec(QStringLiteral("PRAGMA foreign_keys = ON"));
    // Another user's write makes ours wait a while rather than fail at once.
    q.exec(QStringLiteral("PRAGMA busy_timeout = %1").arg(kEsperaBloqueoDefecto));
    if (fichero != QLatin1String(":memory:")) {
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

std::shared_ptr<Conexion> Conexion::abrirPostgres(const QString& conninfo)
{
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QPSQL")))
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("El controlador de PostgreSQL para Qt no está instalado (paquete libqt6sql6-psql)."));
    std::shared_ptr<Conexion> c(new Conexion(Motor::PostgreSQL, nuevoNombreConexion()));
    c->db_ = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), c->nombre_);
    // Qt passes the options to libpq as they are: the whole connection string.
    c->db_.setConnectOptions(conninfo);
    if (!c->db_.open())
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("No se puede conectar con el servidor PostgreSQL: %1").arg(textoError(c->db_.lastError())));
    // NUMERIC arrives as its decimal text, never through a double: a
    // currency reads back to the ten-thousandth.
    c->db_.driver()->setNumericalPrecisionPolicy(QSql::HighPrecision);
    const QVariant h = c->db_.driver()->handle();
    // Qt names the handle's type after libpq's struct or its typedef.
    if (h.isValid() && (qstrcmp(h.typeName(), "pg_conn*") == 0 || qstrcmp(h.typeName(), "PGconn*") == 0))
        c->pg_ = *static_cast<PGconn* const*>(h.data());
    QSqlQuery q(c->db_);
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
    return c;
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
    if (!registroActivo_)
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

} // namespace

void Conexion::enviarLote()
{
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
        const QByteArray texto = adaptar(sql).toUtf8();
        antesDeSentencia();
        PGresult* r = PQexec(pg_, texto.constData());
        const ExecStatusType estado = PQresultStatus(r);
        if (estado != PGRES_TUPLES_OK && estado != PGRES_COMMAND_OK) {
            const QString mensaje = QString::fromUtf8(r ? PQresultErrorMessage(r) : PQerrorMessage(pg_)).trimmed();
            const QString sqlstate = QString::fromLatin1(r ? PQresultErrorField(r, PG_DIAG_SQLSTATE) : nullptr);
            PQclear(r);
            const VbError e = errorMotor(QSqlError(QStringLiteral("Unable to create query"),
                                                   sqlstate.isEmpty() ? mensaje : mensaje + QStringLiteral("\n(") + sqlstate + QLatin1Char(')'),
                                                   QSqlError::StatementError, sqlstate));
            trasFallo();
            throw e;
        }
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
    if (!db_.transaction())
        throw errorMotor(db_.lastError());
    ++transacciones_;
    puntoGuardado_ = false;
}

void Conexion::CommitTrans()
{
    if (transacciones_ == 1)
        for (const auto& [dueno, a] : avisos_)
            if (a.antesDeConfirmar)
                a.antesDeConfirmar();
    anotar(QStringLiteral("COMMIT TRANSACTION"));
    if (!db_.commit())
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
    const bool hecho = db_.rollback();
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
