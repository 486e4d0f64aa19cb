#include "xop_testutil.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "testkit/testkit.h"
#include "xop/XopDebug.h"

namespace xoptest {

namespace {
std::vector<std::string> g_messages;
void Collect(const char* message) { g_messages.emplace_back(message); }
}  // namespace

DebugCapture::DebugCapture() {
    g_messages.clear();
    xop::SetDebugSink(Collect);
}
DebugCapture::~DebugCapture() { xop::SetDebugSink(nullptr); }
std::vector<std::string> DebugCapture::Take() {
    std::vector<std::string> out;
    out.swap(g_messages);
    return out;
}

Picture SolidYuv(int format, int w, int h, uint8_t y, uint8_t u, uint8_t v, int pad, uint8_t padValue) {
    Picture p;
    const int cw = format == xop::kFrameI420 ? (w + 1) / 2 : w;
    const int ch = format == xop::kFrameI420 ? (h + 1) / 2 : h;
    const int widths[3] = {w, cw, cw}, heights[3] = {h, ch, ch};
    const uint8_t values[3] = {y, u, v};
    for (int i = 0; i < 3; ++i) {
        const int line = widths[i] + pad;
        p.planes[i].assign(static_cast<size_t>(line) * heights[i], padValue);
        for (int row = 0; row < heights[i]; ++row) {
            memset(&p.planes[i][static_cast<size_t>(row) * line], values[i], widths[i]);
        }
        p.image.linesize[i] = line;
        p.image.data[i] = p.planes[i].data();
    }
    p.image.width = w;
    p.image.height = h;
    p.image.format = format;
    return p;
}

void ShowPicture(TestRenderer& r, const xop::FrameImage& image, const ShowFrameData* record) {
    testkit::PumpMessages();
    r.EnsureInputTextures(image.width, image.height, image.format);
    r.BeginFrame();
    r.UpdateFrame(image);
    r.ApplySharpen();
    r.PresentOutput(record);
    r.PresentSwapChain();
}

uint32_t ReadTexel(ID3D11Device* device, ID3D11Texture2D* texture, int x, int y) {
    D3D11_TEXTURE2D_DESC desc;
    texture->GetDesc(&desc);
    desc.Usage = D3D11_USAGE_STAGING;
    desc.BindFlags = 0;
    desc.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    desc.MiscFlags = 0;
    ID3D11Texture2D* staging = nullptr;
    if (FAILED(device->CreateTexture2D(&desc, nullptr, &staging))) return 0xDEADBEEF;
    ID3D11DeviceContext* context = nullptr;
    device->GetImmediateContext(&context);
    context->CopyResource(staging, texture);
    uint32_t texel = 0xDEADBEEF;
    D3D11_MAPPED_SUBRESOURCE mapped;
    if (SUCCEEDED(context->Map(staging, 0, D3D11_MAP_READ, 0, &mapped))) {
        memcpy(&texel, static_cast<uint8_t*>(mapped.pData) + static_cast<size_t>(y) * mapped.RowPitch + x * 4, 4);
        context->Unmap(staging, 0);
    }
    context->Release();
    staging->Release();
    return texel;
}

void Bt601(int y, int u, int v, int rgb[3]) {
    const double yy = y / 255.0 - 16 / 255.0, uu = u / 255.0 - 128 / 255.0, vv = v / 255.0 - 128 / 255.0;
    const double c[3] = {1.1644 * yy + 1.596 * vv, 1.1644 * yy - 0.3918 * uu - 0.813 * vv, 1.1644 * yy + 2.0172 * uu};
    for (int i = 0; i < 3; ++i) rgb[i] = static_cast<int>(std::lround(std::min(1.0, std::max(0.0, c[i])) * 255.0));
}

bool ShowsColour(HWND window, int x, int y, int r, int g, int b, int tolerance) {
    COLORREF c = testkit::WaitForClientPixel(window, x, y,
                                             [&](COLORREF p) { return testkit::Near(p, r, g, b, tolerance); });
    return testkit::Near(c, r, g, b, tolerance);
}

}  // namespace xoptest
