#include "bench/baseline_loop.h"

#include <d3d10.h>

#include "bench/bench_common.h"
#include "xop/D3D11RenderTexture.h"
#include "xop/D3D11Renderer.h"
#include "xop/Shaders.h"

namespace bench {

OverlayScene::OverlayScene(int w, int h)
{
    for (int i = 0; i < 10; ++i) {
        lines[i][0] = {w / 20, h * (i + 1) / 12};
        lines[i][1] = {w * 19 / 20, h * (i + 1) / 12 + 20};
    }
    hatch = {w / 2, h / 2, w * 9 / 10, h * 9 / 10};
    textBox = {10, 10, w - 10, 60};
}

namespace {

D2D1_COLOR_F Colour(unsigned c)
{
    return D2D1::ColorF((c & 0xFF) / 255.0f, ((c >> 8) & 0xFF) / 255.0f, ((c >> 16) & 0xFF) / 255.0f, 1.0f);
}

D2D1_POINT_2F Point(POINT p) { return D2D1::Point2F(static_cast<float>(p.x), static_cast<float>(p.y)); }

}  // namespace

BaselineLoop::BaselineLoop(HWND window, int w, int h, ID3D11Device* device) : m_window(window), m_w(w), m_h(h)
{
    if (device) {
        m_device = device;
        device->GetImmediateContext(&m_ctx);
    } else if (FAILED(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, D3D11_CREATE_DEVICE_BGRA_SUPPORT,
                                        nullptr, 0, D3D11_SDK_VERSION, &m_device, nullptr, &m_ctx))) {
        return;
    }
    ComPtr<IDXGIDevice> dxgi;
    ComPtr<IDXGIAdapter> adapter;
    ComPtr<IDXGIFactory1> factory;
    if (FAILED(m_device.As(&dxgi)) || FAILED(dxgi->GetAdapter(&adapter)) ||
        FAILED(adapter->GetParent(IID_PPV_ARGS(&factory))))
        return;
    DXGI_SWAP_CHAIN_DESC sd = {};
    sd.BufferDesc.Width = w;
    sd.BufferDesc.Height = h;
    sd.BufferDesc.RefreshRate = {60, 1};
    sd.BufferDesc.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
    sd.SampleDesc.Count = 1;
    sd.BufferUsage = DXGI_USAGE_RENDER_TARGET_OUTPUT;
    sd.BufferCount = 1;
    sd.OutputWindow = window;
    sd.Windowed = TRUE;
    if (FAILED(factory->CreateSwapChain(m_device.Get(), &sd, &m_chain))) return;
    m_chain->GetBuffer(0, IID_PPV_ARGS(&m_back));
    m_device->CreateRenderTargetView(m_back.Get(), nullptr, &m_rtv);

    m_device->CreateVertexShader(xop::kQuadVertexShader.code, xop::kQuadVertexShader.size, nullptr, &m_vs);
    const xop::ShaderCode& i420 = xop::PixelShader(xop::OutputBank::kI420Bt601);
    const xop::ShaderCode& nv12 = xop::PixelShader(xop::OutputBank::kNv12Bt709);
    m_device->CreatePixelShader(i420.code, i420.size, nullptr, &m_i420);
    m_device->CreatePixelShader(nv12.code, nv12.size, nullptr, &m_nv12Shader);
    m_device->CreateInputLayout(xop::kQuadInputLayout, 3, xop::kQuadVertexShader.code, xop::kQuadVertexShader.size,
                                &m_layout);
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
    m_device->CreateBuffer(&bd, &init, &m_quad);
    D3D11_BUFFER_DESC cd = {sizeof(constants), D3D11_USAGE_DEFAULT, D3D11_BIND_CONSTANT_BUFFER, 0, 0, 0};
    init.pSysMem = constants;
    m_device->CreateBuffer(&cd, &init, &m_constants);
    D3D11_SAMPLER_DESC smp = {};
    smp.Filter = D3D11_FILTER_MIN_MAG_MIP_LINEAR;
    smp.AddressU = smp.AddressV = smp.AddressW = D3D11_TEXTURE_ADDRESS_CLAMP;
    smp.MaxLOD = D3D11_FLOAT32_MAX;
    m_device->CreateSamplerState(&smp, &m_linear);
    smp.Filter = D3D11_FILTER_MIN_MAG_MIP_POINT;
    m_device->CreateSamplerState(&smp, &m_point);
    // The quad's winding is counter-clockwise: without culling off it would
    // not be drawn at all (as in the renderer's own rasterizer state).
    D3D11_RASTERIZER_DESC rd = {};
    rd.FillMode = D3D11_FILL_SOLID;
    rd.CullMode = D3D11_CULL_NONE;
    rd.DepthClipEnable = TRUE;
    m_device->CreateRasterizerState(&rd, &m_raster);
    if (!MakeI420Planes()) m_chain.Reset();
}

