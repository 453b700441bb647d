#pragma once

#include <QCoreApplication>
#include <QString>
#include <QStringList>

#include <optional>

// What the command line asks for. Parsed before any application object
// exists, so that the choice between the tray and a display-less run is made
// first; unknown options are usage errors (exit status 2).
struct CommandLine {
    Q_DECLARE_TR_FUNCTIONS(CommandLine)

public:
    enum class Action { RunTray, ShowHelp, ShowVersion, SetHome, UsageError };

    Action action = Action::RunTray;
    std::optional<QString> home;  // --home DIR
    QString setHome;              // --set-home DIR
    QStringList positional;
    QString error;  // UsageError: one line without the program prefix

    static CommandLine parse(const QStringList &arguments);
};

// Exit statuses of the program.
enum ExitStatus : int { ExitSuccess = 0, ExitFailure = 1, ExitUsage = 2 };

// Runs whatever is not the tray: help, version, --set-home and usage errors.
// Needs a QCoreApplication (for translations), never a display.
int runCommandLine(const CommandLine &commandLine);

// Writes "corvanta-monitor: <line>" to standard error.
void printError(const QString &line);
