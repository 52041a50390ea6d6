// The worksheet grid's rules without a window: rows from a recordset,
// subtotals, totals and completion, sections and the cursor after Enter.

#include "BaseDatosPrueba.h"
#include "db/Conexion.h"
#include "store/clsDBPresupuesto.h"
#include "common/VbError.h"
#include "worksheet/core/ComprobadorTotales.h"
#include "worksheet/core/EscrituraHoja.h"
#include "worksheet/core/RejillaPresupuesto.h"

#include <QAbstractItemModel>
#include <gtest/gtest.h>

#include <set>

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
    RejillaPresupuesto r;
    ModeloRejilla& m = r;
    Completado completado;

    explicit Rejilla(int decimales = 0, int dptos = 2)
    {
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
    // The method's value is red when negative, and only then.
    for (const int valor : {9, 0, -9}) {
        v.valor = Currency::fromInt(valor);
        g.r.mostrar(3, v);
        EXPECT_EQ(g.m.CellForeColor(3, kValor), valor < 0 ? QColor(255, 0, 0) : g.m.CellForeColor(3, kMetodo)) << valor;
    }
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
        ComprobadorTotales comprobador(g.r);
        for (const auto& [fila, mes] : c.celdas)
            comprobador.cambiar(fila, colMes(mes), mitad);
        EXPECT_EQ(prueba::numeroError([&] { comprobador.comprobar(); }), c.desborda ? VbError::Overflow : 0) << c.que;
    }
    // A total already out of range does not stop a change that leaves it so.
    Rejilla g;
    g.m.setTextMatrix(2, colMes(1), QStringLiteral("900.000.000.000.000"));
    g.m.setTextMatrix(2, colMes(2), QStringLiteral("900.000.000.000.000"));
    ASSERT_EQ(g.m.TextMatrix(2, kTotal), ModeloRejilla::MarcaDesbordamiento());
    ComprobadorTotales comprobador(g.r);
    comprobador.cambiar(3, colMes(1), Currency::fromInt(1));
    EXPECT_EQ(prueba::numeroError([&] { comprobador.comprobar(); }), 0);
}

// ---- The typed model: sums kept by difference, rows announced alone ----------------------

TEST(RejillaPresupuesto, AChangedMonthMovesItsTotalsByTheDifferenceAndAnnouncesOnlyItsRows)
{
    // 1 grand total; 2 6000 Norte (1, 2); 3 7000 Norte; 4 subtotal Norte; 5 7000 Sur (-5); 6 subtotal Sur.
    struct Caso {
        const char* que;
        int fila, mes;
        const char* texto;
        const char* total, *subtotal, *general;   // January's column and the row's total
        std::set<int> anunciadas;
    } casos[] = {
        {"a month of a department", 3, 1, "1.000", "1.000", "1.001", "996", {1, 3, 4}},
        {"a negative", 5, 1, "-1.000", "-1.000", "-1.000", "1", {1, 5, 6}},
        {"a text that is no amount counts nothing", 2, 1, "n/a", "2", "1.000", "0", {1, 2, 4}},
        {"the same amount again is no change", 2, 2, "2", "2", "1.000", "0", {}},
    };
    Rejilla g;
    const ModeloPresupuesto& d = g.r.datos();
    for (const Caso& c : casos) {
        std::set<int> anunciadas;
        auto conexion = QObject::connect(&d, &QAbstractItemModel::dataChanged, [&](const QModelIndex& a, const QModelIndex& b) {
            for (int r = a.row(); r <= b.row(); ++r)
                anunciadas.insert(r + 1);
        });
        const long long antes = d.terminosSumados();
        g.m.setTextMatrix(c.fila, colMes(c.mes), QString::fromLatin1(c.texto));
        QObject::disconnect(conexion);
        EXPECT_LE(d.terminosSumados() - antes, 8) << c.que << ": no column is summed again";
        EXPECT_EQ(g.m.TextMatrix(c.fila, colMes(c.mes)), QString::fromLatin1(c.texto)) << c.que << ": shown as typed";
        EXPECT_EQ(g.m.TextMatrix(c.fila, kTotal), QString::fromLatin1(c.total)) << c.que;
        EXPECT_EQ(g.m.TextMatrix(g.r.ultimaFilaSeccion(c.fila) + 1, colMes(1)), QString::fromLatin1(c.subtotal)) << c.que;
        EXPECT_EQ(g.m.TextMatrix(1, colMes(1)), QString::fromLatin1(c.general)) << c.que;
        EXPECT_EQ(anunciadas, c.anunciadas) << c.que;
    }
    // Back to the loaded amounts, the kept sums are a fresh load's to the digit.
    g.m.setTextMatrix(2, colMes(1), QStringLiteral("1"));
    g.m.setTextMatrix(3, colMes(1), QStringLiteral("0"));
    g.m.setTextMatrix(5, colMes(1), QStringLiteral("-5"));
    Rejilla fresca;
    EXPECT_EQ(g.m.Clip(1, 0, g.m.Rows() - 1, kValor), fresca.m.Clip(1, 0, fresca.m.Rows() - 1, kValor));
}

