#include "SharedWork.h"

#include <algorithm>
#include <system_error>

SharedWork::SharedWork(qsizetype count, qsizetype chunk, qsizetype minimum, Work work)
    : _count(count), _chunk(std::max<qsizetype>(chunk, 1)), _work(std::move(work)) {
    if (count >= minimum) {
        try {
            _helper = std::async(std::launch::async, [this] { run(); });
        } catch (const std::system_error &) {
            // No thread to spare: finish() does it all.
        }
    }
}

SharedWork::~SharedWork() {
    finish();
}

void SharedWork::run() {
    _work([this]() -> std::optional<Range> {
        const qsizetype begin = _next.fetch_add(_chunk);
        if (begin >= _count) {
            return std::nullopt;
        }
        return Range{begin, std::min(begin + _chunk, _count)};
    });
}

void SharedWork::finish() {
    if (std::exchange(_finished, true)) {
        return;
    }
    run();
    if (_helper.valid()) {
        _helper.get();
    }
}
