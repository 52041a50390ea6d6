// The filters that decide which accounts and departments the worksheet
// shows: the category tree, the account list (written into the filter
// table the budget is read through), the income/expense boxes and the
// department list.

#include "common/ErrorReport.h"
#include "common/Plataforma.h"
#include "host/modPublic.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/frmActPresupusto.h"
#include "worksheet/core/RepositorioHoja.h"
#include "worksheet/core/frmActPresupusto_comun.h"

#include <QCheckBox>
#include <QFocusEvent>
#include <QFrame>
#include <QHeaderView>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>

namespace presupuestos {

using namespace modPublic;
using namespace hoja;

namespace {
// The form's own programmatic selections must not look like a user's choice.
class Marcador {
public:
    explicit Marcador(bool& b) : b_(b), antes_(b) { b_ = true; }
    ~Marcador() { b_ = antes_; }

private:
    bool& b_;
    bool antes_;
};
} // namespace

void frmActPresupusto::conectarFiltros()
{
    // The lists move their cursor while they are laid out and filled; only
    // a choice made once the worksheet stands reloads it (the first
    // activation loads it itself).
    connect(vsFiltrosCategoria, &VistaRejilla::RowColChange, this, [this] {
        if (!PrimeraActivacion)
            vsFiltrosCategoria_RowColChange();
    });
    connect(vsFiltroCuentas, &VistaRejilla::RowColChange, this, [this] {
        if (!seleccionandoCuenta_ && !PrimeraActivacion)
            vsFiltroCuentas_RowColChange();
    });
    connect(vsFiltrosCategoria, &VistaRejilla::MouseMove, this, [this](int, int, int x, int y) {
        const int fila = vsFiltrosCategoria->filaEn(QPoint(x, y));
        if (fila >= 1)
            vsFiltrosCategoria->setToolTip(vsFiltrosCategoria->modelo().TextMatrix(fila, 1).trimmed());
    });
    connect(vsFiltroCuentas, &VistaRejilla::MouseMove, this, [this](int, int, int x, int y) {
        const int fila = vsFiltroCuentas->filaEn(QPoint(x, y));
        if (fila >= 1)
            vsFiltroCuentas->setToolTip(vsFiltroCuentas->modelo().TextMatrix(fila, 3).trimmed());
    });
    connect(chkTipoCuentaIngresos, &QCheckBox::clicked, this, [this] { chkTipoCuentaIngresos_Click(); });
    connect(chkTipoCuentaGastos, &QCheckBox::clicked, this, [this] {
        conManejador(kForm + QStringLiteral("chkTipoCuentaGastos_Click"), [this] { chkTipoCuentaGastos_Click(); });
    });

    connect(cmdDepartamentos, &QPushButton::clicked, this, [this] { cmdDepartamentos_Click(); });
    connect(cmdFiltroDptoAceptar, &QPushButton::clicked, this, [this] { cmdFiltroDptoAceptar_Click(); });
    connect(cmdFiltroDptoCancelar, &QPushButton::clicked, this, [this] { cmdFiltroDptoCancelar_Click(); });
    connect(chkSelAllDpto, &QCheckBox::stateChanged, this, [this](int) { chkSelAllDpto_Click(); });
    connect(lstDepartamentos, &QListWidget::itemSelectionChanged, this, [this] {
        if (!seleccionandoDptos_)
            lstDepartamentos_Click();
    });
    lstDepartamentos->installEventFilter(this);
    chkSelAllDpto->installEventFilter(this);
}

// ---------------------------------------------------------------------------
// Category and account filters
// ---------------------------------------------------------------------------

void frmActPresupusto::DisenarFiltros()
{
    for (VistaRejilla* r : {vsFiltrosCategoria, vsFiltroCuentas}) {
        ModeloRejilla& m = r->modelo();
        m.setFixedRows(0);
        m.setFontSize(9);
        m.setBackColorSel(Color3);
        r->horizontalHeader()->hide();
        r->setEditable(false);
    }
    vsFiltrosCategoria->modelo().setCols(3);
    vsFiltrosCategoria->modelo().setColHidden(0, true);
    vsFiltrosCategoria->modelo().setColHidden(2, true);
    vsFiltroCuentas->modelo().setCols(4);
    vsFiltroCuentas->modelo().setColHidden(0, true);
    vsFiltroCuentas->modelo().setColHidden(2, true);
    vsFiltroCuentas->modelo().setColWidth(1, 1250);
    vsFiltrosCategoria->modelo().setColWidth(1, 4000);
    vsFiltroCuentas->modelo().setColWidth(3, 3000);
}

RepositorioHoja frmActPresupusto::repositorioFiltros() const
{
    return RepositorioHoja(*ConexionActiva, TablaFiltroCuentas, EmpresaActiva->CodigoEmpresa());
}

void frmActPresupusto::CargarFiltroCategorias()
{
    conManejador(kForm + QStringLiteral("CargarFiltroCategorias"), [this] {
        arbolCategorias_.reiniciar();
        ModeloRejilla& m = vsFiltrosCategoria->modelo();
        m.setRedraw(false);
        m.setCols(3);
        m.setRows(0);
        m.AddItem(QStringLiteral("0\tTodas"));
        m.Select(m.Rows() - 1, 1);
        m.setCellBorderBottom(m.Row(), 1, m.Row(), 1, true);

        for (const FilaCategoria& f : repositorioFiltros().categorias()) {
            arbolCategorias_.agregar(f, [&m](const LineaCategoria& l) {
                m.AddItem(QString::number(l.codigo) + QLatin1Char('\t') + l.leyenda + QLatin1Char('\t') + QString::number(l.padre));
                m.Select(l.fila, 1);
                m.setCellBorderBottom(m.Row(), 1, m.Row(), 1, true);
                if (l.negrita)
                    m.setCellFontBold(m.Row(), 1, true);
            });
        }
        m.Select(0, 1);
        m.setRedraw(true);
    });
    vsFiltrosCategoria->modelo().setRedraw(true);
}

qint16 frmActPresupusto::GetUltimoEjercicioCuentas()
{
    return repositorioFiltros().ultimoEjercicioCuentas(EmpresaActiva->EjercicioActual());
}

void frmActPresupusto::CargarFiltroCuentas()
{
    conManejador(kForm + QStringLiteral("CargarFiltroCuentas"), [this] {
        RepositorioHoja repositorio = repositorioFiltros();
        repositorio.vaciarTablaFiltro();
        filtroCuentas_.vaciar();
        ModeloRejilla& m = vsFiltroCuentas->modelo();
        m.setCols(4);
        m.setRows(0);
        m.setRedraw(false);
        m.AddItem(QStringLiteral("0\tTodas"));
        filasFiltro = 0;
        const std::vector<CuentaFiltro> cuentas = repositorio.cuentas(
            GetUltimoEjercicioCuentas(), EmpresaActiva->DigitosNivel(EmpresaActiva->NumeroNiveles() - 1), VerPresupuestables);
        for (const CuentaFiltro& c : cuentas) {
            // The list and the filter's accounts stay row for row alike, also
            // when an error ends the load.
            filtroCuentas_.agregar(c);
            m.AddItem(QString::number(c.codigo) + QLatin1Char('\t') + c.cuenta + QLatin1Char('\t') + QString::number(c.padre)
                      + QLatin1Char('\t') + c.nombre);
            if (c.padre == 0)
                m.setCellFontBold(m.Rows() - 1, 1, true);
            contarFilasFiltro(repositorio.insertarCuenta(c));
            ActNoHijos(c.padre);
        }
        m.setCellBorderBottom(0, 0, m.Rows() - 1, m.Cols() - 1, true);
        m.setCellAlignment(0, 1, m.Rows() - 1, 1, ModeloRejilla::Alineacion::Izquierda);
        {
            Marcador marca(seleccionandoCuenta_);
            m.Select(0, 1);
        }
        m.setRedraw(true);
        vsFiltrosCategoria->modelo().setRedraw(true);
    });
    vsFiltroCuentas->modelo().setRedraw(true);
}

void frmActPresupusto::contarFilasFiltro(long filas)
{
    filasFiltro = filas < 0 || filasFiltro < 0 ? -1 : filasFiltro + filas;
}

void frmActPresupusto::ActNoHijos(qint16 categoria)
{
    conManejador(kForm + QStringLiteral("ActNoHijos"), [this, categoria] { arbolCategorias_.contarCuenta(categoria); });
}

void frmActPresupusto::OcultarCategoriasSinCuentas()
{
    conManejador(kForm + QStringLiteral("OcultarCategoriasSinCuentas"), [this] {
        ModeloRejilla& m = vsFiltrosCategoria->modelo();
        for (int fila : arbolCategorias_.filasSinCuentas())
            m.setRowHidden(fila, true);
    });
}

bool frmActPresupusto::EsDeCategoria(qint16 categoria, qint16 codigo) const
{
    return arbolCategorias_.esDeCategoria(categoria, codigo);
}

void frmActPresupusto::FiltrarCuentas()
{
    conManejador(kForm + QStringLiteral("FiltrarCuentas"), [this] {
        filtroCuentas_.setTipos(chkTipoCuentaIngresos->isChecked(), chkTipoCuentaGastos->isChecked());
        RepositorioHoja repositorio = repositorioFiltros();
        repositorio.vaciarTablaFiltro();
        filasFiltro = 0;
        filtroCuentas_.setCategoria(arbolCategorias_.codigoEnFila(vsFiltrosCategoria->modelo().Row()));
        ModeloRejilla& m = vsFiltroCuentas->modelo();
        m.setRedraw(false);
        const std::vector<CuentaFiltro>& cuentas = filtroCuentas_.cuentas();
        for (std::size_t i = 0; i < cuentas.size(); ++i) {
            const bool mostrar = filtroCuentas_.acepta(i);
            m.setRowHidden(static_cast<int>(i) + 1, !mostrar);
            if (mostrar)
                contarFilasFiltro(repositorio.insertarCuenta(cuentas[i]));
        }
        m.setRedraw(true);
        Marcador marca(seleccionandoCuenta_);
        m.Select(0, 1);
    });
    vsFiltroCuentas->modelo().setRedraw(true);
}

void frmActPresupusto::vsFiltrosCategoria_RowColChange()
{
    if (Cargando)
        return;
    conManejador(kForm + QStringLiteral("vsFiltrosCategoria_RowColChange"), [this] {
        FiltrarCuentas();
        CargarPresupuesto();
        if (vsHistorico->isVisibleTo(this))
            CargarHistorico();
    });
}

void frmActPresupusto::vsFiltroCuentas_RowColChange()
{
    conManejador(kForm + QStringLiteral("vsFiltroCuentas_RowColChange"), [this] {
        CargarPresupuesto();
        if (vsHistorico->isVisibleTo(this))
            CargarHistorico();
    });
}

void frmActPresupusto::tipoCuentaClick(FiltroCuentas::Tipo tipo)
{
    if (Cargando)
        return;
    Cargando = true;
    QCheckBox* pulsada = tipo == FiltroCuentas::Tipo::Ingresos ? chkTipoCuentaIngresos : chkTipoCuentaGastos;
    filtroCuentas_.setTipos(chkTipoCuentaIngresos->isChecked(), chkTipoCuentaGastos->isChecked());
    filtroCuentas_.pulsar(tipo, pulsada->isChecked());
    chkTipoCuentaIngresos->setChecked(filtroCuentas_.ingresos());
    chkTipoCuentaGastos->setChecked(filtroCuentas_.gastos());
    Cargando = false;
    FiltrarCuentas();
    CargarPresupuesto();
    if (vsHistorico->isVisibleTo(this))
        CargarHistorico();
}

void frmActPresupusto::chkTipoCuentaIngresos_Click()
{
    conManejador(kForm + QStringLiteral("chkTipoCuentaIngresos_Click"),
                 [this] { tipoCuentaClick(FiltroCuentas::Tipo::Ingresos); });
}

void frmActPresupusto::chkTipoCuentaGastos_Click() { tipoCuentaClick(FiltroCuentas::Tipo::Gastos); }

// ---------------------------------------------------------------------------
// Department filter
// ---------------------------------------------------------------------------

std::vector<ItemDepartamento> frmActPresupusto::itemsDepartamentos() const
{
    std::vector<ItemDepartamento> items;
    items.reserve(static_cast<std::size_t>(lstDepartamentos->count()));
    for (int i = 0; i < lstDepartamentos->count(); ++i) {
        const QListWidgetItem* item = lstDepartamentos->item(i);
        items.push_back({item->data(Qt::UserRole).toInt(), item->isSelected()});
    }
    return items;
}

void frmActPresupusto::leerFiltroDptos()
{
    filtroDptos_.setItems(itemsDepartamentos());
    filtroDptos_.setTodos(chkSelAllDpto->isChecked());
}

void frmActPresupusto::CargarDepartamentos()
{
    conManejador(kForm + QStringLiteral("CargarDepartamentos"), [this] {
        {
            Marcador marca(seleccionandoDptos_);
            lstDepartamentos->clear();
            auto* vacio = new QListWidgetItem(QString(), lstDepartamentos);
            vacio->setData(Qt::UserRole, FiltroDepartamentos::kSinDepartamento);
            for (const Departamento& d : repositorioFiltros().departamentos()) {
                auto* item = new QListWidgetItem(d.nombre, lstDepartamentos);
                item->setData(Qt::UserRole, d.codigo);
            }
        }
        filtroDptos_.nuevaLista(static_cast<std::size_t>(lstDepartamentos->count()));
        if (chkSelAllDpto->isChecked())
            chkSelAllDpto_Click();
        else
            chkSelAllDpto->setChecked(true);
    });
}

QString frmActPresupusto::GetFiltroDptos()
{
    QString lista;
    conManejador(kForm + QStringLiteral("GetFiltroDptos"), [this, &lista] {
        leerFiltroDptos();
        lista = filtroDptos_.lista();
    });
    return lista;
}

void frmActPresupusto::chkSelAllDpto_Click()
{
    if (Cargando)
        return;
    conManejador(kForm + QStringLiteral("chkSelAllDpto_Click"), [this] {
        leerFiltroDptos();
        filtroDptos_.marcarTodos(chkSelAllDpto->isChecked());
        Marcador marca(seleccionandoDptos_);
        const std::vector<ItemDepartamento>& items = filtroDptos_.items();
        for (std::size_t i = 1; i < items.size(); ++i)
            lstDepartamentos->item(static_cast<int>(i))->setSelected(items[i].seleccionado);
    });
}

void frmActPresupusto::lstDepartamentos_Click()
{
    conManejador(kForm + QStringLiteral("lstDepartamentos_Click"), [this] {
        const int actual = lstDepartamentos->currentRow();
        if (actual < 0)
            return;
        leerFiltroDptos();
        filtroDptos_.pulsarItem(static_cast<std::size_t>(actual));
        if (!filtroDptos_.todos()) {
            Cargando = true;
            chkSelAllDpto->setChecked(false);
            Cargando = false;
        }
    });
}

void frmActPresupusto::cmdDepartamentos_Click()
{
    conManejador(kForm + QStringLiteral("cmdDepartamentos_Click"), [this] {
        if (fraFiltroDpto->isVisible()) {
            fraFiltroDpto->hide();
            CancelarFiltroDptos();
            return;
        }
        leerFiltroDptos();
        filtroDptos_.guardar();
        const QPoint debajo = cmdDepartamentos->mapTo(this, QPoint(0, cmdDepartamentos->height()));
        fraFiltroDpto->move(std::min(debajo.x(), width() - fraFiltroDpto->width()), debajo.y());
        fraFiltroDpto->show();
        fraFiltroDpto->raise();
        lstDepartamentos->setFocus();
    });
}

void frmActPresupusto::cmdFiltroDptoAceptar_Click()
{
    leerFiltroDptos();
    if (!filtroDptos_.aceptable())
        return;
    fraFiltroDpto->hide();
    CargarPresupuesto();
    if (vsHistorico->isVisibleTo(this))
        CargarHistorico();
}

void frmActPresupusto::cmdFiltroDptoCancelar_Click() { CancelarFiltroDptos(); }

void frmActPresupusto::CancelarFiltroDptos()
{
    conManejador(kForm + QStringLiteral("CancelarFiltroDptos"), [this] {
        chkSelAllDpto->setChecked(filtroDptos_.todosGuardado());
        {
            Marcador marca(seleccionandoDptos_);
            for (int i = 0; i < lstDepartamentos->count(); ++i)
                lstDepartamentos->item(i)->setSelected(filtroDptos_.seleccionGuardada(static_cast<std::size_t>(i)));
        }
        fraFiltroDpto->hide();
    });
}

void frmActPresupusto::ComprobarFocoFiltroDptos()
{
    static const QStringList propios = {QStringLiteral("lstDepartamentos"), QStringLiteral("chkSelAllDpto"),
                                        QStringLiteral("fraFiltroDpto"), QStringLiteral("cmdFiltroDptoAceptar"),
                                        QStringLiteral("cmdFiltroDptoCancelar"), QStringLiteral("cmdDepartamentos")};
    if (!fraFiltroDpto->isVisible())
        return;
    if (!propios.contains(Plataforma::foco().nombreControlActivo()))
        CancelarFiltroDptos();
}

} // namespace presupuestos
