#pragma once
// What the Qt suites share: files, environment, forked children and their main().

#include <QtCore/qtestsupport_core.h>
#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <optional>
#include <type_traits>

using namespace Qt::StringLiterals;

inline void PrintTo(const QString &text, std::ostream *out) {
    *out << '"' << text.toStdString() << '"';
}

// Creates the parent directories too.
inline void writeFile(const QString &path, const QByteArray &bytes) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size())
        << path.toStdString();
}

inline QByteArray readFile(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline int openDescriptors() {
    return int(QDir(u"/proc/self/fd"_s).entryList(QDir::NoDotAndDotDot | QDir::System).size());
}

struct ScopedEnv {
    ScopedEnv(const char *name, const std::optional<QString> &value)
        : name(name), old(qgetenv(name)), was(qEnvironmentVariableIsSet(name)) {
        value ? qputenv(name, value->toUtf8()) : qunsetenv(name);
    }
    ~ScopedEnv() { was ? qputenv(name, old) : qunsetenv(name); }
    const char *name;
    QByteArray old;
    bool was;
};

// Root may write anywhere, so as root this becomes "nobody"; other users stay.
inline void becomeReader() {
    constexpr uid_t nobody = 65534;
    if (::geteuid() == 0 &&
        (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0)) {
        ::_exit(126);
    }
}

// What `body` answers in a forked child, which must end well within 20 s.
inline QByteArray inChild(const std::function<QByteArray()> &body) {
    int fds[2];
    EXPECT_EQ(::pipe2(fds, O_CLOEXEC), 0);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::alarm(20);
        const QByteArray out = body();
        ::_exit(::write(fds[1], out.constData(), size_t(out.size())) == out.size() ? 0 : 1);
    }
    ::close(fds[1]);
    QFile pipe;
    pipe.open(fds[0], QIODevice::ReadOnly, QFile::AutoCloseHandle);
    const QByteArray out = pipe.readAll();
    int status = -1;
    EXPECT_TRUE(::waitpid(pid, &status, 0) == pid && status == 0) << status;
    return out;
}

// A session bus of the test's own (private-bus.conf). `address` stays empty when no daemon
// could be had (the caller skips); the daemon ends with the object.
struct PrivateBus {
    PrivateBus() {
        daemon.start(u"dbus-daemon"_s, {u"--config-file=" PRIVATE_BUS_CONFIG ""_s, u"--nofork"_s,
                                        u"--print-address=1"_s});
        if (daemon.waitForStarted() &&
            QTest::qWaitFor([&] { return daemon.canReadLine(); }, 10000)) {
            address = QString::fromUtf8(daemon.readLine().trimmed());
        }
    }
    ~PrivateBus() {
        daemon.kill();
        daemon.waitForFinished();
    }
    QProcess daemon;
    QString address;
};

// GUI suites run offscreen unless told otherwise, also while ctest lists them.
template <class App>
int runTests(int argc, char **argv) {
    if (!std::is_same_v<App, QCoreApplication> && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    App app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
