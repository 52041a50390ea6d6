#include "db/Conexion.h"

#include "common/VbError.h"
#include "db/ControladorPostgres.h"
#include "db/ControladorSqlServer.h"
#include "db/ControladorSqlite.h"
#include "db/Sql.h"
#include "db/TokensSql.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>
#include <QTimer>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <unistd.h>

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

} // namespace

Conexion::Conexion(QString nombreConexion) : nombre_(std::move(nombreConexion)) {}

Conexion::~Conexion()
{
    ctl_.reset();
    if (db_.isValid() && db_.isOpen())
        db_.close();
    db_ = QSqlDatabase();
    QSqlDatabase::removeDatabase(nombre_);
}

std::shared_ptr<Conexion> Conexion::abrirSqlite(const QString& fichero)
{
    std::shared_ptr<Conexion> c(new Conexion(nuevoNombreConexion()));
    c->ctl_ = std::make_unique<ControladorSqlite>(*c, fichero);
    return c;
}

std::shared_ptr<Conexion> Conexion::abrirOdbc(const QString& cadenaConexion)
{
    std::shared_ptr<Conexion> c(new Conexion(nuevoNombreConexion()));
    c->ctl_ = std::make_unique<ControladorSqlServer>(*c, cadenaConexion);
    return c;
}

std::shared_ptr<Conexion> Conexion::grabadoraSqlServer()
{
    std::shared_ptr<Conexion> c(new Conexion(nuevoNombreConexion()));
    c->grabadora_ = true;
    c->ctl_ = std::make_unique<GrabadoraSqlServer>(*c);
    return c;
}

std::shared_ptr<Conexion> Conexion::abrirPostgres(const QString& conninfo)
{
    std::shared_ptr<Conexion> c(new Conexion(nuevoNombreConexion()));
    c->ctl_ = std::make_unique<ControladorPostgres>(*c, conninfo);
    return c;
}

