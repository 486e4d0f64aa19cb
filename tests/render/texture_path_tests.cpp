// The decoder-texture path through the exports: a texture array shaped like
// the decoder's pool is filled with known NV12 pictures and shown; colours,
// padding rows, zoom crop, destination rectangle, overlays, window changes
// and read-back are checked against arithmetic done here. Sources the
// renderer must not copy from are refused with one record each.
#include <d3d11.h>
#include <wrl/client.h>

#include <memory>

#include "testkit/nv12.h"
#include "tests/render/render_fixture.h"
#include "xop/D3D11RenderTexture.h"

using Microsoft::WRL::ComPtr;
using testkit::DecoderPool;
using testkit::Nv12Picture;

namespace {

const Yuv kRed = testkit::Bt709FromRgb({200, 40, 30});
const Yuv kGreen = testkit::Bt709FromRgb({30, 190, 60});
const Yuv kBlue = testkit::Bt709FromRgb({20, 50, 210});
const Yuv kWhite = testkit::Bt709FromRgb({230, 230, 230});
const Yuv kMagenta = {105, 212, 234};  // loud: marks rows that must never show
const Rgb kBlack = {0, 0, 0};

ID3D11Device* DeviceOf(const RenderInitParam& init) { return static_cast<ID3D11Device*>(init.device); }
Rgb Rgb709(Yuv c) { return testkit::Bt709ToRgb(c); }

class TexturePath : public Render {
protected:
    // A render object on a new w x h window at (x, y), and a decoder-shaped
    // pool for pw x ph pictures on its device.
    void Scene(int x, int y, int w, int h, int pw, int ph)
    {
        wnd = NewWindow(x, y, w, h);
        RenderInitParam init;
        render = OnWindow(wnd, &init);
        device = DeviceOf(init);
        pool.reset(new DecoderPool(device, pw, ph));
    }
    // "" when (x, y) of `on` shows `want`, `f` shown again until it does.
    std::string ShowsAt(const ShowFrameData& f, HWND on, int x, int y, Rgb want, int tolerance = 3)
    {
        return ScreenFault(on, x, y, want, tolerance, [&] { EXPECT_EQ(Show(render, f), 0); });
    }

    HWND wnd = nullptr;
    QuillonRenderHandle render = nullptr;
    ID3D11Device* device = nullptr;
    std::unique_ptr<DecoderPool> pool;
};

}  // namespace

TEST_F(TexturePath, SliceQuadrantsShowInBt709AndPaddingRowsNever)
{
    Scene(20, 20, 480, 270, 1920, 1080);
    ASSERT_TRUE(pool->Ok());
    ASSERT_EQ(pool->Height(), 1088);
    Nv12Picture picture(1920, 1088, kMagenta);  // rows 1080..1087 stay magenta
    picture.Quadrants(1080, kRed, kGreen, kBlue, kWhite);
    ASSERT_TRUE(pool->Write(3, picture));
    ASSERT_TRUE(pool->Write(0, Nv12Picture(1920, 1088, kMagenta)));
    QUILLON_REQUIRE_NV12_SAMPLING(device);
    // A decoder reporting its padded height (1088, or 1085..1088 rounded up)
    // shows 1080 rows as well.
    for (int height : {1080, 1088, 1086}) {
        const ShowFrameData f = Slice(pool->Texture(), 3, 1920, height);
        EXPECT_EQ(ShowsAt(f, wnd, 120, 67, Rgb709(kRed)), "") << height;
        EXPECT_EQ(ScreenFault(wnd, 360, 67, Rgb709(kGreen)), "");
        EXPECT_EQ(ScreenFault(wnd, 120, 202, Rgb709(kBlue)), "");
        EXPECT_EQ(ScreenFault(wnd, 360, 202, Rgb709(kWhite)), "");
        // 4:1 down: the last row samples source rows 1077-1078, where a
        // 1088-row crop would reach the magenta padding.
        EXPECT_EQ(ShowsAt(f, wnd, 120, 269, Rgb709(kBlue)), "");
        EXPECT_EQ(ShowsAt(f, wnd, 360, 269, Rgb709(kWhite)), "");
    }
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
}

