#include "Fakes.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <grp.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

void PrintTo(const QString &text, std::ostream *out) {
    *out << '"' << text.toStdString() << '"';
}

namespace {

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

// Starts `program` as a user who may read the test's directories but not
// write them: "nobody" when running as root, else this user.
void runAsReader(QProcess &process, const QString &program, const QStringList &args) {
    if (::geteuid() == 0) {
        process.setChildProcessModifier([] {
            constexpr uid_t nobody = 65534;
            if (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0) {
                ::_exit(126);
            }
        });
    }
    process.start(program, args);
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
        for (QAction *item : menu->actions()) {
            if (item->text() == title) {
                return item;
            }
        }
        return nullptr;
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
    EXPECT_EQ(prompt.asked,
              u"Do you want to start the Instance 'R&D'? | This will start up a "
              "Corvanta instance in directory\n%1. | Start | Cancel\n"
              "Do you want to stop the Instance 'R&D'? | This will stop the "
              "Corvanta instance in directory\n%1. | Stop | Cancel\n"_s.arg(dir));
}

TEST_F(StatusMenu, TicksRewriteInstanceItemsOnlyWhileOpen) {
    const QString dir = addInstance(u"alpha"_s);
    ASSERT_EQ(open(), u"+ Start Instance 'alpha'\n"_s + fixedItems(false, false));
    // The item follows within a tick or two; the list and fixed items stay.
    addInstance(u"beta"_s, true);
    markRunning(dir);
    EXPECT_TRUE(QTest::qWaitFor([&] { return item(u"Stop Instance 'alpha'"_s); }, 3000));
    EXPECT_EQ(describe(*menu), u"+ Stop Instance 'alpha'\n"_s + fixedItems(false, false));

    menu->hide();
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
    const struct {
        Qt::Key key;
        Qt::KeyboardModifiers modifiers;
        int exitCode;  // 7: nothing ended the loop
    } cases[] = {{Qt::Key_Q, Qt::NoModifier, 0},
                 {Qt::Key_Q, Qt::ControlModifier, 0},
                 {Qt::Key_W, Qt::NoModifier, 7},
                 {Qt::Key_Q, Qt::AltModifier, 7}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.key + int(c.modifiers));
        QTimer::singleShot(0, menu.get(), [&] {
            open();
            QTest::keyClick(menu.get(), c.key, c.modifiers);
        });
        QTimer fallback;
        fallback.callOnTimeout([] { QCoreApplication::exit(7); });
        fallback.start(1500);
        EXPECT_EQ(QCoreApplication::exec(), c.exitCode);
    }
}

