#include <QCoreApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    // Nothing here opens a window, but should anything reach for the
    // platform plugin it must not look for a display: test discovery runs
    // this binary at build time, where there is none.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Spain's clock, written as rules so that no zone file is needed: a
    // time taken as UTC instead of local is then an hour or two out.
    qputenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    // Qt SQL opens SQLite without one, but the connection runs its
    // asynchronous statements on the event loop, and the import finds its
    // .xls helper beside the application, as in the product.
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
