#include "DBusMenuExporter.h"

#include <QAction>
#include <QActionEvent>
#include <QActionGroup>
#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMetaType>
#include <QGuiApplication>
#include <QMenu>

namespace {

const QString kLabel = QStringLiteral("label");
const QString kEnabled = QStringLiteral("enabled");
const QString kVisible = QStringLiteral("visible");
const QString kType = QStringLiteral("type");
const QString kToggleType = QStringLiteral("toggle-type");
const QString kToggleState = QStringLiteral("toggle-state");
const QString kChildrenDisplay = QStringLiteral("children-display");
const QString kShortcut = QStringLiteral("shortcut");

QVariantMap only(QVariantMap properties, const QStringList &names) {
    if (names.isEmpty()) {
        return properties;
    }
    for (auto it = properties.begin(); it != properties.end();) {
        it = names.contains(it.key()) ? std::next(it) : properties.erase(it);
    }
    return properties;
}

}  // namespace

// The interface as the bus sees it; the work is the exporter's.
class DBusMenuAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
    Q_PROPERTY(uint Version READ version)
    Q_PROPERTY(QString TextDirection READ textDirection)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(QStringList IconThemePath READ iconThemePath)

public:
    explicit DBusMenuAdaptor(DBusMenuExporter *exporter)
        : QDBusAbstractAdaptor(exporter), _exporter(*exporter) {
        connect(exporter, &DBusMenuExporter::layoutUpdated, this, &DBusMenuAdaptor::LayoutUpdated);
        connect(exporter, &DBusMenuExporter::itemsPropertiesUpdated, this,
                &DBusMenuAdaptor::ItemsPropertiesUpdated);
    }

    uint version() const { return 3; }
    QString textDirection() const {
        return QGuiApplication::isRightToLeft() ? QStringLiteral("rtl") : QStringLiteral("ltr");
    }
    QString status() const { return QStringLiteral("normal"); }
    QStringList iconThemePath() const { return {}; }

public slots:
    uint GetLayout(int parentId, int recursionDepth, const QStringList &propertyNames,
                   DBusMenuLayoutItem &layout) {
        layout = _exporter.layout(parentId, recursionDepth, propertyNames);
        if (layout.id != parentId) {
            _exporter.noSuchItem(parentId);
        }
        return _exporter.revision();
    }
    DBusMenuItemList GetGroupProperties(const QList<int> &ids, const QStringList &propertyNames) {
        return _exporter.groupProperties(ids, propertyNames);
    }
    QDBusVariant GetProperty(int id, const QString &name) {
        const QVariant value = _exporter.property(id, name);
        if (!value.isValid()) {
            _exporter.noSuchItem(id);
            return QDBusVariant(QString());
        }
        return QDBusVariant(value);
    }
    void Event(int id, const QString &eventId, const QDBusVariant &, uint) {
        if (!_exporter.event(id, eventId)) {
            _exporter.noSuchItem(id);
        }
    }
    QList<int> EventGroup(const DBusMenuEventList &events) {
        QList<int> errors;
        for (const DBusMenuEvent &event : events) {
            if (!_exporter.event(event.id, event.eventId)) {
                errors.append(event.id);
            }
        }
        return errors;
    }
    bool AboutToShow(int id) {
        if (!_exporter.knows(id)) {
            _exporter.noSuchItem(id);
            return false;
        }
        return _exporter.aboutToShow(id);
    }
    QList<int> AboutToShowGroup(const QList<int> &ids, QList<int> &idErrors) {
        QList<int> updates;
        idErrors.clear();
        for (const int id : ids) {
            if (!_exporter.knows(id)) {
                idErrors.append(id);
            } else if (_exporter.aboutToShow(id)) {
                updates.append(id);
            }
        }
        return updates;
    }

signals:
    void ItemsPropertiesUpdated(const DBusMenuItemList &updatedProps,
                                const DBusMenuItemKeysList &removedProps);
    void LayoutUpdated(uint revision, int parent);
    void ItemActivationRequested(int id, uint timestamp);

private:
    DBusMenuExporter &_exporter;
};

