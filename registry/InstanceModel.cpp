#include "InstanceModel.h"

InstanceModel::InstanceModel(QObject *parent) : QObject(parent) {
    connect(&_watcher, &InstanceWatcher::refreshed, this, &InstanceModel::recordRefreshed);
    connect(&_installation, &InstallationWatcher::changed, this, &InstanceModel::rescan);
}

void InstanceModel::setSearchPaths(const QStringList &paths) {
    _manager = CorvantaManager();
    for (const QString &path : paths) {
        _manager.addSearchPath(path);
    }
}

void InstanceModel::rescan() {
    // The directories are watched before they are listed: a configuration
    // file made in a new one meanwhile is either listed or an event.
    _installation.watch(_manager.searchPaths());
    _instances = _manager.allInstances();
    _default = chooseDefaultInstance(_instances);
    _watcher.watch(_instances);
    emit rescanned();
}

void InstanceModel::recordRefreshed(const CorvantaInstancePtr &instance) {
    // A directory that stopped being an instance changes the list.
    if (instance->entryStatus() == EntryStatusInvalid) {
        rescan();
    } else {
        emit refreshed(instance);
    }
}
