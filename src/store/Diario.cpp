#include "store/Diario.h"

#include "common/NumerosEs.h"
#include "common/VbError.h"
#include "db/Conexion.h"
#include "db/Sql.h"
#include "db/schema/Esquema.h"

#include <QProcessEnvironment>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace presupuestos {

namespace {

QString literal(const QString& texto) { return QLatin1Char('\'') + sql::texto(texto) + QLatin1Char('\''); }

ClaveFila claveFila(const QString& cuenta, qint16 dpto, qint16 ejercicio) { return ClaveFila{cuenta, dpto, ejercicio}; }

// What the connection locks for a row: its key within the company's year.
QString claveBloqueo(const QString& cuenta, qint16 dpto) { return cuenta + QLatin1Char('\x1f') + QString::number(dpto); }

// The hint that keeps what a read finds locked for the transaction that
// is about to write it (each dialect says it its own way).
const QString kBloqueo = QStringLiteral(" WITH (UPDLOCK, HOLDLOCK)");

// Where a server tells the worksheets of each operation committed.
const QString kCanal = QStringLiteral("presupuestos_cambios");

const char* const kClaves[] = {"tecleo", "pegado", "borrado", "metodo", "dependientes",
                               "visibilidad", "importacion", "deshacer", "rehacer"};

QString columnasImagen(const QString& prefijo)
{
    QStringList c;
    for (int m = 1; m <= 12; ++m)
        c << prefijo + QStringLiteral("M") + QString::number(m);
    c << prefijo + QStringLiteral("Metodo") << prefijo + QStringLiteral("Manual") << prefijo + QStringLiteral("Valor")
      << prefijo + QStringLiteral("Ver");
    return c.join(QStringLiteral(", "));
}

// The first thing that differs between what a row should be and what it is,
// in the words of the message that refuses an undo.
QString primeraDiferencia(const Diario::Imagen& esperada, const Diario::Imagen& actual)
{
    if (esperada.existe != actual.existe)
        return actual.existe ? QStringLiteral("la fila, que ahora existe") : QStringLiteral("la fila, que ya no existe");
    for (int m = 0; m < 12; ++m)
        if (esperada.meses[static_cast<std::size_t>(m)] != actual.meses[static_cast<std::size_t>(m)])
            return QStringLiteral("el mes de ") + es::nombreMes(m + 1);
    if (esperada.metodo != actual.metodo || esperada.valor != actual.valor)
        return QStringLiteral("el método de cálculo");
    if (esperada.manual != actual.manual)
        return QStringLiteral("los meses tecleados a mano");
    return QStringLiteral("si se presupuesta");
}

} // namespace

QString Diario::clave(Tipo t) { return QString::fromLatin1(kClaves[static_cast<int>(t)]); }

QString Diario::nombre(Tipo t)
{
    switch (t) {
    case Tipo::Tecleo: return QStringLiteral("tecleado");
    case Tipo::Pegado: return QStringLiteral("pegado");
    case Tipo::Borrado: return QStringLiteral("borrado");
    case Tipo::Metodo: return QStringLiteral("método de cálculo");
    case Tipo::Dependientes: return QStringLiteral("recálculo sobre ventas");
    case Tipo::Visibilidad: return QStringLiteral("presupuestar o no");
    case Tipo::Importacion: return QStringLiteral("importación");
    case Tipo::Deshacer: return QStringLiteral("deshacer");
    case Tipo::Rehacer: return QStringLiteral("rehacer");
    }
    return QString();
}

std::optional<Diario::Tipo> Diario::deClave(const QString& clave)
{
    for (int i = 0; i < static_cast<int>(std::size(kClaves)); ++i)
        if (clave == QLatin1String(kClaves[i]))
            return static_cast<Tipo>(i);
    return std::nullopt;
}

