#include "Application.h"

#include "MenuPlacement.h"
#include "MonitorPreferences.h"
#include "StatusIcon.h"
#include "StatusNotifierItem.h"
#include "StatusReporter.h"
#include "TrayHostWaiter.h"
#include "TrayNotifier.h"
#include "app/common/PackageRoot.h"
#include "registry/Paths.h"

#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QDBusServiceWatcher>
#include <QMenu>
#include <QScopeGuard>
#include <QScreen>
#include <QStyle>
#include <QTimerEvent>

#include <utility>

namespace {

// A "&" in an action's text marks a mnemonic; names show it literally.
QString literalTitle(QString text) {
    if (text.contains(QLatin1Char('&'))) {
        text.replace(QLatin1Char('&'), QLatin1String("&&"));
    }
    return text;
}

// The statuses whose item offers Start or Stop, gated by canStart.
bool actsOnServer(qint32 status) {
    return status == ServerStatusStopped || status == ServerStatusRunning;
}

InstanceItem::Action offeredAction(qint32 status, bool permitted) {
    if (!permitted) {
        return InstanceItem::Action::None;
    }
    switch (status) {
        case ServerStatusStopped:
            return InstanceItem::Action::Start;
        case ServerStatusRunning:
            return InstanceItem::Action::Stop;
        default:
            return InstanceItem::Action::None;
    }
}

// An opening's items are owned by one object under the menu rather than by
// the menu: emptying the menu then only removes them, and the previous
// opening's items are deleted once the menu has closed, off the way from the
// click to the menu on screen.
const QString kOpeningItems = QStringLiteral("corvanta-opening-items");
const QString kRetiredItems = QStringLiteral("corvanta-retired-items");

QAction *addItem(QMenu *menu, QObject *owner, const QString &title) {
    auto *item = new QAction(title, owner);
    menu->addAction(item);
    return item;
}

QObject *ownerOfItems(QMenu *menu, const QString &name) {
    return menu->findChild<QObject *>(name, Qt::FindDirectChildrenOnly);
}

// Returns the owner of the opening's items.
QObject *retireItems(QMenu *menu) {
    delete ownerOfItems(menu, kRetiredItems);  // never closed since: a host that does not tell
    if (QObject *last = ownerOfItems(menu, kOpeningItems)) {
        last->setObjectName(kRetiredItems);
    }
    auto *items = new QObject(menu);
    items->setObjectName(kOpeningItems);
    return items;
}

}  // namespace

Application::Application(DesktopOpener &opener, LoginItemList &loginItems,
                         ConfirmationPrompt &prompt, QObject *parent)
    : QObject(parent),
      _packageRoot(defaultPackageRoot()),
      _installationSources(InstallationSources::standard(std::nullopt, _packageRoot)),
      _trayNotifier(std::make_unique<TrayNotifier>()),
      _opener(opener),
      _loginItems(loginItems),
      _prompt(prompt) {}

Application::~Application() {
    // The menu first, after what exports it: hiding it on the way out still
    // reports a close here.
    _notifierItem.reset();
    _menu.reset();
    _statusReporter.reset();
    _trayHostWaiter.reset();
    _manager.reset();
    _statusItem.reset();
    stopMenuUpdateTimer();
    _defaultInstance.reset();
}

QString Application::defaultPackageRoot() {
    return programPackageRoot();
}

void Application::openUrl(const QString &text) {
    const QUrl url(text, QUrl::StrictMode);
    if (url.isValid()) {
        _opener.openUrl(url);
    }
}

bool Application::confirm(CorvantaInstance *instance, bool start) {
    const QString message =
        (start ? tr("Do you want to start the %1?") : tr("Do you want to stop the %1?"))
            .arg(instance->instanceName());
    const QString informative =
        (start ? tr("This will start up a Corvanta instance in directory\n%1.")
               : tr("This will stop the Corvanta instance in directory\n%1."))
            .arg(instance->directory());
    const QString first = start ? tr("Start") : tr("Stop");
    const QString second = tr("Cancel");

    _inModalDialog = true;
    const auto done = qScopeGuard([this] { _inModalDialog = false; });
    return _prompt.runModal(message, informative, first, second) == AlertFirstButtonReturn;
}

void Application::startInstance(QAction *sender) {
    const CorvantaInstancePtr instance = sender->data().value<InstanceItem>().instance;
    if (instance && confirm(instance.get(), true) && instance->startup() && _statusReporter) {
        _statusReporter->startRequested(instance);
    }
}

