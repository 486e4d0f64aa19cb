// Conversion, sharpen, geometry and life cycle of the Direct3D 11 renderer,
// checked by the pixels that reach the window (or the output texture where
// the screen cannot tell, e.g. alpha).
#include <gtest/gtest.h>

#include <d3d10.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "testkit/testkit.h"
#include "xop_testutil.h"

using xoptest::Bgra;
using xoptest::DebugCapture;
using xoptest::ShowPicture;
using xoptest::ShowsColour;
using xoptest::SolidYuv;
using xoptest::TestRenderer;

namespace {

constexpr int W = 160, H = 120;

struct TestWindow {
    HWND hwnd;
    TestWindow(int x, int y, int w = W, int h = H) : hwnd(testkit::CreateTestWindow(x, y, w, h)) {}
    ~TestWindow() { DestroyWindow(hwnd); }
};

uint32_t OutputTexel(TestRenderer& r, int x, int y) {
    return xoptest::ReadTexel(r.GetDevice(), r.m_currentOutput->GetTexture(), x, y);
}

int Channel(uint32_t argb, int shift) { return static_cast<int>((argb >> shift) & 0xFF); }

}  // namespace

TEST(Conversion, PlanarBt601ColoursReachTheWindow) {
    TestWindow window(20, 20);
    TestRenderer r;
    ASSERT_TRUE(r.Init(window.hwnd));
    struct { int y, u, v, r, g, b; } cases[] = {
        {16, 128, 128, 0, 0, 0},       {235, 128, 128, 255, 255, 255}, {81, 90, 240, 255, 0, 0},
        {145, 54, 34, 0, 255, 1},      {41, 240, 110, 0, 0, 255},      {128, 80, 200, -1, -1, -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "yuv " << c.y << "," << c.u << "," << c.v);
        xoptest::Picture p = SolidYuv(xop::kFrameI420, W, H, c.y, c.u, c.v);
        ShowPicture(r, p.image);
        int rgb[3];
        xoptest::Bt601(c.y, c.u, c.v, rgb);
        if (c.r >= 0) {
            EXPECT_NEAR(c.r, rgb[0], 2);
            EXPECT_NEAR(c.g, rgb[1], 2);
            EXPECT_NEAR(c.b, rgb[2], 2);
        }
        EXPECT_TRUE(ShowsColour(window.hwnd, W / 2, H / 2, rgb[0], rgb[1], rgb[2], 3));
        EXPECT_TRUE(ShowsColour(window.hwnd, 0, 0, rgb[0], rgb[1], rgb[2], 3));
    }
}

TEST(Conversion, OddSizeUploadsTheLastChromaRowAndColumn) {
    TestWindow window(200, 20);
    TestRenderer r;
    ASSERT_TRUE(r.Init(window.hwnd));
    xoptest::Picture p = SolidYuv(xop::kFrameI420, 37, 23, 81, 90, 240);  // red
    ASSERT_EQ(19, static_cast<int>(p.planes[1].size()) / 12);
    ShowPicture(r, p.image);
    ASSERT_TRUE(r.Input(xop::InputBank::kU));
    D3D11_TEXTURE2D_DESC desc;
    r.Input(xop::InputBank::kU)->GetTexture()->GetDesc(&desc);
    EXPECT_EQ(19u, desc.Width);
    EXPECT_EQ(12u, desc.Height);
    EXPECT_TRUE(ShowsColour(window.hwnd, W - 1, H - 1, 255, 0, 0, 4));
    EXPECT_TRUE(ShowsColour(window.hwnd, W / 2, H / 2, 255, 0, 0, 4));
}

