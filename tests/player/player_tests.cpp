// QuillonPlay.exe end to end: it plays the generated sample clips (raw H.264,
// H.264 in Matroska, raw HEVC) through QuillonSDK.dll, and its screenshot of
// the last picture matches FFmpeg's own decode of that picture. Under Wine
// the hardware decoder cannot be set up, so the player decodes in software
// and shows the pictures through the texture path where the device samples
// NV12 (QUILLON_STACK=2: converted with BT.709, zoom and destination
// rectangle applied by the library), else through the CPU-data path (BT.601).
// Also: pacing by timestamps, the count of lost pictures on damaged clips,
// the player's NV12 pool byte for byte, and the video wall tile by tile.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "player/Nv12Pool.h"
#include "player/PlayerSource.h"
#include "player/Screenshot.h"
#include "testkit/testkit.h"
#include "xop/D3D11RenderTexture.h"

namespace {

using Microsoft::WRL::ComPtr;
using testkit::Count;

const unsigned char* At(const RgbImage& image, int x, int y) { return &image.rgb[(size_t(y) * image.width + x) * 3]; }

uint32_t U32(const std::string& s, size_t at, bool bigEndian)
{
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= uint32_t(static_cast<unsigned char>(s[at + i])) << 8 * (bigEndian ? 3 - i : i);
    return v;
}

// The player's screenshots: 24-bit BMP, or PNG of 8-bit RGB in stored
// (uncompressed) deflate blocks.
bool ReadImage(const std::string& path, RgbImage& image)
{
    const std::string s = testkit::ReadFile(path);
    image.rgb.clear();
    if (s.size() >= 54 && s.compare(0, 2, "BM") == 0 && U32(s, 28, false) % 65536 == 24) {
        image.width = static_cast<int>(U32(s, 18, false));
        image.height = static_cast<int>(U32(s, 22, false));
        const size_t row = (size_t(image.width) * 3 + 3) & ~size_t(3), pixels = U32(s, 10, false);
        if (s.size() < pixels + row * image.height) return false;
        for (int y = image.height - 1; y >= 0; --y)  // bottom-up rows of B, G, R
            for (int x = 0; x < image.width * 3; ++x) image.rgb.push_back(s[pixels + row * y + x / 3 * 3 + 2 - x % 3]);
        return true;
    }
    if (s.size() < 33 || s.compare(0, 8, "\x89PNG\r\n\x1a\n") != 0 || s.compare(12, 4, "IHDR") != 0) return false;
    image.width = static_cast<int>(U32(s, 16, true));
    image.height = static_cast<int>(U32(s, 20, true));
    std::string z, raw;
    for (size_t at = 8; at + 12 <= s.size(); at += 12 + U32(s, at, true))
        if (s.compare(at + 4, 4, "IDAT") == 0) z += s.substr(at + 8, U32(s, at, true));
    for (size_t at = 2; at + 5 <= z.size();) {  // after the zlib header: final bit, LEN, NLEN, bytes
        const size_t n = static_cast<unsigned char>(z[at + 1]) | static_cast<unsigned char>(z[at + 2]) << 8;
        raw += z.substr(at + 5, n);
        if (z[at] & 1) break;
        at += 5 + n;
    }
    const size_t stride = size_t(image.width) * 3 + 1;  // a filter byte, then R G B
    if (raw.size() != stride * image.height) return false;
    for (int y = 0; y < image.height; ++y)
        image.rgb.insert(image.rgb.end(), &raw[y * stride + 1], &raw[(y + 1) * stride]);
    return true;
}

// FFmpeg's decode of the clip, picture `index` (0-based) in output order,
// converted with studio-range BT.709 or BT.601.
bool ReferencePicture(const std::string& clip, int index, bool bt709, RgbImage& image)
{
    PlayerSource source;
    if (!source.Open(clip) || !source.StartSoftwareDecoder()) return false;
    std::vector<I420Picture> pictures;
    std::vector<uint8_t> unit;
    int64_t ts = 0;
    while (static_cast<int>(pictures.size()) <= index && source.NextAccessUnit(unit, ts))
        source.DecodeSoftware(unit, ts, pictures);
    if (static_cast<int>(pictures.size()) <= index) source.DecodeSoftware({}, 0, pictures);
    if (static_cast<int>(pictures.size()) <= index) return false;
    const I420Picture& p = pictures[index];
    image = {p.width, p.height, {}};
    const uint8_t *Y = p.bytes.data(), *U = Y + p.width * p.height, *V = U + p.width * p.height / 4;
    for (int y = 0; y < p.height; ++y) {
        for (int x = 0; x < p.width; ++x) {
            const int c = (y / 2) * (p.width / 2) + x / 2;
            const testkit::Yuv yuv = {Y[y * p.width + x], U[c], V[c]};
            const testkit::Rgb rgb = bt709 ? testkit::Bt709ToRgb(yuv) : testkit::Bt601ToRgb(yuv);
            image.rgb.insert(image.rgb.end(), {uint8_t(rgb.r), uint8_t(rgb.g), uint8_t(rgb.b)});
        }
    }
    return true;
}

// "" when the screen's w x h block at (sx, sy) agrees with the reference's
// at (rx, ry). Chroma is upsampled by filtering on screen and by repetition
// in the reference, so pixels next to a colour edge differ a little; inside
// flat areas (the reference equal three pixels away, diagonals included)
// they agree.
std::string Disagreement(const RgbImage& screen, int sx, int sy, const RgbImage& reference, int rx, int ry, int w,
                         int h)
{
    double total = 0;
    int flatPixels = 0, worst = 0;
    std::string where;
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
            for (int k = 0; isFlat && k < 3; ++k) {
                if (std::abs(s[k] - r[k]) <= worst) continue;
                worst = std::abs(s[k] - r[k]);
                where = std::to_string(x) + "," + std::to_string(y) + " channel " + std::to_string(k) + ": " +
                        std::to_string(s[k]) + " vs " + std::to_string(r[k]);
            }
        }
    }
    const double mean = total / (3.0 * w * h);
    if (mean < 3.0 && flatPixels > w * h / 2 && worst <= 8) return "";
    return "mean difference " + std::to_string(mean) + ", " + std::to_string(flatPixels) + " flat pixels, worst " +
           where;
}

