#include "registry/CorvantaInstance.h"
#include "registry/Paths.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace testing_support;

namespace {

// The lock-file path the record derived, made visible through a lock file
// that holds the number 7 at every candidate path.
QString lockPathOf(CorvantaInstance &instance, const QStringList &candidates) {
    for (const QString &candidate : candidates) {
        writeFile(candidate, "7");
        const bool found = instance.pidValueFromLockFile() == 7;
        ::unlink(candidate.toUtf8().constData());
        if (found)
            return candidate;
    }
    return {};
}

}  // namespace

TEST(InstanceNames, DefaultOnlyForTheExactNameDatabase) {
    EXPECT_TRUE(CorvantaInstance("/anywhere/else/database").isDefault());
    EXPECT_TRUE(CorvantaInstance("/opt/corvanta/database/").isDefault());
    EXPECT_FALSE(CorvantaInstance("/opt/corvanta/Database").isDefault());
    EXPECT_FALSE(CorvantaInstance("/opt/corvanta/database2").isDefault());

    EXPECT_EQ(CorvantaInstance("/opt/corvanta/database").instanceName(), "Default Instance");
    const CorvantaInstance other("/opt/corvanta/sales//");
    EXPECT_EQ(other.instanceName(), "Instance 'sales'");
    EXPECT_EQ(other.displayName(), "sales");
    EXPECT_EQ(other.directory(), "/opt/corvanta/sales//");
}

TEST(InstanceNames, FreshRecordIsNewAndUnknownWithoutTouchingTheFileSystem) {
    const CorvantaInstance instance("/does/not/exist");
    EXPECT_EQ(instance.entryStatus(), EntryStatusNew);
    EXPECT_EQ(instance.serverStatus(), ServerStatusUnknown);
    EXPECT_EQ(instance.pid(), 0);
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);  // configuration not read yet
}

class ConfigProbe : public ::testing::Test {
protected:
    TempDir tmp;
    QString dir = tmp / "inst";
    LogCapture log;
};

