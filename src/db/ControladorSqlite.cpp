#include "db/ControladorSqlite.h"

#include "common/NumerosEs.h"
#include "db/Conexion.h"
#include "db/ControladorQt.h"
#include "db/DialectoSqlite.h"

#include <QCoreApplication>
#include <QDate>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QSqlDriver>
#include <QUrl>
#include <optional>
#include <sqlite3.h>
#include <unistd.h>

namespace presupuestos {

namespace {

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

// A command prepared on the engine's handle and bound by position: Qt's
// driver costs more than the statement itself on small writes run tens of
// thousands of times (a QVariant list per run, a name built per bind).
class ComandoSqlite : public ComandoPreparado {
public:
    ComandoSqlite(ControladorSqlite& ctl, sqlite3_stmt* st) : ctl_(ctl), st_(st) {}
    ~ComandoSqlite() override { sqlite3_finalize(st_); }
    long ejecutar(const std::vector<ParametroComando>& parametros) override
    {
        for (std::size_t i = 0; i < parametros.size(); ++i) {
            const ParametroComando& p = parametros[i];
            const int n = static_cast<int>(i) + 1;
            int r = SQLITE_OK;
            if (p.esNulo())
                r = sqlite3_bind_null(st_, n);
            else if (p.tipo == TipoParametro::Moneda)
                r = sqlite3_bind_double(st_, n, Currency::fromRaw(p.numero).toDouble());
            else if (p.tipo == TipoParametro::Diezmilesimas)
                r = sqlite3_bind_int64(st_, n, p.numero);
            else if (p.tipo == TipoParametro::Texto)
                // The text stays in the parameter until it is bound again.
                r = sqlite3_bind_text(st_, n, p.utf8.constData(), static_cast<int>(p.utf8.size()), SQLITE_STATIC);
            else
                r = sqlite3_bind_int(st_, n, static_cast<int>(p.numero));
            if (r != SQLITE_OK)
                throw ctl_.error("Unable to bind parameters", r);
        }
        return ctl_.paso(st_);
    }

private:
    ControladorSqlite& ctl_;
    sqlite3_stmt* st_;
};

// A query prepared once and opened many times: the change journal reads a
// row before and after every write.
class ConsultaSqlite : public ConsultaPreparada {
public:
    ConsultaSqlite(ControladorSqlite& ctl, Conexion& c, QByteArray texto) : ctl_(ctl), c_(c), texto_(std::move(texto)) {}
    ~ConsultaSqlite() override { sqlite3_finalize(st_); }
    Recordset abrir(const std::vector<QVariant>& valores) override
    {
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
                const VbError e = ctl_.error("Unable to bind parameters", rc);
                if (propia)
                    sqlite3_finalize(st);
                throw e;
            }
        }
        return Recordset(std::make_unique<CursorSqlite>(c_.shared_from_this(), st, propia));
    }

private:
    void preparar(sqlite3_stmt** st)
    {
        const int rc = sqlite3_prepare_v2(ctl_.handle(), texto_.constData(), static_cast<int>(texto_.size()), st, nullptr);
        if (rc != SQLITE_OK) {
            sqlite3_finalize(*st);
            *st = nullptr;
            throw ctl_.error("Unable to execute statement", rc);
        }
    }

    ControladorSqlite& ctl_;
    Conexion& c_;
    QByteArray texto_;
    sqlite3_stmt* st_ = nullptr;
};

} // namespace

