// Concurrency: host threads each drive a window, a render object and a
// decoder (on the FFmpeg test double) of their own for a few seconds, as a
// video-wall host does: pictures, overlay commands from inside the draw
// callback, zoom, destination rectangle and callback changes from outside
// it, window resizes, minimise and restore, QuillonRenderGetDrawInfo,
// QuillonRenderSetWnd and decoding. Like such a host, the threads serialise
// creation and release against every other call (a shared/exclusive lock).
// Where NV12 textures can be sampled (stack 2), half of the pictures come
// from a decoder-shaped texture array on the thread's own renderer device.
//
// Afterwards every tile shows its own last picture with its own overlay,
// every call returned what the interface allows, and every line of the log
// file written by Velmor.dll is one whole record.
#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <regex>
#include <thread>

#include "tests/render/render_fixture.h"

namespace {

constexpr DWORD kRunMs = 3000;
constexpr int kTileW = 200, kTileH = 150;  // each thread's window
constexpr int kPicW = 64, kPicH = 48;

SdkCallLock g_calls;  // exclusive: create and release; shared: every other call
std::mutex g_textLock;
std::atomic<int> g_pictures{0}, g_ready{0};  // threads whose last picture is up
std::atomic<bool> g_checked{false};          // the screen has been read

// Results the interface does not allow, the first twenty.
std::mutex g_faultsLock;
std::vector<std::string> g_faults;

void Expect(bool ok, int thread, const char* call, long long got)
{
    if (ok) return;
    std::lock_guard<std::mutex> guard(g_faultsLock);
    if (g_faults.size() < 20)
        g_faults.push_back("thread " + std::to_string(thread) + ": " + call + " gave " + std::to_string(got));
}

// Sixteen colours at least 96 apart in some channel.
Rgb TileColour(int i)
{
    static const int kLevels[3] = {32, 128, 224};
    return {kLevels[i % 3], kLevels[i / 3 % 3], kLevels[i / 9 % 3]};
}

// A picture of one colour (BT.601, studio range, as the I420 shader reads it).
std::vector<uint8_t> Picture(Rgb c)
{
    const double y = 16 + (65.481 * c.r + 128.553 * c.g + 24.966 * c.b) / 255;
    const double u = 128 + (-37.797 * c.r - 74.203 * c.g + 112.0 * c.b) / 255;
    const double v = 128 + (112.0 * c.r - 93.786 * c.g - 18.214 * c.b) / 255;
    return SolidI420(kPicW, kPicH, static_cast<uint8_t>(y + 0.5), static_cast<uint8_t>(u + 0.5),
                     static_cast<uint8_t>(v + 0.5));
}

// One host thread and what its draw callback sees.
struct Tile {
    int index = 0;
    QuillonSdkApi* sdk = nullptr;
    QuillonRenderHandle render = nullptr;
    DWORD threadId = 0;
    HWND window = nullptr, spare = nullptr;  // the spare is another window the render object visits
    std::atomic<int> callbacks{0}, pictures{0};