void Application::stopInstance(QAction *sender) {
    const CorvantaInstancePtr instance = sender->data().value<InstanceItem>().instance;
    if (instance && confirm(instance.get(), false) && instance->shutdown() && _statusReporter) {
        _statusReporter->stopRequested(instance);
    }
}

void Application::menuItemChosen(QAction *item) {
    const InstanceItem chosen = item->data().value<InstanceItem>();
    // One confirmation at a time, whichever menu the choice came from.
    if (chosen.action != InstanceItem::Action::None && raiseModalDialog()) {
        return;
    }
    switch (chosen.action) {
        case InstanceItem::Action::Start:
            startInstance(item);
            break;
        case InstanceItem::Action::Stop:
            stopInstance(item);
            break;
        case InstanceItem::Action::None:
            break;
    }
}

std::unique_ptr<QMenu> Application::createMenu() {
    auto menu = std::make_unique<QMenu>();
    QMenu *raw = menu.get();
    // One connection for every instance item instead of one each, made and
    // dropped at every opening.
    connect(raw, &QMenu::triggered, this, &Application::menuItemChosen);
    connect(raw, &QMenu::aboutToShow, this, [this, raw] {
        if (!std::exchange(_menuBuiltForPopup, false)) {
            menuWillOpen(raw);
        }
    });
    connect(raw, &QMenu::aboutToHide, this, [this, raw] { menuDidClose(raw); });
    raw->installEventFilter(&_keyEquivalents);
    if (!_menuStyle) {
        _menuStyle.reset(makeScrollableMenuStyle());
    }
    raw->setStyle(_menuStyle.get());
    return menu;
}

void Application::menuWillOpen(QMenu *menu) {
    // A confirmation is up: its answer acts on the items the user saw.
    if (_inModalDialog) {
        return;
    }
    stopMenuUpdateTimer();
    if (!refreshMenu(menu).isEmpty()) {
        startMenuUpdateTimer(menu);
    }
}

void Application::hostMenuWillOpen() {
    if (!_inModalDialog && _menu) {
        refreshMenu(_menu.get());
    }
}

QList<CorvantaInstancePtr> Application::refreshMenu(QMenu *menu) {
    const QList<CorvantaInstancePtr> instances =
        _manager ? _manager->allInstances() : QList<CorvantaInstancePtr>();
    _itemTitleFormats = translatedItemTitleFormats();
    _defaultInstance = chooseDefaultInstance(instances);
    if (menu) {
        fillMenu(menu, instances);
    }
    reportStatus(instances);
    return instances;
}

void Application::fillMenu(QMenu *menu, const QList<CorvantaInstancePtr> &instances) {
    if (menu == _menu.get() && instances == _menuInstances && !menu->isEmpty()) {
        updateItemsInPlace(menu);
        return;
    }
    _keyEquivalents.clear();
    menu->clear();
    QObject *const owner = retireItems(menu);
    addInstanceItems(menu, owner, instances);
    menu->addSeparator();
    addLinkItems(menu, owner);
    menu->addSeparator();
    addLoginAndQuitItems(menu, owner);
    if (menu == _menu.get()) {
        _menuInstances = instances;
    }
}

void Application::updateItemsInPlace(QMenu *menu) {
    const QList<QAction *> items = menu->actions();
    for (QAction *item : items) {
        if (const CorvantaInstancePtr instance = item->data().value<InstanceItem>().instance) {
            updateMenuItem(item, instance.get());
        }
    }
    updateLinkItems();
    if (_loginItem) {
        _loginItem->setChecked(willStartAtLogin(programUrl(), _loginItems));
    }
}

void Application::instanceRefreshed(const CorvantaInstancePtr &instance) {
    if (!_menu) {
        return;
    }
    const QList<QAction *> items = _menu->actions();
    for (QAction *item : items) {
        if (item->data().value<InstanceItem>().instance == instance) {
            updateMenuItem(item, instance.get());
            break;
        }
    }
    if (instance == _defaultInstance) {
        updateLinkItems();
    }
}

