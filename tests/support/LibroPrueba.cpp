#include "LibroPrueba.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <stdexcept>
#include <zip.h>

namespace presupuestos::prueba {

LibrosPrueba::LibrosPrueba()
{
    if (!dir_.isValid())
        throw std::runtime_error("no temporary folder");
}

QString LibrosPrueba::nuevoNombre(const QString& extension)
{
    return dir_.filePath(QStringLiteral("libro%1.%2").arg(++contador_).arg(extension));
}

QString LibrosPrueba::generar(const QString& descripcion, bool constante)
{
    const QString ruta = nuevoNombre(QStringLiteral("xlsx"));
    QProcess p;
    QStringList args;
    if (constante)
        args << QStringLiteral("--constante");
    args << ruta;
    p.start(QStringLiteral(PRESUPUESTOS_GENERAR_LIBRO), args);
    if (!p.waitForStarted(10000))
        throw std::runtime_error("generar_libro did not start");
    p.write(descripcion.toUtf8());
    p.closeWriteChannel();
    if (!p.waitForFinished(60000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0)
        throw std::runtime_error("generar_libro failed: " + p.readAllStandardError().toStdString());
    return ruta;
}

QString LibrosPrueba::zip(const std::vector<std::pair<QString, QByteArray>>& partes, const QString& nombre)
{
    const QString ruta = nombre.isEmpty() ? nuevoNombre(QStringLiteral("xlsx")) : dir_.filePath(nombre);
    int error = 0;
    zip_t* z = zip_open(QFile::encodeName(ruta).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (!z)
        throw std::runtime_error("zip_open failed");
    // libzip reads the sources when the archive is closed.
    std::vector<QByteArray> datos;
    datos.reserve(partes.size());
    for (const auto& [parte, contenido] : partes) {
        datos.push_back(contenido);
        zip_source_t* s = zip_source_buffer(z, datos.back().constData(), static_cast<zip_uint64_t>(datos.back().size()), 0);
        if (!s || zip_file_add(z, parte.toUtf8().constData(), s, ZIP_FL_OVERWRITE) < 0) {
            zip_source_free(s);
            zip_discard(z);
            throw std::runtime_error("zip_file_add failed");
        }
    }
    if (zip_close(z) != 0) {
        zip_discard(z);
        throw std::runtime_error("zip_close failed");
    }
    return ruta;
}

QString LibrosPrueba::fichero(const QByteArray& contenido, const QString& nombre)
{
    const QString ruta = dir_.filePath(nombre);
    QFile f(ruta);
    if (!f.open(QIODevice::WriteOnly) || f.write(contenido) != contenido.size())
        throw std::runtime_error("cannot write test file");
    return ruta;
}

std::vector<std::pair<QString, QByteArray>> LibrosPrueba::partesMinimas(const QByteArray& hoja, const QByteArray& textos)
{
    std::vector<std::pair<QString, QByteArray>> partes{
        {QStringLiteral("[Content_Types].xml"),
         QByteArrayLiteral("<?xml version=\"1.0\"?><Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\"/>")},
        {QStringLiteral("_rels/.rels"),
         QByteArrayLiteral("<?xml version=\"1.0\"?><Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
                           "<Relationship Id=\"rId1\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/officeDocument\" Target=\"xl/workbook.xml\"/>"
                           "</Relationships>")},
        {QStringLiteral("xl/workbook.xml"),
         QByteArrayLiteral("<?xml version=\"1.0\"?><workbook xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" "
                           "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">"
                           "<sheets><sheet name=\"Hoja1\" sheetId=\"1\" r:id=\"rId1\"/></sheets></workbook>")},
        {QStringLiteral("xl/_rels/workbook.xml.rels"),
         QByteArrayLiteral("<?xml version=\"1.0\"?><Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
                           "<Relationship Id=\"rId1\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/worksheet\" Target=\"worksheets/sheet1.xml\"/>"
                           "<Relationship Id=\"rId2\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/sharedStrings\" Target=\"sharedStrings.xml\"/>"
                           "</Relationships>")},
        {QStringLiteral("xl/worksheets/sheet1.xml"), hoja},
    };
    if (!textos.isEmpty())
        partes.emplace_back(QStringLiteral("xl/sharedStrings.xml"), textos);
    return partes;
}

QString LibrosPrueba::datos(const QString& nombre)
{
    return QDir(QStringLiteral(PRESUPUESTOS_DATOS_PRUEBA)).filePath(nombre);
}

QByteArray LibrosPrueba::parte(const QString& libro, const char* nombre)
{
    int error = 0;
    zip_t* z = zip_open(QFile::encodeName(libro).constData(), ZIP_RDONLY, &error);
    if (!z)
        return {};
    QByteArray r;
    zip_stat_t st;
    if (zip_stat(z, nombre, 0, &st) == 0) {
        if (zip_file_t* f = zip_fopen(z, nombre, 0)) {
            r.resize(static_cast<qsizetype>(st.size));
            zip_fread(f, r.data(), st.size);
            zip_fclose(f);
        }
    }
    zip_close(z);
    return r;
}

QByteArray LibrosPrueba::bytes(const QString& ruta)
{
    QFile f(ruta);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace presupuestos::prueba
