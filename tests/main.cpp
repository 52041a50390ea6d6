#include "desktop/PlataformaQt.h"

#include <QApplication>
#include <cstdio>
#include <gtest/gtest.h>

namespace {
// The offscreen platform says, for every window, what it cannot do.
void filtrarAvisos(QtMsgType tipo, const QMessageLogContext& contexto, const QString& mensaje)
{
    if (mensaje.startsWith(QLatin1String("This plugin does not support")))
        return;
    fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(tipo, contexto, mensaje)));
}
} // namespace

int main(int argc, char** argv)
{
    qInstallMessageHandler(filtrarAvisos);
    // Test discovery runs this binary at build time, where there is no display.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    presupuestos::predeterminarPlataformaQt();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
