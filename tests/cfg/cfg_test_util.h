// Temporary files and image dumps shared by the configuration tests.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "cfg/cfg.h"

namespace cfgtest {

// A private directory removed with everything in it at the end of the test.
class TempDir {
public:
    TempDir() {
        std::string tmpl = (std::filesystem::temp_directory_path() / "cfgtest.XXXXXX").string();
        if (mkdtemp(tmpl.data()) == nullptr) {
            ADD_FAILURE() << "mkdtemp failed";
        }
        path_ = tmpl;
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    std::string file(const std::string &name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

inline void writeFile(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

inline std::string readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// One line per entry: its four strings, null shown as ~.
inline std::string dumpEntries(const ZEM_CfgHandle *h) {
    std::string out;
    auto field = [&out](const char *s) {
        out += s ? "<" + std::string(s) + ">" : std::string("~");
    };
    for (uint32_t i = 0; i < h->entryCount; ++i) {
        const ZEM_CfgEntry &e = h->entries[i];
        field(e.section);
        out += ' ';
        field(e.id);
        out += ' ';
        field(e.value);
        out += ' ';
        field(e.comment);
        out += '\n';
    }
    return out;
}

// The walk as a reader sees it: one line per step.
inline std::string dumpWalk(ZEM_CfgHandle *h) {
    std::string out;
    ZEM_Cfg_rewind(h);
    while (ZEM_Cfg_nextentry(h) == 0) {
        switch (h->flags & CFG_KIND_MASK) {
            case CFG_KIND_SECTION:
                out += "[" + std::string(h->section) + "]\n";
                break;
            case CFG_KIND_KEY:
                out += std::string(h->id) + "=" + h->value + "\n";
                break;
            default:
                out += "  " + std::string(h->value) + "\n";
                break;
        }
    }
    return out;
}

// Owns a handle opened on a file holding the given text.
class Image {
public:
    Image(const TempDir &dir, const std::string &text, const std::string &name = "test.ini")
        : path_(dir.file(name)) {
        writeFile(path_, text);
        EXPECT_EQ(ZEM_Cfg_init(&h_, path_.c_str()), 0);
    }
    ~Image() { ZEM_Cfg_done(h_); }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;
    ZEM_CfgHandle *operator->() const { return h_; }
    ZEM_CfgHandle *get() const { return h_; }
    const std::string &path() const { return path_; }
    std::string entries() const { return dumpEntries(h_); }

private:
    std::string path_;
    ZEM_CfgHandle *h_ = nullptr;
};

}  // namespace cfgtest
