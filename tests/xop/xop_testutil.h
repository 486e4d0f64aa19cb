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
#include "xop/XopDebug.h"

namespace xoptest {

using testkit::Rgb;
using testkit::Yuv;

constexpr int W = 160, H = 120;  // window and picture size of the fixture
const Yuv kBlack = {16, 128, 128}, kRed = {81, 90, 240}, kBlue = {41, 240, 110};

inline std::vector<std::string> g_debugMessages;

// Collects every debug message while alive.
struct DebugCapture {
    DebugCapture() { xop::SetDebugSink([](const char* message) { g_debugMessages.emplace_back(message); }); }
    ~DebugCapture() { xop::SetDebugSink(nullptr); g_debugMessages.clear(); }
    std::vector<std::string> Take() { return std::exchange(g_debugMessages, {}); }
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

// Planar YUV (format 2 or 4) of one colour; `pad` extra bytes per line filled with `padValue`.
inline Picture SolidYuv(int format, int w, int h, Yuv c, int pad = 0, uint8_t padValue = 0) {
    Picture p;
    const int cw = format == xop::kFrameI420 ? (w + 1) / 2 : w, ch = format == xop::kFrameI420 ? (h + 1) / 2 : h;
    const int widths[3] = {w, cw, cw}, heights[3] = {h, ch, ch}, values[3] = {c.y, c.u, c.v};
    for (int i = 0; i < 3; ++i) {
        const int line = widths[i] + pad;
        p.planes[i].assign(static_cast<size_t>(line) * heights[i], padValue);
        for (int row = 0; row < heights[i]; ++row) memset(&p.planes[i][size_t(row) * line], values[i], widths[i]);
        p.image.linesize[i] = line;
        p.image.data[i] = p.planes[i].data();
    }
    p.image.width = w;
    p.image.height = h;
    p.image.format = format;
    return p;
}

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

inline int Channel(uint32_t argb, int shift) { return static_cast<int>((argb >> shift) & 0xFF); }

// 0xAARRGGBB of texel (x, y) of a BGRA texture, read through a staging copy.
inline uint32_t ReadTexel(ID3D11Device* device, ID3D11Texture2D* texture, int x, int y) {
    D3D11_TEXTURE2D_DESC desc;
    texture->GetDesc(&desc);
    desc.Usage = D3D11_USAGE_STAGING;
    desc.BindFlags = desc.MiscFlags = 0;
    desc.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    Microsoft::WRL::ComPtr<ID3D11Texture2D> staging;
    Microsoft::WRL::ComPtr<ID3D11DeviceContext> context;
    if (FAILED(device->CreateTexture2D(&desc, nullptr, &staging))) return 0xDEADBEEF;
    device->GetImmediateContext(&context);
    context->CopyResource(staging.Get(), texture);
    uint32_t texel = 0xDEADBEEF;
    D3D11_MAPPED_SUBRESOURCE mapped;
    if (SUCCEEDED(context->Map(staging.Get(), 0, D3D11_MAP_READ, 0, &mapped))) {
        memcpy(&texel, static_cast<uint8_t*>(mapped.pData) + size_t(y) * mapped.RowPitch + x * 4, 4);
        context->Unmap(staging.Get(), 0);
    }
    return texel;
}

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
    testkit::PumpMessages();
    r.EnsureInputTextures(image.width, image.height, image.format);
    r.BeginFrame();
    r.UpdateFrame(image);
    r.ApplySharpen();
    r.PresentOutput(record);
    r.PresentSwapChain();
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
    uint32_t OutputTexel(int x, int y) { return ReadTexel(r.GetDevice(), r.m_currentOutput->GetTexture(), x, y); }
    bool Shows(int x, int y, Rgb c, int tolerance = 4) { return ShowsColour(m_window, x, y, c, tolerance); }

    HWND m_window = nullptr;
    TestRenderer r;
};

}  // namespace xoptest
