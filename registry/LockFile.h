#pragma once

#include <cstddef>
#include <cstdint>

// The lock-file text a server writes: the first run of decimal digits is its
// process id; everything before and after the run is ignored. Pure function
// over bytes so it can be fuzzed and tested without files.
namespace LockFile {

enum class PidParse {
    Pid,       // pid holds the value of the digit run (0 for "0")
    NoDigit,   // malformed: no decimal digit at all
    Overflow,  // malformed: the run's value exceeds INT32_MAX
};

struct PidResult {
    PidParse kind = PidParse::NoDigit;
    int32_t pid = 0;
};

// Only ASCII '0'..'9' count as digits. Leading zeros never overflow.
PidResult parsePid(const char *bytes, size_t length);

}  // namespace LockFile
