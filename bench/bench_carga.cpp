// The worksheet's first load of a large company (filters, filter table,
// budget grid and subtotals), a one-cell edit and a 1,000 x 12 paste, each
// against the same statements - taken from the connection's log in the
// form SQLite receives them - replayed through the SQLite C API on a copy
// of the databases and of the connection's temporary tables as they stood
// before the operation. The floor reads every column of every row and runs
// the log's BEGIN/COMMIT as they came. The trace hook that supplies the
// values of prepared commands runs during the project's operations, so its
// small cost is charged to the project, never to the floor.
//
//   presupuestos_bench_carga [--cuentas 2000] [--departamentos 20] [--ediciones 200] [--repeticiones 3] [--sentencias]

#include "db/Conexion.h"
#include "db/schema/DatosDemo.h"
#include "host/Empresa.h"
#include "host/entry/frmclsfrmActPresupusto.h"
#include "common/Plataforma.h"
#include "desktop/PlataformaQt.h"
#include "host/modPublic.h"
#include "store/clsDBPresupuesto.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/frmActPresupusto.h"

#include "Medida.h"
#include "PlataformaDePrueba.h"
#include "SqliteDesnudo.h"

#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlDriver>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTemporaryDir>
#include <QTextStream>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

using namespace presupuestos;
using namespace presupuestos::medida;

