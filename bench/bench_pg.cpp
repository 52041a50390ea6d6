// The worksheet's first load of a large company (filters, filter table,
// budget grid and subtotals) and a 1,000 x 12 paste, on SQLite and on a
// PostgreSQL server, with the same demo company in both: the price of the
// shared server against the file on the same machine.
//
//   presupuestos_bench_pg --pg "host=... user=... dbname=postgres" [--cuentas 2000] [--departamentos 20] [--repeticiones 3]
//
// live_refresh_ms: how long an open worksheet takes to show a month that
// another user (another process, through the store and the journal, as a
// worksheet writes) has just committed: from the moment the commit returns
// there to the moment the cell shows the figure here; the median of five.
//
// The connection string names a user that may create databases: the run
// creates one of its own and drops it at the end. Without --pg it takes
// PRESUPUESTOS_PRUEBA_PG, as the tests do.
//
// The paste's floor on PostgreSQL: every statement the worksheet sent
// through libpq during the paste (its own data statements, the journal's
// reads and rows, the row locks, the notification), sent again through
// libpq alone as the worksheet sent it: in a round trip of its own with the
// savepoint statements that went with it, prepared where the worksheet
// prepared it and run by name where it ran by name, otherwise sent as its
// text, with the worksheet's values, in one transaction on a copy of the
// database as it was before the paste, every row of every result read.
// What the floor leaves out is the worksheet's own: the grid, the
// journal's bookkeeping and composing the texts.

#include "db/Conexion.h"
#include "db/schema/DatosDemo.h"
#include "desktop/PlataformaQt.h"
#include "grid/widgets/VistaRejilla.h"
#include "common/NumerosEs.h"
#include "host/modPublic.h"
#include "sesion/Sesion.h"
#include "store/Diario.h"
#include "store/clsDBPresupuesto.h"
#include "worksheet/core/Columnas.h"
#include "host/entry/frmclsfrmActPresupusto.h"
#include "worksheet/frmActPresupusto.h"

#include "Medida.h"
#include "PlataformaDePrueba.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QProcess>
#include <QLineEdit>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTextStream>
#include <algorithm>
#include <libpq-fe.h>
#include <unordered_map>
#include <functional>
#include <vector>

using namespace presupuestos;
using namespace presupuestos::medida;

namespace {

QTextStream salida(stdout);

QString texto(const QStringList& args, const QString& nombre)
{
    const int i = static_cast<int>(args.indexOf(nombre));
    return i >= 0 && i + 1 < args.size() ? args[i + 1] : QString();
}

void administrar(const QString& servidor, const QString& sentencia)
{
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), QStringLiteral("bench_admin"));
        db.setConnectOptions(servidor);
        if (!db.open())
            qFatal("%s", qPrintable(db.lastError().text()));
        QSqlQuery q(db);
        if (!q.exec(sentencia))
            qFatal("%s: %s", qPrintable(sentencia), qPrintable(q.lastError().text()));
    }
    QSqlDatabase::removeDatabase(QStringLiteral("bench_admin"));
}

struct Sentencia {
    QByteArray texto;
    std::vector<QByteArray> valores;
    std::vector<char> nulos;
    bool prepara;
    bool porNombre;
    bool liberaPunto;
    bool ponePunto;
};

struct Medidas {
    double carga = 0;  // median first load, ms
    double pegado = 0; // the paste, ms
    int filas = 0;
    std::vector<Sentencia> traza; // what the paste sent (PostgreSQL)
};

struct Suelo {
    double ms = 0;
    int preparadas = 0;
    int viajes = 0;
    int puntos = 0;
};

