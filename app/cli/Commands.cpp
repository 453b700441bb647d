#include "Commands.h"

#include "InstanceLookup.h"
#include "InstanceReport.h"
#include "Metrics.h"
#include "Watch.h"
#include "app/common/Output.h"
#include "registry/CorvantaManager.h"
#include "registry/Installation.h"

#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QThread>

#include <cerrno>
#include <cstring>

namespace {

// A command-line process has nothing else to do while it waits; each poll
// costs one refresh (a stat or a signal-0 probe).
constexpr qint64 kPollIntervalMs = 50;

struct JsonOutput {
    Q_DECLARE_TR_FUNCTIONS(JsonOutput)

public:
    // One document, ending in a line break, in one write where the system
    // allows; a failed write is a failure of the command.
    static int print(const QJsonObject &object, int status) {
        QByteArray text = QJsonDocument(object).toJson(QJsonDocument::Compact);
        text += '\n';
        if (!writeStandardOutput(text)) {
            printError(
                tr("cannot write the output: %1").arg(QString::fromLocal8Bit(strerror(errno))));
            return ExitFailure;
        }
        return status;
    }

    // An instance's object on one line.
    static int print(const InstanceReport &report, int status) {
        return print(report.toJson(), status);
    }
};

// One command on one instance; the instance as the listing left it.
class InstanceCommand {
    Q_DECLARE_TR_FUNCTIONS(InstanceCommand)

public:
    InstanceCommand(CorvantaInstance &instance, const CommandRequest &request, bool isDefault)
        : _instance(instance), _request(request), _isDefault(isDefault) {}

    int status() {
        const InstanceReport report = InstanceReport::of(_instance, _isDefault);
        const int status = report.status == ServerStatusRunning ? ExitSuccess : ExitNotRunning;
        if (_request.json) {
            return JsonOutput::print(report, status);
        }
        printText(stdout, InstanceReport::table({report}));
        return status;
    }

    int start() {
        // Refreshed just now: this is the live state.
        if (_instance.serverStatus() == ServerStatusRunning) {
            return finish(tr("%1 is already running (pid %2)."));
        }
        // Gated as the menu gates its Start item.
        if (!_instance.canStart()) {
            return fail(tr("cannot start %1: %2 is not readable and writable")
                            .arg(_instance.instanceName(), _instance.directory()));
        }
        if (!_instance.startup()) {
            return fail(tr("cannot start %1").arg(_instance.instanceName()));
        }
        if (!_request.waitSeconds) {
            return finish(tr("%1 is starting (pid %2)."));
        }
        switch (waitFor(ServerStatusRunning)) {
            case WaitResult::Reached:
                return finish(tr("%1 is running (pid %2)."));
            case WaitResult::TimedOut:
                return timedOut();
            case WaitResult::Failed:
                break;
        }
        const std::optional<QString> log = _instance.logFile();
        return fail(log ? tr("the server of %1 exited before it was running; see %2")
                              .arg(_instance.instanceName(), *log)
                        : tr("the server of %1 exited before it was running")
                              .arg(_instance.instanceName()));
    }

    int stop() {
        if (_instance.serverStatus() == ServerStatusStopped) {
            return finish(tr("%1 is already stopped."));
        }
        if (!_instance.canStart()) {
            return fail(tr("cannot stop %1: %2 is not readable and writable")
                            .arg(_instance.instanceName(), _instance.directory()));
        }
        // When signal 15 cannot be sent, the registry has logged why.
        if (!_instance.shutdown()) {
            return fail(tr("cannot stop %1").arg(_instance.instanceName()));
        }
        if (!_request.waitSeconds) {
            return finish(tr("%1 is stopping (pid %2)."));
        }
        if (waitFor(ServerStatusStopped) != WaitResult::Reached) {
            return timedOut();
        }
        return finish(tr("%1 is stopped."));
    }

private:
    enum class WaitResult { Reached, Failed, TimedOut };

    WaitResult waitFor(qint32 wanted) {
        const QDeadlineTimer deadline(qint64(*_request.waitSeconds) * 1000);
        for (;;) {
            _instance.refresh();
            const qint32 status = _instance.serverStatus();
            if (status == wanted) {
                return WaitResult::Reached;
            }
            // A server that has exited, or a directory that is gone, will not run.
            if (wanted == ServerStatusRunning &&
                (status == ServerStatusStopped || _instance.entryStatus() == EntryStatusInvalid)) {
                return WaitResult::Failed;
            }
            if (deadline.hasExpired()) {
                return WaitResult::TimedOut;
            }
            QThread::msleep(quint64(std::min(kPollIntervalMs, deadline.remainingTime())));
        }
    }

