#pragma once
// Shared pieces of the renderer-core suites: debug-output capture, a renderer
// whose protected state the tests may reach, a fixture with a window of its
// own, picture builders and read-back.
#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "testkit/testkit.h"
#include "xop/D3D11Renderer.h"

namespace xoptest {

using testkit::Rgb;
using testkit::Yuv;

constexpr int W = 160, H = 120;  // window and picture size of the fixture
const Yuv kBlack = {16, 128, 128}, kRed = {81, 90, 240}, kBlue = {41, 240, 110};

// Collects every debug message while alive.
class DebugCapture {
public:
    DebugCapture();
    ~DebugCapture();
    std::vector<std::string> Take();
};

class TestRenderer : public xop::D3D11Renderer {
public:
    using D3D11Renderer::DrawPass, D3D11Renderer::Input, D3D11Renderer::Output, D3D11Renderer::m_currentOutput;
    using D3D11Renderer::m_d2dRenderTarget, D3D11Renderer::m_drawCallback, D3D11Renderer::m_drawCallbackUser;
    using D3D11Renderer::m_frameFormat, D3D11Renderer::m_keepWindowOnDestroy, D3D11Renderer::m_linearSampler;
    using D3D11Renderer::m_outputTextures, D3D11Renderer::m_pointSampler, D3D11Renderer::m_swapChain;
};

// A CPU picture together with its plane storage.
struct Picture {
    xop::FrameImage image;
    std::vector<uint8_t> planes[3];
};

// Planar YUV (format 2 or 4) of one colour; `pad` extra bytes per line
// filled with `padValue`.
Picture SolidYuv(int format, int w, int h, Yuv c, int pad = 0, uint8_t padValue = 0);
// NV12 of one colour (even w and h).
Picture SolidNv12(int w, int h, Yuv c);
// BGRA picture filled by `pixel(x, y)` (0xAARRGGBB).
template <class F>
Picture Bgra(int w, int h, F pixel) {
    Picture p;
    p.planes[0].resize(static_cast<size_t>(w) * h * 4);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const uint32_t c = pixel(x, y);
            memcpy(&p.planes[0][(static_cast<size_t>(y) * w + x) * 4], &c, 4);
        }
    p.image = {w, h, {w * 4, 0, 0}, {p.planes[0].data(), nullptr, nullptr}, xop::kFrameBgra};
    return p;
}

int Channel(uint32_t argb, int shift);
// 0xAARRGGBB of texel (x, y) of a BGRA texture, read through a staging copy.
uint32_t ReadTexel(ID3D11Device* device, ID3D11Texture2D* texture, int x, int y);
// Waits until the client pixel is near `c`.
bool ShowsColour(HWND window, int x, int y, Rgb c, int tolerance = 4);

// One picture through the frame steps, as the render front drives them
// (pending window messages handled first).
void ShowPicture(TestRenderer& r, const xop::FrameImage& image, const ShowFrameData* record = nullptr);
// The present steps alone: the current output, then the swap chain.
void Present(TestRenderer& r, const ShowFrameData* record = nullptr);

// A window of w x h at the next free place on screen.
HWND NewWindow(int w = W, int h = H);

// A W x H window and a renderer initialised on it.
class RendererTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(r.Init(m_window = NewWindow())); }
    void TearDown() override {
        r.Destroy();
        DestroyWindow(m_window);
    }
    uint32_t OutputTexel(int x, int y) { return ReadTexel(r.GetDevice(), r.m_currentOutput->GetTexture(), x, y); }
    bool Shows(int x, int y, Rgb c, int tolerance = 4) { return ShowsColour(m_window, x, y, c, tolerance); }

    HWND m_window = nullptr;
    TestRenderer r;
};

}  // namespace xoptest
