#include "db/Conexion.h"

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

// ---- Recordset ---------------------------------------------------------------

CursorSqlite::CursorSqlite(std::shared_ptr<Conexion> conexion, sqlite3_stmt* sentencia, bool propia)
    : conexion_(std::move(conexion)), st_(sentencia), propia_(propia)
{
    const int n = st_ ? sqlite3_column_count(st_) : 0;
    for (int i = 0; i < n; ++i)
        nombres_ << QString::fromUtf8(sqlite3_column_name(st_, i));
}

CursorSqlite::~CursorSqlite()
{
    if (propia_) {
        sqlite3_finalize(st_);
    } else if (st_) {
        sqlite3_reset(st_);
        sqlite3_clear_bindings(st_);
    }
}

Consulta::Consulta(std::shared_ptr<Conexion> conexion, QString texto) : conexion_(std::move(conexion)), texto_(std::move(texto)) {}

Consulta::~Consulta() { sqlite3_finalize(st_); }

Recordset Consulta::Abrir(const std::vector<QVariant>& valores)
{
    conexion_->anotar(texto_);
    conexion_->completarPendientes();
    sqlite3* db = conexion_->sqlite();
    if (!db) {
        const bool postgres = conexion_->motor() == Motor::PostgreSQL;
        auto q = std::make_unique<QSqlQuery>(conexion_->baseDatos());
        // Read whole on PostgreSQL: see Conexion::Abrir.
        q->setForwardOnly(!postgres);
        conexion_->antesDeSentencia();
        if (!q->prepare(conexion_->adaptar(texto_))) {
            const VbError e = conexion_->errorMotor(q->lastError());
            conexion_->trasFallo();
            throw e;
        }
        for (std::size_t i = 0; i < valores.size(); ++i)
            q->bindValue(static_cast<int>(i), valores[i]);
        if (!q->exec()) {
            const VbError e = conexion_->errorMotor(q->lastError());
            conexion_->trasFallo();
            throw e;
        }
        return Recordset(std::move(q));
    }
    const auto preparar = [&](sqlite3_stmt** st) {
        const QByteArray t = conexion_->adaptar(texto_).toUtf8();
        const int rc = sqlite3_prepare_v2(db, t.constData(), static_cast<int>(t.size()), st, nullptr);
        if (rc != SQLITE_OK) {
            sqlite3_finalize(*st);
            *st = nullptr;
            throw conexion_->errorMotor(QSqlError(QStringLiteral("Unable to execute statement"), QString::fromUtf8(sqlite3_errmsg(db)),
                                                  QSqlError::StatementError, QString::number(rc)));
        }
    };
    if (!st_)
        preparar(&st_);
    // Still being read by an earlier recordset: this one gets its own.
    sqlite3_stmt* st = st_;
    const bool propia = sqlite3_stmt_busy(st_) != 0;
    if (propia)
        preparar(&st);
    for (std::size_t i = 0; i < valores.size(); ++i) {
        const QVariant& v = valores[i];
        const int n = static_cast<int>(i) + 1;
        int rc;
        if (v.isNull())
            rc = sqlite3_bind_null(st, n);
        else if (v.typeId() == QMetaType::QString) {
            const QByteArray b = v.toString().toUtf8();
            rc = sqlite3_bind_text(st, n, b.constData(), static_cast<int>(b.size()), SQLITE_TRANSIENT);
        } else if (v.typeId() == QMetaType::Double)
            rc = sqlite3_bind_double(st, n, v.toDouble());
        else
            rc = sqlite3_bind_int64(st, n, v.toLongLong());
        if (rc != SQLITE_OK) {
            if (propia)
                sqlite3_finalize(st);
            throw conexion_->errorMotor(QSqlError(QStringLiteral("Unable to bind parameters"), QString::fromUtf8(sqlite3_errmsg(db)),
                                                  QSqlError::StatementError, QString::number(rc)));
        }
    }
    return Recordset(std::make_unique<CursorSqlite>(conexion_, st, propia));
}

