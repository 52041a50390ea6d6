// Editing the worksheet: typed amounts, the clipboard, clearing, the
// context menu and commands, the coupling of the two grids, and the
// application of calculation methods. Every change is saved at once.

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
#include "worksheet/core/ComprobadorTotales.h"
#include "worksheet/core/LectorPortapapeles.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/frmActPresupusto.h"
#include "worksheet/core/frmActPresupusto_comun.h"

#include <QAction>
#include <QCheckBox>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <exception>

namespace presupuestos {

using namespace modPublic;
using namespace hoja;

namespace {

bool esVentas(const QString& cuenta) { return cuenta.left(2) == QLatin1String("70"); }

// A paste or a clear in progress: redraw off, hourglass, progress window,
// and everything put back however the loop ends.
class Lote {
public:
    Lote(ModeloRejilla& m, int& contador) : m_(m), contador_(contador) { ++contador_; }
    ~Lote()
    {
        --contador_;
        m_.setRedraw(true);
        delete progreso;
        Plataforma::puntero().establecer(Puntero::Defecto);
    }
    frmProgress* progreso = nullptr;

private:
    ModeloRejilla& m_;
    int& contador_;
};
} // namespace

void frmActPresupusto::conectarEdicion()
{
    connect(vsPresupuesto, &VistaRejilla::BeforeEdit, this, [this](int r, int c, bool& cancelar) { vsPresupuesto_BeforeEdit(r, c, cancelar); });
    connect(vsPresupuesto, &VistaRejilla::AfterEdit, this, [this](int r, int c) { vsPresupuesto_AfterEdit(r, c); });
    connect(vsPresupuesto, &VistaRejilla::KeyPressEdit, this, [this](int r, int c, int k) { vsPresupuesto_KeyPressEdit(r, c, k); });
    connect(vsPresupuesto, &VistaRejilla::CellChanged, this, [this](int r, int c) { vsPresupuesto_CellChanged(r, c); });
    connect(vsHistorico, &VistaRejilla::CellChanged, this, [this](int r, int c) { vsHistorico_CellChanged(r, c); });
    connect(vsPresupuesto, &VistaRejilla::AfterScroll, this, [this](int a, int b, int c, int d) { vsPresupuesto_AfterScroll(a, b, c, d); });
    connect(vsHistorico, &VistaRejilla::AfterScroll, this, [this](int a, int b, int c, int d) { vsHistorico_AfterScroll(a, b, c, d); });
    connect(vsPresupuesto, &VistaRejilla::RowColChange, this, [this] { vsPresupuesto_RowColChange(); });
    connect(vsHistorico, &VistaRejilla::RowColChange, this, [this] { vsHistorico_RowColChange(); });
    connect(vsPresupuesto, &VistaRejilla::MouseDown, this, [this](int b, int s, int x, int y) { vsPresupuesto_MouseDown(b, s, x, y); });
    connect(vsHistorico, &VistaRejilla::MouseDown, this, [this](int b, int s, int x, int y) { vsHistorico_MouseDown(b, s, x, y); });
    connect(vsPresupuesto, &VistaRejilla::KeyDown, this, [this](int k, int s) { vsPresupuesto_KeyDown(k, s); });
    connect(vsHistorico, &VistaRejilla::KeyDown, this, [this](int k, int s) { vsHistorico_KeyDown(k, s); });
    connect(vsPresupuesto, &VistaRejilla::DblClick, this, [this] { vsPresupuesto_DblClick(); });

    connect(mnuPopupCopiar, &QAction::triggered, this, [this] { mnuPopupCopiar_Click(); });
    connect(mnuPopupPegar, &QAction::triggered, this, [this] { mnuPopupPegar_Click(); });
    connect(mnuPopupBorrar, &QAction::triggered, this, [this] { mnuPopupBorrar_Click(); });
    connect(mnuPopupSelDpto, &QAction::triggered, this, [this] { mnuPopupSelDpto_Click(); });
    connect(mnuPopupSelTodo, &QAction::triggered, this, [this] { mnuPopupSelTodo_Click(); });
    connect(mnuPopupOcultar, &QAction::triggered, this, [this] { mnuPopupOcultar_Click(); });
    connect(mnuPopupOperaciones, &QAction::triggered, this, [this] { mnuPopupOperaciones_Click(); });
    connect(cmdNoEnlanzarTablas, &QPushButton::clicked, this, [this] { cmdNoEnlanzarTablas_Click(); });
    connect(cmdShowCal, &QPushButton::clicked, this, [this] { cmdShowCal_Click(); });
    connect(cmdImportar, &QPushButton::clicked, this, [this] { cmdImportar_Click(); });
}

// ---------------------------------------------------------------------------
// Typing
// ---------------------------------------------------------------------------

void frmActPresupusto::vsPresupuesto_BeforeEdit(int Row, int Col, bool& Cancel)
{
    conManejador(kForm + QStringLiteral("vsPresupuesto_BeforeEdit"), [&] {
        const ModeloRejilla& m = vsPresupuesto->modelo();
        if (!VerPresupuestables || Col < kPrimerMes || Col >= kTotal || m.IsSubtotal(Row)) {
            Cancel = true;
            return;
        }
        textoAlEditar_ = m.TextMatrix(Row, Col);
        Currency v;
        ValorAnterior = es::intentarMoneda(textoAlEditar_, v) ? v : Currency();
    });
}

void frmActPresupusto::vsPresupuesto_KeyPressEdit(int, int, int KeyAscii) { EditadoConIntro = KeyAscii == 13; }

void frmActPresupusto::vsPresupuesto_AfterEdit(int Row, int Col)
{
    conManejador(kForm + QStringLiteral("vsPresupuesto_AfterEdit"), [&] {
        ModeloRejilla& m = vsPresupuesto->modelo();
        const QString texto = m.TextMatrix(Row, Col);
        // Opening a cell and leaving it as it was is no edit: nothing is
        // stored and the month is not marked as typed.
        const bool sinCambio = texto == textoAlEditar_;
        if (sinCambio || es::esNumerico(texto)) {
            if (!sinCambio) {
                try {
                    escribirCelda(Row, Col, es::aMoneda(texto), true);
                } catch (const std::exception&) {
                    // A refused amount leaves the cell as it was, not the raw
                    // text, and the row goes on working.
                    if (m.TextMatrix(Row, Col) == texto)
                        m.setTextMatrix(Row, Col, textoAlEditar_);
                    throw;
                }
            }
            const bool otraColumna = Col != ColumnaEditada;
            ColumnaEditada = Col;
            FilaEditada = Row;
            if (EditadoConIntro) {
                // Walking along a row keeps walking right, up to December;
                // typing down a column keeps going down.
                if (m.Col() < kUltimoMes && otraColumna)
                    m.setCol(m.Col() + 1);
                else
                    SetNextRowEdit();
            }
        } else {
            m.setTextMatrix(Row, Col, es::formatear(Currency(), FormatoNumero));
        }
    });
    EditadoConIntro = false;
}

void frmActPresupusto::EditCellValue(int Row, int Col, Currency Valor)
{
    conManejador(kForm + QStringLiteral("EditCellValue"), [&] { escribirCelda(Row, Col, Valor, true); });
}

void frmActPresupusto::escribirCelda(int Row, int Col, Currency Valor, bool comprobarTotales)
{
    ModeloRejilla& m = vsPresupuesto->modelo();
    if (Row < 1 || Row >= m.Rows())
        throw VbError::subscriptOutOfRange();
    const Currency mostrado = Valor.rounded(Decimales);
    if (comprobarTotales) {
        ComprobadorTotales comprobador(m);
        comprobador.cambiar(Row, Col, mostrado);
        comprobador.comprobar();
    }
    const QString textoAnterior = m.TextMatrix(Row, Col);
    const QString cuenta = m.TextMatrix(Row, 2);
    const qint16 dpto = static_cast<qint16>(es::valEntero(m.TextMatrix(Row, 0)));
    if (ConexionActiva->enTransaccion())
        filasLote_.insert(Row);

    // Whether the year adds up to nothing once this month is in.
    Suma total = mostrado.raw();
    for (int c = kPrimerMes; c <= kUltimoMes; ++c)
        if (c != Col)
            total += ModeloRejilla::ValorSuma(m.TextMatrix(Row, c));

    m.setTextMatrix(Row, Col, es::formatear(Valor, FormatoNumero));
    std::optional<clsDBPresupuesto::FilaGuardada> guardada;
    bool reiniciar = false;
    try {
        if (total != 0) {
            dbPresupuesto_->ActualizacionManual(cuenta, dpto, static_cast<qint16>(Col - 3), Valor);
        } else {
            // A row whose year adds up to nothing starts clean: no method, no
            // marks, all months zero - but only if the database agrees.
            // Another user may have stored months this worksheet does not
            // show yet; those stay, and the row is shown as stored.
            Transaccion t(*ConexionActiva);
            dbPresupuesto_->ActualizacionManual(cuenta, dpto, static_cast<qint16>(Col - 3), Valor);
            guardada = dbPresupuesto_->Leer(cuenta, dpto);
            reiniciar = !guardada || guardada->todoCero();
            if (reiniciar) {
                clsPresupItem item;
                item.Cuenta = cuenta;
                item.Dpto = dpto;
                dbPresupuesto_->Actualizar(item);
            }
            t.confirmar();
        }
    } catch (const std::exception&) {
        // The cell shows what the database holds, never a figure it refused.
        if (!mostrarFilaGuardada(Row))
            m.setTextMatrix(Row, Col, textoAnterior);
        RecalcularFilas(Row, Row, Col, Col);
        throw;
    }
    if (esVentas(cuenta)) {
        if (loteEdicion_ > 0)
            dependenciasPendientes_ = true;
        else
            RecalcularDependencias();
    }
    if (guardada && !reiniciar) {
        mostrarFila(Row, *guardada);
        return;
    }
    RecalcularFilas(Row, Row, Col, Col);
    int marcas;
    if (!reiniciar) {
        marcas = es::valEntero(m.TextMatrix(Row, 18)) | (1 << (Col - 4));
        m.setCellBackColor(Row, Col, Color1);
    } else {
        marcas = 0;
        m.setCellBackColor(Row, kPrimerMes, Row, kUltimoMes, kBlanco);
    }
    m.setTextMatrix(Row, 18, QString::number(marcas));
}

void frmActPresupusto::mostrarFila(int Row, const clsDBPresupuesto::FilaGuardada& f)
{
    ModeloRejilla& m = vsPresupuesto->modelo();
    for (int i = 0; i < 12; ++i) {
        m.setTextMatrix(Row, kPrimerMes + i, es::formatear(f.meses[static_cast<std::size_t>(i)].rounded(Decimales), FormatoNumero));
        m.setCellBackColor(Row, kPrimerMes + i, (f.manual & (1 << i)) ? Color1 : kBlanco);
    }
    m.setTextMatrix(Row, 17, QString::number(f.metodo));
    m.setTextMatrix(Row, 18, QString::number(f.manual));
    m.setTextMatrix(Row, 19, f.valor.toPlainText());
    RecalcularFilas(Row, Row, kPrimerMes, kUltimoMes);
}

bool frmActPresupusto::mostrarFilaGuardada(int Row)
{
    ModeloRejilla& m = vsPresupuesto->modelo();
    if (Row < 1 || Row >= m.Rows() || m.IsSubtotal(Row))
        return false;
    try {
        const auto f = dbPresupuesto_->Leer(m.TextMatrix(Row, 2), static_cast<qint16>(es::valEntero(m.TextMatrix(Row, 0))));
        mostrarFila(Row, f.value_or(clsDBPresupuesto::FilaGuardada{}));
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

void frmActPresupusto::enLote(const std::function<void()>& cuerpo)
{
    Transaccion t(*ConexionActiva);
    if (!t.propia()) {
        cuerpo();
        return;
    }
    filasLote_.clear();
    std::exception_ptr fallo;
    try {
        cuerpo();
    } catch (...) {
        fallo = std::current_exception();
    }
    // What was stored before a failure stays stored; if even that cannot be
    // kept, every row of the batch shows the database again.
    try {
        t.confirmar();
    } catch (...) {
        for (int r : filasLote_)
            mostrarFilaGuardada(r);
        if (!fallo)
            fallo = std::current_exception();
    }
    filasLote_.clear();
    if (fallo)
        std::rethrow_exception(fallo);
}

void frmActPresupusto::SetNextRowEdit()
{
    conManejador(kForm + QStringLiteral("SetNextRowEdit"), [this] {
        ModeloRejilla& m = vsPresupuesto->modelo();
        if (m.Row() < m.Rows() - 1) {
            int r = m.Row() + 1;
            while (r < m.Rows() - 1 && m.IsSubtotal(r))
                ++r;
            m.setRow(r);
        }
    });
}

namespace {
void colorearSigno(ModeloRejilla& m, int Row, int Col)
{
    if (Col < 4 || Row < 1)
        return;
    // Amounts are written formatted, so a negative one starts with its sign.
    const QString texto = m.TextMatrix(Row, Col).trimmed();
    Currency v;
    const bool negativo = texto.startsWith(QLatin1Char('-')) && es::intentarMoneda(texto, v) && v < Currency();
    m.setCellForeColor(Row, Col, negativo ? kRojo : QColor());
}
} // namespace

void frmActPresupusto::vsPresupuesto_CellChanged(int Row, int Col)
{
    conManejador(kForm + QStringLiteral("vsPresupuesto_CellChanged"), [&] { colorearSigno(vsPresupuesto->modelo(), Row, Col); });
}

void frmActPresupusto::vsHistorico_CellChanged(int Row, int Col)
{
    conManejador(kForm + QStringLiteral("vsHistorico_CellChanged"), [&] { colorearSigno(vsHistorico->modelo(), Row, Col); });
}

// ---------------------------------------------------------------------------
// The two grids move together
// ---------------------------------------------------------------------------

void frmActPresupusto::sincronizarOperaciones()
{
    if (!frmCal_)
        return;
    const ModeloRejilla& m = vsPresupuesto->modelo();
    const int r = m.Row();
    if (r >= 1 && r < m.Rows() && !m.IsSubtotal(r) && !m.RowHidden(r)) {
        frmCal_->setCuenta(m.TextMatrix(r, 2));
        frmCal_->setDpto(static_cast<qint16>(es::valEntero(m.TextMatrix(r, 0))));
        frmCal_->setDpto_Nombre(m.TextMatrix(r, 1));
        frmCal_->setCuenta_Nombre(m.TextMatrix(r, 3));
        frmCal_->setMetodoCalculo(es::valEntero(m.TextMatrix(r, 17)));
        Currency valor;
        es::intentarMoneda(m.TextMatrix(r, 19), valor);
        frmCal_->setValor(valor);
    } else {
        frmCal_->Clear();
    }
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
}

void frmActPresupusto::vsHistorico_KeyDown(int KeyCode, int Shift)
{
    if (KeyCode == 67 && Shift == 2)
        Copiar_A_Clipboard(vsHistorico);
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

// ---------------------------------------------------------------------------
// Clipboard and clearing
// ---------------------------------------------------------------------------

void frmActPresupusto::OrdenarPar(int& a, int& b)
{
    if (a > b)
        std::swap(a, b);
}

void frmActPresupusto::Copiar_A_Clipboard(VistaRejilla* rejilla)
{
    conManejador(kForm + QStringLiteral("Copiar_A_Clipboard"), [rejilla] {
        const ModeloRejilla& m = rejilla->modelo();
        const QString texto = m.Clip(m.Row(), m.Col(), m.RowSel(), m.ColSel());
        Plataforma::portapapeles().limpiar();
        Plataforma::portapapeles().ponerTexto(texto);
    });
}

std::optional<LectorPortapapeles::Bloque> frmActPresupusto::LeerClipboard(int maxLineas, int maxCampos)
{
    return LectorPortapapeles::leer(Plataforma::portapapeles().texto(), Decimales, maxLineas, maxCampos);
}

void frmActPresupusto::refrescarSubtotales(int colDesde, int colHasta)
{
    ModeloRejilla& m = vsPresupuesto->modelo();
    m.setSubtotalPosition(ModeloRejilla::PosicionSubtotal::Debajo);
    for (int c = colDesde; c <= colHasta; ++c)
        m.Subtotal(1, c, FormatoNumero, Color4, QStringLiteral("%s"));
    m.Subtotal(1, kTotal, FormatoNumero, Color4, QStringLiteral("%s"));
    if (NumDptosFiltro() < 2)
        return;
    m.setSubtotalPosition(ModeloRejilla::PosicionSubtotal::Encima);
    for (int c = colDesde; c <= colHasta; ++c)
        m.Subtotal(-1, c, FormatoNumero);
    m.Subtotal(-1, kTotal, FormatoNumero);
}

void frmActPresupusto::escribirLote(const std::vector<CeldaLote>& celdas, frmProgress* progreso)
{
    ModeloRejilla& m = vsPresupuesto->modelo();
    // Every total the batch reaches is checked before the first cell is stored.
    ComprobadorTotales comprobador(m);
    for (const CeldaLote& c : celdas)
        comprobador.cambiar(c.fila, c.col, c.valor.rounded(Decimales));
    comprobador.comprobar();
    enLote([&] {
        int contador = 0;
        for (const CeldaLote& c : celdas) {
            Currency anterior;
            es::intentarMoneda(m.TextMatrix(c.fila, c.col), anterior);
            ValorAnterior = anterior;
            escribirCelda(c.fila, c.col, c.valor, false);
            if (progreso)
                progreso->SetValue(contador++);
        }
        if (dependenciasPendientes_) {
            dependenciasPendientes_ = false;
            recalcularDependencias();
        }
    });
}

void frmActPresupusto::Copiar_Desde_Clipboard()
{
    if (!VerPresupuestables)
        return;
    ModeloRejilla& m = vsPresupuesto->modelo();
    int fila = m.Row(), filaFin = m.RowSel(), col = m.Col(), colFin = m.ColSel();
    OrdenarPar(fila, filaFin);
    OrdenarPar(col, colFin);
    Plataforma::puntero().establecer(Puntero::RelojArena);
    conManejador(kForm + QStringLiteral("Copiar_Desde_Clipboard"), [&] {
        Lote lote(m, loteEdicion_);
        dependenciasPendientes_ = false;
        if (col < kPrimerMes || fila < 1 || fila >= m.Rows() || m.IsSubtotal(fila))
            return;
        // Only the cells a paste can reach are kept from the text.
        const auto bloque = LeerClipboard(m.Rows() - fila, kTotal - col);
        if (!bloque)
            return;
        if (m.IsSubtotal(filaFin))
            --filaFin;
        if (colFin > kUltimoMes)
            colFin = kUltimoMes;
        std::vector<CeldaLote> celdas;
        bool pasaDelFinal = false;
        if (bloque->unValor()) {
            const Currency v = bloque->valores.front().front();
            for (int r = fila; r <= filaFin; ++r) {
                if (m.IsSubtotal(r))
                    continue;
                for (int c = col; c <= colFin; ++c)
                    celdas.push_back({r, c, v});
            }
        } else {
            for (std::size_t i = 0; i < bloque->valores.size(); ++i) {
                const int r = fila + static_cast<int>(i);
                // A total row takes its line of the block: nothing shifts past it.
                if (m.IsSubtotal(r))
                    continue;
                for (std::size_t j = 0; j < bloque->valores[i].size(); ++j)
                    celdas.push_back({r, col + static_cast<int>(j), bloque->valores[i][j]});
            }
            pasaDelFinal = fila + bloque->lineas > m.Rows();
        }
        lote.progreso = new frmProgress(this);
        lote.progreso->Init(QStringLiteral("Proceso en curso."), (filaFin - fila) * (colFin - col));
        lote.progreso->SetText(QStringLiteral("Copiando..."));
        lote.progreso->Start_Delayed(3);
        m.setRedraw(false);
        escribirLote(celdas, lote.progreso);
        // A block longer than the worksheet is written down to its last row.
        if (pasaDelFinal)
            throw VbError::subscriptOutOfRange();
    });
    m.setRedraw(true);
    m.Select(fila, col, filaFin, colFin);
    if (col >= kPrimerMes)
        refrescarSubtotales(std::max(col, kPrimerMes), std::min(colFin, kUltimoMes));
    Plataforma::puntero().establecer(Puntero::Defecto);
}

void frmActPresupusto::BorrarValorCeldas()
{
    ModeloRejilla& m = vsPresupuesto->modelo();
    Plataforma::puntero().establecer(Puntero::RelojArena);
    int fila = m.Row(), filaFin = m.RowSel(), col = m.Col(), colFin = m.ColSel();
    OrdenarPar(fila, filaFin);
    OrdenarPar(col, colFin);
    col = std::max(col, kPrimerMes);
    colFin = std::min(colFin, kUltimoMes);
    conManejador(kForm + QStringLiteral("BorrarValorCeldas"), [&] {
        Lote lote(m, loteEdicion_);
        dependenciasPendientes_ = false;
        lote.progreso = new frmProgress(this);
        lote.progreso->Init(QStringLiteral("Proceso en curso."), (colFin - col) * (filaFin - fila));
        lote.progreso->SetText(QStringLiteral("Borrando celdas..."));
        lote.progreso->Start_Delayed(3);
        m.setRedraw(false);
        std::vector<CeldaLote> celdas;
        for (int r = std::max(fila, 1); r <= filaFin && r < m.Rows(); ++r) {
            if (m.IsSubtotal(r))
                continue;
            for (int c = col; c <= colFin; ++c)
                celdas.push_back({r, c, Currency()});
        }
        escribirLote(celdas, lote.progreso);
    });
    m.setRedraw(true);
    m.Select(fila, m.Col() < kPrimerMes ? m.Col() : col, filaFin, colFin);
    Plataforma::puntero().establecer(Puntero::Defecto);
}

int frmActPresupusto::GetPrimaFilaSeccion(int fila)
{
    int resultado = fila;
    conManejador(kForm + QStringLiteral("GetPrimaFilaSeccion"), [&] {
        const ModeloRejilla& m = vsPresupuesto->modelo();
        int r = fila;
        while (r >= 2 && !m.IsSubtotal(r))
            --r;
        resultado = r + 1;
    });
    return resultado;
}

int frmActPresupusto::GetUltimaFilaSeccion(int fila)
{
    const ModeloRejilla& m = vsPresupuesto->modelo();
    int r = fila;
    while (r <= m.Rows() - 1 && !m.IsSubtotal(r))
        ++r;
    return r - 1;
}

// ---------------------------------------------------------------------------
// Context menu and commands
// ---------------------------------------------------------------------------

void frmActPresupusto::mnuPopupCopiar_Click()
{
    const QString activo = Plataforma::foco().nombreControlActivo();
    if (activo == QLatin1String("vsPresupuesto"))
        Copiar_A_Clipboard(vsPresupuesto);
    else if (activo == QLatin1String("vsHistorico"))
        Copiar_A_Clipboard(vsHistorico);
}

void frmActPresupusto::mnuPopupPegar_Click()
{
    if (Plataforma::foco().nombreControlActivo() == QLatin1String("vsPresupuesto"))
        Copiar_Desde_Clipboard();
}

void frmActPresupusto::mnuPopupBorrar_Click() { BorrarValorCeldas(); }

void frmActPresupusto::mnuPopupSelDpto_Click()
{
    ModeloRejilla& m = vsPresupuesto->modelo();
    const int primera = GetPrimaFilaSeccion(m.Row());
    m.Select(primera, kPrimerMes, GetUltimaFilaSeccion(primera), kUltimoMes);
}

void frmActPresupusto::mnuPopupSelTodo_Click()
{
    ModeloRejilla& m = vsPresupuesto->modelo();
    int ultima = m.Rows() - 1;
    if (m.IsSubtotal(ultima))
        --ultima;
    m.Select(2, kPrimerMes, ultima, kUltimoMes);
}

void frmActPresupusto::mnuPopupOcultar_Click()
{
    if (VerPresupuestables) {
        const int r = Plataforma::mensajes().MsgBox(QStringLiteral("Esta seguro que desea quitar la cuenta seleccionada del presupuesto."),
                                                    vb::YesNo + vb::Exclamation + vb::DefaultButton2, QStringLiteral("¡ATENCION!"));
        if (r != vb::RespuestaYes)
            return;
    }
    CambiarPresupuestable();
}

void frmActPresupusto::CambiarPresupuestable()
{
    conManejador(kForm + QStringLiteral("CambiarPresupuestable"), [this] {
        const ModeloRejilla& m = vsPresupuesto->modelo();
        const int r = m.Row();
        // Total rows have no account to move.
        if (r < 1 || r >= m.Rows() || m.IsSubtotal(r))
            return;
        dbPresupuesto_->SetVisible(m.TextMatrix(r, 2), static_cast<qint16>(es::valEntero(m.TextMatrix(r, 0))), !VerPresupuestables);
        CargarPresupuesto();
    });
}

void frmActPresupusto::mnuPopupOperaciones_Click() { MostrarOperaciones(); }

void frmActPresupusto::cmdShowCal_Click()
{
    conManejador(kForm + QStringLiteral("cmdShowCal_Click"), [this] { MostrarOperaciones(); });
}

void frmActPresupusto::cmdNoEnlanzarTablas_Click()
{
    conManejador(kForm + QStringLiteral("cmdNoEnlanzarTablas_Click"), [this] {
        TablasEnlazadas = !TablasEnlazadas;
        if (TablasEnlazadas) {
            cmdNoEnlanzarTablas->setText(QStringLiteral("No Enlanzar Tablas"));
            vsPresupuesto_AfterScroll(0, 0, vsPresupuesto->modelo().TopRow(), 0);
        } else {
            cmdNoEnlanzarTablas->setText(QStringLiteral("Enlanzar Tablas"));
        }
    });
}

void frmActPresupusto::cmdImportar_Click()
{
    frmImport = new frmImportar(this);
    connect(frmImport, &frmImportar::ImportacionCompletada, this, [this] { frmImport_ImportacionCompletada(); });
    frmImport->exec();
    delete frmImport;
    frmImport = nullptr;
}

void frmActPresupusto::frmImport_ImportacionCompletada() { CargarPresupuesto(); }

// ---------------------------------------------------------------------------
// Calculation methods
// ---------------------------------------------------------------------------

void frmActPresupusto::frmCal_Aplicar()
{
    conManejador(kForm + QStringLiteral("frmCal_Aplicar"), [this] {
        clsPresupItem item;
        item.Cuenta = frmCal_->Cuenta();
        item.Dpto = frmCal_->Dpto();
        item.MetodoCalc = frmCal_->MetodoCalculo();
        item.Valor = frmCal_->Valor();
        for (int i = 0; i < 12; ++i)
            item.setMes(i, frmCal_->Mes(i));
        ModeloRejilla& m = vsPresupuesto->modelo();
        const int r = m.Row();
        const bool enRejilla = r >= 1 && r < m.Rows() && !m.IsSubtotal(r);
        if (enRejilla) {
            ComprobadorTotales comprobador(m);
            for (int i = 0; i < 12; ++i)
                comprobador.cambiar(r, i + 4, item.Mes(i).rounded(Decimales));
            comprobador.comprobar();
        }
        enLote([&] {
            dbPresupuesto_->Actualizar(item);
            if (enRejilla) {
                filasLote_.insert(r);
                for (int i = 0; i < 12; ++i) {
                    // Only the display is rounded; the stored months keep four decimals.
                    m.setTextMatrix(r, i + 4, es::formatear(item.Mes(i).rounded(Decimales), FormatoNumero));
                    m.setCellBackColor(r, i + 4, kBlanco);
                    m.setCellFloodPercent(r, i + 4, 0);
                }
                m.setTextMatrix(r, 18, QStringLiteral("0"));
                m.setTextMatrix(r, 17, QString::number(item.MetodoCalc));
                m.setTextMatrix(r, 19, item.Valor.toPlainText());
                RecalcularFilas(r, r, kPrimerMes, kUltimoMes);
            }
            if (esVentas(item.Cuenta))
                recalcularDependencias();
        });
    });
}

void frmActPresupusto::RecalcularDependencias()
{
    conManejador(kForm + QStringLiteral("RecalcularDependencias"), [this] { enLote([this] { recalcularDependencias(); }); });
}

void frmActPresupusto::recalcularDependencias()
{
    // Only rows planned on each month's sales follow them; rows planned
    // on the year's sales keep what they were given.
    Recordset rs = ConexionActiva->Abrir(QStringLiteral("SELECT Cuenta, Dpto, Valor FROM Presupuestos WHERE Cod_Empresa = ")
                                         + QString::number(EmpresaActiva->CodigoEmpresa())
                                         + QStringLiteral(" AND Cod_Ejercicio = ") + QString::number(EjercicioActivo)
                                         + QStringLiteral(" AND Metodo_Calculo = ") + QStringLiteral("6"));
    struct Fila {
        QString cuenta;
        qint16 dpto;
        Currency valor;
    };
    // Read to the end before writing, so the rows being rewritten never
    // move under the open read.
    std::vector<Fila> filas;
    while (!rs.eof()) {
        filas.push_back({rs.texto(QStringLiteral("Cuenta")), static_cast<qint16>(rs.entero(QStringLiteral("Dpto"))),
                         rs.moneda(QStringLiteral("Valor"))});
        rs.MoveNext();
    }
    rs.Close();
    clsCalculo calculo;
    calculo.setEjercicio(EjercicioActivo);
    clsPresupItem item;
    for (const Fila& f : filas) {
        calculo.setDpto(f.dpto);
        calculo.Calcular(6, f.cuenta, f.valor);
        item.Cuenta = f.cuenta;
        item.Dpto = f.dpto;
        item.MetodoCalc = 6;
        item.Valor = f.valor;
        for (int i = 0; i < 12; ++i)
            item.setMes(i, calculo.Mes(i));
        dbPresupuesto_->Actualizar(item);
        // The row follows on screen too when the worksheet shows it.
        const int r = filaPorClave_.value(clave(f.cuenta, f.dpto), -1);
        ModeloRejilla& m = vsPresupuesto->modelo();
        if (r > 0 && r < m.Rows() && m.TextMatrix(r, 2) == f.cuenta) {
            filasLote_.insert(r);
            for (int i = 0; i < 12; ++i) {
                m.setTextMatrix(r, i + 4, es::formatear(calculo.Mes(i).rounded(Decimales), FormatoNumero));
                m.setCellBackColor(r, i + 4, kBlanco);
            }
            m.setTextMatrix(r, 17, QStringLiteral("6"));
            m.setTextMatrix(r, 18, QStringLiteral("0"));
            m.setTextMatrix(r, 19, f.valor.toPlainText());
            RecalcularFilas(r, r, kPrimerMes, kUltimoMes);
        }
    }
}

} // namespace presupuestos
