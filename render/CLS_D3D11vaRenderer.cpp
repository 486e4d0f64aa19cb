#include "render/CLS_D3D11vaRenderer.h"

#include <algorithm>
#include <cstring>

#include <wrl/client.h>

#include "common/QuillonCommonFun.h"
#include "xop/ComUtil.h"

RECT ZoomSourceRect(int _iWidth, int _iHeight, const double _pdZoom[4])
{
    const int iWidth4 = (_iWidth + 3) & ~3;
    int iHeight4 = (_iHeight + 3) & ~3;
    if (iHeight4 == 1088) iHeight4 = 1080;
    else if (iHeight4 == 368) iHeight4 = 360;
    const RECT tRect = {static_cast<LONG>(_pdZoom[0] * iWidth4), static_cast<LONG>(_pdZoom[1] * iHeight4),
                        static_cast<LONG>(_pdZoom[2] * iWidth4), static_cast<LONG>(_pdZoom[3] * iHeight4)};
    return MakeRectEven(tRect);
}

bool FitBox(const RECT& _tWant, UINT _uiWidth, UINT _uiHeight, D3D11_BOX* _ptBox)
{
    const LONG lWidth = static_cast<LONG>(_uiWidth), lHeight = static_cast<LONG>(_uiHeight);
    const LONG lLeft = std::max(_tWant.left, 0L), lTop = std::max(_tWant.top, 0L);
    const LONG lRight = std::min(_tWant.right, lWidth), lBottom = std::min(_tWant.bottom, lHeight);
    if (lLeft >= lRight || lTop >= lBottom) return false;
    *_ptBox = D3D11_BOX{static_cast<UINT>(lLeft), static_cast<UINT>(lTop), 0, static_cast<UINT>(lRight),
                        static_cast<UINT>(lBottom), 1};
    return true;
}

CLS_D3D11vaRenderer::~CLS_D3D11vaRenderer() { ReleaseStaging(); }

void CLS_D3D11vaRenderer::Destroy()
{
    std::lock_guard<decltype(m_mutex)> lock(m_mutex);
    ReleaseStaging();
    xop::D3D11Renderer::Destroy();
}

// The read-back's mapping outlives its call (the host reads the memory
// afterwards), so it is closed here or by the next read-back, not by a scope.
void CLS_D3D11vaRenderer::ReleaseStaging()
{
    if (m_bStagingMapped && m_context) m_context->Unmap(stagingTexture, 0);
    m_bStagingMapped = false;
    xop::SafeRelease(stagingTexture);
}

const char* CLS_D3D11vaRenderer::CheckSource(ID3D11Texture2D* _pSource, UINT _uiSlice,
                                             D3D11_TEXTURE2D_DESC* _ptDesc) const
{
    // A texture of another device (a decoder that made its own) cannot be
    // copied from on this device's context.
    Microsoft::WRL::ComPtr<ID3D11Device> pOwner;
    _pSource->GetDevice(&pOwner);
    if (pOwner.Get() != m_device) return "texture of another device";
    _pSource->GetDesc(_ptDesc);
    if (_ptDesc->Format != DXGI_FORMAT_NV12 || _ptDesc->MipLevels != 1) return "texture is not NV12";
    if (_uiSlice >= _ptDesc->ArraySize) return "arraySlice out of range";
    return nullptr;
}

int32_t CLS_D3D11vaRenderer::ShowDecodedFrame(ShowFrameData* _ptFrame)
{
    if (!_ptFrame) return -1;
    return _ptFrame->texture ? ShowTexture(_ptFrame) : ShowPlanes(_ptFrame);
}

