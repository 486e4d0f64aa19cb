// The decoder through the DLL's exports, with the FFmpeg test double staged as
// "ffmpeg-7.dll" and the recording Velmor.dll beside QuillonSDK.dll.
#include <gtest/gtest.h>

#include <d3d11.h>

#include <cstring>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include "fakes/ffmpeg_double.h"
#include "testkit/staged_sdk.h"

using testkit::Calls;
using testkit::TakeVelmorCalls;

namespace {

FfDoubleScript* S = nullptr;
FfDoubleResetFn g_reset = nullptr;

const std::string kInitial = "CLS_D3D11vaDecoder::Initial";
const std::string kPacket = "CLS_D3D11vaDecoder::DecodePacket";
const char* const kH264Text = "H264 profileid = D3D11_DECODER_PROFILE_H264_VLD_NOFGT";
const GUID kHevcMain = {0x5b11d51b, 0x2f4c, 0x4452, {0xbc, 0xc3, 0x09, 0xf2, 0xa1, 0x16, 0x0c, 0xc0}};
const GUID kH264 = {0x1b81be68, 0xa0c7, 0x11d3, {0xb9, 0x84, 0x00, 0xc0, 0x4f, 0x2e, 0x73, 0xc5}};

Calls DecoderError(const std::string& func, int line, const std::string& message)
{
    return testkit::ErrorRecord("decoder/CLS_D3D11vaDecoder.cpp", func, line, message);
}

// The recorded calls without the information lines and their gate queries.
Calls Errors(const Calls& calls)
{
    Calls out;
    for (const std::string& c : calls) {
        if (c != "sdk_log_get_level" && c.rfind("sdk_log_msg(", 0) != 0) out.push_back(c);
    }
    return out;
}

ULONG RefCount(IUnknown* p)
{
    p->AddRef();
    return p->Release();
}

// A compressed frame: FrameHead (timestamp, `headLength`), then the payload.
std::vector<unsigned char> Frame(unsigned timestamp, const std::vector<unsigned char>& payload, unsigned headLength)
{
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
    static void SetUpTestSuite()
    {
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

    void SetUp() override
    {
        g_reset();
        RecordingTest::SetUp();
        m_need.iWidth = 1920;
        m_need.iHeight = 1080;
        m_need.VideoMode = QUILLON_VIDEO_H264;
        m_slot = s_device;
        m_need.deviceSlot = &m_slot;
        m_extern.userContext = reinterpret_cast<void*>(0x1234);
    }

    void* Create() { return sdk.QuillonDecoderCreate(nullptr, 0); }
    int Initial(void* decoder) { return sdk.QuillonDecoderInitial(decoder, &m_need, &m_extern); }
    int Decode(void* decoder, std::vector<unsigned char>& frame, DecOut* out)
    {
        return sdk.QuillonDecoderDecodeOneFrame(decoder, frame.data(), static_cast<unsigned>(frame.size()), out);
    }

    // A fresh decoder, set up on the shared device.
    void* Ready()
    {
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

// --- set-up -------------------------------------------------------------------------

TEST_F(Decoder, InitialRefusesNullRecordsAndUnknownVideoModes)
{
    void* decoder = Create();
    const Calls nullRecord = DecoderError(kInitial, 151, "NULL == _ptCreateNeed || NULL == _ptCreateNeedExtern");
    EXPECT_EQ(sdk.QuillonDecoderInitial(decoder, nullptr, &m_extern), QUILLON_ERR_NULL_POINTER);
    EXPECT_EQ(TakeVelmorCalls(), nullRecord);
    EXPECT_EQ(sdk.QuillonDecoderInitial(decoder, &m_need, nullptr), -404);
    EXPECT_EQ(TakeVelmorCalls(), nullRecord);
    for (int mode : {20, 24, 0, -1}) {
        m_need.VideoMode = mode;
        EXPECT_EQ(Initial(decoder), QUILLON_ERR_VIDEO_MODE);
        EXPECT_EQ(TakeVelmorCalls(), DecoderError(kInitial, 164, "HW NO Support, type=" + std::to_string(mode) + "."));
    }
    EXPECT_EQ(S->calls[FF_CALL_FIND_DECODER], 0);
    EXPECT_EQ(S->calls[FF_CALL_ALLOC_CONTEXT], 0);
}

TEST_F(Decoder, VideoModesChooseCodecAndProfile)
{
    const struct {
        int mode, codec;
        GUID profile;
        const char* text;
    } cases[] = {{21, AV_CODEC_ID_H264, kH264, kH264Text},
                 {22, AV_CODEC_ID_H264, kH264, kH264Text},
                 {23, AV_CODEC_ID_HEVC, kHevcMain, "H265 profileid = D3D11_DECODER_PROFILE_HEVC_VLD_MAIN"}};
    for (const auto& c : cases) {
        g_reset();
        m_need.VideoMode = c.mode;
        void* decoder = Create();
        // The device lists only the H.264 profile: the scan never refuses, the
        // configuration count decides.
        ASSERT_EQ(Initial(decoder), 0) << c.mode;
        EXPECT_EQ(S->openCodecId, c.codec);
        EXPECT_EQ(memcmp(S->descGuid, &c.profile, 16), 0);
        EXPECT_EQ(S->descWidth, 1920u);
        EXPECT_EQ(S->descHeight, 1080u);
        EXPECT_EQ(S->descFormat, DXGI_FORMAT_NV12);
        EXPECT_EQ(TakeVelmorCalls(),
                  (Calls{"sdk_log_get_level", "sdk_log_msg([CLS_D3D11vaDecoder]we got 2 decoder configurations )",
                         "sdk_log_get_level", "sdk_log_msg([CLS_D3D11vaDecoder]configuration[0] ConfigBitstreamRaw 1 )",
                         "sdk_log_get_level", "sdk_log_msg([CLS_D3D11vaDecoder]configuration[1] ConfigBitstreamRaw 2 )",
                         "sdk_log_get_level",
                         std::string("sdk_log_msg([CLS_D3D11vaDecoder]CheckIsDeviceSupport Success "
                                     "_iWidth = 1920 _iHeight = 1080 ") + c.text + ")"}));
        EXPECT_EQ(sdk.QuillonDecoderRelease(decoder), 0);
    }
}

TEST_F(Decoder, SharedDeviceIsReferencedOnceMoreAndInitialisedTwice)
{
    const ULONG before = RefCount(s_device);
    m_need.iWidth = 1918;
    void* decoder = Create();
    ASSERT_EQ(Initial(decoder), 0);
    EXPECT_EQ(RefCount(s_device), before + 1);
    EXPECT_EQ(S->deviceInDevice, s_device);
    EXPECT_EQ(S->calls[FF_CALL_DEVICE_CREATE], 0);
    ASSERT_EQ(S->calls[FF_CALL_DEVICE_INIT], 2);
    // First the decoder's own reference, then the codec context's reference to it.
    EXPECT_EQ(S->deviceInitData[0], S->deviceInitData[1]);
    EXPECT_NE(S->deviceInitRef[0], S->deviceInitRef[1]);
    EXPECT_EQ(S->openHwDeviceData, S->deviceInitData[0]);
    EXPECT_EQ(S->openOpaque, S->deviceInitRef[0]);
    // The codec-context fields at open.
    EXPECT_EQ((std::vector<int>{S->openWidth, S->openCodedWidth, S->openHeight, S->openCodedHeight,
                                S->openThreadCount, S->openFlags}),
              (std::vector<int>{1918, 1918, 1080, 1080, 0, AV_CODEC_FLAG_LOW_DELAY}));
    EXPECT_NE(S->openGetFormat, nullptr);
    EXPECT_EQ(S->liveBuffers, 2);

    // The first packet negotiates the frame pool.
    DecOut out = {};
    std::vector<unsigned char> frame = Frame(1, {1, 2, 3}, 3);
    S->receiveResults[0] = AVERROR(EAGAIN);
    ASSERT_EQ(Decode(decoder, frame, &out), 0);
    EXPECT_EQ(S->getFormatResult, AV_PIX_FMT_D3D11);
    EXPECT_EQ((std::vector<int>{S->framesFormat, S->framesSwFormat, S->framesWidth, S->framesHeight, S->framesPool}),
              (std::vector<int>{AV_PIX_FMT_D3D11, AV_PIX_FMT_NV12, 1920, 1088, 10}));
    EXPECT_EQ(S->framesBindFlags, unsigned(D3D11_BIND_SHADER_RESOURCE | D3D11_BIND_DECODER));
    EXPECT_EQ(S->framesMiscFlags, unsigned(D3D11_RESOURCE_MISC_SHARED));
    EXPECT_EQ(Errors(TakeVelmorCalls()), Calls{});

    // Release gives everything back, the device's extra reference included.
    EXPECT_EQ(sdk.QuillonDecoderRelease(decoder), 0);
    EXPECT_EQ(S->liveBuffers, 0);
    EXPECT_EQ(S->calls[FF_CALL_CLOSE], 1);
    EXPECT_EQ(S->calls[FF_CALL_FREE_CONTEXT], 1);
    EXPECT_EQ(S->calls[FF_CALL_FRAME_FREE], 1);
    EXPECT_EQ(RefCount(s_device), before);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
}

TEST_F(Decoder, EmptySlotMakesADeviceOfItsOwn)
{
    m_slot = nullptr;
    void* decoder = Create();
    ASSERT_EQ(Initial(decoder), 0);
    EXPECT_EQ(S->calls[FF_CALL_DEVICE_CREATE], 1);
    EXPECT_EQ(S->createType, AV_HWDEVICE_TYPE_D3D11VA);
    EXPECT_EQ(S->createName, nullptr);
    EXPECT_EQ(S->createOpts, nullptr);
    EXPECT_EQ(S->createFlags, 0);
    EXPECT_EQ(S->calls[FF_CALL_DEVICE_ALLOC], 0);
    EXPECT_EQ(S->calls[FF_CALL_DEVICE_INIT], 0);
    EXPECT_NE(S->openHwDeviceData, nullptr);
    EXPECT_EQ(S->openOpaque, nullptr);
    EXPECT_EQ(sdk.QuillonDecoderRelease(decoder), 0);
    EXPECT_EQ(S->liveBuffers, 0);
}

TEST_F(Decoder, EveryInitialFailureHasItsRecordAndLeavesNothingBehind)
{
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
        {[](FfDoubleScript* s) { s->configCount = 0; s->formatSupported = 0; }, false,
         DecoderError(check, 131, std::string("No decoder configuration possible for width = 1920 height = 1080 ") +
                                      kH264Text) + notSupported},
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

TEST_F(Decoder, WithoutAD3D11vaDeviceConfigurationTheContextWaitsForRelease)
{
    S->hwConfigCount = 3;
    S->hwConfigs[0] = {AV_HWDEVICE_TYPE_DXVA2, AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX};
    S->hwConfigs[1] = {AV_HWDEVICE_TYPE_D3D11VA, AV_CODEC_HW_CONFIG_METHOD_HW_FRAMES_CTX};
    S->hwConfigs[2] = {AV_HWDEVICE_TYPE_D3D11VA, AV_CODEC_HW_CONFIG_METHOD_AD_HOC};
    void* decoder = Create();
    EXPECT_EQ(Initial(decoder), -1);
    EXPECT_EQ(TakeVelmorCalls(), DecoderError(kInitial, 198, "Decoder h264 does not support device type d3d11va.\n"));
    EXPECT_EQ(S->calls[FF_CALL_GET_HW_CONFIG], 4);
    EXPECT_EQ(S->calls[FF_CALL_FREE_CONTEXT], 0);
    EXPECT_EQ(sdk.QuillonDecoderRelease(decoder), 0);
    EXPECT_EQ(S->calls[FF_CALL_FREE_CONTEXT], 1);

    // A device-context method among others is enough.
    g_reset();
    S->hwConfigCount = 2;
    S->hwConfigs[0] = {AV_HWDEVICE_TYPE_CUDA, AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX};
    S->hwConfigs[1] = {AV_HWDEVICE_TYPE_D3D11VA,
                       AV_CODEC_HW_CONFIG_METHOD_HW_FRAMES_CTX | AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX};
    EXPECT_EQ(Initial(decoder), 0);
    EXPECT_EQ(sdk.QuillonDecoderRelease(decoder), 0);
}

TEST_F(Decoder, PixelFormatCallbackFailures)
{
    const struct {
        void (*script)(FfDoubleScript*);
        Calls records;
    } cases[] = {
        {[](FfDoubleScript* s) { s->offeredFormats[0] = AV_PIX_FMT_NV12; s->offeredFormats[1] = AV_PIX_FMT_NONE; },
         DecoderError("get_d3d11va_hw_format", 44, "Failed to get HW surface format.")},
        {[](FfDoubleScript* s) { s->framesAllocFails = 1; }, {}},
        {[](FfDoubleScript* s) { s->framesInitResult = -12; }, {}},
    };
    for (const auto& c : cases) {
        g_reset();
        void* decoder = Ready();
        c.script(S);
        DecOut out = {};
        std::vector<unsigned char> frame = Frame(1, {9}, 1);
        S->receiveResults[0] = AVERROR(EAGAIN);
        EXPECT_EQ(Decode(decoder, frame, &out), 0);
        EXPECT_EQ(S->getFormatResult, AV_PIX_FMT_NONE);
        EXPECT_EQ(TakeVelmorCalls(), c.records);
        sdk.QuillonDecoderRelease(decoder);
    }
}

// --- decoding -----------------------------------------------------------------------

TEST_F(Decoder, RefusesNullInputAndAnUninitialisedDecoder)
{
    void* decoder = Create();
    DecOut out;
    std::vector<unsigned char> frame = Frame(1, {1}, 1);
    const Calls nullInput =
        DecoderError("CLS_D3D11vaDecoder::DecodeOneFrame", 355, "NULL == _pucFrameData || NULL == _ptDecOut");
    EXPECT_EQ(sdk.QuillonDecoderDecodeOneFrame(decoder, nullptr, 33, &out), -404);
    EXPECT_EQ(TakeVelmorCalls(), nullInput);
    EXPECT_EQ(Decode(decoder, frame, nullptr), -404);
    EXPECT_EQ(TakeVelmorCalls(), nullInput);

    EXPECT_EQ(Decode(decoder, frame, &out), -1);
    EXPECT_EQ(TakeVelmorCalls(), DecoderError(kPacket, 306, "NULL == m_pCodeCtx || NULL == m_pPicture"));
    EXPECT_EQ(S->calls[FF_CALL_SEND], 0);
    EXPECT_EQ(S->calls[FF_CALL_PACKET_UNREF], 1);
}

TEST_F(Decoder, SendAndReceiveFailuresLeaveTheOutputRecordsAlone)
{
    void* decoder = Ready();
    DecOut out;
    memset(&out, 0x5A, sizeof(out));
    unsigned char record[136];
    memset(record, 0xEE, sizeof(record));
    out.surfaceRecordSize = sizeof(record);
    out.surfaceRecord = record;
    const DecOut outBefore = out;
    std::vector<unsigned char> frame = Frame(7, {1, 2}, 2);
    const struct {
        int send, receive, result;
        Calls records;
    } cases[] = {
        {AVERROR(EINVAL), 0, -1, DecoderError(kPacket, 312, "Error during decoding:double error -22\n")},
        {AVERROR(EAGAIN), 0, -1, DecoderError(kPacket, 312, "Error during decoding:double error -11\n")},
        {0, AVERROR(EAGAIN), 0, {}},  // no picture yet: accepted, nothing written
        {0, AVERROR_EOF, 0, {}},
        {0, AVERROR(EIO), -1, DecoderError(kPacket, 324, "Error while decoding\n")},
    };
    for (const auto& c : cases) {
        g_reset();
        S->sendResults[0] = c.send;
        S->receiveResults[0] = c.receive;
        EXPECT_EQ(Decode(decoder, frame, &out), c.result) << c.send << " " << c.receive;
        EXPECT_EQ(TakeVelmorCalls(), c.records);
        EXPECT_EQ(memcmp(&out, &outBefore, sizeof(out)), 0);
        EXPECT_EQ(record[0], 0xEE);
        EXPECT_EQ(S->calls[FF_CALL_PACKET_UNREF], 1);
    }
    sdk.QuillonDecoderRelease(decoder);
}

TEST_F(Decoder, PictureGoesToDecOutAndTheSurfaceRecordCutToItsSize)
{
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
    for (int size : {0, 5, 8, 128, 131, 132, 136, 200, -4}) {
        DecOut out;
        memset(&out, 0x5A, sizeof(out));
        out.surfaceRecordSize = size;
        unsigned char record[200];
        memset(record, 0xEE, sizeof(record));
        out.surfaceRecord = record;
        std::vector<unsigned char> frame = Frame(4294967295u, {0, 0, 0, 1, 0x67}, 5);
        ASSERT_EQ(Decode(decoder, frame, &out), 0) << size;

        unsigned char expected[200];
        memset(expected, 0xEE, sizeof(expected));
        memcpy(expected, full, size < 0 ? 0 : size > 136 ? 136 : size);
        EXPECT_EQ(memcmp(record, expected, sizeof(record)), 0) << size;
        DecOut expectedOut;
        memset(&expectedOut, 0x5A, sizeof(expectedOut));
        expectedOut.surfaceRecordSize = size;
        expectedOut.surfaceRecord = record;
        if (size > 0) {
            expectedOut.width = 1280;
            expectedOut.height = 720;
            expectedOut.timestamp = -1;  // 4294967295 wraps
        }
        EXPECT_EQ(memcmp(&out, &expectedOut, sizeof(out)), 0) << size;
    }
    TakeVelmorCalls();

    // A size without a record to write to: refused, not dereferenced.
    DecOut out = {};
    out.surfaceRecordSize = 8;
    std::vector<unsigned char> frame = Frame(9, {1}, 1);
    EXPECT_EQ(Decode(decoder, frame, &out), -1);
    EXPECT_EQ(TakeVelmorCalls(), DecoderError(kPacket, 340, "NULL == _ptDecOut->surfaceRecord"));
    sdk.QuillonDecoderRelease(decoder);
}

TEST_F(Decoder, PacketComesFromTheHeaderNotTheLengthArgument)
{
    void* decoder = Ready();
    DecOut out = {};
    std::vector<unsigned char> frame = Frame(0x80000001u, {0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6}, 4);
    S->receiveResults[0] = AVERROR(EAGAIN);
    ASSERT_EQ(sdk.QuillonDecoderDecodeOneFrame(decoder, frame.data(), 1000, &out), 0);
    EXPECT_EQ(S->packetSize, 4);
    EXPECT_EQ(memcmp(S->packetBytes, "\xA1\xA2\xA3\xA4", 4), 0);
    EXPECT_EQ(S->packetDts, 0x80000001ll);  // widened without sign
    EXPECT_EQ(S->packetPts, AV_NOPTS_VALUE);
    EXPECT_EQ(S->calls[FF_CALL_INIT_PACKET], 1);
    EXPECT_EQ(S->calls[FF_CALL_PACKET_UNREF], 1);
    sdk.QuillonDecoderRelease(decoder);
}

// --- handles ------------------------------------------------------------------------

TEST_F(Decoder, ReleaseKeepsTheHandleForANewInitial)
{
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

TEST_F(Decoder, UnknownHandlesAreRefused)
{
    DecOut out;
    int notADecoder = 0;
    const std::string file = "interface/CLS_DecoderManager.cpp";
    for (void* handle : {static_cast<void*>(nullptr), static_cast<void*>(&notADecoder)}) {
        EXPECT_EQ(Initial(handle), -1);
        EXPECT_EQ(sdk.QuillonDecoderDecodeOneFrame(handle, nullptr, 0, &out), -1);
        EXPECT_EQ(sdk.QuillonDecoderRelease(handle), -1);
        EXPECT_EQ(TakeVelmorCalls(),
                  testkit::ErrorRecord(file, "CLS_DecoderManager::Initial", 65, "IsHandleValid faild!") +
                      testkit::ErrorRecord(file, "CLS_DecoderManager::DecodeOneFrame", 77, "IsHandleValid faild!") +
                      testkit::ErrorRecord(file, "CLS_DecoderManager::Release", 89, "IsHandleValid faild!"));
    }
    EXPECT_EQ(S->calls[FF_CALL_FIND_DECODER], 0);
}

}  // namespace
