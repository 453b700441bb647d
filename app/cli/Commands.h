#pragma once

#include <QCoreApplication>
#include <QString>

#include <optional>
#include <span>

struct CommandDescription;

// One command of the display-less command line, already checked for usage.
struct CommandRequest {
    const CommandDescription *command = nullptr;
    QString instance;  // empty: the default instance
    bool json = false;
    std::optional<int> waitSeconds;      // start and stop only
    std::optional<QString> home;         // --home DIR
    std::optional<QString> outputFile;   // metrics --output FILE
    std::optional<QString> metricsFile;  // watch --metrics FILE

    static constexpr int DefaultWaitSeconds = 30;
    static constexpr int MaxWaitSeconds = 24 * 60 * 60;
};

// The options a command may take beyond --home.
enum CommandOption : unsigned {
    JsonOption = 1,
    WaitOption = 2,
    OutputOption = 4,
    MetricsOption = 8,
};

// A command, all that the parser, --help and the dispatch know of it: adding
// one is adding a row to commandDescriptions().
struct CommandDescription {
    const char *name;
    bool takesInstance;    // an optional instance argument after the name
    unsigned options;      // CommandOption flags
    const char *synopsis;  // the options as --help shows them after the arguments
    // For --help, untranslated (CommandLine context); lines end in \n.
    const char *help;
    // Runs it on the installation found; answers the exit status.
    int (*run)(const CommandRequest &request, const QString &home);
};

std::span<const CommandDescription> commandDescriptions();
const CommandDescription *commandNamed(const QString &name);

// Finds the installation as the tray does (exporting its environment for the
// servers started here), then runs the command; answers the exit status.
// `packageRoot` is the program's own, for the bundled-installation fallback.
int runCommand(const CommandRequest &request, const QString &packageRoot);
