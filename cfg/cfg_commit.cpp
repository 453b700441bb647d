// Writing the image back in the library's own layout, digesting what is
// written so that the next refresh recognises the file.
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cfg/cfg_internal.h"
#include "cfg/cfg_lock.h"

using corvanta::cfg::loaded;
using corvanta::cfg::Locked;

namespace {

// Longest key among the entries after the header at i, up to the next header.
// Clamped: a key this long makes every key line of the section too long to
// write anyway.
int keyWidth(const ZEM_CfgHandle *h, uint32_t i) {
    size_t width = 0;
    for (++i; i < h->entryCount && h->entries[i].section == nullptr; ++i) {
        if (h->entries[i].id != nullptr) {
            const size_t len = std::strlen(h->entries[i].id);
            width = len > width ? len : width;
        }
    }
    return width < CFG_MAX_PIECE ? static_cast<int>(width) : CFG_MAX_PIECE;
}

bool hasContent(const ZEM_CfgEntry &e) {
    return e.section || e.id || e.value;
}

}  // namespace

extern "C" void _cfg_digestprintf(ZEM_MD5Context *md5, FILE *out, const char *format, ...) {
    char buf[CFG_MAX_PIECE];
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(buf, sizeof buf, format, args);
    va_end(args);
    if (n < 0 || n >= CFG_MAX_PIECE) {
        std::fprintf(stderr,
                     "cfg: a configuration line of %d bytes exceeds the limit of %d; aborting\n", n,
                     CFG_MAX_PIECE - 1);
        std::abort();
    }
    std::fwrite(buf, 1, static_cast<size_t>(n), out);
    ZEM_MD5Update(md5, buf, static_cast<uint32_t>(n));
}

extern "C" void _cfg_writeimage(const ZEM_CfgHandle *h, FILE *out, ZEM_MD5Context *md5) {
    int width = 0;
    bool separatorPending = false;
    uint32_t nextContent = 0;  // cached look-ahead, so long comment blocks stay linear
    for (uint32_t i = 0; i < h->entryCount; ++i) {
        const ZEM_CfgEntry &e = h->entries[i];
        if (e.section != nullptr) {
            if (separatorPending) {
                _cfg_digestprintf(md5, out, "\n");
            }
            _cfg_digestprintf(md5, out, "[%s]", e.section);
            if (e.comment != nullptr) {
                _cfg_digestprintf(md5, out, "\t;%s", e.comment);
            }
            separatorPending = true;
            width = keyWidth(h, i);
        } else if (e.value != nullptr) {
            if (e.id == nullptr) {
                _cfg_digestprintf(md5, out, "  %s", e.value);
            } else if (width != 0) {
                _cfg_digestprintf(md5, out, "%-*.*s = %s", width, width, e.id, e.value);
            } else {
                _cfg_digestprintf(md5, out, "%s = %s", e.id, e.value);
            }
            if (e.comment != nullptr) {
                _cfg_digestprintf(md5, out, "\t;%s", e.comment);
            }
        } else if (e.comment != nullptr) {
            // A block of attached comments right above a header goes with
            // the header: the blank line separating sections comes first.
            if (separatorPending && i + 1 < h->entryCount &&
                (e.comment[0] == ';' || _cfg_isblank(e.comment[0]))) {
                if (nextContent <= i) {
                    nextContent = i + 1;
                    while (nextContent < h->entryCount && !hasContent(h->entries[nextContent])) {
                        ++nextContent;
                    }
                }
                if (nextContent < h->entryCount && h->entries[nextContent].section != nullptr) {
                    _cfg_digestprintf(md5, out, "\n");
                    separatorPending = false;
                }
            }
            _cfg_digestprintf(md5, out, ";%s", e.comment);
        }
        _cfg_digestprintf(md5, out, "\n");
    }
}

extern "C" int ZEM_Cfg_commit(ZEM_CfgHandle *h) {
    if (!loaded(h)) {
        return -1;
    }
    Locked guard(h);
    if (!h->modified) {
        return 0;
    }
    FILE *out = std::fopen(h->path, "we");
    if (out == nullptr) {
        return 0;  // stays modified; a later commit may succeed
    }
    std::setvbuf(out, nullptr, _IOFBF, 1 << 16);
    ZEM_MD5Context md5;
    ZEM_MD5Init(&md5);
    _cfg_writeimage(h, out, &md5);
    ZEM_MD5Final(h->digest, &md5);
    std::fclose(out);
    h->modified = 0;
    return 0;
}
