// Frames per second of planar 4:2:0 pictures through the renderer's frame
// steps, next to a minimal hand-written Direct3D 11 loop doing the same
// upload, draw and present in the same process. Prints figures only.
#include <windows.h>
#include <d3d11.h>

#include <cstdio>
#include <cstring>

#include "testkit/testkit.h"
#include "xop/Shaders.h"
#include "xop_testutil.h"

namespace {

constexpr DWORD kRunMs = 3000;

template <class F>
double FramesPerSecond(F frame) {
    frame();  // warm-up
    int frames = 0;
    const DWORD start = GetTickCount();
    DWORD elapsed = 0;
    while ((elapsed = GetTickCount() - start) < kRunMs) {
        frame();
        ++frames;
    }
    return frames * 1000.0 / elapsed;
}

// `overlayPass` false drops the Direct2D target, as on a machine without
// Direct2D: the frame then skips the (empty) overlay pass.
double RendererFps(HWND window, const xop::FrameImage& image, bool overlayPass) {
    xoptest::TestRenderer r;
    if (!r.Init(window)) return 0.0;
    if (!overlayPass) r.m_d2dRenderTarget.Reset();
    r.InitInputTextures(image.width, image.height, image.format);
    return FramesPerSecond([&] {
        r.BeginFrame();
        r.UpdateFrame(image);
        r.ApplySharpen();
        r.PresentOutput(nullptr);
        r.PresentSwapChain();
    });
}

// Baseline: three dynamic R8 planes, one quad drawn with the same shaders
// straight into the back buffer, Present(0, 0).
double BaselineFps(HWND window, const xop::FrameImage& image) {
    const int w = image.width, h = image.height;
    DXGI_SWAP_CHAIN_DESC sd = {};
    sd.BufferDesc.Width = w;
    sd.BufferDesc.Height = h;
    sd.BufferDesc.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
    sd.SampleDesc.Count = 1;
    sd.BufferUsage = DXGI_USAGE_RENDER_TARGET_OUTPUT;
    sd.BufferCount = 1;
    sd.OutputWindow = window;
    sd.Windowed = TRUE;
    ID3D11Device* dev = nullptr;
    ID3D11DeviceContext* ctx = nullptr;
    IDXGISwapChain* chain = nullptr;
    if (FAILED(D3D11CreateDeviceAndSwapChain(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr,
                                             D3D11_CREATE_DEVICE_BGRA_SUPPORT, nullptr, 0, D3D11_SDK_VERSION, &sd,
                                             &chain, &dev, nullptr, &ctx)))
        return 0.0;
    ID3D11Texture2D* back = nullptr;
    ID3D11RenderTargetView* rtv = nullptr;
    chain->GetBuffer(0, IID_ID3D11Texture2D, reinterpret_cast<void**>(&back));
    dev->CreateRenderTargetView(back, nullptr, &rtv);
    back->Release();

    ID3D11Texture2D* planes[3] = {};
    ID3D11ShaderResourceView* views[3] = {};
    for (int i = 0; i < 3; ++i) {
        D3D11_TEXTURE2D_DESC td = {};
        td.Width = i ? (w + 1) / 2 : w;
        td.Height = i ? (h + 1) / 2 : h;
        td.MipLevels = td.ArraySize = 1;
        td.Format = DXGI_FORMAT_R8_UNORM;
        td.SampleDesc.Count = 1;
        td.Usage = D3D11_USAGE_DYNAMIC;
        td.BindFlags = D3D11_BIND_SHADER_RESOURCE;
        td.CPUAccessFlags = D3D11_CPU_ACCESS_WRITE;
        dev->CreateTexture2D(&td, nullptr, &planes[i]);
        dev->CreateShaderResourceView(planes[i], nullptr, &views[i]);
    }
    ID3D11VertexShader* vs = nullptr;
    ID3D11PixelShader* ps = nullptr;
    ID3D11InputLayout* layout = nullptr;
    dev->CreateVertexShader(xop::kQuadVertexShader.code, xop::kQuadVertexShader.size, nullptr, &vs);
    dev->CreatePixelShader(xop::kPixelShaders[xop::kOutputI420].code, xop::kPixelShaders[xop::kOutputI420].size,
                           nullptr, &ps);
    const D3D11_INPUT_ELEMENT_DESC elements[] = {
        {"POSITION", 0, DXGI_FORMAT_R32G32B32_FLOAT, 0, 0, D3D11_INPUT_PER_VERTEX_DATA, 0},
        {"TEXCOORD", 0, DXGI_FORMAT_R32G32_FLOAT, 0, 12, D3D11_INPUT_PER_VERTEX_DATA, 0},
        {"COLOR", 0, DXGI_FORMAT_R32G32B32A32_FLOAT, 0, 20, D3D11_INPUT_PER_VERTEX_DATA, 0},
    };
    dev->CreateInputLayout(elements, 3, xop::kQuadVertexShader.code, xop::kQuadVertexShader.size, &layout);
    const float fw = static_cast<float>(w), fh = static_cast<float>(h);
    const float quad[4][9] = {{0, 0, 0, 0, 0, 0, 1, 0, 1},
                              {0, fh, 0, 0, 1, 0, 1, 0, 1},
                              {fw, 0, 0, 1, 0, 0, 1, 0, 1},
                              {fw, fh, 0, 1, 1, 0, 1, 0, 1}};
    // view = identity; projection = orthographic (0, w) x (h, 0), both transposed.
    const float constants[32] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1,
                                 2 / fw, 0, 0, -1, 0, -2 / fh, 0, 1, 0, 0, 1, 0, 0, 0, 0, 1};
    D3D11_BUFFER_DESC bd = {sizeof(quad), D3D11_USAGE_DEFAULT, D3D11_BIND_VERTEX_BUFFER, 0, 0, 0};
    D3D11_SUBRESOURCE_DATA init = {quad, 0, 0};
    ID3D11Buffer* vb = nullptr;
    ID3D11Buffer* cb = nullptr;
    dev->CreateBuffer(&bd, &init, &vb);
    D3D11_BUFFER_DESC cd = {sizeof(constants), D3D11_USAGE_DEFAULT, D3D11_BIND_CONSTANT_BUFFER, 0, 0, 0};
    init.pSysMem = constants;
    dev->CreateBuffer(&cd, &init, &cb);
    D3D11_SAMPLER_DESC smp = {};
    smp.Filter = D3D11_FILTER_MIN_MAG_MIP_LINEAR;
    smp.AddressU = smp.AddressV = smp.AddressW = D3D11_TEXTURE_ADDRESS_CLAMP;
    smp.MaxLOD = D3D11_FLOAT32_MAX;
    ID3D11SamplerState* sampler = nullptr;
    dev->CreateSamplerState(&smp, &sampler);
    const D3D11_VIEWPORT vp = {0, 0, fw, fh, 0, 1};
    // The quad's winding is counter-clockwise: without culling off it would
    // not be drawn at all (as in the renderer's own rasterizer state).
    D3D11_RASTERIZER_DESC rd = {};
    rd.FillMode = D3D11_FILL_SOLID;
    rd.CullMode = D3D11_CULL_NONE;
    rd.DepthClipEnable = TRUE;
    ID3D11RasterizerState* raster = nullptr;
    dev->CreateRasterizerState(&rd, &raster);

