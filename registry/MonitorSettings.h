#pragma once

#include <QString>

#include <optional>

// The monitor's own settings: keys of section [monitor] in
// $XDG_CONFIG_HOME/corvanta-monitor/monitor.ini, read and written with the
// cfg library. The file is the user's as much as ours: writing changes one
// key and keeps every other line.
namespace MonitorSettings {

// $XDG_CONFIG_HOME/corvanta-monitor/monitor.ini; ~/.config stands in for an
// unset or relative XDG_CONFIG_HOME.
QString defaultFile();

// The key's value, or nothing when the file or the key is missing, or the
// file is unreadable, not a regular file or larger than MaxFileSize.
std::optional<QString> read(const QString &file, const char *key);

// Sets the key, creating the file and its directory as needed. On failure
// answers false with a one-line reason in *error (when given).
bool write(const QString &file, const char *key, const QString &value, QString *error);

// A settings file is a few lines; a larger one is not ours to parse.
constexpr qint64 MaxFileSize = 64 * 1024;

}  // namespace MonitorSettings
