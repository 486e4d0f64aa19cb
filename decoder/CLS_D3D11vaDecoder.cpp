#include "decoder/CLS_D3D11vaDecoder.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

extern "C" {
#include <libavutil/hwcontext_d3d11va.h>
}

#include "common/QuillonCommonFun.h"

// The one threading option cleared in Initial: a non-zero default that
// FFmpeg 7 keeps at byte 656 of the codec context.
static_assert(offsetof(AVCodecContext, thread_count) == 656, "thread_count is no longer at byte 656");

namespace {

// Decoder profiles (not in mingw's d3d11.h).
const GUID kProfileH264VldNoFgt = {0x1b81be68, 0xa0c7, 0x11d3, {0xb9, 0x84, 0x00, 0xc0, 0x4f, 0x2e, 0x73, 0xc5}};
const GUID kProfileHevcVldMain = {0x5b11d51b, 0x2f4c, 0x4452, {0xbc, 0xc3, 0x09, 0xf2, 0xa1, 0x16, 0x0c, 0xc0}};

enum {
    kFramePoolSize = 10,
    kSurfaceAlign = 32,
    kErrorTextSize = 256,
    kSurfaceRecordMax = 136,
    kSliceIndexOffset = 128,
    kFrameHeadSize = 32,
};

int AlignUp(int value, int align) { return (value + align - 1) / align * align; }

}  // namespace

enum AVPixelFormat get_d3d11va_hw_format(AVCodecContext* _pCodeCtx, const enum AVPixelFormat* _pFormats)
{
    const enum AVPixelFormat* p = _pFormats;
    for (; *p != AV_PIX_FMT_D3D11; ++p) {
        if (*p == AV_PIX_FMT_NONE) {
            QUILLON_LOG_ERROR("get_d3d11va_hw_format", 44, "Failed to get HW surface format.");
            return AV_PIX_FMT_NONE;
        }
    }
    _pCodeCtx->hw_frames_ctx = ff_av_hwframe_ctx_alloc(_pCodeCtx->hw_device_ctx);
    if (!_pCodeCtx->hw_frames_ctx) {
        return AV_PIX_FMT_NONE;
    }
    AVHWFramesContext* frames = reinterpret_cast<AVHWFramesContext*>(_pCodeCtx->hw_frames_ctx->data);
    frames->format = AV_PIX_FMT_D3D11;
    frames->sw_format = AV_PIX_FMT_NV12;
    frames->width = AlignUp(_pCodeCtx->coded_width, kSurfaceAlign);
    frames->height = AlignUp(_pCodeCtx->coded_height, kSurfaceAlign);
    frames->initial_pool_size = kFramePoolSize;
    AVD3D11VAFramesContext* d3d = static_cast<AVD3D11VAFramesContext*>(frames->hwctx);
    d3d->BindFlags |= D3D11_BIND_DECODER;
    d3d->MiscFlags |= D3D11_RESOURCE_MISC_SHARED;  // the render side may sit on another device
    if (ff_av_hwframe_ctx_init(_pCodeCtx->hw_frames_ctx) < 0) {
        return AV_PIX_FMT_NONE;
    }
    return AV_PIX_FMT_D3D11;
}

static const char* const kInitialFunc = "CLS_D3D11vaDecoder::Initial";

int CLS_D3D11vaDecoder::FailInitial(int _iLine, const char* _pszFormat, ...)
{
    va_list ap;
    va_start(ap, _pszFormat);
    core_log_error_at_v(__FILE__, kInitialFunc, _iLine, _pszFormat, ap);
    va_end(ap);
    ReleaseResources();
    return -1;
}

