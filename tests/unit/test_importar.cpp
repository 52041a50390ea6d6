#include "DiscoPrueba.h"
#include "BaseDatosPrueba.h"
#include "LibroPrueba.h"
#include "common/VbError.h"
#include "db/Conexion.h"
#include "import/readers/AplicacionExcel.h"
#include "import/clsImportar.h"
#include "store/Diario.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTimer>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace presupuestos;
using presupuestos::prueba::BaseDatosPrueba;
using presupuestos::prueba::LibrosPrueba;

namespace {

const QString kCabecera = QStringLiteral("Error al procesar el archivo, verifique que los datos tienen el formato correcto.\r\n\r\n"
                                         "Detalles del error: \r\n");

const QString kUpdate = QStringLiteral(
    "UPDATE Presupuestos SET  M1 = ?, M2 = ?, M3 = ?, M4 = ?, M5 = ?, M6 = ?, M7 = ?, M8 = ?, M9 = ?, M10 = ?, M11 = ?, "
    "M12 = ? WHERE Cod_Empresa = 1 AND Cod_Ejercicio = 2027 AND Cuenta = ? AND Dpto= ? ");
const QString kInsert = QStringLiteral(
    "INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, M1, M2, M3, M4, M5, M6, M7, M8, M9, M10, M11, M12, Cuenta, Dpto) "
    "VALUES ( 1,2027, ?,?,?,?,?,?,?,?,?,?,?,?,?,?)");

// A sheet row laid out from column C: two texts, department, account, twelve months.
QString fila(int n, const QString& dpto, const QString& cuenta, const QStringList& meses,
             const QString& cat = QStringLiteral("Cat"), const QString& nombre = QString())
{
    return QStringLiteral("%1: %2;%3;%4;%5;%6\n")
        .arg(n)
        .arg(cat, nombre.isEmpty() ? QStringLiteral("Nombre %1").arg(n) : nombre, dpto, cuenta, meses.join(QLatin1Char(';')));
}

QStringList doce(const QString& v) { return QStringList(12, v); }

// Stands in for a created "application": reads through the real readers
// and tells the test what was done with it.
struct Espia {
    int creadas = 0;
    int cerradas = 0;
};

class AplicacionEspia : public AplicacionExcel {
public:
    explicit AplicacionEspia(Espia& e) : espia_(e), real_({FormatoLibro::Xlsx, FormatoLibro::Xls}) { ++espia_.creadas; }
    void abrirLibro(const QString& ruta) override { real_.abrirLibro(ruta); }
    const HojaExcel& hojaActiva() const override { return real_.hojaActiva(); }
    void Quit() override
    {
        ++espia_.cerradas;
        real_.Quit();
    }

private:
    Espia& espia_;
    AplicacionLectores real_;
};

class Importar : public ::testing::Test {
protected:
    ~Importar() override { RegistroExcel::restaurar(); }

    struct Eventos {
        std::vector<std::pair<qint32, QString>> inicio;
        std::vector<std::pair<qint32, QString>> progreso;
        std::vector<qint32> completado;
    };

    // Imports with a fresh engine; returns the error's description, empty on success.
    QString importar(const QString& ruta, qint16 primeraFila = 2, qint16 primeraColumna = 3, int* numero = nullptr)
    {
        clsImportar imp(*sesion);
        imp.setDiario(diario);
        imp.setPrimeraFilaDatos(primeraFila);
        imp.setPrimeraColumnaDatos(primeraColumna);
        QObject::connect(&imp, &clsImportar::ProgressInit, [this](qint32 n, const QString& i) { eventos.inicio.emplace_back(n, i); });
        QObject::connect(&imp, &clsImportar::Progress, [this](qint32 n, const QString& i) { eventos.progreso.emplace_back(n, i); });
        QObject::connect(&imp, &clsImportar::ImportCompleted, [this](qint32 n) { eventos.completado.push_back(n); });
        const VbError e = prueba::errorDe([&] { imp.ImportarDesdeExcel(ruta); });
        if (numero)
            *numero = e.number();
        return e.description();
    }

