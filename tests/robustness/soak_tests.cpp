// Soak: cycles of a render object's whole life (create, device on a window,
// five pictures, release), each hosting several lives of a decoder (create,
// set-up on the renderer's device through the FFmpeg test double, one
// frame, release). Private memory may grow while caches fill during a short
// warm-up; after that it must stay flat. The allowance (eight of the heap's
// 64 KB steps: a flat run has been seen to grow by four) is small enough
// that one leaked codec context (864 bytes) per decoder life exceeds it
// twice over, and a leaked device or swap chain per render life far more.
//
// CTest runs 40 measured cycles. QUILLON_SOAK_CYCLES sets another count:
// `cmake --build <build> --target soak` runs 1,000 (allowing 2 KB a cycle).
//
// Two host threads share the cycles, each with its own window, as a
// video-wall host would; like such a host they serialise creation and
// release against every other call (a shared/exclusive lock).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "testkit/staged_sdk.h"

namespace {

constexpr int kCycles = 40, kWarmUpCycles = 20, kDecoderLives = 32, kThreads = 2;
constexpr long long kAllowedGrowth = 512 << 10, kAllowedPerCycle = 2 << 10;
constexpr int kW = 64, kH = 48;

SdkCallLock g_calls;  // exclusive: create and release; shared: every other call
std::atomic<int> g_failures{0};

void Check(bool ok, const char* what)
{
    if (!ok && g_failures++ < 5) fprintf(stderr, "soak: %s failed\n", what);
}

// One cycle of each life.
void Cycle(QuillonSdkApi& sdk, HWND window, std::vector<uint8_t>& picture)
{
    QuillonRenderHandle render = g_calls.Exclusive([&] { return sdk.QuillonRenderCreate(nullptr, 0); });
    RenderInitParam init = {};
    init.hWnd = window;
    Check(g_calls.Shared([&] { return sdk.QuillonRenderInitDevice(render, &init, sizeof(init)); }) == 0 && init.device,
          "QuillonRenderInitDevice");
    for (int i = 0; i < kDecoderLives; ++i) {
        QuillonDecoderHandle decoder = g_calls.Exclusive([&] { return sdk.QuillonDecoderCreate(nullptr, 0); });
        Check(g_calls.Shared([&] { return InitialH264(sdk, decoder, &init.device, 320, 240); }) == 0,
              "QuillonDecoderInitial");
        DecodeRecords records(32);
        Check(g_calls.Shared([&] { return records.Decode(sdk, decoder); }) == 0, "QuillonDecoderDecodeOneFrame");
        Check(g_calls.Exclusive([&] { return sdk.QuillonDecoderRelease(decoder); }) == 0, "QuillonDecoderRelease");
    }
    ShowFrameData show = CpuFrame(picture, kW, kH);
    for (int i = 0; i < 5; ++i)
        Check(g_calls.Shared([&] { return sdk.QuillonRenderShowFrame(render, &show, sizeof(show)); }) == 0,
              "QuillonRenderShowFrame");
    Check(g_calls.Exclusive([&] { return sdk.QuillonRenderRelease(render); }) == 1, "QuillonRenderRelease");
    testkit::PumpMessages();
}

// `cycles` cycles shared by the host threads, each on a window of its own.
void RunCycles(QuillonSdkApi& sdk, int cycles)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&sdk, cycles, t] {
            HWND window = testkit::CreateTestWindow(40 + t * 100, 40, kW, kH, "soak");
            std::vector<uint8_t> picture = SolidI420(kW, kH, 145, 54, 34);
            for (int i = t; i < cycles && g_failures == 0; i += kThreads) Cycle(sdk, window, picture);
            DestroyWindow(window);
        });
    }
    for (std::thread& th : threads) th.join();
}

TEST(Soak, LivesOfRenderAndDecoderKeepMemoryFlat)
{
    const char* requested = getenv("QUILLON_SOAK_CYCLES");
    const int cycles = requested && atoi(requested) > 0 ? atoi(requested) : kCycles;
    const long long allowed = std::max(kAllowedGrowth, cycles * kAllowedPerCycle);
    StagedSdk sdk("robust_soak", testkit::kFfmpegDouble);
    ASSERT_TRUE(sdk.bound);
    ASSERT_EQ(0, sdk.api.QuillonStartup());

    const DWORD start = GetTickCount();
    RunCycles(sdk.api, kWarmUpCycles);
    const size_t afterWarmUp = testkit::PrivateBytes();
    const double warmUpSeconds = (GetTickCount() - start) / 1000.0;
    RunCycles(sdk.api, cycles);
    const size_t end = testkit::PrivateBytes();
    ASSERT_EQ(0, g_failures.load());

    const long long growth = static_cast<long long>(end) - static_cast<long long>(afterWarmUp);
    printf("soak: %d warm-up + %d measured cycles (%d decoder lives each) in %.1f s (warm-up %.1f s); "
           "private bytes after warm-up %zu, at the end %zu, growth %lld bytes (allowed %lld)\n",
           kWarmUpCycles, cycles, kDecoderLives, (GetTickCount() - start) / 1000.0, warmUpSeconds, afterWarmUp, end,
           growth, allowed);
    EXPECT_LT(growth, allowed);
    sdk.api.QuillonCleanup();
}

}  // namespace
