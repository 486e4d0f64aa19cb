// The render exports: export table, handles, records copied by length, window tracking,
// the CPU-data path, the draw callback, configuration commands, the zoom crop arithmetic.
#include <d3d11.h>

#include "render/CLS_D3D11vaRenderer.h"
#include "tests/render/render_fixture.h"

namespace {

// A CPU picture of one colour, BT.601 by the test's own arithmetic.
std::string ShowsYuv(HWND wnd, int x, int y, Yuv c, const std::function<void()>& again = nullptr) {
    return ScreenFault(wnd, x, y, testkit::Bt601ToRgb(c), 6, again);
}

Calls DrawCheck(const std::string& func, int line) {
    return ErrorRecord("render/CLS_D3D11vaDraw.cpp", "CLS_D3D11vaDraw::" + func, line, "CHECK_EQUAL_RETURN");
}

Calls UnknownHandle(const std::string& func, int line) {
    return ErrorRecord("interface/CLS_RenderManager.cpp", "CLS_RenderManager::" + func, line, "IsHandleValid faild!");
}

TEST_F(Render, ExportTableListsThirteenNamesWithOrdinalsInOrder) {
    const char* names[] = {"QuillonCleanup",        "QuillonDecoderCreate",     "QuillonDecoderDecodeOneFrame",
                           "QuillonDecoderInitial", "QuillonDecoderRelease",    "QuillonRenderConfig",
                           "QuillonRenderCreate",   "QuillonRenderGetDrawInfo", "QuillonRenderInitDevice",
                           "QuillonRenderRelease",  "QuillonRenderSetWnd",      "QuillonRenderShowFrame",
                           "QuillonStartup"};
    const HMODULE module = Stage("render").module;
    for (WORD ordinal = 1; ordinal <= 13; ++ordinal) {
        EXPECT_NE(GetProcAddress(module, names[ordinal - 1]), nullptr) << names[ordinal - 1];
        EXPECT_EQ(GetProcAddress(module, MAKEINTRESOURCEA(ordinal)), GetProcAddress(module, names[ordinal - 1]));
    }
    EXPECT_EQ(GetProcAddress(module, MAKEINTRESOURCEA(14)), nullptr);
}

TEST_F(Render, UnknownHandlesAreRefusedWithTheManagersPosition) {
    int local = 0;
    char buf[112] = {};
    const QuillonDecoderHandle decoder = g_sdk.QuillonDecoderCreate(nullptr, 0);
    ASSERT_NE(decoder, nullptr);
    const std::pair<Calls, std::function<int(void*)>> calls[] = {
        {UnknownHandle("InitDevice", 68), [&](void* h) { return g_sdk.QuillonRenderInitDevice(h, buf, 72); }},
        {UnknownHandle("ShowFrame", 80), [&](void* h) { return g_sdk.QuillonRenderShowFrame(h, buf, 112); }},
        {UnknownHandle("GetDrawInfo", 103), [&](void* h) { return g_sdk.QuillonRenderGetDrawInfo(h, buf, 8); }},
        {UnknownHandle("SetWnd", 113), [&](void* h) { return g_sdk.QuillonRenderSetWnd(h, nullptr); }},
        {UnknownHandle("Config", 123), [&](void* h) { return g_sdk.QuillonRenderConfig(h, 7, buf, 8); }},
        {UnknownHandle("Release", 92), [&](void* h) { return g_sdk.QuillonRenderRelease(h); }},
    };
    // Null, an address never handed out, and a decoder's handle.
    for (void* h : {static_cast<void*>(nullptr), static_cast<void*>(&local), decoder}) {
        for (const auto& c : calls) {
            EXPECT_EQ(c.second(h), -1) << testing::PrintToString(c.first);
            EXPECT_EQ(TakeVelmorCalls(), c.first);
        }
    }
    EXPECT_EQ(local, 0);
    g_sdk.QuillonDecoderRelease(decoder);
}

TEST_F(Render, NullRecordsAndCommandsBeforeAndAfterTheDeviceAndReleaseOnce) {
    QuillonRenderHandle h = g_sdk.QuillonRenderCreate(nullptr, 0);  // released at the end
    ASSERT_NE(h, nullptr);
    const std::pair<const char*, int> checks[] = {{"Texture2DToNV12", 172},  {"SetDrawCallBack", 186},
                                                  {"InnerOnDrawLine", 193},  {"InnerOnDrawText", 203},
                                                  {"InnerOnDrawBlurry", 213}, {"InnerEZoomArea", 223},
                                                  {"InnerSetDstRect", 233}};
    for (unsigned command = 0; command < 7; ++command) {
        EXPECT_EQ(g_sdk.QuillonRenderConfig(h, command, nullptr, 416), -1) << command;
        EXPECT_EQ(TakeVelmorCalls(), DrawCheck(checks[command].first, checks[command].second));
    }
    for (unsigned command : {7u, 0xFFFFFFFFu}) {
        EXPECT_EQ(g_sdk.QuillonRenderConfig(h, command, nullptr, 0), 0);
        EXPECT_EQ(g_sdk.QuillonRenderConfig(h, command, reinterpret_cast<void*>(0x8), 64), 0);
    }
    // Overlays outside the callback (and without a device) still return 0.
    for (unsigned command = 2; command <= 4; ++command) EXPECT_EQ(Config(h, command, OverlayParam{}), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    EXPECT_EQ(Show(h, ShowFrameData{}), -200);
    EXPECT_EQ(TakeVelmorCalls(), DrawCheck("ShowFrame", 72));
    EXPECT_EQ(g_sdk.QuillonRenderInitDevice(h, nullptr, 72), -101);
    EXPECT_EQ(TakeVelmorCalls(), DrawCheck("InitDevice", 26));
    EXPECT_EQ(g_sdk.QuillonRenderGetDrawInfo(h, nullptr, 8), -101);
    EXPECT_EQ(TakeVelmorCalls(), DrawCheck("GetDrawInfo", 19));
    // GetDrawInfo writes 8 bytes whatever the length says: null before a device.
    void* info[2] = {&h, &h};
    EXPECT_EQ(g_sdk.QuillonRenderGetDrawInfo(h, info, 0), 0);
    EXPECT_EQ(std::vector<void*>(info, info + 2), (std::vector<void*>{nullptr, &h}));
    // Without a window: a device, no swap chain, result 0.
    RenderInitParam init;
    memset(&init, 0x5A, sizeof(init));
    init.hWnd = nullptr;
    init.device = nullptr;
    EXPECT_EQ(g_sdk.QuillonRenderInitDevice(h, &init, sizeof(init)), 0);
    ASSERT_NE(init.device, nullptr);
    void* device = nullptr;
    EXPECT_EQ(g_sdk.QuillonRenderGetDrawInfo(h, &device, 2), 0);
    EXPECT_EQ(device, init.device);
    // Initialising again makes a new device and lets go of the first one.
    Microsoft::WRL::ComPtr<IUnknown> first(static_cast<IUnknown*>(init.device));
    EXPECT_EQ(g_sdk.QuillonRenderInitDevice(h, &init, sizeof(init)), 0);
    EXPECT_NE(init.device, first.Get());
    EXPECT_EQ(first.Reset(), 0u);
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, nullptr, 112), -101);
    EXPECT_EQ(TakeVelmorCalls(), DrawCheck("ShowFrame", 73));
    // No window to measure: nothing drawn, no error.
    std::vector<uint8_t> picture = SolidI420(16, 16, 128, 128, 128);
    EXPECT_EQ(Show(h, CpuFrame(picture, 16, 16)), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});

    EXPECT_EQ(g_sdk.QuillonRenderRelease(h), 1);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    EXPECT_EQ(g_sdk.QuillonRenderRelease(h), -1);
    EXPECT_EQ(TakeVelmorCalls(), UnknownHandle("Release", 92));
}

