#include "CorvantaInstance.h"

#include "Launch.h"
#include "LockFile.h"
#include "Paths.h"
#include "ProcStat.h"
#include "SystemLog.h"
#include "cfg/cfg.h"

#include <QList>
#include <QMap>
#include <QStringDecoder>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace {

const QString kConfigName = QStringLiteral("corvanta.ini");
const QString kServerName = QStringLiteral("corvanta");

// How long an empty lock file counts as one a server is writing.
constexpr double kLockWriteSeconds = 2;

// A configuration this large is not a server's: it is not handed to the
// parser (which reads whole files) and the defaults apply.
constexpr off_t kConfigSizeLimit = 1 << 20;

std::optional<QString> strictUtf8(const char *text) {
    if (text == nullptr) {
        return std::nullopt;
    }
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString result = decoder(QByteArrayView(text));
    if (decoder.hasError()) {
        return std::nullopt;
    }
    return result;
}

// The "database" section's keys, lower-cased; later keys win. Keys or values
// that are not valid UTF-8 are skipped.
QMap<QString, QString> readDatabaseSection(const QString &configPath) {
    QMap<QString, QString> settings;
    ZEM_CfgHandle *handle = nullptr;
    if (ZEM_Cfg_init(&handle, configPath.toUtf8().constData()) != 0) {
        return settings;
    }
    if (ZEM_Cfg_find(handle, "database", nullptr) == 0) {
        while (ZEM_Cfg_nextentry(handle) == 0) {
            const unsigned kind = handle->flags & CFG_KIND_MASK;
            if (kind == CFG_KIND_SECTION) {
                break;
            }
            if (kind != CFG_KIND_KEY) {
                continue;
            }
            const auto id = strictUtf8(handle->id);
            const auto value = strictUtf8(handle->value);
            if (id && value) {
                settings.insert(id->toLower(), *value);
            }
        }
    }
    ZEM_Cfg_done(handle);
    return settings;
}

}  // namespace

CorvantaInstance::CorvantaInstance(const QString &path)
    : _path(path),
      _nativePath(path.toUtf8()),
      _nativeConfigPath(Paths::append(path, kConfigName).toUtf8()),
      _displayName(Paths::displayName(path)) {
    _isDefault = _displayName == QLatin1String("database");
}

QString CorvantaInstance::instanceName() const {
    if (_isDefault) {
        return tr("Default Instance");
    }
    return tr("Instance '%1'").arg(_displayName);
}

QString CorvantaInstance::directory() const {
    return _path;
}

qint32 CorvantaInstance::pidValueFromLockFile() const {
    return readLockFile().pid;
}

