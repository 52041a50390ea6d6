// A second user of the same database, in a process of its own: stores budget
// months through the worksheet's store, as another worksheet would.
//   presupuestos_otro_usuario DESTINO CUENTA DPTO MES VALOR [FILAS]
// DESTINO is an SQLite file, or "postgresql:" and a connection string.
// With FILAS, stores the month in FILAS new rows (accounts CUENTA1 ...
// CUENTA<FILAS>), as fast as it can, to meet another process doing the same.

#include "common/VbError.h"
#include "db/Conexion.h"
#include "host/Empresa.h"
#include "host/modPublic.h"
#include "store/Diario.h"
#include "store/clsDBPresupuesto.h"

#include <QCoreApplication>
#include <QTextStream>

using namespace presupuestos;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList a = app.arguments();
    if (a.size() < 6)
        return 1;
    try {
        const QString postgres = QStringLiteral("postgresql:");
        modPublic::ConexionActiva = a[1].startsWith(postgres) ? Conexion::abrirPostgres(a[1].mid(postgres.size()))
                                                              : Conexion::abrirSqlite(a[1]);
        modPublic::EmpresaActiva = std::make_shared<EmpresaFija>(1, 2026);
        modPublic::EjercicioActivo = 2027;
        int salida = 0;
        {
            // Journaled, as every worksheet's writes are.
            Diario diario(modPublic::ConexionActiva, 1);
            clsDBPresupuesto store;
            store.setDiario(&diario);
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
        modPublic::ConexionActiva.reset();
        modPublic::EmpresaActiva.reset();
        return salida;
    } catch (const VbError& e) {
        QTextStream(stderr) << e.description() << Qt::endl;
        return 3;
    }
}