CursorPostgres::CursorPostgres(std::shared_ptr<Conexion> conexion, ::pg_result* resultado)
    : conexion_(std::move(conexion)), r_(resultado), filas_(PQntuples(resultado))
{
    const int n = PQnfields(r_);
    for (int i = 0; i < n; ++i)
        nombres_ << QString::fromUtf8(PQfname(r_, i));
}

CursorPostgres::~CursorPostgres() { PQclear(r_); }

bool CursorPostgres::avanzar()
{
    if (fila_ < filas_)
        ++fila_;
    return fila_ < filas_;
}

int CursorPostgres::indice(const QString& nombre) const
{
    for (int i = 0; i < nombres_.size(); ++i)
        if (nombres_[i].compare(nombre, Qt::CaseInsensitive) == 0)
            return i;
    return -1;
}

namespace {
// Type numbers of PostgreSQL's catalogue (pg_type.oid) the worksheet reads.
constexpr Oid kBool = 16, kBytea = 17, kInt8 = 20, kInt2 = 21, kInt4 = 23, kFloat4 = 700, kFloat8 = 701, kNumeric = 1700,
              kDate = 1082, kTime = 1083, kTimestamp = 1114, kTimestampTz = 1184;

// The type Qt's driver gives a column of that PostgreSQL type.
QMetaType tipoQt(Oid tipo)
{
    switch (tipo) {
    case kBool: return QMetaType::fromType<bool>();
    case kInt8: return QMetaType::fromType<qlonglong>();
    case kInt2:
    case kInt4: return QMetaType::fromType<int>();
    case kFloat4:
    case kFloat8:
    case kNumeric: return QMetaType::fromType<double>();
    case kDate: return QMetaType::fromType<QDate>();
    case kTime: return QMetaType::fromType<QTime>();
    case kTimestamp:
    case kTimestampTz: return QMetaType::fromType<QDateTime>();
    case kBytea: return QMetaType::fromType<QByteArray>();
    default: return QMetaType::fromType<QString>();
    }
}
} // namespace

// The values Qt's PostgreSQL driver gives (a NUMERIC as its exact text), so
// that a field reads the same whichever way its recordset was opened.
QVariant CursorPostgres::valor(int i) const
{
    const Oid tipo = PQftype(r_, i);
    if (PQgetisnull(r_, fila_, i))
        return QVariant(tipoQt(tipo));
    const char* v = PQgetvalue(r_, fila_, i);
    switch (tipo) {
    case kBool: return QVariant(v[0] == 't');
    case kInt2:
    case kInt4: return QVariant(static_cast<int>(std::strtol(v, nullptr, 10)));
    case kInt8: return QVariant(static_cast<qlonglong>(std::strtoll(v, nullptr, 10)));
    case kFloat4:
    case kFloat8: return QVariant(QString::fromLatin1(v).toDouble());
    case kNumeric: return QVariant(QString::fromLatin1(v));
    case kDate: return QVariant(QDate::fromString(QString::fromLatin1(v), Qt::ISODate));
    case kTimestamp: return QVariant(QDateTime::fromString(QString::fromLatin1(v).replace(QLatin1Char(' '), QLatin1Char('T')), Qt::ISODate));
    default: return QVariant(texto(i));
    }
}

Currency CursorPostgres::moneda(int i) const
{
    if (PQgetisnull(r_, fila_, i))
        return Currency();
    const Oid tipo = PQftype(r_, i);
    if (tipo == kInt2 || tipo == kInt4 || tipo == kInt8)
        return Currency::fromInt(std::strtoll(PQgetvalue(r_, fila_, i), nullptr, 10));
    if (tipo != kNumeric)
        return Currency::fromVariant(valor(i));
    // A NUMERIC's exact decimal text.
    Currency c;
    if (Currency::parsePlain(QString::fromLatin1(PQgetvalue(r_, fila_, i), PQgetlength(r_, fila_, i)), c))
        return c;
    return Currency::fromVariant(valor(i));
}