int32_t CLS_D3D11vaRenderer::ShowTexture(const ShowFrameData* _ptFrame)
{
    std::lock_guard<decltype(m_mutex)> lock(m_mutex);
    if (!m_context || !_ptFrame->texture) return -1;
    ID3D11Texture2D* pSource = static_cast<ID3D11Texture2D*>(_ptFrame->texture);
    D3D11_TEXTURE2D_DESC tSourceDesc = {};
    if (const char* pRefused = CheckSource(pSource, _ptFrame->arraySlice, &tSourceDesc)) {
        QUILLON_LOG_ERROR("CLS_D3D11vaRenderer::ShowDecodedFrame", 75, "%s", pRefused);
        return -1;
    }
    // The zoom is used as the host set it, cut to the texture: a crop that
    // leaves nothing shows nothing.
    D3D11_BOX tBox;
    if (!FitBox(ZoomSourceRect(_ptFrame->width, _ptFrame->height, m_zoomArea), tSourceDesc.Width,
                tSourceDesc.Height, &tBox)) {
        QUILLON_LOG_ERROR("CLS_D3D11vaRenderer::ShowDecodedFrame", 83, "zoom area leaves no picture");
        return -1;
    }
    const int iCropWidth = static_cast<int>(tBox.right - tBox.left);
    const int iCropHeight = static_cast<int>(tBox.bottom - tBox.top);
    if (!EnsureInputTextures(iCropWidth, iCropHeight, xop::kFrameNv12, true)) return -1;
    xop::D3D11RenderTexture* pInput = Input(xop::InputBank::kNv12);
    // No NV12 input texture (a refused size or a device without NV12
    // shader views): nothing to copy into.
    if (!pInput || !pInput->GetTexture()) return -1;

    BeginFrame();
    m_context->CopySubresourceRegion(pInput->GetTexture(), 0, 0, 0, 0, pSource, _ptFrame->arraySlice, &tBox);
    if (xop::D3D11RenderTexture* pOutput = Output(xop::OutputBank::kNv12Bt709)) {
        ID3D11ShaderResourceView* const pViews[2] = {pInput->GetLumaView(), pInput->GetChromaView()};
        DrawPass(pOutput, m_dstRect, pViews, 2);
    }
    Finish(_ptFrame);
    return 0;
}

int32_t CLS_D3D11vaRenderer::ShowPlanes(const ShowFrameData* _ptFrame)
{
    std::lock_guard<decltype(m_mutex)> lock(m_mutex);
    if (!m_context || !_ptFrame->data) return -1;
    const int32_t iWidth = _ptFrame->width;
    const int32_t iHeight = _ptFrame->height;
    if (!EnsureInputTextures(iWidth, iHeight, xop::kFrameI420)) return -1;
    BeginFrame();

    // The chroma planes sit at w*h and 5*w*h/4 whatever the Y line size:
    // a host that pads its Y rows still packs U and V after w*h bytes.
    const int32_t iLine = _ptFrame->lineSize ? _ptFrame->lineSize : iWidth;
    const int32_t iLumaBytes = static_cast<int32_t>(static_cast<uint32_t>(iWidth) * static_cast<uint32_t>(iHeight));
    const int32_t iVOffset = static_cast<int32_t>(static_cast<uint32_t>(iLumaBytes) * 5u) / 4;
    xop::FrameImage tImage;
    tImage.width = iWidth;
    tImage.height = iHeight;
    tImage.linesize[0] = iLine;
    tImage.linesize[1] = iLine / 2;
    tImage.linesize[2] = iLine / 2;
    tImage.data[0] = _ptFrame->data;
    tImage.data[1] = _ptFrame->data + iLumaBytes;
    tImage.data[2] = _ptFrame->data + iVOffset;
    tImage.format = xop::kFrameI420;
    UpdateFrame(tImage);
    Finish(_ptFrame);
    return 0;
}

void CLS_D3D11vaRenderer::Finish(const ShowFrameData* _ptFrame)
{
    ApplySharpen();
    PresentOutput(_ptFrame);
    PresentSwapChain();
}