TEST(Conversion, LineSizesWiderThanTheRowPitchSkipThePadding) {
    TestWindow window(380, 20);
    TestRenderer r;
    ASSERT_TRUE(r.Init(window.hwnd));
    ASSERT_TRUE(r.InitInputTextures(W, H, xop::kFrameI420));
    D3D11_MAPPED_SUBRESOURCE mapped = {};
    ID3D11Texture2D* luma = r.Input(xop::InputBank::kY)->GetTexture();
    ASSERT_HRESULT_SUCCEEDED(r.m_context->Map(luma, 0, D3D11_MAP_WRITE_DISCARD, 0, &mapped));
    r.m_context->Unmap(luma, 0);
    // Black picture whose lines run 40 bytes past the texture's row pitch,
    // the excess being white luma.
    const int pad = static_cast<int>(mapped.RowPitch) - W + 40;
    xoptest::Picture p = SolidYuv(xop::kFrameI420, W, H, 16, 128, 128, pad, 235);
    ASSERT_GT(p.image.linesize[0], static_cast<int>(mapped.RowPitch));
    ShowPicture(r, p.image);
    for (POINT pt : {POINT{2, 2}, POINT{W / 2, H / 2}, POINT{W - 2, H - 2}, POINT{W - 2, 2}}) {
        EXPECT_TRUE(ShowsColour(window.hwnd, pt.x, pt.y, 0, 0, 0, 3)) << pt.x << "," << pt.y;
    }
}

TEST(Conversion, PlaneRowCopyTakesTheSmallerOfLineSizeAndPitch) {
    std::vector<uint8_t> src(4 * 10);
    for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(i);
    // Line size 10 over a pitch of 8: 8 bytes per row, source stepping by 10.
    std::vector<uint8_t> dst(8 * 4, 0xEE);
    xop::CopyPlaneRows(dst.data(), 8, src.data(), 10, 3);
    for (int row = 0; row < 3; ++row)
        for (int i = 0; i < 8; ++i) EXPECT_EQ(row * 10 + i, dst[row * 8 + i]);
    EXPECT_EQ(0xEE, dst[24]);  // a fourth row was not asked for
    // Line size 5 under a pitch of 8: 5 bytes per row, the row's rest kept.
    std::fill(dst.begin(), dst.end(), 0xEE);
    xop::CopyPlaneRows(dst.data(), 8, src.data(), 5, 2);
    for (int row = 0; row < 2; ++row) {
        for (int i = 0; i < 5; ++i) EXPECT_EQ(row * 5 + i, dst[row * 8 + i]);
        for (int i = 5; i < 8; ++i) EXPECT_EQ(0xEE, dst[row * 8 + i]);
    }
    // Nothing for null or non-positive line sizes.
    std::fill(dst.begin(), dst.end(), 0xEE);
    xop::CopyPlaneRows(dst.data(), 8, src.data(), -10, 3);
    xop::CopyPlaneRows(dst.data(), 8, nullptr, 10, 3);
    EXPECT_EQ(std::vector<uint8_t>(32, 0xEE), dst);
}

TEST(Conversion, Nv12RowsFollowTheLumaInOneMapping) {
    // 5 x 3 picture: three luma rows, then (3+1)/2 = 2 chroma rows of 6 bytes.
    std::vector<uint8_t> luma(5 * 3, 0x10), chroma(6 * 2, 0x80);
    chroma[6] = 0x81;  // first byte of the second chroma row
    xop::FrameImage f;
    f.width = 5;
    f.height = 3;
    f.linesize[0] = 5;
    f.linesize[1] = 6;
    f.data[0] = luma.data();
    f.data[1] = chroma.data();
    f.format = xop::kFrameNv12;
    const UINT pitch = 8;
    std::vector<uint8_t> mapped(pitch * 6, 0xEE);
    xop::CopyNv12Rows(mapped.data(), pitch, f);
    for (int row = 0; row < 3; ++row) {
        for (int i = 0; i < 5; ++i) EXPECT_EQ(0x10, mapped[row * pitch + i]);
        EXPECT_EQ(0xEE, mapped[row * pitch + 5]);
    }
    EXPECT_EQ(0x80, mapped[3 * pitch]);
    EXPECT_EQ(0x81, mapped[4 * pitch]);
    EXPECT_EQ(0x80, mapped[4 * pitch + 5]);
    EXPECT_EQ(0xEE, mapped[4 * pitch + 6]);
    EXPECT_EQ(0xEE, mapped[5 * pitch]);  // no third chroma row
}