bool BaselineLoop::MakeI420Planes()
{
    for (int i = 0; i < 3; ++i) {
        const D3D11_TEXTURE2D_DESC td =
            xop::TextureDesc(i ? (m_w + 1) / 2 : m_w, i ? (m_h + 1) / 2 : m_h, DXGI_FORMAT_R8_UNORM,
                             D3D11_USAGE_DYNAMIC, D3D11_BIND_SHADER_RESOURCE, D3D11_CPU_ACCESS_WRITE);
        if (FAILED(m_device->CreateTexture2D(&td, nullptr, &m_planes[i])) ||
            FAILED(m_device->CreateShaderResourceView(m_planes[i].Get(), nullptr, &m_views[i])))
            return false;
    }
    return true;
}

bool BaselineLoop::UseNv12Slice(ID3D11Texture2D* pool, UINT slice)
{
    const D3D11_TEXTURE2D_DESC td = xop::TextureDesc(m_w, m_h, DXGI_FORMAT_NV12, D3D11_USAGE_DEFAULT,
                                                     D3D11_BIND_SHADER_RESOURCE, 0);
    if (!m_nv12 && FAILED(m_device->CreateTexture2D(&td, nullptr, &m_nv12))) return false;
    D3D11_SHADER_RESOURCE_VIEW_DESC vd = {};
    vd.ViewDimension = D3D11_SRV_DIMENSION_TEXTURE2D;
    vd.Texture2D.MipLevels = 1;
    const DXGI_FORMAT planes[2] = {DXGI_FORMAT_R8_UNORM, DXGI_FORMAT_R8G8_UNORM};
    for (int i = 0; i < 2; ++i) {
        vd.Format = planes[i];
        if (!m_nv12Views[i] && FAILED(m_device->CreateShaderResourceView(m_nv12.Get(), &vd, &m_nv12Views[i])))
            return false;
    }
    m_pool = pool;
    m_slice = slice;
    return true;
}

bool BaselineLoop::Make2DTarget()
{
    ComPtr<IDXGISurface> surface;
    const D2D1_RENDER_TARGET_PROPERTIES props = D2D1::RenderTargetProperties(
        D2D1_RENDER_TARGET_TYPE_DEFAULT, D2D1::PixelFormat(DXGI_FORMAT_UNKNOWN, D2D1_ALPHA_MODE_PREMULTIPLIED), 96, 96);
    return SUCCEEDED(D2D1CreateFactory(D2D1_FACTORY_TYPE_SINGLE_THREADED, IID_PPV_ARGS(&m_d2d))) &&
           SUCCEEDED(m_chain->GetBuffer(0, IID_PPV_ARGS(&surface))) &&
           SUCCEEDED(m_d2d->CreateDxgiSurfaceRenderTarget(surface.Get(), &props, &m_target));
}

bool BaselineLoop::UseSdkSteps()
{
    const D3D11_TEXTURE2D_DESC td = xop::TextureDesc(m_w, m_h, DXGI_FORMAT_B8G8R8A8_UNORM, D3D11_USAGE_DEFAULT,
                                                     D3D11_BIND_RENDER_TARGET | D3D11_BIND_SHADER_RESOURCE, 0);
    ComPtr<ID3D10Multithread> protection;  // the SDK's devices are multithread-protected
    if (SUCCEEDED(m_device.As(&protection))) protection->SetMultithreadProtected(TRUE);
    return SUCCEEDED(m_device->CreateTexture2D(&td, nullptr, &m_output)) &&
           SUCCEEDED(m_device->CreateRenderTargetView(m_output.Get(), nullptr, &m_outputRtv)) && Make2DTarget();
}

bool BaselineLoop::AddOverlays(const OverlayScene& scene)
{
    m_scene = scene;
    if (!Make2DTarget() ||
        FAILED(DWriteCreateFactory(DWRITE_FACTORY_TYPE_SHARED, __uuidof(IDWriteFactory),
                                   reinterpret_cast<IUnknown**>(m_dwrite.GetAddressOf()))) ||
        FAILED(m_dwrite->CreateTextFormat(L"Times New Roman", nullptr, DWRITE_FONT_WEIGHT_NORMAL,
                                          DWRITE_FONT_STYLE_NORMAL, DWRITE_FONT_STRETCH_NORMAL,
                                          static_cast<float>(scene.textSize), L"zh-cn", &m_format)) ||
        FAILED(m_target->CreateSolidColorBrush(Colour(scene.lineColour), &m_lineBrush)) ||
        FAILED(m_target->CreateSolidColorBrush(Colour(scene.hatchColour), &m_hatchBrush)) ||
        FAILED(m_target->CreateSolidColorBrush(Colour(scene.textColour), &m_textBrush))) {
        m_target.Reset();
        return false;
    }
    m_text.assign(scene.text, scene.text + strlen(scene.text));
    m_drawScene = true;
    return true;
}

