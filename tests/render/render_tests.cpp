// The render family through the exported functions of QuillonSDK.dll, loaded
// from a staged directory beside the recording Velmor.dll: export table,
// handles, records copied by length, window tracking, the CPU-data path's
// pixels, the draw callback and its overlays, configuration commands, and
// the zoom crop arithmetic.
#include <d3d11.h>

#include "render/CLS_D3D11vaDraw.h"
#include "render/CLS_D3D11vaRenderer.h"
#include "tests/render/render_fixture.h"

namespace {

// A CPU picture of one colour, BT.601 by the test's own arithmetic.
std::string ShowsYuv(HWND wnd, int x, int y, int Y, int U, int V, const std::function<void()>& again = nullptr)
{
    return ScreenFault(wnd, x, y, testkit::Bt601ToRgb({Y, U, V}), 6, again);
}

// --- exports and handles -------------------------------------------------------

TEST_F(Render, ExportTableListsThirteenNamesWithOrdinalsInOrder)
{
    const auto* base = reinterpret_cast<const unsigned char*>(g_module);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(
        base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const auto* dir = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(
        base + nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress);
    const auto* names = reinterpret_cast<const DWORD*>(base + dir->AddressOfNames);
    const auto* ordinals = reinterpret_cast<const WORD*>(base + dir->AddressOfNameOrdinals);
    const char* expected[] = {"QuillonCleanup",        "QuillonDecoderCreate",     "QuillonDecoderDecodeOneFrame",
                              "QuillonDecoderInitial", "QuillonDecoderRelease",    "QuillonRenderConfig",
                              "QuillonRenderCreate",   "QuillonRenderGetDrawInfo", "QuillonRenderInitDevice",
                              "QuillonRenderRelease",  "QuillonRenderSetWnd",      "QuillonRenderShowFrame",
                              "QuillonStartup"};
    ASSERT_EQ(dir->NumberOfNames, 13u);
    ASSERT_EQ(dir->NumberOfFunctions, 13u);
    for (DWORD i = 0; i < 13; ++i) {
        EXPECT_STREQ(reinterpret_cast<const char*>(base + names[i]), expected[i]);
        EXPECT_EQ(dir->Base + ordinals[i], i + 1) << expected[i];
    }
}

TEST_F(Render, UnknownHandlesAreRefusedWithTheManagersPosition)
{
    int local = 0;
    char buf[112] = {};
    const QuillonDecoderHandle decoder = g_sdk.QuillonDecoderCreate(nullptr, 0);
    ASSERT_NE(decoder, nullptr);
    const struct {
        const char* func;
        int line;
        std::function<int(void*)> call;
    } calls[] = {
        {"InitDevice", 68, [&](void* h) { return g_sdk.QuillonRenderInitDevice(h, buf, 72); }},
        {"ShowFrame", 80, [&](void* h) { return g_sdk.QuillonRenderShowFrame(h, buf, 112); }},
        {"GetDrawInfo", 103, [&](void* h) { return g_sdk.QuillonRenderGetDrawInfo(h, buf, 8); }},
        {"SetWnd", 113, [&](void* h) { return g_sdk.QuillonRenderSetWnd(h, nullptr); }},
        {"Config", 123, [&](void* h) { return g_sdk.QuillonRenderConfig(h, 7, buf, 8); }},
        {"Release", 92, [&](void* h) { return g_sdk.QuillonRenderRelease(h); }},
    };
    // Null, an address never handed out, and a decoder's handle.
    for (void* h : {static_cast<void*>(nullptr), static_cast<void*>(&local), decoder}) {
        for (const auto& c : calls) {
            EXPECT_EQ(c.call(h), -1) << c.func;
            EXPECT_EQ(TakeVelmorCalls(), UnknownHandle(c.func, c.line));
        }
    }
    EXPECT_EQ(local, 0);
    g_sdk.QuillonDecoderRelease(decoder);
}

TEST_F(Render, NullRecordsBeforeAndAfterTheDeviceAndReleaseOnce)
{
    QuillonRenderHandle h = NewRender();
    EXPECT_EQ(Show(h, ShowFrameData{}), -200);
    EXPECT_EQ(TakeVelmorCalls(), DrawCheck("ShowFrame", 72));
    EXPECT_EQ(g_sdk.QuillonRenderInitDevice(h, nullptr, 72), -101);
    EXPECT_EQ(TakeVelmorCalls(), DrawCheck("InitDevice", 26));
    EXPECT_EQ(g_sdk.QuillonRenderGetDrawInfo(h, nullptr, 8), -101);
    EXPECT_EQ(TakeVelmorCalls(), DrawCheck("GetDrawInfo", 19));

    // GetDrawInfo writes 8 bytes whatever the length says: null before a device.
    unsigned char info[16];
    memset(info, 0xAB, sizeof(info));
    EXPECT_EQ(g_sdk.QuillonRenderGetDrawInfo(h, info, 0), 0);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(info[i], i < 8 ? 0 : 0xAB) << i;

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
    IUnknown* first = static_cast<IUnknown*>(init.device);
    first->AddRef();
    init.device = nullptr;
    EXPECT_EQ(g_sdk.QuillonRenderInitDevice(h, &init, sizeof(init)), 0);
    ASSERT_NE(init.device, nullptr);
    EXPECT_EQ(first->Release(), 0u);
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, nullptr, 112), -101);
    EXPECT_EQ(TakeVelmorCalls(), DrawCheck("ShowFrame", 73));
    // No window to measure: nothing drawn, no error.
    std::vector<uint8_t> picture = SolidI420(16, 16, 128, 128, 128);
    EXPECT_EQ(Show(h, CpuFrame(picture, 16, 16)), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});

    Forget(h);
    EXPECT_EQ(g_sdk.QuillonRenderRelease(h), 1);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    EXPECT_EQ(g_sdk.QuillonRenderRelease(h), -1);
    EXPECT_EQ(TakeVelmorCalls(), UnknownHandle("Release", 92));
}

