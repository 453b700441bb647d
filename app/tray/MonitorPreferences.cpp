#include "MonitorPreferences.h"

#include "registry/MonitorSettings.h"
#include "registry/SystemLog.h"

bool notificationsWanted(const QString &settingsFile) {
    const std::optional<QString> value = MonitorSettings::read(settingsFile, "notifications");
    if (!value) {
        return true;
    }
    const QString setting = value->trimmed().toLower();
    if (setting == QLatin1String("off")) {
        return false;
    }
    if (setting != QLatin1String("on")) {
        systemLog(
            QStringLiteral("%1: notifications=%2 is neither on nor off; notifications stay on")
                .arg(settingsFile, *value));
    }
    return true;
}

bool notificationsWanted() {
    return notificationsWanted(MonitorSettings::defaultFile());
}
