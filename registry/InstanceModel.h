#pragma once

#include "CorvantaInstance.h"
#include "CorvantaManager.h"
#include "InstallationWatcher.h"
#include "InstanceWatcher.h"

#include <QList>
#include <QObject>

// The installation as it is now, one object for every listener: the
// manager's scan, kept current by kernel events alone (InstanceWatcher for
// servers and lock files, InstallationWatcher for instance directories that
// come or go). Nothing here runs a timer. Main thread only.
class InstanceModel : public QObject {
    Q_OBJECT

public:
    explicit InstanceModel(QObject *parent = nullptr);

    // Searches these directories from the next scan on; those that are no
    // directory are left out.
    void setSearchPaths(const QStringList &paths);
    const QStringList &searchPaths() const { return _manager.searchPaths(); }

    // Scans the search paths again, refreshing every record, and follows
    // what it finds. Events call it when directories change; a menu's
    // opening may call it too.
    void rescan();

    // As of the last scan, ordered by directory path.
    const QList<CorvantaInstancePtr> &instances() const { return _instances; }
    // Null among two or more instances without a default.
    const CorvantaInstancePtr &defaultInstance() const { return _default; }

    // For those who start and stop servers: a launch to follow, a record to
    // refresh at once.
    InstanceWatcher &watcher() { return _watcher; }

signals:
    // After every scan: the list may differ, every record may have changed.
    void rescanned();
    // A listed record was refreshed by an event of its server or lock file.
    void refreshed(const CorvantaInstancePtr &instance);

private:
    void recordRefreshed(const CorvantaInstancePtr &instance);

    CorvantaManager _manager;
    InstanceWatcher _watcher;
    InstallationWatcher _installation;
    QList<CorvantaInstancePtr> _instances;
    CorvantaInstancePtr _default;
};
