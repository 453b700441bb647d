// The commands through the real binary, with the stand-in server in a
// temporary installation and no display in the environment.
#include <QProcess>
#include <QRegularExpression>

#include <csignal>

#include "../TestSupport.h"

namespace {

struct Outcome {
    int status = -1;
    QString out, err;
};

class Commands : public ::testing::Test {
protected:
    void SetUp() override {
        for (const QString &dir :
             {u"inst/database"_s, u"inst/analytics"_s, u"other/a"_s, u"other/b"_s}) {
            writeFile(at(dir + u"/corvanta.ini"_s), "[database]\n");
        }
        ASSERT_TRUE(QFile::link(at(u"inst/analytics"_s), at(u"alias"_s)));
    }
    // Kills a server a case left running and removes its lock file, once it is gone.
    void TearDown() override {
        for (const QString &dir : {u"inst/database"_s, u"inst/analytics"_s}) {
            const pid_t pid = pid_t(lockPid(dir));
            if (pid > 1 && ::kill(pid, SIGKILL) == 0) {
                EXPECT_TRUE(QTest::qWaitFor([&] { return ::kill(pid, 0) != 0; }, 30000));
            }
            QFile::remove(at(dir + u"/corvanta.lck"_s));
        }
    }

    QString at(const QString &path) const { return root + u'/' + path; }
    qint64 lockPid(const QString &dir) const {
        return readFile(at(dir + u"/corvanta.lck"_s)).trimmed().toLongLong();
    }

    // "@" in an argument is the temporary root; --home @/inst unless given.
    Outcome run(const QString &line, const QStringList &env = {}) const {
        QStringList args = QString(line).replace(u'@', root).split(u' ', Qt::SkipEmptyParts);
        if (!args.contains(u"--home"_s)) {
            args = QStringList{u"--home"_s, at(u"inst"_s)} + args;
        }
        QProcessEnvironment environment;
        for (const QString &pair :
             QStringList{u"PATH=/usr/bin:/bin"_s, u"HOME="_s + root, u"XDG_CONFIG_HOME=@/config"_s,
                         u"CORVANTA_BINARY=" CORVANTA_STANDIN ""_s, u"CORVANTA_STANDIN_PORT=0"_s} +
                 env) {
            environment.insert(pair.section(u'=', 0, 0), pair.section(u'=', 1).replace(u'@', root));
        }
        QProcess process;
        process.setProcessEnvironment(environment);
        process.setWorkingDirectory(root);
        process.start(program, args);
        EXPECT_TRUE(process.waitForFinished(60000)) << "still running: " << line.toStdString();
        Outcome result{process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                       QString::fromUtf8(process.readAllStandardOutput()),
                       QString::fromUtf8(process.readAllStandardError())};
        // Every diagnostic line carries the program's prefix.
        for (const QString &errLine : result.err.split(u'\n', Qt::SkipEmptyParts)) {
            EXPECT_TRUE(errLine.startsWith(u"corvanta-monitor: "_s)) << errLine.toStdString();
        }
        return result;
    }

    // Each row: the command line, the exit status, what stdout and stderr match. A line
    // "until L" runs L again until it ends with the status. In the patterns "%db" is the
    // database instance's JSON object while its server runs.
    struct Case {
        const char *line;
        int status;
        const char *out, *err;
    };
    void check(const QList<Case> &cases, const QStringList &env = {}) const {
        for (const Case &c : cases) {
            SCOPED_TRACE(c.line);
            QString line = QString::fromUtf8(c.line);
            if (line.startsWith(u"until "_s)) {
                line = line.mid(6);
                EXPECT_TRUE(
                    QTest::qWaitFor([&] { return run(line, env).status == c.status; }, 60000));
            }
            const Outcome r = run(line, env);
            EXPECT_EQ(r.status, c.status) << r.err.toStdString();
            const QString db =
                uR"(\{"default":true,"directory":"@/inst/database","instance":"database",)"
                uR"("logFile":"@/inst/database/corvanta.log","name":"Default Instance",)"
                uR"("pid":%1,"state":"running"\})"_s.arg(lockPid(u"inst/database"_s));
            const auto matches = [&](const QString &text, const char *pattern) {
                const QString expanded =
                    QString::fromUtf8(pattern).replace(u"%db"_s, db).replace(u'@', root);
                return QRegularExpression(expanded).match(text).hasMatch();
            };
            EXPECT_TRUE(matches(r.out, c.out)) << r.out.toStdString();
            EXPECT_TRUE(matches(r.err, c.err)) << r.err.toStdString();
        }
    }

