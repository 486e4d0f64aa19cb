// QuillonStartup / QuillonCleanup through the DLL's exports. Each test loads its own staged copy of QuillonSDK.dll
// (fresh counter and bindings) and unloads it again; they run in the order of this file.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testkit/staged_sdk.h"

using testkit::Calls;
using testkit::Count;
using testkit::StderrCapture;
using testkit::TakeVelmorCalls;

namespace {

// The library of one test, unloaded when the test ends.
struct OwnSdk : testkit::StagedSdk {
    using StagedSdk::StagedSdk;
    ~OwnSdk() { Unload(); }
};

const Calls kAlreadyStarted = {"sdk_log_get_level", "sdk_log_msg([QuillonStartup] already Startup!)"};
const Calls kFirstStartRecord = testkit::ErrorRecord("interface/QuillonSDKInterface.cpp", "QuillonStartup", 37,
                                                     "[QuillonStartup] already Startup!");

}  // namespace

TEST(Startup, WithoutVelmorFailsButCounts) {
    OwnSdk staged("startup_no_velmor", "ffmpeg-7.dll", "");
    ASSERT_TRUE(staged.bound) << staged.error;
    QuillonSdkApi& sdk = staged.api;
    StderrCapture err;
    EXPECT_EQ(sdk.QuillonStartup(), -1);
    // Logging without the module: the FFmpeg success line costs one report, the start-up record four.
    const std::string first = err.Take();
    EXPECT_EQ(Count(first, ",CLS_VelmorApi::inner_sdk_log_get_level"), 2u) << first;
    EXPECT_EQ(Count(first, ",CLS_VelmorApi::inner_sdk_err_buf_msg_unlock"), 1u) << first;
    // Counted: the next start-up only counts up.
    EXPECT_EQ(sdk.QuillonStartup(), 0);
    EXPECT_EQ(Count(err.Take(), ",CLS_VelmorApi::inner_"), 1u);
    EXPECT_EQ(sdk.QuillonCleanup(), 0);
    EXPECT_EQ(sdk.QuillonCleanup(), 0);
    EXPECT_EQ(err.Take(), "");
}

TEST(Startup, WithoutFfmpegSucceedsCountsAndDecoderSetUpFailsLater) {
    OwnSdk staged("startup_no_ffmpeg", "", testkit::kRecordingVelmor);
    ASSERT_TRUE(staged.bound) << staged.error;
    QuillonSdkApi& sdk = staged.api;
    testkit::SetVelmorLevels(200, 0);
    TakeVelmorCalls();

    StderrCapture err;
    EXPECT_EQ(sdk.QuillonStartup(), 0);
    Calls calls = TakeVelmorCalls();
    ASSERT_EQ(calls.size(), 10u);
    const std::string position = "sdk_log_buf_msg(file: CommonCode/Ffmpeg/ffmpeg_api.cpp, func:ff_load_ffmpeg_as_one";
    EXPECT_EQ(calls[3].rfind(position + ", line: ", 0), 0u) << calls[3];
    EXPECT_EQ(calls[4], "sdk_err_buf_msg_unlock(load ffmpeg lib ffmpeg-7.dll fail!)");
    EXPECT_EQ(Calls(calls.begin() + 5, calls.end()), kFirstStartRecord);

    // The decoder finds no FFmpeg: the wrapper reports, set-up fails with -1.
    void* decoder = sdk.QuillonDecoderCreate(nullptr, 0);
    ASSERT_NE(decoder, nullptr);
    void* slot = nullptr;
    CreateNeed need = {640, 480, QUILLON_VIDEO_H265, {}, &slot};
    CreateNeedExtern ext = {};
    EXPECT_EQ(sdk.QuillonDecoderInitial(decoder, &need, &ext), -1);
    EXPECT_EQ(TakeVelmorCalls(), testkit::ErrorRecord("decoder/CLS_D3D11vaDecoder.cpp", "CLS_D3D11vaDecoder::Initial",
                                                      172, "decoder not found"));
    const std::string reports = err.Take();
    EXPECT_EQ(Count(reports, ",ff_avcodec_find_decoder"), 1u) << reports;

    // The counter, at 1 now: 2, 1, 2 (a start-up that only counts each time), then 1 -> torn down, and a clean-up
    // too many does nothing. The next start-up is a first one again and finds Velmor.dll still loaded (0).
    EXPECT_EQ(sdk.QuillonStartup(), 0);
    EXPECT_EQ(TakeVelmorCalls(), kAlreadyStarted);
    EXPECT_EQ(sdk.QuillonCleanup(), 0);
    EXPECT_EQ(sdk.QuillonStartup(), 0);
    EXPECT_EQ(TakeVelmorCalls(), kAlreadyStarted);
    EXPECT_EQ(sdk.QuillonCleanup(), 0);
    EXPECT_EQ(sdk.QuillonCleanup(), 0);
    EXPECT_EQ(sdk.QuillonCleanup(), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    EXPECT_EQ(sdk.QuillonStartup(), 0);
    calls = TakeVelmorCalls();
    ASSERT_EQ(calls.size(), 10u);
    EXPECT_EQ(calls[4], "sdk_err_buf_msg_unlock(load ffmpeg lib ffmpeg-7.dll fail!)");
    EXPECT_EQ(Calls(calls.begin() + 5, calls.end()), kFirstStartRecord);
    EXPECT_EQ(sdk.QuillonCleanup(), 0);
}
