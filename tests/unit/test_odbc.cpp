// What SQL Server receives through Qt's ODBC driver, read in unixODBC's
// trace: a local data source on SQLite's ODBC driver stands in for the
// server, since what is traced is what Qt hands the driver manager.
#include "calculation/clsPresupItem.h"
#include "db/Conexion.h"
#include "db/schema/Esquema.h"
#include "sesion/Sesion.h"
#include "store/clsDBPresupuesto.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace presupuestos;

namespace {

QString controladorSqliteOdbc()
{
    for (const QString& d : QDir(QStringLiteral("/usr/lib")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QString f = QStringLiteral("/usr/lib/%1/odbc/libsqlite3odbc.so").arg(d);
        if (QFile::exists(f))
            return f;
    }
    return QFile::exists(QStringLiteral("/usr/lib/odbc/libsqlite3odbc.so")) ? QStringLiteral("/usr/lib/odbc/libsqlite3odbc.so") : QString();
}

// A call of the trace: its function and its entry's "name = value" lines.
struct Llamada {
    QString funcion;
    QHash<QString, QString> campos;
};

std::vector<Llamada> leerTraza(const QString& fichero)
{
    QFile f(fichero);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    static const QRegularExpression cabecera(QStringLiteral(R"(^\[ODBC\]\[[^\]]*\]\[[^\]]*\]\[(\w+)\.c\])"));
    static const QRegularExpression campo(QStringLiteral(R"(^\s+([A-Za-z][A-Za-z ]*?) = (.*)$)"));
    std::vector<Llamada> r;
    bool entrada = false;
    for (const QString& linea : QString::fromUtf8(f.readAll()).split(QLatin1Char('\n'))) {
        if (const auto m = cabecera.match(linea); m.hasMatch()) {
            r.push_back({m.captured(1), {}});
            continue;
        }
        if (linea.trimmed() == QLatin1String("Entry:"))
            entrada = true;
        else if (linea.trimmed() == QLatin1String("Exit:"))
            entrada = false;
        else if (const auto m = campo.match(linea); m.hasMatch() && entrada && !r.empty())
            r.back().campos.insert(m.captured(1), m.captured(2));
    }
    return r;
}

} // namespace

TEST(Odbc, PreparedCommandsReachTheDriverWithPositionalMarkersAndMoneyAsExactText)
{
    const QString controlador = controladorSqliteOdbc();
    ASSERT_FALSE(controlador.isEmpty()) << "Falta el controlador ODBC de SQLite (paquete libsqliteodbc): scripts/install-deps";
    QTemporaryDir dir;
    const QString traza = dir.filePath(QStringLiteral("traza.log"));
    {
        QFile ini(dir.filePath(QStringLiteral("odbcinst.ini")));
        ASSERT_TRUE(ini.open(QIODevice::WriteOnly));
        ini.write(QStringLiteral("[ODBC]\nTrace = Yes\nTraceFile = %1\n").arg(traza).toUtf8());
    }
    // The driver manager reads where to trace when its first environment is made.
    qputenv("ODBCSYSINI", QFile::encodeName(dir.path()));
    // The tables are SQLite's, made by SQLite; the composed texts go to them
    // through the driver as they would go to SQL Server.
    Esquema::crearGestion(*Conexion::abrirSqlite(dir.filePath(QStringLiteral("p.db"))));
    auto c = Conexion::abrirOdbc(QStringLiteral("DRIVER=%1;Database=%2").arg(controlador, dir.filePath(QStringLiteral("p.db"))));
    {
        const Sesion sesion{std::make_shared<EmpresaFija>(1, 2026), c, 2027};
        clsDBPresupuesto store(sesion);
        clsPresupItem item;
        item.Cuenta = QStringLiteral("70000001");
        item.Dpto = 1;
        // Amounts a double cannot hold to the ten-thousandth; January's
        // parameter of the update is a whole number.
        item.setMes(0, Currency::fromRaw(12345678));
        for (int m = 1; m < 12; ++m)
            item.setMes(m, Currency::fromRaw(9223372036854775807LL - m));
        item.Valor = Currency::fromRaw(1);
        store.Actualizar(item);   // the update finds nothing: the insert follows
        store.Actualizar(item);
        store.SetVisible(item.Cuenta, item.Dpto, false);
        // A name Qt's named markers would take for one of theirs.
        c->Execute(QStringLiteral("CREATE TABLE Marcas ([a:b] INT, Importe MONEY)"));
        Comando marcas(c);
        marcas.setCommandText(QStringLiteral("INSERT INTO Marcas ([a:b], Importe) VALUES (?, ?)"));
        marcas.agregarParametro(QStringLiteral("a"), TipoParametro::Entero);
        marcas.agregarParametro(QStringLiteral("Importe"), TipoParametro::Moneda);
        marcas.setEntero(0, 1);
        marcas.setValor(1, Currency::fromRaw(1));
        EXPECT_EQ(marcas.Execute(), 1);
        marcas.setValor(1, QVariant());
        EXPECT_EQ(marcas.Execute(), 1);
    }
    const QStringList compuestas(c->registro().begin(), c->registro().end());
    c.reset();

    const auto llamadas = leerTraza(traza);
    ASSERT_FALSE(llamadas.empty()) << "unixODBC no ha escrito la traza en " << traza.toStdString();
    // Each command is prepared as composed, its markers positional: the
    // trace shows the start of each text (up to "...").
    QStringList preparadas;
    for (const Llamada& l : llamadas) {
        if (!l.funcion.startsWith(QLatin1String("SQLPrepare")))
            continue;
        QString t = l.campos.value(QStringLiteral("SQL")).section(QStringLiteral("][length"), 0, 0).mid(1);
        if (t.endsWith(QLatin1String("...")))
            t.chop(3);
        preparadas << t;
        EXPECT_TRUE(std::any_of(compuestas.begin(), compuestas.end(), [&](const QString& s) { return s.startsWith(t); }))
            << t.toStdString();
    }
    for (const char* empieza : {"UPDATE Presupuestos  SET M1 = ?, M2 = ?", "INSERT INTO Presupuestos (", "UPDATE Presupuestos  SET Ver = ?",
                                "INSERT INTO Marcas ([a:b], Importe) VALUES (?, ?)"})
        EXPECT_TRUE(std::any_of(preparadas.begin(), preparadas.end(), [&](const QString& p) { return p.startsWith(QLatin1String(empieza)); }))
            << empieza << "\n" << preparadas.join(QLatin1Char('\n')).toStdString();
    // Amounts go as their exact decimal text, never as a double: SQL Server
    // makes MONEY of the text to the ten-thousandth.
    int textos = 0;
    for (const Llamada& l : llamadas) {
        if (l.funcion != QLatin1String("SQLBindParameter"))
            continue;
        const QString tipoC = l.campos.value(QStringLiteral("C Type"));
        EXPECT_FALSE(tipoC.contains(QLatin1String("DOUBLE")) || tipoC.contains(QLatin1String("FLOAT"))) << tipoC.toStdString();
        textos += tipoC.contains(QLatin1String("CHAR")) ? 1 : 0;
    }
    // Per execution of the row's commands: account and eleven or twelve amounts and the value.
    EXPECT_GE(textos, 3 * 13);
}
