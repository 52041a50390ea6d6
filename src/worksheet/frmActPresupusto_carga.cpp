// Loading of the budget and history grids, their subtotals and the
// completion bars, and the statistics read from the retail database.

#include "common/ErrorReport.h"
#include "common/NumerosEs.h"
#include "common/Plataforma.h"
#include "host/modPublic.h"
#include "worksheet/core/ConsultasHoja.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/frmActPresupusto.h"
#include "worksheet/core/frmActPresupusto_comun.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QSplitter>

namespace presupuestos {

using namespace modPublic;
using namespace hoja;

namespace {

// Switches a grid's redrawing off for a scope, and back on however it ends.
class SinRedibujar {
public:
    explicit SinRedibujar(ModeloRejilla& m) : m_(m) { m_.setRedraw(false); }
    ~SinRedibujar() { m_.setRedraw(true); }

private:
    ModeloRejilla& m_;
};
} // namespace

void frmActPresupusto::DisenarRejilla(VistaRejilla* rejilla)
{
    ModeloRejilla& m = rejilla->modelo();
    m.setRedraw(false);
    m.setCols(20);
    m.setRows(1);
    m.setFixedRows(1);
    m.setFontSize(10);
    m.setRowHeightMin(315);
    m.setBackColorFixed(Color2);
    m.setBackColorSel(Color3);
    m.setBackColor(kBlanco);
    m.setTextMatrix(0, 0, QStringLiteral("Dpto"));
    m.setTextMatrix(0, 2, QStringLiteral("Cuenta"));
    m.setTextMatrix(0, 3, QStringLiteral("Nombre"));
    for (int mes = 1; mes <= 12; ++mes)
        m.setTextMatrix(0, mes + 3, es::nombreMes(mes));
    m.setTextMatrix(0, 16, QStringLiteral("Total"));
    m.setColWidth(2, 1200);
    m.setColWidth(3, 2500);
    for (int c = 4; c <= 16; ++c) {
        m.setColWidth(c, 1000);
        m.setColAlignment(c, ModeloRejilla::Alineacion::Derecha);
    }
    for (int c : {0, 1, 17, 18, 19})
        m.setColHidden(c, true);
    m.setRedraw(true);
    rejilla->setEditable(rejilla == vsPresupuesto);
}

void frmActPresupusto::llenarRejilla(VistaRejilla* rejilla, Recordset& rs, bool conDatosCalculo, int* filas, int* filasConValores)
{
    ModeloRejilla& m = rejilla->modelo();
    auto indice = [&rs](const QString& nombre) {
        const int i = rs.indiceCampo(nombre);
        if (i < 0 && !rs.eof())
            throw VbError::itemNotFound();
        return i;
    };
    const int iDpto = indice(QStringLiteral("Dpto")), iDptoNombre = indice(QStringLiteral("Dpto_Nombre"));
    const int iCuenta = indice(QStringLiteral("Cuenta")), iNombre = indice(QStringLiteral("Nombre"));
    int iMes[12];
    for (int mes = 1; mes <= 12; ++mes)
        iMes[mes - 1] = indice(QStringLiteral("M%1").arg(mes));
    int iMetodo = -1, iManual = -1, iValor = -1;
    if (conDatosCalculo) {
        iMetodo = indice(QStringLiteral("Metodo_Calculo"));
        iManual = indice(QStringLiteral("Modificacion_Manual"));
        iValor = indice(QStringLiteral("Valor"));
    }
    QStringList campos;
    campos.reserve(20);
    while (!rs.eof()) {
        campos.clear();
        campos << QString::number(rs.moneda(iDpto).toInt32()) << rs.texto(iDptoNombre) << rs.texto(iCuenta) << rs.texto(iNombre);
        int mascara = 0;
        if (conDatosCalculo)
            mascara = rs.moneda(iManual).toInt16();
        // A year that no amount can represent shows as such: one row stored
        // out of range must not keep the worksheet from opening.
        Suma total = 0;
        for (int mes = 0; mes < 12; ++mes) {
            const Currency importe = rs.moneda(iMes[mes]).rounded(Decimales);
            total += importe.raw();
            campos << es::formatear(importe, FormatoNumero);
        }
        campos << ModeloRejilla::FormatearSuma(total, FormatoNumero);
        if (conDatosCalculo)
            campos << QString::number(rs.moneda(iMetodo).toInt32()) << QString::number(mascara) << rs.moneda(iValor).toPlainText();
        m.AddItem(campos.join(QLatin1Char('\t')));
        const int r = m.Rows() - 1;
        for (int mes = 1; mes <= 12; ++mes) {
            if (mascara & (1 << (mes - 1)))
                m.setCellBackColor(r, mes + 3, Color1);
        }
        ++*filas;
        if (total != 0)
            ++*filasConValores;
        rs.MoveNext();
    }
}

void frmActPresupusto::fijarBarra(QProgressBar* barra, int valor, int maximo)
{
    barra->setProperty("maximo", maximo);
    barra->setProperty("valor", valor);
    // An empty range would turn the bar into a busy indicator.
    barra->setRange(0, std::max(1, maximo));
    barra->setValue(std::clamp(valor, 0, std::max(1, maximo)));
    QString texto;
    if (maximo >= 1)
        texto = es::formatear(static_cast<double>(valor) / maximo, QStringLiteral("0%"));
    barra->setFormat(texto);
    barra->setProperty("texto", texto);
}

void frmActPresupusto::indexarFilas()
{
    const ModeloRejilla& m = vsPresupuesto->modelo();
    filaPorClave_.clear();
    filaPorClave_.reserve(m.Rows());
    for (int r = 1; r < m.Rows(); ++r)
        if (!m.IsSubtotal(r))
            filaPorClave_.insert(clave(m.TextMatrix(r, 2), es::valEntero(m.TextMatrix(r, 0))), r);
}

bool frmActPresupusto::cuentaSeleccionada(QString* cuenta) const
{
    const ModeloRejilla& cuentas = vsFiltroCuentas->modelo();
    const bool hay = cuentas.Row() >= 1;
    *cuenta = hay ? cuentas.TextMatrix(cuentas.Row(), 1) : QString();
    return hay;
}

void frmActPresupusto::CargarPresupuesto()
{
    ++cargasPresupuesto;
    conManejador(kForm + QStringLiteral("CargarPresupuesto"), [this] {
        const ModeloRejilla& cuentas = vsFiltroCuentas->modelo();
        const ModeloRejilla& categorias = vsFiltrosCategoria->modelo();
        QString cuenta;
        const bool hayCuenta = cuentaSeleccionada(&cuenta);
        if (categorias.Row() >= 0 && cuentas.Row() >= 0)
            lblSeleccion->setText(categorias.TextMatrix(categorias.Row(), 1).trimmed() + QStringLiteral(" - ")
                                  + cuentas.TextMatrix(cuentas.Row(), 1));
        const QString dptos = GetFiltroDptos();
        const QString sql = consultas::presupuesto(TablaFiltroCuentas, EmpresaActiva->CodigoEmpresa(), EjercicioActivo,
                                                   VerPresupuestables, dptos, cuenta, hayCuenta);
        Recordset rs = ConexionActiva->Abrir(sql);
        int filas = 0;
        int conValores = 0;
        {
            ModeloRejilla& m = vsPresupuesto->modelo();
            SinRedibujar sin(m);
            m.setRows(1);
            llenarRejilla(vsPresupuesto, rs, true, &filas, &conValores);
            rs.Close();
            CrearTotales(vsPresupuesto);
            indexarFilas();
        }
        fijarBarra(pbrSeleccion, conValores, filas);
        if (PrimeraActivacion)
            fijarBarra(pbrTotal, conValores, filas);
    });
}

void frmActPresupusto::SetProgreesFila(Currency TotalAnterior, Currency TotalNuevo)
{
    conManejador(kForm + QStringLiteral("SetProgreesFila"), [&] {
        int d = 0;
        if (TotalAnterior.isZero() && !TotalNuevo.isZero())
            d = 1;
        else if (!TotalAnterior.isZero() && TotalNuevo.isZero())
            d = -1;
        if (d == 0)
            return;
        for (QProgressBar* barra : {pbrSeleccion, pbrTotal}) {
            const int maximo = barra->property("maximo").toInt();
            fijarBarra(barra, barra->property("valor").toInt() + d, maximo);
        }
    });
}

void frmActPresupusto::CrearTotales(VistaRejilla* rejilla)
{
    conManejador(kForm + QStringLiteral("CrearTotales"), [this, rejilla] {
        ModeloRejilla& m = rejilla->modelo();
        for (int c = 4; c <= 16; ++c) {
            m.setSubtotalPosition(ModeloRejilla::PosicionSubtotal::Debajo);
            m.Subtotal(1, c, FormatoNumero, Color4, QStringLiteral("%s"));
            if (NumDptosFiltro() > 1) {
                m.setSubtotalPosition(ModeloRejilla::PosicionSubtotal::Encima);
                m.Subtotal(-1, c, FormatoNumero);
            }
        }
        for (int r = 1; r < m.Rows(); ++r) {
            if (m.IsSubtotal(r))
                m.setTextMatrix(r, 3, m.TextMatrix(r, 1));
        }
        if (m.Rows() > 1)
            m.setCellBackColor(1, 16, m.Rows() - 1, 16, Color4);
    });
}

void frmActPresupusto::RecalcularFilas(int FilaDesde, int FilaHasta, int ColDesde, int ColHasta)
{
    ModeloRejilla& m = vsPresupuesto->modelo();
    // Only whether a total is zero moves the completion bars.
    auto indicador = [](Suma s, bool desbordada) { return Currency::fromRaw(s != 0 || desbordada ? 1 : 0); };
    for (int r = FilaDesde; r <= FilaHasta; ++r) {
        Suma total = 0;
        for (int c = 4; c <= 15; ++c)
            total += ModeloRejilla::ValorSuma(m.TextMatrix(r, c));
        bool desbordadoAntes = false;
        const Suma antes = ModeloRejilla::ValorSuma(m.TextMatrix(r, 16), &desbordadoAntes);
        SetProgreesFila(indicador(antes, desbordadoAntes), indicador(total, false));
        m.setTextMatrix(r, 16, ModeloRejilla::FormatearSuma(total, FormatoNumero));
        m.setCellForeColor(r, 16, total < 0 ? kRojo : QColor());
    }
    m.setSubtotalPosition(ModeloRejilla::PosicionSubtotal::Debajo);
    for (int c = ColDesde; c <= ColHasta; ++c)
        m.Subtotal(1, c, FormatoNumero, Color4, QStringLiteral("%s"));
    m.Subtotal(1, 16, FormatoNumero, Color4, QStringLiteral("%s"));
    if (NumDptosFiltro() < 2)
        return;
    m.setSubtotalPosition(ModeloRejilla::PosicionSubtotal::Encima);
    for (int c = ColDesde; c <= ColHasta; ++c)
        m.Subtotal(-1, c, FormatoNumero);
    m.Subtotal(-1, 16, FormatoNumero);
}

// ---------------------------------------------------------------------------
// History and statistics
// ---------------------------------------------------------------------------

void frmActPresupusto::ResolverEnlaceDrumav()
{
    BDPelvor = QStringLiteral("[Pelvor]");
    EmpresaPelvor = 0;
    // Without a retail database the statistics simply stay at zero; the
    // worksheet opens all the same.
    try {
        Recordset rs = ConexionActiva->Abrir(QStringLiteral("SELECT BDPelvor FROM Configuracion"));
        if (!rs.eof())
            BDPelvor = rs.texto(0);
        rs.Close();
        Recordset re = ConexionActiva->Abrir(consultas::empresaRetail(BDPelvor, EmpresaActiva->CodigoEmpresa()));
        if (!re.eof())
            EmpresaPelvor = static_cast<qint16>(re.entero(0));
        re.Close();
    } catch (const VbError&) {
        EmpresaPelvor = 0;
    }
}

void frmActPresupusto::GetDrumavData(bool asincrono)
{
    conManejador(kForm + QStringLiteral("GetDrumavData"), [this, asincrono] {
        if (EmpresaPelvor <= 0)
            return;
        const int anyo = ejercicioHistorico();
        Recordset rs = ConexionActiva->Abrir(consultas::sondeoEstadisticas(TablaEstadisticas, anyo));
        const bool enCache = !rs.eof();
        rs.Close();
        if (enCache)
            return;
        ConexionActiva->Execute(consultas::insertarEstadisticas(TablaEstadisticas, anyo, EmpresaPelvor, BDPelvor),
                                asincrono ? Conexion::adAsyncExecute : -1);
    });
}

void frmActPresupusto::CargarHistorico()
{
    ++cargasHistorico;
    conManejador(kForm + QStringLiteral("CargarHistorico"), [this] {
        GetDrumavData(false);
        QString cuenta;
        const bool hayCuenta = cuentaSeleccionada(&cuenta);
        const QString sql = consultas::historico(TablaFiltroCuentas, TablaEstadisticas, EmpresaActiva->CodigoEmpresa(),
                                                 ejercicioHistorico(), GetFiltroDptos(), cuenta, hayCuenta);
        Recordset rs = ConexionActiva->Abrir(sql);
        int filas = 0;
        int conValores = 0;
        ModeloRejilla& m = vsHistorico->modelo();
        SinRedibujar sin(m);
        m.setRows(1);
        llenarRejilla(vsHistorico, rs, false, &filas, &conValores);
        rs.Close();
        CrearTotales(vsHistorico);
    });
}

void frmActPresupusto::DistribuirRejillas()
{
    const bool mostrar = chkMostrarHistorico->isChecked();
    if (vsHistorico->isVisibleTo(this) == mostrar)
        return;
    vsHistorico->setVisible(mostrar);
    if (mostrar) {
        const int ancho = std::max(divisor_->width(), 600);
        divisor_->setSizes({ancho / 2, ancho - ancho / 2});
        CargarHistorico();
        vsHistorico->modelo().Select(vsPresupuesto->modelo().Row(), vsPresupuesto->modelo().Col());
        vsHistorico->modelo().setTopRow(vsPresupuesto->modelo().TopRow());
    }
}

} // namespace presupuestos
