// Sixteen windows of 480 x 270 in a 4 x 4 grid, fed in turn with I420
// pictures (CPU-data path): sixteen SDK render objects against the hand-
// written loop making the same sixteen devices and swap chains and doing the
// same upload, draw and present in turn; and against one device with sixteen
// swap chains, the lower bound that one device per render object trades
// away; and against the loop taking the SDK's order of steps (picture drawn
// into a texture, copied into the back buffer, an empty Direct2D pass,
// multithread-protected device). Then where the hand-written loop's time
// goes with one device alive and with sixteen, and the SDK's renderer
// core's.
//
// Never two swap chains on one window at a time (the Vulkan stack cannot
// destroy such a device): each contender releases its swap chains before the
// next one makes its own.
#include <windows.h>

#include <cstdio>
#include <memory>
#include <vector>

#include "bench/baseline_loop.h"
#include "bench/bench_common.h"
#include "bench/sdk_helpers.h"
#include "xop/D3D11Renderer.h"

namespace {

constexpr int kWindows = 16, kW = 480, kH = 270;
constexpr DWORD kRunMs = 9000;  // per contender, in three turns: few pictures per second on stack 1

double SdkFps(QuillonSdkApi& sdk, const std::vector<HWND>& windows, std::vector<uint8_t>& picture, DWORD runMs)
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
        runMs);
    for (QuillonRenderHandle r : renders) sdk.QuillonRenderRelease(r);
    return fps;
}

// The hand-written loop on every window, with a device per window or one
// device for all; `times` gathers its steps.
double LoopFps(const std::vector<HWND>& windows, const xop::FrameImage& image, bool oneDevice,
               bench::StepTimes* times, DWORD runMs, bool sdkSteps = false)
{
    std::vector<std::unique_ptr<bench::BaselineLoop>> loops;
    for (HWND w : windows) {
        ID3D11Device* shared = oneDevice && !loops.empty() ? loops.front()->Device() : nullptr;
        loops.emplace_back(new bench::BaselineLoop(w, kW, kH, shared));
        if (!loops.back()->Ok() || (sdkSteps && !loops.back()->UseSdkSteps())) return 0.0;
        loops.back()->UseI420(image);
    }
    testkit::PumpMessages();
    size_t next = 0;
    return bench::FramesPerSecond(
        [&] {
            loops[next]->Frame(times);
            next = (next + 1) % loops.size();
        },
        runMs);
}

// The renderer core's frame steps as the SDK's CPU-data path runs them,
// with the Direct2D pass of PresentOutput timed on its own.
struct StepRenderer : xop::D3D11Renderer {
    using D3D11Renderer::m_d2dRenderTarget;
};

struct CoreTimes {
    double convert = 0, copy = 0, pass2d = 0, present = 0;
    int frames = 0;
};

double CoreFps(const std::vector<HWND>& windows, const xop::FrameImage& image, CoreTimes* t, DWORD runMs)
{
    std::vector<std::unique_ptr<StepRenderer>> renderers;
    for (HWND w : windows) {
        renderers.emplace_back(new StepRenderer);
        if (!renderers.back()->Init(w) || !renderers.back()->InitInputTextures(kW, kH, image.format)) return 0.0;
    }
    size_t next = 0;
    return bench::FramesPerSecond(
        [&] {
            StepRenderer& r = *renderers[next];
            next = (next + 1) % renderers.size();
            const double t0 = bench::Now();
            r.BeginFrame();
            r.UpdateFrame(image);
            r.ApplySharpen();
            const double t1 = bench::Now();
            Microsoft::WRL::ComPtr<ID2D1RenderTarget> target;
            target.Swap(r.m_d2dRenderTarget);
            r.PresentOutput(nullptr);  // the copy to the back buffer alone
            target.Swap(r.m_d2dRenderTarget);
            const double t2 = bench::Now();
            if (target) {
                target->BeginDraw();
                target->EndDraw();
            }
            const double t3 = bench::Now();
            r.PresentSwapChain();
            const double t4 = bench::Now();
            t->convert += t1 - t0;
            t->copy += t2 - t1;
            t->pass2d += t3 - t2;
            t->present += t4 - t3;
            ++t->frames;
        },
        runMs);
}

std::vector<double> CoreRow(const CoreTimes& t)
{
    const double n = t.frames > 0 ? t.frames / 1000.0 : 1.0;  // ms per frame
    return {t.convert / n, t.copy / n, t.pass2d / n, t.present / n, (t.convert + t.copy + t.pass2d + t.present) / n};
}

std::vector<double> StepRow(const bench::StepTimes& t)
{
    const double n = t.frames > 0 ? t.frames / 1000.0 : 1.0;  // ms per frame
    return {t.upload / n, t.draw / n, t.overlay / n, t.present / n, (t.upload + t.draw + t.overlay + t.present) / n};
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

    bench::StepTimes oneSteps, allSteps, sharedSteps, sdkOrderSteps;
    const std::vector<double> one = bench::Interleaved(
        {
            [&](DWORD ms) { return SdkFps(sdk.api, first, picture, ms); },
            [&](DWORD ms) { return LoopFps(first, image, false, &oneSteps, ms); },
        },
        3, kRunMs);
    const std::vector<double> all = bench::Interleaved(
        {
            [&](DWORD ms) { return SdkFps(sdk.api, windows, picture, ms); },
            [&](DWORD ms) { return LoopFps(windows, image, false, &allSteps, ms); },
            [&](DWORD ms) { return LoopFps(windows, image, true, &sharedSteps, ms); },
            [&](DWORD ms) { return LoopFps(windows, image, false, &sdkOrderSteps, ms, true); },
        },
        3, kRunMs);
    CoreTimes coreOne, coreAll;
    CoreFps(first, image, &coreOne, kRunMs / 3);
    CoreFps(windows, image, &coreAll, kRunMs / 3);
    for (HWND w : windows) DestroyWindow(w);

    auto ratio = [](double a, double b) { return a / (b > 0 ? b : 1.0); };
    bench::Table many("many_windows", "feeding", {"SDK fps", "baseline fps", "ratio"});
    many.Row("1 window alone", {one[0], one[1], ratio(one[0], one[1])});
    many.Row("16 windows, 16 devices", {all[0], all[1], ratio(all[0], all[1])});
    many.Row("16 windows, 1 device", {all[0], all[2], ratio(all[0], all[2])});
    many.Row("16 windows, SDK's steps", {all[0], all[3], ratio(all[0], all[3])});
    many.Publish(2);

    bench::Table steps("many_windows_steps", "hand-written loop",
                       {"upload ms", "draw(+copy) ms", "2D pass ms", "present ms", "frame ms"});
    steps.Row("1 window, 1 device", StepRow(oneSteps));
    steps.Row("16 windows, 16 devices", StepRow(allSteps));
    steps.Row("16 windows, 1 device", StepRow(sharedSteps));
    steps.Row("16 windows, SDK's steps", StepRow(sdkOrderSteps));
    steps.Publish(3);

    bench::Table core("many_windows_sdk_steps", "renderer core",
                      {"upload+convert ms", "copy ms", "2D pass ms", "present ms", "frame ms"});
    core.Row("1 window, 1 device", CoreRow(coreOne));
    core.Row("16 windows, 16 devices", CoreRow(coreAll));
    core.Publish(3);
    sdk.api.QuillonCleanup();
    return 0;
}
