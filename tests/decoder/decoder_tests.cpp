// The decoder through the DLL's exports, with the FFmpeg test double staged as
// "ffmpeg-7.dll" and the recording Velmor.dll beside QuillonSDK.dll.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "fakes/ffmpeg_double.h"
#include "testkit/staged_sdk.h"

using testkit::Calls;
using testkit::RefCount;
using testkit::TakeVelmorCalls;

namespace {

FfDoubleScript* S = nullptr;
FfDoubleResetFn g_reset = nullptr;

const std::string kInitial = "CLS_D3D11vaDecoder::Initial";
const std::string kPacket = "CLS_D3D11vaDecoder::DecodePacket";
const char* const kH264Text = "H264 profileid = D3D11_DECODER_PROFILE_H264_VLD_NOFGT";
const GUID kHevcMain = {0x5b11d51b, 0x2f4c, 0x4452, {0xbc, 0xc3, 0x09, 0xf2, 0xa1, 0x16, 0x0c, 0xc0}};
const GUID kH264 = {0x1b81be68, 0xa0c7, 0x11d3, {0xb9, 0x84, 0x00, 0xc0, 0x4f, 0x2e, 0x73, 0xc5}};

Calls DecoderError(const std::string& func, int line, const std::string& message) {
    return testkit::ErrorRecord("decoder/CLS_D3D11vaDecoder.cpp", func, line, message);
}

// An information line of the decoder, with its gate query.
Calls Info(const std::string& text) { return {"sdk_log_get_level", "sdk_log_msg([CLS_D3D11vaDecoder]" + text + ")"}; }

// The recorded calls without the information lines and their gate queries.
Calls Errors(Calls calls) {
    auto info = [](const std::string& c) { return c == "sdk_log_get_level" || c.rfind("sdk_log_msg(", 0) == 0; };
    calls.erase(std::remove_if(calls.begin(), calls.end(), info), calls.end());
    return calls;
}

// A compressed frame: FrameHead (timestamp, `headLength`), then the payload.
std::vector<unsigned char> Frame(unsigned timestamp, const std::vector<unsigned char>& payload, unsigned headLength) {
    std::vector<unsigned char> buf(sizeof(FrameHead) + payload.size(), 0xCC);
    FrameHead head = {};
    head.timestamp = timestamp;
    head.payloadLength = headLength;
    memcpy(buf.data(), &head, sizeof(head));
    memcpy(buf.data() + sizeof(head), payload.data(), payload.size());
    return buf;
}

class Decoder : public testkit::RecordingTest {
protected:
    static void SetUpTestSuite() {
        Start("decoder_double", testkit::kFfmpegDouble);
        HMODULE ffmpeg = GetModuleHandleA("ffmpeg-7.dll");
        ASSERT_NE(ffmpeg, nullptr);
        S = testkit::Export<FfDoubleScriptFn>(ffmpeg, "FfDouble_Script")();
        g_reset = testkit::Export<FfDoubleResetFn>(ffmpeg, "FfDouble_Reset");
        ASSERT_TRUE(S && g_reset);
        ASSERT_EQ(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0, D3D11_SDK_VERSION,
                                    &s_device, nullptr, nullptr),
                  S_OK);
    }

    void SetUp() override {
        g_reset();
        RecordingTest::SetUp();
        m_need = {1920, 1080, QUILLON_VIDEO_H264, {}, &m_slot};
        m_slot = s_device;
        m_extern.userContext = reinterpret_cast<void*>(0x1234);
    }

    void* Create() { return sdk.QuillonDecoderCreate(nullptr, 0); }
    int Initial(void* decoder) { return sdk.QuillonDecoderInitial(decoder, &m_need, &m_extern); }
    int Decode(void* decoder, std::vector<unsigned char>& frame, DecOut* out) {
        return sdk.QuillonDecoderDecodeOneFrame(decoder, frame.data(), static_cast<unsigned>(frame.size()), out);
    }

    void* Ready() {  // a fresh decoder, set up on the shared device
        void* decoder = Create();
        EXPECT_EQ(Initial(decoder), 0);
        TakeVelmorCalls();
        return decoder;
    }

