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

    const QStringList &searchPaths() const { return _searchPaths; }

private:
    QStringList _searchPaths;
    QMap<QString, CorvantaInstancePtr> _instances;
};
