#include "registry/CorvantaManager.h"
#include "registry/Paths.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

using namespace testing_support;

namespace {

QStringList directories(const QList<CorvantaInstancePtr> &instances) {
    QStringList out;
    for (const CorvantaInstancePtr &i : instances)
        out.append(i->directory());
    return out;
}

void removeTree(const QString &path) {
    std::filesystem::remove_all(path.toStdString());
}

}  // namespace

class Manager : public ::testing::Test {
protected:
    TempDir tmp;
    // Resolved, as addSearchPath stores it.
    QString search = Paths::resolveSymlinks(tmp.path()) + "/install";
    CorvantaManager manager;
    LogCapture log;
};

TEST_F(Manager, FindsTheSearchDirectoryAndItsImmediateSubdirectoriesInPathOrder) {
    makeInstance(search);
    makeInstance(search + "/zeta");
    makeInstance(search + "/database");
    makeInstance(search + "/.hidden");
    makeDir(search + "/plain");
    makeInstance(search + "/plain/too-deep");
    writeFile(search + "/file", "");
    makeLink(tmp / "install", tmp / "via-link");

    manager.addSearchPath(tmp / "via-link");
    EXPECT_EQ(manager.searchPaths(), QStringList({search}));
    const auto found = manager.allInstances();
    EXPECT_EQ(directories(found),
              QStringList({search, search + "/.hidden", search + "/database", search + "/zeta"}));
    for (const auto &instance : found) {
        EXPECT_EQ(instance->serverStatus(), ServerStatusStopped);
        EXPECT_EQ(instance->isDefault(), instance->displayName() == "database");
    }
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(Manager, RecordsSurviveFromScanToScan) {
    makeDir(search);
    makeInstance(search + "/a");
    manager.addSearchPath(search + "/");
    const auto first = manager.allInstances();
    makeInstance(search + "/b");
    const auto second = manager.allInstances();
    ASSERT_EQ(first.size(), 1);
    ASSERT_EQ(second.size(), 2);
    EXPECT_EQ(first.first().data(), second.first().data());
    EXPECT_EQ(second.first()->entryStatus(), EntryStatusUnchanged);
}

TEST_F(Manager, LinkedSubdirectoryIsAnInstanceOfItsOwn) {
    makeDir(search);
    makeInstance(search + "/a");
    makeLink(search + "/a", search + "/alias");
    makeLink(tmp / "nowhere", search + "/dangling");
    manager.addSearchPath(search);
    EXPECT_EQ(directories(manager.allInstances()), QStringList({search + "/a", search + "/alias"}));
}

TEST_F(Manager, NonDirectorySearchPathsAreDroppedSilently) {
    makeDir(search);
    writeFile(search + "/file", "");
    manager.addSearchPath(search + "/file");
    manager.addSearchPath(tmp / "missing");
    EXPECT_TRUE(manager.searchPaths().isEmpty());
    EXPECT_TRUE(manager.allInstances().isEmpty());
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(Manager, WithoutSearchDirectoriesTheCacheIsStillRefreshed) {
    makeInstance(search);
    manager.watchDirectory(search);
    manager.watchDirectory(tmp / "missing");
    const auto found = manager.allInstances();
    ASSERT_EQ(directories(found), QStringList({search}));
    EXPECT_EQ(found.first()->serverStatus(), ServerStatusStopped);
}

TEST_F(Manager, VanishedSearchDirectoryIsReportedOnceAndForgotten) {
    makeDir(search);
    makeInstance(search + "/a");
    manager.addSearchPath(search);
    manager.addSearchPath(search);
    EXPECT_EQ(manager.searchPaths().size(), 2);
    EXPECT_EQ(manager.allInstances().size(), 1);  // the same record, scanned twice

    removeTree(search);
    EXPECT_TRUE(manager.allInstances().isEmpty());  // stopped, invalid: dropped
    EXPECT_EQ(log.lines(),
              QStringList({"Invalid directory " + search + ": No such file or directory"}));
    EXPECT_TRUE(manager.searchPaths().isEmpty());
    makeInstance(search);
    makeInstance(search + "/a");
    EXPECT_TRUE(manager.allInstances().isEmpty());  // nothing adds it back
    EXPECT_EQ(log.lines().size(), 1);
}

TEST_F(Manager, UnlistableSearchDirectoryLeavesTheListWhileTheWalkGoesOn) {
    const QString first = search + "/first";
    const QString locked = search + "/locked";
    const QString last = search + "/last";
    makeDir(search);
    makeInstance(first);
    makeDir(locked);
    makeInstance(locked + "/inside");
    makeDir(last);
    if (isRoot()) {
        ASSERT_EQ(::chown(locked.toUtf8().constData(), 65534, 65534), 0);
        ASSERT_EQ(::chown(last.toUtf8().constData(), 65534, 65534), 0);
    }
    const std::string answer = runUnprivileged([&] {
        LogCapture childLog;
        CorvantaManager m;
        for (const QString &p : {first, locked, locked, last})
            m.addSearchPath(p);
        std::string out = directories(m.allInstances()).join(',').toStdString() + ";";
        // Traversable but no longer listable; a new instance appears after it.
        ::chmod(locked.toUtf8().constData(), 0311);
        makeInstance(last + "/new");
        out += directories(m.allInstances()).join(',').toStdString() + ";";
        out += m.searchPaths().join(',').toStdString() + ";";
        out += childLog.lines().join('|').toStdString();
        return out;
    });
    ::chmod(locked.toUtf8().constData(), 0755);
    const std::string expected =
        (QStringList({first, locked + "/inside"}).join(',') + ";" +
         QStringList({first, last + "/new", locked + "/inside"}).join(',') + ";" + first + "," +
         last + ";" + "Invalid directory " + locked + ": Permission denied")
            .toStdString();
    EXPECT_EQ(answer, expected);
}

TEST_F(Manager, DeletedInstanceIsDroppedOnceItsServerHasStopped) {
    makeDir(search);
    makeInstance(search + "/stopped");
    makeInstance(search + "/running");
    const pid_t pid = startStandinDirectly(search + "/running", {{"CORVANTA_STANDIN_PORT", "0"}});
    ProcessGuard guard(pid);
    ASSERT_TRUE(
        waitFor([&] { return Paths::existsAsNonDirectory(search + "/running/corvanta.lck"); }));
    manager.addSearchPath(search);
    ASSERT_EQ(manager.allInstances().size(), 2);

    removeTree(search + "/stopped");
    removeTree(search + "/running");
    const auto kept = manager.allInstances();
    ASSERT_EQ(directories(kept), QStringList({search + "/running"}));
    EXPECT_EQ(kept.first()->serverStatus(), ServerStatusRunning);

    ::kill(pid, SIGTERM);
    ASSERT_TRUE(waitFor([&] { return manager.allInstances().isEmpty(); }));
    // The front end's reference outlives the cache entry.
    EXPECT_EQ(kept.first()->entryStatus(), EntryStatusInvalid);
}
