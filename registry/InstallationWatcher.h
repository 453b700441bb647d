#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

class QSocketNotifier;

// Tells when instance directories may have come into or left the search
// paths, so that a long-running listener rescans then rather than on a
// clock: a directory made, removed or moved in a search path, or a
// configuration file made, removed or moved in a search path or in one of
// its immediate sub-directories (the places the manager looks). Which
// instances changed is the rescan's to say. Main thread only.
class InstallationWatcher : public QObject {
    Q_OBJECT

public:
    // Sub-directories watched per search path; past this, new instances in
    // the rest are found by the next rescan that something else causes.
    static constexpr qsizetype MaxDirectories = 1024;

    explicit InstallationWatcher(QObject *parent = nullptr);
    ~InstallationWatcher() override;

    // Watches these search paths and their sub-directories as they are now;
    // call again after each rescan to follow new sub-directories.
    void watch(const QStringList &searchPaths);

    qsizetype watchCount() const { return _watches.size(); }

signals:
    // Once per batch of kernel events that may change the instance list.
    void changed();

private:
    void read();
    void add(const QString &dir, bool searchPath, QHash<QString, int> *next);

    int _inotify = -1;
    std::unique_ptr<QSocketNotifier> _notifier;
    QHash<QString, int> _watches;  // directory -> watch descriptor
    QHash<int, bool> _isSearchPath;
    bool _bounded = false;
};
