#include "ServerTransitions.h"

#include "registry/ServerStatus.h"

ServerEvent classifyTransition(qint32 before, qint32 after, ServerRequest request,
                               bool leftLockFile) {
    if (after != ServerStatusStopped || before == after) {
        return ServerEvent::None;
    }
    if (before == ServerStatusStarting && request == ServerRequest::Start) {
        return ServerEvent::StartFailed;
    }
    if ((before == ServerStatusRunning || before == ServerStatusStopping) &&
        request != ServerRequest::Stop && leftLockFile) {
        return ServerEvent::Stopped;
    }
    return ServerEvent::None;
}

ServerRequest requestAfter(ServerRequest request, qint32 after) {
    return after == ServerStatusStopped || after == ServerStatusRunning ? ServerRequest::None
                                                                        : request;
}
