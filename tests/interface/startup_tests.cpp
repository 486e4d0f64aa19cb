// QuillonStartup / QuillonCleanup through the DLL's exports. Each suite
// loads its own staged copy of QuillonSDK.dll (fresh counter and bindings)
// and unloads it again; they run in the order of this file.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "include/QuillonSDK.h"
#include "testkit/testkit.h"

using testkit::StagedDir;
using testkit::StderrCapture;
using testkit::TakeVelmorCalls;
using Calls = std::vector<std::string>;

namespace {

struct Sdk {
    HMODULE module = nullptr;
    decltype(&QuillonStartup) Startup = nullptr;
    decltype(&QuillonCleanup) Cleanup = nullptr;
    decltype(&QuillonDecoderCreate) Create = nullptr;
    decltype(&QuillonDecoderInitial) Initial = nullptr;

    explicit Sdk(const StagedDir& dir)
    {
        module = dir.Load("QuillonSDK.dll");
        Bind(Startup, "QuillonStartup");
        Bind(Cleanup, "QuillonCleanup");
        Bind(Create, "QuillonDecoderCreate");
        Bind(Initial, "QuillonDecoderInitial");
    }
    ~Sdk() { FreeLibrary(module); }

    template <typename Fn>
    void Bind(Fn& fn, const char* name)
    {
        fn = testkit::Export<Fn>(module, name);
        EXPECT_NE(fn, nullptr) << name;
    }
};

const Calls kAlreadyStarted = {"sdk_log_get_level", "sdk_log_msg([QuillonStartup] already Startup!)"};
const Calls kFirstStartRecord = {"sdk_log_buf_lock", "sdk_log_buf_date", "sdk_log_get_level",
                                 "sdk_log_buf_msg(file: interface/QuillonSDKInterface.cpp, func:QuillonStartup, line: 37 )",
                                 "sdk_err_buf_msg_unlock([QuillonStartup] already Startup!)"};

size_t Count(const std::string& text, const std::string& what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

}  // namespace

TEST(Startup, WithoutVelmorFailsButCounts)
{
    StagedDir dir("startup_no_velmor");
    dir.Add("QuillonSDK.dll").Add("ffmpeg-7.dll");
    Sdk sdk(dir);
    ASSERT_NE(sdk.module, nullptr);
    StderrCapture err;
    EXPECT_EQ(sdk.Startup(), -1);
    // Logging without the module: the FFmpeg success line costs one report,
    // the start-up record four.
    const std::string first = err.Take();
    EXPECT_EQ(Count(first, ",CLS_VelmorApi::inner_sdk_log_get_level"), 2u) << first;
    EXPECT_EQ(Count(first, ",CLS_VelmorApi::inner_sdk_err_buf_msg_unlock"), 1u) << first;
    // Counted: the next start-up only counts up.
    EXPECT_EQ(sdk.Startup(), 0);
    EXPECT_EQ(Count(err.Take(), ",CLS_VelmorApi::inner_"), 1u);
    EXPECT_EQ(sdk.Cleanup(), 0);
    EXPECT_EQ(sdk.Cleanup(), 0);
    EXPECT_EQ(err.Take(), "");
}

TEST(Startup, WithoutFfmpegSucceedsCountsAndDecoderSetUpFailsLater)
{
    StagedDir dir("startup_no_ffmpeg");
    dir.Add("QuillonSDK.dll").Add("VelmorRecording.dll", "Velmor.dll");
    ASSERT_NE(dir.Load("Velmor.dll"), nullptr);
    testkit::SetVelmorLevels(200, 0);
    Sdk sdk(dir);
    ASSERT_NE(sdk.module, nullptr);
    TakeVelmorCalls();

    StderrCapture err;
    EXPECT_EQ(sdk.Startup(), 0);
    Calls calls = TakeVelmorCalls();
    ASSERT_EQ(calls.size(), 10u);
    EXPECT_EQ(calls[3].rfind("sdk_log_buf_msg(file: CommonCode/Ffmpeg/ffmpeg_api.cpp, func:ff_load_ffmpeg_as_one, line: ", 0), 0u)
        << calls[3];
    EXPECT_EQ(calls[4], "sdk_err_buf_msg_unlock(load ffmpeg lib ffmpeg-7.dll fail!)");
    EXPECT_EQ(Calls(calls.begin() + 5, calls.end()), kFirstStartRecord);

    // The decoder finds no FFmpeg: the wrapper reports, set-up fails with -1.
    void* decoder = sdk.Create(nullptr, 0);
    ASSERT_NE(decoder, nullptr);
    void* slot = nullptr;
    CreateNeed need = {};
    need.iWidth = 640;
    need.iHeight = 480;
    need.VideoMode = QUILLON_VIDEO_H265;
    need.deviceSlot = &slot;
    CreateNeedExtern ext = {};
    EXPECT_EQ(sdk.Initial(decoder, &need, &ext), -1);
    calls = TakeVelmorCalls();
    ASSERT_EQ(calls.size(), 5u);
    EXPECT_EQ(calls[3], "sdk_log_buf_msg(file: decoder/CLS_D3D11vaDecoder.cpp, func:CLS_D3D11vaDecoder::Initial, line: 172 )");
    EXPECT_EQ(calls[4], "sdk_err_buf_msg_unlock(decoder not found)");
    const std::string reports = err.Take();
    EXPECT_EQ(Count(reports, ",ff_avcodec_find_decoder"), 1u) << reports;

    // The counter, at 1 now: up to 3; two clean-ups leave 1, so the next
    // start-up still only counts.
    EXPECT_EQ(sdk.Startup(), 0);
    EXPECT_EQ(TakeVelmorCalls(), kAlreadyStarted);
    EXPECT_EQ(sdk.Startup(), 0);
    EXPECT_EQ(TakeVelmorCalls(), kAlreadyStarted);
    EXPECT_EQ(sdk.Cleanup(), 0);
    EXPECT_EQ(sdk.Cleanup(), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    EXPECT_EQ(sdk.Startup(), 0);
    EXPECT_EQ(TakeVelmorCalls(), kAlreadyStarted);

    // 2 -> 1 -> torn down, and a clean-up too many does nothing. The next
    // start-up is a first one again and finds Velmor.dll still loaded (0).
    EXPECT_EQ(sdk.Cleanup(), 0);
    EXPECT_EQ(sdk.Cleanup(), 0);
    EXPECT_EQ(sdk.Cleanup(), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    EXPECT_EQ(sdk.Startup(), 0);
    calls = TakeVelmorCalls();
    ASSERT_EQ(calls.size(), 10u);
    EXPECT_EQ(calls[4], "sdk_err_buf_msg_unlock(load ffmpeg lib ffmpeg-7.dll fail!)");
    EXPECT_EQ(Calls(calls.begin() + 5, calls.end()), kFirstStartRecord);
    EXPECT_EQ(sdk.Cleanup(), 0);
}
