// The standalone host run as a user runs it: exit codes and messages.

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <unistd.h>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QVariant>
#include <gtest/gtest.h>

#include "BaseDatosPrueba.h"

namespace {

// What a run that never ends reports: a blocked host fails its case instead
// of holding up the suite. A crash reports -1.
constexpr int kNoTermina = -2;

struct Resultado {
    int codigo = -1;
    QString error;
    QString salida;
};

// programa: the worksheet unless said; comoOtro: as a user who owns none of
// the test's files (when the tests run as root, who may write anything).
Resultado ejecutar(const QStringList& argumentos, const QString& programa = QStringLiteral(PRESUPUESTOS_APP), bool comoOtro = false)
{
    QProcess p;
    QProcessEnvironment entorno = QProcessEnvironment::systemEnvironment();
    entorno.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    // Whatever a run keeps goes to a folder of its own, not the user's.
    static QTemporaryDir configuracion;
    entorno.insert(QStringLiteral("XDG_CONFIG_HOME"), configuracion.path());
    p.setProcessEnvironment(entorno);
    if (comoOtro && ::getuid() == 0)
        p.start(QStringLiteral("setpriv"), QStringList{QStringLiteral("--reuid=nobody"), QStringLiteral("--regid=nogroup"),
                                                       QStringLiteral("--clear-groups"), QStringLiteral("--"), programa}
                                               + argumentos);
    else
        p.start(programa, argumentos);
    int codigo = -1;
    if (!p.waitForFinished(120000)) {
        p.kill();
        p.waitForFinished();
        codigo = kNoTermina;
    } else if (p.exitStatus() == QProcess::NormalExit) {
        codigo = p.exitCode();
    }
    return {codigo, QString::fromUtf8(p.readAllStandardError()), QString::fromUtf8(p.readAllStandardOutput())};
}

// Direct access to a database file, to leave it as a case needs it and to
// look at what a run left in it.
class Fichero {
public:
    explicit Fichero(const QString& ruta)
    {
        db_ = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("prueba_aplicacion"));
        db_.setDatabaseName(ruta);
        db_.open();
    }
    ~Fichero()
    {
        db_.close();
        db_ = QSqlDatabase();
        QSqlDatabase::removeDatabase(QStringLiteral("prueba_aplicacion"));
    }
    void sql(const QString& sentencia)
    {
        QSqlQuery q(db_);
        ASSERT_TRUE(q.exec(sentencia)) << sentencia.toStdString() << ": " << q.lastError().text().toStdString();
    }
    qint64 contar(const QString& consulta)
    {
        QSqlQuery q(db_);
        if (!q.exec(consulta) || !q.next())
            return -1;
        return q.value(0).toLongLong();
    }

private:
    QSqlDatabase db_;
};

QByteArray leer(const QString& ruta)
{
    QFile f(ruta);
    f.open(QIODevice::ReadOnly);
    return f.readAll();
}

// Cases on the demo company: it is generated once, and every case works on
// a copy of its own.
class AplicacionDemo : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        original_ = new QTemporaryDir;
        const Resultado r = ejecutar({"generar-demo", "--bd", original_->filePath("demo.db")});
        ASSERT_EQ(r.codigo, 0) << r.error.toStdString();
    }
    static void TearDownTestSuite()
    {
        delete original_;
        original_ = nullptr;
    }

    // A copy of the demo database, with the retail database beside it, in a
    // folder of its own.
    QString copiaDemo(const QString& carpeta)
    {
        QDir(dir_.path()).mkpath(carpeta);
        const QDir destino(dir_.filePath(carpeta));
        for (const QString& nombre : {QStringLiteral("demo.db"), QStringLiteral("Pelvor.db")})
            EXPECT_TRUE(QFile::copy(original_->filePath(nombre), destino.filePath(nombre)));
        return destino.filePath(QStringLiteral("demo.db"));
    }

    // A file of the case's own folder with exactly these bytes.
    QString escribir(const QString& nombre, const QByteArray& contenido)
    {
        QFile f(dir_.filePath(nombre));
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(contenido);
        return f.fileName();
    }

    QTemporaryDir dir_;
    static QTemporaryDir* original_;
};

QTemporaryDir* AplicacionDemo::original_ = nullptr;

} // namespace

