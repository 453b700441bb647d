// MD5 after RFC 1321, tuned for throughput: the 64 steps are unrolled with
// their constants inlined, and whole blocks are hashed straight from the
// caller's buffer without copying.
#include "cfg/md5.h"

#include <bit>
#include <cstddef>
#include <cstring>

namespace {

inline uint32_t load32(const unsigned char *p) {
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    if constexpr (std::endian::native == std::endian::big) {
        v = __builtin_bswap32(v);
    }
    return v;
}

inline void store32(unsigned char *p, uint32_t v) {
    if constexpr (std::endian::native == std::endian::big) {
        v = __builtin_bswap32(v);
    }
    std::memcpy(p, &v, sizeof v);
}

// Round functions in the forms that need the fewest dependent operations.
// G's two terms never share a bit, so they can be added separately, which
// shortens the chain through b.
#define MD5_F(b, c, d) ((((c) ^ (d)) & (b)) ^ (d))
#define MD5_H(b, c, d) ((b) ^ (c) ^ (d))
#define MD5_I(b, c, d) ((c) ^ ((b) | ~(d)))

#define MD5_STEP(f, a, b, c, d, x, t, s) \
    a += (x) + (t);                      \
    a += f(b, c, d);                     \
    a = std::rotl(a, s) + (b);

#define MD5_STEP_G(a, b, c, d, x, t, s) \
    a += (x) + (t);                     \
    a += ~(d) & (c);                    \
    a += (d) & (b);                     \
    a = std::rotl(a, s) + (b);

// Message words are loaded where they are used: preloading all sixteen
// makes some compilers spill them to the stack.
#define X(i) load32(p + 4 * (i))

void md5Blocks(uint32_t state[4], const unsigned char *p, size_t blocks) {
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    for (; blocks > 0; --blocks, p += 64) {
        const uint32_t aa = a, bb = b, cc = c, dd = d;

        MD5_STEP(MD5_F, a, b, c, d, X(0), 0xd76aa478u, 7)
        MD5_STEP(MD5_F, d, a, b, c, X(1), 0xe8c7b756u, 12)
        MD5_STEP(MD5_F, c, d, a, b, X(2), 0x242070dbu, 17)
        MD5_STEP(MD5_F, b, c, d, a, X(3), 0xc1bdceeeu, 22)
        MD5_STEP(MD5_F, a, b, c, d, X(4), 0xf57c0fafu, 7)
        MD5_STEP(MD5_F, d, a, b, c, X(5), 0x4787c62au, 12)
        MD5_STEP(MD5_F, c, d, a, b, X(6), 0xa8304613u, 17)
        MD5_STEP(MD5_F, b, c, d, a, X(7), 0xfd469501u, 22)
        MD5_STEP(MD5_F, a, b, c, d, X(8), 0x698098d8u, 7)
        MD5_STEP(MD5_F, d, a, b, c, X(9), 0x8b44f7afu, 12)
        MD5_STEP(MD5_F, c, d, a, b, X(10), 0xffff5bb1u, 17)
        MD5_STEP(MD5_F, b, c, d, a, X(11), 0x895cd7beu, 22)
        MD5_STEP(MD5_F, a, b, c, d, X(12), 0x6b901122u, 7)
        MD5_STEP(MD5_F, d, a, b, c, X(13), 0xfd987193u, 12)
        MD5_STEP(MD5_F, c, d, a, b, X(14), 0xa679438eu, 17)
        MD5_STEP(MD5_F, b, c, d, a, X(15), 0x49b40821u, 22)

        MD5_STEP_G(a, b, c, d, X(1), 0xf61e2562u, 5)
        MD5_STEP_G(d, a, b, c, X(6), 0xc040b340u, 9)
        MD5_STEP_G(c, d, a, b, X(11), 0x265e5a51u, 14)
        MD5_STEP_G(b, c, d, a, X(0), 0xe9b6c7aau, 20)
        MD5_STEP_G(a, b, c, d, X(5), 0xd62f105du, 5)
        MD5_STEP_G(d, a, b, c, X(10), 0x02441453u, 9)
        MD5_STEP_G(c, d, a, b, X(15), 0xd8a1e681u, 14)
        MD5_STEP_G(b, c, d, a, X(4), 0xe7d3fbc8u, 20)
        MD5_STEP_G(a, b, c, d, X(9), 0x21e1cde6u, 5)
        MD5_STEP_G(d, a, b, c, X(14), 0xc33707d6u, 9)
        MD5_STEP_G(c, d, a, b, X(3), 0xf4d50d87u, 14)
        MD5_STEP_G(b, c, d, a, X(8), 0x455a14edu, 20)
        MD5_STEP_G(a, b, c, d, X(13), 0xa9e3e905u, 5)
        MD5_STEP_G(d, a, b, c, X(2), 0xfcefa3f8u, 9)
        MD5_STEP_G(c, d, a, b, X(7), 0x676f02d9u, 14)
        MD5_STEP_G(b, c, d, a, X(12), 0x8d2a4c8au, 20)

        MD5_STEP(MD5_H, a, b, c, d, X(5), 0xfffa3942u, 4)
        MD5_STEP(MD5_H, d, a, b, c, X(8), 0x8771f681u, 11)
        MD5_STEP(MD5_H, c, d, a, b, X(11), 0x6d9d6122u, 16)
        MD5_STEP(MD5_H, b, c, d, a, X(14), 0xfde5380cu, 23)
        MD5_STEP(MD5_H, a, b, c, d, X(1), 0xa4beea44u, 4)
        MD5_STEP(MD5_H, d, a, b, c, X(4), 0x4bdecfa9u, 11)
        MD5_STEP(MD5_H, c, d, a, b, X(7), 0xf6bb4b60u, 16)
        MD5_STEP(MD5_H, b, c, d, a, X(10), 0xbebfbc70u, 23)
        MD5_STEP(MD5_H, a, b, c, d, X(13), 0x289b7ec6u, 4)
        MD5_STEP(MD5_H, d, a, b, c, X(0), 0xeaa127fau, 11)
        MD5_STEP(MD5_H, c, d, a, b, X(3), 0xd4ef3085u, 16)
        MD5_STEP(MD5_H, b, c, d, a, X(6), 0x04881d05u, 23)
        MD5_STEP(MD5_H, a, b, c, d, X(9), 0xd9d4d039u, 4)
        MD5_STEP(MD5_H, d, a, b, c, X(12), 0xe6db99e5u, 11)
        MD5_STEP(MD5_H, c, d, a, b, X(15), 0x1fa27cf8u, 16)
        MD5_STEP(MD5_H, b, c, d, a, X(2), 0xc4ac5665u, 23)

        MD5_STEP(MD5_I, a, b, c, d, X(0), 0xf4292244u, 6)
        MD5_STEP(MD5_I, d, a, b, c, X(7), 0x432aff97u, 10)
        MD5_STEP(MD5_I, c, d, a, b, X(14), 0xab9423a7u, 15)
        MD5_STEP(MD5_I, b, c, d, a, X(5), 0xfc93a039u, 21)
        MD5_STEP(MD5_I, a, b, c, d, X(12), 0x655b59c3u, 6)
        MD5_STEP(MD5_I, d, a, b, c, X(3), 0x8f0ccc92u, 10)
        MD5_STEP(MD5_I, c, d, a, b, X(10), 0xffeff47du, 15)
        MD5_STEP(MD5_I, b, c, d, a, X(1), 0x85845dd1u, 21)
        MD5_STEP(MD5_I, a, b, c, d, X(8), 0x6fa87e4fu, 6)
        MD5_STEP(MD5_I, d, a, b, c, X(15), 0xfe2ce6e0u, 10)
        MD5_STEP(MD5_I, c, d, a, b, X(6), 0xa3014314u, 15)
        MD5_STEP(MD5_I, b, c, d, a, X(13), 0x4e0811a1u, 21)
        MD5_STEP(MD5_I, a, b, c, d, X(4), 0xf7537e82u, 6)
        MD5_STEP(MD5_I, d, a, b, c, X(11), 0xbd3af235u, 10)
        MD5_STEP(MD5_I, c, d, a, b, X(2), 0x2ad7d2bbu, 15)
        MD5_STEP(MD5_I, b, c, d, a, X(9), 0xeb86d391u, 21)

        a += aa;
        b += bb;
        c += cc;
        d += dd;
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
}

}  // namespace

extern "C" void ZEM_MD5Init(ZEM_MD5Context *ctx) {
    ctx->state[0] = 0x67452301u;
    ctx->state[1] = 0xefcdab89u;
    ctx->state[2] = 0x98badcfeu;
    ctx->state[3] = 0x10325476u;
    ctx->length = 0;
}

extern "C" void ZEM_MD5Update(ZEM_MD5Context *ctx, const void *bytes, uint32_t len) {
    auto p = static_cast<const unsigned char *>(bytes);
    size_t rest = len;
    const size_t used = ctx->length & 63;
    ctx->length += len;
    if (used != 0) {
        const size_t take = rest < 64 - used ? rest : 64 - used;
        std::memcpy(ctx->pending + used, p, take);
        if (used + take < 64) {
            return;
        }
        md5Blocks(ctx->state, ctx->pending, 1);
        p += take;
        rest -= take;
    }
    if (rest >= 64) {
        md5Blocks(ctx->state, p, rest / 64);
        p += rest & ~size_t{63};
        rest &= 63;
    }
    if (rest != 0) {
        std::memcpy(ctx->pending, p, rest);
    }
}

extern "C" void ZEM_MD5Final(unsigned char digest[16], ZEM_MD5Context *ctx) {
    const uint64_t bits = ctx->length * 8;
    size_t used = ctx->length & 63;
    ctx->pending[used++] = 0x80;
    if (used > 56) {
        std::memset(ctx->pending + used, 0, 64 - used);
        md5Blocks(ctx->state, ctx->pending, 1);
        used = 0;
    }
    std::memset(ctx->pending + used, 0, 56 - used);
    store32(ctx->pending + 56, static_cast<uint32_t>(bits));
    store32(ctx->pending + 60, static_cast<uint32_t>(bits >> 32));
    md5Blocks(ctx->state, ctx->pending, 1);
    for (int i = 0; i < 4; ++i) {
        store32(digest + 4 * i, ctx->state[i]);
    }
    std::memset(ctx, 0, sizeof *ctx);
}
