#pragma once

#include <QString>

#include <optional>

// Finds the Corvanta installation ($CORVANTA_HOME, else "Contents/corvanta"
// under the package root) and exports it, its bin and lib directories and its
// ODBC files into this process's environment, which every server started
// later inherits. Answers the installation directory, or nothing (after
// logging it) when there is none; the environment is then left untouched.
std::optional<QString> exportInstallationEnvironment(const QString &packageRoot);
