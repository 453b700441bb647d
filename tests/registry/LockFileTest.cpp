#include "registry/CorvantaInstance.h"
#include "registry/LockFile.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstring>

using namespace testing_support;

namespace {

LockFile::PidResult parse(const char *text) {
    return LockFile::parsePid(text, std::strlen(text));
}

}  // namespace

TEST(LockFileParser, FirstDigitRunIsThePid) {
    EXPECT_EQ(parse("12345\n").pid, 12345);
    EXPECT_EQ(parse("pid 12345 started").pid, 12345);
    EXPECT_EQ(parse("-77").pid, 77);
    EXPECT_EQ(parse("12 34").pid, 12);
    EXPECT_EQ(parse("0000000000000000000042").pid, 42);
    EXPECT_EQ(parse("2147483647").pid, 2147483647);
    EXPECT_EQ(parse("0").kind, LockFile::PidParse::Pid);
    EXPECT_EQ(parse("0").pid, 0);
    // Embedded NUL bytes are ordinary non-digits.
    EXPECT_EQ(LockFile::parsePid("\0\0007", 3).pid, 7);
}

TEST(LockFileParser, NoDigitOrOverflowIsMalformed) {
    EXPECT_EQ(parse("abc").kind, LockFile::PidParse::NoDigit);
    EXPECT_EQ(parse("").kind, LockFile::PidParse::NoDigit);
    EXPECT_EQ(parse("2147483648").kind, LockFile::PidParse::Overflow);
    EXPECT_EQ(parse("99999999999999999999999999").kind, LockFile::PidParse::Overflow);
    EXPECT_EQ(parse("99999999999999999999999999").pid, 0);
}

class LockFileRead : public ::testing::Test {
protected:
    void SetUp() override {
        makeInstance(dir, "[database]\nlockfile = server.lck\n");
        ASSERT_TRUE(instance.isValid());
    }
    qint32 readWith(const QByteArray &content) {
        writeFile(lock, content);
        return instance.pidValueFromLockFile();
    }

    TempDir tmp;
    QString dir = tmp / "inst";
    QString lock = dir + "/server.lck";
    CorvantaInstance instance{dir};
    LogCapture log;
};

TEST_F(LockFileRead, WellFormedFilesGiveTheirPidSilently) {
    EXPECT_EQ(readWith("12345\n"), 12345);
    EXPECT_EQ(readWith("pid 12345 started"), 12345);
    EXPECT_EQ(readWith("-77"), 77);
    EXPECT_EQ(readWith("0"), 0);
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join('\n').toStdString();
}

TEST_F(LockFileRead, MalformedFilesLogAndGiveZero) {
    EXPECT_EQ(readWith("abc"), 0);
    EXPECT_EQ(readWith(""), 0);
    EXPECT_EQ(readWith("4294967297"), 0);  // would wrap to 1 when cut to 32 bits
    const QString expected = "Malformed .lck file " + lock;
    EXPECT_EQ(log.lines(), QStringList({expected, expected, expected}));
}

TEST_F(LockFileRead, OnlyTheFirstBytesOfALongFileCount) {
    EXPECT_EQ(readWith(QByteArray(4090, ' ') + "1234567"), 123456);
    EXPECT_EQ(readWith(QByteArray(5000, ' ') + "1234567"), 0);
    EXPECT_EQ(log.lines(), QStringList({"Malformed .lck file " + lock}));
}

TEST_F(LockFileRead, MissingOrDirectoryGivesZeroWithoutMessage) {
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);
    makeDir(lock);
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(LockFileRead, SpecialFilesAndNonAsciiAreReadErrors) {
    ASSERT_EQ(::mkfifo(lock.toUtf8().constData(), 0644), 0);
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);  // returns at once, no writer needed
    ::unlink(lock.toUtf8().constData());
    makeLink("/dev/zero", lock);
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);
    ::unlink(lock.toUtf8().constData());
    EXPECT_EQ(readWith("12\xff"), 0);
    EXPECT_EQ(log.lines(), QStringList({"Error reading " + lock + ": not a regular file",
                                        "Error reading " + lock + ": not a regular file",
                                        "Error reading " + lock + ": not ASCII text"}));
}

TEST_F(LockFileRead, UnreadableFileLogsTheSystemError) {
    writeFile(lock, "4711\n");
    ::chmod(lock.toUtf8().constData(), 0);
    const std::string answer = runUnprivileged([&] {
        LogCapture childLog;
        const qint32 pid = instance.pidValueFromLockFile();
        return std::to_string(pid) + "|" + childLog.lines().join('\n').toStdString();
    });
    EXPECT_EQ(answer, "0|Error reading " + lock.toStdString() + ": Permission denied");
}
