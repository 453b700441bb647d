#include "app/tray/MonitorPreferences.h"
#include "app/tray/ServerTransitions.h"
#include "app/tray/StatusIcon.h"
#include "app/tray/StatusReporter.h"
#include "registry/InstanceModel.h"
#include "registry/SystemLog.h"

#include <QImage>
#include <QImageReader>
#include <QRegularExpression>

#include "TrayProbe.h"

// What no server run reaches here or in e2e.tray: kills, clean stops and failed starts do.
TEST(ServerTransitions, OnlyUnexpectedEndsAndFailedStartsAreTold) {
    using R = ServerRequest;
    constexpr qint32 Stopped = ServerStatusStopped, Running = ServerStatusRunning,
                     Stopping = ServerStatusStopping, Unknown = ServerStatusUnknown;
    EXPECT_EQ(classifyTransition(Running, Stopped, R::Start, true), ServerEvent::Stopped);
    EXPECT_EQ(classifyTransition(Stopping, Stopped, R::None, true), ServerEvent::Stopped);
    EXPECT_EQ(classifyTransition(Running, Stopped, R::Stop, true), ServerEvent::None);
    EXPECT_EQ(classifyTransition(Unknown, Stopped, R::None, true), ServerEvent::None);
}

TEST(Preferences, NotificationsAreOnUnlessSetOff) {
    QTemporaryDir tmp;
    const QString file = tmp.filePath(u"monitor.ini"_s);
    QStringList log;
    setSystemLogSink([&](const QString &line) { log << line; });
    EXPECT_TRUE(notificationsWanted(file));  // no file
    const std::pair<const char *, bool> cases[] = {{"[monitor]\nnotifications = Off\n", false},
                                                   {"[other]\nnotifications=off\n", true},
                                                   {"[monitor]\nnotifications=maybe\n", true}};
    for (const auto &[content, wanted] : cases) {
        writeFile(file, content);
        EXPECT_EQ(notificationsWanted(file), wanted) << content;
    }
    setSystemLogSink({});
    EXPECT_EQ(log, QStringList{file + u": notifications=maybe is neither on nor off; "
                                      "notifications stay on"_s});
}

TEST(LogTail, LastLinesOfABoundedReadAndNothingFromOtherFiles) {
    QTemporaryDir tmp;
    const QString log = tmp.filePath(u"corvanta.log"_s);
    writeFile(log, "line 1\nline 2\nline 3\nline 4\n");
    EXPECT_EQ(readLogTail(log, 4096, 3), u"line 2\nline 3\nline 4"_s);
    EXPECT_EQ(readLogTail(log, 10, 5), u"line 4"_s);  // the cut first line is dropped
    const QString fifo = tmp.filePath(u"fifo"_s);
    ASSERT_EQ(::mkfifo(fifo.toUtf8().constData(), 0600), 0);
    EXPECT_EQ(readLogTail(fifo, 4096, 5), QString());  // and does not block
    EXPECT_EQ(readLogTail(tmp.path(), 4096, 5), QString());
}

// Each state differs from every other by its badge's shape, also in the one-colour variant.
TEST(StatusIconStates, DifferByShapeAtEverySize) {
    QTemporaryDir dir;
    ASSERT_TRUE(writeStatusIcons(dir.path(), 64));
    for (const int size : {16, 22, 32, 48}) {
        for (const bool symbolic : {false, true}) {
            QList<QImage> drawn;
            for (const IconState state : {IconState::Unknown, IconState::Stopped,
                                          IconState::Transition, IconState::Running}) {
                QImageReader svg(dir.filePath(statusIconName(state, true) + u".svg"_s));
                svg.setScaledSize({size, size});
                drawn << (symbolic ? svg.read() : drawStatusIcon(size, state).toImage());
                EXPECT_EQ(drawn.last().size(), QSize(size, size))
                    << svg.errorString().toStdString();
                EXPECT_EQ(drawn.count(drawn.last()), 1) << size << ' ' << int(state) << symbolic;
            }
        }
    }
    EXPECT_EQ(drawStatusIcon(16, IconState::Running, 2).size(), QSize(32, 32));
    EXPECT_EQ(drawStatusIcon(16, IconState::Running, 2).deviceIndependentSize(), QSizeF(16, 16));
}

