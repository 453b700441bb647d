#pragma once

#include <QAction>
#include <QMenu>
#include <QString>

// The menu as text: one line per item, "+" enabled or "-" disabled, the
// title, and "[x]" when checked; "----" for a separator.
inline QString describe(const QMenu &menu) {
    QString out;
    for (const QAction *item : menu.actions()) {
        if (item->isSeparator()) {
            out += QStringLiteral("----\n");
            continue;
        }
        out += item->isEnabled() ? QLatin1Char('+') : QLatin1Char('-');
        out += QLatin1Char(' ') + item->text();
        if (item->isChecked()) {
            out += QStringLiteral(" [x]");
        }
        out += QLatin1Char('\n');
    }
    return out;
}

inline QAction *findItem(const QMenu &menu, const QString &title) {
    for (QAction *item : menu.actions()) {
        if (item->text() == title) {
            return item;
        }
    }
    return nullptr;
}
