#pragma once

#include <QByteArray>
#include <QList>

#include <sys/types.h>

#include <optional>

// Starts a detached process: new session, working directory `directory`,
// standard input, output and error on /dev/null, descriptors 0 to 31 closed
// before that (every descriptor this program opens is close-on-exec, so none
// of the higher ones reach the child either).
//
// execvp's PATH search happens here in the parent: glibc's execvp is not on
// the async-signal-safe list, so the candidate paths are built before the
// fork and the child only walks them with execve, with the same rules as
// execvp (a name holding "/" is used as is, relative to `directory`; an empty
// PATH element means the working directory; PATH unset means "/bin:/usr/bin";
// EACCES on one candidate goes on to the next and is reported if nothing
// else runs; a file the kernel cannot execute is handed to /bin/sh).
//
// Returns the child's pid, or 0 when fork fails. Never waits for the child.
pid_t launchDetached(const QByteArray &executable, const QList<QByteArray> &arguments,
                     const QByteArray &directory);

// The paths execve tries for `executable`, in order (exposed for tests).
QList<QByteArray> executableCandidates(const QByteArray &executable, const char *pathVariable);

// The wait statuses of reaped children, by pid, until the record of that pid
// asks: a probe reaps whichever child ended, often on behalf of another
// record.
void rememberReaped(qint32 pid, int status);
std::optional<int> takeReaped(qint32 pid);
