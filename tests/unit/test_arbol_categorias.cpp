#include "BaseDatosPrueba.h"
#include "common/VbError.h"
#include "worksheet/core/ArbolCategorias.h"

#include <gtest/gtest.h>
#include <map>
#include <tuple>
#include <vector>

using namespace presupuestos;
using presupuestos::prueba::numeroError;

namespace {
// Loads the categories in the order given; returns the lines the list shows.
std::vector<LineaCategoria> cargar(ArbolCategorias& arbol, const std::vector<FilaCategoria>& filas)
{
    std::vector<LineaCategoria> lineas;
    arbol.reiniciar();
    for (const FilaCategoria& f : filas)
        arbol.agregar(f, [&](const LineaCategoria& l) { lineas.push_back(l); });
    return lineas;
}

FilaCategoria cat(int codigo, qint16 padre) { return {codigo, QStringLiteral("C") + QString::number(codigo), padre}; }

// INGRESOS(1) > Ventas(2); GASTOS(3) > Servicios(4) > Suministros(5);
// GASTOS > Vacía(6); ESTADÍSTICAS(245).
std::vector<FilaCategoria> arbolPequeno()
{
    return {cat(1, 0), cat(2, 1), cat(3, 0), cat(4, 3), cat(5, 4), cat(6, 3), cat(245, 0)};
}
} // namespace

TEST(ArbolCategorias, CaptionsAreIndentedByTheDepthThePreviousParentSuggests)
{
    struct Caso {
        const char* nombre;
        std::vector<FilaCategoria> filas;
        std::vector<int> blancos;
    };
    const std::vector<Caso> casos = {
        {"depth first, children after their parent", arbolPequeno(), {0, 4, 0, 4, 8, 4, 0}},
        {"a jump of two levels adds only 4", {cat(1, 0), cat(2, 1), cat(10, 2), cat(11, 10), cat(3, 1)}, {0, 4, 8, 12, 8}},
        {"brothers keep their depth", {cat(1, 0), cat(2, 1), cat(3, 1), cat(4, 1)}, {0, 4, 4, 4}},
        {"a top-level category starts again at 0", {cat(1, 0), cat(2, 1), cat(3, 2), cat(4, 0), cat(5, 4)}, {0, 4, 8, 0, 4}},
        // Below zero no blanks are shown, but the count goes on from there.
        {"climbing below the top", {cat(5, 4), cat(6, 3), cat(7, 2), cat(8, 2), cat(9, 5), cat(10, 6)}, {4, 0, 0, 0, 0, 4}},
    };
    for (const Caso& c : casos) {
        ArbolCategorias arbol;
        const std::vector<LineaCategoria> lineas = cargar(arbol, c.filas);
        ASSERT_EQ(lineas.size(), c.blancos.size()) << c.nombre;
        for (std::size_t i = 0; i < lineas.size(); ++i) {
            const QString texto = c.filas[i].texto;
            EXPECT_EQ(lineas[i].leyenda, QString(c.blancos[i], QLatin1Char(' ')) + texto) << c.nombre << " row " << i + 1;
            EXPECT_EQ(lineas[i].fila, static_cast<int>(i) + 1) << c.nombre;
            EXPECT_EQ(lineas[i].negrita, c.filas[i].padre == 0) << c.nombre;
            EXPECT_EQ(lineas[i].codigo, c.filas[i].codigo);
            EXPECT_EQ(lineas[i].padre, c.filas[i].padre);
        }
    }
}

TEST(ArbolCategorias, EachLoadedCategoryHasItsEntryAtTheIndexOfItsCode)
{
    ArbolCategorias arbol;
    EXPECT_TRUE(arbol.tabla().empty());
    cargar(arbol, arbolPequeno());
    ASSERT_EQ(arbol.tabla().size(), 301u);
    const std::map<int, CategoriaFiltro> esperadas = {
        {1, {1, 0, 1, 0}}, {2, {2, 0, 2, 1}}, {3, {3, 0, 3, 0}}, {4, {4, 0, 4, 3}},
        {5, {5, 0, 5, 4}}, {6, {6, 0, 6, 3}}, {245, {245, 0, 7, 0}},
    };
    for (int i = 0; i <= ArbolCategorias::kMaxCategoria; ++i) {
        const auto it = esperadas.find(i);
        const CategoriaFiltro e = it == esperadas.end() ? CategoriaFiltro{} : it->second;
        const CategoriaFiltro& t = arbol.tabla()[static_cast<std::size_t>(i)];
        EXPECT_EQ(std::tie(t.Codigo, t.NoHijos, t.Fila, t.Padre), std::tie(e.Codigo, e.NoHijos, e.Fila, e.Padre)) << i;
    }

    // A new load forgets the previous one.
    cargar(arbol, {cat(7, 0)});
    EXPECT_EQ(arbol.tabla()[1].Codigo, 0);
    EXPECT_EQ(arbol.tabla()[7].Fila, 1);
    EXPECT_EQ(arbol.codigoEnFila(2), 0);
}

