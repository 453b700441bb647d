#include "registry/CorvantaManager.h"
#include "registry/Paths.h"

#include "Support.h"

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
    for (const char *name : {"", "/zeta", "/database", "/.hidden", "/plain/too-deep"})
        makeInstance(search + name);
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
