#include "worksheet/core/Seguimiento.h"

#include "common/NumerosEs.h"
#include "db/Conexion.h"

#include <QBrush>
#include <QColor>
#include <QFont>
#include <QHash>
#include <cmath>
#include <map>

namespace presupuestos {

namespace {

double comoDouble(Suma s) { return static_cast<double>(s) / 10000.0; }

QString meses(const QString& expresion)
{
    QStringList r;
    for (int m = 1; m <= 12; ++m)
        r << QString(expresion).replace(QLatin1String("#"), QString::number(m));
    return r.join(QStringLiteral(", "));
}

} // namespace

Suma FilaSeguimiento::realHastaHoy(int n) const
{
    Suma s = 0;
    for (int m = 0; m < std::clamp(n, 0, 12); ++m)
        s += real[static_cast<std::size_t>(m)];
    return s;
}

Suma FilaSeguimiento::presupuestoHastaHoy(int n) const
{
    Suma s = 0;
    for (int m = 0; m < std::clamp(n, 0, 12); ++m)
        s += presupuesto[static_cast<std::size_t>(m)];
    return s;
}

std::optional<double> FilaSeguimiento::porcentaje(int n) const
{
    const Suma p = presupuestoHastaHoy(n);
    const Suma r = realHastaHoy(n);
    if (p == 0 || (r != 0 && (r < 0) != (p < 0)))
        return std::nullopt;
    return comoDouble(r - p) * 100.0 / std::abs(comoDouble(p));
}

Suma FilaSeguimiento::prevision(int n) const { return realHastaHoy(n) + presupuestoAnual() - presupuestoHastaHoy(n); }

const std::array<Suma, 12>* RealesEjercicio::de(const QString& cuenta, qint16 dpto) const
{
    const auto it = filas.find({dpto, cuenta});
    return it == filas.end() ? nullptr : &it->second;
}

RealesEjercicio RealesEjercicio::leer(Conexion& c, int empresa, int ejercicio)
{
    RealesEjercicio r;
    // A month counts as posted when any entry moved it, whatever it came to.
    Recordset rs = c.Abrir(QStringLiteral("SELECT Dpto, Cuenta, ") + meses(QStringLiteral("H# - D# AS M#")) + QStringLiteral(", ")
                           + meses(QStringLiteral("ABS(H#) + ABS(D#) AS A#")) + QStringLiteral(" FROM Acumulados_Dpto WHERE Cod_Empresa = ")
                           + QString::number(empresa) + QStringLiteral(" AND Cod_Ejercicio = ") + QString::number(ejercicio));
    while (!rs.eof()) {
        std::array<Suma, 12>& f = r.filas[{static_cast<qint16>(rs.entero(0)), rs.texto(1)}];
        for (int m = 0; m < 12; ++m) {
            f[static_cast<std::size_t>(m)] += rs.moneda(2 + m).raw();
            if (!rs.moneda(14 + m).isZero())
                r.ultimoMes = std::max(r.ultimoMes, m + 1);
        }
        rs.MoveNext();
    }
    return r;
}

void Seguimiento::cargar()
{
    Conexion& c = *sesion_.conexion;
    const QString empresa = QString::number(sesion_.empresa->CodigoEmpresa());
    const QString ejercicio = QString::number(sesion_.ejercicio);
    std::map<std::pair<qint16, QString>, FilaSeguimiento> filas;
    const auto fila = [&](qint16 dpto, const QString& cuenta) -> FilaSeguimiento& {
        FilaSeguimiento& f = filas[{dpto, cuenta}];
        f.dpto = dpto;
        f.cuenta = cuenta;
        return f;
    };
    {
        Recordset rs = c.Abrir(QStringLiteral("SELECT Dpto, Cuenta, ") + meses(QStringLiteral("M#"))
                               + QStringLiteral(" FROM Presupuestos WHERE Cod_Empresa = ") + empresa + QStringLiteral(" AND Cod_Ejercicio = ")
                               + ejercicio);
        while (!rs.eof()) {
            FilaSeguimiento& f = fila(static_cast<qint16>(rs.entero(0)), rs.texto(1));
            for (int m = 0; m < 12; ++m)
                f.presupuesto[static_cast<std::size_t>(m)] = rs.moneda(2 + m).raw();
            rs.MoveNext();
        }
    }
    const RealesEjercicio reales = RealesEjercicio::leer(c, sesion_.empresa->CodigoEmpresa(), sesion_.ejercicio);
    ultimoMes_ = reales.ultimoMes;
    for (const auto& [clave, meses] : reales.filas)
        fila(clave.first, clave.second).real = meses;
    QHash<QString, QString> cuentas;
    {
        // The chart of the year, or of the last year that has one: a year
        // under way may not have its own yet.
        Recordset rs = c.Abrir(QStringLiteral("SELECT Cuenta, Nombre FROM Cuentas WHERE Cod_Empresa = ") + empresa
                               + QStringLiteral(" AND Cod_Ejercicio <= ") + ejercicio + QStringLiteral(" ORDER BY Cod_Ejercicio"));
        while (!rs.eof()) {
            cuentas.insert(rs.texto(0), rs.texto(1));
            rs.MoveNext();
        }
    }
    QHash<int, QString> dptos;
    {
        Recordset rs = c.Abrir(QStringLiteral("SELECT Codigo, Nombre FROM Departamentos WHERE Cod_Empresa = ") + empresa);
        while (!rs.eof()) {
            dptos.insert(rs.entero(0), rs.texto(1));
            rs.MoveNext();
        }
    }
    filas_.clear();
    FilaSeguimiento total;
    total.tipo = FilaSeguimiento::Tipo::Total;
    total.nombre = ModeloRejilla::TituloTotalGeneral();
    FilaSeguimiento subtotal;
    const auto cerrar = [&] {
        if (subtotal.tipo == FilaSeguimiento::Tipo::Departamento)
            filas_.push_back(subtotal);
    };
    for (auto& [clave, f] : filas) {
        f.nombre = cuentas.value(f.cuenta);
        f.dptoNombre = dptos.value(f.dpto);
        if (subtotal.tipo != FilaSeguimiento::Tipo::Departamento || subtotal.dpto != f.dpto) {
            cerrar();
            subtotal = FilaSeguimiento();
            subtotal.tipo = FilaSeguimiento::Tipo::Departamento;
            subtotal.dpto = f.dpto;
            subtotal.dptoNombre = f.dptoNombre;
            subtotal.nombre = QStringLiteral("Total ") + f.dptoNombre;
        }
        for (std::size_t m = 0; m < 12; ++m) {
            subtotal.presupuesto[m] += f.presupuesto[m];
            subtotal.real[m] += f.real[m];
            total.presupuesto[m] += f.presupuesto[m];
            total.real[m] += f.real[m];
        }
        filas_.push_back(std::move(f));
    }
    cerrar();
    filas_.push_back(total);
}

HojaLibro Seguimiento::hojaLibro(const std::vector<FilaSeguimiento>& filas, int n, int ejercicio)
{
    HojaLibro h;
    h.nombre = QStringLiteral("Seguimiento %1").arg(ejercicio);
    h.titulos = {QStringLiteral("Dpto"), QStringLiteral("Cuenta"), QStringLiteral("Nombre"),
                 QStringLiteral("Real a la fecha (%1 meses)").arg(n), QStringLiteral("Presupuesto a la fecha"), QStringLiteral("Desviación"),
                 QStringLiteral("Desviación %"), QStringLiteral("Previsión de cierre"), QStringLiteral("Presupuesto del año")};
    const auto importe = [](Suma s) { return CeldaLibro{QString(), true, s}; };
    const auto texto = [](const QString& t) { return CeldaLibro{t, false, 0}; };
    for (const FilaSeguimiento& f : filas) {
        const auto p = f.porcentaje(n);
        h.celdas.push_back({texto(f.tipo == FilaSeguimiento::Tipo::Total ? QString() : QString::number(f.dpto)), texto(f.cuenta), texto(f.nombre),
                            importe(f.realHastaHoy(n)), importe(f.presupuestoHastaHoy(n)), importe(f.desviacion(n)),
                            texto(p ? es::formatear(*p, QStringLiteral("#,0.0")) + QStringLiteral(" %") : QStringLiteral("—")),
                            importe(f.prevision(n)), importe(f.presupuestoAnual())});
    }
    return h;
}

// ---- The table ---------------------------------------------------------------------

void ModeloSeguimiento::setFilas(std::vector<FilaSeguimiento> filas)
{
    beginResetModel();
    filas_ = std::move(filas);
    endResetModel();
}

void ModeloSeguimiento::cambiadoTodo()
{
    if (!filas_.empty())
        emit dataChanged(index(0, 0), index(rowCount() - 1, Columnas - 1));
}

void ModeloSeguimiento::setMesesCerrados(int meses)
{
    meses_ = std::clamp(meses, 0, 12);
    cambiadoTodo();
}

void ModeloSeguimiento::setUmbral(double porcentaje)
{
    umbral_ = std::max(0.0, porcentaje);
    cambiadoTodo();
}

void ModeloSeguimiento::setFormato(const QString& formato)
{
    formato_ = formato;
    cambiadoTodo();
}

int ModeloSeguimiento::senal(int fila) const
{
    const FilaSeguimiento& f = filas_[static_cast<std::size_t>(fila)];
    const Suma d = f.desviacion(meses_);
    if (d == 0)
        return 0;
    const auto p = f.porcentaje(meses_);
    // Without a percentage (nothing budgeted to date) any deviation counts.
    if (p && std::abs(*p) <= umbral_)
        return 0;
    return d < 0 ? -1 : 1;
}

QVariant ModeloSeguimiento::data(const QModelIndex& indice, int rol) const
{
    if (!indice.isValid() || indice.row() >= rowCount())
        return {};
    const FilaSeguimiento& f = filas_[static_cast<std::size_t>(indice.row())];
    const auto importe = [&](Suma s) { return ModeloRejilla::FormatearSuma(s, formato_); };
    const auto valor = [&]() -> std::optional<Suma> {
        switch (indice.column()) {
        case Real: return f.realHastaHoy(meses_);
        case PresupuestoFecha: return f.presupuestoHastaHoy(meses_);
        case Desviacion: return f.desviacion(meses_);
        case Prevision: return f.prevision(meses_);
        case PresupuestoAnual: return f.presupuestoAnual();
        default: return std::nullopt;
        }
    };
    switch (rol) {
    case Qt::DisplayRole:
        switch (indice.column()) {
        case Dpto: return f.tipo == FilaSeguimiento::Tipo::Total ? QString() : QString::number(f.dpto);
        case Cuenta: return f.cuenta;
        case Nombre: return f.nombre;
        case Porcentaje: {
            const auto p = f.porcentaje(meses_);
            return p ? es::formatear(*p, QStringLiteral("#,0.0")) + QStringLiteral(" %") : QStringLiteral("—");
        }
        default: return importe(*valor());
        }
    case Qt::TextAlignmentRole:
        return indice.column() >= Real ? QVariant(Qt::AlignRight | Qt::AlignVCenter) : QVariant(Qt::AlignLeft | Qt::AlignVCenter);
    case Qt::ForegroundRole:
        if (const auto v = valor(); v && *v < 0)
            return QBrush(QColor(255, 0, 0));
        return {};
    case Qt::BackgroundRole:
        if (indice.column() == Desviacion || indice.column() == Porcentaje) {
            const int s = senal(indice.row());
            if (s < 0)
                return QBrush(QColor(255, 205, 205));
            if (s > 0)
                return QBrush(QColor(205, 240, 205));
        }
        if (f.tipo != FilaSeguimiento::Tipo::Cuenta)
            return QBrush(QColor(235, 235, 235));
        return {};
    case Qt::FontRole:
        if (f.tipo != FilaSeguimiento::Tipo::Cuenta) {
            QFont negrita;
            negrita.setBold(true);
            return negrita;
        }
        return {};
    case Qt::ToolTipRole:
        return f.tipo == FilaSeguimiento::Tipo::Cuenta ? f.cuenta + QStringLiteral(" - ") + f.nombre + QStringLiteral(" (") + f.dptoNombre + QLatin1Char(')')
                                                       : f.nombre;
    default: return {};
    }
}

QVariant ModeloSeguimiento::headerData(int seccion, Qt::Orientation orientacion, int rol) const
{
    if (orientacion != Qt::Horizontal || rol != Qt::DisplayRole)
        return {};
    switch (seccion) {
    case Dpto: return QStringLiteral("Dpto");
    case Cuenta: return QStringLiteral("Cuenta");
    case Nombre: return QStringLiteral("Nombre");
    case Real: return QStringLiteral("Real a la fecha");
    case PresupuestoFecha: return QStringLiteral("Presupuesto a la fecha");
    case Desviacion: return QStringLiteral("Desviación");
    case Porcentaje: return QStringLiteral("Desviación %");
    case Prevision: return QStringLiteral("Previsión de cierre");
    case PresupuestoAnual: return QStringLiteral("Presupuesto del año");
    default: return {};
    }
}

} // namespace presupuestos
