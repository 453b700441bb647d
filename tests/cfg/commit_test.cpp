#include "CfgTestSupport.h"

using namespace cfgtest;

namespace {

// Commits judged from outside the committing process: what a killed commit leaves behind (and
// so what a reader can see), what a failed one keeps.

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
    std::string text[2] = {"[big]\n", "[big]\n"};  // 4 MiB in the library's own layout
    for (int i = 1000000; text[0].size() < 4 << 20; ++i) {
        text[0] += "k" + std::to_string(i) + " = " + std::string(72, 'a') + "\n";
        text[1] += "k" + std::to_string(i) + " = " + std::string(72, 'b') + "\n";
    }
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

// Through a chain of links the file is replaced, its mode kept. Then in a directory the user may
// not write, holding a file they may, it is rewritten where it is, as no new file can be made.
TEST(CfgCommit, ALinkStaysALinkToTheReplacedFileWhichIsRewrittenInPlaceWhereNoFileCanBeMade) {
    TempDir dir;
    const std::string real = dir.file("real/settings.ini"), realDir = dir.file("real");
    ASSERT_EQ(mkdir(realDir.c_str(), 0700), 0);
    writeFile(real, "[s]\nk = an old value longer than the new ones\n");
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
    ASSERT_EQ(stat(real.c_str(), &now), 0);
    EXPECT_EQ(now.st_mode & 07777, 0640u);
    EXPECT_NE(now.st_ino, old.st_ino);  // replaced, not rewritten
    EXPECT_EQ(entries(realDir), 1);
    const uid_t nobody = 65534;
    if (geteuid() == 0) {  // root writes anywhere: commit as someone else
        ASSERT_EQ(chmod(dir.path.c_str(), 0711), 0);
        ASSERT_EQ(chown(realDir.c_str(), nobody, nobody), 0);
        ASSERT_EQ(chown(real.c_str(), nobody, nobody), 0);
    }
    ASSERT_EQ(chmod(realDir.c_str(), 0555), 0);
    EXPECT_EQ(inChild([&] {
                  if (geteuid() == 0 && (setgid(nobody) != 0 || setuid(nobody) != 0)) {
                      return 2;
                  }
                  return edit.set("x") == 0 && ZEM_Cfg_refresh(edit) == 0 ? 0 : 3;
              }),
              0);
    chmod(realDir.c_str(), 0700);
    EXPECT_EQ(readFile(real), "[s]\nk = x\n");
    ASSERT_EQ(stat(real.c_str(), &old), 0);
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