// The CPU-data path on a window of odd size, then resized: colours, short
// records, padded luma rows, and the size changes each logged once.
TEST_F(Render, CpuPicturesFollowTheWindowAndShortRecordsTakeTheCpuPath) {
    HWND wnd = NewWindow(20, 20, 161, 121);
    QuillonRenderHandle h = OnWindow(wnd);
    TakeVelmorCalls();
    // Colours far apart, so each BT.601 coefficient shows. InitDevice kept
    // 160 x 120; the first picture measures 161 x 121, once.
    for (const Yuv c : {Yuv{81, 90, 240}, Yuv{145, 54, 34}, Yuv{41, 240, 110}, Yuv{180, 60, 200}}) {
        std::vector<uint8_t> picture = SolidI420(64, 48, c.y, c.u, c.v);
        EXPECT_EQ(Show(h, CpuFrame(picture, 64, 48)), 0);
        EXPECT_EQ(TakeVelmorCalls(), c.y != 81 ? Calls{}
                                               : ErrorRecord("common/QuillonCommonFun.cpp", "IsEqualRectSize", 59,
                                                             "CHECK_UNEQUAL_RETURN"));
        EXPECT_EQ(ShowsYuv(wnd, 80, 60, c, [&] { Show(h, CpuFrame(picture, 64, 48)); }), "");
    }
    EXPECT_EQ(ShowsYuv(wnd, 3, 3, {180, 60, 200}), "");  // the picture fills the window
    EXPECT_EQ(ShowsYuv(wnd, 160, 120, {180, 60, 200}), "");
    // 24 bytes reach the renderer: the texture (offset 24) is zeroed.
    std::vector<uint8_t> picture = SolidI420(64, 48, 210, 16, 146);
    ShowFrameData f = CpuFrame(picture, 64, 48);
    f.texture = reinterpret_cast<void*>(0x10);
    f.lineSize = 999;
    EXPECT_EQ(Show(h, f, 24), 0);
    EXPECT_EQ(ShowsYuv(wnd, 80, 60, {210, 16, 146}), "");
    f.data = nullptr;  // neither texture nor data: the CPU path refuses
    EXPECT_EQ(Show(h, f, 24), -1);
    // Y rows of 128 bytes for 64 x 48: U still at w*h = 3072, V at 5*w*h/4 = 3840, chroma rows of 64
    // bytes, the planes overlapping as a padding host's do; each run of bytes gives another colour.
    std::vector<uint8_t> padded(128 * 48 * 2, 16);
    memset(&padded[0], 200, 3072);
    memset(&padded[3072], 90, 3840 - 3072);
    memset(&padded[3840], 240, 128 * 48 - 3840);
    f = CpuFrame(padded, 64, 48);
    f.lineSize = 128;
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(ShowsYuv(wnd, 80, 12, {200, 90, 240}), "");    // rows 0-10
    EXPECT_EQ(ShowsYuv(wnd, 80, 100, {240, 240, 240}), "");  // rows 32-47: bytes from 4096 on

    ResizeClient(wnd, 200, 150);
    f = CpuFrame(picture, 64, 48);
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(
        TakeVelmorCalls(),
        (Calls{"sdk_log_get_level", "sdk_log_msg(CLS_D3D11vaDraw::ShowFrame Windows Size Changed Recreate Render)"}));
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    EXPECT_EQ(ShowsYuv(wnd, 196, 146, {210, 16, 146}, [&] { Show(h, f); }), "");
}