TEST(Conversion, Nv12FailsCleanlyWhereTheTextureCannotBeMade) {
    TestWindow window(560, 20);
    TestRenderer r;
    ASSERT_TRUE(r.Init(window.hwnd));
    DebugCapture debug;
    EXPECT_TRUE(r.InitInputTextures(W, H, xop::kFrameNv12));
    ASSERT_TRUE(r.Input(xop::InputBank::kNv12));
    std::vector<uint8_t> luma(W * H, 235), chroma(W * H / 2, 128);
    xop::FrameImage f;
    f.width = W;
    f.height = H;
    f.linesize[0] = W;
    f.linesize[1] = W;
    f.data[0] = luma.data();
    f.data[1] = chroma.data();
    f.format = xop::kFrameNv12;
    if (r.Input(xop::InputBank::kNv12)->GetTexture()) {
        // A driver that can sample NV12: both plane views exist and it draws white.
        EXPECT_NE(nullptr, r.Input(xop::InputBank::kNv12)->GetLumaView());
        r.BeginFrame();
        r.UpdateFrame(f);
        EXPECT_EQ(r.Output(xop::OutputBank::kNv12Bt709), r.m_currentOutput);
        return;
    }
    const std::vector<std::string> messages = debug.Take();
    ASSERT_EQ(1u, messages.size());
    EXPECT_EQ(0u, messages[0].find("[xop::D3D11RenderTexture::InitTexture:101] ID3D11Device::CreateTexture2D() "
                                   "failed, "))
        << messages[0];
    EXPECT_EQ(nullptr, r.Input(xop::InputBank::kNv12)->GetLumaView());
    r.BeginFrame();
    r.UpdateFrame(f);
    EXPECT_EQ(nullptr, r.m_currentOutput);
    testkit::PumpMessages();
    r.PresentOutput(nullptr);
    r.PresentSwapChain();
    EXPECT_TRUE(ShowsColour(window.hwnd, W / 2, H / 2, 0, 0, 0, 2));
}

TEST(Conversion, Planar444AndBgraWithAlpha) {
    TestWindow window(740, 20);
    TestRenderer r;
    ASSERT_TRUE(r.Init(window.hwnd));
    xoptest::Picture yuv = SolidYuv(xop::kFrameYuv444, W, H, 145, 54, 34);  // green
    ShowPicture(r, yuv.image);
    EXPECT_TRUE(ShowsColour(window.hwnd, W / 2, H / 2, 0, 255, 1, 4));

    xoptest::Picture bgra = Bgra(W, H, [](int, int) { return 0x40112233u; });
    r.InitInputTextures(W, H, xop::kFrameBgra);
    r.BeginFrame();
    r.UpdateFrame(bgra.image);
    ASSERT_EQ(r.Output(xop::OutputBank::kBgra), r.m_currentOutput);
    EXPECT_EQ(0x40112233u, OutputTexel(r, W / 2, H / 2));
    testkit::PumpMessages();
    r.PresentOutput(nullptr);
    r.PresentSwapChain();
    EXPECT_TRUE(ShowsColour(window.hwnd, W / 2, H / 2, 0x11, 0x22, 0x33, 1));
}

