// Interface fuzzing: a seeded generator drives the thirteen exports with
// random commands, lengths, record contents and handles (live, released, of
// the other kind, null, and addresses never handed out), and checks that
// every result is one the interface allows for that call. Addresses never
// handed out point into a no-access page or are non-canonical, so any
// dereference by the library would crash the test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <random>
#include <vector>

#include "testkit/staged_sdk.h"

namespace {

constexpr int kCalls = 100000;
constexpr int kMaxLiveRenders = 3;
constexpr int kMaxDecoders = 6;
constexpr int kPictureSide = 96;

enum Call { kStartup, kCleanup, kDecCreate, kDecInitial, kDecode, kDecRelease, kCreate, kInitDevice, kShowFrame,
            kGetDrawInfo, kSetWnd, kConfig, kRelease, kCallCount };
const char* const kNames[kCallCount] = {
    "QuillonStartup", "QuillonCleanup", "QuillonDecoderCreate", "QuillonDecoderInitial", "QuillonDecoderDecodeOneFrame",
    "QuillonDecoderRelease", "QuillonRenderCreate", "QuillonRenderInitDevice", "QuillonRenderShowFrame",
    "QuillonRenderGetDrawInfo", "QuillonRenderSetWnd", "QuillonRenderConfig", "QuillonRenderRelease"};

struct Fuzzer {
    Fuzzer(QuillonSdkApi& sdk, uint64_t seed) : m_sdk(sdk), m_rng(seed)
    {
        m_windows[0] = testkit::CreateTestWindow(0, 0, 160, 120, "fuzz A");
        m_windows[1] = testkit::CreateTestWindow(200, 0, 120, 90, "fuzz B");
        // Two swap chains on one window abort lavapipe (stack 2), where
        // Windows allows them, also a swap chain made anew on the window of
        // the one it replaces: there each live render object has two windows
        // of its own and moves to the other one each time.
        for (int i = 0; testkit::OnNv12Stack() && i < kMaxLiveRenders; ++i)
            for (int k = 0; k < 2; ++k)
                m_own[i].wnd[k] =
                    testkit::CreateTestWindow(360 + i * 140, k * 120, 120 - k * 40, 90 - k * 30, "fuzz own");
        m_noAccess = static_cast<uint8_t*>(VirtualAlloc(nullptr, 65536, MEM_RESERVE | MEM_COMMIT, PAGE_NOACCESS));
        m_picture.resize(static_cast<size_t>(kPictureSide + 64) * kPictureSide * 2);
        for (uint8_t& b : m_picture) b = static_cast<uint8_t>(m_rng());
        s_self = this;
    }
    ~Fuzzer()
    {
        for (void* h : m_liveRenders) m_sdk.QuillonRenderRelease(h);
        for (HWND w : m_windows) DestroyWindow(w);
        for (const Own& o : m_own)
            for (HWND w : o.wnd)
                if (w) DestroyWindow(w);
        VirtualFree(m_noAccess, 0, MEM_RELEASE);
        s_self = nullptr;
    }

    uint32_t Below(uint32_t n) { return static_cast<uint32_t>(m_rng() % n); }
    bool Chance(int percent) { return Below(100) < static_cast<uint32_t>(percent); }
    void* Pick(const std::vector<void*>& v) { return v[Below(static_cast<uint32_t>(v.size()))]; }
    bool IsLive(void* h) const { return std::count(m_liveRenders.begin(), m_liveRenders.end(), h) != 0; }
    bool IsDecoder(void* h) const { return std::count(m_decoders.begin(), m_decoders.end(), h) != 0; }
    void Randomise(void* p, size_t n)
    {
        for (size_t i = 0; i < n; ++i) static_cast<uint8_t*>(p)[i] = static_cast<uint8_t>(m_rng());
    }

    void* NeverIssued()
    {
        switch (Below(3)) {
        case 0: return m_noAccess + Below(65536);                                      // mapped, no access
        case 1: return reinterpret_cast<void*>(0x8000000000000000ull | m_rng());      // not canonical
        default: return reinterpret_cast<void*>(static_cast<uintptr_t>(Below(4096)));  // first page
        }
    }
    // A handle for a call of one family: one of its own (`mine`, `validPercent`
    // of the time), else a released render object's, one of the other
    // family, null or one never issued.
    void* Handle(const std::vector<void*>& mine, const std::vector<void*>& other, int validPercent)
    {
        if (!mine.empty() && Chance(validPercent)) return Pick(mine);
        switch (Below(4)) {
        case 0: if (!other.empty()) return Pick(other); break;
        case 1: if (!m_releasedRenders.empty()) return Pick(m_releasedRenders); break;
        case 2: return nullptr;
        }
        return NeverIssued();
    }
    void* RenderHandle(int validPercent) { return Handle(m_liveRenders, m_decoders, validPercent); }
    void* DecoderHandle(int validPercent) { return Handle(m_decoders, m_liveRenders, validPercent); }

