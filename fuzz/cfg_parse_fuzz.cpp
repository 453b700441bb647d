// Opens arbitrary bytes as a configuration file, walks, looks up, edits,
// commits and re-reads it, and checks that what the library writes reads back
// as the image it wrote.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "cfg/cfg_internal.h"

namespace {

#define CHECK(cond)                                                                       \
    do {                                                                                  \
        if (!(cond)) {                                                                    \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            std::abort();                                                                 \
        }                                                                                 \
    } while (0)

struct Step {
    unsigned kind;
    std::string text;  // section name, or "id=value", or the value line
    bool operator==(const Step &) const = default;
};

std::string trimBlanks(std::string s) {
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\f')) {
        s.pop_back();
    }
    return s;
}

// The walk, as it will read back after a commit: a terminated line loses its
// trailing blanks, and a key without a name is written indented, so it reads
// back as a value line holding "= value" and its comment.
std::vector<Step> walk(ZEM_CfgHandle *h, bool asWritten) {
    std::vector<Step> steps;
    CHECK(ZEM_Cfg_rewind(h) == 0);
    while (ZEM_Cfg_nextentry(h) == 0) {
        const unsigned kind = h->flags & CFG_KIND_MASK;
        CHECK(kind >= CFG_KIND_SECTION && kind <= CFG_KIND_VALUE);
        const ZEM_CfgEntry &e = h->entries[h->cursor - 1];
        if (kind == CFG_KIND_SECTION) {
            CHECK(h->id == nullptr && h->value == nullptr && h->section == e.section);
            steps.push_back({kind, h->section});
            continue;
        }
        std::string value = h->value;
        std::string comment = e.comment ? std::string("\t;") + e.comment : std::string();
        if (!asWritten) {
            steps.push_back(
                {kind, kind == CFG_KIND_KEY ? std::string(h->id) + "=" + value : value});
        } else if (kind == CFG_KIND_KEY && h->id[0] != '\0') {
            steps.push_back({kind, std::string(h->id) + "=" + trimBlanks(value)});
        } else {
            std::string line = trimBlanks((kind == CFG_KIND_KEY ? "= " : "") + value + comment);
            if (!line.empty()) {
                steps.push_back({CFG_KIND_VALUE, line});
            }
        }
    }
    CHECK(ZEM_Cfg_nextentry(h) == -1 && (h->flags & CFG_AT_END));
    return steps;
}

// Entries as the parser must make them: one kind each, cut at line ends.
void checkParsed(const ZEM_CfgHandle *h) {
    for (uint32_t i = 0; i < h->entryCount; ++i) {
        const ZEM_CfgEntry &e = h->entries[i];
        CHECK(e.flags == 0);
        CHECK(e.section || e.value || e.comment);
        if (e.section) {
            CHECK(!e.id && !e.value && e.section[0] != '\0');
        }
        if (e.id) {
            CHECK(e.value != nullptr);
        }
        for (const char *s : {e.section, e.id, e.value, e.comment}) {
            CHECK(s == nullptr || std::strpbrk(s, "\n\r\x1a") == nullptr);
        }
    }
}

std::string readAll(const std::string &path) {
    std::string text;
    if (FILE *f = std::fopen(path.c_str(), "rbe")) {
        char buf[4096];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) {
            text.append(buf, n);
        }
        std::fclose(f);
    }
    return text;
}

void writeAll(const std::string &path, const uint8_t *data, size_t size) {
    FILE *f = std::fopen(path.c_str(), "wbe");
    CHECK(f != nullptr);
    CHECK(std::fwrite(data, 1, size, f) == size);
    std::fclose(f);
}

// In memory: truncating and rewriting files on a disk file system makes
// close() wait for writeback. Kept in a plain array: the clean-up runs at
// exit, after static strings die.
char scratch[32] = "/dev/shm/fuzz_cfg.XXXXXX";

void removeScratch() {
    for (const char *name : {"/a.ini", "/b.ini", "/c.ini"}) {
        std::remove((std::string(scratch) + name).c_str());
    }
    rmdir(scratch);
}

std::string scratchDir() {
    static const bool made = [] {
        CHECK(mkdtemp(scratch) != nullptr);
        std::atexit(removeScratch);
        return true;
    }();
    (void)made;
    return scratch;
}