void Application::addInstanceItems(QMenu *menu, QObject *owner,
                                   const QList<CorvantaInstancePtr> &instances) {
    if (instances.isEmpty()) {
        addItem(menu, owner, tr("No Corvanta Instances"))->setEnabled(false);
        return;
    }
    // The permission tests in one pass: interleaved with the item
    // constructions the same access() calls are slower.
    QList<bool> permitted(instances.size());
    for (qsizetype i = 0; i < instances.size(); ++i) {
        permitted[i] = actsOnServer(instances[i]->serverStatus()) && instances[i]->canStart();
    }
    for (qsizetype i = 0; i < instances.size(); ++i) {
        CorvantaInstance *instance = instances[i].get();
        // Made with what it offers, so that filling it in sets nothing twice.
        QAction *item = new QAction(owner);
        item->setData(QVariant::fromValue(
            InstanceItem{instances[i], offeredAction(instance->serverStatus(), permitted[i])}));
        updateMenuItem(item, instance, permitted[i]);
        menu->addAction(item);
    }
}

void Application::startMenuUpdateTimer(QMenu *menu) {
    _menuUpdateTarget = menu;
    _menuTicksLeft = MaxTicksPerOpening;
    _menuUpdateTimer.start(MenuUpdateIntervalMs, this);
}

void Application::addLinkItems(QMenu *menu, QObject *owner) {
    _logItem = addItem(menu, owner, tr("Open Diagnostic Messages"));
    connect(_logItem, &QAction::triggered, this, &Application::viewLogFile);
    _consoleItem = addItem(menu, owner, tr("Open Corvanta Kelvarine"));
    connect(_consoleItem, &QAction::triggered, this, &Application::launchKelvarine);
    updateLinkItems();
    QAction *docs = addItem(menu, owner, tr("View Online Documentation"));
    connect(docs, &QAction::triggered, this, &Application::onlineDocumentation);
}

// Disabled items are never triggered: the links act only while they apply.
void Application::updateLinkItems() {
    if (_logItem) {
        _logItem->setEnabled(_defaultInstance && _defaultInstance->logFile());
    }
    if (_consoleItem) {
        _consoleItem->setEnabled(_defaultInstance &&
                                 _defaultInstance->serverStatus() == ServerStatusRunning);
    }
}

void Application::addLoginAndQuitItems(QMenu *menu, QObject *owner) {
    QAction *login = addItem(menu, owner, tr("Start Corvanta Monitor at Login"));
    login->setCheckable(true);
    login->setChecked(willStartAtLogin(programUrl(), _loginItems));
    connect(login, &QAction::triggered, this, [this, login] { toggleStartAtLogin(login); });
    _loginItem = login;

    QAction *quit = addItem(menu, owner, tr("Quit Corvanta Monitor"));
    connect(quit, &QAction::triggered, this, [] { QCoreApplication::quit(); });
    // Shown beside the title; as a window shortcut of the menu it acts only
    // while the menu is open. The filter adds Ctrl+Q.
    quit->setShortcut(QKeySequence(Qt::Key_Q));
    _keyEquivalents.assign(Qt::Key_Q, quit);
}

// From launch on, the instances are watched by kernel events: news of a
// server that ends arrives when it happens, whether or not a menu was ever
// opened. Each opening hands over the instances it found.
void Application::reportStatus(const QList<CorvantaInstancePtr> &instances) {
    if (!_statusReporter) {
        const auto confirmAction = [this](const QString &message, const QString &informative,
                                          const QString &button) {
            _inModalDialog = true;
            const auto done = qScopeGuard([this] { _inModalDialog = false; });
            return _prompt.runModal(message, informative, button, tr("Cancel")) ==
                   AlertFirstButtonReturn;
        };
        _statusReporter = std::make_unique<StatusReporter>(_notifier ? *_notifier : trayNotifier(),
                                                           _opener, confirmAction);
        connect(_statusReporter.get(), &StatusReporter::iconStateChanged, this,
                &Application::setStatusIcon);
        connect(&_statusReporter->watcher(), &InstanceWatcher::refreshed, this,
                &Application::instanceRefreshed);
    }
    _statusReporter->setNotificationsEnabled(notificationsWanted());
    _statusReporter->instancesListed(instances, _defaultInstance);
}

Notifier &Application::trayNotifier() {
    return *_trayNotifier;
}

void Application::menuDidClose(QMenu *menu) {
    stopMenuUpdateTimer();
    delete ownerOfItems(menu, kRetiredItems);
    // The size fixed for an opening at the icon is that opening's; a menu the
    // tray host pops up itself sizes itself.
    menu->setMinimumSize(0, 0);
    menu->setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
}