    QTemporaryDir tmp;
    const QString root = QDir(tmp.path()).canonicalPath();
    QString program = QStringLiteral(CORVANTA_MONITOR);
};

TEST_F(Commands, AnswerWithTheirExitStatus) {
    writeFile(at(u"other/a/corvanta.lck"_s), "2147483647\n");  // stale: told only about a
    check({
        {"list", 0,
         "^INSTANCE +DEFAULT +STATE +PID +NAME +DIRECTORY +LOG\n"
         "analytics +- +stopped +- +Instance 'analytics' +@/inst/analytics +-\n"
         "database +yes +stopped +- +Default Instance +@/inst/database +-\n$",
         "^$"},
        {"status", 3, "\ndatabase +yes +stopped +- +Default Instance", "^$"},
        {"status default", 3, "\ndatabase +yes +stopped", "^$"},
        {"status analytics", 3, "\nanalytics +- +stopped", "^$"},
        {"status @/inst/analytics/", 3, "\nanalytics +- +stopped", "^$"},
        {"status inst/../inst/analytics", 3, "\nanalytics +- +stopped", "^$"},
        {"status @/alias", 3, "\nanalytics +- +stopped", "^$"},
        {"stop --wait=1 analytics", 0, "^Instance 'analytics' is already stopped.\n$", "^$"},
        {"status nosuch", 4, "^$", "^corvanta-monitor: no such instance: nosuch\n$"},
        {"start @/other", 4, "^$", "^corvanta-monitor: no such instance: @/other\n$"},
        {"--home @/other status", 4, "^$",
         "^corvanta-monitor: no default instance among 2 instances; name one\n$"},
        {"--home @/other list", 0, "\na +- +stopped .*\nb +- +stopped",
         "^corvanta-monitor: stale .lck file detected: @/other/a/corvanta.lck\n$"},
        {"--home @/inst/database status", 3, "\ndatabase +yes", "^$"},
        {"frobnicate", 2, "^$", "^corvanta-monitor: unknown command 'frobnicate'\n"},
        {"stop a b", 2, "^$", "too many arguments for stop\n"},
        {"status --wait", 2, "^$", "status does not take --wait\n"},
        {"watch nosuch", 4, "^$", "^corvanta-monitor: no such instance: nosuch\n$"},
        {"start --wait=", 2, "^$", "--wait takes a number of seconds, not ''\n"},
        {"--json", 2, "^$", "--json needs a command\n"},
        {"--version", 0, "^corvanta-monitor " CORVANTA_VERSION "\n$", "^$"},
        {"--frobnicate", 2, "^$",
         "^corvanta-monitor: Unknown option 'frobnicate'.\n"
         "corvanta-monitor: Try 'corvanta-monitor --help' for more information.\n$"},
        {"--home", 2, "^$", "^corvanta-monitor: Missing value after '--home'.\n"},
        {"", 1, "^$",
         "^corvanta-monitor: cannot connect to a display \\(DISPLAY=unset, "
         "WAYLAND_DISPLAY=unset\\)\n$"},
        {"--set-home @/missing", 1, "^$", "^corvanta-monitor: @/missing: not a directory\n$"},
        {"--set-home @/other", 0, "^$", "^$"},
    });
    EXPECT_TRUE(readFile(at(u"config/corvanta-monitor/monitor.ini"_s))
                    .contains("home = " + at(u"other"_s).toUtf8()));
    // A display that is named but does not answer: Qt alone would abort.
    check({{"", 1, "^$", "^corvanta-monitor: cannot connect to a display \\(DISPLAY=:4711,"}},
          {u"DISPLAY=:4711"_s});
}

// Every command looks the installation up the same way; list stands for them.
TEST_F(Commands, NoInstallationIsAFailureNamingEveryPlaceLookedAt) {
    if (QFileInfo::exists(u"/opt/corvanta"_s) || QFileInfo::exists(u"/usr/lib/corvanta"_s)) {
        GTEST_SKIP() << "an installation exists on this machine";
    }
    check({{"--home @/missing list", 1, "^$",
            "^corvanta-monitor: Corvanta installation not found\n"
            "corvanta-monitor: Looked in: --home @/missing, CORVANTA_HOME \\(unset\\), home= in "
            "@/config/corvanta-monitor/monitor.ini \\(not set\\), /opt/corvanta, "}});
}

// Each case drives one server through a sequence of commands; without --wait they return
// at once. With --json, status, start and stop answer with list's object of the instance.
TEST_F(Commands, StartAndStopWaitUntilTheStateIsReachedOrTimeOut) {
    const struct {
        const char *server;  // the stand-in's test knob
        QList<Case> steps;
    } cases[] = {
        {"CORVANTA_STANDIN_LOCK_DELAY_MS=1500",
         {{"start", 0, "^Default Instance is starting \\(pid [0-9]+\\).\n$", "^$"},
          {"until status", 0, "\ndatabase +yes +running +[0-9]+ ", "^$"},
          {"start", 0, "^Default Instance is already running \\(pid [0-9]+\\).\n$", "^$"},
          {"list --json", 0,
           R"(^\{"installation":"@/inst","instances":\[\{"default":false,"directory":)"
           R"("@/inst/analytics","instance":"analytics","logFile":null,)"
           R"("name":"Instance 'analytics'","pid":null,"state":"stopped"\},%db\]\}\n$)",
           "^$"},
          {"status --json", 0, "^%db\n$", "^$"},
          {"start --json database", 0, "^%db\n$", "^$"},
          {"stop --wait=60", 0, "^Default Instance is stopped.\n$", "^$"},
          {"status", 3, "\ndatabase +yes +stopped +- ", "^$"},
          {"start --wait=60", 0, "^Default Instance is running \\(pid [0-9]+\\).\n$", "^$"},
          {"stop", 0, "^Default Instance is stopping \\(pid [0-9]+\\).\n$", "^$"},
          {"stop --json --wait", 0, R"(^\{"default":true,.*"pid":null,"state":"stopped"\}\n$)",
           "^$"}}},
        {"CORVANTA_STANDIN_IGNORE_TERM=1",
         {{"start --wait", 0, "is running", "^$"},
          {"stop --wait=1", 5, "^$",
           "^corvanta-monitor: Default Instance is still stopping after 1 s\n$"},
          {"status", 0, "running", "^$"}}},
        {"CORVANTA_STANDIN_EXIT_AT_ONCE=1",
         {{"start --wait", 1, "^$",
           "^corvanta-monitor: the server of Default Instance exited before it was running; "
           "see @/inst/database/corvanta.log\n$"}}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.server);
        check(c.steps, {QString::fromUtf8(c.server)});
        TearDown();
    }
}

}  // namespace