TEST(Conversion, SharpenSteepensAnEdgeOnlyWhenSwitchedOn) {
    TestWindow window(920, 20);
    TestRenderer r;
    ASSERT_TRUE(r.Init(window.hwnd));
    xoptest::Picture edge = Bgra(W, H, [](int x, int) { return x < W / 2 ? 0xFF404040u : 0xFFC0C0C0u; });
    r.InitInputTextures(W, H, xop::kFrameBgra);
    for (float unsharp : {0.0f, -1.0f}) {
        r.SetSharpen(unsharp);
        r.BeginFrame();
        r.UpdateFrame(edge.image);
        r.ApplySharpen();
        ASSERT_EQ(r.Output(xop::OutputBank::kBgra), r.m_currentOutput);
        EXPECT_EQ(0x40, Channel(OutputTexel(r, W / 2 - 1, H / 2), 0));
    }
    r.SetSharpen(1.0f);
    r.BeginFrame();
    r.UpdateFrame(edge.image);
    r.ApplySharpen();
    ASSERT_EQ(r.Output(xop::OutputBank::kSharpen), r.m_currentOutput);
    // detail = 0.3125 x (this side - other side) next to the edge, nothing far from it.
    EXPECT_NEAR(24, Channel(OutputTexel(r, W / 2 - 1, H / 2), 8), 2);
    EXPECT_NEAR(232, Channel(OutputTexel(r, W / 2, H / 2), 8), 2);
    EXPECT_NEAR(0x40, Channel(OutputTexel(r, 10, H / 2), 16), 1);
    EXPECT_NEAR(0xC0, Channel(OutputTexel(r, W - 10, H / 2), 16), 1);
    testkit::PumpMessages();
    r.PresentOutput(nullptr);
    r.PresentSwapChain();
    EXPECT_TRUE(ShowsColour(window.hwnd, W / 2 - 1, H / 2, 24, 24, 24, 3));
    EXPECT_TRUE(ShowsColour(window.hwnd, W / 2, H / 2, 232, 232, 232, 3));
}

TEST(Conversion, ViewportAndSourceRectangle) {
    TestWindow window(20, 200);
    TestRenderer r;
    ASSERT_TRUE(r.Init(window.hwnd));
    xoptest::Picture quads = Bgra(W, H, [](int x, int y) {
        static const uint32_t c[4] = {0xFFFF0000u, 0xFF00FF00u, 0xFF0000FFu, 0xFFFFFFFFu};
        return c[(y < H / 2 ? 0 : 2) + (x < W / 2 ? 0 : 1)];
    });
    r.InitInputTextures(W, H, xop::kFrameBgra);
    r.UpdateFrame(quads.image);
    xop::D3D11RenderTexture* out = r.Output(xop::OutputBank::kBgra);
    auto draw = [&](const int viewport[4], const double source[4]) {
        out->Begin(viewport, source);
        out->SetShaderResource(0, r.Input(xop::InputBank::kBgra)->GetShaderResourceView());
        out->SetSampler(0, r.m_linearSampler);
        out->SetSampler(1, r.m_pointSampler);
        out->Draw();
        out->End();
        out->SetShaderResource(0, nullptr);
        r.m_currentOutput = out;
    };
    const int quarter[4] = {W / 2, H / 2, W, H};
    const double whole[4] = {0.0, 0.0, 1.0, 1.0};
    draw(quarter, whole);
    EXPECT_EQ(0xFF000000u, OutputTexel(r, 10, 10));           // cleared, outside the viewport
    EXPECT_EQ(0xFFFF0000u, OutputTexel(r, W / 2 + 5, H / 2 + 5));
    EXPECT_EQ(0xFFFFFFFFu, OutputTexel(r, W - 5, H - 5));

    const int none[4] = {0, 0, 0, 0};
    const double middle[4] = {0.25, 0.25, 0.75, 0.75};
    draw(none, middle);
    EXPECT_EQ(0xFFFF0000u, OutputTexel(r, 2, 2));  // the zoomed source fills the target
    EXPECT_EQ(0xFF00FF00u, OutputTexel(r, W - 3, 2));
    EXPECT_EQ(0xFF0000FFu, OutputTexel(r, 2, H - 3));
    EXPECT_EQ(0xFFFFFFFFu, OutputTexel(r, W - 3, H - 3));
    testkit::PumpMessages();
    r.PresentOutput(nullptr);
    r.PresentSwapChain();
    EXPECT_TRUE(ShowsColour(window.hwnd, W / 4 - 10, H / 4, 255, 0, 0, 2));
    EXPECT_TRUE(ShowsColour(window.hwnd, W - 3, H - 3, 255, 255, 255, 2));
}

