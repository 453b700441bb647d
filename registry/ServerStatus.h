#pragma once

#include <QtGlobal>

// Plain integer codes: records hold them as qint32, and the front end treats
// any value outside ServerStatus like ServerStatusUnknown.
enum ServerStatus : qint32 {
    ServerStatusUnknown = 0,   // not refreshed yet
    ServerStatusStopped = 1,   // no live server process known
    ServerStatusStarting = 2,  // launched here, lock file not confirmed yet
    ServerStatusRunning = 3,   // live process, _pid holds its id
    ServerStatusStopping = 4,  // signal 15 sent here, process still alive
};

enum EntryStatus : qint32 {
    EntryStatusUnchanged = 0,  // last assignment kept the server status
    EntryStatusNew = 1,        // no status assigned yet
    EntryStatusChanged = 2,    // last assignment changed the server status
    EntryStatusInvalid = 3,    // configuration gone; the manager drops the record
};
