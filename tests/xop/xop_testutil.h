#pragma once
// Shared pieces of the renderer-core suites: debug-output capture, a renderer
// whose protected state the tests may reach, picture builders and read-back.
#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "xop/D3D11Renderer.h"

namespace xoptest {

// Collects every debug message while alive.
class DebugCapture {
public:
    DebugCapture();
    ~DebugCapture();
    std::vector<std::string> Take();
};

class TestRenderer : public xop::D3D11Renderer {
public:
    using D3D11Renderer::Input;
    using D3D11Renderer::Output;
    using D3D11Renderer::m_context;
    using D3D11Renderer::m_currentOutput;
    using D3D11Renderer::m_d2dRenderTarget;
    using D3D11Renderer::m_drawCallback;
    using D3D11Renderer::m_drawCallbackUser;
    using D3D11Renderer::m_frameFormat;
    using D3D11Renderer::m_frameHeight;
    using D3D11Renderer::m_frameWidth;
    using D3D11Renderer::m_inputTextures;
    using D3D11Renderer::m_keepWindowOnDestroy;
    using D3D11Renderer::m_linearSampler;
    using D3D11Renderer::m_outputTextures;
    using D3D11Renderer::m_pointSampler;
    using D3D11Renderer::m_swapChain;
};

// A CPU picture together with its plane storage.
struct Picture {
    xop::FrameImage image;
    std::vector<uint8_t> planes[3];
};

// Planar YUV (format 2 or 4) of one colour; `pad` extra bytes per line
// filled with `padValue`.
Picture SolidYuv(int format, int w, int h, uint8_t y, uint8_t u, uint8_t v, int pad = 0, uint8_t padValue = 0);
// BGRA picture filled by `pixel(x, y)` (0xAARRGGBB).
template <class F>
Picture Bgra(int w, int h, F pixel) {
    Picture p;
    p.planes[0].resize(static_cast<size_t>(w) * h * 4);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint32_t c = pixel(x, y);
            memcpy(&p.planes[0][(static_cast<size_t>(y) * w + x) * 4], &c, 4);
        }
    p.image.width = w;
    p.image.height = h;
    p.image.linesize[0] = w * 4;
    p.image.data[0] = p.planes[0].data();
    p.image.format = xop::kFrameBgra;
    return p;
}

// One picture through the frame steps, as the render front drives them
// (pending window messages handled first).
void ShowPicture(TestRenderer& r, const xop::FrameImage& image, const ShowFrameData* record = nullptr);

// 0xAARRGGBB of texel (x, y) of a BGRA texture, read through a staging copy.
uint32_t ReadTexel(ID3D11Device* device, ID3D11Texture2D* texture, int x, int y);

// The expected 8-bit RGB of limited-range BT.601 YUV, clamped.
void Bt601(int y, int u, int v, int rgb[3]);

// Waits until the client pixel is near (r, g, b).
bool ShowsColour(HWND window, int x, int y, int r, int g, int b, int tolerance = 4);

}  // namespace xoptest
