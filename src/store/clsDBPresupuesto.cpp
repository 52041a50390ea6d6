#include "store/clsDBPresupuesto.h"

#include "common/VbError.h"
#include "db/Conexion.h"
#include "db/Sql.h"
#include "sesion/Sesion.h"

#include <cmath>
#include <limits>

namespace presupuestos {

namespace {

// The records-affected count is kept in a 16-bit counter.
qint16 contador(long afectados)
{
    if (afectados > std::numeric_limits<qint16>::max() || afectados < std::numeric_limits<qint16>::min())
        throw VbError::overflow();
    return static_cast<qint16>(afectados);
}

QVariant entero(qint32 n) { return QVariant(n); }

} // namespace

clsDBPresupuesto::clsDBPresupuesto(const Sesion& sesion) : sesion_(sesion) { PrepararComandos(); }

clsDBPresupuesto::~clsDBPresupuesto() = default;

void clsDBPresupuesto::PrepararComandos()
{
    const auto conexion = sesion_.conexion;
    const auto empresa = [this] { return QString::number(sesion_.empresa->CodigoEmpresa()); };

    ComandoUpdate = std::make_unique<Comando>(conexion);
    ComandoUpdate->setCommandText(
        QStringLiteral("UPDATE Presupuestos ")
        + QStringLiteral(" SET M1 = ?, M2 = ?, M3 = ?, M4 = ?, M5 = ?, M6 = ?, M7 = ?, M8 = ?, M9 = ?, M10= ?,M11= ?,M12 = ?")
        + QStringLiteral(" , Metodo_Calculo = ?, Modificacion_Manual = ?, Valor = ?")
        + QStringLiteral(" WHERE Cod_Empresa = ") + empresa()
        + QStringLiteral(" AND Cod_Ejercicio = ? AND Cuenta = ? AND Dpto = ?"));
    // January is declared as a whole number on purpose: rows saved whole
    // keep January without decimals, while the insert keeps them.
    ComandoUpdate->agregarParametro(QStringLiteral("M1"), TipoParametro::Entero);
    for (int m = 2; m <= 12; ++m)
        ComandoUpdate->agregarParametro(QStringLiteral("M") + QString::number(m), TipoParametro::Moneda);
    ComandoUpdate->agregarParametro(QStringLiteral("MetCal"), TipoParametro::Entero);
    ComandoUpdate->agregarParametro(QStringLiteral("ModManual"), TipoParametro::Entero);
    ComandoUpdate->agregarParametro(QStringLiteral("Valor"), TipoParametro::Moneda);
    ComandoUpdate->agregarParametro(QStringLiteral("Cod_Ejercicio"), TipoParametro::Entero);
    ComandoUpdate->agregarParametro(QStringLiteral("Cuenta"), TipoParametro::Texto, 12);
    ComandoUpdate->agregarParametro(QStringLiteral("Dpto"), TipoParametro::Entero);
    ComandoUpdate->setPrepared(true);

    ComandoInsert = std::make_unique<Comando>(conexion);
    // Ver is left out: a new row takes the table's default.
    ComandoInsert->setCommandText(
        QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1, M2, M3, M4, M5, M6, M7, M8, M9, M10, M11, M12, Metodo_Calculo, Modificacion_Manual, Valor)")
        + QStringLiteral(" VALUES (") + empresa() + QStringLiteral(", ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"));
    ComandoInsert->agregarParametro(QStringLiteral("Cod_Ejercicio"), TipoParametro::Entero);
    ComandoInsert->agregarParametro(QStringLiteral("Cuenta"), TipoParametro::Texto, 12);
    ComandoInsert->agregarParametro(QStringLiteral("Dpto"), TipoParametro::Entero);
    for (int m = 1; m <= 12; ++m)
        ComandoInsert->agregarParametro(QStringLiteral("M") + QString::number(m), TipoParametro::Moneda);
    ComandoInsert->agregarParametro(QStringLiteral("MetCal"), TipoParametro::Entero);
    ComandoInsert->agregarParametro(QStringLiteral("ModManual"), TipoParametro::Entero);
    ComandoInsert->agregarParametro(QStringLiteral("Valor"), TipoParametro::Moneda);
    ComandoInsert->setPrepared(true);

