// The decoder-texture path: frames per second of QuillonRenderShowFrame of
// one slice of a decoder-shaped NV12 texture array (1280 x 720 and 1920 x
// 1080 pictures into a window of the picture's size), against the hand-
// written loop copying the same slice into an NV12 texture of its own
// (CopySubresourceRegion), drawing it with the library's NV12 shader and
// presenting; and against that loop in the SDK's order of steps (drawn into
// a texture, copied into the back buffer, empty Direct2D pass, multithread-
// protected device). Needs a Direct3D 11 that samples NV12 (stack 2);
// elsewhere it says so and measures nothing.
#include <windows.h>

#include <cstdio>
#include <string>

#include "bench/baseline_loop.h"
#include "bench/bench_common.h"
#include "bench/sdk_helpers.h"

namespace {

constexpr UINT kSlice = 3;

// A pool for a w x h video on `device` with a gradient picture in kSlice.
bool FillPool(testkit::DecoderPool& pool, int w, int h)
{
    testkit::Nv12Picture picture(pool.Width(), pool.Height(), {81, 90, 240});
    for (int x = 0; x + 16 <= w; x += 16) picture.Fill(x, 0, 16, h & ~1, {16 + x * 219 / w, 128, 128});
    return pool.Ok() && pool.Write(kSlice, picture);
}

double SdkFps(QuillonSdkApi& sdk, HWND window, int w, int h, DWORD runMs)
{
    QuillonRenderHandle render = bench::OpenRender(sdk, window);
    DrawInfo info;
    memset(&info, 0, sizeof(info));
    sdk.QuillonRenderGetDrawInfo(render, &info, sizeof(info));
    double fps = 0.0;
    {
        testkit::DecoderPool pool(static_cast<ID3D11Device*>(info.device), w, h);
        if (FillPool(pool, w, h)) {
            ShowFrameData frame;
            memset(&frame, 0, sizeof(frame));
            frame.width = w;
            frame.height = h;
            frame.texture = pool.Texture();
            frame.arraySlice = kSlice;
            fps = bench::FramesPerSecond([&] { sdk.QuillonRenderShowFrame(render, &frame, sizeof(frame)); }, runMs);
        }
    }
    sdk.QuillonRenderRelease(render);
    return fps;
}

double BaselineFps(HWND window, int w, int h, bool sdkSteps, DWORD runMs)
{
    bench::BaselineLoop loop(window, w, h);
    if (!loop.Ok() || (sdkSteps && !loop.UseSdkSteps())) return 0.0;
    testkit::DecoderPool pool(loop.Device(), w, h);
    if (!FillPool(pool, w, h) || !loop.UseNv12Slice(pool.Texture(), kSlice)) return 0.0;
    testkit::PumpMessages();
    return bench::FramesPerSecond([&] { loop.Frame(); }, runMs);
}

}  // namespace

int main()
{
    {
        HWND probe = testkit::CreateTestWindow(0, 0, 64, 64, "quillon bench");
        bench::BaselineLoop loop(probe, 64, 64);
        const bool sampled = loop.Ok() && testkit::CanSampleNv12(loop.Device());
        DestroyWindow(probe);
        if (!sampled) {
            printf("texture_path: skipped, this Direct3D 11 cannot sample NV12 textures (run it on stack 2)\n");
            return 0;
        }
    }
    StagedSdk sdk("bench_texture");
    if (!sdk.bound || sdk.api.QuillonStartup() != 0) {
        fprintf(stderr, "cannot load QuillonSDK.dll\n");
        return 1;
    }
    bench::Table table("texture_path", "picture",
                       {"SDK fps", "baseline fps", "ratio", "SDK-steps loop fps", "ratio to it"});
    const int sizes[2][2] = {{1280, 720}, {1920, 1080}};
    for (const auto& s : sizes) {
        const int w = s[0], h = s[1];
        HWND window = testkit::CreateTestWindow(0, 0, w, h, "quillon bench");
        const std::vector<double> fps = bench::Interleaved({
            [&](DWORD ms) { return SdkFps(sdk.api, window, w, h, ms); },
            [&](DWORD ms) { return BaselineFps(window, w, h, false, ms); },
            [&](DWORD ms) { return BaselineFps(window, w, h, true, ms); },
        });
        auto ratio = [](double a, double b) { return a / (b > 0 ? b : 1.0); };
        table.Row(std::to_string(w) + "x" + std::to_string(h),
                  {fps[0], fps[1], ratio(fps[0], fps[1]), fps[2], ratio(fps[0], fps[2])});
        DestroyWindow(window);
    }
    table.Publish(2);
    sdk.api.QuillonCleanup();
    return 0;
}
