#include "import/readers/AplicacionExcel.h"

#include "common/VbError.h"

#include <QFile>
#include <QFileInfo>
#include <map>

namespace presupuestos {

namespace {

std::map<QString, RegistroExcel::Fabrica> porDefecto()
{
    const auto lectores = [](std::set<FormatoLibro> formatos) -> RegistroExcel::Fabrica {
        return [formatos] { return std::make_unique<AplicacionLectores>(formatos); };
    };
    return {
        {QStringLiteral("Excel.Application"), lectores({FormatoLibro::Xlsx, FormatoLibro::Xls})},
        {QStringLiteral("Excel.Application.16"), lectores({FormatoLibro::Xlsx})},
        {QStringLiteral("Excel.Sheet"), lectores({FormatoLibro::Xls})},
    };
}

std::map<QString, RegistroExcel::Fabrica>& registro()
{
    static std::map<QString, RegistroExcel::Fabrica> r = porDefecto();
    return r;
}

} // namespace

AplicacionLectores::AplicacionLectores(std::set<FormatoLibro> formatos, LimitesLibro limites)
    : formatos_(std::move(formatos)), limites_(limites)
{
}

void AplicacionLectores::abrirLibro(const QString& ruta)
{
    const QFileInfo info(ruta);
    if (!info.isFile())
        throw errorLibro(info.fileName(), QStringLiteral("no se encuentra el archivo"));
    QFile fichero(ruta);
    if (!fichero.open(QIODevice::ReadOnly))
        throw errorLibro(info.fileName(), QStringLiteral("no se puede leer el archivo (%1)").arg(fichero.errorString()));
    const FormatoLibro formato = formatoDe(fichero.read(8));
    fichero.close();
    if (formato == FormatoLibro::Desconocido)
        throw errorLibro(info.fileName(), QStringLiteral("el archivo no es un libro de Excel"));
    if (!formatos_.count(formato))
        throw errorLibro(info.fileName(), formato == FormatoLibro::Xls
                                              ? QStringLiteral("este lector no admite libros de Excel 97-2003 (.xls)")
                                              : QStringLiteral("este lector no admite libros de Excel (.xlsx)"));
    hoja_ = formato == FormatoLibro::Xlsx ? LectorXlsx::leerFichero(ruta, limites_) : LectorXls::leerFichero(ruta, limites_);
}

const HojaExcel& AplicacionLectores::hojaActiva() const
{
    if (!hoja_)
        throw VbError(91, QStringLiteral("Object variable or With block variable not set"));
    return *hoja_;
}

void AplicacionLectores::Quit() { hoja_.reset(); }

std::unique_ptr<AplicacionExcel> RegistroExcel::crear(const QString& nombre)
{
    const auto it = registro().find(nombre);
    if (it == registro().end() || !it->second)
        throw VbError(429, QStringLiteral("ActiveX component can't create object"));
    auto app = it->second();
    if (!app)
        throw VbError(429, QStringLiteral("ActiveX component can't create object"));
    return app;
}

void RegistroExcel::registrar(const QString& nombre, Fabrica fabrica) { registro()[nombre] = std::move(fabrica); }

void RegistroExcel::quitar(const QString& nombre) { registro().erase(nombre); }

void RegistroExcel::restaurar() { registro() = porDefecto(); }

} // namespace presupuestos
