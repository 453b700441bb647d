#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "cfg/cfg.h"
#include "cfg/cfg_internal.h"
#include "cfg/md5.h"
#include "tests/cfg/TestFiles.h"

namespace {

using namespace std::string_literals;

std::string show(const char *s) {
    return s ? "<" + std::string(s) + ">" : "~";
}

// One line per entry: section, id, value and comment, null shown as ~.
std::string dumpEntries(const ZEM_CfgHandle *h) {
    std::string out;
    for (const ZEM_CfgEntry *e = h->entries; e != h->entries + h->entryCount; ++e) {
        out += show(e->section) + " " + show(e->id) + " " + show(e->value) + " " +
               show(e->comment) + "\n";
    }
    return out;
}

// What a reader sees after a step: kind, section, id, value and the end flag.
std::string state(const ZEM_CfgHandle *h) {
    return std::to_string(h->flags & CFG_KIND_MASK) + " " + show(h->section) + " " + show(h->id) +
           " " + show(h->value) + (h->flags & CFG_AT_END ? " end" : "");
}

// A handle opened on a file of its own holding the given text.
struct Image {
    TempDir dir;
    std::string path = dir.file("test.ini");
    ZEM_CfgHandle *h = nullptr;

    explicit Image(const std::string &text) {
        writeFile(path, text);
        EXPECT_EQ(ZEM_Cfg_init(&h, path.c_str()), 0);
    }
    ~Image() { ZEM_Cfg_done(h); }
    operator ZEM_CfgHandle *() const { return h; }
    ZEM_CfgHandle *operator->() const { return h; }
    std::string committed() const {
        EXPECT_EQ(ZEM_Cfg_commit(h), 0);
        EXPECT_EQ(h->modified, 0);
        EXPECT_EQ(ZEM_Cfg_refresh(h), 0);  // the committed bytes are known as the image's
        return readFile(path);
    }
};

// Fed in random chunks of up to 149 bytes.
std::string md5(std::string_view data, std::mt19937 &rng) {
    ZEM_MD5Context ctx;
    ZEM_MD5Init(&ctx);
    for (size_t done = 0, chunk; done < data.size(); done += chunk) {
        chunk = std::min<size_t>(data.size() - done, rng() % 150);
        ZEM_MD5Update(&ctx, data.data() + done, static_cast<uint32_t>(chunk));
    }
    unsigned char d[16];
    ZEM_MD5Final(d, &ctx);
    return std::string(d, d + 16);
}

// Lengths 0-129 cross the 55/56/64-byte padding edges; offsets 0-7 make the input unaligned.
TEST(Md5, MatchesOpenSslOnRandomUnalignedInputInRandomChunks) {
    std::mt19937 rng(20240611);
    for (int round = 0; round < 200; ++round) {
        const size_t len = round < 130 ? static_cast<size_t>(round) : rng() % 20000;
        std::string buf(len + 8, '\0');
        std::generate(buf.begin(), buf.end(), [&rng] { return static_cast<char>(rng()); });
        const std::string_view data(buf.data() + round % 8, len);
        unsigned char ref[EVP_MAX_MD_SIZE];
        ASSERT_EQ(EVP_Digest(data.data(), len, ref, nullptr, EVP_md5(), nullptr), 1);
        ASSERT_EQ(md5(data, rng), std::string(ref, ref + 16)) << "length " << len;
    }
}

TEST(CfgParse, KeySectionValueCommentLinesLineEndsAndNulBytes) {
    const char *const ab = "~ <a> <1> ~\n~ <b> <2> ~\n";
    const std::pair<std::string, const char *> cases[] = {
        {"key=value\nkey = value\n", "~ <key> <value> ~\n~ <key> <value> ~\n"},
        {"  key = value\n", "~ ~ <key = value> ~\n"},
        {"key =\n= v\n", "~ <key> <> ~\n~ <> <v> ~\n"},
        {"key = a;b\nkey = a ;b\n", "~ <key> <a;b> ~\n~ <key> <a> <b>\n"},
        {"key=;c\nkey = 'a ;b'\nk =;c\n", "~ <key> <> <c>\n~ <key> <'a ;b'> ~\n~ <k> <> <c>\n"},
        {"k = \"open ;x\n", "~ <k> <\"open ;x> ~\n"},
        {"k = 'x' \";y\" ; z \n", "~ <k> <'x' \";y\"> < z>\n"},
        {"k = a\t;tab\nk = v \v ;c\n", "~ <k> <a> <tab>\n~ <k> <v> <c>\n"},
        {"key\v = v\n", "~ <key> <v> ~\n"},
        {"just text\n", ""},
        {"; top\n;;double\n;\n", "~ ~ ~ < top>\n~ ~ ~ <;double>\n~ ~ ~ <>\n"},
        {"\t; indented\n  a ;b = c\n\f= v\n", "~ ~ ~ < indented>\n~ ~ <a ;b = c> ~\n~ ~ <= v> ~\n"},
        {"[ name ] ;note\n[name] junk\n", "<name> ~ ~ <note>\n<name> ~ ~ ~\n"},
        {"[name\n[ ]\n[]\n", ""},
        {"[a];c\n  [b]\n[x] ; spaced  \n", "<a> ~ ~ <c>\n<b> ~ ~ ~\n<x> ~ ~ < spaced>\n"},
        {"a=1\rb=2\x1a", ab},
        {"\r\n\r\n\n\032\032a=1\r\n\r\n\032b=2", ab},
        {"\n\r\n   \n\t\f\na=1 \t\nb=2\f\n", ab},
        {"k = v  \nlast = w \t", "~ <k> <v> ~\n~ <last> <w \t> ~\n"},
        {"k = v\n   ", "~ <k> <v> ~\n~ ~ <> ~\n"},
        {"k = v\n   \n", "~ <k> <v> ~\n"},
        {"a=1\nb=2\0c=3\nd=4\n"s, ab},
        {"a=1\n\0\nc=3\n"s, "~ <a> <1> ~\n"},
        {"\0a=1\n"s, ""},
    };
    for (const auto &[text, entries] : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(dumpEntries(Image(text)), entries);
    }
}

// A blocking open of the FIFO would hang the test rather than fail it.
TEST(CfgOpen, OnlyRegularFilesOpenAndMissingOnesOnlyIfCreatedWithoutLeakingADescriptor) {
    TempDir dir;
    const std::string fifo = dir.file("fifo.ini"), huge = dir.file("4g.ini");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    writeFile(huge, "");
    ASSERT_EQ(truncate(huge.c_str(), off_t{1} << 32), 0);  // sparse
    const long before = openDescriptors();
    ZEM_CfgHandle *h = nullptr;
    for (const std::string &path : {fifo, huge, dir.path, "/dev/zero"s, "/dev/null"s}) {
        EXPECT_EQ(ZEM_Cfg_init(&h, path.c_str()), -1) << path;
        EXPECT_EQ(ZEM_Cfg_init2(&h, path.c_str(), 1), -1) << path;
        EXPECT_EQ(h, nullptr);
    }
    const std::string fresh = dir.file("new.ini");
    EXPECT_EQ(ZEM_Cfg_init(&h, fresh.c_str()), -1);
    ASSERT_EQ(ZEM_Cfg_init2(&h, fresh.c_str(), 1), 0);
    ZEM_Cfg_done(h);
    EXPECT_EQ(std::filesystem::file_size(fresh), 0u);
    EXPECT_EQ(openDescriptors(), before);
}

const char *const kSample =
    "; head\ntop = 0\n"
    "[Database]\nPort = 3306\n; note\n  continued\nName = main\nport = 9\n"
    "[empty]\n[other]\nx = 1\n[DATABASE]\nlate = 1\n";

// In order on one handle, so each find also has to leave where the last one stopped.
TEST(CfgLookup, FindSearchesOnlyTheFirstSectionOfANameAndStopsAfterTheMatch) {
    struct {
        const char *section, *id;
        int result;
        const char *after, *next;
    } const cases[] = {
        {"DATABASE", nullptr, 0, "1 <Database> ~ ~", "2 <Database> <Port> <3306>"},
        {"database", "PORT", 0, "2 <Database> <Port> <3306>", "3 <Database> ~ <continued>"},
        {"database", "NAME", 0, "2 <Database> <Name> <main>", "2 <Database> <port> <9>"},
        {"empty", nullptr, 0, "1 <empty> ~ ~", "1 <other> ~ ~"},
        {"nowhere", nullptr, -1, "0 <DATABASE> ~ ~ end", "0 <DATABASE> ~ ~ end"},
        {"Database", "late", -1, "1 <empty> ~ ~", "1 <other> ~ ~"},
        {"database", "continued", -1, "1 <empty> ~ ~", "1 <other> ~ ~"},
        {"Database", "top", -1, "1 <empty> ~ ~", "1 <other> ~ ~"},
        {"other", "missing", -1, "1 <DATABASE> ~ ~", "2 <DATABASE> <late> <1>"},
        {"other", "X", 0, "2 <other> <x> <1>", "1 <DATABASE> ~ ~"},
    };
    Image img(kSample);
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.section) + " " + show(c.id));
        EXPECT_EQ(ZEM_Cfg_find(img, c.section, c.id), c.result);
        EXPECT_EQ(state(img), c.after);
        ZEM_Cfg_nextentry(img);
        EXPECT_EQ(state(img), c.next);
    }
}

