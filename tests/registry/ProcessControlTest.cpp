#include "registry/CorvantaInstance.h"
#include "registry/Launch.h"
#include "registry/Paths.h"

#include "ServerFixture.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>

using namespace testing_support;

namespace {

#if defined(__x86_64__)
constexpr unsigned kAuditArch = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr unsigned kAuditArch = AUDIT_ARCH_AARCH64;
#else
constexpr unsigned kAuditArch = 0;
#endif

// Makes the kernel refuse kill(_, SIGTERM) with EPERM in this process while
// kill(_, 0) still works: what a server of another user would look like if
// the probe could see it.
bool refuseSignal15() {
    struct sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kAuditArch, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_kill, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, args[1])),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SIGTERM, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    struct sock_fprog program = {static_cast<unsigned short>(std::size(filter)), filter};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

QStringList reportLines(const QString &path) {
    return QString::fromUtf8(readFile(path)).split(u'\n', Qt::SkipEmptyParts);
}

}  // namespace

using FindExecutable = ServerFixture;

TEST_F(FindExecutable, TriesEnvironmentThenInstanceThenInstallationBinThenPath) {
    const QString fromEnv = tmp / "custom-corvanta";
    makeDir(tmp / "bin");
    for (const QString &file : {fromEnv, dir + "/corvanta", tmp / "bin/corvanta"})
        writeFile(file, "not even executable");
    CorvantaInstance instance(dir);
    {
        ScopedEnv env("CORVANTA_BINARY", fromEnv);
        EXPECT_EQ(instance.findExecutable(), fromEnv);
    }
    {
        ScopedEnv env("CORVANTA_BINARY", tmp.path());  // a directory is passed over
        EXPECT_EQ(instance.findExecutable(), dir + "/corvanta");
    }
    ScopedEnv env("CORVANTA_BINARY", tmp / "nothing-here");
    ::unlink((dir + "/corvanta").toUtf8().constData());
    EXPECT_EQ(instance.findExecutable(), dir + "/../bin/corvanta");
    ::unlink((tmp / "bin/corvanta").toUtf8().constData());
    EXPECT_EQ(instance.findExecutable(), "corvanta");
}

TEST(ExecutableCandidates, FollowExecvpPathRules) {
    EXPECT_EQ(executableCandidates("corvanta", "/a:/b/::/c"),
              QList<QByteArray>({"/a/corvanta", "/b/corvanta", "./corvanta", "/c/corvanta"}));
    EXPECT_EQ(executableCandidates("corvanta", nullptr),
              QList<QByteArray>({"/bin/corvanta", "/usr/bin/corvanta"}));
    EXPECT_EQ(executableCandidates("../bin/corvanta", "/a"),
              QList<QByteArray>({"../bin/corvanta"}));
}

using ProcessControl = ServerFixture;

