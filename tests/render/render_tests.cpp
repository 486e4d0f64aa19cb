// The render family through the exported functions of QuillonSDK.dll, loaded
// from a staged directory beside the recording Velmor.dll and ffmpeg-7.dll:
// export table, handles, records copied by length, window tracking, the
// CPU-data path's pixels, the draw callback and its overlays, configuration
// commands, and the zoom crop arithmetic.
#include <gtest/gtest.h>

#include <d3d11.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "player/QuillonSdkApi.h"
#include "render/CLS_D3D11vaDraw.h"
#include "render/CLS_D3D11vaRenderer.h"
#include "testkit/staged_sdk.h"
#include "tests/render/render_fixture.h"

namespace {

// Studio-range BT.601, as the planar conversion computes it.
void Bt601(int y, int u, int v, int rgb[3])
{
    const double Y = 1.1644 * (y - 16) / 255.0, U = (u - 128) / 255.0, V = (v - 128) / 255.0;
    const double c[3] = {Y + 1.596 * V, Y - 0.3918 * U - 0.813 * V, Y + 2.0172 * U};
    for (int i = 0; i < 3; ++i) rgb[i] = static_cast<int>(std::lround(std::fmin(1.0, std::fmax(0.0, c[i])) * 255));
}

bool ShowsYuv(HWND window, int x, int y, int Y, int U, int V)
{
    int rgb[3];
    Bt601(Y, U, V, rgb);
    const COLORREF c = testkit::WaitForClientPixel(
        window, x, y, [&](COLORREF p) { return testkit::Near(p, rgb[0], rgb[1], rgb[2], 6); });
    EXPECT_TRUE(testkit::Near(c, rgb[0], rgb[1], rgb[2], 6))
        << "pixel (" << x << "," << y << ") = " << std::hex << c << ", want rgb " << std::dec << rgb[0] << ","
        << rgb[1] << "," << rgb[2];
    return testkit::Near(c, rgb[0], rgb[1], rgb[2], 6);
}

// --- exports and handles -------------------------------------------------------

TEST_F(Render, ExportTableListsThirteenNamesWithOrdinalsInOrder)
{
    const auto* base = reinterpret_cast<const unsigned char*>(g_module);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    const auto& entry = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    const auto* dir = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + entry.VirtualAddress);
    const auto* names = reinterpret_cast<const DWORD*>(base + dir->AddressOfNames);
    const auto* ordinals = reinterpret_cast<const WORD*>(base + dir->AddressOfNameOrdinals);
    const char* expected[] = {"QuillonCleanup",           "QuillonDecoderCreate",    "QuillonDecoderDecodeOneFrame",
                              "QuillonDecoderInitial",    "QuillonDecoderRelease",   "QuillonRenderConfig",
                              "QuillonRenderCreate",      "QuillonRenderGetDrawInfo", "QuillonRenderInitDevice",
                              "QuillonRenderRelease",     "QuillonRenderSetWnd",     "QuillonRenderShowFrame",
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
    for (void* h : {static_cast<void*>(nullptr), static_cast<void*>(&local)}) {
        char buf[112] = {};
        EXPECT_EQ(g_sdk.QuillonRenderInitDevice(h, buf, 72), -1);
        EXPECT_EQ(TakeVelmorCalls(), UnknownHandle("InitDevice", 68));
        EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, buf, 112), -1);
        EXPECT_EQ(TakeVelmorCalls(), UnknownHandle("ShowFrame", 80));
        EXPECT_EQ(g_sdk.QuillonRenderGetDrawInfo(h, buf, 8), -1);
        EXPECT_EQ(TakeVelmorCalls(), UnknownHandle("GetDrawInfo", 103));
        EXPECT_EQ(g_sdk.QuillonRenderSetWnd(h, nullptr), -1);
        EXPECT_EQ(TakeVelmorCalls(), UnknownHandle("SetWnd", 113));
        EXPECT_EQ(g_sdk.QuillonRenderConfig(h, 7, buf, 8), -1);
        EXPECT_EQ(TakeVelmorCalls(), UnknownHandle("Config", 123));
        EXPECT_EQ(g_sdk.QuillonRenderRelease(h), -1);
        EXPECT_EQ(TakeVelmorCalls(), UnknownHandle("Release", 92));
        EXPECT_EQ(local, 0);
    }
    // A decoder handle is unknown to the render family.
    QuillonDecoderHandle decoder = g_sdk.QuillonDecoderCreate(nullptr, 0);
    ASSERT_NE(decoder, nullptr);
    EXPECT_EQ(g_sdk.QuillonRenderRelease(decoder), -1);
    EXPECT_EQ(TakeVelmorCalls(), UnknownHandle("Release", 92));
    g_sdk.QuillonDecoderRelease(decoder);
}

