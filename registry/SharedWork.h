#pragma once

#include <QtGlobal>

#include <atomic>
#include <functional>
#include <future>
#include <optional>
#include <utility>

// Work over the indexes [0, count) shared by one helper thread, which starts
// at once, and the calling thread, which joins in at finish(). Both take
// chunks until none is left, so a helper that starts late or is preempted
// holds up at most the chunk it took, and without a thread to spare the
// caller does it all. `work` runs once on each thread, taking ranges with the
// function it is given until that returns nothing; it must be safe on both
// threads at once for disjoint ranges.
class SharedWork {
public:
    using Range = std::pair<qsizetype, qsizetype>;  // begin, end
    using Take = std::function<std::optional<Range>()>;
    using Work = std::function<void(const Take &)>;

    // Below `minimum` the helper is not worth its start (some 0.05 ms).
    SharedWork(qsizetype count, qsizetype chunk, qsizetype minimum, Work work);
    ~SharedWork();  // finishes
    SharedWork(const SharedWork &) = delete;
    SharedWork &operator=(const SharedWork &) = delete;

    // Does the rest on this thread and waits for the helper's last chunk.
    void finish();

private:
    void run();

    const qsizetype _count, _chunk;
    const Work _work;
    std::atomic<qsizetype> _next{0};
    std::future<void> _helper;
    bool _finished = false;
};