ControladorSqlite::ControladorSqlite(Conexion& conexion, const QString& fichero) : Controlador(conexion), fichero_(fichero)
{
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
    QSqlDatabase& bd = agregarBaseDatos(QStringLiteral("QSQLITE"), QStringLiteral("libqt6sql6-sqlite"), QStringLiteral("de SQLite"));
    bd.setDatabaseName(fichero);
    if (soloLectura)
        bd.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
    if (!bd.open())
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("No se puede abrir la base de datos \"%1\": %2").arg(fichero, texto(bd.lastError())));
    registrarFunciones();
    QSqlQuery q(bd);
    // Reading the header tells a file that is not a database apart at once.
    bool legible = q.exec(QStringLiteral("PRAGMA schema_version"));
    if (!legible && soloLectura) {
        // A file kept with the write-ahead log cannot be read without the
        // shared-memory file beside it, which a read-only folder cannot
        // take: read-only throughout, it is read as a file nobody changes.
        q = QSqlQuery();
        bd.close();
        bd.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_OPEN_URI"));
        bd.setDatabaseName(QUrl::fromLocalFile(QFileInfo(fichero).absoluteFilePath()).toString(QUrl::FullyEncoded)
                           + QStringLiteral("?immutable=1"));
        if (bd.open()) {
            registrarFunciones();
            q = QSqlQuery(bd);
            legible = q.exec(QStringLiteral("PRAGMA schema_version"));
        }
    }
    if (!legible)
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("No se puede abrir la base de datos \"%1\": %2").arg(fichero, texto(q.lastError())));
    q.exec(QStringLiteral("PRAGMA foreign_keys = ON"));
    // Another user's write makes ours wait a while rather than fail at once.
    q.exec(QStringLiteral("PRAGMA busy_timeout = %1").arg(Conexion::kEsperaBloqueoDefecto));
    if (fichero != QLatin1String(":memory:") && !soloLectura) {
        q.exec(QStringLiteral("PRAGMA journal_mode = WAL"));
        q.exec(QStringLiteral("PRAGMA synchronous = NORMAL"));
    }
}

ControladorSqlite::FormaPreparada::~FormaPreparada() { sqlite3_finalize(st); }

ControladorSqlite::~ControladorSqlite()
{
    formas_.clear();
    for (sqlite3_stmt* st : {empezar_, confirmar_, deshacer_})
        sqlite3_finalize(st);
}

void ControladorSqlite::registrarFunciones()
{
    const QVariant h = c_.db_.driver()->handle();
    if (!h.isValid() || qstrcmp(h.typeName(), "sqlite3*") != 0)
        return;
    sqlite3* handle = *static_cast<sqlite3* const*>(h.data());
    if (!handle)
        return;
    db_ = handle;
    const int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC;
    sqlite3_create_function_v2(handle, "LEN", 1, flags, nullptr, funcionLen, nullptr, nullptr, nullptr);
    sqlite3_create_function_v2(handle, "MONTH", 1, flags, nullptr, funcionMonth, nullptr, nullptr, nullptr);
    sqlite3_create_function_v2(handle, "YEAR", 1, flags, nullptr, funcionYear, nullptr, nullptr, nullptr);
}

VbError ControladorSqlite::error(const char* que, int codigo) const
{
    // As Qt words them: what failed, then the engine's message and code.
    return c_.errorMotor(QSqlError(QCoreApplication::translate("QSQLiteResult", que), QString::fromUtf8(sqlite3_errmsg(db_)),
                                   QSqlError::StatementError, QString::number(codigo)));
}

QString ControladorSqlite::adaptar(const QString& sql)
{
    SqlAdaptado a = DialectoSqlite::adaptar(sql);
    adjuntar(a.basesDatos);
    return a.texto;
}

void ControladorSqlite::asociarBaseDatos(const QString& nombre, const QString& fichero)
{
    ficherosBases_.insert(nombre.toLower(), fichero);
}

void ControladorSqlite::adjuntar(const QStringList& bases)
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
        QSqlQuery q(c_.db_);
        QString nombreSql = bd;
        nombreSql.replace(QLatin1Char('"'), QStringLiteral("\"\""));
        QString ficheroSql = fichero;
        ficheroSql.replace(QLatin1Char('\''), QStringLiteral("''"));
        if (!q.exec(QStringLiteral("ATTACH DATABASE '%1' AS \"%2\"").arg(ficheroSql, nombreSql)))
            throw VbError(VbError::DatabaseError,
                          QStringLiteral("No se puede abrir la base de datos \"%1\": %2").arg(bd, texto(q.lastError())));
        adjuntadas_ << bd;
    }
}

