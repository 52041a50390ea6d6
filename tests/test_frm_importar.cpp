#include "BaseDatosPrueba.h"
#include "LibroPrueba.h"
#include "PlataformaDePrueba.h"
#include "common/Plataforma.h"
#include "common/VbError.h"
#include "import/readers/AplicacionExcel.h"
#include "import/clsImportar.h"
#include "import/dialog/frmImportar.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <functional>
#include <tuple>
#include <gtest/gtest.h>

using namespace presupuestos;
using presupuestos::prueba::BaseDatosPrueba;
using presupuestos::prueba::LibrosPrueba;

namespace {

const QString kFiltro = QStringLiteral("Archivos de Excel(*.xlsx)|*.xlsx|Libro de Excel 97-2003(*.xls)");
const QString kConfirmacion = QStringLiteral(
    "Se va a iniciar el proceso de importación.Se importaran todas las filas del excel, los datos importados sustituirán los "
    "existentes.\r\n¿Desea continuar?");

// The real readers, with a hook that runs while the import has the workbook open.
class AplicacionObservada : public AplicacionExcel {
public:
    AplicacionObservada(int& creadas, std::function<void()> alAbrir)
        : real_({FormatoLibro::Xlsx, FormatoLibro::Xls}), alAbrir_(std::move(alAbrir))
    {
        ++creadas;
    }
    void abrirLibro(const QString& ruta) override
    {
        if (alAbrir_)
            alAbrir_();
        real_.abrirLibro(ruta);
    }
    const HojaExcel& hojaActiva() const override { return real_.hojaActiva(); }
    void Quit() override { real_.Quit(); }

private:
    AplicacionLectores real_;
    std::function<void()> alAbrir_;
};

class DialogoQueFalla : public IDialogoArchivo {
public:
    QString abrir(const QString&) override { throw VbError(20477, QStringLiteral("Nombre de archivo no válido")); }
    QString guardar(const QString& f, const QString&) override { return abrir(f); }
};

class FrmImportar : public ::testing::Test {
protected:
    FrmImportar()
    {
        RegistroExcel::registrar(QStringLiteral("Excel.Application"), [this] {
            return std::make_unique<AplicacionObservada>(aplicacionesCreadas, alAbrir);
        });
        QObject::connect(&dlg, &frmImportar::ImportacionCompletada, [this] {
            ++completadas;
            infoAlCompletar = dlg.lblInfo->text();
        });
    }
    ~FrmImportar() override { RegistroExcel::restaurar(); }

