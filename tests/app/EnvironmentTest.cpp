#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>

namespace {

// Each case runs the set-up in a child process with exactly the given
// environment, since it changes the environment of the process it runs in.
class InstallationEnvironment : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(tmp.isValid());
        root = QDir(tmp.path()).canonicalPath();
        install = root + QStringLiteral("/install");
        package = root + QStringLiteral("/package");
        bundled = package + QStringLiteral("/Contents/corvanta");
        ASSERT_TRUE(QDir().mkpath(package));
    }

    // An installation with the given parts: "bin", "lib", "odbc" (both ODBC
    // files), "odbcdir" (bin/odbc.ini as a directory).
    void makeInstallation(const QString &dir, const QStringList &parts) {
        ASSERT_TRUE(QDir().mkpath(dir));
        if (parts.contains(QStringLiteral("bin"))) {
            ASSERT_TRUE(QDir().mkpath(dir + QStringLiteral("/bin")));
        }
        if (parts.contains(QStringLiteral("lib"))) {
            ASSERT_TRUE(QDir().mkpath(dir + QStringLiteral("/lib")));
        }
        if (parts.contains(QStringLiteral("odbc"))) {
            ASSERT_TRUE(QDir().mkpath(dir + QStringLiteral("/bin")));
            writeFile(dir + QStringLiteral("/bin/odbc.ini"), "[x]\n");
            writeFile(dir + QStringLiteral("/bin/odbcinst.ini"), "[y]\n");
        }
        if (parts.contains(QStringLiteral("odbcdir"))) {
            // mkpath makes bin/ too.
            ASSERT_TRUE(QDir().mkpath(dir + QStringLiteral("/bin/odbc.ini")));
            writeFile(dir + QStringLiteral("/bin/odbcinst.ini"), "[y]\n");
        }
    }

    // The probe's report for an environment holding only `vars` (and what
    // the sanitizers need).
    QString run(const QMap<QString, QString> &vars) {
        QProcessEnvironment env;
        const QProcessEnvironment outer = QProcessEnvironment::systemEnvironment();
        for (const char *keep : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
            if (outer.contains(QLatin1String(keep))) {
                env.insert(QLatin1String(keep), outer.value(QLatin1String(keep)));
            }
        }
        for (auto it = vars.begin(); it != vars.end(); ++it) {
            env.insert(it.key(), it.value());
        }
        QProcess probe;
        probe.setProcessEnvironment(env);
        probe.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        probe.start(QStringLiteral(APP_ENV_PROBE), {package});
        EXPECT_TRUE(probe.waitForFinished(30000));
        EXPECT_EQ(probe.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(probe.exitCode(), 0);
        return QString::fromUtf8(probe.readAllStandardOutput());
    }

    QTemporaryDir tmp;
    QString root, install, package, bundled;
};

}  // namespace

TEST_F(InstallationEnvironment, SymbolicLinkHomeIsExportedResolved) {
    makeInstallation(install,
                     {QStringLiteral("bin"), QStringLiteral("lib"), QStringLiteral("odbc")});
    const QString link = root + QStringLiteral("/link");
    ASSERT_TRUE(QFile::link(install, link));
    EXPECT_EQ(run({{QStringLiteral("CORVANTA_HOME"), link},
                   {QStringLiteral("PATH"), QStringLiteral("/usr/bin:/bin")},
                   {QStringLiteral("LD_LIBRARY_PATH"), QStringLiteral("/opt/x")}}),
              QStringLiteral("CORVANTA_HOME=%1\n"
                             "PATH=%1/bin:/usr/bin:/bin\n"
                             "LD_LIBRARY_PATH=%1/lib:/opt/x\n"
                             "ODBCINI=%1/bin/odbc.ini\n"
                             "ODBCINSTINI=%1/bin/odbcinst.ini\n"
                             "search %1\n")
                  .arg(install));
}

