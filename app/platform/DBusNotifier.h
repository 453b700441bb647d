#pragma once

#include "PlatformServices.h"

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QStringList>

#include <optional>

// Notifications through the desktop's notification service
// (org.freedesktop.Notifications on the session bus). Every call is
// asynchronous, so a slow or absent service never holds up the main thread.
// When the service is absent or refuses, the fallback (if set) shows the
// notification instead.
class DBusNotifier : public QObject, public Notifier {
    Q_OBJECT

public:
    explicit DBusNotifier(const QDBusConnection &bus = QDBusConnection::sessionBus(),
                          QObject *parent = nullptr);

    void setFallback(Notifier *fallback) { _fallback = fallback; }

    void notify(const QString &title, const QString &body, const QList<NotificationAction> &actions,
                std::function<void(const QString &key)> onAction) override;

    // Callbacks waiting for a notification still on screen; bounded.
    static constexpr qsizetype MaxPending = 32;
    qsizetype pendingCount() const { return _pending.size(); }

private slots:
    // Connected by name: the bus offers no other way.
    void onActionInvoked(uint id, const QString &key);
    void onNotificationClosed(uint id, uint reason);

private:
    void useFallback(const QString &title, const QString &body,
                     const QList<NotificationAction> &actions,
                     std::function<void(const QString &key)> onAction);

    QDBusConnection _bus;
    Notifier *_fallback = nullptr;
    std::optional<QStringList> _capabilities;  // until the service answers
    QHash<uint, std::function<void(const QString &)>> _pending;
    QList<uint> _pendingOrder;
};
