#include "DesktopEntry.h"

#include <algorithm>

namespace desktop_entry {
namespace {

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) {
        s.remove_prefix(1);
    }
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) {
        s.remove_suffix(1);
    }
    return s;
}

bool isQuotedSpecial(char c) {
    return c == '"' || c == '`' || c == '$' || c == '\\';
}

}  // namespace

std::optional<Entry> parse(std::string_view text) {
    if (text.substr(0, 3) == "\xEF\xBB\xBF") {
        text.remove_prefix(3);
    }
    Entry entry;
    bool seenGroup = false;
    bool inGroup = false;
    bool seenHidden = false;
    bool seenEnabled = false;
    while (!text.empty()) {
        const std::size_t eol = text.find('\n');
        std::string_view line = text.substr(0, eol);
        text.remove_prefix(eol == std::string_view::npos ? text.size() : eol + 1);
        line = trim(line);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (line.front() == '[') {
            // Only the first [Desktop Entry] group counts; a repeated one is
            // not valid and must not override it.
            inGroup = !seenGroup && line == "[Desktop Entry]";
            seenGroup = seenGroup || inGroup;
            continue;
        }
        if (!inGroup) {
            continue;
        }
        const std::size_t eq = line.find('=');
        if (eq == std::string_view::npos) {
            continue;
        }
        const std::string_view key = trim(line.substr(0, eq));
        const std::string_view value = trim(line.substr(eq + 1));
        // The first occurrence of a key wins; duplicates are not valid.
        if (key == "Type" && !entry.type) {
            entry.type = std::string(value);
        } else if (key == "Exec" && !entry.exec) {
            entry.exec = std::string(value);
        } else if (key == "Hidden" && !seenHidden) {
            seenHidden = true;
            entry.hidden = value == "true";
        } else if (key == "X-GNOME-Autostart-enabled" && !seenEnabled) {
            seenEnabled = true;
            entry.autostartDisabled = value == "false";
        }
    }
    if (!seenGroup) {
        return std::nullopt;
    }
    return entry;
}

std::string unescapeValue(std::string_view value) {
    std::string out;
    out.reserve(value.size());
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        if (c != '\\' || i + 1 == value.size()) {
            out += c;
            continue;
        }
        switch (value[i + 1]) {
            case 's':
                out += ' ';
                break;
            case 'n':
                out += '\n';
                break;
            case 't':
                out += '\t';
                break;
            case 'r':
                out += '\r';
                break;
            case '\\':
                out += '\\';
                break;
            default:
                out += c;
                out += value[i + 1];
                break;
        }
        ++i;
    }
    return out;
}

std::string escapeValue(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 8);
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        switch (c) {
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\r':
                out += "\\r";
                break;
            case ' ':
                // A leading space would be eaten by the reader's trimming.
                out += i == 0 ? "\\s" : " ";
                break;
            default:
                out += c;
                break;
        }
    }
    return out;
}

std::optional<std::vector<std::string>> splitExec(std::string_view exec) {
    std::vector<std::string> args;
    std::size_t i = 0;
    const std::size_t n = exec.size();
    while (i < n) {
        if (exec[i] == ' ') {
            ++i;
            continue;
        }
        std::string arg;
        if (exec[i] == '"') {
            ++i;
            bool closed = false;
            while (i < n) {
                const char c = exec[i++];
                if (c == '"') {
                    closed = true;
                    break;
                }
                if (c == '\\') {
                    if (i == n || !isQuotedSpecial(exec[i])) {
                        return std::nullopt;
                    }
                    arg += exec[i++];
                } else {
                    arg += c;
                }
            }
            // A quoted argument is quoted as a whole: it ends at a space.
            if (!closed || (i < n && exec[i] != ' ')) {
                return std::nullopt;
            }
        } else {
            while (i < n && exec[i] != ' ') {
                const char c = exec[i++];
                // Outside quotes these only appear in malformed or shell-ish
                // lines whose meaning is ambiguous.
                if (c == '"' || c == '\\') {
                    return std::nullopt;
                }
                arg += c;
            }
        }
        std::string decoded;
        decoded.reserve(arg.size());
        for (std::size_t k = 0; k < arg.size(); ++k) {
            decoded += arg[k];
            if (arg[k] == '%' && k + 1 < arg.size() && arg[k + 1] == '%') {
                ++k;
            }
        }
        args.push_back(std::move(decoded));
    }
    return args;
}

std::string quoteExecArgument(std::string_view argument) {
    std::string out = "\"";
    for (const char c : argument) {
        if (isQuotedSpecial(c)) {
            out += '\\';
        }
        out += c;
        if (c == '%') {
            out += '%';
        }
    }
    out += '"';
    return out;
}

std::string execArgument(std::string_view argument) {
    const bool plain =
        !argument.empty() && std::all_of(argument.begin(), argument.end(), [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                   std::string_view("/._-+,:@=").find(c) != std::string_view::npos;
        });
    return plain ? std::string(argument) : quoteExecArgument(argument);
}

std::optional<std::string> program(const Entry &entry) {
    if (!entry.exec) {
        return std::nullopt;
    }
    auto args = splitExec(unescapeValue(*entry.exec));
    if (!args || args->empty()) {
        return std::nullopt;
    }
    return std::move(args->front());
}

}  // namespace desktop_entry
