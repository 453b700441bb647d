#include "TrayProbe.h"

// Which instance is the default shows in the log and console items; the ticks test ends on a
// running default's.
TEST_F(TrayMenu, ListsInstancesAndChoosesTheDefault) {
    const std::tuple<const char *, const char *, QString> cases[] = {
        {"", "", u"- No Corvanta Instances\n"_s + fixedItems()},
        {"R&D+log", "", u"+ Start Instance 'R&&D'\n"_s + fixedItems(true)},
        {"alpha database+log zeta+run", "",
         u"+ Start Instance 'alpha'\n+ Start Default Instance\n+ Stop Instance 'zeta'\n"_s +
             fixedItems(true)},
        // The search directory is itself a "database" instance holding another.
        {"database database/database+log", "database",
         u"+ Start Default Instance\n+ Start Default Instance\n"_s + fixedItems(true)},
    };
    for (const auto &[names, under, expected] : cases) {
        SCOPED_TRACE(names);
        QTemporaryDir dir;
        home = QDir(dir.path()).canonicalPath();
        const QStringList instances = QString::fromUtf8(names).split(u' ', Qt::SkipEmptyParts);
        for (const QString &instance : instances) {
            addInstance(instance);
        }
        app.model().setSearchPaths({home + u'/' + QString::fromUtf8(under)});
        EXPECT_EQ(open(), expected);
        EXPECT_EQ(timerRunning(), !instances.isEmpty());
    }
}

// Directories that go reach the menu unopened; a rebuild's earlier items live until the menu
// closes, or until the next rebuild if no close is told; ticks are bounded. New directories and
// servers reaching the closed menu and the icon, and no timer after a host's menu, are e2e's.
TEST_F(TrayMenu, FollowsInstancesAndTicksOnlyWhileOpen) {
    addInstance(u"alpha"_s);
    open();
    const QPointer<QAction> first = item(u"Start Instance 'alpha'"_s);
    addInstance(u"beta"_s);
    app.model().rescan();  // as the directory's event would
    ASSERT_TRUE(first);
    EXPECT_FALSE(menu->actions().contains(first.get()));
    menu->hide();
    EXPECT_FALSE(first);
    const QPointer<QAction> second = item(u"Start Instance 'alpha'"_s);
    ASSERT_TRUE(QDir(home + u"/alpha"_s).removeRecursively());
    ASSERT_TRUE(QDir(home + u"/beta"_s).removeRecursively());
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return describe(*menu) == u"- No Corvanta Instances\n"_s + fixedItems(); }, 5000));
    addInstance(u"alpha"_s);
    app.model().rescan();
    EXPECT_FALSE(second);

    open();
    app.menu().aboutToShow();  // a second opening without a close
    for (int n = 1; n < StatusMenu::MaxTicksPerOpening; ++n) {
        tick();
    }
    EXPECT_TRUE(timerRunning());
    tick();
    EXPECT_FALSE(timerRunning());
    open();  // counts afresh
    tick();
    EXPECT_TRUE(timerRunning());
}

// Outside an event loop quitting does nothing, so the choice itself is what is seen.
TEST_F(TrayMenu, QuitKeyActsOnlyInTheOpenMenu) {
    QWidget elsewhere;
    elsewhere.show();
    QStringList chosen;
    QObject::connect(menu, &QMenu::triggered, [&](QAction *it) { chosen << it->text(); });
    const std::tuple<bool, QKeyCombination, bool> cases[] = {
        {true, Qt::Key_Q, true},
        {true, Qt::CTRL | Qt::Key_Q, true},
        {true, Qt::ALT | Qt::Key_Q, false},
        {false, Qt::Key_Q, false},
        {false, Qt::CTRL | Qt::Key_Q, false},
    };
    for (const auto &[menuOpen, keys, quits] : cases) {
        SCOPED_TRACE(testing::Message() << menuOpen << ' ' << keys.toCombined());
        chosen.clear();
        open();
        if (!menuOpen) {
            menu->hide();
            elsewhere.activateWindow();
        }
        QTest::keyClick(menuOpen ? static_cast<QWidget *>(menu) : &elsewhere, keys.key(),
                        keys.keyboardModifiers());
        QCoreApplication::processEvents();  // in case the choice were queued
        EXPECT_EQ(chosen, quits ? QStringList{u"Quit Corvanta Monitor"_s} : QStringList());
    }
    // Shown as Qt menus show a shortcut.
    EXPECT_EQ(item(u"Quit Corvanta Monitor"_s)->shortcut().toString(), u"Q"_s);
}

// A click on the icon opens the menu placed on the screen and kept to the room it got there
// until it closes. That a click on Wayland opens the host's menu instead, and that a host-drawn
// menu meanwhile adds no second confirmation, is e2e.tray_wayland's (and e2e.tray_gnome's).
TEST_F(TrayMenu, ClickOnIconOpensTheMenuWithinTheScreen) {
    for (int i = 0; i < 60; ++i) {
        addInstance(u"i%1"_s.arg(i));
    }
    clickIcon();
    ASSERT_TRUE(menu->isVisible());
    EXPECT_TRUE(describe(*menu).startsWith(u"+ Start Instance 'i0'\n+ Start Instance 'i1'\n"_s));
    const QRect opened = menu->geometry();
    EXPECT_TRUE(menu->screen()->availableGeometry().contains(opened));
    EXPECT_TRUE(timerRunning());
    menu->hide();
    for (int i = 1; i < 60; ++i) {
        EXPECT_TRUE(QDir(home + u"/i%1"_s.arg(i)).removeRecursively());
    }
    menu->popup(QPoint(0, 0));  // as a tray host opening the menu itself
    EXPECT_LT(menu->height(), opened.height());
}

// Judged as an unprivileged user would be; only a writable directory offers its item.
TEST_F(TrayMenu, InstanceInUnwritableDirectoryOffersNeitherStartNorStop) {
    const QStringList dirs = {home, addInstance(u"busy+run"_s), addInstance(u"idle"_s)};
    for (const QString &dir : dirs) {
        ASSERT_EQ(::chmod(dir.toUtf8().constData(), 0555), 0);
    }
    ASSERT_EQ(::chmod(addInstance(u"open"_s).toUtf8().constData(), 0777), 0);
    EXPECT_EQ(QString::fromUtf8(inChild([&] {
                  becomeReader();
                  app.menu().aboutToShow();
                  return describe(*menu).toUtf8();
              })),
              u"- Stop Instance 'busy'\n- Start Instance 'idle'\n+ Start Instance 'open'\n"_s +
                  fixedItems());
    for (const QString &dir : dirs) {
        ::chmod(dir.toUtf8().constData(), 0755);
    }
}

int main(int argc, char *argv[]) {
    QApplication::setQuitOnLastWindowClosed(false);
    return runTests<QApplication>(argc, argv);
}
