#include "app/MonitorPreferences.h"
#include "app/ServerTransitions.h"
#include "app/StatusIcon.h"
#include "app/StatusWatch.h"
#include "registry/CorvantaManager.h"
#include "registry/SystemLog.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QTemporaryDir>
#include <QTest>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct Shown {
    QString title, body;
    QStringList actions;  // keys
    std::function<void(const QString &)> onAction;
};

struct FakeDesktop : Notifier, DesktopOpener {
    void notify(const QString &title, const QString &body, const QList<NotificationAction> &actions,
                std::function<void(const QString &)> onAction) override {
        QStringList keys;
        for (const NotificationAction &action : actions) {
            keys << action.key;
        }
        shown.append({title, body, keys, std::move(onAction)});
    }
    bool openUrl(const QUrl &) override { return false; }
    bool openFile(const QString &path) override {
        opened << path;
        return true;
    }
    QList<Shown> shown;
    QStringList opened;
};

bool gone(qint32 pid) {
    return !QFile::exists(u"/proc/%1"_s.arg(pid));
}

}  // namespace

TEST(ServerTransitions, OnlyEndsNobodyHereAskedForAreTold) {
    constexpr qint32 Stopped = ServerStatusStopped, Starting = ServerStatusStarting,
                     Running = ServerStatusRunning, Stopping = ServerStatusStopping;
    const struct {
        qint32 before, after;
        ServerRequest request;
        ServerEvent event;
    } cases[] = {
        {Running, Stopped, ServerRequest::None, ServerEvent::Stopped},
        {Running, Stopped, ServerRequest::Start, ServerEvent::Stopped},
        {Running, Stopped, ServerRequest::Stop, ServerEvent::None},
        {Stopping, Stopped, ServerRequest::Stop, ServerEvent::None},
        {Starting, Stopped, ServerRequest::Start, ServerEvent::StartFailed},
        {Starting, Running, ServerRequest::Start, ServerEvent::None},
        {Stopped, Running, ServerRequest::None, ServerEvent::None},
        {ServerStatusUnknown, Stopped, ServerRequest::None, ServerEvent::None},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.before << "->" << c.after);
        EXPECT_EQ(classifyTransition(c.before, c.after, c.request), c.event);
    }
}

TEST(Preferences, NotificationsAreOnUnlessSetOff) {
    QTemporaryDir tmp;
    const QString file = tmp.filePath(u"monitor.ini"_s);
    QStringList log;
    setSystemLogSink([&](const QString &line) { log << line; });
    const struct {
        const char *content;
        bool wanted;
    } cases[] = {
        {nullptr, true},
        {"[monitor]\nnotifications=off\n", false},
        {"[monitor]\nnotifications = Off\n", false},
        {"[other]\nnotifications=off\n", true},
        {"[monitor]\nnotifications=maybe\n", true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.content ? c.content : "no file");
        QFile::remove(file);
        if (c.content) {
            QFile out(file);
            ASSERT_TRUE(out.open(QIODevice::WriteOnly));
            out.write(c.content);
        }
        EXPECT_EQ(notificationsWanted(file), c.wanted);
    }
    setSystemLogSink({});
    EXPECT_EQ(log, QStringList{file + u": notifications=maybe is neither on nor off; "
                                      "notifications stay on"_s});
}

TEST(LogTail, LastLinesOfABoundedReadAndNothingFromOtherFiles) {
    QTemporaryDir tmp;
    const QString log = tmp.filePath(u"corvanta.log"_s);
    QFile file(log);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    for (int i = 1; i <= 2000; ++i) {
        file.write("line " + QByteArray::number(i) + '\n');
    }
    file.close();
    EXPECT_EQ(readLogTail(log, 4096, 3), u"line 1998\nline 1999\nline 2000"_s);
    EXPECT_EQ(readLogTail(log, 12, 5), u"line 2000"_s);  // the cut first line is dropped
    const QString fifo = tmp.filePath(u"fifo"_s);
    ASSERT_EQ(::mkfifo(fifo.toUtf8().constData(), 0600), 0);
    EXPECT_EQ(readLogTail(fifo, 4096, 5), QString());  // and does not block
    EXPECT_EQ(readLogTail(tmp.path(), 4096, 5), QString());
}

