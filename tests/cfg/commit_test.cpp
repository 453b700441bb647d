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

// Marks the handle modified without changing its text, then commits it.
int recommit(ZEM_CfgHandle *h) {
    if (ZEM_Cfg_write(h, "big", "k0000000", std::string(72, h->entries[1].value[0]).c_str()) != 0) {
        return -1;
    }
    return ZEM_Cfg_commit(h);
}

// Two handles on one path, one loaded from each text; the file ends up
// holding a. Each commit of either writes its own text.
struct Versions {
    ZEM_CfgHandle *a = nullptr, *b = nullptr;
    Versions(const std::string &path, const std::string &textA, const std::string &textB) {
        writeFile(path, textB);
        EXPECT_EQ(ZEM_Cfg_init(&b, path.c_str()), 0);
        writeFile(path, textA);
        EXPECT_EQ(ZEM_Cfg_init(&a, path.c_str()), 0);
    }
    ~Versions() {
        ZEM_Cfg_done(a);
        ZEM_Cfg_done(b);
    }

    // In a child: commits b and a in turn until killed, writing one byte to
    // `done` after each commit.
    [[noreturn]] void alternate(int done) const {
        for (int i = 0;; ++i) {
            if (recommit(i % 2 ? a : b) != 0 || write(done, "+", 1) != 1) {
                _exit(3);
            }
        }
    }
};

int exitStatus(pid_t child) {
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(CfgCommit, ACommitKilledAtAnyPointLeavesTheOldFileOrTheNewOne) {
    TempDir dir;
    const std::string path = dir.file("big.ini");
    const std::string a = layoutText(4 << 20, 'a'), b = layoutText(4 << 20, 'b');
    // Each round lets a few more commits finish and kills the child in the
    // next one, wherever it has got to.
    for (int finished = 1; finished <= 6; ++finished) {
        const Versions versions(path, a, b);
        int pipeFds[2];
        ASSERT_EQ(pipe2(pipeFds, O_CLOEXEC), 0);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            close(pipeFds[0]);
            versions.alternate(pipeFds[1]);
        }
        close(pipeFds[1]);
        char byte;
        for (int i = 0; i < finished; ++i) {
            ASSERT_EQ(read(pipeFds[0], &byte, 1), 1) << "the committing child failed";
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(pipeFds[0]);
        const std::string left = readFile(path);
        EXPECT_TRUE(left == a || left == b)
            << "after " << finished << " commits the file holds " << left.size() << " bytes";
    }
}

// In a child whose file size limit is 64 KiB (its signal ignored): 0 when the
// commit fails with EFBIG and keeps the handle modified.
int commitUnderFileSizeLimit(const std::string &path, const std::string &value) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit limit{64 << 10, 64 << 10};
        signal(SIGXFSZ, SIG_IGN);
        ZEM_CfgHandle *h = nullptr;
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0 || ZEM_Cfg_init(&h, path.c_str()) != 0 ||
            ZEM_Cfg_write(h, "s", "k", value.c_str()) != 0) {
            _exit(2);
        }
        const int rc = ZEM_Cfg_commit(h);
        _exit(rc == -1 && errno == EFBIG && h->modified ? 0 : 3);
    }
    return exitStatus(child);
}