struct Seen {
    int calls = 0;
    ShowFrameData frame;
    const void* address = nullptr;
    void* user = nullptr;
} g_seen;

void QUILLON_CALL CountingCallback(ShowFrameData* f, void* user) { g_seen = {g_seen.calls + 1, *f, f, user}; }

void QUILLON_CALL OtherCallback(ShowFrameData*, void* user) { g_seen = {g_seen.calls + 100, {}, nullptr, user}; }

// The callback gets a copy of the record once per picture shown; none while
// the window is minimised; pictures follow SetWnd to another window.
TEST_F(Render, DrawCallbackPartialPayloadsMinimisedWindowAndSetWnd) {
    HWND wnd = NewWindow(20, 200, 96, 64);
    RenderInitParam init;
    QuillonRenderHandle h = OnWindow(wnd, &init);
    int userA = 1, userB = 2;
    EXPECT_EQ(Config(h, QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{CountingCallback, &userA}), 0);
    std::vector<uint8_t> picture = SolidI420(32, 32, 41, 240, 110);
    ShowFrameData f = CpuFrame(picture, 32, 32);
    f.eraseOnRelease = 7;
    f.arraySlice = 3;
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(g_seen.calls, 2);
    EXPECT_EQ(memcmp(&g_seen.frame, &f, sizeof(f)), 0);
    EXPECT_NE(g_seen.address, static_cast<const void*>(&f));
    EXPECT_EQ(g_seen.user, &userA);
    // 8 bytes replace the callback and keep the user pointer; 0 bytes keep both.
    EXPECT_EQ(Config(h, QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{OtherCallback, &userB}, 8), 0);
    EXPECT_EQ(Config(h, QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{CountingCallback, &userB}, 0), 0);
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(g_seen.calls, 102);
    EXPECT_EQ(g_seen.user, &userA);
    EXPECT_EQ(Config(h, QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{CountingCallback, nullptr}), 0);

    ShowWindow(wnd, SW_MINIMIZE);
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(g_seen.calls, 102);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    ShowWindow(wnd, SW_RESTORE);
    // Another window of the same size: the swap chain moves, the device stays.
    HWND other = NewWindow(140, 200, 96, 64);
    EXPECT_EQ(g_sdk.QuillonRenderSetWnd(h, other), 0);
    void* device = nullptr;
    g_sdk.QuillonRenderGetDrawInfo(h, &device, 8);
    EXPECT_EQ(device, init.device);
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(g_seen.calls, 103);
    EXPECT_EQ(ShowsYuv(other, 48, 32, {41, 240, 110}, [&] { Show(h, f); }), "");
    // Onto the window it already shows on: the old swap chain and all that
    // holds it go before the new one is made, and pictures go on.
    EXPECT_EQ(g_sdk.QuillonRenderSetWnd(h, other), 0);
    std::vector<uint8_t> second = SolidI420(32, 32, 180, 60, 200);
    EXPECT_EQ(ShowsYuv(other, 48, 32, {180, 60, 200}, [&] { EXPECT_EQ(Show(h, CpuFrame(second, 32, 32)), 0); }), "");
    EXPECT_EQ(g_sdk.QuillonRenderSetWnd(h, reinterpret_cast<HWND>(0x4321)), -1);
    // A null callback switches it off.
    EXPECT_EQ(Config(h, QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{nullptr, nullptr}), 0);
    g_seen.calls = 0;
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(g_seen.calls, 0);
}

