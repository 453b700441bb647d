#pragma once

#include <QDBusArgument>
#include <QDBusContext>
#include <QDBusVariant>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QVariantMap>

class QAction;
class QDBusConnection;
class QKeySequence;
class QMenu;

// An item's id with its properties (their values, or their names), as the
// menu interface pairs them.
template <typename Properties>
struct DBusMenuPair {
    int id = 0;
    Properties properties;
};
using DBusMenuItem = DBusMenuPair<QVariantMap>;
using DBusMenuItemKeys = DBusMenuPair<QStringList>;
struct DBusMenuLayoutItem {
    int id = 0;
    QVariantMap properties;
    QList<DBusMenuLayoutItem> children;
};
struct DBusMenuEvent {
    int id = 0;
    QString eventId;
    QDBusVariant data;
    uint timestamp = 0;
};
using DBusMenuItemList = QList<DBusMenuItem>;
using DBusMenuItemKeysList = QList<DBusMenuItemKeys>;
using DBusMenuEventList = QList<DBusMenuEvent>;
Q_DECLARE_METATYPE(DBusMenuItem)
Q_DECLARE_METATYPE(DBusMenuItemKeys)
Q_DECLARE_METATYPE(DBusMenuLayoutItem)
Q_DECLARE_METATYPE(DBusMenuEvent)

// Publishes a QMenu on the session bus as a com.canonical.dbusmenu menu, for
// tray hosts that draw the menu themselves. The QMenu stays the one source:
// the host reads whatever it holds at any moment, and each change of it is
// announced once, after the change is complete, rather than once per action
// touched. Main thread only.
// The bus's call context is the exporter's, not its adaptor's: Qt hands it
// to the object an adaptor belongs to.
class DBusMenuExporter : public QObject, protected QDBusContext {
    Q_OBJECT

public:
    explicit DBusMenuExporter(QMenu &menu, QObject *parent = nullptr);
    ~DBusMenuExporter() override;

    // Registers the menu object at `path`; false when the path is taken.
    bool registerOn(QDBusConnection &bus, const QString &path);
    uint revision() const { return _revision; }

    // The D-Bus calls, for the adaptor.
    DBusMenuLayoutItem layout(int parentId, int depth, const QStringList &names);
    DBusMenuItemList groupProperties(const QList<int> &ids, const QStringList &names);
    QVariant property(int id, const QString &name);
    bool event(int id, const QString &eventId);
    // The root is about to be shown: the menu brings itself up to date, and
    // the answer says whether the host must read it again.
    bool aboutToShow(int id);
    // Whether `id` names the root or an item the menu holds now.
    bool knows(int id) const { return id == 0 || actionOf(id); }

    // The dbusmenu label of an action's text: "_" marks the mnemonic.
    static QString labelOf(const QString &text);
    // The dbusmenu form of a shortcut: per key press, its modifiers and key.
    static QList<QStringList> shortcutOf(const QKeySequence &sequence);
    static void registerTypes();

signals:
    // The host is about to show the menu.
    void aboutToShowRequested();
    // For the adaptor.
    void layoutUpdated(uint revision, int parent);
    void itemsPropertiesUpdated(const DBusMenuItemList &updated,
                                const DBusMenuItemKeysList &removed);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    int idOf(QAction *action);
    QAction *actionOf(int id) const;
    QVariantMap propertiesOf(QAction *action, const QStringList &names) const;
    void changed(QAction *action, bool layout);
    void announce();
    void activate(int id);
    // Within a bus call: its answer is an error naming `id`.
    void noSuchItem(int id);
    friend class DBusMenuAdaptor;

    QMenu &_menu;
    QHash<QAction *, int> _ids;
    QHash<int, QPointer<QAction>> _actions;
    int _nextId = 1;
    uint _revision = 1;
    bool _layoutChanged = false;
    QSet<int> _changedItems;
    bool _announcing = false;  // an announcement is queued
};

template <typename Properties>
QDBusArgument &operator<<(QDBusArgument &argument, const DBusMenuPair<Properties> &pair) {
    argument.beginStructure();
    argument << pair.id << pair.properties;
    argument.endStructure();
    return argument;
}
template <typename Properties>
const QDBusArgument &operator>>(const QDBusArgument &argument, DBusMenuPair<Properties> &pair) {
    argument.beginStructure();
    argument >> pair.id >> pair.properties;
    argument.endStructure();
    return argument;
}
QDBusArgument &operator<<(QDBusArgument &argument, const DBusMenuLayoutItem &item);
const QDBusArgument &operator>>(const QDBusArgument &argument, DBusMenuLayoutItem &item);
QDBusArgument &operator<<(QDBusArgument &argument, const DBusMenuEvent &event);
const QDBusArgument &operator>>(const QDBusArgument &argument, DBusMenuEvent &event);
