// Runs the installation environment set-up in a process of its own and prints
// what it left behind: the five variables, the manager's search paths and the
// log lines, one per line.

#include "Fakes.h"
#include "registry/SystemLog.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

int main(int argc, char *argv[]) {
    QCoreApplication qapp(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: app_env_probe PACKAGE_ROOT\n");
        return 2;
    }
    QByteArray out;
    setSystemLogSink([&out](const QString &line) { out += "log " + line.toUtf8() + '\n'; });

    FakeOpener opener;
    FakeLoginItems logins;
    FakePrompt prompt;
    Application app(opener, logins, prompt);
    app.setPackageRoot(QString::fromUtf8(argv[1]));
    ApplicationProbe probe{app};
    probe.manager() = std::make_unique<CorvantaManager>();
    app.setupGlobalEnvironment();

    for (const char *name :
         {"CORVANTA_HOME", "PATH", "LD_LIBRARY_PATH", "ODBCINI", "ODBCINSTINI"}) {
        const char *value = std::getenv(name);
        out += QByteArray(name) + (value ? "=" + QByteArray(value) : QByteArray(" unset")) + '\n';
    }
    for (const QString &path : probe.manager()->searchPaths()) {
        out += "search " + path.toUtf8() + '\n';
    }
    std::fwrite(out.constData(), 1, size_t(out.size()), stdout);
    return 0;
}