TEST(Lifecycle, InitOnAWindowBuildsBothBanksAndReportsTheSize) {
    TestWindow window(200, 200);
    TestRenderer r;
    DebugCapture debug;
    ASSERT_TRUE(r.Init(window.hwnd));
    EXPECT_EQ(std::vector<std::string>{"[xop::D3D11Renderer::CreateRenderer:540] D3D11Renderer::CreateRenderer() "
                                       "width = 160 height = 120 \n \n"},
              debug.Take());
    uint32_t w = 0, h = 0;
    EXPECT_EQ(0, r.GetSwapChainSize(&w, &h));
    EXPECT_EQ(160u, w);
    EXPECT_EQ(120u, h);
    for (int i = 0; i < xop::kOutputBankSize; ++i) {
        ASSERT_TRUE(r.m_outputTextures[i]) << i;
        EXPECT_NE(nullptr, r.m_outputTextures[i]->GetRenderTargetView()) << i;
    }
    EXPECT_NE(nullptr, r.m_pointSampler);
    EXPECT_NE(nullptr, r.m_linearSampler);
    EXPECT_TRUE(r.m_d2dRenderTarget);
    // An unknown format makes no textures and converts nothing.
    EXPECT_TRUE(r.InitInputTextures(W, H, 9));
    xop::FrameImage unknown;
    unknown.width = W;
    unknown.height = H;
    unknown.format = 9;
    r.UpdateFrame(unknown);
    EXPECT_EQ(nullptr, r.m_currentOutput);
}

TEST(Lifecycle, DeviceOnlyHasNoSwapChain) {
    TestRenderer r;
    DebugCapture debug;
    ASSERT_TRUE(r.InitDeviceOnly());
    ASSERT_NE(nullptr, r.GetDevice());
    ID3D10Multithread* mt = nullptr;
    ASSERT_HRESULT_SUCCEEDED(r.GetDevice()->QueryInterface(IID_ID3D10Multithread, reinterpret_cast<void**>(&mt)));
    EXPECT_TRUE(mt->GetMultithreadProtected());
    mt->Release();
    uint32_t w = 7, h = 9;
    EXPECT_EQ(-1, r.GetSwapChainSize(&w, &h));
    EXPECT_EQ(7u, w);
    EXPECT_EQ(9u, h);
    EXPECT_EQ(std::vector<std::string>{"[xop::D3D11Renderer::GetSwapChainSize:1329]  D3D11Renderer::GetSwapChainSize "
                                       "failed, nullptr == swap_chain_ \n"},
              debug.Take());
    EXPECT_FALSE(r.Resize());
    EXPECT_TRUE(r.InitInputTextures(W, H, xop::kFrameI420));
    EXPECT_EQ(nullptr, r.Input(xop::InputBank::kY)->GetTexture());
    r.BeginFrame();
    testkit::PumpMessages();
    r.PresentOutput(nullptr);
    r.PresentSwapChain();
    OverlayParam line = {};
    EXPECT_EQ(-1, r.InnerOnDrawLine(&line));
}

TEST(Lifecycle, ResizeFollowsTheClientAreaAndKeepsAMinimisedWindow) {
    TestWindow window(380, 200);
    TestRenderer r;
    ASSERT_TRUE(r.Init(window.hwnd));
    xoptest::Picture red = SolidYuv(xop::kFrameI420, 64, 48, 81, 90, 240);
    ShowPicture(r, red.image);
    ASSERT_EQ(xop::kFrameI420, r.m_frameFormat);

    SetWindowPos(window.hwnd, nullptr, 0, 0, 200, 90, SWP_NOMOVE | SWP_NOZORDER);
    testkit::ClientPixel(window.hwnd, 0, 0);  // lets the window take its new size
    Sleep(200);
    RECT client;
    GetClientRect(window.hwnd, &client);
    EXPECT_TRUE(r.Resize());
    uint32_t w = 0, h = 0;
    ASSERT_EQ(0, r.GetSwapChainSize(&w, &h));
    EXPECT_EQ(static_cast<uint32_t>(client.right), w);
    EXPECT_EQ(static_cast<uint32_t>(client.bottom), h);
    EXPECT_EQ(0, r.m_frameFormat);  // the picture geometry is forgotten
    ShowPicture(r, red.image);
    EXPECT_TRUE(ShowsColour(window.hwnd, client.right - 2, client.bottom - 2, 255, 0, 0, 4))
        << std::hex << testkit::ClientPixel(window.hwnd, client.right - 2, client.bottom - 2) << " center "
        << testkit::ClientPixel(window.hwnd, 20, 20) << std::dec << " client " << client.right << "x" << client.bottom;

    ShowWindow(window.hwnd, SW_MINIMIZE);
    GetClientRect(window.hwnd, &client);
    ASSERT_EQ(0, client.right);
    ASSERT_EQ(0, client.bottom);
    IDXGISwapChain* before = r.m_swapChain;
    EXPECT_FALSE(r.Resize());
    EXPECT_EQ(before, r.m_swapChain);
    ASSERT_EQ(0, r.GetSwapChainSize(&w, &h));
    EXPECT_EQ(200u, w);
}