// A file of someone else's is left as it was; an empty one, or one this program wrote, is
// replaced, and no temporary file stays beside it.
TEST_F(Commands, MetricsFileIsReplacedOnlyWhenThisProgramWroteIt) {
    writeFile(at(u"out/other.prom"_s), "up 1\n");
    writeFile(at(u"out/corvanta.prom"_s), "");
    check(
        {{"metrics --output @/out/other.prom", 1, "^$",
          "^corvanta-monitor: @/out/other.prom was not written by corvanta-monitor; "
          "not replacing it\n$"},
         {"metrics --output @/out/corvanta.prom", 0, "^$", "^$"},
         {"metrics --output @/out/corvanta.prom", 0, "^$", "^$"},
         {"metrics --output @/out", 1, "^$", "@/out is not a regular file; not replacing it\n$"}});
    EXPECT_EQ(readFile(at(u"out/other.prom"_s)), "up 1\n");
    EXPECT_EQ(readFile(at(u"out/corvanta.prom"_s)), run(u"metrics"_s).out.toUtf8());
    EXPECT_EQ(QDir(at(u"out"_s)).entryList(QDir::Files),
              QStringList({u"corvanta.prom"_s, u"other.prom"_s}));
}

int main(int argc, char *argv[]) {
    return runTests<QCoreApplication>(argc, argv);
}
