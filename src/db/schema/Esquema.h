#pragma once
// Creates the tables the system reads and writes, from the scripts kept
// beside this file (one for SQLite, one for SQL Server and one for
// PostgreSQL, for each database).

#include <QString>
#include <QStringList>

namespace presupuestos {

class Conexion;

class Esquema {
public:
    // Script text of a resource: "sqlite.sql", "sqlite_retail.sql", "sqlserver.sql", "sqlserver_retail.sql".
    static QString script(const QString& nombre);
    // Statements of a script, split at ";" (SQLite) or "GO" (SQL Server); comments removed.
    static QStringList sentencias(const QString& script);

    // Creates the management tables on the connection (SQLite, PostgreSQL).
    static void crearGestion(Conexion& c);
    // Creates the change journal when it is missing (SQLite, PostgreSQL).
    static void crearDiario(Conexion& c);
    // Creates the retail tables in the database attached under that name
    // (SQLite), or in the schema of that name (PostgreSQL).
    static void crearRetail(Conexion& c, const QString& nombreBaseDatos);
};

} // namespace presupuestos
