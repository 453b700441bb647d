#include "StartAtLogin.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <optional>

namespace {

// Entries that cannot be resolved are not the program; URLs compare as they
// are, without normalising either side.
std::optional<LoginItem> firstMatch(const QList<LoginItem> &items, const QUrl &url) {
    for (const LoginItem &item : items) {
        if (item.resolved && *item.resolved == url) {
            return item;
        }
    }
    return std::nullopt;
}

}  // namespace

QUrl StartAtLogin::programUrl() {
    const QString exe = QCoreApplication::applicationFilePath();
    const QString canonical = QFileInfo(exe).canonicalFilePath();
    // A replaced executable has no canonical path; its old one still names
    // the program.
    return QUrl::fromLocalFile(canonical.isEmpty() ? exe : canonical);
}

bool StartAtLogin::isEnabled(const QUrl &url, LoginItemList &list) {
    const std::optional<QList<LoginItem>> items = list.snapshot();
    return items && firstMatch(*items, url);
}

void StartAtLogin::setEnabled(const QUrl &url, bool enabled, LoginItemList &list,
                              const QStringList &arguments) {
    const std::optional<QList<LoginItem>> items = list.snapshot();
    if (!items) {
        return;
    }
    const std::optional<LoginItem> match = firstMatch(*items, url);
    // Only the first matching entry goes: a duplicate stays visible as a
    // check mark until it is removed by another choice.
    if (enabled && !match) {
        list.insertFirst(url, arguments);
    } else if (!enabled && match) {
        list.remove(*match);
    }
}
