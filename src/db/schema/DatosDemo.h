#pragma once
// Deterministic demo data: a Spanish retail company with a few stores as
// departments, a chart of accounts in the style of the Spanish general
// accounting plan, a type-11 balance configuration, two years of monthly
// balances, daily retail figures per store and a started budget.

#include <QString>

namespace presupuestos {

class Conexion;

struct OpcionesDemo {
    int codEmpresa = 1;
    int ejercicioActual = 2026;
    // Detail accounts in total (spread over the prefixes) and departments.
    // 0 keeps the hand-written demo chart and its five departments.
    int cuentas = 0;
    int departamentos = 0;
    // Name of the retail database in three-part names.
    QString baseRetail = QStringLiteral("Pelvor");
    bool presupuestoIniciado = true;
    // Months of the budget year already closed: their balances are booked,
    // so the budget can be followed against them (0: the year has not
    // begun).
    int mesesCerrados = 0;
    // The company's name; empty for the demo's own.
    QString nombre;
    // Removes the company's rows in both databases first, so that nothing of
    // an earlier generation is left beside the new one.
    bool reemplazar = false;
    quint32 semilla = 20261122;
};

class DatosDemo {
public:
    // Creates the schema if needed and fills both databases; the retail
    // database must be attachable under opciones.baseRetail.
    static void generar(Conexion& c, const OpcionesDemo& opciones = {});
    // True when the connection already holds the company.
    static bool existeEmpresa(Conexion& c, int codEmpresa);

    // What a generated company can hold: a detail account is its prefix's
    // four digits and four of its own, a department a 16-bit code, and its
    // budget rows (accounts x departments) what a worksheet still loads.
    static int maximoCuentas();
    static constexpr int kMaximoDepartamentos = 32767;
    static constexpr long long kMaximoFilas = 1000000;
};

} // namespace presupuestos
