#include "app/Application.h"
#include "registry/SystemLog.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMenu>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>

using namespace Qt::StringLiterals;

void PrintTo(const QString &text, std::ostream *out) {
    *out << '"' << text.toStdString() << '"';
}

// Records what the desktop was asked to open, one line each.
class FakeOpener : public DesktopOpener {
public:
    bool openUrl(const QUrl &url) override {
        opened += url.toString() + u'\n';
        return true;
    }
    bool openFile(const QString &path) override {
        opened += u"file "_s + path + u'\n';
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

namespace {

// One line per item: "+" enabled or "-" disabled, the title, "[x]" when
// checked; "----" for a separator.
QString describe(const QMenu &menu) {
    QString out;
    for (const QAction *item : menu.actions()) {
        out += item->isSeparator() ? u"----"_s
                                   : (item->isEnabled() ? u"+ "_s : u"- "_s) + item->text();
        out += item->isChecked() ? u" [x]\n"_s : u"\n"_s;
    }
    return out;
}

void writeFile(const QString &path, const QByteArray &bytes) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(bytes);
}

// The items below the instance items, with the log and console items' states.
QString fixedItems(bool log, bool console) {
    return u"----\n%1 Open Diagnostic Messages\n%2 Open Corvanta Kelvarine\n"
           "+ View Online Documentation\n----\n"
           "+ Start Corvanta Monitor at Login\n+ Quit Corvanta Monitor\n"_s.arg(
               QChar(log ? u'+' : u'-'), QChar(console ? u'+' : u'-'));
}

// Makes this process a user who may read the test's directories but not write
// them: "nobody" when running as root (who may write anywhere), else this user.
bool becomeReader() {
    constexpr uid_t nobody = 65534;
    return ::geteuid() != 0 ||
           (::setgroups(0, nullptr) == 0 && ::setgid(nobody) == 0 && ::setuid(nobody) == 0);
}

// Runs `body`, bounded in time, in a forked child and answers what it returned:
// for what changes the whole process or runs as another user.
QString inChild(const std::function<QByteArray()> &body) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        return u"no pipe"_s;
    }
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::alarm(20);
        const QByteArray out = body();
        ::_exit(::write(fds[1], out.constData(), size_t(out.size())) == out.size() ? 0 : 1);
    }
    ::close(fds[1]);
    QByteArray out;
    char buffer[4096];
    for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) > 0;) {
        out.append(buffer, n);
    }
    ::close(fds[0]);
    int status = -1;
    EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
    return QString::fromUtf8(out);
}

// The manager searches a temporary directory.
class StatusMenu : public ::testing::Test, protected ApplicationProbe {
protected:
    void SetUp() override {
        ASSERT_TRUE(tmp.isValid());
        searchIn(home);
        app.setPackageRoot(home + u"/package"_s);
    }

    void searchIn(const QString &dir) {
        manager() = std::make_unique<CorvantaManager>();
        manager()->addSearchPath(dir);
    }

    QString addInstance(const QString &name, bool withLog = false) {
        const QString dir = home + u'/' + name;
        EXPECT_TRUE(QDir().mkpath(dir));
        writeFile(dir + u"/corvanta.ini"_s, "[database]\n");
        if (withLog) {
            writeFile(dir + u"/corvanta.log"_s, "started\n");
        }
        return dir;
    }

    // A lock file naming a live process that is no server.
    void markRunning(const QString &dir) {
        if (standIn.state() == QProcess::NotRunning) {
            standIn.start(u"sleep"_s, {u"60"_s});
            ASSERT_TRUE(standIn.waitForStarted());
        }
        writeFile(dir + u"/corvanta.lck"_s, QByteArray::number(standIn.processId()));
    }

    QString open() {
        menu->hide();
        menu->popup(QPoint(0, 0));
        return describe(*menu);
    }

    QAction *item(const QString &title) const {
        const QList<QAction *> items = menu->actions();
        const auto it = std::find_if(items.begin(), items.end(),
                                     [&](const QAction *item) { return item->text() == title; });
        return it == items.end() ? nullptr : *it;
    }

    QProcess standIn;  // killed and reaped on the way out
    QTemporaryDir tmp;
    QString home = QDir(tmp.path()).canonicalPath();
    std::unique_ptr<QMenu> menu = app.createMenu();
};

}  // namespace