// --- the CPU-data path -----------------------------------------------------------

TEST_F(Render, CpuPicturesShowTheirColoursAndShortRecordsTakeTheCpuPath)
{
    HWND wnd = NewWindow(20, 20, 160, 120);
    RenderInitParam init;
    QuillonRenderHandle h = OnWindow(wnd, &init);
    void* device = nullptr;
    g_sdk.QuillonRenderGetDrawInfo(h, &device, 8);
    EXPECT_EQ(device, init.device);

    for (const Yuv c : {Yuv{81, 90, 240}, Yuv{145, 54, 34}, Yuv{41, 240, 110}, Yuv{180, 60, 200}}) {
        std::vector<uint8_t> picture = SolidI420(64, 48, c.y, c.u, c.v);
        EXPECT_EQ(Show(h, CpuFrame(picture, 64, 48)), 0);
        for (POINT p : {POINT{80, 60}, POINT{3, 3}, POINT{156, 116}})
            EXPECT_EQ(ShowsYuv(wnd, p.x, p.y, c.y, c.u, c.v), "");
    }

    // 24 bytes reach the renderer: the texture (offset 24) is zeroed.
    std::vector<uint8_t> picture = SolidI420(64, 48, 210, 16, 146);
    ShowFrameData f = CpuFrame(picture, 64, 48);
    f.texture = reinterpret_cast<void*>(0x10);
    f.lineSize = 999;
    EXPECT_EQ(Show(h, f, 24), 0);
    EXPECT_EQ(ShowsYuv(wnd, 80, 60, 210, 16, 146), "");
    // Neither texture nor data: the CPU path refuses.
    f.data = nullptr;
    EXPECT_EQ(Show(h, f, 24), -1);
}