    int filas() { return bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos")).toInt(); }
    Diario* diario = nullptr;
    // Where the import writes: bd unless a test points it to a database of its own.
    Sesion* sesion = &bd.sesion;
    std::vector<qint32> filasProgreso() const
    {
        std::vector<qint32> v;
        for (const auto& p : eventos.progreso)
            v.push_back(p.first);
        return v;
    }
    void filaExistente(const QString& cuenta, int dpto, const QString& meses = QStringLiteral("100"))
    {
        bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, Metodo_Calculo, Modificacion_Manual, "
                              "Valor, Ver, M1, M2, M3, M4, M5, M6, M7, M8, M9, M10, M11, M12) "
                              "VALUES (1, 2027, '%1', %2, 3, 5, 12.5, 0, %3)")
                   .arg(cuenta)
                   .arg(dpto)
                   .arg(QStringList(12, meses).join(QStringLiteral(", "))));
    }

    BaseDatosPrueba bd;
    LibrosPrueba libros;
    Eventos eventos;
};

// ---- Rows, the end of the data and the events ----------------------------------------

// Column 5 says where the data ends (one past its last filled cell, whichever
// column holds the departments); a row without a department is skipped yet
// reported; empty months are stored as zero.
TEST_F(Importar, ImportsRowsUpToOnePastColumnFiveConvertingCellsAndSkippingRowsWithoutDepartment)
{
    struct Guardada {
        QString cuenta;
        int dpto;
        QStringList meses; // the first values stored; empty: no row
    };
    struct Caso {
        const char* que;
        QString ruta;
        qint16 primeraFila, primeraColumna;
        qint32 ultimaFila;
        std::vector<qint32> progreso; // empty: not checked
        QString primerTexto, ultimoTexto;
        int filas;
        std::vector<Guardada> guardadas;
    };
    QString conCabecera = QStringLiteral("1: Categoría;Nombre;Dpto;Cuenta;Ene\n");
    for (int r = 2; r <= 10; ++r)
        conCabecera += fila(r, QString::number(r), QStringLiteral("7000000%1").arg(r), doce(QString::number(r * 10)));
    QString columnaCincoCorta;
    for (int r = 2; r <= 10; ++r)
        columnaCincoCorta += fila(r, QString::number(r), QStringLiteral("70000001"), r <= 6 ? doce("1") : QStringList{QString()});
    const Caso casos[] = {
        {"a header and nine rows", libros.generar(conCabecera), 2, 3, 11, {2, 3, 4, 5, 6, 7, 8, 9, 10, 11},
         QStringLiteral("Cat - Nombre 2"), QStringLiteral(" - "), 9,
         {{QStringLiteral("70000007"), 7, QStringList(doce("70") << "0" << "0" << "0" << "1")}}},
        {"rows without department",
         libros.generar(fila(2, "1", "70000001", {"1", "", "3", "", "", "", "", "", "", "", "", "12"})
                        + fila(3, QString(), QStringLiteral("70000002"), doce("5"))
                        + fila(4, "2", "70000001", {"7"}) + fila(5, QString(), QString(), doce("9"))),
         2, 3, 6, {2, 3, 4, 5, 6}, {}, {}, 2,
         {{QStringLiteral("70000001"), 1, {"1", "0", "3", "0", "0", "0", "0", "0", "0", "0", "0", "12", "0", "0", "0", "1"}},
          {QStringLiteral("70000001"), 2, {"7", "0", "0"}},
          {QStringLiteral("70000002"), 0, {}}}},
        {"departments down past column five", libros.generar(columnaCincoCorta), 2, 3, 7, {}, {}, {}, 6,
         {{QStringLiteral("70000001"), 7, {"0"}}, {QStringLiteral("70000001"), 8, {}}}},
        {"departments in column A: column five is the third month",
         libros.generar(QStringLiteral("1: 1;62100001;5;6;7\n2: 2;62100001;5;6\n3: 3;62100001;5;6;7;8\n")), 1, 1, 4, {}, {}, {}, 3,
         {{QStringLiteral("62100001"), 3, {"5", "6", "7", "8"}}}},
        {"column five empty: End stops on row one",
         libros.generar(QStringLiteral("1: 1;62100001\n2: 2;62100001\n3: 3;62100001\n")), 1, 1, 2, {}, {}, {}, 2, {}},
        {"an Excel 97 workbook", LibrosPrueba::datos(QStringLiteral("presupuesto.xls")), 2, 3, 5, {2, 3, 4, 5},
         QStringLiteral("Ventas - Ventas Norte"), {}, 2,
         {{QStringLiteral("70000001"), 1, {"100", "200", "300", "400", "500", "600", "700", "800", "900", "1000", "1100", "1200.5", "0", "0", "0", "1"}},
          {QStringLiteral("62800001"), 2, {"-50.25", "0", "0", "0", "0", "0", "0", "0", "0", "0", "0", "7"}}}},
        // Currency from the cell's double rounds halves to even (1/32 and 3/32
        // are exact in binary); texts read with Spanish settings; Booleans are
        // -1 and 0; a numeric account becomes its digits; a department rounds
        // halves to even.
        {"cells converted as the parameters take them",
         libros.generar(QStringLiteral("2: a;b;2.5;7000001;0.03125;0.09375;\"1.234,5\";#b:1;#b:0;-7\n3: c;d;\"3\";\"700'01\";1\n"
                                       "4: e;f;3.5;#r:62|1|00001;2\n")),
         2, 3, 5, {}, QStringLiteral("a - b"), {}, 3,
         {{QStringLiteral("7000001"), 2, {"0.0312", "0.0938", "1234.5", "-1", "0", "-7"}}, {QStringLiteral("700'01"), 3, {"1"}},
          {QStringLiteral("62100001"), 4, {"2"}}}},
    };
    for (const Caso& c : casos) {
        SCOPED_TRACE(c.que);
        bd.sql(QStringLiteral("DELETE FROM Presupuestos"));
        eventos = {};
        ASSERT_EQ(importar(c.ruta, c.primeraFila, c.primeraColumna), QString());
        ASSERT_EQ(eventos.inicio.size(), 1u);
        EXPECT_EQ(eventos.inicio[0], std::make_pair(c.ultimaFila, QStringLiteral("Importando datos...")));
        if (!c.progreso.empty()) {
            EXPECT_EQ(filasProgreso(), c.progreso);
        }
        if (!c.primerTexto.isNull()) {
            EXPECT_EQ(eventos.progreso.front().second, c.primerTexto);
        }
        if (!c.ultimoTexto.isNull()) {
            EXPECT_EQ(eventos.progreso.back().second, c.ultimoTexto);
        }
        EXPECT_EQ(eventos.completado, std::vector<qint32>{c.filas});
        EXPECT_EQ(filas(), c.filas);
        for (const Guardada& g : c.guardadas)
            EXPECT_EQ(bd.presupuestoGuardado(g.cuenta, g.dpto).mid(0, g.meses.isEmpty() ? -1 : g.meses.size()), g.meses)
                << g.cuenta.toStdString() << "/" << g.dpto;
        EXPECT_FALSE(bd.conexion->enTransaccion());
    }
}

