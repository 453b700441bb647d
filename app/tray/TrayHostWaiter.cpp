#include "TrayHostWaiter.h"

#include <QSystemTrayIcon>
#include <QTimerEvent>

#include <cstdio>

TrayHostWaiter::TrayHostWaiter(QSystemTrayIcon &icon, Probe trayAvailable,
                               std::chrono::milliseconds interval)
    : _icon(icon), _trayAvailable(std::move(trayAvailable)), _interval(interval) {}

TrayHostWaiter::Probe TrayHostWaiter::defaultProbe() {
    return &QSystemTrayIcon::isSystemTrayAvailable;
}

void TrayHostWaiter::start() {
    // Shown even without a tray: the X11 tray support then embeds the icon by
    // itself as soon as a tray appears.
    _icon.show();
    if (_trayAvailable()) {
        return;
    }
    // Said at once and on the terminal: a desktop without a tray otherwise
    // looks as if the program did nothing at all.
    const QByteArray line = tr("No system tray found; the \"C\" icon appears once one runs. "
                               "On GNOME Shell install a tray extension "
                               "(gnome-shell-extension-appindicator), elsewhere a tray host "
                               "such as trayer or stalonetray.")
                                .toLocal8Bit();
    std::fprintf(stderr, "corvanta-monitor: %s\n", line.constData());
    _poll.start(int(_interval.count()), Qt::VeryCoarseTimer, this);
}

void TrayHostWaiter::timerEvent(QTimerEvent *event) {
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