// The result code, sometimes extended: the low byte is the primary code.
Diagnostico ControladorSqlite::diagnosticar(const QSqlError& e) const
{
    Diagnostico d;
    bool ok = false;
    const int codigo = e.nativeErrorCode().toInt(&ok);
    const QString texto = e.databaseText();
    switch (ok ? (codigo & 0xff) : -1) {
    case SQLITE_READONLY: d.causa = VbError::Causa::SoloLectura; break;
    case SQLITE_BUSY:
    case SQLITE_LOCKED: d.causa = VbError::Causa::Bloqueada; break;
    case SQLITE_FULL: d.discoLleno = true; break;
    case SQLITE_CONSTRAINT:
        if (texto.contains(QLatin1String("UNIQUE"), Qt::CaseInsensitive) || texto.contains(QLatin1String("PRIMARY KEY"), Qt::CaseInsensitive))
            d.causa = VbError::Causa::ClaveDuplicada;
        break;
    default: break;
    }
    if (d.causa == VbError::Causa::Ninguna) {
        if (texto.contains(QLatin1String("readonly database"), Qt::CaseInsensitive))
            d.causa = VbError::Causa::SoloLectura;
        else if (texto.contains(QLatin1String("database is locked"), Qt::CaseInsensitive))
            d.causa = VbError::Causa::Bloqueada;
    }
    return d;
}

void ControladorSqlite::setEsperaBloqueo(int milisegundos)
{
    QSqlQuery(c_.db_).exec(QStringLiteral("PRAGMA busy_timeout = %1").arg(milisegundos));
}

// Every operation begins and ends one: prepared once each on the engine's
// handle (Qt's driver would parse them every time).
bool ControladorSqlite::ejecutarFija(sqlite3_stmt*& st, const char* sql)
{
    if (!st && sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, &st, nullptr) != SQLITE_OK) {
        sqlite3_finalize(st);
        st = nullptr;
        return false;
    }
    const int rc = sqlite3_step(st);
    sqlite3_reset(st);
    return rc == SQLITE_DONE || rc == SQLITE_ROW;
}

bool ControladorSqlite::empezar()
{
    // Every transaction here writes: it takes the write lock at once, so
    // what it reads before writing cannot change under it, and another
    // user's lock is waited for (the busy timeout) instead of refused when a
    // read lock would have to grow into a write lock.
    if (!db_ || !ejecutarFija(empezar_, "BEGIN IMMEDIATE")) {
        const int rc = db_ ? sqlite3_extended_errcode(db_) : SQLITE_MISUSE;
        throw error("Unable to begin transaction", rc);
    }
    return true;
}

bool ControladorSqlite::confirmar()
{
    if (ejecutarFija(confirmar_, "COMMIT"))
        return true;
    // As Qt's driver would have it, for the connection to word the error.
    const int rc = sqlite3_extended_errcode(db_);
    throw error("Unable to commit transaction", rc);
}

bool ControladorSqlite::deshacer() { return ejecutarFija(deshacer_, "ROLLBACK"); }
bool ControladorSqlite::transaccionViva() const { return !db_ || sqlite3_get_autocommit(db_) == 0; }

