#include "db/ControladorSqlServer.h"

#include "db/Conexion.h"
#include "db/ControladorQt.h"

#include <QSqlQuery>

namespace presupuestos {

ControladorSqlServer::ControladorSqlServer(Conexion& conexion) : Controlador(conexion) {}

ControladorSqlServer::ControladorSqlServer(Conexion& conexion, const QString& cadenaConexion) : Controlador(conexion)
{
    QSqlDatabase& bd = agregarBaseDatos(QStringLiteral("QODBC"), QStringLiteral("libqt6sql6-odbc"), QStringLiteral("ODBC"));
    bd.setDatabaseName(cadenaConexion);
    if (!bd.open())
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("No se puede conectar con el servidor SQL Server: %1").arg(texto(bd.lastError())));
}

// Its error number, or ODBC's state.
Diagnostico ControladorSqlServer::diagnosticar(const QSqlError& e) const
{
    Diagnostico d;
    bool ok = false;
    const int codigo = e.nativeErrorCode().toInt(&ok);
    switch (ok ? codigo : -1) {
    case 2627:
    case 2601: d.causa = VbError::Causa::ClaveDuplicada; break;
    case 3906: d.causa = VbError::Causa::SoloLectura; break;
    case 1222: d.causa = VbError::Causa::Bloqueada; break;
    case 1205: d.causa = VbError::Causa::Interbloqueo; break;
    case 1105:
    case 9002: d.discoLleno = true; break;
    default: break;
    }
    d.tiempoAgotado = e.nativeErrorCode() == QLatin1String("HYT00");
    return d;
}

// Its default is to wait for ever.
void ControladorSqlServer::setEsperaBloqueo(int milisegundos)
{
    QSqlQuery(c_.db_).exec(QStringLiteral("SET LOCK_TIMEOUT %1").arg(milisegundos));
}

bool ControladorSqlServer::empezar() { return c_.db_.transaction(); }
bool ControladorSqlServer::confirmar() { return c_.db_.commit(); }
bool ControladorSqlServer::deshacer() { return c_.db_.rollback(); }

long ControladorSqlServer::ejecutar(const QString& sql) { return ejecutarQt(c_, sql); }

Recordset ControladorSqlServer::abrir(const QString& sql) { return abrirQt(c_, sql); }

std::unique_ptr<ComandoPreparado> ControladorSqlServer::prepararComando(const QString& texto, int parametros, bool)
{
    return std::make_unique<ComandoQt>(c_, texto, parametros, true);
}

std::unique_ptr<ConsultaPreparada> ControladorSqlServer::prepararConsulta(const QString& texto)
{
    return std::make_unique<ConsultaQt>(c_, texto);
}

void ControladorSqlServer::ejecutarPropia(const QString& sql) { ejecutarQt(c_, sql); }

bool ControladorSqlServer::cambiosAjenos(const QString&, QStringList*) { return true; }

QString ControladorSqlServer::tipoColumna(TipoColumna tipo, int tamano) const
{
    switch (tipo) {
    case TipoColumna::Importe:
    case TipoColumna::ImporteDiario: return QStringLiteral("MONEY");
    case TipoColumna::Marca: return QStringLiteral("BIT");
    case TipoColumna::FechaHora: return QStringLiteral("DATETIME2");
    case TipoColumna::Numerador: return QStringLiteral("BIGINT IDENTITY(1,1)");
    default: return Controlador::tipoColumna(tipo, tamano);
    }
}

// Running the statements again does nothing.
QString ControladorSqlServer::crearTabla(const QString& prefijo, const QString& nombre, const QString& cuerpo) const
{
    const QString completo = (prefijo.isEmpty() ? QStringLiteral("dbo") : prefijo + QStringLiteral(".dbo")) + QLatin1Char('.') + nombre;
    return QStringLiteral("IF OBJECT_ID('%1') IS NULL\nCREATE TABLE %1 (%2)").arg(completo, cuerpo);
}

QString ControladorSqlServer::crearIndice(const QString& nombre, const QString& tabla, const QString& columnas) const
{
    return QStringLiteral("IF NOT EXISTS (SELECT 1 FROM sys.indexes WHERE name = '%1')\nCREATE INDEX %1 ON dbo.%2 (%3)")
        .arg(nombre, tabla, columnas);
}

