#pragma once
// The budget worksheet: for one company and one fiscal year, an amount per
// account x department x month, with last year's actuals beside it. Every
// change is written to the database at once.

#include "common/Currency.h"
#include "db/Conexion.h"
#include "worksheet/ControlesHoja.h"
#include "worksheet/EstadoHoja.h"
#include "worksheet/core/ArbolCategorias.h"
#include "store/Diario.h"
#include "worksheet/core/EscrituraHoja.h"
#include "worksheet/core/FiltroCuentas.h"
#include "worksheet/core/FiltroDepartamentos.h"
#include "worksheet/core/RejillaPresupuesto.h"
#include "worksheet/core/LectorPortapapeles.h"
#include "worksheet/core/Seguimiento.h"

#include <QColor>
#include <QDialog>
#include <QHash>
#include <QPointer>
#include <QString>
#include <QWidget>
#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace presupuestos {

class frmOperaciones;
class frmProgress;
class frmImportar;
class RepositorioHoja;

// The controls come from ControlesHoja, named as the forms name them, and
// the form-level state from EstadoHoja.
class frmActPresupusto : public QWidget, public ControlesHoja, public EstadoHoja {
    Q_OBJECT
public:
    explicit frmActPresupusto(QWidget* owner = nullptr);
    ~frmActPresupusto() override;

    // Shows the window modeless, loading it first when needed.
    void Mostrar();
    // Runs the unload logic and closes the window.
    void Unload();

    // How many departments the department filter takes.
    qint16 NumDptosFiltro() const { return filtroDptos_.numDptos(); }

    frmOperaciones* operaciones() const { return frmCal_; }

    // ---- Life cycle -------------------------------------------------------------
    void Form_Load();
    void Form_Activate();
    void Form_Unload();

    // Stamp of a temporary table's name for a time of day: hundredths of a
    // second as a single-precision number, written with up to seven
    // significant digits, "_" for the decimal point ("4501_563", "3600025").
    static QString SelloTabla(double segundosDesdeMedianoche);

    // ---- Worksheet-level controls ------------------------------------------------
    void cboEjercicio_Click();
    void chkMostrarHistorico_Click();
    void txtEjercicioHist_KeyPress(int keyAscii);
    void txtEjercicioHist_Validate(bool& cancelar);
    void cmdVer_Click();
    void UpDown1_Click();
    void Timer1_Timer();
    void AplicarDecimales();

    // ---- Loaders ----------------------------------------------------------------
    void CargarDepartamentos();
    void CargarFiltroCategorias();
    void CargarFiltroCuentas();
    void OcultarCategoriasSinCuentas();
    void CargarPresupuesto();
    void CargarHistorico();

    // ---- Subtotals and completion ----------------------------------------------
    void RecalcularFilas(int FilaDesde, int FilaHasta, int ColDesde, int ColHasta);
    void SetProgreesFila(Currency TotalAnterior, Currency TotalNuevo);

    // ---- Category and account filters ------------------------------------------
    const ArbolCategorias& arbolCategorias() const { return arbolCategorias_; }
    const FiltroCuentas& filtroCuentas() const { return filtroCuentas_; }
    void FiltrarCuentas();
    bool EsDeCategoria(qint16 categoria, qint16 codigo) const;
    void vsFiltrosCategoria_RowColChange();
    void vsFiltroCuentas_RowColChange();
    void chkTipoCuentaIngresos_Click();
    void chkTipoCuentaGastos_Click();

    // ---- Department filter ------------------------------------------------------
    const FiltroDepartamentos& filtroDepartamentos() const { return filtroDptos_; }
    QString GetFiltroDptos();
    void chkSelAllDpto_Click();
    void lstDepartamentos_Click();
    void cmdDepartamentos_Click();
    void cmdFiltroDptoAceptar_Click();
    void cmdFiltroDptoCancelar_Click();
    void ComprobarFocoFiltroDptos();