QString CursorPostgres::texto(int i) const
{
    if (PQgetisnull(r_, fila_, i))
        return QString();
    const Oid tipo = PQftype(r_, i);
    if (tipo == kBool || tipo == kDate || tipo == kTime || tipo == kTimestamp || tipo == kTimestampTz || tipo == kBytea
        || tipo == kFloat4 || tipo == kFloat8)
        return valor(i).toString();
    return QString::fromUtf8(PQgetvalue(r_, fila_, i), PQgetlength(r_, fila_, i));
}

bool CursorSqlite::avanzar()
{
    if (!st_)
        return false;
    const int rc = sqlite3_step(st_);
    if (rc == SQLITE_ROW)
        return true;
    if (rc == SQLITE_DONE)
        return false;
    // A read that fails half way (another user's lock, a full disk) must
    // not pass for the end of the rows: a load would show part of a year.
    const QString mensaje = QString::fromUtf8(sqlite3_errmsg(sqlite3_db_handle(st_)));
    sqlite3_reset(st_);
    throw conexion_->errorMotor(
        QSqlError(QStringLiteral("Unable to fetch row"), mensaje, QSqlError::ConnectionError, QString::number(rc)));
}

int CursorSqlite::indice(const QString& nombre) const
{
    for (int i = 0; i < nombres_.size(); ++i)
        if (nombres_[i].compare(nombre, Qt::CaseInsensitive) == 0)
            return i;
    return -1;
}

// The values Qt's SQLite driver gives, so that a field reads the same
// whichever way its recordset was opened.
QVariant CursorSqlite::valor(int i) const
{
    switch (sqlite3_column_type(st_, i)) {
    case SQLITE_INTEGER:
        return QVariant(static_cast<qlonglong>(sqlite3_column_int64(st_, i)));
    case SQLITE_FLOAT:
        return QVariant(sqlite3_column_double(st_, i));
    case SQLITE_NULL:
        return QVariant(QMetaType::fromType<QString>());
    case SQLITE_BLOB:
        return QVariant(QByteArray(static_cast<const char*>(sqlite3_column_blob(st_, i)), sqlite3_column_bytes(st_, i)));
    default:
        return QVariant(texto(i));
    }
}

Currency CursorSqlite::moneda(int i) const
{
    switch (sqlite3_column_type(st_, i)) {
    case SQLITE_INTEGER:
        return Currency::fromInt(sqlite3_column_int64(st_, i));
    case SQLITE_FLOAT:
        return Currency::fromDouble(sqlite3_column_double(st_, i));
    case SQLITE_NULL:
        return Currency();
    default:
        return Currency::fromVariant(valor(i));
    }
}

QString CursorSqlite::texto(int i) const
{
    if (sqlite3_column_type(st_, i) != SQLITE_TEXT)
        return valor(i).toString();
    const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(st_, i));
    return QString::fromUtf8(p, sqlite3_column_bytes(st_, i));
}

Recordset::Recordset(std::unique_ptr<Cursor> c) : c_(std::move(c))
{
    numColumnas_ = c_->columnas();
    eof_ = numColumnas_ == 0 ? (c_->avanzar(), true) : !c_->avanzar();
}

Recordset::Recordset(std::unique_ptr<QSqlQuery> q) : q_(std::move(q))
{
    if (q_) {
        columnas_ = q_->record();
        numColumnas_ = columnas_.count();
    }
    eof_ = !(q_ && q_->isSelect() && q_->next());
}

void Recordset::MoveNext()
{
    if (eof_ || (!q_ && !c_))
        throw VbError::noCurrentRecord();
    eof_ = c_ ? !c_->avanzar() : !q_->next();
}