TEST(CfgRefresh, KeepsImageAndWalkUnlessTheBytesChangedAndDiscardsEdits) {
    Image img(kSample);
    ASSERT_EQ(ZEM_Cfg_find(img, "Database", "Port"), 0);
    const int64_t time = img->textTime;
    EXPECT_EQ(ZEM_Cfg_refresh(img), 0);
    const struct timespec touched[2] = {{time - 100, 0}, {time - 100, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, img.path.c_str(), touched, 0), 0);
    // Read and digested; the old time stays so the next refresh reads again.
    EXPECT_EQ(ZEM_Cfg_refresh(img), 0);
    EXPECT_EQ(ZEM_Cfg_refresh(img), 0);
    EXPECT_EQ(img->textTime, time);
    ASSERT_EQ(ZEM_Cfg_nextentry(img), 0);
    EXPECT_EQ(state(img), "3 <Database> ~ <continued>");
    writeFile(img.path, "[Database]\nPort = 1\n");
    EXPECT_EQ(ZEM_Cfg_refresh(img), 1);
    EXPECT_EQ(state(img), "0 ~ ~ ~");
    ASSERT_EQ(ZEM_Cfg_write(img, "Database", "Port", "2"), 0);
    EXPECT_EQ(ZEM_Cfg_refresh(img), 1);
    EXPECT_EQ(img->modified, 0);
    _cfg_freeimage(img);
    EXPECT_EQ(ZEM_Cfg_find(img, "Database", "Port"), -1);
    EXPECT_EQ(ZEM_Cfg_refresh(img), 1);
    ASSERT_EQ(remove(img.path.c_str()), 0);
    EXPECT_EQ(ZEM_Cfg_refresh(img), -1);
    EXPECT_EQ(dumpEntries(img), "<Database> ~ ~ ~\n~ <Port> <1> ~\n");
}

