#include "LinuxPlatform.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

namespace {

// Replaces xdg-open, which the desktop services call without a desktop
// session, by a script that waits for a go-ahead and then records its
// arguments: the opener must have returned long before.
class DesktopOpenerTest : public ::testing::Test {
protected:
    static inline QTemporaryDir tmp;
    static inline QByteArray savedPath;

    static void SetUpTestSuite() {
        if (QGuiApplication::platformName() != u"xcb") {
            return;
        }
        QFile script(tmp.path() + "/xdg-open");
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write(
            "#!/bin/sh\n"
            "i=0\n"
            "while [ ! -e \"$OPEN_DIR/go\" ] && [ $i -lt 100 ]; do sleep 0.1; i=$((i+1)); done\n"
            "printf '%s\\n' \"$@\" >> \"$OPEN_DIR/record.tmp\"\n"
            "mv \"$OPEN_DIR/record.tmp\" \"$OPEN_DIR/record\"\n");
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        savedPath = qgetenv("PATH");
        qputenv("PATH", QFile::encodeName(tmp.path()) + ":" + savedPath);
        qputenv("OPEN_DIR", QFile::encodeName(tmp.path()));
    }
    static void TearDownTestSuite() { qputenv("PATH", savedPath); }

    void SetUp() override {
        // Only desktop platforms hand URLs on; ctest runs this suite again
        // on an X server of its own.
        if (QGuiApplication::platformName() != u"xcb") {
            GTEST_SKIP() << "needs the xcb platform";
        }
        QFile::remove(tmp.path() + "/go");
        QFile::remove(tmp.path() + "/record");
    }

    // What the script recorded once released, or "<nothing>" after 10 s.
    static QByteArray releaseAndRead() {
        QFile go(tmp.path() + "/go");
        EXPECT_TRUE(go.open(QIODevice::WriteOnly));
        QFile record(tmp.path() + "/record");
        for (QDeadlineTimer deadline(10000); !deadline.hasExpired(); QThread::msleep(20)) {
            if (record.open(QIODevice::ReadOnly)) {
                return record.readAll();
            }
        }
        return "<nothing>";
    }
};

TEST_F(DesktopOpenerTest, OpensTheConsoleUrlWithoutWaitingForTheHandler) {
    QtDesktopOpener opener;
    ASSERT_TRUE(opener.openUrl(QUrl("http://localhost:8890/kelvarine/")));
    EXPECT_FALSE(QFile::exists(tmp.path() + "/record"));
    EXPECT_EQ(releaseAndRead(), "http://localhost:8890/kelvarine/\n");
}

TEST_F(DesktopOpenerTest, OpensAFileAsALocalFileUrl) {
    QtDesktopOpener opener;
    ASSERT_TRUE(opener.openFile("/srv/my db/corvanta.log"));
    EXPECT_EQ(releaseAndRead(), "file:///srv/my%20db/corvanta.log\n");
}

TEST_F(DesktopOpenerTest, RefusesNothingToOpen) {
    QtDesktopOpener opener;
    EXPECT_FALSE(opener.openUrl(QUrl()));
    EXPECT_FALSE(opener.openFile(QString()));
}

}  // namespace
