#include <QApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    // Test discovery runs this binary at build time, where there is no display.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