TEST_F(InstallationEnvironment, HomeThatIsNoDirectoryFallsBackSilently) {
    makeInstallation(bundled, {QStringLiteral("bin")});
    const QString file = root + QStringLiteral("/file");
    writeFile(file, "x");
    const QString expected = QStringLiteral(
                                 "CORVANTA_HOME=%1\n"
                                 "PATH=%1/bin:/usr/bin\n"
                                 "LD_LIBRARY_PATH unset\n"
                                 "ODBCINI unset\n"
                                 "ODBCINSTINI unset\n"
                                 "search %1\n")
                                 .arg(bundled);
    EXPECT_EQ(run({{QStringLiteral("CORVANTA_HOME"), file},
                   {QStringLiteral("PATH"), QStringLiteral("/usr/bin")}}),
              expected);
    EXPECT_EQ(run({{QStringLiteral("CORVANTA_HOME"), root + QStringLiteral("/missing")},
                   {QStringLiteral("PATH"), QStringLiteral("/usr/bin")}}),
              expected);
}

TEST_F(InstallationEnvironment, NoInstallationLogsOneLineAndChangesNothing) {
    EXPECT_EQ(run({{QStringLiteral("PATH"), QStringLiteral("/usr/bin")},
                   {QStringLiteral("ODBCINI"), QStringLiteral("/etc/odbc.ini")}}),
              QStringLiteral("log Corvanta installation not found\n"
                             "CORVANTA_HOME unset\n"
                             "PATH=/usr/bin\n"
                             "LD_LIBRARY_PATH unset\n"
                             "ODBCINI=/etc/odbc.ini\n"
                             "ODBCINSTINI unset\n"));
}

TEST_F(InstallationEnvironment, UnsetListsGetTheDirectoryAloneAndEmptyOnesKeepTheirColon) {
    makeInstallation(install, {QStringLiteral("bin"), QStringLiteral("lib")});
    EXPECT_EQ(run({{QStringLiteral("CORVANTA_HOME"), install},
                   {QStringLiteral("LD_LIBRARY_PATH"), QString()}}),
              QStringLiteral("CORVANTA_HOME=%1\n"
                             "PATH=%1/bin\n"
                             "LD_LIBRARY_PATH=%1/lib:\n"
                             "ODBCINI unset\n"
                             "ODBCINSTINI unset\n"
                             "search %1\n")
                  .arg(install));
    EXPECT_EQ(
        run({{QStringLiteral("CORVANTA_HOME"), install}, {QStringLiteral("PATH"), QString()}}),
        QStringLiteral("CORVANTA_HOME=%1\n"
                       "PATH=%1/bin:\n"
                       "LD_LIBRARY_PATH=%1/lib\n"
                       "ODBCINI unset\n"
                       "ODBCINSTINI unset\n"
                       "search %1\n")
            .arg(install));
}

TEST_F(InstallationEnvironment, PresetOdbcVariablesStayAndDirectoriesAreNoFiles) {
    makeInstallation(install, {QStringLiteral("odbc")});
    EXPECT_EQ(run({{QStringLiteral("CORVANTA_HOME"), install},
                   {QStringLiteral("ODBCINI"), QString()},
                   {QStringLiteral("ODBCINSTINI"), QStringLiteral("/etc/mine.ini")}}),
              QStringLiteral("CORVANTA_HOME=%1\n"
                             "PATH=%1/bin\n"
                             "LD_LIBRARY_PATH unset\n"
                             "ODBCINI=\n"
                             "ODBCINSTINI=/etc/mine.ini\n"
                             "search %1\n")
                  .arg(install));

    const QString other = root + QStringLiteral("/other");
    makeInstallation(other, {QStringLiteral("odbcdir")});
    EXPECT_EQ(run({{QStringLiteral("CORVANTA_HOME"), other}}),
              QStringLiteral("CORVANTA_HOME=%1\n"
                             "PATH=%1/bin\n"
                             "LD_LIBRARY_PATH unset\n"
                             "ODBCINI unset\n"
                             "ODBCINSTINI=%1/bin/odbcinst.ini\n"
                             "search %1\n")
                  .arg(other));
}
