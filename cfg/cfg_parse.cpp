// The line parser: cuts the text in place into NUL-terminated pieces and
// records one entry per meaningful line. Nothing is allocated per line.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <system_error>
#include <thread>

#include "cfg/cfg_internal.h"
#include "cfg/cfg_parse.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

inline bool isLineEnd(char c) {
    return c == '\n' || c == '\r' || c == '\x1a' || c == '\0';
}
inline bool isIndent(char c) {
    return c == ' ' || c == '\t' || c == '\f';
}
inline bool isValueStop(char c) {
    return c == ';' || c == '"' || c == '\'';
}

// rtrim's test without a call for the usual characters: every locale counts
// the space, and no printable ASCII character besides, as white space.
inline bool isTrailingSpace(char c) {
    const auto u = static_cast<unsigned char>(c);
    return u == ' ' || ((u < ' ' || u >= 0x7f) && std::isspace(u));
}

// memchr for the short stretches of one line, where the call costs more
// than the search.
inline char *findInLine(char *p, const char *end, char c) {
    while (p < end && *p != c) {
        ++p;
    }
    return p < end ? p : nullptr;
}

// rtrim for a string whose terminating NUL is known to be at end: the same
// result without scanning forward first. Returns the new end (begin when
// nothing is left).
char *trimEnd(char *begin, char *end) {
    while (end > begin && isTrailingSpace(end[-1])) {
        --end;
    }
    *end = '\0';
    return end;
}

char *skipIndent(char *p) {
    while (isIndent(*p)) {
        ++p;
    }
    return p;
}

#if defined(__SSE2__)

// The first line end in [p, limit), or limit. Sixteen bytes at a time while
// they lie inside the range, the rest bytewise.
char *findLineEnd(char *p, const char *limit) {
    const __m128i lf = _mm_set1_epi8('\n'), cr = _mm_set1_epi8('\r');
    const __m128i eof = _mm_set1_epi8('\x1a'), nul = _mm_setzero_si128();
    for (; limit - p >= 16; p += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        const __m128i hit =
            _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, lf), _mm_cmpeq_epi8(v, cr)),
                         _mm_or_si128(_mm_cmpeq_epi8(v, eof), _mm_cmpeq_epi8(v, nul)));
        if (const int mask = _mm_movemask_epi8(hit)) {
            return p + __builtin_ctz(static_cast<unsigned>(mask));
        }
    }
    while (p < limit && !isLineEnd(*p)) {
        ++p;
    }
    return p;
}

