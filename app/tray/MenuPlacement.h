#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

class QStyle;

// Where the tray menu opens and how tall it may be: beside the icon, on the
// side away from the screen edge the icon sits at, wholly within the screen's
// available area and never over the icon. Without an icon geometry (a tray
// host that reports none) it opens at the pointer, turned up or left where it
// would not fit. A menu taller than the room it gets scrolls.
QRect trayMenuGeometry(const QRect &icon, const QPoint &pointer, const QSize &menu,
                       const QRect &available);

// The application's style, with menus that scroll instead of growing columns
// when they are taller than the screen, so that every item keeps its place in
// one column and stays reachable. The caller owns it.
QStyle *makeScrollableMenuStyle();
