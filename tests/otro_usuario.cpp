// A second user of the same database, in a process of its own: stores budget
// months through the worksheet's store and journal, as another worksheet would.
//   presupuestos_otro_usuario DESTINO CUENTA DPTO MES VALOR [FILAS]
//   presupuestos_otro_usuario DESTINO --carga SEMILLA OPERACIONES
// DESTINO is an SQLite file, or "postgresql:" and a connection string.
// With FILAS, stores the month in FILAS new rows (accounts CUENTA1 ...
// CUENTA<FILAS>), as fast as it can, to meet another process doing the same.
// With --carga, a team's day in a few seconds: typed months on a few shared
// rows, sales months followed by the rows planned on them, small batches
// and undos, in an order the seed decides. Each failure the user would read
// goes to standard error; one that is not the system's own Spanish sentence
// (an engine's raw text) is marked "CRUDO" and ends with 4.

#include "common/VbError.h"
#include "db/Conexion.h"
#include "sesion/Sesion.h"
#include "store/Diario.h"
#include "store/clsDBPresupuesto.h"
#include "worksheet/core/EscrituraHoja.h"

#include <QGuiApplication>
#include <QRandomGenerator>
#include <QTextStream>

using namespace presupuestos;

namespace {

// The figures a worksheet shows are its own concern: this user shows none.
int carga(const Sesion& sesion, clsDBPresupuesto& store, Diario& diario, quint32 semilla, int operaciones)
{
    RejillaPresupuesto rejilla;
    EscrituraHoja escritura(sesion, rejilla, store, {});
    QRandomGenerator azar(semilla);
    const QStringList cuentas{QStringLiteral("62800001"), QStringLiteral("62800002"), QStringLiteral("62800003")};
    const auto restaurar = [&store](const QString& c, qint16 d, qint16 e, const Diario::Imagen& im) { store.Restaurar(c, d, e, im); };
    int salida = 0;
    for (int i = 0; i < operaciones; ++i) {
        const auto dpto = static_cast<qint16>(1 + azar.bounded(2));
        const auto mes = static_cast<qint16>(1 + azar.bounded(12));
        const Currency valor = Currency::fromInt(azar.bounded(1000));
        const int que = azar.bounded(100);
        try {
            if (que < 45) {
                auto op = diario.operacion(Diario::Tipo::Tecleo, QStringLiteral("teclear"));
                store.ActualizacionManual(cuentas[azar.bounded(cuentas.size())], dpto, mes, valor);
            } else if (que < 60) {
                auto op = diario.operacion(Diario::Tipo::Tecleo, QStringLiteral("teclear ventas"));
                store.ActualizacionManual(QStringLiteral("70000001"), dpto, mes, valor);
                escritura.recalcularDependencias();
            } else if (que < 80) {
                auto op = diario.operacion(Diario::Tipo::Pegado, QStringLiteral("pegar"));
                escritura.enLote([&] {
                    for (const QString& cuenta : cuentas)
                        store.ActualizacionManual(cuenta, dpto, mes, valor);
                });
            } else if (diario.puedeDeshacer()) {
                diario.deshacer(restaurar);
            }
        } catch (const ConflictoDiario& e) {
            // Another user changed the step's rows since: refused, and said so.
            QTextStream(stderr) << e.mensaje() << Qt::endl;
        } catch (const VbError& e) {
            const bool propia = e.description().startsWith(QStringLiteral("La base de datos"))
                                || e.description().startsWith(QStringLiteral("Se ha perdido la conexión"));
            QTextStream(stderr) << (propia ? QString() : QStringLiteral("CRUDO: ")) << e.description() << Qt::endl;
            if (!propia)
                salida = 4;
        }
    }
    return salida;
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    const QStringList a = app.arguments();
    if (a.size() < 5 || (a[2] != QLatin1String("--carga") && a.size() < 6))
        return 1;
    try {
        const QString postgres = QStringLiteral("postgresql:");
        const Sesion sesion{std::make_shared<EmpresaFija>(1, 2026),
                            a[1].startsWith(postgres) ? Conexion::abrirPostgres(a[1].mid(postgres.size())) : Conexion::abrirSqlite(a[1]),
                            2027};
        int salida = 0;
        {
            // Journaled, as every worksheet's writes are.
            Diario diario(sesion.conexion, 1);
            clsDBPresupuesto store(sesion);
            store.setDiario(&diario);
            if (a[2] == QLatin1String("--carga")) {
                salida = carga(sesion, store, diario, a[3].toUInt(), a[4].toInt());
            } else {
                const auto dpto = static_cast<qint16>(a[3].toInt());
                const auto mes = static_cast<qint16>(a[4].toInt());
                const Currency valor = Currency::fromInt(a[5].toLongLong());
                if (a.size() > 6) {
                    const int filas = a[6].toInt();
                    for (int i = 1; i <= filas; ++i) {
                        try {
                            store.ActualizacionManual(a[2] + QString::number(i), dpto, mes, valor);
                        } catch (const VbError& e) {
                            QTextStream(stderr) << e.description() << Qt::endl;
                            salida = 2;
                        }
                    }
                } else {
                    store.ActualizacionManual(a[2], dpto, mes, valor);
                }
            }
        }
        return salida;
    } catch (const VbError& e) {
        QTextStream(stderr) << e.description() << Qt::endl;
        return 3;
    }
}
