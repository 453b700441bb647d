#include "Support.h"

#include "registry/Installation.h"
#include "registry/MonitorSettings.h"

// Each row plants some of the places ("cmd", "env", "set", "opt", "lib", "pkg")
// as directories and names the others anyway; the first planted one in the
// lookup order wins, and every place up to it is reported as looked at.
TEST(Installation, TheFirstExistingPlaceInTheLookupOrderWins) {
    const struct {
        const char *planted, *expected, *looked;
    } rows[] = {
        {"cmd env set opt lib pkg", "cmd", "--home @/cmd"},
        {"env set opt lib pkg", "env", "--home @/cmd|CORVANTA_HOME=@/env"},
        {"set opt pkg", "set", "--home @/cmd|CORVANTA_HOME=@/env|home=@/set in @/monitor.ini"},
        {"lib pkg", "lib",
         "--home @/cmd|CORVANTA_HOME=@/env|home=@/set in @/monitor.ini|@/opt|@/lib"},
        {"pkg", "pkg/Contents/corvanta",
         "--home @/cmd|CORVANTA_HOME=@/env|home=@/set in @/monitor.ini|@/opt|@/lib|"
         "@/pkg/Contents/corvanta"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.planted);
        QTemporaryDir tmp;
        const QString root = QDir(tmp.path()).canonicalPath();
        for (const QString &place : QString::fromUtf8(row.planted).split(u' ', Qt::SkipEmptyParts))
            QDir().mkpath(root + u'/' + (place == u"pkg" ? u"pkg/Contents/corvanta"_qs : place));
        ASSERT_TRUE(MonitorSettings::write(root + "/monitor.ini", "home", root + "/set", nullptr));
        const ScopedEnv env("CORVANTA_HOME", root + "/env");
        const InstallationLookup lookup = findInstallation(
            {root + "/cmd", root + "/monitor.ini", {root + "/opt", root + "/lib"}, root + "/pkg"});
        EXPECT_EQ(lookup.home, root + u'/' + QString::fromUtf8(row.expected));
        EXPECT_EQ(lookup.looked.join(u'|'), QString::fromUtf8(row.looked).replace(u'@', root));
    }
}

TEST(Installation, UserNamedPlacesAreResolvedAndUnusableSettingsPassedOver) {
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
    EXPECT_FALSE(MonitorSettings::write(tmp.path(), "home", "/y", &error));  // a directory
}
