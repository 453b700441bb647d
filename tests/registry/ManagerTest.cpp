#include "registry/CorvantaManager.h"
#include "registry/Paths.h"
#include "registry/SharedWork.h"

#include "Support.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

class Manager : public InstanceTest {
protected:
    // The directories one scan lists, the search directory shown as "~".
    QString scan() {
        QStringList out;
        for (const CorvantaInstancePtr &instance : manager.allInstances())
            out.append(instance->directory().replace(search, "~"));
        return out.join(' ');
    }

    QString search = Paths::resolveSymlinks(tmp.path()) + "/install";  // as addSearchPath stores it
    CorvantaManager manager;
};

TEST_F(Manager, FindsTheSearchDirectoryAndItsImmediateSubdirectoriesLinksIncluded) {
    makeInstance(search);
    for (const char *name : {"zeta", "database", ".hidden", "plain/too-deep"})
        makeInstance(search + "/" + name);
    writeFile(search + "/file", "");
    makeLink(search + "/zeta", search + "/alias");
    makeLink(at("nowhere"), search + "/dangling");
    makeLink(at("install"), at("via-link"));
    for (const QString &path : {at("via-link"), search + "/file", at("missing")})
        manager.addSearchPath(path);
    EXPECT_EQ(manager.searchPaths(), QStringList({search}));
    EXPECT_EQ(scan(), "~ ~/.hidden ~/alias ~/database ~/zeta");
    const auto found = manager.allInstances();  // records live on from scan to scan
    EXPECT_EQ(manager.allInstances().first().data(), found.first().data());
    EXPECT_TRUE(log.isEmpty());
}

TEST_F(Manager, UnlistableSearchDirectoryIsReportedOnceAndLeavesTheListWhileTheWalkGoesOn) {
    makeDir(search, 0777);
    const QString first = search + "/first", gone = search + "/gone", last = search + "/last";
    const QByteArray answer = inChild([&] {
        becomeReader();
        makeInstance(first + "/a");
        makeInstance(gone + "/g");
        makeDir(last);
        for (const QString &path : {first, gone, gone, last})
            manager.addSearchPath(path);
        QStringList out = {scan()};
        ::chmod(local(gone), 0311);  // traversable, no longer listable
        makeInstance(last + "/new");
        out << scan();
        ::chmod(local(gone), 0755);
        makeInstance(gone + "/back");  // nothing adds the directory back
        removePath(gone + "/g/corvanta.ini");
        out << scan() << manager.searchPaths().join(' ');
        return (out + log).join(';').replace(search, "~").toUtf8();
    });
    EXPECT_EQ(answer,
              "~/first/a ~/gone/g;~/first/a ~/gone/g ~/last/new;~/first/a ~/last/new;"
              "~/first ~/last;Invalid directory ~/gone: Permission denied");
}

TEST_F(Manager, LookupsBelowABaseAnswerAsFromTheRootAndOnlyWhileItLives) {
    const auto size = [](const QString &path) {
        const auto info = Paths::attributesOfItem(path.toUtf8());
        return info ? qint64(info->size) : -1;
    };
    writeFile(search + "/a/f", "1");
    writeFile(search + "2/a/f", "22");  // shares the base's name as a prefix
    {
        Paths::LookupBase base({search});
        EXPECT_EQ(size(search + "/a/f"), 1);
        EXPECT_EQ(size(search + "2/a/f"), 2);
        EXPECT_EQ(size(search + "/a/missing"), -1);
        // Opened once: a directory put in its place is not seen while it lives.
        ASSERT_EQ(::rename(search.toUtf8(), (search + ".old").toUtf8()), 0);
        writeFile(search + "/a/f", "333");
        EXPECT_EQ(size(search + "/a/f"), 1);
    }
    EXPECT_EQ(size(search + "/a/f"), 3);
}

// Enough records for the rescan to share its questions with a second thread:
// every answer must still reach its own record.
TEST_F(Manager, EveryRecordOfALargeInstallationGetsItsOwnAnswers) {
    QStringList kept, malformed;
    for (int i = 0; i < 300; ++i) {
        const QString dir = search + QString::asprintf("/i%03d", i);
        makeInstance(dir);
        if (i % 5 != 0) {
            kept.append(dir);
        }
        if (i % 7 == 0) {
            malformed.append("Malformed .lck file " + dir + "/corvanta.lck");
        }
    }
    manager.addSearchPath(search);
    EXPECT_EQ(manager.allInstances().size(), 300);
    for (int i = 0; i < 300; ++i) {
        const QString dir = search + QString::asprintf("/i%03d", i);
        if (i % 5 == 0) {
            removePath(dir + "/corvanta.ini");
        }
        if (i % 7 == 0) {
            writeFile(dir + "/corvanta.lck", "not a pid");
        }
    }
    QStringList listed;
    for (const CorvantaInstancePtr &instance : manager.allInstances()) {
        listed.append(instance->directory());
    }
    listed.sort();
    log.sort();
    EXPECT_EQ(listed, kept);
    EXPECT_EQ(log, malformed);
}

// A helper that has not started by the time the caller is done takes
// nothing: the caller did every index, once, and waited for no chunk.
TEST(SharedWork, EveryIndexIsDoneOnceAndALateHelperHoldsNothingUp) {
    const qsizetype count = 1000;
    std::vector<std::atomic<int>> done(count);
    std::vector<std::thread::id> by(count);
    const std::thread::id caller = std::this_thread::get_id();
    std::atomic<bool> callerDone{false};
    SharedWork work(count, 7, 1, [&](const SharedWork::Take &take) {
        if (std::this_thread::get_id() != caller) {
            callerDone.wait(false);  // starts only once the caller has finished its part
        }
        while (const auto range = take()) {
            for (qsizetype i = range->first; i < range->second; ++i) {
                done[i]++;
                by[i] = std::this_thread::get_id();
            }
        }
        if (std::this_thread::get_id() == caller) {
            callerDone = true;
            callerDone.notify_all();
        }
    });
    work.finish();
    EXPECT_TRUE(std::ranges::all_of(done, [](const auto &n) { return n == 1; }));
    EXPECT_TRUE(std::ranges::all_of(by, [&](std::thread::id id) { return id == caller; }));
}
