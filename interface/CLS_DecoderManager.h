#pragma once
// The registry of decoder objects behind the decoder exports. A handle is the
// object's address; every call checks it against the set and forwards.
// Released decoders keep their handle (and their object) for the life of the
// process, so a released handle can be initialised again.
#include <set>

#include "decoder/CLS_D3D11vaDecoder.h"

class CLS_DecoderManager {
public:
    static CLS_DecoderManager& GetInstance();

    void* Create(void* _pReserved, unsigned int _uiReserved);
    int Initial(void* _pHandle, CreateNeed* _ptCreateNeed, CreateNeedExtern* _ptCreateNeedExtern);
    int DecodeOneFrame(void* _pHandle, unsigned char* _pucFrameData, unsigned int _uiLength, DecOut* _ptDecOut);
    int Release(void* _pHandle);
    bool IsHandleValid(void* _pHandle) const;

private:
    std::set<void*> m_setHandles;
};