DBusMenuExporter::DBusMenuExporter(QMenu &menu, QObject *parent) : QObject(parent), _menu(menu) {
    registerTypes();
    new DBusMenuAdaptor(this);
    _menu.installEventFilter(this);
}

DBusMenuExporter::~DBusMenuExporter() {
    _menu.removeEventFilter(this);
}

void DBusMenuExporter::registerTypes() {
    static const bool once = [] {
        qDBusRegisterMetaType<DBusMenuItem>();
        qDBusRegisterMetaType<DBusMenuItemList>();
        qDBusRegisterMetaType<DBusMenuItemKeys>();
        qDBusRegisterMetaType<DBusMenuItemKeysList>();
        qDBusRegisterMetaType<DBusMenuLayoutItem>();
        qDBusRegisterMetaType<DBusMenuEvent>();
        qDBusRegisterMetaType<DBusMenuEventList>();
        qDBusRegisterMetaType<QList<QStringList>>();
        // The adaptor's signals name the lists by these names.
        qRegisterMetaType<DBusMenuItemList>("DBusMenuItemList");
        qRegisterMetaType<DBusMenuItemKeysList>("DBusMenuItemKeysList");
        qRegisterMetaType<DBusMenuEventList>("DBusMenuEventList");
        return true;
    }();
    Q_UNUSED(once);
}

bool DBusMenuExporter::registerOn(QDBusConnection &bus, const QString &path) {
    return bus.registerObject(path, this, QDBusConnection::ExportAdaptors);
}

QString DBusMenuExporter::labelOf(const QString &text) {
    QString label;
    label.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == u'_') {
            label += QStringLiteral("__");
        } else if (c == u'&' && i + 1 < text.size()) {
            // "&&" is a literal "&"; "&x" marks x, but an underscore cannot be
            // marked and stays literal.
            const QChar next = text.at(++i);
            label += next == u'&'   ? QStringLiteral("&")
                     : next == u'_' ? QStringLiteral("__")
                                    : u'_' + QString(next);
        } else {
            label += c;
        }
    }
    return label;
}

QList<QStringList> DBusMenuExporter::shortcutOf(const QKeySequence &sequence) {
    QList<QStringList> presses;
    for (int i = 0; i < sequence.count(); ++i) {
        QStringList keys =
            QKeySequence(sequence[i]).toString(QKeySequence::PortableText).split(u'+');
        for (QString &key : keys) {
            if (key == u"Ctrl") {
                key = QStringLiteral("Control");
            } else if (key == u"Meta") {
                key = QStringLiteral("Super");
            }
        }
        presses.append(keys);
    }
    return presses;
}

void DBusMenuExporter::noSuchItem(int id) {
    if (calledFromDBus()) {
        sendErrorReply(QDBusError::InvalidArgs, QStringLiteral("no menu item %1").arg(id));
    }
}

int DBusMenuExporter::idOf(QAction *action) {
    auto it = _ids.constFind(action);
    if (it != _ids.constEnd()) {
        return *it;
    }
    const int id = _nextId++;
    _ids.insert(action, id);
    _actions.insert(id, action);
    return id;
}

QAction *DBusMenuExporter::actionOf(int id) const {
    // Only what the menu holds now: a host may name an item it read before,
    // and ids leave with their actions.
    return _actions.value(id);
}

QVariantMap DBusMenuExporter::propertiesOf(QAction *action, const QStringList &names) const {
    QVariantMap properties;
    if (action->isSeparator()) {
        properties.insert(kType, QStringLiteral("separator"));
    } else {
        // Every property is sent, defaults too: an update replaces only the
        // properties it names.
        properties.insert(kLabel, labelOf(action->text()));
        properties.insert(kEnabled, action->isEnabled());
        if (action->isCheckable()) {
            const bool radio = action->actionGroup() && action->actionGroup()->isExclusive();
            properties.insert(kToggleType,
                              radio ? QStringLiteral("radio") : QStringLiteral("checkmark"));
            properties.insert(kToggleState, action->isChecked() ? 1 : 0);
        }
        if (!action->shortcut().isEmpty()) {
            properties.insert(kShortcut, QVariant::fromValue(shortcutOf(action->shortcut())));
        }
    }
    properties.insert(kVisible, action->isVisible());
    return only(std::move(properties), names);
}

