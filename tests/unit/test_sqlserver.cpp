// The statements only SQL Server receives (the journal's user and operation
// numbers among them), composed on a connection whose engine is SQL Server
// and which records instead of running: there is no server here. The T-SQL
// grammar check reads what they compose along with every other test's.
#include "LibroPrueba.h"
#include "calculation/clsPresupItem.h"
#include "db/Conexion.h"
#include "db/schema/Esquema.h"
#include "import/clsImportar.h"
#include "sesion/Sesion.h"
#include "store/Diario.h"
#include "store/clsDBPresupuesto.h"
#include "worksheet/core/FiltroCuentas.h"
#include "worksheet/core/RepositorioHoja.h"

#include <gtest/gtest.h>
#include <iostream>

using namespace presupuestos;

TEST(SqlServer, OpeningEditingPastingUndoImportAndHistoryComposeTheServersOwnStatements)
{
    auto c = Conexion::grabadoraSqlServer();
    Sesion sesion{std::make_shared<EmpresaFija>(1, 2026), c, 2027};
    // Every answer is empty, which stops some steps short of their end:
    // what they composed until then is what counts.
    const auto paso = [](const std::function<void()>& f) {
        try {
            f();
        } catch (const std::exception& e) {
            std::cerr << "Stopped short: " << e.what() << "\n";
        }
    };
    RepositorioHoja r(*c);
    paso([&] { r.ejercicioInicial(1, 2026); });
    RepositorioHoja::Tablas tablas;
    paso([&] { tablas = r.crearTablasTemporales(); });
    RepositorioHoja filtros(*c, tablas.filtroCuentas, 1);
    paso([&] {
        filtros.categorias();
        filtros.cuentas(filtros.ultimoEjercicioCuentas(2027), 8, true);
        filtros.departamentos();
        filtros.vaciarTablaFiltro();
        filtros.insertarCuenta(CuentaFiltro{24, QStringLiteral("70000001"), 2, QStringLiteral("Ventas D'Angelo")});
    });
    paso([&] { r.asegurarEstadisticas(tablas.estadisticas, 2026, r.enlaceRetail(1), false); });
    paso([&] { r.filasSobreVentas(1, 2027); });

    Diario diario(c, 1);
    clsDBPresupuesto store(sesion);
    store.setDiario(&diario);
    clsPresupItem item;
    item.Cuenta = QStringLiteral("70000001");
    item.Dpto = 1;
    item.setMes(2, Currency::fromInt(5));
    const auto operacion = [&](Diario::Tipo tipo, const std::function<void()>& escribir) {
        paso([&] {
            Transaccion t(*c);
            Diario::Ambito a = diario.operacion(tipo, Diario::nombre(tipo));
            escribir();
            // Told what the row became: the journal need not read it back.
            std::array<Currency, 12> meses{};
            for (int m = 0; m < 12; ++m)
                meses[static_cast<std::size_t>(m)] = item.Mes(m);
            diario.escritos(item.Cuenta, item.Dpto, 2027, meses);
            t.confirmar();
        });
    };
    operacion(Diario::Tipo::Tecleo, [&] { store.ActualizacionManual(item.Cuenta, item.Dpto, 3, Currency::fromInt(5)); });
    operacion(Diario::Tipo::Pegado, [&] {
        diario.prever({{item.Cuenta, item.Dpto}, {QStringLiteral("70000002"), 1}}, 2027);
        store.Actualizar(item);
    });
    c->setFilasGrabadas(1);
    operacion(Diario::Tipo::Visibilidad, [&] { store.SetVisible(item.Cuenta, item.Dpto, false); });
    c->setFilasGrabadas(0);
    paso([&] { diario.deshacer([&](const QString& cu, qint16 d, qint16 e, const Diario::Imagen& im) { store.Restaurar(cu, d, e, im); }); });
    for (const bool existe : {true, false})
        paso([&] {
            Diario::Imagen im;
            im.existe = existe;
            Transaccion t(*c);
            store.Restaurar(item.Cuenta, item.Dpto, 2027, im);
            t.confirmar();
        });
    paso([&] { diario.historial(item.Cuenta, item.Dpto, 2027); });
    paso([&] { diario.cambiosAjenos(); });
    paso([&] { diario.preverAno(2027, Diario::kLeerAnoEntero + 1); });

    prueba::LibrosPrueba libros;
    paso([&] {
        clsImportar imp(sesion);
        imp.setDiario(&diario);
        imp.setPrimeraFilaDatos(2);
        imp.setPrimeraColumnaDatos(3);
        imp.ImportarDesdeExcel(libros.generar(QStringLiteral("1: Categoría;Nombre;Dpto;Cuenta;Ene\n"
                                                             "2: Cat;Nombre;1;70000001;1;2;3;4;5;6;7;8;9;10;11;12\n")));
    });
    r.borrarTablasTemporales(tablas);
    // The schema's statements, as the administrator runs them.
    Esquema::crearGestion(*c);
    Esquema::crearRetail(*c, QStringLiteral("Pelvor"));

    // The server's own texts were composed (and so go to the grammar).
    std::vector<QString> registro(c->registro().begin(), c->registro().end());
    for (const char* propio : {"SELECT SUSER_SNAME()", "SELECT NEXT VALUE FOR Presupuestos_Operaciones_Id",
                               "INSERT INTO Presupuestos_Operaciones", "INSERT INTO Presupuestos_Cambios", " WITH (UPDLOCK, HOLDLOCK)",
                               "CREATE TABLE ##PresupFiltroCuentas_", "INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, M1",
                               "CREATE TABLE dbo.Presupuestos_Cambios (", "CREATE TABLE [Pelvor].dbo.Almacen_Acumulados (",
                               "CREATE SEQUENCE dbo.Presupuestos_Operaciones_Id", "EXEC sp_rename"})
        EXPECT_TRUE(std::any_of(registro.begin(), registro.end(), [&](const QString& s) { return s.contains(QLatin1String(propio)); }))
            << propio;
}
