// Sixteen windows of 480 x 270 in a 4 x 4 grid, fed in turn with I420
// pictures (CPU-data path): sixteen SDK render objects against the
// hand-written loop making the same sixteen devices and swap chains and
// doing the same upload, draw and present in turn; and against one device
// with sixteen swap chains, the lower bound that one device per render
// object trades away. Then where the hand-written loop's time goes with
// one device alive and with sixteen.
//
// Never two swap chains on one window at a time (the Vulkan stack cannot
// destroy such a device): each contender releases its swap chains before
// the next one makes its own.
#include <windows.h>

#include <cstdio>
#include <memory>
#include <vector>

#include "bench/baseline_loop.h"
#include "bench/bench_common.h"
#include "bench/sdk_helpers.h"

namespace {

constexpr int kWindows = 16, kW = 480, kH = 270;
constexpr DWORD kRunMs = 5000;  // few pictures per second on the slow stack

double SdkFps(QuillonSdkApi& sdk, const std::vector<HWND>& windows, std::vector<uint8_t>& picture)
{
    std::vector<QuillonRenderHandle> renders;
    for (HWND w : windows) renders.push_back(bench::OpenRender(sdk, w));
    ShowFrameData frame = CpuFrame(picture, kW, kH);
    size_t next = 0;
    const double fps = bench::FramesPerSecond(
        [&] {
            sdk.QuillonRenderShowFrame(renders[next], &frame, sizeof(frame));
            next = (next + 1) % renders.size();
        },
        kRunMs);
    for (QuillonRenderHandle r : renders) sdk.QuillonRenderRelease(r);
    return fps;
}

// The hand-written loop on every window, with a device per window or one
// device for all; `times` gathers its steps.
double LoopFps(const std::vector<HWND>& windows, const xop::FrameImage& image, bool oneDevice,
               bench::StepTimes* times)
{
    std::vector<std::unique_ptr<bench::BaselineLoop>> loops;
    for (HWND w : windows) {
        ID3D11Device* shared = oneDevice && !loops.empty() ? loops.front()->Device() : nullptr;
        loops.emplace_back(new bench::BaselineLoop(w, kW, kH, shared));
        if (!loops.back()->Ok()) return 0.0;
        loops.back()->UseI420(image);
    }
    size_t next = 0;
    return bench::FramesPerSecond(
        [&] {
            loops[next]->Frame(times);
            next = (next + 1) % loops.size();
        },
        kRunMs);
}

std::vector<double> StepRow(const bench::StepTimes& t)
{
    const double n = t.frames > 0 ? t.frames / 1000.0 : 1.0;  // ms per frame
    return {t.upload / n, t.draw / n, t.present / n, (t.upload + t.draw + t.present) / n};
}

}  // namespace

int main()
{
    StagedSdk sdk("bench_windows");
    if (!sdk.bound || sdk.api.QuillonStartup() != 0) {
        fprintf(stderr, "cannot load QuillonSDK.dll\n");
        return 1;
    }
    std::vector<HWND> windows;
    for (int i = 0; i < kWindows; ++i)
        windows.push_back(testkit::CreateTestWindow(i % 4 * kW, i / 4 * kH, kW, kH, "quillon bench"));
    std::vector<uint8_t> picture = bench::Picture(kW, kH);
    const xop::FrameImage image = bench::I420Image(picture, kW, kH);
    const std::vector<HWND> first(windows.begin(), windows.begin() + 1);

    const double sdkOne = SdkFps(sdk.api, first, picture);
    bench::StepTimes oneSteps, allSteps, sharedSteps;
    const double loopOne = LoopFps(first, image, false, &oneSteps);
    const double sdkAll = SdkFps(sdk.api, windows, picture);
    const double loopAll = LoopFps(windows, image, false, &allSteps);
    const double loopShared = LoopFps(windows, image, true, &sharedSteps);
    for (HWND w : windows) DestroyWindow(w);

    auto ratio = [](double a, double b) { return a / (b > 0 ? b : 1.0); };
    bench::Table many("many_windows", "feeding", {"SDK fps", "baseline fps", "ratio"});
    many.Row("1 window alone", {sdkOne, loopOne, ratio(sdkOne, loopOne)});
    many.Row("16 windows, 16 devices", {sdkAll, loopAll, ratio(sdkAll, loopAll)});
    many.Row("16 windows, 1 device", {sdkAll, loopShared, ratio(sdkAll, loopShared)});
    many.Publish(2);

    bench::Table steps("many_windows_steps", "hand-written loop",
                       {"upload ms", "draw ms", "present ms", "frame ms"});
    steps.Row("1 window, 1 device", StepRow(oneSteps));
    steps.Row("16 windows, 16 devices", StepRow(allSteps));
    steps.Row("16 windows, 1 device", StepRow(sharedSteps));
    steps.Publish(3);
    sdk.api.QuillonCleanup();
    return 0;
}
