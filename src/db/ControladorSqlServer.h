#pragma once
// Microsoft SQL Server through ODBC (FreeTDS or Microsoft's driver): the
// composed texts go as they are; parameters through Qt's ODBC driver, an
// amount as its exact decimal text.

#include "db/Controlador.h"

namespace presupuestos {

class ControladorSqlServer : public Controlador {
public:
    ControladorSqlServer(Conexion& conexion, const QString& cadenaConexion);

    Motor motor() const override { return Motor::SqlServer; }
    QString adaptar(const QString& sql) override { return sql; }
    Diagnostico diagnosticar(const QSqlError& e) const override;
    void setEsperaBloqueo(int milisegundos) override;
    bool empezar() override;
    bool confirmar() override;
    bool deshacer() override;
    long ejecutar(const QString& sql) override;
    Recordset abrir(const QString& sql) override;
    std::unique_ptr<ComandoPreparado> prepararComando(const QString& texto, int parametros, bool reutilizar) override;
    std::unique_ptr<ConsultaPreparada> prepararConsulta(const QString& texto) override;
    void ejecutarPropia(const QString& sql) override;
    // No notifications: every look reads again what the worksheet shows.
    bool cambiosAjenos(const QString& canal, QStringList* cargas) override;
    QString tipoColumna(TipoColumna tipo, int tamano) const override;
    QString crearTabla(const QString& prefijo, const QString& nombre, const QString& cuerpo) const override;
    QString crearIndice(const QString& nombre, const QString& tabla, const QString& columnas) const override;
    QStringList crearSecuencia(const QString& nombre, const QString& tabla) const override;
    // An administrator runs the schema's statements (the program prints
    // them), and the journal's when the journal is wanted.
    bool creaEsquema() const override { return false; }
    QStringList apartarDiarioAnterior() override;
    QStringList traerDiarioAnterior(const QStringList& columnas) override;
    QString crearBaseRetail(const QString& nombre) override;
    QString insertarSiFalta(const QString& tablaYValores) const override;

protected:
    // For the recording connection, which has no server.
    explicit ControladorSqlServer(Conexion& conexion);
};

// SQL Server with no server behind it (see Conexion::grabadoraSqlServer):
// statements are logged by the connection and nothing runs.
class GrabadoraSqlServer : public ControladorSqlServer {
public:
    explicit GrabadoraSqlServer(Conexion& conexion) : ControladorSqlServer(conexion) {}

    void setEsperaBloqueo(int) override {}
    bool empezar() override { return true; }
    bool confirmar() override { return true; }
    bool deshacer() override { return true; }
    long ejecutar(const QString& sql) override;
    Recordset abrir(const QString& sql) override;
    std::unique_ptr<ComandoPreparado> prepararComando(const QString& texto, int parametros, bool reutilizar) override;
    std::unique_ptr<ConsultaPreparada> prepararConsulta(const QString& texto) override;
    void ejecutarPropia(const QString& sql) override;
};

} // namespace presupuestos
