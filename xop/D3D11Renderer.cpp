#include "xop/D3D11Renderer.h"

#include <cfloat>
#include <cstdio>
#include <cstring>

#include "xop/ComUtil.h"
#include "xop/Shaders.h"
#include "xop/XopDebug.h"

namespace xop {

namespace {

const char* const kInitDevice = "xop::D3D11Renderer::InitDevice";
const char* const kInitDeviceOnly = "xop::D3D11Renderer::InitDeviceOnly";
const char* const kCreateSwapChain = "xop::D3D11Renderer::CreateSwapChain";
const char* const kCreateRenderer = "xop::D3D11Renderer::CreateRenderer";
const char* const kSetWnd = "xop::D3D11Renderer::SetWnd";

using Lock = std::lock_guard<std::recursive_mutex>;

void UploadPlane(ID3D11DeviceContext* context, ID3D11Texture2D* texture, const uint8_t* src, int linesize,
                 int rows) {
    D3D11_MAPPED_SUBRESOURCE mapped = {};
    if (SUCCEEDED(context->Map(texture, 0, D3D11_MAP_WRITE_DISCARD, 0, &mapped))) {
        CopyPlaneRows(static_cast<uint8_t*>(mapped.pData), mapped.RowPitch, src, linesize, rows);
    }
    context->Unmap(texture, 0);
}

bool HasTexture(const std::unique_ptr<D3D11RenderTexture>& t) { return t && t->GetTexture(); }

DXGI_SWAP_CHAIN_DESC SwapChainDesc(HWND window, const RECT& client) {
    DXGI_SWAP_CHAIN_DESC desc = {};
    desc.BufferDesc.Width = client.right - client.left;
    desc.BufferDesc.Height = client.bottom - client.top;
    desc.BufferDesc.RefreshRate.Numerator = 60;
    desc.BufferDesc.RefreshRate.Denominator = 1;
    desc.BufferDesc.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
    desc.SampleDesc.Count = 1;
    desc.SampleDesc.Quality = 0;
    desc.BufferUsage = DXGI_USAGE_RENDER_TARGET_OUTPUT;
    desc.BufferCount = 1;
    desc.OutputWindow = window;
    desc.Windowed = TRUE;
    desc.SwapEffect = DXGI_SWAP_EFFECT_DISCARD;
    desc.Flags = 0;
    return desc;
}

}  // namespace

void CopyPlaneRows(uint8_t* dst, UINT pitch, const uint8_t* src, int linesize, int rows) {
    if (!dst || !src || linesize <= 0) return;
    const size_t bytes = static_cast<size_t>(linesize) < pitch ? static_cast<size_t>(linesize) : pitch;
    for (int row = 0; row < rows; ++row) {
        memcpy(dst + static_cast<size_t>(row) * pitch, src + static_cast<size_t>(row) * linesize, bytes);
    }
}

void CopyNv12Rows(uint8_t* dst, UINT pitch, const FrameImage& frame) {
    if (!dst || frame.height <= 0) return;
    CopyPlaneRows(dst, pitch, frame.data[0], frame.linesize[0], frame.height);
    CopyPlaneRows(dst + static_cast<size_t>(frame.height) * pitch, pitch, frame.data[1], frame.linesize[1],
                  (frame.height + 1) / 2);
}

D3D11Renderer::D3D11Renderer() = default;

D3D11Renderer::~D3D11Renderer() { D3D11Renderer::Destroy(); }

void D3D11Renderer::ResetBanks() {
    for (auto& t : m_inputTextures) t.reset();
    for (auto& t : m_outputTextures) t.reset();
}

// The Direct2D target and the render target view hold the back buffer, and
// every render texture of both banks a reference to the swap chain it was
// made for: all of them go before a new swap chain is made, so that the old
// one is gone by then (two swap chains on one window are more than some
// presentation engines take). The picture geometry is forgotten, so the next
// frame makes its input textures again.
void D3D11Renderer::ReleaseSwapChainHolders() {
    m_d2dRenderTarget.Reset();
    if (m_context) m_context->OMSetRenderTargets(0, nullptr, nullptr);
    SafeRelease(m_sharpenParams);
    SafeRelease(m_renderTargetView);
    SafeRelease(m_pointSampler);
    SafeRelease(m_linearSampler);
    m_frameFormat = m_frameWidth = m_frameHeight = 0;
    m_currentOutput = nullptr;
    ResetBanks();
}

void D3D11Renderer::ReleaseDevice() {
    SafeRelease(m_swapChain);
    SafeRelease(m_context);
    SafeRelease(m_device);
}

bool D3D11Renderer::Init(HWND window) {
    Lock lock(m_mutex);
    // Initialising again starts afresh: the first device's objects would
    // otherwise be overwritten and never released.
    if (m_device) Destroy();
    m_hWnd = window;
    if (!InitDevice()) return false;
    if (!CreateRenderer()) {
        ReleaseDevice();
        return false;
    }
    return true;
}

bool D3D11Renderer::SetWnd(HWND window) {
    Lock lock(m_mutex);
    m_hWnd = window;
    ReleaseSwapChainHolders();
    if (!CreateSwapChain()) {
        DebugPrint("[%s:%d] CreateSwapChain() failed\n \n", kSetWnd, 66);
        return false;
    }
    if (!CreateRenderer()) {
        DebugPrint("[%s:%d] CreateRenderer() failed\n \n", kSetWnd, 73);
        return false;
    }
    return true;
}

// Device and immediate context (first driver type that works), the DXGI
// factory behind them (kept in `factory` when asked for), and multithread
// protection. On failure: the message with `func` and its line, nothing kept.
bool D3D11Renderer::CreateDevice(UINT flags, const char* func, int deviceLine, int factoryLine,
                                 IDXGIFactory1** factory) {
    static const D3D_DRIVER_TYPE kDriverTypes[] = {D3D_DRIVER_TYPE_HARDWARE, D3D_DRIVER_TYPE_WARP,
                                                   D3D_DRIVER_TYPE_REFERENCE};
    static const D3D_FEATURE_LEVEL kLevels[] = {D3D_FEATURE_LEVEL_11_1, D3D_FEATURE_LEVEL_11_0,
                                                D3D_FEATURE_LEVEL_10_1, D3D_FEATURE_LEVEL_10_0};
    HRESULT hr = E_FAIL;
    for (D3D_DRIVER_TYPE type : kDriverTypes) {
        m_driverType = type;
        hr = D3D11CreateDevice(nullptr, type, nullptr, flags, kLevels, 4, D3D11_SDK_VERSION, &m_device,
                               &m_featureLevel, &m_context);
        if (SUCCEEDED(hr)) break;
    }
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] D3D11CreateDevice() failed, %x \n \n", func, deviceLine, (unsigned)hr);
        ReleaseDevice();
        return false;
    }
    IDXGIFactory1* dxgiFactory = nullptr;
    hr = CreateFactory(&dxgiFactory);
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] Get DXGI factory failed, %x \n \n", func, factoryLine, (unsigned)hr);
        ReleaseDevice();
        return false;
    }
    if (factory) {
        *factory = dxgiFactory;
    } else {
        dxgiFactory->Release();
    }
    ID3D10Multithread* multithread = nullptr;
    if (SUCCEEDED(m_device->QueryInterface(IID_ID3D10Multithread, reinterpret_cast<void**>(&multithread))) &&
        multithread) {
        if (!multithread->GetMultithreadProtected()) multithread->SetMultithreadProtected(TRUE);
        multithread->Release();
    }
    return true;
}