VbError Conexion::errorMotor(const QSqlError& e) const
{
    const VbError::Causa causa = ctl_->diagnosticar(e).causa;
    QString texto = ctl_->texto(e);
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

void Conexion::anotar(const QString& sql)
{
    grabarForma(sql);
    if (!registroActivo_ && !grabadora_)
        return;
    registro_.push_back(sql);
    if (registro_.size() > kMaxRegistro)
        registro_.pop_front();
}

void Conexion::soltarPreparados()
{
    for (Comando* c : comandos_)
        c->soltarPreparada();
}

void Conexion::bloquearClaves(const QString& ambito, const QStringList& claves)
{
    if (transacciones_ > 0)
        ctl_->bloquearClaves(ambito, claves);
}

void Conexion::bloquearAmbito(const QString& ambito)
{
    if (transacciones_ > 0)
        ctl_->bloquearAmbito(ambito);
}

bool Conexion::cambiosAjenos(const QString& canal, QStringList* cargas)
{
    if (transacciones_ > 0)
        return false;
    return ctl_->cambiosAjenos(canal, cargas);
}

void Conexion::notificar(const QString& canal, const QString& carga)
{
    if (transacciones_ > 0)
        ctl_->notificar(canal, carga);
}

long Conexion::Execute(const QString& sql, int opciones)
{
    anotar(sql);
    const bool asincrona = opciones != -1 && (opciones & adAsyncExecute);
    if (ctl_->tomar(sql, asincrona))
        return -1;
    if (asincrona) {
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
    return ctl_->ejecutar(sql);
}

void Conexion::completarPendientes()
{
    ctl_->enviarTomadas();
    if (completando_ || pendientes_.empty())
        return;
    completando_ = true;
    std::vector<QString> lista;
    lista.swap(pendientes_);
    for (const QString& sql : lista) {
        try {
            ctl_->ejecutar(sql);
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
    return ctl_->abrir(sql);
}

void Conexion::BeginTrans()
{
    completarPendientes();
    anotar(QStringLiteral("BEGIN TRANSACTION"));
    if (!ctl_->empezar())
        throw errorMotor(db_.lastError());
    ++transacciones_;
}

void Conexion::CommitTrans()
{
    if (transacciones_ == 1 && !transaccionViva()) {
        // The engine rolled it back (a full disk, a lost session): nothing of
        // it is stored, and nothing may be written now as if it were part of it.
        const bool perdida = ctl_->sesionPerdida();
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
    if (!ctl_->confirmar())
        throw errorMotor(db_.lastError());
    if (transacciones_ > 0)
        --transacciones_;
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
    const bool hecho = ctl_->deshacer();
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

// ---- What every engine shares ---------------------------------------------------

QString Controlador::texto(const QSqlError& e) const
{
    QString t = e.databaseText().trimmed();
    if (t.isEmpty())
        t = e.text().trimmed();
    if (t.isEmpty())
        t = QStringLiteral("Error desconocido de la base de datos.");
    // Failures a user meets whatever the figures: said first in Spanish,
    // with the engine's words after. Qt's drivers give no code for a failed
    // commit: the engine's words tell then.
    const Diagnostico d = diagnosticar(e);
    if (d.discoLleno || t.contains(QLatin1String("database or disk is full")) || t.contains(QLatin1String("No space left on device")))
        t = sql::kDiscoLleno + QStringLiteral("\r\n") + t;
    else if (d.tiempoAgotado)
        t = QStringLiteral("La base de datos ha tardado más de lo permitido y ha cancelado la operación.\r\n") + t;
    return t;
}

void Controlador::asociarBaseDatos(const QString&, const QString&) {}
void Controlador::adjuntar(const QStringList&) {}
void Controlador::bloquearClaves(const QString&, const QStringList&) {}
void Controlador::bloquearAmbito(const QString&) {}
bool Controlador::tomar(const QString&, bool) { return false; }
void Controlador::notificar(const QString&, const QString&) {}
void Controlador::comprobarImporte(Currency) const {}

QString Controlador::usuario()
{
    Recordset rs = c_.Abrir(QStringLiteral("SELECT SUSER_SNAME()"));
    return rs.eof() ? QString() : rs.texto(0);
}

QString Controlador::tipoColumna(TipoColumna tipo, int tamano) const
{
    switch (tipo) {
    case TipoColumna::Corto: return QStringLiteral("SMALLINT");
    case TipoColumna::Entero: return QStringLiteral("INT");
    case TipoColumna::Largo: return QStringLiteral("BIGINT");
    case TipoColumna::Texto: return QStringLiteral("VARCHAR(%1)").arg(tamano);
    case TipoColumna::Fecha: return QStringLiteral("DATE");
    default: return QString();
    }
}

QString Controlador::crearTabla(const QString& prefijo, const QString& nombre, const QString& cuerpo) const
{
    return QStringLiteral("CREATE TABLE IF NOT EXISTS %1%2 (%3)").arg(prefijo.isEmpty() ? QString() : prefijo + QLatin1Char('.'), nombre, cuerpo);
}

QString Controlador::crearIndice(const QString& nombre, const QString& tabla, const QString& columnas) const
{
    return QStringLiteral("CREATE INDEX IF NOT EXISTS %1 ON %2 (%3)").arg(nombre, tabla, columnas);
}

QSqlDatabase& Controlador::agregarBaseDatos(const QString& driver, const QString& paquete, const QString& motor)
{
    if (!QSqlDatabase::isDriverAvailable(driver))
        throw VbError(VbError::DatabaseError, QStringLiteral("El controlador %1 para Qt no está instalado (paquete %2).").arg(motor, paquete));
    c_.db_ = QSqlDatabase::addDatabase(driver, c_.nombre());
    return c_.db_;
}

Controlador::Numeracion Controlador::numeracionOperaciones() const
{
    // A server hands out numbers from a sequence, which no two
    // transactions share.
    return {QStringLiteral("SELECT NEXT VALUE FOR Presupuestos_Operaciones_Id"), 0};
}

int Cursor::indice(const QString& nombre) const
{
    for (int i = 0; i < nombres_.size(); ++i)
        if (nombres_[i].compare(nombre, Qt::CaseInsensitive) == 0)
            return i;
    return -1;
}

} // namespace presupuestos
