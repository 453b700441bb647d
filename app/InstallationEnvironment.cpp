#include "InstallationEnvironment.h"

#include "registry/Paths.h"
#include "registry/SystemLog.h"

#include <QByteArray>

#include <cstdlib>

namespace {

std::optional<QString> findHome(const QString &packageRoot) {
    if (const char *fromEnv = std::getenv("CORVANTA_HOME")) {
        const QString home = Paths::resolveSymlinks(QString::fromUtf8(fromEnv));
        if (Paths::existsAsDirectory(home)) {
            return home;
        }
    }
    const QString bundled = Paths::append(packageRoot, QStringLiteral("Contents/corvanta"));
    if (Paths::existsAsDirectory(bundled)) {
        return bundled;
    }
    return std::nullopt;
}

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

std::optional<QString> exportInstallationEnvironment(const QString &packageRoot) {
    const std::optional<QString> home = findHome(packageRoot);
    if (!home) {
        systemLog(QStringLiteral("Corvanta installation not found"));
        return std::nullopt;
    }
    setenv("CORVANTA_HOME", home->toUtf8().constData(), 1);
    prependToList("PATH", Paths::append(*home, QStringLiteral("bin")));
    prependToList("LD_LIBRARY_PATH", Paths::append(*home, QStringLiteral("lib")));
    setFileIfUnset("ODBCINI", Paths::append(*home, QStringLiteral("bin/odbc.ini")));
    setFileIfUnset("ODBCINSTINI", Paths::append(*home, QStringLiteral("bin/odbcinst.ini")));
    return home;
}
