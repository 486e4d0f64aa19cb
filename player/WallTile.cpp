#include "player/WallTile.h"

#include "player/HostSetUp.h"

#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

long long Ticks()
{
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return t.QuadPart;
}

std::string FileName(const std::string& path)
{
    const size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Text overlays of all tiles are drawn one at a time: Wine's DirectWrite
// (the text format that each text command makes and releases) crashes when
// several threads do this at once, even on separate factories.
SRWLOCK g_textLock = SRWLOCK_INIT;

OverlayParam Text(unsigned int color, int size, int left, int top, int right, const char* text)
{
    OverlayParam p;
    memset(&p, 0, sizeof(p));
    p.color = color;  // red in the low byte, then green, then blue
    p.lineWidth = size;
    p.pointCount = 2;
    p.points[0] = {left, top};
    p.points[1] = {right, top + size * 2};
    snprintf(p.text, sizeof(p.text), "%s", text);
    return p;
}

}  // namespace

WallTile::WallTile(WallShared& shared, int index, const std::string& file, int startOffset, HWND window)
    : m_shared(shared), m_sdk(*shared.sdk), m_index(index), m_file(file),
      m_name("#" + std::to_string(index + 1) + " " + FileName(file)), m_skip(startOffset), m_window(window)
{
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    m_ticksPerMs = f.QuadPart / 1000.0;
}

WallTile::~WallTile()
{
    if (m_thread) CloseHandle(m_thread);
}

bool WallTile::Start()
{
    m_thread = CreateThread(nullptr, 0, ThreadMain, this, 0, nullptr);
    return m_thread != nullptr;
}

DWORD WINAPI WallTile::ThreadMain(void* self)
{
    static_cast<WallTile*>(self)->Run();
    return 0;
}

double WallTile::CpuSeconds() const
{
    FILETIME created, exited, kernel, user;
    if (!m_thread || !GetThreadTimes(m_thread, &created, &exited, &kernel, &user)) return 0;
    const auto seconds = [](const FILETIME& t) {
        return ((static_cast<unsigned long long>(t.dwHighDateTime) << 32) | t.dwLowDateTime) / 1e7;
    };
    return seconds(kernel) + seconds(user);
}

double WallTile::NowMs() const
{
    return (Ticks() - m_shared.startTicks) / m_ticksPerMs;
}

void WallTile::Run()
{
    const bool ok = OpenSource() && SetUpRender();
    if (ok) SetUpDecoder();
    m_failed = !ok || m_failed;
    // The first picture is shown while setting up: the first present builds
    // the swap chain's and the shaders' state, which takes seconds on some
    // stacks. The tile's clock starts from it.
    std::vector<Picture> pictures;
    while (!m_failed && pictures.empty() && NextPictures(pictures)) {
    }
    if (!pictures.empty() && Show(pictures.front())) {
        m_last = std::move(pictures.front());
        m_originMs = m_last.streamMs;
        ++m_counters.shown;
        m_counters.lastPicture = m_last.index;
        m_counters.lastStreamMs = m_last.streamMs;
    }
    if (!pictures.empty()) pictures.erase(pictures.begin());
    m_ready = true;
    HANDLE events[2] = {m_shared.start, m_shared.stop};
    WaitForMultipleObjects(2, events, FALSE, INFINITE);

    m_rateWindowStart = NowMs();
    for (;;) {
        for (Picture& p : pictures) Pace(p);
        pictures.clear();
        if (m_failed || WaitForSingleObject(m_shared.stop, 0) != WAIT_TIMEOUT || !NextPictures(pictures)) break;
    }
    // Some presentation engines keep the latest present back until the next
    // one: the last picture is presented once more so that it is on screen.
    if (m_last.index >= 0) Show(m_last);
    // The last picture stays until the wall has taken its screenshot.
    m_finished = true;
    WaitForSingleObject(m_shared.release, INFINITE);
    Release();
}

bool WallTile::OpenSource()
{
    m_source.reset(new PlayerSource);
    m_drained = false;
    if (!m_source->Open(m_file)) {
        fprintf(stderr, "QuillonWall: tile %s: %s\n", m_name.c_str(), m_source->Error().c_str());
        return false;
    }
    m_intervalMs = 1000.0 / m_source->FrameRate();
    if (m_software && !m_source->StartSoftwareDecoder()) {
        fprintf(stderr, "QuillonWall: tile %s: %s\n", m_name.c_str(), m_source->Error().c_str());
        return false;
    }
    return true;
}

bool WallTile::SetUpRender()
{
    m_render = CreateRender(m_sdk, m_shared.lock, m_window, m_init, "QuillonWall: tile " + m_name);
    if (!m_render) return false;
    DrawCallBackParam callback = {DrawOverlay, this};
    m_shared.lock.Shared(
        [&] { return m_sdk.QuillonRenderConfig(m_render, QUILLON_CMD_SET_DRAW_CALLBACK, &callback, sizeof(callback)); });
    return true;
}