int32_t CLS_D3D11vaRenderer::Texture2DToNV12(ID3D11Texture2D* _pSource, uint32_t _uiArraySlice, uint32_t _uiWidth,
                                             uint32_t _uiHeight, void** _ppData, uint32_t* _puiRowPitch)
{
    if (!m_context || !_pSource || !_ppData || !_puiRowPitch) return -1;
    D3D11_TEXTURE2D_DESC tSourceDesc = {};
    if (const char* pRefused = CheckSource(_pSource, _uiArraySlice, &tSourceDesc)) {
        QUILLON_LOG_ERROR("CLS_D3D11vaRenderer::Texture2DToNV12", 146, "%s", pRefused);
        return -1;
    }
    // The previous read-back's memory is handed back here, not earlier.
    if (m_bStagingMapped) m_context->Unmap(stagingTexture, 0);
    m_bStagingMapped = false;
    if (!stagingTexture && m_device) {
        // Made once: the first read-back's size stays until Destroy.
        const D3D11_TEXTURE2D_DESC tDesc =
            xop::TextureDesc((_uiWidth + 15) & ~15u, (_uiHeight + 15) & ~15u, DXGI_FORMAT_NV12, D3D11_USAGE_STAGING,
                             0, D3D11_CPU_ACCESS_READ);
        m_device->CreateTexture2D(&tDesc, nullptr, &stagingTexture);
    }
    if (!stagingTexture) return -1;
    // The staging texture is 16-aligned and the decoder's array 32-aligned:
    // copy what fits both.
    D3D11_TEXTURE2D_DESC tStagingDesc = {};
    stagingTexture->GetDesc(&tStagingDesc);
    D3D11_BOX tBox;
    const RECT tWhole = {0, 0, static_cast<LONG>(tStagingDesc.Width), static_cast<LONG>(tStagingDesc.Height)};
    if (!FitBox(tWhole, tSourceDesc.Width, tSourceDesc.Height, &tBox)) return -1;
    m_context->CopySubresourceRegion(stagingTexture, 0, 0, 0, 0, _pSource, _uiArraySlice, &tBox);
    D3D11_MAPPED_SUBRESOURCE tMapped = {};
    m_bStagingMapped = SUCCEEDED(m_context->Map(stagingTexture, 0, D3D11_MAP_READ, 0, &tMapped));
    *_ppData = tMapped.pData;
    *_puiRowPitch = tMapped.RowPitch;
    return 0;
}

DrawCallBackParam CLS_D3D11vaRenderer::GetDrawCallBack() const
{
    DrawCallBackParam tParam;
    tParam.callback = reinterpret_cast<QuillonDrawCallBack>(m_drawCallback);
    tParam.user = m_drawCallbackUser;
    return tParam;
}

void CLS_D3D11vaRenderer::SetDrawCallBack(const DrawCallBackParam& _tParam)
{
    m_drawCallback = reinterpret_cast<decltype(m_drawCallback)>(_tParam.callback);
    m_drawCallbackUser = _tParam.user;
}

EZoomArea CLS_D3D11vaRenderer::GetZoomArea() const
{
    return EZoomArea{m_zoomArea[0], m_zoomArea[1], m_zoomArea[2], m_zoomArea[3]};
}

DstRect CLS_D3D11vaRenderer::GetDstRect() const
{
    return DstRect{m_dstRect[0], m_dstRect[1], m_dstRect[2], m_dstRect[3]};
}

void CLS_D3D11vaRenderer::SetZoomArea(const EZoomArea& _tArea)
{
    m_zoomArea[0] = _tArea.left;
    m_zoomArea[1] = _tArea.top;
    m_zoomArea[2] = _tArea.right;
    m_zoomArea[3] = _tArea.bottom;
}

void CLS_D3D11vaRenderer::SetDstRect(const DstRect& _tRect)
{
    m_dstRect[0] = _tRect.left;
    m_dstRect[1] = _tRect.top;
    m_dstRect[2] = _tRect.right;
    m_dstRect[3] = _tRect.bottom;
}