TEST_F(Importar, ReplacesAllTwelveMonthsOfExistingRowsKeepingMethodMaskValueAndVisibility)
{
    filaExistente("62800001", 2);
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1) VALUES (1, 2026, '62800001', 2, 5), "
                          "(2, 2027, '62800001', 2, 5)"));
    const QString d = fila(2, "2", "62800001", {"-50.25", "", "7"}) + fila(3, "1", "62800001", doce("1"));
    bd.tomarRegistro();
    ASSERT_EQ(importar(libros.generar(d)), QString());

    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("62800001"), 2),
              (QStringList{"-50.25", "0", "7", "0", "0", "0", "0", "0", "0", "0", "0", "0", "3", "5", "12.5", "0"}));
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("62800001"), 1), QStringList(doce("1") << "0" << "0" << "0" << "1"));
    // Other years and other companies are left alone.
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("62800001"), 2, 2026).constFirst(), QStringLiteral("5"));
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT M1 FROM Presupuestos WHERE Cod_Empresa = 2")).toInt(), 5);
    EXPECT_EQ(filas(), 4);

    // One transaction; the prepared texts are sent once, the insert only
    // when an update found nothing; the year's totals are read back before
    // the commit.
    EXPECT_EQ(bd.tomarRegistro(),
              (QStringList{QStringLiteral("BEGIN TRANSACTION"), kUpdate, kInsert,
                           QStringLiteral("SELECT Dpto, SUM(M1), SUM(M2), SUM(M3), SUM(M4), SUM(M5), SUM(M6), SUM(M7), SUM(M8), "
                                          "SUM(M9), SUM(M10), SUM(M11), SUM(M12) FROM Presupuestos "
                                          "WHERE Cod_Empresa = 1 AND Cod_Ejercicio = 2027 GROUP BY Dpto"),
                           QStringLiteral("COMMIT TRANSACTION")}));
}