    // ---- Editing ----------------------------------------------------------------
    void vsPresupuesto_BeforeEdit(int Row, int Col, bool& Cancel);
    void vsPresupuesto_AfterEdit(int Row, int Col);
    void vsPresupuesto_KeyPressEdit(int Row, int Col, int KeyAscii);
    void EditCellValue(int Row, int Col, Currency Valor);
    void vsPresupuesto_AfterScroll(int OldTopRow, int OldLeftCol, int NewTopRow, int NewLeftCol);
    void vsHistorico_AfterScroll(int OldTopRow, int OldLeftCol, int NewTopRow, int NewLeftCol);
    void vsPresupuesto_RowColChange();
    void vsHistorico_RowColChange();
    void vsPresupuesto_MouseDown(int Button, int Shift, int X, int Y);
    void vsHistorico_MouseDown(int Button, int Shift, int X, int Y);
    void vsPresupuesto_KeyDown(int KeyCode, int Shift);
    void vsHistorico_KeyDown(int KeyCode, int Shift);
    void vsPresupuesto_DblClick();
    void MostrarOperaciones();

    // ---- Clipboard ------------------------------------------------------------------
    void Copiar_A_Clipboard(VistaRejilla* rejilla);
    void Copiar_Desde_Clipboard();
    void BorrarValorCeldas();
    // Ctrl+F's field: goes to the next row that matches what it holds, past
    // the current one (siguiente) or from it (while typing).
    void Buscar(bool siguiente);
    // Ctrl+D and Ctrl+R: the selection filled down or right, as one batch.
    void RellenarCeldas(EscrituraHoja::Relleno sentido);
    int GetPrimaFilaSeccion(int fila);
    int GetUltimaFilaSeccion(int fila);

    // ---- Commands -------------------------------------------------------------------
    void mnuPopupCopiar_Click();
    void mnuPopupPegar_Click();
    void mnuPopupBorrar_Click();
    void mnuPopupSelDpto_Click();
    void mnuPopupSelTodo_Click();
    void mnuPopupOcultar_Click();
    void mnuPopupOperaciones_Click();
    // Undo and redo of the last operation, and the current cell's history.
    void Deshacer();
    void Rehacer();
    void mostrarHistorial();
    Diario* diario() const { return diario_.get(); }
    // Detaches the journal from the store (and attaches it again): what
    // measuring its cost needs; the worksheet always runs with it.
    void usarDiario(bool usar);
    void cmdNoEnlanzarTablas_Click();
    void cmdShowCal_Click();
    void cmdImportar_Click();
    // Writes the worksheet as it is filtered to a workbook the import reads
    // back unchanged (the history year on a second sheet when it is shown).
    void cmdExportar_Click();
    // The row summary under the grids, following the current row.
    void cmdResumen_Click();
    // The budget year against its own actuals, in a window of its own.
    void cmdSeguimiento_Click();
    void ponerLeyenda();
    // The sum, average and count of the selected amounts, in the status line.
    void mostrarSumaSeleccion();
    // The tracking window last opened, while it is open.
    QPointer<QDialog> seguimiento_;
    // The import dialog while it is open.
    frmImportar* frmImport = nullptr;
    void frmImport_ImportacionCompletada();

    // ---- Calculation methods ------------------------------------------------------
    void frmCal_Aplicar();
    void RecalcularDependencias();
    // The dialog's method applied to every row of the scope it chose, as
    // one step of undo, once the user accepts what it overwrites.
    void aplicarMetodoEnLote();
    // Tells the dialog what its scope reaches now.
    void preverMetodoEnLote();

    const Completado& completadoSeleccion() const { return completadoSeleccion_; }
    const Completado& completadoTotal() const { return completadoTotal_; }


protected:
    void showEvent(QShowEvent* e) override;
    void closeEvent(QCloseEvent* e) override;
    bool event(QEvent* e) override;
    bool eventFilter(QObject* objeto, QEvent* e) override;

private:
    // ---- Steps of the handlers, under their own names ----------------------------
    void EstablecerEjercicioInicial();
    void CrearTablasTemporales();
    void DisenarRejilla(VistaRejilla* rejilla);
    void DisenarFiltros();
    void ResolverEnlaceDrumav();
    void GetDrumavData(bool asincrono);
    // Shows or hides the history grid beside the budget grid.
    void DistribuirRejillas();
    void CrearTotales(VistaRejilla* rejilla);
    void ActNoHijos(qint16 categoria);
    // Adds the rows one account put in the filter table to filasFiltro.
    void contarFilasFiltro(long filas);
    qint16 GetUltimoEjercicioCuentas();
    void CancelarFiltroDptos();
    void SetNextRowEdit();
    // Empty when the clipboard holds no text or any field is not a number;
    // keeps at most the cells a paste at the cursor can reach.
    std::optional<LectorPortapapeles::Bloque> LeerClipboard(int maxLineas, int maxCampos);
    static void OrdenarPar(int& a, int& b);
    // The budget grid's selection as rows and columns in order: first row,
    // last row, first column, last column.
    std::array<int, 4> seleccionOrdenada() const;
    void CambiarPresupuestable();

