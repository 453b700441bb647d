#pragma once

#include <QString>

class QWidget;

// Brings a window of this program to the front. A Wayland compositor that
// prevents focus stealing grants that only with a token from the user's
// click, which a tray host hands over just before telling of the click; the
// token is used once. Elsewhere the window manager needs none. Main thread
// only.
namespace WindowActivation {

void setToken(const QString &token);
// The token not yet used, if any; for tests.
QString pendingToken();
void activate(QWidget &window);

}  // namespace WindowActivation