    // Zero, negative, huge, short, exact or longer than the record.
    int Length(int fullSize)
    {
        switch (Below(7)) {
        case 0: return 0;
        case 1: return -1 - static_cast<int>(Below(0x7FFFFFFF));
        case 2: return 0x7FFFFFFF - static_cast<int>(Below(16));
        case 3: return static_cast<int>(Below(static_cast<uint32_t>(fullSize)));
        case 4: return fullSize + static_cast<int>(Below(64));
        default: return fullSize;
        }
    }

    // A window for `render`'s device: none, one that does not exist, or one
    // of the test's (where render objects have windows of their own, the
    // other one of its pair, taken over from a render object no longer alive).
    HWND Window(void* render)
    {
        switch (Below(4)) {
        case 0: return nullptr;
        case 1: return reinterpret_cast<HWND>(static_cast<uintptr_t>(0x10000 + Below(0x10000)));  // no such window
        }
        const int k = static_cast<int>(Below(2));
        if (!m_own[0].wnd[0] || !IsLive(render)) return m_windows[k];
        Own* slot = nullptr;
        for (Own& o : m_own) slot = !slot && o.user == render ? &o : slot;
        for (Own& o : m_own) slot = !slot && !IsLive(o.user) ? &o : slot;
        if (slot->user != render) slot->next = k;
        slot->user = render;
        slot->next ^= 1;
        return slot->wnd[slot->next ^ 1];
    }

    void Expect(Call call, int result, std::initializer_list<int> allowed)
    {
        ++m_counts[call];
        if (result != -1) ++m_reached[call];
        if (std::find(allowed.begin(), allowed.end(), result) == allowed.end() && ++m_failures <= 20)
            ADD_FAILURE() << kNames[call] << " returned " << result;
    }

    void Forget(void* render)
    {
        m_liveRenders.erase(std::find(m_liveRenders.begin(), m_liveRenders.end(), render));
        m_releasedRenders.push_back(render);
        if (render == m_deviceOwner) m_rendererDevice = m_deviceOwner = nullptr;
    }

    void Create(bool render)
    {
        void* h = render ? m_sdk.QuillonRenderCreate(reinterpret_cast<void*>(m_rng()), static_cast<unsigned>(m_rng()))
                         : m_sdk.QuillonDecoderCreate(reinterpret_cast<void*>(m_rng()), static_cast<unsigned>(m_rng()));
        Expect(render ? kCreate : kDecCreate, h ? 0 : -1, {0});
        if (!h) return;
        // A new object may take the address of a released render object.
        m_releasedRenders.erase(std::remove(m_releasedRenders.begin(), m_releasedRenders.end(), h),
                                m_releasedRenders.end());
        // Decoder handles stay registered for good; extra ones are simply not used again.
        if (!render && static_cast<int>(m_decoders.size()) < kMaxDecoders) m_decoders.push_back(h);
        if (!render) return;
        m_liveRenders.push_back(h);
        if (static_cast<int>(m_liveRenders.size()) <= kMaxLiveRenders) return;
        void* old = m_liveRenders.front();
        Forget(old);
        Expect(kRelease, m_sdk.QuillonRenderRelease(old), {1});
    }

    // The callback of a fuzzed draw-callback command: random overlays from inside.
    static void QUILLON_CALL Callback(ShowFrameData* frame, void*)
    {
        Fuzzer* f = s_self;
        if (!f || !frame) return;
        for (int i = f->Below(3); i > 0; --i) {
            OverlayParam p;
            f->Randomise(&p, sizeof(p));
            p.pointCount = static_cast<int>(f->Below(40)) - 4;
            for (OverlayPoint& pt : p.points)
                pt = {static_cast<int>(f->Below(400)) - 100, static_cast<int>(f->Below(300)) - 100};
            p.lineWidth = static_cast<int>(f->Below(40)) - 5;
            p.spacing = static_cast<float>(f->Below(30)) - 5.0f;
            const int command = QUILLON_CMD_DRAW_LINE + static_cast<int>(f->Below(3));
            f->Expect(kConfig, f->m_sdk.QuillonRenderConfig(f->m_current, command, &p, f->Length(sizeof(p))), {0});
        }
    }

