/*
 * MD5 message digest (RFC 1321), used by the configuration library to tell
 * whether a file's contents changed. Callable from C and C++.
 */
#ifndef CORVANTA_CFG_MD5_H
#define CORVANTA_CFG_MD5_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ZEM_MD5Context {
    uint32_t state[4];
    uint64_t length;           /* bytes hashed so far */
    unsigned char pending[64]; /* start of an incomplete block */
} ZEM_MD5Context;

void ZEM_MD5Init(ZEM_MD5Context *ctx);

/* Adds len bytes; bytes may be null when len is 0. */
void ZEM_MD5Update(ZEM_MD5Context *ctx, const void *bytes, uint32_t len);

/* Writes the digest and wipes the context; call ZEM_MD5Init to reuse it. */
void ZEM_MD5Final(unsigned char digest[16], ZEM_MD5Context *ctx);

#ifdef __cplusplus
}
#endif

#endif /* CORVANTA_CFG_MD5_H */