void Application::menuTimerFired(QMenu *menu) {
    const QList<QAction *> items = menu->actions();
    for (QAction *item : items) {
        const CorvantaInstancePtr instance = item->data().value<InstanceItem>().instance;
        if (instance) {
            instance->refresh();
            updateMenuItem(item, instance.get());
        }
    }
    // Only this program's menu widget runs the timer, and it reports its
    // closing; the bound is a safety net should a close ever go unreported.
    if (--_menuTicksLeft <= 0) {
        stopMenuUpdateTimer();
    }
}

Application::ItemTitleFormats Application::translatedItemTitleFormats() {
    return {tr("Start %1"), tr("%1: Starting"), tr("Stop %1"), tr("%1: Stopping"),
            tr("%1: Unknown")};
}

void Application::updateMenuItem(QAction *item, CorvantaInstance *instance,
                                 std::optional<bool> mayOperate) {
    if (!_itemTitleFormats) {
        _itemTitleFormats = translatedItemTitleFormats();
    }
    const ItemTitleFormats &formats = *_itemTitleFormats;
    const qint32 status = instance->serverStatus();
    const QString *format = &formats.unknown;
    switch (status) {
        case ServerStatusStopped:
            format = &formats.start;
            break;
        case ServerStatusStarting:
            format = &formats.starting;
            break;
        case ServerStatusRunning:
            format = &formats.stop;
            break;
        case ServerStatusStopping:
            format = &formats.stopping;
            break;
        default:
            break;
    }
    // Stopping is gated like starting: acting on an instance needs its
    // directory writable.
    using Action = InstanceItem::Action;
    const Action action =
        actsOnServer(status)
            ? offeredAction(status, mayOperate ? *mayOperate : instance->canStart())
            : Action::None;
    item->setText(format->arg(literalTitle(instance->instanceName())));
    // The menu's one connection acts on what the item holds; an unchanged
    // value is not set again, which would have the menu lay itself out anew.
    InstanceItem held = item->data().value<InstanceItem>();
    if (held.action != action) {
        held.action = action;
        item->setData(QVariant::fromValue(held));
    }
    item->setEnabled(action != Action::None);
}

void Application::launchKelvarine() {
    openUrl(QStringLiteral("http://localhost:8890/kelvarine/"));
}

void Application::onlineDocumentation() {
    openUrl(QStringLiteral("http://docs.nordelix.com/corvanta/"));
}

void Application::viewLogFile() {
    if (!_defaultInstance) {
        return;
    }
    if (const std::optional<QString> log = _defaultInstance->logFile()) {
        _opener.openFile(*log);
    }
}

void Application::applicationDidFinishLaunching() {
    _manager = std::make_unique<CorvantaManager>();
    setupGlobalEnvironment();
    _menu = createMenu();
    // Filled before the icon appears: a host may read the menu as soon as
    // the item is there, and draw it without asking first.
    followInstances();
    showStatusItem();
}

void Application::followInstances() {
    if (_manager) {
        refreshMenu(_menu.get());
    }
}

void Application::showStatusItem() {
    // A panel started after the program (both from the session's autostart,
    // say) may bring a StatusNotifierItem host later: the item moves there.
    // On Wayland that is the only tray there is. Watched before the first
    // look, so that a host appearing in between is not missed.
    _hostWatch = std::make_unique<QDBusServiceWatcher>(StatusNotifierItem::WatcherService,
                                                       QDBusConnection::sessionBus(),
                                                       QDBusServiceWatcher::WatchForRegistration);
    connect(_hostWatch.get(), &QDBusServiceWatcher::serviceRegistered, this, [this] {
        if (!_notifierItem && showNotifierItem()) {
            _trayHostWaiter.reset();
            _trayNotifier->setIcon(nullptr);
            _statusItem.reset();
            _hostWatch.release()->deleteLater();  // inside its own signal
        }
    });
    if (showNotifierItem()) {
        _hostWatch.reset();
        return;
    }
    _statusItem = std::make_unique<QSystemTrayIcon>(makeStatusIcon(iconState()));
    _trayNotifier->setIcon(_statusItem.get());
    _statusItem->setContextMenu(_menu.get());
    connect(_statusItem.get(), &QSystemTrayIcon::activated, this,
            &Application::statusItemActivated);
    _statusItem->setToolTip(tr("Nordelix Corvanta"));

    _trayHostWaiter = std::make_unique<TrayHostWaiter>(*_statusItem);
    _trayHostWaiter->start();
}

