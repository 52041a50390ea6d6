// Reading rows: the recordset, its SQLite and PostgreSQL cursors, and the
// prepared query that reuses one SQLite statement.
#include "db/Conexion.h"
#include "db/TokensSql.h"

#include "common/VbError.h"

#include <QDate>
#include <QDateTime>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTime>
#include <limits>
#include <libpq-fe.h>
#include <sqlite3.h>

namespace presupuestos {

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
    if (conexion_->grabadora())
        return Recordset();
    conexion_->completarPendientes();
    sqlite3* db = conexion_->sqlite();
    if (conexion_->postgres()) {
        const QString numerado = tokens::numerarMarcas(conexion_->adaptar(texto_));
        std::vector<QByteArray> textos;
        std::vector<char> nulos;
        for (const QVariant& v : valores) {
            nulos.push_back(v.isNull() ? 1 : 0);
            textos.push_back(v.userType() == qMetaTypeId<Currency>() ? v.value<Currency>().toSqlText().toLatin1() : v.toString().toUtf8());
        }
        return Recordset(std::make_unique<CursorPostgres>(conexion_, conexion_->ejecutarLibpq(QByteArray(), numerado.toUtf8(), false, textos, nulos)));
    }
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

int Cursor::indice(const QString& nombre) const
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

} // namespace presupuestos