TEST_F(Render, PaddedLumaRowsStillFindChromaAtWidthTimesHeight)
{
    HWND wnd = NewWindow(200, 20, 128, 96);
    QuillonRenderHandle h = OnWindow(wnd, nullptr, 8);  // 8 bytes: the window alone
    // Y rows of 128 bytes for a 64 x 48 picture, U at w*h = 3072 and V at
    // 5*w*h/4 = 3840 with chroma rows of 64 bytes: the planes overlap, as a
    // padding host's do. Runs of constant bytes make every plane rule give
    // another colour.
    std::vector<uint8_t> buf(128 * 48 * 2, 16);
    memset(&buf[0], 200, 3072);
    memset(&buf[3072], 90, 3840 - 3072);
    memset(&buf[3840], 240, 128 * 48 - 3840);
    ShowFrameData f = CpuFrame(buf, 64, 48);
    f.lineSize = 128;
    EXPECT_EQ(Show(h, f), 0);
    // Rows 0-10: Y 200 (row bytes below 3072), U 90, V 240.
    EXPECT_EQ(ShowsYuv(wnd, 64, 10, 200, 90, 240), "");
    // Rows 32-47: Y rows at 4096 and later, chroma rows 16-23 at 4096+ and 4864+.
    EXPECT_EQ(ShowsYuv(wnd, 64, 80, 240, 240, 240), "");
}

// --- window tracking ---------------------------------------------------------------

TEST_F(Render, OddClientRectResizesOnceAndWindowResizeIsLoggedOnce)
{
    HWND wnd = NewWindow(360, 20, 161, 121);
    QuillonRenderHandle h = OnWindow(wnd);
    std::vector<uint8_t> picture = SolidI420(32, 32, 81, 90, 240);
    const ShowFrameData f = CpuFrame(picture, 32, 32);
    TakeVelmorCalls();
    // InitDevice kept 160 x 120; the first picture measures 161 x 121.
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(TakeVelmorCalls(),
              ErrorRecord("common/QuillonCommonFun.cpp", "IsEqualRectSize", 59, "CHECK_UNEQUAL_RETURN"));
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    Settle();
    EXPECT_EQ(ShowsYuv(wnd, 80, 60, 81, 90, 240, [&] { Show(h, f); }), "");
    EXPECT_EQ(ShowsYuv(wnd, 160, 120, 81, 90, 240), "");

    ResizeClient(wnd, 200, 150);
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(
        TakeVelmorCalls(),
        (Calls{"sdk_log_get_level", "sdk_log_msg(CLS_D3D11vaDraw::ShowFrame Windows Size Changed Recreate Render)"}));
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    // The swap chain is new: DXVK may show its picture only after a later present.
    EXPECT_EQ(ShowsYuv(wnd, 196, 146, 81, 90, 240, [&] { Show(h, f); }), "");
}

struct Seen {
    int calls = 0;
    ShowFrameData frame;
    const void* address = nullptr;
    void* user = nullptr;
} g_seen;

void QUILLON_CALL CountingCallback(ShowFrameData* frame, void* user)
{
    g_seen = {g_seen.calls + 1, *frame, frame, user};
}

void QUILLON_CALL OtherCallback(ShowFrameData*, void* user)
{
    g_seen.calls += 100;
    g_seen.user = user;
}

