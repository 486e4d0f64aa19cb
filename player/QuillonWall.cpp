// QuillonWall: a video-wall host on QuillonSDK.dll. It shows N streams in a
// grid of child windows inside one top-level window; each tile has its own
// thread, decoder and render object (player/WallTile.h), paced by the
// pictures' timestamps. Creation and release are serialised against every
// other SDK call; showing, configuring and decoding run concurrently.
#include <windows.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "player/HostCalls.h"
#include "player/HostSetUp.h"
#include "player/PlayerSource.h"
#include "player/QuillonSdkApi.h"
#include "player/Screenshot.h"
#include "player/WallTile.h"

namespace {

const char kUsage[] =
    "usage: QuillonWall.exe [options] FILE...\n"
    "  --tiles N          number of tiles, 1 to 64 (default 16); the files repeat,\n"
    "                     each repeat starting a few pictures further on\n"
    "  --seconds S        stop after S seconds of playing (default: when closed)\n"
    "  --stats            print each tile's figures at the end\n"
    "  --screenshot FILE  write the whole wall to FILE (.png or .bmp) at the end\n"
    "  --size WxH         client size of the wall (default: tiles of the picture\n"
    "                     size, shrunk to fit the screen)\n"
    "  --software         decode in software even where the hardware decoder works\n"
    "  --popup-tiles      tiles are borderless windows owned by the wall and kept\n"
    "                     over its client area instead of child windows (Wine's\n"
    "                     own Direct3D shows no swap chain in a child window)\n";

constexpr int kMaxTiles = 64;
constexpr int kRepeatOffset = 5;  // pictures between the starts of one file's repeats

struct Options {
    std::vector<std::string> files;
    std::string screenshot;
    int tiles = 16;
    double seconds = 0;
    bool stats = false;
    bool software = false;
    bool popupTiles = false;
    int width = 0;
    int height = 0;
};

bool ParseOptions(int argc, char** argv, Options& o)
{
    HostArgs a(argc, argv);
    while (a.Next() && !a.Bad()) {
        if (a.Flag("--stats", o.stats) || a.Flag("--software", o.software) || a.Flag("--popup-tiles", o.popupTiles) ||
            a.Value("--tiles", "%d", &o.tiles) || a.Value("--seconds", "%lf", &o.seconds) ||
            a.Text("--screenshot", o.screenshot) || a.Size(o.width, o.height))
            continue;
        if (a.IsOption()) return false;
        o.files.push_back(a.Arg());
    }
    return !a.Bad() && !o.files.empty() && o.tiles >= 1 && o.tiles <= kMaxTiles && o.seconds >= 0;
}

// --- the windows ---------------------------------------------------------------

struct Grid {
    int columns = 1;
    int rows = 1;
};

bool g_closed = false;
bool g_popupTiles = false;
Grid g_grid;
std::vector<HWND> g_tileWindows;

// Tile i sits in row i / columns, column i % columns; the cells share the
// client area. Popup tiles are placed in screen coordinates.
void LayOutTiles(HWND wall)
{
    RECT client = {};
    GetClientRect(wall, &client);
    POINT origin = {0, 0};
    if (g_popupTiles) ClientToScreen(wall, &origin);
    for (size_t i = 0; i < g_tileWindows.size(); ++i) {
        const int c = static_cast<int>(i) % g_grid.columns, r = static_cast<int>(i) / g_grid.columns;
        const int left = client.right * c / g_grid.columns, right = client.right * (c + 1) / g_grid.columns;
        const int top = client.bottom * r / g_grid.rows, bottom = client.bottom * (r + 1) / g_grid.rows;
        MoveWindow(g_tileWindows[i], origin.x + left, origin.y + top, right - left, bottom - top, TRUE);
    }
}

LRESULT CALLBACK WallWndProc(HWND wnd, UINT msg, WPARAM wp, LPARAM lp)
{
    if (msg == WM_CLOSE) {
        g_closed = true;
        return 0;
    }
    if (msg == WM_SIZE || (msg == WM_MOVE && g_popupTiles)) LayOutTiles(wnd);
    return DefWindowProcA(wnd, msg, wp, lp);
}

// Tiles paint nothing themselves: the swap chain owns their pixels, and an
// erased background would cover the last picture.
LRESULT CALLBACK TileWndProc(HWND wnd, UINT msg, WPARAM wp, LPARAM lp)
{
    if (msg == WM_ERASEBKGND) return 1;
    return DefWindowProcA(wnd, msg, wp, lp);
}

HWND CreateWall(int w, int h, int tiles)
{
    HWND wall = CreateHostWindow("QuillonWallWindow", WallWndProc, "QuillonWall", WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN,
                                 0, 0, w, h);
    WNDCLASSA wc = {};
    wc.lpfnWndProc = TileWndProc;
    wc.hInstance = GetModuleHandleA(nullptr);
    wc.hCursor = LoadCursor(nullptr, IDC_ARROW);
    wc.lpszClassName = "QuillonWallTile";
    RegisterClassA(&wc);
    if (!wall) return nullptr;
    for (int i = 0; i < tiles; ++i) {
        const DWORD tileStyle = (g_popupTiles ? WS_POPUP : WS_CHILD | WS_CLIPSIBLINGS) | WS_VISIBLE;
        HWND tile = CreateWindowA("QuillonWallTile", "", tileStyle, 0, 0, 1, 1, wall, nullptr, wc.hInstance, nullptr);
        if (!tile) return nullptr;
        g_tileWindows.push_back(tile);
    }
    LayOutTiles(wall);
    ShowWindow(wall, SW_SHOW);
    UpdateWindow(wall);
    return wall;
}

// Pumps the window's messages for `ms` milliseconds (tile threads may wait
// on this thread's window while resizing their swap chains).
void Wait(int ms)
{
    const DWORD end = GetTickCount() + static_cast<DWORD>(ms);
    for (LONG left; (left = static_cast<LONG>(end - GetTickCount())) > 0;) {
        MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(left), QS_ALLINPUT);
        PumpMessages();
    }
}

