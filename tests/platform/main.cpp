#include <QGuiApplication>

#include <gtest/gtest.h>

// Translators need an application object and the opener a GUI one; the
// offscreen platform gives both without a display unless a test run asks
// for a real one.
int main(int argc, char **argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