TEST_F(StatusMenu, ListsInstancesAndChoosesTheDefault) {
    const struct {
        const char *instances;  // directory names, with "+log" and "+run" as wanted
        const char *searchIn;
        QString expected;
    } cases[] = {
        {"", "", u"- No Corvanta Instances\n"_s + fixedItems(false, false)},
        {"alpha+log", "", u"+ Start Instance 'alpha'\n"_s + fixedItems(true, false) + u"alpha"_s},
        {"database+run", "",
         u"+ Stop Default Instance\n"_s + fixedItems(false, true) + u"database"_s},
        {"alpha+log+run beta+log", "",
         u"+ Stop Instance 'alpha'\n+ Start Instance 'beta'\n"_s + fixedItems(false, false)},
        {"alpha database+log zeta+run", "",
         u"+ Start Instance 'alpha'\n+ Start Default Instance\n+ Stop Instance 'zeta'\n"_s +
             fixedItems(true, false) + u"database"_s},
        // The search directory is itself a "database" instance holding another.
        {"database database/database+log", "database",
         u"+ Start Default Instance\n+ Start Default Instance\n"_s + fixedItems(true, false) +
             u"database/database"_s},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.instances);
        QTemporaryDir dir;
        home = QDir(dir.path()).canonicalPath();
        const QStringList instances =
            QString::fromUtf8(c.instances).split(u' ', Qt::SkipEmptyParts);
        for (const QString &instance : instances) {
            const QString path =
                addInstance(instance.section(u'+', 0, 0), instance.contains(u"+log"));
            if (instance.contains(u"+run")) {
                markRunning(path);
            }
        }
        searchIn(home + u'/' + QString::fromUtf8(c.searchIn));
        QString seen = open();  // and the default instance's directory
        if (const CorvantaInstancePtr chosen = defaultInstance()) {
            seen += QDir(home).relativeFilePath(chosen->directory());
        }
        EXPECT_EQ(seen, c.expected);
        EXPECT_EQ(timerRunning(), !instances.isEmpty());
        EXPECT_EQ(menu->actions().first()->data().isValid(), !instances.isEmpty());
    }
}

TEST_F(StatusMenu, ItemTitleAndActionFollowEveryServerStatus) {
    const QString dir = addInstance(u"R&D"_s);
    CorvantaInstance record(dir);
    QAction item;
    item.setData(QVariant::fromValue(CorvantaInstancePtr(new CorvantaInstance(dir))));
    prompt.answer = 0;
    QString seen;
    for (const qint32 status : std::initializer_list<qint32>{
             ServerStatusStopped, ServerStatusStarting, ServerStatusRunning, ServerStatusStopping,
             ServerStatusUnknown, 5, -1}) {
        record.setStatus(status);
        app.updateMenuItem(&item, &record);
        seen += (item.isEnabled() ? u"+ "_s : u"- "_s) + item.text() + u'\n';
        item.setEnabled(true);  // a disabled item must not act even so
        item.trigger();
    }
    EXPECT_EQ(seen,
              u"+ Start Instance 'R&&D'\n- Instance 'R&&D': Starting\n"
              "+ Stop Instance 'R&&D'\n- Instance 'R&&D': Stopping\n"
              "- Instance 'R&&D': Unknown\n- Instance 'R&&D': Unknown\n"
              "- Instance 'R&&D': Unknown\n"_s);
    EXPECT_EQ(prompt.asked.count(u"the Instance 'R&D'?"), 2);
}

TEST_F(StatusMenu, TicksRewriteInstanceItemsOnlyWhileOpen) {
    const QString dir = addInstance(u"alpha"_s);
    ASSERT_EQ(open(), u"+ Start Instance 'alpha'\n"_s + fixedItems(false, false));
    // The item follows within a tick or two; the list and fixed items stay.
    addInstance(u"beta"_s, true);
    markRunning(dir);
    EXPECT_TRUE(QTest::qWaitFor([&] { return item(u"Stop Instance 'alpha'"_s); }, 3000));
    EXPECT_EQ(describe(*menu), u"+ Stop Instance 'alpha'\n"_s + fixedItems(false, false));

    menu->hide();  // closed: nothing refreshes the item
    EXPECT_FALSE(timerRunning());
    QAction *first = menu->actions().first();
    const auto record = first->data().value<CorvantaInstancePtr>();
    record->setStatus(ServerStatusUnknown);
    app.updateMenuItem(first, record.get());
    QTest::qWait(3 * Application::MenuUpdateIntervalMs);
    EXPECT_EQ(first->text(), u"Instance 'alpha': Unknown"_s);
    EXPECT_EQ(open(),
              u"+ Stop Instance 'alpha'\n+ Start Instance 'beta'\n"_s + fixedItems(false, false));
}

