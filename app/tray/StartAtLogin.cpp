#include "Application.h"

#include <QAction>
#include <QCoreApplication>
#include <QFileInfo>

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

QUrl Application::programUrl() {
    const QString exe = QCoreApplication::applicationFilePath();
    const QString canonical = QFileInfo(exe).canonicalFilePath();
    // A replaced executable has no canonical path; its old one still names
    // the program.
    return QUrl::fromLocalFile(canonical.isEmpty() ? exe : canonical);
}

bool Application::willStartAtLogin(const QUrl &url, LoginItemList &list) {
    const std::optional<QList<LoginItem>> items = list.snapshot();
    return items && firstMatch(*items, url);
}

void Application::setStartAtLogin(const QUrl &url, bool enabled, LoginItemList &list,
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

QStringList Application::loginArguments() const {
    // A login start must see the instances this monitor sees, whatever the
    // session's environment then holds.
    if (!_installationHome) {
        return {};
    }
    return {QStringLiteral("--home"), *_installationHome};
}

void Application::toggleStartAtLogin(QAction *sender) {
    // A checkable action flips its mark before reporting the choice, so the
    // mark now shows what the user asked for. The menu's next opening shows
    // what the list really holds.
    setStartAtLogin(programUrl(), sender->isChecked(), _loginItems, loginArguments());
}
