// The decoder-texture path in-process: the copy boxes asked of Direct3D,
// device loss, the read-back's staging texture across device recovery, the
// kind of NV12 input texture each path writes, both NV12 shaders and the
// sharpen pass on a decoder picture.
#include <gtest/gtest.h>

#include <d3d11.h>

#include <functional>

#include "render/CLS_D3D11vaRenderer.h"
#include "testkit/nv12.h"
#include "testkit/testkit.h"

using testkit::DecoderPool;
using testkit::Nv12Picture;
using testkit::Rgb;
using testkit::Yuv;

namespace {

// The renderer with its texture members in view and the NV12 steps a test
// drives by hand.
class Probe : public CLS_D3D11vaRenderer {
public:
    ID3D11Texture2D* Staging() const { return stagingTexture; }
    D3D11_TEXTURE2D_DESC InputDesc() const
    {
        D3D11_TEXTURE2D_DESC d = {};
        const xop::D3D11RenderTexture* input = Input(xop::InputBank::kNv12);
        if (input && input->GetTexture()) input->GetTexture()->GetDesc(&d);
        return d;
    }
    // A CPU NV12 picture through the upload and the first NV12 shader.
    void ShowCpuNv12(Nv12Picture& p)
    {
        xop::FrameImage image;
        image.width = p.width;
        image.height = p.height;
        image.linesize[0] = image.linesize[1] = p.width;
        image.data[0] = p.y.data();
        image.data[1] = p.uv.data();
        image.format = xop::kFrameNv12;
        EnsureInputTextures(p.width, p.height, xop::kFrameNv12);
        BeginFrame();
        UpdateFrame(image);
        PresentOutput(nullptr);
        PresentSwapChain();
    }
    // The NV12 input as it stands, through the second NV12 shader.
    void ShowInputBt601()
    {
        const xop::D3D11RenderTexture* input = Input(xop::InputBank::kNv12);
        ID3D11ShaderResourceView* const views[2] = {input->GetLumaView(), input->GetChromaView()};
        const int whole[4] = {0, 0, 0, 0};
        BeginFrame();
        DrawPass(Output(xop::OutputBank::kNv12Bt601), whole, views, 2);
        PresentOutput(nullptr);
        PresentSwapChain();
    }
};

ShowFrameData Slice(const DecoderPool& pool, UINT slice, int w, int h)
{
    ShowFrameData f = {};
    f.texture = pool.Texture();
    f.arraySlice = slice;
    f.width = w;
    f.height = h;
    return f;
}

bool Near(COLORREF c, Rgb want, int tolerance) { return testkit::Near(c, want.r, want.g, want.b, tolerance); }

// Calls `show` until the client pixel (x, y) is `want`: a swap chain made
// anew may drop its first pictures.
void ExpectPixel(HWND wnd, int x, int y, Rgb want, const std::function<void()>& show)
{
    COLORREF c = 0;
    for (int i = 0; i < 20 && !Near(c, want, 3); ++i) {
        show();
        c = testkit::WaitForClientPixel(wnd, x, y, [&](COLORREF p) { return Near(p, want, 3); }, 150);
    }
    EXPECT_TRUE(Near(c, want, 3)) << "pixel (" << x << "," << y << ") = rgb " << int(GetRValue(c)) << ","
                                  << int(GetGValue(c)) << "," << int(GetBValue(c)) << ", want " << want.r << ","
                                  << want.g << "," << want.b;
}

class Window {
public:
    Window(int x, int y, int w, int h) : hwnd(testkit::CreateTestWindow(x, y, w, h)) { testkit::PumpMessages(); }
    ~Window() { DestroyWindow(hwnd); }
    HWND hwnd;
};

}  // namespace

