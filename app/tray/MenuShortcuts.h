#pragma once

#include <QHash>
#include <QObject>
#include <QPointer>

class QAction;

// Shortcuts for the items of an open popup menu: a popup takes the
// keyboard, so an item's shortcut may never be seen there, and a mnemonic
// would change the item's title. Installed as an event filter on the menu, it
// answers to the bare key and to Ctrl with it, closing the menu first as a
// chosen item would.
class MenuShortcuts : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    void assign(int key, QAction *action);
    void clear();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QHash<int, QPointer<QAction>> _actions;
};