class Player : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_dir = new testkit::StagedDir("player");
        s_dir->Add("QuillonPlay.exe")
            .Add("QuillonWall.exe")
            .Add("QuillonSDK.dll")
            .Add("Velmor.dll")
            .Add("ffmpeg-7.dll");
    }
    static void TearDownTestSuite() { delete s_dir; }
    static std::string Clip(const std::string& name) { return testkit::BinDir() + "..\\sample\\" + name; }
    static testkit::ProcessRun Run(const std::string& program, const std::string& arguments)
    {
        return testkit::RunProcess(s_dir->Path(), "\"" + s_dir->Path() + program + "\" " + arguments);
    }
    static testkit::ProcessRun Play(const std::string& arguments) { return Run("QuillonPlay.exe", arguments); }
    static testkit::StagedDir* s_dir;
};
testkit::StagedDir* Player::s_dir = nullptr;

TEST_F(Player, ScreenshotOfTheLastPictureMatchesFfmpegsDecode)
{
    // Software decoding everywhere here; the texture path where NV12 can be sampled.
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
        EXPECT_EQ(Count(run.output, "decoding in software"), 1u) << run.output;
        EXPECT_EQ(Count(run.output, "QuillonPlay: path: "), 1u) << run.output;
        EXPECT_EQ(Count(run.output, path), 1u) << run.output;
        EXPECT_EQ(Count(run.output, "QuillonPlay: shown 20 frames in "), 1u) << run.output;
        EXPECT_NE(run.output.find("shown 10 frames, "), std::string::npos) << run.output;
        EXPECT_NE(run.output.find(" fps"), std::string::npos) << run.output;
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
    EXPECT_EQ(run.exitCode, 0u) << run.output;
    EXPECT_EQ(Count(run.output, path), 1u) << run.output;
    ASSERT_TRUE(ReadImage(shot, screen)) << run.output;
    ASSERT_TRUE(ReferencePicture(Clip("sample.265"), 19, true, reference));
    ASSERT_EQ(screen.width, 320);
    ASSERT_EQ(screen.height, 240);
    EXPECT_EQ(Disagreement(screen, 40, 30, reference, 80, 60, 160, 120), "");
    int lit = 0;
    for (int y = 0; y < screen.height; ++y)
        for (int x = 0; x < screen.width; ++x)
            lit += (x < 40 || x >= 200 || y < 30 || y >= 150) &&
                   At(screen, x, y)[0] + At(screen, x, y)[1] + At(screen, x, y)[2] > 0;
    EXPECT_EQ(lit, 0);
}

