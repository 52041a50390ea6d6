// The row summary's figures from the two grids: an account against its
// history, a department's rows and its retail ratios, the grand total.

#include "BaseDatosPrueba.h"
#include "db/Conexion.h"
#include "worksheet/core/RejillaPresupuesto.h"
#include "worksheet/core/ResumenFila.h"

#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::hoja;
using presupuestos::prueba::BaseDatosPrueba;

namespace {

struct Fila {
    int dpto;
    const char* nombreDpto;
    const char* cuenta;
    int enero;
    int febrero;
};

// A grid filled as the worksheet fills it, with its subtotals and, for two
// departments or more, the grand total.
struct Rejilla {
    RejillaPresupuesto r;
    ModeloRejilla& m = r;
    const ModeloPresupuesto& d = r.datos();

    Rejilla(BaseDatosPrueba& bd, std::initializer_list<Fila> filas)
    {
        RejillaPresupuesto::Aspecto a;
        a.dptos = 2;
        r.setAspecto(a);
        QStringList selects;
        for (const Fila& f : filas) {
            QStringList meses;
            for (int mes = 1; mes <= 12; ++mes)
                meses << QStringLiteral("%1 AS M%2").arg(mes == 1 ? f.enero : mes == 2 ? f.febrero : 0).arg(mes);
            selects << QStringLiteral("SELECT %1 AS Dpto, '%2' AS Dpto_Nombre, '%3' AS Cuenta, 'Cuenta %3' AS Nombre, %4")
                           .arg(f.dpto)
                           .arg(QString::fromLatin1(f.nombreDpto), QString::fromLatin1(f.cuenta), meses.join(QStringLiteral(", ")));
        }
        Recordset rs = bd.conexion->Abrir(selects.join(QStringLiteral(" UNION ALL ")) + QStringLiteral(" ORDER BY 1, 3"));
        r.llenar(rs, false);
        r.crearTotales();
    }

    int fila(const QString& cuenta, int dpto) const
    {
        for (int f = 1; f < m.Rows(); ++f)
            if (!m.IsSubtotal(f) && m.TextMatrix(f, kCuenta) == cuenta && m.TextMatrix(f, kDpto) == QString::number(dpto))
                return f;
        return -1;
    }
    int subtotal(const QString& dpto) const
    {
        for (int f = 1; f < m.Rows(); ++f)
            if (m.IsSubtotal(f) && m.SubtotalGroupColumn(f) == kDptoNombre && m.TextMatrix(f, kDptoNombre) == dpto)
                return f;
        return -1;
    }
};

constexpr Suma k1 = 10000;   // one unit in ten-thousandths

} // namespace

TEST(ResumenFila, AnAccountAgainstItsOwnHistoryRowWhereverItStands)
{
    BaseDatosPrueba bd;
    Rejilla p(bd, {{1, "Norte", "70000001", 300, 100}, {1, "Norte", "62800001", -40, 0}, {2, "Sur", "70000001", 50, 0}});
    // The history has rows the budget does not, so the rows stand elsewhere.
    Rejilla h(bd, {{1, "Norte", "60000001", -5, 0}, {1, "Norte", "70000001", 200, 120}, {2, "Sur", "70000001", 0, 0}});

    const ResumenFila r = CalculoResumen::calcular(p.d, &h.d, p.fila(QStringLiteral("70000001"), 1));
    EXPECT_EQ(r.tipo, ResumenFila::Tipo::Cuenta);
    EXPECT_EQ(r.titulo, QStringLiteral("70000001 - Cuenta 70000001"));
    EXPECT_TRUE(r.conHistorico);
    EXPECT_EQ(r.presupuesto.meses[0], 300 * k1);
    EXPECT_EQ(r.presupuesto.meses[1], 100 * k1);
    EXPECT_EQ(r.presupuesto.total, 400 * k1);
    EXPECT_EQ(r.historico.meses[1], 120 * k1);
    EXPECT_EQ(r.historico.total, 320 * k1);
    EXPECT_EQ(r.diferencia(), 80 * k1);
    ASSERT_TRUE(r.porcentaje());
    EXPECT_DOUBLE_EQ(*r.porcentaje(), 25.0);

    // A history of nothing has no percentage; without the history grid
    // there is no history at all.
    const ResumenFila sur = CalculoResumen::calcular(p.d, &h.d, p.fila(QStringLiteral("70000001"), 2));
    EXPECT_TRUE(sur.conHistorico);
    EXPECT_FALSE(sur.porcentaje());
    const ResumenFila sinHistorico = CalculoResumen::calcular(p.d, nullptr, p.fila(QStringLiteral("62800001"), 1));
    EXPECT_FALSE(sinHistorico.conHistorico);
    EXPECT_EQ(sinHistorico.presupuesto.total, -40 * k1);
    EXPECT_EQ(CalculoResumen::calcular(p.d, &h.d, 0).tipo, ResumenFila::Tipo::Ninguna);
    EXPECT_EQ(CalculoResumen::calcular(p.d, &h.d, p.m.Rows()).tipo, ResumenFila::Tipo::Ninguna);
}

