// Reading rows: the recordset, and the query prepared once and opened many
// times.
#include "db/Conexion.h"

#include "common/VbError.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>

namespace presupuestos {

Consulta::Consulta(std::shared_ptr<Conexion> conexion, QString texto) : conexion_(std::move(conexion)), texto_(std::move(texto)) {}

Consulta::~Consulta() = default;

Recordset Consulta::Abrir(const std::vector<QVariant>& valores)
{
    conexion_->anotar(texto_);
    conexion_->completarPendientes();
    if (!preparada_ || generacion_ != conexion_->generacion()) {
        preparada_.reset();
        preparada_ = conexion_->controlador().prepararConsulta(texto_);
        generacion_ = conexion_->generacion();
    }
    return preparada_->abrir(valores);
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

QString Recordset::texto(int indice, const QString& anterior) const
{
    comprobar(indice);
    if (c_)
        return c_->texto(indice, anterior);
    QString t = q_->value(indice).toString();
    return t == anterior ? anterior : t;
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
