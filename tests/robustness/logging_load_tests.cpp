// Logging under load: eight threads make the library write error records
// (unknown handles on eight different exports) for a few seconds. Every
// record in Velmor.dll's log file must be whole: date stamp, position line
// and message together on one line, in that order, with the position that
// belongs to the export the thread called; none may be lost.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <regex>
#include <thread>

#include "testkit/staged_sdk.h"

namespace {

constexpr int kThreads = 8;
constexpr DWORD kRunMs = 3000;

const struct {
    const char* manager;
    const char* func;
    int line;
    int (*call)(QuillonSdkApi&, void*);
} kCallers[kThreads] = {
    {"Decoder", "Initial", 65, [](QuillonSdkApi& s, void* h) { return s.QuillonDecoderInitial(h, nullptr, nullptr); }},
    {"Decoder", "DecodeOneFrame", 77,
     [](QuillonSdkApi& s, void* h) { return s.QuillonDecoderDecodeOneFrame(h, nullptr, 0, nullptr); }},
    {"Decoder", "Release", 89, [](QuillonSdkApi& s, void* h) { return s.QuillonDecoderRelease(h); }},
    {"Render", "InitDevice", 68, [](QuillonSdkApi& s, void* h) { return s.QuillonRenderInitDevice(h, nullptr, 0); }},
    {"Render", "ShowFrame", 80, [](QuillonSdkApi& s, void* h) { return s.QuillonRenderShowFrame(h, nullptr, 0); }},
    {"Render", "GetDrawInfo", 103, [](QuillonSdkApi& s, void* h) { return s.QuillonRenderGetDrawInfo(h, nullptr, 0); }},
    {"Render", "SetWnd", 113, [](QuillonSdkApi& s, void* h) { return s.QuillonRenderSetWnd(h, nullptr); }},
    {"Render", "Config", 123, [](QuillonSdkApi& s, void* h) { return s.QuillonRenderConfig(h, 5, nullptr, 0); }},
};

TEST(LoggingUnderLoad, EveryRecordIsWholeAndNoneIsLost)
{
    StagedSdk sdk("robust_logging");
    ASSERT_TRUE(sdk.bound);
    ASSERT_EQ(0, sdk.api.QuillonStartup());
    const size_t before = testkit::ReadFile(sdk.LogPath()).size();

    std::atomic<bool> stop{false};
    std::atomic<int> wrongResults{0};
    std::vector<int> calls(kThreads, 0), seen(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            void* never = reinterpret_cast<void*>(0x7000 + t * 16);  // not a handle
            for (; !stop; ++calls[t]) wrongResults += kCallers[t].call(sdk.api, never) != -1;
        });
    }
    Sleep(kRunMs);
    stop = true;
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(0, wrongResults.load());

    const std::string log = testkit::ReadFile(sdk.LogPath()).substr(before);
    const std::regex record(R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] file: (\S+), func:(\S+), line: (\d+) IsHandleValid faild!)");
    int broken = 0, total = 0;
    for (const std::string& line : testkit::SplitLines(log)) {
        std::smatch m;
        int who = -1;
        const bool whole = std::regex_match(line, m, record);
        for (int t = 0; t < kThreads && whole; ++t) {
            const std::string manager = std::string("CLS_") + kCallers[t].manager + "Manager";
            if (m[1] == "interface/" + manager + ".cpp" && m[2] == manager + "::" + kCallers[t].func &&
                std::stoi(m[3]) == kCallers[t].line)
                who = t;
        }
        if (who >= 0) ++seen[who];
        else if (++broken <= 5) ADD_FAILURE() << "broken record: " << line;
    }
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(calls[t], seen[t]) << kCallers[t].func;
        EXPECT_GT(calls[t], 0);
        total += calls[t];
    }
    printf("logging: %d records from %d threads in %.1f s, %d broken\n", total, kThreads, kRunMs / 1000.0, broken);
    EXPECT_EQ(0, broken);
    sdk.api.QuillonCleanup();
}

}  // namespace
