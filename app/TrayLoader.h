#pragma once

#include <QString>

#include <optional>

// Loads the tray module from beside the executable and runs the tray in it;
// answers the exit status. When the module cannot be loaded it says why in
// one line and answers 1. Call it before any application object exists.
int runTrayModule(int &argc, char **argv, const std::optional<QString> &home);
