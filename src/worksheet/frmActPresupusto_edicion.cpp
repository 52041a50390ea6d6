// Editing the worksheet: typed amounts, the clipboard, clearing, the
// context menu and commands, the coupling of the two grids, and the
// application of calculation methods. Every change is saved at once.

#include "calculation/clsCalculo.h"
#include "calculation/clsPresupItem.h"
#include "calculation/frmOperaciones.h"
#include "common/ErrorReport.h"
#include "common/NumerosEs.h"
#include "common/Plataforma.h"
#include "host/modPublic.h"
#include "import/frmImportar.h"
#include "progress/frmProgress.h"
#include "store/clsDBPresupuesto.h"
#include "worksheet/VistaRejilla.h"
#include "worksheet/frmActPresupusto.h"
#include "worksheet/frmActPresupusto_comun.h"

#include <QAction>
#include <QCheckBox>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>

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
        Currency v;
        ValorAnterior = es::intentarMoneda(m.TextMatrix(Row, Col), v) ? v : Currency();
    });
}

void frmActPresupusto::vsPresupuesto_KeyPressEdit(int, int, int KeyAscii) { EditadoConIntro = KeyAscii == 13; }

void frmActPresupusto::vsPresupuesto_AfterEdit(int Row, int Col)
{
    conManejador(kForm + QStringLiteral("vsPresupuesto_AfterEdit"), [&] {
        ModeloRejilla& m = vsPresupuesto->modelo();
        const QString texto = m.TextMatrix(Row, Col);
        if (es::esNumerico(texto)) {
            EditCellValue(Row, Col, es::aMoneda(texto));
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
    conManejador(kForm + QStringLiteral("EditCellValue"), [&] {
        ModeloRejilla& m = vsPresupuesto->modelo();
        if (Row < 1 || Row >= m.Rows())
            throw VbError::subscriptOutOfRange();
        m.setTextMatrix(Row, Col, es::formatear(Valor, FormatoNumero));
        const QString cuenta = m.TextMatrix(Row, 2);
        const qint16 dpto = static_cast<qint16>(es::valEntero(m.TextMatrix(Row, 0)));
        dbPresupuesto_->ActualizacionManual(cuenta, dpto, static_cast<qint16>(Col - 3), Valor);
        if (esVentas(cuenta)) {
            if (loteEdicion_ > 0)
                dependenciasPendientes_ = true;
            else
                RecalcularDependencias();
        }
        RecalcularFilas(Row, Row, Col, Col);
        int marcas;
        if (!es::aMoneda(m.TextMatrix(Row, kTotal)).isZero()) {
            marcas = es::valEntero(m.TextMatrix(Row, 18)) | (1 << (Col - 4));
            m.setCellBackColor(Row, Col, Color1);
        } else {
            // A row whose year adds up to nothing starts clean: no method,
            // no marks, all months stored as zero.
            marcas = 0;
            m.setCellBackColor(Row, kPrimerMes, Row, kUltimoMes, kBlanco);
            clsPresupItem item;
            item.Cuenta = cuenta;
            item.Dpto = dpto;
            dbPresupuesto_->Actualizar(item);
        }
        m.setTextMatrix(Row, 18, QString::number(marcas));
    });
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

std::optional<frmActPresupusto::ValoresPortapapeles> frmActPresupusto::LeerClipboard()
{
    QString s = Plataforma::portapapeles().texto();
    if (s.endsWith(QStringLiteral("\r\n")))
        s.chop(2);
    else if (s.endsWith(QLatin1Char('\n')))
        s.chop(1);
    // Spreadsheets on this system end their lines with a bare line feed;
    // either ending separates lines alike.
    s.replace(QStringLiteral("\r\n"), QStringLiteral("\r"));
    s.replace(QLatin1Char('\n'), QLatin1Char('\r'));
    // The full stop is a thousands separator; the comma is the decimal one.
    s.remove(QLatin1Char('.'));
    // Only blanks are trimmed: a trailing tab still marks an empty last field.
    while (s.startsWith(QLatin1Char(' ')))
        s.remove(0, 1);
    while (s.endsWith(QLatin1Char(' ')))
        s.chop(1);
    const QStringList lineas = s.split(QLatin1Char('\r'));
    const int ancho = static_cast<int>(lineas.first().split(QLatin1Char('\t')).size());
    ValoresPortapapeles valores(static_cast<std::size_t>(lineas.size()), std::vector<Currency>(static_cast<std::size_t>(ancho)));
    bool valido = true;
    for (int i = 0; i < lineas.size(); ++i) {
        const QStringList campos = lineas[i].split(QLatin1Char('\t'));
        for (int j = 0; j < ancho; ++j) {
            if (j >= campos.size())
                throw VbError::subscriptOutOfRange();
            const QString campo = campos[j].trimmed();
            Currency v;
            if (campo.isEmpty()) {
                v = Currency();
            } else if (!es::intentarMoneda(campo, v)) {
                valido = false;
                break;
            }
            valores[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)] = v.rounded(Decimales);
        }
    }
    if (!valido)
        return std::nullopt;
    return valores;
}

void frmActPresupusto::refrescarSubtotales(int colDesde, int colHasta)
{
    ModeloRejilla& m = vsPresupuesto->modelo();
    m.setSubtotalPosition(ModeloRejilla::PosicionSubtotal::Debajo);
    for (int c = colDesde; c <= colHasta; ++c)
        m.Subtotal(1, c, FormatoNumero, Color4, QStringLiteral("%s"));
    m.Subtotal(1, kTotal, FormatoNumero, Color4, QStringLiteral("%s"));
    if (NumDptosFiltro < 2)
        return;
    m.setSubtotalPosition(ModeloRejilla::PosicionSubtotal::Encima);
    for (int c = colDesde; c <= colHasta; ++c)
        m.Subtotal(-1, c, FormatoNumero);
    m.Subtotal(-1, kTotal, FormatoNumero);
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
        if (col >= kPrimerMes && fila >= 1 && fila < m.Rows() && !m.IsSubtotal(fila)) {
            const auto valores = LeerClipboard();
            if (valores) {
                if (m.IsSubtotal(filaFin))
                    --filaFin;
                if (colFin > kUltimoMes)
                    colFin = kUltimoMes;
                lote.progreso = new frmProgress(this);
                lote.progreso->Init(QStringLiteral("Proceso en curso."), (filaFin - fila) * (colFin - col));
                lote.progreso->SetText(QStringLiteral("Copiando..."));
                lote.progreso->Start_Delayed(3);
                m.setRedraw(false);
                int contador = 0;
                auto escribir = [&](int r, int c, Currency v) {
                    Currency anterior;
                    es::intentarMoneda(m.TextMatrix(r, c), anterior);
                    ValorAnterior = anterior;
                    EditCellValue(r, c, v);
                    lote.progreso->SetValue(contador++);
                };
                if (valores->size() == 1 && valores->front().size() == 1) {
                    const Currency v = valores->front().front();
                    for (int r = fila; r <= filaFin; ++r) {
                        if (m.IsSubtotal(r))
                            continue;
                        for (int c = col; c <= colFin; ++c)
                            escribir(r, c, v);
                    }
                } else {
                    for (std::size_t i = 0; i < valores->size(); ++i) {
                        const int r = fila + static_cast<int>(i);
                        if (r >= m.Rows())
                            throw VbError::subscriptOutOfRange();
                        // A total row takes its line of the block: nothing shifts past it.
                        if (m.IsSubtotal(r))
                            continue;
                        for (std::size_t j = 0; j < (*valores)[i].size(); ++j) {
                            const int c = col + static_cast<int>(j);
                            if (c < kTotal)
                                escribir(r, c, (*valores)[i][j]);
                        }
                    }
                }
            }
        }
    });
    if (dependenciasPendientes_) {
        dependenciasPendientes_ = false;
        RecalcularDependencias();
    }
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
        lote.progreso = new frmProgress(this);
        lote.progreso->Init(QStringLiteral("Proceso en curso."), (colFin - col) * (filaFin - fila));
        lote.progreso->SetText(QStringLiteral("Borrando celdas..."));
        lote.progreso->Start_Delayed(3);
        m.setRedraw(false);
        int contador = 0;
        for (int r = std::max(fila, 1); r <= filaFin && r < m.Rows(); ++r) {
            if (m.IsSubtotal(r))
                continue;
            for (int c = col; c <= colFin; ++c) {
                Currency anterior;
                es::intentarMoneda(m.TextMatrix(r, c), anterior);
                ValorAnterior = anterior;
                EditCellValue(r, c, Currency());
                lote.progreso->SetValue(contador++);
            }
        }
    });
    if (dependenciasPendientes_) {
        dependenciasPendientes_ = false;
        RecalcularDependencias();
    }
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
        dbPresupuesto_->Actualizar(item);
        if (esVentas(frmCal_->Cuenta()))
            RecalcularDependencias();
        ModeloRejilla& m = vsPresupuesto->modelo();
        const int r = m.Row();
        if (r < 1 || r >= m.Rows())
            return;
        for (int i = 0; i < 12; ++i) {
            // Only the display is rounded; the stored months keep four decimals.
            m.setTextMatrix(r, i + 4, es::formatear(frmCal_->Mes(i).rounded(Decimales), FormatoNumero));
            m.setCellBackColor(r, i + 4, kBlanco);
            m.setCellFloodPercent(r, i + 4, 0);
        }
        m.setTextMatrix(r, 18, QStringLiteral("0"));
        m.setTextMatrix(r, 17, QString::number(frmCal_->MetodoCalculo()));
        m.setTextMatrix(r, 19, frmCal_->Valor().toPlainText());
        RecalcularFilas(r, r, kPrimerMes, kUltimoMes);
    });
}

void frmActPresupusto::RecalcularDependencias()
{
    conManejador(kForm + QStringLiteral("RecalcularDependencias"), [this] {
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
    });
}

} // namespace presupuestos
