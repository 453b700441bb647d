// Scoped per-handle locking for the library's C++ sources.
#ifndef CORVANTA_CFG_LOCK_H
#define CORVANTA_CFG_LOCK_H

#include "cfg/cfg.h"

namespace corvanta::cfg {

inline bool loaded(const ZEM_CfgHandle *h) {
    return h != nullptr && (h->flags & CFG_LOADED) != 0;
}

class Locked {
public:
    explicit Locked(ZEM_CfgHandle *h) : lock_(&h->lock) { pthread_mutex_lock(lock_); }
    ~Locked() { pthread_mutex_unlock(lock_); }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;

private:
    pthread_mutex_t *lock_;
};

}  // namespace corvanta::cfg

#endif  // CORVANTA_CFG_LOCK_H
