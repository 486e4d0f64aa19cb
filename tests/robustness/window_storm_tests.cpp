// Window storms: pictures keep coming while the window is resized 500 times
// (now and then to 0 x 0 and back), minimised and restored, and the render
// object is moved to another window and back with QuillonRenderSetWnd.
// Nothing may fail, and the last picture fills the final client area.
#include <random>

#include "tests/render/render_fixture.h"

namespace {

constexpr int kResizes = 500, kPictureW = 64, kPictureH = 48;

LRESULT CALLBACK StormProc(HWND wnd, UINT msg, WPARAM wp, LPARAM lp)
{
    if (msg != WM_GETMINMAXINFO) return DefWindowProcA(wnd, msg, wp, lp);
    reinterpret_cast<MINMAXINFO*>(lp)->ptMinTrackSize = {0, 0};  // let the client area shrink to nothing
    return 0;
}

// A borderless window, so that its client area is the window's own size.
HWND CreateStormWindow(int x, int y, int w, int h)
{
    WNDCLASSA wc = {};
    wc.lpfnWndProc = StormProc;
    wc.hInstance = GetModuleHandleA(nullptr);
    wc.hbrBackground = static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
    wc.lpszClassName = "QuillonStormWindow";
    RegisterClassA(&wc);
    HWND wnd = CreateWindowA(wc.lpszClassName, "storm", WS_POPUP | WS_VISIBLE, x, y, w, h, nullptr, nullptr,
                             wc.hInstance, nullptr);
    UpdateWindow(wnd);
    return wnd;
}

void Resize(HWND wnd, int w, int h)
{
    SetWindowPos(wnd, nullptr, 0, 0, w, h, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    testkit::PumpMessages();
}

TEST(Storm, ResizeMinimiseAndMoveWhileShowing)
{
    StagedSdk sdk("robust_storm");
    ASSERT_TRUE(sdk.bound);
    sdk.api.QuillonStartup();
    HWND home = CreateStormWindow(0, 0, 320, 240), other = CreateStormWindow(480, 0, 200, 150);
    QuillonRenderHandle render = sdk.api.QuillonRenderCreate(nullptr, 0);
    RenderInitParam init = {};
    init.hWnd = home;
    ASSERT_EQ(0, sdk.api.QuillonRenderInitDevice(render, &init, sizeof(init)));
    // Every show must succeed (0), also on a minimised or empty window,
    // where nothing is drawn.
    std::vector<uint8_t> red = SolidI420(kPictureW, kPictureH, 81, 90, 240);
    std::vector<uint8_t> blue = SolidI420(kPictureW, kPictureH, 41, 240, 110);
    int failedShows = 0;
    auto show = [&](std::vector<uint8_t>& picture) {
        ShowFrameData frame = CpuFrame(picture, kPictureW, kPictureH);
        const int r = sdk.api.QuillonRenderShowFrame(render, &frame, sizeof(frame));
        if (r != 0 && ++failedShows <= 5) ADD_FAILURE() << "QuillonRenderShowFrame returned " << r;
        testkit::PumpMessages();
    };

    std::mt19937 rng(7);
    int emptyClients = 0;
    for (int i = 1; i <= kResizes; ++i) {
        const int w = 1 + static_cast<int>(rng() % 400), h = 1 + static_cast<int>(rng() % 300);
        Resize(home, i % 50 ? w : 0, i % 50 ? h : 0);
        RECT c;
        GetClientRect(home, &c);
        emptyClients += c.right == 0 && c.bottom == 0;
        show(red);
        if (i % 100 == 25) {
            ShowWindow(home, SW_MINIMIZE);
            testkit::PumpMessages();
            show(red);
            show(red);
            ShowWindow(home, SW_RESTORE);
            testkit::PumpMessages();
            show(red);
        }
        if (i == kResizes / 2 + 10) {
            // Over to the other window and back again. The render object goes
            // on measuring the window it was set up on, so this is done while
            // that one is not empty.
            ASSERT_EQ(0, sdk.api.QuillonRenderSetWnd(render, other));
            for (int k = 0; k < 3; ++k) show(blue);
            EXPECT_EQ(ScreenFault(other, 100, 75, {0, 0, 255}, 24, [&] { show(blue); }), "");
            ASSERT_EQ(0, sdk.api.QuillonRenderSetWnd(render, home));
        }
    }
    EXPECT_EQ(kResizes / 50, emptyClients);  // the 0 x 0 sizes really were empty

    Resize(home, 300, 200);
    show(blue);
    show(blue);
    for (POINT p : {POINT{1, 1}, POINT{298, 1}, POINT{1, 198}, POINT{298, 198}, POINT{150, 100}})
        EXPECT_EQ(ScreenFault(home, p.x, p.y, {0, 0, 255}, 24), "");
    EXPECT_EQ(0, failedShows);
    EXPECT_EQ(1, sdk.api.QuillonRenderRelease(render));
    DestroyWindow(home);
    DestroyWindow(other);
    sdk.api.QuillonCleanup();
}

}  // namespace
