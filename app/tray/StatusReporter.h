#pragma once

#include "ServerTransitions.h"
#include "StatusIcon.h"
#include "app/platform/PlatformServices.h"
#include "registry/CorvantaInstance.h"
#include "registry/InstanceModel.h"

#include <QHash>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>

// Keeps the status at a glance between menu openings: follows the model's
// instances, turns their status changes into the icon's state and into
// notifications, and offers to force a stop that does not end. Starts at
// launch; never touches the menu. Main thread only.
class StatusReporter : public QObject {
    Q_OBJECT

public:
    // Asks the user to confirm (message, informative text, the button that
    // confirms); answers whether they did.
    using Confirm = std::function<bool(const QString &, const QString &, const QString &)>;

    // Follows `model` from now on.
    StatusReporter(InstanceModel &model, Notifier &notifier, DesktopOpener &opener, Confirm confirm,
                   QObject *parent = nullptr);
    ~StatusReporter() override;

    void setNotificationsEnabled(bool enabled) { _notificationsEnabled = enabled; }
    void setStopTimeout(std::chrono::milliseconds timeout) { _stopTimeout = timeout; }

    // The user confirmed and the record accepted.
    void startRequested(const CorvantaInstancePtr &instance);
    void stopRequested(const CorvantaInstancePtr &instance);

    IconState iconState() const { return _iconState; }

    static constexpr std::chrono::seconds StopTimeout{30};
    static constexpr qsizetype LogTailBytes = 4096;
    static constexpr int LogTailLines = 5;

signals:
    void iconStateChanged(IconState state);

private:
    // Timers may end inside their own timeout.
    struct DeleteLater {
        void operator()(QObject *object) const { object->deleteLater(); }
    };
    struct Tracked {
        CorvantaInstancePtr instance;
        qint32 status = ServerStatusUnknown;
        ServerRequest request = ServerRequest::None;
        qint32 stopPid = 0;
        qint32 startPid = 0;                             // the process a start launched
        std::unique_ptr<QTimer, DeleteLater> stopTimer;  // armed only while a stop is pending
    };

    // The model scanned again.
    void rescanned();
    void observe(const CorvantaInstancePtr &instance);
    void request(const CorvantaInstancePtr &instance, ServerRequest request);
    void stopOverdue(const QString &key);
    void forceStop(const CorvantaInstancePtr &instance, qint32 pid);
    void tell(ServerEvent event, const CorvantaInstancePtr &instance);
    void openLog(const CorvantaInstancePtr &instance);
    void updateIcon();

    Notifier &_notifier;
    DesktopOpener &_opener;
    Confirm _confirm;
    InstanceModel &_model;
    QHash<QString, std::shared_ptr<Tracked>> _tracked;  // by instance directory
    QList<CorvantaInstancePtr> _listed;                 // by the last scan
    IconState _iconState = IconState::Unknown;
    bool _notificationsEnabled = true;
    std::chrono::milliseconds _stopTimeout = StopTimeout;
};

// "exited with status N" / "killed by signal N" for a wait status, translated.
QString describeExit(std::optional<int> waitStatus);
// The last `lines` lines within the last `bytes` bytes of a regular file;
// empty for anything else. Never blocks, never reads more than `bytes`.
QString readLogTail(const QString &path, qsizetype bytes, int lines);
