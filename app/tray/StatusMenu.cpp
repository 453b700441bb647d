#include "StatusMenu.h"

#include "MenuPlacement.h"
#include "StartAtLogin.h"
#include "registry/InstanceModel.h"

#include <QAction>
#include <QCursor>
#include <QGuiApplication>
#include <QMenu>
#include <QScreen>
#include <QStyle>
#include <QTimerEvent>

namespace {

// A "&" in an action's text marks a mnemonic; names show it literally.
QString literalTitle(QString text) {
    if (text.contains(QLatin1Char('&'))) {
        text.replace(QLatin1Char('&'), QLatin1String("&&"));
    }
    return text;
}

// The statuses whose item offers Start or Stop, gated by canStart.
bool actsOnServer(qint32 status) {
    return status == ServerStatusStopped || status == ServerStatusRunning;
}

InstanceItem::Action offeredAction(qint32 status, bool permitted) {
    if (!permitted) {
        return InstanceItem::Action::None;
    }
    switch (status) {
        case ServerStatusStopped:
            return InstanceItem::Action::Start;
        case ServerStatusRunning:
            return InstanceItem::Action::Stop;
        default:
            return InstanceItem::Action::None;
    }
}

// A fill's items are owned by one object under the menu rather than by the
// menu: emptying the menu then only removes them, and the previous fill's
// items are deleted once the menu has closed, off the way from the click to
// the menu on screen.
const QString kCurrentItems = QStringLiteral("corvanta-current-items");
const QString kRetiredItems = QStringLiteral("corvanta-retired-items");

QAction *addItem(QMenu &menu, QObject *owner, const QString &title) {
    auto *item = new QAction(title, owner);
    menu.addAction(item);
    return item;
}

QObject *ownerOfItems(QMenu &menu, const QString &name) {
    return menu.findChild<QObject *>(name, Qt::FindDirectChildrenOnly);
}

// Returns the owner of the new fill's items.
QObject *retireItems(QMenu &menu) {
    delete ownerOfItems(menu, kRetiredItems);  // never closed since: a host that does not tell
    if (QObject *last = ownerOfItems(menu, kCurrentItems)) {
        last->setObjectName(kRetiredItems);
    }
    auto *items = new QObject(&menu);
    items->setObjectName(kCurrentItems);
    return items;
}

}  // namespace

StatusMenu::StatusMenu(InstanceModel &model, LoginItemList &loginItems, QObject *parent)
    : QObject(parent),
      _model(model),
      _loginItems(loginItems),
      _style(makeScrollableMenuStyle()),
      _menu(std::make_unique<QMenu>()) {
    _menu->setStyle(_style.get());
    _menu->installEventFilter(&_shortcuts);
    // One connection for every instance item instead of one each.
    connect(_menu.get(), &QMenu::triggered, this, &StatusMenu::itemChosen);
    connect(_menu.get(), &QMenu::aboutToShow, this, [this] {
        if (!std::exchange(_builtForPopup, false)) {
            aboutToShow();
        }
    });
    connect(_menu.get(), &QMenu::aboutToHide, this, &StatusMenu::aboutToHide);
    // Filled by the model's first scan, which the launch runs.
    connect(&_model, &InstanceModel::rescanned, this, &StatusMenu::fill);
    connect(&_model, &InstanceModel::refreshed, this, &StatusMenu::instanceRefreshed);
}

StatusMenu::~StatusMenu() {
    // Hiding it on the way out still reports a close here.
    disconnect(_menu.get(), nullptr, this, nullptr);
}

void StatusMenu::aboutToShow() {
    if (_held) {
        return;
    }
    stopRefreshing();
    _model.rescan();
    if (!_listed.isEmpty()) {
        _ticksLeft = MaxTicksPerOpening;
        _refreshTimer.start(RefreshIntervalMs, this);
    }
}

void StatusMenu::hostAboutToShow() {
    if (!_held) {
        _model.rescan();
    }
}

void StatusMenu::aboutToHide() {
    stopRefreshing();
    delete ownerOfItems(*_menu, kRetiredItems);
    // The size fixed for an opening at the icon is that opening's; a menu the
    // tray host pops up itself sizes itself.
    _menu->setMinimumSize(0, 0);
    _menu->setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
}

