#include "app/platform/DBusNotifier.h"

#include <QDBusConnection>
#include <QGuiApplication>

#include "../TestSupport.h"

namespace {

struct Recorded : Notifier {
    void notify(const QString &title, const QString &body, const QList<NotificationAction> &,
                std::function<void(const QString &)>) override {
        lines << title + " | " + body;
    }
    QStringList lines;
};

}  // namespace

// The recorder is the service on a private bus; once it has gone, the fallback shows what it
// would have.
TEST(Notifications, NotificationsReachTheServiceAndItsActionsComeBackOrTheFallbackShowsThem) {
    PrivateBus bus;
    if (bus.address.isEmpty())
        GTEST_SKIP() << "no dbus-daemon";
    QTemporaryDir tmp;
    QProcess recorder;
    qputenv("DBUS_SESSION_BUS_ADDRESS", bus.address.toUtf8());  // the recorder's session bus
    recorder.start(NOTIFICATION_RECORDER, {tmp.filePath("shown"), "--invoke-first-action"});
    ASSERT_TRUE(QTest::qWaitFor([&] { return recorder.canReadLine(); }, 10000));
    ASSERT_EQ(recorder.readLine(), "ready\n");
    const auto shown = [&] { return readFile(tmp.filePath("shown")); };

    QGuiApplication::setDesktopFileName("com.nordelix.CorvantaMonitor");
    Recorded fallback;
    DBusNotifier notifier(QDBusConnection::connectToBus(bus.address, "test"));
    notifier.setFallback(&fallback);
    QStringList chosen;
    notifier.notify("Default Instance stopped", "The server was killed by signal 9.\nmore",
                    {{"open-log", "Open Log"}, {"other", "Other"}},
                    [&](const QString &key) { chosen << key; });
    notifier.notify("plain", "no actions", {}, nullptr);
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return !chosen.isEmpty() && shown().count('\n') == 2; }, 10000));
    EXPECT_EQ(shown(),
              "Default Instance stopped | The server was killed by signal 9.\\nmore | "
              "open-log,other | com.nordelix.CorvantaMonitor\n"
              "plain | no actions |  | com.nordelix.CorvantaMonitor\n");
    EXPECT_EQ(chosen, QStringList{"open-log"});
    EXPECT_TRUE(QTest::qWaitFor([&] { return notifier.pendingCount() == 0; }, 10000));
    EXPECT_TRUE(fallback.lines.isEmpty());
    recorder.kill();
    recorder.waitForFinished();
    notifier.notify("title", "body", {{"k", "K"}}, [](const QString &) {});
    ASSERT_TRUE(QTest::qWaitFor([&] { return !fallback.lines.isEmpty(); }, 10000));
    EXPECT_EQ(fallback.lines, QStringList{"title | body"});
}

int main(int argc, char **argv) {
    return runTests<QCoreApplication>(argc, argv);
}
