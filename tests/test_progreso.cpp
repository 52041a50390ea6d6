#include "common/VbError.h"
#include "progress/frmProgress.h"

#include <QApplication>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTimer>
#include <gtest/gtest.h>

using namespace presupuestos;

TEST(Progreso, AppearsOnlyOnceTheDelayHasPassedAfterTheFirstValue)
{
    frmProgress p;
    p.Init(QStringLiteral("Proceso en curso."), 10);
    p.SetText(QStringLiteral("Copiando..."));
    EXPECT_EQ(p.lblTitle->text(), QStringLiteral("Proceso en curso."));
    EXPECT_EQ(p.lblProgressText->text(), QStringLiteral("Copiando..."));
    p.Start_Delayed(3);
    EXPECT_FALSE(p.Timer1->isActive());
    EXPECT_EQ(p.Timer1->interval(), 3000);
    p.SetValue(1);
    EXPECT_TRUE(p.Timer1->isActive());
    EXPECT_FALSE(p.isVisible());
    // The delay elapses while the work still runs.
    p.Timer1_Timer();
    EXPECT_TRUE(p.isVisible());
    EXPECT_FALSE(p.InicioDiferido);
    EXPECT_FALSE(p.Timer1->isActive());
    EXPECT_TRUE(p.windowFlags() & Qt::WindowStaysOnTopHint);
}

TEST(Progreso, WorkThatEndsWithinTheDelayNeverShowsIt)
{
    auto* p = new frmProgress;
    p->Init(QStringLiteral("Proceso en curso."), 100);
    p->Start_Delayed(1);
    for (int i = 0; i < 100; ++i)
        p->SetValue(i);
    EXPECT_FALSE(p->isVisible());
    delete p;   // the caller unloads it; the pending timer dies with it
    QApplication::processEvents();
}

TEST(Progreso, ZeroDelayNeverFiresAndTheBarNeverReachesItsMaximum)
{
    frmProgress p;
    p.Init(QStringLiteral("t"), 5);
    p.Start_Delayed(0);
    p.SetValue(1);
    EXPECT_FALSE(p.Timer1->isActive());
    p.SetValue(4);
    EXPECT_EQ(p.ProgressBar1->value(), 4);
    p.SetValue(5);
    EXPECT_EQ(p.ProgressBar1->value(), 4);
    EXPECT_THROW(p.Start_Delayed(33), VbError);
}

TEST(Progreso, CancelIsRaisedAndTheOwnerKeepsOneWindow)
{
    frmProgress p;
    QSignalSpy cancelar(&p, &frmProgress::Cancel);
    p.cmdCancelar->click();
    EXPECT_EQ(cancelar.count(), 1);
    clsProgress c;
    c.Init(QStringLiteral("a"), 3);
    ASSERT_NE(c.ventana(), nullptr);
    EXPECT_FALSE(c.ventana()->isVisible());
    EXPECT_EQ(c.ventana()->lblTitle->text(), QStringLiteral("a"));
}