// The file committed after the writes (section, id, value), each of which must succeed.
std::string edited(const char *text, const std::vector<std::array<const char *, 3>> &writes) {
    Image img(text);
    for (const auto &[section, id, value] : writes) {
        EXPECT_EQ(ZEM_Cfg_write(img, section, id, value), 0);
    }
    return img.committed();
}

const char *const kBase =
    "; top comment\n[A]\nport = 1\n  cont line\nname=x ;c\n\n;; about B\n[B]\nk = v\n";

TEST(CfgWrite, SetKeepsNameCommentAndOwnValueAndAddsToTheFirstSectionOfANameBeforeItsLeadOut) {
    const long before = openDescriptors();
    EXPECT_EQ(
        edited(kBase, {{"a", "PORT", "2"}}),
        "; top comment\n[A]\nport = 2\n  cont line\nname = x\t;c\n\n;; about B\n[B]\nk = v\n");
    EXPECT_EQ(edited(kBase, {{"A", "new", "1"}}),
              "; top comment\n[A]\nport = 1\n  cont line\nname = x\t;c\n;; about B\nnew  = 1\n"
              "\n[B]\nk = v\n");
    EXPECT_EQ(edited(kBase, {{"B", "longer", "w"}, {"C", "x", "1"}}),
              "; top comment\n[A]\nport = 1\n  cont line\nname = x\t;c\n\n;; about B\n[B]\n"
              "k      = v\nlonger = w\n\n[C]\nx = 1\n");
    EXPECT_EQ(edited("[A]\na=1\n[B]\n[A]\nk=old\n", {{"A", "k", "new"}}),
              "[A]\na = 1\nk = new\n\n[B]\n\n[A]\nk = old\n");
    Image img("[s]\nk = v\n");
    ASSERT_EQ(ZEM_Cfg_find(img, "s", "k"), 0);
    ASSERT_EQ(ZEM_Cfg_write(img, "s", "k", img->value), 0);  // copied before it is freed
    EXPECT_EQ(img.committed(), "[s]\nk = v\n");
    EXPECT_EQ(openDescriptors(), before);  // committing leaves none open
}

