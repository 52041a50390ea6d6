// The window as the user left it: its size and place and the share of the
// width between budget and history survive a restart; what the worksheet
// loads does not.

#include "HojaPrueba.h"
#include "worksheet/DisposicionHoja.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QSettings>
#include <QSplitter>
#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;

namespace {

// The layout kept for one case, in the run's own settings folder.
struct DisposicionActiva {
    DisposicionActiva()
    {
        QSettings().clear();
        DisposicionHoja::setActiva(true);
    }
    ~DisposicionActiva()
    {
        QSettings().clear();
        DisposicionHoja::setActiva(false);
    }
};

} // namespace

TEST(Disposicion, SizePlaceAndTheGridsShareSurviveARestartButNotTheLoadedSettings)
{
    DisposicionActiva activa;
    // Never the user's own file.
    EXPECT_FALSE(QSettings().fileName().startsWith(QDir::homePath() + QStringLiteral("/.config")))
        << QSettings().fileName().toStdString();
    QRect geometria;
    {
        HojaAbierta h;
        frmActPresupusto* f = h.hoja;
        f->setGeometry(40, 30, 1100, 640);
        QApplication::processEvents();
        geometria = f->geometry();
        h.mostrarHistorico();
        const int ancho = f->divisor->sizes().value(0) + f->divisor->sizes().value(1);
        f->divisor->setSizes({ancho / 4, ancho - ancho / 4});
        h.decimales(2);
        f->close();
    }
    HojaAbierta h;
    frmActPresupusto* f = h.hoja;
    QApplication::processEvents();
    EXPECT_EQ(f->geometry(), geometria);
    EXPECT_EQ(f->Decimales, 0);
    EXPECT_FALSE(f->chkMostrarHistorico->isChecked());
    h.mostrarHistorico();
    const QList<int> tamanos = f->divisor->sizes();
    ASSERT_EQ(tamanos.size(), 2);
    EXPECT_NEAR(static_cast<double>(tamanos[0]) / (tamanos[0] + tamanos[1]), 0.25, 0.02);
}

TEST(Disposicion, WithoutAKeptLayoutTheWindowIsCentredAndTheGridsShareHalves)
{
    DisposicionActiva activa;
    HojaAbierta h;
    frmActPresupusto* f = h.hoja;
    EXPECT_EQ(f->size(), QSize(1280, 700));
    h.mostrarHistorico();
    const QList<int> tamanos = f->divisor->sizes();
    ASSERT_EQ(tamanos.size(), 2);
    EXPECT_LE(std::abs(tamanos[0] - tamanos[1]), 1);
}