void Recordset::Close()
{
    if (q_) {
        q_->finish();
        q_.reset();
    }
    c_.reset();
    eof_ = true;
}

int Recordset::numeroCampos() const { return q_ || c_ ? numColumnas_ : 0; }

int Recordset::indiceCampo(const QString& nombre) const
{
    if (c_)
        return c_->indice(nombre);
    return q_ ? columnas_.indexOf(nombre) : -1;
}

void Recordset::comprobar(int indice) const
{
    if ((!q_ && !c_) || eof_)
        throw VbError::noCurrentRecord();
    if (indice < 0 || indice >= numColumnas_)
        throw VbError::itemNotFound();
}

QVariant Recordset::campo(int indice) const
{
    comprobar(indice);
    return c_ ? c_->valor(indice) : q_->value(indice);
}

QVariant Recordset::campo(const QString& nombre) const
{
    if ((!q_ && !c_) || eof_)
        throw VbError::noCurrentRecord();
    return campo(indiceCampo(nombre));
}

Currency Recordset::moneda(int indice) const
{
    comprobar(indice);
    return c_ ? c_->moneda(indice) : Currency::fromVariant(q_->value(indice));
}

QString Recordset::texto(int indice) const
{
    comprobar(indice);
    return c_ ? c_->texto(indice) : q_->value(indice).toString();
}

namespace {
int aEntero(const QVariant& v)
{
    if (v.isNull())
        throw VbError::invalidUseOfNull();
    return Currency::fromVariant(v).toInt32();
}
} // namespace

int Recordset::entero(const QString& nombre) const { return aEntero(campo(nombre)); }
int Recordset::entero(int indice) const { return aEntero(campo(indice)); }

// ---- Comando -----------------------------------------------------------------

namespace {

// The text with each '?' marker outside quotes, brackets and comments given
// a name of its own, in order; the names go to marcas. Qt builds a name
// with QString::arg on every positional bind, which shows in imports of
// tens of thousands of rows; names made once here are bound instead. Gives
// an empty text, and the markers stay positional, when the text already
// has a ':' outside quotes or does not have one marker per parameter.
QString nombrarMarcas(const QString& sql, int parametros, QStringList& marcas)
{
    marcas.clear();
    QString r;
    r.reserve(sql.size() + parametros * 4);
    const qsizetype n = sql.size();
    for (qsizetype i = 0; i < n; ++i) {
        const QChar c = sql[i];
        const QChar sig = i + 1 < n ? sql[i + 1] : QChar();
        QChar cierre;
        if (c == u'\'' || c == u'"')
            cierre = c;
        else if (c == u'[')
            cierre = u']';
        if (!cierre.isNull()) {
            const qsizetype fin = sql.indexOf(cierre, i + 1);
            if (fin < 0)
                return {};
            r += QStringView(sql).mid(i, fin - i + 1);
            i = fin; // a doubled quote reads as two quoted runs side by side
            continue;
        }
        if ((c == u'-' && sig == u'-') || (c == u'/' && sig == u'*'))
            return {};
        if (c == u':')
            return {};
        if (c == u'?') {
            marcas << QStringLiteral(":p%1").arg(marcas.size());
            r += marcas.back();
            continue;
        }
        r += c;
    }
    if (marcas.size() != parametros) {
        marcas.clear();
        return {};
    }
    return r;
}

} // namespace

Comando::Comando(std::shared_ptr<Conexion> conexion) : conexion_(std::move(conexion)) {}

Comando::~Comando() { soltarDirecta(); }

void Comando::soltarDirecta()
{
    if (directa_)
        sqlite3_finalize(directa_);
    directa_ = nullptr;
    directaProbada_ = false;
}

void Comando::setCommandText(const QString& texto)
{
    texto_ = texto;
    anotado_ = false;
    consulta_.reset();
    soltarDirecta();
}

