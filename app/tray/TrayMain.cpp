#include "TrayMain.h"

#include "Application.h"
#include "MessageBoxPrompt.h"
#include "app/common/Output.h"
#include "app/common/PackageRoot.h"
#include "app/common/TerminationSignals.h"
#include "app/platform/DBusNotifier.h"
#include "app/platform/LinuxPlatform.h"
#include "app/platform/SingleInstance.h"
#include "app/translations/Translations.h"

#include <QApplication>
#include <QTimer>

#include <unistd.h>

#include <cstdio>
#include <memory>

namespace {

QString variable(const char *name) {
    return qEnvironmentVariableIsSet(name) ? qEnvironmentVariable(name) : QStringLiteral("unset");
}

QString noDisplayLine() {
    return QStringLiteral("cannot connect to a display (DISPLAY=%1, WAYLAND_DISPLAY=%2)")
        .arg(variable("DISPLAY"), variable("WAYLAND_DISPLAY"));
}

// Whether Qt will look for a display server at all: an explicit platform
// such as offscreen needs none.
bool needsDisplay() {
    const QString platform = qEnvironmentVariable("QT_QPA_PLATFORM");
    return platform.isEmpty() || platform.startsWith(u"xcb") || platform.startsWith(u"wayland");
}

// While QApplication connects to the display, Qt's own messages are held
// back and a fatal one (no platform plugin could start) becomes one line and
// exit status 1 instead of an abort with a core dump.
class DisplayStartGuard {
public:
    DisplayStartGuard() { _previous = qInstallMessageHandler(&hold); }
    ~DisplayStartGuard() {
        qInstallMessageHandler(_previous);
        for (const QString &line : std::as_const(held())) {
            std::fprintf(stderr, "%s\n", line.toLocal8Bit().constData());
        }
        held().clear();
    }

private:
    static QStringList &held() {
        static QStringList lines;
        return lines;
    }
    static void hold(QtMsgType type, const QMessageLogContext &context, const QString &message) {
        if (type == QtFatalMsg) {
            printError(noDisplayLine());
            ::_exit(ExitFailure);
        }
        held().append(qFormatLogMessage(type, context, message));
    }
    QtMessageHandler _previous = nullptr;
};

}  // namespace

int runTray(int &argc, char **argv, const std::optional<QString> &home) {
    if (needsDisplay() && qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        printError(noDisplayLine());
        return ExitFailure;
    }
    QGuiApplication::setDesktopFileName(QStringLiteral("com.nordelix.CorvantaMonitor"));
    std::unique_ptr<QApplication> qapp;
    {
        const DisplayStartGuard guard;
        qapp = std::make_unique<QApplication>(argc, argv);
    }
    QApplication::setQuitOnLastWindowClosed(false);
    installTranslations(*qapp);

    // A second launch (autostart and a click on the launcher, say) is not a
    // failure: the monitor the user wants is running, so it says so and
    // exits with status 0.
    SingleInstance single;
    if (!single.acquire()) {
        printError(Application::tr("Corvanta Monitor is already running"));
        return ExitSuccess;
    }

    QtDesktopOpener opener;
    XdgAutostartList loginItems(XdgAutostartList::defaultDirectory(),
                                QCoreApplication::applicationFilePath());
    MessageBoxPrompt prompt;
    DBusNotifier notifier;
    auto application = std::make_unique<Application>(opener, loginItems, prompt, &notifier);
    notifier.setFallback(&application->trayNotifier());
    application->setInstallationSources(InstallationSources::standard(home, programPackageRoot()));
    QTimer::singleShot(0, application.get(), &Application::start);
    const TerminationSignals termination;
    QApplication::exec();
    application.reset();
    return ExitSuccess;
}
