// The embedded shaders: shader model 4 DXBC containers whose checksum Windows would accept (Wine
// does not check it). A shader the device refuses is logged by Init, which the life-cycle suite checks.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <vector>

#include "xop/Shaders.h"

namespace {

uint32_t U32(const uint8_t* p) {
    uint32_t v;
    memcpy(&v, p, 4);
    return v;
}

// advapi32's MD5 (its MD5_CTX). MD5Update runs the compression function on each whole 64-byte block at
// once, so after whole blocks `state` is the bare MD5 state, without the standard final block.
struct Md5Context {
    ULONG count[2], state[4];
    unsigned char in[64], digest[16];
};
extern "C" void WINAPI MD5Init(Md5Context* context);
extern "C" void WINAPI MD5Update(Md5Context* context, const unsigned char* data, unsigned int size);

// The container checksum: MD5 over everything after the 20-byte header, with DXBC's own final block (bit count
// first, ahead of the rest of the data, or alone in an extra block; bits/4 | 1 last), against the stored one.
bool ChecksumMatches(const uint8_t* data, uint32_t size) {
    const uint32_t rest = (size - 20) % 64, bits = (size - 20) * 8, tail = (bits >> 2) | 1;
    std::vector<uint8_t> m(data + 20, data + size - rest);
    m.resize(m.size() + (rest < 56 ? 4 : 0));
    m.insert(m.end(), data + size - rest, data + size);
    m.push_back(0x80);
    m.resize((m.size() + 63) / 64 * 64 + (rest < 56 ? 0 : 64));
    memcpy(&m[m.size() - 64], &bits, 4);
    memcpy(&m[m.size() - 4], &tail, 4);
    Md5Context md5;
    MD5Init(&md5);
    MD5Update(&md5, m.data(), static_cast<unsigned int>(m.size()));
    return memcmp(md5.state, data + 4, 16) == 0;
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
