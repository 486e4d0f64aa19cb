// The embedded shaders: well-formed shader model 4 DXBC containers whose
// checksum Windows would accept. (That the device makes them is shown by
// every renderer test: a failure there logs and draws nothing.)
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <set>
#include <string>

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

// The container checksum: MD5 over everything after the 20-byte header,
// with DXBC's own final block (bit count first, bits/4 | 1 last).
void DxbcChecksum(const uint8_t* data, uint32_t size, uint32_t out[4]) {
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
    memcpy(out, s, 16);
}

struct Shader {
    const xop::ShaderCode* code;
    bool vertex;
};

std::vector<Shader> AllShaders() {
    std::vector<Shader> all = {{&xop::kQuadVertexShader, true}};
    for (size_t i = 1; i < xop::kPixelShaders.size(); ++i) all.push_back({&xop::kPixelShaders[i], false});
    return all;
}

}  // namespace

TEST(Shaders, ContainersAreShaderModel4WithValidChecksum) {
    for (const Shader& shader : AllShaders()) {
        SCOPED_TRACE(shader.code->name);
        const uint8_t* p = static_cast<const uint8_t*>(shader.code->code);
        const uint32_t size = static_cast<uint32_t>(shader.code->size);
        ASSERT_GE(size, 32u);
        EXPECT_EQ(0, memcmp(p, "DXBC", 4));
        EXPECT_EQ(1u, U32(p + 20));    // container version
        EXPECT_EQ(size, U32(p + 24));  // total size
        std::set<std::string> names;
        uint32_t token = 0;
        for (uint32_t i = 0; i < U32(p + 28); ++i) {
            const uint32_t offset = U32(p + 32 + 4 * i);
            ASSERT_LE(offset + 8, size);
            ASSERT_LE(offset + 8 + U32(p + offset + 4), size);
            names.insert(std::string(reinterpret_cast<const char*>(p + offset), 4));
            if (memcmp(p + offset, "SHDR", 4) == 0) token = U32(p + offset + 8);
        }
        for (const char* required : {"RDEF", "ISGN", "OSGN", "SHDR"}) EXPECT_EQ(1u, names.count(required)) << required;
        // SHDR token 0: program type in bits 16..31 (0 pixel, 1 vertex), version 4.0.
        EXPECT_EQ(shader.vertex ? 1u : 0u, token >> 16);
        EXPECT_EQ(0x40u, token & 0xFF);

        uint32_t expected[4];
        DxbcChecksum(p, size, expected);
        EXPECT_EQ(0, memcmp(expected, p + 4, 16)) << "checksum";
        // A single flipped byte must change the checksum (the test's MD5 is live).
        std::vector<uint8_t> copy(p, p + size);
        copy.back() ^= 0x5A;
        DxbcChecksum(copy.data(), size, expected);
        EXPECT_NE(0, memcmp(expected, p + 4, 16));
    }
}
