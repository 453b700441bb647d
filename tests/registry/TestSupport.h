#pragma once

#include "registry/SystemLog.h"

#include <QString>
#include <QStringList>

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

// Readable gtest failure output for Qt strings.
inline void PrintTo(const QString &text, std::ostream *os) {
    *os << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QStringList &list, std::ostream *os) {
    *os << "{\n";
    for (const QString &text : list)
        *os << "  \"" << text.toStdString() << "\"\n";
    *os << "}";
}

namespace testing_support {

// A fresh directory under $TMPDIR, removed with everything in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const QString &path() const { return _path; }
    QString operator/(const QString &name) const { return _path + u'/' + name; }

private:
    QString _path;
};

void writeFile(const QString &path, const QByteArray &content);
QByteArray readFile(const QString &path);
void makeDir(const QString &path);
void makeLink(const QString &target, const QString &link);
// An instance directory: creates `dir` and its corvanta.ini.
void makeInstance(const QString &dir, const QByteArray &ini = "[database]\n");
void setModificationTime(const QString &path, time_t seconds, long nanoseconds = 0);

// Captures systemLog lines while alive.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    const QStringList &lines() const { return _lines; }
    void clear() { _lines.clear(); }

private:
    QStringList _lines;
};

// Polls `done` every 10 ms until it answers true or `limit` has passed.
bool waitFor(const std::function<bool()> &done,
             std::chrono::milliseconds limit = std::chrono::seconds(10));

// A child process that sleeps until killed; killed and reaped on destruction.
class Sleeper {
public:
    Sleeper();
    ~Sleeper();
    pid_t pid() const { return _pid; }

private:
    pid_t _pid;
};

// The id of a process that has exited and been reaped.
pid_t deadPid();

// Kills and reaps a process on destruction unless it is already gone.
class ProcessGuard {
public:
    explicit ProcessGuard(pid_t pid = 0) : _pid(pid) {}
    ~ProcessGuard();
    void reset(pid_t pid) { _pid = pid; }

private:
    pid_t _pid;
};

bool processAlive(pid_t pid);

// Starts the stand-in server in `dir` as "corvanta -f" outside the registry,
// with extra environment variables.
pid_t startStandinDirectly(const QString &dir,
                           const std::vector<std::pair<std::string, std::string>> &env = {});

// Sets an environment variable for the lifetime of the object.
class ScopedEnv {
public:
    ScopedEnv(const char *name, const QString &value);
    ScopedEnv(const char *name, std::nullptr_t);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv &) = delete;
    ScopedEnv &operator=(const ScopedEnv &) = delete;

private:
    std::string _name;
    bool _had;
    std::string _old;
};

// Runs `body` in a forked child, as uid/gid 65534 when this process is root
// (where access and kill always succeed), as the same user otherwise. The
// child's answer comes back as text; "crashed" on abnormal exit.
std::string runUnprivileged(const std::function<std::string()> &body);
// Same, without changing the user.
std::string runInChild(const std::function<std::string()> &body);
bool isRoot();

QString standinPath();

}  // namespace testing_support
