#include "Support.h"

namespace {

enum Pid { Absent, Garbage, Known, Other, Init, Self };

// Name; status before; known server lives on; lock file holds; ini there; then status, pid,
// entry status and log after ($L lock file, $K known pid, $O other pid).
using Transition =
    std::tuple<const char *, qint32, bool, Pid, bool, qint32, Pid, qint32, const char *>;

constexpr qint32 Unknown = ServerStatusUnknown, Stopped = ServerStatusStopped,
                 Starting = ServerStatusStarting, Running = ServerStatusRunning,
                 Stopping = ServerStatusStopping, Unchanged = EntryStatusUnchanged,
                 Changed = EntryStatusChanged, Invalid = EntryStatusInvalid;
constexpr const char *kMalformed = "Malformed .lck file $L";
constexpr const char *kStale = "stale .lck file detected: $L";
constexpr const char *kDifferent = "pid value from .lck file is different (expected $K, got $O)";

const Transition kTransitions[] = {
    {"StoppingAlive", Stopping, true, Absent, true, Stopping, Known, Changed, ""},
    {"StartingNoLock", Starting, true, Absent, true, Starting, Known, Changed, ""},
    {"StartingConfirmed", Starting, true, Known, true, Running, Known, Changed, ""},
    {"StartingOtherPid", Starting, true, Other, true, Running, Other, Changed, kDifferent},
    {"StartingDied", Starting, false, Absent, true, Stopped, Absent, Changed, ""},
    {"RunningAlive", Running, true, Garbage, false, Running, Known, Unchanged, ""},
    {"RunningGoneNoIni", Running, false, Absent, false, Stopped, Absent, Invalid, ""},
    {"RunningGoneStale", Running, false, Known, true, Stopped, Known, Changed, kStale},
    {"RunningReplaced", Running, false, Other, true, Running, Other, Unchanged, ""},
    {"StoppedMalformed", Stopped, false, Garbage, true, Stopped, Absent, Unchanged, kMalformed},
    {"InitIsNoServer", Stopped, false, Init, true, Stopped, Init, Unchanged, kStale},
    {"MonitorIsNoServer", Stopped, false, Self, true, Stopped, Self, Unchanged, kStale},
};

}  // namespace

class Refresh : public InstanceTest, public ::testing::WithParamInterface<Transition> {};

TEST_P(Refresh, FollowsTheTransitionTableAndRefusesStartOrStopOutOfTurn) {
    const auto &[name, from, alive, holds, ini, status, pid, entry, expectedLog] = GetParam();
    if (from == Stopped)
        instance.refresh();
    if (from >= Starting) {  // with the stand-in as the server
        ScopedEnv delay("CORVANTA_STANDIN_LOCK_DELAY_MS", from == Starting ? "600000" : "");
        ScopedEnv ignore("CORVANTA_STANDIN_IGNORE_TERM", from == Stopping ? "1" : "");
        ASSERT_TRUE(instance.startup());
        server.pid = instance.pid();
        ASSERT_TRUE(from == Starting || refreshUntil(Running));
        ASSERT_TRUE(from != Stopping || instance.shutdown());
    }
    ASSERT_EQ(instance.serverStatus(), from);
    const qint32 known = instance.pid();
    EXPECT_FALSE(from >= Starting && instance.startup());
    EXPECT_FALSE(from != Unknown && from != Running && instance.shutdown());
    if (!alive && known != 0) {
        ::kill(known, SIGKILL);
        siginfo_t info;
        ::waitid(P_PID, id_t(known), &info, WEXITED | WNOWAIT);  // a zombie, left to refresh
    }

    ProcessGuard other{forkSleeper()};
    const qint32 pids[] = {0, 0, known, other.pid, 1, ::getpid()};
    removePath(lock);
    const QByteArray content = holds == Garbage ? "garbage" : QByteArray::number(pids[holds]);
    if (holds != Absent)
        writeFile(lock, content);
    if (!ini)
        removePath(dir + "/corvanta.ini");
    log.clear();
    instance.refresh();

    EXPECT_EQ(instance.serverStatus(), status);
    EXPECT_EQ(instance.pid(), pids[pid]);
    EXPECT_EQ(instance.entryStatus(), entry);
    EXPECT_EQ(log.join('\n'), QString(expectedLog)
                                  .replace("$L", lock)
                                  .replace("$K", QString::number(known))
                                  .replace("$O", QString::number(other.pid)));
    EXPECT_EQ(readFile(lock), holds == Absent ? "" : content);  // never rewritten
}

