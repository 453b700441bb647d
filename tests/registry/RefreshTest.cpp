#include "Support.h"

namespace {

// What the lock file holds at the refresh, and which pid the record ends with.
enum Pid { Absent, Garbage, Known, Other, Dead, Init, Self };

struct Transition {
    const char *name;
    qint32 from;
    bool alive;  // the record's known server process, if it has one
    Pid lock;
    bool ini;
    qint32 status;
    Pid pid;
    qint32 entry;
    const char *log;  // $L lock file, $K known pid, $O other pid
};

void PrintTo(const Transition &row, std::ostream *os) {
    *os << row.name;
}

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
    {"StartingMalformed", Starting, true, Garbage, true, Starting, Known, Changed, kMalformed},
    {"StartingConfirmed", Starting, true, Known, true, Running, Known, Changed, ""},
    {"StartingOtherPid", Starting, true, Other, true, Running, Other, Changed, kDifferent},
    {"StartingDied", Starting, false, Absent, true, Stopped, Absent, Changed, ""},
    {"RunningAlive", Running, true, Garbage, false, Running, Known, Unchanged, ""},
    {"RunningGoneNoIni", Running, false, Absent, false, Stopped, Absent, Invalid, ""},
    {"RunningGoneStale", Running, false, Known, true, Stopped, Known, Changed, kStale},
    {"RunningReplaced", Running, false, Other, true, Running, Other, Unchanged, ""},
    {"StoppingGone", Stopping, false, Absent, true, Stopped, Absent, Changed, ""},
    {"StoppingReplaced", Stopping, false, Other, true, Running, Other, Changed, ""},
    {"FreshNoLock", Unknown, false, Absent, true, Stopped, Absent, Changed, ""},
    {"FreshLive", Unknown, false, Other, true, Running, Other, Changed, ""},
    {"FreshStale", Unknown, false, Dead, true, Stopped, Dead, Changed, kStale},
    {"StoppedMalformed", Stopped, false, Garbage, true, Stopped, Absent, Unchanged, kMalformed},
    {"StoppedStale", Stopped, false, Dead, true, Stopped, Dead, Unchanged, kStale},
    {"StoppedNoIni", Stopped, false, Absent, false, Stopped, Absent, Invalid, ""},
    {"InitIsNoServer", Stopped, false, Init, true, Stopped, Init, Unchanged, kStale},
    {"MonitorIsNoServer", Stopped, false, Self, true, Stopped, Self, Unchanged, kStale},
};

}  // namespace

class Refresh : public InstanceTest, public ::testing::WithParamInterface<Transition> {};

TEST_P(Refresh, FollowsTheTransitionTableAndRefusesStartOrStopOutOfTurn) {
    const Transition &row = GetParam();
    if (row.from == Stopped)
        instance.refresh();
    if (row.from >= Starting) {  // with the stand-in as the server
        ScopedEnv delay("CORVANTA_STANDIN_LOCK_DELAY_MS", row.from == Starting ? "600000" : "");
        ScopedEnv ignore("CORVANTA_STANDIN_IGNORE_TERM", row.from == Stopping ? "1" : "");
        ASSERT_TRUE(instance.startup());
        server.pid = instance.pid();
        ASSERT_TRUE(row.from == Starting || refreshUntil(Running));
        ASSERT_TRUE(row.from != Stopping || instance.shutdown());
    }
    ASSERT_EQ(instance.serverStatus(), row.from);
    const qint32 known = instance.pid();
    EXPECT_FALSE(row.from >= Starting && instance.startup());
    EXPECT_FALSE(row.from != Unknown && row.from != Running && instance.shutdown());
    if (!row.alive && known != 0) {
        ::kill(known, SIGKILL);
        siginfo_t info;
        ::waitid(P_PID, id_t(known), &info, WEXITED | WNOWAIT);  // a zombie, left to refresh
    }

    ProcessGuard other{forkSleeper()};
    // Dead: above any pid_max, so never a live process.
    const qint32 pids[] = {0, 0, known, other.pid, 2147483647, 1, ::getpid()};
    removePath(lock);
    const QByteArray content = row.lock == Garbage ? "garbage" : QByteArray::number(pids[row.lock]);
    if (row.lock != Absent)
        writeFile(lock, content);
    if (!row.ini)
        removePath(dir + "/corvanta.ini");
    log.lines.clear();
    instance.refresh();

    EXPECT_EQ(instance.serverStatus(), row.status);
    EXPECT_EQ(instance.pid(), pids[row.pid]);
    EXPECT_EQ(instance.entryStatus(), row.entry);
    EXPECT_EQ(log.lines.join('\n'), QString(row.log)
                                        .replace("$L", lock)
                                        .replace("$K", QString::number(known))
                                        .replace("$O", QString::number(other.pid)));
    EXPECT_EQ(readFile(lock), row.lock == Absent ? "" : content);  // never rewritten
}

INSTANTIATE_TEST_SUITE_P(Transitions, Refresh, ::testing::ValuesIn(kTransitions),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(IsRunning, NoProcessIdBelowOneIsEverRunning) {
    EXPECT_FALSE(CorvantaInstance("/nowhere").isRunning(0));
    EXPECT_FALSE(CorvantaInstance("/nowhere").isRunning(-1));  // kill(-1, 0) reaches everything
}

using CanStart = InstanceTest;

TEST_F(CanStart, NeedsReadAndWritePermissionOnTheDirectory) {
    makeDir(tmp / "readonly", 0555);
    makeDir(tmp / "open", 0777);
    const std::string answer = runUnprivileged([&] {
        std::string out;
        for (const char *name : {"readonly", "open", "missing"})
            out += std::to_string(CorvantaInstance(tmp / name).canStart());
        return out;
    });
    EXPECT_EQ(answer, "010");
}