// --- the wall --------------------------------------------------------------------

struct Totals {
    int shown = 0, late = 0, dropped = 0, decodeErrors = 0;
};

Totals Sum(const std::vector<std::unique_ptr<WallTile>>& tiles)
{
    Totals t;
    for (const auto& tile : tiles) {
        const TileCounters& c = tile->Counters();
        t.shown += c.shown;
        t.late += c.late;
        t.dropped += c.dropped;
        t.decodeErrors += c.decodeErrors;
    }
    return t;
}

void ShowStatus(HWND wall, const std::vector<std::unique_ptr<WallTile>>& tiles)
{
    const Totals t = Sum(tiles);
    char title[160];
    snprintf(title, sizeof(title), "QuillonWall - %d tiles - shown %d, late %d, dropped %d, decode errors %d",
             static_cast<int>(tiles.size()), t.shown, t.late, t.dropped, t.decodeErrors);
    SetWindowTextA(wall, title);
}

// Tiles of the first file's picture size, the whole shrunk to fit the screen.
void DefaultSize(const Options& o, int pictureW, int pictureH, int& w, int& h)
{
    w = g_grid.columns * pictureW;
    h = g_grid.rows * pictureH;
    const int screenW = GetSystemMetrics(SM_CXSCREEN) - 16, screenH = GetSystemMetrics(SM_CYSCREEN) - 48;
    const double scale = std::fmin(1.0, std::fmin(static_cast<double>(screenW) / w, static_cast<double>(screenH) / h));
    w = o.width ? o.width : static_cast<int>(w * scale);
    h = o.height ? o.height : static_cast<int>(h * scale);
}