namespace {

QTextStream salida(stdout);

// What SQLite ran on the project's connection, in order, seen through
// its trace hook. A prepared command is logged by the connection once,
// with "?" and without its values; the trace gives each of its executions
// with the values bound, expanded into the equivalent literal statement.
struct Ejecucion {
    std::string texto;
    bool conParametros;
};

struct Traza {
    std::vector<Ejecucion> ejecuciones;
};

int alTrazar(unsigned tipo, void* contexto, void* p, void* x)
{
    const auto* texto = static_cast<const char*>(x);
    // Trigger programs are reported as comments: they belong to their statement.
    if (tipo != SQLITE_TRACE_STMT || (texto && texto[0] == '-' && texto[1] == '-'))
        return 0;
    auto* st = static_cast<sqlite3_stmt*>(p);
    auto* traza = static_cast<Traza*>(contexto);
    if (sqlite3_bind_parameter_count(st) > 0) {
        char* expandida = sqlite3_expanded_sql(st);
        traza->ejecuciones.push_back({expandida ? expandida : "", true});
        sqlite3_free(expandida);
    } else {
        traza->ejecuciones.push_back({sqlite3_sql(st), false});
    }
    return 0;
}

void trazar(Conexion& c, Traza* traza)
{
    const QVariant h = c.baseDatos().driver()->handle();
    sqlite3* handle = *static_cast<sqlite3* const*>(h.data());
    sqlite3_trace_v2(handle, SQLITE_TRACE_STMT, alTrazar, traza);
}

// The statements of an operation as SQLite received them, in the order it
// ran them, each as a literal statement: a prepared command (the connection
// prepares a statement once per shape and binds its literals, and logs a
// command with "?" once) comes back from the trace with its values expanded,
// which is the composed text the log holds. The log is still checked: every
// plain text SQLite ran must be one of the log's texts as the connection
// adapts them, and the log may hold nothing SQLite did not run.
struct Repeticion {
    std::vector<std::string> sentencias;
    int preparadas = 0;    // executions of prepared commands among them
    int discrepancias = 0; // texts SQLite ran that the log does not hold, or the other way round
    std::size_t registradas = 0; // log texts of the operation
};

Repeticion adaptadas(Conexion& c, std::size_t desde, std::size_t hasta, const Traza& traza, std::size_t tDesde,
                     std::size_t tHasta)
{
    std::unordered_multiset<std::string> delRegistro;
    const auto& registro = c.registro();
    for (std::size_t i = desde; i < hasta; ++i)
        delRegistro.insert(c.adaptar(registro[i]).toStdString());
    Repeticion r;
    r.registradas = hasta - desde;
    for (std::size_t i = tDesde; i < tHasta; ++i) {
        const Ejecucion& e = traza.ejecuciones[i];
        r.sentencias.push_back(e.texto);
        if (e.conParametros) {
            ++r.preparadas;
            continue;
        }
        // Transactions are logged as the connection names them and run as the driver does.
        const std::string_view palabra = e.texto.substr(0, e.texto.find(' '));
        if (palabra == "BEGIN" || palabra == "COMMIT" || palabra == "ROLLBACK")
            continue;
        const auto it = delRegistro.find(e.texto);
        if (it == delRegistro.end())
            ++r.discrepancias;
        else
            delRegistro.erase(it);
    }
    if (r.preparadas == 0)
        for (const std::string& resto : delRegistro) {
            const std::string_view palabra = std::string_view(resto).substr(0, resto.find(' '));
            if (palabra != "BEGIN" && palabra != "COMMIT" && palabra != "ROLLBACK")
                ++r.discrepancias;
        }
    return r;
}

QString notas(const Repeticion& r)
{
    QString t;
    t += QStringLiteral(", %1 textos en el registro, %2 ejecuciones en SQLite").arg(r.registradas).arg(r.sentencias.size());
    if (r.preparadas)
        t += QStringLiteral(", %1 de ellas de sentencias preparadas, repetidas como literales").arg(r.preparadas);
    if (r.discrepancias)
        t += QStringLiteral(", %1 textos del registro DISTINTOS de lo ejecutado").arg(r.discrepancias);
    return t;
}

// With --sentencias, what each floor replays goes to standard error, for
// checking by eye that it is the operation's work.
void mostrar(bool activo, const char* operacion, const Repeticion& r)
{
    if (!activo)
        return;
    for (const std::string& sql : r.sentencias)
        std::fprintf(stderr, "%s\t%s\n", operacion, sql.c_str());
}

// The temporary objects of the project's connection (the filter tables the
// worksheet creates when it opens) as they stand now: their definitions,
// and their rows saved to a file beside the copy.
struct Temporales {
    QString volcado;
    std::vector<std::string> definiciones;
    std::vector<std::string> tablas;
};

std::string comoTemporal(QString sql)
{
    for (const char* tipo : {"TABLE", "VIEW", "TRIGGER"}) {
        const QString prefijo = QStringLiteral("CREATE %1").arg(QLatin1String(tipo));
        if (sql.startsWith(prefijo, Qt::CaseInsensitive))
            return (QStringLiteral("CREATE TEMP %1").arg(QLatin1String(tipo)) + sql.mid(prefijo.size())).toStdString();
    }
    return sql.toStdString();
}

QString citado(const QString& nombre)
{
    return QLatin1Char('"') + QString(nombre).replace(QLatin1Char('"'), QStringLiteral("\"\"")) + QLatin1Char('"');
}

Temporales volcarTemporales(Conexion& c, const QString& volcado)
{
    Temporales t;
    t.volcado = volcado;
    QSqlQuery q(c.baseDatos());
    auto exec = [&q](const QString& sql) {
        if (!q.exec(sql))
            qFatal("%s: %s", qPrintable(sql), qPrintable(q.lastError().text()));
    };
    exec(QStringLiteral("SELECT type, name, sql FROM sqlite_temp_master WHERE sql IS NOT NULL "
                        "ORDER BY CASE type WHEN 'table' THEN 0 WHEN 'index' THEN 1 ELSE 2 END"));
    QStringList tablas;
    while (q.next()) {
        t.definiciones.push_back(comoTemporal(q.value(2).toString()));
        if (q.value(0).toString() == QLatin1String("table"))
            tablas << q.value(1).toString();
    }
    q.finish();
    exec(QStringLiteral("ATTACH DATABASE '%1' AS volcado").arg(QString(volcado).replace(QLatin1Char('\''), QStringLiteral("''"))));
    for (const QString& tabla : tablas) {
        exec(QStringLiteral("CREATE TABLE volcado.%1 AS SELECT * FROM temp.%1").arg(citado(tabla)));
        t.tablas.push_back(citado(tabla).toStdString());
    }
    exec(QStringLiteral("DETACH DATABASE volcado"));
    return t;
}

// A copy of the company's two databases as they stand now, for replaying
// an operation from the state it started in.
struct Copia {
    QString fichero;
    Temporales temporales;
};

Copia copiarEmpresa(Conexion& c, const QString& fichero, const QString& carpeta)
{
    QDir().mkpath(carpeta);
    const QDir origen = QFileInfo(fichero).absoluteDir();
    const QString copia = carpeta + QStringLiteral("/") + QFileInfo(fichero).fileName();
    copiarBaseDatos(fichero, copia);
    copiarBaseDatos(origen.filePath(QStringLiteral("Pelvor.db")), carpeta + QStringLiteral("/Pelvor.db"));
    return {copia, volcarTemporales(c, carpeta + QStringLiteral("/temporales.db"))};
}

// Opens a copy as the project's connection stood: functions, settings, the
// retail database attached and the temporary tables with their rows.
std::unique_ptr<SqliteDesnudo> abrirCopia(const Copia& copia)
{
    auto db = std::make_unique<SqliteDesnudo>(copia.fichero);
    db->adjuntar(QStringLiteral("Pelvor"), QFileInfo(copia.fichero).absoluteDir().filePath(QStringLiteral("Pelvor.db")));
    for (const std::string& sql : copia.temporales.definiciones)
        db->ejecutar(sql);
    db->adjuntar(QStringLiteral("volcado"), copia.temporales.volcado);
    for (const std::string& tabla : copia.temporales.tablas)
        db->ejecutar("INSERT INTO temp." + tabla + " SELECT * FROM volcado." + tabla);
    db->ejecutar("DETACH DATABASE volcado");
    return db;
}

// Copies made before an operation, one for each replay of it.
std::vector<Copia> copiasPrevias(Conexion& c, const QString& fichero, const QString& base, int veces)
{
    std::vector<Copia> copias;
    for (int i = 0; i < veces; ++i)
        copias.push_back(copiarEmpresa(c, fichero, base + QString::number(i)));
    return copias;
}

// Replays the statements once on each copy; the median of the replays.
double sueloMediano(const std::vector<Copia>& copias, const Repeticion& r)
{
    std::vector<double> tiempos;
    for (const Copia& copia : copias) {
        auto db = abrirCopia(copia);
        const auto t0 = std::chrono::steady_clock::now();
        for (const std::string& sql : r.sentencias)
            db->ejecutar(sql);
        tiempos.push_back(msDesde(t0));
    }
    return mediana(tiempos);
}

void ratio(const char* nombre, double valor)
{
    salida << "ratio " << nombre << " " << QString::number(valor, 'f', 3) << Qt::endl;
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    predeterminarPlataformaQt();
    const QStringList args = app.arguments();
    const int cuentas = argumento(args, QStringLiteral("--cuentas"), 2000);
    const int dptos = argumento(args, QStringLiteral("--departamentos"), 20);
    const int ediciones = argumento(args, QStringLiteral("--ediciones"), 200);
    const int vecesSuelo = argumento(args, QStringLiteral("--repeticiones"), 3);
    const bool verSentencias = args.contains(QStringLiteral("--sentencias"));

    QTemporaryDir dir;
    const QString fichero = dir.filePath(QStringLiteral("grande.db"));
    QElapsedTimer t;
    t.start();
    {
        auto c = Conexion::abrirSqlite(fichero);
        c->asociarBaseDatos(QStringLiteral("Pelvor"), dir.filePath(QStringLiteral("Pelvor.db")));
        OpcionesDemo o;
        o.cuentas = cuentas;
        o.departamentos = dptos;
        DatosDemo::generar(*c, o);
    }
    salida << "Empresa generada: " << cuentas << " cuentas x " << dptos << " departamentos en " << ms(t) << " ms" << Qt::endl;

    auto conexion = Conexion::abrirSqlite(fichero);
    Traza traza;
    trazar(*conexion, &traza);
    auto empresa = cargarEmpresa(*conexion, 1);
    {
        frmclsfrmActPresupusto clase;
        clase.setEmpresaLarvex(empresa);
        clase.setConexionLarvex(conexion);
        clase.Show();
        frmActPresupusto* hoja = clase.formulario();
        // The deferred statistics fetch of the load runs before timing.
        conexion->completarPendientes();
        conexion->limpiarRegistro();
        const auto copiasCarga = copiasPrevias(*conexion, fichero, dir.filePath(QStringLiteral("carga")), vecesSuelo);

        // ---- First load ----------------------------------------------------
        const long rssAntes = vmRssKib();
        t.restart();
        const std::size_t trazaAntes = traza.ejecuciones.size();
        hoja->Form_Activate();
        const double cargaHoja = ms(t);
        const long rssDespues = vmRssKib();
        ModeloRejilla& m = hoja->vsPresupuesto->modelo();
        const int filasRejilla = m.Rows() - 1;
        const Repeticion carga = adaptadas(*conexion, 0, conexion->registro().size(), traza, trazaAntes, traza.ejecuciones.size());
        salida << "Primera carga (filtros + tabla de filtro + rejilla + subtotales): " << cargaHoja << " ms, " << filasRejilla
               << " filas, " << carga.sentencias.size() << " sentencias" << Qt::endl;
        mostrar(verSentencias, "carga", carga);
        const double sueloCarga = sueloMediano(copiasCarga, carga);
        salida << "Mismas sentencias por la API C de SQLite (mediana de " << vecesSuelo << "): " << sueloCarga << " ms"
               << notas(carga)
               << Qt::endl;
        salida << "Memoria residente: +" << (rssDespues - rssAntes) << " KiB en la carga" << Qt::endl;

        // ---- The grid alone: one cell's refresh, sums moved by difference ---
        auto& rejilla = dynamic_cast<RejillaPresupuesto&>(m);
        const auto sumados = [&rejilla] { return rejilla.datos().terminosSumados(); };
        int fila = 2;
        while (fila < m.Rows() && m.IsSubtotal(fila))
            ++fila;
        {
            const long long antes = sumados();
            t.restart();
            const int repeticiones = 1000;
            for (int i = 0; i < repeticiones; ++i) {
                m.setTextMatrix(fila, 5, QString::number(1000 + i));
                hoja->RecalcularFilas(fila, fila, 5, 5);
            }
            const double unaCelda = ms(t) / repeticiones;
            const long long leidasUna = (sumados() - antes) / repeticiones;
            salida << "Refresco de totales tras una celda (sólo rejilla): " << unaCelda * 1000.0 << " us, " << leidasUna
                   << " términos sumados" << Qt::endl;
        }

        // ---- One-cell edit: stored, row total and subtotals refreshed ------
        conexion->completarPendientes();
        conexion->limpiarRegistro();
        const Copia copiaEdicion = copiarEmpresa(*conexion, fichero, dir.filePath(QStringLiteral("edicion")));
        std::vector<double> tiemposEdicion;
        std::vector<std::size_t> limites{0};
        std::vector<std::size_t> limitesTraza{traza.ejecuciones.size()};
        for (int i = 0; i < ediciones; ++i) {
            t.restart();
            hoja->EditCellValue(fila, 5, Currency::fromInt(2000 + i));
            conexion->completarPendientes();
            tiemposEdicion.push_back(ms(t));
            limites.push_back(conexion->registro().size());
            limitesTraza.push_back(traza.ejecuciones.size());
        }
        std::vector<double> sueloEdicion;
        Repeticion todasEdicion;
        {
            auto db = abrirCopia(copiaEdicion);
            for (int i = 0; i < ediciones; ++i) {
                const Repeticion r = adaptadas(*conexion, limites[i], limites[i + 1], traza, limitesTraza[i], limitesTraza[i + 1]);
                mostrar(verSentencias, "edicion", r);
                todasEdicion.preparadas += r.preparadas;
                todasEdicion.discrepancias += r.discrepancias;
                todasEdicion.registradas += r.registradas;
                todasEdicion.sentencias.insert(todasEdicion.sentencias.end(), r.sentencias.begin(), r.sentencias.end());
                const auto t0 = std::chrono::steady_clock::now();
                for (const std::string& sql : r.sentencias)
                    db->ejecutar(sql);
                sueloEdicion.push_back(msDesde(t0));
            }
        }
        const double edicion = mediana(tiemposEdicion);
        const double edicionSuelo = mediana(sueloEdicion);
        salida << "Edición de una celda en la hoja (mediana de " << ediciones << "): " << edicion * 1000.0 << " us, "
               << limites.back() / std::max(1, ediciones) << " sentencias por edición" << Qt::endl;
        salida << "Mismas sentencias por la API C de SQLite (mediana de " << ediciones << "): " << edicionSuelo * 1000.0
               << " us"
               << notas(todasEdicion)
               << Qt::endl;

        // ---- A block of 1,000 rows x 12 months pasted from a spreadsheet ---
        PlataformaDePrueba plataforma;
        plataforma.portapapeles->contenido = bloquePegado();
        hoja->FlatEdit1->setText(QStringLiteral("2"));
        hoja->AplicarDecimales();
        m.Select(2, 4);
        conexion->completarPendientes();
        conexion->limpiarRegistro();
        const auto copiasPegado = copiasPrevias(*conexion, fichero, dir.filePath(QStringLiteral("pegado")), vecesSuelo);
        const std::size_t trazaAntesPegar = traza.ejecuciones.size();
        const long long antesPegar = sumados();
        t.restart();
        hoja->Copiar_Desde_Clipboard();
        conexion->completarPendientes();
        const double pegar = ms(t);
        const long long leidasPegar = sumados() - antesPegar;
        const Repeticion pegado
            = adaptadas(*conexion, 0, conexion->registro().size(), traza, trazaAntesPegar, traza.ejecuciones.size());
        const QString totalTrasPegar = m.TextMatrix(1, 16);
        hoja->CargarPresupuesto();
        const bool totalesBien = m.TextMatrix(1, 16) == totalTrasPegar;
        salida << "Pegar 1.000 x 12 en la hoja: " << pegar << " ms, " << pegado.sentencias.size() << " sentencias, "
               << leidasPegar << " términos sumados para totales, totales " << (totalesBien ? "correctos" : "INCORRECTOS")
               << Qt::endl;
        mostrar(verSentencias, "pegado", pegado);
        const double sueloPegado = sueloMediano(copiasPegado, pegado);
        salida << "Mismas sentencias por la API C de SQLite (mediana de " << vecesSuelo << "): " << sueloPegado << " ms"
               << notas(pegado)
               << Qt::endl;

        // ---- What the change journal adds to a paste ----------------------
        // The same block pasted over the same rows, alternately with the
        // journal and without it (the journal detached from the store).
        std::vector<double> conDiario, sinDiario;
        for (int vuelta = 0; vuelta < 3; ++vuelta) {
            for (const bool diario : {false, true}) {
                QStringList otras;
                for (int i = 0; i < 1000; ++i) {
                    QStringList campos;
                    for (int mes = 1; mes <= 12; ++mes)
                        campos << QStringLiteral("%1,%2").arg(200 + i + vuelta).arg(mes + (diario ? 1 : 0));
                    otras << campos.join(QLatin1Char('\t'));
                }
                plataforma.portapapeles->contenido = otras.join(QStringLiteral("\r\n")) + QStringLiteral("\r\n");
                hoja->usarDiario(diario);
                m.Select(2, 4);
                t.restart();
                hoja->Copiar_Desde_Clipboard();
                conexion->completarPendientes();
                (diario ? conDiario : sinDiario).push_back(ms(t));
            }
        }
        hoja->usarDiario(true);
        const double pegarConDiario = mediana(conDiario), pegarSinDiario = mediana(sinDiario);
        salida << "Pegar 1.000 x 12 con el diario de cambios: " << pegarConDiario << " ms; sin él: " << pegarSinDiario
               << " ms (medianas de 3)" << Qt::endl;

        ratio("first_load_vs_sqlite", cargaHoja / sueloCarga);
        ratio("paste_vs_sqlite", pegar / sueloPegado);
        ratio("edit_vs_sqlite", edicion / edicionSuelo);
        ratio("rss_kib_per_row", static_cast<double>(rssDespues - rssAntes) / std::max(1, filasRejilla));
        ratio("paste_journal_overhead", pegarConDiario / pegarSinDiario);
    }
    modPublic::Liberar();
    conexion.reset();
    return 0;
}