// Each state differs from every other by its badge's shape, also in the monochrome form;
// CORVANTA_ICON_MONTAGE names a PNG to which the states are drawn, 16 and 32 px, scaled up.
TEST(StatusIconStates, DifferByShapeAtEverySize) {
    const IconState states[] = {IconState::Unknown, IconState::Stopped, IconState::Transition,
                                IconState::Running};
    for (const int size : {16, 22, 32, 48}) {
        for (const bool mono : {false, true}) {
            for (int a = 0; a < 4; ++a) {
                const QImage first = drawStatusIcon(size, states[a], 1, mono).toImage();
                EXPECT_EQ(first.size(), QSize(size, size));
                for (int b = a + 1; b < 4; ++b) {
                    // The monochrome form can only differ in shape.
                    EXPECT_NE(first, drawStatusIcon(size, states[b], 1, mono).toImage())
                        << size << " " << a << " " << b << " " << mono;
                }
            }
        }
    }
    EXPECT_EQ(drawStatusIcon(16, IconState::Running, 2).size(), QSize(32, 32));
    EXPECT_EQ(drawStatusIcon(16, IconState::Running, 2).deviceIndependentSize(), QSizeF(16, 16));

    const QString montage = qEnvironmentVariable("CORVANTA_ICON_MONTAGE");
    if (montage.isEmpty()) {
        return;
    }
    // Rows: light panel, dark panel, light monochrome, dark monochrome; 16 px then 32 px.
    constexpr int cell = 136, scale = 4;
    QImage out(cell * 8, cell * 4, QImage::Format_ARGB32);
    QPainter painter(&out);
    const QColor panels[] = {QColor(0xf0, 0xf0, 0xf0), QColor(0x20, 0x20, 0x24)};
    for (int row = 0; row < 4; ++row) {
        painter.fillRect(0, row * cell, cell * 8, cell, panels[row % 2]);
        for (int column = 0; column < 8; ++column) {
            const int size = column < 4 ? 16 : 32;
            const QImage icon = drawStatusIcon(size, states[column % 4], 1, row >= 2).toImage();
            const int shown = size * (size == 16 ? scale * 2 : scale);
            painter.drawImage(QRect(column * cell + (cell - shown) / 2,
                                    row * cell + (cell - shown) / 2, shown, shown),
                              icon);
        }
    }
    painter.end();
    EXPECT_TRUE(out.save(montage));
}

// Real stand-in servers in a real instance directory; the notifier and the prompt are fakes.
class Watch : public ::testing::Test {
protected:
    void SetUp() override {
        setSystemLogSink([](const QString &) {});
        qputenv("CORVANTA_BINARY", CORVANTA_STANDIN);
        qputenv("CORVANTA_STANDIN_PORT", "0");
        ASSERT_TRUE(QDir().mkpath(dir));
        QFile ini(dir + u"/corvanta.ini"_s);
        ASSERT_TRUE(ini.open(QIODevice::WriteOnly));
        manager.addSearchPath(home);
        watch.setStopTimeout(std::chrono::milliseconds(300));
        connect();
    }
    void TearDown() override {
        if (record && record->pid() > 1 && !gone(record->pid())) {
            ::kill(record->pid(), SIGKILL);
        }
        setSystemLogSink({});
    }
    void connect() {
        QObject::connect(&watch, &StatusWatch::iconStateChanged,
                         [this](IconState state) { icons.append(state); });
    }
    // What an opening of the menu does: list, choose the default, hand over.
    void opening() {
        const QList<CorvantaInstancePtr> instances = manager.allInstances();
        record = instances.value(0);
        watch.instancesListed(instances, record);
    }
    bool until(const std::function<bool()> &done) { return QTest::qWaitFor(done, 20000); }
    qint32 status() const { return record->serverStatus(); }

    QTemporaryDir tmp;
    QString home = QDir(tmp.path()).canonicalPath();
    QString dir = home + u"/database"_s;
    CorvantaManager manager;
    FakeDesktop desktop;
    QStringList asked;
    bool confirmAnswer = true;
    StatusWatch watch{desktop, desktop,
                      [this](const QString &message, const QString &, const QString &) {
                          asked << message;
                          return confirmAnswer;
                      }};
    CorvantaInstancePtr record;
    QList<IconState> icons;
};

