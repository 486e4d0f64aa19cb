// QuillonPlay: plays an H.264 or HEVC file (raw Annex B, MP4 or Matroska)
// in a window through QuillonSDK.dll, exactly as a host would: start-up, a
// render object on the window, a decoder on the renderer's device, each
// decoded texture slice shown with overlays drawn from the draw callback.
// Where the hardware decoder cannot be set up it says so once and decodes in
// software; the pictures are uploaded into an NV12 texture array on the
// renderer's device and shown through the texture path like decoded ones,
// or, where this device cannot sample NV12, shown through the CPU-data path.
// Pictures are shown at their timestamps unless --fast is given.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "player/Nv12Pool.h"
#include "player/Pacer.h"
#include "player/PlayerOverlay.h"
#include "player/HostCalls.h"
#include "player/HostSetUp.h"
#include "player/PlayerSource.h"
#include "player/QuillonSdkApi.h"
#include "player/Screenshot.h"

namespace {

const char kUsage[] =
    "usage: QuillonPlay.exe [options] FILE\n"
    "  --frames N         show at most N pictures (default: all)\n"
    "  --screenshot FILE  write the window to FILE (.png or .bmp) after the last picture\n"
    "  --progress         print frames shown and frames per second while playing\n"
    "  --zoom L,T,R,B     electronic zoom, fractions of the picture (default 0,0,1,1)\n"
    "  --dst L,T,R,B      destination rectangle in window pixels (GPU texture path only)\n"
    "  --size WxH         window client size (default: the picture size)\n"
    "  --no-overlay       no timestamp, polyline or privacy region\n"
    "  --software         decode in software even where the hardware decoder works\n"
    "  --hold MS          keep the last picture on screen for MS milliseconds\n"
    "  --fast             show pictures as soon as they are decoded (default: at their timestamps)\n";

struct Options {
    std::string input;
    std::string screenshot;
    int frames = 0;
    bool progress = false;
    bool overlay = true;
    bool software = false;
    bool fast = false;
    int width = 0;
    int height = 0;
    int holdMs = 0;
    EZoomArea zoom = {0.0, 0.0, 1.0, 1.0};
    bool zoomSet = false;
    DstRect dst = {0, 0, 0, 0};
    bool dstSet = false;
};

bool ParseOptions(int argc, char** argv, Options& o)
{
    HostArgs a(argc, argv);
    while (a.Next() && !a.Bad()) {
        if (a.Flag("--progress", o.progress) || a.Flag("--no-overlay", o.overlay, false) ||
            a.Flag("--software", o.software) || a.Flag("--fast", o.fast) || a.Value("--frames", "%d", &o.frames) ||
            a.Value("--hold", "%d", &o.holdMs) || a.Text("--screenshot", o.screenshot) || a.Size(o.width, o.height))
            continue;
        EZoomArea& z = o.zoom;
        DstRect& d = o.dst;
        if (a.Value("--zoom", "%lf,%lf,%lf,%lf", &z.left, &z.top, &z.right, &z.bottom)) o.zoomSet = true;
        else if (a.Value("--dst", "%d,%d,%d,%d", &d.left, &d.top, &d.right, &d.bottom)) o.dstSet = true;
        else if (a.IsOption() || !o.input.empty()) return false;
        else o.input = a.Arg();
    }
    return !a.Bad() && !o.input.empty();
}

// --- the window ------------------------------------------------------------

bool g_closed = false;

LRESULT CALLBACK PlayerWndProc(HWND wnd, UINT msg, WPARAM wp, LPARAM lp)
{
    if (msg == WM_CLOSE) {
        g_closed = true;
        return 0;
    }
    return DefWindowProcA(wnd, msg, wp, lp);
}

HWND CreatePlayerWindow(int w, int h, const std::string& title)
{
    const DWORD style = WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX | WS_VISIBLE;
    HWND wnd = CreateHostWindow("QuillonPlayWindow", PlayerWndProc, title, style, 40, 40, w, h);
    if (wnd) {
        ShowWindow(wnd, SW_SHOW);
        UpdateWindow(wnd);
    }
    return wnd;
}

bool PumpWhilePacing(void*)
{
    PumpMessages();
    return !g_closed;
}

void Wait(int ms)
{
    const DWORD end = GetTickCount() + static_cast<DWORD>(ms);
    while (static_cast<LONG>(end - GetTickCount()) > 0 && !g_closed) {
        PumpMessages();
        Sleep(10);
    }
}

// --- the software path's zoom ------------------------------------------------

// The CPU-data path shows whole pictures; the player applies the zoom itself
// by cutting the I420 picture down to the zoomed part (even coordinates).
void CropI420(I420Picture& p, const EZoomArea& z)
{
    int l = static_cast<int>(z.left * p.width) & ~1, t = static_cast<int>(z.top * p.height) & ~1;
    int r = static_cast<int>(z.right * p.width) & ~1, b = static_cast<int>(z.bottom * p.height) & ~1;
    l = l < 0 ? 0 : l;
    t = t < 0 ? 0 : t;
    r = r > p.width ? p.width : r;
    b = b > p.height ? p.height : b;
    if (r - l < 2 || b - t < 2 || (l == 0 && t == 0 && r == p.width && b == p.height)) return;
    const int w = r - l, h = b - t;
    std::vector<uint8_t> out(static_cast<size_t>(w) * h * 3 / 2);
    const int stride[3] = {p.width, p.width / 2, p.width / 2};
    const uint8_t* luma = p.bytes.data();
    const uint8_t* src[3] = {luma + t * stride[0] + l, luma + p.width * p.height + t / 2 * stride[1] + l / 2,
                             luma + p.width * p.height * 5 / 4 + t / 2 * stride[2] + l / 2};
    PackI420(src, stride, w, h, out.data());
    p.width = w;
    p.height = h;
    p.bytes.swap(out);
}

// --- playing -------------------------------------------------------------------

class Player {
public:
    Player(QuillonSdkApi& sdk, const Options& options) : m_sdk(sdk), m_options(options) {}
    int Run();

private:
    bool SetUpRender();
    void SetUpDecoder();
    bool FeedHardware(const std::vector<uint8_t>& unit, int64_t timestampMs);
    bool FeedSoftware(const std::vector<uint8_t>& unit, int64_t timestampMs);
    void SwitchToSoftware(const std::string& reason);
    void ShowSoftware(I420Picture& picture);
    ShowFrameData CpuDataFrame(I420Picture& picture) const;
    void UseCpuDataPath(const std::string& reason);
    int Lost() const;
    void DecodeError(const std::string& what);
    void Shown(int64_t timestampMs);
    bool Done() const { return g_closed || (m_options.frames > 0 && m_shown >= m_options.frames); }

