// Loading of the budget and history grids, their subtotals and the
// completion bars, and the statistics read from the retail database.

#include "common/ErrorReport.h"
#include "common/NumerosEs.h"
#include "common/Plataforma.h"
#include "host/modPublic.h"
#include "worksheet/core/ConsultasHoja.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/frmActPresupusto.h"
#include "worksheet/DisposicionHoja.h"
#include "worksheet/core/RepositorioHoja.h"
#include "worksheet/core/frmActPresupusto_comun.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QSplitter>

#include <QTimer>

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
    m.setCols(kColumnas);
    m.setRows(1);
    m.setFixedRows(1);
    m.setFontSize(10);
    m.setRowHeightMin(315);
    m.setBackColorFixed(Color2);
    m.setBackColorSel(Color3);
    m.setBackColor(kBlanco);
    m.setTextMatrix(0, kDpto, QStringLiteral("Dpto"));
    m.setTextMatrix(0, kCuenta, QStringLiteral("Cuenta"));
    m.setTextMatrix(0, kNombre, QStringLiteral("Nombre"));
    for (int mes = 1; mes <= 12; ++mes)
        m.setTextMatrix(0, colMes(mes), es::nombreMes(mes));
    m.setTextMatrix(0, kTotal, QStringLiteral("Total"));
    m.setColWidth(kCuenta, 1200);
    m.setColWidth(kNombre, 2500);
    for (int c = kPrimerMes; c <= kTotal; ++c) {
        m.setColWidth(c, 1000);
        m.setColAlignment(c, ModeloRejilla::Alineacion::Derecha);
    }
    for (int c : {kDpto, kDptoNombre, kMetodo, kManual, kValor})
        m.setColHidden(c, true);
    m.setRedraw(true);
    rejilla->setEditable(rejilla == vsPresupuesto);
    // Amounts are read whole, and the account beside them stays in sight
    // however far right the months go.
    rejilla->setColumnasAjustadas(kPrimerMes, kTotal);
    rejilla->setColumnasFijas(kNombre + 1);
}

RejillaPresupuesto& frmActPresupusto::reglas(VistaRejilla* rejilla)
{
    RejillaPresupuesto& r = rejilla == vsHistorico ? *historico_ : *presupuesto_;
    RejillaPresupuesto::Aspecto a;
    a.decimales = Decimales;
    a.formato = FormatoNumero;
    a.manual = Color1;
    a.subtotal = Color4;
    a.dptos = NumDptosFiltro();
    r.setAspecto(a);
    return r;
}

void frmActPresupusto::mostrarCompletado()
{
    const auto fijar = [](QProgressBar* barra, const Completado& c) {
        // A progress bar repaints at once when its value changes, and that
        // paints the whole window in the middle of a load or a paste; with
        // its updates off it is drawn with the rest at the next paint.
        barra->setUpdatesEnabled(false);
        // An empty range would turn the bar into a busy indicator.
        barra->setRange(0, std::max(1, c.filas));
        barra->setValue(std::clamp(c.conValores, 0, std::max(1, c.filas)));
        barra->setFormat(c.texto());
        barra->setUpdatesEnabled(true);
    };
    fijar(pbrSeleccion, completadoSeleccion_);
    fijar(pbrTotal, completadoTotal_);
}

