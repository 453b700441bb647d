#include "StatusItem.h"

#include "StatusMenu.h"
#include "TrayNotifier.h"

#include <QCoreApplication>
#include <QMenu>

namespace {

QString toolTip() {
    return QCoreApplication::translate("StatusItem", "Nordelix Corvanta");
}

}  // namespace

TrayIconItem::TrayIconItem(StatusMenu &menu, ClickHandler onClick, TrayNotifier &balloons)
    : _onClick(std::move(onClick)), _balloons(balloons) {
    _icon.setContextMenu(&menu.menu());
    _icon.setToolTip(toolTip());
    _balloons.setIcon(&_icon);
    connect(&_icon, &QSystemTrayIcon::activated, this, &TrayIconItem::activated);
    _hostWaiter.start();
}

TrayIconItem::~TrayIconItem() {
    _balloons.setIcon(nullptr);
}

void TrayIconItem::setState(IconState state) {
    _icon.setIcon(makeStatusIcon(state));
}

void TrayIconItem::activated(QSystemTrayIcon::ActivationReason reason) {
    // The context click opens the menu by itself; the other button opens the
    // same menu, as a menu-bar item would.
    if (reason == QSystemTrayIcon::Trigger) {
        _onClick(_icon.geometry());
    }
}

NotifierItem::NotifierItem(StatusMenu &menu) : _item(menu.menu()) {}

std::unique_ptr<NotifierItem> NotifierItem::create(StatusMenu &menu, ClickHandler onClick,
                                                   IconState state) {
    if (!StatusNotifierItem::hostAvailable()) {
        return nullptr;
    }
    std::unique_ptr<NotifierItem> item(new NotifierItem(menu));
    QObject::connect(&item->_item.menuExporter(), &DBusMenuExporter::aboutToShowRequested, &menu,
                     &StatusMenu::hostAboutToShow);
    item->_item.setActivationHandler([onClick = std::move(onClick)](QPoint at) {
        return onClick(at.isNull() ? QRect() : QRect(at, QSize(1, 1)));
    });
    item->_item.setToolTip(toolTip());
    item->setState(state);
    return item->_item.registerItem() ? std::move(item) : nullptr;
}

void NotifierItem::setState(IconState state) {
    // The name only where its icon is found: a host that prefers names would
    // otherwise draw a missing-icon sign instead of the pixmap.
    static const QString directory = statusIconDirectory();
    _item.setIcon(makeStatusIcon(state),
                  directory.isEmpty() ? QString() : statusIconName(state, true), directory,
                  statusIconDescription(state));
}
