#include "TrayWatch.h"

#include "registry/SystemLog.h"

#include <QSystemTrayIcon>
#include <QTimerEvent>

TrayWatch::TrayWatch(QSystemTrayIcon &icon, Probe trayAvailable, std::chrono::milliseconds interval)
    : _icon(icon), _trayAvailable(std::move(trayAvailable)), _interval(interval) {}

TrayWatch::Probe TrayWatch::defaultProbe() {
    return &QSystemTrayIcon::isSystemTrayAvailable;
}

void TrayWatch::start() {
    // Shown even without a tray: the X11 tray support then embeds the icon by
    // itself as soon as a tray appears.
    _icon.show();
    if (_trayAvailable()) {
        return;
    }
    systemLog(QStringLiteral("No system tray available; the status icon appears when one starts"));
    _poll.start(int(_interval.count()), Qt::VeryCoarseTimer, this);
}

void TrayWatch::timerEvent(QTimerEvent *event) {
    if (event->timerId() != _poll.timerId()) {
        QObject::timerEvent(event);
        return;
    }
    if (!_trayAvailable()) {
        return;
    }
    _poll.stop();
    // A fresh registration for trays that only take icons announced after them.
    _icon.hide();
    _icon.show();
}
