#pragma once

#include <QByteArray>
#include <QString>

#include <cstdio>

// Exit statuses of the program, the tray's and the commands'.
enum ExitStatus : int {
    ExitSuccess = 0,
    ExitFailure = 1,
    ExitUsage = 2,
    ExitNotRunning = 3,      // status: the instance's server is not running
    ExitNoSuchInstance = 4,  // INSTANCE names no listed instance
    ExitTimeout = 5,         // --wait ran out
};

// Writes text in the locale's encoding and flushes at once, so that what a
// script reads on standard output and standard error keeps its order.
void printText(FILE *stream, const QString &text);

// Writes all of `bytes` to standard output, after whatever stdio still
// holds, in as few writes as the system allows; answers false, with errno
// set, when it could not.
bool writeStandardOutput(const QByteArray &bytes);

// Writes "corvanta-monitor: <line>" to standard error; a line break inside
// the text (a path may hold one) is escaped so the line stays one line.
void printError(const QString &line);
