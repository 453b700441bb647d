#include "registry/InstanceWatcher.h"

#include "Support.h"

class Watcher : public InstanceTest {
protected:
    void SetUp() override {
        InstanceTest::SetUp();
        record->probeConfiguration();
        record->refresh();
        watcher.watch({record});
        // Status changes seen through events, repeats folded.
        QObject::connect(&watcher, &InstanceWatcher::refreshed,
                         [this](const CorvantaInstancePtr &r) {
                             if (changes.isEmpty() || changes.last() != r->serverStatus())
                                 changes.append(r->serverStatus());
                         });
    }
    // Runs the event loop, never a refresh of its own, until `r` reads `status`.
    static bool reaches(const CorvantaInstancePtr &r, qint32 status) {
        return QTest::qWaitFor([&] { return r->serverStatus() == status; }, 20000);
    }

    CorvantaInstancePtr record = CorvantaInstancePtr::create(dir);
    InstanceWatcher watcher;
    QList<qint32> changes;
};

// A server of someone else's, in a directory replaced under the watch: learnt through its lock
// file appearing (empty at first), being written and vanishing, until the directory goes and its
// watch is released. The next listing after a link on the way is re-pointed watches where the
// path leads now. Watches are bounded and all released.
TEST_F(Watcher, ServersAreFollowedThroughReplacedDirectoriesAndRepointedLinksWithinABound) {
    const int before = openDescriptors();
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
    EXPECT_TRUE(log.filter("Malformed").isEmpty());
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
        makeInstance(at(QString("many/%1").arg(i)));
        many.append(CorvantaInstancePtr::create(at(QString("many/%1").arg(i))));
        many.last()->refresh();
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
