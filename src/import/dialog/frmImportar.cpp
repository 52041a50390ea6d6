#include "import/dialog/frmImportar.h"

#include "common/ErrorReport.h"
#include "common/Plataforma.h"
#include "common/VbError.h"
#include "host/modPublic.h"
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

frmImportar::frmImportar(QWidget* parent) : QDialog(parent)
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
    auto* info = new QVBoxLayout(pctInfo);
    info->addWidget(ProgressBar1);
    info->addWidget(lblInfo);
    pctInfo->setVisible(false);

    auto* rejilla = new QGridLayout;
    rejilla->addWidget(Label1, 0, 0);
    rejilla->addWidget(txtExcelRow, 0, 1);
    rejilla->addWidget(Label2, 1, 0);
    rejilla->addWidget(txtExcelCol, 1, 1);
    rejilla->setColumnStretch(2, 1);
    txtExcelRow->setFixedWidth(60);
    txtExcelCol->setFixedWidth(60);
    auto* fichero = new QHBoxLayout;
    fichero->addWidget(txtExcelFileName, 1);
    fichero->addWidget(cmdExaminar);
    auto* botones = new QHBoxLayout;
    botones->addStretch(1);
    botones->addWidget(cmdImportar);
    botones->addWidget(cmdCerrar);
    auto* todo = new QVBoxLayout(this);
    todo->addLayout(rejilla);
    todo->addWidget(Label3);
    todo->addLayout(fichero);
    todo->addWidget(Label4);
    todo->addWidget(lblProgressInfo);
    todo->addWidget(pctInfo);
    todo->addStretch(1);
    todo->addLayout(botones);
    resize(480, 260);

    connect(cmdExaminar, &QPushButton::clicked, this, [this] { cmdExaminar_Click(); });
    connect(cmdImportar, &QPushButton::clicked, this, [this] { cmdImportar_Click(); });
    connect(cmdCerrar, &QPushButton::clicked, this, [this] { cmdCerrar_Click(); });
    connect(txtExcelFileName, &QLineEdit::textChanged, this, [this] { txtExcelFileName_Change(); });
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

        mclsImport = std::make_unique<clsImportar>();
        connect(mclsImport.get(), &clsImportar::ProgressInit, this, &frmImportar::mclsImport_ProgressInit);
        connect(mclsImport.get(), &clsImportar::Progress, this, &frmImportar::mclsImport_Progress);
        connect(mclsImport.get(), &clsImportar::ImportCompleted, this, &frmImportar::mclsImport_ImportCompleted);
        mclsImport->setConexionDrumav(modPublic::ConexionActiva);
        mclsImport->setEmpresaDrumav(modPublic::EmpresaActiva);
        mclsImport->setPrimeraFilaDatos(LeerPrimeraFila());
        mclsImport->setPrimeraColumnaDatos(LeerPrimeraColumna());
        mclsImport->setDiario(diario_);

        mclsImport->ImportarDesdeExcel(ruta);

        emit ImportacionCompletada();
        lblInfo->setText(QStringLiteral("Importación Completada correctamente."));
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