TEST_F(ProcessControl, StartsDetachedWithOnlyTheStandardDescriptorsAndStops) {
    const QString report = tmp / "report";
    ScopedEnv reportEnv("CORVANTA_STANDIN_FD_REPORT", report);
    // One descriptor below 32 without close-on-exec (closed by the child) and
    // one above with it (closed by exec).
    const int low = ::open("/dev/null", O_RDONLY);
    const int high = ::fcntl(low, F_DUPFD_CLOEXEC, 40);
    ASSERT_GE(low, 0);
    ASSERT_GE(high, 40);

    CorvantaInstance instance(dir);
    ASSERT_TRUE(instance.startup());
    server.reset(instance.pid());
    ::close(low);
    ::close(high);
    EXPECT_EQ(instance.serverStatus(), ServerStatusStarting);
    ASSERT_TRUE(refreshUntil(instance, ServerStatusRunning));
    EXPECT_FALSE(instance.startup());

    EXPECT_EQ(reportLines(report),
              QStringList({"fd 0 /dev/null", "fd 1 /dev/null", "fd 2 /dev/null", "argc 2",
                           "argv corvanta", "argv -f", "cwd " + Paths::resolveSymlinks(dir),
                           "session-leader yes"}));

    ASSERT_TRUE(instance.shutdown());
    EXPECT_EQ(instance.serverStatus(), ServerStatusStopping);
    ASSERT_TRUE(refreshUntil(instance, ServerStatusStopped));
    EXPECT_FALSE(Paths::existsAsNonDirectory(lock));
    const QByteArray serverLog = readFile(dir + "/corvanta.log");
    EXPECT_TRUE(serverLog.contains("started in ")) << serverLog.toStdString();
    EXPECT_TRUE(serverLog.contains("stopped on signal 15")) << serverLog.toStdString();
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(ProcessControl, ServerThatDiesBeforeItsLockFileFallsBackToStopped) {
    ScopedEnv exitAtOnce("CORVANTA_STANDIN_EXIT_AT_ONCE", QStringLiteral("1"));
    CorvantaInstance instance(dir);
    ASSERT_TRUE(instance.startup());
    EXPECT_EQ(instance.serverStatus(), ServerStatusStarting);
    ASSERT_TRUE(refreshUntil(instance, ServerStatusStopped));
    EXPECT_EQ(instance.entryStatus(), EntryStatusChanged);
    EXPECT_EQ(instance.pid(), 0);
}

TEST_F(ProcessControl, NonExecutableServerIsChosenAndFallsBackToStopped) {
    ScopedEnv env("CORVANTA_BINARY", nullptr);
    writeFile(dir + "/corvanta", "#!/bin/sh\nexit 0\n");  // mode 0644
    CorvantaInstance instance(dir);
    EXPECT_EQ(instance.findExecutable(), dir + "/corvanta");
    ASSERT_TRUE(instance.startup());
    ASSERT_TRUE(refreshUntil(instance, ServerStatusStopped));
}

TEST_F(ProcessControl, BareNameIsSearchedAlongPath) {
    ScopedEnv env("CORVANTA_BINARY", nullptr);
    makeDir(tmp / "empty");
    makeDir(tmp / "pathdir");
    makeLink(standinPath(), tmp / "pathdir/corvanta");
    ScopedEnv path("PATH", tmp / "empty" + ":" + tmp / "pathdir");
    CorvantaInstance instance(dir);
    EXPECT_EQ(instance.findExecutable(), "corvanta");
    ASSERT_TRUE(instance.startup());
    server.reset(instance.pid());
    ASSERT_TRUE(refreshUntil(instance, ServerStatusRunning));
    ASSERT_TRUE(instance.shutdown());
    ASSERT_TRUE(refreshUntil(instance, ServerStatusStopped));

    ScopedEnv nowhere("PATH", tmp / "empty");
    ASSERT_TRUE(instance.startup());
    ASSERT_TRUE(refreshUntil(instance, ServerStatusStopped));
    EXPECT_EQ(instance.pid(), 0);
}

TEST_F(ProcessControl, RelativeBinaryIsFoundFromHereButRunFromTheInstance) {
    // Here: a placeholder that cannot run. In the instance: the stand-in.
    makeDir(tmp / "here");
    makeDir(tmp / "here/sub");
    writeFile(tmp / "here/sub/corvanta", "placeholder");
    makeDir(dir + "/sub");
    makeLink(standinPath(), dir + "/sub/corvanta");
    char saved[4096];
    ASSERT_NE(::getcwd(saved, sizeof saved), nullptr);
    ASSERT_EQ(::chdir((tmp / "here").toUtf8().constData()), 0);
    ScopedEnv env("CORVANTA_BINARY", QStringLiteral("sub/corvanta"));
    CorvantaInstance instance(dir);
    const bool started = instance.startup();
    ASSERT_EQ(::chdir(saved), 0);
    ASSERT_TRUE(started);
    server.reset(instance.pid());
    ASSERT_TRUE(refreshUntil(instance, ServerStatusRunning));
    ASSERT_TRUE(instance.shutdown());
    ASSERT_TRUE(refreshUntil(instance, ServerStatusStopped));
}

TEST_F(ProcessControl, StartAndStopAnswerFalseOutsideTheirStatus) {
    ScopedEnv delay("CORVANTA_STANDIN_LOCK_DELAY_MS", QStringLiteral("600000"));
    CorvantaInstance instance(dir);
    EXPECT_FALSE(instance.shutdown());  // stopped
    ASSERT_TRUE(instance.startup());
    server.reset(instance.pid());
    const qint32 launched = instance.pid();
    EXPECT_FALSE(instance.startup());   // starting
    EXPECT_FALSE(instance.shutdown());  // starting: nothing sent
    EXPECT_TRUE(processAlive(launched));
    EXPECT_EQ(instance.serverStatus(), ServerStatusStarting);

    CorvantaInstance gone(tmp / "no-instance");
    EXPECT_FALSE(gone.startup());
    EXPECT_EQ(gone.entryStatus(), EntryStatusInvalid);
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(ProcessControl, AnotherUsersServerReadsAsStoppedAndIsNotSignalled) {
    if (!isRoot())
        GTEST_SKIP() << "needs root to create a process of another user";
    Sleeper rootsProcess;
    writeFile(lock, QByteArray::number(rootsProcess.pid()));
    const std::string answer = runUnprivileged([&] {
        LogCapture childLog;
        CorvantaInstance instance(dir);
        instance.isValid();  // as the manager does before any refresh
        const bool stopped = instance.shutdown();
        return std::to_string(stopped) + " " + std::to_string(instance.serverStatus()) + " " +
               childLog.lines().join('|').toStdString();
    });
    EXPECT_EQ(answer, "0 1 stale .lck file detected: " + lock.toStdString());
    EXPECT_TRUE(processAlive(rootsProcess.pid()));
}

TEST_F(ProcessControl, RefusedSignalIsLoggedWithNameAndErrno) {
    if (kAuditArch == 0)
        GTEST_SKIP() << "no seccomp architecture code for this machine";
    const pid_t pid = startStandinDirectly(dir, {{"CORVANTA_STANDIN_PORT", "0"}});
    server.reset(pid);
    ASSERT_TRUE(waitFor([&] { return readFile(lock) == QByteArray::number(pid) + "\n"; }));
    const std::string answer = runInChild([&] {
        LogCapture childLog;
        CorvantaInstance instance(dir);
        instance.refresh();
        if (!refuseSignal15())
            return std::string("seccomp unavailable");
        const bool stopped = instance.shutdown();
        return std::to_string(stopped) + " " + std::to_string(instance.serverStatus()) + " " +
               childLog.lines().join('|').toStdString();
    });
    EXPECT_EQ(answer, "0 3 terminate: cannot terminate Instance 'inst' (errno 1)");
    EXPECT_TRUE(processAlive(pid));
}
