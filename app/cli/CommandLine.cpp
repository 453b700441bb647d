#include "CommandLine.h"

#include "app/common/PackageRoot.h"
#include "registry/MonitorSettings.h"
#include "registry/Paths.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <array>
#include <cstdio>

using namespace Qt::StringLiterals;

// The options, described for --help.
struct CommandLineOptions {
    QCommandLineOption help{{QStringLiteral("h"), QStringLiteral("help")},
                            CommandLine::tr("Show this help and exit.")};
    QCommandLineOption version{QStringLiteral("version"),
                               CommandLine::tr("Show the version and exit.")};
    QCommandLineOption home{QStringLiteral("home"),
                            CommandLine::tr("Use the Corvanta installation in <dir>."),
                            QStringLiteral("dir")};
    QCommandLineOption setHome{
        QStringLiteral("set-home"),
        CommandLine::tr(
            "Remember <dir> as the Corvanta installation in the settings file and exit."),
        QStringLiteral("dir")};
    QCommandLineOption json{
        QStringLiteral("json"),
        CommandLine::tr(
            "list, status, start, stop: print one JSON document; watch: one per line.")};
    QCommandLineOption output{
        QStringLiteral("output"),
        CommandLine::tr(
            "metrics: write to <file>, replaced atomically, instead of standard output."),
        QStringLiteral("file")};
    QCommandLineOption metrics{
        QStringLiteral("metrics"),
        CommandLine::tr("watch: keep <file> current in the Prometheus text format."),
        QStringLiteral("file")};
    // Takes its value only as --wait=SECONDS, which parse() rewrites first:
    // QCommandLineParser has no optional values.
    QCommandLineOption wait{
        QStringLiteral("wait"),
        CommandLine::tr("start, stop: wait until the instance is running or stopped, at most "
                        "--wait=<seconds> (default %1); then exit status 5.")
            .arg(CommandRequest::DefaultWaitSeconds)};

    void addTo(QCommandLineParser &parser) const {
        parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
        parser.setApplicationDescription(
            CommandLine::tr("Watches the local Corvanta database servers from the system tray."));
        parser.addOptions({help, version, home, setHome, json, wait, output, metrics});
        QStringList names;
        for (const CommandDescription &command : commandDescriptions()) {
            names.append(QString::fromLatin1(command.name));
        }
        const QString last = names.takeLast();
        parser.addPositionalArgument(QStringLiteral("command"),
                                     CommandLine::tr("%1 or %2; without one the tray starts.")
                                         .arg(names.join(QStringLiteral(", ")), last),
                                     QStringLiteral("[command [instance]]"));
    }

    // The options that only some commands take, with their flags.
    std::array<std::pair<const QCommandLineOption *, CommandOption>, 4> perCommand() const {
        return {{{&json, JsonOption},
                 {&wait, WaitOption},
                 {&output, OutputOption},
                 {&metrics, MetricsOption}}};
    }
};

namespace {

// The value of the last --wait=SECONDS (or -wait=SECONDS) before "--", each
// rewritten to a bare --wait for the parser; none when none carried one.
std::optional<QString> takeWaitValues(QStringList &arguments) {
    std::optional<QString> value;
    for (qsizetype i = 1; i < arguments.size() && arguments.at(i) != u"--"; ++i) {
        for (const QLatin1StringView prefix : {"--wait="_L1, "-wait="_L1}) {
            if (arguments.at(i).startsWith(prefix)) {
                value = arguments.at(i).mid(prefix.size());
                arguments[i] = QStringLiteral("--wait");
            }
        }
    }
    return value;
}

// A command's lines in --help: its synopsis, then its help text from the
// 38th column, on the next line when the synopsis reaches that far.
QString commandHelp(const CommandDescription &command) {
    constexpr qsizetype kColumn = 38;
    QString synopsis = u"  "_s + QLatin1StringView(command.name);
    if (command.takesInstance) {
        synopsis += u" [instance]"_s;
    }
    synopsis += u' ' + QLatin1StringView(command.synopsis);
    const QString indent(kColumn, u' ');
    const QStringList lines = CommandLine::tr(command.help).split(u'\n');
    QString text =
        synopsis.size() < kColumn ? synopsis.leftJustified(kColumn) : synopsis + u'\n' + indent;
    text += lines.join(u'\n' + indent) + u'\n';
    return text;
}

QString helpText() {
    QCommandLineParser parser;
    CommandLineOptions().addTo(parser);
    QString text = parser.helpText();
    text += CommandLine::tr(
                "\nThe installation is the first existing directory of: --home,\n"
                "CORVANTA_HOME, home= in section [monitor] of\n"
                "%1,\n"
                "/opt/corvanta, /usr/lib/corvanta, %2.\n"
                "\nCommands (they need no display):\n")
                .arg(MonitorSettings::defaultFile(),
                     Paths::append(programPackageRoot(), QStringLiteral("Contents/corvanta")));
    for (const CommandDescription &command : commandDescriptions()) {
        text += commandHelp(command);
    }
    text += CommandLine::tr(
        "An instance is a directory name as listed, a path to the instance\n"
        "directory, or default (also when none is given).\n"
        "\nExit status: 0 success, 1 failure, 2 usage error, 3 not running,\n"
        "4 no such instance, 5 timeout.\n");
    return text;
}

int usageError(const QString &error) {
    printError(error);
    printError(CommandLine::tr("Try '%1 --help' for more information.")
                   .arg(QStringLiteral("corvanta-monitor")));
    return ExitUsage;
}

int setHome(const QString &dir) {
    if (!Paths::existsAsDirectory(dir)) {
        printError(CommandLine::tr("%1: not a directory").arg(dir));
        return ExitFailure;
    }
    QString error;
    if (!MonitorSettings::write(MonitorSettings::defaultFile(), "home", Paths::resolveSymlinks(dir),
                                &error)) {
        printError(error);
        return ExitFailure;
    }
    return ExitSuccess;
}

}  // namespace

