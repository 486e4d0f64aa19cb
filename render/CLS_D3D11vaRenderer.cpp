#include "render/CLS_D3D11vaRenderer.h"

#include <algorithm>
#include <cstring>

#include <wrl/client.h>

#include "common/QuillonCommonFun.h"
#include "xop/ComUtil.h"

RECT ZoomSourceRect(int width, int height, const double zoom[4])
{
    const int w4 = (width + 3) & ~3;
    int h4 = (height + 3) & ~3;
    if (h4 == 1088) h4 = 1080;
    else if (h4 == 368) h4 = 360;
    const RECT r = {static_cast<LONG>(zoom[0] * w4), static_cast<LONG>(zoom[1] * h4),
                    static_cast<LONG>(zoom[2] * w4), static_cast<LONG>(zoom[3] * h4)};
    return MakeRectEven(r);
}

bool FitBox(const RECT& want, UINT width, UINT height, D3D11_BOX* box)
{
    const LONG w = static_cast<LONG>(width), h = static_cast<LONG>(height);
    const LONG left = std::max(want.left, 0L), top = std::max(want.top, 0L);
    const LONG right = std::min(want.right, w), bottom = std::min(want.bottom, h);
    if (left >= right || top >= bottom) return false;
    *box = D3D11_BOX{static_cast<UINT>(left), static_cast<UINT>(top), 0, static_cast<UINT>(right),
                     static_cast<UINT>(bottom), 1};
    return true;
}

CLS_D3D11vaRenderer::~CLS_D3D11vaRenderer() { ReleaseStaging(); }

void CLS_D3D11vaRenderer::Destroy()
{
    std::lock_guard<decltype(m_mutex)> lock(m_mutex);
    ReleaseStaging();
    xop::D3D11Renderer::Destroy();
}

void CLS_D3D11vaRenderer::ReleaseStaging()
{
    if (m_stagingMapped && m_context) m_context->Unmap(m_stagingTexture, 0);
    m_stagingMapped = false;
    xop::SafeRelease(m_stagingTexture);
}

const char* CLS_D3D11vaRenderer::CheckSource(ID3D11Texture2D* source, UINT slice, D3D11_TEXTURE2D_DESC* desc) const
{
    // A texture of another device (a decoder that made its own) cannot be
    // copied from on this device's context.
    Microsoft::WRL::ComPtr<ID3D11Device> owner;
    source->GetDevice(&owner);
    if (owner.Get() != m_device) return "texture of another device";
    source->GetDesc(desc);
    if (desc->Format != DXGI_FORMAT_NV12 || desc->MipLevels != 1) return "texture is not NV12";
    if (slice >= desc->ArraySize) return "arraySlice out of range";
    return nullptr;
}

int32_t CLS_D3D11vaRenderer::ShowDecodedFrame(ShowFrameData* frame)
{
    if (!frame) return -1;
    return frame->texture ? ShowTexture(frame) : ShowPlanes(frame);
}

int32_t CLS_D3D11vaRenderer::ShowTexture(const ShowFrameData* frame)
{
    std::lock_guard<decltype(m_mutex)> lock(m_mutex);
    if (!m_context || !frame->texture) return -1;
    ID3D11Texture2D* source = static_cast<ID3D11Texture2D*>(frame->texture);
    D3D11_TEXTURE2D_DESC sourceDesc = {};
    if (const char* refused = CheckSource(source, frame->arraySlice, &sourceDesc)) {
        QUILLON_LOG_ERROR("CLS_D3D11vaRenderer::ShowDecodedFrame", 75, "%s", refused);
        return -1;
    }
    // The zoom is used as the host set it, cut to the texture: a crop that
    // leaves nothing shows nothing.
    D3D11_BOX box;
    if (!FitBox(ZoomSourceRect(frame->width, frame->height, m_zoomArea), sourceDesc.Width, sourceDesc.Height,
                &box)) {
        QUILLON_LOG_ERROR("CLS_D3D11vaRenderer::ShowDecodedFrame", 83, "zoom area leaves no picture");
        return -1;
    }
    const int cropW = static_cast<int>(box.right - box.left);
    const int cropH = static_cast<int>(box.bottom - box.top);
    if (!EnsureInputTextures(cropW, cropH, xop::kFrameNv12, true)) return -1;
    xop::D3D11RenderTexture* input = Input(xop::InputBank::kNv12);
    // No NV12 input texture (a refused size or a device without NV12
    // shader views): nothing to copy into.
    if (!input || !input->GetTexture()) return -1;

    BeginFrame();
    m_context->CopySubresourceRegion(input->GetTexture(), 0, 0, 0, 0, source, frame->arraySlice, &box);
    if (xop::D3D11RenderTexture* output = Output(xop::OutputBank::kNv12Bt709)) {
        ID3D11ShaderResourceView* const views[2] = {input->GetLumaView(), input->GetChromaView()};
        DrawPass(output, m_dstRect, views, 2);
    }
    Finish(frame);
    return 0;
}

