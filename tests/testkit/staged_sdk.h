#pragma once
// QuillonSDK.dll staged with the modules it loads (real ones or the doubles
// of tests/fakes/) beside it, bound by name through the player's QuillonSdkApi.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "player/QuillonSdkApi.h"
#include "testkit/testkit.h"

namespace testkit {

// Bin files to stage as the modules QuillonSDK.dll loads.
inline const char* const kRecordingVelmor = "VelmorRecording.dll";  // records calls, see recording.h
inline const char* const kFfmpegDouble = "FfmpegDouble.dll";        // scripted, see fakes/ffmpeg_double.h

struct StagedSdk {
    // Bin files staged as "ffmpeg-7.dll" and "Velmor.dll" (none when empty). The real Velmor.dll logs
    // into LogPath(); the recording one is loaded first, so that SetVelmorLevels reaches it in time.
    explicit StagedSdk(const std::string& name, const std::string& ffmpeg = "ffmpeg-7.dll",
                       const std::string& velmor = "Velmor.dll")
        : dir(name) {
        dir.Add("QuillonSDK.dll");
        if (!velmor.empty()) dir.Add(velmor, "Velmor.dll");
        if (!ffmpeg.empty()) dir.Add(ffmpeg, "ffmpeg-7.dll");
        if (velmor == kRecordingVelmor) dir.Load("Velmor.dll");
        Load();
    }
    std::string LogPath() const { return dir.Path() + "Velmor.log"; }
    // Loads and binds the staged library; Unload drops it with its start-up counter and bindings.
    void Load() { bound = api.Bind(module = dir.Load("QuillonSDK.dll"), error); }
    void Unload() {
        if (module) FreeLibrary(module);
        module = nullptr;
    }

    StagedDir dir;
    HMODULE module = nullptr;
    QuillonSdkApi api;
    bool bound = false;
    std::string error;
};

// Base of the suites that read the recording Velmor.dll: each test starts with levels (200, 0), nothing recorded.
class RecordingTest : public ::testing::Test {
public:
    inline static QuillonSdkApi sdk;  // the SDK of Start

protected:
    // A StagedSdk beside the recording Velmor.dll, made once per process (one library, one start-up
    // counter): later calls return it.
    static StagedSdk& Stage(const std::string& name, const std::string& ffmpeg = "ffmpeg-7.dll") {
        static const std::string first = name + "|" + ffmpeg;
        static StagedSdk* staged = new StagedSdk(name, ffmpeg, kRecordingVelmor);
        EXPECT_EQ(name + "|" + ffmpeg, first) << "one recording stage per process";
        return *staged;
    }

    // Stage, then QuillonStartup once; `sdk` is bound afterwards.
    static void Start(const std::string& name, const std::string& ffmpeg = "ffmpeg-7.dll") {
        StagedSdk& staged = Stage(name, ffmpeg);
        ASSERT_TRUE(staged.bound) << staged.error;
        sdk = staged.api;
        SetVelmorLevels(200, 0);
        static const int started = sdk.QuillonStartup();
        ASSERT_EQ(started, 0);
    }

    void SetUp() override {
        SetVelmorLevels(200, 0);
        TakeVelmorCalls();
    }
};

}  // namespace testkit

using testkit::StagedSdk;

// A packed I420 picture of one colour (Y, then U and V of a quarter each).
inline std::vector<uint8_t> SolidI420(int w, int h, uint8_t y, uint8_t u, uint8_t v) {
    std::vector<uint8_t> bytes(static_cast<size_t>(w) * h * 3 / 2, y);
    std::fill(bytes.begin() + static_cast<size_t>(w) * h, bytes.begin() + static_cast<size_t>(w) * h * 5 / 4, u);
    std::fill(bytes.begin() + static_cast<size_t>(w) * h * 5 / 4, bytes.end(), v);
    return bytes;
}

// The record QuillonRenderShowFrame takes for a CPU picture.
inline ShowFrameData CpuFrame(std::vector<uint8_t>& picture, int w, int h) {
    ShowFrameData frame = {};
    frame.data = picture.data();
    frame.width = w;
    frame.height = h;
    return frame;
}

// QuillonDecoderInitial for H.264 of w x h on the device in `deviceSlot`.
inline int InitialH264(QuillonSdkApi& sdk, QuillonDecoderHandle decoder, void** deviceSlot, int w, int h) {
    CreateNeed need = {w, h, QUILLON_VIDEO_H264, {}, deviceSlot};
    CreateNeedExtern ext = {};
    return sdk.QuillonDecoderInitial(decoder, &need, &ext);
}

// One compressed frame (FrameHead, then `payload` bytes of one NAL unit) and
// the output records QuillonDecoderDecodeOneFrame fills.
struct DecodeRecords {
    explicit DecodeRecords(size_t payload) : frame(sizeof(FrameHead) + payload, 0) {
        reinterpret_cast<FrameHead*>(frame.data())->payloadLength = static_cast<unsigned>(payload);
        if (payload > 3) frame[sizeof(FrameHead) + 3] = 1;  // 00 00 00 01
        out.surfaceRecordSize = sizeof(surface);
        out.surfaceRecord = &surface;
    }
    int Decode(QuillonSdkApi& sdk, QuillonDecoderHandle decoder) {
        return sdk.QuillonDecoderDecodeOneFrame(decoder, frame.data(), static_cast<unsigned>(frame.size()), &out);
    }
    std::vector<uint8_t> frame;
    SurfaceRecord surface = {};
    DecOut out = {};
};
