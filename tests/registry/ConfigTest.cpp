#include "registry/Paths.h"

#include "Support.h"

using ConfigProbe = InstanceTest;

// A fresh record and one probed before judge whatever the directory link reaches now, even an
// item with the cached modification time, and name the resolved path.
TEST_F(ConfigProbe, OnlyARegularIniReachedThroughTheDirectoryMakesItValid) {
    const QString link = at("via-link"), real = Paths::resolveSymlinks(tmp.path());
    makeLink(dir, link);
    CorvantaInstance record(link);
    ASSERT_TRUE(record.isValid());
    struct stat probed {};
    ASSERT_EQ(::stat(local(dir + "/corvanta.ini"), &probed), 0);
    const struct timespec sameTime[2] = {probed.st_mtim, probed.st_mtim};
    makeInstance(at("other"));
    makeLink(at("other/corvanta.ini"), at("ini-link/corvanta.ini"));
    makeDir(at("ini-dir/corvanta.ini"));
    makeDir(at("empty"));
    const std::tuple<const char *, bool, QString> rows[] = {
        {"ini-link", false, real + "/ini-link/corvanta.ini is not a regular file - skipped"},
        {"ini-dir", false, real + "/ini-dir/corvanta.ini is not a regular file - skipped"},
        {"empty", false, {}},
        {"nothing", false, {}},
        {"inst", true, {}},
    };
    for (const auto &[target, valid, message] : rows) {
        for (const char *item :
             {"other/corvanta.ini", "ini-link/corvanta.ini", "ini-dir/corvanta.ini"})
            ::utimensat(AT_FDCWD, local(at(item)), sameTime, AT_SYMLINK_NOFOLLOW);
        removePath(link);
        makeLink(at(target), link);
        log.clear();
        EXPECT_EQ(record.isValid(), valid) << target;
        EXPECT_EQ(CorvantaInstance(link).isValid(), valid) << target;
        EXPECT_EQ(log, message.isEmpty() ? QStringList() : QStringList({message, message}));
    }
}

TEST_F(ConfigProbe, FirstDatabaseSectionIsCachedByFullPrecisionModificationTimeUntilTheIniGoes) {
    const QString ini = dir + "/corvanta.ini";
    const QStringList candidates = {dir + "/one.lck", dir + "/two.lck"};
    const auto edit = [&](const QByteArray &name, long nanoseconds) {
        writeFile(ini,
                  "[other]\nlockfile = /wrong.lck\n[Database]\n"
                  "lockfile = one.lck\nLOCKFILE = " +
                      name + "\n[database]\nlockfile = /wrong.lck\n");
        const struct timespec times[2] = {{1700000000, nanoseconds}, {1700000000, nanoseconds}};
        EXPECT_EQ(::utimensat(AT_FDCWD, local(ini), times, 0), 0);
        EXPECT_TRUE(instance.isValid());
        return lockPathOf(instance, candidates);
    };
    EXPECT_EQ(edit("one.lck", 100), dir + "/one.lck");
    EXPECT_EQ(edit("two.lck", 100), dir + "/one.lck");  // same time to the nanosecond: unnoticed
    EXPECT_EQ(edit("two.lck", 101), dir + "/two.lck");
    removePath(ini);
    EXPECT_FALSE(instance.isValid());
    EXPECT_EQ(lockPathOf(instance, candidates), dir + "/two.lck");  // known paths kept
}

using LockFileRead = InstanceTest;

TEST_F(LockFileRead, FirstDigitRunIsThePidAnythingElseLogsAndGivesZeroWithoutBlocking) {
    const QString malformed = "Malformed .lck file " + lock;
    makeDir(lock);  // a directory is silent, like no file at all
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);
    EXPECT_TRUE(log.isEmpty());
    removePath(lock);
    const std::tuple<QByteArray, qint32, QString> rows[] = {
        {"-77", 77, {}},
        {"0000000000000000000042", 42, {}},
        {"2147483647", 2147483647, {}},
        {QByteArray("\0\0007", 3), 7, {}},
        {QByteArray(4090, ' ') + "1234567", 123456, {}},  // only the first 4096 bytes count
        {"", 0, {}},  // just created: a server about to write its pid
        {"2147483648", 0, malformed},
        {"4294967297", 0, malformed},  // would wrap to 1 if cut to 32 bits
        {"12\xff", 0, "Error reading " + lock + ": not ASCII text"},
        {"12345\n", 12345, {}},  // last: leaves the log empty
    };
    for (const auto &[content, pid, message] : rows) {
        log.clear();
        writeFile(lock, content);
        EXPECT_EQ(instance.pidValueFromLockFile(), pid) << content.left(30).toHex().toStdString();
        EXPECT_EQ(log.join('\n'), message);
    }
    removePath(lock);
    ASSERT_EQ(::mkfifo(local(lock), 0644), 0);
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);  // no writer needed
    removePath(lock);
    makeLink("/dev/zero", lock);
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);
    const QString notRegular = "Error reading " + lock + ": not a regular file";
    EXPECT_EQ(log, QStringList({notRegular, notRegular}));
}
