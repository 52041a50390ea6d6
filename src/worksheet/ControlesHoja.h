#pragma once
// The worksheet's controls and their layout, declared in one place and
// named as the forms name them. The form inherits them, as a form inherits
// the controls a designer tool lays out, and wires them to its handlers.

class QAction;
class QBoxLayout;
class QToolBar;
class QCheckBox;
class QComboBox;
class QFrame;
class QLabel;
class QLineEdit;
class QListWidget;
class QMenu;
class QObject;
class QProgressBar;
class QPushButton;
class QSplitter;
class QTimer;
class QWidget;

namespace presupuestos {

class VistaRejilla;
class UpDown;
class PanelResumen;

struct ControlesHoja {
    VistaRejilla* vsPresupuesto = nullptr;
    VistaRejilla* vsHistorico = nullptr;
    VistaRejilla* vsFiltrosCategoria = nullptr;
    VistaRejilla* vsFiltroCuentas = nullptr;
    QComboBox* cboEjercicio = nullptr;
    QCheckBox* chkMostrarHistorico = nullptr;
    QLineEdit* txtEjercicioHist = nullptr;
    QPushButton* cmdVer = nullptr;
    QLineEdit* FlatEdit1 = nullptr;
    UpDown* UpDown1 = nullptr;
    QTimer* Timer1 = nullptr;
    QCheckBox* chkTipoCuentaIngresos = nullptr;
    QCheckBox* chkTipoCuentaGastos = nullptr;
    QPushButton* cmdDepartamentos = nullptr;
    QFrame* fraFiltroDpto = nullptr;
    QListWidget* lstDepartamentos = nullptr;
    QCheckBox* chkSelAllDpto = nullptr;
    QPushButton* cmdFiltroDptoAceptar = nullptr;
    QPushButton* cmdFiltroDptoCancelar = nullptr;
    QPushButton* cmdNoEnlanzarTablas = nullptr;
    QPushButton* cmdShowCal = nullptr;
    QPushButton* cmdImportar = nullptr;
    QPushButton* cmdExportar = nullptr;
    // Shows and hides the row summary, which the form creates the first
    // time it is shown, under the grids in capaRejillas.
    QPushButton* cmdResumen = nullptr;
    QPushButton* cmdSeguimiento = nullptr;
    PanelResumen* panelResumen = nullptr;
    QBoxLayout* capaRejillas = nullptr;
    QProgressBar* pbrSeleccion = nullptr;
    QProgressBar* pbrTotal = nullptr;
    QLabel* lblSeleccion = nullptr;
    // What other users changed while the worksheet was open.
    QLabel* lblCambios = nullptr;
    // What each colour of the grids means.
    QLabel* lblLeyenda = nullptr;
    QLabel* lblSumaSeleccion = nullptr;
    // Ctrl+F: an account by code or name, or a department, among thousands.
    QLineEdit* txtBuscar = nullptr;
    QLabel* lblBuscar = nullptr;
    QTimer* tmrCambios = nullptr;
    QMenu* mnuPopup = nullptr;
    QAction* mnuPopupCopiar = nullptr;
    QAction* mnuPopupPegar = nullptr;
    QAction* mnuPopupBorrar = nullptr;
    QAction* mnuPopupSelDpto = nullptr;
    QAction* mnuPopupSelTodo = nullptr;
    QAction* mnuPopupOcultar = nullptr;
    QAction* mnuPopupOperaciones = nullptr;
    QAction* mnuPopupCancelar = nullptr;
    QAction* mnuPopupDeshacer = nullptr;
    QAction* mnuPopupRehacer = nullptr;
    QAction* mnuPopupHistorial = nullptr;
    QAction* mnuPopupExportar = nullptr;
    QToolBar* tbrDeshacer = nullptr;

    // The budget grid and the history grid, side by side.
    QSplitter* divisor = nullptr;

    // Creates every control as a child of hoja and lays them out; filtro
    // watches the history-year box.
    void crear(QWidget* hoja, QObject* filtro);
};

} // namespace presupuestos
