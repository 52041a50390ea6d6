#include "calculation/dialog/frmOperaciones.h"

#include "common/NumerosEs.h"
#include "common/VbError.h"
#include "desktop/Ventana.h"
#include "grid/widgets/TeclaDecimal.h"
#include "grid/widgets/VistaRejilla.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

namespace presupuestos {

namespace {
constexpr int kTwipsPorPixel = 15;
const int kOrdenMetodos[] = {3, 1, 2, 4, 5, 6, 7};
} // namespace

frmOperaciones::frmOperaciones(const Sesion& sesion, QWidget* parent) : QWidget(parent, Qt::Tool)
{
    setObjectName(QStringLiteral("frmOperaciones"));
    setWindowTitle(QStringLiteral("Operaciones"));

    lblDpto = new QLabel(this);
    lblDpto->setObjectName(QStringLiteral("lblDpto"));
    lblCuenta = new QLabel(this);
    lblCuenta->setObjectName(QStringLiteral("lblCuenta"));
    QFont negrita = lblCuenta->font();
    negrita.setBold(true);
    lblCuenta->setFont(negrita);
    cboMetodo = new QComboBox(this);
    cboMetodo->setObjectName(QStringLiteral("cboMetodo"));
    txtValor = new QLineEdit(this);
    txtValor->setObjectName(QStringLiteral("txtValor"));
    txtValor->setAlignment(Qt::AlignRight);
    txtValor->setFixedWidth(110);
    txtValor->installEventFilter(this);
    cmdActualizar = new QPushButton(QStringLiteral("Actualizar"), this);
    cmdActualizar->setObjectName(QStringLiteral("cmdActualizar"));
    cmdAplicar = new QPushButton(QStringLiteral("Aplicar"), this);
    cmdAplicar->setObjectName(QStringLiteral("cmdAplicar"));
    vsResultado = new VistaRejilla(QStringLiteral("vsResultado"), this);
    lblVerCalculo = new QLabel(QStringLiteral("<a href=\"#\">Ver cálculo</a>"), this);
    lblVerCalculo->setObjectName(QStringLiteral("lblVerCalculo"));
    lblVerCalculo->setProperty("Tag", QStringLiteral("0"));
    txtConsole = new QPlainTextEdit(this);
    txtConsole->setObjectName(QStringLiteral("txtConsole"));
    txtConsole->setReadOnly(true);
    txtConsole->setVisible(false);
    cboAmbito = new QComboBox(this);
    cboAmbito->setObjectName(QStringLiteral("cboAmbito"));
    cboAmbito->addItem(QStringLiteral("Esta fila"), static_cast<int>(AmbitoMetodo::Fila));
    cboAmbito->addItem(QStringLiteral("Filas seleccionadas"), static_cast<int>(AmbitoMetodo::Seleccion));
    cboAmbito->addItem(QStringLiteral("Categoría de la fila"), static_cast<int>(AmbitoMetodo::Categoria));
    cboAmbito->addItem(QStringLiteral("Departamento de la fila"), static_cast<int>(AmbitoMetodo::Departamento));
    lblAmbito = new QLabel(this);
    lblAmbito->setObjectName(QStringLiteral("lblAmbito"));
    lblAmbito->setAlignment(Qt::AlignRight | Qt::AlignVCenter);

    auto* capa = new QVBoxLayout(this);
    // The scope's preview shares the department's line, so the results
    // keep their room at the first height.
    auto* cabecera = new QHBoxLayout;
    cabecera->addWidget(lblDpto);
    cabecera->addWidget(lblAmbito, 1);
    capa->addLayout(cabecera);
    capa->addWidget(lblCuenta);
    auto* fila = new QHBoxLayout;
    fila->addWidget(new QLabel(QStringLiteral("Método:"), this));
    fila->addWidget(cboMetodo, 1);
    fila->addWidget(new QLabel(QStringLiteral("Valor:"), this));
    fila->addWidget(txtValor);
    capa->addLayout(fila);
    vsResultado->setMinimumHeight(90);
    capa->addWidget(vsResultado, 1);
    auto* botones = new QHBoxLayout;
    botones->addWidget(lblVerCalculo);
    botones->addStretch();
    botones->addWidget(new QLabel(QStringLiteral("Aplicar a:"), this));
    botones->addWidget(cboAmbito);
    botones->addWidget(cmdActualizar);
    botones->addWidget(cmdAplicar);
    capa->addLayout(botones);
    capa->addWidget(txtConsole, 1);
    resize(720, AltoReducido / kTwipsPorPixel);

    // Load: the engine first, then the methods on offer (typed amounts are
    // not a method one applies).
    motor_ = std::make_unique<clsCalculo>(sesion);
    motor_->setEjercicio(ejercicio_);
    motor_->setTablaTempHistorico(tablaTempHistorico_);
    motor_->setDecimales(decimales_);
    for (int codigo : kOrdenMetodos)
        cboMetodo->addItem(motor_->DecripcionMetodo(codigo), codigo);
    connect(cboMetodo, &QComboBox::currentIndexChanged, this, [this](int) { cboMetodo_Click(); });
    connect(cmdActualizar, &QPushButton::clicked, this, [this] { CalcularVistaPrevia(); });
    connect(cmdAplicar, &QPushButton::clicked, this, [this] { cmdAplicar_Click(); });
    connect(cboAmbito, &QComboBox::currentIndexChanged, this, [this](int) {
        lblAmbito->clear();
        emit AmbitoCambiado();
    });
    connect(lblVerCalculo, &QLabel::linkActivated, this, [this](const QString&) { lblVerCalculo_Click(); });
    connect(txtValor, &QLineEdit::editingFinished, this, [this] {
        if (cmdAplicar->isEnabled())
            CalcularVistaPrevia();
    });
    connect(vsResultado, &VistaRejilla::RowColChange, this, [this] {
        if (cmdAplicar->isEnabled())
            CalcularVistaPrevia();
    });
    cboMetodo->setCurrentIndex(-1);
    cboMetodo->setCurrentIndex(0);
    MantenerEncima(this);
    disenarResultado();
    actualizarEtiquetas();
    ActualizarEstadoOperaciones();
}

frmOperaciones::~frmOperaciones() = default;

void frmOperaciones::disenarResultado()
{
    ModeloRejilla& m = vsResultado->modelo();
    m.setRedraw(false);
    m.setCols(6);
    m.setRows(3);
    m.setFixedRows(1);
    for (int i = 0; i < 6; ++i) {
        m.setTextMatrix(0, i, es::nombreMes(i + 1) + QStringLiteral(" / ") + es::nombreMes(i + 7));
        m.setCellAlignment(0, i, 0, i, ModeloRejilla::Alineacion::Centro);
        m.setColAlignment(i, ModeloRejilla::Alineacion::Derecha);
    }
    m.setRedraw(true);
    vsResultado->verticalHeader()->hide();
    vsResultado->setEditable(false);
    vsResultado->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    vsResultado->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // The columns follow the grid's own width, which the window's layout
    // settles only after the window's first resize.
    vsResultado->viewport()->installEventFilter(this);
    connect(vsResultado, &VistaRejilla::AnchosAjustados, this, [this] { ajustarResultado(); });
    vsResultado->setColumnasAjustadas(0, 5);
    ajustarResultado();
}

void frmOperaciones::ajustarResultado()
{
    int columna = 0;
    for (int i = 0; i < 6; ++i)
        columna = std::max(columna, vsResultado->anchoTextos(i));
    const int marco = 2 * vsResultado->frameWidth();
    vsResultado->setMinimumWidth(6 * columna + marco);
    const int alto = vsResultado->horizontalHeader()->sizeHint().height() + 2 * vsResultado->verticalHeader()->defaultSectionSize() + marco;
    vsResultado->setMinimumHeight(std::max(90, alto));
}

void frmOperaciones::repartirColumnas()
{
    // Six equal columns filling the grid.
    const int ancho = vsResultado->viewport()->width() / 6;
    for (int i = 0; i < 6; ++i)
        vsResultado->modelo().setColWidth(i, ancho * kTwipsPorPixel);
}

void frmOperaciones::resizeEvent(QResizeEvent* e)
{
    QWidget::resizeEvent(e);
    repartirColumnas();
}

QString frmOperaciones::formato() const { return es::formatoNumero(decimales_); }

Currency frmOperaciones::valorCaja() const
{
    Currency v;
    if (!es::intentarMoneda(txtValor->text(), v))
        return Currency();
    return v;
}

void frmOperaciones::Clear()
{
    cuenta_.clear();
    cuentaNombre_.clear();
    dpto_ = 0;
    motor_->setDpto(0);
    dptoNombre_.clear();
    ModeloRejilla& m = vsResultado->modelo();
    for (int r = 1; r <= 2; ++r)
        for (int c = 0; c < 6; ++c)
            m.setTextMatrix(r, c, QString());
    actualizarEtiquetas();
    ActualizarEstadoOperaciones();
}

void frmOperaciones::actualizarEtiquetas()
{
    lblDpto->setText((dpto_ != 0 ? QString::number(dpto_) + QStringLiteral(" - ") : QString()) + dptoNombre_);
    QPalette p = lblCuenta->palette();
    if (cuenta_.isEmpty()) {
        lblCuenta->setText(QStringLiteral("Seleccione una fila de cuenta"));
        p.setColor(QPalette::WindowText, QColor(255, 0, 0));
    } else {
        lblCuenta->setText(cuenta_ + QStringLiteral(" - ") + cuentaNombre_);
        p.setColor(QPalette::WindowText, QColor(0, 0, 0));
    }
    lblCuenta->setPalette(p);
}

void frmOperaciones::setDpto(qint16 v)
{
    dpto_ = v;
    motor_->setDpto(v);
    actualizarEtiquetas();
    ActualizarEstadoOperaciones();
}

void frmOperaciones::setDpto_Nombre(const QString& v)
{
    dptoNombre_ = v;
    actualizarEtiquetas();
    ActualizarEstadoOperaciones();
}

void frmOperaciones::setCuenta(const QString& v)
{
    cuenta_ = v;
    actualizarEtiquetas();
    ActualizarEstadoOperaciones();
}

void frmOperaciones::setCuenta_Nombre(const QString& v)
{
    cuentaNombre_ = v;
    actualizarEtiquetas();
    ActualizarEstadoOperaciones();
}

void frmOperaciones::setValor(Currency v)
{
    valor_ = v;
    txtValor->setText(es::formatear(v, QStringLiteral("0.00")));
    actualizarEtiquetas();
    ActualizarEstadoOperaciones();
}

void frmOperaciones::setMetodoCalculo(qint32 v)
{
    metodo_ = v;
    const int i = cboMetodo->findData(v);
    if (i >= 0)
        cboMetodo->setCurrentIndex(i);
    actualizarEtiquetas();
    ActualizarEstadoOperaciones();
}

Currency frmOperaciones::Mes(int Index) const
{
    if (Index < 0 || Index > 11)
        throw VbError::subscriptOutOfRange();
    return mes_[static_cast<std::size_t>(Index)];
}

void frmOperaciones::setMes(int Index, Currency v)
{
    if (Index < 0 || Index > 11)
        throw VbError::subscriptOutOfRange();
    mes_[static_cast<std::size_t>(Index)] = v;
}

void frmOperaciones::setEjercicio(qint16 v)
{
    ejercicio_ = v;
    if (motor_) {
        motor_->setEjercicio(v);
        // Two of the descriptions name the history year.
        for (int codigo : {2, 4, 5}) {
            const int i = cboMetodo->findData(codigo);
            if (i >= 0)
                cboMetodo->setItemText(i, motor_->DecripcionMetodo(codigo));
        }
    }
    ActualizarEstadoOperaciones();
}

void frmOperaciones::setDecimales(qint16 v)
{
    decimales_ = v;
    if (motor_)
        motor_->setDecimales(v);
    ActualizarEstadoOperaciones();
}

void frmOperaciones::setTablaTempHistorico(const QString& v)
{
    tablaTempHistorico_ = v;
    if (motor_)
        motor_->setTablaTempHistorico(v);
}

AmbitoMetodo frmOperaciones::Ambito() const { return static_cast<AmbitoMetodo>(cboAmbito->currentData().toInt()); }

void frmOperaciones::setPrevisionLote(const QString& texto) { lblAmbito->setText(Ambito() == AmbitoMetodo::Fila ? QString() : texto); }

void frmOperaciones::ActualizarEstadoOperaciones()
{
    const bool aplicable = !cuenta_.isEmpty() && !txtValor->text().isEmpty();
    cmdAplicar->setEnabled(aplicable);
    cmdActualizar->setEnabled(aplicable);
    cboMetodo->setEnabled(aplicable);
    txtValor->setEnabled(aplicable);
    cboAmbito->setEnabled(aplicable);
    // The preview only shows in this window: while it is hidden the worksheet
    // can move from row to row without reading any history, and showing it
    // brings the preview up to date.
    if (aplicable && isVisible())
        CalcularVistaPrevia();
}

void frmOperaciones::showEvent(QShowEvent* e)
{
    QWidget::showEvent(e);
    if (cmdAplicar->isEnabled())
        CalcularVistaPrevia();
}

void frmOperaciones::CalcularVistaPrevia()
{
    // Nothing is computed without an account row.
    if (cuenta_.isEmpty() || cboMetodo->currentIndex() < 0)
        return;
    motor_->setEjercicio(ejercicio_);
    const qint32 metodo = cboMetodo->currentData().toInt();
    motor_->Calcular(metodo, cuenta_, valorCaja());
    ModeloRejilla& m = vsResultado->modelo();
    for (int k = 0; k < 12; ++k)
        m.setTextMatrix(k / 6 + 1, k % 6, es::formatear(motor_->Mes(k), formato()));
    const QString texto = es::formatear(valorCaja(), QStringLiteral("0.00"));
    if (txtValor->text() != texto)
        txtValor->setText(texto);
    txtConsole->setPlainText(motor_->DecripcionMetodo(metodo) + QStringLiteral("\r\n") + motor_->PlantillaFormula(metodo)
                             + QStringLiteral("\r\n") + motor_->FormulaCalculada() + QStringLiteral("\r\n")
                             + QStringLiteral("X = ") + es::formatear(motor_->Mes(0), formato()));
}

void frmOperaciones::cboMetodo_Click()
{
    ModeloRejilla& m = vsResultado->modelo();
    if (m.Rows() >= 3) {
        for (int r = 1; r <= 2; ++r)
            for (int c = 0; c < 6; ++c)
                m.setTextMatrix(r, c, QStringLiteral("0,00"));
    }
    if (motor_)
        CalcularVistaPrevia();
}

void frmOperaciones::cmdAplicar_Click()
{
    if (txtValor->text().isEmpty())
        txtValor->setText(QStringLiteral("0"));
    if (cuenta_.isEmpty())
        return;
    // What is applied is what the box holds now, even if it changed since
    // the last preview.
    CalcularVistaPrevia();
    valor_ = valorCaja();
    metodo_ = cboMetodo->currentData().toInt();
    for (int i = 0; i < 12; ++i)
        mes_[static_cast<std::size_t>(i)] = motor_->Mes(i);
    emit Aplicar();
}

void frmOperaciones::lblVerCalculo_Click()
{
    const QString tag = lblVerCalculo->property("Tag").toString();
    // The formula text lives in the lower part of the window, which only the
    // taller height reveals.
    const bool ampliar = tag.isEmpty() || tag == QLatin1String("0");
    txtConsole->setVisible(ampliar);
    layout()->activate();
    resize(width(), (ampliar ? AltoAmpliado : AltoReducido) / kTwipsPorPixel);
    lblVerCalculo->setProperty("Tag", ampliar ? QStringLiteral("1") : QStringLiteral("0"));
}

void frmOperaciones::txtValor_KeyPress(int keyAscii)
{
    if (keyAscii == 13 && cmdAplicar->isEnabled())
        CalcularVistaPrevia();
}

bool frmOperaciones::eventFilter(QObject* objeto, QEvent* e)
{
    if (objeto == vsResultado->viewport() && e->type() == QEvent::Resize)
        repartirColumnas();
    if (objeto == txtValor && escribirComaDecimal(objeto, e))
        return true;
    if (objeto == txtValor && e->type() == QEvent::KeyPress) {
        auto* k = static_cast<QKeyEvent*>(e);
        if (k->key() == Qt::Key_Return || k->key() == Qt::Key_Enter) {
            txtValor_KeyPress(13);
            return true;
        }
    }
    return QWidget::eventFilter(objeto, e);
}

void frmOperaciones::closeEvent(QCloseEvent* e)
{
    // The close box only hides the window, so its state survives until the
    // worksheet shows it again.
    e->ignore();
    hide();
}

} // namespace presupuestos
