#pragma once

// The monitor's own settings that the front end follows, read afresh at each
// menu opening so an edit takes effect without a restart.

// "notifications" in monitor.ini: on (the default) or off.
bool notificationsWanted();
