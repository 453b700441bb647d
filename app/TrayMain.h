#pragma once

struct CommandLine;

// Runs the tray monitor until it quits; answers the exit status. Without a
// reachable display it says so in one line and answers 1, where Qt alone
// would abort.
int runTray(int &argc, char **argv, const CommandLine &commandLine);