Diario::Diario(std::shared_ptr<Conexion> conexion, qint16 empresa, bool crearTabla)
    : c_(std::move(conexion)), empresa_(empresa)
{
    SinRegistro sin(*c_);
    // The journal's table is created where the system makes its tables; on
    // SQL Server an administrator does.
    if (crearTabla && c_->controlador().creaEsquema()) {
        // A read-only database cannot take it: the journal then stays in memory.
        try {
            Esquema::crearDiario(*c_);
        } catch (const std::exception&) {
        }
    }
    try {
        usuario_ = c_->controlador().usuario();
    } catch (const std::exception&) {
    }
    if (usuario_.isEmpty())
        usuario_ = QStringLiteral("desconocido");
    try {
        c_->Abrir(QStringLiteral("SELECT COUNT(*) FROM Presupuestos_Cambios WHERE 1 = 0")).Close();
        c_->Abrir(QStringLiteral("SELECT COUNT(*) FROM Presupuestos_Operaciones WHERE 1 = 0")).Close();
        disponible_ = true;
    } catch (const std::exception&) {
        disponible_ = false;
    }
    // SQLite has no exact decimal type: its journal keeps amounts as their
    // count of ten-thousandths, exact and smaller than a double.
    importeExacto_ = c_->controlador().tipoImporteDiario() == TipoParametro::Diezmilesimas;
    if (disponible_) {
        const QString empresa = QString::number(empresa_);
        const TipoParametro importe = c_->controlador().tipoImporteDiario();
        auto imagen = [importe](Comando& c, const QString& prefijo) {
            c.agregarParametro(prefijo + QStringLiteral("Existe"), TipoParametro::Booleano);
            for (int m = 1; m <= 12; ++m)
                c.agregarParametro(prefijo + QStringLiteral("M") + QString::number(m), importe);
            c.agregarParametro(prefijo + QStringLiteral("Metodo"), TipoParametro::Entero);
            c.agregarParametro(prefijo + QStringLiteral("Manual"), TipoParametro::Entero);
            c.agregarParametro(prefijo + QStringLiteral("Valor"), importe);
            c.agregarParametro(prefijo + QStringLiteral("Ver"), TipoParametro::Booleano);
        };
        auto clave = [](Comando& c) {
            c.agregarParametro(QStringLiteral("Operacion"), TipoParametro::Entero);
            c.agregarParametro(QStringLiteral("Cod_Ejercicio"), TipoParametro::Entero);
            c.agregarParametro(QStringLiteral("Cuenta"), TipoParametro::Texto, 12);
            c.agregarParametro(QStringLiteral("Dpto"), TipoParametro::Entero);
        };
        auto marcas = [](int n) {
            QString m;
            for (int i = 0; i < n; ++i)
                m += QStringLiteral(", ?");
            return m;
        };

        operacion_ = std::make_unique<Comando>(c_);
        operacion_->setCommandText(QStringLiteral("INSERT INTO Presupuestos_Operaciones (Id, Cod_Empresa, Tipo, Descripcion, Usuario, Fecha) "
                                                  "VALUES (?, ")
                                   + empresa + QStringLiteral(", ?, ?, ?, ?)"));
        operacion_->agregarParametro(QStringLiteral("Id"), TipoParametro::Entero);
        operacion_->agregarParametro(QStringLiteral("Tipo"), TipoParametro::Texto, 20);
        operacion_->agregarParametro(QStringLiteral("Descripcion"), TipoParametro::Texto, 200);
        operacion_->agregarParametro(QStringLiteral("Usuario"), TipoParametro::Texto, 128);
        operacion_->agregarParametro(QStringLiteral("Fecha"), TipoParametro::Texto, 30);
        describir_ = std::make_unique<Comando>(c_);
        describir_->setCommandText(QStringLiteral("UPDATE Presupuestos_Operaciones SET Descripcion = ? WHERE Id = ?"));
        describir_->agregarParametro(QStringLiteral("Descripcion"), TipoParametro::Texto, 200);
        describir_->agregarParametro(QStringLiteral("Id"), TipoParametro::Entero);

        insertar_ = std::make_unique<Comando>(c_);
        insertar_->setCommandText(QStringLiteral("INSERT INTO Presupuestos_Cambios (Operacion, Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, Existia, ")
                                  + columnasImagen(QStringLiteral("A_")) + QStringLiteral(", Existe, ")
                                  + columnasImagen(QStringLiteral("D_")) + QStringLiteral(") VALUES (?, ") + empresa
                                  + QStringLiteral(", ?, ?, ?") + marcas(2 * 17) + QStringLiteral(")"));
        clave(*insertar_);
        imagen(*insertar_, QStringLiteral("A_"));
        imagen(*insertar_, QStringLiteral("D_"));

        // A row that did not exist before takes the table's defaults for the
        // image before it: an import of new rows binds half the values.
        insertarNueva_ = std::make_unique<Comando>(c_);
        insertarNueva_->setCommandText(QStringLiteral("INSERT INTO Presupuestos_Cambios (Operacion, Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, "
                                                      "Existia, Existe, ")
                                       + columnasImagen(QStringLiteral("D_")) + QStringLiteral(") VALUES (?, ") + empresa
                                       + QStringLiteral(", ?, ?, ?, 0") + marcas(17) + QStringLiteral(")"));
        clave(*insertarNueva_);
        imagen(*insertarNueva_, QStringLiteral("D_"));
        // The same for many rows in one statement: a large batch of new rows
        // pays the statement's own cost once for them all.
        insertarNuevas_ = std::make_unique<Comando>(c_);
        {
            QString valores;
            for (int i = 0; i < kNuevasPorSentencia; ++i)
                valores += (i ? QStringLiteral(", (?, ") : QStringLiteral("(?, ")) + empresa + QStringLiteral(", ?, ?, ?, 0")
                           + marcas(17) + QStringLiteral(")");
            insertarNuevas_->setCommandText(QStringLiteral("INSERT INTO Presupuestos_Cambios (Operacion, Cod_Empresa, Cod_Ejercicio, Cuenta, "
                                                           "Dpto, Existia, Existe, ")
                                            + columnasImagen(QStringLiteral("D_")) + QStringLiteral(") VALUES ") + valores);
            for (int i = 0; i < kNuevasPorSentencia; ++i) {
                clave(*insertarNuevas_);
                imagen(*insertarNuevas_, QStringLiteral("D_"));
            }
        }

        actualizar_ = std::make_unique<Comando>(c_);
        QString asignaciones = QStringLiteral("Existe = ?");
        for (const QString& col : columnasImagen(QStringLiteral("D_")).split(QStringLiteral(", ")))
            asignaciones += QStringLiteral(", ") + col + QStringLiteral(" = ?");
        actualizar_->setCommandText(QStringLiteral("UPDATE Presupuestos_Cambios SET ") + asignaciones
                                    + QStringLiteral(" WHERE Operacion = ? AND Cod_Empresa = ") + empresa
                                    + QStringLiteral(" AND Cod_Ejercicio = ? AND Cuenta = ? AND Dpto = ?"));
        imagen(*actualizar_, QStringLiteral("D_"));
        clave(*actualizar_);
        for (Comando* c : {operacion_.get(), describir_.get(), insertar_.get(), insertarNueva_.get(), insertarNuevas_.get(),
                           actualizar_.get()})
            c->setPrepared(true);
    }
    c_->agregarAvisos(this, {[this] { antesDeConfirmar(); }, [this] { despuesDeConfirmar(); }, [this] { alDeshacer(); }});
    // Other users' changes are those committed from now on.
    if (disponible_) {
        try {
            Recordset rs = c_->Abrir(QStringLiteral("SELECT MAX(Id) FROM Presupuestos_Cambios"));
            ultimoCambioVisto_ = rs.eof() || rs.campo(0).isNull() ? 0 : rs.campo(0).toLongLong();
        } catch (const std::exception&) {
        }
    }
    try {
        c_->cambiosAjenos(kCanal, nullptr);
    } catch (const std::exception&) {
    }
}

