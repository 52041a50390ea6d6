#pragma once
// The class the host drives: it hands over the company, the connection and
// the fiscal year, and shows the worksheet. Everything it receives goes to
// the host's session in modPublic; the worksheet reads it from there and
// hands it to the classes below it.

#include "db/Conexion.h"
#include "sesion/Empresa.h"

#include <QPointer>
#include <QString>
#include <memory>

class QWidget;

namespace presupuestos {

class frmActPresupusto;

// Identifiers under which the class is registered for hosts that bind by COM.
namespace registro {
inline const QString Biblioteca = QStringLiteral("QBRAPresupuestos");
inline const QString BibliotecaGuid = QStringLiteral("{69B3FAD9-1103-4077-9946-763430EEF634}");
inline const QString BibliotecaAyuda = QStringLiteral("Larvex Class Presupuestos");
inline const QString InterfazIid = QStringLiteral("{972E34F7-3D46-4AD2-B338-8E269BA72CB0}");
inline const QString ClaseClsid = QStringLiteral("{67CF23DE-82F0-433B-BE4D-13EC63BD25DE}");
inline const QString Clase = QStringLiteral("frmclsfrmActPresupusto");
inline const QString InterfazEmpresaIid = QStringLiteral("{1A03B2C0-E9C9-43FA-ACD6-E9F364FABCF8}");
inline const QString InterfazConexionIid = QStringLiteral("{00000550-0000-0010-8000-00AA006D2EA4}");
constexpr int DispidEjercicio = 0x68030000;
constexpr int DispidConexionDrumav = 0x68030001;
constexpr int DispidConexionLarvex = 0x68030002;
constexpr int DispidEmpresaLarvex = 0x68030003;
constexpr int DispidShow = 0x60030004;
} // namespace registro

class frmclsfrmActPresupusto {
public:
    frmclsfrmActPresupusto();
    ~frmclsfrmActPresupusto();
    frmclsfrmActPresupusto(const frmclsfrmActPresupusto&) = delete;
    frmclsfrmActPresupusto& operator=(const frmclsfrmActPresupusto&) = delete;

    void setEmpresaLarvex(std::shared_ptr<IEmpresa> empresa);
    // Both fill the one connection slot: whichever is set last is used.
    void setConexionLarvex(std::shared_ptr<Conexion> conexion);
    void setConexionDrumav(std::shared_ptr<Conexion> conexion);
    qint16 Ejercicio() const;
    void setEjercicio(qint16 ejercicio);

    // The worksheet is always modeless; Modal is accepted and ignored.
    void Show(qint16 Modal = 0, QWidget* OwnerForm = nullptr);

    frmActPresupusto* formulario() const { return form_; }

private:
    QPointer<frmActPresupusto> form_;
};

} // namespace presupuestos
