// The /proc/PID/stat and /proc/stat readers against straightforward references.
#include "registry/ProcStat.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace {

// Digits only, at most 2^64 - 1.
std::optional<uint64_t> reference(const std::string &token) {
    if (token.empty() || token.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    const std::string digits = token.substr(std::min(token.find_first_not_of('0'), token.size()));
    if (digits.size() > 20 || (digits.size() == 20 && digits > "18446744073709551615"))
        return std::nullopt;
    return digits.empty() ? 0 : std::stoull(digits);
}

std::vector<std::string> split(const std::string &text, char separator) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == separator)
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);

    const std::optional<ProcStat::Fields> fields = ProcStat::parse(text.data(), size);
    const size_t close = text.rfind(')');
    const bool shaped = close != std::string::npos && close + 2 < size && text[close + 1] == ' ';
    if (fields.has_value() != shaped)
        std::abort();
    if (fields) {
        if (fields->state != text[close + 2])
            std::abort();
        const std::vector<std::string> after = split(text.substr(close + 2), ' ');
        const std::optional<uint64_t> start =
            after.size() > 19 ? reference(after[19].substr(0, after[19].find('\n'))) : std::nullopt;
        if (fields->startTicks != start)
            std::abort();
    }

    std::optional<uint64_t> boot;
    for (const std::string &line : split(text, '\n')) {
        if (line.compare(0, 6, "btime ") == 0) {
            boot = reference(split(line.substr(6), ' ').front());
            break;
        }
    }
    if (ProcStat::bootTime(text.data(), size) != boot)
        std::abort();
    return 0;
}