TEST_F(AplicacionDemo, DatabasesThatCannotBeUsedEndWithExitCode2AndSayWhy)
{
    const QString vacio = escribir(QStringLiteral("vacio.db"), QByteArray());
    const QString basura = escribir(QStringLiteral("basura.db"), QByteArray(8192, 'x'));
    const QString texto = escribir(QStringLiteral("notas.db"), QByteArrayLiteral("presupuesto 2027\n"));
    const QString sinPresupuestos = copiaDemo(QStringLiteral("sin_presupuestos"));
    Fichero(sinPresupuestos).sql(QStringLiteral("DROP TABLE Presupuestos"));
    const QString ajena = dir_.filePath(QStringLiteral("ajena.db"));
    Fichero(ajena).sql(QStringLiteral("CREATE TABLE Clientes (Codigo INT)"));

    const struct {
        QString fichero;
        QString mensaje;
    } casos[] = {
        {QStringLiteral("/no/existe/empresa.db"), QStringLiteral("No se encuentra la base de datos \"/no/existe/empresa.db\"")},
        {vacio, QStringLiteral("No se puede abrir la base de datos \"%1\": el fichero está vacío").arg(vacio)},
        {basura, QStringLiteral("No se puede abrir la base de datos \"%1\": no es una base de datos SQLite").arg(basura)},
        {texto, QStringLiteral("No se puede abrir la base de datos \"%1\": no es una base de datos SQLite").arg(texto)},
        {sinPresupuestos, QStringLiteral("\"%1\": no es una base de datos de presupuestos, falta la tabla Presupuestos").arg(sinPresupuestos)},
        {ajena, QStringLiteral("\"%1\": no es una base de datos de presupuestos, falta la tabla Empresas").arg(ajena)},
    };
    for (const auto& caso : casos) {
        SCOPED_TRACE(caso.fichero.toStdString());
        const Resultado r = ejecutar({"--bd", caso.fichero});
        EXPECT_EQ(r.codigo, 2) << r.error.toStdString();
        EXPECT_TRUE(r.error.contains(caso.mensaje)) << r.error.toStdString();
    }
    // Refused, not turned into a database.
    EXPECT_EQ(QFileInfo(vacio).size(), 0);

    // Generating the demo, another file is refused untouched; an empty one is where it goes.
    const Resultado generarEnBasura = ejecutar({"generar-demo", "--bd", basura});
    EXPECT_EQ(generarEnBasura.codigo, 2);
    EXPECT_TRUE(generarEnBasura.error.contains(QStringLiteral("\"%1\": no es una base de datos SQLite").arg(basura)))
        << generarEnBasura.error.toStdString();
    EXPECT_EQ(QFileInfo(basura).size(), 8192);
    // A database of something else gets nothing written into it either.
    const QByteArray antes = leer(ajena);
    const Resultado generarEnAjena = ejecutar({"generar-demo", "--bd", ajena});
    EXPECT_EQ(generarEnAjena.codigo, 2);
    EXPECT_TRUE(generarEnAjena.error.contains(QStringLiteral("\"%1\": no es una base de datos de presupuestos, falta la tabla Empresas")
                                                  .arg(ajena)))
        << generarEnAjena.error.toStdString();
    EXPECT_EQ(leer(ajena), antes);
    EXPECT_EQ(ejecutar({"generar-demo", "--bd", vacio}).codigo, 0);

    const Resultado servidor = ejecutar({"--odbc", "DRIVER={FreeTDS};SERVER=127.0.0.1;PORT=1;DATABASE=x;UID=u;PWD=p"});
    EXPECT_EQ(servidor.codigo, 2);
    EXPECT_TRUE(servidor.error.contains(QStringLiteral("SQL Server")) || servidor.error.contains(QStringLiteral("ODBC")))
        << servidor.error.toStdString();
}

