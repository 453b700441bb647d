#include "LinuxPlatform.h"

#include "DesktopEntry.h"

#include <QDesktopServices>
#include <QDir>
#include <QFile>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr char EntryBaseName[] = "corvanta-monitor";
constexpr int MaxEntryNumber = 100;

struct FdCloser {
    int fd;
    ~FdCloser() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
};

// The whole file when it is a regular file of reasonable size. O_NONBLOCK
// keeps a FIFO planted in the directory from blocking the open.
std::optional<std::string> readSmallFile(const QString &path) {
    const int fd =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        return std::nullopt;
    }
    FdCloser closer{fd};
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) ||
        st.st_size > static_cast<off_t>(desktop_entry::MaxFileSize)) {
        return std::nullopt;
    }
    std::string text(desktop_entry::MaxFileSize + 1, '\0');
    std::size_t total = 0;
    while (total < text.size()) {
        const ssize_t n = ::read(fd, text.data() + total, text.size() - total);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            return std::nullopt;
        }
        if (n == 0) {
            break;
        }
        total += static_cast<std::size_t>(n);
    }
    if (total > desktop_entry::MaxFileSize) {  // grew since fstat
        return std::nullopt;
    }
    text.resize(total);
    return text;
}

// The package root of the program an entry starts, whether or not the entry
// is switched off.
std::optional<QUrl> entryProgramRoot(const QString &path, bool *switchedOff) {
    const auto text = readSmallFile(path);
    if (!text) {
        return std::nullopt;
    }
    const auto entry = desktop_entry::parse(*text);
    if (!entry || (entry->type && *entry->type != "Application")) {
        return std::nullopt;
    }
    const auto program = desktop_entry::program(*entry);
    if (!program || program->empty() || program->front() != '/') {
        return std::nullopt;
    }
    struct stat st {};
    if (::stat(program->c_str(), &st) != 0 || S_ISDIR(st.st_mode)) {
        return std::nullopt;
    }
    if (switchedOff) {
        *switchedOff = entry->hidden || entry->autostartDisabled;
    }
    return XdgAutostartList::packageRootUrl(QString::fromStdString(*program));
}

bool writeAll(int fd, const std::string &data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

enum class WriteResult { Written, NameTaken, Failed };

// Writes a temporary file beside the target and renames it into place, so a
// reader never sees half an entry. Without `replace` an existing target is
// left alone and reported as taken.
WriteResult writeAtomically(const QString &dir, const QString &target, const std::string &content,
                            bool replace) {
    QByteArray tmp = QFile::encodeName(
        dir + QStringLiteral("/.%1.desktop.XXXXXX").arg(QLatin1String(EntryBaseName)));
    const int fd = ::mkostemp(tmp.data(), O_CLOEXEC);
    if (fd < 0) {
        return WriteResult::Failed;
    }
    bool ok = writeAll(fd, content) && ::fchmod(fd, 0644) == 0 && ::fsync(fd) == 0;
    ok = (::close(fd) == 0) && ok;
    if (!ok) {
        ::unlink(tmp.constData());
        return WriteResult::Failed;
    }
    const QByteArray dest = QFile::encodeName(target);
    int rc = 0;
    if (replace) {
        rc = ::rename(tmp.constData(), dest.constData());
    } else {
        rc = ::renameat2(AT_FDCWD, tmp.constData(), AT_FDCWD, dest.constData(), RENAME_NOREPLACE);
        if (rc != 0 && (errno == EINVAL || errno == ENOSYS)) {
            // File systems without RENAME_NOREPLACE: link() refuses an
            // existing name just as well.
            rc = ::link(tmp.constData(), dest.constData());
            if (rc == 0) {
                ::unlink(tmp.constData());
            }
        }
    }
    const int err = errno;
    if (rc != 0) {
        ::unlink(tmp.constData());
        return err == EEXIST ? WriteResult::NameTaken : WriteResult::Failed;
    }
    return WriteResult::Written;
}

std::string entryText(const QString &executablePath) {
    const std::string exec = desktop_entry::escapeValue(
        desktop_entry::quoteExecArgument(QFile::encodeName(executablePath).toStdString()));
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Corvanta Monitor\n"
           "Comment=Watches the local Corvanta database servers\n"
           "Exec=" +
           exec +
           "\n"
           "Icon=corvanta-monitor\n"
           "Terminal=false\n"
           "X-GNOME-Autostart-enabled=true\n";
}

}  // namespace

