#include "worksheet/core/FiltroDepartamentos.h"

#include <gtest/gtest.h>
#include <vector>

using namespace presupuestos;

namespace {
// The empty item and departments 3, 7 and 9, selected as given (the empty
// item first).
FiltroDepartamentos filtro(std::vector<bool> seleccion, bool todos = false)
{
    const std::vector<int> codigos = {FiltroDepartamentos::kSinDepartamento, 3, 7, 9};
    std::vector<ItemDepartamento> l;
    for (std::size_t i = 0; i < codigos.size(); ++i)
        l.push_back({codigos[i], i < seleccion.size() && seleccion[i]});
    FiltroDepartamentos f;
    f.setItems(l);
    f.setTodos(todos);
    return f;
}

std::vector<bool> seleccion(const FiltroDepartamentos& f)
{
    std::vector<bool> s;
    for (const ItemDepartamento& i : f.items())
        s.push_back(i.seleccionado);
    return s;
}
} // namespace

TEST(FiltroDepartamentos, TheListNamesTheSelectedDepartmentsAfterOneThatMatchesNone)
{
    // An accept needs some item selected, the empty one too.
    struct Caso { bool todos; std::vector<bool> seleccion; const char* lista; int contados; bool aceptable; };
    const std::vector<Caso> casos = {
        {true, {false, true, true, true}, "", 0, true},
        {true, {false, false, false, false}, "", 0, false},
        {false, {false, true, false, true}, "-1, 3, 9", 2, true},
        {false, {false, true, true, true}, "-1, 3, 7, 9", 3, true},
        {false, {false, false, false, false}, "-1", 0, false},
        // The empty item is never named.
        {false, {true, false, false, false}, "-1", 0, true},
        {false, {true, false, true, false}, "-1, 7", 1, true},
    };
    for (const Caso& c : casos) {
        FiltroDepartamentos f = filtro(c.seleccion, c.todos);
        EXPECT_EQ(f.aceptable(), c.aceptable) << c.lista;
        EXPECT_EQ(f.lista(), QLatin1String(c.lista));
        EXPECT_EQ(f.numDptos(), c.contados) << c.lista;
    }
}

TEST(FiltroDepartamentos, TheCountGrowsFromWhatTheBoxLastLeft)
{
    FiltroDepartamentos f = filtro({});
    f.marcarTodos(true);
    EXPECT_EQ(f.numDptos(), 3);
    EXPECT_EQ(f.lista(), QString());
    EXPECT_EQ(f.numDptos(), 3);

    // One department deselected in the list: the box is unchecked without
    // its own count, so the list counts on from the last "all".
    f.setItems(filtro({false, true, false, true}).items());
    f.setTodos(false);
    EXPECT_EQ(f.lista(), QStringLiteral("-1, 3, 9"));
    EXPECT_EQ(f.numDptos(), 5);
    EXPECT_EQ(f.lista(), QStringLiteral("-1, 3, 9"));
    EXPECT_EQ(f.numDptos(), 7);

    f.marcarTodos(false);
    EXPECT_EQ(f.numDptos(), 0);
    f.setItems(filtro({false, false, true, false}).items());
    EXPECT_EQ(f.lista(), QStringLiteral("-1, 7"));
    EXPECT_EQ(f.numDptos(), 1);
}

TEST(FiltroDepartamentos, TheBoxSelectsEveryDepartmentButNotTheEmptyItem)
{
    struct Caso { std::vector<bool> antes; bool todos; std::vector<bool> despues; int contados; };
    const std::vector<Caso> casos = {
        {{false, false, false, false}, true, {false, true, true, true}, 3},
        {{true, false, true, false}, true, {true, true, true, true}, 3},
        {{true, true, true, true}, false, {true, false, false, false}, 0},
        {{false, true, false, true}, false, {false, false, false, false}, 0},
    };
    for (const Caso& c : casos) {
        FiltroDepartamentos f = filtro(c.antes, !c.todos);
        f.marcarTodos(c.todos);
        EXPECT_EQ(seleccion(f), c.despues);
        EXPECT_EQ(f.todos(), c.todos);
        EXPECT_EQ(f.numDptos(), c.contados);
    }

    // A company without departments: only the empty item, and no count.
    FiltroDepartamentos vacia;
    vacia.setItems({{FiltroDepartamentos::kSinDepartamento, false}});
    vacia.marcarTodos(true);
    EXPECT_EQ(vacia.numDptos(), 0);
    EXPECT_EQ(vacia.lista(), QString());
    EXPECT_FALSE(vacia.aceptable());
}

TEST(FiltroDepartamentos, DeselectingAnItemUnchecksTheBoxAndSelectingNeverChecksIt)
{
    struct Caso { bool todos; std::vector<bool> seleccion; std::size_t pulsado; bool todosDespues; };
    const std::vector<Caso> casos = {
        {true, {false, true, false, true}, 2, false}, {true, {false, true, true, true}, 2, true},
        {false, {false, true, true, true}, 1, false}, {true, {false, true, true, true}, 0, false},
        {true, {false, true, true, true}, 9, true},
    };
    for (const Caso& c : casos) {
        FiltroDepartamentos f = filtro(c.seleccion, c.todos);
        f.pulsarItem(c.pulsado);
        EXPECT_EQ(f.todos(), c.todosDespues) << c.pulsado;
        EXPECT_EQ(seleccion(f), c.seleccion);
    }
}

TEST(FiltroDepartamentos, ACancelBringsBackWhatWasInForceWhenTheListWasOpened)
{
    FiltroDepartamentos f;
    // Before the list was ever opened nothing is kept.
    EXPECT_FALSE(f.todosGuardado());
    EXPECT_FALSE(f.seleccionGuardada(0));

    f = filtro({false, true, true, true}, true);
    f.guardar();
    f.marcarTodos(false);
    f.setItems(filtro({true, false, false, false}).items());
    EXPECT_TRUE(f.todosGuardado());
    const std::vector<bool> guardada = {false, true, true, true, false};
    for (std::size_t i = 0; i < guardada.size(); ++i)
        EXPECT_EQ(f.seleccionGuardada(i), guardada[i]) << i;

    // A new list keeps nothing selected, and the box as it was kept.
    f.nuevaLista(4);
    for (std::size_t i = 0; i < 5; ++i)
        EXPECT_FALSE(f.seleccionGuardada(i)) << i;
    EXPECT_TRUE(f.todosGuardado());
}
