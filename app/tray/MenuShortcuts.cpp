#include "MenuShortcuts.h"

#include <QAction>
#include <QKeyEvent>
#include <QMenu>

void MenuShortcuts::assign(int key, QAction *action) {
    _actions.insert(key, action);
}

void MenuShortcuts::clear() {
    _actions.clear();
}

bool MenuShortcuts::eventFilter(QObject *watched, QEvent *event) {
    if (event->type() != QEvent::KeyPress) {
        return false;
    }
    const auto *key = static_cast<QKeyEvent *>(event);
    const Qt::KeyboardModifiers mods = key->modifiers() & ~Qt::KeypadModifier;
    if (mods != Qt::NoModifier && mods != Qt::ControlModifier) {
        return false;
    }
    const QPointer<QAction> action = _actions.value(key->key());
    if (!action || !action->isEnabled()) {
        return false;
    }
    if (auto *menu = qobject_cast<QMenu *>(watched)) {
        menu->hide();
    }
    // The menu's close handler may rebuild or drop the action.
    if (action) {
        action->trigger();
    }
    return true;
}
