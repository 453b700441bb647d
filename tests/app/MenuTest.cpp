#include "TestSupport.h"

#include <QCoreApplication>
#include <QTest>
#include <QTimer>

#include <grp.h>
#include <unistd.h>

namespace {

const QString kFixedWithoutDefault = QStringLiteral(
    "----\n"
    "- Open Diagnostic Messages\n"
    "- Open Corvanta Kelvarine\n"
    "+ View Online Documentation\n"
    "----\n"
    "+ Start Corvanta Monitor at Login\n"
    "+ Quit Corvanta Monitor\n");

}  // namespace

using StatusMenu = AppFixture;

TEST_F(StatusMenu, WithoutInstancesShowsPlaceholderAndStartsNoTimer) {
    EXPECT_EQ(open(), QStringLiteral("- No Corvanta Instances\n") + kFixedWithoutDefault);
    EXPECT_FALSE(probe.timerRunning());
    EXPECT_FALSE(probe.defaultInstance());
    EXPECT_FALSE(findItem(*menu, QStringLiteral("No Corvanta Instances"))->data().isValid());
}

TEST_F(StatusMenu, OnlyInstanceIsDefaultAndOffersItsLog) {
    const QString dir = addInstance(QStringLiteral("alpha"), /*withLog=*/true);
    EXPECT_EQ(open(), QStringLiteral("+ Start Instance 'alpha'\n"
                                     "----\n"
                                     "+ Open Diagnostic Messages\n"
                                     "- Open Corvanta Kelvarine\n"
                                     "+ View Online Documentation\n"
                                     "----\n"
                                     "+ Start Corvanta Monitor at Login\n"
                                     "+ Quit Corvanta Monitor\n"));
    ASSERT_TRUE(probe.defaultInstance());
    EXPECT_EQ(probe.defaultInstance()->directory(), dir);
    EXPECT_TRUE(probe.timerRunning());

    const auto record = menu->actions().first()->data().value<CorvantaInstancePtr>();
    EXPECT_EQ(record, probe.defaultInstance());

    findItem(*menu, QStringLiteral("Open Diagnostic Messages"))->trigger();
    EXPECT_EQ(opener.files, QStringList{dir + QStringLiteral("/corvanta.log")});
}

TEST_F(StatusMenu, RunningDefaultInstanceOffersStopAndConsole) {
    markRunning(addInstance(QStringLiteral("database")));
    EXPECT_EQ(open(), QStringLiteral("+ Stop Default Instance\n"
                                     "----\n"
                                     "- Open Diagnostic Messages\n"
                                     "+ Open Corvanta Kelvarine\n"
                                     "+ View Online Documentation\n"
                                     "----\n"
                                     "+ Start Corvanta Monitor at Login\n"
                                     "+ Quit Corvanta Monitor\n"));
    findItem(*menu, QStringLiteral("Open Corvanta Kelvarine"))->trigger();
    findItem(*menu, QStringLiteral("View Online Documentation"))->trigger();
    EXPECT_EQ(opener.urls,
              (QList<QUrl>{QUrl(QStringLiteral("http://localhost:8890/kelvarine/")),
                           QUrl(QStringLiteral("http://docs.nordelix.com/corvanta/"))}));
}

TEST_F(StatusMenu, SeveralInstancesWithoutDefaultLeaveDefaultItemsOff) {
    markRunning(addInstance(QStringLiteral("alpha"), true));
    addInstance(QStringLiteral("beta"), true);
    EXPECT_EQ(open(), QStringLiteral("+ Stop Instance 'alpha'\n"
                                     "+ Start Instance 'beta'\n") +
                          kFixedWithoutDefault);
    EXPECT_FALSE(probe.defaultInstance());
    EXPECT_TRUE(probe.timerRunning());
}

TEST_F(StatusMenu, DefaultInstanceIsChosenAmongSeveral) {
    addInstance(QStringLiteral("alpha"));
    const QString database = addInstance(QStringLiteral("database"), true);
    addInstance(QStringLiteral("zeta"));
    EXPECT_EQ(open(), QStringLiteral("+ Start Instance 'alpha'\n"
                                     "+ Start Default Instance\n"
                                     "+ Start Instance 'zeta'\n"
                                     "----\n"
                                     "+ Open Diagnostic Messages\n"
                                     "- Open Corvanta Kelvarine\n"
                                     "+ View Online Documentation\n"
                                     "----\n"
                                     "+ Start Corvanta Monitor at Login\n"
                                     "+ Quit Corvanta Monitor\n"));
    ASSERT_TRUE(probe.defaultInstance());
    EXPECT_EQ(probe.defaultInstance()->directory(), database);
}

