// First load of a large company's worksheet (filters, filter table, budget
// grid and subtotals) against the bare database work of the same
// statements, and a one-cell total refresh against a full recomputation.
//
//   presupuestos_bench_carga [--cuentas 2000] [--departamentos 20] [--bd fichero]

#include "db/Conexion.h"
#include "db/schema/DatosDemo.h"
#include "host/Empresa.h"
#include "host/entry/frmclsfrmActPresupusto.h"
#include "common/Plataforma.h"
#include "desktop/PlataformaQt.h"
#include "host/modPublic.h"
#include "store/clsDBPresupuesto.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/frmActPresupusto.h"

#include "Medida.h"
#include "PlataformaDePrueba.h"

#include <QApplication>
#include <QLineEdit>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTemporaryDir>
#include <QTextStream>
#include <cstdio>

using namespace presupuestos;
using namespace presupuestos::medida;

namespace {

QTextStream salida(stdout);


// Runs the statements of a load again, reading every field of every row,
// with no grid behind them.
double repetirSinRejilla(Conexion& c, const std::vector<QString>& sentencias)
{
    QElapsedTimer t;
    t.start();
    for (const QString& sql : sentencias) {
        if (sql.startsWith(QLatin1String("SELECT"))) {
            Recordset rs = c.Abrir(sql);
            const int campos = rs.numeroCampos();
            while (!rs.eof()) {
                for (int i = 0; i < campos; ++i)
                    (void)rs.campo(i);
                rs.MoveNext();
            }
            rs.Close();
        } else {
            c.Execute(sql);
        }
    }
    return ms(t);
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    predeterminarPlataformaQt();
    const QStringList args = app.arguments();
    const int cuentas = argumento(args, QStringLiteral("--cuentas"), 2000);
    const int dptos = argumento(args, QStringLiteral("--departamentos"), 20);

    QTemporaryDir dir;
    const QString fichero = dir.filePath(QStringLiteral("grande.db"));
    QElapsedTimer t;
    t.start();
    {
        auto c = Conexion::abrirSqlite(fichero);
        c->asociarBaseDatos(QStringLiteral("Pelvor"), dir.filePath(QStringLiteral("Pelvor.db")));
        OpcionesDemo o;
        o.cuentas = cuentas;
        o.departamentos = dptos;
        DatosDemo::generar(*c, o);
    }
    salida << "Empresa generada: " << cuentas << " cuentas x " << dptos << " departamentos en " << ms(t) << " ms" << Qt::endl;

    auto conexion = Conexion::abrirSqlite(fichero);
    auto empresa = cargarEmpresa(*conexion, 1);
    double cargaHoja = 0;
    double soloBaseDatos = 0;
    {
        frmclsfrmActPresupusto clase;
        clase.setEmpresaLarvex(empresa);
        clase.setConexionLarvex(conexion);
        clase.Show();
        frmActPresupusto* hoja = clase.formulario();
        // The deferred statistics fetch of the load runs before timing.
        conexion->completarPendientes();
        conexion->limpiarRegistro();

        t.restart();
        hoja->Form_Activate();
        cargaHoja = ms(t);
        const std::vector<QString> sentencias(conexion->registro().begin(), conexion->registro().end());
        ModeloRejilla& m = hoja->vsPresupuesto->modelo();
        salida << "Primera carga (filtros + tabla de filtro + rejilla + subtotales): " << cargaHoja << " ms, " << m.Rows() - 1
               << " filas, " << sentencias.size() << " sentencias" << Qt::endl;

        conexion->setRegistroActivo(false);
        soloBaseDatos = repetirSinRejilla(*conexion, sentencias);
        salida << "Mismas sentencias sin rejilla: " << soloBaseDatos << " ms" << Qt::endl;
        salida << "Relación carga / base de datos: " << cargaHoja / soloBaseDatos << Qt::endl;

        // One cell, then its row total and subtotals, against recomputing every subtotal.
        int fila = 2;
        while (fila < m.Rows() && m.IsSubtotal(fila))
            ++fila;
        const long long antes = m.celdasSumadas();
        t.restart();
        const int repeticiones = 1000;
        for (int i = 0; i < repeticiones; ++i) {
            m.setTextMatrix(fila, 5, QString::number(1000 + i));
            hoja->RecalcularFilas(fila, fila, 5, 5);
        }
        const double unaCelda = ms(t) / repeticiones;
        const long long leidasUna = (m.celdasSumadas() - antes) / repeticiones;
        // A full recomputation: the same account rows, every subtotal built from them.
        ModeloRejilla copia;
        copia.setRedraw(false);
        copia.setCols(m.Cols());
        copia.setFixedRows(1);
        copia.setRows(1);
        for (int r = 1; r < m.Rows(); ++r) {
            if (m.IsSubtotal(r))
                continue;
            QStringList campos;
            for (int c = 0; c < m.Cols(); ++c)
                campos << m.TextMatrix(r, c);
            copia.AddItem(campos.join(QLatin1Char('\t')));
        }
        const long long antesTodo = copia.celdasSumadas();
        t.restart();
        for (int c = 4; c <= 16; ++c) {
            copia.setSubtotalPosition(ModeloRejilla::PosicionSubtotal::Debajo);
            copia.Subtotal(1, c, hoja->FormatoNumero, hoja->Color4);
            copia.setSubtotalPosition(ModeloRejilla::PosicionSubtotal::Encima);
            copia.Subtotal(-1, c, hoja->FormatoNumero);
        }
        const double recarga = ms(t);
        salida << "Refresco de totales tras una celda: " << unaCelda * 1000.0 << " us, " << leidasUna << " celdas leídas" << Qt::endl;
        salida << "Recálculo completo de subtotales: " << recarga << " ms, " << (copia.celdasSumadas() - antesTodo)
               << " celdas leídas" << Qt::endl;
        salida << "Relación recálculo completo / una celda: " << recarga / unaCelda << Qt::endl;

        // A block of 1,000 rows x 12 months pasted from a spreadsheet.
        PlataformaDePrueba plataforma;
        QStringList lineas;
        for (int i = 0; i < 1000; ++i) {
            QStringList campos;
            for (int mes = 1; mes <= 12; ++mes)
                campos << QStringLiteral("%1,%2").arg(100 + i).arg(mes);
            lineas << campos.join(QLatin1Char('\t'));
        }
        plataforma.portapapeles->contenido = lineas.join(QStringLiteral("\r\n")) + QStringLiteral("\r\n");
        hoja->FlatEdit1->setText(QStringLiteral("2"));
        hoja->AplicarDecimales();
        m.Select(2, 4);
        const long long antesPegar = m.celdasSumadas();
        t.restart();
        hoja->Copiar_Desde_Clipboard();
        const double pegar = ms(t);
        const long long leidasPegar = m.celdasSumadas() - antesPegar;
        const QString totalTrasPegar = m.TextMatrix(1, 16);
        hoja->CargarPresupuesto();
        const bool totalesBien = m.TextMatrix(1, 16) == totalTrasPegar;

        // The same saves with no grid behind them.
        std::vector<std::pair<QString, qint16>> filas;
        for (int r = 2; r < m.Rows() && filas.size() < 1000; ++r)
            if (!m.IsSubtotal(r))
                filas.emplace_back(m.TextMatrix(r, 2), static_cast<qint16>(m.TextMatrix(r, 0).toInt()));
        clsDBPresupuesto almacen;
        t.restart();
        for (std::size_t i = 0; i < filas.size(); ++i)
            for (int mes = 1; mes <= 12; ++mes)
                almacen.ActualizacionManual(filas[i].first, filas[i].second, static_cast<qint16>(mes),
                                            Currency::fromRaw(static_cast<qint64>(1000000 + i * 10000 + mes * 1000)));
        const double soloGuardar = ms(t);
        salida << "Pegar 1.000 x 12 en la hoja: " << pegar << " ms, " << leidasPegar << " celdas leídas para totales, totales "
               << (totalesBien ? "correctos" : "INCORRECTOS") << Qt::endl;
        salida << "Mismos 12.000 guardados sin rejilla: " << soloGuardar << " ms" << Qt::endl;
        salida << "Relación pegar / guardar: " << pegar / soloGuardar << Qt::endl;
    }
    modPublic::Liberar();
    conexion.reset();
    return 0;
}
