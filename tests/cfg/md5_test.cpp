#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "cfg/md5.h"

namespace {

std::string hex(const unsigned char *d) {
    static const char digits[] = "0123456789abcdef";
    std::string s;
    for (int i = 0; i < 16; ++i) {
        s += digits[d[i] >> 4];
        s += digits[d[i] & 15];
    }
    return s;
}

std::string md5Hex(const std::string &text) {
    ZEM_MD5Context ctx;
    ZEM_MD5Init(&ctx);
    ZEM_MD5Update(&ctx, text.data(), static_cast<uint32_t>(text.size()));
    unsigned char d[16];
    ZEM_MD5Final(d, &ctx);
    return hex(d);
}

std::string referenceHex(const unsigned char *data, size_t len) {
    unsigned char d[EVP_MAX_MD_SIZE];
    unsigned int n = 0;
    EXPECT_EQ(EVP_Digest(data, len, d, &n, EVP_md5(), nullptr), 1);
    EXPECT_EQ(n, 16u);
    return hex(d);
}

TEST(Md5, MatchesTheTestSuiteOfTheRfc) {
    EXPECT_EQ(md5Hex(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5Hex("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(md5Hex("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5Hex("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(md5Hex("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(md5Hex("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    EXPECT_EQ(md5Hex("1234567890123456789012345678901234567890"
                     "1234567890123456789012345678901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5, AgreesWithOpenSslOnRandomInputInRandomChunks) {
    std::mt19937 rng(20240611);
    for (int round = 0; round < 200; ++round) {
        // Lengths around the 55/56/64-byte padding edges and a few long inputs.
        const size_t len = round < 130 ? static_cast<size_t>(round) : rng() % 20000;
        std::vector<unsigned char> data(len);
        for (auto &b : data) {
            b = static_cast<unsigned char>(rng());
        }
        ZEM_MD5Context ctx;
        ZEM_MD5Init(&ctx);
        size_t done = 0;
        while (done < len) {
            const size_t chunk = std::min<size_t>(len - done, rng() % 150);
            ZEM_MD5Update(&ctx, data.data() + done, static_cast<uint32_t>(chunk));
            done += chunk;
        }
        unsigned char d[16];
        ZEM_MD5Final(d, &ctx);
        ASSERT_EQ(hex(d), referenceHex(data.data(), len)) << "length " << len;
    }
}

TEST(Md5, UnalignedInputGivesTheSameDigest) {
    std::vector<unsigned char> buf(4096 + 8);
    for (size_t i = 0; i < buf.size(); ++i) {
        buf[i] = static_cast<unsigned char>(i * 7);
    }
    for (size_t offset = 0; offset < 8; ++offset) {
        ZEM_MD5Context ctx;
        ZEM_MD5Init(&ctx);
        ZEM_MD5Update(&ctx, buf.data() + offset, 4096);
        unsigned char d[16];
        ZEM_MD5Final(d, &ctx);
        EXPECT_EQ(hex(d), referenceHex(buf.data() + offset, 4096)) << "offset " << offset;
    }
}

}  // namespace
