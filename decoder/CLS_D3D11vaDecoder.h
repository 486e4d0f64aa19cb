#pragma once
// One hardware decoder: FFmpeg's H.264/HEVC decoder on a D3D11VA device.
// Pictures stay on the graphics card; each decoded picture is handed out as
// one slice of the frame pool's NV12 texture array.
#include <d3d11.h>

#include "CommonCode/Ffmpeg/ffmpeg_api.h"
#include "core/core_api.h"
#include "include/QuillonSDK.h"

// The pixel-format callback installed as the codec context's get_format:
// picks AV_PIX_FMT_D3D11 and attaches a frame pool of 10 NV12 surfaces.
enum AVPixelFormat get_d3d11va_hw_format(AVCodecContext* _pCodeCtx, const enum AVPixelFormat* _pFormats);

class CLS_D3D11vaDecoder {
public:
    // 0; -404 null record; -428 unsupported VideoMode; -1 any other failure.
    int Initial(CreateNeed* _ptCreateNeed, CreateNeedExtern* _ptCreateNeedExtern);

    // 0 when the frame was accepted (picture or not); -404 null input; -1 on
    // a decoding error. The length argument is not used: FrameHead decides.
    int DecodeOneFrame(unsigned char* _pucFrameData, unsigned int _uiLength, DecOut* _ptDecOut);

    // Sends one packet and takes at most one picture. 0 or -1.
    int DecodePacket(AVCodecContext* _pCodeCtx, AVPacket* _pPacket, DecOut* _ptDecOut);

    // Whether the device's video device can decode `_eCodecId` as NV12 at
    // the size given.
    bool CheckIsDeviceSupportHw(AVCodecID _eCodecId, int _iWidth, int _iHeight, AVHWDeviceContext* _pDeviceCtx);

    // Frees frame, device context and codec context; safe to repeat.
    void ReleaseResources();

    // A failure of Initial once the codec is looked for: the error record
    // with `_iLine` (a constant hosts filter on), ReleaseResources, -1.
    int FailInitial(int _iLine, const char* _pszFormat, ...) CORE_PRINTF(3, 4);

    AVCodecContext* m_pCodeCtx = nullptr;
    AVFrame* m_pPicture = nullptr;
    void* m_pUserContext = nullptr;
    AVBufferRef* m_pDeviceBuffer = nullptr;
};
