#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>

#include "cfg_test_util.h"

namespace {

using cfgtest::readFile;
using cfgtest::TempDir;
using cfgtest::writeFile;

int openDescriptors() {
    int n = 0;
    DIR *d = opendir("/proc/self/fd");
    if (d == nullptr) {
        return -1;
    }
    while (dirent *e = readdir(d)) {
        n += e->d_name[0] != '.';
    }
    closedir(d);
    return n;
}

TEST(CfgOpen, MissingFileFailsUnlessCreated) {
    TempDir dir;
    const std::string path = dir.file("new.ini");
    ZEM_CfgHandle *h = reinterpret_cast<ZEM_CfgHandle *>(&h);
    EXPECT_EQ(ZEM_Cfg_init(&h, path.c_str()), -1);
    EXPECT_EQ(h, nullptr);
    EXPECT_FALSE(std::filesystem::exists(path));
    ASSERT_EQ(ZEM_Cfg_init2(&h, path.c_str(), 1), 0);
    EXPECT_EQ(h->entryCount, 0u);
    EXPECT_EQ(h->flags, CFG_LOADED);
    EXPECT_TRUE(std::filesystem::is_regular_file(path));
    EXPECT_EQ(std::filesystem::file_size(path), 0u);
    EXPECT_EQ(ZEM_Cfg_done(h), 0);
    EXPECT_EQ(ZEM_Cfg_done(nullptr), 0);
    EXPECT_EQ(ZEM_Cfg_init(&h, nullptr), -1);
}

TEST(CfgOpen, CreateLeavesAnExistingFileAlone) {
    TempDir dir;
    const std::string path = dir.file("x.ini");
    writeFile(path, "[s]\nk=v\n");
    ZEM_CfgHandle *h = nullptr;
    ASSERT_EQ(ZEM_Cfg_init2(&h, path.c_str(), 1), 0);
    EXPECT_EQ(h->entryCount, 2u);
    ZEM_Cfg_done(h);
    EXPECT_EQ(readFile(path), "[s]\nk=v\n");
}

TEST(CfgOpen, FifoIsRefusedWithoutBlocking) {
    TempDir dir;
    const std::string path = dir.file("fifo.ini");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const auto start = std::chrono::steady_clock::now();
    ZEM_CfgHandle *h = nullptr;
    EXPECT_EQ(ZEM_Cfg_init(&h, path.c_str()), -1);
    EXPECT_EQ(ZEM_Cfg_init2(&h, path.c_str(), 1), -1);
    EXPECT_EQ(h, nullptr);
    // Bounded, not timed: a blocking open would never come back at all.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST(CfgOpen, DirectoriesDevicesAndSocketsAreRefused) {
    TempDir dir;
    ZEM_CfgHandle *h = nullptr;
    EXPECT_EQ(ZEM_Cfg_init(&h, dir.file("").c_str()), -1);
    EXPECT_EQ(ZEM_Cfg_init(&h, "/dev/zero"), -1);
    EXPECT_EQ(ZEM_Cfg_init(&h, "/dev/null"), -1);

    const std::string path = dir.file("sock");
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
    if (path.size() < sizeof addr.sun_path &&
        bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) == 0) {
        EXPECT_EQ(ZEM_Cfg_init(&h, path.c_str()), -1);
    }
    close(fd);
    EXPECT_EQ(h, nullptr);
}

TEST(CfgOpen, FilesOf4GiBOrMoreAreRefusedBeforeReading) {
    TempDir dir;
    const std::string path = dir.file("huge.ini");
    const int fd = open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    ASSERT_GE(fd, 0);
    const bool sparse = ftruncate(fd, off_t{1} << 32) == 0;
    close(fd);
    if (!sparse) {
        GTEST_SKIP() << "no sparse files here";
    }
    ZEM_CfgHandle *h = nullptr;
    EXPECT_EQ(ZEM_Cfg_init(&h, path.c_str()), -1);
    EXPECT_EQ(h, nullptr);
}

TEST(CfgOpen, UnreadableFileFails) {
    if (geteuid() == 0) {
        GTEST_SKIP() << "root reads any file";
    }
    TempDir dir;
    const std::string path = dir.file("secret.ini");
    writeFile(path, "[s]\n");
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    ZEM_CfgHandle *h = nullptr;
    EXPECT_EQ(ZEM_Cfg_init(&h, path.c_str()), -1);
}

TEST(CfgOpen, NoDescriptorOutlivesAnOperation) {
    TempDir dir;
    const std::string good = dir.file("good.ini");
    const std::string fifo = dir.file("fifo");
    writeFile(good, "[s]\nk = v\n");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int before = openDescriptors();
    ASSERT_GT(before, 0);

    ZEM_CfgHandle *h = nullptr;
    EXPECT_EQ(ZEM_Cfg_init(&h, fifo.c_str()), -1);
    EXPECT_EQ(ZEM_Cfg_init(&h, dir.file("missing").c_str()), -1);
    ASSERT_EQ(ZEM_Cfg_init(&h, good.c_str()), 0);
    EXPECT_EQ(openDescriptors(), before);
    ASSERT_EQ(ZEM_Cfg_write(h, "s", "k", "w"), 0);
    ASSERT_EQ(ZEM_Cfg_commit(h), 0);
    EXPECT_EQ(ZEM_Cfg_refresh(h), 0);
    writeFile(good, "[s]\nk = other\n");
    EXPECT_EQ(ZEM_Cfg_refresh(h), 1);
    ZEM_Cfg_done(h);
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