// The paste's statements again through libpq alone, as the program sent
// them: each in a round trip of its own with the savepoint statements the
// program sent with it, prepared where the program prepared it (one it had
// prepared before the paste is prepared before the clock starts), run by
// name where it ran by name and as a text where it sent the text, in one
// transaction, every field of every row read.
Suelo suelo(const QString& conninfo, const std::vector<Sentencia>& traza)
{
    PGconn* c = PQconnectdb(conninfo.toUtf8().constData());
    if (PQstatus(c) != CONNECTION_OK)
        qFatal("%s", PQerrorMessage(c));
    Suelo r;
    std::unordered_map<QByteArray, QByteArray> nombres;
    std::vector<std::vector<const char*>> valores(traza.size());
    for (std::size_t i = 0; i < traza.size(); ++i) {
        for (std::size_t k = 0; k < traza[i].valores.size(); ++k)
            valores[i].push_back(k < traza[i].nulos.size() && traza[i].nulos[k] ? nullptr : traza[i].valores[k].constData());
        if (!traza[i].porNombre || nombres.count(traza[i].texto))
            continue;
        const QByteArray nombre = "suelo_" + QByteArray::number(static_cast<qulonglong>(nombres.size()));
        nombres.emplace(traza[i].texto, nombre);
        ++r.preparadas;
        if (!traza[i].prepara) {
            PGresult* p = PQprepare(c, nombre.constData(), traza[i].texto.constData(), 0, nullptr);
            if (PQresultStatus(p) != PGRES_COMMAND_OK)
                qFatal("suelo: %s", PQresultErrorMessage(p));
            PQclear(p);
        }
    }
    const auto leer = [c]() {
        qint64 leidos = 0;
        for (int nulos = 0; nulos < 4;) {
            PGresult* res = PQgetResult(c);
            if (!res) {
                ++nulos;
                continue;
            }
            nulos = 0;
            const ExecStatusType e = PQresultStatus(res);
            if (e == PGRES_PIPELINE_SYNC) {
                PQclear(res);
                break;
            }
            if (e != PGRES_COMMAND_OK && e != PGRES_TUPLES_OK)
                qFatal("suelo: %s", PQresultErrorMessage(res));
            for (int f = 0; f < PQntuples(res); ++f)
                for (int k = 0; k < PQnfields(res); ++k)
                    leidos += PQgetlength(res, f, k);
            PQclear(res);
        }
        return leidos;
    };
    QElapsedTimer t;
    t.start();
    PQclear(PQexec(c, "BEGIN"));
    for (std::size_t i = 0; i < traza.size(); ++i) {
        const Sentencia& s = traza[i];
        PQenterPipelineMode(c);
        if (s.liberaPunto)
            PQsendQueryParams(c, "RELEASE SAVEPOINT presupuestos_sentencia", 0, nullptr, nullptr, nullptr, nullptr, 0);
        if (s.ponePunto) {
            PQsendQueryParams(c, "SAVEPOINT presupuestos_sentencia", 0, nullptr, nullptr, nullptr, nullptr, 0);
            ++r.puntos;
        }
        const int n = static_cast<int>(valores[i].size());
        if (s.porNombre) {
            const QByteArray& nombre = nombres.at(s.texto);
            if (s.prepara)
                PQsendPrepare(c, nombre.constData(), s.texto.constData(), 0, nullptr);
            PQsendQueryPrepared(c, nombre.constData(), n, valores[i].data(), nullptr, nullptr, 0);
        } else {
            PQsendQueryParams(c, s.texto.constData(), n, nullptr, valores[i].data(), nullptr, nullptr, 0);
        }
        PQpipelineSync(c);
        leer();
        PQexitPipelineMode(c);
        ++r.viajes;
    }
    PQclear(PQexec(c, "COMMIT"));
    r.ms = ms(t);
    PQfinish(c);
    return r;
}

