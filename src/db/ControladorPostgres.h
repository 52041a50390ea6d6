#pragma once
// PostgreSQL: opened through Qt's driver, every statement sent through
// libpq in one round trip with its savepoint; the composed texts adapted
// by DialectoPostgres. A session the server drops is opened again, with
// the temporary tables it had.

#include "db/Controlador.h"

#include <QHash>
#include <QSet>
#include <unordered_map>

struct pg_conn;
struct pg_result;

namespace presupuestos {

class ControladorPostgres : public Controlador {
public:
    // From a libpq connection string ("host=... dbname=... user=...").
    ControladorPostgres(Conexion& conexion, const QString& conninfo);

    Motor motor() const override { return Motor::PostgreSQL; }
    QString adaptar(const QString& sql) override;
    Diagnostico diagnosticar(const QSqlError& e) const override;
    bool sesionPerdida() const override;
    void setEsperaBloqueo(int milisegundos) override;
    void bloquearClaves(const QString& ambito, const QStringList& claves) override;
    void bloquearAmbito(const QString& ambito) override;
    bool bloqueaPorClave() const override { return true; }
    bool empezar() override;
    bool confirmar() override;
    bool deshacer() override;
    bool transaccionViva() const override;
    bool tomar(const QString& sql, bool asincrona) override;
    void enviarTomadas() override;
    long ejecutar(const QString& sql) override;
    Recordset abrir(const QString& sql) override;
    std::unique_ptr<ComandoPreparado> prepararComando(const QString& texto, int parametros, bool reutilizar) override;
    std::unique_ptr<ConsultaPreparada> prepararConsulta(const QString& texto) override;
    void ejecutarPropia(const QString& sql) override;
    int generacion() const override { return generacion_; }
    bool cambiosAjenos(const QString& canal, QStringList* cargas) override;
    void notificar(const QString& canal, const QString& carga) override;
    QString tipoColumna(TipoColumna tipo, int tamano) const override;
    QStringList crearSecuencia(const QString& nombre, const QString& tabla) const override;
    QString crearBaseRetail(const QString& nombre) override;
    QString insertarSiFalta(const QString& tablaYValores) const override;
    void setTraza(Traza traza) override { traza_ = std::move(traza); }

    // One statement through libpq, by name when prepared (and prepared
    // first with texto when preparar), or the text alone; values as text, a
    // null where nulos says. Inside a transaction the savepoint that lets a
    // failure leave the rest to commit goes in the same round trip (a
    // pipeline), as does the preparation: PostgreSQL aborts the whole
    // transaction on a failed statement, and going back to the savepoint
    // keeps what the transaction stored before (an insert that meets
    // another user's row, a batch stopped at its first failure). The caller
    // clears the result; a failure raises the system's error.
    ::pg_result* ejecutarLibpq(const QByteArray& nombre, const QByteArray& texto, bool preparar,
                               const std::vector<QByteArray>& valores = {}, const std::vector<char>& nulos = {});

private:
    // The session's settings, on every new session.
    void configurarSesion();
    // A session the server dropped is opened again before the next
    // statement outside a transaction, with this connection's temporary
    // tables made again as they were.
    void recuperarSesion();
    // The statements that made this connection's temporary tables what
    // they are, to be run again on a new session.
    void recordarTemporal(const QString& sql);
    // A composed data statement as a shape prepared once (its literals as
    // parameters), or nothing when it does not take one.
    bool ejecutarForma(const QString& sql, long* afectadas);
    QSqlError errorPostgres(const ::pg_result* r) const;
    void empezarPropia(const char* sql);

    QString conninfo_;
    ::pg_conn* pg_ = nullptr;
    mutable bool perdida_ = false;
    int generacion_ = 0;
    bool puntoGuardado_ = false;
    std::vector<QString> temporales_;
    // Rows for this connection's temporary tables, adapted and waiting to
    // go to the server in one round trip (see tomar).
    QStringList lote_;
    // The channels the session listens on.
    QStringList escuchados_;
    Traza traza_;
    // The shapes of composed statements prepared on this session (the text
    // each stands for), and those that do not prepare.
    struct FormaPg {
        QByteArray nombre;
        QByteArray texto;
        bool preparada = false;
    };
    std::unordered_map<QString, FormaPg> formasPg_;
    QSet<QString> formasNoPreparables_;
    int siguienteNombre_ = 0;
    // Keys, and ambits (true: whole), already locked by the open transaction.
    QSet<qint64> bloqueadas_;
    QHash<qint64, bool> ambitos_;
};

// The rows of a PostgreSQL query, read from libpq's result.
class CursorPostgres : public Cursor {
public:
    CursorPostgres(std::shared_ptr<Conexion> conexion, ::pg_result* resultado);
    ~CursorPostgres() override;
    CursorPostgres(const CursorPostgres&) = delete;
    CursorPostgres& operator=(const CursorPostgres&) = delete;

    bool avanzar() override;
    QVariant valor(int i) const override;
    Currency moneda(int i) const override;
    using Cursor::texto;
    QString texto(int i) const override;

private:
    std::shared_ptr<Conexion> conexion_;   // keeps the connection open while the rows are read
    ::pg_result* r_;
    int filas_;
    int fila_ = -1;
};

} // namespace presupuestos