TEST_F(AplicacionDemo, ACaptureThatCannotBeMadeEndsWithItsExitCodeWithoutWaitingForAnAnswer)
{
    const QString sinCuentas = copiaDemo(QStringLiteral("sin_cuentas"));
    Fichero(sinCuentas).sql(QStringLiteral("DROP TABLE Cuentas"));
    const QString png = dir_.filePath(QStringLiteral("hoja.png"));

    const struct {
        QStringList argumentos;
        int codigo;
        QStringList mensajes;
    } casos[] = {
        {{"--bd", copiaDemo(QStringLiteral("demo")), "--captura", "/no/such/dir/x.png"}, 4,
         {QStringLiteral("No se puede guardar la captura en \"/no/such/dir/x.png\"")}},
        // The worksheet's own error box, title and text, then why the host gives up.
        {{"--bd", sinCuentas, "--captura", png}, 2,
         {"frmActPresupusto:CargarFiltroCuentas", "no such table: Cuentas", "No se puede cargar la hoja"}},
    };
    for (const auto& caso : casos) {
        SCOPED_TRACE(caso.argumentos.join(QLatin1Char(' ')).toStdString());
        const Resultado r = ejecutar(caso.argumentos);
        EXPECT_EQ(r.codigo, caso.codigo) << r.error.toStdString();
        for (const QString& m : caso.mensajes)
            EXPECT_TRUE(r.error.contains(m)) << m.toStdString() << " in: " << r.error.toStdString();
        EXPECT_TRUE(r.salida.isEmpty()) << r.salida.toStdString();
    }
    EXPECT_FALSE(QFileInfo::exists(png));
}

TEST(Aplicacion, NumbersAndCommandsThatAreNotValidAreBadUsage)
{
    QTemporaryDir dir;
    const QString nueva = dir.filePath(QStringLiteral("nueva.db"));
    struct Caso {
        QStringList argumentos;
        QString mensaje;
    };
    std::vector<Caso> casos;
    for (const char* codigo : {"abc", "1x", "2.5", "", "32768", "-32769"})
        casos.push_back({{"--empresa", codigo}, QStringLiteral("El código de empresa \"%1\" no es válido").arg(QLatin1String(codigo))});
    casos.insert(casos.end(), {
        {{"--empresa", "70000", "generar-demo"}, QStringLiteral("El código de empresa \"70000\" no es válido")},
        {{"--cuentas", "muchas", "generar-demo"}, QStringLiteral("El número de cuentas \"muchas\" no es válido")},
        {{"--departamentos", "-3", "generar-demo"}, QStringLiteral("El número de departamentos \"-3\" no es válido")},
        // What no company can be is refused before anything is generated.
        {{"--cuentas", "2147483647", "--departamentos", "2147483647", "generar-demo"},
         QStringLiteral("El número de cuentas \"2147483647\" no es válido: ha de ser un número entero de 0 a ")},
        {{"--departamentos", "32768", "generar-demo"},
         QStringLiteral("El número de departamentos \"32768\" no es válido: ha de ser un número entero de 0 a 32767.")},
        {{"--cuentas", "2000", "--departamentos", "1000", "generar-demo"},
         QStringLiteral("2000 cuentas por 1000 departamentos son 2000000 filas de presupuesto: como mucho se generan 1000000.")},
        // One database at a time.
        {{"--pg", "host=/no/existe"}, QStringLiteral("Indique una sola base de datos")},
        {{"--odbc", "DRIVER=x"}, QStringLiteral("Indique una sola base de datos")},
        {{"--pg", "host=/no/existe", "generar-demo"}, QStringLiteral("Indique una sola base de datos")},
        // Commands: one, and one the program has.
        {{"generar"}, QStringLiteral("La orden «generar» no existe: las órdenes son generar-demo y esquema-sqlserver.")},
        {{"generar-demo", "otra"}, QStringLiteral("Sobra «otra»: se da una sola orden.")},
        {{"esquema-sqlserver", "generar-demo"}, QStringLiteral("Sobra «generar-demo»: se da una sola orden.")},
    });
    for (const auto& caso : casos) {
        SCOPED_TRACE(caso.argumentos.join(QLatin1Char(' ')).toStdString());
        const Resultado r = ejecutar(QStringList{"--bd", nueva} + caso.argumentos);
        EXPECT_EQ(r.codigo, 1) << r.error.toStdString();
        EXPECT_TRUE(r.error.contains(caso.mensaje)) << r.error.toStdString();
    }
    EXPECT_FALSE(QFileInfo::exists(nueva));
}

// The help is the program's own Spanish, Qt's options included.
TEST(Aplicacion, TheHelpSpeaksSpanish)
{
    const Resultado r = ejecutar({QStringLiteral("--help")});
    EXPECT_EQ(r.codigo, 0) << r.error.toStdString();
    EXPECT_TRUE(r.salida.contains(QStringLiteral("-h, --help"))) << r.salida.toStdString();
    EXPECT_TRUE(r.salida.contains(QStringLiteral("Muestra esta ayuda"))) << r.salida.toStdString();
    EXPECT_FALSE(r.salida.contains(QStringLiteral("Displays"))) << r.salida.toStdString();
}

