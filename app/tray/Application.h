#pragma once

#include "MenuKeyEquivalents.h"
#include "StatusIcon.h"
#include "app/platform/PlatformServices.h"
#include "registry/CorvantaInstance.h"
#include "registry/CorvantaManager.h"
#include "registry/Installation.h"

#include <QBasicTimer>
#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QRect>
#include <QString>
#include <QSystemTrayIcon>
#include <QUrl>

#include <memory>
#include <optional>

class QAction;
class QDBusServiceWatcher;
class QMenu;
class QStyle;
class QSystemTrayIcon;
class StatusNotifierItem;
class StatusReporter;
class TrayNotifier;
class TrayHostWaiter;

// What an instance's menu item holds: its record, and what choosing it does.
struct InstanceItem {
    enum class Action : quint8 { None, Start, Stop };
    CorvantaInstancePtr instance;
    Action action = Action::None;
    friend bool operator==(const InstanceItem &, const InstanceItem &) = default;
};
Q_DECLARE_METATYPE(InstanceItem)

// The tray front end: the status item, its menu, the start/stop
// confirmation, the links, the installation environment and start at login.
// The menu is filled at launch and kept current from the kernel's news of the
// servers, so that a tray host reading it at any time finds it complete; each
// opening scans the installation again, and while this program's own menu
// widget is open a timer refreshes it as well. Main thread only.
class Application : public QObject {
    Q_OBJECT

public:
    Application(DesktopOpener &opener, LoginItemList &loginItems, ConfirmationPrompt &prompt,
                QObject *parent = nullptr);
    ~Application() override;

    // The directory above the one holding the executable; the fallback
    // installation hangs off it.
    static QString defaultPackageRoot();
    QString packageRoot() const { return _packageRoot; }
    void setPackageRoot(const QString &path) {
        _packageRoot = path;
        _installationSources.packageRoot = path;
    }
    // Where setupGlobalEnvironment looks for the installation.
    void setInstallationSources(InstallationSources sources) {
        _installationSources = std::move(sources);
    }
    // The installation in use, once setupGlobalEnvironment found one.
    const std::optional<QString> &installationHome() const { return _installationHome; }
    // The login-item identity: the file URL of the executable's canonical path.
    static QUrl programUrl();

    void openUrl(const QString &text);
    bool confirm(CorvantaInstance *instance, bool start);
    void startInstance(QAction *sender);
    void stopInstance(QAction *sender);
    // The menu's one connection for its instance items.
    void menuItemChosen(QAction *item);
    std::unique_ptr<QMenu> createMenu();
    // An opening of this program's menu widget.
    void menuWillOpen(QMenu *menu);
    // A tray host is about to draw the menu itself; it may never say that it
    // closed it, so nothing is started that would wait for that.
    void hostMenuWillOpen();
    void menuDidClose(QMenu *menu);
    void menuTimerFired(QMenu *menu);
    // `mayOperate`: the instance's canStart, when already asked.
    void updateMenuItem(QAction *item, CorvantaInstance *instance,
                        std::optional<bool> mayOperate = std::nullopt);
    void launchKelvarine();
    void onlineDocumentation();
    void viewLogFile();
    void applicationDidFinishLaunching();
    void setupGlobalEnvironment();
    void toggleStartAtLogin(QAction *sender);

    // Where notifications go; the tray's balloon messages until set.
    void setNotifier(Notifier *notifier) { _notifier = notifier; }
    Notifier &trayNotifier();
    // Scans the installation and reports on what it finds from then on, by
    // kernel events. Done at launch; each opening hands over what it lists.
    void followInstances();
    // Null until launch or the menu's first opening.
    StatusReporter *statusReporter() const { return _statusReporter.get(); }
    // Null unless the tray host speaks StatusNotifierItem.
    StatusNotifierItem *notifierItem() const { return _notifierItem.get(); }

    static bool willStartAtLogin(const QUrl &url, LoginItemList &list);
    // The entry added starts the program with arguments.
    static void setStartAtLogin(const QUrl &url, bool enabled, LoginItemList &list,
                                const QStringList &arguments = {});

