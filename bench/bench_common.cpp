#include "bench/bench_common.h"

#include <d3d11.h>

#include <cstdio>

#include "testkit/testkit.h"
#include "xop/D3D11Renderer.h"
#include "xop/Shaders.h"

namespace bench {

double Now()
{
    static const double frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return static_cast<double>(f.QuadPart);
    }();
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return t.QuadPart / frequency;
}

double BaselineFps(HWND window, const xop::FrameImage& image, DWORD runMs)
{
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
        const D3D11_TEXTURE2D_DESC td =
            xop::TextureDesc(i ? (w + 1) / 2 : w, i ? (h + 1) / 2 : h, DXGI_FORMAT_R8_UNORM, D3D11_USAGE_DYNAMIC,
                             D3D11_BIND_SHADER_RESOURCE, D3D11_CPU_ACCESS_WRITE);
        dev->CreateTexture2D(&td, nullptr, &planes[i]);
        dev->CreateShaderResourceView(planes[i], nullptr, &views[i]);
    }
    ID3D11VertexShader* vs = nullptr;
    ID3D11PixelShader* ps = nullptr;
    ID3D11InputLayout* layout = nullptr;
    dev->CreateVertexShader(xop::kQuadVertexShader.code, xop::kQuadVertexShader.size, nullptr, &vs);
    dev->CreatePixelShader(xop::kPixelShaders[xop::kOutputI420].code, xop::kPixelShaders[xop::kOutputI420].size,
                           nullptr, &ps);
    dev->CreateInputLayout(xop::kQuadInputLayout, 3, xop::kQuadVertexShader.code, xop::kQuadVertexShader.size, &layout);
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

    const double fps = FramesPerSecond(
        [&] {
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
        },
        runMs);
    // Proof that the loop drew the picture: its centre on the screen.
    const COLORREF centre = testkit::WaitForClientPixel(window, w / 2, h / 2, [](COLORREF c) { return c != 0; });
    if (centre == 0) fprintf(stderr, "baseline: nothing drawn\n");
    IUnknown* objects[] = {raster, sampler, cb, vb, layout, ps, vs, views[0], views[1], views[2], planes[0], planes[1],
                           planes[2], rtv, chain, ctx, dev};
    for (IUnknown* o : objects)
        if (o) o->Release();
    return fps;
}

Table::Table(std::string name, std::string labelColumn, std::vector<std::string> columns)
    : m_name(std::move(name)), m_labelColumn(std::move(labelColumn)), m_columns(std::move(columns))
{
}

void Table::Row(const std::string& label, const std::vector<double>& values) { m_rows.emplace_back(label, values); }

std::string Table::Publish(int decimals) const
{
    printf("\n%s\n%-28s", m_name.c_str(), m_labelColumn.c_str());
    for (const std::string& c : m_columns) printf(" %16s", c.c_str());
    printf("\n");
    for (const auto& row : m_rows) {
        printf("%-28s", row.first.c_str());
        for (double v : row.second) printf(" %16.*f", decimals, v);
        printf("\n");
    }
    fflush(stdout);

    const std::string dir = testkit::BinDir() + "..\\bench-results\\";
    CreateDirectoryA(dir.c_str(), nullptr);
    const std::string path = dir + m_name + ".json";
    FILE* f = fopen(path.c_str(), "wb");
    if (!f) return "";
    fprintf(f, "{\n  \"benchmark\": \"%s\",\n  \"rows\": [\n", m_name.c_str());
    for (size_t r = 0; r < m_rows.size(); ++r) {
        fprintf(f, "    {\"%s\": \"%s\"", m_labelColumn.c_str(), m_rows[r].first.c_str());
        for (size_t c = 0; c < m_columns.size() && c < m_rows[r].second.size(); ++c)
            fprintf(f, ", \"%s\": %.*f", m_columns[c].c_str(), decimals + 2, m_rows[r].second[c]);
        fprintf(f, "}%s\n", r + 1 < m_rows.size() ? "," : "");
    }
    fprintf(f, "  ]\n}\n");
    fclose(f);
    printf("(written to %s)\n", path.c_str());
    return path;
}

}  // namespace bench
