#pragma once
// The tray application with a fake desktop, searching a temporary directory.

#include "app/tray/Application.h"
#include "app/tray/StartAtLogin.h"
#include "registry/SystemLog.h"

#include <QApplication>
#include <QDialog>
#include <QMenu>
#include <QProcess>
#include <QScreen>
#include <QTest>

#include "../TestSupport.h"

#include <algorithm>

// Records what the desktop was asked to open and to confirm, answering every
// confirmation with `answer` after running `whileUp`, as a real dialog's nested loop would;
// notifications as "title | body | action keys", their answers kept.
struct FakeDesktop : DesktopOpener, LoginItemList, ConfirmationPrompt, Notifier {
    bool record(const QString &line) {
        calls += line + u'\n';
        return true;
    }
    bool openUrl(const QUrl &url) override { return record(url.toString()); }
    bool openFile(const QString &path) override { return record(u"file "_s + path); }
    std::optional<QList<LoginItem>> snapshot() override { return items; }
    bool insertFirst(const QUrl &programUrl, const QStringList &arguments) override {
        items.prepend(LoginItem{(QStringList{u"added"_s} + arguments).join(u' '), programUrl});
        return true;
    }
    bool remove(const LoginItem &item) override {
        return items.removeIf([&](const LoginItem &it) { return it.id == item.id; }) > 0;
    }
    bool confirm(const QString &message, const QString &informative, const QString &first,
                 const QString &second) override {
        record(QStringList{message, informative, first, second}.join(u" | "));
        whileUp();
        return answer;
    }
    void notify(const QString &title, const QString &body, const QList<NotificationAction> &actions,
                std::function<void(const QString &)> onAction) override {
        QStringList keys;
        for (const NotificationAction &action : actions) {
            keys << action.key;
        }
        shown << title + u" | "_s + body + u" | "_s + keys.join(u',');
        answers << std::move(onAction);
    }
    QString calls;
    QStringList shown;
    QList<std::function<void(const QString &)>> answers;
    QList<LoginItem> items;
    bool answer = true;
    std::function<void()> whileUp = [] {};
};

// One line per item: "+" enabled or "-" disabled, the title, "[x]" when checked.
inline QString describe(const QMenu &menu) {
    QString out;
    for (const QAction *item : menu.actions()) {
        out += item->isSeparator() ? u"----"_s
                                   : (item->isEnabled() ? u"+ "_s : u"- "_s) + item->text();
        out += item->isChecked() ? u" [x]\n"_s : u"\n"_s;
    }
    return out;
}

// The items below the instance items; the log and console items follow the default instance.
inline QString fixedItems(bool log = false, bool console = false) {
    return u"----\n%1 Open Diagnostic Messages\n%2 Open Corvanta Kelvarine\n"
           "+ View Online Documentation\n----\n"
           "+ Start Corvanta Monitor at Login\n+ Quit Corvanta Monitor\n"_s.arg(
               QChar(log ? u'+' : u'-'), QChar(console ? u'+' : u'-'));
}

// A friend of Application and its menu; the model searches a temporary directory.
struct ApplicationProbe : ::testing::Test {
    bool timerRunning() const { return app._menu._refreshTimer.isActive(); }
    void tick() {
        QTimerEvent event(app._menu._refreshTimer.timerId());
        app._menu.timerEvent(&event);
    }
    void updateItem(QAction *item, CorvantaInstance *record) { app._menu.updateItem(item, record); }
    bool clickIcon() { return app.iconClicked({5, 5, 1, 1}, u"xcb"); }

    void SetUp() override {
        app.model().setSearchPaths({home});
        standIn.setChildProcessModifier(&becomeReader);  // so that a reader may signal it
        standIn.start(u"sleep"_s, {u"60"_s});
        ASSERT_TRUE(standIn.waitForStarted());
    }

    // `name` is a directory name, with "+log" and "+run" as wanted; a running
    // instance's lock file names a live process that is no server.
    QString addInstance(const QString &name) {
        const QString dir = home + u'/' + name.section(u'+', 0, 0);
        writeFile(dir + u"/corvanta.ini"_s, "[database]\n");
        if (name.contains(u"+log")) {
            writeFile(dir + u"/corvanta.log"_s, "started\n");
        }
        if (name.contains(u"+run")) {
            writeFile(dir + u"/corvanta.lck"_s, QByteArray::number(standIn.processId()));
        }
        return dir;
    }

    QString open() {
        menu->hide();
        menu->popup(QPoint(0, 0));
        return describe(*menu);
    }

    QAction *item(const QString &title) const {
        const QList<QAction *> items = menu->actions();
        const auto found = std::ranges::find(items, title, &QAction::text);
        return found == items.end() ? nullptr : *found;
    }

    FakeDesktop fake;
    Application app{fake, fake, fake};
    QProcess standIn;  // killed and reaped on the way out
    QTemporaryDir tmp;
    QString home = QDir(tmp.path()).canonicalPath();
    QMenu *menu = &app.menu().menu();
};
using TrayMenu = ApplicationProbe;
