#include "CorvantaManager.h"

#include "Paths.h"
#include "SystemLog.h"

#include <algorithm>

bool CorvantaManager::isDirectory(const QString &path) const {
    return Paths::existsAsDirectory(path);
}

void CorvantaManager::addSearchPath(const QString &path) {
    const QString resolved = Paths::resolveSymlinks(path);
    if (isDirectory(resolved)) {
        _searchPaths.append(resolved);
    }
}

void CorvantaManager::watchDirectory(const QString &path) {
    // A cached path is left alone whether or not it is still a directory, so
    // the cache is asked first and spares the directory test; the record's
    // refresh finds out whether it is still an instance.
    if (_instances.contains(path) || !isDirectory(path)) {
        return;
    }
    auto instance = CorvantaInstancePtr::create(path);
    if (instance->isValid()) {
        _instances.insert(path, instance);
    }
}

QList<CorvantaInstancePtr> CorvantaManager::discoveredInstances() {
    // Walk by index: a failing directory leaves the list (every occurrence)
    // while the walk goes on over the rest.
    qsizetype i = 0;
    while (i < _searchPaths.size()) {
        const QString searchPath = _searchPaths.at(i);
        QStringList names;
        QString error;
        if (!Paths::listDirectory(searchPath, &names, &error)) {
            systemLog(QStringLiteral("Invalid directory %1: %2").arg(searchPath, error));
            const qsizetype before =
                std::count(_searchPaths.cbegin(), _searchPaths.cbegin() + i, searchPath);
            _searchPaths.removeAll(searchPath);
            i -= before;
            continue;
        }
        watchDirectory(searchPath);
        for (const QString &name : std::as_const(names)) {
            watchDirectory(Paths::append(searchPath, name));
        }
        ++i;
    }
    return _instances.values();
}

QList<CorvantaInstancePtr> CorvantaManager::allInstances() {
    // A snapshot: the loop removes from the cache.
    const QList<CorvantaInstancePtr> snapshot = discoveredInstances();
    QList<CorvantaInstancePtr> result;
    result.reserve(snapshot.size());
    for (const CorvantaInstancePtr &instance : snapshot) {
        instance->refresh();
        if (instance->entryStatus() == EntryStatusInvalid) {
            _instances.remove(instance->directory());
            continue;
        }
        result.append(instance);
    }
    return result;
}

CorvantaInstancePtr chooseDefaultInstance(const QList<CorvantaInstancePtr> &instances) {
    for (auto it = instances.crbegin(); it != instances.crend(); ++it) {
        if ((*it)->isDefault()) {
            return *it;
        }
    }
    return instances.size() == 1 ? instances.first() : CorvantaInstancePtr();
}