int32_t CLS_D3D11vaRenderer::ShowPlanes(const ShowFrameData* frame)
{
    std::lock_guard<decltype(m_mutex)> lock(m_mutex);
    if (!m_context || !frame->data) return -1;
    const int32_t w = frame->width;
    const int32_t h = frame->height;
    if (!EnsureInputTextures(w, h, xop::kFrameI420)) return -1;
    BeginFrame();

    // The chroma planes sit at w*h and 5*w*h/4 whatever the Y line size:
    // a host that pads its Y rows still packs U and V after w*h bytes.
    const int32_t line = frame->lineSize ? frame->lineSize : w;
    const int32_t lumaBytes = static_cast<int32_t>(static_cast<uint32_t>(w) * static_cast<uint32_t>(h));
    const int32_t vOffset = static_cast<int32_t>(static_cast<uint32_t>(lumaBytes) * 5u) / 4;
    xop::FrameImage image;
    image.width = w;
    image.height = h;
    image.linesize[0] = line;
    image.linesize[1] = line / 2;
    image.linesize[2] = line / 2;
    image.data[0] = frame->data;
    image.data[1] = frame->data + lumaBytes;
    image.data[2] = frame->data + vOffset;
    image.format = xop::kFrameI420;
    UpdateFrame(image);
    Finish(frame);
    return 0;
}

void CLS_D3D11vaRenderer::Finish(const ShowFrameData* frame)
{
    ApplySharpen();
    PresentOutput(frame);
    PresentSwapChain();
}

int32_t CLS_D3D11vaRenderer::Texture2DToNV12(ID3D11Texture2D* source, uint32_t arraySlice, uint32_t width,
                                             uint32_t height, void** data, uint32_t* rowPitch)
{
    if (!m_context || !source || !data || !rowPitch) return -1;
    D3D11_TEXTURE2D_DESC sourceDesc = {};
    if (const char* refused = CheckSource(source, arraySlice, &sourceDesc)) {
        QUILLON_LOG_ERROR("CLS_D3D11vaRenderer::Texture2DToNV12", 146, "%s", refused);
        return -1;
    }
    // The previous read-back's memory is handed back here, not earlier.
    if (m_stagingMapped) m_context->Unmap(m_stagingTexture, 0);
    m_stagingMapped = false;
    if (!m_stagingTexture && m_device) {
        // Made once: the first read-back's size stays until Destroy.
        const D3D11_TEXTURE2D_DESC desc = xop::TextureDesc((width + 15) & ~15u, (height + 15) & ~15u, DXGI_FORMAT_NV12,
                                                           D3D11_USAGE_STAGING, 0, D3D11_CPU_ACCESS_READ);
        m_device->CreateTexture2D(&desc, nullptr, &m_stagingTexture);
    }
    if (!m_stagingTexture) return -1;
    // The staging texture is 16-aligned and the decoder's array 32-aligned:
    // copy what fits both.
    D3D11_TEXTURE2D_DESC stagingDesc = {};
    m_stagingTexture->GetDesc(&stagingDesc);
    D3D11_BOX box;
    const RECT whole = {0, 0, static_cast<LONG>(stagingDesc.Width), static_cast<LONG>(stagingDesc.Height)};
    if (!FitBox(whole, sourceDesc.Width, sourceDesc.Height, &box)) return -1;
    m_context->CopySubresourceRegion(m_stagingTexture, 0, 0, 0, 0, source, arraySlice, &box);
    D3D11_MAPPED_SUBRESOURCE mapped = {};
    m_stagingMapped = SUCCEEDED(m_context->Map(m_stagingTexture, 0, D3D11_MAP_READ, 0, &mapped));
    *data = mapped.pData;
    *rowPitch = mapped.RowPitch;
    return 0;
}

DrawCallBackParam CLS_D3D11vaRenderer::GetDrawCallBack() const
{
    DrawCallBackParam param;
    param.callback = reinterpret_cast<QuillonDrawCallBack>(m_drawCallback);
    param.user = m_drawCallbackUser;
    return param;
}

void CLS_D3D11vaRenderer::SetDrawCallBack(const DrawCallBackParam& param)
{
    m_drawCallback = reinterpret_cast<decltype(m_drawCallback)>(param.callback);
    m_drawCallbackUser = param.user;
}

EZoomArea CLS_D3D11vaRenderer::GetZoomArea() const
{
    return EZoomArea{m_zoomArea[0], m_zoomArea[1], m_zoomArea[2], m_zoomArea[3]};
}

DstRect CLS_D3D11vaRenderer::GetDstRect() const
{
    return DstRect{m_dstRect[0], m_dstRect[1], m_dstRect[2], m_dstRect[3]};
}

void CLS_D3D11vaRenderer::SetZoomArea(const EZoomArea& area)
{
    m_zoomArea[0] = area.left;
    m_zoomArea[1] = area.top;
    m_zoomArea[2] = area.right;
    m_zoomArea[3] = area.bottom;
}

void CLS_D3D11vaRenderer::SetDstRect(const DstRect& rect)
{
    m_dstRect[0] = rect.left;
    m_dstRect[1] = rect.top;
    m_dstRect[2] = rect.right;
    m_dstRect[3] = rect.bottom;
}