    const double fps = FramesPerSecond([&] {
        for (int i = 0; i < 3; ++i) {
            D3D11_MAPPED_SUBRESOURCE m;
            if (SUCCEEDED(ctx->Map(planes[i], 0, D3D11_MAP_WRITE_DISCARD, 0, &m))) {
                xop::CopyPlaneRows(static_cast<uint8_t*>(m.pData), m.RowPitch, image.data[i], image.linesize[i],
                                   i ? (h + 1) / 2 : h);
                ctx->Unmap(planes[i], 0);
            }
        }
        const float black[4] = {0, 0, 0, 1};
        ctx->OMSetRenderTargets(1, &rtv, nullptr);
        ctx->ClearRenderTargetView(rtv, black);
        ctx->RSSetViewports(1, &vp);
        ctx->RSSetState(raster);
        UINT stride = 36, offset = 0;
        ctx->IASetInputLayout(layout);
        ctx->IASetVertexBuffers(0, 1, &vb, &stride, &offset);
        ctx->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLESTRIP);
        ctx->VSSetShader(vs, nullptr, 0);
        ctx->VSSetConstantBuffers(0, 1, &cb);
        ctx->PSSetShader(ps, nullptr, 0);
        ctx->PSSetShaderResources(0, 3, views);
        ctx->PSSetSamplers(0, 1, &sampler);
        ctx->Draw(4, 0);
        chain->Present(0, 0);
    });
    // Proof that the loop drew the picture: its centre on the screen.
    const COLORREF centre = testkit::WaitForClientPixel(window, w / 2, h / 2, [](COLORREF c) { return c != 0; });
    if (centre == 0) fprintf(stderr, "baseline: nothing drawn\n");
    IUnknown* objects[] = {raster, sampler, cb, vb, layout, ps, vs, views[0], views[1], views[2], planes[0], planes[1],
                           planes[2], rtv, chain, ctx, dev};
    for (IUnknown* o : objects)
        if (o) o->Release();
    return fps;
}

}  // namespace

int main() {
    printf("%-10s %14s %14s %8s %22s\n", "picture", "renderer fps", "baseline fps", "ratio",
           "renderer, no 2D pass");
    const int sizes[2][2] = {{1280, 720}, {1920, 1080}};
    for (const auto& s : sizes) {
        HWND window = testkit::CreateTestWindow(0, 0, s[0], s[1], "quillon bench");
        xoptest::Picture picture = xoptest::SolidYuv(xop::kFrameI420, s[0], s[1], 81, 90, 240);
        // A gradient, so uploads are not all one value.
        for (size_t i = 0; i < picture.planes[0].size(); ++i) picture.planes[0][i] = static_cast<uint8_t>(16 + i % 219);
        const double renderer = RendererFps(window, picture.image, true);
        const double baseline = BaselineFps(window, picture.image);
        const double no2d = RendererFps(window, picture.image, false);
        printf("%4dx%-5d %14.1f %14.1f %8.2f %14.1f (%.2f)\n", s[0], s[1], renderer, baseline,
               baseline > 0 ? renderer / baseline : 0.0, no2d, baseline > 0 ? no2d / baseline : 0.0);
        fflush(stdout);
        DestroyWindow(window);
    }
    return 0;
}