Diario::~Diario() { c_->quitarAvisos(this); }

// ---- Operations ------------------------------------------------------------------

Diario::Ambito Diario::operacion(Tipo tipo, const QString& descripcion)
{
    if (abierta_ && implicita_) {
        // Writes already made in this transaction join the operation.
        implicita_ = false;
        abierta_->tipo = tipo;
        abierta_->descripcion = descripcion;
        profundidad_ = 1;
    } else if (profundidad_++ == 0) {
        abrir(tipo, descripcion, false);
    }
    return Ambito(this);
}

Diario::Ambito::~Ambito()
{
    if (d_ && --d_->profundidad_ == 0)
        d_->cerrar();
}

void Diario::Ambito::describir(const QString& descripcion)
{
    if (d_ && d_->abierta_ && d_->profundidad_ == 1)
        d_->abierta_->descripcion = descripcion;
}

void Diario::abrir(Tipo tipo, const QString& descripcion, bool implicita)
{
    abierta_ = Operacion{};
    abierta_->tipo = tipo;
    abierta_->descripcion = descripcion;
    implicita_ = implicita;
    indice_.clear();
    escrita_.clear();
    tocadas_.clear();
    enTransaccion_.clear();
    conocida_.clear();
    filasAlEmpezar_ = 0;
}

void Diario::cerrar()
{
    if (!abierta_)
        return;
    Operacion op = std::move(*abierta_);
    abierta_.reset();
    implicita_ = false;
    indice_.clear();
    escrita_.clear();
    tocadas_.clear();
    enTransaccion_.clear();
    conocida_.clear();
    // Undo takes back what changed, and only that: a row left as it was
    // would make the step refusable for a change it never made.
    std::erase_if(op.filas, [](const Fila& f) { return f.antes == f.despues; });
    if (op.filas.empty() || op.tipo == Tipo::Deshacer || op.tipo == Tipo::Rehacer)
        return;
    deshacer_.push_back(std::move(op));
    rehacer_.clear();
    if (alCambiar_)
        alCambiar_();
}

void Diario::antes(const QString& cuenta, qint16 dpto, qint16 ejercicio, Tipo tipo)
{
    if (!abierta_)
        abrir(tipo, nombre(tipo), true);
    if (tocadas_.empty())
        filasAlEmpezar_ = abierta_->filas.size();
    const std::size_t i = abierta_->filas.size();
    // A row known to the operation already: a batch writes a row's months
    // one after another, so the row told of last is looked at first.
    const auto yaConocida = [&](std::size_t k) {
        ultima_ = k;
        conocida_[k] = 0;
        if (!enTransaccion_[k]) {
            enTransaccion_[k] = 1;
            tocadas_.push_back(k);
            previos_.push_back({k, abierta_->filas[k].despues, escrita_[k]});
        }
    };
    if (ultima_ < i) {
        const Fila& u = abierta_->filas[ultima_];
        if (u.dpto == dpto && u.ejercicio == ejercicio && u.cuenta == cuenta) {
            yaConocida(ultima_);
            return;
        }
    }
    // One look-up whether the row is new to the operation or not: a batch
    // of tens of thousands of rows spends its bookkeeping here.
    const auto [it, nueva] = indice_.try_emplace(claveFila(cuenta, dpto, ejercicio), i);
    if (!nueva) {
        yaConocida(it->second);
        return;
    }
    ultima_ = it->second;
    Fila f;
    f.cuenta = cuenta;
    f.dpto = dpto;
    f.ejercicio = ejercicio;
    const auto prevista = previstas_.empty() ? previstas_.end() : previstas_.find(it->first);
    if (prevista != previstas_.end()) {
        f.antes = prevista->second;
    } else if (!anosLeidos_.contains(ejercicio)) {
        try {
            c_->bloquearClaves(ambito(ejercicio), {claveBloqueo(cuenta, dpto)});
            f.antes = leer(cuenta, dpto, ejercicio);
        } catch (...) {
            // Not known after all (a lock not granted, a deadlock): when the
            // transaction runs again the row is read as new.
            indice_.erase(it);
            throw;
        }
    }
    // else: the year was read whole and the row was not in it.
    abierta_->filas.push_back(std::move(f));
    escrita_.push_back(0);
    enTransaccion_.push_back(1);
    conocida_.push_back(0);
    tocadas_.push_back(i);
}

