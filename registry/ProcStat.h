#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

// What the program reads from the kernel's process tables, as pure
// functions over bytes so they can be fuzzed and tested without /proc.
namespace ProcStat {

struct Fields {
    char state = 0;                      // the third field: R, S, Z, X, ...
    std::optional<uint64_t> startTicks;  // the 22nd: clock ticks after boot
};

// /proc/PID/stat. The name in parentheses, the second field, may hold
// spaces and parentheses itself, so the fields are counted after its last
// ')'. Nothing without a state after it.
std::optional<Fields> parse(const char *bytes, size_t length);

// /proc/stat: the boot time in seconds since the Unix epoch, from the line
// "btime N".
std::optional<uint64_t> bootTime(const char *bytes, size_t length);

}  // namespace ProcStat
