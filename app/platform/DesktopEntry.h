#pragma once

// Reading and writing the few parts of freedesktop.org Desktop Entry files
// that autostart needs. Plain C++ so that the fuzzer builds it on its own.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace desktop_entry {

// Files above this size are not desktop entries worth reading.
constexpr std::size_t MaxFileSize = 64 * 1024;

// The keys of the [Desktop Entry] group that decide whether and what an
// autostart entry starts. Values are raw (still escaped) as in the file.
struct Entry {
    std::optional<std::string> type;
    std::optional<std::string> exec;
    bool hidden = false;
    bool autostartDisabled = false;  // X-GNOME-Autostart-enabled=false
};

// Nothing when the text has no [Desktop Entry] group.
std::optional<Entry> parse(std::string_view text);

// Undoes the escapes of string values (\s \n \t \r \\); other backslash
// pairs stay as written because the Exec quoting rules read them next.
std::string unescapeValue(std::string_view value);
// The inverse for a value that is written back.
std::string escapeValue(std::string_view text);

// Splits an unescaped Exec value into arguments: separated by spaces, each
// either plain or wholly inside double quotes, where \" \` \$ \\ stand for
// the character. "%%" stands for "%"; other field codes are kept as written.
// Nothing for unbalanced quotes, bad escapes or a quote inside a word.
std::optional<std::vector<std::string>> splitExec(std::string_view exec);

// One Exec argument in double quotes with its specials escaped and "%"
// doubled, before escapeValue().
std::string quoteExecArgument(std::string_view argument);
// The argument as written, when it holds nothing that needs quoting;
// quoteExecArgument() otherwise.
std::string execArgument(std::string_view argument);

// The program an entry runs: the first Exec argument, fully decoded.
std::optional<std::string> program(const Entry &entry);

}  // namespace desktop_entry
