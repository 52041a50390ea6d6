// Prepared commands with typed parameters.
#include "db/Conexion.h"
#include "db/Sql.h"

#include "common/VbError.h"

#include <limits>

namespace presupuestos {

// ---- Comando -----------------------------------------------------------------


Comando::Comando(std::shared_ptr<Conexion> conexion) : conexion_(std::move(conexion))
{
    if (conexion_)
        conexion_->registrarComando(this);
}

Comando::~Comando()
{
    preparada_.reset();
    if (conexion_)
        conexion_->olvidarComando(this);
}

void Comando::setCommandText(const QString& texto)
{
    texto_ = texto;
    anotado_ = false;
    preparada_.reset();
}

void Comando::agregarParametro(const QString& nombre, TipoParametro tipo, int tamano)
{
    ParametroComando p;
    p.nombre = nombre;
    p.tipo = tipo;
    p.tamano = tamano;
    parametros_.push_back(std::move(p));
    preparada_.reset();
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

void Comando::ponerTexto(ParametroComando& p, const QString& t)
{
    if (p.tamano > 0 && t.size() > p.tamano)
        throw VbError(VbError::ParameterTooLong,
                      QStringLiteral("El valor \"%1\" del parámetro %2 tiene %3 caracteres y admite como máximo %4.")
                          .arg(t, p.nombre)
                          .arg(t.size())
                          .arg(p.tamano));
    // A batch binds the same account to every month of its row: encoded once.
    if (p.texto.isNull() || (p.texto.constData() != t.constData() && p.texto != t))
        p.utf8 = t.toUtf8();
    p.texto = t;
    p.nulo = false;
}

// Imports bind a dozen amounts per row: they go in without a QVariant.
void Comando::setEntero(int indice, qint32 valor)
{
    if (indice < 0 || indice >= numeroParametros())
        throw VbError::itemNotFound();
    ParametroComando& p = parametros_[indice];
    switch (p.tipo) {
    case TipoParametro::Entero: p.numero = valor; break;
    case TipoParametro::Moneda:
    case TipoParametro::Diezmilesimas: p.numero = Currency::fromInt(valor).raw(); break;
    case TipoParametro::Texto: ponerTexto(p, QString::number(valor)); return;
    case TipoParametro::Booleano: p.numero = valor != 0; break;
    }
    p.nulo = false;
}

void Comando::setTexto(int indice, const QString& valor)
{
    if (indice < 0 || indice >= numeroParametros())
        throw VbError::itemNotFound();
    ParametroComando& p = parametros_[indice];
    if (p.tipo != TipoParametro::Texto || valor.isNull()) {
        setValor(indice, QVariant(valor));
        return;
    }
    ponerTexto(p, valor);
}

void Comando::setTexto(int indice, const QString& valor, const QByteArray& utf8)
{
    if (indice < 0 || indice >= numeroParametros())
        throw VbError::itemNotFound();
    ParametroComando& p = parametros_[indice];
    if (p.tipo != TipoParametro::Texto || valor.isNull() || (p.tamano > 0 && valor.size() > p.tamano)) {
        setTexto(indice, valor);
        return;
    }
    p.texto = valor;
    p.utf8 = utf8;
    p.nulo = false;
}

void Comando::setBooleano(int indice, bool valor) { setEntero(indice, valor ? 1 : 0); }

void Comando::setValor(int indice, Currency valor)
{
    if (indice < 0 || indice >= numeroParametros())
        throw VbError::itemNotFound();
    ParametroComando& p = parametros_[indice];
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
    ParametroComando& p = parametros_[indice];
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
    const ParametroComando& p = parametros_[indice];
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

long Comando::Execute()
{
    if (!conexion_)
        throw VbError::connectionUnusable();
    for (const ParametroComando& p : parametros_)
        if (p.tipo == TipoParametro::Moneda && !p.nulo)
            sql::comprobarImporte(*conexion_, Currency::fromRaw(p.numero));
    if (!anotado_ || !preparado_) {
        conexion_->anotar(texto_);
        anotado_ = true;
    }
    return ejecutar();
}

long Comando::Execute(const QString& textoCompuesto)
{
    if (!conexion_)
        throw VbError::connectionUnusable();
    for (const ParametroComando& p : parametros_)
        if (p.tipo == TipoParametro::Moneda && !p.nulo)
            sql::comprobarImporte(*conexion_, Currency::fromRaw(p.numero));
    conexion_->anotar(textoCompuesto);
    return ejecutar();
}

long Comando::ejecutar()
{
    conexion_->completarPendientes();
    // Prepared on a session the server has since dropped, or not to be kept.
    if (!preparada_ || !preparado_ || generacion_ != conexion_->generacion()) {
        preparada_.reset();
        preparada_ = conexion_->controlador().prepararComando(texto_, numeroParametros(), preparado_);
        generacion_ = conexion_->generacion();
    }
    const long n = preparada_->ejecutar(parametros_);
    if (!preparado_)
        preparada_.reset();
    return n;
}

void sql::comprobarImporte(const Conexion& conexion, Currency importe) { conexion.controlador().comprobarImporte(importe); }

} // namespace presupuestos
