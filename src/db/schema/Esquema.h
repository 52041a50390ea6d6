#pragma once
// The tables the system reads and writes, described once; each engine's
// Controlador writes them in its own types and guards.

#include <QString>
#include <QStringList>
#include <vector>

namespace presupuestos {

class Conexion;
class Controlador;
enum class TipoColumna;

class Esquema {
public:
    // The three parts: the management (accounting) database, the change
    // journal added to it, and the retail database.
    enum class Parte { Gestion, Diario, Retail };

    struct Columna {
        QString nombre;
        TipoColumna tipo;
        int tamano = 0;
        // The default's text, empty for none.
        QString defecto;
    };
    struct Tabla {
        QString nombre;
        std::vector<Columna> columnas;
        // Empty: a table without a key.
        QStringList clave;
    };
    struct Indice {
        QString nombre;
        QString tabla;
        QStringList columnas;
    };
    static const std::vector<Tabla>& tablas(Parte parte);
    static const std::vector<Indice>& indices(Parte parte);

    // The statements that make a part on an engine, in order; prefijo is
    // what the engine gave for the retail database.
    static QStringList sentencias(Controlador& motor, Parte parte, const QString& prefijo = QString());
    // Every statement an administrator runs on SQL Server, batches apart.
    static QString guionSqlServer(const QString& baseRetail);

    // Creates the management tables on the connection.
    static void crearGestion(Conexion& c);
    // Creates the change journal when it is missing, bringing a journal of
    // an earlier layout over.
    static void crearDiario(Conexion& c);
    // Creates the retail tables in the database of that name (attached on
    // SQLite, a schema on PostgreSQL); gives how the engine's own
    // statements prefix its tables.
    static QString crearRetail(Conexion& c, const QString& nombreBaseDatos);
};

} // namespace presupuestos
