#include "InstanceWatcher.h"

#include "InotifyEvents.h"
#include "Paths.h"
#include "SystemLog.h"

#include <QSocketNotifier>
#include <QTimer>

#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

const QString kConfigName = QStringLiteral("corvanta.ini");

constexpr uint32_t kDirectoryEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                      IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr uint32_t kSelfEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT;

// A pidfd that stays readable while the record still reads the process as
// alive belongs to a process that ended but that someone else must reap;
// after this many tries it is left to the next menu opening.
constexpr int kUnreapedLimit = 16;

int openPidfd(qint32 pid) {
    return int(::syscall(SYS_pidfd_open, pid_t(pid), 0));  // close-on-exec by definition
}

bool followsProcess(qint32 status) {
    return status == ServerStatusStarting || status == ServerStatusRunning ||
           status == ServerStatusStopping;
}

}  // namespace

// A process followed through its pidfd.
struct InstanceWatcher::Follow {
    qint32 pid = 0;  // the process followed (or tried); 0 for none
    int fd = -1;
    std::unique_ptr<QSocketNotifier> notifier;
};

struct InstanceWatcher::Entry {
    CorvantaInstancePtr instance;
    Follow process;  // the one the record reads
    int unreaped = 0;
    Follow launch;  // followLaunch's
    // Where its events come from, worked out again only when its lock file moves.
    bool located = false;
    std::optional<QString> lockSeen;
    QString lockDir, lockName;  // empty without a lock file
};

InstanceWatcher::InstanceWatcher(QObject *parent) : QObject(parent) {
    _inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (_inotify < 0) {
        systemLog(QStringLiteral("Cannot watch instance directories: %1")
                      .arg(QString::fromLocal8Bit(std::strerror(errno))));
        return;
    }
    _inotifyNotifier = std::make_unique<QSocketNotifier>(_inotify, QSocketNotifier::Read);
    connect(_inotifyNotifier.get(), &QSocketNotifier::activated, this,
            &InstanceWatcher::readInotify);
}

InstanceWatcher::~InstanceWatcher() {
    for (const auto &entry : std::as_const(_entries)) {
        release(*entry);
    }
    _inotifyNotifier.reset();
    if (_inotify >= 0) {
        ::close(_inotify);
    }
}

void InstanceWatcher::watch(const QList<CorvantaInstancePtr> &instances) {
    QHash<QString, std::shared_ptr<Entry>> next;
    next.reserve(std::min(instances.size(), MaxInstances));
    for (const CorvantaInstancePtr &instance : instances) {
        if (next.size() >= MaxInstances) {
            break;
        }
        std::shared_ptr<Entry> entry = _entries.take(instance->directory());
        if (!entry || entry->instance != instance) {
            if (entry) {
                release(*entry);
            }
            entry = std::make_shared<Entry>();
            entry->instance = instance;
        }
        next.insert(instance->directory(), entry);
        followProcess(*entry);
    }
    // Said when the bound starts to apply, not at every opening.
    const bool bounded = instances.size() > MaxInstances;
    if (bounded && !_bounded) {
        systemLog(QStringLiteral("Watching the first %1 instances only").arg(MaxInstances));
    }
    _bounded = bounded;
    for (const auto &gone : std::as_const(_entries)) {
        release(*gone);
    }
    _entries = std::move(next);
    syncDirectories();
}

void InstanceWatcher::refreshNow(const CorvantaInstancePtr &instance) {
    const std::shared_ptr<Entry> entry = _entries.value(instance->directory());
    if (entry && entry->instance == instance) {
        refreshEntry(*entry);
    }
}

bool InstanceWatcher::watchesProcessOf(const CorvantaInstance *instance) const {
    const std::shared_ptr<Entry> entry = _entries.value(instance->directory());
    return entry && entry->process.fd >= 0 && entry->process.notifier &&
           entry->process.notifier->isEnabled();
}

void InstanceWatcher::refreshEntry(Entry &entry) {
    const CorvantaInstancePtr instance = entry.instance;  // a slot may replace the entry
    instance->refresh();
    followProcess(entry);
    emit refreshed(instance);
}