void WallTile::SetUpDecoder()
{
    if (m_shared.software) {
        SwitchToSoftware("software decoding asked for");
        return;
    }
    // Decoding on this tile's renderer's device.
    const int rc = CreateDecoder(m_sdk, m_shared.lock, m_source->Width(), m_source->Height(), m_source->IsHevc(),
                                 &m_init.device, m_decoder);
    if (rc != 0) {
        SwitchToSoftware("the hardware decoder cannot be set up (QuillonDecoderInitial returned " + std::to_string(rc) + ")");
        return;
    }
    m_mode = "hardware";
}

// Starts the file again from its beginning with the software decoder.
void WallTile::SwitchToSoftware(const std::string& reason)
{
    if (m_decoder) m_shared.lock.Exclusive([&] { return m_sdk.QuillonDecoderRelease(m_decoder); });
    m_decoder = nullptr;
    m_software = true;
    // Software pictures go through the texture path where this device can
    // sample NV12, as hardware-decoded ones would.
    ID3D11Device* device = static_cast<ID3D11Device*>(m_init.device);
    if (Nv12Pool::CanSampleNv12(device)) {
        m_pool.reset(new Nv12Pool);
        if (!m_pool->Create(device, m_source->Width(), m_source->Height())) {
            fprintf(stderr, "QuillonWall: tile %s: %s\n", m_name.c_str(), m_pool->Error().c_str());
            m_pool.reset();
        }
    }
    m_mode = m_pool ? "software, texture path" : "software, CPU-data path";
    if (m_index == 0) printf("QuillonWall: %s; decoding in software (%s)\n", reason.c_str(), m_mode.c_str());
    m_passIndex = 0;
    m_passFirstMs = -1;
    if (!OpenSource()) m_failed = true;
}

// The next pictures of the stream; at the end of the file the decoder is
// drained and the file starts again, continuing the tile's time line.
bool WallTile::NextPictures(std::vector<Picture>& out)
{
    std::vector<uint8_t> unit;
    int64_t timestampMs = 0;
    if (m_source->NextAccessUnit(unit, timestampMs)) {
        if (m_software) DecodeSoftware(unit, timestampMs, out);
        else return DecodeHardware(unit, timestampMs, out);
        return true;
    }
    if (m_software && !m_drained) {
        m_drained = true;
        DecodeSoftware({}, 0, out);
        return true;
    }
    if (m_passIndex == 0) {
        fprintf(stderr, "QuillonWall: tile %s: no picture in the file\n", m_name.c_str());
        return false;
    }
    if (m_skip >= m_passIndex) m_skip %= m_passIndex;  // an offset longer than the file wraps
    m_passBaseMs += m_passLastMs - m_passFirstMs + std::lround(m_intervalMs);
    m_passIndex = 0;
    m_passFirstMs = -1;
    return OpenSource();
}

bool WallTile::DecodeHardware(const std::vector<uint8_t>& unit, int64_t timestampMs, std::vector<Picture>& out)
{
    SurfaceRecord surface;
    DecOut decoded;
    const int rc = m_shared.lock.Shared(
        [&] { return m_sdk.DecodeUnit(m_decoder, unit, static_cast<unsigned int>(timestampMs), decoded, surface); });
    if (rc != 0) {
        if (m_counters.shown == 0) SwitchToSoftware("hardware decoding failed (" + std::to_string(rc) + ")");
        else ++m_counters.decodeErrors;  // the unit is skipped
        return !m_failed;
    }
    if (!surface.texture) return true;  // the decoder holds the picture back for now
    Picture p;
    p.frame.texture = surface.texture;
    p.frame.arraySlice = surface.sliceIndex;
    p.frame.width = decoded.width;
    p.frame.height = decoded.height;
    AddPicture(static_cast<unsigned int>(decoded.timestamp), out, std::move(p));
    return true;
}

void WallTile::DecodeSoftware(const std::vector<uint8_t>& unit, int64_t timestampMs, std::vector<Picture>& out)
{
    std::vector<I420Picture> decoded;
    if (!m_source->DecodeSoftware(unit, timestampMs, decoded)) {
        ++m_counters.decodeErrors;  // the unit is skipped
        fprintf(stderr, "QuillonWall: tile %s: decode error: %s\n", m_name.c_str(), m_source->Error().c_str());
    }
    // FFmpeg's own reports come on this thread, the decoder's.
    const int logged = PlayerSource::ThreadLoggedErrors();
    m_counters.decodeErrors += logged - m_ffmpegErrorsSeen;
    m_ffmpegErrorsSeen = logged;
    for (I420Picture& picture : decoded) {
        if (picture.damaged) ++m_counters.decodeErrors;
        Picture p;
        const int64_t ts = picture.timestampMs;
        p.cpu = std::move(picture);
        AddPicture(ts, out, std::move(p));
    }
}

