#include "HojaPrueba.h"

#include "calculation/dialog/frmOperaciones.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/core/Columnas.h"

#include <QCheckBox>
#include <QLineEdit>
#include <stdexcept>

namespace presupuestos::prueba {

void crearEmpresaPequena(BaseDatosPrueba& bd)
{
    bd.sql(QStringLiteral("INSERT INTO Empresas VALUES (1, 'Pequeña', 2026, '1,2,3,4,8')"));
    bd.sql(QStringLiteral("INSERT INTO Departamentos VALUES (1, 1, 'Norte'), (1, 2, 'Sur')"));
    bd.sql(QStringLiteral("INSERT INTO Config_Balances (Cod_Empresa, TipoBalance, Codigo, Tipo, Texto, Padre, Ver) VALUES "
                          "(1, 11, 1, 0, 'INGRESOS', 0, 1), (1, 11, 2, 0, 'Ventas', 1, 1), (1, 11, 3, 0, 'GASTOS', 0, 1),"
                          "(1, 11, 4, 0, 'Servicios', 3, 1), (1, 11, 5, 0, 'Suministros', 4, 1), (1, 11, 6, 0, 'Vacía', 3, 1),"
                          "(1, 11, 245, 0, 'ESTADÍSTICAS', 0, 1),"
                          "(1, 11, 20, 1, '7000', 2, 1), (1, 11, 21, 1, '6280', 5, 1), (1, 11, 22, 1, '6210', 4, 1),"
                          "(1, 11, 23, 1, '6230', 4, 0), (1, 11, 24, 1, '9000', 2, 1), (1, 11, 246, 1, 'CTO002', 245, 1),"
                          "(1, 12, 30, 1, '6280', 5, 1)"));
    bd.sql(QStringLiteral("INSERT INTO Presupuestos_Conceptos VALUES ('CTO002', 'Días con actividad')"));
    bd.sql(QStringLiteral("INSERT INTO Cuentas VALUES (1, 2026, '70000001', 'Ventas textil'), (1, 2026, '70000002', 'Ventas calzado'),"
                          "(1, 2026, '62800001', 'Electricidad'), (1, 2026, '62100001', 'Alquiler'), (1, 2026, '62300001', 'Asesoría'),"
                          "(1, 2026, '7000', 'Ventas de mercaderías'), (1, 2025, '70009999', 'Cuenta cerrada')"));
    // Names that look like the syntax the connection adapts for SQLite.
    bd.sql(QStringLiteral("INSERT INTO Cuentas VALUES (1, 2026, '90000001', 'Ventas TOP 2 tiendas'), (1, 2026, '90000002', 'Caja.dbo.Central'),"
                          "(1, 2026, '90000003', 'x ISNULL( y'), (1, 2026, '90000004', '##tabla'), (1, 2026, '90000005', 'a |= b'),"
                          "(1, 2026, '90000006', 'Bar D''Angelo')"));
    bd.sql(QStringLiteral("INSERT INTO Presupuestos (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, M1, M2, M3, M4, M5, M6, M7, M8, M9, M10, M11, M12, "
                          "Metodo_Calculo, Modificacion_Manual, Valor) VALUES "
                          "(1, 2027, '70000001', 1, 100, 100, 100, 100, 100, 100, 100, 100, 100, 100, 100, 100, 3, 4, 100),"
                          "(1, 2027, '62800001', 2, -50.5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0)"));
    bd.sql(QStringLiteral("INSERT INTO Acumulados_Dpto (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, H1, D1) VALUES (1, 2026, '70000001', 1, 1000, 100)"));
}

std::string mensajesMostrados(const PlataformaDePrueba& p)
{
    QString r;
    for (const auto& m : p.mensajes->mostrados)
        r += QLatin1Char('[') + m.titulo + QStringLiteral("] ") + m.prompt + QLatin1Char('\n');
    return r.toStdString();
}

HojaAbierta::HojaAbierta(bool demo, const QString& fichero)
    : bd(demo, fichero == kEnFichero ? carpeta.filePath(QStringLiteral("empresa.db")) : fichero)
{
    if (!demo)
        crearEmpresaPequena(bd);
    clase.setEmpresaLarvex(bd.empresa);
    clase.setConexionLarvex(bd.conexion);
    clase.Show();
    hoja = clase.formulario();
    hoja->Form_Activate();
}

ModeloRejilla& HojaAbierta::m() { return hoja->vsPresupuesto->modelo(); }

int filaDe(const ModeloRejilla& m, const QString& cuenta, const QString& dpto)
{
    for (int r = 1; r < m.Rows(); ++r)
        if (!m.IsSubtotal(r) && m.TextMatrix(r, hoja::kCuenta) == cuenta && m.TextMatrix(r, hoja::kDpto) == dpto)
            return r;
    return -1;
}

void HojaAbierta::teclear(int fila, int col, const QString& texto, bool intro)
{
    m().Select(fila, col);
    bool cancelar = false;
    hoja->vsPresupuesto_BeforeEdit(fila, col, cancelar);
    if (cancelar)
        throw std::logic_error("the edit was cancelled");
    m().setTextMatrix(fila, col, texto);
    if (intro)
        hoja->vsPresupuesto_KeyPressEdit(fila, col, 13);
    hoja->vsPresupuesto_AfterEdit(fila, col);
}

QVariant HojaAbierta::campo(const QString& columna, const QString& cuenta, int dpto)
{
    return bd.valor(QStringLiteral("SELECT %1 FROM Presupuestos WHERE Cod_Ejercicio = 2027 AND Cuenta = '%2' AND Dpto = %3")
                        .arg(columna, cuenta)
                        .arg(dpto));
}

QStringList textosDe(const ModeloRejilla& m, int fila, std::initializer_list<int> columnas)
{
    QStringList r;
    for (int c : columnas)
        r << m.TextMatrix(fila, c);
    return r;
}

QStringList HojaAbierta::textos(int fila, std::initializer_list<int> columnas) { return textosDe(m(), fila, columnas); }

QStringList HojaAbierta::guardados(const QString& cuenta, int dpto, std::initializer_list<int> campos)
{
    const QStringList fila = bd.presupuestoGuardado(cuenta, dpto);
    QStringList r;
    for (int i : campos)
        r << fila.value(i);
    return r;
}

void HojaAbierta::pegar(int fila, int col, const QString& texto)
{
    plataforma.portapapeles->contenido = texto;
    m().Select(fila, col);
    hoja->Copiar_Desde_Clipboard();
}

void HojaAbierta::irA(int fila, int col)
{
    m().Select(fila, col);
    hoja->vsPresupuesto_RowColChange();
}

void HojaAbierta::aplicar(int fila, int metodo, const QString& valor)
{
    irA(fila, hoja::colMes(2));
    frmOperaciones* d = hoja->operaciones();
    d->setMetodoCalculo(metodo);
    d->txtValor->setText(valor);
    d->cmdAplicar_Click();
}

void HojaAbierta::mostrarHistorico()
{
    hoja->chkMostrarHistorico->setChecked(true);
    hoja->chkMostrarHistorico_Click();
}

void HojaAbierta::decimales(int n)
{
    hoja->FlatEdit1->setText(QString::number(n));
    hoja->AplicarDecimales();
}

std::vector<QString> HojaAbierta::mostrados()
{
    std::vector<QString> r;
    for (const auto& x : plataforma.mensajes->mostrados)
        r.push_back(x.prompt);
    plataforma.mensajes->mostrados.clear();
    return r;
}

int HojaAbierta::escrituras()
{
    int n = 0;
    for (const QString& t : bd.tomarRegistro())
        n += t.startsWith(QLatin1String("UPDATE")) || t.startsWith(QLatin1String("INSERT"));
    return n;
}

} // namespace presupuestos::prueba
