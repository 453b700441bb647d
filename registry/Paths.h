#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <sys/stat.h>

#include <optional>

// The file-system services the registry and the front end rely on, mapped to
// POSIX in one place. Paths are UTF-8 on disk.
namespace Paths {

// Last path component, without a trailing separator.
QString displayName(const QString &path);

// Lexical cleaning: doubled separators and "." removed, ".." resolved, no
// trailing separator. Never touches the file system. ".." above the root
// stays at the root; a relative path keeps its leading ".." components.
QString standardize(const QString &path);

// The real path when it exists, otherwise the path standardised.
QString resolveSymlinks(const QString &path);

// Joins with exactly one separator; the component may itself hold slashes.
QString append(const QString &path, const QString &component);

// Only a leading "/" makes a path absolute.
bool isAbsolute(const QString &path);

// stat (follows links): exists and is a directory / exists and is not one.
bool existsAsDirectory(const QString &path);
bool existsAsNonDirectory(const QString &path);

// What the registry needs to know about one item.
struct ItemInfo {
    mode_t type = 0;           // S_IFMT bits
    struct timespec mtime {};  // full precision
    off_t size = 0;
    dev_t device = 0;
    ino_t inode = 0;

    bool isRegular() const { return type == S_IFREG; }
    bool isDirectory() const { return type == S_IFDIR; }
    // The same file with the same contents, as far as a stat can tell.
    bool isSameVersion(const ItemInfo &other) const {
        return device == other.device && inode == other.inode && size == other.size &&
               mtime.tv_sec == other.mtime.tv_sec && mtime.tv_nsec == other.mtime.tv_nsec;
    }
};

// lstat: the item itself, a final symbolic link is not followed.
std::optional<ItemInfo> attributesOfItem(const QString &path);
// stat: follows symbolic links.
std::optional<ItemInfo> attributesOfTarget(const QString &path);
// The same for a path already in its on-disk (UTF-8) form, for callers that
// ask about the same path again and again.
std::optional<ItemInfo> attributesOfItem(const QByteArray &nativePath);
std::optional<ItemInfo> attributesOfTarget(const QByteArray &nativePath);

bool sameTime(const struct timespec &a, const struct timespec &b);

// Which directory a path leads to, and when its entries last changed.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    struct timespec mtime {};

    friend bool operator==(const FileIdentity &a, const FileIdentity &b) {
        return a.device == b.device && a.inode == b.inode && sameTime(a.mtime, b.mtime);
    }
};
// stat: follows symbolic links.
std::optional<FileIdentity> identityOf(const QString &path);

// The lexical parent of a standardised absolute path; "/" for "/" itself.
QString parentOf(const QString &path);

// A lock file holds a few bytes; anything past this is never looked at.
constexpr qsizetype kAsciiReadLimit = 4096;

// Reads at most `limit` bytes of a regular file as ASCII text. Never blocks:
// the file is opened non-blocking and anything but a regular file (FIFO,
// device, socket) is refused before a byte is read. A byte outside ASCII
// fails the read. On failure `error` holds the system's error text or a plain
// description.
bool readAsciiPrefix(const QString &path, QByteArray *out, QString *error,
                     qsizetype limit = kAsciiReadLimit);

// Every entry but "." and "..", hidden ones included, in the order the file
// system gives them. On failure `error` holds the system's error text.
bool listDirectory(const QString &path, QStringList *names, QString *error);

// The description used for a refused non-regular file.
QString notRegularFileText();

}  // namespace Paths