void Diario::escritos(const QString& cuenta, qint16 dpto, qint16 ejercicio, const std::array<Currency, 12>& meses)
{
    if (!abierta_)
        return;
    // The writer tells of the row it has just announced, as a rule.
    std::size_t i = ultima_;
    if (i >= abierta_->filas.size() || abierta_->filas[i].dpto != dpto || abierta_->filas[i].ejercicio != ejercicio
        || abierta_->filas[i].cuenta != cuenta) {
        const auto it = indice_.find(claveFila(cuenta, dpto, ejercicio));
        if (it == indice_.end())
            return;
        i = it->second;
    }
    Fila& f = abierta_->filas[i];
    f.despues = f.antes.existe ? f.antes : Imagen{};
    f.despues.existe = true;
    f.despues.meses = meses;
    conocida_[i] = 1;
}

void Diario::preverAno(qint16 ejercicio, std::size_t filas)
{
    if (abierta_) {
        abierta_->filas.reserve(abierta_->filas.size() + filas);
        indice_.reserve(indice_.size() + filas);
    }
    // A row not in the year as read does not exist: the transaction sees no
    // other writer's rows. Only rows that exist are kept, so an import of
    // new rows keeps none.
    if (anosLeidos_.contains(ejercicio))
        return;
    c_->bloquearAmbito(ambito(ejercicio));
    leerAno(ejercicio, previstas_);
    anosLeidos_.insert(ejercicio);
}

void Diario::prever(const std::vector<std::pair<QString, qint16>>& filas, qint16 ejercicio)
{
    if (filas.size() > kLeerAnoEntero) {
        preverAno(ejercicio, filas.size());
        return;
    }
    std::vector<std::pair<QString, qint16>> nuevas;
    QStringList claves;
    for (const auto& [cuenta, dpto] : filas)
        if (!indice_.count(claveFila(cuenta, dpto, ejercicio))) {
            nuevas.emplace_back(cuenta, dpto);
            if (c_->bloqueaPorClave())
                claves << claveBloqueo(cuenta, dpto);
        }
    c_->bloquearClaves(ambito(ejercicio), claves);
    for (auto& [k, im] : leerVarias(nuevas, ejercicio, true))
        previstas_.insert_or_assign(k, std::move(im));
}

void Diario::antesDeConfirmar()
{
    if (!abierta_ || tocadas_.empty())
        return;
    SinRegistro sin(*c_);
    // The rows as the transaction leaves them, a year at a time.
    // Those whose writer said how it left them are not read again.
    std::vector<const Fila*> porLeer;
    for (std::size_t i : tocadas_)
        if (!conocida_[i])
            porLeer.push_back(&abierta_->filas[i]);
    const Imagenes leidas = leerFilas(porLeer);
    for (std::size_t i : tocadas_) {
        Fila& f = abierta_->filas[i];
        if (conocida_[i])
            continue;
        const auto it = leidas.find(claveFila(f.cuenta, f.dpto, f.ejercicio));
        f.despues = it != leidas.end() ? it->second : Imagen{};
    }
    if (!disponible_)
        return;
    // The journal tells what happened: a row the transaction left as it
    // found it (a method's row that came out the same, a write the engine
    // refused) is no change, and an operation of no changes is not written.
    const auto cambiada = [this](std::size_t i) {
        const Fila& f = abierta_->filas[i];
        return escrita_[i] || !(f.antes == f.despues);
    };
    if (std::none_of(tocadas_.begin(), tocadas_.end(), cambiada))
        return;
    const QString descripcion = abierta_->descripcion.left(200);
    if (abierta_->id == 0) {
        numerar(descripcion);
    } else if (descripcion != descripcionEscrita_) {
        // The operation goes on in a later transaction and has learnt more of itself.
        describir_->setValor(0, descripcion);
        describir_->setEntero(1, static_cast<qint32>(abierta_->id));
        describir_->Execute();
        descripcionEscrita_ = descripcion;
    }
    std::vector<const Fila*> nuevas;
    for (std::size_t i : tocadas_) {
        const Fila& f = abierta_->filas[i];
        if (!cambiada(i))
            continue;
        if (!escrita_[i] && !f.antes.existe)
            nuevas.push_back(&f);
        else
            escribir(f, !escrita_[i]);
        escrita_[i] = 1;
    }
    std::size_t n = 0;
    for (; n + kNuevasPorSentencia <= nuevas.size(); n += kNuevasPorSentencia) {
        for (int k = 0; k < kNuevasPorSentencia; ++k) {
            const Fila& f = *nuevas[n + static_cast<std::size_t>(k)];
            ponerClave(*insertarNuevas_, k * 21, f);
            ponerImagen(*insertarNuevas_, k * 21 + 4, f.despues);
        }
        insertarNuevas_->Execute();
    }
    for (; n < nuevas.size(); ++n)
        escribir(*nuevas[n], true);
    c_->notificar(kCanal, QString::number(empresa_) + QLatin1Char(':') + QString::number(abierta_->id));
}

