#include "import/dialog/frmImportar.h"

#include "common/ErrorReport.h"
#include "common/Plataforma.h"
#include "common/VbError.h"
#include "import/clsImportar.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QFileInfo>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QVBoxLayout>
#include <limits>

namespace presupuestos {

namespace {

const QString kCrLf = QStringLiteral("\r\n");

template <typename T>
T* control(QWidget* padre, const char* nombre)
{
    auto* w = new T(padre);
    w->setObjectName(QString::fromLatin1(nombre));
    return w;
}

void dejarCorrerEventos() { QCoreApplication::processEvents(); }

} // namespace

frmImportar::frmImportar(Sesion& sesion, QWidget* parent) : QDialog(parent), sesion_(sesion)
{
    setObjectName(QStringLiteral("frmImportar"));
    setWindowTitle(QStringLiteral("Importar presupuesto desde excel"));

    Label1 = control<QLabel>(this, "Label1");
    Label1->setText(QStringLiteral("Primera fila de datos:"));
    txtExcelRow = control<QLineEdit>(this, "txtExcelRow");
    txtExcelRow->setMaxLength(3);
    txtExcelRow->setValidator(new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[0-9]*")), txtExcelRow));
    txtExcelRow->setText(QStringLiteral("2"));
    Label2 = control<QLabel>(this, "Label2");
    Label2->setText(QStringLiteral("Primer Columna de Datos:"));
    txtExcelCol = control<QLineEdit>(this, "txtExcelCol");
    txtExcelCol->setMaxLength(1);
    txtExcelCol->setText(QStringLiteral("A"));
    Label3 = control<QLabel>(this, "Label3");
    Label3->setText(QStringLiteral("Seleccione Archivo Excel"));
    txtExcelFileName = control<QLineEdit>(this, "txtExcelFileName");
    cmdExaminar = control<QPushButton>(this, "cmdExaminar");
    cmdExaminar->setText(QStringLiteral("Examinar..."));
    Label4 = control<QLabel>(this, "Label4");
    Label4->setText(QStringLiteral("Formato Excel Aceptado (hasta 65365 filas)"));
    cmdImportar = control<QPushButton>(this, "cmdImportar");
    cmdImportar->setText(QStringLiteral("Importar"));
    cmdImportar->setEnabled(false);
    cmdImportar->setAutoDefault(false);
    cmdCerrar = control<QPushButton>(this, "cmdCerrar");
    cmdCerrar->setText(QStringLiteral("Cerrar"));
    cmdCerrar->setAutoDefault(false);
    lblProgressInfo = control<QLabel>(this, "lblProgressInfo");
    lblProgressInfo->setText(QStringLiteral("Listo para iniciar la importación."));
    lblProgressInfo->setVisible(false);

    pctInfo = control<QFrame>(this, "pctInfo");
    pctInfo->setFrameShape(QFrame::StyledPanel);
    ProgressBar1 = control<QProgressBar>(pctInfo, "ProgressBar1");
    ProgressBar1->setTextVisible(false);
    ProgressBar1->setVisible(false);
    lblInfo = control<QLabel>(pctInfo, "lblInfo");
    lblInforme = control<QLabel>(pctInfo, "lblInforme");
    lblInforme->setVisible(false);
    auto* info = new QVBoxLayout(pctInfo);
    info->addWidget(ProgressBar1);
    info->addWidget(lblInfo);
    info->addWidget(lblInforme);
    pctInfo->setVisible(false);

    auto* rejilla = new QGridLayout;
    rejilla->addWidget(Label1, 0, 0);
    rejilla->addWidget(txtExcelRow, 0, 1);
    rejilla->addWidget(Label2, 1, 0);
    rejilla->addWidget(txtExcelCol, 1, 1);
    rejilla->setColumnStretch(2, 1);
    txtExcelRow->setFixedWidth(60);
    txtExcelCol->setFixedWidth(60);
    lblFormato = control<QLabel>(this, "lblFormato");
    lblFormato->setWordWrap(true);
    lblFormato->setFrameShape(QFrame::StyledPanel);
    auto* fichero = new QHBoxLayout;
    fichero->addWidget(txtExcelFileName, 1);
    fichero->addWidget(cmdExaminar);
    auto* botones = new QHBoxLayout;
    botones->addStretch(1);
    botones->addWidget(cmdImportar);
    botones->addWidget(cmdCerrar);
    auto* todo = new QVBoxLayout(this);
    todo->addLayout(rejilla);
    todo->addWidget(lblFormato);
    todo->addWidget(Label3);
    todo->addLayout(fichero);
    todo->addWidget(Label4);
    todo->addWidget(lblProgressInfo);
    todo->addWidget(pctInfo);
    todo->addStretch(1);
    todo->addLayout(botones);
    resize(520, 340);

    connect(cmdExaminar, &QPushButton::clicked, this, [this] { cmdExaminar_Click(); });
    connect(cmdImportar, &QPushButton::clicked, this, [this] { cmdImportar_Click(); });
    connect(cmdCerrar, &QPushButton::clicked, this, [this] { cmdCerrar_Click(); });
    connect(txtExcelFileName, &QLineEdit::textChanged, this, [this] { txtExcelFileName_Change(); });
    connect(txtExcelRow, &QLineEdit::textChanged, this, [this] { mostrarFormato(); });
    connect(txtExcelCol, &QLineEdit::textChanged, this, [this] { mostrarFormato(); });
    mostrarFormato();
}

void frmImportar::mostrarFormato()
{
    // The boxes are read as the import will read them, so that the note
    // shows the columns it will really take ("e" is not "E").
    qint16 columna = 0;
    try {
        columna = LeerPrimeraColumna();
    } catch (const std::exception&) {
        lblFormato->setText(QStringLiteral("Escriba la letra de la columna del departamento."));
        return;
    }
    const qint16 fila = LeerPrimeraFila();
    if (columna < 1 || columna + 13 > 16384) {
        lblFormato->setText(QStringLiteral("«%1» no es una columna del libro: escriba una letra mayúscula de la A a la Z.")
                                .arg(txtExcelCol->text()));
        return;
    }
    QString texto = QStringLiteral("El libro debe tener, desde la fila %1: en %2 el código de departamento, en %3 la cuenta "
                                   "y de %4 a %5 los importes de enero a diciembre. Las filas sin departamento no se "
                                   "importan, y los datos acaban en la última celda llena de la columna E.")
                        .arg(fila)
                        .arg(clsImportar::letraColumna(columna), clsImportar::letraColumna(columna + 1),
                             clsImportar::letraColumna(columna + 2), clsImportar::letraColumna(columna + 13));
    const QString letra = txtExcelCol->text();
    if (!txtExcelRow->text().isEmpty() && letra != letra.toUpper())
        texto += QStringLiteral(" Solo las mayúsculas dan las columnas A a Z: «%1» es la columna %2.")
                     .arg(letra, clsImportar::letraColumna(columna));
    lblFormato->setText(texto);
}

bool frmImportar::confirmarDesconocidos(const CodigosDesconocidos& d)
{
    QString texto = QStringLiteral("%1 filas del libro tienen una cuenta o un departamento que no existen en la empresa; "
                                   "ninguna hoja de presupuesto las mostrará:")
                        .arg(d.filas);
    for (const CodigosDesconocidos::Fila& f : d.primeras) {
        texto += kCrLf + QStringLiteral("Fila %1: cuenta %2%3, departamento %4%5")
                             .arg(f.fila)
                             .arg(f.cuenta, f.cuentaDesconocida ? QStringLiteral(" (no existe)") : QString())
                             .arg(f.dpto)
                             .arg(f.dptoDesconocido ? QStringLiteral(" (no existe)") : QString());
    }
    if (static_cast<std::size_t>(d.filas) > d.primeras.size())
        texto += kCrLf + QStringLiteral("…");
    texto += kCrLf + kCrLf + QStringLiteral("¿Desea importarlas también? Con «No» no se importa nada.");
    return Plataforma::mensajes().MsgBox(texto, vb::YesNo + vb::Exclamation + vb::DefaultButton2,
                                         QStringLiteral("Importar presupuesto"))
           == vb::RespuestaYes;
}

frmImportar::~frmImportar() = default;

void frmImportar::closeEvent(QCloseEvent* e)
{
    // While an import runs the close button is off; closing the window some
    // other way would pull the import from under its own loop.
    if (!cmdCerrar->isEnabled()) {
        e->ignore();
        return;
    }
    QDialog::closeEvent(e);
}

void frmImportar::reject()
{
    if (!cmdCerrar->isEnabled())
        return;
    QDialog::reject();
}

void frmImportar::cmdExaminar_Click()
{
    try {
        const QString ruta = Plataforma::dialogoArchivo().abrir(
            QStringLiteral("Archivos de Excel(*.xlsx)|*.xlsx|Libro de Excel 97-2003(*.xls)"));
        // The dialog reports a cancel as an error, which this handler ignores.
        if (ruta.isEmpty())
            throw VbError(IDialogoArchivo::ErrorCancelar, QStringLiteral("Cancel was selected."));
        txtExcelFileName->setText(ruta);
        lblProgressInfo->setVisible(true);
        cmdImportar->setEnabled(true);
    } catch (const std::exception& e) {
        const VbError error = comoVbError(e);
        if (error.number() == IDialogoArchivo::ErrorCancelar)
            return;
        mostrarError(error, QStringLiteral("frmImportar:cmdImportar_Click"));
    }
}

void frmImportar::txtExcelFileName_Change() { cmdImportar->setEnabled(!txtExcelFileName->text().isEmpty()); }

void frmImportar::cmdImportar_Click()
{
    try {
        const QString ruta = txtExcelFileName->text();
        if (!QFileInfo(ruta).isFile()) {
            Plataforma::mensajes().MsgBox(QStringLiteral("No se encuentra el archivo: ") + ruta, vb::Critical,
                                          QStringLiteral("Error"));
            txtExcelFileName->setFocus();
            return;
        }
        const int respuesta = Plataforma::mensajes().MsgBox(
            QStringLiteral("Se va a iniciar el proceso de importación.Se importaran todas las filas del excel, los datos "
                           "importados sustituirán los existentes.")
                + kCrLf + QStringLiteral("¿Desea continuar?"),
            vb::YesNo + vb::Exclamation + vb::DefaultButton2, QStringLiteral("Importar presupuesto"));
        if (respuesta != vb::RespuestaYes)
            return;

        lblProgressInfo->setText(QStringLiteral("Inicializando Proceso..."));
        pctInfo->setVisible(true);
        dejarCorrerEventos();
        cmdCerrar->setEnabled(false);
        cmdImportar->setVisible(false);

        mclsImport = std::make_unique<clsImportar>(sesion_);
        connect(mclsImport.get(), &clsImportar::ProgressInit, this, &frmImportar::mclsImport_ProgressInit);
        connect(mclsImport.get(), &clsImportar::Progress, this, &frmImportar::mclsImport_Progress);
        connect(mclsImport.get(), &clsImportar::ImportCompleted, this, &frmImportar::mclsImport_ImportCompleted);
        mclsImport->setConexionDrumav(sesion_.conexion);
        mclsImport->setEmpresaDrumav(sesion_.empresa);
        mclsImport->setPrimeraFilaDatos(LeerPrimeraFila());
        mclsImport->setPrimeraColumnaDatos(LeerPrimeraColumna());
        mclsImport->setDiario(diario_);
        mclsImport->setConfirmarDesconocidos([this](const CodigosDesconocidos& d) { return confirmarDesconocidos(d); });

        mclsImport->ImportarDesdeExcel(ruta);
        if (mclsImport->cancelada()) {
            lblInfo->setText(QStringLiteral("Importación cancelada: no se ha escrito nada."));
            cmdImportar->setVisible(true);
            cmdCerrar->setEnabled(true);
            return;
        }

        emit ImportacionCompletada();
        lblInfo->setText(QStringLiteral("Importación Completada correctamente."));
        const InformeImportacion& i = mclsImport->informe();
        lblInforme->setText(QStringLiteral("Filas leídas: %1\nEscritas: %2 (actualizadas: %3, nuevas: %4)\n"
                                           "Omitidas por no tener departamento: %5\nEscritas con códigos que no existen: %6")
                                .arg(i.leidas)
                                .arg(i.escritas())
                                .arg(i.actualizadas)
                                .arg(i.nuevas)
                                .arg(i.omitidas)
                                .arg(i.desconocidas));
        lblInforme->setVisible(true);
        dejarCorrerEventos();
        cmdCerrar->setEnabled(true);
        dejarCorrerEventos();
    } catch (const std::exception& e) {
        const VbError error = comoVbError(e);
        lblInfo->setText(QStringLiteral("Error durante la Importación."));
        QPalette paleta = lblInfo->palette();
        paleta.setColor(QPalette::WindowText, QColor(255, 0, 0));
        lblInfo->setPalette(paleta);
        mostrarError(error, QStringLiteral("Importar desde Excel"));
        // The import button stays hidden: another attempt opens the dialog anew.
        cmdCerrar->setEnabled(true);
    }
}

void frmImportar::cmdCerrar_Click() { close(); }

void frmImportar::mclsImport_ProgressInit(qint32 Count, const QString&)
{
    ProgressBar1->setVisible(true);
    ProgressBar1->setMaximum(Count);
    ProgressBar1->setValue(0);
    dejarCorrerEventos();
}

void frmImportar::mclsImport_Progress(qint32 Index, const QString& Info)
{
    ProgressBar1->setValue(Index);
    lblProgressInfo->setText(Info);
    dejarCorrerEventos();
}

void frmImportar::mclsImport_ImportCompleted(qint32 TotalRowsImported)
{
    lblInfo->setText(QStringLiteral("Total Filas importadas: ") + QString::number(TotalRowsImported));
}

qint16 frmImportar::LeerPrimeraFila() const
{
    if (txtExcelRow->text().isEmpty())
        return 1;
    return static_cast<qint16>(txtExcelRow->text().toInt());
}

qint16 frmImportar::LeerPrimeraColumna() const
{
    // The row box decides, not the column box: emptying the row box makes
    // the first column 1 as well.
    if (txtExcelRow->text().isEmpty())
        return 1;
    const QString letra = txtExcelCol->text();
    if (letra.isEmpty())
        throw VbError(VbError::InvalidProcedureCall, QStringLiteral("Invalid procedure call or argument"));
    // Only "A".."Z" give 1..26; any other character gives its code less 64.
    const int columna = letra.at(0).unicode() - 64;
    if (columna > std::numeric_limits<qint16>::max())
        throw VbError::overflow();
    return static_cast<qint16>(columna);
}

} // namespace presupuestos
