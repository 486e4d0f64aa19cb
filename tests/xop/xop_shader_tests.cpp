// The embedded shaders: well-formed DXBC containers whose checksum Windows
// would accept, and objects the device creates from them.
#include <gtest/gtest.h>

#include <d3d11.h>

#include <cstring>
#include <set>
#include <string>

#include "xop/Shaders.h"

namespace {

// MD5 compression function (RFC 1321) on one 64-byte block.
void Md5Block(uint32_t s[4], const uint32_t m[16]) {
    static const uint32_t K[64] = {
        0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
        0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
        0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
        0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
        0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
        0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
        0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
        0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};
    static const int R[64] = {7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 5, 9,  14, 20, 5, 9,
                              14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
                              4, 11, 16, 23, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};
    uint32_t a = s[0], b = s[1], c = s[2], d = s[3];
    for (int i = 0; i < 64; ++i) {
        uint32_t f;
        int g;
        if (i < 16) { f = (b & c) | (~b & d); g = i; }
        else if (i < 32) { f = (d & b) | (~d & c); g = (5 * i + 1) % 16; }
        else if (i < 48) { f = b ^ c ^ d; g = (3 * i + 5) % 16; }
        else { f = c ^ (b | ~d); g = (7 * i) % 16; }
        const uint32_t t = d;
        d = c;
        c = b;
        const uint32_t x = a + f + K[i] + m[g];
        b = b + ((x << R[i]) | (x >> (32 - R[i])));
        a = t;
    }
    s[0] += a; s[1] += b; s[2] += c; s[3] += d;
}

// The container checksum: MD5 over everything after the 20-byte header,
// with DXBC's own final block (bit count first, bits/4 | 1 last).
void DxbcChecksum(const uint8_t* data, uint32_t size, uint32_t out[4]) {
    uint32_t s[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    const uint8_t* p = data + 20;
    const uint32_t length = size - 20;
    const uint32_t bits = length * 8, tail = (bits >> 2) | 1;
    const uint32_t full = length / 64, rest = length % 64;
    uint32_t block[16];
    for (uint32_t i = 0; i < full; ++i) {
        memcpy(block, p + i * 64, 64);
        Md5Block(s, block);
    }
    uint8_t last[64] = {};
    if (rest >= 56) {
        memcpy(last, p + full * 64, rest);
        last[rest] = 0x80;
        memcpy(block, last, 64);
        Md5Block(s, block);
        memset(block, 0, sizeof(block));
        block[0] = bits;
        block[15] = tail;
        Md5Block(s, block);
    } else {
        memcpy(last + 4, p + full * 64, rest);
        last[4 + rest] = 0x80;
        memcpy(block, last, 64);
        block[0] = bits;
        block[15] = tail;
        Md5Block(s, block);
    }
    memcpy(out, s, 16);
}

uint32_t U32(const uint8_t* p) {
    uint32_t v;
    memcpy(&v, p, 4);
    return v;
}

std::vector<const xop::ShaderCode*> AllShaders() {
    std::vector<const xop::ShaderCode*> all = {&xop::kQuadVertexShader};
    for (int i = 1; i < 7; ++i) all.push_back(&xop::kPixelShaders[i]);
    return all;
}

}  // namespace

TEST(Shaders, ContainersAreWellFormedWithValidChecksum) {
    EXPECT_EQ(nullptr, xop::kPixelShaders[0].code);
    for (const xop::ShaderCode* shader : AllShaders()) {
        SCOPED_TRACE(shader->name);
        const uint8_t* p = static_cast<const uint8_t*>(shader->code);
        ASSERT_GE(shader->size, 32u);
        EXPECT_EQ(0, memcmp(p, "DXBC", 4));
        EXPECT_EQ(1u, U32(p + 20));                 // container version
        EXPECT_EQ(shader->size, U32(p + 24));       // total size
        const uint32_t chunks = U32(p + 28);
        std::set<std::string> names;
        for (uint32_t i = 0; i < chunks; ++i) {
            const uint32_t offset = U32(p + 32 + 4 * i);
            ASSERT_LE(offset + 8, shader->size);
            ASSERT_LE(offset + 8 + U32(p + offset + 4), shader->size);
            names.insert(std::string(reinterpret_cast<const char*>(p + offset), 4));
        }
        for (const char* required : {"RDEF", "ISGN", "OSGN", "SHDR"}) EXPECT_EQ(1u, names.count(required)) << required;

        uint32_t expected[4];
        DxbcChecksum(p, static_cast<uint32_t>(shader->size), expected);
        EXPECT_EQ(0, memcmp(expected, p + 4, 16)) << "checksum";

        // A single flipped byte must change the checksum (the test's MD5 is live).
        std::vector<uint8_t> copy(p, p + shader->size);
        copy[copy.size() - 1] ^= 0x5A;
        uint32_t changed[4];
        DxbcChecksum(copy.data(), static_cast<uint32_t>(copy.size()), changed);
        EXPECT_NE(0, memcmp(changed, p + 4, 16));
    }
}

TEST(Shaders, ProfilesAreShaderModel4) {
    // SHDR token 0: program type in bits 16..31 (0 pixel, 1 vertex), version 4.0.
    for (const xop::ShaderCode* shader : AllShaders()) {
        SCOPED_TRACE(shader->name);
        const uint8_t* p = static_cast<const uint8_t*>(shader->code);
        const uint32_t chunks = U32(p + 28);
        uint32_t token = 0;
        for (uint32_t i = 0; i < chunks; ++i) {
            const uint32_t offset = U32(p + 32 + 4 * i);
            if (memcmp(p + offset, "SHDR", 4) == 0) token = U32(p + offset + 8);
        }
        const bool vertex = shader == &xop::kQuadVertexShader;
        EXPECT_EQ(vertex ? 1u : 0u, token >> 16);
        EXPECT_EQ(0x40u, token & 0xFF);
    }
}

TEST(Shaders, EveryShaderCreatesOnTheDevice) {
    ID3D11Device* device = nullptr;
    ASSERT_HRESULT_SUCCEEDED(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0,
                                               D3D11_SDK_VERSION, &device, nullptr, nullptr));
    ID3D11VertexShader* vs = nullptr;
    EXPECT_HRESULT_SUCCEEDED(device->CreateVertexShader(xop::kQuadVertexShader.code, xop::kQuadVertexShader.size,
                                                        nullptr, &vs));
    ID3D11InputLayout* input = nullptr;
    EXPECT_HRESULT_SUCCEEDED(
        device->CreateInputLayout(xop::kQuadInputLayout, 3, xop::kQuadVertexShader.code, xop::kQuadVertexShader.size, &input));
    if (input) input->Release();
    if (vs) vs->Release();
    for (int i = 1; i < 7; ++i) {
        ID3D11PixelShader* ps = nullptr;
        EXPECT_HRESULT_SUCCEEDED(
            device->CreatePixelShader(xop::kPixelShaders[i].code, xop::kPixelShaders[i].size, nullptr, &ps))
            << xop::kPixelShaders[i].name;
        if (ps) ps->Release();
    }
    device->Release();
}