    ComandoVer = std::make_unique<Comando>(conexion);
    ComandoVer->setCommandText(QStringLiteral("UPDATE Presupuestos ") + QStringLiteral(" SET Ver = ?")
                               + QStringLiteral(" WHERE Cod_Empresa = ") + empresa()
                               + QStringLiteral(" AND Cod_Ejercicio = ? AND Cuenta = ? AND Dpto = ?"));
    ComandoVer->agregarParametro(QStringLiteral("Ver"), TipoParametro::Booleano);
    ComandoVer->agregarParametro(QStringLiteral("Cod_Ejercicio"), TipoParametro::Entero);
    ComandoVer->agregarParametro(QStringLiteral("Cuenta"), TipoParametro::Texto, 12);
    ComandoVer->agregarParametro(QStringLiteral("Dpto"), TipoParametro::Entero);
    ComandoVer->setPrepared(true);
}

void clsDBPresupuesto::escribir(const QString& Cuenta, qint16 Dpto, qint16 Ejercicio, Diario::Tipo tipo,
                                 const std::function<void()>& escritura)
{
    if (!diario_) {
        escritura();
        return;
    }
    // The write and the journal's row about it commit together; the row is
    // locked before the journal reads what it was.
    repetirTrasInterbloqueo(*sesion_.conexion, [&] {
        Transaccion t(*sesion_.conexion);
        diario_->antes(Cuenta, Dpto, Ejercicio, tipo);
        escritura();
        t.confirmar();
    });
}

void clsDBPresupuesto::Actualizar(const clsPresupItem& item)
{
    escribir(item.Cuenta, item.Dpto, sesion_.ejercicio, Diario::Tipo::Metodo, [&] { actualizarFila(item); });
}

void clsDBPresupuesto::actualizarFila(const clsPresupItem& item)
{
    for (int i = 0; i < 12; ++i)
        ComandoUpdate->setValor(i, item.Mes(i));
    ComandoUpdate->setValor(12, entero(item.MetodoCalc));
    ComandoUpdate->setValor(13, entero(item.Manual));
    ComandoUpdate->setValor(14, item.Valor);
    ComandoUpdate->setValor(15, entero(sesion_.ejercicio));
    ComandoUpdate->setValor(16, item.Cuenta);
    ComandoUpdate->setValor(17, entero(item.Dpto));
    ultimoActualizoExistente_ = true;
    if (contador(ComandoUpdate->Execute()) != 0)
        return;
    ultimoActualizoExistente_ = false;

    ComandoInsert->setValor(0, entero(sesion_.ejercicio));
    ComandoInsert->setValor(1, item.Cuenta);
    ComandoInsert->setValor(2, entero(item.Dpto));
    for (int i = 0; i < 12; ++i)
        ComandoInsert->setValor(3 + i, item.Mes(i));
    ComandoInsert->setValor(15, entero(item.MetodoCalc));
    ComandoInsert->setValor(16, entero(item.Manual));
    ComandoInsert->setValor(17, item.Valor);
    insertarOActualizar([this] { ComandoUpdate->Execute(); });
}

void clsDBPresupuesto::ActualizacionManual(QString Cuenta, qint16 Dpto, qint16 Mes, Currency Valor)
{
    escribir(Cuenta, Dpto, sesion_.ejercicio, Diario::Tipo::Tecleo, [&] { actualizarMes(Cuenta, Dpto, Mes, Valor); });
}

