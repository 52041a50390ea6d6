#include "BaseDatosPrueba.h"
#include "db/schema/DatosDemo.h"
#include "worksheet/core/Seguimiento.h"

#include <gtest/gtest.h>

using namespace presupuestos;
using presupuestos::prueba::BaseDatosPrueba;

namespace {

// A sum over the database, in ten-thousandths, computed apart from the
// worksheet: the months 1..n (or n+1..12 when desde is given) of an
// expression per month.
Suma suma(BaseDatosPrueba& bd, const QString& tabla, const QString& expresion, int desde, int hasta, const QString& donde = QString())
{
    QStringList partes;
    for (int m = desde; m <= hasta; ++m)
        partes << QString(expresion).replace(QLatin1String("#"), QString::number(m));
    if (partes.isEmpty())
        return 0;
    const QString sql = QStringLiteral("SELECT COALESCE(SUM(%1), 0) FROM %2 WHERE Cod_Empresa = 2 AND Cod_Ejercicio = 2027%3")
                            .arg(partes.join(QStringLiteral(" + ")), tabla, donde);
    return Currency::fromVariant(bd.valor(sql)).raw();
}

} // namespace

// Tracking's figures equal sums computed from the balances and the budget
// rows apart, whatever the months closed; a company under way closes its
// last month with balances by default.
TEST(Seguimiento, FiguresEqualTheBalancesAndBudgetSummedApart)
{
    BaseDatosPrueba bd(true);
    OpcionesDemo o;
    o.codEmpresa = 2;
    o.mesesCerrados = 4;
    DatosDemo::generar(*bd.conexion, o);
    const Sesion sesion{std::make_shared<EmpresaFija>(2, 2026), bd.conexion, 2027};
    Seguimiento s(sesion);
    s.cargar();
    EXPECT_EQ(s.ultimoMesConSaldos(), 4);
    // A year under way was planned whole: every actual has a budget to meet.
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Acumulados_Dpto a WHERE a.Cod_Empresa = 2 AND a.Cod_Ejercicio = 2027 "
                                      "AND NOT EXISTS (SELECT 1 FROM Presupuestos p WHERE p.Cod_Empresa = 2 AND p.Cod_Ejercicio = 2027 "
                                      "AND p.Cuenta = a.Cuenta AND p.Dpto = a.Dpto)"))
                  .toInt(),
              0);
    ASSERT_FALSE(s.filas().empty());
    const FilaSeguimiento& total = s.filas().back();
    ASSERT_EQ(total.tipo, FilaSeguimiento::Tipo::Total);
    // A store's rent, as one account row, and its department's subtotal.
    const auto buscar = [&](FilaSeguimiento::Tipo tipo, qint16 dpto, const QString& cuenta) -> const FilaSeguimiento* {
        for (const FilaSeguimiento& f : s.filas())
            if (f.tipo == tipo && f.dpto == dpto && f.cuenta == cuenta)
                return &f;
        return nullptr;
    };
    const FilaSeguimiento* alquiler = buscar(FilaSeguimiento::Tipo::Cuenta, 1, QStringLiteral("62100001"));
    const FilaSeguimiento* tienda = buscar(FilaSeguimiento::Tipo::Departamento, 1, QString());
    ASSERT_TRUE(alquiler && tienda);
    // The year under way has no chart of its own yet: the last one names it.
    EXPECT_FALSE(alquiler->nombre.isEmpty());
    const QString unaFila = QStringLiteral(" AND Dpto = 1 AND Cuenta = '62100001'");
    const QString unDpto = QStringLiteral(" AND Dpto = 1");
    for (int n : {0, 1, 4, 7, 12}) {
        for (const auto& [fila, donde] : {std::pair{&total, QString()}, std::pair{tienda, unDpto}, std::pair{alquiler, unaFila}}) {
            const Suma real = suma(bd, QStringLiteral("Acumulados_Dpto"), QStringLiteral("H# - D#"), 1, n, donde);
            const Suma hastaHoy = suma(bd, QStringLiteral("Presupuestos"), QStringLiteral("M#"), 1, n, donde);
            const Suma resto = suma(bd, QStringLiteral("Presupuestos"), QStringLiteral("M#"), n + 1, 12, donde);
            EXPECT_EQ(fila->realHastaHoy(n), real) << n << donde.toStdString();
            EXPECT_EQ(fila->presupuestoHastaHoy(n), hastaHoy) << n << donde.toStdString();
            EXPECT_EQ(fila->desviacion(n), real - hastaHoy) << n << donde.toStdString();
            EXPECT_EQ(fila->prevision(n), real + resto) << n << donde.toStdString();
        }
    }
    // The demo's company under way has its four months booked and no more,
    // beside the other company's figures, which stay.
    EXPECT_NE(total.realHastaHoy(4), 0);
    EXPECT_EQ(total.realHastaHoy(12), total.realHastaHoy(4));
    EXPECT_GT(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos WHERE Cod_Empresa = 1")).toInt(), 0);
}

// The percentage is of the budget's size, and none where it means nothing;
// beyond the threshold a deviation is marked against or for the result.
TEST(Seguimiento, PercentagesAndColoursFollowTheThreshold)
{
    struct Caso {
        qint64 presupuesto, real;
        const char* porcentaje;
        int senal;   // with a threshold of 10 %
    } casos[] = {
        {1000, 1050, "5,0 %", 0},      // income a little above
        {1000, 800, "-20,0 %", -1},    // income short
        {-1000, -1200, "-20,0 %", -1}, // expense over
        {-1000, -850, "15,0 %", 1},    // expense under
        {0, -300, "—", -1},            // spent without a budget
        {1000, -10, "—", -1},          // the other sign
        {0, 0, "—", 0},
    };
    std::vector<FilaSeguimiento> filas;
    for (const Caso& c : casos) {
        FilaSeguimiento f;
        f.presupuesto[0] = c.presupuesto * 10000;
        f.real[0] = c.real * 10000;
        f.presupuesto[5] = 777 * 10000;   // after the closed month: only in the forecast
        filas.push_back(f);
    }
    ModeloSeguimiento m;
    m.setFilas(filas);
    m.setMesesCerrados(1);
    m.setUmbral(10);
    for (int i = 0; i < static_cast<int>(std::size(casos)); ++i) {
        EXPECT_EQ(m.texto(i, ModeloSeguimiento::Porcentaje), QString::fromUtf8(casos[i].porcentaje)) << i;
        EXPECT_EQ(m.senal(i), casos[i].senal) << i;
        EXPECT_EQ(m.texto(i, ModeloSeguimiento::Prevision), es::formatear(Currency::fromInt(casos[i].real + 777), QStringLiteral("#,0"))) << i;
    }
}
