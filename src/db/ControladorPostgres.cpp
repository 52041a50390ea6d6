#include "db/ControladorPostgres.h"

#include "db/Conexion.h"
#include "db/DialectoPostgres.h"
#include "db/TokensSql.h"

#include <QDate>
#include <QDateTime>
#include <QSqlDriver>
#include <QSqlQuery>
#include <QTime>
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <optional>
#include <libpq-fe.h>

namespace presupuestos {

namespace {

constexpr int kMaxLote = 500;
constexpr std::size_t kMaxFormasPg = 64;

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

// A composed data statement's shape: the text with its literals (quoted
// texts and numbers, a sign before a number included) as markers, and their
// values as the text the server reads. Only UPDATE, INSERT and DELETE of the
// database's own tables (a temporary table may go and come back under the
// same name), never around the constructs whose translation reads the
// literals themselves (TOP n, PIVOT).
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

long afectadas(::pg_result* r)
{
    const char* cuenta = PQcmdTuples(r);
    const long n = cuenta && *cuenta ? std::atol(cuenta) : -1;
    PQclear(r);
    return n;
}

// Prepared once per session and run with its values as the server reads
// them: amounts as exact decimal text, never a double.
class ComandoPostgres : public ComandoPreparado {
public:
    ComandoPostgres(ControladorPostgres& ctl, QByteArray texto, bool reutilizar)
        : ctl_(ctl), texto_(std::move(texto)), reutilizar_(reutilizar)
    {
    }
    long ejecutar(const std::vector<ParametroComando>& parametros) override
    {
        const bool preparar = reutilizar_ && !preparado_;
        if (preparar) {
            static std::atomic<int> contador{0};
            nombre_ = "presupuestos_comando_" + QByteArray::number(++contador);
        }
        std::vector<QByteArray> valores(parametros.size());
        std::vector<char> nulos(parametros.size(), 0);
        for (std::size_t i = 0; i < parametros.size(); ++i) {
            const ParametroComando& p = parametros[i];
            if (p.esNulo()) {
                nulos[i] = 1;
                continue;
            }
            switch (p.tipo) {
            case TipoParametro::Moneda: valores[i] = Currency::fromRaw(p.numero).toSqlText().toLatin1(); break;
            case TipoParametro::Texto: valores[i] = p.utf8; break;
            // Its bit columns are small integers.
            case TipoParametro::Booleano: valores[i] = p.numero != 0 ? "1" : "0"; break;
            default: valores[i] = QByteArray::number(p.numero); break;
            }
        }
        // A statement that failed to prepare is prepared again, under a new
        // name, next time.
        ::pg_result* r = ctl_.ejecutarLibpq(reutilizar_ ? nombre_ : QByteArray(), texto_, preparar, valores, nulos);
        preparado_ = reutilizar_;
        return afectadas(r);
    }

private:
    ControladorPostgres& ctl_;
    QByteArray texto_;
    QByteArray nombre_;
    bool reutilizar_;
    bool preparado_ = false;
};

class ConsultaPostgres : public ConsultaPreparada {
public:
    ConsultaPostgres(ControladorPostgres& ctl, Conexion& c, QByteArray texto) : ctl_(ctl), c_(c), texto_(std::move(texto)) {}
    Recordset abrir(const std::vector<QVariant>& valores) override
    {
        std::vector<QByteArray> textos;
        std::vector<char> nulos;
        for (const QVariant& v : valores) {
            nulos.push_back(v.isNull() ? 1 : 0);
            textos.push_back(v.userType() == qMetaTypeId<Currency>() ? v.value<Currency>().toSqlText().toLatin1() : v.toString().toUtf8());
        }
        return Recordset(std::make_unique<CursorPostgres>(c_.shared_from_this(), ctl_.ejecutarLibpq(QByteArray(), texto_, false, textos, nulos)));
    }

private:
    ControladorPostgres& ctl_;
    Conexion& c_;
    QByteArray texto_;
};

} // namespace

ControladorPostgres::ControladorPostgres(Conexion& conexion, const QString& conninfo) : Controlador(conexion), conninfo_(conninfo)
{
    QSqlDatabase& bd = agregarBaseDatos(QStringLiteral("QPSQL"), QStringLiteral("libqt6sql6-psql"), QStringLiteral("de PostgreSQL"));
    // Qt passes the options to libpq as they are: the whole connection string.
    bd.setConnectOptions(conninfo);
    if (!bd.open())
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("No se puede conectar con el servidor PostgreSQL: %1").arg(texto(bd.lastError())));
    configurarSesion();
}

