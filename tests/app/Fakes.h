#pragma once

#include "app/Application.h"

#include <QAction>
#include <QMenu>

#include <functional>

using namespace Qt::StringLiterals;

class FakeOpener : public DesktopOpener {
public:
    bool openUrl(const QUrl &url) override { return openFile(url.toString()); }
    bool openFile(const QString &path) override {
        opened += path + u'\n';
        return true;
    }
    QString opened;
};

// Login items in memory; unreadable when readable is false.
class FakeLoginItems : public LoginItemList {
public:
    std::optional<QList<LoginItem>> snapshot() override {
        return readable ? std::optional(items) : std::nullopt;
    }
    bool insertFirst(const QUrl &bundleUrl) override {
        items.prepend(LoginItem{u"added"_s, bundleUrl});
        return true;
    }
    bool remove(const LoginItem &item) override {
        removed << item.id;
        return items.removeIf([&](const LoginItem &it) { return it.id == item.id; }) > 0;
    }
    QString ids() const {
        QStringList out;
        for (const LoginItem &item : items) {
            out << item.id;
        }
        return out.join(u' ');
    }
    QList<LoginItem> items;
    QStringList removed;
    bool readable = true;
};

// Answers every confirmation with `answer`; `whileUp` runs while the dialog is
// up, as the nested event loop of a real one would.
class FakePrompt : public ConfirmationPrompt {
public:
    int runModal(const QString &message, const QString &informative, const QString &first,
                 const QString &second) override {
        asked += QStringList{message, informative, first, second}.join(u" | ") + u'\n';
        if (whileUp) {
            whileUp();
        }
        return answer;
    }
    QString asked;
    int answer = AlertFirstButtonReturn;
    std::function<void()> whileUp;
};

// An Application wired to fakes, and the fields tests look at.
struct ApplicationProbe {
    FakeOpener opener;
    FakeLoginItems logins;
    FakePrompt prompt;
    Application app{opener, logins, prompt};

    std::unique_ptr<CorvantaManager> &manager() { return app._manager; }
    bool inModalDialog() const { return app._inModalDialog; }
    bool timerRunning() const { return app._menuUpdateTimer.isActive(); }
    CorvantaInstancePtr defaultInstance() const { return app._defaultInstance; }
};

// One line per item: "+" enabled or "-" disabled, the title, "[x]" when
// checked; "----" for a separator.
inline QString describe(const QMenu &menu) {
    QString out;
    for (const QAction *item : menu.actions()) {
        out += item->isSeparator() ? u"----"_s
                                   : (item->isEnabled() ? u"+ "_s : u"- "_s) + item->text();
        out += item->isChecked() ? u" [x]\n"_s : u"\n"_s;
    }
    return out;
}