    void ShowFrame(void* h)
    {
        ShowFrameData frame;
        Randomise(&frame, sizeof(frame));
        frame.texture = nullptr;  // the hardware path would call through it
        frame.data = nullptr;
        if (Chance(80)) {
            // Sizes the picture buffer covers, with any row padding up to 64.
            frame.data = m_picture.data();
            frame.width = static_cast<int>(Below(kPictureSide + 5)) - 4;
            frame.height = static_cast<int>(Below(kPictureSide + 5)) - 4;
            frame.lineSize = Chance(50) ? 0 : std::max(frame.width, 0) + static_cast<int>(Below(65));
        }
        const bool nullRecord = Chance(5);
        m_current = h;
        const int r = m_sdk.QuillonRenderShowFrame(h, nullRecord ? nullptr : &frame, Length(sizeof(frame)));
        m_current = nullptr;
        if (!IsLive(h)) Expect(kShowFrame, r, {-1});
        else Expect(kShowFrame, r, {0, -1, -101, -200});
    }

    void Config(void* h)
    {
        int command = static_cast<int>(Below(9)) - 1;  // -1 .. 7
        if (Chance(3)) command = static_cast<int>(m_rng());
        alignas(8) uint8_t payload[512];
        Randomise(payload, sizeof(payload));
        if (command == QUILLON_CMD_TEXTURE2D_TO_NV12) {
            memset(payload, 0, 8);  // the texture is called through: none
        } else if (command == QUILLON_CMD_SET_DRAW_CALLBACK) {
            const DrawCallBackParam p = {Chance(50) ? &Fuzzer::Callback : nullptr, reinterpret_cast<void*>(m_rng())};
            memcpy(payload, &p, sizeof(p));
        } else if (command >= QUILLON_CMD_DRAW_LINE && command <= QUILLON_CMD_DRAW_BLURRY) {
            reinterpret_cast<OverlayParam*>(payload)->pointCount = static_cast<int>(Below(40)) - 4;
        }
        const bool nullData = Chance(10);
        const int r = m_sdk.QuillonRenderConfig(h, command, nullData ? nullptr : payload, Length(416));
        Expect(kConfig, r, {!IsLive(h) || (nullData && command >= 0 && command <= 6) ? -1 : 0});
    }

    void DecoderInitial(void* h)
    {
        static const int kModes[] = {21, 22, 23, 0, -1, 24, 20, 0x7FFFFFFF};
        static const int kSizes[] = {0, -16, 1, 64, 320, 1920, 1088, 4096, 8192, 0x7FFFFFFF};
        CreateNeed need;
        Randomise(&need, sizeof(need));
        need.iWidth = kSizes[Below(10)];
        need.iHeight = kSizes[Below(10)];
        need.VideoMode = kModes[Below(8)];
        void* ownDevice = nullptr;  // the decoder makes its own device
        void** slots[3] = {nullptr, &ownDevice, &m_rendererDevice};
        need.deviceSlot = slots[Below(3)];
        CreateNeedExtern ext;
        Randomise(&ext, sizeof(ext));
        const bool nullNeed = Chance(5), nullExt = Chance(5);
        const int r = m_sdk.QuillonDecoderInitial(h, nullNeed ? nullptr : &need, nullExt ? nullptr : &ext);
        if (!IsDecoder(h)) Expect(kDecInitial, r, {-1});
        else if (nullNeed || nullExt) Expect(kDecInitial, r, {-404});
        else Expect(kDecInitial, r, {0, -428, -1});
    }

    void Decode(void* h)
    {
        alignas(8) uint8_t buffer[2048], surface[512];
        Randomise(buffer, sizeof(buffer));
        reinterpret_cast<FrameHead*>(buffer)->payloadLength = Below(sizeof(buffer) - sizeof(FrameHead) + 1);
        Randomise(surface, sizeof(surface));
        DecOut out;
        Randomise(&out, sizeof(out));
        out.surfaceRecordSize = static_cast<int>(Below(300)) - 8;
        out.surfaceRecord = Chance(80) ? surface : nullptr;
        const bool nullFrame = Chance(5), nullOut = Chance(5);
        const int r = m_sdk.QuillonDecoderDecodeOneFrame(h, nullFrame ? nullptr : buffer, Length(2048),
                                                         nullOut ? nullptr : &out);
        if (!IsDecoder(h)) Expect(kDecode, r, {-1});
        else if (nullFrame || nullOut) Expect(kDecode, r, {-404});
        else Expect(kDecode, r, {0, -1});
    }

