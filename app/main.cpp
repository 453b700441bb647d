#include "Application.h"
#include "MessageBoxPrompt.h"
#include "TerminationSignals.h"
#include "platform/DBusNotifier.h"
#include "platform/LinuxPlatform.h"
#include "platform/SingleInstance.h"
#include "platform/Translations.h"

#include <QApplication>
#include <QTimer>

#include <cstdio>
#include <memory>

int main(int argc, char *argv[]) {
    QApplication qapp(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    installTranslations(qapp);

    // A second launch (autostart and a click on the launcher, say) is not a
    // failure: the monitor the user wants is running, so it says so and
    // exits with status 0.
    SingleInstance single;
    if (!single.acquire()) {
        const QByteArray line =
            Application::tr("Corvanta Monitor is already running").toLocal8Bit();
        std::fprintf(stderr, "%s\n", line.constData());
        return 0;
    }

    QtDesktopOpener opener;
    XdgAutostartList loginItems(XdgAutostartList::defaultDirectory(),
                                QCoreApplication::applicationFilePath());
    MessageBoxPrompt prompt;
    auto application = std::make_unique<Application>(opener, loginItems, prompt);
    DBusNotifier notifier;
    notifier.setFallback(&application->trayNotifier());
    application->setNotifier(&notifier);
    QTimer::singleShot(0, application.get(), &Application::applicationDidFinishLaunching);
    const TerminationSignals termination;
    QApplication::exec();
    application.reset();
    return 0;
}
