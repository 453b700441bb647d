// Small string helpers shared by the parser, lookup and editing.
#include <cctype>

#include "cfg/cfg.h"

extern "C" char *rtrim(char *s) {
    if (s == nullptr || *s == '\0') {
        return nullptr;
    }
    char *last = s;
    while (last[1] != '\0') {
        ++last;
    }
    while (std::isspace(static_cast<unsigned char>(*last))) {
        if (last == s) {
            *s = '\0';
            return nullptr;
        }
        --last;
    }
    last[1] = '\0';
    return last;
}

extern "C" int stricmp(const char *a, const char *b) {
    for (; *a != '\0'; ++a, ++b) {
        const int ca = std::toupper(static_cast<unsigned char>(*a));
        const int cb = std::toupper(static_cast<unsigned char>(*b));
        if (ca != cb) {
            return ca - cb;
        }
    }
    return *b != '\0' ? -1 : 0;
}
