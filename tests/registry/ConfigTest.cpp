#include "registry/Paths.h"

#include "Support.h"

using ConfigProbe = InstanceTest;

TEST_F(ConfigProbe, OnlyARegularIniReachedThroughTheDirectoryMakesItValid) {
    makeLink(dir + "/corvanta.ini", tmp / "linked/corvanta.ini");
    makeDir(tmp / "dir/corvanta.ini");
    makeLink(dir, tmp / "via-link");
    for (const char *name : {"nothing", "linked", "dir"})
        EXPECT_FALSE(CorvantaInstance(tmp / name).isValid()) << name;
    CorvantaInstance viaLink(tmp / "via-link");
    EXPECT_TRUE(viaLink.isValid());
    EXPECT_EQ(lockPathOf(viaLink, {lock}), lock);
    const QString real = Paths::resolveSymlinks(tmp.path());
    EXPECT_EQ(log.lines, QStringList({real + "/linked/corvanta.ini is not a regular file - skipped",
                                      real + "/dir/corvanta.ini is not a regular file - skipped"}));
}

TEST_F(ConfigProbe, FirstDatabaseSectionIsCachedByFullPrecisionModificationTimeUntilTheIniGoes) {
    const QString ini = dir + "/corvanta.ini";
    const QStringList candidates = {dir + "/one.lck", dir + "/two.lck"};
    const auto edit = [&](const QByteArray &name, long nanoseconds) {
        writeFile(ini,
                  "[other]\nlockfile = /wrong.lck\n[Database]\nErrorLogFile = ../inst/kept.log\n"
                  "lockfile = one.lck\nLOCKFILE = " +
                      name + "\n[database]\nlockfile = /wrong.lck\n");
        setModificationTime(ini, 1700000000, nanoseconds);
        EXPECT_TRUE(instance.isValid());
        return lockPathOf(instance, candidates);
    };
    EXPECT_EQ(edit("one.lck", 100), dir + "/one.lck");
    EXPECT_EQ(edit("two.lck", 100), dir + "/one.lck");  // same time to the nanosecond: unnoticed
    EXPECT_EQ(edit("two.lck", 101), dir + "/two.lck");
    writeFile(dir + "/kept.log", "");
    EXPECT_EQ(instance.logFile(), dir + "/kept.log");
    EXPECT_EQ(instance.qualify(QStringLiteral("~/x"), "y"), dir + "/~/x");
    removePath(ini);
    EXPECT_FALSE(instance.isValid());
    EXPECT_EQ(lockPathOf(instance, candidates), dir + "/two.lck");  // known paths kept
    EXPECT_EQ(instance.logFile(), std::nullopt);                    // but no configuration
}

TEST_F(ConfigProbe, UnopenableIniIsValidWithDefaultsAndNotRetriedUntilItChanges) {
    const QString ini = dir + "/corvanta.ini", custom = dir + "/custom.lck";
    writeFile(ini, "[database]\nlockfile = custom.lck\n");
    writeFile(custom, "11");
    writeFile(lock, "22");
    setModificationTime(ini, 1700000000);
    ::chmod(local(ini), 0);
    ::chmod(local(custom), 0);  // an unreadable lock file, too
    ASSERT_TRUE(::geteuid() != 0 || ::chown(local(ini), 65534, 65534) == 0);
    const std::string answer = runUnprivileged([&] {
        CorvantaInstance fresh(dir);
        const auto probe = [&] {
            const bool valid = fresh.isValid();  // probes before the lock file is read
            return std::to_string(valid) + std::to_string(fresh.pidValueFromLockFile()) + ";";
        };
        std::string out = probe();
        ::chmod(local(ini), 0644);  // readable now; the time stays
        out += probe();
        setModificationTime(ini, 1700000001);
        out += probe();
        return out + log.lines.join('|').toStdString();
    });
    EXPECT_EQ(answer, "122;122;10;Error reading " + custom.toStdString() + ": Permission denied");
}

TEST_F(ConfigProbe, OversizedIniUsesDefaultsWithAMessage) {
    writeFile(dir + "/corvanta.ini", "[database]\nlockfile = x.lck\n" + QByteArray(2 << 20, ';'));
    EXPECT_TRUE(instance.isValid());
    EXPECT_EQ(lockPathOf(instance, {dir + "/x.lck", lock}), lock);
    EXPECT_EQ(log.lines, QStringList({Paths::resolveSymlinks(dir) +
                                      "/corvanta.ini is larger than 1048576 bytes - "
                                      "default settings used"}));
}

using LockFileRead = InstanceTest;

TEST_F(LockFileRead, FirstDigitRunIsThePidAnythingElseLogsAndGivesZeroWithoutBlocking) {
    const QString malformed = "Malformed .lck file " + lock;
    const std::tuple<QByteArray, qint32, QString> rows[] = {
        {"12345\n", 12345, {}},
        {"-77", 77, {}},
        {"0000000000000000000042", 42, {}},
        {"2147483647", 2147483647, {}},
        {"0", 0, {}},
        {QByteArray("\0\0007", 3), 7, {}},
        {QByteArray(4090, ' ') + "1234567", 123456, {}},  // only the first 4096 bytes count
        {"", 0, malformed},
        {"2147483648", 0, malformed},
        {"4294967297", 0, malformed},  // would wrap to 1 if cut to 32 bits
        {QByteArray(5000, ' ') + "1234567", 0, malformed},
        {"12\xff", 0, "Error reading " + lock + ": not ASCII text"},
    };
    for (const auto &[content, pid, message] : rows) {
        log.lines.clear();
        writeFile(lock, content);
        EXPECT_EQ(instance.pidValueFromLockFile(), pid) << content.left(30).toHex().toStdString();
        EXPECT_EQ(log.lines.join('\n'), message);
    }
    log.lines.clear();
    removePath(lock);
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);  // nothing and a directory: silent
    makeDir(lock);
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);
    EXPECT_TRUE(log.lines.isEmpty());
    removePath(lock);
    ASSERT_EQ(::mkfifo(local(lock), 0644), 0);
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);  // no writer needed
    removePath(lock);
    makeLink("/dev/zero", lock);
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);
    const QString notRegular = "Error reading " + lock + ": not a regular file";
    EXPECT_EQ(log.lines, QStringList({notRegular, notRegular}));
}
