// A C++ host: the renderer's device shared with a decoder, the draw callback
// installed, and the records' layouts as the C++ compiler sees them.
#include <cstdio>
#include <cstring>

#include "QuillonSDK.h"

#ifndef QUILLON_STATIC_ASSERT
#error "the header's layout checks are off in C++11"
#endif

static int failures = 0;

static void expect(const char* what, long long got, long long want) {
    std::printf("%-40s %lld%s\n", what, got, got == want ? "" : " (unexpected)");
    if (got != want) ++failures;
}

static void QUILLON_CALL OnDraw(ShowFrameData*, void*) {}

int main() {
    expect("QuillonStartup", QuillonStartup(), QUILLON_OK);
    expect("QuillonStartup again", QuillonStartup(), QUILLON_OK);

    QuillonRenderHandle render = QuillonRenderCreate(nullptr, 0);
    RenderInitParam init;
    std::memset(&init, 0, sizeof(init));  // no window: a device without a swap chain
    expect("QuillonRenderInitDevice without window", QuillonRenderInitDevice(render, &init, sizeof(init)), QUILLON_OK);
    expect("device written back", init.device != nullptr, 1);
    DrawInfo info = {nullptr};
    expect("QuillonRenderGetDrawInfo", QuillonRenderGetDrawInfo(render, &info, sizeof(info)), QUILLON_OK);
    expect("the same device", info.device == init.device, 1);

    DrawCallBackParam callback = {OnDraw, nullptr};
    expect("QuillonRenderConfig, draw callback",
           QuillonRenderConfig(render, QUILLON_CMD_SET_DRAW_CALLBACK, &callback, sizeof(callback)), QUILLON_OK);
    EZoomArea zoom = {0.25, 0.25, 0.75, 0.75};
    expect("QuillonRenderConfig, zoom", QuillonRenderConfig(render, QUILLON_CMD_EZOOM_AREA, &zoom, sizeof(zoom)),
           QUILLON_OK);

    // Decoding on the renderer's device: this machine may lack a hardware
    // decoder, so only the documented results are accepted.
    QuillonDecoderHandle decoder = QuillonDecoderCreate(nullptr, 0);
    CreateNeed need;
    std::memset(&need, 0, sizeof(need));
    need.iWidth = 1920;
    need.iHeight = 1080;
    need.VideoMode = QUILLON_VIDEO_H264;
    need.deviceSlot = &init.device;
    CreateNeedExtern needExtern;
    std::memset(&needExtern, 0, sizeof(needExtern));
    const int initial = QuillonDecoderInitial(decoder, &need, &needExtern);
    std::printf("%-40s %d (%s)\n", "QuillonDecoderInitial on that device", initial,
                initial == 0 ? "hardware decoder ready" : "no hardware decoder here");
    if (initial != QUILLON_OK && initial != QUILLON_ERR_FAIL) ++failures;
    expect("QuillonDecoderRelease", QuillonDecoderRelease(decoder), QUILLON_OK);

    expect("QuillonRenderRelease", QuillonRenderRelease(render), QUILLON_RENDER_RELEASED);
    expect("QuillonDecoderDecodeOneFrame, NULL handle", QuillonDecoderDecodeOneFrame(nullptr, nullptr, 0, nullptr),
           QUILLON_ERR_FAIL);
    expect("sizeof(ShowFrameData)", sizeof(ShowFrameData), 112);
    expect("sizeof(OverlayParam)", sizeof(OverlayParam), 416);
    expect("QuillonCleanup", QuillonCleanup(), QUILLON_OK);
    expect("QuillonCleanup", QuillonCleanup(), QUILLON_OK);
    std::printf("host_cpp: %s\n", failures ? "FAILED" : "OK");
    return failures ? 1 : 0;
}
