// The worksheet's first load of a large company (filters, filter table,
// budget grid and subtotals) and a 1,000 x 12 paste, on SQLite and on a
// PostgreSQL server, with the same demo company in both: the price of the
// shared server against the file on the same machine.
//
//   presupuestos_bench_pg --pg "host=... user=... dbname=postgres" [--cuentas 2000] [--departamentos 20] [--repeticiones 3]
//
// The connection string names a user that may create databases: the run
// creates one of its own and drops it at the end. Without --pg it takes
// PRESUPUESTOS_PRUEBA_PG, as the tests do.

#include "db/Conexion.h"
#include "db/schema/DatosDemo.h"
#include "desktop/PlataformaQt.h"
#include "grid/widgets/VistaRejilla.h"
#include "host/Empresa.h"
#include "host/entry/frmclsfrmActPresupusto.h"
#include "worksheet/frmActPresupusto.h"
#include "host/modPublic.h"

#include "Medida.h"
#include "PlataformaDePrueba.h"

#include <QApplication>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTextStream>
#include <algorithm>
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

struct Medidas {
    double carga = 0;  // median first load, ms
    double pegado = 0; // the paste, ms
    int filas = 0;
};

double mediana(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// Opens the worksheet on a fresh connection each time: the first load is the
// one a user waits for when the worksheet opens.
Medidas medir(const std::function<std::shared_ptr<Conexion>()>& abrir, int repeticiones)
{
    Medidas r;
    std::vector<double> cargas;
    for (int vez = 0; vez < repeticiones; ++vez) {
        auto conexion = abrir();
        auto empresa = cargarEmpresa(*conexion, 1);
        frmclsfrmActPresupusto clase;
        clase.setEmpresaLarvex(empresa);
        clase.setConexionLarvex(conexion);
        clase.Show();
        frmActPresupusto* hoja = clase.formulario();
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
        t.restart();
        hoja->Copiar_Desde_Clipboard();
        conexion->completarPendientes();
        r.pegado = ms(t);
        if (!plataforma.mensajes->mostrados.empty())
            qFatal("el pegado mostró un mensaje");
    }
    r.carga = mediana(cargas);
    return r;
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
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
    salida << "ratio first_load_pg_vs_sqlite " << QString::number(pg.carga / lite.carga, 'f', 3) << Qt::endl;
    salida << "ratio paste_pg_vs_sqlite " << QString::number(pg.pegado / lite.pegado, 'f', 3) << Qt::endl;
    administrar(servidor, QStringLiteral("DROP DATABASE IF EXISTS %1 WITH (FORCE)").arg(base));
    return 0;
}