TEST(ZoomSourceRect, RoundsToFourCorrectsPaddedHeightsAndMakesEven) {
    const struct {
        int w, h;
        double zoom[4];
        RECT want;
    } cases[] = {
        {1920, 1088, {0.25, 0.25, 0.75, 0.75}, {480, 270, 1440, 810}},
        {1918, 1086, {0, 0, 1, 1}, {0, 0, 1920, 1080}},  // 1086 -> 1088 -> 1080; width not corrected
        {640, 366, {0, 0, 1, 1}, {0, 0, 640, 360}},  // 366 -> 368 -> 360
        {1088, 1088, {0, 0, 1, 1}, {0, 0, 1088, 1080}},
        {321, 241, {0, 0, 1, 1}, {0, 0, 324, 244}},
        {1000, 1000, {271.9 / 1000, -3.5 / 1000, 1, 1}, {270, -2, 1000, 1000}},  // 271.9 -> 270; -3.5 -> -2
    };
    for (const auto& c : cases) {
        const RECT r = ZoomSourceRect(c.w, c.h, c.zoom);
        EXPECT_TRUE(EqualRect(&r, &c.want))
            << c.w << "x" << c.h << " -> " << r.left << "," << r.top << "," << r.right << "," << r.bottom;
    }
}

}  // namespace