int CLS_D3D11vaDecoder::Initial(CreateNeed* _ptCreateNeed, CreateNeedExtern* _ptCreateNeedExtern)
{
    QUILLON_CHECK_RETURN(!_ptCreateNeed || !_ptCreateNeedExtern, "NULL == _ptCreateNeed || NULL == _ptCreateNeedExtern",
                         QUILLON_ERR_NULL_POINTER, kInitialFunc, 151);
    const int iWidth = _ptCreateNeed->iWidth;
    const int iHeight = _ptCreateNeed->iHeight;
    const int iVideoMode = _ptCreateNeed->VideoMode;
    AVCodecID eCodecId;
    if (iVideoMode == QUILLON_VIDEO_H264 || iVideoMode == QUILLON_VIDEO_H264_ALT) {
        eCodecId = AV_CODEC_ID_H264;
    } else if (iVideoMode == QUILLON_VIDEO_H265) {
        eCodecId = AV_CODEC_ID_HEVC;
    } else {
        QUILLON_LOG_ERROR(kInitialFunc, 164, "HW NO Support, type=%d.", iVideoMode);
        return QUILLON_ERR_VIDEO_MODE;
    }

    const AVCodec* pCodec = ff_avcodec_find_decoder(eCodecId);
    if (!pCodec) {
        return FailInitial(172, "decoder not found");
    }
    m_pCodeCtx = ff_avcodec_alloc_context3(pCodec);
    if (!m_pCodeCtx) {
        return FailInitial(179, "NULL == m_pCodeCtx");
    }
    m_pCodeCtx->width = m_pCodeCtx->coded_width = iWidth;
    m_pCodeCtx->height = m_pCodeCtx->coded_height = iHeight;
    m_pCodeCtx->flags |= AV_CODEC_FLAG_LOW_DELAY;
    m_pCodeCtx->thread_count = 0;

    for (int i = 0;; ++i) {
        const AVCodecHWConfig* pConfig = ff_avcodec_get_hw_config(pCodec, i);
        if (!pConfig) {
            QUILLON_LOG_ERROR(kInitialFunc, 198, "Decoder %s does not support device type %s.\n", pCodec->name,
                              ff_av_hwdevice_get_type_name(AV_HWDEVICE_TYPE_D3D11VA));
            return -1;  // the context stays until the next release
        }
        if ((pConfig->methods & AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX) &&
            pConfig->device_type == AV_HWDEVICE_TYPE_D3D11VA) {
            break;
        }
    }

    if (!_ptCreateNeed->deviceSlot) {
        return FailInitial(205, "NULL == _ptCreateNeed->deviceSlot");
    }
    ID3D11Device* pDevice = static_cast<ID3D11Device*>(*_ptCreateNeed->deviceSlot);
    if (pDevice) {
        // Decode on the host's (the renderer's) device.
        m_pDeviceBuffer = ff_av_hwdevice_ctx_alloc(AV_HWDEVICE_TYPE_D3D11VA);
        if (!m_pDeviceBuffer) {
            return FailInitial(216, "av_hwdevice_ctx_alloc : NULL == m_pDeviceBuffer");
        }
        AVHWDeviceContext* pDeviceCtx = reinterpret_cast<AVHWDeviceContext*>(m_pDeviceBuffer->data);
        static_cast<AVD3D11VADeviceContext*>(pDeviceCtx->hwctx)->device = pDevice;
        pDevice->AddRef();  // FFmpeg releases it with the context
        char szError[kErrorTextSize] = {0};
        int iRet = ff_av_hwdevice_ctx_init(m_pDeviceBuffer);
        if (iRet < 0) {
            ff_av_strerror(iRet, szError, sizeof(szError));
            return FailInitial(229, "av_hwdevice_ctx_init : %s", szError);
        }
        m_pCodeCtx->hw_device_ctx = ff_av_buffer_ref(m_pDeviceBuffer);
        // Initialised a second time through the codec context's reference;
        // this has always been done and is kept.
        iRet = ff_av_hwdevice_ctx_init(m_pCodeCtx->hw_device_ctx);
        if (iRet < 0) {
            ff_av_strerror(iRet, szError, sizeof(szError));
            return FailInitial(239, "av_hwdevice_ctx_init : %s", szError);
        }
        m_pCodeCtx->opaque = m_pDeviceBuffer;
    } else {
        ff_av_hwdevice_ctx_create(&m_pDeviceBuffer, AV_HWDEVICE_TYPE_D3D11VA, nullptr, nullptr, 0);
        if (!m_pDeviceBuffer) {
            return FailInitial(246, "av_hwdevice_ctx_create : NULL == m_pDeviceBuffer");
        }
        m_pCodeCtx->hw_device_ctx = ff_av_buffer_ref(m_pDeviceBuffer);
    }

    if (!CheckIsDeviceSupportHw(eCodecId, iWidth, iHeight, reinterpret_cast<AVHWDeviceContext*>(m_pDeviceBuffer->data))) {
        return FailInitial(253, "CheckIsDeviceSupport  iWidth = %d iHeight = %d VideoMode = %d Not Support D3D11va",
                           iWidth, iHeight, iVideoMode);
    }
    m_pCodeCtx->get_format = get_d3d11va_hw_format;

    const int iOpen = ff_avcodec_open2(m_pCodeCtx, pCodec, nullptr);
    if (iOpen < 0) {
        return FailInitial(265, "error %x in avcodec_open2\n", static_cast<unsigned>(iOpen));
    }
    m_pPicture = ff_av_frame_alloc();
    if (!m_pPicture) {
        return FailInitial(272, "NULL == m_pPicture");
    }
    m_pUserContext = _ptCreateNeedExtern->userContext;
    return 0;
}