// The DXGI factory that made the device's adapter.
HRESULT D3D11Renderer::CreateFactory(IDXGIFactory1** factory) {
    *factory = nullptr;
    IDXGIDevice* dxgiDevice = nullptr;
    IDXGIAdapter* adapter = nullptr;
    HRESULT hr = m_device->QueryInterface(IID_IDXGIDevice, reinterpret_cast<void**>(&dxgiDevice));
    if (SUCCEEDED(hr)) hr = dxgiDevice->GetAdapter(&adapter);
    if (SUCCEEDED(hr)) hr = adapter->GetParent(IID_IDXGIFactory1, reinterpret_cast<void**>(factory));
    SafeRelease(adapter);
    SafeRelease(dxgiDevice);
    if (SUCCEEDED(hr) && !*factory) hr = E_NOINTERFACE;
    return hr;
}

bool D3D11Renderer::CreateSwapChainOn(IDXGIFactory1* factory, const RECT& client, HRESULT* result) {
    DXGI_SWAP_CHAIN_DESC desc = SwapChainDesc(m_hWnd, client);
    *result = factory->CreateSwapChain(m_device, &desc, &m_swapChain);
    factory->Release();
    return SUCCEEDED(*result);
}

bool D3D11Renderer::InitDevice() {
    RECT client = {};
    if (!GetClientRect(m_hWnd, &client)) return false;
    IDXGIFactory1* factory = nullptr;
    if (!CreateDevice(D3D11_CREATE_DEVICE_BGRA_SUPPORT, kInitDevice, 261, 280, &factory)) return false;
    HRESULT hr = S_OK;
    if (!CreateSwapChainOn(factory, client, &hr)) {
        DebugPrint("[%s:%d] Create swap chain failed, %x \n \n", kInitDevice, 307, (unsigned)hr);
        ReleaseDevice();
        return false;
    }
    // Without these the device still shows pictures, only without overlays.
    hr = D2D1CreateFactory(D2D1_FACTORY_TYPE_SINGLE_THREADED, IID_ID2D1Factory, nullptr,
                           reinterpret_cast<void**>(m_d2dFactory.ReleaseAndGetAddressOf()));
    if (FAILED(hr)) DebugPrint("[%s:%d] D2D1CreateFactory() failed, %x \n \n", kInitDevice, 313, (unsigned)hr);
    hr = DWriteCreateFactory(DWRITE_FACTORY_TYPE_SHARED, __uuidof(IDWriteFactory),
                             reinterpret_cast<IUnknown**>(m_dwriteFactory.ReleaseAndGetAddressOf()));
    if (FAILED(hr)) DebugPrint("[%s:%d] DWriteCreateFactory() failed, %x \n \n", kInitDevice, 319, (unsigned)hr);
    return true;
}

