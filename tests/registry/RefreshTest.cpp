#include "registry/CorvantaInstance.h"

#include "ServerFixture.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

using namespace testing_support;

// Records come from the manager, which runs isValid before any refresh; only
// then is the lock file's path known.
class Refresh : public ServerFixture {
protected:
    void SetUp() override {
        ServerFixture::SetUp();
        ASSERT_TRUE(instance.isValid());
    }
    CorvantaInstance instance{dir};
};

TEST_F(Refresh, NoLockFileIsStoppedSilently) {
    instance.refresh();
    EXPECT_EQ(instance.serverStatus(), ServerStatusStopped);
    EXPECT_EQ(instance.entryStatus(), EntryStatusChanged);
    EXPECT_EQ(instance.pid(), 0);
    instance.refresh();
    EXPECT_EQ(instance.serverStatus(), ServerStatusStopped);
    EXPECT_EQ(instance.entryStatus(), EntryStatusUnchanged);
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(Refresh, MalformedLockFileIsStoppedWithItsMessage) {
    instance.refresh();
    writeFile(lock, "abc");
    instance.refresh();
    EXPECT_EQ(instance.serverStatus(), ServerStatusStopped);
    EXPECT_EQ(instance.entryStatus(), EntryStatusUnchanged);
    EXPECT_EQ(instance.pid(), 0);
    EXPECT_EQ(log.lines(), QStringList({"Malformed .lck file " + lock}));
}

TEST_F(Refresh, StaleLockFileKeepsItsPidAndIsReportedEachTime) {
    const pid_t dead = deadPid();
    writeFile(lock, QByteArray::number(dead) + "\n");
    instance.refresh();
    EXPECT_EQ(instance.serverStatus(), ServerStatusStopped);
    EXPECT_EQ(instance.entryStatus(), EntryStatusChanged);
    EXPECT_EQ(instance.pid(), dead);
    instance.refresh();
    EXPECT_EQ(instance.entryStatus(), EntryStatusUnchanged);
    EXPECT_EQ(readFile(lock), QByteArray::number(dead) + "\n");  // never touched
    const QString stale = "stale .lck file detected: " + lock;
    EXPECT_EQ(log.lines(), QStringList({stale, stale}));
}

TEST_F(Refresh, StoppedInstanceWithoutIniBecomesInvalid) {
    CorvantaInstance &withStaleLock = instance;
    CorvantaInstance withoutLock(dir + "/");
    ASSERT_TRUE(withoutLock.isValid());
    writeFile(lock, QByteArray::number(deadPid()));
    ::unlink((dir + "/corvanta.ini").toUtf8().constData());
    withStaleLock.refresh();
    EXPECT_EQ(withStaleLock.serverStatus(), ServerStatusStopped);
    EXPECT_EQ(withStaleLock.entryStatus(), EntryStatusInvalid);
    ::unlink(lock.toUtf8().constData());
    withoutLock.refresh();
    EXPECT_EQ(withoutLock.serverStatus(), ServerStatusStopped);
    EXPECT_EQ(withoutLock.entryStatus(), EntryStatusInvalid);
}

TEST_F(Refresh, LockFileNamingALiveProcessIsRunning) {
    // Also the case of a stale lock file whose pid an unrelated process took.
    Sleeper unrelated;
    writeFile(lock, QByteArray::number(unrelated.pid()));
    instance.refresh();
    EXPECT_EQ(instance.serverStatus(), ServerStatusRunning);
    EXPECT_EQ(instance.entryStatus(), EntryStatusChanged);
    EXPECT_EQ(instance.pid(), unrelated.pid());
    // Known live pid: the lock file is no longer consulted.
    writeFile(lock, "garbage");
    instance.refresh();
    EXPECT_EQ(instance.serverStatus(), ServerStatusRunning);
    EXPECT_EQ(instance.entryStatus(), EntryStatusUnchanged);
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(Refresh, ServerStartedElsewhereIsSeenAndItsStopNoticed) {
    const pid_t pid = startStandinDirectly(dir, {{"CORVANTA_STANDIN_PORT", "0"}});
    server.reset(pid);
    ASSERT_TRUE(refreshUntil(instance, ServerStatusRunning));
    EXPECT_EQ(instance.pid(), pid);
    ::kill(pid, SIGTERM);
    ASSERT_TRUE(refreshUntil(instance, ServerStatusStopped));
    EXPECT_EQ(instance.entryStatus(), EntryStatusChanged);
    EXPECT_EQ(instance.pid(), 0);  // the stand-in removed its lock file
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(Refresh, RunningServerKeepsItsInstanceAfterTheIniIsDeleted) {
    const pid_t pid = startStandinDirectly(dir, {{"CORVANTA_STANDIN_PORT", "0"}});
    server.reset(pid);
    ASSERT_TRUE(refreshUntil(instance, ServerStatusRunning));
    ::unlink((dir + "/corvanta.ini").toUtf8().constData());
    instance.refresh();
    EXPECT_EQ(instance.serverStatus(), ServerStatusRunning);
    EXPECT_EQ(instance.entryStatus(), EntryStatusUnchanged);
    ::kill(pid, SIGTERM);
    ASSERT_TRUE(refreshUntil(instance, ServerStatusStopped));
    EXPECT_EQ(instance.entryStatus(), EntryStatusInvalid);
}

TEST_F(Refresh, StartingServerWaitsForAUsableLockFile) {
    ScopedEnv delay("CORVANTA_STANDIN_LOCK_DELAY_MS", QStringLiteral("600000"));
    ASSERT_TRUE(instance.startup());
    server.reset(instance.pid());
    const qint32 launched = instance.pid();
    EXPECT_EQ(instance.serverStatus(), ServerStatusStarting);
    EXPECT_EQ(instance.entryStatus(), EntryStatusChanged);

    // Stays starting, entry status untouched, while the lock file gives 0.
    instance.refresh();
    writeFile(lock, "not yet");
    instance.refresh();
    writeFile(lock, "0");
    instance.refresh();
    EXPECT_EQ(instance.serverStatus(), ServerStatusStarting);
    EXPECT_EQ(instance.entryStatus(), EntryStatusChanged);
    EXPECT_EQ(instance.pid(), launched);
    EXPECT_EQ(log.lines(), QStringList({"Malformed .lck file " + lock}));

    writeFile(lock, QByteArray::number(launched));
    instance.refresh();
    EXPECT_EQ(instance.serverStatus(), ServerStatusRunning);
    EXPECT_EQ(instance.entryStatus(), EntryStatusChanged);
    EXPECT_EQ(instance.pid(), launched);
    EXPECT_EQ(log.lines().size(), 1);
}

TEST_F(Refresh, StartingServerTakesTheLockFilesPidWhenItDiffers) {
    ScopedEnv delay("CORVANTA_STANDIN_LOCK_DELAY_MS", QStringLiteral("600000"));
    Sleeper other;
    ASSERT_TRUE(instance.startup());
    server.reset(instance.pid());
    const qint32 launched = instance.pid();
    writeFile(lock, QByteArray::number(other.pid()));
    instance.refresh();
    EXPECT_EQ(instance.serverStatus(), ServerStatusRunning);
    EXPECT_EQ(instance.entryStatus(), EntryStatusChanged);
    EXPECT_EQ(instance.pid(), other.pid());
    EXPECT_EQ(log.lines(), QStringList({QStringLiteral("pid value from .lck file is different "
                                                       "(expected %1, got %2)")
                                            .arg(launched)
                                            .arg(other.pid())}));
}

TEST_F(Refresh, StoppingServerStaysStoppingUntilItsProcessIsGone) {
    ScopedEnv ignore("CORVANTA_STANDIN_IGNORE_TERM", QStringLiteral("1"));
    ASSERT_TRUE(instance.startup());
    server.reset(instance.pid());
    ASSERT_TRUE(refreshUntil(instance, ServerStatusRunning));
    ASSERT_TRUE(instance.shutdown());
    EXPECT_EQ(instance.serverStatus(), ServerStatusStopping);
    EXPECT_EQ(instance.entryStatus(), EntryStatusChanged);

    // Ignored signal 15: still alive, and the lock file's absence changes nothing.
    ::unlink(lock.toUtf8().constData());
    instance.refresh();
    instance.refresh();
    EXPECT_EQ(instance.serverStatus(), ServerStatusStopping);
    EXPECT_EQ(instance.entryStatus(), EntryStatusChanged);
    EXPECT_FALSE(instance.shutdown());  // no second signal
    EXPECT_FALSE(instance.startup());

    ::kill(instance.pid(), SIGKILL);
    ASSERT_TRUE(refreshUntil(instance, ServerStatusStopped));
    EXPECT_EQ(instance.pid(), 0);
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(Refresh, InitAndTheMonitorItselfAreNeverARunningServer) {
    EXPECT_FALSE(instance.isRunning(0));
    EXPECT_FALSE(instance.isRunning(1));
    EXPECT_FALSE(instance.isRunning(-1));
    EXPECT_FALSE(instance.isRunning(::getpid()));
    for (const pid_t pid : {pid_t(1), ::getpid()}) {
        log.clear();
        writeFile(lock, QByteArray::number(pid));
        instance.refresh();
        EXPECT_EQ(instance.serverStatus(), ServerStatusStopped);
        EXPECT_FALSE(instance.shutdown());
        EXPECT_EQ(log.lines().value(0), "stale .lck file detected: " + lock);
    }
}

TEST(SetStatus, RecordsWhetherTheStatusChanged) {
    CorvantaInstance instance("/nowhere");
    instance.setStatus(ServerStatusRunning);
    EXPECT_EQ(instance.serverStatus(), ServerStatusRunning);
    EXPECT_EQ(instance.entryStatus(), EntryStatusChanged);
    instance.setStatus(ServerStatusRunning);
    EXPECT_EQ(instance.entryStatus(), EntryStatusUnchanged);
    instance.setStatus(ServerStatusStopped);
    EXPECT_EQ(instance.entryStatus(), EntryStatusChanged);
}

TEST(CanStart, NeedsReadAndWritePermissionOnTheDirectory) {
    TempDir tmp;
    makeDir(tmp / "readonly");
    makeDir(tmp / "open");
    ::chmod((tmp / "readonly").toUtf8().constData(), 0555);
    ::chmod((tmp / "open").toUtf8().constData(), 0777);
    const std::string answer = runUnprivileged([&] {
        return std::to_string(CorvantaInstance(tmp / "readonly").canStart()) +
               std::to_string(CorvantaInstance(tmp / "open").canStart()) +
               std::to_string(CorvantaInstance(tmp / "missing").canStart());
    });
    EXPECT_EQ(answer, "010");
    ::chmod((tmp / "readonly").toUtf8().constData(), 0755);
}
