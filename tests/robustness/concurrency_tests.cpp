// Concurrency and window storms: host threads each drive a window, a render object and a decoder (FFmpeg
// test double) of their own, as a video-wall host does: pictures (on stack 2 also from a decoder-shaped
// texture array), overlays from inside the draw callback, zoom, destination rectangle, callback changes,
// GetDrawInfo and decoding, while the window is resized (on stack 1; also to 0 x 0) and minimised and the
// render object visits another window. Eight more threads call eight exports with a handle never issued.
// Every call must return what the interface allows, each tile end with its last picture and overlay, and
// every log record be whole; none lost.
#include <atomic>
#include <memory>
#include <mutex>
#include <random>
#include <regex>
#include <thread>

#include "tests/render/render_fixture.h"

namespace {

constexpr DWORD kRunMs = 3000;
constexpr int kMinPictures = 32;  // however slow the stack
constexpr int kTileW = 200, kTileH = 150, kPicW = 64, kPicH = 48;

SdkCallLock g_calls;  // exclusive: create and release; shared: every other call
std::mutex g_textLock, g_faultsLock;
std::vector<std::string> g_faults;   // the first twenty results the interface does not allow
std::atomic<int> g_ready{0};         // threads whose last picture is up
std::atomic<int> g_emptyClients{0};  // resizes to 0 x 0 that left no client area
std::atomic<bool> g_checked{false};  // the screen has been read

void Expect(bool ok, int tile, const std::string& what) {
    if (ok) return;
    std::lock_guard<std::mutex> guard(g_faultsLock);
    if (g_faults.size() < 20) g_faults.push_back("tile " + std::to_string(tile) + ": " + what);
}

// Callers with a handle never issued, and the position of the record each call writes.
using Sdk = QuillonSdkApi&;
const struct { const char* manager; const char* func; int line; int (*call)(Sdk, void*); } kCallers[] = {
    {"Decoder", "Initial", 65, [](Sdk s, void* h) { return s.QuillonDecoderInitial(h, nullptr, nullptr); }},
    {"Decoder", "DecodeOneFrame", 77, [](Sdk s, void* h) { return s.QuillonDecoderDecodeOneFrame(h, nullptr, 0, 0); }},
    {"Decoder", "Release", 89, [](Sdk s, void* h) { return s.QuillonDecoderRelease(h); }},
    {"Render", "InitDevice", 68, [](Sdk s, void* h) { return s.QuillonRenderInitDevice(h, nullptr, 0); }},
    {"Render", "ShowFrame", 80, [](Sdk s, void* h) { return s.QuillonRenderShowFrame(h, nullptr, 0); }},
    {"Render", "GetDrawInfo", 103, [](Sdk s, void* h) { return s.QuillonRenderGetDrawInfo(h, nullptr, 0); }},
    {"Render", "SetWnd", 113, [](Sdk s, void* h) { return s.QuillonRenderSetWnd(h, nullptr); }},
    {"Render", "Config", 123, [](Sdk s, void* h) { return s.QuillonRenderConfig(h, 5, nullptr, 0); }},
};
constexpr int kCallerCount = 8;

// Tile i's colour as the I420 shader shows it (BT.601): tiles i and i + 5 differ by 50 in luma.
Yuv TileYuv(int i) { return {80 + i % 3 * 50, 108 + i / 3 % 3 * 20, 108 + i / 9 % 3 * 20}; }
Rgb TileColour(int i) { return testkit::Bt601ToRgb(TileYuv(i)); }

struct Tile {
    int index = 0;
    QuillonSdkApi* sdk = nullptr;
    QuillonRenderHandle render = nullptr;
    DWORD threadId = 0;
    HWND window = nullptr, spare = nullptr;  // the spare is another window the render object visits