// Bytes of the line-end set other than NUL: one more than this bounds the
// number of lines, and so of entries.
size_t countLineEnds(const char *p, const char *end) {
    const __m128i lf = _mm_set1_epi8('\n'), cr = _mm_set1_epi8('\r');
    const __m128i eof = _mm_set1_epi8('\x1a'), zero = _mm_setzero_si128();
    size_t n = 0;
    while (end - p >= 16) {
        // Per-byte counters (a hit is -1), summed before any can overflow.
        __m128i counts = zero;
        for (int i = 0; i < 255 && end - p >= 16; ++i, p += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
            counts = _mm_sub_epi8(counts, _mm_cmpeq_epi8(v, lf));
            counts = _mm_sub_epi8(counts, _mm_cmpeq_epi8(v, cr));
            counts = _mm_sub_epi8(counts, _mm_cmpeq_epi8(v, eof));
        }
        const __m128i sums = _mm_sad_epu8(counts, zero);
        n += static_cast<size_t>(_mm_cvtsi128_si32(sums)) +
             static_cast<size_t>(_mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
    }
    for (; p < end; ++p) {
        n += *p == '\n' || *p == '\r' || *p == '\x1a';
    }
    return n;
}

char *findValueStop(char *p, const char *end) {
    const __m128i semi = _mm_set1_epi8(';'), dq = _mm_set1_epi8('"'), sq = _mm_set1_epi8('\'');
    for (; end - p >= 16; p += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        const __m128i hit = _mm_or_si128(
            _mm_cmpeq_epi8(v, semi), _mm_or_si128(_mm_cmpeq_epi8(v, dq), _mm_cmpeq_epi8(v, sq)));
        if (const int mask = _mm_movemask_epi8(hit)) {
            return p + __builtin_ctz(static_cast<unsigned>(mask));
        }
    }
    while (p < end && !isValueStop(*p)) {
        ++p;
    }
    return p;
}

#else

size_t countLineEnds(const char *p, const char *end) {
    size_t n = 0;
    for (; p < end; ++p) {
        n += *p == '\n' || *p == '\r' || *p == '\x1a';
    }
    return n;
}

char *findLineEnd(char *p, const char *limit) {
    while (p < limit && !isLineEnd(*p)) {
        ++p;
    }
    return p;
}

char *findValueStop(char *p, const char *end) {
    while (p < end && !isValueStop(*p)) {
        ++p;
    }
    return p;
}

#endif

// Splits a key line's value from its comment: outside quotes, a ';' after a
// blank (or right after the '=', which is NUL by now) starts the comment.
char *splitComment(char *value, char *end) {
    char *p = value;
    for (;;) {
        p = findValueStop(p, end);
        if (p == end) {
            return nullptr;
        }
        if (*p != ';') {
            const void *close = std::memchr(p + 1, *p, static_cast<size_t>(end - p - 1));
            if (close == nullptr) {
                return nullptr;  // an unbalanced quote runs to the end of the line
            }
            p = static_cast<char *>(const_cast<void *>(close)) + 1;
        } else if (_cfg_isblank(p[-1])) {
            trimEnd(value, p);
            return p + 1;
        } else {
            ++p;
        }
    }
}

// Fills e from the line [p, end), already cut and trimmed; false drops it.
bool parseLine(char *p, char *end, ZEM_CfgEntry *e) {
    *e = ZEM_CfgEntry{};
    const bool indented = isIndent(*p);
    p = skipIndent(p);
    if (*p == ';') {
        e->comment = p + 1;
        return true;
    }
    if (*p == '[') {
        char *name = skipIndent(p + 1);
        char *close = findInLine(name, end, ']');
        if (close == nullptr) {
            return false;
        }
        if (trimEnd(name, close) == name) {
            return false;
        }
        char *rest = skipIndent(close + 1);
        e->section = name;
        e->comment = *rest == ';' ? rest + 1 : nullptr;
        return true;
    }
    if (indented) {
        e->value = p;
        return true;
    }
    char *eq = findInLine(p, end, '=');
    if (eq == nullptr) {
        return false;
    }
    *eq = '\0';  // so that a ';' right after it opens a comment
    trimEnd(p, eq);
    e->id = p;
    e->value = skipIndent(eq + 1);
    e->comment = splitComment(e->value, end);
    return true;
}

}  // namespace

namespace {

// Faults in a presized entry array on a second thread, a bounded stretch
// ahead of the parser: fresh pages cost about as much as the parse itself,
// and this way the parser rarely stops for one. Populating never changes the
// contents, so it may overlap the parser's writes. Runs only while the array
// cannot move: the parser finishes it before the array could grow.
class Prefaulter {
public:
    Prefaulter(const ZEM_CfgEntry *entries, uint32_t capacity)
        : begin_(reinterpret_cast<uintptr_t>(entries)),
          end_(reinterpret_cast<uintptr_t>(entries + capacity)) {
        try {
            thread_ = std::thread(&Prefaulter::run, this);
        } catch (const std::system_error &) {
            // No thread: the parser faults its pages in itself.
        }
    }
    ~Prefaulter() { finish(); }
    Prefaulter(const Prefaulter &) = delete;
    Prefaulter &operator=(const Prefaulter &) = delete;

    // Called by the parser now and then with the entries filled so far.
    void advance(uint32_t filled) {
        filled_.store(filled, std::memory_order_relaxed);
        filled_.notify_one();
    }

    void finish() {
        if (thread_.joinable()) {
            advance(kDone);
            thread_.join();
        }
    }

    // Entries between two calls of advance.
    static constexpr uint32_t kStride = 16384;

private:
    static constexpr uint32_t kDone = UINT32_MAX;
    static constexpr uintptr_t kAhead = uintptr_t{8} << 20;  // bytes beyond the parser
    static constexpr uintptr_t kStep = uintptr_t{1} << 20;   // bytes per system call