TEST_F(StatusMenu, LaterOfTwoDefaultInstancesWins) {
    // The search directory is itself an instance named "database" and holds
    // another one of that name.
    const QString outer = addInstance(QStringLiteral("database"));
    const QString inner = addInstance(QStringLiteral("database/database"), true);
    probe.manager() = std::make_unique<CorvantaManager>();
    probe.manager()->addSearchPath(outer);

    EXPECT_EQ(open(), QStringLiteral("+ Start Default Instance\n"
                                     "+ Start Default Instance\n"
                                     "----\n"
                                     "+ Open Diagnostic Messages\n"
                                     "- Open Corvanta Kelvarine\n"
                                     "+ View Online Documentation\n"
                                     "----\n"
                                     "+ Start Corvanta Monitor at Login\n"
                                     "+ Quit Corvanta Monitor\n"));
    ASSERT_TRUE(probe.defaultInstance());
    EXPECT_EQ(probe.defaultInstance()->directory(), inner);
}

TEST_F(StatusMenu, ItemTitleAndActionFollowEveryServerStatus) {
    const QString dir = addInstance(QStringLiteral("R&D"));
    CorvantaInstance record(dir);
    ASSERT_TRUE(record.isValid());
    QAction item;
    item.setData(QVariant::fromValue(CorvantaInstancePtr(new CorvantaInstance(dir))));
    prompt.answer = 0;  // every confirmation is declined

    struct Case {
        qint32 status;
        QString title;
        QString offers;  // the confirmation the item asks for, if any
    };
    const QList<Case> cases = {
        {ServerStatusStopped, QStringLiteral("Start Instance 'R&&D'"), QStringLiteral("Start")},
        {ServerStatusStarting, QStringLiteral("Instance 'R&&D': Starting"), QString()},
        {ServerStatusRunning, QStringLiteral("Stop Instance 'R&&D'"), QStringLiteral("Stop")},
        {ServerStatusStopping, QStringLiteral("Instance 'R&&D': Stopping"), QString()},
        {ServerStatusUnknown, QStringLiteral("Instance 'R&&D': Unknown"), QString()},
        {5, QStringLiteral("Instance 'R&&D': Unknown"), QString()},
        {-1, QStringLiteral("Instance 'R&&D': Unknown"), QString()},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.status);
        record.setStatus(c.status);
        app.updateMenuItem(&item, &record);
        EXPECT_EQ(item.text(), c.title);
        EXPECT_EQ(item.isEnabled(), !c.offers.isEmpty());

        // A disabled item must not act even when something enables it.
        prompt.calls.clear();
        item.setEnabled(true);
        item.trigger();
        if (c.offers.isEmpty()) {
            EXPECT_TRUE(prompt.calls.isEmpty());
        } else {
            ASSERT_EQ(prompt.calls.size(), 1);
            EXPECT_EQ(prompt.calls.first().first, c.offers);
        }
    }
}

TEST_F(StatusMenu, TicksRewriteInstanceItemsOnlyWhileOpen) {
    const QString dir = addInstance(QStringLiteral("alpha"));
    ASSERT_EQ(open().section(QLatin1Char('\n'), 0, 0), QStringLiteral("+ Start Instance 'alpha'"));
    ASSERT_TRUE(probe.timerRunning());

    // Appear while open: the instance item follows within a tick or two, the
    // fixed items and the list stay as they were built.
    addInstance(QStringLiteral("beta"));
    markRunning(dir);
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return menu->actions().first()->text() == QStringLiteral("Stop Instance 'alpha'"); },
        3000));
    EXPECT_EQ(describe(*menu), QStringLiteral("+ Stop Instance 'alpha'\n"
                                              "----\n"
                                              "- Open Diagnostic Messages\n"
                                              "- Open Corvanta Kelvarine\n"
                                              "+ View Online Documentation\n"
                                              "----\n"
                                              "+ Start Corvanta Monitor at Login\n"
                                              "+ Quit Corvanta Monitor\n"));

    // Closed: nothing refreshes the item any more.
    menu->hide();
    EXPECT_FALSE(probe.timerRunning());
    QAction *item = menu->actions().first();
    const auto record = item->data().value<CorvantaInstancePtr>();
    record->setStatus(ServerStatusUnknown);
    app.updateMenuItem(item, record.get());
    QTest::qWait(3 * Application::MenuUpdateIntervalMs);
    EXPECT_EQ(item->text(), QStringLiteral("Instance 'alpha': Unknown"));

    EXPECT_EQ(open(), QStringLiteral("+ Stop Instance 'alpha'\n"
                                     "+ Start Instance 'beta'\n") +
                          kFixedWithoutDefault);
}

