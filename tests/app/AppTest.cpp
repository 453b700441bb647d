#include "app/translations/Translations.h"
#include "app/tray/Application.h"
#include "app/tray/DBusMenuExporter.h"
#include "app/tray/MenuPlacement.h"
#include "app/tray/MessageBoxPrompt.h"
#include "app/tray/StartAtLogin.h"
#include "app/tray/StatusReporter.h"
#include "registry/SystemLog.h"

#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QTimer>
#include <QTranslator>

#include "../TestSupport.h"

#include <algorithm>

// Records what the desktop was asked to open and to confirm, answering every
// confirmation with `answer` after running `whileUp`, as a real dialog's nested loop would.
struct FakeDesktop : DesktopOpener, LoginItemList, ConfirmationPrompt {
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
    QString calls;
    QList<LoginItem> items;
    bool answer = true;
    std::function<void()> whileUp = [] {};
};

namespace {

// One line per item: "+" enabled or "-" disabled, the title, "[x]" when checked.
QString describe(const QMenu &menu) {
    QString out;
    for (const QAction *item : menu.actions()) {
        out += item->isSeparator() ? u"----"_s
                                   : (item->isEnabled() ? u"+ "_s : u"- "_s) + item->text();
        out += item->isChecked() ? u" [x]\n"_s : u"\n"_s;
    }
    return out;
}

// The items below the instance items; the log and console items follow the default instance.
QString fixedItems(bool log = false, bool console = false) {
    return u"----\n%1 Open Diagnostic Messages\n%2 Open Corvanta Kelvarine\n"
           "+ View Online Documentation\n----\n"
           "+ Start Corvanta Monitor at Login\n+ Quit Corvanta Monitor\n"_s.arg(
               QChar(log ? u'+' : u'-'), QChar(console ? u'+' : u'-'));
}

}  // namespace

// A friend of Application and its menu; the model searches a temporary directory.
struct ApplicationProbe : ::testing::Test {
    bool confirming() const { return app._confirming; }
    bool timerRunning() const { return app._menu._refreshTimer.isActive(); }
    void tick() {
        QTimerEvent event(app._menu._refreshTimer.timerId());
        app._menu.timerEvent(&event);
    }
    void updateItem(QAction *item, CorvantaInstance *record) { app._menu.updateItem(item, record); }
    bool clickIcon(QStringView platform = u"xcb") {
        return app.iconClicked({5, 5, 1, 1}, platform);
    }

    void SetUp() override {
        app.model().setSearchPaths({home});
        app.setPackageRoot(home + u"/package"_s);
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

// Which instance is the default shows in the log and console items; the ticks test ends on a
// running default's.
TEST_F(TrayMenu, ListsInstancesAndChoosesTheDefault) {
    const std::tuple<const char *, const char *, QString> cases[] = {
        {"", "", u"- No Corvanta Instances\n"_s + fixedItems()},
        {"R&D+log", "", u"+ Start Instance 'R&&D'\n"_s + fixedItems(true)},
        {"alpha database+log zeta+run", "",
         u"+ Start Instance 'alpha'\n+ Start Default Instance\n+ Stop Instance 'zeta'\n"_s +
             fixedItems(true)},
        // The search directory is itself a "database" instance holding another.
        {"database database/database+log", "database",
         u"+ Start Default Instance\n+ Start Default Instance\n"_s + fixedItems(true)},
    };
    for (const auto &[names, under, expected] : cases) {
        SCOPED_TRACE(names);
        QTemporaryDir dir;
        home = QDir(dir.path()).canonicalPath();
        const QStringList instances = QString::fromUtf8(names).split(u' ', Qt::SkipEmptyParts);
        for (const QString &instance : instances) {
            addInstance(instance);
        }
        app.model().setSearchPaths({home + u'/' + QString::fromUtf8(under)});
        EXPECT_EQ(open(), expected);
        EXPECT_EQ(timerRunning(), !instances.isEmpty());
    }
}

// Directories that come and go reach the menu, and a host's copy, unopened; a rebuild's earlier
// items live until the menu closes, or until the next rebuild if no close is told. Ticks rewrite
// the open menu for a bounded time; the kernel's news keep it and the icon current when closed.
TEST_F(TrayMenu, FollowsInstancesAndServersAndTicksOnlyWhileOpen) {
    app.model().rescan();
    addInstance(u"alpha"_s);
    EXPECT_TRUE(QTest::qWaitFor([&] { return item(u"Start Instance 'alpha'"_s); }, 5000));
    open();
    const QPointer<QAction> first = item(u"Start Instance 'alpha'"_s);
    addInstance(u"beta"_s);
    app.model().rescan();  // as the directory's event would
    ASSERT_TRUE(first);
    EXPECT_FALSE(menu->actions().contains(first.get()));
    menu->hide();
    EXPECT_FALSE(first);
    const QPointer<QAction> second = item(u"Start Instance 'alpha'"_s);
    ASSERT_TRUE(QDir(home + u"/alpha"_s).removeRecursively());
    ASSERT_TRUE(QDir(home + u"/beta"_s).removeRecursively());
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return describe(*menu) == u"- No Corvanta Instances\n"_s + fixedItems(); }, 5000));
    addInstance(u"alpha"_s);
    const QString dir = addInstance(u"database"_s);
    app.model().rescan();
    EXPECT_FALSE(second);

    open();
    EXPECT_EQ(app.statusReporter().iconState(), IconState::Stopped);
    addInstance(u"alpha+run"_s);
    EXPECT_TRUE(QTest::qWaitFor([&] { return item(u"Stop Instance 'alpha'"_s); }, 3000));
    menu->hide();
    EXPECT_FALSE(timerRunning());
    writeFile(dir + u"/corvanta.lck"_s, QByteArray::number(standIn.processId()));
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return app.statusReporter().iconState() == IconState::Running; }, 10000));
    EXPECT_FALSE(timerRunning());
    EXPECT_EQ(describe(*menu),
              u"+ Stop Instance 'alpha'\n+ Stop Default Instance\n"_s + fixedItems(false, true));
    open();
    app.menu().aboutToShow();  // a second opening without a close
    for (int n = 1; n < StatusMenu::MaxTicksPerOpening; ++n) {
        tick();
    }
    EXPECT_TRUE(timerRunning());
    tick();
    EXPECT_FALSE(timerRunning());
    open();  // counts afresh
    tick();
    EXPECT_TRUE(timerRunning());
}