bool CLS_D3D11vaDecoder::CheckIsDeviceSupportHw(AVCodecID _eCodecId, int _iWidth, int _iHeight,
                                                AVHWDeviceContext* _pDeviceCtx)
{
    static const char* const kFunc = "CLS_D3D11vaDecoder::CheckIsDeviceSupportHw";
    AVD3D11VADeviceContext* pD3dCtx = _pDeviceCtx ? static_cast<AVD3D11VADeviceContext*>(_pDeviceCtx->hwctx) : nullptr;
    if (!pD3dCtx || !pD3dCtx->video_device) {
        return false;
    }
    ID3D11VideoDevice* pVideoDevice = pD3dCtx->video_device;

    GUID profile;
    char szProfile[128] = {0};
    if (_eCodecId == AV_CODEC_ID_H264) {
        profile = kProfileH264VldNoFgt;
        snprintf(szProfile, sizeof(szProfile), "H264 profileid = D3D11_DECODER_PROFILE_H264_VLD_NOFGT");
    } else if (_eCodecId == AV_CODEC_ID_HEVC) {
        profile = kProfileHevcVldMain;
        snprintf(szProfile, sizeof(szProfile), "H265 profileid = D3D11_DECODER_PROFILE_HEVC_VLD_MAIN");
    } else {
        return false;
    }

    // The profile scan only looks (it never refuses a device by itself); the
    // configuration count below decides.
    const UINT uiProfiles = pVideoDevice->GetVideoDecoderProfileCount();
    for (UINT i = 0; i < uiProfiles; ++i) {
        GUID candidate;
        if (FAILED(pVideoDevice->GetVideoDecoderProfile(i, &candidate)) ||
            memcmp(&candidate, &profile, sizeof(GUID)) != 0) {
            continue;
        }
        BOOL bSupported = FALSE;
        if (SUCCEEDED(pVideoDevice->CheckVideoDecoderFormat(&profile, DXGI_FORMAT_NV12, &bSupported)) && bSupported) {
            break;
        }
    }

    D3D11_VIDEO_DECODER_DESC desc;
    memset(&desc, 0, sizeof(desc));
    desc.Guid = profile;
    desc.SampleWidth = _iWidth;
    desc.SampleHeight = _iHeight;
    desc.OutputFormat = DXGI_FORMAT_NV12;
    UINT uiCount = 0;
    const HRESULT hr = pVideoDevice->GetVideoDecoderConfigCount(&desc, &uiCount);
    if (FAILED(hr)) {
        QUILLON_LOG_ERROR(kFunc, 126, "Failed to get configuration for decoder (hr=0x%lX)", static_cast<unsigned long>(hr));
        return false;
    }
    if (uiCount == 0) {
        QUILLON_LOG_ERROR(kFunc, 131, "No decoder configuration possible for width = %d height = %d %s", _iWidth,
                          _iHeight, szProfile);
        return false;
    }
    core_log_msg("[CLS_D3D11vaDecoder]we got %d decoder configurations ", static_cast<int>(uiCount));
    for (UINT i = 0; i < uiCount; ++i) {
        D3D11_VIDEO_DECODER_CONFIG config;
        memset(&config, 0, sizeof(config));
        pVideoDevice->GetVideoDecoderConfig(&desc, i, &config);
        core_log_msg("[CLS_D3D11vaDecoder]configuration[%d] ConfigBitstreamRaw %d ", static_cast<int>(i),
                     static_cast<int>(config.ConfigBitstreamRaw));
    }
    core_log_msg("[CLS_D3D11vaDecoder]CheckIsDeviceSupport Success _iWidth = %d _iHeight = %d %s", _iWidth, _iHeight,
                 szProfile);
    return true;
}

