#include "LinuxPlatform.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace {

class XdgAutostartListTest : public ::testing::Test {
protected:
    QTemporaryDir tmp;
    QString autostart() const { return tmp.path() + "/config/autostart"; }

    // An executable at <root>/bin/<name>; answers its path.
    QString makeProgram(const QString &root, const QString &name = "prog") {
        const QString path = root + "/bin/" + name;
        EXPECT_TRUE(QDir().mkpath(root + "/bin"));
        QFile f(path);
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("#!/bin/sh\n");
        f.close();
        ::chmod(QFile::encodeName(path).constData(), 0755);
        return path;
    }

    void writeEntry(const QString &name, const QByteArray &text) {
        QDir().mkpath(autostart());
        QFile f(autostart() + "/" + name);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(text);
    }

    QByteArray readEntry(const QString &name) {
        QFile f(autostart() + "/" + name);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
    }

    QStringList files() const {
        return QDir(autostart()).entryList(QDir::Files | QDir::Hidden, QDir::Name);
    }

    static QByteArray execEntry(const QByteArray &exec, const QByteArray &extra = {}) {
        return "[Desktop Entry]\nType=Application\nName=X\nExec=" + exec + "\n" + extra;
    }

    // id -> resolved URL (or "-") in list order, for exact comparison.
    QStringList describe(XdgAutostartList &list) {
        QStringList out;
        const auto items = list.snapshot();
        EXPECT_TRUE(items);
        for (const LoginItem &item : items.value_or(QList<LoginItem>{})) {
            out << item.id + " -> " + (item.resolved ? item.resolved->toString() : "-");
        }
        return out;
    }
};

TEST_F(XdgAutostartListTest, PackageRootIsTheCleanedDirectoryAboveTheExecutable) {
    EXPECT_EQ(XdgAutostartList::packageRootUrl("/opt/corvanta/bin/corvanta-monitor"),
              QUrl("file:///opt/corvanta"));
    EXPECT_EQ(XdgAutostartList::packageRootUrl("/opt/./x/../corvanta//bin/m"),
              QUrl("file:///opt/corvanta"));
    EXPECT_EQ(XdgAutostartList::packageRootUrl("/usr/bin/m").toString(), "file:///usr");
    EXPECT_EQ(XdgAutostartList::packageRootUrl("/m").toString(), "file:///");
}

TEST_F(XdgAutostartListTest, MissingDirectoryIsAnEmptyListAndAFileIsUnreadable) {
    XdgAutostartList missing(autostart(), "/nonexistent");
    ASSERT_TRUE(missing.snapshot());
    EXPECT_TRUE(missing.snapshot()->isEmpty());

    QFile plain(tmp.path() + "/plain");
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    XdgAutostartList notADir(plain.fileName(), "/nonexistent");
    EXPECT_FALSE(notADir.snapshot());
}

TEST_F(XdgAutostartListTest, ListsDesktopFilesInNameOrderAndResolvesOnlyUsableEntries) {
    const QString a = makeProgram(tmp.path() + "/pkg a");
    const QString b = makeProgram(tmp.path() + "/pkg\"b", "p$q");
    const QString rootA = QUrl::fromLocalFile(tmp.path() + "/pkg a").toString();
    const QString rootB = QUrl::fromLocalFile(tmp.path() + "/pkg\"b").toString();
    const QByteArray quotedA = "\"" + QFile::encodeName(a) + "\"";
    writeEntry("b.desktop", execEntry(quotedA + " --x"));
    writeEntry("a.desktop",
               execEntry("\"" + QFile::encodeName(tmp.path()) + "/pkg\\\\\"b/bin/p\\\\$q\""));
    writeEntry("B.desktop", execEntry("relative/bin/prog"));
    writeEntry("c.desktop", execEntry(quotedA, "Hidden=true\n"));
    writeEntry("d.desktop", execEntry(quotedA, "X-GNOME-Autostart-enabled=false\n"));
    writeEntry("e.desktop", execEntry("/nonexistent/bin/prog"));
    writeEntry("f.desktop", execEntry("\"" + QFile::encodeName(a)));
    writeEntry("g.desktop", "no group at all\nExec=" + QFile::encodeName(a) + "\n");
    writeEntry("h.desktop", "[Desktop Entry]\nType=Link\nExec=" + QFile::encodeName(a) + "\n");
    writeEntry("i.desktop", execEntry(QFile::encodeName(tmp.path())));  // a directory
    writeEntry("j.desktop", execEntry(quotedA) + QByteArray(70 * 1024, '#'));
    writeEntry("not-an-entry.txt", execEntry(quotedA));
    QDir().mkpath(autostart() + "/k.desktop");

    XdgAutostartList list(autostart(), a);
    EXPECT_EQ(describe(list), (QStringList{
                                  "B.desktop -> -",
                                  "a.desktop -> " + rootB,
                                  "b.desktop -> " + rootA,
                                  "c.desktop -> -",
                                  "d.desktop -> -",
                                  "e.desktop -> -",
                                  "f.desktop -> -",
                                  "g.desktop -> -",
                                  "h.desktop -> -",
                                  "i.desktop -> -",
                                  "j.desktop -> -",
                                  "k.desktop -> -",
                              }));
}

TEST_F(XdgAutostartListTest, FifoInTheDirectoryDoesNotBlock) {
    QDir().mkpath(autostart());
    ASSERT_EQ(::mkfifo(QFile::encodeName(autostart() + "/fifo.desktop").constData(), 0600), 0);
    XdgAutostartList list(autostart(), "/x/bin/y");
    EXPECT_EQ(describe(list), QStringList{"fifo.desktop -> -"});
}

