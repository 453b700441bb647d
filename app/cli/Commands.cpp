#include "Commands.h"

#include "InstanceLookup.h"
#include "InstanceReport.h"
#include "Output.h"
#include "Watch.h"
#include "registry/CorvantaManager.h"
#include "registry/Installation.h"
#include "registry/Paths.h"

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
        // The listing has just refreshed it: this is the live state.
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

}  // namespace

std::optional<CommandRequest::Command> CommandRequest::commandNamed(const QString &name) {
    if (name == u"list") {
        return Command::List;
    }
    if (name == u"status") {
        return Command::Status;
    }
    if (name == u"start") {
        return Command::Start;
    }
    if (name == u"stop") {
        return Command::Stop;
    }
    if (name == u"watch") {
        return Command::Watch;
    }
    if (name == u"metrics") {
        return Command::Metrics;
    }
    return std::nullopt;
}

QString programPackageRoot() {
    return Paths::standardize(QCoreApplication::applicationDirPath() + QStringLiteral("/.."));
}

int runCommand(const CommandRequest &request, const QString &packageRoot) {
    using Command = CommandRequest::Command;
    // On failure the lookup has logged why, naming every place it tried.
    const std::optional<QString> home =
        exportInstallationEnvironment(InstallationSources::standard(request.home, packageRoot));
    if (!home) {
        return ExitFailure;
    }
    if (request.command == Command::Watch) {
        return runWatch(request, *home);
    }
    if (request.command == Command::Metrics) {
        return runMetrics(request, *home);
    }
    CorvantaManager manager;
    manager.addSearchPath(*home);
    const QList<CorvantaInstancePtr> instances = manager.allInstances();
    if (request.command == Command::List) {
        return Listing::print(*home, instances, request.json);
    }
    const InstanceLookup lookup = InstanceLookup::find(instances, request.instance);
    if (!lookup.instance) {
        printError(lookup.error);
        return ExitNoSuchInstance;
    }
    InstanceCommand command(*lookup.instance, request,
                            lookup.instance == chooseDefaultInstance(instances));
    switch (request.command) {
        case Command::Start:
            return command.start();
        case Command::Stop:
            return command.stop();
        case Command::Status:
        case Command::List:
        case Command::Watch:
        case Command::Metrics:
            break;
    }
    return command.status();
}