CommandLine CommandLine::parse(const QStringList &givenArguments) {
    QCommandLineParser parser;
    const CommandLineOptions options;
    options.addTo(parser);
    CommandLine result;
    QStringList arguments = givenArguments;
    const std::optional<QString> waitValue = takeWaitValues(arguments);
    if (!parser.parse(arguments)) {
        result.action = Action::UsageError;
        result.error = parser.errorText();
        return result;
    }
    result.positional = parser.positionalArguments();
    if (parser.isSet(options.home)) {
        result.home = parser.value(options.home);
    }
    if (parser.isSet(options.help)) {
        result.action = Action::ShowHelp;
    } else if (parser.isSet(options.version)) {
        result.action = Action::ShowVersion;
    } else if (parser.isSet(options.setHome)) {
        result.action = Action::SetHome;
        result.setHome = parser.value(options.setHome);
    } else if (!result.positional.isEmpty()) {
        result.parseCommand(parser, options, waitValue);
    } else {
        for (const auto &[option, flag] : options.perCommand()) {
            if (parser.isSet(*option)) {
                result.usageError(QT_TR_NOOP("%1 needs a command"),
                                  u"--"_s + option->names().first());
                break;
            }
        }
    }
    return result;
}

void CommandLine::parseCommand(const QCommandLineParser &parser, const CommandLineOptions &options,
                               const std::optional<QString> &waitValue) {
    const QString &name = positional.first();
    const CommandDescription *command = commandNamed(name);
    if (!command) {
        usageError(QT_TR_NOOP("unknown command '%1'"), name);
        return;
    }
    if (positional.size() > (command->takesInstance ? 2 : 1)) {
        usageError(QT_TR_NOOP("too many arguments for %1"), name);
        return;
    }
    for (const auto &[option, flag] : options.perCommand()) {
        if (!(command->options & flag) && parser.isSet(*option)) {
            usageError(QT_TR_NOOP("%1 does not take %2"), name, u"--"_s + option->names().first());
            return;
        }
    }
    request.command = command;
    request.instance = positional.value(1);
    request.json = parser.isSet(options.json);
    request.home = home;
    if (parser.isSet(options.output)) {
        request.outputFile = parser.value(options.output);
    }
    if (parser.isSet(options.metrics)) {
        request.metricsFile = parser.value(options.metrics);
    }
    if (parser.isSet(options.wait)) {
        bool ok = true;
        const int seconds = waitValue ? waitValue->toInt(&ok) : CommandRequest::DefaultWaitSeconds;
        if (!ok || seconds < 0 || seconds > CommandRequest::MaxWaitSeconds) {
            usageError(QT_TR_NOOP("--wait takes a number of seconds, not '%1'"), *waitValue);
            return;
        }
        request.waitSeconds = seconds;
    }
    action = Action::RunCommand;
}

void CommandLine::usageError(const char *format, const QString &argument, const QString &second) {
    action = Action::UsageError;
    errorFormat = format;
    errorArguments = second.isEmpty() ? QStringList{argument} : QStringList{argument, second};
}

QString CommandLine::errorText() const {
    if (!errorFormat) {
        return error;
    }
    QString text = tr(errorFormat);
    for (const QString &argument : errorArguments) {
        text = text.arg(argument);
    }
    return text;
}

int runCommandLine(const CommandLine &commandLine) {
    switch (commandLine.action) {
        case CommandLine::Action::ShowHelp:
            printText(stdout, helpText());
            return ExitSuccess;
        case CommandLine::Action::ShowVersion:
            printText(stdout,
                      QStringLiteral("%1 %2\n").arg(QStringLiteral("corvanta-monitor"),
                                                    QCoreApplication::applicationVersion()));
            return ExitSuccess;
        case CommandLine::Action::SetHome:
            return setHome(commandLine.setHome);
        case CommandLine::Action::RunCommand:
            return runCommand(commandLine.request, programPackageRoot());
        case CommandLine::Action::UsageError:
            return usageError(commandLine.errorText());
        case CommandLine::Action::RunTray:
            break;
    }
    return ExitUsage;  // the tray is not run from here
}