TEST_F(TexturePath, ZoomCropAndDestinationRectangleLandWhereTheArithmeticSays)
{
    Scene(20, 320, 640, 360, 1280, 720);
    ASSERT_EQ(pool->Height(), 736);
    // Edges at source column 400 and row 300 between four greys: chroma is
    // the same everywhere, so the luma edges land on exact pixels.
    const Yuv tl = {40, 128, 128}, tr = {90, 128, 128}, bl = {150, 128, 128}, br = {210, 128, 128};
    Nv12Picture picture(1280, 736, kMagenta);
    picture.Fill(0, 0, 400, 300, tl);
    picture.Fill(400, 0, 880, 300, tr);
    picture.Fill(0, 300, 400, 420, bl);
    picture.Fill(400, 300, 880, 420, br);
    ASSERT_TRUE(pool->Write(1, picture));
    const ShowFrameData f = Slice(pool->Texture(), 1, 1280, 720);
    QUILLON_REQUIRE_NV12_SAMPLING(device);
    // The four quadrants meet at (x, y) of the client area.
    auto edges = [&](int x, int y) {
        EXPECT_EQ(ShowsAt(f, wnd, x - 1, y - 1, Rgb709(tl)), "");
        EXPECT_EQ(ScreenFault(wnd, x, y - 1, Rgb709(tr)), "");
        EXPECT_EQ(ScreenFault(wnd, x - 1, y, Rgb709(bl)), "");
        EXPECT_EQ(ScreenFault(wnd, x, y, Rgb709(br)), "");
    };

    // Zoom 0.25..0.75: the box (320,180)-(960,540), 640 x 360, drawn 1:1,
    // so the edges land on client column 80 and row 120 exactly.
    ASSERT_EQ(Config(render, QUILLON_CMD_EZOOM_AREA, EZoomArea{0.25, 0.25, 0.75, 0.75}), 0);
    edges(80, 120);
    EXPECT_EQ(ScreenFault(wnd, 639, 359, Rgb709(br)), "");

    // Into (100,50)-(420,230) at half size: edges at column 140, row 110;
    // black around it.
    ASSERT_EQ(Config(render, QUILLON_CMD_SET_DST_RECT, DstRect{100, 50, 420, 230}), 0);
    edges(140, 110);
    for (POINT p : {POINT{99, 100}, POINT{420, 100}, POINT{200, 49}, POINT{200, 230}})
        EXPECT_EQ(ScreenFault(wnd, p.x, p.y, kBlack), "");

    // A zoom reaching beyond the picture is cut to the texture: the whole
    // 1280 x 736 array, padding included, fills the rectangle.
    ASSERT_EQ(Config(render, QUILLON_CMD_EZOOM_AREA, EZoomArea{-1.0, -1.0, 2.0, 2.0}), 0);
    EXPECT_EQ(ShowsAt(f, wnd, 418, 228, Rgb709(kMagenta)), "");
    EXPECT_EQ(ScreenFault(wnd, 102, 52, Rgb709(tl)), "");
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
}

// Also the overlays from the draw callback over a decoder picture.
TEST_F(TexturePath, DecoderPicturesFollowAResizedWindowAndANewWindowUnderTheOverlays)
{
    Scene(680, 200, 320, 180, 320, 180);
    ASSERT_TRUE(pool->Write(2, Nv12Picture(320, 192, kGreen)));
    ASSERT_TRUE(pool->Write(5, Nv12Picture(320, 192, kBlue)));
    QUILLON_REQUIRE_NV12_SAMPLING(device);
    ASSERT_EQ(Config(render, QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{DrawOverlays, render}), 0);
    EXPECT_EQ(ShowsAt(Slice(pool->Texture(), 5, 320, 180), wnd, 5, 175, Rgb709(kBlue)), "");
    ExpectOverlays(wnd);
    ASSERT_EQ(Config(render, QUILLON_CMD_SET_DRAW_CALLBACK, DrawCallBackParam{}), 0);

    // A fixed 160 x 90 destination: a swap chain not rebuilt at the new
    // size would stretch it.
    const ShowFrameData f = Slice(pool->Texture(), 2, 320, 180);
    ASSERT_EQ(Config(render, QUILLON_CMD_SET_DST_RECT, DstRect{0, 0, 160, 90}), 0);
    EXPECT_EQ(ShowsAt(f, wnd, 150, 80, Rgb709(kGreen)), "");
    EXPECT_EQ(ScreenFault(wnd, 170, 80, kBlack), "");
    ResizeClient(wnd, 480, 270);
    EXPECT_EQ(ShowsAt(f, wnd, 150, 80, Rgb709(kGreen)), "");
    EXPECT_EQ(ShowsAt(f, wnd, 200, 80, kBlack), "");
    EXPECT_EQ(ScreenFault(wnd, 470, 260, kBlack), "");

    HWND other = NewWindow(680, 500, 240, 135);  // a window of its own
    ASSERT_EQ(g_sdk.QuillonRenderSetWnd(render, other), 0);
    EXPECT_EQ(ShowsAt(f, other, 150, 80, Rgb709(kGreen)), "");
    EXPECT_EQ(ShowsAt(f, other, 170, 80, kBlack), "");
}

