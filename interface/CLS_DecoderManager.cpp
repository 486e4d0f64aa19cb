#include "interface/CLS_DecoderManager.h"

#include <new>

#include "common/QuillonCommonFun.h"

CLS_DecoderManager& CLS_DecoderManager::GetInstance()
{
    static CLS_DecoderManager instance;
    return instance;
}

void* CLS_DecoderManager::Create(void* /*_pReserved*/, unsigned int /*_uiReserved*/)
{
    CLS_D3D11vaDecoder* pDecoder = new (std::nothrow) CLS_D3D11vaDecoder();
    if (pDecoder) {
        m_setHandles.insert(pDecoder);
    }
    return pDecoder;
}

bool CLS_DecoderManager::IsHandleValid(void* _pHandle) const
{
    return _pHandle && m_setHandles.count(_pHandle) != 0;
}

int CLS_DecoderManager::Initial(void* _pHandle, CreateNeed* _ptCreateNeed, CreateNeedExtern* _ptCreateNeedExtern)
{
    HANDLE_CHECK_RETURN(_pHandle, "CLS_DecoderManager::Initial", 65);
    return static_cast<CLS_D3D11vaDecoder*>(_pHandle)->Initial(_ptCreateNeed, _ptCreateNeedExtern);
}

int CLS_DecoderManager::DecodeOneFrame(void* _pHandle, unsigned char* _pucFrameData, unsigned int _uiLength,
                                       DecOut* _ptDecOut)
{
    HANDLE_CHECK_RETURN(_pHandle, "CLS_DecoderManager::DecodeOneFrame", 77);
    return static_cast<CLS_D3D11vaDecoder*>(_pHandle)->DecodeOneFrame(_pucFrameData, _uiLength, _ptDecOut);
}

int CLS_DecoderManager::Release(void* _pHandle)
{
    HANDLE_CHECK_RETURN(_pHandle, "CLS_DecoderManager::Release", 89);
    static_cast<CLS_D3D11vaDecoder*>(_pHandle)->ReleaseResources();  // the handle stays registered
    return 0;
}