// Nothing to delete leaves the handle unmodified, so the file keeps its own spacing.
TEST(CfgDelete, KeyOrSectionGoesWithItsAttachedCommentsOnly) {
    EXPECT_EQ(edited("[A]\n; about\nport = 1\n  cont line\nname = x\n", {{"A", "Port", nullptr}}),
              "[A]\n  cont line\nname = x\n");
    EXPECT_EQ(edited("[Z]\nz = 0\n;old = 1\n;; text\n; text\n;\n[A]\na = 1\n  more\n;; into B\n"
                     "[B]\nb = 2\n",
                     {{"a", nullptr, nullptr}}),
              "[Z]\nz = 0\n;old = 1\n\n;; into B\n[B]\nb = 2\n");
    EXPECT_EQ(edited("; first\n[A]\na = 1\n[B]\nb = 2\n; trailing\n",
                     {{"A", nullptr, nullptr}, {"B", nullptr, nullptr}}),
              "; trailing\n");
    EXPECT_EQ(edited(kBase, {{"no", nullptr, nullptr},
                             {"A", "no", nullptr},
                             {"no", "k", nullptr},
                             {"no", nullptr, "v"}}),
              kBase);
}

TEST(CfgMerge, ReplacesRunsInsertsNewKeysAppendsNewSectionsAndAlwaysMarksModified) {
    const char *const cases[][3] = {
        {"[db]\nport = 1\n  old cont\nname = a\n[other]\no = 1\n",
         "pre = ignored\n[DB]\n; ignored lead\nPort = 2\n  new cont\n  more\nextra = e\n"
         "[new]\n; kept\nn = 1\n",
         "[db]\nPort  = 2\n  new cont\n  more\nname  = a\nextra = e\n\n[other]\no = 1\n"
         "\n[new]\n; kept\nn = 1\n"},
        {"", "[a]\nx = 1\n[b]\ny = 2\n", "[a]\nx = 1\n\n[b]\ny = 2\n"},
        {"[a]\nx=1\n", "; nothing\n", "[a]\nx = 1\n"},
    };
    for (const auto &[target, source, file] : cases) {
        SCOPED_TRACE(source);
        Image into(target), from(source);
        ASSERT_EQ(cfg_merge(into, from), 0);
        EXPECT_EQ(from->modified, 0);
        EXPECT_EQ(into.committed(), file);
    }
}

}  // namespace