// Byte-exact read-back of the visible picture from arrays padded to 32
// rows, through a staging texture padded to 16 only.
TEST_F(TexturePath, ReadBackBytesEqualTheSliceAt720pAnd2160p)
{
    for (SIZE s : {SIZE{1280, 720}, SIZE{3840, 2160}}) {
        RenderInitParam init;
        QuillonRenderHandle h = OnWindow(nullptr, &init);
        DecoderPool pool(DeviceOf(init), s.cx, s.cy);
        ASSERT_TRUE(pool.Ok());
        Nv12Picture picture(pool.Width(), pool.Height(), kMagenta);
        for (size_t i = 0; i < picture.y.size(); ++i) picture.y[i] = static_cast<uint8_t>(i * 7 + i / 4099);
        for (size_t i = 0; i < picture.uv.size(); ++i) picture.uv[i] = static_cast<uint8_t>(i * 13 + i / 3001);
        ASSERT_TRUE(pool.Write(9, picture));
        NV12ReadBack rb = {
            pool.Texture(), 9, static_cast<unsigned>(s.cx), static_cast<unsigned>(s.cy), {}, nullptr, 0, {}};
        ASSERT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_TEXTURE2D_TO_NV12, &rb, sizeof(rb)), 0);
        ASSERT_NE(rb.data, nullptr);
        ASSERT_GE(rb.rowPitch, static_cast<uint32_t>(s.cx));
        EXPECT_EQ(TakeVelmorCalls(), Calls{});
        if (!testkit::OnNv12Stack()) continue;  // wined3d copies NV12 array slices back as zeros
        // Luma rows, then chroma rows from the staging height s.cy (16-aligned).
        const auto* bytes = static_cast<const uint8_t*>(rb.data);
        int wrong = 0;
        for (int row = 0; row < s.cy * 3 / 2; ++row) {
            const uint8_t* want = row < s.cy ? &picture.y[size_t(row) * s.cx] : &picture.uv[size_t(row - s.cy) * s.cx];
            wrong += memcmp(bytes + size_t(row) * rb.rowPitch, want, s.cx) != 0;
        }
        EXPECT_EQ(wrong, 0) << s.cx << "x" << s.cy << ": rows that differ";
    }
}

