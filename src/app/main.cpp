// The standalone host: opens a database, creates the host class, hands it
// the company and the connection, and shows the worksheet.

#include "common/Plataforma.h"
#include "common/VbError.h"
#include "db/Conexion.h"
#include "db/schema/DatosDemo.h"
#include "db/schema/Esquema.h"
#include "desktop/PlataformaQt.h"
#include "host/entry/frmclsfrmActPresupusto.h"
#include "host/modPublic.h"
#include "sesion/Empresa.h"
#include "worksheet/DisposicionHoja.h"
#include "worksheet/frmActPresupusto.h"

#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QPushButton>
#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTextStream>
#include <QTimer>
#include <cstdio>
#include <limits>
#include <optional>

using namespace presupuestos;

namespace {

enum Salida { Ok = 0, ErrorUso = 1, ErrorBaseDatos = 2, ErrorEmpresa = 3, ErrorCaptura = 4 };

// The offscreen platform says, for every window, what it cannot do; that is
// noise when rendering a screenshot.
void filtrarAvisosSinPantalla(QtMsgType tipo, const QMessageLogContext& contexto, const QString& mensaje)
{
    if (mensaje.startsWith(QLatin1String("This plugin does not support")))
        return;
    QTextStream(stderr) << qFormatLogMessage(tipo, contexto, mensaje) << Qt::endl;
}

bool hayPantalla()
{
    const QString plataforma = QGuiApplication::platformName();
    return plataforma != QLatin1String("offscreen") && plataforma != QLatin1String("minimal");
}

// With nobody to answer (a screenshot being rendered, or no display) a
// message box would wait for ever: its title and text go to standard error
// and it answers at once. A question gets No, so nothing is confirmed on the
// user's behalf.
class CuadroMensajeConsola : public ICuadroMensaje {
public:
    int MsgBox(const QString& prompt, int estilo, const QString& titulo) override
    {
        QString texto = prompt;
        texto.replace(QLatin1String("\r\n"), QLatin1String("\n"));
        QTextStream(stderr) << "presupuestos: " << titulo << ": " << texto << Qt::endl;
        if ((estilo & 0x70) == vb::Critical)
            ++errores_;
        return (estilo & 0x0F) == vb::YesNo ? vb::RespuestaNo : vb::RespuestaOK;
    }
    // Error boxes shown so far: the worksheet reports a failed load only so.
    int errores() const { return errores_; }

private:
    int errores_ = 0;
};

bool mensajesEnConsola = false;

int fallo(int codigo, const QString& mensaje)
{
    QTextStream(stderr) << "presupuestos: " << mensaje << Qt::endl;
    if (!mensajesEnConsola)
        Plataforma::mensajes().MsgBox(mensaje, vb::Critical, QStringLiteral("Presupuestos"));
    return codigo;
}

QString baseDemoPorDefecto()
{
    const QString dir = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    QDir().mkpath(dir);
    return QDir(dir).filePath(QStringLiteral("presupuestos-demo.db"));
}

// Creates the demo company in an SQLite file, with its retail database
// beside it. A company already in the file is kept unless the options say
// to replace it: then nothing is written and the answer is false.
bool crearDemo(const QString& fichero, const OpcionesDemo& opciones)
{
    auto c = Conexion::abrirSqlite(fichero);
    if (!opciones.reemplazar && DatosDemo::existeEmpresa(*c, opciones.codEmpresa))
        return false;
    c->asociarBaseDatos(opciones.baseRetail, QFileInfo(fichero).absoluteDir().filePath(opciones.baseRetail + QStringLiteral(".db")));
    DatosDemo::generar(*c, opciones);
    return true;
}

// The demo's second company, whose budget year is under way, its first
// four months closed: tracking can be tried on it at once.
OpcionesDemo demoEnCurso()
{
    OpcionesDemo enCurso;
    enCurso.codEmpresa = 2;
    enCurso.mesesCerrados = 4;
    enCurso.nombre = QStringLiteral("Moda Levante Norte, S.L.");
    enCurso.semilla = 20270430;
    return enCurso;
}

// The demo file: its company, planning next year, and the one under way.
void crearDemoCompleta(const QString& fichero)
{
    crearDemo(fichero, OpcionesDemo{});
    crearDemo(fichero, demoEnCurso());
}

// A whole number given on the command line, when it is one within the bounds.
std::optional<int> numeroEntre(const QString& texto, int minimo, int maximo)
{
    bool ok = false;
    const int n = texto.toInt(&ok);
    if (!ok || n < minimo || n > maximo)
        return std::nullopt;
    return n;
}

// Why an existing file cannot be taken for an SQLite database, empty when it
// can. SQLite itself takes an empty file for a new database and writes one
// into it, and describes any other file only in English.
QString noEsSqlite(const QString& fichero, bool admitirVacio)
{
    QFile f(fichero);
    // A file that cannot be read is left for the engine to describe.
    if (!f.open(QIODevice::ReadOnly))
        return QString();
    if (f.size() == 0)
        return admitirVacio ? QString() : QStringLiteral("el fichero está vacío");
    static const QByteArray cabecera("SQLite format 3", 16);
    if (f.read(cabecera.size()) != cabecera)
        return QStringLiteral("no es una base de datos SQLite");
    return QString();
}

// Tables without which a database is not one the worksheet can work on:
// the host's companies and the budget itself. Returns the first missing.
QString tablaQueFalta(Conexion& conexion)
{
    for (const QString& tabla : {QStringLiteral("Empresas"), QStringLiteral("Presupuestos")}) {
        try {
            Recordset rs = conexion.Abrir(QStringLiteral("SELECT Count(*) FROM ") + tabla + QStringLiteral(" WHERE 1 = 0"));
            rs.Close();
        } catch (const VbError&) {
            return tabla;
        }
    }
    return QString();
}

// The first of the tables a budget database has that an SQLite file with
// tables of its own lacks, read without writing anything to it; empty when
// the file is missing, empty or a budget database.
QString tablaQueFaltaSinEscribir(const QString& fichero)
{
    if (QFileInfo(fichero).size() == 0)
        return QString();
    QStringList tablas;
    const QString nombre = QStringLiteral("comprobar-%1").arg(reinterpret_cast<quintptr>(&tablas));
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), nombre);
        db.setDatabaseName(fichero);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        if (db.open()) {
            QSqlQuery q(db);
            if (q.exec(QStringLiteral("SELECT name FROM sqlite_master WHERE type = 'table'")))
                while (q.next())
                    tablas << q.value(0).toString().toLower();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(nombre);
    if (tablas.isEmpty())
        return QString();
    for (const QString& tabla : {QStringLiteral("Empresas"), QStringLiteral("Presupuestos")})
        if (!tablas.contains(tabla.toLower()))
            return tabla;
    return QString();
}

