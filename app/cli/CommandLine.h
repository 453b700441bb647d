#pragma once

#include "Commands.h"
#include "app/common/Output.h"

#include <QCoreApplication>
#include <QString>
#include <QStringList>

#include <optional>

class QCommandLineParser;
struct CommandLineOptions;

// What the command line asks for. Parsed before any application object
// exists, so that the choice between the tray and a display-less run is made
// first; unknown options are usage errors (exit status 2).
struct CommandLine {
    Q_DECLARE_TR_FUNCTIONS(CommandLine)

public:
    enum class Action { RunTray, ShowHelp, ShowVersion, SetHome, RunCommand, UsageError };

    Action action = Action::RunTray;
    std::optional<QString> home;  // --home DIR
    QString setHome;              // --set-home DIR
    QStringList positional;
    CommandRequest request;  // RunCommand
    // UsageError: one line without the program prefix. Parsing comes before
    // any translation is installed, so our own texts are kept untranslated
    // (format with %1 for the argument) and translated when printed.
    QString error;
    const char *errorFormat = nullptr;
    QStringList errorArguments;

    static CommandLine parse(const QStringList &arguments);
    QString errorText() const;

private:
    void parseCommand(const QCommandLineParser &parser, const CommandLineOptions &options,
                      const std::optional<QString> &waitValue);
    void usageError(const char *format, const QString &argument, const QString &second = {});
};

// Runs whatever is not the tray: help, version, --set-home, the commands and
// usage errors. Needs a QCoreApplication (for translations), never a display.
int runCommandLine(const CommandLine &commandLine);