void frmActPresupusto::cambiarCompletado(int filasConValores)
{
    completadoSeleccion_.conValores += filasConValores;
    completadoTotal_.conValores += filasConValores;
    mostrarCompletado();
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
    // Another year, or the same read again: its actuals may have moved too.
    reales_.reset();
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
        {
            RejillaPresupuesto& r = reglas(vsPresupuesto);
            SinRedibujar sin(r.modelo());
            completadoSeleccion_ = r.llenar(rs, true, filasFiltro > 0 ? static_cast<std::size_t>(filasFiltro) : 0);
            rs.Close();
            CrearTotales(vsPresupuesto);
        }
        if (PrimeraActivacion)
            completadoTotal_ = completadoSeleccion_;
        mostrarCompletado();
        // The history beside it follows line for line. An account it has not
        // read yet (a row put back in the budget) shows zeros until it is
        // read again: right after, unless the caller reads it anyway, as
        // every change of filter does.
        if (vsHistorico->isVisibleTo(this)) {
            const bool completa = historico_->alinearCon(*presupuesto_);
            CrearTotales(vsHistorico);
            if (!completa && !historicoPendiente_) {
                historicoPendiente_ = true;
                QTimer::singleShot(0, this, [this] {
                    if (historicoPendiente_ && vsHistorico->isVisibleTo(this))
                        CargarHistorico();
                    historicoPendiente_ = false;
                });
            }
        }
    });
}

void frmActPresupusto::SetProgreesFila(Currency TotalAnterior, Currency TotalNuevo)
{
    conManejador(kForm + QStringLiteral("SetProgreesFila"), [&] {
        const int d = (TotalNuevo.isZero() ? 0 : 1) - (TotalAnterior.isZero() ? 0 : 1);
        if (d != 0)
            cambiarCompletado(d);
    });
}

void frmActPresupusto::CrearTotales(VistaRejilla* rejilla)
{
    conManejador(kForm + QStringLiteral("CrearTotales"), [this, rejilla] { reglas(rejilla).crearTotales(); });
}

void frmActPresupusto::RecalcularFilas(int FilaDesde, int FilaHasta, int ColDesde, int ColHasta)
{
    const int d = reglas(vsPresupuesto).recalcularFilas(FilaDesde, FilaHasta, ColDesde, ColHasta);
    if (d != 0)
        cambiarCompletado(d);
}

// ---------------------------------------------------------------------------
// History and statistics
// ---------------------------------------------------------------------------

void frmActPresupusto::ResolverEnlaceDrumav()
{
    // Without a retail database the statistics simply stay at zero; the
    // worksheet opens all the same.
    const auto enlace = RepositorioHoja(*ConexionActiva).enlaceRetail(EmpresaActiva->CodigoEmpresa());
    BDPelvor = enlace.base;
    EmpresaPelvor = enlace.empresa;
}

void frmActPresupusto::GetDrumavData(bool asincrono)
{
    conManejador(kForm + QStringLiteral("GetDrumavData"), [this, asincrono] {
        RepositorioHoja(*ConexionActiva).asegurarEstadisticas(TablaEstadisticas, ejercicioHistorico(), {BDPelvor, EmpresaPelvor}, asincrono);
    });
}

void frmActPresupusto::CargarHistorico()
{
    ++cargasHistorico;
    historicoPendiente_ = false;
    conManejador(kForm + QStringLiteral("CargarHistorico"), [this] {
        GetDrumavData(false);
        QString cuenta;
        const bool hayCuenta = cuentaSeleccionada(&cuenta);
        const QString sql = consultas::historico(TablaFiltroCuentas, TablaEstadisticas, EmpresaActiva->CodigoEmpresa(),
                                                 ejercicioHistorico(), GetFiltroDptos(), cuenta, hayCuenta);
        Recordset rs = ConexionActiva->Abrir(sql);
        RejillaPresupuesto& r = reglas(vsHistorico);
        SinRedibujar sin(r.modelo());
        r.llenar(rs, false);
        rs.Close();
        // The query knows nothing of the rows taken out of the budget.
        r.alinearCon(*presupuesto_);
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
        // Halves, unless the user shared the width otherwise last time.
        const int ancho = std::max(divisor->width(), 600);
        const int presupuesto = static_cast<int>(ancho * DisposicionHoja::reparto().value_or(0.5));
        divisor->setSizes({presupuesto, ancho - presupuesto});
        CargarHistorico();
        vsHistorico->modelo().Select(vsPresupuesto->modelo().Row(), vsPresupuesto->modelo().Col());
        vsHistorico->modelo().setTopRow(vsPresupuesto->modelo().TopRow());
    }
}

} // namespace presupuestos
