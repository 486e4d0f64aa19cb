#include "render/CLS_D3D11vaDraw.h"

#include <cstring>

#include "common/QuillonCommonFun.h"
#include "core/core_api.h"

namespace {

// Bytes of a host record of `_iLength` that fit a record of `_uiSize`: the
// comparison is signed, and a negative length copies nothing.
size_t CopyLength(int32_t _iLength, size_t _uiSize)
{
    if (_iLength <= 0) return 0;
    return static_cast<size_t>(_iLength) < _uiSize ? static_cast<size_t>(_iLength) : _uiSize;
}

// A zeroed T with the first bytes of the host's record copied over it.
template <typename T>
T CopyIn(const void* _pData, int32_t _iLength)
{
    T tRecord;
    memset(&tRecord, 0, sizeof(tRecord));
    memcpy(&tRecord, _pData, CopyLength(_iLength, sizeof(tRecord)));
    return tRecord;
}

// Commands 2 to 4: the payload copied into a zeroed OverlayParam and drawn
// by `_fnDraw` (the drawing's own result is dropped; text conversion changes
// only the copy). A null payload is refused at the command's position.
template <typename Draw>
int32_t DrawOverlay(void* _pData, int32_t _iLength, const char* _pszFunc, int _iLine, Draw _fnDraw)
{
    CHECK_EQUAL_RETURN(_pData, nullptr, -1, _pszFunc, _iLine);
    OverlayParam tParam = CopyIn<OverlayParam>(_pData, _iLength);
    _fnDraw(&tParam);
    return 0;
}

}  // namespace

CLS_D3D11vaDraw::CLS_D3D11vaDraw() : initParam(), clientRect()
{
}

int32_t CLS_D3D11vaDraw::InitDevice(void* _pData, int32_t _iLength)
{
    CHECK_EQUAL_RETURN(_pData, nullptr, -101, "CLS_D3D11vaDraw::InitDevice", 26);
    memcpy(&initParam, _pData, CopyLength(_iLength, sizeof(initParam)));

    const bool bReady = initParam.hWnd ? renderer.Init(initParam.hWnd) : renderer.InitDeviceOnly();
    if (!bReady) {
        QUILLON_LOG_ERROR("CLS_D3D11vaDraw::InitDevice", 45, "CreateD3D11Device failed");
        return -1;
    }
    int32_t iResult = 0;
    ID3D11Device* pDevice = renderer.GetDevice();
    static_cast<RenderInitParam*>(_pData)->device = pDevice;
    if (!pDevice) {
        QUILLON_LOG_ERROR("CLS_D3D11vaDraw::InitDevice", 53, "CreateD3D11Device failed");
        iResult = -1;
    }
    if (!GetClientRect(initParam.hWnd, &clientRect)) clientRect = RECT{};
    clientRect = MakeRectEven(clientRect);
    // A window without area (or none at all) is not an error.
    if (clientRect.right == clientRect.left || clientRect.bottom == clientRect.top) iResult = 0;
    return iResult;
}

int32_t CLS_D3D11vaDraw::ShowFrame(void* _pData, int32_t _iLength)
{
    CHECK_EQUAL_RETURN(renderer.GetDevice(), nullptr, -200, "CLS_D3D11vaDraw::ShowFrame", 72);
    CHECK_EQUAL_RETURN(_pData, nullptr, -101, "CLS_D3D11vaDraw::ShowFrame", 73);
    ShowFrameData tFrame = CopyIn<ShowFrameData>(_pData, _iLength);

    const RECT tPrevious = clientRect;
    if (!GetClientRect(initParam.hWnd, &clientRect)) clientRect = RECT{};
    // Minimised or gone: nothing to show, and no error.
    if (IsRectZero(clientRect)) return 0;

    bool bChanged = false;
    uint32_t uiSwapWidth = 0, uiSwapHeight = 0;
    if (renderer.GetSwapChainSize(&uiSwapWidth, &uiSwapHeight) == 0 &&
        (static_cast<LONG>(uiSwapWidth) != clientRect.right - clientRect.left ||
         static_cast<LONG>(uiSwapHeight) != clientRect.bottom - clientRect.top)) {
        core_log_msg("CLS_D3D11vaDraw::ShowFrame Windows Size Changed Recreate Render");
        bChanged = true;
    }
    if (bChanged || !IsEqualRectSize(tPrevious, clientRect)) renderer.Resize();
    return renderer.ShowDecodedFrame(&tFrame);
}

int32_t CLS_D3D11vaDraw::GetDrawInfo(void* _pData, int32_t /*_iLength*/)
{
    CHECK_EQUAL_RETURN(_pData, nullptr, -101, "CLS_D3D11vaDraw::GetDrawInfo", 19);
    ID3D11Device* pDevice = renderer.GetDevice();
    memcpy(_pData, &pDevice, sizeof(pDevice));
    return 0;
}