    static inline ID3D11Device* s_device = nullptr;
    CreateNeed m_need = {};
    CreateNeedExtern m_extern = {};
    void* m_slot = nullptr;
};

// A refused call: its result and exactly its error record.
#define EXPECT_REFUSED(call, result, records) \
    EXPECT_EQ(call, result);                  \
    EXPECT_EQ(TakeVelmorCalls(), records)

TEST_F(Decoder, NullRecordsUnknownModesUnsetStateAndUnknownHandlesAreRefusedBeforeFfmpeg) {
    void* decoder = Create();
    const Calls nullRecord = DecoderError(kInitial, 151, "NULL == _ptCreateNeed || NULL == _ptCreateNeedExtern");
    EXPECT_REFUSED(sdk.QuillonDecoderInitial(decoder, nullptr, &m_extern), -404, nullRecord);
    EXPECT_REFUSED(sdk.QuillonDecoderInitial(decoder, &m_need, nullptr), -404, nullRecord);
    for (int mode : {20, 24, 0, -1}) {
        m_need.VideoMode = mode;
        EXPECT_REFUSED(Initial(decoder), -428,
                       DecoderError(kInitial, 164, "HW NO Support, type=" + std::to_string(mode) + "."));
    }

    DecOut out;
    std::vector<unsigned char> frame = Frame(1, {1}, 1);
    const Calls nullInput =
        DecoderError("CLS_D3D11vaDecoder::DecodeOneFrame", 355, "NULL == _pucFrameData || NULL == _ptDecOut");
    EXPECT_REFUSED(sdk.QuillonDecoderDecodeOneFrame(decoder, nullptr, 33, &out), -404, nullInput);
    EXPECT_REFUSED(Decode(decoder, frame, nullptr), -404, nullInput);
    // Not set up: the packet is still released.
    EXPECT_REFUSED(Decode(decoder, frame, &out), -1,
                   DecoderError(kPacket, 306, "NULL == m_pCodeCtx || NULL == m_pPicture"));
    EXPECT_EQ(S->calls[FF_CALL_PACKET_UNREF], 1);

    // Zeroed, so that a manager forwarding it anyway fails the checks below
    // instead of crashing the suite.
    static unsigned char notADecoder[512] = {};
    const std::string file = "interface/CLS_DecoderManager.cpp";
    for (void* handle : {static_cast<void*>(nullptr), static_cast<void*>(notADecoder)}) {
        EXPECT_EQ(Initial(handle), -1);
        EXPECT_EQ(sdk.QuillonDecoderDecodeOneFrame(handle, nullptr, 0, &out), -1);
        EXPECT_EQ(sdk.QuillonDecoderRelease(handle), -1);
        EXPECT_EQ(TakeVelmorCalls(),
                  testkit::ErrorRecord(file, "CLS_DecoderManager::Initial", 65, "IsHandleValid faild!") +
                      testkit::ErrorRecord(file, "CLS_DecoderManager::DecodeOneFrame", 77, "IsHandleValid faild!") +
                      testkit::ErrorRecord(file, "CLS_DecoderManager::Release", 89, "IsHandleValid faild!"));
    }
    EXPECT_EQ(S->calls[FF_CALL_FIND_DECODER] + S->calls[FF_CALL_ALLOC_CONTEXT] + S->calls[FF_CALL_SEND], 0);
}

