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

#include <cmath>
#include <cstdio>
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "player/Nv12Pool.h"
#include "player/PlayerSource.h"
#include "testkit/nv12.h"
#include "testkit/testkit.h"
#include "xop/D3D11RenderTexture.h"

namespace {

using Microsoft::WRL::ComPtr;

struct Image {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> rgb;  // top-down R G B
    const unsigned char* At(int x, int y) const { return &rgb[(static_cast<size_t>(y) * width + x) * 3]; }
};

uint32_t Le32(const std::string& s, size_t at)
{
    return static_cast<unsigned char>(s[at]) | static_cast<unsigned char>(s[at + 1]) << 8 |
           static_cast<unsigned char>(s[at + 2]) << 16 | static_cast<uint32_t>(static_cast<unsigned char>(s[at + 3])) << 24;
}

uint32_t Be32(const std::string& s, size_t at)
{
    return static_cast<uint32_t>(static_cast<unsigned char>(s[at])) << 24 | static_cast<unsigned char>(s[at + 1]) << 16 |
           static_cast<unsigned char>(s[at + 2]) << 8 | static_cast<unsigned char>(s[at + 3]);
}

bool ReadBmp(const std::string& path, Image& image)
{
    const std::string s = testkit::ReadFile(path);
    if (s.size() < 54 || s[0] != 'B' || s[1] != 'M' || Le32(s, 28) % 65536 != 24) return false;
    image.width = static_cast<int>(Le32(s, 18));
    image.height = static_cast<int>(Le32(s, 22));
    const size_t row = (static_cast<size_t>(image.width) * 3 + 3) & ~size_t(3);
    if (s.size() < Le32(s, 10) + row * image.height) return false;
    image.rgb.resize(static_cast<size_t>(image.width) * image.height * 3);
    for (int y = 0; y < image.height; ++y) {
        const char* src = &s[Le32(s, 10) + row * (image.height - 1 - y)];
        for (int x = 0; x < image.width; ++x)
            for (int c = 0; c < 3; ++c) image.rgb[(static_cast<size_t>(y) * image.width + x) * 3 + c] = src[x * 3 + 2 - c];
    }
    return true;
}

// The player's PNGs hold 8-bit RGB in stored (uncompressed) deflate blocks.
bool ReadStoredPng(const std::string& path, Image& image)
{
    const std::string s = testkit::ReadFile(path);
    if (s.size() < 33 || s.compare(0, 8, "\x89PNG\r\n\x1a\n") != 0 || s.compare(12, 4, "IHDR") != 0) return false;
    image.width = static_cast<int>(Be32(s, 16));
    image.height = static_cast<int>(Be32(s, 20));
    std::string z;
    for (size_t at = 8; at + 12 <= s.size();) {
        const uint32_t n = Be32(s, at);
        if (s.compare(at + 4, 4, "IDAT") == 0) z += s.substr(at + 8, n);
        at += 12 + n;
    }
    std::string raw;
    for (size_t at = 2; at + 5 <= z.size();) {
        const bool last = z[at] & 1;
        const size_t n = static_cast<unsigned char>(z[at + 1]) | static_cast<unsigned char>(z[at + 2]) << 8;
        raw += z.substr(at + 5, n);
        at += 5 + n;
        if (last) break;
    }
    const size_t stride = static_cast<size_t>(image.width) * 3 + 1;
    if (raw.size() != stride * image.height) return false;
    image.rgb.clear();
    for (int y = 0; y < image.height; ++y) image.rgb.insert(image.rgb.end(), &raw[y * stride + 1], &raw[y * stride + stride]);
    return true;
}

// FFmpeg's decode of the clip, picture `index` (0-based) in output order,
// converted with studio-range BT.709 or BT.601.
bool ReferencePicture(const std::string& clip, int index, bool bt709, Image& image)
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
    image.width = p.width;
    image.height = p.height;
    image.rgb.resize(static_cast<size_t>(p.width) * p.height * 3);
    const uint8_t* Y = p.bytes.data();
    const uint8_t* U = Y + p.width * p.height;
    const uint8_t* V = U + p.width * p.height / 4;
    for (int y = 0; y < p.height; ++y) {
        for (int x = 0; x < p.width; ++x) {
            const int c = (y / 2) * (p.width / 2) + x / 2;
            const testkit::Yuv yuv = {Y[y * p.width + x], U[c], V[c]};
            const testkit::Rgb rgb = bt709 ? testkit::Bt709ToRgb(yuv) : testkit::Bt601ToRgb(yuv);
            unsigned char* out = &image.rgb[(static_cast<size_t>(y) * p.width + x) * 3];
            out[0] = static_cast<unsigned char>(rgb.r);
            out[1] = static_cast<unsigned char>(rgb.g);
            out[2] = static_cast<unsigned char>(rgb.b);
        }
    }
    return true;
}

