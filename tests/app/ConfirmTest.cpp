#include "TestSupport.h"
#include "app/MessageBoxPrompt.h"

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <signal.h>
#include <sys/wait.h>

namespace {

// Starting and stopping run the stand-in server for real.
class Confirmation : public AppFixture {
protected:
    void SetUp() override {
        AppFixture::SetUp();
        qputenv("CORVANTA_BINARY", CORVANTA_STANDIN);
        qputenv("CORVANTA_STANDIN_PORT", "0");
        qputenv("CORVANTA_STANDIN_LOCK_DELAY_MS", "300");
    }

    void TearDown() override {
        // Whatever server a test left behind goes, and is reaped.
        for (const QString &lock : lockFiles) {
            QFile file(lock);
            if (file.open(QIODevice::ReadOnly)) {
                const pid_t pid = file.readAll().trimmed().toInt();
                if (pid > 0 && pid != getpid()) {
                    kill(pid, SIGTERM);
                }
            }
        }
        QTest::qWait(100);
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
    }

    QString lockOf(const QString &dir) {
        lockFiles << dir + QStringLiteral("/corvanta.lck");
        return lockFiles.last();
    }

    // The item the menu now shows first, after ticks have had their chance.
    bool firstItemBecomes(const QString &title) {
        return QTest::qWaitFor([&] { return menu->actions().first()->text() == title; }, 5000);
    }

    QStringList lockFiles;
};

}  // namespace

TEST_F(Confirmation, ConfirmedStartAndStopRunTheServer) {
    const QString dir = addInstance(QStringLiteral("database"));
    const QString lock = lockOf(dir);
    open();
    const QString before = describe(*menu);
    QAction *start = findItem(*menu, QStringLiteral("Start Default Instance"));
    ASSERT_TRUE(start);
    const auto record = start->data().value<CorvantaInstancePtr>();

    bool flagWhileUp = false;
    bool timerWhileUp = true;
    prompt.whileUp = [&] {
        flagWhileUp = probe.inModalDialog();
        // Opening the menu meanwhile shows it as it was.
        menu->hide();
        open();
        timerWhileUp = probe.timerRunning();
    };
    start->trigger();
    EXPECT_TRUE(flagWhileUp);
    EXPECT_FALSE(timerWhileUp);
    EXPECT_FALSE(probe.inModalDialog());
    EXPECT_EQ(describe(*menu), before);
    EXPECT_EQ(menu->actions().first(), start);
    ASSERT_EQ(prompt.calls.size(), 1);
    EXPECT_EQ(prompt.calls[0].message,
              QStringLiteral("Do you want to start the Default Instance?"));
    EXPECT_EQ(prompt.calls[0].informative,
              QStringLiteral("This will start up a Corvanta instance in directory\n") + dir +
                  QStringLiteral("."));
    EXPECT_EQ(prompt.calls[0].first, QStringLiteral("Start"));
    EXPECT_EQ(prompt.calls[0].second, QStringLiteral("Cancel"));
    EXPECT_EQ(record->serverStatus(), ServerStatusStarting);

    // Reopened while the server has not written its lock file yet.
    menu->hide();
    EXPECT_EQ(open().section(QLatin1Char('\n'), 0, 0),
              QStringLiteral("- Default Instance: Starting"));
    EXPECT_TRUE(firstItemBecomes(QStringLiteral("Stop Default Instance")));
    EXPECT_TRUE(QFile::exists(lock));

    prompt.whileUp = nullptr;
    menu->actions().first()->trigger();
    ASSERT_EQ(prompt.calls.size(), 2);
    EXPECT_EQ(prompt.calls[1].message, QStringLiteral("Do you want to stop the Default Instance?"));
    EXPECT_EQ(prompt.calls[1].informative,
              QStringLiteral("This will stop the Corvanta instance in directory\n") + dir +
                  QStringLiteral("."));
    EXPECT_EQ(prompt.calls[1].first, QStringLiteral("Stop"));
    EXPECT_EQ(record->serverStatus(), ServerStatusStopping);
    EXPECT_FALSE(probe.inModalDialog());
    EXPECT_TRUE(firstItemBecomes(QStringLiteral("Start Default Instance")));
    EXPECT_FALSE(QFile::exists(lock));
}