// Outside an event loop quitting does nothing, so the choice itself is what is seen.
TEST_F(TrayMenu, QuitKeyActsOnlyInTheOpenMenu) {
    QWidget elsewhere;
    elsewhere.show();
    QStringList chosen;
    QObject::connect(menu, &QMenu::triggered, [&](QAction *it) { chosen << it->text(); });
    const std::tuple<bool, QKeyCombination, bool> cases[] = {
        {true, Qt::Key_Q, true},
        {true, Qt::CTRL | Qt::Key_Q, true},
        {true, Qt::ALT | Qt::Key_Q, false},
        {false, Qt::Key_Q, false},
        {false, Qt::CTRL | Qt::Key_Q, false},
    };
    for (const auto &[menuOpen, keys, quits] : cases) {
        SCOPED_TRACE(testing::Message() << menuOpen << ' ' << keys.toCombined());
        chosen.clear();
        open();
        if (!menuOpen) {
            menu->hide();
            elsewhere.activateWindow();
        }
        QTest::keyClick(menuOpen ? static_cast<QWidget *>(menu) : &elsewhere, keys.key(),
                        keys.keyboardModifiers());
        QCoreApplication::processEvents();  // in case the choice were queued
        EXPECT_EQ(chosen, quits ? QStringList{u"Quit Corvanta Monitor"_s} : QStringList());
    }
    // Shown as Qt menus show a shortcut.
    EXPECT_EQ(item(u"Quit Corvanta Monitor"_s)->shortcut().toString(), u"Q"_s);
}

// A click on the icon opens the menu placed on the screen and kept to the room it got there
// until it closes. That a click on Wayland opens the host's menu instead, and that a host-drawn
// menu meanwhile adds no second confirmation, is e2e.wayland_tray's (and e2e.gnome_tray's).
TEST_F(TrayMenu, ClickOnIconOpensTheMenuWithinTheScreen) {
    for (int i = 0; i < 60; ++i) {
        addInstance(u"i%1"_s.arg(i));
    }
    clickIcon();
    ASSERT_TRUE(menu->isVisible());
    EXPECT_TRUE(describe(*menu).startsWith(u"+ Start Instance 'i0'\n+ Start Instance 'i1'\n"_s));
    const QRect opened = menu->geometry();
    EXPECT_TRUE(menu->screen()->availableGeometry().contains(opened));
    EXPECT_TRUE(timerRunning());
    menu->hide();
    EXPECT_FALSE(clickIcon(u"wayland"));  // the host shows its own menu there
    EXPECT_FALSE(menu->isVisible());
    for (int i = 1; i < 60; ++i) {
        EXPECT_TRUE(QDir(home + u"/i%1"_s.arg(i)).removeRecursively());
    }
    menu->popup(QPoint(0, 0));  // as a tray host opening the menu itself
    EXPECT_EQ(describe(*menu), u"+ Start Instance 'i0'\n"_s + fixedItems());
    EXPECT_LT(menu->height(), opened.height());
}

