#pragma once
// What the cfg suites share: scratch files and handles, and dumps of what a handle holds.

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

#include "cfg/cfg_internal.h"

namespace cfgtest {

using namespace std::string_literals;

struct TempDir {
    std::string path = (std::filesystem::temp_directory_path() / "cfgtest.XXXXXX").string();
    std::error_code ignored;
    TempDir() { EXPECT_NE(mkdtemp(path.data()), nullptr); }
    ~TempDir() { std::filesystem::remove_all(path, ignored); }
    std::string file(const std::string &name) const { return path + "/" + name; }
};

inline void writeFile(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

inline std::string readFile(const std::string &path) {
    return (std::ostringstream() << std::ifstream(path, std::ios::binary).rdbuf()).str();
}

inline long entries(const std::string &dir) {
    return std::distance(std::filesystem::directory_iterator(dir), {});
}

inline std::string show(const char *s) {
    return s ? "<" + std::string(s) + ">" : "~";
}

// One line per entry: section, id, value and comment, null shown as ~.
inline std::string dumpEntries(const ZEM_CfgHandle *h) {
    std::string out;
    for (const ZEM_CfgEntry *e = h->entries; e != h->entries + h->entryCount; ++e) {
        out += show(e->section) + " " + show(e->id) + " " + show(e->value) + " " +
               show(e->comment) + "\n";
    }
    return out;
}

// What a reader sees after a step: kind, section, id, value and the end flag.
inline std::string state(const ZEM_CfgHandle *h) {
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

}  // namespace cfgtest
