// `corvanta-monitor list --json` over 1,000 instances, the whole process from
// spawn to exit with its output read from a pipe, beside what the command
// cannot avoid: a fresh manager's first allInstances over the same
// directory, measured in this process in the same run. Prints medians and
// their ratio, and the floor under it: allInstances, a process start
// (`--version`) and the listing's reports and JSON document made in this
// process, warm, with no process or output around them.
//
// Usage: bench_cli_list [rounds] [monitor executable]
#include "app/cli/InstanceReport.h"
#include "registry/CorvantaManager.h"

#include <QJsonDocument>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

extern char **environ;

namespace {

constexpr int kInstances = 1000;

using Clock = std::chrono::steady_clock;

void writeText(const std::string &path, const std::string &text) {
    FILE *f = std::fopen(path.c_str(), "we");
    if (f == nullptr || std::fwrite(text.data(), 1, text.size(), f) != text.size()) {
        std::abort();
    }
    std::fclose(f);
}

std::string makeInstallation() {
    char pattern[] = "/tmp/bench-cli-XXXXXX";
    if (::mkdtemp(pattern) == nullptr) {
        std::abort();
    }
    char resolved[PATH_MAX];
    const std::string root = ::realpath(pattern, resolved);
    for (int i = 0; i < kInstances; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "/inst%04d", i);
        const std::string dir = root + name;
        ::mkdir(dir.c_str(), 0755);
        writeText(dir + "/corvanta.ini",
                  "[database]\nlockfile = corvanta.lck\nerrorlogfile = corvanta.log\n");
        if (i % 2 == 0) {
            writeText(dir + "/corvanta.log", "started\n");  // half of them report a log
        }
    }
    return root;
}

// Spawns the monitor with `arguments`, reads all of its standard output,
// waits for it.
double runMonitor(const char *monitor, std::vector<std::string> arguments, size_t *outputBytes) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        std::abort();
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    std::vector<char *> argv{const_cast<char *>(monitor)};
    for (std::string &argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const auto start = Clock::now();
    pid_t pid = 0;
    if (posix_spawn(&pid, monitor, &actions, nullptr, argv.data(), environ) != 0) {
        std::abort();
    }
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    char buf[65536];
    size_t total = 0;
    for (ssize_t n; (n = ::read(fds[0], buf, sizeof buf)) != 0;) {
        if (n > 0) {
            total += size_t(n);
        }
    }
    ::close(fds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    const auto end = Clock::now();
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "the command failed (status %d)\n", status);
        std::exit(1);
    }
    *outputBytes = total;
    return std::chrono::duration<double, std::milli>(end - start).count();
}

double runAllInstances(const std::string &home) {
    const auto start = Clock::now();
    CorvantaManager manager;
    manager.addSearchPath(QString::fromStdString(home));
    const qsizetype found = manager.allInstances().size();
    const auto end = Clock::now();
    if (found != kInstances) {
        std::fprintf(stderr, "allInstances found %lld instances\n", static_cast<long long>(found));
        std::exit(1);
    }
    return std::chrono::duration<double, std::milli>(end - start).count();
}

// What the command does after its scan: a report per instance (its log
// file's stat among them) and the document, to bytes.
double runListing(const std::string &home, size_t *outputBytes) {
    CorvantaManager manager;
    manager.addSearchPath(QString::fromStdString(home));
    const QList<CorvantaInstancePtr> instances = manager.allInstances();
    const auto start = Clock::now();
    const QByteArray bytes =
        QJsonDocument(InstanceReport::listingJson(QString::fromStdString(home),
                                                  InstanceReport::listing(instances)))
            .toJson(QJsonDocument::Compact);
    const auto end = Clock::now();
    *outputBytes = size_t(bytes.size()) + 1;  // and the command's line break
    return std::chrono::duration<double, std::milli>(end - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace

int main(int argc, char **argv) {
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 31;
    const char *monitor = argc > 2 ? argv[2] : CORVANTA_MONITOR;
    const std::string home = makeInstallation();
    const std::vector<std::string> list{"list", "--json", "--home", home};
    std::vector<double> command, registry, start, listing;
    size_t bytes = 0, versionBytes = 0, listingBytes = 0;
    runMonitor(monitor, list, &bytes);  // warm the page cache and the loader
    runAllInstances(home);
    // Interleaved, so that load on the machine falls on all alike.
    for (int i = 0; i < rounds; ++i) {
        command.push_back(runMonitor(monitor, list, &bytes));
        registry.push_back(runAllInstances(home));
        start.push_back(runMonitor(monitor, {"--version"}, &versionBytes));
        listing.push_back(runListing(home, &listingBytes));
    }
    if (listingBytes != bytes) {
        std::fprintf(stderr, "the listing made here differs from the command's output\n");
        return 1;
    }
    std::filesystem::remove_all(home);
    const double c = median(command), r = median(registry), v = median(start), l = median(listing);
    std::printf("instances                          %d\n", kInstances);
    std::printf("rounds                             %d\n", rounds);
    std::printf("JSON output                        %zu bytes\n", bytes);
    std::printf("list --json, whole process         %.2f ms (median)\n", c);
    std::printf("allInstances alone, first scan     %.2f ms (median)\n", r);
    std::printf("ratio to allInstances              %.2fx\n", c / r);
    std::printf("process start alone (--version)    %.2f ms (median), %.2fx of allInstances\n", v,
                v / r);
    std::printf("reports and JSON alone, in here    %.2f ms (median), %.2fx of allInstances\n", l,
                l / r);
    std::printf("floor: allInstances + both         %.2fx of allInstances\n", (r + v + l) / r);
    std::printf("list --json / floor                %.2fx (target within 1.15x)\n",
                c / (r + v + l));
    return 0;
}
