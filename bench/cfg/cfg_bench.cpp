// Open and parse throughput of the configuration library and its MD5, each
// beside baselines run in the same process: read() alone, read() plus a
// memchr line count, OpenSSL's MD5 and the inih parser. Ends with a table of
// ratios against those baselines.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <ini.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "cfg/cfg_internal.h"

namespace {

struct Size {
    const char *name;
    size_t bytes;
};
constexpr Size kSizes[] = {{"64KiB", 64u << 10}, {"4MiB", 4u << 20}, {"64MiB", 64u << 20}};

// A plausible server configuration: sections of keys with comments, quoted
// values, continuation lines and blank lines, repeated up to the size.
std::string generate(size_t bytes) {
    std::string text;
    text.reserve(bytes + 256);
    for (unsigned s = 0; text.size() < bytes; ++s) {
        text +=
            "; settings of group " + std::to_string(s) + "\n[section" + std::to_string(s) + "]\n";
        for (unsigned k = 0; k < 24 && text.size() < bytes; ++k) {
            const std::string n = std::to_string(k);
            switch (k % 6) {
                case 0:
                    text += "port" + n + " = " + std::to_string(3000 + s % 1000) + "\n";
                    break;
                case 1:
                    text += "datadir" + n + " = /var/lib/corvanta/data/" + n + " ; where\n";
                    break;
                case 2:
                    text += "name" + n + "=\"quoted ; value " + n + "\"\n";
                    break;
                case 3:
                    text += "flags" + n + " = on\n  continued value line\n";
                    break;
                case 4:
                    text += ";old" + n + " = disabled setting\n";
                    break;
                default:
                    text += "LongerKeyName" + n + "   =   some text; more text   \n\n";
                    break;
            }
        }
    }
    return text;
}

std::string filePath(const Size &s) {
    return (std::filesystem::temp_directory_path() / ("bench_cfg_" + std::string(s.name) + ".ini"))
        .string();
}

// Reads the whole file into a fresh buffer, as the library does.
char *readFile(const std::string &path, size_t *size) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat st {};
    if (fd < 0 || fstat(fd, &st) != 0) {
        std::abort();
    }
    *size = static_cast<size_t>(st.st_size);
    char *buf = static_cast<char *>(std::malloc(*size + 1));
    size_t done = 0;
    while (done < *size) {
        const ssize_t n = read(fd, buf + done, *size - done);
        if (n <= 0) {
            std::abort();
        }
        done += static_cast<size_t>(n);
    }
    buf[*size] = '\0';
    close(fd);
    return buf;
}

