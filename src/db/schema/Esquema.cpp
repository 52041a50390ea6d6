#include "db/schema/Esquema.h"

#include "common/VbError.h"
#include "db/Conexion.h"
#include "db/DialectoPostgres.h"

#include <QFile>
#include <QRegularExpression>
#include <QSqlError>
#include <QSqlQuery>

static void iniciarRecursosEsquema() { Q_INIT_RESOURCE(esquema); }

namespace presupuestos {

QString Esquema::script(const QString& nombre)
{
    iniciarRecursosEsquema();
    QFile f(QStringLiteral(":/esquema/") + nombre);
    if (!f.open(QIODevice::ReadOnly))
        throw VbError(VbError::DatabaseError, QStringLiteral("No se encuentra el script de esquema %1.").arg(nombre));
    return QString::fromUtf8(f.readAll());
}

QStringList Esquema::sentencias(const QString& script)
{
    QStringList lineas;
    for (const QString& linea : script.split(QLatin1Char('\n'))) {
        QString l = linea;
        const int comentario = l.indexOf(QStringLiteral("--"));
        if (comentario >= 0)
            l.truncate(comentario);
        if (l.trimmed() == QLatin1String("GO"))
            continue;
        lineas << l;
    }
    QStringList resultado;
    for (const QString& s : lineas.join(QLatin1Char('\n')).split(QLatin1Char(';'))) {
        const QString t = s.trimmed();
        if (!t.isEmpty())
            resultado << t;
    }
    return resultado;
}

namespace {
void ejecutar(Conexion& c, const QString& sql)
{
    QSqlQuery q(c.baseDatos());
    if (!q.exec(sql))
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("No se puede crear el esquema: %1\n%2").arg(q.lastError().text(), sql));
}
} // namespace

namespace {
// The scripts of the connection's engine: "sqlite..." or "postgres...".
QString deMotor(const Conexion& c, const char* resto)
{
    return (c.motor() == Motor::PostgreSQL ? QStringLiteral("postgres") : QStringLiteral("sqlite")) + QLatin1String(resto);
}
} // namespace

void Esquema::crearGestion(Conexion& c)
{
    for (const QString& s : sentencias(script(deMotor(c, ".sql"))))
        ejecutar(c, s);
    crearDiario(c);
}

void Esquema::crearDiario(Conexion& c)
{
    for (const QString& s : sentencias(script(deMotor(c, "_cambios.sql"))))
        ejecutar(c, s);
}

void Esquema::crearRetail(Conexion& c, const QString& nombreBaseDatos)
{
    QString nombre = nombreBaseDatos;
    if (nombre.startsWith(QLatin1Char('[')) && nombre.endsWith(QLatin1Char(']')))
        nombre = nombre.mid(1, nombre.size() - 2);
    QString esquema;
    if (c.motor() == Motor::PostgreSQL) {
        // A schema named as three-part names find it.
        esquema = DialectoPostgres::identificador(nombre);
        ejecutar(c, QStringLiteral("CREATE SCHEMA IF NOT EXISTS ") + esquema);
    } else {
        c.adjuntar({nombre});
        esquema = QStringLiteral("\"%1\"").arg(nombre);
    }
    static const QRegularExpression crear(QStringLiteral("^CREATE TABLE IF NOT EXISTS (\\w+)"));
    for (QString s : sentencias(script(deMotor(c, "_retail.sql")))) {
        s.replace(crear, QStringLiteral("CREATE TABLE IF NOT EXISTS %1.\\1").arg(esquema));
        ejecutar(c, s);
    }
}

} // namespace presupuestos
