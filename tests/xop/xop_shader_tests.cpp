// The embedded shaders: shader model 4 DXBC containers whose checksum Windows would accept (Wine
// does not check it). A shader the device refuses is logged by Init, which the life-cycle suite checks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "xop/Shaders.h"

namespace {

uint32_t U32(const uint8_t* p) {
    uint32_t v;
    memcpy(&v, p, 4);
    return v;
}

// MD5 compression function (RFC 1321) on one 64-byte block.
void Md5Block(uint32_t s[4], const uint8_t* block) {
    static const int kShift[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
    uint32_t a = s[0], b = s[1], c = s[2], d = s[3];
    for (int i = 0; i < 64; ++i) {
        const int round = i / 16;
        const uint32_t f = round == 0 ? (b & c) | (~b & d) : round == 1 ? (d & b) | (~d & c) : round == 2 ? b ^ c ^ d
                                                                                                     : c ^ (b | ~d);
        const int g = round == 0 ? i : round == 1 ? (5 * i + 1) % 16 : round == 2 ? (3 * i + 5) % 16 : (7 * i) % 16;
        const uint32_t k = static_cast<uint32_t>(std::fabs(std::sin(i + 1.0)) * 4294967296.0);  // RFC 1321's table
        const uint32_t x = a + f + k + U32(block + 4 * g);
        const int r = kShift[round][i % 4];
        a = d;
        d = c;
        c = b;
        b += (x << r) | (x >> (32 - r));
    }
    s[0] += a, s[1] += b, s[2] += c, s[3] += d;
}

// The container checksum: MD5 over everything after the 20-byte header, with DXBC's own final block
// (bit count first, bits/4 | 1 last), against the one stored after the magic.
bool ChecksumMatches(const uint8_t* data, uint32_t size) {
    uint32_t s[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    const uint8_t* p = data + 20;
    const uint32_t length = size - 20, bits = length * 8, full = length / 64, rest = length % 64;
    for (uint32_t i = 0; i < full; ++i) Md5Block(s, p + i * 64);
    uint8_t last[64] = {};
    const uint32_t tail = (bits >> 2) | 1;
    if (rest >= 56) {
        memcpy(last, p + full * 64, rest);
        last[rest] = 0x80;
        Md5Block(s, last);
        memset(last, 0, sizeof(last));
    } else {
        memcpy(last + 4, p + full * 64, rest);
        last[4 + rest] = 0x80;
    }
    memcpy(last, &bits, 4);
    memcpy(last + 60, &tail, 4);
    Md5Block(s, last);
    return memcmp(s, data + 4, 16) == 0;
}

}  // namespace

TEST(Shaders, ContainersAreShaderModel4WithValidChecksum) {
    std::vector<const xop::ShaderCode*> all = {&xop::kQuadVertexShader};
    for (size_t i = 1; i < xop::kPixelShaders.size(); ++i) all.push_back(&xop::kPixelShaders[i]);
    for (const xop::ShaderCode* shader : all) {
        SCOPED_TRACE(shader->name);
        const uint8_t* p = static_cast<const uint8_t*>(shader->code);
        const uint32_t size = static_cast<uint32_t>(shader->size);
        ASSERT_GE(size, 32u);
        EXPECT_EQ(0, memcmp(p, "DXBC", 4));
        EXPECT_EQ(1u, U32(p + 20));    // container version
        EXPECT_EQ(size, U32(p + 24));  // total size
        uint32_t token = 0;  // SHDR's first: program type << 16 (0 pixel, 1 vertex), version 4.0
        for (uint32_t i = 0; i < U32(p + 28); ++i) {
            const uint32_t offset = U32(p + 32 + 4 * i);
            ASSERT_LE(offset + 12, size);
            if (memcmp(p + offset, "SHDR", 4) == 0) token = U32(p + offset + 8);
        }
        EXPECT_EQ(shader == all[0] ? 0x10040u : 0x40u, token);
        EXPECT_TRUE(ChecksumMatches(p, size));
    }
}
