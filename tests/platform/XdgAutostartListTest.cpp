#include "LinuxPlatform.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

class XdgAutostartListTest : public ::testing::Test {
protected:
    QTemporaryDir tmp;
    QString dir() const { return tmp.path() + "/config/autostart"; }

    // An executable at <root>/bin/<name>.
    QString makeProgram(const QString &root, const QString &name = "corvanta-monitor") {
        EXPECT_TRUE(QDir().mkpath(root + "/bin"));
        QFile f(root + "/bin/" + name);
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        f.setPermissions(f.permissions() | QFile::ExeOwner);
        return f.fileName();
    }
    void writeEntry(const QString &name, const QByteArray &text) {
        QDir().mkpath(dir());
        QFile f(dir() + "/" + name);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(text);
    }
    static QStringList entries(const QString &dir) {
        return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }
    static QByteArray execEntry(const QByteArray &exec, const QByteArray &extra = {}) {
        return "[Desktop Entry]\nType=Application\nExec=" + exec + "\n" + extra;
    }
    static QString root(const QString &dir) { return QUrl::fromLocalFile(dir).toString(); }
    // "id -> resolved URL" lines in list order.
    static QString describe(XdgAutostartList &list) {
        QString out;
        for (const LoginItem &item :
             list.snapshot().value_or(QList<LoginItem>{{"<unreadable>", {}}})) {
            out += item.id + " -> " + (item.resolved ? item.resolved->toString() : "-") + "\n";
        }
        return out;
    }
};

TEST(XdgAutostartListRootTest, PackageRootIsTheCleanedDirectoryAboveTheExecutable) {
    QStringList roots;
    for (const char *exe : {"/opt/./x/../corvanta//bin/corvanta-monitor", "/usr/bin/m", "/m"}) {
        roots << XdgAutostartList::packageRootUrl(exe).toString();
    }
    EXPECT_EQ(roots, (QStringList{"file:///opt/corvanta", "file:///usr", "file:///"}));
}

TEST_F(XdgAutostartListTest, ListsDesktopFilesInNameOrderAndResolvesOnlyUsableEntries) {
    const QString a = makeProgram(tmp.path() + "/pkg a", "prog");
    const QByteArray quotedA = QFile::encodeName("\"" + a + "\"");
    makeProgram(tmp.path() + "/pkg\"b", "p$q");
    const QByteArray quotedB = QFile::encodeName(tmp.path()) + "/pkg\\\\\"b/bin/p\\\\$q\"";
    // Only the first [Desktop Entry] group counts, and in it the first key.
    writeEntry("a.desktop", "\xEF\xBB\xBF# c\r\nExec=" + quotedA + "\n[Other]\nExec=" + quotedA +
                                "\n[Desktop Entry]\r\nType = Application\nExec[de]=" + quotedA +
                                "\n  Exec =  \"" + quotedB + "  \nExec=" + quotedA +
                                "\nHidden=false\nHidden=true\n[Desktop Entry]\n"
                                "X-GNOME-Autostart-enabled=false\n");
    writeEntry("b.desktop", execEntry(quotedA + " %U"));
    writeEntry("B.desktop", execEntry("relative/bin/prog"));
    writeEntry("c.desktop", execEntry(quotedA, "Hidden=true\n"));
    writeEntry("d.desktop", execEntry(quotedA, "X-GNOME-Autostart-enabled=false\n"));
    writeEntry("e.desktop", execEntry("/nonexistent/bin/prog"));
    writeEntry("f.desktop", execEntry(quotedA.chopped(1)));
    writeEntry("g.desktop", "no group at all\nExec=" + quotedA + "\n");
    writeEntry("h.desktop", "[Desktop Entry]\nType=Link\nExec=" + quotedA + "\n");
    writeEntry("i.desktop", execEntry(QFile::encodeName(tmp.path())));  // a directory
    writeEntry("j.desktop", execEntry(quotedA) + QByteArray(70 * 1024, '#'));
    writeEntry("not-an-entry.txt", execEntry(quotedA));
    QDir().mkpath(dir() + "/k.desktop");
    // A FIFO must neither block the listing nor count.
    ASSERT_EQ(::mkfifo(QFile::encodeName(dir() + "/l.desktop").constData(), 0600), 0);

    XdgAutostartList list(dir(), a);
    EXPECT_EQ(describe(list), "B.desktop -> -\na.desktop -> " + root(tmp.path() + "/pkg\"b") +
                                  "\nb.desktop -> " + root(tmp.path() + "/pkg a") +
                                  "\nc.desktop -> -\nd.desktop -> -\ne.desktop -> -\n"
                                  "f.desktop -> -\ng.desktop -> -\nh.desktop -> -\n"
                                  "i.desktop -> -\nj.desktop -> -\nk.desktop -> -\n"
                                  "l.desktop -> -\n");
}

