#include "CfgTestSupport.h"

using namespace cfgtest;

namespace {

// Lengths 0-129 cross the 55/56/64-byte padding edges; offsets 0-7 make the input unaligned;
// it is fed in random chunks of up to 149 bytes.
TEST(Md5, MatchesOpenSslOnRandomUnalignedInputInRandomChunks) {
    std::mt19937 rng(20240611);
    for (int round = 0; round < 200; ++round) {
        const size_t len = round < 130 ? static_cast<size_t>(round) : rng() % 20000;
        std::string buf(len + 8, '\0');
        std::generate(buf.begin(), buf.end(), [&rng] { return static_cast<char>(rng()); });
        const char *const data = buf.data() + round % 8;
        ZEM_MD5Context ctx;
        ZEM_MD5Init(&ctx);
        for (size_t done = 0, chunk; done < len; done += chunk) {
            chunk = std::min<size_t>(len - done, rng() % 150);
            ZEM_MD5Update(&ctx, data + done, static_cast<uint32_t>(chunk));
        }
        unsigned char ref[EVP_MAX_MD_SIZE], digest[16];
        ZEM_MD5Final(digest, &ctx);
        ASSERT_EQ(EVP_Digest(data, len, ref, nullptr, EVP_md5(), nullptr), 1);
        ASSERT_EQ(std::string(digest, digest + 16), std::string(ref, ref + 16)) << "length " << len;
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
    const long before = entries("/proc/self/fd");
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
    EXPECT_EQ(entries("/proc/self/fd"), before);
}

// In order on one handle, so each find also has to leave where the last one stopped. A refresh
// then keeps image and walk unless the bytes changed, and discards edits.
TEST(CfgLookup, FindSearchesOnlyTheFirstSectionOfANameAndRefreshOnlyChangedBytes) {
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
    Image img(
        "; head\ntop = 0\n"
        "[Database]\nPort = 3306\n; note\n  continued\nName = main\nport = 9\n"
        "[empty]\n[other]\nx = 1\n[DATABASE]\nlate = 1\n");
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.section) + " " + show(c.id));
        EXPECT_EQ(ZEM_Cfg_find(img, c.section, c.id), c.result);
        EXPECT_EQ(state(img), c.after);
        ZEM_Cfg_nextentry(img);
        EXPECT_EQ(state(img), c.next);
    }
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

const char *const kBase =
    "; top comment\n[A]\nport = 1\n  cont line\nname=x ;c\n\n;; about B\n[B]\nk = v\n";

// Each row: the text, the writes (section, id, value; each must succeed), the committed file.
// A set keeps the name, comment and own value and adds to the first section of a name before
// its lead-out; a delete takes the attached comments only. Nothing to delete leaves the handle
// unmodified, so the file keeps its own spacing. A merge replaces runs, inserts new keys,
// appends new sections and always marks the handle modified.
TEST(CfgWrite, SetsDeletesAndMergesKeysAndSectionsAsCommitted) {
    const struct {
        const char *text;
        std::vector<std::array<const char *, 3>> writes;
        const char *file;
    } cases[] = {
        {kBase,
         {{"a", "PORT", "2"}},
         "; top comment\n[A]\nport = 2\n  cont line\nname = x\t;c\n\n;; about B\n[B]\nk = v\n"},
        {kBase,
         {{"A", "new", "1"}},
         "; top comment\n[A]\nport = 1\n  cont line\nname = x\t;c\n;; about B\nnew  = 1\n"
         "\n[B]\nk = v\n"},
        {kBase,
         {{"B", "longer", "w"}, {"C", "x", "1"}},
         "; top comment\n[A]\nport = 1\n  cont line\nname = x\t;c\n\n;; about B\n[B]\n"
         "k      = v\nlonger = w\n\n[C]\nx = 1\n"},
        {"[A]\na=1\n[B]\n[A]\nk=old\n",
         {{"A", "k", "new"}},
         "[A]\na = 1\nk = new\n\n[B]\n\n[A]\nk = old\n"},
        {"[A]\n; about\nport = 1\n  cont line\nname = x\n",
         {{"A", "Port", nullptr}},
         "[A]\n  cont line\nname = x\n"},
        {"[Z]\nz = 0\n;old = 1\n;; text\n; text\n;\n[A]\na = 1\n  more\n;; into B\n[B]\nb = 2\n",
         {{"a", nullptr, nullptr}},
         "[Z]\nz = 0\n;old = 1\n\n;; into B\n[B]\nb = 2\n"},
        {"; first\n[A]\na = 1\n[B]\nb = 2\n; trailing\n",
         {{"A", nullptr, nullptr}, {"B", nullptr, nullptr}},
         "; trailing\n"},
        {kBase,
         {{"no", nullptr, nullptr},
          {"A", "no", nullptr},
          {"no", "k", nullptr},
          {"no", nullptr, "v"}},
         kBase},
    };
    const long before = entries("/proc/self/fd");
    for (const auto &[text, writes, file] : cases) {
        SCOPED_TRACE(text);
        Image img(text);
        for (const auto &[section, id, value] : writes) {
            EXPECT_EQ(ZEM_Cfg_write(img, section, id, value), 0);
        }
        EXPECT_EQ(img.committed(), file);
    }
    Image img("[s]\nk = v\n");
    ASSERT_EQ(ZEM_Cfg_find(img, "s", "k"), 0);
    ASSERT_EQ(ZEM_Cfg_write(img, "s", "k", img->value), 0);  // copied before it is freed
    EXPECT_EQ(img.committed(), "[s]\nk = v\n");
    EXPECT_EQ(entries("/proc/self/fd"), before);  // committing leaves none open
    const char *const merges[][3] = {
        {"[db]\nport = 1\n  old cont\nname = a\n[other]\no = 1\n",
         "pre = ignored\n[DB]\n; ignored lead\nPort = 2\n  new cont\n  more\nextra = e\n"
         "[new]\n; kept\nn = 1\n",
         "[db]\nPort  = 2\n  new cont\n  more\nname  = a\nextra = e\n\n[other]\no = 1\n"
         "\n[new]\n; kept\nn = 1\n"},
        {"", "[a]\nx = 1\n[b]\ny = 2\n", "[a]\nx = 1\n\n[b]\ny = 2\n"},
        {"[a]\nx=1\n", "; nothing\n", "[a]\nx = 1\n"},
    };
    for (const auto &[target, source, file] : merges) {
        SCOPED_TRACE(source);
        Image into(target), from(source);
        ASSERT_EQ(cfg_merge(into, from), 0);
        EXPECT_EQ(from->modified, 0);
        EXPECT_EQ(into.committed(), file);
    }
}

}  // namespace