TEST_F(Render, NullRecordsBeforeAndAfterTheDeviceAndReleaseOnce)
{
    QuillonRenderHandle h = NewRender();
    unsigned char frame[112] = {};
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, frame, sizeof(frame)), -200);
    EXPECT_EQ(TakeVelmorCalls(), DrawCheck("CLS_D3D11vaDraw::ShowFrame", 72));
    EXPECT_EQ(g_sdk.QuillonRenderInitDevice(h, nullptr, 72), -101);
    EXPECT_EQ(TakeVelmorCalls(), DrawCheck("CLS_D3D11vaDraw::InitDevice", 26));
    EXPECT_EQ(g_sdk.QuillonRenderGetDrawInfo(h, nullptr, 8), -101);
    EXPECT_EQ(TakeVelmorCalls(), DrawCheck("CLS_D3D11vaDraw::GetDrawInfo", 19));

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
    EXPECT_EQ(TakeVelmorCalls(), DrawCheck("CLS_D3D11vaDraw::ShowFrame", 73));
    // No window to measure: nothing drawn, no error.
    std::vector<unsigned char> picture = SolidI420(16, 16, 128, 128, 128);
    ShowFrameData f = CpuFrame(picture, 16, 16);
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
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

    const int colours[][3] = {{81, 90, 240}, {145, 54, 34}, {41, 240, 110}, {180, 60, 200}};
    for (const auto& c : colours) {
        std::vector<unsigned char> picture = SolidI420(64, 48, c[0], c[1], c[2]);
        ShowFrameData f = CpuFrame(picture, 64, 48);
        EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
        ShowsYuv(wnd, 80, 60, c[0], c[1], c[2]);
        ShowsYuv(wnd, 3, 3, c[0], c[1], c[2]);
        ShowsYuv(wnd, 156, 116, c[0], c[1], c[2]);
    }

    // 24 bytes reach the renderer: the texture (offset 24) is zeroed.
    std::vector<unsigned char> picture = SolidI420(64, 48, 210, 16, 146);
    ShowFrameData f = CpuFrame(picture, 64, 48);
    f.texture = reinterpret_cast<void*>(0x10);
    f.lineSize = 999;
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, 24), 0);
    ShowsYuv(wnd, 80, 60, 210, 16, 146);

    // Neither texture nor data: the CPU path refuses.
    f.data = nullptr;
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, 24), -1);
}

TEST_F(Render, PaddedLumaRowsStillFindChromaAtWidthTimesHeight)
{
    HWND wnd = NewWindow(200, 20, 128, 96);
    QuillonRenderHandle h = OnWindow(wnd, nullptr, 8);  // 8 bytes: the window alone
    const int w = 64, hh = 48, line = 128;
    // Y rows of 128 bytes, U at w*h = 3072 and V at 5*w*h/4 = 3840 with
    // chroma rows of 64 bytes: the planes overlap, as a padding host's do.
    // Runs of constant bytes make every plane rule give another colour.
    std::vector<unsigned char> buf(line * hh * 2, 16);
    memset(&buf[0], 200, 3072);
    memset(&buf[3072], 90, 3840 - 3072);
    memset(&buf[3840], 240, line * hh - 3840);
    ShowFrameData f = CpuFrame(buf, w, hh);
    f.lineSize = line;
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    // Rows 0-10: Y 200 (row bytes below 3072), U 90, V 240.
    ShowsYuv(wnd, 64, 10, 200, 90, 240);
    // Rows 32-47: Y rows at 4096 and later, chroma rows 16-23 at 4096+ and 4864+.
    ShowsYuv(wnd, 64, 80, 240, 240, 240);
}