void StatusMenu::timerEvent(QTimerEvent *event) {
    if (event->timerId() != _refreshTimer.timerId()) {
        QObject::timerEvent(event);
        return;
    }
    const QList<QAction *> items = _menu->actions();
    for (QAction *item : items) {
        if (const CorvantaInstancePtr instance = item->data().value<InstanceItem>().instance) {
            instance->refresh();
            updateItem(item, instance.get());
        }
    }
    updateLinkItems();
    // Only this program's menu widget runs the timer, and it reports its
    // closing; the bound is a safety net should a close ever go unreported.
    if (--_ticksLeft <= 0) {
        stopRefreshing();
    }
}

void StatusMenu::stopRefreshing() {
    _refreshTimer.stop();
}

void StatusMenu::fill() {
    _formats = translatedTitleFormats();
    if (_model.instances() == _listed && !_menu->isEmpty()) {
        updateItemsInPlace();
        return;
    }
    _listed = _model.instances();
    _shortcuts.clear();
    _menu->clear();
    QObject *const owner = retireItems(*_menu);
    addInstanceItems(owner);
    _menu->addSeparator();
    addLinkItems(owner);
    _menu->addSeparator();
    addLoginAndQuitItems(owner);
}

void StatusMenu::updateItemsInPlace() {
    const QList<QAction *> items = _menu->actions();
    for (QAction *item : items) {
        if (const CorvantaInstancePtr instance = item->data().value<InstanceItem>().instance) {
            updateItem(item, instance.get());
        }
    }
    updateLinkItems();
    if (_loginItem) {
        _loginItem->setChecked(StartAtLogin::isEnabled(_loginItems));
    }
}

void StatusMenu::instanceRefreshed(const CorvantaInstancePtr &instance) {
    const QList<QAction *> items = _menu->actions();
    for (QAction *item : items) {
        if (item->data().value<InstanceItem>().instance == instance) {
            updateItem(item, instance.get());
            break;
        }
    }
    if (instance == _model.defaultInstance()) {
        updateLinkItems();
    }
}

void StatusMenu::itemChosen(QAction *item) {
    const InstanceItem chosen = item->data().value<InstanceItem>();
    switch (chosen.action) {
        case InstanceItem::Action::Start:
            emit startChosen(chosen.instance);
            break;
        case InstanceItem::Action::Stop:
            emit stopChosen(chosen.instance);
            break;
        case InstanceItem::Action::None:
            break;
    }
}

void StatusMenu::addInstanceItems(QObject *owner) {
    if (_listed.isEmpty()) {
        addItem(*_menu, owner, tr("No Corvanta Instances"))->setEnabled(false);
        return;
    }
    // The permission tests in one pass: interleaved with the item
    // constructions the same access() calls are slower.
    QList<bool> permitted(_listed.size());
    for (qsizetype i = 0; i < _listed.size(); ++i) {
        permitted[i] = actsOnServer(_listed[i]->serverStatus()) && _listed[i]->canStart();
    }
    for (qsizetype i = 0; i < _listed.size(); ++i) {
        CorvantaInstance *instance = _listed[i].get();
        // Made with what it offers, so that filling it in sets nothing twice.
        QAction *item = new QAction(owner);
        item->setData(QVariant::fromValue(
            InstanceItem{_listed[i], offeredAction(instance->serverStatus(), permitted[i])}));
        updateItem(item, instance, permitted[i]);
        _menu->addAction(item);
    }
}

void StatusMenu::addLinkItems(QObject *owner) {
    _logItem = addItem(*_menu, owner, tr("Open Diagnostic Messages"));
    connect(_logItem, &QAction::triggered, this, &StatusMenu::logChosen);
    _consoleItem = addItem(*_menu, owner, tr("Open Corvanta Kelvarine"));
    connect(_consoleItem, &QAction::triggered, this, &StatusMenu::consoleChosen);
    updateLinkItems();
    QAction *docs = addItem(*_menu, owner, tr("View Online Documentation"));
    connect(docs, &QAction::triggered, this, &StatusMenu::documentationChosen);
}

