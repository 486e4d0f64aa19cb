#include "xop_testutil.h"

#include <wrl/client.h>

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

Picture SolidYuv(int format, int w, int h, Yuv c, int pad, uint8_t padValue) {
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

Picture SolidNv12(int w, int h, Yuv c) {
    testkit::Nv12Picture nv12(w, h, c);
    Picture p;
    p.planes[0] = std::move(nv12.y);
    p.planes[1] = std::move(nv12.uv);
    p.image = {w, h, {w, w, 0}, {p.planes[0].data(), p.planes[1].data(), nullptr}, xop::kFrameNv12};
    return p;
}

int Channel(uint32_t argb, int shift) { return static_cast<int>((argb >> shift) & 0xFF); }

uint32_t ReadTexel(ID3D11Device* device, ID3D11Texture2D* texture, int x, int y) {
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

bool ShowsColour(HWND window, int x, int y, Rgb c, int tolerance) {
    auto accept = [&](COLORREF p) { return testkit::Near(p, c.r, c.g, c.b, tolerance); };
    return accept(testkit::WaitForClientPixel(window, x, y, accept));
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

void Present(TestRenderer& r, const ShowFrameData* record) {
    testkit::PumpMessages();
    r.PresentOutput(record);
    r.PresentSwapChain();
}

HWND NewWindow(int w, int h) {
    static int slot = 0;
    const int x = 20 + 190 * (slot % 10), y = 20 + 165 * (slot / 10 % 7);
    ++slot;
    return testkit::CreateTestWindow(x, y, w, h);
}

}  // namespace xoptest
