#include "registry/Launch.h"
#include "registry/Paths.h"

#include "Support.h"

using ProcessControl = InstanceTest;

TEST_F(ProcessControl, FindExecutableTriesEnvironmentInstanceInstallationBinThenPath) {
    makeDir(tmp / "bin");
    for (const QString &file : {tmp / "env", dir + "/corvanta", tmp / "bin/corvanta"})
        writeFile(file, "not even executable");
    const auto found = [&](const QString &fromEnv) {
        ScopedEnv env("CORVANTA_BINARY", fromEnv);
        return instance.findExecutable();
    };
    EXPECT_EQ(found(tmp / "env"), tmp / "env");
    EXPECT_EQ(found(tmp.path()), dir + "/corvanta");  // a directory is passed over
    removePath(dir + "/corvanta");
    EXPECT_EQ(found(tmp / "nothing"), dir + "/../bin/corvanta");
    removePath(tmp / "bin/corvanta");
    EXPECT_EQ(found(tmp / "nothing"), "corvanta");
    EXPECT_EQ(executableCandidates("corvanta", "/a:/b/::/c"),
              QList<QByteArray>({"/a/corvanta", "/b/corvanta", "./corvanta", "/c/corvanta"}));
    EXPECT_EQ(executableCandidates("corvanta", nullptr),
              QList<QByteArray>({"/bin/corvanta", "/usr/bin/corvanta"}));
    EXPECT_EQ(executableCandidates("../bin/corvanta", "/a"),
              QList<QByteArray>({"../bin/corvanta"}));
}

TEST_F(ProcessControl, LaunchedServerGetsOnlyStandardDescriptorsOrFallsBackToStopped) {
    makeLink(CORVANTA_STANDIN, tmp / "pathdir/corvanta");
    ScopedEnv report("CORVANTA_STANDIN_FD_REPORT", tmp / "report");
    // Below 32 without close-on-exec (closed by the child), above with it (closed by exec).
    const int low = ::open("/dev/null", O_RDONLY);
    const int high = ::fcntl(low, F_DUPFD_CLOEXEC, 40);
    ASSERT_GE(high, 40);
    const auto launch = [&](const char *binary, const char *path, bool runs, bool exitAtOnce) {
        SCOPED_TRACE(std::string(binary ? binary : "no CORVANTA_BINARY") + ", PATH " + path);
        ScopedEnv env("CORVANTA_BINARY", binary ? std::optional<QString>(binary) : std::nullopt);
        ScopedEnv pathEnv("PATH", tmp / path);
        ScopedEnv exit("CORVANTA_STANDIN_EXIT_AT_ONCE", exitAtOnce ? "1" : "");
        removePath(tmp / "report");
        ASSERT_TRUE(instance.startup());
        server.pid = instance.pid();
        ASSERT_TRUE(refreshUntil(runs ? ServerStatusRunning : ServerStatusStopped));
        if (runs) {
            EXPECT_EQ(readFile(tmp / "report"),
                      "fd 0 /dev/null\nfd 1 /dev/null\nfd 2 /dev/null\nargc 2\nargv corvanta\n"
                      "argv -f\ncwd " +
                          local(Paths::resolveSymlinks(dir)) + "\nsession-leader yes\n");
            ASSERT_TRUE(instance.shutdown());
        }
        ASSERT_TRUE(refreshUntil(ServerStatusStopped));
        EXPECT_EQ(instance.pid(), 0);  // a stand-in stopped by signal 15 removes its lock file
    };
    launch(CORVANTA_STANDIN, "nowhere", false, true);  // dies before its lock file
    launch(nullptr, "pathdir", true, false);
    launch(nullptr, "nowhere", false, false);
    writeFile(dir + "/corvanta", "#!/bin/sh\nexit 0\n");  // chosen although not executable
    launch(nullptr, "pathdir", false, false);
    ::close(low);
    ::close(high);
    EXPECT_TRUE(readFile(dir + "/corvanta.log").contains("stopped on signal 15"));
}

TEST_F(ProcessControl, AnotherUsersServerReadsAsStoppedAndIsNotSignalled) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to create a process of another user";
    ProcessGuard rootsProcess{forkSleeper()};
    writeFile(lock, QByteArray::number(rootsProcess.pid));
    const std::string answer = runUnprivileged([&] {
        const bool stopped = instance.shutdown();
        return std::to_string(stopped) + " " + std::to_string(instance.serverStatus()) + " " +
               log.lines.join('|').toStdString();
    });
    EXPECT_EQ(answer, "0 1 stale .lck file detected: " + lock.toStdString());
    EXPECT_EQ(::waitpid(rootsProcess.pid, nullptr, WNOHANG), 0);  // alive
}
