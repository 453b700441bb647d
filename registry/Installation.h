#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// Where the Corvanta installation is looked for, in this order; the first
// that names an existing directory is the installation. The tray and every
// command-line entry point decide through findInstallation() alone.
struct InstallationSources {
    std::optional<QString> commandLine;  // --home DIR
    // CORVANTA_HOME is read from the environment at the time of the lookup.
    QString settingsFile;           // home= in its [monitor] section
    QStringList systemDirectories;  // /opt/corvanta, /usr/lib/corvanta
    QString packageRoot;            // relocatable fallback: <root>/Contents/corvanta

    // The sources of an installed program whose package root is given.
    static InstallationSources standard(std::optional<QString> commandLine,
                                        const QString &packageRoot);
};

struct InstallationLookup {
    std::optional<QString> home;
    QStringList looked;  // every place tried, in order, as a user would name it
};

// Places the user names (command line, environment, settings) have their
// symbolic links resolved, as CORVANTA_HOME always had; the well-known
// locations and the fallback are taken as they stand, so an autostart entry
// naming /opt/corvanta follows a link that an upgrade re-points.
InstallationLookup findInstallation(const InstallationSources &sources);

// Finds the installation and exports it, its bin and lib directories and its
// ODBC files into this process's environment, which every server started
// later inherits. Answers the installation directory, or nothing after
// logging "Corvanta installation not found" and a line naming every place
// looked at; the environment is then left untouched.
std::optional<QString> exportInstallationEnvironment(const InstallationSources &sources);
