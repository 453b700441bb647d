#pragma once

#include "Fakes.h"
#include "MenuText.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QMenu>
#include <QProcess>
#include <QTemporaryDir>

#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <vector>

inline void PrintTo(const QString &text, std::ostream *out) {
    *out << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QUrl &url, std::ostream *out) {
    *out << url.toString().toStdString();
}

inline void writeFile(const QString &path, const QByteArray &bytes) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    file.write(bytes);
}

// An installation directory in a temporary place, with an Application wired
// to fakes and a manager searching that directory (as the environment set-up
// would arrange).
class AppFixture : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(tmp.isValid());
        home = QDir(tmp.path()).canonicalPath();
        probe.manager() = std::make_unique<CorvantaManager>();
        probe.manager()->addSearchPath(home);
        app.setPackageRoot(home + QStringLiteral("/package"));
    }

    // An instance directory with a corvanta.ini; its path.
    QString addInstance(const QString &name, bool withLog = false) {
        const QString dir = home + QLatin1Char('/') + name;
        EXPECT_TRUE(QDir().mkpath(dir));
        writeFile(dir + QStringLiteral("/corvanta.ini"), "[database]\n");
        if (withLog) {
            writeFile(dir + QStringLiteral("/corvanta.log"), "started\n");
        }
        return dir;
    }

    // A lock file naming a live process that is no server (the monitor
    // never takes itself for one), so the instance reads as running.
    void markRunning(const QString &dir) {
        auto process = std::make_unique<QProcess>();
        process->start(QStringLiteral("sleep"), {QStringLiteral("60")});
        ASSERT_TRUE(process->waitForStarted());
        writeFile(dir + QStringLiteral("/corvanta.lck"), QByteArray::number(process->processId()));
        standIns.push_back(std::move(process));
    }

    QString open() {
        menu->popup(QPoint(0, 0));
        return describe(*menu);
    }

    std::vector<std::unique_ptr<QProcess>> standIns;  // killed and reaped on the way out
    QTemporaryDir tmp;
    QString home;
    FakeOpener opener;
    FakeLoginItems logins;
    FakePrompt prompt;
    Application app{opener, logins, prompt};
    ApplicationProbe probe{app};
    std::unique_ptr<QMenu> menu = app.createMenu();
};
