#include "BaseDatosPrueba.h"
#include "calculation/clsPresupItem.h"
#include "common/VbError.h"
#include "store/clsDBPresupuesto.h"

#include <QSqlQuery>
#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;
using presupuestos::prueba::BaseDatosPrueba;

namespace {

Currency C(const QString& texto) { return monedaPlana(texto); }

const QString kUpdate = QStringLiteral(
    "UPDATE Presupuestos  SET M1 = ?, M2 = ?, M3 = ?, M4 = ?, M5 = ?, M6 = ?, M7 = ?, M8 = ?, M9 = ?, M10= ?,M11= ?,M12 = ?"
    " , Metodo_Calculo = ?, Modificacion_Manual = ?, Valor = ? WHERE Cod_Empresa = 1 AND Cod_Ejercicio = ? AND Cuenta = ? AND Dpto = ?");
const QString kInsert = QStringLiteral(
    "INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1, M2, M3, M4, M5, M6, M7, M8, M9, M10, M11, M12, "
    "Metodo_Calculo, Modificacion_Manual, Valor) VALUES (1, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
const QString kVer = QStringLiteral(
    "UPDATE Presupuestos  SET Ver = ? WHERE Cod_Empresa = 1 AND Cod_Ejercicio = ? AND Cuenta = ? AND Dpto = ?");

clsPresupItem item(const QString& cuenta, qint16 dpto, const QStringList& meses, qint32 metodo = 0, qint16 manual = 0,
                   const QString& valor = QStringLiteral("0"))
{
    clsPresupItem it;
    it.Cuenta = cuenta;
    it.Dpto = dpto;
    for (int i = 0; i < meses.size(); ++i)
        it.setMes(i, C(meses[i]));
    it.MetodoCalc = metodo;
    it.Manual = manual;
    it.Valor = C(valor);
    return it;
}

class Store : public ::testing::Test {
protected:
    // A stored row as bd.presupuestoGuardado gives it.
    static QStringList esperada(const QStringList& meses, const QStringList& resto)
    {
        QStringList l = meses;
        while (l.size() < 12)
            l << QStringLiteral("0");
        return l + resto;
    }
    int filas() { return bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos")).toInt(); }

    BaseDatosPrueba bd;
    clsDBPresupuesto store{bd.sesion};
};

} // namespace

TEST_F(Store, Actualizar_InsertsAMissingRowThenUpdatesItWithJanuaryAsAWholeNumber)
{
    bd.tomarRegistro();
    const QStringList meses = {"10.75", "10.75", "3", "4", "5", "6", "7", "8", "9", "10", "11", "-12.3456"};
    store.Actualizar(item(QStringLiteral("70000001"), 3, meses, 5, 6, QStringLiteral("12.5")));
    // The insert declares January as currency: it keeps its decimals.
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("70000001"), 3), esperada(meses, {"5", "6", "12.5", "1"}));
    EXPECT_EQ(bd.tomarRegistro(), (QStringList{kUpdate, kInsert}));

    bd.sql(QStringLiteral("UPDATE Presupuestos SET Ver = 0"));
    store.Actualizar(item(QStringLiteral("70000001"), 3, {"10.75", "10.75", "0", "-0.0001"}, 4, 0, QStringLiteral("-3.25")));
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("70000001"), 3), esperada({"11", "10.75", "0", "-0.0001"}, {"4", "0", "-3.25", "0"}));
    store.Actualizar(item(QStringLiteral("70000001"), 3, {"10.5"}));
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("70000001"), 3).constFirst(), QStringLiteral("10")); // halves to even
    EXPECT_EQ(filas(), 1);
    // Prepared once: re-executions send no text.
    EXPECT_TRUE(bd.tomarRegistro().isEmpty());
}