testkit::ProcessRun Play(const testkit::StagedDir& dir, const std::string& arguments)
{
    return testkit::RunProcess(dir.Path(), "\"" + dir.Path() + "QuillonPlay.exe\" " + arguments);
}

size_t Count(const std::string& text, const std::string& what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

class Player : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_dir = new testkit::StagedDir("player");
        s_dir->Add("QuillonPlay.exe").Add("QuillonWall.exe").Add("QuillonSDK.dll").Add("Velmor.dll").Add("ffmpeg-7.dll");
    }
    static void TearDownTestSuite() { delete s_dir; }
    static std::string Clip(const std::string& name) { return testkit::BinDir() + "..\\sample\\" + name; }
    static testkit::StagedDir* s_dir;
};
testkit::StagedDir* Player::s_dir = nullptr;

// How the screen's w x h block at (sx, sy) agrees with the reference's at
// (rx, ry). Chroma is upsampled by filtering on screen and by repetition in
// the reference, so pixels next to a colour edge differ a little; inside
// flat areas (the reference equal three pixels away, diagonals included)
// they agree.
struct Agreement {
    double meanDifference = 0;
    int flatPixels = 0;
    int worst = 0;
    std::string where;
};

Agreement Compare(const Image& screen, int sx, int sy, const Image& reference, int rx, int ry, int w, int h)
{
    Agreement a;
    double total = 0;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const unsigned char* s = screen.At(sx + x, sy + y);
            const unsigned char* r = reference.At(rx + x, ry + y);
            bool isFlat = x >= 3 && y >= 3 && x + 3 < w && y + 3 < h;
            for (int k = 0; k < 3; ++k) {
                total += std::abs(s[k] - r[k]);
                if (isFlat)
                    for (int dy = -3; dy <= 3; dy += 3)
                        for (int dx = -3; dx <= 3; dx += 3)
                            isFlat = isFlat && std::abs(reference.At(rx + x + dx, ry + y + dy)[k] - r[k]) <= 4;
            }
            if (!isFlat) continue;
            ++a.flatPixels;
            for (int k = 0; k < 3; ++k) {
                if (std::abs(s[k] - r[k]) <= a.worst) continue;
                a.worst = std::abs(s[k] - r[k]);
                a.where = std::to_string(x) + "," + std::to_string(y) + " channel " + std::to_string(k) + ": " +
                          std::to_string(s[k]) + " vs " + std::to_string(r[k]);
            }
        }
    }
    a.meanDifference = total / (3.0 * w * h);
    return a;
}

void ExpectAgreement(const Agreement& a, int w, int h)
{
    EXPECT_LT(a.meanDifference, 3.0);
    EXPECT_GT(a.flatPixels, w * h / 2);
    EXPECT_LE(a.worst, 8) << a.where;
}