bool D3D11Renderer::InitDeviceOnly() {
    Lock lock(m_mutex);
    if (m_device) Destroy();  // as in Init
    return CreateDevice(0, kInitDeviceOnly, 436, 455, nullptr);
}

bool D3D11Renderer::CreateSwapChain() {
    SafeRelease(m_swapChain);
    RECT client = {};
    if (!GetClientRect(m_hWnd, &client)) return false;
    IDXGIFactory1* factory = nullptr;
    HRESULT hr = m_device ? CreateFactory(&factory) : E_POINTER;
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] Get DXGI factory failed, %x \n \n", kCreateSwapChain, 358, (unsigned)hr);
        return false;
    }
    if (!CreateSwapChainOn(factory, client, &hr)) {
        DebugPrint("[%s:%d] Create swap chain failed, %x \n \n", kCreateSwapChain, 378, (unsigned)hr);
        return false;
    }
    return true;
}

bool D3D11Renderer::CreateRenderer() {
    if (!m_device) return false;
    if (m_context) m_context->ClearState();
    SafeRelease(m_sharpenParams);
    SafeRelease(m_pointSampler);
    SafeRelease(m_linearSampler);
    SafeRelease(m_renderTargetView);
    m_currentOutput = nullptr;  // it lived in the bank replaced below
    for (auto& t : m_outputTextures) t.reset(new (std::nothrow) D3D11RenderTexture(m_swapChain));

    ID3D11Texture2D* backBuffer = nullptr;
    HRESULT hr = m_swapChain ? m_swapChain->GetBuffer(0, IID_ID3D11Texture2D, reinterpret_cast<void**>(&backBuffer))
                             : E_POINTER;
    if (FAILED(hr) || !backBuffer) return false;
    D3D11_TEXTURE2D_DESC back = {};
    backBuffer->GetDesc(&back);

    m_d2dRenderTarget.Reset();  // it drew on the previous back buffer
    if (m_d2dFactory) {
        IDXGISurface* surface = nullptr;
        hr = m_swapChain->GetBuffer(0, IID_IDXGISurface, reinterpret_cast<void**>(&surface));
        if (SUCCEEDED(hr)) {
            D2D1_RENDER_TARGET_PROPERTIES props = {};
            props.type = D2D1_RENDER_TARGET_TYPE_DEFAULT;
            props.pixelFormat.format = DXGI_FORMAT_UNKNOWN;
            props.pixelFormat.alphaMode = D2D1_ALPHA_MODE_PREMULTIPLIED;
            props.dpiX = 96.0f;
            props.dpiY = 96.0f;
            props.usage = D2D1_RENDER_TARGET_USAGE_NONE;
            props.minLevel = D2D1_FEATURE_LEVEL_DEFAULT;
            hr = m_d2dFactory->CreateDxgiSurfaceRenderTarget(surface, &props,
                                                             m_d2dRenderTarget.ReleaseAndGetAddressOf());
            surface->Release();
        }
        if (FAILED(hr)) {
            DebugPrint("[%s:%d] ID3D11Device::CreateDxgiSurfaceRenderTarget() failed, %x  \n", kCreateRenderer, 521,
                       (unsigned)hr);
        }
    }

    hr = m_device->CreateRenderTargetView(backBuffer, nullptr, &m_renderTargetView);
    backBuffer->Release();
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] ID3D11Device::CreateRenderTargetView() failed, %x  \n", kCreateRenderer, 531,
                   (unsigned)hr);
        return false;
    }
    DebugPrint("[%s:%d] D3D11Renderer::CreateRenderer() width = %d height = %d \n \n", kCreateRenderer, 540,
               (int)back.Width, (int)back.Height);

    for (int i = 0; i < kBankSize; ++i) {
        D3D11RenderTexture* out = m_outputTextures[i].get();
        if (out) {
            out->InitTexture(back.Width, back.Height, back.Format, D3D11_USAGE_DEFAULT,
                             D3D11_BIND_RENDER_TARGET | D3D11_BIND_SHADER_RESOURCE, 0, 0);
            out->InitVertexShader();
            out->InitRasterizerState();
            if (kPixelShaders[i].code) out->InitPixelShader(nullptr, kPixelShaders[i].code, kPixelShaders[i].size);
        }
        if (i == kOutputSharpen) {
            D3D11_BUFFER_DESC desc = {};
            desc.ByteWidth = 16;
            desc.Usage = D3D11_USAGE_DEFAULT;
            desc.BindFlags = D3D11_BIND_CONSTANT_BUFFER;
            hr = m_device->CreateBuffer(&desc, nullptr, &m_sharpenParams);
            if (FAILED(hr)) {
                fprintf(stderr, "[D3D11Renderer] CreateBuffer(CONSTANT_BUFFER) failed, %x \n", (unsigned)hr);
                return false;
            }
        }
    }

    D3D11_SAMPLER_DESC sampler = {};
    sampler.Filter = D3D11_FILTER_MIN_MAG_MIP_POINT;
    sampler.AddressU = sampler.AddressV = sampler.AddressW = D3D11_TEXTURE_ADDRESS_CLAMP;
    sampler.MipLODBias = 0.0f;
    sampler.MaxAnisotropy = 1;
    sampler.ComparisonFunc = D3D11_COMPARISON_ALWAYS;
    sampler.MinLOD = 0.0f;
    sampler.MaxLOD = FLT_MAX;
    hr = m_device->CreateSamplerState(&sampler, &m_pointSampler);
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] ID3D11Device::CreateSamplerState(POINT) failed, %x  \n", kCreateRenderer, 592,
                   (unsigned)hr);
        return false;
    }
    sampler.Filter = D3D11_FILTER_MIN_MAG_MIP_LINEAR;
    hr = m_device->CreateSamplerState(&sampler, &m_linearSampler);
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] ID3D11Device::CreateSamplerState(LINEAR) failed, %x  \n", kCreateRenderer, 599,
                   (unsigned)hr);
        return false;
    }
    return true;
}