void Comando::agregarParametro(const QString& nombre, TipoParametro tipo, int tamano)
{
    Parametro p;
    p.nombre = nombre;
    p.tipo = tipo;
    p.tamano = tamano;
    parametros_.push_back(std::move(p));
    consulta_.reset();
    soltarDirecta();
}

const QString& Comando::nombreParametro(int i) const
{
    if (i < 0 || i >= numeroParametros())
        throw VbError::subscriptOutOfRange();
    return parametros_[i].nombre;
}

TipoParametro Comando::tipoParametro(int i) const
{
    if (i < 0 || i >= numeroParametros())
        throw VbError::subscriptOutOfRange();
    return parametros_[i].tipo;
}

int Comando::tamanoParametro(int i) const
{
    if (i < 0 || i >= numeroParametros())
        throw VbError::subscriptOutOfRange();
    return parametros_[i].tamano;
}

void Comando::ponerTexto(Parametro& p, const QString& t)
{
    if (p.tamano > 0 && t.size() > p.tamano)
        throw VbError(VbError::ParameterTooLong,
                      QStringLiteral("El valor \"%1\" del parámetro %2 tiene %3 caracteres y admite como máximo %4.")
                          .arg(t, p.nombre)
                          .arg(t.size())
                          .arg(p.tamano));
    p.texto = t;
    p.utf8 = t.toUtf8();
    p.nulo = false;
}

// Imports bind a dozen amounts per row: they go in without a QVariant.
void Comando::setEntero(int indice, qint32 valor)
{
    if (indice < 0 || indice >= numeroParametros())
        throw VbError::itemNotFound();
    Parametro& p = parametros_[indice];
    switch (p.tipo) {
    case TipoParametro::Entero: p.numero = valor; break;
    case TipoParametro::Moneda: p.numero = Currency::fromInt(valor).raw(); break;
    case TipoParametro::Texto: ponerTexto(p, QString::number(valor)); return;
    case TipoParametro::Booleano: p.numero = valor != 0; break;
    }
    p.nulo = false;
}

void Comando::setBooleano(int indice, bool valor) { setEntero(indice, valor ? 1 : 0); }

void Comando::setValor(int indice, Currency valor)
{
    if (indice < 0 || indice >= numeroParametros())
        throw VbError::itemNotFound();
    Parametro& p = parametros_[indice];
    switch (p.tipo) {
    case TipoParametro::Entero: p.numero = valor.toInt32(); break;
    case TipoParametro::Moneda: p.numero = valor.raw(); break;
    case TipoParametro::Texto: ponerTexto(p, valor.toPlainText()); return;
    case TipoParametro::Booleano: p.numero = !valor.isZero(); break;
    }
    p.nulo = false;
}

void Comando::setValor(int indice, const QVariant& valor)
{
    if (indice < 0 || indice >= numeroParametros())
        throw VbError::itemNotFound();
    Parametro& p = parametros_[indice];
    if (valor.isNull() || !valor.isValid()) {
        p.nulo = true;
        p.texto.clear();
        return;
    }
    if (valor.userType() == qMetaTypeId<Currency>()) {
        setValor(indice, valor.value<Currency>());
        return;
    }
    switch (p.tipo) {
    case TipoParametro::Entero:
        if (valor.typeId() == QMetaType::QString)
            p.numero = Currency::fromVariant(valor).toInt32();
        else if (valor.typeId() == QMetaType::Double || valor.typeId() == QMetaType::Float)
            p.numero = Currency::fromDouble(valor.toDouble()).toInt32();
        else if (valor.typeId() == QMetaType::Bool)
            p.numero = valor.toBool() ? -1 : 0;
        else {
            const qlonglong n = valor.toLongLong();
            if (n < std::numeric_limits<int>::min() || n > std::numeric_limits<int>::max())
                throw VbError::overflow();
            p.numero = static_cast<int>(n);
        }
        break;
    case TipoParametro::Moneda: p.numero = Currency::fromVariant(valor).raw(); break;
    case TipoParametro::Texto: ponerTexto(p, valor.toString()); return;
    case TipoParametro::Booleano: p.numero = valor.toBool(); break;
    }
    p.nulo = false;
}

