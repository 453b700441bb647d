#include "app/cli/CommandLine.h"
#include "app/translations/Translations.h"
#include "app/tray/TrayMain.h"

#include <QCoreApplication>

int main(int argc, char *argv[]) {
    QStringList arguments;
    for (int i = 0; i < argc; ++i) {
        arguments.append(QString::fromLocal8Bit(argv[i]));
    }
    QCoreApplication::setApplicationName(QStringLiteral("corvanta-monitor"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVANTA_VERSION));
    const CommandLine commandLine = CommandLine::parse(arguments);
    if (commandLine.action == CommandLine::Action::RunTray) {
        return runTray(argc, argv, commandLine.home);
    }
    // Everything else runs without a display.
    QCoreApplication app(argc, argv);
    installTranslations(app);
    return runCommandLine(commandLine);
}
