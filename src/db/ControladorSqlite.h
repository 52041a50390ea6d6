#pragma once
// SQLite: a file opened through Qt's driver and read and written through
// the engine's own library where Qt's driver would cost more than the
// statement; the composed texts adapted by DialectoSqlite.

#include "db/Controlador.h"

#include <QHash>
#include <QSqlQuery>
#include <memory>
#include <unordered_map>

struct sqlite3;
struct sqlite3_stmt;

namespace presupuestos {

class ControladorSqlite : public Controlador {
public:
    // Opens (creating it if needed) the file, or ":memory:".
    ControladorSqlite(Conexion& conexion, const QString& fichero);
    ~ControladorSqlite() override;

    Motor motor() const override { return Motor::SQLite; }
    QString adaptar(const QString& sql) override;
    void asociarBaseDatos(const QString& nombre, const QString& fichero) override;
    void adjuntar(const QStringList& bases) override;
    Diagnostico diagnosticar(const QSqlError& e) const override;
    void setEsperaBloqueo(int milisegundos) override;
    bool empezar() override;
    bool confirmar() override;
    bool deshacer() override;
    bool transaccionViva() const override;
    long ejecutar(const QString& sql) override;
    Recordset abrir(const QString& sql) override;
    std::unique_ptr<ComandoPreparado> prepararComando(const QString& texto, int parametros, bool reutilizar) override;
    std::unique_ptr<ConsultaPreparada> prepararConsulta(const QString& texto) override;
    void ejecutarPropia(const QString& sql) override;
    bool cambiosAjenos(const QString& canal, QStringList* cargas) override;
    void comprobarImporte(Currency importe) const override;
    TipoParametro tipoImporteDiario() const override { return TipoParametro::Diezmilesimas; }
    QString usuario() override;
    Numeracion numeracionOperaciones() const override;
    QString tipoColumna(TipoColumna tipo, int tamano) const override;
    QStringList crearSecuencia(const QString& nombre, const QString& tabla) const override;
    QStringList apartarDiarioAnterior() override;
    QStringList traerDiarioAnterior(const QStringList& columnas) override;
    QString crearBaseRetail(const QString& nombre) override;
    QString insertarSiFalta(const QString& tablaYValores) const override;

    sqlite3* handle() const { return db_; }
    VbError error(const char* que, int codigo) const;
    // Runs a bound statement once and leaves it reset: the rows it changed,
    // or its specific error raised.
    int paso(sqlite3_stmt* st) const;

private:
    void registrarFunciones();
    bool ejecutarFija(sqlite3_stmt*& st, const char* sql);

    QString fichero_;
    sqlite3* db_ = nullptr;
    QHash<QString, QString> ficherosBases_;
    QStringList adjuntadas_;
    // Data statements prepared once per shape: on the engine's handle, or
    // through Qt's driver when the text does not bind plainly.
    struct FormaPreparada {
        sqlite3_stmt* st = nullptr;
        std::unique_ptr<QSqlQuery> q;
        ~FormaPreparada();
    };
    std::unordered_map<QString, std::unique_ptr<FormaPreparada>> formas_;
    // What cambiosAjenos saw last: the file's data version.
    qint64 versionDatos_ = -1;
    sqlite3_stmt* empezar_ = nullptr;
    sqlite3_stmt* confirmar_ = nullptr;
    sqlite3_stmt* deshacer_ = nullptr;
    // The journal of the first layout was found and set apart.
    bool diarioAnterior_ = false;
};

// An SQLite statement read straight from the engine, with no row cache and
// no text converted to UTF-16 by the engine, which on a worksheet of tens of
// thousands of rows costs more than the query itself.
class CursorSqlite : public Cursor {
public:
    // propia: the cursor finalizes the statement; otherwise it only resets
    // it, for its owner to run again.
    CursorSqlite(std::shared_ptr<Conexion> conexion, sqlite3_stmt* sentencia, bool propia = true);
    ~CursorSqlite() override;
    CursorSqlite(const CursorSqlite&) = delete;
    CursorSqlite& operator=(const CursorSqlite&) = delete;

    bool avanzar() override;
    QVariant valor(int i) const override;
    Currency moneda(int i) const override;
    QString texto(int i) const override;
    QString texto(int i, const QString& anterior) const override;

private:
    std::shared_ptr<Conexion> conexion_;   // keeps the connection open while the statement lives
    sqlite3_stmt* st_;
    bool propia_;
};

} // namespace presupuestos
