#include "registry/Launch.h"
#include "registry/Paths.h"

#include "Support.h"

TEST_F(InstanceTest, ServerFoundInEnvironmentInstanceInstallationBinThenPathGetsStandardFdsOnly) {
    for (const QString &file : {at("env"), dir + "/corvanta", at("bin/corvanta")})
        writeFile(file, "not even executable");
    const auto found = [&](const QString &fromEnv) {
        ScopedEnv env("CORVANTA_BINARY", fromEnv);
        return instance.findExecutable();
    };
    EXPECT_EQ(found(at("env")), at("env"));
    EXPECT_EQ(found(tmp.path()), dir + "/corvanta");  // a directory is passed over
    removePath(dir + "/corvanta");
    EXPECT_EQ(found(at("nothing")), dir + "/../bin/corvanta");
    removePath(at("bin/corvanta"));
    EXPECT_EQ(found(at("nothing")), "corvanta");
    EXPECT_EQ(executableCandidates("corvanta", "/a:/b/::/c"),
              QList<QByteArray>({"/a/corvanta", "/b/corvanta", "./corvanta", "/c/corvanta"}));
    makeLink(CORVANTA_STANDIN, at("pathdir/corvanta"));
    ScopedEnv report("CORVANTA_STANDIN_FD_REPORT", at("report"));
    // Below 32 without close-on-exec (closed by the child), above with it (closed by exec).
    const int low = ::open("/dev/null", O_RDONLY);
    const int high = ::fcntl(low, F_DUPFD_CLOEXEC, 40);
    ASSERT_GE(high, 40);
    ScopedEnv noBinary("CORVANTA_BINARY", std::nullopt);
    ScopedEnv path("PATH", at("pathdir"));
    ASSERT_TRUE(instance.startup());
    server.pid = instance.pid();
    ::close(low);
    ::close(high);
    ASSERT_TRUE(refreshUntil(ServerStatusRunning));
    EXPECT_EQ(readFile(at("report")),
              "fd 0 /dev/null\nfd 1 /dev/null\nfd 2 /dev/null\nargc 2\nargv corvanta\nargv -f\n"
              "cwd " +
                  local(Paths::resolveSymlinks(dir)) + "\nsession-leader yes\n");
}

TEST_F(InstanceTest, AnotherUsersServerReadsAsStoppedAndIsNotSignalled) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to create a process of another user";
    ProcessGuard rootsProcess{forkSleeper()};
    writeFile(lock, QByteArray::number(rootsProcess.pid));
    const QByteArray answer = inChild([&] {
        becomeReader();
        return instance.shutdown() ? QByteArray("signalled") : log.join('|').toUtf8();
    });
    EXPECT_EQ(answer, "stale .lck file detected: " + lock.toUtf8());
    EXPECT_EQ(::waitpid(rootsProcess.pid, nullptr, WNOHANG), 0);  // alive
}