QVariant Comando::valor(int indice) const
{
    if (indice < 0 || indice >= numeroParametros())
        throw VbError::subscriptOutOfRange();
    const Parametro& p = parametros_[indice];
    if (p.nulo)
        return QVariant();
    switch (p.tipo) {
    case TipoParametro::Entero: return QVariant(static_cast<int>(p.numero));
    case TipoParametro::Moneda: return QVariant::fromValue(Currency::fromRaw(p.numero));
    case TipoParametro::Texto: return QVariant(p.texto);
    case TipoParametro::Booleano: return QVariant(p.numero != 0);
    }
    return QVariant();
}

// The value as Qt's driver receives it: a currency as its double, a null
// typed after the parameter.
QVariant Comando::paraQt(const Parametro& p) const
{
    if (conexion_->motor() == Motor::PostgreSQL) {
        // The server's NUMERIC takes the currency's exact decimal text; its
        // bit columns are small integers.
        if (p.nulo)
            return p.tipo == TipoParametro::Texto ? QVariant(QMetaType::fromType<QString>()) : QVariant(QMetaType::fromType<int>());
        if (p.tipo == TipoParametro::Moneda)
            return QVariant(Currency::fromRaw(p.numero).toSqlText());
        if (p.tipo == TipoParametro::Booleano)
            return QVariant(p.numero != 0 ? 1 : 0);
    }
    if (p.nulo) {
        switch (p.tipo) {
        case TipoParametro::Entero: return QVariant(QMetaType::fromType<int>());
        case TipoParametro::Moneda: return QVariant(QMetaType::fromType<double>());
        case TipoParametro::Texto: return QVariant(QMetaType::fromType<QString>());
        case TipoParametro::Booleano: return QVariant(QMetaType::fromType<bool>());
        }
    }
    switch (p.tipo) {
    case TipoParametro::Entero: return QVariant(static_cast<int>(p.numero));
    case TipoParametro::Moneda: return QVariant(Currency::fromRaw(p.numero).toDouble());
    case TipoParametro::Texto: return QVariant(p.texto);
    case TipoParametro::Booleano: return QVariant(p.numero != 0);
    }
    return QVariant();
}

// Qt's driver costs more than the statement itself on small writes run tens
// of thousands of times (a QVariant list per run, a name built per bind), so
// SQLite statements are prepared on the engine's handle when they bind
// plainly: one '?' per parameter, no records returned. Whatever does not
// fit, or fails to prepare, takes Qt's way, which also words the error.
bool Comando::prepararDirecta()
{
    directaProbada_ = true;
    sqlite3* db = conexion_->sqlite();
    if (!db || conexion_->motor() != Motor::SQLite)
        return false;
    const QByteArray texto = conexion_->adaptar(texto_).toUtf8();
    sqlite3_stmt* st = nullptr;
    const char* resto = nullptr;
    if (sqlite3_prepare_v3(db, texto.constData(), static_cast<int>(texto.size()), SQLITE_PREPARE_PERSISTENT, &st, &resto)
            != SQLITE_OK
        || !st) {
        sqlite3_finalize(st);
        return false;
    }
    bool sirve = QByteArray(resto).trimmed().isEmpty() && sqlite3_column_count(st) == 0
                 && sqlite3_bind_parameter_count(st) == numeroParametros();
    for (int i = 1; sirve && i <= numeroParametros(); ++i)
        sirve = sqlite3_bind_parameter_name(st, i) == nullptr;
    if (!sirve) {
        sqlite3_finalize(st);
        return false;
    }
    directa_ = st;
    return true;
}

