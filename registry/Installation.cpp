#include "Installation.h"

#include "MonitorSettings.h"
#include "Paths.h"
#include "SystemLog.h"

#include <QByteArray>

#include <cstdlib>

InstallationSources InstallationSources::standard(std::optional<QString> commandLine,
                                                  const QString &packageRoot) {
    return {std::move(commandLine),
            MonitorSettings::defaultFile(),
            {QStringLiteral("/opt/corvanta"), QStringLiteral("/usr/lib/corvanta")},
            packageRoot};
}

InstallationLookup findInstallation(const InstallationSources &sources) {
    InstallationLookup lookup;
    const auto tryPlace = [&lookup](const QString &path, const QString &named) {
        lookup.looked.append(named);
        if (!path.isEmpty() && Paths::existsAsDirectory(path)) {
            lookup.home = path;
        }
        return lookup.home.has_value();
    };
    if (sources.commandLine && tryPlace(Paths::resolveSymlinks(*sources.commandLine),
                                        QStringLiteral("--home %1").arg(*sources.commandLine))) {
        return lookup;
    }
    const char *fromEnv = std::getenv("CORVANTA_HOME");
    const QString envHome = fromEnv ? QString::fromUtf8(fromEnv) : QString();
    if (tryPlace(fromEnv ? Paths::resolveSymlinks(envHome) : QString(),
                 fromEnv ? QStringLiteral("CORVANTA_HOME=%1").arg(envHome)
                         : QStringLiteral("CORVANTA_HOME (unset)"))) {
        return lookup;
    }
    const std::optional<QString> setting = MonitorSettings::read(sources.settingsFile, "home");
    const bool usable = setting && Paths::isAbsolute(*setting);
    if (tryPlace(usable ? Paths::resolveSymlinks(*setting) : QString(),
                 setting ? QStringLiteral("home=%1 in %2").arg(*setting, sources.settingsFile)
                         : QStringLiteral("home= in %1 (not set)").arg(sources.settingsFile))) {
        return lookup;
    }
    for (const QString &dir : sources.systemDirectories) {
        if (tryPlace(dir, dir)) {
            return lookup;
        }
    }
    const QString bundled = Paths::append(sources.packageRoot, QStringLiteral("Contents/corvanta"));
    tryPlace(bundled, bundled);
    return lookup;
}

namespace {

// Puts dir in front of a colon-separated list, keeping the old value byte for
// byte (it need not be UTF-8); an unset list becomes dir alone.
void prependToList(const char *variable, const QString &dir) {
    if (!Paths::existsAsDirectory(dir)) {
        return;
    }
    QByteArray value = dir.toUtf8();
    if (const char *previous = std::getenv(variable)) {
        value += ':';
        value += previous;
    }
    setenv(variable, value.constData(), 1);
}

// A value already there, even an empty one, is the user's choice.
void setFileIfUnset(const char *variable, const QString &file) {
    if (std::getenv(variable) == nullptr && Paths::existsAsNonDirectory(file)) {
        setenv(variable, file.toUtf8().constData(), 1);
    }
}

}  // namespace

std::optional<QString> exportInstallationEnvironment(const InstallationSources &sources) {
    const InstallationLookup lookup = findInstallation(sources);
    if (!lookup.home) {
        systemLog(QStringLiteral("Corvanta installation not found"));
        systemLog(QStringLiteral("Looked in: %1. Name the installation with --home DIR, "
                                 "CORVANTA_HOME or corvanta-monitor --set-home DIR")
                      .arg(lookup.looked.join(QStringLiteral(", "))));
        return std::nullopt;
    }
    const QString &home = *lookup.home;
    setenv("CORVANTA_HOME", home.toUtf8().constData(), 1);
    prependToList("PATH", Paths::append(home, QStringLiteral("bin")));
    prependToList("LD_LIBRARY_PATH", Paths::append(home, QStringLiteral("lib")));
    setFileIfUnset("ODBCINI", Paths::append(home, QStringLiteral("bin/odbc.ini")));
    setFileIfUnset("ODBCINSTINI", Paths::append(home, QStringLiteral("bin/odbcinst.ini")));
    return home;
}
