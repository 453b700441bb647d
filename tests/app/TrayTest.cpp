#include "TestSupport.h"
#include "app/StatusIcon.h"
#include "app/TerminationSignals.h"
#include "registry/SystemLog.h"

#include <QImage>
#include <QTest>
#include <QTimer>

#include <signal.h>

namespace {

class LogCapture {
public:
    LogCapture() {
        setSystemLogSink([this](const QString &line) { lines << line; });
    }
    ~LogCapture() { setSystemLogSink({}); }
    QStringList lines;
};

}  // namespace

TEST(ApplicationLaunch, PutsUpStatusItemAndScansNothing) {
    QTemporaryDir package;
    ASSERT_TRUE(package.isValid());
    qunsetenv("CORVANTA_HOME");
    LogCapture log;
    FakeOpener opener;
    FakeLoginItems logins;
    FakePrompt prompt;
    Application app(opener, logins, prompt);
    app.setPackageRoot(package.path());
    ApplicationProbe probe{app};
    EXPECT_FALSE(probe.statusItem());

    app.applicationDidFinishLaunching();
    ASSERT_TRUE(probe.statusItem());
    EXPECT_EQ(probe.statusItem()->toolTip(), QStringLiteral("Nordelix Corvanta"));
    EXPECT_FALSE(probe.statusItem()->icon().isNull());
    EXPECT_EQ(probe.statusItem()->contextMenu(), probe.menu());
    EXPECT_TRUE(probe.menu()->actions().isEmpty());
    EXPECT_FALSE(probe.defaultInstance());
    EXPECT_FALSE(probe.timerRunning());
    ASSERT_TRUE(probe.manager());
    EXPECT_TRUE(probe.manager()->searchPaths().isEmpty());
    EXPECT_EQ(log.lines.count(QStringLiteral("Corvanta installation not found")), 1);
    EXPECT_EQ(logins.snapshots, 0);

    // A left click opens the same menu as the context click.
    emit probe.statusItem()->activated(QSystemTrayIcon::Trigger);
    EXPECT_TRUE(probe.menu()->isVisible());
    EXPECT_EQ(probe.menu()->actions().first()->text(), QStringLiteral("No Corvanta Instances"));
    probe.menu()->hide();
    emit probe.statusItem()->activated(QSystemTrayIcon::DoubleClick);
    EXPECT_FALSE(probe.menu()->isVisible());
}

TEST(TrayWatch, WithoutTrayKeepsWaitingAndLogsOnce) {
    LogCapture log;
    QSystemTrayIcon icon(makeStatusIcon());
    bool available = false;
    TrayWatch watch(
        icon, [&available] { return available; }, std::chrono::milliseconds(10));
    watch.start();
    EXPECT_TRUE(watch.isWaiting());
    QTest::qWait(60);
    EXPECT_TRUE(watch.isWaiting());
    EXPECT_EQ(log.lines.size(), 1);

    available = true;
    EXPECT_TRUE(QTest::qWaitFor([&] { return !watch.isWaiting(); }, 2000));
    EXPECT_TRUE(icon.isVisible());
    EXPECT_EQ(log.lines.size(), 1);
}

TEST(TrayWatch, WithTrayShowsAtOnceWithoutPolling) {
    LogCapture log;
    QSystemTrayIcon icon(makeStatusIcon());
    TrayWatch watch(
        icon, [] { return true; }, std::chrono::milliseconds(10));
    watch.start();
    EXPECT_FALSE(watch.isWaiting());
    EXPECT_TRUE(icon.isVisible());
    EXPECT_TRUE(log.lines.isEmpty());
}

TEST(StatusIcon, LetterCReadsOnLightAndDarkPanels) {
    for (const int size : {16, 22, 32, 64}) {
        SCOPED_TRACE(size);
        const QImage image = drawStatusIcon(size).toImage();
        ASSERT_EQ(image.size(), QSize(size, size));
        const auto lightness = [&image](double x, double y) {
            return image.pixelColor(int(x), int(y)).lightness();
        };
        const double mid = size / 2.0;
        EXPECT_EQ(image.pixelColor(0, 0).alpha(), 0);             // round, not square
        EXPECT_GT(lightness(mid, 0.4), 180);                      // light rim: dark panels
        EXPECT_LT(lightness(size * 0.15, mid - size * 0.2), 90);  // dark disc: light panels
        EXPECT_GT(lightness(size * 0.3, mid), 200);               // the letter's left stroke
        EXPECT_LT(lightness(mid, mid), 90);                       // hollow
        EXPECT_LT(lightness(size * 0.72, mid), 90);  // open to the right: a C, not an O
        EXPECT_GT(lightness(mid, size * 0.3), 200);  // top stroke
    }
}

TEST(TerminationSignals, TerminationEndsEventLoopLikeQuit) {
    for (const int sig : {SIGTERM, SIGINT, SIGHUP}) {
        SCOPED_TRACE(sig);
        TerminationSignals watch;
        ASSERT_TRUE(watch.isActive());
        QTimer::singleShot(0, [sig] { ::raise(sig); });
        QTimer fallback;
        QObject::connect(&fallback, &QTimer::timeout, [] { QCoreApplication::exit(7); });
        fallback.start(2000);
        EXPECT_EQ(QCoreApplication::exec(), 0);
    }
}
