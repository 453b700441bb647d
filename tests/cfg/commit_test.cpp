// Commits judged from outside the committing process: what a killed commit
// leaves behind (and so what a reader can see), what a failed one keeps.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "cfg/cfg.h"
#include "tests/cfg/TestFiles.h"

namespace {

// A text in the library's own layout of at least `bytes` bytes; versions
// with different tags differ on every key line.
std::string layoutText(size_t bytes, char tag) {
    std::string text = "[big]\n";
    char key[16];
    for (int i = 0; text.size() < bytes; ++i) {
        std::snprintf(key, sizeof key, "k%07d", i);
        text += key + std::string(" = ") + std::string(72, tag) + "\n";
    }
    return text;
}

std::vector<std::string> names(const std::string &dir) {
    std::vector<std::string> found;
    for (const auto &entry : std::filesystem::directory_iterator(dir)) {
        found.push_back(entry.path().filename().string());
    }
    return found;
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

// A handle on a file; set() writes one key of section "s" and commits.
struct Edit {
    ZEM_CfgHandle *h = nullptr;
    explicit Edit(const std::string &path) { ZEM_Cfg_init(&h, path.c_str()); }
    ~Edit() { ZEM_Cfg_done(h); }
    int set(const std::string &value, const std::string &id = "k") const {
        return h && ZEM_Cfg_write(h, "s", id.c_str(), value.c_str()) == 0 ? ZEM_Cfg_commit(h) : -2;
    }
};

// Each round lets a few more commits finish and kills the child in the next
// one, wherever it has got to.
TEST(CfgCommit, ACommitKilledAtAnyPointLeavesTheOldFileOrTheNewOne) {
    TempDir dir;
    const std::string path = dir.file("big.ini");
    const std::string text[2] = {layoutText(4 << 20, 'a'), layoutText(4 << 20, 'b')};
    for (int finished = 1; finished <= 6; ++finished) {
        int fds[2];
        ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {  // a handle per text, committed in turn, a byte to the pipe after each
            ZEM_CfgHandle *h[2] = {};
            for (const int i : {1, 0}) {
                writeFile(path, text[i]);
                ZEM_Cfg_init(&h[i], path.c_str());
            }
            for (int i = 1;; i ^= 1) {  // marked modified by a write of the value it holds
                if (!h[i] ||
                    ZEM_Cfg_write(h[i], "big", "k0000000", text[i].substr(17, 72).c_str()) ||
                    ZEM_Cfg_commit(h[i]) || write(fds[1], "+", 1) != 1) {
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
        const std::string left = readFile(path);
        EXPECT_TRUE(left == text[0] || left == text[1])
            << "after " << finished << " commits the file holds " << left.size() << " bytes";
    }
}

TEST(CfgCommit, AFailedCommitKeepsTheFileTheEditsAndNoTemporaryFile) {
    TempDir dir;
    const std::string path = dir.file("keep.ini"), original = "; mine\n[s]\nk   =  old\n";
    writeFile(path, original);
    // A file size limit of 64 KiB, its signal ignored.
    EXPECT_EQ(inChild([&] {
                  const rlimit limit{64 << 10, 64 << 10};
                  signal(SIGXFSZ, SIG_IGN);
                  const Edit edit(path);
                  return setrlimit(RLIMIT_FSIZE, &limit) == 0 &&
                                 edit.set(std::string(100000, 'v')) == -1 && errno == EFBIG &&
                                 edit.h->modified
                             ? 0
                             : 3;
              }),
              0);
    EXPECT_EQ(readFile(path), original);
    EXPECT_EQ(names(dir.path), std::vector<std::string>{"keep.ini"});

    // The directory gone between opening and committing.
    const std::string sub = dir.file("sub"), gone = sub + "/gone.ini";
    ASSERT_EQ(mkdir(sub.c_str(), 0700), 0);
    writeFile(gone, original);
    const Edit edit(gone);
    std::filesystem::remove_all(sub);
    const long before = openDescriptors();
    errno = 0;
    EXPECT_EQ(edit.set("new"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_NE(edit.h->modified, 0);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(CfgCommit, ALinkStaysALinkToTheReplacedFileWhoseModeIsKept) {
    TempDir dir;
    const std::string real = dir.file("real/settings.ini");
    ASSERT_EQ(mkdir(dir.file("real").c_str(), 0700), 0);
    writeFile(real, "[s]\nk = old\n");
    ASSERT_EQ(chmod(real.c_str(), 0640), 0);
    ASSERT_EQ(symlink("real/settings.ini", dir.file("link.ini").c_str()), 0);
    ASSERT_EQ(symlink(dir.file("link.ini").c_str(), dir.file("chain.ini").c_str()), 0);
    struct stat old {
    }, now{};
    ASSERT_EQ(stat(real.c_str(), &old), 0);
    const Edit edit(dir.file("chain.ini"));
    EXPECT_EQ(edit.set("new"), 0);
    EXPECT_EQ(ZEM_Cfg_refresh(edit.h), 0);
    EXPECT_EQ(readFile(real), "[s]\nk = new\n");
    EXPECT_EQ(std::filesystem::read_symlink(dir.file("link.ini")), "real/settings.ini");
    EXPECT_TRUE(std::filesystem::is_symlink(dir.file("chain.ini")));
    ASSERT_EQ(stat(real.c_str(), &now), 0);
    EXPECT_EQ(now.st_mode & 07777, 0640u);
    EXPECT_NE(now.st_ino, old.st_ino);  // replaced, not rewritten
    EXPECT_EQ(names(dir.file("real")), std::vector<std::string>{"settings.ini"});
}

// A directory the user may not write, holding a file they may: the file is
// rewritten where it is, as no new file can be made beside it.
TEST(CfgCommit, AFileInADirectoryWithoutWriteAccessIsRewrittenInPlace) {
    TempDir dir;
    const std::string path = dir.file("settings.ini");
    writeFile(path, "[s]\nk = an old value longer than the new one\n");
    struct stat old {
    }, now{};
    ASSERT_EQ(stat(path.c_str(), &old), 0);
    const uid_t nobody = 65534;
    if (geteuid() == 0) {  // root writes anywhere: commit as someone else
        ASSERT_EQ(chown(dir.path.c_str(), nobody, nobody), 0);
        ASSERT_EQ(chown(path.c_str(), nobody, nobody), 0);
    }
    ASSERT_EQ(chmod(dir.path.c_str(), 0555), 0);
    EXPECT_EQ(inChild([&] {
                  if (geteuid() == 0 && (setgid(nobody) != 0 || setuid(nobody) != 0)) {
                      return 2;
                  }
                  const Edit edit(path);
                  return edit.set("new") == 0 && ZEM_Cfg_refresh(edit.h) == 0 ? 0 : 3;
              }),
              0);
    chmod(dir.path.c_str(), 0700);
    EXPECT_EQ(readFile(path), "[s]\nk = new\n");
    ASSERT_EQ(stat(path.c_str(), &now), 0);
    EXPECT_EQ(now.st_ino, old.st_ino);
}

TEST(CfgCommit, LinesAndValuesOfAnyLengthAreWrittenWholeAndReadBack) {
    for (const size_t length : {size_t{5000}, size_t{100000}}) {
        SCOPED_TRACE(length);
        TempDir dir;
        const std::string path = dir.file("long.ini"), comment(length, 'c'), value(length, 'v');
        writeFile(path, ";" + comment + "\n[s]\n");
        {
            const Edit edit(path);
            ASSERT_EQ(edit.set(value), 0);
            ASSERT_EQ(edit.set("x", std::string(length, 'i')), 0);
            EXPECT_EQ(ZEM_Cfg_refresh(edit.h), 0);  // the digest covers exactly what was written
        }
        EXPECT_EQ(readFile(path), ";" + comment + "\n[s]\nk" + std::string(length - 1, ' ') +
                                      " = " + value + "\n" + std::string(length, 'i') + " = x\n");
        const Edit reread(path);
        ASSERT_EQ(ZEM_Cfg_find(reread.h, "s", "k"), 0);
        EXPECT_EQ(reread.h->value, value);
    }
}

}  // namespace
