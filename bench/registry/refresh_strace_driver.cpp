// Refreshes a running and a stopped instance once each between markers
// written to standard error, for strace-refresh.sh. Both records are primed
// first (configuration read, pid known), as after the menu's first opening.
#include "registry/CorvantaInstance.h"
#include "registry/SystemLog.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

void marker(const char *text) {
    (void)!::write(STDERR_FILENO, text, std::strlen(text));
}

void writeText(const std::string &path, const std::string &text) {
    FILE *f = std::fopen(path.c_str(), "we");
    if (f == nullptr)
        std::abort();
    std::fputs(text.c_str(), f);
    std::fclose(f);
}

}  // namespace

int main() {
    setSystemLogSink(
        [](const QString &line) { std::fprintf(stderr, "log: %s\n", qPrintable(line)); });
    char pattern[] = "/tmp/strace-refresh-XXXXXX";
    if (::mkdtemp(pattern) == nullptr)
        return 1;
    const std::string root = pattern;
    const std::string running = root + "/running";
    const std::string stopped = root + "/stopped";
    for (const std::string &dir : {running, stopped}) {
        ::mkdir(dir.c_str(), 0755);
        writeText(dir + "/corvanta.ini", "[database]\n");
    }
    const pid_t server = ::fork();
    if (server == 0) {
        for (;;)
            ::pause();
    }
    writeText(running + "/corvanta.lck", std::to_string(server) + "\n");

    CorvantaInstance runningInstance(QString::fromStdString(running));
    CorvantaInstance stoppedInstance(QString::fromStdString(stopped));
    runningInstance.probeConfiguration();
    stoppedInstance.probeConfiguration();
    runningInstance.refresh();
    stoppedInstance.refresh();

    marker("=== refresh running: begin\n");
    runningInstance.refresh();
    marker("=== refresh running: end\n");
    marker("=== refresh stopped: begin\n");
    stoppedInstance.refresh();
    marker("=== refresh stopped: end\n");

    const bool ok = runningInstance.serverStatus() == ServerStatusRunning &&
                    stoppedInstance.serverStatus() == ServerStatusStopped;
    ::kill(server, SIGKILL);
    ::waitpid(server, nullptr, 0);
    std::filesystem::remove_all(root);
    return ok ? 0 : 1;
}
