#include "PackageRoot.h"

#include "registry/Paths.h"

#include <QCoreApplication>

QString programPackageRoot() {
    return Paths::standardize(QCoreApplication::applicationDirPath() + QStringLiteral("/.."));
}
