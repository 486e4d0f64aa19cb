// Call overhead of the exports: nanoseconds per QuillonRenderConfig call
// (command 5) and per call with a handle that was never issued (which logs
// an error record), against a direct virtual call; and per
// QuillonDecoderDecodeOneFrame on the FFmpeg test double, minus what the
// double's own entry points cost when called directly.
#include <windows.h>

#include <cstdio>
#include <cstring>

#include "bench/bench_common.h"
#include "testkit/staged_sdk.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace {

struct Target {
    virtual ~Target() = default;
    virtual int Config(int command, void* data, int length) = 0;
};
struct Impl : Target {
    int Config(int command, void* data, int length) override
    {
        asm volatile("" ::"r"(command), "r"(data), "r"(length) : "memory");
        return 0;
    }
};

template <class F>
double NanosecondsPerCall(int calls, F call)
{
    call();
    const double start = bench::Now();
    for (int i = 0; i < calls; ++i) call();
    return (bench::Now() - start) * 1e9 / calls;
}

}  // namespace

int main()
{
    StagedSdk sdk("bench_calls", "FfmpegDouble.dll");
    if (!sdk.bound || sdk.api.QuillonStartup() != 0) {
        fprintf(stderr, "cannot load QuillonSDK.dll\n");
        return 1;
    }
    QuillonSdkApi& api = sdk.api;

    Target* volatile target = new Impl;
    EZoomArea zoom = {0.0, 0.0, 1.0, 1.0};
    const double virtualNs = NanosecondsPerCall(2000000, [&] { target->Config(5, &zoom, sizeof(zoom)); });

    QuillonRenderHandle render = api.QuillonRenderCreate(nullptr, 0);
    const double configNs =
        NanosecondsPerCall(1000000, [&] { api.QuillonRenderConfig(render, QUILLON_CMD_EZOOM_AREA, &zoom, sizeof(zoom)); });
    void* never = reinterpret_cast<void*>(0x7000);
    const double invalidNs =
        NanosecondsPerCall(20000, [&] { api.QuillonRenderConfig(never, QUILLON_CMD_EZOOM_AREA, &zoom, sizeof(zoom)); });

    // A decoder on a device of the renderer, fed by the double.
    RenderInitParam init;
    memset(&init, 0, sizeof(init));
    api.QuillonRenderInitDevice(render, &init, sizeof(init));
    QuillonDecoderHandle decoder = api.QuillonDecoderCreate(nullptr, 0);
    if (InitialH264(api, decoder, &init.device, 1920, 1080) != 0) fprintf(stderr, "QuillonDecoderInitial failed\n");
    DecodeRecords records(224);
    const double decodeNs =
        NanosecondsPerCall(500000, [&] { records.Decode(api, decoder); });

    // The double's own cost: the same four entry points per frame, called directly.
    HMODULE ff = GetModuleHandleA("ffmpeg-7.dll");
    auto findDecoder = testkit::Export<const AVCodec* (*)(AVCodecID)>(ff, "avcodec_find_decoder");
    auto allocContext = testkit::Export<AVCodecContext* (*)(const AVCodec*)>(ff, "avcodec_alloc_context3");
    auto frameAlloc = testkit::Export<AVFrame* (*)()>(ff, "av_frame_alloc");
    auto initPacket = testkit::Export<void (*)(AVPacket*)>(ff, "av_init_packet");
    auto send = testkit::Export<int (*)(AVCodecContext*, const AVPacket*)>(ff, "avcodec_send_packet");
    auto receive = testkit::Export<int (*)(AVCodecContext*, AVFrame*)>(ff, "avcodec_receive_frame");
    auto unref = testkit::Export<void (*)(AVPacket*)>(ff, "av_packet_unref");
    double doubleNs = 0;
    if (findDecoder && allocContext && frameAlloc && initPacket && send && receive && unref) {
        AVCodecContext* ctx = allocContext(findDecoder(AV_CODEC_ID_H264));
        AVFrame* picture = frameAlloc();
        doubleNs = NanosecondsPerCall(500000, [&] {
            AVPacket packet;
            memset(&packet, 0, sizeof(packet));
            initPacket(&packet);
            packet.data = records.frame.data() + sizeof(FrameHead);
            packet.size = static_cast<int>(records.frame.size() - sizeof(FrameHead));
            send(ctx, &packet);
            receive(ctx, picture);
            unref(&packet);
        });
    }
    api.QuillonDecoderRelease(decoder);
    api.QuillonRenderRelease(render);

    bench::Table table("call_overhead", "call", {"ns per call", "ratio to virtual"});
    const double v = virtualNs > 0 ? virtualNs : 1.0;
    table.Row("direct virtual call", {virtualNs, 1.0});
    table.Row("QuillonRenderConfig cmd 5", {configNs, configNs / v});
    table.Row("invalid handle (logged)", {invalidNs, invalidNs / v});
    table.Row("DecodeOneFrame on double", {decodeNs, decodeNs / v});
    table.Row("double's entry points alone", {doubleNs, doubleNs / v});
    table.Row("DecodeOneFrame minus double", {decodeNs - doubleNs, (decodeNs - doubleNs) / v});
    table.Publish(1);
    api.QuillonCleanup();
    return 0;
}