    // The instance as the command left it: JSON, or one sentence for a person.
    int finish(const QString &sentence) {
        const InstanceReport report = InstanceReport::of(_instance, _isDefault);
        if (_request.json) {
            return JsonOutput::print(report, ExitSuccess);
        }
        // Sentences without a live server have no %2 for its pid.
        printText(stdout,
                  (sentence.contains(u"%2") ? sentence.arg(report.name, QString::number(report.pid))
                                            : sentence.arg(report.name)) +
                      u'\n');
        return ExitSuccess;
    }

    static int fail(const QString &line) {
        printError(line);
        return ExitFailure;
    }

    int timedOut() {
        printError(tr("%1 is still %2 after %3 s")
                       .arg(_instance.instanceName(),
                            InstanceReport::stateText(_instance.serverStatus()),
                            QString::number(*_request.waitSeconds)));
        return ExitTimeout;
    }

    CorvantaInstance &_instance;
    const CommandRequest &_request;
    const bool _isDefault;
};

struct Listing {
    Q_DECLARE_TR_FUNCTIONS(Listing)

public:
    static int print(const QString &home, const QList<CorvantaInstancePtr> &instances, bool json) {
        const QList<InstanceReport> reports = InstanceReport::listing(instances);
        if (json) {
            return JsonOutput::print(InstanceReport::listingJson(home, reports), ExitSuccess);
        }
        if (reports.isEmpty()) {
            printText(stdout, tr("No Corvanta instances in %1").arg(home) + u'\n');
        } else {
            printText(stdout, InstanceReport::table(reports));
        }
        return ExitSuccess;
    }
};

// The instance asked about is the only one refreshed: another's stale lock
// file is no business of this command.
int runOnInstance(const CommandRequest &request, const QString &home,
                  int (InstanceCommand::*action)()) {
    CorvantaManager manager;
    manager.addSearchPath(home);
    const QList<CorvantaInstancePtr> instances = manager.discoveredInstances();
    const InstanceLookup lookup = InstanceLookup::find(instances, request.instance);
    if (!lookup.instance) {
        printError(lookup.error);
        return ExitNoSuchInstance;
    }
    lookup.instance->refresh();
    InstanceCommand command(*lookup.instance, request,
                            lookup.instance == chooseDefaultInstance(instances));
    return (command.*action)();
}

int runList(const CommandRequest &request, const QString &home) {
    CorvantaManager manager;
    manager.addSearchPath(home);
    return Listing::print(home, manager.allInstances(), request.json);
}

int runStatus(const CommandRequest &request, const QString &home) {
    return runOnInstance(request, home, &InstanceCommand::status);
}

int runStart(const CommandRequest &request, const QString &home) {
    return runOnInstance(request, home, &InstanceCommand::start);
}

int runStop(const CommandRequest &request, const QString &home) {
    return runOnInstance(request, home, &InstanceCommand::stop);
}

// In --help's order.
constexpr CommandDescription kCommands[] = {
    {"list", false, JsonOption, "[--json]",
     QT_TRANSLATE_NOOP("CommandLine", "every instance, in the menu's order"), runList},
    {"status", true, JsonOption, "[--json]",
     QT_TRANSLATE_NOOP("CommandLine",
                       "one instance; exit status 3 when its\nserver is not running"),
     runStatus},
    {"start", true, JsonOption | WaitOption, "[--wait[=seconds]]",
     QT_TRANSLATE_NOOP("CommandLine", "start its server"), runStart},
    {"stop", true, JsonOption | WaitOption, "[--wait[=seconds]]",
     QT_TRANSLATE_NOOP("CommandLine", "stop its server"), runStop},
    {"watch", true, JsonOption | MetricsOption, "[--json] [--metrics file]",
     QT_TRANSLATE_NOOP("CommandLine",
                       "every instance, or one, then each\nchange until interrupted"),
     runWatch},
    {"metrics", false, OutputOption, "[--output file]",
     QT_TRANSLATE_NOOP("CommandLine", "every instance in the Prometheus\ntext format"), runMetrics},
};

}  // namespace

std::span<const CommandDescription> commandDescriptions() {
    return kCommands;
}

const CommandDescription *commandNamed(const QString &name) {
    for (const CommandDescription &command : kCommands) {
        if (name == QLatin1StringView(command.name)) {
            return &command;
        }
    }
    return nullptr;
}

int runCommand(const CommandRequest &request, const QString &packageRoot) {
    // On failure the lookup has logged why, naming every place it tried.
    const std::optional<QString> home =
        exportInstallationEnvironment(InstallationSources::standard(request.home, packageRoot));
    if (!home) {
        return ExitFailure;
    }
    return request.command->run(request, *home);
}