void Diario::despuesDeConfirmar()
{
    previstas_.clear();
    anosLeidos_.clear();
    for (std::size_t i : tocadas_) {
        enTransaccion_[i] = 0;
        conocida_[i] = 0;
    }
    tocadas_.clear();
    previos_.clear();
    if (implicita_ && abierta_)
        cerrar();
}

void Diario::alDeshacer()
{
    previstas_.clear();
    anosLeidos_.clear();
    if (!abierta_) {
        tocadas_.clear();
        previos_.clear();
        return;
    }
    // The database is as before the transaction: so is what the operation knows of it.
    for (const Previo& p : previos_) {
        abierta_->filas[p.fila].despues = p.despues;
        escrita_[p.fila] = p.escrita;
        enTransaccion_[p.fila] = 0;
    }
    for (std::size_t i = filasAlEmpezar_; i < abierta_->filas.size(); ++i) {
        const Fila& f = abierta_->filas[i];
        indice_.erase(claveFila(f.cuenta, f.dpto, f.ejercicio));
    }
    abierta_->filas.resize(filasAlEmpezar_);
    escrita_.resize(filasAlEmpezar_);
    enTransaccion_.resize(filasAlEmpezar_);
    conocida_.resize(filasAlEmpezar_);
    tocadas_.clear();
    previos_.clear();
    if (abierta_->filas.empty() && implicita_)
        abierta_.reset();
}

namespace {

// The local time as the journal writes it ("yyyy-MM-dd HH:mm:ss.zzz").
// QDateTime::currentDateTime has the C library look at the time zone's
// file again on every call, a few microseconds of every edit; localtime_r
// reads the zone once per process.
QString ahoraLocal()
{
    const auto ahora = std::chrono::system_clock::now();
    const std::time_t segundos = std::chrono::system_clock::to_time_t(ahora);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(ahora.time_since_epoch()).count() % 1000;
    std::tm t{};
#ifdef Q_OS_WIN
    localtime_s(&t, &segundos);
#else
    localtime_r(&segundos, &t);
#endif
    char texto[32];
    const int n = std::snprintf(texto, sizeof texto, "%04d-%02d-%02d %02d:%02d:%02d.%03d", t.tm_year + 1900, t.tm_mon + 1,
                                t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, static_cast<int>(ms < 0 ? ms + 1000 : ms));
    return QString::fromLatin1(texto, n);
}

} // namespace

void Diario::numerar(const QString& descripcion)
{
    // Numbered inside the transaction that writes it, after every operation
    // already in the journal. Another user numbering at the same moment on a
    // server takes the same number first: the next one is tried.
    const QString fecha = ahoraLocal();
    for (int intento = 0;; ++intento) {
        const Controlador::Numeracion numeracion = c_->controlador().numeracionOperaciones();
        // Prepared once: every operation asks.
        if (!numerar_)
            numerar_ = std::make_unique<Consulta>(c_, numeracion.consulta);
        Recordset rs = numerar_->Abrir({});
        const qint32 id = (rs.eof() ? 0 : rs.moneda(0).toInt32()) + numeracion.suma;
        rs.Close();
        operacion_->setEntero(0, id);
        operacion_->setValor(1, clave(abierta_->tipo));
        operacion_->setValor(2, descripcion);
        operacion_->setValor(3, usuario_.left(128));
        operacion_->setValor(4, fecha);
        try {
            operacion_->Execute();
        } catch (const VbError& e) {
            if (e.causa() != VbError::Causa::ClaveDuplicada || intento >= 4)
                throw;
            continue;
        }
        abierta_->id = id;
        propias_.insert(id);
        descripcionEscrita_ = descripcion;
        return;
    }
}

void Diario::ponerImagen(Comando& c, int desde, const Imagen& im)
{
    c.setBooleano(desde, im.existe);
    for (int m = 0; m < 12; ++m)
        c.setValor(desde + 1 + m, im.meses[static_cast<std::size_t>(m)]);
    c.setEntero(desde + 13, im.metodo);
    c.setEntero(desde + 14, im.manual);
    c.setValor(desde + 15, im.valor);
    c.setBooleano(desde + 16, im.ver);
}

