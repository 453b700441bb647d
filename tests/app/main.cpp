#include "Fakes.h"
#include "registry/SystemLog.h"

#include <QApplication>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace {

void print(const QByteArray &text) {
    std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
}

// The environment set-up changes the environment of its process, so tests run
// it in a child: prints the log lines, the variables set, the search paths.
int envProbe(const char *packageRoot) {
    QByteArray out;
    setSystemLogSink([&out](const QString &line) { out += "log " + line.toUtf8() + '\n'; });
    ApplicationProbe probe;
    probe.app.setPackageRoot(QString::fromUtf8(packageRoot));
    probe.manager() = std::make_unique<CorvantaManager>();
    probe.app.setupGlobalEnvironment();
    for (const char *name :
         {"CORVANTA_HOME", "PATH", "LD_LIBRARY_PATH", "ODBCINI", "ODBCINSTINI"}) {
        if (const char *value = std::getenv(name)) {
            out += QByteArray(name) + '=' + value + '\n';
        }
    }
    for (const QString &path : probe.manager()->searchPaths()) {
        out += "search " + path.toUtf8() + '\n';
    }
    print(out);
    return 0;
}

// Prints the menu opened for one search directory, as another user.
int menuProbe(const char *searchDir) {
    ApplicationProbe probe;
    probe.manager() = std::make_unique<CorvantaManager>();
    probe.manager()->addSearchPath(QString::fromUtf8(searchDir));
    const std::unique_ptr<QMenu> menu = probe.app.createMenu();
    probe.app.menuWillOpen(menu.get());
    print(describe(*menu).toUtf8());
    return 0;
}

}  // namespace

int main(int argc, char *argv[]) {
    const QByteArray mode = argc == 3 ? argv[1] : "";
    if (mode == "--env-probe") {
        QCoreApplication qapp(argc, argv);
        return envProbe(argv[2]);
    }
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication qapp(argc, argv);
    if (mode == "--menu-probe") {
        return menuProbe(argv[2]);
    }
    QApplication::setQuitOnLastWindowClosed(false);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