void bmRead(benchmark::State &state, const Size &s) {
    size_t size = 0;
    for (auto _ : state) {
        char *buf = readFile(filePath(s), &size);
        benchmark::DoNotOptimize(buf);
        std::free(buf);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

void bmReadMemchr(benchmark::State &state, const Size &s) {
    size_t size = 0;
    for (auto _ : state) {
        char *buf = readFile(filePath(s), &size);
        size_t lines = 0;
        const char *end = buf + size;
        for (const char *p = buf; (p = static_cast<const char *>(std::memchr(p, '\n', end - p)));
             ++p) {
            ++lines;
        }
        benchmark::DoNotOptimize(lines);
        std::free(buf);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

// Reading and parsing exactly as a refresh does, minus the digest.
void bmParse(benchmark::State &state, const Size &s) {
    ZEM_CfgHandle *h = nullptr;
    const std::string empty = filePath(s) + ".empty";
    std::ofstream{empty};
    if (ZEM_Cfg_init(&h, empty.c_str()) != 0) {
        std::abort();
    }
    size_t size = 0;
    for (auto _ : state) {
        h->text = readFile(filePath(s), &size);
        h->textSize = static_cast<int64_t>(size);
        if (_cfg_parse(h) != 0) {
            std::abort();
        }
        benchmark::DoNotOptimize(h->entryCount);
        _cfg_freeimage(h);
    }
    ZEM_Cfg_done(h);
    std::remove(empty.c_str());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

void bmOpen(benchmark::State &state, const Size &s) {
    for (auto _ : state) {
        ZEM_CfgHandle *h = nullptr;
        if (ZEM_Cfg_init(&h, filePath(s).c_str()) != 0) {
            std::abort();
        }
        benchmark::DoNotOptimize(h->entryCount);
        ZEM_Cfg_done(h);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.bytes));
}

int countEntry(void *user, const char *, const char *, const char *) {
    ++*static_cast<size_t *>(user);
    return 1;
}

void bmInih(benchmark::State &state, const Size &s) {
    for (auto _ : state) {
        size_t entries = 0;
        ini_parse(filePath(s).c_str(), countEntry, &entries);
        benchmark::DoNotOptimize(entries);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.bytes));
}

const std::string &md5Input() {
    static const std::string data = generate(64u << 20);
    return data;
}

void bmMd5(benchmark::State &state) {
    const std::string &data = md5Input();
    unsigned char digest[16];
    for (auto _ : state) {
        ZEM_MD5Context ctx;
        ZEM_MD5Init(&ctx);
        ZEM_MD5Update(&ctx, data.data(), static_cast<uint32_t>(data.size()));
        ZEM_MD5Final(digest, &ctx);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}

void bmOpenSslMd5(benchmark::State &state) {
    const std::string &data = md5Input();
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    for (auto _ : state) {
        EVP_Digest(data.data(), data.size(), digest, &len, EVP_md5(), nullptr);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}

// Prints the usual console table, then the ratios between rows of this run,
// from the median of the repetitions.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &r : runs) {
            if (r.run_type == Run::RT_Iteration || r.aggregate_name == "median") {
                seconds_[r.run_name.function_name] = r.GetAdjustedRealTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\n%-44s %8s  %s\n", "ratio (same run, median real time)", "value", "target");
        ratio("MD5 throughput / OpenSSL MD5", "openssl_md5/64MiB", "md5/64MiB", ">= 0.95");
        for (const Size &s : kSizes) {
            const std::string n = s.name;
            ratio("parse (no digest) / read+memchr, " + n, "parse/" + n, "read+memchr/" + n, "");
            ratio("inih / parse (no digest), " + n, "inih/" + n, "parse/" + n, "");
        }
        ratio("open with digest / MD5 alone, 64MiB", "open/64MiB", "md5/64MiB", "");
    }

private:
    void ratio(const std::string &what, const std::string &num, const std::string &den,
               const char *target) const {
        const auto a = seconds_.find(num), b = seconds_.find(den);
        if (a != seconds_.end() && b != seconds_.end() && b->second > 0) {
            std::printf("%-44s %8.2f  %s\n", what.c_str(), a->second / b->second, target);
        }
    }

    std::map<std::string, double> seconds_;
};

}  // namespace

int main(int argc, char **argv) {
    for (const Size &s : kSizes) {
        std::ofstream(filePath(s), std::ios::binary | std::ios::trunc) << generate(s.bytes);
    }
    auto add = [](const std::string &name, auto fn) {
        benchmark::RegisterBenchmark(name.c_str(), fn)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime()
            ->MeasureProcessCPUTime()
            ->Repetitions(5)
            ->ReportAggregatesOnly(true);
    };
    add("md5/64MiB", bmMd5);
    add("openssl_md5/64MiB", bmOpenSslMd5);
    for (const Size &s : kSizes) {
        const std::string n = s.name;
        add("read/" + n, [&s](benchmark::State &st) { bmRead(st, s); });
        add("read+memchr/" + n, [&s](benchmark::State &st) { bmReadMemchr(st, s); });
        add("parse/" + n, [&s](benchmark::State &st) { bmParse(st, s); });
        add("open/" + n, [&s](benchmark::State &st) { bmOpen(st, s); });
        add("inih/" + n, [&s](benchmark::State &st) { bmInih(st, s); });
    }
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    for (const Size &s : kSizes) {
        std::remove(filePath(s).c_str());
    }
    return 0;
}
