#pragma once
// Workbooks for the import's tests: written at run time by the separate
// generar_libro tool from a text description, or put together part by part
// with libzip for the damaged and hostile ones.

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>
#include <utility>
#include <vector>

namespace presupuestos::prueba {

class LibrosPrueba {
public:
    LibrosPrueba();

    // Runs generar_libro on the description; returns the workbook's path.
    // constante: texts inline in the sheet instead of in the shared table.
    QString generar(const QString& descripcion, bool constante = false);
    // A zip with the given parts, in that order.
    QString zip(const std::vector<std::pair<QString, QByteArray>>& partes, const QString& nombre = QString());
    // A file with exactly these bytes.
    QString fichero(const QByteArray& contenido, const QString& nombre);
    // The parts of a minimal valid workbook whose only sheet is this XML
    // (sheetData and all), with optional shared texts.
    static std::vector<std::pair<QString, QByteArray>> partesMinimas(const QByteArray& hoja,
                                                                     const QByteArray& textos = QByteArray());

    QString carpeta() const { return dir_.path(); }
    // The files kept beside the tests.
    static QString datos(const QString& nombre);
    // A file's bytes, all of them (none when it cannot be read).
    static QByteArray bytes(const QString& ruta);
    // A part of a workbook as it was written (its XML); empty when it has none.
    static QByteArray parte(const QString& libro, const char* nombre);

private:
    QString nuevoNombre(const QString& extension);
    QTemporaryDir dir_;
    int contador_ = 0;
};

} // namespace presupuestos::prueba
