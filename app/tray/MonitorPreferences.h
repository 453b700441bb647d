#pragma once

#include <QString>

// The monitor's own settings that the front end follows, read afresh at each
// menu opening so an edit takes effect without a restart.

// "notifications" in section [monitor] of the settings file: "on" (also when
// missing) or "off". Any other value is logged and counts as on.
bool notificationsWanted(const QString &settingsFile);
bool notificationsWanted();  // the user's settings file