// --- window tracking ---------------------------------------------------------------

TEST_F(Render, OddClientRectResizesOnceAndWindowResizeIsLoggedOnce)
{
    HWND wnd = NewWindow(360, 20, 161, 121);
    QuillonRenderHandle h = OnWindow(wnd);
    std::vector<unsigned char> picture = SolidI420(32, 32, 81, 90, 240);
    ShowFrameData f = CpuFrame(picture, 32, 32);
    TakeVelmorCalls();
    // InitDevice kept 160 x 120; the first picture measures 161 x 121.
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    EXPECT_EQ(TakeVelmorCalls(), ErrorRecord("common/QuillonCommonFun.cpp", "IsEqualRectSize", 59, "CHECK_UNEQUAL_RETURN"));
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    Settle();
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    ShowsYuv(wnd, 80, 60, 81, 90, 240);
    ShowsYuv(wnd, 160, 120, 81, 90, 240);

    RECT r = {0, 0, 200, 150};
    AdjustWindowRect(&r, WS_POPUP, FALSE);
    SetWindowPos(wnd, nullptr, 0, 0, r.right - r.left, r.bottom - r.top, SWP_NOMOVE | SWP_NOZORDER);
    Settle();
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    const Calls changed = {"sdk_log_get_level",
                           "sdk_log_msg(CLS_D3D11vaDraw::ShowFrame Windows Size Changed Recreate Render)"};
    EXPECT_EQ(TakeVelmorCalls(), changed);
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    ShowsYuv(wnd, 196, 146, 81, 90, 240);
}

int g_calls = 0;
ShowFrameData g_seen;
const void* g_seenAddress = nullptr;
void* g_seenUser = nullptr;

void QUILLON_CALL CountingCallback(ShowFrameData* frame, void* user)
{
    ++g_calls;
    g_seen = *frame;
    g_seenAddress = frame;
    g_seenUser = user;
}

void QUILLON_CALL OtherCallback(ShowFrameData*, void* user)
{
    g_calls += 100;
    g_seenUser = user;
}

TEST_F(Render, MinimisedWindowShowsNothingAndSetWndMovesToAnotherWindow)
{
    HWND wnd = NewWindow(20, 200, 96, 64);
    QuillonRenderHandle h = OnWindow(wnd);
    int user = 0;
    DrawCallBackParam cb = {CountingCallback, &user};
    ASSERT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_SET_DRAW_CALLBACK, &cb, sizeof(cb)), 0);
    std::vector<unsigned char> picture = SolidI420(32, 32, 41, 240, 110);
    ShowFrameData f = CpuFrame(picture, 32, 32);

    g_calls = 0;
    ShowWindow(wnd, SW_MINIMIZE);
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    EXPECT_EQ(g_calls, 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    ShowWindow(wnd, SW_RESTORE);

    // Another window of the same size: the swap chain moves, the device stays.
    HWND other = NewWindow(140, 200, 96, 64);
    void* before = nullptr;
    g_sdk.QuillonRenderGetDrawInfo(h, &before, 8);
    EXPECT_EQ(g_sdk.QuillonRenderSetWnd(h, other), 0);
    void* after = nullptr;
    g_sdk.QuillonRenderGetDrawInfo(h, &after, 8);
    EXPECT_EQ(before, after);
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    EXPECT_EQ(g_calls, 1);
    ShowsYuv(other, 48, 32, 41, 240, 110);

    // Onto the window it already shows on: the old swap chain and all that
    // holds it go before the new one is made, and pictures go on (a new swap
    // chain may drop its first presents, so show until it is there).
    EXPECT_EQ(g_sdk.QuillonRenderSetWnd(h, other), 0);
    std::vector<unsigned char> second = SolidI420(32, 32, 180, 60, 200);
    ShowFrameData g = CpuFrame(second, 32, 32);
    int rgb[3];
    Bt601(180, 60, 200, rgb);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &g, sizeof(g)), 0);
        const COLORREF c = testkit::WaitForClientPixel(
            other, 48, 32, [&](COLORREF p) { return testkit::Near(p, rgb[0], rgb[1], rgb[2], 6); }, 150);
        if (testkit::Near(c, rgb[0], rgb[1], rgb[2], 6)) break;
    }
    ShowsYuv(other, 48, 32, 180, 60, 200);
    EXPECT_EQ(g_sdk.QuillonRenderSetWnd(h, reinterpret_cast<HWND>(0x4321)), -1);
}

