#include "calculation/clsCalculo.h"

#include "common/NumerosEs.h"
#include "common/VbError.h"
#include "db/Conexion.h"
#include "db/Sql.h"
#include "sesion/Sesion.h"

namespace presupuestos {

namespace {

QString T(Currency x) { return x.toPlainText(QLatin1Char(',')); }

QString numero(qint64 n) { return QString::number(n); }

QString campoMes(const char* prefijo, int i) { return QLatin1String(prefijo) + QString::number(i + 1); }

} // namespace

clsCalculo::clsCalculo(const Sesion& sesion) : sesion_(sesion) {}

Currency clsCalculo::Redondear(Currency x) const { return sesion_.empresa->Redondear(x, 2); }

Currency clsCalculo::Mes(int Index) const
{
    if (Index < 0 || Index > 11)
        throw VbError::subscriptOutOfRange();
    return meses_[static_cast<std::size_t>(Index)];
}

void clsCalculo::setMes(int Index, Currency valor)
{
    if (Index < 0 || Index > 11)
        throw VbError::subscriptOutOfRange();
    meses_[static_cast<std::size_t>(Index)] = valor;
}

void clsCalculo::setDecimales(qint16 decimales)
{
    decimales_ = decimales;
    if (decimales == 0) {
        formatoCalculo_ = QStringLiteral("#,0");
        return;
    }
    // A negative count of zeros cannot make a pattern.
    if (decimales < 0)
        throw VbError::invalidProcedureCall();
    formatoCalculo_ = QStringLiteral("#,0.") + QString(decimales, QLatin1Char('0'));
}

QString clsCalculo::DecripcionMetodo(qint32 Metodo) const
{
    switch (Metodo) {
    case 0: return QStringLiteral("Importe manual cada mes");
    case 1: return QStringLiteral("Importe a distribuir en los 12 meses");
    case 2: return QStringLiteral("Ejercicio ") + numero(ejercicio_) + QStringLiteral(" con % + - (Base Mes) ");
    case 3: return QStringLiteral("Importe lineal para todos los meses");
    case 4: return QStringLiteral("Ejercicio ") + numero(ejercicio_) + QStringLiteral(" con % + -(Base Año)");
    case 5: return QStringLiteral("Peso % del mes sobre el año");
    case 6: return QStringLiteral(" % Sobre la venta presupuestada Mes");
    case 7: return QStringLiteral(" % Sobre la venta presupuestada Año");
    default: return QString();
    }
}

QString clsCalculo::PlantillaFormula(qint32 Metodo) const
{
    switch (Metodo) {
    case 0: return QStringLiteral("Enero = Valor");
    case 1: return QStringLiteral("Enero = Valor / 12");
    case 2: return QStringLiteral("Enero = [Saldo Mes Hist.] + ([Saldo Mes Hist.] * Valor%)");
    case 3: return QStringLiteral("Enero = Valor");
    case 4: return QStringLiteral("Enero = ([Saldo Año Hist.] +- ([Saldo Año Hist.] * Valor%)) / 12");
    case 5: return QStringLiteral("Enero = Valor * ([Saldo Mes Hist.] * 100 / [Saldo Año Hist.])");
    case 6: return QStringLiteral("Enero = Valor% * [Venta Mes Presupuestada]");
    case 7: return QStringLiteral("Enero = (Valor% * [Venta Año Presupuestada]) / 12");
    default: return QString();
    }
}

void clsCalculo::Calcular(qint32 Metodo, const QString& Cuenta, Currency Valor)
{
    meses_.fill(Currency());
    switch (Metodo) {
    case 1: CalcularDistribuido(Valor); break;
    case 2: CalcularBaseMes(Cuenta, Valor); break;
    case 3: CalcularLineal(Valor); break;
    case 4: CalcularBaseAnyo(Cuenta, Valor); break;
    case 5: CalcularPeso(Cuenta, Valor); break;
    case 6: CalcularVentaMes(Valor); break;
    case 7: CalcularVentaAnyo(Valor); break;
    default: break;
    }
}

QString clsCalculo::F(Currency x) const
{
    // Before Decimales is set there is no pattern; the number then shows
    // as it is, the way an empty display format leaves it.
    if (formatoCalculo_.isEmpty())
        return T(x);
    return es::formatear(x, formatoCalculo_);
}

Currency clsCalculo::totalMeses() const
{
    Currency total;
    for (Currency m : meses_)
        total += m;
    return total;
}

void clsCalculo::CalcularDistribuido(Currency Valor)
{
    textoFormula_ = QStringLiteral("Enero = ") + T(Valor) + QStringLiteral(" / 12");
    const Currency r = Redondear(Currency::fromDouble(Valor.toDouble() / 12.0));
    for (int i = 0; i < 11; ++i)
        meses_[static_cast<std::size_t>(i)] = r.rounded(2);
    // December takes what the rounding left, so the year adds up to Valor.
    meses_[11] = r + (Valor - r * 12);
}

void clsCalculo::CalcularBaseMes(const QString& Cuenta, Currency Valor)
{
    LeerSaldosHistoricos(Cuenta);
    const Currency h0 = meses_[0];
    const QString signo = Valor < Currency() ? QStringLiteral(" - ") : QStringLiteral(" + ");
    textoFormula_ = QStringLiteral("Enero = ") + F(h0) + signo + QStringLiteral("(") + F(h0) + QStringLiteral(" * ")
                    + T(Valor.abs()) + QStringLiteral("%)");
    // Only the increment is rounded to cents; the historic amount keeps its
    // four decimals.
    for (Currency& m : meses_)
        m = m + Redondear(Currency::fromDouble((m * Valor).toDouble() / 100.0));
}

void clsCalculo::CalcularLineal(Currency Valor)
{
    textoFormula_ = QStringLiteral("Enero = ") + T(Valor);
    meses_.fill(Valor);
}

void clsCalculo::CalcularBaseAnyo(const QString& Cuenta, Currency Valor)
{
    LeerSaldosHistoricos(Cuenta);
    const Currency total = totalMeses();
    const QString signo = Valor < Currency() ? QStringLiteral(" - ") : QStringLiteral(" + ");
    textoFormula_ = QStringLiteral("Enero = (") + F(total) + signo + QStringLiteral("(") + F(total) + QStringLiteral(" * ")
                    + T(Valor.abs()) + QStringLiteral("%))/12");
    // Unlike method 1 there is no remainder month: the twelve months may
    // differ slightly from the year figure.
    const Currency x = Currency::fromDouble(total.toDouble() * (Valor.toDouble() / 100.0 + 1.0) / 12.0);
    meses_.fill(x);
}

void clsCalculo::CalcularPeso(const QString& Cuenta, Currency Valor)
{
    LeerSaldosHistoricos(Cuenta);
    const Currency total = totalMeses();
    textoFormula_ = QStringLiteral("Enero = ") + T(Valor) + QStringLiteral(" *  (") + F(meses_[0])
                    + QStringLiteral(" * 100 / ") + F(total) + QStringLiteral(")");
    if (total.isZero()) {
        meses_.fill(Currency());
        return;
    }
    // The weight stays in percent (0..100) and multiplies Valor as the
    // template shows it; users rely on that scale.
    for (Currency& m : meses_)
        m = Currency::fromDouble(Valor.toDouble() * ((m * 100).toDouble() / total.toDouble()));
}

void clsCalculo::CalcularVentaMes(Currency Valor)
{
    LeerVentaPresupuestada(QStringLiteral("70"));
    textoFormula_ = QStringLiteral("Enero = ") + F(meses_[0]) + QStringLiteral(" * ") + T(Valor) + QStringLiteral("%");
    for (Currency& m : meses_)
        m = Currency::fromDouble((m * Valor).toDouble() / 100.0);
}

void clsCalculo::CalcularVentaAnyo(Currency Valor)
{
    LeerVentaPresupuestada(QStringLiteral("70"));
    const Currency total = totalMeses();
    textoFormula_ = QStringLiteral("Enero = (") + F(total) + QStringLiteral(" * ") + T(Valor) + QStringLiteral("%) /12");
    const Currency x = Currency::fromDouble((total * Valor).toDouble() / 100.0 / 12.0);
    meses_.fill(x);
}

void clsCalculo::LeerSaldosHistoricos(const QString& Cuenta)
{
    const QString cuenta = sql::texto(Cuenta);
    QString sql;
    bool saldos = true;
    if (Cuenta.left(3) == QLatin1String("CTO")) {
        // Statistic concepts (days open, tickets, units) live in the
        // worksheet's statistics table, one row per store.
        saldos = false;
        sql = QStringLiteral("SELECT Cuenta, SUM(M1) AS M1, SUM(M2) AS M2, SUM(M3) AS M3, SUM(M4) AS M4, SUM(M5) AS M5, SUM(M6) AS M6")
              + QStringLiteral(", SUM(M7) AS M7, SUM(M8) AS M8, SUM(M9) AS M9, SUM(M10) AS M10, SUM(M11) AS M11, SUM(M12) AS M12")
              + QStringLiteral(" FROM ") + tablaTempHistorico_ + QStringLiteral(" WHERE Cod_Ejercicio =") + numero(ejercicio_)
              + QStringLiteral(" AND Cuenta = '") + cuenta + QStringLiteral("'");
        if (dpto_ != 0)
            sql += QStringLiteral(" AND Dpto =") + numero(dpto_);
        sql += QStringLiteral(" GROUP BY Cuenta");
    } else {
        const QString empresa = numero(sesion_.empresa->CodigoEmpresa());
        if (dpto_ != 0) {
            sql = QStringLiteral("SELECT * FROM Acumulados_Dpto WHERE Cod_Empresa =") + empresa
                  + QStringLiteral(" AND Cod_Ejercicio =") + numero(ejercicio_) + QStringLiteral(" AND Cuenta = '") + cuenta
                  + QStringLiteral("'") + QStringLiteral(" AND Dpto =") + numero(dpto_);
        } else {
            // All departments: the company-wide balances.
            sql = QStringLiteral("SELECT * FROM Acumulados WHERE Cod_Empresa =") + empresa
                  + QStringLiteral(" AND Cod_Ejercicio =") + numero(ejercicio_) + QStringLiteral(" AND Cuenta = '") + cuenta
                  + QStringLiteral("'");
        }
    }

    Recordset rs = sesion_.conexion->Abrir(sql);
    if (!rs.eof()) {
        for (int i = 0; i < 12; ++i) {
            // Balances are credit minus debit: income positive, expense negative.
            meses_[static_cast<std::size_t>(i)] =
                saldos ? rs.moneda(campoMes("H", i)) - rs.moneda(campoMes("D", i)) : rs.moneda(campoMes("M", i));
        }
    }
    rs.Close();
}

void clsCalculo::LeerVentaPresupuestada(const QString& prefijo)
{
    // The sales already stored for the budget year and this very department
    // (0 included); what the worksheet has not saved does not count.
    const QString sql =
        QStringLiteral("SELECT SUM(M1) AS M1, SUM(M2) AS M2, SUM(M3) AS M3, SUM(M4) AS M4, SUM(M5) AS M5, SUM(M6) AS M6, SUM(M7) AS M7, SUM(M8) AS M8")
        + QStringLiteral(", SUM(M9) AS M9, SUM(M10) AS M10, SUM(M11) AS M11, SUM(M12) AS M12")
        + QStringLiteral(" FROM Presupuestos WHERE Cod_Empresa =") + numero(sesion_.empresa->CodigoEmpresa())
        + QStringLiteral(" AND Cod_Ejercicio =") + numero(sesion_.ejercicio) + QStringLiteral(" AND Cuenta like '")
        + sql::texto(prefijo) + QStringLiteral("%'") + QStringLiteral(" AND Dpto =") + numero(dpto_)
        + QStringLiteral(" GROUP BY SUBSTRING(Cuenta, 1, ") + numero(prefijo.size()) + QStringLiteral(")");

    Recordset rs = sesion_.conexion->Abrir(sql);
    if (!rs.eof()) {
        for (int i = 0; i < 12; ++i)
            meses_[static_cast<std::size_t>(i)] = rs.moneda(campoMes("M", i));
    }
    rs.Close();
}

} // namespace presupuestos
