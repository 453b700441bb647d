#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "cfg/cfg_internal.h"
#include "cfg_test_util.h"

namespace {

using cfgtest::dumpWalk;
using cfgtest::Image;
using cfgtest::readFile;
using cfgtest::TempDir;
using cfgtest::writeFile;

// Commits and returns the file's bytes.
std::string committed(const Image &img) {
    EXPECT_EQ(ZEM_Cfg_commit(img.get()), 0);
    EXPECT_EQ(img->modified, 0);
    return readFile(img.path());
}

// The writer's output for the image, without touching any file.
std::string layout(const ZEM_CfgHandle *h) {
    char *buf = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&buf, &size);
    ZEM_MD5Context md5;
    ZEM_MD5Init(&md5);
    _cfg_writeimage(h, out, &md5);
    std::fclose(out);
    std::string text(buf, size);
    std::free(buf);
    return text;
}

const char *const kBase =
    "; top comment\n"
    "[A]\n"
    "port = 1\n"
    "  cont line\n"
    "name=x ;c\n"
    "\n"
    ";; about B\n"
    "[B]\n"
    "k = v\n";

TEST(CfgWrite, SettingAKeyKeepsItsNameAndComment) {
    TempDir dir;
    Image img(dir, kBase);
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "a", "PORT", "2"), 0);
    EXPECT_EQ(img->modified, 1);
    EXPECT_EQ(
        committed(img),
        "; top comment\n[A]\nport = 2\n  cont line\nname = x\t;c\n\n;; about B\n[B]\nk = v\n");
}

TEST(CfgWrite, NewKeyGoesAfterTheCommentsLeadingIntoTheNextSection) {
    TempDir dir;
    Image img(dir, kBase);
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "A", "new", "1"), 0);
    EXPECT_EQ(committed(img),
              "; top comment\n[A]\nport = 1\n  cont line\nname = x\t;c\n;; about B\nnew  = 1\n"
              "\n[B]\nk = v\n");
}

TEST(CfgWrite, NewKeyInTheLastSectionOrANewSectionIsAppended) {
    TempDir dir;
    Image img(dir, kBase);
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "B", "longer", "w"), 0);
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "C", "x", "1"), 0);
    EXPECT_EQ(committed(img),
              "; top comment\n[A]\nport = 1\n  cont line\nname = x\t;c\n\n;; about B\n[B]\n"
              "k      = v\nlonger = w\n\n[C]\nx = 1\n");
    EXPECT_EQ(img->entries[img->entryCount - 2].flags, CFG_OWNS_SECTION);
    EXPECT_EQ(img->entries[img->entryCount - 1].flags, CFG_OWNS_ID | CFG_OWNS_VALUE);
}

TEST(CfgWrite, SettingUsesTheFirstOfDuplicateSections) {
    TempDir dir;
    Image img(dir, "[A]\na=1\n[B]\n[A]\nk=old\n");
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "A", "k", "new"), 0);
    EXPECT_EQ(committed(img), "[A]\na = 1\nk = new\n\n[B]\n\n[A]\nk = old\n");
}

TEST(CfgWrite, ValueMayBeTheStringItReplaces) {
    TempDir dir;
    Image img(dir, "[s]\nk = v\n");
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "s", "k", "first"), 0);
    ASSERT_EQ(ZEM_Cfg_find(img.get(), "s", "k"), 0);
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "s", "k", img->value), 0);
    ASSERT_EQ(ZEM_Cfg_find(img.get(), "s", "k"), 0);
    EXPECT_STREQ(img->value, "first");
}

TEST(CfgDelete, KeyGoesWithItsCommentsButNotItsValueLines) {
    TempDir dir;
    Image img(dir, "[A]\n; about port\nport = 1\n  cont line\nname = x\n");
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "A", "Port", nullptr), 0);
    EXPECT_EQ(committed(img), "[A]\n  cont line\nname = x\n");
}

TEST(CfgDelete, SectionTakesAttachedCommentsAboveAndLeavesThoseLeadingOn) {
    TempDir dir;
    Image img(dir,
              "[Z]\nz = 0\n;old = 1\n;; text\n; text\n;\n[A]\na = 1\n  more\n;; lead into B\n"
              "[B]\nb = 2\n");
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "a", nullptr, nullptr), 0);
    EXPECT_EQ(committed(img), "[Z]\nz = 0\n;old = 1\n\n;; lead into B\n[B]\nb = 2\n");
}

TEST(CfgDelete, SectionsAtEitherEndOfTheArray) {
    TempDir dir;
    Image img(dir, "; first\n[A]\na = 1\n[B]\nb = 2\n; trailing\n");
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "A", nullptr, nullptr), 0);
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "B", nullptr, nullptr), 0);
    EXPECT_EQ(committed(img), "; trailing\n");
}