void InstanceWatcher::followProcess(Entry &entry) {
    const CorvantaInstance &instance = *entry.instance;
    const qint32 wanted = followsProcess(instance.serverStatus()) ? instance.pid() : 0;
    if (wanted == entry.process.pid) {
        return;
    }
    releaseProcess(entry);
    if (wanted != 0) {
        follow(entry.process, wanted, instance.directory(), &InstanceWatcher::processEnded);
    }
}

void InstanceWatcher::releaseProcess(Entry &entry) {
    drop(entry.process);
    entry.unreaped = 0;
}

void InstanceWatcher::follow(Follow &follow, qint32 pid, const QString &key,
                             void (InstanceWatcher::*ended)(const QString &)) {
    follow.pid = pid;
    follow.fd = openPidfd(pid);
    if (follow.fd < 0) {
        if (errno == ESRCH) {
            // Ended between the probe and here: one more refresh tells.
            QTimer::singleShot(0, this, [this, key, ended] { (this->*ended)(key); });
        } else {
            systemLog(QStringLiteral("Cannot watch process %1: %2")
                          .arg(pid)
                          .arg(QString::fromLocal8Bit(std::strerror(errno))));
        }
        return;
    }
    follow.notifier = std::make_unique<QSocketNotifier>(follow.fd, QSocketNotifier::Read);
    connect(follow.notifier.get(), &QSocketNotifier::activated, this,
            [this, key, ended] { (this->*ended)(key); });
}

void InstanceWatcher::drop(Follow &follow) {
    if (follow.notifier) {
        // Possibly inside its own activation.
        follow.notifier->setEnabled(false);
        follow.notifier.release()->deleteLater();
    }
    if (follow.fd >= 0) {
        ::close(follow.fd);
    }
    follow.fd = -1;
    follow.pid = 0;
}

void InstanceWatcher::followLaunch(const CorvantaInstancePtr &instance, qint32 pid) {
    const std::shared_ptr<Entry> entry = _entries.value(instance->directory());
    if (!entry || entry->instance != instance || pid <= 1 ||
        (entry->launch.pid == pid && entry->launch.fd >= 0)) {
        return;
    }
    drop(entry->launch);
    follow(entry->launch, pid, instance->directory(), &InstanceWatcher::launchEnded);
}

void InstanceWatcher::launchEnded(const QString &key) {
    const std::shared_ptr<Entry> entry = _entries.value(key);
    if (!entry) {
        return;
    }
    // Heard once: should no refresh reap it, its pidfd would stay readable.
    drop(entry->launch);
    refreshEntry(*entry);
}

void InstanceWatcher::release(Entry &entry) {
    releaseProcess(entry);
    drop(entry.launch);
}

void InstanceWatcher::processEnded(const QString &key) {
    const std::shared_ptr<Entry> entry = _entries.value(key);
    if (!entry) {
        return;
    }
    const qint32 pid = entry->process.pid;
    refreshEntry(*entry);
    if (entry->process.fd >= 0 && entry->process.pid == pid &&
        ++entry->unreaped >= kUnreapedLimit) {
        entry->process.notifier->setEnabled(false);
    }
}

void InstanceWatcher::locate(Entry &entry) {
    const std::optional<QString> lock = entry.instance->lockFile();
    if (entry.located && lock == entry.lockSeen) {
        return;
    }
    entry.located = true;
    entry.lockSeen = lock;
    entry.lockDir.clear();
    entry.lockName.clear();
    if (lock) {
        const QString file = Paths::standardize(*lock);
        entry.lockDir = Paths::standardize(file + QStringLiteral("/.."));
        entry.lockName = file.mid(file.lastIndexOf(u'/') + 1);
    }
}