void ControladorPostgres::configurarSesion()
{
    QSqlDatabase& bd = c_.db_;
    // NUMERIC arrives as its decimal text, never through a double: a
    // currency reads back to the ten-thousandth.
    bd.driver()->setNumericalPrecisionPolicy(QSql::HighPrecision);
    const QVariant h = bd.driver()->handle();
    // Qt names the handle's type after libpq's struct or its typedef.
    pg_ = nullptr;
    if (h.isValid() && (qstrcmp(h.typeName(), "pg_conn*") == 0 || qstrcmp(h.typeName(), "PGconn*") == 0))
        pg_ = *static_cast<PGconn* const*>(h.data());
    if (!pg_)
        throw VbError(VbError::DatabaseError, QStringLiteral("No se puede conectar con el servidor PostgreSQL: el controlador de Qt no da acceso a libpq."));
    // Another user's open transaction on a row makes a write wait a while
    // rather than fail at once, as SQLite's busy timeout does; the notices
    // of IF NOT EXISTS are nobody's business.
    PQclear(PQexec(pg_, QStringLiteral("SET lock_timeout = %1").arg(Conexion::kEsperaBloqueoDefecto).toUtf8().constData()));
    PQclear(PQexec(pg_, "SET client_min_messages = warning"));
    // The worksheet sorts tens of thousands of rows at a time: in memory,
    // not in the server's temporary files.
    PQclear(PQexec(pg_, "SET work_mem = '64MB'"));
    // Backslashes in a literal are data (rule of doubled quotes only).
    PQclear(PQexec(pg_, "SET standard_conforming_strings = on"));
}

void ControladorPostgres::recuperarSesion()
{
    if (!perdida_ || c_.enTransaccion())
        return;
    // Whatever waited for the old session went with it; the temporary
    // tables are made again below from what made them.
    lote_.clear();
    c_.soltarPreparados();
    QSqlDatabase& bd = c_.db_;
    bd.close();
    if (!bd.open())
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("Se ha perdido la conexión con la base de datos y no se puede volver a conectar: %1")
                          .arg(texto(bd.lastError())),
                      0, VbError::Causa::ConexionPerdida);
    configurarSesion();
    perdida_ = false;
    ++generacion_;
    // The new session listens again from the next look (what was said
    // meanwhile is lost: the worksheet reads its rows again anyway).
    escuchados_.clear();
    formasPg_.clear();
    for (const QString& sql : temporales_)
        ejecutarPropia(adaptar(sql));
}

QString ControladorPostgres::adaptar(const QString& sql) { return DialectoPostgres::adaptar(sql); }

// The SQLSTATE: a key already there, another user's lock (waited for until
// lock_timeout, or a deadlock), a server or a user that may not write.
Diagnostico ControladorPostgres::diagnosticar(const QSqlError& e) const
{
    Diagnostico d;
    const QString estado = e.nativeErrorCode();
    if (estado == QLatin1String("23505"))
        d.causa = VbError::Causa::ClaveDuplicada;
    else if (estado == QLatin1String("55P03"))
        d.causa = VbError::Causa::Bloqueada;
    else if (estado == QLatin1String("40P01") || estado == QLatin1String("40001"))
        d.causa = VbError::Causa::Interbloqueo;
    // Class 08 (connection exception) and the server shutting the session.
    else if (estado.startsWith(QLatin1String("08")) || estado == QLatin1String("57P01") || estado == QLatin1String("57P02")
             || estado == QLatin1String("57P03"))
        d.causa = VbError::Causa::ConexionPerdida;
    else if (estado == QLatin1String("25006") || estado == QLatin1String("42501"))
        d.causa = VbError::Causa::SoloLectura;
    d.discoLleno = estado == QLatin1String("53100");
    d.tiempoAgotado = estado == QLatin1String("57014");
    // A session the server dropped says little more than that it is gone.
    if (d.causa == VbError::Causa::ConexionPerdida || sesionPerdida()) {
        d.causa = VbError::Causa::ConexionPerdida;
        perdida_ = true;
    }
    return d;
}

bool ControladorPostgres::sesionPerdida() const
{
    if (pg_ && PQstatus(pg_) == CONNECTION_BAD)
        perdida_ = true;
    return perdida_;
}

