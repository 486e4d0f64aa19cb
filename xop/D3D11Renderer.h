#pragma once
// Direct3D 11 renderer on one host window: device, swap chain, back-buffer
// render target, samplers, Direct2D/DirectWrite overlay target and two banks
// of render textures (input planes, and one output per conversion shader).
// Implemented by concern: device and swap chain (D3D11Renderer.cpp), texture
// banks and upload (D3D11Banks.cpp), passes and present (D3D11Passes.cpp),
// overlays (D3D11Overlay.cpp).
#include <windows.h>
#include <d2d1.h>
#include <d3d11.h>
#include <dwrite.h>
#include <dxgi.h>
#include <wrl/client.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "QuillonSDK.h"
#include "xop/Banks.h"
#include "xop/D3D11RenderTexture.h"
#include "xop/Renderer.h"

namespace xop {

// Plane upload into mapped memory: `rows` rows, each the smaller of the line
// size and the row pitch; source advances by the line size, destination by
// the pitch. Padding bytes of the destination are left as they are.
void CopyPlaneRows(uint8_t* dst, UINT pitch, const uint8_t* src, int linesize, int rows);
// NV12 in one mapping: height luma rows, then (height+1)/2 chroma rows
// starting right after the last luma row.
void CopyNv12Rows(uint8_t* dst, UINT pitch, const FrameImage& frame);

// A Present result after which the device is gone and everything must be
// made again: removal and reset alike.
inline bool IsDeviceLost(HRESULT hr) { return hr == DXGI_ERROR_DEVICE_REMOVED || hr == DXGI_ERROR_DEVICE_RESET; }

// UTF-8 to the ANSI code page through UTF-16; bytes written or -1.
int Utf8ToAnsi(const char* utf8, int utf8Length, char* ansi, int ansiSize);

class D3D11Renderer : public Renderer {
public:
    D3D11Renderer();
    ~D3D11Renderer() override;

    bool Init(HWND window) override;
    void Destroy() override;
    bool Resize() override;
    void Render(const FrameImage& frame) override;
    void SetSharpen(float unsharp) override;

    bool SetWnd(HWND window);
    bool InitDevice();
    bool InitDeviceOnly();
    bool CreateSwapChain();
    bool CreateRenderer();
    ID3D11Device* GetDevice() { return m_device; }

    // Frame steps, in this order per picture. `copyDestination` makes the
    // NV12 input a texture that only the GPU writes (see InitInputTextures).
    bool InitInputTextures(int width, int height, int format, bool copyDestination = false);
    // Only when format, size or kind of input changed.
    bool EnsureInputTextures(int width, int height, int format, bool copyDestination = false);
    void BeginFrame();
    void UpdateFrame(const FrameImage& frame);
    void ApplySharpen();
    void PresentOutput(const ShowFrameData* frame);
    void PresentSwapChain();

    // Overlays, drawn into the open Direct2D pass on the back buffer.
    int32_t InnerOnDrawLine(const OverlayParam* param);
    int32_t InnerOnDrawText(OverlayParam* param);
    int32_t InnerOnDrawBlurry(const OverlayParam* param);
    int32_t GetSwapChainSize(uint32_t* width, uint32_t* height);

protected:
    // One conversion pass into `out` over the whole picture: `views` on slots
    // 0.., the pixel constants (when asked for), linear and point samplers.
    // `out` becomes the picture to present.
    void DrawPass(D3D11RenderTexture* out, const int viewport[4], ID3D11ShaderResourceView* const* views, int count,
                  ID3D11Buffer* const* constants = nullptr);

    // Bank entries (null when absent).
    D3D11RenderTexture* Input(InputBank bank) const { return m_inputTextures[Index(bank)].get(); }
    D3D11RenderTexture* Output(OutputBank bank) const { return m_outputTextures[Index(bank)].get(); }

    // Re-entrant: Resize rebuilds through SetWnd, and device-removal recovery
    // runs Destroy and Init from inside a frame that already holds it.
    std::recursive_mutex m_mutex;
    HWND m_hWnd = nullptr;
    D3D_DRIVER_TYPE m_driverType = D3D_DRIVER_TYPE_UNKNOWN;
    D3D_FEATURE_LEVEL m_featureLevel = D3D_FEATURE_LEVEL_11_0;
    ID3D11Device* m_device = nullptr;
    IDXGISwapChain* m_swapChain = nullptr;
    ID3D11DeviceContext* m_context = nullptr;
    int m_frameFormat = 0;
    int m_frameWidth = 0;
    int m_frameHeight = 0;
    bool m_inputCopyDestination = false;  // the input bank was made for GPU copies
    ID3D11RenderTargetView* m_renderTargetView = nullptr;
    ID3D11SamplerState* m_pointSampler = nullptr;
    ID3D11SamplerState* m_linearSampler = nullptr;
    D3D11RenderTexture* m_currentOutput = nullptr;
    std::unique_ptr<D3D11RenderTexture> m_inputTextures[kInputBankSize];
    std::unique_ptr<D3D11RenderTexture> m_outputTextures[kOutputBankSize];
    float m_unsharp = 0.0f;
    ID3D11Buffer* m_sharpenParams = nullptr;
    Microsoft::WRL::ComPtr<ID2D1Factory> m_d2dFactory;
    Microsoft::WRL::ComPtr<ID2D1RenderTarget> m_d2dRenderTarget;
    Microsoft::WRL::ComPtr<IDWriteFactory> m_dwriteFactory;
    QuillonDrawCallBack m_drawCallback = nullptr;
    void* m_drawCallbackUser = nullptr;
    double m_zoomArea[4] = {0.0, 0.0, 1.0, 1.0};  // left, top, right, bottom
    int32_t m_dstRect[4] = {0, 0, 0, 0};          // left, top, right, bottom
    bool m_keepWindowOnDestroy = false;

private:
    HRESULT CreateFactory(IDXGIFactory1** factory);
    bool CreateDevice(UINT flags, const char* func, int deviceLine, int factoryLine, IDXGIFactory1** factory);
    bool CreateSwapChainOn(IDXGIFactory1* factory, const RECT& client, HRESULT* result);
    void ReleaseDevice();
    void ReleaseSwapChainHolders();
    void ResetBanks();
    // The output bank for the back buffer `back`: new entries first, then
    // their textures and shaders and the sharpen constants (false when those
    // cannot be made).
    void ResetOutputTextures();
    bool InitOutputTextures(const D3D11_TEXTURE2D_DESC& back);
};

}  // namespace xop
