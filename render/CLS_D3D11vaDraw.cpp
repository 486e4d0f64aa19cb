#include "render/CLS_D3D11vaDraw.h"

#include <cstring>

#include "common/QuillonCommonFun.h"
#include "core/core_api.h"

namespace {

// Bytes of a host record of `length` that fit a record of `size`: the
// comparison is signed, and a negative length copies nothing.
size_t CopyLength(int32_t length, size_t size)
{
    if (length <= 0) return 0;
    return static_cast<size_t>(length) < size ? static_cast<size_t>(length) : size;
}

// A zeroed T with the first bytes of the host's record copied over it.
template <typename T>
T CopyIn(const void* data, int32_t length)
{
    T record;
    memset(&record, 0, sizeof(record));
    memcpy(&record, data, CopyLength(length, sizeof(record)));
    return record;
}

}  // namespace

CLS_D3D11vaDraw::CLS_D3D11vaDraw() : initParam(), clientRect()
{
}

int32_t CLS_D3D11vaDraw::InitDevice(void* data, int32_t length)
{
    CHECK_EQUAL_RETURN(data, nullptr, -101, "CLS_D3D11vaDraw::InitDevice", 26);
    memcpy(&initParam, data, CopyLength(length, sizeof(initParam)));

    const bool ready = initParam.hWnd ? renderer.Init(initParam.hWnd) : renderer.InitDeviceOnly();
    if (!ready) {
        QUILLON_LOG_ERROR("CLS_D3D11vaDraw::InitDevice", 45, "CreateD3D11Device failed");
        return -1;
    }
    int32_t result = 0;
    ID3D11Device* device = renderer.GetDevice();
    static_cast<RenderInitParam*>(data)->device = device;
    if (!device) {
        QUILLON_LOG_ERROR("CLS_D3D11vaDraw::InitDevice", 53, "CreateD3D11Device failed");
        result = -1;
    }
    if (!GetClientRect(initParam.hWnd, &clientRect)) clientRect = RECT{};
    clientRect = MakeRectEven(clientRect);
    // A window without area (or none at all) is not an error.
    if (clientRect.right == clientRect.left || clientRect.bottom == clientRect.top) result = 0;
    return result;
}

int32_t CLS_D3D11vaDraw::ShowFrame(void* data, int32_t length)
{
    CHECK_EQUAL_RETURN(renderer.GetDevice(), nullptr, -200, "CLS_D3D11vaDraw::ShowFrame", 72);
    CHECK_EQUAL_RETURN(data, nullptr, -101, "CLS_D3D11vaDraw::ShowFrame", 73);
    ShowFrameData frame = CopyIn<ShowFrameData>(data, length);

    const RECT previous = clientRect;
    if (!GetClientRect(initParam.hWnd, &clientRect)) clientRect = RECT{};
    // Minimised or gone: nothing to show, and no error.
    if (IsRectZero(clientRect)) return 0;

    bool changed = false;
    uint32_t swapWidth = 0, swapHeight = 0;
    if (renderer.GetSwapChainSize(&swapWidth, &swapHeight) == 0 &&
        (static_cast<LONG>(swapWidth) != clientRect.right - clientRect.left ||
         static_cast<LONG>(swapHeight) != clientRect.bottom - clientRect.top)) {
        core_log_msg("CLS_D3D11vaDraw::ShowFrame Windows Size Changed Recreate Render");
        changed = true;
    }
    if (changed || !IsEqualRectSize(previous, clientRect)) renderer.Resize();
    return renderer.ShowDecodedFrame(&frame);
}

int32_t CLS_D3D11vaDraw::GetDrawInfo(void* data, int32_t length)
{
    (void)length;
    CHECK_EQUAL_RETURN(data, nullptr, -101, "CLS_D3D11vaDraw::GetDrawInfo", 19);
    ID3D11Device* device = renderer.GetDevice();
    memcpy(data, &device, sizeof(device));
    return 0;
}