TEST(RejillaPresupuesto, ABatchAnnouncesEachRunOfChangedRowsOnceWhenRedrawComesBack)
{
    Rejilla g;
    std::vector<std::pair<int, int>> anuncios;
    QObject::connect(&g.r.datos(), &QAbstractItemModel::dataChanged,
                     [&](const QModelIndex& a, const QModelIndex& b) { anuncios.emplace_back(a.row() + 1, b.row() + 1); });
    g.m.setRedraw(false);
    for (int mes = 1; mes <= 12; ++mes)
        g.r.ponerMes(2, mes, Currency::fromInt(mes));
    g.r.ponerMes(5, 1, Currency::fromInt(9));
    EXPECT_TRUE(anuncios.empty());
    g.m.setRedraw(true);
    EXPECT_EQ(anuncios, (std::vector<std::pair<int, int>>{{1, 2}, {4, 6}}));
    EXPECT_EQ(g.m.TextMatrix(1, kTotal), QStringLiteral("87"));
}

TEST(RejillaPresupuesto, MonthsShowAsTheFormatWritesThemAndSumWhatTheyShow)
{
    // The load gives amounts as numbers with the worksheet's format; what a
    // cell shows, copies and sums must be exactly the format's text.
    for (const QString& formato : {QStringLiteral("#,0"), QStringLiteral("#,0.00"), QStringLiteral("0.0000"), QStringLiteral("#,0.000000")}) {
        RejillaPresupuesto r;
        RejillaPresupuesto::Aspecto a;
        a.formato = formato;
        a.decimales = 4;
        r.setAspecto(a);
        const std::int64_t valores[] = {0, 1, 5, 49, 50, -50, -5000, 12345678, -12345678, 99999, 4, -4};
        r.datos().empezarCarga();
        Suma suma = 0;
        for (std::int64_t v : valores) {
            ModeloPresupuesto::Entrada e;
            e.dptoNombre = QStringLiteral("Tienda");
            e.meses[0] = v;
            suma += v;
            r.datos().agregar(e);
        }
        ModeloPresupuesto::Entrada fuera;
        fuera.dptoNombre = QStringLiteral("Otra");
        fuera.meses[0] = kSumaFueraDeRango;
        r.datos().agregar(fuera);
        r.datos().terminarCarga();
        r.crearTotales();
        for (std::size_t i = 0; i < std::size(valores); ++i)
            EXPECT_EQ(r.TextMatrix(static_cast<int>(i) + 1, colMes(1)), es::formatear(Currency::fromRaw(valores[i]), formato))
                << formato.toStdString() << " " << valores[i];
        EXPECT_EQ(r.TextMatrix(static_cast<int>(std::size(valores)) + 1, colMes(1)),
                  es::formatear(Currency::fromRaw(static_cast<std::int64_t>(suma)), formato));
        EXPECT_EQ(r.TextMatrix(r.Rows() - 2, colMes(1)), ModeloRejilla::MarcaDesbordamiento()) << "out of the currency's range";
        EXPECT_EQ(r.TextMatrix(r.Rows() - 1, kTotal), ModeloRejilla::MarcaDesbordamiento());
    }
}