// The commands carry the session's company and year, whichever they are.
TEST_F(Importar, TheCommandsNameTheSessionsCompanyAndYear)
{
    bd.sesion.ejercicio = 2031;
    clsImportar imp(bd.sesion);
    imp.setEmpresaDrumav(std::make_shared<EmpresaFija>(17, 2030));
    imp.setConexionDrumav(bd.conexion);
    imp.setPrimeraFilaDatos(1);
    imp.setPrimeraColumnaDatos(1);
    imp.ImportarDesdeExcel(libros.generar(QStringLiteral("1: 4;62100001;1;2;3\n")));

    ASSERT_TRUE(imp.comandoUpdate() && imp.comandoInsert());
    EXPECT_EQ(imp.comandoUpdate()->commandText(), QString(kUpdate).replace(QStringLiteral("= 1 AND Cod_Ejercicio = 2027"),
                                                                           QStringLiteral("= 17 AND Cod_Ejercicio = 2031")));
    EXPECT_EQ(imp.comandoInsert()->commandText(), QString(kInsert).replace(QStringLiteral("( 1,2027,"), QStringLiteral("( 17,2031,")));
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT M3 FROM Presupuestos WHERE Cod_Empresa = 17 AND Cod_Ejercicio = 2031 AND Dpto = 4"))
                  .toInt(),
              3);
}


// ---- Failures ----------------------------------------------------------------------

TEST_F(Importar, AnErrorInTheMiddleUndoesEveryRowAndSaysWhere)
{
    filaExistente("70000002", 1);
    const QString inicio = fila(2, "1", "70000001", doce("1")) + fila(3, "1", "70000002", doce("2")) + fila(4, QString(), QString(), {"x"});
    int numero = 0;

    // A text in the fourth month (column 8): inside the month loop.
    QString e = importar(libros.generar(inicio + fila(5, "1", "70000003", {"1", "2", "3", "doce"})), 2, 3, &numero);
    EXPECT_EQ(numero, VbError::TypeMismatch);
    EXPECT_EQ(e, kCabecera + VbError::typeMismatch().description() + QStringLiteral("\r\nFila: 5 Columna: 8"));
    EXPECT_EQ(filas(), 1);
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("70000002"), 1).constFirst(), QStringLiteral("100"));
    EXPECT_TRUE(eventos.completado.empty());
    EXPECT_EQ(filasProgreso(), (std::vector<qint32>{2, 3, 4}));
    EXPECT_FALSE(bd.conexion->enTransaccion());
    EXPECT_EQ(bd.conexion->registro().back(), QStringLiteral("ROLLBACK TRANSACTION"));

    // An error value in a department cell.
    e = importar(libros.zip(LibrosPrueba::partesMinimas(QByteArrayLiteral(
                     "<worksheet xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\"><sheetData>"
                     "<row r=\"2\"><c r=\"C2\"><v>1</v></c><c r=\"D2\" t=\"str\"><v>70000001</v></c><c r=\"E2\"><v>1</v></c></row>"
                     "<row r=\"3\"><c r=\"C3\" t=\"e\"><v>#N/A</v></c><c r=\"E3\"><v>1</v></c></row></sheetData></worksheet>"))));
    EXPECT_EQ(e, kCabecera + VbError::typeMismatch().description() + QStringLiteral("\r\nFila: 3 Columna: 3"));
    EXPECT_EQ(filas(), 1);
}