// A table that had rows before the sequence goes on after the highest.
QStringList ControladorSqlServer::crearSecuencia(const QString& nombre, const QString& tabla) const
{
    return {QStringLiteral("IF OBJECT_ID('dbo.%1') IS NULL\n"
                           "BEGIN\n"
                           "    DECLARE @inicio BIGINT = (SELECT ISNULL(MAX(Id), 0) + 1 FROM dbo.%2)\n"
                           "    DECLARE @crear NVARCHAR(200) = N'CREATE SEQUENCE dbo.%1 AS BIGINT START WITH '\n"
                           "        + CAST(@inicio AS NVARCHAR(20))\n"
                           "    EXEC (@crear)\n"
                           "END")
                .arg(nombre, tabla)};
}

// A journal of the first layout (every row carrying its operation's kind,
// user and time) is set apart, and its rows brought over once the present
// tables are there.
QStringList ControladorSqlServer::apartarDiarioAnterior()
{
    return {QStringLiteral("IF OBJECT_ID('dbo.Presupuestos_Cambios') IS NOT NULL AND COL_LENGTH('dbo.Presupuestos_Cambios', 'Tipo') IS NOT NULL\n"
                           "    EXEC sp_rename 'dbo.Presupuestos_Cambios', 'Presupuestos_Cambios_Anterior'"),
            QStringLiteral("IF OBJECT_ID('dbo.Presupuestos_Cambios_Anterior') IS NOT NULL\n"
                           "    AND EXISTS (SELECT 1 FROM sys.indexes WHERE name = 'IX_Presupuestos_Cambios_Fila'\n"
                           "                AND object_id = OBJECT_ID('dbo.Presupuestos_Cambios_Anterior'))\n"
                           "    DROP INDEX IX_Presupuestos_Cambios_Fila ON dbo.Presupuestos_Cambios_Anterior")};
}

QStringList ControladorSqlServer::traerDiarioAnterior(const QStringList& columnas)
{
    const QString lista = columnas.join(QStringLiteral(", "));
    return {QStringLiteral("IF OBJECT_ID('dbo.Presupuestos_Cambios_Anterior') IS NOT NULL\n"
                           "BEGIN\n"
                           "    BEGIN TRANSACTION\n"
                           "    INSERT INTO dbo.Presupuestos_Operaciones (Id, Cod_Empresa, Tipo, Descripcion, Usuario, Fecha)\n"
                           "        SELECT Operacion, MIN(Cod_Empresa), MIN(Tipo), MIN(Descripcion), MIN(Usuario), MIN(Fecha)\n"
                           "        FROM dbo.Presupuestos_Cambios_Anterior GROUP BY Operacion\n"
                           "    SET IDENTITY_INSERT dbo.Presupuestos_Cambios ON\n"
                           "    INSERT INTO dbo.Presupuestos_Cambios (%1)\n"
                           "        SELECT %1\n"
                           "        FROM dbo.Presupuestos_Cambios_Anterior\n"
                           "    SET IDENTITY_INSERT dbo.Presupuestos_Cambios OFF\n"
                           "    DROP TABLE dbo.Presupuestos_Cambios_Anterior\n"
                           "    COMMIT TRANSACTION\n"
                           "END")
                .arg(lista)};
}

// Another database of the server, reached through three-part names
// ("[Pelvor].dbo.Almacen_Acumulados"); an administrator creates it.
QString ControladorSqlServer::crearBaseRetail(const QString& nombre)
{
    QString n = nombre;
    return QLatin1Char('[') + n.replace(QLatin1Char(']'), QStringLiteral("]]")) + QLatin1Char(']');
}

QString ControladorSqlServer::insertarSiFalta(const QString& tablaYValores) const
{
    return QStringLiteral("INSERT INTO ") + tablaYValores;
}

// ---- Without a server ------------------------------------------------------------

namespace {

class ComandoGrabado : public ComandoPreparado {
public:
    explicit ComandoGrabado(Conexion& c) : c_(c) {}
    long ejecutar(const std::vector<ParametroComando>&) override { return c_.filasGrabadas(); }

private:
    Conexion& c_;
};

class ConsultaGrabada : public ConsultaPreparada {
public:
    Recordset abrir(const std::vector<QVariant>&) override { return Recordset(); }
};

} // namespace

long GrabadoraSqlServer::ejecutar(const QString&) { return c_.filasGrabadas(); }
Recordset GrabadoraSqlServer::abrir(const QString&) { return Recordset(); }

std::unique_ptr<ComandoPreparado> GrabadoraSqlServer::prepararComando(const QString&, int, bool)
{
    return std::make_unique<ComandoGrabado>(c_);
}

std::unique_ptr<ConsultaPreparada> GrabadoraSqlServer::prepararConsulta(const QString&) { return std::make_unique<ConsultaGrabada>(); }

// The schema's statements are logged as the others are, to be checked.
void GrabadoraSqlServer::ejecutarPropia(const QString& sql) { c_.anotar(sql); }

} // namespace presupuestos
