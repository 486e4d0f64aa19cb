#pragma once
// The fixture of the render suites: QuillonSDK.dll staged once per process
// beside the recording Velmor.dll and bound by name, render objects and
// windows released after each test, the expected error records, and the
// screen checks the render and robustness suites share.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "testkit/recording.h"
#include "testkit/staged_sdk.h"

using testkit::Calls;
using testkit::ErrorRecord;
using testkit::Rgb;
using testkit::TakeVelmorCalls;
using testkit::Yuv;

inline QuillonSdkApi& g_sdk = testkit::RecordingTest::sdk;
inline HMODULE g_module = nullptr;

inline Calls DrawCheck(const std::string& func, int line)
{
    return ErrorRecord("render/CLS_D3D11vaDraw.cpp", "CLS_D3D11vaDraw::" + func, line, "CHECK_EQUAL_RETURN");
}

inline Calls UnknownHandle(const std::string& func, int line)
{
    return ErrorRecord("interface/CLS_RenderManager.cpp", "CLS_RenderManager::" + func, line, "IsHandleValid faild!");
}

// "" when the client pixel (x, y) of `wnd` is `want` within `tolerance`,
// else what it is. Polls, as presentation is asynchronous; `again`, when
// given, shows the picture once more between short polls (a swap chain made
// anew may drop its first pictures).
inline std::string ScreenFault(HWND wnd, int x, int y, Rgb want, int tolerance = 3,
                               const std::function<void()>& again = nullptr)
{
    auto ok = [&](COLORREF c) { return testkit::Near(c, want.r, want.g, want.b, tolerance); };
    COLORREF c = 0;
    for (int i = 0; i < 20; ++i) {
        if (again) again();
        c = testkit::WaitForClientPixel(wnd, x, y, ok, again && i < 19 ? 150 : 5000);
        if (ok(c) || !again) break;
    }
    if (ok(c)) return "";
    return "pixel (" + std::to_string(x) + "," + std::to_string(y) + ") is " + std::to_string(GetRValue(c)) + "," +
           std::to_string(GetGValue(c)) + "," + std::to_string(GetBValue(c)) + ", not " + std::to_string(want.r) +
           "," + std::to_string(want.g) + "," + std::to_string(want.b);
}

// A slice of a decoder-shaped texture array as QuillonRenderShowFrame takes it.
inline ShowFrameData Slice(ID3D11Texture2D* texture, UINT slice, int w, int h)
{
    ShowFrameData f = {};
    f.texture = texture;
    f.arraySlice = slice;
    f.width = w;
    f.height = h;
    return f;
}

// Draw callback that draws from inside the callback, through the exports: a
// green line along y = 20 (x 10..150, 6 wide), a solid red hatched box
// (20,60)-(80,100), and a text box of two full blocks at x >= 92, y 55..105.
inline void QUILLON_CALL DrawOverlays(ShowFrameData*, void* user)
{
    const QuillonRenderHandle h = user;
    OverlayParam line = {0, 0x00FF00, 6, 2, {{10, 20}, {150, 20}}, "", 0.0f, 0, 0, {}};
    g_sdk.QuillonRenderConfig(h, QUILLON_CMD_DRAW_LINE, &line, sizeof(line));
    // No wider spacing than the stroke: solid.
    OverlayParam hatch = {0, 0x0000FF, 4, 4, {{20, 60}, {80, 60}, {80, 100}, {20, 100}}, "", 2.0f, 0, 0, {}};
    g_sdk.QuillonRenderConfig(h, QUILLON_CMD_DRAW_BLURRY, &hatch, sizeof(hatch));
    OverlayParam text = {0, 0xFFFFFF, 40, 0, {{90, 50}, {160, 110}}, "\xe2\x96\x88\xe2\x96\x88", 0.0f, 0, 2, {}};
    g_sdk.QuillonRenderConfig(h, QUILLON_CMD_DRAW_TEXT, &text, sizeof(text));
}

// The overlays of DrawOverlays on screen: the line and the box (the text's
// pixels depend on the font).
inline void ExpectOverlays(HWND wnd)
{
    EXPECT_EQ(ScreenFault(wnd, 80, 20, {0, 255, 0}, 40), "");
    EXPECT_EQ(ScreenFault(wnd, 50, 80, {255, 0, 0}, 40), "");
}

class Render : public testkit::RecordingTest {
protected:
    static void SetUpTestSuite()
    {
        Start("render");
        g_module = Stage("render").module;
    }

    void TearDown() override
    {
        for (QuillonRenderHandle h : m_handles) g_sdk.QuillonRenderRelease(h);
        for (HWND w : m_windows) DestroyWindow(w);
    }

    QuillonRenderHandle NewRender()
    {
        m_handles.push_back(g_sdk.QuillonRenderCreate(nullptr, 0));
        EXPECT_NE(m_handles.back(), nullptr);
        return m_handles.back();
    }

    HWND NewWindow(int x, int y, int w, int h)
    {
        m_windows.push_back(testkit::CreateTestWindow(x, y, w, h));
        Settle();
        return m_windows.back();
    }

    // A render object on `wnd` (none: a device alone); its device written
    // back into `init`.
    QuillonRenderHandle OnWindow(HWND wnd, RenderInitParam* init = nullptr, int length = sizeof(RenderInitParam))
    {
        RenderInitParam local;
        init = init ? init : &local;
        memset(init, 0, sizeof(*init));
        init->hWnd = wnd;
        QuillonRenderHandle h = NewRender();
        EXPECT_EQ(g_sdk.QuillonRenderInitDevice(h, init, length), 0);
        EXPECT_NE(init->device, nullptr);
        return h;
    }

    static int Show(QuillonRenderHandle h, ShowFrameData f, int length = sizeof(ShowFrameData))
    {
        return g_sdk.QuillonRenderShowFrame(h, &f, length);
    }

    template <typename T>
    static int Config(QuillonRenderHandle h, unsigned command, T payload, int length = sizeof(T))
    {
        return g_sdk.QuillonRenderConfig(h, command, &payload, length);
    }

    // Runs the message loop a moment, as a host does between creating or
    // resizing a window and drawing into it.
    static void Settle()
    {
        for (int i = 0; i < 20; ++i) {
            testkit::PumpMessages();
            Sleep(10);
        }
    }

    static void ResizeClient(HWND wnd, int w, int h)
    {
        RECT r = {0, 0, w, h};
        AdjustWindowRect(&r, WS_POPUP, FALSE);
        SetWindowPos(wnd, nullptr, 0, 0, r.right - r.left, r.bottom - r.top, SWP_NOMOVE | SWP_NOZORDER);
        Settle();
    }

    void Forget(QuillonRenderHandle h) { m_handles.erase(std::find(m_handles.begin(), m_handles.end(), h)); }

    std::vector<QuillonRenderHandle> m_handles;
    std::vector<HWND> m_windows;
};