long ControladorSqlite::ejecutar(const QString& sql)
{
    const auto forma = formaDe(sql);
    if (!forma)
        return ejecutarQt(c_, adaptar(sql));
    auto it = formas_.find(forma->clave);
    if (it == formas_.end()) {
        if (formas_.size() >= kMaxFormas)
            formas_.clear();
        auto f = std::make_unique<FormaPreparada>();
        // Prepared on the engine's handle and bound by position when the
        // text binds plainly: Qt's driver costs more than a small write per
        // run (the first load writes a row of the filter table per account).
        const QString adaptado = adaptar(forma->clave);
        const QByteArray utf8 = adaptado.toUtf8();
        const char* resto = nullptr;
        if (db_
            && sqlite3_prepare_v3(db_, utf8.constData(), static_cast<int>(utf8.size()), SQLITE_PREPARE_PERSISTENT, &f->st, &resto)
                   == SQLITE_OK
            && f->st && QByteArrayView(resto, utf8.constData() + utf8.size() - resto).trimmed().isEmpty()
            && sqlite3_bind_parameter_count(f->st) == forma->valores.size()) {
            // bound by position below
        } else {
            sqlite3_finalize(f->st);
            f->st = nullptr;
            f->q = std::make_unique<QSqlQuery>(c_.db_);
            f->q->setForwardOnly(true);
            if (!f->q->prepare(adaptado))
                c_.lanzarErrorMotor(f->q->lastError());
        }
        it = formas_.emplace(forma->clave, std::move(f)).first;
    }
    FormaPreparada& f = *it->second;
    if (f.q) {
        QSqlQuery& q = *f.q;
        for (int i = 0; i < forma->valores.size(); ++i)
            q.bindValue(i, forma->valores[i]);
        if (!q.exec())
            c_.lanzarErrorMotor(q.lastError());
        const long afectadas = q.numRowsAffected();
        // Done with, so that nothing of it is held open until it runs again.
        q.finish();
        return afectadas;
    }
    sqlite3_stmt* st = f.st;
    for (int i = 0; i < forma->valores.size(); ++i) {
        const QVariant& v = forma->valores[i];
        const int n = i + 1;
        int rc;
        if (v.typeId() == QMetaType::QString) {
            // A null text is a null, as Qt's driver binds it.
            const QString t = v.toString();
            const QByteArray b = t.toUtf8();
            rc = t.isNull() ? sqlite3_bind_null(st, n)
                            : sqlite3_bind_text(st, n, b.constData(), static_cast<int>(b.size()), SQLITE_TRANSIENT);
        } else if (v.typeId() == QMetaType::Double) {
            rc = sqlite3_bind_double(st, n, v.toDouble());
        } else {
            rc = sqlite3_bind_int64(st, n, v.toLongLong());
        }
        if (rc != SQLITE_OK)
            throw error("Unable to bind parameters", rc);
    }
    return paso(st);
}

int ControladorSqlite::paso(sqlite3_stmt* st) const
{
    int rc = sqlite3_step(st);
    if (rc == SQLITE_DONE || rc == SQLITE_ROW) {
        // Done with, so that nothing of it is held open until it runs again.
        sqlite3_reset(st);
        return sqlite3_changes(db_);
    }
    // The generic code: resetting gives the specific one.
    if ((rc & 0xff) == SQLITE_ERROR || (rc & 0xff) == SQLITE_CONSTRAINT) {
        rc = sqlite3_reset(st);
        throw error("Unable to fetch row", rc);
    }
    const VbError e = error("Unable to fetch row", rc);
    sqlite3_reset(st);
    throw e;
}

Recordset ControladorSqlite::abrir(const QString& sql)
{
    const QByteArray texto = adaptar(sql).toUtf8();
    sqlite3_stmt* st = nullptr;
    const char* resto = nullptr;
    const int rc = sqlite3_prepare_v2(db_, texto.constData(), static_cast<int>(texto.size()), &st, &resto);
    if (rc != SQLITE_OK) {
        sqlite3_finalize(st);
        throw error("Unable to execute statement", rc);
    }
    if (resto && !QByteArrayView(resto, texto.constData() + texto.size() - resto).trimmed().isEmpty()) {
        sqlite3_finalize(st);
        throw c_.errorMotor(QSqlError(QStringLiteral("Unable to execute multiple statements at a time"), QString(),
                                      QSqlError::StatementError, QString::number(SQLITE_MISUSE)));
    }
    return Recordset(std::make_unique<CursorSqlite>(c_.shared_from_this(), st));
}

// Prepared on the engine's handle when the text binds plainly: one '?' per
// parameter, no records returned. Whatever does not fit, or fails to
// prepare, takes Qt's way, which also words the error.
std::unique_ptr<ComandoPreparado> ControladorSqlite::prepararComando(const QString& texto, int parametros, bool reutilizar)
{
    const QString adaptado = adaptar(texto);
    const QByteArray utf8 = adaptado.toUtf8();
    sqlite3_stmt* st = nullptr;
    const char* resto = nullptr;
    if (db_
        && sqlite3_prepare_v3(db_, utf8.constData(), static_cast<int>(utf8.size()), reutilizar ? SQLITE_PREPARE_PERSISTENT : 0, &st,
                              &resto)
               == SQLITE_OK
        && st) {
        bool sirve = QByteArray(resto).trimmed().isEmpty() && sqlite3_column_count(st) == 0
                     && sqlite3_bind_parameter_count(st) == parametros;
        for (int i = 1; sirve && i <= parametros; ++i)
            sirve = sqlite3_bind_parameter_name(st, i) == nullptr;
        if (sirve)
            return std::make_unique<ComandoSqlite>(*this, st);
    }
    sqlite3_finalize(st);
    return std::make_unique<ComandoQt>(c_, adaptado, parametros, false);
}