TEST(Lifecycle, SetWndMovesToAnotherWindowKeepingTheDevice) {
    TestWindow first(560, 200), second(740, 200, 120, 80);
    TestRenderer r;
    ASSERT_TRUE(r.Init(first.hwnd));
    ID3D11Device* device = r.GetDevice();
    ASSERT_TRUE(r.SetWnd(second.hwnd));
    EXPECT_EQ(device, r.GetDevice());
    uint32_t w = 0, h = 0;
    ASSERT_EQ(0, r.GetSwapChainSize(&w, &h));
    EXPECT_EQ(120u, w);
    EXPECT_EQ(80u, h);
    xoptest::Picture blue = SolidYuv(xop::kFrameI420, 120, 80, 41, 240, 110);
    ShowPicture(r, blue.image);
    EXPECT_TRUE(ShowsColour(second.hwnd, 60, 40, 0, 0, 255, 4));
}

TEST(Lifecycle, DestroyRepaintsUnlessThePictureIsKept) {
    TestWindow erased(920, 200), kept(20, 400);
    xoptest::Picture white = SolidYuv(xop::kFrameI420, W, H, 235, 128, 128);
    for (bool keep : {false, true}) {
        HWND hwnd = keep ? kept.hwnd : erased.hwnd;
        TestRenderer r;
        ASSERT_TRUE(r.Init(hwnd));
        ShowFrameData record = {};
        record.eraseOnRelease = keep ? 0 : 1;
        ShowPicture(r, white.image, &record);
        EXPECT_EQ(keep, r.m_keepWindowOnDestroy);
        ASSERT_TRUE(ShowsColour(hwnd, W / 2, H / 2, 255, 255, 255, 2));
        r.Destroy();
        EXPECT_EQ(nullptr, r.GetDevice());
        EXPECT_EQ(0, r.m_frameFormat);
        if (!keep) {
            EXPECT_TRUE(ShowsColour(hwnd, W / 2, H / 2, 0, 0, 0, 2));
        } else if (!testkit::OnNv12Stack()) {
            // Under DXVK (stack 2) the presented picture belongs to the
            // Vulkan surface and goes with the swap chain: a kept picture
            // cannot be observed there.
            Sleep(300);
            EXPECT_TRUE(testkit::Near(testkit::ClientPixel(hwnd, W / 2, H / 2), 255, 255, 255, 2));
        }
    }
}

