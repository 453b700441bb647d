#pragma once

#include <QString>

#include <functional>

// The program's diagnostics: each call writes exactly one line to syslog(3)
// (ident "corvanta-monitor") and to standard error, where it begins with
// "corvanta-monitor: ". Line breaks inside the text (a path may hold one) are
// escaped so a line stays one line.
void systemLog(const QString &line);

// Tests capture lines with a sink; while one is installed nothing reaches
// syslog or standard error. Pass an empty function to restore the default.
using SystemLogSink = std::function<void(const QString &line)>;
void setSystemLogSink(SystemLogSink sink);