TEST_F(Confirmation, CancelledStartLaunchesNothing) {
    const QString dir = addInstance(QStringLiteral("alpha"));
    const QString lock = lockOf(dir);
    open();
    QAction *start = menu->actions().first();
    prompt.answer = 1001;
    start->trigger();
    ASSERT_EQ(prompt.calls.size(), 1);
    EXPECT_EQ(prompt.calls[0].message,
              QStringLiteral("Do you want to start the Instance 'alpha'?"));
    EXPECT_FALSE(probe.inModalDialog());
    const auto record = start->data().value<CorvantaInstancePtr>();
    EXPECT_EQ(record->serverStatus(), ServerStatusStopped);
    QTest::qWait(600);
    EXPECT_FALSE(QFile::exists(lock));
    EXPECT_EQ(start->text(), QStringLiteral("Start Instance 'alpha'"));
}

TEST_F(Confirmation, DeclinedStopLeavesServerRunning) {
    const QString dir = addInstance(QStringLiteral("alpha"));
    const QString lock = lockOf(dir);
    open();
    const auto record = menu->actions().first()->data().value<CorvantaInstancePtr>();
    ASSERT_TRUE(record->startup());
    ASSERT_TRUE(firstItemBecomes(QStringLiteral("Stop Instance 'alpha'")));

    prompt.answer = 0;  // neither button: the window was closed
    menu->actions().first()->trigger();
    EXPECT_EQ(prompt.calls.size(), 1);
    EXPECT_FALSE(probe.inModalDialog());
    QTest::qWait(600);
    EXPECT_EQ(record->serverStatus(), ServerStatusRunning);
    EXPECT_TRUE(QFile::exists(lock));
}

namespace {

// Runs the real prompt, hands the box to `act` once it is up, and answers
// what runModal returned.
int withMessageBox(const std::function<void(QMessageBox &)> &act) {
    QTimer::singleShot(0, [act] {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            auto *box = qobject_cast<QMessageBox *>(widget);
            if (box && box->isVisible()) {
                EXPECT_EQ(QApplication::activeModalWidget(), box);
                act(*box);
                return;
            }
        }
        ADD_FAILURE() << "no message box up";
    });
    MessageBoxPrompt prompt;
    return prompt.runModal(QStringLiteral("Do you want to start the <b>x</b>?"),
                           QStringLiteral("directory\n/srv/<i>db</i>."), QStringLiteral("Start"),
                           QStringLiteral("Cancel"));
}

}  // namespace

TEST(MessageBoxPrompt, FirstButtonIsDefaultAndMeansYes) {
    const int answer = withMessageBox([](QMessageBox &box) {
        const QList<QAbstractButton *> buttons = box.buttons();
        ASSERT_EQ(buttons.size(), 2);
        EXPECT_EQ(buttons[0]->text(), QStringLiteral("Start"));
        EXPECT_EQ(buttons[1]->text(), QStringLiteral("Cancel"));
        EXPECT_EQ(box.buttonRole(buttons[0]), QMessageBox::AcceptRole);
        EXPECT_EQ(box.buttonRole(buttons[1]), QMessageBox::RejectRole);
        EXPECT_EQ(box.defaultButton(), buttons[0]);
        EXPECT_EQ(box.escapeButton(), buttons[1]);
        EXPECT_TRUE(box.isModal());
        EXPECT_TRUE(box.windowFlags().testFlag(Qt::WindowStaysOnTopHint));
        EXPECT_EQ(box.text(), QStringLiteral("Do you want to start the <b>x</b>?"));
        EXPECT_EQ(box.textFormat(), Qt::PlainText);
        EXPECT_EQ(box.informativeText(), QStringLiteral("directory\n/srv/<i>db</i>."));
        for (const QLabel *label : box.findChildren<QLabel *>()) {
            if (label->text() == box.informativeText()) {
                EXPECT_EQ(label->textFormat(), Qt::PlainText);
            }
        }
        QTest::keyClick(&box, Qt::Key_Return);
    });
    EXPECT_EQ(answer, AlertFirstButtonReturn);
}

TEST(MessageBoxPrompt, CancelEscapeAndClosingMeanNo) {
    EXPECT_EQ(withMessageBox([](QMessageBox &box) { box.buttons()[1]->click(); }),
              AlertSecondButtonReturn);
    EXPECT_EQ(withMessageBox([](QMessageBox &box) { QTest::keyClick(&box, Qt::Key_Escape); }),
              AlertSecondButtonReturn);
    EXPECT_EQ(withMessageBox([](QMessageBox &box) { box.close(); }), AlertSecondButtonReturn);
}
