// Importing a large workbook (65,000 rows by default, the most an .xls
// sheet holds) into an SQLite file, against the floor of the same work: the
// sheet inflated with libzip and scanned by hand for its cells, numbers read
// with std::from_chars, and the import's own statements (taken from the
// connection's log, in the form SQLite receives them) prepared once and
// bound through the SQLite C API, in one transaction, on a copy of the
// database as it stood before the import. LibreOffice turning the same file
// into CSV is timed too when it is installed.
//
//   presupuestos_bench_importar [--filas 65000]

#include "Medida.h"
#include "SqliteDesnudo.h"
#include "db/Conexion.h"
#include "db/schema/Esquema.h"
#include "export/ExportadorLibro.h"
#include "import/readers/LectorLibro.h"
#include "import/clsImportar.h"
#include "sesion/Sesion.h"
#include "store/Diario.h"
#include "store/clsDBPresupuesto.h"

#include <algorithm>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTextStream>
#include <zip.h>

#include <charconv>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using namespace presupuestos;
using namespace presupuestos::medida;

namespace {

QTextStream salida(stdout);


struct Fila {
    QString cuenta;
    int dpto;
    Currency meses[12];
};

// The rows of the workbook: laid out from column C, first data row 2.
std::vector<Fila> filasDePrueba(int n)
{
    std::vector<Fila> filas;
    filas.reserve(static_cast<std::size_t>(n));
    for (int r = 0; r < n; ++r) {
        Fila f;
        f.cuenta = QString::number(60000000 + r);
        f.dpto = r % 20 + 1;
        for (int m = 0; m < 12; ++m)
            f.meses[m] = Currency::fromRaw((static_cast<qint64>(r) * 7919 + m * 104729) % 100000000 - 2000000);
        filas.push_back(f);
    }
    return filas;
}

QString escribirLibro(const std::vector<Fila>& filas, const QString& ruta)
{
    QByteArray d = "1: Categoría;Nombre;Dpto;Cuenta;Ene;Feb;Mar;Abr;May;Jun;Jul;Ago;Sep;Oct;Nov;Dic\n";
    int r = 2;
    for (const Fila& f : filas) {
        QString linea = QStringLiteral("%1: Cat %2;Cuenta %3;%4;%3").arg(r).arg(f.dpto).arg(f.cuenta).arg(f.dpto);
        for (const Currency& m : f.meses)
            linea += QLatin1Char(';') + m.toSqlText();
        d += linea.toUtf8() + '\n';
        ++r;
    }
    QProcess p;
    p.start(QStringLiteral(PRESUPUESTOS_GENERAR_LIBRO), {QStringLiteral("--constante"), ruta});
    p.waitForStarted();
    p.write(d);
    p.closeWriteChannel();
    p.waitForFinished(-1);
    if (p.exitCode() != 0)
        qFatal("generar_libro: %s", p.readAllStandardError().constData());
    return ruta;
}

// ---- The floor ---------------------------------------------------------------

std::string inflar(zip_t* z, const char* nombre)
{
    zip_stat_t st;
    if (zip_stat(z, nombre, 0, &st) != 0)
        return {};
    std::string datos(static_cast<std::size_t>(st.size), '\0');
    zip_file_t* f = zip_fopen(z, nombre, 0);
    if (!f || zip_fread(f, datos.data(), st.size) != static_cast<zip_int64_t>(st.size))
        qFatal("libzip: cannot read %s", nombre);
    zip_fclose(f);
    return datos;
}

// The text of the first <t> runs inside an element, joined.
std::string textoEnlinea(std::string_view xml)
{
    std::string t;
    std::size_t p = 0;
    while ((p = xml.find("<t", p)) != std::string_view::npos) {
        const std::size_t abre = xml.find('>', p);
        const std::size_t cierra = xml.find("</t>", abre);
        if (abre == std::string_view::npos || cierra == std::string_view::npos)
            break;
        if (xml[abre - 1] != '/')
            t.append(xml.substr(abre + 1, cierra - abre - 1));
        p = cierra + 4;
    }
    return t;
}

struct CeldaLeida {
    std::string_view valor; // the raw <v> text, or a shared or inline string
    bool hay = false;
};

// One sheet row as the import reads it: department in C, account in D and
// the twelve months in E..P.
struct FilaLeida {
    int numero = 0;
    CeldaLeida celdas[14];
    void limpiar() { for (auto& c : celdas) c = {}; }
};

class SueloImportacion {
public:
    SueloImportacion(SqliteDesnudo& db, const std::string& update, const std::string& insert) : db_(db)
    {
        if (sqlite3_prepare_v2(db.handle(), update.c_str(), -1, &update_, nullptr) != SQLITE_OK)
            db.fallar(update);
        if (sqlite3_prepare_v2(db.handle(), insert.c_str(), -1, &insert_, nullptr) != SQLITE_OK)
            db.fallar(insert);
    }
    ~SueloImportacion()
    {
        sqlite3_finalize(update_);
        sqlite3_finalize(insert_);
    }

