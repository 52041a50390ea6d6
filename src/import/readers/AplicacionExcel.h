#pragma once
// What the import asks of "Excel": to be created by name, to open a
// workbook, to hand over the sheet the workbook opens on, and to quit.
//
// The names the import creates ("Excel.Application", "Excel.Application.16",
// "Excel.Sheet") stand for the readers this system has:
//   Excel.Application     reads .xlsx and .xls, telling them by content;
//   Excel.Application.16  reads .xlsx only;
//   Excel.Sheet           reads .xls only.
// The registry can be changed so that one of them is missing or fails,
// which is how a machine without a usable Excel looks to the import.

#include "import/readers/HojaExcel.h"
#include "import/readers/LectorLibro.h"

#include <QString>
#include <functional>
#include <memory>
#include <set>

namespace presupuestos {

class AplicacionExcel {
public:
    virtual ~AplicacionExcel() = default;
    // Workbooks.Open with the path and every other option omitted.
    virtual void abrirLibro(const QString& ruta) = 0;
    // ActiveSheet; raises "Object variable or With block variable not set"
    // (91) when no workbook is open.
    virtual const HojaExcel& hojaActiva() const = 0;
    virtual void Quit() = 0;
};

// The readers of this system behind the application's interface.
class AplicacionLectores : public AplicacionExcel {
public:
    explicit AplicacionLectores(std::set<FormatoLibro> formatos, LimitesLibro limites = {});
    void abrirLibro(const QString& ruta) override;
    const HojaExcel& hojaActiva() const override;
    void Quit() override;

private:
    std::set<FormatoLibro> formatos_;
    LimitesLibro limites_;
    std::unique_ptr<HojaExcel> hoja_;
};

// CreateObject by name.
class RegistroExcel {
public:
    using Fabrica = std::function<std::unique_ptr<AplicacionExcel>()>;

    // Raises "ActiveX component can't create object" (429) for a name that
    // is not registered; a factory may raise its own error.
    static std::unique_ptr<AplicacionExcel> crear(const QString& nombre);

    static void registrar(const QString& nombre, Fabrica fabrica);
    static void quitar(const QString& nombre);
    // Back to the three names above.
    static void restaurar();
};

} // namespace presupuestos