void D3D11Renderer::Destroy() {
    Lock lock(m_mutex);
    ResetBanks();
    if (m_context) m_context->ClearState();
    m_d2dRenderTarget.Reset();
    m_d2dFactory.Reset();
    m_dwriteFactory.Reset();
    SafeRelease(m_sharpenParams);
    SafeRelease(m_pointSampler);
    SafeRelease(m_linearSampler);
    SafeRelease(m_renderTargetView);
    SafeRelease(m_swapChain);
    SafeRelease(m_context);
    SafeRelease(m_device);
    m_currentOutput = nullptr;
    m_frameFormat = 0;
    if (!m_keepWindowOnDestroy && m_hWnd) {
        RECT client = {};
        GetClientRect(m_hWnd, &client);
        InvalidateRect(m_hWnd, &client, TRUE);
    }
}

bool D3D11Renderer::Resize() {
    Lock lock(m_mutex);
    RECT client = {};
    if (!m_swapChain || !GetClientRect(m_hWnd, &client)) return false;
    if (client.right - client.left == 0 && client.bottom - client.top == 0) return false;
    SetWnd(m_hWnd);  // releases what holds the old swap chain, then rebuilds
    return true;
}

void D3D11Renderer::SetSharpen(float unsharp) { m_unsharp = unsharp; }