// The H.264 clip with the NAL unit of its first keyframe (type 5) left out,
// or cut to a quarter of its length.
std::string DamageFirstKeyframe(const std::string& clip, bool cut)
{
    const std::string startCode("\0\0\1", 3);
    size_t at = clip.find(startCode);
    while (at != std::string::npos && (clip[at + 3] & 31) != 5) at = clip.find(startCode, at + 3);
    if (at == std::string::npos) return "";
    size_t end = clip.find(startCode, at + 3);
    end = end == std::string::npos ? clip.size() : end - (clip[end - 1] == 0);  // a four-byte start code
    return clip.substr(0, cut ? at + (end - at) / 4 : at) + clip.substr(end);
}

// Pictures shown and seconds played from the player's summary line.
bool Summary(const std::string& output, int& shown, double& seconds)
{
    const size_t at = output.find("QuillonPlay: shown ");
    return at != std::string::npos &&
           sscanf(output.c_str() + at, "QuillonPlay: shown %d frames in %lf s", &shown, &seconds) == 2;
}

TEST_F(Player, PacesByTimestampsAndCountsLostPictures)
{
    // 15 pictures stamped 0.2 s apart: the last is due 2.8 s after the first.
    int shown = 0;
    double seconds = 0;
    const testkit::ProcessRun paced = Play("--no-overlay \"" + Clip("sample-5fps.mkv") + "\"");
    EXPECT_EQ(paced.exitCode, 0u) << paced.output;
    ASSERT_TRUE(Summary(paced.output, shown, seconds)) << paced.output;
    EXPECT_EQ(shown, 15);
    EXPECT_GE(seconds, 14 / 5.0) << paced.output;
    EXPECT_NE(paced.output.find(", 0 decode errors, 0 pictures lost, "), std::string::npos) << paced.output;

    // Two groups of 15 pictures. Without the first keyframe the decoder
    // drops the 14 pictures that depend on it; the second group plays.
    const std::string clip = testkit::ReadFile(Clip("sample.264"));
    s_dir->Write("no-keyframe.264", DamageFirstKeyframe(clip, false));
    s_dir->Write("cut-keyframe.264", DamageFirstKeyframe(clip, true));
    const testkit::ProcessRun dropped = Play("--no-overlay --fast no-keyframe.264");
    EXPECT_EQ(dropped.exitCode, 0u) << dropped.output;
    ASSERT_TRUE(Summary(dropped.output, shown, seconds)) << dropped.output;
    EXPECT_EQ(shown, 15);
    EXPECT_NE(dropped.output.find(", 14 pictures lost, "), std::string::npos) << dropped.output;

    // A keyframe cut short is concealed: all 30 pictures shown, one lost,
    // however many error lines the decoder writes about it.
    const testkit::ProcessRun concealed = Play("--no-overlay --fast cut-keyframe.264");
    EXPECT_EQ(concealed.exitCode, 0u) << concealed.output;
    ASSERT_TRUE(Summary(concealed.output, shown, seconds)) << concealed.output;
    EXPECT_EQ(shown, 30);
    EXPECT_NE(concealed.output.find(", 1 pictures lost, "), std::string::npos) << concealed.output;
    EXPECT_GE(Count(concealed.output, "QuillonPlay: decode error: "), 2u) << concealed.output;
}

TEST_F(Player, OverlaysAndZoomReachThePngScreenshot)
{
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
    int grey = 0, total = 0;
    for (int y = 150; y < 218; ++y)
        for (int x = 196; x < 292; ++x, ++total) {
            const unsigned char* p = At(screen, x, y);
            grey += std::abs(p[0] - 128) < 16 && std::abs(p[1] - 128) < 16 && std::abs(p[2] - 128) < 16;
        }
    EXPECT_GT(grey, total / 4);
    // The tracking box's left edge at 10% of the width is green.
    const unsigned char* edge = At(screen, 32, 120);
    EXPECT_TRUE(edge[1] > 200 && edge[0] < 120 && edge[2] < 120)
        << int(edge[0]) << "," << int(edge[1]) << "," << int(edge[2]);

    // A zoom onto the left quarter shows the white bar across the window.
    const testkit::ProcessRun zoomed = Play("--no-overlay --fast --frames 3 --zoom 0,0,0.125,1 --screenshot \"" + shot +
                                            "\" \"" + Clip("sample.264") + "\"");
    EXPECT_EQ(zoomed.exitCode, 0u) << zoomed.output;
    ASSERT_TRUE(ReadImage(shot, screen));
    for (int x : {10, 160, 310})
        EXPECT_GT(At(screen, x, 20)[0] + At(screen, x, 20)[1] + At(screen, x, 20)[2], 690) << x;

    // Bad input: a usage message and exit code 1; a missing file: 2.
    EXPECT_EQ(Play("--frames").exitCode, 1u);
    EXPECT_EQ(Play("\"" + s_dir->Path() + "absent.264\"").exitCode, 2u);
}

