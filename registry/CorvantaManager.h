#pragma once

#include "CorvantaInstance.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

// Finds instance directories under its search paths (each search path itself
// and its immediate sub-directories) and caches one record per directory.
class CorvantaManager {
public:
    CorvantaManager() = default;

    bool isDirectory(const QString &path) const;
    void addSearchPath(const QString &path);
    void watchDirectory(const QString &path);
    // Rescans, refreshes every cached record, drops invalid ones; ordered by
    // directory path.
    QList<CorvantaInstancePtr> allInstances();
    // Rescans without refreshing: for a caller that refreshes only the
    // records it reports on.
    QList<CorvantaInstancePtr> discoveredInstances();

    const QStringList &searchPaths() const { return _searchPaths; }

private:
    QStringList _searchPaths;
    QMap<QString, CorvantaInstancePtr> _instances;
};

// The instance the menu's default-dependent items act on: the last one in
// list order that is the default, else the only one; none among two or more
// without a default.
CorvantaInstancePtr chooseDefaultInstance(const QList<CorvantaInstancePtr> &instances);
