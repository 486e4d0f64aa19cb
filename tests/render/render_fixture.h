#pragma once
// The render suites' fixture (QuillonSDK.dll staged beside the recording Velmor.dll,
// objects and windows released after each test) and the screen checks they share.
#include <gtest/gtest.h>

#include "testkit/recording.h"
#include "testkit/staged_sdk.h"

using testkit::Calls;
using testkit::ErrorRecord;
using testkit::Rgb;
using testkit::TakeVelmorCalls;
using testkit::Yuv;

inline QuillonSdkApi& g_sdk = testkit::RecordingTest::sdk;

// "" when client pixel (x, y) of `wnd` is `want`, else what it is. Polls; `again` shows
// the picture once more between short polls (a new swap chain may drop its first pictures).
inline std::string ScreenFault(HWND wnd, int x, int y, Rgb want, int tolerance = 3,
                               const std::function<void()>& again = nullptr) {
    auto ok = [&](COLORREF c) { return testkit::Near(c, want.r, want.g, want.b, tolerance); };
    COLORREF c = 0;
    for (int i = 0; i < 20; ++i) {
        if (again) again();
        c = testkit::WaitForClientPixel(wnd, x, y, ok, again && i < 19 ? 150 : 5000);
        if (ok(c) || !again) break;
    }
    if (ok(c)) return "";
    return "pixel (" + std::to_string(x) + "," + std::to_string(y) + ") is " + std::to_string(GetRValue(c)) + "," +
           std::to_string(GetGValue(c)) + "," + std::to_string(GetBValue(c));
}

// A slice of a decoder-shaped texture array as QuillonRenderShowFrame takes it.
inline ShowFrameData Slice(ID3D11Texture2D* texture, UINT slice, int w, int h) {
    ShowFrameData f = {};
    f.texture = texture;
    f.arraySlice = slice;
    f.width = w;
    f.height = h;
    return f;
}

class Render : public testkit::RecordingTest {
protected:
    static void SetUpTestSuite() { Start("render"); }

    void TearDown() override {
        for (QuillonRenderHandle h : m_handles) g_sdk.QuillonRenderRelease(h);
        for (HWND w : m_windows) DestroyWindow(w);
    }

    HWND NewWindow(int x, int y, int w, int h) {
        m_windows.push_back(testkit::CreateTestWindow(x, y, w, h));
        Settle();
        return m_windows.back();
    }
    // A render object on `wnd` (none: a device alone); its device written back into `init`.
    QuillonRenderHandle OnWindow(HWND wnd, RenderInitParam* init = nullptr, int length = sizeof(RenderInitParam)) {
        RenderInitParam local = {};
        init = init ? init : &local;
        *init = RenderInitParam{};
        init->hWnd = wnd;
        QuillonRenderHandle h = m_handles.emplace_back(g_sdk.QuillonRenderCreate(nullptr, 0));
        EXPECT_EQ(g_sdk.QuillonRenderInitDevice(h, init, length), 0);
        EXPECT_NE(init->device, nullptr);
        return h;
    }

    static int Show(QuillonRenderHandle h, ShowFrameData f, int length = sizeof(ShowFrameData)) {
        return g_sdk.QuillonRenderShowFrame(h, &f, length);
    }

    template <typename T>
    static int Config(QuillonRenderHandle h, unsigned command, T payload, int length = sizeof(T)) {
        return g_sdk.QuillonRenderConfig(h, command, &payload, length);
    }
    // Runs the message loop a moment, as a host does between making a window and drawing.
    static void Settle() {
        for (int i = 0; i < 20; ++i) {
            testkit::PumpMessages();
            Sleep(10);
        }
    }

    static void ResizeClient(HWND wnd, int w, int h) {
        RECT r = {0, 0, w, h};
        AdjustWindowRect(&r, WS_POPUP, FALSE);
        SetWindowPos(wnd, nullptr, 0, 0, r.right - r.left, r.bottom - r.top, SWP_NOMOVE | SWP_NOZORDER);
        Settle();
    }

    std::vector<QuillonRenderHandle> m_handles;
    std::vector<HWND> m_windows;
};
