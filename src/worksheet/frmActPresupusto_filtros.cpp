// The filters that decide which accounts and departments the worksheet
// shows: the category tree, the account list (written into the filter
// table the budget is read through), the income/expense boxes and the
// department list.

#include "common/ErrorReport.h"
#include "common/NumerosEs.h"
#include "common/Plataforma.h"
#include "host/modPublic.h"
#include "worksheet/core/ConsultasHoja.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/frmActPresupusto.h"
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
constexpr int kMaxCategoria = 300;

qint16 aEntero16(const QString& texto) { return static_cast<qint16>(es::valEntero(texto)); }

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

void frmActPresupusto::CargarFiltroCategorias()
{
    conManejador(kForm + QStringLiteral("CargarFiltroCategorias"), [this] {
        TablaCategorias.assign(kMaxCategoria + 1, CategoriaFiltro{});
        ModeloRejilla& m = vsFiltrosCategoria->modelo();
        m.setRedraw(false);
        m.setCols(3);
        m.setRows(0);
        m.AddItem(QStringLiteral("0\tTodas"));
        m.Select(m.Rows() - 1, 1);
        m.setCellBorderBottom(m.Row(), 1, m.Row(), 1, true);

        Recordset rs = ConexionActiva->Abrir(consultas::categorias(EmpresaActiva->CodigoEmpresa()));
        qint16 sangria = 0;
        qint16 padreAnterior = 0;
        while (!rs.eof()) {
            const int codigo = rs.entero(QStringLiteral("Codigo"));
            const qint16 padre = static_cast<qint16>(rs.entero(QStringLiteral("Padre")));
            // Depth is inferred from the previous row's parent, which holds for
            // codes numbered depth-first with children after their parent.
            if (padre == 0)
                sangria = 0;
            else if (padre > padreAnterior)
                sangria += 4;
            else if (padre < padreAnterior)
                sangria -= 4;
            m.AddItem(QString::number(codigo) + QLatin1Char('\t') + QString(std::max<int>(0, sangria), QLatin1Char(' '))
                      + rs.texto(QStringLiteral("Texto")) + QLatin1Char('\t') + QString::number(padre));
            m.Select(m.Rows() - 1, 1);
            m.setCellBorderBottom(m.Row(), 1, m.Row(), 1, true);
            if (padre == 0)
                m.setCellFontBold(m.Row(), 1, true);
            padreAnterior = padre;
            if (codigo < 0 || codigo > kMaxCategoria)
                throw VbError::subscriptOutOfRange();
            CategoriaFiltro& cat = TablaCategorias[static_cast<std::size_t>(codigo)];
            cat.Codigo = static_cast<qint16>(codigo);
            cat.NoHijos = 0;
            cat.Fila = static_cast<qint16>(m.Row());
            cat.Padre = padre;
            rs.MoveNext();
        }
        rs.Close();
        m.Select(0, 1);
        m.setRedraw(true);
    });
    vsFiltrosCategoria->modelo().setRedraw(true);
}

qint16 frmActPresupusto::GetUltimoEjercicioCuentas()
{
    Recordset rs = ConexionActiva->Abrir(consultas::ultimoEjercicioCuentas(EmpresaActiva->CodigoEmpresa()));
    if (rs.eof())
        return EmpresaActiva->EjercicioActual();
    const qint16 r = static_cast<qint16>(rs.entero(0));
    rs.Close();
    return r;
}

