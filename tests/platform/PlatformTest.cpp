#include "app/platform/LinuxPlatform.h"
#include "app/platform/SingleInstance.h"

#include <QGuiApplication>
#include <QLocalSocket>
#include <QScopeGuard>

#include "../TestSupport.h"

#include <sys/socket.h>
#include <sys/un.h>

namespace {

class PlatformTest : public ::testing::Test {
protected:
    QTemporaryDir tmp;
    const QString dir = tmp.path() + "/config/autostart";

    QString program(const QString &package, const QString &name = "corvanta-monitor") {
        const QString path = tmp.path() + "/" + package + "/bin/" + name;
        writeFile(path, "#!/bin/sh\n");
        QFile::setPermissions(path, QFile::ReadOwner | QFile::ExeOwner);
        return path;
    }
    QString url(const QString &package, const QString &name = "corvanta-monitor") const {
        const QString base = QFileInfo(tmp.path()).canonicalFilePath();
        return QUrl::fromLocalFile(base + "/" + package + "/bin/" + name).toString();
    }
    QByteArray read(const QString &name) const { return readFile(dir + "/" + name); }
    void entry(const QString &name, const QByteArray &exec, const QByteArray &extra = {}) {
        writeFile(dir + "/" + name,
                  "[Desktop Entry]\nType=Application\nExec=" + exec + "\n" + extra);
    }
    // "id[=resolved URL]" in list order.
    static QString describe(XdgAutostartList &list) {
        QStringList out;
        for (const LoginItem &item :
             list.snapshot().value_or(QList<LoginItem>{{"<unreadable>", {}}})) {
            out << item.id + (item.resolved ? "=" + item.resolved->toString() : "");
        }
        return out.join(' ');
    }
};

TEST_F(PlatformTest, SingleInstanceTakesOverAStaleSocketAndRefusesASecondWhileAlive) {
    const QString name = tmp.path() + "/monitor";
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    qstrncpy(addr.sun_path, QFile::encodeName(name).constData(), sizeof(addr.sun_path));
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)), 0);
    ::close(fd);  // a killed monitor's socket: bound, nobody listening
    {
        SingleInstance first(name);
        ASSERT_TRUE(first.acquire());
        EXPECT_FALSE(SingleInstance(name).acquire());
        QLocalSocket probe;  // the refused one must leave the socket alone
        probe.connectToServer(name);
        EXPECT_TRUE(probe.waitForConnected(1000));
    }
    EXPECT_TRUE(SingleInstance(name).acquire());
}

