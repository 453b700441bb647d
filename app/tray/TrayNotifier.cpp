#include "TrayNotifier.h"

#include "registry/SystemLog.h"

void TrayNotifier::setIcon(QSystemTrayIcon *icon) {
    if (_icon) {
        disconnect(_icon, nullptr, this, nullptr);
    }
    _icon = icon;
    if (_icon) {
        connect(_icon, &QSystemTrayIcon::messageClicked, this, [this] {
            const auto onClick = std::exchange(_onClick, {});
            if (onClick) {
                onClick(_clickKey);
            }
        });
    }
}

void TrayNotifier::notify(const QString &title, const QString &body,
                          const QList<NotificationAction> &actions,
                          std::function<void(const QString &key)> onAction) {
    if (!_icon || !QSystemTrayIcon::supportsMessages()) {
        // Nowhere to show it: the log keeps it.
        systemLog(title + QStringLiteral(": ") + body);
        return;
    }
    _clickKey = actions.isEmpty() ? QString() : actions.first().key;
    _onClick = actions.isEmpty() ? nullptr : std::move(onAction);
    _icon->showMessage(title, body, QSystemTrayIcon::Warning);
}
