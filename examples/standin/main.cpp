// A stand-in for the Corvanta server, for trying and testing the monitor.
// It is not a database server: it writes its lock file and log where the
// instance's corvanta.ini says, serves one small page, and stops on signal 15.

#include "Console.h"
#include "cfg/cfg.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

const char kHelp[] =
    "Usage: corvanta -f\n"
    "\n"
    "A stand-in for the Corvanta database server, for trying and testing the\n"
    "Corvanta Monitor. It is not a database server and stores nothing.\n"
    "\n"
    "Run in an instance directory, it reads that directory's corvanta.ini\n"
    "(section \"database\", keys \"lockfile\" and \"errorlogfile\", defaults\n"
    "corvanta.lck and corvanta.log, relative to the instance directory),\n"
    "writes its process id into the lock file, appends to the log file, and\n"
    "serves a small page at http://127.0.0.1:8890/kelvarine/ when that port is\n"
    "free. On signal 15 it removes its lock file and exits with status 0.\n"
    "\n"
    "Environment, for tests:\n"
    "  CORVANTA_STANDIN_LOCK_DELAY_MS=N  wait N milliseconds before writing the\n"
    "                                    lock file\n"
    "  CORVANTA_STANDIN_EXIT_AT_ONCE=1   exit with status 3 before writing the\n"
    "                                    lock file\n"
    "  CORVANTA_STANDIN_LOCK_ON_USR1=1   write the lock file only once signal 10\n"
    "                                    arrives (after any delay)\n"
    "  CORVANTA_STANDIN_IGNORE_TERM=1    ignore signal 15 (signal 2 still stops it)\n"
    "  CORVANTA_STANDIN_FD_REPORT=path   write the inherited descriptors, the\n"
    "                                    arguments, the working directory and\n"
    "                                    whether it leads its session to path\n"
    "  CORVANTA_STANDIN_PORT=N           listen on port N instead of 8890\n"
    "                                    (0: do not listen)\n";

volatile sig_atomic_t gStopSignal = 0;
volatile sig_atomic_t gLockSignal = 0;
int gWakeWrite = -1;

std::string gLogPath;

void onStopSignal(int sig) {
    gStopSignal = sig;
    const int saved = errno;
    const char byte = 0;
    (void)!::write(gWakeWrite, &byte, 1);
    errno = saved;
}

void onLockSignal(int) {
    gLockSignal = 1;
    const int saved = errno;
    const char byte = 0;
    (void)!::write(gWakeWrite, &byte, 1);
    errno = saved;
}

// Signal 15 or 2 leaves its mark in gStopSignal, so the bytes themselves may go.
void drainWakePipe(int fd) {
    char bytes[64];
    while (::read(fd, bytes, sizeof bytes) > 0) {
    }
}

std::string timestamp() {
    char buf[64];
    const time_t now = ::time(nullptr);
    struct tm tm;
    ::localtime_r(&now, &tm);
    ::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tm);
    return buf;
}

void logLine(const std::string &text) {
    if (gLogPath.empty()) {
        return;
    }
    const int fd = ::open(gLogPath.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        return;
    }
    const std::string line =
        timestamp() + " corvanta[" + std::to_string(::getpid()) + "]: " + text + "\n";
    (void)!::write(fd, line.data(), line.size());
    ::close(fd);
}

bool writeFile(const std::string &path, const std::string &content) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        return false;
    }
    const bool ok = ::write(fd, content.data(), content.size()) == ssize_t(content.size());
    return ::close(fd) == 0 && ok;
}

// Before anything of ours is opened: which descriptors came with the process.
void writeDescriptorReport(const char *reportPath, int argc, char **argv) {
    std::vector<int> fds;
    std::string report;
    if (DIR *dir = ::opendir("/proc/self/fd")) {
        const int own = ::dirfd(dir);
        while (const dirent *e = ::readdir(dir)) {
            if (e->d_name[0] == '.') {
                continue;
            }
            const int fd = std::atoi(e->d_name);
            if (fd != own) {
                fds.push_back(fd);
            }
        }
        ::closedir(dir);
    }
    for (const int fd : fds) {
        char target[512] = {};
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        const ssize_t n = ::readlink(link.c_str(), target, sizeof target - 1);
        report += "fd " + std::to_string(fd) + " " +
                  (n > 0 ? std::string(target, size_t(n)) : "?") + "\n";
    }
    report += "argc " + std::to_string(argc) + "\n";
    for (int i = 0; i < argc; ++i) {
        report += "argv " + std::string(argv[i]) + "\n";
    }
    char cwd[4096];
    report += "cwd " + std::string(::getcwd(cwd, sizeof cwd) ? cwd : "?") + "\n";
    report += std::string("session-leader ") + (::getsid(0) == ::getpid() ? "yes" : "no") + "\n";
    writeFile(reportPath, report);
}

struct Settings {
    std::string lockFile = "corvanta.lck";
    std::string logFile = "corvanta.log";
};

