// The lock-file pid parser against a straightforward reference.
#include "registry/LockFile.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const char *bytes = reinterpret_cast<const char *>(data);
    const LockFile::PidResult result = LockFile::parsePid(bytes, size);

    size_t first = 0;
    while (first < size && (data[first] < '0' || data[first] > '9'))
        ++first;
    if (first == size) {
        if (result.kind != LockFile::PidParse::NoDigit || result.pid != 0)
            std::abort();
        return 0;
    }
    unsigned __int128 value = 0;
    bool overflow = false;
    for (size_t i = first; i < size && data[i] >= '0' && data[i] <= '9'; ++i) {
        value = value * 10 + (data[i] - '0');
        if (value > 0x7fffffff) {
            overflow = true;
            break;
        }
    }
    if (overflow != (result.kind == LockFile::PidParse::Overflow))
        std::abort();
    if (!overflow && (result.kind != LockFile::PidParse::Pid || result.pid != int32_t(value)))
        std::abort();
    if (result.pid < 0)
        std::abort();
    return 0;
}