void frmActPresupusto::CargarFiltroCuentas()
{
    conManejador(kForm + QStringLiteral("CargarFiltroCuentas"), [this] {
        const int empresa = EmpresaActiva->CodigoEmpresa();
        ConexionActiva->Execute(QStringLiteral("TRUNCATE TABLE ") + TablaFiltroCuentas);
        ModeloRejilla& m = vsFiltroCuentas->modelo();
        m.setCols(4);
        m.setRows(0);
        m.setRedraw(false);
        m.AddItem(QStringLiteral("0\tTodas"));
        const QString sql = consultas::cuentasFiltro(empresa, GetUltimoEjercicioCuentas(),
                                                     EmpresaActiva->DigitosNivel(EmpresaActiva->NumeroNiveles() - 1),
                                                     VerPresupuestables);
        Recordset rs = ConexionActiva->Abrir(sql);
        while (!rs.eof()) {
            const QString codigo = QString::number(rs.entero(QStringLiteral("Codigo")));
            const QString cuenta = rs.texto(QStringLiteral("Cuenta"));
            const qint16 padre = static_cast<qint16>(rs.entero(QStringLiteral("Padre")));
            const QString nombre = rs.texto(QStringLiteral("Nombre"));
            m.AddItem(codigo + QLatin1Char('\t') + cuenta + QLatin1Char('\t') + QString::number(padre) + QLatin1Char('\t') + nombre);
            if (padre == 0)
                m.setCellFontBold(m.Rows() - 1, 1, true);
            ConexionActiva->Execute(consultas::insertarFiltro(TablaFiltroCuentas, codigo, cuenta, nombre, empresa));
            ActNoHijos(padre);
            rs.MoveNext();
        }
        rs.Close();
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

void frmActPresupusto::ActNoHijos(qint16 categoria)
{
    conManejador(kForm + QStringLiteral("ActNoHijos"), [this, categoria] {
        qint16 c = categoria;
        // Walks up to the top-level category; a loop in the tree cannot hang the load.
        for (int pasos = 0; c != 0 && pasos <= kMaxCategoria; ++pasos) {
            if (c < 0 || c > kMaxCategoria || TablaCategorias.size() <= static_cast<std::size_t>(kMaxCategoria))
                throw VbError::subscriptOutOfRange();
            CategoriaFiltro& cat = TablaCategorias[static_cast<std::size_t>(c)];
            ++cat.NoHijos;
            c = cat.Padre;
        }
    });
}

void frmActPresupusto::OcultarCategoriasSinCuentas()
{
    conManejador(kForm + QStringLiteral("OcultarCategoriasSinCuentas"), [this] {
        ModeloRejilla& m = vsFiltrosCategoria->modelo();
        for (int i = 1; i <= kMaxCategoria && i < static_cast<int>(TablaCategorias.size()); ++i) {
            const CategoriaFiltro& cat = TablaCategorias[static_cast<std::size_t>(i)];
            if (cat.NoHijos == 0 && cat.Codigo == i) {
                Q_ASSERT_X(cat.Fila >= 1, "OcultarCategoriasSinCuentas", "categoría cargada sin fila");
                if (cat.Fila < 1)
                    throw VbError::internalError();
                m.setRowHidden(cat.Fila, true);
            }
        }
    });
}

bool frmActPresupusto::EsDeCategoria(qint16 categoria, qint16 codigo)
{
    const ModeloRejilla& m = vsFiltrosCategoria->modelo();
    // Iterative walk up the tree; bounded so that a loop in the data ends.
    for (int pasos = 0; pasos <= kMaxCategoria + 1; ++pasos) {
        if (codigo == categoria)
            return true;
        int encontrada = -1;
        for (int r = 1; r < m.Rows(); ++r) {
            if (aEntero16(m.TextMatrix(r, 0)) == codigo) {
                encontrada = r;
                break;
            }
        }
        if (encontrada < 0)
            return false;
        codigo = aEntero16(m.TextMatrix(encontrada, 2));
    }
    return false;
}

void frmActPresupusto::FiltrarCuentas()
{
    conManejador(kForm + QStringLiteral("FiltrarCuentas"), [this] {
        QString prefijo;
        if (!chkTipoCuentaIngresos->isChecked())
            prefijo = QStringLiteral("6");
        else if (!chkTipoCuentaGastos->isChecked())
            prefijo = QStringLiteral("7");
        ConexionActiva->Execute(QStringLiteral("TRUNCATE TABLE ") + TablaFiltroCuentas);
        const ModeloRejilla& cats = vsFiltrosCategoria->modelo();
        const qint16 categoria = cats.Row() >= 0 ? aEntero16(cats.TextMatrix(cats.Row(), 0)) : 0;
        ModeloRejilla& m = vsFiltroCuentas->modelo();
        m.setRedraw(false);
        const int empresa = EmpresaActiva->CodigoEmpresa();
        for (int i = 1; i < m.Rows(); ++i) {
            bool mostrar = true;
            if (!prefijo.isEmpty())
                mostrar = m.TextMatrix(i, 1).left(1) == prefijo;
            if (mostrar) {
                const qint16 cat = aEntero16(m.TextMatrix(i, 2));
                if (cat != categoria)
                    mostrar = EsDeCategoria(categoria, cat);
            }
            m.setRowHidden(i, !mostrar);
            if (mostrar)
                ConexionActiva->Execute(consultas::insertarFiltro(TablaFiltroCuentas, m.TextMatrix(i, 0), m.TextMatrix(i, 1),
                                                                  m.TextMatrix(i, 3), empresa));
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

void frmActPresupusto::tipoCuentaClick(QCheckBox* pulsada, QCheckBox* otra)
{
    if (Cargando)
        return;
    Cargando = true;
    if (!pulsada->isChecked())
        otra->setChecked(true);
    Cargando = false;
    FiltrarCuentas();
    CargarPresupuesto();
    if (vsHistorico->isVisibleTo(this))
        CargarHistorico();
}

void frmActPresupusto::chkTipoCuentaIngresos_Click()
{
    conManejador(kForm + QStringLiteral("chkTipoCuentaIngresos_Click"),
                 [this] { tipoCuentaClick(chkTipoCuentaIngresos, chkTipoCuentaGastos); });
}

void frmActPresupusto::chkTipoCuentaGastos_Click() { tipoCuentaClick(chkTipoCuentaGastos, chkTipoCuentaIngresos); }

// ---------------------------------------------------------------------------
// Department filter
// ---------------------------------------------------------------------------

void frmActPresupusto::CargarDepartamentos()
{
    conManejador(kForm + QStringLiteral("CargarDepartamentos"), [this] {
        {
            Marcador marca(seleccionandoDptos_);
            lstDepartamentos->clear();
            auto* vacio = new QListWidgetItem(QString(), lstDepartamentos);
            vacio->setData(Qt::UserRole, -1);
            Recordset rs = ConexionActiva->Abrir(consultas::departamentos(EmpresaActiva->CodigoEmpresa()));
            while (!rs.eof()) {
                auto* item = new QListWidgetItem(rs.texto(QStringLiteral("Nombre")), lstDepartamentos);
                item->setData(Qt::UserRole, rs.entero(QStringLiteral("Codigo")));
                rs.MoveNext();
            }
            rs.Close();
        }
        SeleccionDptosGuardada.assign(static_cast<std::size_t>(lstDepartamentos->count()), false);
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
        if (chkSelAllDpto->isChecked())
            return;
        lista = QStringLiteral("-1");
        for (int i = 1; i < lstDepartamentos->count(); ++i) {
            QListWidgetItem* item = lstDepartamentos->item(i);
            if (item->isSelected()) {
                lista += QStringLiteral(", ") + QString::number(item->data(Qt::UserRole).toInt());
                // Never reset here: the count only grows from what the
                // "all" box last left.
                ++NumDptosFiltro;
            }
        }
    });
    return lista;
}

void frmActPresupusto::chkSelAllDpto_Click()
{
    if (Cargando)
        return;
    conManejador(kForm + QStringLiteral("chkSelAllDpto_Click"), [this] {
        const bool todos = chkSelAllDpto->isChecked();
        NumDptosFiltro = static_cast<qint16>(todos ? lstDepartamentos->count() - 1 : 0);
        Marcador marca(seleccionandoDptos_);
        for (int i = 1; i < lstDepartamentos->count(); ++i)
            lstDepartamentos->item(i)->setSelected(todos);
    });
}

void frmActPresupusto::lstDepartamentos_Click()
{
    conManejador(kForm + QStringLiteral("lstDepartamentos_Click"), [this] {
        QListWidgetItem* actual = lstDepartamentos->currentItem();
        if (actual && !actual->isSelected()) {
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
        chkSelAllDpto->setProperty("Tag", QString::number(chkSelAllDpto->isChecked() ? 1 : 0));
        SeleccionDptosGuardada.assign(static_cast<std::size_t>(lstDepartamentos->count()), false);
        for (int i = 0; i < lstDepartamentos->count(); ++i)
            SeleccionDptosGuardada[static_cast<std::size_t>(i)] = lstDepartamentos->item(i)->isSelected();
        const QPoint debajo = cmdDepartamentos->mapTo(this, QPoint(0, cmdDepartamentos->height()));
        fraFiltroDpto->move(std::min(debajo.x(), width() - fraFiltroDpto->width()), debajo.y());
        fraFiltroDpto->show();
        fraFiltroDpto->raise();
        lstDepartamentos->setFocus();
    });
}

void frmActPresupusto::cmdFiltroDptoAceptar_Click()
{
    if (lstDepartamentos->selectedItems().isEmpty())
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
        chkSelAllDpto->setChecked(chkSelAllDpto->property("Tag").toString() == QLatin1String("1"));
        {
            Marcador marca(seleccionandoDptos_);
            for (int i = 0; i < lstDepartamentos->count(); ++i) {
                const bool sel = static_cast<std::size_t>(i) < SeleccionDptosGuardada.size()
                                 && SeleccionDptosGuardada[static_cast<std::size_t>(i)];
                lstDepartamentos->item(i)->setSelected(sel);
            }
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
