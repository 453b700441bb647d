#include "TerminationSignals.h"

#include "registry/SystemLog.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr int kSignals[] = {SIGTERM, SIGINT, SIGHUP};

int gWakeRead = -1;
int gWakeWrite = -1;
pid_t gOwner = 0;

void onSignal(int) {
    // A server child between fork and exec shares the pipe; only the monitor
    // itself may be told to quit.
    if (::getpid() != gOwner) {
        return;
    }
    const int saved = errno;
    const char byte = 0;
    (void)!::write(gWakeWrite, &byte, 1);
    errno = saved;
}

}  // namespace

TerminationSignals::TerminationSignals(QObject *parent) : QObject(parent) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) {
        systemLog(QStringLiteral("Cannot watch termination signals: %1")
                      .arg(QString::fromLocal8Bit(std::strerror(errno))));
        return;
    }
    gWakeRead = fds[0];
    gWakeWrite = fds[1];
    gOwner = ::getpid();
    _notifier = new QSocketNotifier(gWakeRead, QSocketNotifier::Read, this);
    connect(_notifier, &QSocketNotifier::activated, this, &TerminationSignals::drain);

    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int sig : kSignals) {
        ::sigaction(sig, &action, nullptr);
    }
}

TerminationSignals::~TerminationSignals() {
    if (!_notifier) {
        return;
    }
    for (const int sig : kSignals) {
        ::signal(sig, SIG_DFL);
    }
    delete _notifier;
    ::close(gWakeRead);
    ::close(gWakeWrite);
    gWakeRead = gWakeWrite = -1;
}

void TerminationSignals::drain() {
    char buffer[64];
    while (::read(gWakeRead, buffer, sizeof buffer) > 0) {
    }
    QCoreApplication::quit();
}
