// Overlays drawn inside the Direct2D pass of a presented frame, checked on screen: lines, closed
// polylines, the scan-line hatch, text; and the UTF-8 to ANSI conversion the text path uses.
#include <gtest/gtest.h>

#include <functional>

#include "xop_testutil.h"

using namespace xoptest;

namespace {

OverlayParam Polygon(std::initializer_list<POINT> points, uint32_t color, int width, float spacing = 0.0f) {
    OverlayParam p = {};
    p.color = color;
    p.lineWidth = width;
    p.spacing = spacing;
    for (POINT pt : points) p.points[p.pointCount++] = {pt.x, pt.y};
    return p;
}

bool IsBlack(COLORREF c) { return testkit::Near(c, 0, 0, 0, 8); }

class Overlay : public RendererTest {
protected:
    // One black frame with `draw` run inside its overlay pass, presented.
    void PresentWithOverlays(std::function<void()> draw) {
        r.m_drawCallback = [](ShowFrameData*, void* user) { (*static_cast<std::function<void()>*>(user))(); };
        r.m_drawCallbackUser = &draw;
        ShowFrameData record = {};
        r.BeginFrame();
        Present(r, &record);
        r.m_drawCallback = nullptr;
    }
    void Hatch(OverlayParam region) { EXPECT_EQ(0, r.InnerOnDrawBlurry(&region)); }
    COLORREF At(int x, int y) { return testkit::ClientPixel(m_window, x, y); }
    // The rows of column x that are not black.
    std::vector<int> LitRows(int x) {
        std::vector<int> rows;
        for (int y = 0; y < H; ++y) if (!IsBlack(At(x, y))) rows.push_back(y);
        return rows;
    }
};

}  // namespace

TEST_F(Overlay, LinesTakeColourAndWidthAndOnlyClosedPolylinesTheClosingSide) {
    PresentWithOverlays([this] {
        OverlayParam red = Polygon({{10, 20}, {150, 20}}, 0xAB0000FFu, 4);  // top byte ignored
        OverlayParam green = Polygon({{10, 60}, {150, 60}}, 0x0000FF00u, 0);  // width 0 draws 2.0
        OverlayParam closed = Polygon({{10, 110}, {40, 80}, {70, 110}}, 0x00FF0000u, 2);
        OverlayParam open = Polygon({{90, 110}, {120, 80}, {150, 110}}, 0x00FF0000u, 2);
        closed.closed = 1;
        for (OverlayParam* p : {&red, &green, &closed, &open}) EXPECT_EQ(0, r.InnerOnDrawLine(p));
    });
    ASSERT_TRUE(Shows(80, 20, {255, 0, 0}, 2));
    EXPECT_EQ((std::vector<int>{18, 19, 20, 21, 59, 60}), LitRows(80));
    for (int y : {18, 21, 59, 60}) EXPECT_TRUE(testkit::Near(At(80, y), y < 40 ? 255 : 0, y < 40 ? 0 : 255, 0, 2)) << y;
    EXPECT_TRUE(Shows(105, 95, {0, 0, 255}, 100));  // on the open one's first side
    EXPECT_TRUE(Shows(40, 110, {0, 0, 255}, 2));
    EXPECT_TRUE(Shows(120, 110, {0, 0, 0}, 8));
}

TEST_F(Overlay, HatchDrawsScanLinesInsideTheRegion) {
    PresentWithOverlays([this] {
        Hatch(Polygon({{10, 10}, {110, 10}, {110, 110}, {10, 110}}, 0x00FFFFFFu, 1, 0.0f));  // spacing 0: 10
        // A spacing not above the stroke covers solidly; a region with all y 0 draws nothing.
        Hatch(Polygon({{120, 20}, {150, 20}, {150, 100}, {120, 100}}, 0x0000FFFFu, 2, 2.0f));
        Hatch(Polygon({{120, 0}, {150, 0}, {135, 0}}, 0x00FFFFFFu, 2));
    });
    ASSERT_TRUE(Shows(60, 10, {255, 255, 255}, 2));
    EXPECT_EQ((std::vector<int>{10, 20, 30, 40, 50, 60, 70, 80, 90, 100}), LitRows(60));
    for (POINT p : {POINT{11, 50}, POINT{108, 50}}) EXPECT_TRUE(testkit::Near(At(p.x, p.y), 255, 255, 255, 2));
    for (POINT p : {POINT{8, 50}, POINT{112, 50}}) EXPECT_TRUE(IsBlack(At(p.x, p.y)));
    for (int y = 22; y < 98; ++y) EXPECT_TRUE(testkit::Near(At(135, y), 255, 255, 0, 2)) << y;
    for (int x = 118; x < 152; x += 4) EXPECT_TRUE(IsBlack(At(x, 0))) << x;
}