TEST_F(Decoder, VideoModesChooseCodecAndProfileAndAnEmptySlotMakesADeviceOfItsOwn) {
    const struct {
        int mode, codec;
        GUID profile;
        std::string text;
        bool emptySlot;
    } cases[] = {{21, AV_CODEC_ID_H264, kH264, kH264Text, false},
                 {22, AV_CODEC_ID_H264, kH264, kH264Text, true},
                 {23, AV_CODEC_ID_HEVC, kHevcMain, "H265 profileid = D3D11_DECODER_PROFILE_HEVC_VLD_MAIN", false}};
    for (const auto& c : cases) {
        g_reset();
        m_need.VideoMode = c.mode;
        m_slot = c.emptySlot ? nullptr : s_device;
        void* decoder = Create();
        // The device lists only the H.264 profile: the scan never refuses, the
        // configuration count decides.
        ASSERT_EQ(Initial(decoder), 0) << c.mode;
        EXPECT_EQ(S->openCodecId, c.codec);
        EXPECT_EQ(memcmp(&S->desc.Guid, &c.profile, 16), 0);
        EXPECT_EQ((std::vector<unsigned>{S->desc.SampleWidth, S->desc.SampleHeight, S->desc.OutputFormat}),
                  (std::vector<unsigned>{1920, 1080, DXGI_FORMAT_NV12}));
        EXPECT_EQ(TakeVelmorCalls(), Info("we got 2 decoder configurations ") +
                                         Info("configuration[0] ConfigBitstreamRaw 1 ") +
                                         Info("configuration[1] ConfigBitstreamRaw 2 ") +
                                         Info("CheckIsDeviceSupport Success _iWidth = 1920 _iHeight = 1080 " + c.text));
        if (c.emptySlot) {
            EXPECT_EQ(S->calls[FF_CALL_DEVICE_CREATE], 1);
            EXPECT_EQ(S->createType, AV_HWDEVICE_TYPE_D3D11VA);
            EXPECT_TRUE(!S->createName && !S->createOpts && !S->createFlags);
            EXPECT_EQ(S->calls[FF_CALL_DEVICE_ALLOC] + S->calls[FF_CALL_DEVICE_INIT], 0);
            EXPECT_NE(S->opened.hw_device_ctx, nullptr);
            EXPECT_EQ(S->opened.opaque, nullptr);
        }
        EXPECT_EQ(sdk.QuillonDecoderRelease(decoder), 0);
        EXPECT_EQ(S->liveBuffers, 0);
    }
}

TEST_F(Decoder, SharedDeviceIsReferencedOnceMoreAndInitialisedTwice) {
    const ULONG before = RefCount(s_device);
    // Sizes whose rounding up to 32 differs from rounding to 16 or 64.
    m_need.iWidth = 1950;
    m_need.iHeight = 1000;
    void* decoder = Create();
    ASSERT_EQ(Initial(decoder), 0);
    EXPECT_EQ(RefCount(s_device), before + 1);
    EXPECT_EQ(S->deviceInDevice, s_device);
    EXPECT_EQ(S->calls[FF_CALL_DEVICE_CREATE], 0);
    ASSERT_EQ(S->calls[FF_CALL_DEVICE_INIT], 2);
    // First the decoder's own reference, then the codec context's reference to it.
    EXPECT_EQ(S->deviceInitData[0], S->deviceInitData[1]);
    EXPECT_NE(S->deviceInitRef[0], S->deviceInitRef[1]);
    const AVCodecContext& opened = S->opened;
    EXPECT_EQ(opened.hw_device_ctx->data, S->deviceInitData[0]);
    EXPECT_EQ(opened.opaque, S->deviceInitRef[0]);
    EXPECT_EQ((std::vector<int>{opened.width, opened.coded_width, opened.height, opened.coded_height,
                                opened.thread_count, opened.flags}),
              (std::vector<int>{1950, 1950, 1000, 1000, 0, AV_CODEC_FLAG_LOW_DELAY}));
    EXPECT_NE(opened.get_format, nullptr);
    EXPECT_EQ(S->liveBuffers, 2);

    // The first packet negotiates the frame pool.
    DecOut out = {};
    std::vector<unsigned char> frame = Frame(1, {1, 2, 3}, 3);
    S->receiveResults[0] = AVERROR(EAGAIN);
    ASSERT_EQ(Decode(decoder, frame, &out), 0);
    EXPECT_EQ(S->getFormatResult, AV_PIX_FMT_D3D11);
    const AVHWFramesContext& f = S->frames;
    EXPECT_EQ((std::vector<int>{f.format, f.sw_format, f.width, f.height, f.initial_pool_size}),
              (std::vector<int>{AV_PIX_FMT_D3D11, AV_PIX_FMT_NV12, 1952, 1024, 10}));
    EXPECT_EQ(S->framesD3d.BindFlags, unsigned(D3D11_BIND_SHADER_RESOURCE | D3D11_BIND_DECODER));
    EXPECT_EQ(S->framesD3d.MiscFlags, unsigned(D3D11_RESOURCE_MISC_SHARED));
    EXPECT_EQ(Errors(TakeVelmorCalls()), Calls{});

    // Release gives everything back, the device's extra reference included.
    EXPECT_EQ(sdk.QuillonDecoderRelease(decoder), 0);
    EXPECT_EQ(S->liveBuffers, 0);
    EXPECT_EQ((std::vector<int>{S->calls[FF_CALL_CLOSE], S->calls[FF_CALL_FREE_CONTEXT], S->calls[FF_CALL_FRAME_FREE]}),
              (std::vector<int>{1, 1, 1}));
    EXPECT_EQ(RefCount(s_device), before);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
}