TEST_F(Render, MinimisedWindowShowsNothingAndSetWndMovesToAnotherWindow)
{
    HWND wnd = NewWindow(20, 200, 96, 64);
    QuillonRenderHandle h = OnWindow(wnd);
    ASSERT_EQ(Config(h, QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{CountingCallback, nullptr}), 0);
    std::vector<uint8_t> picture = SolidI420(32, 32, 41, 240, 110);
    const ShowFrameData f = CpuFrame(picture, 32, 32);

    g_seen.calls = 0;
    ShowWindow(wnd, SW_MINIMIZE);
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(g_seen.calls, 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    ShowWindow(wnd, SW_RESTORE);

    // Another window of the same size: the swap chain moves, the device stays.
    HWND other = NewWindow(140, 200, 96, 64);
    void *before = nullptr, *after = nullptr;
    g_sdk.QuillonRenderGetDrawInfo(h, &before, 8);
    EXPECT_EQ(g_sdk.QuillonRenderSetWnd(h, other), 0);
    g_sdk.QuillonRenderGetDrawInfo(h, &after, 8);
    EXPECT_EQ(before, after);
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(g_seen.calls, 1);
    EXPECT_EQ(ShowsYuv(other, 48, 32, 41, 240, 110, [&] { Show(h, f); }), "");

    // Onto the window it already shows on: the old swap chain and all that
    // holds it go before the new one is made, and pictures go on.
    EXPECT_EQ(g_sdk.QuillonRenderSetWnd(h, other), 0);
    std::vector<uint8_t> second = SolidI420(32, 32, 180, 60, 200);
    EXPECT_EQ(ShowsYuv(other, 48, 32, 180, 60, 200, [&] { EXPECT_EQ(Show(h, CpuFrame(second, 32, 32)), 0); }), "");
    EXPECT_EQ(g_sdk.QuillonRenderSetWnd(h, reinterpret_cast<HWND>(0x4321)), -1);
}

// --- draw callback and configuration commands -----------------------------------------

TEST_F(Render, DrawCallbackGetsTheRecordCopyOncePerPictureAndPartialPayloads)
{
    QuillonRenderHandle h = OnWindow(NewWindow(360, 200, 64, 64));
    int userA = 1, userB = 2;
    EXPECT_EQ(Config(h, QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{CountingCallback, &userA}), 0);
    std::vector<uint8_t> picture = SolidI420(32, 16, 100, 128, 128);
    ShowFrameData f = CpuFrame(picture, 32, 16);
    f.eraseOnRelease = 7;
    f.arraySlice = 3;

    g_seen.calls = 0;
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    EXPECT_EQ(g_seen.calls, 2);
    EXPECT_EQ(memcmp(&g_seen.frame, &f, sizeof(f)), 0);
    EXPECT_NE(g_seen.address, static_cast<const void*>(&f));
    EXPECT_EQ(g_seen.user, &userA);

    // 8 bytes replace the callback and keep the user pointer; 0 bytes keep both.
    EXPECT_EQ(Config(h, QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{OtherCallback, &userB}, 8), 0);
    EXPECT_EQ(Config(h, QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{CountingCallback, &userB}, 0), 0);
    g_seen.calls = 0;
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(g_seen.calls, 100);
    EXPECT_EQ(g_seen.user, &userA);

    // A null callback switches it off.
    EXPECT_EQ(Config(h, QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{nullptr, nullptr}), 0);
    g_seen.calls = 0;
    EXPECT_EQ(Show(h, f), 0);
    EXPECT_EQ(g_seen.calls, 0);
}

TEST_F(Render, CommandsWithNullPayloadsLogAndUnknownCommandsPass)
{
    QuillonRenderHandle h = NewRender();
    const struct {
        const char* func;
        int line;
    } checks[] = {{"Texture2DToNV12", 172}, {"SetDrawCallBack", 186},   {"InnerOnDrawLine", 193},
                  {"InnerOnDrawText", 203}, {"InnerOnDrawBlurry", 213}, {"InnerEZoomArea", 223},
                  {"InnerSetDstRect", 233}};
    for (unsigned command = 0; command < 7; ++command) {
        EXPECT_EQ(g_sdk.QuillonRenderConfig(h, command, nullptr, 416), -1) << command;
        EXPECT_EQ(TakeVelmorCalls(), DrawCheck(checks[command].func, checks[command].line));
    }
    for (unsigned command : {7u, 0xFFFFFFFFu}) {
        EXPECT_EQ(g_sdk.QuillonRenderConfig(h, command, nullptr, 0), 0);
        EXPECT_EQ(g_sdk.QuillonRenderConfig(h, command, reinterpret_cast<void*>(0x8), 64), 0);
    }
    // Overlays outside the callback (and without a device) still return 0.
    for (unsigned command = 2; command <= 4; ++command) EXPECT_EQ(Config(h, command, OverlayParam{}), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
}

TEST(RenderObject, ZoomAndDestinationPayloadsAreCopiedByLength)
{
    CLS_D3D11vaDraw draw;
    auto zoom = [&] {
        const EZoomArea z = draw.Renderer().GetZoomArea();
        return std::vector<double>{z.left, z.top, z.right, z.bottom};
    };
    auto dst = [&] {
        const DstRect d = draw.Renderer().GetDstRect();
        return std::vector<int>{d.left, d.top, d.right, d.bottom};
    };
    EXPECT_EQ(zoom(), (std::vector<double>{0.0, 0.0, 1.0, 1.0}));
    EZoomArea z = {0.25, 0.125, 0.75, 0.5};
    EXPECT_EQ(draw.Config(QUILLON_CMD_EZOOM_AREA, &z, 16), 0);
    EXPECT_EQ(zoom(), (std::vector<double>{0.25, 0.125, 0.0, 0.0}));
    EXPECT_EQ(draw.Config(QUILLON_CMD_EZOOM_AREA, &z, 64), 0);
    EXPECT_EQ(zoom(), (std::vector<double>{0.25, 0.125, 0.75, 0.5}));

    DstRect d = {10, 20, 30, 40};
    EXPECT_EQ(draw.Config(QUILLON_CMD_SET_DST_RECT, &d, 8), 0);
    EXPECT_EQ(dst(), (std::vector<int>{10, 20, 0, 0}));
    EXPECT_EQ(draw.Config(QUILLON_CMD_SET_DST_RECT, &d, -5), 0);  // negative: nothing copied
    EXPECT_EQ(dst(), (std::vector<int>{0, 0, 0, 0}));
}

TEST_F(Render, OverlaysFromInsideTheCallbackReachTheScreen)
{
    HWND wnd = NewWindow(480, 20, 160, 120);
    QuillonRenderHandle h = OnWindow(wnd);
    ASSERT_EQ(Config(h, QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{DrawOverlays, h}), 0);
    std::vector<uint8_t> black = SolidI420(32, 32, 16, 128, 128);
    EXPECT_EQ(Show(h, CpuFrame(black, 32, 32)), 0);
    ExpectOverlays(wnd);
    EXPECT_EQ(ScreenFault(wnd, 50, 110, {0, 0, 0}, 40), "");
    // Some of the text box is lit (which pixels depends on the font).
    int lit = 0;
    for (int y = 55; y < 105; y += 3)
        for (int x = 92; x < 158; x += 3) lit += GetRValue(testkit::ClientPixel(wnd, x, y)) > 128;
    EXPECT_GT(lit, 0);
}

// --- the zoom crop ------------------------------------------------------------------------

TEST(ZoomSourceRect, RoundsToFourCorrectsPaddedHeightsAndMakesEven)
{
    const struct {
        int w, h;
        double zoom[4];
        RECT want;
    } cases[] = {
        {1920, 1088, {0.25, 0.25, 0.75, 0.75}, {480, 270, 1440, 810}},
        {1918, 1086, {0, 0, 1, 1}, {0, 0, 1920, 1080}},  // 1086 -> 1088 -> 1080; width not corrected
        {640, 368, {0, 0, 1, 1}, {0, 0, 640, 360}},
        {640, 366, {0, 0, 1, 1}, {0, 0, 640, 360}},
        {1088, 1088, {0, 0, 1, 1}, {0, 0, 1088, 1080}},
        {321, 241, {0, 0, 1, 1}, {0, 0, 324, 244}},
        {1000, 1000, {271.9 / 1000, -3.5 / 1000, 1, 1}, {270, -2, 1000, 1000}},  // 271.9 -> 270; -3.5 -> -2
        {64, 64, {0.5, 0.5, 0, 0}, {32, 32, 0, 0}},                              // a short payload
    };
    for (const auto& c : cases) {
        const RECT r = ZoomSourceRect(c.w, c.h, c.zoom);
        EXPECT_TRUE(EqualRect(&r, &c.want)) << c.w << "x" << c.h << " -> " << r.left << "," << r.top << ","
                                            << r.right << "," << r.bottom;
    }
}

}  // namespace
