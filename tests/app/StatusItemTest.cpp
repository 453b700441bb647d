// The status item and its menu as a tray host sees them, on a bus of the test's own.
#include "app/tray/StatusIcon.h"
#include "app/tray/StatusNotifierItem.h"
#include "app/tray/WindowActivation.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QMenu>
#include <QTest>
#include <QWidget>

#include "../TestSupport.h"

// A host's watcher: it records the services that register with it.
class Watcher : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")

public:
    explicit Watcher(const QString &address, const QString &name)
        : bus(QDBusConnection::connectToBus(address, name)) {
        bus.registerObject(u"/StatusNotifierWatcher"_s, this, QDBusConnection::ExportAllSlots);
        // Takes the name from whoever has it, as a panel replacing another does.
        bus.interface()->registerService(StatusNotifierItem::WatcherService,
                                         QDBusConnectionInterface::ReplaceExistingService,
                                         QDBusConnectionInterface::AllowReplacement);
    }
    QDBusConnection bus;
    QStringList registered;

    int refusals = 0;  // answered with an error first, as a watcher not quite up yet

public slots:
    void RegisterStatusNotifierItem(const QString &service, const QDBusMessage &call) {
        if (refusals-- > 0) {
            call.setDelayedReply(true);
            bus.send(call.createErrorReply(QDBusError::UnknownObject, u"not yet"_s));
        } else {
            registered << service;
        }
    }
};

struct StatusItem : ::testing::Test {
    void SetUp() override {
        if (bus.address.isEmpty())
            GTEST_SKIP() << "no dbus-daemon";
        // Two presses, so that a bare key and one with modifiers are both exported.
        menu.addAction(u"Start Default Instance"_s)
            ->setShortcut(QKeySequence(u"Ctrl+Shift+S, Q"_s));
        first = std::make_unique<Watcher>(bus.address, u"first"_s);
        item = std::make_unique<StatusNotifierItem>(menu, itemBus);
        ASSERT_TRUE(item->registerItem());
    }
    void TearDown() override {
        item.reset();
        for (const QString &name : {u"item"_s, u"host"_s, u"first"_s, u"second"_s})
            QDBusConnection::disconnectFromBus(name);
    }
    QDBusMessage call(const QString &path, const QString &interface, const QString &method,
                      const QVariantList &args) {
        QDBusMessage message =
            QDBusMessage::createMethodCall(item->serviceName(), path, interface, method);
        message.setArguments(args);
        return host.call(message, QDBus::BlockWithGui);  // the item answers from this thread
    }
    QVariant property(const QString &name) {
        const QDBusMessage reply =
            call(u"/StatusNotifierItem"_s, u"org.freedesktop.DBus.Properties"_s, u"Get"_s,
                 {u"org.kde.StatusNotifierItem"_s, name});
        return reply.arguments().value(0).value<QDBusVariant>().variant();
    }
    QDBusMessage menuCall(const QString &method, const QVariantList &args) {
        return call(u"/MenuBar"_s, u"com.canonical.dbusmenu"_s, method, args);
    }

    PrivateBus bus;
    QDBusConnection itemBus = QDBusConnection::connectToBus(bus.address, u"item"_s);
    QDBusConnection host = QDBusConnection::connectToBus(bus.address, u"host"_s);
    QMenu menu;
    std::unique_ptr<Watcher> first;
    std::unique_ptr<StatusNotifierItem> item;
};

// Registered under its connection's own name: hosts that also follow a well-known name re-read
// the item when it appears and may lose it. The icon's name is read in e2e.tray_wayland.
TEST_F(StatusItem, RegistersWithEveryNewWatcherAndAnswersWhatHostsAskOfItAndOfItsMenu) {
    ASSERT_TRUE(QTest::qWaitFor([&] { return !first->registered.isEmpty(); }, 10000));
    Watcher second(bus.address, u"second"_s);
    second.refusals = 2;
    EXPECT_TRUE(QTest::qWaitFor([&] { return !second.registered.isEmpty(); }, 10000));
    EXPECT_EQ(second.registered, QStringList{itemBus.baseService()});

    item->setIcon(makeStatusIcon(IconState::Running), statusIconName(IconState::Running, true), {},
                  statusIconDescription(IconState::Running));
    EXPECT_EQ(property(u"IconAccessibleDesc"_s).toString(),
              u"Corvanta Monitor: the default instance is running"_s);
    EXPECT_EQ(property(u"AttentionAccessibleDesc"_s), property(u"IconAccessibleDesc"_s));

    const QDBusMessage token = call(u"/StatusNotifierItem"_s, u"org.kde.StatusNotifierItem"_s,
                                    u"ProvideXdgActivationToken"_s, {u"token-1"_s});
    EXPECT_EQ(token.type(), QDBusMessage::ReplyMessage) << token.errorMessage().toStdString();
    EXPECT_EQ(WindowActivation::pendingToken(), u"token-1"_s);
    // Refused and taken clicks are e2e.tray's; here the place reaches the handler.
    item->setActivationHandler([](QPoint at) { return at == QPoint(10, 20); });
    const QDBusMessage click =
        call(u"/StatusNotifierItem"_s, u"org.kde.StatusNotifierItem"_s, u"Activate"_s, {10, 20});
    EXPECT_EQ(click.type(), QDBusMessage::ReplyMessage);
    QWidget window;
    WindowActivation::activate(window);  // used once, and not left to servers started later
    EXPECT_EQ(WindowActivation::pendingToken(), QString());
    EXPECT_FALSE(qEnvironmentVariableIsSet("XDG_ACTIVATION_TOKEN"));

    // The menu's, its ids known from a layout; a click on a known item is e2e.tray's.
    ASSERT_EQ(menuCall(u"GetLayout"_s, {0, 1, QStringList()}).type(), QDBusMessage::ReplyMessage);
    const QDBusMessage reply = menuCall(u"GetProperty"_s, {1, u"shortcut"_s});
    QList<QStringList> keys;
    reply.arguments().value(0).value<QDBusVariant>().variant().value<QDBusArgument>() >> keys;
    EXPECT_EQ(keys, (QList<QStringList>{{u"Control"_s, u"Shift"_s, u"S"_s}, {u"Q"_s}}));

    const std::pair<QString, QVariantList> unknown[] = {
        {u"GetLayout"_s, {999999, -1, QStringList()}},
        {u"GetProperty"_s, {999999, u"label"_s}},
        {u"Event"_s, {999999, u"clicked"_s, QVariant::fromValue(QDBusVariant(0)), 0u}},
        {u"AboutToShow"_s, {999999}},
    };
    for (const auto &[method, args] : unknown) {
        EXPECT_EQ(menuCall(method, args).type(), QDBusMessage::ErrorMessage)
            << method.toStdString();
    }
}

#include "StatusItemTest.moc"