TEST(Conversion, SecondPlanarVariantConvertsWithBt709) {
    TestWindow window(200, 400);
    TestRenderer r;
    ASSERT_TRUE(r.Init(window.hwnd));
    const int y = 100, u = 90, v = 200;
    xoptest::Picture p = SolidYuv(xop::kFrameI420, W, H, y, u, v);
    r.InitInputTextures(W, H, xop::kFrameI420);
    r.UpdateFrame(p.image);  // uploads the planes (and converts with BT.601 into output 2)
    const uint32_t bt601 = OutputTexel(r, 10, 10);
    xop::D3D11RenderTexture* out = r.Output(xop::OutputBank::kI420Bt709);
    const int whole[4] = {0, 0, 0, 0};
    const double full[4] = {0.0, 0.0, 1.0, 1.0};
    out->Begin(whole, full);
    for (int i = 0; i < 3; ++i) out->SetShaderResource(i, r.m_inputTextures[xop::Index(xop::InputBank::kY) + i]->GetShaderResourceView());
    out->SetSampler(0, r.m_linearSampler);
    out->Draw();
    out->End();
    r.m_currentOutput = out;
    const uint32_t bt709 = OutputTexel(r, 10, 10);
    const double yy = (y - 16) / 255.0, uu = (u - 128) / 255.0, vv = (v - 128) / 255.0;
    auto to8 = [](double c) { return static_cast<int>(std::lround(std::min(1.0, std::max(0.0, c)) * 255.0)); };
    EXPECT_NEAR(to8(1.1644 * yy + 1.7927 * vv), Channel(bt709, 16), 2);
    EXPECT_NEAR(to8(1.1644 * yy - 0.2132 * uu - 0.5329 * vv), Channel(bt709, 8), 2);
    EXPECT_NEAR(to8(1.1644 * yy + 2.1124 * uu), Channel(bt709, 0), 2);
    int rgb[3];
    xoptest::Bt601(y, u, v, rgb);
    EXPECT_NEAR(rgb[0], Channel(bt601, 16), 2);
    EXPECT_NEAR(rgb[1], Channel(bt601, 8), 2);
    EXPECT_NEAR(rgb[2], Channel(bt601, 0), 2);
    EXPECT_NE(Channel(bt601, 8), Channel(bt709, 8));
}

namespace {

// Forwards to a real swap chain but answers Present with a chosen result.
class PresentResult final : public IDXGISwapChain {
public:
    PresentResult(IDXGISwapChain* real, HRESULT result) : m_real(real), m_result(result) {}
    ~PresentResult() { m_real->Release(); }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** out) override { return m_real->QueryInterface(id, out); }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --m_refs;
        if (left == 0) delete this;
        return left;
    }
    HRESULT STDMETHODCALLTYPE SetPrivateData(REFGUID g, UINT n, const void* d) override {
        return m_real->SetPrivateData(g, n, d);
    }
    HRESULT STDMETHODCALLTYPE SetPrivateDataInterface(REFGUID g, const IUnknown* u) override {
        return m_real->SetPrivateDataInterface(g, u);
    }
    HRESULT STDMETHODCALLTYPE GetPrivateData(REFGUID g, UINT* n, void* d) override { return m_real->GetPrivateData(g, n, d); }
    HRESULT STDMETHODCALLTYPE GetParent(REFIID id, void** out) override { return m_real->GetParent(id, out); }
    HRESULT STDMETHODCALLTYPE GetDevice(REFIID id, void** out) override { return m_real->GetDevice(id, out); }
    HRESULT STDMETHODCALLTYPE Present(UINT, UINT) override {
        ++presents;
        return m_result;
    }
    HRESULT STDMETHODCALLTYPE GetBuffer(UINT i, REFIID id, void** out) override { return m_real->GetBuffer(i, id, out); }
    HRESULT STDMETHODCALLTYPE SetFullscreenState(BOOL f, IDXGIOutput* o) override { return m_real->SetFullscreenState(f, o); }
    HRESULT STDMETHODCALLTYPE GetFullscreenState(BOOL* f, IDXGIOutput** o) override {
        return m_real->GetFullscreenState(f, o);
    }
    HRESULT STDMETHODCALLTYPE GetDesc(DXGI_SWAP_CHAIN_DESC* d) override { return m_real->GetDesc(d); }
    HRESULT STDMETHODCALLTYPE ResizeBuffers(UINT c, UINT w, UINT h, DXGI_FORMAT f, UINT fl) override {
        return m_real->ResizeBuffers(c, w, h, f, fl);
    }
    HRESULT STDMETHODCALLTYPE ResizeTarget(const DXGI_MODE_DESC* d) override { return m_real->ResizeTarget(d); }
    HRESULT STDMETHODCALLTYPE GetContainingOutput(IDXGIOutput** o) override { return m_real->GetContainingOutput(o); }
    HRESULT STDMETHODCALLTYPE GetFrameStatistics(DXGI_FRAME_STATISTICS* s) override { return m_real->GetFrameStatistics(s); }
    HRESULT STDMETHODCALLTYPE GetLastPresentCount(UINT* c) override { return m_real->GetLastPresentCount(c); }

    static int presents;

