#pragma once
// Adapts the Transact-SQL texts the system composes to SQLite, at the
// connection boundary, so that the composed text itself stays the SQL Server
// one everywhere above this layer.

#include <QString>
#include <QStringList>

namespace presupuestos {

struct SqlAdaptado {
    QString texto;
    // Databases named by three-part names ("Pelvor" for [Pelvor].dbo.t),
    // which must be attached before the statement runs.
    QStringList basesDatos;
};

class DialectoSqlite {
public:
    static SqlAdaptado adaptar(const QString& tsql);

    // Single steps, exposed for tests.
    static QString tablasTemporales(const QString& sql);
    static QString isNull(const QString& sql);
    static QString top(const QString& sql);
    static QString truncate(const QString& sql);
    static QString nombresTresPartes(const QString& sql, QStringList* basesDatos);
    static QString asignacionOr(const QString& sql);
    static QString pivot(const QString& sql);
};

} // namespace presupuestos
