#pragma once

#include <QCoreApplication>
#include <QString>

#include <optional>

// One command of the display-less command line, already checked for usage.
struct CommandRequest {
    Q_DECLARE_TR_FUNCTIONS(CommandRequest)

public:
    enum class Command { List, Status, Start, Stop, Watch, Metrics };

    Command command = Command::List;
    QString instance;  // empty: the default instance
    bool json = false;
    std::optional<int> waitSeconds;      // start and stop only
    std::optional<QString> home;         // --home DIR
    std::optional<QString> outputFile;   // metrics --output FILE
    std::optional<QString> metricsFile;  // watch --metrics FILE

    static constexpr int DefaultWaitSeconds = 30;
    static constexpr int MaxWaitSeconds = 24 * 60 * 60;

    static std::optional<Command> commandNamed(const QString &name);
};

// The directory above the executable's, as the tray computes it: the root of
// a bundled installation. Needs a QCoreApplication.
QString programPackageRoot();

// Finds the installation as the tray does (exporting its environment for the
// servers started here), then runs the command; answers the exit status.
// `packageRoot` is the program's own, for the bundled-installation fallback.
int runCommand(const CommandRequest &request, const QString &packageRoot);
