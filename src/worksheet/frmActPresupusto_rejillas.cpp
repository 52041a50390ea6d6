// The two worksheet grids side by side: they move together, and their keys
// and mouse clicks open the menu, the clipboard and the operations dialog.

#include "calculation/clsCalculo.h"
#include "calculation/clsPresupItem.h"
#include "calculation/dialog/frmOperaciones.h"
#include "common/ErrorReport.h"
#include "common/NumerosEs.h"
#include "common/Plataforma.h"
#include "host/modPublic.h"
#include "import/dialog/frmImportar.h"
#include "progress/frmProgress.h"
#include "store/clsDBPresupuesto.h"
#include "worksheet/dlgSeguimiento.h"

#include <QLabel>
#include "worksheet/core/BuscadorHoja.h"
#include "worksheet/core/ComprobadorTotales.h"
#include "worksheet/core/LectorPortapapeles.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/frmActPresupusto.h"
#include "worksheet/dlgSeguimiento.h"
#include "worksheet/PanelResumen.h"
#include "worksheet/core/ResumenFila.h"
#include "worksheet/core/frmActPresupusto_comun.h"
#include <QAction>
#include <QCheckBox>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QTimer>
#include <QBoxLayout>
#include <QSplitter>
#include <exception>

namespace presupuestos {

using namespace modPublic;
using namespace hoja;

// ---------------------------------------------------------------------------
// The two grids move together
// ---------------------------------------------------------------------------

void frmActPresupusto::sincronizarOperaciones()
{
    if (!frmCal_)
        return;
    const ModeloRejilla& m = vsPresupuesto->modelo();
    const int r = m.Row();
    if (r >= 1 && r < m.Rows() && !m.IsSubtotal(r)) {
        const ModeloPresupuesto& d = presupuesto_->datos();
        frmCal_->setCuenta(d.cuenta(r - 1));
        frmCal_->setDpto(d.dpto(r - 1));
        frmCal_->setDpto_Nombre(d.dptoNombre(r - 1));
        frmCal_->setCuenta_Nombre(d.nombre(r - 1));
        frmCal_->setMetodoCalculo(d.metodo(r - 1));
        frmCal_->setValor(d.valorMetodo(r - 1));
    } else {
        frmCal_->Clear();
    }
    preverMetodoEnLote();
}

void frmActPresupusto::cmdSeguimiento_Click()
{
    conManejador(kForm + QStringLiteral("cmdSeguimiento_Click"), [this] {
        // Not modal: the worksheet stays at hand while the year is followed.
        auto* dlg = new dlgSeguimiento(SesionActiva, FormatoNumero, this);
        dlg->setAttribute(Qt::WA_DeleteOnClose);
        seguimiento_ = dlg;
        dlg->show();
    });
}

void frmActPresupusto::cmdResumen_Click()
{
    conManejador(kForm + QStringLiteral("cmdResumen_Click"), [this] {
        const bool mostrar = cmdResumen->isChecked();
        if (mostrar && !panelResumen) {
            panelResumen = new PanelResumen(this);
            capaRejillas->insertWidget(capaRejillas->indexOf(divisor) + 1, panelResumen);
        }
        if (panelResumen)
            panelResumen->setVisible(mostrar);
        actualizarResumen();
    });
}

void frmActPresupusto::programarResumen()
{
    if (resumenPendiente_ || !panelResumen || panelResumen->isHidden())
        return;
    resumenPendiente_ = true;
    QTimer::singleShot(0, this, [this] {
        resumenPendiente_ = false;
        actualizarResumen();
    });
}

void frmActPresupusto::actualizarResumen()
{
    if (!panelResumen || panelResumen->isHidden())
        return;
    // History figures only from a history grid the user sees, which is
    // loaded for the same accounts and year.
    const ModeloPresupuesto* historico = vsHistorico->isVisibleTo(this) ? &historico_->datos() : nullptr;
    if (!reales_) {
        // Said once if they cannot be read: the summary goes on without them.
        reales_.emplace();
        conManejador(kForm + QStringLiteral("actualizarResumen"), [this] {
            reales_ = RealesEjercicio::leer(*ConexionActiva, EmpresaActiva->CodigoEmpresa(), EjercicioActivo);
        });
    }
    panelResumen->mostrar(CalculoResumen::calcular(presupuesto_->datos(), historico, presupuesto_->Row(), reales_ ? &*reales_ : nullptr),
                          FormatoNumero, EjercicioActivo, ejercicioHistorico());
}

void frmActPresupusto::vsPresupuesto_RowColChange()
{
    try {
        sincronizarOperaciones();
    } catch (const std::exception& e) {
        mostrarError(comoVbError(e), kForm + QStringLiteral("vsPresupuesto_RowColChange"));
    }
    if (SincronizandoRejillas || vsHistorico->isHidden())
        return;
    SincronizandoRejillas = true;
    const ModeloRejilla& p = vsPresupuesto->modelo();
    ModeloRejilla& h = vsHistorico->modelo();
    if (p.Row() < h.Rows() && p.Col() < h.Cols())
        h.Select(p.Row(), p.Col());
    SincronizandoRejillas = false;
}

void frmActPresupusto::vsHistorico_RowColChange()
{
    if (SincronizandoRejillas)
        return;
    SincronizandoRejillas = true;
    const ModeloRejilla& h = vsHistorico->modelo();
    ModeloRejilla& p = vsPresupuesto->modelo();
    if (h.Row() < p.Rows() && h.Col() < p.Cols())
        p.Select(h.Row(), h.Col());
    SincronizandoRejillas = false;
}

void frmActPresupusto::vsPresupuesto_AfterScroll(int, int, int NewTopRow, int)
{
    conManejador(kForm + QStringLiteral("vsPresupuesto_AfterScroll"), [&] {
        if (SincronizandoRejillas || !TablasEnlazadas)
            return;
        SincronizandoRejillas = true;
        vsHistorico->modelo().setTopRow(NewTopRow);
        SincronizandoRejillas = false;
    });
}

void frmActPresupusto::vsHistorico_AfterScroll(int, int, int NewTopRow, int)
{
    if (SincronizandoRejillas || !TablasEnlazadas)
        return;
    SincronizandoRejillas = true;
    vsPresupuesto->modelo().setTopRow(NewTopRow);
    SincronizandoRejillas = false;
}

// ---------------------------------------------------------------------------
// Keys and mouse
// ---------------------------------------------------------------------------

void frmActPresupusto::vsPresupuesto_KeyDown(int KeyCode, int Shift)
{
    if (KeyCode == 67 && Shift == 2)
        Copiar_A_Clipboard(vsPresupuesto);
    else if (KeyCode == 86 && Shift == 2)
        Copiar_Desde_Clipboard();
    else if (KeyCode == 46)
        BorrarValorCeldas();
    else if (KeyCode == 88 && Shift == 2) {
        // Cut: what is copied is then cleared, the clearing one step of undo.
        Copiar_A_Clipboard(vsPresupuesto);
        BorrarValorCeldas();
    } else if (KeyCode == 70 && Shift == 2) {
        txtBuscar->setFocus(Qt::ShortcutFocusReason);
        txtBuscar->selectAll();
    } else if ((KeyCode == 68 || KeyCode == 82) && Shift == 2) {
        RellenarCeldas(KeyCode == 68 ? EscrituraHoja::Relleno::Abajo : EscrituraHoja::Relleno::Derecha);
    } else if (KeyCode == 116 && Shift == 0) {
        // F5 reads the worksheet again, as a change of year would.
        conManejador(kForm + QStringLiteral("vsPresupuesto_KeyDown"), [this] {
            CargarPresupuesto();
            if (vsHistorico->isVisibleTo(this))
                CargarHistorico();
        });
    } else if (KeyCode == 36) {
        // Home goes to the row's start: January back in sight.
        vsPresupuesto->modelo().setLeftCol(kPrimerMes);
    }
}

void frmActPresupusto::Buscar(bool siguiente)
{
    conManejador(kForm + QStringLiteral("Buscar"), [&] {
        const QString texto = txtBuscar->text();
        if (texto.trimmed().isEmpty()) {
            lblBuscar->clear();
            return;
        }
        ModeloRejilla& m = vsPresupuesto->modelo();
        // While typing, the row found stays found as long as it matches.
        const int desde = std::max(siguiente ? m.Row() : m.Row() - 1, 0);
        const int fila = BuscadorHoja::siguiente(*presupuesto_, texto, desde);
        if (fila < 0) {
            lblBuscar->setText(QStringLiteral("No se encuentra «%1»").arg(texto.trimmed()));
            return;
        }
        lblBuscar->clear();
        m.Select(fila, m.Col() >= kPrimerMes ? m.Col() : kPrimerMes);
    });
}

void frmActPresupusto::mostrarSumaSeleccion()
{
    // What a spreadsheet's status line tells of the selected amounts: the
    // months and totals of its account rows.
    const ModeloRejilla& m = vsPresupuesto->modelo();
    const ModeloRejilla::Rectangulo r = m.Seleccion();
    Suma suma = 0;
    int cuenta = 0;
    if (r.valido())
        for (int fila = std::max(r.fila1, m.FixedRows()); fila <= r.fila2 && fila < m.Rows(); ++fila) {
            if (m.IsSubtotal(fila) || m.RowHidden(fila))
                continue;
            for (int col = std::max(r.col1, kPrimerMes); col <= std::min(r.col2, kTotal); ++col) {
                suma += m.ValorMatrix(fila, col);
                ++cuenta;
            }
        }
    if (cuenta < 2) {
        lblSumaSeleccion->clear();
        return;
    }
    const double media = static_cast<double>(suma) / 10000.0 / cuenta;
    lblSumaSeleccion->setText(QStringLiteral("Suma: %1   Media: %2   Recuento: %3")
                                  .arg(ModeloRejilla::FormatearSuma(suma, FormatoNumero), es::formatear(media, FormatoNumero))
                                  .arg(cuenta));
}

void frmActPresupusto::vsHistorico_KeyDown(int KeyCode, int Shift)
{
    if (KeyCode == 67 && Shift == 2)
        Copiar_A_Clipboard(vsHistorico);
    else if (KeyCode == 70 && Shift == 2)   // the history keeps step with what is found
        vsPresupuesto_KeyDown(KeyCode, Shift);
}

void frmActPresupusto::abrirMenu(VistaRejilla* rejilla, int Button, int X, int Y)
{
    ModeloRejilla& m = rejilla->modelo();
    if (Button != 2 || m.Rows() <= 1)
        return;
    const int fila = rejilla->filaEn(QPoint(X, Y));
    if (fila <= 0 || m.IsSubtotal(fila))
        return;
    // A multi-cell selection stays as it is, so that the menu acts on it.
    if (!rejilla->seleccionExtendida()) {
        const int col = rejilla->colEn(QPoint(X, Y));
        m.Select(fila, col >= 0 ? col : m.Col());
    }
    rejilla->setFocus();
    mnuPopup->popup(rejilla->viewport()->mapToGlobal(QPoint(X, Y)));
}

void frmActPresupusto::vsPresupuesto_MouseDown(int Button, int, int X, int Y)
{
    conManejador(kForm + QStringLiteral("vsPresupuesto_MouseDown"), [&] { abrirMenu(vsPresupuesto, Button, X, Y); });
}

void frmActPresupusto::vsHistorico_MouseDown(int Button, int, int X, int Y) { abrirMenu(vsHistorico, Button, X, Y); }

void frmActPresupusto::vsPresupuesto_DblClick()
{
    const ModeloRejilla& m = vsPresupuesto->modelo();
    if (m.Row() >= 1 && m.Rows() > 1)
        MostrarOperaciones();
}

void frmActPresupusto::MostrarOperaciones()
{
    if (!frmCal_)
        return;
    frmCal_->setEjercicio(ejercicioHistorico());
    frmCal_->setDecimales(Decimales);
    sincronizarOperaciones();
    // Beside the current cell, below its row when there is room, above it otherwise.
    const ModeloRejilla& m = vsPresupuesto->modelo();
    const QRect celda = vsPresupuesto->rectCelda(std::max(1, m.Row()), kPrimerMes);
    const QPoint arriba = vsPresupuesto->viewport()->mapToGlobal(celda.topLeft());
    const QPoint abajo = vsPresupuesto->viewport()->mapToGlobal(celda.bottomLeft());
    QRect pantalla = screen() ? screen()->availableGeometry() : QRect(0, 0, 1366, 768);
    const QSize tam = frmCal_->frameGeometry().size();
    int y = abajo.y() + 4;
    if (y + tam.height() > pantalla.bottom())
        y = arriba.y() - tam.height() - 4;
    const int x = std::clamp(arriba.x(), pantalla.left(), std::max(pantalla.left(), pantalla.right() - tam.width()));
    frmCal_->move(x, std::max(pantalla.top(), y));
    frmCal_->show();
    frmCal_->raise();
}

} // namespace presupuestos
