#pragma once
// Shared pieces of the renderer-core suites: debug-output capture, a renderer whose protected state the
// tests may reach, a fixture with a window of its own, picture builders and read-back.
#include <gtest/gtest.h>
#include <windows.h>
#include <wrl/client.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "testkit/testkit.h"
#include "xop/D3D11Renderer.h"
#include "xop/ScopedMap.h"
#include "xop/XopDebug.h"

namespace xoptest {

using testkit::Rgb, testkit::Yuv;

constexpr int W = 160, H = 120;  // window and picture size of the fixture
const Yuv kBlack = {16, 128, 128}, kRed = {81, 90, 240}, kBlue = {41, 240, 110};

// Collects every debug message while alive.
struct DebugCapture {
    static inline std::vector<std::string> messages;
    DebugCapture() { xop::SetDebugSink([](const char* message) { messages.emplace_back(message); }); }
    ~DebugCapture() { xop::SetDebugSink(nullptr); messages.clear(); }
    std::vector<std::string> Take() { return std::exchange(messages, {}); }
};

class TestRenderer : public xop::D3D11Renderer {
public:
    using D3D11Renderer::DrawPass, D3D11Renderer::Input, D3D11Renderer::Output, D3D11Renderer::m_currentOutput;
    using D3D11Renderer::m_d2dRenderTarget, D3D11Renderer::m_drawCallback, D3D11Renderer::m_drawCallbackUser;
    using D3D11Renderer::m_frameFormat, D3D11Renderer::m_linearSampler, D3D11Renderer::m_outputTextures;
    using D3D11Renderer::m_swapChain;
};

struct Picture {
    xop::FrameImage image;
    std::vector<uint8_t> planes[3];
};

// Planar YUV (format 2 or 4) of one colour; `pad` extra bytes per line filled with `padValue`.
inline Picture SolidYuv(int format, int w, int h, Yuv c, int pad = 0, uint8_t padValue = 0) {
    Picture p;
    p.image = {w, h, {}, {}, format};
    const int values[3] = {c.y, c.u, c.v};
    for (int i = 0; i < 3; ++i) {
        const bool half = i && format == xop::kFrameI420;
        const int pw = half ? (w + 1) / 2 : w, ph = half ? (h + 1) / 2 : h, line = pw + pad;
        p.planes[i].assign(static_cast<size_t>(line) * ph, padValue);
        for (int row = 0; row < ph; ++row) memset(&p.planes[i][size_t(row) * line], values[i], pw);
        p.image.linesize[i] = line;
        p.image.data[i] = p.planes[i].data();
    }
    return p;
}

// BGRA picture filled by `pixel(x, y)` (0xAARRGGBB).
template <class F>
Picture Bgra(int w, int h, F pixel) {
    Picture p;
    p.planes[0].resize(static_cast<size_t>(w) * h * 4);
    for (int i = 0; i < w * h; ++i) {
        const uint32_t c = pixel(i % w, i / w);
        memcpy(&p.planes[0][size_t(i) * 4], &c, 4);
    }
    p.image = {w, h, {w * 4, 0, 0}, {p.planes[0].data(), nullptr, nullptr}, xop::kFrameBgra};
    return p;
}

inline int Channel(uint32_t argb, int shift) { return static_cast<int>((argb >> shift) & 0xFF); }

// Waits until the client pixel is near `c`.
inline bool ShowsColour(HWND window, int x, int y, Rgb c, int tolerance = 4) {
    auto accept = [&](COLORREF p) { return testkit::Near(p, c.r, c.g, c.b, tolerance); };
    return accept(testkit::WaitForClientPixel(window, x, y, accept));
}

// The present steps alone, pending window messages handled first: the current output, then the swap chain.
inline void Present(TestRenderer& r, const ShowFrameData* record = nullptr) {
    testkit::PumpMessages();
    r.PresentOutput(record);
    r.PresentSwapChain();
}

// One picture through the frame steps, as the render front drives them.
inline void ShowPicture(TestRenderer& r, const xop::FrameImage& image, const ShowFrameData* record = nullptr) {
    r.EnsureInputTextures(image.width, image.height, image.format);
    r.BeginFrame();
    r.UpdateFrame(image);
    r.ApplySharpen();
    Present(r, record);
}

// A window of w x h at the next free place on screen.
inline HWND NewWindow(int w = W, int h = H) {
    static int slot = 0;
    const int x = 20 + 190 * (slot % 10), y = 20 + 165 * (slot / 10 % 7);
    ++slot;
    return testkit::CreateTestWindow(x, y, w, h);
}

// A W x H window and a renderer initialised on it.
class RendererTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(r.Init(m_window = NewWindow())); }
    void TearDown() override {
        r.Destroy();
        DestroyWindow(m_window);
    }
    // 0xAARRGGBB of texel (x, y) of a BGRA texture (the current output unless given), through a staging copy.
    uint32_t Texel(int x, int y, ID3D11Texture2D* texture = nullptr) {
        if (!texture) texture = r.m_currentOutput->GetTexture();
        D3D11_TEXTURE2D_DESC d;
        texture->GetDesc(&d);
        d = xop::TextureDesc(d.Width, d.Height, d.Format, D3D11_USAGE_STAGING, 0, D3D11_CPU_ACCESS_READ);
        Microsoft::WRL::ComPtr<ID3D11Texture2D> staging;
        Microsoft::WRL::ComPtr<ID3D11DeviceContext> context;
        if (FAILED(r.GetDevice()->CreateTexture2D(&d, nullptr, &staging))) return 0xDEADBEEF;
        r.GetDevice()->GetImmediateContext(&context);
        context->CopyResource(staging.Get(), texture);
        xop::ScopedMap map(context.Get(), staging.Get(), D3D11_MAP_READ);
        uint32_t texel = 0xDEADBEEF;
        if (map.Mapped()) memcpy(&texel, map.Data() + size_t(y) * map.RowPitch() + x * 4, 4);
        return texel;
    }
    bool Shows(int x, int y, Rgb c, int tolerance = 4) { return ShowsColour(m_window, x, y, c, tolerance); }

    HWND m_window = nullptr;
    TestRenderer r;
};

}  // namespace xoptest
