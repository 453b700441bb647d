#include "TestSupport.h"

namespace {

class StartAtLogin : public AppFixture {
protected:
    QUrl self() const { return app.packageUrl(); }

    LoginItem entry(const QString &id, std::optional<QUrl> resolved) { return {id, resolved}; }

    QAction *loginItem() {
        menu->hide();
        open();
        return findItem(*menu, QStringLiteral("Start Corvanta Monitor at Login"));
    }
};

}  // namespace

TEST_F(StartAtLogin, ChoosingItAddsTheProgramAtTheTopAndChecksIt) {
    logins.items = {entry(QStringLiteral("other"), QUrl::fromLocalFile(QStringLiteral("/opt/x")))};
    QAction *item = loginItem();
    ASSERT_TRUE(item);
    EXPECT_TRUE(item->isCheckable());
    EXPECT_FALSE(item->isChecked());
    item->trigger();
    EXPECT_EQ(logins.ids(), (QStringList{QStringLiteral("added-1"), QStringLiteral("other")}));
    EXPECT_EQ(logins.items.first().resolved, self());
    EXPECT_TRUE(loginItem()->isChecked());
}

TEST_F(StartAtLogin, ChoosingItRemovesOnlyTheFirstMatchingEntry) {
    logins.items = {entry(QStringLiteral("a"), QUrl::fromLocalFile(QStringLiteral("/opt/x"))),
                    entry(QStringLiteral("b"), self()), entry(QStringLiteral("c"), self())};
    QAction *item = loginItem();
    EXPECT_TRUE(item->isChecked());
    item->trigger();
    EXPECT_EQ(logins.ids(), (QStringList{QStringLiteral("a"), QStringLiteral("c")}));

    item = loginItem();
    EXPECT_TRUE(item->isChecked());
    item->trigger();
    EXPECT_EQ(logins.ids(), QStringList{QStringLiteral("a")});
    EXPECT_FALSE(loginItem()->isChecked());
    EXPECT_EQ(logins.added, 0);
}

TEST_F(StartAtLogin, UnresolvableAndDifferentlyWrittenEntriesAreNotTheProgram) {
    QUrl slashed = self();
    slashed.setPath(slashed.path() + QLatin1Char('/'));
    logins.items = {entry(QStringLiteral("unresolved"), std::nullopt),
                    entry(QStringLiteral("slashed"), slashed)};
    EXPECT_FALSE(Application::willStartAtLogin(self(), logins));
    QAction *item = loginItem();
    EXPECT_FALSE(item->isChecked());
    item->trigger();
    EXPECT_EQ(logins.ids(), (QStringList{QStringLiteral("added-1"), QStringLiteral("unresolved"),
                                         QStringLiteral("slashed")}));

    Application::setStartAtLogin(slashed, false, logins);
    EXPECT_EQ(logins.removed, QStringList{QStringLiteral("slashed")});
}

TEST_F(StartAtLogin, SettingWhatIsAlreadySoChangesNothing) {
    logins.items = {entry(QStringLiteral("b"), self())};
    Application::setStartAtLogin(self(), true, logins);
    Application::setStartAtLogin(QUrl::fromLocalFile(QStringLiteral("/elsewhere")), false, logins);
    EXPECT_EQ(logins.ids(), QStringList{QStringLiteral("b")});
    EXPECT_TRUE(logins.removed.isEmpty());
}

TEST_F(StartAtLogin, UnreadableListAnswersNoAndIsLeftAlone) {
    logins.items = {entry(QStringLiteral("b"), self())};
    logins.readable = false;
    EXPECT_FALSE(Application::willStartAtLogin(self(), logins));
    EXPECT_FALSE(loginItem()->isChecked());
    Application::setStartAtLogin(self(), false, logins);
    Application::setStartAtLogin(self(), true, logins);
    EXPECT_EQ(logins.ids(), QStringList{QStringLiteral("b")});
    EXPECT_EQ(logins.added, 0);
    EXPECT_TRUE(logins.removed.isEmpty());
}