void BaselineLoop::Frame(StepTimes* times)
{
    const double t0 = Now();
    ID3D11ShaderResourceView* const* views = m_views[0].GetAddressOf();
    if (m_pool) {
        const D3D11_BOX box = {0, 0, 0, static_cast<UINT>(m_w), static_cast<UINT>(m_h), 1};
        m_ctx->CopySubresourceRegion(m_nv12.Get(), 0, 0, 0, 0, m_pool, m_slice, &box);
        views = m_nv12Views[0].GetAddressOf();
    } else {
        for (int i = 0; i < 3; ++i) {
            D3D11_MAPPED_SUBRESOURCE m;
            if (SUCCEEDED(m_ctx->Map(m_planes[i].Get(), 0, D3D11_MAP_WRITE_DISCARD, 0, &m))) {
                xop::CopyPlaneRows(static_cast<uint8_t*>(m.pData), m.RowPitch, m_image.data[i], m_image.linesize[i],
                                   i ? (m_h + 1) / 2 : m_h);
                m_ctx->Unmap(m_planes[i].Get(), 0);
            }
        }
    }
    const double t1 = Now();
    const float black[4] = {0, 0, 0, 1};
    const D3D11_VIEWPORT vp = {0, 0, static_cast<float>(m_w), static_cast<float>(m_h), 0, 1};
    ID3D11RenderTargetView* rtv = m_output ? m_outputRtv.Get() : m_rtv.Get();
    m_ctx->OMSetRenderTargets(1, &rtv, nullptr);
    m_ctx->ClearRenderTargetView(rtv, black);
    m_ctx->RSSetViewports(1, &vp);
    m_ctx->RSSetState(m_raster.Get());
    UINT stride = 36, offset = 0;
    m_ctx->IASetInputLayout(m_layout.Get());
    m_ctx->IASetVertexBuffers(0, 1, m_quad.GetAddressOf(), &stride, &offset);
    m_ctx->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLESTRIP);
    m_ctx->VSSetShader(m_vs.Get(), nullptr, 0);
    m_ctx->VSSetConstantBuffers(0, 1, m_constants.GetAddressOf());
    m_ctx->PSSetShader(m_pool ? m_nv12Shader.Get() : m_i420.Get(), nullptr, 0);
    m_ctx->PSSetShaderResources(0, m_pool ? 2 : 3, views);
    ID3D11SamplerState* samplers[2] = {m_linear.Get(), m_point.Get()};
    m_ctx->PSSetSamplers(0, 2, samplers);
    m_ctx->Draw(4, 0);
    ID3D11ShaderResourceView* none[3] = {};
    m_ctx->PSSetShaderResources(0, 3, none);
    if (m_output) m_ctx->CopyResource(m_back.Get(), m_output.Get());
    const double t2 = Now();
    if (m_target) m_target->BeginDraw();
    if (m_drawScene) {
        for (const auto& line : m_scene.lines)
            m_target->DrawLine(Point(line[0]), Point(line[1]), m_lineBrush.Get(), static_cast<float>(m_scene.lineWidth));
        const RECT& r = m_scene.hatch;
        for (float y = r.top + 0.5f; y < r.bottom; y += 10.0f)
            m_target->DrawLine(D2D1::Point2F(static_cast<float>(r.left), y), D2D1::Point2F(static_cast<float>(r.right), y),
                               m_hatchBrush.Get(), static_cast<float>(m_scene.lineWidth));
        const RECT& b = m_scene.textBox;
        m_target->DrawText(m_text.c_str(), static_cast<UINT32>(m_text.size()), m_format.Get(),
                           D2D1::RectF(static_cast<float>(b.left), static_cast<float>(b.top),
                                       static_cast<float>(b.right), static_cast<float>(b.bottom)),
                           m_textBrush.Get());
    }
    if (m_target) m_target->EndDraw();
    const double t3 = Now();
    m_chain->Present(0, 0);
    if (times) {
        const double t4 = Now();
        times->upload += t1 - t0;
        times->draw += t2 - t1;
        times->overlay += t3 - t2;
        times->present += t4 - t3;
        ++times->frames;
    }
}

}  // namespace bench