// Commits h and checks that the file reads back as h's walk, whatever the
// length of its lines; returns the re-read handle.
ZEM_CfgHandle *commitAndReread(ZEM_CfgHandle *h, const std::string &copyPath) {
    const std::vector<Step> before = walk(h, false);
    CHECK(ZEM_Cfg_commit(h) == 0 && h->modified == 0);
    CHECK(walk(h, false) == before);
    CHECK(ZEM_Cfg_refresh(h) == 0);  // the file is recognised by its digest
    const std::string bytes = readAll(h->path);
    writeAll(copyPath, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    ZEM_CfgHandle *again = nullptr;
    CHECK(ZEM_Cfg_init(&again, copyPath.c_str()) == 0);
    CHECK(walk(again, false) == walk(h, true));
    return again;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string a = scratchDir() + "/a.ini", b = scratchDir() + "/b.ini",
                      c = scratchDir() + "/c.ini";
    writeAll(a, data, size);
    ZEM_CfgHandle *h = nullptr;
    CHECK(ZEM_Cfg_init(&h, a.c_str()) == 0);
    checkParsed(h);
    const std::vector<Step> steps = walk(h, false);

    // Every section is found, and a found key is one of that name.
    std::vector<std::string> sections, keys, values;
    for (const Step &s : steps) {
        if (s.kind == CFG_KIND_SECTION) {
            sections.push_back(s.text);
            CHECK(ZEM_Cfg_find(h, s.text.c_str(), nullptr) == 0);
            CHECK(stricmp(h->section, s.text.c_str()) == 0);
        } else if (s.kind == CFG_KIND_KEY && !sections.empty()) {
            const size_t eq = s.text.find('=');
            keys.push_back(s.text.substr(0, eq));
            values.push_back(s.text.substr(eq + 1));
            if (ZEM_Cfg_find(h, sections.back().c_str(), keys.back().c_str()) == 0) {
                CHECK(stricmp(h->id, keys.back().c_str()) == 0);
            }
        }
    }

    // Unedited round trip. One rewrite normalises the layout (a nameless key
    // turns into a value line); from then on a rewrite reproduces the bytes.
    h->modified = 1;
    ZEM_CfgHandle *reread = commitAndReread(h, b);
    reread->modified = 1;
    CHECK(ZEM_Cfg_commit(reread) == 0);
    const std::string second = readAll(b);
    ZEM_CfgHandle *third = nullptr;
    CHECK(ZEM_Cfg_init(&third, b.c_str()) == 0);
    third->modified = 1;
    CHECK(ZEM_Cfg_commit(third) == 0);
    CHECK(readAll(b) == second);
    ZEM_Cfg_done(third);

    // Edits drawn from the input's own names, then merged and committed.
    uint32_t seed = 2166136261u;
    for (size_t i = 0; i < size; ++i) {
        seed = (seed ^ data[i]) * 16777619u;
    }
    std::minstd_rand rng(seed);
    auto pick = [&rng](const std::vector<std::string> &v, const char *fallback) {
        return v.empty() || rng() % 4 == 0 ? std::string(fallback) : v[rng() % v.size()];
    };
    for (int i = 0; i < 6; ++i) {
        const std::string s = pick(sections, "fuzz"), k = pick(keys, "fuzzkey"),
                          v = pick(values, "value");
        switch (rng() % 4) {
            case 0:
                CHECK(ZEM_Cfg_write(h, s.c_str(), nullptr, nullptr) == 0);
                break;
            case 1:
                CHECK(ZEM_Cfg_write(h, s.c_str(), k.c_str(), nullptr) == 0);
                break;
            default:
                // A key just set is what a lookup of it finds.
                CHECK(ZEM_Cfg_write(h, s.c_str(), k.c_str(), v.c_str()) == 0);
                CHECK(ZEM_Cfg_find(h, s.c_str(), k.c_str()) == 0);
                CHECK(std::strcmp(h->value, v.c_str()) == 0);
                break;
        }
    }
    CHECK(cfg_merge(h, reread) == 0);
    ZEM_CfgHandle *edited = commitAndReread(h, c);
    ZEM_Cfg_done(edited);
    ZEM_Cfg_done(reread);
    ZEM_Cfg_done(h);
    return 0;
}
