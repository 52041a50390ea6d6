#include "worksheet/frmActPresupusto.h"
#include "worksheet/core/frmActPresupusto_comun.h"

#include "calculation/dialog/frmOperaciones.h"
#include "common/ErrorReport.h"
#include "common/NumerosEs.h"
#include "common/Plataforma.h"
#include "common/Reloj.h"
#include "host/modPublic.h"
#include "store/clsDBPresupuesto.h"
#include "grid/widgets/UpDown.h"
#include "grid/widgets/VistaRejilla.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QFrame>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QSplitter>
#include <QTimer>
#include <QVBoxLayout>
#include <cmath>

namespace presupuestos {

using namespace modPublic;
using namespace hoja;

namespace {
const QColor kColorFondoNoPresupuestables(255, 145, 100);
} // namespace

frmActPresupusto::frmActPresupusto(QWidget* owner) : QWidget(owner, Qt::Window), owner_(owner)
{
    setObjectName(QStringLiteral("frmActPresupusto"));
    setAttribute(Qt::WA_DeleteOnClose);
    resize(1280, 700);
    crearControles();
    presupuesto_ = std::make_unique<RejillaPresupuesto>(vsPresupuesto->modelo());
    historico_ = std::make_unique<RejillaPresupuesto>(vsHistorico->modelo());
    crearMenu();
    conectarFiltros();
    conectarEdicion();
}

frmActPresupusto::~frmActPresupusto()
{
    if (cargado_ && !descargado_) {
        descargado_ = true;
        Form_Unload();
    }
}

// ---------------------------------------------------------------------------
// Controls
// ---------------------------------------------------------------------------

void frmActPresupusto::crearControles()
{
    auto* principal = new QHBoxLayout(this);
    principal->setContentsMargins(6, 6, 6, 6);

    // Filters on the left.
    auto* filtros = new QVBoxLayout;
    auto* lblCategorias = new QLabel(QStringLiteral("Categorías"), this);
    vsFiltrosCategoria = new VistaRejilla(QStringLiteral("vsFiltrosCategoria"), this);
    auto* lblCuentas = new QLabel(QStringLiteral("Cuentas"), this);
    vsFiltroCuentas = new VistaRejilla(QStringLiteral("vsFiltroCuentas"), this);
    chkTipoCuentaIngresos = new QCheckBox(QStringLiteral("Ingresos"), this);
    chkTipoCuentaIngresos->setObjectName(QStringLiteral("chkTipoCuentaIngresos"));
    chkTipoCuentaIngresos->setChecked(true);
    chkTipoCuentaGastos = new QCheckBox(QStringLiteral("Gastos"), this);
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
    auto* panelFiltros = new QWidget(this);
    panelFiltros->setLayout(filtros);
    filtros->setContentsMargins(0, 0, 0, 0);
    panelFiltros->setFixedWidth(290);
    principal->addWidget(panelFiltros);

    auto* derecha = new QVBoxLayout;
    principal->addLayout(derecha, 1);

    // Top bar.
    auto* barra = new QHBoxLayout;
    barra->addWidget(new QLabel(QStringLiteral("Ejercicio:"), this));
    cboEjercicio = new QComboBox(this);
    cboEjercicio->setObjectName(QStringLiteral("cboEjercicio"));
    barra->addWidget(cboEjercicio);
    barra->addSpacing(12);
    barra->addWidget(new QLabel(QStringLiteral("Decimales:"), this));
    FlatEdit1 = new QLineEdit(QStringLiteral("0"), this);
    FlatEdit1->setObjectName(QStringLiteral("FlatEdit1"));
    FlatEdit1->setReadOnly(true);
    FlatEdit1->setFixedWidth(28);
    FlatEdit1->setAlignment(Qt::AlignRight);
    barra->addWidget(FlatEdit1);
    UpDown1 = new UpDown(QStringLiteral("UpDown1"), FlatEdit1, 0, 4, this);
    barra->addWidget(UpDown1);
    barra->addSpacing(12);
    chkMostrarHistorico = new QCheckBox(QStringLiteral("Histórico"), this);
    chkMostrarHistorico->setObjectName(QStringLiteral("chkMostrarHistorico"));
    barra->addWidget(chkMostrarHistorico);
    txtEjercicioHist = new QLineEdit(this);
    txtEjercicioHist->setObjectName(QStringLiteral("txtEjercicioHist"));
    txtEjercicioHist->setFixedWidth(52);
    txtEjercicioHist->setMaxLength(4);
    txtEjercicioHist->setValidator(new QIntValidator(0, 9999, txtEjercicioHist));
    txtEjercicioHist->installEventFilter(this);
    barra->addWidget(txtEjercicioHist);
    barra->addSpacing(12);
    cmdVer = new QPushButton(QStringLiteral("Cuentas No Presupuestar"), this);
    cmdVer->setObjectName(QStringLiteral("cmdVer"));
    barra->addWidget(cmdVer);
    cmdDepartamentos = new QPushButton(QStringLiteral("Departamentos"), this);
    cmdDepartamentos->setObjectName(QStringLiteral("cmdDepartamentos"));
    barra->addWidget(cmdDepartamentos);
    barra->addStretch();
    derecha->addLayout(barra);

    // Second bar: what is selected, and the worksheet commands.
    auto* barra2 = new QHBoxLayout;
    lblSeleccion = new QLabel(this);
    lblSeleccion->setObjectName(QStringLiteral("lblSeleccion"));
    QFont negrita = lblSeleccion->font();
    negrita.setBold(true);
    lblSeleccion->setFont(negrita);
    barra2->addWidget(lblSeleccion, 1);
    cmdNoEnlanzarTablas = new QPushButton(QStringLiteral("No Enlanzar Tablas"), this);
    cmdNoEnlanzarTablas->setObjectName(QStringLiteral("cmdNoEnlanzarTablas"));
    barra2->addWidget(cmdNoEnlanzarTablas);
    cmdShowCal = new QPushButton(QStringLiteral("Mostra Operaciones"), this);
    cmdShowCal->setObjectName(QStringLiteral("cmdShowCal"));
    barra2->addWidget(cmdShowCal);
    cmdImportar = new QPushButton(QStringLiteral("Importar"), this);
    cmdImportar->setObjectName(QStringLiteral("cmdImportar"));
    barra2->addWidget(cmdImportar);
    derecha->addLayout(barra2);

    // The grids, side by side when the history is shown.
    divisor_ = new QSplitter(Qt::Horizontal, this);
    vsPresupuesto = new VistaRejilla(QStringLiteral("vsPresupuesto"), divisor_);
    vsHistorico = new VistaRejilla(QStringLiteral("vsHistorico"), divisor_);
    divisor_->addWidget(vsPresupuesto);
    divisor_->addWidget(vsHistorico);
    divisor_->setChildrenCollapsible(false);
    vsHistorico->setVisible(false);
    derecha->addWidget(divisor_, 1);

    // Completion of the selection and of the whole budget.
    auto* pie = new QHBoxLayout;
    pie->addWidget(new QLabel(QStringLiteral("Filas con importes (selección):"), this));
    pbrSeleccion = new QProgressBar(this);
    pbrSeleccion->setObjectName(QStringLiteral("pbrSeleccion"));
    pbrSeleccion->setTextVisible(true);
    pbrSeleccion->setFormat(QString());
    pie->addWidget(pbrSeleccion, 1);
    pie->addSpacing(12);
    pie->addWidget(new QLabel(QStringLiteral("(total):"), this));
    pbrTotal = new QProgressBar(this);
    pbrTotal->setObjectName(QStringLiteral("pbrTotal"));
    pbrTotal->setTextVisible(true);
    pbrTotal->setFormat(QString());
    pie->addWidget(pbrTotal, 1);
    derecha->addLayout(pie);

    // Department filter: a small frame that floats over the worksheet.
    fraFiltroDpto = new QFrame(this);
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

    Timer1 = new QTimer(this);
    Timer1->setObjectName(QStringLiteral("Timer1"));

    connect(cboEjercicio, &QComboBox::currentIndexChanged, this, [this](int) { cboEjercicio_Click(); });
    connect(chkMostrarHistorico, &QCheckBox::clicked, this, [this] { chkMostrarHistorico_Click(); });
    // The history grid follows every change of the switch, also those the
    // worksheet makes itself (showing the accounts out of the budget
    // unchecks it).
    connect(chkMostrarHistorico, &QCheckBox::toggled, this, [this] {
        conManejador(kForm + QStringLiteral("chkMostrarHistorico_Click"), [this] { DistribuirRejillas(); });
    });
    connect(cmdVer, &QPushButton::clicked, this, [this] { cmdVer_Click(); });
    connect(UpDown1, &UpDown::UpClick, this, [this] { UpDown1_Click(); });
    connect(UpDown1, &UpDown::DownClick, this, [this] { UpDown1_Click(); });
    connect(Timer1, &QTimer::timeout, this, [this] { Timer1_Timer(); });
}

void frmActPresupusto::crearMenu()
{
    mnuPopup = new QMenu(this);
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

void frmActPresupusto::aplicarColorBoton(QPushButton* boton, const QColor& color)
{
    if (!color.isValid()) {
        boton->setStyleSheet(QString());
        return;
    }
    boton->setStyleSheet(QStringLiteral("QPushButton { background-color: %1; }").arg(color.name()));
}

// ---------------------------------------------------------------------------
// Life cycle
// ---------------------------------------------------------------------------

void frmActPresupusto::Mostrar()
{
    if (!cargado_) {
        cargado_ = true;
        Form_Load();
    }
    show();
    raise();
    activateWindow();
}

void frmActPresupusto::Unload()
{
    if (cargado_ && !descargado_) {
        descargado_ = true;
        Form_Unload();
    }
    hide();
}

QString frmActPresupusto::SelloTabla(double segundosDesdeMedianoche)
{
    const float centesimas = static_cast<float>(segundosDesdeMedianoche) * 100.0f;
    QString texto = QString::number(static_cast<double>(centesimas), 'g', 7);
    return texto;
}

void frmActPresupusto::Form_Load()
{
    // Centred on the screen.
    if (QScreen* pantalla = QGuiApplication::primaryScreen()) {
        const QRect r = pantalla->availableGeometry();
        move(r.x() + (r.width() - width()) / 2, r.y() + (r.height() - height()) / 2);
    }
    EstablecerEjercicioInicial();
    txtEjercicioHist->setText(QString::number(EjercicioActivo - 1));
    Decimales = 0;
    FormatoNumero = QStringLiteral("#,0");
    Color1 = QColor(172, 250, 185);
    Color2 = QColor(170, 250, 250);
    Color3 = QColor(92, 177, 252);
    Color4 = QColor(190, 228, 245);
    VerPresupuestables = true;
    CargarDepartamentos();
    Cargando = true;
    DisenarFiltros();
    DisenarRejilla(vsPresupuesto);
    DisenarRejilla(vsHistorico);
    CrearTablasTemporales();
    ResolverEnlaceDrumav();
    GetDrumavData(true);

    const int anyoEmpresa = EmpresaActiva->EjercicioActual();
    cboEjercicio->clear();
    for (int anyo = anyoEmpresa - 3; anyo <= anyoEmpresa + 2; ++anyo)
        cboEjercicio->addItem(QString::number(anyo));
    const int indice = EjercicioActivo - (anyoEmpresa - 3);
    if (indice < 0 || indice >= cboEjercicio->count())
        throw VbError::invalidPropertyValue();
    cboEjercicio->setCurrentIndex(indice);

    PrimeraActivacion = true;
    dbPresupuesto_ = std::make_unique<clsDBPresupuesto>();
    EscrituraHoja::Avisos avisos;
    avisos.completado = [this](int n) { cambiarCompletado(n); };
    avisos.ventasCambiadas = [this] { RecalcularDependencias(); };
    avisos.antesDeCelda = [this](Currency v) { ValorAnterior = v; };
    escritura_ = std::make_unique<EscrituraHoja>(*presupuesto_, *dbPresupuesto_, std::move(avisos));
    setWindowTitle(QStringLiteral("Presupuesto ") + QString::number(EjercicioActivo));

    frmCal_ = new frmOperaciones(this);
    frmCal_->setTablaTempHistorico(TablaEstadisticas);
    frmCal_->setEjercicio(static_cast<qint16>(EjercicioActivo - 1));
    connect(frmCal_, &frmOperaciones::Aplicar, this, [this] { frmCal_Aplicar(); });
}

void frmActPresupusto::EstablecerEjercicioInicial()
{
    Recordset rs = ConexionActiva->Abrir(QStringLiteral("SELECT Max(Cod_Ejercicio) FROM Presupuestos WHERE Cod_Empresa = ")
                                         + QString::number(EmpresaActiva->CodigoEmpresa()));
    // A maximum always returns one row, so the year is always the company's
    // next one; the stored maximum would only be taken from an empty result.
    if (rs.eof())
        EjercicioActivo = static_cast<qint16>(rs.entero(0));
    else
        EjercicioActivo = static_cast<qint16>(EmpresaActiva->EjercicioActual() + 1);
    rs.Close();
}

void frmActPresupusto::CrearTablasTemporales()
{
    TablaFiltroCuentas = QStringLiteral("##PresupFiltroCuentas_") + SelloTabla(reloj::segundosDesdeMedianoche());
    TablaEstadisticas = QStringLiteral("##Drumav_Estadisticas_") + SelloTabla(reloj::segundosDesdeMedianoche());
    ConexionActiva->Execute(QStringLiteral("CREATE TABLE ") + TablaFiltroCuentas
                            + QStringLiteral("([Codigo] INT, Cuenta [VARCHAR](12), Nombre VARCHAR(200), Dpto INT, Dpto_Nombre VARCHAR(200))"));
    QString sql = QStringLiteral("CREATE TABLE ") + TablaEstadisticas + QStringLiteral(" (Cuenta VARCHAR(12), Cod_Ejercicio INT, Dpto INT");
    for (int m = 1; m <= 11; ++m)
        sql += QStringLiteral(", M%1 MONEY").arg(m);
    sql += QStringLiteral(", M12 MONEY)");
    ConexionActiva->Execute(sql);
}

void frmActPresupusto::Form_Activate()
{
    // Activation events may arrive again while the first load yields to the
    // event loop; only one first load runs.
    if (activando_)
        return;
    activando_ = true;
    QCoreApplication::processEvents();
    if (PrimeraActivacion && cargado_ && !descargado_) {
        CargarFiltroCategorias();
        CargarFiltroCuentas();
        OcultarCategoriasSinCuentas();
        Cargando = false;
        CargarPresupuesto();
    }
    PrimeraActivacion = false;
    activando_ = false;
}

void frmActPresupusto::Form_Unload()
{
    // Clean-up: a failure of either drop is silent and never stops the unload.
    if (!ConexionActiva)
        return;
    for (const QString& tabla : {TablaFiltroCuentas, TablaEstadisticas}) {
        if (tabla.isEmpty())
            continue;
        try {
            ConexionActiva->Execute(QStringLiteral("DROP TABLE ") + tabla);
        } catch (const std::exception&) {
        }
    }
    if (frmCal_)
        frmCal_->hide();
}

void frmActPresupusto::showEvent(QShowEvent* e)
{
    QWidget::showEvent(e);
    if (PrimeraActivacion)
        QTimer::singleShot(0, this, [this] { Form_Activate(); });
}

bool frmActPresupusto::event(QEvent* e)
{
    if (e->type() == QEvent::WindowActivate && PrimeraActivacion && cargado_)
        QTimer::singleShot(0, this, [this] { Form_Activate(); });
    return QWidget::event(e);
}

void frmActPresupusto::closeEvent(QCloseEvent* e)
{
    // A figure still in the cell editor is stored, not dropped with the window.
    vsPresupuesto->terminarEdicion();
    if (cargado_ && !descargado_) {
        descargado_ = true;
        Form_Unload();
    }
    e->accept();
}

// ---------------------------------------------------------------------------
// Worksheet-level controls
// ---------------------------------------------------------------------------

qint16 frmActPresupusto::ejercicioHistorico() const
{
    return static_cast<qint16>(es::valEntero(txtEjercicioHist->text()));
}

void frmActPresupusto::cboEjercicio_Click()
{
    if (Cargando)
        return;
    conManejador(kForm + QStringLiteral("cboEjercicio_Click"), [this] {
        Plataforma::puntero().establecer(Puntero::RelojArena);
        EjercicioActivo = static_cast<qint16>(es::valEntero(cboEjercicio->currentText()));
        if (frmCal_)
            frmCal_->setEjercicio(static_cast<qint16>(EjercicioActivo - 1));
        CargarPresupuesto();
        txtEjercicioHist->setText(QString::number(EjercicioActivo - 1));
        if (vsHistorico->isVisibleTo(this))
            CargarHistorico();
        Plataforma::puntero().establecer(Puntero::Defecto);
    }, true);
}

void frmActPresupusto::chkMostrarHistorico_Click()
{
    conManejador(kForm + QStringLiteral("chkMostrarHistorico_Click"), [this] {
        if (chkMostrarHistorico->isChecked())
            txtEjercicioHist->setFocus();
        DistribuirRejillas();
    });
}

void frmActPresupusto::txtEjercicioHist_KeyPress(int keyAscii)
{
    if (keyAscii != 13)
        return;
    // A year the box would refuse on leaving it is refused here too, before
    // anything is read for it.
    bool cancelar = false;
    txtEjercicioHist_Validate(cancelar);
    if (cancelar)
        return;
    CargarHistorico();
    if (frmCal_)
        frmCal_->setEjercicio(ejercicioHistorico());
}

void frmActPresupusto::txtEjercicioHist_Validate(bool& cancelar)
{
    const int y = es::valEntero(txtEjercicioHist->text());
    if (y < 2000 || y >= EjercicioActivo) {
        Plataforma::mensajes().MsgBox(QStringLiteral("El ejercicio histórico seleccionado no es correcto.") + QStringLiteral("\r\n")
                                          + QStringLiteral("Rango Permitido: 2000 - ") + QString::number(EjercicioActivo - 1),
                                      vb::Exclamation, QStringLiteral("Valor no válido"));
        cancelar = true;
    }
}

bool frmActPresupusto::eventFilter(QObject* objeto, QEvent* e)
{
    if ((objeto == lstDepartamentos || objeto == chkSelAllDpto) && e->type() == QEvent::FocusOut) {
        // The control that takes the focus is known only once the move is over.
        QTimer::singleShot(0, this, [this] { ComprobarFocoFiltroDptos(); });
    }
    if (objeto == txtEjercicioHist) {
        if (e->type() == QEvent::KeyPress) {
            auto* k = static_cast<QKeyEvent*>(e);
            if (k->key() == Qt::Key_Return || k->key() == Qt::Key_Enter) {
                txtEjercicioHist_KeyPress(13);
                return true;
            }
        } else if (e->type() == QEvent::FocusOut) {
            static bool validando = false;
            auto* f = static_cast<QFocusEvent*>(e);
            // Only a move to another control validates; a message box or a
            // menu taking the focus for a moment does not.
            const bool movimiento = f->reason() == Qt::MouseFocusReason || f->reason() == Qt::TabFocusReason
                                    || f->reason() == Qt::BacktabFocusReason || f->reason() == Qt::OtherFocusReason;
            if (movimiento && !validando && isVisible()) {
                validando = true;
                bool cancelar = false;
                txtEjercicioHist_Validate(cancelar);
                if (cancelar)
                    QTimer::singleShot(0, txtEjercicioHist, [t = txtEjercicioHist] { t->setFocus(); t->selectAll(); });
                validando = false;
            }
        }
    }
    return QWidget::eventFilter(objeto, e);
}

void frmActPresupusto::cmdVer_Click()
{
    conManejador(kForm + QStringLiteral("cmdVer_Click"), [this] {
        VerPresupuestables = !VerPresupuestables;
        Cargando = true;
        CargarFiltroCategorias();
        CargarFiltroCuentas();
        OcultarCategoriasSinCuentas();
        Cargando = false;
        CargarPresupuesto();
        mnuPopupCopiar->setEnabled(VerPresupuestables);
        mnuPopupPegar->setEnabled(VerPresupuestables);
        if (VerPresupuestables) {
            mnuPopupOcultar->setText(QStringLiteral("No Presupuestar"));
            cmdVer->setText(QStringLiteral("Cuentas No Presupuestar"));
            const QColor caraBoton = QApplication::palette().color(QPalette::Button);
            aplicarColorBoton(cmdVer, QColor());
            vsPresupuesto->modelo().setBackColorBkg(caraBoton);
            vsPresupuesto->modelo().setBackColor(QColor());
            chkMostrarHistorico->setEnabled(true);
        } else {
            chkMostrarHistorico->setChecked(false);
            chkMostrarHistorico->setEnabled(false);
            vsPresupuesto->modelo().setBackColorBkg(kColorFondoNoPresupuestables);
            vsPresupuesto->modelo().setBackColor(kColorFondoNoPresupuestables);
            aplicarColorBoton(cmdVer, kColorFondoNoPresupuestables);
            cmdVer->setText(QStringLiteral("Cuentas Presupuestar"));
            if (frmCal_)
                frmCal_->hide();
            mnuPopupOcultar->setText(QStringLiteral("Presupuestar"));
        }
    });
}

void frmActPresupusto::UpDown1_Click()
{
    UltimoCambioDecimales = static_cast<qint32>(std::nearbyint(reloj::segundosDesdeMedianoche()));
    Timer1->setInterval(500);
    Timer1->start();
}

void frmActPresupusto::Timer1_Timer()
{
    Plataforma::puntero().establecer(Puntero::RelojArena);
    if (reloj::segundosDesdeMedianoche() > UltimoCambioDecimales + 1)
        AplicarDecimales();
    Plataforma::puntero().establecer(Puntero::Defecto);
}

void frmActPresupusto::AplicarDecimales()
{
    Timer1->stop();
    Decimales = static_cast<qint16>(es::valEntero(FlatEdit1->text()));
    FormatoNumero = es::formatoNumero(Decimales);
    if (frmCal_)
        frmCal_->setDecimales(Decimales);
    CargarPresupuesto();
    // The history keeps its decimals until it is next loaded; the budget is
    // loaded a second time while it is shown.
    if (vsHistorico->isVisibleTo(this))
        CargarPresupuesto();
}

// ---------------------------------------------------------------------------
// Loaders
// ---------------------------------------------------------------------------

} // namespace presupuestos
