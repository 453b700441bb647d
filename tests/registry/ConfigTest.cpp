#include "registry/Paths.h"

#include "Support.h"

// A fresh record and one probed before judge whatever the directory link reaches now, even an
// item with the cached modification time, and name the resolved path. The first [Database]
// section is cached by full-precision modification time until the ini goes.
TEST_F(InstanceTest, OnlyARegularIniMakesARecordValidAndItsLockFileIsCachedByModificationTime) {
    const QString link = at("via-link"), real = Paths::resolveSymlinks(tmp.path());
    makeLink(dir, link);
    CorvantaInstance record(link);
    ASSERT_TRUE(record.probeConfiguration());
    struct stat probed {};
    ASSERT_EQ(::stat(local(dir + "/corvanta.ini"), &probed), 0);
    const struct timespec sameTime[2] = {probed.st_mtim, probed.st_mtim};
    makeInstance(at("other"));
    makeLink(at("other/corvanta.ini"), at("ini-link/corvanta.ini"));
    makeDir(at("ini-dir/corvanta.ini"));
    makeDir(at("empty"));
    // Only "inst" holds a regular ini; in the "ini-" ones something else stands in its place.
    for (const QString target : {"ini-link", "ini-dir", "empty", "nothing", "inst"}) {
        const bool valid = target == "inst", skipped = target.startsWith("ini-");
        const QString message =
            real + '/' + target + "/corvanta.ini is not a regular file - skipped";
        for (const char *item :
             {"other/corvanta.ini", "ini-link/corvanta.ini", "ini-dir/corvanta.ini"})
            ::utimensat(AT_FDCWD, local(at(item)), sameTime, AT_SYMLINK_NOFOLLOW);
        removePath(link);
        makeLink(at(target), link);
        log.clear();
        EXPECT_EQ(record.probeConfiguration(), valid) << target.toStdString();
        EXPECT_EQ(CorvantaInstance(link).probeConfiguration(), valid) << target.toStdString();
        EXPECT_EQ(log, skipped ? QStringList({message, message}) : QStringList());
    }
    const QString ini = dir + "/corvanta.ini";
    const QStringList candidates = {dir + "/one.lck", dir + "/two.lck"};
    const auto edit = [&](const QByteArray &name, long nanoseconds) {
        writeFile(ini,
                  "[other]\nlockfile = /wrong.lck\n[Database]\n"
                  "lockfile = one.lck\nLOCKFILE = " +
                      name + "\n[database]\nlockfile = /wrong.lck\n");
        const struct timespec times[2] = {{1700000000, nanoseconds}, {1700000000, nanoseconds}};
        EXPECT_EQ(::utimensat(AT_FDCWD, local(ini), times, 0), 0);
        EXPECT_TRUE(instance.probeConfiguration());
        return lockPathOf(instance, candidates);
    };
    EXPECT_EQ(edit("one.lck", 100), dir + "/one.lck");
    EXPECT_EQ(edit("two.lck", 100), dir + "/one.lck");  // same time to the nanosecond: unnoticed
    EXPECT_EQ(edit("two.lck", 101), dir + "/two.lck");
    removePath(ini);
    EXPECT_FALSE(instance.probeConfiguration());
    EXPECT_EQ(lockPathOf(instance, candidates), dir + "/two.lck");  // known paths kept
}
