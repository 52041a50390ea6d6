#include "worksheet/ControlesHoja.h"

#include "grid/widgets/UpDown.h"
#include "grid/widgets/VistaRejilla.h"
#include "ui_frmActPresupusto.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QKeySequence>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>

namespace presupuestos {

void ControlesHoja::crear(QWidget* hoja, QObject* filtro)
{
    // The layout and the controls' fixed properties come from the designer
    // form (frmActPresupusto.ui); what a form file cannot say is set here.
    Ui::HojaPresupuesto ui;
    ui.setupUi(hoja);
    vsFiltrosCategoria = ui.vsFiltrosCategoria;
    vsFiltroCuentas = ui.vsFiltroCuentas;
    chkTipoCuentaIngresos = ui.chkTipoCuentaIngresos;
    chkTipoCuentaGastos = ui.chkTipoCuentaGastos;
    cboEjercicio = ui.cboEjercicio;
    FlatEdit1 = ui.FlatEdit1;
    UpDown1 = ui.UpDown1;
    chkMostrarHistorico = ui.chkMostrarHistorico;
    txtEjercicioHist = ui.txtEjercicioHist;
    cmdVer = ui.cmdVer;
    cmdDepartamentos = ui.cmdDepartamentos;
    lblSeleccion = ui.lblSeleccion;
    lblCambios = new QLabel(hoja);
    lblCambios->setObjectName(QStringLiteral("lblCambios"));
    ui.barra2->insertWidget(1, lblCambios);
    cmdNoEnlanzarTablas = ui.cmdNoEnlanzarTablas;
    cmdShowCal = ui.cmdShowCal;
    cmdImportar = ui.cmdImportar;
    divisor = ui.divisor;
    vsPresupuesto = ui.vsPresupuesto;
    vsHistorico = ui.vsHistorico;
    pbrSeleccion = ui.pbrSeleccion;
    pbrTotal = ui.pbrTotal;
    UpDown1->setCompanero(FlatEdit1, 0, 4);
    txtEjercicioHist->setValidator(new QIntValidator(0, 9999, txtEjercicioHist));
    txtEjercicioHist->installEventFilter(filtro);
    vsHistorico->setVisible(false);

    // Department filter: a small frame that floats over the worksheet.
    fraFiltroDpto = new QFrame(hoja);
    fraFiltroDpto->setObjectName(QStringLiteral("fraFiltroDpto"));
    fraFiltroDpto->setFrameShape(QFrame::StyledPanel);
    fraFiltroDpto->setAutoFillBackground(true);
    auto* capaDpto = new QVBoxLayout(fraFiltroDpto);
    chkSelAllDpto = new QCheckBox(QStringLiteral("Todos los departamentos"), fraFiltroDpto);
    chkSelAllDpto->setObjectName(QStringLiteral("chkSelAllDpto"));
    lstDepartamentos = new QListWidget(fraFiltroDpto);
    lstDepartamentos->setObjectName(QStringLiteral("lstDepartamentos"));
    lstDepartamentos->setSelectionMode(QAbstractItemView::MultiSelection);
    cmdFiltroDptoAceptar = new QPushButton(QStringLiteral("Aceptar"), fraFiltroDpto);
    cmdFiltroDptoAceptar->setObjectName(QStringLiteral("cmdFiltroDptoAceptar"));
    cmdFiltroDptoCancelar = new QPushButton(QStringLiteral("Cancelar"), fraFiltroDpto);
    cmdFiltroDptoCancelar->setObjectName(QStringLiteral("cmdFiltroDptoCancelar"));
    auto* botonesDpto = new QHBoxLayout;
    botonesDpto->addStretch();
    botonesDpto->addWidget(cmdFiltroDptoAceptar);
    botonesDpto->addWidget(cmdFiltroDptoCancelar);
    capaDpto->addWidget(chkSelAllDpto);
    capaDpto->addWidget(lstDepartamentos);
    capaDpto->addLayout(botonesDpto);
    fraFiltroDpto->resize(280, 300);
    fraFiltroDpto->hide();

    Timer1 = new QTimer(hoja);
    Timer1->setObjectName(QStringLiteral("Timer1"));
    tmrCambios = new QTimer(hoja);
    tmrCambios->setObjectName(QStringLiteral("tmrCambios"));
    tmrCambios->setInterval(500);

    // The context menu of the grids.
    mnuPopup = new QMenu(hoja);
    mnuPopup->setObjectName(QStringLiteral("mnuPopup"));
    auto entrada = [this](const char* nombre, const QString& titulo) {
        QAction* a = mnuPopup->addAction(titulo);
        a->setObjectName(QString::fromLatin1(nombre));
        return a;
    };
    mnuPopupCopiar = entrada("mnuPopupCopiar", QStringLiteral("Copiar"));
    mnuPopupPegar = entrada("mnuPopupPegar", QStringLiteral("Pegar"));
    mnuPopupBorrar = entrada("mnuPopupBorrar", QStringLiteral("Borrar"));
    mnuPopup->addSeparator()->setObjectName(QStringLiteral("mnuPopupSep1"));
    mnuPopupSelDpto = entrada("mnuPopupSelDpto", QStringLiteral("Seleccionar x Departamento"));
    mnuPopupSelTodo = entrada("mnuPopupSelTodo", QStringLiteral("Seleccionar todo"));
    mnuPopup->addSeparator()->setObjectName(QStringLiteral("mnuPopupSep2"));
    mnuPopupOcultar = entrada("mnuPopupOcultar", QStringLiteral("No Presupuestar"));
    mnuPopupOperaciones = entrada("mnuPopupOperaciones", QStringLiteral("Mostrar Operaciones"));
    mnuPopup->addSeparator()->setObjectName(QStringLiteral("mnuPopupSepDeshacer"));
    mnuPopupDeshacer = entrada("mnuPopupDeshacer", QStringLiteral("Deshacer"));
    mnuPopupRehacer = entrada("mnuPopupRehacer", QStringLiteral("Rehacer"));
    mnuPopupHistorial = entrada("mnuPopupHistorial", QStringLiteral("Historial de la celda…"));
    mnuPopup->addSeparator()->setObjectName(QStringLiteral("mnuPopupSepExcel"));
    mnuPopupExportar = entrada("mnuPopupExportar", QStringLiteral("Exportar a Excel…"));
    mnuPopup->addSeparator()->setObjectName(QStringLiteral("mnuPopupSep3"));
    mnuPopupCancelar = entrada("mnuPopupCancelar", QStringLiteral("Cancelar"));

    // Undo and redo work from anywhere in the window, as in a spreadsheet;
    // the cell editor keeps its own Ctrl+Z while it is open.
    mnuPopupDeshacer->setShortcuts({QKeySequence(Qt::CTRL | Qt::Key_Z)});
    mnuPopupRehacer->setShortcuts({QKeySequence(Qt::CTRL | Qt::Key_Y), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z)});
    for (QAction* a : {mnuPopupDeshacer, mnuPopupRehacer}) {
        a->setShortcutContext(Qt::WidgetWithChildrenShortcut);
        hoja->addAction(a);
    }
    tbrDeshacer = new QToolBar(hoja);
    tbrDeshacer->setObjectName(QStringLiteral("tbrDeshacer"));
    tbrDeshacer->setToolButtonStyle(Qt::ToolButtonTextOnly);
    tbrDeshacer->addAction(mnuPopupDeshacer);
    tbrDeshacer->addAction(mnuPopupRehacer);
    ui.barra2->insertWidget(1, tbrDeshacer);

