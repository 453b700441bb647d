#pragma once

// The one symbol of the tray module (everything that needs a display), which
// the executable loads only when no command is given: the commands then never
// map the widget, GUI and D-Bus libraries. The module runs its own copy of
// the registry code; the executable creates no application object before
// calling it, so no state of ours crosses.
extern "C" {
// `homeUtf8`: the --home directory, or null. Answers the exit status.
using CorvantaRunTray = int (*)(int *argc, char **argv, const char *homeUtf8);
int corvanta_run_tray(int *argc, char **argv, const char *homeUtf8);
}

inline constexpr char kCorvantaRunTraySymbol[] = "corvanta_run_tray";
inline constexpr char kCorvantaTrayModuleName[] = "corvanta-monitor-tray.so";