void InstanceWatcher::syncDirectories() {
    if (_inotify < 0) {
        return;
    }
    QHash<QString, QList<Interest>> interest = collectInterest();
    QHash<QString, Paths::FileIdentity> parents;
    const QSet<QString> changed = changedParents(interest, &parents);
    QHash<QString, int> next;
    QSet<int> kept;
    for (auto it = interest.cbegin(); it != interest.cend(); ++it) {
        const QString &dir = it.key();
        const auto watched = _dirWatch.constFind(dir);
        const int wd =
            watched != _dirWatch.cend() && !changed.contains(Paths::parentOf(dir))
                ? watched.value()
                : ::inotify_add_watch(_inotify, dir.toUtf8().constData(), kDirectoryEvents);
        if (wd >= 0) {
            next.insert(dir, wd);
            kept.insert(wd);
        } else if (errno != ENOENT && errno != ENOTDIR) {
            systemLog(QStringLiteral("Cannot watch %1: %2")
                          .arg(dir, QString::fromLocal8Bit(std::strerror(errno))));
        }
    }
    for (auto it = _dirWatch.cbegin(); it != _dirWatch.cend(); ++it) {
        if (!kept.contains(it.value())) {
            ::inotify_rm_watch(_inotify, it.value());
        }
    }
    _parents = std::move(parents);
    _dirWatch = std::move(next);
    _interest = std::move(interest);
}

QHash<QString, QList<InstanceWatcher::Interest>> InstanceWatcher::collectInterest() {
    QHash<QString, QList<Interest>> interest;
    for (auto it = _entries.cbegin(); it != _entries.cend(); ++it) {
        Entry &entry = *it.value();
        if (entry.instance->entryStatus() == EntryStatusInvalid) {
            continue;
        }
        locate(entry);
        const QString &own = entry.instance->directory();
        interest[own].append({it.key(), true, entry.lockDir == own ? entry.lockName : QString()});
        if (!entry.lockDir.isEmpty() && entry.lockDir != own) {
            interest[entry.lockDir].append({it.key(), false, entry.lockName});
        }
    }
    return interest;
}

// A watch stays on the directory its path named when it was added. A
// replaced directory says so itself (its watch is dropped on that event); a
// path that now leads elsewhere shows in its parent, whose identity and
// modification time change. Only then is a directory watched again.
QSet<QString> InstanceWatcher::changedParents(const QHash<QString, QList<Interest>> &interest,
                                              QHash<QString, Paths::FileIdentity> *parents) const {
    QSet<QString> changed, asked;
    for (auto it = interest.cbegin(); it != interest.cend(); ++it) {
        const QString parent = Paths::parentOf(it.key());
        if (asked.contains(parent)) {
            continue;
        }
        asked.insert(parent);
        const std::optional<Paths::FileIdentity> now = Paths::identityOf(parent);
        const auto seen = _parents.constFind(parent);
        if (!now || seen == _parents.cend() || *seen != *now) {
            changed.insert(parent);
        }
        if (now) {
            parents->insert(parent, *now);
        }
    }
    return changed;
}

void InstanceWatcher::readInotify() {
    QHash<int, QStringList> dirsOf;
    for (auto it = _dirWatch.cbegin(); it != _dirWatch.cend(); ++it) {
        dirsOf[it.value()].append(it.key());
    }
    QSet<QString> touched;  // instance keys
    bool resync = false;
    readInotifyEvents(_inotify, [&](const inotify_event &event) {
        resync = takeEvent(event, dirsOf, &touched) || resync;
    });
    for (const QString &key : std::as_const(touched)) {
        if (const std::shared_ptr<Entry> entry = _entries.value(key)) {
            refreshEntry(*entry);
        }
    }
    if (resync || !touched.isEmpty()) {
        syncDirectories();
    }
}

bool InstanceWatcher::takeEvent(const inotify_event &event, const QHash<int, QStringList> &dirsOf,
                                QSet<QString> *touched) {
    if (event.mask & IN_Q_OVERFLOW) {
        for (auto it = _entries.cbegin(); it != _entries.cend(); ++it) {
            touched->insert(it.key());
        }
        return true;
    }
    const bool self = (event.mask & kSelfEvents) != 0;
    if (self) {
        // Gone or moved away: the next sync watches whatever the path names now.
        _dirWatch.removeIf([wd = event.wd](const auto &entry) { return entry.value() == wd; });
    }
    const QString name =
        event.len > 0 ? QString::fromUtf8(event.name, qsizetype(::strnlen(event.name, event.len)))
                      : QString();
    for (const QString &dir : dirsOf.value(event.wd)) {
        for (const Interest &in : _interest.value(dir)) {
            if (self || (in.ownDirectory && name == kConfigName) ||
                (!in.lockName.isEmpty() && name == in.lockName)) {
                touched->insert(in.key);
            }
        }
    }
    return self;
}