TEST_F(Store, Actualizar_TouchesOnlyItsKeyAndReadsTheYearOnEveryCall)
{
    for (const char* otra : {"(1, 2026, '62900001', 2)", "(2, 2027, '62900001', 2)", "(1, 2027, '62900001', 3)",
                             "(1, 2027, '629000011', 2)"})
        bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto) VALUES ") + QLatin1String(otra));
    store.Actualizar(item(QStringLiteral("62900001"), 2, {"1", "2"}, 1, 0, QStringLiteral("3")));
    bd.sesion.ejercicio = 2028;
    store.Actualizar(item(QStringLiteral("62900001"), 2, {"9"}));
    bd.sesion.ejercicio = 2027;
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("62900001"), 2), esperada({"1", "2"}, {"1", "0", "3", "1"}));
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("62900001"), 2, 2028).constFirst(), QStringLiteral("9"));
    EXPECT_EQ(filas(), 6);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT SUM(M1) + SUM(M2) + SUM(Valor) FROM Presupuestos WHERE Cod_Empresa <> 1 "
                                      "OR Cod_Ejercicio = 2026 OR Dpto = 3 OR Cuenta = '629000011'"))
                  .toInt(),
              0);
}

TEST_F(Store, Manual_InsertsOnlyTheTypedMonthAndOrsTheBitsOfLaterEdits)
{
    bd.tomarRegistro();
    store.ActualizacionManual(QStringLiteral("629'01"), 4, 2, C("1234.5678"));
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("629'01"), 4), esperada({"0", "1234.5678"}, {"0", "2", "0", "1"}));
    EXPECT_EQ(bd.tomarRegistro(), (QStringList{QStringLiteral("UPDATE Presupuestos  SET M2 = 1234.5678, Modificacion_Manual |= 2 WHERE "
                                                      "Cod_Empresa = 1 AND Cod_Ejercicio = 2027 AND Cuenta = '629''01' AND Dpto = 4"),
                                       kInsert}));
    store.ActualizacionManual(QStringLiteral("629'01"), 4, 5, C("-0.5"));
    EXPECT_EQ(bd.tomarRegistro().constFirst(), QStringLiteral("UPDATE Presupuestos  SET M5 = -0.5, Modificacion_Manual |= 16 WHERE "
                                                      "Cod_Empresa = 1 AND Cod_Ejercicio = 2027 AND Cuenta = '629''01' AND Dpto = 4"));
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("629'01"), 4), esperada({"0", "1234.5678", "0", "0", "-0.5"}, {"0", "18", "0", "1"}));

    // On a row saved whole, only the month and the bit change.
    store.Actualizar(item(QStringLiteral("70000001"), 1, QStringList(12, QStringLiteral("100")), 3, 0, QStringLiteral("100")));
    store.ActualizacionManual(QStringLiteral("70000001"), 1, 12, C("7"));
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("70000001"), 1), esperada(QStringList(11, QStringLiteral("100")) << QStringLiteral("7"),
                                                            {"3", "2048", "100", "1"}));
    EXPECT_EQ(filas(), 2);
    // Month 16's bit does not fit the 16-bit set.
    EXPECT_EQ(numeroError([&] { store.ActualizacionManual(QStringLiteral("70000002"), 1, 16, C("1")); }), VbError::Overflow);
    EXPECT_EQ(filas(), 2);
}

TEST_F(Store, SetVisible_FlagsTheRowCreatingAnEmptyOneIfNeeded)
{
    store.ActualizacionManual(QStringLiteral("62900002"), 5, 4, C("99")); // leaves its values in the insert
    bd.tomarRegistro();
    store.SetVisible(QStringLiteral("62900001"), 5, false);
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("62900001"), 5), esperada({}, {"0", "0", "0", "0"}));
    EXPECT_EQ(bd.tomarRegistro(), QStringList{kVer}); // the insert was prepared by the manual edit
    store.SetVisible(QStringLiteral("62900001"), 5, true);
    store.SetVisible(QStringLiteral("62900002"), 5, false);
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("62900001"), 5).constLast(), QStringLiteral("1"));
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("62900002"), 5), esperada({"0", "0", "0", "99"}, {"0", "8", "0", "0"}));
    EXPECT_EQ(filas(), 2);
}

