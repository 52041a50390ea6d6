#include "worksheet/frmActPresupusto.h"
#include "worksheet/DisposicionHoja.h"
#include "worksheet/core/RepositorioHoja.h"
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
} // namespace

frmActPresupusto::frmActPresupusto(QWidget* owner) : QWidget(owner, Qt::Window), owner_(owner)
{
    setObjectName(QStringLiteral("frmActPresupusto"));
    setAttribute(Qt::WA_DeleteOnClose);
    resize(1280, 700);
    crearControles();
    presupuesto_ = new RejillaPresupuesto;
    vsPresupuesto->setModelo(presupuesto_);
    historico_ = new RejillaPresupuesto;
    vsHistorico->setModelo(historico_);
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
    crear(this, this);

    connect(cboEjercicio, &QComboBox::currentIndexChanged, this, [this](int) { cboEjercicio_Click(); });
    connect(chkMostrarHistorico, &QCheckBox::clicked, this, [this] { chkMostrarHistorico_Click(); });
    // The history grid follows every change of the switch, also those the
    // worksheet makes itself (showing the accounts out of the budget
    // unchecks it).
    connect(chkMostrarHistorico, &QCheckBox::toggled, this, [this] {
        conManejador(kForm + QStringLiteral("chkMostrarHistorico_Click"), [this] { DistribuirRejillas(); });
    });
    connect(cmdVer, &QPushButton::clicked, this, [this] { cmdVer_Click(); });
    // The two grids stand side by side: a column widened in one widens in both.
    for (const auto& par : {std::pair{vsPresupuesto, vsHistorico}, std::pair{vsHistorico, vsPresupuesto}}) {
        VistaRejilla* otra = par.second;
        connect(par.first, &VistaRejilla::ColumnaEnsanchada, otra, [otra](int col, int twips) {
            if (col < otra->modelo().Cols() && otra->modelo().ColWidth(col) != twips)
                otra->modelo().setColWidth(col, twips);
        });
    }
    connect(txtBuscar, &QLineEdit::textEdited, this, [this] { Buscar(false); });
    connect(txtBuscar, &QLineEdit::returnPressed, this, [this] { Buscar(true); });
    {
        // Escape leaves the search where it found, back on the grid.
        auto* volver = new QAction(txtBuscar);
        volver->setShortcut(Qt::Key_Escape);
        volver->setShortcutContext(Qt::WidgetShortcut);
        txtBuscar->addAction(volver);
        connect(volver, &QAction::triggered, this, [this] { vsPresupuesto->setFocus(); });
    }
    connect(UpDown1, &UpDown::UpClick, this, [this] { UpDown1_Click(); });
    connect(UpDown1, &UpDown::DownClick, this, [this] { UpDown1_Click(); });
    connect(Timer1, &QTimer::timeout, this, [this] { Timer1_Timer(); });
    connect(tmrCambios, &QTimer::timeout, this, [this] { mostrarCambiosAjenos(); });
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
    if (isVisible())
        recordarDisposicion();
    if (cargado_ && !descargado_) {
        descargado_ = true;
        Form_Unload();
    }
    hide();
}

QString frmActPresupusto::SelloTabla(double segundosDesdeMedianoche) { return RepositorioHoja::sello(segundosDesdeMedianoche); }

void frmActPresupusto::Form_Load()
{
    // Where the user left it, or centred on the screen.
    const QByteArray geometria = DisposicionHoja::geometria();
    if (geometria.isEmpty() || !restoreGeometry(geometria)) {
        if (QScreen* pantalla = QGuiApplication::primaryScreen()) {
            const QRect r = pantalla->availableGeometry();
            move(r.x() + (r.width() - width()) / 2, r.y() + (r.height() - height()) / 2);
        }
    }
    EstablecerEjercicioInicial();
    txtEjercicioHist->setText(QString::number(EjercicioActivo - 1));
    Decimales = 0;
    FormatoNumero = QStringLiteral("#,0");
    Color1 = QColor(172, 250, 185);
    Color2 = QColor(170, 250, 250);
    Color3 = QColor(92, 177, 252);
    Color4 = QColor(190, 228, 245);
    ponerLeyenda();
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
    dbPresupuesto_ = std::make_unique<clsDBPresupuesto>(SesionActiva);
    diario_ = std::make_unique<Diario>(ConexionActiva, static_cast<qint16>(EmpresaActiva->CodigoEmpresa()));
    dbPresupuesto_->setDiario(diario_.get());
    diario_->setAlCambiar([this] { actualizarDeshacer(); });
    actualizarDeshacer();
    EscrituraHoja::Avisos avisos;
    avisos.completado = [this](int n) { cambiarCompletado(n); };
    avisos.ventasCambiadas = [this] { RecalcularDependencias(); };
    avisos.antesDeCelda = [this](Currency v) { ValorAnterior = v; };
    escritura_ = std::make_unique<EscrituraHoja>(SesionActiva, *presupuesto_, *dbPresupuesto_, std::move(avisos));
    setWindowTitle(QStringLiteral("Presupuesto ") + QString::number(EjercicioActivo));

    frmCal_ = new frmOperaciones(SesionActiva, this);
    frmCal_->setTablaTempHistorico(TablaEstadisticas);
    frmCal_->setEjercicio(static_cast<qint16>(EjercicioActivo - 1));
    connect(frmCal_, &frmOperaciones::Aplicar, this, [this] { frmCal_Aplicar(); });
    connect(frmCal_, &frmOperaciones::AmbitoCambiado, this, [this] { preverMetodoEnLote(); });
    // The selection is a scope of its own: its rows are counted as it grows.
    connect(&vsPresupuesto->modelo(), &ModeloRejilla::seleccionCambiada, this, [this] {
        if (frmCal_->Ambito() == AmbitoMetodo::Seleccion)
            preverMetodoEnLote();
    });
}

