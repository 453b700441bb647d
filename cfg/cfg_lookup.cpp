// Walking and searching the entries of a loaded image.
#include "cfg/cfg_internal.h"
#include "cfg/cfg_lock.h"

using corvanta::cfg::loaded;
using corvanta::cfg::Locked;

namespace {

// One step of the walk; comment lines and keys without a value are passed
// over. The section stays set: it names the section the walk is in.
int step(ZEM_CfgHandle *h) {
    h->flags &= static_cast<uint16_t>(~CFG_KIND_MASK);
    h->id = nullptr;
    h->value = nullptr;
    while (h->cursor < h->entryCount) {
        const ZEM_CfgEntry &e = h->entries[h->cursor++];
        unsigned kind = 0;
        if (e.section != nullptr) {
            h->section = e.section;
            kind = CFG_KIND_SECTION;
        } else if (e.value != nullptr) {
            h->value = e.value;
            h->id = e.id;
            kind = e.id != nullptr ? CFG_KIND_KEY : CFG_KIND_VALUE;
        }
        if (kind != 0) {
            h->flags = static_cast<uint16_t>(h->flags | kind);
            return 0;
        }
    }
    h->flags |= CFG_AT_END;
    return -1;
}

unsigned kindOf(const ZEM_CfgHandle *h) {
    return h->flags & CFG_KIND_MASK;
}

}  // namespace

extern "C" int ZEM_Cfg_rewind(ZEM_CfgHandle *h) {
    if (!loaded(h)) {
        return -1;
    }
    Locked guard(h);
    h->flags = CFG_LOADED;
    h->cursor = 0;
    return 0;
}

extern "C" int ZEM_Cfg_nextentry(ZEM_CfgHandle *h) {
    if (!loaded(h)) {
        return -1;
    }
    Locked guard(h);
    if ((h->flags & (CFG_LOADED | CFG_AT_END)) != CFG_LOADED) {
        return -1;
    }
    return step(h);
}

extern "C" int ZEM_Cfg_find(ZEM_CfgHandle *h, const char *section, const char *id) {
    if (!loaded(h) || section == nullptr) {
        return -1;
    }
    Locked guard(h);
    h->flags = CFG_LOADED;
    h->cursor = 0;
    bool inside = false;
    while (step(h) == 0) {
        const unsigned kind = kindOf(h);
        if (!inside) {
            if (kind == CFG_KIND_SECTION && stricmp(h->section, section) == 0) {
                if (id == nullptr) {
                    return 0;
                }
                inside = true;
            }
        } else if (kind == CFG_KIND_SECTION) {
            return -1;  // only the first section of that name is searched
        } else if (kind == CFG_KIND_KEY && stricmp(h->id, id) == 0) {
            return 0;
        }
    }
    return -1;
}

extern "C" int ZEM_Cfg_refresh(ZEM_CfgHandle *h) {
    if (h == nullptr) {
        return -1;
    }
    Locked guard(h);
    return _cfg_refresh(h);
}
