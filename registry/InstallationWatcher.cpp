#include "InstallationWatcher.h"

#include "InotifyEvents.h"
#include "Paths.h"
#include "SystemLog.h"

#include <QSet>
#include <QSocketNotifier>

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

const QByteArray kConfigName = QByteArrayLiteral("corvanta.ini");

constexpr uint32_t kEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF |
                             IN_MOVE_SELF | IN_ONLYDIR;

QString errorText() {
    return QString::fromLocal8Bit(std::strerror(errno));
}

}  // namespace

InstallationWatcher::InstallationWatcher(QObject *parent) : QObject(parent) {
    _inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (_inotify < 0) {
        systemLog(QStringLiteral("Cannot watch the installation: %1").arg(errorText()));
        return;
    }
    _notifier = std::make_unique<QSocketNotifier>(_inotify, QSocketNotifier::Read);
    connect(_notifier.get(), &QSocketNotifier::activated, this, &InstallationWatcher::read);
}

InstallationWatcher::~InstallationWatcher() {
    _notifier.reset();
    if (_inotify >= 0) {
        ::close(_inotify);  // releases every watch
    }
}

void InstallationWatcher::watch(const QStringList &searchPaths) {
    if (_inotify < 0) {
        return;
    }
    QHash<QString, int> next;
    _isSearchPath.clear();
    bool bounded = false;
    for (const QString &path : searchPaths) {
        add(path, true, &next);
        QStringList names;
        QString error;
        if (!Paths::listDirectory(path, &names, &error)) {
            continue;  // the rescan has said why
        }
        qsizetype count = 0;
        for (const QString &name : std::as_const(names)) {
            const QString dir = Paths::append(path, name);
            if (!Paths::existsAsDirectory(dir)) {
                continue;
            }
            if (++count > MaxDirectories) {
                bounded = true;
                break;
            }
            add(dir, false, &next);
        }
    }
    if (bounded && !_bounded) {
        systemLog(QStringLiteral("Watching the first %1 directories of the installation only")
                      .arg(MaxDirectories));
    }
    _bounded = bounded;
    const QSet<int> kept(next.cbegin(), next.cend());
    for (const int wd : std::as_const(_watches)) {
        if (!kept.contains(wd)) {
            ::inotify_rm_watch(_inotify, wd);
        }
    }
    _watches = std::move(next);
}

// Adding a directory that is watched already answers its descriptor again.
void InstallationWatcher::add(const QString &dir, bool searchPath, QHash<QString, int> *next) {
    const int wd = ::inotify_add_watch(_inotify, dir.toUtf8().constData(), kEvents);
    if (wd < 0) {
        if (errno != ENOENT && errno != ENOTDIR) {
            systemLog(QStringLiteral("Cannot watch %1: %2").arg(dir, errorText()));
        }
        return;
    }
    next->insert(dir, wd);
    _isSearchPath[wd] = _isSearchPath.value(wd) || searchPath;
}

void InstallationWatcher::read() {
    bool relevant = false;
    readInotifyEvents(_inotify, [&](const inotify_event &event) {
        const QByteArray name(event.name, qsizetype(::strnlen(event.name, event.len)));
        relevant = relevant || (event.mask & (IN_Q_OVERFLOW | IN_DELETE_SELF | IN_MOVE_SELF)) ||
                   name == kConfigName ||
                   ((event.mask & IN_ISDIR) && _isSearchPath.value(event.wd));
    });
    if (relevant) {
        emit changed();
    }
}