CorvantaInstance::LockRead CorvantaInstance::readLockFile() const {
    if (!_lckFile) {
        return {};
    }
    const QString &path = *_lckFile;
    const auto target = Paths::attributesOfTarget(_nativeLckFile);
    if (!target || target->isDirectory()) {
        return {};
    }
    // Created but its pid not written yet: a server starting, whose write
    // is the lock file's next event.
    struct timespec now {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const double age = double(now.tv_sec - target->mtime.tv_sec) +
                       double(now.tv_nsec - target->mtime.tv_nsec) / 1e9;
    if (target->isRegular() && target->size == 0 && age >= 0 && age < kLockWriteSeconds) {
        return {0, target, {}, true};
    }
    QByteArray text;
    QString error;
    // A FIFO, device or socket is refused before it is opened at all.
    if (!target->isRegular()) {
        error = Paths::notRegularFileText();
    } else {
        Paths::readAsciiPrefix(path, &text, &error);
    }
    if (!error.isEmpty()) {
        systemLog(QStringLiteral("Error reading %1: %2").arg(path, error));
        return {};
    }
    const LockFile::PidResult parsed = LockFile::parsePid(text.constData(), size_t(text.size()));
    if (parsed.kind != LockFile::PidParse::Pid) {
        if (isNewFault(*target, text)) {
            systemLog(QStringLiteral("Malformed .lck file %1").arg(path));
        }
        return {};
    }
    return {parsed.pid, target, text, false};
}

bool CorvantaInstance::isNewFault(const Paths::ItemInfo &file, const QByteArray &text) const {
    // The text too: two writes within one tick of the file system's clock
    // leave the same time.
    if (_faultSeen && _faultSeen->file.isSameVersion(file) && _faultSeen->text == text) {
        return false;
    }
    _faultSeen = {file, text};
    return true;
}

namespace {

// Whether the process has ended and waits for its parent to reap it: its
// state is Z (or X while being reaped). An unreadable state says no; the
// still readable pidfd asks again.
bool isZombie(qint32 pid) {
    QByteArray stat;
    QString error;
    if (!Paths::readAsciiPrefix(QStringLiteral("/proc/%1/stat").arg(pid), &stat, &error, 512)) {
        return false;
    }
    const auto fields = ProcStat::parse(stat.constData(), size_t(stat.size()));
    return fields && (fields->state == 'Z' || fields->state == 'X');
}

}  // namespace

bool CorvantaInstance::isRunning(qint32 pid) const {
    // Process 1 and the monitor itself are never a server of ours: a lock
    // file naming them must not make shutdown signal them. Negative values
    // would address process groups.
    if (pid <= 1 || pid == ::getpid()) {
        return false;
    }
    int status = 0;
    const pid_t reaped = ::waitpid(-1, &status, WNOHANG);
    if (reaped > 0) {
        rememberReaped(reaped, status);
    }
    if (reaped == pid || ::kill(pid, 0) != 0) {
        return false;
    }
    // A server that ended answers signal 0 until its parent reaps it, and a
    // parent may take its time (another program's, or init in a container).
    return !isZombie(pid);
}

void CorvantaInstance::setStatus(qint32 status) {
    if (_serverStatus == status) {
        _entryStatus = EntryStatusUnchanged;
        return;
    }
    _entryStatus = EntryStatusChanged;
    _serverStatus = status;
}

QString CorvantaInstance::qualify(const std::optional<QString> &value,
                                  const QString &defaultValue) const {
    const QString &path = value ? *value : defaultValue;
    if (Paths::isAbsolute(path)) {
        return path;
    }
    return Paths::standardize(Paths::append(_path, path));
}

void CorvantaInstance::refresh() {
    const qint32 known = _pid;
    if (_pid != 0 && isRunning(_pid)) {
        if (_serverStatus == ServerStatusStopping) {
            return;
        }
        if (_serverStatus == ServerStatusStarting) {
            const qint32 lockPid = pidValueFromLockFile();
            if (lockPid == 0) {
                return;
            }
            if (lockPid != _pid) {
                systemLog(
                    QStringLiteral("pid value from .lck file is different (expected %1, got %2)")
                        .arg(_pid)
                        .arg(lockPid));
                _pid = lockPid;
            }
        }
        setStatus(ServerStatusRunning);
        return;
    }
    // The known process has ended; if it was our child, its status is known.
    // So may be the launched one's, when a lock file's pid took its place.
    if (known != 0) {
        _lastExitStatus.reset();  // an earlier server's, whoever started this one
        claimExitStatus(known);
    }
    if (_launchedPid != 0 && _launchedPid != known) {
        claimExitStatus(_launchedPid);
    }
    const LockRead lock = readLockFile();
    _pid = lock.pid;
    if (_pid != 0) {
        if (isRunning(_pid)) {
            setStatus(ServerStatusRunning);
            return;
        }
        if (isNewFault(*lock.file, lock.text)) {
            systemLog(QStringLiteral("stale .lck file detected: %1").arg(*_lckFile));
        }
    }
    _leftLockFile = _pid != 0;
    // A lock file still being created is a server starting, judged once its
    // pid is written (the file's next event); until then a stopped record
    // stays stopped rather than flicker through unknown.
    setStatus(lock.beingWritten && _serverStatus != ServerStatusStopped ? ServerStatusUnknown
                                                                        : ServerStatusStopped);
    if (!probeConfiguration()) {
        _entryStatus = EntryStatusInvalid;
    }
}

void CorvantaInstance::claimExitStatus(qint32 pid) {
    if (const std::optional<int> status = takeReaped(pid)) {
        _lastExitStatus = status;
        if (pid == _launchedPid) {
            _launchedPid = 0;
        }
    }
}

bool CorvantaInstance::probeConfiguration() {
    // The common case first, without resolving the directory's links
    // component by component: the kernel follows them to the same item, and
    // an unchanged regular file needs nothing more. Anything else takes the
    // resolved path, which messages name and the parser reads.
    if (_cacheTime) {
        const auto direct = Paths::attributesOfItem(_nativeConfigPath);
        if (direct && direct->isRegular() && Paths::sameTime(*_cacheTime, direct->mtime)) {
            return true;
        }
    }
    const QString configPath = Paths::append(Paths::resolveSymlinks(_path), kConfigName);
    const auto info = Paths::attributesOfItem(configPath);
    if (!info) {
        return false;
    }
    if (!info->isRegular()) {
        systemLog(QStringLiteral("%1 is not a regular file - skipped").arg(configPath));
        return false;
    }
    if (_cacheTime && Paths::sameTime(*_cacheTime, info->mtime)) {
        return true;
    }
    _cacheTime = info->mtime;

    QMap<QString, QString> settings;
    if (info->size <= kConfigSizeLimit) {
        settings = readDatabaseSection(configPath);
    } else {
        systemLog(QStringLiteral("%1 is larger than %2 bytes - default settings used")
                      .arg(configPath, QString::number(qint64(kConfigSizeLimit))));
    }
    const auto setting = [&settings](const QString &key) -> std::optional<QString> {
        const auto it = settings.constFind(key);
        if (it == settings.constEnd()) {
            return std::nullopt;
        }
        return *it;
    };
    setLockFile(qualify(setting(QStringLiteral("lockfile")), QStringLiteral("corvanta.lck")));
    _logFile = qualify(setting(QStringLiteral("errorlogfile")), QStringLiteral("corvanta.log"));
    return true;
}

bool CorvantaInstance::canStart() const {
    return ::access(_nativePath.constData(), R_OK | W_OK) == 0;
}

void CorvantaInstance::setLockFile(const QString &path) {
    _lckFile = path;
    _nativeLckFile = path.toUtf8();
}

qint32 CorvantaInstance::launchExecutable(const QString &executable, const QStringList &options,
                                          const QString &directory) {
    QList<QByteArray> arguments;
    arguments.reserve(options.size());
    for (const QString &option : options) {
        arguments.append(option.toUtf8());
    }
    return launchDetached(executable.toUtf8(), arguments, directory.toUtf8());
}

QString CorvantaInstance::findExecutable() const {
    // Existence only, following links; execute permission is the kernel's
    // business at exec time.
    if (const char *fromEnvironment = ::getenv("CORVANTA_BINARY")) {
        const QString candidate = QString::fromUtf8(fromEnvironment);
        if (Paths::existsAsNonDirectory(candidate)) {
            return candidate;
        }
    }
    const QString inInstance = Paths::append(_path, kServerName);
    if (Paths::existsAsNonDirectory(inInstance)) {
        return inInstance;
    }
    const QString inInstallation = Paths::append(_path, QStringLiteral("../bin/corvanta"));
    if (Paths::existsAsNonDirectory(inInstallation)) {
        return inInstallation;
    }
    return kServerName;
}

std::optional<QString> CorvantaInstance::logFile() {
    if (!probeConfiguration()) {
        return std::nullopt;
    }
    return probedLogFile();
}

std::optional<QString> CorvantaInstance::probedLogFile() const {
    if (_logFile && Paths::existsAsNonDirectory(*_logFile)) {
        return _logFile;
    }
    return std::nullopt;
}

bool CorvantaInstance::startup() {
    refresh();
    if (_entryStatus == EntryStatusInvalid || _serverStatus != ServerStatusStopped) {
        return false;
    }
    const QString executable = findExecutable();
    if (executable.isEmpty()) {
        systemLog(QStringLiteral("corvanta executable not found"));
        return false;
    }
    _lastExitStatus.reset();
    _pid = launchExecutable(executable, {kServerName, QStringLiteral("-f")}, _path);
    if (_pid == 0) {
        return false;
    }
    _launchedPid = _pid;
    setStatus(ServerStatusStarting);
    return true;
}

bool CorvantaInstance::shutdown() {
    refresh();
    // Running implies isRunning() accepted _pid: never 0, 1 or ourselves.
    if (_serverStatus != ServerStatusRunning) {
        return false;
    }
    if (::kill(_pid, SIGTERM) != 0) {
        const int err = errno;
        systemLog(QStringLiteral("terminate: cannot terminate %1 (errno %2)")
                      .arg(instanceName(), QString::number(err)));
        return false;
    }
    setStatus(ServerStatusStopping);
    return true;
}