TEST_F(StatusMenu, InstanceInUnwritableDirectoryOffersNeitherStartNorStop) {
    const QString idle = addInstance(u"idle"_s);
    const QString busy = addInstance(u"busy"_s);
    QProcess server;  // a live process the reader may signal
    runAsReader(server, u"sleep"_s, {u"60"_s});
    ASSERT_TRUE(server.waitForStarted());
    writeFile(busy + u"/corvanta.lck"_s, QByteArray::number(server.processId()));
    const QFile::Permissions readOnly = QFile::ReadOwner | QFile::ExeOwner | QFile::ReadGroup |
                                        QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther;
    for (const QString &dir : {tmp.path(), home, idle, busy}) {
        ASSERT_TRUE(QFile::setPermissions(dir, readOnly));
    }
    QProcess probe;
    probe.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    runAsReader(probe, QCoreApplication::applicationFilePath(), {u"--menu-probe"_s, home});
    ASSERT_TRUE(probe.waitForFinished(30000));
    EXPECT_EQ(probe.exitCode(), 0);
    EXPECT_EQ(QString::fromUtf8(probe.readAllStandardOutput()),
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

TEST_F(StatusMenu, StartAtLoginRemovesTheFirstMatchOrAddsAtTheTop) {
    logins.items = {{u"a"_s, QUrl::fromLocalFile(u"/opt/x"_s)},
                    {u"b"_s, app.packageUrl()},
                    {u"c"_s, app.packageUrl()}};
    QString seen;
    for (int round = 0; round < 4; ++round) {
        open();
        QAction *toggle = item(u"Start Corvanta Monitor at Login"_s);
        ASSERT_TRUE(toggle->isCheckable());
        seen += toggle->isChecked() ? u"[x] "_s : u"[ ] "_s;
        toggle->trigger();
        seen += logins.ids() + u'\n';
    }
    EXPECT_EQ(seen, u"[x] a c\n[x] a\n[ ] added a\n[x] a\n"_s);
}

TEST_F(StatusMenu, StartAtLoginCountsOnlyReadableEntriesResolvingToTheProgram) {
    const QUrl self = app.packageUrl();
    QUrl slashed = self;
    slashed.setPath(slashed.path() + u'/');
    logins.items = {{u"unresolved"_s, std::nullopt}, {u"slashed"_s, slashed}};
    EXPECT_FALSE(Application::willStartAtLogin(self, logins));
    Application::setStartAtLogin(self, false, logins);
    Application::setStartAtLogin(slashed, false, logins);
    Application::setStartAtLogin(self, true, logins);
    Application::setStartAtLogin(self, true, logins);
    logins.readable = false;
    EXPECT_FALSE(Application::willStartAtLogin(self, logins));
    Application::setStartAtLogin(self, false, logins);
    EXPECT_EQ(logins.ids() + u" / removed "_s + logins.removed.join(u' '),
              u"added unresolved / removed slashed"_s);
}

// Each case runs the set-up in a child with exactly the given environment.
TEST(InstallationEnvironment, ExportsTheInstallationFoundOrChangesNothing) {
    const struct {
        const char *tree;  // below "@": a directory when ending in "/"; "link" -> "install"
        const char *env;
        const char *expected;  // the variables set, log and search lines of the child
    } cases[] = {
        {"install/lib/ install/bin/odbc.ini install/bin/odbcinst.ini",
         "CORVANTA_HOME=@/link PATH=/usr/bin:/bin LD_LIBRARY_PATH=/opt/x",
         "CORVANTA_HOME=@/install\nPATH=@/install/bin:/usr/bin:/bin\n"
         "LD_LIBRARY_PATH=@/install/lib:/opt/x\nODBCINI=@/install/bin/odbc.ini\n"
         "ODBCINSTINI=@/install/bin/odbcinst.ini\nsearch @/install\n"},
        {"package/Contents/corvanta/bin/ file", "CORVANTA_HOME=@/file PATH=/usr/bin",
         "CORVANTA_HOME=@/package/Contents/corvanta\nPATH=@/package/Contents/corvanta/bin:/usr/"
         "bin\n"
         "search @/package/Contents/corvanta\n"},
        {"package/Contents/corvanta/bin/", "CORVANTA_HOME=@/missing",
         "CORVANTA_HOME=@/package/Contents/corvanta\nPATH=@/package/Contents/corvanta/bin\n"
         "search @/package/Contents/corvanta\n"},
        {"", "PATH=/usr/bin ODBCINI=/etc/odbc.ini",
         "log Corvanta installation not found\nPATH=/usr/bin\nODBCINI=/etc/odbc.ini\n"},
        {"install/bin/ install/lib/", "CORVANTA_HOME=@/install LD_LIBRARY_PATH=",
         "CORVANTA_HOME=@/install\nPATH=@/install/bin\nLD_LIBRARY_PATH=@/install/lib:\n"
         "search @/install\n"},
        {"install/bin/ install/lib/", "CORVANTA_HOME=@/install PATH=",
         "CORVANTA_HOME=@/install\nPATH=@/install/bin:\nLD_LIBRARY_PATH=@/install/lib\n"
         "search @/install\n"},
        {"install/bin/odbc.ini", "CORVANTA_HOME=@/install ODBCINI= ODBCINSTINI=/etc/mine.ini",
         "CORVANTA_HOME=@/install\nPATH=@/install/bin\nODBCINI=\nODBCINSTINI=/etc/mine.ini\n"
         "search @/install\n"},
        {"install/bin/odbc.ini/ install/bin/odbcinst.ini", "CORVANTA_HOME=@/install",
         "CORVANTA_HOME=@/install\nPATH=@/install/bin\nODBCINSTINI=@/install/bin/odbcinst.ini\n"
         "search @/install\n"},
    };
    const QProcessEnvironment outer = QProcessEnvironment::systemEnvironment();
    for (const auto &c : cases) {
        SCOPED_TRACE(c.env);
        QTemporaryDir tmp;
        const QString root = QDir(tmp.path()).canonicalPath();
        ASSERT_TRUE(QFile::link(root + u"/install"_s, root + u"/link"_s));
        for (const QString &entry : QString::fromUtf8(c.tree).split(u' ', Qt::SkipEmptyParts)) {
            const QString path = root + u'/' + entry;
            ASSERT_TRUE(QDir().mkpath(entry.endsWith(u'/') ? path : QFileInfo(path).path()));
            if (!entry.endsWith(u'/')) {
                writeFile(path, "[x]\n");
            }
        }
        QProcessEnvironment env;  // and what the sanitizers need
        for (const QString &keep : {u"ASAN_OPTIONS"_s, u"UBSAN_OPTIONS"_s, u"LSAN_OPTIONS"_s}) {
            if (outer.contains(keep)) {
                env.insert(keep, outer.value(keep));
            }
        }
        for (const QString &var : QString::fromUtf8(c.env).split(u' ')) {
            env.insert(var.section(u'=', 0, 0), var.section(u'=', 1).replace(u'@', root));
        }
        QProcess child;
        child.setProcessEnvironment(env);
        child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        child.start(QCoreApplication::applicationFilePath(),
                    {u"--env-probe"_s, root + u"/package"_s});
        ASSERT_TRUE(child.waitForFinished(30000));
        EXPECT_EQ(child.exitCode(), 0);
        EXPECT_EQ(QString::fromUtf8(child.readAllStandardOutput()),
                  QString::fromUtf8(c.expected).replace(u'@', root));
    }
}