TEST_F(Player, ScreenshotOfTheLastPictureMatchesFfmpegsDecode)
{
    // Software decoding everywhere here; the texture path where NV12 can be sampled.
    const bool texturePath = testkit::OnNv12Stack();
    const std::string path = std::string("QuillonPlay: path: software decoding, shown through the ") +
                             (texturePath ? "GPU texture path" : "CPU-data path");
    const int frames = 20;
    const std::string shot = s_dir->Path() + "shot.bmp";
    Image screen, reference;
    for (const char* name : {"sample.264", "sample.mkv", "sample.265"}) {
        SCOPED_TRACE(name);
        DeleteFileA(shot.c_str());
        const testkit::ProcessRun run = Play(*s_dir, "--no-overlay --fast --progress --frames " + std::to_string(frames) +
                                                         " --screenshot \"" + shot + "\" \"" + Clip(name) + "\"");
        EXPECT_EQ(run.exitCode, 0u) << run.output;
        EXPECT_EQ(Count(run.output, "decoding in software"), 1u) << run.output;
        EXPECT_EQ(Count(run.output, "QuillonPlay: path: "), 1u) << run.output;
        EXPECT_EQ(Count(run.output, path), 1u) << run.output;
        EXPECT_EQ(Count(run.output, "QuillonPlay: shown 20 frames in "), 1u) << run.output;
        EXPECT_NE(run.output.find("shown 10 frames, "), std::string::npos) << run.output;
        EXPECT_NE(run.output.find(" fps"), std::string::npos) << run.output;

        ASSERT_TRUE(ReadBmp(shot, screen)) << run.output;
        ASSERT_TRUE(ReferencePicture(Clip(name), frames - 1, texturePath, reference));
        ASSERT_EQ(screen.width, reference.width);
        ASSERT_EQ(screen.height, reference.height);
        ExpectAgreement(Compare(screen, 0, 0, reference, 0, 0, screen.width, screen.height), screen.width,
                        screen.height);
    }
    if (!texturePath) return;  // zoom and destination rectangle belong to the texture path

    // The middle quarter of the picture (80,60)-(240,180), cropped by the
    // library, shown 1:1 in the rectangle (40,30)-(200,150); black around it.
    DeleteFileA(shot.c_str());
    const testkit::ProcessRun run = Play(*s_dir, "--no-overlay --fast --frames 20 --zoom 0.25,0.25,0.75,0.75 --dst 40,30,200,150 "
                                                 "--screenshot \"" + shot + "\" \"" + Clip("sample.265") + "\"");
    EXPECT_EQ(run.exitCode, 0u) << run.output;
    EXPECT_EQ(Count(run.output, path), 1u) << run.output;
    ASSERT_TRUE(ReadBmp(shot, screen)) << run.output;
    ASSERT_TRUE(ReferencePicture(Clip("sample.265"), frames - 1, true, reference));
    ASSERT_EQ(screen.width, 320);
    ASSERT_EQ(screen.height, 240);
    ExpectAgreement(Compare(screen, 40, 30, reference, 80, 60, 160, 120), 160, 120);
    int lit = 0;
    for (int y = 0; y < screen.height; ++y)
        for (int x = 0; x < screen.width; ++x) {
            const unsigned char* p = screen.At(x, y);
            lit += (x < 40 || x >= 200 || y < 30 || y >= 150) && p[0] + p[1] + p[2] > 0;
        }
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
    return at != std::string::npos && sscanf(output.c_str() + at, "QuillonPlay: shown %d frames in %lf s", &shown, &seconds) == 2;
}

