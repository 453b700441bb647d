#pragma once

#include "DBusMenuExporter.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusContext>
#include <QIcon>
#include <QObject>
#include <QPoint>

#include <functional>
#include <memory>

class QDBusServiceWatcher;
class QMenu;

// ARGB32 pixels in network byte order, as tray hosts take them.
struct SniIconPixmap {
    int width = 0;
    int height = 0;
    QByteArray argb;
};
using SniIconPixmapList = QList<SniIconPixmap>;
struct SniToolTip {
    QString iconName;
    SniIconPixmapList pixmaps;
    QString title;
    QString description;
};
Q_DECLARE_METATYPE(SniIconPixmap)
Q_DECLARE_METATYPE(SniToolTip)

// The status icon for tray hosts that speak StatusNotifierItem (most panels
// today, and every tray on Wayland). The host draws the exported menu itself,
// on either button: the item says it is a menu. Main thread only.
class StatusNotifierItem : public QObject, protected QDBusContext {
    Q_OBJECT

public:
    static const QString WatcherService;

    // `menu` outlives the item.
    StatusNotifierItem(QMenu &menu, QDBusConnection bus = QDBusConnection::sessionBus(),
                       QObject *parent = nullptr);
    ~StatusNotifierItem() override;

    // Whether a host's watcher is on the bus.
    static bool hostAvailable(const QDBusConnection &bus = QDBusConnection::sessionBus());

    // Exports the item and its menu and registers with the watcher, now and
    // whenever a watcher appears again. False when the objects or the name
    // cannot be had.
    bool registerItem();

    // `iconName` is a themed name for hosts that prefer one (empty for none);
    // `themePath`, where that name is found when not in the user's theme;
    // `description`, what the icon shows, in words.
    void setIcon(const QIcon &icon, const QString &iconName = {}, const QString &themePath = {},
                 const QString &description = {});
    void setToolTip(const QString &toolTip);
    // What a host that takes the item for a button rather than a menu gets
    // on a click at `at` (screen coordinates where the host knows them):
    // the handler says whether it answered the click. When it did not, the
    // host is told so, and hosts then show the item's menu themselves.
    void setActivationHandler(std::function<bool(QPoint at)> handler) {
        _onActivate = std::move(handler);
    }
    DBusMenuExporter &menuExporter() { return *_menuExporter; }
    QString serviceName() const { return _serviceName; }

    // For the adaptor.
    QString iconName() const { return _iconName; }
    QString iconThemePath() const { return _themePath; }
    SniIconPixmapList iconPixmaps() const { return _pixmaps; }
    QString iconDescription() const { return _description; }
    QString toolTip() const { return _toolTip; }
    static SniIconPixmapList pixmapsOf(const QIcon &icon);

    // For the adaptor: a click, within its bus call.
    void activate(QPoint at);

signals:
    // For the adaptor.
    void iconChanged();
    void toolTipChanged();

private:
    void registerWithWatcher(int attempt = 0);

    QDBusConnection _bus;
    QString _serviceName;
    std::unique_ptr<DBusMenuExporter> _menuExporter;
    QDBusServiceWatcher *_watcherWatch = nullptr;
    QString _iconName;
    QString _themePath;
    SniIconPixmapList _pixmaps;
    QString _description;
    QString _toolTip;
    std::function<bool(QPoint)> _onActivate;
    bool _registered = false;
};

QDBusArgument &operator<<(QDBusArgument &argument, const SniIconPixmap &pixmap);
const QDBusArgument &operator>>(const QDBusArgument &argument, SniIconPixmap &pixmap);
QDBusArgument &operator<<(QDBusArgument &argument, const SniToolTip &toolTip);
const QDBusArgument &operator>>(const QDBusArgument &argument, SniToolTip &toolTip);
