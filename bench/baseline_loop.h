#pragma once
// The hand-written Direct3D 11 loop that the SDK's figures are set against:
// one swap chain on one window, the picture uploaded (or copied out of a
// decoder's texture array), drawn with the library's own shaders straight
// into the back buffer, optionally overlays drawn with Direct2D and
// DirectWrite, and Present(0, 0). Each step can be timed.
#include <d2d1.h>
#include <d3d11.h>
#include <dwrite.h>
#include <windows.h>
#include <wrl/client.h>

#include <string>

#include "xop/Renderer.h"

namespace bench {

using Microsoft::WRL::ComPtr;

// Seconds spent in each step of the frames drawn so far.
struct StepTimes {
    double upload = 0, draw = 0, overlay = 0, present = 0;
    int frames = 0;
};

// The overlay of the overlay benchmarks on a w x h target: ten lines, one
// hatched rectangle (horizontal strokes 10 px apart) and one text.
struct OverlayScene {
    explicit OverlayScene(int w, int h);
    POINT lines[10][2];
    RECT hatch;
    RECT textBox;
    const char* text = "12:34:56.789  camera 7";
    int lineWidth = 2, textSize = 24;
    unsigned lineColour = 0x40FF40, hatchColour = 0x808080, textColour = 0x40FFFF;  // 0xBBGGRR
};

class BaselineLoop {
public:
    // A swap chain of w x h on `window`, on `device` when it is given (one
    // device serving several windows), else on a device of its own.
    BaselineLoop(HWND window, int w, int h, ID3D11Device* device = nullptr);
    bool Ok() const { return m_chain != nullptr; }
    ID3D11Device* Device() const { return m_device.Get(); }

    // Sources of the picture: three I420 planes in memory, or one slice of
    // an NV12 texture array on this loop's device (cropped to w x h).
    void UseI420(const xop::FrameImage& image) { m_image = image; m_pool = nullptr; }
    bool UseNv12Slice(ID3D11Texture2D* pool, UINT slice);
    // Adds the Direct2D pass drawing `scene` after the picture.
    bool AddOverlays(const OverlayScene& scene);
    // Takes the SDK's order of steps: the picture drawn into a texture of
    // the back buffer's size, that texture copied into the back buffer, an
    // empty Direct2D pass; and makes the device multithread-protected as
    // the SDK's are.
    bool UseSdkSteps();

    void Frame(StepTimes* times = nullptr);

private:
    bool MakeI420Planes();
    bool Make2DTarget();

    HWND m_window;
    int m_w, m_h;
    ComPtr<ID3D11Device> m_device;
    ComPtr<ID3D11DeviceContext> m_ctx;
    ComPtr<IDXGISwapChain> m_chain;
    ComPtr<ID3D11RenderTargetView> m_rtv;
    ComPtr<ID3D11Texture2D> m_back, m_output;
    ComPtr<ID3D11RenderTargetView> m_outputRtv;
    ComPtr<ID3D11Texture2D> m_planes[3];
    ComPtr<ID3D11ShaderResourceView> m_views[3];
    ComPtr<ID3D11Texture2D> m_nv12;
    ComPtr<ID3D11ShaderResourceView> m_nv12Views[2];
    ComPtr<ID3D11VertexShader> m_vs;
    ComPtr<ID3D11PixelShader> m_i420, m_nv12Shader;
    ComPtr<ID3D11InputLayout> m_layout;
    ComPtr<ID3D11Buffer> m_quad, m_constants;
    ComPtr<ID3D11SamplerState> m_linear, m_point;
    ComPtr<ID3D11RasterizerState> m_raster;
    xop::FrameImage m_image = {};
    ID3D11Texture2D* m_pool = nullptr;
    UINT m_slice = 0;

    ComPtr<ID2D1Factory> m_d2d;
    ComPtr<ID2D1RenderTarget> m_target;
    ComPtr<ID2D1SolidColorBrush> m_lineBrush, m_hatchBrush, m_textBrush;
    ComPtr<IDWriteFactory> m_dwrite;
    ComPtr<IDWriteTextFormat> m_format;
    OverlayScene m_scene{0, 0};
    bool m_drawScene = false;
    std::wstring m_text;
};

}  // namespace bench
