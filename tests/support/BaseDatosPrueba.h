#pragma once
// A real SQLite database in memory with the real schema, the retail
// database attached, and the shared state of the host set on it.

#include "db/Conexion.h"
#include "host/Empresa.h"

#include <QStringList>
#include <functional>
#include <memory>

namespace presupuestos::prueba {

struct BaseDatosPrueba {
    // codEmpresa 1, current fiscal year 2026, chart digits 1,2,3,4,8.
    // fichero: a file, for tests where a second connection or process shares it.
    explicit BaseDatosPrueba(bool conDatosDemo = false, const QString& fichero = QStringLiteral(":memory:"));
    ~BaseDatosPrueba();

    std::shared_ptr<Conexion> conexion;
    std::shared_ptr<EmpresaFija> empresa;

    // Runs raw SQL on the database (set-up of a test, not the system's statements).
    void sql(const QString& sentencia);
    QVariant valor(const QString& consulta);
    // The composed texts sent since the last call, emptying the log.
    QStringList tomarRegistro();
    // A stored budget row of company 1 as SQL number texts: M1..M12,
    // Metodo_Calculo, Modificacion_Manual, Valor, Ver; empty when there is none.
    QStringList presupuestoGuardado(const QString& cuenta, int dpto, int ejercicio = 2027);
    // Every budget row, every column, to compare whole states.
    QStringList presupuestos();
};

// An amount written plainly ("12.5", "-3"), for expected values.
inline Currency monedaPlana(const QString& texto)
{
    Currency c;
    Currency::parsePlain(texto, c);
    return c;
}

// The number of the system error a call raises, 0 when it raises none.
int numeroError(const std::function<void()>& f);

} // namespace presupuestos::prueba
