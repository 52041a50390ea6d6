#include "worksheet/core/ConsultasHoja.h"

#include "db/Sql.h"

namespace presupuestos::consultas {

namespace {
QString n(int v) { return QString::number(v); }

QString columnasPivot()
{
    return QStringLiteral(" AS Cod_Ejercicio,  Cod_Almacen, ISNULL([1], 0) AS [1], ISNULL([2], 0) AS [2], ISNULL([3], 0) AS [3], ISNULL([4], 0) AS [4], ISNULL([5], 0) AS [5], ISNULL([6], 0) AS [6]")
           + QStringLiteral(", ISNULL([7], 0) AS [7], ISNULL([8], 0) AS [8], ISNULL([9], 0) AS [9], ISNULL([10], 0) AS [10], ISNULL([11], 0) AS [11], ISNULL([12], 0) AS [12]");
}
} // namespace

QString condicionesFiltro(const QString& listaDptos, const QString& cuentaSeleccionada, bool hayCuenta)
{
    QString s;
    if (!listaDptos.isEmpty())
        s += QStringLiteral(" AND c.Dpto IN (") + listaDptos + QStringLiteral(")");
    if (hayCuenta)
        s += QStringLiteral(" AND c.Cuenta = '") + sql::texto(cuentaSeleccionada) + QStringLiteral("'");
    return s;
}

QString presupuesto(const QString& tablaFiltro, int codEmpresa, int ejercicio, bool verPresupuestables,
                    const QString& listaDptos, const QString& cuentaSeleccionada, bool hayCuenta)
{
    QString s = QStringLiteral("SELECT c.Cuenta, c.Nombre, c.Dpto,c.Dpto_Nombre, ISNULL(p.M1,0) AS M1, ISNULL(p.M2,0) AS M2, ISNULL(p.M3,0) AS M3, ISNULL(p.M4,0) AS M4, ISNULL(p.M5,0) AS M5");
    s += QStringLiteral(", ISNULL(p.M6,0) AS M6, ISNULL(p.M7,0) AS M7, ISNULL(p.M8,0) AS M8, ISNULL(p.M9,0) AS M9");
    s += QStringLiteral(", ISNULL(p.M10,0) AS M10, ISNULL(p.M11,0) AS M11, ISNULL(p.M12,0) AS M12, isnull(p.Metodo_Calculo,0) AS Metodo_Calculo, ISNULL(p.Modificacion_Manual,0) AS Modificacion_Manual, ISNULL(p.Valor,0) AS Valor");
    s += QStringLiteral(" FROM ") + tablaFiltro + QStringLiteral(" c");
    s += QStringLiteral(" LEFT JOIN Presupuestos p ") + QStringLiteral(" ON p.Cod_Empresa = ") + n(codEmpresa);
    s += QStringLiteral(" AND p.Dpto = c.Dpto AND p.Cod_Ejercicio = ") + n(ejercicio);
    s += QStringLiteral(" AND p.Cuenta = c.Cuenta");
    s += QStringLiteral(" WHERE ISNULL(ver,1) = ") + (verPresupuestables ? QStringLiteral("1") : QStringLiteral("0"));
    s += condicionesFiltro(listaDptos, cuentaSeleccionada, hayCuenta);
    s += QStringLiteral(" ORDER BY c.Dpto, c.Cuenta ");
    return s;
}

QString historico(const QString& tablaFiltro, const QString& tablaEstadisticas, int codEmpresa, int ejercicioHist,
                  const QString& listaDptos, const QString& cuentaSeleccionada, bool hayCuenta)
{
    const QString condiciones = condicionesFiltro(listaDptos, cuentaSeleccionada, hayCuenta);
    QString s = QStringLiteral("SELECT c.Cuenta, c.Nombre, c.Dpto,c.Dpto_Nombre, ISNULL(p.H1-p.D1,0) AS M1, ISNULL(p.H2-P.D2,0) AS M2, ISNULL(p.H3 - p.D3,0) AS M3, ISNULL(p.H4 - p.D4,0) AS M4, ISNULL(p.H5 - p.D5,0) AS M5");
    s += QStringLiteral(", ISNULL(p.H6 - p.D6,0) AS M6, ISNULL(p.H7 - p.D7,0) AS M7, ISNULL(p.H8 - p.D8,0) AS M8, ISNULL(p.H9 - p.D9,0) AS M9");
    s += QStringLiteral(", ISNULL(p.H10 - p.D10,0) AS M10, ISNULL(p.H11 - p.D11,0) AS M11, ISNULL(p.H12 - p.D12,0) AS M12");
    s += QStringLiteral(" FROM ") + tablaFiltro + QStringLiteral(" c");
    s += QStringLiteral(" LEFT JOIN Acumulados_Dpto p ") + QStringLiteral(" ON p.Cod_Empresa = ") + n(codEmpresa);
    s += QStringLiteral(" AND p.Dpto = c.Dpto AND p.Cod_Ejercicio = ") + n(ejercicioHist);
    s += QStringLiteral(" AND p.Cuenta = c.Cuenta");
    s += QStringLiteral(" WHERE c.Codigo < 245  ") + condiciones;
    s += QStringLiteral(" UNION SELECT c.Cuenta, c.Nombre, c.Dpto,c.Dpto_Nombre");
    s += QStringLiteral(",ISNULL(ts.M1,0) AS M1, ISNULL(ts.M2,0) AS M2, ISNULL(ts.M3,0) AS M3");
    s += QStringLiteral(",ISNULL(ts.M4,0) AS M4, ISNULL(ts.M5,0) AS M5, ISNULL(ts.M6,0) AS M6");
    s += QStringLiteral(",ISNULL(ts.M7,0) AS M7, ISNULL(ts.M8,0) AS M8, ISNULL(ts.M9,0) AS M9");
    s += QStringLiteral(",ISNULL(ts.M10,0) AS M10, ISNULL(ts.M11,0) AS M11, ISNULL(ts.M12,0) AS M12");
    s += QStringLiteral(" FROM ") + tablaFiltro + QStringLiteral(" c");
    s += QStringLiteral(" LEFT JOIN  ") + tablaEstadisticas + QStringLiteral(" AS ts");
    s += QStringLiteral(" ON  ts.Dpto = c.Dpto AND ts.Cod_Ejercicio = ") + n(ejercicioHist) + QStringLiteral(" AND ts.Cuenta = c.Cuenta");
    s += QStringLiteral(" WHERE c.Codigo >= 245  ") + condiciones;
    s += QStringLiteral(" ORDER BY c.Dpto, c.Cuenta ");
    return s;
}

QString sondeoEstadisticas(const QString& tablaEstadisticas, int ejercicioHist)
{
    return QStringLiteral("SELECT Top 1 Cod_Ejercicio FROM ") + tablaEstadisticas + QStringLiteral(" WHERE Cod_Ejercicio = ") + n(ejercicioHist);
}

QString insertarEstadisticas(const QString& tablaEstadisticas, int y, int e, const QString& b)
{
    const QString Y = n(y), E = n(e);
    QString s = QStringLiteral("INSERT INTO ") + tablaEstadisticas
                + QStringLiteral(" (Cuenta,Cod_Ejercicio, Dpto,M1, M2, M3, M4, M5, M6, M7, M8, M9, M10, M11, M12 )");
    s += QStringLiteral(" SELECT 'CTO002' AS Cpto,") + Y + columnasPivot()
         + QStringLiteral(" FROM (SELECT Cod_Almacen, MONTH(fecha) as Mes, ISNULL(Count(DISTINCT Fecha),0) AS Dias")
         + QStringLiteral(" FROM ") + b + QStringLiteral(".dbo.Almacen_Acumulados_2")
         + QStringLiteral(" WHERE Cod_Empresa = ") + E + QStringLiteral(" AND YEAR(Fecha) = ") + Y
         + QStringLiteral(" GROUP BY Cod_Almacen, MONTH(fecha)") + QStringLiteral(") AS SourceTable") + QStringLiteral(" PIVOT ")
         + QStringLiteral("(") + QStringLiteral("SUM(Dias) FOR Mes IN ([1],[2],[3],[4],[5],[6],[7],[8],[9],[10],[11],[12])")
         + QStringLiteral(") AS PivotTable");
    s += QStringLiteral(" UNION ");
    s += QStringLiteral(" SELECT 'CTO003' AS Cpto,") + Y + columnasPivot()
         + QStringLiteral(" FROM (SELECT Cod_Almacen, MONTH(fecha) as Mes,  ISNULL(SUM(Tickets),0) AS Total_Tickets")
         + QStringLiteral(" FROM ") + b + QStringLiteral(".dbo.Almacen_Acumulados_2")
         + QStringLiteral(" WHERE Cod_Empresa = ") + E + QStringLiteral(" AND YEAR(Fecha) = ") + Y
         + QStringLiteral(" GROUP BY Cod_Almacen, MONTH(Fecha)") + QStringLiteral(") AS SourceTable") + QStringLiteral(" PIVOT")
         + QStringLiteral("(") + QStringLiteral(" SUM(Total_Tickets) FOR Mes IN ([1],[2],[3],[4],[5],[6],[7],[8],[9],[10],[11],[12])")
         + QStringLiteral(") AS PivotTable");
    s += QStringLiteral(" UNION ");
    s += QStringLiteral(" SELECT 'CTO004' AS Cpto,") + Y + columnasPivot()
         + QStringLiteral(" FROM (SELECT Cod_Almacen,  Mes, ISNULL(SUM(Ventas_Unidades),0) AS Ventas_Unidades")
         + QStringLiteral(" FROM ") + b + QStringLiteral(".dbo.Almacen_Acumulados")
         + QStringLiteral(" WHERE Cod_Empresa = ") + E + QStringLiteral(" AND Cod_Ejercicio  = ") + Y
         + QStringLiteral(" AND Ventas_Unidades<>0") + QStringLiteral(" GROUP BY Cod_Almacen, Mes") + QStringLiteral(") AS SourceTable")
         + QStringLiteral(" PIVOT ") + QStringLiteral("(")
         + QStringLiteral("SUM(Ventas_Unidades) FOR Mes IN ([1],[2],[3],[4],[5],[6],[7],[8],[9],[10],[11],[12])")
         + QStringLiteral(") AS PivotTable");
    return s;
}

QString empresaRetail(const QString& baseRetail, int codEmpresa)
{
    return QStringLiteral("SELECT Cod_Empresa FROM ") + baseRetail + QStringLiteral(".dbo.Empresas_Contabilidad  WHERE Cod_EmpresaC = ") + n(codEmpresa);
}

QString categorias(int codEmpresa)
{
    return QStringLiteral("SELECT Codigo, Texto, Padre FROM Config_Balances WHERE Cod_Empresa = ") + n(codEmpresa)
           + QStringLiteral(" AND TipoBalance = 11 And Tipo =0 ORDER BY Codigo");
}

QString ultimoEjercicioCuentas(int codEmpresa)
{
    return QStringLiteral("SELECT MAX(Cod_Ejercicio) FROM Cuentas c WHERE c.Cod_Empresa = ") + n(codEmpresa);
}

QString cuentasFiltro(int codEmpresa, int ultimoEjercicio, int digitosCuenta, bool verPresupuestables)
{
    QString s = QStringLiteral("SELECT tp.Codigo ,c.Cuenta, tp.Padre, c.Nombre");
    s += QStringLiteral(" FROM Config_Balances tp ");
    s += QStringLiteral(" INNER JOIN ");
    s += QStringLiteral(" (SELECT Substring(c.Cuenta,1,4) as ID, c.Cuenta, c.Nombre ");
    s += QStringLiteral(" FROM Cuentas c ");
    s += QStringLiteral(" WHERE c.Cod_Empresa = ") + n(codEmpresa);
    s += QStringLiteral(" AND c.Cod_Ejercicio = ") + n(ultimoEjercicio);
    s += QStringLiteral(" AND Len(c.Cuenta) = ") + n(digitosCuenta);
    s += QStringLiteral(" UNION SELECT pc.Codigo, pc.Codigo, pc.Nombre FROM Presupuestos_Conceptos pc) c ");
    s += QStringLiteral(" ON c.ID = tp.Texto ");
    s += QStringLiteral(" WHERE tp.Cod_Empresa = ") + n(codEmpresa);
    s += QStringLiteral(" AND tp.TipoBalance = 11 And tp.Tipo =1 ");
    if (verPresupuestables)
        s += QStringLiteral(" AND tp.Ver = 1 ");
    s += QStringLiteral(" ORDER BY tp.Codigo");
    return s;
}

QString insertarFiltro(const QString& tablaFiltro, const QString& codigo, const QString& cuenta, const QString& nombre,
                       int codEmpresa)
{
    return QStringLiteral("INSERT INTO ") + tablaFiltro + QStringLiteral(" SELECT ") + codigo + QStringLiteral(", '")
           + sql::texto(cuenta) + QStringLiteral("','") + sql::texto(nombre)
           + QStringLiteral("', Codigo, Nombre FROM Departamentos WHERE Cod_Empresa = ") + n(codEmpresa);
}

QString departamentos(int codEmpresa)
{
    return QStringLiteral("SELECT * ") + QStringLiteral(" FROM Departamentos ") + QStringLiteral(" WHERE Cod_Empresa = ") + n(codEmpresa)
           + QStringLiteral(" ORDER BY Codigo");
}

} // namespace presupuestos::consultas
