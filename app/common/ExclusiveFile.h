#pragma once

#include <QByteArray>
#include <QFileDevice>
#include <QString>

enum class ExclusiveWrite { Written, NameTaken, Failed };

// Puts `bytes` at `path` as a new file, whole or not at all: written beside
// it, synced, then given the name only while nothing has it. QSaveFile would
// rename over whatever took the name meanwhile, and a file this program did
// not write must never be replaced: that refusal is why this exists.
ExclusiveWrite writeExclusively(const QString &path, const QByteArray &bytes,
                                QFileDevice::Permissions permissions);
