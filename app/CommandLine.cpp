#include "CommandLine.h"

#include "Application.h"
#include "registry/MonitorSettings.h"
#include "registry/Paths.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

namespace {

struct Options {
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

    void addTo(QCommandLineParser &parser) const {
        parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
        parser.setApplicationDescription(
            CommandLine::tr("Watches the local Corvanta database servers from the system tray."));
        parser.addOptions({help, version, home, setHome});
    }
};

void print(FILE *stream, const QString &text) {
    const QByteArray bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

QString helpText() {
    QCommandLineParser parser;
    Options().addTo(parser);
    QString text = parser.helpText();
    text += CommandLine::tr(
                "\nThe installation is the first existing directory of: --home,\n"
                "CORVANTA_HOME, home= in section [monitor] of\n"
                "%1,\n"
                "/opt/corvanta, /usr/lib/corvanta, %2.\n"
                "\nExit status: 0 success, 1 failure, 2 usage error.\n")
                .arg(MonitorSettings::defaultFile(),
                     Paths::append(Application::defaultPackageRoot(),
                                   QStringLiteral("Contents/corvanta")));
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

CommandLine CommandLine::parse(const QStringList &arguments) {
    QCommandLineParser parser;
    const Options options;
    options.addTo(parser);
    CommandLine result;
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
        result.action = Action::UsageError;
        result.error = QStringLiteral("unknown command '%1'").arg(result.positional.first());
    }
    return result;
}

int runCommandLine(const CommandLine &commandLine) {
    switch (commandLine.action) {
        case CommandLine::Action::ShowHelp:
            print(stdout, helpText());
            return ExitSuccess;
        case CommandLine::Action::ShowVersion:
            print(stdout, QStringLiteral("%1 %2\n").arg(QStringLiteral("corvanta-monitor"),
                                                        QCoreApplication::applicationVersion()));
            return ExitSuccess;
        case CommandLine::Action::SetHome:
            return setHome(commandLine.setHome);
        case CommandLine::Action::UsageError:
            return usageError(commandLine.error);
        case CommandLine::Action::RunTray:
            break;
    }
    return ExitUsage;  // the tray is not run from here
}

void printError(const QString &line) {
    print(stderr, QStringLiteral("corvanta-monitor: %1\n").arg(line));
}
