/*
 * Operations shared by the library's own sources, the tests and the fuzzer.
 * Not part of the public interface.
 */
#ifndef CORVANTA_CFG_INTERNAL_H
#define CORVANTA_CFG_INTERNAL_H

#include <stdint.h>

#include "cfg/cfg.h"
#include "cfg/md5.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Largest file the library loads: the digest length is 32-bit, so bigger
 * files are refused rather than digested partially. */
#define CFG_MAX_FILE_SIZE 0xFFFFFFFFu

/* Re-reads handle->path when it changed: 1 parsed anew, 0 image current,
 * -1 failure (the old image stays unless parsing itself failed). Drops
 * uncommitted edits first. Takes no lock. */
int _cfg_refresh(ZEM_CfgHandle *handle);

/* Frees the text and the entries and resets every field but path and lock. */
void _cfg_freeimage(ZEM_CfgHandle *handle);

/* Parses handle->text (textSize bytes plus a NUL) into entries pointing into
 * the text. The first NUL ends the text. 0, or -1 when memory runs out. */
int _cfg_parse(ZEM_CfgHandle *handle);

/* Appends n uninitialised entries and returns the first, or null (nothing
 * changed) when memory runs out. A count that wraps lowers entryCount. */
ZEM_CfgEntry *_cfg_poolalloc(ZEM_CfgHandle *handle, uint32_t n);

/* Makes room for n more entries without changing entryCount. 0 or -1. */
int _cfg_poolreserve(ZEM_CfgHandle *handle, uint32_t n);

/* Frees the strings the entry owns; pointers and bits stay as they were. */
void _cfg_freeent(ZEM_CfgEntry *entry);

/* Makes dst an owning deep copy of src. Returns -1 if a copy failed; dst then
 * holds null strings with their bits set, which frees harmlessly. */
int _cfg_copyent(ZEM_CfgEntry *dst, const ZEM_CfgEntry *src);

/* Blank set, NUL included (it stands for the end of a line). */
static inline int _cfg_isblank(char c) {
    return c == ' ' || c == '\t' || c == '\f' || c == '\0';
}

/* A comment-only entry that belongs to the header or key below it. */
static inline int _cfg_isattached(const ZEM_CfgEntry *e) {
    return !e->section && !e->id && !e->value && e->comment &&
           (e->comment[0] == ';' || _cfg_isblank(e->comment[0]));
}

#ifdef __cplusplus
}
#endif

#endif /* CORVANTA_CFG_INTERNAL_H */
