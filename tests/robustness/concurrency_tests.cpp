// Concurrency: host threads each drive a window, a render object and a
// decoder (on the FFmpeg test double) of their own for a few seconds, as a
// video-wall host does: pictures, overlay commands from inside the draw
// callback, zoom, destination rectangle and callback changes from outside
// it, window resizes, minimise and restore, QuillonRenderGetDrawInfo,
// QuillonRenderSetWnd and decoding. Like such a host, the threads serialise
// creation and release against every other call (a shared/exclusive lock).
//
// Where NV12 textures can be sampled (stack 2), half of the pictures come
// from a decoder-shaped texture array on the thread's own renderer device.
//
// Afterwards every tile shows its own last picture with its own overlay,
// every call returned what the interface allows, and every line of the log
// file written by Velmor.dll is one whole record.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "testkit/staged_sdk.h"

namespace {

constexpr DWORD kRunMs = 3000;
constexpr int kTileW = 200, kTileH = 150;  // each thread's window
constexpr int kPicW = 64, kPicH = 48;
constexpr int kTolerance = 24;

// Stack 1 presents slowly once several devices exist; four threads keep the
// run short there. Stack 2 runs a full wall of sixteen.
int ThreadCount() { return testkit::OnNv12Stack() ? 16 : 4; }

SdkCallLock g_calls;  // exclusive: create and release; shared: every other call

// Results the interface does not allow, reported once each kind.
std::mutex g_faultsLock;
std::vector<std::string> g_faults;

void Expect(bool ok, int thread, const char* call, long long got)
{
    if (ok) return;
    std::lock_guard<std::mutex> guard(g_faultsLock);
    if (g_faults.size() < 20)
        g_faults.push_back("thread " + std::to_string(thread) + ": " + call + " gave " + std::to_string(got));
}

struct Rgb {
    int r, g, b;
};

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

// What the draw callback sees of its tile.
struct Tile {
    int index = 0;
    QuillonSdkApi* sdk = nullptr;
    QuillonRenderHandle render = nullptr;
    DWORD threadId = 0;
    HWND window = nullptr;
    HWND spare = nullptr;  // another window the render object visits
    std::atomic<int> callbacks{0};
    std::atomic<int> pictures{0};
};

std::mutex g_textLock;

// The tile's overlay: a white line along the top, a text and a hatched
// region; all three commands are issued from inside the callback.
void QUILLON_CALL DrawTileOverlay(ShowFrameData* frame, void* user)
{
    Tile* t = static_cast<Tile*>(user);
    Expect(frame != nullptr, t->index, "draw callback's frame", 0);
    Expect(GetCurrentThreadId() == t->threadId, t->index, "draw callback on another thread", GetCurrentThreadId());
    ++t->callbacks;
    OverlayParam p;
    memset(&p, 0, sizeof(p));
    p.color = 0xFFFFFF;
    p.lineWidth = 2;
    p.pointCount = 2;
    p.points[0] = {0, 4};
    p.points[1] = {kTileW, 4};
    Expect(t->sdk->QuillonRenderConfig(t->render, QUILLON_CMD_DRAW_LINE, &p, sizeof(p)) == 0, t->index, "Config 2", -1);
    p.lineWidth = 12;
    p.points[0] = {6, 12};
    p.points[1] = {kTileW - 6, 34};
    snprintf(p.text, sizeof(p.text), "tile %d", t->index);
    {
        // Wine 8's DirectWrite is not thread-safe: text formats made on its
        // shared factory from several threads at once crash inside it
        // (Windows' shared factory is thread-safe). On that stack the host
        // draws one text at a time.
        std::unique_lock<std::mutex> guard(g_textLock, std::defer_lock);
        if (!testkit::OnNv12Stack()) guard.lock();
        const int r = t->sdk->QuillonRenderConfig(t->render, QUILLON_CMD_DRAW_TEXT, &p, sizeof(p));
        Expect(r == 0, t->index, "Config 3", r);
    }
    memset(&p, 0, sizeof(p));
    p.color = 0x808080;
    p.lineWidth = 2;
    p.pointCount = 4;
    p.points[0] = {120, 50};
    p.points[1] = {180, 50};
    p.points[2] = {180, 90};
    p.points[3] = {120, 90};
    Expect(t->sdk->QuillonRenderConfig(t->render, QUILLON_CMD_DRAW_BLURRY, &p, sizeof(p)) == 0, t->index, "Config 4",
           -1);
}

std::atomic<int> g_pictures{0};
std::atomic<int> g_ready{0};     // threads whose last picture is up
std::atomic<bool> g_checked{false};  // the screen has been read

void SetCallback(Tile& t, QuillonDrawCallBack callback)
{
    DrawCallBackParam cb = {callback, &t};
    const int r = g_calls.Shared([&] { return t.sdk->QuillonRenderConfig(t.render, QUILLON_CMD_SET_DRAW_CALLBACK, &cb, sizeof(cb)); });
    Expect(r == 0, t.index, "Config 1", r);
}

void Resize(HWND window, int w, int h)
{
    SetWindowPos(window, nullptr, 0, 0, w, h, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    testkit::PumpMessages();
}

// One host thread: its whole life from creation to release.
void RunTile(Tile& t, DWORD deadline, QuillonSdkApi& sdk)
{
    t.threadId = GetCurrentThreadId();
    t.window = testkit::CreateTestWindow(t.index % 4 * kTileW, t.index / 4 * kTileH, kTileW, kTileH, "concurrency");
    t.spare = testkit::CreateTestWindow(t.index * 50, 4 * kTileH + 20, 48, 36, "concurrency spare");
    t.render = g_calls.Exclusive([&] { return sdk.QuillonRenderCreate(nullptr, 0); });
    QuillonDecoderHandle decoder = g_calls.Exclusive([&] { return sdk.QuillonDecoderCreate(nullptr, 0); });
    Expect(t.render && decoder, t.index, "create", 0);

    RenderInitParam init;
    memset(&init, 0, sizeof(init));
    init.hWnd = t.window;
    int r = g_calls.Shared([&] { return sdk.QuillonRenderInitDevice(t.render, &init, sizeof(init)); });
    Expect(r == 0 && init.device, t.index, "QuillonRenderInitDevice", r);
    r = g_calls.Shared([&] { return InitialH264(sdk, decoder, &init.device, 320, 240); });
    Expect(r == 0, t.index, "QuillonDecoderInitial", r);
    SetCallback(t, DrawTileOverlay);

    std::vector<uint8_t> own = Picture(TileColour(t.index));
    std::vector<uint8_t> other = Picture(TileColour((t.index + 5) % 16));
    // Slice 1 holds the own colour, slice 2 the other one.
    std::unique_ptr<testkit::DecoderPool> pool;
    if (testkit::OnNv12Stack()) {
        ID3D11Device* device = static_cast<ID3D11Device*>(init.device);
        Expect(testkit::CanSampleNv12(device), t.index, "NV12 sampling on stack 2", 0);
        pool.reset(new testkit::DecoderPool(device, kPicW, kPicH, 4));
        for (int slice = 1; slice <= 2; ++slice) {
            const Rgb c = TileColour(slice == 1 ? t.index : (t.index + 5) % 16);
            const testkit::Nv12Picture picture(pool->Width(), pool->Height(), testkit::Bt709FromRgb({c.r, c.g, c.b}));
            Expect(pool->Ok() && pool->Write(slice, picture), t.index, "writing the decoder pool", slice);
        }
    }
    auto frameOf = [&](bool mine, bool fromPool) {
        ShowFrameData frame = CpuFrame(mine ? own : other, kPicW, kPicH);
        if (fromPool && pool) {
            frame.data = nullptr;
            frame.texture = pool->Texture();
            frame.arraySlice = mine ? 1 : 2;
        }
        return frame;
    };
    DecodeRecords records(32);
    for (int i = 0; GetTickCount() < deadline || i < 8; ++i) {
        ShowFrameData frame = frameOf(i % 2, i % 4 >= 2);
        r = g_calls.Shared([&] { return sdk.QuillonRenderShowFrame(t.render, &frame, sizeof(frame)); });
        Expect(r == 0, t.index, "QuillonRenderShowFrame", r);
        ++g_pictures;
        ++t.pictures;
        r = g_calls.Shared([&] { return records.Decode(sdk, decoder); });
        Expect(r == 0, t.index, "QuillonDecoderDecodeOneFrame", r);
        switch (i % 8) {
            case 1: {
                EZoomArea zoom = {0.25 * (i % 3), 0.0, 1.0, 1.0};
                r = g_calls.Shared([&] { return sdk.QuillonRenderConfig(t.render, QUILLON_CMD_EZOOM_AREA, &zoom, sizeof(zoom)); });
                Expect(r == 0, t.index, "Config 5", r);
                DstRect dst = {i % 16 == 1 ? 0 : 10, 0, i % 16 == 1 ? 0 : kTileW / 2, i % 16 == 1 ? 0 : kTileH / 2};
                r = g_calls.Shared([&] { return sdk.QuillonRenderConfig(t.render, QUILLON_CMD_SET_DST_RECT, &dst, sizeof(dst)); });
                Expect(r == 0, t.index, "Config 6", r);
                break;
            }
            case 2:
                SetCallback(t, i % 16 == 2 ? nullptr : DrawTileOverlay);
                break;
            case 3: {
                DrawInfo info;
                memset(&info, 0, sizeof(info));
                r = g_calls.Shared([&] { return sdk.QuillonRenderGetDrawInfo(t.render, &info, sizeof(info)); });
                Expect(r == 0 && info.device == init.device, t.index, "QuillonRenderGetDrawInfo", r);
                break;
            }
            case 4:
                Resize(t.window, kTileW * 3 / 4, kTileH * 3 / 4);
                break;
            case 5:
                ShowWindow(t.window, SW_MINIMIZE);
                testkit::PumpMessages();
                r = g_calls.Shared([&] { return sdk.QuillonRenderShowFrame(t.render, &frame, sizeof(frame)); });
                Expect(r == 0, t.index, "QuillonRenderShowFrame (minimised)", r);
                ShowWindow(t.window, SW_RESTORE);
                testkit::PumpMessages();
                Resize(t.window, kTileW, kTileH);
                break;
            case 6:
                // Over to the spare window and back. (Not straight onto the
                // window it is on: the old swap chain lives on until the new
                // one's render targets replace it, and the Vulkan stack
                // cannot have two swap chains on one window.)
                r = g_calls.Shared([&] { return sdk.QuillonRenderSetWnd(t.render, t.spare); });
                Expect(r == 0, t.index, "QuillonRenderSetWnd", r);
                r = g_calls.Shared([&] { return sdk.QuillonRenderShowFrame(t.render, &frame, sizeof(frame)); });
                Expect(r == 0, t.index, "QuillonRenderShowFrame (spare window)", r);
                r = g_calls.Shared([&] { return sdk.QuillonRenderSetWnd(t.render, t.window); });
                Expect(r == 0, t.index, "QuillonRenderSetWnd", r);
                break;
        }
    }

    // The last picture: own colour on the whole target, with the overlay;
    // from the pool on even tiles where there is one.
    Resize(t.window, kTileW, kTileH);
    DstRect whole = {0, 0, 0, 0};
    r = g_calls.Shared([&] { return sdk.QuillonRenderConfig(t.render, QUILLON_CMD_SET_DST_RECT, &whole, sizeof(whole)); });
    Expect(r == 0, t.index, "Config 6", r);
    EZoomArea all = {0.0, 0.0, 1.0, 1.0};
    r = g_calls.Shared([&] { return sdk.QuillonRenderConfig(t.render, QUILLON_CMD_EZOOM_AREA, &all, sizeof(all)); });
    Expect(r == 0, t.index, "Config 5", r);
    SetCallback(t, DrawTileOverlay);
    ShowFrameData last = frameOf(true, t.index % 2 == 0);
    for (int k = 0; k < 2; ++k) {
        r = g_calls.Shared([&] { return sdk.QuillonRenderShowFrame(t.render, &last, sizeof(last)); });
        Expect(r == 0, t.index, "QuillonRenderShowFrame (last)", r);
    }
    ++g_ready;
    // A picture presented right after a swap chain was re-created may not
    // reach the screen at once on the Vulkan stack: present it again there
    // until the screen has been read.
    for (int k = 0; !g_checked; ++k) {
        testkit::PumpMessages();
        Sleep(50);
        if (testkit::OnNv12Stack() && k % 4 == 3) g_calls.Shared([&] { return sdk.QuillonRenderShowFrame(t.render, &last, sizeof(last)); });
    }

    r = g_calls.Exclusive([&] { return sdk.QuillonDecoderRelease(decoder); });
    Expect(r == 0, t.index, "QuillonDecoderRelease", r);
    r = g_calls.Exclusive([&] { return sdk.QuillonRenderRelease(t.render); });
    Expect(r == 1, t.index, "QuillonRenderRelease", r);
    DestroyWindow(t.window);
    DestroyWindow(t.spare);
}

// The tile's own colour at corners and centre, its white line at the top.
std::string TileFault(const Tile& t)
{
    const Rgb c = TileColour(t.index);
    const POINT at[] = {{2, kTileH - 3}, {kTileW - 3, kTileH - 3}, {kTileW / 2, kTileH / 2}, {2, 45}};
    for (const POINT& p : at) {
        const COLORREF px = testkit::WaitForClientPixel(
            t.window, p.x, p.y, [&](COLORREF x) { return testkit::Near(x, c.r, c.g, c.b, kTolerance); });
        if (!testkit::Near(px, c.r, c.g, c.b, kTolerance))
            return "tile " + std::to_string(t.index) + " at (" + std::to_string(p.x) + ", " + std::to_string(p.y) +
                   ") shows " + std::to_string(GetRValue(px)) + ", " + std::to_string(GetGValue(px)) + ", " +
                   std::to_string(GetBValue(px));
    }
    const COLORREF line = testkit::WaitForClientPixel(t.window, kTileW / 2, 4, [](COLORREF x) {
        return testkit::Near(x, 255, 255, 255, 48);
    });
    if (!testkit::Near(line, 255, 255, 255, 48)) return "tile " + std::to_string(t.index) + ": no white overlay line";
    return "";
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
        if (line.find("] [CLS_D3D11vaDecoder]") != std::string::npos) ++*decoderRecords;
        if (!std::regex_match(line, kRecord) && broken.size() < 10) broken.push_back(line);
    }
    return broken;
}

TEST(Concurrency, HostThreadsEachDrivingATileKeepEveryResultPictureAndRecordWhole)
{
    StagedSdk sdk("robust_concurrency", "FfmpegDouble.dll");
    ASSERT_TRUE(sdk.bound);
    ASSERT_EQ(0, sdk.api.QuillonStartup());

    const int n = ThreadCount();
    std::vector<Tile> tiles(n);
    std::vector<std::thread> threads;
    const DWORD start = GetTickCount();
    for (int i = 0; i < n; ++i) {
        tiles[i].index = i;
        tiles[i].sdk = &sdk.api;
        threads.emplace_back([&, i] { RunTile(tiles[i], start + kRunMs, sdk.api); });
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

    std::vector<std::string> screen;
    for (const Tile& t : tiles) {
        const std::string fault = TileFault(t);
        if (!fault.empty()) screen.push_back(fault);
    }
    g_checked = true;
    for (std::thread& th : threads) th.join();
    sdk.api.QuillonCleanup();

    int callbacks = 0;
    for (const Tile& t : tiles) callbacks += t.callbacks;
    int records = 0, decoderRecords = 0;
    const std::vector<std::string> broken =
        BrokenRecords(testkit::ReadFile(sdk.LogPath()), &records, &decoderRecords);
    printf("concurrency: %d threads, %d pictures in %.1f s, %d draw callbacks, %d log records\n", n, g_pictures.load(),
           seconds, callbacks, records);

    for (const std::string& f : g_faults) ADD_FAILURE() << f;
    for (const std::string& f : screen) ADD_FAILURE() << f;
    for (const std::string& b : broken) ADD_FAILURE() << "broken log record: " << b;
    EXPECT_EQ(4 * n, decoderRecords);  // each decoder's set-up writes four
    EXPECT_GE(callbacks, n);
}

}  // namespace
