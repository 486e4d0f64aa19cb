#pragma once
// Script of the FFmpeg test double (FfmpegDouble.dll, staged as "ffmpeg-7.dll"): the test sets what the
// next calls return and reads back what the decoder handed over.
#include <d3d11.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/hwcontext_d3d11va.h>
}

enum { FF_DOUBLE_MAX = 8 };

struct FfDoubleScript {
    // --- set-up: non-zero "Fails" make the call return null ----------------
    int findDecoderFails, allocContextFails, deviceAllocFails, deviceCreateFails, frameAllocFails, framesAllocFails;
    int hwConfigCount;  // configs offered; by default one D3D11VA device-context config
    AVCodecHWConfig hwConfigs[FF_DOUBLE_MAX];
    int deviceInitResults[FF_DOUBLE_MAX];  // per av_hwdevice_ctx_init call, 0 after the list
    int openResult, framesInitResult;
    AVPixelFormat offeredFormats[FF_DOUBLE_MAX];  // handed to get_format at the first packet, ends with NONE
    // The video device of every device context lists the H.264 profile only, with NV12.
    int videoDeviceMissing, configCount;
    long configCountHr;

    // --- decoding ---------------------------------------------------------
    int sendResults[FF_DOUBLE_MAX];     // per avcodec_send_packet call, 0 after the list
    int receiveResults[FF_DOUBLE_MAX];  // per avcodec_receive_frame call, 0 after the list
    int frameWidth, frameHeight;
    void* frameTexture;
    uint64_t frameSlice;  // becomes data[1]

    // --- what the double saw ---------------------------------------------
    int calls[32];                        // counters by FfDoubleCall
    AVCodecContext opened;                // the codec context at avcodec_open2
    int openCodecId;                      // the codec handed to avcodec_open2
    void* deviceInitData[FF_DOUBLE_MAX];  // ->data of each av_hwdevice_ctx_init argument
    void* deviceInitRef[FF_DOUBLE_MAX];   // the AVBufferRef of each call
    void* deviceInDevice;                 // AVD3D11VADeviceContext.device at the first init
    int createType, createFlags;          // av_hwdevice_ctx_create's arguments
    const char* createName;
    AVDictionary* createOpts;
    int getFormatResult;
    AVHWFramesContext frames;  // the frames context at av_hwframe_ctx_init
    AVD3D11VAFramesContext framesD3d;
    AVPacket packet;                // the last packet sent (data points into the caller's buffer)
    int liveBuffers;                // AVBufferRefs not yet unreferenced
    D3D11_VIDEO_DECODER_DESC desc;  // at GetVideoDecoderConfigCount
};

enum FfDoubleCall {
    FF_CALL_FIND_DECODER, FF_CALL_ALLOC_CONTEXT, FF_CALL_GET_HW_CONFIG, FF_CALL_DEVICE_ALLOC, FF_CALL_DEVICE_CREATE,
    FF_CALL_DEVICE_INIT, FF_CALL_FRAME_FREE, FF_CALL_INIT_PACKET, FF_CALL_PACKET_UNREF, FF_CALL_SEND, FF_CALL_CLOSE,
    FF_CALL_FREE_CONTEXT
};

// Exported: the script, and a reset to the defaults (H.264 and HEVC decoders, one D3D11VA device-context
// config, every call succeeding, two decoder configurations, 1920x1080 pictures).
typedef FfDoubleScript* (*FfDoubleScriptFn)();
typedef void (*FfDoubleResetFn)();
