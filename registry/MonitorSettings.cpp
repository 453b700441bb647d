#include "MonitorSettings.h"

#include "Paths.h"
#include "cfg/cfg.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <memory>

namespace {

constexpr char Section[] = "monitor";

struct HandleCloser {
    void operator()(ZEM_CfgHandle *handle) const { ZEM_Cfg_done(handle); }
};
using Handle = std::unique_ptr<ZEM_CfgHandle, HandleCloser>;

bool sizeAllowed(const QString &file, QString *error) {
    const std::optional<Paths::ItemInfo> info = Paths::attributesOfTarget(file);
    if (!info) {
        return true;  // missing: created on write, nothing on read
    }
    if (!info->isRegular() || info->size > MonitorSettings::MaxFileSize) {
        if (error) {
            *error = QStringLiteral("%1: not a settings file (a regular file of at most %2 bytes)")
                         .arg(file)
                         .arg(MonitorSettings::MaxFileSize);
        }
        return false;
    }
    return true;
}

}  // namespace

namespace MonitorSettings {

QString defaultFile() {
    const QString config = QFile::decodeName(qgetenv("XDG_CONFIG_HOME"));
    const QString base =
        config.startsWith(u'/') ? config : QDir::homePath() + QStringLiteral("/.config");
    return QDir::cleanPath(base + QStringLiteral("/corvanta-monitor/monitor.ini"));
}

std::optional<QString> read(const QString &file, const char *key) {
    if (!Paths::existsAsNonDirectory(file) || !sizeAllowed(file, nullptr)) {
        return std::nullopt;
    }
    ZEM_CfgHandle *raw = nullptr;
    if (ZEM_Cfg_init(&raw, QFile::encodeName(file).constData()) != 0) {
        return std::nullopt;
    }
    const Handle handle(raw);
    if (ZEM_Cfg_find(raw, Section, key) != 0 || raw->value == nullptr) {
        return std::nullopt;
    }
    return QString::fromUtf8(raw->value);
}

bool write(const QString &file, const char *key, const QString &value, QString *error) {
    const auto fail = [error](const QString &reason) {
        if (error) {
            *error = reason;
        }
        return false;
    };
    if (value.contains(u'\n') || value.contains(u'\r')) {
        return fail(QStringLiteral("a setting is one line"));
    }
    if (!QDir().mkpath(QFileInfo(file).absolutePath())) {
        return fail(QStringLiteral("%1: cannot create its directory").arg(file));
    }
    if (!sizeAllowed(file, error)) {
        return false;
    }
    ZEM_CfgHandle *raw = nullptr;
    errno = 0;
    if (ZEM_Cfg_init2(&raw, QFile::encodeName(file).constData(), 1) != 0) {
        const int err = errno;
        return fail(QStringLiteral("%1: %2").arg(
            file, err ? QString::fromLocal8Bit(std::strerror(err)) : QStringLiteral("unreadable")));
    }
    const Handle handle(raw);
    if (ZEM_Cfg_write(raw, Section, key, value.toUtf8().constData()) != 0) {
        return fail(QStringLiteral("%1: out of memory").arg(file));
    }
    errno = 0;
    // A commit that could not open the file leaves the handle modified.
    if (ZEM_Cfg_commit(raw) != 0 || raw->modified) {
        const int err = errno;
        return fail(
            QStringLiteral("%1: %2").arg(file, err ? QString::fromLocal8Bit(std::strerror(err))
                                                   : QStringLiteral("not written")));
    }
    return true;
}

}  // namespace MonitorSettings
