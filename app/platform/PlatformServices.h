#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <optional>

// Desktop services the front end needs, behind small interfaces so that tests
// drive them and a port adds an implementation rather than conditionals.

// Hands URLs and files to the desktop's default handler without waiting.
class DesktopOpener {
public:
    virtual ~DesktopOpener() = default;
    virtual bool openUrl(const QUrl &url) = 0;
    virtual bool openFile(const QString &path) = 0;  // as a local file URL
};

// One entry of the user's login items, with the file URL of the program it
// starts (empty when that cannot be resolved without user interaction or
// mounting).
struct LoginItem {
    QString id;  // what remove() needs to find the entry again
    std::optional<QUrl> resolved;
};

// The user's login items in their order. An implementation writes and removes
// only the entries of the program it was made for; everyone else's are read.
class LoginItemList {
public:
    virtual ~LoginItemList() = default;
    // Null when the list cannot be read at all.
    virtual std::optional<QList<LoginItem>> snapshot() = 0;
    // Adds an entry that starts the program at programUrl with arguments,
    // first in the list where the platform has an order.
    virtual bool insertFirst(const QUrl &programUrl, const QStringList &arguments) = 0;
    // Removes the entry, provided it still starts the program.
    virtual bool remove(const LoginItem &item) = 0;
};

// The modal confirmation: true when the user chose the confirming button,
// false for every other way of closing it.
class ConfirmationPrompt {
public:
    virtual ~ConfirmationPrompt() = default;
    virtual bool confirm(const QString &message, const QString &informative,
                         const QString &confirmButton, const QString &cancelButton) = 0;
};

// One action a notification offers: the key it is reported by, and its label.
struct NotificationAction {
    QString key;
    QString label;
};

// The desktop's notifications. Shows without waiting; `onAction` runs on the
// main thread with the key of the action the user chose, if any.
class Notifier {
public:
    virtual ~Notifier() = default;
    virtual void notify(const QString &title, const QString &body,
                        const QList<NotificationAction> &actions,
                        std::function<void(const QString &key)> onAction) = 0;
};