TEST_F(Decoder, EveryInitialFailureHasItsRecordAndLeavesNothingBehind) {
    const std::string check = "CLS_D3D11vaDecoder::CheckIsDeviceSupportHw";
    const Calls notSupported = DecoderError(
        kInitial, 253, "CheckIsDeviceSupport  iWidth = 1920 iHeight = 1080 VideoMode = 21 Not Support D3D11va");
    const struct {
        void (*script)(FfDoubleScript*);
        bool ownDevice;
        Calls records;
    } cases[] = {
        {[](FfDoubleScript* s) { s->findDecoderFails = 1; }, false, DecoderError(kInitial, 172, "decoder not found")},
        {[](FfDoubleScript* s) { s->allocContextFails = 1; }, false, DecoderError(kInitial, 179, "NULL == m_pCodeCtx")},
        {[](FfDoubleScript* s) { s->deviceAllocFails = 1; }, false,
         DecoderError(kInitial, 216, "av_hwdevice_ctx_alloc : NULL == m_pDeviceBuffer")},
        {[](FfDoubleScript* s) { s->deviceInitResults[0] = -22; }, false,
         DecoderError(kInitial, 229, "av_hwdevice_ctx_init : double error -22")},
        {[](FfDoubleScript* s) { s->deviceInitResults[1] = -5; }, false,
         DecoderError(kInitial, 239, "av_hwdevice_ctx_init : double error -5")},
        {[](FfDoubleScript* s) { s->deviceCreateFails = 1; }, true,
         DecoderError(kInitial, 246, "av_hwdevice_ctx_create : NULL == m_pDeviceBuffer")},
        {[](FfDoubleScript* s) { s->videoDeviceMissing = 1; }, false, notSupported},
        {[](FfDoubleScript* s) { s->configCountHr = static_cast<long>(0x80004005); }, false,
         DecoderError(check, 126, "Failed to get configuration for decoder (hr=0x80004005)") + notSupported},
        {[](FfDoubleScript* s) { s->configCount = 0; }, false,
         DecoderError(check, 131,
                      std::string("No decoder configuration possible for width = 1920 height = 1080 ") + kH264Text) +
             notSupported},
        {[](FfDoubleScript* s) { s->openResult = AVERROR_INVALIDDATA; }, false,
         DecoderError(kInitial, 265, "error bebbb1b7 in avcodec_open2\n")},
        {[](FfDoubleScript* s) { s->frameAllocFails = 1; }, false, DecoderError(kInitial, 272, "NULL == m_pPicture")},
    };
    const ULONG before = RefCount(s_device);
    for (const auto& c : cases) {
        const std::string name = c.records[3];
        g_reset();
        c.script(S);
        m_slot = c.ownDevice ? nullptr : s_device;
        void* decoder = Create();
        EXPECT_EQ(Initial(decoder), -1) << name;
        EXPECT_EQ(Errors(TakeVelmorCalls()), Errors(c.records)) << name;
        EXPECT_EQ(S->liveBuffers, 0) << name;
        EXPECT_EQ(RefCount(s_device), before) << name;
        EXPECT_EQ(S->calls[FF_CALL_FREE_CONTEXT], S->allocContextFails ? 0 : S->calls[FF_CALL_ALLOC_CONTEXT]) << name;
        EXPECT_EQ(sdk.QuillonDecoderRelease(decoder), 0);
    }
}

