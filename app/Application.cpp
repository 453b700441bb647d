#include "Application.h"

#include "MonitorPreferences.h"
#include "StatusIcon.h"
#include "StatusWatch.h"
#include "TrayNotifier.h"
#include "TrayWatch.h"
#include "registry/Paths.h"

#include <QAction>
#include <QCoreApplication>
#include <QCursor>
#include <QMenu>
#include <QScopeGuard>
#include <QSystemTrayIcon>
#include <QTimerEvent>

namespace {

// A "&" in an action's text marks a mnemonic; names show it literally.
QString literalTitle(QString text) {
    return text.replace(QLatin1Char('&'), QLatin1String("&&"));
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
    // The menu first: hiding it on the way out still reports a close here.
    _menu.reset();
    _statusWatch.reset();
    _trayWatch.reset();
    _manager.reset();
    _statusItem.reset();
    stopMenuUpdateTimer();
    _defaultInstance.reset();
}

QString Application::defaultPackageRoot() {
    return Paths::standardize(QCoreApplication::applicationDirPath() + QStringLiteral("/.."));
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
    const CorvantaInstancePtr instance = sender->data().value<CorvantaInstancePtr>();
    if (instance && confirm(instance.get(), true) && instance->startup() && _statusWatch) {
        _statusWatch->startRequested(instance);
    }
}

void Application::stopInstance(QAction *sender) {
    const CorvantaInstancePtr instance = sender->data().value<CorvantaInstancePtr>();
    if (instance && confirm(instance.get(), false) && instance->shutdown() && _statusWatch) {
        _statusWatch->stopRequested(instance);
    }
}

std::unique_ptr<QMenu> Application::createMenu() {
    auto menu = std::make_unique<QMenu>();
    QMenu *raw = menu.get();
    connect(raw, &QMenu::aboutToShow, this, [this, raw] { menuWillOpen(raw); });
    connect(raw, &QMenu::aboutToHide, this, [this, raw] { menuDidClose(raw); });
    raw->installEventFilter(&_keyEquivalents);
    return menu;
}

void Application::menuWillOpen(QMenu *menu) {
    // A confirmation is up: its answer acts on the items the user saw.
    if (_inModalDialog) {
        return;
    }
    const QList<CorvantaInstancePtr> instances =
        _manager ? _manager->allInstances() : QList<CorvantaInstancePtr>();

    stopMenuUpdateTimer();
    _keyEquivalents.clear();
    menu->clear();
    _defaultInstance.reset();

    if (!instances.isEmpty()) {
        for (const CorvantaInstancePtr &instance : instances) {
            auto *item = new QAction(menu);
            item->setData(QVariant::fromValue(instance));
            updateMenuItem(item, instance.get());
            menu->addAction(item);
            if (instance->isDefault()) {
                _defaultInstance = instance;
            }
        }
        _menuUpdateTarget = menu;
        _menuTicksLeft = MaxTicksPerOpening;
        _menuUpdateTimer.start(MenuUpdateIntervalMs, this);
    } else {
        menu->addAction(tr("No Corvanta Instances"))->setEnabled(false);
    }
    if (!_defaultInstance && instances.size() == 1) {
        _defaultInstance = instances.first();
    }

    menu->addSeparator();
    QAction *log = menu->addAction(tr("Open Diagnostic Messages"));
    if (_defaultInstance && _defaultInstance->logFile()) {
        connect(log, &QAction::triggered, this, &Application::viewLogFile);
    } else {
        log->setEnabled(false);
    }
    QAction *console = menu->addAction(tr("Open Corvanta Kelvarine"));
    if (_defaultInstance && _defaultInstance->serverStatus() == ServerStatusRunning) {
        connect(console, &QAction::triggered, this, &Application::launchKelvarine);
    } else {
        console->setEnabled(false);
    }
    QAction *docs = menu->addAction(tr("View Online Documentation"));
    connect(docs, &QAction::triggered, this, &Application::onlineDocumentation);

    menu->addSeparator();
    QAction *login = menu->addAction(tr("Start Corvanta Monitor at Login"));
    login->setCheckable(true);
    login->setChecked(willStartAtLogin(packageUrl(), _loginItems));
    connect(login, &QAction::triggered, this, [this, login] { toggleStartAtLogin(login); });

    QAction *quit = menu->addAction(tr("Quit Corvanta Monitor"));
    connect(quit, &QAction::triggered, this, [] { QCoreApplication::quit(); });
    _keyEquivalents.assign(Qt::Key_Q, quit);
    watchStatus(instances);
}

// Between openings the instances this one found are watched by kernel
// events; the first opening starts it, so nothing is scanned at launch.
void Application::watchStatus(const QList<CorvantaInstancePtr> &instances) {
    if (!_statusWatch) {
        const auto confirmAction = [this](const QString &message, const QString &informative,
                                          const QString &button) {
            _inModalDialog = true;
            const auto done = qScopeGuard([this] { _inModalDialog = false; });
            return _prompt.runModal(message, informative, button, tr("Cancel")) ==
                   AlertFirstButtonReturn;
        };
        _statusWatch = std::make_unique<StatusWatch>(_notifier ? *_notifier : trayNotifier(),
                                                     _opener, confirmAction);
        connect(_statusWatch.get(), &StatusWatch::iconStateChanged, this, [this](IconState state) {
            if (_statusItem) {
                _statusItem->setIcon(makeStatusIcon(state));
            }
        });
    }
    _statusWatch->setNotificationsEnabled(notificationsWanted());
    _statusWatch->instancesListed(instances, _defaultInstance);
}

Notifier &Application::trayNotifier() {
    return *_trayNotifier;
}

void Application::menuDidClose(QMenu * /*menu*/) {
    stopMenuUpdateTimer();
}

void Application::menuTimerFired(QMenu *menu) {
    const QList<QAction *> items = menu->actions();
    for (QAction *item : items) {
        const CorvantaInstancePtr instance = item->data().value<CorvantaInstancePtr>();
        if (instance) {
            instance->refresh();
            updateMenuItem(item, instance.get());
        }
    }
    // A tray host that draws the menu itself from the exported D-Bus menu may
    // never report that it closed, and the QMenu widget is then never shown,
    // so nothing here can tell an open menu from one closed long ago. One
    // opening therefore refreshes for a bounded time only; the next opening
    // starts afresh.
    if (--_menuTicksLeft <= 0) {
        stopMenuUpdateTimer();
    }
}

void Application::updateMenuItem(QAction *item, CorvantaInstance *instance) {
    QString format;
    void (Application::*action)(QAction *) = nullptr;
    switch (instance->serverStatus()) {
        case ServerStatusStopped:
            format = tr("Start %1");
            if (instance->canStart()) {
                action = &Application::startInstance;
            }
            break;
        case ServerStatusStarting:
            format = tr("%1: Starting");
            break;
        case ServerStatusRunning:
            // Gated like starting: acting on an instance needs its directory writable.
            format = tr("Stop %1");
            if (instance->canStart()) {
                action = &Application::stopInstance;
            }
            break;
        case ServerStatusStopping:
            format = tr("%1: Stopping");
            break;
        default:
            format = tr("%1: Unknown");
            break;
    }
    item->setText(format.arg(literalTitle(instance->instanceName())));
    disconnect(item, &QAction::triggered, this, nullptr);
    if (action) {
        connect(item, &QAction::triggered, this, [this, item, action] { (this->*action)(item); });
    }
    item->setEnabled(action != nullptr);
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

    _statusItem = std::make_unique<QSystemTrayIcon>(makeStatusIcon(IconState::Unknown));
    _trayNotifier->setIcon(_statusItem.get());
    _menu = createMenu();
    _statusItem->setContextMenu(_menu.get());
    // The one menu answers both buttons, as a menu-bar item would.
    connect(_statusItem.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger) {
                    showMenuAtCursor();
                }
            });
    _statusItem->setToolTip(tr("Nordelix Corvanta"));

    _trayWatch = std::make_unique<TrayWatch>(*_statusItem);
    _trayWatch->start();
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

void Application::showMenuAtCursor() {
    if (_menu && !_menu->isVisible()) {
        _menu->popup(QCursor::pos());
    }
}
