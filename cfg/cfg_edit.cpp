// Editing the image: setting, adding and deleting keys and sections, raw
// appends and merging. Entries move by index with one block move per edit;
// nothing here holds a pointer into the array across a reallocation.
#include <cstdlib>
#include <cstring>

#include "cfg/cfg_internal.h"
#include "cfg/cfg_lock.h"

using corvanta::cfg::loaded;
using corvanta::cfg::Locked;

namespace {

using Index = uint32_t;

// First section header at or after from whose name matches (any header
// when name is null); entryCount when there is none.
Index findHeader(const ZEM_CfgEntry *entries, Index count, Index from, const char *name) {
    for (Index i = from; i < count; ++i) {
        if (entries[i].section != nullptr &&
            (name == nullptr || stricmp(entries[i].section, name) == 0)) {
            return i;
        }
    }
    return count;
}

Index nextHeader(const ZEM_CfgHandle *h, Index from) {
    return findHeader(h->entries, h->entryCount, from, nullptr);
}

// First key named id in [from, to); to when there is none.
Index findKey(const ZEM_CfgHandle *h, Index from, Index to, const char *id) {
    for (Index i = from; i < to; ++i) {
        if (h->entries[i].id != nullptr && stricmp(h->entries[i].id, id) == 0) {
            return i;
        }
    }
    return to;
}

// Extends a range starting at i backwards over the comments attached to it.
Index withAttachedComments(const ZEM_CfgHandle *h, Index i) {
    while (i > 0 && _cfg_isattached(&h->entries[i - 1])) {
        --i;
    }
    return i;
}

// Replaces the removed entries at `at` by n uninitialised ones and returns
// the first of those.
ZEM_CfgEntry *splice(ZEM_CfgHandle *h, Index at, Index removed, Index n) {
    if (n > removed && _cfg_poolreserve(h, n - removed) != 0) {
        return nullptr;
    }
    ZEM_CfgEntry *e = h->entries;
    for (Index i = at; i < at + removed; ++i) {
        _cfg_freeent(&e[i]);
    }
    const Index tail = h->entryCount - at - removed;
    std::memmove(e + at + n, e + at + removed, tail * sizeof(ZEM_CfgEntry));
    h->entryCount = h->entryCount - removed + n;
    return e + at;
}

void removeRange(ZEM_CfgHandle *h, Index from, Index to) {
    splice(h, from, to - from, 0);
}

// A new key entry owning copies of id and value, or -1 with nothing changed.
int insertKey(ZEM_CfgHandle *h, Index at, const char *id, const char *value) {
    char *idCopy = strdup(id);
    char *valueCopy = strdup(value);
    ZEM_CfgEntry *e = idCopy && valueCopy ? splice(h, at, 0, 1) : nullptr;
    if (e == nullptr) {
        std::free(idCopy);
        std::free(valueCopy);
        return -1;
    }
    *e = ZEM_CfgEntry{nullptr, idCopy, valueCopy, nullptr, CFG_OWNS_ID | CFG_OWNS_VALUE};
    h->modified = 1;
    return 0;
}

int appendSection(ZEM_CfgHandle *h, const char *section, const char *id, const char *value) {
    if (_cfg_poolreserve(h, 2) != 0) {
        return -1;
    }
    char *sectionCopy = strdup(section);
    if (sectionCopy == nullptr || insertKey(h, h->entryCount, id, value) != 0) {
        std::free(sectionCopy);
        return -1;
    }
    ZEM_CfgEntry *header = splice(h, h->entryCount - 1, 0, 1);  // room was reserved
    *header = ZEM_CfgEntry{sectionCopy, nullptr, nullptr, nullptr, CFG_OWNS_SECTION};
    return 0;
}

int replaceValue(ZEM_CfgHandle *h, ZEM_CfgEntry *e, const char *value) {
    h->modified = 1;
    char *copy = strdup(value);  // before freeing: value may be the old one
    if (copy == nullptr) {
        return -1;
    }
    if (e->flags & CFG_OWNS_VALUE) {
        std::free(e->value);
    }
    e->value = copy;
    e->flags |= CFG_OWNS_VALUE;
    return 0;
}

int copyEntries(ZEM_CfgEntry *dst, const ZEM_CfgEntry *src, Index n) {
    int rc = 0;
    for (Index i = 0; i < n; ++i) {
        rc |= _cfg_copyent(&dst[i], &src[i]);
    }
    return rc;
}

// Merges one source section (header and body, n entries) into h.
int mergeGroup(ZEM_CfgHandle *h, const ZEM_CfgEntry *group, Index n) {
    const Index target = findHeader(h->entries, h->entryCount, 0, group[0].section);
    if (target == h->entryCount) {
        ZEM_CfgEntry *e = splice(h, h->entryCount, 0, n);
        return e != nullptr ? copyEntries(e, group, n) : -1;
    }
    int rc = 0;
    Index run = 1;
    while (run < n && group[run].id == nullptr) {
        ++run;  // what precedes the group's first key is not merged
    }
    while (run < n) {
        Index runEnd = run + 1;
        while (runEnd < n && group[runEnd].id == nullptr) {
            ++runEnd;
        }
        const Index bodyEnd = nextHeader(h, target + 1);
        Index at = findKey(h, target + 1, bodyEnd, group[run].id);
        Index removed = 0;
        if (at == bodyEnd) {
            removed = 0;
        } else {
            // The old run: the key and what follows it up to the next key or header.
            while (at + removed + 1 < h->entryCount &&
                   h->entries[at + removed + 1].section == nullptr &&
                   h->entries[at + removed + 1].id == nullptr) {
                ++removed;
            }
            ++removed;
        }
        ZEM_CfgEntry *e = splice(h, at, removed, runEnd - run);
        rc |= e != nullptr ? copyEntries(e, group + run, runEnd - run) : -1;
        run = runEnd;
    }
    return rc;
}

}  // namespace