void Diario::ponerClave(Comando& c, int desde, const Fila& f) const
{
    c.setEntero(desde, static_cast<qint32>(abierta_->id));
    c.setEntero(desde + 1, f.ejercicio);
    c.setValor(desde + 2, f.cuenta);
    c.setEntero(desde + 3, f.dpto);
}

void Diario::escribir(const Fila& f, bool nueva)
{
    const auto imagen = &Diario::ponerImagen;
    const auto clave = [this, &f](Comando& c, int desde) { ponerClave(c, desde, f); };
    if (nueva && !f.antes.existe) {
        Comando& c = *insertarNueva_;
        clave(c, 0);
        imagen(c, 4, f.despues);
        c.Execute();
    } else if (nueva) {
        Comando& c = *insertar_;
        clave(c, 0);
        imagen(c, 4, f.antes);
        imagen(c, 21, f.despues);
        c.Execute();
    } else {
        Comando& c = *actualizar_;
        imagen(c, 0, f.despues);
        clave(c, 17);
        c.Execute();
    }
}

// ---- Reading ----------------------------------------------------------------------

Diario::Imagen Diario::leer(const QString& cuenta, qint16 dpto, qint16 ejercicio) const
{
    SinRegistro sin(*c_);
    if (!leerFila_) {
        QString sql = QStringLiteral("SELECT M1");
        for (int m = 2; m <= 12; ++m)
            sql += QStringLiteral(", M") + QString::number(m);
        sql += QStringLiteral(", Metodo_Calculo, Modificacion_Manual, Valor, Ver FROM Presupuestos") + kBloqueo
               + QStringLiteral(" WHERE Cod_Empresa = ") + QString::number(empresa_)
               + QStringLiteral(" AND Cod_Ejercicio = ? AND Cuenta = ? AND Dpto = ?");
        leerFila_ = std::make_unique<Consulta>(c_, sql);
    }
    Recordset rs = leerFila_->Abrir({QVariant(static_cast<int>(ejercicio)), QVariant(cuenta), QVariant(static_cast<int>(dpto))});
    Imagen im;
    if (rs.eof())
        return im;
    im.existe = true;
    for (int m = 0; m < 12; ++m)
        im.meses[static_cast<std::size_t>(m)] = rs.moneda(m);
    im.metodo = rs.moneda(12).toInt32();
    im.manual = rs.moneda(13).toInt32();
    im.valor = rs.moneda(14);
    im.ver = !rs.moneda(15).isZero();
    return im;
}

Diario::Imagenes Diario::leerFilas(const std::vector<const Fila*>& filas, bool bloquear) const
{
    std::unordered_map<qint16, std::vector<std::pair<QString, qint16>>> porEjercicio;
    for (const Fila* f : filas)
        porEjercicio[f->ejercicio].emplace_back(f->cuenta, f->dpto);
    Imagenes r;
    for (const auto& [ejercicio, claves] : porEjercicio) {
        if (bloquear && c_->bloqueaPorClave()) {
            QStringList bloqueo;
            for (const auto& [cuenta, dpto] : claves)
                bloqueo << claveBloqueo(cuenta, dpto);
            c_->bloquearClaves(ambito(ejercicio), bloqueo);
        }
        r.merge(leerVarias(claves, ejercicio, bloquear));
    }
    return r;
}

QString Diario::ambito(qint16 ejercicio) const { return QString::number(empresa_) + QLatin1Char(':') + QString::number(ejercicio); }

namespace {

QString columnasFila(qint16 empresa, qint16 ejercicio, bool bloquear)
{
    QString columnas = QStringLiteral("SELECT Cuenta, Dpto, M1");
    for (int m = 2; m <= 12; ++m)
        columnas += QStringLiteral(", M") + QString::number(m);
    return columnas + QStringLiteral(", Metodo_Calculo, Modificacion_Manual, Valor, Ver FROM Presupuestos")
           + (bloquear ? kBloqueo : QString()) + QStringLiteral(" WHERE Cod_Empresa = ") + QString::number(empresa)
           + QStringLiteral(" AND Cod_Ejercicio = ") + QString::number(ejercicio);
}

void tomarImagen(Recordset& rs, Diario::Imagen& im)
{
    im.existe = true;
    for (int m = 0; m < 12; ++m)
        im.meses[static_cast<std::size_t>(m)] = rs.moneda(2 + m);
    im.metodo = rs.moneda(14).toInt32();
    im.manual = rs.moneda(15).toInt32();
    im.valor = rs.moneda(16);
    im.ver = !rs.moneda(17).isZero();
}

} // namespace

void Diario::leerAno(qint16 ejercicio, Imagenes& destino) const
{
    SinRegistro sin(*c_);
    // The year is locked whole already (bloquearAmbito).
    Recordset rs = c_->Abrir(columnasFila(empresa_, ejercicio, false));
    while (!rs.eof()) {
        tomarImagen(rs, destino[ClaveFila{rs.texto(0), static_cast<qint16>(rs.moneda(1).toInt32()), ejercicio}]);
        rs.MoveNext();
    }
}

