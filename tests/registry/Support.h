#pragma once

#include "registry/CorvantaInstance.h"
#include "registry/SystemLog.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <optional>
#include <string>
#include <thread>

// Readable gtest output; lists print element by element through this.
inline void PrintTo(const QString &text, std::ostream *os) {
    *os << '"' << text.toStdString() << '"';
}

namespace testing_support {

inline QByteArray local(const QString &path) {
    return path.toUtf8();
}

// Reachable for an unprivileged child, removed with everything in it.
struct TempDir : QTemporaryDir {
    TempDir() { ::chmod(local(path()), 0755); }
    QString operator/(const QString &name) const { return filePath(name); }
};

inline void writeFile(const QString &path, const QByteArray &content) {
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(content) == content.size())
        << path.toStdString();
}
inline QByteArray readFile(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
inline void makeDir(const QString &path, mode_t mode = 0755) {
    EXPECT_EQ(::mkdir(local(path), mode) | ::chmod(local(path), mode), 0) << path.toStdString();
}
inline void makeLink(const QString &target, const QString &link) {
    EXPECT_EQ(::symlink(local(target), local(link)), 0) << link.toStdString();
}
inline void removePath(const QString &path) {
    if (::unlink(local(path)) != 0)
        QDir(path).removeRecursively();
}
inline void makeInstance(const QString &dir, const QByteArray &ini = "[database]\n") {
    makeDir(dir);
    writeFile(dir + "/corvanta.ini", ini);
}
inline void setModificationTime(const QString &path, time_t seconds, long nanoseconds = 0) {
    const struct timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    EXPECT_EQ(::utimensat(AT_FDCWD, local(path), times, 0), 0) << path.toStdString();
}

struct LogCapture {
    QStringList lines;
    LogCapture() {
        setSystemLogSink([this](const QString &line) { lines.append(line); });
    }
    ~LogCapture() { setSystemLogSink({}); }
};

// Polls `done` every 10 ms for up to ten seconds.
inline bool waitFor(const std::function<bool()> &done) {
    for (int i = 0; i < 1000; ++i) {
        if (done())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

// Kills and reaps a process on destruction.
struct ProcessGuard {
    pid_t pid = 0;
    ~ProcessGuard() {
        if (pid > 1 && ::kill(pid, SIGKILL) == 0)
            ::waitpid(pid, nullptr, 0);
    }
};
inline pid_t forkSleeper() {
    const pid_t pid = ::fork();
    while (pid == 0)
        ::pause();
    return pid;
}
// A child that has exited and been reaped.
inline pid_t deadPid() {
    const pid_t pid = ::fork();
    if (pid == 0)
        ::_exit(0);
    ::waitpid(pid, nullptr, 0);
    return pid;
}

// Sets, or with nullopt unsets, an environment variable while alive.
class ScopedEnv {
public:
    ScopedEnv(const char *name, const std::optional<QString> &value) : _name(name) {
        if (const char *old = ::getenv(name))
            _old = old;
        value ? ::setenv(name, local(*value), 1) : ::unsetenv(name);
    }
    ~ScopedEnv() { _old ? ::setenv(_name, _old->c_str(), 1) : ::unsetenv(_name); }

private:
    const char *_name;
    std::optional<std::string> _old;
};

// Runs `body` in a forked child, as uid/gid 65534 when `unprivileged` and this
// process is root (for whom access and kill always succeed). The child's answer
// comes back as text; "crashed" on abnormal exit.
inline std::string runInChild(const std::function<std::string()> &body, bool unprivileged) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        return "no pipe";
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (unprivileged && ::geteuid() == 0 &&
            (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0))
            ::_exit(2);
        const std::string answer = body();
        ::_exit(::write(fds[1], answer.data(), answer.size()) == ssize_t(answer.size()) ? 0 : 3);
    }
    ::close(fds[1]);
    QFile pipe;
    pipe.open(fds[0], QIODevice::ReadOnly, QFile::AutoCloseHandle);
    const QByteArray answer = pipe.readAll();
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? answer.toStdString() : "crashed";
}

}  // namespace testing_support

// An instance directory with the stand-in server as CORVANTA_BINARY, listening
// on no port so tests can run side by side, and a record already probed as the
// manager does before any refresh.
class InstanceTest : public ::testing::Test {
protected:
    void SetUp() override {
        testing_support::makeInstance(dir);
        ASSERT_TRUE(instance.isValid());
    }
    bool refreshUntil(qint32 status) {
        return testing_support::waitFor([&] {
            instance.refresh();
            return instance.serverStatus() == status;
        });
    }

    testing_support::TempDir tmp;
    QString dir = tmp / "inst";
    QString lock = dir + "/corvanta.lck";
    testing_support::ScopedEnv port{"CORVANTA_STANDIN_PORT", "0"};
    testing_support::ScopedEnv binary{"CORVANTA_BINARY", CORVANTA_STANDIN};
    testing_support::LogCapture log;
    CorvantaInstance instance{dir};
    testing_support::ProcessGuard server;  // last: kills a leftover server before tmp goes
};