TEST_F(AplicacionDemo, GenerarDemoKeepsACompanyThatIsThereUnlessToldToReplaceIt)
{
    const QString bd = copiaDemo(QStringLiteral("dos_empresas"));
    const QStringList generar{QStringLiteral("generar-demo"), QStringLiteral("--bd"), bd};
    // The demo holds two companies: the second one must come through untouched.
    // Rows the generator never writes, in both databases: only a replacement removes them.
    const QString retail = QFileInfo(bd).dir().filePath(QStringLiteral("Pelvor.db"));
    Fichero(bd).sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1) VALUES (1, 2027, '99999999', 1, 5)"));
    Fichero(retail).sql(QStringLiteral("INSERT INTO Almacen_Acumulados_2 SELECT Cod_Empresa, 1, '2001-01-01', 1, 10, 100 "
                                       "FROM Empresas_Contabilidad WHERE Cod_EmpresaC = 1"));
    const QString extra = QStringLiteral("SELECT Count(*) FROM Presupuestos WHERE Cuenta = '99999999'");
    const QString extraRetail = QStringLiteral("SELECT Count(*) FROM Almacen_Acumulados_2 WHERE Fecha = '2001-01-01'");
    const QString retailEmpresa2 = QStringLiteral("SELECT Count(*) FROM Almacen_Acumulados_2 a JOIN Empresas_Contabilidad e "
                                                  "ON e.Cod_Empresa = a.Cod_Empresa WHERE e.Cod_EmpresaC = 2");
    ASSERT_EQ(Fichero(retail).contar(extraRetail), 1);
    const QString filasEmpresa1 = QStringLiteral("SELECT Count(*) FROM Presupuestos WHERE Cod_Empresa = 1");
    const QString filasEmpresa2 = QStringLiteral("SELECT Count(*) FROM Presupuestos WHERE Cod_Empresa = 2");
    const qint64 antes1 = Fichero(bd).contar(filasEmpresa1);
    const qint64 antes2 = Fichero(bd).contar(filasEmpresa2);
    const qint64 antesRetail2 = Fichero(retail).contar(retailEmpresa2);
    ASSERT_GT(antes2, 0);
    ASSERT_GT(antesRetail2, 0);

    const Resultado negada = ejecutar(generar);
    EXPECT_EQ(negada.codigo, 1);
    EXPECT_TRUE(negada.error.contains(QStringLiteral("ya tiene la empresa 1"))) << negada.error.toStdString();
    EXPECT_TRUE(negada.error.contains(QStringLiteral("--reemplazar"))) << negada.error.toStdString();
    EXPECT_EQ(Fichero(bd).contar(extra), 1);
    EXPECT_EQ(Fichero(retail).contar(extraRetail), 1);
    EXPECT_EQ(Fichero(bd).contar(filasEmpresa1), antes1);

    const Resultado reemplazo = ejecutar(generar + QStringList{QStringLiteral("--reemplazar")});
    EXPECT_EQ(reemplazo.codigo, 0) << reemplazo.error.toStdString();
    EXPECT_EQ(Fichero(bd).contar(extra), 0);
    EXPECT_EQ(Fichero(retail).contar(extraRetail), 0);
    EXPECT_EQ(Fichero(bd).contar(filasEmpresa1), antes1 - 1);
    EXPECT_EQ(Fichero(bd).contar(filasEmpresa2), antes2);
    EXPECT_EQ(Fichero(retail).contar(retailEmpresa2), antesRetail2);
}

TEST(Aplicacion, GeneratesTheDemoAndRendersTheLoadedWorksheet)
{
    QTemporaryDir dir;
    const QString bd = dir.filePath(QStringLiteral("demo.db"));
    EXPECT_EQ(ejecutar({"generar-demo", "--bd", bd}).codigo, 0);
    EXPECT_TRUE(QFileInfo::exists(dir.filePath(QStringLiteral("Pelvor.db"))));

    const Resultado otraEmpresa = ejecutar({"--bd", bd, "--empresa", "7"});
    EXPECT_EQ(otraEmpresa.codigo, 3);
    EXPECT_TRUE(otraEmpresa.error.contains(QStringLiteral("No existe la empresa 7")));

    const QString png = dir.filePath(QStringLiteral("hoja.png"));
    const Resultado captura = ejecutar({"--bd", bd, "--captura", png});
    EXPECT_EQ(captura.codigo, 0) << captura.error.toStdString();
    EXPECT_EQ(captura.salida.trimmed(), png);
    const QImage imagen(png);
    EXPECT_GE(imagen.width(), 800);
    EXPECT_GE(imagen.height(), 500);
    // The company whose year is under way comes with the demo, for tracking.
    const Resultado seguimiento = ejecutar({"--bd", bd, "--empresa", "2", "--seguimiento", "--captura", png});
    EXPECT_EQ(seguimiento.codigo, 0) << seguimiento.error.toStdString();
}

