#include "Support.h"

enum Pid { Absent, Garbage, Known, Other, Init };

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
};

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
    const qint32 pids[] = {0, 0, known, other.pid, 1};
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
        {"2147483647", 2147483647, {}},
        {QByteArray("\0\0007", 3), 7, {}},
        {QByteArray(4090, ' ') + "1234567", 123456, {}},  // only the first 4096 bytes count
        {"", 0, {}},  // just created: a server about to write its pid
        {"2147483648", 0, malformed},
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

TEST(IsRunning, NoProcessIdBelowOneNorThisProcessNorAnotherParentsUnreapedServerIsRunning) {
    const CorvantaInstance record("/nowhere");
    for (const qint32 pid : {0, -1, ::getpid()})  // kill(-1, 0) reaches everything
        EXPECT_FALSE(record.isRunning(pid)) << pid;
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

// A fresh record and one probed before judge whatever the directory link reaches now, even an
// item with the cached modification time, and name the resolved path. The first [Database]
// section is cached by full-precision modification time until the ini goes.
TEST_F(InstanceTest, OnlyARegularIniMakesARecordValidAndItsLockFileIsCachedByModificationTime) {
    const QString link = at("via-link"), real = Paths::resolveSymlinks(tmp.path());
    makeLink(dir, link);
    CorvantaInstance record(link);
    ASSERT_TRUE(record.probeConfiguration());
    struct stat probed {};
    ASSERT_EQ(::stat(local(dir + "/corvanta.ini"), &probed), 0);
    const struct timespec sameTime[2] = {probed.st_mtim, probed.st_mtim};
    makeInstance(at("other"));
    makeLink(at("other/corvanta.ini"), at("ini-link/corvanta.ini"));
    makeDir(at("ini-dir/corvanta.ini"));
    makeDir(at("empty"));
    // Only "inst" holds a regular ini; in the "ini-" ones something else stands in its place.
    for (const QString target : {"ini-link", "ini-dir", "empty", "nothing", "inst"}) {
        const bool valid = target == "inst", skipped = target.startsWith("ini-");
        const QString message =
            real + '/' + target + "/corvanta.ini is not a regular file - skipped";
        for (const char *item :
             {"other/corvanta.ini", "ini-link/corvanta.ini", "ini-dir/corvanta.ini"})
            ::utimensat(AT_FDCWD, local(at(item)), sameTime, AT_SYMLINK_NOFOLLOW);
        removePath(link);
        makeLink(at(target), link);
        log.clear();
        EXPECT_EQ(record.probeConfiguration(), valid) << target.toStdString();
        EXPECT_EQ(CorvantaInstance(link).probeConfiguration(), valid) << target.toStdString();
        EXPECT_EQ(log, skipped ? QStringList({message, message}) : QStringList());
    }
    const QString ini = dir + "/corvanta.ini";
    const QStringList candidates = {dir + "/one.lck", dir + "/two.lck"};
    const auto edit = [&](const QByteArray &name, long nanoseconds) {
        writeFile(ini,
                  "[other]\nlockfile = /wrong.lck\n[Database]\n"
                  "lockfile = one.lck\nLOCKFILE = " +
                      name + "\n[database]\nlockfile = /wrong.lck\n");
        const struct timespec times[2] = {{1700000000, nanoseconds}, {1700000000, nanoseconds}};
        EXPECT_EQ(::utimensat(AT_FDCWD, local(ini), times, 0), 0);
        EXPECT_TRUE(instance.probeConfiguration());
        return lockPathOf(instance, candidates);
    };
    EXPECT_EQ(edit("one.lck", 100), dir + "/one.lck");
    EXPECT_EQ(edit("two.lck", 100), dir + "/one.lck");  // same time to the nanosecond: unnoticed
    EXPECT_EQ(edit("two.lck", 101), dir + "/two.lck");
    removePath(ini);
    EXPECT_FALSE(instance.probeConfiguration());
    EXPECT_EQ(lockPathOf(instance, candidates), dir + "/two.lck");  // known paths kept
}

TEST_F(InstanceTest, ServerFoundInEnvironmentInstanceInstallationBinThenPathGetsStandardFdsOnly) {
    for (const QString &file : {at("env"), dir + "/corvanta", at("bin/corvanta")})
        writeFile(file, "not even executable");
    const auto found = [&](const QString &fromEnv) {
        ScopedEnv env("CORVANTA_BINARY", fromEnv);
        return instance.findExecutable();
    };
    EXPECT_EQ(found(at("env")), at("env"));
    EXPECT_EQ(found(tmp.path()), dir + "/corvanta");  // a directory is passed over
    removePath(dir + "/corvanta");
    EXPECT_EQ(found(at("nothing")), dir + "/../bin/corvanta");
    removePath(at("bin/corvanta"));
    EXPECT_EQ(found(at("nothing")), "corvanta");
    EXPECT_EQ(executableCandidates("corvanta", "/a:/b/::/c"),
              QList<QByteArray>({"/a/corvanta", "/b/corvanta", "./corvanta", "/c/corvanta"}));
    makeLink(CORVANTA_STANDIN, at("pathdir/corvanta"));
    ScopedEnv report("CORVANTA_STANDIN_FD_REPORT", at("report"));
    // Below 32 without close-on-exec (closed by the child), above with it (closed by exec).
    const int low = ::open("/dev/null", O_RDONLY);
    const int high = ::fcntl(low, F_DUPFD_CLOEXEC, 40);
    ASSERT_GE(high, 40);
    ScopedEnv noBinary("CORVANTA_BINARY", std::nullopt);
    ScopedEnv path("PATH", at("pathdir"));
    ASSERT_TRUE(instance.startup());
    server.pid = instance.pid();
    ::close(low);
    ::close(high);
    ASSERT_TRUE(refreshUntil(ServerStatusRunning));
    EXPECT_EQ(readFile(at("report")),
              "fd 0 /dev/null\nfd 1 /dev/null\nfd 2 /dev/null\nargc 2\nargv corvanta\nargv -f\n"
              "cwd " +
                  local(Paths::resolveSymlinks(dir)) + "\nsession-leader yes\n");
}

TEST_F(InstanceTest, AnotherUsersServerReadsAsStoppedAndIsNotSignalled) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to create a process of another user";
    ProcessGuard rootsProcess{forkSleeper()};
    writeFile(lock, QByteArray::number(rootsProcess.pid));
    const QByteArray answer = inChild([&] {
        becomeReader();
        return instance.shutdown() ? QByteArray("signalled") : log.join('|').toUtf8();
    });
    EXPECT_EQ(answer, "stale .lck file detected: " + lock.toUtf8());
    EXPECT_EQ(::waitpid(rootsProcess.pid, nullptr, WNOHANG), 0);  // alive
}

