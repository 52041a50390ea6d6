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
    // PostgreSQL came after the journal's first layout: nothing to bring over.
    if (c.motor() == Motor::PostgreSQL) {
        for (const QString& s : sentencias(script(deMotor(c, "_cambios.sql"))))
            ejecutar(c, s);
        return;
    }
    // A file written with the journal's first layout, where every row
    // carried its operation's kind, user and time, keeps all its rows.
    const bool anterior = QSqlQuery(c.baseDatos()).exec(QStringLiteral("SELECT Tipo FROM Presupuestos_Cambios WHERE 1 = 0"));
    if (!anterior) {
        for (const QString& s : sentencias(script(QStringLiteral("sqlite_cambios.sql"))))
            ejecutar(c, s);
        return;
    }
    static const QString kFilas = QStringLiteral(
        "Id, Operacion, Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, Existia, "
        "A_M1, A_M2, A_M3, A_M4, A_M5, A_M6, A_M7, A_M8, A_M9, A_M10, A_M11, A_M12, A_Metodo, A_Manual, A_Valor, A_Ver, Existe, "
        "D_M1, D_M2, D_M3, D_M4, D_M5, D_M6, D_M7, D_M8, D_M9, D_M10, D_M11, D_M12, D_Metodo, D_Manual, D_Valor, D_Ver");
    ejecutar(c, QStringLiteral("BEGIN IMMEDIATE"));
    try {
        ejecutar(c, QStringLiteral("ALTER TABLE Presupuestos_Cambios RENAME TO Presupuestos_Cambios_Anterior"));
        ejecutar(c, QStringLiteral("DROP INDEX IF EXISTS IX_Presupuestos_Cambios_Fila"));
        for (const QString& s : sentencias(script(QStringLiteral("sqlite_cambios.sql"))))
            ejecutar(c, s);
        ejecutar(c, QStringLiteral("INSERT INTO Presupuestos_Operaciones (Id, Cod_Empresa, Tipo, Descripcion, Usuario, Fecha) "
                                   "SELECT Operacion, MIN(Cod_Empresa), MIN(Tipo), MIN(Descripcion), MIN(Usuario), MIN(Fecha) "
                                   "FROM Presupuestos_Cambios_Anterior GROUP BY Operacion"));
        // The first layout kept amounts as SQLite's doubles; this one keeps
        // their count of ten-thousandths.
        QStringList origen;
        for (const QString& columna : kFilas.split(QStringLiteral(", "))) {
            static const QRegularExpression importes(QStringLiteral("^[AD]_(M\\d+|Valor)$"));
            const bool importe = importes.match(columna).hasMatch();
            origen << (importe ? QStringLiteral("CAST(ROUND(%1 * 10000) AS INTEGER)").arg(columna) : columna);
        }
        ejecutar(c, QStringLiteral("INSERT INTO Presupuestos_Cambios (%1) SELECT %2 FROM Presupuestos_Cambios_Anterior")
                        .arg(kFilas, origen.join(QStringLiteral(", "))));
        ejecutar(c, QStringLiteral("DROP TABLE Presupuestos_Cambios_Anterior"));
        ejecutar(c, QStringLiteral("COMMIT"));
    } catch (...) {
        QSqlQuery(c.baseDatos()).exec(QStringLiteral("ROLLBACK"));
        throw;
    }
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