int32_t CLS_D3D11vaDraw::Config(int32_t _iCommand, void* _pData, int32_t _iLength)
{
    switch (_iCommand) {
    case QUILLON_CMD_TEXTURE2D_TO_NV12: return Texture2DToNV12(_pData, _iLength);
    case QUILLON_CMD_SET_DRAW_CALLBACK: return SetDrawCallBack(_pData, _iLength);
    case QUILLON_CMD_DRAW_LINE: return InnerOnDrawLine(_pData, _iLength);
    case QUILLON_CMD_DRAW_TEXT: return InnerOnDrawText(_pData, _iLength);
    case QUILLON_CMD_DRAW_BLURRY: return InnerOnDrawBlurry(_pData, _iLength);
    case QUILLON_CMD_EZOOM_AREA: return InnerEZoomArea(_pData, _iLength);
    case QUILLON_CMD_SET_DST_RECT: return InnerSetDstRect(_pData, _iLength);
    default: return 0;
    }
}

int32_t CLS_D3D11vaDraw::Reserved()
{
    return 0;
}

int32_t CLS_D3D11vaDraw::Release()
{
    renderer.Destroy();
    return 0;
}

int32_t CLS_D3D11vaDraw::SetWnd(HWND _hWnd)
{
    return renderer.SetWnd(_hWnd) ? 0 : -1;
}

// Read-back failures are not reported: the host finds `data` and `rowPitch`
// as it sent them.
int32_t CLS_D3D11vaDraw::Texture2DToNV12(void* _pData, int32_t _iLength)
{
    CHECK_EQUAL_RETURN(_pData, nullptr, -1, "CLS_D3D11vaDraw::Texture2DToNV12", 172);
    NV12ReadBack tReadBack = CopyIn<NV12ReadBack>(_pData, _iLength);
    renderer.Texture2DToNV12(static_cast<ID3D11Texture2D*>(tReadBack.texture), tReadBack.arraySlice, tReadBack.width,
                             tReadBack.height, &tReadBack.data, &tReadBack.rowPitch);
    memcpy(_pData, &tReadBack, CopyLength(_iLength, sizeof(tReadBack)));
    return 0;
}

// A payload of 8 bytes replaces the callback and keeps the user pointer.
int32_t CLS_D3D11vaDraw::SetDrawCallBack(void* _pData, int32_t _iLength)
{
    CHECK_EQUAL_RETURN(_pData, nullptr, -1, "CLS_D3D11vaDraw::SetDrawCallBack", 186);
    DrawCallBackParam tParam = renderer.GetDrawCallBack();
    memcpy(&tParam, _pData, CopyLength(_iLength, sizeof(tParam)));
    renderer.SetDrawCallBack(tParam);
    return 0;
}

int32_t CLS_D3D11vaDraw::InnerOnDrawLine(void* _pData, int32_t _iLength)
{
    return DrawOverlay(_pData, _iLength, "CLS_D3D11vaDraw::InnerOnDrawLine", 193,
                       [this](OverlayParam* _ptParam) { renderer.InnerOnDrawLine(_ptParam); });
}

int32_t CLS_D3D11vaDraw::InnerOnDrawText(void* _pData, int32_t _iLength)
{
    return DrawOverlay(_pData, _iLength, "CLS_D3D11vaDraw::InnerOnDrawText", 203,
                       [this](OverlayParam* _ptParam) { renderer.InnerOnDrawText(_ptParam); });
}

int32_t CLS_D3D11vaDraw::InnerOnDrawBlurry(void* _pData, int32_t _iLength)
{
    return DrawOverlay(_pData, _iLength, "CLS_D3D11vaDraw::InnerOnDrawBlurry", 213,
                       [this](OverlayParam* _ptParam) { renderer.InnerOnDrawBlurry(_ptParam); });
}

int32_t CLS_D3D11vaDraw::InnerEZoomArea(void* _pData, int32_t _iLength)
{
    CHECK_EQUAL_RETURN(_pData, nullptr, -1, "CLS_D3D11vaDraw::InnerEZoomArea", 223);
    renderer.SetZoomArea(CopyIn<EZoomArea>(_pData, _iLength));
    return 0;
}

int32_t CLS_D3D11vaDraw::InnerSetDstRect(void* _pData, int32_t _iLength)
{
    CHECK_EQUAL_RETURN(_pData, nullptr, -1, "CLS_D3D11vaDraw::InnerSetDstRect", 233);
    renderer.SetDstRect(CopyIn<DstRect>(_pData, _iLength));
    return 0;
}