TEST(CfgDelete, NothingToDeleteChangesNothing) {
    TempDir dir;
    Image img(dir, kBase);
    const std::string before = img.entries();
    EXPECT_EQ(ZEM_Cfg_write(img.get(), "nope", nullptr, nullptr), 0);
    EXPECT_EQ(ZEM_Cfg_write(img.get(), "A", "nokey", nullptr), 0);
    EXPECT_EQ(ZEM_Cfg_write(img.get(), "nope", "k", nullptr), 0);
    EXPECT_EQ(ZEM_Cfg_write(img.get(), "nope", nullptr, "v"), 0);
    EXPECT_EQ(ZEM_Cfg_write(img.get(), nullptr, "k", "v"), -1);
    EXPECT_EQ(img->modified, 0);
    EXPECT_EQ(img.entries(), before);
}

TEST(CfgMerge, ReplacesRunsInsertsNewKeysAndAppendsNewSections) {
    TempDir dir;
    Image target(dir, "[db]\nport = 1\n  old cont\nname = a\n[other]\no = 1\n", "target.ini");
    Image source(dir,
                 "pre = ignored\n[DB]\n; ignored lead\nPort = 2\n  new cont\n  more\nextra = e\n"
                 "[new]\n; kept\nn = 1\n",
                 "source.ini");
    ASSERT_EQ(cfg_merge(target.get(), source.get()), 0);
    EXPECT_EQ(committed(target),
              "[db]\nPort  = 2\n  new cont\n  more\nname  = a\nextra = e\n\n[other]\no = 1\n"
              "\n[new]\n; kept\nn = 1\n");
    EXPECT_EQ(source->modified, 0);
}

TEST(CfgMerge, IntoAnEmptyImageCopiesEverySection) {
    TempDir dir;
    Image target(dir, "", "target.ini");
    Image source(dir, "[a]\nx = 1\n[b]\ny = 2\n", "source.ini");
    ASSERT_EQ(cfg_merge(target.get(), source.get()), 0);
    EXPECT_EQ(dumpWalk(target.get()), "[a]\nx=1\n[b]\ny=2\n");
    EXPECT_EQ(target->entries[0].flags, CFG_OWNS_SECTION);
}

TEST(CfgMerge, EmptySourceStillMarksModified) {
    TempDir dir;
    Image target(dir, "[a]\nx = 1\n", "target.ini");
    Image source(dir, "; nothing\n", "source.ini");
    ASSERT_EQ(cfg_merge(target.get(), source.get()), 0);
    EXPECT_EQ(target->modified, 1);
    EXPECT_EQ(cfg_merge(target.get(), target.get()), -1);
    EXPECT_EQ(cfg_merge(target.get(), nullptr), -1);
}

TEST(CfgStore, CopyFlagDecidesOwnership) {
    TempDir dir;
    Image img(dir, "");
    const char *section = "s";
    const char *comment = "c";
    ASSERT_EQ(ZEM_Cfg_storeentry(img.get(), section, nullptr, nullptr, comment, 0), 0);
    ASSERT_EQ(ZEM_Cfg_storeentry(img.get(), "s", "i", "v", "c", 1), 0);
    ASSERT_EQ(img->entryCount, 2u);
    EXPECT_EQ(img->entries[0].section, section);
    EXPECT_EQ(img->entries[0].comment, comment);
    EXPECT_EQ(img->entries[0].flags, 0);
    EXPECT_EQ(img->entries[1].flags,
              CFG_OWNS_SECTION | CFG_OWNS_ID | CFG_OWNS_VALUE | CFG_OWNS_COMMENT);
    EXPECT_EQ(img->modified, 0);
}

TEST(CfgLayout, EveryEntryKindAndTheSeparatorRule) {
    TempDir dir;
    Image img(dir, "");
    auto store = [&](const char *s, const char *i, const char *v, const char *c) {
        ASSERT_EQ(ZEM_Cfg_storeentry(img.get(), s, i, v, c, 1), 0);
    };
    store(nullptr, "long_key", "1", nullptr);  // before any header: width 0
    store(nullptr, "k", "2", nullptr);
    store(nullptr, nullptr, nullptr, ";; file header");
    store("first", nullptr, nullptr, "note");
    store(nullptr, "a", "1", "c");
    store(nullptr, "abcde", "", nullptr);
    store(nullptr, nullptr, "value line", "vc");
    store(nullptr, "novalue", nullptr, nullptr);
    store(nullptr, "novalue", nullptr, "shown as comment");
    store(nullptr, nullptr, nullptr, nullptr);
    store(nullptr, nullptr, nullptr, "port = 1111");
    store("second", nullptr, nullptr, nullptr);
    store(nullptr, nullptr, nullptr, "; key note");
    store(nullptr, "k", "v", nullptr);
    store(nullptr, nullptr, nullptr, "");
    store(nullptr, nullptr, nullptr, " lead");
    store(nullptr, nullptr, nullptr, nullptr);
    store("third", nullptr, nullptr, nullptr);
    store(nullptr, nullptr, nullptr, ";last");
    EXPECT_EQ(layout(img.get()),
              "long_key = 1\n"
              "k = 2\n"
              ";;; file header\n"
              "[first]\t;note\n"
              "a       = 1\t;c\n"
              "abcde   = \n"
              "  value line\t;vc\n"
              "\n"
              ";shown as comment\n"
              "\n"
              ";port = 1111\n"
              "\n[second]\n"
              ";; key note\n"
              "k = v\n"
              "\n;\n"
              "; lead\n"
              "\n"
              "[third]\n"
              ";;last\n");
}

