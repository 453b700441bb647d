#pragma once

#include "Paths.h"
#include "ServerStatus.h"

#include <QCoreApplication>
#include <QSharedPointer>
#include <QString>
#include <QStringList>

#include <ctime>
#include <optional>

// One instance directory: its names, its configuration probe, its server's
// run status, and starting and stopping that server. Main thread only, but
// for canStart(), which only reads its path.
class CorvantaInstance {
    Q_DECLARE_TR_FUNCTIONS(CorvantaInstance)

public:
    explicit CorvantaInstance(const QString &path);  // initWithPath:

    QString instanceName() const;  // "Default Instance" or "Instance '%1'", translated
    QString directory() const;     // the path exactly as given

    qint32 pidValueFromLockFile() const;
    bool isRunning(qint32 pid) const;
    void setStatus(qint32 status);
    QString qualify(const std::optional<QString> &value, const QString &defaultValue) const;
    void refresh();
    // Reads the configuration again when it changed (its lock and log file
    // names); false when the directory holds no regular configuration file.
    bool probeConfiguration();
    bool canStart() const;
    qint32 launchExecutable(const QString &executable, const QStringList &options,
                            const QString &directory);
    QString findExecutable() const;
    std::optional<QString> logFile();
    // The log file that the last configuration probe named, when it exists
    // as a non-directory. Unlike logFile() it does not probe again: for a
    // caller that has just listed the instance, whose probe is that fresh.
    std::optional<QString> probedLogFile() const;
    bool startup();
    bool shutdown();

    bool isDefault() const { return _isDefault; }
    QString displayName() const { return _displayName; }
    qint32 entryStatus() const { return _entryStatus; }
    qint32 serverStatus() const { return _serverStatus; }
    // The server's process id as last known; 0 for none.
    qint32 pid() const { return _pid; }
    // The lock file's path once the configuration has been read.
    std::optional<QString> lockFile() const { return _lckFile; }
    // The wait status (as waitpid gives it) of the last server this record
    // saw end, when the monitor was its parent and reaped it; cleared by a
    // new start and by the end of a server it did not start.
    std::optional<int> lastExitStatus() const { return _lastExitStatus; }
    // Stopped, with a lock file that names a process that is gone: the server
    // ended without removing it, which a clean stop does.
    bool leftLockFile() const { return _serverStatus == ServerStatusStopped && _leftLockFile; }

private:
    // The lock file as last read: its pid (0 for none), the file and its
    // text, and whether it is one a server has only just created, empty.
    struct LockRead {
        qint32 pid = 0;
        std::optional<Paths::ItemInfo> file;
        QByteArray text;
        bool beingWritten = false;
    };
    LockRead readLockFile() const;
    // A stale or malformed lock file is told once per version of it.
    bool isNewFault(const Paths::ItemInfo &file, const QByteArray &text) const;
    void setLockFile(const QString &path);
    void claimExitStatus(qint32 pid);

    QString _path;
    // On-disk forms of the paths every refresh asks about.
    QByteArray _nativePath, _nativeConfigPath, _nativeLckFile;
    std::optional<QString> _lckFile;
    std::optional<QString> _logFile;
    qint32 _pid = 0;
    std::optional<int> _lastExitStatus;
    // What the last startup launched, until its wait status is claimed: a
    // stale lock file's pid may take its place as the one followed.
    qint32 _launchedPid = 0;
    std::optional<struct timespec> _cacheTime;
    struct Fault {
        Paths::ItemInfo file;
        QByteArray text;
    };
    mutable std::optional<Fault> _faultSeen;
    bool _leftLockFile = false;
    bool _isDefault = false;
    qint32 _entryStatus = EntryStatusNew;
    qint32 _serverStatus = ServerStatusUnknown;
    QString _displayName;
};

using CorvantaInstancePtr = QSharedPointer<CorvantaInstance>;
Q_DECLARE_METATYPE(CorvantaInstancePtr)
