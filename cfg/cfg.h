/*
 * INI-style configuration files: an in-memory image of one file with change
 * detection, lookup, enumeration, editing and committing.
 *
 * Callable from C and C++. Every function returns int: 0 for success, -1 for
 * failure, and ZEM_Cfg_refresh also 1 when the file was read and parsed anew.
 * Nothing here logs, and nothing ends the process; failures set errno.
 *
 * Strings: every char pointer reachable through a handle (its section, id and
 * value fields and the strings of its entries) belongs to the library. It
 * stays valid until the next operation that re-parses or edits the image
 * (ZEM_Cfg_refresh returning 1, ZEM_Cfg_write, ZEM_Cfg_storeentry, cfg_merge)
 * or until ZEM_Cfg_done. Callers copy what they keep. ZEM_Cfg_refresh
 * returning 0 leaves every pointer valid.
 *
 * Threads: each handle has its own mutex; lookup and editing operations hold
 * it for their whole run. Opening and closing do not: a handle must not be
 * closed while another thread uses it. A walk of several steps is not atomic.
 *
 * Descriptors: every file the library opens is close-on-exec.
 */
#ifndef CORVANTA_CFG_H
#define CORVANTA_CFG_H

#include <pthread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Handle state word (ZEM_CfgHandle.flags). */
#define CFG_LOADED 0x8000u /* an image is loaded; the handle may be used */
#define CFG_AT_END 0x4000u /* the last step or lookup ran off the end */
#define CFG_KIND_MASK 0x000Fu
#define CFG_KIND_SECTION 1u /* kind of the entry the last step stopped at */
#define CFG_KIND_KEY 2u
#define CFG_KIND_VALUE 3u

/* Entry ownership bits (ZEM_CfgEntry.flags): set when the string is a private
 * heap copy freed with the entry. Clear: it points into the handle's text or
 * into memory the caller keeps alive (ZEM_Cfg_storeentry without copying). */
#define CFG_OWNS_SECTION 0x8000u
#define CFG_OWNS_ID 0x4000u
#define CFG_OWNS_VALUE 0x2000u
#define CFG_OWNS_COMMENT 0x1000u

/* One meaningful line of the file. Which strings are set tells the kind:
 * section header (section, optional comment), key line (id and value,
 * optional comment), value line (value only: an indented line), comment
 * line (comment only, without its leading ';'). Any pointer may be null. */
typedef struct ZEM_CfgEntry {
    char *section;
    char *id;
    char *value;
    char *comment;
    uint16_t flags;
} ZEM_CfgEntry;

/* An open configuration file. Callers read section, id, value and flags
 * directly after a successful ZEM_Cfg_nextentry or ZEM_Cfg_find; every other
 * field is the library's. */
typedef struct ZEM_CfgHandle {
    char *path;               /* private copy of the path given at opening */
    int32_t modified;         /* nonzero while edits are not yet committed */
    char *text;               /* file bytes as last read, NUL-terminated */
    int64_t textSize;         /* file size when text was read */
    int64_t textTime;         /* modification time (seconds) when text was read */
    unsigned char digest[16]; /* MD5 of the bytes last read or committed */
    uint32_t entryCount;
    uint32_t entryCapacity;
    ZEM_CfgEntry *entries;
    uint32_t cursor; /* next entry an enumeration step examines */
    char *section;   /* current section name (borrowed) */
    char *id;        /* current key (borrowed) */
    char *value;     /* current value (borrowed) */
    uint16_t flags;  /* CFG_LOADED, CFG_AT_END, CFG_KIND_* */
    pthread_mutex_t lock;
} ZEM_CfgHandle;

/* Opens path into a new handle stored in *out (null on failure).
 * Returns 0, or -1 when the file is missing or unreadable, is not a regular
 * file (FIFOs, devices, sockets and directories are refused without blocking),
 * is 4 GiB or larger, or memory runs out; nothing stays allocated on failure.
 * The caller owns the handle and releases it with ZEM_Cfg_done. Same as
 * ZEM_Cfg_init2 with create 0. */
int ZEM_Cfg_init(ZEM_CfgHandle **out, const char *path);

/* As ZEM_Cfg_init; with create nonzero a missing file is first created empty. */
int ZEM_Cfg_init2(ZEM_CfgHandle **out, const char *path, int create);

/* Frees the handle and everything it owns without writing pending edits.
 * Accepts null. Always returns 0. */
