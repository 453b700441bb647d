// allInstances and refresh, each beside a plain C loop that makes the same
// system calls in the same run: the floor the registry is measured against.
#include "registry/CorvantaManager.h"
#include "registry/SystemLog.h"

#include <benchmark/benchmark.h>

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr int kInstances = 1000;

void writeText(const std::string &path, const std::string &text) {
    FILE *f = std::fopen(path.c_str(), "we");
    if (f == nullptr || std::fwrite(text.data(), 1, text.size(), f) != text.size())
        std::abort();
    std::fclose(f);
}

// One search directory with kInstances instance directories (no servers), a
// stopped instance and a running one whose lock file names a live child.
struct Fixture {
    std::string root;
    std::string search;
    std::string stopped;
    std::string running;
    pid_t child = 0;

    Fixture() {
        char pattern[] = "/tmp/bench-registry-XXXXXX";
        if (::mkdtemp(pattern) == nullptr)
            std::abort();
        char resolved[PATH_MAX];
        root = ::realpath(pattern, resolved);
        search = root + "/install";
        ::mkdir(search.c_str(), 0755);
        for (int i = 0; i < kInstances; ++i) {
            char name[32];
            std::snprintf(name, sizeof name, "/inst%04d", i);
            const std::string dir = search + name;
            ::mkdir(dir.c_str(), 0755);
            writeText(dir + "/corvanta.ini",
                      "[database]\nlockfile = corvanta.lck\nerrorlogfile = corvanta.log\n");
        }
        stopped = root + "/stopped";
        running = root + "/running";
        for (const std::string &dir : {stopped, running}) {
            ::mkdir(dir.c_str(), 0755);
            writeText(dir + "/corvanta.ini", "[database]\n");
        }
        child = ::fork();
        if (child == 0) {
            for (;;)
                ::pause();
        }
        writeText(running + "/corvanta.lck", std::to_string(child) + "\n");
    }
    ~Fixture() {
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        std::filesystem::remove_all(root);
    }
};

Fixture &fixture() {
    static Fixture f;
    return f;
}

// --- the registry ---------------------------------------------------------

void BM_AllInstances_First(benchmark::State &state) {
    const QString search = QString::fromStdString(fixture().search);
    for (auto _ : state) {
        CorvantaManager manager;
        manager.addSearchPath(search);
        auto all = manager.allInstances();
        if (all.size() != kInstances)
            state.SkipWithError("wrong instance count");
        benchmark::DoNotOptimize(all);
    }
}

void BM_AllInstances_Repeated(benchmark::State &state) {
    CorvantaManager manager;
    manager.addSearchPath(QString::fromStdString(fixture().search));
    manager.allInstances();
    for (auto _ : state) {
        auto all = manager.allInstances();
        benchmark::DoNotOptimize(all);
    }
}

void BM_Refresh_Running(benchmark::State &state) {
    CorvantaInstance instance(QString::fromStdString(fixture().running));
    instance.probeConfiguration();
    instance.refresh();
    if (instance.serverStatus() != ServerStatusRunning)
        state.SkipWithError("server not seen running");
    for (auto _ : state)
        instance.refresh();
}

void BM_Refresh_Stopped(benchmark::State &state) {
    CorvantaInstance instance(QString::fromStdString(fixture().stopped));
    instance.probeConfiguration();
    instance.refresh();
    if (instance.serverStatus() != ServerStatusStopped)
        state.SkipWithError("server not seen stopped");
    for (auto _ : state)
        instance.refresh();
}

// --- the floor: the same system calls from plain C ------------------------

