// QuillonPlay.exe end to end: it plays the generated sample clips (raw H.264,
// H.264 in Matroska, raw HEVC) through QuillonSDK.dll, and its screenshot of
// the last picture matches FFmpeg's own decode of that picture converted
// with BT.601. Under Wine the hardware decoder cannot be set up, so this
// also covers the software fallback and the CPU-data path. The video wall
// QuillonWall.exe is checked the same way, tile by tile.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "player/PlayerSource.h"
#include "testkit/nv12.h"
#include "testkit/testkit.h"

namespace {

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
// converted with studio-range BT.601 (the CPU-data path's matrix) or BT.709
// (the texture path's).
bool ReferencePicture(const std::string& clip, int index, Image& image, bool bt709 = false)
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

struct Match {
    double meanDifference = 0;  // over every compared pixel and channel
    int flat = 0;               // pixels inside flat areas of the reference
    int worst = 0;              // largest difference inside flat areas
    std::string where;
};

// Compares `reference` with the part of `screen` whose top-left corner is
// (x0, y0), leaving out the reference's first `skipTop` rows and a 3-pixel
// margin. Chroma is upsampled by filtering on screen and by repetition
// here, so pixels next to a colour edge differ a little; inside flat areas
// (the reference equal three pixels away, diagonals included) they agree.
Match Compare(const Image& screen, int x0, int y0, const Image& reference, int skipTop)
{
    Match m;
    long long compared = 0;
    for (int y = std::max(3, skipTop); y + 3 < reference.height; ++y) {
        for (int x = 3; x + 3 < reference.width; ++x) {
            const unsigned char* shown = screen.At(x0 + x, y0 + y);
            bool isFlat = true;
            for (int k = 0; k < 3; ++k) {
                const int r = reference.At(x, y)[k];
                m.meanDifference += std::abs(shown[k] - r);
                for (int dy = -3; dy <= 3; dy += 3)
                    for (int dx = -3; dx <= 3; dx += 3) isFlat = isFlat && std::abs(reference.At(x + dx, y + dy)[k] - r) <= 4;
            }
            compared += 3;
            if (!isFlat) continue;
            ++m.flat;
            for (int k = 0; k < 3; ++k) {
                const int d = std::abs(shown[k] - reference.At(x, y)[k]);
                if (d > m.worst) {
                    m.worst = d;
                    m.where = std::to_string(x) + "," + std::to_string(y) + " channel " + std::to_string(k) + ": " +
                              std::to_string(shown[k]) + " vs " + std::to_string(reference.At(x, y)[k]);
                }
            }
        }
    }
    m.meanDifference /= compared ? compared : 1;
    return m;
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

TEST_F(Player, ScreenshotOfTheLastPictureMatchesFfmpegsDecode)
{
    const int frames = 20;
    for (const char* name : {"sample.264", "sample.mkv", "sample.265"}) {
        SCOPED_TRACE(name);
        const std::string shot = s_dir->Path() + "shot.bmp";
        DeleteFileA(shot.c_str());
        const testkit::ProcessRun run = Play(*s_dir, "--no-overlay --progress --frames " + std::to_string(frames) + " --screenshot \"" +
                                         shot + "\" \"" + Clip(name) + "\"");
        EXPECT_EQ(run.exitCode, 0u) << run.output;
        EXPECT_EQ(Count(run.output, "decoding in software"), 1u) << run.output;
        EXPECT_EQ(Count(run.output, "QuillonPlay: shown 20 frames in "), 1u) << run.output;
        EXPECT_NE(run.output.find("shown 10 frames, "), std::string::npos) << run.output;
        EXPECT_NE(run.output.find(" fps"), std::string::npos) << run.output;

        Image screen, reference;
        ASSERT_TRUE(ReadBmp(shot, screen)) << run.output;
        ASSERT_TRUE(ReferencePicture(Clip(name), frames - 1, reference));
        ASSERT_EQ(screen.width, reference.width);
        ASSERT_EQ(screen.height, reference.height);
        const Match m = Compare(screen, 0, 0, reference, 0);
        EXPECT_LT(m.meanDifference, 3.0);
        EXPECT_GT(m.flat, screen.width * screen.height / 2);
        EXPECT_LE(m.worst, 8) << m.where;
    }
}

TEST_F(Player, OverlaysAndZoomReachThePngScreenshot)
{
    const std::string shot = s_dir->Path() + "shot.png";
    DeleteFileA(shot.c_str());
    const testkit::ProcessRun run = Play(*s_dir, "--frames 5 --screenshot \"" + shot + "\" \"" + Clip("sample.265") + "\"");
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
    const testkit::ProcessRun zoomed = Play(*s_dir, "--no-overlay --frames 3 --zoom 0,0,0.125,1 --screenshot \"" + shot + "\" \"" +
                                        Clip("sample.264") + "\"");
    EXPECT_EQ(zoomed.exitCode, 0u) << zoomed.output;
    ASSERT_TRUE(ReadStoredPng(shot, screen));
    for (int x : {10, 160, 310}) EXPECT_GT(screen.At(x, 20)[0] + screen.At(x, 20)[1] + screen.At(x, 20)[2], 690) << x;

    // Bad input: a usage message and exit code 1; a missing file: 2.
    EXPECT_EQ(Play(*s_dir, "--frames").exitCode, 1u);
    EXPECT_EQ(Play(*s_dir, "\"" + s_dir->Path() + "absent.264\"").exitCode, 2u);
}

}  // namespace

// QuillonWall: every tile of the wall's screenshot shows the picture its
// --stats line says it showed last, as FFmpeg decodes it, with the tile's
// overlay text above it. 16 tiles in child windows on the DXVK stack; 4 on
// Wine's own Direct3D, where many devices are slow and a swap chain in a
// child window never reaches the screen, so the tiles are popup windows.
TEST_F(Player, WallShowsTheLastPictureOfEveryTile)
{
    const char* stack = getenv("QUILLON_STACK");
    const bool dxvk = stack && std::string(stack) == "2";
    const int tiles = dxvk ? 16 : 4, columns = dxvk ? 4 : 2;
    const int tileW = 320, tileH = 240, textRows = 48;
    const char* clips[2] = {"sample.264", "sample.265"};
    const std::string shot = s_dir->Path() + "wall.bmp";
    DeleteFileA(shot.c_str());
    const testkit::ProcessRun run = testkit::RunProcess(
        s_dir->Path(), "\"" + s_dir->Path() + "QuillonWall.exe\" " + (dxvk ? "" : "--popup-tiles ") +
                           "--stats --seconds 3 --tiles " + std::to_string(tiles) +
                           " --size " + std::to_string(columns * tileW) + "x" + std::to_string(tiles / columns * tileH) +
                           " --screenshot \"" + shot + "\" \"" + Clip(clips[0]) + "\" \"" + Clip(clips[1]) + "\"");
    ASSERT_EQ(run.exitCode, 0u) << run.output;
    EXPECT_EQ(Count(run.output, "decoding in software"), 1u) << run.output;
    // Software pictures take the texture path (BT.709) where NV12 can be sampled.
    const bool texturePath = run.output.find("software, texture path") != std::string::npos;
    EXPECT_EQ(texturePath, dxvk) << run.output;
    Image screen;
    ASSERT_TRUE(ReadBmp(shot, screen)) << run.output;
    ASSERT_EQ(screen.width, columns * tileW);
    ASSERT_EQ(screen.height, tiles / columns * tileH);

    for (int i = 0; i < tiles; ++i) {
        // Tiles take the files in turn; a repeat starts 5 pictures further on.
        const std::string clip = clips[i % 2];
        const std::string line = "tile #" + std::to_string(i + 1) + " " + clip + ": shown ";
        const size_t at = run.output.find(line);
        ASSERT_NE(at, std::string::npos) << run.output;
        int shown = 0, late = 0, dropped = 0, errors = 0, last = -1;
        ASSERT_EQ(sscanf(run.output.c_str() + at + line.size(), "%d, late %d, dropped %d, decode errors %d, cpu %*f s, last picture %d",
                         &shown, &late, &dropped, &errors, &last), 5) << run.output.substr(at, 200);
        SCOPED_TRACE(run.output.substr(at, run.output.find('\n', at) - at));
        EXPECT_GT(shown, 0);
        EXPECT_EQ(errors, 0);

        Image reference;
        ASSERT_TRUE(ReferencePicture(Clip(clip), last, reference, texturePath));
        const int x0 = i % columns * tileW, y0 = i / columns * tileH;
        const Match m = Compare(screen, x0, y0, reference, textRows);
        EXPECT_LT(m.meanDifference, 3.0);
        EXPECT_GT(m.flat, tileW * tileH / 2);
        EXPECT_LE(m.worst, 8) << m.where;
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
