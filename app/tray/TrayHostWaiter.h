#pragma once

#include <QBasicTimer>
#include <QObject>

#include <chrono>
#include <functional>

class QSystemTrayIcon;

// Puts the status icon up, and when the desktop has no tray yet keeps the
// program running and shows the icon once a tray appears. Polls at a slow
// pace, and only while no tray is there.
class TrayHostWaiter : public QObject {
    Q_OBJECT

public:
    using Probe = std::function<bool()>;

    explicit TrayHostWaiter(QSystemTrayIcon &icon, Probe trayAvailable = defaultProbe(),
                            std::chrono::milliseconds interval = std::chrono::seconds(5));

    void start();
    bool isWaiting() const { return _poll.isActive(); }

    static Probe defaultProbe();

protected:
    void timerEvent(QTimerEvent *event) override;

private:
    QSystemTrayIcon &_icon;
    Probe _trayAvailable;
    std::chrono::milliseconds _interval;
    QBasicTimer _poll;
};
