#include "worksheet/core/RepositorioHoja.h"

#include "common/Reloj.h"
#include "common/VbError.h"
#include "worksheet/core/ConsultasHoja.h"

namespace presupuestos {

QString RepositorioHoja::sello(double segundosDesdeMedianoche)
{
    const float centesimas = static_cast<float>(segundosDesdeMedianoche) * 100.0f;
    // A point would end the name in T-SQL ("##T_123456.7" is a name and the
    // number .7): a worksheet opened early in the day could not open.
    return QString::number(static_cast<double>(centesimas), 'g', 7).replace(QLatin1Char('.'), QLatin1Char('_'));
}

qint16 RepositorioHoja::ejercicioInicial(int codEmpresa, int ejercicioEmpresa)
{
    Recordset rs = c_.Abrir(QStringLiteral("SELECT Max(Cod_Ejercicio) FROM Presupuestos WHERE Cod_Empresa = ")
                            + QString::number(codEmpresa));
    const qint16 anyo = rs.eof() ? static_cast<qint16>(rs.entero(0)) : static_cast<qint16>(ejercicioEmpresa + 1);
    rs.Close();
    return anyo;
}

RepositorioHoja::Tablas RepositorioHoja::crearTablasTemporales()
{
    // The names carry the time of day; a worksheet opened within the same
    // hundredth of a second as another (by this user or, on a server, any
    // other) takes the next hundredth instead of failing to open.
    const auto crear = [this](const QString& prefijo, const QString& columnas) {
        const double ahora = reloj::segundosDesdeMedianoche();
        for (int intento = 0;; ++intento) {
            const QString nombre = prefijo + sello(ahora + intento * 0.01);
            try {
                c_.Execute(QStringLiteral("CREATE TABLE ") + nombre + columnas);
                return nombre;
            } catch (const VbError&) {
                if (intento == 9)
                    throw;
            }
        }
    };
    Tablas t;
    t.filtroCuentas = crear(QStringLiteral("##PresupFiltroCuentas_"),
                            QStringLiteral("([Codigo] INT, Cuenta [VARCHAR](12), Nombre VARCHAR(200), Dpto INT, Dpto_Nombre VARCHAR(200))"));
    QString columnas = QStringLiteral(" (Cuenta VARCHAR(12), Cod_Ejercicio INT, Dpto INT");
    for (int m = 1; m <= 11; ++m)
        columnas += QStringLiteral(", M%1 MONEY").arg(m);
    columnas += QStringLiteral(", M12 MONEY)");
    t.estadisticas = crear(QStringLiteral("##Drumav_Estadisticas_"), columnas);
    return t;
}

void RepositorioHoja::borrarTablasTemporales(const Tablas& t) noexcept
{
    for (const QString& tabla : {t.filtroCuentas, t.estadisticas}) {
        if (tabla.isEmpty())
            continue;
        try {
            c_.Execute(QStringLiteral("DROP TABLE ") + tabla);
        } catch (const std::exception&) {
        }
    }
}

RepositorioHoja::EnlaceRetail RepositorioHoja::enlaceRetail(int codEmpresa)
{
    EnlaceRetail e;
    try {
        Recordset rs = c_.Abrir(QStringLiteral("SELECT BDPelvor FROM Configuracion"));
        if (!rs.eof())
            e.base = rs.texto(0);
        rs.Close();
        Recordset re = c_.Abrir(consultas::empresaRetail(e.base, codEmpresa));
        if (!re.eof())
            e.empresa = static_cast<qint16>(re.entero(0));
        re.Close();
    } catch (const VbError&) {
        e.empresa = 0;
    }
    return e;
}

void RepositorioHoja::asegurarEstadisticas(const QString& tabla, int ejercicio, const EnlaceRetail& enlace, bool asincrono)
{
    if (enlace.empresa <= 0)
        return;
    Recordset rs = c_.Abrir(consultas::sondeoEstadisticas(tabla, ejercicio));
    const bool enCache = !rs.eof();
    rs.Close();
    if (enCache)
        return;
    c_.Execute(consultas::insertarEstadisticas(tabla, ejercicio, enlace.empresa, enlace.base),
               asincrono ? Conexion::adAsyncExecute : -1);
}

std::vector<RepositorioHoja::FilaVentas> RepositorioHoja::filasSobreVentas(int codEmpresa, int ejercicio, const std::vector<qint16>& dptos)
{
    // Only rows planned on each month's sales follow them; rows planned on
    // the year's sales keep what they were given. The months typed by hand
    // are read too: they stay.
    QString sql = QStringLiteral("SELECT Cuenta, Dpto, Valor, Modificacion_Manual");
    for (int m = 1; m <= 12; ++m)
        sql += QStringLiteral(", M") + QString::number(m);
    sql += QStringLiteral(" FROM Presupuestos WHERE Cod_Empresa = ") + QString::number(codEmpresa) + QStringLiteral(" AND Cod_Ejercicio = ")
           + QString::number(ejercicio) + QStringLiteral(" AND Metodo_Calculo = ") + QStringLiteral("6");
    if (!dptos.empty()) {
        QStringList lista;
        for (const qint16 d : dptos)
            lista << QString::number(d);
        sql += QStringLiteral(" AND Dpto IN (") + lista.join(QStringLiteral(", ")) + QLatin1Char(')');
    }
    Recordset rs = c_.Abrir(sql);
    std::vector<FilaVentas> filas;
    const int primerMes = rs.indiceCampo(QStringLiteral("M1"));
    while (!rs.eof()) {
        FilaVentas f{rs.texto(QStringLiteral("Cuenta")), static_cast<qint16>(rs.entero(QStringLiteral("Dpto"))),
                     rs.moneda(QStringLiteral("Valor")), rs.entero(QStringLiteral("Modificacion_Manual")), {}};
        for (int m = 0; m < 12; ++m)
            f.meses[static_cast<std::size_t>(m)] = rs.moneda(primerMes + m);
        filas.push_back(std::move(f));
        rs.MoveNext();
    }
    rs.Close();
    return filas;
}

std::vector<FilaCategoria> RepositorioHoja::categorias() const
{
    std::vector<FilaCategoria> filas;
    Recordset rs = c_.Abrir(consultas::categorias(codEmpresa_));
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

qint16 RepositorioHoja::ultimoEjercicioCuentas(qint16 ejercicioActual) const
{
    Recordset rs = c_.Abrir(consultas::ultimoEjercicioCuentas(codEmpresa_));
    if (rs.eof())
        return ejercicioActual;
    const qint16 r = static_cast<qint16>(rs.entero(0));
    rs.Close();
    return r;
}

std::vector<CuentaFiltro> RepositorioHoja::cuentas(int ultimoEjercicio, int digitosCuenta, bool soloPresupuestables) const
{
    std::vector<CuentaFiltro> filas;
    Recordset rs = c_.Abrir(consultas::cuentasFiltro(codEmpresa_, ultimoEjercicio, digitosCuenta, soloPresupuestables));
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

std::vector<Departamento> RepositorioHoja::departamentos() const
{
    std::vector<Departamento> filas;
    Recordset rs = c_.Abrir(consultas::departamentos(codEmpresa_));
    while (!rs.eof()) {
        filas.push_back({rs.entero(QStringLiteral("Codigo")), rs.texto(QStringLiteral("Nombre"))});
        rs.MoveNext();
    }
    rs.Close();
    return filas;
}

void RepositorioHoja::vaciarTablaFiltro() { c_.Execute(QStringLiteral("TRUNCATE TABLE ") + tablaFiltro_); }

long RepositorioHoja::insertarCuenta(const CuentaFiltro& c)
{
    return c_.Execute(consultas::insertarFiltro(tablaFiltro_, QString::number(c.codigo), c.cuenta, c.nombre, codEmpresa_));
}

} // namespace presupuestos
