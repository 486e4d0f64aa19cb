// Upload and conversion (xop/D3D11Banks.cpp, xop/D3D11Passes.cpp): every picture format and output entry,
// sharpen, viewport and source rectangle, by the output texels and the window's pixels; the upload helpers.
#include <gtest/gtest.h>

#include "xop_testutil.h"

using namespace xoptest;
using testkit::Bt601ToRgb, testkit::Bt709ToRgb;
using xop::InputBank, xop::OutputBank;

namespace {

// Counts the calls a ScopedMap makes; Map answers `result`.
struct FakeContext {
    HRESULT result;
    int maps = 0, unmaps = 0;
    HRESULT Map(ID3D11Resource*, UINT, D3D11_MAP, UINT, D3D11_MAPPED_SUBRESOURCE*) { return ++maps, result; }
    void Unmap(ID3D11Resource*, UINT) { ++unmaps; }
};

bool TexelNear(uint32_t argb, Rgb c, int tolerance) {
    const COLORREF rgb = RGB(Channel(argb, 16), Channel(argb, 8), Channel(argb, 0));
    return Channel(argb, 24) == 0xFF && testkit::Near(rgb, c.r, c.g, c.b, tolerance);
}

}  // namespace

TEST(Upload, ScopedMapUnmapsAlsoAfterAFailedMap) {
    for (HRESULT result : {S_OK, E_INVALIDARG}) {
        FakeContext context{result};
        {
            xop::BasicScopedMap<FakeContext> map(&context, nullptr, D3D11_MAP_WRITE_DISCARD);
            EXPECT_EQ(SUCCEEDED(result), map.Mapped());
            EXPECT_EQ(0, context.unmaps);
        }
        EXPECT_EQ(1, context.maps);
        EXPECT_EQ(1, context.unmaps);
    }
}

TEST(Upload, PlaneRowsTakeTheSmallerOfLineSizeAndPitch) {
    std::vector<uint8_t> src(40);
    for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(i);
    // Into a pitch of 8: line size, rows, bytes copied per row, source.
    const struct { int linesize, rows, bytes; const uint8_t* src; } cases[] = {
        {10, 3, 8, src.data()}, {5, 2, 5, src.data()}, {-10, 3, 0, src.data()}, {10, 3, 0, nullptr}};
    for (const auto& c : cases) {
        std::vector<uint8_t> dst(32, 0xEE);
        xop::CopyPlaneRows(dst.data(), 8, c.src, c.linesize, c.rows);
        for (int i = 0; i < 32; ++i) {
            const int row = i / 8, col = i % 8;
            EXPECT_EQ(row < c.rows && col < c.bytes ? row * c.linesize + col : 0xEE, dst[i]) << c.linesize << ":" << i;
        }
    }
}

TEST(Upload, Nv12RowsFollowTheLumaInOneMapping) {
    // 5 x 3 picture: three luma rows, then (3+1)/2 = 2 chroma rows of 6 bytes.
    std::vector<uint8_t> luma(5 * 3, 0x10), chroma(6 * 2, 0x80), mapped(8 * 6, 0xEE), want(8 * 6, 0xEE);
    chroma[6] = 0x81;  // first byte of the second chroma row
    xop::CopyNv12Rows(mapped.data(), 8, {5, 3, {5, 6, 0}, {luma.data(), chroma.data(), nullptr}, xop::kFrameNv12});
    for (int row = 0; row < 5; ++row) std::fill_n(&want[row * 8], row < 3 ? 5 : 6, row < 3 ? 0x10 : 0x80);
    want[4 * 8] = 0x81;
    EXPECT_EQ(want, mapped);
}

