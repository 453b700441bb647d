#pragma once

#include "StatusIcon.h"
#include "StatusNotifierItem.h"
#include "TrayHostWaiter.h"

#include <QObject>
#include <QRect>
#include <QSystemTrayIcon>

#include <functional>
#include <memory>

class StatusMenu;
class TrayNotifier;

// Where the program's state shows in the session's tray, and where a click
// on it arrives. One implementation per tray protocol.
class StatusItem {
public:
    // A click that asks for the menu beside `icon` (empty when unknown);
    // answers whether the program took care of it.
    using ClickHandler = std::function<bool(const QRect &icon)>;

    virtual ~StatusItem() = default;
    virtual void setState(IconState state) = 0;
};

// An icon that a tray embeds (XEmbed), through QSystemTrayIcon; its menu is
// the program's own widget, on either button. Shown even before a tray runs.
class TrayIconItem : public QObject, public StatusItem {
    Q_OBJECT

public:
    // `balloons` shows notifications on this icon while it lives.
    TrayIconItem(StatusMenu &menu, ClickHandler onClick, TrayNotifier &balloons);
    ~TrayIconItem() override;

    void setState(IconState state) override;
    QSystemTrayIcon &icon() { return _icon; }

private:
    void activated(QSystemTrayIcon::ActivationReason reason);

    QSystemTrayIcon _icon;
    ClickHandler _onClick;
    TrayNotifier &_balloons;
    TrayHostWaiter _hostWaiter{_icon};
};

// The item for tray hosts that speak StatusNotifierItem: they draw the
// exported menu themselves, and are told when a click is theirs to answer.
class NotifierItem : public StatusItem {
public:
    // Null when no host is on the bus or the item cannot be exported.
    static std::unique_ptr<NotifierItem> create(StatusMenu &menu, ClickHandler onClick,
                                                IconState state);

    void setState(IconState state) override;
    StatusNotifierItem &item() { return _item; }

private:
    explicit NotifierItem(StatusMenu &menu);

    StatusNotifierItem _item;
};