// Input textures receive CPU planes through Map(WRITE_DISCARD), which needs
// DYNAMIC usage with CPU write access. A DYNAMIC resource can never be the
// destination of a GPU copy, though, so the decoder-texture path (one
// CopySubresourceRegion out of the decoder's array) asks for a DEFAULT
// texture without CPU access instead; both stay shader resources.
bool D3D11Renderer::InitInputTextures(int width, int height, int format, bool copyDestination) {
    if (!m_device) return false;
    for (auto& t : m_inputTextures) t.reset(new (std::nothrow) D3D11RenderTexture(m_swapChain));
    const UINT w = static_cast<UINT>(width), h = static_cast<UINT>(height);
    const UINT cw = static_cast<UINT>((width + 1) / 2), ch = static_cast<UINT>((height + 1) / 2);
    const D3D11_USAGE usage = copyDestination ? D3D11_USAGE_DEFAULT : D3D11_USAGE_DYNAMIC;
    const UINT cpuAccess = copyDestination ? 0 : D3D11_CPU_ACCESS_WRITE;
    auto make = [&](int index, UINT tw, UINT th, DXGI_FORMAT f) {
        if (m_inputTextures[index]) {
            m_inputTextures[index]->InitTexture(tw, th, f, usage, D3D11_BIND_SHADER_RESOURCE, cpuAccess, 0);
        }
    };
    switch (format) {
        case kFrameBgra:
            make(kInputBgra, w, h, DXGI_FORMAT_B8G8R8A8_UNORM);
            break;
        case kFrameNv12:
            make(kInputNv12, w, h, DXGI_FORMAT_NV12);
            break;
        case kFrameI420:
            make(kInputY, w, h, DXGI_FORMAT_R8_UNORM);
            make(kInputU, cw, ch, DXGI_FORMAT_R8_UNORM);
            make(kInputV, cw, ch, DXGI_FORMAT_R8_UNORM);
            break;
        case kFrameYuv444:
            make(kInputY, w, h, DXGI_FORMAT_R8_UNORM);
            make(kInputU, w, h, DXGI_FORMAT_R8_UNORM);
            make(kInputV, w, h, DXGI_FORMAT_R8_UNORM);
            break;
        default:
            break;
    }
    m_frameWidth = width;
    m_frameHeight = height;
    m_frameFormat = format;
    m_inputCopyDestination = copyDestination;
    return true;
}

bool D3D11Renderer::EnsureInputTextures(int width, int height, int format, bool copyDestination) {
    if (format == m_frameFormat && width == m_frameWidth && height == m_frameHeight &&
        copyDestination == m_inputCopyDestination) {
        return true;
    }
    return InitInputTextures(width, height, format, copyDestination);
}

void D3D11Renderer::BeginFrame() {
    if (!m_renderTargetView) return;
    m_context->OMSetRenderTargets(1, &m_renderTargetView, nullptr);
    const float black[4] = {0.0f, 0.0f, 0.0f, 1.0f};
    m_context->ClearRenderTargetView(m_renderTargetView, black);
}

