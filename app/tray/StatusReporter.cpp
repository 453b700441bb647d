#include "StatusReporter.h"

#include "registry/SystemLog.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

namespace {

const QString kOpenLog = QStringLiteral("open-log");
const QString kForceStop = QStringLiteral("force-stop");

IconState iconStateOf(const CorvantaInstance *instance) {
    switch (instance ? instance->serverStatus() : ServerStatusUnknown) {
        case ServerStatusRunning:
            return IconState::Running;
        case ServerStatusStopped:
            return IconState::Stopped;
        case ServerStatusStarting:
        case ServerStatusStopping:
            return IconState::Transition;
        default:
            return IconState::Unknown;
    }
}

// The registry takes a lock file's pid over the process it launched, even the
// dead pid a killed server left behind, and then reads the instance as stopped
// while the new server is still starting. Until the launched process has
// exited or is the one the record follows, the start is still under way.
bool startUnderWay(qint32 launched, const CorvantaInstance &instance) {
    if (launched <= 1 || instance.pid() == launched) {
        return false;
    }
    siginfo_t info{};
    // WNOWAIT: the registry's own probe is what reaps.
    return ::waitid(P_PID, id_t(launched), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

}  // namespace

QString describeExit(std::optional<int> waitStatus) {
    if (waitStatus && WIFEXITED(*waitStatus)) {
        return StatusReporter::tr("The server exited with status %1.")
            .arg(WEXITSTATUS(*waitStatus));
    }
    if (waitStatus && WIFSIGNALED(*waitStatus)) {
        return StatusReporter::tr("The server was killed by signal %1.").arg(WTERMSIG(*waitStatus));
    }
    return StatusReporter::tr(
        "The server ended; its exit status is not known to Corvanta Monitor.");
}

QString readLogTail(const QString &path, qsizetype bytes, int lines) {
    // Non-blocking, so a FIFO in the log's place cannot hold the program up;
    // only a regular file is read.
    const int fd = ::open(path.toUtf8().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return {};
    }
    QByteArray text;
    struct stat info {};
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && bytes > 0) {
        const off_t from = std::max<off_t>(0, info.st_size - off_t(bytes));
        text.resize(bytes);
        const ssize_t n = ::pread(fd, text.data(), size_t(bytes), from);
        text.resize(n > 0 ? qsizetype(n) : 0);
        if (from > 0) {
            // The first line is cut; it is dropped.
            const qsizetype newline = text.indexOf('\n');
            text = newline < 0 ? QByteArray() : text.mid(newline + 1);
        }
    }
    ::close(fd);
    QStringList all = QString::fromUtf8(text).split(u'\n', Qt::SkipEmptyParts);
    return all.mid(std::max<qsizetype>(0, all.size() - lines)).join(u'\n');
}

StatusReporter::StatusReporter(InstanceModel &model, Notifier &notifier, DesktopOpener &opener,
                               Confirm confirm, QObject *parent)
    : QObject(parent),
      _notifier(notifier),
      _opener(opener),
      _confirm(std::move(confirm)),
      _model(model) {
    connect(&_model, &InstanceModel::refreshed, this, &StatusReporter::observe);
    connect(&_model, &InstanceModel::rescanned, this, &StatusReporter::rescanned);
    rescanned();
}

StatusReporter::~StatusReporter() = default;

void StatusReporter::rescanned() {
    const QList<CorvantaInstancePtr> &instances = _model.instances();
    // Usually the records of the last scan, which have nothing to prune.
    if (instances != _listed) {
        QHash<QString, std::shared_ptr<Tracked>> kept;
        for (const CorvantaInstancePtr &instance : instances) {
            std::shared_ptr<Tracked> tracked = _tracked.take(instance->directory());
            if (tracked && tracked->instance == instance) {
                kept.insert(instance->directory(), tracked);
            }
        }
        _tracked = std::move(kept);  // the rest, their timers with them, are gone
        _listed = instances;
    }
    for (const CorvantaInstancePtr &instance : instances) {
        observe(instance);
    }
    updateIcon();
}

void StatusReporter::startRequested(const CorvantaInstancePtr &instance) {
    request(instance, ServerRequest::Start);
}

void StatusReporter::stopRequested(const CorvantaInstancePtr &instance) {
    request(instance, ServerRequest::Stop);
}

void StatusReporter::request(const CorvantaInstancePtr &instance, ServerRequest request) {
    std::shared_ptr<Tracked> &tracked = _tracked[instance->directory()];
    if (!tracked || tracked->instance != instance) {
        tracked = std::make_shared<Tracked>();
        tracked->instance = instance;
    }
    tracked->status = instance->serverStatus();
    tracked->request = request;
    tracked->stopTimer.reset();
    tracked->startPid = request == ServerRequest::Start ? instance->pid() : 0;
    if (request == ServerRequest::Stop) {
        tracked->stopPid = instance->pid();
        tracked->stopTimer.reset(new QTimer(this));
        tracked->stopTimer->setSingleShot(true);
        const QString key = instance->directory();
        connect(tracked->stopTimer.get(), &QTimer::timeout, this,
                [this, key] { stopOverdue(key); });
        tracked->stopTimer->start(_stopTimeout);
    }
    _model.watcher().refreshNow(instance);  // follows the new process, or sees it gone
    updateIcon();
}

void StatusReporter::observe(const CorvantaInstancePtr &instance) {
    std::shared_ptr<Tracked> &slot = _tracked[instance->directory()];
    if (!slot || slot->instance != instance) {
        slot = std::make_shared<Tracked>();
        slot->instance = instance;
        slot->status = instance->serverStatus();  // first sight: nothing to compare
    }
    const std::shared_ptr<Tracked> tracked = slot;  // tell() may run a nested loop
    const qint32 before = tracked->status;
    const qint32 after = instance->serverStatus();
    if (tracked->request == ServerRequest::Start && startUnderWay(tracked->startPid, *instance)) {
        // Its lock file is an event, and so is its end.
        _model.watcher().followLaunch(instance, tracked->startPid);
        return;
    }
    const ServerEvent event =
        classifyTransition(before, after, tracked->request, instance->leftLockFile());
    tracked->status = after;
    tracked->request = requestAfter(tracked->request, after);
    if (after != ServerStatusStopping) {
        tracked->stopTimer.reset();
    }
    if (instance == _model.defaultInstance()) {
        updateIcon();
    }
    if (event != ServerEvent::None) {
        tell(event, instance);
    }
}

void StatusReporter::tell(ServerEvent event, const CorvantaInstancePtr &record) {
    if (!_notificationsEnabled) {
        return;
    }
    const std::optional<QString> log = record->logFile();
    QString title;
    QString body = describeExit(record->lastExitStatus());
    if (event == ServerEvent::Stopped) {
        title = tr("%1 stopped").arg(record->instanceName());
    } else {
        title = tr("%1 failed to start").arg(record->instanceName());
        const QString tail = log ? readLogTail(*log, LogTailBytes, LogTailLines) : QString();
        if (!tail.isEmpty()) {
            body += u'\n' + tr("Last lines of its log:") + u'\n' + tail;
        }
    }
    QList<NotificationAction> actions;
    if (log) {
        actions.append({kOpenLog, tr("Open Log")});
    }
    _notifier.notify(title, body, actions, [this, record](const QString &key) {
        if (key == kOpenLog) {
            openLog(record);
        }
    });
}

void StatusReporter::openLog(const CorvantaInstancePtr &instance) {
    if (const std::optional<QString> log = instance->logFile()) {
        _opener.openFile(*log);
    }
}

void StatusReporter::stopOverdue(const QString &key) {
    const std::shared_ptr<Tracked> tracked = _tracked.value(key);
    if (!tracked) {
        return;
    }
    const CorvantaInstancePtr instance = tracked->instance;
    _model.watcher().refreshNow(instance);
    observe(instance);
    if (instance->serverStatus() != ServerStatusStopping || instance->pid() != tracked->stopPid) {
        return;
    }
    if (!_notificationsEnabled) {
        return;
    }
    const qint32 pid = tracked->stopPid;
    _notifier.notify(
        tr("%1 has not stopped").arg(instance->instanceName()),
        tr("The server is still running %1 seconds after it was asked to stop.")
            .arg(std::chrono::duration_cast<std::chrono::seconds>(_stopTimeout).count()),
        {{kForceStop, tr("Force Stop")}}, [this, instance, pid](const QString &key) {
            if (key == kForceStop) {
                forceStop(instance, pid);
            }
        });
}

void StatusReporter::forceStop(const CorvantaInstancePtr &instance, qint32 pid) {
    const bool confirmed =
        _confirm(tr("Do you want to force the %1 to stop?").arg(instance->instanceName()),
                 tr("This sends signal 9 to process %1 in directory\n%2. The server cannot "
                    "finish its work first.")
                     .arg(pid)
                     .arg(instance->directory()),
                 tr("Force Stop"));
    if (!confirmed) {
        return;
    }
    // Only the process this stop was about, and only while it still is.
    instance->refresh();
    if (instance->serverStatus() != ServerStatusStopping || instance->pid() != pid || pid <= 1 ||
        pid == ::getpid()) {
        observe(instance);
        return;
    }
    if (::kill(pid, SIGKILL) != 0) {
        systemLog(QStringLiteral("force stop: cannot kill %1 (errno %2)")
                      .arg(instance->instanceName())
                      .arg(errno));
    }
    _model.watcher().refreshNow(instance);
}

void StatusReporter::updateIcon() {
    const IconState state = iconStateOf(_model.defaultInstance().get());
    if (state != _iconState) {
        _iconState = state;
        emit iconStateChanged(state);
    }
}
