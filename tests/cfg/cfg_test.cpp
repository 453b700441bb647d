#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "cfg/cfg.h"
#include "cfg/cfg_internal.h"
#include "cfg/md5.h"

namespace {

using namespace std::string_literals;

struct TempDir {
    std::string path = (std::filesystem::temp_directory_path() / "cfgtest.XXXXXX").string();
    std::error_code ignored;
    TempDir() { EXPECT_NE(mkdtemp(path.data()), nullptr); }
    ~TempDir() { std::filesystem::remove_all(path, ignored); }
    std::string file(const std::string &name) const { return path + "/" + name; }
};

void writeFile(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::string readFile(const std::string &path) {
    return (std::ostringstream() << std::ifstream(path, std::ios::binary).rdbuf()).str();
}

long entries(const std::string &dir) {
    return std::distance(std::filesystem::directory_iterator(dir), {});
}

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

// A handle on a file; set() writes one key of section "s" and commits.
struct Edit {
    ZEM_CfgHandle *h = nullptr;
    Edit() = default;
    explicit Edit(const std::string &path) { ZEM_Cfg_init(&h, path.c_str()); }
    ~Edit() { ZEM_Cfg_done(h); }
    operator ZEM_CfgHandle *() const { return h; }
    ZEM_CfgHandle *operator->() const { return h; }
    int set(const std::string &value, const std::string &id = "k") const {
        return h && ZEM_Cfg_write(h, "s", id.c_str(), value.c_str()) == 0 ? ZEM_Cfg_commit(h) : -2;
    }
};

// A handle opened on a file of its own holding the given text.
struct Image : Edit {
    TempDir dir;
    std::string path = dir.file("test.ini");

    explicit Image(const std::string &text) {
        writeFile(path, text);
        EXPECT_EQ(ZEM_Cfg_init(&h, path.c_str()), 0);
    }
    std::string committed() const {
        EXPECT_EQ(ZEM_Cfg_commit(h), 0);
        EXPECT_EQ(h->modified, 0);
        EXPECT_EQ(ZEM_Cfg_refresh(h), 0);  // the committed bytes are known as the image's
        return readFile(path);
    }
};

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

// Commits judged from outside the committing process: what a killed commit leaves behind (and
// so what a reader can see), what a failed one keeps.

// A text in the library's own layout of at least `bytes` bytes; versions
// with different tags differ on every key line.
std::string layoutText(size_t bytes, char tag) {
    std::string text = "[big]\n";
    for (int i = 1000000; text.size() < bytes; ++i) {
        text += "k" + std::to_string(i) + " = " + std::string(72, tag) + "\n";
    }
    return text;
}

// The exit status of `body` run in a forked child.
int inChild(const std::function<int()> &body) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(body());
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Each round lets a few more commits finish and kills the child in the next
// one, wherever it has got to.
TEST(CfgCommit, ACommitKilledAtAnyPointLeavesTheOldFileOrTheNewOne) {
    const std::string text[2] = {layoutText(4 << 20, 'a'), layoutText(4 << 20, 'b')};
    const Image one(text[1]);  // a handle per text on the same file
    writeFile(one.path, text[0]);
    const Edit zero(one.path);
    const Edit *h[2] = {&zero, &one};
    for (int finished = 1; finished <= 6; ++finished) {
        int fds[2];
        ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {  // the texts committed in turn, a byte to the pipe after each
            for (int i = 1;; i ^= 1) {  // marked modified by a write of the value it holds
                if (ZEM_Cfg_write(*h[i], "big", "k1000000", text[i].substr(17, 72).c_str()) ||
                    ZEM_Cfg_commit(*h[i]) || write(fds[1], "+", 1) != 1) {
                    _exit(3);
                }
            }
        }
        close(fds[1]);
        char byte;
        for (int i = 0; i < finished; ++i) {
            ASSERT_EQ(read(fds[0], &byte, 1), 1) << "the committing child failed";
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(fds[0]);
        const std::string left = readFile(one.path);
        EXPECT_TRUE(left == text[0] || left == text[1])
            << "after " << finished << " commits the file holds " << left.size() << " bytes";
    }
}

TEST(CfgCommit, AFailedCommitKeepsTheFileTheEditsAndNoTemporaryFile) {
    const std::string original = "; mine\n[s]\nk   =  old\n";
    const Image img(original), gone(original);
    // A file size limit of 64 KiB, its signal ignored.
    EXPECT_EQ(inChild([&] {
                  const rlimit limit{64 << 10, 64 << 10};
                  signal(SIGXFSZ, SIG_IGN);
                  return setrlimit(RLIMIT_FSIZE, &limit) == 0 &&
                                 img.set(std::string(100000, 'v')) == -1 && errno == EFBIG &&
                                 img->modified
                             ? 0
                             : 3;
              }),
              0);
    EXPECT_EQ(readFile(img.path), original);
    EXPECT_EQ(entries(img.dir.path), 1);
    std::filesystem::remove_all(gone.dir.path);  // between opening and committing
    const long before = entries("/proc/self/fd");
    errno = 0;
    EXPECT_EQ(gone.set("new"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_NE(gone->modified, 0);
    EXPECT_EQ(entries("/proc/self/fd"), before);
}

TEST(CfgCommit, ALinkStaysALinkToTheReplacedFileWhoseModeIsKept) {
    TempDir dir;
    const std::string real = dir.file("real/settings.ini");
    ASSERT_EQ(mkdir(dir.file("real").c_str(), 0700), 0);
    writeFile(real, "[s]\nk = old\n");
    ASSERT_EQ(chmod(real.c_str(), 0640), 0);
    ASSERT_EQ(symlink("real/settings.ini", dir.file("link.ini").c_str()), 0);
    ASSERT_EQ(symlink(dir.file("link.ini").c_str(), dir.file("chain.ini").c_str()), 0);
    struct stat old = {}, now = {};
    ASSERT_EQ(stat(real.c_str(), &old), 0);
    const Edit edit(dir.file("chain.ini"));
    EXPECT_EQ(edit.set("new"), 0);
    EXPECT_EQ(ZEM_Cfg_refresh(edit), 0);
    EXPECT_EQ(readFile(real), "[s]\nk = new\n");
    EXPECT_EQ(std::filesystem::read_symlink(dir.file("link.ini")), "real/settings.ini");
    EXPECT_TRUE(std::filesystem::is_symlink(dir.file("chain.ini")));
    ASSERT_EQ(stat(real.c_str(), &now), 0);
    EXPECT_EQ(now.st_mode & 07777, 0640u);
    EXPECT_NE(now.st_ino, old.st_ino);  // replaced, not rewritten
    EXPECT_EQ(entries(dir.file("real")), 1);
}

// A directory the user may not write, holding a file they may: the file is
// rewritten where it is, as no new file can be made beside it.
TEST(CfgCommit, AFileInADirectoryWithoutWriteAccessIsRewrittenInPlace) {
    const Image img("[s]\nk = an old value longer than the new one\n");
    const std::string &path = img.path, &dir = img.dir.path;
    struct stat old = {}, now = {};
    ASSERT_EQ(stat(path.c_str(), &old), 0);
    const uid_t nobody = 65534;
    if (geteuid() == 0) {  // root writes anywhere: commit as someone else
        ASSERT_EQ(chown(dir.c_str(), nobody, nobody), 0);
        ASSERT_EQ(chown(path.c_str(), nobody, nobody), 0);
    }
    ASSERT_EQ(chmod(dir.c_str(), 0555), 0);
    EXPECT_EQ(inChild([&] {
                  if (geteuid() == 0 && (setgid(nobody) != 0 || setuid(nobody) != 0)) {
                      return 2;
                  }
                  return img.set("new") == 0 && ZEM_Cfg_refresh(img) == 0 ? 0 : 3;
              }),
              0);
    chmod(dir.c_str(), 0700);
    EXPECT_EQ(readFile(path), "[s]\nk = new\n");
    ASSERT_EQ(stat(path.c_str(), &now), 0);
    EXPECT_EQ(now.st_ino, old.st_ino);
}

TEST(CfgCommit, LinesAndValuesOfAnyLengthAreWrittenWholeAndReadBack) {
    for (const size_t length : {size_t{5000}, size_t{100000}}) {
        SCOPED_TRACE(length);
        const std::string comment(length, 'c'), value(length, 'v');
        const Image img(";" + comment + "\n[s]\n");
        ASSERT_EQ(img.set(value), 0);
        ASSERT_EQ(img.set("x", std::string(length, 'i')), 0);
        EXPECT_EQ(ZEM_Cfg_refresh(img), 0);  // the digest covers exactly what was written
        EXPECT_EQ(readFile(img.path), ";" + comment + "\n[s]\nk" + std::string(length - 1, ' ') +
                                          " = " + value + "\n" + std::string(length, 'i') +
                                          " = x\n");
        const Edit reread(img.path);
        ASSERT_EQ(ZEM_Cfg_find(reread, "s", "k"), 0);
        EXPECT_EQ(reread->value, value);
    }
}

}  // namespace