Diario::Imagenes Diario::leerVarias(const std::vector<std::pair<QString, qint16>>& filas, qint16 ejercicio,
                                   bool bloquear) const
{
    Imagenes r;
    if (filas.empty())
        return r;
    r.reserve(filas.size());
    for (const auto& [cuenta, dpto] : filas)
        r.emplace(claveFila(cuenta, dpto, ejercicio), Imagen{});
    if (filas.size() == 1) {
        r[claveFila(filas[0].first, filas[0].second, ejercicio)] = leer(filas[0].first, filas[0].second, ejercicio);
        return r;
    }
    SinRegistro sin(*c_);
    const QString columnas = columnasFila(empresa_, ejercicio, bloquear);
    const auto tomar = [&r, ejercicio](Recordset& rs) {
        while (!rs.eof()) {
            const auto it = r.find(ClaveFila{rs.texto(0), static_cast<qint16>(rs.moneda(1).toInt32()), ejercicio});
            if (it != r.end())
                tomarImagen(rs, it->second);
            rs.MoveNext();
        }
    };
    // Thousands of rows (an import) are found in one pass over the year;
    // a few, by their accounts, a few hundred accounts per statement (the
    // departments not asked for that come along are left out).
    if (filas.size() > kLeerAnoEntero) {
        Recordset rs = c_->Abrir(columnas);
        tomar(rs);
        return r;
    }
    QStringList cuentas;
    {
        std::unordered_map<QString, char> vistas;
        for (const auto& f : filas)
            if (vistas.emplace(f.first, 1).second)
                cuentas << literal(f.first);
    }
    constexpr qsizetype kPorSentencia = 400;
    for (qsizetype desde = 0; desde < cuentas.size(); desde += kPorSentencia) {
        Recordset rs = c_->Abrir(columnas + QStringLiteral(" AND Cuenta IN (") + cuentas.mid(desde, kPorSentencia).join(QLatin1Char(','))
                                 + QLatin1Char(')'));
        tomar(rs);
    }
    return r;
}