int32_t CLS_D3D11vaDraw::Config(int32_t command, void* data, int32_t length)
{
    switch (command) {
    case QUILLON_CMD_TEXTURE2D_TO_NV12: return Texture2DToNV12(data, length);
    case QUILLON_CMD_SET_DRAW_CALLBACK: return SetDrawCallBack(data, length);
    case QUILLON_CMD_DRAW_LINE: return InnerOnDrawLine(data, length);
    case QUILLON_CMD_DRAW_TEXT: return InnerOnDrawText(data, length);
    case QUILLON_CMD_DRAW_BLURRY: return InnerOnDrawBlurry(data, length);
    case QUILLON_CMD_EZOOM_AREA: return InnerEZoomArea(data, length);
    case QUILLON_CMD_SET_DST_RECT: return InnerSetDstRect(data, length);
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

int32_t CLS_D3D11vaDraw::SetWnd(HWND hWnd)
{
    return renderer.SetWnd(hWnd) ? 0 : -1;
}

// Read-back failures are not reported: the host finds `data` and `rowPitch`
// as it sent them.
int32_t CLS_D3D11vaDraw::Texture2DToNV12(void* data, int32_t length)
{
    CHECK_EQUAL_RETURN(data, nullptr, -1, "CLS_D3D11vaDraw::Texture2DToNV12", 172);
    NV12ReadBack readBack = CopyIn<NV12ReadBack>(data, length);
    renderer.Texture2DToNV12(static_cast<ID3D11Texture2D*>(readBack.texture), readBack.arraySlice, readBack.width,
                             readBack.height, &readBack.data, &readBack.rowPitch);
    memcpy(data, &readBack, CopyLength(length, sizeof(readBack)));
    return 0;
}

// A payload of 8 bytes replaces the callback and keeps the user pointer.
int32_t CLS_D3D11vaDraw::SetDrawCallBack(void* data, int32_t length)
{
    CHECK_EQUAL_RETURN(data, nullptr, -1, "CLS_D3D11vaDraw::SetDrawCallBack", 186);
    DrawCallBackParam param = renderer.GetDrawCallBack();
    memcpy(&param, data, CopyLength(length, sizeof(param)));
    renderer.SetDrawCallBack(param);
    return 0;
}

int32_t CLS_D3D11vaDraw::InnerOnDrawLine(void* data, int32_t length)
{
    CHECK_EQUAL_RETURN(data, nullptr, -1, "CLS_D3D11vaDraw::InnerOnDrawLine", 193);
    const OverlayParam param = CopyIn<OverlayParam>(data, length);
    renderer.InnerOnDrawLine(&param);
    return 0;
}

int32_t CLS_D3D11vaDraw::InnerOnDrawText(void* data, int32_t length)
{
    CHECK_EQUAL_RETURN(data, nullptr, -1, "CLS_D3D11vaDraw::InnerOnDrawText", 203);
    OverlayParam param = CopyIn<OverlayParam>(data, length);
    renderer.InnerOnDrawText(&param);
    return 0;
}

int32_t CLS_D3D11vaDraw::InnerOnDrawBlurry(void* data, int32_t length)
{
    CHECK_EQUAL_RETURN(data, nullptr, -1, "CLS_D3D11vaDraw::InnerOnDrawBlurry", 213);
    const OverlayParam param = CopyIn<OverlayParam>(data, length);
    renderer.InnerOnDrawBlurry(&param);
    return 0;
}

int32_t CLS_D3D11vaDraw::InnerEZoomArea(void* data, int32_t length)
{
    CHECK_EQUAL_RETURN(data, nullptr, -1, "CLS_D3D11vaDraw::InnerEZoomArea", 223);
    renderer.SetZoomArea(CopyIn<EZoomArea>(data, length));
    return 0;
}

int32_t CLS_D3D11vaDraw::InnerSetDstRect(void* data, int32_t length)
{
    CHECK_EQUAL_RETURN(data, nullptr, -1, "CLS_D3D11vaDraw::InnerSetDstRect", 233);
    renderer.SetDstRect(CopyIn<DstRect>(data, length));
    return 0;
}
