#include "Application.h"

#include "MonitorPreferences.h"
#include "StartAtLogin.h"
#include "StatusItem.h"
#include "StatusReporter.h"
#include "TrayNotifier.h"
#include "WindowActivation.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QMenu>
#include <QScopeGuard>

Application::Application(DesktopOpener &opener, LoginItemList &loginItems,
                         ConfirmationPrompt &prompt, Notifier *notifier, QObject *parent)
    : QObject(parent),
      _opener(opener),
      _loginItems(loginItems),
      _prompt(prompt),
      _trayNotifier(std::make_unique<TrayNotifier>()) {
    // From launch on, the instances are watched by kernel events: news of a
    // server that ends arrives when it happens, whether or not a menu was
    // ever opened.
    const auto confirmAction = [this](const QString &message, const QString &informative,
                                      const QString &button) {
        return ask(message, informative, button);
    };
    _statusReporter = std::make_unique<StatusReporter>(
        _model, notifier ? *notifier : *_trayNotifier, _opener, confirmAction);
    connect(_statusReporter.get(), &StatusReporter::iconStateChanged, this,
            &Application::setStatusIcon);
    // Read again at every scan, so that an edit takes effect without a restart.
    connect(&_model, &InstanceModel::rescanned, _statusReporter.get(),
            [this] { _statusReporter->setNotificationsEnabled(notificationsWanted()); });
    connect(&_menu, &StatusMenu::startChosen, this, &Application::startInstance);
    connect(&_menu, &StatusMenu::stopChosen, this, &Application::stopInstance);
    connect(&_menu, &StatusMenu::logChosen, this, &Application::viewLogFile);
    connect(&_menu, &StatusMenu::consoleChosen, this, &Application::launchKelvarine);
    connect(&_menu, &StatusMenu::documentationChosen, this, &Application::onlineDocumentation);
    connect(&_menu, &StatusMenu::startAtLoginToggled, this, &Application::toggleStartAtLogin);
    connect(&_menu, &StatusMenu::quitChosen, qApp, &QCoreApplication::quit);
}

Application::~Application() {
    // What exports or shows the menu goes before it.
    _hostWatch.reset();
    _statusItem.reset();
}

Notifier &Application::trayNotifier() {
    return *_trayNotifier;
}

void Application::start() {
    setupGlobalEnvironment();
    _model.rescan();
    showStatusItem();
}

void Application::setupGlobalEnvironment() {
    _installationHome = exportInstallationEnvironment(_installationSources);
    _model.setSearchPaths(_installationHome ? QStringList{*_installationHome} : QStringList());
}

bool Application::confirm(CorvantaInstance *instance, bool start) {
    const QString message =
        (start ? tr("Do you want to start the %1?") : tr("Do you want to stop the %1?"))
            .arg(instance->instanceName());
    const QString informative =
        (start ? tr("This will start up a Corvanta instance in directory\n%1.")
               : tr("This will stop the Corvanta instance in directory\n%1."))
            .arg(instance->directory());
    return ask(message, informative, start ? tr("Start") : tr("Stop"));
}

bool Application::ask(const QString &message, const QString &informative, const QString &button) {
    _confirming = true;
    _menu.setHeld(true);
    const auto done = qScopeGuard([this] {
        _confirming = false;
        _menu.setHeld(false);
    });
    return _prompt.confirm(message, informative, button, tr("Cancel"));
}

void Application::startInstance(const CorvantaInstancePtr &instance) {
    // One confirmation at a time, whichever menu the choice came from.
    if (raiseConfirmation() || !instance) {
        return;
    }
    if (confirm(instance.get(), true) && instance->startup()) {
        _statusReporter->startRequested(instance);
    }
}

void Application::stopInstance(const CorvantaInstancePtr &instance) {
    if (raiseConfirmation() || !instance) {
        return;
    }
    if (confirm(instance.get(), false) && instance->shutdown()) {
        _statusReporter->stopRequested(instance);
    }
}

bool Application::raiseConfirmation() {
    if (!_confirming) {
        return false;
    }
    if (QWidget *dialog = QApplication::activeModalWidget()) {
        WindowActivation::activate(*dialog);
    }
    return true;
}

void Application::openUrl(const QString &text) {
    const QUrl url(text, QUrl::StrictMode);
    if (url.isValid()) {
        _opener.openUrl(url);
    }
}

void Application::launchKelvarine() {
    openUrl(QStringLiteral("http://localhost:8890/kelvarine/"));
}

void Application::onlineDocumentation() {
    openUrl(QStringLiteral("http://docs.nordelix.com/corvanta/"));
}

void Application::viewLogFile() {
    const CorvantaInstancePtr &instance = _model.defaultInstance();
    if (!instance) {
        return;
    }
    if (const std::optional<QString> log = instance->logFile()) {
        _opener.openFile(*log);
    }
}

void Application::toggleStartAtLogin(bool enabled) {
    // A login start must see the instances this monitor sees, whatever the
    // session's environment then holds. The menu's next opening shows what
    // the list really holds.
    const QStringList arguments = _installationHome
                                      ? QStringList{QStringLiteral("--home"), *_installationHome}
                                      : QStringList();
    StartAtLogin::setEnabled(StartAtLogin::programUrl(), enabled, _loginItems, arguments);
}

bool Application::iconClicked(const QRect &icon, QStringView platform) {
    // A click while a confirmation waits is meant for it: the dialog comes to
    // the front, and the menu stays as it was.
    if (raiseConfirmation()) {
        return true;
    }
    // Only an X11 desktop lets a program place its menu itself; a Wayland
    // compositor would show it as a window of its own, away from the icon.
    if (platform != u"xcb") {
        return false;
    }
    _menu.popUpAtIcon(icon);
    return true;
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
        if (showNotifierItem()) {
            _hostWatch.release()->deleteLater();  // inside its own signal
        }
    });
    if (showNotifierItem()) {
        _hostWatch.reset();
        return;
    }
    auto item = std::make_unique<TrayIconItem>(
        _menu,
        [this](const QRect &icon) { return iconClicked(icon, QGuiApplication::platformName()); },
        *_trayNotifier);
    item->setState(iconState());
    _statusItem = std::move(item);
}

// A host that speaks StatusNotifierItem gets the item directly rather than
// through QSystemTrayIcon, whose item can neither say that it is a menu nor
// carry the program's title, and announces every action of a rebuild.
bool Application::showNotifierItem() {
    std::unique_ptr<NotifierItem> item = NotifierItem::create(
        _menu,
        [this](const QRect &icon) { return iconClicked(icon, QGuiApplication::platformName()); },
        iconState());
    if (!item) {
        return false;
    }
    _statusItem = std::move(item);
    return true;
}

IconState Application::iconState() const {
    return _statusReporter->iconState();
}

void Application::setStatusIcon(IconState state) {
    if (_statusItem) {
        _statusItem->setState(state);
    }
}
