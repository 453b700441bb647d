#pragma once

#include "MenuShortcuts.h"
#include "registry/CorvantaInstance.h"

#include <QBasicTimer>
#include <QObject>
#include <QPointer>
#include <QRect>

#include <memory>
#include <optional>

class InstanceModel;
class LoginItemList;
class QAction;
class QMenu;
class QStyle;

// What an instance's menu item holds: its record, and what choosing it does.
struct InstanceItem {
    enum class Action : quint8 { None, Start, Stop };
    CorvantaInstancePtr instance;
    Action action = Action::None;
    friend bool operator==(const InstanceItem &, const InstanceItem &) = default;
};
Q_DECLARE_METATYPE(InstanceItem)

// The status menu: an item per instance titled by its server's state, the
// links, start at login and quit. It follows the model from the start, so a
// tray host that reads it at any moment finds it complete; with the same
// instances the items change in place, and a host reads no new layout. Each
// opening scans the installation again; while this program's own menu widget
// is open, a timer refreshes the listed instances as well. What the user
// chooses goes out as signals. Main thread only.
class StatusMenu : public QObject {
    Q_OBJECT

public:
    StatusMenu(InstanceModel &model, LoginItemList &loginItems, QObject *parent = nullptr);
    ~StatusMenu() override;

    QMenu &menu() { return *_menu; }
    // A confirmation is up: an opening shows the items its answer acts on.
    void setHeld(bool held) { _held = held; }
    // Opens this program's own menu widget beside the icon (`icon` empty
    // when unknown).
    void popUpAtIcon(const QRect &icon);
    bool isRefreshing() const { return _refreshTimer.isActive(); }

    static constexpr int RefreshIntervalMs = 500;
    // Upper bound on one opening's refresh ticks (ten minutes).
    static constexpr int MaxTicksPerOpening = 10 * 60 * 1000 / RefreshIntervalMs;

public slots:
    // This program's own menu widget opens or closes.
    void aboutToShow();
    void aboutToHide();
    // A tray host is about to draw the menu itself; it may never say that it
    // closed it, so nothing is started that would wait for that.
    void hostAboutToShow();

signals:
    void startChosen(const CorvantaInstancePtr &instance);
    void stopChosen(const CorvantaInstancePtr &instance);
    void logChosen();
    void consoleChosen();
    void documentationChosen();
    // The check mark shows what the user asked for.
    void startAtLoginToggled(bool enabled);
    void quitChosen();

protected:
    void timerEvent(QTimerEvent *event) override;

private:
    // The instance items' title formats, translated once per fill rather
    // than once per item and tick.
    struct TitleFormats {
        QString start, starting, stop, stopping, unknown;
    };
    static TitleFormats translatedTitleFormats();

    // Rebuilds the menu for another set of instances, or brings its items up
    // to date in place for the same set.
    void fill();
    void updateItemsInPlace();
    void instanceRefreshed(const CorvantaInstancePtr &instance);
    void itemChosen(QAction *item);
    // `mayOperate`: the instance's canStart, when already asked.
    void updateItem(QAction *item, CorvantaInstance *instance,
                    std::optional<bool> mayOperate = std::nullopt);
    void updateLinkItems();
    // The parts of the menu, in their order.
    void addInstanceItems(QObject *owner);
    void addLinkItems(QObject *owner);
    void addLoginAndQuitItems(QObject *owner);
    void stopRefreshing();

    InstanceModel &_model;
    LoginItemList &_loginItems;
    std::unique_ptr<QStyle> _style;  // outlives the menu using it
    std::unique_ptr<QMenu> _menu;
    MenuShortcuts _shortcuts;
    QList<CorvantaInstancePtr> _listed;  // what the instance items show
    std::optional<TitleFormats> _formats;
    QPointer<QAction> _logItem;
    QPointer<QAction> _consoleItem;
    QPointer<QAction> _loginItem;
    QBasicTimer _refreshTimer;
    int _ticksLeft = 0;
    bool _held = false;
    bool _builtForPopup = false;  // popUpAtIcon filled it before placing it

    friend struct ApplicationProbe;  // tests
};
