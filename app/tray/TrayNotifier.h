#pragma once

#include "app/platform/PlatformServices.h"

#include <QObject>
#include <QPointer>
#include <QSystemTrayIcon>

// Notifications as the tray icon's balloon messages, for desktops without a
// notification service. A click on the message runs its first action.
class TrayNotifier : public QObject, public Notifier {
    Q_OBJECT

public:
    using QObject::QObject;

    void setIcon(QSystemTrayIcon *icon);
    void notify(const QString &title, const QString &body, const QList<NotificationAction> &actions,
                std::function<void(const QString &key)> onAction) override;

private:
    QPointer<QSystemTrayIcon> _icon;
    QString _clickKey;  // of the message on screen
    std::function<void(const QString &)> _onClick;
};
