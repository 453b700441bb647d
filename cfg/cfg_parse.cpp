// The line parser: cuts the text in place into NUL-terminated pieces and
// records one entry per meaningful line. Nothing is allocated per line.
#include <cstring>

#include "cfg/cfg_internal.h"

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

char *skipIndent(char *p) {
    while (isIndent(*p)) {
        ++p;
    }
    return p;
}

#if defined(__SSE2__)

// Sixteen bytes at a time while they lie inside [p, limit); the rest bytewise.
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
    while (!isLineEnd(*p)) {
        ++p;
    }
    return p;
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

char *findLineEnd(char *p, const char *) {
    while (!isLineEnd(*p)) {
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
            *p = '\0';
            rtrim(value);
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
        auto close = static_cast<char *>(std::memchr(name, ']', static_cast<size_t>(end - name)));
        if (close == nullptr) {
            return false;
        }
        *close = '\0';
        if (rtrim(name) == nullptr) {
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
    auto eq = static_cast<char *>(std::memchr(p, '=', static_cast<size_t>(end - p)));
    if (eq == nullptr) {
        return false;
    }
    *eq = '\0';
    rtrim(p);
    e->id = p;
    e->value = skipIndent(eq + 1);
    e->comment = splitComment(e->value, end);
    return true;
}

}  // namespace

extern "C" int _cfg_parse(ZEM_CfgHandle *h) {
    char *p = h->text;
    const char *limit = h->text + h->textSize + 1;
    ZEM_CfgEntry scratch;
    for (;;) {
        while (*p == '\n' || *p == '\r' || *p == '\x1a') {
            ++p;
        }
        if (*p == '\0') {
            return 0;  // the end of the text, or a NUL inside the file
        }
        char *line = p;
        char *end = findLineEnd(p, limit);
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
            ZEM_CfgEntry *e = h->entryCount < h->entryCapacity ? &h->entries[h->entryCount++]
                                                               : _cfg_poolalloc(h, 1);
            if (e == nullptr) {
                return -1;
            }
            *e = scratch;
        }
        if (last) {
            return 0;
        }
    }
}
