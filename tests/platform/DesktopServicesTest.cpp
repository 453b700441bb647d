#include "LinuxPlatform.h"
#include "SingleInstance.h"
#include "Translations.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QGuiApplication>
#include <QLocalSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QTranslator>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// Full socket paths in a private directory keep parallel runs and a real
// monitor apart.
TEST(SingleInstanceTest, SecondAcquireFailsWhileTheFirstLivesAndSucceedsAfter) {
    QTemporaryDir tmp;
    const QString name = tmp.path() + "/monitor";
    {
        SingleInstance first(name);
        ASSERT_TRUE(first.acquire());
        EXPECT_TRUE(first.acquire());
        EXPECT_FALSE(SingleInstance(name).acquire());
        // The refused probe must leave the first one's socket in place.
        QLocalSocket probe;
        probe.connectToServer(name);
        EXPECT_TRUE(probe.waitForConnected(1000));
    }
    EXPECT_TRUE(SingleInstance(name).acquire());
}

TEST(SingleInstanceTest, StaleSocketOfAKilledMonitorIsTakenOver) {
    QTemporaryDir tmp;
    const QString name = tmp.path() + "/monitor";
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    qstrncpy(addr.sun_path, QFile::encodeName(name).constData(), sizeof(addr.sun_path));
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)), 0);
    ::close(fd);  // bound, never listening
    SingleInstance monitor(name);
    EXPECT_TRUE(monitor.acquire());
    EXPECT_FALSE(SingleInstance(name).acquire());
}

QString tr(const char *context, const char *text) {
    return QCoreApplication::translate(context, text);
}

TEST(TranslationsTest, GermanIsEmbeddedAndEnglishIsTheFallback) {
    ASSERT_TRUE(installTranslations(*qApp, QLocale(QLocale::German, QLocale::Germany)));
    EXPECT_EQ(tr("Application", "Start %1").arg(tr("CorvantaInstance", "Default Instance")),
              "Standardinstanz starten");
    EXPECT_EQ(tr("Application", "%1: Stopping")
                  .arg(tr("CorvantaInstance", "Instance '%1'").arg("analytics")),
              "Instanz „analytics“: Wird beendet");
    EXPECT_EQ(
        tr("Application", "This will stop the Corvanta instance in directory\n%1.").arg("/srv/db"),
        "Dadurch wird die Corvanta-Instanz im Verzeichnis\n/srv/db beendet.");
    qDeleteAll(qApp->findChildren<QTranslator *>());

    EXPECT_FALSE(installTranslations(*qApp, QLocale(QLocale::English, QLocale::UnitedStates)));
    EXPECT_EQ(tr("Application", "Start %1").arg("Default Instance"), "Start Default Instance");
}

// Without a desktop session the opener runs xdg-open: this one records its
// arguments only after a go-ahead, so the opener must not wait for it.
QByteArray releaseAndRead(const QString &dir) {
    QFile go(dir + "/go");
    EXPECT_TRUE(go.open(QIODevice::WriteOnly));
    QFile record(dir + "/record");
    QByteArray recorded = "<nothing>";
    for (QDeadlineTimer deadline(10000); !deadline.hasExpired(); QThread::msleep(20)) {
        if (record.open(QIODevice::ReadOnly)) {
            recorded = record.readAll();
            break;
        }
    }
    go.remove();
    record.remove();
    return recorded;
}

TEST(DesktopOpenerTest, HandsUrlsAndFilesToTheDesktopWithoutWaiting) {
    // Only desktop platforms hand URLs on; ctest runs this once more on Xvfb.
    if (QGuiApplication::platformName() != u"xcb") {
        GTEST_SKIP() << "needs the xcb platform";
    }
    QTemporaryDir tmp;
    QFile script(tmp.path() + "/xdg-open");
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write(
        "#!/bin/sh\ni=0\n"
        "while [ ! -e \"$OPEN_DIR/go\" ] && [ $i -lt 100 ]; do sleep 0.1; i=$((i+1)); "
        "done\nprintf '%s\\n' \"$@\" > \"$OPEN_DIR/record.tmp\"\n"
        "mv \"$OPEN_DIR/record.tmp\" \"$OPEN_DIR/record\"\n");
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    qputenv("PATH", QFile::encodeName(tmp.path()) + ":" + qgetenv("PATH"));
    qputenv("OPEN_DIR", QFile::encodeName(tmp.path()));

    QtDesktopOpener opener;
    EXPECT_FALSE(opener.openUrl(QUrl()));
    EXPECT_FALSE(opener.openFile(QString()));
    ASSERT_TRUE(opener.openUrl(QUrl("http://localhost:8890/kelvarine/")));
    EXPECT_FALSE(QFile::exists(tmp.path() + "/record"));
    EXPECT_EQ(releaseAndRead(tmp.path()), "http://localhost:8890/kelvarine/\n");
    ASSERT_TRUE(opener.openFile("/srv/my db/corvanta.log"));
    EXPECT_EQ(releaseAndRead(tmp.path()), "file:///srv/my%20db/corvanta.log\n");
}

}  // namespace

// Translators need an application object, the opener a GUI one.
int main(int argc, char **argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
