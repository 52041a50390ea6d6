#include "desktop/PlataformaQt.h"

#include "worksheet/DisposicionHoja.h"

#include <QApplication>
#include <QSettings>
#include <QTemporaryDir>
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
    // Spain's clock, written as rules so that no zone file is needed: a
    // time taken as UTC instead of local is then an hour or two out.
    qputenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    QApplication app(argc, argv);
    presupuestos::predeterminarPlataformaQt();
    // The user's own settings are never read or written: the worksheet keeps
    // no layout unless a case asks it to, and then in a folder of this run.
    QCoreApplication::setOrganizationName(QStringLiteral("presupuestos-pruebas"));
    QCoreApplication::setApplicationName(QStringLiteral("presupuestos-pruebas"));
    QTemporaryDir ajustes;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, ajustes.path());
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, ajustes.path());
    presupuestos::DisposicionHoja::setActiva(false);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