TEST_F(XdgAutostartListTest, InsertCreatesTheDirectoryAndWritesAQuotedEntryAtomically) {
    const QString exe = makeProgram(tmp.path() + "/my \"pkg\" $HOME \\ 100%\t`x`\nend");
    XdgAutostartList list(dir(), exe);
    EXPECT_EQ(describe(list), "");  // no directory yet: no login items
    ASSERT_TRUE(list.insertFirst(XdgAutostartList::packageRootUrl(exe)));
    EXPECT_EQ(entries(dir()), QStringList{"corvanta-monitor.desktop"});  // no temporary left
    QFile entry(dir() + "/corvanta-monitor.desktop");
    ASSERT_TRUE(entry.open(QIODevice::ReadOnly));
    EXPECT_EQ(entry.readAll(),
              "[Desktop Entry]\nType=Application\nName=Corvanta Monitor\n"
              "Comment=Watches the local Corvanta database servers\nExec=\"" +
                  QFile::encodeName(tmp.path()) +
                  "/my \\\\\"pkg\\\\\" \\\\$HOME \\\\\\\\ 100%%\\t\\\\`x\\\\`\\nend/bin/"
                  "corvanta-monitor\"\nIcon=corvanta-monitor\nTerminal=false\n"
                  "X-GNOME-Autostart-enabled=true\n");
    // The quoting survives the way back.
    EXPECT_EQ(describe(list), "corvanta-monitor.desktop -> " +
                                  root(tmp.path() + "/my \"pkg\" $HOME \\ 100%\t`x`\nend") + "\n");
}

TEST_F(XdgAutostartListTest, OwnEntryIsNumberedPastOthersRewrittenWhenOffAndRemovedAlone) {
    const QString exe = makeProgram(tmp.path() + "/pkg");
    const QUrl pkg(root(tmp.path() + "/pkg"));
    writeEntry("corvanta-monitor.desktop",
               execEntry(QFile::encodeName(makeProgram(tmp.path() + "/other"))));
    writeEntry("corvanta-monitor-2.desktop", "junk");
    XdgAutostartList list(dir(), exe);
    ASSERT_TRUE(list.insertFirst(pkg));
    const QString junk = "corvanta-monitor-2.desktop -> -\n";
    const QString own = "corvanta-monitor-3.desktop -> " + pkg.toString() + "\n";
    const QString other = "corvanta-monitor.desktop -> " + root(tmp.path() + "/other") + "\n";
    EXPECT_EQ(describe(list), junk + own + other);

    writeEntry("corvanta-monitor-3.desktop", execEntry(QFile::encodeName(exe), "Hidden=true\n"));
    ASSERT_TRUE(list.insertFirst(pkg));
    EXPECT_EQ(describe(list), junk + own + other);

    const LoginItem item = list.snapshot()->at(1);
    ASSERT_TRUE(list.remove(item));
    EXPECT_FALSE(list.remove(item));
    EXPECT_FALSE(list.remove(LoginItem{"../autostart/corvanta-monitor-2.desktop", {}}));
    EXPECT_FALSE(list.remove(LoginItem{"", {}}));
    EXPECT_EQ(describe(list), junk + other);
}

TEST_F(XdgAutostartListTest, UnreadableDirectoryFailsCleanly) {
    QFile plain(tmp.path() + "/config");
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    XdgAutostartList list(dir(), "/x/bin/y");
    EXPECT_EQ(describe(list), "<unreadable> -> -\n");
    EXPECT_FALSE(list.insertFirst(QUrl("file:///x")));
    EXPECT_EQ(entries(tmp.path()), QStringList{"config"});
}

}  // namespace
