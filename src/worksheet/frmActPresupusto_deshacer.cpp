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
#include <QLabel>
#include <QMap>
#include <QTime>
#include <QTimer>
#include <set>

namespace presupuestos {

using namespace hoja;
using namespace modPublic;

namespace {

// How long another user's change stays marked.
constexpr int kMarcaMs = 1500;
// Past this many rows the worksheet is loaded again whole rather than row by row.
constexpr std::size_t kFilasUnaAUna = 400;

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
    // The rows of the step show what it restored, found by their key; the
    // rest of the grid, the cursor and the selection stay. A step that took
    // rows out of the budget or put them back changes which rows the
    // worksheet shows: that is loaded again, on the same cell.
    if (op.tipo != Diario::Tipo::Visibilidad && op.filas.size() <= kFilasUnaAUna) {
        for (const Diario::Fila& f : op.filas) {
            const int fila = f.ejercicio == EjercicioActivo ? presupuesto_->fila(f.cuenta, f.dpto) : -1;
            if (fila < 1)
                continue;
            const Diario::Imagen& im = haciaAntes ? f.antes : f.despues;
            RejillaPresupuesto::Valores v;
            v.meses = im.meses;
            v.metodo = im.metodo;
            v.manual = im.manual;
            v.valor = im.valor;
            // The whole budget's bar follows the step below.
            completadoSeleccion_.conValores += presupuesto_->mostrar(fila, v);
        }
        seguirEnBarraTotal(op, haciaAntes);
        return;
    }
    ModeloRejilla& m = vsPresupuesto->modelo();
    const int fila = m.Row(), col = m.Col(), arriba = m.TopRow();
    CargarPresupuesto();
    seguirEnBarraTotal(op, haciaAntes);
    if (m.Rows() > 1) {
        m.Select(std::clamp(fila, 1, m.Rows() - 1), std::clamp(col, 0, m.Cols() - 1));
        m.setTopRow(arriba);
    }
}


void frmActPresupusto::mostrarCambiosAjenos()
{
    // Not while the worksheet itself is loading or writing (a long batch
    // lets the window paint in between).
    if (!diario_ || Cargando || !cargado_ || descargado_ || !ConexionActiva || ConexionActiva->enTransaccion())
        return;
    Diario::Ajenos ajenos;
    try {
        ajenos = diario_->cambiosAjenos();
    } catch (const std::exception&) {
        // Looked for again at the next tick; an edit reports a database fault.
        return;
    }
    if (!ajenos.hubo)
        return;
    ModeloRejilla& m = vsPresupuesto->modelo();
    if (ajenos.cambios.empty() || ajenos.cambios.size() > kFilasUnaAUna) {
        // The journal cannot say which rows (or there are too many to read
        // one by one): what is shown is read again, on the same cell.
        const int fila = m.Row(), col = m.Col(), arriba = m.TopRow();
        CargarPresupuesto();
        if (m.Rows() > 1) {
            m.Select(std::clamp(fila, 1, m.Rows() - 1), std::clamp(col, 0, m.Cols() - 1));
            m.setTopRow(arriba);
        }
        if (ajenos.cambios.empty())
            return;
    }
    QMap<QString, int> porUsuario;
    std::set<int> filas;
    for (const Diario::CambioAjeno& c : ajenos.cambios) {
        porUsuario[c.usuario] += 1;
        const int fila = c.fila.ejercicio == EjercicioActivo ? presupuesto_->fila(c.fila.cuenta, c.fila.dpto) : -1;
        const bool visible = ajenos.cambios.size() <= kFilasUnaAUna && fila > 0;
        if (!visible) {
            // Not on screen: only the bar of the whole budget follows it.
            const EnBarra desde = enBarra(c.fila.antes, c.fila.ejercicio, Decimales);
            const EnBarra hacia = enBarra(c.fila.despues, c.fila.ejercicio, Decimales);
            completadoTotal_.filas += hacia.filas - desde.filas;
            completadoTotal_.conValores += hacia.conValores - desde.conValores;
            continue;
        }
        filas.insert(fila);
        for (int mes = 0; mes < 12; ++mes)
            if (c.fila.antes.meses[static_cast<std::size_t>(mes)] != c.fila.despues.meses[static_cast<std::size_t>(mes)])
                marcarCambio(fila, kPrimerMes + mes);
    }
    // The rows as the database holds them now, with their totals; the
    // current cell, the selection and an edit under way stay as they are.
    for (int fila : filas)
        escritura_->mostrarGuardada(fila);
    for (const auto& [fila, col] : marcadas_)
        m.setCellBackColor(fila, col, kColorCambioAjeno);
    mostrarCompletado();
    QStringList quien;
    for (auto it = porUsuario.cbegin(); it != porUsuario.cend(); ++it)
        quien << QStringLiteral("%1 de %2").arg(it.value()).arg(it.key());
    lblCambios->setText(QStringLiteral("Cambios de otros usuarios a las %1: %2")
                            .arg(QTime::currentTime().toString(QStringLiteral("HH:mm:ss")), quien.join(QStringLiteral(", "))));
    QTimer::singleShot(kMarcaMs, this, [this] {
        // Back to the colours the rows have (typed by hand or not).
        presupuesto_->datos().quitarMarcas();
        marcadas_.clear();
    });
}

void frmActPresupusto::marcarCambio(int fila, int col) { marcadas_.emplace_back(fila, col); }

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
