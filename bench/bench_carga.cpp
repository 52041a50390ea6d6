// The worksheet's first load of a large company (filters, filter table,
// budget grid and subtotals), a one-cell edit and a 1,000 x 12 paste, each
// against its SQL floor: the statements SQLite ran for the operation, run
// again through the SQLite C API on a copy of the databases and of the
// connection's temporary tables as they stood before it, prepared where
// the program prepared them and bound with the program's values
// (ReproduccionSqlite.h says exactly what the floor runs, and each floor's
// line of output says how much). The trace hook that records the runs
// expands every statement's values, which costs a paste about a quarter of
// its time: that is the measurement's work, not the program's. So the edit
// series (after a first run of its own, see below) and the paste run once
// untimed with the hook on, for the floor to replay, are put back as they
// were (the edited cell typed back, the paste undone) and are then timed
// with the hook off over the same figures with the same values. Each paste is followed at once by one of its floor's
// runs, so that a machine whose speed drifts weighs on both alike; the
// edits, small enough for the caches to matter, are timed as two series,
// the program's and then the floor's, each back to back. The first load is
// timed with the hook on, its cost charged to the program, in --cargas
// worksheets one after the other, each on a connection of its own; the last
// one's runs are what its floor replays, and the ratio takes the median.
//
//   presupuestos_bench_carga [--cuentas 2000] [--departamentos 20] [--ediciones 200] [--repeticiones 3] [--cargas 5] [--sentencias]

#include "db/Conexion.h"
#include "db/schema/DatosDemo.h"
#include "host/entry/frmclsfrmActPresupusto.h"
#include "common/Plataforma.h"
#include "desktop/PlataformaQt.h"
#include "host/modPublic.h"
#include "sesion/Empresa.h"
#include "store/clsDBPresupuesto.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/frmActPresupusto.h"

#include "HojaAbiertaMedida.h"
#include "Medida.h"
#include "PlataformaDePrueba.h"
#include "ReproduccionSqlite.h"
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
#include <deque>
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

// Whether the program's log holds what SQLite ran: every text SQLite ran
// without values must be one of the log's texts as the connection adapts
// them, and, when nothing ran with values, the log may hold nothing SQLite
// did not run. The count of texts that break either.
int discrepancias(Conexion& c, std::size_t desde, std::size_t hasta, const Reproduccion& r)
{
    std::unordered_multiset<std::string> delRegistro;
    const auto& registro = c.registro();
    for (std::size_t i = desde; i < hasta; ++i)
        delRegistro.insert(c.adaptar(registro[i]).toStdString());
    const auto transaccion = [](const std::string& sql) {
        const std::string_view palabra = std::string_view(sql).substr(0, sql.find(' '));
        return palabra == "BEGIN" || palabra == "COMMIT" || palabra == "ROLLBACK";
    };
    int n = 0;
    for (std::size_t i = r.desde(); i < r.hasta(); ++i) {
        if (r.conValores(i))
            continue;
        // Transactions are logged as the connection names them and run as the driver does.
        const std::string sql = r.texto(i);
        if (transaccion(sql))
            continue;
        const auto it = delRegistro.find(sql);
        if (it == delRegistro.end())
            ++n;
        else
            delRegistro.erase(it);
    }
    if (r.conValores() == 0)
        for (const std::string& resto : delRegistro)
            if (!transaccion(resto))
                ++n;
    return n;
}

QString notas(Conexion& c, std::size_t desde, std::size_t hasta, const Reproduccion& r, std::size_t diferencias)
{
    QString t = QStringLiteral(" (%1 textos en el registro; %2").arg(hasta - desde).arg(queEjecuta(r, diferencias));
    if (const int d = discrepancias(c, desde, hasta, r))
        t += QStringLiteral("; %1 textos ejecutados sin valores que el registro no tiene, o al revés").arg(d);
    return t + QLatin1Char(')');
}

