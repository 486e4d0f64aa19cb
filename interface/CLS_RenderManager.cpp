#include "interface/CLS_RenderManager.h"

#include <new>

#include "common/QuillonCommonFun.h"
#include "render/CLS_D3D11vaDraw.h"

namespace {

CLS_D3D11vaDraw* Object(void* handle)
{
    return static_cast<CLS_D3D11vaDraw*>(handle);
}

}  // namespace

CLS_RenderManager& CLS_RenderManager::GetInstance()
{
    static CLS_RenderManager instance;
    return instance;
}

void* CLS_RenderManager::Create(void* reserved, uint32_t reservedSize)
{
    (void)reserved;
    (void)reservedSize;
    CLS_D3D11vaDraw* draw = new (std::nothrow) CLS_D3D11vaDraw();
    if (draw) m_handles.insert(draw);
    return draw;
}

int32_t CLS_RenderManager::InitDevice(void* handle, void* data, int32_t size)
{
    HANDLE_CHECK_RETURN(handle, "CLS_RenderManager::InitDevice", 68);
    return Object(handle)->InitDevice(data, size);
}

int32_t CLS_RenderManager::ShowFrame(void* handle, void* data, uint32_t size)
{
    HANDLE_CHECK_RETURN(handle, "CLS_RenderManager::ShowFrame", 80);
    return Object(handle)->ShowFrame(data, static_cast<int32_t>(size));
}

int32_t CLS_RenderManager::Release(void* handle)
{
    HANDLE_CHECK_RETURN(handle, "CLS_RenderManager::Release", 92);
    Object(handle)->Release();
    return EraseHandle(handle);
}

int32_t CLS_RenderManager::GetDrawInfo(void* handle, void* data, uint32_t size)
{
    HANDLE_CHECK_RETURN(handle, "CLS_RenderManager::GetDrawInfo", 103);
    return Object(handle)->GetDrawInfo(data, static_cast<int32_t>(size));
}

int32_t CLS_RenderManager::SetWnd(void* handle, HWND hWnd)
{
    HANDLE_CHECK_RETURN(handle, "CLS_RenderManager::SetWnd", 113);
    return Object(handle)->SetWnd(hWnd);
}

int32_t CLS_RenderManager::Config(void* handle, uint32_t command, void* data, uint32_t size)
{
    HANDLE_CHECK_RETURN(handle, "CLS_RenderManager::Config", 123);
    return Object(handle)->Config(static_cast<int32_t>(command), data, static_cast<int32_t>(size));
}

int32_t CLS_RenderManager::EraseHandle(void* handle)
{
    if (!handle) return 0;
    auto it = m_handles.find(handle);
    if (it != m_handles.end()) {
        delete Object(handle);
        m_handles.erase(it);
    }
    return 1;
}

bool CLS_RenderManager::IsHandleValid(void* handle) const
{
    return handle && m_handles.count(handle) != 0;
}
