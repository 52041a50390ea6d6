#include "db/ControladorQt.h"

#include "db/Conexion.h"

#include <QSqlError>

namespace presupuestos {

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

long ejecutarQt(Conexion& c, const QString& adaptado)
{
    QSqlQuery q(c.baseDatos());
    q.setForwardOnly(true);
    if (!q.exec(adaptado))
        c.lanzarErrorMotor(q.lastError());
    return q.numRowsAffected();
}

Recordset abrirQt(Conexion& c, const QString& adaptado)
{
    auto q = std::make_unique<QSqlQuery>(c.baseDatos());
    q->setForwardOnly(true);
    if (!q->exec(adaptado))
        c.lanzarErrorMotor(q->lastError());
    return Recordset(std::move(q));
}

ComandoQt::ComandoQt(Conexion& c, const QString& adaptado, int parametros, bool monedaExacta)
    : c_(c), q_(c.baseDatos()), monedaExacta_(monedaExacta)
{
    q_.setForwardOnly(true);
    const QString nombrado = nombrarMarcas(adaptado, parametros, marcas_);
    if (!q_.prepare(nombrado.isEmpty() ? adaptado : nombrado))
        c_.lanzarErrorMotor(q_.lastError());
}

// The value as Qt's driver receives it, a null typed after the parameter.
QVariant ComandoQt::paraQt(const ParametroComando& p) const
{
    if (monedaExacta_ && p.tipo == TipoParametro::Moneda)
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

long ComandoQt::ejecutar(const std::vector<ParametroComando>& parametros)
{
    for (std::size_t i = 0; i < parametros.size(); ++i) {
        const QVariant v = paraQt(parametros[i]);
        if (marcas_.isEmpty())
            q_.bindValue(static_cast<int>(i), v);
        else
            q_.bindValue(marcas_[static_cast<int>(i)], v);
    }
    if (!q_.exec())
        c_.lanzarErrorMotor(q_.lastError());
    const long n = q_.numRowsAffected();
    // Done with, so that nothing of it is held open until it runs again.
    q_.finish();
    return n;
}

Recordset ConsultaQt::abrir(const std::vector<QVariant>& valores)
{
    auto q = std::make_unique<QSqlQuery>(c_.baseDatos());
    q->setForwardOnly(true);
    if (!q->prepare(adaptado_))
        c_.lanzarErrorMotor(q->lastError());
    for (std::size_t i = 0; i < valores.size(); ++i)
        q->bindValue(static_cast<int>(i), valores[i]);
    if (!q->exec())
        c_.lanzarErrorMotor(q->lastError());
    return Recordset(std::move(q));
}

} // namespace presupuestos
