// Arbitrary corvanta.ini content through the configuration probe and the
// lock-file read that follows from it: a regular corvanta.ini always makes a
// valid instance with absolute lock and log paths, and reading whatever the
// lock path names never blocks or reads without bound.
#include "registry/CorvantaInstance.h"
#include "registry/SystemLog.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

namespace {

// A plain array: no destructor races the exit handler that cleans up.
char gDir[] = "/tmp/fuzz-registry-XXXXXX";

std::string instanceDir() {
    static const bool made = [] {
        if (::mkdtemp(gDir) == nullptr)
            std::abort();
        std::atexit([] {
            ::unlink((std::string(gDir) + "/corvanta.ini").c_str());
            ::rmdir(gDir);
        });
        return true;
    }();
    (void)made;
    return gDir;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool quiet = [] {
        setSystemLogSink([](const QString &) {});
        return true;
    }();
    (void)quiet;
    const std::string ini = instanceDir() + "/corvanta.ini";
    FILE *file = std::fopen(ini.c_str(), "we");
    if (file == nullptr)
        std::abort();
    if (size > 0 && std::fwrite(data, 1, size, file) != size)
        std::abort();
    std::fclose(file);

    CorvantaInstance instance(QString::fromStdString(instanceDir()));
    if (!instance.probeConfiguration())
        std::abort();
    const std::optional<QString> log = instance.logFile();
    if (log && !log->startsWith(u'/'))
        std::abort();
    if (instance.pidValueFromLockFile() < 0)
        std::abort();
    return 0;
}