// A key the table cannot hold is named at its cell before anything is
// written: no transaction, no row, no progress.
TEST_F(Importar, KeysTheTableCannotHoldAreRefusedAtTheirCellBeforeAnythingIsWritten)
{
    struct Caso {
        const char* dpto;
        const char* cuenta;
        const char* error; // nullptr: imported
        const char* celda;
    };
    const Caso casos[] = {
        {"32768", "70000001", "El departamento 32768 ", "Fila: 3 Columna: 3"},
        {"-32769", "70000001", "El departamento -32769 ", "Fila: 3 Columna: 3"},
        {"32767,5", "70000001", "El departamento 32768 ", "Fila: 3 Columna: 3"},
        {"1", "7000000000001", "La cuenta \"7000000000001\" tiene 13 caracteres y admite como máximo 12.", "Fila: 3 Columna: 4"},
        {"-32768", "700000000001", nullptr, nullptr},
        {"32767", "700000000001", nullptr, nullptr},
    };
    for (const Caso& c : casos) {
        SCOPED_TRACE(c.dpto);
        eventos = {};
        bd.tomarRegistro();
        const QString e = importar(libros.generar(fila(2, "1", "70000002", {"1"}) + fila(3, c.dpto, c.cuenta, {"2"})));
        if (!c.error) {
            EXPECT_EQ(e, QString());
            continue;
        }
        EXPECT_TRUE(e.startsWith(kCabecera + QString::fromUtf8(c.error))) << e.toStdString();
        EXPECT_TRUE(e.endsWith(QLatin1String(c.celda))) << e.toStdString();
        EXPECT_TRUE(filasProgreso().empty());
        for (const QString& s : bd.tomarRegistro())
            EXPECT_FALSE(s.startsWith(QLatin1String("BEGIN")) || s.startsWith(QLatin1String("INSERT"))) << s.toStdString();
        EXPECT_EQ(filas(), 0);
    }
    EXPECT_EQ(filas(), 3);
}

TEST_F(Importar, ADatabaseErrorIsReportedWithItsTextAndUndoesEverything)
{
    bd.rechazar(QStringLiteral("INSERT"), QStringLiteral("69999999"), QStringLiteral("cuenta bloqueada"));
    const QString d = fila(2, "1", "70000001", {"1"}) + fila(3, "1", "69999999", {"1"});
    int numero = 0;
    const QString e = importar(libros.generar(d), 2, 3, &numero);
    EXPECT_EQ(numero, VbError::DatabaseError);
    EXPECT_TRUE(e.startsWith(kCabecera) && e.contains(QStringLiteral("cuenta bloqueada"))) << e.toStdString();
    EXPECT_TRUE(e.endsWith(QStringLiteral("Fila: 3 Columna: 17")));
    EXPECT_EQ(filas(), 0);

    // An empty account cell reaches the table as null.
    const QString sinCuenta = importar(libros.generar(fila(2, "1", QString(), {"1"})));
    EXPECT_TRUE(sinCuenta.startsWith(kCabecera)
                && (sinCuenta.contains(QStringLiteral("NOT NULL")) || sinCuenta.contains(QStringLiteral("not-null")))) << sinCuenta.toStdString();
    EXPECT_EQ(filas(), 0);
}

TEST_F(Importar, FilesThatCannotBeReadGiveTheComposedErrorAndTouchNothing)
{
    filaExistente("70000001", 1);
    const QByteArray bytes = LibrosPrueba::bytes(libros.generar(fila(2, "1", "70000001", doce("9"))));
    bd.tomarRegistro();
    for (const QString& ruta : {libros.fichero(bytes.left(bytes.size() * 2 / 3), QStringLiteral("cortado.xlsx")),
                                libros.zip({{QStringLiteral("word/document.xml"), QByteArrayLiteral("<w/>")}},
                                           QStringLiteral("documento.xlsx")),
                                libros.fichero(QByteArrayLiteral("no soy un libro"), QStringLiteral("texto.xls")),
                                libros.carpeta()}) {
        int numero = 0;
        const QString e = importar(ruta, 2, 3, &numero);
        EXPECT_EQ(numero, 1004);
        EXPECT_TRUE(e.startsWith(kCabecera + QStringLiteral("No se puede leer el libro '"))) << e.toStdString();
        EXPECT_TRUE(e.endsWith(QStringLiteral(".\r\nFila: 0 Columna: 0"))) << e.toStdString();
    }
    EXPECT_TRUE(bd.tomarRegistro().isEmpty()); // not even a transaction was begun
    EXPECT_TRUE(eventos.inicio.empty());
    EXPECT_EQ(bd.presupuestoGuardado(QStringLiteral("70000001"), 1).constFirst(), QStringLiteral("100"));
}


