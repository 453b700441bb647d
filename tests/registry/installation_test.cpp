#include "Support.h"

// Each row plants some of the places as directories and names the others anyway; the first
// planted one in the lookup order wins, and every place up to it is reported as looked at.
// Places the user names are resolved, a relative home= is passed over.
TEST(Installation, TheFirstExistingPlaceInTheLookupOrderWinsAndUserNamedPlacesAreResolved) {
    const QStringList places = {"cmd", "env", "set", "opt", "lib", "pkg/Contents/corvanta"};
    const QStringList said = {
        "--home @/cmd", "CORVANTA_HOME=@/env",    "home=@/set in @/monitor.ini", "@/opt",
        "@/lib",        "@/pkg/Contents/corvanta"};
    const QList<int> rows[] = {{0, 1, 2, 3, 4, 5}, {1, 2, 3, 4, 5}, {2, 3, 5}, {4, 5}, {5}};
    for (const QList<int> &planted : rows) {
        SCOPED_TRACE(places[planted[0]].toStdString());
        QTemporaryDir tmp;
        const QString root = QDir(tmp.path()).canonicalPath();
        for (const int place : planted)
            QDir().mkpath(root + u'/' + places[place]);
        ASSERT_TRUE(MonitorSettings::write(root + "/monitor.ini", "home", root + "/set", nullptr));
        const ScopedEnv env("CORVANTA_HOME", root + "/env");
        const InstallationLookup lookup = findInstallation(
            {root + "/cmd", root + "/monitor.ini", {root + "/opt", root + "/lib"}, root + "/pkg"});
        EXPECT_EQ(lookup.home, root + u'/' + places[planted[0]]);
        EXPECT_EQ(lookup.looked,
                  QStringList(said.mid(0, planted[0] + 1)).replaceInStrings("@", root));
    }
    QTemporaryDir tmp;
    const QString root = QDir(tmp.path()).canonicalPath();
    QDir().mkpath(root + "/real");
    ASSERT_EQ(::symlink("real", (root + "/link").toUtf8().constData()), 0);
    const ScopedEnv unset("CORVANTA_HOME", std::nullopt);
    // A relative home= means nothing without knowing whose directory it is.
    ASSERT_TRUE(MonitorSettings::write(root + "/monitor.ini", "home", "real", nullptr));
    InstallationSources sources{root + "/link", root + "/monitor.ini", {root + "/link"}, {}};
    EXPECT_EQ(findInstallation(sources).home, root + "/real");
    sources.commandLine.reset();
    const InstallationLookup lookup = findInstallation(sources);
    EXPECT_EQ(lookup.home, root + "/link");  // a well-known place stays as it is named
    EXPECT_EQ(lookup.looked.mid(0, 2).join(u'|'),
              "CORVANTA_HOME (unset)|home=real in " + root + "/monitor.ini");
}

TEST(MonitorSettings, WritingOneKeyKeepsTheRestAndRefusesWhatIsNotASettingsFile) {
    QTemporaryDir tmp;
    const QString file = tmp.filePath("deep/er/monitor.ini");
    QString error;
    EXPECT_FALSE(MonitorSettings::read(file, "home"));
    ASSERT_TRUE(MonitorSettings::write(file, "home", "/a", &error)) << error.toStdString();
    writeFile(file, readFile(file) + "; mine\n[other]\nhome = /b\n");
    ASSERT_TRUE(MonitorSettings::write(file, "notifications", "off", &error));
    ASSERT_TRUE(MonitorSettings::write(file, "home", "/c", &error));
    EXPECT_EQ(readFile(file).toStdString(),
              "[monitor]\nhome          = /c\n; mine\nnotifications = off\n\n[other]\nhome = /b\n");
    EXPECT_EQ(MonitorSettings::read(file, "HOME"), "/c");
    EXPECT_FALSE(MonitorSettings::write(file, "home", "/x\n[evil]", &error));

    const QString big = tmp.filePath("big.ini");
    writeFile(big, "[monitor]\nhome=/x\n" + QByteArray(MonitorSettings::MaxFileSize, ';'));
    EXPECT_FALSE(MonitorSettings::read(big, "home"));
    EXPECT_FALSE(MonitorSettings::write(big, "home", "/y", &error));
    EXPECT_TRUE(error.contains(big)) << error.toStdString();
}

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