void ControladorPostgres::setEsperaBloqueo(int milisegundos)
{
    PQclear(PQexec(pg_, QStringLiteral("SET lock_timeout = %1").arg(milisegundos).toUtf8().constData()));
}

void ControladorPostgres::bloquearClaves(const QString& ambito, const QStringList& claves)
{
    const qint64 a = numeroBloqueo(QStringLiteral("presupuestos"), ambito);
    if (ambitos_.value(a, false))
        return;
    if (claves.size() + bloqueadas_.size() > Conexion::kMaxClavesBloqueadas) {
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
    ejecutarPropia(QStringLiteral("SELECT ") + llamadas.join(QStringLiteral(", ")));
    ambitos_.insert(a, false);
    for (const qint64 n : numeros)
        bloqueadas_.insert(n);
}

void ControladorPostgres::bloquearAmbito(const QString& ambito)
{
    const qint64 a = numeroBloqueo(QStringLiteral("presupuestos"), ambito);
    if (ambitos_.value(a, false))
        return;
    ejecutarPropia(QStringLiteral("SELECT pg_advisory_xact_lock(%1)").arg(a));
    ambitos_.insert(a, true);
}

bool ControladorPostgres::empezar()
{
    puntoGuardado_ = false;
    bloqueadas_.clear();
    ambitos_.clear();
    return c_.db_.transaction();
}

bool ControladorPostgres::confirmar()
{
    puntoGuardado_ = false;
    return c_.db_.commit();
}

bool ControladorPostgres::deshacer()
{
    puntoGuardado_ = false;
    return c_.db_.rollback();
}

bool ControladorPostgres::transaccionViva() const
{
    const PGTransactionStatusType e = PQtransactionStatus(pg_);
    return e == PQTRANS_INTRANS || e == PQTRANS_ACTIVE;
}

// A worksheet opens by filling its filter table a row per account, a
// statement each: a round trip each. The table is this connection's own, so
// no other user can see when its rows arrive; they go together just before
// the next statement of any other kind, which reports a failure among them.
// Outside transactions only, where nothing else depends on their order. The
// engine does not say the records affected then (-1).
bool ControladorPostgres::tomar(const QString& sql, bool asincrona)
{
    recuperarSesion();
    recordarTemporal(sql);
    if (c_.enTransaccion() || asincrona || !insercionTemporal(sql))
        return false;
    lote_ << adaptar(sql);
    if (lote_.size() >= kMaxLote)
        enviarTomadas();
    return true;
}

void ControladorPostgres::enviarTomadas()
{
    recuperarSesion();
    if (lote_.isEmpty())
        return;
    const QString texto = lote_.join(QStringLiteral(";\n"));
    lote_.clear();
    QSqlQuery q(c_.db_);
    if (!q.exec(texto))
        c_.lanzarErrorMotor(q.lastError());
}

void ControladorPostgres::recordarTemporal(const QString& sql)
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

long ControladorPostgres::ejecutar(const QString& sql)
{
    // One round trip a statement, savepoint included; the shape parsed and
    // planned once.
    long n = -1;
    if (ejecutarForma(sql, &n))
        return n;
    return afectadas(ejecutarLibpq(QByteArray(), adaptar(sql).toUtf8(), false));
}

// The rows are taken whole when the query runs (the worksheet reads them
// all anyway), so the connection is free for the statements run while they
// are read.
Recordset ControladorPostgres::abrir(const QString& sql)
{
    return Recordset(std::make_unique<CursorPostgres>(c_.shared_from_this(), ejecutarLibpq(QByteArray(), adaptar(sql).toUtf8(), false)));
}

std::unique_ptr<ComandoPreparado> ControladorPostgres::prepararComando(const QString& texto, int, bool reutilizar)
{
    return std::make_unique<ComandoPostgres>(*this, tokens::numerarMarcas(adaptar(texto)).toUtf8(), reutilizar);
}

std::unique_ptr<ConsultaPreparada> ControladorPostgres::prepararConsulta(const QString& texto)
{
    return std::make_unique<ConsultaPostgres>(*this, c_, tokens::numerarMarcas(adaptar(texto)).toUtf8());
}

void ControladorPostgres::ejecutarPropia(const QString& sql)
{
    c_.completarPendientes();
    PQclear(ejecutarLibpq(QByteArray(), sql.toUtf8(), false));
}

bool ControladorPostgres::cambiosAjenos(const QString& canal, QStringList* cargas)
{
    recuperarSesion();
    if (!escuchados_.contains(canal)) {
        ejecutarPropia(QStringLiteral("LISTEN ") + DialectoPostgres::identificador(canal));
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

void ControladorPostgres::notificar(const QString& canal, const QString& carga)
{
    QString literal = carga;
    literal.replace(QLatin1Char('\''), QStringLiteral("''"));
    QString nombre = DialectoPostgres::identificador(canal).toLower();
    nombre.replace(QLatin1Char('\''), QStringLiteral("''"));
    ejecutarPropia(QStringLiteral("SELECT pg_notify('%1', '%2')").arg(nombre, literal));
}

::pg_result* ControladorPostgres::ejecutarLibpq(const QByteArray& nombre, const QByteArray& texto, bool preparar,
                                                const std::vector<QByteArray>& valores, const std::vector<char>& nulos)
{
    const bool punto = c_.enTransaccion();
    const bool liberar = punto && puntoGuardado_;
    if (traza_)
        traza_({texto, valores, nulos, preparar, !nombre.isEmpty(), liberar, punto});
    const auto fallo = [this](PGresult* r) {
        const VbError e = c_.errorMotor(errorPostgres(r));
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
    for (int vacios = 0; enviado && PQstatus(pg_) != CONNECTION_BAD && vacios < 4;) {
        PGresult* r = PQgetResult(pg_);
        if (!r) {
            ++vacios;
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

bool ControladorPostgres::ejecutarForma(const QString& sql, long* filas)
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
        // type it cannot tell) is sent as composed instead, now and from
        // now on.
        if (f.preparada || perdida_ || !e.description().contains(QStringLiteral("\n(42")))
            throw;
        formasNoPreparables_.insert(forma->clave);
        formasPg_.erase(it);
        return false;
    }
    f.preparada = true;
    *filas = afectadas(r);
    return true;
}

QSqlError ControladorPostgres::errorPostgres(const ::pg_result* r) const
{
    const QString mensaje = QString::fromUtf8(r ? PQresultErrorMessage(r) : PQerrorMessage(pg_)).trimmed();
    const QString sqlstate = QString::fromLatin1(r ? PQresultErrorField(r, PG_DIAG_SQLSTATE) : nullptr);
    return QSqlError(QStringLiteral("Unable to create query"), sqlstate.isEmpty() ? mensaje : mensaje + QStringLiteral("\n(") + sqlstate + QLatin1Char(')'),
                     QSqlError::StatementError, sqlstate);
}

// Names unquoted, so that they fold to lower case and the composed texts
// find them whatever case they write. Amounts (SQL Server's money type) are
// NUMERIC(19,4): ten-thousandths, exactly; flags (its bit type) are
// SMALLINT, which compares with 0 and 1 as the composed texts do.
QString ControladorPostgres::tipoColumna(TipoColumna tipo, int tamano) const
{
    switch (tipo) {
    case TipoColumna::Importe:
    case TipoColumna::ImporteDiario: return QStringLiteral("NUMERIC(19,4)");
    case TipoColumna::Marca: return QStringLiteral("SMALLINT");
    case TipoColumna::FechaHora: return QStringLiteral("TIMESTAMP");
    case TipoColumna::Numerador: return QStringLiteral("INTEGER GENERATED BY DEFAULT AS IDENTITY");
    default: return Controlador::tipoColumna(tipo, tamano);
    }
}

// It never goes back: a table that had rows before the sequence goes on
// after the highest of them.
QStringList ControladorPostgres::crearSecuencia(const QString& nombre, const QString& tabla) const
{
    const QString n = nombre.toLower();
    return {QStringLiteral("CREATE SEQUENCE IF NOT EXISTS %1").arg(nombre),
            QStringLiteral("SELECT setval('%1', GREATEST(COALESCE((SELECT MAX(Id) FROM %2), 0), (SELECT last_value FROM %1), 1))").arg(n, tabla)};
}

// A schema of the same database, named as three-part names find it.
QString ControladorPostgres::crearBaseRetail(const QString& nombre)
{
    const QString esquema = DialectoPostgres::identificador(nombre);
    ejecutarPropia(QStringLiteral("CREATE SCHEMA IF NOT EXISTS ") + esquema);
    return esquema;
}

QString ControladorPostgres::insertarSiFalta(const QString& tablaYValores) const
{
    return QStringLiteral("INSERT INTO ") + tablaYValores + QStringLiteral(" ON CONFLICT DO NOTHING");
}

// ---- Rows --------------------------------------------------------------------------

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

} // namespace presupuestos