private:
    IDXGISwapChain* m_real;
    HRESULT m_result;
    ULONG m_refs = 1;
};
int PresentResult::presents = 0;

// Counts the Init calls that reach the subclass through the virtual table.
class CountingRenderer : public TestRenderer {
public:
    bool Init(HWND window) override {
        ++inits;
        lastWindow = window;
        return TestRenderer::Init(window);
    }
    int inits = 0;
    HWND lastWindow = nullptr;
};

}  // namespace

TEST(Lifecycle, PresentRecoversOnlyFromDeviceRemoval) {
    TestWindow window(380, 400);
    const HRESULT results[] = {DXGI_ERROR_WAS_STILL_DRAWING, E_FAIL, DXGI_ERROR_DEVICE_HUNG, DXGI_ERROR_DEVICE_REMOVED};
    for (HRESULT result : results) {
        SCOPED_TRACE(testing::Message() << std::hex << result);
        CountingRenderer r;
        ASSERT_TRUE(r.Init(window.hwnd));
        r.inits = 0;
        ID3D11Device* device = r.GetDevice();
        device->AddRef();
        r.m_swapChain = new PresentResult(r.m_swapChain, result);
        PresentResult::presents = 0;
        r.PresentSwapChain();
        EXPECT_EQ(1, PresentResult::presents);
        if (result == DXGI_ERROR_DEVICE_REMOVED) {
            EXPECT_EQ(1, r.inits);
            EXPECT_EQ(window.hwnd, r.lastWindow);
            EXPECT_NE(nullptr, r.GetDevice());
            EXPECT_NE(device, r.GetDevice());  // a new device after Destroy
            uint32_t w = 0, h = 0;
            EXPECT_EQ(0, r.GetSwapChainSize(&w, &h));
            xoptest::Picture red = SolidYuv(xop::kFrameI420, W, H, 81, 90, 240);
            ShowPicture(r, red.image);
            EXPECT_TRUE(ShowsColour(window.hwnd, W / 2, H / 2, 255, 0, 0, 4));
        } else {
            EXPECT_EQ(0, r.inits);
            EXPECT_EQ(device, r.GetDevice());
        }
        device->Release();
    }
}

TEST(Lifecycle, CreationFailuresAreReportedWithTheirLines) {
    TestWindow window(560, 400);
    TestRenderer r;
    ASSERT_TRUE(r.Init(window.hwnd));
    DebugCapture debug;
    EXPECT_FALSE(r.SetWnd(nullptr));  // no client rectangle: no swap chain
    EXPECT_EQ(std::vector<std::string>{"[xop::D3D11Renderer::SetWnd:66] CreateSwapChain() failed\n \n"}, debug.Take());
    EXPECT_EQ(nullptr, r.m_swapChain);
    EXPECT_FALSE(r.Resize());
    ASSERT_TRUE(r.SetWnd(window.hwnd));
    debug.Take();
    // A zero-sized picture: every plane texture fails to be made, one message each.
    EXPECT_TRUE(r.InitInputTextures(0, 0, xop::kFrameI420));
    const std::vector<std::string> messages = debug.Take();
    ASSERT_EQ(3u, messages.size());
    for (const std::string& m : messages) {
        EXPECT_EQ(0u, m.find("[xop::D3D11RenderTexture::InitTexture:101] ID3D11Device::CreateTexture2D() failed, ")) << m;
    }
    xoptest::Picture empty = SolidYuv(xop::kFrameI420, 0, 0, 16, 128, 128);
    r.UpdateFrame(empty.image);
    EXPECT_EQ(nullptr, r.m_currentOutput);
}