std::vector<Diario::Entrada> Diario::historial(const QString& cuenta, qint16 dpto, qint16 ejercicio) const
{
    std::vector<Entrada> r;
    if (!disponible_)
        return r;
    SinRegistro sin(*c_);
    const QString sql = QStringLiteral("SELECT C.Operacion, O.Tipo, O.Descripcion, O.Usuario, O.Fecha, C.Existia, ")
                        + columnasImagen(QStringLiteral("C.A_")) + QStringLiteral(", C.Existe, ") + columnasImagen(QStringLiteral("C.D_"))
                        + QStringLiteral(" FROM Presupuestos_Cambios C INNER JOIN Presupuestos_Operaciones O ON O.Id = C.Operacion"
                                         " WHERE C.Cod_Empresa = ")
                        + QString::number(empresa_) + QStringLiteral(" AND C.Cod_Ejercicio = ") + QString::number(ejercicio)
                        + QStringLiteral(" AND C.Cuenta = ") + literal(cuenta) + QStringLiteral(" AND C.Dpto = ") + QString::number(dpto)
                        + QStringLiteral(" ORDER BY C.Id DESC");
    Recordset rs = c_->Abrir(sql);
    while (!rs.eof()) {
        Entrada e;
        e.operacion = rs.moneda(0).toInt32();
        e.tipo = deClave(rs.texto(1)).value_or(Tipo::Tecleo);
        e.descripcion = rs.texto(2);
        e.usuario = rs.texto(3);
        e.fecha = QDateTime::fromString(rs.texto(4).left(23), QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
        if (!e.fecha.isValid())
            e.fecha = rs.campo(4).toDateTime();
        e.antes = leerImagen(rs, 5);
        e.despues = leerImagen(rs, 22);
        r.push_back(std::move(e));
        rs.MoveNext();
    }
    return r;
}

Diario::Imagen Diario::leerImagen(Recordset& rs, int desde) const
{
    const auto importe = [this, &rs](int i) { return importeExacto_ ? Currency::fromRaw(rs.campo(i).toLongLong()) : rs.moneda(i); };
    Imagen im;
    im.existe = !rs.moneda(desde).isZero();
    for (int m = 0; m < 12; ++m)
        im.meses[static_cast<std::size_t>(m)] = importe(desde + 1 + m);
    im.metodo = rs.moneda(desde + 13).toInt32();
    im.manual = rs.moneda(desde + 14).toInt32();
    im.valor = importe(desde + 15);
    im.ver = !rs.moneda(desde + 16).isZero();
    return im;
}

Diario::Ajenos Diario::cambiosAjenos()
{
    Ajenos r;
    QStringList cargas;
    if (!c_->cambiosAjenos(kCanal, &cargas))
        return r;
    r.hubo = true;
    if (!disponible_)
        return r;
    SinRegistro sin(*c_);
    QString sql = QStringLiteral("SELECT C.Id, C.Operacion, O.Usuario, C.Cod_Ejercicio, C.Cuenta, C.Dpto, C.Existia, ")
                  + columnasImagen(QStringLiteral("C.A_")) + QStringLiteral(", C.Existe, ") + columnasImagen(QStringLiteral("C.D_"))
                  + QStringLiteral(" FROM Presupuestos_Cambios C INNER JOIN Presupuestos_Operaciones O ON O.Id = C.Operacion"
                                   " WHERE C.Cod_Empresa = ")
                  + QString::number(empresa_);
    if (!cargas.isEmpty()) {
        // A server named the operations, in the order they committed.
        QStringList ids;
        const QString prefijo = QString::number(empresa_) + QLatin1Char(':');
        for (const QString& carga : cargas)
            if (carga.startsWith(prefijo))
                ids << QString::number(carga.mid(prefijo.size()).toLongLong());
        if (ids.isEmpty())
            return r;
        sql += QStringLiteral(" AND C.Operacion IN (") + ids.join(QLatin1Char(',')) + QLatin1Char(')');
    } else {
        // The journal's rows are numbered as they commit, one writer at a time.
        sql += QStringLiteral(" AND C.Id > ") + QString::number(ultimoCambioVisto_);
    }
    sql += QStringLiteral(" ORDER BY C.Id");
    Recordset rs = c_->Abrir(sql);
    while (!rs.eof()) {
        ultimoCambioVisto_ = std::max(ultimoCambioVisto_, rs.campo(0).toLongLong());
        if (!propias_.contains(rs.campo(1).toLongLong())) {
            CambioAjeno c;
            c.usuario = rs.texto(2);
            c.fila.ejercicio = static_cast<qint16>(rs.entero(3));
            c.fila.cuenta = rs.texto(4);
            c.fila.dpto = static_cast<qint16>(rs.entero(5));
            c.fila.antes = leerImagen(rs, 6);
            c.fila.despues = leerImagen(rs, 23);
            r.cambios.push_back(std::move(c));
        }
        rs.MoveNext();
    }
    return r;
}

// ---- Undo and redo ---------------------------------------------------------------------

QString Diario::textoDeshacer() const
{
    return deshacer_.empty() ? QStringLiteral("Deshacer") : QStringLiteral("Deshacer: ") + deshacer_.back().descripcion;
}

QString Diario::textoRehacer() const
{
    return rehacer_.empty() ? QStringLiteral("Rehacer") : QStringLiteral("Rehacer: ") + rehacer_.back().descripcion;
}

Diario::Operacion Diario::deshacer(const Restaurar& restaurar) { return aplicar(deshacer_, rehacer_, true, restaurar); }

Diario::Operacion Diario::rehacer(const Restaurar& restaurar) { return aplicar(rehacer_, deshacer_, false, restaurar); }

Diario::Operacion Diario::aplicar(std::vector<Operacion>& de, std::vector<Operacion>& a, bool haciaAntes,
                                  const Restaurar& restaurar)
{
    if (de.empty())
        return {};
    const Operacion op = de.back();
    repetirTrasInterbloqueo(*c_, [&] {
        Ambito ambito = operacion(haciaAntes ? Tipo::Deshacer : Tipo::Rehacer,
                                  (haciaAntes ? QStringLiteral("deshacer ") : QStringLiteral("rehacer ")) + op.descripcion);
        Transaccion t(*c_);
        // Every row must be as the operation left it (or found it) before
        // anything is written: another user's figure is never overwritten.
        // Read a year at a time, they are also what this step journals as
        // the rows before it.
        std::vector<const Fila*> todas;
        for (const Fila& f : op.filas)
            todas.push_back(&f);
        // Locked first: no one may change them between the check and the write.
        Imagenes actuales = leerFilas(todas, true);
        for (const Fila& f : op.filas) {
            const Imagen& esperada = haciaAntes ? f.despues : f.antes;
            const Imagen& actual = actuales[claveFila(f.cuenta, f.dpto, f.ejercicio)];
            if (!(actual == esperada))
                throw ConflictoDiario(QStringLiteral("No se puede %1 «%2»: otro usuario ha cambiado desde entonces %3 de la cuenta %4, "
                                                     "departamento %5. No se ha cambiado nada.")
                                          .arg(haciaAntes ? QStringLiteral("deshacer") : QStringLiteral("rehacer"), op.descripcion,
                                               primeraDiferencia(esperada, actual), f.cuenta, QString::number(f.dpto)));
        }
        if (previstas_.empty())
            previstas_ = std::move(actuales);
        else
            for (auto& [k, im] : actuales)
                previstas_.insert_or_assign(k, std::move(im));
        for (auto it = op.filas.rbegin(); it != op.filas.rend(); ++it)
            restaurar(it->cuenta, it->dpto, it->ejercicio, haciaAntes ? it->antes : it->despues);
        t.confirmar();
    });
    de.pop_back();
    a.push_back(op);
    if (alCambiar_)
        alCambiar_();
    return op;
}

ConflictoDiario::ConflictoDiario(const QString& mensaje) : std::runtime_error(mensaje.toStdString()), mensaje_(mensaje) {}

} // namespace presupuestos
