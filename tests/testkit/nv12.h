#pragma once
// NV12 pictures for tests of the decoder-texture path: a texture array shaped
// like the decoder's surface pool, pictures written into its slices, and
// studio-range BT.709 / BT.601 arithmetic of the test's own (independent of
// the library's shader constants).
#include <d3d11.h>
#include <gtest/gtest.h>
#include <wrl/client.h>

#include <cstdint>
#include <vector>

namespace testkit {

struct Yuv {
    int y, u, v;
};
struct Rgb {
    int r, g, b;
};

// Studio-range (16-235 / 16-240) conversions, rounded and clamped to 0..255.
Rgb Bt709ToRgb(Yuv c);
Rgb Bt601ToRgb(Yuv c);
Yuv Bt709FromRgb(Rgb c);

// An NV12 picture in memory: w x h luma bytes, then w x h/2 bytes of
// interleaved U,V (one pair per 2x2 block). w and h are even.
struct Nv12Picture {
    Nv12Picture(int w, int h, Yuv fill);
    // Fills the rectangle [x, x+w) x [y, y+h) (even coordinates).
    void Fill(int x, int y, int w, int h, Yuv c);
    // Four colours in the quadrants of the first `visibleH` rows
    // (top-left, top-right, bottom-left, bottom-right).
    void Quadrants(int visibleH, Yuv tl, Yuv tr, Yuv bl, Yuv br);

    int width, height;
    std::vector<uint8_t> y, uv;
};

// A texture array shaped exactly like the decoder's pool for a w x h video:
// both sides rounded up to 32, `slices` slices, NV12, BIND_DECODER,
// MISC_SHARED, on `device`.
class DecoderPool {
public:
    DecoderPool(ID3D11Device* device, int w, int h, UINT slices = 10);
    ID3D11Texture2D* Texture() const { return m_array.Get(); }
    bool Ok() const { return m_array != nullptr; }
    int Width() const { return m_width; }
    int Height() const { return m_height; }
    // Writes `picture` (pool-sized, padding rows included) into `slice`
    // through an NV12 staging texture and one copy.
    bool Write(UINT slice, const Nv12Picture& picture);

private:
    Microsoft::WRL::ComPtr<ID3D11Device> m_device;
    Microsoft::WRL::ComPtr<ID3D11Texture2D> m_array;
    int m_width = 0, m_height = 0;
};

// True when this Direct3D 11 can make an NV12 texture a shader resource
// with R8 and R8G8 views of its planes (not on Wine's own wined3d).
bool CanSampleNv12(ID3D11Device* device);

// True when the environment says the run is on the stack whose Direct3D 11
// samples NV12 (QUILLON_STACK=2).
bool OnNv12Stack();

}  // namespace testkit

// Skips the current test where NV12 textures cannot be sampled; fails it
// instead on the stack that must sample them, so such tests never skip
// silently there.
#define QUILLON_REQUIRE_NV12_SAMPLING(device)                                                              \
    do {                                                                                                   \
        if (!::testkit::CanSampleNv12(device)) {                                                           \
            if (::testkit::OnNv12Stack()) {                                                                \
                FAIL() << "QUILLON_STACK=2 but this Direct3D 11 cannot sample NV12 textures";              \
            }                                                                                              \
            GTEST_SKIP() << "NV12 textures cannot be shader resources on this Direct3D 11 (stack 1); "     \
                            "this test runs on stack 2";                                                   \
        }                                                                                                  \
    } while (0)
