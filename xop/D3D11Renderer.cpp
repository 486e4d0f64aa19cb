// Device, swap chain and the objects on its back buffer; life cycle.
#include "xop/D3D11Renderer.h"

#include <cfloat>

#include "xop/ComUtil.h"
#include "xop/XopDebug.h"

namespace xop {

using Microsoft::WRL::ComPtr;

namespace {

const char* const kInitDevice = "xop::D3D11Renderer::InitDevice";
const char* const kInitDeviceOnly = "xop::D3D11Renderer::InitDeviceOnly";
const char* const kCreateSwapChain = "xop::D3D11Renderer::CreateSwapChain";
const char* const kCreateRenderer = "xop::D3D11Renderer::CreateRenderer";
const char* const kSetWnd = "xop::D3D11Renderer::SetWnd";

using Lock = std::lock_guard<std::recursive_mutex>;

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

D3D11_SAMPLER_DESC ClampSamplerDesc(D3D11_FILTER filter) {
    D3D11_SAMPLER_DESC sampler = {};
    sampler.Filter = filter;
    sampler.AddressU = sampler.AddressV = sampler.AddressW = D3D11_TEXTURE_ADDRESS_CLAMP;
    sampler.MipLODBias = 0.0f;
    sampler.MaxAnisotropy = 1;
    sampler.ComparisonFunc = D3D11_COMPARISON_ALWAYS;
    sampler.MinLOD = 0.0f;
    sampler.MaxLOD = FLT_MAX;
    return sampler;
}

}  // namespace

D3D11Renderer::D3D11Renderer() = default;

D3D11Renderer::~D3D11Renderer() { D3D11Renderer::Destroy(); }

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
// factory behind them (handed to the caller in `factory` when asked for), and
// multithread protection. On failure: the message with `func` and its line,
// nothing kept.
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
    ComPtr<IDXGIFactory1> dxgiFactory;
    hr = CreateFactory(&dxgiFactory);
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] Get DXGI factory failed, %x \n \n", func, factoryLine, (unsigned)hr);
        ReleaseDevice();
        return false;
    }
    if (factory) *factory = dxgiFactory.Detach();
    ComPtr<ID3D10Multithread> multithread;
    if (SUCCEEDED(m_device->QueryInterface(IID_ID3D10Multithread,
                                           reinterpret_cast<void**>(multithread.GetAddressOf()))) &&
        multithread) {
        if (!multithread->GetMultithreadProtected()) multithread->SetMultithreadProtected(TRUE);
    }
    return true;
}

// The DXGI factory that made the device's adapter.
HRESULT D3D11Renderer::CreateFactory(IDXGIFactory1** factory) {
    *factory = nullptr;
    ComPtr<IDXGIDevice> dxgiDevice;
    ComPtr<IDXGIAdapter> adapter;
    HRESULT hr = m_device->QueryInterface(IID_IDXGIDevice, reinterpret_cast<void**>(dxgiDevice.GetAddressOf()));
    if (SUCCEEDED(hr)) hr = dxgiDevice->GetAdapter(&adapter);
    if (SUCCEEDED(hr)) hr = adapter->GetParent(IID_IDXGIFactory1, reinterpret_cast<void**>(factory));
    if (SUCCEEDED(hr) && !*factory) hr = E_NOINTERFACE;
    return hr;
}

// The factory stays the caller's.
bool D3D11Renderer::CreateSwapChainOn(IDXGIFactory1* factory, const RECT& client, HRESULT* result) {
    DXGI_SWAP_CHAIN_DESC desc = SwapChainDesc(m_hWnd, client);
    *result = factory->CreateSwapChain(m_device, &desc, &m_swapChain);
    return SUCCEEDED(*result);
}

bool D3D11Renderer::InitDevice() {
    RECT client = {};
    if (!GetClientRect(m_hWnd, &client)) return false;
    ComPtr<IDXGIFactory1> factory;
    if (!CreateDevice(D3D11_CREATE_DEVICE_BGRA_SUPPORT, kInitDevice, 261, 280, &factory)) return false;
    HRESULT hr = S_OK;
    const bool created = CreateSwapChainOn(factory.Get(), client, &hr);
    factory.Reset();
    if (!created) {
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
    ComPtr<IDXGIFactory1> factory;
    HRESULT hr = m_device ? CreateFactory(&factory) : E_POINTER;
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] Get DXGI factory failed, %x \n \n", kCreateSwapChain, 358, (unsigned)hr);
        return false;
    }
    const bool created = CreateSwapChainOn(factory.Get(), client, &hr);
    factory.Reset();
    if (!created) {
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
    ResetOutputTextures();

    ComPtr<ID3D11Texture2D> backBuffer;
    HRESULT hr = m_swapChain ? m_swapChain->GetBuffer(0, IID_ID3D11Texture2D,
                                                      reinterpret_cast<void**>(backBuffer.GetAddressOf()))
                             : E_POINTER;
    if (FAILED(hr) || !backBuffer) return false;
    D3D11_TEXTURE2D_DESC back = {};
    backBuffer->GetDesc(&back);

    m_d2dRenderTarget.Reset();  // it drew on the previous back buffer
    if (m_d2dFactory) {
        ComPtr<IDXGISurface> surface;
        hr = m_swapChain->GetBuffer(0, IID_IDXGISurface, reinterpret_cast<void**>(surface.GetAddressOf()));
        if (SUCCEEDED(hr)) {
            D2D1_RENDER_TARGET_PROPERTIES props = {};
            props.type = D2D1_RENDER_TARGET_TYPE_DEFAULT;
            props.pixelFormat.format = DXGI_FORMAT_UNKNOWN;
            props.pixelFormat.alphaMode = D2D1_ALPHA_MODE_PREMULTIPLIED;
            props.dpiX = 96.0f;
            props.dpiY = 96.0f;
            props.usage = D2D1_RENDER_TARGET_USAGE_NONE;
            props.minLevel = D2D1_FEATURE_LEVEL_DEFAULT;
            hr = m_d2dFactory->CreateDxgiSurfaceRenderTarget(surface.Get(), &props,
                                                             m_d2dRenderTarget.ReleaseAndGetAddressOf());
        }
        if (FAILED(hr)) {
            DebugPrint("[%s:%d] ID3D11Device::CreateDxgiSurfaceRenderTarget() failed, %x  \n", kCreateRenderer, 521,
                       (unsigned)hr);
        }
    }

    hr = m_device->CreateRenderTargetView(backBuffer.Get(), nullptr, &m_renderTargetView);
    backBuffer.Reset();
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] ID3D11Device::CreateRenderTargetView() failed, %x  \n", kCreateRenderer, 531,
                   (unsigned)hr);
        return false;
    }
    DebugPrint("[%s:%d] D3D11Renderer::CreateRenderer() width = %d height = %d \n \n", kCreateRenderer, 540,
               (int)back.Width, (int)back.Height);

    if (!InitOutputTextures(back)) return false;

    D3D11_SAMPLER_DESC sampler = ClampSamplerDesc(D3D11_FILTER_MIN_MAG_MIP_POINT);
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

}  // namespace xop
