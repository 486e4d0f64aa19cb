// The two texture banks: output render targets on the back buffer, input
// textures for the picture's planes, and the upload of a CPU picture.
#include <cstdio>
#include <cstring>
#include <new>

#include "xop/D3D11Renderer.h"
#include "xop/ScopedMap.h"
#include "xop/Shaders.h"

namespace xop {

namespace {

bool HasTexture(const D3D11RenderTexture* t) { return t && t->GetTexture(); }

// One WRITE_DISCARD mapping of `texture`, filled by `copy(data, rowPitch)`
// when the Map worked.
template <class Copy>
void Upload(ID3D11DeviceContext* context, ID3D11Texture2D* texture, Copy copy) {
    ScopedMap map(context, texture, D3D11_MAP_WRITE_DISCARD);
    if (map.Mapped()) copy(map.Data(), map.RowPitch());
}

void UploadPlane(ID3D11DeviceContext* context, ID3D11Texture2D* texture, const uint8_t* src, int linesize,
                 int rows) {
    Upload(context, texture, [&](uint8_t* dst, UINT pitch) { CopyPlaneRows(dst, pitch, src, linesize, rows); });
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

void D3D11Renderer::ResetBanks() {
    for (auto& t : m_inputTextures) t.reset();
    for (auto& t : m_outputTextures) t.reset();
}

void D3D11Renderer::ResetOutputTextures() {
    m_currentOutput = nullptr;  // it lived in the bank replaced here
    for (auto& t : m_outputTextures) t.reset(new (std::nothrow) D3D11RenderTexture(m_swapChain));
}

bool D3D11Renderer::InitOutputTextures(const D3D11_TEXTURE2D_DESC& back) {
    for (int i = 0; i < kOutputBankSize; ++i) {
        D3D11RenderTexture* out = m_outputTextures[i].get();
        if (!out) continue;
        out->InitTexture(back.Width, back.Height, back.Format, D3D11_USAGE_DEFAULT,
                         D3D11_BIND_RENDER_TARGET | D3D11_BIND_SHADER_RESOURCE, 0, 0);
        out->InitVertexShader();
        out->InitRasterizerState();
        if (kPixelShaders[i].code) out->InitPixelShader(nullptr, kPixelShaders[i].code, kPixelShaders[i].size);
    }
    // The sharpen pass is the last entry, so its constants come after the
    // whole bank.
    D3D11_BUFFER_DESC desc = {};
    desc.ByteWidth = 16;
    desc.Usage = D3D11_USAGE_DEFAULT;
    desc.BindFlags = D3D11_BIND_CONSTANT_BUFFER;
    const HRESULT hr = m_device->CreateBuffer(&desc, nullptr, &m_sharpenParams);
    if (FAILED(hr)) {
        fprintf(stderr, "[D3D11Renderer] CreateBuffer(CONSTANT_BUFFER) failed, %x \n", (unsigned)hr);
        return false;
    }
    return true;
}

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
    auto make = [&](InputBank bank, UINT tw, UINT th, DXGI_FORMAT f) {
        if (D3D11RenderTexture* input = Input(bank)) {
            input->InitTexture(tw, th, f, usage, D3D11_BIND_SHADER_RESOURCE, cpuAccess, 0);
        }
    };
    switch (format) {
        case kFrameBgra:
            make(InputBank::kBgra, w, h, DXGI_FORMAT_B8G8R8A8_UNORM);
            break;
        case kFrameNv12:
            make(InputBank::kNv12, w, h, DXGI_FORMAT_NV12);
            break;
        case kFrameI420:
            make(InputBank::kY, w, h, DXGI_FORMAT_R8_UNORM);
            make(InputBank::kU, cw, ch, DXGI_FORMAT_R8_UNORM);
            make(InputBank::kV, cw, ch, DXGI_FORMAT_R8_UNORM);
            break;
        case kFrameYuv444:
            make(InputBank::kY, w, h, DXGI_FORMAT_R8_UNORM);
            make(InputBank::kU, w, h, DXGI_FORMAT_R8_UNORM);
            make(InputBank::kV, w, h, DXGI_FORMAT_R8_UNORM);
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

// Uploads the picture into the input bank and converts it into the output
// entry of its format, which becomes the current output.
void D3D11Renderer::UpdateFrame(const FrameImage& frame) {
    static const int kWhole[4] = {0, 0, 0, 0};
    if (!m_device) return;
    const int rows = frame.height;
    const int chromaRows = frame.format == kFrameI420 || frame.format == kFrameNv12 ? (frame.height + 1) / 2
                                                                                     : frame.height;
    OutputBank output = OutputBank::kNone;
    int slots = 0;
    ID3D11ShaderResourceView* views[3] = {};
    switch (frame.format) {
        case kFrameBgra: {
            D3D11RenderTexture* input = Input(InputBank::kBgra);
            if (!HasTexture(input)) return;
            UploadPlane(m_context, input->GetTexture(), frame.data[0], frame.linesize[0], rows);
            output = OutputBank::kBgra;
            slots = 1;
            views[0] = input->GetShaderResourceView();
            break;
        }
        case kFrameI420:
        case kFrameYuv444: {
            D3D11RenderTexture* const planes[3] = {Input(InputBank::kY), Input(InputBank::kU), Input(InputBank::kV)};
            for (const D3D11RenderTexture* plane : planes) {
                if (!HasTexture(plane)) return;
            }
            for (int p = 0; p < 3; ++p) {
                UploadPlane(m_context, planes[p]->GetTexture(), frame.data[p], frame.linesize[p],
                            p == 0 ? rows : chromaRows);
                views[p] = planes[p]->GetShaderResourceView();
            }
            output = OutputBank::kI420Bt601;
            slots = 3;
            break;
        }
        case kFrameNv12: {
            D3D11RenderTexture* input = Input(InputBank::kNv12);
            if (!HasTexture(input)) return;
            Upload(m_context, input->GetTexture(), [&](uint8_t* dst, UINT pitch) { CopyNv12Rows(dst, pitch, frame); });
            output = OutputBank::kNv12Bt709;
            slots = 2;
            views[0] = input->GetLumaView();
            views[1] = input->GetChromaView();
            break;
        }
        default:
            return;
    }
    if (D3D11RenderTexture* out = Output(output)) DrawPass(out, kWhole, views, slots);
}

}  // namespace xop
