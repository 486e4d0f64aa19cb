// The decoder-texture path: known NV12 pictures in a decoder-shaped texture array shown and
// read back through the exports, refused sources; in-process the copy boxes and textures.
#include <memory>

#include "render/CLS_D3D11vaRenderer.h"
#include "testkit/nv12.h"
#include "tests/render/render_fixture.h"
#include "xop/D3D11RenderTexture.h"

using Microsoft::WRL::ComPtr;
using testkit::DecoderPool;
using testkit::Nv12Picture;

namespace {

const Yuv kMagenta = {105, 212, 234};  // loud: marks rows that must never show

ID3D11Device* DeviceOf(const RenderInitParam& init) { return static_cast<ID3D11Device*>(init.device); }
Rgb Rgb709(Yuv c) { return testkit::Bt709ToRgb(c); }

class TexturePath : public Render {
protected:
    // A render object on a new window, and a decoder-shaped pool for pw x ph on its device.
    void Scene(int x, int y, int w, int h, int pw, int ph) {
        wnd = NewWindow(x, y, w, h);
        RenderInitParam init;
        render = OnWindow(wnd, &init);
        device = DeviceOf(init);
        pool.reset(new DecoderPool(device, pw, ph));
        ASSERT_TRUE(pool->Ok());
    }
    // "" when (x, y) of `on` shows `want`, `f` shown again until it does.
    std::string ShowsAt(const ShowFrameData& f, HWND on, int x, int y, Rgb want) {
        return ScreenFault(on, x, y, want, 3, [&] { EXPECT_EQ(Show(render, f), 0); });
    }
    int ReadBack(QuillonRenderHandle h, NV12ReadBack& rb, int length = sizeof(NV12ReadBack)) {
        return g_sdk.QuillonRenderConfig(h, QUILLON_CMD_TEXTURE2D_TO_NV12, &rb, length);
    }

