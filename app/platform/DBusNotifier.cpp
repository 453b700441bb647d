#include "DBusNotifier.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>
#include <QVariantMap>

namespace {

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");

}  // namespace

DBusNotifier::DBusNotifier(const QDBusConnection &bus, QObject *parent)
    : QObject(parent), _bus(bus) {
    if (!_bus.isConnected()) {
        return;
    }
    _bus.connect(kService, kPath, kInterface, QStringLiteral("ActionInvoked"), this,
                 SLOT(onActionInvoked(uint, QString)));
    _bus.connect(kService, kPath, kInterface, QStringLiteral("NotificationClosed"), this,
                 SLOT(onNotificationClosed(uint, uint)));
    const QDBusMessage query = QDBusMessage::createMethodCall(kService, kPath, kInterface,
                                                              QStringLiteral("GetCapabilities"));
    auto *watcher = new QDBusPendingCallWatcher(_bus.asyncCall(query), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher *call) {
                const QDBusPendingReply<QStringList> reply = *call;
                if (!reply.isError()) {
                    _capabilities = reply.value();
                }
                call->deleteLater();
            });
}

void DBusNotifier::notify(const QString &title, const QString &body,
                          const QList<NotificationAction> &actions,
                          std::function<void(const QString &key)> onAction) {
    if (!_bus.isConnected()) {
        useFallback(title, body, actions, std::move(onAction));
        return;
    }
    // Before the service has answered, actions are offered anyway: a server
    // without them ignores them.
    const bool withActions = !_capabilities || _capabilities->contains(QStringLiteral("actions"));
    const bool markup = _capabilities && _capabilities->contains(QStringLiteral("body-markup"));
    QStringList actionList;
    if (withActions) {
        for (const NotificationAction &action : actions) {
            actionList << action.key << action.label;
        }
    }
    // Ties the notification to the program's entry: its name and icon in the
    // banner, and the desktop's per-program settings.
    QVariantMap hints;
    if (const QString entry = QGuiApplication::desktopFileName(); !entry.isEmpty()) {
        hints.insert(QStringLiteral("desktop-entry"), entry);
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Notify"));
    call << QStringLiteral("Corvanta Monitor") << uint(0) << QStringLiteral("corvanta-monitor")
         << title << (markup ? body.toHtmlEscaped() : body) << actionList << hints << -1;
    auto *watcher = new QDBusPendingCallWatcher(_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, title, body, actions, withActions,
             onAction = std::move(onAction)](QDBusPendingCallWatcher *pending) mutable {
                pending->deleteLater();
                const QDBusPendingReply<uint> reply = *pending;
                if (reply.isError()) {
                    useFallback(title, body, actions, std::move(onAction));
                    return;
                }
                if (!withActions || actions.isEmpty() || !onAction) {
                    return;
                }
                const uint id = reply.value();
                if (_pendingOrder.size() >= MaxPending) {
                    _pending.remove(_pendingOrder.takeFirst());
                }
                _pending.insert(id, std::move(onAction));
                _pendingOrder.append(id);
            });
}

void DBusNotifier::useFallback(const QString &title, const QString &body,
                               const QList<NotificationAction> &actions,
                               std::function<void(const QString &key)> onAction) {
    if (_fallback) {
        _fallback->notify(title, body, actions, std::move(onAction));
    }
}

void DBusNotifier::onActionInvoked(uint id, const QString &key) {
    const auto callback = _pending.take(id);
    _pendingOrder.removeAll(id);
    if (callback) {
        callback(key);
    }
}

void DBusNotifier::onNotificationClosed(uint id, uint /*reason*/) {
    // Some servers close before reporting the action; the action comes first
    // by the protocol, so whatever is still pending here was dismissed.
    _pending.remove(id);
    _pendingOrder.removeAll(id);
}
