#include "ProcStat.h"

#include <string_view>

namespace ProcStat {

namespace {

// A run of decimal digits that fits, ending at a space, a line break or the end.
std::optional<uint64_t> number(std::string_view text) {
    const size_t end = text.find_first_of(" \n");
    const std::string_view digits = text.substr(0, end);
    if (digits.empty()) {
        return std::nullopt;
    }
    uint64_t value = 0;
    for (const char c : digits) {
        if (c < '0' || c > '9' || value > (UINT64_MAX - uint64_t(c - '0')) / 10) {
            return std::nullopt;
        }
        value = value * 10 + uint64_t(c - '0');
    }
    return value;
}

}  // namespace

std::optional<Fields> parse(const char *bytes, size_t length) {
    const std::string_view text(bytes, length);
    const size_t close = text.rfind(')');
    if (close == std::string_view::npos || close + 2 >= text.size() || text[close + 1] != ' ') {
        return std::nullopt;
    }
    Fields fields;
    fields.state = text[close + 2];
    // The start time is the 19th field after the state, each after one space.
    size_t at = close + 2;
    for (int skipped = 0; skipped < 19 && at != std::string_view::npos; ++skipped) {
        at = text.find(' ', at);
        at = at == std::string_view::npos ? at : at + 1;
    }
    if (at != std::string_view::npos) {
        fields.startTicks = number(text.substr(at));
    }
    return fields;
}

std::optional<uint64_t> bootTime(const char *bytes, size_t length) {
    const std::string_view text(bytes, length);
    constexpr std::string_view key = "btime ";
    for (size_t line = 0; line < text.size();) {
        if (text.substr(line, key.size()) == key) {
            return number(text.substr(line + key.size()));
        }
        const size_t next = text.find('\n', line);
        line = next == std::string_view::npos ? next : next + 1;
    }
    return std::nullopt;
}

}  // namespace ProcStat
