// Parses arbitrary bytes as a Desktop Entry file and checks that whatever
// program an entry names survives being written back and read again.
#include "DesktopEntry.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size > desktop_entry::MaxFileSize) {
        return 0;
    }
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    const auto entry = desktop_entry::parse(text);
    if (entry && entry->exec) {
        (void)desktop_entry::splitExec(desktop_entry::unescapeValue(*entry->exec));
    }
    // The writer's quoting must give back every byte string exactly.
    const std::string line = desktop_entry::escapeValue(desktop_entry::quoteExecArgument(text));
    if (line.find('\n') != std::string::npos) {
        std::abort();
    }
    const auto back = desktop_entry::parse("[Desktop Entry]\nExec=" + line + " %u\n");
    if (!back || desktop_entry::program(*back) != std::string(text)) {
        std::abort();
    }
    return 0;
}