// ---- Creating "Excel" ------------------------------------------------------------------

TEST_F(Importar, AFailedFirstAttemptFailsTheImportEvenWhenALaterOneWorks)
{
    Espia espia;
    RegistroExcel::registrar(QStringLiteral("Excel.Application"),
                             []() -> std::unique_ptr<AplicacionExcel> { throw VbError(429, QStringLiteral("ActiveX component can't create object")); });
    RegistroExcel::registrar(QStringLiteral("Excel.Application.16"), [&] { return std::make_unique<AplicacionEspia>(espia); });
    RegistroExcel::registrar(QStringLiteral("Excel.Sheet"), [&] { return std::make_unique<AplicacionEspia>(espia); });
    const QString ruta = libros.generar(fila(2, "1", "70000001", {"1"}));
    bd.tomarRegistro();
    int numero = 0;
    EXPECT_EQ(importar(ruta, 2, 3, &numero),
              kCabecera + QStringLiteral("No existe una version Excel compatible con esta aplicación.\r\nFila: 0 Columna: 0"));
    EXPECT_EQ(numero, -2147221502);
    // Both later attempts ran; the application left over is quit.
    EXPECT_EQ(espia.creadas, 2);
    EXPECT_EQ(espia.cerradas, 1);
    EXPECT_TRUE(bd.tomarRegistro().isEmpty());
    EXPECT_EQ(filas(), 0);

    // With no reader registered at all the answer is the same.
    for (const char* n : {"Excel.Application", "Excel.Application.16", "Excel.Sheet"})
        RegistroExcel::quitar(QString::fromLatin1(n));
    EXPECT_TRUE(importar(ruta).contains(QStringLiteral("No existe una version Excel compatible con esta aplicación.")));

    // The first attempt working is enough, whatever the others would do.
    RegistroExcel::restaurar();
    RegistroExcel::registrar(QStringLiteral("Excel.Application"), [&] { return std::make_unique<AplicacionEspia>(espia); });
    RegistroExcel::quitar(QStringLiteral("Excel.Application.16"));
    espia = {};
    EXPECT_EQ(importar(ruta), QString());
    EXPECT_EQ(espia.creadas, 1);
    EXPECT_EQ(espia.cerradas, 1);
    EXPECT_EQ(filas(), 1);
}

} // namespace

// ---- What the database and the totals allow --------------------------------------------

TEST_F(Importar, AWorkbookWhoseTotalsLeaveTheCurrencyRangeImportsNothing)
{
    filaExistente("70000001", 1);
    const QString enorme = QStringLiteral("500000000000000");
    // SQLite refuses each such amount already: it cannot keep it exactly.
    const QString motivo = bd.enPostgres() ? QStringLiteral("Overflow") : QStringLiteral("274.877.906.944");
    // One row whose year overflows, and two rows that overflow their department together.
    for (const QString& d : {fila(2, "1", "62800001", {enorme, enorme}), fila(2, "2", "62800001", {enorme}) + fila(3, "2", "62100001", {enorme})}) {
        int numero = 0;
        const QString error = importar(libros.generar(d), 2, 3, &numero);
        EXPECT_EQ(numero, VbError::Overflow);
        EXPECT_TRUE(error.contains(motivo)) << error.toStdString();
        EXPECT_EQ(filas(), 1);
    }
}