// Sources the renderer must not copy from: refused with -1 from ShowFrame
// (read-back: the host's outputs left as sent) and one record, on any stack.
TEST_F(TexturePath, ForeignMissingAndNonNv12SourcesAndEmptyCropsAreRefused)
{
    Scene(20, 720, 64, 64, 64, 64);
    const DecoderPool& ours = *pool;
    ComPtr<ID3D11Device> foreign;
    ASSERT_HRESULT_SUCCEEDED(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0,
                                               D3D11_SDK_VERSION, &foreign, nullptr, nullptr));
    DecoderPool theirs(foreign.Get(), 64, 64);
    ComPtr<ID3D11Texture2D> bgra;
    const D3D11_TEXTURE2D_DESC d = xop::TextureDesc(64, 64, DXGI_FORMAT_B8G8R8A8_UNORM, D3D11_USAGE_DEFAULT, 0);
    ASSERT_HRESULT_SUCCEEDED(device->CreateTexture2D(&d, nullptr, &bgra));
    ASSERT_TRUE(theirs.Ok() && ours.Ok());

    const std::string file = "render/CLS_D3D11vaRenderer.cpp", show = "CLS_D3D11vaRenderer::ShowDecodedFrame";
    const struct {
        ID3D11Texture2D* texture;
        UINT slice;
        const char* message;
    } cases[] = {{theirs.Texture(), 0, "texture of another device"},
                 {ours.Texture(), 10, "arraySlice out of range"},
                 {bgra.Get(), 0, "texture is not NV12"},
                 {nullptr, 0, nullptr}};  // read-back only: no texture at all
    for (const auto& c : cases) {
        if (c.texture) {
            EXPECT_EQ(Show(render, Slice(c.texture, c.slice, 64, 64)), -1) << c.message;
            EXPECT_EQ(TakeVelmorCalls(), ErrorRecord(file, show, 75, c.message));
        }
        NV12ReadBack rb = {c.texture, c.slice, 64, 64, {}, reinterpret_cast<void*>(0x5678), 9, {}};
        EXPECT_EQ(g_sdk.QuillonRenderConfig(render, QUILLON_CMD_TEXTURE2D_TO_NV12, &rb, sizeof(rb)), 0);
        EXPECT_EQ(rb.data, reinterpret_cast<void*>(0x5678));
        EXPECT_EQ(rb.rowPitch, 9u);
        EXPECT_EQ(TakeVelmorCalls(),
                  c.texture ? ErrorRecord(file, "CLS_D3D11vaRenderer::Texture2DToNV12", 146, c.message) : Calls{});
    }

    // A slice of our own: shown where NV12 can be sampled, else -1 and no
    // crash.
    const bool samples = testkit::CanSampleNv12(device);
    EXPECT_EQ(Show(render, Slice(ours.Texture(), 1, 64, 64)), samples ? 0 : -1);
    TakeVelmorCalls();
    // Empty, inverted or wholly outside the picture: nothing left to show.
    for (EZoomArea zoom : {EZoomArea{0.5, 0.5, 0.5, 0.9}, EZoomArea{0.8, 0.1, 0.2, 0.9},
                           EZoomArea{1.5, 0.0, 2.0, 1.0}, EZoomArea{0.5, 0.5, 0.0, 0.0}}) {
        ASSERT_EQ(Config(render, QUILLON_CMD_EZOOM_AREA, zoom), 0);
        EXPECT_EQ(Show(render, Slice(ours.Texture(), 1, 64, 64)), -1);
        EXPECT_EQ(TakeVelmorCalls(), ErrorRecord(file, show, 83, "zoom area leaves no picture"));
    }
}

TEST_F(TexturePath, ReadBackMakesItsStagingTextureOnceAndCopiesBackByLength)
{
    RenderInitParam init;
    QuillonRenderHandle h = OnWindow(nullptr, &init, 4096);  // more than 72: 72 copied
    DecoderPool small(DeviceOf(init), 64, 48, 2), large(DeviceOf(init), 256, 192, 2);
    ASSERT_TRUE(small.Ok() && large.Ok());
    // 60 x 40: a staging texture of 64 x 48 (rounded up to 16).
    NV12ReadBack rb = {small.Texture(), 1, 60, 40, {}, nullptr, 0, {}};
    EXPECT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_TEXTURE2D_TO_NV12, &rb, sizeof(rb)), 0);
    EXPECT_NE(rb.data, nullptr);
    EXPECT_GE(rb.rowPitch, 64u);
    EXPECT_LT(rb.rowPitch, 256u);

    // A larger picture still goes through the first, smaller staging texture.
    NV12ReadBack again = {large.Texture(), 0, 256, 192, {}, nullptr, 0, {}};
    EXPECT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_TEXTURE2D_TO_NV12, &again, sizeof(again)), 0);
    EXPECT_EQ(again.rowPitch, rb.rowPitch);

    // 24 bytes: the outputs are not copied back.
    NV12ReadBack partial = again;
    partial.data = reinterpret_cast<void*>(0x1234);
    partial.rowPitch = 77;
    EXPECT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_TEXTURE2D_TO_NV12, &partial, 24), 0);
    EXPECT_EQ(partial.data, reinterpret_cast<void*>(0x1234));
    EXPECT_EQ(partial.rowPitch, 77u);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
}
