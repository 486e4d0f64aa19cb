#pragma once
// NV12 pictures for the decoder-texture path: a texture array shaped like the decoder's pool, pictures
// written into its slices, and studio-range BT.709 / BT.601 arithmetic independent of the shader constants.
#include <d3d11.h>
#include <gtest/gtest.h>
#include <wrl/client.h>

#include <cstdint>
#include <vector>

namespace testkit {

struct Yuv { int y, u, v; };
struct Rgb { int r, g, b; };

// Studio-range (16-235 / 16-240) conversions, rounded and clamped to 0..255.
Rgb Bt709ToRgb(Yuv c);
Rgb Bt601ToRgb(Yuv c);
Yuv Bt709FromRgb(Rgb c);

// An NV12 picture in memory: w x h luma bytes, w x h/2 bytes of interleaved U,V; w and h even.
struct Nv12Picture {
    Nv12Picture(int w, int h, Yuv fill);
    // Fills the rectangle [x, x+w) x [y, y+h) (even coordinates).
    void Fill(int x, int y, int w, int h, Yuv c);
    // Four colours in the quadrants of the first `visibleH` rows (top-left, top-right, bottom-left, bottom-right).
    void Quadrants(int visibleH, Yuv tl, Yuv tr, Yuv bl, Yuv br);

    int width, height;
    std::vector<uint8_t> y, uv;
};

// A texture array like the decoder's pool for a w x h video: sides rounded up to 32, NV12, BIND_DECODER,
// MISC_SHARED.
class DecoderPool {
public:
    DecoderPool(ID3D11Device* device, int w, int h, UINT slices = 10);
    ID3D11Texture2D* Texture() const { return m_array.Get(); }
    bool Ok() const { return m_array != nullptr; }
    int Width() const { return m_width; }
    int Height() const { return m_height; }
    // Writes `picture` (pool-sized) into `slice` through an NV12 staging texture.
    bool Write(UINT slice, const Nv12Picture& picture);
private:
    Microsoft::WRL::ComPtr<ID3D11Device> m_device;
    Microsoft::WRL::ComPtr<ID3D11Texture2D> m_array;
    int m_width = 0, m_height = 0;
};

// True when this Direct3D 11 can sample an NV12 texture's planes (not on Wine's own wined3d).
bool CanSampleNv12(ID3D11Device* device);
bool OnNv12Stack();  // QUILLON_STACK=2

}  // namespace testkit

// Skips the test where NV12 cannot be sampled; fails it on the stack that must sample it.
#define QUILLON_REQUIRE_NV12_SAMPLING(device)                                                          \
    do {                                                                                               \
        if (!::testkit::CanSampleNv12(device)) {                                                       \
            if (::testkit::OnNv12Stack()) {                                                            \
                FAIL() << "QUILLON_STACK=2 but this Direct3D 11 cannot sample NV12 textures";          \
            }                                                                                          \
            GTEST_SKIP() << "NV12 textures cannot be shader resources on this Direct3D 11 (stack 1); " \
                            "this test runs on stack 2";                                               \
        }                                                                                              \
    } while (0)
