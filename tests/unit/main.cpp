#include <QCoreApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    // Nothing here opens a window, but should anything reach for the
    // platform plugin it must not look for a display: test discovery runs
    // this binary at build time, where there is none.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Qt SQL opens SQLite without one, but the connection runs its
    // asynchronous statements on the event loop, and the import finds its
    // .xls helper beside the application, as in the product.
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