std::unique_ptr<ConsultaPreparada> ControladorSqlite::prepararConsulta(const QString& texto)
{
    return std::make_unique<ConsultaSqlite>(*this, c_, adaptar(texto).toUtf8());
}

void ControladorSqlite::ejecutarPropia(const QString& sql)
{
    QSqlQuery q(c_.db_);
    if (!q.exec(sql))
        c_.lanzarErrorMotor(q.lastError());
}

bool ControladorSqlite::cambiosAjenos(const QString&, QStringList*)
{
    sqlite3_stmt* st = nullptr;
    qint64 version = -1;
    if (sqlite3_prepare_v2(db_, "PRAGMA data_version", -1, &st, nullptr) == SQLITE_OK && sqlite3_step(st) == SQLITE_ROW)
        version = sqlite3_column_int64(st, 0);
    sqlite3_finalize(st);
    const bool movida = versionDatos_ >= 0 && version != versionDatos_;
    versionDatos_ = version;
    return movida;
}

// Its MONEY columns hold doubles of units, exact to the ten-thousandth only
// up to a bound.
void ControladorSqlite::comprobarImporte(Currency importe) const
{
    const std::int64_t limite = Currency::MaximoExactoEnDoble;
    if (importe.raw() >= -limite && importe.raw() <= limite)
        return;
    throw VbError(VbError::Overflow,
                  QStringLiteral("El importe %1 no se puede guardar exacto en una base de datos SQLite, que guarda exactos "
                                 "los importes de hasta %2 en valor absoluto.")
                      .arg(es::formatear(importe, es::formatoNumero(4)), es::formatear(Currency::fromRaw(limite), es::formatoNumero(0))));
}

QString ControladorSqlite::usuario()
{
    const auto entorno = QProcessEnvironment::systemEnvironment();
    return entorno.value(QStringLiteral("USER"), entorno.value(QStringLiteral("USERNAME")));
}

// The transaction holds the write lock, so the highest number cannot
// change under it.
Controlador::Numeracion ControladorSqlite::numeracionOperaciones() const
{
    return {QStringLiteral("SELECT MAX(Id) FROM Presupuestos_Operaciones"), 1};
}

// MONEY has NUMERIC affinity and reads back as a currency with four
// decimals; the journal keeps counts of ten-thousandths, exact and smaller.
QString ControladorSqlite::tipoColumna(TipoColumna tipo, int tamano) const
{
    switch (tipo) {
    case TipoColumna::Importe: return QStringLiteral("MONEY");
    case TipoColumna::ImporteDiario: return QStringLiteral("BIGINT");
    case TipoColumna::Marca: return QStringLiteral("BIT");
    case TipoColumna::FechaHora: return QStringLiteral("DATETIME");
    case TipoColumna::Numerador: return QStringLiteral("INTEGER");
    default: return Controlador::tipoColumna(tipo, tamano);
    }
}

QStringList ControladorSqlite::crearSecuencia(const QString&, const QString&) const { return {}; }

// A file written with the journal's first layout, where every row carried
// its operation's kind, user and time, keeps all its rows.
QStringList ControladorSqlite::apartarDiarioAnterior()
{
    diarioAnterior_ = QSqlQuery(c_.db_).exec(QStringLiteral("SELECT Tipo FROM Presupuestos_Cambios WHERE 1 = 0"));
    if (!diarioAnterior_)
        return {};
    return {QStringLiteral("ALTER TABLE Presupuestos_Cambios RENAME TO Presupuestos_Cambios_Anterior"),
            QStringLiteral("DROP INDEX IF EXISTS IX_Presupuestos_Cambios_Fila")};
}