    // Binds the row to both statements in the order the import declares
    // its parameters: M1..M12, Cuenta, Dpto. Update, insert when the update
    // touched nothing.
    void guardar(const FilaLeida& f)
    {
        if (!f.celdas[0].hay || f.celdas[0].valor.empty())
            return;
        for (sqlite3_stmt* st : {update_, insert_}) {
            for (int k = 0; k < 12; ++k) {
                const CeldaLeida& c = f.celdas[2 + k];
                double v = 0;
                if (c.hay)
                    std::from_chars(c.valor.data(), c.valor.data() + c.valor.size(), v);
                sqlite3_bind_double(st, k + 1, v);
            }
            sqlite3_bind_text(st, 13, f.celdas[1].valor.data(), static_cast<int>(f.celdas[1].valor.size()), SQLITE_STATIC);
            double dpto = 0;
            std::from_chars(f.celdas[0].valor.data(), f.celdas[0].valor.data() + f.celdas[0].valor.size(), dpto);
            sqlite3_bind_int(st, 14, static_cast<int>(dpto));
        }
        db_.pasos(update_, "update");
        if (sqlite3_changes(db_.handle()) == 0)
            db_.pasos(insert_, "insert");
        ++filas_;
    }
    int filas() const { return filas_; }

private:
    SqliteDesnudo& db_;
    sqlite3_stmt* update_ = nullptr;
    sqlite3_stmt* insert_ = nullptr;
    int filas_ = 0;
};

// Column number (A = 1) and row of a cell reference such as "AB12".
inline void referencia(std::string_view r, int& col, int& fila)
{
    col = 0;
    std::size_t i = 0;
    for (; i < r.size() && r[i] >= 'A' && r[i] <= 'Z'; ++i)
        col = col * 26 + (r[i] - 'A' + 1);
    std::from_chars(r.data() + i, r.data() + r.size(), fila);
}

inline std::string_view atributo(std::string_view etiqueta, std::string_view nombre)
{
    std::size_t p = 0;
    while ((p = etiqueta.find(nombre, p)) != std::string_view::npos) {
        if ((p == 0 || etiqueta[p - 1] == ' ') && p + nombre.size() + 1 < etiqueta.size()
            && etiqueta[p + nombre.size()] == '=') {
            const char comilla = etiqueta[p + nombre.size() + 1];
            const std::size_t inicio = p + nombre.size() + 2;
            const std::size_t fin = etiqueta.find(comilla, inicio);
            return etiqueta.substr(inicio, fin - inicio);
        }
        p += nombre.size();
    }
    return {};
}

struct TiemposSuelo {
    double lectura = 0; // inflating and scanning alone
    double total = 0;   // inflating, scanning and storing, one transaction
    int filas = 0;
};

// The whole floor: libzip, a hand scan of <c> elements, and the upserts.
// With no database it only reads.
TiemposSuelo sueloImportar(const QString& libro, SqliteDesnudo* db, const std::vector<std::string>& textos)
{
    TiemposSuelo r;
    const auto t0 = std::chrono::steady_clock::now();
    int error = 0;
    zip_t* z = zip_open(libro.toUtf8().constData(), ZIP_RDONLY, &error);
    if (!z)
        qFatal("libzip: cannot open the workbook (%d)", error);
    const std::string hoja = inflar(z, "xl/worksheets/sheet1.xml");
    const std::string compartidas = inflar(z, "xl/sharedStrings.xml");
    zip_close(z);
    std::vector<std::string> tabla;
    for (std::size_t p = 0; (p = compartidas.find("<si>", p)) != std::string::npos;) {
        const std::size_t fin = compartidas.find("</si>", p);
        tabla.push_back(textoEnlinea(std::string_view(compartidas).substr(p, fin - p)));
        p = fin;
    }

    std::optional<SueloImportacion> guardar;
    if (db) {
        db->ejecutar("BEGIN TRANSACTION");
        guardar.emplace(*db, textos[0], textos[1]);
    }
    std::deque<std::string> enLinea; // inline texts of the current row: a deque keeps them in place
    FilaLeida fila;
    const std::string_view xml(hoja);
    std::size_t p = 0;
    int celdas = 0;
    while ((p = xml.find("<c ", p)) != std::string_view::npos) {
        const std::size_t finEtiqueta = xml.find('>', p);
        const std::string_view etiqueta = xml.substr(p + 3, finEtiqueta - p - 3);
        int col = 0, numero = 0;
        referencia(atributo(etiqueta, "r"), col, numero);
        if (numero != fila.numero) {
            if (guardar && fila.numero >= 2)
                guardar->guardar(fila);
            fila.limpiar();
            enLinea.clear();
            fila.numero = numero;
        }
        p = finEtiqueta + 1;
        if (xml[finEtiqueta - 1] == '/')
            continue;
        const std::size_t cierre = xml.find("</c>", p);
        const std::string_view cuerpo = xml.substr(p, cierre - p);
        p = cierre + 4;
        ++celdas;
        if (col < 3 || col > 16)
            continue;
        CeldaLeida& c = fila.celdas[col - 3];
        const std::string_view tipo = atributo(etiqueta, "t");
        if (tipo == "inlineStr") {
            enLinea.push_back(textoEnlinea(cuerpo));
            c.valor = enLinea.back();
            c.hay = true;
            continue;
        }
        const std::size_t v = cuerpo.find("<v>");
        if (v == std::string_view::npos)
            continue;
        const std::string_view valor = cuerpo.substr(v + 3, cuerpo.find("</v>", v) - v - 3);
        if (tipo == "s") {
            std::size_t i = 0;
            std::from_chars(valor.data(), valor.data() + valor.size(), i);
            c.valor = tabla.at(i);
        } else {
            c.valor = valor;
        }
        c.hay = true;
    }
    if (guardar && fila.numero >= 2)
        guardar->guardar(fila);
    r.lectura = msDesde(t0);
    if (db) {
        r.filas = guardar->filas();
        guardar.reset();
        // The import checks the year's totals before committing; so does the floor.
        db->ejecutar(textos[2]);
        db->ejecutar("COMMIT TRANSACTION");
    } else {
        r.filas = celdas;
    }
    r.total = msDesde(t0);
    return r;
}

double importar(Sesion& sesion, const QString& libro, qint32* importadas, Diario* diario = nullptr)
{
    clsImportar imp(sesion);
    imp.setDiario(diario);
    imp.setPrimeraFilaDatos(2);
    imp.setPrimeraColumnaDatos(3);
    QObject::connect(&imp, &clsImportar::ImportCompleted, [importadas](qint32 n) { *importadas = n; });
    QElapsedTimer t;
    t.start();
    imp.ImportarDesdeExcel(libro);
    return ms(t);
}

// A spreadsheet program converting the workbook to CSV; empty when none is
// installed. LibreOffice is tried first: its figure has a ratio line.
std::optional<std::pair<QString, double>> programaExterno(const QString& libro, const QString& carpeta)
{
    struct Programa {
        QString nombre;
        QStringList args;
        QString csv;
    };
    const QString salidaCsv = carpeta + QStringLiteral("/externo");
    QDir().mkpath(salidaCsv);
    const QString base = salidaCsv + QLatin1Char('/') + QFileInfo(libro).completeBaseName() + QStringLiteral(".csv");
    for (const Programa& p : {Programa{QStringLiteral("soffice"),
                                       {QStringLiteral("--headless"), QStringLiteral("--convert-to"), QStringLiteral("csv"),
                                        QStringLiteral("--outdir"), salidaCsv, libro},
                                       base},
                              Programa{QStringLiteral("ssconvert"), {libro, salidaCsv + QStringLiteral("/libro.csv")},
                                       salidaCsv + QStringLiteral("/libro.csv")}}) {
        const QString ruta = QStandardPaths::findExecutable(p.nombre);
        if (ruta.isEmpty())
            continue;
        QProcess proc;
        proc.setProcessChannelMode(QProcess::MergedChannels);
        QElapsedTimer t;
        t.start();
        proc.start(ruta, p.args);
        if (!proc.waitForFinished(-1) || proc.exitCode() != 0 || !QFileInfo::exists(p.csv)) {
            salida << "  " << p.nombre << " failed: " << proc.readAll().trimmed() << "\n";
            continue;
        }
        return std::make_pair(p.nombre, ms(t));
    }
    return std::nullopt;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int n = argumento(app.arguments(), QStringLiteral("--filas"), 65000);
    QTemporaryDir dir;
    const std::vector<Fila> filas = filasDePrueba(n);

    QElapsedTimer t;
    t.start();
    const QString libro = escribirLibro(filas, dir.filePath(QStringLiteral("presupuesto.xlsx")));
    salida << "Workbook: " << n << " rows, " << QFileInfo(libro).size() / 1024 << " KiB (written in " << qRound(ms(t)) << " ms)\n";

    const QString fichero = dir.filePath(QStringLiteral("bench.db"));
    auto conexion = Conexion::abrirSqlite(fichero);
    Esquema::crearGestion(*conexion);
    Sesion sesion{std::make_shared<EmpresaFija>(1, 2026), conexion, 2027};
    const QString copia = dir.filePath(QStringLiteral("suelo.db"));
    copiarBaseDatos(fichero, copia);
    conexion->limpiarRegistro();

    t.restart();
    const auto hoja = LectorXlsx::leerFichero(libro);
    const double lectura = ms(t);
    salida << "Read the sheet alone:          " << qRound(lectura) << " ms (" << hoja->numeroCeldas() << " cells)\n";

    qint32 importadas = 0;
    const double importInsert = importar(sesion, libro, &importadas);
    salida << "Import, every row new:         " << qRound(importInsert) << " ms (" << importadas << " rows, "
           << qRound(importadas / (importInsert / 1000)) << " rows/s)\n";
    // The import's update, insert and totals check, as SQLite receives them.
    std::vector<std::string> textos(3);
    for (const QString& sql : conexion->registro()) {
        const int i = sql.startsWith(QLatin1String("UPDATE")) ? 0 : sql.startsWith(QLatin1String("INSERT")) ? 1
                      : sql.startsWith(QLatin1String("SELECT"))                                             ? 2
                                                                                                            : -1;
        if (i >= 0 && textos[static_cast<std::size_t>(i)].empty())
            textos[static_cast<std::size_t>(i)] = conexion->adaptar(sql).toStdString();
    }
    for (const std::string& texto : textos)
        if (texto.empty())
            qFatal("the import's statements are not in the connection's log");
    conexion->setRegistroActivo(false);
    const double importUpdate = importar(sesion, libro, &importadas);
    salida << "Import again, every row there: " << qRound(importUpdate) << " ms\n";

    const TiemposSuelo soloLeer = sueloImportar(libro, nullptr, textos);
    salida << "Floor, reading alone:          " << qRound(soloLeer.lectura) << " ms (" << soloLeer.filas
           << " cells; libzip + hand scan + from_chars)\n";
    TiemposSuelo sueloInsert, sueloUpdate;
    bool mismoResultado = false;
    {
        SqliteDesnudo db(copia);
        sueloInsert = sueloImportar(libro, &db, textos);
        sueloUpdate = sueloImportar(libro, &db, textos);
        // The floor must have stored what the import stored.
        const char* resumen = "SELECT COUNT(*), SUM(Dpto), TOTAL(M1 + M2 + M3 + M4 + M5 + M6 + M7 + M8 + M9 + M10 + M11 + M12)"
                              " FROM Presupuestos";
        sqlite3_stmt* st = nullptr;
        sqlite3_prepare_v2(db.handle(), resumen, -1, &st, nullptr);
        Recordset rs = conexion->Abrir(QString::fromLatin1(resumen));
        if (sqlite3_step(st) == SQLITE_ROW)
            mismoResultado = sqlite3_column_int64(st, 0) == rs.campo(0).toLongLong()
                             && sqlite3_column_int64(st, 1) == rs.campo(1).toLongLong()
                             && qAbs(sqlite3_column_double(st, 2) - rs.campo(2).toDouble()) < 0.5;
        rs.Close();
        sqlite3_finalize(st);
    }
    salida << "Floor, every row new:          " << qRound(sueloInsert.total) << " ms (" << sueloInsert.filas
           << " rows: the sheet read as above, the import's update and, where it touched nothing, its insert, each prepared"
              " once and bound, then its totals check, in one transaction; totals check and commit "
           << qRound(sueloInsert.total - sueloInsert.lectura) << " ms of it)\n";
    salida << "Floor, every row there:        " << qRound(sueloUpdate.total) << " ms; stored rows "
           << (mismoResultado ? "same as the import's" : "DIFFERENT from the import's") << "\n";
    salida << "Ratio import / floor:          " << QString::number(importInsert / sueloInsert.total, 'f', 2)
           << " (new rows), " << QString::number(importUpdate / sueloUpdate.total, 'f', 2) << " (existing rows)\n";
    salida << "Reading share of the import:   " << QString::number(100 * lectura / importInsert, 'f', 1) << " %\n";

    const auto externo = programaExterno(libro, dir.path());
    if (externo) {
        salida << externo->first << " to CSV:              " << qRound(externo->second) << " ms\n";
        salida << "Ratio import / " << externo->first << ":       " << QString::number(importInsert / externo->second, 'f', 2)
               << "; reading alone / " << externo->first << ": " << QString::number(lectura / externo->second, 'f', 2) << "\n";
    } else {
        salida << "No spreadsheet program (ssconvert, soffice) installed: comparison skipped\n";
    }
    // ---- The change journal: what it adds to an import, and its undo ----
    // Each round imports into two empty databases of their own, one without
    // the journal and one with it, the second then undone (which takes every
    // new row away again); the medians of five rounds are compared, so that
    // neither side has the process's first, colder run to itself.
    double conDiario = 0, sinDiario = 0, deshacer = 0;
    {
        std::vector<double> con, sin, des;
        for (int ronda = 0; ronda < 5; ++ronda) {
            for (const bool conJournal : {false, true}) {
                const QString otro =
                    dir.filePath(QStringLiteral("diario%1%2.db").arg(ronda).arg(conJournal ? QStringLiteral("c") : QStringLiteral("s")));
                auto c2 = Conexion::abrirSqlite(otro);
                Esquema::crearGestion(*c2);
                Sesion otra{sesion.empresa, c2, sesion.ejercicio};
                c2->setRegistroActivo(false);
                if (!conJournal) {
                    sin.push_back(importar(otra, libro, &importadas));
                    continue;
                }
                Diario diario(c2, 1);
                clsDBPresupuesto store(otra);
                store.setDiario(&diario);
                con.push_back(importar(otra, libro, &importadas, &diario));
                t.restart();
                diario.deshacer([&store](const QString& cuenta, qint16 dpto, qint16 ejercicio, const Diario::Imagen& imagen) {
                    store.Restaurar(cuenta, dpto, ejercicio, imagen);
                });
                des.push_back(ms(t));
                Recordset rs = c2->Abrir(QStringLiteral("SELECT COUNT(*) FROM Presupuestos"));
                if (rs.campo(0).toLongLong() != 0)
                    qFatal("the import's undo left rows behind");
                rs.Close();
            }
        }
        const auto mediana = [](std::vector<double> v) {
            std::sort(v.begin(), v.end());
            return v[v.size() / 2];
        };
        conDiario = mediana(con);
        sinDiario = mediana(sin);
        deshacer = mediana(des);
        salida << "Import with the change journal: " << qRound(conDiario) << " ms (without it " << qRound(sinDiario)
               << " ms, medians of 5); its undo: " << qRound(deshacer) << " ms\n";
    }

    // ---- The export: 40,000 rows out, against importing that workbook ----
    // The same rows written the way the worksheet exports them, then
    // imported from that file into an empty database of their own.
    double exportar = 0, importarExportado = 0;
    {
        const int nExport = argumento(app.arguments(), QStringLiteral("--filas-exportacion"), 40000);
        std::vector<HojaLibro> hojas{{QStringLiteral("Presupuesto 2027"), true, {}}};
        for (const Fila& f : filasDePrueba(nExport)) {
            FilaLibro l;
            l.dpto = f.dpto;
            l.cuenta = f.cuenta;
            l.nombre = QStringLiteral("Cuenta ") + f.cuenta;
            l.dptoNombre = QStringLiteral("Tienda %1").arg(f.dpto);
            for (int m = 0; m < 12; ++m)
                l.meses[static_cast<std::size_t>(m)] = f.meses[m];
            hojas.front().filas.push_back(l);
        }
        const QString salidaLibro = dir.filePath(QStringLiteral("exportado.xlsx"));
        t.restart();
        ExportadorLibro::escribir(salidaLibro, hojas);
        exportar = ms(t);
        auto c3 = Conexion::abrirSqlite(dir.filePath(QStringLiteral("exportado.db")));
        Esquema::crearGestion(*c3);
        c3->setRegistroActivo(false);
        Sesion exportada{sesion.empresa, c3, sesion.ejercicio};
        clsImportar imp(exportada);
        imp.setPrimeraFilaDatos(2);
        imp.setPrimeraColumnaDatos(1);
        t.restart();
        imp.ImportarDesdeExcel(salidaLibro);
        importarExportado = ms(t);
        salida << "Export of " << nExport << " rows:          " << qRound(exportar) << " ms ("
               << QFileInfo(salidaLibro).size() / 1024 << " KiB); importing that workbook: " << qRound(importarExportado)
               << " ms\n";
    }

    salida << "ratio import_vs_floor " << QString::number(importInsert / sueloInsert.total, 'f', 3) << "\n";
    salida << "ratio import_journal_overhead " << QString::number(conDiario / sinDiario, 'f', 3) << "\n";
    salida << "ratio import_undo_vs_import " << QString::number(deshacer / conDiario, 'f', 3) << "\n";
    salida << "ratio export_vs_import " << QString::number(exportar / importarExportado, 'f', 3) << "\n";
    if (externo && externo->first == QLatin1String("soffice"))
        salida << "ratio import_vs_libreoffice " << QString::number(importInsert / externo->second, 'f', 3) << "\n";
    salida.flush();
    return 0;
}