void frmActPresupusto::ponerLeyenda()
{
    // Built from the colours the grids are given, so it cannot say another.
    // An entry never breaks; the legend wraps between entries.
    const auto muestra = [](const QColor& c, const QString& texto) {
        return QStringLiteral("<span style=\"background-color:%1\">&nbsp;&nbsp;&nbsp;</span>&nbsp;%2")
            .arg(c.name(), QString(texto).replace(QLatin1Char(' '), QStringLiteral("&nbsp;")));
    };
    lblLeyenda->setText(QStringList{muestra(Color1, QStringLiteral("a mano")), muestra(Color4, QStringLiteral("totales")),
                                    muestra(kColorCambioAjeno, QStringLiteral("cambio de otro usuario")),
                                    muestra(kColorFondoNoPresupuestables, QStringLiteral("no presupuestables")),
                                    QStringLiteral("<span style=\"color:%1\">-1.234</span>&nbsp;negativo").arg(kRojo.name())}
                            .join(QStringLiteral("&nbsp; ")));
    lblLeyenda->setToolTip(QStringLiteral("Verde: meses introducidos a mano. Azul: filas de totales. Amarillo, un momento: meses que "
                                          "acaba de cambiar otro usuario. Naranja: la vista de las cuentas que no se presupuestan. "
                                          "Rojo: importes negativos (gastos)."));
}

void frmActPresupusto::EstablecerEjercicioInicial()
{
    EjercicioActivo = RepositorioHoja(*ConexionActiva).ejercicioInicial(EmpresaActiva->CodigoEmpresa(), EmpresaActiva->EjercicioActual());
}

void frmActPresupusto::CrearTablasTemporales()
{
    const auto t = RepositorioHoja(*ConexionActiva).crearTablasTemporales();
    TablaFiltroCuentas = t.filtroCuentas;
    TablaEstadisticas = t.estadisticas;
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
        tmrCambios->start();
    }
    PrimeraActivacion = false;
    activando_ = false;
}

void frmActPresupusto::Form_Unload()
{
    // Clean-up: a failure of either drop is silent and never stops the unload.
    tmrCambios->stop();
    if (!ConexionActiva)
        return;
    RepositorioHoja(*ConexionActiva).borrarTablasTemporales({TablaFiltroCuentas, TablaEstadisticas});
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
    recordarDisposicion();
    if (cargado_ && !descargado_) {
        descargado_ = true;
        Form_Unload();
    }
    e->accept();
}

void frmActPresupusto::recordarDisposicion()
{
    if (!cargado_ || disposicionRecordada_)
        return;
    disposicionRecordada_ = true;
    DisposicionHoja::guardar(*this, repartoRejillas());
}

std::optional<double> frmActPresupusto::repartoRejillas() const
{
    if (!vsHistorico->isVisibleTo(this))
        return std::nullopt;
    const QList<int> tamanos = divisor->sizes();
    if (tamanos.size() < 2 || tamanos[0] + tamanos[1] <= 0)
        return std::nullopt;
    return static_cast<double>(tamanos[0]) / (tamanos[0] + tamanos[1]);
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
            auto* f = static_cast<QFocusEvent*>(e);
            // Only a move to another control validates; a message box or a
            // menu taking the focus for a moment does not.
            const bool movimiento = f->reason() == Qt::MouseFocusReason || f->reason() == Qt::TabFocusReason
                                    || f->reason() == Qt::BacktabFocusReason || f->reason() == Qt::OtherFocusReason;
            if (movimiento && !validandoEjercicioHist_ && isVisible()) {
                validandoEjercicioHist_ = true;
                bool cancelar = false;
                txtEjercicioHist_Validate(cancelar);
                if (cancelar)
                    QTimer::singleShot(0, txtEjercicioHist, [t = txtEjercicioHist] { t->setFocus(); t->selectAll(); });
                validandoEjercicioHist_ = false;
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
        actualizarDeshacer();
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
