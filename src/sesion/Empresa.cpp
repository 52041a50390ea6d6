#include "sesion/Empresa.h"

#include "common/VbError.h"
#include "db/Conexion.h"

#include <cmath>

namespace presupuestos {

Currency IEmpresa::Redondear(Currency importe, int decimales) const { return importe.rounded(decimales); }

QString IEmpresa::NumeroSQL(Currency importe) const { return importe.toSqlText(); }

EmpresaFija::EmpresaFija(qint16 codigo, qint16 ejercicio, std::vector<int> digitos, QString nombre)
    : codigo_(codigo), ejercicio_(ejercicio), digitos_(std::move(digitos)), nombre_(std::move(nombre))
{
}

int EmpresaFija::DigitosNivel(int nivel) const
{
    if (nivel < 0 || nivel >= static_cast<int>(digitos_.size()))
        throw VbError::subscriptOutOfRange();
    return digitos_[static_cast<std::size_t>(nivel)];
}

std::shared_ptr<EmpresaFija> cargarEmpresa(Conexion& conexion, int codigo)
{
    Recordset rs = conexion.Abrir(
        QStringLiteral("SELECT Cod_Empresa, Nombre, Ejercicio_Actual, Digitos_Niveles FROM Empresas WHERE Cod_Empresa = ")
        + QString::number(codigo));
    if (rs.eof())
        throw VbError(VbError::DatabaseError, QStringLiteral("No existe la empresa %1 en la base de datos.").arg(codigo));
    std::vector<int> digitos;
    for (const QString& d : rs.texto(QStringLiteral("Digitos_Niveles")).split(QLatin1Char(','), Qt::SkipEmptyParts))
        digitos.push_back(d.trimmed().toInt());
    if (digitos.empty())
        throw VbError(VbError::DatabaseError, QStringLiteral("La empresa %1 no tiene definidos los niveles del plan de cuentas.").arg(codigo));
    auto e = std::make_shared<EmpresaFija>(static_cast<qint16>(rs.entero(QStringLiteral("Cod_Empresa"))),
                                           static_cast<qint16>(rs.entero(QStringLiteral("Ejercicio_Actual"))), digitos,
                                           rs.texto(QStringLiteral("Nombre")));
    rs.Close();
    return e;
}

} // namespace presupuestos