void D3D11Renderer::UpdateFrame(const FrameImage& frame) {
    static const int kWhole[4] = {0, 0, 0, 0};
    if (!m_device) return;
    const int rows = frame.height;
    const int chromaRows = frame.format == kFrameI420 || frame.format == kFrameNv12 ? (frame.height + 1) / 2
                                                                                     : frame.height;
    int output = 0;
    int slots = 0;
    ID3D11ShaderResourceView* views[3] = {};
    switch (frame.format) {
        case kFrameBgra:
            if (!HasTexture(m_inputTextures[kInputBgra])) return;
            UploadPlane(m_context, m_inputTextures[kInputBgra]->GetTexture(), frame.data[0], frame.linesize[0], rows);
            output = kOutputBgra;
            slots = 1;
            views[0] = m_inputTextures[kInputBgra]->GetShaderResourceView();
            break;
        case kFrameI420:
        case kFrameYuv444: {
            const int planes[3] = {kInputY, kInputU, kInputV};
            for (int p = 0; p < 3; ++p) {
                if (!HasTexture(m_inputTextures[planes[p]])) return;
            }
            for (int p = 0; p < 3; ++p) {
                UploadPlane(m_context, m_inputTextures[planes[p]]->GetTexture(), frame.data[p], frame.linesize[p],
                            p == 0 ? rows : chromaRows);
                views[p] = m_inputTextures[planes[p]]->GetShaderResourceView();
            }
            output = kOutputI420;
            slots = 3;
            break;
        }
        case kFrameNv12: {
            if (!HasTexture(m_inputTextures[kInputNv12])) return;
            ID3D11Texture2D* texture = m_inputTextures[kInputNv12]->GetTexture();
            D3D11_MAPPED_SUBRESOURCE mapped = {};
            if (SUCCEEDED(m_context->Map(texture, 0, D3D11_MAP_WRITE_DISCARD, 0, &mapped))) {
                CopyNv12Rows(static_cast<uint8_t*>(mapped.pData), mapped.RowPitch, frame);
            }
            m_context->Unmap(texture, 0);
            output = kOutputNv12;
            slots = 2;
            views[0] = m_inputTextures[kInputNv12]->GetLumaView();
            views[1] = m_inputTextures[kInputNv12]->GetChromaView();
            break;
        }
        default:
            return;
    }
    if (D3D11RenderTexture* out = m_outputTextures[output].get()) DrawPass(out, kWhole, views, slots);
}

void D3D11Renderer::DrawPass(D3D11RenderTexture* out, const int viewport[4], ID3D11ShaderResourceView* const* views,
                             int count, ID3D11Buffer* const* constants) {
    static const double kFull[4] = {0.0, 0.0, 1.0, 1.0};
    out->Begin(viewport, kFull);
    for (int s = 0; s < count; ++s) out->SetShaderResource(s, views[s]);
    if (constants) out->SetConstantBuffer(0, *constants);
    out->SetSampler(0, m_linearSampler);
    out->SetSampler(1, m_pointSampler);
    out->Draw();
    out->End();
    for (int s = 0; s < count; ++s) out->SetShaderResource(s, nullptr);
    m_currentOutput = out;
}

void D3D11Renderer::ApplySharpen() {
    static const int kWhole[4] = {0, 0, 0, 0};
    if (!m_currentOutput || !(m_unsharp > 0.0f)) return;
    D3D11RenderTexture* out = m_outputTextures[kOutputSharpen].get();
    if (!out || !m_context) return;
    const float params[4] = {static_cast<float>(m_frameWidth), static_cast<float>(m_frameHeight), m_unsharp, 0.0f};
    if (m_sharpenParams) m_context->UpdateSubresource(m_sharpenParams, 0, nullptr, params, 0, 0);
    ID3D11ShaderResourceView* const picture = m_currentOutput->GetShaderResourceView();
    DrawPass(out, kWhole, &picture, 1, &m_sharpenParams);
}

void D3D11Renderer::PresentOutput(const ShowFrameData* frame) {
    if (m_currentOutput) {
        ID3D11Texture2D* backBuffer = nullptr;
        if (m_swapChain &&
            SUCCEEDED(m_swapChain->GetBuffer(0, IID_ID3D11Texture2D, reinterpret_cast<void**>(&backBuffer))) &&
            backBuffer) {
            if (m_currentOutput->GetTexture()) m_context->CopyResource(backBuffer, m_currentOutput->GetTexture());
            backBuffer->Release();
        }
        m_currentOutput = nullptr;
    }
    if (m_d2dRenderTarget) {
        m_d2dRenderTarget->BeginDraw();
        if (m_drawCallback && frame) m_drawCallback(const_cast<ShowFrameData*>(frame), m_drawCallbackUser);
        m_d2dRenderTarget->EndDraw();
    }
    if (frame) m_keepWindowOnDestroy = frame->eraseOnRelease == 0;
}

void D3D11Renderer::PresentSwapChain() {
    if (!m_swapChain) return;
    HRESULT hr = m_swapChain->Present(0, 0);
    if (IsDeviceLost(hr)) {  // still drawing and other failures are ignored
        Destroy();
        Init(m_hWnd);
    }
}

void D3D11Renderer::Render(const FrameImage& frame) {
    Lock lock(m_mutex);
    if (!m_device) return;
    if (!EnsureInputTextures(frame.width, frame.height, frame.format)) return;
    BeginFrame();
    UpdateFrame(frame);
    ApplySharpen();
    PresentSwapChain();
}

}  // namespace xop
