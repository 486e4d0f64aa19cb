// QuillonPlay and QuillonWall end to end on the sample clips, screenshots against FFmpeg's
// decode (texture path with BT.709 where NV12 samples, else CPU path, BT.601); damaged and
// random streams; the NV12 pool.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>

#include "player/Nv12Pool.h"
#include "player/PlayerSource.h"
#include "player/Screenshot.h"
#include "testkit/testkit.h"
#include "xop/D3D11RenderTexture.h"
#include "xop/ScopedMap.h"

namespace {

using Microsoft::WRL::ComPtr;
using testkit::Count;
using testkit::ReadImage;

const unsigned char* At(const RgbImage& image, int x, int y) { return &image.rgb[(size_t(y) * image.width + x) * 3]; }

// FFmpeg's decode of the clip, picture `index` (0-based) in output order,
// converted with studio-range BT.709 or BT.601.
bool ReferencePicture(const std::string& clip, int index, bool bt709, RgbImage& image) {
    PlayerSource source;
    if (!source.Open(clip) || !source.StartSoftwareDecoder()) return false;
    std::vector<I420Picture> pictures;
    std::vector<uint8_t> unit;
    int64_t ts = 0;
    while (static_cast<int>(pictures.size()) <= index && source.NextAccessUnit(unit, ts))
        source.DecodeSoftware(unit, ts, pictures);
    if (static_cast<int>(pictures.size()) <= index) source.DecodeSoftware({}, 0, pictures);  // drain
    if (static_cast<int>(pictures.size()) <= index) return false;
    const I420Picture& p = pictures[index];
    image = {p.width, p.height, {}};
    const uint8_t *Y = p.bytes.data(), *U = Y + p.width * p.height, *V = U + p.width * p.height / 4;
    for (int y = 0; y < p.height; ++y)
        for (int x = 0; x < p.width; ++x) {
            const int c = (y / 2) * (p.width / 2) + x / 2;
            const testkit::Rgb rgb =
                (bt709 ? testkit::Bt709ToRgb : testkit::Bt601ToRgb)({Y[y * p.width + x], U[c], V[c]});
            image.rgb.insert(image.rgb.end(), {uint8_t(rgb.r), uint8_t(rgb.g), uint8_t(rgb.b)});
        }
    return true;
}

// "" when the screen's w x h block at (sx, sy) agrees with the reference's at (rx, ry): near
// colour edges chroma upsampling differs a little; inside flat areas (the reference equal
// three pixels away, diagonals included) they agree.
std::string Disagreement(const RgbImage& screen, int sx, int sy, const RgbImage& reference, int rx, int ry, int w,
                         int h) {
    double total = 0;
    int flatPixels = 0, worst = 0;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const unsigned char *s = At(screen, sx + x, sy + y), *r = At(reference, rx + x, ry + y);
            bool isFlat = x >= 3 && y >= 3 && x + 3 < w && y + 3 < h;
            for (int k = 0; k < 3; ++k) {
                total += std::abs(s[k] - r[k]);
                for (int d = 0; isFlat && d < 9; ++d)
                    isFlat = std::abs(At(reference, rx + x + d % 3 * 3 - 3, ry + y + d / 3 * 3 - 3)[k] - r[k]) <= 4;
            }
            flatPixels += isFlat;
            for (int k = 0; isFlat && k < 3; ++k) worst = std::max(worst, std::abs(s[k] - r[k]));
        }
    }
    const double mean = total / (3.0 * w * h);
    if (mean < 3.0 && flatPixels > w * h / 2 && worst <= 8) return "";
    return "mean " + std::to_string(mean) + ", " + std::to_string(flatPixels) + " flat pixels, worst " +
           std::to_string(worst);
}

