#pragma once
// The object behind one render handle: keeps the host's initialisation
// record and the window's client rectangle, owns the renderer, checks the
// window's size before every picture, and turns the C calls (pointer plus
// length) into calls on the renderer. Every record is copied into a zeroed
// local of its full size first, so a short record leaves later fields zero.
#include <windows.h>

#include <cstdint>

#include "QuillonSDK.h"
#include "render/CLS_D3D11vaRenderer.h"

class CLS_D3D11vaDraw final {
public:
    CLS_D3D11vaDraw();
    ~CLS_D3D11vaDraw() = default;
    CLS_D3D11vaDraw(const CLS_D3D11vaDraw&) = delete;
    CLS_D3D11vaDraw& operator=(const CLS_D3D11vaDraw&) = delete;

    // _pData: RenderInitParam. 0; -101 for null data; -1 when no device came up.
    virtual int32_t InitDevice(void* _pData, int32_t _iLength);
    // _pData: ShowFrameData. The presenter's result; -200 before a device; -101.
    virtual int32_t ShowFrame(void* _pData, int32_t _iLength);
    // Writes the device (8 bytes) whatever the length. 0; -101 for null data.
    virtual int32_t GetDrawInfo(void* _pData, int32_t _iLength);
    // Configuration commands QUILLON_CMD_*; unknown commands return 0.
    virtual int32_t Config(int32_t _iCommand, void* _pData, int32_t _iLength);
    // Kept free for a later operation; does nothing.
    virtual int32_t Reserved();
    // Frees the renderer's device objects; the manager deletes the object next.
    virtual int32_t Release();

    // Binds the renderer to another window (the device is kept): 0 or -1.
    int32_t SetWnd(HWND _hWnd);

    const CLS_D3D11vaRenderer& Renderer() const { return renderer; }

private:
    int32_t Texture2DToNV12(void* _pData, int32_t _iLength);
    int32_t SetDrawCallBack(void* _pData, int32_t _iLength);
    int32_t InnerOnDrawLine(void* _pData, int32_t _iLength);
    int32_t InnerOnDrawText(void* _pData, int32_t _iLength);
    int32_t InnerOnDrawBlurry(void* _pData, int32_t _iLength);
    int32_t InnerEZoomArea(void* _pData, int32_t _iLength);
    int32_t InnerSetDstRect(void* _pData, int32_t _iLength);

    RenderInitParam initParam;
    CLS_D3D11vaRenderer renderer;
    RECT clientRect;
};
