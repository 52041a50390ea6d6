// Undo, redo and the history of a cell.

#include "worksheet/frmActPresupusto.h"

#include "common/NumerosEs.h"
#include "common/ErrorReport.h"
#include "common/Plataforma.h"
#include "grid/widgets/VistaRejilla.h"
#include "host/modPublic.h"
#include "store/clsDBPresupuesto.h"
#include "worksheet/core/frmActPresupusto_comun.h"
#include "worksheet/dlgHistorial.h"

#include <QAction>

namespace presupuestos {

using namespace hoja;
using namespace modPublic;

namespace {

// How a row stands on the bar of the whole budget: whether it is one of its
// rows (a row taken out of the budget is not) and whether it holds figures
// (a total other than zero, as the grid shows it).
struct EnBarra {
    int filas = 0;
    int conValores = 0;
};

EnBarra enBarra(const Diario::Imagen& im, qint16 ejercicio, int decimales)
{
    EnBarra b;
    if (ejercicio != EjercicioActivo || (im.existe && !im.ver))
        return b;
    b.filas = 1;
    Suma total = 0;
    for (const Currency& m : im.meses)
        total += m.rounded(decimales).raw();
    b.conValores = im.existe && total != 0 ? 1 : 0;
    return b;
}

} // namespace

void frmActPresupusto::actualizarDeshacer()
{
    // Undo is off where editing is: while the non-budgeted accounts are shown.
    const bool activo = diario_ && VerPresupuestables;
    const auto fijar = [](QAction* a, bool habilitado, const QString& texto, const QString& corto) {
        a->setEnabled(habilitado);
        a->setText(texto);
        a->setIconText(corto);
        a->setToolTip(texto);
    };
    fijar(mnuPopupDeshacer, activo && diario_->puedeDeshacer(), diario_ ? diario_->textoDeshacer() : QStringLiteral("Deshacer"),
          QStringLiteral("Deshacer"));
    fijar(mnuPopupRehacer, activo && diario_->puedeRehacer(), diario_ ? diario_->textoRehacer() : QStringLiteral("Rehacer"),
          QStringLiteral("Rehacer"));
}

void frmActPresupusto::usarDiario(bool usar) { dbPresupuesto_->setDiario(usar ? diario_.get() : nullptr); }

void frmActPresupusto::Deshacer() { aplicarDiario(true); }

void frmActPresupusto::Rehacer() { aplicarDiario(false); }

void frmActPresupusto::aplicarDiario(bool deshacer)
{
    if (!diario_ || !VerPresupuestables || (deshacer ? !diario_->puedeDeshacer() : !diario_->puedeRehacer()))
        return;
    // A figure still in the cell editor is stored first: it is the last operation.
    vsPresupuesto->terminarEdicion();
    const QString titulo = kForm + (deshacer ? QStringLiteral("Deshacer") : QStringLiteral("Rehacer"));
    Plataforma::puntero().establecer(Puntero::RelojArena);
    conManejador(titulo, [&] {
        const auto restaurar = [this](const QString& cuenta, qint16 dpto, qint16 ejercicio, const Diario::Imagen& imagen) {
            dbPresupuesto_->Restaurar(cuenta, dpto, ejercicio, imagen);
        };
        try {
            const Diario::Operacion op = deshacer ? diario_->deshacer(restaurar) : diario_->rehacer(restaurar);
            mostrarTrasDeshacer(op, deshacer);
        } catch (const ConflictoDiario& e) {
            Plataforma::puntero().establecer(Puntero::Defecto);
            Plataforma::mensajes().MsgBox(e.mensaje(), vb::OKOnly + vb::Exclamation,
                                          deshacer ? QStringLiteral("Deshacer") : QStringLiteral("Rehacer"));
        }
    });
    Plataforma::puntero().establecer(Puntero::Defecto);
    actualizarDeshacer();
}

void frmActPresupusto::seguirEnBarraTotal(const Diario::Operacion& op, bool haciaAntes)
{
    // The bar of the whole budget moves by the rows the operation took out
    // of the budget or put back, and by those that gained or lost figures.
    for (const Diario::Fila& f : op.filas) {
        const EnBarra desde = enBarra(haciaAntes ? f.despues : f.antes, f.ejercicio, Decimales);
        const EnBarra hacia = enBarra(haciaAntes ? f.antes : f.despues, f.ejercicio, Decimales);
        completadoTotal_.filas += hacia.filas - desde.filas;
        completadoTotal_.conValores += hacia.conValores - desde.conValores;
    }
    mostrarCompletado();
}

void frmActPresupusto::mostrarTrasDeshacer(const Diario::Operacion& op, bool haciaAntes)
{
    // What a fresh load of the same selection shows, on the same cell.
    ModeloRejilla& m = vsPresupuesto->modelo();
    const int fila = m.Row(), col = m.Col(), arriba = m.TopRow();
    CargarPresupuesto();
    seguirEnBarraTotal(op, haciaAntes);
    if (m.Rows() > 1) {
        m.Select(std::clamp(fila, 1, m.Rows() - 1), std::clamp(col, 0, m.Cols() - 1));
        m.setTopRow(arriba);
    }
}

void frmActPresupusto::mostrarHistorial()
{
    conManejador(kForm + QStringLiteral("mostrarHistorial"), [this] {
        const ModeloRejilla& m = vsPresupuesto->modelo();
        const int r = m.Row();
        if (!diario_ || r < 1 || r >= m.Rows() || m.IsSubtotal(r))
            return;
        const int mes = std::clamp(m.Col(), kPrimerMes, kUltimoMes) - kPrimerMes + 1;
        dlgHistorial dialogo(*diario_, presupuesto_->cuenta(r), presupuesto_->dpto(r), static_cast<qint16>(EjercicioActivo), mes,
                             FormatoNumero, this);
        dialogo.exec();
    });
}

} // namespace presupuestos
