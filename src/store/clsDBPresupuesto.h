#pragma once
// The one writer of budget rows besides the Excel import. Every operation
// is update-else-insert on the key (company, year, account, department):
// the row is updated, and inserted only when the update touched nothing.
// The full-row statements are prepared once and re-executed, since pastes
// and method applications save many rows in a row.
//
// The company code and the connection are captured when the commands are
// built; the fiscal year is read on every call. The statement for a month
// typed by hand is composed anew each time, on the session's connection as
// it is then. The
// callers decide the transaction. When another user creates the row between
// the update and the insert, the insert hits the key and the update runs
// again, so neither user's figure is lost.

#include "calculation/clsPresupItem.h"
#include "common/Currency.h"
#include "store/Diario.h"

#include <QByteArray>
#include <QString>
#include <functional>
#include <array>
#include <memory>
#include <optional>

namespace presupuestos {

class Comando;
struct Sesion;

class clsDBPresupuesto {
public:
    explicit clsDBPresupuesto(const Sesion& sesion);
    ~clsDBPresupuesto();
    clsDBPresupuesto(const clsDBPresupuesto&) = delete;
    clsDBPresupuesto& operator=(const clsDBPresupuesto&) = delete;

    // Saves the whole row: months, method, manual bits and value.
    void Actualizar(const clsPresupItem& item);
    // The row as the last Actualizar stored it: an existing row's January is
    // stored as a whole number (its update declares it so), a new row's
    // keeps its decimals.
    clsPresupItem guardadoPorUltimoActualizar(const clsPresupItem& item) const;
    // Saves one month (1..12) typed by hand and marks it as such, leaving
    // the other months, the method and the value as they are.
    void ActualizacionManual(QString Cuenta, qint16 Dpto, qint16 Mes, Currency Valor);
    // Shows or hides the row in the worksheet, creating an empty row if needed.
    void SetVisible(QString Cuenta, qint16 Dpto, bool Visible);

    // The row as the database holds it now; empty when there is none.
    struct FilaGuardada {
        std::array<Currency, 12> meses{};
        qint32 metodo = 0;
        qint32 manual = 0;
        Currency valor;
        bool todoCero() const;
    };
    std::optional<FilaGuardada> Leer(const QString& Cuenta, qint16 Dpto) const;

    // The journal told of every write (none by default); each write is then
    // a transaction of its own when it is not part of one already.
    void setDiario(Diario* diario) { diario_ = diario; }
    Diario* diario() const { return diario_; }
    // Puts a row of a fiscal year back as an image of it: every column as
    // it was, or no row at all (what undo and redo write).
    void Restaurar(const QString& Cuenta, qint16 Dpto, qint16 Ejercicio, const Diario::Imagen& imagen);

private:
    void PrepararComandos();
    // Fills the insert with an empty row of the current year for the key.
    void insertVacio(const QString& Cuenta, qint16 Dpto);
    // Runs the prepared insert; when the key is taken by then, runs the
    // update that found no row before.
    void insertarOActualizar(const std::function<void()>& actualizar);

    // Runs a write of one row; with a journal, in a transaction (its own
    // unless the caller's) that the journal hears of first.
    void escribir(const QString& Cuenta, qint16 Dpto, qint16 Ejercicio, Diario::Tipo tipo,
                  const std::function<void()>& escritura);
    void actualizarFila(const clsPresupItem& item);
    void actualizarMes(const QString& Cuenta, qint16 Dpto, qint16 Mes, Currency Valor);
    void fijarVisible(const QString& Cuenta, qint16 Dpto, bool Visible);
    void restaurarFila(const QString& Cuenta, qint16 Dpto, qint16 Ejercicio, const Diario::Imagen& imagen);

    const Sesion& sesion_;
    Diario* diario_ = nullptr;
    bool ultimoActualizoExistente_ = false;
    std::unique_ptr<Comando> ComandoUpdate;
    std::unique_ptr<Comando> ComandoInsert;
    std::unique_ptr<Comando> ComandoVer;
    std::unique_ptr<Comando> ComandoRestaurar;
    std::unique_ptr<Comando> ComandoInsertCompleto;
    std::unique_ptr<Comando> ComandoBorrar;
    // The part of a typed month's logged text that names its row, and the
    // row it names.
    QString textoFila_;
    QString filaCuenta_;
    QByteArray filaCuentaUtf8_;
    qint16 filaEmpresa_ = 0;
    qint16 filaEjercicio_ = 0;
    qint16 filaDpto_ = 0;
    // A typed month's update, per month, made when first needed.
    std::array<std::unique_ptr<Comando>, 12> ComandoMes;
};

} // namespace presupuestos