int ZEM_Cfg_done(ZEM_CfgHandle *handle);

/* Re-reads the file if its size or time changed and its digest differs.
 * Uncommitted edits are discarded. Returns 1 when parsed anew (the walk is
 * reset and earlier strings are invalid), 0 when the image is still current,
 * -1 on failure or a null handle. A file that is missing, unreadable, not
 * regular or 4 GiB or larger fails before anything changes: the old image
 * stays. Works on an unloaded handle too. */
int ZEM_Cfg_refresh(ZEM_CfgHandle *handle);

/* Restarts the walk at the first entry. 0, or -1 for a null/unloaded handle. */
int ZEM_Cfg_rewind(ZEM_CfgHandle *handle);

/* Steps to the next section header, key or value line (comments are passed
 * over) and sets section/id/value and the kind in flags. Returns 0, or -1 at
 * or after the end (CFG_AT_END set) and for a null/unloaded handle. */
int ZEM_Cfg_nextentry(ZEM_CfgHandle *handle);

/* Finds the first section named section (case-insensitive); with id null the
 * handle stands on its header, else on the first key id inside that section
 * only. Returns 0 when found, -1 otherwise (also for a null section). */
int ZEM_Cfg_find(ZEM_CfgHandle *handle, const char *section, const char *id);

/* Edits the image: id and value set or add a key (adding the section when
 * missing), value null deletes the key, id null deletes the section, each
 * with its attached comments. Strings are copied. Returns 0 (also when there
 * was nothing to delete), -1 for a null section, an unloaded handle or
 * memory exhaustion. */
int ZEM_Cfg_write(ZEM_CfgHandle *handle, const char *section, const char *id, const char *value);

/* Appends one raw entry. With copy nonzero the strings are copied; with copy
 * zero the pointers are stored and the caller must keep them alive for as
 * long as the handle holds them. Does not mark the handle modified.
 * Returns 0, or -1 for an unloaded handle or memory exhaustion (then nothing
 * is appended). */
int ZEM_Cfg_storeentry(ZEM_CfgHandle *handle, const char *section, const char *id,
                       const char *value, const char *comment, int copy);

/* Merges every section of source into handle: new sections are appended,
 * keys of existing sections replaced with their value lines or added. Only
 * handle is locked; source must be left alone meanwhile. Returns 0, or -1
 * for a null or unloaded handle or source, a source that is the handle
 * itself, or memory exhaustion: before any change when room for the merge
 * cannot be reserved, after a partial merge (handle modified) when a string
 * copy fails. Otherwise always marks handle modified. */
int cfg_merge(ZEM_CfgHandle *handle, ZEM_CfgHandle *source);

/* Writes the image to the file when it is modified and records the digest of
 * what it wrote, so the next refresh recognises the file. Lines of any length
 * are written whole.
 *
 * The new text goes to a temporary file beside the target (".NAME.XXXXXX",
 * close-on-exec), which is flushed to disk and renamed over the target: a
 * reader sees the old file or the new one, and a crash at any moment leaves
 * one of them (and possibly the temporary file). When the path is a symbolic
 * link, the file it finally names is replaced and the links stay. The new
 * file keeps the old one's permission bits and owner where the file system
 * and the caller's rights allow, else it has mode 0600 and the caller as
 * owner; so has a target that no longer exists.
 *
 * When no file can be made beside the target (a directory the caller may not
 * write, holding a file they may), the file is rewritten in place instead.
 * That is not atomic: a reader may see a mix, and a crash may leave one. On a
 * failed write the old bytes are put back as far as the disk allows.
 *
 * Returns 0 when written or nothing was modified. Returns -1 with errno set
 * for a null or unloaded handle, memory exhaustion, a text of 4 GiB or more
 * (EFBIG) or any failure to make, write, flush or rename the file; the
 * target is then left as it was, no temporary file remains and the handle
 * stays modified, so a later commit may succeed. */
int ZEM_Cfg_commit(ZEM_CfgHandle *handle);

/* Removes trailing white space (C locale isspace) in place. Returns the
 * address of the last character kept, or null for a null, empty or
 * all-blank string (which becomes empty). */
char *rtrim(char *s);

/* Case-insensitive comparison after toupper; neither argument may be null.
 * Returns the difference at the first mismatch, -1 when only the first
 * string ended, 0 when equal. */
int stricmp(const char *a, const char *b);

#ifdef __cplusplus
}
#endif

#endif /* CORVANTA_CFG_H */