TEST(ArbolCategorias, ACodeTheTableCannotHoldIsShownAndThenStopsTheLoad)
{
    struct Caso {
        int codigo;
        int error;
    };
    for (const Caso c : {Caso{-1, VbError::SubscriptOutOfRange}, Caso{0, 0}, Caso{300, 0},
                         Caso{301, VbError::SubscriptOutOfRange}, Caso{40000, VbError::SubscriptOutOfRange}}) {
        ArbolCategorias arbol;
        cargar(arbol, {cat(1, 0)});
        std::vector<LineaCategoria> mostradas;
        EXPECT_EQ(numeroError([&] { arbol.agregar(cat(c.codigo, 1), [&](const LineaCategoria& l) { mostradas.push_back(l); }); }),
                  c.error)
            << c.codigo;
        ASSERT_EQ(mostradas.size(), 1u) << c.codigo;
        EXPECT_EQ(mostradas[0].fila, 2);
        // Shown, it takes part in the walk up the tree either way.
        EXPECT_EQ(arbol.codigoEnFila(2), static_cast<qint16>(c.codigo));
        EXPECT_TRUE(arbol.esDeCategoria(1, static_cast<qint16>(c.codigo))) << c.codigo;
    }
}

TEST(ArbolCategorias, EveryAccountCountsForItsCategoryAndAllAbove)
{
    struct Caso {
        const char* nombre;
        std::vector<qint16> cuentas;   // the category of each account
        std::map<int, int> noHijos;    // categories with accounts; the rest have none
        std::vector<int> filasSinCuentas;
    };
    const std::vector<Caso> casos = {
        {"no accounts", {}, {}, {1, 2, 3, 4, 5, 6, 7}},
        {"deepest category", {5}, {{5, 1}, {4, 1}, {3, 1}}, {1, 2, 6, 7}},
        {"several branches", {2, 2, 5, 4, 245}, {{1, 2}, {2, 2}, {3, 2}, {4, 2}, {5, 1}, {245, 1}}, {6}},
        {"an account without category counts nowhere", {0}, {}, {1, 2, 3, 4, 5, 6, 7}},
    };
    for (const Caso& c : casos) {
        ArbolCategorias arbol;
        cargar(arbol, arbolPequeno());
        for (qint16 categoria : c.cuentas)
            arbol.contarCuenta(categoria);
        for (int i = 1; i <= ArbolCategorias::kMaxCategoria; ++i) {
            const auto it = c.noHijos.find(i);
            EXPECT_EQ(arbol.tabla()[static_cast<std::size_t>(i)].NoHijos, it == c.noHijos.end() ? 0 : it->second)
                << c.nombre << ", category " << i;
        }
        EXPECT_EQ(arbol.filasSinCuentas(), c.filasSinCuentas) << c.nombre;
    }
}

TEST(ArbolCategorias, CountingOutsideTheTableIsASubscriptError)
{
    ArbolCategorias sinCargar;
    EXPECT_EQ(numeroError([&] { sinCargar.contarCuenta(1); }), VbError::SubscriptOutOfRange);
    EXPECT_EQ(numeroError([&] { sinCargar.contarCuenta(0); }), 0);
    EXPECT_TRUE(sinCargar.filasSinCuentas().empty());

    ArbolCategorias arbol;
    cargar(arbol, arbolPequeno());
    EXPECT_EQ(numeroError([&] { arbol.contarCuenta(301); }), VbError::SubscriptOutOfRange);
    EXPECT_EQ(numeroError([&] { arbol.contarCuenta(-2); }), VbError::SubscriptOutOfRange);
    // A category no row filled has no parent: it counts, alone.
    arbol.contarCuenta(50);
    EXPECT_EQ(arbol.tabla()[50].NoHijos, 1);
    EXPECT_EQ(arbol.tabla()[0].NoHijos, 0);
}

TEST(ArbolCategorias, ACodeBelongsToACategoryWhenItsChainOfParentsMeetsIt)
{
    ArbolCategorias arbol;
    std::vector<FilaCategoria> filas = arbolPequeno();
    // An orphan whose parent no category has, a loop, and a code given twice
    // (the first one decides).
    filas.push_back(cat(20, 99));
    filas.push_back(cat(30, 31));
    filas.push_back(cat(31, 30));
    filas.push_back(cat(2, 3));
    cargar(arbol, filas);
    struct Caso {
        qint16 categoria;
        qint16 codigo;
        bool es;
    };
    const std::vector<Caso> casos = {
        {3, 5, true},   {4, 5, true},    {5, 5, true},   {1, 5, false},  {2, 5, false},
        {0, 5, true},   {0, 245, true},  {0, 0, true},   {6, 6, true},   {6, 5, false},
        {1, 2, true},   {3, 2, false},   {0, 20, false}, {99, 20, true}, {0, 99, false},
        {0, 30, false}, {31, 30, true},  {7, 7, true},   {0, 77, false},
    };
    for (const Caso& c : casos)
        EXPECT_EQ(arbol.esDeCategoria(c.categoria, c.codigo), c.es) << c.categoria << " / " << c.codigo;
}

