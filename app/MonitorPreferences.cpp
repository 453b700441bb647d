#include "MonitorPreferences.h"

bool notificationsWanted() {
    return true;  // until the settings file lands
}
