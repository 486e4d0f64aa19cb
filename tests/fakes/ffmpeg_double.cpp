// The FFmpeg test double: the entry points the decoder uses, with FFmpeg 7's prototypes, behaving as the
// script in ffmpeg_double.h says. Device contexts carry a small ID3D11VideoDevice for the capability check
// and release their ID3D11Device with the last reference, as FFmpeg's do.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ffmpeg_double.h"

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#pragma GCC diagnostic ignored "-Wunused-parameter"

#define EXPORT extern "C" __declspec(dllexport)

namespace {

FfDoubleScript g_script;
int g_deviceInitCall = 0, g_sendCall = 0, g_receiveCall = 0;
int64_t g_lastDts = 0;

const GUID kH264 = {0x1b81be68, 0xa0c7, 0x11d3, {0xb9, 0x84, 0x00, 0xc0, 0x4f, 0x2e, 0x73, 0xc5}};

AVCodec Codec(const char* name, AVCodecID id) {
    AVCodec c{};
    c.name = name;
    c.id = id;
    return c;
}
AVCodec g_h264 = Codec("h264", AV_CODEC_ID_H264), g_hevc = Codec("hevc", AV_CODEC_ID_HEVC);

int Next(const int* results, int& index) {
    const int i = index++;
    return i < FF_DOUBLE_MAX ? results[i] : 0;
}

int& Count(FfDoubleCall call) { return g_script.calls[call]; }

// Methods the decoder never calls.
#define UNUSED_METHOD(name, ...) \
    HRESULT STDMETHODCALLTYPE name(__VA_ARGS__) override { return E_NOTIMPL; }

class VideoDevice : public ID3D11VideoDevice {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** out) override {
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    UINT STDMETHODCALLTYPE GetVideoDecoderProfileCount() override { return 1; }
    HRESULT STDMETHODCALLTYPE GetVideoDecoderProfile(UINT index, GUID* profile) override {
        if (index > 0) return E_INVALIDARG;
        *profile = kH264;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE CheckVideoDecoderFormat(const GUID*, DXGI_FORMAT format, WINBOOL* supported) override {
        *supported = format == DXGI_FORMAT_NV12;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetVideoDecoderConfigCount(const D3D11_VIDEO_DECODER_DESC* desc, UINT* count) override {
        g_script.desc = *desc;
        *count = g_script.configCount;
        return static_cast<HRESULT>(g_script.configCountHr);
    }
    HRESULT STDMETHODCALLTYPE GetVideoDecoderConfig(const D3D11_VIDEO_DECODER_DESC*, UINT index,
                                                    D3D11_VIDEO_DECODER_CONFIG* config) override {
        memset(config, 0, sizeof(*config));
        config->ConfigBitstreamRaw = index + 1;
        return S_OK;
    }
    UNUSED_METHOD(CreateVideoDecoder, const D3D11_VIDEO_DECODER_DESC*, const D3D11_VIDEO_DECODER_CONFIG*,
                  ID3D11VideoDecoder**)
    UNUSED_METHOD(CreateVideoProcessor, ID3D11VideoProcessorEnumerator*, UINT, ID3D11VideoProcessor**)
    UNUSED_METHOD(CreateAuthenticatedChannel, D3D11_AUTHENTICATED_CHANNEL_TYPE, ID3D11AuthenticatedChannel**)
    UNUSED_METHOD(CreateCryptoSession, const GUID*, const GUID*, const GUID*, ID3D11CryptoSession**)
    UNUSED_METHOD(CreateVideoDecoderOutputView, ID3D11Resource*, const D3D11_VIDEO_DECODER_OUTPUT_VIEW_DESC*,
                  ID3D11VideoDecoderOutputView**)
    UNUSED_METHOD(CreateVideoProcessorInputView, ID3D11Resource*, ID3D11VideoProcessorEnumerator*,
                  const D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC*, ID3D11VideoProcessorInputView**)
    UNUSED_METHOD(CreateVideoProcessorOutputView, ID3D11Resource*, ID3D11VideoProcessorEnumerator*,
                  const D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC*, ID3D11VideoProcessorOutputView**)
    UNUSED_METHOD(CreateVideoProcessorEnumerator, const D3D11_VIDEO_PROCESSOR_CONTENT_DESC*,
                  ID3D11VideoProcessorEnumerator**)
    UNUSED_METHOD(GetContentProtectionCaps, const GUID*, const GUID*, D3D11_VIDEO_CONTENT_PROTECTION_CAPS*)
    UNUSED_METHOD(CheckCryptoKeyExchange, const GUID*, const GUID*, UINT, GUID*)
    UNUSED_METHOD(SetPrivateData, REFGUID, UINT, const void*)
    UNUSED_METHOD(SetPrivateDataInterface, REFGUID, const IUnknown*)
};
VideoDevice g_videoDevice;

// The reference-counted payload behind AVBufferRef.data: a device or frames context with its D3D11VA part.
struct Payload {
    int refs;
    bool device;
    AVHWDeviceContext deviceCtx;
    AVD3D11VADeviceContext d3dDevice;
    AVHWFramesContext framesCtx;
    AVD3D11VAFramesContext d3dFrames;
};

AVBufferRef* NewRef(Payload* payload) {
    AVBufferRef* ref = static_cast<AVBufferRef*>(calloc(1, sizeof(AVBufferRef)));
    ref->buffer = reinterpret_cast<AVBuffer*>(payload);
    ref->data = payload->device ? reinterpret_cast<uint8_t*>(&payload->deviceCtx)
                                : reinterpret_cast<uint8_t*>(&payload->framesCtx);
    ref->size = sizeof(Payload);
    ++payload->refs;
    ++g_script.liveBuffers;
    return ref;
}

Payload* PayloadOf(const AVBufferRef* ref) { return reinterpret_cast<Payload*>(ref->buffer); }

AVBufferRef* NewDevice() {
    Payload* p = static_cast<Payload*>(calloc(1, sizeof(Payload)));
    p->device = true;
    p->deviceCtx.type = AV_HWDEVICE_TYPE_D3D11VA;
    p->deviceCtx.hwctx = &p->d3dDevice;
    return NewRef(p);
}

void Reset() {
    memset(&g_script, 0, sizeof(g_script));
    g_deviceInitCall = g_sendCall = g_receiveCall = 0;
    g_script.hwConfigCount = 1;
    g_script.hwConfigs[0] = {AV_PIX_FMT_D3D11, AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX, AV_HWDEVICE_TYPE_D3D11VA};
    for (AVPixelFormat& f : g_script.offeredFormats) f = AV_PIX_FMT_NONE;
    g_script.offeredFormats[0] = AV_PIX_FMT_NV12;
    g_script.offeredFormats[1] = AV_PIX_FMT_D3D11;
    g_script.configCount = 2;
    g_script.frameWidth = 1920;
    g_script.frameHeight = 1080;
    g_script.frameTexture = reinterpret_cast<void*>(0x1122334455667788ull);
    g_script.frameSlice = 0xAABBCCDD00000007ull;
}

struct Init {
    Init() { Reset(); }
} g_init;  // the defaults from the module's load on

}  // namespace

EXPORT FfDoubleScript* FfDouble_Script() { return &g_script; }
EXPORT void FfDouble_Reset() { Reset(); }

EXPORT const AVCodec* avcodec_find_decoder(enum AVCodecID id) {
    ++Count(FF_CALL_FIND_DECODER);
    if (g_script.findDecoderFails) return nullptr;
    return id == AV_CODEC_ID_H264 ? &g_h264 : id == AV_CODEC_ID_HEVC ? &g_hevc : nullptr;
}

EXPORT AVCodecContext* avcodec_alloc_context3(const AVCodec* codec) {
    ++Count(FF_CALL_ALLOC_CONTEXT);
    if (g_script.allocContextFails) return nullptr;
    AVCodecContext* ctx = static_cast<AVCodecContext*>(calloc(1, sizeof(AVCodecContext)));
    ctx->codec = codec;
    ctx->codec_id = codec->id;
    ctx->thread_count = 1;
    return ctx;
}

EXPORT const AVCodecHWConfig* avcodec_get_hw_config(const AVCodec*, int index) {
    ++Count(FF_CALL_GET_HW_CONFIG);
    return index >= 0 && index < g_script.hwConfigCount ? &g_script.hwConfigs[index] : nullptr;
}

EXPORT int avcodec_open2(AVCodecContext* ctx, const AVCodec* codec, AVDictionary** options) {
    g_script.opened = *ctx;
    g_script.openCodecId = codec ? codec->id : -1;
    return g_script.openResult;
}

EXPORT int avcodec_close(AVCodecContext*) { return ++Count(FF_CALL_CLOSE), 0; }

EXPORT void av_buffer_unref(AVBufferRef** ref);

EXPORT void avcodec_free_context(AVCodecContext** ctx) {
    ++Count(FF_CALL_FREE_CONTEXT);
    if (!ctx || !*ctx) return;
    av_buffer_unref(&(*ctx)->hw_device_ctx);
    av_buffer_unref(&(*ctx)->hw_frames_ctx);
    free(*ctx);
    *ctx = nullptr;
}

EXPORT int avcodec_send_packet(AVCodecContext* ctx, const AVPacket* pkt) {
    ++Count(FF_CALL_SEND);
    g_script.packet = *pkt;
    // A real decoder negotiates the hardware format at the first parameter sets.
    if (!ctx->hw_frames_ctx && ctx->get_format)
        g_script.getFormatResult = ctx->get_format(ctx, g_script.offeredFormats);
    const int result = Next(g_script.sendResults, g_sendCall);
    if (result >= 0) g_lastDts = pkt->dts;
    return result;
}

EXPORT int avcodec_receive_frame(AVCodecContext*, AVFrame* frame) {
    const int result = Next(g_script.receiveResults, g_receiveCall);
    if (result < 0) return result;
    frame->width = g_script.frameWidth;
    frame->height = g_script.frameHeight;
    frame->data[0] = static_cast<uint8_t*>(g_script.frameTexture);
    frame->data[1] = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(g_script.frameSlice));
    frame->pkt_dts = g_lastDts;
    return result;
}

EXPORT void av_init_packet(AVPacket* pkt) {
    ++Count(FF_CALL_INIT_PACKET);
    pkt->pts = pkt->dts = AV_NOPTS_VALUE;
    pkt->pos = -1;
}

EXPORT void av_packet_unref(AVPacket* pkt) {
    ++Count(FF_CALL_PACKET_UNREF);
    memset(pkt, 0, sizeof(*pkt));
}

EXPORT int av_strerror(int errnum, char* buf, size_t size) {
    snprintf(buf, size, "double error %d", errnum);
    return 0;
}

EXPORT const char* av_hwdevice_get_type_name(enum AVHWDeviceType type) {
    return type == AV_HWDEVICE_TYPE_D3D11VA ? "d3d11va" : "other";
}

EXPORT AVBufferRef* av_hwdevice_ctx_alloc(enum AVHWDeviceType type) {
    ++Count(FF_CALL_DEVICE_ALLOC);
    return g_script.deviceAllocFails ? nullptr : NewDevice();
}

EXPORT int av_hwdevice_ctx_init(AVBufferRef* ref) {
    ++Count(FF_CALL_DEVICE_INIT);
    const int i = g_deviceInitCall;
    if (i < FF_DOUBLE_MAX) {
        g_script.deviceInitRef[i] = ref;
        g_script.deviceInitData[i] = ref->data;
    }
    if (i == 0) g_script.deviceInDevice = PayloadOf(ref)->d3dDevice.device;
    const int result = Next(g_script.deviceInitResults, g_deviceInitCall);
    if (result >= 0 && !g_script.videoDeviceMissing) PayloadOf(ref)->d3dDevice.video_device = &g_videoDevice;
    return result;
}

EXPORT int av_hwdevice_ctx_create(AVBufferRef** out, enum AVHWDeviceType type, const char* device, AVDictionary* opts,
                                  int flags) {
    ++Count(FF_CALL_DEVICE_CREATE);
    g_script.createType = type;
    g_script.createName = device;
    g_script.createOpts = opts;
    g_script.createFlags = flags;
    if (g_script.deviceCreateFails) {
        *out = nullptr;
        return AVERROR(ENOSYS);
    }
    *out = NewDevice();
    if (!g_script.videoDeviceMissing) PayloadOf(*out)->d3dDevice.video_device = &g_videoDevice;
    return 0;
}

EXPORT AVBufferRef* av_hwframe_ctx_alloc(AVBufferRef* device) {
    if (g_script.framesAllocFails || !device) return nullptr;
    Payload* p = static_cast<Payload*>(calloc(1, sizeof(Payload)));
    p->framesCtx.hwctx = &p->d3dFrames;
    p->framesCtx.format = p->framesCtx.sw_format = AV_PIX_FMT_NONE;
    p->d3dFrames.BindFlags = D3D11_BIND_SHADER_RESOURCE;  // something already there, to see it kept
    return NewRef(p);
}

EXPORT int av_hwframe_ctx_init(AVBufferRef* ref) {
    g_script.frames = *reinterpret_cast<const AVHWFramesContext*>(ref->data);
    g_script.framesD3d = *static_cast<const AVD3D11VAFramesContext*>(g_script.frames.hwctx);
    return g_script.framesInitResult;
}

EXPORT AVBufferRef* av_buffer_ref(const AVBufferRef* ref) { return ref ? NewRef(PayloadOf(ref)) : nullptr; }

EXPORT void av_buffer_unref(AVBufferRef** ref) {
    if (!ref || !*ref) return;
    Payload* p = PayloadOf(*ref);
    free(*ref);
    *ref = nullptr;
    --g_script.liveBuffers;
    if (--p->refs == 0) {
        if (p->device && p->d3dDevice.device) p->d3dDevice.device->Release();
        free(p);
    }
}

EXPORT AVFrame* av_frame_alloc() {
    return g_script.frameAllocFails ? nullptr : static_cast<AVFrame*>(calloc(1, sizeof(AVFrame)));
}

EXPORT void av_frame_free(AVFrame** frame) {
    ++Count(FF_CALL_FRAME_FREE);
    if (frame) {
        free(*frame);
        *frame = nullptr;
    }
}