    cmdResumen = new QPushButton(QStringLiteral("Resumen"), hoja);
    cmdResumen->setObjectName(QStringLiteral("cmdResumen"));
    cmdResumen->setCheckable(true);
    cmdResumen->setToolTip(QStringLiteral("Resumen de la fila: año presupuestado frente al histórico, por meses"));
    ui.barra2->insertWidget(ui.barra2->indexOf(cmdImportar), cmdResumen);
    cmdSeguimiento = new QPushButton(QStringLiteral("Seguimiento"), hoja);
    cmdSeguimiento->setObjectName(QStringLiteral("cmdSeguimiento"));
    cmdSeguimiento->setToolTip(QStringLiteral("El año presupuestado frente a su propio real: meses cerrados, desviación y previsión de cierre"));
    ui.barra2->insertWidget(ui.barra2->indexOf(cmdImportar), cmdSeguimiento);
    cmdExportar = new QPushButton(QStringLiteral("Exportar"), hoja);
    cmdExportar->setObjectName(QStringLiteral("cmdExportar"));
    cmdExportar->setToolTip(QStringLiteral("Guarda en un libro de Excel lo que muestra la hoja, para importarlo después"));
    ui.barra2->insertWidget(ui.barra2->indexOf(cmdImportar) + 1, cmdExportar);
    lblSumaSeleccion = new QLabel(hoja);
    lblSumaSeleccion->setObjectName(QStringLiteral("lblSumaSeleccion"));
    lblSumaSeleccion->setTextInteractionFlags(Qt::TextSelectableByMouse);
    ui.pie->insertWidget(0, lblSumaSeleccion);
    txtBuscar = new QLineEdit(hoja);
    txtBuscar->setObjectName(QStringLiteral("txtBuscar"));
    txtBuscar->setPlaceholderText(QStringLiteral("Buscar cuenta, nombre o departamento (Ctrl+F)"));
    txtBuscar->setClearButtonEnabled(true);
    txtBuscar->setMinimumWidth(260);
    txtBuscar->setToolTip(QStringLiteral("Intro: siguiente coincidencia. Esc: volver a la hoja"));
    ui.pie->insertWidget(1, txtBuscar);
    lblBuscar = new QLabel(hoja);
    lblBuscar->setObjectName(QStringLiteral("lblBuscar"));
    lblBuscar->setStyleSheet(QStringLiteral("color: #c00000"));
    ui.pie->insertWidget(2, lblBuscar);
    lblLeyenda = new QLabel(hoja);
    lblLeyenda->setObjectName(QStringLiteral("lblLeyenda"));
    lblLeyenda->setTextFormat(Qt::RichText);
    // It takes the room the bar has left and wraps in it: at the window's
    // own width the bar leaves it a third of what one line needs.
    lblLeyenda->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    lblLeyenda->setWordWrap(true);
    ui.barra->addWidget(lblLeyenda, 1);
    capaRejillas = ui.derecha;
}

} // namespace presupuestos
