#include "import/clsImportar.h"

#include "common/ErrorReport.h"
#include "common/NumerosEs.h"
#include "common/VbError.h"
#include "db/Conexion.h"
#include "db/Sql.h"
#include "import/readers/AplicacionExcel.h"
#include "store/Diario.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QMetaMethod>
#include <QSet>
#include <array>
#include <limits>
#include <map>
#include <optional>

namespace presupuestos {

namespace {

// CreateObject's error for a class that is not available: the object-error
// base + 2.
constexpr int kSinExcel = -2147221502;
// Characters of the table's account column.
constexpr int kLargoCuenta = 12;

const QString kCrLf = QStringLiteral("\r\n");

// The loop bounds are 16-bit sums, as the column number is.
qint16 suma16(qint16 a, int b)
{
    const int r = a + b;
    if (r < std::numeric_limits<qint16>::min() || r > std::numeric_limits<qint16>::max())
        throw VbError::overflow();
    return static_cast<qint16>(r);
}

// CStr of a cell's Value under Spanish settings.
QString cadena(const ValorExcel& v)
{
    switch (v.tipo) {
    case ValorExcel::Tipo::Vacia: return QString();
    case ValorExcel::Tipo::Numero: return HojaExcel::textoNumero(v.numero);
    case ValorExcel::Tipo::Texto: return v.texto;
    case ValorExcel::Tipo::Booleano: return v.booleano ? QStringLiteral("Verdadero") : QStringLiteral("Falso");
    case ValorExcel::Tipo::Error: break;
    }
    throw VbError::typeMismatch();
}

// Whether CStr of the cell is empty, without writing a number out to know.
bool textoVacio(const ValorExcel& v)
{
    switch (v.tipo) {
    case ValorExcel::Tipo::Vacia: return true;
    case ValorExcel::Tipo::Texto: return v.texto.isEmpty();
    case ValorExcel::Tipo::Numero:
    case ValorExcel::Tipo::Booleano: return false;
    case ValorExcel::Tipo::Error: break;
    }
    throw VbError::typeMismatch();
}

// A month cell as a currency parameter receives it: numbers from their
// double, texts read with Spanish settings.
Currency moneda(const ValorExcel& v)
{
    switch (v.tipo) {
    case ValorExcel::Tipo::Vacia: return Currency();
    case ValorExcel::Tipo::Numero: return Currency::fromDouble(v.numero);
    case ValorExcel::Tipo::Texto: return es::aMoneda(v.texto);
    case ValorExcel::Tipo::Booleano: return Currency::fromInt(v.booleano ? -1 : 0);
    case ValorExcel::Tipo::Error: break;
    }
    throw VbError::typeMismatch();
}

// The department cell for the integer parameter, which rounds halves to even.
QVariant entero(const ValorExcel& v)
{
    switch (v.tipo) {
    case ValorExcel::Tipo::Vacia: return QVariant();
    case ValorExcel::Tipo::Numero: return QVariant(v.numero);
    case ValorExcel::Tipo::Texto: return QVariant::fromValue(es::aMoneda(v.texto));
    case ValorExcel::Tipo::Booleano: return QVariant(v.booleano ? -1 : 0);
    case ValorExcel::Tipo::Error: break;
    }
    throw VbError::typeMismatch();
}

// The account cell for the text parameter; an empty cell is sent as null.
QVariant texto(const ValorExcel& v)
{
    if (v.vacia())
        return QVariant();
    return QVariant(cadena(v));
}

// Whether the account and month cells after the department are all empty.
bool filaVacia(const HojaExcel& hoja, qint32 fila, qint16 c)
{
    for (int col = c + 1; col <= c + 13; ++col)
        if (col <= hoja.columnasHoja() && !hoja.vacia(fila, col))
            return false;
    return true;
}

// Each row's account and department, as the loop will bind them, for the
// reads made before it. A cell that cannot be read here (nor a department
// the key type cannot hold) is left out: the loop reports it at its row.
template <class Hacer>
void recorrerClaves(const HojaExcel& hoja, qint32 desde, qint32 hasta, qint16 c, Hacer hacer)
{
    for (qint32 fila = desde; fila <= hasta; ++fila) {
        try {
            const ValorExcel& dpto = hoja.valor(fila, c);
            if (textoVacio(dpto))
                continue;
            const Currency d = dpto.tipo == ValorExcel::Tipo::Numero ? Currency::fromDouble(dpto.numero) : moneda(dpto);
            hacer(fila, cadena(hoja.valor(fila, suma16(c, 1))), d);
        } catch (const std::exception&) {
        }
    }
}

} // namespace

std::vector<std::pair<QString, qint16>> clsImportar::clavesDelLibro(const HojaExcel& hoja, qint32 ultimaFila) const
{
    std::vector<std::pair<QString, qint16>> claves;
    recorrerClaves(hoja, primeraFilaDatos_, ultimaFila, primeraColumnaDatos_,
                   [&claves](qint32, const QString& cuenta, Currency dpto) { claves.emplace_back(cuenta, dpto.toInt16()); });
    return claves;
}

CodigosDesconocidos clsImportar::buscarDesconocidos(const HojaExcel& hoja, qint32 ultimaFila) const
{
    const QString empresa = QString::number(sesion_.empresa->CodigoEmpresa());
    QSet<QString> cuentas;
    QSet<qint32> dptos;
    for (const QString& sql : {QStringLiteral("SELECT DISTINCT Cuenta FROM Cuentas WHERE Cod_Empresa = ") + empresa,
                               QStringLiteral("SELECT Codigo FROM Presupuestos_Conceptos")}) {
        Recordset rs = sesion_.conexion->Abrir(sql);
        for (; !rs.eof(); rs.MoveNext())
            cuentas.insert(rs.texto(0));
        rs.Close();
    }
    {
        Recordset rs = sesion_.conexion->Abrir(QStringLiteral("SELECT Codigo FROM Departamentos WHERE Cod_Empresa = ") + empresa);
        for (; !rs.eof(); rs.MoveNext())
            dptos.insert(rs.entero(0));
        rs.Close();
    }

    CodigosDesconocidos r;
    recorrerClaves(hoja, primeraFilaDatos_, ultimaFila, primeraColumnaDatos_,
                   [&](qint32 fila, const QString& cuenta, Currency dpto) {
                       CodigosDesconocidos::Fila f;
                       f.fila = fila;
                       // The department as the integer parameter rounds it.
                       f.dpto = dpto.toInt32();
                       f.cuenta = cuenta;
                       f.cuentaDesconocida = !cuentas.contains(f.cuenta);
                       f.dptoDesconocido = !dptos.contains(f.dpto);
                       if (!f.cuentaDesconocida && !f.dptoDesconocido)
                           return;
                       ++r.filas;
                       if (r.primeras.size() < CodigosDesconocidos::kPrimeras)
                           r.primeras.push_back(std::move(f));
                   });
    return r;
}

void clsImportar::comprobarClaves(const HojaExcel& hoja, qint32 ultimaFila, qint32& fila, qint32& columna) const
{
    // A department beyond the 16-bit key would be stored as one number and
    // journaled as another; an account beyond the column's 12 characters
    // would fail at the commit, far from its row. Both are refused at their
    // cell before anything is written, on every engine alike.
    const qint16 c = primeraColumnaDatos_;
    for (fila = primeraFilaDatos_; fila <= ultimaFila; ++fila) {
        columna = c;
        const ValorExcel& dpto = hoja.valor(fila, c);
        if (textoVacio(dpto))
            continue;
        // As the integer parameter takes it: rounded, halves to even.
        const qint32 d = (dpto.tipo == ValorExcel::Tipo::Numero ? Currency::fromDouble(dpto.numero) : moneda(dpto)).toInt32();
        if (d < std::numeric_limits<qint16>::min() || d > std::numeric_limits<qint16>::max())
            throw VbError(VbError::Overflow,
                          QStringLiteral("El departamento %1 no es un código de departamento: los códigos van de -32768 a 32767.").arg(d));
        columna = suma16(c, 1);
        const QString cuenta = cadena(hoja.valor(fila, columna));
        if (cuenta.size() > kLargoCuenta)
            throw VbError(VbError::ParameterTooLong, QStringLiteral("La cuenta \"%1\" tiene %2 caracteres y admite como máximo %3.")
                                                         .arg(cuenta)
                                                         .arg(cuenta.size())
                                                         .arg(kLargoCuenta));
    }
}

void clsImportar::comprobarTotales()
{
    // Every department's month and year totals, and the company's, as the
    // worksheet adds them with all departments shown, must stay in range.
    // The engine adds each department's months; a sum it cannot hold is an
    // overflow too.
    QString sql = QStringLiteral("SELECT Dpto");
    for (int m = 1; m <= 12; ++m)
        sql += QStringLiteral(", SUM(M") + QString::number(m) + QStringLiteral(")");
    sql += QStringLiteral(" FROM Presupuestos WHERE Cod_Empresa = ") + QString::number(sesion_.empresa->CodigoEmpresa())
           + QStringLiteral(" AND Cod_Ejercicio = ") + QString::number(sesion_.ejercicio)
           + QStringLiteral(" GROUP BY Dpto");
    std::array<__int128, 13> general{};
    try {
        Recordset rs = sesion_.conexion->Abrir(sql);
        while (!rs.eof()) {
            __int128 anual = 0;
            for (int m = 0; m < 12; ++m) {
                const __int128 v = rs.moneda(m + 1).raw();
                anual += v;
                general[static_cast<std::size_t>(m)] += v;
            }
            general[12] += anual;
            if (!Currency::enRango(anual))
                throw VbError::overflow();
            rs.MoveNext();
        }
        rs.Close();
    } catch (const VbError& e) {
        if (e.number() == VbError::DatabaseError && e.description().contains(QLatin1String("overflow"), Qt::CaseInsensitive))
            throw VbError::overflow();
        throw;
    }
    for (__int128 s : general)
        if (!Currency::enRango(s))
            throw VbError::overflow();
}

QString clsImportar::letraColumna(int columna)
{
    QString letras;
    for (; columna > 0; columna = (columna - 1) / 26)
        letras.prepend(QChar(u'A' + (columna - 1) % 26));
    return letras;
}

clsImportar::clsImportar(Sesion& sesion, QObject* parent) : QObject(parent), sesion_(sesion) {}

clsImportar::~clsImportar() = default;

void clsImportar::setEmpresaDrumav(std::shared_ptr<IEmpresa> empresa) { sesion_.empresa = std::move(empresa); }

void clsImportar::setConexionDrumav(std::shared_ptr<Conexion> conexion) { sesion_.conexion = std::move(conexion); }

bool clsImportar::CrearExcel()
{
    // Errors resume at the next statement and the recorded one is not
    // cleared between attempts: once the first attempt failed the result is
    // false whatever the later ones do, and an application a later attempt
    // created is left for the caller to quit.
    std::optional<VbError> error;
    int intento = 0;
    do {
        try {
            switch (intento) {
            case 0: ExcelApp = RegistroExcel::crear(QStringLiteral("Excel.Application")); break;
            case 1: ExcelApp = RegistroExcel::crear(QStringLiteral("Excel.Application.16")); break;
            case 2: ExcelApp = RegistroExcel::crear(QStringLiteral("Excel.Sheet")); break;
            }
        } catch (const std::exception& e) {
            error = comoVbError(e);
        }
        ++intento;
    } while (error && intento < 3);
    return !error;
}

void clsImportar::PrepararComandosImportacion()
{
    ComandoUpdate = std::make_unique<Comando>(sesion_.conexion);
    ComandoInsert = std::make_unique<Comando>(sesion_.conexion);

    QString asignaciones;
    QString columnas;
    for (int i = 1; i <= 12; ++i) {
        const QString mes = QStringLiteral("M") + QString::number(i);
        ComandoUpdate->agregarParametro(mes, TipoParametro::Moneda);
        ComandoInsert->agregarParametro(mes, TipoParametro::Moneda);
        asignaciones += QStringLiteral(", M") + QString::number(i) + QStringLiteral(" = ?");
        columnas += QStringLiteral(", M") + QString::number(i);
    }
    for (Comando* c : {ComandoUpdate.get(), ComandoInsert.get()}) {
        c->agregarParametro(QStringLiteral("Cuenta"), TipoParametro::Texto, 20);
        c->agregarParametro(QStringLiteral("Dpto"), TipoParametro::Entero);
    }
    // Only the comma goes; the blank after it stays in the text.
    asignaciones = asignaciones.mid(1);

    const QString empresa = QString::number(sesion_.empresa->CodigoEmpresa());
    const QString ejercicio = QString::number(sesion_.ejercicio);
    ComandoUpdate->setCommandText(QStringLiteral("UPDATE Presupuestos SET ") + asignaciones
                                  + QStringLiteral(" WHERE Cod_Empresa = ") + empresa
                                  + QStringLiteral(" AND Cod_Ejercicio = ") + ejercicio
                                  + QStringLiteral(" AND Cuenta = ? AND Dpto= ? "));
    ComandoUpdate->setPrepared(true);
    ComandoInsert->setCommandText(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio") + columnas
                                  + QStringLiteral(", Cuenta, Dpto)") + QStringLiteral(" VALUES ( ") + empresa
                                  + QStringLiteral(",") + ejercicio + QStringLiteral(", ?,?,?,?,?,?,?,?,?,?,?,?,?,?)"));
    ComandoInsert->setPrepared(true);
}

void clsImportar::ImportarDesdeExcel(const QString& strArchivoExcel)
{
    qint32 importadas = 0;
    bool enTransaccion = false;
    qint32 fila = 0;
    qint32 columna = 0;
    // Closed after the transaction ends either way: a rolled-back import
    // leaves no step to undo.
    std::optional<Diario::Ambito> operacion;
    informe_ = {};
    cancelada_ = false;
    try {
        if (!CrearExcel())
            throw VbError(kSinExcel, QStringLiteral("No existe una version Excel compatible con esta aplicación."));
        ExcelApp->abrirLibro(strArchivoExcel);
        const HojaExcel& hoja = ExcelApp->hojaActiva();
        PrepararComandosImportacion();

        // Column 5 says where the data ends, whichever column holds the
        // departments: one row past its last filled cell.
        const qint32 ultimaFila = hoja.filaFinArriba(5) + 1;
        if (ultimaFila > hoja.filasHoja())
            throw VbError(1004, QStringLiteral("Application-defined or object-defined error"));

        // Rows no worksheet would show are told before anything is written.
        // Only an import someone can be asked about looks for them: the
        // engine alone sends its statements and nothing more.
        const CodigosDesconocidos desconocidos = confirmar_ ? buscarDesconocidos(hoja, ultimaFila) : CodigosDesconocidos();
        if (desconocidos.filas > 0 && !confirmar_(desconocidos)) {
            cancelada_ = true;
            ExcelApp->Quit();
            return;
        }

        comprobarClaves(hoja, ultimaFila, fila, columna);
        fila = 0;
        columna = 0;

        sesion_.conexion->BeginTrans();
        enTransaccion = true;
        const qint16 ejercicio = static_cast<qint16>(sesion_.ejercicio);
        if (diario_) {
            operacion.emplace(diario_->operacion(Diario::Tipo::Importacion,
                                                 QStringLiteral("importar %1").arg(QFileInfo(strArchivoExcel).fileName())));
            // A large workbook reads the year whole, without naming its rows.
            const auto filas = static_cast<std::size_t>(std::max(0, ultimaFila - primeraFilaDatos_ + 1));
            if (filas > Diario::kLeerAnoEntero)
                diario_->preverAno(ejercicio, filas);
            else
                diario_->prever(clavesDelLibro(hoja, ultimaFila), ejercicio);
        }
        emit ProgressInit(ultimaFila, QStringLiteral("Importando datos..."));
        QCoreApplication::processEvents();

        const bool progresoConectado = isSignalConnected(QMetaMethod::fromSignal(&clsImportar::Progress));
        const qint16 c = primeraColumnaDatos_;
        std::array<Currency, 12> mesesFila{};
        for (fila = primeraFilaDatos_; fila <= ultimaFila; ++fila) {
            if (!textoVacio(hoja.valor(fila, c))) {
                int k = 0;
                const qint16 ultimoMes = suma16(c, 13);
                __int128 totalFila = 0;
                for (columna = suma16(c, 2); columna <= ultimoMes; ++columna, ++k) {
                    const Currency valor = hoja.vacia(fila, columna) ? Currency() : moneda(hoja.valor(fila, columna));
                    sql::comprobarImporte(*sesion_.conexion, valor);
                    mesesFila[static_cast<std::size_t>(k)] = valor;
                    totalFila += valor.raw();
                    ComandoUpdate->setValor(k, valor);
                    ComandoInsert->setValor(k, valor);
                }
                // A year no amount can represent would keep the worksheet from
                // showing the row's total.
                if (!Currency::enRango(totalFila))
                    throw VbError::overflow();
                const QVariant cuenta = texto(hoja.valor(fila, suma16(c, 1)));
                ComandoUpdate->setValor(12, cuenta);
                ComandoInsert->setValor(12, cuenta);
                const QVariant dpto = entero(hoja.valor(fila, c));
                ComandoUpdate->setValor(13, dpto);
                ComandoInsert->setValor(13, dpto);
                // The key as the commands bind it (the department rounded as their integer is).
                if (diario_)
                    diario_->antes(ComandoUpdate->valor(12).toString(), static_cast<qint16>(ComandoUpdate->valor(13).toInt()),
                                   ejercicio, Diario::Tipo::Importacion);

                const long afectadas = ComandoUpdate->Execute();
                if (afectadas > std::numeric_limits<qint32>::max())
                    throw VbError::overflow();
                bool otroUsuario = false;
                if (afectadas == 0) {
                    try {
                        ComandoInsert->Execute();
                        ++informe_.nuevas;
                    } catch (const VbError& e) {
                        // Another user created the row since the update found none.
                        if (e.causa() != VbError::Causa::ClaveDuplicada)
                            throw;
                        ComandoUpdate->Execute();
                        otroUsuario = true;
                        ++informe_.actualizadas;
                    }
                } else {
                    ++informe_.actualizadas;
                }
                // The journal knows the row without reading it back, but for
                // one another user created meanwhile.
                if (diario_ && !otroUsuario)
                    diario_->escritos(ComandoUpdate->valor(12).toString(), static_cast<qint16>(ComandoUpdate->valor(13).toInt()),
                                      ejercicio, mesesFila);
                ++importadas;
            } else if (!filaVacia(hoja, fila, c)) {
                ++informe_.omitidas;
            }
            // The row's texts are put together only for someone to show them.
            if (progresoConectado)
                emit Progress(fila, hoja.texto(fila, 1) + QStringLiteral(" - ") + hoja.texto(fila, 2));
            QCoreApplication::processEvents();
        }

        comprobarTotales();
        informe_.leidas = importadas + informe_.omitidas;
        informe_.desconocidas = desconocidos.filas;
        if (operacion)
            operacion->describir(QStringLiteral("importar %1 filas de %2").arg(importadas).arg(QFileInfo(strArchivoExcel).fileName()));
        ExcelApp->Quit();
        sesion_.conexion->CommitTrans();
        enTransaccion = false;
        emit ImportCompleted(importadas);
    } catch (const std::exception& e) {
        const VbError error = comoVbError(e);
        if (enTransaccion) {
            // A rollback that fails too must not hide the error that matters.
            try {
                sesion_.conexion->RollbackTrans();
            } catch (const std::exception&) {
            }
        }
        if (ExcelApp)
            ExcelApp->Quit();
        // Nor is it at fault when the installation lacks the .xls reader.
        if (error.number() == kFaltaLectorXls)
            throw error;
        const bool discoLleno = error.number() == VbError::DatabaseError && error.description().startsWith(sql::kDiscoLleno);
        if (error.causa() == VbError::Causa::SoloLectura || error.causa() == VbError::Causa::Bloqueada || discoLleno) {
            // The workbook is not at fault: say what happened to the database.
            throw VbError(error.number(), error.description() + kCrLf + kCrLf + QStringLiteral("Fila: ") + QString::number(fila)
                                              + QStringLiteral(" Columna: ") + QString::number(columna),
                          0, error.causa());
        }
        const QString lugar = error.line() > 0 ? QLatin1Char('[') + QString::number(error.line()) + QStringLiteral("] ")
                                               : QString();
        throw VbError(error.number(),
                      QStringLiteral("Error al procesar el archivo, verifique que los datos tienen el formato correcto.") + kCrLf
                          + kCrLf + QStringLiteral("Detalles del error: ") + kCrLf + lugar + error.description() + kCrLf
                          + QStringLiteral("Fila: ") + QString::number(fila) + QStringLiteral(" Columna: ")
                          + QString::number(columna));
    }
}

} // namespace presupuestos
