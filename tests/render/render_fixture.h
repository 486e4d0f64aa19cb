#pragma once
// The fixture of the render suites: QuillonSDK.dll staged once per process
// beside the recording Velmor.dll and ffmpeg-7.dll and bound by name, render
// objects and windows released after each test, and the expected error
// records.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "testkit/staged_sdk.h"

using testkit::Calls;
using testkit::ErrorRecord;
using testkit::TakeVelmorCalls;

inline QuillonSdkApi& g_sdk = testkit::RecordingTest::sdk;
inline HMODULE g_module = nullptr;

inline Calls DrawCheck(const std::string& func, int line)
{
    return ErrorRecord("render/CLS_D3D11vaDraw.cpp", func, line, "CHECK_EQUAL_RETURN");
}

inline Calls UnknownHandle(const std::string& func, int line)
{
    return ErrorRecord("interface/CLS_RenderManager.cpp", "CLS_RenderManager::" + func, line, "IsHandleValid faild!");
}

// Draw callback that draws from inside the callback, through the exports: a
// green line along y = 20 (x 10..150, 6 wide), a solid red hatched box
// (20,60)-(80,100), and a text box at x >= 92, y 55..105.
struct OverlayTarget {
    QuillonRenderHandle render;
};

inline void QUILLON_CALL DrawOverlays(ShowFrameData*, void* user)
{
    const QuillonRenderHandle h = static_cast<OverlayTarget*>(user)->render;
    OverlayParam line;
    memset(&line, 0, sizeof(line));
    line.color = 0x0000FF00;  // green
    line.lineWidth = 6;
    line.pointCount = 2;
    line.points[0] = {10, 20};
    line.points[1] = {150, 20};
    g_sdk.QuillonRenderConfig(h, QUILLON_CMD_DRAW_LINE, &line, sizeof(line));

    OverlayParam hatch;
    memset(&hatch, 0, sizeof(hatch));
    hatch.color = 0x000000FF;  // red
    hatch.lineWidth = 4;
    hatch.spacing = 2.0f;  // no wider than the stroke: solid
    hatch.pointCount = 4;
    hatch.points[0] = {20, 60};
    hatch.points[1] = {80, 60};
    hatch.points[2] = {80, 100};
    hatch.points[3] = {20, 100};
    g_sdk.QuillonRenderConfig(h, QUILLON_CMD_DRAW_BLURRY, &hatch, sizeof(hatch));

    OverlayParam text;
    memset(&text, 0, sizeof(text));
    text.color = 0x00FFFFFF;
    text.lineWidth = 40;
    text.points[0] = {90, 50};
    text.points[1] = {160, 110};
    strcpy(text.text, "\xe2\x96\x88\xe2\x96\x88");  // two full blocks, UTF-8
    text.charset = 2;
    g_sdk.QuillonRenderConfig(h, QUILLON_CMD_DRAW_TEXT, &text, sizeof(text));
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
        QuillonRenderHandle h = g_sdk.QuillonRenderCreate(nullptr, 0);
        EXPECT_NE(h, nullptr);
        m_handles.push_back(h);
        return h;
    }

    HWND NewWindow(int x, int y, int w, int h)
    {
        HWND wnd = testkit::CreateTestWindow(x, y, w, h);
        m_windows.push_back(wnd);
        Settle();
        return wnd;
    }

    // A render object on a new window; its device written back into `init`.
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

    // Runs the message loop a moment, as a host does between creating or
    // resizing a window and drawing into it.
    static void Settle()
    {
        for (int i = 0; i < 20; ++i) {
            testkit::PumpMessages();
            Sleep(10);
        }
    }

    void Forget(QuillonRenderHandle h) { m_handles.erase(std::find(m_handles.begin(), m_handles.end(), h)); }

    std::vector<QuillonRenderHandle> m_handles;
    std::vector<HWND> m_windows;
};