Settings readSettings() {
    Settings settings;
    ZEM_CfgHandle *handle = nullptr;
    if (ZEM_Cfg_init(&handle, "corvanta.ini") != 0) {
        return settings;
    }
    if (ZEM_Cfg_find(handle, "database", nullptr) == 0) {
        while (ZEM_Cfg_nextentry(handle) == 0) {
            const unsigned kind = handle->flags & CFG_KIND_MASK;
            if (kind == CFG_KIND_SECTION) {
                break;
            }
            if (kind != CFG_KIND_KEY || handle->id == nullptr || handle->value == nullptr) {
                continue;
            }
            if (stricmp(handle->id, "lockfile") == 0) {
                settings.lockFile = handle->value;
            } else if (stricmp(handle->id, "errorlogfile") == 0) {
                settings.logFile = handle->value;
            }
        }
    }
    ZEM_Cfg_done(handle);
    return settings;
}

bool envFlag(const char *name) {
    const char *v = ::getenv(name);
    return v != nullptr && std::strcmp(v, "1") == 0;
}

long envNumber(const char *name, long fallback) {
    const char *v = ::getenv(name);
    if (v == nullptr || *v == '\0') {
        return fallback;
    }
    char *end = nullptr;
    const long n = std::strtol(v, &end, 10);
    return *end == '\0' && n >= 0 ? n : fallback;
}

int64_t nowMs() {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

}  // namespace

int main(int argc, char **argv) {
    if (const char *report = ::getenv("CORVANTA_STANDIN_FD_REPORT")) {
        writeDescriptorReport(report, argc, argv);
    }

    bool foreground = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "-f") == 0) {
            foreground = true;
        } else if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::fputs(kHelp, stdout);
            return 0;
        } else {
            std::fprintf(stderr, "corvanta: unknown argument %s\n%s", argv[i], kHelp);
            return 2;
        }
    }
    if (!foreground) {
        std::fputs(kHelp, stderr);
        return 2;
    }

    int wake[2];
    if (::pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0) {
        return 1;
    }
    gWakeWrite = wake[1];
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    const bool lockOnSignal = envFlag("CORVANTA_STANDIN_LOCK_ON_USR1");
    if (lockOnSignal) {
        struct sigaction lockAction {};
        lockAction.sa_handler = onLockSignal;
        ::sigemptyset(&lockAction.sa_mask);
        ::sigaction(SIGUSR1, &lockAction, nullptr);
    }
    if (envFlag("CORVANTA_STANDIN_IGNORE_TERM")) {
        ::signal(SIGTERM, SIG_IGN);
    } else {
        ::sigaction(SIGTERM, &action, nullptr);
    }

    const Settings settings = readSettings();
    gLogPath = settings.logFile;
    char cwd[4096];
    logLine(std::string("started in ") + (::getcwd(cwd, sizeof cwd) ? cwd : "?"));

    if (envFlag("CORVANTA_STANDIN_EXIT_AT_ONCE")) {
        logLine("exiting at once (CORVANTA_STANDIN_EXIT_AT_ONCE)");
        return 3;
    }

    // The delay waits on the wake pipe, so signal 15 still ends it promptly.
    const long delay = envNumber("CORVANTA_STANDIN_LOCK_DELAY_MS", 0);
    if (delay > 0) {
        pollfd p{wake[0], POLLIN, 0};
        const int64_t until = nowMs() + delay;
        while (gStopSignal == 0 && nowMs() < until) {
            if (::poll(&p, 1, int(std::min<int64_t>(until - nowMs(), 1000))) > 0) {
                drainWakePipe(wake[0]);
            }
        }
    }
    // Tests hold the server in its starting phase for as long as they look.
    if (lockOnSignal) {
        logLine("waiting for signal 10 before writing the lock file");
        pollfd p{wake[0], POLLIN, 0};
        while (gStopSignal == 0 && gLockSignal == 0) {
            if (::poll(&p, 1, -1) > 0) {
                drainWakePipe(wake[0]);
            }
        }
        // Later ones would wake the serving loop for nothing.
        ::signal(SIGUSR1, SIG_IGN);
        drainWakePipe(wake[0]);
    }
    bool lockWritten = false;
    if (gStopSignal == 0) {
        lockWritten = writeFile(settings.lockFile, std::to_string(::getpid()) + "\n");
        if (!lockWritten) {
            logLine("cannot write lock file " + settings.lockFile + ": " + std::strerror(errno));
        }
    }

    const long port = envNumber("CORVANTA_STANDIN_PORT", 8890);
    int listener = -1;
    if (gStopSignal == 0 && port > 0 && port < 65536) {
        listener = openConsoleListener(port);
        if (listener < 0) {
            logLine("port " + std::to_string(port) + " unavailable (" + std::strerror(errno) +
                    "), serving no page");
        } else {
            logLine("serving http://127.0.0.1:" + std::to_string(port) + "/kelvarine/");
        }
    }

    const int status = serveConsole(listener, wake[0], gStopSignal, logLine);
    if (listener >= 0) {
        ::close(listener);
    }
    if (lockWritten) {
        ::unlink(settings.lockFile.c_str());
    }
    logLine("stopped on signal " + std::to_string(int(gStopSignal)));
    return status;
}