    void Step()
    {
        // Device and swap-chain creation is slow, so live handles reach
        // InitDevice and SetWnd rarely; every other call sees them often.
        switch (Below(13)) {
        case 0: Expect(kStartup, m_sdk.QuillonStartup(), {0}); break;
        case 1: Expect(kCleanup, m_sdk.QuillonCleanup(), {0}); break;
        case 2: if (Chance(10)) Create(false); else Decode(DecoderHandle(0)); break;
        case 3: DecoderInitial(DecoderHandle(20)); break;
        case 4: Decode(DecoderHandle(60)); break;
        case 5: {
            void* h = DecoderHandle(30);
            Expect(kDecRelease, m_sdk.QuillonDecoderRelease(h), {IsDecoder(h) ? 0 : -1});
            break;
        }
        case 6: if (Chance(8)) Create(true); else ShowFrame(RenderHandle(0)); break;
        case 7: {
            void* h = RenderHandle(3);
            RenderInitParam init;
            Randomise(&init, sizeof(init));
            init.hWnd = Window(h);
            const bool nullRecord = Chance(10);
            const int r = m_sdk.QuillonRenderInitDevice(h, nullRecord ? nullptr : &init, Length(sizeof(init)));
            if (!IsLive(h)) Expect(kInitDevice, r, {-1});
            else if (nullRecord) Expect(kInitDevice, r, {-101});
            else Expect(kInitDevice, r, {0, -1});
            if (h == m_deviceOwner) m_rendererDevice = m_deviceOwner = nullptr;
            if (IsLive(h) && r == 0 && !nullRecord && init.device) {
                m_rendererDevice = init.device;
                m_deviceOwner = h;
            }
            break;
        }
        case 8: ShowFrame(RenderHandle(70)); break;
        case 9: {
            void* h = RenderHandle(60);
            uint8_t info[16];
            const bool nullData = Chance(10);
            const int r = m_sdk.QuillonRenderGetDrawInfo(h, nullData ? nullptr : info, Length(8));
            Expect(kGetDrawInfo, r, {!IsLive(h) ? -1 : nullData ? -101 : 0});
            break;
        }
        case 10: {
            void* h = RenderHandle(3);
            const int r = m_sdk.QuillonRenderSetWnd(h, Window(h));
            if (!IsLive(h)) Expect(kSetWnd, r, {-1});
            else Expect(kSetWnd, r, {0, -1});
            break;
        }
        case 11: Config(RenderHandle(60)); break;
        default: {
            void* h = RenderHandle(2);
            const bool live = IsLive(h);
            Expect(kRelease, m_sdk.QuillonRenderRelease(h), {live ? 1 : -1});
            if (live) Forget(h);
            break;
        }
        }
        if ((m_counts[kShowFrame] & 63) == 0) testkit::PumpMessages();
    }

    struct Own {
        HWND wnd[2] = {};
        void* user = nullptr;
        int next = 0;
    };
    QuillonSdkApi& m_sdk;
    std::mt19937_64 m_rng;
    HWND m_windows[2] = {};
    Own m_own[kMaxLiveRenders];
    uint8_t* m_noAccess = nullptr;
    std::vector<uint8_t> m_picture;
    std::vector<void*> m_liveRenders, m_releasedRenders, m_decoders;
    void* m_current = nullptr;         // the render handle being shown, for the callback
    void* m_rendererDevice = nullptr;  // handed to decoders; lives as long as its owner's device
    void* m_deviceOwner = nullptr;
    int m_counts[kCallCount] = {};
    int m_reached[kCallCount] = {};  // results other than -1: the call got past the handle check
    int m_failures = 0;
    static Fuzzer* s_self;
};
Fuzzer* Fuzzer::s_self = nullptr;

TEST(InterfaceFuzzing, EveryResultIsOneTheInterfaceAllows)
{
    // A fixed seed keeps the suite repeatable; QUILLON_FUZZ_SEED=random (or
    // a number) explores further.
    uint64_t seed = 20261122;
    if (const char* s = getenv("QUILLON_FUZZ_SEED")) {
        seed = strcmp(s, "random") == 0 ? GetTickCount64() ^ (static_cast<uint64_t>(GetCurrentProcessId()) << 32)
                                        : strtoull(s, nullptr, 0);
    }
    printf("fuzz seed %llu (set QUILLON_FUZZ_SEED to repeat)\n", static_cast<unsigned long long>(seed));
    fflush(stdout);

    StagedSdk sdk("robust_fuzz", testkit::kFfmpegDouble);
    ASSERT_TRUE(sdk.bound);
    ASSERT_EQ(0, sdk.api.QuillonStartup());
    Fuzzer fuzzer(sdk.api, seed);
    for (int i = 0; i < kCalls && fuzzer.m_failures < 20; ++i) fuzzer.Step();
    EXPECT_EQ(0, fuzzer.m_failures) << "seed " << seed;
    int total = 0;
    for (int i = 0; i < kCallCount; ++i) {
        printf("  %-30s %7d calls, %6d with a result other than -1\n", kNames[i], fuzzer.m_counts[i],
               fuzzer.m_reached[i]);
        total += fuzzer.m_counts[i];
        EXPECT_GT(fuzzer.m_counts[i], 100) << kNames[i];
    }
    printf("  %-30s %7d calls\n", "total", total);
    EXPECT_GE(total, kCalls);
}

}  // namespace
