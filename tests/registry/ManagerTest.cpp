#include "registry/CorvantaManager.h"
#include "registry/Paths.h"

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

// Every record of a large installation gets its own answers, its failures
// logged once each.
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