    HWND wnd = nullptr;
    QuillonRenderHandle render = nullptr;
    ID3D11Device* device = nullptr;
    std::unique_ptr<DecoderPool> pool;
};

// Then a fixed quarter-size destination in a resized window: a swap chain
// not rebuilt at the new size would stretch it.
TEST_F(TexturePath, SliceQuadrantsShowInBt709PaddingRowsNeverAndFollowAResize) {
    Scene(20, 20, 480, 270, 1920, 1080);
    ASSERT_EQ(pool->Height(), 1088);
    const Yuv red = testkit::Bt709FromRgb({200, 40, 30}), green = testkit::Bt709FromRgb({30, 190, 60});
    const Yuv blue = testkit::Bt709FromRgb({20, 50, 210}), white = testkit::Bt709FromRgb({230, 230, 230});
    Nv12Picture picture(1920, 1088, kMagenta);  // rows 1080..1087 stay magenta
    picture.Quadrants(1080, red, green, blue, white);
    ASSERT_TRUE(pool->Write(3, picture));
    QUILLON_REQUIRE_NV12_SAMPLING(device);
    // A decoder reporting its padded height 1088 shows 1080 rows: 4:1 down, the
    // last row samples source rows 1077-1078, where a 1088-row crop would
    // reach the magenta padding (other heights: ZoomSourceRect's table).
    const ShowFrameData f = Slice(pool->Texture(), 3, 1920, 1088);
    EXPECT_EQ(ShowsAt(f, wnd, 120, 67, Rgb709(red)), "");
    EXPECT_EQ(ScreenFault(wnd, 360, 67, Rgb709(green)), "");
    EXPECT_EQ(ShowsAt(f, wnd, 120, 269, Rgb709(blue)), "");
    EXPECT_EQ(ShowsAt(f, wnd, 360, 269, Rgb709(white)), "");
    EXPECT_EQ(TakeVelmorCalls(), Calls{});

    ASSERT_EQ(Config(render, QUILLON_CMD_SET_DST_RECT, DstRect{0, 0, 240, 134}), 0);
    EXPECT_EQ(ShowsAt(f, wnd, 230, 125, Rgb709(white)), "");
    ResizeClient(wnd, 640, 360);
    EXPECT_EQ(ShowsAt(f, wnd, 230, 125, Rgb709(white)), "");
    EXPECT_EQ(ShowsAt(f, wnd, 260, 125, {0, 0, 0}), "");
    // Copied by length: nothing of a negative length, two fields of 8 bytes; {0, 0, 0, 0} is the whole window.
    ASSERT_EQ(Config(render, QUILLON_CMD_SET_DST_RECT, DstRect{0, 0, 240, 134}, -5), 0);
    EXPECT_EQ(ShowsAt(f, wnd, 500, 300, Rgb709(white)), "");
    ASSERT_EQ(Config(render, QUILLON_CMD_SET_DST_RECT, DstRect{0, 0, 240, 134}), 0);
    ASSERT_EQ(Config(render, QUILLON_CMD_SET_DST_RECT, DstRect{0, 0, 240, 134}, 8), 0);
    EXPECT_EQ(ShowsAt(f, wnd, 500, 300, Rgb709(white)), "");
}

// Byte-exact read-back of 720 rows from an array padded to 736, through a staging texture made once at the
// first size (16-aligned) and again on a new device, copied back to the host by length.
TEST_F(TexturePath, ReadBackBytesEqualTheSliceThroughOneStagingTexture) {
    RenderInitParam init;
    QuillonRenderHandle h = OnWindow(nullptr, &init, 4096);  // more than 72: 72 copied
    DecoderPool hd(DeviceOf(init), 1280, 720), large(DeviceOf(init), 1920, 1080, 2);
    ASSERT_TRUE(hd.Ok() && large.Ok());
    Nv12Picture picture(hd.Width(), hd.Height(), kMagenta);
    for (size_t i = 0; i < picture.y.size(); ++i) picture.y[i] = static_cast<uint8_t>(i * 7 + i / 4099);
    for (size_t i = 0; i < picture.uv.size(); ++i) picture.uv[i] = static_cast<uint8_t>(i * 13 + i / 3001);
    ASSERT_TRUE(hd.Write(9, picture));
    NV12ReadBack rb = {hd.Texture(), 9, 1280, 720, {}, nullptr, 0, {}};
    ASSERT_EQ(ReadBack(h, rb), 0);
    ASSERT_NE(rb.data, nullptr);
    ASSERT_GE(rb.rowPitch, 1280u);
    if (testkit::OnNv12Stack()) {  // wined3d copies NV12 array slices back as zeros
        // Luma rows, then chroma rows from the staging height 720.
        int wrong = 0;
        for (int row = 0; row < 720 * 3 / 2; ++row) {
            const uint8_t* want = row < 720 ? &picture.y[size_t(row) * 1280] : &picture.uv[size_t(row - 720) * 1280];
            wrong += memcmp(static_cast<const uint8_t*>(rb.data) + size_t(row) * rb.rowPitch, want, 1280) != 0;
        }
        EXPECT_EQ(wrong, 0) << "rows that differ";
    }
    // A larger picture still goes through the first, smaller staging texture.
    NV12ReadBack again = {large.Texture(), 0, 1920, 1080, {}, nullptr, 0, {}};
    EXPECT_EQ(ReadBack(h, again), 0);
    EXPECT_EQ(again.rowPitch, rb.rowPitch);
    // 24 bytes: the outputs are not copied back.
    again.data = reinterpret_cast<void*>(0x1234);
    again.rowPitch = 77;
    EXPECT_EQ(ReadBack(h, again, 24), 0);
    EXPECT_EQ(again.data, reinterpret_cast<void*>(0x1234));
    EXPECT_EQ(again.rowPitch, 77u);
    // A new device (the first one goes through the virtual Destroy, as in device recovery): a new staging texture.
    ASSERT_EQ(g_sdk.QuillonRenderInitDevice(h, &init, sizeof(init)), 0);
    DecoderPool fresh(DeviceOf(init), 1920, 1080, 1);
    again = {fresh.Texture(), 0, 1920, 1080, {}, nullptr, 0, {}};
    EXPECT_EQ(ReadBack(h, again), 0);
    EXPECT_GE(again.rowPitch, 1920u);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
}

// Sources the renderer must not copy from: refused with -1 from ShowFrame
// (read-back: the host's outputs left as sent) and one record, on any stack.
TEST_F(TexturePath, ForeignMissingAndNonNv12SourcesAndEmptyCropsAreRefused) {
    Scene(20, 720, 64, 64, 64, 64);
    RenderInitParam foreign;  // a device alone, of another render object
    OnWindow(nullptr, &foreign);
    DecoderPool theirs(DeviceOf(foreign), 64, 64);
    ComPtr<ID3D11Texture2D> bgra;
    const D3D11_TEXTURE2D_DESC d = xop::TextureDesc(64, 64, DXGI_FORMAT_B8G8R8A8_UNORM, D3D11_USAGE_DEFAULT, 0);
    ASSERT_HRESULT_SUCCEEDED(device->CreateTexture2D(&d, nullptr, &bgra));
    ASSERT_TRUE(theirs.Ok());

    const std::string file = "render/CLS_D3D11vaRenderer.cpp", show = "CLS_D3D11vaRenderer::ShowDecodedFrame";
    const struct {
        ID3D11Texture2D* texture;
        UINT slice;
        const char* message;
    } cases[] = {{theirs.Texture(), 0, "texture of another device"},
                 {pool->Texture(), 10, "arraySlice out of range"},
                 {bgra.Get(), 0, "texture is not NV12"},
                 {nullptr, 0, nullptr}};  // read-back only: no texture at all
    for (const auto& c : cases) {
        if (c.texture) {
            EXPECT_EQ(Show(render, Slice(c.texture, c.slice, 64, 64)), -1) << c.message;
            EXPECT_EQ(TakeVelmorCalls(), ErrorRecord(file, show, 75, c.message));
        }
        NV12ReadBack rb = {c.texture, c.slice, 64, 64, {}, reinterpret_cast<void*>(0x5678), 9, {}};
        EXPECT_EQ(ReadBack(render, rb), 0);
        EXPECT_EQ(rb.data, reinterpret_cast<void*>(0x5678));
        EXPECT_EQ(rb.rowPitch, 9u);
        EXPECT_EQ(TakeVelmorCalls(),
                  c.texture ? ErrorRecord(file, "CLS_D3D11vaRenderer::Texture2DToNV12", 146, c.message) : Calls{});
    }
    // A slice of our own: shown where NV12 can be sampled, else -1 and no crash.
    EXPECT_EQ(Show(render, Slice(pool->Texture(), 1, 64, 64)), testkit::CanSampleNv12(device) ? 0 : -1);
    TakeVelmorCalls();
    // Nothing left to show (the boxes: TextureBoxes): wholly outside; 16 bytes of a zoom copy left and top
    // only, a negative length nothing.
    const std::pair<EZoomArea, int> crops[] = {
        {{1.5, 0.0, 2.0, 1.0}, 32}, {{0.25, 0.25, 0.75, 0.75}, 16}, {{0.0, 0.0, 1.0, 1.0}, -5}};
    for (const auto& c : crops) {
        ASSERT_EQ(Config(render, QUILLON_CMD_EZOOM_AREA, c.first, c.second), 0);
        EXPECT_EQ(Show(render, Slice(pool->Texture(), 1, 64, 64)), -1);
        EXPECT_EQ(TakeVelmorCalls(), ErrorRecord(file, show, 83, "zoom area leaves no picture"));
    }
}

TEST(TextureBoxes, CopiesNeverReachOutsideTheirSource) {
    using Box = std::vector<UINT>;
    auto fit = [](RECT want, UINT w, UINT h) {
        D3D11_BOX b = {9, 9, 9, 9, 9, 9};
        return FitBox(want, w, h, &b) ? Box{b.left, b.top, b.front, b.right, b.bottom, b.back} : Box{};
    };
    EXPECT_EQ(fit({480, 270, 1440, 810}, 1920, 1088), (Box{480, 270, 0, 1440, 810, 1}));  // a zoom crop
    EXPECT_EQ(fit({-2, -4, 3840, 2176}, 1920, 1088), (Box{0, 0, 0, 1920, 1088, 1}));      // cut to the source
    EXPECT_EQ(fit({32, 32, 32, 64}, 64, 64), Box{});                                      // empty
    EXPECT_EQ(fit({40, 0, 20, 10}, 64, 64), Box{});                                       // inverted
    EXPECT_EQ(fit({96, 0, 128, 64}, 64, 64), Box{});                                      // wholly outside
    for (HRESULT lost : {DXGI_ERROR_DEVICE_REMOVED, DXGI_ERROR_DEVICE_RESET}) EXPECT_TRUE(xop::IsDeviceLost(lost));
    for (HRESULT other : {DXGI_ERROR_WAS_STILL_DRAWING, E_FAIL, S_OK}) EXPECT_FALSE(xop::IsDeviceLost(other));
}

// The renderer's NV12 input texture in view.
struct Probe : CLS_D3D11vaRenderer {
    using xop::D3D11Renderer::EnsureInputTextures;
    D3D11_TEXTURE2D_DESC InputDesc() const {
        D3D11_TEXTURE2D_DESC d = {};
        Input(xop::InputBank::kNv12)->GetTexture()->GetDesc(&d);
        return d;
    }
};

// The texture path copies into a DEFAULT texture (never DYNAMIC); a CPU NV12 upload after it maps a DYNAMIC one
// with WRITE_DISCARD.
TEST_F(TexturePath, TheTexturePathCopiesIntoADefaultTextureAndACpuUploadAfterItMapsADynamicOne) {
    Probe r;  // on a window: input textures are made for a swap chain
    ASSERT_TRUE(r.Init(NewWindow(20, 20, 64, 64)));
    QUILLON_REQUIRE_NV12_SAMPLING(r.GetDevice());
    DecoderPool pool(r.GetDevice(), 64, 48);
    ShowFrameData f = Slice(pool.Texture(), 1, 64, 48);
    ASSERT_EQ(r.ShowDecodedFrame(&f), 0);
    D3D11_TEXTURE2D_DESC d = r.InputDesc();
    EXPECT_EQ(d.Usage, D3D11_USAGE_DEFAULT);
    EXPECT_EQ(d.BindFlags, UINT(D3D11_BIND_SHADER_RESOURCE));
    EXPECT_EQ(d.CPUAccessFlags, 0u);
    r.EnsureInputTextures(64, 48, xop::kFrameNv12);
    d = r.InputDesc();
    EXPECT_EQ(d.Usage, D3D11_USAGE_DYNAMIC);
    EXPECT_EQ(d.CPUAccessFlags, UINT(D3D11_CPU_ACCESS_WRITE));
}

}  // namespace
