#include "worksheet/ControlesHoja.h"

#include "grid/widgets/UpDown.h"
#include "grid/widgets/VistaRejilla.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QTimer>
#include <QVBoxLayout>

namespace presupuestos {

void ControlesHoja::crear(QWidget* hoja, QObject* filtro)
{
    auto* principal = new QHBoxLayout(hoja);
    principal->setContentsMargins(6, 6, 6, 6);

    // Filters on the left.
    auto* filtros = new QVBoxLayout;
    auto* lblCategorias = new QLabel(QStringLiteral("Categorías"), hoja);
    vsFiltrosCategoria = new VistaRejilla(QStringLiteral("vsFiltrosCategoria"), hoja);
    auto* lblCuentas = new QLabel(QStringLiteral("Cuentas"), hoja);
    vsFiltroCuentas = new VistaRejilla(QStringLiteral("vsFiltroCuentas"), hoja);
    chkTipoCuentaIngresos = new QCheckBox(QStringLiteral("Ingresos"), hoja);
    chkTipoCuentaIngresos->setObjectName(QStringLiteral("chkTipoCuentaIngresos"));
    chkTipoCuentaIngresos->setChecked(true);
    chkTipoCuentaGastos = new QCheckBox(QStringLiteral("Gastos"), hoja);
    chkTipoCuentaGastos->setObjectName(QStringLiteral("chkTipoCuentaGastos"));
    chkTipoCuentaGastos->setChecked(true);
    auto* tipos = new QHBoxLayout;
    tipos->addWidget(chkTipoCuentaIngresos);
    tipos->addWidget(chkTipoCuentaGastos);
    tipos->addStretch();
    filtros->addWidget(lblCategorias);
    filtros->addWidget(vsFiltrosCategoria, 2);
    filtros->addWidget(lblCuentas);
    filtros->addWidget(vsFiltroCuentas, 3);
    filtros->addLayout(tipos);
    auto* panelFiltros = new QWidget(hoja);
    panelFiltros->setLayout(filtros);
    filtros->setContentsMargins(0, 0, 0, 0);
    panelFiltros->setFixedWidth(290);
    principal->addWidget(panelFiltros);

    auto* derecha = new QVBoxLayout;
    principal->addLayout(derecha, 1);

    // Top bar.
    auto* barra = new QHBoxLayout;
    barra->addWidget(new QLabel(QStringLiteral("Ejercicio:"), hoja));
    cboEjercicio = new QComboBox(hoja);
    cboEjercicio->setObjectName(QStringLiteral("cboEjercicio"));
    barra->addWidget(cboEjercicio);
    barra->addSpacing(12);
    barra->addWidget(new QLabel(QStringLiteral("Decimales:"), hoja));
    FlatEdit1 = new QLineEdit(QStringLiteral("0"), hoja);
    FlatEdit1->setObjectName(QStringLiteral("FlatEdit1"));
    FlatEdit1->setReadOnly(true);
    FlatEdit1->setFixedWidth(28);
    FlatEdit1->setAlignment(Qt::AlignRight);
    barra->addWidget(FlatEdit1);
    UpDown1 = new UpDown(QStringLiteral("UpDown1"), FlatEdit1, 0, 4, hoja);
    barra->addWidget(UpDown1);
    barra->addSpacing(12);
    chkMostrarHistorico = new QCheckBox(QStringLiteral("Histórico"), hoja);
    chkMostrarHistorico->setObjectName(QStringLiteral("chkMostrarHistorico"));
    barra->addWidget(chkMostrarHistorico);
    txtEjercicioHist = new QLineEdit(hoja);
    txtEjercicioHist->setObjectName(QStringLiteral("txtEjercicioHist"));
    txtEjercicioHist->setFixedWidth(52);
    txtEjercicioHist->setMaxLength(4);
    txtEjercicioHist->setValidator(new QIntValidator(0, 9999, txtEjercicioHist));
    txtEjercicioHist->installEventFilter(filtro);
    barra->addWidget(txtEjercicioHist);
    barra->addSpacing(12);
    cmdVer = new QPushButton(QStringLiteral("Cuentas No Presupuestar"), hoja);
    cmdVer->setObjectName(QStringLiteral("cmdVer"));
    barra->addWidget(cmdVer);
    cmdDepartamentos = new QPushButton(QStringLiteral("Departamentos"), hoja);
    cmdDepartamentos->setObjectName(QStringLiteral("cmdDepartamentos"));
    barra->addWidget(cmdDepartamentos);
    barra->addStretch();
    derecha->addLayout(barra);

    // Second bar: what is selected, and the worksheet commands.
    auto* barra2 = new QHBoxLayout;
    lblSeleccion = new QLabel(hoja);
    lblSeleccion->setObjectName(QStringLiteral("lblSeleccion"));
    QFont negrita = lblSeleccion->font();
    negrita.setBold(true);
    lblSeleccion->setFont(negrita);
    barra2->addWidget(lblSeleccion, 1);
    cmdNoEnlanzarTablas = new QPushButton(QStringLiteral("No Enlanzar Tablas"), hoja);
    cmdNoEnlanzarTablas->setObjectName(QStringLiteral("cmdNoEnlanzarTablas"));
    barra2->addWidget(cmdNoEnlanzarTablas);
    cmdShowCal = new QPushButton(QStringLiteral("Mostra Operaciones"), hoja);
    cmdShowCal->setObjectName(QStringLiteral("cmdShowCal"));
    barra2->addWidget(cmdShowCal);
    cmdImportar = new QPushButton(QStringLiteral("Importar"), hoja);
    cmdImportar->setObjectName(QStringLiteral("cmdImportar"));
    barra2->addWidget(cmdImportar);
    derecha->addLayout(barra2);

    // The grids, side by side when the history is shown.
    divisor = new QSplitter(Qt::Horizontal, hoja);
    vsPresupuesto = new VistaRejilla(QStringLiteral("vsPresupuesto"), divisor);
    vsHistorico = new VistaRejilla(QStringLiteral("vsHistorico"), divisor);
    divisor->addWidget(vsPresupuesto);
    divisor->addWidget(vsHistorico);
    divisor->setChildrenCollapsible(false);
    vsHistorico->setVisible(false);
    derecha->addWidget(divisor, 1);

    // Completion of the selection and of the whole budget.
    auto* pie = new QHBoxLayout;
    pie->addWidget(new QLabel(QStringLiteral("Filas con importes (selección):"), hoja));
    pbrSeleccion = new QProgressBar(hoja);
    pbrSeleccion->setObjectName(QStringLiteral("pbrSeleccion"));
    pbrSeleccion->setTextVisible(true);
    pbrSeleccion->setFormat(QString());
    pie->addWidget(pbrSeleccion, 1);
    pie->addSpacing(12);
    pie->addWidget(new QLabel(QStringLiteral("(total):"), hoja));
    pbrTotal = new QProgressBar(hoja);
    pbrTotal->setObjectName(QStringLiteral("pbrTotal"));
    pbrTotal->setTextVisible(true);
    pbrTotal->setFormat(QString());
    pie->addWidget(pbrTotal, 1);
    derecha->addLayout(pie);

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
    mnuPopup->addSeparator()->setObjectName(QStringLiteral("mnuPopupSep3"));
    mnuPopupCancelar = entrada("mnuPopupCancelar", QStringLiteral("Cancelar"));
}

} // namespace presupuestos
