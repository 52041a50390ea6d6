#pragma once
// Imports the active sheet of a workbook as budget rows of the session's
// company and fiscal year: one row per sheet row with a department, the
// account in the next column and the twelve months after it. Rows that
// exist get their twelve months replaced (method, manual bits and value
// stay); the others are inserted with the table's defaults. Everything runs
// in one transaction: a failure leaves the budget as it was and is raised
// as one error whose description says where in the sheet it happened.

#include "sesion/Sesion.h"

#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace presupuestos {

class AplicacionExcel;
class Comando;
class Diario;
class HojaExcel;

// Rows of the workbook whose account or department the company does not
// have: found after reading and before anything is written.
struct CodigosDesconocidos {
    struct Fila {
        qint32 fila = 0; // on the sheet
        QString cuenta;
        qint32 dpto = 0;
        bool cuentaDesconocida = false;
        bool dptoDesconocido = false;
    };
    qint32 filas = 0;
    // The first few, in sheet order.
    std::vector<Fila> primeras;
    static constexpr std::size_t kPrimeras = 5;
};

// What an import read and wrote.
struct InformeImportacion {
    // Rows between the first data row and the end that hold anything in the
    // department, account or month columns.
    qint32 leidas = 0;
    qint32 actualizadas = 0;
    qint32 nuevas = 0;
    // Rows with an account or months but no department, which the import passes by.
    qint32 omitidas = 0;
    // Rows written with a code the company does not have (counted only
    // when someone is asked about them).
    qint32 desconocidas = 0;
    qint32 escritas() const { return actualizadas + nuevas; }
};

class clsImportar : public QObject {
    Q_OBJECT
public:
    // The company, the connection and the year of the rows it writes.
    explicit clsImportar(Sesion& sesion, QObject* parent = nullptr);
    ~clsImportar() override;

    // Both store into the session the import was given; it keeps no copy.
    void setEmpresaDrumav(std::shared_ptr<IEmpresa> empresa);
    void setConexionDrumav(std::shared_ptr<Conexion> conexion);

    // First sheet row with data.
    qint16 PrimeraFilaDatos() const { return primeraFilaDatos_; }
    void setPrimeraFilaDatos(qint16 fila) { primeraFilaDatos_ = fila; }
    // Sheet column of the department; the account and the months follow it.
    qint16 PrimeraColumnaDatos() const { return primeraColumnaDatos_; }
    void setPrimeraColumnaDatos(qint16 columna) { primeraColumnaDatos_ = columna; }

    void ImportarDesdeExcel(const QString& strArchivoExcel);

    // A column's letters as a workbook names it: 1 "A", 27 "AA".
    static QString letraColumna(int columna);

    // The change journal the import tells of every row it writes (none by
    // default): an import is then one step of undo.
    void setDiario(Diario* diario) { diario_ = diario; }

    // Asked before the transaction begins when some row holds a code the
    // company does not have: true goes on, false ends the import without
    // writing anything (cancelada() then tells so). Without it the import
    // neither looks for them nor counts them.
    void setConfirmarDesconocidos(std::function<bool(const CodigosDesconocidos&)> confirmar)
    {
        confirmar_ = std::move(confirmar);
    }
    bool cancelada() const { return cancelada_; }
    // The counts of the last import; complete once it finished.
    const InformeImportacion& informe() const { return informe_; }

    // The update and the insert once an import has prepared them.
    const Comando* comandoUpdate() const { return ComandoUpdate.get(); }
    const Comando* comandoInsert() const { return ComandoInsert.get(); }

signals:
    void ProgressInit(qint32 Count, const QString& Info);
    void Progress(qint32 Index, const QString& Info);
    void ImportCompleted(qint32 TotalRowsImported);

private:
    // The (account, department) keys of the rows the sheet would write.
    std::vector<std::pair<QString, qint16>> clavesDelLibro(const HojaExcel& hoja, qint32 ultimaFila) const;

    // The rows from the first data row to ultimaFila whose codes are not
    // among the company's accounts (any year's chart, or a statistic
    // concept) and departments.
    CodigosDesconocidos buscarDesconocidos(const HojaExcel& hoja, qint32 ultimaFila) const;

    Sesion& sesion_;
    std::function<bool(const CodigosDesconocidos&)> confirmar_;
    bool cancelada_ = false;
    InformeImportacion informe_;
    Diario* diario_ = nullptr;
    // Raises "Overflow" when the stored year would hold a total out of range.
    void comprobarTotales();
    // Raises the error of the first row whose department or account the
    // table cannot hold, leaving fila and columna at its cell.
    void comprobarClaves(const HojaExcel& hoja, qint32 ultimaFila, qint32& fila, qint32& columna) const;
    bool CrearExcel();
    void PrepararComandosImportacion();

    qint16 primeraFilaDatos_ = 0;
    qint16 primeraColumnaDatos_ = 0;
    std::unique_ptr<AplicacionExcel> ExcelApp;
    std::unique_ptr<Comando> ComandoUpdate;
    std::unique_ptr<Comando> ComandoInsert;
};

} // namespace presupuestos
