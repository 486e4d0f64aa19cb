#pragma once
// QuillonSDK.dll staged in a directory of its own with the modules it loads
// beside it, and bound by name as a host binds it.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "player/QuillonSdkApi.h"
#include "testkit/testkit.h"

struct StagedSdk {
    // `ffmpeg` is the bin file staged as "ffmpeg-7.dll" (the real module or
    // FfmpegDouble.dll); Velmor.dll logs into `<stage>\Velmor.log`.
    explicit StagedSdk(const std::string& name, const std::string& ffmpeg = "ffmpeg-7.dll") : dir(name)
    {
        dir.Add("QuillonSDK.dll").Add("Velmor.dll").Add(ffmpeg, "ffmpeg-7.dll");
        std::string error;
        bound = api.Bind(dir.Load("QuillonSDK.dll"), error);
    }
    std::string LogPath() const { return dir.Path() + "Velmor.log"; }

    testkit::StagedDir dir;
    QuillonSdkApi api;
    bool bound = false;
};

// A packed I420 picture of one colour (Y, then U and V of a quarter each).
inline std::vector<uint8_t> SolidI420(int w, int h, uint8_t y, uint8_t u, uint8_t v)
{
    std::vector<uint8_t> bytes(static_cast<size_t>(w) * h * 3 / 2, y);
    std::fill(bytes.begin() + static_cast<size_t>(w) * h, bytes.begin() + static_cast<size_t>(w) * h * 5 / 4, u);
    std::fill(bytes.begin() + static_cast<size_t>(w) * h * 5 / 4, bytes.end(), v);
    return bytes;
}

// The record QuillonRenderShowFrame takes for a CPU picture.
inline ShowFrameData CpuFrame(std::vector<uint8_t>& picture, int w, int h)
{
    ShowFrameData frame;
    memset(&frame, 0, sizeof(frame));
    frame.data = picture.data();
    frame.width = w;
    frame.height = h;
    return frame;
}

// QuillonDecoderInitial for H.264 of w x h on the device in `deviceSlot`.
inline int InitialH264(QuillonSdkApi& sdk, QuillonDecoderHandle decoder, void** deviceSlot, int w, int h)
{
    CreateNeed need;
    memset(&need, 0, sizeof(need));
    need.iWidth = w;
    need.iHeight = h;
    need.VideoMode = QUILLON_VIDEO_H264;
    need.deviceSlot = deviceSlot;
    CreateNeedExtern ext;
    memset(&ext, 0, sizeof(ext));
    return sdk.QuillonDecoderInitial(decoder, &need, &ext);
}

// One compressed frame (FrameHead, then `payload` bytes of one NAL unit) and
// the output records QuillonDecoderDecodeOneFrame fills.
struct DecodeRecords {
    explicit DecodeRecords(size_t payload) : frame(sizeof(FrameHead) + payload, 0)
    {
        reinterpret_cast<FrameHead*>(frame.data())->payloadLength = static_cast<unsigned>(payload);
        if (payload > 3) frame[sizeof(FrameHead) + 3] = 1;  // 00 00 00 01
        memset(&surface, 0, sizeof(surface));
        memset(&out, 0, sizeof(out));
        out.surfaceRecordSize = sizeof(surface);
        out.surfaceRecord = &surface;
    }
    int Decode(QuillonSdkApi& sdk, QuillonDecoderHandle decoder)
    {
        return sdk.QuillonDecoderDecodeOneFrame(decoder, frame.data(), static_cast<unsigned>(frame.size()), &out);
    }
    std::vector<uint8_t> frame;
    SurfaceRecord surface;
    DecOut out;
};
