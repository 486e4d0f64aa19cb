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

    void* Create(void* reserved, uint32_t reservedSize);
    int32_t InitDevice(void* handle, void* data, int32_t size);
    int32_t ShowFrame(void* handle, void* data, uint32_t size);
    int32_t GetDrawInfo(void* handle, void* data, uint32_t size);
    int32_t Config(void* handle, uint32_t command, void* data, uint32_t size);
    int32_t SetWnd(void* handle, HWND hWnd);
    // Tears the renderer down and destroys the object: 1, or -1.
    int32_t Release(void* handle);
    // 0 for null, else 1 (the object is destroyed when it was registered).
    int32_t EraseHandle(void* handle);
    bool IsHandleValid(void* handle) const;

private:
    CLS_RenderManager() = default;
    std::set<void*> m_handles;
};