// --- draw callback and configuration commands -----------------------------------------

TEST_F(Render, DrawCallbackGetsTheRecordCopyOncePerPictureAndPartialPayloads)
{
    HWND wnd = NewWindow(360, 200, 64, 64);
    QuillonRenderHandle h = OnWindow(wnd);
    int userA = 1, userB = 2;
    DrawCallBackParam cb = {CountingCallback, &userA};
    EXPECT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_SET_DRAW_CALLBACK, &cb, sizeof(cb)), 0);
    std::vector<unsigned char> picture = SolidI420(32, 16, 100, 128, 128);
    ShowFrameData f = CpuFrame(picture, 32, 16);
    f.eraseOnRelease = 7;
    f.arraySlice = 3;

    g_calls = 0;
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    EXPECT_EQ(g_calls, 2);
    EXPECT_EQ(memcmp(&g_seen, &f, sizeof(f)), 0);
    EXPECT_NE(g_seenAddress, static_cast<const void*>(&f));
    EXPECT_EQ(g_seenUser, &userA);

    // 8 bytes replace the callback and keep the user pointer; 0 bytes keep both.
    DrawCallBackParam other = {OtherCallback, &userB};
    EXPECT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_SET_DRAW_CALLBACK, &other, 8), 0);
    EXPECT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_SET_DRAW_CALLBACK, &cb, 0), 0);
    g_calls = 0;
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    EXPECT_EQ(g_calls, 100);
    EXPECT_EQ(g_seenUser, &userA);

    // A null callback switches it off.
    DrawCallBackParam off = {nullptr, nullptr};
    EXPECT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_SET_DRAW_CALLBACK, &off, sizeof(off)), 0);
    g_calls = 0;
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    EXPECT_EQ(g_calls, 0);
}

