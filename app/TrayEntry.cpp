#include "TrayEntry.h"

#include "TrayMain.h"

#include <QGuiApplication>
#include <QString>

#include <optional>

extern "C" __attribute__((visibility("default"))) int corvanta_run_tray(int *argc, char **argv,
                                                                        const char *homeUtf8) {
    QGuiApplication::setDesktopFileName(QStringLiteral("com.nordelix.CorvantaMonitor"));
    std::optional<QString> home;
    if (homeUtf8 != nullptr) {
        home = QString::fromUtf8(homeUtf8);
    }
    return runTray(*argc, argv, home);
}
