#include "TestSupport.h"

#include <QByteArray>
#include <QFile>

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>

namespace testing_support {

namespace {

void check(bool ok, const QString &what) {
    if (!ok)
        throw std::runtime_error(what.toStdString() + ": " + std::strerror(errno));
}

}  // namespace

TempDir::TempDir() {
    const char *base = std::getenv("TMPDIR");
    QByteArray pattern = QByteArray(base && *base ? base : "/tmp") + "/registry-test-XXXXXX";
    check(::mkdtemp(pattern.data()) != nullptr, QStringLiteral("mkdtemp"));
    // Reachable for the unprivileged child of runUnprivileged.
    ::chmod(pattern.constData(), 0755);
    _path = QString::fromUtf8(pattern);
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(_path.toStdString(), ignored);
}

void writeFile(const QString &path, const QByteArray &content) {
    QFile file(path);
    check(file.open(QIODevice::WriteOnly | QIODevice::Truncate), QStringLiteral("open ") + path);
    check(file.write(content) == content.size(), QStringLiteral("write ") + path);
}

QByteArray readFile(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

void makeDir(const QString &path) {
    check(::mkdir(path.toUtf8().constData(), 0755) == 0, QStringLiteral("mkdir ") + path);
}

void makeLink(const QString &target, const QString &link) {
    check(::symlink(target.toUtf8().constData(), link.toUtf8().constData()) == 0,
          QStringLiteral("symlink ") + link);
}

void makeInstance(const QString &dir, const QByteArray &ini) {
    makeDir(dir);
    writeFile(dir + QStringLiteral("/corvanta.ini"), ini);
}

void setModificationTime(const QString &path, time_t seconds, long nanoseconds) {
    const struct timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    check(::utimensat(AT_FDCWD, path.toUtf8().constData(), times, AT_SYMLINK_NOFOLLOW) == 0,
          QStringLiteral("utimensat ") + path);
}

LogCapture::LogCapture() {
    setSystemLogSink([this](const QString &line) { _lines.append(line); });
}

LogCapture::~LogCapture() {
    setSystemLogSink({});
}

bool waitFor(const std::function<bool()> &done, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (done())
            return true;
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

Sleeper::Sleeper() {
    _pid = ::fork();
    check(_pid >= 0, QStringLiteral("fork"));
    if (_pid == 0) {
        for (;;)
            ::pause();
    }
}

Sleeper::~Sleeper() {
    ::kill(_pid, SIGKILL);
    ::waitpid(_pid, nullptr, 0);
}

pid_t deadPid() {
    const pid_t pid = ::fork();
    check(pid >= 0, QStringLiteral("fork"));
    if (pid == 0)
        ::_exit(0);
    ::waitpid(pid, nullptr, 0);
    return pid;
}

ProcessGuard::~ProcessGuard() {
    if (_pid <= 1)
        return;
    ::kill(_pid, SIGKILL);
    ::waitpid(_pid, nullptr, 0);  // fails harmlessly for a server that is not our child
}

bool processAlive(pid_t pid) {
    // A zombie child counts as gone.
    if (::waitpid(pid, nullptr, WNOHANG) == pid)
        return false;
    return ::kill(pid, 0) == 0;
}

pid_t startStandinDirectly(const QString &dir,
                           const std::vector<std::pair<std::string, std::string>> &env) {
    const QByteArray directory = dir.toUtf8();
    const QByteArray program = standinPath().toUtf8();
    const pid_t pid = ::fork();
    check(pid >= 0, QStringLiteral("fork"));
    if (pid == 0) {
        for (const auto &[name, value] : env)
            ::setenv(name.c_str(), value.c_str(), 1);
        if (::chdir(directory.constData()) != 0)
            ::_exit(127);
        ::execl(program.constData(), "corvanta", "-f", static_cast<char *>(nullptr));
        ::_exit(127);
    }
    return pid;
}

ScopedEnv::ScopedEnv(const char *name, const QString &value) : _name(name) {
    const char *old = std::getenv(name);
    _had = old != nullptr;
    if (_had)
        _old = old;
    ::setenv(name, value.toUtf8().constData(), 1);
}

ScopedEnv::ScopedEnv(const char *name, std::nullptr_t) : _name(name) {
    const char *old = std::getenv(name);
    _had = old != nullptr;
    if (_had)
        _old = old;
    ::unsetenv(name);
}

ScopedEnv::~ScopedEnv() {
    if (_had)
        ::setenv(_name.c_str(), _old.c_str(), 1);
    else
        ::unsetenv(_name.c_str());
}

bool isRoot() {
    return ::geteuid() == 0;
}

namespace {

std::string runForked(const std::function<std::string()> &body, bool dropPrivileges) {
    int fds[2];
    check(::pipe2(fds, O_CLOEXEC) == 0, QStringLiteral("pipe2"));
    const pid_t pid = ::fork();
    check(pid >= 0, QStringLiteral("fork"));
    if (pid == 0) {
        ::close(fds[0]);
        if (dropPrivileges && isRoot() &&
            (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0))
            ::_exit(2);
        const std::string answer = body();
        (void)!::write(fds[1], answer.data(), answer.size());
        ::_exit(0);
    }
    ::close(fds[1]);
    std::string answer;
    char buf[4096];
    ssize_t n;
    while ((n = ::read(fds[0], buf, sizeof buf)) > 0 || (n < 0 && errno == EINTR))
        if (n > 0)
            answer.append(buf, size_t(n));
    ::close(fds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return "crashed";
    return answer;
}

}  // namespace

std::string runUnprivileged(const std::function<std::string()> &body) {
    return runForked(body, true);
}

std::string runInChild(const std::function<std::string()> &body) {
    return runForked(body, false);
}

QString standinPath() {
    return QStringLiteral(CORVANTA_STANDIN);
}

}  // namespace testing_support
