#pragma once

#include "app/platform/PlatformServices.h"

#include <QStringList>
#include <QUrl>

// Start at login: an entry of the user's login items that starts this
// program. Only the first entry that resolves to the program counts and is
// removed; entries of other programs are never touched.
namespace StartAtLogin {

// The program's identity there: the file URL of the executable's canonical
// path.
QUrl programUrl();
bool isEnabled(const QUrl &url, LoginItemList &list);
inline bool isEnabled(LoginItemList &list) {
    return isEnabled(programUrl(), list);
}
// The entry added starts the program with `arguments`.
void setEnabled(const QUrl &url, bool enabled, LoginItemList &list,
                const QStringList &arguments = {});

}  // namespace StartAtLogin
