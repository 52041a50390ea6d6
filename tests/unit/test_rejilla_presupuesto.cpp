// The worksheet grid's rules without a window: rows from a recordset,
// subtotals, totals and completion, sections and the cursor after Enter.

#include "BaseDatosPrueba.h"
#include "db/Conexion.h"
#include "store/clsDBPresupuesto.h"
#include "common/VbError.h"
#include "worksheet/core/ComprobadorTotales.h"
#include "worksheet/core/EscrituraHoja.h"
#include "worksheet/core/RejillaPresupuesto.h"

#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::hoja;
using presupuestos::prueba::BaseDatosPrueba;

namespace {

// Rows as the budget query returns them: department, its name, account, name,
// twelve months, method, marks, value.
QString fila(int dpto, const char* nombreDpto, const char* cuenta, const QString& meses, int manual = 0)
{
    return QStringLiteral("SELECT %1 AS Dpto, '%2' AS Dpto_Nombre, '%3' AS Cuenta, 'n' AS Nombre, %4, 0 AS Metodo_Calculo, "
                          "%5 AS Modificacion_Manual, 0 AS Valor")
        .arg(dpto)
        .arg(QString::fromLatin1(nombreDpto), QString::fromLatin1(cuenta), meses)
        .arg(manual);
}

QString meses(const QStringList& v)
{
    QStringList l;
    for (int m = 0; m < 12; ++m)
        l << v.value(m, QStringLiteral("0")) + QStringLiteral(" AS M") + QString::number(m + 1);
    return l.join(QStringLiteral(", "));
}

struct Rejilla {
    BaseDatosPrueba bd;
    ModeloRejilla m;
    RejillaPresupuesto r{m};
    Completado completado;

    explicit Rejilla(int decimales = 0, int dptos = 2)
    {
        m.setCols(kColumnas);
        m.setFixedRows(1);
        RejillaPresupuesto::Aspecto a;
        a.decimales = decimales;
        a.formato = decimales ? QStringLiteral("#,0.") + QString(decimales, QLatin1Char('0')) : QStringLiteral("#,0");
        a.manual = QColor(172, 250, 185);
        a.subtotal = QColor(190, 228, 245);
        a.dptos = dptos;
        r.setAspecto(a);
        Recordset rs = bd.conexion->Abrir(fila(1, "Norte", "6000", meses({"1.4", "2.4"}), 2) + QStringLiteral(" UNION ALL ")
                                          + fila(1, "Norte", "7000", meses({})) + QStringLiteral(" UNION ALL ")
                                          + fila(2, "Sur", "7000", meses({"-5"})));
        completado = r.llenar(rs, true);
        r.crearTotales();
        r.indexar();
    }
};

} // namespace

TEST(RejillaPresupuesto, RowsAreFilledRoundedWithTotalsSubtotalsAndCompletion)
{
    Rejilla g;
    // 1 grand total; 2, 3 Norte; 4 subtotal Norte; 5 Sur; 6 subtotal Sur.
    ASSERT_EQ(g.m.Rows(), 7);
    EXPECT_EQ(g.completado.filas, 3);
    EXPECT_EQ(g.completado.conValores, 2);
    EXPECT_EQ(g.completado.texto(), QStringLiteral("67%"));
    EXPECT_EQ(Completado{}.texto(), QString());
    EXPECT_EQ(g.m.TextMatrix(2, colMes(1)), QStringLiteral("1"));
    EXPECT_EQ(g.m.TextMatrix(2, kTotal), QStringLiteral("3")) << "the sum of the rounded months";
    EXPECT_EQ(g.m.CellBackColor(2, colMes(2)), QColor(172, 250, 185)) << "marked by hand";
    EXPECT_TRUE(g.m.IsSubtotal(1));
    EXPECT_TRUE(g.m.IsSubtotal(4));
    EXPECT_EQ(g.m.TextMatrix(4, kNombre), QStringLiteral("Norte"));
    EXPECT_EQ(g.m.TextMatrix(1, kTotal), QStringLiteral("-2"));
    EXPECT_EQ(g.r.fila(QStringLiteral("7000"), 2), 5);
    EXPECT_EQ(g.r.mes(2, 2), Currency::fromInt(2));
    EXPECT_EQ(g.r.mascara(2), 2);

    Rejilla unDpto(1, 1);
    EXPECT_FALSE(unDpto.m.IsSubtotal(1)) << "one department: no grand total";
    EXPECT_EQ(unDpto.m.TextMatrix(1, kTotal), QStringLiteral("3,8"));
}

TEST(RejillaPresupuesto, RecomputedTotalsReportRowsThatGainOrLoseFigures)
{
    Rejilla g;
    struct Caso {
        int fila;
        const char* texto;
        int cambio;
        const char* subtotal;
    } casos[] = {
        {3, "7", 1, "10"},    // 7000 Norte gains figures
        {3, "0", -1, "3"},    // and loses them
        {2, "-3", 0, "-1"},   // 6000 keeps having them
    };
    for (const Caso& c : casos) {
        g.m.setTextMatrix(c.fila, colMes(1), QString::fromLatin1(c.texto));
        EXPECT_EQ(g.r.recalcularFilas(c.fila, c.fila, colMes(1), colMes(1)), c.cambio) << c.texto;
        EXPECT_EQ(g.m.TextMatrix(4, kTotal), QString::fromLatin1(c.subtotal)) << c.texto;
    }
}

