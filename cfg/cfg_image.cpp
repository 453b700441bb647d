// Opening, closing and re-reading a file into a handle's image, and the
// memory rules of the entry array.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cfg/cfg_internal.h"

namespace {

// Opens the regular file at path and gives image a NUL-terminated buffer for
// its bytes, with its size and time. Opened non-blocking and checked on the
// descriptor, so a FIFO or device swapped in after the caller's stat cannot
// block or feed an endless stream. Returns the descriptor, or -1 with
// nothing left open or allocated.
int openText(const char *path, ZEM_CfgHandle *image) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        return -1;
    }
    struct stat st;
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size >= 0 &&
        static_cast<uint64_t>(st.st_size) <= CFG_MAX_FILE_SIZE) {
        image->text = static_cast<char *>(std::malloc(static_cast<size_t>(st.st_size) + 1));
        if (image->text != nullptr) {
            image->text[st.st_size] = '\0';
            image->textSize = st.st_size;
            image->textTime = st.st_mtime;
            return fd;
        }
    }
    close(fd);
    return -1;
}

// Reads exactly size bytes; false on a short read (the file shrank) or error.
bool readFully(int fd, char *buf, size_t size) {
    for (size_t done = 0; done < size;) {
        const ssize_t n = read(fd, buf + done, size - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
        } else if (n == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

void digestText(ZEM_CfgHandle *image) {
    ZEM_MD5Context md5;
    ZEM_MD5Init(&md5);
    ZEM_MD5Update(&md5, image->text, static_cast<uint32_t>(image->textSize));
    ZEM_MD5Final(image->digest, &md5);
}

// Reads and digests the file into image's text; false with nothing kept.
bool readImage(const char *path, ZEM_CfgHandle *image) {
    const int fd = openText(path, image);
    if (fd < 0) {
        return false;
    }
    const bool whole = readFully(fd, image->text, static_cast<size_t>(image->textSize));
    close(fd);
    if (!whole) {
        _cfg_freeimage(image);
        return false;
    }
    digestText(image);
    return true;
}

// Same bytes as the image (typically a file this handle just committed).
bool sameAsLoaded(const ZEM_CfgHandle *h, const ZEM_CfgHandle *image) {
    return h->text != nullptr && std::memcmp(image->digest, h->digest, sizeof h->digest) == 0;
}

}  // namespace

extern "C" int _cfg_refresh(ZEM_CfgHandle *h) {
    if (h == nullptr) {
        return -1;
    }
    struct stat st;
    if (stat(h->path, &st) != 0 || !S_ISREG(st.st_mode)) {
        return -1;
    }
    if (h->modified) {
        _cfg_freeimage(h);
    }
    if (h->text != nullptr && st.st_size == h->textSize && st.st_mtime == h->textTime) {
        return 0;
    }
    // The new image is built beside the loaded one and replaces it only when
    // the bytes differ.
    ZEM_CfgHandle image{};
    if (!readImage(h->path, &image)) {
        return -1;
    }
    // Size and time stay stale on purpose when the bytes are unchanged, so
    // the next refresh digests again rather than trusting a time it never
    // parsed.
    if (sameAsLoaded(h, &image)) {
        _cfg_freeimage(&image);
        return 0;
    }
    _cfg_freeimage(h);  // before parsing, so both never coexist
    if (image.textSize > 0 && _cfg_parse(&image) != 0) {
        _cfg_freeimage(&image);
        return -1;
    }
    std::memcpy(h->digest, image.digest, sizeof h->digest);
    h->text = image.text;
    h->textSize = image.textSize;
    h->textTime = image.textTime;
    h->entries = image.entries;
    h->entryCount = image.entryCount;
    h->entryCapacity = image.entryCapacity;
    h->flags = CFG_LOADED;
    return 1;
}

extern "C" void _cfg_freeimage(ZEM_CfgHandle *h) {
    std::free(h->text);
    for (uint32_t i = 0; i < h->entryCount; ++i) {
        _cfg_freeent(&h->entries[i]);
    }
    std::free(h->entries);
    h->modified = 0;
    h->text = nullptr;
    h->textSize = 0;
    h->textTime = 0;
    std::memset(h->digest, 0, sizeof h->digest);
    h->entryCount = 0;
    h->entryCapacity = 0;
    h->entries = nullptr;
    h->cursor = 0;
    h->section = nullptr;
    h->id = nullptr;
    h->value = nullptr;
    h->flags = 0;
}

extern "C" int ZEM_Cfg_init2(ZEM_CfgHandle **out, const char *path, int create) {
    if (out == nullptr) {
        return -1;
    }
    *out = nullptr;
    if (path == nullptr) {
        return -1;
    }
    auto h = static_cast<ZEM_CfgHandle *>(std::calloc(1, sizeof(ZEM_CfgHandle)));
    if (h == nullptr) {
        return -1;
    }
    h->path = strdup(path);
    if (h->path == nullptr) {
        std::free(h);
        return -1;
    }
    pthread_mutex_init(&h->lock, nullptr);
    if (create && access(path, F_OK) == -1) {
        // Failure shows up as the refresh below failing.
        if (FILE *f = std::fopen(path, "ae")) {
            std::fclose(f);
        }
    }
    if (_cfg_refresh(h) < 0) {
        ZEM_Cfg_done(h);
        return -1;
    }
    *out = h;
    return 0;
}

extern "C" int ZEM_Cfg_init(ZEM_CfgHandle **out, const char *path) {
    return ZEM_Cfg_init2(out, path, 0);
}

extern "C" int ZEM_Cfg_done(ZEM_CfgHandle *h) {
    if (h == nullptr) {
        return 0;
    }
    _cfg_freeimage(h);
    std::free(h->path);
    pthread_mutex_destroy(&h->lock);
    std::free(h);
    return 0;
}

extern "C" int _cfg_poolreserve(ZEM_CfgHandle *h, uint32_t n) {
    const uint64_t need = uint64_t{h->entryCount} + n;
    if (need <= h->entryCapacity) {
        return 0;
    }
    const uint64_t old = h->entryCapacity;
    const uint64_t capacity = old != 0 ? old + n + old / 2 : uint64_t{n} + 102;
    if (capacity > UINT32_MAX) {
        return -1;
    }
    // realloc keeps the old array on failure, and large arrays move by
    // remapping pages rather than copying entries.
    void *grown = std::realloc(h->entries, capacity * sizeof(ZEM_CfgEntry));
    if (grown == nullptr) {
        return -1;
    }
    h->entries = static_cast<ZEM_CfgEntry *>(grown);
    h->entryCapacity = static_cast<uint32_t>(capacity);
    return 0;
}

extern "C" ZEM_CfgEntry *_cfg_poolalloc(ZEM_CfgHandle *h, uint32_t n) {
    const uint32_t first = h->entryCount;
    // A count that wraps (a negative count) only lowers entryCount.
    if (first + n >= first && _cfg_poolreserve(h, n) != 0) {
        return nullptr;
    }
    h->entryCount = first + n;
    return h->entries + first;
}

extern "C" void _cfg_freeent(ZEM_CfgEntry *e) {
    if (e->flags & CFG_OWNS_SECTION) {
        std::free(e->section);
    }
    if (e->flags & CFG_OWNS_ID) {
        std::free(e->id);
    }
    if (e->flags & CFG_OWNS_VALUE) {
        std::free(e->value);
    }
    if (e->flags & CFG_OWNS_COMMENT) {
        std::free(e->comment);
    }
}

namespace {

int copyString(char **dst, const char *src, uint16_t *flags, uint16_t bit) {
    if (src == nullptr) {
        return 0;
    }
    *dst = strdup(src);
    *flags |= bit;
    return *dst != nullptr ? 0 : -1;
}

}  // namespace

extern "C" int _cfg_copyent(ZEM_CfgEntry *dst, const ZEM_CfgEntry *src) {
    ZEM_CfgEntry copy{};
    int rc = copyString(&copy.section, src->section, &copy.flags, CFG_OWNS_SECTION);
    rc |= copyString(&copy.id, src->id, &copy.flags, CFG_OWNS_ID);
    rc |= copyString(&copy.value, src->value, &copy.flags, CFG_OWNS_VALUE);
    rc |= copyString(&copy.comment, src->comment, &copy.flags, CFG_OWNS_COMMENT);
    *dst = copy;
    return rc;
}
