#pragma once
// The registry suites' fixture: an instance directory and its record.

#include "registry/CorvantaManager.h"
#include "registry/Installation.h"
#include "registry/InstanceWatcher.h"
#include "registry/Launch.h"
#include "registry/MonitorSettings.h"
#include "registry/SystemLog.h"

#include "../TestSupport.h"

struct ProcessGuard {
    pid_t pid = 0;
    void end() {
        if (pid > 1 && ::kill(pid, SIGKILL) == 0)
            ::waitpid(pid, nullptr, 0);
        pid = 0;
    }
    ~ProcessGuard() { end(); }
};

// An instance directory with the stand-in server as CORVANTA_BINARY, listening on no port so
// tests can run side by side, and a record already probed as the manager does before any refresh.
class InstanceTest : public ::testing::Test {
public:
    InstanceTest() {
        setSystemLogSink([this](const QString &line) { log.append(line); });
    }
    ~InstanceTest() override { setSystemLogSink({}); }
    void SetUp() override {
        ::chmod(local(tmp.path()), 0755);  // reachable for an unprivileged child
        makeInstance(dir);
        ASSERT_TRUE(instance.probeConfiguration());
    }
    bool refreshUntil(qint32 status) {
        const auto reached = [&] { return instance.refresh(), instance.serverStatus() == status; };
        return QTest::qWaitFor(reached, 10000);
    }
    QString at(const QString &name) const { return tmp.filePath(name); }

    static QByteArray local(const QString &path) { return path.toUtf8(); }
    static void makeDir(const QString &path, mode_t mode = 0755) {
        EXPECT_TRUE(QDir().mkpath(path) && ::chmod(local(path), mode) == 0);
    }
    static void makeLink(const QString &to, const QString &at) {
        QDir().mkpath(QFileInfo(at).path());
        EXPECT_EQ(::symlink(local(to), local(at)), 0);
    }
    static bool removePath(const QString &path) {
        return ::unlink(local(path)) == 0 || QDir(path).removeRecursively();
    }
    static void makeInstance(const QString &dir) { writeFile(dir + "/corvanta.ini", {}); }
    static pid_t forkSleeper() {
        const pid_t pid = ::fork();
        while (pid == 0)
            ::pause();
        return pid;
    }
    // The lock-file path a record derived, found by planting each candidate's position there.
    static QString lockPathOf(const CorvantaInstance &record, const QStringList &candidates) {
        for (qsizetype i = 0; i < candidates.size(); ++i)
            writeFile(candidates[i], QByteArray::number(i + 1));
        return candidates.value(record.pidValueFromLockFile() - 1);
    }

    QTemporaryDir tmp;
    QString dir = at("inst");
    QString lock = dir + "/corvanta.lck";
    ScopedEnv port{"CORVANTA_STANDIN_PORT", "0"};
    ScopedEnv binary{"CORVANTA_BINARY", CORVANTA_STANDIN};
    QStringList log;
    CorvantaInstance instance{dir};
    ProcessGuard server;  // last: kills a leftover server before tmp goes
};
