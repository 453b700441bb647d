#include "registry/Paths.h"
#include "registry/SystemLog.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

using namespace testing_support;

TEST(Paths, StandardizeCleansLexically) {
    EXPECT_EQ(Paths::standardize("/srv//inst/./run/../x.lck"), "/srv/inst/x.lck");
    EXPECT_EQ(Paths::standardize("/srv/inst/../run/server.lck"), "/srv/run/server.lck");
    EXPECT_EQ(Paths::standardize("/a/b/"), "/a/b");
    EXPECT_EQ(Paths::standardize("/../.."), "/");
    EXPECT_EQ(Paths::standardize("/"), "/");
    EXPECT_EQ(Paths::standardize("a/../../b"), "../b");
    EXPECT_EQ(Paths::standardize("./a/.."), ".");
    EXPECT_EQ(Paths::standardize(""), "");
}

TEST(Paths, DisplayNameIsTheLastComponent) {
    EXPECT_EQ(Paths::displayName("/opt/corvanta/database"), "database");
    EXPECT_EQ(Paths::displayName("/opt/corvanta/database//"), "database");
    EXPECT_EQ(Paths::displayName("relative"), "relative");
    EXPECT_EQ(Paths::displayName("/"), "/");
}

TEST(Paths, AppendUsesOneSeparatorAndAbsoluteMeansLeadingSlash) {
    EXPECT_EQ(Paths::append("/a/", "b"), "/a/b");
    EXPECT_EQ(Paths::append("/a", "/b/c"), "/a/b/c");
    EXPECT_EQ(Paths::append("/", "b"), "/b");
    EXPECT_EQ(Paths::append("/a", "../bin/corvanta"), "/a/../bin/corvanta");
    EXPECT_TRUE(Paths::isAbsolute("/x"));
    EXPECT_FALSE(Paths::isAbsolute("~/x"));
    EXPECT_FALSE(Paths::isAbsolute("x/y"));
}

TEST(Paths, ResolveSymlinksFallsBackToLexicalCleaning) {
    TempDir tmp;
    makeDir(tmp / "real");
    makeLink(tmp / "real", tmp / "link");
    const QString real = Paths::resolveSymlinks(tmp / "real");
    EXPECT_EQ(Paths::resolveSymlinks(tmp / "link"), real);
    EXPECT_EQ(Paths::resolveSymlinks(tmp / "link/"), real);
    EXPECT_EQ(Paths::resolveSymlinks("/nonexistent-corvanta//a/./b/.."), "/nonexistent-corvanta/a");
}

TEST(Paths, ExistenceTestsFollowLinksAttributesDoNot) {
    TempDir tmp;
    makeDir(tmp / "dir");
    writeFile(tmp / "file", "x");
    makeLink(tmp / "dir", tmp / "dirlink");
    makeLink(tmp / "missing", tmp / "dangling");
    EXPECT_TRUE(Paths::existsAsDirectory(tmp / "dirlink"));
    EXPECT_FALSE(Paths::existsAsNonDirectory(tmp / "dirlink"));
    EXPECT_TRUE(Paths::existsAsNonDirectory(tmp / "file"));
    EXPECT_FALSE(Paths::existsAsNonDirectory(tmp / "dangling"));
    EXPECT_FALSE(Paths::existsAsDirectory(tmp / "dangling"));
    ASSERT_TRUE(Paths::attributesOfItem(tmp / "dangling"));
    EXPECT_EQ(Paths::attributesOfItem(tmp / "dangling")->type, mode_t(S_IFLNK));
    EXPECT_FALSE(Paths::attributesOfItem(tmp / "missing"));
}

TEST(Paths, ListingIncludesHiddenEntriesButNotDotAndDotDot) {
    TempDir tmp;
    makeDir(tmp / ".hidden");
    writeFile(tmp / "plain", "");
    QStringList names;
    QString error;
    ASSERT_TRUE(Paths::listDirectory(tmp.path(), &names, &error));
    names.sort();
    EXPECT_EQ(names, QStringList({".hidden", "plain"}));

    EXPECT_FALSE(Paths::listDirectory(tmp / "gone", &names, &error));
    EXPECT_EQ(error, "No such file or directory");
    EXPECT_TRUE(names.isEmpty());
}

TEST(Paths, AsciiReadIsBoundedAndRefusesWhatIsNotARegularFile) {
    TempDir tmp;
    QByteArray out;
    QString error;

    writeFile(tmp / "big", QByteArray("4242 ") + QByteArray(100000, 'x'));
    ASSERT_TRUE(Paths::readAsciiPrefix(tmp / "big", &out, &error));
    EXPECT_EQ(out.size(), Paths::kAsciiReadLimit);
    EXPECT_TRUE(out.startsWith("4242 "));

    // A FIFO without a writer would block a plain open or read forever.
    ASSERT_EQ(::mkfifo((tmp / "fifo").toUtf8().constData(), 0644), 0);
    EXPECT_FALSE(Paths::readAsciiPrefix(tmp / "fifo", &out, &error));
    EXPECT_EQ(error, "not a regular file");

    EXPECT_FALSE(Paths::readAsciiPrefix("/dev/zero", &out, &error));
    EXPECT_EQ(error, "not a regular file");

    writeFile(tmp / "latin1", "pid \xe9 12");
    EXPECT_FALSE(Paths::readAsciiPrefix(tmp / "latin1", &out, &error));
    EXPECT_EQ(error, "not ASCII text");

    EXPECT_FALSE(Paths::readAsciiPrefix(tmp / "missing", &out, &error));
    EXPECT_EQ(error, "No such file or directory");
}

TEST(SystemLog, OneLinePerMessageEvenWithLineBreaksInside) {
    {
        LogCapture log;
        systemLog("Error reading /tmp/a\nb.lck: x\r\x01");
        ASSERT_EQ(log.lines().size(), 1);
        EXPECT_EQ(log.lines().first(), "Error reading /tmp/a\\nb.lck: x\\r\\x01");
    }

    // Without a sink the line goes to standard error, newline-terminated.
    TempDir tmp;
    const QByteArray capturePath = (tmp / "stderr").toUtf8();
    fflush(stderr);
    const int saved = ::dup(STDERR_FILENO);
    FILE *capture = std::fopen(capturePath.constData(), "we");
    ASSERT_NE(capture, nullptr);
    ::dup2(::fileno(capture), STDERR_FILENO);
    systemLog(QString::fromUtf8("stale .lck file detected: /tmp/\xc3\xa9\n"));
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    std::fclose(capture);
    EXPECT_EQ(readFile(tmp / "stderr"), "stale .lck file detected: /tmp/\xc3\xa9\\n\n");
}