class Player : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_dir = new testkit::StagedDir("player");
        s_dir->Add("QuillonPlay.exe")
            .Add("QuillonWall.exe")
            .Add("QuillonSDK.dll")
            .Add("Velmor.dll")
            .Add("ffmpeg-7.dll");
    }
    static void TearDownTestSuite() { delete s_dir; }
    static std::string Clip(const std::string& name) { return testkit::BinDir() + "..\\sample\\" + name; }
    static testkit::ProcessRun Run(const std::string& program, const std::string& arguments) {
        return testkit::RunProcess(s_dir->Path(), "\"" + s_dir->Path() + program + "\" " + arguments);
    }
    static testkit::ProcessRun Play(const std::string& arguments) { return Run("QuillonPlay.exe", arguments); }
    static inline testkit::StagedDir* s_dir = nullptr;
};

TEST_F(Player, ScreenshotOfTheLastPictureMatchesFfmpegsDecode) {
    const bool texturePath = testkit::OnNv12Stack();
    const std::string path = std::string("QuillonPlay: path: software decoding, shown through the ") +
                             (texturePath ? "GPU texture path" : "CPU-data path");
    const std::string shot = s_dir->Path() + "shot.bmp";
    RgbImage screen, reference;
    for (const char* name : {"sample.264", "sample.mkv", "sample.265"}) {
        SCOPED_TRACE(name);
        DeleteFileA(shot.c_str());
        const testkit::ProcessRun run =
            Play("--no-overlay --fast --progress --frames 20 --screenshot \"" + shot + "\" \"" + Clip(name) + "\"");
        EXPECT_EQ(run.exitCode, 0u) << run.output;
        EXPECT_EQ(Count(run.output, "QuillonPlay: path: "), 1u) << run.output;
        EXPECT_EQ(Count(run.output, path), 1u) << run.output;
        EXPECT_EQ(Count(run.output, "QuillonPlay: shown 20 frames in "), 1u) << run.output;
        EXPECT_NE(run.output.find("shown 10 frames, "), std::string::npos) << run.output;  // --progress
        ASSERT_TRUE(ReadImage(shot, screen)) << run.output;
        ASSERT_TRUE(ReferencePicture(Clip(name), 19, texturePath, reference));
        ASSERT_EQ(screen.width, reference.width);
        ASSERT_EQ(screen.height, reference.height);
        EXPECT_EQ(Disagreement(screen, 0, 0, reference, 0, 0, screen.width, screen.height), "");
    }
    if (!texturePath) return;  // zoom and destination rectangle belong to the texture path
    // The middle quarter of the picture (80,60)-(240,180), cropped by the
    // library, shown 1:1 in the rectangle (40,30)-(200,150); black around it.
    DeleteFileA(shot.c_str());
    const testkit::ProcessRun run = Play(
        "--no-overlay --fast --frames 20 --zoom 0.25,0.25,0.75,0.75 --dst 40,30,200,150 "
        "--screenshot \"" +
        shot + "\" \"" + Clip("sample.265") + "\"");
    ASSERT_TRUE(ReadImage(shot, screen)) << run.output;  // `reference` is still sample.265's picture 19
    ASSERT_EQ(screen.width, 320);
    ASSERT_EQ(screen.height, 240);
    EXPECT_EQ(Disagreement(screen, 40, 30, reference, 80, 60, 160, 120), "");
    int lit = 0;
    for (int y = 0; y < 240; ++y)
        for (int x = 0; x < 320; ++x) {
            const unsigned char* p = At(screen, x, y);
            lit += (x < 40 || x >= 200 || y < 30 || y >= 150) && p[0] + p[1] + p[2] > 0;
        }
    EXPECT_EQ(lit, 0);
}

// The pictures QuillonPlay's summary line reports (and its seconds); -1 without that line.
int Shown(const std::string& output, double* seconds = nullptr) {
    int shown = -1;
    double s = 0;
    const size_t at = output.find("QuillonPlay: shown ");
    if (at != std::string::npos) sscanf(output.c_str() + at, "QuillonPlay: shown %d frames in %lf s", &shown, &s);
    if (seconds) *seconds = s;
    return shown;
}

// Offsets of the 00 00 01 start codes of an Annex B stream.
std::vector<size_t> StartCodes(const std::string& s) {
    const std::string code("\0\0\1", 3);
    std::vector<size_t> at;
    for (size_t i = s.find(code); i != std::string::npos; i = s.find(code, i + 1)) at.push_back(i);
    return at;
}