QStringList ControladorSqlite::traerDiarioAnterior(const QStringList& columnas)
{
    if (!diarioAnterior_)
        return {};
    diarioAnterior_ = false;
    // The first layout kept amounts as SQLite's doubles; this one keeps
    // their count of ten-thousandths.
    QStringList origen;
    for (const QString& columna : columnas) {
        static const QRegularExpression importes(QStringLiteral("^[AD]_(M\\d+|Valor)$"));
        origen << (importes.match(columna).hasMatch() ? QStringLiteral("CAST(ROUND(%1 * 10000) AS INTEGER)").arg(columna) : columna);
    }
    return {QStringLiteral("INSERT INTO Presupuestos_Operaciones (Id, Cod_Empresa, Tipo, Descripcion, Usuario, Fecha) "
                           "SELECT Operacion, MIN(Cod_Empresa), MIN(Tipo), MIN(Descripcion), MIN(Usuario), MIN(Fecha) "
                           "FROM Presupuestos_Cambios_Anterior GROUP BY Operacion"),
            QStringLiteral("INSERT INTO Presupuestos_Cambios (%1) SELECT %2 FROM Presupuestos_Cambios_Anterior")
                .arg(columnas.join(QStringLiteral(", ")), origen.join(QStringLiteral(", "))),
            QStringLiteral("DROP TABLE Presupuestos_Cambios_Anterior")};
}

// A file of its own, attached under its name.
QString ControladorSqlite::crearBaseRetail(const QString& nombre)
{
    adjuntar({nombre});
    QString n = nombre;
    return QLatin1Char('"') + n.replace(QLatin1Char('"'), QStringLiteral("\"\"")) + QLatin1Char('"');
}

QString ControladorSqlite::insertarSiFalta(const QString& tablaYValores) const
{
    return QStringLiteral("INSERT OR IGNORE INTO ") + tablaYValores;
}

// ---- Rows ------------------------------------------------------------------------

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
    throw conexion_->errorMotor(QSqlError(QStringLiteral("Unable to fetch row"), mensaje, QSqlError::ConnectionError, QString::number(rc)));
}

// The values Qt's SQLite driver gives, so that a field reads the same
// whichever way its recordset was opened.
QVariant CursorSqlite::valor(int i) const
{
    switch (sqlite3_column_type(st_, i)) {
    case SQLITE_INTEGER: return QVariant(static_cast<qlonglong>(sqlite3_column_int64(st_, i)));
    case SQLITE_FLOAT: return QVariant(sqlite3_column_double(st_, i));
    case SQLITE_NULL: return QVariant(QMetaType::fromType<QString>());
    case SQLITE_BLOB:
        return QVariant(QByteArray(static_cast<const char*>(sqlite3_column_blob(st_, i)), sqlite3_column_bytes(st_, i)));
    default: return QVariant(texto(i));
    }
}

Currency CursorSqlite::moneda(int i) const
{
    switch (sqlite3_column_type(st_, i)) {
    case SQLITE_INTEGER: return Currency::fromInt(sqlite3_column_int64(st_, i));
    case SQLITE_FLOAT: return Currency::fromDouble(sqlite3_column_double(st_, i));
    case SQLITE_NULL: return Currency();
    default: return Currency::fromVariant(valor(i));
    }
}

QString CursorSqlite::texto(int i) const
{
    if (sqlite3_column_type(st_, i) != SQLITE_TEXT)
        return valor(i).toString();
    const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(st_, i));
    return QString::fromUtf8(p, sqlite3_column_bytes(st_, i));
}

QString CursorSqlite::texto(int i, const QString& anterior) const
{
    if (sqlite3_column_type(st_, i) != SQLITE_TEXT || anterior.isNull())
        return texto(i);
    const auto* p = reinterpret_cast<const unsigned char*>(sqlite3_column_text(st_, i));
    const int n = sqlite3_column_bytes(st_, i);
    // Compared where both are plain ASCII; anything else is decoded.
    if (n != anterior.size())
        return texto(i);
    const QChar* a = anterior.constData();
    for (int k = 0; k < n; ++k)
        if (p[k] >= 0x80 || a[k].unicode() != p[k])
            return texto(i);
    return anterior;
}

} // namespace presupuestos
