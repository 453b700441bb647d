// Builds the status menu for one search directory in a process of its own
// (one that may run as another user) and prints it as text.

#include "Fakes.h"
#include "MenuText.h"

#include <QApplication>

#include <cstdio>

int main(int argc, char *argv[]) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication qapp(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: app_menu_probe SEARCH_DIRECTORY\n");
        return 2;
    }
    FakeOpener opener;
    FakeLoginItems logins;
    FakePrompt prompt;
    Application app(opener, logins, prompt);
    ApplicationProbe probe{app};
    probe.manager() = std::make_unique<CorvantaManager>();
    probe.manager()->addSearchPath(QString::fromUtf8(argv[1]));
    const std::unique_ptr<QMenu> menu = app.createMenu();
    app.menuWillOpen(menu.get());
    const QByteArray text = describe(*menu).toUtf8();
    std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
    return 0;
}
