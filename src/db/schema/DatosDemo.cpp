#include "db/schema/DatosDemo.h"

#include "common/VbError.h"
#include "db/Conexion.h"
#include "db/schema/Esquema.h"

#include <QDate>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>
#include <cmath>
#include <vector>

namespace presupuestos {

namespace {

// Small deterministic generator, so that every run yields the same company.
class Aleatorio {
public:
    explicit Aleatorio(quint32 semilla) : estado_(semilla ? semilla : 1u) {}
    quint32 siguiente()
    {
        estado_ ^= estado_ << 13;
        estado_ ^= estado_ >> 17;
        estado_ ^= estado_ << 5;
        return estado_;
    }
    // Uniform in [a, b].
    double entre(double a, double b) { return a + (b - a) * (siguiente() / 4294967295.0); }

private:
    quint32 estado_;
};

struct Prefijo {
    const char* texto;   // four characters
    const char* nombre;
    int categoria;
    // Monthly amount of a standard store; credit for income, debit for expenses.
    double base;
    bool ingreso;
    bool ver = true;
    std::vector<const char*> subcuentas = {};
};

struct Categoria {
    int codigo;
    const char* texto;
    int padre;
};

const std::vector<Categoria> kCategorias = {
    {1, "INGRESOS", 0},
    {2, "Ventas netas", 1},
    {3, "Otros ingresos de explotación", 1},
    {4, "GASTOS", 0},
    {5, "Aprovisionamientos", 4},
    {6, "Gastos de personal", 4},
    {7, "Otros gastos de explotación", 4},
    {8, "Servicios exteriores", 7},
    {9, "Tributos", 7},
    {10, "Gastos financieros y amortizaciones", 4},
    {245, "ESTADÍSTICAS DE TIENDA", 0},
};

const std::vector<Prefijo>& prefijos()
{
    static const std::vector<Prefijo> p = {
        {"7000", "Ventas de mercaderías", 2, 52000, true, true, {"Ventas textil", "Ventas calzado", "Ventas complementos"}},
        {"7050", "Prestaciones de servicios", 2, 1800, true, true, {"Arreglos y confección", "Tarjetas regalo"}},
        {"7080", "Devoluciones de ventas", 2, -1900, true, true, {"Devoluciones de ventas"}},
        {"7090", "Rappels sobre ventas", 2, -600, true, true, {"Rappels sobre ventas"}},
        {"7520", "Ingresos por arrendamientos", 3, 450, true, true, {"Alquiler de escaparates"}},
        {"7590", "Ingresos por servicios diversos", 3, 300, true, true, {"Comisiones de financiación"}},
        {"6000", "Compras de mercaderías", 5, 27000, false, true, {"Compras textil", "Compras calzado", "Compras complementos"}},
        {"6080", "Devoluciones de compras", 5, -700, false, true, {"Devoluciones de compras"}},
        {"6100", "Variación de existencias", 5, 400, false, true, {"Variación de existencias de mercaderías"}},
        {"6210", "Arrendamientos y cánones", 8, 6500, false, true, {"Alquiler del local", "Renting de equipos"}},
        {"6220", "Reparaciones y conservación", 8, 650, false, true, {"Mantenimiento del local", "Reparación de mobiliario"}},
        {"6230", "Servicios de profesionales independientes", 8, 480, false, true, {"Asesoría laboral", "Auditoría"}},
        {"6250", "Primas de seguros", 8, 260, false, true, {"Seguro multirriesgo"}},
        {"6260", "Servicios bancarios y similares", 8, 540, false, true, {"Comisiones de datáfono", "Comisiones bancarias"}},
        {"6270", "Publicidad, propaganda y relaciones públicas", 8, 1500, false, true, {"Publicidad en redes", "Folletos y catálogos"}},
        {"6280", "Suministros", 8, 1300, false, true, {"Electricidad", "Agua", "Teléfono e internet"}},
        {"6290", "Otros servicios", 8, 700, false, true, {"Limpieza", "Seguridad y vigilancia", "Material de oficina"}},
        {"6310", "Otros tributos", 9, 210, false, true, {"IBI y tasas municipales"}},
        {"6400", "Sueldos y salarios", 6, 14500, false, true, {"Sueldos dependientes", "Sueldos encargados"}},
        {"6420", "Seguridad Social a cargo de la empresa", 6, 4600, false, true, {"Seguridad Social a cargo de la empresa"}},
        {"6490", "Otros gastos sociales", 6, 260, false, true, {"Formación del personal"}},
        {"6620", "Intereses de deudas", 10, 380, false, true, {"Intereses de préstamos"}},
        {"6810", "Amortización del inmovilizado material", 10, 1250, false, false, {"Amortización de instalaciones"}},
    };
    return p;
}

struct Departamento {
    int codigo;
    QString nombre;
    double tamano;   // store size factor
    bool tienda;
};

// Retail seasonality: sales in January (sales season), spring, summer sales and Christmas.
constexpr double kEstacionalidad[12] = {1.12, 0.78, 0.92, 1.00, 1.02, 1.05, 1.18, 0.88, 0.90, 0.97, 1.05, 1.38};

void exec(QSqlQuery& q)
{
    if (!q.exec())
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("No se pueden generar los datos de demostración: %1").arg(q.lastError().text()));
}

QSqlQuery preparar(Conexion& c, const QString& sql)
{
    QSqlQuery q(c.baseDatos());
    if (!q.prepare(sql))
        throw VbError(VbError::DatabaseError,
                      QStringLiteral("No se pueden generar los datos de demostración: %1").arg(q.lastError().text()));
    return q;
}

double redondear2(double v) { return std::round(v * 100.0) / 100.0; }

bool esFestivo(const QDate& d)
{
    const int m = d.month(), dia = d.day();
    return d.dayOfWeek() == 7 || (m == 1 && (dia == 1 || dia == 6)) || (m == 5 && dia == 1) || (m == 8 && dia == 15)
           || (m == 10 && dia == 12) || (m == 11 && dia == 1) || (m == 12 && (dia == 6 || dia == 8 || dia == 25));
}

// The company's rows in the management tables and, through its link, its
// retail company's rows; what other companies share is left as it is.
void borrarEmpresa(Conexion& c, int emp, const QString& retail)
{
    for (const char* tabla : {"Empresas", "Departamentos", "Cuentas", "Config_Balances", "Presupuestos", "Acumulados", "Acumulados_Dpto"}) {
        QSqlQuery q = preparar(c, QStringLiteral("DELETE FROM %1 WHERE Cod_Empresa = ?").arg(QLatin1String(tabla)));
        q.addBindValue(emp);
        exec(q);
    }
    for (const char* tabla : {"Almacen_Acumulados", "Almacen_Acumulados_2"}) {
        QSqlQuery q = preparar(c, QStringLiteral("DELETE FROM %1.%2 WHERE Cod_Empresa IN "
                                                 "(SELECT Cod_Empresa FROM %1.Empresas_Contabilidad WHERE Cod_EmpresaC = ?)")
                                      .arg(retail, QLatin1String(tabla)));
        q.addBindValue(emp);
        exec(q);
    }
    QSqlQuery q = preparar(c, QStringLiteral("DELETE FROM %1.Empresas_Contabilidad WHERE Cod_EmpresaC = ?").arg(retail));
    q.addBindValue(emp);
    exec(q);
}

} // namespace