TEST_F(ConfigProbe, RegularIniMakesTheDirectoryValidWithDefaults) {
    makeInstance(dir, "; nothing here\n");
    CorvantaInstance instance(dir);
    EXPECT_TRUE(instance.isValid());
    EXPECT_EQ(lockPathOf(instance, {dir + "/corvanta.lck"}), dir + "/corvanta.lck");
    EXPECT_EQ(instance.logFile(), std::nullopt);  // not created yet
    writeFile(dir + "/corvanta.log", "");
    EXPECT_EQ(instance.logFile(), dir + "/corvanta.log");
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(ConfigProbe, MissingIniIsInvalidSilently) {
    makeDir(dir);
    CorvantaInstance instance(dir);
    EXPECT_FALSE(instance.isValid());
    EXPECT_FALSE(CorvantaInstance(tmp / "nothing").isValid());
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(ConfigProbe, IniThatIsNotARegularFileIsSkippedWithAMessage) {
    makeDir(dir);
    writeFile(tmp / "elsewhere.ini", "[database]\n");
    makeLink(tmp / "elsewhere.ini", dir + "/corvanta.ini");
    CorvantaInstance linked(dir);
    EXPECT_FALSE(linked.isValid());
    EXPECT_FALSE(linked.isValid());

    const QString other = tmp / "other";
    makeDir(other);
    makeDir(other + "/corvanta.ini");
    EXPECT_FALSE(CorvantaInstance(other).isValid());

    const QString realDir = Paths::resolveSymlinks(tmp.path());
    EXPECT_EQ(log.lines(),
              QStringList({realDir + "/inst/corvanta.ini is not a regular file - skipped",
                           realDir + "/inst/corvanta.ini is not a regular file - skipped",
                           realDir + "/other/corvanta.ini is not a regular file - skipped"}));
}

TEST_F(ConfigProbe, InstanceReachedThroughALinkIsValid) {
    makeInstance(dir);
    makeLink(dir, tmp / "via-link");
    CorvantaInstance instance(tmp / "via-link");
    EXPECT_TRUE(instance.isValid());
    // Relative settings join the unresolved path.
    writeFile(dir + "/corvanta.lck", "55");
    EXPECT_EQ(instance.pidValueFromLockFile(), 55);
}

TEST_F(ConfigProbe, OnlyTheFirstDatabaseSectionCountsAndKeysIgnoreCase) {
    makeInstance(dir,
                 "[other]\n"
                 "lockfile = /wrong/other.lck\n"
                 "[Database]\n"
                 "LockFile = first.lck\n"
                 "port = 1\n"
                 "LOCKFILE = second.lck\n"
                 "ErrorLogFile = logs/server.log\n"
                 "[next]\n"
                 "lockfile = /wrong/next.lck\n"
                 "[database]\n"
                 "lockfile = /wrong/again.lck\n");
    CorvantaInstance instance(dir);
    ASSERT_TRUE(instance.isValid());
    EXPECT_EQ(lockPathOf(instance, {dir + "/first.lck", dir + "/second.lck"}), dir + "/second.lck");
    makeDir(dir + "/logs");
    writeFile(dir + "/logs/server.log", "");
    EXPECT_EQ(instance.logFile(), dir + "/logs/server.log");
}

TEST_F(ConfigProbe, RelativePathsAreStandardisedAbsoluteOnesKeptAsWritten) {
    CorvantaInstance instance(dir + "/");
    EXPECT_EQ(instance.qualify(QStringLiteral("../run/server.lck"), "corvanta.lck"),
              tmp / "run/server.lck");
    EXPECT_EQ(instance.qualify(std::nullopt, "corvanta.lck"), dir + "/corvanta.lck");
    EXPECT_EQ(instance.qualify(QStringLiteral("/tmp//x/./server.lck"), "corvanta.lck"),
              "/tmp//x/./server.lck");
    EXPECT_EQ(instance.qualify(QStringLiteral("~/x.lck"), "corvanta.lck"), dir + "/~/x.lck");

    makeDir(tmp / "logdir");
    // A log path naming a directory is no log file.
    makeInstance(tmp / "b", "[database]\nerrorlogfile = " + (tmp / "logdir").toUtf8() + "\n");
    CorvantaInstance b(tmp / "b");
    EXPECT_EQ(b.logFile(), std::nullopt);
}

TEST_F(ConfigProbe, ParseIsCachedByFullPrecisionModificationTime) {
    makeInstance(dir, "[database]\nlockfile = one.lck\n");
    const QString ini = dir + "/corvanta.ini";
    setModificationTime(ini, 1700000000, 100);
    CorvantaInstance instance(dir);
    ASSERT_TRUE(instance.isValid());
    const QStringList candidates = {dir + "/one.lck", dir + "/two.lck"};
    EXPECT_EQ(lockPathOf(instance, candidates), dir + "/one.lck");

    // Same time to the nanosecond: the edit goes unnoticed.
    writeFile(ini, "[database]\nlockfile = two.lck\n");
    setModificationTime(ini, 1700000000, 100);
    ASSERT_TRUE(instance.isValid());
    EXPECT_EQ(lockPathOf(instance, candidates), dir + "/one.lck");

    // One nanosecond later is a change.
    setModificationTime(ini, 1700000000, 101);
    ASSERT_TRUE(instance.isValid());
    EXPECT_EQ(lockPathOf(instance, candidates), dir + "/two.lck");
}

TEST_F(ConfigProbe, DeletedIniInvalidatesButKeepsTheKnownPaths) {
    makeInstance(dir, "[database]\nlockfile = kept.lck\nerrorlogfile = kept.log\n");
    CorvantaInstance instance(dir);
    ASSERT_TRUE(instance.isValid());
    writeFile(dir + "/kept.log", "");
    ::unlink((dir + "/corvanta.ini").toUtf8().constData());
    EXPECT_FALSE(instance.isValid());
    EXPECT_EQ(lockPathOf(instance, {dir + "/kept.lck"}), dir + "/kept.lck");
    EXPECT_EQ(instance.logFile(), std::nullopt);  // configuration gone
}

TEST_F(ConfigProbe, UnopenableIniIsValidWithDefaultsAndNotRetriedUntilItChanges) {
    makeInstance(dir, "[database]\nlockfile = custom.lck\n");
    const QString ini = dir + "/corvanta.ini";
    const QByteArray iniPath = ini.toUtf8();
    writeFile(dir + "/custom.lck", "11");
    writeFile(dir + "/corvanta.lck", "22");
    setModificationTime(ini, 1700000000);
    ::chmod(iniPath.constData(), 0);
    if (isRoot()) {
        ASSERT_EQ(::chown(iniPath.constData(), 65534, 65534), 0);
    }
    const std::string answer = runUnprivileged([&] {
        CorvantaInstance instance(dir);
        std::string out;
        const auto probe = [&] {
            out += instance.isValid() ? "valid " : "invalid ";
            out += std::to_string(instance.pidValueFromLockFile()) + ";";
        };
        probe();
        ::chmod(iniPath.constData(), 0644);  // readable now; the time stays
        probe();
        setModificationTime(ini, 1700000001);
        probe();
        return out;
    });
    EXPECT_EQ(answer, "valid 22;valid 22;valid 11;");
}

TEST_F(ConfigProbe, OversizedIniUsesDefaultsWithAMessage) {
    makeInstance(dir, "[database]\nlockfile = custom.lck\n" + QByteArray(2 << 20, ';'));
    CorvantaInstance instance(dir);
    EXPECT_TRUE(instance.isValid());
    EXPECT_EQ(lockPathOf(instance, {dir + "/custom.lck", dir + "/corvanta.lck"}),
              dir + "/corvanta.lck");
    ASSERT_EQ(log.lines().size(), 1);
    EXPECT_TRUE(
        log.lines().first().endsWith("corvanta.ini is larger than 1048576 bytes - "
                                     "default settings used"));
}
