#include "worksheet/core/ResumenFila.h"

#include "worksheet/core/Columnas.h"

#include <QSet>
#include <cmath>

namespace presupuestos {

using namespace hoja;

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
void sumarFila(const ModeloRejilla& m, int fila, ResumenFila::Cifras& c, bool& estadisticas)
{
    for (int mes = 1; mes <= 12; ++mes)
        c.meses[static_cast<std::size_t>(mes - 1)] += m.ValorMatrix(fila, colMes(mes));
    const Suma total = m.ValorMatrix(fila, kTotal);
    c.total += total;
    const QString cuenta = m.TextMatrix(fila, kCuenta);
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

bool esCuenta(const ModeloRejilla& m, int fila) { return fila >= m.FixedRows() && fila < m.Rows() && !m.IsSubtotal(fila); }

} // namespace

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

ResumenFila CalculoResumen::calcular(const ModeloRejilla& p, const ModeloRejilla* h, int fila)
{
    ResumenFila r;
    if (fila < p.FixedRows() || fila >= p.Rows() || p.Cols() < kColumnas)
        return r;
    const bool conH = h && h->Cols() >= kColumnas;
    bool sinUso = false;

    if (!p.IsSubtotal(fila)) {
        r.tipo = ResumenFila::Tipo::Cuenta;
        const QString cuenta = p.TextMatrix(fila, kCuenta);
        const QString dpto = p.TextMatrix(fila, kDpto);
        r.titulo = cuenta + QStringLiteral(" - ") + p.TextMatrix(fila, kNombre);
        sumarFila(p, fila, r.presupuesto, sinUso);
        if (conH) {
            for (int f = h->FixedRows(); f < h->Rows(); ++f) {
                if (esCuenta(*h, f) && h->TextMatrix(f, kCuenta) == cuenta && h->TextMatrix(f, kDpto) == dpto) {
                    sumarFila(*h, f, r.historico, sinUso);
                    r.conHistorico = true;
                    break;
                }
            }
        }
        return r;
    }

    // A subtotal: the department whose rows stand above it, or every row
    // for the grand total. Departments are told apart by their code.
    const bool general = p.SubtotalGroupColumn(fila) == -1;
    r.tipo = general ? ResumenFila::Tipo::TotalGeneral : ResumenFila::Tipo::Departamento;
    r.titulo = general ? ModeloRejilla::TituloTotalGeneral() : p.TextMatrix(fila, kDptoNombre);
    QSet<QString> dptos;
    if (general) {
        for (int f = p.FixedRows(); f < p.Rows(); ++f)
            if (esCuenta(p, f))
                sumarFila(p, f, r.presupuesto, r.conEstadisticas);
    } else {
        for (int f = fila - 1; esCuenta(p, f) && p.TextMatrix(f, kDptoNombre) == r.titulo; --f) {
            sumarFila(p, f, r.presupuesto, r.conEstadisticas);
            dptos.insert(p.TextMatrix(f, kDpto));
        }
    }
    if (conH) {
        for (int f = h->FixedRows(); f < h->Rows(); ++f) {
            if (esCuenta(*h, f) && (general || dptos.contains(h->TextMatrix(f, kDpto)))) {
                sumarFila(*h, f, r.historico, r.conEstadisticas);
                r.conHistorico = true;
            }
        }
    }
    return r;
}

} // namespace presupuestos