TEST_F(XdgAutostartListTest, InsertWritesAQuotedEntryThatResolvesToThePackageRoot) {
    const QString exe = makeProgram(tmp.path() + "/my \"pkg\" $HOME \\ 100%", "corvanta-monitor");
    const QUrl root = XdgAutostartList::packageRootUrl(exe);
    XdgAutostartList list(autostart(), exe);  // the directory does not exist yet

    ASSERT_TRUE(list.insertFirst(root));
    EXPECT_EQ(files(), QStringList{"corvanta-monitor.desktop"});  // no temporary left
    const QByteArray escapedRoot =
        QFile::encodeName(tmp.path()) + "/my \\\\\"pkg\\\\\" \\\\$HOME " + "\\\\\\\\ 100%%";
    EXPECT_EQ(readEntry("corvanta-monitor.desktop"),
              "[Desktop Entry]\n"
              "Type=Application\n"
              "Name=Corvanta Monitor\n"
              "Comment=Watches the local Corvanta database servers\n"
              "Exec=\"" +
                  escapedRoot +
                  "/bin/corvanta-monitor\"\n"
                  "Icon=corvanta-monitor\n"
                  "Terminal=false\n"
                  "X-GNOME-Autostart-enabled=true\n");
    const auto items = list.snapshot();
    ASSERT_TRUE(items);
    ASSERT_EQ(items->size(), 1);
    EXPECT_EQ(items->front().resolved, root);
}

TEST_F(XdgAutostartListTest, InsertTakesANumberedNameWhenAnotherProgramHoldsTheName) {
    const QString exe = makeProgram(tmp.path() + "/pkg", "corvanta-monitor");
    const QString other = makeProgram(tmp.path() + "/other");
    const QByteArray foreign = execEntry(QFile::encodeName(other));
    writeEntry("corvanta-monitor.desktop", foreign);
    writeEntry("corvanta-monitor-2.desktop", "junk");
    XdgAutostartList list(autostart(), exe);

    ASSERT_TRUE(list.insertFirst(XdgAutostartList::packageRootUrl(exe)));
    EXPECT_EQ(files(), (QStringList{"corvanta-monitor-2.desktop", "corvanta-monitor-3.desktop",
                                    "corvanta-monitor.desktop"}));
    EXPECT_EQ(readEntry("corvanta-monitor.desktop"), foreign);
    EXPECT_EQ(readEntry("corvanta-monitor-2.desktop"), "junk");
}

TEST_F(XdgAutostartListTest, InsertRewritesTheProgramsOwnSwitchedOffEntry) {
    const QString exe = makeProgram(tmp.path() + "/pkg", "corvanta-monitor");
    const QUrl root = XdgAutostartList::packageRootUrl(exe);
    writeEntry("corvanta-monitor.desktop", execEntry(QFile::encodeName(exe), "Hidden=true\n"));
    XdgAutostartList list(autostart(), exe);
    ASSERT_FALSE(list.snapshot()->front().resolved);

    ASSERT_TRUE(list.insertFirst(root));
    EXPECT_EQ(files(), QStringList{"corvanta-monitor.desktop"});
    EXPECT_EQ(list.snapshot()->front().resolved, root);
}

TEST_F(XdgAutostartListTest, InsertFailsCleanlyWhenTheDirectoryCannotBeMade) {
    QFile plain(tmp.path() + "/config");
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    plain.close();
    XdgAutostartList list(autostart(), "/x/bin/y");
    EXPECT_FALSE(list.insertFirst(QUrl("file:///x")));
    EXPECT_EQ(QDir(tmp.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList{"config"});
}

TEST_F(XdgAutostartListTest, RemoveDeletesOnlyTheGivenEntry) {
    const QString exe = makeProgram(tmp.path() + "/pkg", "corvanta-monitor");
    writeEntry("a.desktop", execEntry(QFile::encodeName(exe)));
    writeEntry("b.desktop", execEntry(QFile::encodeName(exe)));
    XdgAutostartList list(autostart(), exe);
    const auto items = list.snapshot();
    ASSERT_TRUE(items && items->size() == 2);

    ASSERT_TRUE(list.remove(items->at(0)));
    EXPECT_EQ(files(), QStringList{"b.desktop"});
    EXPECT_FALSE(list.remove(items->at(0)));
    EXPECT_FALSE(list.remove(LoginItem{"../config/autostart/b.desktop", {}}));
    EXPECT_FALSE(list.remove(LoginItem{"", {}}));
    EXPECT_EQ(files(), QStringList{"b.desktop"});
}

TEST_F(XdgAutostartListTest, DefaultDirectoryFollowsXdgConfigHome) {
    const QByteArray savedConfig = qgetenv("XDG_CONFIG_HOME");
    const QByteArray savedHome = qgetenv("HOME");
    qputenv("HOME", "/home/someone");
    qputenv("XDG_CONFIG_HOME", "/cfg/");
    EXPECT_EQ(XdgAutostartList::defaultDirectory(), "/cfg/autostart");
    qputenv("XDG_CONFIG_HOME", "relative/cfg");  // not absolute: ignored
    EXPECT_EQ(XdgAutostartList::defaultDirectory(), "/home/someone/.config/autostart");
    qunsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(XdgAutostartList::defaultDirectory(), "/home/someone/.config/autostart");
    qputenv("HOME", savedHome);
    if (savedConfig.isNull()) {
        qunsetenv("XDG_CONFIG_HOME");
    } else {
        qputenv("XDG_CONFIG_HOME", savedConfig);
    }
}

}  // namespace
