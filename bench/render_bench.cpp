// Rendering through the exports, each figure against a hand-written loop
// doing the same in the same run (bench/baseline_loop.h): frames per second
// of 1280 x 720 and 1920 x 1080 I420 pictures shown with
// QuillonRenderShowFrame (CPU-data path) into a window of the picture's
// size; then the same with overlays (ten lines, one hatched region, one
// text) drawn from the SDK's draw callback, against the loop drawing them
// with Direct2D and DirectWrite on its own back buffer. The plain pictures
// are also set against the loop taking the SDK's order of steps (picture
// drawn into a texture, copied into the back buffer, empty Direct2D pass,
// multithread-protected device).
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "bench/baseline_loop.h"
#include "bench/bench_common.h"
#include "bench/sdk_helpers.h"
#include "testkit/staged_sdk.h"

namespace {

struct OverlayTarget {
    QuillonSdkApi* sdk;
    QuillonRenderHandle render;
    bench::OverlayScene scene;
};

OverlayParam Overlay(unsigned colour, int lineWidth)
{
    OverlayParam p;
    memset(&p, 0, sizeof(p));
    p.color = colour;
    p.lineWidth = lineWidth;
    return p;
}

// The scene through the overlay commands, as a host's callback draws it.
void QUILLON_CALL DrawOverlays(ShowFrameData*, void* user)
{
    const OverlayTarget* t = static_cast<OverlayTarget*>(user);
    const bench::OverlayScene& s = t->scene;
    for (const auto& l : s.lines) {
        OverlayParam line = Overlay(s.lineColour, s.lineWidth);
        line.pointCount = 2;
        line.points[0] = {l[0].x, l[0].y};
        line.points[1] = {l[1].x, l[1].y};
        t->sdk->QuillonRenderConfig(t->render, QUILLON_CMD_DRAW_LINE, &line, sizeof(line));
    }
    OverlayParam hatch = Overlay(s.hatchColour, s.lineWidth);
    hatch.pointCount = 4;
    hatch.points[0] = {s.hatch.left, s.hatch.top};
    hatch.points[1] = {s.hatch.right, s.hatch.top};
    hatch.points[2] = {s.hatch.right, s.hatch.bottom};
    hatch.points[3] = {s.hatch.left, s.hatch.bottom};
    t->sdk->QuillonRenderConfig(t->render, QUILLON_CMD_DRAW_BLURRY, &hatch, sizeof(hatch));
    OverlayParam text = Overlay(s.textColour, s.textSize);
    text.points[0] = {s.textBox.left, s.textBox.top};
    text.points[1] = {s.textBox.right, s.textBox.bottom};
    strcpy(text.text, s.text);
    t->sdk->QuillonRenderConfig(t->render, QUILLON_CMD_DRAW_TEXT, &text, sizeof(text));
}

double SdkFps(QuillonSdkApi& sdk, HWND window, std::vector<uint8_t>& picture, int w, int h, bool overlays,
              DWORD runMs)
{
    QuillonRenderHandle render = bench::OpenRender(sdk, window);
    OverlayTarget target = {&sdk, render, bench::OverlayScene(w, h)};
    if (overlays) {
        DrawCallBackParam cb = {DrawOverlays, &target};
        sdk.QuillonRenderConfig(render, QUILLON_CMD_SET_DRAW_CALLBACK, &cb, sizeof(cb));
    }
    ShowFrameData frame = CpuFrame(picture, w, h);
    const double fps =
        bench::FramesPerSecond([&] { sdk.QuillonRenderShowFrame(render, &frame, sizeof(frame)); }, runMs);
    sdk.QuillonRenderRelease(render);
    return fps;
}

// The loop with overlays, or (`sdkSteps`) without them in the SDK's order
// of steps.
double LoopFps(HWND window, const xop::FrameImage& image, bool overlays, bool sdkSteps, DWORD runMs)
{
    bench::BaselineLoop loop(window, image.width, image.height);
    if (!loop.Ok() || (overlays && !loop.AddOverlays(bench::OverlayScene(image.width, image.height))) ||
        (sdkSteps && !loop.UseSdkSteps()))
        return 0.0;
    loop.UseI420(image);
    testkit::PumpMessages();
    return bench::FramesPerSecond([&] { loop.Frame(); }, runMs);
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
                           {"SDK fps", "baseline fps", "ratio", "SDK-steps loop fps", "ratio to it"});
    bench::Table overlays("overlays", "picture", {"SDK fps", "baseline fps", "ratio"});
    const int sizes[2][2] = {{1280, 720}, {1920, 1080}};
    for (const auto& s : sizes) {
        const int w = s[0], h = s[1];
        const std::string label = std::to_string(w) + "x" + std::to_string(h);
        HWND window = testkit::CreateTestWindow(0, 0, w, h, "quillon bench");
        std::vector<uint8_t> picture = bench::Picture(w, h);
        const xop::FrameImage image = bench::I420Image(picture, w, h);
        const std::vector<double> fps = bench::Interleaved({
            [&](DWORD ms) { return SdkFps(sdk.api, window, picture, w, h, false, ms); },
            [&](DWORD ms) { return bench::BaselineFps(window, image, ms); },
            [&](DWORD ms) { return SdkFps(sdk.api, window, picture, w, h, true, ms); },
            [&](DWORD ms) { return LoopFps(window, image, true, false, ms); },
            [&](DWORD ms) { return LoopFps(window, image, false, true, ms); },
        });
        auto ratio = [](double a, double b) { return a / (b > 0 ? b : 1.0); };
        rendering.Row(label, {fps[0], fps[1], ratio(fps[0], fps[1]), fps[4], ratio(fps[0], fps[4])});
        overlays.Row(label, {fps[2], fps[3], ratio(fps[2], fps[3])});
        DestroyWindow(window);
    }
    rendering.Publish(2);
    overlays.Publish(2);
    sdk.api.QuillonCleanup();
    return 0;
}