// The H.264 clip with the NAL unit of its first keyframe (type 5) left out,
// or cut to a quarter of its length.
std::string DamageFirstKeyframe(const std::string& clip, bool cut) {
    const std::vector<size_t> codes = StartCodes(clip);
    size_t k = 0;
    while (k < codes.size() && (clip[codes[k] + 3] & 31) != 5) ++k;
    if (k == codes.size()) return "";
    const size_t at = codes[k];
    const size_t end = k + 1 == codes.size() ? clip.size() : codes[k + 1] - (clip[codes[k + 1] - 1] == 0);
    return clip.substr(0, cut ? at + (end - at) / 4 : at) + clip.substr(end);
}

// `s` with its second half damaged: bits flipped, or random units put in before every third start code.
std::string DamageSecondHalf(const std::string& s, bool flipBits, std::mt19937& rng) {
    const std::vector<size_t> codes = StartCodes(s);
    std::string out = s;
    for (int i = 0; flipBits && i < 40; ++i) out[s.size() / 2 + rng() % (s.size() / 2)] ^= 1 << (rng() % 8);
    for (size_t k = codes.size() - 1; !flipBits && k >= codes.size() / 2; k -= 3) {
        std::string unit("\0\0\0\1", 4);
        for (int i = 0, n = 20 + static_cast<int>(rng() % 400); i < n; ++i) unit += static_cast<char>(rng());
        out.insert(codes[k] > 0 && s[codes[k] - 1] == 0 ? codes[k] - 1 : codes[k], unit);
    }
    return out;
}

TEST_F(Player, PacesByTimestampsAndCountsLostPictures) {
    const std::string clip = testkit::ReadFile(Clip("sample.264"));
    s_dir->Write("no-keyframe.264", DamageFirstKeyframe(clip, false));
    s_dir->Write("cut-keyframe.264", DamageFirstKeyframe(clip, true));
    const struct {
        std::string arguments;
        int shown;
        const char* lost;
        double minSeconds;
        size_t minErrorLines;
    } runs[] = {
        // 15 pictures stamped 0.2 s apart: the last is due 2.8 s after the first.
        {"\"" + Clip("sample-5fps.mkv") + "\"", 15, ", 0 decode errors, 0 pictures lost, ", 14 / 5.0, 0},
        // Two groups of 15 pictures. Without the first keyframe the decoder
        // drops the 14 pictures that depend on it; the second group plays.
        {"--fast no-keyframe.264", 15, ", 14 pictures lost, ", 0, 0},
        // A keyframe cut short is concealed: all 30 shown, one lost, however
        // many error lines (at least two) the decoder writes about it.
        {"--fast cut-keyframe.264", 30, ", 1 pictures lost, ", 0, 2},
    };
    for (const auto& r : runs) {
        const testkit::ProcessRun run = Play("--no-overlay " + r.arguments);
        EXPECT_EQ(run.exitCode, 0u) << run.output;
        double seconds = 0;
        const int shown = Shown(run.output, &seconds);
        ASSERT_NE(shown, -1) << run.output;
        EXPECT_EQ(shown, r.shown) << run.output;
        EXPECT_NE(run.output.find(r.lost), std::string::npos) << run.output;
        EXPECT_GE(seconds, r.minSeconds) << run.output;
        EXPECT_GE(Count(run.output, "QuillonPlay: decode error: "), r.minErrorLines) << run.output;
    }
}

