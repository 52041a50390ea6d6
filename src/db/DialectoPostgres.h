#pragma once
// Adapts the Transact-SQL texts the system composes to PostgreSQL, at the
// connection boundary, as DialectoSqlite does for SQLite: the composed text
// stays the SQL Server one everywhere above this layer, and only sequences
// of tokens are rewritten (TokensSql), never what sits inside a quoted
// literal, a bracketed or quoted name or a comment.
//
// Names: SQL Server finds them whatever their case, PostgreSQL folds an
// unquoted name to lower case and takes a quoted one as written. The schema
// is created with unquoted names, so a bracketed name that could be written
// unquoted is written so ([Codigo] -> Codigo) and finds the same column; any
// other keeps its characters between double quotes ([1] -> "1").
//
// The retail database of three-part names ([Pelvor].dbo.X) is a schema of
// the same database, named after it (Pelvor.X, that is pelvor.x).

#include "db/TokensSql.h"

#include <QString>

namespace presupuestos {

class DialectoPostgres {
public:
    static QString adaptar(const QString& tsql);

    // The name as PostgreSQL must read it to find what SQL Server finds
    // under it: unquoted when it can be, otherwise between double quotes.
    static QString identificador(const QString& nombre);

    // Single steps, exposed for tests.
    static QString nombres(const QString& sql);
    static QString funciones(const QString& sql);
    static QString tipos(const QString& sql);
    static QString ordenUnion(const QString& sql);
};

} // namespace presupuestos
