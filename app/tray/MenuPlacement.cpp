#include "MenuPlacement.h"

#include <QApplication>
#include <QProxyStyle>

#include <algorithm>

namespace {

class ScrollableMenuStyle : public QProxyStyle {
public:
    using QProxyStyle::QProxyStyle;

    int styleHint(StyleHint hint, const QStyleOption *option, const QWidget *widget,
                  QStyleHintReturn *returnData) const override {
        if (hint == SH_Menu_Scrollable) {
            return 1;
        }
        return QProxyStyle::styleHint(hint, option, widget, returnData);
    }
};

// Keeps [start, start + length) inside [low, high]; an overlong span starts at low.
int clampSpan(int start, int length, int low, int high) {
    return std::max(low, std::min(start, high - length + 1));
}

}  // namespace

QRect trayMenuGeometry(const QRect &icon, const QPoint &pointer, const QSize &menu,
                       const QRect &available) {
    const int width = std::min(menu.width(), available.width());
    int height = std::min(menu.height(), available.height());
    QPoint at;
    if (icon.isEmpty()) {
        at = pointer;
        if (at.x() + width - 1 > available.right()) {
            at.rx() -= width;
        }
        if (at.y() + height - 1 > available.bottom()) {
            at.ry() -= height;
        }
    } else {
        // The nearest screen edge is the panel's; the menu opens away from it
        // and, when taller than the room there, scrolls within that room.
        const int toTop = icon.top() - available.top();
        const int toBottom = available.bottom() - icon.bottom();
        const int toLeft = icon.left() - available.left();
        const int toRight = available.right() - icon.right();
        const int nearest = std::min({toTop, toBottom, toLeft, toRight});
        if (nearest == toTop) {
            height = std::min(height, std::max(1, toBottom));
            at = QPoint(icon.left(), icon.bottom() + 1);
        } else if (nearest == toBottom) {
            height = std::min(height, std::max(1, toTop));
            at = QPoint(icon.left(), icon.top() - height);
        } else if (nearest == toLeft) {
            at = QPoint(icon.right() + 1, icon.top());
        } else {
            at = QPoint(icon.left() - width, icon.top());
        }
    }
    return {clampSpan(at.x(), width, available.left(), available.right()),
            clampSpan(at.y(), height, available.top(), available.bottom()), width, height};
}

QStyle *makeScrollableMenuStyle() {
    return new ScrollableMenuStyle(QApplication::style()->name());
}