int RunWall(QuillonSdkApi& sdk, const Options& o)
{
    int pictureW = 0, pictureH = 0;
    for (const std::string& file : o.files) {
        PlayerSource source;
        if (!source.Open(file)) {
            fprintf(stderr, "QuillonWall: %s\n", source.Error().c_str());
            return 2;
        }
        if (!pictureW) {
            pictureW = source.Width();
            pictureH = source.Height();
        }
    }
    g_grid.columns = static_cast<int>(std::ceil(std::sqrt(static_cast<double>(o.tiles))));
    g_grid.rows = (o.tiles + g_grid.columns - 1) / g_grid.columns;
    int w = 0, h = 0;
    DefaultSize(o, pictureW, pictureH, w, h);
    g_popupTiles = o.popupTiles;
    HWND wall = CreateWall(w, h, o.tiles);
    if (!wall) {
        fprintf(stderr, "QuillonWall: cannot create the windows\n");
        return 3;
    }
    printf("QuillonWall: %d tiles in %d x %d, wall %dx%d\n", o.tiles, g_grid.columns, g_grid.rows, w, h);
    fflush(stdout);

    WallShared shared;
    shared.sdk = &sdk;
    shared.software = o.software;
    shared.start = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    shared.stop = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    shared.release = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::vector<std::unique_ptr<WallTile>> tiles;
    for (int i = 0; i < o.tiles; ++i) {
        const int files = static_cast<int>(o.files.size());
        tiles.emplace_back(new WallTile(shared, i, o.files[i % files], i / files * kRepeatOffset, g_tileWindows[i]));
        if (!tiles.back()->Start()) {
            tiles.pop_back();
            fprintf(stderr, "QuillonWall: cannot start tile %d\n", i + 1);
            break;
        }
    }
    // Every tile sets up before the wall's clock starts.
    const DWORD setUpStart = GetTickCount();
    for (const auto& tile : tiles)
        while (!tile->IsReady()) Wait(20);
    printf("QuillonWall: %d tiles set up in %.2f s, %s decoding\n", static_cast<int>(tiles.size()),
           (GetTickCount() - setUpStart) / 1000.0, tiles.empty() ? "no" : tiles[0]->Mode().c_str());
    fflush(stdout);

    LARGE_INTEGER start;
    QueryPerformanceCounter(&start);
    shared.startTicks = start.QuadPart;
    SetEvent(shared.start);
    const DWORD playStart = GetTickCount();
    while (!g_closed && (o.seconds <= 0 || GetTickCount() - playStart < o.seconds * 1000)) {
        Wait(200);
        ShowStatus(wall, tiles);
    }
    SetEvent(shared.stop);
    for (const auto& tile : tiles)
        while (!tile->IsFinished()) Wait(20);
    const double seconds = (GetTickCount() - playStart) / 1000.0;
    ShowStatus(wall, tiles);

    int result = static_cast<int>(tiles.size()) == o.tiles ? 0 : 4;
    double cpu = 0;
    for (const auto& tile : tiles) {
        const TileCounters& c = tile->Counters();
        cpu += tile->CpuSeconds();
        if (tile->Failed() || c.shown == 0) result = 4;
        if (o.stats)
            printf("tile %s: shown %d, late %d, dropped %d, decode errors %d, cpu %.2f s, last picture %d at %.3f s%s\n",
                   tile->Name().c_str(), c.shown.load(), c.late.load(), c.dropped.load(), c.decodeErrors.load(),
                   tile->CpuSeconds(), c.lastPicture.load(), c.lastStreamMs / 1000.0, tile->Failed() ? ", failed" : "");
    }
    const Totals t = Sum(tiles);
    const int due = t.shown + t.dropped;
    printf("QuillonWall: %d tiles for %.2f s: shown %d (%.2f fps per tile), late %d, dropped %d (%.2f%% late or "
           "dropped), decode errors %d, cpu %.2f s\n",
           static_cast<int>(tiles.size()), seconds, t.shown, tiles.empty() ? 0.0 : t.shown / seconds / tiles.size(),
           t.late, t.dropped, due ? 100.0 * (t.late + t.dropped) / due : 0.0, t.decodeErrors, cpu);

    // One capture of the whole wall while every tile still shows its last picture.
    if (!o.screenshot.empty()) {
        Wait(400);  // presentation is asynchronous
        if (!SaveScreenshot(wall, o.screenshot, "QuillonWall")) result = result ? result : 5;
    }
    SetEvent(shared.release);
    for (const auto& tile : tiles) {
        HANDLE thread = tile->Thread();
        while (MsgWaitForMultipleObjects(1, &thread, FALSE, INFINITE, QS_ALLINPUT) != WAIT_OBJECT_0) PumpMessages();
    }
    tiles.clear();
    DestroyWindow(wall);
    CloseHandle(shared.start);
    CloseHandle(shared.stop);
    CloseHandle(shared.release);
    return result;
}

}  // namespace

int main(int argc, char** argv)
{
    PlayerSource::SetProgramName("QuillonWall");
    return HostMain(argc, argv, "QuillonWall", kUsage, ParseOptions, RunWall);
}