TEST_F(StatusMenu, LostCloseStopsTickingAfterBoundedTime) {
    addInstance(u"alpha"_s);
    open();
    app.menuWillOpen(menu.get());  // a second opening without a close
    for (int tick = 1; tick < Application::MaxTicksPerOpening; ++tick) {
        app.menuTimerFired(menu.get());
    }
    EXPECT_TRUE(timerRunning());
    app.menuTimerFired(menu.get());
    EXPECT_FALSE(timerRunning());
    EXPECT_TRUE(menu->isVisible());
    open();  // counts afresh
    app.menuTimerFired(menu.get());
    EXPECT_TRUE(timerRunning());
}

TEST_F(StatusMenu, QuitKeyInOpenMenuEndsEventLoop) {
    // Exit code 7: nothing ended the loop.
    for (const auto &[keys, exitCode] : std::initializer_list<std::pair<QKeyCombination, int>>{
             {Qt::Key_Q, 0}, {Qt::CTRL | Qt::Key_Q, 0}, {Qt::Key_W, 7}, {Qt::ALT | Qt::Key_Q, 7}}) {
        SCOPED_TRACE(keys.toCombined());
        QTimer::singleShot(0, menu.get(), [&] {
            open();
            QTest::keyClick(menu.get(), keys.key(), keys.keyboardModifiers());
        });
        QTimer fallback;
        fallback.callOnTimeout([] { QCoreApplication::exit(7); });
        fallback.start(1500);
        EXPECT_EQ(QCoreApplication::exec(), exitCode);
    }
}

TEST_F(StatusMenu, InstanceInUnwritableDirectoryOffersNeitherStartNorStop) {
    const QString idle = addInstance(u"idle"_s);
    const QString busy = addInstance(u"busy"_s);
    QProcess server;  // a live process the reader may signal
    server.setChildProcessModifier([] {
        if (!becomeReader()) {
            ::_exit(126);
        }
    });
    server.start(u"sleep"_s, {u"60"_s});
    ASSERT_TRUE(server.waitForStarted());
    writeFile(busy + u"/corvanta.lck"_s, QByteArray::number(server.processId()));
    const QFile::Permissions readOnly = QFile::ReadOwner | QFile::ExeOwner | QFile::ReadGroup |
                                        QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther;
    for (const QString &dir : {tmp.path(), home, idle, busy}) {
        ASSERT_TRUE(QFile::setPermissions(dir, readOnly));
    }
    EXPECT_EQ(inChild([&] {
                  if (!becomeReader()) {
                      return QByteArray("cannot become a reader");
                  }
                  app.menuWillOpen(menu.get());
                  return describe(*menu).toUtf8();
              }),
              u"- Stop Instance 'busy'\n- Start Instance 'idle'\n"_s + fixedItems(false, false));
    for (const QString &dir : {tmp.path(), home, idle, busy}) {
        QFile::setPermissions(dir, readOnly | QFile::WriteOwner);
    }
    server.kill();
    server.waitForFinished();
}