int DatosDemo::maximoCuentas() { return 9999 * static_cast<int>(prefijos().size()); }

bool DatosDemo::existeEmpresa(Conexion& c, int codEmpresa)
{
    // A database without the table has no company either.
    QSqlQuery q(c.baseDatos());
    q.prepare(QStringLiteral("SELECT COUNT(*) FROM Empresas WHERE Cod_Empresa = ?"));
    q.addBindValue(codEmpresa);
    return q.exec() && q.next() && q.value(0).toInt() > 0;
}

void DatosDemo::generar(Conexion& c, const OpcionesDemo& o)
{
    Esquema::crearGestion(c);
    const QString retail = Esquema::crearRetail(c, o.baseRetail);
    Aleatorio rnd(o.semilla);
    const int emp = o.codEmpresa;
    // The company's rows go first, and what other companies share (the
    // concepts) is kept as it is.
    const auto insertar = [&c](const QString& resto) { return c.controlador().insertarSiFalta(resto); };

    c.baseDatos().transaction();
    try {
        borrarEmpresa(c, emp, retail);
        // Company and departments.
        {
            QSqlQuery q = preparar(c, insertar(QStringLiteral("Empresas VALUES (?, ?, ?, ?)")));
            q.addBindValue(emp);
            q.addBindValue(!o.nombre.isEmpty() ? o.nombre
                           : o.cuentas > 0 ? QStringLiteral("Grandes Almacenes del Mediterráneo, S.A.")
                                         : QStringLiteral("Comercial Levante Moda, S.L."));
            q.addBindValue(o.ejercicioActual);
            q.addBindValue(QStringLiteral("1,2,3,4,8"));
            exec(q);
        }
        std::vector<Departamento> dptos;
        if (o.departamentos <= 0) {
            dptos = {{1, QStringLiteral("Valencia - Colón"), 1.25, true},
                     {2, QStringLiteral("Alicante - Maisonnave"), 1.0, true},
                     {3, QStringLiteral("Castellón - Mayor"), 0.8, true},
                     {4, QStringLiteral("Murcia - Trapería"), 0.95, true},
                     {9, QStringLiteral("Servicios centrales"), 0.6, false}};
        } else {
            static const char* ciudades[] = {"Valencia", "Alicante", "Castellón", "Murcia", "Elche", "Gandía", "Benidorm",
                                             "Torrevieja", "Cartagena", "Lorca", "Dénia", "Alcoy", "Sagunto", "Vila-real",
                                             "Orihuela", "Xàtiva", "Requena", "Ontinyent", "Vinaròs", "Alzira"};
            for (int i = 0; i < o.departamentos; ++i)
                dptos.push_back({i + 1, QStringLiteral("%1 %2").arg(QString::fromUtf8(ciudades[i % 20])).arg(i / 20 + 1),
                                 rnd.entre(0.6, 1.4), true});
        }
        {
            QSqlQuery q = preparar(c, insertar(QStringLiteral("Departamentos VALUES (?, ?, ?)")));
            for (const auto& d : dptos) {
                q.addBindValue(emp);
                q.addBindValue(d.codigo);
                q.addBindValue(d.nombre);
                exec(q);
            }
        }

        // Chart of accounts: same detail accounts in both years.
        struct Cuenta {
            QString codigo;
            QString nombre;
            const Prefijo* prefijo;
            double peso;
        };
        std::vector<Cuenta> cuentas;
        const auto& ps = prefijos();
        if (o.cuentas <= 0) {
            for (const auto& p : ps) {
                int n = 1;
                for (const char* sub : p.subcuentas) {
                    cuentas.push_back({QString::fromLatin1(p.texto) + QStringLiteral("%1").arg(n, 4, 10, QLatin1Char('0')),
                                       QString::fromUtf8(sub), &p, 1.0 / p.subcuentas.size()});
                    ++n;
                }
            }
        } else {
            const int porPrefijo = std::max(1, o.cuentas / static_cast<int>(ps.size()));
            int total = 0;
            for (std::size_t k = 0; k < ps.size() && total < o.cuentas; ++k) {
                const int n = (k + 1 == ps.size()) ? o.cuentas - total : std::min(porPrefijo, o.cuentas - total);
                for (int i = 1; i <= n; ++i) {
                    cuentas.push_back({QString::fromLatin1(ps[k].texto) + QStringLiteral("%1").arg(i, 4, 10, QLatin1Char('0')),
                                       QStringLiteral("%1 %2").arg(QString::fromUtf8(ps[k].nombre)).arg(i),
                                       &ps[k], 1.0 / n});
                }
                total += n;
            }
        }
        {
            QSqlQuery q = preparar(c, insertar(QStringLiteral("Cuentas VALUES (?, ?, ?, ?)")));
            for (int anyo = o.ejercicioActual - 1; anyo <= o.ejercicioActual; ++anyo) {
                for (const auto& p : ps) {
                    // Upper levels of the chart, as an accounting chart holds them.
                    const QString pref = QString::fromLatin1(p.texto);
                    q.addBindValue(emp);
                    q.addBindValue(anyo);
                    q.addBindValue(pref);
                    q.addBindValue(QString::fromUtf8(p.nombre));
                    exec(q);
                }
                for (const auto& cu : cuentas) {
                    q.addBindValue(emp);
                    q.addBindValue(anyo);
                    q.addBindValue(cu.codigo);
                    q.addBindValue(cu.nombre);
                    exec(q);
                }
            }
        }

        // Balance configuration of type 11: categories, account lines by prefix, and the concepts.
        {
            QSqlQuery q = preparar(c, insertar(QStringLiteral("Config_Balances VALUES (?, 11, ?, ?, ?, ?, ?)")));
            for (const auto& cat : kCategorias) {
                q.addBindValue(emp);
                q.addBindValue(cat.codigo);
                q.addBindValue(0);
                q.addBindValue(QString::fromUtf8(cat.texto));
                q.addBindValue(cat.padre);
                q.addBindValue(1);
                exec(q);
            }
            int codigo = 20;
            for (const auto& p : ps) {
                q.addBindValue(emp);
                q.addBindValue(codigo++);
                q.addBindValue(1);
                q.addBindValue(QString::fromLatin1(p.texto));
                q.addBindValue(p.categoria);
                q.addBindValue(p.ver ? 1 : 0);
                exec(q);
            }
            const char* conceptos[] = {"CTO002", "CTO003", "CTO004"};
            for (int i = 0; i < 3; ++i) {
                q.addBindValue(emp);
                q.addBindValue(246 + i);
                q.addBindValue(1);
                q.addBindValue(QString::fromLatin1(conceptos[i]));
                q.addBindValue(245);
                q.addBindValue(1);
                exec(q);
            }
        }
        {
            QSqlQuery q = preparar(c, insertar(QStringLiteral("Presupuestos_Conceptos VALUES (?, ?)")));
            const std::pair<const char*, const char*> conceptos[] = {
                {"CTO002", "Días con actividad"}, {"CTO003", "Tickets"}, {"CTO004", "Unidades vendidas"}};
            for (const auto& [codigo, nombre] : conceptos) {
                q.addBindValue(QString::fromLatin1(codigo));
                q.addBindValue(QString::fromUtf8(nombre));
                exec(q);
            }
        }

        // Monthly balances per department and company-wide.
        {
            QString columnas;
            QString marcas;
            for (int m = 1; m <= 12; ++m) {
                columnas += QStringLiteral(", D%1").arg(m);
                marcas += QStringLiteral(", ?");
            }
            for (int m = 1; m <= 12; ++m) {
                columnas += QStringLiteral(", H%1").arg(m);
                marcas += QStringLiteral(", ?");
            }
            QSqlQuery qd = preparar(c, insertar(QStringLiteral("Acumulados_Dpto (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto")
                                           + columnas + QStringLiteral(") VALUES (?, ?, ?, ?") + marcas + QLatin1Char(')')));
            QSqlQuery qa = preparar(c, insertar(QStringLiteral("Acumulados (Cod_Empresa, Cod_Ejercicio, Cuenta")
                                           + columnas + QStringLiteral(") VALUES (?, ?, ?") + marcas + QLatin1Char(')')));
            // The budget year's closed months are booked too, a little
            // above the year before.
            const int ultimoAnyo = o.ejercicioActual + (o.mesesCerrados > 0 ? 1 : 0);
            for (int anyo = o.ejercicioActual - 1; anyo <= ultimoAnyo; ++anyo) {
                const double crecimiento = anyo > o.ejercicioActual ? 1.07 : anyo == o.ejercicioActual ? 1.04 : 1.0;
                const int meses = anyo > o.ejercicioActual ? o.mesesCerrados : 12;
                for (const auto& cu : cuentas) {
                    double totalD[12] = {}, totalH[12] = {};
                    const Prefijo& p = *cu.prefijo;
                    const bool ventas = QByteArray(p.texto).startsWith("70");
                    for (const auto& d : dptos) {
                        if (!d.tienda && (ventas || QByteArray(p.texto).startsWith("60")))
                            continue;
                        double importeD[12] = {}, importeH[12] = {};
                        for (int m = 0; m < meses; ++m) {
                            const bool estacional = ventas || QByteArray(p.texto).startsWith("60");
                            double v = p.base * cu.peso * d.tamano * crecimiento * (estacional ? kEstacionalidad[m] : 1.0)
                                       * rnd.entre(0.9, 1.1);
                            v = redondear2(v);
                            // Income goes to credit and expenses to debit; negative bases are the opposite entries.
                            const bool haber = p.ingreso ? v >= 0 : v < 0;
                            (haber ? importeH : importeD)[m] = std::abs(v);
                            totalD[m] += importeD[m];
                            totalH[m] += importeH[m];
                        }
                        qd.addBindValue(emp);
                        qd.addBindValue(anyo);
                        qd.addBindValue(cu.codigo);
                        qd.addBindValue(d.codigo);
                        for (double v : importeD) qd.addBindValue(v);
                        for (double v : importeH) qd.addBindValue(v);
                        exec(qd);
                    }
                    qa.addBindValue(emp);
                    qa.addBindValue(anyo);
                    qa.addBindValue(cu.codigo);
                    for (double v : totalD) qa.addBindValue(redondear2(v));
                    for (double v : totalH) qa.addBindValue(redondear2(v));
                    exec(qa);
                }
            }
        }

        // Retail database: the company link and daily figures per store.
        {
            const int empRetail = emp + 2;
            QSqlQuery q = preparar(c, insertar(QStringLiteral("%1.Empresas_Contabilidad VALUES (?, ?, ?)").arg(retail)));
            q.addBindValue(empRetail);
            q.addBindValue(emp);
            q.addBindValue(QStringLiteral("Tiendas"));
            exec(q);
            QSqlQuery qt = preparar(c, insertar(QStringLiteral("%1.Almacen_Acumulados_2 VALUES (?, ?, ?, ?, ?, ?)").arg(retail)));
            QSqlQuery qu = preparar(c, insertar(QStringLiteral("%1.Almacen_Acumulados VALUES (?, ?, ?, ?, ?, ?, ?)").arg(retail)));
            const char* familias[] = {"TEX", "CAL", "COM"};
            const double precio[] = {29.9, 54.5, 14.9};
            for (int anyo = o.ejercicioActual - 1; anyo <= o.ejercicioActual; ++anyo) {
                for (const auto& d : dptos) {
                    if (!d.tienda)
                        continue;
                    for (QDate f(anyo, 1, 1); f.year() == anyo; f = f.addDays(1)) {
                        if (esFestivo(f))
                            continue;
                        const double base = 180.0 * d.tamano * kEstacionalidad[f.month() - 1] * (f.dayOfWeek() == 6 ? 1.4 : 1.0);
                        const int cajas = base > 190 ? 2 : 1;
                        for (int caja = 1; caja <= cajas; ++caja) {
                            const int tickets = static_cast<int>(base / cajas * rnd.entre(0.85, 1.15));
                            qt.addBindValue(empRetail);
                            qt.addBindValue(d.codigo);
                            qt.addBindValue(f.toString(Qt::ISODate));
                            qt.addBindValue(caja);
                            qt.addBindValue(tickets);
                            qt.addBindValue(redondear2(tickets * rnd.entre(28.0, 36.0)));
                            exec(qt);
                        }
                    }
                    for (int m = 1; m <= 12; ++m) {
                        for (int k = 0; k < 3; ++k) {
                            // Accessories are not sold in every store in summer: zero-unit rows exist.
                            const bool sinVentas = k == 2 && (m == 7 || m == 8) && d.codigo % 2 == 0;
                            const double unidades = sinVentas ? 0.0 : std::round(2600.0 / (k + 1) * d.tamano * kEstacionalidad[m - 1] * rnd.entre(0.9, 1.1));
                            qu.addBindValue(empRetail);
                            qu.addBindValue(d.codigo);
                            qu.addBindValue(anyo);
                            qu.addBindValue(m);
                            qu.addBindValue(QString::fromLatin1(familias[k]));
                            qu.addBindValue(unidades);
                            qu.addBindValue(redondear2(unidades * precio[k]));
                            exec(qu);
                        }
                    }
                }
            }
        }
        {
            QSqlQuery q(c.baseDatos());
            q.exec(QStringLiteral("DELETE FROM Configuracion"));
            q.prepare(QStringLiteral("INSERT INTO Configuracion VALUES (?)"));
            q.addBindValue(o.baseRetail);
            exec(q);
        }

        // A budget already started for next year: sales planned on last year
        // plus 5 % (method 2), purchases at 52 % of the budgeted sales of each
        // month (method 6, -52: an expense), salaries and rent spread evenly
        // (method 3), a few months typed by hand.
        if (o.presupuestoIniciado) {
            const int anyoPpto = o.ejercicioActual + 1;
            QString cols;
            for (int m = 1; m <= 12; ++m)
                cols += QStringLiteral(", M%1").arg(m);
            QSqlQuery qp = preparar(c, insertar(QStringLiteral("Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto")
                                           + cols + QStringLiteral(", Metodo_Calculo, Modificacion_Manual, Valor, Ver) VALUES (?, ?, ?, ?")
                                           + QStringLiteral(", ?").repeated(12) + QStringLiteral(", ?, ?, ?, ?)")));
            QSqlQuery qh(c.baseDatos());
            qh.prepare(QStringLiteral("SELECT H1-D1, H2-D2, H3-D3, H4-D4, H5-D5, H6-D6, H7-D7, H8-D8, H9-D9, H10-D10, H11-D11, H12-D12 "
                                      "FROM Acumulados_Dpto WHERE Cod_Empresa = ? AND Cod_Ejercicio = ? AND Cuenta = ? AND Dpto = ?"));
            std::vector<std::vector<double>> ventasDpto(dptos.size(), std::vector<double>(12, 0.0));
            // A year under way was planned whole before it began: every
            // account a store or office moved last year, on last year (sales
            // + 5 %, the rest + 3 %), so that tracking has a budget to set
            // each actual against.
            const bool completo = o.mesesCerrados > 0;
            for (std::size_t di = 0; di < dptos.size(); ++di) {
                const auto& d = dptos[di];
                for (const auto& cu : cuentas) {
                    const QString pref = QString::fromLatin1(cu.prefijo->texto);
                    const bool esVentas = pref.startsWith(QLatin1String("70"));
                    if (!esVentas && !completo)
                        continue;
                    const double porcentaje = esVentas ? 5.0 : 3.0;
                    qh.addBindValue(emp);
                    qh.addBindValue(o.ejercicioActual);
                    qh.addBindValue(cu.codigo);
                    qh.addBindValue(d.codigo);
                    exec(qh);
                    if (!qh.next())
                        continue;
                    qp.addBindValue(emp);
                    qp.addBindValue(anyoPpto);
                    qp.addBindValue(cu.codigo);
                    qp.addBindValue(d.codigo);
                    int mascara = 0;
                    for (int m = 0; m < 12; ++m) {
                        double h = qh.value(m).toDouble();
                        double v = h + redondear2(h * porcentaje / 100.0);
                        if (esVentas && cu.codigo.endsWith(QLatin1String("0001")) && m == 11 && d.codigo == 1) {
                            v = std::round(v * 1.10);   // Christmas campaign typed by hand
                            mascara |= 1 << m;
                        }
                        if (esVentas)
                            ventasDpto[di][m] += v;
                        qp.addBindValue(v);
                    }
                    qp.addBindValue(2);
                    qp.addBindValue(mascara);
                    qp.addBindValue(porcentaje);
                    qp.addBindValue(1);
                    exec(qp);
                    qh.finish();
                }
            }
            for (std::size_t di = 0; di < dptos.size() && !completo; ++di) {
                const auto& d = dptos[di];
                if (!d.tienda)
                    continue;
                for (const auto& cu : cuentas) {
                    const QString pref = QString::fromLatin1(cu.prefijo->texto);
                    double meses[12];
                    int metodo = 0;
                    double valor = 0;
                    // Expenses are planned with the sign their history has
                    // (credit less debit), so that they compare with it as
                    // they are and methods on the history keep the sign.
                    if (pref == QLatin1String("6000") && cu.codigo.endsWith(QLatin1String("0001"))) {
                        metodo = 6;
                        valor = -52;
                        for (int m = 0; m < 12; ++m)
                            meses[m] = -std::round(ventasDpto[di][m] * 52.0) / 100.0;
                    } else if (pref == QLatin1String("6400")) {
                        metodo = 3;
                        valor = -redondear2(cu.prefijo->base * cu.peso * d.tamano * 1.03);
                        for (double& v : meses)
                            v = valor;
                    } else if (pref == QLatin1String("6210")) {
                        metodo = 3;
                        valor = -redondear2(cu.prefijo->base * cu.peso * d.tamano);
                        for (double& v : meses)
                            v = valor;
                    } else {
                        continue;
                    }
                    qp.addBindValue(emp);
                    qp.addBindValue(anyoPpto);
                    qp.addBindValue(cu.codigo);
                    qp.addBindValue(d.codigo);
                    for (double v : meses)
                        qp.addBindValue(v);
                    qp.addBindValue(metodo);
                    qp.addBindValue(0);
                    qp.addBindValue(valor);
                    qp.addBindValue(1);
                    exec(qp);
                }
            }
        }
        if (!c.baseDatos().commit())
            throw VbError(VbError::DatabaseError, c.baseDatos().lastError().text());
    } catch (...) {
        c.baseDatos().rollback();
        throw;
    }
}

} // namespace presupuestos
