// Prepared commands with typed parameters.
#include "db/Conexion.h"
#include "db/Sql.h"

#include "common/NumerosEs.h"
#include "common/VbError.h"
#include "db/TokensSql.h"

#include <QCoreApplication>
#include <QDate>
#include <QDateTime>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTime>
#include <atomic>
#include <cstdlib>
#include <limits>
#include <libpq-fe.h>
#include <sqlite3.h>

namespace presupuestos {

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

Comando::Comando(std::shared_ptr<Conexion> conexion) : conexion_(std::move(conexion))
{
    if (conexion_)
        conexion_->registrarComando(this);
}

Comando::~Comando()
{
    soltarDirecta();
    if (conexion_)
        conexion_->olvidarComando(this);
}

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
    case TipoParametro::Moneda:
    case TipoParametro::Diezmilesimas: p.numero = Currency::fromInt(valor).raw(); break;
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
    case TipoParametro::Moneda:
    case TipoParametro::Diezmilesimas: p.numero = valor.raw(); break;
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
    case TipoParametro::Moneda:
    case TipoParametro::Diezmilesimas: p.numero = Currency::fromVariant(valor).raw(); break;
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
    case TipoParametro::Moneda:
    case TipoParametro::Diezmilesimas: return QVariant::fromValue(Currency::fromRaw(p.numero));
    case TipoParametro::Texto: return QVariant(p.texto);
    case TipoParametro::Booleano: return QVariant(p.numero != 0);
    }
    return QVariant();
}

// The value as Qt's driver receives it, a null typed after the parameter.
// A server takes a currency as its exact decimal text, which SQL Server's
// MONEY and PostgreSQL's NUMERIC read to the ten-thousandth (Qt's drivers
// would send a double, which does not hold every amount); SQLite's REAL
// takes the double.
QVariant Comando::paraQt(const Parametro& p) const
{
    if (conexion_->motor() == Motor::PostgreSQL) {
        // Its bit columns are small integers.
        if (p.nulo)
            return p.tipo == TipoParametro::Texto ? QVariant(QMetaType::fromType<QString>()) : QVariant(QMetaType::fromType<int>());
        if (p.tipo == TipoParametro::Booleano)
            return QVariant(p.numero != 0 ? 1 : 0);
    }
    if (conexion_->motor() != Motor::SQLite && p.tipo == TipoParametro::Moneda)
        return p.nulo ? QVariant(QMetaType::fromType<QString>()) : QVariant(Currency::fromRaw(p.numero).toSqlText());
    if (p.nulo) {
        switch (p.tipo) {
        case TipoParametro::Entero: return QVariant(QMetaType::fromType<int>());
        case TipoParametro::Moneda: return QVariant(QMetaType::fromType<double>());
        case TipoParametro::Texto: return QVariant(QMetaType::fromType<QString>());
        case TipoParametro::Booleano: return QVariant(QMetaType::fromType<bool>());
        case TipoParametro::Diezmilesimas: return QVariant(QMetaType::fromType<qlonglong>());
        }
    }
    switch (p.tipo) {
    case TipoParametro::Entero: return QVariant(static_cast<int>(p.numero));
    case TipoParametro::Moneda: return QVariant(Currency::fromRaw(p.numero).toDouble());
    case TipoParametro::Texto: return QVariant(p.texto);
    case TipoParametro::Booleano: return QVariant(p.numero != 0);
    case TipoParametro::Diezmilesimas: return QVariant(static_cast<qlonglong>(p.numero));
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
        else if (p.tipo == TipoParametro::Diezmilesimas)
            r = sqlite3_bind_int64(st, i + 1, p.numero);
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

// Prepared once per session through libpq and run with its values as the
// server reads them: amounts as exact decimal text, never a double. The
// savepoint goes in the same round trip (see Conexion::ejecutarLibpq).
long Comando::ejecutarPostgres()
{
    bool preparar = false;
    if (!preparado_ || generacionPg_ != conexion_->generacion() || nombrePg_.isEmpty()) {
        static std::atomic<int> contador{0};
        if (preparado_) {
            nombrePg_ = "presupuestos_comando_" + QByteArray::number(++contador);
            preparar = true;
        } else {
            nombrePg_.clear();
        }
        textoPg_ = tokens::numerarMarcas(conexion_->adaptar(texto_)).toUtf8();
        generacionPg_ = conexion_->generacion();
    }
    std::vector<QByteArray> valores(parametros_.size());
    std::vector<char> nulos(parametros_.size(), 0);
    for (std::size_t i = 0; i < parametros_.size(); ++i) {
        const Parametro& p = parametros_[i];
        if (p.nulo || (p.tipo == TipoParametro::Texto && p.texto.isNull())) {
            nulos[i] = 1;
            continue;
        }
        switch (p.tipo) {
        case TipoParametro::Moneda: valores[i] = Currency::fromRaw(p.numero).toSqlText().toLatin1(); break;
        case TipoParametro::Texto: valores[i] = p.utf8; break;
        case TipoParametro::Booleano: valores[i] = p.numero != 0 ? "1" : "0"; break;
        default: valores[i] = QByteArray::number(p.numero); break;
        }
    }
    ::pg_result* r = nullptr;
    try {
        r = conexion_->ejecutarLibpq(nombrePg_, textoPg_, preparar, valores, nulos);
    } catch (...) {
        // A statement that failed to prepare is prepared again next time.
        if (preparar)
            nombrePg_.clear();
        throw;
    }
    const char* cuenta = PQcmdTuples(r);
    const long n = cuenta && *cuenta ? std::atol(cuenta) : -1;
    PQclear(r);
    return n;
}

long Comando::Execute()
{
    if (!conexion_)
        throw VbError::connectionUnusable();
    for (const Parametro& p : parametros_)
        if (p.tipo == TipoParametro::Moneda && !p.nulo)
            sql::comprobarImporte(*conexion_, Currency::fromRaw(p.numero));
    if (!anotado_ || !preparado_) {
        conexion_->anotar(texto_);
        anotado_ = true;
    }
    if (conexion_->grabadora())
        return conexion_->filasGrabadas();
    conexion_->completarPendientes();
    // Prepared on a session the server has since dropped.
    if (consulta_ && generacion_ != conexion_->generacion())
        consulta_.reset();
    if (!directaProbada_ || !preparado_) {
        if (directa_)
            soltarDirecta();
        prepararDirecta();
    }
    if (directa_)
        return ejecutarDirecta();
    if (conexion_->postgres())
        return ejecutarPostgres();
    conexion_->antesDeSentencia();
    if (!consulta_ || !preparado_) {
        consulta_ = std::make_unique<QSqlQuery>(conexion_->baseDatos());
        consulta_->setForwardOnly(true);
        const QString adaptado = conexion_->adaptar(texto_);
        QString nombrado = nombrarMarcas(adaptado, numeroParametros(), marcas_);
        generacion_ = conexion_->generacion();
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

void sql::comprobarImporte(const Conexion& conexion, Currency importe)
{
    const std::int64_t limite = Currency::MaximoExactoEnDoble;
    if (conexion.motor() != Motor::SQLite || (importe.raw() >= -limite && importe.raw() <= limite))
        return;
    throw VbError(VbError::Overflow,
                  QStringLiteral("El importe %1 no se puede guardar exacto en una base de datos SQLite, que guarda exactos "
                                 "los importes de hasta %2 en valor absoluto.")
                      .arg(es::formatear(importe, es::formatoNumero(4)),
                           es::formatear(Currency::fromRaw(limite), es::formatoNumero(0))));
}

} // namespace presupuestos