TEST_F(Store, RejectsWhatTheColumnsCannotHoldAndWritesNothing)
{
    const QString larga = QStringLiteral("7000000000001");
    for (const auto& operacion : std::vector<std::function<void()>>{
             [&] { store.Actualizar(item(larga, 1, {"1"})); },
             [&] { store.ActualizacionManual(larga, 1, 2, C("1")); },
             [&] { store.SetVisible(larga, 1, false); }}) {
        try {
            operacion();
            ADD_FAILURE() << "an account code of 13 characters was accepted";
        } catch (const VbError& e) {
            EXPECT_EQ(e.number(), VbError::ParameterTooLong);
            EXPECT_TRUE(e.description().contains(larga) && e.description().contains(QStringLiteral("12")))
                << e.description().toStdString();
        }
    }
    // January goes through a 32-bit integer.
    EXPECT_EQ(numeroError([&] { store.Actualizar(item(QStringLiteral("70000001"), 1, {"3000000000"})); }), VbError::Overflow);
    EXPECT_EQ(filas(), 0);
    store.Actualizar(item(QStringLiteral("700000000001"), 1, {"2147483647"}));
    EXPECT_EQ(filas(), 1);
}

// Every way into a month keeps the amount to the ten-thousandth. SQLite holds
// MONEY as a double of units, exact only below 2^38: beyond, it refuses the
// amount before storing anything; the other engines keep the whole range.
TEST_F(Store, AmountsAreStoredExactlyOrRefusedBeforeAnythingIsStored)
{
    struct Caso {
        const char* importe;
        bool exactoEnSqlite;
    };
    const Caso casos[] = {
        {"0.0001", true},
        {"-0", true},
        {"274877906943.9999", true},
        {"274877906944", true},
        {"-274877906944", true},
        {"274877906944.0001", false},
        {"-274877906944.0007", false},
        {"900719925474.0976", false},
        {"900719925474.0991", false},
        {"1000000000000.0001", false},
        {"123456789012345.6789", false},
        {"922337203685477.5807", false},
        {"-922337203685477.5808", false},
    };
    const bool refusa = !bd.enPostgres();
    const QString cuenta = QStringLiteral("62900001");
    qint16 dpto = 0;
    for (const Caso& c : casos) {
        SCOPED_TRACE(c.importe);
        const Currency v = C(QLatin1String(c.importe));
        const QString t = v.toSqlText();
        ++dpto;
        store.ActualizacionManual(cuenta, dpto, 1, C("1"));
        // The composed update, the prepared one and the insert of a new row.
        const std::vector<std::function<void()>> escrituras = {
            [&] { store.ActualizacionManual(cuenta, dpto, 3, v); },
            [&] { store.Actualizar(item(cuenta, dpto, {"1", t, t})); },
            [&] { store.ActualizacionManual(cuenta, static_cast<qint16>(dpto + 100), 4, v); },
        };
        const bool refusada = refusa && !c.exactoEnSqlite;
        for (const auto& escribir : escrituras) {
            const QStringList antes = bd.presupuestos();
            try {
                escribir();
                EXPECT_FALSE(refusada) << "accepted";
            } catch (const VbError& e) {
                EXPECT_TRUE(refusada) << e.description().toStdString();
                EXPECT_TRUE(e.description().contains(QStringLiteral("274.877.906.944"))) << e.description().toStdString();
                EXPECT_EQ(bd.presupuestos(), antes);
            }
        }
        if (refusada)
            continue;
        EXPECT_EQ(bd.presupuestoGuardado(cuenta, dpto).mid(0, 3), (QStringList{"1", t, t}));
        EXPECT_EQ(bd.presupuestoGuardado(cuenta, static_cast<qint16>(dpto + 100)).value(3), t);
    }
}
