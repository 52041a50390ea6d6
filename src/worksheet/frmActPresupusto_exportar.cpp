// Exporting the worksheet to a workbook that the import reads back as it
// stands: what the filters show, with every stored decimal.

#include "common/ErrorReport.h"
#include "common/Plataforma.h"
#include "export/ExportadorLibro.h"
#include "host/modPublic.h"
#include "progress/frmProgress.h"
#include "worksheet/core/ConsultasHoja.h"
#include "worksheet/core/FilasLibro.h"
#include "worksheet/core/frmActPresupusto_comun.h"
#include "worksheet/frmActPresupusto.h"
#include "worksheet/dlgSeguimiento.h"

#include <QCheckBox>
#include <QFileInfo>
#include <memory>

namespace presupuestos {

using namespace modPublic;
using namespace hoja;

void frmActPresupusto::cmdExportar_Click()
{
    // The hourglass and the progress window go however the export ends.
    struct Restaurar {
        std::unique_ptr<frmProgress> progreso;
        ~Restaurar() { Plataforma::puntero().establecer(Puntero::Defecto); }
    } restaurar;
    conManejador(kForm + QStringLiteral("cmdExportar_Click"), [this, &restaurar] {
        QString ruta = Plataforma::dialogoArchivo().guardar(QStringLiteral("Archivos de Excel(*.xlsx)|*.xlsx"),
                                                            QStringLiteral("Presupuesto %1.xlsx").arg(EjercicioActivo));
        if (ruta.isEmpty())
            return;
        if (!ruta.endsWith(QLatin1String(".xlsx"), Qt::CaseInsensitive))
            ruta += QStringLiteral(".xlsx");
        Plataforma::puntero().establecer(Puntero::RelojArena);

        QString cuenta;
        const bool hayCuenta = cuentaSeleccionada(&cuenta);
        const QString dptos = GetFiltroDptos();
        std::vector<HojaLibro> hojas;
        {
            Recordset rs = ConexionActiva->Abrir(consultas::presupuesto(TablaFiltroCuentas, EmpresaActiva->CodigoEmpresa(),
                                                                        EjercicioActivo, VerPresupuestables, dptos, cuenta,
                                                                        hayCuenta));
            hojas.push_back({QStringLiteral("Presupuesto %1").arg(EjercicioActivo), true, filasLibro(rs, true)});
            rs.Close();
        }
        if (chkMostrarHistorico->isChecked()) {
            GetDrumavData(false);
            Recordset rs = ConexionActiva->Abrir(consultas::historico(TablaFiltroCuentas, TablaEstadisticas,
                                                                      EmpresaActiva->CodigoEmpresa(), ejercicioHistorico(),
                                                                      dptos, cuenta, hayCuenta));
            hojas.push_back({QStringLiteral("Histórico %1").arg(ejercicioHistorico()), false, filasLibro(rs, false)});
            rs.Close();
        }
        // The year against its own actuals: as the tracking window shows it
        // when it is open, otherwise up to the last month with balances; a
        // year without any has nothing to compare yet.
        {
            std::vector<FilaSeguimiento> seguimiento;
            int meses = 0;
            if (auto* dlg = qobject_cast<dlgSeguimiento*>(seguimiento_.data())) {
                seguimiento = dlg->modelo().filas();
                meses = dlg->modelo().mesesCerrados();
            } else {
                Seguimiento s(SesionActiva);
                s.cargar();
                seguimiento = s.filas();
                meses = s.ultimoMesConSaldos();
            }
            if (meses > 0)
                hojas.push_back(Seguimiento::hojaLibro(seguimiento, meses, EjercicioActivo));
        }
        qint64 filas = 0;
        for (const HojaLibro& h : hojas)
            filas += static_cast<qint64>(h.filas.size() + h.celdas.size());

        restaurar.progreso = std::make_unique<frmProgress>(this);
        frmProgress* p = restaurar.progreso.get();
        p->Init(QStringLiteral("Proceso en curso."), static_cast<int>(filas));
        p->SetText(QStringLiteral("Exportando..."));
        p->Start_Delayed(3);
        ExportadorLibro::escribir(ruta, hojas, [p](qint64 hechas, qint64) { p->SetValue(static_cast<int>(hechas)); });
        restaurar.progreso.reset();
        Plataforma::puntero().establecer(Puntero::Defecto);
        Plataforma::mensajes().MsgBox(QStringLiteral("Se han exportado %1 filas a %2.").arg(hojas.front().filas.size()).arg(QFileInfo(ruta).fileName()),
                                      vb::Information, QStringLiteral("Exportar a Excel"));
    });
}

} // namespace presupuestos