// Real stand-in servers in a real instance directory, listed as an opening of the menu lists
// them; the notifier and the prompt are fakes.
class StatusReporting : public ::testing::Test {
protected:
    void SetUp() override {
        setSystemLogSink([](const QString &) {});
        qputenv("CORVANTA_BINARY", CORVANTA_STANDIN);
        qputenv("CORVANTA_STANDIN_PORT", "0");
        writeFile(dir + u"/corvanta.ini"_s, {});
        model.setSearchPaths({home});
        watch.setStopTimeout(std::chrono::milliseconds(300));
        model.rescan();
        record = model.instances().value(0);
        ASSERT_TRUE(record);
    }
    void TearDown() override {
        // Every server a case started runs in the instance directory, whatever the record knows.
        for (const QString &entry : QDir(u"/proc"_s).entryList(QDir::Dirs)) {
            const int pid = entry.toInt();
            if (pid > 1 && QFile::symLinkTarget(u"/proc/%1/cwd"_s.arg(pid)) == dir) {
                ::kill(pid, SIGKILL);
            }
        }
        setSystemLogSink({});
    }
    // Starts the server as a confirmed menu item does; `knob` is set for the stand-in alone.
    void start(const char *knob, const char *value = "1") {
        const ScopedEnv set(knob, QString::fromUtf8(value));
        ASSERT_TRUE(record->startup());
        watch.startRequested(record);
    }
    // The n-th notification, once it has come.
    QString told(qsizetype n) {
        EXPECT_TRUE(QTest::qWaitFor([&] { return desktop.shown.size() >= n; }, 20000));
        return desktop.shown.value(n - 1);
    }
    static bool gone(qint32 pid) { return !QFile::exists(u"/proc/%1"_s.arg(pid)); }
    bool reaches(qint32 status) {
        return QTest::qWaitFor([&] { return record->serverStatus() == status; }, 20000);
    }

    QTemporaryDir tmp;
    QString home = QDir(tmp.path()).canonicalPath();
    QString dir = home + u"/database"_s;
    InstanceModel model;
    FakeDesktop desktop;
    StatusReporter watch{model, desktop, desktop,
                         [this](const QString &message, const QString &text, const QString &yes) {
                             return desktop.confirm(message, text, yes, u"Cancel"_s);
                         }};
    CorvantaInstancePtr record;
};

// One instance through every way a server ends. A kill's wording, that it is told once, and the
// icon after it are e2e.tray's; here the actions, and that no end is told wrongly.
TEST_F(StatusReporting, FailedStartsKillsAndHungStopsAreToldOnceWithTheirAction) {
    const QRegularExpression failed(
        u"^Default Instance failed to start \\| The server exited with status 3\\.\nLast lines of "
        "its log:\n(.*\n)+.*exiting at once \\(CORVANTA_STANDIN_EXIT_AT_ONCE\\) \\| open-log$"_s);
    start("CORVANTA_STANDIN_EXIT_AT_ONCE");
    EXPECT_TRUE(failed.match(told(1)).hasMatch()) << desktop.shown.value(0).toStdString();
    EXPECT_EQ(record->serverStatus(), ServerStatusStopped);
    desktop.answers[0](u"open-log"_s);
    EXPECT_EQ(desktop.calls, u"file %1/corvanta.log\n"_s.arg(dir));

    watch.setNotificationsEnabled(false);
    start("CORVANTA_STANDIN_PORT", "0");
    ASSERT_TRUE(reaches(ServerStatusRunning));
    const qint32 killed = record->pid();
    ::kill(killed, SIGKILL);
    ASSERT_TRUE(reaches(ServerStatusStopped));
    ASSERT_TRUE(QTest::qWaitFor([&] { return gone(killed); }, 20000));  // else not yet stale
    watch.setNotificationsEnabled(true);

    // The killed server's lock file is still there, and the record follows the dead pid it names
    // until a new server writes its own: a failed start is told all the same, and the wait for
    // the lock file of one that runs is no stop to tell.
    start("CORVANTA_STANDIN_EXIT_AT_ONCE");
    EXPECT_TRUE(failed.match(told(2)).hasMatch()) << desktop.shown.value(1).toStdString();
    EXPECT_EQ(record->serverStatus(), ServerStatusStopped);
    const ScopedEnv hangs("CORVANTA_STANDIN_IGNORE_TERM", u"1"_s);
    start("CORVANTA_STANDIN_LOCK_DELAY_MS", "1000");
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return record->serverStatus() == ServerStatusRunning && !gone(record->pid()); },
        20000));

    // Only the hang is told: the stop itself was asked for.
    const qint32 pid = record->pid();
    ASSERT_TRUE(record->shutdown());
    watch.stopRequested(record);
    EXPECT_TRUE(told(3).startsWith(u"Default Instance has not stopped | "_s));
    EXPECT_TRUE(desktop.shown.value(2).endsWith(u" | force-stop"_s));
    EXPECT_EQ(watch.iconState(), IconState::Transition);
    desktop.answer = false;  // declined: nothing happens
    desktop.answers[2](u"force-stop"_s);
    EXPECT_TRUE(desktop.calls.contains(
        u"\nDo you want to force the Default Instance to stop? | This sends signal 9 to process %1 "_s
            .arg(pid)));
    EXPECT_FALSE(gone(pid));
    desktop.answer = true;
    desktop.answers[2](u"force-stop"_s);
    ASSERT_TRUE(reaches(ServerStatusStopped));
    EXPECT_TRUE(gone(pid));  // killed and reaped: no zombie
    EXPECT_EQ(watch.iconState(), IconState::Stopped);
    EXPECT_EQ(desktop.shown.size(), 3);
}
