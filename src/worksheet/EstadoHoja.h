#pragma once
// The worksheet form's state, read across its parts and by the dialogs it
// drives: what the worksheet shows (year tables, decimals, which accounts),
// the guards of its handlers and the edit under way. Plain values, apart
// from the widgets and from the rules in the worksheet core.

#include "common/Currency.h"

#include <QColor>
#include <QString>

namespace presupuestos {

struct EstadoHoja {
    QString TablaFiltroCuentas;
    QString TablaEstadisticas;
    qint16 Decimales = 0;
    QString FormatoNumero = QStringLiteral("#,0");
    bool VerPresupuestables = true;
    bool Cargando = false;
    bool PrimeraActivacion = true;
    bool TablasEnlazadas = true;
    qint32 UltimoCambioDecimales = 0;
    QColor Color1, Color2, Color3, Color4;

    // The retail database and company, resolved at load.
    QString BDPelvor = QStringLiteral("[Pelvor]");
    qint16 EmpresaPelvor = 0;

    // ---- The edit under way ----------------------------------------------------
    Currency ValorAnterior;
    qint32 ColumnaEditada = 0;
    qint32 FilaEditada = 0;
    bool EditadoConIntro = false;
    bool SincronizandoRejillas = false;

    // Rows the filter table holds (the budget grid shows at most as many),
    // -1 when the engine did not say.
    long filasFiltro = 0;

    // Times each loader ran, for tests of the load sequence.
    int cargasPresupuesto = 0;
    int cargasHistorico = 0;
};

} // namespace presupuestos
