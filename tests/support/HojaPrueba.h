#pragma once
// The worksheet opened through the host class on a real SQLite database,
// with recording platform services, for tests that drive the form.

#include "BaseDatosPrueba.h"
#include "PlataformaDePrueba.h"
#include "common/Plataforma.h"
#include "common/Reloj.h"
#include "host/entry/frmclsfrmActPresupusto.h"
#include "worksheet/frmActPresupusto.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <vector>

namespace presupuestos::prueba {

// A clock the test moves by hand.
struct RelojFijo {
    double ahora = 36000.0;
    RelojFijo() { reloj::fijar([this] { return ahora; }); }
    ~RelojFijo() { reloj::fijar({}); }
};

// A small company whose every figure the tests know:
//  departments 1 "Norte" and 2 "Sur";
//  categories 1 INGRESOS > 2 Ventas; 3 GASTOS > 4 Servicios > 5 Suministros;
//  3 GASTOS > 6 Vacía (no accounts); 245 ESTADÍSTICAS;
//  account lines 20 "7000" (Ventas), 21 "6280" (Suministros), 22 "6210"
//  (Servicios), 23 "6230" (Servicios, not budgeted), 24 "9000" (Ventas),
//  246 "CTO002";
//  accounts of 2026: 70000001, 70000002, 62800001, 62100001, 62300001, the
//  4-digit 7000, and 90000001..90000006 named like SQL ("Ventas TOP 2
//  tiendas", "Caja.dbo.Central", "x ISNULL( y", "##tabla", "a |= b",
//  "Bar D'Angelo"); 2025 only: 70009999;
//  budget 2027: 70000001/1 twelve months of 100 with March typed by hand;
//  62800001/2 January -50,5;
//  balances 2026: 70000001/1 January credit 1.000, debit 100.
void crearEmpresaPequena(BaseDatosPrueba& bd);

// The account row of an account and department (as the grid shows them), or -1.
int filaDe(const ModeloRejilla& m, const QString& cuenta, const QString& dpto);

// Several cells of a grid row, to state them in one assertion.
QStringList textosDe(const ModeloRejilla& m, int fila, std::initializer_list<int> columnas);

// The message boxes shown, for failure messages.
std::string mensajesMostrados(const PlataformaDePrueba& p);

// Rows of the small company's worksheet: 1 grand total; 2..12 Norte
// (62100001, 62800001, 70000001, 70000002, 90000001..90000006, CTO002);
// 13 subtotal Norte; 14..24 Sur in the same order; 25 subtotal Sur.
namespace filas {
constexpr int kAlquilerNorte = 2;
constexpr int kLuzNorte = 3;
constexpr int kVentasNorte = 4;
constexpr int kCalzadoNorte = 5;
constexpr int kConceptoNorte = 12;
constexpr int kTotalNorte = 13;
constexpr int kAlquilerSur = 14;
constexpr int kLuzSur = 15;
constexpr int kVentasSur = 16;
constexpr int kCalzadoSur = 17;
constexpr int kConceptoSur = 24;
constexpr int kTotalSur = 25;
} // namespace filas

struct HojaAbierta {
    // Where the database file goes when a test asks for one (kEnFichero).
    QTemporaryDir carpeta;
    BaseDatosPrueba bd;
    PlataformaDePrueba plataforma;
    frmclsfrmActPresupusto clase;
    frmActPresupusto* hoja = nullptr;
    // demo: the generated demo company; otherwise the small company above.
    // fichero kEnFichero: a file of its own, for a second connection or process.
    explicit HojaAbierta(bool demo = false, const QString& fichero = QStringLiteral(":memory:"));
    static inline const QString kEnFichero = QStringLiteral("en fichero");

    ModeloRejilla& m();
    // An edit as the grid raises it: before, the text the editor leaves,
    // (Enter,) after.
    void teclear(int fila, int col, const QString& texto, bool intro = false);
    // A field of a stored 2027 budget row.
    QVariant campo(const QString& columna, const QString& cuenta, int dpto);
    // Several cells of a budget grid row, to state them in one assertion.
    QStringList textos(int fila, std::initializer_list<int> columnas);
    // Fields of a stored 2027 budget row by position (months 0 to 11, then
    // method, typed months, value, shown) as SQL number texts; empty
    // texts when there is no row.
    QStringList guardados(const QString& cuenta, int dpto, std::initializer_list<int> campos);
    // A text pasted from the clipboard at a cell.
    void pegar(int fila, int col, const QString& texto);
    // The cursor put on a cell, as the grid tells the worksheet.
    void irA(int fila, int col);
    // A method applied to a row from the operations dialog.
    void aplicar(int fila, int metodo, const QString& valor);
    // The history grid shown beside the budget, as its box does it.
    void mostrarHistorico();
    // The decimals box set and applied.
    void decimales(int n);
    // The texts of the message boxes shown since the last call.
    std::vector<QString> mostrados();
    // The UPDATE and INSERT statements sent since the log was last taken.
    int escrituras();
};

// Cases that each start on the small company's worksheet, freshly opened
// (a suite takes it with "using Suite = ConHoja;").
struct ConHoja : ::testing::Test {
    HojaAbierta h;
    frmActPresupusto* f = h.hoja;
};

} // namespace presupuestos::prueba
