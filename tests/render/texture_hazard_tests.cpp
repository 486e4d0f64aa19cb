// The decoder-texture path in-process: the copy boxes asked of Direct3D,
// device loss, the read-back's staging texture across device recovery, the
// kind of NV12 input texture each path writes, both NV12 shaders and the
// sharpen pass on a decoder picture.
#include <d3d11.h>

#include "render/CLS_D3D11vaRenderer.h"
#include "testkit/nv12.h"
#include "tests/render/render_fixture.h"

using testkit::DecoderPool;
using testkit::Nv12Picture;

namespace {

// The renderer on a window of its own, with its texture members in view and
// the NV12 steps a test drives by hand.
class Probe : public CLS_D3D11vaRenderer {
public:
    explicit Probe(int x) : window(testkit::CreateTestWindow(x, 20, 64, 64)) { testkit::PumpMessages(); }
    ~Probe() override
    {
        Destroy();
        DestroyWindow(window);
    }
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
    HWND window;
};

}  // namespace

TEST(TextureBoxes, CopiesNeverReachOutsideTheirSource)
{
    using Box = std::vector<UINT>;
    auto fit = [](RECT want, UINT w, UINT h) {
        D3D11_BOX b = {9, 9, 9, 9, 9, 9};
        return FitBox(want, w, h, &b) ? Box{b.left, b.top, b.front, b.right, b.bottom, b.back} : Box{};
    };
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

    for (HRESULT lost : {DXGI_ERROR_DEVICE_REMOVED, DXGI_ERROR_DEVICE_RESET}) EXPECT_TRUE(xop::IsDeviceLost(lost));
    for (HRESULT other : {DXGI_ERROR_WAS_STILL_DRAWING, E_FAIL, S_OK}) EXPECT_FALSE(xop::IsDeviceLost(other));
}

TEST(TextureRecovery, ReadBackStagingIsMadeAgainOnTheNewDevice)
{
    Probe r(20);
    xop::Renderer& base = r;  // recovery goes through the virtual table
    ASSERT_TRUE(base.Init(r.window));
    DecoderPool old(r.GetDevice(), 64, 48);
    void* data = nullptr;
    uint32_t pitch = 0;
    ASSERT_EQ(r.Texture2DToNV12(old.Texture(), 1, 64, 48, &data, &pitch), 0);
    ASSERT_NE(r.Staging(), nullptr);

    base.Destroy();
    EXPECT_EQ(r.Staging(), nullptr);
    ASSERT_TRUE(base.Init(r.window));
    DecoderPool fresh(r.GetDevice(), 64, 48);
    EXPECT_EQ(r.Texture2DToNV12(fresh.Texture(), 2, 64, 48, &data, &pitch), 0);
    ASSERT_NE(r.Staging(), nullptr);
    Microsoft::WRL::ComPtr<ID3D11Device> owner;
    r.Staging()->GetDevice(&owner);
    EXPECT_EQ(owner.Get(), r.GetDevice());
    // The old device's array is now someone else's.
    EXPECT_EQ(r.Texture2DToNV12(old.Texture(), 1, 64, 48, &data, &pitch), -1);
}

TEST(TextureInput, CopyTargetIsDefaultUploadTargetDynamicAndBothNv12ShadersConvert)
{
    Probe r(100);
    ASSERT_TRUE(r.Init(r.window));
    QUILLON_REQUIRE_NV12_SAMPLING(r.GetDevice());
    const Yuv c = {120, 70, 190};  // far apart in BT.709 and BT.601
    DecoderPool pool(r.GetDevice(), 64, 64);
    ASSERT_TRUE(pool.Write(1, Nv12Picture(64, 64, c)));
    ShowFrameData f = Slice(pool.Texture(), 1, 64, 64);
    ASSERT_EQ(r.ShowDecodedFrame(&f), 0);
    D3D11_TEXTURE2D_DESC d = r.InputDesc();
    EXPECT_EQ(d.Usage, D3D11_USAGE_DEFAULT);  // a copy destination: never DYNAMIC
    EXPECT_EQ(d.BindFlags, UINT(D3D11_BIND_SHADER_RESOURCE));
    EXPECT_EQ(d.CPUAccessFlags, 0u);
    EXPECT_EQ(ScreenFault(r.window, 32, 32, testkit::Bt709ToRgb(c), 3, [&] { r.ShowDecodedFrame(&f); }), "");

    const Yuv c2 = {150, 200, 60};
    Nv12Picture cpu(64, 64, c2);
    r.ShowCpuNv12(cpu);
    d = r.InputDesc();
    EXPECT_EQ(d.Usage, D3D11_USAGE_DYNAMIC);  // mapped with WRITE_DISCARD
    EXPECT_EQ(d.CPUAccessFlags, UINT(D3D11_CPU_ACCESS_WRITE));
    EXPECT_EQ(ScreenFault(r.window, 32, 32, testkit::Bt709ToRgb(c2), 3, [&] { r.ShowCpuNv12(cpu); }), "");
    EXPECT_EQ(ScreenFault(r.window, 32, 32, testkit::Bt601ToRgb(c2), 3, [&] { r.ShowInputBt601(); }), "");
}

TEST(TextureSharpen, StepEdgeGetsSteeperAndZeroLeavesIt)
{
    Probe r(180);
    ASSERT_TRUE(r.Init(r.window));
    QUILLON_REQUIRE_NV12_SAMPLING(r.GetDevice());
    DecoderPool pool(r.GetDevice(), 64, 64);
    Nv12Picture step(64, 64, {60, 128, 128});
    step.Fill(32, 0, 32, 64, {180, 128, 128});
    ASSERT_TRUE(pool.Write(4, step));
    ShowFrameData f = Slice(pool.Texture(), 4, 64, 64);
    const int dark = testkit::Bt709ToRgb({60, 128, 128}).g, light = testkit::Bt709ToRgb({180, 128, 128}).g;
    // Green of row 32 once the pixel left of the edge passes `ready`.
    auto row = [&](float sharpen, const std::function<bool(int)>& ready) {
        r.SetSharpen(sharpen);
        EXPECT_EQ(r.ShowDecodedFrame(&f), 0);
        testkit::WaitForClientPixel(r.window, 31, 32, [&](COLORREF p) { return ready(GetGValue(p)); });
        const std::vector<COLORREF> all = testkit::CaptureClient(r.window, 64, 64);
        std::vector<int> g;
        for (int x = 0; x < 64; ++x) g.push_back(GetGValue(all[32 * 64 + x]));
        return g;
    };
    const std::vector<int> plain = row(0.0f, [&](int g) { return std::abs(g - dark) <= 2; });
    for (int x = 0; x < 64; ++x) EXPECT_NEAR(plain[x], x < 32 ? dark : light, 2) << "x " << x;

    const std::vector<int> sharp = row(1.0f, [&](int g) { return g < dark - 8; });
    EXPECT_LT(sharp[31], dark - 8);   // undershoot before the edge
    EXPECT_GT(sharp[32], light + 8);  // overshoot after it
    EXPECT_NEAR(sharp[8], dark, 2);   // flat parts keep their level
    EXPECT_NEAR(sharp[56], light, 2);
}
