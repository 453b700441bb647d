#pragma once

#include <QByteArray>
#include <QFile>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

// Root may write anywhere, so as root this becomes "nobody"; other users stay.
inline void becomeReader() {
    constexpr uid_t nobody = 65534;
    if (::geteuid() == 0 &&
        (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0)) {
        ::_exit(126);
    }
}

// What `body` answers in a forked child, which must end well within 20 s.
inline QByteArray inChild(const std::function<QByteArray()> &body) {
    int fds[2];
    EXPECT_EQ(::pipe2(fds, O_CLOEXEC), 0);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::alarm(20);
        const QByteArray out = body();
        ::_exit(::write(fds[1], out.constData(), size_t(out.size())) == out.size() ? 0 : 1);
    }
    ::close(fds[1]);
    QFile pipe;
    pipe.open(fds[0], QIODevice::ReadOnly, QFile::AutoCloseHandle);
    const QByteArray out = pipe.readAll();
    int status = -1;
    EXPECT_TRUE(::waitpid(pid, &status, 0) == pid && status == 0) << status;
    return out;
}
