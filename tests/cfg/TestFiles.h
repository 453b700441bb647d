// Scratch directories and whole-file reads and writes for the cfg tests.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

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

inline long openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}