// Judged as an unprivileged user would be; only a writable directory offers its item.
TEST_F(TrayMenu, InstanceInUnwritableDirectoryOffersNeitherStartNorStop) {
    const QStringList dirs = {home, addInstance(u"busy+run"_s), addInstance(u"idle"_s)};
    for (const QString &dir : dirs) {
        ASSERT_EQ(::chmod(dir.toUtf8().constData(), 0555), 0);
    }
    ASSERT_EQ(::chmod(addInstance(u"open"_s).toUtf8().constData(), 0777), 0);
    EXPECT_EQ(QString::fromUtf8(inChild([&] {
                  becomeReader();
                  app.menu().aboutToShow();
                  return describe(*menu).toUtf8();
              })),
              u"- Stop Instance 'busy'\n- Start Instance 'idle'\n+ Start Instance 'open'\n"_s +
                  fixedItems());
    for (const QString &dir : dirs) {
        ::chmod(dir.toUtf8().constData(), 0755);
    }
}

// While the question is up an opening shows the menu as it was, without ticks, and a click on
// the icon brings the dialog forward instead; a cancelled choice leaves the server alone.
// Confirmed ones start and stop it in e2e.tray. Then the default instance's links.
TEST_F(TrayMenu, ItemsFollowTheServerAndActOnlyWhenConfirmed) {
    app.viewLogFile();                             // no default instance yet
    qputenv("CORVANTA_BINARY", CORVANTA_STANDIN);  // so that a wrong start would show
    const QString dir = addInstance(u"database"_s);
    fake.answer = false;
    fake.whileUp = [&] {
        EXPECT_TRUE(confirming());
        const QString shown = describe(*menu);
        QAction *const first = menu->actions().first();
        EXPECT_EQ(open(), shown);
        EXPECT_EQ(menu->actions().first(), first);
        EXPECT_FALSE(timerRunning());
        menu->hide();
        QDialog dialog;
        dialog.setWindowModality(Qt::ApplicationModal);
        dialog.show();
        QWidget other(&dialog, Qt::Window);  // not blocked by the dialog
        other.show();
        for (const QStringView platform : {u"xcb", u"wayland"}) {
            other.activateWindow();
            EXPECT_TRUE(QTest::qWaitFor([&] { return QApplication::activeWindow() == &other; }));
            EXPECT_TRUE(clickIcon(platform));
            EXPECT_TRUE(QTest::qWaitFor([&] { return QApplication::activeWindow() == &dialog; }));
        }
        EXPECT_FALSE(menu->isVisible());
    };
    QString seen;
    for (const QString &name : {u"database"_s, u"database+run"_s}) {
        addInstance(name);
        open();
        menu->actions().first()->trigger();
        EXPECT_FALSE(confirming());
        seen += open().section(u'\n', 0, 0) + u'\n';
        EXPECT_TRUE(timerRunning());
    }
    // The item rewritten in place for every status the record may read.
    CorvantaInstance record(dir);
    QAction *const first = menu->actions().first();
    for (const qint32 status : std::initializer_list<qint32>{
             ServerStatusStopped, ServerStatusStarting, ServerStatusRunning, ServerStatusStopping,
             ServerStatusUnknown, 5, -1}) {
        record.setStatus(status);
        updateItem(first, &record);
        seen += (first->isEnabled() ? u"+ "_s : u"- "_s) + first->text() + u'\n';
        first->setEnabled(true);  // a disabled item must not act even so
        first->trigger();
    }
    EXPECT_EQ(seen,
              u"+ Start Default Instance\n+ Stop Default Instance\n+ Start Default Instance\n"
              "- Default Instance: Starting\n+ Stop Default Instance\n"
              "- Default Instance: Stopping\n- Default Instance: Unknown\n"
              "- Default Instance: Unknown\n- Default Instance: Unknown\n"_s);
    addInstance(u"database+log+run"_s);
    open();
    item(u"Open Corvanta Kelvarine"_s)->trigger();
    item(u"View Online Documentation"_s)->trigger();
    item(u"Open Diagnostic Messages"_s)->trigger();
    QFile::remove(dir + u"/corvanta.log"_s);  // gone since the menu was built
    app.viewLogFile();
    const QString ask =
        u"Do you want to %1 the Default Instance? | This will %2 "
        "Corvanta instance in directory\n%3. | %4 | Cancel\n"_s;
    const QString start = ask.arg(u"start"_s, u"start up a"_s, dir, u"Start"_s),
                  stop = ask.arg(u"stop"_s, u"stop the"_s, dir, u"Stop"_s);
    EXPECT_EQ(fake.calls,
              start + stop + start + stop +
                  u"http://localhost:8890/kelvarine/\nhttp://docs.nordelix.com/corvanta/\n"
                  "file %1/corvanta.log\n"_s.arg(dir));
}

