#pragma once

#include <QString>

// The directory above the executable's, as the tray computes it: the root of
// a bundled installation. Needs a QCoreApplication.
QString programPackageRoot();