TEST(RejillaPresupuesto, EditingSectionsAndTheRowAfterEnter)
{
    Rejilla g;
    EXPECT_TRUE(g.r.editable(2, colMes(1), true));
    EXPECT_TRUE(g.r.editable(2, colMes(12), true));
    EXPECT_FALSE(g.r.editable(2, kNombre, true));
    EXPECT_FALSE(g.r.editable(2, kTotal, true));
    EXPECT_FALSE(g.r.editable(4, colMes(1), true)) << "a subtotal";
    EXPECT_FALSE(g.r.editable(2, colMes(1), false)) << "accounts out of the budget";

    EXPECT_EQ(g.r.filaSiguiente(3), 5) << "over the subtotal";
    EXPECT_EQ(g.r.filaSiguiente(5), 6) << "the last row even if it is a total";
    EXPECT_EQ(g.r.filaSiguiente(6), 6);
    EXPECT_EQ(g.r.primeraFilaSeccion(3), 2);
    EXPECT_EQ(g.r.ultimaFilaSeccion(2), 3);
    EXPECT_EQ(g.r.primeraFilaSeccion(5), 5);
    EXPECT_EQ(g.r.ultimaFilaSeccion(5), 5);
}

TEST(RejillaPresupuesto, AStoredRowIsShownWithItsMarks)
{
    Rejilla g;
    RejillaPresupuesto::Valores v;
    v.meses[4] = Currency::fromInt(500);
    v.manual = 16;
    v.metodo = 3;
    v.valor = Currency::fromInt(9);
    EXPECT_EQ(g.r.mostrar(3, v), 1);
    EXPECT_EQ(g.m.TextMatrix(3, colMes(5)), QStringLiteral("500"));
    EXPECT_EQ(g.m.CellBackColor(3, colMes(5)), QColor(172, 250, 185));
    EXPECT_EQ(g.m.TextMatrix(3, kMetodo), QStringLiteral("3"));
    EXPECT_EQ(g.m.TextMatrix(3, kValor), QStringLiteral("9"));
    EXPECT_EQ(g.m.TextMatrix(1, kTotal), QStringLiteral("498"));
}

TEST(RejillaPresupuesto, APasteWritesTheSelectionOrTheBlockAndAClearSkipsTotalRows)
{
    Rejilla g;
    clsDBPresupuesto store(g.bd.sesion);
    EscrituraHoja e(g.bd.sesion, g.r, store, {});
    auto celdas = [](const std::vector<EscrituraHoja::Celda>& v) {
        QStringList l;
        for (const auto& c : v)
            l << QStringLiteral("%1,%2=%3").arg(c.fila).arg(c.col).arg(c.valor.toPlainText());
        return l.join(QLatin1Char(' '));
    };
    auto bloque = [](const char* texto) { return *LectorPortapapeles::leer(QString::fromLatin1(texto), 0, 100, 12); };
    bool pasa = false;
    // One value over rows 3 to 5 (4 is a subtotal) and January to February.
    EXPECT_EQ(celdas(e.celdasPegado(bloque("7"), 3, 5, colMes(1), colMes(2), &pasa)),
              QStringLiteral("3,4=7 3,5=7 5,4=7 5,5=7"));
    EXPECT_FALSE(pasa);
    // A block at row 3 from November: the subtotal takes its line, December ends the line.
    EXPECT_EQ(celdas(e.celdasPegado(bloque("1\t2\t3\r\n4\t5\t6\r\n7\t8\t9"), 3, 3, colMes(11), colMes(11), &pasa)),
              QStringLiteral("3,14=1 3,15=2 5,14=7 5,15=8"));
    EXPECT_FALSE(pasa);
    // Longer than the grid: what fits, and the caller is told.
    e.celdasPegado(bloque("1\r\n2\r\n3\r\n4"), 5, 5, colMes(1), colMes(1), &pasa);
    EXPECT_TRUE(pasa);
    EXPECT_EQ(celdas(e.celdasBorrado(1, 4, kNombre, kTotal)).count(QLatin1Char('=')), 24) << "rows 2 and 3, twelve months each";
}

TEST(RejillaPresupuesto, TotalsThatWouldLeaveTheCurrencyRangeAreRefusedBeforehand)
{
    const Currency mitad = Currency::fromInt(500'000'000'000'000);
    struct Caso {
        const char* que;
        std::vector<std::pair<int, int>> celdas;   // (row, month) set to half the range
        bool desborda;
    } casos[] = {
        {"one month", {{2, 3}}, false},
        {"two months of a row", {{2, 3}, {2, 4}}, true},
        {"two rows of a department", {{2, 3}, {3, 3}}, true},
        {"two departments: the grand total", {{2, 3}, {5, 4}}, true},
    };
    for (const Caso& c : casos) {
        Rejilla g;
        ComprobadorTotales comprobador(g.m);
        for (const auto& [fila, mes] : c.celdas)
            comprobador.cambiar(fila, colMes(mes), mitad);
        EXPECT_EQ(prueba::numeroError([&] { comprobador.comprobar(); }), c.desborda ? VbError::Overflow : 0) << c.que;
    }
    // A total already out of range does not stop a change that leaves it so.
    Rejilla g;
    g.m.setTextMatrix(2, kTotal, ModeloRejilla::MarcaDesbordamiento());
    ComprobadorTotales comprobador(g.m);
    comprobador.cambiar(3, colMes(1), Currency::fromInt(1));
    EXPECT_EQ(prueba::numeroError([&] { comprobador.comprobar(); }), 0);
}
