#include "interface/CLS_RenderManager.h"

#include <new>

#include "common/QuillonCommonFun.h"
#include "render/CLS_D3D11vaDraw.h"

namespace {

CLS_D3D11vaDraw* Object(void* _pHandle)
{
    return static_cast<CLS_D3D11vaDraw*>(_pHandle);
}

}  // namespace

CLS_RenderManager& CLS_RenderManager::GetInstance()
{
    static CLS_RenderManager instance;
    return instance;
}

void* CLS_RenderManager::Create(void* /*_pReserved*/, uint32_t /*_uiReserved*/)
{
    CLS_D3D11vaDraw* pDraw = new (std::nothrow) CLS_D3D11vaDraw();
    if (pDraw) m_setHandles.insert(pDraw);
    return pDraw;
}

int32_t CLS_RenderManager::InitDevice(void* _pHandle, void* _pData, int32_t _iSize)
{
    HANDLE_CHECK_RETURN(_pHandle, "CLS_RenderManager::InitDevice", 68);
    return Object(_pHandle)->InitDevice(_pData, _iSize);
}

int32_t CLS_RenderManager::ShowFrame(void* _pHandle, void* _pData, uint32_t _uiSize)
{
    HANDLE_CHECK_RETURN(_pHandle, "CLS_RenderManager::ShowFrame", 80);
    return Object(_pHandle)->ShowFrame(_pData, static_cast<int32_t>(_uiSize));
}

int32_t CLS_RenderManager::Release(void* _pHandle)
{
    HANDLE_CHECK_RETURN(_pHandle, "CLS_RenderManager::Release", 92);
    Object(_pHandle)->Release();
    return EraseHandle(_pHandle);
}

int32_t CLS_RenderManager::GetDrawInfo(void* _pHandle, void* _pData, uint32_t _uiSize)
{
    HANDLE_CHECK_RETURN(_pHandle, "CLS_RenderManager::GetDrawInfo", 103);
    return Object(_pHandle)->GetDrawInfo(_pData, static_cast<int32_t>(_uiSize));
}

int32_t CLS_RenderManager::SetWnd(void* _pHandle, HWND _hWnd)
{
    HANDLE_CHECK_RETURN(_pHandle, "CLS_RenderManager::SetWnd", 113);
    return Object(_pHandle)->SetWnd(_hWnd);
}

int32_t CLS_RenderManager::Config(void* _pHandle, uint32_t _uiCommand, void* _pData, uint32_t _uiSize)
{
    HANDLE_CHECK_RETURN(_pHandle, "CLS_RenderManager::Config", 123);
    return Object(_pHandle)->Config(static_cast<int32_t>(_uiCommand), _pData, static_cast<int32_t>(_uiSize));
}

int32_t CLS_RenderManager::EraseHandle(void* _pHandle)
{
    if (!_pHandle) return 0;
    auto it = m_setHandles.find(_pHandle);
    if (it != m_setHandles.end()) {
        delete Object(_pHandle);
        m_setHandles.erase(it);
    }
    return 1;
}

bool CLS_RenderManager::IsHandleValid(void* _pHandle) const
{
    return _pHandle && m_setHandles.count(_pHandle) != 0;
}