TEST_F(Decoder, WithoutAD3D11vaDeviceConfigurationTheContextWaitsForRelease) {
    S->hwConfigCount = 3;
    S->hwConfigs[0] = {AV_PIX_FMT_D3D11, AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX, AV_HWDEVICE_TYPE_DXVA2};
    S->hwConfigs[1] = {AV_PIX_FMT_D3D11, AV_CODEC_HW_CONFIG_METHOD_HW_FRAMES_CTX, AV_HWDEVICE_TYPE_D3D11VA};
    S->hwConfigs[2] = {AV_PIX_FMT_D3D11, AV_CODEC_HW_CONFIG_METHOD_AD_HOC, AV_HWDEVICE_TYPE_D3D11VA};
    void* decoder = Create();
    EXPECT_REFUSED(Initial(decoder), -1,
                   DecoderError(kInitial, 198, "Decoder h264 does not support device type d3d11va.\n"));
    EXPECT_EQ(S->calls[FF_CALL_GET_HW_CONFIG], 4);
    EXPECT_EQ(S->calls[FF_CALL_FREE_CONTEXT], 0);
    EXPECT_EQ(sdk.QuillonDecoderRelease(decoder), 0);
    EXPECT_EQ(S->calls[FF_CALL_FREE_CONTEXT], 1);

    // A device-context method among others is enough.
    g_reset();
    S->hwConfigCount = 2;
    S->hwConfigs[0] = {AV_PIX_FMT_D3D11, AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX, AV_HWDEVICE_TYPE_CUDA};
    S->hwConfigs[1] = {AV_PIX_FMT_D3D11,
                       AV_CODEC_HW_CONFIG_METHOD_HW_FRAMES_CTX | AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX,
                       AV_HWDEVICE_TYPE_D3D11VA};
    EXPECT_EQ(Initial(decoder), 0);
    EXPECT_EQ(sdk.QuillonDecoderRelease(decoder), 0);
}

TEST_F(Decoder, DecodeFailuresLeaveTheOutputRecordsAlone) {
    const struct {
        void (*script)(FfDoubleScript*);
        int result, getFormat;
        Calls records;
    } cases[] = {
        // The pixel-format callback at the first packet fails: no frame pool.
        {[](FfDoubleScript* s) { s->offeredFormats[1] = AV_PIX_FMT_NONE; }, 0, AV_PIX_FMT_NONE,
         DecoderError("get_d3d11va_hw_format", 44, "Failed to get HW surface format.")},
        {[](FfDoubleScript* s) { s->framesAllocFails = 1; }, 0, AV_PIX_FMT_NONE, {}},
        {[](FfDoubleScript* s) { s->framesInitResult = -12; }, 0, AV_PIX_FMT_NONE, {}},
        // Sending and receiving.
        {[](FfDoubleScript* s) { s->sendResults[0] = AVERROR(EINVAL); }, -1, AV_PIX_FMT_D3D11,
         DecoderError(kPacket, 312, "Error during decoding:double error -22\n")},
        {[](FfDoubleScript* s) { s->sendResults[0] = AVERROR(EAGAIN); }, -1, AV_PIX_FMT_D3D11,
         DecoderError(kPacket, 312, "Error during decoding:double error -11\n")},
        {[](FfDoubleScript*) {}, 0, AV_PIX_FMT_D3D11, {}},  // no picture yet: accepted, nothing written
        {[](FfDoubleScript* s) { s->receiveResults[0] = AVERROR_EOF; }, 0, AV_PIX_FMT_D3D11, {}},
        {[](FfDoubleScript* s) { s->receiveResults[0] = AVERROR(EIO); }, -1, AV_PIX_FMT_D3D11,
         DecoderError(kPacket, 324, "Error while decoding\n")},
    };
    unsigned char record[136];
    memset(record, 0xEE, sizeof(record));
    DecOut out;
    memset(&out, 0x5A, sizeof(out));
    out.surfaceRecordSize = sizeof(record);
    out.surfaceRecord = record;
    const DecOut outBefore = out;
    std::vector<unsigned char> frame = Frame(7, {1, 2}, 2);
    for (const auto& c : cases) {
        g_reset();
        void* decoder = Ready();
        S->receiveResults[0] = AVERROR(EAGAIN);
        c.script(S);
        EXPECT_REFUSED(Decode(decoder, frame, &out), c.result, c.records);
        EXPECT_EQ(S->getFormatResult, c.getFormat);
        EXPECT_EQ(memcmp(&out, &outBefore, sizeof(out)), 0);
        EXPECT_EQ(record[0], 0xEE);
        EXPECT_EQ(S->calls[FF_CALL_PACKET_UNREF], 1);
        sdk.QuillonDecoderRelease(decoder);
    }
}