bool QtDesktopOpener::openUrl(const QUrl &url) {
    if (!url.isValid() || url.isEmpty()) {
        return false;
    }
    return QDesktopServices::openUrl(url);
}

bool QtDesktopOpener::openFile(const QString &path) {
    if (path.isEmpty()) {
        return false;
    }
    return QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

XdgAutostartList::XdgAutostartList(QString autostartDir, QString executablePath)
    : _dir(std::move(autostartDir)), _executablePath(std::move(executablePath)) {}

QString XdgAutostartList::defaultDirectory() {
    // A relative XDG_CONFIG_HOME is invalid and must be ignored.
    const QString config = QFile::decodeName(qgetenv("XDG_CONFIG_HOME"));
    const QString base =
        config.startsWith(u'/') ? config : QDir::homePath() + QStringLiteral("/.config");
    return QDir::cleanPath(base + QStringLiteral("/autostart"));
}

QUrl XdgAutostartList::packageRootUrl(const QString &executablePath) {
    const qsizetype slash = executablePath.lastIndexOf(u'/');
    QString root =
        QDir::cleanPath(executablePath.left(qMax<qsizetype>(slash, 0)) + QStringLiteral("/.."));
    // Above the root is the root again.
    while (root.startsWith(QLatin1String("/..")) && (root.size() == 3 || root.at(3) == u'/')) {
        root.remove(0, 3);
    }
    return QUrl::fromLocalFile(root.isEmpty() ? QStringLiteral("/") : root);
}

std::optional<QList<LoginItem>> XdgAutostartList::snapshot() {
    DIR *d = ::opendir(QFile::encodeName(_dir).constData());  // O_CLOEXEC in glibc
    if (!d) {
        // No directory yet simply means no login items.
        if (errno == ENOENT) {
            return QList<LoginItem>{};
        }
        return std::nullopt;
    }
    std::unique_ptr<DIR, int (*)(DIR *)> closer(d, ::closedir);
    std::vector<std::string> names;
    while (const dirent *e = ::readdir(d)) {
        const std::string_view name(e->d_name);
        if (name.size() > 8 && name.substr(name.size() - 8) == ".desktop") {
            names.emplace_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    QList<LoginItem> items;
    items.reserve(static_cast<qsizetype>(names.size()));
    for (const std::string &name : names) {
        LoginItem item;
        item.id = QFile::decodeName(QByteArray::fromStdString(name));
        bool switchedOff = false;
        auto root = entryProgramRoot(_dir + u'/' + item.id, &switchedOff);
        if (root && !switchedOff) {
            item.resolved = std::move(root);
        }
        items.append(std::move(item));
    }
    return items;
}

bool XdgAutostartList::insertFirst(const QUrl &bundleUrl) {
    if (!QDir().mkpath(_dir)) {
        return false;
    }
    const std::string content = entryText(_executablePath);
    for (int n = 1; n <= MaxEntryNumber; ++n) {
        const QString name =
            n == 1 ? QStringLiteral("%1.desktop").arg(QLatin1String(EntryBaseName))
                   : QStringLiteral("%1-%2.desktop").arg(QLatin1String(EntryBaseName)).arg(n);
        const QString target = _dir + u'/' + name;
        struct stat st {};
        if (::lstat(QFile::encodeName(target).constData(), &st) == 0) {
            // Our own entry, switched off or not, is rewritten in place;
            // anything else under the name belongs to someone else.
            if (!S_ISREG(st.st_mode) || entryProgramRoot(target, nullptr) != bundleUrl) {
                continue;
            }
            return writeAtomically(_dir, target, content, true) == WriteResult::Written;
        }
        switch (writeAtomically(_dir, target, content, false)) {
            case WriteResult::Written:
                return true;
            case WriteResult::NameTaken:
                continue;
            case WriteResult::Failed:
                return false;
        }
    }
    return false;
}

bool XdgAutostartList::remove(const LoginItem &item) {
    const QString &name = item.id;
    if (name.isEmpty() || name.contains(u'/') || name == u"." || name == u"..") {
        return false;
    }
    return ::unlink(QFile::encodeName(_dir + u'/' + name).constData()) == 0;
}
