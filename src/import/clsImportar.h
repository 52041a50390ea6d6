#pragma once
// Imports the active sheet of a workbook as budget rows of the current
// company and fiscal year: one row per sheet row with a department, the
// account in the next column and the twelve months after it. Rows that
// exist get their twelve months replaced (method, manual bits and value
// stay); the others are inserted with the table's defaults. Everything runs
// in one transaction: a failure leaves the budget as it was and is raised
// as one error whose description says where in the sheet it happened.

#include "host/Empresa.h"

#include <QObject>
#include <QString>
#include <memory>
#include <utility>
#include <vector>

namespace presupuestos {

class AplicacionExcel;
class Comando;
class Conexion;
class Diario;
class HojaExcel;

class clsImportar : public QObject {
    Q_OBJECT
public:
    explicit clsImportar(QObject* parent = nullptr);
    ~clsImportar() override;

    // Both store into the shared state; the import keeps no copy.
    void setEmpresaDrumav(std::shared_ptr<IEmpresa> empresa);
    void setConexionDrumav(std::shared_ptr<Conexion> conexion);

    // First sheet row with data.
    qint16 PrimeraFilaDatos() const { return primeraFilaDatos_; }
    void setPrimeraFilaDatos(qint16 fila) { primeraFilaDatos_ = fila; }
    // Sheet column of the department; the account and the months follow it.
    qint16 PrimeraColumnaDatos() const { return primeraColumnaDatos_; }
    void setPrimeraColumnaDatos(qint16 columna) { primeraColumnaDatos_ = columna; }

    void ImportarDesdeExcel(const QString& strArchivoExcel);

    // The change journal the import tells of every row it writes (none by
    // default): an import is then one step of undo.
    void setDiario(Diario* diario) { diario_ = diario; }

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

    Diario* diario_ = nullptr;
    // Raises "Overflow" when the stored year would hold a total out of range.
    void comprobarTotales();
    bool CrearExcel();
    void PrepararComandosImportacion();

    qint16 primeraFilaDatos_ = 0;
    qint16 primeraColumnaDatos_ = 0;
    std::unique_ptr<AplicacionExcel> ExcelApp;
    std::unique_ptr<Comando> ComandoUpdate;
    std::unique_ptr<Comando> ComandoInsert;
};

} // namespace presupuestos