void clsDBPresupuesto::actualizarMes(const QString& Cuenta, qint16 Dpto, qint16 Mes, Currency Valor)
{
    // Beyond month 15 the bit no longer fits the 16-bit set: Overflow.
    const qint16 bit = Mes >= 1 && Mes <= 15 ? static_cast<qint16>(1 << (Mes - 1))
                                             : Currency::fromDouble(std::pow(2.0, Mes - 1)).toInt16();
    sql::comprobarImporte(*sesion_.conexion, Valor);
    const QString importe = sesion_.empresa->NumeroSQL(Valor);

    // The OR keeps the bits of months typed earlier; the other months, the
    // method and the value are left alone. The row's part of the text (and
    // its account as the engine takes it) is made once for the months a
    // batch writes one after another.
    const qint16 empresa = static_cast<qint16>(sesion_.empresa->CodigoEmpresa());
    if (textoFila_.isNull() || filaEmpresa_ != empresa || filaEjercicio_ != sesion_.ejercicio || filaDpto_ != Dpto
        || filaCuenta_ != Cuenta) {
        filaEmpresa_ = empresa;
        filaEjercicio_ = sesion_.ejercicio;
        filaDpto_ = Dpto;
        filaCuenta_ = Cuenta;
        filaCuentaUtf8_ = Cuenta.toUtf8();
        const QString cuenta = sql::texto(Cuenta);
        textoFila_.clear();
        textoFila_.reserve(96 + cuenta.size());
        textoFila_.append(QStringView(u" WHERE Cod_Empresa = "));
        sql::anexarEntero(textoFila_, sesion_.empresa->CodigoEmpresa());
        textoFila_.append(QStringView(u" AND Cod_Ejercicio = "));
        sql::anexarEntero(textoFila_, sesion_.ejercicio);
        textoFila_.append(QStringView(u" AND Cuenta = '"));
        textoFila_.append(cuenta);
        textoFila_.append(QStringView(u"' AND Dpto = "));
        sql::anexarEntero(textoFila_, Dpto);
    }
    char16_t numeros[16];
    // Each of the two 16-bit numbers written into its half of the buffer.
    const auto cifras = [&numeros](int desde, qint16 n) {
        int i = desde;
        unsigned m = n < 0 ? 0u - static_cast<unsigned>(n) : static_cast<unsigned>(n);
        do {
            numeros[--i] = static_cast<char16_t>(u'0' + m % 10);
            m /= 10;
        } while (m != 0);
        if (n < 0)
            numeros[--i] = u'-';
        return QStringView(numeros + i, desde - i);
    };
    const QStringView mesTexto = cifras(8, Mes);
    const QStringView bitTexto = cifras(16, bit);
    constexpr QStringView kUpdate = u"UPDATE Presupuestos  SET M";
    constexpr QStringView kIgual = u" = ";
    constexpr QStringView kManual = u", Modificacion_Manual |= ";
    QString sql(kUpdate.size() + mesTexto.size() + kIgual.size() + importe.size() + kManual.size() + bitTexto.size()
                    + textoFila_.size(),
                Qt::Uninitialized);
    QChar* d = sql.data();
    for (const QStringView parte : {kUpdate, mesTexto, kIgual, QStringView(importe), kManual, bitTexto, QStringView(textoFila_)}) {
        std::copy(parte.begin(), parte.end(), d);
        d += parte.size();
    }
    // The log shows the text above; the engine gets it prepared once per
    // month, its values bound.
    std::unique_ptr<Comando>& mes = ComandoMes[static_cast<std::size_t>(Mes - 1)];
    if (!mes) {
        mes = std::make_unique<Comando>(sesion_.conexion);
        mes->setCommandText(QStringLiteral("UPDATE Presupuestos  SET M") + QString::number(Mes)
                            + QStringLiteral(" = ?, Modificacion_Manual |= ? WHERE Cod_Empresa = ")
                            + QString::number(sesion_.empresa->CodigoEmpresa())
                            + QStringLiteral(" AND Cod_Ejercicio = ? AND Cuenta = ? AND Dpto = ?"));
        mes->agregarParametro(QStringLiteral("Importe"), TipoParametro::Moneda);
        mes->agregarParametro(QStringLiteral("Bit"), TipoParametro::Entero);
        mes->agregarParametro(QStringLiteral("Cod_Ejercicio"), TipoParametro::Entero);
        mes->agregarParametro(QStringLiteral("Cuenta"), TipoParametro::Texto, 12);
        mes->agregarParametro(QStringLiteral("Dpto"), TipoParametro::Entero);
        mes->setPrepared(true);
    }
    mes->setValor(0, Valor);
    mes->setEntero(1, bit);
    mes->setEntero(2, sesion_.ejercicio);
    mes->setTexto(3, Cuenta, filaCuentaUtf8_);
    mes->setEntero(4, Dpto);
    if (contador(mes->Execute(sql)) != 0)
        return;

    insertVacio(Cuenta, Dpto);
    ComandoInsert->setValor(Mes + 2, Valor);
    ComandoInsert->setValor(15, entero(0));
    ComandoInsert->setValor(16, entero(bit));
    ComandoInsert->setValor(17, Currency());
    insertarOActualizar([&] { mes->Execute(sql); });
}

