#include "SingleInstance.h"

#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <cstring>

namespace {

// Names are full socket paths in a private directory so that parallel test
// runs and a monitor running on the same machine do not meet.
class SingleInstanceTest : public ::testing::Test {
protected:
    QTemporaryDir tmp;
    QString name() const { return tmp.path() + "/monitor"; }
};

TEST_F(SingleInstanceTest, SecondAcquireFailsWhileTheFirstLivesAndSucceedsAfter) {
    {
        SingleInstance first(name());
        ASSERT_TRUE(first.acquire());
        EXPECT_TRUE(first.acquire());  // asking again keeps the claim

        SingleInstance second(name());
        EXPECT_FALSE(second.acquire());

        // The refused probe must not have taken the first one's socket away.
        QLocalSocket probe;
        probe.connectToServer(name());
        EXPECT_TRUE(probe.waitForConnected(1000));
    }
    SingleInstance later(name());
    EXPECT_TRUE(later.acquire());
}

TEST_F(SingleInstanceTest, StaleSocketOfACrashedMonitorIsTakenOver) {
    // What a killed monitor leaves: a bound socket file nobody listens on.
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    const QByteArray path = QFile::encodeName(name());
    ASSERT_LT(static_cast<std::size_t>(path.size()), sizeof(addr.sun_path));
    std::memcpy(addr.sun_path, path.constData(), static_cast<std::size_t>(path.size()));
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)), 0);
    ::close(fd);
    ASSERT_TRUE(QFile::exists(name()));

    SingleInstance monitor(name());
    EXPECT_TRUE(monitor.acquire());
    SingleInstance second(name());
    EXPECT_FALSE(second.acquire());
}

TEST_F(SingleInstanceTest, DefaultNameIsPerUserAndPrefersTheRuntimeDirectory) {
    const QByteArray saved = qgetenv("XDG_RUNTIME_DIR");
    const QString uid = QString::number(::getuid());
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(tmp.path()));
    EXPECT_EQ(SingleInstance::defaultName(), tmp.path() + "/corvanta-monitor-" + uid);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(tmp.path() + "/missing"));
    EXPECT_EQ(SingleInstance::defaultName(), "corvanta-monitor-" + uid);
    qunsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(SingleInstance::defaultName(), "corvanta-monitor-" + uid);
    if (!saved.isNull()) {
        qputenv("XDG_RUNTIME_DIR", saved);
    }
}

}  // namespace