// QuillonWall: every tile of the wall's screenshot shows the picture its
// --stats line names as shown last, as FFmpeg decodes it, below the tile's
// overlay text. 16 tiles in child windows on the DXVK stack; 4 on Wine's own
// Direct3D, where many devices are slow and a child window's swap chain
// never reaches the screen, so the tiles are popup windows there.
TEST_F(Player, WallShowsTheLastPictureOfEveryTile)
{
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
        int shown = 0, late = 0, dropped = 0, errors = 0, last = -1;
        ASSERT_EQ(sscanf(run.output.c_str() + at + line.size(),
                         "%d, late %d, dropped %d, decode errors %d, cpu %*f s, last picture %d", &shown, &late,
                         &dropped, &errors, &last),
                  5);
        SCOPED_TRACE(run.output.substr(at, run.output.find('\n', at) - at));
        EXPECT_GT(shown, 0);
        EXPECT_EQ(errors, 0);
        ASSERT_TRUE(ReferencePicture(Clip(clip), last, dxvk, reference));
        // Below the text band and inside the tile's 2-pixel frame.
        const int x0 = i % columns * tileW, y0 = i / columns * tileH, w = tileW - 6, h = tileH - textRows - 3;
        EXPECT_EQ(Disagreement(screen, x0 + 3, y0 + textRows, reference, 3, textRows, w, h), "");
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

// A picture whose every sample tells its place: luma from (x, y), chroma
// from (x, y) of its own plane and `seed`.
I420Picture Numbered(int w, int h, int seed)
{
    I420Picture p;
    p.width = w;
    p.height = h;
    p.bytes.resize(size_t(w) * h * 3 / 2);
    uint8_t *u = p.bytes.data() + w * h, *v = u + w * h / 4;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) p.bytes[y * w + x] = static_cast<uint8_t>(x * 3 + y * 5 + seed);
    for (int y = 0; y < h / 2; ++y)
        for (int x = 0; x < w / 2; ++x) {
            u[y * (w / 2) + x] = static_cast<uint8_t>(16 + x + 2 * y + seed);
            v[y * (w / 2) + x] = static_cast<uint8_t>(200 - x - y + seed);
        }
    return p;
}

// Slice `slice` of the pool must hold `p` as NV12 with its last column and
// row repeated into the padding; the first wrong byte is returned.
std::string CheckSlice(ID3D11Device* device, const Nv12Pool& pool, UINT slice, const I420Picture& p)
{
    ComPtr<ID3D11DeviceContext> context;
    device->GetImmediateContext(&context);
    const int W = pool.Width(), H = pool.Height();
    const D3D11_TEXTURE2D_DESC desc =
        xop::TextureDesc(W, H, DXGI_FORMAT_NV12, D3D11_USAGE_STAGING, 0, D3D11_CPU_ACCESS_READ);
    ComPtr<ID3D11Texture2D> staging;
    if (FAILED(device->CreateTexture2D(&desc, nullptr, &staging))) return "no staging texture";
    context->CopySubresourceRegion(staging.Get(), 0, 0, 0, 0, pool.Texture(), slice, nullptr);
    D3D11_MAPPED_SUBRESOURCE map = {};
    if (FAILED(context->Map(staging.Get(), 0, D3D11_MAP_READ, 0, &map))) return "cannot map";
    const uint8_t *got = static_cast<const uint8_t*>(map.pData), *u = p.bytes.data() + p.width * p.height;
    const uint8_t* v = u + p.width * p.height / 4;
    std::string wrong;
    for (int y = 0; y < H * 3 / 2 && wrong.empty(); ++y) {
        for (int x = 0; x < W && wrong.empty(); ++x) {
            const int c = std::min(y - H, p.height / 2 - 1) * (p.width / 2) + std::min(x / 2, p.width / 2 - 1);
            const int want = y < H   ? p.bytes[std::min(y, p.height - 1) * p.width + std::min(x, p.width - 1)]
                             : x % 2 ? v[c]
                                     : u[c];
            if (got[y * map.RowPitch + x] != want)
                wrong = "slice " + std::to_string(slice) + " at " + std::to_string(x) + "," + std::to_string(y) + ": " +
                        std::to_string(got[y * map.RowPitch + x]) + " instead of " + std::to_string(want);
        }
    }
    context->Unmap(staging.Get(), 0);
    return wrong;
}

TEST(Nv12PoolUpload, FillsSlicesInTurnWithThePictureAndItsEdgesRepeated)
{
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
