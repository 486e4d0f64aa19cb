#pragma once
// What the sample hosts (QuillonPlay, QuillonWall's tiles) set up alike: a
// render object on a window, a decoder for a source on that renderer's
// device, and the command-line options they read.
#include <cstdio>
#include <cstring>
#include <string>

#include "player/HostCalls.h"
#include "player/QuillonSdkApi.h"

// A sample host's main: `parse` reads the options (else the usage and exit
// code 1); QuillonSDK.dll beside the program is loaded, bound and started
// up (exit code 3 when it cannot be loaded); `run(sdk, options)` gives the
// exit code; then the clean-up. Messages begin with `program`.
template <typename Options, typename Run>
int HostMain(int argc, char** argv, const char* program, const char* usage,
             bool (*parse)(int, char**, Options&), Run run)
{
    Options options;
    if (!parse(argc, argv, options)) {
        fputs(usage, stderr);
        return 1;
    }
    QuillonSdkApi sdk;
    std::string error;
    if (!sdk.Load(error)) {
        fprintf(stderr, "%s: %s\n", program, error.c_str());
        return 3;
    }
    if (sdk.QuillonStartup() != 0) fprintf(stderr, "%s: QuillonStartup failed (Velmor.dll missing?)\n", program);
    const int result = run(sdk, options);
    sdk.QuillonCleanup();
    return result;
}

// A top-level window of class `className` (registered here: `proc`, arrow
// cursor, black background) with a client area of w x h at (x, y).
inline HWND CreateHostWindow(const char* className, WNDPROC proc, const std::string& title, DWORD style, int x,
                             int y, int w, int h)
{
    WNDCLASSA wc = {};
    wc.lpfnWndProc = proc;
    wc.hInstance = GetModuleHandleA(nullptr);
    wc.hCursor = LoadCursor(nullptr, IDC_ARROW);
    wc.hbrBackground = static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
    wc.lpszClassName = className;
    RegisterClassA(&wc);
    RECT r = {0, 0, w, h};
    AdjustWindowRect(&r, style, FALSE);
    return CreateWindowA(className, title.c_str(), style, x, y, r.right - r.left, r.bottom - r.top, nullptr, nullptr,
                         wc.hInstance, nullptr);
}

// QuillonRenderCreate and QuillonRenderInitDevice on `window`, each under
// `lock` exclusively; the device is written into `init`. `who` begins the
// message printed when it fails (the object is released then).
inline QuillonRenderHandle CreateRender(QuillonSdkApi& sdk, SdkCallLock& lock, HWND window, RenderInitParam& init,
                                        const std::string& who)
{
    QuillonRenderHandle render = lock.Exclusive([&] { return sdk.QuillonRenderCreate(nullptr, 0); });
    if (!render) return nullptr;
    init.hWnd = window;
    const int rc = lock.Exclusive([&] { return sdk.QuillonRenderInitDevice(render, &init, sizeof(init)); });
    if (rc != 0 || !init.device) {
        fprintf(stderr, "%s: QuillonRenderInitDevice failed (%d)\n", who.c_str(), rc);
        lock.Exclusive([&] { return sdk.QuillonRenderRelease(render); });
        return nullptr;
    }
    return render;
}

// QuillonDecoderCreate and QuillonDecoderInitial for a w x h H.264 or HEVC
// stream, decoding on the device in `deviceSlot` (the renderer's), under
// `lock` exclusively. Returns Initial's result (-1 without a decoder);
// `decoder` is set even when Initial fails.
inline int CreateDecoder(QuillonSdkApi& sdk, SdkCallLock& lock, int w, int h, bool hevc, void** deviceSlot,
                         QuillonDecoderHandle& decoder)
{
    decoder = lock.Exclusive([&] { return sdk.QuillonDecoderCreate(nullptr, 0); });
    CreateNeed need;
    memset(&need, 0, sizeof(need));
    need.iWidth = w;
    need.iHeight = h;
    need.VideoMode = hevc ? QUILLON_VIDEO_H265 : QUILLON_VIDEO_H264;
    need.deviceSlot = deviceSlot;
    CreateNeedExtern needExtern;
    memset(&needExtern, 0, sizeof(needExtern));
    return decoder ? lock.Exclusive([&] { return sdk.QuillonDecoderInitial(decoder, &need, &needExtern); }) : -1;
}

// Reads argv one argument at a time: `while (args.Next()) { if (args.Flag(...)) ... }`.
// An option whose value is missing or does not parse makes Bad() true.
class HostArgs {
public:
    HostArgs(int argc, char** argv) : m_argc(argc), m_argv(argv) {}
    bool Next() { return ++m_i < m_argc; }
    const std::string Arg() const { return m_argv[m_i]; }
    bool IsOption() const { return m_argv[m_i][0] == '-' && m_argv[m_i][1] != '\0'; }
    bool Bad() const { return m_bad; }

    bool Flag(const char* name, bool& set, bool value = true)
    {
        if (strcmp(m_argv[m_i], name) != 0) return false;
        set = value;
        return true;
    }
    bool Text(const char* name, std::string& out)
    {
        if (strcmp(m_argv[m_i], name) != 0) return false;
        if (m_i + 1 < m_argc) out = m_argv[++m_i];
        else m_bad = true;
        return true;
    }
    // `name` followed by a value read with sscanf's `format` into all of `out`.
    template <typename... T>
    bool Value(const char* name, const char* format, T*... out)
    {
        if (strcmp(m_argv[m_i], name) != 0) return false;
        m_bad |= m_i + 1 >= m_argc || sscanf(m_argv[++m_i], format, out...) != static_cast<int>(sizeof...(T));
        return true;
    }
    // --size WxH, both positive.
    bool Size(int& w, int& h)
    {
        if (!Value("--size", "%dx%d", &w, &h)) return false;
        m_bad |= w <= 0 || h <= 0;
        return true;
    }

private:
    int m_argc;
    char** m_argv;
    int m_i = 0;
    bool m_bad = false;
};