TEST_F(StatusMenu, LostCloseStopsTickingAfterBoundedTime) {
    addInstance(QStringLiteral("alpha"));
    open();
    ASSERT_TRUE(probe.timerRunning());
    for (int tick = 1; tick < Application::MaxTicksPerOpening; ++tick) {
        app.menuTimerFired(menu.get());
    }
    EXPECT_TRUE(probe.timerRunning());
    app.menuTimerFired(menu.get());
    EXPECT_FALSE(probe.timerRunning());
    EXPECT_TRUE(menu->isVisible());  // no close was ever reported

    // The next opening counts afresh.
    menu->hide();
    open();
    EXPECT_TRUE(probe.timerRunning());
    app.menuTimerFired(menu.get());
    EXPECT_TRUE(probe.timerRunning());
}

TEST_F(StatusMenu, ReopeningWithoutCloseKeepsOneTimer) {
    addInstance(QStringLiteral("alpha"));
    app.menuWillOpen(menu.get());
    app.menuWillOpen(menu.get());
    EXPECT_TRUE(probe.timerRunning());
    app.menuDidClose(menu.get());
    EXPECT_FALSE(probe.timerRunning());
}

namespace {

// Opens the menu from inside the event loop, presses a key there and
// answers the loop's exit code (7 when nothing ended it).
int pressInOpenMenu(QMenu &menu, Qt::Key key, Qt::KeyboardModifiers modifiers) {
    menu.hide();
    QTimer::singleShot(0, &menu, [&menu, key, modifiers] {
        menu.popup(QPoint(0, 0));
        QTest::keyClick(&menu, key, modifiers);
    });
    QTimer fallback;
    fallback.setSingleShot(true);
    QObject::connect(&fallback, &QTimer::timeout, [] { QCoreApplication::exit(7); });
    fallback.start(1500);
    return QCoreApplication::exec();
}

}  // namespace

TEST_F(StatusMenu, QuitKeyInOpenMenuEndsEventLoop) {
    EXPECT_EQ(pressInOpenMenu(*menu, Qt::Key_Q, Qt::NoModifier), 0);
    EXPECT_FALSE(menu->isVisible());
    EXPECT_EQ(describe(*menu).count(QStringLiteral("Quit Corvanta Monitor")), 1);
}

TEST_F(StatusMenu, CtrlQuitKeyInOpenMenuEndsEventLoop) {
    EXPECT_EQ(pressInOpenMenu(*menu, Qt::Key_Q, Qt::ControlModifier), 0);
}

TEST_F(StatusMenu, OtherKeysDoNotQuit) {
    EXPECT_EQ(pressInOpenMenu(*menu, Qt::Key_W, Qt::NoModifier), 7);
    EXPECT_EQ(pressInOpenMenu(*menu, Qt::Key_Q, Qt::AltModifier), 7);
}

namespace {

// Runs `argv` as a user who may read the test's directories but not write
// them: "nobody" when the tests run as root (root may write anywhere),
// otherwise this user, with the directories made read-only.
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

}  // namespace

TEST_F(StatusMenu, InstanceInUnwritableDirectoryOffersNeitherStartNorStop) {
    const QString idle = addInstance(QStringLiteral("idle"));
    const QString busy = addInstance(QStringLiteral("busy"));
    QProcess server;  // alive and signalable by the reader: stands for a running server
    runAsReader(server, QStringLiteral("sleep"), {QStringLiteral("60")});
    ASSERT_TRUE(server.waitForStarted());
    writeFile(busy + QStringLiteral("/corvanta.lck"), QByteArray::number(server.processId()));

    const QFile::Permissions readOnly = QFile::ReadOwner | QFile::ExeOwner | QFile::ReadGroup |
                                        QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther;
    for (const QString &dir : {QDir(tmp.path()).path(), home, idle, busy}) {
        ASSERT_TRUE(QFile::setPermissions(dir, readOnly));
    }
    QProcess probe;
    probe.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    runAsReader(probe, QStringLiteral(APP_MENU_PROBE), {home});
    ASSERT_TRUE(probe.waitForFinished(30000));
    EXPECT_EQ(probe.exitCode(), 0);
    EXPECT_EQ(QString::fromUtf8(probe.readAllStandardOutput()),
              QStringLiteral("- Stop Instance 'busy'\n"
                             "- Start Instance 'idle'\n") +
                  kFixedWithoutDefault);

    for (const QString &dir : {QDir(tmp.path()).path(), home, idle, busy}) {
        QFile::setPermissions(dir, readOnly | QFile::WriteOwner);
    }
    server.kill();
    server.waitForFinished();
}
