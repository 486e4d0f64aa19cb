// Window storms: pictures keep coming while the window is resized 500 times
// (now and then to 0 x 0 and back), minimised and restored, and the render
// object is moved to another window and back with QuillonRenderSetWnd.
// Nothing may fail, and the last picture fills the final client area.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>

#include "testkit/staged_sdk.h"

namespace {

constexpr int kResizes = 500;

LRESULT CALLBACK StormProc(HWND wnd, UINT msg, WPARAM wp, LPARAM lp)
{
    if (msg == WM_GETMINMAXINFO) {  // let the client area shrink to nothing
        reinterpret_cast<MINMAXINFO*>(lp)->ptMinTrackSize = {0, 0};
        return 0;
    }
    return DefWindowProcA(wnd, msg, wp, lp);
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

class Storm : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_sdk.bound);
        m_sdk.api.QuillonStartup();
        m_main = CreateStormWindow(0, 0, 320, 240);
        m_other = CreateStormWindow(480, 0, 200, 150);
        m_render = m_sdk.api.QuillonRenderCreate(nullptr, 0);
        RenderInitParam init;
        memset(&init, 0, sizeof(init));
        init.hWnd = m_main;
        ASSERT_EQ(0, m_sdk.api.QuillonRenderInitDevice(m_render, &init, sizeof(init)));
    }
    void TearDown() override
    {
        EXPECT_EQ(1, m_sdk.api.QuillonRenderRelease(m_render));
        DestroyWindow(m_main);
        DestroyWindow(m_other);
        m_sdk.api.QuillonCleanup();
    }
    // Shows one picture; every show must succeed (0), also on a minimised
    // or empty window, where nothing is drawn.
    void Show(std::vector<uint8_t>& picture)
    {
        ShowFrameData frame = CpuFrame(picture, kPictureW, kPictureH);
        const int r = m_sdk.api.QuillonRenderShowFrame(m_render, &frame, sizeof(frame));
        if (r != 0 && ++m_failedShows <= 5) ADD_FAILURE() << "QuillonRenderShowFrame returned " << r;
        testkit::PumpMessages();
    }
    static bool ShowsEverywhere(HWND wnd, int r, int g, int b)
    {
        RECT c;
        GetClientRect(wnd, &c);
        const POINT at[] = {{1, 1}, {c.right - 2, 1}, {1, c.bottom - 2}, {c.right - 2, c.bottom - 2},
                            {c.right / 2, c.bottom / 2}};
        bool all = true;
        for (const POINT& p : at) {
            const COLORREF px = testkit::WaitForClientPixel(wnd, p.x, p.y, [&](COLORREF x) { return testkit::Near(x, r, g, b, 24); });
            if (!testkit::Near(px, r, g, b, 24)) {
                ADD_FAILURE() << "pixel (" << p.x << ", " << p.y << ") of " << c.right << " x " << c.bottom << " is "
                              << int(GetRValue(px)) << ", " << int(GetGValue(px)) << ", " << int(GetBValue(px));
                all = false;
            }
        }
        return all;
    }

    static constexpr int kPictureW = 64, kPictureH = 48;
    StagedSdk m_sdk{"robust_storm"};
    HWND m_main = nullptr, m_other = nullptr;
    QuillonRenderHandle m_render = nullptr;
    int m_failedShows = 0;
};

TEST_F(Storm, ResizeMinimiseAndMoveWhileShowing)
{
    std::vector<uint8_t> red = SolidI420(kPictureW, kPictureH, 81, 90, 240);
    std::vector<uint8_t> blue = SolidI420(kPictureW, kPictureH, 41, 240, 110);
    std::mt19937 rng(7);
    int emptyClients = 0;
    for (int i = 1; i <= kResizes; ++i) {
        int w = 1 + static_cast<int>(rng() % 400), h = 1 + static_cast<int>(rng() % 300);
        if (i % 50 == 0) w = h = 0;
        SetWindowPos(m_main, nullptr, 0, 0, w, h, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
        testkit::PumpMessages();
        RECT c;
        GetClientRect(m_main, &c);
        if (c.right == 0 && c.bottom == 0) ++emptyClients;
        Show(red);
        if (i % 100 == 25) {
            ShowWindow(m_main, SW_MINIMIZE);
            testkit::PumpMessages();
            Show(red);
            Show(red);
            ShowWindow(m_main, SW_RESTORE);
            testkit::PumpMessages();
            Show(red);
        }
        if (i == kResizes / 2 + 10) {
            // Over to the other window and back again. The render object
            // goes on measuring the window it was set up on, so this is
            // done while that one is not empty.
            ASSERT_EQ(0, m_sdk.api.QuillonRenderSetWnd(m_render, m_other));
            // A picture on a newly made swap chain may reach the screen
            // only after a later present (DXVK on lavapipe): show it again
            // while polling.
            for (int k = 0; k < 3; ++k) Show(blue);
            EXPECT_TRUE(testkit::Near(testkit::WaitForClientPixel(m_other, 100, 75, [&](COLORREF x) {
                                          if (testkit::Near(x, 0, 0, 255, 24)) return true;
                                          Show(blue);
                                          return false;
                                      }),
                                      0, 0, 255, 24));
            ASSERT_EQ(0, m_sdk.api.QuillonRenderSetWnd(m_render, m_main));
        }
    }
    EXPECT_EQ(kResizes / 50, emptyClients);  // the 0 x 0 sizes really were empty

    SetWindowPos(m_main, nullptr, 0, 0, 300, 200, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    testkit::PumpMessages();
    Show(blue);
    Show(blue);
    EXPECT_TRUE(ShowsEverywhere(m_main, 0, 0, 255));
    EXPECT_EQ(0, m_failedShows);
}

}  // namespace