TEST_F(TrayMenu, StartAtLoginTogglesTheFirstEntryResolvingToTheProgram) {
    QUrl slashed = StartAtLogin::programUrl();
    slashed.setPath(slashed.path() + u'/');
    fake.items = {{u"unresolved"_s, std::nullopt},
                  {u"slashed"_s, slashed},
                  {u"b"_s, StartAtLogin::programUrl()},
                  {u"c"_s, StartAtLogin::programUrl()}};
    // The entry added starts the installation in use.
    app.setInstallationSources({home, {}, {}, {}});
    app.setupGlobalEnvironment();
    QString seen;
    for (int round = 0; round < 4; ++round) {
        open();
        QAction *toggle = item(u"Start Corvanta Monitor at Login"_s);
        seen += toggle->isChecked() ? u"[x]"_s : u"[ ]"_s;
        toggle->trigger();
        for (const LoginItem &entry : fake.items) {
            seen += u' ' + entry.id;
        }
        seen += u'\n';
    }
    EXPECT_EQ(seen,
              u"[x] unresolved slashed c\n[x] unresolved slashed\n"
              "[ ] added --home %1 unresolved slashed\n[x] unresolved slashed\n"_s.arg(home));
}

// Each case runs the set-up in a child with exactly the given environment; "@"
// stands for a fresh directory, "$" for the fallback installation in it.
TEST_F(TrayMenu, ExportsTheInstallationFoundOrChangesNothing) {
    // The tree's paths are directories when ending in "/"; "@/link" is "@/install".
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"install/lib/ install/bin/odbc.ini install/bin/odbcinst.ini",
         "CORVANTA_HOME=@/link PATH=/usr/bin:/bin LD_LIBRARY_PATH=/opt/x",
         "CORVANTA_HOME=@/install\nLD_LIBRARY_PATH=@/install/lib:/opt/x\n"
         "ODBCINI=@/install/bin/odbc.ini\nODBCINSTINI=@/install/bin/odbcinst.ini\n"
         "PATH=@/install/bin:/usr/bin:/bin\nsearch @/install\n"},
        {"$/bin/odbc.ini/ $/bin/odbcinst.ini file", "CORVANTA_HOME=@/file PATH=/usr/bin",
         "CORVANTA_HOME=$\nODBCINSTINI=$/bin/odbcinst.ini\nPATH=$/bin:/usr/bin\nsearch $\n"},
        {"", "PATH=/usr/bin ODBCINI=/etc/odbc.ini",
         "ODBCINI=/etc/odbc.ini\nPATH=/usr/bin\nsearch \n"},
    };
    for (const auto &[tree, env, expected] : cases) {
        SCOPED_TRACE(env);
        QTemporaryDir dir;
        const QDir root(QDir(dir.path()).canonicalPath());
        const auto expand = [&](const char *text) {
            return QString::fromUtf8(text)
                .replace(u'$', root.filePath(u"package/Contents/corvanta"_s))
                .replace(u'@', root.path());
        };
        ASSERT_TRUE(QFile::link(root.filePath(u"install"_s), root.filePath(u"link"_s)));
        for (const QString &path : expand(tree).split(u' ', Qt::SkipEmptyParts)) {
            ASSERT_TRUE(root.mkpath(path.endsWith(u'/') ? path : QFileInfo(path).path()));
            if (!path.endsWith(u'/')) {
                writeFile(root.filePath(path), "[x]\n");
            }
        }
        const QString got = QString::fromUtf8(inChild([&] {
            ::clearenv();
            for (const QString &var : expand(env).split(u' ')) {
                qputenv(var.section(u'=', 0, 0).toUtf8().constData(),
                        var.section(u'=', 1).toUtf8());
            }
            setSystemLogSink([](const QString &) {});  // its wording is the commands' test
            app.setInstallationSources(
                {std::nullopt, root.filePath(u"monitor.ini"_s), {}, root.filePath(u"package"_s)});
            app.setupGlobalEnvironment();
            const QStringList vars = QProcessEnvironment::systemEnvironment().toStringList();
            return (vars.join(u'\n') + u'\n').toUtf8() + "search " +
                   app.model().searchPaths().join(u' ').toUtf8() + '\n';
        }));
        EXPECT_EQ(got, expand(expected));
    }
}

