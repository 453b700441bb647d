// Writing the image back in the library's own layout: rendered whole in
// memory, digested, and put in place so that no reader or crash ever sees
// half of it.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "cfg/cfg_internal.h"
#include "cfg/cfg_lock.h"

using corvanta::cfg::loaded;
using corvanta::cfg::Locked;

namespace {

// Longest key among the entries after the header at i, up to the next header.
size_t keyWidth(const ZEM_CfgHandle *h, uint32_t i) {
    size_t width = 0;
    for (++i; i < h->entryCount && h->entries[i].section == nullptr; ++i) {
        if (h->entries[i].id != nullptr) {
            const size_t len = std::strlen(h->entries[i].id);
            width = len > width ? len : width;
        }
    }
    return width;
}

bool hasContent(const ZEM_CfgEntry &e) {
    return e.section || e.id || e.value;
}

// Whether the comment at i opens a block that runs into a section header,
// so the blank line separating sections goes above it. nextContent caches
// the look-ahead, keeping long comment blocks linear.
bool leadsHeader(const ZEM_CfgHandle *h, uint32_t i, uint32_t &nextContent) {
    if (nextContent <= i) {
        nextContent = i + 1;
        while (nextContent < h->entryCount && !hasContent(h->entries[nextContent])) {
            ++nextContent;
        }
    }
    return nextContent < h->entryCount && h->entries[nextContent].section != nullptr;
}

// The image in the library's layout. Throws std::bad_alloc.
std::string render(const ZEM_CfgHandle *h) {
    std::string out;
    size_t width = 0;
    bool separatorPending = false;
    uint32_t nextContent = 0;
    for (uint32_t i = 0; i < h->entryCount; ++i) {
        const ZEM_CfgEntry &e = h->entries[i];
        if (e.section != nullptr) {
            out += separatorPending ? "\n[" : "[";
            out += e.section;
            out += ']';
            separatorPending = true;
            width = keyWidth(h, i);
        } else if (e.value != nullptr) {
            if (e.id == nullptr) {
                out += "  ";
            } else {
                const size_t len = std::strlen(e.id);
                out += e.id;
                out.append(width > len ? width - len : 0, ' ');
                out += " = ";
            }
            out += e.value;
        } else if (e.comment != nullptr) {
            const bool attached = e.comment[0] == ';' || _cfg_isblank(e.comment[0]);
            if (separatorPending && i + 1 < h->entryCount && attached &&
                leadsHeader(h, i, nextContent)) {
                out += '\n';
                separatorPending = false;
            }
            out += ';';
            out += e.comment;
            out += '\n';
            continue;
        }
        if (e.comment != nullptr && hasContent(e)) {
            out += "\t;";
            out += e.comment;
        }
        out += '\n';
    }
    return out;
}

bool writeAll(int fd, const std::string &text, off_t at) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t n =
            pwrite(fd, text.data() + done, text.size() - done, at + static_cast<off_t>(done));
        if (n > 0) {
            done += static_cast<size_t>(n);
        } else if (n == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

// The file a path finally names, its symbolic links followed, so that the
// links stay links. A missing file is its own path. False with errno set.
bool resolveLinks(const char *path, std::string &target) {
    target = path;
    for (int hops = 0; hops < 40; ++hops) {
        char link[PATH_MAX];
        const ssize_t n = readlink(target.c_str(), link, sizeof link);
        if (n < 0) {
            return errno == EINVAL || errno == ENOENT;
        }
        if (static_cast<size_t>(n) == sizeof link) {
            errno = ENAMETOOLONG;
            return false;
        }
        const size_t slash = target.rfind('/');
        if (link[0] == '/' || slash == std::string::npos) {
            target.assign(link, static_cast<size_t>(n));
        } else {
            target.replace(slash + 1, std::string::npos, link, static_cast<size_t>(n));
        }
    }
    errno = ELOOP;
    return false;
}

// Ends a failed step: the descriptor closed and the temporary file (ours,
// made with O_EXCL) removed, errno as the failure left it.
bool discard(int fd, const std::string &temporary) {
    const int err = errno;
    close(fd);
    unlink(temporary.c_str());
    errno = err;
    return false;
}

void syncDirectory(const std::string &temporary) {
    const std::string dir = temporary.substr(0, temporary.rfind('/') + 1) + ".";
    const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        fsync(fd);  // the rename's durability only; the file is whole either way
        close(fd);
    }
}

// Writes text to a new file beside target, flushed, then renamed over it.
// The new file takes the target's permission bits and owner where allowed.
// *noRoom tells that no file could be made beside the target.
bool replace(const std::string &target, const std::string &text, bool *noRoom) {
    const size_t slash = target.rfind('/');
    std::string temporary = slash == std::string::npos
                                ? "./." + target
                                : target.substr(0, slash + 1) + "." + target.substr(slash + 1);
    temporary += ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        *noRoom = errno == EACCES || errno == EPERM;
        return false;
    }
    struct stat st;
    if (stat(target.c_str(), &st) == 0) {
        // Both best-effort: where the file system refuses modes, the new
        // file keeps mkostemp's 0600, which exposes nothing; only root may
        // hand a file to another owner.
        (void)!fchmod(fd, st.st_mode & 07777);
        (void)!fchown(fd, st.st_uid, st.st_gid);
    }
    if (!writeAll(fd, text, 0) || fsync(fd) != 0) {
        return discard(fd, temporary);
    }
    if (close(fd) != 0 || rename(temporary.c_str(), target.c_str()) != 0) {
        const int err = errno;
        unlink(temporary.c_str());
        errno = err;
        return false;
    }
    syncDirectory(temporary);
    return true;
}

