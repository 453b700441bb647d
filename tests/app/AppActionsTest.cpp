#include "TrayProbe.h"

// While the question is up an opening shows the menu as it was, without ticks, and a click on
// the icon brings the dialog forward. What the answers do, the console's address and a click
// on Wayland meanwhile are e2e.tray's. Then the default instance's other links.
TEST_F(TrayMenu, ItemsFollowTheServerAndActOnlyWhenConfirmed) {
    app.viewLogFile();  // no default instance yet
    const QString dir = addInstance(u"database"_s);
    fake.answer = false;
    fake.whileUp = [&] {
        const QString shown = describe(*menu);
        EXPECT_EQ(open(), shown);
        EXPECT_FALSE(timerRunning());
        menu->hide();
        QDialog dialog;
        dialog.setWindowModality(Qt::ApplicationModal);
        dialog.show();
        QWidget other(&dialog, Qt::Window);  // not blocked by the dialog
        other.show();
        other.activateWindow();
        EXPECT_TRUE(QTest::qWaitFor([&] { return QApplication::activeWindow() == &other; }));
        EXPECT_TRUE(clickIcon());
        EXPECT_TRUE(QTest::qWaitFor([&] { return QApplication::activeWindow() == &dialog; }));
        EXPECT_FALSE(menu->isVisible());
    };
    // The item rewritten in place for every status the record may read; those that act ask.
    open();
    QString seen;
    CorvantaInstance record(dir);
    QAction *const first = menu->actions().first();
    for (const qint32 status : std::initializer_list<qint32>{
             ServerStatusStopped, ServerStatusStarting, ServerStatusRunning, ServerStatusStopping,
             ServerStatusUnknown, 5, -1}) {
        record.setStatus(status);
        updateItem(first, &record);
        seen += (first->isEnabled() ? u"+ "_s : u"- "_s) + first->text() + u'\n';
        first->setEnabled(true);  // a disabled item must not act even so
        first->trigger();
    }
    EXPECT_EQ(seen,
              u"+ Start Default Instance\n- Default Instance: Starting\n+ Stop Default Instance\n"
              "- Default Instance: Stopping\n- Default Instance: Unknown\n"
              "- Default Instance: Unknown\n- Default Instance: Unknown\n"_s);
    addInstance(u"database+log+run"_s);
    open();
    EXPECT_TRUE(timerRunning());  // no longer held
    item(u"View Online Documentation"_s)->trigger();
    item(u"Open Diagnostic Messages"_s)->trigger();
    QFile::remove(dir + u"/corvanta.log"_s);  // gone since the menu was built
    app.viewLogFile();
    const QString ask =
        u"Do you want to %1 the Default Instance? | This will %2 "
        "Corvanta instance in directory\n%3. | %4 | Cancel\n"_s;
    const QString start = ask.arg(u"start"_s, u"start up a"_s, dir, u"Start"_s),
                  stop = ask.arg(u"stop"_s, u"stop the"_s, dir, u"Stop"_s);
    EXPECT_EQ(
        fake.calls,
        start + stop + u"http://docs.nordelix.com/corvanta/\nfile %1/corvanta.log\n"_s.arg(dir));
}

TEST_F(TrayMenu, StartAtLoginTogglesTheFirstEntryResolvingToTheProgram) {
    QUrl slashed = StartAtLogin::programUrl();
    slashed.setPath(slashed.path() + u'/');
    // The arguments of the entry added are e2e.tray's.
    fake.items = {{u"unresolved"_s, std::nullopt},
                  {u"slashed"_s, slashed},
                  {u"b"_s, StartAtLogin::programUrl()},
                  {u"c"_s, StartAtLogin::programUrl()}};
    QString seen;
    for (int round = 0; round < 4; ++round) {
        open();
        QAction *toggle = item(u"Start Corvanta Monitor at Login"_s);
        seen += toggle->isChecked() ? u"[x]"_s : u"[ ]"_s;
        toggle->trigger();
        for (const LoginItem &entry : fake.items) {
            seen += u' ' + entry.id;
        }
        seen += u'\n';
    }
    EXPECT_EQ(seen,
              u"[x] unresolved slashed c\n[x] unresolved slashed\n"
              "[ ] added unresolved slashed\n[x] unresolved slashed\n"_s);
}

// Each case runs the set-up in a child with exactly the given environment; "@"
// stands for a fresh directory, "$" for the fallback installation in it.
TEST_F(TrayMenu, ExportsTheInstallationFoundOrChangesNothing) {
    // The tree's paths are directories when ending in "/"; "@/link" is "@/install".
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"install/lib/ install/bin/odbc.ini install/bin/odbcinst.ini",
         "CORVANTA_HOME=@/link PATH=/usr/bin:/bin LD_LIBRARY_PATH=/opt/x",
         "CORVANTA_HOME=@/install\nLD_LIBRARY_PATH=@/install/lib:/opt/x\n"
         "ODBCINI=@/install/bin/odbc.ini\nODBCINSTINI=@/install/bin/odbcinst.ini\n"
         "PATH=@/install/bin:/usr/bin:/bin\nsearch @/install\n"},
        {"$/bin/odbc.ini/ $/bin/odbcinst.ini file", "CORVANTA_HOME=@/file PATH=/usr/bin",
         "CORVANTA_HOME=$\nODBCINSTINI=$/bin/odbcinst.ini\nPATH=$/bin:/usr/bin\nsearch $\n"},
        {"", "PATH=/usr/bin ODBCINI=/etc/odbc.ini",
         "ODBCINI=/etc/odbc.ini\nPATH=/usr/bin\nsearch \n"},
    };
    for (const auto &[tree, env, expected] : cases) {
        SCOPED_TRACE(env);
        QTemporaryDir dir;
        const QDir root(QDir(dir.path()).canonicalPath());
        const auto expand = [&](const char *text) {
            return QString::fromUtf8(text)
                .replace(u'$', root.filePath(u"package/Contents/corvanta"_s))
                .replace(u'@', root.path());
        };
        ASSERT_TRUE(QFile::link(root.filePath(u"install"_s), root.filePath(u"link"_s)));
        for (const QString &path : expand(tree).split(u' ', Qt::SkipEmptyParts)) {
            ASSERT_TRUE(root.mkpath(path.endsWith(u'/') ? path : QFileInfo(path).path()));
            if (!path.endsWith(u'/')) {
                writeFile(root.filePath(path), "[x]\n");
            }
        }
        const QString got = QString::fromUtf8(inChild([&] {
            ::clearenv();
            for (const QString &var : expand(env).split(u' ')) {
                ::putenv(qstrdup(var.toUtf8().constData()));  // kept by the environment
            }
            setSystemLogSink([](const QString &) {});  // its wording is the commands' test
            app.setInstallationSources(
                {std::nullopt, root.filePath(u"monitor.ini"_s), {}, root.filePath(u"package"_s)});
            app.setupGlobalEnvironment();
            const QStringList vars = QProcessEnvironment::systemEnvironment().toStringList();
            return (vars.join(u'\n') + u'\n').toUtf8() + "search " +
                   app.model().searchPaths().join(u' ').toUtf8() + '\n';
        }));
        EXPECT_EQ(got, expand(expected));
    }
}
