// The FFmpeg binding against the real ffmpeg-7.dll (staged beside
// QuillonSDK.dll with the recording Velmor.dll), and the decoder's set-up on
// real FFmpeg under Wine, which has no Direct3D 11 video device.
//
// The suites run in the order of this file: the first needs the binding of
// this executable still unloaded.
#include <gtest/gtest.h>

#include <d3d11.h>

#include <climits>
#include <string>
#include <vector>

#include "CommonCode/Ffmpeg/ffmpeg_api.h"
#include "core/core_api.h"
#include "testkit/staged_sdk.h"

using testkit::Calls;
using testkit::StagedDir;
using testkit::StderrCapture;
using testkit::TakeVelmorCalls;

namespace {

struct Row {
    const char* group;
    const char* slot;
    const char* name;
    const char* kind;
    void** pointer;
};

const Row kRows[] = {
#define FF_API(group, slot, name, ret, params, args, kind) \
    {#group, #slot, #name, #kind, reinterpret_cast<void**>(&g_pfn_##slot)},
#include "CommonCode/Ffmpeg/ffmpeg_ops.inc"
#undef FF_API
};

// The stderr report of an empty slot: the row's line in the table.
std::string Report(const std::string& slot)
{
    int line = -1;
#define FF_API(group, s, name, ret, params, args, kind) \
    if (slot == #s) line = __LINE__;
#include "CommonCode/Ffmpeg/ffmpeg_ops.inc"
#undef FF_API
    return std::to_string(line) + ",ff_" + slot;
}

void ClearSlots()
{
    for (const Row& r : kRows) *r.pointer = nullptr;
}

std::vector<std::string> Bound(const char* group = nullptr)
{
    std::vector<std::string> out;
    for (const Row& r : kRows) {
        if (*r.pointer && (!group || std::string(r.group) == group)) out.push_back(r.slot);
    }
    return out;
}

std::vector<std::string> SlotsOf(const char* group, bool withLegacy)
{
    std::vector<std::string> out;
    for (const Row& r : kRows) {
        if (std::string(r.group) == group && (withLegacy || std::string(r.kind) != "LEGACY")) out.push_back(r.slot);
    }
    return out;
}

size_t Count(const std::string& text, const std::string& what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

// An error-log record of the binding, position line up to the line number.
void ExpectBindingError(const Calls& calls, const std::string& func, const std::string& message)
{
    ASSERT_EQ(calls.size(), 5u) << func;
    EXPECT_EQ(calls[0], "sdk_log_buf_lock");
    EXPECT_EQ(calls[1], "sdk_log_buf_date");
    EXPECT_EQ(calls[2], "sdk_log_get_level");
    EXPECT_EQ(calls[3].rfind("sdk_log_buf_msg(file: CommonCode/Ffmpeg/ffmpeg_api.cpp, func:" + func + ", line: ", 0), 0u)
        << calls[3];
    EXPECT_EQ(calls[4], "sdk_err_buf_msg_unlock(" + message + ")");
}

}  // namespace

// --- nothing loaded -------------------------------------------------------------------

TEST(FfmpegUnbound, WrappersReportAndReturnTheFailureValueOfTheirType)
{
    ASSERT_TRUE(Bound().empty()) << "this suite must run first";
    StderrCapture err;
    EXPECT_EQ(ff_avcodec_find_decoder(AV_CODEC_ID_H264), nullptr);
    EXPECT_EQ(ff_avcodec_open2(nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(ff_av_rescale_q(1, AVRational{1, 2}, AVRational{1, 3}), -1);
    const AVRational rate = ff_av_guess_frame_rate(nullptr, nullptr, nullptr);
    EXPECT_EQ(rate.num, 0);
    EXPECT_EQ(rate.den, 0);
    ff_av_init_packet(nullptr);
    ff_av_free_context(nullptr);
    ff_avcodec_free_context(nullptr);
    EXPECT_EQ(ff_av_hwdevice_iterate_types(AV_HWDEVICE_TYPE_NONE), AV_HWDEVICE_TYPE_NONE);
    EXPECT_EQ(ff_av_int_list_length_for_size(4, nullptr, 0), UINT_MAX);
    EXPECT_EQ(ff_sws_getContext(1, 1, AV_PIX_FMT_NV12, 1, 1, AV_PIX_FMT_NV12, 0, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(ff_swr_get_delay(nullptr, 1), -1);
    EXPECT_EQ(err.Take(), Report("avcodec_find_decoder") + Report("avcodec_open2") + Report("av_rescale_q") +
                              Report("av_guess_frame_rate") + Report("av_init_packet") + Report("av_free_context") +
                              Report("avcodec_free_context") + Report("av_hwdevice_iterate_types") +
                              Report("av_int_list_length_for_size") + Report("sws_getContext") +
                              Report("swr_get_delay"));

    ff_av_log(nullptr, 0, "x");
    const std::string log = err.Take();
    EXPECT_EQ(Count(log, ",ff_av_log"), 1u) << log;

    EXPECT_EQ(ff_check_codec_api(), -1);
    const std::string check = err.Take();
    EXPECT_EQ(Count(check, ",ff_check_codec_api"), 1u) << check;

    EXPECT_EQ(ff_load_ffmpeg_as_one(nullptr, "QuillonSDK.dll"), -1);
    EXPECT_EQ(ff_load_swscale_lib(nullptr, "QuillonSDK.dll"), -1);
    const std::string nullName = err.Take();
    EXPECT_EQ(Count(nullName, ",ff_load_ffmpeg_as_one"), 1u) << nullName;
    EXPECT_EQ(Count(nullName, ",ff_load_swscale_lib"), 1u) << nullName;
}

// --- against the real module ------------------------------------------------------------

class RealFfmpeg : public testkit::RecordingTest {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_TRUE(Stage("ffmpeg_real").bound);
        ASSERT_EQ(CLS_VelmorApi::GetInstance().LoadOSSDK("QuillonSDK.dll", nullptr, nullptr), 0);
    }
};

TEST_F(RealFfmpeg, EmptyNameLoadsNothing)
{
    EXPECT_EQ(ff_load_ffmpeg_as_one("", "QuillonSDK.dll"), 0);
    EXPECT_EQ(ff_load_avcodec_lib("", "QuillonSDK.dll"), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    EXPECT_TRUE(Bound().empty());
}

TEST_F(RealFfmpeg, BindingANullModuleReportsTheGroupsText)
{
    const struct {
        void (*bind)(HMODULE);
        const char* func;
        const char* text;
    } cases[] = {
        {ff_load_avformat_dynamic_lib, "ff_load_avformat_dynamic_lib", "load ff_load_avformat_dynamic_lib lib faild!"},
        {ff_load_avutil_dynamic_lib, "ff_load_avutil_dynamic_lib", "load ff_load_avcodec_dynamic_lib lib faild!"},
        {ff_load_avcodec_dynamic_lib, "ff_load_avcodec_dynamic_lib", "load ff_load_avcodec_dynamic_lib lib faild!"},
        {ff_load_avfilter_dynamic_lib, "ff_load_avfilter_dynamic_lib", "load ff_load_avfilter_dynamic_lib lib faild!"},
        {ff_load_swscale_dynamic_lib, "ff_load_swscale_dynamic_lib", "load ff_load_swscale_dynamic_lib lib faild!"},
        {ff_load_swresample_dynamic_lib, "ff_load_swresample_dynamic_lib", "load ff_load_swscale_dynamic_lib lib faild!"},
    };
    for (const auto& c : cases) {
        c.bind(nullptr);
        ExpectBindingError(TakeVelmorCalls(), c.func, c.text);
    }
    EXPECT_TRUE(Bound().empty());
}

TEST_F(RealFfmpeg, SeparateLoadsReportFailureEachInItsOwnWay)
{
    const struct {
        int (*load)(const char*, const char*);
        const char* func;
        const char* message;  // null: error-log record
    } cases[] = {
        {ff_load_avformat_lib, "ff_load_avformat_lib", nullptr},
        {ff_load_avutil_lib, "ff_load_avutil_lib", nullptr},
        {ff_load_avcodec_lib, "ff_load_avcodec_lib", nullptr},
        {ff_load_avfilter_lib, "ff_load_avfilter_lib", "load ffmpeg avfilter lib absent.dll fail!"},
        {ff_load_swscale_lib, "ff_load_swscale_lib", "load ffmpeg swscale lib absent.dll fail!"},
        {ff_load_swresample_lib, "ff_load_swresample_lib", "load ffmpeg swresample lib absent.dll fail!"},
        {ff_load_ffmpeg_as_one, "ff_load_ffmpeg_as_one", nullptr},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.load("absent.dll", "QuillonSDK.dll"), -1) << c.func;
        if (c.message) {
            EXPECT_EQ(TakeVelmorCalls(), (Calls{"sdk_log_get_level", std::string("sdk_log_msg(") + c.message + ")"}));
        } else {
            ExpectBindingError(TakeVelmorCalls(), c.func, "load ffmpeg lib absent.dll fail!");
        }
    }
    EXPECT_TRUE(Bound().empty());
}

TEST_F(RealFfmpeg, EachSeparateLoadBindsOnlyItsOwnGroup)
{
    const struct {
        int (*load)(const char*, const char*);
        const char* group;
        const char* success;
    } cases[] = {
        {ff_load_avformat_lib, "avformat", "load ffmpeg lib ffmpeg-7.dll success!"},
        {ff_load_avutil_lib, "avutil", "load ffmpeg lib ffmpeg-7.dll success!"},
        {ff_load_avcodec_lib, "avcodec", "load ffmpeg lib ffmpeg-7.dll success!"},
        {ff_load_avfilter_lib, "avfilter", "load ffmpeg avfilter lib ffmpeg-7.dll success!"},
        {ff_load_swscale_lib, "swscale", "load ffmpeg swscale lib ffmpeg-7.dll success!"},
        {ff_load_swresample_lib, "swresample", "load ffmpeg swresample lib ffmpeg-7.dll success!"},
    };
    for (const auto& c : cases) {
        ClearSlots();
        ASSERT_EQ(c.load("ffmpeg-7.dll", "QuillonSDK.dll"), 0) << c.group;
        EXPECT_EQ(TakeVelmorCalls(), (Calls{"sdk_log_get_level", std::string("sdk_log_msg(") + c.success + ")"}));
        EXPECT_EQ(Bound(), SlotsOf(c.group, false)) << c.group;
        // Loaded already: nothing to do, nothing logged.
        EXPECT_EQ(c.load("absent.dll", "QuillonSDK.dll"), 0);
        EXPECT_EQ(TakeVelmorCalls(), Calls{});
    }
    ff_unload_ffmpeg_libs();
    ClearSlots();
}

TEST_F(RealFfmpeg, SwscaleSecondAttemptLoadsWithoutBinding)
{
    // Staged as the only module: the one-module layout is not loaded yet.
    static StagedDir dir("swscale_retry");
    dir.Add("QuillonSDK.dll").Add("FfTestSwscale.dll", "swscale-8.dll");
    dir.Add("..\\sibling\\FfTestDependency.dll", "FfTestDependency.dll");
    Stage("ffmpeg_real").Unload();
    HMODULE sdk = dir.Load("QuillonSDK.dll");
    ASSERT_NE(sdk, nullptr);
    EXPECT_EQ(ff_load_swscale_lib("swscale-8.dll", "QuillonSDK.dll"), 0);
    EXPECT_EQ(TakeVelmorCalls(), (Calls{"sdk_log_get_level", "sdk_log_msg(load ffmpeg swscale lib swscale-8.dll fail!)",
                                        "sdk_log_get_level", "sdk_log_msg(load ffmpeg lib swscale-8.dll success!)"}));
    EXPECT_NE(GetModuleHandleA("swscale-8.dll"), nullptr);
    EXPECT_TRUE(Bound().empty());
    StderrCapture err;
    EXPECT_EQ(ff_sws_getContext(1, 1, AV_PIX_FMT_NV12, 1, 1, AV_PIX_FMT_NV12, 0, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(err.Take(), Report("sws_getContext"));
    ff_unload_ffmpeg_libs();
    EXPECT_EQ(GetModuleHandleA("swscale-8.dll"), nullptr);
    FreeLibrary(sdk);
    Stage("ffmpeg_real").Load();
    ASSERT_TRUE(Stage("ffmpeg_real").bound);
}

TEST_F(RealFfmpeg, OneModuleBindsEveryNameFfmpeg7Exports)
{
    ASSERT_EQ(ff_load_ffmpeg_as_one("ffmpeg-7.dll", "QuillonSDK.dll"), 0);
    EXPECT_EQ(TakeVelmorCalls(), (Calls{"sdk_log_get_level", "sdk_log_msg(load ffmpeg lib ffmpeg-7.dll success!)"}));
    HMODULE ffmpeg = GetModuleHandleA("ffmpeg-7.dll");
    ASSERT_NE(ffmpeg, nullptr);
    std::vector<std::string> missing;
    for (const Row& r : kRows) {
        void* exported = reinterpret_cast<void*>(GetProcAddress(ffmpeg, r.name));
        EXPECT_EQ(*r.pointer, exported) << r.name;
        if (!*r.pointer) missing.push_back(r.name);
        EXPECT_EQ(*r.pointer == nullptr, std::string(r.kind) == "LEGACY") << r.name;
    }
    EXPECT_EQ(missing, (std::vector<std::string>{"av_register_all", "av_frame_get_best_effort_timestamp",
                                                 "av_get_channel_layout_nb_channels", "avcodec_copy_context",
                                                 "av_copy_packet", "avfilter_register_all"}));
    EXPECT_EQ(g_pfn_av_free_context, g_pfn_avcodec_free_context);

    EXPECT_EQ(ff_load_ffmpeg_as_one("ffmpeg-7.dll", "QuillonSDK.dll"), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});

    StderrCapture err;
    ff_av_register_all();
    EXPECT_EQ(err.Take(), Report("av_register_all"));
    ff_av_log(nullptr, AV_LOG_PANIC, "never forwarded\n");
    EXPECT_EQ(err.Take(), "");
}

TEST_F(RealFfmpeg, CheckCodecApiStopsAtTheFirstGap)
{
    EXPECT_EQ(ff_check_codec_api(), 0);
    StderrCapture err;
    auto saved = g_pfn_av_frame_alloc;
    auto savedLater = g_pfn_av_hwframe_ctx_alloc;
    g_pfn_av_frame_alloc = nullptr;
    g_pfn_av_hwframe_ctx_alloc = nullptr;
    EXPECT_EQ(ff_check_codec_api(), -1);
    const std::string once = err.Take();
    g_pfn_av_frame_alloc = saved;
    EXPECT_EQ(ff_check_codec_api(), -1);
    const std::string later = err.Take();
    g_pfn_av_hwframe_ctx_alloc = savedLater;
    EXPECT_EQ(Count(once, ",ff_check_codec_api"), 1u) << once;
    EXPECT_EQ(Count(later, ",ff_check_codec_api"), 1u) << later;
    EXPECT_NE(once, later);  // each check reports its own line
}

TEST_F(RealFfmpeg, H264AndHevcOfferD3D11vaThroughADeviceContext)
{
    for (AVCodecID id : {AV_CODEC_ID_H264, AV_CODEC_ID_HEVC}) {
        const AVCodec* codec = ff_avcodec_find_decoder(id);
        ASSERT_NE(codec, nullptr);
        bool found = false;
        for (int i = 0;; ++i) {
            const AVCodecHWConfig* config = ff_avcodec_get_hw_config(codec, i);
            if (!config) break;
            found |= config->device_type == AV_HWDEVICE_TYPE_D3D11VA &&
                     (config->methods & AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX) != 0;
        }
        EXPECT_TRUE(found) << codec->name;
    }
    EXPECT_STREQ(ff_av_hwdevice_get_type_name(AV_HWDEVICE_TYPE_D3D11VA), "d3d11va");
    EXPECT_EQ(AV_PIX_FMT_D3D11, 171);
}

// --- the decoder on real FFmpeg under Wine ---------------------------------------------

TEST_F(RealFfmpeg, StartupThenInitialFailsCleanlyWithoutAVideoDevice)
{
    QuillonSdkApi& api = Stage("ffmpeg_real").api;
    ASSERT_EQ(api.QuillonStartup(), 0);
    EXPECT_EQ(TakeVelmorCalls(),
              (Calls{"sdk_log_get_level", "sdk_log_msg(load ffmpeg lib ffmpeg-7.dll success!)", "sdk_log_buf_lock",
                     "sdk_log_buf_date", "sdk_log_get_level",
                     "sdk_log_buf_msg(file: interface/QuillonSDKInterface.cpp, func:QuillonStartup, line: 37 )",
                     "sdk_err_buf_msg_unlock([QuillonStartup] already Startup!)"}));

    ID3D11Device* device = nullptr;
    ASSERT_EQ(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0, D3D11_SDK_VERSION, &device,
                                nullptr, nullptr),
              S_OK);
    // Wine's own Direct3D has no video device, so FFmpeg's device set-up
    // fails. DXVK (stack 2) has one that offers no decoder configuration:
    // there the support check stops Initial, its own record first.
    ID3D11VideoDevice* video = nullptr;
    const bool hasVideoDevice = SUCCEEDED(device->QueryInterface(IID_PPV_ARGS(&video)));
    if (video) video->Release();
    device->AddRef();
    const ULONG before = device->Release();

    void* decoder = api.QuillonDecoderCreate(nullptr, 0);
    ASSERT_NE(decoder, nullptr);
    CreateNeed need = {};
    need.iWidth = 1920;
    need.iHeight = 1080;
    need.VideoMode = QUILLON_VIDEO_H264;
    CreateNeedExtern ext = {};
    struct Record {
        const char* func;
        int line;
        const char* message;
    };
    const std::vector<Record> noConfiguration = {
        {"CheckIsDeviceSupportHw", 126, "Failed to get configuration for decoder (hr=0x80004001)"},
        {"Initial", 253, "CheckIsDeviceSupport  iWidth = 1920 iHeight = 1080 VideoMode = 21 Not Support D3D11va"}};
    const struct {
        void* slot;
        std::vector<Record> records;
    } cases[] = {
        {nullptr, hasVideoDevice ? noConfiguration
                                 : std::vector<Record>{{"Initial", 246, "av_hwdevice_ctx_create : NULL == m_pDeviceBuffer"}}},
        {device, hasVideoDevice ? noConfiguration : std::vector<Record>{{"Initial", 229, "av_hwdevice_ctx_init : "}}}};
    for (const auto& c : cases) {
        void* slot = c.slot;
        need.deviceSlot = &slot;
        EXPECT_EQ(api.QuillonDecoderInitial(decoder, &need, &ext), -1);
        const Calls calls = TakeVelmorCalls();
        ASSERT_EQ(calls.size(), 5u * c.records.size());
        for (size_t i = 0; i < c.records.size(); ++i) {
            const Record& r = c.records[i];
            EXPECT_EQ(calls[5 * i + 3], std::string("sdk_log_buf_msg(file: decoder/CLS_D3D11vaDecoder.cpp, func:CLS_D3D11vaDecoder::") +
                                            r.func + ", line: " + std::to_string(r.line) + " )");
            EXPECT_EQ(calls[5 * i + 4].rfind(std::string("sdk_err_buf_msg_unlock(") + r.message, 0), 0u) << calls[5 * i + 4];
        }
    }
    device->AddRef();
    EXPECT_EQ(device->Release(), before);
    EXPECT_EQ(api.QuillonDecoderRelease(decoder), 0);
    device->Release();
}
