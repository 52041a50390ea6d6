#include "worksheet/core/RepositorioFiltros.h"

#include "db/Conexion.h"
#include "worksheet/core/ConsultasHoja.h"

namespace presupuestos {

std::vector<FilaCategoria> RepositorioFiltros::categorias() const
{
    std::vector<FilaCategoria> filas;
    Recordset rs = conexion_.Abrir(consultas::categorias(codEmpresa_));
    while (!rs.eof()) {
        FilaCategoria f;
        f.codigo = rs.entero(QStringLiteral("Codigo"));
        f.padre = static_cast<qint16>(rs.entero(QStringLiteral("Padre")));
        f.texto = rs.texto(QStringLiteral("Texto"));
        filas.push_back(std::move(f));
        rs.MoveNext();
    }
    rs.Close();
    return filas;
}

qint16 RepositorioFiltros::ultimoEjercicioCuentas(qint16 ejercicioActual) const
{
    Recordset rs = conexion_.Abrir(consultas::ultimoEjercicioCuentas(codEmpresa_));
    if (rs.eof())
        return ejercicioActual;
    const qint16 r = static_cast<qint16>(rs.entero(0));
    rs.Close();
    return r;
}

std::vector<CuentaFiltro> RepositorioFiltros::cuentas(int ultimoEjercicio, int digitosCuenta, bool soloPresupuestables) const
{
    std::vector<CuentaFiltro> filas;
    Recordset rs = conexion_.Abrir(consultas::cuentasFiltro(codEmpresa_, ultimoEjercicio, digitosCuenta, soloPresupuestables));
    while (!rs.eof()) {
        CuentaFiltro c;
        c.codigo = rs.entero(QStringLiteral("Codigo"));
        c.cuenta = rs.texto(QStringLiteral("Cuenta"));
        c.padre = static_cast<qint16>(rs.entero(QStringLiteral("Padre")));
        c.nombre = rs.texto(QStringLiteral("Nombre"));
        filas.push_back(std::move(c));
        rs.MoveNext();
    }
    rs.Close();
    return filas;
}

std::vector<Departamento> RepositorioFiltros::departamentos() const
{
    std::vector<Departamento> filas;
    Recordset rs = conexion_.Abrir(consultas::departamentos(codEmpresa_));
    while (!rs.eof()) {
        filas.push_back({rs.entero(QStringLiteral("Codigo")), rs.texto(QStringLiteral("Nombre"))});
        rs.MoveNext();
    }
    rs.Close();
    return filas;
}

void RepositorioFiltros::vaciarTablaFiltro() { conexion_.Execute(QStringLiteral("TRUNCATE TABLE ") + tablaFiltro_); }

void RepositorioFiltros::insertarCuenta(const CuentaFiltro& c)
{
    conexion_.Execute(consultas::insertarFiltro(tablaFiltro_, QString::number(c.codigo), c.cuenta, c.nombre, codEmpresa_));
}

} // namespace presupuestos
