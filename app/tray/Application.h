#pragma once

#include "StatusIcon.h"
#include "StatusMenu.h"
#include "app/platform/PlatformServices.h"
#include "registry/CorvantaInstance.h"
#include "registry/Installation.h"
#include "registry/InstanceModel.h"

#include <QObject>
#include <QRect>
#include <QString>
#include <QStringView>

#include <memory>
#include <optional>

class QDBusServiceWatcher;
class StatusItem;
class StatusReporter;
class TrayNotifier;

// The tray program: puts the installation, its live model, the menu, the
// status item and the notifications together, and does what the menu's
// choices ask for: a start or stop after a confirmation, the links, start
// at login. Main thread only.
class Application : public QObject {
    Q_OBJECT

public:
    // `notifier` null: notifications are the tray's balloon messages.
    Application(DesktopOpener &opener, LoginItemList &loginItems, ConfirmationPrompt &prompt,
                Notifier *notifier = nullptr, QObject *parent = nullptr);
    ~Application() override;

    // Where setupGlobalEnvironment looks for the installation; nowhere until set.
    void setInstallationSources(InstallationSources sources) {
        _installationSources = std::move(sources);
    }
    // The installation in use, once setupGlobalEnvironment found one.
    const std::optional<QString> &installationHome() const { return _installationHome; }
    // The tray's balloon messages, for a notifier to fall back on.
    Notifier &trayNotifier();

    // Finds the installation, scans it and puts the status item up, filled
    // before it appears: a host may read the menu as soon as the item is
    // there, and draw it without asking first.
    void start();
    void setupGlobalEnvironment();

    InstanceModel &model() { return _model; }
    StatusMenu &menu() { return _menu; }
    StatusReporter &statusReporter() { return *_statusReporter; }
    StatusItem *statusItem() const { return _statusItem.get(); }

    // A click on the status item, on `platform`: brings a confirmation up
    // front, or shows the menu beside the icon where the program may place
    // it (X11). False leaves the menu to the tray host.
    bool iconClicked(const QRect &icon, QStringView platform);

public slots:
    void startInstance(const CorvantaInstancePtr &instance);
    void stopInstance(const CorvantaInstancePtr &instance);
    void viewLogFile();
    void launchKelvarine();
    void onlineDocumentation();
    void toggleStartAtLogin(bool enabled);

private:
    bool confirm(CorvantaInstance *instance, bool start);
    // The prompt, with the menu held while it is up.
    bool ask(const QString &message, const QString &informative, const QString &button);
    // A confirmation is up: whatever else the user chose brings it to the front.
    bool raiseConfirmation();
    void openUrl(const QString &text);
    void showStatusItem();
    bool showNotifierItem();
    void setStatusIcon(IconState state);
    IconState iconState() const;

    DesktopOpener &_opener;
    LoginItemList &_loginItems;
    ConfirmationPrompt &_prompt;
    InstallationSources _installationSources;
    std::optional<QString> _installationHome;
    InstanceModel _model;
    StatusMenu _menu{_model, _loginItems};
    std::unique_ptr<TrayNotifier> _trayNotifier;
    std::unique_ptr<StatusReporter> _statusReporter;
    std::unique_ptr<StatusItem> _statusItem;
    std::unique_ptr<QDBusServiceWatcher> _hostWatch;  // for a host that comes later
    bool _confirming = false;

    friend struct ApplicationProbe;  // tests
};