TEST_F(RendererTest, EveryFormatReachesTheWindowInItsColours) {
    // White, red and blue pin the test's own conversion; each coefficient shows in one of the colours.
    const struct { const char* name; Picture picture; OutputBank bank; Rgb rgb; int tolerance; } cases[] = {
        {"white", SolidYuv(xop::kFrameI420, W, H, {235, 128, 128}), OutputBank::kI420Bt601, {255, 255, 255}, 3},
        {"red", SolidYuv(xop::kFrameI420, W, H, kRed), OutputBank::kI420Bt601, {255, 0, 0}, 3},
        {"odd size", SolidYuv(xop::kFrameI420, 37, 23, kRed), OutputBank::kI420Bt601, Bt601ToRgb(kRed), 4},
        // Black lines running 1 KB past any row pitch, the excess white luma.
        {"long lines", SolidYuv(xop::kFrameI420, W, H, kBlack, 1024, 235), OutputBank::kI420Bt601, {0, 0, 0}, 3},
        {"4:4:4", SolidYuv(xop::kFrameYuv444, W, H, kBlue), OutputBank::kI420Bt601, {0, 0, 255}, 3},
        {"BGRA", Bgra(W, H, [](int, int) { return 0x40112233u; }), OutputBank::kBgra, {0x11, 0x22, 0x33}, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const xop::FrameImage& image = c.picture.image;
        ShowPicture(r, image);
        const uint32_t texel = Texel(W / 2, H / 2, r.Output(c.bank)->GetTexture());
        if (image.format == xop::kFrameBgra) {
            EXPECT_EQ(0x40112233u, texel);  // alpha included
        } else {
            EXPECT_TRUE(TexelNear(texel, c.rgb, c.tolerance)) << std::hex << texel;
            D3D11_TEXTURE2D_DESC chroma;
            r.Input(InputBank::kU)->GetTexture()->GetDesc(&chroma);
            const bool half = image.format == xop::kFrameI420;
            EXPECT_EQ(static_cast<UINT>(half ? (image.width + 1) / 2 : image.width), chroma.Width);
            EXPECT_EQ(static_cast<UINT>(half ? (image.height + 1) / 2 : image.height), chroma.Height);
        }
        for (POINT p : {POINT{1, 1}, POINT{W - 1, H - 1}}) EXPECT_TRUE(Shows(p.x, p.y, c.rgb, c.tolerance)) << p.x;
    }
}

TEST_F(RendererTest, EachYuvOutputConvertsWithItsStandard) {
    const Yuv c = {100, 90, 200};
    const int whole[4] = {0, 0, 0, 0};
    auto expect = [&](OutputBank bank, Rgb rgb) {
        EXPECT_EQ(r.Output(bank), r.m_currentOutput);
        EXPECT_TRUE(TexelNear(Texel(10, 10), rgb, 2)) << xop::Index(bank);
    };
    Picture planar = SolidYuv(xop::kFrameI420, W, H, c);
    r.InitInputTextures(W, H, xop::kFrameI420);
    r.UpdateFrame(planar.image);
    expect(OutputBank::kI420Bt601, Bt601ToRgb(c));
    ID3D11ShaderResourceView* const planes[3] = {r.Input(InputBank::kY)->GetShaderResourceView(),
        r.Input(InputBank::kU)->GetShaderResourceView(), r.Input(InputBank::kV)->GetShaderResourceView()};
    r.DrawPass(r.Output(OutputBank::kI420Bt709), whole, planes, 3);
    expect(OutputBank::kI420Bt709, Bt709ToRgb(c));

    // NV12 needs a device that samples it (stack 2); elsewhere the texture is refused and nothing is drawn.
    testkit::Nv12Picture nv12(W, H, c);
    EXPECT_TRUE(r.InitInputTextures(W, H, xop::kFrameNv12));
    const xop::D3D11RenderTexture* input = r.Input(InputBank::kNv12);
    Present(r);  // ends the planar frame
    r.BeginFrame();
    r.UpdateFrame({W, H, {W, W, 0}, {nv12.y.data(), nv12.uv.data(), nullptr}, xop::kFrameNv12});
    if (!input->GetTexture()) {
        EXPECT_EQ(nullptr, r.m_currentOutput);
        Present(r);
        EXPECT_TRUE(Shows(W / 2, H / 2, {0, 0, 0}, 2));
        return;
    }
    expect(OutputBank::kNv12Bt709, Bt709ToRgb(c));
    ID3D11ShaderResourceView* const views[2] = {input->GetLumaView(), input->GetChromaView()};
    r.DrawPass(r.Output(OutputBank::kNv12Bt601), whole, views, 2);
    expect(OutputBank::kNv12Bt601, Bt601ToRgb(c));
}

TEST_F(RendererTest, SharpenSteepensAnEdgeWithPointSamplesOnlyWhenSwitchedOn) {
    // An edge at W / 2; left of it a ring around (40, 60), bright at distance 2 but for the four axis
    // points, that only linear samples of the diagonal neighbours would reach.
    Picture picture = Bgra(W, H, [](int x, int y) {
        const int dx = std::abs(x - 40), dy = std::abs(y - 60);
        return x >= W / 2 || (std::max(dx, dy) == 2 && dx && dy) ? 0xFFC0C0C0u : 0xFF404040u;
    });
    r.InitInputTextures(W, H, xop::kFrameBgra);
    for (float unsharp : {0.0f, -1.0f, 1.0f}) {
        SCOPED_TRACE(unsharp);
        r.SetSharpen(unsharp);
        r.BeginFrame();
        r.UpdateFrame(picture.image);
        r.ApplySharpen();
        ASSERT_EQ(r.Output(unsharp > 0 ? OutputBank::kSharpen : OutputBank::kBgra), r.m_currentOutput);
        // detail = 0.3125 x (this side - other side) next to the edge, nothing far from it.
        EXPECT_NEAR(unsharp > 0 ? 24 : 0x40, Channel(Texel(W / 2 - 1, H / 2), 8), 2);
        EXPECT_NEAR(unsharp > 0 ? 232 : 0xC0, Channel(Texel(W / 2, H / 2), 8), 2);
        EXPECT_NEAR(0x40, Channel(Texel(10, H / 2), 16), 1);
        EXPECT_NEAR(0xC0, Channel(Texel(W - 10, H / 2), 16), 1);
        EXPECT_NEAR(0x40, Channel(Texel(40, 60), 0), 2);
    }
}

TEST_F(RendererTest, ViewportAndSourceRectangle) {
    Picture quads = Bgra(W, H, [](int x, int y) {
        static const uint32_t c[4] = {0xFFFF0000u, 0xFF00FF00u, 0xFF0000FFu, 0xFFFFFFFFu};
        return c[(y < H / 2 ? 0 : 2) + (x < W / 2 ? 0 : 1)];
    });
    r.InitInputTextures(W, H, xop::kFrameBgra);
    r.UpdateFrame(quads.image);
    // The middle of the picture into the lower right quarter: each of its quadrants in place.
    const int quarter[4] = {W / 2, H / 2, W, H};
    const double middle[4] = {0.25, 0.25, 0.75, 0.75};
    xop::D3D11RenderTexture* out = r.Output(OutputBank::kBgra);
    out->Begin(quarter, middle);
    out->SetShaderResource(0, r.Input(InputBank::kBgra)->GetShaderResourceView());
    out->SetSampler(0, r.m_linearSampler);
    out->Draw();
    out->End();
    EXPECT_EQ(0xFF000000u, Texel(W - 3, H / 2 - 3));  // cleared, outside the viewport
    EXPECT_EQ(0xFFFF0000u, Texel(W / 2 + 2, H / 2 + 2));
    EXPECT_EQ(0xFF00FF00u, Texel(W - 3, H / 2 + 2));
    EXPECT_EQ(0xFF0000FFu, Texel(W / 2 + 2, H - 3));
}
