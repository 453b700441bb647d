#pragma once

#include <QString>

// The file-system services the registry and the front end rely on, mapped to
// POSIX in one place. Paths are UTF-8 on disk.
namespace Paths {

// Last path component, without a trailing separator.
QString displayName(const QString &path);

// Lexical cleaning: doubled separators and "." removed, ".." resolved, no
// trailing separator. Never touches the file system.
QString standardize(const QString &path);

// The real path when it exists, otherwise the path standardised.
QString resolveSymlinks(const QString &path);

// Joins with exactly one separator; the component may itself hold slashes.
QString append(const QString &path, const QString &component);

// Only a leading "/" makes a path absolute.
bool isAbsolute(const QString &path);

// stat (follows links): exists and is a directory / exists and is not one.
bool existsAsDirectory(const QString &path);
bool existsAsNonDirectory(const QString &path);

}  // namespace Paths