// This xdg-open records its arguments only once a writer has opened its FIFO, so an opener
// that waited for it would hang. The timeout only ends that deadlock in a failing run.
TEST_F(PlatformTest, OpenerHandsUrlsAndFilesToXdgOpenWithoutWaiting) {
    if (QGuiApplication::platformName() != u"xcb") {
        GTEST_SKIP() << "only desktop platforms hand URLs on; ctest runs this on Xvfb";
    }
    const QString script = program("fake", "xdg-open");
    writeFile(script,
              "#!/bin/sh\ntimeout 120 sh -c ': <\"$1\"' sh \"$0.go\"\n"
              "printf '%s\\n' \"$@\" >>\"$0.rec\"\n");
    const QByteArray fifo = QFile::encodeName(script + ".go");
    ASSERT_EQ(::mkfifo(fifo.constData(), 0600), 0);
    // Opening the writing end releases the scripts then waiting (ENXIO while none is).
    const auto releasedBoth = [&] {
        ::close(::open(fifo.constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        return readFile(script + ".rec").count('\n') == 2;
    };
    const auto noneLeftWaiting = qScopeGuard(releasedBoth);
    qputenv("PATH", QFile::encodeName(tmp.path()) + "/fake/bin:" + qgetenv("PATH"));
    QtDesktopOpener opener;
    ASSERT_TRUE(opener.openUrl(QUrl("http://localhost:8890/kelvarine/")));
    ASSERT_TRUE(opener.openFile("/srv/my db/corvanta.log"));
    EXPECT_FALSE(QFile::exists(script + ".rec"));
    EXPECT_TRUE(QTest::qWaitFor(releasedBoth, 20000));
    QByteArrayList recorded = readFile(script + ".rec").split('\n');
    std::sort(recorded.begin(), recorded.end());  // the two ran side by side
    EXPECT_EQ(recorded.join(' '),
              " file:///srv/my%20db/corvanta.log http://localhost:8890/kelvarine/");
}

TEST_F(PlatformTest, AutostartListsDesktopFilesInNameOrderAndResolvesOnlyUsableEntries) {
    const QByteArray a = QFile::encodeName("\"" + program("pkg a", "prog") + "\"");
    program("pkg\"b", "p$q");
    const QByteArray b = QFile::encodeName(tmp.path()) + "/pkg\\\\\"b/bin/p\\\\$q\"";
    ASSERT_TRUE(QFile::link(tmp.path() + "/pkg a/bin/prog", tmp.path() + "/link"));
    // Only the first [Desktop Entry] group counts, and in it the first key.
    writeFile(dir + "/a.desktop", "\xEF\xBB\xBF# c\r\nExec=" + a + "\n[Other]\nExec=" + a +
                                      "\n[Desktop Entry]\r\nType = Application\nExec[de]=" + a +
                                      "\n  Exec =  \"" + b + "  \nExec=" + a +
                                      "\nHidden=false\nHidden=true\n[Desktop Entry]\n"
                                      "X-GNOME-Autostart-enabled=false\n");
    entry("b.desktop", QFile::encodeName(tmp.path()) + "/link/../link %U");
    entry("B.desktop", "relative/bin/prog");
    entry("c.desktop", a, "Hidden=true\n");
    entry("d.desktop", a, "X-GNOME-Autostart-enabled=false\n");
    entry("e.desktop", "/nonexistent/bin/prog");
    entry("f.desktop", a.chopped(1));
    writeFile(dir + "/g.desktop", "no group at all\nExec=" + a + "\n");
    entry("i.desktop", QFile::encodeName(tmp.path()));  // a directory
    entry("j.desktop", a, QByteArray(70 * 1024, '#'));
    QDir().mkpath(dir + "/k.desktop");
    // A FIFO must neither block the listing nor count.
    ASSERT_EQ(::mkfifo(QFile::encodeName(dir + "/l.desktop").constData(), 0600), 0);
    XdgAutostartList list(dir, "/x/bin/y");
    EXPECT_EQ(describe(list), QString("B.desktop a.desktop=%1 b.desktop c.desktop d.desktop "
                                      "e.desktop f.desktop g.desktop i.desktop j.desktop "
                                      "k.desktop l.desktop")
                                  .arg(url("pkg\"b", "p$q")));
    // The link's parent is not a directory, so the path does not resolve;
    // named plainly, a link resolves to the program it points at.
    entry("b.desktop", QFile::encodeName(tmp.path()) + "/link %U");
    EXPECT_TRUE(describe(list).contains(" b.desktop=" + url("pkg a", "prog") + " c.desktop"));
}

TEST_F(PlatformTest, AutostartInsertWritesAQuotedEntryAtomicallyThatReadsBackOrFailsCleanly) {
    const QString package = "my \"pkg\" $HOME \\ 100%\t`x`\nend";
    const QString exe = program(package);
    XdgAutostartList list(dir, exe);
    EXPECT_EQ(describe(list), "");  // no directory yet: no login items
    writeFile(tmp.path() + "/plain", {});
    XdgAutostartList blocked(tmp.path() + "/plain/autostart", exe);  // under a plain file
    EXPECT_EQ(describe(blocked), "<unreadable>");
    EXPECT_FALSE(blocked.insertFirst(*XdgAutostartList::programUrl(exe), {}));
    EXPECT_FALSE(list.insertFirst(QUrl::fromLocalFile(program("other")), {}));
    ASSERT_TRUE(list.insertFirst(*XdgAutostartList::programUrl(exe), {"--home", "/opt/a b"}));
    EXPECT_EQ(QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList{"corvanta-monitor.desktop"});  // no temporary left
    const QByteArray path =
        QFile::encodeName(tmp.path()) + "/my \"pkg\" $HOME \\\\ 100%\\t`x`\\nend";
    EXPECT_EQ(read("corvanta-monitor.desktop"),
              "[Desktop Entry]\nType=Application\nName=Corvanta Monitor\n"
              "Comment=Watches the local Corvanta database servers\nTryExec=" +
                  path + "/bin/corvanta-monitor\nExec=\"" + QFile::encodeName(tmp.path()) +
                  "/my \\\\\"pkg\\\\\" \\\\$HOME \\\\\\\\ 100%%\\t\\\\`x\\\\`\\nend/bin/"
                  "corvanta-monitor\" --home \"/opt/a b\"\nIcon=corvanta-monitor\n"
                  "Terminal=false\nX-GNOME-Autostart-enabled=true\n");
    EXPECT_EQ(describe(list), "corvanta-monitor.desktop=" + url(package));
}

// Many programs share one bin directory: another one's entry there, even under the monitor's
// own file name, is neither taken for the monitor's nor ever touched.
TEST_F(PlatformTest, AutostartNumbersItsEntryAndLeavesAnotherProgramsEntryByteForByte) {
    const QString exe = program("usr");
    const QByteArray foreign = "[Desktop Entry]\nType=Application\nName=Other\nExec=" +
                               QFile::encodeName(program("usr", "other-app")) + " --tray\n";
    writeFile(dir + "/corvanta-monitor.desktop", foreign);
    writeFile(dir + "/corvanta-monitor-2.desktop", "junk");
    XdgAutostartList list(dir, exe);
    const QUrl self = *XdgAutostartList::programUrl(exe);
    EXPECT_FALSE(list.remove(LoginItem{"corvanta-monitor.desktop", self}));

    // Numbered past the names taken, and removed by its name only; a hidden entry of its own is
    // rewritten, not added to.
    ASSERT_TRUE(list.insertFirst(self, {}));
    EXPECT_FALSE(list.remove(LoginItem{"../autostart/corvanta-monitor-3.desktop", self}));
    const QString all = "corvanta-monitor-2.desktop corvanta-monitor-3.desktop=" + url("usr") +
                        " corvanta-monitor.desktop=" + url("usr", "other-app");
    EXPECT_EQ(describe(list), all);
    entry("corvanta-monitor-3.desktop", QFile::encodeName(exe), "Hidden=true\n");
    ASSERT_TRUE(list.insertFirst(self, {}));
    EXPECT_EQ(describe(list), all);

    // Replaced by another program's entry after the snapshot: left alone.
    const LoginItem own = list.snapshot()->at(1);
    writeFile(dir + "/" + own.id, foreign);
    EXPECT_FALSE(list.remove(own));
    EXPECT_EQ(read(own.id), foreign);
    EXPECT_EQ(read("corvanta-monitor.desktop"), foreign);
}

}  // namespace

// The opener needs a GUI application.
int main(int argc, char **argv) {
    return runTests<QGuiApplication>(argc, argv);
}
