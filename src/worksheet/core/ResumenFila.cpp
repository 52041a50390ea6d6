#include "worksheet/core/ResumenFila.h"

#include "worksheet/core/Seguimiento.h"

#include <QSet>
#include <cmath>

namespace presupuestos {

namespace {

const QString kTickets = QStringLiteral("CTO003");
const QString kDias = QStringLiteral("CTO002");

double comoDouble(Suma s) { return static_cast<double>(s) / 10000.0; }

std::optional<double> cociente(Suma a, Suma b)
{
    if (b == 0)
        return std::nullopt;
    return static_cast<double>(a) / static_cast<double>(b);
}

// Adds an account row's months, total and, by its account, its part of the
// retail figures.
void sumarFila(const ModeloPresupuesto& m, int fila, ResumenFila::Cifras& c, bool& estadisticas)
{
    for (int mes = 1; mes <= 12; ++mes)
        c.meses[static_cast<std::size_t>(mes - 1)] += m.mes(fila, mes);
    const Suma total = m.valor(fila, 13);
    c.total += total;
    const QString& cuenta = m.cuenta(fila);
    if (cuenta.startsWith(QLatin1String("70"))) {
        c.ventas += total;
    } else if (cuenta == kTickets) {
        c.tickets += total;
        estadisticas = true;
    } else if (cuenta == kDias) {
        c.dias += total;
        estadisticas = true;
    }
}

// Adds the closed months' actuals of an account row.
void sumarReal(const ModeloPresupuesto& m, int fila, const RealesEjercicio* reales, ResumenFila& r)
{
    if (!reales)
        return;
    const std::array<Suma, 12>* meses = reales->de(m.cuenta(fila), m.dpto(fila));
    if (!meses)
        return;
    for (int i = 0; i < r.mesesCerrados; ++i) {
        r.real.meses[static_cast<std::size_t>(i)] += (*meses)[static_cast<std::size_t>(i)];
        r.real.total += (*meses)[static_cast<std::size_t>(i)];
    }
}

} // namespace

std::array<Suma, 12> ResumenFila::prevision() const
{
    std::array<Suma, 12> p = presupuesto.meses;
    for (int i = 0; i < mesesCerrados; ++i)
        p[static_cast<std::size_t>(i)] = real.meses[static_cast<std::size_t>(i)];
    return p;
}

Suma ResumenFila::previsionAnual() const
{
    Suma s = 0;
    for (Suma m : prevision())
        s += m;
    return s;
}

std::optional<double> ResumenFila::Cifras::ticketMedio() const { return cociente(ventas, tickets); }
std::optional<double> ResumenFila::Cifras::ventasPorDia() const { return cociente(ventas, dias); }

std::optional<double> ResumenFila::porcentaje() const
{
    // Against nothing, or against a figure of the other sign (an income
    // budgeted where there was an expense), a percentage says nothing.
    if (historico.total == 0 || (presupuesto.total != 0 && (presupuesto.total < 0) != (historico.total < 0)))
        return std::nullopt;
    return comoDouble(diferencia()) * 100.0 / std::abs(comoDouble(historico.total));
}

ResumenFila CalculoResumen::calcular(const ModeloPresupuesto& p, const ModeloPresupuesto* h, int filaRejilla,
                                     const RealesEjercicio* reales)
{
    ResumenFila r;
    const int fila = filaRejilla - 1;
    if (fila < 0 || fila >= p.filas())
        return r;
    bool sinUso = false;
    r.mesesCerrados = reales ? std::clamp(reales->ultimoMes, 0, 12) : 0;

    if (p.esCuenta(fila)) {
        r.tipo = ResumenFila::Tipo::Cuenta;
        r.titulo = p.cuenta(fila) + QStringLiteral(" - ") + p.nombre(fila);
        sumarFila(p, fila, r.presupuesto, sinUso);
        sumarReal(p, fila, reales, r);
        if (h) {
            const int f = h->fila(p.cuenta(fila), p.dpto(fila));
            if (f >= 0) {
                sumarFila(*h, f, r.historico, sinUso);
                r.conHistorico = true;
            }
        }
        return r;
    }

    // A subtotal: the department whose rows stand above it, or every row
    // for the grand total. Departments are told apart by their code.
    const bool general = p.tipo(fila) == ModeloPresupuesto::Tipo::TotalGeneral;
    r.tipo = general ? ResumenFila::Tipo::TotalGeneral : ResumenFila::Tipo::Departamento;
    r.titulo = p.dptoNombre(fila);
    QSet<qint16> dptos;
    if (general) {
        for (int f = 0; f < p.filas(); ++f)
            if (p.esCuenta(f)) {
                sumarFila(p, f, r.presupuesto, r.conEstadisticas);
                sumarReal(p, f, reales, r);
            }
    } else {
        for (int f = fila - 1; p.esCuenta(f) && p.grupo(f) == p.grupo(fila); --f) {
            sumarFila(p, f, r.presupuesto, r.conEstadisticas);
            sumarReal(p, f, reales, r);
            dptos.insert(p.dpto(f));
        }
    }
    if (h) {
        for (int f = 0; f < h->filas(); ++f) {
            if (h->esCuenta(f) && (general || dptos.contains(h->dpto(f)))) {
                sumarFila(*h, f, r.historico, r.conEstadisticas);
                r.conHistorico = true;
            }
        }
    }
    return r;
}

} // namespace presupuestos