// A host that speaks StatusNotifierItem gets the item directly rather than
// through QSystemTrayIcon, whose item can neither say that it is a menu nor
// carry the program's title, and announces every action of a rebuild.
bool Application::showNotifierItem() {
    if (!_menu || !StatusNotifierItem::hostAvailable()) {
        return false;
    }
    auto item = std::make_unique<StatusNotifierItem>(*_menu);
    connect(&item->menuExporter(), &DBusMenuExporter::aboutToShowRequested, this,
            &Application::hostMenuWillOpen);
    connect(item.get(), &StatusNotifierItem::activated, this, &Application::hostActivated);
    item->setToolTip(tr("Nordelix Corvanta"));
    _notifierItem = std::move(item);
    setStatusIcon(iconState());
    if (!_notifierItem->registerItem()) {
        _notifierItem.reset();
        return false;
    }
    return true;
}

IconState Application::iconState() const {
    return _statusReporter ? _statusReporter->iconState() : IconState::Unknown;
}

void Application::setStatusIcon(IconState state) {
    if (_notifierItem) {
        // The name only where its icon is found: a host that prefers names
        // would otherwise draw a missing-icon sign instead of the pixmap.
        static const QString directory = statusIconDirectory();
        _notifierItem->setIcon(makeStatusIcon(state),
                               directory.isEmpty() ? QString() : statusIconName(state), directory);
    }
    if (_statusItem) {
        _statusItem->setIcon(makeStatusIcon(state));
    }
}

void Application::setupGlobalEnvironment() {
    _installationHome = exportInstallationEnvironment(_installationSources);
    if (_installationHome && _manager) {
        _manager->addSearchPath(*_installationHome);
    }
}

void Application::timerEvent(QTimerEvent *event) {
    if (event->timerId() != _menuUpdateTimer.timerId()) {
        QObject::timerEvent(event);
        return;
    }
    if (_menuUpdateTarget) {
        menuTimerFired(_menuUpdateTarget);
    } else {
        stopMenuUpdateTimer();
    }
}

void Application::stopMenuUpdateTimer() {
    _menuUpdateTimer.stop();
    _menuUpdateTarget = nullptr;
}

bool Application::raiseModalDialog() {
    if (!_inModalDialog) {
        return false;
    }
    if (QWidget *dialog = QApplication::activeModalWidget()) {
        dialog->raise();
        dialog->activateWindow();
    }
    return true;
}

void Application::statusItemActivated(QSystemTrayIcon::ActivationReason reason) {
    // A click while a confirmation waits is meant for it: the dialog comes to
    // the front, and the menu stays as it was.
    if (raiseModalDialog()) {
        return;
    }
    // The one menu answers both buttons, as a menu-bar item would.
    if (reason == QSystemTrayIcon::Trigger) {
        showMenuAtIcon(_statusItem ? _statusItem->geometry() : QRect());
    }
}

void Application::hostActivated(QPoint at) {
    if (raiseModalDialog()) {
        return;
    }
    // Only an X11 desktop lets a program place its menu itself; a Wayland
    // compositor would show it as a window of its own, away from the icon.
    // There the host's own menu, on the other button, is the one.
    if (QGuiApplication::platformName() == u"xcb") {
        showMenuAtIcon(at.isNull() ? QRect() : QRect(at, QSize(1, 1)));
    }
}

void Application::showMenuAtIcon(const QRect &icon) {
    if (!_menu || _menu->isVisible()) {
        return;
    }
    // Built before it is shown, so that it is placed with its final size.
    menuWillOpen(_menu.get());
    const QPoint pointer = QCursor::pos();
    QScreen *screen = QGuiApplication::screenAt(icon.isEmpty() ? pointer : icon.center());
    if (!screen) {
        screen = QGuiApplication::primaryScreen();
    }
    _menu->ensurePolished();
    const QSize size = _menu->sizeHint();
    const QRect place = screen ? trayMenuGeometry(icon, pointer, size, screen->availableGeometry())
                               : QRect(pointer, size);
    // Qt lets a tall menu take the whole screen height, over the panel; it
    // gets the room beside the icon instead and scrolls within it. The size is
    // fixed before popup() rather than set after it: QMenu lays every item out
    // again at each resize, which with many items costs as much as the rest of
    // the opening. popup() may still move it; a move lays nothing out.
    _menu->setFixedSize(place.size());
    _menuBuiltForPopup = true;
    _menu->popup(place.topLeft());
    _menuBuiltForPopup = false;
    if (_menu->geometry() != place) {
        _menu->setGeometry(place);
    }
}
