#pragma once

#include <QString>

#include <optional>

// Runs the tray monitor until it quits; answers the exit status. Without a
// reachable display it says so in one line and answers 1, where Qt alone
// would abort. `home`: the --home directory, if given.
int runTray(int &argc, char **argv, const std::optional<QString> &home);
