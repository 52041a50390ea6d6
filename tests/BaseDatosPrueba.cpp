#include "BaseDatosPrueba.h"

#include "db/schema/DatosDemo.h"
#include "db/schema/Esquema.h"
#include "host/modPublic.h"

#include <QSqlError>
#include <QSqlQuery>
#include <stdexcept>

namespace presupuestos::prueba {

BaseDatosPrueba::BaseDatosPrueba(bool conDatosDemo)
{
    conexion = Conexion::abrirSqlite(QStringLiteral(":memory:"));
    conexion->asociarBaseDatos(QStringLiteral("Pelvor"), QStringLiteral(":memory:"));
    if (conDatosDemo) {
        DatosDemo::generar(*conexion);
    } else {
        Esquema::crearGestion(*conexion);
        Esquema::crearRetail(*conexion, QStringLiteral("Pelvor"));
    }
    empresa = std::make_shared<EmpresaFija>(1, 2026);
    modPublic::EmpresaActiva = empresa;
    modPublic::ConexionActiva = conexion;
    modPublic::EjercicioActivo = 2027;
}

BaseDatosPrueba::~BaseDatosPrueba()
{
    if (modPublic::ConexionActiva == conexion)
        modPublic::ConexionActiva.reset();
    if (modPublic::EmpresaActiva == empresa)
        modPublic::EmpresaActiva.reset();
}

void BaseDatosPrueba::sql(const QString& sentencia)
{
    QSqlQuery q(conexion->baseDatos());
    if (!q.exec(sentencia))
        throw std::runtime_error((q.lastError().text() + QStringLiteral(" in: ") + sentencia).toStdString());
}

QVariant BaseDatosPrueba::valor(const QString& consulta)
{
    QSqlQuery q(conexion->baseDatos());
    if (!q.exec(consulta))
        throw std::runtime_error((q.lastError().text() + QStringLiteral(" in: ") + consulta).toStdString());
    return q.next() ? q.value(0) : QVariant();
}

} // namespace presupuestos::prueba