int ejecutar(QApplication& app)
{
    QCommandLineParser p;
    p.setApplicationDescription(QStringLiteral("Hoja de presupuestos: importe por cuenta, departamento y mes."));
    // Qt's own help option describes itself in English, a text its Spanish
    // translation does not hold; the program's own says it in Spanish.
    const QCommandLineOption optAyuda({QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Muestra esta ayuda y termina."));
    p.addOption(optAyuda);
    p.addPositionalArgument(QStringLiteral("orden"),
                            QStringLiteral("generar-demo: crea una base de datos de demostración y termina. "
                                           "esquema-sqlserver: escribe las sentencias que crean las tablas en SQL Server y termina."),
                            QStringLiteral("[generar-demo | esquema-sqlserver]"));
    QCommandLineOption optBd(QStringLiteral("bd"), QStringLiteral("Base de datos SQLite (por defecto, la de demostración, que se crea la primera vez)."),
                             QStringLiteral("fichero"));
    QCommandLineOption optOdbc(QStringLiteral("odbc"), QStringLiteral("Cadena de conexión ODBC a SQL Server, en lugar de SQLite."),
                               QStringLiteral("cadena"));
    QCommandLineOption optPg(QStringLiteral("pg"),
                             QStringLiteral("Cadena de conexión de PostgreSQL (\"host=... dbname=... user=...\"), en lugar de SQLite."),
                             QStringLiteral("cadena"));
    QCommandLineOption optEmpresa(QStringLiteral("empresa"), QStringLiteral("Código de la empresa (por defecto 1)."),
                                  QStringLiteral("codigo"), QStringLiteral("1"));
    QCommandLineOption optCaptura(QStringLiteral("captura"), QStringLiteral("Dibuja la hoja cargada en un PNG y termina."),
                                  QStringLiteral("fichero.png"));
    QCommandLineOption optHistorico(QStringLiteral("historico"), QStringLiteral("Abre la hoja con el histórico a la vista."));
    QCommandLineOption optResumen(QStringLiteral("resumen"), QStringLiteral("Abre la hoja con el resumen de la fila a la vista."));
    QCommandLineOption optSeguimiento(QStringLiteral("seguimiento"),
                                      QStringLiteral("Abre también el seguimiento del año; con --captura, dibuja el seguimiento."));
    QCommandLineOption optCuentas(QStringLiteral("cuentas"), QStringLiteral("generar-demo: número de cuentas de detalle (empresa grande)."),
                                  QStringLiteral("n"), QStringLiteral("0"));
    QCommandLineOption optDptos(QStringLiteral("departamentos"), QStringLiteral("generar-demo: número de departamentos (empresa grande)."),
                                QStringLiteral("n"), QStringLiteral("0"));
    QCommandLineOption optReemplazar(QStringLiteral("reemplazar"),
                                     QStringLiteral("generar-demo: sustituye los datos de la empresa si ya está en la base de datos."));
    p.addOptions({optBd, optOdbc, optPg, optEmpresa, optCaptura, optHistorico, optResumen, optSeguimiento, optCuentas, optDptos, optReemplazar});
    p.process(app);
    if (p.isSet(optAyuda))
        p.showHelp(0);

    const bool captura = p.isSet(optCaptura);
    // A screenshot shows the window as the program lays it out, and leaves
    // the user's layout as it was.
    if (captura)
        DisposicionHoja::setActiva(false);
    auto consola = std::make_shared<CuadroMensajeConsola>();
    if (captura || !hayPantalla()) {
        Plataforma::instalar(consola, nullptr, nullptr, nullptr);
        mensajesEnConsola = true;
    }

    // Company codes are 16-bit throughout the worksheet and its tables.
    const auto codEmpresa = numeroEntre(p.value(optEmpresa), std::numeric_limits<qint16>::min(), std::numeric_limits<qint16>::max());
    if (!codEmpresa)
        return fallo(ErrorUso, QStringLiteral("El código de empresa \"%1\" no es válido: ha de ser un número entero entre %2 y %3.")
                                   .arg(p.value(optEmpresa))
                                   .arg(std::numeric_limits<qint16>::min())
                                   .arg(std::numeric_limits<qint16>::max()));
    // Bounded by what a company can be: beyond, the generator would only
    // grow without end.
    const auto cuentas = numeroEntre(p.value(optCuentas), 0, DatosDemo::maximoCuentas());
    if (!cuentas)
        return fallo(ErrorUso, QStringLiteral("El número de cuentas \"%1\" no es válido: ha de ser un número entero de 0 a %2.")
                                   .arg(p.value(optCuentas))
                                   .arg(DatosDemo::maximoCuentas()));
    const auto departamentos = numeroEntre(p.value(optDptos), 0, DatosDemo::kMaximoDepartamentos);
    if (!departamentos)
        return fallo(ErrorUso, QStringLiteral("El número de departamentos \"%1\" no es válido: ha de ser un número entero de 0 a %2.")
                                   .arg(p.value(optDptos))
                                   .arg(DatosDemo::kMaximoDepartamentos));
    if (static_cast<long long>(*cuentas) * *departamentos > DatosDemo::kMaximoFilas)
        return fallo(ErrorUso, QStringLiteral("%1 cuentas por %2 departamentos son %3 filas de presupuesto: como mucho se generan %4.")
                                   .arg(*cuentas)
                                   .arg(*departamentos)
                                   .arg(static_cast<long long>(*cuentas) * *departamentos)
                                   .arg(DatosDemo::kMaximoFilas));
    // One database at a time: a file and a server named together are a
    // mistake, not a choice to make silently.
    if (int(p.isSet(optBd)) + int(p.isSet(optPg)) + int(p.isSet(optOdbc)) > 1)
        return fallo(ErrorUso, QStringLiteral("Indique una sola base de datos: --bd, --pg o --odbc."));
    const QStringList ordenes = p.positionalArguments();

    if (!ordenes.isEmpty() && ordenes.first() != QLatin1String("generar-demo") && ordenes.first() != QLatin1String("esquema-sqlserver"))
        return fallo(ErrorUso, QStringLiteral("La orden «%1» no existe: las órdenes son generar-demo y esquema-sqlserver.").arg(ordenes.first()));
    if (ordenes.size() > 1)
        return fallo(ErrorUso, QStringLiteral("Sobra «%1»: se da una sola orden.").arg(ordenes.at(1)));
    if (ordenes.size() == 1 && ordenes.first() == QLatin1String("esquema-sqlserver")) {
        // For the administrator, who runs them once with sqlcmd.
        QTextStream(stdout) << Esquema::guionSqlServer(QStringLiteral("Pelvor"));
        return 0;
    }
    if (!ordenes.isEmpty()) {
        if (p.isSet(optBd) == p.isSet(optPg))
            return fallo(ErrorUso, QStringLiteral("Uso: presupuestos generar-demo (--bd FICHERO | --pg CADENA) [--empresa N] [--cuentas N --departamentos N] [--reemplazar]"));
        // Without a company or a size, the whole demo: the company under way
        // joins it when it is not there yet (never replaced by this).
        const bool demoCompleta = !p.isSet(optEmpresa) && *cuentas == 0 && *departamentos == 0;
        if (p.isSet(optPg)) {
            try {
                OpcionesDemo o;
                o.codEmpresa = *codEmpresa;
                o.cuentas = *cuentas;
                o.departamentos = *departamentos;
                o.reemplazar = p.isSet(optReemplazar);
                auto c = Conexion::abrirPostgres(p.value(optPg));
                if (!o.reemplazar && DatosDemo::existeEmpresa(*c, o.codEmpresa))
                    return fallo(ErrorUso, QStringLiteral("La base de datos del servidor PostgreSQL ya tiene la empresa %1: no se genera la demostración. "
                                                          "Para sustituir los datos de la empresa, añada --reemplazar.")
                                               .arg(*codEmpresa));
                DatosDemo::generar(*c, o);
                if (demoCompleta && !DatosDemo::existeEmpresa(*c, demoEnCurso().codEmpresa))
                    DatosDemo::generar(*c, demoEnCurso());
            } catch (const VbError& e) {
                return fallo(ErrorBaseDatos, e.description());
            }
            return Ok;
        }
        // An empty file is where a new database goes; anything else must be one.
        const QString motivo = QFileInfo::exists(p.value(optBd)) ? noEsSqlite(p.value(optBd), true) : QString();
        if (!motivo.isEmpty())
            return fallo(ErrorBaseDatos, QStringLiteral("No se puede abrir la base de datos \"%1\": %2.").arg(p.value(optBd), motivo));
        // A database of something else (the retail one, say) gets nothing
        // written into it.
        if (const QString ajena = tablaQueFaltaSinEscribir(p.value(optBd)); !ajena.isEmpty())
            return fallo(ErrorBaseDatos, QStringLiteral("No se puede usar la base de datos \"%1\": no es una base de datos de "
                                                        "presupuestos, falta la tabla %2.")
                                             .arg(p.value(optBd), ajena));
        try {
            OpcionesDemo o;
            o.codEmpresa = *codEmpresa;
            o.cuentas = *cuentas;
            o.departamentos = *departamentos;
            o.reemplazar = p.isSet(optReemplazar);
            if (!crearDemo(p.value(optBd), o))
                return fallo(ErrorUso, QStringLiteral("La base de datos \"%1\" ya tiene la empresa %2: no se genera la demostración. "
                                                      "Para sustituir los datos de la empresa, añada --reemplazar.")
                                           .arg(p.value(optBd))
                                           .arg(*codEmpresa));
            if (demoCompleta)
                crearDemo(p.value(optBd), demoEnCurso());
        } catch (const VbError& e) {
            return fallo(ErrorBaseDatos, e.description());
        }
        QTextStream(stdout) << p.value(optBd) << Qt::endl;
        return Ok;
    }

    std::shared_ptr<Conexion> conexion;
    QString nombreBase;
    try {
        if (p.isSet(optOdbc)) {
            // The connection string carries the password: messages do not repeat it.
            nombreBase = QStringLiteral("del servidor SQL Server");
            conexion = Conexion::abrirOdbc(p.value(optOdbc));
        } else if (p.isSet(optPg)) {
            nombreBase = QStringLiteral("del servidor PostgreSQL");
            conexion = Conexion::abrirPostgres(p.value(optPg));
        } else {
            const bool porDefecto = !p.isSet(optBd);
            const QString fichero = porDefecto ? baseDemoPorDefecto() : p.value(optBd);
            nombreBase = QStringLiteral("\"%1\"").arg(fichero);
            if (!QFileInfo::exists(fichero)) {
                if (!porDefecto)
                    return fallo(ErrorBaseDatos, QStringLiteral("No se encuentra la base de datos \"%1\".").arg(fichero));
                crearDemoCompleta(fichero);
            }
            const QString motivo = noEsSqlite(fichero, false);
            if (!motivo.isEmpty())
                return fallo(ErrorBaseDatos, QStringLiteral("No se puede abrir la base de datos \"%1\": %2.").arg(fichero, motivo));
            conexion = Conexion::abrirSqlite(fichero);
        }
    } catch (const VbError& e) {
        return fallo(ErrorBaseDatos, e.description());
    }
    // Found here, a database of something else is told apart from a
    // company that is not there, and the worksheet never starts on it.
    const QString falta = tablaQueFalta(*conexion);
    if (!falta.isEmpty())
        return fallo(ErrorBaseDatos,
                     QStringLiteral("No se puede usar la base de datos %1: no es una base de datos de presupuestos, falta la tabla %2.")
                         .arg(nombreBase, falta));

    std::shared_ptr<IEmpresa> empresa;
    try {
        empresa = cargarEmpresa(*conexion, *codEmpresa);
    } catch (const VbError& e) {
        return fallo(ErrorEmpresa, e.description());
    }

    // Destroyed as this function returns, before main releases the shared
    // connection: the worksheet still drops its temporary tables on it.
    auto clase = std::make_unique<frmclsfrmActPresupusto>();
    clase->setEmpresaLarvex(empresa);
    clase->setConexionLarvex(conexion);
    try {
        clase->Show();
    } catch (const VbError& e) {
        return fallo(ErrorBaseDatos, e.description());
    }
    frmActPresupusto* hoja = clase->formulario();
    if (p.isSet(optHistorico)) {
        QApplication::processEvents();
        hoja->Form_Activate();
        hoja->chkMostrarHistorico->setChecked(true);
        hoja->chkMostrarHistorico_Click();
    }
    if (p.isSet(optResumen)) {
        QApplication::processEvents();
        hoja->Form_Activate();
        hoja->cmdResumen->setChecked(true);
    }

    QWidget* seguimiento = nullptr;
    if (p.isSet(optSeguimiento)) {
        QApplication::processEvents();
        hoja->Form_Activate();
        hoja->cmdSeguimiento->click();
        for (QDialog* d : hoja->findChildren<QDialog*>())
            if (d->inherits("presupuestos::dlgSeguimiento"))
                seguimiento = d;
    }

    if (captura) {
        QApplication::processEvents();
        hoja->Form_Activate();
        QApplication::processEvents();
        // The boxes have been printed; a picture of a worksheet that did not
        // load would pass for one that did.
        if (consola->errores() > 0)
            return fallo(ErrorBaseDatos,
                         QStringLiteral("No se puede cargar la hoja de la base de datos %1: no se guarda la captura.").arg(nombreBase));
        const QString png = QFileInfo(p.value(optCaptura)).absoluteFilePath();
        if (!(seguimiento ? seguimiento : static_cast<QWidget*>(hoja))->grab().save(png))
            return fallo(ErrorCaptura, QStringLiteral("No se puede guardar la captura en \"%1\".").arg(png));
        QTextStream(stdout) << png << Qt::endl;
        return Ok;
    }

    QObject::connect(hoja, &QObject::destroyed, &app, &QApplication::quit);
    return QApplication::exec();
}

} // namespace

int main(int argc, char* argv[])
{
    // Without a display, render offscreen instead of failing to start.
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qgetenv("QT_QPA_PLATFORM") == "offscreen")
        qInstallMessageHandler(filtrarAvisosSinPantalla);
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("presupuestos"));
    QApplication::setOrganizationName(QStringLiteral("presupuestos"));
    predeterminarPlataformaQt();
    if (!instalarTraduccionesQt())
        QTextStream(stderr) << "presupuestos: no se encuentran las traducciones de Qt al español "
                               "(paquete qt6-translations-l10n); los diálogos del sistema saldrán en inglés."
                            << Qt::endl;

    const int codigo = ejecutar(app);
    // However the run ended, the host's session still holds the connection;
    // it has to close while the application and its SQL drivers exist, not
    // among the static destructors after main.
    modPublic::Liberar();
    return codigo;
}
