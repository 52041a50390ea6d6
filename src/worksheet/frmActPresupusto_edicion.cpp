// Editing the worksheet: typed amounts, the clipboard, clearing, the
// context menu and commands, and the
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
#include "worksheet/core/MetodoEnLote.h"
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


// A paste or a clear in progress: redraw off, hourglass, progress window,
// and everything put back however the loop ends.
class Lote {
public:
    explicit Lote(ModeloRejilla& m) : m_(m) {}
    ~Lote()
    {
        m_.setRedraw(true);
        delete progreso;
        Plataforma::puntero().establecer(Puntero::Defecto);
    }
    frmProgress* progreso = nullptr;

private:
    ModeloRejilla& m_;
};
} // namespace

void frmActPresupusto::conectarEdicion()
{
    connect(vsPresupuesto, &VistaRejilla::BeforeEdit, this, [this](int r, int c, bool& cancelar) { vsPresupuesto_BeforeEdit(r, c, cancelar); });
    connect(vsPresupuesto, &VistaRejilla::AfterEdit, this, [this](int r, int c) { vsPresupuesto_AfterEdit(r, c); });
    connect(vsPresupuesto, &VistaRejilla::KeyPressEdit, this, [this](int r, int c, int k) { vsPresupuesto_KeyPressEdit(r, c, k); });
    connect(vsPresupuesto, &VistaRejilla::AfterScroll, this, [this](int a, int b, int c, int d) { vsPresupuesto_AfterScroll(a, b, c, d); });
    connect(vsHistorico, &VistaRejilla::AfterScroll, this, [this](int a, int b, int c, int d) { vsHistorico_AfterScroll(a, b, c, d); });
    connect(vsPresupuesto, &VistaRejilla::RowColChange, this, [this] { vsPresupuesto_RowColChange(); });
    connect(&vsPresupuesto->modelo(), &ModeloRejilla::seleccionCambiada, this, [this] { mostrarSumaSeleccion(); });
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
    connect(mnuPopupDeshacer, &QAction::triggered, this, [this] { Deshacer(); });
    connect(mnuPopupRehacer, &QAction::triggered, this, [this] { Rehacer(); });
    connect(mnuPopupHistorial, &QAction::triggered, this, [this] { mostrarHistorial(); });
    connect(cmdNoEnlanzarTablas, &QPushButton::clicked, this, [this] { cmdNoEnlanzarTablas_Click(); });
    connect(cmdShowCal, &QPushButton::clicked, this, [this] { cmdShowCal_Click(); });
    connect(cmdImportar, &QPushButton::clicked, this, [this] { cmdImportar_Click(); });
    connect(cmdExportar, &QPushButton::clicked, this, [this] { cmdExportar_Click(); });
    connect(mnuPopupExportar, &QAction::triggered, this, [this] { cmdExportar_Click(); });
    connect(cmdResumen, &QPushButton::toggled, this, [this] { cmdResumen_Click(); });
    connect(cmdSeguimiento, &QPushButton::clicked, this, [this] { cmdSeguimiento_Click(); });
    // The summary follows the current row and whatever changes the figures
    // of either grid; while hidden each of these costs a test.
    for (RejillaPresupuesto* rejilla : {presupuesto_, historico_}) {
        ModeloPresupuesto* d = &rejilla->datos();
        connect(d, &QAbstractItemModel::dataChanged, this, [this] { programarResumen(); });
        connect(d, &QAbstractItemModel::rowsInserted, this, [this] { programarResumen(); });
    }
    connect(&vsPresupuesto->modelo(), &ModeloRejilla::seleccionCambiada, this, [this] { programarResumen(); });
    connect(chkMostrarHistorico, &QCheckBox::toggled, this, [this] { programarResumen(); });
}

// ---------------------------------------------------------------------------
// Typing
// ---------------------------------------------------------------------------