    QuillonSdkApi& m_sdk;
    SdkCallLock m_lock;  // one thread here: never contended
    const Options& m_options;
    PlayerSource m_source;
    HWND m_window = nullptr;
    RenderInitParam m_init = {};
    QuillonRenderHandle m_render = nullptr;
    QuillonDecoderHandle m_decoder = nullptr;
    bool m_software = false;
    bool m_failed = false;
    std::vector<std::vector<uint8_t>> m_unshown;  // units fed since start while no picture came out
    std::vector<int64_t> m_unshownTimes;
    OverlayState m_overlay;
    Nv12Pool m_pool;
    bool m_gpuUpload = false;  // software pictures go through m_pool and the texture path
    bool m_pathSaid = false;
    Pacer m_pacer{25.0, true};
    int m_shown = 0;
    int m_decodeErrors = 0;
    // Lost pictures: units the software decoder took against pictures it
    // gave back (known once drained), pictures it concealed, and units the
    // hardware decoder refused.
    int m_softwareUnits = 0;
    int m_softwarePictures = 0;
    bool m_drained = false;
    int m_concealed = 0;
    int m_hardwareFailed = 0;
};

bool Player::SetUpRender()
{
    m_render = CreateRender(m_sdk, m_lock, m_window, m_init, "QuillonPlay");
    if (!m_render) return false;
    EZoomArea zoom = m_options.zoom;
    DstRect dst = m_options.dst;
    m_sdk.QuillonRenderConfig(m_render, QUILLON_CMD_EZOOM_AREA, &zoom, sizeof(zoom));
    m_sdk.QuillonRenderConfig(m_render, QUILLON_CMD_SET_DST_RECT, &dst, sizeof(dst));
    if (m_options.overlay) {
        RECT client = {};
        GetClientRect(m_window, &client);
        m_overlay.sdk = &m_sdk;
        m_overlay.render = m_render;
        m_overlay.clientWidth = client.right;
        m_overlay.clientHeight = client.bottom;
        DrawCallBackParam callback = {DrawOverlays, &m_overlay};
        m_sdk.QuillonRenderConfig(m_render, QUILLON_CMD_SET_DRAW_CALLBACK, &callback, sizeof(callback));
    }
    return true;
}

void Player::SetUpDecoder()
{
    if (m_options.software) {
        SwitchToSoftware("software decoding asked for");
        return;
    }
    // Decoding on the renderer's device.
    const int rc = CreateDecoder(m_sdk, m_lock, m_source.Width(), m_source.Height(), m_source.IsHevc(), &m_init.device,
                                 m_decoder);
    if (rc != 0) SwitchToSoftware("the hardware decoder cannot be set up (QuillonDecoderInitial returned " +
                                  std::to_string(rc) + ")");
}

void Player::SwitchToSoftware(const std::string& reason)
{
    printf("QuillonPlay: %s; decoding in software\n", reason.c_str());
    fflush(stdout);
    m_software = true;
    if (!m_source.StartSoftwareDecoder()) {
        fprintf(stderr, "QuillonPlay: %s\n", m_source.Error().c_str());
        m_failed = true;
        return;
    }
    ID3D11Device* device = static_cast<ID3D11Device*>(m_init.device);
    m_gpuUpload = Nv12Pool::CanSampleNv12(device) && m_pool.Create(device, m_source.Width(), m_source.Height());
    // Units the hardware decoder took without showing anything are decoded again.
    std::vector<std::vector<uint8_t>> units;
    std::vector<int64_t> times;
    units.swap(m_unshown);
    times.swap(m_unshownTimes);
    for (size_t i = 0; i < units.size() && !m_failed && !Done(); ++i) FeedSoftware(units[i], times[i]);
}

// A decode error is reported and playing goes on with the next frame.
void Player::DecodeError(const std::string& what)
{
    ++m_decodeErrors;
    fprintf(stderr, "QuillonPlay: decode error: %s\n", what.c_str());
}

void Player::UseCpuDataPath(const std::string& reason)
{
    printf("QuillonPlay: %s; showing through the CPU-data path\n", reason.c_str());
    fflush(stdout);
    m_gpuUpload = false;
}

int Player::Lost() const
{
    const int gap = m_drained && m_softwareUnits > m_softwarePictures ? m_softwareUnits - m_softwarePictures : 0;
    return gap + m_concealed + m_hardwareFailed;
}

void Player::Shown(int64_t timestampMs)
{
    if (!m_pathSaid) {
        m_pathSaid = true;
        printf("QuillonPlay: path: %s decoding, shown through the %s path\n", m_software ? "software" : "hardware",
               !m_software || m_gpuUpload ? "GPU texture" : "CPU-data");
    }
    ++m_shown;
    m_unshown.clear();
    m_unshownTimes.clear();
    if (m_options.progress && (m_shown % 10 == 0 || m_shown == 1)) {
        const double seconds = m_pacer.Elapsed();
        printf("\rshown %d frames, %.1f fps, at %.3f s   ", m_shown, seconds > 0 ? m_shown / seconds : 0.0,
               timestampMs / 1000.0);
        fflush(stdout);
    }
}

bool Player::FeedHardware(const std::vector<uint8_t>& unit, int64_t timestampMs)
{
    m_unshown.push_back(unit);
    m_unshownTimes.push_back(timestampMs);
    SurfaceRecord surface;
    DecOut out;
    const int rc = m_sdk.DecodeUnit(m_decoder, unit, static_cast<unsigned int>(timestampMs), out, surface);
    if (rc != 0) {
        if (m_shown == 0) {
            SwitchToSoftware("hardware decoding failed (" + std::to_string(rc) + ")");
        } else {
            ++m_hardwareFailed;
            DecodeError("QuillonDecoderDecodeOneFrame returned " + std::to_string(rc));  // skip the frame
        }
        return true;
    }
    if (!surface.texture) return true;  // the decoder holds the picture back for now

    ShowFrameData frame;
    memset(&frame, 0, sizeof(frame));
    frame.texture = surface.texture;
    frame.arraySlice = surface.sliceIndex;
    frame.width = out.width;
    frame.height = out.height;
    m_overlay.frameNumber = m_shown + 1;
    m_overlay.timestampMs = static_cast<unsigned int>(out.timestamp);
    m_pacer.WaitUntilDue(out.timestamp, PumpWhilePacing, nullptr);
    const int shown = m_sdk.QuillonRenderShowFrame(m_render, &frame, sizeof(frame));
    if (shown != 0 && m_shown == 0) {
        SwitchToSoftware("decoded textures cannot be shown (" + std::to_string(shown) + ")");
        return true;
    }
    Shown(out.timestamp);
    return true;
}

bool Player::FeedSoftware(const std::vector<uint8_t>& unit, int64_t timestampMs)
{
    std::vector<I420Picture> pictures;
    if (unit.empty()) m_drained = true;
    else ++m_softwareUnits;
    if (!m_source.DecodeSoftware(unit, timestampMs, pictures)) DecodeError(m_source.Error());  // skip the unit
    m_softwarePictures += static_cast<int>(pictures.size());
    for (I420Picture& picture : pictures) {
        if (Done()) break;
        if (picture.damaged) {
            ++m_concealed;
            DecodeError("picture " + std::to_string(m_shown + 1) + " is damaged (concealed)");
        }
        ShowSoftware(picture);
        PumpMessages();
    }
    return true;
}

// The CPU-data path shows whole pictures, so the player applies the zoom.
ShowFrameData Player::CpuDataFrame(I420Picture& picture) const
{
    CropI420(picture, m_options.zoom);
    ShowFrameData frame;
    memset(&frame, 0, sizeof(frame));
    frame.data = picture.bytes.data();
    frame.width = picture.width;
    frame.height = picture.height;
    return frame;
}

void Player::ShowSoftware(I420Picture& picture)
{
    ShowFrameData frame;
    memset(&frame, 0, sizeof(frame));
    if (m_gpuUpload && !m_pool.Upload(picture, frame)) UseCpuDataPath("cannot upload the picture: " + m_pool.Error());
    if (!m_gpuUpload) frame = CpuDataFrame(picture);
    m_overlay.frameNumber = m_shown + 1;
    m_overlay.timestampMs = picture.timestampMs;
    m_pacer.WaitUntilDue(picture.timestampMs, PumpWhilePacing, nullptr);
    int rc = m_sdk.QuillonRenderShowFrame(m_render, &frame, sizeof(frame));
    if (rc != 0 && m_gpuUpload && m_shown == 0) {
        UseCpuDataPath("the uploaded texture cannot be shown (" + std::to_string(rc) + ")");
        frame = CpuDataFrame(picture);
        rc = m_sdk.QuillonRenderShowFrame(m_render, &frame, sizeof(frame));
    }
    if (rc != 0) fprintf(stderr, "QuillonPlay: QuillonRenderShowFrame returned %d\n", rc);
    Shown(picture.timestampMs);
}

int Player::Run()
{
    if (!m_source.Open(m_options.input)) {
        fprintf(stderr, "QuillonPlay: %s\n", m_source.Error().c_str());
        return 2;
    }
    const int w = m_options.width ? m_options.width : m_source.Width();
    const int h = m_options.height ? m_options.height : m_source.Height();
    printf("QuillonPlay: %s, %s %dx%d, window %dx%d\n", m_options.input.c_str(), m_source.IsHevc() ? "HEVC" : "H.264",
           m_source.Width(), m_source.Height(), w, h);
    m_window = CreatePlayerWindow(w, h, "QuillonPlay - " + m_options.input);
    if (!m_window) {
        fprintf(stderr, "QuillonPlay: cannot create the window\n");
        return 3;
    }
    PumpMessages();
    if (!SetUpRender()) return 3;
    SetUpDecoder();

    m_pacer = Pacer(m_source.FrameRate(), m_options.fast);
    std::vector<uint8_t> unit;
    int64_t timestampMs = 0;
    while (!m_failed && !Done() && m_source.NextAccessUnit(unit, timestampMs)) {
        if (m_software) FeedSoftware(unit, timestampMs);
        else FeedHardware(unit, timestampMs);
        PumpMessages();
    }
    if (m_software && !m_failed && !Done()) FeedSoftware({}, 0);  // the pictures still in the decoder
    const double seconds = m_pacer.Elapsed();
    printf("%sQuillonPlay: shown %d frames in %.2f s (%.1f fps), %s decoding, %d decode errors, %d pictures lost, "
           "%d late\n",
           m_options.progress ? "\n" : "", m_shown, seconds, seconds > 0 ? m_shown / seconds : 0.0,
           m_software ? "software" : "hardware", m_decodeErrors + PlayerSource::LoggedErrors(), Lost(), m_pacer.Late());

    int result = m_failed || m_shown == 0 ? 4 : 0;
    if (!m_options.screenshot.empty()) {
        Wait(400);  // presentation is asynchronous
        if (!SaveScreenshot(m_window, m_options.screenshot, "QuillonPlay")) result = result ? result : 5;
    }
    Wait(m_options.holdMs);

    if (m_decoder) m_sdk.QuillonDecoderRelease(m_decoder);
    if (m_render) m_sdk.QuillonRenderRelease(m_render);
    DestroyWindow(m_window);
    return result;
}

}  // namespace

int main(int argc, char** argv)
{
    return HostMain(argc, argv, "QuillonPlay", kUsage, ParseOptions, [](QuillonSdkApi& sdk, const Options& options) {
        Player player(sdk, options);
        return player.Run();
    });
}