TEST(CfgCommit, AFailedCommitKeepsTheFileTheEditsAndNoTemporaryFile) {
    TempDir dir;
    const std::string path = dir.file("keep.ini"), original = "; mine\n[s]\nk   =  old\n";
    writeFile(path, original);
    EXPECT_EQ(commitUnderFileSizeLimit(path, std::string(100000, 'v')), 0);
    EXPECT_EQ(readFile(path), original);
    EXPECT_EQ(names(dir.path), std::vector<std::string>{"keep.ini"});

    // The directory gone between opening and committing.
    const std::string sub = dir.file("sub"), gone = sub + "/gone.ini";
    ASSERT_EQ(mkdir(sub.c_str(), 0700), 0);
    writeFile(gone, original);
    ZEM_CfgHandle *h = nullptr;
    ASSERT_EQ(ZEM_Cfg_init(&h, gone.c_str()), 0);
    std::filesystem::remove_all(sub);
    const long before = openDescriptors();
    ASSERT_EQ(ZEM_Cfg_write(h, "s", "k", "new"), 0);
    errno = 0;
    EXPECT_EQ(ZEM_Cfg_commit(h), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_NE(h->modified, 0);
    EXPECT_EQ(openDescriptors(), before);
    ZEM_Cfg_done(h);
}

TEST(CfgCommit, ALinkStaysALinkToTheReplacedFileWhoseModeIsKept) {
    TempDir dir;
    const std::string real = dir.file("real/settings.ini");
    ASSERT_EQ(mkdir(dir.file("real").c_str(), 0700), 0);
    writeFile(real, "[s]\nk = old\n");
    ASSERT_EQ(chmod(real.c_str(), 0640), 0);
    ASSERT_EQ(symlink("real/settings.ini", dir.file("link.ini").c_str()), 0);
    ASSERT_EQ(symlink(dir.file("link.ini").c_str(), dir.file("chain.ini").c_str()), 0);
    struct stat old {};
    ASSERT_EQ(stat(real.c_str(), &old), 0);

    ZEM_CfgHandle *h = nullptr;
    ASSERT_EQ(ZEM_Cfg_init(&h, dir.file("chain.ini").c_str()), 0);
    ASSERT_EQ(ZEM_Cfg_write(h, "s", "k", "new"), 0);
    EXPECT_EQ(ZEM_Cfg_commit(h), 0);
    EXPECT_EQ(ZEM_Cfg_refresh(h), 0);
    ZEM_Cfg_done(h);

    EXPECT_EQ(readFile(real), "[s]\nk = new\n");
    EXPECT_TRUE(std::filesystem::is_symlink(dir.file("link.ini")));
    EXPECT_EQ(std::filesystem::read_symlink(dir.file("link.ini")), "real/settings.ini");
    EXPECT_TRUE(std::filesystem::is_symlink(dir.file("chain.ini")));
    struct stat now {};
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
    struct stat old {};
    ASSERT_EQ(stat(path.c_str(), &old), 0);
    const uid_t nobody = 65534;
    if (geteuid() == 0) {  // root writes anywhere: commit as someone else
        ASSERT_EQ(chown(dir.path.c_str(), nobody, nobody), 0);
        ASSERT_EQ(chown(path.c_str(), nobody, nobody), 0);
    }
    ASSERT_EQ(chmod(dir.path.c_str(), 0555), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ZEM_CfgHandle *h = nullptr;
        if ((geteuid() == 0 && (setgid(nobody) != 0 || setuid(nobody) != 0)) ||
            ZEM_Cfg_init(&h, path.c_str()) != 0 || ZEM_Cfg_write(h, "s", "k", "new") != 0) {
            _exit(2);
        }
        _exit(ZEM_Cfg_commit(h) == 0 && ZEM_Cfg_refresh(h) == 0 ? 0 : 3);
    }
    EXPECT_EQ(exitStatus(child), 0);
    chmod(dir.path.c_str(), 0700);
    EXPECT_EQ(readFile(path), "[s]\nk = new\n");
    struct stat now {};
    ASSERT_EQ(stat(path.c_str(), &now), 0);
    EXPECT_EQ(now.st_ino, old.st_ino);
}

TEST(CfgCommit, LinesAndValuesOfAnyLengthAreWrittenWholeAndReadBack) {
    for (const size_t length : {size_t{5000}, size_t{100000}}) {
        SCOPED_TRACE(length);
        TempDir dir;
        const std::string path = dir.file("long.ini"), comment(length, 'c'), value(length, 'v');
        writeFile(path, ";" + comment + "\n[s]\n");
        ZEM_CfgHandle *h = nullptr;
        ASSERT_EQ(ZEM_Cfg_init(&h, path.c_str()), 0);
        ASSERT_EQ(ZEM_Cfg_write(h, "s", "k", value.c_str()), 0);
        ASSERT_EQ(ZEM_Cfg_write(h, "s", std::string(length, 'i').c_str(), "x"), 0);
        EXPECT_EQ(ZEM_Cfg_commit(h), 0);
        EXPECT_EQ(ZEM_Cfg_refresh(h), 0);  // the digest covers exactly what was written
        ZEM_Cfg_done(h);
        EXPECT_EQ(readFile(path), ";" + comment + "\n[s]\nk" + std::string(length - 1, ' ') +
                                      " = " + value + "\n" + std::string(length, 'i') + " = x\n");
        ASSERT_EQ(ZEM_Cfg_init(&h, path.c_str()), 0);
        ASSERT_EQ(ZEM_Cfg_find(h, "s", "k"), 0);
        EXPECT_EQ(h->value, value);
        ZEM_Cfg_done(h);
    }
}

}  // namespace