TEST(TextureBoxes, CopiesNeverReachOutsideTheirSource)
{
    auto fit = [](RECT want, UINT w, UINT h) {
        D3D11_BOX b = {9, 9, 9, 9, 9, 9};
        return FitBox(want, w, h, &b) ? std::vector<UINT>{b.left, b.top, b.front, b.right, b.bottom, b.back}
                                      : std::vector<UINT>{};
    };
    using Box = std::vector<UINT>;
    // Zoom crops on a 1920 x 1088 pool.
    EXPECT_EQ(fit({480, 270, 1440, 810}, 1920, 1088), (Box{480, 270, 0, 1440, 810, 1}));
    EXPECT_EQ(fit({0, 0, 1920, 1080}, 1920, 1088), (Box{0, 0, 0, 1920, 1080, 1}));
    EXPECT_EQ(fit({-2, -4, 3840, 2176}, 1920, 1088), (Box{0, 0, 0, 1920, 1088, 1}));
    EXPECT_EQ(fit({32, 32, 32, 64}, 64, 64), Box{});    // empty
    EXPECT_EQ(fit({40, 0, 20, 10}, 64, 64), Box{});     // inverted
    EXPECT_EQ(fit({96, 0, 128, 64}, 64, 64), Box{});    // wholly outside
    EXPECT_EQ(fit({-64, -64, -2, -2}, 64, 64), Box{});  // wholly outside, negative
    // Read-back: 16-aligned staging against 32-aligned pools, and a staging
    // texture larger than a later source.
    EXPECT_EQ(fit({0, 0, 1280, 720}, 1280, 736), (Box{0, 0, 0, 1280, 720, 1}));
    EXPECT_EQ(fit({0, 0, 3840, 2160}, 3840, 2176), (Box{0, 0, 0, 3840, 2160, 1}));
    EXPECT_EQ(fit({0, 0, 1920, 1088}, 64, 48), (Box{0, 0, 0, 64, 48, 1}));

    EXPECT_TRUE(xop::IsDeviceLost(DXGI_ERROR_DEVICE_REMOVED));
    EXPECT_TRUE(xop::IsDeviceLost(DXGI_ERROR_DEVICE_RESET));
    EXPECT_FALSE(xop::IsDeviceLost(DXGI_ERROR_WAS_STILL_DRAWING));
    EXPECT_FALSE(xop::IsDeviceLost(E_FAIL));
    EXPECT_FALSE(xop::IsDeviceLost(S_OK));
}

TEST(TextureRecovery, ReadBackStagingIsMadeAgainOnTheNewDevice)
{
    Window window(20, 20, 64, 64);
    Probe r;
    xop::Renderer& base = r;  // recovery goes through the virtual table
    ASSERT_TRUE(base.Init(window.hwnd));
    DecoderPool old(r.GetDevice(), 64, 48);
    void* data = nullptr;
    uint32_t pitch = 0;
    ASSERT_EQ(r.Texture2DToNV12(old.Texture(), 1, 64, 48, &data, &pitch), 0);
    ASSERT_NE(r.Staging(), nullptr);

    base.Destroy();
    EXPECT_EQ(r.Staging(), nullptr);
    ASSERT_TRUE(base.Init(window.hwnd));
    DecoderPool fresh(r.GetDevice(), 64, 48);
    EXPECT_EQ(r.Texture2DToNV12(fresh.Texture(), 2, 64, 48, &data, &pitch), 0);
    ASSERT_NE(r.Staging(), nullptr);
    ID3D11Device* owner = nullptr;
    r.Staging()->GetDevice(&owner);
    EXPECT_EQ(owner, r.GetDevice());
    if (owner) owner->Release();
    // The old device's array is now someone else's.
    EXPECT_EQ(r.Texture2DToNV12(old.Texture(), 1, 64, 48, &data, &pitch), -1);
}