// Clips cut inside a unit, or with bits flipped or random units in their second half, show the good pictures,
// report the damage and end normally. Random bytes are refused with a message or played as noise, never a crash.
TEST_F(Player, DamagedClipsPlayTheGoodPicturesAndRandomBytesNeverCrash) {
    const std::string kReport = "QuillonPlay: decode error: ";
    std::mt19937 rng(2024);
    auto playFile = [](const std::string& name, const std::string& bytes) {
        s_dir->Write(name, bytes);
        testkit::ProcessRun r = Play("--no-overlay --fast " + name);
        r.output = name + ":\n" + r.output;
        return r;
    };
    for (const std::string ext : {".264", ".265"}) {
        const std::string good = testkit::ReadFile(Clip("sample" + ext));
        const testkit::ProcessRun whole = playFile("whole" + ext, good);
        const int wholeShown = Shown(whole.output);
        ASSERT_EQ(0u, whole.exitCode) << whole.output;
        ASSERT_GT(wholeShown, 10) << whole.output;
        EXPECT_EQ(std::string::npos, whole.output.find(kReport)) << whole.output;
        EXPECT_NE(std::string::npos, whole.output.find(", 0 decode errors")) << whole.output;

        // Cut two thirds in, 40 bytes into a unit: the pictures before the cut are all there.
        const std::vector<size_t> codes = StartCodes(good);
        const testkit::ProcessRun cut = playFile("cut" + ext, good.substr(0, codes[codes.size() * 2 / 3] + 40));
        EXPECT_EQ(0u, cut.exitCode) << cut.output;
        EXPECT_GE(Shown(cut.output), wholeShown * 2 / 3 - 1) << cut.output;
        EXPECT_LT(Shown(cut.output), wholeShown) << cut.output;

        // Damage in the second half: at least the first half plays, and the damage is reported.
        for (bool flip : {true, false}) {
            const testkit::ProcessRun r = playFile((flip ? "flipped" : "random-units") + ext,
                                               DamageSecondHalf(good, flip, rng));
            EXPECT_EQ(0u, r.exitCode) << r.output;
            EXPECT_GE(Shown(r.output), wholeShown / 2 - 1) << r.output;
            EXPECT_NE(std::string::npos, r.output.find(kReport)) << r.output;
        }

        // Refused (2: cannot open, 4: nothing shown) or played as noise.
        std::string noise(64 * 1024, '\0');
        for (char& c : noise) c = static_cast<char>(rng());
        const testkit::ProcessRun r = playFile("noise" + ext, noise);
        EXPECT_TRUE(r.exitCode == 0 || r.exitCode == 2 || r.exitCode == 4) << r.exitCode << "\n" << r.output;
        EXPECT_NE(std::string::npos, r.output.find("QuillonPlay: ")) << r.output;
    }
}

TEST_F(Player, OverlaysAndZoomReachThePngScreenshot) {
    const std::string shot = s_dir->Path() + "shot.png";
    DeleteFileA(shot.c_str());
    const testkit::ProcessRun run =
        Play("--fast --frames 5 --screenshot \"" + shot + "\" \"" + Clip("sample.265") + "\"");
    EXPECT_EQ(run.exitCode, 0u) << run.output;
    RgbImage screen;
    ASSERT_TRUE(ReadImage(shot, screen));
    ASSERT_EQ(screen.width, 320);
    ASSERT_EQ(screen.height, 240);
    // The privacy region (60% to 92% of the window, lower right) is hatched grey.
    int grey = 0;
    for (int y = 150; y < 218; ++y)
        for (int x = 196; x < 292; ++x) {
            const unsigned char* p = At(screen, x, y);
            grey += std::abs(p[0] - 128) < 16 && std::abs(p[1] - 128) < 16 && std::abs(p[2] - 128) < 16;
        }
    EXPECT_GT(grey, 68 * 96 / 4);
    // The tracking box's left edge at 10% of the width is green.
    const unsigned char* edge = At(screen, 32, 120);
    EXPECT_TRUE(edge[1] > 200 && edge[0] < 120 && edge[2] < 120)
        << int(edge[0]) << "," << int(edge[1]) << "," << int(edge[2]);
    // A zoom onto the left quarter shows the white bar across the window.
    const testkit::ProcessRun zoomed = Play("--no-overlay --fast --frames 3 --zoom 0,0,0.125,1 --screenshot \"" + shot +
                                            "\" \"" + Clip("sample.264") + "\"");
    ASSERT_TRUE(ReadImage(shot, screen)) << zoomed.output;
    for (int x : {10, 160, 310})
        EXPECT_GT(At(screen, x, 20)[0] + At(screen, x, 20)[1] + At(screen, x, 20)[2], 690) << x;
    // Bad input: a usage message and exit code 1; a missing file: 2.
    EXPECT_EQ(Play("--frames").exitCode, 1u);
    EXPECT_EQ(Play("\"" + s_dir->Path() + "absent.264\"").exitCode, 2u);
}

