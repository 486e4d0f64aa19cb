#pragma once
// Script of the FFmpeg test double (built as FfmpegDouble.dll, staged as
// "ffmpeg-7.dll"). The test fetches the script with FfDouble_Script(), sets
// what the next calls return and reads back what the decoder handed over.
#include <cstdint>

enum { FF_DOUBLE_MAX = 8 };

struct FfDoubleHwConfig {
    int deviceType;  // enum AVHWDeviceType
    int methods;
};

struct FfDoubleScript {
    // --- set-up -----------------------------------------------------------
    int findDecoderFails;
    int allocContextFails;
    int hwConfigCount;  // configs offered; defaults to one D3D11VA device-context config
    FfDoubleHwConfig hwConfigs[FF_DOUBLE_MAX];
    int deviceAllocFails;
    int deviceCreateFails;
    int deviceInitResults[FF_DOUBLE_MAX];  // per av_hwdevice_ctx_init call, 0 after the list
    int openResult;
    int frameAllocFails;
    int framesAllocFails;
    int framesInitResult;
    int offeredFormats[FF_DOUBLE_MAX];  // handed to get_format on the first packet, ends with -1
    // The video device of every device context (the "driver").
    int videoDeviceMissing;
    int profileCount;
    uint8_t profiles[FF_DOUBLE_MAX][16];  // GUID bytes
    int formatSupported;
    long configCountHr;
    int configCount;

    // --- decoding ---------------------------------------------------------
    int sendResults[FF_DOUBLE_MAX];     // per avcodec_send_packet call, 0 after the list
    int receiveResults[FF_DOUBLE_MAX];  // per avcodec_receive_frame call, 0 after the list
    int frameWidth, frameHeight;
    void* frameTexture;
    uint64_t frameSlice;  // becomes data[1]

    // --- what the double saw ---------------------------------------------
    int calls[64];  // counters by FfDoubleCall
    // the codec context at avcodec_open2
    int openWidth, openCodedWidth, openHeight, openCodedHeight, openThreadCount;
    int openFlags;
    int openCodecId;
    void* openHwDeviceData;  // hw_device_ctx->data
    void* openOpaque;
    void* openGetFormat;
    void* deviceInitData[FF_DOUBLE_MAX];  // ->data of each av_hwdevice_ctx_init argument
    void* deviceInitRef[FF_DOUBLE_MAX];   // the AVBufferRef of each call
    void* deviceInDevice;                 // AVD3D11VADeviceContext.device at the first init
    int createType, createFlags;
    const char* createName;
    void* createOpts;
    int getFormatResult;
    // the frames context at av_hwframe_ctx_init
    int framesFormat, framesSwFormat, framesWidth, framesHeight, framesPool;
    unsigned framesBindFlags, framesMiscFlags;
    // the last packet
    int packetSize;
    int64_t packetDts, packetPts;
    uint8_t packetBytes[16];
    int liveBuffers;  // AVBufferRefs not yet unreferenced
    // the decoder description at GetVideoDecoderConfigCount
    unsigned descWidth, descHeight;
    int descFormat;
    uint8_t descGuid[16];
};

enum FfDoubleCall {
    FF_CALL_FIND_DECODER, FF_CALL_ALLOC_CONTEXT, FF_CALL_OPEN, FF_CALL_GET_HW_CONFIG, FF_CALL_DEVICE_ALLOC,
    FF_CALL_DEVICE_CREATE, FF_CALL_DEVICE_INIT, FF_CALL_FRAMES_ALLOC, FF_CALL_FRAMES_INIT, FF_CALL_BUFFER_REF,
    FF_CALL_BUFFER_UNREF, FF_CALL_FRAME_ALLOC, FF_CALL_FRAME_FREE, FF_CALL_INIT_PACKET, FF_CALL_PACKET_UNREF,
    FF_CALL_SEND, FF_CALL_RECEIVE, FF_CALL_STRERROR, FF_CALL_CLOSE, FF_CALL_FREE_CONTEXT, FF_CALL_GET_FORMAT,
    FF_CALL_CONFIG_COUNT, FF_CALL_CHECK_FORMAT,
};

// Exported by the double: its script, and a reset to the defaults (H.264 and
// HEVC decoders, one D3D11VA device-context config, every call succeeding,
// one H.264 profile with NV12 and two decoder configurations).
typedef FfDoubleScript* (*FfDoubleScriptFn)();
typedef void (*FfDoubleResetFn)();