TEST_F(Watch, ServerKilledFromOutsideIsToldOnceWithItsSignal) {
    opening();
    EXPECT_EQ(watch.iconState(), IconState::Stopped);
    ASSERT_TRUE(record->startup());
    watch.startRequested(record);
    ASSERT_TRUE(until([&] { return status() == ServerStatusRunning; }));
    const qint32 pid = record->pid();
    ::kill(pid, SIGKILL);
    ASSERT_TRUE(until([&] { return status() == ServerStatusStopped; }));
    EXPECT_TRUE(gone(pid));
    ASSERT_EQ(desktop.shown.size(), 1);
    EXPECT_EQ(desktop.shown[0].title, u"Default Instance stopped"_s);
    EXPECT_EQ(desktop.shown[0].body, u"The server was killed by signal 9."_s);
    EXPECT_EQ(desktop.shown[0].actions, QStringList{u"open-log"_s});
    desktop.shown[0].onAction(u"open-log"_s);
    EXPECT_EQ(desktop.opened, QStringList{dir + u"/corvanta.log"_s});
    EXPECT_EQ(icons, QList<IconState>({IconState::Stopped, IconState::Transition,
                                       IconState::Running, IconState::Stopped}));
}

TEST_F(Watch, FailedStartIsToldWithExitStatusAndLogTail) {
    qputenv("CORVANTA_STANDIN_EXIT_AT_ONCE", "1");
    opening();
    ASSERT_TRUE(record->startup());
    watch.startRequested(record);
    qunsetenv("CORVANTA_STANDIN_EXIT_AT_ONCE");
    ASSERT_TRUE(until([&] { return !desktop.shown.isEmpty(); }));
    EXPECT_EQ(status(), ServerStatusStopped);
    EXPECT_EQ(desktop.shown[0].title, u"Default Instance failed to start"_s);
    const QStringList body = desktop.shown[0].body.split(u'\n');
    ASSERT_EQ(body.size(), 4) << desktop.shown[0].body.toStdString();
    EXPECT_EQ(body[0], u"The server exited with status 3."_s);
    EXPECT_EQ(body[1], u"Last lines of its log:"_s);
    EXPECT_TRUE(body[3].endsWith(u"exiting at once (CORVANTA_STANDIN_EXIT_AT_ONCE)"_s));
    EXPECT_EQ(desktop.shown.size(), 1);
}

TEST_F(Watch, StopThatHangsOffersForceStopAfterConfirmation) {
    qputenv("CORVANTA_STANDIN_IGNORE_TERM", "1");
    opening();
    ASSERT_TRUE(record->startup());
    qunsetenv("CORVANTA_STANDIN_IGNORE_TERM");
    watch.startRequested(record);
    ASSERT_TRUE(until([&] { return status() == ServerStatusRunning; }));
    const qint32 pid = record->pid();
    ASSERT_TRUE(record->shutdown());
    watch.stopRequested(record);
    ASSERT_TRUE(until([&] { return !desktop.shown.isEmpty(); }));
    ASSERT_EQ(desktop.shown.size(), 1);
    EXPECT_EQ(desktop.shown[0].title, u"Default Instance has not stopped"_s);
    EXPECT_EQ(desktop.shown[0].actions, QStringList{u"force-stop"_s});
    EXPECT_EQ(watch.iconState(), IconState::Transition);

    confirmAnswer = false;  // declined: nothing happens
    desktop.shown[0].onAction(u"force-stop"_s);
    EXPECT_EQ(asked, QStringList{u"Do you want to force the Default Instance to stop?"_s});
    EXPECT_FALSE(gone(pid));
    confirmAnswer = true;
    desktop.shown[0].onAction(u"force-stop"_s);
    ASSERT_TRUE(until([&] { return status() == ServerStatusStopped; }));
    EXPECT_TRUE(gone(pid));  // killed and reaped: no zombie
    EXPECT_EQ(watch.iconState(), IconState::Stopped);
    EXPECT_EQ(desktop.shown.size(), 1);  // a stop that was asked for is not told again
}

TEST_F(Watch, NothingIsToldForARequestedStopOrWhenSwitchedOff) {
    opening();
    ASSERT_TRUE(record->startup());
    watch.startRequested(record);
    ASSERT_TRUE(until([&] { return status() == ServerStatusRunning; }));
    ASSERT_TRUE(record->shutdown());
    watch.stopRequested(record);
    ASSERT_TRUE(until([&] { return status() == ServerStatusStopped; }));
    watch.setNotificationsEnabled(false);
    ASSERT_TRUE(record->startup());
    watch.startRequested(record);
    ASSERT_TRUE(until([&] { return status() == ServerStatusRunning; }));
    ::kill(record->pid(), SIGKILL);
    ASSERT_TRUE(until([&] { return status() == ServerStatusStopped; }));
    EXPECT_EQ(desktop.shown.size(), 0);
    EXPECT_EQ(watch.iconState(), IconState::Stopped);
}

int main(int argc, char *argv[]) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication qapp(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