// Every wall tile shows the picture its --stats line names as last, below its overlay text.
// 4 popup tiles on Wine's Direct3D (slow devices; child swap chains never reach the screen).
TEST_F(Player, WallShowsTheLastPictureOfEveryTile) {
    const bool dxvk = testkit::OnNv12Stack();
    const int tiles = dxvk ? 16 : 4, columns = dxvk ? 4 : 2, tileW = 320, tileH = 240, textRows = 48;
    const char* clips[2] = {"sample.264", "sample.265"};
    const std::string shot = s_dir->Path() + "wall.bmp";
    DeleteFileA(shot.c_str());
    const testkit::ProcessRun run =
        Run("QuillonWall.exe", std::string(dxvk ? "" : "--popup-tiles ") + "--stats --seconds 3 --tiles " +
                                   std::to_string(tiles) + " --size " + std::to_string(columns * tileW) + "x" +
                                   std::to_string(tiles / columns * tileH) + " --screenshot \"" + shot + "\" \"" +
                                   Clip(clips[0]) + "\" \"" + Clip(clips[1]) + "\"");
    ASSERT_EQ(run.exitCode, 0u) << run.output;
    EXPECT_EQ(Count(run.output, dxvk ? "software, texture path" : "software, CPU-data path"), 2u) << run.output;
    RgbImage screen, reference;
    ASSERT_TRUE(ReadImage(shot, screen)) << run.output;
    ASSERT_EQ(screen.width, columns * tileW);
    ASSERT_EQ(screen.height, tiles / columns * tileH);
    for (int i = 0; i < tiles; ++i) {
        // Tiles take the files in turn; a repeat starts 5 pictures further on.
        const std::string clip = clips[i % 2], line = "tile #" + std::to_string(i + 1) + " " + clip + ": shown ";
        const size_t at = run.output.find(line);
        ASSERT_NE(at, std::string::npos) << run.output;
        int shown = 0, errors = 0, last = -1;
        ASSERT_EQ(
            sscanf(run.output.c_str() + at + line.size(),
                   "%d, late %*d, dropped %*d, decode errors %d, cpu %*f s, last picture %d", &shown, &errors, &last),
            3);
        EXPECT_GT(shown, 0) << line;
        EXPECT_EQ(errors, 0) << line;
        ASSERT_TRUE(ReferencePicture(Clip(clip), last, dxvk, reference));
        // Below the text band and inside the tile's 2-pixel frame.
        const int x0 = i % columns * tileW, y0 = i / columns * tileH;
        EXPECT_EQ(Disagreement(screen, x0 + 3, y0 + textRows, reference, 3, textRows, tileW - 6, tileH - textRows - 3),
                  "");
        // The overlay's text (yellow with a black shadow) covers part of the band above.
        int text = 0;
        for (int y = 4; y < textRows; ++y)
            for (int x = 4; x < tileW / 2; ++x) {
                const unsigned char *p = At(screen, x0 + x, y0 + y), *r = At(reference, x, y);
                text += std::abs(p[0] - r[0]) + std::abs(p[1] - r[1]) + std::abs(p[2] - r[2]) > 150;
            }
        EXPECT_GT(text, 100);
    }
}

// A picture whose every sample tells its place.
I420Picture Numbered(int w, int h, int seed) {
    I420Picture p;
    p.width = w;
    p.height = h;
    for (int i = 0; i < w * h * 3 / 2; ++i) p.bytes.push_back(static_cast<uint8_t>(i * 7 + i / 251 + seed));
    return p;
}