TEST_F(StatusMenu, ServerStartsAndStopsOnlyWhenConfirmed) {
    qputenv("CORVANTA_BINARY", CORVANTA_STANDIN);
    qputenv("CORVANTA_STANDIN_PORT", "0");
    qputenv("CORVANTA_STANDIN_LOCK_DELAY_MS", "300");
    const QString dir = addInstance(u"database"_s);
    open();
    prompt.whileUp = [&] {
        EXPECT_TRUE(inModalDialog());
        // Opening the menu meanwhile shows it as it was, without ticks.
        const QString shown = describe(*menu);
        QAction *const first = menu->actions().first();
        EXPECT_EQ(open(), shown);
        EXPECT_EQ(menu->actions().first(), first);
        EXPECT_FALSE(timerRunning());
    };
    // The status right after the answer, the item on reopening, and what it becomes.
    const auto answerWith = [&](int answer, const QString &then) {
        prompt.answer = answer;
        menu->actions().first()->trigger();
        EXPECT_FALSE(inModalDialog());
        const auto record = menu->actions().first()->data().value<CorvantaInstancePtr>();
        QString seen = QString::number(record->serverStatus()) + u' ' + open().section(u'\n', 0, 0);
        EXPECT_TRUE(QTest::qWaitFor([&] { return item(then); }, 5000)) << then.toStdString();
        return seen;
    };
    EXPECT_EQ(answerWith(1001, u"Start Default Instance"_s), u"1 + Start Default Instance"_s);
    EXPECT_EQ(answerWith(1000, u"Stop Default Instance"_s), u"2 - Default Instance: Starting"_s);
    EXPECT_EQ(answerWith(0, u"Stop Default Instance"_s), u"3 + Stop Default Instance"_s);
    EXPECT_EQ(answerWith(1000, u"Start Default Instance"_s), u"4 - Default Instance: Stopping"_s);
    EXPECT_FALSE(QFile::exists(dir + u"/corvanta.lck"_s));
    const QString start =
        u"Do you want to start the Default Instance? | This will start up a "
        "Corvanta instance in directory\n%1. | Start | Cancel\n"_s.arg(dir);
    const QString stop =
        u"Do you want to stop the Default Instance? | This will stop the "
        "Corvanta instance in directory\n%1. | Stop | Cancel\n"_s.arg(dir);
    EXPECT_EQ(prompt.asked, start + start + stop + stop);
    if (QFile lock(dir + u"/corvanta.lck"_s); lock.open(QIODevice::ReadOnly)) {
        ::kill(lock.readAll().trimmed().toInt(), SIGTERM);  // left behind by a failure
    }
}

TEST_F(StatusMenu, StartAtLoginTogglesTheFirstEntryResolvingToTheProgram) {
    const QUrl self = app.packageUrl();
    QUrl slashed = self;
    slashed.setPath(slashed.path() + u'/');
    logins.items = {
        {u"unresolved"_s, std::nullopt}, {u"slashed"_s, slashed}, {u"b"_s, self}, {u"c"_s, self}};
    QString seen;
    for (int round = 0; round < 4; ++round) {
        open();
        QAction *toggle = item(u"Start Corvanta Monitor at Login"_s);
        seen += toggle->isChecked() ? u"[x] "_s : u"[ ] "_s;
        toggle->trigger();
        seen += logins.ids() + u'\n';
    }
    EXPECT_EQ(seen,
              u"[x] unresolved slashed c\n[x] unresolved slashed\n"
              "[ ] added unresolved slashed\n[x] unresolved slashed\n"_s);
    logins.readable = false;  // and is then left alone
    EXPECT_FALSE(Application::willStartAtLogin(self, logins));
    Application::setStartAtLogin(self, true, logins);
    EXPECT_EQ(logins.ids(), u"unresolved slashed"_s);
}

