#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "cfg/cfg_internal.h"
#include "cfg_test_util.h"

namespace {

using cfgtest::dumpWalk;
using cfgtest::Image;
using cfgtest::TempDir;
using cfgtest::writeFile;

unsigned kind(const Image &img) {
    return img->flags & CFG_KIND_MASK;
}

// Moves the file's modification time by whole seconds.
void shiftMtime(const std::string &path, int seconds) {
    struct stat st {};
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    const struct timespec times[2] = {{st.st_mtime + seconds, 0}, {st.st_mtime + seconds, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

const char *const kSample =
    "; head\n"
    "top = 0\n"
    "[Database]\n"
    "Port = 3306\n"
    "  continued\n"
    "; note\n"
    "Name = main\n"
    "[empty]\n"
    "[other]\n"
    "x = 1\n";

TEST(CfgLookup, WalkYieldsHeadersKeysAndValueLinesButNoComments) {
    TempDir dir;
    Image img(dir, kSample);
    EXPECT_EQ(dumpWalk(img.get()),
              "top=0\n[Database]\nPort=3306\n  continued\nName=main\n[empty]\n[other]\nx=1\n");
}

TEST(CfgLookup, StepSetsKindAndClearsTheOtherFields) {
    TempDir dir;
    Image img(dir, kSample);
    ASSERT_EQ(ZEM_Cfg_nextentry(img.get()), 0);
    EXPECT_EQ(kind(img), CFG_KIND_KEY);
    EXPECT_EQ(img->section, nullptr);
    ASSERT_EQ(ZEM_Cfg_nextentry(img.get()), 0);
    EXPECT_EQ(kind(img), CFG_KIND_SECTION);
    EXPECT_STREQ(img->section, "Database");
    EXPECT_EQ(img->id, nullptr);
    EXPECT_EQ(img->value, nullptr);
    ASSERT_EQ(ZEM_Cfg_nextentry(img.get()), 0);
    ASSERT_EQ(ZEM_Cfg_nextentry(img.get()), 0);
    EXPECT_EQ(kind(img), CFG_KIND_VALUE);
    EXPECT_EQ(img->id, nullptr);
    EXPECT_STREQ(img->value, "continued");
    EXPECT_STREQ(img->section, "Database");  // the walk's section stays
}

TEST(CfgLookup, FindSectionStandsOnItsHeader) {
    TempDir dir;
    Image img(dir, kSample);
    ASSERT_EQ(ZEM_Cfg_find(img.get(), "DATABASE", nullptr), 0);
    EXPECT_EQ(kind(img), CFG_KIND_SECTION);
    EXPECT_STREQ(img->section, "Database");
    ASSERT_EQ(ZEM_Cfg_nextentry(img.get()), 0);
    EXPECT_STREQ(img->id, "Port");
    ASSERT_EQ(ZEM_Cfg_find(img.get(), "empty", nullptr), 0);
    ASSERT_EQ(ZEM_Cfg_nextentry(img.get()), 0);
    EXPECT_EQ(kind(img), CFG_KIND_SECTION);
    EXPECT_STREQ(img->section, "other");
}

TEST(CfgLookup, FindKeyMatchesCaseInsensitivelyAndReportsTheWrittenName) {
    TempDir dir;
    Image img(dir, kSample);
    ASSERT_EQ(ZEM_Cfg_find(img.get(), "database", "NAME"), 0);
    EXPECT_EQ(kind(img), CFG_KIND_KEY);
    EXPECT_STREQ(img->id, "Name");
    EXPECT_STREQ(img->value, "main");
    EXPECT_STREQ(img->section, "Database");
    EXPECT_EQ(ZEM_Cfg_find(img.get(), "database", "continued"), -1);  // value lines have no key
    EXPECT_EQ(ZEM_Cfg_find(img.get(), "Database", "top"), -1);        // before the first header
}

TEST(CfgLookup, OnlyTheFirstSectionOfANameIsSearched) {
    TempDir dir;
    Image img(dir, "[A]\na=1\na=2\n[B]\nk=b\n[A]\nk=late\n");
    EXPECT_EQ(ZEM_Cfg_find(img.get(), "A", "k"), -1);
    EXPECT_EQ(kind(img), CFG_KIND_SECTION);
    EXPECT_STREQ(img->section, "B");
    EXPECT_FALSE(img->flags & CFG_AT_END);
    ASSERT_EQ(ZEM_Cfg_find(img.get(), "a", "A"), 0);
    EXPECT_STREQ(img->value, "1");
}

TEST(CfgLookup, MissingSectionRunsOffTheEnd) {
    TempDir dir;
    Image img(dir, kSample);
    EXPECT_EQ(ZEM_Cfg_find(img.get(), "nowhere", nullptr), -1);
    EXPECT_TRUE(img->flags & CFG_AT_END);
    EXPECT_EQ(ZEM_Cfg_find(img.get(), "other", "missing"), -1);
    EXPECT_TRUE(img->flags & CFG_AT_END);
    EXPECT_EQ(ZEM_Cfg_find(img.get(), nullptr, nullptr), -1);
}

TEST(CfgLookup, EndStateHoldsUntilRewindOrFind) {
    TempDir dir;
    Image img(dir, "; only\n;comments\n");
    EXPECT_EQ(ZEM_Cfg_nextentry(img.get()), -1);
    EXPECT_EQ(img->flags, CFG_LOADED | CFG_AT_END);
    EXPECT_EQ(ZEM_Cfg_nextentry(img.get()), -1);
    ASSERT_EQ(ZEM_Cfg_rewind(img.get()), 0);
    EXPECT_EQ(img->flags, CFG_LOADED);
    EXPECT_EQ(img->cursor, 0u);

    Image two(dir, "[s]\nk=v\n", "two.ini");
    while (ZEM_Cfg_nextentry(two.get()) == 0) {
    }
    EXPECT_EQ(ZEM_Cfg_nextentry(two.get()), -1);
    ASSERT_EQ(ZEM_Cfg_find(two.get(), "s", "k"), 0);
    EXPECT_EQ(ZEM_Cfg_nextentry(two.get()), -1);  // the cursor stands after the match
}

TEST(CfgLookup, KeysWithoutValueAreSkipped) {
    TempDir dir;
    Image img(dir, "[s]\n");
    ASSERT_EQ(ZEM_Cfg_storeentry(img.get(), nullptr, "novalue", nullptr, nullptr, 1), 0);
    ASSERT_EQ(ZEM_Cfg_storeentry(img.get(), nullptr, "k", "v", nullptr, 1), 0);
    EXPECT_EQ(dumpWalk(img.get()), "[s]\nk=v\n");
    EXPECT_EQ(ZEM_Cfg_find(img.get(), "s", "novalue"), -1);
}

TEST(CfgLookup, UnloadedOrNullHandlesAreRefused) {
    TempDir dir;
    Image img(dir, "[s]\nk=v\n");
    EXPECT_EQ(ZEM_Cfg_rewind(nullptr), -1);
    EXPECT_EQ(ZEM_Cfg_nextentry(nullptr), -1);
    EXPECT_EQ(ZEM_Cfg_find(nullptr, "s", nullptr), -1);
    EXPECT_EQ(ZEM_Cfg_refresh(nullptr), -1);
    _cfg_freeimage(img.get());
    EXPECT_EQ(ZEM_Cfg_rewind(img.get()), -1);
    EXPECT_EQ(ZEM_Cfg_nextentry(img.get()), -1);
    EXPECT_EQ(ZEM_Cfg_find(img.get(), "s", nullptr), -1);
    EXPECT_EQ(ZEM_Cfg_write(img.get(), "s", "k", "w"), -1);
    EXPECT_EQ(ZEM_Cfg_commit(img.get()), -1);
    // Refresh is the one way back.
    EXPECT_EQ(ZEM_Cfg_refresh(img.get()), 1);
    EXPECT_EQ(ZEM_Cfg_find(img.get(), "s", "k"), 0);
}

TEST(CfgRefresh, UnchangedFileKeepsTheWalkWhereItWas) {
    TempDir dir;
    Image img(dir, kSample);
    ASSERT_EQ(ZEM_Cfg_find(img.get(), "Database", "Port"), 0);
    const char *value = img->value;
    EXPECT_EQ(ZEM_Cfg_refresh(img.get()), 0);
    EXPECT_EQ(img->value, value);
    ASSERT_EQ(ZEM_Cfg_nextentry(img.get()), 0);
    EXPECT_STREQ(img->value, "continued");
}

TEST(CfgRefresh, TouchedButIdenticalFileIsDigestedAgainEveryTime) {
    TempDir dir;
    Image img(dir, kSample);
    const int64_t time = img->textTime;
    const char *text = img->text;
    shiftMtime(img.path(), -100);
    EXPECT_EQ(ZEM_Cfg_refresh(img.get()), 0);
    EXPECT_EQ(img->text, text);
    EXPECT_EQ(img->textTime, time);  // left stale: the next refresh reads again
    EXPECT_EQ(ZEM_Cfg_refresh(img.get()), 0);
    EXPECT_EQ(img->textTime, time);
}

TEST(CfgRefresh, ChangedFileIsParsedAnewAndTheWalkReset) {
    TempDir dir;
    Image img(dir, kSample);
    ASSERT_EQ(ZEM_Cfg_find(img.get(), "Database", "Port"), 0);
    writeFile(img.path(), "[Database]\nPort = 1\n");
    shiftMtime(img.path(), 5);
    EXPECT_EQ(ZEM_Cfg_refresh(img.get()), 1);
    EXPECT_EQ(img->flags, CFG_LOADED);
    EXPECT_EQ(img->cursor, 0u);
    EXPECT_EQ(img->section, nullptr);
    EXPECT_EQ(img->value, nullptr);
    ASSERT_EQ(ZEM_Cfg_find(img.get(), "Database", "Port"), 0);
    EXPECT_STREQ(img->value, "1");
}

TEST(CfgRefresh, SameSizeAndSecondIsTrustedWithoutReading) {
    TempDir dir;
    Image img(dir, "[s]\nk=1\n");
    writeFile(img.path(), "[s]\nk=2\n");
    const struct timespec times[2] = {{img->textTime, 0}, {img->textTime, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, img.path().c_str(), times, 0), 0);
    EXPECT_EQ(ZEM_Cfg_refresh(img.get()), 0);
    ASSERT_EQ(ZEM_Cfg_find(img.get(), "s", "k"), 0);
    EXPECT_STREQ(img->value, "1");
}

TEST(CfgRefresh, UncommittedEditsAreDiscarded) {
    TempDir dir;
    Image img(dir, "[s]\nk=1\n");
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "s", "k", "2"), 0);
    EXPECT_EQ(ZEM_Cfg_refresh(img.get()), 1);
    EXPECT_EQ(img->modified, 0);
    ASSERT_EQ(ZEM_Cfg_find(img.get(), "s", "k"), 0);
    EXPECT_STREQ(img->value, "1");
}

TEST(CfgRefresh, VanishedFileFailsAndKeepsTheImage) {
    TempDir dir;
    Image img(dir, "[s]\nk=1\n");
    ASSERT_EQ(remove(img.path().c_str()), 0);
    EXPECT_EQ(ZEM_Cfg_refresh(img.get()), -1);
    ASSERT_EQ(ZEM_Cfg_find(img.get(), "s", "k"), 0);
    EXPECT_STREQ(img->value, "1");
}

}  // namespace
