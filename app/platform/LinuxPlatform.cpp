#include "LinuxPlatform.h"

#include "DesktopEntry.h"
#include "app/common/ExclusiveFile.h"

#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QSaveFile>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
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

// The program an entry starts, whether or not the entry is switched off.
std::optional<QUrl> entryProgram(const QString &path, bool *switchedOff) {
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
    if (switchedOff) {
        *switchedOff = entry->hidden || entry->autostartDisabled;
    }
    return XdgAutostartList::programUrl(QFile::decodeName(QByteArray::fromStdString(*program)));
}

// A reader never sees half an entry. With `owner` an existing target is
// replaced only if it still starts that program once the new text is ready;
// without, an existing target is left alone and reported as taken.
ExclusiveWrite writeEntry(const QString &target, const std::string &content, const QUrl *owner) {
    const QByteArray bytes = QByteArray::fromStdString(content);
    if (!owner) {
        return writeExclusively(
            target, bytes,
            QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);
    }
    QSaveFile file(target);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
        return ExclusiveWrite::Failed;
    }
    if (entryProgram(target, nullptr) != *owner) {
        file.cancelWriting();  // the new text goes with the object
        return ExclusiveWrite::NameTaken;
    }
    return file.commit() ? ExclusiveWrite::Written : ExclusiveWrite::Failed;
}

std::string entryText(const QString &program, const QStringList &arguments) {
    const std::string path = QFile::encodeName(program).toStdString();
    std::string exec = desktop_entry::execArgument(path);
    for (const QString &argument : arguments) {
        exec += ' ' + desktop_entry::execArgument(QFile::encodeName(argument).toStdString());
    }
    // TryExec keeps a login after the program was removed free of errors.
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Corvanta Monitor\n"
           "Comment=Watches the local Corvanta database servers\n"
           "TryExec=" +
           desktop_entry::escapeValue(path) + "\nExec=" + desktop_entry::escapeValue(exec) +
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

XdgAutostartList::XdgAutostartList(QString autostartDir, const QString &executablePath)
    : _dir(std::move(autostartDir)), _identity(programUrl(executablePath)) {}

QString XdgAutostartList::defaultDirectory() {
    // A relative XDG_CONFIG_HOME is invalid and must be ignored.
    const QString config = QFile::decodeName(qgetenv("XDG_CONFIG_HOME"));
    const QString base =
        config.startsWith(u'/') ? config : QDir::homePath() + QStringLiteral("/.config");
    return QDir::cleanPath(base + QStringLiteral("/autostart"));
}

std::optional<QUrl> XdgAutostartList::programUrl(const QString &path) {
    const std::unique_ptr<char, void (*)(void *)> canonical(
        ::realpath(QFile::encodeName(path).constData(), nullptr), std::free);
    struct stat st {};
    if (!canonical || ::stat(canonical.get(), &st) != 0 || S_ISDIR(st.st_mode)) {
        return std::nullopt;
    }
    return QUrl::fromLocalFile(QFile::decodeName(canonical.get()));
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
        auto program = entryProgram(_dir + u'/' + item.id, &switchedOff);
        if (program && !switchedOff) {
            item.resolved = std::move(program);
        }
        items.append(std::move(item));
    }
    return items;
}

bool XdgAutostartList::insertFirst(const QUrl &programUrl, const QStringList &arguments) {
    if (!_identity || programUrl != *_identity || !QDir().mkpath(_dir)) {
        return false;
    }
    const std::string content = entryText(_identity->toLocalFile(), arguments);
    for (int n = 1; n <= MaxEntryNumber; ++n) {
        const QString name =
            n == 1 ? QStringLiteral("%1.desktop").arg(QLatin1String(EntryBaseName))
                   : QStringLiteral("%1-%2.desktop").arg(QLatin1String(EntryBaseName)).arg(n);
        const QString target = _dir + u'/' + name;
        struct stat st {};
        const bool exists = ::lstat(QFile::encodeName(target).constData(), &st) == 0;
        // Our own entry, switched off or not, is rewritten in place;
        // anything else under the name belongs to someone else.
        if (exists && (!S_ISREG(st.st_mode) || entryProgram(target, nullptr) != _identity)) {
            continue;
        }
        switch (writeEntry(target, content, exists ? &*_identity : nullptr)) {
            case ExclusiveWrite::Written:
                return true;
            case ExclusiveWrite::NameTaken:
                continue;
            case ExclusiveWrite::Failed:
                return false;
        }
    }
    return false;
}

bool XdgAutostartList::remove(const LoginItem &item) {
    const QString &name = item.id;
    if (!_identity || item.resolved != _identity || name.isEmpty() || name.contains(u'/') ||
        name == u"." || name == u"..") {
        return false;
    }
    // Read again: the file may have been replaced since the snapshot.
    const QString path = _dir + u'/' + name;
    if (entryProgram(path, nullptr) != _identity) {
        return false;
    }
    return ::unlink(QFile::encodeName(path).constData()) == 0;
}
