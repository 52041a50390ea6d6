// Importing a large workbook (65,000 rows by default, the most an .xls
// sheet holds) into an SQLite file, against: reading the workbook alone,
// the bare database upserts of the same rows, and a spreadsheet program
// turning the same file into CSV (Gnumeric's ssconvert or LibreOffice, when
// installed; skipped otherwise).
//
//   presupuestos_bench_importar [--filas 65000]

#include "Medida.h"
#include "db/Conexion.h"
#include "db/schema/Esquema.h"
#include "host/Empresa.h"
#include "host/modPublic.h"
#include "import/readers/LectorLibro.h"
#include "import/clsImportar.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTextStream>
#include <optional>
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

// The import's own statements, fed from memory: what the database costs
// without any workbook behind it.
double upsertsDesnudos(const std::vector<Fila>& filas)
{
    Comando update(modPublic::ConexionActiva);
    Comando insert(modPublic::ConexionActiva);
    QString asignaciones, columnas;
    for (int i = 1; i <= 12; ++i) {
        for (Comando* c : {&update, &insert})
            c->agregarParametro(QStringLiteral("M%1").arg(i), TipoParametro::Moneda);
        asignaciones += QStringLiteral(", M%1 = ?").arg(i);
        columnas += QStringLiteral(", M%1").arg(i);
    }
    for (Comando* c : {&update, &insert}) {
        c->agregarParametro(QStringLiteral("Cuenta"), TipoParametro::Texto, 20);
        c->agregarParametro(QStringLiteral("Dpto"), TipoParametro::Entero);
        c->setPrepared(true);
    }
    update.setCommandText(QStringLiteral("UPDATE Presupuestos SET ") + asignaciones.mid(1)
                          + QStringLiteral(" WHERE Cod_Empresa = 1 AND Cod_Ejercicio = 2027 AND Cuenta = ? AND Dpto= ? "));
    insert.setCommandText(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio") + columnas
                          + QStringLiteral(", Cuenta, Dpto) VALUES ( 1,2027, ?,?,?,?,?,?,?,?,?,?,?,?,?,?)"));
    QElapsedTimer t;
    t.start();
    modPublic::ConexionActiva->BeginTrans();
    for (const Fila& f : filas) {
        for (int k = 0; k < 12; ++k) {
            update.setValor(k, f.meses[k]);
            insert.setValor(k, f.meses[k]);
        }
        for (Comando* c : {&update, &insert}) {
            c->setValor(12, f.cuenta);
            c->setValor(13, QVariant(f.dpto));
        }
        if (update.Execute() == 0)
            insert.Execute();
    }
    modPublic::ConexionActiva->CommitTrans();
    return ms(t);
}

double importar(const QString& libro, qint32* importadas)
{
    clsImportar imp;
    imp.setPrimeraFilaDatos(2);
    imp.setPrimeraColumnaDatos(3);
    QObject::connect(&imp, &clsImportar::ImportCompleted, [importadas](qint32 n) { *importadas = n; });
    QElapsedTimer t;
    t.start();
    imp.ImportarDesdeExcel(libro);
    return ms(t);
}

// A spreadsheet program converting the workbook to CSV; empty when none is installed.
std::optional<std::pair<QString, double>> programaExterno(const QString& libro, const QString& carpeta)
{
    struct Programa {
        QString nombre;
        QStringList args;
    };
    const QString csv = carpeta + QStringLiteral("/libro.csv");
    for (const Programa& p : {Programa{QStringLiteral("ssconvert"), {libro, csv}},
                              Programa{QStringLiteral("soffice"),
                                       {QStringLiteral("--headless"), QStringLiteral("--convert-to"), QStringLiteral("csv"),
                                        QStringLiteral("--outdir"), carpeta, libro}}}) {
        const QString ruta = QStandardPaths::findExecutable(p.nombre);
        if (ruta.isEmpty())
            continue;
        QProcess proc;
        proc.setProcessChannelMode(QProcess::MergedChannels);
        QElapsedTimer t;
        t.start();
        proc.start(ruta, p.args);
        if (!proc.waitForFinished(-1) || proc.exitCode() != 0 || !QFileInfo::exists(csv)) {
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

    auto conexion = Conexion::abrirSqlite(dir.filePath(QStringLiteral("bench.db")));
    Esquema::crearGestion(*conexion);
    conexion->setRegistroActivo(false);
    modPublic::ConexionActiva = conexion;
    modPublic::EmpresaActiva = std::make_shared<EmpresaFija>(1, 2026);
    modPublic::EjercicioActivo = 2027;

    t.restart();
    const auto hoja = LectorXlsx::leerFichero(libro);
    const double lectura = ms(t);
    salida << "Read the sheet alone:          " << qRound(lectura) << " ms (" << hoja->numeroCeldas() << " cells)\n";

    qint32 importadas = 0;
    const double importInsert = importar(libro, &importadas);
    salida << "Import, every row new:         " << qRound(importInsert) << " ms (" << importadas << " rows, "
           << qRound(importadas / (importInsert / 1000)) << " rows/s)\n";
    const double importUpdate = importar(libro, &importadas);
    salida << "Import again, every row there: " << qRound(importUpdate) << " ms\n";

    conexion->Execute(QStringLiteral("DELETE FROM Presupuestos"));
    const double bareInsert = upsertsDesnudos(filas);
    const double bareUpdate = upsertsDesnudos(filas);
    salida << "Bare upserts, inserting:       " << qRound(bareInsert) << " ms\n";
    salida << "Bare upserts, updating:        " << qRound(bareUpdate) << " ms\n";
    salida << "Ratio import / bare upserts:   " << QString::number(importInsert / bareInsert, 'f', 2) << " (new rows), "
           << QString::number(importUpdate / bareUpdate, 'f', 2) << " (existing rows)\n";
    salida << "Reading share of the import:   " << QString::number(100 * lectura / importInsert, 'f', 1) << " %\n";

    if (const auto externo = programaExterno(libro, dir.path())) {
        salida << externo->first << " to CSV:              " << qRound(externo->second) << " ms\n";
        salida << "Ratio import / " << externo->first << ":       " << QString::number(importInsert / externo->second, 'f', 2)
               << "; reading alone / " << externo->first << ": " << QString::number(lectura / externo->second, 'f', 2) << "\n";
    } else {
        salida << "No spreadsheet program (ssconvert, soffice) installed: comparison skipped\n";
    }
    salida.flush();
    modPublic::Liberar();
    return 0;
}