void WallTile::AddPicture(int64_t timestampMs, std::vector<Picture>& out, Picture&& picture)
{
    if (m_passFirstMs < 0) m_passFirstMs = timestampMs;
    m_passLastMs = timestampMs;
    picture.index = m_passIndex++;
    picture.streamMs = m_passBaseMs + timestampMs - m_passFirstMs;
    if (m_skip > 0) {
        --m_skip;
        return;
    }
    out.push_back(std::move(picture));
}

void WallTile::Pace(Picture& picture)
{
    if (m_originMs < 0) m_originMs = picture.streamMs;
    const double due = static_cast<double>(picture.streamMs - m_originMs);
    const double behind = NowMs() - due;
    if (behind > kDropFrames * m_intervalMs) {
        ++m_counters.dropped;
        return;
    }
    if (behind > m_intervalMs) ++m_counters.late;
    else if (behind < 0 && WaitForSingleObject(m_shared.stop, static_cast<DWORD>(std::ceil(-behind))) == WAIT_OBJECT_0)
        return;
    if (!Show(picture)) return;
    m_last = std::move(picture);
    ++m_counters.shown;
    m_counters.lastPicture = m_last.index;
    m_counters.lastStreamMs = m_last.streamMs;
    ++m_rateWindowShown;
    const double now = NowMs();
    if (now - m_rateWindowStart >= 1000) {
        m_fps = m_rateWindowShown * 1000.0 / (now - m_rateWindowStart);
        m_rateWindowStart = now;
        m_rateWindowShown = 0;
    }
}

bool WallTile::Show(Picture& picture)
{
    ShowFrameData& frame = picture.frame;
    if (!frame.texture && !(m_pool && m_pool->Upload(picture.cpu, frame))) {
        frame.data = picture.cpu.bytes.data();
        frame.width = picture.cpu.width;
        frame.height = picture.cpu.height;
    }
    m_overlayStreamMs = picture.streamMs;
    const int rc = m_shared.lock.Shared([&] { return m_sdk.QuillonRenderShowFrame(m_render, &frame, sizeof(frame)); });
    if (rc == 0) return true;
    if (frame.texture && m_counters.shown == 0) {
        SwitchToSoftware("decoded textures cannot be shown (" + std::to_string(rc) + ")");
    } else {
        fprintf(stderr, "QuillonWall: tile %s: QuillonRenderShowFrame returned %d\n", m_name.c_str(), rc);
    }
    return false;
}

// Runs inside QuillonRenderShowFrame on the tile's thread, which already
// holds the wall's lock shared: the overlay commands are called directly.
void QUILLON_CALL WallTile::DrawOverlay(ShowFrameData* frame, void* user)
{
    (void)frame;
    WallTile* tile = static_cast<WallTile*>(user);
    RECT client = {};
    GetClientRect(tile->m_window, &client);
    const int w = client.right, h = client.bottom;
    const int size = h >= 200 ? 16 : 11;
    const long long t = tile->m_overlayStreamMs;
    char text[128];
    snprintf(text, sizeof(text), "%s  %02lld:%02lld.%03lld  %.1f fps", tile->m_name.c_str(), t / 60000, t / 1000 % 60,
             t % 1000, tile->m_fps);
    // A black copy one pixel down and right keeps the text readable.
    OverlayParam shadow = Text(0x000000, size, 7, 5, w - 4, text);
    OverlayParam yellow = Text(0x40FFFF, size, 6, 4, w - 4, text);
    AcquireSRWLockExclusive(&g_textLock);
    tile->m_sdk.QuillonRenderConfig(tile->m_render, QUILLON_CMD_DRAW_TEXT, &shadow, sizeof(shadow));
    tile->m_sdk.QuillonRenderConfig(tile->m_render, QUILLON_CMD_DRAW_TEXT, &yellow, sizeof(yellow));
    ReleaseSRWLockExclusive(&g_textLock);
    // A frame separates the tile from its neighbours.
    OverlayParam border;
    memset(&border, 0, sizeof(border));
    border.color = 0x404040;
    border.lineWidth = 2;
    border.closed = 1;
    border.pointCount = 4;
    border.points[0] = {0, 0};
    border.points[1] = {w, 0};
    border.points[2] = {w, h};
    border.points[3] = {0, h};
    tile->m_sdk.QuillonRenderConfig(tile->m_render, QUILLON_CMD_DRAW_LINE, &border, sizeof(border));
}

void WallTile::Release()
{
    m_pool.reset();
    if (m_decoder) m_shared.lock.Exclusive([&] { return m_sdk.QuillonDecoderRelease(m_decoder); });
    if (m_render) m_shared.lock.Exclusive([&] { return m_sdk.QuillonRenderRelease(m_render); });
    m_decoder = nullptr;
    m_render = nullptr;
    m_source.reset();
}
