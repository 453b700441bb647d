#pragma once

#include <QtGlobal>

// What this monitor last asked of a server.
enum class ServerRequest { None, Start, Stop };

// What a change of server status means for the user.
enum class ServerEvent {
    None,         // nothing to tell: no change, or one the user asked for
    Stopped,      // ended unexpectedly: no Stop from this monitor, lock file left behind
    StartFailed,  // a start from this monitor ended before its lock file appeared
};

// The one place that reads a status change (before -> after, the codes of
// ServerStatus) against the monitor's own request. A server that removed its
// own lock file stopped cleanly, whoever asked it to (this monitor, its
// command line, another tool): only one that left it (`leftLockFile`) ended
// unexpectedly, and that is what the user must hear about.
ServerEvent classifyTransition(qint32 before, qint32 after, ServerRequest request,
                               bool leftLockFile);

// The request left pending once the status is `after`: a start is answered
// once the server runs or has stopped, a stop once it has stopped or runs again.
ServerRequest requestAfter(ServerRequest request, qint32 after);