TEST(TextureInput, CopyTargetIsDefaultUploadTargetDynamicAndBothNv12ShadersConvert)
{
    Window window(100, 20, 64, 64);
    Probe r;
    ASSERT_TRUE(r.Init(window.hwnd));
    QUILLON_REQUIRE_NV12_SAMPLING(r.GetDevice());
    const Yuv c = {120, 70, 190};  // far apart in BT.709 and BT.601
    DecoderPool pool(r.GetDevice(), 64, 64);
    ASSERT_TRUE(pool.Write(1, Nv12Picture(64, 64, c)));
    ShowFrameData f = Slice(pool, 1, 64, 64);
    ASSERT_EQ(r.ShowDecodedFrame(&f), 0);
    D3D11_TEXTURE2D_DESC d = r.InputDesc();
    EXPECT_EQ(d.Usage, D3D11_USAGE_DEFAULT);  // a copy destination: never DYNAMIC
    EXPECT_EQ(d.BindFlags, UINT(D3D11_BIND_SHADER_RESOURCE));
    EXPECT_EQ(d.CPUAccessFlags, 0u);
    ExpectPixel(window.hwnd, 32, 32, testkit::Bt709ToRgb(c), [&] { r.ShowDecodedFrame(&f); });

    const Yuv c2 = {150, 200, 60};
    Nv12Picture cpu(64, 64, c2);
    r.ShowCpuNv12(cpu);
    d = r.InputDesc();
    EXPECT_EQ(d.Usage, D3D11_USAGE_DYNAMIC);  // mapped with WRITE_DISCARD
    EXPECT_EQ(d.CPUAccessFlags, UINT(D3D11_CPU_ACCESS_WRITE));
    ExpectPixel(window.hwnd, 32, 32, testkit::Bt709ToRgb(c2), [&] { r.ShowCpuNv12(cpu); });
    ExpectPixel(window.hwnd, 32, 32, testkit::Bt601ToRgb(c2), [&] { r.ShowInputBt601(); });
}

TEST(TextureSharpen, StepEdgeGetsSteeperAndZeroLeavesIt)
{
    Window window(180, 20, 64, 64);
    Probe r;
    ASSERT_TRUE(r.Init(window.hwnd));
    QUILLON_REQUIRE_NV12_SAMPLING(r.GetDevice());
    DecoderPool pool(r.GetDevice(), 64, 64);
    Nv12Picture step(64, 64, {60, 128, 128});
    step.Fill(32, 0, 32, 64, {180, 128, 128});
    ASSERT_TRUE(pool.Write(4, step));
    ShowFrameData f = Slice(pool, 4, 64, 64);
    const int dark = testkit::Bt709ToRgb({60, 128, 128}).g, light = testkit::Bt709ToRgb({180, 128, 128}).g;

    auto row = [&](std::function<bool(COLORREF)> ready) {
        testkit::WaitForClientPixel(window.hwnd, 31, 32, ready);
        const std::vector<COLORREF> all = testkit::CaptureClient(window.hwnd, 64, 64);
        std::vector<int> g;
        for (int x = 0; x < 64; ++x) g.push_back(GetGValue(all[32 * 64 + x]));
        return g;
    };
    r.SetSharpen(0.0f);
    ASSERT_EQ(r.ShowDecodedFrame(&f), 0);
    std::vector<int> plain = row([&](COLORREF p) { return std::abs(GetGValue(p) - dark) <= 2; });
    for (int x = 0; x < 64; ++x) EXPECT_NEAR(plain[x], x < 32 ? dark : light, 2) << "x " << x;

    r.SetSharpen(1.0f);
    ASSERT_EQ(r.ShowDecodedFrame(&f), 0);
    std::vector<int> sharp = row([&](COLORREF p) { return GetGValue(p) < dark - 8; });
    EXPECT_LT(sharp[31], dark - 8);   // undershoot before the edge
    EXPECT_GT(sharp[32], light + 8);  // overshoot after it
    EXPECT_NEAR(sharp[8], dark, 2);   // flat parts keep their level
    EXPECT_NEAR(sharp[56], light, 2);
}
