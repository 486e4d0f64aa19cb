#pragma once
// One tile of QuillonWall: a child window with its own thread, source,
// decoder and render object. The thread sets everything up, waits for the
// wall's common start, then shows the stream's pictures paced by their
// timestamps on a monotonic clock until the wall stops it, playing the file
// again and again.
//
// Pacing rule: a picture is due at the start plus its distance in stream
// time from the tile's first picture. One shown more than one frame
// interval after it was due counts as late; one more than kDropFrames
// intervals behind is dropped (decoded, not shown), so a tile that cannot
// keep up stays in step with the clock instead of falling further behind.
#include <windows.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "player/HostCalls.h"
#include "player/Nv12Pool.h"
#include "player/PlayerSource.h"
#include "player/QuillonSdkApi.h"

// What every tile shares: the SDK, its lock, and the wall's clock.
struct WallShared {
    QuillonSdkApi* sdk = nullptr;
    SdkCallLock lock;
    HANDLE start = nullptr;  // manual-reset event: the wall's clock runs
    HANDLE stop = nullptr;   // manual-reset event: tiles stop playing
    HANDLE release = nullptr;  // manual-reset event: tiles release their objects and end
    std::atomic<long long> startTicks{0};  // performance counter at start
    bool software = false;   // skip the hardware decoder
};

struct TileCounters {
    std::atomic<int> shown{0};
    std::atomic<int> late{0};
    std::atomic<int> dropped{0};
    std::atomic<int> decodeErrors{0};
    std::atomic<int> lastPicture{-1};     // index in its file of the picture shown last
    std::atomic<long long> lastStreamMs{0};  // stream time of that picture
};

class WallTile {
public:
    static constexpr int kDropFrames = 3;

    WallTile(WallShared& shared, int index, const std::string& file, int startOffset, HWND window);
    ~WallTile();
    WallTile(const WallTile&) = delete;
    WallTile& operator=(const WallTile&) = delete;

    bool Start();                            // starts the thread
    HANDLE Thread() const { return m_thread; }
    bool IsReady() const { return m_ready; }  // set up, or given up
    bool IsFinished() const { return m_finished; }  // stopped playing, last picture on screen
    bool Failed() const { return m_failed; }
    const TileCounters& Counters() const { return m_counters; }
    const std::string& Name() const { return m_name; }
    double CpuSeconds() const;               // the thread's kernel and user time
    const std::string& Mode() const { return m_mode; }

private:
    struct Picture {
        int index = -1;           // in its file, output order
        long long streamMs = 0;   // on the tile's own time line
        ShowFrameData frame = {};
        I420Picture cpu;
    };

    static DWORD WINAPI ThreadMain(void* self);
    static void QUILLON_CALL DrawOverlay(ShowFrameData* frame, void* user);
    void Run();
    bool SetUpRender();
    void SetUpDecoder();
    bool OpenSource();
    void SwitchToSoftware(const std::string& reason);
    bool NextPictures(std::vector<Picture>& out);
    bool DecodeHardware(const std::vector<uint8_t>& unit, int64_t timestampMs, std::vector<Picture>& out);
    void DecodeSoftware(const std::vector<uint8_t>& unit, int64_t timestampMs, std::vector<Picture>& out);
    void AddPicture(int64_t timestampMs, std::vector<Picture>& out, Picture&& picture);
    void Pace(Picture& picture);
    bool Show(Picture& picture);
    double NowMs() const;
    void Release();

    WallShared& m_shared;
    QuillonSdkApi& m_sdk;
    const int m_index;
    const std::string m_file;
    const std::string m_name;
    int m_skip;  // pictures still to pass over before the first one shown
    HWND m_window;
    HANDLE m_thread = nullptr;
    std::atomic<bool> m_ready{false};
    std::atomic<bool> m_failed{false};
    std::atomic<bool> m_finished{false};
    std::string m_mode;

    std::unique_ptr<PlayerSource> m_source;
    Picture m_last;  // the picture shown last
    std::unique_ptr<Nv12Pool> m_pool;  // software pictures on the texture path
    bool m_drained = false;
    bool m_software = false;
    RenderInitParam m_init = {};
    QuillonRenderHandle m_render = nullptr;
    QuillonDecoderHandle m_decoder = nullptr;

    // The tile's time line: each pass over the file continues the last.
    double m_intervalMs = 40.0;
    int m_passIndex = 0;            // pictures of this pass so far
    long long m_passFirstMs = -1;   // first timestamp of this pass
    long long m_passLastMs = 0;
    long long m_passBaseMs = 0;     // stream time where this pass begins
    long long m_originMs = -1;      // stream time of the first picture shown
    double m_ticksPerMs = 1.0;

    // Measured frame rate over the last second.
    double m_rateWindowStart = 0;
    int m_rateWindowShown = 0;
    double m_fps = 0;
    long long m_overlayStreamMs = 0;
    int m_ffmpegErrorsSeen = 0;

    TileCounters m_counters;
};
