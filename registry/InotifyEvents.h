#pragma once

#include <sys/inotify.h>
#include <sys/types.h>
#include <unistd.h>

// Hands each queued event of a non-blocking inotify descriptor to take(), for
// at most 64 buffers: a flood is finished on the notifier's next activation
// instead of holding up the event loop.
template <typename Take>
void readInotifyEvents(int fd, Take take) {
    alignas(struct inotify_event) char buffer[8192];
    for (int round = 0; round < 64; ++round) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0) {
            return;
        }
        for (ssize_t at = 0; at + ssize_t(sizeof(inotify_event)) <= n;) {
            const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
            at += ssize_t(sizeof(inotify_event)) + event->len;
            take(*event);
        }
    }
}