TEST(ResumenFila, ADepartmentSumsItsRowsAndDividesSalesByTicketsAndDaysOpen)
{
    BaseDatosPrueba bd;
    Rejilla p(bd, {{1, "Norte", "70000001", 3000, 0}, {1, "Norte", "70500001", 1000, 0}, {1, "Norte", "62800001", -500, 0},
                   {1, "Norte", "CTO003", 200, 0}, {1, "Norte", "CTO002", 25, 0}, {2, "Sur", "70000001", 900, 0}});
    Rejilla h(bd, {{1, "Norte", "70000001", 2400, 300}, {1, "Norte", "CTO003", 180, 20}, {1, "Norte", "CTO002", 26, 4},
                   {2, "Sur", "70000001", 700, 0}});

    const ResumenFila norte = CalculoResumen::calcular(p.d, &h.d, p.subtotal(QStringLiteral("Norte")));
    EXPECT_EQ(norte.tipo, ResumenFila::Tipo::Departamento);
    EXPECT_EQ(norte.titulo, QStringLiteral("Norte"));
    // As the subtotal row shows it: every row of the department.
    EXPECT_EQ(norte.presupuesto.total, p.m.ValorMatrix(p.subtotal(QStringLiteral("Norte")), kTotal));
    EXPECT_EQ(norte.presupuesto.total, (3000 + 1000 - 500 + 200 + 25) * k1);
    EXPECT_EQ(norte.historico.meses[1], (300 + 20 + 4) * k1);
    EXPECT_TRUE(norte.conEstadisticas);
    EXPECT_EQ(norte.presupuesto.ventas, 4000 * k1);
    EXPECT_DOUBLE_EQ(norte.presupuesto.ticketMedio().value_or(0), 20.0);
    EXPECT_DOUBLE_EQ(norte.presupuesto.ventasPorDia().value_or(0), 160.0);
    EXPECT_DOUBLE_EQ(norte.historico.ticketMedio().value_or(0), 2700.0 / 200.0);
    EXPECT_DOUBLE_EQ(norte.historico.ventasPorDia().value_or(0), 2700.0 / 30.0);

    // Sur has no statistics: no ratios.
    const ResumenFila sur = CalculoResumen::calcular(p.d, &h.d, p.subtotal(QStringLiteral("Sur")));
    EXPECT_FALSE(sur.conEstadisticas);
    EXPECT_FALSE(sur.presupuesto.ticketMedio());
    EXPECT_EQ(sur.historico.total, 700 * k1);

    const ResumenFila todo = CalculoResumen::calcular(p.d, &h.d, 1);
    ASSERT_EQ(todo.tipo, ResumenFila::Tipo::TotalGeneral);
    EXPECT_EQ(todo.presupuesto.total, p.m.ValorMatrix(1, kTotal));
    EXPECT_EQ(todo.historico.total, h.m.ValorMatrix(1, kTotal));
    EXPECT_EQ(todo.presupuesto.ventas, 4900 * k1);
}

// Budget and history compare with the signs they carry: an expense is
// negative in both, and a percentage is the difference over the history's
// size; none against nothing or against the other sign.
TEST(ResumenFila, APercentageComparesLikeWithLike)
{
    struct Caso {
        qint64 presupuesto, historico;
        std::optional<double> porcentaje;
    } casos[] = {
        {1250, 1000, 25.0},     // more income
        {-1050, -1000, -5.0},   // more expense: worse
        {-950, -1000, 5.0},     // less expense: better
        {500, 0, std::nullopt}, // nothing to compare with
        {500, -1000, std::nullopt},
        {-500, 1000, std::nullopt},
        {0, -1000, 100.0},      // the expense is gone
    };
    for (const Caso& c : casos) {
        ResumenFila r;
        r.presupuesto.total = c.presupuesto;
        r.historico.total = c.historico;
        EXPECT_EQ(r.porcentaje().has_value(), c.porcentaje.has_value()) << c.presupuesto << " / " << c.historico;
        if (r.porcentaje() && c.porcentaje) {
            EXPECT_DOUBLE_EQ(*r.porcentaje(), *c.porcentaje) << c.presupuesto << " / " << c.historico;
        }
    }
}