DBusMenuLayoutItem DBusMenuExporter::layout(int parentId, int depth, const QStringList &names) {
    DBusMenuLayoutItem root;
    if (parentId != 0) {
        // Items have no submenus.
        if (QAction *action = actionOf(parentId)) {
            root.id = parentId;
            root.properties = propertiesOf(action, names);
        } else {
            root.id = -1;
        }
        return root;
    }
    root.properties = only({{kChildrenDisplay, QStringLiteral("submenu")}}, names);
    if (depth == 0) {
        return root;
    }
    const QList<QAction *> actions = _menu.actions();
    root.children.reserve(actions.size());
    for (QAction *action : actions) {
        root.children.append({idOf(action), propertiesOf(action, names), {}});
    }
    return root;
}

DBusMenuItemList DBusMenuExporter::groupProperties(const QList<int> &ids,
                                                   const QStringList &names) {
    DBusMenuItemList items;
    for (const int id : ids) {
        if (id == 0) {
            items.append({0, only({{kChildrenDisplay, QStringLiteral("submenu")}}, names)});
        } else if (QAction *action = actionOf(id)) {
            items.append({id, propertiesOf(action, names)});
        }
    }
    return items;
}

QVariant DBusMenuExporter::property(int id, const QString &name) {
    const DBusMenuItemList items = groupProperties({id}, {name});
    return items.isEmpty() ? QVariant() : items.first().properties.value(name);
}

bool DBusMenuExporter::event(int id, const QString &eventId) {
    if (id != 0 && !actionOf(id)) {
        return false;
    }
    if (eventId == u"clicked" && id != 0) {
        // Later, not inside the call: what the item does may ask the user,
        // and the host waits for the call's answer.
        QMetaObject::invokeMethod(
            this, [this, id] { activate(id); }, Qt::QueuedConnection);
    }
    return true;
}

void DBusMenuExporter::activate(int id) {
    QAction *action = actionOf(id);
    if (!action || !action->isEnabled() || !action->isVisible() || action->isSeparator()) {
        return;
    }
    // The menu hears of it as of a click in it, QMenu::triggered included.
    action->activate(QAction::Trigger);
}

bool DBusMenuExporter::aboutToShow(int id) {
    if (id != 0) {
        return false;
    }
    emit aboutToShowRequested();
    return _layoutChanged || !_changedItems.isEmpty();
}

bool DBusMenuExporter::eventFilter(QObject *watched, QEvent *event) {
    if (watched == &_menu) {
        switch (event->type()) {
            case QEvent::ActionAdded:
                changed(static_cast<QActionEvent *>(event)->action(), true);
                break;
            case QEvent::ActionRemoved: {
                QAction *action = static_cast<QActionEvent *>(event)->action();
                _actions.remove(_ids.take(action));
                changed(action, true);
                break;
            }
            case QEvent::ActionChanged:
                changed(static_cast<QActionEvent *>(event)->action(), false);
                break;
            default:
                break;
        }
    }
    return QObject::eventFilter(watched, event);
}

void DBusMenuExporter::changed(QAction *action, bool layout) {
    if (layout) {
        _layoutChanged = true;
    } else if (!_layoutChanged) {
        _changedItems.insert(idOf(action));
    }
    if (!std::exchange(_announcing, true)) {
        QMetaObject::invokeMethod(this, &DBusMenuExporter::announce, Qt::QueuedConnection);
    }
}

void DBusMenuExporter::announce() {
    _announcing = false;
    if (std::exchange(_layoutChanged, false)) {
        _changedItems.clear();
        emit layoutUpdated(++_revision, 0);
        return;
    }
    DBusMenuItemList updated;
    for (const int id : std::as_const(_changedItems)) {
        if (QAction *action = actionOf(id)) {
            updated.append({id, propertiesOf(action, {})});
        }
    }
    _changedItems.clear();
    if (!updated.isEmpty()) {
        emit itemsPropertiesUpdated(updated, {});
    }
}

#include "DBusMenuExporter.moc"
