#include "import/readers/LectorLibro.h"

#include "common/VbError.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <cstring>

namespace presupuestos {

namespace {

constexpr int kFilasXls = 65536;
constexpr int kColumnasXls = 256;
constexpr int kEsperaMs = 120000;

const char* const kPrograma = "presupuestos_lector_xls";

// FreeXL's error codes as the helper reports them (100 + the code's size).
QString motivoFreeXl(int codigo)
{
    switch (codigo) {
    case 1: return QStringLiteral("no se encuentra el archivo");
    case 4: return QStringLiteral("no hay memoria suficiente");
    case 7:
    case 10:
    case 17: return QStringLiteral("el archivo no es un libro de Excel 97-2003");
    case 21: return QStringLiteral("el juego de caracteres del libro no se admite");
    default: return QStringLiteral("el archivo está dañado o incompleto");
    }
}

// Reads the helper's little-endian output, refusing anything that runs short.
class Salida {
public:
    explicit Salida(const QByteArray& datos) : d_(datos) {}
    bool leer(void* p, qsizetype n)
    {
        if (n > d_.size() - pos_)
            return false;
        std::memcpy(p, d_.constData() + pos_, static_cast<std::size_t>(n));
        pos_ += n;
        return true;
    }
    bool u32(quint32& v)
    {
        unsigned char b[4];
        if (!leer(b, 4))
            return false;
        v = b[0] | (b[1] << 8) | (b[2] << 16) | (quint32(b[3]) << 24);
        return true;
    }
    bool texto(QString& t)
    {
        quint32 n = 0;
        if (!u32(n) || n > static_cast<quint64>(d_.size() - pos_))
            return false;
        t = QString::fromUtf8(d_.constData() + pos_, n);
        pos_ += n;
        return true;
    }

private:
    const QByteArray& d_;
    qsizetype pos_ = 0;
};

// Whether a compound file names the stream Office keeps an encrypted
// workbook in (its directory holds the names in UTF-16).
bool cifrado(const QString& ruta)
{
    QFile f(ruta);
    if (!f.open(QIODevice::ReadOnly))
        return false;
    static const QByteArray nombre = [] {
        QByteArray n;
        for (char c : QByteArrayLiteral("EncryptedPackage")) {
            n.append(c);
            n.append('\0');
        }
        return n;
    }();
    return f.readAll().contains(nombre);
}

} // namespace

QString LectorXls::programa()
{
    // Set for the tests, and for installations that keep it elsewhere.
    const QByteArray entorno = qgetenv("PRESUPUESTOS_LECTOR_XLS");
    if (!entorno.isEmpty())
        return QString::fromLocal8Bit(entorno);
    if (QCoreApplication::instance()) {
        const QString junto = QCoreApplication::applicationDirPath() + QLatin1Char('/') + QLatin1String(kPrograma);
        if (QFileInfo(junto).isExecutable())
            return junto;
    }
#ifdef PRESUPUESTOS_LECTOR_XLS_DEFECTO
    return QStringLiteral(PRESUPUESTOS_LECTOR_XLS_DEFECTO);
#else
    return QLatin1String(kPrograma);
#endif
}

std::unique_ptr<HojaExcel> LectorXls::leerFichero(const QString& ruta, const LimitesLibro& limites)
{
    const QFileInfo info(ruta);
    const QString libro = info.fileName();
    if (!info.isFile())
        throw errorLibro(libro, motivoFreeXl(1));
    if (info.size() > limites.bytesFicheroXls)
        throw errorLibro(libro, QStringLiteral("el archivo ocupa más de %1 MB").arg(limites.bytesFicheroXls / (1024 * 1024)));

    // FreeXL runs in a process of its own: a crafted file that makes it
    // read out of bounds must not take the worksheet down with it.
    const QString programa = LectorXls::programa();
    QProcess p;
    p.setProcessChannelMode(QProcess::SeparateChannels);
    p.start(programa, {info.absoluteFilePath(), QString::number(limites.celdas),
                       QString::number(limites.caracteresTextos * 3)});
    // Not the workbook's fault: the installation lacks a part.
    if (!p.waitForStarted(30000))
        throw VbError(kFaltaLectorXls, QStringLiteral("No se puede leer el libro '%1': falta el lector de libros de Excel 97-2003 "
                                                      "de la instalación (%2).")
                                           .arg(libro, programa));
    p.closeWriteChannel();
    if (!p.waitForFinished(kEsperaMs)) {
        p.kill();
        p.waitForFinished(5000);
        throw errorLibro(libro, QStringLiteral("la lectura del archivo no terminó en %1 segundos").arg(kEsperaMs / 1000));
    }
    if (p.exitStatus() != QProcess::NormalExit)
        throw errorLibro(libro, motivoFreeXl(0));
    // A workbook saved with a password, whatever its version, is a compound
    // file holding its encrypted package: FreeXL takes it for a damaged or
    // foreign file.
    if (p.exitCode() > 100 && cifrado(info.absoluteFilePath()))
        throw errorLibro(libro, QStringLiteral("el libro está protegido con contraseña"));
    switch (const int estado = p.exitCode()) {
    case 0: break;
    case 3: throw errorLibro(libro, QStringLiteral("el libro está protegido con contraseña"));
    case 4: throw errorLibro(libro, QStringLiteral("el libro no tiene hojas"));
    case 5: throw errorLibro(libro, QStringLiteral("la hoja tiene más de %1 celdas con datos").arg(limites.celdas));
    case 6: throw errorLibro(libro, QStringLiteral("los textos del libro suman más de %1 caracteres").arg(limites.caracteresTextos));
    default: throw errorLibro(libro, motivoFreeXl(estado > 100 ? estado - 100 : 0));
    }

    const QByteArray datos = p.readAllStandardOutput();
    Salida s(datos);
    char marca[4];
    QString nombre;
    if (!s.leer(marca, 4) || std::memcmp(marca, "PXLS", 4) != 0 || !s.texto(nombre))
        throw errorLibro(libro, motivoFreeXl(0));
    auto hoja = std::make_unique<HojaExcel>(kFilasXls, kColumnasXls, nombre);
    qint64 celdas = 0;
    qint64 caracteres = 0;
    for (;;) {
        unsigned char tipo = 0;
        quint32 fila = 0;
        unsigned char columna[2];
        if (!s.leer(&tipo, 1))
            throw errorLibro(libro, motivoFreeXl(0));
        if (tipo == 0)
            break;
        if (!s.u32(fila) || !s.leer(columna, 2))
            throw errorLibro(libro, motivoFreeXl(0));
        const int f = static_cast<int>(fila) + 1;
        const int c = (columna[0] | (columna[1] << 8)) + 1;
        if (f > kFilasXls || c > kColumnasXls || ++celdas > limites.celdas)
            throw errorLibro(libro, motivoFreeXl(0));
        if (tipo == 1) {
            double numero = 0;
            if (!s.leer(&numero, 8))
                throw errorLibro(libro, motivoFreeXl(0));
            hoja->ponerNumero(f, c, numero);
        } else {
            // FreeXL gives dates and times as ISO texts.
            QString t;
            if (tipo != 2 || !s.texto(t))
                throw errorLibro(libro, motivoFreeXl(0));
            caracteres += t.size();
            if (caracteres > limites.caracteresTextos)
                throw errorLibro(libro, QStringLiteral("los textos del libro suman más de %1 caracteres").arg(limites.caracteresTextos));
            hoja->ponerTexto(f, c, t);
        }
    }
    hoja->cerrar();
    return hoja;
}

} // namespace presupuestos
