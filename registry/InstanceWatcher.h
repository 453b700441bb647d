#pragma once

#include "CorvantaInstance.h"
#include "Paths.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>

#include <memory>

class QSocketNotifier;
struct inotify_event;

// Learns of server and lock-file changes from the kernel instead of polling:
// a pidfd per live server process and inotify on instance directories and
// the directories of their lock files. Every event runs the record's own
// refresh(), so the status rules stay in one place; the refresh's
// non-blocking waitpid reaps a server the monitor started as soon as it
// ends. Nothing here runs a timer. Main thread only.
class InstanceWatcher : public QObject {
    Q_OBJECT

public:
    // Past this many instances, the rest are learnt when the menu opens.
    static constexpr qsizetype MaxInstances = 256;

    explicit InstanceWatcher(QObject *parent = nullptr);
    ~InstanceWatcher() override;

    // Replaces the watched set with (the first MaxInstances of) these records;
    // watches of records no longer listed are released.
    void watch(const QList<CorvantaInstancePtr> &instances);
    // Refreshes a watched record now and follows its new process, if any.
    void refreshNow(const CorvantaInstancePtr &instance);
    // Also follows a process launched for a watched record that reads
    // another pid meanwhile (a stale lock file's): its end refreshes the
    // record once.
    void followLaunch(const CorvantaInstancePtr &instance, qint32 pid);

    qsizetype watchedCount() const { return _entries.size(); }
    qsizetype directoryWatchCount() const { return _dirWatch.size(); }
    bool watchesProcessOf(const CorvantaInstance *instance) const;

signals:
    // After every refresh that an event caused.
    void refreshed(const CorvantaInstancePtr &instance);

private:
    struct Follow;
    struct Entry;

    void readInotify();
    void processEnded(const QString &key);
    void refreshEntry(Entry &entry);
    void followProcess(Entry &entry);
    void releaseProcess(Entry &entry);
    void launchEnded(const QString &key);
    void release(Entry &entry);
    // Follows `pid`: `ended` runs with `key` once it ends, from the event
    // loop at once when it has ended already; other failures are logged.
    void follow(Follow &follow, qint32 pid, const QString &key,
                void (InstanceWatcher::*ended)(const QString &));
    static void drop(Follow &follow);
    // A record that hears of a directory's events: of its configuration in
    // its own directory, of the file `lockName` (when not empty) in either.
    struct Interest {
        QString key;
        bool ownDirectory;
        QString lockName;
    };

    // Adds the records an event concerns to `touched`; true when the
    // directories must be synced again.
    bool takeEvent(const inotify_event &event, const QHash<int, QStringList> &dirsOf,
                   QSet<QString> *touched);
    void syncDirectories();
    // For every directory, the records whose events arrive there.
    QHash<QString, QList<Interest>> collectInterest();
    // The parents of the watched directories that changed since the last
    // sync; `parents` gets their identities now.
    QSet<QString> changedParents(const QHash<QString, QList<Interest>> &interest,
                                 QHash<QString, Paths::FileIdentity> *parents) const;
    static void locate(Entry &entry);

    int _inotify = -1;
    std::unique_ptr<QSocketNotifier> _inotifyNotifier;
    // Keyed by the instance directory.
    QHash<QString, std::shared_ptr<Entry>> _entries;
    QHash<QString, int> _dirWatch;                 // watched directory -> watch descriptor
    QHash<QString, QList<Interest>> _interest;     // by watched directory
    QHash<QString, Paths::FileIdentity> _parents;  // of watched directories, at the last sync
    bool _bounded = false;                         // the last list was longer than MaxInstances
};