// With --sentencias, what each floor runs goes to standard error, for
// checking by eye that it is the operation's work.
void mostrar(bool activo, const char* operacion, const Reproduccion& r)
{
    if (!activo)
        return;
    for (std::size_t i = r.desde(); i < r.hasta(); ++i)
        std::fprintf(stderr, "%s\t%s\n", operacion, r.texto(i).c_str());
}

// Whether the timed run and the traced run logged the same texts.
QString mismoTrabajo(const std::deque<QString>& cronometrada, const std::deque<QString>& trazada)
{
    return cronometrada == trazada ? QString()
                                   : QStringLiteral(" (la pasada cronometrada y la trazada registraron textos distintos: "
                                                    "NO ES EL MISMO TRABAJO)");
}

// A first load: its time, the growth of the resident memory across it and
// the grid's rows.
struct Carga {
    double ms = 0;
    long kib = 0;
    int filas = 0;
};

Carga primeraCarga(frmActPresupusto& hoja)
{
    Carga c;
    const long antes = vmRssKib();
    QElapsedTimer t;
    t.start();
    hoja.Form_Activate();
    c.ms = ms(t);
    c.kib = vmRssKib() - antes;
    c.filas = hoja.vsPresupuesto->modelo().Rows() - 1;
    return c;
}

