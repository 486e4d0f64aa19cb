// Rendering through the exports: frames per second of 1280 x 720 and
// 1920 x 1080 I420 pictures shown with QuillonRenderShowFrame (CPU-data
// path) into a window of the picture's size, next to the hand-written
// Direct3D 11 baseline in the same run; again with the draw callback drawing
// ten lines, one hatched region and one text. Then sixteen render objects in
// sixteen 480 x 270 windows fed in turn, against one such window fed alone.
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "bench/bench_common.h"
#include "testkit/staged_sdk.h"

namespace {

struct OverlayTarget {
    QuillonSdkApi* sdk;
    QuillonRenderHandle render;
    int w, h;
};

OverlayParam Overlay(unsigned color, int lineWidth)
{
    OverlayParam p;
    memset(&p, 0, sizeof(p));
    p.color = color;
    p.lineWidth = lineWidth;
    return p;
}

// Ten lines, one hatched region and one text, as a host's overlay would be.
void QUILLON_CALL DrawOverlays(ShowFrameData*, void* user)
{
    const OverlayTarget* t = static_cast<OverlayTarget*>(user);
    for (int i = 0; i < 10; ++i) {
        OverlayParam line = Overlay(0x40FF40, 2);
        line.pointCount = 2;
        line.points[0] = {t->w / 20, t->h * (i + 1) / 12};
        line.points[1] = {t->w * 19 / 20, t->h * (i + 1) / 12 + 20};
        t->sdk->QuillonRenderConfig(t->render, QUILLON_CMD_DRAW_LINE, &line, sizeof(line));
    }
    OverlayParam hatch = Overlay(0x808080, 2);
    hatch.pointCount = 4;
    hatch.points[0] = {t->w / 2, t->h / 2};
    hatch.points[1] = {t->w * 9 / 10, t->h / 2};
    hatch.points[2] = {t->w * 9 / 10, t->h * 9 / 10};
    hatch.points[3] = {t->w / 2, t->h * 9 / 10};
    t->sdk->QuillonRenderConfig(t->render, QUILLON_CMD_DRAW_BLURRY, &hatch, sizeof(hatch));
    OverlayParam text = Overlay(0x40FFFF, 24);
    text.points[0] = {10, 10};
    text.points[1] = {t->w - 10, 60};
    strcpy(text.text, "12:34:56.789  camera 7");
    t->sdk->QuillonRenderConfig(t->render, QUILLON_CMD_DRAW_TEXT, &text, sizeof(text));
}

QuillonRenderHandle OpenRender(QuillonSdkApi& sdk, HWND window)
{
    QuillonRenderHandle render = sdk.QuillonRenderCreate(nullptr, 0);
    RenderInitParam init;
    memset(&init, 0, sizeof(init));
    init.hWnd = window;
    if (sdk.QuillonRenderInitDevice(render, &init, sizeof(init)) != 0) fprintf(stderr, "InitDevice failed\n");
    return render;
}

// A picture with a gradient, so uploads are not all one value.
std::vector<uint8_t> Picture(int w, int h)
{
    std::vector<uint8_t> p = SolidI420(w, h, 81, 90, 240);
    for (size_t i = 0; i < static_cast<size_t>(w) * h; ++i) p[i] = static_cast<uint8_t>(16 + i % 219);
    return p;
}

double SdkFps(QuillonSdkApi& sdk, HWND window, std::vector<uint8_t>& picture, int w, int h, bool overlays)
{
    QuillonRenderHandle render = OpenRender(sdk, window);
    OverlayTarget target = {&sdk, render, w, h};
    if (overlays) {
        DrawCallBackParam cb = {DrawOverlays, &target};
        sdk.QuillonRenderConfig(render, QUILLON_CMD_SET_DRAW_CALLBACK, &cb, sizeof(cb));
    }
    ShowFrameData frame = CpuFrame(picture, w, h);
    const double fps = bench::FramesPerSecond([&] { sdk.QuillonRenderShowFrame(render, &frame, sizeof(frame)); });
    sdk.QuillonRenderRelease(render);
    return fps;
}

xop::FrameImage Image(std::vector<uint8_t>& p, int w, int h)
{
    xop::FrameImage image = {};
    image.width = w;
    image.height = h;
    image.linesize[0] = w;
    image.linesize[1] = image.linesize[2] = w / 2;
    image.data[0] = p.data();
    image.data[1] = p.data() + w * h;
    image.data[2] = p.data() + w * h * 5 / 4;
    image.format = xop::kFrameI420;
    return image;
}

}  // namespace

int main()
{
    StagedSdk sdk("bench_render");
    if (!sdk.bound || sdk.api.QuillonStartup() != 0) {
        fprintf(stderr, "cannot load QuillonSDK.dll\n");
        return 1;
    }

    bench::Table rendering("rendering", "picture",
                           {"SDK fps", "baseline fps", "ratio", "overlays fps", "overlays ratio"});
    const int sizes[2][2] = {{1280, 720}, {1920, 1080}};
    for (const auto& s : sizes) {
        const int w = s[0], h = s[1];
        HWND window = testkit::CreateTestWindow(0, 0, w, h, "quillon bench");
        std::vector<uint8_t> picture = Picture(w, h);
        const double plain = SdkFps(sdk.api, window, picture, w, h, false);
        const xop::FrameImage image = Image(picture, w, h);
        const double baseline = bench::BaselineFps(window, image);
        const double overlays = SdkFps(sdk.api, window, picture, w, h, true);
        const double b = baseline > 0 ? baseline : 1.0;
        rendering.Row(std::to_string(w) + "x" + std::to_string(h), {plain, baseline, plain / b, overlays, overlays / b});
        DestroyWindow(window);
    }
    rendering.Publish(2);

    // Sixteen windows of 480 x 270 in a 4 x 4 grid, fed in turn.
    const int w = 480, h = 270;
    std::vector<uint8_t> picture = Picture(w, h);
    ShowFrameData frame = CpuFrame(picture, w, h);
    HWND windows[16];
    QuillonRenderHandle renders[16];
    for (int i = 0; i < 16; ++i) windows[i] = testkit::CreateTestWindow(i % 4 * w, i / 4 * h, w, h, "quillon bench");
    renders[0] = OpenRender(sdk.api, windows[0]);
    const double alone = bench::FramesPerSecond([&] { sdk.api.QuillonRenderShowFrame(renders[0], &frame, sizeof(frame)); });
    for (int i = 1; i < 16; ++i) renders[i] = OpenRender(sdk.api, windows[i]);
    int next = 0;
    const double all = bench::FramesPerSecond([&] {
        sdk.api.QuillonRenderShowFrame(renders[next], &frame, sizeof(frame));
        next = (next + 1) % 16;
    });
    for (int i = 0; i < 16; ++i) {
        sdk.api.QuillonRenderRelease(renders[i]);
        DestroyWindow(windows[i]);
    }
    bench::Table many("many_windows", "feeding", {"aggregate fps", "per window fps", "ratio"});
    many.Row("1 window alone", {alone, alone, 1.0});
    many.Row("16 windows in turn", {all, all / 16, all / (alone > 0 ? alone : 1.0)});
    many.Publish(2);
    sdk.api.QuillonCleanup();
    return 0;
}