long Comando::ejecutarDirecta()
{
    sqlite3* db = conexion_->sqlite();
    sqlite3_stmt* st = directa_;
    // As Qt words them: what failed, then the engine's message and code.
    const auto error = [&](const char* que, QSqlError::ErrorType tipo, int codigo) {
        return conexion_->errorMotor(QSqlError(QCoreApplication::translate("QSQLiteResult", que),
                                               QString::fromUtf8(sqlite3_errmsg(db)), tipo, QString::number(codigo)));
    };
    for (int i = 0; i < numeroParametros(); ++i) {
        const Parametro& p = parametros_[static_cast<std::size_t>(i)];
        int r = SQLITE_OK;
        // A null text is a null, as Qt binds it.
        if (p.nulo || (p.tipo == TipoParametro::Texto && p.texto.isNull()))
            r = sqlite3_bind_null(st, i + 1);
        else if (p.tipo == TipoParametro::Moneda)
            r = sqlite3_bind_double(st, i + 1, Currency::fromRaw(p.numero).toDouble());
        else if (p.tipo == TipoParametro::Texto)
            // The text stays in the parameter until it is bound again.
            r = sqlite3_bind_text(st, i + 1, p.utf8.constData(), static_cast<int>(p.utf8.size()), SQLITE_STATIC);
        else
            r = sqlite3_bind_int(st, i + 1, static_cast<int>(p.numero));
        if (r != SQLITE_OK) {
            const VbError e = error("Unable to bind parameters", QSqlError::StatementError, r);
            soltarDirecta();
            throw e;
        }
    }
    int r = sqlite3_step(st);
    if (r == SQLITE_DONE || r == SQLITE_ROW) {
        sqlite3_reset(st);
        const long n = sqlite3_changes(db);
        if (!preparado_)
            soltarDirecta();
        return n;
    }
    std::optional<VbError> e;
    if ((r & 0xff) == SQLITE_ERROR || (r & 0xff) == SQLITE_CONSTRAINT) {
        // The generic code: resetting gives the specific one.
        r = sqlite3_reset(st);
        e = error("Unable to fetch row", QSqlError::ConnectionError, r);
    } else {
        e = error("Unable to fetch row", QSqlError::ConnectionError, r);
        sqlite3_reset(st);
    }
    if (!preparado_)
        soltarDirecta();
    throw *e;
}

long Comando::Execute()
{
    if (!conexion_)
        throw VbError::connectionUnusable();
    if (!anotado_ || !preparado_) {
        conexion_->anotar(texto_);
        anotado_ = true;
    }
    conexion_->completarPendientes();
    if (!directaProbada_ || !preparado_) {
        if (directa_)
            soltarDirecta();
        prepararDirecta();
    }
    if (directa_)
        return ejecutarDirecta();
    conexion_->antesDeSentencia();
    if (!consulta_ || !preparado_) {
        consulta_ = std::make_unique<QSqlQuery>(conexion_->baseDatos());
        consulta_->setForwardOnly(true);
        const QString adaptado = conexion_->adaptar(texto_);
        QString nombrado = nombrarMarcas(adaptado, numeroParametros(), marcas_);
        if (!consulta_->prepare(nombrado.isEmpty() ? adaptado : nombrado)) {
            std::unique_ptr<QSqlQuery> fallida = std::move(consulta_);
            const VbError e = conexion_->errorMotor(fallida->lastError());
            conexion_->trasFallo();
            throw e;
        }
    }
    for (int i = 0; i < numeroParametros(); ++i) {
        const QVariant v = paraQt(parametros_[static_cast<std::size_t>(i)]);
        if (marcas_.isEmpty())
            consulta_->bindValue(i, v);
        else
            consulta_->bindValue(marcas_[i], v);
    }
    if (!consulta_->exec()) {
        const VbError e = conexion_->errorMotor(consulta_->lastError());
        conexion_->trasFallo();
        throw e;
    }
    const long n = consulta_->numRowsAffected();
    if (!preparado_)
        consulta_.reset();
    return n;
}

} // namespace presupuestos
