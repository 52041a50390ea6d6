#pragma once
// Turns one value typed by the user into twelve monthly amounts by one of
// the calculation methods, reading what a method needs (the balances of a
// historic year, the retail statistics, the budgeted sales) from the
// database, and explains the method with a description, a template and the
// formula of the last calculation with its numbers filled in.
//
// Method codes, shared with Presupuestos.Metodo_Calculo:
//   0 typed by hand (computes nothing)   4 history year +/- percentage
//   1 amount spread over 12 months       5 weight of each historic month
//   2 history month +/- percentage       6 percentage of each month's sales
//   3 the same amount every month        7 percentage of the year's sales
//
// No error handling of its own: database errors, overflow and a bad month
// index reach the calling form.

#include "common/Currency.h"

#include <QString>
#include <array>

namespace presupuestos {

struct Sesion;

class clsCalculo {
public:
    // The session gives the company (its code and its rounding), the
    // connection, and the budget year whose sales methods 6 and 7 read.
    explicit clsCalculo(const Sesion& sesion);

    // 0 means all departments.
    qint16 Dpto() const { return dpto_; }
    void setDpto(qint16 dpto) { dpto_ = dpto; }

    // Month amount of the last calculation, Index 0 (January) to 11.
    Currency Mes(int Index) const;
    void setMes(int Index, Currency valor);

    // Year of the history that methods 2, 4 and 5 read (the worksheet's
    // historic year, not the budget year).
    qint16 Ejercicio() const { return ejercicio_; }
    void setEjercicio(qint16 ejercicio) { ejercicio_ = ejercicio; }

    // Decimals shown in the formula texts; also fixes FormatoCalculo.
    qint16 Decimales() const { return decimales_; }
    void setDecimales(qint16 decimales);
    // Empty until Decimales is first set.
    const QString& FormatoCalculo() const { return formatoCalculo_; }

    // The worksheet's temporary table of retail statistics ("CTO" concepts).
    const QString& TablaTempHistorico() const { return tablaTempHistorico_; }
    void setTablaTempHistorico(const QString& tabla) { tablaTempHistorico_ = tabla; }

    QString DecripcionMetodo(qint32 Metodo) const;
    QString PlantillaFormula(qint32 Metodo) const;
    // The formula of the last calculation of methods 1 to 7.
    QString FormulaCalculada() const { return textoFormula_; }

    // Fills the twelve months (and the formula). Methods outside 1..7 leave
    // twelve zeros and the previous formula.
    void Calcular(qint32 Metodo, const QString& Cuenta, Currency Valor);

private:
    void CalcularDistribuido(Currency Valor);
    void CalcularBaseMes(const QString& Cuenta, Currency Valor);
    void CalcularLineal(Currency Valor);
    void CalcularBaseAnyo(const QString& Cuenta, Currency Valor);
    void CalcularPeso(const QString& Cuenta, Currency Valor);
    void CalcularVentaMes(Currency Valor);
    void CalcularVentaAnyo(Currency Valor);

    void LeerSaldosHistoricos(const QString& Cuenta);
    void LeerVentaPresupuestada(const QString& prefijo);

    QString F(Currency x) const;
    // Two decimals, by the company's own rounding.
    Currency Redondear(Currency x) const;
    Currency totalMeses() const;

    const Sesion& sesion_;
    qint16 dpto_ = 0;
    std::array<Currency, 12> meses_{};
    qint16 ejercicio_ = 0;
    qint16 decimales_ = 0;
    QString tablaTempHistorico_;
    QString formatoCalculo_;
    QString textoFormula_;
};

} // namespace presupuestos