TEST_F(Player, PacesByTimestampsAndCountsLostPictures)
{
    // 15 pictures stamped 0.2 s apart: the last is due 2.8 s after the first.
    int shown = 0;
    double seconds = 0;
    const testkit::ProcessRun paced = Play(*s_dir, "--no-overlay \"" + Clip("sample-5fps.mkv") + "\"");
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
    const testkit::ProcessRun dropped = Play(*s_dir, "--no-overlay --fast no-keyframe.264");
    EXPECT_EQ(dropped.exitCode, 0u) << dropped.output;
    ASSERT_TRUE(Summary(dropped.output, shown, seconds)) << dropped.output;
    EXPECT_EQ(shown, 15);
    EXPECT_NE(dropped.output.find(", 14 pictures lost, "), std::string::npos) << dropped.output;

    // A keyframe cut short is concealed: all 30 pictures shown, one lost,
    // however many error lines the decoder writes about it.
    const testkit::ProcessRun concealed = Play(*s_dir, "--no-overlay --fast cut-keyframe.264");
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
    const testkit::ProcessRun run = Play(*s_dir, "--fast --frames 5 --screenshot \"" + shot + "\" \"" + Clip("sample.265") + "\"");
    EXPECT_EQ(run.exitCode, 0u) << run.output;
    Image screen;
    ASSERT_TRUE(ReadStoredPng(shot, screen));
    ASSERT_EQ(screen.width, 320);
    ASSERT_EQ(screen.height, 240);
    // The privacy region (60% to 92% of the window, lower right) is hatched grey.
    int grey = 0, total = 0;
    for (int y = 150; y < 218; ++y)
        for (int x = 196; x < 292; ++x, ++total) {
            const unsigned char* p = screen.At(x, y);
            grey += std::abs(p[0] - 128) < 16 && std::abs(p[1] - 128) < 16 && std::abs(p[2] - 128) < 16;
        }
    EXPECT_GT(grey, total / 4);
    // The tracking box's left edge at 10% of the width is green.
    const unsigned char* edge = screen.At(32, 120);
    EXPECT_TRUE(edge[1] > 200 && edge[0] < 120 && edge[2] < 120) << int(edge[0]) << "," << int(edge[1]) << "," << int(edge[2]);

    // A zoom onto the left quarter shows the white bar across the window.
    const testkit::ProcessRun zoomed = Play(*s_dir, "--no-overlay --fast --frames 3 --zoom 0,0,0.125,1 --screenshot \"" + shot + "\" \"" +
                                        Clip("sample.264") + "\"");
    EXPECT_EQ(zoomed.exitCode, 0u) << zoomed.output;
    ASSERT_TRUE(ReadStoredPng(shot, screen));
    for (int x : {10, 160, 310}) EXPECT_GT(screen.At(x, 20)[0] + screen.At(x, 20)[1] + screen.At(x, 20)[2], 690) << x;

    // Bad input: a usage message and exit code 1; a missing file: 2.
    EXPECT_EQ(Play(*s_dir, "--frames").exitCode, 1u);
    EXPECT_EQ(Play(*s_dir, "\"" + s_dir->Path() + "absent.264\"").exitCode, 2u);
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
    const testkit::ProcessRun run = testkit::RunProcess(
        s_dir->Path(), "\"" + s_dir->Path() + "QuillonWall.exe\" " + (dxvk ? "" : "--popup-tiles ") + "--stats --seconds 3 --tiles " +
                           std::to_string(tiles) + " --size " + std::to_string(columns * tileW) + "x" +
                           std::to_string(tiles / columns * tileH) + " --screenshot \"" + shot + "\" \"" + Clip(clips[0]) +
                           "\" \"" + Clip(clips[1]) + "\"");
    ASSERT_EQ(run.exitCode, 0u) << run.output;
    EXPECT_EQ(Count(run.output, dxvk ? "software, texture path" : "software, CPU-data path"), 2u) << run.output;
    Image screen, reference;
    ASSERT_TRUE(ReadBmp(shot, screen)) << run.output;
    ASSERT_EQ(screen.width, columns * tileW);
    ASSERT_EQ(screen.height, tiles / columns * tileH);
    for (int i = 0; i < tiles; ++i) {
        // Tiles take the files in turn; a repeat starts 5 pictures further on.
        const std::string clip = clips[i % 2], line = "tile #" + std::to_string(i + 1) + " " + clip + ": shown ";
        const size_t at = run.output.find(line);
        ASSERT_NE(at, std::string::npos) << run.output;
        int shown = 0, late = 0, dropped = 0, errors = 0, last = -1;
        ASSERT_EQ(sscanf(run.output.c_str() + at + line.size(), "%d, late %d, dropped %d, decode errors %d, cpu %*f s, last picture %d",
                         &shown, &late, &dropped, &errors, &last), 5);
        SCOPED_TRACE(run.output.substr(at, run.output.find('\n', at) - at));
        EXPECT_GT(shown, 0);
        EXPECT_EQ(errors, 0);
        ASSERT_TRUE(ReferencePicture(Clip(clip), last, dxvk, reference));
        const int x0 = i % columns * tileW, y0 = i / columns * tileH;
        // Below the text band and inside the tile's 2-pixel frame.
        const int w = tileW - 6, h = tileH - textRows - 3;
        ExpectAgreement(Compare(screen, x0 + 3, y0 + textRows, reference, 3, textRows, w, h), w, h);
        // The overlay's text (yellow with a black shadow) covers part of the band above.
        int text = 0;
        for (int y = 4; y < textRows; ++y)
            for (int x = 4; x < tileW / 2; ++x) {
                const unsigned char *p = screen.At(x0 + x, y0 + y), *r = reference.At(x, y);
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
    p.bytes.resize(static_cast<size_t>(w) * h * 3 / 2);
    uint8_t* u = p.bytes.data() + w * h;
    uint8_t* v = u + w * h / 4;
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
    const D3D11_TEXTURE2D_DESC desc = xop::TextureDesc(pool.Width(), pool.Height(), DXGI_FORMAT_NV12,
                                                       D3D11_USAGE_STAGING, 0, D3D11_CPU_ACCESS_READ);
    ComPtr<ID3D11Texture2D> staging;
    if (FAILED(device->CreateTexture2D(&desc, nullptr, &staging))) return "no staging texture";
    context->CopySubresourceRegion(staging.Get(), 0, 0, 0, 0, pool.Texture(), slice, nullptr);
    D3D11_MAPPED_SUBRESOURCE map = {};
    if (FAILED(context->Map(staging.Get(), 0, D3D11_MAP_READ, 0, &map))) return "cannot map";
    const uint8_t* got = static_cast<const uint8_t*>(map.pData);
    const uint8_t* u = p.bytes.data() + p.width * p.height;
    const uint8_t* v = u + p.width * p.height / 4;
    std::string wrong;
    for (int y = 0; y < pool.Height() * 3 / 2 && wrong.empty(); ++y) {
        for (int x = 0; x < pool.Width() && wrong.empty(); ++x) {
            int want;
            if (y < pool.Height()) {
                want = p.bytes[std::min(y, p.height - 1) * p.width + std::min(x, p.width - 1)];
            } else {
                const int c = std::min(y - pool.Height(), p.height / 2 - 1) * (p.width / 2) + std::min(x / 2, p.width / 2 - 1);
                want = x % 2 ? v[c] : u[c];
            }
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
        ShowFrameData frame;
        memset(&frame, 0, sizeof(frame));
        ASSERT_TRUE(pool.Upload(pictures.back(), frame)) << pool.Error();
        EXPECT_EQ(frame.texture, pool.Texture());
        EXPECT_EQ(frame.arraySlice, static_cast<unsigned>(i % 3));
        EXPECT_EQ(frame.width, 70);
        EXPECT_EQ(frame.height, 40);
    }
    EXPECT_EQ(CheckSlice(device.Get(), pool, 0, pictures[3]), "");
    EXPECT_EQ(CheckSlice(device.Get(), pool, 2, pictures[2]), "");

    // Malformed pictures are refused and leave the record alone.
    ShowFrameData frame;
    memset(&frame, 0, sizeof(frame));
    I420Picture odd = Numbered(70, 40, 0);
    odd.width = 69;
    I420Picture shortBytes = Numbered(70, 40, 0);
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
