#include "LockFile.h"

namespace LockFile {

PidResult parsePid(const char *bytes, size_t length) {
    size_t i = 0;
    while (i < length && !(bytes[i] >= '0' && bytes[i] <= '9')) {
        ++i;
    }
    if (i == length) {
        return {PidParse::NoDigit, 0};
    }
    int64_t value = 0;
    for (; i < length && bytes[i] >= '0' && bytes[i] <= '9'; ++i) {
        value = value * 10 + (bytes[i] - '0');
        if (value > INT32_MAX) {
            return {PidParse::Overflow, 0};
        }
    }
    return {PidParse::Pid, static_cast<int32_t>(value)};
}

}  // namespace LockFile