void CLS_D3D11vaDecoder::ReleaseResources()
{
    if (m_pPicture) {
        ff_av_frame_free(&m_pPicture);
        m_pPicture = nullptr;
    }
    if (m_pDeviceBuffer) {
        ff_av_buffer_unref(&m_pDeviceBuffer);
        m_pDeviceBuffer = nullptr;
    }
    if (m_pCodeCtx) {
        ff_avcodec_close(m_pCodeCtx);
        ff_avcodec_free_context(&m_pCodeCtx);
        m_pCodeCtx = nullptr;
    }
}

int CLS_D3D11vaDecoder::DecodeOneFrame(unsigned char* _pucFrameData, unsigned int /*_uiLength*/, DecOut* _ptDecOut)
{
    QUILLON_CHECK_RETURN(!_pucFrameData || !_ptDecOut, "NULL == _pucFrameData || NULL == _ptDecOut",
                         QUILLON_ERR_NULL_POINTER, "CLS_D3D11vaDecoder::DecodeOneFrame", 355);
    const FrameHead* ptHead = reinterpret_cast<const FrameHead*>(_pucFrameData);
    AVPacket packet;
    memset(&packet, 0, sizeof(packet));
    ff_av_init_packet(&packet);
    packet.data = _pucFrameData + kFrameHeadSize;
    packet.size = static_cast<int>(ptHead->payloadLength);
    packet.dts = static_cast<int64_t>(ptHead->timestamp);
    const int iRet = DecodePacket(m_pCodeCtx, &packet, _ptDecOut);
    ff_av_packet_unref(&packet);
    return iRet >= 0 ? 0 : -1;
}

int CLS_D3D11vaDecoder::DecodePacket(AVCodecContext* _pCodeCtx, AVPacket* _pPacket, DecOut* _ptDecOut)
{
    static const char* const kFunc = "CLS_D3D11vaDecoder::DecodePacket";
    // Never initialised, or released.
    QUILLON_CHECK_RETURN(!_pCodeCtx || !m_pPicture, "NULL == m_pCodeCtx || NULL == m_pPicture", -1, kFunc, 306);
    int iRet = ff_avcodec_send_packet(_pCodeCtx, _pPacket);
    if (iRet < 0) {
        char szError[kErrorTextSize] = {0};
        ff_av_strerror(iRet, szError, sizeof(szError));
        QUILLON_LOG_ERROR(kFunc, 312, "Error during decoding:%s\n", szError);
        return -1;
    }
    iRet = ff_avcodec_receive_frame(_pCodeCtx, m_pPicture);
    if (iRet == AVERROR(EAGAIN) || iRet == AVERROR_EOF) {
        return 0;  // no picture yet
    }
    if (iRet < 0) {
        QUILLON_LOG_ERROR(kFunc, 324, "Error while decoding\n");
        return -1;
    }
    if (_ptDecOut->surfaceRecordSize <= 0) {
        return 0;
    }
    _ptDecOut->width = m_pPicture->width;
    _ptDecOut->height = m_pPicture->height;
    _ptDecOut->timestamp = static_cast<int>(static_cast<uint32_t>(m_pPicture->pkt_dts));

    unsigned char* pucRecord = static_cast<unsigned char*>(_ptDecOut->surfaceRecord);
    QUILLON_CHECK_RETURN(!pucRecord, "NULL == _ptDecOut->surfaceRecord", -1, kFunc, 340);
    // Only the first n bytes of the host's record are touched, so a short
    // record gets a cut pointer or no slice index; that is the contract.
    const size_t n = _ptDecOut->surfaceRecordSize < kSurfaceRecordMax ? _ptDecOut->surfaceRecordSize : kSurfaceRecordMax;
    unsigned char staging[kSurfaceRecordMax] = {0};
    memcpy(staging, pucRecord, n);
    void* pTexture = m_pPicture->data[0];
    const uint32_t uiSlice = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(m_pPicture->data[1]));
    memcpy(staging, &pTexture, sizeof(pTexture));
    memcpy(staging + kSliceIndexOffset, &uiSlice, sizeof(uiSlice));
    memcpy(pucRecord, staging, n);
    return 0;
}
