#include "worksheet/core/ArbolCategorias.h"
#include "worksheet/core/FiltroCuentas.h"

#include <QStringList>
#include <gtest/gtest.h>
#include <vector>

using namespace presupuestos;

namespace {
// INGRESOS(1) > Ventas(2); GASTOS(3) > Servicios(4) > Suministros(5);
// ESTADÍSTICAS(245); and a category whose parent is not loaded (20).
struct Lista {
    ArbolCategorias arbol;
    FiltroCuentas filtro{arbol};

    Lista()
    {
        arbol.reiniciar();
        for (const auto& [codigo, padre] : std::vector<std::pair<int, qint16>>{{1, 0}, {2, 1}, {3, 0}, {4, 3}, {5, 4}, {20, 99}, {245, 0}})
            arbol.agregar({codigo, QString(), padre}, [](const LineaCategoria&) {});
        const std::vector<CuentaFiltro> cuentas = {
            {10, QStringLiteral("70000001"), 2, QStringLiteral("Ventas textil")}, {11, QStringLiteral("70000002"), 1, QStringLiteral("Ventas calzado")},
            {12, QStringLiteral("62100001"), 4, QStringLiteral("Alquiler")}, {13, QStringLiteral("62800001"), 5, QStringLiteral("Electricidad")},
            {14, QStringLiteral("90000001"), 2, QStringLiteral("Otra")}, {15, QStringLiteral("CTO002"), 245, QStringLiteral("Días con actividad")},
            {16, QStringLiteral("75000001"), 20, QStringLiteral("Huérfana")}, {17, QStringLiteral("60000001"), 0, QStringLiteral("Sin categoría")},
        };
        for (const CuentaFiltro& c : cuentas)
            filtro.agregar(c);
    }

    QStringList aceptadas() const
    {
        QStringList l;
        for (std::size_t i = 0; i < filtro.cuentas().size(); ++i)
            if (filtro.acepta(i))
                l << filtro.cuentas()[i].cuenta;
        return l;
    }
};
} // namespace

TEST(FiltroCuentas, AccountsOfTheCategoryOrBelowItThatTheBoxesLetThrough)
{
    struct Caso { qint16 categoria; bool ingresos; bool gastos; QStringList aceptadas; };
    const std::vector<Caso> casos = {
        // "Todas": every chain that reaches the top, and the accounts without category.
        {0, true, true, {"70000001", "70000002", "62100001", "62800001", "90000001", "CTO002", "60000001"}},
        {1, true, true, {"70000001", "70000002", "90000001"}},
        {2, true, true, {"70000001", "90000001"}},
        {3, true, true, {"62100001", "62800001"}},
        {4, true, true, {"62100001", "62800001"}},
        {5, true, true, {"62800001"}},
        {245, true, true, {"CTO002"}},
        // A category no row has: its own accounts only.
        {20, true, true, {"75000001"}}, {99, true, true, {"75000001"}},
        // The boxes: concepts and other accounts go with either.
        {0, false, true, {"62100001", "62800001", "60000001"}},
        {0, true, false, {"70000001", "70000002"}},
        {0, false, false, {"62100001", "62800001", "60000001"}},
        {1, false, true, {}}, {3, true, false, {}}, {20, true, false, {"75000001"}},
    };
    for (const Caso& c : casos) {
        Lista l;
        l.filtro.setCategoria(c.categoria);
        l.filtro.setTipos(c.ingresos, c.gastos);
        EXPECT_EQ(l.aceptadas(), c.aceptadas) << "category " << c.categoria << ", income " << c.ingresos << ", expense " << c.gastos;
    }
}

TEST(FiltroCuentas, UncheckingOneBoxChecksTheOther)
{
    using T = FiltroCuentas::Tipo;
    struct Caso {
        bool ingresos, gastos;   // before the click
        T caja;
        bool marcada;            // the clicked box after the click
        bool ingresosDespues, gastosDespues;
    };
    const std::vector<Caso> casos = {
        {true, true, T::Ingresos, false, false, true}, {true, true, T::Gastos, false, true, false},
        {true, false, T::Ingresos, false, false, true}, {false, true, T::Gastos, false, true, false},
        {false, true, T::Ingresos, true, true, true}, {true, false, T::Gastos, true, true, true},
        {false, false, T::Ingresos, true, true, false},
    };
    for (const Caso& c : casos) {
        ArbolCategorias arbol;
        FiltroCuentas f(arbol);
        f.setTipos(c.ingresos, c.gastos);
        f.pulsar(c.caja, c.marcada);
        EXPECT_EQ(f.ingresos(), c.ingresosDespues) << &c - casos.data();
        EXPECT_EQ(f.gastos(), c.gastosDespues) << &c - casos.data();
        EXPECT_TRUE(c.marcada || f.ingresos() || f.gastos());
    }
}