// A server of someone else's, in a directory replaced under the watch: learnt through its lock
// file appearing (empty at first), being written and vanishing, until the directory goes and its
// watch is released. The next listing after a link on the way is re-pointed watches where the
// path leads now. Watches are bounded and all released.
TEST_F(InstanceTest, ServersAreFollowedThroughReplacedDirectoriesAndRepointedLinksWithinABound) {
    const auto record = CorvantaInstancePtr::create(dir);
    record->probeConfiguration();
    record->refresh();
    InstanceWatcher watcher;
    watcher.watch({record});
    const int before = openDescriptors();
    QList<qint32> changes;  // seen through events, repeats folded
    QObject::connect(&watcher, &InstanceWatcher::refreshed, [&](const CorvantaInstancePtr &r) {
        if (changes.isEmpty() || changes.last() != r->serverStatus())
            changes.append(r->serverStatus());
    });
    // Runs the event loop, never a refresh of its own, until `r` reads `status`.
    const auto reaches = [](const CorvantaInstancePtr &r, qint32 status) {
        return QTest::qWaitFor([&] { return r->serverStatus() == status; }, 20000);
    };
    const QString moved = at("moved");
    ASSERT_EQ(::rename(local(dir), local(moved)), 0);
    makeInstance(dir);  // a new directory in its place
    ProcessGuard foreign{forkSleeper()};
    writeFile(lock, "");  // created, its pid not written yet: no fault, no new state
    writeFile(lock, QByteArray::number(foreign.pid) + "\n");
    ASSERT_TRUE(reaches(record, ServerStatusRunning));
    EXPECT_EQ(record->pid(), foreign.pid);
    foreign.end();  // reaped: we are its parent here, as its owner would be
    QFile::remove(lock);
    ASSERT_TRUE(reaches(record, ServerStatusStopped));
    EXPECT_EQ(changes, QList<qint32>({ServerStatusRunning, ServerStatusStopped}));
    EXPECT_FALSE(record->lastExitStatus().has_value());  // not ours to know
    removePath(dir);
    removePath(moved);
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return record->entryStatus() == EntryStatusInvalid; }, 20000));
    EXPECT_EQ(watcher.directoryWatchCount(), 0);

    const QString link = at("link");
    makeInstance(at("a/db"));
    makeInstance(at("b/db"));
    ASSERT_EQ(::symlink(local(at("a")), local(link)), 0);
    const auto linked = CorvantaInstancePtr::create(link + "/db");
    linked->refresh();
    watcher.watch({linked});
    ASSERT_EQ(::symlink(local(at("b")), local(link + ".new")), 0);
    ASSERT_EQ(::rename(local(link + ".new"), local(link)), 0);
    watcher.watch({linked});
    ProcessGuard linkedServer{forkSleeper()};
    writeFile(at("b/db/corvanta.lck"), QByteArray::number(linkedServer.pid) + "\n");
    EXPECT_TRUE(reaches(linked, ServerStatusRunning));

    QList<CorvantaInstancePtr> many;
    for (int i = 0; i < InstanceWatcher::MaxInstances + 44; ++i) {
        many.append(CorvantaInstancePtr::create(at("many/" + QString::number(i))));
        makeInstance(many.last()->directory());
    }
    watcher.watch(many);
    EXPECT_EQ(watcher.watchedCount(), InstanceWatcher::MaxInstances);
    EXPECT_EQ(watcher.directoryWatchCount(), InstanceWatcher::MaxInstances);
    watcher.watch(many);  // the next opening: said once
    EXPECT_EQ(log.filter("Watching the first 256 instances only").size(), 1);
    watcher.watch({});
    EXPECT_EQ(watcher.watchedCount(), 0);
    EXPECT_EQ(watcher.directoryWatchCount(), 0);
    EXPECT_EQ(openDescriptors(), before);
}

int main(int argc, char **argv) {
    return runTests<QCoreApplication>(argc, argv);
}