    static constexpr int MenuUpdateIntervalMs = 500;
    // Upper bound on one opening's refresh ticks (ten minutes).
    static constexpr int MaxTicksPerOpening = 10 * 60 * 1000 / MenuUpdateIntervalMs;

protected:
    void timerEvent(QTimerEvent *event) override;

private:
    // The instance items' title formats, translated once per opening rather
    // than once per item and tick.
    struct ItemTitleFormats {
        QString start, starting, stop, stopping, unknown;
    };
    static ItemTitleFormats translatedItemTitleFormats();

    // Scans, fills the menu and hands the instances over to the reporter.
    QList<CorvantaInstancePtr> refreshMenu(QMenu *menu);
    // Rebuilds the menu for another set of instances, or brings its items up
    // to date in place for the same set (a host then reads no new layout).
    void fillMenu(QMenu *menu, const QList<CorvantaInstancePtr> &instances);
    void updateItemsInPlace(QMenu *menu);
    void updateLinkItems();
    // The kernel told of a change in a listed instance.
    void instanceRefreshed(const CorvantaInstancePtr &instance);
    // The parts of the menu, in their order.
    void addInstanceItems(QMenu *menu, QObject *owner, const QList<CorvantaInstancePtr> &instances);
    void addLinkItems(QMenu *menu, QObject *owner);
    void addLoginAndQuitItems(QMenu *menu, QObject *owner);
    void startMenuUpdateTimer(QMenu *menu);
    void stopMenuUpdateTimer();
    void showStatusItem();
    bool showNotifierItem();
    IconState iconState() const;
    void setStatusIcon(IconState state);
    // A confirmation is up: whatever else the user chose brings it to the front.
    bool raiseModalDialog();
    void statusItemActivated(QSystemTrayIcon::ActivationReason reason);
    // A host that took the item for a button rather than a menu was clicked
    // on `platform`; false leaves the menu to the host.
    bool hostActivated(QPoint at, QStringView platform);
    // `icon`: where the icon is, empty when unknown.
    void showMenuAtIcon(const QRect &icon);
    QStringList loginArguments() const;
    void reportStatus(const QList<CorvantaInstancePtr> &instances);

    std::unique_ptr<CorvantaManager> _manager;
    std::unique_ptr<QSystemTrayIcon> _statusItem;       // a tray that embeds icons
    std::unique_ptr<StatusNotifierItem> _notifierItem;  // or one that draws the menu
    // No process identity is kept: the confirmation dialog raises itself
    // through the window manager, which needs none.
    QBasicTimer _menuUpdateTimer;
    bool _inModalDialog = false;
    CorvantaInstancePtr _defaultInstance;
    std::optional<ItemTitleFormats> _itemTitleFormats;  // of the last opening
    QList<CorvantaInstancePtr> _menuInstances;          // what the instance items show
    QPointer<QAction> _logItem;
    QPointer<QAction> _consoleItem;
    QPointer<QAction> _loginItem;

    std::unique_ptr<QStyle> _menuStyle;  // outlives the menus using it
    std::unique_ptr<QMenu> _menu;
    bool _menuBuiltForPopup = false;  // showMenuAtIcon built it before placing it
    std::unique_ptr<TrayHostWaiter> _trayHostWaiter;
    std::unique_ptr<QDBusServiceWatcher> _hostWatch;  // for a host that comes later
    QPointer<QMenu> _menuUpdateTarget;                // the timer's menu, as long as it lives
    int _menuTicksLeft = 0;
    MenuKeyEquivalents _keyEquivalents;
    QString _packageRoot;
    InstallationSources _installationSources;
    std::optional<QString> _installationHome;
    std::unique_ptr<TrayNotifier> _trayNotifier;
    Notifier *_notifier = nullptr;
    std::unique_ptr<StatusReporter> _statusReporter;
    DesktopOpener &_opener;
    LoginItemList &_loginItems;
    ConfirmationPrompt &_prompt;

    friend struct ApplicationProbe;  // tests
};
