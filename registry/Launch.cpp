#include "Launch.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

extern char **environ;

QList<QByteArray> executableCandidates(const QByteArray &executable, const char *pathVariable) {
    if (executable.isEmpty()) {
        return {};
    }
    if (executable.contains('/')) {
        return {executable};
    }
    const QByteArray path =
        pathVariable != nullptr ? QByteArray(pathVariable) : QByteArrayLiteral("/bin:/usr/bin");
    QList<QByteArray> candidates;
    for (const QByteArray &dir : path.split(':')) {
        // An empty element is the working directory: the child has already
        // changed into the instance directory when it gets there.
        if (dir.isEmpty()) {
            candidates.append("./" + executable);
        } else {
            candidates.append(dir + (dir.endsWith('/') ? "" : "/") + executable);
        }
    }
    return candidates;
}

pid_t launchDetached(const QByteArray &executable, const QList<QByteArray> &arguments,
                     const QByteArray &directory) {
    // Everything the child touches is built here; after fork it only reads.
    const QList<QByteArray> candidates = executableCandidates(executable, ::getenv("PATH"));
    std::vector<const char *> paths;
    for (const QByteArray &c : candidates) {
        paths.push_back(c.constData());
    }

    std::vector<char *> argv;
    for (const QByteArray &a : arguments) {
        argv.push_back(const_cast<char *>(a.constData()));
    }
    argv.push_back(nullptr);

    // For a file without a known format: "/bin/sh", the file, the arguments
    // after argv[0]. Slot 1 is filled in by the child (a plain store).
    std::vector<char *> shellArgv;
    shellArgv.push_back(const_cast<char *>("/bin/sh"));
    shellArgv.push_back(nullptr);
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        shellArgv.push_back(const_cast<char *>(arguments.at(i).constData()));
    }
    shellArgv.push_back(nullptr);

    const char *dir = directory.constData();
    char **const envp = environ;

    const pid_t pid = ::fork();
    if (pid != 0) {
        return pid < 0 ? 0 : pid;
    }

    // Child: async-signal-safe calls only from here on.
    for (int fd = 0; fd < 32; ++fd) {
        ::close(fd);
    }
    // Our own descriptors are all close-on-exec; this also keeps out those
    // this program inherited without the flag (a leaked pipe of whatever
    // started us). A kernel without close_range leaves them as they are.
    ::close_range(32, ~0U, CLOSE_RANGE_CLOEXEC);
    if (::chdir(dir) != 0) {
        ::_exit(1);
    }
    if (::setsid() == -1) {
        ::_exit(1);
    }
    if (::open("/dev/null", O_RDWR) != 0) {
        ::_exit(1);
    }
    ::dup2(0, 1);
    ::dup2(0, 2);
    for (const char *path : paths) {
        ::execve(path, argv.data(), envp);
        if (errno == ENOEXEC) {
            shellArgv[1] = const_cast<char *>(path);
            ::execve("/bin/sh", shellArgv.data(), envp);
            ::_exit(1);
        }
        // Like execvp: keep searching past names that are missing or not
        // accessible here; anything else ends the search.
        if (errno != ENOENT && errno != ENOTDIR && errno != EACCES && errno != ESTALE &&
            errno != ENODEV && errno != ETIMEDOUT) {
            break;
        }
    }
    ::_exit(1);
}

namespace {

// Bounded; the oldest go first.
constexpr qsizetype kReapedLimit = 64;
QList<std::pair<qint32, int>> &reapedChildren() {
    static QList<std::pair<qint32, int>> reaped;
    return reaped;
}

}  // namespace

void rememberReaped(qint32 pid, int status) {
    QList<std::pair<qint32, int>> &reaped = reapedChildren();
    reaped.removeIf([pid](const auto &entry) { return entry.first == pid; });
    if (reaped.size() >= kReapedLimit) {
        reaped.removeFirst();
    }
    reaped.append({pid, status});
}

std::optional<int> takeReaped(qint32 pid) {
    QList<std::pair<qint32, int>> &reaped = reapedChildren();
    for (qsizetype i = 0; i < reaped.size(); ++i) {
        if (reaped[i].first == pid) {
            const int status = reaped[i].second;
            reaped.removeAt(i);
            return status;
        }
    }
    return std::nullopt;
}
