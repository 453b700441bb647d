#include <gtest/gtest.h>

#include <string>

#include "cfg/cfg_internal.h"
#include "cfg_test_util.h"

namespace {

using cfgtest::Image;
using cfgtest::TempDir;

std::string parse(const std::string &text) {
    TempDir dir;
    Image img(dir, text);
    return img.get() ? img.entries() : "open failed";
}

TEST(CfgParse, KeyLinesSplitKeyValueAndComment) {
    EXPECT_EQ(parse("key=value\n"
                    "key = value\n"
                    "  key = value\n"
                    "key =\n"
                    "= v\n"
                    "key = a;b\n"
                    "key = a ;b\n"
                    "key=;c\n"
                    "key = 'a ;b'\n"),
              "~ <key> <value> ~\n"
              "~ <key> <value> ~\n"
              "~ ~ <key = value> ~\n"
              "~ <key> <> ~\n"
              "~ <> <v> ~\n"
              "~ <key> <a;b> ~\n"
              "~ <key> <a> <b>\n"
              "~ <key> <> <c>\n"
              "~ <key> <'a ;b'> ~\n");
}

TEST(CfgParse, QuotesShieldSemicolonsAndStayInTheValue) {
    EXPECT_EQ(parse("k = \"a ;b\" ;c\n"
                    "k = \"open ;x\n"
                    "k = 'x' \";y\" ; z \n"
                    "k = a\t;tab\n"
                    "k = v \v ;c\n"
                    "key\v = v\n"),
              "~ <k> <\"a ;b\"> <c>\n"
              "~ <k> <\"open ;x> ~\n"
              "~ <k> <'x' \";y\"> < z>\n"
              "~ <k> <a> <tab>\n"
              "~ <k> <v> <c>\n"
              "~ <key> <v> ~\n");
}

TEST(CfgParse, SectionHeadersAndDroppedLines) {
    EXPECT_EQ(parse("[ name ] ;note\n"
                    "[name] junk\n"
                    "[name\n"
                    "[ ]\n"
                    "[]\n"
                    "just text\n"
                    "[a];c\n"
                    "  [indented]\n"
                    "[x] ; spaced  \n"),
              "<name> ~ ~ <note>\n"
              "<name> ~ ~ ~\n"
              "<a> ~ ~ <c>\n"
              "<indented> ~ ~ ~\n"
              "<x> ~ ~ < spaced>\n");
}

TEST(CfgParse, CommentAndValueLines) {
    EXPECT_EQ(parse("; top\n"
                    ";;double\n"
                    ";\n"
                    "\t; indented comment\n"
                    "  a ;b = c\n"
                    "\f= v\n"),
              "~ ~ ~ < top>\n"
              "~ ~ ~ <;double>\n"
              "~ ~ ~ <>\n"
              "~ ~ ~ < indented comment>\n"
              "~ ~ <a ;b = c> ~\n"
              "~ ~ <= v> ~\n");
}

TEST(CfgParse, EveryLineEndEndsALineAndRunsMakeNoEntries) {
    const std::string expected = "~ <a> <1> ~\n~ <b> <2> ~\n~ <c> <3> ~\n~ <d> <4> ~\n";
    EXPECT_EQ(parse("a=1\nb=2\nc=3\nd=4\n"), expected);
    EXPECT_EQ(parse("a=1\r\nb=2\r\nc=3\r\nd=4\r\n"), expected);
    EXPECT_EQ(parse("a=1\rb=2\x1a"
                    "c=3\r\n\r\n\n\x1a\x1a"
                    "d=4"),
              expected);
    EXPECT_EQ(parse("\n\r\n   \n\t\f\na=1 \t\nb=2\f\nc=3\r\nd=4"), expected);
}

TEST(CfgParse, UnterminatedLastLineKeepsItsTrailingBlanks) {
    EXPECT_EQ(parse("k = v  \nlast = w \t"), "~ <k> <v> ~\n~ <last> <w \t> ~\n");
    EXPECT_EQ(parse("k = v\n   "), "~ <k> <v> ~\n~ ~ <> ~\n");
    EXPECT_EQ(parse("k = v\n   \n"), "~ <k> <v> ~\n");
}

TEST(CfgParse, NulInsideTheFileEndsTheText) {
    EXPECT_EQ(parse(std::string("a=1\nb=2\0c=3\nd=4\n", 16)), "~ <a> <1> ~\n~ <b> <2> ~\n");
    EXPECT_EQ(parse(std::string("a=1\n\0\nc=3\n", 10)), "~ <a> <1> ~\n");
    EXPECT_EQ(parse(std::string("\0a=1\n", 5)), "");
}

TEST(CfgParse, DuplicatesAreKeptInFileOrderWithTheirCase) {
    EXPECT_EQ(parse("[Sec]\nKey=1\n[sec]\nkey=2\nKEY=3\n"),
              "<Sec> ~ ~ ~\n~ <Key> <1> ~\n<sec> ~ ~ ~\n~ <key> <2> ~\n~ <KEY> <3> ~\n");
}

TEST(CfgParse, EntriesPointIntoTheTextAndOwnNothing) {
    TempDir dir;
    Image img(dir, "[s]\nk = v ;c\n");
    ASSERT_EQ(img->entryCount, 2u);
    for (uint32_t i = 0; i < img->entryCount; ++i) {
        EXPECT_EQ(img->entries[i].flags, 0);
    }
    const char *text = img->text;
    EXPECT_GE(img->entries[1].value, text);
    EXPECT_LT(img->entries[1].value, text + img->textSize);
}

TEST(CfgParse, EmptyFileGivesALoadedEmptyImage) {
    TempDir dir;
    Image img(dir, "");
    ASSERT_NE(img.get(), nullptr);
    EXPECT_EQ(img->entryCount, 0u);
    EXPECT_TRUE(img->flags & CFG_LOADED);
    _cfg_freeimage(img.get());
    EXPECT_EQ(_cfg_refresh(img.get()), 1);
    EXPECT_TRUE(img->flags & CFG_LOADED);
}

TEST(CfgParse, LargeFileParsesEveryLine) {
    std::string text;
    for (int s = 0; s < 300; ++s) {
        text += "[section" + std::to_string(s) + "]\r\n";
        for (int k = 0; k < 20; ++k) {
            text += "key" + std::to_string(k) + " = value with some text ;comment\r\n";
        }
    }
    TempDir dir;
    Image img(dir, text);
    ASSERT_EQ(img->entryCount, 300u * 21u);
    const ZEM_CfgEntry &last = img->entries[img->entryCount - 1];
    EXPECT_STREQ(last.id, "key19");
    EXPECT_STREQ(last.value, "value with some text");
    EXPECT_STREQ(last.comment, "comment");
}

TEST(CfgStrings, RtrimReturnsTheLastCharacterKept) {
    char text[] = "abc \t\r\n\v\f";
    EXPECT_EQ(rtrim(text), text + 2);
    EXPECT_STREQ(text, "abc");
    char blank[] = " \t ";
    EXPECT_EQ(rtrim(blank), nullptr);
    EXPECT_STREQ(blank, "");
    char empty[] = "";
    EXPECT_EQ(rtrim(empty), nullptr);
    EXPECT_EQ(rtrim(nullptr), nullptr);
}

TEST(CfgStrings, StricmpIgnoresCaseAndOrdersByUpperCase) {
    EXPECT_EQ(stricmp("Database", "DATABASE"), 0);
    EXPECT_EQ(stricmp("", ""), 0);
    EXPECT_EQ(stricmp("ab", "abc"), -1);
    EXPECT_EQ(stricmp("abc", "ab"), 'C');
    EXPECT_EQ(stricmp("a", "b"), 'A' - 'B');
    EXPECT_EQ(stricmp("_", "a"), '_' - 'A');
}

TEST(CfgPool, GrowsByHalfPlusTheRequestAndShrinksOnWrap) {
    TempDir dir;
    Image img(dir, "");
    ASSERT_NE(_cfg_poolalloc(img.get(), 1), nullptr);
    EXPECT_EQ(img->entryCapacity, 103u);
    ASSERT_NE(_cfg_poolalloc(img.get(), 102), nullptr);
    EXPECT_EQ(img->entryCapacity, 103u);
    ZEM_CfgEntry *e = _cfg_poolalloc(img.get(), 2);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e, img->entries + 103);
    EXPECT_EQ(img->entryCapacity, 103u + 2u + 51u);
    EXPECT_EQ(img->entryCount, 105u);
    _cfg_poolalloc(img.get(), static_cast<uint32_t>(-5));
    EXPECT_EQ(img->entryCount, 100u);
    img->entryCount = 0;  // the entries were never filled
}

}  // namespace