TEST_F(Render, CommandsWithNullPayloadsLogAndUnknownCommandsPass)
{
    QuillonRenderHandle h = NewRender();
    const char* names[] = {"Texture2DToNV12",  "SetDrawCallBack", "InnerOnDrawLine", "InnerOnDrawText",
                           "InnerOnDrawBlurry", "InnerEZoomArea",  "InnerSetDstRect"};
    const int lines[] = {172, 186, 193, 203, 213, 223, 233};
    for (unsigned command = 0; command < 7; ++command) {
        EXPECT_EQ(g_sdk.QuillonRenderConfig(h, command, nullptr, 416), -1) << command;
        EXPECT_EQ(TakeVelmorCalls(), DrawCheck(std::string("CLS_D3D11vaDraw::") + names[command], lines[command]));
    }
    for (unsigned command : {7u, 0xFFFFFFFFu}) {
        EXPECT_EQ(g_sdk.QuillonRenderConfig(h, command, nullptr, 0), 0);
        EXPECT_EQ(g_sdk.QuillonRenderConfig(h, command, reinterpret_cast<void*>(0x8), 64), 0);
    }
    // Overlays outside the callback (and without a device) still return 0.
    OverlayParam overlay;
    memset(&overlay, 0, sizeof(overlay));
    for (unsigned command = 2; command <= 4; ++command)
        EXPECT_EQ(g_sdk.QuillonRenderConfig(h, command, &overlay, sizeof(overlay)), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
}

TEST(RenderObject, ZoomAndDestinationPayloadsAreCopiedByLength)
{
    CLS_D3D11vaDraw draw;
    const EZoomArea initial = draw.Renderer().GetZoomArea();
    EXPECT_EQ(initial.left, 0.0);
    EXPECT_EQ(initial.right, 1.0);
    EXPECT_EQ(initial.bottom, 1.0);
    EZoomArea zoom = {0.25, 0.125, 0.75, 0.5};
    EXPECT_EQ(draw.Config(QUILLON_CMD_EZOOM_AREA, &zoom, 16), 0);
    EZoomArea got = draw.Renderer().GetZoomArea();
    EXPECT_EQ(got.left, 0.25);
    EXPECT_EQ(got.top, 0.125);
    EXPECT_EQ(got.right, 0.0);
    EXPECT_EQ(got.bottom, 0.0);
    EXPECT_EQ(draw.Config(QUILLON_CMD_EZOOM_AREA, &zoom, 64), 0);
    EXPECT_EQ(draw.Renderer().GetZoomArea().bottom, 0.5);

    DstRect dst = {10, 20, 30, 40};
    EXPECT_EQ(draw.Config(QUILLON_CMD_SET_DST_RECT, &dst, 8), 0);
    DstRect d = draw.Renderer().GetDstRect();
    EXPECT_EQ(d.left, 10);
    EXPECT_EQ(d.top, 20);
    EXPECT_EQ(d.right, 0);
    EXPECT_EQ(d.bottom, 0);
    EXPECT_EQ(draw.Config(QUILLON_CMD_SET_DST_RECT, &dst, -5), 0);  // negative: nothing copied
    EXPECT_EQ(draw.Renderer().GetDstRect().left, 0);
}

TEST_F(Render, OverlaysFromInsideTheCallbackReachTheScreen)
{
    HWND wnd = NewWindow(480, 20, 160, 120);
    QuillonRenderHandle h = OnWindow(wnd);
    OverlayTarget target = {h};
    DrawCallBackParam cb = {DrawOverlays, &target};
    ASSERT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_SET_DRAW_CALLBACK, &cb, sizeof(cb)), 0);
    std::vector<unsigned char> picture = SolidI420(32, 32, 16, 128, 128);  // black
    ShowFrameData f = CpuFrame(picture, 32, 32);
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
    auto isNear = [](int r, int g, int b) {
        return [=](COLORREF c) { return testkit::Near(c, r, g, b, 40); };
    };
    EXPECT_TRUE(isNear(0, 255, 0)(testkit::WaitForClientPixel(wnd, 80, 20, isNear(0, 255, 0))));
    EXPECT_TRUE(isNear(255, 0, 0)(testkit::WaitForClientPixel(wnd, 50, 80, isNear(255, 0, 0))));
    EXPECT_TRUE(isNear(0, 0, 0)(testkit::WaitForClientPixel(wnd, 50, 110, isNear(0, 0, 0))));
    // Some of the text box is lit (which pixels depends on the font).
    int lit = 0;
    for (int y = 55; y < 105; y += 3)
        for (int x = 92; x < 158; x += 3)
            lit += GetRValue(testkit::ClientPixel(wnd, x, y)) > 128;
    EXPECT_GT(lit, 0);
}

// --- hardware path ------------------------------------------------------------------------

TEST(ZoomSourceRect, RoundsToFourCorrectsPaddedHeightsAndMakesEven)
{
    const double whole[4] = {0.0, 0.0, 1.0, 1.0};
    const double middle[4] = {0.25, 0.25, 0.75, 0.75};
    auto check = [](int w, int h, const double* z, RECT want) {
        const RECT r = ZoomSourceRect(w, h, z);
        EXPECT_TRUE(r.left == want.left && r.top == want.top && r.right == want.right && r.bottom == want.bottom)
            << w << "x" << h << " -> " << r.left << "," << r.top << "," << r.right << "," << r.bottom;
    };
    check(1920, 1088, middle, {480, 270, 1440, 810});
    check(1918, 1086, whole, {0, 0, 1920, 1080});  // 1086 -> 1088 -> 1080; width not corrected
    check(640, 368, whole, {0, 0, 640, 360});
    check(640, 366, whole, {0, 0, 640, 360});
    check(1088, 1088, whole, {0, 0, 1088, 1080});
    check(321, 241, whole, {0, 0, 324, 244});
    const double odd[4] = {271.9 / 1000, -3.5 / 1000, 1.0, 1.0};
    check(1000, 1000, odd, {270, -2, 1000, 1000});  // 271.9 -> 271 -> 270; -3.5 -> -3 -> -2
    const double shortPayload[4] = {0.5, 0.5, 0.0, 0.0};
    check(64, 64, shortPayload, {32, 32, 0, 0});
}

}  // namespace