// The same on a PostgreSQL server: the demo goes into the test's own
// database and every user opens it with the same connection string.
TEST(Aplicacion, GeneratesTheDemoOnAServerAndRendersItFromThere)
{
    if (!presupuestos::prueba::BaseDatosPrueba::enPostgres())
        GTEST_SKIP() << "needs a PostgreSQL server: PRESUPUESTOS_PRUEBA_PG is not set (scripts/test sets it for its second run)";
    presupuestos::prueba::BaseDatosPrueba bd;
    const QString servidor = bd.destino.mid(QStringLiteral("postgresql:").size());
    EXPECT_EQ(ejecutar({"generar-demo", "--pg", servidor}).codigo, 0);
    const Resultado otraVez = ejecutar({"generar-demo", "--pg", servidor});
    EXPECT_EQ(otraVez.codigo, 1);
    EXPECT_TRUE(otraVez.error.contains(QStringLiteral("--reemplazar"))) << otraVez.error.toStdString();

    QTemporaryDir dir;
    const QString png = dir.filePath(QStringLiteral("hoja.png"));
    const Resultado captura = ejecutar({"--pg", servidor, "--empresa", "1", "--historico", "--captura", png});
    EXPECT_EQ(captura.codigo, 0) << captura.error.toStdString();
    EXPECT_GE(QImage(png).width(), 800);
    const Resultado sinServidor = ejecutar({"--pg", "host=/no/existe dbname=x"});
    EXPECT_EQ(sinServidor.codigo, 2);
    EXPECT_TRUE(sinServidor.error.contains(QStringLiteral("No se puede conectar con el servidor PostgreSQL"))) << sinServidor.error.toStdString();
}

// A database in a folder this user may not write to, itself read-only:
// it opens as it is (nothing to switch to the write-ahead log, which needs
// a file beside it), shows its figures, and the first write says why it
// cannot be made.
TEST_F(AplicacionDemo, AReadOnlyDatabaseInAReadOnlyFolderOpensAndItsFirstWriteSaysSo)
{
    if (presupuestos::prueba::BaseDatosPrueba::enPostgres())
        GTEST_SKIP() << "a file's permissions";
    // The other user reaches the folder, and writes only its picture.
    QFile::setPermissions(dir_.path(), QFileDevice::Permissions(0x7755));
    const QString bd = copiaDemo(QStringLiteral("solo"));
    QTemporaryDir salida;
    QFile::setPermissions(salida.path(), QFileDevice::Permissions(0x7777));
    const auto lectura = QFileDevice::ReadOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther;
    const auto carpeta = lectura | QFileDevice::ExeOwner | QFileDevice::ExeGroup | QFileDevice::ExeOther;
    for (const QString& f : QDir(QFileInfo(bd).path()).entryList(QDir::Files))
        QFile::setPermissions(QFileInfo(bd).dir().filePath(f), lectura);
    QFile::setPermissions(QFileInfo(bd).path(), carpeta);
    const QString png = salida.filePath(QStringLiteral("hoja.png"));
    const Resultado abierta = ejecutar({"--bd", bd, "--captura", png}, QStringLiteral(PRESUPUESTOS_APP), true);
    EXPECT_EQ(abierta.codigo, 0) << abierta.error.toStdString() << abierta.salida.toStdString();
    EXPECT_TRUE(QFileInfo::exists(png));
    const Resultado escrita = ejecutar({bd, "62800001", "1", "1", "5"}, QStringLiteral(PRESUPUESTOS_OTRO_USUARIO), true);
    EXPECT_NE(escrita.codigo, 0) << escrita.error.toStdString();
    EXPECT_TRUE(escrita.error.contains(QStringLiteral("La base de datos es de solo lectura."))) << escrita.error.toStdString();
    QFile::setPermissions(QFileInfo(bd).path(), carpeta | QFileDevice::WriteOwner);
}