    // Picks the file through the browse button, as the user would.
    void elegir(const QString& ruta, frmImportar* d = nullptr)
    {
        plataforma.dialogoArchivo->respuestas.push_back(ruta);
        (d ? d : &dlg)->cmdExaminar->click();
    }
    int filas() { return bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos")).toInt(); }
    // Accounts and departments of the company, which the import knows.
    void conocer(const QStringList& cuentas, const std::vector<int>& dptos)
    {
        for (const QString& c : cuentas)
            bd.sql(QStringLiteral("INSERT INTO Cuentas VALUES (1, 2026, '%1', 'Cuenta %1')").arg(c));
        for (int d : dptos)
            bd.sql(QStringLiteral("INSERT INTO Departamentos VALUES (1, %1, 'Dpto %1')").arg(d));
    }
    const std::vector<MensajeMostrado>& mensajes() const { return plataforma.mensajes->mostrados; }

    BaseDatosPrueba bd;
    PlataformaDePrueba plataforma;
    LibrosPrueba libros;
    int aplicacionesCreadas = 0;
    std::function<void()> alAbrir;
    frmImportar dlg{bd.sesion};
    int completadas = 0;
    QString infoAlCompletar;
};

TEST_F(FrmImportar, StartsWithOnlyTheBrowseButtonUsableAndTheDefaultLayout)
{
    EXPECT_EQ(dlg.txtExcelRow->text(), QStringLiteral("2"));
    EXPECT_EQ(dlg.txtExcelCol->text(), QStringLiteral("A"));
    EXPECT_EQ(dlg.txtExcelCol->maxLength(), 1);
    EXPECT_FALSE(dlg.cmdImportar->isEnabled());
    EXPECT_FALSE(dlg.lblProgressInfo->isVisibleTo(&dlg));
    EXPECT_FALSE(dlg.pctInfo->isVisibleTo(&dlg));
    EXPECT_EQ(dlg.lblFormato->text(),
              QStringLiteral("El libro debe tener, desde la fila 2: en A el código de departamento, en B la cuenta y de C a N "
                             "los importes de enero a diciembre. Las filas sin departamento no se importan, y los datos "
                             "acaban en la última celda llena de la columna E."));
}

TEST_F(FrmImportar, BrowsingFillsThePathAndCancellingShowsNothing)
{
    dlg.cmdExaminar->click(); // no answer: cancelled
    EXPECT_EQ(plataforma.dialogoArchivo->filtros, std::vector<QString>{kFiltro});
    EXPECT_TRUE(mensajes().empty());
    EXPECT_TRUE(dlg.txtExcelFileName->text().isEmpty());
    EXPECT_FALSE(dlg.lblProgressInfo->isVisibleTo(&dlg));
    EXPECT_FALSE(dlg.cmdImportar->isEnabled());

    elegir(QStringLiteral("/datos/presupuesto 2027.xlsx"));
    EXPECT_EQ(dlg.txtExcelFileName->text(), QStringLiteral("/datos/presupuesto 2027.xlsx"));
    EXPECT_TRUE(dlg.lblProgressInfo->isVisibleTo(&dlg));
    EXPECT_TRUE(dlg.cmdImportar->isEnabled());

    // A later cancel leaves the chosen path.
    dlg.cmdExaminar->click();
    EXPECT_EQ(dlg.txtExcelFileName->text(), QStringLiteral("/datos/presupuesto 2027.xlsx"));
    EXPECT_TRUE(mensajes().empty());

    // The import button follows the text.
    dlg.txtExcelFileName->clear();
    EXPECT_FALSE(dlg.cmdImportar->isEnabled());
    dlg.txtExcelFileName->setText(QStringLiteral("x"));
    EXPECT_TRUE(dlg.cmdImportar->isEnabled());
}

TEST_F(FrmImportar, AFailingFileDialogIsReportedUnderTheImportButtonsName)
{
    Plataforma::instalar(nullptr, nullptr, nullptr, nullptr, std::make_shared<DialogoQueFalla>());
    dlg.cmdExaminar->click();
    ASSERT_EQ(mensajes().size(), 1u);
    EXPECT_EQ(mensajes()[0],
              (MensajeMostrado{QStringLiteral("Nombre de archivo no válido"), vb::Critical, QStringLiteral("frmImportar:cmdImportar_Click")}));
}

TEST_F(FrmImportar, AMissingFileNeverStartsTheReader)
{
    dlg.show();
    QApplication::setActiveWindow(&dlg);
    dlg.cmdImportar->setFocus();
    const QString ruta = libros.carpeta() + QStringLiteral("/no_existe.xlsx");
    elegir(ruta);
    dlg.cmdImportar->click();
    ASSERT_EQ(mensajes().size(), 1u);
    EXPECT_EQ(mensajes()[0], (MensajeMostrado{QStringLiteral("No se encuentra el archivo: ") + ruta, vb::Critical, QStringLiteral("Error")}));
    EXPECT_EQ(QApplication::focusWidget(), dlg.txtExcelFileName);
    EXPECT_EQ(aplicacionesCreadas, 0);
    EXPECT_EQ(dlg.importacion(), nullptr);
    EXPECT_TRUE(dlg.cmdImportar->isVisible());
    EXPECT_TRUE(dlg.cmdCerrar->isEnabled());

    // A folder is no file either.
    dlg.txtExcelFileName->setText(libros.carpeta());
    dlg.cmdImportar->click();
    EXPECT_EQ(mensajes().size(), 2u);
    EXPECT_EQ(aplicacionesCreadas, 0);
}

TEST_F(FrmImportar, AnythingButYesToTheQuestionStops)
{
    elegir(libros.generar(QStringLiteral("2: a;b;1;70000001;5\n")));
    plataforma.mensajes->respuestas = {vb::RespuestaNo};
    dlg.cmdImportar->click();
    ASSERT_EQ(mensajes().size(), 1u);
    EXPECT_EQ(mensajes()[0],
              (MensajeMostrado{kConfirmacion, vb::YesNo + vb::Exclamation + vb::DefaultButton2, QStringLiteral("Importar presupuesto")}));
    EXPECT_EQ(aplicacionesCreadas, 0);
    EXPECT_FALSE(dlg.pctInfo->isVisibleTo(&dlg));
    EXPECT_EQ(filas(), 0);
}

TEST_F(FrmImportar, ASuccessfulImportShowsProgressTotalsAndTellsTheWorksheet)
{
    dlg.show();
    conocer({QStringLiteral("70000002"), QStringLiteral("70000003"), QStringLiteral("70000004")}, {1});
    QString d;
    for (int r = 2; r <= 4; ++r)
        d += QStringLiteral("%1: 1;7000000%1;10;20;30\n").arg(r);
    d += QStringLiteral("6: ;;;;1\n");
    elegir(libros.generar(d));

    struct Durante {
        bool cerrarActivo, importarVisible, pctVisible;
        QString info;
    } durante{};
    alAbrir = [&] {
        durante = {dlg.cmdCerrar->isEnabled(), dlg.cmdImportar->isVisible(), dlg.pctInfo->isVisible(), dlg.lblProgressInfo->text()};
        dlg.reject(); // closing is refused while the import runs
    };
    dlg.cmdImportar->click();

    EXPECT_EQ(std::tie(durante.cerrarActivo, durante.importarVisible, durante.pctVisible), std::make_tuple(false, false, true));
    EXPECT_EQ(durante.info, QStringLiteral("Inicializando Proceso..."));
    EXPECT_TRUE(dlg.isVisible());

    EXPECT_EQ(mensajes().size(), 1u); // the question only
    EXPECT_EQ(completadas, 1);
    EXPECT_EQ(infoAlCompletar, QStringLiteral("Total Filas importadas: 3"));
    EXPECT_EQ(dlg.lblInfo->text(), QStringLiteral("Importación Completada correctamente."));
    EXPECT_TRUE(dlg.ProgressBar1->isVisible());
    EXPECT_EQ(std::make_pair(dlg.ProgressBar1->value(), dlg.ProgressBar1->maximum()), std::make_pair(7, 7));
    EXPECT_EQ(dlg.lblProgressInfo->text(), QStringLiteral(" - "));
    EXPECT_TRUE(dlg.cmdCerrar->isEnabled());
    EXPECT_FALSE(dlg.cmdImportar->isVisible());
    EXPECT_EQ(filas(), 3);
    ASSERT_NE(dlg.importacion(), nullptr);
    EXPECT_EQ(dlg.importacion()->PrimeraFilaDatos(), 2);
    EXPECT_EQ(dlg.importacion()->PrimeraColumnaDatos(), 1);

    dlg.cmdCerrar->click();
    EXPECT_FALSE(dlg.isVisible());
}

TEST_F(FrmImportar, TheColumnBoxTakesTheCharacterCodeAndTheRowBoxDecidesBoth)
{
    // "e" is code 101: column 37 (AK); the department there, the account in
    // AL, the months from AM. Column 5 still decides where the data ends.
    elegir(libros.generar(QStringLiteral("2: x;y;z;w;1\nAK2: 8;62100001;3;4\n")));
    dlg.txtExcelCol->setText(QStringLiteral("e"));
    dlg.cmdImportar->click();
    ASSERT_NE(dlg.importacion(), nullptr);
    EXPECT_EQ(dlg.importacion()->PrimeraColumnaDatos(), 37);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT M2 FROM Presupuestos WHERE Cuenta = '62100001' AND Dpto = 8")).toInt(), 4);

    // An empty row box: first row 1 and first column 1, whatever the column box says.
    frmImportar otro(bd.sesion);
    elegir(libros.generar(QStringLiteral("1: 9;62800001;1;2;3\n")), &otro);
    otro.txtExcelRow->clear();
    otro.txtExcelCol->setText(QStringLiteral("C"));
    otro.cmdImportar->click();
    ASSERT_NE(otro.importacion(), nullptr);
    EXPECT_EQ(otro.importacion()->PrimeraFilaDatos(), 1);
    EXPECT_EQ(otro.importacion()->PrimeraColumnaDatos(), 1);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT M3 FROM Presupuestos WHERE Cuenta = '62800001' AND Dpto = 9")).toInt(), 3);
    EXPECT_EQ(filas(), 2);
}

TEST_F(FrmImportar, AFailedImportIsShownInRedAndOnlyClosingIsLeft)
{
    dlg.show();
    elegir(libros.fichero(QByteArrayLiteral("PK\x03\x04 roto"), QStringLiteral("roto.xlsx")));
    dlg.cmdImportar->click();
    ASSERT_EQ(mensajes().size(), 2u);
    EXPECT_EQ(mensajes()[1], (MensajeMostrado{QStringLiteral("Error al procesar el archivo, verifique que los datos tienen el formato correcto.\r\n\r\n"
                                                             "Detalles del error: \r\nNo se puede leer el libro 'roto.xlsx': el archivo no "
                                                             "es un libro de Excel.\r\nFila: 0 Columna: 0"),
                                              vb::Critical, QStringLiteral("Importar desde Excel")}));
    EXPECT_EQ(dlg.lblInfo->text(), QStringLiteral("Error durante la Importación."));
    EXPECT_EQ(dlg.lblInfo->palette().color(QPalette::WindowText), QColor(255, 0, 0));
    EXPECT_TRUE(dlg.cmdCerrar->isEnabled());
    EXPECT_FALSE(dlg.cmdImportar->isVisible());
    EXPECT_EQ(completadas, 0);
    EXPECT_EQ(filas(), 0);

    // An empty column box with a row given: Asc of nothing.
    frmImportar otro(bd.sesion);
    elegir(libros.generar(QStringLiteral("2: a;b;1;7;1\n")), &otro);
    otro.txtExcelCol->clear();
    otro.cmdImportar->click();
    ASSERT_EQ(mensajes().size(), 4u);
    EXPECT_EQ(mensajes()[3].prompt, QStringLiteral("Invalid procedure call or argument"));
    EXPECT_EQ(mensajes()[3].titulo, QStringLiteral("Importar desde Excel"));
    EXPECT_EQ(filas(), 0);
}

TEST_F(FrmImportar, TheLayoutNoteFollowsTheBoxesAsTheImportReadsThem)
{
    dlg.txtExcelRow->setText(QStringLiteral("5"));
    dlg.txtExcelCol->setText(QStringLiteral("e")); // a lower-case letter is a column far to the right
    EXPECT_TRUE(dlg.lblFormato->text().startsWith(
        QStringLiteral("El libro debe tener, desde la fila 5: en AK el código de departamento, en AL la cuenta y de AM a AX")));
    EXPECT_TRUE(dlg.lblFormato->text().endsWith(QStringLiteral("«e» es la columna AK.")));
    dlg.txtExcelCol->setText(QStringLiteral("@"));
    EXPECT_TRUE(dlg.lblFormato->text().startsWith(QStringLiteral("«@» no es una columna del libro")));
}

TEST_F(FrmImportar, UnknownCodesAreCountedBeforeWritingAndNoWritesNothing)
{
    conocer({QStringLiteral("62100001")}, {1});
    const QString libro = libros.generar(QStringLiteral("2: 1;62100001;1;2;3\n"
                                                        "3: 1;99999999;1;2;3\n"
                                                        "4: 77;62100001;1;2;3\n"
                                                        "5: 77;99999999;1;2;3\n"));
    elegir(libro);
    plataforma.mensajes->respuestas = {vb::RespuestaYes, vb::RespuestaNo};
    dlg.cmdImportar->click();
    ASSERT_EQ(mensajes().size(), 2u);
    const QString& aviso = mensajes()[1].prompt;
    EXPECT_TRUE(aviso.startsWith(QStringLiteral("3 filas del libro tienen una cuenta o un departamento que no existen")));
    for (const char* fila : {"Fila 3: cuenta 99999999 (no existe), departamento 1\r\n",
                             "Fila 4: cuenta 62100001, departamento 77 (no existe)\r\n",
                             "Fila 5: cuenta 99999999 (no existe), departamento 77 (no existe)\r\n"})
        EXPECT_TRUE(aviso.contains(QString::fromUtf8(fila))) << fila;
    EXPECT_EQ(mensajes()[1].estilo, vb::YesNo + vb::Exclamation + vb::DefaultButton2);
    EXPECT_EQ(filas(), 0);
    EXPECT_EQ(completadas, 0);
    EXPECT_EQ(dlg.lblInfo->text(), QStringLiteral("Importación cancelada: no se ha escrito nada."));
    EXPECT_TRUE(dlg.cmdCerrar->isEnabled());

    // Going on writes them all, and the report says how many were unknown.
    plataforma.mensajes->respuestas = {vb::RespuestaYes, vb::RespuestaYes};
    dlg.cmdImportar->click();
    EXPECT_EQ(filas(), 4);
    EXPECT_EQ(completadas, 1);
    EXPECT_EQ(dlg.importacion()->informe().desconocidas, 3);
    EXPECT_TRUE(dlg.lblInforme->text().endsWith(QStringLiteral("Escritas con códigos que no existen: 3")));
}

TEST_F(FrmImportar, TheReportCountsRowsReadUpdatedNewAndSkipped)
{
    conocer({QStringLiteral("62100001"), QStringLiteral("62800001"), QStringLiteral("70000001")}, {1, 2});
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1) VALUES (1, 2027, '62100001', 1, 9)"));
    // Row 4 has figures but no department; row 6 is empty; row 8 is the
    // row past column E's last filled cell.
    elegir(libros.generar(QStringLiteral("2: 1;62100001;1;2;3\n"
                                         "3: 2;62800001;1;2;3\n"
                                         "4: ;70000001;1;2;3\n"
                                         "5: 1;70000001;;;3\n"
                                         "7: ;;;;5\n")));
    dlg.cmdImportar->click();
    EXPECT_EQ(infoAlCompletar, QStringLiteral("Total Filas importadas: 3"));
    EXPECT_EQ(dlg.lblInfo->text(), QStringLiteral("Importación Completada correctamente."));
    EXPECT_EQ(dlg.lblInforme->text(), QStringLiteral("Filas leídas: 5\nEscritas: 3 (actualizadas: 1, nuevas: 2)\n"
                                                     "Omitidas por no tener departamento: 2\n"
                                                     "Escritas con códigos que no existen: 0"));
    EXPECT_EQ(mensajes().size(), 1u);
}

} // namespace