    void run() {
        const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
        uintptr_t done = (begin_ + page - 1) & ~(page - 1);
        const uintptr_t last = end_ & ~(page - 1);
        for (uint32_t filled = 0; filled != kDone && done < last;
             filled_.wait(filled, std::memory_order_relaxed),
                      filled = filled_.load(std::memory_order_relaxed)) {
            const uintptr_t ahead = begin_ + filled * sizeof(ZEM_CfgEntry) + kAhead;
            const uintptr_t target = std::min(last, ahead & ~(page - 1));
            while (done < target) {
                const uintptr_t len = std::min(kStep, target - done);
                if (!populate(reinterpret_cast<void *>(done), len) ||
                    filled_.load(std::memory_order_relaxed) == kDone) {
                    return;
                }
                done += len;
            }
        }
    }

    static bool populate(void *at, size_t len) {
        // Refused by kernels before 5.14: then the parser faults alone.
        return madvise(at, len, MADV_POPULATE_WRITE) == 0;
    }

    const uintptr_t begin_, end_;
    std::atomic<uint32_t> filled_{0};
    std::thread thread_;
};

// Waits until the reading thread has gone past avail; returns the new end of
// what the parser may look at, the text's NUL included once all is read, or
// null when the reader gave up.
char *waitForMore(const corvanta::cfg::ReadProgress &done, char *text, size_t size, char *avail) {
    const auto had = static_cast<uint64_t>(avail - text);
    uint64_t now;
    while ((now = done.load(std::memory_order_acquire)) <= had) {
        done.wait(now, std::memory_order_acquire);
    }
    if (now == corvanta::cfg::kReadFailed) {
        return nullptr;
    }
    return text + now + (now == size ? 1 : 0);
}

// The parse loop. With `done`, the parser neither looks at nor cuts a byte
// before the reading thread has passed it; with `prefault`, the array is
// presized and faulted in ahead.
int parseText(ZEM_CfgHandle *h, const corvanta::cfg::ReadProgress *done, Prefaulter *prefault) {
    char *const text = h->text;
    const size_t size = static_cast<size_t>(h->textSize);
    char *avail = done != nullptr ? text : text + size + 1;  // end of what may be looked at
    char *p = text;
    ZEM_CfgEntry scratch;
    for (;;) {
        for (;;) {
            while (p < avail && (*p == '\n' || *p == '\r' || *p == '\x1a')) {
                ++p;
            }
            if (p < avail) {
                break;
            }
            if ((avail = waitForMore(*done, text, size, avail)) == nullptr) {
                return -1;
            }
        }
        if (*p == '\0') {
            return 0;  // the end of the text, or a NUL inside the file
        }
        char *line = p;
        char *end = findLineEnd(p, avail);
        while (end == avail) {
            if ((avail = waitForMore(*done, text, size, avail)) == nullptr) {
                return -1;
            }
            end = findLineEnd(end, avail);
        }
        const bool last = *end == '\0';
        if (!last) {
            *end = '\0';
            p = end + 1;
            while (end > line && _cfg_isblank(end[-1])) {
                --end;
            }
            *end = '\0';
        }
        if (end != line && parseLine(line, end, &scratch)) {
            ZEM_CfgEntry *e;
            if (h->entryCount < h->entryCapacity) {
                e = &h->entries[h->entryCount++];
            } else {
                if (prefault != nullptr) {
                    prefault->finish();  // the array is about to move
                }
                if ((e = _cfg_poolalloc(h, 1)) == nullptr) {
                    return -1;
                }
            }
            *e = scratch;
            if (prefault != nullptr && h->entryCount % Prefaulter::kStride == 0) {
                prefault->advance(h->entryCount);
            }
        }
        if (last) {
            return 0;
        }
    }
}

}  // namespace

extern "C" int _cfg_parse(ZEM_CfgHandle *h) {
    // Large texts: one allocation sized by the number of lines, faulted in
    // by a helper thread. Failing that (a huge bound, no memory), the array
    // grows as the parse goes.
    if (h->textSize >= corvanta::cfg::kParallelMinSize && h->entryCount == 0) {
        const size_t bound = countLineEnds(h->text, h->text + h->textSize) + 1;
        if (bound <= UINT32_MAX - 102 && _cfg_poolreserve(h, static_cast<uint32_t>(bound)) == 0) {
            Prefaulter prefault(h->entries, h->entryCapacity);
            return parseText(h, nullptr, &prefault);
        }
    }
    return parseText(h, nullptr, nullptr);
}

int corvanta::cfg::parseBehind(ZEM_CfgHandle *h, const ReadProgress &done) {
    return parseText(h, &done, nullptr);
}
