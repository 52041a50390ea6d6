// The worksheet read at a glance: amounts shown whole at any decimals, the
// account beside them however far right the months go.

#include "EventosPrueba.h"
#include "HojaPrueba.h"
#include "grid/widgets/VistaRejilla.h"
#include "worksheet/core/Columnas.h"

#include <QFontMetrics>
#include <QImage>
#include <QScrollBar>
#include <QStyle>
#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;
using namespace presupuestos::hoja;

namespace {

// Cells of the months, the total and the subtotals whose text does not fit
// their column as the delegate draws it (a margin each side, the grid line).
QStringList recortadas(VistaRejilla& v)
{
    const ModeloRejilla& m = v.modelo();
    const int margen = v.style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, &v) + 1;
    QStringList fuera;
    for (int r = 1; r < m.Rows(); ++r) {
        for (int c = kPrimerMes; c <= kTotal; ++c) {
            const QModelIndex i = v.model()->index(r - 1, c);
            const QFont letra = i.data(Qt::FontRole).value<QFont>();
            const QString texto = m.TextMatrix(r, c);
            const int necesario = QFontMetrics(letra).horizontalAdvance(texto) + 2 * margen + 1;
            if (necesario > v.columnWidth(c))
                fuera << QStringLiteral("%1,%2 \"%3\" %4>%5").arg(r).arg(c).arg(texto).arg(necesario).arg(v.columnWidth(c));
        }
    }
    return fuera;
}

// The pixels of the fixed columns' area of a grid.
QImage zonaFija(VistaRejilla& v)
{
    const QRect vp = v.viewport()->geometry();
    return v.grab(QRect(vp.x(), 0, v.anchoFijas(), vp.bottom())).toImage();
}

} // namespace

TEST(HojaLectura, NoAmountTotalOrSubtotalIsCutShortAtAnyDecimals)
{
    HojaAbierta h(true);
    frmActPresupusto* f = h.hoja;
    h.mostrarHistorico();
    for (int n : {0, 2, 4}) {
        h.decimales(n);
        f->CargarHistorico(); // the history takes the decimals when it is next loaded
        for (VistaRejilla* v : {f->vsPresupuesto, f->vsHistorico}) {
            ASSERT_GT(v->modelo().Rows(), 10);
            EXPECT_EQ(recortadas(*v), QStringList()) << v->objectName().toStdString() << " con " << n << " decimales";
        }
    }
    // Back to no decimals the columns narrow again, never below the width
    // the layout gives them.
    const int ancho4 = f->vsPresupuesto->columnWidth(kTotal);
    h.decimales(0);
    f->CargarHistorico();
    EXPECT_LT(f->vsPresupuesto->columnWidth(kTotal), ancho4);
    EXPECT_GE(f->vsPresupuesto->columnWidth(kPrimerMes), 1000 / 15);
}

TEST(HojaLectura, AnEditThatLengthensAnAmountWidensItsColumnAndTheTotals)
{
    HojaAbierta h(true);
    frmActPresupusto* f = h.hoja;
    const ModeloRejilla& m = f->vsPresupuesto->modelo();
    int fila = -1;
    for (int r = 1; r < m.Rows() && fila < 0; ++r)
        if (!m.IsSubtotal(r) && !m.RowHidden(r))
            fila = r;
    ASSERT_GT(fila, 0);
    f->EditCellValue(fila, colMes(3), Currency::fromRaw(987654321098LL * 10000));
    EXPECT_EQ(recortadas(*f->vsPresupuesto), QStringList());
}

TEST(HojaLectura, TheAccountStaysInSightWhenTheGridScrollsToDecember)
{
    HojaAbierta h(true);
    frmActPresupusto* f = h.hoja;
    h.mostrarHistorico();
    for (VistaRejilla* v : {f->vsPresupuesto, f->vsHistorico}) {
        SCOPED_TRACE(v->objectName().toStdString());
        ModeloRejilla& m = v->modelo();
        m.Select(2, kPrimerMes);   // the other grid follows the cursor
        v->horizontalScrollBar()->setValue(0);
        ASSERT_GE(v->anchoFijas(), v->columnWidth(kCuenta) + v->columnWidth(kNombre));
        m.Select(2, kUltimoMes);
        QApplication::processEvents();
        const QRect diciembre = v->rectCelda(2, kUltimoMes);
        EXPECT_GT(v->horizontalScrollBar()->value(), 0);
        EXPECT_GE(diciembre.left(), v->anchoFijas());
        EXPECT_LE(diciembre.right(), v->viewport()->width());
        const int y = v->rectCelda(2, kNombre).center().y();
        EXPECT_EQ(v->colEn(QPoint(2, y)), kCuenta);
        EXPECT_EQ(v->colEn(QPoint(v->anchoFijas() - 2, y)), kNombre);
        EXPECT_GE(v->rectCelda(2, kCuenta).left(), 0);
        const QImage desplazada = zonaFija(*v);

        // The fixed area shows what it showed before the grid moved.
        v->horizontalScrollBar()->setValue(0);
        QApplication::processEvents();
        EXPECT_EQ(zonaFija(*v), desplazada);
        m.Select(2, kUltimoMes);
        QApplication::processEvents();

        // A click on the account, scrolled right, is a click on that cell.
        const QPoint enCuenta = v->rectCelda(4, kCuenta).center();
        QWidget* bajoRaton = v->childAt(v->viewport()->mapTo(v, enCuenta));
        ASSERT_NE(bajoRaton, nullptr);
        ASSERT_NE(bajoRaton, v->viewport());
        int pulsados = 0;
        QObject::connect(v, &VistaRejilla::MouseDown, v, [&](int boton, int, int x, int yy) {
            ++pulsados;
            EXPECT_EQ(boton, 1);
            EXPECT_EQ(v->filaEn(QPoint(x, yy)), 4);
            EXPECT_EQ(v->colEn(QPoint(x, yy)), kCuenta);
        });
        const QPoint local = bajoRaton->mapFrom(v, v->viewport()->mapTo(v, enCuenta));
        for (QEvent::Type tipo : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
            QMouseEvent e(tipo, QPointF(local), QPointF(bajoRaton->mapToGlobal(local)), Qt::LeftButton,
                          tipo == QEvent::MouseButtonPress ? Qt::LeftButton : Qt::NoButton, Qt::NoModifier);
            QApplication::sendEvent(bajoRaton, &e);
        }
        EXPECT_EQ(pulsados, 1);
        EXPECT_EQ(m.Row(), 4);
        EXPECT_EQ(m.Col(), kCuenta);
        QObject::disconnect(v, &VistaRejilla::MouseDown, v, nullptr);
    }
}
