#include "StatusNotifierItem.h"

#include "WindowActivation.h"

#include <QCoreApplication>
#include <QDBusAbstractAdaptor>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QImage>
#include <QMenu>
#include <QTimer>
#include <QtEndian>

namespace {

const QString kItemPath = QStringLiteral("/StatusNotifierItem");
const QString kMenuPath = QStringLiteral("/MenuBar");
const QString kWatcherPath = QStringLiteral("/StatusNotifierWatcher");

constexpr int kRegisterAttempts = 5;
constexpr std::chrono::milliseconds kRegisterRetry{200};

// Sizes a panel draws at; larger ones only make every icon change heavier.
constexpr int kLargestPixmap = 64;

}  // namespace

const QString StatusNotifierItem::WatcherService = QStringLiteral("org.kde.StatusNotifierWatcher");

// The interface as the bus sees it; the state is the item's.
class StatusNotifierItemAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category READ category)
    Q_PROPERTY(QString Id READ id)
    Q_PROPERTY(QString Title READ title)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(int WindowId READ windowId)
    Q_PROPERTY(bool ItemIsMenu READ itemIsMenu)
    Q_PROPERTY(QDBusObjectPath Menu READ menu)
    Q_PROPERTY(QString IconName READ iconName)
    Q_PROPERTY(QString IconThemePath READ iconThemePath)
    Q_PROPERTY(SniIconPixmapList IconPixmap READ iconPixmap)
    Q_PROPERTY(QString OverlayIconName READ empty)
    Q_PROPERTY(SniIconPixmapList OverlayIconPixmap READ noPixmaps)
    Q_PROPERTY(QString AttentionIconName READ empty)
    Q_PROPERTY(SniIconPixmapList AttentionIconPixmap READ noPixmaps)
    Q_PROPERTY(QString AttentionMovieName READ empty)
    Q_PROPERTY(SniToolTip ToolTip READ toolTip)
    Q_PROPERTY(QString IconAccessibleDesc READ iconAccessibleDesc)
    Q_PROPERTY(QString AttentionAccessibleDesc READ iconAccessibleDesc)

public:
    explicit StatusNotifierItemAdaptor(StatusNotifierItem *item)
        : QDBusAbstractAdaptor(item), _item(*item) {
        connect(item, &StatusNotifierItem::iconChanged, this, &StatusNotifierItemAdaptor::NewIcon);
        connect(item, &StatusNotifierItem::toolTipChanged, this,
                &StatusNotifierItemAdaptor::NewToolTip);
    }

    QString category() const { return QStringLiteral("ApplicationStatus"); }
    QString id() const { return QCoreApplication::applicationName(); }
    QString title() const { return QStringLiteral("Corvanta Monitor"); }
    QString status() const { return QStringLiteral("Active"); }
    int windowId() const { return 0; }
    bool itemIsMenu() const { return true; }
    QDBusObjectPath menu() const { return QDBusObjectPath(kMenuPath); }
    QString iconName() const { return _item.iconName(); }
    QString iconThemePath() const { return _item.iconThemePath(); }
    SniIconPixmapList iconPixmap() const { return _item.iconPixmaps(); }
    QString empty() const { return {}; }
    SniIconPixmapList noPixmaps() const { return {}; }
    SniToolTip toolTip() const { return {{}, {}, _item.toolTip(), {}}; }
    QString iconAccessibleDesc() const { return _item.iconDescription(); }

public slots:
    // Sent before a click, for the window the click may bring up.
    void ProvideXdgActivationToken(const QString &token) { WindowActivation::setToken(token); }
    void Activate(int x, int y) { _item.activate(QPoint(x, y)); }
    void ContextMenu(int x, int y) { _item.activate(QPoint(x, y)); }
    void SecondaryActivate(int, int) {}
    void Scroll(int, const QString &) {}

signals:
    void NewTitle();
    void NewIcon();
    void NewAttentionIcon();
    void NewOverlayIcon();
    void NewToolTip();
    void NewStatus(const QString &status);

private:
    StatusNotifierItem &_item;
};

StatusNotifierItem::StatusNotifierItem(QMenu &menu, QDBusConnection bus, QObject *parent)
    : QObject(parent),
      _bus(std::move(bus)),
      _menuExporter(std::make_unique<DBusMenuExporter>(menu)) {
    qDBusRegisterMetaType<SniIconPixmap>();
    qDBusRegisterMetaType<SniIconPixmapList>();
    qDBusRegisterMetaType<SniToolTip>();
    new StatusNotifierItemAdaptor(this);
}

StatusNotifierItem::~StatusNotifierItem() {
    if (_registered) {
        _bus.unregisterObject(kItemPath);
        _bus.unregisterObject(kMenuPath);
    }
}

