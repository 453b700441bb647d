#include "InstanceModel.h"

InstanceModel::InstanceModel(QObject *parent) : QObject(parent) {
    connect(&_watcher, &InstanceWatcher::refreshed, this, &InstanceModel::recordRefreshed);
    connect(&_installation, &InstallationWatcher::changed, this, &InstanceModel::rescan);
}

void InstanceModel::rescan() {
    _instances = _manager.allInstances();
    _default = chooseDefaultInstance(_instances);
    _watcher.watch(_instances);
    // New sub-directories are followed from now on.
    _installation.watch(_manager.searchPaths());
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