TEST_F(Overlay, HatchFarLargerThanTheWindowDrawsWhatTheWindowShows) {
    // Regions two billion units tall, one with a stroke wider than everything: both come back (line by
    // line they would take hours) and show exactly their part inside the window.
    constexpr int kFar = 2000000000;
    PresentWithOverlays([this] {
        Hatch(Polygon({{20, -kFar}, {60, -kFar}, {60, kFar}, {20, kFar}}, 0x00FFFFFFu, 2, 10.0f));
        Hatch(Polygon({{100, -kFar}, {kFar, -kFar}, {kFar, kFar}, {100, kFar}}, 0x0000FF00u, kFar, 503.0f));
    });
    ASSERT_TRUE(Shows(130, 60, {0, 255, 0}, 2));
    // Scan lines at y = 0, 10, ... 120 (the scan keeps its phase), 2 wide.
    const std::vector<int> lines = {0, 9, 10, 19, 20, 29, 30, 39, 40, 49, 50, 59, 60, 69, 70, 79, 80, 89, 90, 99, 100,
                                    109, 110, 119};
    EXPECT_EQ(lines, LitRows(40));
    EXPECT_TRUE(IsBlack(At(98, 0)));
    for (POINT p : {POINT{101, 0}, POINT{159, 119}}) EXPECT_TRUE(testkit::Near(At(p.x, p.y), 0, 255, 0, 2));
}

TEST_F(Overlay, TextStaysInsideItsLayoutBox) {
    DebugCapture debug;
    for (int fontType : {0, 1}) {  // "Times New Roman", the CJK family
        SCOPED_TRACE(fontType);
        auto drawText = [this, fontType] {
            OverlayParam text = Polygon({{20, 30}, {150, 90}}, 0x00FFFFFFu, 40);
            text.fontType = fontType;
            strcpy(text.text, "HH");
            EXPECT_EQ(0, r.InnerOnDrawText(&text));
            text.text[0] = '\0';
            EXPECT_EQ(0, r.InnerOnDrawText(&text));
        };
        // Under Wine a process's first frames with text come out without it: draw until it shows.
        int inside = 0, outside = 0;
        for (int attempt = 0; attempt < 40 && inside <= 40; ++attempt) {
            PresentWithOverlays(drawText);
            Sleep(100);
            inside = outside = 0;
            const std::vector<COLORREF> pixels = testkit::CaptureClient(m_window, W, H);
            for (int i = 0; i < W * H / 4; ++i) {  // every second pixel of every second row
                const int x = i % (W / 2) * 2, y = i / (W / 2) * 2;
                (x >= 20 && x < 150 && y >= 30 && y < 90 ? inside : outside) += !IsBlack(pixels[y * W + x]);
            }
        }
        EXPECT_GT(inside, 40);
        EXPECT_EQ(0, outside);
    }
    EXPECT_EQ(std::vector<std::string>{}, debug.Take());
}

TEST_F(Overlay, Utf8TextIsConvertedThroughTheAnsiCodePage) {
    if (GetACP() != 1252) GTEST_SKIP() << "ANSI code page " << GetACP();
    char ansi[16];
    memset(ansi, 0x55, sizeof(ansi));
    EXPECT_EQ(4, xop::Utf8ToAnsi("caf\xc3\xa9", 5, ansi, sizeof(ansi)));
    EXPECT_STREQ("caf\xe9", ansi);
    EXPECT_EQ(1, xop::Utf8ToAnsi("\xe4\xb8\xad", 3, ansi, sizeof(ansi)));  // not in the code page
    EXPECT_EQ('?', ansi[0]);
    EXPECT_EQ(-1, xop::Utf8ToAnsi(nullptr, 3, ansi, sizeof(ansi)));
    EXPECT_EQ(-1, xop::Utf8ToAnsi("x", 1, nullptr, 4));
    DebugCapture debug;
    EXPECT_EQ(-1, xop::Utf8ToAnsi("abc", 0, ansi, sizeof(ansi)));
    EXPECT_EQ(std::vector<std::string>{"[Utf8ToAnsi:1137] [code_convert] convert charset UTF-8 to ANSI failed! "
                                       "error(87),data() \n"},
              debug.Take());

    OverlayParam text = Polygon({{10, 10}, {150, 60}}, 0x00FFFFFFu, 20);
    strcpy(text.text, "caf\xc3\xa9");
    text.charset = 2;
    PresentWithOverlays([&] { EXPECT_EQ(0, r.InnerOnDrawText(&text)); });
    EXPECT_STREQ("caf\xe9", text.text);
}
