// Parsing a text that another thread is still reading from the file and
// digesting. Internal to the library.
#ifndef CORVANTA_CFG_PARSE_H
#define CORVANTA_CFG_PARSE_H

#include <atomic>
#include <cstdint>

#include "cfg/cfg.h"

namespace corvanta::cfg {

// How many leading bytes of a text the reading thread is done with, or
// kReadFailed; it stores with release order and notifies after each step.
using ReadProgress = std::atomic<uint64_t>;
constexpr uint64_t kReadFailed = UINT64_MAX;

// Texts from this size on are worth a second thread.
constexpr int64_t kParallelMinSize = int64_t{1} << 20;

// As _cfg_parse, but looks at a byte of the text, or cuts it, only once
// `done` has passed it, so the other thread sees the bytes exactly as read.
// -1 also when the reader failed. Uses no helper thread.
int parseBehind(ZEM_CfgHandle *h, const ReadProgress &done);

}  // namespace corvanta::cfg

#endif  // CORVANTA_CFG_PARSE_H
