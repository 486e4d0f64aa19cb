#pragma once
// The registry of render objects: a render handle is the address of its
// CLS_D3D11vaDraw. Every call checks the handle against the set of addresses
// handed out (never reading the memory behind an unknown one) and forwards
// it unchanged to the object.
#include <windows.h>

#include <cstdint>
#include <set>

class CLS_RenderManager {
public:
    static CLS_RenderManager& GetInstance();

    void* Create(void* _pReserved, uint32_t _uiReserved);
    int32_t InitDevice(void* _pHandle, void* _pData, int32_t _iSize);
    int32_t ShowFrame(void* _pHandle, void* _pData, uint32_t _uiSize);
    int32_t GetDrawInfo(void* _pHandle, void* _pData, uint32_t _uiSize);
    int32_t Config(void* _pHandle, uint32_t _uiCommand, void* _pData, uint32_t _uiSize);
    int32_t SetWnd(void* _pHandle, HWND _hWnd);
    // Tears the renderer down and destroys the object: 1, or -1.
    int32_t Release(void* _pHandle);
    // 0 for null, else 1 (the object is destroyed when it was registered).
    int32_t EraseHandle(void* _pHandle);
    bool IsHandleValid(void* _pHandle) const;

private:
    CLS_RenderManager() = default;
    std::set<void*> m_setHandles;
};
