#pragma once
// Adapts the Transact-SQL texts the system composes to SQLite, at the
// connection boundary, so that the composed text itself stays the SQL Server
// one everywhere above this layer.
//
// The text is cut into tokens first (TokensSql) and only sequences of tokens
// are rewritten: whatever sits inside a quoted literal, a bracketed or quoted
// name or a comment reaches SQLite exactly as composed, so an account called
// "Ventas TOP 2 tiendas" or "Caja.dbo.Central" is data, never syntax.

#include "db/TokensSql.h"

#include <QString>
#include <QStringList>
#include <vector>

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

    // The tokens of a text; joined back they give the text unchanged.
    static std::vector<TokenSql> tokenizar(const QString& sql);

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