INSTANTIATE_TEST_SUITE_P(Transitions, Refresh, ::testing::ValuesIn(kTransitions),
                         [](const auto &info) { return std::string(std::get<0>(info.param)); });

// The lock file read: the first digit run is the pid, anything else logs and gives zero without
// blocking. Through refresh a faulty lock file is told when first seen and again once it changes;
// an empty one younger than two seconds is a server writing it: no fault, and a stopped record
// stays stopped.
TEST_F(InstanceTest, LockFileGivesItsFirstDigitRunAndFaultsAreToldOncePerVersion) {
    const QString malformed = "Malformed .lck file " + lock;
    const std::tuple<QByteArray, qint32, QString> rows[] = {
        {"-77", 77, {}},
        {"0000000000000000000042", 42, {}},
        {"2147483647", 2147483647, {}},
        {QByteArray("\0\0007", 3), 7, {}},
        {QByteArray(4090, ' ') + "1234567", 123456, {}},  // only the first 4096 bytes count
        {"", 0, {}},  // just created: a server about to write its pid
        {"2147483648", 0, malformed},
        {"4294967297", 0, malformed},  // would wrap to 1 if cut to 32 bits
        {"12\xff", 0, "Error reading " + lock + ": not ASCII text"},
        {"12345\n", 12345, {}},  // last: leaves the log empty
    };
    for (const auto &[content, pid, message] : rows) {
        log.clear();
        writeFile(lock, content);
        EXPECT_EQ(instance.pidValueFromLockFile(), pid) << content.left(30).toHex().toStdString();
        EXPECT_EQ(log.join('\n'), message);
    }
    removePath(lock);
    makeDir(lock);  // a directory is silent, like no file at all
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);
    removePath(lock);
    ASSERT_EQ(::mkfifo(local(lock), 0644), 0);
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);  // no writer needed
    removePath(lock);
    makeLink("/dev/zero", lock);
    EXPECT_EQ(instance.pidValueFromLockFile(), 0);
    const QString notRegular = "Error reading " + lock + ": not a regular file";
    EXPECT_EQ(log, QStringList({notRegular, notRegular}));
    removePath(lock);
    const struct {
        const char *content;  // nullptr: left as it is
        int age;              // of its mtime, in seconds
        const char *log;
    } steps[] = {
        {"2147483647", 10, kStale}, {nullptr, 0, ""},
        {"2147483647", 20, kStale}, {"", 0, ""},
        {nullptr, 0, ""},           {"", 5, kMalformed},
        {nullptr, 0, ""},           {"x", 5, kMalformed},
    };
    for (const auto &step : steps) {
        if (step.content) {
            writeFile(lock, step.content);
            const timespec times[] = {{0, UTIME_OMIT}, {std::time(nullptr) - step.age, 0}};
            ASSERT_EQ(::utimensat(AT_FDCWD, local(lock), times, 0), 0);
        }
        log.clear();
        instance.refresh();
        EXPECT_EQ(instance.serverStatus(), Stopped) << step.content;
        EXPECT_EQ(log.join('\n'), QString(step.log).replace("$L", lock));
    }
}

TEST(IsRunning, NoProcessIdBelowOneNorAnotherParentsUnreapedServerIsRunning) {
    const CorvantaInstance record("/nowhere");
    EXPECT_FALSE(record.isRunning(0));
    EXPECT_FALSE(record.isRunning(-1));  // kill(-1, 0) reaches everything
    // A server that ended, left unreaped by a parent that is not this process.
    int report[2];
    ASSERT_EQ(::pipe(report), 0);
    ProcessGuard parent{::fork()};
    if (parent.pid == 0) {
        const pid_t server = ::fork();
        siginfo_t info{};
        while (server != 0 && ::waitid(P_PID, id_t(server), &info, WEXITED | WNOWAIT) == 0 &&
               ::write(report[1], &server, sizeof server) == sizeof server)
            ::pause();
        ::_exit(0);
    }
    pid_t zombie = 0;
    ASSERT_EQ(::read(report[0], &zombie, sizeof zombie), ssize_t(sizeof zombie));
    EXPECT_EQ(::kill(zombie, 0), 0);
    EXPECT_FALSE(record.isRunning(zombie));
    for (const int fd : report)
        ::close(fd);
}
