// Soak: two host threads, a window each, share cycles of a render object's life (create, device, five
// pictures, release), each hosting 32 decoder lives (create, set-up on its device through the FFmpeg test
// double, one frame, release). After a warm-up private memory stays flat: within eight 64 KB heap steps (flat
// runs grew by four), which one leaked codec context (864 bytes) per decoder life exceeds twice.
// QUILLON_SOAK_CYCLES sets the measured cycles.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <thread>

#include "testkit/staged_sdk.h"

namespace {

constexpr int kCycles = 40, kWarmUpCycles = 20, kDecoderLives = 32, kW = 64, kH = 48;
constexpr long long kAllowedGrowth = 512 << 10, kAllowedPerCycle = 2 << 10;

SdkCallLock g_calls;  // exclusive: create and release; shared: every other call
std::atomic<int> g_failures{0};  // calls that did not give their one right result

void Check(bool ok) { g_failures += !ok; }

void Cycle(QuillonSdkApi& sdk, HWND window, ShowFrameData show) {
    QuillonRenderHandle render = g_calls.Exclusive([&] { return sdk.QuillonRenderCreate(nullptr, 0); });
    RenderInitParam init = {};
    init.hWnd = window;
    Check(g_calls.Shared([&] { return sdk.QuillonRenderInitDevice(render, &init, sizeof(init)); }) == 0 && init.device);
    for (int i = 0; i < kDecoderLives; ++i) {
        QuillonDecoderHandle decoder = g_calls.Exclusive([&] { return sdk.QuillonDecoderCreate(nullptr, 0); });
        Check(g_calls.Shared([&] { return InitialH264(sdk, decoder, &init.device, 320, 240); }) == 0);
        DecodeRecords records(32);
        Check(g_calls.Shared([&] { return records.Decode(sdk, decoder); }) == 0);
        Check(g_calls.Exclusive([&] { return sdk.QuillonDecoderRelease(decoder); }) == 0);
    }
    for (int i = 0; i < 5; ++i)
        Check(g_calls.Shared([&] { return sdk.QuillonRenderShowFrame(render, &show, sizeof(show)); }) == 0);
    Check(g_calls.Exclusive([&] { return sdk.QuillonRenderRelease(render); }) == 1);
    testkit::PumpMessages();
}

void RunCycles(QuillonSdkApi& sdk, int cycles) {
    auto host = [&sdk, cycles](int t) {
        HWND window = testkit::CreateTestWindow(40 + t * 100, 40, kW, kH);
        std::vector<uint8_t> picture = SolidI420(kW, kH, 145, 54, 34);
        for (int i = t; i < cycles && g_failures == 0; i += 2) Cycle(sdk, window, CpuFrame(picture, kW, kH));
        DestroyWindow(window);
    };
    std::thread other(host, 1);
    host(0);
    other.join();
}

TEST(Soak, LivesOfRenderAndDecoderKeepMemoryFlat) {
    const int cycles = getenv("QUILLON_SOAK_CYCLES") ? atoi(getenv("QUILLON_SOAK_CYCLES")) : kCycles;
    StagedSdk sdk("robust_soak", testkit::kFfmpegDouble);
    ASSERT_TRUE(sdk.bound);
    ASSERT_EQ(0, sdk.api.QuillonStartup());
    RunCycles(sdk.api, kWarmUpCycles);
    const long long afterWarmUp = static_cast<long long>(testkit::PrivateBytes());
    RunCycles(sdk.api, cycles);
    ASSERT_EQ(0, g_failures.load());
    EXPECT_LT(static_cast<long long>(testkit::PrivateBytes()) - afterWarmUp,
              std::max(kAllowedGrowth, cycles * kAllowedPerCycle))
        << "private bytes after the warm-up: " << afterWarmUp;
    sdk.api.QuillonCleanup();
}

}  // namespace