bool isDir(const char *path) {
    struct stat st;
    return ::stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

// What a stopped refresh does: lock file missing, configuration unchanged
// (looked at through the directory path as given).
void stoppedRefreshCalls(const std::string &dir) {
    struct stat st;
    ::stat((dir + "/corvanta.lck").c_str(), &st);
    ::lstat((dir + "/corvanta.ini").c_str(), &st);
}

// What a first probe does: realpath, lstat, then the library's read.
void probeCalls(const std::string &dir) {
    char resolved[PATH_MAX];
    ::realpath(dir.c_str(), resolved);
    std::strcat(resolved, "/corvanta.ini");
    struct stat st;
    if (::lstat(resolved, &st) != 0)
        return;
    const int fd = ::open(resolved, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    ::fstat(fd, &st);
    char buf[256];
    benchmark::DoNotOptimize(::read(fd, buf, sizeof buf));
    ::close(fd);
}

std::vector<std::string> listCalls(const std::string &dir) {
    std::vector<std::string> names;
    DIR *d = ::opendir(dir.c_str());
    while (const dirent *e = ::readdir(d)) {
        if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
            names.push_back(dir + "/" + e->d_name);
    }
    ::closedir(d);
    return names;
}

void BM_Floor_AllInstances_First(benchmark::State &state) {
    const std::string &search = fixture().search;
    for (auto _ : state) {
        std::map<std::string, int> cache;
        const auto names = listCalls(search);
        isDir(search.c_str());
        probeCalls(search);
        for (const std::string &name : names) {
            if (!isDir(name.c_str()))
                continue;
            probeCalls(name);
            cache.emplace(name, 0);
        }
        for (const auto &entry : cache)
            stoppedRefreshCalls(entry.first);
        benchmark::DoNotOptimize(cache);
    }
}

void BM_Floor_AllInstances_Repeated(benchmark::State &state) {
    const std::string &search = fixture().search;
    std::map<std::string, int> cache;
    for (const std::string &name : listCalls(search))
        cache.emplace(name, 0);
    for (auto _ : state) {
        const auto names = listCalls(search);
        isDir(search.c_str());
        probeCalls(search);  // the search directory itself is no instance
        // Every entry is cached: no directory test.
        for (const std::string &name : names) {
            if (cache.find(name) == cache.end() && isDir(name.c_str()))
                probeCalls(name);
        }
        for (const auto &entry : cache)
            stoppedRefreshCalls(entry.first);
    }
}

void BM_Floor_Refresh_Running(benchmark::State &state) {
    const pid_t pid = fixture().child;
    for (auto _ : state) {
        benchmark::DoNotOptimize(::waitpid(-1, nullptr, WNOHANG));
        benchmark::DoNotOptimize(::kill(pid, 0));
    }
}

void BM_Floor_Refresh_Stopped(benchmark::State &state) {
    const std::string &dir = fixture().stopped;
    for (auto _ : state)
        stoppedRefreshCalls(dir);
}

BENCHMARK(BM_AllInstances_First)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Floor_AllInstances_First)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AllInstances_Repeated)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Floor_AllInstances_Repeated)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Refresh_Running)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Floor_Refresh_Running)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Refresh_Stopped)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Floor_Refresh_Stopped)->Unit(benchmark::kMicrosecond);

// Collects each run's real time per iteration for the ratio table.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Iteration && run.iterations > 0)
                times[run.benchmark_name()] = run.real_accumulated_time / double(run.iterations);
        }
    }
    std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char **argv) {
    setSystemLogSink([](const QString &) {});
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    fixture();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    std::printf("\n%-26s %14s %14s %7s\n", "case", "registry", "C floor", "ratio");
    for (const char *name :
         {"AllInstances_First", "AllInstances_Repeated", "Refresh_Running", "Refresh_Stopped"}) {
        const auto ours = reporter.times.find(std::string("BM_") + name);
        const auto floor = reporter.times.find(std::string("BM_Floor_") + name);
        if (ours == reporter.times.end() || floor == reporter.times.end())
            continue;
        std::printf("%-26s %11.3f us %11.3f us %6.2fx\n", name, ours->second * 1e6,
                    floor->second * 1e6, ours->second / floor->second);
    }
    benchmark::Shutdown();
    return 0;
}
