#include "Paths.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace Paths {

namespace {

QString errnoText(int err) {
    return QString::fromLocal8Bit(std::strerror(err));
}

}  // namespace

QString displayName(const QString &path) {
    qsizetype end = path.size();
    while (end > 1 && path.at(end - 1) == u'/') {
        --end;
    }
    if (end == 1 && path.at(0) == u'/') {
        return QStringLiteral("/");
    }
    const qsizetype slash = path.lastIndexOf(u'/', end - 1);
    return path.mid(slash + 1, end - slash - 1);
}

QString standardize(const QString &path) {
    if (path.isEmpty()) {
        return path;
    }
    const bool absolute = isAbsolute(path);
    QStringList kept;
    for (const QString &part : path.split(u'/', Qt::SkipEmptyParts)) {
        if (part == u".") {
            continue;
        }
        if (part == u"..") {
            if (!kept.isEmpty() && kept.last() != u"..") {
                kept.removeLast();
            } else if (!absolute) {
                kept.append(part);
            }
            continue;
        }
        kept.append(part);
    }
    const QString joined = kept.join(u'/');
    if (absolute) {
        return u'/' + joined;
    }
    return joined.isEmpty() ? QStringLiteral(".") : joined;
}

QString resolveSymlinks(const QString &path) {
    char resolved[PATH_MAX];
    if (::realpath(path.toUtf8().constData(), resolved) != nullptr) {
        return QString::fromUtf8(resolved);
    }
    return standardize(path);
}

QString append(const QString &path, const QString &component) {
    if (path.isEmpty()) {
        return component;
    }
    qsizetype end = path.size();
    while (end > 1 && path.at(end - 1) == u'/') {
        --end;
    }
    qsizetype start = 0;
    while (start < component.size() && component.at(start) == u'/') {
        ++start;
    }
    QString head = path.left(end);
    if (head != u"/") {
        head += u'/';
    }
    return head + component.mid(start);
}

bool isAbsolute(const QString &path) {
    return path.startsWith(u'/');
}

bool existsAsDirectory(const QString &path) {
    const auto info = attributesOfTarget(path);
    return info && info->isDirectory();
}

bool existsAsNonDirectory(const QString &path) {
    const auto info = attributesOfTarget(path);
    return info && !info->isDirectory();
}

namespace {

ItemInfo fromStat(const struct stat &st) {
    ItemInfo info;
    info.type = st.st_mode & S_IFMT;
    info.mtime = st.st_mtim;
    info.size = st.st_size;
    info.device = st.st_dev;
    info.inode = st.st_ino;
    return info;
}

}  // namespace

std::optional<ItemInfo> attributesOfItem(const QString &path) {
    return attributesOfItem(path.toUtf8());
}

std::optional<ItemInfo> attributesOfTarget(const QString &path) {
    return attributesOfTarget(path.toUtf8());
}

namespace {

std::optional<ItemInfo> attributesAt(const QByteArray &nativePath, int flags) {
    struct stat st;
    if (::fstatat(AT_FDCWD, nativePath.constData(), &st, flags) != 0) {
        return std::nullopt;
    }
    return fromStat(st);
}

}  // namespace

std::optional<ItemInfo> attributesOfItem(const QByteArray &nativePath) {
    return attributesAt(nativePath, AT_SYMLINK_NOFOLLOW);
}

std::optional<ItemInfo> attributesOfTarget(const QByteArray &nativePath) {
    return attributesAt(nativePath, 0);
}

bool sameTime(const struct timespec &a, const struct timespec &b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

std::optional<FileIdentity> identityOf(const QString &path) {
    struct stat st;
    if (::stat(path.toUtf8().constData(), &st) != 0) {
        return std::nullopt;
    }
    return FileIdentity{st.st_dev, st.st_ino, st.st_mtim};
}

QString parentOf(const QString &path) {
    const qsizetype slash = path.lastIndexOf(u'/');
    return slash <= 0 ? QStringLiteral("/") : path.left(slash);
}

QString notRegularFileText() {
    return QStringLiteral("not a regular file");
}

bool readAsciiPrefix(const QString &path, QByteArray *out, QString *error, qsizetype limit) {
    out->clear();
    // O_NONBLOCK: should a FIFO replace the file after our caller looked at
    // it, the open must not wait for a writer. O_NOCTTY: same for a terminal.
    const int fd = ::open(path.toUtf8().constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        *error = errnoText(errno);
        return false;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        *error = errnoText(errno);
        ::close(fd);
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        *error = notRegularFileText();
        ::close(fd);
        return false;
    }
    out->resize(limit);
    qsizetype total = 0;
    while (total < limit) {
        const ssize_t n = ::read(fd, out->data() + total, size_t(limit - total));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            *error = errnoText(errno);
            ::close(fd);
            out->clear();
            return false;
        }
        total += n;
        // A short read that reaches the size fstat gave is the end: saves
        // the extra read that would return 0.
        if (n == 0 || total >= st.st_size) {
            break;
        }
    }
    ::close(fd);
    out->truncate(total);
    for (const char c : std::as_const(*out)) {
        if (static_cast<unsigned char>(c) > 0x7f) {
            *error = QStringLiteral("not ASCII text");
            out->clear();
            return false;
        }
    }
    return true;
}

bool listDirectory(const QString &path, QStringList *names, QString *error) {
    names->clear();
    // opendir opens with O_CLOEXEC in glibc.
    DIR *dir = ::opendir(path.toUtf8().constData());
    if (dir == nullptr) {
        *error = errnoText(errno);
        return false;
    }
    for (;;) {
        errno = 0;
        const struct dirent *entry = ::readdir(dir);
        if (entry == nullptr) {
            if (errno != 0) {
                *error = errnoText(errno);
                ::closedir(dir);
                names->clear();
                return false;
            }
            break;
        }
        const char *name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) {
            continue;
        }
        names->append(QString::fromUtf8(name));
    }
    ::closedir(dir);
    return true;
}

}  // namespace Paths
