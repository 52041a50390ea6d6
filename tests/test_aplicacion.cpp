// The standalone host run as a user runs it: exit codes and messages.

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

struct Resultado {
    int codigo = -1;
    QString error;
    QString salida;
};

Resultado ejecutar(const QStringList& argumentos)
{
    QProcess p;
    QProcessEnvironment entorno = QProcessEnvironment::systemEnvironment();
    entorno.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    p.setProcessEnvironment(entorno);
    p.start(QStringLiteral(PRESUPUESTOS_APP), argumentos);
    p.waitForFinished(120000);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, QString::fromUtf8(p.readAllStandardError()),
            QString::fromUtf8(p.readAllStandardOutput())};
}

} // namespace

TEST(Aplicacion, BadDatabasesEndWithAClearMessageAndTheirExitCode)
{
    const Resultado sinFichero = ejecutar({QStringLiteral("--bd"), QStringLiteral("/no/existe/empresa.db")});
    EXPECT_EQ(sinFichero.codigo, 2);
    EXPECT_TRUE(sinFichero.error.contains(QStringLiteral("No se encuentra la base de datos \"/no/existe/empresa.db\"")))
        << sinFichero.error.toStdString();

    QTemporaryDir dir;
    const QString basura = dir.filePath(QStringLiteral("basura.db"));
    QFile f(basura);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(QByteArray(8192, 'x'));
    f.close();
    const Resultado danada = ejecutar({QStringLiteral("--bd"), basura});
    EXPECT_EQ(danada.codigo, 2);
    EXPECT_TRUE(danada.error.contains(QStringLiteral("No se puede abrir la base de datos"))) << danada.error.toStdString();

    const Resultado servidor = ejecutar({QStringLiteral("--odbc"),
                                         QStringLiteral("DRIVER={FreeTDS};SERVER=127.0.0.1;PORT=1;DATABASE=x;UID=u;PWD=p")});
    EXPECT_EQ(servidor.codigo, 2);
    EXPECT_TRUE(servidor.error.contains(QStringLiteral("SQL Server")) || servidor.error.contains(QStringLiteral("ODBC")))
        << servidor.error.toStdString();
}

TEST(Aplicacion, GeneratesTheDemoAndRendersTheLoadedWorksheet)
{
    QTemporaryDir dir;
    const QString bd = dir.filePath(QStringLiteral("demo.db"));
    EXPECT_EQ(ejecutar({QStringLiteral("generar-demo"), QStringLiteral("--bd"), bd}).codigo, 0);
    EXPECT_TRUE(QFileInfo::exists(dir.filePath(QStringLiteral("Pelvor.db"))));

    const Resultado otraEmpresa = ejecutar({QStringLiteral("--bd"), bd, QStringLiteral("--empresa"), QStringLiteral("7")});
    EXPECT_EQ(otraEmpresa.codigo, 3);
    EXPECT_TRUE(otraEmpresa.error.contains(QStringLiteral("No existe la empresa 7")));

    const QString png = dir.filePath(QStringLiteral("hoja.png"));
    const Resultado captura = ejecutar({QStringLiteral("--bd"), bd, QStringLiteral("--captura"), png});
    EXPECT_EQ(captura.codigo, 0) << captura.error.toStdString();
    EXPECT_EQ(captura.salida.trimmed(), png);
    const QImage imagen(png);
    EXPECT_GE(imagen.width(), 800);
    EXPECT_GE(imagen.height(), 500);
}
