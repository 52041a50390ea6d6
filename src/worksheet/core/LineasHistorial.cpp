#include "worksheet/core/LineasHistorial.h"

#include "common/NumerosEs.h"

namespace presupuestos {

namespace {

QString importe(const Diario::Imagen& im, int mes, const QString& formato)
{
    if (!im.existe)
        return QStringLiteral("(sin fila)");
    return es::formatear(im.meses[static_cast<std::size_t>(mes - 1)], formato);
}

} // namespace

std::vector<LineaHistorial> lineasHistorial(const std::vector<Diario::Entrada>& entradas, int mes, const QString& formato)
{
    std::vector<LineaHistorial> lineas;
    for (const Diario::Entrada& e : entradas) {
        LineaHistorial base;
        base.fecha = e.fecha.toString(QStringLiteral("dd/MM/yyyy HH:mm:ss"));
        base.usuario = e.usuario;
        base.como = Diario::nombre(e.tipo);
        if (!e.descripcion.isEmpty())
            base.como += QStringLiteral(" (") + e.descripcion + QLatin1Char(')');
        const auto meses = [&](int m) {
            const bool cambia = e.antes.existe != e.despues.existe
                                || e.antes.meses[static_cast<std::size_t>(m - 1)] != e.despues.meses[static_cast<std::size_t>(m - 1)];
            if (!cambia)
                return;
            LineaHistorial l = base;
            l.que = es::nombreMes(m);
            l.antes = importe(e.antes, m, formato);
            l.despues = importe(e.despues, m, formato);
            lineas.push_back(std::move(l));
        };
        if (mes > 0) {
            meses(mes);
            continue;
        }
        for (int m = 1; m <= 12; ++m)
            meses(m);
        const auto otro = [&](bool cambia, const QString& que, const QString& antes, const QString& despues) {
            if (!cambia)
                return;
            LineaHistorial l = base;
            l.que = que;
            l.antes = antes;
            l.despues = despues;
            lineas.push_back(std::move(l));
        };
        if (e.antes.existe && e.despues.existe) {
            otro(e.antes.metodo != e.despues.metodo || e.antes.valor != e.despues.valor, QStringLiteral("Método"),
                 QString::number(e.antes.metodo) + QStringLiteral(" / ") + es::formatear(e.antes.valor, formato),
                 QString::number(e.despues.metodo) + QStringLiteral(" / ") + es::formatear(e.despues.valor, formato));
            otro(e.antes.ver != e.despues.ver, QStringLiteral("Presupuestar"), e.antes.ver ? QStringLiteral("Sí") : QStringLiteral("No"),
                 e.despues.ver ? QStringLiteral("Sí") : QStringLiteral("No"));
        }
    }
    return lineas;
}

} // namespace presupuestos