void clsDBPresupuesto::SetVisible(QString Cuenta, qint16 Dpto, bool Visible)
{
    escribir(Cuenta, Dpto, sesion_.ejercicio, Diario::Tipo::Visibilidad, [&] { fijarVisible(Cuenta, Dpto, Visible); });
}

void clsDBPresupuesto::fijarVisible(const QString& Cuenta, qint16 Dpto, bool Visible)
{
    ComandoVer->setValor(0, Visible);
    ComandoVer->setValor(1, entero(sesion_.ejercicio));
    ComandoVer->setValor(2, Cuenta);
    ComandoVer->setValor(3, entero(Dpto));
    if (contador(ComandoVer->Execute()) != 0)
        return;

    insertVacio(Cuenta, Dpto);
    ComandoInsert->setValor(15, entero(0));
    ComandoInsert->setValor(16, entero(0));
    ComandoInsert->setValor(17, Currency());
    // The new row has the table's default flag; give it the one asked for.
    // Created meanwhile by another user, it gets the flag all the same.
    insertarOActualizar([] {});
    ComandoVer->Execute();
}

void clsDBPresupuesto::insertarOActualizar(const std::function<void()>& actualizar)
{
    try {
        ComandoInsert->Execute();
    } catch (const VbError& e) {
        if (e.causa() != VbError::Causa::ClaveDuplicada)
            throw;
        actualizar();
    }
}

clsPresupItem clsDBPresupuesto::guardadoPorUltimoActualizar(const clsPresupItem& item) const
{
    clsPresupItem guardado = item;
    if (ultimoActualizoExistente_)
        guardado.setMes(0, Currency::fromInt(item.Mes(0).toInt32()));
    return guardado;
}

bool clsDBPresupuesto::FilaGuardada::todoCero() const
{
    for (const Currency& m : meses)
        if (!m.isZero())
            return false;
    return true;
}

std::optional<clsDBPresupuesto::FilaGuardada> clsDBPresupuesto::Leer(const QString& Cuenta, qint16 Dpto) const
{
    QString sql = QStringLiteral("SELECT M1");
    for (int m = 2; m <= 12; ++m)
        sql += QStringLiteral(", M") + QString::number(m);
    sql += QStringLiteral(", Metodo_Calculo, Modificacion_Manual, Valor FROM Presupuestos WHERE Cod_Empresa = ")
           + QString::number(sesion_.empresa->CodigoEmpresa()) + QStringLiteral(" AND Cod_Ejercicio = ")
           + QString::number(sesion_.ejercicio) + QStringLiteral(" AND Cuenta = '") + sql::texto(Cuenta)
           + QStringLiteral("' AND Dpto = ") + QString::number(Dpto);
    Recordset rs = sesion_.conexion->Abrir(sql);
    if (rs.eof())
        return std::nullopt;
    FilaGuardada f;
    for (int m = 0; m < 12; ++m)
        f.meses[static_cast<std::size_t>(m)] = rs.moneda(m);
    f.metodo = rs.moneda(12).toInt32();
    f.manual = rs.moneda(13).toInt32();
    f.valor = rs.moneda(14);
    rs.Close();
    return f;
}

void clsDBPresupuesto::Restaurar(const QString& Cuenta, qint16 Dpto, qint16 Ejercicio, const Diario::Imagen& imagen)
{
    escribir(Cuenta, Dpto, Ejercicio, Diario::Tipo::Deshacer, [&] { restaurarFila(Cuenta, Dpto, Ejercicio, imagen); });
}