// The last resort for a writable file in a directory that is not: rewritten
// where it is. Not atomic, so a failed write puts the old bytes back as well
// as it can.
bool rewriteInPlace(const std::string &target, const std::string &text) {
    const int fd = open(target.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) {
        return false;
    }
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) ||
        static_cast<uint64_t>(st.st_size) > CFG_MAX_FILE_SIZE) {
        close(fd);
        errno = EINVAL;
        return false;
    }
    std::string old;
    try {
        old.resize(static_cast<size_t>(st.st_size));
    } catch (const std::bad_alloc &) {
        close(fd);
        errno = ENOMEM;
        return false;
    }
    if (pread(fd, old.data(), old.size(), 0) != static_cast<ssize_t>(old.size())) {
        old.clear();  // nothing trustworthy to put back
    }
    if (writeAll(fd, text, 0) && ftruncate(fd, static_cast<off_t>(text.size())) == 0 &&
        fsync(fd) == 0) {
        return close(fd) == 0;
    }
    const int err = errno;
    if (!old.empty() && writeAll(fd, old, 0)) {
        (void)!ftruncate(fd, static_cast<off_t>(old.size()));
    }
    close(fd);
    errno = err;
    return false;
}

bool store(const char *path, const std::string &text) {
    if (text.size() > CFG_MAX_FILE_SIZE) {
        errno = EFBIG;  // the library could not read it back
        return false;
    }
    std::string target;
    bool noRoom = false;
    if (!resolveLinks(path, target)) {
        return false;
    }
    if (replace(target, text, &noRoom)) {
        return true;
    }
    if (!noRoom || access(target.c_str(), W_OK) != 0) {
        return false;
    }
    return rewriteInPlace(target, text);
}

}  // namespace

extern "C" int ZEM_Cfg_commit(ZEM_CfgHandle *h) {
    if (!loaded(h)) {
        return -1;
    }
    Locked guard(h);
    if (!h->modified) {
        return 0;
    }
    try {
        const std::string text = render(h);
        if (!store(h->path, text)) {
            return -1;
        }
        ZEM_MD5Context md5;
        ZEM_MD5Init(&md5);
        ZEM_MD5Update(&md5, text.data(), static_cast<uint32_t>(text.size()));
        ZEM_MD5Final(h->digest, &md5);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
    h->modified = 0;
    return 0;
}
