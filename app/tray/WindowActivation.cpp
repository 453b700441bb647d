#include "WindowActivation.h"

#include <QGuiApplication>
#include <QWidget>

#include <utility>

namespace {

QString &token() {
    static QString pending;
    return pending;
}

}  // namespace

void WindowActivation::setToken(const QString &value) {
    token() = value;
}

QString WindowActivation::pendingToken() {
    return token();
}

void WindowActivation::activate(QWidget &window) {
    // Qt's Wayland shell takes the token from the environment at this
    // request and removes it there; it is set only for the moment, so that
    // no server started later inherits it.
    const QString used = std::exchange(token(), QString());
    const bool wayland = QGuiApplication::platformName().startsWith(u"wayland");
    if (wayland && !used.isEmpty()) {
        qputenv("XDG_ACTIVATION_TOKEN", used.toUtf8());
    }
    window.raise();
    window.activateWindow();
    if (wayland) {
        qunsetenv("XDG_ACTIVATION_TOKEN");
    }
}
