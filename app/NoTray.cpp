// The tray for a build without the GUI (CORVANTA_GUI=OFF): the commands work,
// and running without one says what this build lacks.
#include "app/common/Output.h"
#include "app/tray/TrayMain.h"

#include <QCoreApplication>

int runTray(int &argc, char **argv, const std::optional<QString> &) {
    const QCoreApplication app(argc, argv);
    printError(QStringLiteral("this build has no tray; give a command (see --help)"));
    return ExitFailure;
}