    // One call under the shared lock, its result checked.
    void Do(const char* what, const std::function<int()>& call, int want = 0) {
        const int r = g_calls.Shared(call);
        Expect(r == want, index, std::string(what) + " gave " + std::to_string(r));
    }
    template <typename T>
    void Config(unsigned command, T payload) {
        Do("QuillonRenderConfig", [&] { return sdk->QuillonRenderConfig(render, command, &payload, sizeof(T)); });
    }
    void Show(ShowFrameData f) {
        Do("QuillonRenderShowFrame", [&] { return sdk->QuillonRenderShowFrame(render, &f, sizeof(f)); });
    }
    void Resize(int w, int h) {
        SetWindowPos(window, nullptr, 0, 0, w, h, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
        testkit::PumpMessages();
    }
    RenderInitParam Open(int x, int y, const char* title);
    void Run(int tile, QuillonSdkApi* api, DWORD deadline);
};

// The tile's overlay, issued from inside the callback (under the lock its
// ShowFrame holds): a white line along the top, a text and a hatched region.
void QUILLON_CALL DrawTileOverlay(ShowFrameData* frame, void* user) {
    Tile* t = static_cast<Tile*>(user);
    Expect(frame && GetCurrentThreadId() == t->threadId, t->index, "callback without frame or on another thread");
    OverlayParam line = {0, 0xFFFFFF, 2, 2, {{0, 4}, {kTileW, 4}}, "", 0.0f, 0, 0, {}};
    OverlayParam text = {0, 0xFFFFFF, 12, 2, {{6, 12}, {kTileW - 6, 34}}, "", 0.0f, 0, 0, {}};
    snprintf(text.text, sizeof(text.text), "tile %d", t->index);
    OverlayParam hatch = {0, 0x808080, 2, 4, {{120, 50}, {180, 50}, {180, 90}, {120, 90}}, "", 0.0f, 0, 0, {}};
    for (auto [command, p] : {std::pair{QUILLON_CMD_DRAW_LINE, &line}, std::pair{QUILLON_CMD_DRAW_TEXT, &text},
                              std::pair{QUILLON_CMD_DRAW_BLURRY, &hatch}}) {
        // Wine 8's shared DirectWrite factory (not Windows') crashes making text formats on several threads at once.
        std::unique_lock<std::mutex> guard(g_textLock, std::defer_lock);
        if (command == QUILLON_CMD_DRAW_TEXT && !testkit::OnNv12Stack()) guard.lock();
        const int r = t->sdk->QuillonRenderConfig(t->render, command, p, sizeof(*p));
        Expect(r == 0, t->index, "Config " + std::to_string(command) + " in the callback gave " + std::to_string(r));
    }
}

// The tile's window at (x, y) and its render object set up on it, the overlay callback installed; on this
// thread. Returns the record InitDevice filled.
RenderInitParam Tile::Open(int x, int y, const char* title) {
    threadId = GetCurrentThreadId();
    window = testkit::CreateTestWindow(x, y, kTileW, kTileH, title);
    render = g_calls.Exclusive([&] { return sdk->QuillonRenderCreate(nullptr, 0); });
    Expect(render != nullptr, index, "QuillonRenderCreate");
    RenderInitParam init = {};
    init.hWnd = window;
    Do("QuillonRenderInitDevice", [&] { return sdk->QuillonRenderInitDevice(render, &init, sizeof(init)); });
    Config(QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{DrawTileOverlay, this});
    return init;
}

void Tile::Run(int tile, QuillonSdkApi* api, DWORD deadline) {
    index = tile;
    sdk = api;
    RenderInitParam init = Open(index % 4 * kTileW, index / 4 * kTileH, "concurrency");
    spare = testkit::CreateTestWindow(index * 70, 4 * kTileH + 20, 64, 64, "concurrency spare");
    QuillonDecoderHandle decoder = g_calls.Exclusive([&] { return sdk->QuillonDecoderCreate(nullptr, 0); });
    Expect(decoder != nullptr, index, "QuillonDecoderCreate");
    Do("QuillonDecoderInitial", [&] { return InitialH264(*sdk, decoder, &init.device, 320, 240); });

    // Own colour in CPU picture 1 and pool slice 1, another tile's in picture 0 and slice 2.
    const int other = (index + 5) % 16;
    const Yuv mine = TileYuv(index), theirs = TileYuv(other);
    std::vector<uint8_t> colours[2] = {SolidI420(kPicW, kPicH, theirs.y, theirs.u, theirs.v),
                                       SolidI420(kPicW, kPicH, mine.y, mine.u, mine.v)};
    std::unique_ptr<testkit::DecoderPool> pool;
    if (testkit::OnNv12Stack()) {
        pool.reset(new testkit::DecoderPool(static_cast<ID3D11Device*>(init.device), kPicW, kPicH, 4));
        for (int slice = 1; slice <= 2; ++slice) {
            const Yuv c = testkit::Bt709FromRgb(TileColour(slice == 1 ? index : other));
            Expect(pool->Ok() && pool->Write(slice, {pool->Width(), pool->Height(), c}), index, "pool");
        }
    }
    auto frameOf = [&](bool mine, bool fromPool) {
        return fromPool && pool ? Slice(pool->Texture(), mine ? 1 : 2, kPicW, kPicH)
                                : CpuFrame(colours[mine], kPicW, kPicH);
    };
    DecodeRecords records(32);
    std::mt19937 rng(index);
    // Stack 1: a new window size for every picture (now and then 0 x 0) and a visit to the spare every eight.
    // Stack 2's winevulkan now and then asserts when sixteen threads re-make swap chains that often (three
    // runs in ten): there the window keeps its size and the render object visits the spare once.
    const bool storm = !testkit::OnNv12Stack();
    for (int i = 0; GetTickCount() < deadline || i < kMinPictures; ++i) {
        const bool empty = storm && i % 16 == 15;
        if (storm) Resize(empty ? 0 : 1 + rng() % kTileW, empty ? 0 : 1 + rng() % kTileH);
        RECT c;
        g_emptyClients += empty && GetClientRect(window, &c) && c.right == 0 && c.bottom == 0;
        const ShowFrameData frame = frameOf(i % 2, i % 4 >= 2);
        Show(frame);
        Do("QuillonDecoderDecodeOneFrame", [&] { return records.Decode(*sdk, decoder); });
        DrawInfo info = {};
        switch (i % 8) {
        case 1:
            Config(QUILLON_CMD_EZOOM_AREA, EZoomArea{0.25 * (i % 3), 0.0, 1.0, 1.0});
            Config(QUILLON_CMD_SET_DST_RECT, i % 16 == 1 ? DstRect{} : DstRect{10, 0, kTileW / 2, kTileH / 2});
            break;
        case 2:
            Config(QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{i % 16 == 2 ? nullptr : DrawTileOverlay, this});
            break;
        case 3:
            Do("QuillonRenderGetDrawInfo", [&] { return sdk->QuillonRenderGetDrawInfo(render, &info, sizeof(info)); });
            Expect(info.device == init.device, index, "QuillonRenderGetDrawInfo's device");
            break;
        case 5:
            ShowWindow(window, SW_MINIMIZE);
            testkit::PumpMessages();
            Show(frame);
            ShowWindow(window, SW_RESTORE);
            break;
        case 6: {
            if (!storm && i != 6) break;
            // Over to the spare (which must show the own colour below the text) and back; not straight
            // onto its own window: the Vulkan stack cannot have two swap chains on one.
            Do("QuillonRenderSetWnd", [&] { return sdk->QuillonRenderSetWnd(render, spare); });
            const ShowFrameData own = frameOf(true, false);
            Show(own);
            if (i == 6)
                Expect(ScreenFault(spare, 32, 50, TileColour(index), 24, [&] { Show(own); }) == "", index, "spare");
            Do("QuillonRenderSetWnd", [&] { return sdk->QuillonRenderSetWnd(render, window); });
            break;
        }
        }
    }

    // The last picture, own colour on the whole target with the overlay;
    // from the pool on even tiles where there is one.
    Resize(kTileW, kTileH);
    Config(QUILLON_CMD_SET_DST_RECT, DstRect{0, 0, 0, 0});
    Config(QUILLON_CMD_EZOOM_AREA, EZoomArea{0.0, 0.0, 1.0, 1.0});
    Config(QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{DrawTileOverlay, this});
    const ShowFrameData last = frameOf(true, index % 2 == 0);
    Show(last);
    Show(last);
    ++g_ready;
    // A picture presented right after its swap chain was re-made may reach the screen only after a later
    // present (the Vulkan stack; now and then Wine 8 after a storm of resizes): shown again until it is read.
    for (int k = 0; !g_checked; ++k) {
        testkit::PumpMessages();
        Sleep(50);
        if (k % 4 == 3) Show(last);
    }
    Expect(g_calls.Exclusive([&] { return sdk->QuillonDecoderRelease(decoder); }) == 0, index, "decoder release");
    Expect(g_calls.Exclusive([&] { return sdk->QuillonRenderRelease(render); }) == 1, index, "render release");
    DestroyWindow(window);
    DestroyWindow(spare);
}

// Each device compiles its pipelines through lavapipe's shader cache. With that cache empty (a new stack-2
// root), sixteen threads compiling at once make winevulkan crash now and then (4 runs in 10 with the cache
// off, none in 17 with it filled): one tile's pictures and overlays, shown alone first, fill it.
void FillShaderCache(QuillonSdkApi& api) {
    Tile warm;
    warm.sdk = &api;
    const RenderInitParam init = warm.Open(1000, 0, "concurrency warm-up");
    std::vector<uint8_t> picture = SolidI420(kPicW, kPicH, 80, 108, 108);
    testkit::DecoderPool pool(static_cast<ID3D11Device*>(init.device), kPicW, kPicH, 4);
    warm.Show(CpuFrame(picture, kPicW, kPicH));
    warm.Show(Slice(pool.Texture(), 1, kPicW, kPicH));
    api.QuillonRenderRelease(warm.render);
    DestroyWindow(warm.window);
}

TEST(Concurrency, HostThreadsEachDrivingATileKeepEveryResultPictureAndRecordWhole) {
    StagedSdk sdk("robust_concurrency", testkit::kFfmpegDouble);
    ASSERT_TRUE(sdk.bound);
    ASSERT_EQ(0, sdk.api.QuillonStartup());
    // Stack 1 presents slowly with several devices: four tiles there, sixteen on stack 2.
    const int n = testkit::OnNv12Stack() ? 16 : 4;
    if (testkit::OnNv12Stack()) FillShaderCache(sdk.api);
    std::vector<Tile> tiles(n);
    std::vector<std::thread> threads;
    const DWORD start = GetTickCount();
    for (int i = 0; i < n; ++i) threads.emplace_back([&, i] { tiles[i].Run(i, &sdk.api, start + kRunMs); });
    std::vector<int> calls(kCallerCount, 0), seen(kCallerCount, 0);
    for (int c = 0; c < kCallerCount; ++c) {
        threads.emplace_back([&, c] {
            void* never = reinterpret_cast<void*>(0x7000 + c * 16);
            for (; GetTickCount() - start < kRunMs; ++calls[c]) {
                const int r = g_calls.Shared([&] { return kCallers[c].call(sdk.api, never); });
                Expect(r == -1, c, std::string(kCallers[c].func) + " (never issued) gave " + std::to_string(r));
            }
        });
    }
    // A hung thread ends the run at once (its calls cannot be unwound).
    for (int waited = 0; g_ready < n && waited < 120000; waited += 50) Sleep(50);
    if (g_ready < n) {
        fprintf(stderr, "concurrency: threads did not finish in 120 s\n");
        TerminateProcess(GetCurrentProcess(), 1);
    }
    // Each tile's own colour (no destination rectangle left, no other tile's
    // picture or slice) and its white line at the top, drawn by the callback.
    for (const Tile& t : tiles) {
        EXPECT_EQ(ScreenFault(t.window, kTileW - 3, kTileH - 3, TileColour(t.index), 24), "") << "tile " << t.index;
        EXPECT_EQ(ScreenFault(t.window, kTileW / 2, kTileH / 2, TileColour(t.index), 24), "") << "tile " << t.index;
        EXPECT_EQ(ScreenFault(t.window, kTileW / 2, 4, {255, 255, 255}, 48), "") << "tile " << t.index << "'s line";
    }
    g_checked = true;
    for (std::thread& th : threads) th.join();
    if (!testkit::OnNv12Stack()) {
        EXPECT_GT(g_emptyClients, 0);  // the 0 x 0 sizes really were empty
    }
    sdk.api.QuillonCleanup();
    for (const std::string& f : g_faults) ADD_FAILURE() << f;

    // Every log line is the date stamp and one message this run can write.
    static const std::regex kRecord(
        R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] ()"
        R"(file: ([\w/.]+, func:[\w:]+, line: \d+) )"
        R"((\[QuillonStartup\] already Startup!|CHECK_(UN)?EQUAL_RETURN|IsHandleValid faild!))"
        R"(|CLS_D3D11vaDraw::ShowFrame Windows Size Changed Recreate Render|load ffmpeg lib ffmpeg-7\.dll success!)"
        R"(|\[CLS_D3D11vaDecoder\](we got \d+ decoder configurations |configuration\[\d\] ConfigBitstreamRaw \d )"
        R"(|CheckIsDeviceSupport Success _iWidth = 320 _iHeight = 240 H264 profileid = \w+)))");
    std::vector<std::string> positions;  // of each caller's records
    for (const auto& c : kCallers)
        positions.push_back(std::string("interface/CLS_") + c.manager + "Manager.cpp, func:CLS_" + c.manager +
                            "Manager::" + c.func + ", line: " + std::to_string(c.line));
    int decoderRecords = 0, broken = 0;
    for (const std::string& line : testkit::SplitLines(testkit::ReadFile(sdk.LogPath()))) {
        decoderRecords += line.find("] [CLS_D3D11vaDecoder]") != std::string::npos;
        std::smatch m;
        if (!std::regex_match(line, m, kRecord) && ++broken <= 10) ADD_FAILURE() << "broken log record: " << line;
        for (int c = 0; c < kCallerCount && m[3] == "IsHandleValid faild!"; ++c) seen[c] += m[2] == positions[c];
    }
    EXPECT_EQ(4 * n, decoderRecords);  // each decoder's set-up writes four
    for (int c = 0; c < kCallerCount; ++c) EXPECT_TRUE(calls[c] > 0 && seen[c] == calls[c]) << kCallers[c].func;
}

}  // namespace