void clsDBPresupuesto::restaurarFila(const QString& Cuenta, qint16 Dpto, qint16 Ejercicio, const Diario::Imagen& imagen)
{
    if (!imagen.existe) {
        // Prepared once: undoing an import takes tens of thousands of rows away.
        if (!ComandoBorrar) {
            ComandoBorrar = std::make_unique<Comando>(sesion_.conexion);
            ComandoBorrar->setCommandText(QStringLiteral("DELETE FROM Presupuestos WHERE Cod_Empresa = ")
                                          + QString::number(sesion_.empresa->CodigoEmpresa())
                                          + QStringLiteral(" AND Cod_Ejercicio = ? AND Cuenta = ? AND Dpto = ?"));
            ComandoBorrar->agregarParametro(QStringLiteral("Cod_Ejercicio"), TipoParametro::Entero);
            ComandoBorrar->agregarParametro(QStringLiteral("Cuenta"), TipoParametro::Texto, 12);
            ComandoBorrar->agregarParametro(QStringLiteral("Dpto"), TipoParametro::Entero);
            ComandoBorrar->setPrepared(true);
        }
        ComandoBorrar->setEntero(0, Ejercicio);
        ComandoBorrar->setValor(1, Cuenta);
        ComandoBorrar->setEntero(2, Dpto);
        ComandoBorrar->Execute();
        return;
    }
    if (!ComandoRestaurar) {
        const auto conexion = sesion_.conexion;
        const QString empresa = QString::number(sesion_.empresa->CodigoEmpresa());
        ComandoRestaurar = std::make_unique<Comando>(conexion);
        QString asignaciones;
        for (int m = 1; m <= 12; ++m)
            asignaciones += QStringLiteral("M") + QString::number(m) + QStringLiteral(" = ?, ");
        ComandoRestaurar->setCommandText(QStringLiteral("UPDATE Presupuestos SET ") + asignaciones
                                         + QStringLiteral("Metodo_Calculo = ?, Modificacion_Manual = ?, Valor = ?, Ver = ?")
                                         + QStringLiteral(" WHERE Cod_Empresa = ") + empresa
                                         + QStringLiteral(" AND Cod_Ejercicio = ? AND Cuenta = ? AND Dpto = ?"));
        ComandoInsertCompleto = std::make_unique<Comando>(conexion);
        ComandoInsertCompleto->setCommandText(
            QStringLiteral("INSERT INTO Presupuestos (M1, M2, M3, M4, M5, M6, M7, M8, M9, M10, M11, M12, Metodo_Calculo, "
                           "Modificacion_Manual, Valor, Ver, Cod_Ejercicio, Cuenta, Dpto, Cod_Empresa)")
            + QStringLiteral(" VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ") + empresa + QStringLiteral(")"));
        // Every month keeps its decimals: the row comes back exactly as it was.
        for (Comando* c : {ComandoRestaurar.get(), ComandoInsertCompleto.get()}) {
            for (int m = 1; m <= 12; ++m)
                c->agregarParametro(QStringLiteral("M") + QString::number(m), TipoParametro::Moneda);
            c->agregarParametro(QStringLiteral("MetCal"), TipoParametro::Entero);
            c->agregarParametro(QStringLiteral("ModManual"), TipoParametro::Entero);
            c->agregarParametro(QStringLiteral("Valor"), TipoParametro::Moneda);
            c->agregarParametro(QStringLiteral("Ver"), TipoParametro::Booleano);
            c->agregarParametro(QStringLiteral("Cod_Ejercicio"), TipoParametro::Entero);
            c->agregarParametro(QStringLiteral("Cuenta"), TipoParametro::Texto, 12);
            c->agregarParametro(QStringLiteral("Dpto"), TipoParametro::Entero);
            c->setPrepared(true);
        }
    }
    for (Comando* c : {ComandoRestaurar.get(), ComandoInsertCompleto.get()}) {
        for (int m = 0; m < 12; ++m)
            c->setValor(m, imagen.meses[static_cast<std::size_t>(m)]);
        c->setValor(12, entero(imagen.metodo));
        c->setValor(13, entero(imagen.manual));
        c->setValor(14, imagen.valor);
        c->setValor(15, imagen.ver);
        c->setValor(16, entero(Ejercicio));
        c->setValor(17, Cuenta);
        c->setValor(18, entero(Dpto));
    }
    if (contador(ComandoRestaurar->Execute()) == 0) {
        try {
            ComandoInsertCompleto->Execute();
        } catch (const VbError& e) {
            if (e.causa() != VbError::Causa::ClaveDuplicada)
                throw;
            ComandoRestaurar->Execute();
        }
    }
}

void clsDBPresupuesto::insertVacio(const QString& Cuenta, qint16 Dpto)
{
    ComandoInsert->setValor(0, entero(sesion_.ejercicio));
    ComandoInsert->setValor(1, Cuenta);
    ComandoInsert->setValor(2, entero(Dpto));
    for (int i = 0; i < 12; ++i)
        ComandoInsert->setValor(3 + i, Currency());
}

} // namespace presupuestos