TEST_F(Decoder, PictureGoesToDecOutAndTheSurfaceRecordCutToItsSize) {
    void* decoder = Ready();
    S->frameWidth = 1280;
    S->frameHeight = 720;
    // The whole record the decoder writes: texture at 0, slice (low 32 bits
    // of data[1]) at 128, the reserved bytes kept.
    unsigned char full[136];
    memset(full, 0xEE, sizeof(full));
    memcpy(full, &S->frameTexture, 8);
    const uint32_t slice = 7;
    memcpy(full + 128, &slice, 4);
    // The packet is the header's payload length (4), not the length argument.
    std::vector<unsigned char> frame = Frame(4294967295u, {0, 0, 0, 1, 0x67}, 4);
    const int sizes[] = {0, 5, 8, 128, 131, 132, 136, 200, -4};
    for (int size : sizes) {
        unsigned char record[200], expected[200];
        memset(record, 0xEE, sizeof(record));
        memset(expected, 0xEE, sizeof(expected));
        memcpy(expected, full, size < 0 ? 0 : size > 136 ? 136 : size);
        DecOut out, expectedOut;
        memset(&out, 0x5A, sizeof(out));
        out.surfaceRecordSize = size;
        out.surfaceRecord = record;
        expectedOut = out;
        if (size > 0) {
            expectedOut.width = 1280;
            expectedOut.height = 720;
            expectedOut.timestamp = -1;  // 4294967295 wraps
        }
        ASSERT_EQ(sdk.QuillonDecoderDecodeOneFrame(decoder, frame.data(), 1000, &out), 0) << size;
        EXPECT_EQ(memcmp(record, expected, sizeof(record)), 0) << size;
        EXPECT_EQ(memcmp(&out, &expectedOut, sizeof(out)), 0) << size;
        EXPECT_EQ(S->packet.size, 4);
        EXPECT_EQ(S->packet.data, frame.data() + sizeof(FrameHead));
        EXPECT_EQ(S->packet.dts, 4294967295ll);  // widened without sign
        EXPECT_EQ(S->packet.pts, AV_NOPTS_VALUE);
    }
    EXPECT_EQ(S->calls[FF_CALL_INIT_PACKET], int(std::size(sizes)));
    EXPECT_EQ(S->calls[FF_CALL_PACKET_UNREF], int(std::size(sizes)));
    TakeVelmorCalls();

    // A size without a record to write to: refused, not dereferenced.
    DecOut out = {};
    out.surfaceRecordSize = 8;
    EXPECT_REFUSED(Decode(decoder, frame, &out), -1, DecoderError(kPacket, 340, "NULL == _ptDecOut->surfaceRecord"));
    sdk.QuillonDecoderRelease(decoder);
}

TEST_F(Decoder, ReleaseKeepsTheHandleForANewInitial) {
    void* decoder = Ready();
    EXPECT_EQ(sdk.QuillonDecoderRelease(decoder), 0);
    EXPECT_EQ(sdk.QuillonDecoderRelease(decoder), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    DecOut out = {};
    std::vector<unsigned char> frame = Frame(3, {1}, 1);
    EXPECT_EQ(Decode(decoder, frame, &out), -1);

    g_reset();
    ASSERT_EQ(Initial(decoder), 0);
    void* texture = nullptr;
    out.surfaceRecordSize = 8;
    out.surfaceRecord = &texture;
    EXPECT_EQ(Decode(decoder, frame, &out), 0);
    EXPECT_EQ(texture, S->frameTexture);
    EXPECT_EQ(out.timestamp, 3);
    EXPECT_EQ(sdk.QuillonDecoderRelease(decoder), 0);
}

}  // namespace