TEST_F(Importar, ALockedDatabaseIsReportedAsSuchNotAsAWorkbookFault)
{
    QTemporaryDir dir;
    const QString fichero = dir.filePath(QStringLiteral("empresa.db"));
    BaseDatosPrueba enFichero(false, fichero);
    sesion = &enFichero.sesion;
    enFichero.conexion->setEsperaBloqueo(50);
    auto otro = enFichero.otraConexion();
    QSqlQuery bloqueo(otro->baseDatos());
    ASSERT_TRUE(bloqueo.exec(BaseDatosPrueba::sentenciaBloqueo()));
    const QString error = importar(libros.generar(fila(2, "1", "62800001", doce("1"))));
    EXPECT_TRUE(error.startsWith(QStringLiteral("La base de datos está bloqueada por otro usuario"))) << error.toStdString();
    EXPECT_FALSE(error.contains(QStringLiteral("formato correcto"))) << error.toStdString();
    bloqueo.exec(QStringLiteral("ROLLBACK"));
    EXPECT_EQ(enFichero.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos")).toInt(), 0);
}

// A missing .xls reader and a full disk are said as what they are, without
// the workbook's header.
TEST_F(Importar, AMissingReaderOrAFullDiskAreNotBlamedOnTheWorkbook)
{
    const QString xls = LibrosPrueba::datos(QStringLiteral("presupuesto.xls"));
    qputenv("PRESUPUESTOS_LECTOR_XLS", QFile::encodeName(libros.carpeta() + QStringLiteral("/no_hay_lector")));
    int numero = 0;
    QString e = importar(xls, 2, 3, &numero);
    qunsetenv("PRESUPUESTOS_LECTOR_XLS");
    EXPECT_EQ(numero, 429);
    EXPECT_TRUE(e.startsWith(QStringLiteral("No se puede leer el libro 'presupuesto.xls': falta el lector de libros de Excel 97-2003")))
        << e.toStdString();

    if (BaseDatosPrueba::enPostgres() || ::geteuid() != 0)
        GTEST_SKIP() << "a full disk is a small file system under an SQLite database, which needs root to mount";
    prueba::DiscoPequeno disco("2m");
    ASSERT_TRUE(disco.montado()) << disco.error();
    BaseDatosPrueba enFichero(false, disco.filePath(QStringLiteral("empresa.db")));
    sesion = &enFichero.sesion;
    enFichero.sql(QStringLiteral("CREATE TABLE Relleno (Datos BLOB)"));
    try {
        for (int i = 0; i < 1000; ++i)
            enFichero.conexion->Execute(QStringLiteral("INSERT INTO Relleno VALUES (randomblob(20000))"));
    } catch (const VbError&) {
    }
    QStringList filas;
    for (int r = 2; r < 200; ++r)
        filas << fila(r, QStringLiteral("1"), QStringLiteral("628%1").arg(r, 5, 10, QLatin1Char('0')), doce("1"));
    e = importar(libros.generar(filas.join(QString())));
    EXPECT_TRUE(e.startsWith(QStringLiteral("No queda espacio en el disco de la base de datos."))) << e.toStdString();
    EXPECT_FALSE(e.contains(QStringLiteral("formato correcto"))) << e.toStdString();
}

TEST_F(Importar, OnlyAnImportThatCommitsBecomesAStepWithItsRowsJournaled)
{
    Diario d(bd.conexion, 1);
    diario = &d;
    filaExistente("70000002", 1);
    const QString buenas = fila(2, "1", "70000001", doce("1")) + fila(3, "1", "70000002", doce("2"));
    EXPECT_FALSE(importar(libros.generar(buenas + fila(4, "1", "70000003", {"1", "doce"}))).isEmpty());
    EXPECT_FALSE(d.puedeDeshacer());
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos_Cambios")).toInt(), 0);

    ASSERT_EQ(importar(libros.generar(buenas)), QString());
    ASSERT_TRUE(d.puedeDeshacer());
    EXPECT_EQ(d.ultima()->tipo, Diario::Tipo::Importacion);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT COUNT(*) FROM Presupuestos_Cambios C JOIN Presupuestos_Operaciones O ON O.Id = C.Operacion "
                                      "WHERE Tipo = 'importacion'"))
                  .toInt(),
              2);
    EXPECT_EQ(bd.valor(QStringLiteral("SELECT SUM(Existia) FROM Presupuestos_Cambios")).toInt(), 1);
}
