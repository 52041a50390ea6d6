#pragma once
// The dialog that imports a workbook into the budget: the user picks the
// file and says where the data starts, confirms, and watches the rows go
// by. After a successful import it tells the worksheet to reload.

#include <QDialog>
#include <memory>

class QFrame;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;

namespace presupuestos {

class clsImportar;
struct CodigosDesconocidos;
struct Sesion;

class Diario;

class frmImportar : public QDialog {
    Q_OBJECT
public:
    // The import writes into the session's company and year, on its connection.
    explicit frmImportar(Sesion& sesion, QWidget* parent = nullptr);
    ~frmImportar() override;

    // ---- Controls, named as the form names them ------------------------------
    QLabel* Label1 = nullptr;
    QLineEdit* txtExcelRow = nullptr;
    QLabel* Label2 = nullptr;
    QLineEdit* txtExcelCol = nullptr;
    QLabel* Label3 = nullptr;
    QLineEdit* txtExcelFileName = nullptr;
    QPushButton* cmdExaminar = nullptr;
    QLabel* Label4 = nullptr;
    QPushButton* cmdImportar = nullptr;
    QPushButton* cmdCerrar = nullptr;
    QLabel* lblProgressInfo = nullptr;
    QFrame* pctInfo = nullptr;
    QProgressBar* ProgressBar1 = nullptr;
    QLabel* lblInfo = nullptr;
    // Which column holds what, for the first row and column in the boxes.
    QLabel* lblFormato = nullptr;
    // Under lblInfo once an import ended: rows read, written, skipped.
    QLabel* lblInforme = nullptr;

    // The import running (or last run), receiving its events.
    clsImportar* importacion() const { return mclsImport.get(); }

    void reject() override;

    // The worksheet's change journal: the import becomes one step of its undo.
    void setDiario(Diario* diario) { diario_ = diario; }

signals:
    void ImportacionCompletada();

protected:
    void closeEvent(QCloseEvent* e) override;

private:
    Sesion& sesion_;
    Diario* diario_ = nullptr;
    void cmdExaminar_Click();
    void cmdImportar_Click();
    void cmdCerrar_Click();
    void txtExcelFileName_Change();
    void mclsImport_ProgressInit(qint32 Count, const QString& Info);
    void mclsImport_Progress(qint32 Index, const QString& Info);
    void mclsImport_ImportCompleted(qint32 TotalRowsImported);

    qint16 LeerPrimeraFila() const;
    qint16 LeerPrimeraColumna() const;
    void mostrarFormato();
    // Asks whether rows with codes the company does not have go in too.
    bool confirmarDesconocidos(const CodigosDesconocidos& d);

    std::unique_ptr<clsImportar> mclsImport;
};

} // namespace presupuestos