// Each case runs the set-up in a child with exactly the given environment; "@"
// stands for a fresh directory, "$" for the fallback installation in it.
TEST(InstallationEnvironment, ExportsTheInstallationFoundOrChangesNothing) {
    const struct {
        const char *tree;  // below "@", a directory when ending in "/"; "@/link" is "@/install"
        const char *env;
        const char *expected;  // the variables set, log and search lines of the child
    } cases[] = {
        {"install/lib/ install/bin/odbc.ini install/bin/odbcinst.ini",
         "CORVANTA_HOME=@/link PATH=/usr/bin:/bin LD_LIBRARY_PATH=/opt/x",
         "CORVANTA_HOME=@/install\nPATH=@/install/bin:/usr/bin:/bin\n"
         "LD_LIBRARY_PATH=@/install/lib:/opt/x\nODBCINI=@/install/bin/odbc.ini\n"
         "ODBCINSTINI=@/install/bin/odbcinst.ini\nsearch @/install\n"},
        {"$/bin/ file", "CORVANTA_HOME=@/file PATH=/usr/bin",
         "CORVANTA_HOME=$\nPATH=$/bin:/usr/bin\nsearch $\n"},
        {"$/bin/", "CORVANTA_HOME=@/missing", "CORVANTA_HOME=$\nPATH=$/bin\nsearch $\n"},
        {"", "PATH=/usr/bin ODBCINI=/etc/odbc.ini",
         "log Corvanta installation not found\nPATH=/usr/bin\nODBCINI=/etc/odbc.ini\n"},
        {"install/bin/ install/lib/", "CORVANTA_HOME=@/install LD_LIBRARY_PATH=",
         "CORVANTA_HOME=@/install\nPATH=@/install/bin\nLD_LIBRARY_PATH=@/install/lib:\n"
         "search @/install\n"},
        {"install/bin/odbc.ini install/bin/odbcinst.ini",
         "CORVANTA_HOME=@/install PATH= ODBCINI= ODBCINSTINI=/etc/my.ini",
         "CORVANTA_HOME=@/install\nPATH=@/install/bin:\nODBCINI=\nODBCINSTINI=/etc/my.ini\n"
         "search @/install\n"},
        {"install/bin/odbc.ini/ install/bin/odbcinst.ini", "CORVANTA_HOME=@/install",
         "CORVANTA_HOME=@/install\nPATH=@/install/bin\nODBCINSTINI=@/install/bin/odbcinst.ini\n"
         "search @/install\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.env);
        QTemporaryDir tmp;
        const QString root = QDir(tmp.path()).canonicalPath();
        const auto expand = [&](const char *text) {
            return QString::fromUtf8(text)
                .replace(u'$', root + u"/package/Contents/corvanta"_s)
                .replace(u'@', root);
        };
        ASSERT_TRUE(QFile::link(root + u"/install"_s, root + u"/link"_s));
        for (const QString &entry : expand(c.tree).split(u' ', Qt::SkipEmptyParts)) {
            const QString path = entry.startsWith(u'/') ? entry : root + u'/' + entry;
            ASSERT_TRUE(QDir().mkpath(path.endsWith(u'/') ? path : QFileInfo(path).path()));
            if (!path.endsWith(u'/')) {
                writeFile(path, "[x]\n");
            }
        }
        EXPECT_EQ(inChild([&] {
                      ::clearenv();
                      for (const QString &var : expand(c.env).split(u' ')) {
                          qputenv(var.section(u'=', 0, 0).toUtf8().constData(),
                                  var.section(u'=', 1).toUtf8());
                      }
                      QByteArray out;
                      setSystemLogSink(
                          [&](const QString &line) { out += "log " + line.toUtf8() + '\n'; });
                      ApplicationProbe probe;
                      probe.app.setPackageRoot(root + u"/package"_s);
                      probe.manager() = std::make_unique<CorvantaManager>();
                      probe.app.setupGlobalEnvironment();
                      for (const char *name :
                           {"CORVANTA_HOME", "PATH", "LD_LIBRARY_PATH", "ODBCINI", "ODBCINSTINI"}) {
                          if (const char *value = std::getenv(name)) {
                              out += QByteArray(name) + '=' + value + '\n';
                          }
                      }
                      for (const QString &path : probe.manager()->searchPaths()) {
                          out += "search " + path.toUtf8() + '\n';
                      }
                      return out;
                  }),
                  expand(c.expected));
    }
}

int main(int argc, char *argv[]) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication qapp(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

TEST_F(StatusMenu, LinksOpenFixedAddressesAndTheDefaultInstancesLog) {
    app.viewLogFile();  // no default instance yet
    const QString dir = addInstance(u"database"_s, true);
    markRunning(dir);
    open();
    item(u"Open Corvanta Kelvarine"_s)->trigger();
    item(u"View Online Documentation"_s)->trigger();
    item(u"Open Diagnostic Messages"_s)->trigger();
    QFile::remove(dir + u"/corvanta.log"_s);  // gone since the menu was built
    app.viewLogFile();
    EXPECT_EQ(opener.opened,
              u"http://localhost:8890/kelvarine/\n"
              "http://docs.nordelix.com/corvanta/\n"
              "file "_s +
                  dir + u"/corvanta.log\n"_s);
}