// Disabled items are never triggered: the links act only while they apply.
void StatusMenu::updateLinkItems() {
    const CorvantaInstancePtr &instance = _model.defaultInstance();
    if (_logItem) {
        _logItem->setEnabled(instance && instance->logFile());
    }
    if (_consoleItem) {
        _consoleItem->setEnabled(instance && instance->serverStatus() == ServerStatusRunning);
    }
}

void StatusMenu::addLoginAndQuitItems(QObject *owner) {
    _loginItem = addItem(*_menu, owner, tr("Start Corvanta Monitor at Login"));
    _loginItem->setCheckable(true);
    _loginItem->setChecked(StartAtLogin::isEnabled(_loginItems));
    connect(_loginItem, &QAction::triggered, this, &StatusMenu::startAtLoginToggled);

    QAction *quit = addItem(*_menu, owner, tr("Quit Corvanta Monitor"));
    connect(quit, &QAction::triggered, this, &StatusMenu::quitChosen);
    // Shown beside the title; as a window shortcut of the menu it acts only
    // while the menu is open. The filter adds Ctrl+Q.
    quit->setShortcut(QKeySequence(Qt::Key_Q));
    _shortcuts.assign(Qt::Key_Q, quit);
}

StatusMenu::TitleFormats StatusMenu::translatedTitleFormats() {
    return {tr("Start %1"), tr("%1: Starting"), tr("Stop %1"), tr("%1: Stopping"),
            tr("%1: Unknown")};
}

void StatusMenu::updateItem(QAction *item, CorvantaInstance *instance,
                            std::optional<bool> mayOperate) {
    if (!_formats) {
        _formats = translatedTitleFormats();
    }
    const qint32 status = instance->serverStatus();
    const QString *format = &_formats->unknown;
    switch (status) {
        case ServerStatusStopped:
            format = &_formats->start;
            break;
        case ServerStatusStarting:
            format = &_formats->starting;
            break;
        case ServerStatusRunning:
            format = &_formats->stop;
            break;
        case ServerStatusStopping:
            format = &_formats->stopping;
            break;
        default:
            break;
    }
    // Stopping is gated like starting: acting on an instance needs its
    // directory writable.
    using Action = InstanceItem::Action;
    const Action action =
        actsOnServer(status)
            ? offeredAction(status, mayOperate ? *mayOperate : instance->canStart())
            : Action::None;
    item->setText(format->arg(literalTitle(instance->instanceName())));
    // The menu's one connection acts on what the item holds; an unchanged
    // value is not set again, which would have the menu lay itself out anew.
    InstanceItem held = item->data().value<InstanceItem>();
    if (held.action != action) {
        held.action = action;
        item->setData(QVariant::fromValue(held));
    }
    item->setEnabled(action != Action::None);
}

void StatusMenu::popUpAtIcon(const QRect &icon) {
    if (_menu->isVisible()) {
        return;
    }
    // Filled before it is shown, so that it is placed with its final size.
    aboutToShow();
    const QPoint pointer = QCursor::pos();
    QScreen *screen = QGuiApplication::screenAt(icon.isEmpty() ? pointer : icon.center());
    if (!screen) {
        screen = QGuiApplication::primaryScreen();
    }
    _menu->ensurePolished();
    const QSize size = _menu->sizeHint();
    const QRect place = screen ? trayMenuGeometry(icon, pointer, size, screen->availableGeometry())
                               : QRect(pointer, size);
    // Qt lets a tall menu take the whole screen height, over the panel; it
    // gets the room beside the icon instead and scrolls within it. The size is
    // fixed before popup() rather than set after it: QMenu lays every item out
    // again at each resize, which with many items costs as much as the rest of
    // the opening. popup() may still move it; a move lays nothing out.
    _menu->setFixedSize(place.size());
    _builtForPopup = true;
    _menu->popup(place.topLeft());
    _builtForPopup = false;
    if (_menu->geometry() != place) {
        _menu->setGeometry(place);
    }
}