// A first load in a worksheet of its own, on a connection of its own traced
// as the measured one is.
Carga otraPrimeraCarga(const QString& fichero)
{
    Carga c;
    {
        auto conexion = Conexion::abrirSqlite(fichero);
        Traza traza;
        trazar(*conexion, &traza);
        c = primeraCarga(*abrirHoja(conexion)->formulario());
    }
    modPublic::Liberar();
    return c;
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
    const int vecesCarga = std::max(1, argumento(args, QStringLiteral("--cargas"), 5));

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

    // One load is one sample of a machine whose speed drifts, and the floor
    // is a median: the same first load runs before the measured one in
    // worksheets of their own, and the ratio takes the median of them all.
    std::vector<Carga> cargas;
    for (int i = 1; i < vecesCarga; ++i)
        cargas.push_back(otraPrimeraCarga(fichero));

    auto conexion = Conexion::abrirSqlite(fichero);
    Traza traza;
    trazar(*conexion, &traza);
    {
        const auto clase = abrirHoja(conexion);
        frmActPresupusto* hoja = clase->formulario();
        const auto copiasCarga = copiasPrevias(*conexion, fichero, dir.filePath(QStringLiteral("carga")), vecesSuelo + 1);

        // ---- First load ----------------------------------------------------
        const std::size_t trazaAntes = traza.ejecuciones.size();
        cargas.push_back(primeraCarga(*hoja));
        std::vector<double> tiemposCarga;
        QStringList vistas;
        for (const Carga& c : cargas) {
            tiemposCarga.push_back(c.ms);
            vistas << QString::number(c.ms, 'f', 1);
        }
        const double cargaHoja = mediana(tiemposCarga);
        // Memory is the process's first load's: later ones reuse what the
        // earlier worksheets gave back.
        const Carga& primera = cargas.front();
        ModeloRejilla& m = hoja->vsPresupuesto->modelo();
        const int filasRejilla = m.Rows() - 1;
        const Reproduccion carga(traza, trazaAntes, traza.ejecuciones.size());
        salida << "Primera carga (filtros + tabla de filtro + rejilla + subtotales): " << cargaHoja << " ms, mediana de " << cargas.size()
               << " hojas (" << vistas.join(QStringLiteral(", ")) << "), " << filasRejilla << " filas, " << carga.ejecuciones()
               << " sentencias" << Qt::endl;
        mostrar(verSentencias, "carga", carga);
        const Suelo sueloCarga = sueloMediano(copiasCarga, carga);
        salida << "Mismo trabajo de SQLite por su API C (mediana de " << vecesSuelo << "): " << sueloCarga.ms << " ms"
               << notas(*conexion, 0, conexion->registro().size(), carga, sueloCarga.diferencias) << Qt::endl;
        salida << "Memoria residente: +" << primera.kib << " KiB en la primera carga del proceso" << Qt::endl;

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
        // The cell starts each series from the same figure, in the grid and stored.
        const auto editarDesdeElMismoValor = [&] {
            hoja->EditCellValue(fila, 5, Currency::fromInt(1000));
            conexion->completarPendientes();
            conexion->limpiarRegistro();
        };
        // The series: each edit timed, and where the trace stood after it, when asked.
        const auto serieDeEdiciones = [&](std::vector<double>* tiempos, std::vector<std::size_t>* limites) {
            for (int i = 0; i < ediciones; ++i) {
                t.restart();
                hoja->EditCellValue(fila, 5, Currency::fromInt(2000 + i));
                conexion->completarPendientes();
                if (tiempos)
                    tiempos->push_back(ms(t));
                if (limites)
                    limites->push_back(traza.ejecuciones.size());
            }
        };
        trazar(*conexion, nullptr);
        // Run once beforehand, so that the timed series and the floor's
        // copy both find the log file (WAL) already grown to what the series
        // writes: one writing into new blocks while the other overwrites old
        // ones would charge the file system's work to one side only.
        editarDesdeElMismoValor();
        serieDeEdiciones(nullptr, nullptr);
        editarDesdeElMismoValor();
        // The series traced for the floor.
        trazar(*conexion, &traza);
        const Copia copiaEdicion = copiarEmpresa(*conexion, fichero, dir.filePath(QStringLiteral("edicion")));
        const Copia copiaComprobacion = copiarEmpresa(*conexion, fichero, dir.filePath(QStringLiteral("edicion-comprobada")));
        std::vector<std::size_t> limitesTraza{traza.ejecuciones.size()};
        serieDeEdiciones(nullptr, &limitesTraza);
        trazar(*conexion, nullptr);
        const std::deque<QString> registroEdicionTrazada = conexion->registro();
        // One floor for the whole series, as the program kept its statements
        // from one edit to the next; each edit timed on its own.
        const Reproduccion edicionesSuelo(traza, limitesTraza.front(), limitesTraza.back());
        mostrar(verSentencias, "edicion", edicionesSuelo);
        // The same series timed; then the floor's, on its own. An edit is
        // small enough for the caches to matter: each side runs its series
        // back to back, at its best, rather than after the other's work.
        editarDesdeElMismoValor();
        std::vector<double> tiemposEdicion, sueloEdicion;
        serieDeEdiciones(&tiemposEdicion, nullptr);
        {
            auto db = abrirCopia(copiaEdicion);
            Reproduccion::Pasada pasada(edicionesSuelo, *db);
            for (int i = 0; i < ediciones; ++i) {
                const auto t0 = std::chrono::steady_clock::now();
                pasada.ejecutar(limitesTraza[static_cast<std::size_t>(i)], limitesTraza[static_cast<std::size_t>(i) + 1]);
                sueloEdicion.push_back(msDesde(t0));
            }
        }
        const QString trabajoEdicion = mismoTrabajo(conexion->registro(), registroEdicionTrazada);
        const std::size_t diferenciasEdicion = comprobarEn(copiaComprobacion, edicionesSuelo);
        const double edicion = mediana(tiemposEdicion);
        const double edicionSuelo = mediana(sueloEdicion);
        salida << "Edición de una celda en la hoja (mediana de " << ediciones << "): " << edicion * 1000.0 << " us, "
               << edicionesSuelo.ejecuciones() / static_cast<std::size_t>(std::max(1, ediciones)) << " sentencias por edición"
               << trabajoEdicion << Qt::endl;
        salida << "Mismo trabajo de SQLite por su API C (mediana de " << ediciones << "): " << edicionSuelo * 1000.0 << " us"
               << notas(*conexion, 0, registroEdicionTrazada.size(), edicionesSuelo, diferenciasEdicion) << Qt::endl;

        // ---- A block of 1,000 rows x 12 months pasted from a spreadsheet ---
        PlataformaDePrueba plataforma;
        plataforma.portapapeles->contenido = bloquePegado();
        hoja->FlatEdit1->setText(QStringLiteral("2"));
        hoja->AplicarDecimales();
        conexion->completarPendientes();
        trazar(*conexion, nullptr);
        const QString totalAntesPegar = m.TextMatrix(1, 16);
        // Pasted and undone once first: a row the block creates is left
        // behind by the undo at zero, so every run below starts from the
        // same rows.
        m.Select(2, 4);
        hoja->Copiar_Desde_Clipboard();
        hoja->Deshacer();
        conexion->completarPendientes();
        // The paste traced for the floor.
        conexion->limpiarRegistro();
        const auto copiasPegado = copiasPrevias(*conexion, fichero, dir.filePath(QStringLiteral("pegado")), vecesSuelo + 1);
        m.Select(2, 4);
        trazar(*conexion, &traza);
        const std::size_t trazaAntesPegar = traza.ejecuciones.size();
        hoja->Copiar_Desde_Clipboard();
        conexion->completarPendientes();
        trazar(*conexion, nullptr);
        const std::deque<QString> registroPegadoTrazado = conexion->registro();
        const Reproduccion pegado(traza, trazaAntesPegar, traza.ejecuciones.size());
        mostrar(verSentencias, "pegado", pegado);
        const QString totalTrasPegar = m.TextMatrix(1, 16);
        hoja->CargarPresupuesto();
        bool totalesBien = m.TextMatrix(1, 16) == totalTrasPegar;
        // The same paste timed, undone before each run, each run followed by
        // one of the floor's.
        std::vector<double> tiemposPegado, tiemposSueloPegado;
        QString trabajoPegado;
        long long leidasPegar = 0;
        for (int k = 0; k < vecesSuelo; ++k) {
            hoja->Deshacer();
            conexion->completarPendientes();
            totalesBien = totalesBien && m.TextMatrix(1, 16) == totalAntesPegar;
            conexion->limpiarRegistro();
            m.Select(2, 4);
            const long long antes = sumados();
            t.restart();
            hoja->Copiar_Desde_Clipboard();
            conexion->completarPendientes();
            tiemposPegado.push_back(ms(t));
            leidasPegar = sumados() - antes;
            totalesBien = totalesBien && m.TextMatrix(1, 16) == totalTrasPegar;
            if (trabajoPegado.isEmpty())
                trabajoPegado = mismoTrabajo(conexion->registro(), registroPegadoTrazado);
            tiemposSueloPegado.push_back(sueloEn(copiasPegado[static_cast<std::size_t>(k)], pegado));
        }
        const double pegar = mediana(tiemposPegado);
        const double sueloPegado = mediana(tiemposSueloPegado);
        const std::size_t diferenciasPegado = comprobarEn(copiasPegado.back(), pegado);
        salida << "Pegar 1.000 x 12 en la hoja (mediana de " << vecesSuelo << "): " << pegar << " ms, " << pegado.ejecuciones()
               << " sentencias, " << leidasPegar << " términos sumados para totales, totales "
               << (totalesBien ? "correctos" : "INCORRECTOS") << trabajoPegado << Qt::endl;
        salida << "Mismo trabajo de SQLite por su API C (mediana de " << vecesSuelo << "): " << sueloPegado << " ms"
               << notas(*conexion, 0, registroPegadoTrazado.size(), pegado, diferenciasPegado) << Qt::endl;

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

        ratio("first_load_vs_sqlite", cargaHoja / sueloCarga.ms);
        ratio("paste_vs_sqlite", pegar / sueloPegado);
        ratio("edit_vs_sqlite", edicion / edicionSuelo);
        ratio("rss_kib_per_row", static_cast<double>(primera.kib) / std::max(1, primera.filas));
        ratio("paste_journal_overhead", pegarConDiario / pegarSinDiario);
    }
    modPublic::Liberar();
    conexion.reset();
    return 0;
}
