// Logging under load: eight threads call eight exports with a handle never
// issued for a few seconds. Each call must return -1 and leave one whole
// record in Velmor.dll's log file (date stamp, then the position of its own
// export's handle check and the message, on one line); none may be lost.
#include <gtest/gtest.h>

#include <atomic>
#include <regex>
#include <thread>

#include "testkit/staged_sdk.h"

namespace {

constexpr int kThreads = 8;
constexpr DWORD kRunMs = 3000;

const struct {
    const char* func;  // CLS_<manager>Manager::<func>, the check's line
    int line;
    int (*call)(QuillonSdkApi&, void*);
} kCallers[kThreads] = {
    {"Decoder::Initial", 65, [](QuillonSdkApi& s, void* h) { return s.QuillonDecoderInitial(h, nullptr, nullptr); }},
    {"Decoder::DecodeOneFrame", 77,
     [](QuillonSdkApi& s, void* h) { return s.QuillonDecoderDecodeOneFrame(h, nullptr, 0, nullptr); }},
    {"Decoder::Release", 89, [](QuillonSdkApi& s, void* h) { return s.QuillonDecoderRelease(h); }},
    {"Render::InitDevice", 68, [](QuillonSdkApi& s, void* h) { return s.QuillonRenderInitDevice(h, nullptr, 0); }},
    {"Render::ShowFrame", 80, [](QuillonSdkApi& s, void* h) { return s.QuillonRenderShowFrame(h, nullptr, 0); }},
    {"Render::GetDrawInfo", 103, [](QuillonSdkApi& s, void* h) { return s.QuillonRenderGetDrawInfo(h, nullptr, 0); }},
    {"Render::SetWnd", 113, [](QuillonSdkApi& s, void* h) { return s.QuillonRenderSetWnd(h, nullptr); }},
    {"Render::Config", 123, [](QuillonSdkApi& s, void* h) { return s.QuillonRenderConfig(h, 5, nullptr, 0); }},
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
            void* never = reinterpret_cast<void*>(0x7000 + t * 16);
            for (; !stop; ++calls[t]) wrongResults += kCallers[t].call(sdk.api, never) != -1;
        });
    }
    Sleep(kRunMs);
    stop = true;
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(0, wrongResults.load());

    const std::regex record(R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] )"
                            R"(file: interface/CLS_(\w+)Manager\.cpp, func:CLS_\1Manager::(\w+), line: (\d+) )"
                            R"(IsHandleValid faild!)");
    int broken = 0;
    for (const std::string& line : testkit::SplitLines(testkit::ReadFile(sdk.LogPath()).substr(before))) {
        std::smatch m;
        int who = -1;
        const bool whole = std::regex_match(line, m, record);  // once per line: it is slow
        for (int t = 0; t < kThreads && whole; ++t)
            who = m[1].str() + "::" + m[2].str() == kCallers[t].func && std::stoi(m[3]) == kCallers[t].line ? t : who;
        if (who >= 0) ++seen[who];
        else if (++broken <= 5) ADD_FAILURE() << "broken record: " << line;
    }
    EXPECT_EQ(0, broken);
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_GT(calls[t], 0) << kCallers[t].func;
        EXPECT_EQ(calls[t], seen[t]) << kCallers[t].func;
    }
    sdk.api.QuillonCleanup();
}

}  // namespace
