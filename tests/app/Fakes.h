#pragma once

#include "app/Application.h"
#include "app/PlatformServices.h"
#include "app/TrayWatch.h"

#include <QList>
#include <QMenu>
#include <QSystemTrayIcon>

#include <functional>

// What the application opened.
class FakeOpener : public DesktopOpener {
public:
    bool openUrl(const QUrl &url) override {
        urls << url;
        return true;
    }
    bool openFile(const QString &path) override {
        files << path;
        return true;
    }
    QList<QUrl> urls;
    QStringList files;
};

// A login items list in memory; unreadable when readable is false.
class FakeLoginItems : public LoginItemList {
public:
    std::optional<QList<LoginItem>> snapshot() override {
        ++snapshots;
        if (!readable) {
            return std::nullopt;
        }
        return items;
    }
    bool insertFirst(const QUrl &bundleUrl) override {
        items.prepend(LoginItem{QStringLiteral("added-%1").arg(++added), bundleUrl});
        return true;
    }
    bool remove(const LoginItem &item) override {
        removed << item.id;
        for (qsizetype i = 0; i < items.size(); ++i) {
            if (items[i].id == item.id) {
                items.removeAt(i);
                return true;
            }
        }
        return false;
    }
    QStringList ids() const {
        QStringList out;
        for (const LoginItem &item : items) {
            out << item.id;
        }
        return out;
    }
    QList<LoginItem> items;
    QStringList removed;
    bool readable = true;
    int added = 0;
    int snapshots = 0;
};

// Answers every confirmation with `answer`; `whileUp` runs while the
// "dialog" is up, as the nested event loop of a real one would.
class FakePrompt : public ConfirmationPrompt {
public:
    struct Call {
        QString message, informative, first, second;
    };
    int runModal(const QString &message, const QString &informative, const QString &first,
                 const QString &second) override {
        calls.push_back({message, informative, first, second});
        if (whileUp) {
            whileUp();
        }
        return answer;
    }
    QList<Call> calls;
    int answer = AlertFirstButtonReturn;
    std::function<void()> whileUp;
};

// The fields tests look at.
struct ApplicationProbe {
    Application &app;

    std::unique_ptr<CorvantaManager> &manager() { return app._manager; }
    bool inModalDialog() const { return app._inModalDialog; }
    bool timerRunning() const { return app._menuUpdateTimer.isActive(); }
    CorvantaInstancePtr defaultInstance() const { return app._defaultInstance; }
    QSystemTrayIcon *statusItem() const { return app._statusItem.get(); }
    QMenu *menu() const { return app._menu.get(); }
    TrayWatch *trayWatch() const { return app._trayWatch.get(); }
};