TEST(CfgCommit, RefreshRecognisesTheCommittedFile) {
    TempDir dir;
    Image img(dir, "[s]\nk = 1\n");
    const int64_t size = img->textSize;
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "s", "k", "changed"), 0);
    ASSERT_EQ(ZEM_Cfg_commit(img.get()), 0);
    struct stat st {};
    ASSERT_EQ(stat(img.path().c_str(), &st), 0);
    EXPECT_NE(st.st_size, size);
    EXPECT_EQ(ZEM_Cfg_refresh(img.get()), 0);
    EXPECT_EQ(ZEM_Cfg_refresh(img.get()), 0);
    ASSERT_EQ(ZEM_Cfg_find(img.get(), "s", "k"), 0);
    EXPECT_STREQ(img->value, "changed");

    Image reread(dir, readFile(img.path()), "copy.ini");
    EXPECT_EQ(dumpWalk(reread.get()), dumpWalk(img.get()));
}

TEST(CfgCommit, WithoutEditsTheFileIsLeftAlone) {
    TempDir dir;
    Image img(dir, "[s]\n  k=1\n");
    const struct timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, img.path().c_str(), old, 0), 0);
    ASSERT_EQ(ZEM_Cfg_storeentry(img.get(), "t", nullptr, nullptr, nullptr, 1), 0);
    ASSERT_EQ(ZEM_Cfg_commit(img.get()), 0);
    struct stat st {};
    ASSERT_EQ(stat(img.path().c_str(), &st), 0);
    EXPECT_EQ(st.st_mtime, 1000000000);
    EXPECT_EQ(readFile(img.path()), "[s]\n  k=1\n");
}

TEST(CfgCommit, UnopenableFileIsNotReportedAndStaysModified) {
    TempDir dir;
    const std::string sub = dir.file("sub");
    std::filesystem::create_directory(sub);
    writeFile(sub + "/x.ini", "[s]\nk = 1\n");
    ZEM_CfgHandle *h = nullptr;
    ASSERT_EQ(ZEM_Cfg_init(&h, (sub + "/x.ini").c_str()), 0);
    std::filesystem::remove_all(sub);
    ASSERT_EQ(ZEM_Cfg_write(h, "s", "k", "2"), 0);
    EXPECT_EQ(ZEM_Cfg_commit(h), 0);
    EXPECT_EQ(h->modified, 1);
    EXPECT_FALSE(std::filesystem::exists(sub));
    ZEM_Cfg_done(h);
}

TEST(CfgCommit, LinesUpTo4095BytesAreWritten) {
    TempDir dir;
    Image img(dir, "[s]\n");
    const std::string value(4091, 'v');  // "k = " plus the value: 4095 bytes
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "s", "k", value.c_str()), 0);
    EXPECT_EQ(committed(img), "[s]\nk = " + value + "\n");
}

// Forked without re-running the test, so the child leaves no temporary
// directory behind.
TEST(CfgCommitDeathTest, LineOf4096BytesEndsTheProcess) {
    TempDir dir;
    Image img(dir, "[s]\n");
    const std::string value(4092, 'v');
    ASSERT_EQ(ZEM_Cfg_write(img.get(), "s", "k", value.c_str()), 0);
    EXPECT_DEATH(ZEM_Cfg_commit(img.get()), "configuration line of 4096 bytes exceeds the limit");
}

TEST(CfgLocking, ConcurrentEditsOnOneHandleAreSerialised) {
    TempDir dir;
    Image img(dir, "[s]\n");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&img, t] {
            for (int i = 0; i < 200; ++i) {
                const std::string key = "k" + std::to_string(t) + "_" + std::to_string(i);
                EXPECT_EQ(ZEM_Cfg_write(img.get(), "s", key.c_str(), "v"), 0);
                EXPECT_EQ(ZEM_Cfg_find(img.get(), "s", nullptr), 0);
            }
        });
    }
    for (auto &th : threads) {
        th.join();
    }
    EXPECT_EQ(img->entryCount, 1u + 4u * 200u);
}

}  // namespace
