#pragma once

#include "registry/CorvantaInstance.h"
#include "registry/SystemLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
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
#include <thread>

inline void PrintTo(const QString &text, std::ostream *os) {
    *os << '"' << text.toStdString() << '"';
}

// Reachable for an unprivileged child, removed with everything in it.
struct TempDir : QTemporaryDir {
    TempDir() { ::chmod(path().toUtf8(), 0755); }
    QString operator/(const QString &name) const { return filePath(name); }
};

struct LogCapture {
    QStringList lines;
    LogCapture() {
        setSystemLogSink([this](const QString &line) { lines.append(line); });
    }
    ~LogCapture() { setSystemLogSink({}); }
};

struct ProcessGuard {
    pid_t pid = 0;
    ~ProcessGuard() {
        if (pid > 1 && ::kill(pid, SIGKILL) == 0)
            ::waitpid(pid, nullptr, 0);
    }
};

struct ScopedEnv {
    ScopedEnv(const char *name, const std::optional<QString> &value) : name(name) {
        if (const char *was = ::getenv(name))
            old = was;
        value ? ::setenv(name, value->toUtf8(), 1) : ::unsetenv(name);
    }
    ~ScopedEnv() { old ? ::setenv(name, old->c_str(), 1) : ::unsetenv(name); }
    const char *name;
    std::optional<std::string> old;
};

// An instance directory with the stand-in server as CORVANTA_BINARY, listening on no port so
// tests can run side by side, and a record already probed as the manager does before any refresh.
class InstanceTest : public ::testing::Test {
protected:
    void SetUp() override {
        makeInstance(dir);
        ASSERT_TRUE(instance.isValid());
    }
    bool refreshUntil(qint32 status) {
        for (int i = 0; i < 1000; ++i) {
            instance.refresh();
            if (instance.serverStatus() == status)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    static QByteArray local(const QString &path) { return path.toUtf8(); }
    static void writeFile(const QString &path, const QByteArray &content) {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
    }
    static QByteArray readFile(const QString &path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    static void makeDir(const QString &path, mode_t mode = 0755) {
        EXPECT_TRUE(QDir().mkpath(path) && ::chmod(local(path), mode) == 0);
    }
    static void makeLink(const QString &to, const QString &at) {
        QDir().mkpath(QFileInfo(at).path());
        EXPECT_EQ(::symlink(local(to), local(at)), 0);
    }
    static void removePath(const QString &path) {
        if (::unlink(local(path)) != 0)
            QDir(path).removeRecursively();
    }
    static void makeInstance(const QString &dir, const QByteArray &ini = "[database]\n") {
        makeDir(dir);
        writeFile(dir + "/corvanta.ini", ini);
    }
    static void setModificationTime(const QString &path, time_t seconds, long nanoseconds = 0) {
        const struct timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
        EXPECT_EQ(::utimensat(AT_FDCWD, local(path), times, 0), 0);
    }
    static pid_t forkSleeper() {
        const pid_t pid = ::fork();
        while (pid == 0)
            ::pause();
        return pid;
    }
    // The lock-file path a record derived, found by planting the number 7 at each candidate.
    QString lockPathOf(CorvantaInstance &record, const QStringList &candidates) {
        for (const QString &candidate : candidates) {
            writeFile(candidate, "7");
            const bool found = record.pidValueFromLockFile() == 7;
            removePath(candidate);
            if (found)
                return candidate;
        }
        return {};
    }
    // What `body` answers in a forked child running as uid/gid 65534 (when root), or
    // "crashed" on abnormal exit.
    static std::string runUnprivileged(const std::function<std::string()> &body) {
        int fds[2];
        EXPECT_EQ(::pipe2(fds, O_CLOEXEC), 0);
        const pid_t pid = ::fork();
        if (pid == 0) {
            if (::geteuid() == 0 &&
                (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0))
                ::_exit(2);
            const std::string answer = body();
            ::_exit(::write(fds[1], answer.data(), answer.size()) < 0);
        }
        ::close(fds[1]);
        QFile pipe;
        pipe.open(fds[0], QIODevice::ReadOnly, QFile::AutoCloseHandle);
        const QByteArray answer = pipe.readAll();
        int status = 0;
        ::waitpid(pid, &status, 0);
        return status == 0 ? answer.toStdString() : "crashed";
    }

    TempDir tmp;
    QString dir = tmp / "inst";
    QString lock = dir + "/corvanta.lck";
    ScopedEnv port{"CORVANTA_STANDIN_PORT", "0"};
    ScopedEnv binary{"CORVANTA_BINARY", CORVANTA_STANDIN};
    LogCapture log;
    CorvantaInstance instance{dir};
    ProcessGuard server;  // last: kills a leftover server before tmp goes
};
