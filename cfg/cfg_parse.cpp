// The line parser: cuts the text in place into NUL-terminated pieces and
// records one entry per meaningful line. Nothing is allocated per line.
#include <cctype>
#include <cstring>

#include "cfg/cfg_internal.h"

namespace {

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

// The text ends with a NUL, which is a line end too. strcspn is the C
// library's vectorised search.
char *findLineEnd(char *p) {
    return p + std::strcspn(p, "\n\r\x1a");
}

char *findValueStop(char *p, const char *end) {
    while (p < end && !isValueStop(*p)) {
        ++p;
    }
    return p;
}

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

extern "C" int _cfg_parse(ZEM_CfgHandle *h) {
    char *p = h->text;
    ZEM_CfgEntry scratch;
    for (;;) {
        while (*p == '\n' || *p == '\r' || *p == '\x1a') {
            ++p;
        }
        if (*p == '\0') {
            return 0;  // the end of the text, or a NUL inside the file
        }
        char *line = p;
        char *end = findLineEnd(p);
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
            ZEM_CfgEntry *e = _cfg_poolalloc(h, 1);
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