    int Shared(const std::function<int()>& call) { return g_calls.Shared(call); }
    void Check(const char* what, const std::function<int()>& call, int want = 0)
    {
        const int r = Shared(call);
        Expect(r == want, index, what, r);
    }
    template <typename T>
    void Config(unsigned command, T payload)
    {
        Check("QuillonRenderConfig", [&] { return sdk->QuillonRenderConfig(render, command, &payload, sizeof(T)); });
    }
    void Show(const ShowFrameData& f, const char* what = "QuillonRenderShowFrame")
    {
        Check(what, [&] { return sdk->QuillonRenderShowFrame(render, const_cast<ShowFrameData*>(&f), sizeof(f)); });
    }
    void Resize(int w, int h)
    {
        SetWindowPos(window, nullptr, 0, 0, w, h, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
        testkit::PumpMessages();
    }
    void Run(DWORD deadline);
};

// The tile's overlay: a white line along the top, a text and a hatched
// region; all three commands are issued from inside the callback (which runs
// under the lock its ShowFrame holds).
void QUILLON_CALL DrawTileOverlay(ShowFrameData* frame, void* user)
{
    Tile* t = static_cast<Tile*>(user);
    Expect(frame != nullptr, t->index, "draw callback's frame", 0);
    Expect(GetCurrentThreadId() == t->threadId, t->index, "draw callback on another thread", GetCurrentThreadId());
    ++t->callbacks;
    OverlayParam p = {0, 0xFFFFFF, 2, 2, {{0, 4}, {kTileW, 4}}, "", 0.0f, 0, 0, {}};
    int r = t->sdk->QuillonRenderConfig(t->render, QUILLON_CMD_DRAW_LINE, &p, sizeof(p));
    Expect(r == 0, t->index, "Config 2", r);
    p = {0, 0xFFFFFF, 12, 2, {{6, 12}, {kTileW - 6, 34}}, "", 0.0f, 0, 0, {}};
    snprintf(p.text, sizeof(p.text), "tile %d", t->index);
    {
        // Wine 8's DirectWrite is not thread-safe: text formats made on its
        // shared factory from several threads at once crash inside it
        // (Windows' shared factory is thread-safe). On that stack the host
        // draws one text at a time.
        std::unique_lock<std::mutex> guard(g_textLock, std::defer_lock);
        if (!testkit::OnNv12Stack()) guard.lock();
        r = t->sdk->QuillonRenderConfig(t->render, QUILLON_CMD_DRAW_TEXT, &p, sizeof(p));
        Expect(r == 0, t->index, "Config 3", r);
    }
    p = {0, 0x808080, 2, 4, {{120, 50}, {180, 50}, {180, 90}, {120, 90}}, "", 0.0f, 0, 0, {}};
    r = t->sdk->QuillonRenderConfig(t->render, QUILLON_CMD_DRAW_BLURRY, &p, sizeof(p));
    Expect(r == 0, t->index, "Config 4", r);
}

// One host thread: its whole life from creation to release.
void Tile::Run(DWORD deadline)
{
    threadId = GetCurrentThreadId();
    window = testkit::CreateTestWindow(index % 4 * kTileW, index / 4 * kTileH, kTileW, kTileH, "concurrency");
    spare = testkit::CreateTestWindow(index * 50, 4 * kTileH + 20, 48, 36, "concurrency spare");
    render = g_calls.Exclusive([&] { return sdk->QuillonRenderCreate(nullptr, 0); });
    QuillonDecoderHandle decoder = g_calls.Exclusive([&] { return sdk->QuillonDecoderCreate(nullptr, 0); });
    Expect(render && decoder, index, "create", 0);

    RenderInitParam init = {};
    init.hWnd = window;
    Check("QuillonRenderInitDevice", [&] { return sdk->QuillonRenderInitDevice(render, &init, sizeof(init)); });
    Expect(init.device != nullptr, index, "QuillonRenderInitDevice's device", 0);
    Check("QuillonDecoderInitial", [&] { return InitialH264(*sdk, decoder, &init.device, 320, 240); });
    Config(QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{DrawTileOverlay, this});

    const int other = (index + 5) % 16;
    std::vector<uint8_t> colours[2] = {Picture(TileColour(other)), Picture(TileColour(index))};
    // Slice 1 holds the own colour, slice 2 the other one.
    std::unique_ptr<testkit::DecoderPool> pool;
    if (testkit::OnNv12Stack()) {
        ID3D11Device* device = static_cast<ID3D11Device*>(init.device);
        Expect(testkit::CanSampleNv12(device), index, "NV12 sampling on stack 2", 0);
        pool.reset(new testkit::DecoderPool(device, kPicW, kPicH, 4));
        for (int slice = 1; slice <= 2; ++slice) {
            const Yuv c = testkit::Bt709FromRgb(TileColour(slice == 1 ? index : other));
            Expect(pool->Ok() && pool->Write(slice, {pool->Width(), pool->Height(), c}), index, "pool", slice);
        }
    }
    auto frameOf = [&](bool mine, bool fromPool) {
        return fromPool && pool ? Slice(pool->Texture(), mine ? 1 : 2, kPicW, kPicH)
                                : CpuFrame(colours[mine], kPicW, kPicH);
    };
    DecodeRecords records(32);
    for (int i = 0; GetTickCount() < deadline || i < 8; ++i) {
        const ShowFrameData frame = frameOf(i % 2, i % 4 >= 2);
        Show(frame);
        ++g_pictures;
        ++pictures;
        Check("QuillonDecoderDecodeOneFrame", [&] { return records.Decode(*sdk, decoder); });
        switch (i % 8) {
        case 1: {
            const bool whole = i % 16 == 1;
            Config(QUILLON_CMD_EZOOM_AREA, EZoomArea{0.25 * (i % 3), 0.0, 1.0, 1.0});
            Config(QUILLON_CMD_SET_DST_RECT, whole ? DstRect{0, 0, 0, 0} : DstRect{10, 0, kTileW / 2, kTileH / 2});
            break;
        }
        case 2:
            Config(QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{i % 16 == 2 ? nullptr : DrawTileOverlay, this});
            break;
        case 3: {
            DrawInfo info = {};
            Check("QuillonRenderGetDrawInfo",
                  [&] { return sdk->QuillonRenderGetDrawInfo(render, &info, sizeof(info)); });
            Expect(info.device == init.device, index, "QuillonRenderGetDrawInfo's device", 0);
            break;
        }
        case 4: Resize(kTileW * 3 / 4, kTileH * 3 / 4); break;
        case 5:
            ShowWindow(window, SW_MINIMIZE);
            testkit::PumpMessages();
            Show(frame, "QuillonRenderShowFrame (minimised)");
            ShowWindow(window, SW_RESTORE);
            testkit::PumpMessages();
            Resize(kTileW, kTileH);
            break;
        case 6:
            // Over to the spare window and back. (Not straight onto the
            // window it is on: the old swap chain lives on until the new
            // one's render targets replace it, and the Vulkan stack cannot
            // have two swap chains on one window.)
            Check("QuillonRenderSetWnd", [&] { return sdk->QuillonRenderSetWnd(render, spare); });
            Show(frame, "QuillonRenderShowFrame (spare window)");
            Check("QuillonRenderSetWnd", [&] { return sdk->QuillonRenderSetWnd(render, window); });
            break;
        }
    }

    // The last picture: own colour on the whole target, with the overlay;
    // from the pool on even tiles where there is one.
    Resize(kTileW, kTileH);
    Config(QUILLON_CMD_SET_DST_RECT, DstRect{0, 0, 0, 0});
    Config(QUILLON_CMD_EZOOM_AREA, EZoomArea{0.0, 0.0, 1.0, 1.0});
    Config(QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{DrawTileOverlay, this});
    const ShowFrameData last = frameOf(true, index % 2 == 0);
    Show(last, "QuillonRenderShowFrame (last)");
    Show(last, "QuillonRenderShowFrame (last)");
    ++g_ready;
    // A picture presented right after a swap chain was re-created may not
    // reach the screen at once on the Vulkan stack: present it again there
    // until the screen has been read.
    for (int k = 0; !g_checked; ++k) {
        testkit::PumpMessages();
        Sleep(50);
        if (testkit::OnNv12Stack() && k % 4 == 3) Show(last);
    }
    Expect(g_calls.Exclusive([&] { return sdk->QuillonDecoderRelease(decoder); }) == 0, index, "QuillonDecoderRelease",
           -1);
    Expect(g_calls.Exclusive([&] { return sdk->QuillonRenderRelease(render); }) == 1, index, "QuillonRenderRelease",
           -1);
    DestroyWindow(window);
    DestroyWindow(spare);
}

// Lines of the log file that are not one whole record: each is the date
// stamp followed by exactly one message this run can produce, error records
// with their position line first. Counts the decoders' set-up records.
std::vector<std::string> BrokenRecords(const std::string& log, int* records, int* decoderRecords)
{
    static const std::regex kRecord(
        R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] ()"
        R"(file: [\w/.]+, func:[\w:]+, line: \d+ (\[QuillonStartup\] already Startup!|CHECK_(UN)?EQUAL_RETURN))"
        R"(|CLS_D3D11vaDraw::ShowFrame Windows Size Changed Recreate Render)"
        R"(|load ffmpeg lib ffmpeg-7\.dll success!)"
        R"(|\[CLS_D3D11vaDecoder\](we got \d+ decoder configurations |configuration\[\d\] ConfigBitstreamRaw \d )"
        R"(|CheckIsDeviceSupport Success _iWidth = 320 _iHeight = 240 H264 profileid = \w+)))");
    std::vector<std::string> broken;
    *records = *decoderRecords = 0;
    for (const std::string& line : testkit::SplitLines(log)) {
        ++*records;
        *decoderRecords += line.find("] [CLS_D3D11vaDecoder]") != std::string::npos;
        if (!std::regex_match(line, kRecord) && broken.size() < 10) broken.push_back(line);
    }
    return broken;
}

TEST(Concurrency, HostThreadsEachDrivingATileKeepEveryResultPictureAndRecordWhole)
{
    StagedSdk sdk("robust_concurrency", testkit::kFfmpegDouble);
    ASSERT_TRUE(sdk.bound);
    ASSERT_EQ(0, sdk.api.QuillonStartup());
    // Stack 1 presents slowly once several devices exist; four threads keep
    // the run short there. Stack 2 runs a full wall of sixteen.
    const int n = testkit::OnNv12Stack() ? 16 : 4;
    std::vector<Tile> tiles(n);
    std::vector<std::thread> threads;
    const DWORD start = GetTickCount();
    for (int i = 0; i < n; ++i) {
        tiles[i].index = i;
        tiles[i].sdk = &sdk.api;
        threads.emplace_back([&, i] { tiles[i].Run(start + kRunMs); });
    }
    // Bounded: a thread that hangs ends the run with a failure instead of
    // stalling it (terminated at once: its calls cannot be unwound).
    for (int waited = 0; g_ready < n && waited < 120000; waited += 50) Sleep(50);
    if (g_ready < n) {
        for (const Tile& t : tiles) printf("tile %d: %d pictures\n", t.index, t.pictures.load());
        printf("concurrency: threads did not finish in 120 s\n");
        fflush(stdout);
        TerminateProcess(GetCurrentProcess(), 1);
    }
    const double seconds = (GetTickCount() - start) / 1000.0;
    // Each tile's own colour at corners and centre, its white line at the top.
    for (const Tile& t : tiles) {
        for (POINT p :
             {POINT{2, kTileH - 3}, POINT{kTileW - 3, kTileH - 3}, POINT{kTileW / 2, kTileH / 2}, POINT{2, 45}})
            EXPECT_EQ(ScreenFault(t.window, p.x, p.y, TileColour(t.index), 24), "") << "tile " << t.index;
        EXPECT_EQ(ScreenFault(t.window, kTileW / 2, 4, {255, 255, 255}, 48), "") << "tile " << t.index << "'s line";
    }
    g_checked = true;
    for (std::thread& th : threads) th.join();
    sdk.api.QuillonCleanup();

    int callbacks = 0, records = 0, decoderRecords = 0;
    for (const Tile& t : tiles) callbacks += t.callbacks;
    const std::vector<std::string> broken = BrokenRecords(testkit::ReadFile(sdk.LogPath()), &records, &decoderRecords);
    printf("concurrency: %d threads, %d pictures in %.1f s, %d draw callbacks, %d log records\n", n, g_pictures.load(),
           seconds, callbacks, records);
    for (const std::string& f : g_faults) ADD_FAILURE() << f;
    for (const std::string& b : broken) ADD_FAILURE() << "broken log record: " << b;
    EXPECT_EQ(4 * n, decoderRecords);  // each decoder's set-up writes four
    EXPECT_GE(callbacks, n);
}

}  // namespace