double mediana(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// The worksheet as the host opens it on a connection, before its first load.
struct HojaAbierta {
    frmclsfrmActPresupusto clase;
    frmActPresupusto* hoja = nullptr;
    explicit HojaAbierta(const std::shared_ptr<Conexion>& conexion)
    {
        clase.setEmpresaLarvex(cargarEmpresa(*conexion, 1));
        clase.setConexionLarvex(conexion);
        clase.Show();
        hoja = clase.formulario();
    }
};

// Opens the worksheet on a fresh connection each time: the first load is the
// one a user waits for when the worksheet opens.
Medidas medir(const std::function<std::shared_ptr<Conexion>()>& abrir, int repeticiones)
{
    Medidas r;
    std::vector<double> cargas;
    for (int vez = 0; vez < repeticiones; ++vez) {
        auto conexion = abrir();
        HojaAbierta abierta(conexion);
        frmActPresupusto* hoja = abierta.hoja;
        conexion->completarPendientes();
        QElapsedTimer t;
        t.start();
        hoja->Form_Activate();
        cargas.push_back(ms(t));
        ModeloRejilla& m = hoja->vsPresupuesto->modelo();
        r.filas = m.Rows() - 1;
        if (vez + 1 < repeticiones)
            continue;
        PlataformaDePrueba plataforma;
        plataforma.portapapeles->contenido = bloquePegado();
        m.Select(2, 4);
        conexion->setTraza([&r](const Conexion::EnvioLibpq& e) {
            r.traza.push_back({e.texto, e.valores, e.nulos, e.prepara, e.porNombre, e.liberaPunto, e.ponePunto});
        });
        t.restart();
        hoja->Copiar_Desde_Clipboard();
        conexion->completarPendientes();
        r.pegado = ms(t);
        conexion->setTraza({});
        if (!plataforma.mensajes->mostrados.empty())
            qFatal("el pegado mostró un mensaje");
    }
    r.carga = mediana(cargas);
    return r;
}

// The other user: stores one month and says when its commit returned.
int escribir(const QStringList& a)
{
    const QString postgres = QStringLiteral("postgresql:");
    const Sesion sesion{std::make_shared<EmpresaFija>(1, 2026),
                        a[2].startsWith(postgres) ? Conexion::abrirPostgres(a[2].mid(postgres.size())) : Conexion::abrirSqlite(a[2]),
                        static_cast<qint16>(a[7].toInt())};
    {
        Diario diario(sesion.conexion, 1);
        clsDBPresupuesto store(sesion);
        store.setDiario(&diario);
        store.ActualizacionManual(a[3], static_cast<qint16>(a[4].toInt()), static_cast<qint16>(a[5].toInt()),
                                  Currency::fromInt(a[6].toLongLong()));
        salida << QDateTime::currentMSecsSinceEpoch() << Qt::endl;
    }
    return 0;
}

// From another process's commit to the cell shown, five times.
double refresco(const std::shared_ptr<Conexion>& conexion, const QString& destino)
{
    HojaAbierta abierta(conexion);
    frmActPresupusto* hoja = abierta.hoja;
    hoja->Form_Activate();
    ModeloRejilla& m = hoja->vsPresupuesto->modelo();
    const int fila = 2;
    std::vector<double> esperas;
    for (int vez = 1; vez <= 5; ++vez) {
        const QString valor = QString::number(900000 + vez);
        QProcess otro;
        otro.start(QCoreApplication::applicationFilePath(),
                   {QStringLiteral("--escribir"), destino, m.TextMatrix(fila, hoja::kCuenta), m.TextMatrix(fila, hoja::kDpto),
                    QStringLiteral("1"), valor, QString::number(abierta.clase.Ejercicio())});
        QElapsedTimer limite;
        limite.start();
        const QString esperado = es::formatear(Currency::fromInt(valor.toLongLong()), hoja->FormatoNumero);
        while (m.TextMatrix(fila, hoja::kPrimerMes) != esperado && limite.elapsed() < 20000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        const qint64 mostrado = QDateTime::currentMSecsSinceEpoch();
        otro.waitForFinished(20000);
        const qint64 confirmado = QString::fromUtf8(otro.readAllStandardOutput()).trimmed().toLongLong();
        if (m.TextMatrix(fila, hoja::kPrimerMes) != esperado || confirmado == 0)
            qFatal("la hoja no mostró el cambio del otro usuario");
        esperas.push_back(static_cast<double>(mostrado - confirmado));
    }
    return mediana(esperas);
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    if (app.arguments().size() >= 8 && app.arguments()[1] == QLatin1String("--escribir"))
        return escribir(app.arguments());
    predeterminarPlataformaQt();
    // The shared state lets the last connection go, however main ends, while
    // the application and its SQL drivers still exist, not among the static
    // destructors.
    struct Liberar {
        ~Liberar() { modPublic::Liberar(); }
    } liberar;
    const QStringList args = app.arguments();
    OpcionesDemo o;
    o.cuentas = argumento(args, QStringLiteral("--cuentas"), 2000);
    o.departamentos = argumento(args, QStringLiteral("--departamentos"), 20);
    const int repeticiones = std::max(1, argumento(args, QStringLiteral("--repeticiones"), 3));
    QString servidor = texto(args, QStringLiteral("--pg"));
    if (servidor.isEmpty())
        servidor = qEnvironmentVariable("PRESUPUESTOS_PRUEBA_PG");
    if (servidor.isEmpty()) {
        salida << "Sin servidor PostgreSQL: indique --pg \"host=... user=... dbname=postgres\"." << Qt::endl;
        return 2;
    }

    QTemporaryDir dir;
    const QString fichero = dir.filePath(QStringLiteral("grande.db"));
    const QString base = QStringLiteral("bench_pg_%1").arg(QCoreApplication::applicationPid());
    const QString conninfo = servidor + QStringLiteral(" dbname=") + base;
    administrar(servidor, QStringLiteral("DROP DATABASE IF EXISTS %1").arg(base));
    administrar(servidor, QStringLiteral("CREATE DATABASE %1").arg(base));

    QElapsedTimer t;
    t.start();
    {
        auto c = Conexion::abrirSqlite(fichero);
        c->asociarBaseDatos(QStringLiteral("Pelvor"), dir.filePath(QStringLiteral("Pelvor.db")));
        DatosDemo::generar(*c, o);
    }
    salida << "Empresa generada en SQLite: " << o.cuentas << " cuentas x " << o.departamentos << " departamentos en " << ms(t)
           << " ms" << Qt::endl;
    t.restart();
    {
        auto c = Conexion::abrirPostgres(conninfo);
        DatosDemo::generar(*c, o);
        QSqlQuery(c->baseDatos()).exec(QStringLiteral("VACUUM ANALYZE"));
    }
    salida << "Empresa generada en PostgreSQL: " << ms(t) << " ms" << Qt::endl;
    // The floor's copies, as the paste finds the database: one for each run.
    QStringList basesSuelo;
    for (int vez = 0; vez < repeticiones; ++vez) {
        basesSuelo << base + QStringLiteral("_suelo%1").arg(vez);
        administrar(servidor, QStringLiteral("DROP DATABASE IF EXISTS %1").arg(basesSuelo.back()));
        administrar(servidor, QStringLiteral("CREATE DATABASE %1 TEMPLATE %2").arg(basesSuelo.back(), base));
    }

    const Medidas lite = medir([&] { return Conexion::abrirSqlite(fichero); }, repeticiones);
    const Medidas pg = medir([&] { return Conexion::abrirPostgres(conninfo); }, repeticiones);
    if (lite.filas != pg.filas)
        qFatal("las rejillas difieren: %d filas en SQLite, %d en PostgreSQL", lite.filas, pg.filas);
    salida << "Primera carga, " << lite.filas << " filas (mediana de " << repeticiones << "):" << Qt::endl;
    salida << "first_load_sqlite_ms " << QString::number(lite.carga, 'f', 1) << Qt::endl;
    salida << "first_load_pg_ms " << QString::number(pg.carga, 'f', 1) << Qt::endl;
    salida << "Pegado de 1.000 x 12 celdas:" << Qt::endl;
    salida << "paste_sqlite_ms " << QString::number(lite.pegado, 'f', 1) << Qt::endl;
    salida << "paste_pg_ms " << QString::number(pg.pegado, 'f', 1) << Qt::endl;
    Suelo pisoPegado;
    std::vector<double> pisos;
    for (const QString& b : basesSuelo) {
        pisoPegado = suelo(servidor + QStringLiteral(" dbname=") + b, pg.traza);
        pisos.push_back(pisoPegado.ms);
    }
    pisoPegado.ms = mediana(pisos);
    salida << "paste_pg_floor_ms " << QString::number(pisoPegado.ms, 'f', 1) << " (mediana de " << pisos.size()
           << "; el suelo envía " << pg.traza.size()
           << " sentencias en " << pisoPegado.viajes << " viajes, con " << pisoPegado.puntos
           << " puntos de guardado, y prepara " << pisoPegado.preparadas
           << " textos, como el programa, en una transacción)" << Qt::endl;
    salida << "ratio first_load_pg_vs_sqlite " << QString::number(pg.carga / lite.carga, 'f', 3) << Qt::endl;
    salida << "ratio paste_pg_vs_sqlite " << QString::number(pg.pegado / lite.pegado, 'f', 3) << Qt::endl;
    salida << "ratio paste_pg_vs_prepared " << QString::number(pg.pegado / pisoPegado.ms, 'f', 3) << Qt::endl;
    salida << "Otro usuario confirma un mes; la hoja abierta lo muestra (mediana de 5):" << Qt::endl;
    salida << "live_refresh_ms sqlite " << QString::number(refresco(Conexion::abrirSqlite(fichero), fichero), 'f', 0) << Qt::endl;
    salida << "live_refresh_ms pg "
           << QString::number(refresco(Conexion::abrirPostgres(conninfo), QStringLiteral("postgresql:") + conninfo), 'f', 0) << Qt::endl;
    administrar(servidor, QStringLiteral("DROP DATABASE IF EXISTS %1 WITH (FORCE)").arg(base));
    for (const QString& b : basesSuelo)
        administrar(servidor, QStringLiteral("DROP DATABASE IF EXISTS %1 WITH (FORCE)").arg(b));
    return 0;
}