void frmActPresupusto::vsPresupuesto_BeforeEdit(int Row, int Col, bool& Cancel)
{
    conManejador(kForm + QStringLiteral("vsPresupuesto_BeforeEdit"), [&] {
        const ModeloRejilla& m = vsPresupuesto->modelo();
        if (!reglas(vsPresupuesto).editable(Row, Col, VerPresupuestables)) {
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
                // A refused amount leaves the cell as it was, not the raw
                // text, and the row goes on working.
                const auto devolver = [&] {
                    if (m.TextMatrix(Row, Col) == texto)
                        m.setTextMatrix(Row, Col, textoAlEditar_);
                };
                Currency valor;
                try {
                    valor = es::aMoneda(texto);
                } catch (const std::exception&) {
                    devolver();
                    throw;
                }
                // Stored as EditCellValue stores it, whose errors carry its name.
                if (!conManejador(kForm + QStringLiteral("EditCellValue"), [&] { escribirCelda(Row, Col, valor, true); })) {
                    devolver();
                    return;
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
    reglas(vsPresupuesto);
    // The typed month and the rows that follow it on the sales are one step of undo.
    const auto operacion = diario_->operacion(
        Diario::Tipo::Tecleo, QStringLiteral("escribir en %1 de la cuenta %2, dpto. %3")
                                  .arg(es::nombreMes(Col - kPrimerMes + 1), presupuesto_->cuenta(Row), QString::number(presupuesto_->dpto(Row))));
    escritura_->escribirCelda(Row, Col, Valor, comprobarTotales);
}

void frmActPresupusto::SetNextRowEdit()
{
    conManejador(kForm + QStringLiteral("SetNextRowEdit"), [this] {
        ModeloRejilla& m = vsPresupuesto->modelo();
        m.setRow(reglas(vsPresupuesto).filaSiguiente(m.Row()));
    });
}


// ---------------------------------------------------------------------------
// Clipboard and clearing
// ---------------------------------------------------------------------------

std::array<int, 4> frmActPresupusto::seleccionOrdenada() const
{
    const ModeloRejilla::Rectangulo s = vsPresupuesto->modelo().Seleccion();
    int fila = s.fila1, filaFin = s.fila2, col = s.col1, colFin = s.col2;
    OrdenarPar(fila, filaFin);
    OrdenarPar(col, colFin);
    return {fila, filaFin, col, colFin};
}

void frmActPresupusto::OrdenarPar(int& a, int& b)
{
    if (a > b)
        std::swap(a, b);
}

void frmActPresupusto::Copiar_A_Clipboard(VistaRejilla* rejilla)
{
    conManejador(kForm + QStringLiteral("Copiar_A_Clipboard"), [rejilla] {
        // The selection as the view highlights it, whatever cell is current.
        const ModeloRejilla::Rectangulo s = rejilla->modelo().Seleccion();
        const QString texto = rejilla->modelo().Clip(s.fila1, s.col1, s.fila2, s.col2);
        Plataforma::portapapeles().limpiar();
        Plataforma::portapapeles().ponerTexto(texto);
    });
}

std::optional<LectorPortapapeles::Bloque> frmActPresupusto::LeerClipboard(int maxLineas, int maxCampos)
{
    return LectorPortapapeles::leer(Plataforma::portapapeles().texto(), Decimales, maxLineas, maxCampos);
}

namespace {
// The progress window, advanced cell by cell.
class ProgresoVentana : public EscrituraHoja::IProgreso {
public:
    explicit ProgresoVentana(frmProgress* p) : p_(p) {}
    void hecho(int celdas) override { p_->SetValue(celdas); }

private:
    frmProgress* p_;
};
} // namespace

void frmActPresupusto::escribirLote(const std::vector<EscrituraHoja::Celda>& celdas, frmProgress* progreso)
{
    reglas(vsPresupuesto);
    ProgresoVentana p(progreso);
    escritura_->escribirLote(celdas, &p);
}

void frmActPresupusto::Copiar_Desde_Clipboard()
{
    if (!VerPresupuestables)
        return;
    ModeloRejilla& m = vsPresupuesto->modelo();
    const std::array<int, 4> sel = seleccionOrdenada();
    int fila = sel[0], filaFin = sel[1], col = sel[2], colFin = sel[3];
    Plataforma::puntero().establecer(Puntero::RelojArena);
    conManejador(kForm + QStringLiteral("Copiar_Desde_Clipboard"), [&] {
        Lote lote(m);
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
        bool pasaDelFinal = false;
        const auto celdas = escritura_->celdasPegado(*bloque, fila, filaFin, col, colFin, &pasaDelFinal);
        lote.progreso = new frmProgress(this);
        lote.progreso->Init(QStringLiteral("Proceso en curso."), (filaFin - fila) * (colFin - col));
        lote.progreso->SetText(QStringLiteral("Copiando..."));
        lote.progreso->Start_Delayed(3);
        m.setRedraw(false);
        const auto operacion = diario_->operacion(Diario::Tipo::Pegado, QStringLiteral("pegar %1 celdas").arg(celdas.size()));
        escribirLote(celdas, lote.progreso);
        // A block longer than the worksheet is written down to its last row.
        if (pasaDelFinal)
            throw VbError::subscriptOutOfRange();
    });
    m.setRedraw(true);
    m.Select(fila, col, filaFin, colFin);
    Plataforma::puntero().establecer(Puntero::Defecto);
}

void frmActPresupusto::BorrarValorCeldas()
{
    ModeloRejilla& m = vsPresupuesto->modelo();
    Plataforma::puntero().establecer(Puntero::RelojArena);
    // The selection as the view highlights it, whatever cell is current.
    const std::array<int, 4> sel = seleccionOrdenada();
    int fila = sel[0], filaFin = sel[1], col = sel[2], colFin = sel[3];
    const int colCursor = col;
    col = std::max(col, kPrimerMes);
    colFin = std::min(colFin, kUltimoMes);
    conManejador(kForm + QStringLiteral("BorrarValorCeldas"), [&] {
        Lote lote(m);
        lote.progreso = new frmProgress(this);
        lote.progreso->Init(QStringLiteral("Proceso en curso."), (colFin - col) * (filaFin - fila));
        lote.progreso->SetText(QStringLiteral("Borrando celdas..."));
        lote.progreso->Start_Delayed(3);
        m.setRedraw(false);
        const auto celdas = escritura_->celdasBorrado(fila, filaFin, col, colFin);
        const auto operacion = diario_->operacion(Diario::Tipo::Borrado, QStringLiteral("borrar %1 celdas").arg(celdas.size()));
        escribirLote(celdas, lote.progreso);
    });
    m.setRedraw(true);
    m.Select(fila, colCursor < kPrimerMes ? colCursor : col, filaFin, colFin);
    Plataforma::puntero().establecer(Puntero::Defecto);
}

void frmActPresupusto::RellenarCeldas(EscrituraHoja::Relleno sentido)
{
    if (!VerPresupuestables)
        return;
    ModeloRejilla& m = vsPresupuesto->modelo();
    const std::array<int, 4> sel = seleccionOrdenada();
    int fila = sel[0], filaFin = sel[1], col = sel[2], colFin = sel[3];
    const auto celdas = escritura_->celdasRelleno(fila, filaFin, col, colFin, sentido);
    if (celdas.empty())
        return;
    Plataforma::puntero().establecer(Puntero::RelojArena);
    conManejador(kForm + QStringLiteral("RellenarCeldas"), [&] {
        Lote lote(m);
        lote.progreso = new frmProgress(this);
        lote.progreso->Init(QStringLiteral("Proceso en curso."), static_cast<int>(celdas.size()));
        lote.progreso->SetText(QStringLiteral("Copiando..."));
        lote.progreso->Start_Delayed(3);
        m.setRedraw(false);
        // A fill is a paste from inside the worksheet: undone as one.
        const auto operacion = diario_->operacion(
            Diario::Tipo::Pegado, (sentido == EscrituraHoja::Relleno::Abajo ? QStringLiteral("rellenar hacia abajo %1 celdas")
                                                                             : QStringLiteral("rellenar hacia la derecha %1 celdas"))
                                      .arg(celdas.size()));
        escribirLote(celdas, lote.progreso);
    });
    m.setRedraw(true);
    m.Select(fila, col, filaFin, colFin);
    Plataforma::puntero().establecer(Puntero::Defecto);
}

int frmActPresupusto::GetPrimaFilaSeccion(int fila)
{
    int resultado = fila;
    conManejador(kForm + QStringLiteral("GetPrimaFilaSeccion"), [&] { resultado = reglas(vsPresupuesto).primeraFilaSeccion(fila); });
    return resultado;
}

int frmActPresupusto::GetUltimaFilaSeccion(int fila) { return reglas(vsPresupuesto).ultimaFilaSeccion(fila); }

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
        const QString cuenta = presupuesto_->cuenta(r);
        const qint16 dpto = presupuesto_->dpto(r);
        {
            const auto operacion = diario_->operacion(
                Diario::Tipo::Visibilidad, (VerPresupuestables ? QStringLiteral("quitar del presupuesto la cuenta %1, dpto. %2")
                                                               : QStringLiteral("volver a presupuestar la cuenta %1, dpto. %2"))
                                               .arg(cuenta, QString::number(dpto)));
            dbPresupuesto_->SetVisible(cuenta, dpto, !VerPresupuestables);
        }
        CargarPresupuesto();
        // A row taken out of the budget (or put back) leaves (or joins) its bar too.
        if (const Diario::Operacion* hecha = diario_->ultima())
            seguirEnBarraTotal(*hecha, false);
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
    frmImport = new frmImportar(SesionActiva, this);
    frmImport->setDiario(diario_.get());
    connect(frmImport, &frmImportar::ImportacionCompletada, this, [this] { frmImport_ImportacionCompletada(); });
    frmImport->exec();
    delete frmImport;
    frmImport = nullptr;
}

void frmActPresupusto::frmImport_ImportacionCompletada()
{
    CargarPresupuesto();
    // The rows the workbook added or filled count on the whole budget's bar.
    if (const Diario::Operacion* hecha = diario_->ultima(); hecha && hecha->tipo == Diario::Tipo::Importacion)
        seguirEnBarraTotal(*hecha, false);
}

// ---------------------------------------------------------------------------
// Calculation methods
// ---------------------------------------------------------------------------

void frmActPresupusto::frmCal_Aplicar()
{
    if (frmCal_->Ambito() != AmbitoMetodo::Fila) {
        aplicarMetodoEnLote();
        return;
    }
    conManejador(kForm + QStringLiteral("frmCal_Aplicar"), [this] {
        clsPresupItem item;
        item.Cuenta = frmCal_->Cuenta();
        item.Dpto = frmCal_->Dpto();
        item.MetodoCalc = frmCal_->MetodoCalculo();
        item.Valor = frmCal_->Valor();
        for (int i = 0; i < 12; ++i)
            item.setMes(i, frmCal_->Mes(i));
        // The dialog follows the current row, so the method lands there.
        reglas(vsPresupuesto);
        const auto operacion = diario_->operacion(Diario::Tipo::Metodo, QStringLiteral("aplicar el método %1 a la cuenta %2, dpto. %3")
                                                                            .arg(QString::number(item.MetodoCalc), item.Cuenta,
                                                                                 QString::number(item.Dpto)));
        escritura_->aplicarMetodo(vsPresupuesto->modelo().Row(), item);
    });
}

std::vector<int> frmActPresupusto::filasMetodoEnLote(QString& que) const
{
    const ModeloRejilla& m = vsPresupuesto->modelo();
    const AmbitoMetodo ambito = frmCal_->Ambito();
    const int fila = m.Row();
    const bool cuenta = presupuesto_->esCuenta(fila);
    std::function<bool(const QString&)> enCategoria;
    switch (ambito) {
    case AmbitoMetodo::Fila:
        que.clear();
        break;
    case AmbitoMetodo::Seleccion:
        que = QStringLiteral("de la selección");
        break;
    case AmbitoMetodo::Departamento:
        que = QStringLiteral("del departamento ") + (cuenta ? QString::number(presupuesto_->dpto(fila)) + QStringLiteral(" - ") + m.TextMatrix(fila, kDptoNombre) : QString());
        break;
    case AmbitoMetodo::Categoria: {
        // The category of the account line the current row's account
        // belongs to, and every category below it.
        auto categorias = std::make_shared<QHash<QString, qint16>>();
        for (const CuentaFiltro& c : filtroCuentas_.cuentas())
            categorias->insert(c.cuenta, c.padre);
        const qint16 categoria = cuenta ? categorias->value(presupuesto_->cuenta(fila)) : 0;
        const auto& tabla = arbolCategorias_.tabla();
        const int filaLista = categoria > 0 && categoria < static_cast<int>(tabla.size()) ? tabla[static_cast<std::size_t>(categoria)].Fila : -1;
        const ModeloRejilla& lista = vsFiltrosCategoria->modelo();
        que = QStringLiteral("de la categoría ") + (filaLista > 0 && filaLista < lista.Rows() ? lista.TextMatrix(filaLista, 1).trimmed() : QString());
        // An account of no category (0) would be taken by "Todas".
        if (categoria != 0)
            enCategoria = [this, categorias, categoria](const QString& c) {
                const qint16 suya = categorias->value(c);
                return suya != 0 && arbolCategorias_.esDeCategoria(categoria, suya);
            };
        else
            enCategoria = [](const QString&) { return false; };
        break;
    }
    }
    return MetodoEnLote::filas(*presupuesto_, ambito, fila, m.RowSel(), enCategoria);
}

void frmActPresupusto::preverMetodoEnLote()
{
    if (!frmCal_ || frmCal_->Ambito() == AmbitoMetodo::Fila)
        return;
    conManejador(kForm + QStringLiteral("preverMetodoEnLote"), [this] {
        // Without an account row nothing can be applied, nor counted.
        if (frmCal_->Cuenta().isEmpty()) {
            frmCal_->setPrevisionLote(QString());
            return;
        }
        QString que;
        const auto filas = filasMetodoEnLote(que);
        frmCal_->setPrevisionLote(MetodoEnLote::texto(MetodoEnLote::prever(*presupuesto_, filas), que));
    });
}

void frmActPresupusto::aplicarMetodoEnLote()
{
    conManejador(kForm + QStringLiteral("frmCal_Aplicar"), [this] {
        reglas(vsPresupuesto);
        QString que;
        const auto filas = filasMetodoEnLote(que);
        if (filas.empty()) {
            Plataforma::mensajes().MsgBox(QStringLiteral("No hay filas de cuenta a las que aplicar el método."), vb::Exclamation,
                                          QStringLiteral("¡ATENCION!"));
            return;
        }
        const auto prevision = MetodoEnLote::prever(*presupuesto_, filas);
        if (Plataforma::mensajes().MsgBox(MetodoEnLote::pregunta(prevision, que), vb::YesNo + vb::Question + vb::DefaultButton2,
                                          QStringLiteral("¡ATENCION!"))
            != vb::RespuestaYes)
            return;
        ModeloRejilla& m = vsPresupuesto->modelo();
        Plataforma::puntero().establecer(Puntero::RelojArena);
        Lote lote(m);
        lote.progreso = new frmProgress(this);
        lote.progreso->Init(QStringLiteral("Proceso en curso."), 2 * static_cast<int>(filas.size()));
        lote.progreso->SetText(QStringLiteral("Aplicando el método..."));
        lote.progreso->Start_Delayed(3);
        m.setRedraw(false);
        // Methods on the history read the year the dialog shows.
        clsCalculo calculo(SesionActiva);
        calculo.setEjercicio(frmCal_->Ejercicio());
        calculo.setTablaTempHistorico(frmCal_->TablaTempHistorico());
        calculo.setDecimales(Decimales);
        const qint32 metodo = frmCal_->MetodoCalculo();
        const auto operacion = diario_->operacion(
            Diario::Tipo::Metodo, QStringLiteral("aplicar el método %1 a %2 filas").arg(QString::number(metodo), QString::number(filas.size())));
        ProgresoVentana progreso(lote.progreso);
        escritura_->aplicarMetodoEnFilas(filas, metodo, frmCal_->Valor(), calculo, &progreso);
    });
    preverMetodoEnLote();
}

void frmActPresupusto::RecalcularDependencias()
{
    conManejador(kForm + QStringLiteral("RecalcularDependencias"), [this] {
        reglas(vsPresupuesto);
        const auto operacion = diario_->operacion(Diario::Tipo::Dependientes, QStringLiteral("recalcular las filas sobre las ventas"));
        escritura_->recalcularDependencias();
    });
}

} // namespace presupuestos