// Slice `slice` of the pool must hold `p` as NV12 with its last column and
// row repeated into the padding; the first wrong byte is returned.
std::string CheckSlice(ID3D11Device* device, const Nv12Pool& pool, UINT slice, const I420Picture& p) {
    ComPtr<ID3D11DeviceContext> context;
    device->GetImmediateContext(&context);
    const int W = pool.Width(), H = pool.Height(), cw = p.width / 2;
    const D3D11_TEXTURE2D_DESC desc =
        xop::TextureDesc(W, H, DXGI_FORMAT_NV12, D3D11_USAGE_STAGING, 0, D3D11_CPU_ACCESS_READ);
    ComPtr<ID3D11Texture2D> staging;
    if (FAILED(device->CreateTexture2D(&desc, nullptr, &staging))) return "no staging texture";
    context->CopySubresourceRegion(staging.Get(), 0, 0, 0, 0, pool.Texture(), slice, nullptr);
    xop::ScopedMap map(context.Get(), staging.Get(), D3D11_MAP_READ);
    if (!map.Mapped()) return "cannot map";
    const uint8_t *got = map.Data(), *u = p.bytes.data() + p.width * p.height;
    std::string wrong;
    for (int y = 0; y < H * 3 / 2 && wrong.empty(); ++y)
        for (int x = 0; x < W && wrong.empty(); ++x) {
            const int c = std::min(y - H, p.height / 2 - 1) * cw + std::min(x / 2, cw - 1);
            const int want = y < H ? p.bytes[std::min(y, p.height - 1) * p.width + std::min(x, p.width - 1)]
                                   : u[c + (x % 2) * p.width * p.height / 4];
            if (got[y * map.RowPitch() + x] != want)
                wrong = "slice " + std::to_string(slice) + " byte " + std::to_string(x) + "," + std::to_string(y);
        }
    return wrong;
}

TEST(Nv12PoolUpload, FillsSlicesInTurnWithThePictureAndItsEdgesRepeated) {
    ComPtr<ID3D11Device> device;
    ASSERT_HRESULT_SUCCEEDED(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0,
                                               D3D11_SDK_VERSION, &device, nullptr, nullptr));
    QUILLON_REQUIRE_NV12_SAMPLING(device.Get());  // slices of NV12 arrays read back as zeros on stack 1
    Nv12Pool pool;
    ASSERT_TRUE(pool.Create(device.Get(), 70, 40, 3)) << pool.Error();
    EXPECT_EQ(pool.Width(), 96);
    EXPECT_EQ(pool.Height(), 64);
    std::vector<I420Picture> pictures;
    for (int i = 0; i < 4; ++i) {
        pictures.push_back(Numbered(70, 40, i * 40));
        ShowFrameData frame = {};
        ASSERT_TRUE(pool.Upload(pictures.back(), frame)) << pool.Error();
        EXPECT_EQ(frame.texture, pool.Texture());
        EXPECT_EQ(frame.arraySlice, static_cast<unsigned>(i % 3));
        EXPECT_EQ(frame.width, 70);
        EXPECT_EQ(frame.height, 40);
    }
    EXPECT_EQ(CheckSlice(device.Get(), pool, 0, pictures[3]), "");
    EXPECT_EQ(CheckSlice(device.Get(), pool, 2, pictures[2]), "");
    // Malformed pictures are refused and leave the record alone.
    ShowFrameData frame = {};
    I420Picture odd = Numbered(70, 40, 0), shortBytes = Numbered(70, 40, 0);
    odd.width = 69;
    shortBytes.bytes.resize(70 * 40);
    EXPECT_FALSE(pool.Upload(odd, frame));
    EXPECT_FALSE(pool.Upload(shortBytes, frame));
    EXPECT_EQ(frame.texture, nullptr);
    // A larger picture makes a larger pool.
    const I420Picture large = Numbered(100, 80, 7);
    ASSERT_TRUE(pool.Upload(large, frame)) << pool.Error();
    EXPECT_EQ(pool.Width(), 128);
    EXPECT_EQ(pool.Height(), 96);
    EXPECT_EQ(frame.arraySlice, 0u);
    EXPECT_EQ(CheckSlice(device.Get(), pool, 0, large), "");
}

}  // namespace