extern "C" int ZEM_Cfg_write(ZEM_CfgHandle *h, const char *section, const char *id,
                             const char *value) {
    if (!loaded(h) || section == nullptr) {
        return -1;
    }
    Locked guard(h);
    const Index header = findHeader(h->entries, h->entryCount, 0, section);
    if (header == h->entryCount) {
        return id && value ? appendSection(h, section, id, value) : 0;
    }
    const Index bodyEnd = nextHeader(h, header + 1);
    if (id == nullptr) {
        // Comments closing the body lead into the next section and stay.
        Index end = bodyEnd;
        while (end > header + 1 && _cfg_isattached(&h->entries[end - 1])) {
            --end;
        }
        removeRange(h, withAttachedComments(h, header), end);
        h->modified = 1;
        return 0;
    }
    const Index key = findKey(h, header + 1, bodyEnd, id);
    if (value == nullptr) {
        if (key != bodyEnd) {
            // The key's value lines stay where they are.
            removeRange(h, withAttachedComments(h, key), key + 1);
            h->modified = 1;
        }
        return 0;
    }
    if (key != bodyEnd) {
        return replaceValue(h, &h->entries[key], value);
    }
    return insertKey(h, bodyEnd, id, value);
}

extern "C" int ZEM_Cfg_storeentry(ZEM_CfgHandle *h, const char *section, const char *id,
                                  const char *value, const char *comment, int copy) {
    if (!loaded(h)) {
        return -1;
    }
    Locked guard(h);
    ZEM_CfgEntry raw{const_cast<char *>(section), const_cast<char *>(id), const_cast<char *>(value),
                     const_cast<char *>(comment), 0};
    ZEM_CfgEntry *e = _cfg_poolalloc(h, 1);
    if (e == nullptr) {
        return -1;
    }
    if (!copy) {
        *e = raw;
        return 0;
    }
    if (_cfg_copyent(e, &raw) != 0) {
        _cfg_freeent(e);
        --h->entryCount;
        return -1;
    }
    return 0;
}

extern "C" int cfg_merge(ZEM_CfgHandle *h, ZEM_CfgHandle *source) {
    if (!loaded(h) || !loaded(source) || source == h) {
        return -1;
    }
    Locked guard(h);
    const ZEM_CfgEntry *src = source->entries;
    const Index count = source->entryCount;
    Index group = findHeader(src, count, 0, nullptr);
    // Room for the worst case up front: a failure then changes nothing, and
    // no group's insertions reallocate the array.
    if (_cfg_poolreserve(h, count - group) != 0) {
        return -1;
    }
    h->modified = 1;
    int rc = 0;
    while (group < count) {
        const Index end = findHeader(src, count, group + 1, nullptr);
        rc |= mergeGroup(h, src + group, end - group);
        group = end;
    }
    return rc;
}