bool StatusNotifierItem::hostAvailable(const QDBusConnection &bus) {
    const QDBusConnectionInterface *daemon = bus.interface();
    return daemon && daemon->isServiceRegistered(WatcherService).value();
}

bool StatusNotifierItem::registerItem() {
    if (_registered) {
        return true;
    }
    if (!_bus.isConnected() || !_menuExporter->registerOn(_bus, kMenuPath)) {
        return false;
    }
    if (!_bus.registerObject(kItemPath, this, QDBusConnection::ExportAdaptors)) {
        _bus.unregisterObject(kMenuPath);
        return false;
    }
    // The connection's own name rather than the customary well-known one: a
    // widespread host re-reads an item when its well-known name appears and,
    // racing its own first read, drops the icon.
    _serviceName = _bus.baseService();
    _registered = true;
    // A panel that restarts, or replaces another without a gap, brings a new
    // watcher, which knows nothing of us.
    _watcherWatch = new QDBusServiceWatcher(WatcherService, _bus,
                                            QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(_watcherWatch, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &, const QString &owner) {
                if (!owner.isEmpty()) {
                    registerWithWatcher();
                }
            });
    registerWithWatcher();
    return true;
}

void StatusNotifierItem::registerWithWatcher(int attempt) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        WatcherService, kWatcherPath, WatcherService, QStringLiteral("RegisterStatusNotifierItem"));
    call << _serviceName;
    // Not waited for: the watcher may be slow. A watcher that owns its name
    // before it serves its object refuses; it is asked again, a few times.
    auto *pending = new QDBusPendingCallWatcher(_bus.asyncCall(call), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this,
            [this, attempt](QDBusPendingCallWatcher *reply) {
                reply->deleteLater();
                if (reply->isError() && attempt < kRegisterAttempts) {
                    QTimer::singleShot(kRegisterRetry * (attempt + 1), this,
                                       [this, attempt] { registerWithWatcher(attempt + 1); });
                }
            });
}

void StatusNotifierItem::setIcon(const QIcon &icon, const QString &iconName,
                                 const QString &themePath, const QString &description) {
    _iconName = iconName;
    _themePath = themePath;
    _description = description;
    _pixmaps = pixmapsOf(icon);
    emit iconChanged();
}

void StatusNotifierItem::activate(QPoint at) {
    if (_onActivate && _onActivate(at)) {
        return;
    }
    // Hosts that send the click whatever the item says it is fall back to
    // drawing its menu when the click fails.
    if (calledFromDBus()) {
        sendErrorReply(QDBusError::NotSupported,
                       QStringLiteral("the menu is the host's to show here"));
    }
}

void StatusNotifierItem::setToolTip(const QString &toolTip) {
    if (toolTip != _toolTip) {
        _toolTip = toolTip;
        emit toolTipChanged();
    }
}

SniIconPixmapList StatusNotifierItem::pixmapsOf(const QIcon &icon) {
    SniIconPixmapList list;
    for (const QSize &size : icon.availableSizes()) {
        if (size.width() > kLargestPixmap || size.height() > kLargestPixmap) {
            continue;
        }
        const QImage image =
            icon.pixmap(size, 1.0).toImage().convertToFormat(QImage::Format_ARGB32);
        if (image.isNull()) {
            continue;
        }
        SniIconPixmap pixmap{image.width(), image.height(), {}};
        pixmap.argb.resize(qsizetype(image.width()) * image.height() * 4);
        auto *out = reinterpret_cast<quint32 *>(pixmap.argb.data());
        for (int y = 0; y < image.height(); ++y) {
            const auto *line = reinterpret_cast<const quint32 *>(image.constScanLine(y));
            for (int x = 0; x < image.width(); ++x) {
                *out++ = qToBigEndian(line[x]);
            }
        }
        list.append(std::move(pixmap));
    }
    return list;
}

QDBusArgument &operator<<(QDBusArgument &argument, const SniIconPixmap &pixmap) {
    argument.beginStructure();
    argument << pixmap.width << pixmap.height << pixmap.argb;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SniIconPixmap &pixmap) {
    argument.beginStructure();
    argument >> pixmap.width >> pixmap.height >> pixmap.argb;
    argument.endStructure();
    return argument;
}

QDBusArgument &operator<<(QDBusArgument &argument, const SniToolTip &toolTip) {
    argument.beginStructure();
    argument << toolTip.iconName << toolTip.pixmaps << toolTip.title << toolTip.description;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SniToolTip &toolTip) {
    argument.beginStructure();
    argument >> toolTip.iconName >> toolTip.pixmaps >> toolTip.title >> toolTip.description;
    argument.endStructure();
    return argument;
}

#include "StatusNotifierItem.moc"