// Rows: at the top right, at the bottom left, at either edge, on a second screen, then at the
// pointer when the icon's place is unknown; menus taller than the room scroll.
TEST(MenuPlacement, OpensBesideTheIconAwayFromThePanelAndWithinTheScreen) {
    const QRect screen(0, 0, 1024, 768), second(1024, 0, 1280, 1024);
    const std::tuple<QRect, QPoint, QSize, QRect, QRect> cases[] = {
        {{1001, 1, 22, 30}, {}, {250, 200}, screen, {774, 31, 250, 200}},
        {{1001, 1, 22, 30}, {}, {250, 5000}, screen, {774, 31, 250, 737}},
        {{10, 740, 22, 28}, {}, {250, 200}, screen, {10, 540, 250, 200}},
        {{10, 740, 22, 28}, {}, {250, 5000}, screen, {10, 0, 250, 740}},
        {{0, 300, 24, 24}, {}, {250, 200}, screen, {24, 300, 250, 200}},
        {{1000, 300, 24, 24}, {}, {250, 200}, screen, {750, 300, 250, 200}},
        {{2280, 0, 24, 24}, {}, {250, 200}, second, {2054, 24, 250, 200}},
        {{}, {500, 400}, {250, 200}, screen, {500, 400, 250, 200}},
        {{}, {1000, 700}, {250, 200}, screen, {750, 500, 250, 200}},
        {{}, {500, 400}, {250, 5000}, screen, {500, 0, 250, 768}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "row " << &c - cases);
        const auto &[icon, pointer, menu, available, expected] = c;
        EXPECT_EQ(trayMenuGeometry(icon, pointer, menu, available), expected);
    }
}

// The real dialog, answered by its buttons: the sentence stays on one line in
// each shipped language, and only a long directory wraps.
TEST(ConfirmationDialog, KeepsTheSentenceWholeAndWrapsOnlyTheDirectory) {
    const QString longPath = u"/srv"_s + u"/a-rather-long-directory-name"_s.repeated(12);
    // In German the long directory and Escape; otherwise a short one and the default button.
    for (const bool german : {false, true}) {
        SCOPED_TRACE(testing::Message() << german);
        const QString path = german ? longPath : u"/srv/corvanta/database"_s;
        ASSERT_TRUE(!german || installTranslations(*qApp, QLocale(u"de"_s)));
        const QString informative =
            QCoreApplication::translate("Application",
                                        "This will start up a Corvanta instance in directory\n%1.")
                .arg(path);
        const QString sentence = informative.section(u'\n', 0, 0);
        EXPECT_EQ(sentence.startsWith(u"This will"_s), !german);  // German is embedded
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, [&] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (!box || !box->isVisible()) {
                return;
            }
            poll.stop();
            auto *label = box->findChild<QLabel *>(u"qt_msgbox_informativelabel"_s);
            EXPECT_EQ(box->windowTitle(), u"Corvanta Monitor"_s);
            EXPECT_FALSE(box->windowIcon().isNull());
            EXPECT_GE(label->contentsRect().width(),
                      label->fontMetrics().horizontalAdvance(sentence));
            EXPECT_LE(box->width(), box->screen()->availableGeometry().width());
            // Wrapped text is taller than the same text given all the room it wants.
            EXPECT_EQ(label->heightForWidth(label->width()) > label->heightForWidth(100000),
                      german);
            german ? QTest::keyClick(box, Qt::Key_Escape) : box->defaultButton()->click();
        });
        poll.start(10);
        EXPECT_EQ(MessageBoxPrompt().confirm(u"Do you want to start the Default Instance?"_s,
                                             informative, u"Start"_s, u"Cancel"_s),
                  !german);
    }
    qDeleteAll(qApp->findChildren<QTranslator *>());
}

int main(int argc, char *argv[]) {
    QApplication::setQuitOnLastWindowClosed(false);
    return runTests<QApplication>(argc, argv);
}

TEST(ExportedMenu, LabelsKeepNamesLiteralAndMarkMnemonicsTheInterfacesWay) {
    EXPECT_EQ(DBusMenuExporter::labelOf(u"Start Instance 'a_b && c'"_s),
              u"Start Instance 'a__b & c'"_s);
    EXPECT_EQ(DBusMenuExporter::labelOf(u"&Quit"_s), u"_Quit"_s);
    EXPECT_EQ(DBusMenuExporter::labelOf(u"&_x&"_s), u"__x&"_s);
}