    void crearControles();
    void conectarFiltros();
    void conectarEdicion();
    void sincronizarOperaciones();
    // The rows the dialog's scope reaches, and how the user is told which
    // ("de la selección", "del departamento 1 - Norte").
    std::vector<int> filasMetodoEnLote(QString& que) const;
    // The summary is worked out once the events of a change are over, and
    // only while it is shown.
    void programarResumen();
    void actualizarResumen();
    bool resumenPendiente_ = false;
    // The year's actuals for the row summary: read when it is first shown
    // after a load, forgotten by the next load.
    std::optional<RealesEjercicio> reales_;
    // The history lacks an account the budget now shows: read it again.
    bool historicoPendiente_ = false;
    void abrirMenu(VistaRejilla* rejilla, int Button, int X, int Y);
    // The account the account list narrows the worksheet to, if any.
    bool cuentaSeleccionada(QString* cuenta) const;
    // Both type boxes share their logic: one of them always stays checked.
    void tipoCuentaClick(FiltroCuentas::Tipo tipo);
    // The filters' statements on the worksheet's connection, company and
    // filter table as they are now.
    RepositorioHoja repositorioFiltros() const;
    // The department list and its "all" box as they stand, into the filter.
    std::vector<ItemDepartamento> itemsDepartamentos() const;
    void leerFiltroDptos();

    // The grid rules of one of the two grids, with the worksheet's current
    // decimals, format, colours and departments.
    RejillaPresupuesto& reglas(VistaRejilla* rejilla);
    // The two grids' models, owned by their views.
    RejillaPresupuesto* presupuesto_ = nullptr;
    RejillaPresupuesto* historico_ = nullptr;
    std::unique_ptr<EscrituraHoja> escritura_;
    void escribirCelda(int Row, int Col, Currency Valor, bool comprobarTotales);
    void escribirLote(const std::vector<EscrituraHoja::Celda>& celdas, frmProgress* progreso);
    // Completion of the rows shown and of the whole budget, drawn on the bars.
    Completado completadoSeleccion_;
    Completado completadoTotal_;
    void mostrarCompletado();
    void cambiarCompletado(int filasConValores);
    // The cell's text when its edit began.
    QString textoAlEditar_;
    bool seleccionandoDptos_ = false;
    bool seleccionandoCuenta_ = false;
    ArbolCategorias arbolCategorias_;
    FiltroCuentas filtroCuentas_{arbolCategorias_};
    FiltroDepartamentos filtroDptos_;
    void aplicarColorBoton(QPushButton* boton, const QColor& color);
    qint16 ejercicioHistorico() const;

    // Keeps the window's geometry and the grids' share of the width for the
    // next session; the share only when the history is beside the budget.
    void recordarDisposicion();
    std::optional<double> repartoRejillas() const;
    bool disposicionRecordada_ = false;

    bool cargado_ = false;
    // The history-year check under way (its message box takes the focus too).
    bool validandoEjercicioHist_ = false;
    bool descargado_ = false;
    bool activando_ = false;
    QPointer<QWidget> owner_;
    frmOperaciones* frmCal_ = nullptr;
    std::unique_ptr<clsDBPresupuesto> dbPresupuesto_;
    std::unique_ptr<Diario> diario_;
    // The undo and redo entries follow the journal and the view's mode.
    void actualizarDeshacer();
    // The grid as a fresh load shows it after an undo or redo, on the same cell.
    void mostrarTrasDeshacer(const Diario::Operacion& op, bool haciaAntes);
    // The whole budget's bar after an operation (or its undo) whose rows it cannot see.
    void seguirEnBarraTotal(const Diario::Operacion& op, bool haciaAntes);
    void aplicarDiario(bool deshacer);

public:
    // Other users' committed changes: only their rows are read again and
    // drawn (totals, subtotals and bars with them), marked for a moment,
    // and the line above the grid says how many came from whom.
    void mostrarCambiosAjenos();

private:
    void marcarCambio(int fila, int col);
    std::vector<std::pair<int, int>> marcadas_;
};

} // namespace presupuestos
